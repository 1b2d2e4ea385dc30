#include "ImageProcessing/KernelFamily.h"

namespace LM {

namespace {

constexpr int kBlockSize = 16;

// Integer division taken up to the next whole block; an extent that is not positive gives no block.
int Blocks(int extent, int block) {
  return extent > 0 ? (extent + block - 1) / block : 0;
}

}  // namespace

LaunchGeometry Blocks16x16(const Device&, int width, int height) {
  return LaunchGeometry{Blocks(width, kBlockSize), Blocks(height, kBlockSize), kBlockSize, kBlockSize};
}

LaunchGeometry RowOfBlocks32Or16(const Device& device, int width, int) {
  const int block = device.GetComputeCapability() >= 2.0 ? 32 : 16;
  const int columns = Blocks(width, 16) * 16;
  return LaunchGeometry{Blocks(columns, block), columns > 0 ? 1 : 0, block, 1};
}

void* KernelCache::Find(Device& device, const char* moduleKey, const char* kernelName) {
  if (device.GetFrameworkIndex() >= kMaximumDevicesPerFramework) return nullptr;
  Slot& slot = slots_[device.GetFramework() * kMaximumDevicesPerFramework + device.GetFrameworkIndex()];
  const std::uint64_t identity = device.GetContextIdentity();
  if (slot.identity == identity) return slot.handle;
  slot.identity = identity;
  slot.handle = nullptr;
  void* module = device.FindModule(moduleKey);
  if (module != nullptr) slot.handle = BackendOf(device).FindKernel(module, kernelName);
  return slot.handle;
}

namespace detail {

int Launch(const boost::shared_ptr<Device>& device, KernelCache& cache, const char* moduleKey,
           const char* name, const KernelFamilyOptions& options, int width, int height,
           boost::shared_ptr<Event>* done, const KernelArgument* arguments, std::size_t count) {
  if (done != nullptr) done->reset();
  void* kernel = cache.Find(*device, moduleKey, name);
  if (kernel == nullptr) return options.missingKernelResult;
  DeviceBackend& backend = BackendOf(*device);
  int result = backend.SetKernelArguments(kernel, arguments, count);
  if (result == kResultSuccess && options.preferSharedMemory && device->GetComputeCapability() >= 2.0) {
    result = backend.PreferSharedMemory(kernel);
  }
  if (result != kResultSuccess) return result;
  const boost::shared_ptr<CommandQueue> queue = device->GetCommandQueue();
  if (!queue) return kResultFailed;
  const LaunchGeometry geometry = options.geometry(*device, width, height);
  return queue->LaunchKernel(kernel, geometry.gridWidth, geometry.gridHeight, geometry.blockWidth,
                             geometry.blockHeight, done);
}

}  // namespace detail

}  // namespace LM
