#include "Lumora/Device.h"

#include <HQX/Headless.h>
#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <zelcore/Utility.h>

#include "Devices/Configuration.h"
#include "Devices/DeviceImpl.h"
#include "Memory/MemoryManagers.h"
#include <CL/cl_gl.h>
#include "Queues/CUDAQueues.h"
#include "Queues/OpenCLQueues.h"
#include "Runtime/CUDADriverTable.h"
#include "Runtime/FailureReport.h"

namespace LM {

namespace {

// Flags of the CUDA context: yield while waiting, and map pinned host memory.
constexpr unsigned int kContextFlags = CU_CTX_SCHED_YIELD | CU_CTX_MAP_HOST;
constexpr std::uint64_t kHostPoolBaseCap = 10ull << 30;
// The host executor's priority value for device workers.
constexpr int kExecutorPriority = 5;

// Pool figures are products computed in single precision and truncated, as the host does with its own.
std::size_t Fraction(std::uint64_t base, float fraction) {
  return static_cast<std::size_t>(static_cast<float>(base) * fraction);
}

std::uint64_t NextContextIdentity() {
  static std::atomic<std::uint64_t> next{0};
  return ++next;
}

// The context property that names the display of the hidden OpenGL context.
#if defined(_WIN32)
constexpr cl_context_properties kOpenGLDisplayProperty = CL_WGL_HDC_KHR;
#else
constexpr cl_context_properties kOpenGLDisplayProperty = CL_EGL_DISPLAY_KHR;
#endif

// Frame-cache limit, low mark and high mark of one pool, in bytes.
struct MemoryFigures {
  std::size_t frameCacheLimit;
  std::size_t lowMark;
  std::size_t highMark;
};

// Makes the device's "device" and "host" managers on the first initialisation; later ones keep them (with
// their blocks) and hand them the new queue.
void AttachMemoryManagers(DeviceFramework framework, unsigned int ordinal, cl_context context,
                          const boost::shared_ptr<CommandQueue>& queue, const MemoryFigures& device,
                          const MemoryFigures& host, boost::shared_ptr<MemoryManager>& deviceMemory,
                          boost::shared_ptr<MemoryManager>& hostMemory) {
  const boost::weak_ptr<CommandQueue> weakQueue = queue;
  if (!deviceMemory) {
    deviceMemory = framework == kDeviceFramework_OpenCL
                       ? CreateOpenCLDeviceMemoryManager(context, "device", device.frameCacheLimit, device.lowMark,
                                                         device.highMark, ordinal, weakQueue)
                       : CreateCUDADeviceMemoryManager("device", device.frameCacheLimit, device.lowMark,
                                                       device.highMark, ordinal, weakQueue);
  } else {
    boost::static_pointer_cast<PooledMemoryManager>(deviceMemory)->SetCommandQueue(weakQueue);
  }
  if (!hostMemory) {
    hostMemory = framework == kDeviceFramework_OpenCL
                     ? CreateOpenCLHostMemoryManager("host", host.frameCacheLimit, host.lowMark, host.highMark,
                                                     ordinal, weakQueue)
                     : CreateCUDAHostMemoryManager("host", host.frameCacheLimit, host.lowMark, host.highMark,
                                                   ordinal, weakQueue);
  } else {
    boost::static_pointer_cast<PooledMemoryManager>(hostMemory)->SetCommandQueue(weakQueue);
  }
}

void PopCUDAContext() {
  CUcontext popped = nullptr;
  const CUresult result = CUDA.cuCtxPopCurrent(&popped);
  static_cast<void>(LM_CUDA_SUCCEEDED(result, "Context pop failure: "));
}

}  // namespace

Device::Device(DeviceFramework framework, unsigned int frameworkIndex, unsigned int registryIndex)
    : frameworkIndex_(frameworkIndex), registryIndex_(registryIndex), framework_(framework), impl_(new DeviceImpl) {}

Device::~Device() {
  // The last reference is gone: nothing can use the context any more. Release what lives in it, in it.
  if (impl_->cudaContext != nullptr) CUDA.cuCtxPushCurrent(impl_->cudaContext);
  commandQueue_.reset();
  deviceMemory_.reset();
  hostMemory_.reset();
  for (auto& module : impl_->modules) UnloadModule(framework_, module.second);
  impl_->modules.clear();
  if (impl_->cudaContext != nullptr) {
    PopCUDAContext();
    impl_->retiredCUDAContexts.push_back(impl_->cudaContext);
  }
  for (CUcontext context : impl_->retiredCUDAContexts) {
    const CUresult result = CUDA.cuCtxDestroy(context);
    static_cast<void>(LM_CUDA_SUCCEEDED(result, "Context destruction failure: "));
  }
  if (impl_->openCLContext != nullptr) {
    const cl_int result = clReleaseContext(impl_->openCLContext);
    static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Context release failure: "));
  }
  DestroyOffscreenGLContext(impl_->openGL);
}

std::uint64_t Device::GetContextIdentity() const { return impl_->contextIdentity.load(std::memory_order_acquire); }

void* Device::GetPlatformHandle() const { return impl_->platform; }

void* Device::GetDeviceHandle() const {
  if (framework_ == kDeviceFramework_OpenCL) return impl_->device;
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(impl_->cudaDevice));
}

