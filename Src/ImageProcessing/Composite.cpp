// The composite of a layer over a background with an opacity and a blend mode, and the per-pixel operations:
// cross dissolve, accumulate, alpha gain and unpremultiply. Each takes its shortcuts, then launches its
// kernel through the operation frame.
#include "ImageProcessing/CompositeKernels.h"
#include "ImageProcessing/PixelFormatRules.h"

namespace LM {

namespace {

// Parameters compare with 0 and 1 with this tolerance.
constexpr float kTolerance = 8e-6f;
bool CountsAsZero(float value) {
  return value - kTolerance <= 0.0f;
}
bool CountsAsOne(float value) {
  return value + kTolerance >= 1.0f;
}

// The formats whose fourth channel is not alpha: read as 1, written as 1.
bool HasNoAlpha(PixelFormat format) {
  return format == kPixelFormat_GPU_BGRX_4444_16f || format == kPixelFormat_GPU_BGRX_4444_32f;
}

Operand Pixels(const void* buffer, int rowBytes, PixelFormat format, int width, int height,
               long long offset = 0) {
  return PixelOperand(buffer, rowBytes, GPUPixelBytes(format), 0, 0, width, height, offset);
}

}  // namespace

int Composite(const boost::shared_ptr<Device>& device, const void* layer, int layerRowBytes,
              const void* background, int backgroundRowBytes, void* out, int outRowBytes, PixelFormat format,
              int width, int height, float opacity, SK_BlendMode mode) {
  if (!device) return kResultFailed;
  if (width < 1 || height < 1) return kResultSuccess;
  std::int32_t chosen = mode;
  if (chosen == kBlendMode_Dissolve && (CountsAsZero(opacity) || CountsAsOne(opacity)))
    chosen = kBlendMode_Normal;
  if (chosen == kBlendMode_Normal && CountsAsZero(opacity)) {
    return FastDeviceMemcpy2D(device, background, backgroundRowBytes, out, outRowBytes, format, width,
                              height);
  }
  if (chosen < 0 || chosen > kBlendMode_Divide) return kResultUnsupported;
  const int pixelBytes = GPUPixelBytes(format);
  return compositeKernels.Launch(device, static_cast<std::size_t>(chosen), width, height, nullptr,
                                 {Pixels(layer, layerRowBytes, format, width, height),
                                  Pixels(background, backgroundRowBytes, format, width, height),
                                  Pixels(out, outRowBytes, format, width, height)},
                                 DevicePointer{layer}, PitchInElements(layerRowBytes, pixelBytes),
                                 DevicePointer{background}, PitchInElements(backgroundRowBytes, pixelBytes),
                                 DevicePointer{out}, PitchInElements(outRowBytes, pixelBytes),
                                 Is32BitFloat(format), width, height, opacity, HasNoAlpha(format) ? 1 : 0);
}

int CrossDissolve(const boost::shared_ptr<Device>& device, const void* incoming, int incomingRowBytes,
                  const void* outgoing, int outgoingRowBytes, void* dst, int dstRowBytes, PixelFormat format,
                  int width, int height, float progress, bool eased) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0) return kResultSuccess;
  if (CountsAsZero(progress) || incoming == outgoing) {
    return FastDeviceMemcpy2D(device, outgoing, outgoingRowBytes, dst, dstRowBytes, format, width, height);
  }
  if (CountsAsOne(progress)) {
    return FastDeviceMemcpy2D(device, incoming, incomingRowBytes, dst, dstRowBytes, format, width, height);
  }
  const int pixelBytes = GPUPixelBytes(format);
  return crossDissolveKernel.Run(device, width, height,
                                 {Pixels(incoming, incomingRowBytes, format, width, height),
                                  Pixels(outgoing, outgoingRowBytes, format, width, height),
                                  Pixels(dst, dstRowBytes, format, width, height)},
                                 DevicePointer{incoming}, PitchInElements(incomingRowBytes, pixelBytes),
                                 DevicePointer{outgoing}, PitchInElements(outgoingRowBytes, pixelBytes),
                                 DevicePointer{dst}, PitchInElements(dstRowBytes, pixelBytes),
                                 Is32BitFloat(format), width, height, progress, eased ? 1 : 0);
}

