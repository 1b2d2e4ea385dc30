// Device memory copies, done by kernels rather than by the frameworks' copy calls.
#include "ImageProcessing/MemoryKernels.h"

namespace LM {

namespace {

// Offsets are counted in units of one 32f pixel whatever the format; callers pass multiples of 16.
constexpr int kOffsetUnit = 16;

}  // namespace

int FastDeviceMemcpy2D(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                       int dstRowBytes, PixelFormat format, int width, int height) {
  return FastDeviceMemcpy2DWithOffsets(device, src, srcRowBytes, 0, dst, dstRowBytes, 0, format, width, height);
}

int FastDeviceMemcpy2DWithOffsets(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
                                  int srcOffsetBytes, void* dst, int dstRowBytes, int dstOffsetBytes,
                                  PixelFormat format, int width, int height) {
  if (width <= 0 || height <= 0 || src == dst) return kResultSuccess;
  if (!device) return kResultFailed;
  const int bytesPerPixel = BytesPerPixel(format);
  if (bytesPerPixel == 0) return kResultUnsupported;
  return CopyMemory2DKernel::Run(device, width, height, DevicePointer{src}, srcRowBytes / bytesPerPixel,
                                 srcOffsetBytes / kOffsetUnit, DevicePointer{dst}, dstRowBytes / bytesPerPixel,
                                 dstOffsetBytes / kOffsetUnit, Is32BitFloat(format), width, height);
}

int DeviceCopyRect(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                   int dstRowBytes, PixelFormat format, int srcLeft, int srcTop, int dstLeft, int dstTop, int width,
                   int height) {
  if (width <= 0 || height <= 0 || src == dst) return kResultSuccess;
  if (!device) return kResultFailed;
  const int bytesPerPixel = BytesPerPixel(format);
  if (bytesPerPixel == 0) return kResultUnsupported;
  return CopyRectKernel::Run(device, width, height, DevicePointer{src}, srcRowBytes / bytesPerPixel, DevicePointer{dst},
                             dstRowBytes / bytesPerPixel, Is32BitFloat(format), srcLeft, srcTop, dstLeft, dstTop, width,
                             height);
}

// The extent is not checked first: an empty or negative one gives an empty grid, which the queue refuses.
int CopyBufferToImage(const boost::shared_ptr<Device>& device, const void* src, int srcOffset, int srcRowBytes,
                      void* dstImage, PixelFormat format, int width, int height) {
  if (!device || device->GetFramework() != kDeviceFramework_OpenCL) return kResultFailed;
  const std::uint32_t word = format.properties;
  const bool fourComponents = (word & 0xC0000u) == 0x40000u && (word & 0xC00u) == 0;
  const int divisor = fourComponents ? BytesPerPixel(format) : 1;
  if (divisor == 0) return kResultUnsupported;
  return CopyBufferToImageKernel::Run(device, width, height, DevicePointer{src}, srcOffset, srcRowBytes / divisor,
                                      ImageObject{dstImage}, width, height);
}

}  // namespace LM
