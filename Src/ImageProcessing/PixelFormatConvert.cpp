// Pixel format conversion on the device: the frame's checks of the two formats, the path by layout, and
// the kernel of the pair.
#include <climits>

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

// The textures of the 4:2:0 kernels, by the names they sample.
constexpr const char* k420Module = "PixelFormatConvert_420";
TextureCache yPlaneTexture(k420Module, "inYPlaneTexture");
TextureCache frameUPlaneTexture(k420Module, "inFrameCodedUPlaneTexture");
TextureCache frameVPlaneTexture(k420Module, "inFrameCodedVPlaneTexture");
TextureCache upperUPlaneTexture(k420Module, "inUpperUPlaneTexture");
TextureCache upperVPlaneTexture(k420Module, "inUpperVPlaneTexture");
TextureCache lowerUPlaneTexture(k420Module, "inLowerUPlaneTexture");
TextureCache lowerVPlaneTexture(k420Module, "inLowerVPlaneTexture");

// A texture of `cache` bound to `rows` rows of a plane, starting `firstRow` rows in and stepping `step` rows
// at a time (2 to read one field's rows of a FIELD picture's chroma).
int BindPlane(const boost::shared_ptr<Device>& device, TextureCache& cache, PixelFormat format,
              const TexturePlane& plane, int firstRow, int step, int width, int rows, Texture* texture) {
  *texture = cache.Find(device, format);
  return BindTexture(
      device, *texture, plane.base,
      static_cast<const char*>(plane.data) + static_cast<std::ptrdiff_t>(firstRow) * plane.rowBytes,
      step * plane.rowBytes, width, rows, format);
}

