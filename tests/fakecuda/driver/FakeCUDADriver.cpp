// The fake driver's state and the behaviour of the entry points it models. It refuses what the real driver
// refuses where a host/kernel mismatch would otherwise pass unseen: it knows only the kernels and textures
// that a loaded PTX module declares, checks parameter sizes and alignment against the kernel's parameter
// list, refuses a module of a newer PTX ISA version than the driver's, a launch without a block shape, a
// texture bound at an address or pitch that the device's alignments do not allow, and any use of a kernel
// or texture of a module that was unloaded. It counts the contexts, modules, streams and events that are
// alive, and the contexts current on every thread, so tests can see what was left behind.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "FakeCUDA.h"
#include "FakeCUDAControl.h"
#include "PtxText.h"

#define FAKECUDA_API extern "C" __attribute__((visibility("default")))

namespace fakecuda {
namespace {

struct Device {
  std::string name;
  int major;
  int minor;
  unsigned long long totalMemory;
  std::map<int, int> attributes;
};

struct Failure {
  CUresult result;
  int skip;
  int count;  // kFakeCUDAFailForever: every call after the skipped ones
};

// Fails one call by its position among all calls made since it was set, whatever the entry point.
struct FailureAt {
  bool armed = false;
  unsigned long long remaining = 0;  // calls to let through before the failing one
  CUresult result = CUDA_SUCCESS;
};

struct Call {
  std::string name;
  std::vector<std::uint64_t> args;
};

struct Module;

struct Function {
  const Module* module;  // the module that declares it
  std::string name;
  unsigned parameterBytes = 0;  // what cuParamSetSize must be given
  // For each byte of the parameters, whether a value may start there: inside a parameter, at a multiple of
  // its alignment (parameters sit at multiples of their own alignment).
  std::vector<bool> settableAt;
  unsigned blockX = 0, blockY = 0, blockZ = 0;  // 0 until cuFuncSetBlockShape
  unsigned paramSize = 0;
  unsigned char params[sizeof(FakeCUDALaunch::params)] = {};
};

struct Texture {
  const Module* module;
  CUdevice device;     // whose alignments a binding must meet
  bool bound = false;  // once bound, its format can no longer be set
  std::string name;
};

// One cuTexRefSetAddress2D: its descriptor, address and pitch.
struct TextureBinding {
  CUDA_ARRAY_DESCRIPTOR descriptor = {};
  CUdeviceptr address = 0;
  std::size_t pitch = 0;
};

struct Module {
  // Cleared by cuModuleUnload; the module's memory is kept, so that a stale handle is refused rather than
  // read after it was freed.
  bool loaded = true;
  std::map<std::string, std::unique_ptr<Function>, std::less<>> functions;
  std::map<std::string, std::unique_ptr<Texture>, std::less<>> textures;
};

struct Event {
  bool complete;
  CUcontext context;  // current at creation; destroyed with it
};

constexpr std::size_t kAlignment = 256;

struct State {
  std::recursive_mutex mutex;
  int driverVersion = 12000;
  std::vector<Device> devices;
  std::map<std::string, Failure, std::less<>> failures;
  FailureAt failureAt;
  unsigned long long callsMade = 0;  // every call, whether recorded or not
  std::vector<Call> calls;
  std::map<std::string, unsigned long long> counts;
  std::map<std::uintptr_t, std::size_t> deviceAllocations;
  std::map<void*, std::size_t> hostAllocations;
  unsigned long long memoryLimit = ~0ull;
  unsigned long long deviceBytes = 0;
  std::vector<FakeCUDALaunch> launches;
  // Off: calls and launches are not logged (and the fake allocates nothing per call), for benchmarks.
  bool recording = true;
  void UpdateIdle() { idle = !recording && failures.empty() && !failureAt.armed; }
  bool eventsComplete = true;
  std::map<CUcontext, CUdevice> contextDevices;  // the live contexts
  std::map<CUstream, CUcontext> streams;         // the live streams, with the context current at creation
  int currentDepth = 0;                          // contexts current, summed over all threads
  std::map<CUevent, std::unique_ptr<Event>> events;
  std::vector<std::unique_ptr<Module>> modules;
  std::uintptr_t nextHandle = 0x1000;
  // The last binding of any texture (under ""), and the last of each texture name.
  std::map<std::string, TextureBinding> textureBindings;

  State() { Reset(); }

  void Reset() {
    driverVersion = 12000;
    devices.assign(1, Device{"Lumora Fake GPU", 7, 5, 8ull << 30, {}});
    failures.clear();
    failureAt = FailureAt();
    callsMade = 0;
    calls.clear();
    counts.clear();
    for (auto& allocation : deviceAllocations) std::free(reinterpret_cast<void*>(allocation.first));
    for (auto& allocation : hostAllocations) std::free(allocation.first);
    deviceAllocations.clear();
    hostAllocations.clear();
    memoryLimit = ~0ull;
    deviceBytes = 0;
    launches.clear();
    recording = true;
    idle = false;
    eventsComplete = true;
    contextDevices.clear();
    streams.clear();
    events.clear();
    modules.clear();
    textureBindings.clear();
  }

