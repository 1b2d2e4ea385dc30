// The CPU renderer (SK_ScaleConvert, fills, planar 4:2:0 helpers) and the upload format choices, against
// values worked out by hand from the format definitions (BT.601 / BT.709, video and full range, 15u, half
// float, v210 words, chroma siting), never from the renderer's own helpers.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "SK/Renderer.h"
#include "zelmediatypes/PixelFormatTable.h"

namespace zmt = zelmediatypes;

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint8_t kSentinel = 0xA5;
constexpr zmt::PixelFormat k32f = zmt::kPixelFormat_BGRA_4444_32f;

// Straight R, G, B, A as BGRA_4444_32f, the tests' reference format.
std::vector<float> Pixel(const std::array<float, 4>& rgba) {
  return {rgba[2], rgba[1], rgba[0], rgba[3]};
}

std::vector<float> GreyRamp(std::initializer_list<float> values) {
  std::vector<float> out;
  for (float v : values) out.insert(out.end(), {v, v, v, 1});
  return out;
}

bool Convert(const void* src, int srcRowBytes, int sw, int sh, zmt::PixelFormat sf, void* dst,
             int dstRowBytes, int dw, int dh, zmt::PixelFormat df,
             zmt::RenderQuality quality = zmt::kRenderQuality_High,
             zmt::FieldType field = zmt::kFieldType_Progressive) {
  return SK_ScaleConvert(src, srcRowBytes, sw, sh, sf, field, dst, dstRowBytes, dw, dh, df, field, quality);
}

std::uint32_t V210Word(unsigned a, unsigned b, unsigned c) {
  return a | b << 10 | c << 20;
}

template <typename T>
Bytes Raw(std::initializer_list<T> values) {
  Bytes out(values.size() * sizeof(T));
  std::memcpy(out.data(), values.begin(), out.size());
  return out;
}

