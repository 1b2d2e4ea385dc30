#include "Memory/CUDAMemoryPolicies.h"

#include <cstdint>

#include "Runtime/CUDADriverTable.h"
#include "Runtime/FailureReport.h"

namespace LM {

namespace {

constexpr unsigned int kHostAllocFlags = 0;

}  // namespace

PoolBlock CUDADeviceMemoryPoolManager::Allocate(const AllocationKey& key, std::size_t* allocatedBytes) {
  if (CUDA.cuMemAlloc == nullptr) return {};
  CUdeviceptr pointer = 0;
  const std::uint64_t bytes = key.ByteSize();
  const CUresult result = CUDA.cuMemAlloc(&pointer, static_cast<unsigned int>(bytes));
  if (result != CUDA_SUCCESS || pointer == 0) return {};
  *allocatedBytes = static_cast<std::size_t>(bytes);
  return PoolBlock{reinterpret_cast<void*>(static_cast<std::uintptr_t>(pointer)), {}};
}

// An unbound entry point is reported like a refusal: the block cannot be given back either way.
bool CUDADeviceMemoryPoolManager::Free(void* pointer, const AllocationKey&) {
  const CUresult result =
      CUDA.cuMemFree != nullptr
          ? CUDA.cuMemFree(static_cast<CUdeviceptr>(reinterpret_cast<std::uintptr_t>(pointer)))
          : static_cast<CUresult>(CUDA_ERROR_NOT_INITIALIZED);
  return LM_CUDA_SUCCEEDED(result, "Device memory free failure: ");
}

PoolBlock CUDAHostMemoryPoolManager::Allocate(const AllocationKey& key, std::size_t* allocatedBytes) {
  if (CUDA.cuMemHostAlloc == nullptr) return {};
  void* pointer = nullptr;
  const std::uint64_t bytes = key.ByteSize();
  const CUresult result = CUDA.cuMemHostAlloc(&pointer, static_cast<std::size_t>(bytes), kHostAllocFlags);
  if (result != CUDA_SUCCESS || pointer == nullptr) return {};
  *allocatedBytes = static_cast<std::size_t>(bytes);
  return PoolBlock{pointer, {}};
}

bool CUDAHostMemoryPoolManager::Free(void* pointer, const AllocationKey&) {
  const CUresult result = CUDA.cuMemFreeHost != nullptr ? CUDA.cuMemFreeHost(pointer)
                                                        : static_cast<CUresult>(CUDA_ERROR_NOT_INITIALIZED);
  return LM_CUDA_SUCCEEDED(result, "Host memory free failure: ");
}

}  // namespace LM
