// Interface references, reference-counted objects, geometry wrappers and the null-interface exception.
#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

#include "OXR/Allocated.h"
#include "OXR/Exceptions.h"
#include "OXR/Geometry.h"
#include "OXR/InterfaceRef.h"

namespace {

using OXR::Allocated;
using OXR::InterfaceRef;
using zelcore::utility::Guid;

constexpr Guid kIIDShape(0x11111111u, 0x2222, 0x3333, 0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x01);
constexpr Guid kIIDNamed(0x11111111u, 0x2222, 0x3333, 0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x02);
constexpr Guid kIIDMissing(0x11111111u, 0x2222, 0x3333, 0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x03);

class IShape : public OXR::OXRUnknown {
 public:
  virtual int Area() const = 0;
};

class INamed : public OXR::OXRUnknown {
 public:
  virtual const char* Name() const = 0;
};

// Two interfaces in one object, so lookups must adjust the pointer; counts its destructions.
class Square : public IShape, public INamed {
 public:
  Square(int side, int* destroyed) : side_(side), destroyed_(destroyed) {}
  ~Square() override { ++*destroyed_; }

  int Area() const override { return side_ * side_; }
  const char* Name() const override { return "square"; }

  int QueryInterface(const Guid& iid, void** out) override {
    *out = nullptr;
    if (iid == kIIDShape) *out = static_cast<IShape*>(this);
    if (iid == kIIDNamed) *out = static_cast<INamed*>(this);
    if (*out == nullptr) return OXR::kResultNoInterface;
    static_cast<IShape*>(this)->AddRef();
    return OXR::kResultOK;
  }

 private:
  int side_;
  int* destroyed_;
};

class Fragile : public IShape {
 public:
  explicit Fragile(bool fail) {
    if (fail) throw std::bad_alloc();
  }
  int Area() const override { return 0; }
  int QueryInterface(const Guid&, void** out) override {
    *out = nullptr;
    return OXR::kResultNoInterface;
  }
};

TEST(HostInterfaceRef, AttachTakesOverTheCreatorsReferenceAndTheLastReleaseDeletes) {
  int destroyed = 0;
  {
    InterfaceRef<Allocated<Square>> square;
    square.Attach(Allocated<Square>::Create(3, &destroyed));
    ASSERT_TRUE(square);
    EXPECT_EQ(square->ReferenceCount(), 1u);
    EXPECT_EQ(square->Area(), 9);

    InterfaceRef<Allocated<Square>> copy = square;
    EXPECT_EQ(square->ReferenceCount(), 2u);
    InterfaceRef<Allocated<Square>> moved = std::move(copy);
    EXPECT_FALSE(copy);
    EXPECT_EQ(square->ReferenceCount(), 2u);

    InterfaceRef<IShape> base = square;  // derived to base
    EXPECT_EQ(square->ReferenceCount(), 3u);
    base = base;
    EXPECT_EQ(square->ReferenceCount(), 3u);
    moved.Reset();
    base.Reset();
    EXPECT_EQ(square->ReferenceCount(), 1u);

    InterfaceRef<IShape> borrowed(square.Get());  // a raw pointer is borrowed: a reference is added
    EXPECT_EQ(square->ReferenceCount(), 2u);
    IShape* detached = borrowed.Detach();
    EXPECT_FALSE(borrowed);
    EXPECT_EQ(detached->Release(), 1u);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(HostInterfaceRef, QueryFromFindsOtherInterfacesWithAReference) {
  int destroyed = 0;
  InterfaceRef<IShape> shape;
  shape.Attach(Allocated<Square>::Create(4, &destroyed));

  InterfaceRef<INamed> named;
  ASSERT_TRUE(named.QueryFrom(shape, kIIDNamed));
  EXPECT_STREQ(named->Name(), "square");
  EXPECT_EQ(static_cast<Allocated<Square>*>(shape.Get())->ReferenceCount(), 2u);

  InterfaceRef<IShape> back;
  ASSERT_TRUE(back.QueryFrom(named, kIIDShape));
  EXPECT_EQ(back, shape);
  EXPECT_EQ(back->Area(), 16);

  EXPECT_FALSE(back.QueryFrom(named, kIIDMissing));
  EXPECT_FALSE(back);
  EXPECT_TRUE(back == nullptr);
  EXPECT_FALSE(back.QueryFrom(InterfaceRef<INamed>(), kIIDShape));

  shape.Reset();
  EXPECT_EQ(destroyed, 0);
  named.Reset();
  EXPECT_EQ(destroyed, 1);
}

TEST(HostInterfaceRef, ConcurrentCopiesKeepTheCountExact) {
  int destroyed = 0;
  InterfaceRef<IShape> shape;
  shape.Attach(Allocated<Square>::Create(1, &destroyed));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([shape] {
      for (int i = 0; i < 5000; ++i) {
        InterfaceRef<IShape> copy = shape;
        InterfaceRef<INamed> named;
        named.QueryFrom(copy, kIIDNamed);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(static_cast<Allocated<Square>*>(shape.Get())->ReferenceCount(), 1u);
  shape.Reset();
  EXPECT_EQ(destroyed, 1);
}

TEST(HostAllocated, AllocationFailureGivesNullAndThrowIfNullTurnsItIntoTheException) {
  EXPECT_EQ(Allocated<Fragile>::Create(true), nullptr);
  EXPECT_THROW(OXR::ThrowIfNull(Allocated<Fragile>::Create(true)), OXR::NullInterfaceException);

  Allocated<Fragile>* made = OXR::ThrowIfNull(Allocated<Fragile>::Create(false));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->Release(), 0u);
}

TEST(HostGeometry, RectanglesMeasureAndTestTheirCorners) {
  static_assert(std::is_trivially_copyable<OXR::ParamRect<CRect>>::value, "passed by value");
  static_assert(std::is_trivially_copyable<OXR::ParamPoint<CPoint>>::value, "passed by value");

  const OXR::ParamRect<CRect> rect(10, 20, 110, 70);
  EXPECT_EQ(rect.Width(), 100);
  EXPECT_EQ(rect.Height(), 50);
  EXPECT_FALSE(rect.IsAllZero());
  EXPECT_FALSE(rect.IsEmpty());
  EXPECT_TRUE(OXR::ParamRect<CRect>().IsAllZero());
  EXPECT_TRUE(OXR::ParamRect<CRect>(5, 5, 5, 9).IsEmpty());

  // Extreme coordinates wrap instead of overflowing (the sanitizer build would stop on overflow).
  const OXR::ParamRect<CRect> extreme(INT_MIN, INT_MIN, INT_MAX, INT_MAX);
  EXPECT_EQ(extreme.Width(), -1);
  EXPECT_TRUE(extreme.IsEmpty());

  EXPECT_EQ(OXR::ParamPoint<CPoint>(3, -4), OXR::ParamPoint<CPoint>(CPoint{3, -4}));
}

}  // namespace
