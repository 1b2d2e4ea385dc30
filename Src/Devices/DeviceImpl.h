// The framework and lock state of a Device.
#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>
#include <zelcore/Threads.h>

#include "Modules/ModuleRegistry.h"
#include "Platform/OffscreenGLContext.h"
#include "Runtime/CUDADriverAPI.h"
#include "Runtime/OpenCLEntryPoints.h"

namespace LM {

struct DeviceImpl {
  // Exclusive access: a recursive lock per thread, counted by hand so that a CUDA context can be pushed and
  // popped with every acquisition.
  boost::mutex accessMutex;
  boost::condition_variable accessChanged;
  unsigned int waitingThreads = 0;
  unsigned int recursion = 0;
  std::uint64_t owner = 0;

  boost::mutex executorMutex;
  boost::shared_ptr<zelcore::threads::AsyncExecutor> executor;

  std::vector<KernelRecord> kernelRecords;
  std::map<std::string, void*> modules;

  OffscreenGLContext openGL;

  CUdevice cudaDevice = 0;
  CUcontext cudaContext = nullptr;
  // Contexts replaced by a re-initialisation: blocks handed out in them may still be in use, so they are
  // destroyed with the device.
  std::vector<CUcontext> retiredCUDAContexts;
  cl_platform_id platform = nullptr;
  cl_device_id device = nullptr;
  cl_context openCLContext = nullptr;

  // Start-up: whether a context start was posted and has not finished yet (guarded by accessMutex).
  bool starting = false;
  // Read by every operation to validate its cached kernel, so it is read without taking a lock.
  std::atomic<std::uint64_t> contextIdentity{0};

  bool HasContext() const { return cudaContext != nullptr || openCLContext != nullptr; }
};

}  // namespace LM
