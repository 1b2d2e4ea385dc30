// SK_ScaleConvert against values worked out by hand from the format definitions (BT.601 / BT.709
// coefficients, video and full range, 15u, half float, v210 words, chroma siting), never from the
// renderer's own helpers.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "SK/Renderer.h"
#include "zelmediatypes/PixelFormatTable.h"

namespace zmt = zelmediatypes;

namespace {

constexpr std::uint8_t kSentinel = 0xA5;

// Straight R, G, B, A stored as BGRA_4444_32f, the test's reference format.
std::vector<float> Pixels(std::initializer_list<std::array<float, 4>> rgba) {
  std::vector<float> out;
  for (const auto& p : rgba) out.insert(out.end(), {p[2], p[1], p[0], p[3]});
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

std::vector<std::uint8_t> Words(std::initializer_list<std::uint32_t> words) {
  std::vector<std::uint8_t> out(words.size() * 4);
  std::size_t i = 0;
  for (std::uint32_t w : words) std::memcpy(out.data() + 4 * i++, &w, 4);
  return out;
}

template <typename T>
std::vector<std::uint8_t> Bytes(std::initializer_list<T> values) {
  std::vector<std::uint8_t> out(values.size() * sizeof(T));
  std::memcpy(out.data(), values.begin(), out.size());
  return out;
}

struct KnownColour {
  const char* name;
  zmt::PixelFormat format;
  int width, height;                // the image holds one colour
  std::array<float, 4> rgba;        // straight
  std::vector<std::uint8_t> bytes;  // the start of the packed image, by hand
  float tolerance;                  // of the unpacked colour against rgba
};

// Red BT.601 8-bit: Y' 16 + 219 × 0.299 = 81.5 → 81; Cb 128 − 224 × 0.299 / 1.772 = 90.2 → 90; Cr 240.
// Red BT.709 8-bit: Y' 16 + 219 × 0.2126 = 62.6 → 63; Cb 128 − 224 × 0.2126 / 1.8556 = 102.3 → 102.
// Red BT.601 10-bit: Y' 64 + 876 × 0.299 = 325.9 → 326; Cb 512 − 896 × 0.168736 = 360.8 → 361; Cr 960.
// Red BT.601 full range: Y' 255 × 0.299 = 76.2 → 76; Cb 128 − 255 × 0.168736 = 85.0 → 85; Cr 255.5 → 255.
std::vector<KnownColour> KnownColours() {
  const std::array<float, 4> red = {1, 0, 0, 1};
  return {
      {"BGRA 8u red", zmt::kPixelFormat_BGRA_4444_8u, 1, 1, red, {0, 0, 255, 255}, 1e-6f},
      {"ARGB 8u red", zmt::kPixelFormat_ARGB_4444_8u, 1, 1, red, {255, 255, 0, 0}, 1e-6f},
      {"BGRP 8u half red", zmt::kPixelFormat_BGRP_4444_8u, 1, 1, {1, 0, 0, 0.5f}, {0, 0, 128, 128}, 0.002f},
      {"PRGB 8u half grey",
       zmt::kPixelFormat_PRGB_4444_8u,
       1,
       1,
       {0.2f, 0.2f, 0.2f, 0.2f},
       {51, 10, 10, 10},
       0.005f},
      {"XRGB 8u red", zmt::kPixelFormat_XRGB_4444_8u, 1, 1, red, {255, 255, 0, 0}, 1e-6f},
      {"BGRA 15u green",
       zmt::kPixelFormat_BGRA_4444_15u,
       1,
       1,
       {0, 1, 0, 0.5f},
       Bytes<std::uint16_t>({0, 32768, 0, 16384}),
       1e-6f},
      {"BGRA 32f",
       zmt::kPixelFormat_BGRA_4444_32f,
       1,
       1,
       {0.75f, 0.5f, 0.25f, 1},
       Bytes<float>({0.25f, 0.5f, 0.75f, 1}),
       0},
      // ((0.5 + 0.055) / 1.055)^2.4 = 0.214041
      {"BGRA 32f linear",
       zmt::kPixelFormat_BGRA_4444_32f_Linear,
       1,
       1,
       {0.5f, 0.5f, 0.5f, 1},
       Bytes<float>({0.214041f, 0.214041f, 0.214041f, 1}),
       1e-5f},
      {"GPU 16f",
       zmt::kPixelFormat_GPU_BGRA_4444_16f,
       1,
       1,
       {0.5f, 1, 0, 1},
       Bytes<std::uint16_t>({0x0000, 0x3C00, 0x3800, 0x3C00}),
       0},
      {"VUYA 8u 601 red", zmt::kPixelFormat_VUYA_4444_8u, 1, 1, red, {240, 90, 81, 255}, 0.01f},
      {"VUYA 8u 709 red", zmt::kPixelFormat_VUYA_4444_8u_709, 1, 1, red, {240, 102, 63, 255}, 0.01f},
      {"VUYX 32f white",
       zmt::kPixelFormat_VUYX_4444_32f,
       1,
       1,
       {1, 1, 1, 1},
       Bytes<float>({0, 0, 1, 1}),
       1e-6f},
      {"UYVY 8u 601 red", zmt::kPixelFormat_UYVY_422_8u, 2, 1, red, {90, 81, 240, 81}, 0.01f},
      {"YUYV 8u 709 red", zmt::kPixelFormat_YUYV_422_8u_709, 2, 1, red, {63, 102, 63, 240}, 0.01f},
      {"v210 601 red", zmt::kPixelFormat_V210_422_10u, 6, 1, red,
       Words({V210Word(361, 326, 960), V210Word(326, 361, 326), V210Word(960, 326, 361),
              V210Word(326, 960, 326)}),
       0.003f},
      {"4:2:0 601 red",
       zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601,
       2,
       2,
       red,
       {81, 81, 81, 81, 90, 240},
       0.01f},
      {"4:2:0 601 full range red",
       zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601_FullRange,
       2,
       2,
       red,
       {76, 76, 76, 76, 85, 255},
       0.01f},
  };
}

// Each family's pack gives the hand-computed bytes, and its unpack gives the colour back.
TEST(HostScaleConvert, KnownColoursPackToTheirBytesAndUnpackBack) {
  for (const KnownColour& k : KnownColours()) {
    SCOPED_TRACE(k.name);
    std::vector<float> source;
    for (int i = 0; i < k.width * k.height; ++i) {
      const auto p = Pixels({k.rgba});
      source.insert(source.end(), p.begin(), p.end());
    }
    std::vector<std::uint8_t> packed(zmt::PixelFormatSize(k.format, k.width, k.height), kSentinel);
    ASSERT_TRUE(Convert(source.data(), 0, k.width, k.height, zmt::kPixelFormat_BGRA_4444_32f, packed.data(),
                        0, k.width, k.height, k.format));
    ASSERT_GE(packed.size(), k.bytes.size());
    if ((k.format.properties & zmt::kPixelFormatPropertyMask_Sample) == zmt::kPixelFormatSample_32f) {
      for (int c = 0; c < 4; ++c) {
        float got, want;
        std::memcpy(&got, packed.data() + 4 * c, 4);
        std::memcpy(&want, k.bytes.data() + 4 * c, 4);
        EXPECT_NEAR(got, want, 1e-5f);
      }
    } else {
      EXPECT_EQ(std::vector<std::uint8_t>(packed.begin(), packed.begin() + long(k.bytes.size())), k.bytes);
    }

    std::vector<float> back(std::size_t(4 * k.width * k.height), -1.0f);
    ASSERT_TRUE(Convert(packed.data(), 0, k.width, k.height, k.format, back.data(), 0, k.width, k.height,
                        zmt::kPixelFormat_BGRA_4444_32f));
    const auto want = Pixels({k.rgba});
    for (int c = 0; c < 4; ++c) EXPECT_NEAR(back[std::size_t(c)], want[std::size_t(c)], k.tolerance) << c;
  }
}

// X and 4:2:2 destinations receive the image over black; premultiplied destinations the premultiplied colour.
TEST(HostScaleConvert, AlphaTypesFollowTheDestination) {
  const auto src = Pixels({{1, 0.5f, 0, 0.5f}});
  std::uint8_t x[4], p[4], a[4];
  ASSERT_TRUE(Convert(src.data(), 0, 1, 1, zmt::kPixelFormat_BGRA_4444_32f, x, 0, 1, 1,
                      zmt::kPixelFormat_BGRX_4444_8u));
  ASSERT_TRUE(Convert(src.data(), 0, 1, 1, zmt::kPixelFormat_BGRA_4444_32f, p, 0, 1, 1,
                      zmt::kPixelFormat_BGRP_4444_8u));
  ASSERT_TRUE(Convert(src.data(), 0, 1, 1, zmt::kPixelFormat_BGRA_4444_32f, a, 0, 1, 1,
                      zmt::kPixelFormat_BGRA_4444_8u));
  EXPECT_EQ(std::vector<int>(x, x + 4), (std::vector<int>{0, 64, 128, 255}));  // 63.75 → 64
  EXPECT_EQ(std::vector<int>(p, p + 4), (std::vector<int>{0, 64, 128, 128}));
  EXPECT_EQ(std::vector<int>(a, a + 4), (std::vector<int>{0, 128, 255, 128}));
}

float Grey(const std::vector<float>& bgra, int i) {
  return bgra[std::size_t(4 * i + 1)];
}

std::vector<float> GreyRamp(std::initializer_list<float> values) {
  std::vector<float> out;
  for (float v : values) out.insert(out.end(), {v, v, v, 1});
  return out;
}

// A ramp 0, 0.25, 0.5, 0.75 scaled from 4 to 3 samples, across and down:
// nearest reads samples floor((i + 0.5) × 4/3) = 0, 2, 3; bilinear interpolates at (i + 0.5) × 4/3 − 0.5 =
// 1/6, 3/2, 17/6; area averages the footprints [0, 4/3), [4/3, 8/3), [8/3, 4).
TEST(HostScaleConvert, QualityLevelsPickNearestBilinearAndArea) {
  const struct {
    zmt::RenderQuality quality;
    float expected[3];
  } cases[] = {
      {zmt::kRenderQuality_Low, {0.0f, 0.5f, 0.75f}},
      {zmt::kRenderQuality_Medium, {1.0f / 24, 0.375f, 0.5f + 0.25f * 5 / 6}},
      {zmt::kRenderQuality_High, {0.0625f, 0.375f, 0.6875f}},
  };
  const auto ramp = GreyRamp({0, 0.25f, 0.5f, 0.75f});
  for (const auto& c : cases) {
    SCOPED_TRACE(int(c.quality));
    std::vector<float> across(12), down(12);
    ASSERT_TRUE(Convert(ramp.data(), 0, 4, 1, zmt::kPixelFormat_BGRA_4444_32f, across.data(), 0, 3, 1,
                        zmt::kPixelFormat_BGRA_4444_32f, c.quality));
    ASSERT_TRUE(Convert(ramp.data(), 16, 1, 4, zmt::kPixelFormat_BGRA_4444_32f, down.data(), 16, 1, 3,
                        zmt::kPixelFormat_BGRA_4444_32f, c.quality));
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(Grey(across, i), c.expected[i], 1e-5f) << i;
      EXPECT_NEAR(Grey(down, i), c.expected[i], 1e-5f) << i;
      EXPECT_NEAR(across[std::size_t(4 * i + 3)], 1.0f, 1e-5f);
    }
  }
}

// Filters mix premultiplied colour: a transparent green neighbour does not tint red.
TEST(HostScaleConvert, FilteringDoesNotBleedTransparentColour) {
  const auto src = Pixels({{1, 0, 0, 1}, {0, 1, 0, 0}});
  std::vector<float> dst(4);
  ASSERT_TRUE(Convert(src.data(), 0, 2, 1, zmt::kPixelFormat_BGRA_4444_32f, dst.data(), 0, 1, 1,
                      zmt::kPixelFormat_BGRA_4444_32f, zmt::kRenderQuality_High));
  EXPECT_NEAR(dst[2], 1.0f, 1e-6f);  // R
  EXPECT_NEAR(dst[1], 0.0f, 1e-6f);  // G
  EXPECT_NEAR(dst[3], 0.5f, 1e-6f);  // A
}

// Rows 0, 2 (field one) hold 0 and 0.5, rows 1, 3 (field two) 1 and 1. Halving the height bilinearly:
// an interlaced image keeps its fields (0.25, 1), a progressive one mixes neighbours (0.5, 0.75).
TEST(HostScaleConvert, InterlacedImagesScaleEachFieldOnItsOwn) {
  const auto src = GreyRamp({0, 1, 0.5f, 1});
  std::vector<float> fields(8), frame(8);
  ASSERT_TRUE(Convert(src.data(), 16, 1, 4, zmt::kPixelFormat_BGRA_4444_32f, fields.data(), 16, 1, 2,
                      zmt::kPixelFormat_BGRA_4444_32f, zmt::kRenderQuality_Medium,
                      zmt::kFieldType_UpperFirst));
  ASSERT_TRUE(Convert(src.data(), 16, 1, 4, zmt::kPixelFormat_BGRA_4444_32f, frame.data(), 16, 1, 2,
                      zmt::kPixelFormat_BGRA_4444_32f, zmt::kRenderQuality_Medium,
                      zmt::kFieldType_Progressive));
  EXPECT_NEAR(Grey(fields, 0), 0.25f, 1e-6f);
  EXPECT_NEAR(Grey(fields, 1), 1.0f, 1e-6f);
  EXPECT_NEAR(Grey(frame, 0), 0.5f, 1e-6f);
  EXPECT_NEAR(Grey(frame, 1), 0.75f, 1e-6f);
}

// VUYX 8u pixels with Y' 128, Cr 128 and the given Cb, as bytes.
std::vector<std::uint8_t> CbImage(int width, int height, const std::vector<int>& cb, bool perRow) {
  std::vector<std::uint8_t> out;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      out.insert(out.end(), {128, std::uint8_t(cb[std::size_t(perRow ? y : x)]), 128, 255});
    }
  }
  return out;
}

