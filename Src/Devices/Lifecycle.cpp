#include "Lumora/Lifecycle.h"

#include <OXR/CriticalSection.h>
#include <vector>
#include <zelmediatypes/PixelFormatTable.h>

#include "Devices/Configuration.h"
#include "Lumora/PixelFormats.h"
#include "Runtime/CUDADriverTable.h"

namespace LM {

namespace {

// Process-wide state, guarded by the library lock. The registry is read without the lock: hosts query
// devices only between start-up and shut-down.
struct Library {
  OXR::CriticalSection lock;
  unsigned int initializeCount = 0;
  std::vector<boost::shared_ptr<Device>> registry;
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

}  // namespace

void Initialize(bool /*startDevices*/) {
  Library& library = TheLibrary();
  OXR::CriticalSectionLock guard(library.lock, "LM::Initialize");
  if (++library.initializeCount != 1) return;
  if (AccelerationDisabled()) return;

  for (const PixelFormat& format : kGPUPixelFormats) {
    zelmediatypes::RegisterCustomPixelFormatProperties(format.code, format.properties);
  }

  // Binds the driver table for the rest of the process: for API 4.0, or failing that the legacy API.
  IsCUDADriverAvailable();
}

void Terminate() {
  Library& library = TheLibrary();
  OXR::CriticalSectionLock guard(library.lock, "LM::Terminate");
  if (library.initializeCount == 0) return;
  if (library.initializeCount != 1) {
    --library.initializeCount;
    return;
  }
  library.registry.clear();
  library.initializeCount = 0;
}

unsigned int GetDeviceCount() { return static_cast<unsigned int>(TheLibrary().registry.size()); }

boost::shared_ptr<Device> GetDevice(unsigned int index) {
  const std::vector<boost::shared_ptr<Device>>& registry = TheLibrary().registry;
  return index < registry.size() ? registry[index] : boost::shared_ptr<Device>();
}

}  // namespace LM
