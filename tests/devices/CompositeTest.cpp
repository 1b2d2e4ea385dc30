// Compositing and the per-pixel operations on every device, in both precisions: every blend mode against a
// model of its formula computed here in double precision, Dissolve's pattern, finiteness over extreme
// inputs, compositing in place, and the end points and shortcuts of the point operations.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "EveryDevice.h"
#include "GPUPixels.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "zelmediatypes/PixelFormats.h"

namespace {

using Pixel = LM::float4;

const LM::PixelFormat kPrecisions[] = {LM::kPixelFormat_GPU_BGRA_4444_16f,
                                       LM::kPixelFormat_GPU_BGRA_4444_32f};

// ---- The model: docs/blend-modes.md, in double precision
// ------------------------------------------------------

struct Colour {
  double b, g, r;
};

double Unit(double v) {
  return std::clamp(v, 0.0, 1.0);
}

double Separable(int mode, double cb, double cs) {
  const auto dodge = [](double b, double s) {
    return b == 0 ? 0.0 : s >= 1 ? 1.0 : std::min(1.0, b / (1 - s));
  };
  const auto burn = [](double b, double s) {
    return b == 1 ? 1.0 : s <= 0 ? 0.0 : 1 - std::min(1.0, (1 - b) / s);
  };
  const auto screen = [](double b, double s) { return b + s - b * s; };
  const auto hardLight = [&](double b, double s) { return s <= 0.5 ? b * 2 * s : screen(b, 2 * s - 1); };
  switch (mode) {
    case kBlendMode_ColorBurn:
      return burn(cb, cs);
    case kBlendMode_ColorDodge:
      return dodge(cb, cs);
    case kBlendMode_Darken:
      return std::min(cb, cs);
    case kBlendMode_Difference:
      return std::fabs(cb - cs);
    case kBlendMode_Exclusion:
      return cb + cs - 2 * cb * cs;
    case kBlendMode_HardLight:
      return hardLight(cb, cs);
    case kBlendMode_HardMix:
      return cb + cs >= 1 ? 1.0 : 0.0;
    case kBlendMode_Lighten:
      return std::max(cb, cs);
    case kBlendMode_LinearBurn:
      return Unit(cb + cs - 1);
    case kBlendMode_LinearDodgeAdd:
      return Unit(cb + cs);
    case kBlendMode_LinearLight:
      return Unit(cb + 2 * cs - 1);
    case kBlendMode_Multiply:
      return cb * cs;
    case kBlendMode_Overlay:
      return hardLight(cs, cb);
    case kBlendMode_PinLight:
      return cs <= 0.5 ? std::min(cb, 2 * cs) : std::max(cb, 2 * cs - 1);
    case kBlendMode_Screen:
      return screen(cb, cs);
    case kBlendMode_SoftLight: {
      const double d = cb <= 0.25 ? ((16 * cb - 12) * cb + 4) * cb : std::sqrt(cb);
      return cs <= 0.5 ? cb - (1 - 2 * cs) * cb * (1 - cb) : cb + (2 * cs - 1) * (d - cb);
    }
    case kBlendMode_VividLight:
      return cs <= 0.5 ? burn(cb, 2 * cs) : dodge(cb, 2 * cs - 1);
    case kBlendMode_Subtract:
      return Unit(cb - cs);
    case kBlendMode_Divide:
      return cs == 0 ? (cb > 0 ? 1.0 : 0.0) : Unit(cb / cs);
    default:
      return cs;  // Normal, Dissolve
  }
}

double Lum(const Colour& c) {
  return 0.3 * c.r + 0.59 * c.g + 0.11 * c.b;
}
Colour ClipColor(Colour c) {
  const double l = Lum(c), n = std::min({c.r, c.g, c.b}), x = std::max({c.r, c.g, c.b});
  const auto towards = [&](double k) { c = {l + (c.b - l) * k, l + (c.g - l) * k, l + (c.r - l) * k}; };
  if (n < 0 && l - n > 0) towards(l / (l - n));
  if (x > 1 && x - l > 0) towards((1 - l) / (x - l));
  return c;
}
Colour SetLum(const Colour& c, double l) {
  const double d = l - Lum(c);
  return ClipColor({c.b + d, c.g + d, c.r + d});
}
double Sat(const Colour& c) {
  return std::max({c.r, c.g, c.b}) - std::min({c.r, c.g, c.b});
}
Colour SetSat(const Colour& c, double s) {
  const double n = std::min({c.r, c.g, c.b}), range = std::max({c.r, c.g, c.b}) - n;
  if (range <= 0) return {0, 0, 0};
  return {(c.b - n) / range * s, (c.g - n) / range * s, (c.r - n) / range * s};
}

Colour Blend(int mode, Colour cb, Colour cs) {
  const auto clamp = [](const Colour& c) { return Colour{Unit(c.b), Unit(c.g), Unit(c.r)}; };
  switch (mode) {
    case kBlendMode_Hue:
      return SetLum(SetSat(clamp(cs), Sat(clamp(cb))), Lum(clamp(cb)));
    case kBlendMode_Saturation:
      return SetLum(SetSat(clamp(cb), Sat(clamp(cs))), Lum(clamp(cb)));
    case kBlendMode_Color:
      return SetLum(clamp(cs), Lum(clamp(cb)));
    case kBlendMode_Luminosity:
      return SetLum(clamp(cb), Lum(clamp(cs)));
    case kBlendMode_DarkerColor:
      return Lum(cs) < Lum(cb) ? cs : cb;
    case kBlendMode_LighterColor:
      return Lum(cs) > Lum(cb) ? cs : cb;
    default:
      return {Separable(mode, cb.b, cs.b), Separable(mode, cb.g, cs.g), Separable(mode, cb.r, cs.r)};
  }
}

// The layer over the background, premultiplied in and out; `coverage` replaces the layer's share for
// Dissolve.
Pixel Composite(int mode, const Pixel& layer, const Pixel& background, double opacity, double coverage = -1) {
  const double al = Unit(layer.w), ab = Unit(background.w);
  const auto straight = [](const Pixel& p, double a) {
    return a > 0 ? Colour{p.x / a, p.y / a, p.z / a} : Colour{0, 0, 0};
  };
  const Colour cs = straight(layer, al), cb = straight(background, ab), blended = Blend(mode, cb, cs);
  const double as = coverage >= 0 ? coverage : al * Unit(opacity);
  const auto channel = [&](double s, double b, double m) {
    return as * ((1 - ab) * s + ab * m) + (1 - as) * ab * b;
  };
  return {float(channel(cs.b, cb.b, blended.b)), float(channel(cs.g, cb.g, blended.g)),
          float(channel(cs.r, cb.r, blended.r)), float(as + ab * (1 - as))};
}

// The hash that picks Dissolve's pixels: the same bits as the kernels'.
std::uint32_t PcgHash(std::uint32_t v) {
  const std::uint32_t state = v * 747796405u + 2891336453u;
  const std::uint32_t word = ((state >> ((state >> 28u) + 4u)) ^ state) * 277803737u;
  return (word >> 22u) ^ word;
}
bool DissolveTakesLayer(int x, int y, float share) {
  return float(PcgHash(std::uint32_t(x) ^ PcgHash(std::uint32_t(y))) >> 8) * (1.0f / 16777216.0f) < share;
}

class Compositing : public EveryDevice {
 protected:
  void* UploadPixels(const std::vector<Pixel>& pixels, LM::PixelFormat format) {
    return Upload(GPUBytes(pixels, format));
  }
  std::vector<Pixel> DownloadPixels(const void* block, std::size_t count, LM::PixelFormat format) {
    return GPUPixels(Download(block, count * (IsHalfFormat(format) ? 8 : 16)), format);
  }
};

// The pixels as a format stores them: halves round the inputs too.
std::vector<Pixel> Stored(const std::vector<Pixel>& pixels, LM::PixelFormat format) {
  return GPUPixels(GPUBytes(pixels, format), format);
}

// Every pair of channel values from {0, 0.25, 0.5, 0.75, 1, 1.5} (a super-white among them) in each
// channel, under every pair of alphas from {0, 0.5, 1}; all exact in binary, so the thresholds of the modes
// fall where the model puts them. Red and blue walk the pairs in opposite orders.
TEST_P(Compositing, EveryModeMatchesItsFormula) {
  const double values[] = {0, 0.25, 0.5, 0.75, 1, 1.5}, alphas[] = {0, 0.5, 1};
  std::vector<Pixel> layers, backgrounds;
  for (double al : alphas) {
    for (double ab : alphas) {
      for (int pair = 0; pair < 36; ++pair) {
        const double s = values[pair % 6], b = values[pair / 6], g = values[(pair * 5) % 6];
        layers.push_back({float(b * al), float(g * al), float(s * al), float(al)});
        backgrounds.push_back({float(s * ab), float(values[(pair + 3) % 6] * ab), float(b * ab), float(ab)});
      }
    }
  }
  const int width = static_cast<int>(layers.size());
  for (const LM::PixelFormat format : kPrecisions) {
    const int rowBytes = width * (IsHalfFormat(format) ? 8 : 16);
    const std::vector<Pixel> layer = Stored(layers, format), background = Stored(backgrounds, format);
    void* l = UploadPixels(layer, format);
    void* b = UploadPixels(background, format);
    void* out = Allocate(rowBytes);
    for (int mode = 0; mode <= kBlendMode_Divide; ++mode) {
      if (mode == kBlendMode_Dissolve) continue;  // its own test
      ASSERT_EQ(LM::Composite(device_, l, rowBytes, b, rowBytes, out, rowBytes, format, width, 1, 0.75f,
                              SK_BlendMode(mode)),
                LM::kResultSuccess);
      const std::vector<Pixel> seen = DownloadPixels(out, width, format);
      for (int x = 0; x < width; ++x) {
        const Pixel want = Composite(mode, layer[x], background[x], 0.75);
        const float got[4] = {seen[x].x, seen[x].y, seen[x].z, seen[x].w},
                    w[4] = {want.x, want.y, want.z, want.w};
        for (int c = 0; c < 4; ++c) {
          const double tolerance =
              (IsHalfFormat(format) ? 1.0 / 1024 : 1e-5) * std::max(1.0, double(std::fabs(w[c])));
          ASSERT_NEAR(got[c], w[c], tolerance) << "mode " << mode << ", pixel " << x << ", channel " << c
                                               << ", " << (IsHalfFormat(format) ? "16f" : "32f");
        }
      }
    }
  }
}

// Dissolve takes the layer, opaque, exactly where the hash of the pixel's coordinates falls below the layer's
// alpha times the opacity: the same pixels on every device, about that share of them.
TEST_P(Compositing, DissolvePicksAStableShareOfPixels) {
  const int size = 256;
  const LM::PixelFormat format = LM::kPixelFormat_GPU_BGRA_4444_32f;
  const Pixel red = {0, 0, 0.5f, 0.5f}, blue = {1, 0, 0, 1};
  void* layer = UploadPixels(std::vector<Pixel>(size * size, red), format);
  void* background = UploadPixels(std::vector<Pixel>(size * size, blue), format);
  void* out = Allocate(std::size_t(size) * size * 16);
  const float opacity = 0.6f, share = 0.5f * opacity;
  ASSERT_EQ(LM::Composite(device_, layer, size * 16, background, size * 16, out, size * 16, format, size,
                          size, opacity, kBlendMode_Dissolve),
            LM::kResultSuccess);
  const std::vector<Pixel> seen = DownloadPixels(out, std::size_t(size) * size, format);
  int taken = 0;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const bool layerPixel = DissolveTakesLayer(x, y, share);
      const Pixel want = layerPixel ? Pixel{0, 0, 1, 1} : blue;
      taken += layerPixel;
      const Pixel& got = seen[std::size_t(y) * size + x];
      ASSERT_TRUE(got.x == want.x && got.y == want.y && got.z == want.z && got.w == want.w) << x << ", " << y;
    }
  }
  EXPECT_NEAR(double(taken) / (size * size), share, 0.02);
}

