// Pixels of the GPU formats as the device tests write and read them: four floats, stored as four halves
// (rounded to nearest even) for the 16f formats and as four floats for the 32f ones.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "Half.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/PixelFormats.h"

inline bool IsHalfFormat(LM::PixelFormat format) {
  return format == LM::kPixelFormat_GPU_BGRA_4444_16f || format == LM::kPixelFormat_GPU_BGRX_4444_16f;
}

inline std::vector<std::uint8_t> GPUBytes(const std::vector<LM::float4>& pixels, LM::PixelFormat format) {
  std::vector<std::uint8_t> bytes;
  for (const LM::float4& p : pixels) {
    for (float c : {p.x, p.y, p.z, p.w}) {
      if (IsHalfFormat(format)) {
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

inline std::vector<LM::float4> GPUPixels(const std::vector<std::uint8_t>& bytes, LM::PixelFormat format) {
  std::vector<LM::float4> pixels;
  const std::size_t size = IsHalfFormat(format) ? 8 : 16;
  for (std::size_t at = 0; at + size <= bytes.size(); at += size) {
    float c[4];
    for (int i = 0; i < 4; ++i) {
      if (IsHalfFormat(format)) {
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
