// The fields of a PixelFormat's property word as the library reads them, by name: every reader of the word
// (pixel sizes, texture formats, OpenCL image formats, copies) goes through these helpers, on the host's
// named masks. It sits in the lowest layer of the library so that every layer reads the word the same way.
#pragma once

#include <zelmediatypes/PixelFormatProperties.h>

#include <cstdint>

namespace LM {
namespace word {

// Whether the word describes its format; the other fields mean something only then.
constexpr bool IsDescribed(std::uint32_t word) {
  return (word & zelmediatypes::kPixelFormatPropertyMask_Class) == zelmediatypes::kPixelFormatClass_Described;
}

// The component kind, bits 1-3: 0 8-bit, 1 10-bit, 3 16-bit (half with the float bit), 5 32-bit float.
constexpr std::uint32_t ComponentKind(std::uint32_t word) {
  return (word & zelmediatypes::kPixelFormatPropertyMask_Kind) >>
         zelmediatypes::kPixelFormatPropertyShift_Kind;
}
constexpr std::uint32_t kKind8Bit = 0;
constexpr std::uint32_t kKind16Bit = 3;
constexpr std::uint32_t kKind32Bit = 5;

// The float bit (bit 4).
constexpr bool IsFloat(std::uint32_t word) {
  return (word & zelmediatypes::kPixelFormatProperty_Float) != 0;
}

// Whether the layout bits (10-11) are set: packed 4:2:2 or planar 4:2:0, read one channel at a time,
// rather than four components a pixel.
constexpr bool HasSubsampledLayout(std::uint32_t word) {
  return (word & zelmediatypes::kPixelFormatPropertyMask_Layout) != zelmediatypes::kPixelFormatLayout_4444;
}

}  // namespace word
}  // namespace LM
