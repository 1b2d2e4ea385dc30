// Field operations and geometry on every device, in 32f, against expectations computed here: field swap and
// weave, the deinterlace modes on an interlaced moving edge, affine placements of a checkerboard and a ramp,
// the scale qualities on a zone plate, and the frame forms.
#include "EveryDevice.h"
#include "Lumora/FrameOperations.h"
#include "Lumora/Results.h"
#include "Lumora/VideoFrames.h"

namespace {

const LM::PixelFormat k32f = LM::kPixelFormat_GPU_BGRA_4444_32f;

// A grey picture whose pixel (x, y) is f(x, y).
template <class F>
Picture Grey(int width, int height, F f) {
  Picture picture{width, height, {}};
  for (int i = 0; i < width * height; ++i) {
    const float v = f(i % width, i / width);
    picture.pixels.push_back({v, v, v, 1.0f});
  }
  return picture;
}

class Geometry : public EveryDevice {
 protected:
  void* Up(const Picture& picture) { return UploadPixels(picture.pixels, k32f); }
  Picture Down(const void* block, int width, int height) {
    return {width, height, DownloadPixels(block, std::size_t(width) * height, k32f)};
  }
};

// Field reverse swaps rows 2k and 2k + 1 (an odd last row stays), also in place; the weave takes the rows of
// the first field's parity from the first image.
TEST_P(Geometry, FieldsSwapAndWeave) {
  const Picture rows = Grey(5, 7, [](int x, int y) { return float(10 * y + x); });
  void* source = Up(rows);
  void* out = Allocate(5 * 7 * 16);
  ASSERT_EQ(LM::FieldReverse(device_, source, 80, out, 80, k32f, 5, 7), 0);
  ASSERT_EQ(LM::FieldReverse(device_, source, 80, source, 80, k32f, 5, 7), 0);
  for (void* result : {out, source}) {
    const Picture swapped = Down(result, 5, 7);
    for (int y = 0; y < 7; ++y)
      EXPECT_EQ(swapped.at(2, y).x, rows.at(2, y == 6 ? 6 : y ^ 1).x) << "row " << y;
  }
  const Picture other = Grey(5, 7, [](int, int y) { return float(-y); });
  void* woven = Allocate(5 * 7 * 16);
  ASSERT_EQ(LM::InterlaceFields(device_, Up(rows), 80, Up(other), 80, woven, 80, k32f, 5, 7, 1), 0);
  const Picture weave = Down(woven, 5, 7);
  for (int y = 0; y < 7; ++y) EXPECT_EQ(weave.at(0, y).x, (y % 2 == 1 ? rows : other).at(0, y).x) << y;
}

// An interlaced frame of an edge moving right: the even rows show it at x > y (one instant), the odd rows
// further on (the next). Keeping the even field, every mode copies the kept rows and rebuilds the others from
// them alone; along the 45-degree edge the edge-directed mode finds the edge exactly, where linear
// interpolation leaves a half value.
TEST_P(Geometry, DeinterlaceModesRebuildTheMissingField) {
  const int w = 24, h = 16;
  const Picture frame = Grey(w, h, [](int x, int y) { return float(x > y + (y % 2 == 0 ? 0 : 6)); });
  void* source = Up(frame);
  void* out = Allocate(std::size_t(w) * h * 16);
  for (const LM::DeinterlaceMode mode :
       {LM::kDeinterlace_LineDoubling, LM::kDeinterlace_Linear, LM::kDeinterlace_EdgeDirected}) {
    ASSERT_EQ(LM::Deinterlace(device_, source, w * 16, out, w * 16, k32f, w, h, 0, mode), 0);
    const Picture result = Down(out, w, h);
    for (int y = 0; y < h; ++y) {
      for (int x = 2; x < w - 2; ++x) {
        const float above = frame.at(x, std::max(0, y - 1 - (y == 0))).x;
        float want = frame.at(x, y).x;
        if (y % 2 == 1) {
          const float below = frame.at(x, std::min(h - 2, y + 1)).x;
          want = mode == LM::kDeinterlace_LineDoubling ? frame.at(x, y - 1).x
                 : y + 1 >= h                          ? above
                 : mode == LM::kDeinterlace_Linear     ? 0.5f * (above + below)
                                                       : float(x > y);
        }
        ASSERT_EQ(result.at(x, y).x, want) << "mode " << mode << " at " << x << ", " << y;
      }
    }
  }
  EXPECT_EQ(LM::Deinterlace(device_, source, w * 16, out, w * 16, k32f, w, h, 2, LM::kDeinterlace_Linear),
            LM::kResultFailed);
}

// Placements of an 8-pixel checkerboard: the identity and quarter turns about the centre copy exactly, in
// both qualities; a scale by 2 and back by 0.5 returns within the filters' tolerance; a half-pixel shift of a
// ramp gives its midpoints; a tiny but finite scale reads nothing: transparent black, no NaN.
TEST_P(Geometry, AffinePlacementsOfACheckerboardAndARamp) {
  const int n = 32;
  const Picture board = Grey(n, n, [](int x, int y) { return float(((x / 8) + (y / 8)) % 2); });
  void* source = Up(board);
  void* out = Allocate(std::size_t(n) * n * 16);
  void* large = Allocate(std::size_t(2 * n) * 2 * n * 16);
  for (const auto quality : {zelmediatypes::kRenderQuality_Medium, zelmediatypes::kRenderQuality_High}) {
    // From a from x from (or from x 1) picture into a to x to (or to x 1) one.
    const auto place = [&](const void* src, int from, void* dst, int to, const LM::MotionTransform& t,
                           bool row = false) {
      return LM::Motion(device_, src, from * 16, from, row ? 1 : from, dst, to * 16, to, row ? 1 : to, k32f,
                        t, quality);
    };
    for (const float degrees : {0.0f, 90.0f, 180.0f, 270.0f, -90.0f}) {
      LM::MotionTransform t;
      t.anchorX = t.anchorY = t.positionX = t.positionY = n / 2.0f;
      t.rotationDegrees = degrees;
      ASSERT_EQ(place(source, n, out, n, t), 0);
      const Picture turned = Down(out, n, n);
      // Destination pixel centre D maps to source A + R(-degrees) (D - P).
      const double r = -degrees * 3.14159265358979 / 180;
      for (int y = 0; y < n; ++y) {
        for (int x = 0; x < n; ++x) {
          const double dx = x + 0.5 - n / 2.0, dy = y + 0.5 - n / 2.0;
          const int sx = int(std::floor(n / 2.0 + std::cos(r) * dx - std::sin(r) * dy + 1e-9));
          const int sy = int(std::floor(n / 2.0 + std::sin(r) * dx + std::cos(r) * dy + 1e-9));
          ASSERT_EQ(turned.at(x, y).x, board.at(sx, sy).x) << degrees << " degrees at " << x << ", " << y;
        }
      }
    }
    LM::MotionTransform up, down;
    up.scaleX = up.scaleY = 2;
    down.scaleX = down.scaleY = 0.5f;
    ASSERT_EQ(place(source, n, large, 2 * n, up), 0);
    ASSERT_EQ(place(large, 2 * n, out, n, down), 0);
    const Picture back = Down(out, n, n);
    // Away from the transparent border and the squares' edges, the checkerboard returns.
    double largest = 0;
    for (int y = 2; y < n - 2; ++y) {
      for (int x = 2; x < n - 2; ++x) {
        if (x % 8 != 0 && x % 8 != 7 && y % 8 != 0 && y % 8 != 7)
          largest = std::max(largest, double(std::fabs(back.at(x, y).x - board.at(x, y).x)));
      }
    }
    EXPECT_LT(largest, 0.05) << "quality " << quality;

    LM::MotionTransform half;
    half.positionX = 0.5f;
    ASSERT_EQ(place(Up(Grey(n, 1, [](int x, int) { return float(x); })), n, out, n, half, true), 0);
    const Picture shifted = Down(out, n, 1);
    for (int x = 2; x < n - 2; ++x) EXPECT_NEAR(shifted.at(x, 0).x, x - 0.5f, 1e-4) << "quality " << quality;
  }
  LM::MotionTransform tiny;
  tiny.scaleX = tiny.scaleY = 1e-30f;
  ASSERT_EQ(LM::Motion(device_, source, n * 16, n, n, out, n * 16, n, n, k32f, tiny,
                       zelmediatypes::kRenderQuality_High),
            0);
  EXPECT_TRUE(
      PixelsNear(DownloadPixels(out, n * n, k32f), std::vector<Pixel>(n * n, Pixel{0, 0, 0, 0}), 0.0));
}

// A zone plate (local frequency rising with the radius) scaled down by 2.84: the high quality leaves less
// energy where the frequency is above the output's Nyquist limit (aliasing) than the medium one, and keeps
// the amplitude where it is below 0.4 of that limit within 1 dB.
TEST_P(Geometry, HighQualityScalingAliasesLessAndKeepsThePassband) {
  const int n = 256, half = 90;
  const double ratio = double(n) / half, k = 0.5 / 181.0;  // k: cycles per pixel per pixel of radius
  const auto zone = [k](double x, double y) {
    return 0.5 + 0.5 * std::cos(3.14159265358979 * k * (x * x + y * y));
  };
  void* source = Up(Grey(n, n, [&](int x, int y) { return float(zone(x + 0.5, y + 0.5)); }));
  void* out = Allocate(std::size_t(half) * half * 16);
  double aliasing[2] = {}, passband[2] = {}, ideal = 0;
  for (const int high : {0, 1}) {
    ASSERT_EQ(LM::Scale(device_, source, n * 16, n, n, out, half * 16, half, half, k32f,
                        high ? zelmediatypes::kRenderQuality_High : zelmediatypes::kRenderQuality_Medium),
              0);
    const Picture result = Down(out, half, half);
    for (int y = 0; y < half; ++y) {
      for (int x = 0; x < half; ++x) {
        const double cx = (x + 0.5) * ratio, cy = (y + 0.5) * ratio, frequency = k * std::hypot(cx, cy);
        const double v = result.at(x, y).x - 0.5;
        if (frequency > 0.5 / ratio * 1.2) aliasing[high] += v * v;
        if (frequency < 0.4 * 0.5 / ratio && x > 1 && y > 1) {
          passband[high] += v * v;
          if (!high) ideal += (zone(cx, cy) - 0.5) * (zone(cx, cy) - 0.5);
        }
      }
    }
  }
  EXPECT_LT(aliasing[1], 0.5 * aliasing[0]) << aliasing[1] << " against " << aliasing[0];
  EXPECT_LT(std::fabs(10 * std::log10(passband[1] / ideal)), 1.0)
      << 10 * std::log10(passband[1] / ideal) << " dB";
}

// The frame forms check their frames and weave, deinterlace, composite and unpremultiply through the raw
// operations.
TEST_P(Geometry, FrameFormsCheckTheirFrames) {
  using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;
  const auto make = [&](int w, int h, zelmediatypes::FieldType field, const Picture* content,
                        LM::PixelFormat format = k32f) {
    Frame frame;
    EXPECT_EQ(LM::CreateGPUVideoFrame(frame, device_, format, w, h, {1, 1}, field, {}), 0);
    void* memory = OXR::Query<LM::IGPUVideoFrameMemoryAccess>(frame)->GetBaseAddress();
    if (content != nullptr) {
      EXPECT_EQ(LM::FastDeviceMemcpy2D(device_, Up(*content), w * 16, memory, w * 16, k32f, w, h), 0);
    }
    return frame;
  };
  const auto pixels = [&](const Frame& frame) {
    return Down(OXR::Query<LM::IGPUVideoFrameMemoryAccess>(frame)->GetBaseAddress(), 6, 4);
  };
  const Picture a = Grey(6, 4, [](int x, int) { return float(x); }),
                b = Grey(6, 4, [](int, int y) { return float(-y); });
  const Frame first = make(6, 4, zelmediatypes::kFieldType_Progressive, &a);
  const Frame second = make(6, 4, zelmediatypes::kFieldType_Progressive, &b);
  const Frame woven = make(6, 4, zelmediatypes::kFieldType_LowerFirst, nullptr);
  ASSERT_EQ(LM::InterlaceFrames(woven, first, second), 0);
  const Picture weave = pixels(woven);
  for (int y = 0; y < 4; ++y) EXPECT_EQ(weave.at(3, y).x, (y % 2 == 1 ? a : b).at(3, y).x) << y;
  const Frame rebuilt = make(6, 4, zelmediatypes::kFieldType_Progressive, nullptr);
  EXPECT_EQ(LM::DeinterlaceFrame(rebuilt, woven, LM::kDeinterlace_LineDoubling), 0);
  EXPECT_EQ(pixels(rebuilt).at(3, 2).x, a.at(3, 1).x) << "the odd (first) field kept";
  EXPECT_EQ(LM::Composite(rebuilt, first, second, 1.0f, kBlendMode_Normal), 0);
  EXPECT_EQ(LM::UnpremultiplyFrame(rebuilt, first, {0, 0, 0, 0}), 0);

  const Frame small = make(3, 4, zelmediatypes::kFieldType_Progressive, nullptr);
  const Frame half =
      make(6, 4, zelmediatypes::kFieldType_Progressive, nullptr, LM::kPixelFormat_GPU_BGRA_4444_16f);
  EXPECT_EQ(LM::InterlaceFrames(woven, first, small), LM::kResultFailed) << "sizes differ";
  EXPECT_EQ(LM::Composite(rebuilt, first, half, 0.5f, kBlendMode_Normal), LM::kResultFailed)
      << "formats differ";
  EXPECT_EQ(LM::UnpremultiplyFrame(rebuilt, Frame(), {0, 0, 0, 0}), LM::kResultFailed) << "no frame";
}

LM_ON_EVERY_DEVICE(Geometry);

}  // namespace