  template <class Handle>
  Handle NewHandle() {
    nextHandle += 0x10;
    return reinterpret_cast<Handle>(nextHandle);
  }
};

State& TheState() {
  static State* const state = new State;  // lives as long as the process: handles may be used at exit
  return *state;
}

using Lock = std::lock_guard<std::recursive_mutex>;

// The contexts current on this thread, innermost last. Initial-exec TLS: LeakSanitizer (GCC 12) crashes
// scanning the lazily allocated TLS of a library that is loaded with dlopen, as the tests load this one.
__attribute__((tls_model("initial-exec"))) thread_local std::vector<CUcontext> currentContexts;

const Device* FindDevice(State& state, CUdevice device) {
  return device >= 0 && static_cast<std::size_t>(device) < state.devices.size() ? &state.devices[device]
                                                                                : nullptr;
}

void* AllocateAligned(std::size_t bytes) {
  const std::size_t rounded = (std::max<std::size_t>(bytes, 1) + kAlignment - 1) / kAlignment * kAlignment;
  return std::aligned_alloc(kAlignment, rounded);
}

CUresult AllocateDevice(CUdeviceptr* pointer, std::size_t bytes) {
  State& state = TheState();
  Lock lock(state.mutex);
  if (pointer == nullptr) return CUDA_ERROR_INVALID_VALUE;
  if (state.deviceBytes + bytes > state.memoryLimit) return CUDA_ERROR_OUT_OF_MEMORY;
  void* memory = AllocateAligned(bytes);
  if (memory == nullptr) return CUDA_ERROR_OUT_OF_MEMORY;
  *pointer = reinterpret_cast<std::uintptr_t>(memory);
  state.deviceAllocations[*pointer] = bytes;
  state.deviceBytes += bytes;
  return CUDA_SUCCESS;
}

CUresult AllocateHost(void** pointer, std::size_t bytes) {
  State& state = TheState();
  Lock lock(state.mutex);
  if (pointer == nullptr) return CUDA_ERROR_INVALID_VALUE;
  void* memory = AllocateAligned(bytes);
  if (memory == nullptr) return CUDA_ERROR_OUT_OF_MEMORY;
  *pointer = memory;
  state.hostAllocations[memory] = bytes;
  return CUDA_SUCCESS;
}

// A kernel of a module that was unloaded is no kernel any more.
bool Stale(CUfunction handle) {
  return handle == nullptr || !reinterpret_cast<Function*>(handle)->module->loaded;
}

CUresult RecordLaunch(CUfunction handle, unsigned gridX, unsigned gridY, CUstream stream) {
  if (Stale(handle)) return CUDA_ERROR_INVALID_HANDLE;
  if (reinterpret_cast<Function*>(handle)->blockX == 0)
    return CUDA_ERROR_INVALID_VALUE;  // no block shape set
  State& state = TheState();
  if (idle.load(std::memory_order_relaxed)) return CUDA_SUCCESS;
  const Function& function = *reinterpret_cast<Function*>(handle);
  FakeCUDALaunch launch = {};
  launch.function = function.name.c_str();
  launch.gridX = gridX;
  launch.gridY = gridY;
  launch.blockX = function.blockX;
  launch.blockY = function.blockY;
  launch.blockZ = function.blockZ;
  launch.stream = stream;
  launch.paramSize = function.paramSize;
  std::memcpy(launch.params, function.params, sizeof launch.params);
  Lock lock(state.mutex);
  if (state.recording) state.launches.push_back(launch);
  return CUDA_SUCCESS;
}

// A value may go only within the kernel's parameter bytes, starting inside a parameter at a multiple of that
// parameter's alignment.
CUresult SetParameter(CUfunction handle, int offset, const void* bytes, unsigned size) {
  if (Stale(handle)) return CUDA_ERROR_INVALID_HANDLE;
  if (offset < 0 || bytes == nullptr) return CUDA_ERROR_INVALID_VALUE;
  Function& function = *reinterpret_cast<Function*>(handle);
  const unsigned start = static_cast<unsigned>(offset);
  if (start >= function.parameterBytes || static_cast<std::size_t>(start) + size > function.parameterBytes ||
      function.parameterBytes > sizeof function.params || !function.settableAt[start]) {
    return CUDA_ERROR_INVALID_VALUE;
  }
  std::memcpy(function.params + start, bytes, size);
  return CUDA_SUCCESS;
}

// The highest PTX ISA version that a driver of `version` (1000 × major + 10 × minor) loads.
int MaximumPtxVersion(int version) {
  static const int table[][2] = {
      {9000, 60},  {9010, 61},  {9020, 62},  {10000, 63}, {10010, 64}, {10020, 65}, {11000, 70}, {11010, 71},
      {11020, 72}, {11030, 73}, {11040, 74}, {11050, 75}, {11060, 76}, {11070, 77}, {11080, 78}, {12000, 80},
      {12010, 81}, {12020, 82}, {12030, 83}, {12040, 84}, {12050, 85}, {12080, 87}, {12090, 88}, {13000, 90}};
  int maximum = 0;
  for (const auto& row : table) {
    if (version >= row[0]) maximum = row[1];
  }
  return maximum;
}

// The device of the context current on this thread; false when none is current.
bool CurrentDevice(State& state, CUdevice& device) {
  if (currentContexts.empty()) return false;
  const auto found = state.contextDevices.find(currentContexts.back());
  if (found == state.contextDevices.end()) return false;
  device = found->second;
  return true;
}

int Attribute(const Device& device, CUdevice_attribute attribute) {
  const auto set = device.attributes.find(attribute);
  if (set != device.attributes.end()) return set->second;
  switch (attribute) {
    case CU_DEVICE_ATTRIBUTE_TEXTURE_ALIGNMENT:
      return 512;
    case CU_DEVICE_ATTRIBUTE_TEXTURE_PITCH_ALIGNMENT:
      return 32;
    case CU_DEVICE_ATTRIBUTE_MAXIMUM_TEXTURE2D_LINEAR_WIDTH:
      return 131072;
    case CU_DEVICE_ATTRIBUTE_MAXIMUM_TEXTURE2D_LINEAR_HEIGHT:
      return 65000;
    case CU_DEVICE_ATTRIBUTE_MAXIMUM_TEXTURE2D_LINEAR_PITCH:
      return 2097120;
    case CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MAJOR:
      return device.major;
    case CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MINOR:
      return device.minor;
    default:
      return 0;
  }
}

// A module made from the declarations of PTX text: its kernels with their parameter layouts, its textures.
std::unique_ptr<Module> ModuleOf(const PtxModule& ptx, CUdevice device) {
  auto module = std::make_unique<Module>();
  for (const auto& [name, declared] : ptx.entries) {
    auto function = std::make_unique<Function>();
    function->module = module.get();
    function->name = name;
    unsigned end = 0;
    for (const PtxParameter& parameter : declared) {
      const unsigned alignment = static_cast<unsigned>(std::max(parameter.alignment, 1));
      const unsigned offset = (end + alignment - 1) / alignment * alignment;
      end = offset + static_cast<unsigned>(parameter.bytes);
      function->settableAt.resize(end, false);
      for (unsigned at = offset; at < end; at += alignment) function->settableAt[at] = true;
    }
    function->parameterBytes = end;
    module->functions[name] = std::move(function);
  }
  for (const std::string& name : ptx.textures)
    module->textures[name] = std::make_unique<Texture>(Texture{module.get(), device, false, name});
  return module;
}

CUresult NewContext(CUcontext* context, CUdevice device) {
  State& state = TheState();
  Lock lock(state.mutex);
  if (context == nullptr) return CUDA_ERROR_INVALID_VALUE;
  if (FindDevice(state, device) == nullptr) return CUDA_ERROR_INVALID_DEVICE;
  *context = state.NewHandle<CUcontext>();
  state.contextDevices[*context] = device;
  currentContexts.push_back(*context);
  ++state.currentDepth;
  return CUDA_SUCCESS;
}

// Host memory stands for device memory, so every copy is a plain memcpy.
CUresult Copy(void* destination, const void* source, std::size_t bytes) {
  if (bytes != 0 && (destination == nullptr || source == nullptr)) return CUDA_ERROR_INVALID_VALUE;
  if (bytes != 0) std::memmove(destination, source, bytes);
  return CUDA_SUCCESS;
}

void* Address(CUdeviceptr pointer) {
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(pointer));
}

}  // namespace

