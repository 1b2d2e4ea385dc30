// Start-up and shut-down of the library and its process-wide list of devices.
#pragma once

#include <zelcore/Strings.h>

#include <boost/shared_ptr.hpp>

#include "Lumora/DeviceTypes.h"
#include "Lumora/Export.h"

namespace LM {

class Device;

// Starts the library for one client; calls nest and are counted. The first call binds the compute
// runtimes, registers the GPU pixel formats with the host and enumerates the devices (CUDA first, then
// OpenCL when "LM.EnableOpenCL" is set). The first call with startDevices also registers the device suite
// with the host and starts the context of every qualified device in the background (once per process).
// Returns nothing: GetDeviceCount, GetPrimaryDevice and RequiresUpdatedDriver tell the outcome.
LM_API void Initialize(bool startDevices);
// Matches one Initialize; the last one shuts every device down (finishes its work, purges and drops its
// pools, unloads its modules) and empties the device list.
LM_API void Terminate();

// Number of registered devices.
LM_API unsigned int GetDeviceCount();
// The device at a library-wide index; empty when the index is out of range.
LM_API boost::shared_ptr<Device> GetDevice(unsigned int index);
// The first qualified device of the framework, in discovery order; empty when there is none.
LM_API boost::shared_ptr<Device> GetPrimaryDevice(DeviceFramework framework);
// True when a card of the card list is present that does not qualify only because of its driver.
LM_API bool RequiresUpdatedDriver();

// A set of names the host registers and asks about later; Lumora itself does not consult it.
LM_API void RegisterMatchName(const zelcore::UTF16String& name);
LM_API bool HasRegisteredMatchName(const zelcore::UTF16String& name);

}  // namespace LM
