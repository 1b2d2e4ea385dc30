// Start-up and shut-down of the library, and its registry of devices.
#include "Lumora/Lifecycle.h"

#include <OXR/CriticalSection.h>
#include <zelcore/Threads.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <boost/bind/bind.hpp>
#include <set>
#include <vector>

#include "Devices/CUDABackend.h"
#include "Devices/Configuration.h"
#include "Devices/DeviceSuite.h"
#include "Devices/EventPolling.h"
#include "Devices/OpenCLBackend.h"
#include "Lumora/Device.h"
#include "Lumora/PixelFormats.h"
#include "Lumora/Qualification.h"
#include "Runtime/CUDADriverTable.h"

namespace LM {

namespace {

// Process-wide state, guarded by the library lock. The registry is read without the lock: hosts query
// devices between start-up and shut-down, never during them.
struct Library {
  OXR::CriticalSection lock;
  unsigned int initializeCount = 0;
  // Set once the suite is registered and devices were started; never cleared, so a later Initialize(true)
  // in the same process neither registers the suite again nor starts contexts again.
  bool started = false;
  std::vector<boost::shared_ptr<Device>> registry;
  std::set<zelcore::UTF16String> matchNames;
};

Library& TheLibrary() {
  static Library* const library = new Library;  // never destroyed: devices may outlive static destruction
  return *library;
}

constexpr PixelFormat kGPUPixelFormats[] = {kPixelFormat_GPU_BGRA_4444_16f, kPixelFormat_GPU_BGRX_4444_16f,
                                            kPixelFormat_GPU_BGRA_4444_32f, kPixelFormat_GPU_BGRX_4444_32f};

bool AccelerationDisabled() {
  return ReadDebugSwitch("LM.DisableAcceleratedRenderer") && ReadDebugSwitch("LM.DisableAcceleratedDisplay");
}

// CUDA devices in driver ordinal order; an ordinal that cannot be had or made leaves no gap in the indices.
void EnumerateCUDADevices(std::vector<boost::shared_ptr<Device>>& registry) {
  unsigned int accepted = 0;
  for (const CUdevice cudaDevice : CUDABackend::EnumerateDevices()) {
    boost::shared_ptr<Device> device =
        Device::Create(accepted, static_cast<unsigned int>(registry.size()), cudaDevice);
    if (!device) continue;
    registry.push_back(device);
    ++accepted;
  }
}

// OpenCL devices by platform, then by device: GPUs, and with "LM.OpenCLIncludeCPUDevices" CPU devices too.
void EnumerateOpenCLDevices(std::vector<boost::shared_ptr<Device>>& registry) {
  unsigned int accepted = 0;
  for (const auto& [platform, id] :
       OpenCLBackend::EnumerateDevices(ReadDebugSwitch("LM.OpenCLIncludeCPUDevices"))) {
    boost::shared_ptr<Device> device =
        Device::Create(accepted, static_cast<unsigned int>(registry.size()), platform, id);
    if (!device) continue;
    registry.push_back(device);
    ++accepted;
  }
}

// Context creation runs on a host CPU-bound executor; the executor handle is dropped at once.
void StartDevices(const std::vector<boost::shared_ptr<Device>>& registry) {
  for (const boost::shared_ptr<Device>& device : registry) {
    if (!MeetsMinimumRequirementsForUse(device)) continue;
    device->SetQualified(true);
    device->MarkContextStarting();
    zelcore::threads::CreateCPUBoundExecutor()->Post(boost::bind(&Device::InitializeContext, device));
  }
}

}  // namespace

// Nothing is thrown across the library boundary: a failure part-way leaves what was done so far (devices
// already registered stay registered), and the host learns the outcome from the device queries.
void Initialize(bool startDevices) {
  try {
    Library& library = TheLibrary();
    OXR::CriticalSectionLock guard(library.lock, "LM::Initialize");
    if (++library.initializeCount == 1) {
      if (AccelerationDisabled()) return;
      for (const PixelFormat& format : kGPUPixelFormats) {
        zelmediatypes::RegisterCustomPixelFormatProperties(format.code, format.properties);
      }
      if (BindCUDADriver(0, 4000) == CUDA_SUCCESS || BindCUDADriver(0, 0) == CUDA_SUCCESS) {
        EnumerateCUDADevices(library.registry);
      }
      if (IsOpenCLEnabled()) EnumerateOpenCLDevices(library.registry);
    }
    if (library.started || !startDevices) return;
    RegisterDeviceSuite();
    StartDevices(library.registry);
    library.started = true;
  } catch (...) {
  }
}

// The last Terminate takes the devices out of the registry under the library lock and shuts them down
// after letting it go: shut-down calls host code (the pools' purge callbacks, the event poll callbacks),
// which must be free to call back into the library. Polls still pending are taken out of their lists while
// each device still has its context (its work is finished by then, so their events have completed unless
// the device failed); their callbacks run, or are released unrun, once every device is shut down.
void Terminate() {
  std::vector<boost::shared_ptr<Device>> devices;
  std::vector<EventPollLeftovers> leftovers;
  try {
    bool started = false;
    {
      Library& library = TheLibrary();
      OXR::CriticalSectionLock guard(library.lock, "LM::Terminate");
      if (library.initializeCount == 0) return;  // unmatched: nothing to undo
      if (library.initializeCount != 1) {
        --library.initializeCount;
        return;
      }
      leftovers.resize(library.registry.size());
      devices.swap(library.registry);
      library.matchNames.clear();
      library.initializeCount = 0;
      started = library.started;
    }
    for (std::size_t i = 0; i < devices.size(); ++i) {
      if (started) {
        devices[i]->WaitForContext();
        devices[i]->ShutDown(true);
      }
      TakeEventPolls(*devices[i], leftovers[i]);
    }
  } catch (...) {
  }
  devices.clear();
  for (EventPollLeftovers& device : leftovers) FinishEventPolls(device);
}

unsigned int GetDeviceCount() {
  return static_cast<unsigned int>(TheLibrary().registry.size());
}

boost::shared_ptr<Device> GetDevice(unsigned int index) {
  const std::vector<boost::shared_ptr<Device>>& registry = TheLibrary().registry;
  return index < registry.size() ? registry[index] : boost::shared_ptr<Device>();
}

boost::shared_ptr<Device> GetPrimaryDevice(DeviceFramework framework) {
  for (const boost::shared_ptr<Device>& device : TheLibrary().registry) {
    if (device->GetFramework() == framework && device->IsQualified()) return device;
  }
  return boost::shared_ptr<Device>();
}

// A listed card is present that only its driver holds back.
bool RequiresUpdatedDriver() {
  for (const boost::shared_ptr<Device>& device : TheLibrary().registry) {
    if (!device->IsQualified() && !MeetsMinimumDriverRequirements(device) && MatchesNamedCardList(device))
      return true;
  }
  return false;
}

void RegisterMatchName(const zelcore::UTF16String& name) {
  Library& library = TheLibrary();
  OXR::CriticalSectionLock guard(library.lock, "LM::RegisterMatchName");
  library.matchNames.insert(name);
}

bool HasRegisteredMatchName(const zelcore::UTF16String& name) {
  Library& library = TheLibrary();
  OXR::CriticalSectionLock guard(library.lock, "LM::HasRegisteredMatchName");
  return library.matchNames.count(name) != 0;
}

}  // namespace LM