// Extreme but finite inputs, in every mode: colours up to the half range, both signs, tiny and zero, with
// alphas anywhere from -1 to 2. Nothing comes out NaN or infinite; halves saturate.
TEST_P(Compositing, ExtremeInputsGiveFiniteResults) {
  const int width = 1000, height = 1000;
  std::mt19937 random(5);
  const float specials[] = {0.0f, -0.0f, 1e-30f, -1e-30f, 1e-7f, 1.0f, 65504.0f, -65504.0f, 0.5f, 2.0f};
  const auto value = [&](float range) {
    return random() % 4 == 0 ? specials[random() % 10]
                             : std::uniform_real_distribution<float>(-range, range)(random);
  };
  std::vector<Pixel> a, b;
  for (int i = 0; i < width * height; ++i) {
    a.push_back({value(65504), value(65504), value(65504), value(2)});
    b.push_back({value(65504), value(65504), value(65504), value(2)});
  }
  for (const LM::PixelFormat format : kPrecisions) {
    const int rowBytes = width * (IsHalfFormat(format) ? 8 : 16);
    void* layer = UploadPixels(a, format);
    void* background = UploadPixels(b, format);
    void* out = Allocate(std::size_t(rowBytes) * height);
    for (int mode = 0; mode <= kBlendMode_Divide; ++mode) {
      ASSERT_EQ(LM::Composite(device_, layer, rowBytes, background, rowBytes, out, rowBytes, format, width,
                              height, 0.5f, SK_BlendMode(mode)),
                LM::kResultSuccess);
      const std::vector<Pixel> seen = DownloadPixels(out, std::size_t(width) * height, format);
      for (std::size_t i = 0; i < seen.size(); ++i) {
        ASSERT_TRUE(std::isfinite(seen[i].x) && std::isfinite(seen[i].y) && std::isfinite(seen[i].z) &&
                    std::isfinite(seen[i].w))
            << "mode " << mode << ", pixel " << i << (IsHalfFormat(format) ? ", 16f" : ", 32f");
      }
    }
  }
}

