// Pixels of the GPU formats as the device tests write and read them: four floats, stored as four halves for
// the 16f formats and as four floats for the 32f ones; and their comparison within a tolerance.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Lumora/ImageOperations.h"
#include "Lumora/PixelFormats.h"

// IEEE 754 binary16 of a float, rounded to nearest even: the reference that 16f results are checked against,
// independent of the kernels' conversions. Subnormal halves are steps of 2^-24, the ulp of 0.5f, so adding
// 0.5f lets the CPU's own rounding to nearest even pick the step.
inline std::uint16_t ToHalf(float value) {
  std::uint32_t bits;
  std::memcpy(&bits, &value, 4);
  const std::uint32_t sign = (bits >> 16) & 0x8000u, magnitude = bits & 0x7FFFFFFFu;
  if (magnitude >= 0x47800000u) return sign | (magnitude > 0x7F800000u ? 0x7E00u : 0x7C00u);  // NaN, infinity
  if (magnitude < 0x38800000u) {
    float shifted;
    std::memcpy(&shifted, &magnitude, 4);
    shifted += 0.5f;
    std::memcpy(&bits, &shifted, 4);
    return static_cast<std::uint16_t>(sign | (bits - 0x3F000000u));
  }
  // Rebias the exponent, round the 13 dropped bits to nearest even; a carry into the exponent is right too.
  return static_cast<std::uint16_t>(sign |
                                    ((magnitude - 0x38000000u + 0xFFFu + ((magnitude >> 13) & 1)) >> 13));
}

inline float FromHalf(std::uint16_t bits) {
  const int exponent = (bits >> 10) & 31, fraction = bits & 1023;
  const float magnitude = exponent == 31 ? (fraction != 0 ? NAN : INFINITY)
                                         : std::ldexp(float(exponent != 0 ? fraction + 1024 : fraction),
                                                      std::max(exponent, 1) - 25);
  return (bits & 0x8000u) != 0 ? -magnitude : magnitude;
}

inline bool IsHalfFormat(LM::PixelFormat format) {
  return format == LM::kPixelFormat_GPU_BGRA_4444_16f || format == LM::kPixelFormat_GPU_BGRX_4444_16f;
}
inline int PixelBytes(LM::PixelFormat format) {
  return IsHalfFormat(format) ? 8 : 16;
}
inline std::array<float, 4> Channels(const LM::float4& p) {
  return {p.x, p.y, p.z, p.w};
}

inline std::vector<std::uint8_t> GPUBytes(const std::vector<LM::float4>& pixels, LM::PixelFormat format) {
  std::vector<std::uint8_t> bytes(pixels.size() * PixelBytes(format));
  std::uint8_t* at = bytes.data();
  for (const LM::float4& p : pixels) {
    for (const float c : Channels(p)) {
      const std::uint16_t half = ToHalf(c);
      at = std::copy_n(IsHalfFormat(format) ? reinterpret_cast<const std::uint8_t*>(&half)
                                            : reinterpret_cast<const std::uint8_t*>(&c),
                       IsHalfFormat(format) ? 2 : 4, at);
    }
  }
  return bytes;
}

inline std::vector<LM::float4> GPUPixels(const std::vector<std::uint8_t>& bytes, LM::PixelFormat format) {
  std::vector<LM::float4> pixels;
  const int channel = PixelBytes(format) / 4;
  for (std::size_t at = 0; at + 4 * channel <= bytes.size(); at += 4 * channel) {
    float c[4];
    for (int i = 0; i < 4; ++i) {
      std::uint16_t half;
      std::memcpy(channel == 2 ? static_cast<void*>(&half) : &c[i], &bytes[at + channel * i], channel);
      if (channel == 2) c[i] = FromHalf(half);
    }
    pixels.push_back({c[0], c[1], c[2], c[3]});
  }
  return pixels;
}

// The pixels as `format` stores them: halves round them.
inline std::vector<LM::float4> Stored(const std::vector<LM::float4>& pixels, LM::PixelFormat format) {
  return GPUPixels(GPUBytes(pixels, format), format);
}

// Every channel of `got` within `tolerance` of `want`'s, scaled by max(1, |want|) when `relative`; the first
// that is not (NaN included) is named.
inline testing::AssertionResult PixelsNear(const std::vector<LM::float4>& got,
                                           const std::vector<LM::float4>& want, double tolerance,
                                           bool relative = false) {
  if (got.size() != want.size())
    return testing::AssertionFailure() << got.size() << " pixels, not " << want.size();
  for (std::size_t i = 0; i < want.size(); ++i) {
    const std::array<float, 4> g = Channels(got[i]), w = Channels(want[i]);
    for (int c = 0; c < 4; ++c) {
      const double allowed = tolerance * (relative ? std::max(1.0, double(std::fabs(w[c]))) : 1.0);
      if (!(std::fabs(double(g[c]) - w[c]) <= allowed)) {
        return testing::AssertionFailure() << "pixel " << i << ", channel " << c << ": " << g[c] << ", not "
                                           << w[c] << " within " << allowed;
      }
    }
  }
  return testing::AssertionSuccess();
}

// A picture of width x height pixels, row after row.
struct Picture {
  int width, height;
  std::vector<LM::float4> pixels;
  const LM::float4& at(int x, int y) const { return pixels[std::size_t(y) * width + x]; }
};
