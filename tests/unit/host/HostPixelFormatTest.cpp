// The pixel-format table against the bit fields that Lumora reads and against the format names. The
// expected values come from the names and from the library's rules, rewritten here, never from the
// host's own helpers.
#include <gtest/gtest.h>

#include <climits>
#include <set>
#include <string>
#include <vector>

#include "zelmediatypes/PixelFormatTable.h"

namespace zmt = zelmediatypes;

namespace {

std::vector<zmt::PixelFormatInfo> Table() {
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  return std::vector<zmt::PixelFormatInfo>(table, table + count);
}

bool Has(const std::string& s, const char* part) {
  return s.find(part) != std::string::npos;
}
std::string Short(const zmt::PixelFormatInfo& info) {
  return std::string(info.name).substr(13);
}

// Lumora's bytes per pixel, from the property word alone.
std::size_t LibraryBytesPerPixel(std::uint32_t d) {
  if ((d & 0xC0000u) != 0x40000u) return 0;
  const unsigned kind = (d >> 1) & 7;
  const bool narrow = (d & 0xC00u) != 0;
  if (kind == 0) return narrow ? 2 : 4;
  if (kind == 2 || kind == 3) return 8;
  if (kind == 5) return narrow ? 8 : 16;
  return 0;
}

std::vector<std::string> ExpectedNames() {
  std::vector<std::string> names;
  for (const char* family : {"BGRA", "BGRP", "BGRX", "ARGB", "PRGB", "XRGB"})
    for (const char* depth : {"8u", "15u", "32f", "32f_Linear"})
      names.push_back(family + std::string("_4444_") + depth);
  for (const char* family : {"VUYA", "VUYP", "VUYX"})
    for (const char* depth : {"8u", "8u_709", "32f", "32f_709"})
      names.push_back(family + std::string("_4444_") + depth);
  for (const char* packed : {"UYVY_422_8u", "YUYV_422_8u", "V210_422_10u"}) {
    names.push_back(packed);
    names.push_back(packed + std::string("_709"));
  }
  for (const char* mpeg : {"MPEG2", "MPEG4"})
    for (const char* picture : {"FRAME", "FIELD"})
      for (const char* variant : {"601", "709", "601_FullRange", "709_FullRange"})
        names.push_back(std::string("YUV_420_") + mpeg + "_" + picture + "_PICTURE_PLANAR_8u_" + variant);
  for (const char* gpu : {"GPU_BGRA_4444_16f", "GPU_BGRX_4444_16f", "GPU_BGRA_4444_32f", "GPU_BGRX_4444_32f"})
    names.push_back(gpu);
  return names;
}

TEST(HostPixelFormatTable, HoldsExactlyTheNamedFormatsOnce) {
  const std::vector<std::string> expected = ExpectedNames();
  std::multiset<std::string> names;
  std::set<std::uint32_t> codes, words;
  for (const auto& info : Table()) {
    EXPECT_EQ(std::string(info.name).substr(0, 13), "kPixelFormat_");
    names.insert(Short(info));
    codes.insert(info.format.code);
    words.insert(info.format.properties);
  }
  EXPECT_EQ(names, std::multiset<std::string>(expected.begin(), expected.end()));
  EXPECT_EQ(codes.size(), expected.size());
  EXPECT_EQ(words.size(), expected.size());
  EXPECT_EQ(codes.count(zmt::kPixelFormatName_Bad), 0u);
  EXPECT_EQ(codes.count(zmt::kPixelFormat_Invalid.code), 0u);
}

TEST(HostPixelFormatTable, GpuFormatsKeepTheirFixedWords) {
  const zmt::PixelFormat expected[] = {{0x61444340u, 0x00040096u},
                                       {0x78444340u, 0x00040196u},
                                       {0x41444340u, 0x0004009Au},
                                       {0x58444340u, 0x0004019Au}};
  const zmt::PixelFormat gpu[] = {zmt::kPixelFormat_GPU_BGRA_4444_16f, zmt::kPixelFormat_GPU_BGRX_4444_16f,
                                  zmt::kPixelFormat_GPU_BGRA_4444_32f, zmt::kPixelFormat_GPU_BGRX_4444_32f};
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(gpu[i] == expected[i]) << i;
    EXPECT_NE(zmt::FindPixelFormatInfo(expected[i]), nullptr) << i;
  }
}

