#include "Lumora/Device.h"

#include <HQX/Headless.h>
#include <zelcore/Utility.h>

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <cstdio>

#include "Devices/Configuration.h"
#include "Devices/DeviceImpl.h"
#include "Runtime/FailureReport.h"

namespace LM {

namespace {

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

// Makes the device's "device" and "host" managers on the first initialisation; later ones keep them (with
// their blocks) and hand them the new queue.
void AttachMemoryManager(DeviceBackend& backend, bool deviceMemory, const char* name, unsigned int ordinal,
                         const boost::shared_ptr<CommandQueue>& queue, const PoolFigures& figures,
                         boost::shared_ptr<MemoryManager>& manager) {
  const boost::weak_ptr<CommandQueue> weakQueue = queue;
  if (!manager) {
    manager = backend.CreateMemoryManager(deviceMemory, name, figures, ordinal, weakQueue);
  } else {
    boost::static_pointer_cast<PooledMemoryManager>(manager)->SetCommandQueue(weakQueue);
  }
}

// Unloads every loaded module; one that fails to unload is kept to be tried again when the device goes.
void UnloadModules(DeviceImpl& impl) {
  for (const auto& module : impl.modules) {
    if (impl.backend->UnloadModule(module.second)) continue;
    try {
      impl.modulesToUnload.push_back(module.second);
    } catch (...) {
    }
  }
  impl.modules.clear();
}

// Whether a pool still holds memory it obtained, free or out with a caller: either may come from a context
// that a re-initialisation replaced.
bool HasBlocks(const boost::shared_ptr<MemoryManager>& manager) {
  std::size_t liveBlocks = 0;
  if (manager) manager->GetStatistics(nullptr, nullptr, &liveBlocks, nullptr, nullptr);
  return liveBlocks != 0;
}

}  // namespace

Device::Device(DeviceFramework framework, unsigned int frameworkIndex, unsigned int registryIndex,
               DeviceImpl* impl)
    : frameworkIndex_(frameworkIndex), registryIndex_(registryIndex), framework_(framework), impl_(impl) {}

Device::~Device() {
  // The last reference is gone: nothing can use the context any more. Release what lives in it, in it; the
  // backend then destroys the context.
  DeviceBackend& backend = *impl_->backend;
  const bool pushed = backend.MakeCurrent();
  commandQueue_.reset();
  deviceMemory_.reset();
  hostMemory_.reset();
  UnloadModules(*impl_);
  for (void* module : impl_->modulesToUnload) static_cast<void>(backend.UnloadModule(module));
  if (pushed) backend.ReleaseCurrent();
  impl_->backend.reset();
  DestroyOffscreenGLContext(impl_->openGL);
}

DeviceBackend& BackendOf(const Device& device) {
  return *device.impl_->backend;
}

std::uint64_t Device::GetContextIdentity() const {
  return impl_->contextIdentity.load(std::memory_order_acquire);
}

void* Device::GetPlatformHandle() const {
  return impl_->backend->PlatformHandle();
}
void* Device::GetDeviceHandle() const {
  return impl_->backend->DeviceHandle();
}
void* Device::GetContextHandle() const {
  return impl_->backend->ContextHandle();
}

void* Device::GetOffscreenOpenGLContextHandle() const {
  return impl_->openGL.renderingContext;
}
void* Device::GetOffscreenOpenGLDeviceHandle() const {
  return impl_->openGL.deviceContext;
}

// Empty when the executor cannot be made (no thread to be had); a later call tries again.
boost::shared_ptr<zelcore::threads::AsyncExecutor> Device::GetExecutor() try {
  boost::mutex::scoped_lock lock(impl_->executorMutex);
  if (!impl_->executor) {
    char name[32];
    std::snprintf(name, sizeof name, "GPU Executor %02u", frameworkIndex_ + 1);
    // Work on the executor takes the device's exclusive access itself when it needs the context, so its
    // thread needs no set-up of its own.
    impl_->executor =
        zelcore::threads::CreateAsyncThreadedExecutor(name, 1, kExecutorPriority, boost::function<void()>());
  }
  return impl_->executor;
} catch (...) {
  return boost::shared_ptr<zelcore::threads::AsyncExecutor>();
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
  if (impl.recursion == 0) return;
  if (--impl.recursion == 0) {
    impl.owner = 0;
    if (impl.waitingThreads != 0) impl.accessChanged.notify_all();
  }
}

bool HoldsAccess(DeviceImpl& impl) {
  const std::uint64_t self = zelcore::threads::GetCurrentThreadID();
  boost::mutex::scoped_lock lock(impl.accessMutex);
  return impl.recursion != 0 && impl.owner == self;
}

// Records whether this level of the owner's recursion pushed the context. Without room to record it, the
// push is undone at once and the level counts as not pushed: the release then pops nothing either.
void RecordPush(DeviceImpl& impl, bool pushed) {
  try {
    impl.pushed.push_back(pushed);
  } catch (...) {
    if (pushed) impl.backend->ReleaseCurrent();
  }
}

// Pops the context if this level pushed it. Levels without a record (see RecordPush) pushed nothing.
void UndoPush(DeviceImpl& impl) {
  if (impl.pushed.size() != impl.recursion) return;
  const bool pushed = impl.pushed.back();
  impl.pushed.pop_back();
  if (pushed) impl.backend->ReleaseCurrent();
}

}  // namespace

