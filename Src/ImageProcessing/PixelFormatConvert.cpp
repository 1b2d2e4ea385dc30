// Pixel format conversion on the device: the frame's checks of the two formats, the path by layout, and
// the kernel of the pair.
#include "ImageProcessing/PixelFormatConvertKernels.h"
#include "ImageProcessing/PixelFormatRules.h"
#include "Runtime/PixelFormatWord.h"

namespace LM {

namespace {

// The type field (bits 14-17): 1-8 and 15 are refused, 9-12 name the 4:2:0 families.
std::uint32_t TypeOf(PixelFormat format) {
  return (format.properties & zelmediatypes::kPixelFormatPropertyMask_Type) >>
         zelmediatypes::kPixelFormatPropertyShift_Type;
}
bool IsRefusedType(std::uint32_t type) {
  return (type >= 1 && type <= 8) || type == 15;
}
std::uint32_t LayoutOf(PixelFormat format) {
  return format.properties & zelmediatypes::kPixelFormatPropertyMask_Layout;
}

// The place of a host format in the four-component family's list; the count when it is not there.
std::size_t HostFormatIndex(PixelFormat format) {
  std::size_t index = 0;
  while (index < kConvert444FormatCount && kConvert444Formats[index] != format) ++index;
  return index;
}

bool IsGPUFormat(PixelFormat format) {
  return GPUPixelBytes(format) != 0;
}

// The pixel of either side in bytes: a GPU format's, or a host four-component format's.
int SideBytes(PixelFormat format) {
  return IsGPUFormat(format) ? GPUPixelBytes(format) : HostPixelBytes(format);
}

int Convert444(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
               PixelFormat srcFormat, void* dst, int dstRowBytes, PixelFormat dstFormat, int width,
               int height, bool flip) {
  // Host BGRA_4444_32f is converted by the kernel between GPU formats, whose floats move as they are.
  const bool srcGPU = IsGPUFormat(srcFormat) || srcFormat == zelmediatypes::kPixelFormat_BGRA_4444_32f;
  const bool dstGPU = IsGPUFormat(dstFormat) || dstFormat == zelmediatypes::kPixelFormat_BGRA_4444_32f;
  std::size_t variant = 0;
  if (srcGPU && dstGPU) {
    variant = kConvertBetweenGPUFormats;
  } else if (srcGPU && HostFormatIndex(dstFormat) < kConvert444FormatCount) {
    variant = ToHostVariant(HostFormatIndex(dstFormat));
  } else if (dstGPU && HostFormatIndex(srcFormat) < kConvert444FormatCount) {
    variant = FromHostVariant(HostFormatIndex(srcFormat));
  } else {
    return kResultUnsupported;
  }
  const int srcBytes = SideBytes(srcFormat), dstBytes = SideBytes(dstFormat);
  const Operands operands = {PixelOperand(src, srcRowBytes, srcBytes, 0, 0, width, height),
                             PixelOperand(dst, dstRowBytes, dstBytes, 0, 0, width, height)};
  int srcPitch = PitchInElements(srcRowBytes, srcBytes);
  const void* start = src;
  // CUDA walks the source upwards from its last row; the OpenCL kernels flip from their flag.
  if (flip && device && device->GetFramework() == kDeviceFramework_CUDA && srcRowBytes > 0) {
    start = static_cast<const char*>(src) + static_cast<std::ptrdiff_t>(height - 1) * srcRowBytes;
    srcPitch = -srcPitch;
  }
  return pixelFormatConvert444Kernels.Launch(device, variant, width, height, nullptr, operands,
                                             DevicePointer{start}, srcPitch, Is32BitFloat(srcFormat),
                                             DevicePointer{dst}, PitchInElements(dstRowBytes, dstBytes),
                                             Is32BitFloat(dstFormat), width, height, flip ? 1 : 0);
}

}  // namespace

int PixelFormatConvert(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
                       PixelFormat srcFormat, void* dst, int dstRowBytes, PixelFormat dstFormat, int width,
                       int height, bool flipVertically) {
  if (width <= 0 || height <= 0) return kResultSuccess;
  if (!word::IsDescribed(srcFormat.properties) || !word::IsDescribed(dstFormat.properties))
    return kResultFailed;
  if (IsRefusedType(TypeOf(srcFormat)) || IsRefusedType(TypeOf(dstFormat))) return kResultFailed;
  if (srcFormat == dstFormat) {
    return FastDeviceMemcpy2D(device, src, srcRowBytes, dst, dstRowBytes, srcFormat, width, height);
  }
  if (LayoutOf(srcFormat) == zelmediatypes::kPixelFormatLayout_4444 &&
      LayoutOf(dstFormat) == zelmediatypes::kPixelFormatLayout_4444) {
    return Convert444(device, src, srcRowBytes, srcFormat, dst, dstRowBytes, dstFormat, width, height,
                      flipVertically);
  }
  // The packed 4:2:2 and planar 4:2:0 families have no kernels yet: their pairs are not supported.
  return kResultUnsupported;
}

}  // namespace LM
