#include "Devices/DeviceSuite.h"

#include <TQ/Suites.h>

#include <exception>

#include "Devices/DeviceBackend.h"
#include "Lumora/Device.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Qualification.h"

namespace LM {

namespace {

// Runs one operation on the device at `index`: a bad index is LM_SUITE_BAD_ARGUMENT, and no exception
// reaches the host.
template <class Operation>
int32_t OnDevice(uint32_t index, Operation operation) {
  try {
    if (index >= GetDeviceCount()) return LM_SUITE_BAD_ARGUMENT;
    const boost::shared_ptr<Device> device = GetDevice(index);
    if (!device) return LM_SUITE_BAD_ARGUMENT;
    return operation(*device);
  } catch (...) {
    return LM_SUITE_FAILED;
  }
}

// The same, holding the device's exclusive access (the pools are not locked, and CUDA needs the context).
// Purging and allocating call the pools' purge callbacks, host code, under that access, as they must; the
// access is recursive per thread, so a callback may take it again.
template <class Operation>
int32_t WithAccess(uint32_t index, Operation operation) {
  return OnDevice(index, [&](Device& device) {
    const ExclusiveAccess access(device);
    return operation(device);
  });
}

int32_t Handle(uint32_t index, void** out, void* (Device::*get)() const) {
  if (out == nullptr) return LM_SUITE_BAD_ARGUMENT;
  return OnDevice(index, [&](Device& device) {
    *out = (device.*get)();
    return LM_SUITE_OK;
  });
}

using Pool = boost::shared_ptr<MemoryManager> (Device::*)() const;

int32_t Allocate(uint32_t index, std::size_t bytes, void** memory, Pool pool) {
  if (memory == nullptr) return LM_SUITE_BAD_ARGUMENT;
  return WithAccess(index, [&](Device& device) {
    const boost::shared_ptr<MemoryManager> manager = (device.*pool)();
    if (!manager) return LM_SUITE_FAILED;
    *memory = manager->Allocate(bytes, nullptr);
    return *memory != nullptr ? LM_SUITE_OK : LM_SUITE_OUT_OF_MEMORY;
  });
}

int32_t Free(uint32_t index, void* memory, Pool pool) {
  return WithAccess(index, [&](Device& device) {
    const boost::shared_ptr<MemoryManager> manager = (device.*pool)();
    if (!manager) return LM_SUITE_FAILED;
    const boost::shared_ptr<CommandQueue> queue = device.GetCommandQueue();
    manager->Release(memory, queue ? queue->RecordEvent() : boost::shared_ptr<Event>());
    return LM_SUITE_OK;
  });
}

int32_t Purge(uint32_t index, std::size_t bytes, std::size_t* freed, Pool pool) {
  if (freed == nullptr) return LM_SUITE_BAD_ARGUMENT;
  return WithAccess(index, [&](Device& device) {
    const boost::shared_ptr<MemoryManager> manager = (device.*pool)();
    *freed = manager ? manager->Purge(bytes) : 0;
    return LM_SUITE_OK;
  });
}

int32_t Statistics(uint32_t index, LM_MemoryStatistics* statistics, Pool pool) {
  if (statistics == nullptr) return LM_SUITE_BAD_ARGUMENT;
  return WithAccess(index, [&](Device& device) {
    *statistics = LM_MemoryStatistics();
    const boost::shared_ptr<MemoryManager> manager = (device.*pool)();
    if (!manager) return LM_SUITE_FAILED;
    manager->GetStatistics(&statistics->totalBytes, &statistics->freeBlocks, &statistics->liveBlocks,
                           &statistics->lowMark, &statistics->highMark);
    statistics->usedBytes = manager->GetUsedSize();
    return LM_SUITE_OK;
  });
}

const LM_DeviceSuite kSuite = {
    [](uint32_t, uint32_t* count) -> int32_t {
      if (count == nullptr) return LM_SUITE_BAD_ARGUMENT;
      *count = GetDeviceCount();
      return LM_SUITE_OK;
    },
    [](uint32_t index, uint32_t* framework) -> int32_t {
      if (framework == nullptr) return LM_SUITE_BAD_ARGUMENT;
      return OnDevice(index, [&](Device& device) {
        *framework = device.GetFramework();
        return LM_SUITE_OK;
      });
    },
    [](uint32_t index, int32_t* meets) -> int32_t {
      if (meets == nullptr) return LM_SUITE_BAD_ARGUMENT;
      return OnDevice(index, [&](Device&) {
        *meets = MeetsMinimumRequirementsForUse(GetDevice(index)) ? 1 : 0;
        return LM_SUITE_OK;
      });
    },
    [](uint32_t index) -> int32_t {
      return OnDevice(index, [](Device& device) {
        device.AcquireExclusiveAccess();
        return LM_SUITE_OK;
      });
    },
    [](uint32_t index) -> int32_t {
      return OnDevice(index, [](Device& device) {
        device.ReleaseExclusiveAccess();
        return LM_SUITE_OK;
      });
    },
    [](uint32_t index, void** out) -> int32_t { return Handle(index, out, &Device::GetDeviceHandle); },
    [](uint32_t index, void** out) -> int32_t { return Handle(index, out, &Device::GetContextHandle); },
    [](uint32_t index, void** out) -> int32_t { return Handle(index, out, &Device::GetPlatformHandle); },
    [](uint32_t index, void** out) -> int32_t {
      if (out == nullptr) return LM_SUITE_BAD_ARGUMENT;
      return OnDevice(index, [&](Device& device) {
        const boost::shared_ptr<CommandQueue> queue = device.GetCommandQueue();
        *out = queue ? queue->GetNativeQueue() : nullptr;
        return LM_SUITE_OK;
      });
    },
    [](uint32_t index, std::size_t bytes, void** memory) -> int32_t {
      return Allocate(index, bytes, memory, &Device::GetDeviceMemory);
    },
    [](uint32_t index, void* memory) -> int32_t { return Free(index, memory, &Device::GetDeviceMemory); },
    [](uint32_t index, std::size_t bytes, std::size_t* freed) -> int32_t {
      return Purge(index, bytes, freed, &Device::GetDeviceMemory);
    },
    [](uint32_t index, std::size_t bytes, void** memory) -> int32_t {
      return Allocate(index, bytes, memory, &Device::GetHostMemory);
    },
    [](uint32_t index, void* memory) -> int32_t { return Free(index, memory, &Device::GetHostMemory); },
    [](uint32_t index, std::size_t bytes, std::size_t* freed) -> int32_t {
      return Purge(index, bytes, freed, &Device::GetHostMemory);
    },
    [](uint32_t index, LM_MemoryStatistics* statistics) -> int32_t {
      return Statistics(index, statistics, &Device::GetDeviceMemory);
    },
    [](uint32_t index, LM_MemoryStatistics* statistics) -> int32_t {
      return Statistics(index, statistics, &Device::GetHostMemory);
    },
    [](uint32_t index) -> int32_t {
      return WithAccess(index, [](Device& device) {
        return BackendOf(device).Finish(device.GetCommandQueue().get()) ? LM_SUITE_OK : LM_SUITE_FAILED;
      });
    },
};

}  // namespace

const LM_DeviceSuite& DeviceSuiteTable() {
  return kSuite;
}

void RegisterDeviceSuite() {
  TQ::RegisterSuite(LM_DEVICE_SUITE_NAME, LM_DEVICE_SUITE_VERSION, &kSuite, sizeof kSuite);
}

}  // namespace LM