// Every field that the library reads, checked against what the name says.
TEST(HostPixelFormatTable, LibraryFieldsMatchTheNames) {
  for (const auto& info : Table()) {
    const std::string name = Short(info);
    const std::uint32_t d = info.format.properties;
    SCOPED_TRACE(name);
    const unsigned kind = (d >> 1) & 7, type = (d >> 14) & 15, alpha = (d >> 7) & 7;
    const bool isFloat = d & 0x10u;
    EXPECT_EQ(d & 0xC0000u, 0x40000u);
    EXPECT_EQ(d & 0xFC003040u, 0u) << "reserved bits";
    EXPECT_EQ((d & 0x20u) != 0, Has(name, "_709"));

    const bool is420 = Has(name, "_420_");
    EXPECT_EQ((d & 1u) != 0, is420);
    EXPECT_EQ(d & 0xC00u, is420 ? 0xC00u : Has(name, "_422_") ? 0x400u : 0u);
    unsigned expectedType = 0;
    if (is420)
      expectedType = Has(name, "MPEG2") ? (Has(name, "FRAME") ? 9 : 10) : (Has(name, "FRAME") ? 11 : 12);
    EXPECT_EQ(type, expectedType);

    // The alpha letter sits in the family: BGR? / VUY? at 4th place, ?RGB at 1st; no alpha otherwise.
    const std::string family = name.substr(name.compare(0, 4, "GPU_") == 0 ? 4 : 0, 4);
    const char letter = Has(name, "_4444_") ? (family[3] == 'B' ? family[0] : family[3]) : 'X';
    EXPECT_EQ(alpha, letter == 'A' ? 1u : letter == 'P' ? 2u : 3u);

    // Kind and float bit as the library reads them: 8u is 8-bit unsigned, 15u 16-bit unsigned, 16f half,
    // 32f float; 10u must have no bytes per pixel.
    const unsigned sample = kind | (isFloat ? 8u : 0u);
    if (Has(name, "_10u")) {
      EXPECT_EQ(LibraryBytesPerPixel(d), 0u);
    } else {
      EXPECT_EQ(sample, Has(name, "_8u") ? 0u : Has(name, "_15u") ? 3u : Has(name, "_16f") ? 11u : 13u);
    }
  }
}

TEST(HostPixelFormatSize, FourComponentFormatsUseTheLibraryBytesPerPixel) {
  for (const auto& info : Table()) {
    if (info.format.properties & 0xC00u) continue;
    const std::string name = Short(info);
    const std::size_t component = Has(name, "_8u") ? 1 : Has(name, "_32f") ? 4 : 2;
    ASSERT_EQ(LibraryBytesPerPixel(info.format.properties), 4 * component) << name;
    for (int w : {1, 2, 3, 47, 1920})
      EXPECT_EQ(zmt::PixelFormatSize(info.format, w, 1), 4 * component * w) << name << " width " << w;
    EXPECT_EQ(zmt::PixelFormatSize(info.format, 7, 5), 4 * component * 35) << name;
  }
}

TEST(HostPixelFormatSize, PackedAndPlanarLayouts) {
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_UYVY_422_8u, 1, 1), 4u);
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_YUYV_422_8u_709, 3, 2), 16u);
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_UYVY_422_8u_709, 1920, 1080), 1920u * 2 * 1080);
  const std::pair<int, std::size_t> v210Rows[] = {{1, 128}, {48, 128}, {49, 256}, {1920, 5120}};
  for (const auto& row : v210Rows) {
    EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_V210_422_10u, row.first, 1), row.second);
    EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_V210_422_10u_709, row.first, 3), 3 * row.second);
  }
  for (const auto& info : Table()) {
    if (!zmt::IsPlanar420Format(info.format)) continue;
    EXPECT_EQ(zmt::PixelFormatSize(info.format, 1, 1), 3u);
    EXPECT_EQ(zmt::PixelFormatSize(info.format, 5, 3), 15u + 2 * 3 * 2);
    EXPECT_EQ(zmt::PixelFormatSize(info.format, 1920, 1080), 1920u * 1080 * 3 / 2);
  }
}

