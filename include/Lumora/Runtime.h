// The compute runtimes as Lumora reaches them: the CUDA driver library is bound at run time by name, so a
// host can point Lumora at another driver file before start-up and ask whether a driver is usable.
#pragma once

#include <string>

#include "Lumora/Export.h"

namespace LM {

// The CUDA driver library's file name, "libcuda.so.1" ("nvcuda.dll" on Windows). A host may point it at
// another file before the first Initialize; Lumora never changes it.
#if defined(_WIN32)
LM_API extern const wchar_t* CUDADriverLibraryName;
#else
LM_API extern const char* CUDADriverLibraryName;
#endif

// The OpenCL runtime's file name, "libOpenCL.so.1" ("OpenCL.dll" on Windows). Its entry points are bound on
// first use; set it before any OpenCL work starts.
#if defined(_WIN32)
LM_API extern const wchar_t* OpenCLLibraryName;
#else
LM_API extern const char* OpenCLLibraryName;
#endif

// True when the CUDA driver can be bound: for API 4.0, or failing that for the legacy API. Binding prints
// the binder's message on standard output when the library or an entry point is missing.
LM_API bool IsCUDADriverAvailable();

// The loader's reason (dlerror, or the system's message on Windows) for the last failed load of the CUDA
// driver library; empty when the last load succeeded or none was tried. Tells a missing file from a broken
// one or a missing dependency.
LM_API std::string GetCUDADriverLoadFailure();

// The result of the last binding of the CUDA driver in this process (by start-up or by
// IsCUDADriverAvailable): 0 when the driver is bound, 999 when its library or an entry point is missing
// (and before any binding), else the driver's own error from cuInit or cuDriverGetVersion. Lets a host
// explain a missing CUDA driver without binding again.
LM_API int GetCUDADriverBindResult();

}  // namespace LM
