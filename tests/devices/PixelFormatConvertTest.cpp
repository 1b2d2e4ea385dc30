// Pixel format conversion on every device: round trips through every four-component host format, agreement
// with the CPU renderer, colour bars to their codes, chroma siting, the conversion between GPU formats, the
// flip, the copy of a format to itself, and the pairs that are refused.
#include <zelmediatypes/PixelFormatTable.h>
#include <zelmediatypes/PixelFormats.h>

#include <random>

#include "EveryDevice.h"
#include "Lumora/Results.h"
#include "SK/Renderer.h"

namespace {

namespace zmt = zelmediatypes;
const LM::PixelFormat k16f = LM::kPixelFormat_GPU_BGRA_4444_16f, k32f = LM::kPixelFormat_GPU_BGRA_4444_32f;

class PixelFormatConvert : public EveryDevice {
 protected:
  int Convert(const void* src, int srcRowBytes, LM::PixelFormat srcFormat, void* dst, int dstRowBytes,
              LM::PixelFormat dstFormat, int width, int height, bool flip = false) {
    return LM::PixelFormatConvert(device_, src, srcRowBytes, srcFormat, dst, dstRowBytes, dstFormat, width,
                                  height, flip);
  }
};

double Kr(LM::PixelFormat format) {
  return zmt::IsBT709(format) ? 0.2126 : 0.299;
}
double Kb(LM::PixelFormat format) {
  return zmt::IsBT709(format) ? 0.0722 : 0.114;
}

// Y'CbCr as an opaque B'G'R'A pixel, by the format's matrix.
Pixel FromYCbCr(double y, double cb, double cr, LM::PixelFormat format) {
  const double kr = Kr(format), kb = Kb(format);
  const double r = y + 2 * (1 - kr) * cr, b = y + 2 * (1 - kb) * cb;
  const double g = (y - kr * r - kb * b) / (1 - kr - kb);
  return {static_cast<float>(b), static_cast<float>(g), static_cast<float>(r), 1.0f};
}

// The largest error of a channel after one round trip, from half a code step of each stored component
// carried through the matrix back to R'G'B': for Y'CbCr, R' = Y' + 2 (1 - Kr) Cr, B' = Y' + 2 (1 - Kb) Cb,
// G' = Y' - 2 Kb (1 - Kb) / Kg Cb - 2 Kr (1 - Kr) / Kg Cr, so the worst channel gathers half a Y' step and
// the largest |coefficient| of each chroma times half a C step. A straight format stores c / a and a, each
// within its step: c'a' - ca is within a dc + c' da, at most the colour step plus the alpha step. A 16f GPU
// side adds half an ulp of a half near 1.
double Tolerance(LM::PixelFormat host, LM::PixelFormat gpu) {
  const std::uint32_t sample = host.properties & zmt::kPixelFormatPropertyMask_Sample;
  const bool straight =
      (host.properties & zmt::kPixelFormatPropertyMask_Alpha) == zmt::kPixelFormatAlpha_Straight;
  const double kr = Kr(host), kb = Kb(host), kg = 1.0 - kr - kb;
  const double chroma =
      std::max({2 * (1 - kr), 2 * (1 - kb), 2 * kb * (1 - kb) / kg + 2 * kr * (1 - kr) / kg});
  double colour = 0, alpha = 0;
  if (sample == zmt::kPixelFormatSample_8u) {
    const bool yCbCr =
        (host.properties & zmt::kPixelFormatPropertyMask_Order) == zmt::kPixelFormatOrder_VUYA ||
        (host.properties & zmt::kPixelFormatPropertyMask_Layout) != zmt::kPixelFormatLayout_4444;
    colour = yCbCr ? 0.5 / 219 + chroma * 0.5 / 224 : 0.5 / 255;
    alpha = 0.5 / 255;
  } else if (sample == zmt::kPixelFormatSample_10u) {
    colour = 0.5 / 876 + chroma * 0.5 / 896;
  } else if (sample == zmt::kPixelFormatSample_15u) {
    colour = alpha = 0.5 / 32768;
  } else {
    colour = (host.properties & zmt::kPixelFormatProperty_Linear) ? 2e-4 : 2e-6;  // the sRGB curve's pow
  }
  return colour + (straight ? alpha : 0.0) + (IsHalfFormat(gpu) ? std::ldexp(1.0, -11) : 0.0) + 1e-6;
}

// GPU -> X -> GPU for every host format X that the converter writes, into and from both precisions, with
// premultiplied colours, opaque and half transparent, inside the gamut of every matrix. Formats without
// alpha come back opaque with the colour over black. The 4:2:2 formats get a chroma-flat row (one Cb, Cr and
// varied Y' by their own matrix), which their chroma filters keep, of an odd width: the last pair is written
// whole and its second pixel ignored on the way back.
TEST_P(PixelFormatConvert, EveryHostFormatRoundTrips) {
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  int formats = 0;
  for (LM::PixelFormat gpu : {k16f, k32f}) {
    for (std::size_t i = 0; i < count; ++i) {
      const LM::PixelFormat host = table[i].format;
      const std::uint32_t layout = host.properties & zmt::kPixelFormatPropertyMask_Layout;
      if (layout == zmt::kPixelFormatLayout_420Planar || host == zmt::kPixelFormat_BGRA_4444_32f ||
          (host.properties & zmt::kPixelFormatPropertyMask_Order) == 0)
        continue;
      std::vector<Pixel> pixels = {{0.2f, 0.5f, 0.8f, 1.0f},   {1.0f, 1.0f, 1.0f, 1.0f},
                                   {0.0f, 0.0f, 0.0f, 1.0f},   {0.1f, 0.25f, 0.4f, 0.5f},
                                   {0.45f, 0.3f, 0.05f, 0.5f}, {0.6f, 0.6f, 0.6f, 0.75f}};
      if (layout == zmt::kPixelFormatLayout_422Packed) {
        pixels.clear();
        for (double y : {0.3, 0.5, 0.7, 0.25, 0.6, 0.45, 0.75})
          pixels.push_back(FromYCbCr(y, 0.1, -0.1, host));
      }
      const int width = static_cast<int>(pixels.size()), gpuRow = width * PixelBytes(gpu);
      const int hostRow = static_cast<int>(zmt::PixelFormatSize(host, width, 1));
      void* middle = Allocate(hostRow);
      void* back = Allocate(gpuRow);
      ASSERT_EQ(Convert(UploadPixels(pixels, gpu), gpuRow, gpu, middle, hostRow, host, width, 1), 0)
          << table[i].name;
      ASSERT_EQ(Convert(middle, hostRow, host, back, gpuRow, gpu, width, 1), 0) << table[i].name;
      ++formats;
      if ((host.properties & zmt::kPixelFormatPropertyMask_Alpha) == zmt::kPixelFormatAlpha_Ignored) {
        for (Pixel& p : pixels) p.w = 1.0f;
      }
      EXPECT_TRUE(PixelsNear(DownloadPixels(back, width, gpu), pixels, Tolerance(host, gpu)))
          << table[i].name;
    }
  }
  EXPECT_EQ(formats, 2 * (35 + 6));
}

// A row's samples in memory order: bytes, or v210's 10-bit codes three to a word.
std::vector<int> Samples(const Bytes& row, LM::PixelFormat format) {
  if ((format.properties & zmt::kPixelFormatPropertyMask_Sample) != zmt::kPixelFormatSample_10u)
    return std::vector<int>(row.begin(), row.end());
  std::vector<int> samples;
  for (std::size_t at = 0; at + 4 <= row.size(); at += 4) {
    std::uint32_t word;
    std::memcpy(&word, &row[at], 4);
    for (int k = 0; k < 3; ++k) samples.push_back(static_cast<int>((word >> (10 * k)) & 0x3FFu));
  }
  return samples;
}

// The packed and planar Y'CbCr formats against the CPU renderer (SK_ScaleConvert), an implementation of the
// same values and siting written independently of the kernels: random premultiplied pixels into every
// 4:2:2 format, and random codes of every 4:2:2 and 4:2:0 format into GPU 32f. An odd width leaves a v210
// group, a pair and a chroma column partly outside the image, and an odd height a chroma row. Codes may
// differ by one where the two round a tie differently.
TEST_P(PixelFormatConvert, PackedAndPlanarFormatsAgreeWithTheCPURenderer) {
  const int width = 13, height = 5;
  std::mt19937 random(7);
  std::vector<Pixel> pixels;
  for (int i = 0; i < width * height; ++i) {
    const float a = std::uniform_real_distribution<float>(0.25f, 1.0f)(random);
    std::uniform_real_distribution<float> colour(0.0f, a);
    pixels.push_back({colour(random), colour(random), colour(random), a});
  }
  const Bytes gpuBytes = GPUBytes(pixels, k32f);
  void* gpuSource = Upload(gpuBytes);
  void* gpuResult = Allocate(gpuBytes.size());
  const auto render = [&](const Bytes& from, int fromRow, LM::PixelFormat fromFormat, Bytes& to, int toRow,
                          LM::PixelFormat toFormat) {
    return SK_ScaleConvert(from.data(), fromRow, width, height, fromFormat, zmt::kFieldType_Progressive,
                           to.data(), toRow, width, height, toFormat, zmt::kFieldType_Progressive,
                           zmt::kRenderQuality_High);
  };
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  int formats = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const LM::PixelFormat host = table[i].format;
    const std::uint32_t layout = host.properties & zmt::kPixelFormatPropertyMask_Layout;
    if (layout == zmt::kPixelFormatLayout_4444) continue;
    SCOPED_TRACE(table[i].name);
    ++formats;
    const bool packed = layout == zmt::kPixelFormatLayout_422Packed;
    const std::size_t hostBytes = zmt::PixelFormatSize(host, width, height);
    const int hostRow = packed ? static_cast<int>(zmt::PixelFormatSize(host, width, 1)) : width;
    if (packed) {
      void* written = Upload(Bytes(hostBytes, 0));  // bytes past a v210 row's groups stay 0
      ASSERT_EQ(Convert(gpuSource, width * 16, k32f, written, hostRow, host, width, height), 0);
      Bytes expected(hostBytes, 0);
      ASSERT_TRUE(render(gpuBytes, width * 16, k32f, expected, hostRow, host));
      const std::vector<int> got = Samples(Download(written, hostBytes), host),
                             want = Samples(expected, host);
      for (std::size_t k = 0; k < want.size(); ++k) ASSERT_NEAR(got[k], want[k], 1) << "sample " << k;
    }
    // Random codes; v210's words hold three 10-bit codes, kept within the video range.
    Bytes codes(hostBytes);
    for (std::uint8_t& code : codes) code = static_cast<std::uint8_t>(random());
    if ((host.properties & zmt::kPixelFormatPropertyMask_Sample) == zmt::kPixelFormatSample_10u) {
      for (std::size_t at = 0; at + 4 <= codes.size(); at += 4) {
        std::uint32_t word = 0;
        for (int k = 0; k < 3; ++k) word |= static_cast<std::uint32_t>(64 + random() % 897) << (10 * k);
        std::memcpy(&codes[at], &word, 4);
      }
    }
    ASSERT_EQ(Convert(Upload(codes), hostRow, host, gpuResult, width * 16, k32f, width, height), 0);
    Bytes expected(gpuBytes.size());
    ASSERT_TRUE(render(codes, packed ? hostRow : 0, host, expected, width * 16, k32f));
    EXPECT_TRUE(PixelsNear(DownloadPixels(gpuResult, pixels.size(), k32f), GPUPixels(expected, k32f), 1e-5));
  }
  EXPECT_EQ(formats, 6 + 16);
}