// A 4:2:0 source (docs/pixel-formats.md: its three planes in one buffer) into a GPU format. Planes whose
// pitch the texture hardware cannot bind are first copied to pool blocks that it can; those go back to
// the pool once the kernel that samples them has run.
int Convert420(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
               PixelFormat srcFormat, void* dst, int dstRowBytes, PixelFormat dstFormat, int width,
               int height, bool flip) {
  std::size_t index = IndexIn(kConvert420FrameFormats, srcFormat);
  const bool field = index == kConvert420FormatCount;
  if (field) index = IndexIn(kConvert420FieldFormats, srcFormat);
  if (index == kConvert420FormatCount || !IsGPUFormat(dstFormat)) return kResultUnsupported;
  if (!device) return kResultFailed;

  const int chromaWidth = width / 2 + width % 2, chromaRows = height / 2 + height % 2;
  const long long chromaPitch = (static_cast<long long>(srcRowBytes) + 1) / 2;
  const long long uStart = static_cast<long long>(srcRowBytes) * height;
  const long long vStart = uStart + chromaPitch * chromaRows;
  const long long end = vStart + chromaPitch * (chromaRows - 1) + chromaWidth;
  if (srcRowBytes < width || end > INT_MAX) return kResultFailed;
  const int dstBytes = GPUPixelBytes(dstFormat);
  const Operand planes = PixelOperand(src, end, 1, 0, 0, end, 1);
  const Operand output = PixelOperand(dst, dstRowBytes, dstBytes, 0, 0, width, height);
  const Operand operands[] = {planes, output};
  const int checked = CheckOperands(*device, operands, 2, kResultUnsupported);
  if (checked != kResultSuccess) return checked;
  // Before any plane is copied or bound: a kernel that cannot be had makes the pair unsupported.
  if ((field ? pixelFormatConvert420FieldKernels.Find(*device, index)
             : pixelFormatConvert420FrameKernels.Find(*device, index)) == nullptr) {
    return kResultUnsupported;
  }

  TexturePlane y, u, v;
  int result = AlignPlaneForTexture(device, src, src, srcRowBytes, width, height, srcFormat, &y);
  if (result == kResultSuccess) {
    result = AlignPlaneForTexture(device, src, static_cast<const char*>(src) + uStart,
                                  static_cast<int>(chromaPitch), chromaWidth, chromaRows, srcFormat, &u);
  }
  if (result == kResultSuccess) {
    result = AlignPlaneForTexture(device, src, static_cast<const char*>(src) + vStart,
                                  static_cast<int>(chromaPitch), chromaWidth, chromaRows, srcFormat, &v);
  }
  Texture luma;
  if (result == kResultSuccess)
    result = BindPlane(device, yPlaneTexture, srcFormat, y, 0, 1, width, height, &luma);

  const DevicePointer destination{dst};
  const int dstPitch = PitchInElements(dstRowBytes, dstBytes);
  const int is32f = Is32BitFloat(dstFormat);
  boost::shared_ptr<Event> done;
  if (result == kResultSuccess && !field) {
    Texture cb, cr;
    result = BindPlane(device, frameUPlaneTexture, srcFormat, u, 0, 1, chromaWidth, chromaRows, &cb);
    if (result == kResultSuccess) {
      result = BindPlane(device, frameVPlaneTexture, srcFormat, v, 0, 1, chromaWidth, chromaRows, &cr);
    }
    if (result == kResultSuccess) {
      result = pixelFormatConvert420FrameKernels.Launch(
          device, index, width, height, &done, {output}, ImageObject{luma.image}, ImageObject{cb.image},
          ImageObject{cr.image}, static_cast<int>(luma.offset), static_cast<int>(cb.offset),
          static_cast<int>(cr.offset), destination, dstPitch, is32f, width, height, flip ? 1 : 0);
    }
  } else if (result == kResultSuccess) {
    // Each field's chroma rows: the upper field's from the plane's first row, the lower field's from its
    // second, both at twice the chroma pitch. A one-row plane has no lower field; its texture is bound to
    // the upper field's row, which the kernel then never reads.
    const int upperRows = chromaRows / 2 + chromaRows % 2;
    const int lowerStart = chromaRows > 1 ? 1 : 0, lowerRows = chromaRows > 1 ? chromaRows / 2 : 1;
    Texture upperCb, upperCr, lowerCb, lowerCr;
    result = BindPlane(device, upperUPlaneTexture, srcFormat, u, 0, 2, chromaWidth, upperRows, &upperCb);
    if (result == kResultSuccess) {
      result = BindPlane(device, upperVPlaneTexture, srcFormat, v, 0, 2, chromaWidth, upperRows, &upperCr);
    }
    if (result == kResultSuccess) {
      result = BindPlane(device, lowerUPlaneTexture, srcFormat, u, lowerStart, 2, chromaWidth, lowerRows,
                         &lowerCb);
    }
    if (result == kResultSuccess) {
      result = BindPlane(device, lowerVPlaneTexture, srcFormat, v, lowerStart, 2, chromaWidth, lowerRows,
                         &lowerCr);
    }
    if (result == kResultSuccess) {
      result = pixelFormatConvert420FieldKernels.Launch(
          device, index, width, height, &done, {output}, ImageObject{luma.image}, ImageObject{upperCb.image},
          ImageObject{upperCr.image}, ImageObject{lowerCb.image}, ImageObject{lowerCr.image},
          static_cast<int>(luma.offset), static_cast<int>(upperCb.offset), static_cast<int>(upperCr.offset),
          static_cast<int>(lowerCb.offset), static_cast<int>(lowerCr.offset), destination, dstPitch, is32f,
          width, height, flip ? 1 : 0);
    }
  }
  // Copies of the planes may be queued even when the launch was not: the blocks wait for what is queued.
  if (!done && (y.scratch != nullptr || u.scratch != nullptr || v.scratch != nullptr)) {
    if (const boost::shared_ptr<CommandQueue> queue = device->GetCommandQueue()) done = queue->RecordEvent();
  }
  for (TexturePlane* plane : {&y, &u, &v}) ReleaseTexturePlane(device, plane, done);
  return result;
}

}  // namespace

int PixelFormatConvert(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
                       PixelFormat srcFormat, void* dst, int dstRowBytes, PixelFormat dstFormat, int width,
                       int height, bool flipVertically) {
  if (!device) return kResultFailed;
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
  // Otherwise a 4:2:0 source with its planar bit, of one of the four 4:2:0 types.
  const std::uint32_t type = TypeOf(srcFormat);
  if ((srcFormat.properties & zelmediatypes::kPixelFormatProperty_Planar) == 0 ||
      LayoutOf(srcFormat) != zelmediatypes::kPixelFormatLayout_420Planar || type < 9 || type > 12) {
    return kResultUnsupported;
  }
  return Convert420(device, src, srcRowBytes, srcFormat, dst, dstRowBytes, dstFormat, width, height,
                    flipVertically);
}

}  // namespace LM