// Red BT.601 8-bit: Y' 16 + 219 × 0.299 = 81.5 → 81; Cb 128 − 224 × 0.299 / 1.772 = 90.2 → 90; Cr 240.
// Red BT.709 8-bit: Y' 16 + 219 × 0.2126 = 62.6 → 63; Cb 128 − 224 × 0.2126 / 1.8556 = 102.3 → 102.
// Red BT.601 10-bit: Y' 64 + 876 × 0.299 = 325.9 → 326; Cb 512 − 896 × 0.168736 = 360.8 → 361; Cr 960.
// Red BT.601 full range: Y' 255 × 0.299 = 76.2 → 76; Cb 128 − 255 × 0.168736 = 85.0 → 85; Cr 255.5 → 255.
// Linear 0.5 is ((0.5 + 0.055) / 1.055)^2.4 = 0.214041. Each family packs one colour to the bytes by hand,
// and unpacks them back to the colour.
TEST(HostScaleConvert, KnownColoursPackToTheirBytesAndUnpackBack) {
  const std::array<float, 4> red = {1, 0, 0, 1};
  const struct {
    zmt::PixelFormat format;
    int width, height;          // the image holds one colour
    std::array<float, 4> rgba;  // straight
    Bytes bytes;                // the start of the packed image
    float tolerance;            // of the unpacked colour
  } cases[] = {
      // clang-format off
      {zmt::kPixelFormat_BGRA_4444_8u, 1, 1, red, {0, 0, 255, 255}, 1e-6f},
      {zmt::kPixelFormat_ARGB_4444_8u, 1, 1, red, {255, 255, 0, 0}, 1e-6f},
      {zmt::kPixelFormat_BGRP_4444_8u, 1, 1, {1, 0, 0, 0.5f}, {0, 0, 128, 128}, 0.002f},
      {zmt::kPixelFormat_PRGB_4444_8u, 1, 1, {0.2f, 0.2f, 0.2f, 0.2f}, {51, 10, 10, 10}, 0.005f},
      {zmt::kPixelFormat_XRGB_4444_8u, 1, 1, red, {255, 255, 0, 0}, 1e-6f},
      {zmt::kPixelFormat_BGRA_4444_15u, 1, 1, {0, 1, 0, 0.5f}, Raw<std::uint16_t>({0, 32768, 0, 16384}), 1e-6f},
      {k32f, 1, 1, {0.75f, 0.5f, 0.25f, 1}, Raw<float>({0.25f, 0.5f, 0.75f, 1}), 0},
      {zmt::kPixelFormat_BGRA_4444_32f_Linear, 1, 1, {0.5f, 0.5f, 0.5f, 1}, Raw<float>({0.214041f, 0.214041f, 0.214041f, 1}), 1e-5f},
      {zmt::kPixelFormat_GPU_BGRA_4444_16f, 1, 1, {0.5f, 1, 0, 1}, Raw<std::uint16_t>({0x0000, 0x3C00, 0x3800, 0x3C00}), 0},
      {zmt::kPixelFormat_VUYA_4444_8u, 1, 1, red, {240, 90, 81, 255}, 0.01f},
      {zmt::kPixelFormat_VUYA_4444_8u_709, 1, 1, red, {240, 102, 63, 255}, 0.01f},
      {zmt::kPixelFormat_VUYX_4444_32f, 1, 1, {1, 1, 1, 1}, Raw<float>({0, 0, 1, 1}), 1e-6f},
      {zmt::kPixelFormat_UYVY_422_8u, 2, 1, red, {90, 81, 240, 81}, 0.01f},
      {zmt::kPixelFormat_YUYV_422_8u_709, 2, 1, red, {63, 102, 63, 240}, 0.01f},
      {zmt::kPixelFormat_V210_422_10u, 6, 1, red, Raw<std::uint32_t>({V210Word(361, 326, 960), V210Word(326, 361, 326),
                                                                      V210Word(960, 326, 361), V210Word(326, 960, 326)}), 0.003f},
      {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, 2, 2, red, {81, 81, 81, 81, 90, 240}, 0.01f},
      {zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601_FullRange, 2, 2, red, {76, 76, 76, 76, 85, 255}, 0.01f},
      // clang-format on
  };
  for (const auto& k : cases) {
    SCOPED_TRACE(zmt::PixelFormatShortName(k.format));
    std::vector<float> source;
    for (int i = 0; i < k.width * k.height; ++i)
      source.insert(source.end(), {k.rgba[2], k.rgba[1], k.rgba[0], k.rgba[3]});
    Bytes packed(zmt::PixelFormatSize(k.format, k.width, k.height), kSentinel);
    ASSERT_TRUE(
        Convert(source.data(), 0, k.width, k.height, k32f, packed.data(), 0, k.width, k.height, k.format));
    ASSERT_GE(packed.size(), k.bytes.size());
    if ((k.format.properties & zmt::kPixelFormatPropertyMask_Sample) == zmt::kPixelFormatSample_32f) {
      std::vector<float> got(4), want(4);
      std::memcpy(got.data(), packed.data(), 16);
      std::memcpy(want.data(), k.bytes.data(), 16);
      for (int c = 0; c < 4; ++c) EXPECT_NEAR(got[c], want[c], 1e-5f);
    } else {
      EXPECT_EQ(Bytes(packed.begin(), packed.begin() + long(k.bytes.size())), k.bytes);
    }
    std::vector<float> back(std::size_t(4 * k.width * k.height), -1.0f);
    ASSERT_TRUE(
        Convert(packed.data(), 0, k.width, k.height, k.format, back.data(), 0, k.width, k.height, k32f));
    for (int c = 0; c < 4; ++c) EXPECT_NEAR(back[c], Pixel(k.rgba)[c], k.tolerance) << c;
  }
}

// X destinations get the image over black (63.75 → 64), premultiplied ones the premultiplied colour; and
// filters mix premultiplied colour, so a transparent green neighbour does not tint red.
TEST(HostScaleConvert, AlphaTypesFollowTheDestinationAndFiltersDoNotBleedTransparentColour) {
  const auto src = Pixel({1, 0.5f, 0, 0.5f});
  const std::pair<zmt::PixelFormat, Bytes> cases[] = {{zmt::kPixelFormat_BGRX_4444_8u, {0, 64, 128, 255}},
                                                      {zmt::kPixelFormat_BGRP_4444_8u, {0, 64, 128, 128}},
                                                      {zmt::kPixelFormat_BGRA_4444_8u, {0, 128, 255, 128}}};
  for (const auto& [format, expected] : cases) {
    Bytes out(4);
    ASSERT_TRUE(Convert(src.data(), 0, 1, 1, k32f, out.data(), 0, 1, 1, format));
    EXPECT_EQ(out, expected);
  }
  std::vector<float> pair = Pixel({1, 0, 0, 1}), dst(4);
  for (float v : Pixel({0, 1, 0, 0})) pair.push_back(v);
  ASSERT_TRUE(Convert(pair.data(), 0, 2, 1, k32f, dst.data(), 0, 1, 1, k32f));
  const float expected[] = {0, 0, 1, 0.5f};
  for (int c = 0; c < 4; ++c) EXPECT_NEAR(dst[c], expected[c], 1e-6f) << c;
}

