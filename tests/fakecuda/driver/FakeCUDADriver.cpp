// The fake driver's state and the entry points it models. It refuses what the real driver refuses where a
// host/kernel mismatch would otherwise pass unseen: it knows only the kernels and textures a loaded PTX
// module declares, checks parameter sizes and alignment against the kernel's parameter list, refuses PTX
// newer than the driver, a launch without a block shape, a texture bound at an address or pitch the
// device's alignments do not allow, and any use of a kernel or texture of an unloaded module. It counts the
// contexts, modules, streams and events alive and the contexts current on every thread, so tests can see
// what was left behind.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "FakeCUDA.h"
#include "FakeCUDAControl.h"
#include "PtxText.h"

namespace fakecuda {
namespace {

struct Device {
  std::string name;
  int major, minor;
  unsigned long long totalMemory;
};

struct Failure {
  CUresult result;
  int skip, count;  // count kFakeCUDAFailForever: every call after the skipped ones
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
  const Module* module;
  std::string name;
  unsigned parameterBytes = 0;  // what cuParamSetSize must be given
  // Per parameter byte: whether a value may start there (inside a parameter, at a multiple of its alignment).
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

struct Module {
  // Cleared by cuModuleUnload; the memory is kept, so a stale handle is refused rather than read after free.
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
  std::vector<Device> devices{Device{"Lumora Fake GPU", 7, 5, 8ull << 30}};
  std::map<std::string, Failure, std::less<>> failures;
  FailureAt failureAt;
  unsigned long long callsMade = 0;  // every call, whether recorded or not
  std::vector<Call> calls;
  std::map<std::string, unsigned long long, std::less<>> counts;
  std::map<std::uintptr_t, std::size_t> deviceAllocations;
  std::map<void*, std::size_t> hostAllocations;
  unsigned long long memoryLimit = ~0ull, deviceBytes = 0;
  std::vector<FakeCUDALaunch> launches;
  // Off: calls and launches are not logged (and nothing is allocated per call), for benchmarks.
  bool recording = true;
  bool eventsComplete = true;
  std::map<CUcontext, CUdevice> contextDevices;  // the live contexts
  std::map<CUstream, CUcontext> streams;         // the live streams, with the context current at creation
  int currentDepth = 0;                          // contexts current, summed over all threads
  std::map<CUevent, std::unique_ptr<Event>> events;
  std::vector<std::unique_ptr<Module>> modules;
  std::map<std::string, FakeCUDATextureBinding>
      textureBindings;  // the last of any texture (""), and of each name
  std::uintptr_t nextHandle = 0x1000;

