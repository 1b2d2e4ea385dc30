// The CUDA driver interface as Lumora uses it: the handful of types and the signature of every entry point
// that the binder binds. Lumora never includes the toolkit's cuda.h: the driver is bound at run time, the
// library builds without the toolkit, and cuda.h's macros would rename plain names to their newest
// versions (cuCtxCreate to cuCtxCreate_v4), which must never happen to a slot or a looked-up name.
//
// Each signature is the one the driver publishes for the name the binder binds into the slot: the _v2
// signature (64-bit device pointers, size_t sizes) for the pointer-width group, the 4.0 forms for
// cuCtxDestroy, cuCtxPushCurrent, cuCtxPopCurrent, cuStreamDestroy and cuEventDestroy, and the first
// published form for every other name. The fake driver of the tests derives its exports from the same
// list, so the two cannot drift apart.
#pragma once

#include <cstddef>

#include "Lumora/CUDATextureEnumerations.h"

#if defined(_WIN32)
#define CUDAAPI __stdcall
#else
#define CUDAAPI
#endif

extern "C" {

typedef int CUresult;
typedef int CUdevice;
typedef unsigned long long CUdeviceptr;
// Device pointers of the pre-3.2 interface, still the argument type of cuMemcpyDtoDAsync as bound.
typedef unsigned int CUdeviceptr32;

typedef struct CUctx_st* CUcontext;
typedef struct CUmod_st* CUmodule;
typedef struct CUfunc_st* CUfunction;
typedef struct CUarray_st* CUarray;
typedef struct CUtexref_st* CUtexref;
typedef struct CUsurfref_st* CUsurfref;
typedef struct CUevent_st* CUevent;
typedef struct CUstream_st* CUstream;
typedef struct CUgraphicsResource_st* CUgraphicsResource;
typedef struct CUuuid_st {
  char bytes[16];
} CUuuid;
typedef unsigned int GLuint;
typedef unsigned int GLenum;

enum {
  CUDA_SUCCESS = 0,
  CUDA_ERROR_INVALID_VALUE = 1,
  CUDA_ERROR_OUT_OF_MEMORY = 2,
  CUDA_ERROR_NOT_INITIALIZED = 3,
  CUDA_ERROR_NO_DEVICE = 100,
  CUDA_ERROR_INVALID_DEVICE = 101,
  CUDA_ERROR_INVALID_IMAGE = 200,
  CUDA_ERROR_INVALID_CONTEXT = 201,
  CUDA_ERROR_INVALID_PTX = 218,
  CUDA_ERROR_UNSUPPORTED_PTX_VERSION = 222,
  CUDA_ERROR_FILE_NOT_FOUND = 301,
  CUDA_ERROR_INVALID_HANDLE = 400,
  CUDA_ERROR_NOT_FOUND = 500,
  CUDA_ERROR_NOT_READY = 600,
  CUDA_ERROR_LAUNCH_FAILED = 700,
  CUDA_ERROR_LAUNCH_OUT_OF_RESOURCES = 701,
  CUDA_ERROR_UNKNOWN = 999
};

typedef enum CUdevice_attribute_enum {
  CU_DEVICE_ATTRIBUTE_MAX_THREADS_PER_BLOCK = 1,
  CU_DEVICE_ATTRIBUTE_TEXTURE_ALIGNMENT = 14,
  CU_DEVICE_ATTRIBUTE_MULTIPROCESSOR_COUNT = 16,
  CU_DEVICE_ATTRIBUTE_TEXTURE_PITCH_ALIGNMENT = 51,
  CU_DEVICE_ATTRIBUTE_MAXIMUM_TEXTURE2D_LINEAR_WIDTH = 70,
  CU_DEVICE_ATTRIBUTE_MAXIMUM_TEXTURE2D_LINEAR_HEIGHT = 71,
  CU_DEVICE_ATTRIBUTE_MAXIMUM_TEXTURE2D_LINEAR_PITCH = 72,
  CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MAJOR = 75,
  CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MINOR = 76
} CUdevice_attribute;

typedef enum CUfunction_attribute_enum {
  CU_FUNC_ATTRIBUTE_MAX_THREADS_PER_BLOCK = 0,
  CU_FUNC_ATTRIBUTE_NUM_REGS = 4
} CUfunction_attribute;

typedef enum CUarray_format_enum {
  CU_AD_FORMAT_UNSIGNED_INT8 = 0x01,
  CU_AD_FORMAT_UNSIGNED_INT16 = 0x02,
  CU_AD_FORMAT_UNSIGNED_INT32 = 0x03,
  CU_AD_FORMAT_SIGNED_INT8 = 0x08,
  CU_AD_FORMAT_SIGNED_INT16 = 0x09,
  CU_AD_FORMAT_SIGNED_INT32 = 0x0a,
  CU_AD_FORMAT_HALF = 0x10,
  CU_AD_FORMAT_FLOAT = 0x20
} CUarray_format;

typedef enum CUjit_option_enum {
  CU_JIT_MAX_REGISTERS = 0,
  CU_JIT_THREADS_PER_BLOCK = 1,
  CU_JIT_WALL_TIME = 2,
  CU_JIT_INFO_LOG_BUFFER = 3,
  CU_JIT_INFO_LOG_BUFFER_SIZE_BYTES = 4,
  CU_JIT_ERROR_LOG_BUFFER = 5,
  CU_JIT_ERROR_LOG_BUFFER_SIZE_BYTES = 6,
  CU_JIT_OPTIMIZATION_LEVEL = 7,
  CU_JIT_TARGET_FROM_CUCONTEXT = 8,
  CU_JIT_TARGET = 9,
  CU_JIT_FALLBACK_STRATEGY = 10
} CUjit_option;

typedef enum CUfunc_cache_enum {
  CU_FUNC_CACHE_PREFER_NONE = 0,
  CU_FUNC_CACHE_PREFER_SHARED = 1,
  CU_FUNC_CACHE_PREFER_L1 = 2,
  CU_FUNC_CACHE_PREFER_EQUAL = 3
} CUfunc_cache;

typedef enum CUlimit_enum {
  CU_LIMIT_STACK_SIZE = 0,
  CU_LIMIT_PRINTF_FIFO_SIZE = 1,
  CU_LIMIT_MALLOC_HEAP_SIZE = 2
} CUlimit;

typedef enum CUmemorytype_enum {
  CU_MEMORYTYPE_HOST = 1,
  CU_MEMORYTYPE_DEVICE = 2,
  CU_MEMORYTYPE_ARRAY = 3,
  CU_MEMORYTYPE_UNIFIED = 4
} CUmemorytype;

enum {
  CU_CTX_SCHED_YIELD = 0x02,
  CU_CTX_MAP_HOST = 0x08,
  CU_MEMHOSTALLOC_PORTABLE = 0x01,
  CU_MEMHOSTREGISTER_PORTABLE = 0x01
};

typedef struct CUdevprop_st {
  int maxThreadsPerBlock;
  int maxThreadsDim[3];
  int maxGridSize[3];
  int sharedMemPerBlock;
  int totalConstantMemory;
  int SIMDWidth;
  int memPitch;
  int regsPerBlock;
  int clockRate;
  int textureAlign;
} CUdevprop;

typedef struct CUDA_MEMCPY2D_st {
  size_t srcXInBytes;
  size_t srcY;
  CUmemorytype srcMemoryType;
  const void* srcHost;
  CUdeviceptr srcDevice;
  CUarray srcArray;
  size_t srcPitch;
  size_t dstXInBytes;
  size_t dstY;
  CUmemorytype dstMemoryType;
  void* dstHost;
  CUdeviceptr dstDevice;
  CUarray dstArray;
  size_t dstPitch;
  size_t WidthInBytes;
  size_t Height;
} CUDA_MEMCPY2D;

// Lumora never makes 3-D copies; the type is bound but only ever passed as a pointer.
typedef struct CUDA_MEMCPY3D_st CUDA_MEMCPY3D;

typedef struct CUDA_ARRAY_DESCRIPTOR_st {
  size_t Width;
  size_t Height;
  CUarray_format Format;
  unsigned int NumChannels;
} CUDA_ARRAY_DESCRIPTOR;

typedef struct CUDA_ARRAY3D_DESCRIPTOR_st {
  size_t Width;
  size_t Height;
  size_t Depth;
  CUarray_format Format;
  unsigned int NumChannels;
  unsigned int Flags;
} CUDA_ARRAY3D_DESCRIPTOR;

}  // extern "C"

