// Compositing and the per-pixel operations on every device: every blend mode against a model of its formula
// (docs/blend-modes.md) computed here in double precision, in every GPU format and in place, Dissolve's
// pattern, finiteness over extreme inputs, and the end points and shortcuts of the point operations.
#include <random>

#include "EveryDevice.h"
#include "Lumora/Results.h"

namespace {

const LM::PixelFormat k16f = LM::kPixelFormat_GPU_BGRA_4444_16f, k32f = LM::kPixelFormat_GPU_BGRA_4444_32f;

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
  if (mode == kBlendMode_ColorBurn) return burn(cb, cs);
  if (mode == kBlendMode_ColorDodge) return dodge(cb, cs);
  if (mode == kBlendMode_Darken) return std::min(cb, cs);
  if (mode == kBlendMode_Difference) return std::fabs(cb - cs);
  if (mode == kBlendMode_Exclusion) return cb + cs - 2 * cb * cs;
  if (mode == kBlendMode_HardLight) return hardLight(cb, cs);
  if (mode == kBlendMode_HardMix) return cb + cs >= 1 ? 1.0 : 0.0;
  if (mode == kBlendMode_Lighten) return std::max(cb, cs);
  if (mode == kBlendMode_LinearBurn) return Unit(cb + cs - 1);
  if (mode == kBlendMode_LinearDodgeAdd) return Unit(cb + cs);
  if (mode == kBlendMode_LinearLight) return Unit(cb + 2 * cs - 1);
  if (mode == kBlendMode_Multiply) return cb * cs;
  if (mode == kBlendMode_Overlay) return hardLight(cs, cb);
  if (mode == kBlendMode_PinLight) return cs <= 0.5 ? std::min(cb, 2 * cs) : std::max(cb, 2 * cs - 1);
  if (mode == kBlendMode_Screen) return screen(cb, cs);
  if (mode == kBlendMode_SoftLight) {
    const double d = cb <= 0.25 ? ((16 * cb - 12) * cb + 4) * cb : std::sqrt(cb);
    return cs <= 0.5 ? cb - (1 - 2 * cs) * cb * (1 - cb) : cb + (2 * cs - 1) * (d - cb);
  }
  if (mode == kBlendMode_VividLight) return cs <= 0.5 ? burn(cb, 2 * cs) : dodge(cb, 2 * cs - 1);
  if (mode == kBlendMode_Subtract) return Unit(cb - cs);
  if (mode == kBlendMode_Divide) return cs == 0 ? (cb > 0 ? 1.0 : 0.0) : Unit(cb / cs);
  return cs;  // Normal, Dissolve
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

Colour Blend(int mode, const Colour& cb, const Colour& cs) {
  const auto unit = [](const Colour& c) { return Colour{Unit(c.b), Unit(c.g), Unit(c.r)}; };
  if (mode == kBlendMode_Hue) return SetLum(SetSat(unit(cs), Sat(unit(cb))), Lum(unit(cb)));
  if (mode == kBlendMode_Saturation) return SetLum(SetSat(unit(cb), Sat(unit(cs))), Lum(unit(cb)));
  if (mode == kBlendMode_Color) return SetLum(unit(cs), Lum(unit(cb)));
  if (mode == kBlendMode_Luminosity) return SetLum(unit(cb), Lum(unit(cs)));
  if (mode == kBlendMode_DarkerColor) return Lum(cs) < Lum(cb) ? cs : cb;
  if (mode == kBlendMode_LighterColor) return Lum(cs) > Lum(cb) ? cs : cb;
  return {Separable(mode, cb.b, cs.b), Separable(mode, cb.g, cs.g), Separable(mode, cb.r, cs.r)};
}

// The layer over the background, premultiplied in and out.
Pixel Composite(int mode, const Pixel& layer, const Pixel& background, double opacity) {
  const double al = Unit(layer.w), ab = Unit(background.w);
  const auto straight = [](const Pixel& p, double a) {
    return a > 0 ? Colour{p.x / a, p.y / a, p.z / a} : Colour{0, 0, 0};
  };
  const Colour cs = straight(layer, al), cb = straight(background, ab), blended = Blend(mode, cb, cs);
  const double as = al * Unit(opacity);
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

class Compositing : public EveryDevice {};

// Every pair of channel values from {0, 0.25, 0.5, 0.75, 1, 1.5} (a super-white among them) in each
// channel, under every pair of alphas from {0, 0.5, 1}; all exact in binary, so the thresholds of the modes
// fall where the model puts them. Red and blue walk the pairs in opposite orders. BGRX formats read alpha as
// 1 and write 1. Hosts composite in place, so the output is in turn a buffer of its own, the layer and the
// background.
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
  for (const LM::PixelFormat format :
       {k16f, k32f, LM::kPixelFormat_GPU_BGRX_4444_16f, LM::kPixelFormat_GPU_BGRX_4444_32f}) {
    const int rowBytes = width * PixelBytes(format);
    const bool opaque = format != k16f && format != k32f;
    const std::vector<Pixel> layer = Stored(layers, format), background = Stored(backgrounds, format);
    for (int mode = 0; mode <= kBlendMode_Divide; ++mode) {
      if (mode == kBlendMode_Dissolve) continue;  // its own test
      SCOPED_TRACE("mode " + std::to_string(mode) + (IsHalfFormat(format) ? ", 16f" : ", 32f") +
                   (opaque ? " BGRX" : "") + ", output " + std::to_string(mode % 3));
      void* l = UploadPixels(layer, format);
      void* b = UploadPixels(background, format);
      void* out = mode % 3 == 0 ? Allocate(rowBytes) : mode % 3 == 1 ? l : b;
      ASSERT_EQ(LM::Composite(device_, l, rowBytes, b, rowBytes, out, rowBytes, format, width, 1, 0.75f,
                              SK_BlendMode(mode)),
                LM::kResultSuccess);
      std::vector<Pixel> want;
      for (int x = 0; x < width; ++x) {
        Pixel lx = layer[x], bx = background[x];
        if (opaque) lx.w = bx.w = 1.0f;
        want.push_back(Composite(mode, lx, bx, 0.75));
      }
      const std::vector<Pixel> seen = DownloadPixels(out, width, format);
      ASSERT_TRUE(PixelsNear(seen, want, IsHalfFormat(format) ? 1.0 / 1024 : 1e-5, true));
      for (int x = 0; x < width && opaque; ++x) ASSERT_EQ(seen[x].w, 1.0f) << "pixel " << x;
    }
  }
}

// Dissolve takes the layer, opaque, exactly where the hash of the pixel's coordinates falls below the layer's
// alpha times the opacity: the same pixels on every device, about that share of them.
TEST_P(Compositing, DissolvePicksAStableShareOfPixels) {
  const int size = 256;
  const Pixel red = {0, 0, 0.5f, 0.5f}, blue = {1, 0, 0, 1};
  void* layer = UploadPixels(std::vector<Pixel>(size * size, red), k32f);
  void* background = UploadPixels(std::vector<Pixel>(size * size, blue), k32f);
  void* out = Allocate(std::size_t(size) * size * 16);
  const float opacity = 0.6f, share = 0.5f * opacity;
  ASSERT_EQ(LM::Composite(device_, layer, size * 16, background, size * 16, out, size * 16, k32f, size, size,
                          opacity, kBlendMode_Dissolve),
            LM::kResultSuccess);
  std::vector<Pixel> want;
  int taken = 0;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const bool fromLayer =
          float(PcgHash(std::uint32_t(x) ^ PcgHash(std::uint32_t(y))) >> 8) / 16777216.0f < share;
      taken += fromLayer;
      want.push_back(fromLayer ? Pixel{0, 0, 1, 1} : blue);
    }
  }
  EXPECT_TRUE(PixelsNear(DownloadPixels(out, want.size(), k32f), want, 0.0));
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
  for (const LM::PixelFormat format : {k16f, k32f}) {
    const int rowBytes = width * PixelBytes(format);
    void* layer = UploadPixels(a, format);
    void* background = UploadPixels(b, format);
    void* out = Allocate(std::size_t(rowBytes) * height);
    for (int mode = 0; mode <= kBlendMode_Divide; ++mode) {
      ASSERT_EQ(LM::Composite(device_, layer, rowBytes, background, rowBytes, out, rowBytes, format, width,
                              height, 0.5f, SK_BlendMode(mode)),
                LM::kResultSuccess);
      const std::vector<Pixel> seen = DownloadPixels(out, a.size(), format);
      for (std::size_t i = 0; i < seen.size(); ++i) {
        ASSERT_TRUE(std::isfinite(seen[i].x) && std::isfinite(seen[i].y) && std::isfinite(seen[i].z) &&
                    std::isfinite(seen[i].w))
            << "mode " << mode << ", pixel " << i << (IsHalfFormat(format) ? ", 16f" : ", 32f");
      }
    }
  }
}