// A ramp 0, 0.25, 0.5, 0.75 scaled from 4 to 3 samples, across and down: nearest reads samples
// floor((i + 0.5) × 4/3) = 0, 2, 3; bilinear interpolates at (i + 0.5) × 4/3 − 0.5 = 1/6, 3/2, 17/6; area
// averages the footprints [0, 4/3), [4/3, 8/3), [8/3, 4).
TEST(HostScaleConvert, QualityLevelsPickNearestBilinearAndArea) {
  const struct {
    zmt::RenderQuality quality;
    float expected[3];
  } cases[] = {{zmt::kRenderQuality_Low, {0.0f, 0.5f, 0.75f}},
               {zmt::kRenderQuality_Medium, {1.0f / 24, 0.375f, 0.5f + 0.25f * 5 / 6}},
               {zmt::kRenderQuality_High, {0.0625f, 0.375f, 0.6875f}}};
  const auto ramp = GreyRamp({0, 0.25f, 0.5f, 0.75f});
  for (const auto& c : cases) {
    SCOPED_TRACE(int(c.quality));
    std::vector<float> across(12), down(12);
    ASSERT_TRUE(Convert(ramp.data(), 0, 4, 1, k32f, across.data(), 0, 3, 1, k32f, c.quality));
    ASSERT_TRUE(Convert(ramp.data(), 16, 1, 4, k32f, down.data(), 16, 1, 3, k32f, c.quality));
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(across[4 * i + 1], c.expected[i], 1e-5f) << i;
      EXPECT_NEAR(down[4 * i + 1], c.expected[i], 1e-5f) << i;
      EXPECT_NEAR(across[4 * i + 3], 1.0f, 1e-5f);
    }
  }
}

// Rows 0, 2 (field one) hold 0 and 0.5, rows 1, 3 (field two) 1 and 1. Halving the height bilinearly: an
// interlaced image keeps its fields (0.25, 1), a progressive one mixes neighbours (0.5, 0.75).
TEST(HostScaleConvert, InterlacedImagesScaleEachFieldOnItsOwn) {
  const auto src = GreyRamp({0, 1, 0.5f, 1});
  for (const auto& [field, expected] :
       {std::make_pair(zmt::kFieldType_UpperFirst, std::array<float, 2>{0.25f, 1}),
        std::make_pair(zmt::kFieldType_Progressive, std::array<float, 2>{0.5f, 0.75f})}) {
    std::vector<float> dst(8);
    ASSERT_TRUE(
        Convert(src.data(), 16, 1, 4, k32f, dst.data(), 16, 1, 2, k32f, zmt::kRenderQuality_Medium, field));
    EXPECT_NEAR(dst[1], expected[0], 1e-6f);
    EXPECT_NEAR(dst[5], expected[1], 1e-6f);
  }
}

