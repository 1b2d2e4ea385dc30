// Pixel format conversion on every device: round trips through every four-component host format, colour
// bars to their published codes, the conversion between GPU formats, the flip, the copy of a format to
// itself, and the pairs that are refused.
#include <zelmediatypes/PixelFormatTable.h>
#include <zelmediatypes/PixelFormats.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "EveryDevice.h"
#include "Half.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "SK/Renderer.h"

namespace {

namespace zmt = zelmediatypes;
using Pixel = LM::float4;

bool IsHalf(LM::PixelFormat format) {
  return format == LM::kPixelFormat_GPU_BGRA_4444_16f || format == LM::kPixelFormat_GPU_BGRX_4444_16f;
}

Bytes GPUBytes(const std::vector<Pixel>& pixels, LM::PixelFormat format) {
  Bytes bytes;
  for (const Pixel& p : pixels) {
    for (float c : {p.x, p.y, p.z, p.w}) {
      if (IsHalf(format)) {
        const std::uint16_t h = ToHalf(c);
        bytes.insert(bytes.end(), reinterpret_cast<const std::uint8_t*>(&h),
                     reinterpret_cast<const std::uint8_t*>(&h) + 2);
      } else {
        bytes.insert(bytes.end(), reinterpret_cast<const std::uint8_t*>(&c),
                     reinterpret_cast<const std::uint8_t*>(&c) + 4);
      }
    }
  }
  return bytes;
}

std::vector<Pixel> GPUPixels(const Bytes& bytes, LM::PixelFormat format) {
  std::vector<Pixel> pixels;
  const std::size_t size = IsHalf(format) ? 8 : 16;
  for (std::size_t at = 0; at + size <= bytes.size(); at += size) {
    float c[4];
    for (int i = 0; i < 4; ++i) {
      if (IsHalf(format)) {
        std::uint16_t h;
        std::memcpy(&h, &bytes[at + 2 * i], 2);
        c[i] = FromHalf(h);
      } else {
        std::memcpy(&c[i], &bytes[at + 4 * i], 4);
      }
    }
    pixels.push_back({c[0], c[1], c[2], c[3]});
  }
  return pixels;
}

class PixelFormatConvert : public EveryDevice {
 protected:
  int Convert(const void* src, int srcRowBytes, LM::PixelFormat srcFormat, void* dst, int dstRowBytes,
              LM::PixelFormat dstFormat, int width, int height, bool flip = false) {
    return LM::PixelFormatConvert(device_, src, srcRowBytes, srcFormat, dst, dstRowBytes, dstFormat, width,
                                  height, flip);
  }
};

// Premultiplied colours, opaque and half transparent, inside the gamut of every matrix.
const std::vector<Pixel> kColours = {{0.2f, 0.5f, 0.8f, 1.0f},   {1.0f, 1.0f, 1.0f, 1.0f},
                                     {0.0f, 0.0f, 0.0f, 1.0f},   {0.1f, 0.25f, 0.4f, 0.5f},
                                     {0.45f, 0.3f, 0.05f, 0.5f}, {0.6f, 0.6f, 0.6f, 0.75f}};

bool IsYCbCr(LM::PixelFormat host) {
  return (host.properties & zmt::kPixelFormatPropertyMask_Order) == zmt::kPixelFormatOrder_VUYA ||
         (host.properties & zmt::kPixelFormatPropertyMask_Layout) != zmt::kPixelFormatLayout_4444;
}
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
    colour = IsYCbCr(host) ? 0.5 / 219 + chroma * 0.5 / 224 : 0.5 / 255;
    alpha = 0.5 / 255;
  } else if (sample == zmt::kPixelFormatSample_10u) {
    colour = 0.5 / 876 + chroma * 0.5 / 896;
  } else if (sample == zmt::kPixelFormatSample_15u) {
    colour = alpha = 0.5 / 32768;
  } else {
    colour = (host.properties & zmt::kPixelFormatProperty_Linear) ? 2e-4 : 2e-6;  // the sRGB curve's pow
  }
  return colour + (straight ? alpha : 0.0) + (IsHalf(gpu) ? std::ldexp(1.0, -11) : 0.0) + 1e-6;
}

