// The host's pixel format: an 8-byte value of two 32-bit words, a four-character code (low word) and a
// property word (high word) whose bit fields describe the layout. docs/pixel-formats.md lists the bit
// fields and every format of the table.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zelmediatypes {

struct PixelFormat {
  std::uint32_t code;
  std::uint32_t properties;
};

constexpr bool operator==(PixelFormat a, PixelFormat b) {
  return a.code == b.code && a.properties == b.properties;
}
constexpr bool operator!=(PixelFormat a, PixelFormat b) {
  return !(a == b);
}

// Builds a code word from its four characters, first character in the lowest byte.
constexpr std::uint32_t MakeFormatCode(char a, char b, char c, char d) {
  return std::uint32_t(std::uint8_t(a)) | std::uint32_t(std::uint8_t(b)) << 8 |
         std::uint32_t(std::uint8_t(c)) << 16 | std::uint32_t(std::uint8_t(d)) << 24;
}

// A property word that describes no format (class bits 0x80000 instead of 0x40000).
constexpr std::uint32_t kPixelFormatProperties_Invalid = 0x00080000u;
// A property word that stands for any format (both class bits).
constexpr std::uint32_t kPixelFormatProperties_Any = 0x000C0000u;
// The name GuessNameForProperties gives a property word that is not a valid description ("badf").
constexpr std::uint32_t kPixelFormatName_Bad = 0x66646162u;

constexpr PixelFormat kPixelFormat_Invalid = {MakeFormatCode('?', '?', '?', '?'),
                                              kPixelFormatProperties_Invalid};

}  // namespace zelmediatypes
