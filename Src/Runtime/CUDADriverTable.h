// The process-wide table of CUDA driver entry points and the binder that fills it. Every CUDA call of the
// library goes through LM::CUDA; slots are zero until bound, written only by BindCUDADriver, and never
// cleared. A _v2 name is bound into the slot of its plain name, so callers always call the plain slot.
#pragma once

#include "Lumora/Runtime.h"
#include "Runtime/CUDADriverAPI.h"

namespace LM {

struct CUDADriverTable {
#define LM_CUDA_DECLARE_SLOT(name, versions, params, args) PFN_##name name;
  LM_CUDA_DRIVER_ENTRY_POINTS(LM_CUDA_DECLARE_SLOT)
#undef LM_CUDA_DECLARE_SLOT
};

extern CUDADriverTable CUDA;

// The binder's groups, in binding order. Each list names slots; whether the plain or the _v2 name is
// looked up is the binder's choice.

// Required whatever the versions.
// clang-format off
#define LM_CUDA_CORE_ENTRY_POINTS(X)                                                                        \
  X(cuDeviceGet) X(cuDeviceGetCount) X(cuDeviceGetName) X(cuDeviceComputeCapability) X(cuDeviceGetProperties) \
  X(cuDeviceGetAttribute) X(cuCtxDestroy) X(cuCtxAttach) X(cuCtxDetach) X(cuCtxPushCurrent) X(cuCtxPopCurrent) \
  X(cuCtxGetDevice) X(cuCtxSynchronize) X(cuModuleLoad) X(cuModuleLoadData) X(cuModuleUnload)                  \
  X(cuModuleGetFunction) X(cuModuleGetTexRef) X(cuMemFreeHost) X(cuMemHostAlloc) X(cuFuncSetBlockShape)        \
  X(cuFuncSetSharedSize) X(cuFuncGetAttribute) X(cuArrayDestroy) X(cuTexRefCreate) X(cuTexRefDestroy)          \
  X(cuTexRefSetArray) X(cuTexRefSetFormat) X(cuTexRefSetAddressMode) X(cuTexRefSetFilterMode)                  \
  X(cuTexRefSetFlags) X(cuTexRefGetArray) X(cuTexRefGetAddressMode) X(cuTexRefGetFilterMode)                   \
  X(cuTexRefGetFormat) X(cuTexRefGetFlags) X(cuParamSetSize) X(cuParamSeti) X(cuParamSetf) X(cuParamSetv)      \
  X(cuParamSetTexRef) X(cuLaunch) X(cuLaunchGrid) X(cuLaunchGridAsync) X(cuEventCreate) X(cuEventRecord)       \
  X(cuEventQuery) X(cuEventSynchronize) X(cuEventDestroy) X(cuEventElapsedTime) X(cuStreamCreate)              \
  X(cuStreamQuery) X(cuStreamSynchronize) X(cuStreamDestroy)
// clang-format on

// For callers written against API 4.0 or later: the 4.0 _v2 names over the slots of their plain names.
// clang-format off
#define LM_CUDA_API4000_V2_ENTRY_POINTS(X) \
  X(cuCtxDestroy) X(cuCtxPopCurrent) X(cuCtxPushCurrent) X(cuStreamDestroy) X(cuEventDestroy)
// clang-format on

// The entry points whose interface changed with 64-bit device pointers: plain names below API 3.2,
// _v2 names from 3.2 on.
// clang-format off
#define LM_CUDA_POINTER_WIDTH_ENTRY_POINTS(X)                                                                \
  X(cuDeviceTotalMem) X(cuCtxCreate) X(cuModuleGetGlobal) X(cuMemGetInfo) X(cuMemAlloc) X(cuMemAllocPitch)    \
  X(cuMemFree) X(cuMemGetAddressRange) X(cuMemAllocHost) X(cuMemHostGetDevicePointer) X(cuMemcpyHtoD)         \
  X(cuMemcpyDtoH) X(cuMemcpyDtoD) X(cuMemcpyDtoA) X(cuMemcpyAtoD) X(cuMemcpyHtoA) X(cuMemcpyAtoH)             \
  X(cuMemcpyAtoA) X(cuMemcpy2D) X(cuMemcpy2DUnaligned) X(cuMemcpy3D) X(cuMemcpyHtoDAsync)                     \
  X(cuMemcpyDtoHAsync) X(cuMemcpyHtoAAsync) X(cuMemcpyAtoHAsync) X(cuMemcpy2DAsync) X(cuMemcpy3DAsync)        \
  X(cuMemsetD8) X(cuMemsetD16) X(cuMemsetD32) X(cuMemsetD2D8) X(cuMemsetD2D16) X(cuMemsetD2D32)               \
  X(cuArrayCreate) X(cuArrayGetDescriptor) X(cuArray3DCreate) X(cuArray3DGetDescriptor) X(cuTexRefSetAddress) \
  X(cuTexRefSetAddress2D) X(cuTexRefGetAddress)
// clang-format on

// Required from driver 4.0 on.
// clang-format off
#define LM_CUDA_DRIVER4000_ENTRY_POINTS(X) \
  X(cuCtxSetCurrent) X(cuCtxGetCurrent) X(cuMemHostRegister) X(cuMemHostUnregister) X(cuMemcpy) X(cuMemcpyPeer) \
  X(cuLaunchKernel)
// clang-format on

// Loads the driver library and stores its handle through `module`; 0 on success, else prints
// "LoadLibrary "<name>" failed!" on standard output (the loader's reason is kept for
// GetCUDADriverLoadFailure) and returns 999. Binds nothing.
int LoadCUDADriverLibrary(void** module);

// Binds every entry point needed for `apiVersion` (1000 × major + 10 × minor) and the installed driver's
// version, calling cuInit(flags) on the way. 0 when all required names are bound; 999 when the library or a
// required name is missing (with a message on standard output); the driver's own result when cuInit or
// cuDriverGetVersion fails.
int BindCUDADriver(unsigned int flags, int apiVersion);

}  // namespace LM
