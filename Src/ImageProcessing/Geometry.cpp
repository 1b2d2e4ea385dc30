// The field operations and the geometry on raw device buffers: field reverse, deinterlace, motion (an affine
// placement) and scale. docs/geometry.md describes them.
#include <algorithm>
#include <cmath>

#include "ImageProcessing/GeometryKernels.h"
#include "ImageProcessing/PixelFormatRules.h"
#include "Lumora/Device.h"

namespace LM {

namespace {

Operand Pixels(const void* buffer, int rowBytes, PixelFormat format, int width, int height) {
  return PixelOperand(buffer, rowBytes, GPUPixelBytes(format), 0, 0, width, height);
}

TextureCache deinterlaceTexture(kDeinterlaceModule, "inDeinterlaceTexture");

bool Finite(const MotionTransform& t) {
  for (const float v :
       {t.positionX, t.positionY, t.scaleX, t.scaleY, t.rotationDegrees, t.anchorX, t.anchorY}) {
    if (!std::isfinite(v)) return false;
  }
  return true;
}

// A block of the device pool for one call, handed back with the event of the last work queued on it.
class ScratchBlock {
 public:
  ScratchBlock(const boost::shared_ptr<Device>& device, std::size_t bytes) : device_(device) {
    if (device_ && device_->GetDeviceMemory()) block_ = device_->GetDeviceMemory()->Allocate(bytes, nullptr);
  }
  ~ScratchBlock() {
    if (block_ == nullptr) return;
    const boost::shared_ptr<CommandQueue> queue = device_->GetCommandQueue();
    device_->GetDeviceMemory()->Release(block_, queue ? queue->RecordEvent() : boost::shared_ptr<Event>());
  }
  ScratchBlock(const ScratchBlock&) = delete;
  ScratchBlock& operator=(const ScratchBlock&) = delete;
  void* Get() const { return block_; }

 private:
  boost::shared_ptr<Device> device_;
  void* block_ = nullptr;
};

// The affine sampling of `src` into `dst`: source = m (destination pixel centre).
int Sample(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, int srcWidth,
           int srcHeight, void* dst, int dstRowBytes, int dstWidth, int dstHeight, PixelFormat format,
           const float m[6], bool bicubic) {
  const int pixelBytes = GPUPixelBytes(format);
  return motionKernels.Launch(device, bicubic ? 1 : 0, dstWidth, dstHeight, nullptr,
                              {Pixels(src, srcRowBytes, format, srcWidth, srcHeight),
                               Pixels(dst, dstRowBytes, format, dstWidth, dstHeight)},
                              DevicePointer{src}, PitchInElements(srcRowBytes, pixelBytes), srcWidth,
                              srcHeight, DevicePointer{dst}, PitchInElements(dstRowBytes, pixelBytes),
                              dstWidth, dstHeight, Is32BitFloat(format), m[0], m[1], m[2], m[3], m[4], m[5]);
}

// The sampling with the quality's filter: bilinear below High; from High bicubic, and where the map shrinks
// an axis by 2 or more, first the mean of blocks of that many source pixels (the prefilter), sampled in turn.
int Place(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, int srcWidth,
          int srcHeight, void* dst, int dstRowBytes, int dstWidth, int dstHeight, PixelFormat format,
          float m[6], zelmediatypes::RenderQuality quality) {
  if (src == dst) return kResultFailed;  // the sampling reads around each destination pixel
  const bool bicubic = quality >= zelmediatypes::kRenderQuality_High;
  // Source pixels a destination pixel spans along each source axis.
  const double spanX = std::hypot(m[0], m[1]), spanY = std::hypot(m[3], m[4]);
  const int factorX = bicubic ? static_cast<int>(std::min(1024.0, std::floor(spanX))) : 1;
  const int factorY = bicubic ? static_cast<int>(std::min(1024.0, std::floor(spanY))) : 1;
  if (factorX < 2 && factorY < 2) {
    return Sample(device, src, srcRowBytes, srcWidth, srcHeight, dst, dstRowBytes, dstWidth, dstHeight,
                  format, m, bicubic);
  }
  const int fx = std::max(1, factorX), fy = std::max(1, factorY);
  const int width = (srcWidth + fx - 1) / fx, height = (srcHeight + fy - 1) / fy;
  const int pixelBytes = GPUPixelBytes(format), rowBytes = width * pixelBytes;
  ScratchBlock block(device, static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(height));
  if (block.Get() == nullptr) return kResultOutOfMemory;
  const int prepared = motionPrepSourceKernel.Run(
      device, width, height,
      {Pixels(src, srcRowBytes, format, srcWidth, srcHeight),
       Pixels(block.Get(), rowBytes, format, width, height)},
      DevicePointer{src}, PitchInElements(srcRowBytes, pixelBytes), srcWidth, srcHeight,
      DevicePointer{block.Get()}, width, width, height, Is32BitFloat(format), fx, fy);
  if (prepared != kResultSuccess) return prepared;
  // Prefiltered pixel k covers source pixels k f .. (k + 1) f.
  const float scaled[6] = {m[0] / fx, m[1] / fx, m[2] / fx, m[3] / fy, m[4] / fy, m[5] / fy};
  return Sample(device, block.Get(), rowBytes, width, height, dst, dstRowBytes, dstWidth, dstHeight, format,
                scaled, true);
}

}  // namespace

int FieldReverse(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                 int dstRowBytes, PixelFormat format, int width, int height) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0) return kResultSuccess;
  const int pixelBytes = GPUPixelBytes(format);
  return fieldReverseKernel.Run(
      device, width, (height + 1) / 2,
      {Pixels(src, srcRowBytes, format, width, height), Pixels(dst, dstRowBytes, format, width, height)},
      DevicePointer{src}, PitchInElements(srcRowBytes, pixelBytes), DevicePointer{dst},
      PitchInElements(dstRowBytes, pixelBytes), Is32BitFloat(format), width, height);
}

