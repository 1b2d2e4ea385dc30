// module: Composite
// The layer over the background with an opacity and a blend mode, one kernel per mode, generated from the
// mode list and one blend function per mode. docs/blend-modes.md has the formulas and their reasons.
//
// Per pixel, with Cb the background's and Cs the layer's straight colour (premultiplied colour / alpha,
// 0 where alpha is 0), ab the background's alpha and as the layer's alpha times the opacity, both clamped to
// 0..1:
//   Cs' = (1 - ab) Cs + ab B(Cb, Cs)     ao = as + ab (1 - as)
//   out = as Cs' + (1 - as) ab Cb, premultiplied, with alpha ao.
// Dissolve blends as Normal with as = 1 where a hash of the pixel's coordinates falls below the layer's
// alpha times the opacity, and as = 0 elsewhere. Straight colours and quotients are bounded to +-1e9, low
// enough that SoftLight's cube of its input, times its other input, stays finite: colour values within the
// half range and any alpha give finite results, and halves saturate at +-65504.
#include "CompositeParameters.h"
#include "KernelDialect.h"

#define LM_BOUND 1e9f

// A value clamped to 0..1; NaN gives 0.
LM_DEVICE float Unit(float v) {
  return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
}

// A value bounded to +-LM_BOUND.
LM_DEVICE float Bounded(float v) {
  return v > -LM_BOUND ? (v < LM_BOUND ? v : LM_BOUND) : -LM_BOUND;
}

// The straight colour of a premultiplied pixel, given the reciprocal of its alpha (0 where alpha is 0).
// Below an alpha of 6.5e-5 a channel within the half range could pass the bound, so only there is it
// bounded.
LM_DEVICE float4 Straight(float4 p, float a, float inverse) {
  float4 c = LM_MAKE_FLOAT4(p.x * inverse, p.y * inverse, p.z * inverse, 0.0f);
  if (a < 6.5e-5f) c = LM_MAKE_FLOAT4(Bounded(c.x), Bounded(c.y), Bounded(c.z), 0.0f);
  return c;
}

// The reciprocals of the two alphas (0..1), 0 for an alpha of 0, with one division where both are well
// above 0; reciprocals are taken of at least 1e-30, so that they stay finite.
LM_DEVICE float2 Reciprocals(float al, float ab) {
  const float both = al * ab;
  if (both > 1e-30f) {
    const float inverse = 1.0f / both;
    return LM_MAKE_FLOAT2(ab * inverse, al * inverse);
  }
  return LM_MAKE_FLOAT2(al > 0.0f ? 1.0f / (al > 1e-30f ? al : 1e-30f) : 0.0f,
                        ab > 0.0f ? 1.0f / (ab > 1e-30f ? ab : 1e-30f) : 0.0f);
}

// n / d for d != 0, bounded: never infinite.
LM_DEVICE float Quotient(float n, float d) {
  return Bounded(n / d);
}

// ---- Separable modes: B(Cb, Cs) channel by channel
// ----------------------------------------------------------

#define LM_SEPARABLE(mode, expression)                                                                  \
  LM_DEVICE float Channel_##mode(float cb, float cs) {                                                  \
    return expression;                                                                                  \
  }                                                                                                     \
  LM_DEVICE float4 Blend_##mode(float4 b, float4 s) {                                                   \
    return LM_MAKE_FLOAT4(Channel_##mode(b.x, s.x), Channel_##mode(b.y, s.y), Channel_##mode(b.z, s.z), \
                          0.0f);                                                                        \
  }

LM_DEVICE float SoftLightD(float cb) {
  return cb <= 0.25f ? ((16.0f * cb - 12.0f) * cb + 4.0f) * cb : sqrt(cb);
}

LM_SEPARABLE(Normal, cs)
LM_SEPARABLE(Dissolve, cs)
LM_SEPARABLE(Multiply, cb* cs)
LM_SEPARABLE(Screen, cb + cs - cb * cs)
LM_SEPARABLE(HardLight, cs <= 0.5f ? cb * (2.0f * cs) : Channel_Screen(cb, 2.0f * cs - 1.0f))
LM_SEPARABLE(Overlay, Channel_HardLight(cs, cb))
LM_SEPARABLE(Darken, fmin(cb, cs))
LM_SEPARABLE(Lighten, fmax(cb, cs))
LM_SEPARABLE(ColorDodge, cb == 0.0f ? 0.0f : cs >= 1.0f ? 1.0f : fmin(1.0f, Quotient(cb, 1.0f - cs)))
LM_SEPARABLE(ColorBurn, cb == 1.0f ? 1.0f : cs <= 0.0f ? 0.0f : 1.0f - fmin(1.0f, Quotient(1.0f - cb, cs)))
LM_SEPARABLE(SoftLight, cs <= 0.5f ? cb - (1.0f - 2.0f * cs) * cb * (1.0f - cb)
                                   : cb + (2.0f * cs - 1.0f) * (SoftLightD(cb) - cb))
