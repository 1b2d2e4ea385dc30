#include "ImageProcessing/OperationFrame.h"

#include <cstdint>
#include <string>

#include "Runtime/CUDADriverTable.h"
#include "Runtime/OpenCLEntryPoints.h"
#include "Runtime/ResultMapping.h"

namespace LM {

namespace {

constexpr int kBlockSize = 16;
constexpr unsigned int kDevicesPerFramework = 4;

unsigned int AlignUp(unsigned int offset, unsigned int alignment) { return (offset + alignment - 1) / alignment * alignment; }

template <class T>
int SetCUDAValue(void* kernel, unsigned int& offset, const T& value, unsigned int alignment) {
  offset = AlignUp(offset, alignment);
  T copy = value;
  const CUresult result =
      CUDA.cuParamSetv(static_cast<CUfunction>(kernel), static_cast<int>(offset), &copy, sizeof copy);
  offset += sizeof copy;
  return result;
}

template <class T>
int SetOpenCLValue(void* kernel, unsigned int& index, const T& value) {
  return clSetKernelArg(static_cast<cl_kernel>(kernel), index++, sizeof value, &value);
}

}  // namespace

int Is32BitFloat(PixelFormat format) {
  return format == kPixelFormat_GPU_BGRA_4444_16f || format == kPixelFormat_GPU_BGRX_4444_16f ? 0 : 1;
}

// The size of a pixel from the property word alone: the class bits must mark a described format; then the
// component kind and whether the layout is packed or planar decide.
int BytesPerPixel(PixelFormat format) {
  const std::uint32_t word = format.properties;
  if ((word & 0xC0000u) != 0x40000u) return 0;
  const std::uint32_t kind = (word >> 1) & 7u;
  const bool narrow = (word & 0xC00u) != 0;
  switch (kind) {
    case 0:
      return narrow ? 2 : 4;
    case 2:
    case 3:
      return 8;
    case 5:
      return narrow ? 8 : 16;
    default:
      return 0;
  }
}

void* KernelCache::Find(Device& device, const char* moduleKey, const char* kernelName) {
  if (device.GetFrameworkIndex() >= kDevicesPerFramework) return nullptr;
  Slot& slot = slots_[device.GetFramework() * kDevicesPerFramework + device.GetFrameworkIndex()];
  const std::uint64_t identity = device.GetContextIdentity();
  if (slot.identity == identity) return slot.handle;
  slot.identity = identity;
  slot.handle = nullptr;
  void* module = device.FindModule(moduleKey);
  if (module == nullptr) return nullptr;
  if (device.GetFramework() == kDeviceFramework_CUDA) {
    CUfunction function = nullptr;
    if (CUDA.cuModuleGetFunction(&function, static_cast<CUmodule>(module), kernelName) == CUDA_SUCCESS) {
      slot.handle = function;
    }
  } else {
    cl_int result = CL_SUCCESS;
    cl_kernel kernel = clCreateKernel(static_cast<cl_program>(module), kernelName, &result);
    if (result == CL_SUCCESS) slot.handle = kernel;
  }
  return slot.handle;
}

namespace detail {

int SetCUDAArgument(void* kernel, unsigned int& offset, const DevicePointer& value) {
  const CUdeviceptr pointer = reinterpret_cast<std::uintptr_t>(value.value);
  return SetCUDAValue(kernel, offset, pointer, sizeof pointer);
}
int SetCUDAArgument(void* kernel, unsigned int& offset, int value) { return SetCUDAValue(kernel, offset, value, 4); }
int SetCUDAArgument(void* kernel, unsigned int& offset, float value) { return SetCUDAValue(kernel, offset, value, 4); }
int SetCUDAArgument(void* kernel, unsigned int& offset, const float4& value) {
  return SetCUDAValue(kernel, offset, value, 16);
}
// The CUDA form of a kernel samples a texture reference bound beforehand; the image has no parameter.
int SetCUDAArgument(void*, unsigned int&, const ImageObject&) { return CUDA_SUCCESS; }

int FinishCUDAArguments(void* kernel, unsigned int size) {
  return CUDA.cuParamSetSize(static_cast<CUfunction>(kernel), size);
}

int SetOpenCLArgument(void* kernel, unsigned int& index, const DevicePointer& value) {
  const cl_mem buffer = static_cast<cl_mem>(const_cast<void*>(value.value));
  return SetOpenCLValue(kernel, index, buffer);
}
int SetOpenCLArgument(void* kernel, unsigned int& index, int value) {
  return SetOpenCLValue(kernel, index, static_cast<cl_int>(value));
}
int SetOpenCLArgument(void* kernel, unsigned int& index, float value) {
  return SetOpenCLValue(kernel, index, static_cast<cl_float>(value));
}
int SetOpenCLArgument(void* kernel, unsigned int& index, const float4& value) {
  cl_float4 vector;
  vector.s[0] = value.x;
  vector.s[1] = value.y;
  vector.s[2] = value.z;
  vector.s[3] = value.w;
  return SetOpenCLValue(kernel, index, vector);
}
int SetOpenCLArgument(void* kernel, unsigned int& index, const ImageObject& value) {
  return SetOpenCLValue(kernel, index, static_cast<cl_mem>(value.value));
}

int MapFrameworkStatus(DeviceFramework framework, int status) {
  return framework == kDeviceFramework_CUDA ? MapCUDAResult(status) : MapOpenCLResult(status);
}

int LaunchOnDeviceQueue(Device& device, void* kernel, int width, int height) {
  const boost::shared_ptr<CommandQueue> queue = device.GetCommandQueue();
  if (!queue) return kResultFailed;
  // Integer division taken up to the next whole block; a negative extent gives an empty grid, which the
  // queue refuses.
  const int gridWidth = width > 0 ? (width + kBlockSize - 1) / kBlockSize : 0;
  const int gridHeight = height > 0 ? (height + kBlockSize - 1) / kBlockSize : 0;
  return queue->LaunchKernel(kernel, gridWidth, gridHeight, kBlockSize, kBlockSize, nullptr);
}

}  // namespace detail

}  // namespace LM