int InterlaceFields(const boost::shared_ptr<Device>& device, const void* first, int firstRowBytes,
                    const void* second, int secondRowBytes, void* dst, int dstRowBytes, PixelFormat format,
                    int width, int height, int firstParity) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0) return kResultSuccess;
  if (firstParity != 0 && firstParity != 1) return kResultFailed;
  const int pixelBytes = GPUPixelBytes(format);
  return interlaceFieldsKernel.Run(device, width, height,
                                   {Pixels(first, firstRowBytes, format, width, height),
                                    Pixels(second, secondRowBytes, format, width, height),
                                    Pixels(dst, dstRowBytes, format, width, height)},
                                   DevicePointer{first}, PitchInElements(firstRowBytes, pixelBytes),
                                   DevicePointer{second}, PitchInElements(secondRowBytes, pixelBytes),
                                   DevicePointer{dst}, PitchInElements(dstRowBytes, pixelBytes),
                                   Is32BitFloat(format), width, height, firstParity);
}

int Deinterlace(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                int dstRowBytes, PixelFormat format, int width, int height, int keptField,
                DeinterlaceMode mode) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0) return kResultSuccess;
  if ((keptField != 0 && keptField != 1) || mode < kDeinterlace_LineDoubling ||
      mode > kDeinterlace_EdgeDirected)
    return kResultFailed;
  const int pixelBytes = GPUPixelBytes(format);
  if (pixelBytes == 0) return kResultUnsupported;
  const Operand operands[] = {Pixels(src, srcRowBytes, format, width, height),
                              Pixels(dst, dstRowBytes, format, width, height)};
  const int checked = CheckOperands(*device, operands, 2, kResultUnsupported);
  if (checked != kResultSuccess) return checked;
  // A pitch the texture hardware cannot bind goes through an aligned copy first.
  TexturePlane plane;
  int result = AlignPlaneForTexture(device, src, src, srcRowBytes, width, height, format, &plane);
  Texture texture;
  if (result == kResultSuccess) {
    texture = deinterlaceTexture.Find(device, kPixelFormat_GPU_BGRA_4444_32f);
    result = BindTexture(device, texture, plane.base, plane.data, plane.rowBytes, width, height, format);
  }
  boost::shared_ptr<Event> done;
  if (result == kResultSuccess) {
    result = deinterlaceKernel.Launch(device, 0, width, height, &done, {operands[1]},
                                      ImageObject{texture.image}, static_cast<int>(texture.offset),
                                      DevicePointer{dst}, PitchInElements(dstRowBytes, pixelBytes),
                                      Is32BitFloat(format), width, height, keptField, static_cast<int>(mode));
  }
  if (!done && plane.scratch != nullptr) done = device->GetCommandQueue()->RecordEvent();
  ReleaseTexturePlane(device, &plane, done);
  return result;
}