// 100% and 75% colour bars (white, yellow, cyan, green, magenta, red, blue, black), by each matrix. In 8-bit
// video-range Y'CbCr: the codes ITU-R BT.601 and BT.709 publish. Written as v210, 6 pixels a bar: the middle
// pair of each bar filters its chroma from the bar alone, so its codes are the bar's own, Y' 64 + 876 Y and
// C 512 + 896 C rounded. Read from full-range 4:2:0 codes (Y' 255 Y, C 128 + 255 C rounded), 4 pixels a
// bar: the middle pixels come back as the bar within half a code step through the matrix.
TEST_P(PixelFormatConvert, ColourBarsGiveTheirCodes) {
  const struct {
    LM::PixelFormat vuya, v210, planar;
    int published[2][24];  // Y', Cb, Cr of each bar, at 100% and at 75%
  } matrices[] = {{zmt::kPixelFormat_VUYA_4444_8u,
                   zmt::kPixelFormat_V210_422_10u,
                   zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601_FullRange,
                   {{235, 128, 128, 210, 16, 146, 170, 166, 16,  145, 54,  34,
                     106, 202, 222, 81,  90, 240, 41,  240, 110, 16,  128, 128},
                    {180, 128, 128, 162, 44,  142, 131, 156, 44,  112, 72,  58,
                     84,  184, 198, 65,  100, 212, 35,  212, 114, 16,  128, 128}}},
                  {zmt::kPixelFormat_VUYA_4444_8u_709,
                   zmt::kPixelFormat_V210_422_10u_709,
                   zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709_FullRange,
                   {{235, 128, 128, 219, 16,  138, 188, 154, 16,  173, 42,  26,
                     78,  214, 230, 63,  102, 240, 32,  240, 118, 16,  128, 128},
                    {180, 128, 128, 168, 44,  136, 145, 147, 44,  133, 63,  52,
                     63,  193, 204, 51,  109, 212, 28,  212, 120, 16,  128, 128}}}};
  const auto code = [](double value) { return std::uint8_t(std::min(255L, std::lround(value))); };
  for (const auto& m : matrices) {
    for (const int l : {0, 1}) {
      const double level = l == 0 ? 1.0 : 0.75, kr = Kr(m.vuya), kb = Kb(m.vuya);
      SCOPED_TRACE(std::string(zmt::PixelFormatName(m.vuya)) + " at " + std::to_string(level));
      std::vector<Pixel> bars, wide, middles;
      Bytes published, luma, cbs, crs;
      std::vector<int> want10;
      for (int b = 0; b < 8; ++b) {
        const double r = level * !(b & 2), g = level * !(b & 4), blue = level * !(b & 1);
        const double y = kr * r + (1 - kr - kb) * g + kb * blue, cb = (blue - y) / (2 * (1 - kb)),
                     cr = (r - y) / (2 * (1 - kr));
        bars.push_back({float(blue), float(g), float(r), 1.0f});
        wide.insert(wide.end(), 6, bars.back());
        middles.insert(middles.end(), 2, bars.back());
        const int* codes = &m.published[l][3 * b];
        published.insert(published.end(),
                         {std::uint8_t(codes[2]), std::uint8_t(codes[1]), std::uint8_t(codes[0]), 255});
        want10.insert(want10.end(), {int(std::lround(512 + 896 * cb)), int(std::lround(64 + 876 * y)),
                                     int(std::lround(512 + 896 * cr)), int(std::lround(64 + 876 * y))});
        luma.insert(luma.end(), 4, code(255 * y));
        cbs.insert(cbs.end(), 2, code(128 + 255 * cb));
        crs.insert(crs.end(), 2, code(128 + 255 * cr));
      }
      void* codes = Allocate(8 * 4);
      ASSERT_EQ(Convert(UploadPixels(bars, k32f), 8 * 16, k32f, codes, 8 * 4, m.vuya, 8, 1), 0);
      EXPECT_EQ(Download(codes, 8 * 4), published) << "8-bit codes";

      void* packed = Allocate(128);
      ASSERT_EQ(Convert(UploadPixels(wide, k32f), 48 * 16, k32f, packed, 128, m.v210, 48, 1), 0);
      const std::vector<int> samples = Samples(Download(packed, 128), m.v210);
      std::vector<int> got10;  // samples Cb, Y', Cr, Y' of pixels 6b + 2 and 6b + 3
      for (int b = 0; b < 8; ++b)
        got10.insert(got10.end(), &samples[4 * (3 * b + 1)], &samples[4 * (3 * b + 2)]);
      EXPECT_EQ(got10, want10) << "v210";

      Bytes planes = luma;  // 32 x 2 luma, 16 x 1 of each chroma
      for (const Bytes* plane : {&luma, &cbs, &crs})
        planes.insert(planes.end(), plane->begin(), plane->end());
      void* result = Allocate(32 * 2 * 16);
      ASSERT_EQ(Convert(Upload(planes), 32, m.planar, result, 32 * 16, k32f, 32, 2), 0);
      const std::vector<Pixel> decoded = DownloadPixels(result, 64, k32f);
      std::vector<Pixel> seen;
      for (int b = 0; b < 8; ++b) seen.insert(seen.end(), {decoded[4 * b + 1], decoded[4 * b + 2]});
      EXPECT_TRUE(PixelsNear(seen, middles, 0.5 / 255 * (1 + 2 * (1 - kb)) + 1e-6)) << "full range";
    }
  }
}

