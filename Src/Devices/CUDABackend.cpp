#include "Devices/CUDABackend.h"

#include <atomic>
#include <boost/make_shared.hpp>
#include <cstdint>

#include "Devices/DeviceIdentity.h"
#include "Memory/MemoryManagers.h"
#include "Queues/CUDAQueues.h"
#include "Runtime/CUDADriverTable.h"
#include "Runtime/FailureReport.h"
#include "Runtime/PixelFormatWord.h"
#include "Runtime/ResultMapping.h"
#include "Runtime/ResultNames.h"

namespace LM {

namespace {

// Flags of the context: yield while waiting, and map pinned host memory.
constexpr unsigned int kContextFlags = CU_CTX_SCHED_YIELD | CU_CTX_MAP_HOST;
// The driver's compute capability for an emulation device.
constexpr int kEmulationCapability = 9999;
constexpr int kNameLimit = 255;

std::atomic<bool> moduleLoadFailuresSilenced{false};

// The source name that module load failures are reported under.
constexpr char kModuleManagerSource[] = "..\\..\\Src\\ModuleManager";

CUdeviceptr Address(const void* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

unsigned int AlignUp(unsigned int offset, unsigned int alignment) {
  return (offset + alignment - 1) / alignment * alignment;
}

// Copies one value to the next multiple of its alignment and advances past it.
CUresult SetValue(CUfunction kernel, unsigned int& offset, const void* value, unsigned int size,
                  unsigned int alignment) {
  offset = AlignUp(offset, alignment);
  const CUresult result = CUDA.cuParamSetv(kernel, static_cast<int>(offset), const_cast<void*>(value), size);
  offset += size;
  return result;
}

}  // namespace

int CUDATextureFormat::TexelBytes() const {
  const int channelBytes = format == CU_AD_FORMAT_UNSIGNED_INT8                                   ? 1
                           : format == CU_AD_FORMAT_UNSIGNED_INT16 || format == CU_AD_FORMAT_HALF ? 2
                                                                                                  : 4;
  return channelBytes * static_cast<int>(channels);
}

CUDATextureFormat CUDATextureFormatOf(PixelFormat format) {
  const std::uint32_t kind = word::ComponentKind(format.properties);
  CUarray_format arrayFormat = CU_AD_FORMAT_FLOAT;
  if (word::IsFloat(format.properties)) {
    if (kind == word::kKind16Bit) arrayFormat = CU_AD_FORMAT_HALF;
  } else if (kind == word::kKind8Bit) {
    arrayFormat = CU_AD_FORMAT_UNSIGNED_INT8;
  } else if (kind == word::kKind16Bit) {
    arrayFormat = CU_AD_FORMAT_UNSIGNED_INT16;
  }
  return CUDATextureFormat{arrayFormat, word::HasSubsampledLayout(format.properties) ? 1u : 4u};
}

CUDABackend::~CUDABackend() {
  for (const RetiredContext& retired : retiredContexts_) DestroyContext(retired.context);
  if (context_ != nullptr) DestroyContext(context_);
}

// Reported, and tried once more: nothing is left to destroy the context later, and a context lost here
// holds its memory for the life of the process.
void CUDABackend::DestroyContext(CUcontext context) {
  const CUresult result = CUDA.cuCtxDestroy(context);
  if (LM_CUDA_SUCCEEDED(result, "Context destruction failure: ")) return;
  static_cast<void>(LM_CUDA_SUCCEEDED(CUDA.cuCtxDestroy(context), "Context destruction failure: "));
}

void CUDABackend::ReleaseRetiredContexts(bool blocksOut) {
  if (blocksOut) return;
  for (auto retired = retiredContexts_.begin(); retired != retiredContexts_.end();) {
    if (!retired->events.expired()) {
      ++retired;
      continue;
    }
    DestroyContext(retired->context);
    retired = retiredContexts_.erase(retired);
  }
}

std::vector<CUdevice> CUDABackend::EnumerateDevices() {
  std::vector<CUdevice> devices;
  int count = 0;
  if (CUDA.cuDeviceGetCount == nullptr || CUDA.cuDeviceGetCount(&count) != CUDA_SUCCESS || count <= 0)
    return devices;
  for (int ordinal = 0; ordinal < count; ++ordinal) {
    CUdevice device = 0;
    if (CUDA.cuDeviceGet(&device, ordinal) == CUDA_SUCCESS) devices.push_back(device);
  }
  return devices;
}

bool CUDABackend::ReadIdentity(CUdevice device, CUDADeviceIdentity& identity) {
  int driverVersion = 1000;
  if (CUDA.cuDriverGetVersion != nullptr && CUDA.cuDriverGetVersion(&driverVersion) != CUDA_SUCCESS)
    return false;
  identity.driverVersion = driverVersion / 1000.0;

  int major = 0;
  int minor = 0;
  if (CUDA.cuDeviceComputeCapability(&major, &minor, device) != CUDA_SUCCESS ||
      major == kEmulationCapability || minor == kEmulationCapability) {
    return false;
  }
  identity.computeCapability = CapabilityFromVersion(major, minor);

  std::string name(kNameLimit, '\0');
  if (CUDA.cuDeviceGetName(&name[0], kNameLimit, device) != CUDA_SUCCESS) {
    static bool silenced = false;
    ReportFailure(&silenced, "result == CUDA_SUCCESS", "Unknown device name", "Device", 496);
    return false;
  }
  identity.name = name.substr(0, name.find('\0'));

  std::size_t totalMemory = 0;
  if (CUDA.cuDeviceTotalMem(&totalMemory, device) != CUDA_SUCCESS) return false;
  identity.totalMemory = totalMemory;
  return true;
}

void* CUDABackend::DeviceHandle() const {
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(device_));
}

// cuGLCtxCreate shares with the OpenGL context current on this thread: the device's hidden one.
bool CUDABackend::CreateContext(const OffscreenGLContext&, bool headless) {
  if (context_ != nullptr) {
    retiredContexts_.push_back(RetiredContext{context_, events_});
    context_ = nullptr;
    events_.reset();
  }
  CUcontext context = nullptr;
  CUresult result = CUDA_ERROR_UNKNOWN;
  // Sharing with the hidden OpenGL context is expected to fail sometimes; only the plain creation reports.
  if (!headless && CUDA.cuGLCtxCreate != nullptr) {
    result = CUDA.cuGLCtxCreate(&context, kContextFlags, device_);
  }
  if (result != CUDA_SUCCESS) result = CUDA.cuCtxCreate(&context, kContextFlags, device_);
  if (!LM_CUDA_SUCCEEDED(result, "Context creation failure: ")) return false;
  context_ = context;
  // Creation made the context current on this thread; the device makes it current when it needs it.
  CUcontext popped = nullptr;
  result = CUDA.cuCtxPopCurrent(&popped);
  static_cast<void>(LM_CUDA_SUCCEEDED(result, "Context pop failure: "));
  return true;
}

bool CUDABackend::MakeCurrent() {
  if (context_ == nullptr) return false;
  const CUresult result = CUDA.cuCtxPushCurrent(context_);
  return LM_CUDA_SUCCEEDED(result, "Context push failure: ");
}

void CUDABackend::ReleaseCurrent() {
  if (context_ == nullptr) return;
  CUcontext popped = nullptr;
  const CUresult result = CUDA.cuCtxPopCurrent(&popped);
  static_cast<void>(LM_CUDA_SUCCEEDED(result, "Context pop failure: "));
}

bool CUDABackend::Finish(CommandQueue*) {
  if (context_ == nullptr) return false;
  const CUresult result = CUDA.cuCtxSynchronize();
  return LM_CUDA_SUCCEEDED(result, "Context synchronization failure: ");
}

boost::shared_ptr<CommandQueue> CUDABackend::CreateCommandQueue(bool) {
  const auto queue = boost::make_shared<CUDACommandQueue>();
  if (!queue->Valid()) return boost::shared_ptr<CommandQueue>();
  events_ = queue->EventsInUse();
  return queue;
}

boost::shared_ptr<PooledMemoryManager> CUDABackend::CreateMemoryManager(
    bool deviceMemory, const char* name, const PoolFigures& figures, unsigned int ordinal,
    const boost::weak_ptr<CommandQueue>& queue) {
  return deviceMemory ? CreateCUDADeviceMemoryManager(name, figures.frameCacheLimit, figures.lowMark,
                                                      figures.highMark, ordinal, queue)
                      : CreateCUDAHostMemoryManager(name, figures.frameCacheLimit, figures.lowMark,
                                                    figures.highMark, ordinal, queue);
}

void* CUDABackend::LoadModule(const std::string& name, const std::string& image) {
  try {
    return LoadCUDAModule(name, image);
  } catch (...) {
    return nullptr;
  }
}

bool CUDABackend::UnloadModule(void* module) {
  if (module == nullptr) return true;
  const CUresult result = CUDA.cuModuleUnload(static_cast<CUmodule>(module));
  return LM_CUDA_SUCCEEDED(result, "Module unload failure: ");
}

void* CUDABackend::FindKernel(void* module, const char* name) {
  CUfunction function = nullptr;
  if (CUDA.cuModuleGetFunction(&function, static_cast<CUmodule>(module), name) != CUDA_SUCCESS)
    return nullptr;
  return function;
}

// Each value at the next multiple of its own alignment, then the total size. An image has no parameter on
// CUDA: the kernel samples a texture reference bound beforehand.
int CUDABackend::SetKernelArguments(void* kernel, const KernelArgument* arguments, std::size_t count) {
  const CUfunction function = static_cast<CUfunction>(kernel);
  unsigned int offset = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const KernelArgument& argument = arguments[i];
    CUresult result = CUDA_SUCCESS;
    switch (argument.kind) {
      case KernelParameterKind::kDevicePointer: {
        const CUdeviceptr pointer = Address(argument.pointer);
        result = SetValue(function, offset, &pointer, sizeof pointer, sizeof pointer);
        break;
      }
      case KernelParameterKind::kInt:
        result = SetValue(function, offset, &argument.integer, 4, 4);
        break;
      case KernelParameterKind::kFloat:
        result = SetValue(function, offset, &argument.real, 4, 4);
        break;
      case KernelParameterKind::kFloat4:
        result = SetValue(function, offset, argument.vector, 16, 16);
        break;
      case KernelParameterKind::kImage:
        break;
    }
    if (result != CUDA_SUCCESS) return MapCUDAResult(result);
  }
  return MapCUDAResult(CUDA.cuParamSetSize(function, offset));
}

