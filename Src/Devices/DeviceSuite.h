// Registers the device suite (Lumora/DeviceSuite.h) with the host.
#pragma once

#include "Lumora/DeviceSuite.h"

namespace LM {

// The suite's table, as registered.
const LM_DeviceSuite& DeviceSuiteTable();
// TQ::RegisterSuite with the suite's name, version and table; the host's answer is not needed.
void RegisterDeviceSuite();

}  // namespace LM
