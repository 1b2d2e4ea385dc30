// The memory recycler and identifiers.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>

#include "zelcore/Utility.h"

namespace {

using zelcore::utility::Guid;
using zelcore::utility::MemoryRecycler;

TEST(HostMemoryRecycler, ReusesRecycledBlocksByPageClass) {
  MemoryRecycler::Trim();
  std::size_t actual = 0;
  void* block = MemoryRecycler::Allocate(5000, actual);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(actual, 8192u);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 4096, 0u);
  std::memset(block, 0xAB, actual);

  MemoryRecycler::Recycle(block, actual);
  EXPECT_EQ(MemoryRecycler::CachedBytes(), 8192u);
  std::size_t again = 0;
  EXPECT_EQ(MemoryRecycler::Allocate(8192, again), block);
  EXPECT_EQ(again, 8192u);
  EXPECT_EQ(MemoryRecycler::CachedBytes(), 0u);

  // A block recycled under its requested size lands in its own class, not a smaller one.
  MemoryRecycler::Recycle(block, 5000);
  std::size_t other = 0;
  void* smaller = MemoryRecycler::Allocate(4096, other);
  EXPECT_NE(smaller, block);
  MemoryRecycler::Recycle(smaller, other);
  MemoryRecycler::Trim();

  EXPECT_EQ(MemoryRecycler::Allocate(std::numeric_limits<std::size_t>::max(), actual), nullptr);
  EXPECT_EQ(actual, 0u);
}

TEST(HostGuid, ParsesPrintsOrdersAndRejectsMalformedText) {
  Guid guid;
  ASSERT_TRUE(Guid::Parse("0123ABCD-4567-89ab-CDEF-0011223344FF", guid));
  EXPECT_EQ(guid.ToString(), "0123abcd-4567-89ab-cdef-0011223344ff");
  EXPECT_EQ(guid, Guid(0x0123ABCDu, 0x4567, 0x89AB, 0xCD, 0xEF, 0x00, 0x11, 0x22, 0x33, 0x44, 0xFF));

  const Guid original = Guid::Create();
  for (const char* text : {"", "0123abcd-4567-89ab-cdef-0011223344f", "0123abcd-4567-89ab-cdef-0011223344ff0",
                           "0123abcd-4567-89ab-cdef0-011223344ff", "0123abcg-4567-89ab-cdef-0011223344ff",
                           "{123abcd-4567-89ab-cdef-0011223344ff}"}) {
    Guid out = original;
    EXPECT_FALSE(Guid::Parse(text, out)) << text;
    EXPECT_EQ(out, original);
  }

  // Ordered byte-wise as unsigned.
  Guid a, b, c;
  ASSERT_TRUE(Guid::Parse("7fffffff-ffff-ffff-ffff-ffffffffffff", a));
  ASSERT_TRUE(Guid::Parse("80000000-0000-0000-0000-000000000000", b));
  ASSERT_TRUE(Guid::Parse("80000000-0000-0000-0000-000000000001", c));
  EXPECT_TRUE(a < b);
  EXPECT_TRUE(b < c);
  EXPECT_FALSE(c < b);
  EXPECT_FALSE(b < b);
}

}  // namespace
