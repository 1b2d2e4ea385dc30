// Allocation policies of the CUDA memory managers. Both call the driver through the bound table (LM::CUDA)
// in whatever context is current; the device makes its context current before it touches its pools. An
// unbound entry point or a refusal is a null block: the pool decides what a failed allocation means.
#pragma once

#include <cstddef>

#include "Memory/AllocationKey.h"
#include "Memory/PoolBlock.h"

namespace LM {

// Device memory from cuMemAlloc, given back with cuMemFree. The driver is asked for the key's byte size as a
// 32-bit value, so a request of 4 GiB or more wraps, while the block is recorded under its full size. This
// is deliberate and kept: no caller asks for a single block that large.
class CUDADeviceMemoryPoolManager {
 public:
  PoolBlock Allocate(const AllocationKey& key, std::size_t* allocatedBytes);
  bool Free(void* pointer, const AllocationKey& key);
};

// Page-locked host memory from cuMemHostAlloc (no flags), given back with cuMemFreeHost.
class CUDAHostMemoryPoolManager {
 public:
  PoolBlock Allocate(const AllocationKey& key, std::size_t* allocatedBytes);
  bool Free(void* pointer, const AllocationKey& key);
};

}  // namespace LM