struct Siting {
  zmt::PixelFormat format;
  int width, height;
  std::vector<int> cb;  // per column, or per row when perRow
  bool perRow;
  std::vector<int> expectedU;  // the U plane
};

// Down-sampling with the format's siting. Columns 100, 140, 180, 220: MPEG-2 chroma sits on columns 0 and 2
// ([1 2 1] / 4: 110, 180); MPEG-4 chroma halfway ([1 3 3 1] / 8: 125, 195). Rows 100, 180, 100, 180 (one
// value per field): FRAME chroma at rows 0.5 and 2.5 mixes both fields (130, 150); FIELD chroma keeps each
// field's own value (100, 180).
TEST(HostScaleConvert, Planar420OutputFiltersChromaAtItsSiting) {
  const Siting cases[] = {
      {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601,
       4,
       2,
       {100, 140, 180, 220},
       false,
       {110, 180}},
      {zmt::kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601,
       4,
       2,
       {100, 140, 180, 220},
       false,
       {125, 195}},
      {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601,
       2,
       4,
       {100, 180, 100, 180},
       true,
       {130, 150}},
      {zmt::kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601,
       2,
       4,
       {100, 180, 100, 180},
       true,
       {100, 180}},
  };
  for (const Siting& s : cases) {
    SCOPED_TRACE(zmt::PixelFormatShortName(s.format));
    const auto src = CbImage(s.width, s.height, s.cb, s.perRow);
    std::vector<std::uint8_t> dst(zmt::PixelFormatSize(s.format, s.width, s.height));
    ASSERT_TRUE(Convert(src.data(), 0, s.width, s.height, zmt::kPixelFormat_VUYX_4444_8u, dst.data(), 0,
                        s.width, s.height, s.format));
    const std::size_t u = std::size_t(s.width * s.height);
    std::vector<int> plane(dst.begin() + long(u), dst.begin() + long(u + s.expectedU.size()));
    EXPECT_EQ(plane, s.expectedU);
  }
}