int CUDABackend::PreferSharedMemory(void* kernel) {
  if (CUDA.cuFuncSetCacheConfig == nullptr) return kResultFailed;
  return MapCUDAResult(
      CUDA.cuFuncSetCacheConfig(static_cast<CUfunction>(kernel), CU_FUNC_CACHE_PREFER_SHARED));
}

void* CUDABackend::PrepareTextureReference(void* module, const char* name, CUaddress_mode addressMode,
                                           CUfilter_mode filterMode, PixelFormat format) {
  CUtexref reference = nullptr;
  if (CUDA.cuModuleGetTexRef(&reference, static_cast<CUmodule>(module), name) != CUDA_SUCCESS) return nullptr;
  // Set up as 32-bit float even for half data; binding then describes the memory as half. Kernels read
  // floats either way.
  CUDATextureFormat setUp = CUDATextureFormatOf(format);
  if (setUp.format == CU_AD_FORMAT_HALF) setUp.format = CU_AD_FORMAT_FLOAT;
  const bool prepared =
      CUDA.cuTexRefSetAddressMode(reference, 0, addressMode) == CUDA_SUCCESS &&
      CUDA.cuTexRefSetAddressMode(reference, 1, addressMode) == CUDA_SUCCESS &&
      CUDA.cuTexRefSetFilterMode(reference, filterMode) == CUDA_SUCCESS &&
      CUDA.cuTexRefSetFormat(reference, setUp.format, static_cast<int>(setUp.channels)) == CUDA_SUCCESS;
  return prepared ? reference : nullptr;
}

