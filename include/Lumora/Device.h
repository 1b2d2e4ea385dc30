// Device: the handle through which everything reaches one GPU — its identity, compute context, command
// queue, two memory pools, loaded kernel modules, hidden OpenGL context, worker executor and
// exclusive-access lock. Devices are made by start-up (LM::Initialize) and handed out as
// boost::shared_ptr<Device>.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

#include "Lumora/DeviceTypes.h"
#include "Lumora/Export.h"
#include "Lumora/MemoryManager.h"
#include "Lumora/Queues.h"

namespace zelcore {
namespace threads {
class AsyncExecutor;
}
}  // namespace zelcore

namespace LM {

struct DeviceImpl;
class DeviceBackend;

class LM_API Device {
 public:
  // A CUDA device for the driver's device `cudaDevice`; empty when its identity cannot be read or it is an
  // emulation device.
  static boost::shared_ptr<Device> Create(unsigned int frameworkIndex, unsigned int registryIndex,
                                          int cudaDevice);
  // An OpenCL device (cl_platform_id, cl_device_id); empty when the device is unavailable, has no image
  // support, or its identity cannot be read.
  static boost::shared_ptr<Device> Create(unsigned int frameworkIndex, unsigned int registryIndex,
                                          void* platform, void* device);
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // Identity.
  DeviceFramework GetFramework() const { return framework_; }
  Vendor GetVendor() const { return vendor_; }
  unsigned int GetFrameworkIndex() const { return frameworkIndex_; }
  unsigned int GetRegistryIndex() const { return registryIndex_; }
  const std::string& GetName() const { return name_; }
  // Major + minor as a decimal fraction (2.1); -1 until known.
  double GetComputeCapability() const { return computeCapability_; }
  // The driver's version / 1000 (4.0) for CUDA; the OpenCL version for OpenCL; -1 until known.
  double GetDriverVersion() const { return driverVersion_; }
  std::uint64_t GetTotalMemory() const { return totalMemory_; }
  // Set by start-up when the device passed the qualification tests.
  bool IsQualified() const { return qualified_; }
  void SetQualified(bool qualified) { qualified_ = qualified; }
  bool ProfilesKernels() const { return profileKernels_; }
  // Whether the operations check their extents against the sizes of the buffers and images they are
  // given (the switch "LM.CheckBufferBounds"), read with the other switches.
  bool ChecksBufferBounds() const { return checkBufferBounds_; }
  // How many times the context was (re)initialised.
  std::uint64_t GetContextGeneration() const { return contextGeneration_; }
  // Identifies the current context across all devices and re-initialisations (0: none yet); kernel
  // handles cached for one identity are not used for another.
  std::uint64_t GetContextIdentity() const;

  // Native handles: OpenCL platform (null for CUDA), CUdevice value or cl_device_id, CUcontext or
  // cl_context, and the hidden OpenGL context and its drawable.
  void* GetPlatformHandle() const;
  void* GetDeviceHandle() const;
  void* GetContextHandle() const;
  void* GetOffscreenOpenGLContextHandle() const;
  void* GetOffscreenOpenGLDeviceHandle() const;

  boost::shared_ptr<CommandQueue> GetCommandQueue() const { return commandQueue_; }
  boost::shared_ptr<MemoryManager> GetDeviceMemory() const { return deviceMemory_; }
  boost::shared_ptr<MemoryManager> GetHostMemory() const { return hostMemory_; }

  // The device's single-thread worker, "GPU Executor NN" (NN = frameworkIndex + 1, two digits), made on
  // first use.
  boost::shared_ptr<zelcore::threads::AsyncExecutor> GetExecutor();
  void SetExecutor(const boost::shared_ptr<zelcore::threads::AsyncExecutor>& executor);

  // Recursive per thread; a second thread blocks until the outermost release. On CUDA devices each
  // acquisition pushes the device's context on the calling thread and each release pops it.
  void AcquireExclusiveAccess();
  void ReleaseExclusiveAccess();

  // Re-reads the kernel-profiling switches; a change re-initialises a device whose context was made.
  void ResetDebugFlags();
  // The module of a kernel source ("..\\..\\Src\\ImageProcessing\\Fills" or "Fills.cpp" give "Fills"),
  // loaded on first use into this device's context; null when it cannot be loaded.
  void* FindModule(std::string name);
  // Makes the context, queue and pools; start-up runs it on a worker thread for each qualified device.
  void InitializeContext();
  // Blocks while a context start that start-up posted has not finished; true when the device then has a
  // context.
  bool WaitForContext();
  // Tells the device that a context start was posted for it (start-up does this before posting).
  void MarkContextStarting();
  // Finishes all work, purges both pools, unloads the modules; with fullRelease also drops the pools.
  void ShutDown(bool fullRelease);

 private:
  friend DeviceBackend& BackendOf(const Device& device);
  Device(DeviceFramework framework, unsigned int frameworkIndex, unsigned int registryIndex,
         DeviceImpl* impl);
  void RefreshKernelRecords();
  void ReleaseAccess(bool refreshRecords);
  void* LoadModuleNamed(std::string name);

  bool qualified_ = false;
  unsigned int frameworkIndex_;
  unsigned int registryIndex_;
  DeviceFramework framework_;
  Vendor vendor_ = kVendor_NVIDIA;
  // A second classification word, kept for hosts that sort devices into classes; Lumora does not read it.
  std::uint32_t deviceClass_ = 3;
  std::uint64_t contextGeneration_ = 0;
  std::string name_;
  double computeCapability_ = -1.0;
  double driverVersion_ = -1.0;
  std::uint64_t totalMemory_ = 0;
  bool profileKernels_ = false;
  bool checkBufferBounds_ = true;
  boost::shared_ptr<CommandQueue> commandQueue_;
  boost::shared_ptr<MemoryManager> deviceMemory_;
  boost::shared_ptr<MemoryManager> hostMemory_;
  boost::shared_ptr<DeviceImpl> impl_;
};

// Holds a device's exclusive access for as long as it lives: acquired on construction, released on
// destruction, however the scope is left.
class ExclusiveAccess {
 public:
  explicit ExclusiveAccess(Device& device) : device_(device) { device_.AcquireExclusiveAccess(); }
  ~ExclusiveAccess() { device_.ReleaseExclusiveAccess(); }
  ExclusiveAccess(const ExclusiveAccess&) = delete;
  ExclusiveAccess& operator=(const ExclusiveAccess&) = delete;

 private:
  Device& device_;
};

}  // namespace LM