// Down-sampling with the format's siting, from VUYX 8u of Y' 128, Cr 128. Cb columns 100, 140, 180, 220:
// MPEG-2 chroma sits on columns 0 and 2 ([1 2 1] / 4: 110, 180); MPEG-4 chroma halfway ([1 3 3 1] / 8: 125,
// 195). Cb rows 100, 180, 100, 180 (one value per field): FRAME chroma at rows 0.5 and 2.5 mixes both fields
// (130, 150); FIELD chroma keeps each field's own value (100, 180).
TEST(HostScaleConvert, Planar420OutputFiltersChromaAtItsSiting) {
  const struct {
    zmt::PixelFormat format;
    int width, height;
    bool perRow;  // Cb varies by row, else by column
    std::vector<int> expectedU;
  } cases[] = {{zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, 4, 2, false, {110, 180}},
               {zmt::kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601, 4, 2, false, {125, 195}},
               {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, 2, 4, true, {130, 150}},
               {zmt::kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601, 2, 4, true, {100, 180}}};
  for (const auto& s : cases) {
    SCOPED_TRACE(zmt::PixelFormatShortName(s.format));
    const int columns[] = {100, 140, 180, 220}, rows[] = {100, 180, 100, 180};
    Bytes src;
    for (int y = 0; y < s.height; ++y) {
      for (int x = 0; x < s.width; ++x)
        src.insert(src.end(), {128, std::uint8_t(s.perRow ? rows[y] : columns[x]), 128, 255});
    }
    Bytes dst(zmt::PixelFormatSize(s.format, s.width, s.height));
    ASSERT_TRUE(Convert(src.data(), 0, s.width, s.height, zmt::kPixelFormat_VUYX_4444_8u, dst.data(), 0,
                        s.width, s.height, s.format));
    EXPECT_EQ(std::vector<int>(dst.begin() + s.width * s.height, dst.begin() + s.width * s.height + 2),
              s.expectedU);
  }
}

// Up-sampling a U plane of 100, 200 onto four columns: MPEG-2 (co-sited) 100, 150, 200, 200; MPEG-4
// (halfway) 100, 125, 175, 200.
TEST(HostScaleConvert, Planar420InputInterpolatesChromaAtItsSiting) {
  const std::pair<zmt::PixelFormat, std::array<float, 4>> cases[] = {
      {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, {100, 150, 200, 200}},
      {zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601, {100, 125, 175, 200}}};
  for (const auto& [format, expected] : cases) {
    const Bytes src = {128, 128, 128, 128, 128, 128, 128, 128, 100, 200, 128, 128};
    std::vector<float> dst(4 * 4 * 2);
    ASSERT_TRUE(Convert(src.data(), 0, 4, 2, format, dst.data(), 0, 4, 2, zmt::kPixelFormat_VUYA_4444_32f));
    for (int x = 0; x < 4; ++x) EXPECT_NEAR(dst[4 * x + 1], (expected[x] - 128) / 224, 1e-5f) << x;
  }
}

// Pairs outside the table, bad arguments and rows too short are refused without a byte written.
TEST(HostScaleConvert, UnsupportedPairsAndBadArgumentsReturnFalseWithoutWriting) {
  Bytes src(64, 0x40), dst(64, kSentinel);
  const zmt::PixelFormat bgra = zmt::kPixelFormat_BGRA_4444_8u;
  const zmt::PixelFormat foreign = {zmt::MakeFormatCode('Q', 'Q', 'b', 'g'), bgra.properties | 0x40u};
  EXPECT_FALSE(Convert(src.data(), 0, 2, 2, zmt::kPixelFormat_Invalid, dst.data(), 0, 2, 2, bgra));
  EXPECT_FALSE(Convert(src.data(), 0, 2, 2, bgra, dst.data(), 0, 2, 2, foreign));
  EXPECT_FALSE(
      Convert(src.data(), 0, 2, 2, {bgra.code, zmt::kPixelFormatProperties_Any}, dst.data(), 0, 2, 2, bgra));
  EXPECT_FALSE(Convert(nullptr, 0, 2, 2, bgra, dst.data(), 0, 2, 2, bgra));
  EXPECT_FALSE(Convert(src.data(), 0, 0, 2, bgra, dst.data(), 0, 2, 2, bgra));
  EXPECT_FALSE(Convert(src.data(), 4, 2, 2, bgra, dst.data(), 0, 2, 2, bgra));   // source rows too short
  EXPECT_FALSE(Convert(src.data(), 0, 2, 2, bgra, dst.data(), -8, 2, 2, bgra));  // negative row bytes
  EXPECT_FALSE(
      Convert(src.data(), 0, 2, 2, bgra, dst.data(), 1, 4, 4,
              zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601));  // block larger than rows
  EXPECT_EQ(dst, Bytes(64, kSentinel));
}