std::uint32_t CUDABackend::Attribute(CUdevice_attribute attribute) {
  int value = 0;
  if (CUDA.cuDeviceGetAttribute(&value, attribute, device_) != CUDA_SUCCESS || value < 0) return 0;
  return static_cast<std::uint32_t>(value);
}

std::uint32_t CUDABackend::TextureAlignment() {
  return Attribute(CU_DEVICE_ATTRIBUTE_TEXTURE_ALIGNMENT);
}

std::uint32_t CUDABackend::TexturePitchAlignment() {
  return Attribute(CU_DEVICE_ATTRIBUTE_TEXTURE_PITCH_ALIGNMENT);
}

int CUDABackend::BindTextureReference(void* reference, const TextureBinding& binding) {
  const CUDATextureFormat bound = CUDATextureFormatOf(binding.format);
  CUDA_ARRAY_DESCRIPTOR descriptor = {};
  descriptor.Width = binding.width;
  descriptor.Height = binding.height;
  descriptor.Format = bound.format;
  descriptor.NumChannels = bound.channels;
  return MapCUDAResult(CUDA.cuTexRefSetAddress2D(static_cast<CUtexref>(reference), &descriptor,
                                                 Address(binding.address), binding.pitch));
}

int CUDABackend::CreateImage(PixelFormat, int, int, boost::shared_ptr<void>*) {
  return kResultFailed;
}

