// The small value types that describe a video frame beside its pixel format: field order, pixel aspect ratio
// and the quality a render is asked for.
#pragma once

#include <cstdint>

namespace zelmediatypes {

// How a frame's rows belong to fields: progressive, or interlaced with the upper (even) or lower (odd) rows
// first in time.
enum FieldType : std::int32_t {
  kFieldType_Progressive = 0,
  kFieldType_UpperFirst = 1,
  kFieldType_LowerFirst = 2,
};

// The quality a render is asked for, from draft to the best the renderer has. Callers compare levels as
// numbers ("below 3").
enum RenderQuality : std::int32_t {
  kRenderQuality_Draft = 0,
  kRenderQuality_Low = 1,
  kRenderQuality_Medium = 2,
  kRenderQuality_High = 3,
  kRenderQuality_Max = 4,
};

// Width over height of one pixel, as a fraction.
struct PixelAspectRatio {
  std::int32_t numerator = 1;
  std::int32_t denominator = 1;

  friend constexpr bool operator==(const PixelAspectRatio& a, const PixelAspectRatio& b) {
    return a.numerator == b.numerator && a.denominator == b.denominator;
  }
  friend constexpr bool operator!=(const PixelAspectRatio& a, const PixelAspectRatio& b) { return !(a == b); }
};

}  // namespace zelmediatypes
