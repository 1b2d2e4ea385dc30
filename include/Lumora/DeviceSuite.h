/* The device suite: the table of operations that Lumora registers with the host at start-up under the name
 * "Corvane GPU Device Suite", version 1, so that other parts of the host reach its devices through plain C
 * calls. Every operation takes the library-wide device index first and returns a status: 0 for success,
 * LM_SUITE_BAD_ARGUMENT for an index >= the device count or a required output pointer that is null. No C++
 * exception leaves an operation. See docs/device-suite.md. */
#ifndef LUMORA_DEVICE_SUITE_H
#define LUMORA_DEVICE_SUITE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define LM_DEVICE_SUITE_NAME "Corvane GPU Device Suite"
#define LM_DEVICE_SUITE_VERSION 1

#define LM_SUITE_OK 0
#define LM_SUITE_BAD_ARGUMENT ((int32_t)0x80000001u)
/* An allocation that the pool could not satisfy. */
#define LM_SUITE_OUT_OF_MEMORY ((int32_t)0xA00F0006u)
/* The device has no context (yet), or an internal failure. */
#define LM_SUITE_FAILED ((int32_t)0xA00F0001u)

/* A pool's figures, in bytes and blocks. */
typedef struct LM_MemoryStatistics {
  size_t totalBytes; /* obtained from the driver: in use plus free */
  size_t usedBytes;  /* handed out to callers */
  size_t freeBlocks;
  size_t liveBlocks;
  size_t lowMark;
  size_t highMark;
} LM_MemoryStatistics;

typedef struct LM_DeviceSuite {
  /* 1. The number of registered devices. The index is not checked, so a host can learn that there are none.
   */
  int32_t (*GetDeviceCount)(uint32_t deviceIndex, uint32_t* count);
  /* 2. 0 CUDA, 1 OpenCL. */
  int32_t (*GetDeviceFramework)(uint32_t deviceIndex, uint32_t* framework);
  /* 3. Whether the device passes every qualification test (1 or 0). */
  int32_t (*MeetsMinimumRequirementsForUse)(uint32_t deviceIndex, int32_t* meets);
  /* 4, 5. The device's recursive exclusive access (on CUDA it makes the context current on the thread). */
  int32_t (*AcquireExclusiveAccess)(uint32_t deviceIndex);
  int32_t (*ReleaseExclusiveAccess)(uint32_t deviceIndex);
  /* 6-9. Native handles: CUdevice value or cl_device_id; CUcontext or cl_context; cl_platform_id (null for
   * CUDA); main CUstream or cl_command_queue. */
  int32_t (*GetNativeDevice)(uint32_t deviceIndex, void** handle);
  int32_t (*GetContext)(uint32_t deviceIndex, void** handle);
  int32_t (*GetPlatform)(uint32_t deviceIndex, void** handle);
  int32_t (*GetCommandQueue)(uint32_t deviceIndex, void** handle);
  /* 10-12. Device memory from the device's pool: allocate (LM_SUITE_OUT_OF_MEMORY when it cannot be had),
   * free (back to the pool with an event recorded on the device's queue, so reuse waits for queued work),
   * purge (frees at least `bytes` if it can; *freed receives what was freed). */
  int32_t (*AllocateDeviceMemory)(uint32_t deviceIndex, size_t bytes, void** memory);
  int32_t (*FreeDeviceMemory)(uint32_t deviceIndex, void* memory);
  int32_t (*PurgeDeviceMemory)(uint32_t deviceIndex, size_t bytes, size_t* freed);
  /* 13-15. The same for pinned host memory. */
  int32_t (*AllocateHostMemory)(uint32_t deviceIndex, size_t bytes, void** memory);
  int32_t (*FreeHostMemory)(uint32_t deviceIndex, void* memory);
  int32_t (*PurgeHostMemory)(uint32_t deviceIndex, size_t bytes, size_t* freed);
  /* 16, 17. Pool statistics. */
  int32_t (*GetDeviceMemoryStatistics)(uint32_t deviceIndex, LM_MemoryStatistics* statistics);
  int32_t (*GetHostMemoryStatistics)(uint32_t deviceIndex, LM_MemoryStatistics* statistics);
  /* 18. Blocks until all queued work of the device has finished. */
  int32_t (*WaitForDevice)(uint32_t deviceIndex);
} LM_DeviceSuite;

#ifdef __cplusplus
}
#endif

#endif
