// The format descriptions, the unpack and pack of each layout family, and the colour stages. Quantisation:
// 8-bit RGB and alpha use 0..255, 15u 0..32768, float and half float 0..1. Y'CbCr is video range (8-bit
// Y' 16..235 and Cb, Cr 16..240 around 128; v210 Y' 64..940 and Cb, Cr 64..960 around 512) unless the format
// is full range (0..255, chroma around 128); float Y'CbCr has Y' 0..1 and Cb, Cr -0.5..0.5.
#include "PixelRows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "Resampling.h"
#include "zelmediatypes/PixelFormatTable.h"

namespace sk {

using namespace zelmediatypes;

float Quantise(const FormatDesc& d, int component, float value) {
  const float code = value * d.scale[component] + d.offset[component];
  return std::floor(std::fmin(std::fmax(code, d.lo), d.hi) + 0.5f);
}

namespace {

// ---- Descriptions ----------------------------------------------------------------------------------------

struct Quantisation {
  float scale[4];
  float offset[4];
  float lo, hi;
};

Quantisation QuantisationOf(Sample sample, bool ycbcr, bool fullRange) {
  switch (sample) {
    case Sample::k8u:
      // Components in float-row order: Cr, Cb, Y', A.
      if (ycbcr && !fullRange) return {{224, 224, 219, 255}, {128, 128, 16, 0}, 0, 255};
      if (ycbcr) return {{255, 255, 255, 255}, {128, 128, 0, 0}, 0, 255};
      return {{255, 255, 255, 255}, {0, 0, 0, 0}, 0, 255};
    case Sample::k10u:
      // Codes 0-3 and 1020-1023 are reserved for timing references in 10-bit video.
      return {{896, 896, 876, 1023}, {512, 512, 64, 0}, 4, 1019};
    case Sample::k15u:
      return {{32768, 32768, 32768, 32768}, {0, 0, 0, 0}, 0, 32768};
    case Sample::k16f:
    case Sample::k32f:
      break;
  }
  return {{1, 1, 1, 1}, {0, 0, 0, 0}, 0, 0};
}

bool SampleOf(std::uint32_t properties, Sample& out) {
  switch (properties & kPixelFormatPropertyMask_Sample) {
    case kPixelFormatSample_8u:
      out = Sample::k8u;
      return true;
    case kPixelFormatSample_10u:
      out = Sample::k10u;
      return true;
    case kPixelFormatSample_15u:
      out = Sample::k15u;
      return true;
    case kPixelFormatSample_16f:
      out = Sample::k16f;
      return true;
    case kPixelFormatSample_32f:
      out = Sample::k32f;
      return true;
    default:
      return false;
  }
}

struct OrderInfo {
  std::uint32_t order;
  Layout layout;
  bool ycbcr;
  int components[4];
};

// Float-row component of each memory position (4444), or of each sample of a pixel pair (4:2:2).
constexpr OrderInfo kOrders[] = {
    {kPixelFormatOrder_Device, Layout::k4444, false, {kB, kG, kR, kA}},
    {kPixelFormatOrder_BGRA, Layout::k4444, false, {kB, kG, kR, kA}},
    {kPixelFormatOrder_ARGB, Layout::k4444, false, {kA, kR, kG, kB}},
    {kPixelFormatOrder_VUYA, Layout::k4444, true, {kCr, kCb, kY, kA}},
    {kPixelFormatOrder_UYVY, Layout::kPacked422, true, {kCb, kY, kCr, kY}},
    {kPixelFormatOrder_YUYV, Layout::kPacked422, true, {kY, kCb, kY, kCr}},
    {kPixelFormatOrder_V210, Layout::kV210, true, {kCb, kY, kCr, kY}},
    {kPixelFormatOrder_YUVPlanes, Layout::kPlanar420, true, {kY, kCb, kCr, kA}},
};

// ---- Samples ---------------------------------------------------------------------------------------------

template <Sample S>
struct SampleIO;

template <>
struct SampleIO<Sample::k8u> {
  static constexpr int kBytes = 1;
  static float Load(const std::uint8_t* p) { return float(*p); }
  static void Store(std::uint8_t* p, float code, float lo, float hi) {
    *p = std::uint8_t(std::fmin(std::fmax(code, lo), hi) + 0.5f);
  }
};

template <>
struct SampleIO<Sample::k15u> {
  static constexpr int kBytes = 2;
  static float Load(const std::uint8_t* p) {
    std::uint16_t v;
    std::memcpy(&v, p, 2);
    return float(v);
  }
  static void Store(std::uint8_t* p, float code, float lo, float hi) {
    const std::uint16_t v = std::uint16_t(std::fmin(std::fmax(code, lo), hi) + 0.5f);
    std::memcpy(p, &v, 2);
  }
};

template <>
struct SampleIO<Sample::k16f> {
  static constexpr int kBytes = 2;
  static float Load(const std::uint8_t* p) {
    std::uint16_t v;
    std::memcpy(&v, p, 2);
    return HalfToFloat(v);
  }
  static void Store(std::uint8_t* p, float value, float, float) {
    const std::uint16_t v = FloatToHalf(value);
    std::memcpy(p, &v, 2);
  }
};

template <>
struct SampleIO<Sample::k32f> {
  static constexpr int kBytes = 4;
  static float Load(const std::uint8_t* p) {
    float v;
    std::memcpy(&v, p, 4);
    return v;
  }
  static void Store(std::uint8_t* p, float value, float, float) { std::memcpy(p, &value, 4); }
};

float Dequantise(const FormatDesc& d, int component, float code) {
  return (code - d.offset[component]) / d.scale[component];
}

// ---- 4444 ------------------------------------------------------------------------------------------------

bool InFloatRowOrder(const FormatDesc& d) {
  return d.order[0] == 0 && d.order[1] == 1 && d.order[2] == 2 && d.order[3] == 3;
}

// The loops for formats whose memory order is the float row's (BGRA, VUYA and the GPU formats), with the
// component index a constant of the inner loop, which lets the compiler vectorise them.
template <Sample S, bool kOpaque>
void UnpackInOrder(const FormatDesc& d, const std::uint8_t* src, int n, float* out) {
  using IO = SampleIO<S>;
  float inverse[4];
  for (int c = 0; c < 4; ++c) inverse[c] = 1.0f / d.scale[c];
  for (int i = 0; i < n; ++i, src += 4 * IO::kBytes, out += 4) {
    for (int c = 0; c < 4; ++c) out[c] = (IO::Load(src + c * IO::kBytes) - d.offset[c]) * inverse[c];
    if (kOpaque) out[kA] = 1.0f;
  }
}

template <Sample S, bool kOpaque>
void PackInOrder(const FormatDesc& d, const float* in, int n, std::uint8_t* dst) {
  using IO = SampleIO<S>;
  if (S == Sample::k32f && !kOpaque) {
    std::memcpy(dst, in, std::size_t(n) * 16);  // scale 1, offset 0: the row is the memory
    return;
  }
  for (int i = 0; i < n; ++i, in += 4, dst += 4 * IO::kBytes) {
    for (int c = 0; c < 4; ++c) {
      const float value = kOpaque && c == kA ? 1.0f : in[c];
      IO::Store(dst + c * IO::kBytes, value * d.scale[c] + d.offset[c], d.lo, d.hi);
    }
  }
}

template <Sample S>
void Unpack4444(const FormatDesc& d, const std::uint8_t* src, int n, float* out) {
  using IO = SampleIO<S>;
  const bool opaque = d.alpha == Alpha::kOpaque;
  if (InFloatRowOrder(d)) {
    return opaque ? UnpackInOrder<S, true>(d, src, n, out) : UnpackInOrder<S, false>(d, src, n, out);
  }
  int c[4];
  float offset[4], inverse[4];
  for (int p = 0; p < 4; ++p) {
    c[p] = d.order[p];
    offset[p] = d.offset[c[p]];
    inverse[p] = 1.0f / d.scale[c[p]];
  }
  for (int i = 0; i < n; ++i, src += 4 * IO::kBytes, out += 4) {
    for (int p = 0; p < 4; ++p) out[c[p]] = (IO::Load(src + p * IO::kBytes) - offset[p]) * inverse[p];
    if (opaque) out[kA] = 1.0f;
  }
}

template <Sample S>
void Pack4444(const FormatDesc& d, const float* in, int n, std::uint8_t* dst) {
  using IO = SampleIO<S>;
  const bool opaque = d.alpha == Alpha::kOpaque;
  if (InFloatRowOrder(d)) {
    return opaque ? PackInOrder<S, true>(d, in, n, dst) : PackInOrder<S, false>(d, in, n, dst);
  }
  int c[4];
  float scale[4], offset[4];
  for (int p = 0; p < 4; ++p) {
    c[p] = d.order[p];
    scale[p] = d.scale[c[p]];
    offset[p] = d.offset[c[p]];
  }
  for (int i = 0; i < n; ++i, in += 4, dst += 4 * IO::kBytes) {
    for (int p = 0; p < 4; ++p) {
      const float value = opaque && c[p] == kA ? 1.0f : in[c[p]];
      IO::Store(dst + p * IO::kBytes, value * scale[p] + offset[p], d.lo, d.hi);
    }
  }
}

// ---- 4:2:2 -----------------------------------------------------------------------------------------------

// Pixels a 4:2:2 row is written in: pairs, or groups of six for v210.
int GroupPixels(const FormatDesc& d) {
  return d.layout == Layout::kV210 ? 6 : 2;
}

// The codes of the row's samples in memory order (pairs of pixels as four samples each).
void ReadSamples422(const FormatDesc& d, const std::uint8_t* src, int pairs, float* codes) {
  if (d.layout == Layout::kPacked422) {
    for (int k = 0; k < 4 * pairs; ++k) codes[k] = float(src[k]);
    return;
  }
  for (int k = 0; k < 4 * pairs;) {
    std::uint32_t word;
    std::memcpy(&word, src + (k / 3) * 4, 4);
    for (int j = 0; j < 3 && k < 4 * pairs; ++j, ++k) codes[k] = float((word >> (10 * j)) & 0x3FFu);
  }
}

void WriteSamples422(const FormatDesc& d, const float* codes, int pairs, std::uint8_t* dst) {
  if (d.layout == Layout::kPacked422) {
    for (int k = 0; k < 4 * pairs; ++k) dst[k] = std::uint8_t(codes[k]);
    return;
  }
  for (int k = 0; k < 4 * pairs; k += 3) {
    std::uint32_t word = 0;
    for (int j = 0; j < 3 && k + j < 4 * pairs; ++j) word |= std::uint32_t(codes[k + j]) << (10 * j);
    std::memcpy(dst + (k / 3) * 4, &word, 4);
  }
}

// Linear interpolation of cn chroma samples (site of sample j: 2j + chromaX) onto n luma samples, into
// component `component` of a float row.
void UpsampleChroma(const float* chroma, int cn, int n, double chromaX, float* out, int component) {
  for (int x = 0; x < n; ++x) {
    float v = 0;
    for (const auto& tap : LinearTaps((double(x) - chromaX) / 2.0, cn)) v += tap.second * chroma[tap.first];
    out[4 * x + component] = v;
  }
}

void Unpack422(const FormatDesc& d, const std::uint8_t* src, int n, float* out, RowScratch& s) {
  const int pairs = (n + 1) / 2;
  s.a.resize(std::size_t(4 * pairs));
  s.b.resize(std::size_t(2 * pairs));
  ReadSamples422(d, src, pairs, s.a.data());
  float* cb = s.b.data();
  float* cr = s.b.data() + pairs;
  for (int q = 0; q < pairs; ++q) {
    int luma = 0;
    for (int slot = 0; slot < 4; ++slot) {
      const int c = d.order[slot];
      const float value = Dequantise(d, c, s.a[std::size_t(4 * q + slot)]);
      if (c == kCb) cb[q] = value;
      if (c == kCr) cr[q] = value;
      if (c == kY) {
        const int x = 2 * q + luma++;
        if (x < n) out[4 * x + kY] = value;
      }
    }
  }
  UpsampleChroma(cb, pairs, n, d.chromaX, out, kCb);
  UpsampleChroma(cr, pairs, n, d.chromaX, out, kCr);
  for (int x = 0; x < n; ++x) out[4 * x + kA] = 1.0f;
}

void Pack422(const FormatDesc& d, const float* in, int n, std::uint8_t* dst, RowScratch& s) {
  const int group = GroupPixels(d);
  const int pairs = (n + group - 1) / group * group / 2;
  s.a.resize(std::size_t(4 * pairs));
  for (int q = 0; q < pairs; ++q) {
    float chroma[4] = {0, 0, 0, 0};
    for (const auto& tap : TriangleTaps(2.0 * q + d.chromaX, n)) {
      chroma[kCb] += tap.second * in[4 * tap.first + kCb];
      chroma[kCr] += tap.second * in[4 * tap.first + kCr];
    }
    int luma = 0;
    for (int slot = 0; slot < 4; ++slot) {
      const int c = d.order[slot];
      const float value = c == kY ? in[4 * std::min(2 * q + luma++, n - 1) + kY] : chroma[c];
      s.a[std::size_t(4 * q + slot)] = Quantise(d, c, value);
    }
  }
  WriteSamples422(d, s.a.data(), pairs, dst);
}

// ---- 4:2:0 -----------------------------------------------------------------------------------------------

struct Planes {
  const std::uint8_t* y;
  const std::uint8_t* u;
  const std::uint8_t* v;
  int cw, ch;
};

Planes PlanesOf(const std::uint8_t* base, int w, int h) {
  const int cw = (w + 1) / 2;
  const int ch = (h + 1) / 2;
  const std::size_t luma = std::size_t(w) * std::size_t(h);
  const std::size_t chroma = std::size_t(cw) * std::size_t(ch);
  return {base, base + luma, base + luma + chroma, cw, ch};
}

// The chroma rows that luma row y of an h-row image interpolates (vertical siting) or, for the pack, the
// luma rows that chroma row j filters. FRAME chroma row j lies at frame row 2j + 0.5; FIELD chroma row
// j = 2m + f belongs to field f and lies at field row 2m + 0.25 + 0.5 f.
TapList ChromaRowsForLumaRow(const FormatDesc& d, int y, int h) {
  const int ch = (h + 1) / 2;
  if (!d.fieldChroma) return LinearTaps((double(y) - 0.5) / 2.0, ch);
  int field = y & 1;
  if ((ch - field + 1) / 2 == 0) field = 0;  // a one-row chroma plane has no second field
  TapList taps = LinearTaps((double(y >> 1) - 0.25 - 0.5 * field) / 2.0, (ch - field + 1) / 2);
  for (auto& tap : taps) tap.first = 2 * tap.first + field;
  return taps;
}

TapList LumaRowsForChromaRow(const FormatDesc& d, int j, int h) {
  if (!d.fieldChroma) return TriangleTaps(2.0 * j + 0.5, h);
  int field = j & 1;
  if ((h - field + 1) / 2 == 0) field = 0;
  TapList taps = TriangleTaps(2.0 * (j >> 1) + 0.25 + 0.5 * field, (h - field + 1) / 2);
  for (auto& tap : taps) tap.first = 2 * tap.first + field;
  return taps;
}

void Unpack420(const FormatDesc& d, const ImageRef& image, int y, float* out, RowScratch& s) {
  const Planes planes = PlanesOf(image.base, image.width, image.height);
  const int w = image.width;
  const std::uint8_t* luma = planes.y + std::size_t(y) * std::size_t(w);
  for (int x = 0; x < w; ++x) {
    out[4 * x + kY] = Dequantise(d, kY, float(luma[x]));
    out[4 * x + kA] = 1.0f;
  }
  s.b.assign(std::size_t(2 * planes.cw), 0.0f);
  for (const auto& tap : ChromaRowsForLumaRow(d, y, image.height)) {
    const std::size_t row = std::size_t(tap.first) * std::size_t(planes.cw);
    for (int i = 0; i < planes.cw; ++i) {
      s.b[std::size_t(i)] += tap.second * Dequantise(d, kCb, float(planes.u[row + std::size_t(i)]));
      s.b[std::size_t(planes.cw + i)] +=
          tap.second * Dequantise(d, kCr, float(planes.v[row + std::size_t(i)]));
    }
  }
  UpsampleChroma(s.b.data(), planes.cw, w, d.chromaX, out, kCb);
  UpsampleChroma(s.b.data() + planes.cw, planes.cw, w, d.chromaX, out, kCr);
}

}  // namespace

bool DescribeFormat(PixelFormat format, FormatDesc& out) {
  if (!FindPixelFormatInfo(format)) return false;
  const std::uint32_t word = format.properties;
  const std::uint32_t order = word & kPixelFormatPropertyMask_Order;
  const OrderInfo* info = nullptr;
  for (const OrderInfo& o : kOrders) {
    if (o.order == order) info = &o;
  }
  FormatDesc d{};
  if (!info || !SampleOf(word, d.sample)) return false;
  d.layout = info->layout;
  d.ycbcr = info->ycbcr;
  std::copy(info->components, info->components + 4, d.order);
  d.bt709 = (word & kPixelFormatProperty_BT709) != 0;
  d.linear = (word & kPixelFormatProperty_Linear) != 0;
  switch (word & kPixelFormatPropertyMask_Alpha) {
    case kPixelFormatAlpha_Straight:
      // The library's GPU working formats hold premultiplied colour although their alpha field reads 1.
      d.alpha = order == kPixelFormatOrder_Device ? Alpha::kPremultiplied : Alpha::kStraight;
      break;
    case kPixelFormatAlpha_Premultiplied:
      d.alpha = Alpha::kPremultiplied;
      break;
    default:
      d.alpha = Alpha::kOpaque;
      break;
  }
  const Quantisation q = QuantisationOf(d.sample, d.ycbcr, (word & kPixelFormatProperty_FullRange) != 0);
  std::copy(q.scale, q.scale + 4, d.scale);
  std::copy(q.offset, q.offset + 4, d.offset);
  d.lo = q.lo;
  d.hi = q.hi;
  const std::uint32_t type = word & kPixelFormatPropertyMask_Type;
  // MPEG-2 (and 4:2:2) chroma is co-sited with the even luma columns; MPEG-4 chroma is centred between them.
  d.chromaX = type == kPixelFormatType_MPEG4Frame || type == kPixelFormatType_MPEG4Field ? 0.5 : 0.0;
  d.fieldChroma = type == kPixelFormatType_MPEG2Field || type == kPixelFormatType_MPEG4Field;
  out = d;
  return true;
}

void UnpackRow(const FormatDesc& d, const ImageRef& image, int y, float* out, RowScratch& scratch) {
  const std::uint8_t* row = image.base + std::size_t(y) * image.rowBytes;
  switch (d.layout) {
    case Layout::k4444:
      switch (d.sample) {
        case Sample::k8u:
          return Unpack4444<Sample::k8u>(d, row, image.width, out);
        case Sample::k15u:
          return Unpack4444<Sample::k15u>(d, row, image.width, out);
        case Sample::k16f:
          return Unpack4444<Sample::k16f>(d, row, image.width, out);
        case Sample::k32f:
          return Unpack4444<Sample::k32f>(d, row, image.width, out);
        case Sample::k10u:
          return;
      }
      return;
    case Layout::kPacked422:
    case Layout::kV210:
      return Unpack422(d, row, image.width, out, scratch);
    case Layout::kPlanar420:
      return Unpack420(d, image, y, out, scratch);
  }
}

void PackRow(const FormatDesc& d, const float* in, int width, std::uint8_t* row, RowScratch& scratch) {
  switch (d.layout) {
    case Layout::k4444:
      switch (d.sample) {
        case Sample::k8u:
          return Pack4444<Sample::k8u>(d, in, width, row);
        case Sample::k15u:
          return Pack4444<Sample::k15u>(d, in, width, row);
        case Sample::k16f:
          return Pack4444<Sample::k16f>(d, in, width, row);
        case Sample::k32f:
          return Pack4444<Sample::k32f>(d, in, width, row);
        case Sample::k10u:
          return;
      }
      return;
    case Layout::kPacked422:
    case Layout::kV210:
      return Pack422(d, in, width, row, scratch);
    case Layout::kPlanar420:
      return;
  }
}

void PackPlanar420(const FormatDesc& d, const float* image, int width, int height, std::uint8_t* base) {
  const Planes planes = PlanesOf(base, width, height);
  std::uint8_t* luma = base;
  std::uint8_t* u = const_cast<std::uint8_t*>(planes.u);
  std::uint8_t* v = const_cast<std::uint8_t*>(planes.v);
  const std::size_t pixels = std::size_t(width) * std::size_t(height);
  for (std::size_t i = 0; i < pixels; ++i) luma[i] = std::uint8_t(Quantise(d, kY, image[4 * i + kY]));

  std::vector<TapList> columns;
  for (int i = 0; i < planes.cw; ++i) columns.push_back(TriangleTaps(2.0 * i + d.chromaX, width));
  std::vector<float> rowCb(static_cast<std::size_t>(width));
  std::vector<float> rowCr(static_cast<std::size_t>(width));
  for (int j = 0; j < planes.ch; ++j) {
    std::fill(rowCb.begin(), rowCb.end(), 0.0f);
    std::fill(rowCr.begin(), rowCr.end(), 0.0f);
    for (const auto& tap : LumaRowsForChromaRow(d, j, height)) {
      const float* src = image + 4 * std::size_t(tap.first) * std::size_t(width);
      for (int x = 0; x < width; ++x) {
        rowCb[std::size_t(x)] += tap.second * src[4 * x + kCb];
        rowCr[std::size_t(x)] += tap.second * src[4 * x + kCr];
      }
    }
    const std::size_t out = std::size_t(j) * std::size_t(planes.cw);
    for (int i = 0; i < planes.cw; ++i) {
      float cb = 0, cr = 0;
      for (const auto& tap : columns[std::size_t(i)]) {
        cb += tap.second * rowCb[std::size_t(tap.first)];
        cr += tap.second * rowCr[std::size_t(tap.first)];
      }
      u[out + std::size_t(i)] = std::uint8_t(Quantise(d, kCb, cb));
      v[out + std::size_t(i)] = std::uint8_t(Quantise(d, kCr, cr));
    }
  }
}

// ---- Colour stages ---------------------------------------------------------------------------------------

namespace {

struct LumaCoefficients {
  float kr, kb;
};

LumaCoefficients Coefficients(bool bt709) {
  return bt709 ? LumaCoefficients{0.2126f, 0.0722f} : LumaCoefficients{0.299f, 0.114f};
}

float EncodeSRGB(float x) {
  const float a = std::fabs(x);
  const float e = a <= 0.0031308f ? 12.92f * a : 1.055f * std::pow(a, 1.0f / 2.4f) - 0.055f;
  return std::copysign(e, x);
}

float DecodeSRGB(float x) {
  const float a = std::fabs(x);
  const float l = a <= 0.04045f ? a / 12.92f : std::pow((a + 0.055f) / 1.055f, 2.4f);
  return std::copysign(l, x);
}

template <typename Curve>
void ApplyCurve(float* row, int n, bool premultiplied, Curve curve) {
  for (int i = 0; i < n; ++i, row += 4) {
    const float a = row[kA];
    if (premultiplied && a != 1.0f) {
      for (int c = 0; c < 3; ++c) row[c] = a > 0 ? curve(row[c] / a) * a : 0.0f;
    } else {
      for (int c = 0; c < 3; ++c) row[c] = curve(row[c]);
    }
  }
}

}  // namespace

void YCbCrToRGB(float* row, int n, bool bt709) {
  const LumaCoefficients k = Coefficients(bt709);
  const float kg = 1.0f - k.kr - k.kb;
  const float crToR = 2.0f * (1.0f - k.kr);
  const float cbToB = 2.0f * (1.0f - k.kb);
  const float crToG = -crToR * k.kr / kg;
  const float cbToG = -cbToB * k.kb / kg;
  for (int i = 0; i < n; ++i, row += 4) {
    const float y = row[kY], cb = row[kCb], cr = row[kCr];
    row[kR] = y + crToR * cr;
    row[kG] = y + cbToG * cb + crToG * cr;
    row[kB] = y + cbToB * cb;
  }
}

void RGBToYCbCr(float* row, int n, bool bt709) {
  const LumaCoefficients k = Coefficients(bt709);
  const float kg = 1.0f - k.kr - k.kb;
  for (int i = 0; i < n; ++i, row += 4) {
    const float r = row[kR], g = row[kG], b = row[kB];
    const float y = k.kr * r + kg * g + k.kb * b;
    row[kY] = y;
    row[kCb] = (b - y) / (2.0f * (1.0f - k.kb));
    row[kCr] = (r - y) / (2.0f * (1.0f - k.kr));
  }
}

void Premultiply(float* row, int n) {
  for (int i = 0; i < n; ++i, row += 4) {
    for (int c = 0; c < 3; ++c) row[c] *= row[kA];
  }
}

void Unpremultiply(float* row, int n) {
  for (int i = 0; i < n; ++i, row += 4) {
    const float a = row[kA];
    for (int c = 0; c < 3; ++c) row[c] = a > 0 ? row[c] / a : 0.0f;
  }
}

void LinearToGamma(float* row, int n, bool premultiplied) {
  ApplyCurve(row, n, premultiplied, EncodeSRGB);
}
void GammaToLinear(float* row, int n, bool premultiplied) {
  ApplyCurve(row, n, premultiplied, DecodeSRGB);
}

// ---- Half float ------------------------------------------------------------------------------------------

float HalfToFloat(std::uint16_t h) {
  const std::uint32_t sign = std::uint32_t(h & 0x8000u) << 16;
  const std::uint32_t exponent = (h >> 10) & 0x1Fu;
  const std::uint32_t mantissa = h & 0x3FFu;
  float value;
  if (exponent == 0) {
    value = std::ldexp(float(mantissa), -24);  // zero and subnormals
  } else if (exponent == 31) {
    value = mantissa ? std::numeric_limits<float>::quiet_NaN() : std::numeric_limits<float>::infinity();
  } else {
    value = std::ldexp(float(mantissa | 0x400u), int(exponent) - 25);
  }
  std::uint32_t bits;
  std::memcpy(&bits, &value, 4);
  bits |= sign;
  std::memcpy(&value, &bits, 4);
  return value;
}

std::uint16_t FloatToHalf(float f) {
  std::uint32_t bits;
  std::memcpy(&bits, &f, 4);
  const std::uint16_t sign = std::uint16_t((bits >> 16) & 0x8000u);
  const std::uint32_t abs = bits & 0x7FFFFFFFu;
  if (abs >= 0x7F800000u) return std::uint16_t(sign | 0x7C00u | (abs > 0x7F800000u ? 0x200u : 0u));
  if (abs >= 0x477FF000u) return std::uint16_t(sign | 0x7C00u);  // rounds past 65504: infinity
  if (abs < 0x38800000u) {
    // Subnormal half: the value in units of 2^-24, rounded to nearest even by the float addition.
    const float magnitude = std::fabs(f) * 16777216.0f;
    return std::uint16_t(sign | std::uint16_t(std::nearbyint(magnitude)));
  }
  const std::uint32_t mantissa = abs & 0x7FFFFFu;
  std::uint32_t half = ((abs >> 23) - 112u) << 10 | (mantissa >> 13);
  const std::uint32_t rest = mantissa & 0x1FFFu;
  if (rest > 0x1000u || (rest == 0x1000u && (half & 1u))) ++half;
  return std::uint16_t(sign | half);
}

}  // namespace sk