TEST(HostPixelFormatSize, EdgesAndFormatsOutsideTheTable) {
  for (const auto& info : Table())
    for (int bad : {0, -1, INT_MIN}) {
      EXPECT_EQ(zmt::PixelFormatSize(info.format, bad, 4), 0u);
      EXPECT_EQ(zmt::PixelFormatSize(info.format, 4, bad), 0u);
    }
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_BGRA_4444_32f, 65535, 65535), 65535ull * 65535 * 16);
  const std::uint64_t m = INT_MAX;
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_BGRA_4444_8u, INT_MAX, INT_MAX), m * m * 4);
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_BGRA_4444_32f, INT_MAX, INT_MAX), 0u) << "does not fit";

  const std::uint32_t unknownCode = zmt::MakeFormatCode('t', 'e', 's', 't');
  EXPECT_EQ(zmt::PixelFormatSize({unknownCode, 0x0004001Au}, 3, 2), 96u);  // kind 5: 16 bytes
  EXPECT_EQ(zmt::PixelFormatSize({unknownCode, 0x00040002u}, 3, 2), 0u);   // kind 1: no size
  EXPECT_EQ(zmt::PixelFormatSize({unknownCode, zmt::kPixelFormat_UYVY_422_8u.properties}, 2, 2), 0u);
  EXPECT_EQ(zmt::PixelFormatSize(zmt::kPixelFormat_Invalid, 2, 2), 0u);
  EXPECT_EQ(zmt::PixelFormatSize({unknownCode, zmt::kPixelFormatProperties_Any}, 2, 2), 0u);
}

TEST(HostPixelFormatNames, RoundTripAndRejectUnknowns) {
  for (const auto& info : Table()) {
    zmt::PixelFormat found = zmt::kPixelFormat_Invalid;
    EXPECT_STREQ(zmt::PixelFormatName(info.format), info.name);
    EXPECT_TRUE(zmt::LookupPixelFormat(info.name, found) && found == info.format);
    found = zmt::kPixelFormat_Invalid;
    EXPECT_TRUE(zmt::LookupPixelFormat(zmt::PixelFormatShortName(info.format), found) &&
                found == info.format);
  }
  EXPECT_EQ(std::string("PixelFormatConvert_") + zmt::PixelFormatShortName(zmt::kPixelFormat_UYVY_422_8u) +
                "_To_BGRA_4444_32f_Kernel",
            "PixelFormatConvert_UYVY_422_8u_To_BGRA_4444_32f_Kernel");
  // A known code with a foreign property word is another format.
  const zmt::PixelFormat mixed = {zmt::kPixelFormat_BGRA_4444_8u.code,
                                  zmt::kPixelFormat_BGRP_4444_8u.properties};
  EXPECT_EQ(zmt::PixelFormatName(mixed), nullptr);
  EXPECT_EQ(zmt::PixelFormatShortName(zmt::kPixelFormat_Invalid), nullptr);
  zmt::PixelFormat out = zmt::kPixelFormat_Invalid;
  for (const char* bad :
       {static_cast<const char*>(nullptr), "", "kPixelFormat_", "bgra_4444_8u", "BGRA_4444_8u "})
    EXPECT_FALSE(zmt::LookupPixelFormat(bad, out));
  EXPECT_TRUE(out == zmt::kPixelFormat_Invalid);
}

TEST(HostPixelFormatPredicates, SelectTheirFamiliesOnly) {
  std::size_t planar = 0, decode = 0;
  for (const auto& info : Table()) {
    const std::string name = Short(info);
    EXPECT_EQ(zmt::IsPlanar420Format(info.format), name.compare(0, 8, "YUV_420_") == 0) << name;
    const bool vuy8 = name.compare(0, 3, "VUY") == 0 && Has(name, "_8u");
    EXPECT_EQ(zmt::Is444DecodeFormat(info.format), vuy8) << name;
    EXPECT_EQ(zmt::IsBT709(info.format), Has(name, "_709")) << name;
    planar += zmt::IsPlanar420Format(info.format);
    decode += zmt::Is444DecodeFormat(info.format);
  }
  EXPECT_EQ(planar, 16u);
  EXPECT_EQ(decode, 6u);
  EXPECT_FALSE(zmt::IsBT709({0, zmt::kPixelFormatProperties_Invalid | 0x20u}));
  EXPECT_FALSE(
      zmt::IsPlanar420Format({0, zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601.properties}));
}

}  // namespace
