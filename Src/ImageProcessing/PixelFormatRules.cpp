#include "ImageProcessing/PixelFormatRules.h"

#include <zelmediatypes/PixelFormatTable.h>

#include <climits>

#include "Lumora/ImageOperations.h"
#include "Runtime/PixelFormatWord.h"

namespace LM {

int Is32BitFloat(PixelFormat format) {
  return format == kPixelFormat_GPU_BGRA_4444_16f || format == kPixelFormat_GPU_BGRX_4444_16f ? 0 : 1;
}

int GPUPixelBytes(PixelFormat format) {
  if (format == kPixelFormat_GPU_BGRA_4444_16f || format == kPixelFormat_GPU_BGRX_4444_16f) return 8;
  if (format == kPixelFormat_GPU_BGRA_4444_32f || format == kPixelFormat_GPU_BGRX_4444_32f) return 16;
  return 0;
}

int HostPixelBytes(PixelFormat format) {
  if (word::HasSubsampledLayout(format.properties)) return 0;
  return HostRowBytes(format, 1);
}

int HostRowBytes(PixelFormat format, int width) {
  if ((format.properties & zelmediatypes::kPixelFormatProperty_Planar) != 0) return 0;
  const std::size_t bytes = zelmediatypes::PixelFormatSize(format, width, 1);
  return bytes <= static_cast<std::size_t>(INT_MAX) ? static_cast<int>(bytes) : 0;
}

// The size of a pixel from the property word alone: the word must describe its format; then the component
// kind and whether the layout is four components a pixel or subsampled decide.
int BytesPerPixel(PixelFormat format) {
  const std::uint32_t properties = format.properties;
  if (!word::IsDescribed(properties)) return 0;
  const bool subsampled = word::HasSubsampledLayout(properties);
  switch (word::ComponentKind(properties)) {
    case word::kKind8Bit:
      return subsampled ? 2 : 4;
    case 2:
    case word::kKind16Bit:
      return 8;
    case word::kKind32Bit:
      return subsampled ? 8 : 16;
    default:
      return 0;
  }
}

}  // namespace LM
