// The renderer's fills, its planar 4:2:0 helpers and the upload format choices, against bytes and rules
// written out by hand.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "SK/Renderer.h"
#include "zelmediatypes/PixelFormatTable.h"

namespace zmt = zelmediatypes;

namespace {

constexpr std::uint8_t kSentinel = 0xA5;

using FillFunction = bool (*)(void*, int, zmt::PixelFormat, int, int, int, int);

struct FillCase {
  const char* name;
  FillFunction fill;
  zmt::PixelFormat format;
  int pixels;                       // of the rectangle, one row
  std::vector<std::uint8_t> bytes;  // of the rectangle's first group
};

std::uint32_t V210Word(unsigned a, unsigned b, unsigned c) {
  return a | b << 10 | c << 20;
}

// Video-range black is Y' 16 (64 in 10 bits) with neutral chroma 128 (512); full-range black Y' 0.
TEST(HostRendererFills, EachFillWritesTheFormatsOwnValuesInsideTheRectangleOnly) {
  std::uint8_t v210[16];
  const std::uint32_t black[4] = {V210Word(512, 64, 512), V210Word(64, 512, 64), V210Word(512, 64, 512),
                                  V210Word(64, 512, 64)};
  std::memcpy(v210, black, 16);
  const FillCase cases[] = {
      {"opaque white BGRA", SK_FillWithOpaqueWhite, zmt::kPixelFormat_BGRA_4444_8u, 3, {255, 255, 255, 255}},
      {"opaque black ARGB", SK_FillWithOpaqueBlack, zmt::kPixelFormat_ARGB_4444_8u, 3, {255, 0, 0, 0}},
      {"transparent white BGRA",
       SK_FillWithTransparentWhite,
       zmt::kPixelFormat_BGRA_4444_8u,
       3,
       {255, 255, 255, 0}},
      {"transparent white BGRP",
       SK_FillWithTransparentWhite,
       zmt::kPixelFormat_BGRP_4444_8u,
       3,
       {0, 0, 0, 0}},
      {"transparent white BGRX",
       SK_FillWithTransparentWhite,
       zmt::kPixelFormat_BGRX_4444_8u,
       3,
       {255, 255, 255, 255}},
      {"opaque white 15u",
       SK_FillWithOpaqueWhite,
       zmt::kPixelFormat_PRGB_4444_15u,
       3,
       {0, 128, 0, 128, 0, 128, 0, 128}},
      {"opaque white GPU 16f",
       SK_FillWithOpaqueWhite,
       zmt::kPixelFormat_GPU_BGRA_4444_16f,
       3,
       {0x00, 0x3C, 0x00, 0x3C, 0x00, 0x3C, 0x00, 0x3C}},  // half-float 1.0 is 0x3C00
      {"opaque black VUYA", SK_FillWithOpaqueBlack, zmt::kPixelFormat_VUYA_4444_8u, 3, {128, 128, 16, 255}},
      {"transparent black VUYA",
       SK_FillWithTransparentBlack,
       zmt::kPixelFormat_VUYA_4444_8u_709,
       3,
       {128, 128, 16, 0}},
      {"opaque black UYVY", SK_FillWithOpaqueBlack, zmt::kPixelFormat_UYVY_422_8u, 4, {128, 16, 128, 16}},
      {"opaque white YUYV",
       SK_FillWithOpaqueWhite,
       zmt::kPixelFormat_YUYV_422_8u_709,
       4,
       {235, 128, 235, 128}},
      {"opaque black v210", SK_FillWithOpaqueBlack, zmt::kPixelFormat_V210_422_10u, 6,
       std::vector<std::uint8_t>(v210, v210 + 16)},
  };
  for (const FillCase& c : cases) {
    SCOPED_TRACE(c.name);
    const std::size_t pixelBytes = zmt::PixelFormatSize(c.format, 6, 1) / 6;  // v210: 128 / 6, unused
    const bool v210Format = c.format == zmt::kPixelFormat_V210_422_10u;
    // Rectangle from pixel `x` of row 1 in a 3-row image of 24-pixel rows.
    const int x = v210Format ? 6 : 2;
    const std::size_t rowBytes = v210Format ? 128 : zmt::PixelFormatSize(c.format, 24, 1);
    const std::size_t start = v210Format ? 16 : x * pixelBytes;
    const std::size_t length = v210Format ? 16 : c.pixels * pixelBytes;
    std::vector<std::uint8_t> image(rowBytes * 3, kSentinel);
    ASSERT_TRUE(c.fill(image.data(), int(rowBytes), c.format, x, 1, c.pixels, 1));
    for (std::size_t i = 0; i < image.size(); ++i) {
      const bool inside = i >= rowBytes + start && i < rowBytes + start + length;
      if (!inside) {
        ASSERT_EQ(image[i], kSentinel) << i;
      } else {
        const std::size_t group = c.bytes.size();
        ASSERT_EQ(image[i], c.bytes[(i - rowBytes - start) % group]) << i;
      }
    }
  }
}

TEST(HostRendererFills, PlanarFillsTheWholeImageAndRefusesOtherRectangles) {
  const int w = 5, h = 3;  // planes: Y 15 bytes, U and V 3 × 2 bytes each
  std::vector<std::uint8_t> image(15 + 12 + 4, kSentinel);
  const zmt::PixelFormat full = zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709_FullRange;
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 0, full, 1, 0, w - 1, h));
  EXPECT_EQ(image, std::vector<std::uint8_t>(image.size(), kSentinel));
  ASSERT_TRUE(SK_FillWithOpaqueBlack(image.data(), 0, full, 0, 0, w, h));
  std::vector<std::uint8_t> expected(15, 0);
  expected.resize(27, 128);
  expected.resize(31, kSentinel);
  EXPECT_EQ(image, expected);
}

