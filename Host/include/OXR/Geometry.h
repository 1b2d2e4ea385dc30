// Points and rectangles as the host passes them: plain structs and thin, trivially copyable wrappers.
#pragma once

#include <cstdint>

namespace OXR {

struct CPoint {
  std::int32_t x, y;
};

// right and bottom are exclusive.
struct CRect {
  std::int32_t left, top, right, bottom;
};

template <class P>
struct ParamPoint : P {
  constexpr ParamPoint() : P{} {}
  constexpr ParamPoint(std::int32_t x, std::int32_t y) : P{x, y} {}
  constexpr ParamPoint(const P& p) : P(p) {}

  friend constexpr bool operator==(const ParamPoint& a, const ParamPoint& b) {
    return a.x == b.x && a.y == b.y;
  }
  friend constexpr bool operator!=(const ParamPoint& a, const ParamPoint& b) { return !(a == b); }
};

template <class R>
struct ParamRect : R {
  constexpr ParamRect() : R{} {}
  constexpr ParamRect(std::int32_t left, std::int32_t top, std::int32_t right, std::int32_t bottom)
      : R{left, top, right, bottom} {}
  constexpr ParamRect(const R& r) : R(r) {}

  // Differences wrap around instead of overflowing, so absurd coordinates cannot cause undefined
  // behaviour; the result is negative for an inverted rectangle.
  constexpr std::int32_t Width() const { return Difference(this->right, this->left); }
  constexpr std::int32_t Height() const { return Difference(this->bottom, this->top); }
  constexpr bool IsAllZero() const {
    return this->left == 0 && this->top == 0 && this->right == 0 && this->bottom == 0;
  }
  constexpr bool IsEmpty() const { return Width() <= 0 || Height() <= 0; }

  friend constexpr bool operator==(const ParamRect& a, const ParamRect& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
  }
  friend constexpr bool operator!=(const ParamRect& a, const ParamRect& b) { return !(a == b); }

 private:
  static constexpr std::int32_t Difference(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
  }
};

}  // namespace OXR

// The library names these two unqualified in its signatures, as hosts traditionally declare them.
using OXR::CPoint;
using OXR::CRect;
