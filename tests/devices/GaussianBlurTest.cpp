// The Gaussian blur on every device and on both kernel paths (the recursive one and the one of AMD OpenCL
// devices, each forced through the internal entry point): its impulse response against a true Gaussian, its
// unit gain, directions, centring, precisions, the agreement of the paths, in place, and bad sigmas and
// pitches.
#include <random>

#include "EveryDevice.h"
#include "ImageProcessing/GaussianBlur.h"
#include "Lumora/Results.h"

namespace {

using Path = LM::GaussianBlurPath;
const LM::PixelFormat k32f = LM::kPixelFormat_GPU_BGRA_4444_32f, k16f = LM::kPixelFormat_GPU_BGRA_4444_16f;
const Path kPaths[] = {Path::kRecursive, Path::kAMD};

std::string Name(Path path) {
  return path == Path::kAMD ? "AMD path" : "recursive path";
}
Picture Constant(int width, int height, const Pixel& value) {
  return {width, height, std::vector<Pixel>(std::size_t(width) * height, value)};
}
Picture Random(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> value(0.0f, 1.0f);
  Picture p{width, height, {}};
  for (int i = 0; i < width * height; ++i)
    p.pixels.push_back({value(random), value(random), value(random), value(random)});
  return p;
}

class GaussianBlur : public EveryDevice {
 protected:
  // Blurs `picture` into a width x height destination on `path` (in place when width is 0); the result, or
  // an empty picture when the call fails (the failure is reported).
  Picture Blur(const Picture& picture, int width, int height, float sigmaX, float sigmaY, bool extend,
               SK_BlurDirection direction, Path path, LM::PixelFormat format = k32f) {
    void* source = UploadPixels(picture.pixels, format);
    const bool inPlace = width == 0;
    if (inPlace) width = picture.width, height = picture.height;
    void* destination = inPlace ? source : Allocate(std::size_t(width) * height * PixelBytes(format));
    const int result = LM::GaussianBlurOnPath(
        device_, source, picture.width * PixelBytes(format), picture.width, picture.height, destination,
        width * PixelBytes(format), width, height, format, sigmaX, sigmaY, extend, direction, path);
    EXPECT_EQ(result, LM::kResultSuccess);
    if (result != LM::kResultSuccess) return {0, 0, {}};
    return {width, height, DownloadPixels(destination, std::size_t(width) * height, format)};
  }
};

// The impulse response sums to 1 within 1e-3, and the Gaussian that fits it best in least squares (centre
// fixed, amplitude and sigma free) has a sigma within 3 % of the one asked for.
TEST_P(GaussianBlur, TheImpulseResponseIsANormalisedGaussianWithUnitGain) {
  for (const Path path : kPaths) {
    for (const float sigma : {2.0f, 4.0f, 8.0f, 16.0f, 32.0f, 64.0f}) {
      SCOPED_TRACE(Name(path) + ", sigma " + std::to_string(sigma));
      const int width = int(24 * sigma) + 1, centre = width / 2;
      Picture impulse = Constant(width, 1, {0, 0, 0, 0});
      impulse.pixels[centre] = {1, 1, 1, 1};
      const Picture response = Blur(impulse, width, 1, sigma, 0, false, kBlurDirection_Horizontal, path);
      ASSERT_EQ(response.pixels.size(), std::size_t(width));
      double sum = 0;
      for (const Pixel& p : response.pixels) sum += p.x;
      EXPECT_NEAR(sum, 1.0, 1e-3);
      // For a trial sigma the best amplitude is <r, g> / <g, g>; the residual is minimised over sigma.
      const auto residual = [&](double s) {
        double rg = 0, gg = 0, rr = 0;
        for (int x = 0; x < width; ++x) {
          const double g = std::exp(-0.5 * (x - centre) * (x - centre) / (s * s)), r = response.pixels[x].x;
          rg += r * g;
          gg += g * g;
          rr += r * r;
        }
        return rr - rg * rg / gg;
      };
      double lo = 0.5 * sigma, hi = 2.0 * sigma;
      for (int i = 0; i < 100; ++i) {
        const double m1 = lo + (hi - lo) / 3, m2 = hi - (hi - lo) / 3;
        (residual(m1) < residual(m2) ? hi : lo) = residual(m1) < residual(m2) ? m2 : m1;
      }
      EXPECT_NEAR(0.5 * (lo + hi) / sigma, 1.0, 0.03);
      // With extended edges a constant row or column stays constant: to 1e-5 up to sigma 16 and 4e-5 beyond,
      // where the single-precision recursion drifts.
      for (const bool vertical : {false, true}) {
        const Picture line = Constant(vertical ? 1 : width, vertical ? width : 1, {0.3f, 0.5f, 0.7f, 1.0f});
        const SK_BlurDirection direction = vertical ? kBlurDirection_Vertical : kBlurDirection_Horizontal;
        EXPECT_TRUE(
            PixelsNear(Blur(line, line.width, line.height, sigma, sigma, true, direction, path).pixels,
                       line.pixels, sigma <= 16 ? 1e-5 : 4e-5))
            << (vertical ? "column" : "row");
      }
    }
  }
}

// A pass blurs along its own direction only: rows that repeat each other stay the same under a vertical pass,
// columns that repeat each other under a horizontal one.
TEST_P(GaussianBlur, APassChangesItsOwnDirectionOnly) {
  const int width = 40, height = 30;
  const Picture stripes = Random(width, 1, 3), bands = Random(1, height, 4);
  Picture rowsAlike{width, height, {}}, columnsAlike{width, height, {}};
  for (int i = 0; i < width * height; ++i) {
    rowsAlike.pixels.push_back(stripes.pixels[i % width]);
    columnsAlike.pixels.push_back(bands.pixels[i / width]);
  }
  for (const Path path : kPaths) {
    SCOPED_TRACE(Name(path));
    EXPECT_TRUE(PixelsNear(Blur(rowsAlike, width, height, 0, 5, true, kBlurDirection_Vertical, path).pixels,
                           rowsAlike.pixels, 1e-5));
    EXPECT_TRUE(
        PixelsNear(Blur(columnsAlike, width, height, 5, 0, true, kBlurDirection_Horizontal, path).pixels,
                   columnsAlike.pixels, 1e-5));
    EXPECT_FALSE(
        PixelsNear(Blur(rowsAlike, width, height, 5, 0, true, kBlurDirection_Horizontal, path).pixels,
                   rowsAlike.pixels, 1e-2));
  }
}

// With no pass to run the source is copied centred: a larger destination is transparent black around it, a
// smaller one a centred crop. A 16f image offset by an odd number of pixels lands exactly.
TEST_P(GaussianBlur, WithoutAPassTheSourceIsCopiedCentred) {
  const Picture source = Random(6, 4, 7);
  for (const LM::PixelFormat format : {k32f, k16f}) {
    const Picture stored = {6, 4, Stored(source.pixels, format)};
    std::vector<Pixel> larger, smaller;
    for (int i = 0; i < 64; ++i) {
      const int x = i % 8, y = i / 8;
      larger.push_back(x >= 1 && x < 7 && y >= 2 && y < 6 ? stored.at(x - 1, y - 2) : Pixel{0, 0, 0, 0});
    }
    for (int i = 0; i < 8; ++i) smaller.push_back(stored.at(i % 4 + 1, i / 4 + 1));
    EXPECT_TRUE(
        PixelsNear(Blur(source, 8, 8, 0, 3, false, kBlurDirection_Horizontal, Path::kByDevice, format).pixels,
                   larger, 0.0));
    EXPECT_TRUE(PixelsNear(
        Blur(source, 4, 2, 0, 0, false, kBlurDirection_Both, Path::kByDevice, format).pixels, smaller, 0.0));
  }
}

// The two paths agree within 1e-4 on 32f, both directions, both edge rules, at the same size, cropped and
// padded; 16f agrees with 32f within half precision. Blurring in place (the destination is the source) gives
// what blurring into another buffer gives, in every direction.
TEST_P(GaussianBlur, PathsPrecisionsAndPlacesAgree) {
  const Picture source = Random(48, 36, 9);
  const struct { int width, height; } sizes[] = {{48, 36}, {30, 20}, {64, 50}};
  for (const auto& size : sizes) {
    for (const bool extend : {false, true}) {
      SCOPED_TRACE(std::to_string(size.width) + " x " + std::to_string(size.height) +
                   (extend ? ", extended" : ", zero"));
      const Picture recursive =
          Blur(source, size.width, size.height, 3.5f, 2.0f, extend, kBlurDirection_Both, Path::kRecursive);
      EXPECT_TRUE(PixelsNear(
          Blur(source, size.width, size.height, 3.5f, 2.0f, extend, kBlurDirection_Both, Path::kAMD).pixels,
          recursive.pixels, 1e-4));
      for (const Path path : kPaths) {
        const Picture half =
            Blur(source, size.width, size.height, 3.5f, 2.0f, extend, kBlurDirection_Both, path, k16f);
        EXPECT_TRUE(PixelsNear(half.pixels, recursive.pixels, 2e-3, true)) << Name(path);
      }
    }
  }
  for (const Path path : kPaths) {
    for (const SK_BlurDirection direction :
         {kBlurDirection_Horizontal, kBlurDirection_Vertical, kBlurDirection_Both}) {
      EXPECT_TRUE(PixelsNear(Blur(source, 0, 0, 2.5f, 3.0f, true, direction, path).pixels,
                             Blur(source, 48, 36, 2.5f, 3.0f, true, direction, path).pixels, 0.0))
          << Name(path) << ", in place, direction " << int(direction);
    }
  }
}

// Bad sigmas and pitches give their documented results: NaN and negative sigmas run nothing (a copy);
// infinite and huge ones are taken as 1024, and nothing comes out NaN; a pitch shorter than a row is refused.
TEST_P(GaussianBlur, BadSigmasAndPitches) {
  const Picture source = Random(32, 8, 11);
  void* buffer = UploadPixels(source.pixels, k32f);
  void* out = Allocate(32 * 8 * 16);
  for (const Path path : kPaths) {
    SCOPED_TRACE(Name(path));
    EXPECT_TRUE(PixelsNear(Blur(source, 32, 8, std::nanf(""), -2, true, kBlurDirection_Both, path).pixels,
                           source.pixels, 0.0));
    for (const float huge : {INFINITY, 1e6f}) {
      for (const Pixel& p : Blur(source, 32, 8, huge, huge, true, kBlurDirection_Both, path).pixels)
        ASSERT_TRUE(std::isfinite(p.x) && std::isfinite(p.w)) << huge;
    }
    EXPECT_EQ(LM::GaussianBlurOnPath(device_, buffer, 16 * 16, 32, 8, out, 32 * 16, 32, 8, k32f, 2, 2, false,
                                     kBlurDirection_Both, path),
              LM::kResultFailed);
  }
}

LM_ON_EVERY_DEVICE(GaussianBlur);

}  // namespace
