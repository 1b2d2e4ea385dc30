// Interface references and reference-counted objects.
#include <gtest/gtest.h>

#include "OXR/Allocated.h"
#include "OXR/InterfaceRef.h"

namespace {

using OXR::Allocated;
using OXR::InterfaceRef;
using zelcore::utility::Guid;

class IShape : public OXR::OXRUnknown {
 public:
  virtual int Area() const = 0;
};

// Counts its destructions.
class Square : public IShape {
 public:
  Square(int side, int* destroyed) : side_(side), destroyed_(destroyed) {}
  ~Square() override { ++*destroyed_; }

  int Area() const override { return side_ * side_; }
  int QueryInterface(const Guid&, void** out) override {
    *out = nullptr;
    return OXR::kResultNoInterface;
  }

 private:
  int side_;
  int* destroyed_;
};

TEST(HostInterfaceRef, CountsReferencesThroughCopiesAndDetachAndTheLastReleaseDeletes) {
  int destroyed = 0;
  {
    InterfaceRef<Allocated<Square>> square;
    square.Attach(Allocated<Square>::Create(3, &destroyed));  // takes over the creator's reference
    ASSERT_TRUE(square);
    EXPECT_EQ(square->ReferenceCount(), 1u);

    InterfaceRef<Allocated<Square>> copy = square;
    InterfaceRef<Allocated<Square>> moved = std::move(copy);
    EXPECT_FALSE(copy);
    InterfaceRef<IShape> base = square;  // derived to base
    base = base;
    EXPECT_EQ(square->ReferenceCount(), 3u);
    EXPECT_EQ(base->Area(), 9);
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

}  // namespace