  void UpdateIdle() { idle = !recording && failures.empty() && !failureAt.armed; }
  template <class Handle>
  Handle NewHandle() {
    return reinterpret_cast<Handle>(nextHandle += 0x10);
  }
};

State& TheState() {
  static State* const state = new State;  // lives as long as the process: handles may be used at exit
  return *state;
}

using Lock = std::lock_guard<std::recursive_mutex>;

// The contexts current on this thread, innermost last. Initial-exec TLS: LeakSanitizer (GCC 12) crashes
// scanning the lazily allocated TLS of a library loaded with dlopen, as the tests load this one.
__attribute__((tls_model("initial-exec"))) thread_local std::vector<CUcontext> currentContexts;

CUcontext CurrentContext() {
  return currentContexts.empty() ? nullptr : currentContexts.back();
}

const Device* FindDevice(State& state, CUdevice device) {
  return device >= 0 && static_cast<std::size_t>(device) < state.devices.size() ? &state.devices[device]
                                                                                : nullptr;
}

// Runs `f` on the device when it exists and every output pointer was given.
template <class F>
CUresult WithDevice(CUdevice ordinal, bool outputsGiven, F f) {
  Lock lock(TheState().mutex);
  const Device* device = FindDevice(TheState(), ordinal);
  if (device == nullptr) return CUDA_ERROR_INVALID_DEVICE;
  if (!outputsGiven) return CUDA_ERROR_INVALID_VALUE;
  f(*device);
  return CUDA_SUCCESS;
}

template <class F>
CUresult WithEvent(CUevent handle, F f) {
  State& state = TheState();
  Lock lock(state.mutex);
  auto found = state.events.find(handle);
  return found == state.events.end() ? CUDA_ERROR_INVALID_HANDLE : f(*found->second);
}

void* Address(CUdeviceptr pointer) {
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(pointer));
}

void* AllocateAligned(std::size_t bytes) {
  return std::aligned_alloc(kAlignment,
                            (std::max<std::size_t>(bytes, 1) + kAlignment - 1) / kAlignment * kAlignment);
}

// A kernel of a module that was unloaded is no kernel any more.
Function* Live(CUfunction handle) {
  Function* function = reinterpret_cast<Function*>(handle);
  return function != nullptr && function->module->loaded ? function : nullptr;
}

CUresult RecordLaunch(CUfunction handle, unsigned gridX, unsigned gridY, CUstream stream) {
  const Function* function = Live(handle);
  if (function == nullptr) return CUDA_ERROR_INVALID_HANDLE;
  if (function->blockX == 0) return CUDA_ERROR_INVALID_VALUE;  // no block shape set
  if (idle.load(std::memory_order_relaxed)) return CUDA_SUCCESS;
  FakeCUDALaunch launch = {
      function->name.c_str(), gridX, gridY, function->blockX, function->blockY, function->blockZ, stream,
      function->paramSize,    {}};
  std::memcpy(launch.params, function->params, sizeof launch.params);
  Lock lock(TheState().mutex);
  if (TheState().recording) TheState().launches.push_back(launch);
  return CUDA_SUCCESS;
}

// The highest PTX ISA version that a driver of `version` (1000 × major + 10 × minor) loads.
int MaximumPtxVersion(int version) {
  static const int table[][2] = {
      {9000, 60},  {9010, 61},  {9020, 62},  {10000, 63}, {10010, 64}, {10020, 65}, {11000, 70}, {11010, 71},
      {11020, 72}, {11030, 73}, {11040, 74}, {11050, 75}, {11060, 76}, {11070, 77}, {11080, 78}, {12000, 80},
      {12010, 81}, {12020, 82}, {12030, 83}, {12040, 84}, {12050, 85}, {12080, 87}, {12090, 88}, {13000, 90}};
  int maximum = 0;
  for (const auto& row : table) maximum = version >= row[0] ? row[1] : maximum;
  return maximum;
}

int Attribute(const Device& device, CUdevice_attribute attribute) {
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

// Host memory stands for device memory, so every copy is a plain memmove.
CUresult Copy(void* destination, const void* source, std::size_t bytes) {
  if (bytes != 0 && (destination == nullptr || source == nullptr)) return CUDA_ERROR_INVALID_VALUE;
  if (bytes != 0) std::memmove(destination, source, bytes);
  return CUDA_SUCCESS;
}

// A value may go only within the kernel's parameter bytes, starting inside a parameter at a multiple of that
// parameter's alignment.
CUresult SetParameter(CUfunction handle, int offset, const void* bytes, unsigned size) {
  Function* function = Live(handle);
  if (function == nullptr) return CUDA_ERROR_INVALID_HANDLE;
  const std::size_t start = static_cast<std::size_t>(offset);
  if (offset < 0 || bytes == nullptr || start >= function->parameterBytes ||
      start + size > function->parameterBytes || function->parameterBytes > sizeof function->params ||
      !function->settableAt[start]) {
    return CUDA_ERROR_INVALID_VALUE;
  }
  std::memcpy(function->params + start, bytes, size);
  return CUDA_SUCCESS;
}

template <class Item, class Map>
CUresult Lookup(Item* out, CUmodule module, const char* name, Map Module::*items) {
  if (module == nullptr || !reinterpret_cast<Module*>(module)->loaded) return CUDA_ERROR_INVALID_HANDLE;
  if (out == nullptr || name == nullptr) return CUDA_ERROR_INVALID_VALUE;
  Lock lock(TheState().mutex);
  const Map& map = reinterpret_cast<Module*>(module)->*items;
  const auto found = map.find(name);
  if (found == map.end()) return CUDA_ERROR_NOT_FOUND;
  *out = reinterpret_cast<Item>(found->second.get());
  return CUDA_SUCCESS;
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
  if (state.failureAt.armed && state.failureAt.remaining-- == 0) {
    state.failureAt.armed = false;
    state.UpdateIdle();
    *forced = state.failureAt.result;
    return true;
  }
  auto failure = state.failures.find(slot);
  if (failure == state.failures.end()) return false;
  if (failure->second.skip > 0) return --failure->second.skip, false;
  if (failure->second.count == 0) return false;
  if (failure->second.count > 0) --failure->second.count;
  *forced = failure->second.result;
  return true;
}

CUresult Impl_cuDriverGetVersion(int* version) {
  if (version == nullptr) return CUDA_ERROR_INVALID_VALUE;
  Lock lock(TheState().mutex);
  *version = TheState().driverVersion;
  return CUDA_SUCCESS;
}

CUresult Impl_cuDeviceGetCount(int* count) {
  if (count == nullptr) return CUDA_ERROR_INVALID_VALUE;
  Lock lock(TheState().mutex);
  *count = static_cast<int>(TheState().devices.size());
  return CUDA_SUCCESS;
}

CUresult Impl_cuDeviceGet(CUdevice* device, int ordinal) {
  if (device == nullptr) return CUDA_ERROR_INVALID_DEVICE;
  return WithDevice(ordinal, true, [&](const Device&) { *device = ordinal; });
}

CUresult Impl_cuDeviceGetName(char* name, int length, CUdevice device) {
  return WithDevice(device, name != nullptr && length > 0, [&](const Device& found) {
    const std::size_t copied = std::min(found.name.size(), static_cast<std::size_t>(length - 1));
    std::memcpy(name, found.name.data(), copied);
    name[copied] = '\0';
  });
}

CUresult Impl_cuDeviceComputeCapability(int* major, int* minor, CUdevice device) {
  return WithDevice(device, major != nullptr && minor != nullptr, [&](const Device& found) {
    *major = found.major;
    *minor = found.minor;
  });
}

CUresult Impl_cuDeviceTotalMem(std::size_t* bytes, CUdevice device) {
  return WithDevice(device, bytes != nullptr, [&](const Device& found) { *bytes = found.totalMemory; });
}

CUresult Impl_cuDeviceGetAttribute(int* value, CUdevice_attribute attribute, CUdevice device) {
  return WithDevice(device, value != nullptr,
                    [&](const Device& found) { *value = Attribute(found, attribute); });
}

CUresult Impl_cuCtxCreate(CUcontext* context, unsigned int, CUdevice device) {
  return NewContext(context, device);
}
CUresult Impl_cuGLCtxCreate(CUcontext* context, unsigned int, CUdevice device) {
  return NewContext(context, device);
}

// A destroyed context also leaves the calling thread's stack. As on the real driver, its streams and events
// go with it (modules and memory are counted until freed, so that tests see them).
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
  Lock lock(TheState().mutex);
  if (currentContexts.empty()) return CUDA_ERROR_INVALID_CONTEXT;
  if (context != nullptr) *context = currentContexts.back();
  currentContexts.pop_back();
  --TheState().currentDepth;
  return CUDA_SUCCESS;
}

CUresult Impl_cuMemAlloc(CUdeviceptr* pointer, std::size_t bytes) {
  State& state = TheState();
  Lock lock(state.mutex);
  if (pointer == nullptr) return CUDA_ERROR_INVALID_VALUE;
  void* memory = state.deviceBytes + bytes > state.memoryLimit ? nullptr : AllocateAligned(bytes);
  if (memory == nullptr) return CUDA_ERROR_OUT_OF_MEMORY;
  *pointer = reinterpret_cast<std::uintptr_t>(memory);
  state.deviceAllocations[*pointer] = bytes;
  state.deviceBytes += bytes;
  return CUDA_SUCCESS;
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
  Lock lock(TheState().mutex);
  if (pointer == nullptr) return CUDA_ERROR_INVALID_VALUE;
  if ((*pointer = AllocateAligned(bytes)) == nullptr) return CUDA_ERROR_OUT_OF_MEMORY;
  TheState().hostAllocations[*pointer] = bytes;
  return CUDA_SUCCESS;
}

CUresult Impl_cuMemFreeHost(void* pointer) {
  Lock lock(TheState().mutex);
  if (TheState().hostAllocations.erase(pointer) == 0) return CUDA_ERROR_INVALID_VALUE;
  std::free(pointer);
  return CUDA_SUCCESS;
}

CUresult Impl_cuMemcpyHtoDAsync(CUdeviceptr destination, const void* source, std::size_t bytes, CUstream) {
  return Copy(Address(destination), source, bytes);
}
CUresult Impl_cuMemcpyDtoHAsync(void* destination, CUdeviceptr source, std::size_t bytes, CUstream) {
  return Copy(destination, Address(source), bytes);
}
// Rows of WidthInBytes from one pitched region to another; host and device memory are both host memory here.
CUresult Impl_cuMemcpy2DAsync(const CUDA_MEMCPY2D* copy, CUstream) {
  if (copy == nullptr || copy->srcPitch < copy->WidthInBytes || copy->dstPitch < copy->WidthInBytes) {
    return CUDA_ERROR_INVALID_VALUE;
  }
  const char* source = static_cast<const char*>(
      copy->srcMemoryType == CU_MEMORYTYPE_HOST ? copy->srcHost : Address(copy->srcDevice));
  char* destination = static_cast<char*>(
      copy->dstMemoryType == CU_MEMORYTYPE_HOST ? copy->dstHost : Address(copy->dstDevice));
  for (std::size_t row = 0; row < copy->Height; ++row) {
    const CUresult result =
        Copy(destination + (copy->dstY + row) * copy->dstPitch + copy->dstXInBytes,
             source + (copy->srcY + row) * copy->srcPitch + copy->srcXInBytes, copy->WidthInBytes);
    if (result != CUDA_SUCCESS) return result;
  }
  return CUDA_SUCCESS;
}

CUresult Impl_cuStreamCreate(CUstream* stream, unsigned int) {
  if (stream == nullptr) return CUDA_ERROR_INVALID_VALUE;
  Lock lock(TheState().mutex);
  *stream = TheState().NewHandle<CUstream>();
  TheState().streams[*stream] = CurrentContext();
  return CUDA_SUCCESS;
}

CUresult Impl_cuStreamDestroy(CUstream stream) {
  Lock lock(TheState().mutex);
  return TheState().streams.erase(stream) != 0 ? CUDA_SUCCESS : CUDA_ERROR_INVALID_HANDLE;
}

CUresult Impl_cuEventCreate(CUevent* event, unsigned int) {
  if (event == nullptr) return CUDA_ERROR_INVALID_VALUE;
  Lock lock(TheState().mutex);
  auto created = std::make_unique<Event>(Event{TheState().eventsComplete, CurrentContext()});
  *event = reinterpret_cast<CUevent>(created.get());
  TheState().events[*event] = std::move(created);
  return CUDA_SUCCESS;
}

CUresult Impl_cuEventRecord(CUevent event, CUstream) {
  return WithEvent(event,
                   [](Event& found) { return found.complete = TheState().eventsComplete, CUDA_SUCCESS; });
}
CUresult Impl_cuEventQuery(CUevent event) {
  return WithEvent(event, [](Event& found) { return found.complete ? CUDA_SUCCESS : CUDA_ERROR_NOT_READY; });
}
CUresult Impl_cuEventSynchronize(CUevent event) {
  return WithEvent(event, [](Event& found) { return found.complete = true, CUDA_SUCCESS; });
}

CUresult Impl_cuEventDestroy(CUevent event) {
  Lock lock(TheState().mutex);
  return TheState().events.erase(event) != 0 ? CUDA_SUCCESS : CUDA_ERROR_INVALID_HANDLE;
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
  const auto context = state.contextDevices.find(CurrentContext());
  if (context == state.contextDevices.end()) return CUDA_ERROR_INVALID_CONTEXT;
  if (ptx.version == 0) return CUDA_ERROR_INVALID_PTX;
  if (ptx.version > MaximumPtxVersion(state.driverVersion)) return CUDA_ERROR_UNSUPPORTED_PTX_VERSION;
  state.modules.push_back(ModuleOf(ptx, context->second));
  *module = reinterpret_cast<CUmodule>(state.modules.back().get());
  return CUDA_SUCCESS;
}

CUresult Impl_cuModuleLoadDataEx(CUmodule* module, const void* image, unsigned int, CUjit_option*, void**) {
  return Impl_cuModuleLoadData(module, image);
}

CUresult Impl_cuModuleUnload(CUmodule module) {
  Lock lock(TheState().mutex);
  Module* unloaded = reinterpret_cast<Module*>(module);
  if (unloaded == nullptr || !unloaded->loaded) return CUDA_ERROR_INVALID_HANDLE;
  unloaded->loaded = false;
  return CUDA_SUCCESS;
}

CUresult Impl_cuModuleGetFunction(CUfunction* function, CUmodule module, const char* name) {
  return Lookup(function, module, name, &Module::functions);
}
CUresult Impl_cuModuleGetTexRef(CUtexref* texture, CUmodule module, const char* name) {
  return Lookup(texture, module, name, &Module::textures);
}

CUresult Impl_cuFuncSetBlockShape(CUfunction handle, int x, int y, int z) {
  Function* function = Live(handle);
  if (function == nullptr) return CUDA_ERROR_INVALID_HANDLE;
  if (x <= 0 || y <= 0 || z <= 0) return CUDA_ERROR_INVALID_VALUE;
  function->blockX = static_cast<unsigned>(x);
  function->blockY = static_cast<unsigned>(y);
  function->blockZ = static_cast<unsigned>(z);
  return CUDA_SUCCESS;
}

// The size must be the kernel's parameter bytes, exactly.
CUresult Impl_cuParamSetSize(CUfunction handle, unsigned int bytes) {
  Function* function = Live(handle);
  if (function == nullptr) return CUDA_ERROR_INVALID_HANDLE;
  if (bytes != function->parameterBytes) return CUDA_ERROR_INVALID_VALUE;
  function->paramSize = bytes;
  return CUDA_SUCCESS;
}

CUresult Impl_cuParamSetv(CUfunction handle, int offset, void* bytes, unsigned int size) {
  return SetParameter(handle, offset, bytes, size);
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
CUresult Impl_cuTexRefSetAddress2D(CUtexref handle, const CUDA_ARRAY_DESCRIPTOR* descriptor,
                                   CUdeviceptr address, std::size_t pitch) {
  Texture* texture = reinterpret_cast<Texture*>(handle);
  if (texture == nullptr || descriptor == nullptr) return CUDA_ERROR_INVALID_VALUE;
  if (!texture->module->loaded) return CUDA_ERROR_INVALID_HANDLE;
  State& state = TheState();
  Lock lock(state.mutex);
  const Device* device = FindDevice(state, texture->device);
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
  texture->bound = true;
  state.textureBindings[""] = state.textureBindings[texture->name] = {
      descriptor->Width,      descriptor->Height, address, pitch, static_cast<int>(descriptor->Format),
      descriptor->NumChannels};
  return CUDA_SUCCESS;
}

}  // namespace fakecuda

using fakecuda::Lock;
using fakecuda::State;
using fakecuda::TheState;

// The control functions, each under the state's lock with `s` the state: those that only set (FAKECUDA_SET)
// or read (FAKECUDA_GET) are one line each.
#define FAKECUDA_API extern "C" __attribute__((visibility("default")))
#define FAKECUDA_CONTROL(Result, name, params, ...) \
  FAKECUDA_API Result name params {                 \
    Lock lock(TheState().mutex);                    \
    [[maybe_unused]] State& s = TheState();         \
    __VA_ARGS__                                     \
  }
#define FAKECUDA_SET(name, params, ...) FAKECUDA_CONTROL(void, name, params, __VA_ARGS__; s.UpdateIdle();)
#define FAKECUDA_GET(Result, name, params, ...) FAKECUDA_CONTROL(Result, name, params, return __VA_ARGS__;)

FAKECUDA_SET(fakecuda_SetDriverVersion, (int version), s.driverVersion = version)
FAKECUDA_SET(fakecuda_ClearDevices, (void), s.devices.clear())
FAKECUDA_SET(fakecuda_SetFailure, (const char* name, int result, int skip, int count),
             s.failures[name] = {static_cast<CUresult>(result), skip, count})
FAKECUDA_SET(fakecuda_ClearFailures, (void), s.failures.clear(), s.failureAt = {})
FAKECUDA_SET(fakecuda_SetFailureAt, (unsigned long long index, int result),
             s.failureAt = {true, index, static_cast<CUresult>(result)})
FAKECUDA_SET(fakecuda_SetRecording, (int recording), s.recording = recording != 0)
FAKECUDA_SET(fakecuda_ClearCallLog, (void), s.calls.clear(), s.counts.clear(), s.launches.clear())
FAKECUDA_SET(fakecuda_SetEventsComplete, (int complete), s.eventsComplete = complete != 0)
FAKECUDA_SET(fakecuda_SetMemoryLimit, (unsigned long long bytes), s.memoryLimit = bytes)
FAKECUDA_GET(unsigned long long, fakecuda_CallsMade, (void), s.callsMade)
FAKECUDA_GET(unsigned long long, fakecuda_CallLogSize, (void), s.calls.size())
FAKECUDA_GET(unsigned long long, fakecuda_LaunchCount, (void), s.launches.size())
FAKECUDA_GET(unsigned long long, fakecuda_LiveContexts, (void), s.contextDevices.size())
FAKECUDA_GET(unsigned long long, fakecuda_LiveStreams, (void), s.streams.size())
FAKECUDA_GET(unsigned long long, fakecuda_LiveEvents, (void), s.events.size())
FAKECUDA_GET(unsigned long long, fakecuda_LiveDeviceAllocations, (void), s.deviceAllocations.size())
FAKECUDA_GET(unsigned long long, fakecuda_LiveHostAllocations, (void), s.hostAllocations.size())
FAKECUDA_GET(unsigned long long, fakecuda_LiveModules, (void),
             std::count_if(s.modules.begin(), s.modules.end(),
                           [](const auto& module) { return module->loaded; }))
FAKECUDA_GET(int, fakecuda_TotalContextDepth, (void), s.currentDepth)
FAKECUDA_GET(int, fakecuda_CurrentContextDepth, (void), static_cast<int>(fakecuda::currentContexts.size()))
FAKECUDA_GET(const char*, fakecuda_CallName, (unsigned long long index),
             index < s.calls.size() ? s.calls[index].name.c_str() : "")
FAKECUDA_GET(int, fakecuda_AddDevice, (const char* name, int major, int minor, unsigned long long memory),
             s.devices.push_back({name != nullptr ? name : "", major, minor, memory}),
             static_cast<int>(s.devices.size()) - 1)
FAKECUDA_GET(unsigned long long, fakecuda_CallCount, (const char* name),
             s.counts.count(name) != 0 ? s.counts.find(name)->second : 0)

FAKECUDA_API void fakecuda_SetEventComplete(void* event, int complete) {
  Lock lock(TheState().mutex);
  auto found = TheState().events.find(static_cast<CUevent>(event));
  if (found != TheState().events.end()) found->second->complete = complete != 0;
}

FAKECUDA_API int fakecuda_CallArgs(unsigned long long index, unsigned long long* words, int capacity) {
  Lock lock(TheState().mutex);
  if (index >= TheState().calls.size() || words == nullptr) return -1;
  const std::vector<std::uint64_t>& args = TheState().calls[index].args;
  const int count = std::min(capacity, static_cast<int>(args.size()));
  std::copy(args.begin(), args.begin() + count, words);
  return count;
}

FAKECUDA_API int fakecuda_GetLaunch(unsigned long long index, FakeCUDALaunch* launch) {
  Lock lock(TheState().mutex);
  if (index >= TheState().launches.size() || launch == nullptr) return 0;
  *launch = TheState().launches[index];
  return 1;
}

FAKECUDA_API int fakecuda_TextureBinding(const char* name, FakeCUDATextureBinding* out) {
  Lock lock(TheState().mutex);
  const auto found = TheState().textureBindings.find(name != nullptr ? name : "");
  if (found == TheState().textureBindings.end() || out == nullptr) return 0;
  *out = found->second;
  return 1;
}
