// Allocation policies of the OpenCL memory managers. Device memory is a buffer for a request by size and
// a 2-D image for a request by shape; host memory comes from the host's memory recycler. A refusal is a
// null block: the pool decides what a failed allocation means.
#pragma once

#include <CL/cl.h>
#include <zelmediatypes/PixelFormat.h>

#include <cstddef>

#include "Memory/AllocationKey.h"
#include "Memory/PoolBlock.h"

namespace LM {

// The image format of a device image of `format`, from its property word: one channel (CL_R) for the
// packed and planar layouts, else CL_RGBA; CL_UNORM_INT8 for 8-bit components, CL_HALF_FLOAT for 16-bit
// ones, CL_FLOAT for the rest.
cl_image_format OpenCLImageFormatFor(zelmediatypes::PixelFormat format);

// Read-write buffers and images in one context, released with clReleaseMemObject. The context is the
// device's, which outlives its managers; the policy does not retain it.
class OpenCLDeviceMemoryPoolManager {
 public:
  explicit OpenCLDeviceMemoryPoolManager(cl_context context) : context_(context) {}

  PoolBlock Allocate(const AllocationKey& key, std::size_t* allocatedBytes);
  bool Free(void* pointer, const AllocationKey& key);

 private:
  cl_context context_;
};

// Host memory from zelcore::utility::MemoryRecycler, which rounds sizes up: the recycler's actual size is
// what the pool records.
class OpenCLHostMemoryPoolManager {
 public:
  PoolBlock Allocate(const AllocationKey& key, std::size_t* allocatedBytes);
  bool Free(void* pointer, const AllocationKey& key);
};

}  // namespace LM
