#include "Runtime/OpenCLEntryPoints.h"

#include "Lumora/Runtime.h"
#include "Platform/DynamicLibrary.h"

namespace LM {

#if defined(_WIN32)
const wchar_t* OpenCLLibraryName = L"OpenCL.dll";
#else
const char* OpenCLLibraryName = "libOpenCL.so.1";
#endif

namespace {

void* OpenCLRuntime() {
  static void* const library = LoadDynamicLibrary(OpenCLLibraryName);
  return library;
}

void* FindOpenCLEntryPoint(const char* name) {
  return FindLibrarySymbol(OpenCLRuntime(), name);
}

}  // namespace

bool IsOpenCLRuntimeLoaded() {
  return OpenCLRuntime() != nullptr;
}

}  // namespace LM

// Each definition resolves its target once (thread-safe static initialisation) and forwards to it.
#define LM_OPENCL_FORWARD_STATUS(Result, name, params, args)                                       \
  Result CL_API_CALL name params {                                                                 \
    static const auto target = reinterpret_cast<decltype(&name)>(LM::FindOpenCLEntryPoint(#name)); \
    if (target == nullptr) return LM::kOpenCLRuntimeUnavailable;                                   \
    return target args;                                                                            \
  }

#define LM_OPENCL_FORWARD_OBJECT(Result, name, params, args)                                       \
  Result CL_API_CALL name params {                                                                 \
    static const auto target = reinterpret_cast<decltype(&name)>(LM::FindOpenCLEntryPoint(#name)); \
    if (target == nullptr) {                                                                       \
      if (errcode_ret != nullptr) *errcode_ret = LM::kOpenCLRuntimeUnavailable;                    \
      return nullptr;                                                                              \
    }                                                                                              \
    return target args;                                                                            \
  }

extern "C" {
LM_OPENCL_ENTRY_POINTS_RETURNING_STATUS(LM_OPENCL_FORWARD_STATUS)
LM_OPENCL_ENTRY_POINTS_RETURNING_OBJECT(LM_OPENCL_FORWARD_OBJECT)
}