// Up-sampling a U plane of 100, 200 onto four columns: MPEG-2 (co-sited) 100, 150, 200, 200; MPEG-4
// (halfway) 100, 125, 175, 200.
TEST(HostScaleConvert, Planar420InputInterpolatesChromaAtItsSiting) {
  const struct {
    zmt::PixelFormat format;
    float expected[4];
  } cases[] = {
      {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, {100, 150, 200, 200}},
      {zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601, {100, 125, 175, 200}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(zmt::PixelFormatShortName(c.format));
    std::vector<std::uint8_t> src = {128, 128, 128, 128, 128, 128, 128, 128, 100, 200, 128, 128};
    std::vector<float> dst(4 * 4 * 2);
    ASSERT_TRUE(Convert(src.data(), 0, 4, 2, c.format, dst.data(), 0, 4, 2, zmt::kPixelFormat_VUYA_4444_32f));
    for (int x = 0; x < 4; ++x)
      EXPECT_NEAR(dst[std::size_t(4 * x + 1)], (c.expected[x] - 128) / 224, 1e-5f) << x;
  }
}

// Pairs outside the table, bad arguments and rows too short are refused without a byte written.
TEST(HostScaleConvert, UnsupportedPairsAndBadArgumentsReturnFalseWithoutWriting) {
  std::vector<std::uint8_t> src(64, 0x40), dst(64, kSentinel);
  const zmt::PixelFormat foreign = {zmt::MakeFormatCode('Q', 'Q', 'b', 'g'),
                                    zmt::kPixelFormat_BGRA_4444_8u.properties | 0x40u};
  const zmt::PixelFormat bgra = zmt::kPixelFormat_BGRA_4444_8u;
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
  EXPECT_EQ(dst, std::vector<std::uint8_t>(64, kSentinel));
}

// Every table format into every table format, at odd sizes and with padded destination rows: each pair
// succeeds, and nothing past each row's own bytes, nor past rowBytes × height, is touched.
TEST(HostScaleConvert, EveryPairConvertsAndStaysInsideTheDestinationRows) {
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  const int sw = 7, sh = 5, dw = 13, dh = 3;
  for (std::size_t s = 0; s < count; ++s) {
    std::vector<std::uint8_t> src(zmt::PixelFormatSize(table[s].format, sw, sh));
    for (std::size_t i = 0; i < src.size(); ++i) src[i] = std::uint8_t(i * 37 % 251);
    if (table[s].format.properties & zmt::kPixelFormatProperty_Float) {
      std::fill(src.begin(), src.end(), 0);  // no NaN in the float sources
    }
    for (std::size_t d = 0; d < count; ++d) {
      SCOPED_TRACE(std::string(table[s].name) + " to " + table[d].name);
      const zmt::PixelFormat df = table[d].format;
      const bool planar = zmt::IsPlanar420Format(df);
      const std::size_t natural = zmt::PixelFormatSize(df, dw, 1);
      const std::size_t rowBytes = planar ? zmt::PixelFormatSize(df, dw, dh) / dh + 1 : natural + 5;
      std::vector<std::uint8_t> dst(rowBytes * dh + 16, kSentinel);
      ASSERT_TRUE(SK_ScaleConvert(src.data(), 0, sw, sh, table[s].format, zmt::kFieldType_UpperFirst,
                                  dst.data(), int(rowBytes), dw, dh, df, zmt::kFieldType_UpperFirst,
                                  zmt::kRenderQuality_High));
      const std::size_t used = planar ? zmt::PixelFormatSize(df, dw, dh) : 0;
      for (std::size_t i = 0; i < dst.size(); ++i) {
        const bool inside = planar ? i < used : (i < rowBytes * dh && i % rowBytes < natural);
        if (!inside) {
          ASSERT_EQ(dst[i], kSentinel) << "byte " << i;
        }
      }
    }
  }
}

}  // namespace