bool CUDABackend::PinHostMemory(void* address, std::size_t bytes) {
  if (CUDA.cuMemHostRegister == nullptr || address == nullptr || bytes == 0) return false;
  return LM_CUDA_SUCCEEDED(CUDA.cuMemHostRegister(address, bytes, 0), "Host memory registration failure: ");
}

void CUDABackend::UnpinHostMemory(void* address) {
  if (CUDA.cuMemHostUnregister == nullptr || address == nullptr) return;
  static_cast<void>(
      LM_CUDA_SUCCEEDED(CUDA.cuMemHostUnregister(address), "Host memory unregistration failure: "));
}

// The driver knows the allocation that holds any address of it; an address it does not know (host memory
// mapped for the device, or a bad one) is left to the caller.
MemoryObjectInfo CUDABackend::DescribeMemory(const void* object) {
  MemoryObjectInfo info;
  CUdeviceptr base = 0;
  std::size_t size = 0;
  const CUdeviceptr address = Address(object);
  if (CUDA.cuMemGetAddressRange == nullptr ||
      CUDA.cuMemGetAddressRange(&base, &size, address) != CUDA_SUCCESS || address < base ||
      address - base > size) {
    return info;
  }
  info.kind = MemoryObjectInfo::Kind::kBuffer;
  info.bytes = static_cast<std::size_t>(base + size - address);
  return info;
}

int CUDABackend::CopyRows(const void* source, std::size_t sourcePitch, void* destination,
                          std::size_t destinationPitch, std::size_t rowBytes, std::size_t height,
                          CommandQueue& queue) {
  CUDA_MEMCPY2D copy = {};
  copy.srcMemoryType = CU_MEMORYTYPE_DEVICE;
  copy.srcDevice = Address(source);
  copy.srcPitch = sourcePitch;
  copy.dstMemoryType = CU_MEMORYTYPE_DEVICE;
  copy.dstDevice = Address(destination);
  copy.dstPitch = destinationPitch;
  copy.WidthInBytes = rowBytes;
  copy.Height = height;
  return MapCUDAResult(CUDA.cuMemcpy2DAsync(&copy, static_cast<CUstream>(queue.GetNativeQueue())));
}

CUmodule LoadCUDAModule(const std::string& name, const std::string& image) {
  // The highest optimisation level, stated rather than left to the driver's default, so every driver
  // compiles the PTX kernels the same way. Nothing is written back for this option, so one pair of
  // arrays serves every thread; static storage keeps them readable after the call as well.
  static CUjit_option options[] = {kModuleJITOption};
  static void* values[] = {reinterpret_cast<void*>(static_cast<std::uintptr_t>(kModuleJITOptimizationLevel))};

  CUmodule module = nullptr;
  // PTX is text: the driver reads up to its terminating NUL, which c_str() guarantees. A driver older than
  // 2.1 has no cuModuleLoadDataEx: it loads with its default options.
  const CUresult result = CUDA.cuModuleLoadDataEx != nullptr
                              ? CUDA.cuModuleLoadDataEx(&module, image.c_str(), 1, options, values)
                              : CUDA.cuModuleLoadData(&module, image.c_str());
  if (result == CUDA_SUCCESS) return module;
  if (!moduleLoadFailuresSilenced.load()) {
    ReportFailure(LM_SITE_SILENCE_FLAG(), "result == CUDA_SUCCESS",
                  "Failed to load module: " + name + ", error: " + CUDAResultName(result),
                  kModuleManagerSource, __LINE__, "LM::LoadCUDAModule");
  }
  return nullptr;
}

void SetModuleLoadFailuresSilenced(bool silenced) {
  moduleLoadFailuresSilenced = silenced;
}

}  // namespace LM
