// The recursive Gaussian blur: path selection, centring, coefficients and the passes of the two kernel
// paths. docs/gaussian-blur.md describes the filter, the edge rule and the centring.
#include "ImageProcessing/GaussianBlur.h"

#include <algorithm>
#include <cmath>

#include "ImageProcessing/GaussianBlurKernels.h"
#include "ImageProcessing/PixelFormatRules.h"
#include "Lumora/Device.h"

namespace LM {

namespace {

bool HasHalves(PixelFormat format) {
  return format == kPixelFormat_GPU_BGRA_4444_16f || format == kPixelFormat_GPU_BGRX_4444_16f;
}

// A pass's sigma: none (0) unless positive; at most kMaximumGaussianSigma (infinity included).
float PassSigma(bool runs, float sigma) {
  return runs && sigma > 0.0f ? std::min(sigma, kMaximumGaussianSigma) : 0.0f;
}

// A block of the device pool for one call, handed back with the event of the last work queued on it.
class PoolBlock {
 public:
  PoolBlock(const boost::shared_ptr<Device>& device, std::size_t bytes) : device_(device) {
    if (bytes > 0 && device_ && device_->GetDeviceMemory()) {
      block_ = device_->GetDeviceMemory()->Allocate(bytes, nullptr);
    }
  }
  ~PoolBlock() {
    if (block_ == nullptr) return;
    const boost::shared_ptr<CommandQueue> queue = device_->GetCommandQueue();
    device_->GetDeviceMemory()->Release(block_, queue ? queue->RecordEvent() : boost::shared_ptr<Event>());
  }
  PoolBlock(const PoolBlock&) = delete;
  PoolBlock& operator=(const PoolBlock&) = delete;
  void* Get() const { return block_; }

