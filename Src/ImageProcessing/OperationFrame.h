// The operation frame: the one shape every image operation has. An operation declares its kernel once —
// module key, kernel name and parameter types — and runs it through Kernel<...>::Run, which finds the
// kernel through the kernel's cache, marshals the arguments in the framework's way, and launches
// ceil(width / 16) x ceil(height / 16) blocks of 16 x 16 threads on the device's queue, returning the
// framework's status as a result code. Nothing here allocates in steady state.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "ImageProcessing/KernelSignature.h"
#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"

namespace LM {

// Kernel argument types besides int, float and float4.
struct DevicePointer {
  const void* value;  // a CUDA device address or an OpenCL buffer (cl_mem)
};
struct ImageObject {
  void* value;  // an OpenCL image (cl_mem); the CUDA form of a kernel samples a texture reference instead
};

// 1 for every format but the two 16f GPU formats: the flag every kernel gets instead of the format.
int Is32BitFloat(PixelFormat format);

// The kernel handle of one kernel per device slot (framework × 4 + the device's index in its framework),
// with the context identity it was obtained for. The identity is stored before the lookup, so a kernel
// that cannot be had stays null until the device's context is made again; then it is looked up anew.
class KernelCache {
 public:
  void* Find(Device& device, const char* moduleKey, const char* kernelName);

 private:
  struct Slot {
    std::uint64_t identity = 0;
    void* handle = nullptr;
  };
  Slot slots_[8];
};

namespace detail {

template <class T>
struct ParameterTraits;
template <>
struct ParameterTraits<DevicePointer> {
  static constexpr KernelParameterKind kKind = KernelParameterKind::kDevicePointer;
};
template <>
struct ParameterTraits<int> {
  static constexpr KernelParameterKind kKind = KernelParameterKind::kInt;
};
template <>
struct ParameterTraits<float> {
  static constexpr KernelParameterKind kKind = KernelParameterKind::kFloat;
};
template <>
struct ParameterTraits<float4> {
  static constexpr KernelParameterKind kKind = KernelParameterKind::kFloat4;
};
template <>
struct ParameterTraits<ImageObject> {
  static constexpr KernelParameterKind kKind = KernelParameterKind::kImage;
};

// Sets one argument; returns the framework's status. `offset` is the CUDA byte offset, `index` the OpenCL
// argument index; both advance past the argument.
int SetCUDAArgument(void* kernel, unsigned int& offset, const DevicePointer& value);
int SetCUDAArgument(void* kernel, unsigned int& offset, int value);
int SetCUDAArgument(void* kernel, unsigned int& offset, float value);
int SetCUDAArgument(void* kernel, unsigned int& offset, const float4& value);
int SetCUDAArgument(void* kernel, unsigned int& offset, const ImageObject& value);
int FinishCUDAArguments(void* kernel, unsigned int size);
int SetOpenCLArgument(void* kernel, unsigned int& index, const DevicePointer& value);
int SetOpenCLArgument(void* kernel, unsigned int& index, int value);
int SetOpenCLArgument(void* kernel, unsigned int& index, float value);
int SetOpenCLArgument(void* kernel, unsigned int& index, const float4& value);
int SetOpenCLArgument(void* kernel, unsigned int& index, const ImageObject& value);
int MapFrameworkStatus(DeviceFramework framework, int status);
int LaunchOnDeviceQueue(Device& device, void* kernel, int width, int height);

constexpr const char* ModuleNameOfKey(const char* key) {
  const char* name = key;
  for (const char* c = key; *c != '\0'; ++c) {
    if (*c == '\\' || *c == '/') name = c + 1;
  }
  return name;
}

}  // namespace detail

// One kernel: `Self` names it (kModuleKey, kName); Parameters are its parameter types in order.
template <class Self, class... Parameters>
class Kernel {
 public:
  static constexpr KernelParameterKind kParameters[] = {detail::ParameterTraits<Parameters>::kKind...};

  static KernelSignature Signature() {
    return KernelSignature{detail::ModuleNameOfKey(Self::kModuleKey), Self::kName, kParameters, sizeof...(Parameters)};
  }

  // The launch of steps 3 to 7 of every operation: the extent check is the operation's own.
  static int Run(const boost::shared_ptr<Device>& device, int width, int height, const Parameters&... arguments) {
    void* kernel = cache_.Find(*device, Self::kModuleKey, Self::kName);
    if (kernel == nullptr) return kResultFailed;
    const int status = Marshal(device->GetFramework(), kernel, arguments...);
    if (status != 0) return detail::MapFrameworkStatus(device->GetFramework(), status);
    return detail::LaunchOnDeviceQueue(*device, kernel, width, height);
  }

  // The kernel handle for the device (null when it cannot be had); for operations that only check.
  static void* Find(const boost::shared_ptr<Device>& device) { return cache_.Find(*device, Self::kModuleKey, Self::kName); }

 private:
  // Stops at the first argument the framework refuses and returns its status.
  static int Marshal(DeviceFramework framework, void* kernel, const Parameters&... arguments) {
    int status = 0;
    unsigned int position = 0;
    if (framework == kDeviceFramework_CUDA) {
      ((status == 0 ? (status = detail::SetCUDAArgument(kernel, position, arguments), 0) : 0), ...);
      if (status == 0) status = detail::FinishCUDAArguments(kernel, position);
    } else {
      ((status == 0 ? (status = detail::SetOpenCLArgument(kernel, position, arguments), 0) : 0), ...);
    }
    return status;
  }

  static inline KernelCache cache_;
};

}  // namespace LM
