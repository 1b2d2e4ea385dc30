// Pixel format conversion on every device: round trips through every four-component host format, colour
// bars to their published codes, the conversion between GPU formats, the flip, the copy of a format to
// itself, and the pairs that are refused.
#include <zelmediatypes/PixelFormatTable.h>
#include <zelmediatypes/PixelFormats.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "EveryDevice.h"
#include "Half.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"

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

// The largest error of a channel after one round trip, from half a code step of each stored component
// carried through the matrix back to R'G'B': for Y'CbCr, R' = Y' + 2 (1 - Kr) Cr, B' = Y' + 2 (1 - Kb) Cb,
// G' = Y' - 2 Kb (1 - Kb) / Kg Cb - 2 Kr (1 - Kr) / Kg Cr, so the worst channel gathers half a Y' step and
// the largest |coefficient| of each chroma times half a C step. A straight format stores c / a and a, each
// within its step: c'a' - ca is within a dc + c' da, at most the colour step plus the alpha step. A 16f GPU
// side adds half an ulp of a half near 1.
double Tolerance(LM::PixelFormat host, LM::PixelFormat gpu) {
  const std::uint32_t sample = host.properties & zmt::kPixelFormatPropertyMask_Sample;
  const bool yuv = (host.properties & zmt::kPixelFormatPropertyMask_Order) == zmt::kPixelFormatOrder_VUYA;
  const bool straight =
      (host.properties & zmt::kPixelFormatPropertyMask_Alpha) == zmt::kPixelFormatAlpha_Straight;
  const double kr = zmt::IsBT709(host) ? 0.2126 : 0.299, kb = zmt::IsBT709(host) ? 0.0722 : 0.114;
  const double kg = 1.0 - kr - kb;
  const double chroma =
      std::max({2 * (1 - kr), 2 * (1 - kb), 2 * kb * (1 - kb) / kg + 2 * kr * (1 - kr) / kg});
  double colour = 0, alpha = 0;
  if (sample == zmt::kPixelFormatSample_8u) {
    colour = yuv ? 0.5 / 219 + chroma * 0.5 / 224 : 0.5 / 255;
    alpha = 0.5 / 255;
  } else if (sample == zmt::kPixelFormatSample_15u) {
    colour = alpha = 0.5 / 32768;
  } else {
    colour = (host.properties & zmt::kPixelFormatProperty_Linear) ? 2e-4 : 2e-6;  // the sRGB curve's pow
  }
  return colour + (straight ? alpha : 0.0) + (IsHalf(gpu) ? std::ldexp(1.0, -11) : 0.0) + 1e-6;
}

// GPU -> X -> GPU for every four-component host format X of the converter, into and from both precisions.
// Formats without alpha come back opaque with the colour over black.
TEST_P(PixelFormatConvert, EveryFourComponentFormatRoundTrips) {
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  const int width = static_cast<int>(kColours.size());
  int formats = 0;
  for (LM::PixelFormat gpu : {LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRA_4444_32f}) {
    const int gpuRow = width * (IsHalf(gpu) ? 8 : 16);
    void* source = Upload(GPUBytes(kColours, gpu));
    void* back = Allocate(gpuRow);
    for (std::size_t i = 0; i < count; ++i) {
      const LM::PixelFormat host = table[i].format;
      if ((host.properties & zmt::kPixelFormatPropertyMask_Layout) != zmt::kPixelFormatLayout_4444 ||
          host == zmt::kPixelFormat_BGRA_4444_32f ||
          (host.properties & zmt::kPixelFormatPropertyMask_Order) == 0) {
        continue;
      }
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
        const Pixel& want = kColours[x];
        const float got[4] = {seen[x].x, seen[x].y, seen[x].z, seen[x].w};
        const float expected[4] = {want.x, want.y, want.z, opaque ? 1.0f : want.w};
        for (int c = 0; c < 4; ++c) {
          EXPECT_NEAR(got[c], expected[c], tolerance) << table[i].name << " pixel " << x << " channel " << c;
        }
      }
    }
  }
  EXPECT_EQ(formats, 2 * 35);
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