LM_SEPARABLE(Difference, fabs(cb - cs))
LM_SEPARABLE(Exclusion, cb + cs - 2.0f * cb * cs)
LM_SEPARABLE(VividLight,
             cs <= 0.5f ? Channel_ColorBurn(cb, 2.0f * cs) : Channel_ColorDodge(cb, 2.0f * cs - 1.0f))
LM_SEPARABLE(PinLight, cs <= 0.5f ? fmin(cb, 2.0f * cs) : fmax(cb, 2.0f * cs - 1.0f))
LM_SEPARABLE(HardMix, cb + cs >= 1.0f ? 1.0f : 0.0f)
// The modes whose sums and quotients leave 0..1 for inputs within it clamp to it.
LM_SEPARABLE(LinearBurn, Unit(cb + cs - 1.0f))
LM_SEPARABLE(LinearDodgeAdd, Unit(cb + cs))
LM_SEPARABLE(LinearLight, Unit(cb + 2.0f * cs - 1.0f))
LM_SEPARABLE(Subtract, Unit(cb - cs))
LM_SEPARABLE(Divide, cs == 0.0f ? (cb > 0.0f ? 1.0f : 0.0f) : Unit(Quotient(cb, cs)))

// ---- Non-separable modes
// ------------------------------------------------------------------------------------- Lum, ClipColor,
// SetLum, Sat and SetSat of the W3C compositing recommendation, on B, G, R in memory order (x, y, z). Hue,
// Saturation, Color and Luminosity take their inputs clamped to 0..1.

LM_DEVICE float Lum(float4 c) {
  return 0.3f * c.z + 0.59f * c.y + 0.11f * c.x;
}
LM_DEVICE float Min3(float4 c) {
  return fmin(c.x, fmin(c.y, c.z));
}
LM_DEVICE float Max3(float4 c) {
  return fmax(c.x, fmax(c.y, c.z));
}
LM_DEVICE float4 Clamp3(float4 c) {
  return LM_MAKE_FLOAT4(Unit(c.x), Unit(c.y), Unit(c.z), 0.0f);
}
// l + (c - l) k for each channel.
LM_DEVICE float4 TowardsLum(float4 c, float l, float k) {
  return LM_MAKE_FLOAT4(l + (c.x - l) * k, l + (c.y - l) * k, l + (c.z - l) * k, 0.0f);
}

LM_DEVICE float4 ClipColor(float4 c) {
  const float l = Lum(c), n = Min3(c), x = Max3(c);
  if (n < 0.0f && l - n > 0.0f) c = TowardsLum(c, l, l / (l - n));
  if (x > 1.0f && x - l > 0.0f) c = TowardsLum(c, l, (1.0f - l) / (x - l));
  return c;
}
LM_DEVICE float4 SetLum(float4 c, float l) {
  const float d = l - Lum(c);
  return ClipColor(LM_MAKE_FLOAT4(c.x + d, c.y + d, c.z + d, 0.0f));
}
LM_DEVICE float Sat(float4 c) {
  return Max3(c) - Min3(c);
}
// The channels spread from 0 (the smallest) to s (the largest), the middle one in proportion.
LM_DEVICE float4 SetSat(float4 c, float s) {
  const float n = Min3(c), range = Max3(c) - n;
  if (!(range > 0.0f)) return LM_MAKE_FLOAT4(0.0f, 0.0f, 0.0f, 0.0f);
  return LM_MAKE_FLOAT4((c.x - n) / range * s, (c.y - n) / range * s, (c.z - n) / range * s, 0.0f);
}

LM_DEVICE float4 Blend_Hue(float4 b, float4 s) {
  b = Clamp3(b);
  s = Clamp3(s);
  return SetLum(SetSat(s, Sat(b)), Lum(b));
}
LM_DEVICE float4 Blend_Saturation(float4 b, float4 s) {
  b = Clamp3(b);
  s = Clamp3(s);
  return SetLum(SetSat(b, Sat(s)), Lum(b));
}
LM_DEVICE float4 Blend_Color(float4 b, float4 s) {
  b = Clamp3(b);
  s = Clamp3(s);
  return SetLum(s, Lum(b));
}
LM_DEVICE float4 Blend_Luminosity(float4 b, float4 s) {
  b = Clamp3(b);
  s = Clamp3(s);
  return SetLum(b, Lum(s));
}
// The whole colour of the darker (lighter) input by Lum; on a tie the background's.
LM_DEVICE float4 Blend_DarkerColor(float4 b, float4 s) {
  return Lum(s) < Lum(b) ? s : b;
}
LM_DEVICE float4 Blend_LighterColor(float4 b, float4 s) {
  return Lum(s) > Lum(b) ? s : b;
}

// ---- Coverage and compositing
// --------------------------------------------------------------------------------