int Accumulate(const boost::shared_ptr<Device>& device, const void** sources, const float* weights, int count,
               void* dst, int rowBytes, int offsetBytes, PixelFormat format, int width, int height) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0 || count < 1) return kResultSuccess;
  if (sources == nullptr || weights == nullptr || offsetBytes < 0) return kResultFailed;
  const int pixelBytes = GPUPixelBytes(format);
  const int offset = offsetBytes / 16;
  const long long offsetInBytes = static_cast<long long>(offset) * 16;
  for (int first = 0; first < count; first += 8) {
    const int group = count - first < 8 ? count - first : 8;
    // Places past the group get the group's first source with weight 0; the kernel reads only `group`.
    const void* s[8];
    float w[8];
    for (int i = 0; i < 8; ++i) {
      s[i] = sources[first + (i < group ? i : 0)];
      w[i] = i < group ? weights[first + i] : 0.0f;
    }
    const Operand target = Pixels(dst, rowBytes, format, width, height, offsetInBytes);
    const Operand reads[8] = {Pixels(s[0], rowBytes, format, width, height, offsetInBytes),
                              Pixels(s[1], rowBytes, format, width, height, offsetInBytes),
                              Pixels(s[2], rowBytes, format, width, height, offsetInBytes),
                              Pixels(s[3], rowBytes, format, width, height, offsetInBytes),
                              Pixels(s[4], rowBytes, format, width, height, offsetInBytes),
                              Pixels(s[5], rowBytes, format, width, height, offsetInBytes),
                              Pixels(s[6], rowBytes, format, width, height, offsetInBytes),
                              Pixels(s[7], rowBytes, format, width, height, offsetInBytes)};
    const int result = accumulateKernel.Launch(
        device, 0, width, height, nullptr,
        {reads[0], reads[1], reads[2], reads[3], reads[4], reads[5], reads[6], reads[7], target},
        DevicePointer{s[0]}, DevicePointer{s[1]}, DevicePointer{s[2]}, DevicePointer{s[3]},
        DevicePointer{s[4]}, DevicePointer{s[5]}, DevicePointer{s[6]}, DevicePointer{s[7]}, w[0], w[1], w[2],
        w[3], w[4], w[5], w[6], w[7], PitchInElements(rowBytes, pixelBytes), offset, Is32BitFloat(format),
        width, height, DevicePointer{dst}, group, first == 0 ? 1 : 0);
    if (result != kResultSuccess) return result;
  }
  return kResultSuccess;
}

int AlphaGain(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
              int dstRowBytes, PixelFormat format, int width, int height, float gain) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0) return kResultSuccess;
  if (CountsAsZero(gain))
    return FillWithTransparentBlack(device, dst, dstRowBytes, format, 0, 0, width, height);
  if (CountsAsOne(gain))
    return FastDeviceMemcpy2D(device, src, srcRowBytes, dst, dstRowBytes, format, width, height);
  const int pixelBytes = GPUPixelBytes(format);
  return alphaGainKernel.Run(
      device, width, height,
      {Pixels(src, srcRowBytes, format, width, height), Pixels(dst, dstRowBytes, format, width, height)},
      DevicePointer{src}, PitchInElements(srcRowBytes, pixelBytes), DevicePointer{dst},
      PitchInElements(dstRowBytes, pixelBytes), Is32BitFloat(format), width, height, gain);
}

int Unpremultiply(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                  int dstRowBytes, PixelFormat format, int width, int height, const float4& color) {
  if (!device) return kResultFailed;
  if (width <= 0 || height <= 0) return kResultSuccess;
  const int pixelBytes = GPUPixelBytes(format);
  return unpremultiplyKernel.Run(
      device, width, height,
      {Pixels(src, srcRowBytes, format, width, height), Pixels(dst, dstRowBytes, format, width, height)},
      DevicePointer{src}, PitchInElements(srcRowBytes, pixelBytes), DevicePointer{dst},
      PitchInElements(dstRowBytes, pixelBytes), Is32BitFloat(format), width, height, color);
}

}  // namespace LM
