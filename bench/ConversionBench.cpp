// The 4K conversions of the bandwidth benchmarks, and the ceiling kernels of the conversions and of the
// composite (kernels/BenchCeiling.cl), which launch with their operation's parameters, geometry and texture
// bindings, so that the two differ only in what the kernel does with the values.
#include <zelmediatypes/PixelFormats.h>

#include "BenchCeilingKernels.h"
#include "DeviceBench.h"
#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/PixelFormatConvertKernels.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "Lumora/Textures.h"

namespace {

namespace zmt = zelmediatypes;

constexpr int kUYVYRowBytes = kFrameWidth * 2;
constexpr int kV210RowBytes = (kFrameWidth + 47) / 48 * 128;
constexpr LM::PixelFormat kPlanar = zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601;

LM::TextureCache yTexture("BenchCeiling", "inYPlaneTexture");
LM::TextureCache uTexture("BenchCeiling", "inFrameCodedUPlaneTexture");
LM::TextureCache vTexture("BenchCeiling", "inFrameCodedVPlaneTexture");

int LaunchPacked(const boost::shared_ptr<LM::Device>& device, std::size_t variant, int gridWidth,
                 const void* src, int srcRowBytes, int srcUnit, void* dst, int dstRowBytes, int dstUnit) {
  return packedCeilingKernels.Launch(device, variant, gridWidth, kFrameHeight, nullptr, {},
                                     LM::DevicePointer{src}, srcRowBytes / srcUnit, 1, LM::DevicePointer{dst},
                                     dstRowBytes / dstUnit, 1, kFrameWidth, kFrameHeight, 0);
}

}  // namespace

const std::size_t kUYVYTo32fBytes = kFrameBytes + std::size_t(kUYVYRowBytes) * kFrameHeight;
const std::size_t k32fToV210Bytes = kFrameBytes + std::size_t(kV210RowBytes) * kFrameHeight;
const std::size_t k420To32fBytes = kFrameBytes + std::size_t(kFrameWidth) * kFrameHeight * 3 / 2;

int ConvertUYVYTo32f(const boost::shared_ptr<LM::Device>& device, void* source, void* destination) {
  return LM::PixelFormatConvert(device, source, kUYVYRowBytes, zmt::kPixelFormat_UYVY_422_8u, destination,
                                kFrameRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, kFrameWidth, kFrameHeight,
                                false);
}
int CeilingUYVYTo32f(const boost::shared_ptr<LM::Device>& device, void* source, void* destination) {
  return LaunchPacked(device, 0, kFrameWidth / 2, source, kUYVYRowBytes, 4, destination, kFrameRowBytes, 16);
}

int Convert32fToV210(const boost::shared_ptr<LM::Device>& device, void* source, void* destination) {
  return LM::PixelFormatConvert(device, source, kFrameRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f,
                                destination, kV210RowBytes, zmt::kPixelFormat_V210_422_10u, kFrameWidth,
                                kFrameHeight, false);
}
int Ceiling32fToV210(const boost::shared_ptr<LM::Device>& device, void* source, void* destination) {
  return LaunchPacked(device, 1, (kFrameWidth + 5) / 6, source, kFrameRowBytes, 16, destination,
                      kV210RowBytes, 16);
}

int Convert420To32f(const boost::shared_ptr<LM::Device>& device, void* source, void* destination) {
  return LM::PixelFormatConvert(device, source, kFrameWidth, kPlanar, destination, kFrameRowBytes,
                                LM::kPixelFormat_GPU_BGRA_4444_32f, kFrameWidth, kFrameHeight, false);
}
// The conversion's bindings: each plane at its own pitch, which the 4K planes' pitches allow as they are.
int Ceiling420To32f(const boost::shared_ptr<LM::Device>& device, void* source, void* destination) {
  const char* planes = static_cast<const char*>(source);
  const int chromaWidth = kFrameWidth / 2, chromaRows = kFrameHeight / 2;
  const char* u = planes + std::size_t(kFrameWidth) * kFrameHeight;
  const char* v = u + std::size_t(chromaWidth) * chromaRows;
  LM::Texture y = yTexture.Find(device, kPlanar), cb = uTexture.Find(device, kPlanar),
              cr = vTexture.Find(device, kPlanar);
  int result = LM::BindTexture(device, y, planes, planes, kFrameWidth, kFrameWidth, kFrameHeight, kPlanar);
  if (result == LM::kResultSuccess) {
    result = LM::BindTexture(device, cb, planes, u, chromaWidth, chromaWidth, chromaRows, kPlanar);
  }
  if (result == LM::kResultSuccess) {
    result = LM::BindTexture(device, cr, planes, v, chromaWidth, chromaWidth, chromaRows, kPlanar);
  }
  if (result != LM::kResultSuccess) return result;
  return planarCeilingKernel.Launch(
      device, 0, kFrameWidth, kFrameHeight, nullptr, {}, LM::ImageObject{y.image}, LM::ImageObject{cb.image},
      LM::ImageObject{cr.image}, static_cast<int>(y.offset), static_cast<int>(cb.offset),
      static_cast<int>(cr.offset), LM::DevicePointer{destination}, kFrameRowBytes / 16, 1, kFrameWidth,
      kFrameHeight, 0);
}