// The Cb of an opaque result pixel with neutral Cr: B' - R' = 2 (1 - Kb) Cb.
double CbOf(const Pixel& p, LM::PixelFormat format) {
  return (p.x - p.z) / (2 * (1 - Kb(format)));
}
// The weight that linear interpolation gives a sample sited at `site` at `position`, one sample every 2.
double Tent(double position, double site) {
  return std::max(0.0, 1 - std::fabs(position - site) / 2);
}

// One Cb sample away from neutral shows where each family sites its chroma and how it spreads it. Read:
// 4:2:2 sample i lies on column 2i; 4:2:0 sample (i, j) on column 2i (MPEG2) or 2i + 0.5 (MPEG4) and on
// frame row 2j + 0.5 (FRAME) or, in its own field's rows, on 2m + 0.25 or 2m + 0.75 (FIELD, j = 2m + f);
// each output interpolates linearly. Written into 4:2:2, an impulse at an even column reaches the sample
// sited there by half, one at an odd column its two neighbours by a quarter each ([1 2 1] / 4).
TEST_P(PixelFormatConvert, ChromaImpulsesShowTheSitingOfEachFamily) {
  const int width = 16, height = 16;
  Bytes row;
  for (int pair = 0; pair < width / 2; ++pair)
    row.insert(row.end(), {std::uint8_t(pair == 3 ? 228 : 128), 126, 128, 126});
  void* result = Allocate(width * 16);
  ASSERT_EQ(
      Convert(Upload(row), width * 2, zmt::kPixelFormat_UYVY_422_8u, result, width * 16, k32f, width, 1), 0);
  const std::vector<Pixel> uyvy = DownloadPixels(result, width, k32f);
  for (int x = 0; x < width; ++x)
    EXPECT_NEAR(CbOf(uyvy[x], zmt::kPixelFormat_UYVY_422_8u), Tent(x, 6) * 100 / 224, 1e-5) << "x " << x;

  const LM::PixelFormat v210 = zmt::kPixelFormat_V210_422_10u;
  std::vector<Pixel> rows;
  for (const int impulse : {6, 7}) {
    for (int x = 0; x < width; ++x) rows.push_back(FromYCbCr(0.5, x == impulse ? 0.4 : 0.0, 0.0, v210));
  }
  void* packed = Allocate(2 * 128);
  ASSERT_EQ(Convert(UploadPixels(rows, k32f), width * 16, k32f, packed, 128, v210, width, 2), 0);
  const std::vector<int> samples = Samples(Download(packed, 2 * 128), v210);
  for (int r = 0; r < 2; ++r) {
    for (int j = 0; j < width / 2; ++j) {
      EXPECT_EQ(samples[96 * r + 4 * j], int(std::lround(512 + 896 * 0.4 * Tent(6 + r, 2 * j) / 2)))
          << "row " << r << ", " << j;
    }
  }

  const struct {
    LM::PixelFormat format;
    double columnSite;
    bool field;
  } families[] = {{zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, 0.0, false},
                  {zmt::kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601, 0.5, false},
                  {zmt::kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_709, 0.0, true},
                  {zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601, 0.5, true}};
  const int ci = 3;
  for (const auto& family : families) {
    for (const int cj : {4, 5}) {  // a chroma row of each field
      // Flipped (into 16f), row y comes from row height - 1 - y, and a field's rows stay its own.
      for (const bool flip : {false, true}) {
        SCOPED_TRACE(std::string(zmt::PixelFormatName(family.format)) + ", chroma row " + std::to_string(cj) +
                     (flip ? ", flipped" : ""));
        Bytes planes(width * height, 126);
        for (int k = 0; k < width * height / 2; ++k) planes.push_back(k == cj * width / 2 + ci ? 228 : 128);
        const LM::PixelFormat gpu = flip ? k16f : k32f;
        void* decoded = Allocate(width * height * 16);
        ASSERT_EQ(Convert(Upload(planes), width, family.format, decoded, width * PixelBytes(gpu), gpu, width,
                          height, flip),
                  0);
        const std::vector<Pixel> seen = DownloadPixels(decoded, width * height, gpu);
        for (int i = 0; i < width * height; ++i) {
          const int x = i % width, y = flip ? height - 1 - i / width : i / width, f = cj & 1;
          const double down = !family.field  ? Tent(y, 2 * cj + 0.5)
                              : (y & 1) != f ? 0.0
                                             : Tent(y >> 1, 2 * (cj >> 1) + 0.25 + 0.5 * f);
          ASSERT_NEAR(CbOf(seen[i], family.format), Tent(x, 2 * ci + family.columnSite) * down * 100 / 224,
                      flip ? 1e-3 : 1e-5)
              << "x " << x << ", source row " << y;
        }
      }
    }
  }
}

