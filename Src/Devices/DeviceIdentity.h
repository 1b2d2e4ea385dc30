// How a device's identity is read from what the runtimes report.
#pragma once

#include <string>

#include "Lumora/DeviceTypes.h"

namespace LM {

// The vendor named by an OpenCL vendor string: "Apple" first (an Apple-branded driver may name another
// vendor too), then "AMD", "Advanced Micro Devices", "Intel", "NVIDIA"; case-sensitive substrings.
Vendor ClassifyVendor(const std::string& vendor);

// major + minor as a decimal fraction: the minor number divided by 10 until it is below 1 (2, 1 gives 2.1;
// 3, 10 gives 3.1; 2, 0 gives 2.0).
double CapabilityFromVersion(int major, int minor);

// The first "<major>.<minor>" in a runtime's version text, as CapabilityFromVersion gives it:
// "OpenCL 3.0 PoCL HSTR: ..." gives 3.0, "3.1+debian" gives 3.1, "535.104.05" gives 535.104 (the minor
// read as a number: 104 becomes 0.104). -1 when the text holds no such pair.
double ParseVersionText(const std::string& text);

}  // namespace LM
