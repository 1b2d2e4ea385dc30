// The lock, module and framework state of a Device.
#pragma once

#include <zelcore/Threads.h>

#include <atomic>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Devices/DeviceBackend.h"
#include "Modules/ModuleRegistry.h"
#include "Platform/OffscreenGLContext.h"

namespace LM {

struct DeviceImpl {
  explicit DeviceImpl(std::unique_ptr<DeviceBackend> framework) : backend(std::move(framework)) {}

  // Exclusive access: a recursive lock per thread, counted by hand so that a CUDA context can be pushed and
  // popped with every acquisition.
  boost::mutex accessMutex;
  boost::condition_variable accessChanged;
  unsigned int waitingThreads = 0;
  unsigned int recursion = 0;
  std::uint64_t owner = 0;
  // Per level of the owner's recursion, innermost last: whether that acquisition pushed the context, so
  // that its release pops only what it pushed. Touched by the owner alone.
  std::vector<bool> pushed;

  boost::mutex executorMutex;
  boost::shared_ptr<zelcore::threads::AsyncExecutor> executor;

  std::vector<KernelRecord> kernelRecords;
  std::map<std::string, void*> modules;
  // Modules whose unloading failed, tried again before the context goes (guarded like `modules`).
  std::vector<void*> modulesToUnload;

  OffscreenGLContext openGL;
  std::unique_ptr<DeviceBackend> backend;

  // Start-up: whether a context start was posted and has not finished yet (guarded by accessMutex).
  bool starting = false;
  // Read by every operation to validate its cached kernel, so it is read without taking a lock.
  std::atomic<std::uint64_t> contextIdentity{0};
};

}  // namespace LM
