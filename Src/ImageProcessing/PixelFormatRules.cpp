#include "ImageProcessing/PixelFormatRules.h"

#include "Lumora/ImageOperations.h"
#include "Runtime/PixelFormatWord.h"

namespace LM {

int Is32BitFloat(PixelFormat format) {
  return format == kPixelFormat_GPU_BGRA_4444_16f || format == kPixelFormat_GPU_BGRX_4444_16f ? 0 : 1;
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