 private:
  boost::shared_ptr<Device> device_;
  void* block_ = nullptr;
};

// An image of one call: a buffer, its pitch and its size.
struct Image {
  const void* buffer;
  int rowBytes;
  int width;
  int height;
};

// The source centred on the destination: destination pixel (x, y) is source pixel (x - dx, y - dy).
int CentringOffset(int destination, int source) {
  return (destination - source) / 2;
}

// The source copied centred into the destination, transparent black around it when it is smaller; a larger
// source is cropped. The rectangle copy places the pixels exactly, whatever the offset and the format.
int CopyCentred(const boost::shared_ptr<Device>& device, const Image& source, const Image& destination,
                PixelFormat format) {
  if (source.width == destination.width && source.height == destination.height) {
    return FastDeviceMemcpy2D(device, source.buffer, source.rowBytes, const_cast<void*>(destination.buffer),
                              destination.rowBytes, format, source.width, source.height);
  }
  if (source.buffer == destination.buffer) return kResultFailed;  // no centring within one buffer
  if (destination.width > source.width || destination.height > source.height) {
    const int filled = FillWithTransparentBlack(device, destination.buffer, destination.rowBytes, format, 0,
                                                0, destination.width, destination.height);
    if (filled != kResultSuccess) return filled;
  }
  const int dx = CentringOffset(destination.width, source.width);
  const int dy = CentringOffset(destination.height, source.height);
  return DeviceCopyRect(device, source.buffer, source.rowBytes, const_cast<void*>(destination.buffer),
                        destination.rowBytes, format, std::max(0, -dx), std::max(0, -dy), std::max(0, dx),
                        std::max(0, dy), std::min(source.width, destination.width),
                        std::min(source.height, destination.height));
}

// One recursive pass from `from` into `to`, `from` centred on `to`.
int RecursivePass(const boost::shared_ptr<Device>& device, bool vertical, const Image& from, const Image& to,
                  PixelFormat format, float sigma, bool extend) {
  const int pixelBytes = GPUPixelBytes(format);
  const GaussianCoefficients c = ComputeGaussianCoefficients(sigma);
  auto& family = vertical ? verticalKernels : horizontalKernels;
  return family.Launch(device, HasHalves(format) ? 0 : 1, vertical ? to.width : to.height, 1, nullptr,
                       {PixelOperand(from.buffer, from.rowBytes, pixelBytes, 0, 0, from.width, from.height),
                        PixelOperand(to.buffer, to.rowBytes, pixelBytes, 0, 0, to.width, to.height)},
                       DevicePointer{from.buffer}, PitchInElements(from.rowBytes, pixelBytes), from.width,
                       from.height, DevicePointer{to.buffer}, PitchInElements(to.rowBytes, pixelBytes),
                       to.width, to.height, CentringOffset(to.width, from.width),
                       CentringOffset(to.height, from.height), c.a0, c.a1, c.a2, c.a3, c.b1, c.b2,
                       extend ? 1 : 0);
}

int RecursivePath(const boost::shared_ptr<Device>& device, const Image& source, const Image& destination,
                  PixelFormat format, float sigmaX, float sigmaY, bool extend) {
  const int pixelBytes = GPUPixelBytes(format);
  if (pixelBytes == 0) return kResultUnsupported;
  const bool inPlace = source.buffer == destination.buffer;
  if (sigmaX > 0.0f && sigmaY > 0.0f) {
    // The intermediate has the destination's height and the wider of the two widths, so that a narrower
    // destination crops the blurred image rather than blurring a crop.
    const Image middle = {nullptr, 0, std::max(source.width, destination.width), destination.height};
    const long long rowBytes = static_cast<long long>(middle.width) * pixelBytes;
    PoolBlock block(device, static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(middle.height));
    if (block.Get() == nullptr) return kResultOutOfMemory;
    const Image inter = {block.Get(), static_cast<int>(rowBytes), middle.width, middle.height};
    const int vertical = RecursivePass(device, true, source, inter, format, sigmaY, extend);
    if (vertical != kResultSuccess) return vertical;
    return RecursivePass(device, false, inter, destination, format, sigmaX, extend);
  }
  const bool vertical = sigmaY > 0.0f;
  const float sigma = vertical ? sigmaY : sigmaX;
  if (!inPlace) return RecursivePass(device, vertical, source, destination, format, sigma, extend);
  // A pass reads its line again after writing it: in place, it writes a pool block and the block is copied.
  const long long rowBytes = static_cast<long long>(destination.width) * pixelBytes;
  PoolBlock block(device, static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(destination.height));
  if (block.Get() == nullptr) return kResultOutOfMemory;
  const Image out = {block.Get(), static_cast<int>(rowBytes), destination.width, destination.height};
  const int blurred = RecursivePass(device, vertical, source, out, format, sigma, extend);
  if (blurred != kResultSuccess) return blurred;
  return FastDeviceMemcpy2D(device, out.buffer, out.rowBytes, const_cast<void*>(destination.buffer),
                            destination.rowBytes, format, out.width, out.height);
}

// The AMD path (chosen for AMD OpenCL devices; its kernels build for CUDA too) on images of one size: the
// column passes of `from` into `to` (which must differ).
int AMDColumns(const boost::shared_ptr<Device>& device, const Image& from, const Image& to,
               PixelFormat format, float sigma, bool extend) {
  const int pixelBytes = GPUPixelBytes(format);
  const GaussianCoefficients c = ComputeGaussianCoefficients(sigma);
  const Operands operands = {
      PixelOperand(from.buffer, from.rowBytes, pixelBytes, 0, 0, from.width, from.height),
      PixelOperand(to.buffer, to.rowBytes, pixelBytes, 0, 0, to.width, to.height)};
  const std::size_t edge = extend ? 1 : 0;
  for (auto* family : {&firstHalfKernels, &secondHalfKernels}) {
    const int result =
        family->Launch(device, edge, from.width, 1, nullptr, operands, DevicePointer{from.buffer},
                       PitchInElements(from.rowBytes, pixelBytes), DevicePointer{to.buffer},
                       PitchInElements(to.rowBytes, pixelBytes), from.width, from.height,
                       Is32BitFloat(format), c.a0, c.a1, c.a2, c.a3, c.b1, c.b2);
    if (result != kResultSuccess) return result;
  }
  return kResultSuccess;
}

int Transpose(const boost::shared_ptr<Device>& device, const Image& from, const Image& to,
              PixelFormat format) {
  const int pixelBytes = GPUPixelBytes(format);
  return transposeKernel.Run(
      device, from.width, from.height,
      {PixelOperand(from.buffer, from.rowBytes, pixelBytes, 0, 0, from.width, from.height),
       PixelOperand(to.buffer, to.rowBytes, pixelBytes, 0, 0, to.width, to.height)},
      DevicePointer{from.buffer}, PitchInElements(from.rowBytes, pixelBytes), DevicePointer{to.buffer},
      PitchInElements(to.rowBytes, pixelBytes), from.width, from.height, Is32BitFloat(format));
}

// The AMD path: the vertical passes, then the horizontal ones between two transposes. An image of the
// destination's size is read and written where it lies (through a pool block when a pass would overwrite the
// source it still reads); otherwise the source is first centred on a canvas covering it and the destination,
// which is blurred and of which the destination's window is kept. Every buffer in between comes from the
// device pool.
int AMDPath(const boost::shared_ptr<Device>& device, const Image& source, const Image& destination,
            PixelFormat format, float sigmaX, float sigmaY, bool extend) {
  const int pixelBytes = GPUPixelBytes(format);
  if (pixelBytes == 0) return kResultUnsupported;
  const bool sameSize = source.width == destination.width && source.height == destination.height;
  const int width = std::max(source.width, destination.width);
  const int height = std::max(source.height, destination.height);
  const std::size_t bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * pixelBytes;
  const int rowBytes = width * pixelBytes, columnBytes = height * pixelBytes;
  // a: the vertical result or a transposed image; b: the canvas; c: the other transposed image.
  PoolBlock aBlock(device, bytes), bBlock(device, sameSize ? 0 : bytes),
      cBlock(device, sigmaX > 0.0f ? bytes : 0);
  if (aBlock.Get() == nullptr || (!sameSize && bBlock.Get() == nullptr) ||
      (sigmaX > 0.0f && cBlock.Get() == nullptr)) {
    return kResultOutOfMemory;
  }
  const Image a = {aBlock.Get(), rowBytes, width, height};
  Image current = source;
  int result = kResultSuccess;
  if (!sameSize) {
    current = {bBlock.Get(), rowBytes, width, height};
    result = CopyCentred(device, source, current, format);
  }
  // The last pass writes the destination itself when the sizes agree and the source is no longer read.
  const bool direct = sameSize && source.buffer != destination.buffer;
  if (result == kResultSuccess && sigmaY > 0.0f) {
    const Image to = direct && sigmaX <= 0.0f ? destination : a;
    result = AMDColumns(device, current, to, format, sigmaY, extend);
    current = to;
  }
  if (result == kResultSuccess && sigmaX > 0.0f) {
    // Rows become columns: height x width images with rows of `height` pixels.
    const void* spare = current.buffer == a.buffer ? cBlock.Get() : a.buffer;
    const Image transposed = {spare, columnBytes, height, width};
    const Image blurred = {spare == a.buffer ? cBlock.Get() : a.buffer, columnBytes, height, width};
    result = Transpose(device, current, transposed, format);
    if (result == kResultSuccess) result = AMDColumns(device, transposed, blurred, format, sigmaX, extend);
    current = sameSize ? destination : Image{transposed.buffer, rowBytes, width, height};
    if (result == kResultSuccess) result = Transpose(device, blurred, current, format);
  }
  if (result != kResultSuccess || current.buffer == destination.buffer) return result;
  return CopyCentred(device, current, destination, format);
}

}  // namespace

GaussianCoefficients ComputeGaussianCoefficients(float sigma) {
  // The constants as given, in single precision (0.9629f is 0x3F76809D, 1.942f is 0x3FF89375).
  const float w = 0.8448f / sigma;
  const float e1 = std::exp(-1.26f / sigma), e2 = std::exp(-2.52f / sigma);
  const float cosine = std::cos(w), sine = std::sin(w);
  const float d = 1.0f - 2.0f * e1 * cosine + e2;
  const float g = 2.0f * (0.9629f * (1.0f - e1 * cosine) / d + 1.942f * e1 * sine / d) - 0.9629f;
  const float k = 1.0f / g;
  const float a0 = 0.9629f * k;
  const float a1 = e1 * (1.942f * k * sine - a0 * cosine);
  return {a0, a1, a1 + 2.0f * e1 * cosine * a0, -e2 * a0, 2.0f * e1 * cosine, -e2};
}

int GaussianBlurOnPath(const boost::shared_ptr<Device>& device, const void* source, int sourceRowBytes,
                       int sourceWidth, int sourceHeight, void* destination, int destinationRowBytes,
                       int destinationWidth, int destinationHeight, PixelFormat format, float sigmaX,
                       float sigmaY, bool edgeFlag, SK_BlurDirection direction, GaussianBlurPath path) {
  if (!device) return kResultFailed;
  if (sourceWidth <= 0 || sourceHeight <= 0 || destinationWidth <= 0 || destinationHeight <= 0) {
    return kResultSuccess;
  }
  const float x =
      PassSigma(direction == kBlurDirection_Horizontal || direction == kBlurDirection_Both, sigmaX);
  const float y = PassSigma(direction == kBlurDirection_Vertical || direction == kBlurDirection_Both, sigmaY);
  const Image from = {source, sourceRowBytes, sourceWidth, sourceHeight};
  const Image to = {destination, destinationRowBytes, destinationWidth, destinationHeight};
  if (x == 0.0f && y == 0.0f) return CopyCentred(device, from, to, format);
  if (path == GaussianBlurPath::kByDevice) {
    path = device->GetFramework() == kDeviceFramework_OpenCL && device->GetVendor() == kVendor_AMD
               ? GaussianBlurPath::kAMD
               : GaussianBlurPath::kRecursive;
  }
  return path == GaussianBlurPath::kAMD ? AMDPath(device, from, to, format, x, y, edgeFlag)
                                        : RecursivePath(device, from, to, format, x, y, edgeFlag);
}

int GaussianBlur(const boost::shared_ptr<Device>& device, const void* source, int sourceRowBytes,
                 int sourceWidth, int sourceHeight, void* destination, int destinationRowBytes,
                 int destinationWidth, int destinationHeight, PixelFormat format, float sigmaX, float sigmaY,
                 bool edgeFlag, SK_BlurDirection direction) {
  return GaussianBlurOnPath(device, source, sourceRowBytes, sourceWidth, sourceHeight, destination,
                            destinationRowBytes, destinationWidth, destinationHeight, format, sigmaX, sigmaY,
                            edgeFlag, direction, GaussianBlurPath::kByDevice);
}

}  // namespace LM