TEST(HostRendererFills, BadArgumentsAndMisalignedGroupsReturnFalse) {
  std::vector<std::uint8_t> image(256, kSentinel);
  EXPECT_FALSE(SK_FillWithOpaqueBlack(nullptr, 64, zmt::kPixelFormat_BGRA_4444_8u, 0, 0, 1, 1));
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 64, zmt::kPixelFormat_Invalid, 0, 0, 1, 1));
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 64, zmt::kPixelFormat_BGRA_4444_8u, -1, 0, 1, 1));
  EXPECT_FALSE(
      SK_FillWithOpaqueBlack(image.data(), 8, zmt::kPixelFormat_BGRA_4444_8u, 1, 0, 2, 1));  // past row
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 64, zmt::kPixelFormat_UYVY_422_8u, 1, 0, 2, 1));
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 128, zmt::kPixelFormat_V210_422_10u, 2, 0, 6, 1));
  EXPECT_EQ(image, std::vector<std::uint8_t>(256, kSentinel));
}

TEST(HostRendererPlanar, GetPlanarBuffersSplitsTheOneBlockLayout) {
  std::vector<std::uint8_t> block(15 + 12);
  SK_PlanarBuffers planes{};
  ASSERT_TRUE(SK_GetPlanarBuffers(block.data(), kSK_PlanarLayout420_8u, 5, 3, &planes));
  EXPECT_EQ(planes.planes[0], block.data());
  EXPECT_EQ(planes.planes[1], block.data() + 15);
  EXPECT_EQ(planes.planes[2], block.data() + 21);
  EXPECT_EQ((std::vector<int>(planes.rowBytes, planes.rowBytes + 3)), (std::vector<int>{5, 3, 3}));
  EXPECT_EQ((std::vector<int>(planes.widths, planes.widths + 3)), (std::vector<int>{5, 3, 3}));
  EXPECT_EQ((std::vector<int>(planes.heights, planes.heights + 3)), (std::vector<int>{3, 2, 2}));
  EXPECT_FALSE(SK_GetPlanarBuffers(block.data(), 0x1234u, 5, 3, &planes));
  EXPECT_FALSE(SK_GetPlanarBuffers(block.data(), kSK_PlanarLayout420_8u, 0, 3, &planes));
  EXPECT_FALSE(SK_GetPlanarBuffers(block.data(), kSK_PlanarLayout420_8u, 5, 3, nullptr));
}