// Every table format into every table format, at odd sizes and with padded destination rows: each pair
// succeeds, and nothing past each row's own bytes, nor past rowBytes × height, is touched.
TEST(HostScaleConvert, EveryPairConvertsAndStaysInsideTheDestinationRows) {
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  const int sw = 7, sh = 5, dw = 13, dh = 3;
  for (std::size_t s = 0; s < count; ++s) {
    Bytes src(zmt::PixelFormatSize(table[s].format, sw, sh));
    const bool isFloat =
        table[s].format.properties & zmt::kPixelFormatProperty_Float;  // no NaN in float sources
    for (std::size_t i = 0; i < src.size(); ++i) src[i] = isFloat ? 0 : std::uint8_t(i * 37 % 251);
    for (std::size_t d = 0; d < count; ++d) {
      SCOPED_TRACE(std::string(table[s].name) + " to " + table[d].name);
      const zmt::PixelFormat df = table[d].format;
      const bool planar = zmt::IsPlanar420Format(df);
      const std::size_t natural = zmt::PixelFormatSize(df, dw, 1),
                        used = planar ? zmt::PixelFormatSize(df, dw, dh) : 0;
      const std::size_t rowBytes = planar ? used / dh + 1 : natural + 5;
      Bytes dst(rowBytes * dh + 16, kSentinel);
      ASSERT_TRUE(SK_ScaleConvert(src.data(), 0, sw, sh, table[s].format, zmt::kFieldType_UpperFirst,
                                  dst.data(), int(rowBytes), dw, dh, df, zmt::kFieldType_UpperFirst,
                                  zmt::kRenderQuality_High));
      for (std::size_t i = 0; i < dst.size(); ++i) {
        const bool inside = planar ? i < used : (i < rowBytes * dh && i % rowBytes < natural);
        ASSERT_TRUE(inside || dst[i] == kSentinel) << "byte " << i;
      }
    }
  }
}

// Video-range black is Y' 16 (64 in 10 bits) with neutral chroma 128 (512); full-range black Y' 0; half 1.0
// is 0x3C00. Each fill writes its format's group into the rectangle (from pixel x of row 1 in 3 rows of 24
// pixels) and nothing outside it.
TEST(HostRendererFills, EachFillWritesTheFormatsOwnValuesInsideTheRectangleOnly) {
  using Fill = bool (*)(void*, int, zmt::PixelFormat, int, int, int, int);
  const struct {
    Fill fill;
    zmt::PixelFormat format;
    int pixels;   // of the rectangle, one row
    Bytes bytes;  // of the rectangle's first group
  } cases[] = {
      // clang-format off
      {SK_FillWithOpaqueWhite, zmt::kPixelFormat_BGRA_4444_8u, 3, {255, 255, 255, 255}},
      {SK_FillWithOpaqueBlack, zmt::kPixelFormat_ARGB_4444_8u, 3, {255, 0, 0, 0}},
      {SK_FillWithTransparentWhite, zmt::kPixelFormat_BGRA_4444_8u, 3, {255, 255, 255, 0}},
      {SK_FillWithTransparentWhite, zmt::kPixelFormat_BGRP_4444_8u, 3, {0, 0, 0, 0}},
      {SK_FillWithTransparentWhite, zmt::kPixelFormat_BGRX_4444_8u, 3, {255, 255, 255, 255}},
      {SK_FillWithOpaqueWhite, zmt::kPixelFormat_PRGB_4444_15u, 3, {0, 128, 0, 128, 0, 128, 0, 128}},
      {SK_FillWithOpaqueWhite, zmt::kPixelFormat_GPU_BGRA_4444_16f, 3, {0x00, 0x3C, 0x00, 0x3C, 0x00, 0x3C, 0x00, 0x3C}},
      {SK_FillWithOpaqueBlack, zmt::kPixelFormat_VUYA_4444_8u, 3, {128, 128, 16, 255}},
      {SK_FillWithTransparentBlack, zmt::kPixelFormat_VUYA_4444_8u_709, 3, {128, 128, 16, 0}},
      {SK_FillWithOpaqueBlack, zmt::kPixelFormat_UYVY_422_8u, 4, {128, 16, 128, 16}},
      {SK_FillWithOpaqueWhite, zmt::kPixelFormat_YUYV_422_8u_709, 4, {235, 128, 235, 128}},
      {SK_FillWithOpaqueBlack, zmt::kPixelFormat_V210_422_10u, 6, Raw<std::uint32_t>({V210Word(512, 64, 512),
          V210Word(64, 512, 64), V210Word(512, 64, 512), V210Word(64, 512, 64)})},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(zmt::PixelFormatShortName(c.format));
    const bool v210 = c.format == zmt::kPixelFormat_V210_422_10u;  // one 16-byte group of 6 pixels
    const std::size_t pixelBytes = zmt::PixelFormatSize(c.format, 6, 1) / 6;
    const int x = v210 ? 6 : 2;
    const std::size_t rowBytes = zmt::PixelFormatSize(c.format, 24, 1);
    const std::size_t start = rowBytes + (v210 ? 16 : x * pixelBytes),
                      length = v210 ? 16 : c.pixels * pixelBytes;
    Bytes image(rowBytes * 3, kSentinel);
    ASSERT_TRUE(c.fill(image.data(), int(rowBytes), c.format, x, 1, c.pixels, 1));
    for (std::size_t i = 0; i < image.size(); ++i) {
      const bool inside = i >= start && i < start + length;
      ASSERT_EQ(image[i], inside ? c.bytes[(i - start) % c.bytes.size()] : kSentinel) << i;
    }
  }
}

