// The host's UTF-16 string type (paths and user-visible text) and its conversions from and to UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <ios>
#include <string>

#include "zelcore/Utility.h"

namespace zelcore {

using UTF16Char = std::uint16_t;

// Character traits for 16-bit code units. int_type is 32 bits wide so that eof() differs from every code
// unit.
struct UTF16CharTraits {
  using char_type = UTF16Char;
  using int_type = std::uint32_t;
  using off_type = std::streamoff;
  using pos_type = std::streampos;
  using state_type = std::mbstate_t;

  static constexpr void assign(char_type& r, const char_type& a) noexcept { r = a; }
  static constexpr bool eq(char_type a, char_type b) noexcept { return a == b; }
  static constexpr bool lt(char_type a, char_type b) noexcept { return a < b; }

  static constexpr int compare(const char_type* a, const char_type* b, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
      if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    }
    return 0;
  }
  static constexpr std::size_t length(const char_type* s) noexcept {
    std::size_t n = 0;
    while (s[n] != 0) ++n;
    return n;
  }
  static constexpr const char_type* find(const char_type* s, std::size_t n, const char_type& c) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
      if (s[i] == c) return s + i;
    }
    return nullptr;
  }
  // memmove and memcpy must not see null pointers, which empty strings may pass with n == 0.
  static char_type* move(char_type* d, const char_type* s, std::size_t n) noexcept {
    if (n != 0) std::memmove(d, s, n * sizeof(char_type));
    return d;
  }
  static char_type* copy(char_type* d, const char_type* s, std::size_t n) noexcept {
    if (n != 0) std::memcpy(d, s, n * sizeof(char_type));
    return d;
  }
  static char_type* assign(char_type* s, std::size_t n, char_type c) noexcept {
    for (std::size_t i = 0; i < n; ++i) s[i] = c;
    return s;
  }

  static constexpr int_type eof() noexcept { return 0xFFFFFFFFu; }
  static constexpr int_type not_eof(int_type c) noexcept { return c == eof() ? 0 : c; }
  static constexpr char_type to_char_type(int_type c) noexcept { return static_cast<char_type>(c); }
  static constexpr int_type to_int_type(char_type c) noexcept { return c; }
  static constexpr bool eq_int_type(int_type a, int_type b) noexcept { return a == b; }
};

using UTF16String = std::basic_string<UTF16Char, UTF16CharTraits, utility::SmallBlockAllocator<UTF16Char>>;

// Invalid input (stray or truncated UTF-8 sequences, overlong forms, encoded surrogates, values above
// U+10FFFF; unpaired UTF-16 surrogates) becomes U+FFFD, one per maximal invalid subsequence.
UTF16String UTF8ToUTF16(const std::string& text);
std::string UTF16ToUTF8(const UTF16String& text);

// UTF-8 text (a literal, usually) as a UTF-16 string; null gives an empty string.
UTF16String Wide(const char* text);

}  // namespace zelcore
