// Textures: CUDA texture references bound to pitched device memory, OpenCL images filled from buffers.
#include "Lumora/Textures.h"

#include <climits>
#include <cstdint>

#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "Memory/OpenCLMemoryPolicies.h"
#include "Runtime/CUDADriverTable.h"
#include "Runtime/OpenCLEntryPoints.h"
#include "Runtime/ResultMapping.h"

namespace LM {

namespace {

struct TextureFormat {
  CUarray_format format;
  unsigned int channels;
};

// The texture format of a property word: with the float bit, kind 3 is half and any other kind float;
// without it, kind 0 is 8-bit and kind 3 16-bit unsigned, any other kind float. Packed and planar layouts
// are read one channel at a time.
TextureFormat TextureFormatOf(PixelFormat format) {
  const std::uint32_t word = format.properties;
  const std::uint32_t kind = (word >> 1) & 7u;
  const bool isFloat = (word & 0x10u) != 0;
  CUarray_format arrayFormat = CU_AD_FORMAT_FLOAT;
  if (isFloat) {
    if (kind == 3) arrayFormat = CU_AD_FORMAT_HALF;
  } else if (kind == 0) {
    arrayFormat = CU_AD_FORMAT_UNSIGNED_INT8;
  } else if (kind == 3) {
    arrayFormat = CU_AD_FORMAT_UNSIGNED_INT16;
  }
  return TextureFormat{arrayFormat, (word & 0xC00u) != 0 ? 1u : 4u};
}

int TexelBytes(const TextureFormat& format) {
  const int channelBytes = format.format == CU_AD_FORMAT_UNSIGNED_INT8                                 ? 1
                           : format.format == CU_AD_FORMAT_UNSIGNED_INT16 || format.format == CU_AD_FORMAT_HALF ? 2
                                                                                                         : 4;
  return channelBytes * static_cast<int>(format.channels);
}

CUdevice CUDADeviceOf(const Device& device) {
  return static_cast<CUdevice>(reinterpret_cast<std::intptr_t>(device.GetDeviceHandle()));
}

// The pitch that the device's texture hardware binds rows at, in bytes; 0 when the driver does not say.
int TexturePitchAlignment(const Device& device) {
  int alignment = 0;
  if (CUDA.cuDeviceGetAttribute(&alignment, CU_DEVICE_ATTRIBUTE_TEXTURE_PITCH_ALIGNMENT, CUDADeviceOf(device)) !=
      CUDA_SUCCESS) {
    return 0;
  }
  return alignment > 0 ? alignment : 0;
}

}  // namespace

Texture LoadTexture(const boost::shared_ptr<Device>& device, const char* moduleKey, const char* textureName,
                    CUaddress_mode addressMode, CUfilter_mode filterMode, PixelFormat format) {
  Texture texture;
  if (!device || device->GetFramework() == kDeviceFramework_OpenCL || moduleKey == nullptr || textureName == nullptr) {
    return texture;
  }
  void* module = device->FindModule(moduleKey);
  CUtexref reference = nullptr;
  if (module != nullptr && CUDA.cuModuleGetTexRef(&reference, static_cast<CUmodule>(module), textureName) == CUDA_SUCCESS) {
    // Set up as 32-bit float even for half data; binding then describes the memory as half. Kernels read
    // floats either way.
    TextureFormat setUp = TextureFormatOf(format);
    if (setUp.format == CU_AD_FORMAT_HALF) setUp.format = CU_AD_FORMAT_FLOAT;
    const bool prepared = CUDA.cuTexRefSetAddressMode(reference, 0, addressMode) == CUDA_SUCCESS &&
                          CUDA.cuTexRefSetAddressMode(reference, 1, addressMode) == CUDA_SUCCESS &&
                          CUDA.cuTexRefSetFilterMode(reference, filterMode) == CUDA_SUCCESS &&
                          CUDA.cuTexRefSetFormat(reference, setUp.format, static_cast<int>(setUp.channels)) ==
                              CUDA_SUCCESS;
    if (prepared) texture.textureReference = reference;
  }
  int alignment = 0;
  if (CUDA.cuDeviceGetAttribute(&alignment, CU_DEVICE_ATTRIBUTE_TEXTURE_ALIGNMENT, CUDADeviceOf(*device)) ==
          CUDA_SUCCESS &&
      alignment > 0) {
    texture.alignment = static_cast<std::uint32_t>(alignment);
  }
  return texture;
}

int BindTexture(const boost::shared_ptr<Device>& device, Texture& texture, const void* base, const void* data,
                int rowBytes, int width, int height, PixelFormat format) {
  if (!device) return kResultFailed;
  if (device->GetFramework() == kDeviceFramework_OpenCL) {
    if (width <= 0 || height <= 0) return kResultFailed;
    const cl_image_format imageFormat = OpenCLImageFormatFor(format);
    cl_int result = CL_SUCCESS;
    cl_mem image = clCreateImage2D(static_cast<cl_context>(device->GetContextHandle()), CL_MEM_READ_WRITE,
                                   &imageFormat, static_cast<std::size_t>(width), static_cast<std::size_t>(height), 0,
                                   nullptr, &result);
    if (result != CL_SUCCESS) return MapOpenCLResult(result);
    // Released with the last copy of the Texture; work already queued on it keeps it alive until it ends.
    texture.imageHolder.reset(image, [](void* held) { clReleaseMemObject(static_cast<cl_mem>(held)); });
    texture.image = image;
    const int offset = static_cast<int>(static_cast<const char*>(data) - static_cast<const char*>(base));
    return CopyBufferToImage(device, base, offset, rowBytes, image, format, width, height);
  }
  if (texture.textureReference == nullptr) return kResultOutOfMemory;
  // The driver refuses such a pitch with CUDA_ERROR_INVALID_VALUE; the caller is told why instead.
  const int pitchAlignment = TexturePitchAlignment(*device);
  if (rowBytes <= 0 || (pitchAlignment != 0 && rowBytes % pitchAlignment != 0)) return kResultUnsupported;
  const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(data);
  const std::uintptr_t alignment = texture.alignment != 0 ? texture.alignment : 1;
  const std::uintptr_t aligned = address / alignment * alignment;
  texture.offset = static_cast<std::int64_t>(address - aligned);
  const TextureFormat bound = TextureFormatOf(format);
  CUDA_ARRAY_DESCRIPTOR descriptor = {};
  // The byte offset is added to the width in texels as it stands, which covers the data whatever the texel
  // size; kernels sample at x + offset / texel bytes.
  descriptor.Width = static_cast<std::size_t>(texture.offset) + static_cast<std::size_t>(width);
  descriptor.Height = static_cast<std::size_t>(height);
  descriptor.Format = bound.format;
  descriptor.NumChannels = bound.channels;
  const CUresult result = CUDA.cuTexRefSetAddress2D(static_cast<CUtexref>(texture.textureReference), &descriptor,
                                                    aligned, static_cast<std::size_t>(rowBytes));
  return MapCUDAResult(result);
}

int AlignPlaneForTexture(const boost::shared_ptr<Device>& device, const void* base, const void* data, int rowBytes,
                         int width, int height, PixelFormat format, TexturePlane* plane) {
  if (!device || plane == nullptr) return kResultFailed;
  *plane = TexturePlane{base, data, rowBytes, nullptr};
  if (width <= 0 || height <= 0 || device->GetFramework() != kDeviceFramework_CUDA) return kResultSuccess;
  const int alignment = TexturePitchAlignment(*device);
  if (alignment == 0) return kResultFailed;
  if (rowBytes > 0 && rowBytes % alignment == 0) return kResultSuccess;

  const long long rowCopy = static_cast<long long>(width) * TexelBytes(TextureFormatOf(format));
  const long long pitch = (rowCopy + alignment - 1) / alignment * alignment;
  if (rowBytes < rowCopy || pitch > INT_MAX) return kResultFailed;
  const boost::shared_ptr<MemoryManager> pool = device->GetDeviceMemory();
  const boost::shared_ptr<CommandQueue> queue = device->GetCommandQueue();
  if (!pool || !queue) return kResultFailed;
  void* scratch = pool->Allocate(static_cast<std::size_t>(pitch) * static_cast<std::size_t>(height), nullptr);
  if (scratch == nullptr) return kResultOutOfMemory;

  CUDA_MEMCPY2D copy = {};
  copy.srcMemoryType = CU_MEMORYTYPE_DEVICE;
  copy.srcDevice = reinterpret_cast<std::uintptr_t>(data);
  copy.srcPitch = static_cast<std::size_t>(rowBytes);
  copy.dstMemoryType = CU_MEMORYTYPE_DEVICE;
  copy.dstDevice = reinterpret_cast<std::uintptr_t>(scratch);
  copy.dstPitch = static_cast<std::size_t>(pitch);
  copy.WidthInBytes = static_cast<std::size_t>(rowCopy);
  copy.Height = static_cast<std::size_t>(height);
  const CUresult result = CUDA.cuMemcpy2DAsync(&copy, static_cast<CUstream>(queue->GetNativeQueue()));
  if (result != CUDA_SUCCESS) {
    pool->Release(scratch, boost::shared_ptr<Event>());  // nothing was queued that uses it
    return MapCUDAResult(result);
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