void* Device::GetContextHandle() const {
  if (framework_ == kDeviceFramework_OpenCL) return impl_->openCLContext;
  return impl_->cudaContext;
}

void* Device::GetOffscreenOpenGLContextHandle() const { return impl_->openGL.renderingContext; }
void* Device::GetOffscreenOpenGLDeviceHandle() const { return impl_->openGL.deviceContext; }

boost::shared_ptr<zelcore::threads::AsyncExecutor> Device::GetExecutor() {
  boost::mutex::scoped_lock lock(impl_->executorMutex);
  if (!impl_->executor) {
    char name[32];
    std::snprintf(name, sizeof name, "GPU Executor %02u", frameworkIndex_ + 1);
    // Work on the executor takes the device's exclusive access itself when it needs the context, so its
    // thread needs no set-up of its own.
    impl_->executor = zelcore::threads::CreateAsyncThreadedExecutor(name, 1, kExecutorPriority,
                                                                    boost::function<void()>());
  }
  return impl_->executor;
}

void Device::SetExecutor(const boost::shared_ptr<zelcore::threads::AsyncExecutor>& executor) {
  boost::mutex::scoped_lock lock(impl_->executorMutex);
  impl_->executor = executor;
}

namespace {

void LockAccess(DeviceImpl& impl) {
  const std::uint64_t self = zelcore::threads::GetCurrentThreadID();
  boost::mutex::scoped_lock lock(impl.accessMutex);
  ++impl.waitingThreads;
  while (impl.recursion != 0 && impl.owner != self) impl.accessChanged.wait(lock);
  --impl.waitingThreads;
  ++impl.recursion;
  impl.owner = self;
}

void UnlockAccess(DeviceImpl& impl) {
  boost::mutex::scoped_lock lock(impl.accessMutex);
  if (impl.recursion == 0) return;  // an unmatched release
  if (--impl.recursion == 0) {
    impl.owner = 0;
    if (impl.waitingThreads != 0) impl.accessChanged.notify_all();
  }
}

}  // namespace

void Device::AcquireExclusiveAccess() {
  LockAccess(*impl_);
  if (framework_ == kDeviceFramework_CUDA && impl_->cudaContext != nullptr) {
    const CUresult result = CUDA.cuCtxPushCurrent(impl_->cudaContext);
    static_cast<void>(LM_CUDA_SUCCEEDED(result, "Context push failure: "));
  }
}

