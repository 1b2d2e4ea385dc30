// Textures: CUDA texture references bound to pitched device memory, OpenCL images filled from buffers. The
// two frameworks differ in kind here, so the functions ask the device which one it is; the framework calls
// are its backend's.
#include "Lumora/Textures.h"

#include <climits>
#include <cstdint>

#include "Devices/CUDABackend.h"
#include "Devices/DeviceBackend.h"
#include "ImageProcessing/KernelFamily.h"
#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"

namespace LM {

Texture LoadTexture(const boost::shared_ptr<Device>& device, const char* moduleKey, const char* textureName,
                    CUaddress_mode addressMode, CUfilter_mode filterMode, PixelFormat format) {
  Texture texture;
  if (!device || device->GetFramework() == kDeviceFramework_OpenCL || moduleKey == nullptr ||
      textureName == nullptr) {
    return texture;
  }
  DeviceBackend& backend = BackendOf(*device);
  if (void* module = device->FindModule(moduleKey)) {
    texture.textureReference =
        backend.PrepareTextureReference(module, textureName, addressMode, filterMode, format);
  }
  texture.alignment = backend.TextureAlignment();
  return texture;
}

int BindTexture(const boost::shared_ptr<Device>& device, Texture& texture, const void* base, const void* data,
                int rowBytes, int width, int height, PixelFormat format) {
  if (!device || base == nullptr || data == nullptr) return kResultFailed;
  DeviceBackend& backend = BackendOf(*device);
  if (device->GetFramework() == kDeviceFramework_OpenCL) {
    // On OpenCL base is a buffer object and only data - base means anything: the byte offset of the data
    // in it, which the copy below takes as an int.
    const std::intptr_t offset =
        reinterpret_cast<std::intptr_t>(data) - reinterpret_cast<std::intptr_t>(base);
    if (offset < 0 || offset > INT_MAX) return kResultFailed;
    boost::shared_ptr<void> image;
    const int created = backend.CreateImage(format, width, height, &image);
    if (created != kResultSuccess) return created;
    // Released with the last copy of the Texture.
    texture.imageHolder = image;
    texture.image = image.get();
    return CopyBufferToImage(device, base, static_cast<int>(offset), rowBytes, texture.image, format, width,
                             height);
  }
  if (texture.textureReference == nullptr) return kResultOutOfMemory;
  // The rows the texture will read lie inside the data's allocation.
  const int texelBytes = CUDATextureFormatOf(format).TexelBytes();
  const Operand rows = PixelOperand(data, rowBytes, texelBytes, 0, 0, width, height);
  const int checked = CheckOperands(*device, &rows, 1, kResultUnsupported);
  if (checked != kResultSuccess) return checked;
  // The driver refuses such a pitch with CUDA_ERROR_INVALID_VALUE; the caller is told why instead.
  const std::uint32_t pitchAlignment = backend.TexturePitchAlignment();
  if (rowBytes <= 0 || (pitchAlignment != 0 && static_cast<std::uint32_t>(rowBytes) % pitchAlignment != 0)) {
    return kResultUnsupported;
  }
  const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(data);
  const std::uintptr_t alignment = texture.alignment != 0 ? texture.alignment : 1;
  const std::uintptr_t aligned = address / alignment * alignment;
  texture.offset = static_cast<std::int64_t>(address - aligned);
  // The byte offset is added to the width in texels as it stands, which covers the data whatever the texel
  // size; kernels sample at x + offset / texel bytes.
  const TextureBinding binding = {reinterpret_cast<const void*>(aligned), static_cast<std::size_t>(rowBytes),
                                  static_cast<std::size_t>(texture.offset) + static_cast<std::size_t>(width),
                                  static_cast<std::size_t>(height), format};
  return backend.BindTextureReference(texture.textureReference, binding);
}

int AlignPlaneForTexture(const boost::shared_ptr<Device>& device, const void* base, const void* data,
                         int rowBytes, int width, int height, PixelFormat format, TexturePlane* plane) {
  if (!device || plane == nullptr) return kResultFailed;
  *plane = TexturePlane{base, data, rowBytes, nullptr};
  if (width <= 0 || height <= 0 || device->GetFramework() != kDeviceFramework_CUDA) return kResultSuccess;
  const long long alignment = BackendOf(*device).TexturePitchAlignment();
  if (alignment == 0) return kResultFailed;
  if (rowBytes > 0 && rowBytes % alignment == 0) return kResultSuccess;

  const int texelBytes = CUDATextureFormatOf(format).TexelBytes();
  const long long rowCopy = static_cast<long long>(width) * texelBytes;
  const long long pitch = (rowCopy + alignment - 1) / alignment * alignment;
  if (rowBytes < rowCopy || pitch > INT_MAX) return kResultFailed;
  // The rows copied lie inside the data's allocation.
  const Operand rows = PixelOperand(data, rowBytes, texelBytes, 0, 0, width, height);
  const int checked = CheckOperands(*device, &rows, 1, kResultUnsupported);
  if (checked != kResultSuccess) return checked;
  const boost::shared_ptr<MemoryManager> pool = device->GetDeviceMemory();
  const boost::shared_ptr<CommandQueue> queue = device->GetCommandQueue();
  if (!pool || !queue) return kResultFailed;
  void* scratch = pool->Allocate(static_cast<std::size_t>(pitch) * static_cast<std::size_t>(height), nullptr);
  if (scratch == nullptr) return kResultOutOfMemory;
  const int copied = BackendOf(*device).CopyRows(
      data, static_cast<std::size_t>(rowBytes), scratch, static_cast<std::size_t>(pitch),
      static_cast<std::size_t>(rowCopy), static_cast<std::size_t>(height), *queue);
  if (copied != kResultSuccess) {
    pool->Release(scratch, boost::shared_ptr<Event>());  // nothing was queued that uses it
    return copied;
  }
  *plane = TexturePlane{scratch, scratch, static_cast<int>(pitch), scratch};
  return kResultSuccess;
}

void ReleaseTexturePlane(const boost::shared_ptr<Device>& device, TexturePlane* plane,
                         const boost::shared_ptr<Event>& done) {
  if (plane == nullptr || plane->scratch == nullptr) return;
  if (device && device->GetDeviceMemory()) device->GetDeviceMemory()->Release(plane->scratch, done);
  *plane = TexturePlane{};
}

}  // namespace LM