std::atomic<bool> idle{false};

bool Enter(const char* exported, const char* slot, const Arguments& args, CUresult* forced) {
  State& state = TheState();
  Lock lock(state.mutex);
  ++state.callsMade;
  if (state.recording) {
    state.calls.push_back(Call{exported, std::vector<std::uint64_t>(args.words, args.words + args.count)});
    ++state.counts[slot];
  }
  if (state.failureAt.armed) {
    if (state.failureAt.remaining == 0) {
      state.failureAt.armed = false;
      state.UpdateIdle();
      *forced = state.failureAt.result;
      return true;
    }
    --state.failureAt.remaining;
  }
  auto failure = state.failures.find(slot);
  if (failure == state.failures.end()) return false;
  if (failure->second.skip > 0) {
    --failure->second.skip;
    return false;
  }
  if (failure->second.count == 0) return false;
  if (failure->second.count > 0) --failure->second.count;
  *forced = failure->second.result;
  return true;
}

CUresult Impl_cuDriverGetVersion(int* version) {
  if (version == nullptr) return CUDA_ERROR_INVALID_VALUE;
  State& state = TheState();
  Lock lock(state.mutex);
  *version = state.driverVersion;
  return CUDA_SUCCESS;
}

CUresult Impl_cuDeviceGetCount(int* count) {
  if (count == nullptr) return CUDA_ERROR_INVALID_VALUE;
  State& state = TheState();
  Lock lock(state.mutex);
  *count = static_cast<int>(state.devices.size());
  return CUDA_SUCCESS;
}

CUresult Impl_cuDeviceGet(CUdevice* device, int ordinal) {
  State& state = TheState();
  Lock lock(state.mutex);
  if (device == nullptr || FindDevice(state, ordinal) == nullptr) return CUDA_ERROR_INVALID_DEVICE;
  *device = ordinal;
  return CUDA_SUCCESS;
}

