// Small types that identify a device's compute framework and vendor.
#pragma once

#include <cstdint>

namespace LM {

enum DeviceFramework : std::uint32_t { kDeviceFramework_CUDA = 0, kDeviceFramework_OpenCL = 1 };

enum Vendor : std::uint32_t {
  kVendor_Apple = 0,
  kVendor_AMD = 1,
  kVendor_Intel = 2,
  kVendor_NVIDIA = 3,
  kVendor_Unknown = 4
};

// At most the first four devices of each framework are ever used (qualification refuses the others), so
// tables kept per device have 2 × 4 slots: framework × 4 + the device's index in its framework.
constexpr unsigned int kMaximumDevicesPerFramework = 4;

}  // namespace LM
