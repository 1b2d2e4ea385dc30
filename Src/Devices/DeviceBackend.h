// The framework behind a Device: one object per framework (CUDABackend, OpenCLBackend) holds the
// framework's state of the device and makes every framework call that a device, its modules, its kernels
// and its textures need. Device and the operations above it stay free of framework branches and calls;
// where an operation's algorithm differs by framework it asks Device::GetFramework, never the runtime.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Lumora/CUDATextureEnumerations.h"
#include "Lumora/DeviceTypes.h"
#include "Lumora/PixelFormats.h"
#include "Lumora/Queues.h"
#include "Memory/PooledMemoryManager.h"
#include "Platform/OffscreenGLContext.h"

namespace LM {

class Device;

// The kinds of kernel parameters, as the host passes them.
enum class KernelParameterKind : std::uint8_t {
  kDevicePointer,  // a device buffer: CUdeviceptr (.u64 in PTX) or cl_mem
  kInt,            // a 32-bit signed integer (.u32 or .s32)
  kFloat,          // a 32-bit float (.f32)
  kFloat4,         // four 32-bit floats (.align 16 .b8 [16])
  kImage,          // an OpenCL image; no parameter on CUDA, whose kernels sample a texture reference instead
};

// One argument of a launch.
struct KernelArgument {
  KernelParameterKind kind;
  union {
    const void* pointer;  // kDevicePointer and kImage
    int integer;
    float real;
    float vector[4];
  };
};

// The frame-cache limit, low mark and high mark of one pool, in bytes.
struct PoolFigures {
  std::size_t frameCacheLimit;
  std::size_t lowMark;
  std::size_t highMark;
};

// The description of pitched memory that a texture reference is bound to.
struct TextureBinding {
  const void* address;  // aligned to the device's texture alignment
  std::size_t pitch;
  std::size_t width;  // in texels
  std::size_t height;
  PixelFormat format;
};

// What the framework tells of a buffer or image that a kernel is given, for the operations' checks.
struct MemoryObjectInfo {
  enum class Kind : std::uint8_t { kUnknown, kBuffer, kImage };
  Kind kind = Kind::kUnknown;  // unknown: the framework could not say (mapped host memory, for one)
  // Buffers: the bytes from the given address to the end of its allocation. Images: the width and height
  // in texels and the bytes of one texel.
  std::size_t bytes = 0;
  std::size_t width = 0, height = 0, elementBytes = 0;
};

class DeviceBackend {
 public:
  virtual ~DeviceBackend();

  // Native handles: the OpenCL platform (null for CUDA), the CUdevice value or cl_device_id, and the
  // CUcontext or cl_context (null before the first CreateContext).
  virtual void* PlatformHandle() const = 0;
  virtual void* DeviceHandle() const = 0;
  virtual void* ContextHandle() const = 0;

  // Makes the device's context, shared with the hidden OpenGL context unless `headless` (sharing is tried
  // first and may fail; then without). On CUDA a context made before is retired (kept until the backend
  // dies: blocks handed out from it may still be in use); an OpenCL device keeps the context it has, since
  // its pools allocate in it. Leaves nothing current on this thread. False when none could be made.
  virtual bool CreateContext(const OffscreenGLContext& openGL, bool headless) = 0;
  // Destroys the contexts that re-initialisations replaced and that nothing handed out from them uses any
  // more: none while `blocksOut` (pool blocks are still out with callers, which may come from any of them),
  // and none whose queue's events are still held. Nothing on OpenCL, which keeps its one context.
  virtual void ReleaseRetiredContexts(bool blocksOut) = 0;
  // Makes the context current on this thread (CUDA: pushes it): true when something was pushed, which the
  // caller undoes with ReleaseCurrent, and only then (a failed push must not pop the caller's own context).
  // Nothing is pushed without a context, nor on OpenCL, whose calls name their context.
  virtual bool MakeCurrent() = 0;
  virtual void ReleaseCurrent() = 0;
  // Waits until all work on the device, the queue's included, has finished; false when that failed.
  virtual bool Finish(CommandQueue* queue) = 0;

  // The command queue and the pools of the current context; null when they cannot be made.
  virtual boost::shared_ptr<CommandQueue> CreateCommandQueue(bool profile) = 0;
  virtual boost::shared_ptr<PooledMemoryManager> CreateMemoryManager(
      bool deviceMemory, const char* name, const PoolFigures& figures, unsigned int ordinal,
      const boost::weak_ptr<CommandQueue>& queue) = 0;

  // A module from its image (PTX text or an OpenCL program's text) in the current context; null when it
  // cannot be loaded. Unloading reports a failure and answers false; the module is then still loaded.
  virtual void* LoadModule(const std::string& name, const std::string& image) = 0;
  virtual bool UnloadModule(void* module) = 0;
  // The kernel `name` of a loaded module (CUfunction or cl_kernel), or null.
  virtual void* FindKernel(void* module, const char* name) = 0;
  // Sets a kernel's arguments in order, the framework's way, stopping at the first the framework refuses;
  // a result code.
  virtual int SetKernelArguments(void* kernel, const KernelArgument* arguments, std::size_t count) = 0;
  // Asks the driver to give a kernel's launches more shared memory than L1 cache (CUDA); a result code.
  virtual int PreferSharedMemory(void* kernel) = 0;

  // CUDA texture references: the reference `name` of a module set up with both address modes, the filter
  // mode and the array format of `format` (16-bit floats set up as 32-bit floats), or null; the device's
  // texture alignment and texture pitch alignment in bytes (0 when unknown); the binding of a reference to
  // pitched memory, as a result code.
  virtual void* PrepareTextureReference(void* module, const char* name, CUaddress_mode addressMode,
                                        CUfilter_mode filterMode, PixelFormat format) = 0;
  virtual std::uint32_t TextureAlignment() = 0;
  virtual std::uint32_t TexturePitchAlignment() = 0;
  virtual int BindTextureReference(void* reference, const TextureBinding& binding) = 0;
  // OpenCL images: a width x height image of the image format of `format`, released by the holder (which
  // work already queued on the image outlives); a result code.
  virtual int CreateImage(PixelFormat format, int width, int height, boost::shared_ptr<void>* holder) = 0;
  // What the framework knows of a buffer or image (a CUdeviceptr, possibly into the middle of an
  // allocation, or a cl_mem); kind unknown when it cannot tell.
  virtual MemoryObjectInfo DescribeMemory(const void* object) = 0;
  // Page-locks host memory that the library did not allocate, for a copy that reads it, and undoes that
  // (CUDA: cuMemHostRegister, cuMemHostUnregister; both in the current context). False when the memory
  // stays as it is: OpenCL copies read any host memory.
  virtual bool PinHostMemory(void* address, std::size_t bytes) = 0;
  virtual void UnpinHostMemory(void* address) = 0;
  // Copies `height` rows of `rowBytes` bytes between pitched device buffers on the queue; a result code.
  virtual int CopyRows(const void* source, std::size_t sourcePitch, void* destination,
                       std::size_t destinationPitch, std::size_t rowBytes, std::size_t height,
                       CommandQueue& queue) = 0;
};

// The backend of a device, for the library's own layers (devices and above).
DeviceBackend& BackendOf(const Device& device);

}  // namespace LM