// Hosts composite in place: out may be the layer or the background. BGRX formats read and write alpha 1.
TEST_P(Compositing, InPlaceAndWithoutAlpha) {
  const std::vector<Pixel> layer = {{0.25f, 0.5f, 0.75f, 0.5f}, {0.5f, 0.5f, 0.5f, 1.0f}};
  const std::vector<Pixel> background = {{0.5f, 0.25f, 0.0f, 1.0f}, {1.0f, 0.0f, 0.5f, 0.5f}};
  for (const LM::PixelFormat format : kPrecisions) {
    const int rowBytes = 2 * (IsHalfFormat(format) ? 8 : 16);
    for (const bool intoLayer : {true, false}) {
      void* l = UploadPixels(layer, format);
      void* b = UploadPixels(background, format);
      void* out = intoLayer ? l : b;
      ASSERT_EQ(LM::Composite(device_, l, rowBytes, b, rowBytes, out, rowBytes, format, 2, 1, 0.5f,
                              kBlendMode_Multiply),
                LM::kResultSuccess);
      const std::vector<Pixel> seen = DownloadPixels(out, 2, format);
      for (int x = 0; x < 2; ++x) {
        EXPECT_NEAR(seen[x].z, Composite(kBlendMode_Multiply, layer[x], background[x], 0.5).z, 1e-3) << x;
      }
    }
    const LM::PixelFormat opaque =
        IsHalfFormat(format) ? LM::kPixelFormat_GPU_BGRX_4444_16f : LM::kPixelFormat_GPU_BGRX_4444_32f;
    void* l = UploadPixels(layer, opaque);
    void* b = UploadPixels(background, opaque);
    ASSERT_EQ(
        LM::Composite(device_, l, rowBytes, b, rowBytes, b, rowBytes, opaque, 2, 1, 0.5f, kBlendMode_Normal),
        LM::kResultSuccess);
    const std::vector<Pixel> seen = DownloadPixels(b, 2, opaque);
    for (int x = 0; x < 2; ++x) {
      Pixel l1 = layer[x], b1 = background[x];
      l1.w = b1.w = 1.0f;
      const Pixel want = Composite(kBlendMode_Normal, l1, b1, 0.5);
      EXPECT_NEAR(seen[x].x, want.x, 1e-3) << x;
      EXPECT_EQ(seen[x].w, 1.0f) << x;
    }
  }
}

