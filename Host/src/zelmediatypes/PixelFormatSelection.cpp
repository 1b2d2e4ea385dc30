// The format choices of frame uploads: what a decoder of a format delivers, and the four-component format
// that a CPU render stages a frame in for the GPU converter. Both read only the table entry's property word.
#include "zelmediatypes/PixelFormatTable.h"

namespace zelmediatypes {
namespace {

std::uint32_t Field(PixelFormat format, std::uint32_t mask) {
  return format.properties & mask;
}

// The 4444 formats that the GPU converter reads: every four-component host format of the table (the six
// RGB families in 8u, 15u, 32f and 32f linear, the three Y'CbCr families in 8u and 32f with either matrix)
// and the GPU working formats themselves.
bool IsConverterSource4444(PixelFormat format) {
  return FindPixelFormatInfo(format) &&
         Field(format, kPixelFormatPropertyMask_Layout) == kPixelFormatLayout_4444;
}

}  // namespace

DVDecompressionFormat SelectDVDecompressionFormat(PixelFormat format, int width, int height) {
  if (!FindPixelFormatInfo(format) || width <= 0 || height <= 0) return {kPixelFormat_Invalid, 0, 0};
  return {format, width, height};
}

PixelFormat Select4444PixelFormat(PixelFormat format, RenderQuality quality) {
  if (!FindPixelFormatInfo(format)) return kPixelFormat_Invalid;
  if (IsConverterSource4444(format)) return format;
  const bool bt709 = IsBT709(format);
  const PixelFormat float4444 = bt709 ? kPixelFormat_VUYA_4444_32f_709 : kPixelFormat_VUYA_4444_32f;
  const PixelFormat byte4444 = bt709 ? kPixelFormat_VUYA_4444_8u_709 : kPixelFormat_VUYA_4444_8u;
  // 10-bit and full-range sources have more levels than 8-bit video range holds.
  if (Field(format, kPixelFormatPropertyMask_Sample) != kPixelFormatSample_8u ||
      Field(format, kPixelFormatProperty_FullRange)) {
    return float4444;
  }
  // Interpolated chroma of 8-bit 4:2:2 and 4:2:0 has fractions that only float keeps.
  return quality >= kRenderQuality_High ? float4444 : byte4444;
}

}  // namespace zelmediatypes