// A planar fill covers the whole image (Y 15 bytes, U and V 3 × 2 each for 5 × 3) or nothing; bad
// arguments and rectangles that split a 4:2:2 or v210 group are refused without a byte written.
TEST(HostRendererFills, PlanarFillsTheWholeImageAndBadRectanglesAreRefused) {
  Bytes image(15 + 12 + 4, kSentinel);
  const zmt::PixelFormat full = zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709_FullRange;
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 0, full, 1, 0, 4, 3));
  EXPECT_EQ(image, Bytes(image.size(), kSentinel));
  ASSERT_TRUE(SK_FillWithOpaqueBlack(image.data(), 0, full, 0, 0, 5, 3));
  Bytes expected(15, 0);
  expected.resize(27, 128);
  expected.resize(31, kSentinel);
  EXPECT_EQ(image, expected);

  image.assign(256, kSentinel);
  const zmt::PixelFormat bgra = zmt::kPixelFormat_BGRA_4444_8u;
  EXPECT_FALSE(SK_FillWithOpaqueBlack(nullptr, 64, bgra, 0, 0, 1, 1));
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 64, zmt::kPixelFormat_Invalid, 0, 0, 1, 1));
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 64, bgra, -1, 0, 1, 1));
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 8, bgra, 1, 0, 2, 1));  // past the row
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 64, zmt::kPixelFormat_UYVY_422_8u, 1, 0, 2, 1));
  EXPECT_FALSE(SK_FillWithOpaqueBlack(image.data(), 128, zmt::kPixelFormat_V210_422_10u, 2, 0, 6, 1));
  EXPECT_EQ(image, Bytes(256, kSentinel));
}

TEST(HostRendererPlanar, GetPlanarBuffersSplitsTheOneBlockLayout) {
  Bytes block(15 + 12);
  SK_PlanarBuffers planes{};
  ASSERT_TRUE(SK_GetPlanarBuffers(block.data(), kSK_PlanarLayout420_8u, 5, 3, &planes));
  EXPECT_EQ((std::vector<void*>(planes.planes, planes.planes + 3)),
            (std::vector<void*>{block.data(), block.data() + 15, block.data() + 21}));
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
  Bytes src;
  for (int v : {10, 20, 30, 40}) src.insert(src.end(), 4, std::uint8_t(v));
  for (int plane = 0; plane < 2; ++plane) src.insert(src.end(), {50, 50, 60, 60});
  const struct {
    zmt::FieldType field;
    zmt::RenderQuality quality;
    int luma0, luma1, chroma;
  } cases[] = {{zmt::kFieldType_Progressive, zmt::kRenderQuality_Medium, 15, 35, 55},
               {zmt::kFieldType_UpperFirst, zmt::kRenderQuality_Medium, 20, 30, 50},
               {zmt::kFieldType_LowerFirst, zmt::kRenderQuality_Draft, 10, 20, 50},
               {zmt::kFieldType_Progressive, zmt::kRenderQuality_Low, 10, 30, 50}};
  for (const auto& c : cases) {
    SCOPED_TRACE(int(c.field) * 10 + int(c.quality));
    Bytes dst(4 + 2 + 4, kSentinel);
    SK_PlanarBuffers s{}, d{};
    ASSERT_TRUE(SK_GetPlanarBuffers(src.data(), kSK_PlanarLayout420_8u, 4, 4, &s));
    ASSERT_TRUE(SK_GetPlanarBuffers(dst.data(), kSK_PlanarLayout420_8u, 2, 2, &d));
    ASSERT_TRUE(SK_QuarterScalePlanar420_8u(s, d, 4, 4, c.field, c.quality));
    EXPECT_EQ(std::vector<int>(dst.begin(), dst.end()),
              (std::vector<int>{c.luma0, c.luma0, c.luma1, c.luma1, c.chroma, c.chroma, kSentinel, kSentinel,
                                kSentinel, kSentinel}));
  }
}

