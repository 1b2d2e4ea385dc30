#include "Memory/OpenCLMemoryPolicies.h"

#include <zelcore/Utility.h>

#include <cstdint>

#include "Runtime/FailureReport.h"
#include "Runtime/OpenCLEntryPoints.h"
#include "Runtime/PixelFormatWord.h"

namespace LM {

// Subsampled layouts (packed 4:2:2, planar 4:2:0) are read one channel at a time; 8-bit components are
// normalised integers, 16-bit ones halves, any other kind floats.
cl_image_format OpenCLImageFormatFor(zelmediatypes::PixelFormat format) {
  const std::uint32_t kind = word::ComponentKind(format.properties);
  cl_image_format imageFormat;
  imageFormat.image_channel_order = word::HasSubsampledLayout(format.properties) ? CL_R : CL_RGBA;
  imageFormat.image_channel_data_type = kind == word::kKind8Bit    ? CL_UNORM_INT8
                                        : kind == word::kKind16Bit ? CL_HALF_FLOAT
                                                                   : CL_FLOAT;
  return imageFormat;
}

PoolBlock OpenCLDeviceMemoryPoolManager::Allocate(const AllocationKey& key, std::size_t* allocatedBytes) {
  cl_int error = CL_SUCCESS;
  cl_mem memory = nullptr;
  if (key.size != 0) {
    memory = clCreateBuffer(context_, CL_MEM_READ_WRITE, static_cast<std::size_t>(key.size), nullptr, &error);
  } else if (key.width > 0 && key.height > 0) {
    const cl_image_format imageFormat = OpenCLImageFormatFor(key.format);
    memory = clCreateImage2D(context_, CL_MEM_READ_WRITE, &imageFormat, static_cast<std::size_t>(key.width),
                             static_cast<std::size_t>(key.height), 0, nullptr, &error);
  } else {
    return {};
  }
  if (error != CL_SUCCESS || memory == nullptr) return {};
  *allocatedBytes = static_cast<std::size_t>(key.ByteSize());
  return PoolBlock{memory, {}};
}

bool OpenCLDeviceMemoryPoolManager::Free(void* pointer, const AllocationKey&) {
  const cl_int result = clReleaseMemObject(static_cast<cl_mem>(pointer));
  return LM_OPENCL_SUCCEEDED(result, "Memory object release failure: ");
}

PoolBlock OpenCLHostMemoryPoolManager::Allocate(const AllocationKey& key, std::size_t* allocatedBytes) {
  std::size_t actualSize = 0;
  void* pointer =
      zelcore::utility::MemoryRecycler::Allocate(static_cast<std::size_t>(key.ByteSize()), actualSize);
  if (pointer == nullptr) return {};
  *allocatedBytes = actualSize;
  return PoolBlock{pointer, {}};
}

// The recycler takes every block back.
bool OpenCLHostMemoryPoolManager::Free(void* pointer, const AllocationKey& key) {
  zelcore::utility::MemoryRecycler::Recycle(pointer, static_cast<std::size_t>(key.ByteSize()));
  return true;
}

}  // namespace LM
