#include "FK/VideoFrame.h"

#include "zelmediatypes/PixelFormatProperties.h"

namespace FK {

bool IsRectNativeToFrame(const OXR::ParamRect<CRect>& rect, const OXR::ParamRect<CRect>& bounds,
                         zelmediatypes::PixelFormat format) {
  if (rect == bounds) return true;
  const bool decodes = zelmediatypes::IsPlanar420Format(format) || zelmediatypes::Is444DecodeFormat(format);
  if (!decodes || rect.left != bounds.left || rect.top != bounds.top) return false;
  const std::int32_t width = bounds.Width(), height = bounds.Height();
  return rect.Height() == height / 2 && (rect.Width() == width || rect.Width() == width / 2) && height > 1;
}

zelmediatypes::PixelFormat BEPixelFormatToIRPixelFormat(zelmediatypes::PixelFormat format) {
  return format;
}

// An odd height leaves one more row to one field; which one follows the field order.
int FirstRowOfField(int field, std::uint32_t height, zelmediatypes::FieldType fieldType) {
  const int f = field != 0 ? 1 : 0;
  const bool odd = (height & 1u) != 0;
  if (fieldType != zelmediatypes::kFieldType_UpperFirst) return odd ? 1 - f : f;
  return odd ? f : 1 - f;
}

std::uint32_t WithAlphaType(std::uint32_t properties, std::uint32_t alphaType) {
  const std::uint32_t changed =
      (properties & ~zelmediatypes::kPixelFormatPropertyMask_Alpha) | ((alphaType & 7u) << 7);
  const std::uint32_t name = zelmediatypes::GuessNameForProperties(changed);
  if (name == zelmediatypes::kPixelFormatName_Bad) return zelmediatypes::kPixelFormatProperties_Invalid;
  if (name != 0) return (changed & ~0x80000u) | zelmediatypes::kPixelFormatClass_Described;
  return zelmediatypes::kPixelFormatProperties_Any;
}

}  // namespace FK
