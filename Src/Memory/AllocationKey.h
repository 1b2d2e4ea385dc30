// The key of a pooled block: either an explicit byte size or an image shape (width, height and pixel
// format). Pools order and match keys by their byte size alone, so a request by shape and a request by
// size that come to the same number of bytes can take each other's blocks.
#pragma once

#include <zelmediatypes/PixelFormat.h>

#include <cstdint>
#include <functional>

namespace LM {

struct AllocationKey {
  std::uint64_t size;  // explicit byte size; 0 for a request by shape
  std::int32_t width;  // image width in pixels; 0 for a request by size
  std::int32_t height;
  zelmediatypes::PixelFormat format;  // kPixelFormat_Invalid for a request by size

  static AllocationKey OfSize(std::uint64_t bytes) {
    return {bytes, 0, 0, zelmediatypes::kPixelFormat_Invalid};
  }
  static AllocationKey OfShape(int width, int height, zelmediatypes::PixelFormat format) {
    return {0, width, height, format};
  }

  // `size` when it is non-zero; otherwise the host's size of the image when the width is positive;
  // otherwise 0.
  std::uint64_t ByteSize() const;
};

static_assert(sizeof(AllocationKey) == 24, "an AllocationKey is three 64-bit words");

}  // namespace LM

namespace std {

// Keys are ordered by byte size and nothing else.
template <>
struct less<LM::AllocationKey> {
  bool operator()(const LM::AllocationKey& a, const LM::AllocationKey& b) const {
    return a.ByteSize() < b.ByteSize();
  }
};

}  // namespace std