// CrossDissolve's end points and same-buffer rule, Accumulate's groups and offset, AlphaGain's clear and
// Unpremultiply's colour for alpha 0, in both precisions, with dst aliasing a source where hosts do.
TEST_P(Compositing, PointOperations) {
  for (const LM::PixelFormat format : kPrecisions) {
    const int size = IsHalfFormat(format) ? 8 : 16, width = 4, rowBytes = width * size;
    SCOPED_TRACE(IsHalfFormat(format) ? "16f" : "32f");
    const std::vector<Pixel> a = {{1, 0, 0.5f, 1}, {0, 0.25f, 0, 0.5f}, {0.5f, 0.5f, 0.5f, 0}, {2, 1, 0, 1}};
    const std::vector<Pixel> b = {{0, 1, 0.5f, 0}, {1, 0.75f, 1, 1}, {0.25f, 0, 1, 1}, {0, 0, 0, 0}};
    const auto expectSeen = [&](const std::vector<Pixel>& seen, const std::vector<Pixel>& want) {
      for (std::size_t i = 0; i < want.size(); ++i) {
        const float g[4] = {seen[i].x, seen[i].y, seen[i].z, seen[i].w};
        const float w[4] = {want[i].x, want[i].y, want[i].z, want[i].w};
        for (int c = 0; c < 4; ++c) {
          EXPECT_NEAR(g[c], w[c], 2e-3 * std::max(1.0f, std::fabs(w[c])))
              << "pixel " << i << ", channel " << c;
        }
      }
    };
    const auto expectPixels = [&](const void* block, const std::vector<Pixel>& want) {
      expectSeen(DownloadPixels(block, want.size(), format), want);
    };
    const auto mix = [](const std::vector<Pixel>& p, double wp, const std::vector<Pixel>& q, double wq) {
      std::vector<Pixel> r;
      for (std::size_t i = 0; i < p.size(); ++i) {
        r.push_back({float(p[i].x * wp + q[i].x * wq), float(p[i].y * wp + q[i].y * wq),
                     float(p[i].z * wp + q[i].z * wq), float(p[i].w * wp + q[i].w * wq)});
      }
      return r;
    };
    void* in = UploadPixels(a, format);
    void* outgoing = UploadPixels(b, format);
    void* dst = Allocate(rowBytes);
    ASSERT_EQ(LM::CrossDissolve(device_, in, rowBytes, outgoing, rowBytes, dst, rowBytes, format, width, 1,
                                0.0f, false),
              0);
    expectPixels(dst, b);
    ASSERT_EQ(LM::CrossDissolve(device_, in, rowBytes, outgoing, rowBytes, dst, rowBytes, format, width, 1,
                                1.0f, false),
              0);
    expectPixels(dst, a);
    ASSERT_EQ(
        LM::CrossDissolve(device_, in, rowBytes, in, rowBytes, dst, rowBytes, format, width, 1, 0.5f, false),
        0);
    expectPixels(dst, a);
    ASSERT_EQ(LM::CrossDissolve(device_, in, rowBytes, outgoing, rowBytes, dst, rowBytes, format, width, 1,
                                0.25f, false),
              0);
    expectPixels(dst, mix(b, 0.75, a, 0.25));
    const double eased = 0.25 * 0.25 * (3 - 2 * 0.25);
    ASSERT_EQ(LM::CrossDissolve(device_, in, rowBytes, outgoing, rowBytes, outgoing, rowBytes, format, width,
                                1, 0.25f, true),
              0);
    expectPixels(outgoing, mix(b, 1 - eased, a, eased));

    // Nine sources: a launch of eight writes, one of one adds. The sums start one 16-byte unit in.
    std::vector<const void*> sources;
    std::vector<float> weights;
    std::vector<Pixel> padded = a;
    padded.insert(padded.begin(), 16 / size, Pixel{9, 9, 9, 9});
    std::vector<Pixel> want(a.size(), Pixel{0, 0, 0, 0});
    for (int i = 0; i < 9; ++i) {
      sources.push_back(UploadPixels(padded, format));
      weights.push_back(0.125f * float(i + 1));
      want = mix(want, 1.0, a, weights.back());
    }
    void* sum = UploadPixels(std::vector<Pixel>(padded.size(), Pixel{7, 7, 7, 7}), format);
    ASSERT_EQ(
        LM::Accumulate(device_, sources.data(), weights.data(), 9, sum, rowBytes + 16, 16, format, width, 1),
        0);
    const std::vector<Pixel> summed = DownloadPixels(sum, padded.size(), format);
    EXPECT_EQ(summed[0].x, 7.0f) << "the pixels before the offset are left alone";
    expectSeen(std::vector<Pixel>(summed.begin() + 16 / size, summed.end()), want);

    void* gained = UploadPixels(a, format);
    ASSERT_EQ(LM::AlphaGain(device_, gained, rowBytes, gained, rowBytes, format, width, 1, 0.5f), 0);
    expectPixels(gained, mix(a, 0.5, a, 0.0));
    ASSERT_EQ(LM::AlphaGain(device_, gained, rowBytes, gained, rowBytes, format, width, 1, 0.0f), 0);
    expectPixels(gained, std::vector<Pixel>(width, Pixel{0, 0, 0, 0}));

    const LM::float4 colour = {0.1f, 0.2f, 0.3f, 0.0f};
    void* straight = UploadPixels(a, format);
    ASSERT_EQ(LM::Unpremultiply(device_, straight, rowBytes, straight, rowBytes, format, width, 1, colour),
              0);
    expectPixels(straight, {{1, 0, 0.5f, 1}, {0, 0.5f, 0, 0.5f}, colour, {2, 1, 0, 1}});
  }
}