CUresult Impl_cuDeviceGetName(char* name, int length, CUdevice device) {
  State& state = TheState();
  Lock lock(state.mutex);
  const Device* found = FindDevice(state, device);
  if (found == nullptr) return CUDA_ERROR_INVALID_DEVICE;
  if (name == nullptr || length <= 0) return CUDA_ERROR_INVALID_VALUE;
  const std::size_t copied = std::min(found->name.size(), static_cast<std::size_t>(length - 1));
  std::memcpy(name, found->name.data(), copied);
  name[copied] = '\0';
  return CUDA_SUCCESS;
}

CUresult Impl_cuDeviceComputeCapability(int* major, int* minor, CUdevice device) {
  State& state = TheState();
  Lock lock(state.mutex);
  const Device* found = FindDevice(state, device);
  if (found == nullptr) return CUDA_ERROR_INVALID_DEVICE;
  if (major == nullptr || minor == nullptr) return CUDA_ERROR_INVALID_VALUE;
  *major = found->major;
  *minor = found->minor;
  return CUDA_SUCCESS;
}

CUresult Impl_cuDeviceTotalMem(std::size_t* bytes, CUdevice device) {
  State& state = TheState();
  Lock lock(state.mutex);
  const Device* found = FindDevice(state, device);
  if (found == nullptr) return CUDA_ERROR_INVALID_DEVICE;
  if (bytes == nullptr) return CUDA_ERROR_INVALID_VALUE;
  *bytes = found->totalMemory;
  return CUDA_SUCCESS;
}

CUresult Impl_cuDeviceGetAttribute(int* value, CUdevice_attribute attribute, CUdevice device) {
  State& state = TheState();
  Lock lock(state.mutex);
  const Device* found = FindDevice(state, device);
  if (found == nullptr) return CUDA_ERROR_INVALID_DEVICE;
  if (value == nullptr) return CUDA_ERROR_INVALID_VALUE;
  *value = Attribute(*found, attribute);
  return CUDA_SUCCESS;
}

CUresult Impl_cuCtxCreate(CUcontext* context, unsigned int, CUdevice device) {
  return NewContext(context, device);
}
CUresult Impl_cuGLCtxCreate(CUcontext* context, unsigned int, CUdevice device) {
  return NewContext(context, device);
}

// A destroyed context also leaves the calling thread's stack; it is no longer a context at all. As on the
// real driver, its streams and events go with it (modules and memory are counted until freed, so that
// tests see them).
CUresult Impl_cuCtxDestroy(CUcontext context) {
  State& state = TheState();
  Lock lock(state.mutex);
  if (context == nullptr || state.contextDevices.erase(context) == 0) return CUDA_ERROR_INVALID_CONTEXT;
  for (auto stream = state.streams.begin(); stream != state.streams.end();)
    stream = stream->second == context ? state.streams.erase(stream) : std::next(stream);
  for (auto event = state.events.begin(); event != state.events.end();)
    event = event->second->context == context ? state.events.erase(event) : std::next(event);
  const auto kept = std::remove(currentContexts.begin(), currentContexts.end(), context);
  state.currentDepth -= static_cast<int>(currentContexts.end() - kept);
  currentContexts.erase(kept, currentContexts.end());
  return CUDA_SUCCESS;
}

CUresult Impl_cuCtxPushCurrent(CUcontext context) {
  State& state = TheState();
  Lock lock(state.mutex);
  if (context == nullptr || state.contextDevices.count(context) == 0) return CUDA_ERROR_INVALID_CONTEXT;
  currentContexts.push_back(context);
  ++state.currentDepth;
  return CUDA_SUCCESS;
}

CUresult Impl_cuCtxPopCurrent(CUcontext* context) {
  State& state = TheState();
  Lock lock(state.mutex);
  if (currentContexts.empty()) return CUDA_ERROR_INVALID_CONTEXT;
  if (context != nullptr) *context = currentContexts.back();
  currentContexts.pop_back();
  --state.currentDepth;
  return CUDA_SUCCESS;
}

CUresult Impl_cuMemAlloc(CUdeviceptr* pointer, std::size_t bytes) {
  return AllocateDevice(pointer, bytes);
}

CUresult Impl_cuMemFree(CUdeviceptr pointer) {
  State& state = TheState();
  Lock lock(state.mutex);
  auto allocation = state.deviceAllocations.find(pointer);
  if (allocation == state.deviceAllocations.end()) return CUDA_ERROR_INVALID_VALUE;
  state.deviceBytes -= allocation->second;
  std::free(Address(pointer));
  state.deviceAllocations.erase(allocation);
  return CUDA_SUCCESS;
}

// The allocation that holds `pointer`, as the driver reports it for any address inside one.
CUresult Impl_cuMemGetAddressRange(CUdeviceptr* base, std::size_t* size, CUdeviceptr pointer) {
  State& state = TheState();
  Lock lock(state.mutex);
  auto after = state.deviceAllocations.upper_bound(pointer);
  if (after == state.deviceAllocations.begin()) return CUDA_ERROR_NOT_FOUND;
  const auto& allocation = *std::prev(after);
  if (pointer >= allocation.first + allocation.second) return CUDA_ERROR_NOT_FOUND;
  if (base != nullptr) *base = allocation.first;
  if (size != nullptr) *size = allocation.second;
  return CUDA_SUCCESS;
}