// A 32-bit hash (the PCG output permutation of one LCG step): the same bits on every framework.
LM_DEVICE uint PcgHash(uint v) {
  const uint state = v * 747796405u + 2891336453u;
  const uint word = ((state >> ((state >> 28u) + 4u)) ^ state) * 277803737u;
  return (word >> 22u) ^ word;
}
// The threshold of pixel (x, y), exactly a multiple of 2^-24 in [0, 1).
LM_DEVICE float DissolveThreshold(int x, int y) {
  return (float)(PcgHash((uint)x ^ PcgHash((uint)y)) >> 8) * (1.0f / 16777216.0f);
}

// The layer's share: its alpha times the opacity, or for Dissolve all or nothing by the pixel's threshold.
LM_DEVICE float Coverage(float layerAlpha, float opacity, int x, int y, int dissolve) {
  const float share = layerAlpha * Unit(opacity);
  if (dissolve) return DissolveThreshold(x, y) < share ? 1.0f : 0.0f;
  return share;
}

// The composite of the straight colours with their blend, premultiplied with its alpha; halves saturate.
LM_DEVICE float4 Over(float4 cs, float4 cb, float4 blended, float as, float ab, int is32f) {
  const float layerShare = as * (1.0f - ab), blendShare = as * ab, backgroundShare = (1.0f - as) * ab;
  float4 out = LM_MAKE_FLOAT4(layerShare * cs.x + blendShare * blended.x + backgroundShare * cb.x,
                              layerShare * cs.y + blendShare * blended.y + backgroundShare * cb.y,
                              layerShare * cs.z + blendShare * blended.z + backgroundShare * cb.z,
                              as + backgroundShare);
  if (!is32f) out = LM_Clamp4(out, -65504.0f, 65504.0f);
  return out;
}

// Normal without unpremultiplying: with B = Cs the composite reduces to the premultiplied layer times the
// opacity over the premultiplied background, l op + b (1 - as). A pixel of alpha 0 counts with colour 0,
// as its straight colour is 0. The same result up to rounding, for a fraction of the work.
LM_DEVICE float4 NormalOver(float4 l, float4 b, float al, float ab, float opacity, int is32f) {
  const float op = Unit(opacity), as = al * op, keep = 1.0f - as;
  const float layerShare = al > 0.0f ? op : 0.0f, backgroundShare = ab > 0.0f ? keep : 0.0f;
  float4 out =
      LM_MAKE_FLOAT4(layerShare * l.x + backgroundShare * b.x, layerShare * l.y + backgroundShare * b.y,
                     layerShare * l.z + backgroundShare * b.z, as + keep * ab);
  if (!is32f) out = LM_Clamp4(out, -65504.0f, 65504.0f);
  return out;
}

#define LM_COMPOSITE_KERNEL(context, mode)                                           \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_Composite(mode), LM_PARAMETERS_Composite) {      \
    const int x = LM_GLOBAL_X;                                                       \
    const int y = LM_GLOBAL_Y;                                                       \
    if (x >= width || y >= height) return;                                           \
    const float4 l = LM_LoadPixel(layer, y * layerPitch + x, is32f);                 \
    const float4 b = LM_LoadPixel(background, y * backgroundPitch + x, is32f);       \
    const float al = opaque ? 1.0f : Unit(l.w), ab = opaque ? 1.0f : Unit(b.w);      \
    float4 result;                                                                   \
    if (LM_IS_NORMAL(mode)) {                                                        \
      result = NormalOver(l, b, al, ab, opacity, is32f);                             \
    } else {                                                                         \
      const float2 inverse = Reciprocals(al, ab);                                    \
      const float4 cs = Straight(l, al, inverse.x), cb = Straight(b, ab, inverse.y); \
      const float as = Coverage(al, opacity, x, y, LM_IS_DISSOLVE(mode));            \
      result = Over(cs, cb, Blend_##mode(cb, cs), as, ab, is32f);                    \
    }                                                                                \
    LM_StorePixel(out, y* outPitch + x, result, is32f);                              \
  }

// 1 for Dissolve, whose coverage the hash draws, and 0 for every other mode: LM_DISSOLVE_PROBE_Dissolve
// expands to two arguments and moves the 1 into second place; any other mode leaves one argument and the 0
// there.
#define LM_DISSOLVE_PROBE_Dissolve ~, 1
#define LM_SECOND(...) LM_SECOND_(__VA_ARGS__, ~)
#define LM_SECOND_(first, second, ...) second
#define LM_IS_DISSOLVE(mode) LM_SECOND(LM_DISSOLVE_PROBE_##mode, 0)
// The same for Normal, which composites without unpremultiplying.
#define LM_NORMAL_PROBE_Normal ~, 1
#define LM_IS_NORMAL(mode) LM_SECOND(LM_NORMAL_PROBE_##mode, 0)

LM_VARIANTS_Composite(LM_COMPOSITE_KERNEL, ~)