// A 4444 format the GPU converter reads stays as it is; 8-bit Y'CbCr goes to VUYA 8u of its matrix, or to
// float from High; v210 and full-range sources always to float. DV decompression delivers the format itself.
TEST(HostFormatSelection, UploadsStageInAFormatTheConverterReads) {
  const struct {
    zmt::PixelFormat format;
    zmt::RenderQuality quality;
    zmt::PixelFormat expected;
  } cases[] = {
      // clang-format off
      {zmt::kPixelFormat_BGRA_4444_8u, zmt::kRenderQuality_Draft, zmt::kPixelFormat_BGRA_4444_8u},
      {zmt::kPixelFormat_PRGB_4444_32f_Linear, zmt::kRenderQuality_Max, zmt::kPixelFormat_PRGB_4444_32f_Linear},
      {zmt::kPixelFormat_VUYX_4444_8u_709, zmt::kRenderQuality_Low, zmt::kPixelFormat_VUYX_4444_8u_709},
      {zmt::kPixelFormat_GPU_BGRA_4444_16f, zmt::kRenderQuality_Low, zmt::kPixelFormat_GPU_BGRA_4444_16f},
      {zmt::kPixelFormat_UYVY_422_8u, zmt::kRenderQuality_Medium, zmt::kPixelFormat_VUYA_4444_8u},
      {zmt::kPixelFormat_YUYV_422_8u_709, zmt::kRenderQuality_Low, zmt::kPixelFormat_VUYA_4444_8u_709},
      {zmt::kPixelFormat_YUYV_422_8u_709, zmt::kRenderQuality_High, zmt::kPixelFormat_VUYA_4444_32f_709},
      {zmt::kPixelFormat_V210_422_10u, zmt::kRenderQuality_Draft, zmt::kPixelFormat_VUYA_4444_32f},
      {zmt::kPixelFormat_V210_422_10u_709, zmt::kRenderQuality_Draft, zmt::kPixelFormat_VUYA_4444_32f_709},
      {zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709, zmt::kRenderQuality_Medium, zmt::kPixelFormat_VUYA_4444_8u_709},
      {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, zmt::kRenderQuality_Max, zmt::kPixelFormat_VUYA_4444_32f},
      {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601_FullRange, zmt::kRenderQuality_Draft, zmt::kPixelFormat_VUYA_4444_32f},
      {zmt::kPixelFormat_Invalid, zmt::kRenderQuality_Draft, zmt::kPixelFormat_Invalid},
      // clang-format on
  };
  for (const auto& c : cases) {
    const zmt::PixelFormat got = zmt::Select4444PixelFormat(c.format, c.quality);
    EXPECT_EQ(got, c.expected) << zmt::PixelFormatShortName(c.format) << " got "
                               << (zmt::PixelFormatShortName(got) ? zmt::PixelFormatShortName(got) : "none");
  }
  const zmt::DVDecompressionFormat uyvy =
      zmt::SelectDVDecompressionFormat(zmt::kPixelFormat_UYVY_422_8u, 720, 486);
  EXPECT_EQ(uyvy.format, zmt::kPixelFormat_UYVY_422_8u);
  EXPECT_EQ((std::vector<int>{uyvy.width, uyvy.height}), (std::vector<int>{720, 486}));
  const zmt::DVDecompressionFormat bad =
      zmt::SelectDVDecompressionFormat(zmt::kPixelFormat_Invalid, 720, 486);
  EXPECT_EQ(bad.format, zmt::kPixelFormat_Invalid);
  EXPECT_EQ(bad.width, 0);
  EXPECT_EQ(zmt::SelectDVDecompressionFormat(zmt::kPixelFormat_BGRA_4444_8u, 0, 486).width, 0);
}

}  // namespace