// A 4 × 4 luma plane whose rows are 10, 20, 30, 40 (rows 0 and 2 one field, 1 and 3 the other), chroma
// 2 × 2 with rows 50, 60.
TEST(HostRendererPlanar, QuarterScaleKeepsFieldsApartAndAveragesFromMedium) {
  std::vector<std::uint8_t> src;
  for (int v : {10, 20, 30, 40}) src.insert(src.end(), 4, std::uint8_t(v));
  for (int plane = 0; plane < 2; ++plane) src.insert(src.end(), {50, 50, 60, 60});
  const struct {
    zmt::FieldType field;
    zmt::RenderQuality quality;
    std::vector<int> lumaRows;
    std::vector<int> chroma;
  } cases[] = {
      {zmt::kFieldType_Progressive, zmt::kRenderQuality_Medium, {15, 35}, {55}},
      {zmt::kFieldType_UpperFirst, zmt::kRenderQuality_Medium, {20, 30}, {50}},
      {zmt::kFieldType_LowerFirst, zmt::kRenderQuality_Draft, {10, 20}, {50}},
      {zmt::kFieldType_Progressive, zmt::kRenderQuality_Low, {10, 30}, {50}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(int(c.field) * 10 + int(c.quality));
    std::vector<std::uint8_t> dst(4 + 2 + 4, kSentinel);
    SK_PlanarBuffers s{}, d{};
    ASSERT_TRUE(SK_GetPlanarBuffers(src.data(), kSK_PlanarLayout420_8u, 4, 4, &s));
    ASSERT_TRUE(SK_GetPlanarBuffers(dst.data(), kSK_PlanarLayout420_8u, 2, 2, &d));
    ASSERT_TRUE(SK_QuarterScalePlanar420_8u(s, d, 4, 4, c.field, c.quality));
    const std::vector<int> want = {c.lumaRows[0], c.lumaRows[0], c.lumaRows[1], c.lumaRows[1], c.chroma[0],
                                   c.chroma[0],   kSentinel,     kSentinel,     kSentinel,     kSentinel};
    EXPECT_EQ(std::vector<int>(dst.begin(), dst.end()), want);
  }
}

struct Selection {
  zmt::PixelFormat format;
  zmt::RenderQuality quality;
  zmt::PixelFormat expected;
};

// A 4444 format the GPU converter reads stays as it is; 8-bit Y'CbCr goes to VUYA 8u of its matrix, or to
// float from High; v210 and full-range sources always to float.
TEST(HostFormatSelection, Select4444PixelFormatStagesInAFormatTheConverterReads) {
  const Selection cases[] = {
      {zmt::kPixelFormat_BGRA_4444_8u, zmt::kRenderQuality_Draft, zmt::kPixelFormat_BGRA_4444_8u},
      {zmt::kPixelFormat_PRGB_4444_32f_Linear, zmt::kRenderQuality_Max,
       zmt::kPixelFormat_PRGB_4444_32f_Linear},
      {zmt::kPixelFormat_VUYX_4444_8u_709, zmt::kRenderQuality_Low, zmt::kPixelFormat_VUYX_4444_8u_709},
      {zmt::kPixelFormat_GPU_BGRA_4444_16f, zmt::kRenderQuality_Low, zmt::kPixelFormat_GPU_BGRA_4444_16f},
      {zmt::kPixelFormat_UYVY_422_8u, zmt::kRenderQuality_Medium, zmt::kPixelFormat_VUYA_4444_8u},
      {zmt::kPixelFormat_YUYV_422_8u_709, zmt::kRenderQuality_Low, zmt::kPixelFormat_VUYA_4444_8u_709},
      {zmt::kPixelFormat_YUYV_422_8u_709, zmt::kRenderQuality_High, zmt::kPixelFormat_VUYA_4444_32f_709},
      {zmt::kPixelFormat_V210_422_10u, zmt::kRenderQuality_Draft, zmt::kPixelFormat_VUYA_4444_32f},
      {zmt::kPixelFormat_V210_422_10u_709, zmt::kRenderQuality_Draft, zmt::kPixelFormat_VUYA_4444_32f_709},
      {zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709, zmt::kRenderQuality_Medium,
       zmt::kPixelFormat_VUYA_4444_8u_709},
      {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, zmt::kRenderQuality_Max,
       zmt::kPixelFormat_VUYA_4444_32f},
      {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601_FullRange, zmt::kRenderQuality_Draft,
       zmt::kPixelFormat_VUYA_4444_32f},
      {zmt::kPixelFormat_Invalid, zmt::kRenderQuality_Draft, zmt::kPixelFormat_Invalid},
  };
  for (const Selection& c : cases) {
    const zmt::PixelFormat got = zmt::Select4444PixelFormat(c.format, c.quality);
    EXPECT_EQ(got, c.expected) << zmt::PixelFormatShortName(c.format) << " got "
                               << (zmt::PixelFormatShortName(got) ? zmt::PixelFormatShortName(got) : "none");
  }
}

TEST(HostFormatSelection, DVDecompressionDeliversTheFormatItselfAtItsOwnSize) {
  const zmt::DVDecompressionFormat uyvy =
      zmt::SelectDVDecompressionFormat(zmt::kPixelFormat_UYVY_422_8u, 720, 486);
  EXPECT_EQ(uyvy.format, zmt::kPixelFormat_UYVY_422_8u);
  EXPECT_EQ(uyvy.width, 720);
  EXPECT_EQ(uyvy.height, 486);
  const zmt::DVDecompressionFormat bad =
      zmt::SelectDVDecompressionFormat(zmt::kPixelFormat_Invalid, 720, 486);
  EXPECT_EQ(bad.format, zmt::kPixelFormat_Invalid);
  EXPECT_EQ(bad.width, 0);
  EXPECT_EQ(zmt::SelectDVDecompressionFormat(zmt::kPixelFormat_BGRA_4444_8u, 0, 486).width, 0);
}

}  // namespace