// GPU -> X -> GPU for every host format X that the converter writes, into and from both precisions. Formats
// without alpha come back opaque with the colour over black. The 4:2:2 formats get a chroma-flat row (one
// Cb, Cr and varied Y' by their own matrix), which their chroma filters keep, of an odd width: the last
// pair is written whole and its second pixel ignored on the way back.
TEST_P(PixelFormatConvert, EveryHostFormatRoundTrips) {
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  int formats = 0;
  for (LM::PixelFormat gpu : {LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRA_4444_32f}) {
    for (std::size_t i = 0; i < count; ++i) {
      const LM::PixelFormat host = table[i].format;
      const std::uint32_t layout = host.properties & zmt::kPixelFormatPropertyMask_Layout;
      if (layout == zmt::kPixelFormatLayout_420Planar || host == zmt::kPixelFormat_BGRA_4444_32f ||
          (host.properties & zmt::kPixelFormatPropertyMask_Order) == 0) {
        continue;
      }
      std::vector<Pixel> pixels = kColours;
      if (layout == zmt::kPixelFormatLayout_422Packed) {
        pixels.clear();
        for (double y : {0.3, 0.5, 0.7, 0.25, 0.6, 0.45, 0.75})
          pixels.push_back(FromYCbCr(y, 0.1, -0.1, host));
      }
      const int width = static_cast<int>(pixels.size()), gpuRow = width * (IsHalf(gpu) ? 8 : 16);
      void* source = Upload(GPUBytes(pixels, gpu));
      void* back = Allocate(gpuRow);
      const int hostRow = static_cast<int>(zmt::PixelFormatSize(host, width, 1));
      void* middle = Allocate(hostRow);
      ASSERT_EQ(Convert(source, gpuRow, gpu, middle, hostRow, host, width, 1), 0) << table[i].name;
      ASSERT_EQ(Convert(middle, hostRow, host, back, gpuRow, gpu, width, 1), 0) << table[i].name;
      ++formats;
      const std::vector<Pixel> seen = GPUPixels(Download(back, gpuRow), gpu);
      const bool opaque =
          (host.properties & zmt::kPixelFormatPropertyMask_Alpha) == zmt::kPixelFormatAlpha_Ignored;
      const double tolerance = Tolerance(host, gpu);
      for (int x = 0; x < width; ++x) {
        const Pixel& want = pixels[x];
        const float got[4] = {seen[x].x, seen[x].y, seen[x].z, seen[x].w};
        const float expected[4] = {want.x, want.y, want.z, opaque ? 1.0f : want.w};
        for (int c = 0; c < 4; ++c) {
          EXPECT_NEAR(got[c], expected[c], tolerance) << table[i].name << " pixel " << x << " channel " << c;
        }
      }
    }
  }
  EXPECT_EQ(formats, 2 * (35 + 6));
}