CUresult Impl_cuMemHostAlloc(void** pointer, std::size_t bytes, unsigned int) {
  return AllocateHost(pointer, bytes);
}
CUresult Impl_cuMemAllocHost(void** pointer, std::size_t bytes) {
  return AllocateHost(pointer, bytes);
}

CUresult Impl_cuMemFreeHost(void* pointer) {
  State& state = TheState();
  Lock lock(state.mutex);
  auto allocation = state.hostAllocations.find(pointer);
  if (allocation == state.hostAllocations.end()) return CUDA_ERROR_INVALID_VALUE;
  std::free(pointer);
  state.hostAllocations.erase(allocation);
  return CUDA_SUCCESS;
}

CUresult Impl_cuMemcpyHtoD(CUdeviceptr destination, const void* source, std::size_t bytes) {
  return Copy(Address(destination), source, bytes);
}
CUresult Impl_cuMemcpyDtoH(void* destination, CUdeviceptr source, std::size_t bytes) {
  return Copy(destination, Address(source), bytes);
}
CUresult Impl_cuMemcpyHtoDAsync(CUdeviceptr destination, const void* source, std::size_t bytes, CUstream) {
  return Copy(Address(destination), source, bytes);
}
CUresult Impl_cuMemcpyDtoHAsync(void* destination, CUdeviceptr source, std::size_t bytes, CUstream) {
  return Copy(destination, Address(source), bytes);
}
// Rows of WidthInBytes from one pitched region to another; host and device memory are both host memory here.
CUresult Impl_cuMemcpy2D(const CUDA_MEMCPY2D* copy) {
  if (copy == nullptr || copy->srcPitch < copy->WidthInBytes || copy->dstPitch < copy->WidthInBytes) {
    return CUDA_ERROR_INVALID_VALUE;
  }
  const char* source = copy->srcMemoryType == CU_MEMORYTYPE_HOST
                           ? static_cast<const char*>(copy->srcHost)
                           : static_cast<const char*>(Address(copy->srcDevice));
  char* destination = copy->dstMemoryType == CU_MEMORYTYPE_HOST
                          ? static_cast<char*>(copy->dstHost)
                          : static_cast<char*>(Address(copy->dstDevice));
  for (std::size_t row = 0; row < copy->Height; ++row) {
    const CUresult result =
        Copy(destination + (copy->dstY + row) * copy->dstPitch + copy->dstXInBytes,
             source + (copy->srcY + row) * copy->srcPitch + copy->srcXInBytes, copy->WidthInBytes);
    if (result != CUDA_SUCCESS) return result;
  }
  return CUDA_SUCCESS;
}
CUresult Impl_cuMemcpy2DAsync(const CUDA_MEMCPY2D* copy, CUstream) {
  return Impl_cuMemcpy2D(copy);
}

CUresult Impl_cuStreamCreate(CUstream* stream, unsigned int) {
  if (stream == nullptr) return CUDA_ERROR_INVALID_VALUE;
  State& state = TheState();
  Lock lock(state.mutex);
  *stream = state.NewHandle<CUstream>();
  state.streams[*stream] = currentContexts.empty() ? nullptr : currentContexts.back();
  return CUDA_SUCCESS;
}

CUresult Impl_cuStreamDestroy(CUstream stream) {
  State& state = TheState();
  Lock lock(state.mutex);
  return state.streams.erase(stream) != 0 ? CUDA_SUCCESS : CUDA_ERROR_INVALID_HANDLE;
}

CUresult Impl_cuEventCreate(CUevent* event, unsigned int) {
  if (event == nullptr) return CUDA_ERROR_INVALID_VALUE;
  State& state = TheState();
  Lock lock(state.mutex);
  std::unique_ptr<Event> created(
      new Event{state.eventsComplete, currentContexts.empty() ? nullptr : currentContexts.back()});
  *event = reinterpret_cast<CUevent>(created.get());
  state.events[*event] = std::move(created);
  return CUDA_SUCCESS;
}

CUresult Impl_cuEventRecord(CUevent event, CUstream) {
  State& state = TheState();
  Lock lock(state.mutex);
  auto found = state.events.find(event);
  if (found == state.events.end()) return CUDA_ERROR_INVALID_HANDLE;
  found->second->complete = state.eventsComplete;
  return CUDA_SUCCESS;
}

CUresult Impl_cuEventQuery(CUevent event) {
  State& state = TheState();
  Lock lock(state.mutex);
  auto found = state.events.find(event);
  if (found == state.events.end()) return CUDA_ERROR_INVALID_HANDLE;
  return found->second->complete ? CUDA_SUCCESS : CUDA_ERROR_NOT_READY;
}

CUresult Impl_cuEventSynchronize(CUevent event) {
  State& state = TheState();
  Lock lock(state.mutex);
  auto found = state.events.find(event);
  if (found == state.events.end()) return CUDA_ERROR_INVALID_HANDLE;
  found->second->complete = true;
  return CUDA_SUCCESS;
}