// Bad calls get their codes and touch nothing: a missing buffer, an extent longer than a buffer (64 MiB, more
// than any block the pool holds), a format that is not a GPU format, a mode out of range, a missing source
// or a negative offset.
TEST_P(Compositing, BadCallsGetTheirCodes) {
  const LM::PixelFormat f = LM::kPixelFormat_GPU_BGRA_4444_32f;
  void* a = Allocate(4 * 16);
  void* b = Allocate(4 * 16);
  const int wide = 1 << 22, wideBytes = wide * 16;
  const void* sources[2] = {a, nullptr};
  const float weights[2] = {1, 1};
  const struct {
    const char* what;
    int result, expected;
  } cases[] = {
      {"no layer", LM::Composite(device_, nullptr, 64, b, 64, b, 64, f, 4, 1, 0.5f, kBlendMode_Screen),
       LM::kResultFailed},
      {"long extent",
       LM::Composite(device_, a, wideBytes, b, wideBytes, b, wideBytes, f, wide, 1, 0.5f, kBlendMode_Screen),
       LM::kResultFailed},
      {"host format",
       LM::Composite(device_, a, 64, b, 64, b, 64, zelmediatypes::kPixelFormat_BGRA_4444_32f, 4, 1, 0.5f,
                     kBlendMode_Screen),
       LM::kResultUnsupported},
      {"mode -1", LM::Composite(device_, a, 64, b, 64, b, 64, f, 4, 1, 0.5f, SK_BlendMode(-1)),
       LM::kResultUnsupported},
      {"long dissolve",
       LM::CrossDissolve(device_, a, wideBytes, b, wideBytes, b, wideBytes, f, wide, 1, 0.5f, false),
       LM::kResultFailed},
      {"missing source", LM::Accumulate(device_, sources, weights, 2, b, 64, 0, f, 4, 1), LM::kResultFailed},
      {"negative offset", LM::Accumulate(device_, sources, weights, 1, b, 64, -16, f, 4, 1),
       LM::kResultFailed},
      {"long gain", LM::AlphaGain(device_, a, wideBytes, b, wideBytes, f, wide, 1, 0.5f), LM::kResultFailed},
      {"no unpremultiply source", LM::Unpremultiply(device_, nullptr, 64, b, 64, f, 4, 1, {0, 0, 0, 0}),
       LM::kResultFailed},
  };
  for (const auto& c : cases) EXPECT_EQ(c.result, c.expected) << c.what;
}

LM_ON_EVERY_DEVICE(Compositing);

}  // namespace