// Every entry point of the table: X(name, versions, parameter list, argument list), in the binder's order.
// `versions` is HAS_V2 for the names that the driver also exports with the suffix _v2 (the pointer-width
// group, the five 4.0 names, cuGLCtxCreate and cuGraphicsResourceGetMappedPointer), else NO_V2.
// clang-format off
#define LM_CUDA_DRIVER_ENTRY_POINTS(X) \
  X(cuInit, NO_V2, (unsigned int Flags), (Flags)) \
  X(cuDriverGetVersion, NO_V2, (int* driverVersion), (driverVersion)) \
  X(cuDeviceGet, NO_V2, (CUdevice* device, int ordinal), (device, ordinal)) \
  X(cuDeviceGetCount, NO_V2, (int* count), (count)) \
  X(cuDeviceGetName, NO_V2, (char* name, int len, CUdevice dev), (name, len, dev)) \
  X(cuDeviceComputeCapability, NO_V2, (int* major, int* minor, CUdevice dev), (major, minor, dev)) \
  X(cuDeviceGetProperties, NO_V2, (CUdevprop* prop, CUdevice dev), (prop, dev)) \
  X(cuDeviceGetAttribute, NO_V2, (int* pi, CUdevice_attribute attrib, CUdevice dev), (pi, attrib, dev)) \
  X(cuCtxDestroy, HAS_V2, (CUcontext ctx), (ctx)) \
  X(cuCtxAttach, NO_V2, (CUcontext* pctx, unsigned int flags), (pctx, flags)) \
  X(cuCtxDetach, NO_V2, (CUcontext ctx), (ctx)) \
  X(cuCtxPushCurrent, HAS_V2, (CUcontext ctx), (ctx)) \
  X(cuCtxPopCurrent, HAS_V2, (CUcontext* pctx), (pctx)) \
  X(cuCtxGetDevice, NO_V2, (CUdevice* device), (device)) \
  X(cuCtxSynchronize, NO_V2, (void), ()) \
  X(cuModuleLoad, NO_V2, (CUmodule* module, const char* fname), (module, fname)) \
  X(cuModuleLoadData, NO_V2, (CUmodule* module, const void* image), (module, image)) \
  X(cuModuleUnload, NO_V2, (CUmodule hmod), (hmod)) \
  X(cuModuleGetFunction, NO_V2, (CUfunction* hfunc, CUmodule hmod, const char* name), (hfunc, hmod, name)) \
  X(cuModuleGetTexRef, NO_V2, (CUtexref* pTexRef, CUmodule hmod, const char* name), (pTexRef, hmod, name)) \
  X(cuMemFreeHost, NO_V2, (void* p), (p)) \
  X(cuMemHostAlloc, NO_V2, (void** pp, size_t bytesize, unsigned int Flags), (pp, bytesize, Flags)) \
  X(cuFuncSetBlockShape, NO_V2, (CUfunction hfunc, int x, int y, int z), (hfunc, x, y, z)) \
  X(cuFuncSetSharedSize, NO_V2, (CUfunction hfunc, unsigned int bytes), (hfunc, bytes)) \
  X(cuFuncGetAttribute, NO_V2, (int* pi, CUfunction_attribute attrib, CUfunction hfunc), (pi, attrib, hfunc)) \
  X(cuArrayDestroy, NO_V2, (CUarray hArray), (hArray)) \
  X(cuTexRefCreate, NO_V2, (CUtexref* pTexRef), (pTexRef)) \
  X(cuTexRefDestroy, NO_V2, (CUtexref hTexRef), (hTexRef)) \
  X(cuTexRefSetArray, NO_V2, (CUtexref hTexRef, CUarray hArray, unsigned int Flags), (hTexRef, hArray, Flags)) \
  X(cuTexRefSetFormat, NO_V2, (CUtexref hTexRef, CUarray_format fmt, int NumPackedComponents), (hTexRef, fmt, NumPackedComponents)) \
  X(cuTexRefSetAddressMode, NO_V2, (CUtexref hTexRef, int dim, CUaddress_mode am), (hTexRef, dim, am)) \
  X(cuTexRefSetFilterMode, NO_V2, (CUtexref hTexRef, CUfilter_mode fm), (hTexRef, fm)) \
  X(cuTexRefSetFlags, NO_V2, (CUtexref hTexRef, unsigned int Flags), (hTexRef, Flags)) \
  X(cuTexRefGetArray, NO_V2, (CUarray* phArray, CUtexref hTexRef), (phArray, hTexRef)) \
  X(cuTexRefGetAddressMode, NO_V2, (CUaddress_mode* pam, CUtexref hTexRef, int dim), (pam, hTexRef, dim)) \
  X(cuTexRefGetFilterMode, NO_V2, (CUfilter_mode* pfm, CUtexref hTexRef), (pfm, hTexRef)) \
  X(cuTexRefGetFormat, NO_V2, (CUarray_format* pFormat, int* pNumChannels, CUtexref hTexRef), (pFormat, pNumChannels, hTexRef)) \
  X(cuTexRefGetFlags, NO_V2, (unsigned int* pFlags, CUtexref hTexRef), (pFlags, hTexRef)) \
  X(cuParamSetSize, NO_V2, (CUfunction hfunc, unsigned int numbytes), (hfunc, numbytes)) \
  X(cuParamSeti, NO_V2, (CUfunction hfunc, int offset, unsigned int value), (hfunc, offset, value)) \
  X(cuParamSetf, NO_V2, (CUfunction hfunc, int offset, float value), (hfunc, offset, value)) \
  X(cuParamSetv, NO_V2, (CUfunction hfunc, int offset, void* ptr, unsigned int numbytes), (hfunc, offset, ptr, numbytes)) \
  X(cuParamSetTexRef, NO_V2, (CUfunction hfunc, int texunit, CUtexref hTexRef), (hfunc, texunit, hTexRef)) \
  X(cuLaunch, NO_V2, (CUfunction f), (f)) \
  X(cuLaunchGrid, NO_V2, (CUfunction f, int grid_width, int grid_height), (f, grid_width, grid_height)) \
  X(cuLaunchGridAsync, NO_V2, (CUfunction f, int grid_width, int grid_height, CUstream hStream), (f, grid_width, grid_height, hStream)) \
  X(cuEventCreate, NO_V2, (CUevent* phEvent, unsigned int Flags), (phEvent, Flags)) \
  X(cuEventRecord, NO_V2, (CUevent hEvent, CUstream hStream), (hEvent, hStream)) \
  X(cuEventQuery, NO_V2, (CUevent hEvent), (hEvent)) \
  X(cuEventSynchronize, NO_V2, (CUevent hEvent), (hEvent)) \
  X(cuEventDestroy, HAS_V2, (CUevent hEvent), (hEvent)) \
  X(cuEventElapsedTime, NO_V2, (float* pMilliseconds, CUevent hStart, CUevent hEnd), (pMilliseconds, hStart, hEnd)) \
  X(cuStreamCreate, NO_V2, (CUstream* phStream, unsigned int Flags), (phStream, Flags)) \
  X(cuStreamQuery, NO_V2, (CUstream hStream), (hStream)) \
  X(cuStreamSynchronize, NO_V2, (CUstream hStream), (hStream)) \
  X(cuStreamDestroy, HAS_V2, (CUstream hStream), (hStream)) \
  X(cuStreamWaitEvent, NO_V2, (CUstream hStream, CUevent hEvent, unsigned int Flags), (hStream, hEvent, Flags)) \
  X(cuDeviceTotalMem, HAS_V2, (size_t* bytes, CUdevice dev), (bytes, dev)) \
  X(cuCtxCreate, HAS_V2, (CUcontext* pctx, unsigned int flags, CUdevice dev), (pctx, flags, dev)) \
  X(cuModuleGetGlobal, HAS_V2, (CUdeviceptr* dptr, size_t* bytes, CUmodule hmod, const char* name), (dptr, bytes, hmod, name)) \
  X(cuMemGetInfo, HAS_V2, (size_t* free, size_t* total), (free, total)) \
  X(cuMemAlloc, HAS_V2, (CUdeviceptr* dptr, size_t bytesize), (dptr, bytesize)) \
  X(cuMemAllocPitch, HAS_V2, (CUdeviceptr* dptr, size_t* pPitch, size_t WidthInBytes, size_t Height, unsigned int ElementSizeBytes), (dptr, pPitch, WidthInBytes, Height, ElementSizeBytes)) \
  X(cuMemFree, HAS_V2, (CUdeviceptr dptr), (dptr)) \
  X(cuMemGetAddressRange, HAS_V2, (CUdeviceptr* pbase, size_t* psize, CUdeviceptr dptr), (pbase, psize, dptr)) \
  X(cuMemAllocHost, HAS_V2, (void** pp, size_t bytesize), (pp, bytesize)) \
  X(cuMemHostGetDevicePointer, HAS_V2, (CUdeviceptr* pdptr, void* p, unsigned int Flags), (pdptr, p, Flags)) \
  X(cuMemcpyHtoD, HAS_V2, (CUdeviceptr dstDevice, const void* srcHost, size_t ByteCount), (dstDevice, srcHost, ByteCount)) \
  X(cuMemcpyDtoH, HAS_V2, (void* dstHost, CUdeviceptr srcDevice, size_t ByteCount), (dstHost, srcDevice, ByteCount)) \
  X(cuMemcpyDtoD, HAS_V2, (CUdeviceptr dstDevice, CUdeviceptr srcDevice, size_t ByteCount), (dstDevice, srcDevice, ByteCount)) \
  X(cuMemcpyDtoA, HAS_V2, (CUarray dstArray, size_t dstOffset, CUdeviceptr srcDevice, size_t ByteCount), (dstArray, dstOffset, srcDevice, ByteCount)) \
  X(cuMemcpyAtoD, HAS_V2, (CUdeviceptr dstDevice, CUarray srcArray, size_t srcOffset, size_t ByteCount), (dstDevice, srcArray, srcOffset, ByteCount)) \
  X(cuMemcpyHtoA, HAS_V2, (CUarray dstArray, size_t dstOffset, const void* srcHost, size_t ByteCount), (dstArray, dstOffset, srcHost, ByteCount)) \
  X(cuMemcpyAtoH, HAS_V2, (void* dstHost, CUarray srcArray, size_t srcOffset, size_t ByteCount), (dstHost, srcArray, srcOffset, ByteCount)) \
  X(cuMemcpyAtoA, HAS_V2, (CUarray dstArray, size_t dstOffset, CUarray srcArray, size_t srcOffset, size_t ByteCount), (dstArray, dstOffset, srcArray, srcOffset, ByteCount)) \
  X(cuMemcpy2D, HAS_V2, (const CUDA_MEMCPY2D* pCopy), (pCopy)) \
  X(cuMemcpy2DUnaligned, HAS_V2, (const CUDA_MEMCPY2D* pCopy), (pCopy)) \
  X(cuMemcpy3D, HAS_V2, (const CUDA_MEMCPY3D* pCopy), (pCopy)) \
  X(cuMemcpyHtoDAsync, HAS_V2, (CUdeviceptr dstDevice, const void* srcHost, size_t ByteCount, CUstream hStream), (dstDevice, srcHost, ByteCount, hStream)) \
  X(cuMemcpyDtoHAsync, HAS_V2, (void* dstHost, CUdeviceptr srcDevice, size_t ByteCount, CUstream hStream), (dstHost, srcDevice, ByteCount, hStream)) \
  X(cuMemcpyHtoAAsync, HAS_V2, (CUarray dstArray, size_t dstOffset, const void* srcHost, size_t ByteCount, CUstream hStream), (dstArray, dstOffset, srcHost, ByteCount, hStream)) \
  X(cuMemcpyAtoHAsync, HAS_V2, (void* dstHost, CUarray srcArray, size_t srcOffset, size_t ByteCount, CUstream hStream), (dstHost, srcArray, srcOffset, ByteCount, hStream)) \
  X(cuMemcpy2DAsync, HAS_V2, (const CUDA_MEMCPY2D* pCopy, CUstream hStream), (pCopy, hStream)) \
  X(cuMemcpy3DAsync, HAS_V2, (const CUDA_MEMCPY3D* pCopy, CUstream hStream), (pCopy, hStream)) \
  X(cuMemsetD8, HAS_V2, (CUdeviceptr dstDevice, unsigned char uc, size_t N), (dstDevice, uc, N)) \
  X(cuMemsetD16, HAS_V2, (CUdeviceptr dstDevice, unsigned short us, size_t N), (dstDevice, us, N)) \
  X(cuMemsetD32, HAS_V2, (CUdeviceptr dstDevice, unsigned int ui, size_t N), (dstDevice, ui, N)) \
  X(cuMemsetD2D8, HAS_V2, (CUdeviceptr dstDevice, size_t dstPitch, unsigned char uc, size_t Width, size_t Height), (dstDevice, dstPitch, uc, Width, Height)) \
  X(cuMemsetD2D16, HAS_V2, (CUdeviceptr dstDevice, size_t dstPitch, unsigned short us, size_t Width, size_t Height), (dstDevice, dstPitch, us, Width, Height)) \
  X(cuMemsetD2D32, HAS_V2, (CUdeviceptr dstDevice, size_t dstPitch, unsigned int ui, size_t Width, size_t Height), (dstDevice, dstPitch, ui, Width, Height)) \
  X(cuArrayCreate, HAS_V2, (CUarray* pHandle, const CUDA_ARRAY_DESCRIPTOR* pAllocateArray), (pHandle, pAllocateArray)) \
  X(cuArrayGetDescriptor, HAS_V2, (CUDA_ARRAY_DESCRIPTOR* pArrayDescriptor, CUarray hArray), (pArrayDescriptor, hArray)) \
  X(cuArray3DCreate, HAS_V2, (CUarray* pHandle, const CUDA_ARRAY3D_DESCRIPTOR* pAllocateArray), (pHandle, pAllocateArray)) \
  X(cuArray3DGetDescriptor, HAS_V2, (CUDA_ARRAY3D_DESCRIPTOR* pArrayDescriptor, CUarray hArray), (pArrayDescriptor, hArray)) \
  X(cuTexRefSetAddress, HAS_V2, (size_t* ByteOffset, CUtexref hTexRef, CUdeviceptr dptr, size_t bytes), (ByteOffset, hTexRef, dptr, bytes)) \
  X(cuTexRefSetAddress2D, HAS_V2, (CUtexref hTexRef, const CUDA_ARRAY_DESCRIPTOR* desc, CUdeviceptr dptr, size_t Pitch), (hTexRef, desc, dptr, Pitch)) \
  X(cuTexRefGetAddress, HAS_V2, (CUdeviceptr* pdptr, CUtexref hTexRef), (pdptr, hTexRef)) \
  X(cuModuleLoadDataEx, NO_V2, (CUmodule* module, const void* image, unsigned int numOptions, CUjit_option* options, void** optionValues), (module, image, numOptions, options, optionValues)) \
  X(cuModuleLoadFatBinary, NO_V2, (CUmodule* module, const void* fatCubin), (module, fatCubin)) \
  X(cuGLCtxCreate, HAS_V2, (CUcontext* pCtx, unsigned int Flags, CUdevice device), (pCtx, Flags, device)) \
  X(cuGraphicsGLRegisterBuffer, NO_V2, (CUgraphicsResource* pCudaResource, GLuint buffer, unsigned int Flags), (pCudaResource, buffer, Flags)) \
  X(cuGraphicsGLRegisterImage, NO_V2, (CUgraphicsResource* pCudaResource, GLuint image, GLenum target, unsigned int Flags), (pCudaResource, image, target, Flags)) \
  X(cuMemHostGetFlags, NO_V2, (unsigned int* pFlags, void* p), (pFlags, p)) \
  X(cuMemcpyDtoDAsync, NO_V2, (CUdeviceptr32 dstDevice, CUdeviceptr32 srcDevice, unsigned int ByteCount, CUstream hStream), (dstDevice, srcDevice, ByteCount, hStream)) \
  X(cuFuncSetCacheConfig, NO_V2, (CUfunction hfunc, CUfunc_cache config), (hfunc, config)) \
  X(cuGraphicsUnregisterResource, NO_V2, (CUgraphicsResource resource), (resource)) \
  X(cuGraphicsSubResourceGetMappedArray, NO_V2, (CUarray* pArray, CUgraphicsResource resource, unsigned int arrayIndex, unsigned int mipLevel), (pArray, resource, arrayIndex, mipLevel)) \
  X(cuGraphicsResourceGetMappedPointer, HAS_V2, (CUdeviceptr* pDevPtr, size_t* pSize, CUgraphicsResource resource), (pDevPtr, pSize, resource)) \
  X(cuGraphicsResourceSetMapFlags, NO_V2, (CUgraphicsResource resource, unsigned int flags), (resource, flags)) \
  X(cuGraphicsMapResources, NO_V2, (unsigned int count, CUgraphicsResource* resources, CUstream hStream), (count, resources, hStream)) \
  X(cuGraphicsUnmapResources, NO_V2, (unsigned int count, CUgraphicsResource* resources, CUstream hStream), (count, resources, hStream)) \
  X(cuGetExportTable, NO_V2, (const void** ppExportTable, const CUuuid* pExportTableId), (ppExportTable, pExportTableId)) \
  X(cuModuleGetSurfRef, NO_V2, (CUsurfref* pSurfRef, CUmodule hmod, const char* name), (pSurfRef, hmod, name)) \
  X(cuSurfRefSetArray, NO_V2, (CUsurfref hSurfRef, CUarray hArray, unsigned int Flags), (hSurfRef, hArray, Flags)) \
  X(cuSurfRefGetArray, NO_V2, (CUarray* phArray, CUsurfref hSurfRef), (phArray, hSurfRef)) \
  X(cuCtxSetLimit, NO_V2, (CUlimit limit, size_t value), (limit, value)) \
  X(cuCtxGetLimit, NO_V2, (size_t* pvalue, CUlimit limit), (pvalue, limit)) \
  X(cuCtxSetCurrent, NO_V2, (CUcontext ctx), (ctx)) \
  X(cuCtxGetCurrent, NO_V2, (CUcontext* pctx), (pctx)) \
  X(cuMemHostRegister, NO_V2, (void* p, size_t bytesize, unsigned int Flags), (p, bytesize, Flags)) \
  X(cuMemHostUnregister, NO_V2, (void* p), (p)) \
  X(cuMemcpy, NO_V2, (CUdeviceptr dst, CUdeviceptr src, size_t ByteCount), (dst, src, ByteCount)) \
  X(cuMemcpyPeer, NO_V2, (CUdeviceptr dstDevice, CUcontext dstContext, CUdeviceptr srcDevice, CUcontext srcContext, size_t ByteCount), (dstDevice, dstContext, srcDevice, srcContext, ByteCount)) \
  X(cuLaunchKernel, NO_V2, (CUfunction f, unsigned int gridDimX, unsigned int gridDimY, unsigned int gridDimZ, unsigned int blockDimX, unsigned int blockDimY, unsigned int blockDimZ, unsigned int sharedMemBytes, CUstream hStream, void** kernelParams, void** extra), (f, gridDimX, gridDimY, gridDimZ, blockDimX, blockDimY, blockDimZ, sharedMemBytes, hStream, kernelParams, extra))
// clang-format on

#define LM_CUDA_DECLARE_ENTRY_POINT_TYPE(name, versions, params, args) \
  typedef CUresult(CUDAAPI* PFN_##name) params;
LM_CUDA_DRIVER_ENTRY_POINTS(LM_CUDA_DECLARE_ENTRY_POINT_TYPE)
#undef LM_CUDA_DECLARE_ENTRY_POINT_TYPE
