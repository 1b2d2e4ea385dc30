// UTF-16 strings and their conversions.
#include <gtest/gtest.h>

#include <random>
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
  EXPECT_TRUE(UTF8ToUTF16("").empty());
  EXPECT_TRUE(zelcore::Wide(nullptr).empty());
}

TEST(HostUTF16Conversion, MalformedUTF8BecomesOneReplacementPerMaximalBadSequence) {
  constexpr zelcore::UTF16Char R = 0xFFFD;
  struct Case {
    std::string input;
    UTF16String expected;
  };
  const Case cases[] = {
      {"\x80", Units({R})},      // stray continuation byte
      {"\xE2\x82", Units({R})},  // truncated at the end
      {"\xE2\x82"
       "A",
       Units({R, 'A'})},                          // broken by an ASCII byte, which is kept
      {"\xC0\xAF", Units({R, R})},                // overlong '/': C0 is never valid
      {"\xE0\x80\xAF", Units({R, R, R})},         // overlong three-byte form
      {"\xED\xA0\x80", Units({R, R, R})},         // an encoded surrogate
      {"\xF4\x90\x80\x80", Units({R, R, R, R})},  // above U+10FFFF
      {"\xF0\x9F\x98", Units({R})},               // truncated four-byte form
      {"\xFE\xFF", Units({R, R})},
      {"a\xF0\x9F\x98\x80\xF0\x9F"
       "b",
       Units({'a', 0xD83D, 0xDE00, R, 'b'})},
  };
  for (const Case& c : cases) EXPECT_EQ(UTF8ToUTF16(c.input), c.expected) << testing::PrintToString(c.input);
}

TEST(HostUTF16Conversion, UnpairedSurrogatesBecomeReplacements) {
  const std::string r = "\xEF\xBF\xBD";
  EXPECT_EQ(UTF16ToUTF8(Units({0xD83D})), r);
  EXPECT_EQ(UTF16ToUTF8(Units({0xDE00, 0xD83D})), r + r);
  EXPECT_EQ(UTF16ToUTF8(Units({'x', 0xD83D, 'y'})), "x" + r + "y");
  EXPECT_EQ(UTF16ToUTF8(Units({0xD83D, 0xD83D, 0xDE00})), r + "\xF0\x9F\x98\x80");
}

TEST(HostUTF16Conversion, RandomBytesAlwaysGiveValidText) {
  std::mt19937 random(12345);
  for (int round = 0; round < 3000; ++round) {
    std::string bytes(random() % 24, '\0');
    for (char& b : bytes) b = static_cast<char>(random());
    const std::string cleaned = UTF16ToUTF8(UTF8ToUTF16(bytes));
    // Cleaned text is valid, so it converts back and forth unchanged.
    ASSERT_EQ(UTF16ToUTF8(UTF8ToUTF16(cleaned)), cleaned);
  }
}

TEST(HostUTF16String, TraitsCompareCodeUnitsAsUnsigned) {
  const UTF16String high = Units({0xFFFF});
  const UTF16String low = Units({'a'});
  EXPECT_LT(low, high);
  EXPECT_LT(Units({'a'}), Units({'a', 'b'}));

  UTF16String path = zelcore::Wide("PTX/Fills_NVIDIA.ptx");
  EXPECT_EQ(path.rfind('.'), 16u);
  EXPECT_EQ(path.find(zelcore::Wide("Fills")), 4u);
  EXPECT_EQ(path.substr(0, 3), zelcore::Wide("PTX"));
  path.insert(0, zelcore::Wide("/opt/"));
  EXPECT_EQ(UTF16ToUTF8(path), "/opt/PTX/Fills_NVIDIA.ptx");
  EXPECT_EQ(path.c_str()[path.size()], 0);
  EXPECT_EQ(zelcore::UTF16CharTraits::length(path.c_str()), path.size());
}

}  // namespace