int CeilingComposite(const boost::shared_ptr<LM::Device>& device, void* source, void* second,
                     void* destination) {
  return compositeCeilingKernel.Launch(device, 0, kFrameWidth, kFrameHeight, nullptr, {},
                                       LM::DevicePointer{source}, kFrameWidth, LM::DevicePointer{second},
                                       kFrameWidth, LM::DevicePointer{destination}, kFrameWidth, 1,
                                       kFrameWidth, kFrameHeight, 0.75f, 0);
}

int CeilingGaussianBlur(const boost::shared_ptr<LM::Device>& device, void* source, void*, void* destination) {
  void* middle = device->GetDeviceMemory()->Allocate(kFrameBytes, nullptr);
  if (middle == nullptr) return LM::kResultOutOfMemory;
  int result = LM::kResultSuccess;
  const void* from = source;
  void* to = middle;
  for (const std::size_t variant : {std::size_t{1}, std::size_t{0}}) {  // columns, then rows
    if (result == LM::kResultSuccess) {
      result = gaussianCeilingKernels.Launch(device, variant, variant == 1 ? kFrameWidth : kFrameHeight, 1,
                                             nullptr, {}, LM::DevicePointer{from}, kFrameWidth, kFrameWidth,
                                             kFrameHeight, LM::DevicePointer{to}, kFrameWidth, kFrameWidth,
                                             kFrameHeight, 0, 0, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0);
    }
    from = middle;
    to = destination;
  }
  device->GetDeviceMemory()->Release(middle, device->GetCommandQueue()->RecordEvent());
  return result;
}

namespace {
constexpr int kHDWidth = 1920, kHDHeight = 1080, kHDRowBytes = kHDWidth * 16;
LM::TextureCache deinterlaceCeilingTexture("BenchCeiling", "inDeinterlaceTexture");
}  // namespace

const std::size_t kScaleBytes = std::size_t(kHDRowBytes) * kHDHeight + kFrameBytes;
const std::size_t kDeinterlaceBytes = 2 * std::size_t(kHDRowBytes) * kHDHeight;

int ScaleUp(const boost::shared_ptr<LM::Device>& device, void* source, void*, void* destination) {
  return LM::Scale(device, source, kHDRowBytes, kHDWidth, kHDHeight, destination, kFrameRowBytes, kFrameWidth,
                   kFrameHeight, LM::kPixelFormat_GPU_BGRA_4444_32f, zelmediatypes::kRenderQuality_High);
}
int CeilingScale(const boost::shared_ptr<LM::Device>& device, void* source, void*, void* destination) {
  return scaleCeilingKernel.Launch(device, 0, kFrameWidth, kFrameHeight, nullptr, {},
                                   LM::DevicePointer{source}, kHDWidth, kHDWidth, kHDHeight,
                                   LM::DevicePointer{destination}, kFrameWidth, kFrameWidth, kFrameHeight, 1,
                                   0.5f, 0.0f, 0.0f, 0.0f, 0.5f, 0.0f);
}
int DeinterlaceHD(const boost::shared_ptr<LM::Device>& device, void* source, void*, void* destination) {
  return LM::Deinterlace(device, source, kHDRowBytes, destination, kHDRowBytes,
                         LM::kPixelFormat_GPU_BGRA_4444_32f, kHDWidth, kHDHeight, 0,
                         LM::kDeinterlace_EdgeDirected);
}
int CeilingDeinterlace(const boost::shared_ptr<LM::Device>& device, void* source, void*, void* destination) {
  LM::Texture texture = deinterlaceCeilingTexture.Find(device, LM::kPixelFormat_GPU_BGRA_4444_32f);
  const int bound = LM::BindTexture(device, texture, source, source, kHDRowBytes, kHDWidth, kHDHeight,
                                    LM::kPixelFormat_GPU_BGRA_4444_32f);
  if (bound != LM::kResultSuccess) return bound;
  return deinterlaceCeilingKernel.Launch(device, 0, kHDWidth, kHDHeight, nullptr, {},
                                         LM::ImageObject{texture.image}, static_cast<int>(texture.offset),
                                         LM::DevicePointer{destination}, kHDWidth, 1, kHDWidth, kHDHeight, 0,
                                         2);
}