int Motion(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, int srcWidth,
           int srcHeight, void* dst, int dstRowBytes, int dstWidth, int dstHeight, PixelFormat format,
           const MotionTransform& t, zelmediatypes::RenderQuality quality) {
  if (!device) return kResultFailed;
  if (dstWidth <= 0 || dstHeight <= 0) return kResultSuccess;
  if (srcWidth <= 0 || srcHeight <= 0)
    return FillWithTransparentBlack(device, dst, dstRowBytes, format, 0, 0, dstWidth, dstHeight);
  if (!Finite(t) || t.scaleX == 0.0f || t.scaleY == 0.0f) return kResultFailed;
  // destination = position + R(rotation) S (source - anchor), so source = anchor + S^-1 R(-rotation)
  // (destination - position).
  const double radians = static_cast<double>(t.rotationDegrees) * 3.14159265358979323846 / 180.0;
  // Quarter turns exactly, so that they copy.
  const double turns = static_cast<double>(t.rotationDegrees) / 90.0;
  double c = std::cos(radians), s = std::sin(radians);
  if (turns == std::floor(turns)) {
    const int quarter = static_cast<int>(std::fmod(std::fmod(turns, 4.0) + 4.0, 4.0));
    c = quarter == 0 ? 1 : quarter == 2 ? -1 : 0;
    s = quarter == 1 ? 1 : quarter == 3 ? -1 : 0;
  }
  const double a = c / t.scaleX, b = s / t.scaleX, d = -s / t.scaleY, e = c / t.scaleY;
  float m[6] = {static_cast<float>(a),
                static_cast<float>(b),
                static_cast<float>(t.anchorX - (a * t.positionX + b * t.positionY)),
                static_cast<float>(d),
                static_cast<float>(e),
                static_cast<float>(t.anchorY - (d * t.positionX + e * t.positionY))};
  return Place(device, src, srcRowBytes, srcWidth, srcHeight, dst, dstRowBytes, dstWidth, dstHeight, format,
               m, quality);
}

int Scale(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, int srcWidth,
          int srcHeight, void* dst, int dstRowBytes, int dstWidth, int dstHeight, PixelFormat format,
          zelmediatypes::RenderQuality quality) {
  if (!device) return kResultFailed;
  if (dstWidth <= 0 || dstHeight <= 0) return kResultSuccess;
  if (srcWidth <= 0 || srcHeight <= 0)
    return FillWithTransparentBlack(device, dst, dstRowBytes, format, 0, 0, dstWidth, dstHeight);
  if (srcHeight == dstHeight) {
    // The fast path: rows resized on their own.
    if (src == dst) return kResultFailed;
    const int pixelBytes = GPUPixelBytes(format);
    const int filter = quality <= zelmediatypes::kRenderQuality_Low      ? 0
                       : quality == zelmediatypes::kRenderQuality_Medium ? 1
                                                                         : 2;
    return horizontalOnlyScaleKernel.Run(
        device, dstWidth, dstHeight,
        {Pixels(src, srcRowBytes, format, srcWidth, srcHeight),
         Pixels(dst, dstRowBytes, format, dstWidth, dstHeight)},
        DevicePointer{src}, PitchInElements(srcRowBytes, pixelBytes), srcWidth, DevicePointer{dst},
        PitchInElements(dstRowBytes, pixelBytes), dstWidth, dstHeight, Is32BitFloat(format), filter);
  }
  float m[6] = {static_cast<float>(srcWidth) / static_cast<float>(dstWidth),   0.0f, 0.0f, 0.0f,
                static_cast<float>(srcHeight) / static_cast<float>(dstHeight), 0.0f};
  return Place(device, src, srcRowBytes, srcWidth, srcHeight, dst, dstRowBytes, dstWidth, dstHeight, format,
               m, quality);
}

}  // namespace LM
