// Image sizes by format. A table format states its size rule; a registered format gets the rule its
// property word implies; any other format is sized only when its word describes four components per
// pixel, since that is the one layout whose size follows from the word alone.
#include <limits>

#include "PixelFormatInternal.h"

namespace zelmediatypes {
namespace {

// Products that do not fit in std::size_t make the whole size 0, never a wrapped value.
bool Multiply(std::size_t a, std::size_t b, std::size_t& out) {
  if (a != 0 && b > std::numeric_limits<std::size_t>::max() / a) return false;
  out = a * b;
  return true;
}

std::size_t SizeByRule(PixelFormatSizeRule rule, std::uint32_t properties, std::size_t w, std::size_t h) {
  std::size_t rowBytes = 0;
  std::size_t bytes = 0;
  switch (rule) {
    case PixelFormatSizeRule::kPerPixel:
      if (!Multiply(internal::FourComponentPixelBytes(properties), w, rowBytes)) return 0;
      break;
    case PixelFormatSizeRule::kPacked422:
      if (!Multiply((w + 1) / 2, 4, rowBytes)) return 0;
      break;
    case PixelFormatSizeRule::kV210:
      if (!Multiply((w + 47) / 48, 128, rowBytes)) return 0;
      break;
    case PixelFormatSizeRule::kPlanar420_8u: {
      std::size_t luma = 0;
      std::size_t chroma = 0;
      if (!Multiply(w, h, luma) || !Multiply((w + 1) / 2, (h + 1) / 2, chroma) ||
          !Multiply(chroma, 2, chroma)) {
        return 0;
      }
      return luma <= std::numeric_limits<std::size_t>::max() - chroma ? luma + chroma : 0;
    }
    case PixelFormatSizeRule::kNone:
      return 0;
  }
  return Multiply(rowBytes, h, bytes) ? bytes : 0;
}

}  // namespace

namespace internal {

std::uint32_t FourComponentPixelBytes(std::uint32_t properties) {
  if ((properties & kPixelFormatPropertyMask_Class) != kPixelFormatClass_Described ||
      (properties & kPixelFormatPropertyMask_Layout) != kPixelFormatLayout_4444) {
    return 0;
  }
  switch (properties & kPixelFormatPropertyMask_Sample) {
    case kPixelFormatSample_8u:
      return 4;
    case kPixelFormatSample_15u:
    case kPixelFormatSample_16f:
      return 8;
    case kPixelFormatSample_32f:
      return 16;
    default:
      return 0;
  }
}

PixelFormatSizeRule SizeRuleForProperties(std::uint32_t properties) {
  if ((properties & kPixelFormatPropertyMask_Class) != kPixelFormatClass_Described) {
    return PixelFormatSizeRule::kNone;
  }
  const std::uint32_t sample = properties & kPixelFormatPropertyMask_Sample;
  switch (properties & kPixelFormatPropertyMask_Layout) {
    case kPixelFormatLayout_4444:
      return FourComponentPixelBytes(properties) ? PixelFormatSizeRule::kPerPixel
                                                 : PixelFormatSizeRule::kNone;
    case kPixelFormatLayout_422Packed:
      if (sample == kPixelFormatSample_8u) return PixelFormatSizeRule::kPacked422;
      if (sample == kPixelFormatSample_10u) return PixelFormatSizeRule::kV210;
      return PixelFormatSizeRule::kNone;
    case kPixelFormatLayout_420Planar:
      return (properties & kPixelFormatProperty_Planar) && sample == kPixelFormatSample_8u
                 ? PixelFormatSizeRule::kPlanar420_8u
                 : PixelFormatSizeRule::kNone;
    default:
      return PixelFormatSizeRule::kNone;
  }
}

}  // namespace internal

std::size_t PixelFormatSize(PixelFormat format, int width, int height) {
  if (width <= 0 || height <= 0) return 0;
  PixelFormatSizeRule rule = PixelFormatSizeRule::kNone;
  if (const PixelFormatInfo* info = FindPixelFormatInfo(format)) {
    rule = info->sizeRule;
  } else if (internal::IsRegisteredPixelFormat(format)) {
    rule = internal::SizeRuleForProperties(format.properties);
  } else if ((format.properties & kPixelFormatPropertyMask_Layout) == kPixelFormatLayout_4444) {
    rule = PixelFormatSizeRule::kPerPixel;  // 0 bytes for a word that does not describe its format
  }
  return SizeByRule(rule, format.properties, std::size_t(width), std::size_t(height));
}

}  // namespace zelmediatypes
