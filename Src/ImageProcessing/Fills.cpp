// Fills: every pixel of a rectangle set to one colour.
#include "ImageProcessing/FillsKernels.h"
#include "ImageProcessing/PixelFormatRules.h"

namespace LM {

int FillWithColor(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                  PixelFormat format, int left, int top, int width, int height, float4 color) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0) return kResultSuccess;
  const int pixelBytes = GPUPixelBytes(format);
  return fillWithColorKernel.Run(device, width, height,
                                 {PixelOperand(buffer, rowBytes, pixelBytes, left, top, width, height)},
                                 DevicePointer{buffer}, PitchInElements(rowBytes, pixelBytes),
                                 Is32BitFloat(format), left, top, width, height, color);
}

int FillWithOpaqueBlack(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                        PixelFormat format, int left, int top, int width, int height) {
  return FillWithColor(device, buffer, rowBytes, format, left, top, width, height,
                       float4{0.0f, 0.0f, 0.0f, 1.0f});
}

int FillWithTransparentBlack(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                             PixelFormat format, int left, int top, int width, int height) {
  return FillWithColor(device, buffer, rowBytes, format, left, top, width, height,
                       float4{0.0f, 0.0f, 0.0f, 0.0f});
}

int FillWithOpaqueWhite(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                        PixelFormat format, int left, int top, int width, int height) {
  return FillWithColor(device, buffer, rowBytes, format, left, top, width, height,
                       float4{1.0f, 1.0f, 1.0f, 1.0f});
}

int FillWithTransparentWhite(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                             PixelFormat format, int left, int top, int width, int height) {
  return FillWithColor(device, buffer, rowBytes, format, left, top, width, height,
                       float4{1.0f, 1.0f, 1.0f, 0.0f});
}

}  // namespace LM
