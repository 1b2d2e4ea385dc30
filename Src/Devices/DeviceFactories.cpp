// The two ways a Device comes to be, from a CUDA device and from an OpenCL platform and device, and how its
// identity is read from what the runtimes report.
#include <cctype>
#include <memory>

#include "Devices/CUDABackend.h"
#include "Devices/DeviceIdentity.h"
#include "Devices/DeviceImpl.h"
#include "Devices/OpenCLBackend.h"
#include "Lumora/Device.h"

namespace LM {

Vendor ClassifyVendor(const std::string& vendor) {
  if (vendor.find("Apple") != std::string::npos) return kVendor_Apple;
  if (vendor.find("AMD") != std::string::npos) return kVendor_AMD;
  if (vendor.find("Advanced Micro Devices") != std::string::npos) return kVendor_AMD;
  if (vendor.find("Intel") != std::string::npos) return kVendor_Intel;
  if (vendor.find("NVIDIA") != std::string::npos) return kVendor_NVIDIA;
  return kVendor_Unknown;
}

double CapabilityFromVersion(int major, int minor) {
  double fraction = minor;
  while (fraction >= 1.0) fraction /= 10.0;
  return major + fraction;
}

double ParseVersionText(const std::string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!std::isdigit(static_cast<unsigned char>(text[i])) ||
        (i > 0 && std::isdigit(static_cast<unsigned char>(text[i - 1])))) {
      continue;
    }
    std::size_t end = i;
    int major = 0;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) && major < 100000) {
      major = major * 10 + (text[end++] - '0');
    }
    if (end + 1 >= text.size() || text[end] != '.' ||
        !std::isdigit(static_cast<unsigned char>(text[end + 1])))
      continue;
    ++end;
    int minor = 0;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) && minor < 100000) {
      minor = minor * 10 + (text[end++] - '0');
    }
    return CapabilityFromVersion(major, minor);
  }
  return -1.0;
}

// Both factories are exported: nothing they meet (an allocation failing, say) leaves them; they give an
// empty pointer instead.
boost::shared_ptr<Device> Device::Create(unsigned int frameworkIndex, unsigned int registryIndex,
                                         int cudaDevice) try {
  CUDADeviceIdentity identity;
  if (!CUDABackend::ReadIdentity(cudaDevice, identity)) return boost::shared_ptr<Device>();
  boost::shared_ptr<Device> device(new Device(kDeviceFramework_CUDA, frameworkIndex, registryIndex,
                                              new DeviceImpl(std::make_unique<CUDABackend>(cudaDevice))));
  device->name_ = identity.name;
  device->computeCapability_ = identity.computeCapability;
  device->driverVersion_ = identity.driverVersion;
  device->totalMemory_ = identity.totalMemory;
  return device;
} catch (...) {
  return boost::shared_ptr<Device>();
}

// Its compute capability is the OpenCL version of the device ("OpenCL 3.0 ..." gives 3.0), its driver version
// the number at the start of the driver's version text.
boost::shared_ptr<Device> Device::Create(unsigned int frameworkIndex, unsigned int registryIndex,
                                         void* platform, void* clDevice) try {
  const cl_device_id id = static_cast<cl_device_id>(clDevice);
  OpenCLDeviceIdentity identity;
  if (!OpenCLBackend::ReadIdentity(id, identity)) return boost::shared_ptr<Device>();
  boost::shared_ptr<Device> device(
      new Device(kDeviceFramework_OpenCL, frameworkIndex, registryIndex,
                 new DeviceImpl(std::make_unique<OpenCLBackend>(static_cast<cl_platform_id>(platform), id))));
  device->name_ = identity.name;
  device->vendor_ = identity.vendor;
  device->totalMemory_ = identity.totalMemory;
  device->computeCapability_ = identity.computeCapability;
  device->driverVersion_ = identity.driverVersion;
  return device;
} catch (...) {
  return boost::shared_ptr<Device>();
}

}  // namespace LM