void Device::ReleaseExclusiveAccess() {
  if (framework_ == kDeviceFramework_CUDA && impl_->cudaContext != nullptr) PopCUDAContext();
  // Refreshed while this thread still owns the device, so no other owner sees the list change.
  RefreshKernelRecords();
  UnlockAccess(*impl_);
}

void Device::RefreshKernelRecords() {
  if (!impl_->HasContext()) return;
  impl_->kernelRecords = GetKernelRecords(framework_, vendor_, computeCapability_);
}

void Device::ResetDebugFlags() {
  const bool profile = ReadDebugSwitch("LM.ProfileKernels") && ReadDebugSwitch("EnableDogEars");
  const bool changed = profile != profileKernels_;
  profileKernels_ = profile;
  if (changed && contextGeneration_ != 0) {
    ShutDown(false);
    InitializeContext();
  }
}

void* Device::FindModule(std::string name) {
  const std::size_t separator = name.find_last_of("/\\");
  if (separator != std::string::npos) name.erase(0, separator + 1);
  const std::string extension = ".cpp";
  if (name.size() >= extension.size() && name.compare(name.size() - extension.size(), extension.size(), extension) == 0) {
    name.erase(name.size() - extension.size());
  }
  auto loaded = impl_->modules.find(name);
  if (loaded != impl_->modules.end()) return loaded->second;
  void* module = LoadModule(framework_, GetContextHandle(), impl_->device, vendor_, computeCapability_, name);
  if (module != nullptr) impl_->modules[name] = module;
  return module;
}

void Device::MarkContextStarting() {
  boost::mutex::scoped_lock lock(impl_->accessMutex);
  impl_->starting = true;
}

bool Device::WaitForContext() {
  boost::mutex::scoped_lock lock(impl_->accessMutex);
  while (impl_->starting) impl_->accessChanged.wait(lock);
  return impl_->HasContext();
}

