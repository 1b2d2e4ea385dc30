// An OpenCL device behind a Device: its platform, device and context, program building, kernel lookup and
// argument setting, images, and the queue and pools of the context. Every call goes through the lazily
// bound entry points (Runtime/OpenCLEntryPoints.h).
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Devices/DeviceBackend.h"
#include "Runtime/OpenCLEntryPoints.h"

namespace LM {

// What the runtime reports of one device.
struct OpenCLDeviceIdentity {
  std::string name;
  Vendor vendor = kVendor_Unknown;
  double computeCapability = -1.0;  // the device's OpenCL version
  double driverVersion = -1.0;
  std::uint64_t totalMemory = 0;
};

class OpenCLBackend : public DeviceBackend {
 public:
  OpenCLBackend(cl_platform_id platform, cl_device_id device) : platform_(platform), device_(device) {}
  ~OpenCLBackend() override;

  // The devices of every platform, platform by platform: GPUs, and CPU devices too when asked.
  static std::vector<std::pair<cl_platform_id, cl_device_id>> EnumerateDevices(bool includeCPUDevices);
  // False unless the device is available, supports images (the operations sample textures as images), and
  // its name, vendor, versions and memory can be read.
  static bool ReadIdentity(cl_device_id device, OpenCLDeviceIdentity& identity);
  // The program of an OpenCL text built for `device` in `context` with the library's build options, or
  // null (a text that fails to compile or build gives null without a message).
  static cl_program BuildProgram(cl_context context, cl_device_id device, const std::string& text);

  void* PlatformHandle() const override { return platform_; }
  void* DeviceHandle() const override { return device_; }
  void* ContextHandle() const override { return context_; }
  bool CreateContext(const OffscreenGLContext& openGL, bool headless) override;
  void ReleaseRetiredContexts(bool) override {}
  bool MakeCurrent() override { return false; }
  void ReleaseCurrent() override {}
  bool Finish(CommandQueue* queue) override;
  boost::shared_ptr<CommandQueue> CreateCommandQueue(bool profile) override;
  boost::shared_ptr<PooledMemoryManager> CreateMemoryManager(
      bool deviceMemory, const char* name, const PoolFigures& figures, unsigned int ordinal,
      const boost::weak_ptr<CommandQueue>& queue) override;
  void* LoadModule(const std::string& name, const std::string& image) override;
  bool UnloadModule(void* module) override;
  void* FindKernel(void* module, const char* name) override;
  int SetKernelArguments(void* kernel, const KernelArgument* arguments, std::size_t count) override;
  int PreferSharedMemory(void* kernel) override;
  void* PrepareTextureReference(void* module, const char* name, CUaddress_mode addressMode,
                                CUfilter_mode filterMode, PixelFormat format) override;
  std::uint32_t TextureAlignment() override { return 0; }
  std::uint32_t TexturePitchAlignment() override { return 0; }
  int BindTextureReference(void* reference, const TextureBinding& binding) override;
  int CreateImage(PixelFormat format, int width, int height, boost::shared_ptr<void>* holder) override;
  bool PinHostMemory(void* address, std::size_t bytes) override;
  void UnpinHostMemory(void* address) override;
  MemoryObjectInfo DescribeMemory(const void* object) override;
  int CopyRows(const void* source, std::size_t sourcePitch, void* destination, std::size_t destinationPitch,
               std::size_t rowBytes, std::size_t height, CommandQueue& queue) override;

 private:
  cl_platform_id platform_;
  cl_device_id device_;
  cl_context context_ = nullptr;
  // The kernels handed out, by program and name: one per name, released with their program. A kernel holds
  // its program (and the program its context), so kernels left behind would keep every program of every
  // re-initialisation alive.
  std::map<std::pair<cl_program, std::string>, cl_kernel> kernels_;
};

}  // namespace LM
