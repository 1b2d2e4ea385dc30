// IEEE 754 binary16 of a float, rounded to nearest even, computed bit by bit: the reference that 16f results
// are checked against, independent of any conversion a compiler or kernel makes.
#pragma once

#include <cstdint>
#include <cstring>

inline std::uint16_t ToHalf(float value) {
  std::uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  const std::uint32_t sign = (bits >> 16) & 0x8000u;
  const int exponent = static_cast<int>((bits >> 23) & 0xFF);
  std::uint32_t mantissa = bits & 0x7FFFFFu;
  if (exponent == 0xFF) return static_cast<std::uint16_t>(sign | 0x7C00u | (mantissa ? 0x200u : 0));
  const int halfExponent = exponent - 127 + 15;
  if (halfExponent >= 31) return static_cast<std::uint16_t>(sign | 0x7C00u);
  if (halfExponent <= 0) {
    if (halfExponent < -10) return static_cast<std::uint16_t>(sign);
    mantissa |= 0x800000u;
    const int shift = 14 - halfExponent;
    std::uint32_t half = mantissa >> shift;
    const std::uint32_t rest = mantissa & ((1u << shift) - 1);
    const std::uint32_t halfway = 1u << (shift - 1);
    if (rest > halfway || (rest == halfway && (half & 1u))) ++half;
    return static_cast<std::uint16_t>(sign | half);
  }
  std::uint32_t half = (static_cast<std::uint32_t>(halfExponent) << 10) | (mantissa >> 13);
  const std::uint32_t rest = mantissa & 0x1FFFu;
  if (rest > 0x1000u || (rest == 0x1000u && (half & 1u))) ++half;  // a carry into the exponent is right too
  return static_cast<std::uint16_t>(sign | half);
}

// The value of half bits.
inline float FromHalf(std::uint16_t bits) {
  const int exponent = (bits >> 10) & 31;
  const std::uint32_t fraction = bits & 1023u;
  std::uint32_t out;
  if (exponent == 31) {
    out = 0x7F800000u | (fraction << 13);
  } else if (exponent != 0) {
    out = (static_cast<std::uint32_t>(exponent - 15 + 127) << 23) | (fraction << 13);
  } else {
    float magnitude = static_cast<float>(fraction) / 1024.0f / 16384.0f;  // subnormal: fraction × 2^-24
    std::memcpy(&out, &magnitude, sizeof out);
  }
  out |= static_cast<std::uint32_t>(bits & 0x8000u) << 16;
  float value;
  std::memcpy(&value, &out, sizeof value);
  return value;
}