CUresult Impl_cuEventDestroy(CUevent event) {
  State& state = TheState();
  Lock lock(state.mutex);
  return state.events.erase(event) != 0 ? CUDA_SUCCESS : CUDA_ERROR_INVALID_HANDLE;
}

CUresult Impl_cuEventElapsedTime(float* milliseconds, CUevent, CUevent) {
  if (milliseconds == nullptr) return CUDA_ERROR_INVALID_VALUE;
  *milliseconds = 1.0f;
  return CUDA_SUCCESS;
}

// The image is PTX text: what it declares is all the module has. A module belongs to the context current on
// this thread, as on the real driver, so a caller that forgot to make one current fails here.
CUresult Impl_cuModuleLoadData(CUmodule* module, const void* image) {
  if (module == nullptr || image == nullptr) return CUDA_ERROR_INVALID_VALUE;
  const PtxModule ptx = ParsePtx(static_cast<const char*>(image));
  State& state = TheState();
  Lock lock(state.mutex);
  CUdevice device = 0;
  if (!CurrentDevice(state, device)) return CUDA_ERROR_INVALID_CONTEXT;
  if (ptx.version == 0) return CUDA_ERROR_INVALID_PTX;
  if (ptx.version > MaximumPtxVersion(state.driverVersion)) return CUDA_ERROR_UNSUPPORTED_PTX_VERSION;
  state.modules.push_back(ModuleOf(ptx, device));
  *module = reinterpret_cast<CUmodule>(state.modules.back().get());
  return CUDA_SUCCESS;
}

CUresult Impl_cuModuleLoadDataEx(CUmodule* module, const void* image, unsigned int, CUjit_option*, void**) {
  return Impl_cuModuleLoadData(module, image);
}

CUresult Impl_cuModuleLoad(CUmodule* module, const char* path) {
  if (path == nullptr) return CUDA_ERROR_INVALID_VALUE;
  std::ifstream file(path, std::ios::binary);
  if (!file) return CUDA_ERROR_FILE_NOT_FOUND;
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return Impl_cuModuleLoadData(module, text.c_str());
}

CUresult Impl_cuModuleUnload(CUmodule module) {
  if (module == nullptr) return CUDA_ERROR_INVALID_HANDLE;
  Lock lock(TheState().mutex);
  Module& unloaded = *reinterpret_cast<Module*>(module);
  if (!unloaded.loaded) return CUDA_ERROR_INVALID_HANDLE;
  unloaded.loaded = false;
  return CUDA_SUCCESS;
}

CUresult Impl_cuModuleGetFunction(CUfunction* function, CUmodule module, const char* name) {
  if (module == nullptr || !reinterpret_cast<Module*>(module)->loaded) return CUDA_ERROR_INVALID_HANDLE;
  if (function == nullptr || name == nullptr) return CUDA_ERROR_INVALID_VALUE;
  Lock lock(TheState().mutex);
  auto& functions = reinterpret_cast<Module*>(module)->functions;
  const auto found = functions.find(name);
  if (found == functions.end()) return CUDA_ERROR_NOT_FOUND;
  *function = reinterpret_cast<CUfunction>(found->second.get());
  return CUDA_SUCCESS;
}

CUresult Impl_cuModuleGetTexRef(CUtexref* texture, CUmodule module, const char* name) {
  if (module == nullptr || !reinterpret_cast<Module*>(module)->loaded) return CUDA_ERROR_INVALID_HANDLE;
  if (texture == nullptr || name == nullptr) return CUDA_ERROR_INVALID_VALUE;
  Lock lock(TheState().mutex);
  auto& textures = reinterpret_cast<Module*>(module)->textures;
  const auto found = textures.find(name);
  if (found == textures.end()) return CUDA_ERROR_NOT_FOUND;
  *texture = reinterpret_cast<CUtexref>(found->second.get());
  return CUDA_SUCCESS;
}

CUresult Impl_cuFuncSetBlockShape(CUfunction handle, int x, int y, int z) {
  if (Stale(handle)) return CUDA_ERROR_INVALID_HANDLE;
  if (x <= 0 || y <= 0 || z <= 0) return CUDA_ERROR_INVALID_VALUE;
  Function& function = *reinterpret_cast<Function*>(handle);
  function.blockX = static_cast<unsigned>(x);
  function.blockY = static_cast<unsigned>(y);
  function.blockZ = static_cast<unsigned>(z);
  return CUDA_SUCCESS;
}

// The size must be the kernel's parameter bytes, exactly.
CUresult Impl_cuParamSetSize(CUfunction handle, unsigned int bytes) {
  if (Stale(handle)) return CUDA_ERROR_INVALID_HANDLE;
  Function& function = *reinterpret_cast<Function*>(handle);
  if (bytes != function.parameterBytes) return CUDA_ERROR_INVALID_VALUE;
  function.paramSize = bytes;
  return CUDA_SUCCESS;
}

