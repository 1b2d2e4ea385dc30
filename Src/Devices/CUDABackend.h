// The CUDA driver behind a Device: its context (and those it replaced), module loading, kernel lookup and
// argument marshalling with the driver's legacy launch interface, texture references, and the queue and
// pools of the context. Every call goes through the bound driver table (LM::CUDA).
#pragma once

#include <string>
#include <vector>

#include "Devices/DeviceBackend.h"
#include "Runtime/CUDADriverAPI.h"

namespace LM {

// What the driver reports of one device.
struct CUDADeviceIdentity {
  std::string name;
  double computeCapability = -1.0;
  double driverVersion = -1.0;  // the driver's version / 1000
  std::uint64_t totalMemory = 0;
};

class CUDABackend : public DeviceBackend {
 public:
  explicit CUDABackend(CUdevice device) : device_(device) {}
  ~CUDABackend() override;

  // The driver's devices, in ordinal order; an ordinal whose device cannot be had is left out.
  static std::vector<CUdevice> EnumerateDevices();
  // False when the identity cannot be read or the device is an emulation device.
  static bool ReadIdentity(CUdevice device, CUDADeviceIdentity& identity);

  void* PlatformHandle() const override { return nullptr; }
  void* DeviceHandle() const override;
  void* ContextHandle() const override { return context_; }
  bool CreateContext(const OffscreenGLContext& openGL, bool headless) override;
  void ReleaseRetiredContexts(bool blocksOut) override;
  bool MakeCurrent() override;
  void ReleaseCurrent() override;
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
  std::uint32_t TextureAlignment() override;
  std::uint32_t TexturePitchAlignment() override;
  int BindTextureReference(void* reference, const TextureBinding& binding) override;
  int CreateImage(PixelFormat format, int width, int height, boost::shared_ptr<void>* holder) override;
  bool PinHostMemory(void* address, std::size_t bytes) override;
  void UnpinHostMemory(void* address) override;
  MemoryObjectInfo DescribeMemory(const void* object) override;
  int CopyRows(const void* source, std::size_t sourcePitch, void* destination, std::size_t destinationPitch,
               std::size_t rowBytes, std::size_t height, CommandQueue& queue) override;

 private:
  std::uint32_t Attribute(CUdevice_attribute attribute);

  // A context replaced by a re-initialisation, and what may still use it: its queue's events.
  struct RetiredContext {
    CUcontext context;
    boost::weak_ptr<void> events;
  };
  void DestroyContext(CUcontext context);

  CUdevice device_;
  CUcontext context_ = nullptr;
  boost::weak_ptr<void> events_;  // those of the current context's queue
  // Destroyed once nothing uses them (ReleaseRetiredContexts), the rest with the backend.
  std::vector<RetiredContext> retiredContexts_;
};

// The just-in-time option passed with every CUDA module, and its value: the highest optimisation level.
constexpr CUjit_option kModuleJITOption = CU_JIT_OPTIMIZATION_LEVEL;
constexpr unsigned int kModuleJITOptimizationLevel = 4;

// Loads a CUDA image (PTX text or cubin) into the current context with cuModuleLoadDataEx and the option
// above. On failure reports "Failed to load module: <name>, error: <result name>" (unless module load
// failures are silenced) and returns null.
CUmodule LoadCUDAModule(const std::string& name, const std::string& image);

// Silences (or restores) the report of LoadCUDAModule failures, library-wide. Off at start.
void SetModuleLoadFailuresSilenced(bool silenced);

// The CUDA array format and channel count of a pixel format's texture: with the float bit, component kind 3
// is half and any other kind float; without it, kind 0 is 8-bit and kind 3 16-bit unsigned, any other kind
// float. Packed and planar layouts are read one channel at a time, the others as four.
struct CUDATextureFormat {
  CUarray_format format;
  unsigned int channels;
  int TexelBytes() const;
};
CUDATextureFormat CUDATextureFormatOf(PixelFormat format);

}  // namespace LM