void Device::InitializeContext() {
  // Creation holds exclusive access; the CUDA context it makes is current on this thread, and the release
  // at the end pops it.
  LockAccess(*impl_);
  const bool headless = HQX::GetIsHeadless();
  const bool profile = ReadDebugSwitch("LM.ProfileKernels") && ReadDebugSwitch("EnableDogEars");
  profileKernels_ = profile;
  DestroyOffscreenGLContext(impl_->openGL);
  impl_->openGL = CreateOffscreenGLContext();
  ++contextGeneration_;

  // A re-initialisation replaces the queue and the context; the old queue goes while its context is current.
  if (impl_->cudaContext != nullptr) {
    CUDA.cuCtxPushCurrent(impl_->cudaContext);
    commandQueue_.reset();
    PopCUDAContext();
    // Blocks handed out from the old context may still be in use; it is destroyed with the device.
    impl_->retiredCUDAContexts.push_back(impl_->cudaContext);
    impl_->cudaContext = nullptr;
  }
  commandQueue_.reset();

  bool created = false;
  if (framework_ == kDeviceFramework_OpenCL && impl_->openCLContext != nullptr) {
    // An OpenCL device keeps its context across re-initialisations: its pools allocate buffers and images
    // in it, and a second context would leave them unusable with the new queue.
    created = true;
  } else if (framework_ == kDeviceFramework_OpenCL) {
    cl_int result = CL_SUCCESS;
    const cl_context_properties headlessProperties[] = {
        CL_CONTEXT_PLATFORM, reinterpret_cast<cl_context_properties>(impl_->platform), 0};
    cl_context context = nullptr;
    if (!headless && impl_->openGL.renderingContext != nullptr) {
      const cl_context_properties sharedProperties[] = {
          CL_CONTEXT_PLATFORM, reinterpret_cast<cl_context_properties>(impl_->platform),
          CL_GL_CONTEXT_KHR, reinterpret_cast<cl_context_properties>(impl_->openGL.renderingContext),
          kOpenGLDisplayProperty, reinterpret_cast<cl_context_properties>(impl_->openGL.deviceContext), 0};
      // Sharing is tried first and may fail (a runtime without OpenGL interoperation): then without.
      context = clCreateContext(sharedProperties, 1, &impl_->device, nullptr, nullptr, &result);
    }
    if (context == nullptr) context = clCreateContext(headlessProperties, 1, &impl_->device, nullptr, nullptr, &result);
    if (LM_OPENCL_SUCCEEDED(result, "Context creation failure: ")) {
      impl_->openCLContext = context;
      created = true;
    }
  } else {
    CUcontext context = nullptr;
    CUresult result = CUDA_ERROR_UNKNOWN;
    // Sharing with the hidden OpenGL context is expected to fail sometimes; only the plain creation reports.
    if (!headless && CUDA.cuGLCtxCreate != nullptr) result = CUDA.cuGLCtxCreate(&context, kContextFlags, impl_->cudaDevice);
    if (result != CUDA_SUCCESS) result = CUDA.cuCtxCreate(&context, kContextFlags, impl_->cudaDevice);
    if (LM_CUDA_SUCCEEDED(result, "Context creation failure: ")) {
      impl_->cudaContext = context;
      created = true;
    }
  }

  if (created) {
    const std::uint64_t hostBase = std::min<std::uint64_t>(zelcore::utility::TotalPhysicalMemory(), kHostPoolBaseCap);
    const MemoryFigures deviceFigures = {Fraction(totalMemory_, 0.2f), Fraction(totalMemory_, headless ? 0.4f : 0.5f),
                                         Fraction(totalMemory_, headless ? 0.6f : 0.75f)};
    const MemoryFigures hostFigures = {Fraction(hostBase, 0.025f), Fraction(hostBase, 0.05f), Fraction(hostBase, 0.1f)};
    if (framework_ == kDeviceFramework_OpenCL) {
      auto queue = boost::make_shared<OpenCLCommandQueue>(impl_->openCLContext, impl_->device, profileKernels_);
      if (queue->Valid()) commandQueue_ = queue;
    } else {
      auto queue = boost::make_shared<CUDACommandQueue>();
      if (queue->Valid()) commandQueue_ = queue;
    }
    AttachMemoryManagers(framework_, frameworkIndex_, impl_->openCLContext, commandQueue_, deviceFigures,
                         hostFigures, deviceMemory_, hostMemory_);
  }
  impl_->contextIdentity.store(NextContextIdentity(), std::memory_order_release);

  ClearCurrentOpenGLContext();
  ReleaseExclusiveAccess();
  boost::mutex::scoped_lock lock(impl_->accessMutex);
  impl_->starting = false;
  impl_->accessChanged.notify_all();
}

void Device::ShutDown(bool fullRelease) {
  AcquireExclusiveAccess();
  if (impl_->HasContext()) {
    if (framework_ == kDeviceFramework_OpenCL) {
      if (commandQueue_) clFinish(static_cast<cl_command_queue>(commandQueue_->GetNativeQueue()));
    } else {
      const CUresult result = CUDA.cuCtxSynchronize();
      static_cast<void>(LM_CUDA_SUCCEEDED(result, "Context synchronization failure: "));
    }
    if (deviceMemory_) deviceMemory_->Purge(static_cast<std::size_t>(-1));
    if (hostMemory_) hostMemory_->Purge(static_cast<std::size_t>(-1));
    if (fullRelease) {
      deviceMemory_.reset();
      hostMemory_.reset();
    }
    for (auto& module : impl_->modules) UnloadModule(framework_, module.second);
    impl_->modules.clear();
  }
  // Released without the record refresh: the records go with the modules.
  if (framework_ == kDeviceFramework_CUDA && impl_->cudaContext != nullptr) PopCUDAContext();
  impl_->kernelRecords.clear();
  UnlockAccess(*impl_);
}

}  // namespace LM