CUresult Impl_cuParamSetv(CUfunction handle, int offset, void* bytes, unsigned int size) {
  return SetParameter(handle, offset, bytes, size);
}
CUresult Impl_cuParamSeti(CUfunction handle, int offset, unsigned int value) {
  return SetParameter(handle, offset, &value, sizeof value);
}
CUresult Impl_cuParamSetf(CUfunction handle, int offset, float value) {
  return SetParameter(handle, offset, &value, sizeof value);
}

CUresult Impl_cuLaunch(CUfunction function) {
  return RecordLaunch(function, 1, 1, nullptr);
}
CUresult Impl_cuLaunchGrid(CUfunction function, int width, int height) {
  if (width <= 0 || height <= 0) return CUDA_ERROR_INVALID_VALUE;
  return RecordLaunch(function, width, height, nullptr);
}
CUresult Impl_cuLaunchGridAsync(CUfunction function, int width, int height, CUstream stream) {
  if (width <= 0 || height <= 0) return CUDA_ERROR_INVALID_VALUE;
  return RecordLaunch(function, width, height, stream);
}

// The format of a reference cannot be set once it was bound.
CUresult Impl_cuTexRefSetFormat(CUtexref texture, CUarray_format, int) {
  if (texture == nullptr) return CUDA_ERROR_INVALID_VALUE;
  Lock lock(TheState().mutex);
  return reinterpret_cast<Texture*>(texture)->bound ? CUDA_ERROR_INVALID_VALUE : CUDA_SUCCESS;
}

// The address must be a multiple of the device's texture alignment, the pitch of its texture pitch
// alignment, and the extent within its limits for linear memory.
CUresult Impl_cuTexRefSetAddress2D(CUtexref texture, const CUDA_ARRAY_DESCRIPTOR* descriptor,
                                   CUdeviceptr address, std::size_t pitch) {
  if (texture == nullptr || descriptor == nullptr) return CUDA_ERROR_INVALID_VALUE;
  if (!reinterpret_cast<Texture*>(texture)->module->loaded) return CUDA_ERROR_INVALID_HANDLE;
  State& state = TheState();
  Lock lock(state.mutex);
  const Device* device = FindDevice(state, reinterpret_cast<Texture*>(texture)->device);
  if (device == nullptr) return CUDA_ERROR_INVALID_CONTEXT;
  const auto limit = [&](CUdevice_attribute attribute) {
    return static_cast<std::size_t>(std::max(Attribute(*device, attribute), 1));
  };
  if (address % limit(CU_DEVICE_ATTRIBUTE_TEXTURE_ALIGNMENT) != 0 ||
      pitch % limit(CU_DEVICE_ATTRIBUTE_TEXTURE_PITCH_ALIGNMENT) != 0 || descriptor->Width == 0 ||
      descriptor->Height == 0 ||
      descriptor->Width > limit(CU_DEVICE_ATTRIBUTE_MAXIMUM_TEXTURE2D_LINEAR_WIDTH) ||
      descriptor->Height > limit(CU_DEVICE_ATTRIBUTE_MAXIMUM_TEXTURE2D_LINEAR_HEIGHT) ||
      pitch > limit(CU_DEVICE_ATTRIBUTE_MAXIMUM_TEXTURE2D_LINEAR_PITCH)) {
    return CUDA_ERROR_INVALID_VALUE;
  }
  reinterpret_cast<Texture*>(texture)->bound = true;
  const TextureBinding binding{*descriptor, address, pitch};
  state.textureBindings[""] = binding;
  state.textureBindings[reinterpret_cast<Texture*>(texture)->name] = binding;
  return CUDA_SUCCESS;
}

}  // namespace fakecuda

using fakecuda::Lock;
using fakecuda::TheState;

FAKECUDA_API void fakecuda_Reset(void) {
  Lock lock(TheState().mutex);
  TheState().Reset();
}

FAKECUDA_API void fakecuda_SetDriverVersion(int version) {
  Lock lock(TheState().mutex);
  TheState().driverVersion = version;
}

FAKECUDA_API void fakecuda_ClearDevices(void) {
  Lock lock(TheState().mutex);
  TheState().devices.clear();
}

FAKECUDA_API int fakecuda_AddDevice(const char* name, int major, int minor, unsigned long long totalMemory) {
  Lock lock(TheState().mutex);
  TheState().devices.push_back(fakecuda::Device{name != nullptr ? name : "", major, minor, totalMemory, {}});
  return static_cast<int>(TheState().devices.size()) - 1;
}

FAKECUDA_API void fakecuda_SetDeviceAttribute(int ordinal, int attribute, int value) {
  Lock lock(TheState().mutex);
  if (ordinal >= 0 && static_cast<std::size_t>(ordinal) < TheState().devices.size()) {
    TheState().devices[ordinal].attributes[attribute] = value;
  }
}

FAKECUDA_API void fakecuda_SetFailure(const char* name, int result, int skip, int count) {
  Lock lock(TheState().mutex);
  TheState().failures[name] = fakecuda::Failure{result, skip, count};
  TheState().UpdateIdle();
}

FAKECUDA_API void fakecuda_ClearFailures(void) {
  Lock lock(TheState().mutex);
  TheState().failures.clear();
  TheState().failureAt = fakecuda::FailureAt();
  TheState().UpdateIdle();
}

