#include "ImageProcessing/KernelFamily.h"

#include <climits>
#include <string>

#include "Modules/ModuleRegistry.h"
#include "Runtime/FailureReport.h"

namespace LM {

namespace {

constexpr int kBlockSize = 16;

// Whole blocks over an extent, the last one partly used; an extent that is not positive gives no block.
// Written so that no extent up to INT_MAX overflows.
int Blocks(int extent, int block) {
  return extent > 0 ? extent / block + (extent % block != 0 ? 1 : 0) : 0;
}

// Whether a grid's threads can all be numbered with an int, as the kernels number them.
bool ThreadsFitAnInt(const LaunchGeometry& geometry) {
  return (geometry.blockWidth <= 0 || geometry.gridWidth <= INT_MAX / geometry.blockWidth) &&
         (geometry.blockHeight <= 0 || geometry.gridHeight <= INT_MAX / geometry.blockHeight);
}

bool IsEmpty(const Operand& operand) {
  return operand.width <= 0 || operand.height <= 0;
}

// The shape alone: a position inside the object's rows and every index within an int. The pitch of a
// buffer must hold its rows, so that no row runs into the next.
bool ShapeIsWhole(const Operand& operand) {
  if (operand.left < 0 || operand.top < 0 || operand.offset < 0) return false;
  if (operand.kind == Operand::Kind::kImage) return operand.width <= INT_MAX && operand.height <= INT_MAX;
  const long long rowEnd = (operand.left + operand.width) * operand.elementBytes;
  if (operand.pitch < rowEnd) return false;
  // The end of the last row, kept within the bytes that int indexes can reach: each term is bounded
  // before the sum is taken, so nothing here overflows.
  const long long limit = (static_cast<long long>(INT_MAX) + 1) * operand.indexBytes;
  const long long rowsBefore = operand.top + operand.height - 1;
  // Below 2^32 rows of 2^31 bytes the product cannot overflow; only larger values need the division.
  const bool small = rowsBefore < (1LL << 32) && operand.pitch < (1LL << 31);
  if (!small && operand.pitch > 0 && rowsBefore > limit / operand.pitch) return false;
  const long long end = operand.offset + rowsBefore * operand.pitch + rowEnd;
  return end <= limit;
}

// The operand against what the framework knows of its object. Nothing known, nothing refused: mapped host
// memory, for one, has no size the framework reports.
bool FitsItsObject(DeviceBackend& backend, const Operand& operand) {
  const MemoryObjectInfo info = backend.DescribeMemory(operand.object);
  switch (info.kind) {
    case MemoryObjectInfo::Kind::kUnknown:
      return true;
    case MemoryObjectInfo::Kind::kBuffer:
      if (operand.kind != Operand::Kind::kBuffer) return false;
      return IsEmpty(operand) || static_cast<unsigned long long>(
                                     operand.offset + (operand.top + operand.height - 1) * operand.pitch +
                                     (operand.left + operand.width) * operand.elementBytes) <= info.bytes;
    case MemoryObjectInfo::Kind::kImage:
      if (operand.kind != Operand::Kind::kImage) return false;
      return IsEmpty(operand) || (static_cast<unsigned long long>(operand.width) <= info.width &&
                                  static_cast<unsigned long long>(operand.height) <= info.height &&
                                  static_cast<std::size_t>(operand.elementBytes) == info.elementBytes);
  }
  return false;
}

}  // namespace

Operand PixelOperand(const void* buffer, long long rowBytes, int elementBytes, long long left, long long top,
                     long long width, long long height, long long offset) {
  // Element sizes are powers of two but for packed host formats; a mask then drops the remainder (a
  // negative pitch stays negative and is refused).
  const long long pitch = elementBytes <= 0                          ? rowBytes
                          : (elementBytes & (elementBytes - 1)) == 0 ? rowBytes & ~(elementBytes - 1LL)
                                                                     : rowBytes / elementBytes * elementBytes;
  return Operand{buffer, Operand::Kind::kBuffer, elementBytes, elementBytes, offset, pitch, left, top, width,
                 height};
}

Operand ImageOperand(const void* image, int elementBytes, long long width, long long height) {
  return Operand{image, Operand::Kind::kImage, elementBytes, elementBytes, 0, 0, 0, 0, width, height};
}

int CheckOperands(Device& device, const Operand* operands, std::size_t count, int refusedFormatResult) {
  for (std::size_t i = 0; i < count; ++i) {
    if (operands[i].object == nullptr) return kResultFailed;
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (operands[i].elementBytes <= 0) return refusedFormatResult;
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (!IsEmpty(operands[i]) && !ShapeIsWhole(operands[i])) return kResultFailed;
  }
  if (!device.ChecksBufferBounds()) return kResultSuccess;
  DeviceBackend& backend = BackendOf(device);
  for (std::size_t i = 0; i < count; ++i) {
    if (!FitsItsObject(backend, operands[i])) return kResultFailed;
  }
  return kResultSuccess;
}

LaunchGeometry Blocks16x16(const Device&, int width, int height) {
  return LaunchGeometry{Blocks(width, kBlockSize), Blocks(height, kBlockSize), kBlockSize, kBlockSize};
}

LaunchGeometry RowOfBlocks32Or16(const Device& device, int width, int) {
  const int block = device.GetComputeCapability() >= 2.0 ? 32 : 16;
  const long long columns = static_cast<long long>(Blocks(width, 16)) * 16;
  const int blocks = static_cast<int>(columns / block + (columns % block != 0 ? 1 : 0));
  return LaunchGeometry{blocks, columns > 0 ? 1 : 0, block, 1};
}

// The lookup runs once per context and kernel: a kernel that cannot be had is reported then, through the
// trace, with what a host developer needs to find out why (a kernel library not linked, a PTX folder not
// installed beside the program).
void* KernelCache::Find(Device& device, const char* moduleKey, const char* kernelName) {
  if (device.GetFrameworkIndex() >= kMaximumDevicesPerFramework) return nullptr;
  Slot& slot = slots_[device.GetFramework() * kMaximumDevicesPerFramework + device.GetFrameworkIndex()];
  const std::uint64_t identity = device.GetContextIdentity();
  if (slot.identity == identity) return slot.handle;
  slot.identity = identity;
  slot.handle = nullptr;
  void* module = device.FindModule(moduleKey);
  if (module != nullptr) slot.handle = BackendOf(device).FindKernel(module, kernelName);
  if (slot.handle == nullptr) {
    TraceLumora(std::string(module == nullptr ? "Module " : "Kernel ") + kernelName + " of module " +
                detail::ModuleNameOfKey(moduleKey) + (module == nullptr ? " (module not loaded)" : "") +
                " is missing on " + device.GetName() + ": looked in " +
                ModuleSearchPlace(device.GetFramework(), device.GetComputeCapability()));
  }
  return slot.handle;
}

Texture TextureCache::Find(const boost::shared_ptr<Device>& device, PixelFormat format) {
  if (!device || device->GetFrameworkIndex() >= kMaximumDevicesPerFramework) return Texture{};
  Slot& slot = slots_[device->GetFramework() * kMaximumDevicesPerFramework + device->GetFrameworkIndex()];
  const std::uint64_t identity = device->GetContextIdentity();
  if (slot.identity != identity) {
    slot.identity = identity;
    slot.texture =
        LoadTexture(device, moduleKey_, name_, CU_TR_ADDRESS_MODE_CLAMP, CU_TR_FILTER_MODE_POINT, format);
  }
  return slot.texture;
}

namespace detail {

int Launch(const boost::shared_ptr<Device>& device, KernelCache& cache, const char* moduleKey,
           const char* name, const KernelFamilyOptions& options, int width, int height,
           boost::shared_ptr<Event>* done, const Operands& operands, const KernelArgument* arguments,
           std::size_t count) {
  if (done != nullptr) done->reset();
  if (!device) return kResultFailed;
  // A buffer or image argument that no operand describes is still never null. Image arguments exist on
  // OpenCL only: a CUDA kernel samples a texture reference instead and gets nothing.
  const bool images = device->GetFramework() == kDeviceFramework_OpenCL;
  for (std::size_t i = 0; i < count; ++i) {
    const KernelParameterKind kind = arguments[i].kind;
    const bool object =
        kind == KernelParameterKind::kDevicePointer || (images && kind == KernelParameterKind::kImage);
    if (object && arguments[i].pointer == nullptr) return kResultFailed;
  }
  const int checked = CheckOperands(*device, operands.begin(), operands.size(), options.refusedFormatResult);
  if (checked != kResultSuccess) return checked;
  const LaunchGeometry geometry = options.geometry(*device, width, height);
  if (!ThreadsFitAnInt(geometry)) return kResultFailed;

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
  return queue->LaunchKernel(kernel, geometry.gridWidth, geometry.gridHeight, geometry.blockWidth,
                             geometry.blockHeight, done);
}

}  // namespace detail

}  // namespace LM