void Device::AcquireExclusiveAccess() {
  try {
    LockAccess(*impl_);
  } catch (...) {
    return;  // the lock itself failed (boost::lock_error); the release that matches is then refused
  }
  RecordPush(*impl_, impl_->backend->MakeCurrent());
}

void Device::ReleaseExclusiveAccess() {
  ReleaseAccess(true);
}

// Only the owner may release: a release from another thread would let a third thread in while the owner
// still works, so it is refused and reported.
void Device::ReleaseAccess(bool refreshRecords) {
  try {
    if (!HoldsAccess(*impl_)) {
      ReportFailure(LM_SITE_SILENCE_FLAG(), "owner == this thread",
                    "Exclusive access released by a thread that does not hold it", SourceName(__FILE__),
                    __LINE__, "LM::Device::ReleaseExclusiveAccess");
      return;
    }
    UndoPush(*impl_);
    // Refreshed while this thread still owns the device, so no other owner sees the list change. A refresh
    // that fails (out of memory) keeps the old records.
    if (refreshRecords) RefreshKernelRecords();
  } catch (...) {
  }
  // A release never throws, since scope guards call it.
  try {
    UnlockAccess(*impl_);
  } catch (...) {
  }
}

void Device::RefreshKernelRecords() {
  if (GetContextHandle() == nullptr) return;
  impl_->kernelRecords = GetKernelRecords(framework_, vendor_, computeCapability_);
}

// Reading a switch allocates; a failure keeps the flags as they were.
void Device::ResetDebugFlags() try {
  checkBufferBounds_ = ReadDebugSwitch("LM.CheckBufferBounds", kCheckBufferBoundsByDefault);
  const bool profile = ReadDebugSwitch("LM.ProfileKernels") && ReadDebugSwitch("EnableDogEars");
  const bool changed = profile != profileKernels_;
  profileKernels_ = profile;
  if (changed && contextGeneration_ != 0) {
    ShutDown(false);
    InitializeContext();
  }
} catch (...) {
}

void* Device::FindModule(std::string name) {
  try {
    return LoadModuleNamed(std::move(name));
  } catch (...) {
    return nullptr;  // out of memory for the name or the image
  }
}

void* Device::LoadModuleNamed(std::string name) {
  const std::size_t separator = name.find_last_of("/\\");
  if (separator != std::string::npos) name.erase(0, separator + 1);
  const std::string extension = ".cpp";
  if (name.size() >= extension.size() &&
      name.compare(name.size() - extension.size(), extension.size(), extension) == 0) {
    name.erase(name.size() - extension.size());
  }
  auto loaded = impl_->modules.find(name);
  if (loaded != impl_->modules.end()) return loaded->second;
  // The image is copied out so that the registry's lock is not held while the module compiles. A name
  // without an image, or with an empty one, gives null without a message.
  std::string image;
  if (!LookUpModuleImage(framework_, vendor_, computeCapability_, name, image) || image.empty())
    return nullptr;
  void* module = impl_->backend->LoadModule(name, image);
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
  return GetContextHandle() != nullptr;
}