FAKECUDA_API void fakecuda_SetFailureAt(unsigned long long index, int result) {
  Lock lock(TheState().mutex);
  TheState().failureAt = fakecuda::FailureAt{true, index, result};
  TheState().UpdateIdle();
}

FAKECUDA_API unsigned long long fakecuda_CallsMade(void) {
  Lock lock(TheState().mutex);
  return TheState().callsMade;
}

FAKECUDA_API unsigned long long fakecuda_LiveContexts(void) {
  Lock lock(TheState().mutex);
  return TheState().contextDevices.size();
}

FAKECUDA_API unsigned long long fakecuda_LiveModules(void) {
  Lock lock(TheState().mutex);
  return static_cast<unsigned long long>(std::count_if(TheState().modules.begin(), TheState().modules.end(),
                                                       [](const auto& module) { return module->loaded; }));
}

FAKECUDA_API unsigned long long fakecuda_LiveStreams(void) {
  Lock lock(TheState().mutex);
  return TheState().streams.size();
}

FAKECUDA_API int fakecuda_TotalContextDepth(void) {
  Lock lock(TheState().mutex);
  return TheState().currentDepth;
}

FAKECUDA_API unsigned long long fakecuda_CallCount(const char* name) {
  Lock lock(TheState().mutex);
  auto found = TheState().counts.find(name);
  return found == TheState().counts.end() ? 0 : found->second;
}

FAKECUDA_API unsigned long long fakecuda_CallLogSize(void) {
  Lock lock(TheState().mutex);
  return TheState().calls.size();
}

FAKECUDA_API const char* fakecuda_CallName(unsigned long long index) {
  Lock lock(TheState().mutex);
  return index < TheState().calls.size() ? TheState().calls[index].name.c_str() : "";
}

FAKECUDA_API int fakecuda_CallArgs(unsigned long long index, unsigned long long* words, int capacity) {
  Lock lock(TheState().mutex);
  if (index >= TheState().calls.size() || words == nullptr) return -1;
  const std::vector<std::uint64_t>& args = TheState().calls[index].args;
  const int count = std::min(capacity, static_cast<int>(args.size()));
  std::copy(args.begin(), args.begin() + count, words);
  return count;
}

FAKECUDA_API void fakecuda_ClearCallLog(void) {
  Lock lock(TheState().mutex);
  TheState().calls.clear();
  TheState().counts.clear();
  TheState().launches.clear();
}

FAKECUDA_API void fakecuda_SetEventsComplete(int complete) {
  Lock lock(TheState().mutex);
  TheState().eventsComplete = complete != 0;
}

FAKECUDA_API void fakecuda_SetEventComplete(void* event, int complete) {
  Lock lock(TheState().mutex);
  auto found = TheState().events.find(static_cast<CUevent>(event));
  if (found != TheState().events.end()) found->second->complete = complete != 0;
}

FAKECUDA_API void fakecuda_SetMemoryLimit(unsigned long long bytes) {
  Lock lock(TheState().mutex);
  TheState().memoryLimit = bytes;
}

FAKECUDA_API unsigned long long fakecuda_LiveDeviceAllocations(void) {
  Lock lock(TheState().mutex);
  return TheState().deviceAllocations.size();
}

FAKECUDA_API unsigned long long fakecuda_LiveHostAllocations(void) {
  Lock lock(TheState().mutex);
  return TheState().hostAllocations.size();
}

FAKECUDA_API unsigned long long fakecuda_LiveEvents(void) {
  Lock lock(TheState().mutex);
  return TheState().events.size();
}

FAKECUDA_API unsigned long long fakecuda_LaunchCount(void) {
  Lock lock(TheState().mutex);
  return TheState().launches.size();
}

FAKECUDA_API int fakecuda_GetLaunch(unsigned long long index, FakeCUDALaunch* launch) {
  Lock lock(TheState().mutex);
  if (index >= TheState().launches.size() || launch == nullptr) return 0;
  *launch = TheState().launches[index];
  return 1;
}

FAKECUDA_API int fakecuda_CurrentContextDepth(void) {
  return static_cast<int>(fakecuda::currentContexts.size());
}

FAKECUDA_API int fakecuda_TextureBinding(const char* name, unsigned long long* width,
                                         unsigned long long* height, int* format, unsigned* channels,
                                         unsigned long long* address, unsigned long long* pitch) {
  Lock lock(TheState().mutex);
  const auto& bindings = TheState().textureBindings;
  const auto found = bindings.find(name != nullptr ? name : "");
  if (found == bindings.end()) return 0;
  const fakecuda::TextureBinding& binding = found->second;
  *width = binding.descriptor.Width;
  *height = binding.descriptor.Height;
  *format = binding.descriptor.Format;
  *channels = binding.descriptor.NumChannels;
  *address = binding.address;
  *pitch = binding.pitch;
  return 1;
}

FAKECUDA_API void fakecuda_SetRecording(int recording) {
  Lock lock(TheState().mutex);
  TheState().recording = recording != 0;
  TheState().UpdateIdle();
}