// Between GPU formats one kernel moves the values; the flip reads the source bottom row first; a format
// converted to itself is copied, whatever the flip.
TEST_P(PixelFormatConvert, GPUFormatsFlipsAndCopies) {
  const std::vector<Pixel> rows = {{0.5f, 0.25f, 0.125f, 1.0f}, {-2.0f, 65504.0f, 0.0f, 0.5f}};
  const struct {
    LM::PixelFormat to;
    bool flip;
    std::vector<Pixel> expected;
  } cases[] = {{LM::kPixelFormat_GPU_BGRX_4444_32f, false, rows},
               {k32f, true, {rows[1], rows[0]}},
               {k16f, true, rows}};  // copied, not flipped
  void* half = UploadPixels(rows, k16f);
  for (const auto& c : cases) {
    void* out = Allocate(2 * PixelBytes(c.to));
    ASSERT_EQ(Convert(half, 8, k16f, out, PixelBytes(c.to), c.to, 1, 2, c.flip), 0);
    EXPECT_EQ(Download(out, 2 * PixelBytes(c.to)), GPUBytes(c.expected, c.to)) << "flip " << c.flip;
  }
}

// Refused formats and pairs, and pitches shorter than the rows they hold (a 4:2:0 source's pitch is its
// luma pitch), each with its code. Every call converts 4 x 2 pixels within 256-byte buffers.
TEST_P(PixelFormatConvert, RefusedPairsGiveTheirCodes) {
  void* a = Allocate(256);
  void* b = Allocate(256);
  const LM::PixelFormat planar = zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601;
  const struct {
    LM::PixelFormat from, to;
    int fromRowBytes, toRowBytes, expected;
  } cases[] = {
      {zmt::kPixelFormat_Invalid, k32f, 64, 64, LM::kResultFailed},
      {k32f, LM::PixelFormat{0, 0x000C0000u}, 64, 64, LM::kResultFailed},
      {LM::PixelFormat{0, k32f.properties | (3u << 14)}, k32f, 64, 64, LM::kResultFailed},
      {k32f, LM::PixelFormat{0, k32f.properties | (15u << 14)}, 64, 64, LM::kResultFailed},
      {zmt::kPixelFormat_BGRA_4444_8u, zmt::kPixelFormat_VUYA_4444_8u, 64, 64, LM::kResultUnsupported},
      {zmt::kPixelFormat_UYVY_422_8u, zmt::kPixelFormat_V210_422_10u, 64, 64, LM::kResultUnsupported},
      {planar, zmt::kPixelFormat_BGRA_4444_8u, 64, 64, LM::kResultUnsupported},
      {k32f, planar, 64, 64, LM::kResultUnsupported},
      {planar, k32f, 8, 64, LM::kResultSuccess},
      {planar, k32f, 3, 64, LM::kResultFailed},
      {k32f, zmt::kPixelFormat_UYVY_422_8u, 64, 4, LM::kResultFailed},
      {zmt::kPixelFormat_V210_422_10u, k32f, 128, 48, LM::kResultFailed}};
  for (const auto& c : cases) {
    EXPECT_EQ(Convert(a, c.fromRowBytes, c.from, b, c.toRowBytes, c.to, 4, 2), c.expected)
        << std::hex << c.from.properties << " to " << c.to.properties << std::dec << ", row bytes "
        << c.fromRowBytes << " and " << c.toRowBytes;
  }
}

LM_ON_EVERY_DEVICE(PixelFormatConvert);

}  // namespace