// CrossDissolve's end points and same-buffer rule, Accumulate's groups and offset, AlphaGain's clear and
// Unpremultiply's colour for alpha 0, in both precisions, with dst aliasing a source where hosts do.
TEST_P(Compositing, PointOperations) {
  for (const LM::PixelFormat format : {k16f, k32f}) {
    const int size = PixelBytes(format), width = 4, rowBytes = width * size;
    SCOPED_TRACE(IsHalfFormat(format) ? "16f" : "32f");
    const std::vector<Pixel> a = {{1, 0, 0.5f, 1}, {0, 0.25f, 0, 0.5f}, {0.5f, 0.5f, 0.5f, 0}, {2, 1, 0, 1}};
    const std::vector<Pixel> b = {{0, 1, 0.5f, 0}, {1, 0.75f, 1, 1}, {0.25f, 0, 1, 1}, {0, 0, 0, 0}};
    const auto near = [&](const std::vector<Pixel>& seen, const std::vector<Pixel>& want) {
      return PixelsNear(seen, want, 2e-3, true);
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
    const double eased = 0.25 * 0.25 * (3 - 2 * 0.25);
    const struct {
      const void* outgoing;
      void* dst;
      float progress;
      bool ease;
      std::vector<Pixel> want;
    } dissolves[] = {{outgoing, dst, 0.0f, false, b},
                     {outgoing, dst, 1.0f, false, a},
                     {in, dst, 0.5f, false, a},  // the same buffer twice: a copy
                     {outgoing, dst, 0.25f, false, mix(b, 0.75, a, 0.25)},
                     {outgoing, outgoing, 0.25f, true, mix(b, 1 - eased, a, eased)}};
    for (const auto& d : dissolves) {
      ASSERT_EQ(LM::CrossDissolve(device_, in, rowBytes, d.outgoing, rowBytes, d.dst, rowBytes, format, width,
                                  1, d.progress, d.ease),
                0);
      EXPECT_TRUE(near(DownloadPixels(d.dst, width, format), d.want)) << "progress " << d.progress;
    }

    // Nine sources: a launch of eight writes, one of one adds. The sums start one 16-byte unit in.
    std::vector<const void*> sources;
    std::vector<float> weights;
    std::vector<Pixel> padded = a, want(a.size(), Pixel{0, 0, 0, 0});
    padded.insert(padded.begin(), 16 / size, Pixel{9, 9, 9, 9});
    for (int i = 0; i < 9; ++i) {
      sources.push_back(UploadPixels(padded, format));
      weights.push_back(0.125f * float(i + 1));
      want = mix(want, 1.0, a, weights.back());
    }
    void* sum = UploadPixels(std::vector<Pixel>(padded.size(), Pixel{7, 7, 7, 7}), format);
    ASSERT_EQ(
        LM::Accumulate(device_, sources.data(), weights.data(), 9, sum, rowBytes + 16, 16, format, width, 1),
        0);
    want.insert(want.begin(), 16 / size, Pixel{7, 7, 7, 7});  // the pixels before the offset are left alone
    EXPECT_TRUE(near(DownloadPixels(sum, padded.size(), format), want));

    void* gained = UploadPixels(a, format);
    ASSERT_EQ(LM::AlphaGain(device_, gained, rowBytes, gained, rowBytes, format, width, 1, 0.5f), 0);
    EXPECT_TRUE(near(DownloadPixels(gained, width, format), mix(a, 0.5, a, 0.0)));
    ASSERT_EQ(LM::AlphaGain(device_, gained, rowBytes, gained, rowBytes, format, width, 1, 0.0f), 0);
    EXPECT_TRUE(near(DownloadPixels(gained, width, format), std::vector<Pixel>(width, Pixel{0, 0, 0, 0})));

    const LM::float4 colour = {0.1f, 0.2f, 0.3f, 0.0f};
    void* straight = UploadPixels(a, format);
    ASSERT_EQ(LM::Unpremultiply(device_, straight, rowBytes, straight, rowBytes, format, width, 1, colour),
              0);
    EXPECT_TRUE(near(DownloadPixels(straight, width, format),
                     {{1, 0, 0.5f, 1}, {0, 0.5f, 0, 0.5f}, colour, {2, 1, 0, 1}}));
  }
}

LM_ON_EVERY_DEVICE(Compositing);

}  // namespace
