// Loading a module image into a device's context, and releasing it again.
#include <atomic>
#include <cstdint>

#include "Modules/ModuleRegistry.h"
#include "Runtime/CUDADriverTable.h"
#include "Runtime/FailureReport.h"
#include "Runtime/OpenCLEntryPoints.h"
#include "Runtime/ResultNames.h"

namespace LM {
namespace {

std::atomic<bool> moduleLoadFailuresSilenced{false};

// The source name that module load failures are reported under.
constexpr char kModuleManagerSource[] = "..\\..\\Src\\ModuleManager";

// Single-precision literals and relaxed math: the kernels work in float and do not depend on IEEE
// corner cases, and both options let the compiler use the device's fast paths.
constexpr char kOpenCLBuildOptions[] = "-cl-single-precision-constant -cl-fast-relaxed-math";

// A program compiled and built for `device`, or null; a program that fails to build is released.
cl_program LoadOpenCLProgram(void* context, void* device, const std::string& image) {
  const char* text = image.c_str();
  cl_int error = CL_SUCCESS;
  cl_program program = clCreateProgramWithSource(static_cast<cl_context>(context), 1, &text, nullptr, &error);
  if (error != CL_SUCCESS || program == nullptr) {
    if (program != nullptr) clReleaseProgram(program);
    return nullptr;
  }
  const cl_device_id deviceId = static_cast<cl_device_id>(device);
  if (clBuildProgram(program, 1, &deviceId, kOpenCLBuildOptions, nullptr, nullptr) != CL_SUCCESS) {
    // A failed build is answered with null and no message; the program must not outlive it.
    clReleaseProgram(program);
    return nullptr;
  }
  return program;
}

}  // namespace

void* LoadModuleGuarded(DeviceFramework framework, void* context, void* device, const std::string& name,
                        const std::string& image) {
  try {
    switch (framework) {
      case kDeviceFramework_CUDA:
        return LoadCUDAModule(name, image);
      case kDeviceFramework_OpenCL:
        return LoadOpenCLProgram(context, device, image);
    }
  } catch (...) {
  }
  return nullptr;
}

CUmodule LoadCUDAModule(const std::string& name, const std::string& image) {
  // The highest optimisation level, stated rather than left to the driver's default, so every driver
  // compiles the PTX kernels the same way. Nothing is written back for this option, so one pair of
  // arrays serves every thread; static storage keeps them readable after the call as well.
  static CUjit_option options[] = {kModuleJITOption};
  static void* values[] = {reinterpret_cast<void*>(static_cast<std::uintptr_t>(kModuleJITOptimizationLevel))};

  CUmodule module = nullptr;
  // PTX is text: the driver reads up to its terminating NUL, which c_str() guarantees.
  const CUresult result = CUDA.cuModuleLoadDataEx != nullptr
                              ? CUDA.cuModuleLoadDataEx(&module, image.c_str(), 1, options, values)
                              : static_cast<CUresult>(CUDA_ERROR_NOT_INITIALIZED);
  if (result == CUDA_SUCCESS) return module;
  if (!moduleLoadFailuresSilenced.load()) {
    ReportFailure(LM_SITE_SILENCE_FLAG(), "result == CUDA_SUCCESS",
                  "Failed to load module: " + name + ", error: " + CUDAResultName(result),
                  kModuleManagerSource, __LINE__, "LM::LoadCUDAModule");
  }
  return nullptr;
}

void SetModuleLoadFailuresSilenced(bool silenced) {
  moduleLoadFailuresSilenced = silenced;
}

void UnloadModule(DeviceFramework framework, void* module) {
  if (module == nullptr) return;
  // A failure is reported and otherwise ignored: the device is shutting down and drops the handle either
  // way.
  try {
    switch (framework) {
      case kDeviceFramework_CUDA:
        if (CUDA.cuModuleUnload != nullptr) {
          const CUresult result = CUDA.cuModuleUnload(static_cast<CUmodule>(module));
          static_cast<void>(LM_CUDA_SUCCEEDED(result, "Module unload failure: "));
        }
        break;
      case kDeviceFramework_OpenCL: {
        const cl_int result = clReleaseProgram(static_cast<cl_program>(module));
        static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Program release failure: "));
        break;
      }
    }
  } catch (...) {
  }
}

}  // namespace LM
