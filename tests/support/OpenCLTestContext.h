// A real OpenCL context on the first device of the installed runtime (PoCL's CPU device here), for tests of
// the OpenCL path. Tests that construct it skip when no OpenCL device exists.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

#include "Runtime/OpenCLEntryPoints.h"

// An entry point that the library does not bind, from the OpenCL runtime it loaded (null before its first
// OpenCL call).
template <class Function>
Function* RuntimeEntryPoint(const char* name) {
  void* runtime = dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_NOLOAD);
  return reinterpret_cast<Function*>(runtime != nullptr ? dlsym(runtime, name) : nullptr);
}

// A kernel holds its program and the runtime's compiled binaries: one that a test leaves behind is a leak
// that LeakSanitizer reports, and that a suppression would have to hide.
inline void ReleaseKernel(cl_kernel kernel) {
  if (kernel != nullptr) RuntimeEntryPoint<decltype(clReleaseKernel)>("clReleaseKernel")(kernel);
}
struct KernelRelease {
  void operator()(cl_kernel kernel) const { ReleaseKernel(kernel); }
};
using OwnedKernel = std::unique_ptr<std::remove_pointer_t<cl_kernel>, KernelRelease>;

struct OpenCLTestContext {
  cl_platform_id platform = nullptr;
  cl_device_id device = nullptr;
  cl_context context = nullptr;
  cl_command_queue queue = nullptr;

  // Returns false (and the reason in *why) when the runtime offers no device.
  bool Open(std::string* why, cl_command_queue_properties properties = 0) {
    const auto fail = [why](const char* reason) { return *why = reason, false; };
    cl_uint count = 0;
    cl_int error = CL_SUCCESS;
    if (clGetPlatformIDs(1, &platform, &count) != CL_SUCCESS || count == 0) return fail("no OpenCL platform");
    if (clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 1, &device, &count) != CL_SUCCESS || count == 0)
      return fail("no OpenCL device");
    const cl_context_properties contextProperties[] = {CL_CONTEXT_PLATFORM,
                                                       reinterpret_cast<cl_context_properties>(platform), 0};
    context = clCreateContext(contextProperties, 1, &device, nullptr, nullptr, &error);
    if (error != CL_SUCCESS) return fail("clCreateContext failed");
    queue = clCreateCommandQueue(context, device, properties, &error);
    return error == CL_SUCCESS || fail("clCreateCommandQueue failed");
  }

  ~OpenCLTestContext() {
    if (queue != nullptr) clReleaseCommandQueue(queue);
    if (context != nullptr) clReleaseContext(context);
  }
};

// Opens `name` (an OpenCLTestContext) or skips the test.
#define LM_OPEN_OPENCL_OR_SKIP(name, ...)                     \
  OpenCLTestContext name;                                     \
  {                                                           \
    std::string why;                                          \
    if (!name.Open(&why, ##__VA_ARGS__)) GTEST_SKIP() << why; \
  }
