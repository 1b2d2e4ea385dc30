// The two ways a Device comes to be: from a CUDA driver ordinal, and from an OpenCL platform and device.
#include <cctype>
#include <vector>

#include "Devices/DeviceIdentity.h"
#include "Devices/DeviceImpl.h"
#include "Lumora/Device.h"
#include "Runtime/CUDADriverTable.h"
#include "Runtime/FailureReport.h"

namespace LM {

namespace {

// The driver's compute capability for an emulation device.
constexpr int kEmulationCapability = 9999;
constexpr int kNameLimit = 255;

// An OpenCL text property, or empty when it cannot be read.
bool ReadOpenCLText(cl_device_id device, cl_device_info what, std::string& text) {
  std::size_t size = 0;
  if (clGetDeviceInfo(device, what, 0, nullptr, &size) != CL_SUCCESS || size == 0) return false;
  std::vector<char> buffer(size + 1, '\0');
  if (clGetDeviceInfo(device, what, size, buffer.data(), nullptr) != CL_SUCCESS) return false;
  text.assign(buffer.data());
  return true;
}

template <class T>
bool ReadOpenCLValue(cl_device_id device, cl_device_info what, T& value) {
  return clGetDeviceInfo(device, what, sizeof value, &value, nullptr) == CL_SUCCESS;
}

}  // namespace

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
    if (!std::isdigit(static_cast<unsigned char>(text[i])) || (i > 0 && std::isdigit(static_cast<unsigned char>(text[i - 1])))) {
      continue;
    }
    std::size_t end = i;
    int major = 0;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) && major < 100000) {
      major = major * 10 + (text[end++] - '0');
    }
    if (end + 1 >= text.size() || text[end] != '.' || !std::isdigit(static_cast<unsigned char>(text[end + 1]))) continue;
    ++end;
    int minor = 0;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) && minor < 100000) {
      minor = minor * 10 + (text[end++] - '0');
    }
    return CapabilityFromVersion(major, minor);
  }
  return -1.0;
}

boost::shared_ptr<Device> Device::Create(unsigned int frameworkIndex, unsigned int registryIndex, int cudaDevice) {
  boost::shared_ptr<Device> device(new Device(kDeviceFramework_CUDA, frameworkIndex, registryIndex));
  device->impl_->cudaDevice = cudaDevice;

  int driverVersion = 1000;
  if (CUDA.cuDriverGetVersion != nullptr && CUDA.cuDriverGetVersion(&driverVersion) != CUDA_SUCCESS) {
    return boost::shared_ptr<Device>();
  }
  device->driverVersion_ = driverVersion / 1000.0;

  int major = 0;
  int minor = 0;
  if (CUDA.cuDeviceComputeCapability(&major, &minor, cudaDevice) != CUDA_SUCCESS || major == kEmulationCapability ||
      minor == kEmulationCapability) {
    return boost::shared_ptr<Device>();
  }
  device->computeCapability_ = CapabilityFromVersion(major, minor);

  std::string name(kNameLimit, '\0');
  if (CUDA.cuDeviceGetName(&name[0], kNameLimit, cudaDevice) != CUDA_SUCCESS) {
    static bool silenced = false;
    ReportFailure(&silenced, "result == CUDA_SUCCESS", "Unknown device name", "Device", 496);
    return boost::shared_ptr<Device>();
  }
  device->name_ = name.substr(0, name.find('\0'));

  std::size_t totalMemory = 0;
  if (CUDA.cuDeviceTotalMem(&totalMemory, cudaDevice) != CUDA_SUCCESS) return boost::shared_ptr<Device>();
  device->totalMemory_ = totalMemory;
  return device;
}

// An OpenCL device is accepted when it is available, supports images (the operations sample textures as
// images), and its name, vendor, versions and memory can be read. Its compute capability is the OpenCL
// version of the device ("OpenCL 3.0 ..." gives 3.0), its driver version the number at the start of the
// driver's version text.
boost::shared_ptr<Device> Device::Create(unsigned int frameworkIndex, unsigned int registryIndex, void* platform,
                                         void* clDevice) {
  cl_device_id id = static_cast<cl_device_id>(clDevice);
  boost::shared_ptr<Device> device(new Device(kDeviceFramework_OpenCL, frameworkIndex, registryIndex));
  device->impl_->platform = static_cast<cl_platform_id>(platform);
  device->impl_->device = id;

  cl_bool available = CL_FALSE;
  cl_bool images = CL_FALSE;
  cl_device_type type = 0;
  cl_ulong memory = 0;
  std::string name, vendor, deviceVersion, driverVersion;
  if (!ReadOpenCLValue(id, CL_DEVICE_AVAILABLE, available) || available != CL_TRUE ||
      !ReadOpenCLValue(id, CL_DEVICE_IMAGE_SUPPORT, images) || images != CL_TRUE ||
      !ReadOpenCLValue(id, CL_DEVICE_TYPE, type) || !ReadOpenCLValue(id, CL_DEVICE_GLOBAL_MEM_SIZE, memory) ||
      !ReadOpenCLText(id, CL_DEVICE_NAME, name) || !ReadOpenCLText(id, CL_DEVICE_VENDOR, vendor) ||
      !ReadOpenCLText(id, CL_DEVICE_VERSION, deviceVersion) || !ReadOpenCLText(id, CL_DRIVER_VERSION, driverVersion)) {
    return boost::shared_ptr<Device>();
  }
  device->name_ = name;
  device->vendor_ = ClassifyVendor(vendor);
  device->totalMemory_ = memory;
  device->computeCapability_ = ParseVersionText(deviceVersion);
  device->driverVersion_ = ParseVersionText(driverVersion);
  return device;
}

}  // namespace LM