// A row's samples in memory order: bytes, or v210's 10-bit codes three to a word.
std::vector<int> Samples(const Bytes& row, LM::PixelFormat format) {
  std::vector<int> samples;
  if ((format.properties & zmt::kPixelFormatPropertyMask_Sample) != zmt::kPixelFormatSample_10u) {
    return std::vector<int>(row.begin(), row.end());
  }
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
  const LM::PixelFormat gpu = LM::kPixelFormat_GPU_BGRA_4444_32f;
  std::mt19937 random(7);
  std::vector<Pixel> pixels;
  for (int i = 0; i < width * height; ++i) {
    const float a = std::uniform_real_distribution<float>(0.25f, 1.0f)(random);
    std::uniform_real_distribution<float> colour(0.0f, a);
    pixels.push_back({colour(random), colour(random), colour(random), a});
  }
  const Bytes gpuBytes = GPUBytes(pixels, gpu);
  void* gpuSource = Upload(gpuBytes);
  void* gpuResult = Allocate(gpuBytes.size());
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
      ASSERT_EQ(Convert(gpuSource, width * 16, gpu, written, hostRow, host, width, height), 0);
      Bytes expected(hostBytes, 0);
      ASSERT_TRUE(SK_ScaleConvert(gpuBytes.data(), width * 16, width, height, gpu,
                                  zmt::kFieldType_Progressive, expected.data(), hostRow, width, height, host,
                                  zmt::kFieldType_Progressive, zmt::kRenderQuality_High));
      Bytes seen = Download(written, hostBytes);
      const std::vector<int> got = Samples(seen, host), want = Samples(expected, host);
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
    void* source = Upload(codes);
    ASSERT_EQ(Convert(source, hostRow, host, gpuResult, width * 16, gpu, width, height), 0);
    Bytes expected(gpuBytes.size());
    ASSERT_TRUE(SK_ScaleConvert(codes.data(), packed ? hostRow : 0, width, height, host,
                                zmt::kFieldType_Progressive, expected.data(), width * 16, width, height, gpu,
                                zmt::kFieldType_Progressive, zmt::kRenderQuality_High));
    const std::vector<Pixel> got = GPUPixels(Download(gpuResult, gpuBytes.size()), gpu);
    const std::vector<Pixel> want = GPUPixels(expected, gpu);
    for (std::size_t k = 0; k < want.size(); ++k) {
      const float g[4] = {got[k].x, got[k].y, got[k].z, got[k].w},
                  w[4] = {want[k].x, want[k].y, want[k].z, want[k].w};
      for (int c = 0; c < 4; ++c) ASSERT_NEAR(g[c], w[c], 1e-5) << "pixel " << k << " channel " << c;
    }
  }
  EXPECT_EQ(formats, 6 + 16);
}

// 100% and 75% colour bars in 8-bit video-range Y'CbCr: the codes ITU-R BT.601 and BT.709 publish.
TEST_P(PixelFormatConvert, ColourBarsGiveTheirPublishedCodes) {
  // White, yellow, cyan, green, magenta, red, blue, black as R'G'B'.
  const double bars[8][3] = {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0},
                             {1, 0, 1}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}};
  const struct {
    LM::PixelFormat format;
    double level;
    int codes[8][3];  // Y', Cb, Cr
  } cases[] = {
      {zmt::kPixelFormat_VUYA_4444_8u,
       1.0,
       {{235, 128, 128},
        {210, 16, 146},
        {170, 166, 16},
        {145, 54, 34},
        {106, 202, 222},
        {81, 90, 240},
        {41, 240, 110},
        {16, 128, 128}}},
      {zmt::kPixelFormat_VUYA_4444_8u,
       0.75,
       {{180, 128, 128},
        {162, 44, 142},
        {131, 156, 44},
        {112, 72, 58},
        {84, 184, 198},
        {65, 100, 212},
        {35, 212, 114},
        {16, 128, 128}}},
      {zmt::kPixelFormat_VUYA_4444_8u_709,
       1.0,
       {{235, 128, 128},
        {219, 16, 138},
        {188, 154, 16},
        {173, 42, 26},
        {78, 214, 230},
        {63, 102, 240},
        {32, 240, 118},
        {16, 128, 128}}},
      {zmt::kPixelFormat_VUYA_4444_8u_709,
       0.75,
       {{180, 128, 128},
        {168, 44, 136},
        {145, 147, 44},
        {133, 63, 52},
        {63, 193, 204},
        {51, 109, 212},
        {28, 212, 120},
        {16, 128, 128}}},
  };
  for (const auto& c : cases) {
    std::vector<Pixel> pixels;
    for (const auto& bar : bars) {
      pixels.push_back({static_cast<float>(bar[2] * c.level), static_cast<float>(bar[1] * c.level),
                        static_cast<float>(bar[0] * c.level), 1.0f});
    }
    void* source = Upload(GPUBytes(pixels, LM::kPixelFormat_GPU_BGRA_4444_32f));
    void* codes = Allocate(8 * 4);
    ASSERT_EQ(Convert(source, 8 * 16, LM::kPixelFormat_GPU_BGRA_4444_32f, codes, 8 * 4, c.format, 8, 1), 0);
    const Bytes seen = Download(codes, 8 * 4);
    for (int i = 0; i < 8; ++i) {
      EXPECT_EQ((std::vector<int>{seen[4 * i + 2], seen[4 * i + 1], seen[4 * i + 0], seen[4 * i + 3]}),
                (std::vector<int>{c.codes[i][0], c.codes[i][1], c.codes[i][2], 255}))
          << zmt::PixelFormatName(c.format) << " at " << c.level << ", bar " << i;
    }
  }
}

