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

// The place of a format in a family's list; the count when it is not there.
template <std::size_t N>
std::size_t IndexIn(const PixelFormat (&formats)[N], PixelFormat format) {
  std::size_t index = 0;
  while (index < N && formats[index] != format) ++index;
  return index;
}

bool IsGPUFormat(PixelFormat format) {
  return GPUPixelBytes(format) != 0;
}

// One side of a conversion as its kernel takes it: the pitch counts units of unitBytes (a pixel, a 4:2:2
// pixel pair or a v210 group), and a row of the image holds `units` of them.
struct Side {
  const void* buffer;
  int rowBytes;
  PixelFormat format;
  int unitBytes;
  int units;
};

Side PixelSide(const void* buffer, int rowBytes, PixelFormat format, int width) {
  return Side{buffer, rowBytes, format, IsGPUFormat(format) ? GPUPixelBytes(format) : HostPixelBytes(format),
              width};
}

// The launch of every path that reads a buffer: the operands, CUDA's upward walk of a flipped source
// (OpenCL kernels flip from their flag), and the arguments in the kernels' order. The grid is `gridWidth`
// work items a row: one a pixel, or one a packing group of the 4:2:2 side.
template <class Family>
int LaunchConversion(Family& family, std::size_t variant, const boost::shared_ptr<Device>& device,
                     const Side& src, const Side& dst, int gridWidth, int width, int height, bool flip) {
  const Operands operands = {PixelOperand(src.buffer, src.rowBytes, src.unitBytes, 0, 0, src.units, height),
                             PixelOperand(dst.buffer, dst.rowBytes, dst.unitBytes, 0, 0, dst.units, height)};
  int srcPitch = PitchInElements(src.rowBytes, src.unitBytes);
  const void* start = src.buffer;
  if (flip && device && device->GetFramework() == kDeviceFramework_CUDA && src.rowBytes > 0) {
    start = static_cast<const char*>(src.buffer) + static_cast<std::ptrdiff_t>(height - 1) * src.rowBytes;
    srcPitch = -srcPitch;
  }
  return family.Launch(device, variant, gridWidth, height, nullptr, operands, DevicePointer{start}, srcPitch,
                       Is32BitFloat(src.format), DevicePointer{dst.buffer},
                       PitchInElements(dst.rowBytes, dst.unitBytes), Is32BitFloat(dst.format), width, height,
                       flip ? 1 : 0);
}

int Convert444(const boost::shared_ptr<Device>& device, const Side& src, const Side& dst, int width,
               int height, bool flip) {
  // Host BGRA_4444_32f is converted by the kernel between GPU formats, whose floats move as they are.
  const bool srcGPU = IsGPUFormat(src.format) || src.format == zelmediatypes::kPixelFormat_BGRA_4444_32f;
  const bool dstGPU = IsGPUFormat(dst.format) || dst.format == zelmediatypes::kPixelFormat_BGRA_4444_32f;
  const std::size_t srcIndex = IndexIn(kConvert444Formats, src.format);
  const std::size_t dstIndex = IndexIn(kConvert444Formats, dst.format);
  std::size_t variant = 0;
  if (srcGPU && dstGPU) {
    variant = kConvertBetweenGPUFormats;
  } else if (srcGPU && dstIndex < kConvert444FormatCount) {
    variant = ToHostVariant(dstIndex);
  } else if (dstGPU && srcIndex < kConvert444FormatCount) {
    variant = FromHostVariant(srcIndex);
  } else {
    return kResultUnsupported;
  }
  return LaunchConversion(pixelFormatConvert444Kernels, variant, device, src, dst, width, width, height,
                          flip);
}

// One side a GPU format, the other a packed 4:2:2 format; a work item converts one packing group.
int Convert422(const boost::shared_ptr<Device>& device, Side src, Side dst, int width, int height,
               bool flip) {
  const std::size_t srcIndex = IndexIn(kConvert422Formats, src.format);
  const std::size_t dstIndex = IndexIn(kConvert422Formats, dst.format);
  const bool fromHost = srcIndex < kConvert422FormatCount && IsGPUFormat(dst.format);
  if (!fromHost && !(dstIndex < kConvert422FormatCount && IsGPUFormat(src.format))) return kResultUnsupported;
  Side& packed = fromHost ? src : dst;
  const int groupPixels = kConvert422GroupPixels[fromHost ? srcIndex : dstIndex];
  packed.unitBytes = GroupBytes(groupPixels);
  packed.units = static_cast<int>((static_cast<long long>(width) + groupPixels - 1) / groupPixels);
  const std::size_t variant = 2 * (fromHost ? srcIndex : dstIndex) + (fromHost ? 0 : 1);
  return LaunchConversion(pixelFormatConvert422Kernels, variant, device, src, dst, packed.units, width,
                          height, flip);
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
    return Convert444(device, PixelSide(src, srcRowBytes, srcFormat, width),
                      PixelSide(dst, dstRowBytes, dstFormat, width), width, height, flipVertically);
  }
  if (LayoutOf(srcFormat) == zelmediatypes::kPixelFormatLayout_422Packed ||
      LayoutOf(dstFormat) == zelmediatypes::kPixelFormatLayout_422Packed) {
    return Convert422(device, PixelSide(src, srcRowBytes, srcFormat, width),
                      PixelSide(dst, dstRowBytes, dstFormat, width), width, height, flipVertically);
  }
  // The planar 4:2:0 family has no kernels yet: its pairs are not supported.
  return kResultUnsupported;
}

}  // namespace LM
