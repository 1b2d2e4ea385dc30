// Device memory copies, done by kernels rather than by the frameworks' copy calls. The four GPU formats
// move pixel by pixel; any other single-plane format moves byte for byte, exactly its own bytes a row.
#include "ImageProcessing/MemoryKernels.h"
#include "ImageProcessing/PixelFormatRules.h"
#include "Memory/OpenCLMemoryPolicies.h"
#include "Runtime/PixelFormatWord.h"

namespace LM {

namespace {

// Offsets count units of 16 bytes whatever the format, two pixels of a 16f format; callers pass multiples
// of 16. A negative offset stays negative, so that the frame refuses it.
constexpr int kOffsetUnit = 16;
int OffsetUnits(int offsetBytes) {
  return offsetBytes / kOffsetUnit;
}
long long UnitStart(int offsetBytes) {
  return offsetBytes < 0 ? offsetBytes : static_cast<long long>(OffsetUnits(offsetBytes)) * kOffsetUnit;
}

// The bytes of one texel of the OpenCL image that a format's data goes into (OpenCLImageFormatFor).
int ImageTexelBytes(PixelFormat format) {
  const cl_image_format image = OpenCLImageFormatFor(format);
  const int channels = image.image_channel_order == CL_R ? 1 : 4;
  switch (image.image_channel_data_type) {
    case CL_UNORM_INT8:
      return channels;
    case CL_HALF_FLOAT:
      return 2 * channels;
    default:
      return 4 * channels;
  }
}

}  // namespace

int FastDeviceMemcpy2D(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                       int dstRowBytes, PixelFormat format, int width, int height) {
  if (!device) return kResultFailed;
  return FastDeviceMemcpy2DWithOffsets(device, src, srcRowBytes, 0, dst, dstRowBytes, 0, format, width,
                                       height);
}

int FastDeviceMemcpy2DWithOffsets(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
                                  int srcOffsetBytes, void* dst, int dstRowBytes, int dstOffsetBytes,
                                  PixelFormat format, int width, int height) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0 || src == dst) return kResultSuccess;
  const int pixelBytes = GPUPixelBytes(format);
  const bool pixels = pixelBytes != 0;
  // The byte-exact form copies a row of `width` pixels as `rowBytes` single bytes.
  const int elementBytes = pixels ? pixelBytes : HostRowBytes(format, width) > 0 ? 1 : 0;
  const int extent = pixels ? width : HostRowBytes(format, width);
  return copyMemory2DKernels.Launch(
      device, pixels ? kCopyPixels : kCopyBytes, extent, height, nullptr,
      {PixelOperand(src, srcRowBytes, elementBytes, 0, 0, extent, height, UnitStart(srcOffsetBytes)),
       PixelOperand(dst, dstRowBytes, elementBytes, 0, 0, extent, height, UnitStart(dstOffsetBytes))},
      DevicePointer{src}, PitchInElements(srcRowBytes, elementBytes), OffsetUnits(srcOffsetBytes),
      DevicePointer{dst}, PitchInElements(dstRowBytes, elementBytes), OffsetUnits(dstOffsetBytes),
      Is32BitFloat(format), extent, height);
}

int DeviceCopyRect(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                   int dstRowBytes, PixelFormat format, int srcLeft, int srcTop, int dstLeft, int dstTop,
                   int width, int height) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0 || src == dst) return kResultSuccess;
  const int pixelBytes = GPUPixelBytes(format);
  const bool pixels = pixelBytes != 0;
  // The byte-exact form counts positions and widths in bytes; it needs a format whose pixels each have
  // their own bytes.
  const long long scale = pixels ? 1 : HostPixelBytes(format);
  const int elementBytes = pixels ? pixelBytes : scale > 0 ? 1 : 0;
  const long long srcX = srcLeft * scale, dstX = dstLeft * scale, extent = width * scale;
  return copyRectKernels.Launch(
      device, pixels ? kCopyPixels : kCopyBytes, static_cast<int>(extent), height, nullptr,
      {PixelOperand(src, srcRowBytes, elementBytes, srcX, srcTop, extent, height),
       PixelOperand(dst, dstRowBytes, elementBytes, dstX, dstTop, extent, height)},
      DevicePointer{src}, PitchInElements(srcRowBytes, elementBytes), DevicePointer{dst},
      PitchInElements(dstRowBytes, elementBytes), Is32BitFloat(format), static_cast<int>(srcX), srcTop,
      static_cast<int>(dstX), dstTop, static_cast<int>(extent), height);
}

// The extent is not checked first: an empty or negative one gives an empty grid, which the queue refuses.
// The kernel lays the buffer out as the image is: four-component formats take a pitch in pixels, the
// others (one channel a texel) a pitch in bytes; either way it addresses bytes.
int CopyBufferToImage(const boost::shared_ptr<Device>& device, const void* src, int srcOffset,
                      int srcRowBytes, void* dstImage, PixelFormat format, int width, int height) {
  if (!device || device->GetFramework() != kDeviceFramework_OpenCL) return kResultFailed;
  const bool described = word::IsDescribed(format.properties);
  const bool fourComponents = described && !word::HasSubsampledLayout(format.properties);
  const int texelBytes = described ? ImageTexelBytes(format) : 0;
  const int divisor = fourComponents ? BytesPerPixel(format) : 1;
  // A pitch in pixels is stepped in texels, so the two sizes must agree.
  const int elementBytes = divisor != 0 && (!fourComponents || divisor == texelBytes) ? texelBytes : 0;
  const int pitch = srcRowBytes / (divisor != 0 ? divisor : 1);
  Operand source = PixelOperand(src, srcRowBytes, elementBytes, 0, 0, width, height, srcOffset);
  source.pitch = fourComponents ? static_cast<long long>(pitch) * texelBytes : srcRowBytes;
  source.indexBytes = 1;
  return copyBufferToImageKernel.Run(
      device, width, height, {source, ImageOperand(dstImage, elementBytes, width, height)},
      DevicePointer{src}, srcOffset, pitch, ImageObject{dstImage}, width, height);
}

}  // namespace LM
