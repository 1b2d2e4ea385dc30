// Start-up and shut-down of the library and its process-wide list of devices.
#pragma once

#include <boost/shared_ptr.hpp>

#include "Lumora/Export.h"

namespace LM {

class Device;

// Starts the library for one client; calls nest and are counted. The first call binds the compute
// runtimes, registers the GPU pixel formats with the host and enumerates the devices. With startDevices,
// the first such call also registers the device suite with the host and starts the context of every
// qualified device in the background. Returns nothing: GetDeviceCount and GetPrimaryDevice tell the outcome.
LM_API void Initialize(bool startDevices);
// Matches one Initialize; the last one shuts every device down and empties the device list.
LM_API void Terminate();

// Number of registered devices.
LM_API unsigned int GetDeviceCount();
// The device at a library-wide index; empty when the index is out of range.
LM_API boost::shared_ptr<Device> GetDevice(unsigned int index);

}  // namespace LM