// Creation holds exclusive access throughout. Whatever happens inside, the guard releases it and tells
// WaitForContext that the start has finished, so a failure can neither hang the host nor leave the device
// locked.
void Device::InitializeContext() {
  AcquireExclusiveAccess();
  struct Finish {
    Device& device;
    ~Finish() {
      try {
        ClearCurrentOpenGLContext();
      } catch (...) {
      }
      device.ReleaseAccess(true);
      try {
        boost::mutex::scoped_lock lock(device.impl_->accessMutex);
        device.impl_->starting = false;
        device.impl_->accessChanged.notify_all();
      } catch (...) {
      }
    }
  } finish{*this};
  try {
    const bool headless = HQX::GetIsHeadless();
    profileKernels_ = ReadDebugSwitch("LM.ProfileKernels") && ReadDebugSwitch("EnableDogEars");
    checkBufferBounds_ = ReadDebugSwitch("LM.CheckBufferBounds", kCheckBufferBoundsByDefault);
    DestroyOffscreenGLContext(impl_->openGL);
    impl_->openGL = CreateOffscreenGLContext();
    ++contextGeneration_;

    // A re-initialisation replaces the queue and (on CUDA) the context; the old queue goes while its
    // context is current. The new context then takes the old one's place for this level of exclusive
    // access, and the release undoes that.
    commandQueue_.reset();
    UndoPush(*impl_);
    DeviceBackend& backend = *impl_->backend;
    const bool created = backend.CreateContext(impl_->openGL, headless);
    RecordPush(*impl_, backend.MakeCurrent());
    if (created) {
      const std::uint64_t hostBase =
          std::min<std::uint64_t>(zelcore::utility::TotalPhysicalMemory(), kHostPoolBaseCap);
      const PoolFigures deviceFigures = {Fraction(totalMemory_, 0.2f),
                                         Fraction(totalMemory_, headless ? 0.4f : 0.5f),
                                         Fraction(totalMemory_, headless ? 0.6f : 0.75f)};
      const PoolFigures hostFigures = {Fraction(hostBase, 0.025f), Fraction(hostBase, 0.05f),
                                       Fraction(hostBase, 0.1f)};
      commandQueue_ = backend.CreateCommandQueue(profileKernels_);
      AttachMemoryManager(backend, true, "device", frameworkIndex_, commandQueue_, deviceFigures,
                          deviceMemory_);
      AttachMemoryManager(backend, false, "host", frameworkIndex_, commandQueue_, hostFigures, hostMemory_);
      backend.ReleaseRetiredContexts(HasBlocks(deviceMemory_) || HasBlocks(hostMemory_));
    }
  } catch (...) {
    // Out of memory part-way: the device keeps what was made so far, under a new identity below.
  }
  impl_->contextIdentity.store(NextContextIdentity(), std::memory_order_release);
}

void Device::ShutDown(bool fullRelease) {
  // Held for the whole shut-down and released without the record refresh: the records go with the modules.
  AcquireExclusiveAccess();
  struct Release {
    Device& device;
    ~Release() { device.ReleaseAccess(false); }
  } release{*this};
  DeviceBackend& backend = *impl_->backend;
  if (GetContextHandle() != nullptr) {
    // A failed finish is reported by the backend; the shut-down goes on, since the host is leaving. The
    // purges call the pools' purge callbacks (host code among them) under exclusive access, as they must:
    // the pools are guarded by it. A callback may take the access again, since it is recursive per thread.
    static_cast<void>(backend.Finish(commandQueue_.get()));
    if (deviceMemory_) deviceMemory_->Purge(static_cast<std::size_t>(-1));
    if (hostMemory_) hostMemory_->Purge(static_cast<std::size_t>(-1));
    if (fullRelease) {
      deviceMemory_.reset();
      hostMemory_.reset();
    }
    UnloadModules(*impl_);
    // Kernel caches key on the identity: a new one makes every cached kernel of the unloaded modules stale,
    // so the next operation loads its module again instead of launching a function that no longer exists.
    impl_->contextIdentity.store(NextContextIdentity(), std::memory_order_release);
  }
  impl_->kernelRecords.clear();
}

}  // namespace LM