// Between GPU formats one kernel moves the values; the flip reads the source bottom row first; a format
// converted to itself is copied, whatever the flip.
TEST_P(PixelFormatConvert, GPUFormatsFlipsAndCopies) {
  const std::vector<Pixel> rows = {{0.5f, 0.25f, 0.125f, 1.0f}, {-2.0f, 65504.0f, 0.0f, 0.5f}};
  void* half = Upload(GPUBytes(rows, LM::kPixelFormat_GPU_BGRA_4444_16f));
  void* full = Allocate(32);
  ASSERT_EQ(Convert(half, 8, LM::kPixelFormat_GPU_BGRA_4444_16f, full, 16, LM::kPixelFormat_GPU_BGRX_4444_32f,
                    1, 2),
            0);
  EXPECT_EQ(Download(full, 32), GPUBytes(rows, LM::kPixelFormat_GPU_BGRX_4444_32f));

  ASSERT_EQ(Convert(half, 8, LM::kPixelFormat_GPU_BGRA_4444_16f, full, 16, LM::kPixelFormat_GPU_BGRA_4444_32f,
                    1, 2, true),
            0);
  EXPECT_EQ(Download(full, 32), GPUBytes({rows[1], rows[0]}, LM::kPixelFormat_GPU_BGRA_4444_32f));

  void* copy = Allocate(16);
  ASSERT_EQ(Convert(half, 8, LM::kPixelFormat_GPU_BGRA_4444_16f, copy, 8, LM::kPixelFormat_GPU_BGRA_4444_16f,
                    1, 2, true),
            0);
  EXPECT_EQ(Download(copy, 16), GPUBytes(rows, LM::kPixelFormat_GPU_BGRA_4444_16f)) << "copied, not flipped";
}

TEST_P(PixelFormatConvert, RefusedPairsGiveTheirCodes) {
  void* a = Allocate(256);
  void* b = Allocate(256);
  const LM::PixelFormat gpu = LM::kPixelFormat_GPU_BGRA_4444_32f;
  const struct {
    LM::PixelFormat from, to;
    int expected;
  } cases[] = {{zmt::kPixelFormat_Invalid, gpu, LM::kResultFailed},
               {gpu, LM::PixelFormat{0, 0x000C0000u}, LM::kResultFailed},
               {LM::PixelFormat{0, gpu.properties | (3u << 14)}, gpu, LM::kResultFailed},
               {gpu, LM::PixelFormat{0, gpu.properties | (15u << 14)}, LM::kResultFailed},
               {zmt::kPixelFormat_BGRA_4444_8u, zmt::kPixelFormat_VUYA_4444_8u, LM::kResultUnsupported},
               {gpu, zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, LM::kResultUnsupported}};
  for (const auto& c : cases) {
    EXPECT_EQ(Convert(a, 64, c.from, b, 64, c.to, 2, 2), c.expected)
        << std::hex << c.from.properties << " to " << c.to.properties;
  }
}

LM_ON_EVERY_DEVICE(PixelFormatConvert);

}  // namespace
