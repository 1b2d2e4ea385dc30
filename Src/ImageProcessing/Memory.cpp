// Device memory copies, done by kernels rather than by the frameworks' copy calls.
#include "ImageProcessing/MemoryKernels.h"
#include "ImageProcessing/PixelFormatRules.h"
#include "Runtime/PixelFormatWord.h"

namespace LM {

namespace {

// Offsets are counted in units of one 32f pixel whatever the format; callers pass multiples of 16.
constexpr int kOffsetUnit = 16;

}  // namespace

int FastDeviceMemcpy2D(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                       int dstRowBytes, PixelFormat format, int width, int height) {
  return FastDeviceMemcpy2DWithOffsets(device, src, srcRowBytes, 0, dst, dstRowBytes, 0, format, width,
                                       height);
}

int FastDeviceMemcpy2DWithOffsets(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
                                  int srcOffsetBytes, void* dst, int dstRowBytes, int dstOffsetBytes,
                                  PixelFormat format, int width, int height) {
  if (width <= 0 || height <= 0 || src == dst) return kResultSuccess;
  if (!device) return kResultFailed;
  const int bytesPerPixel = BytesPerPixel(format);
  if (bytesPerPixel == 0) return kResultUnsupported;
  return copyMemory2DKernel.Run(device, width, height, DevicePointer{src}, srcRowBytes / bytesPerPixel,
                                srcOffsetBytes / kOffsetUnit, DevicePointer{dst}, dstRowBytes / bytesPerPixel,
                                dstOffsetBytes / kOffsetUnit, Is32BitFloat(format), width, height);
}

int DeviceCopyRect(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                   int dstRowBytes, PixelFormat format, int srcLeft, int srcTop, int dstLeft, int dstTop,
                   int width, int height) {
  if (width <= 0 || height <= 0 || src == dst) return kResultSuccess;
  if (!device) return kResultFailed;
  const int bytesPerPixel = BytesPerPixel(format);
  if (bytesPerPixel == 0) return kResultUnsupported;
  return copyRectKernel.Run(device, width, height, DevicePointer{src}, srcRowBytes / bytesPerPixel,
                            DevicePointer{dst}, dstRowBytes / bytesPerPixel, Is32BitFloat(format), srcLeft,
                            srcTop, dstLeft, dstTop, width, height);
}

// The extent is not checked first: an empty or negative one gives an empty grid, which the queue refuses.
int CopyBufferToImage(const boost::shared_ptr<Device>& device, const void* src, int srcOffset,
                      int srcRowBytes, void* dstImage, PixelFormat format, int width, int height) {
  if (!device || device->GetFramework() != kDeviceFramework_OpenCL) return kResultFailed;
  const bool fourComponents =
      word::IsDescribed(format.properties) && !word::HasSubsampledLayout(format.properties);
  const int divisor = fourComponents ? BytesPerPixel(format) : 1;
  if (divisor == 0) return kResultUnsupported;
  return copyBufferToImageKernel.Run(device, width, height, DevicePointer{src}, srcOffset,
                                     srcRowBytes / divisor, ImageObject{dstImage}, width, height);
}

}  // namespace LM
