// UTF-8 and UTF-16 conversions.
#include <gtest/gtest.h>

#include <string>

#include "zelcore/Strings.h"

namespace {

using zelcore::UTF16String;
using zelcore::UTF16ToUTF8;
using zelcore::UTF8ToUTF16;

UTF16String Units(std::initializer_list<zelcore::UTF16Char> units) {
  return UTF16String(units);
}

TEST(HostUTF16Conversion, RoundTripsEveryPlaneExactly) {
  // A, e-acute, euro sign, a CJK ideograph, U+FFFF, then U+10000, U+1F600 and U+10FFFF (surrogate pairs).
  const std::string utf8 =
      "A\xC3\xA9\xE2\x82\xAC\xE4\xB8\xAD\xEF\xBF\xBF\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF";
  const UTF16String utf16 = UTF8ToUTF16(utf8);
  EXPECT_EQ(utf16,
            Units({0x41, 0xE9, 0x20AC, 0x4E2D, 0xFFFF, 0xD800, 0xDC00, 0xD83D, 0xDE00, 0xDBFF, 0xDFFF}));
  EXPECT_EQ(UTF16ToUTF8(utf16), utf8);
  const std::string withNul("a\0b", 3);
  EXPECT_EQ(UTF16ToUTF8(UTF8ToUTF16(withNul)), withNul);
}

TEST(HostUTF16Conversion, InvalidInputBecomesReplacementCharacters) {
  constexpr zelcore::UTF16Char R = 0xFFFD;
  EXPECT_EQ(UTF8ToUTF16("\x80"), Units({R}));                       // stray continuation byte
  EXPECT_EQ(UTF8ToUTF16("\xE2\x82\x41"), Units({R, 'A'}));          // broken by an ASCII 'A', which is kept
  EXPECT_EQ(UTF8ToUTF16("\xC0\xAF"), Units({R, R}));                // overlong '/'
  EXPECT_EQ(UTF8ToUTF16("\xED\xA0\x80"), Units({R, R, R}));         // an encoded surrogate
  EXPECT_EQ(UTF8ToUTF16("\xF4\x90\x80\x80"), Units({R, R, R, R}));  // above U+10FFFF
  EXPECT_EQ(UTF8ToUTF16("a\xF0\x9F\x98\x80\xF0\x9F\x62"), Units({'a', 0xD83D, 0xDE00, R, 'b'}));  // 'b' cuts

  // Unpaired surrogates on the way back.
  const std::string r = "\xEF\xBF\xBD";
  EXPECT_EQ(UTF16ToUTF8(Units({0xD83D})), r);
  EXPECT_EQ(UTF16ToUTF8(Units({0xDE00, 0xD83D})), r + r);
  EXPECT_EQ(UTF16ToUTF8(Units({0xD83D, 0xD83D, 0xDE00})), r + "\xF0\x9F\x98\x80");
}

}  // namespace
