// Physical memory, the memory recycler, the small-block allocator and identifiers.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "zelcore/Utility.h"

namespace {

using zelcore::utility::Guid;
using zelcore::utility::MemoryRecycler;
using zelcore::utility::SmallBlockAllocator;

class HostMemoryRecycler : public ::testing::Test {
 protected:
  void SetUp() override { MemoryRecycler::Trim(); }
  void TearDown() override { MemoryRecycler::Trim(); }
};

TEST_F(HostMemoryRecycler, RoundsUpToPagesAndReusesRecycledBlocks) {
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

  // A block recycled under its requested size lands in the same class.
  MemoryRecycler::Recycle(block, 5000);
  std::size_t other = 0;
  void* smaller = MemoryRecycler::Allocate(4096, other);
  EXPECT_NE(smaller, block);
  MemoryRecycler::Recycle(smaller, other);
}

TEST_F(HostMemoryRecycler, ZeroBytesGiveAUniquePageAndImpossibleSizesGiveNull) {
  std::size_t a = 1, b = 1;
  void* first = MemoryRecycler::Allocate(0, a);
  void* second = MemoryRecycler::Allocate(0, b);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  EXPECT_EQ(a, 4096u);
  MemoryRecycler::Recycle(first, a);
  MemoryRecycler::Recycle(second, 0);

  std::size_t actual = 1;
  EXPECT_EQ(MemoryRecycler::Allocate(std::numeric_limits<std::size_t>::max(), actual), nullptr);
  EXPECT_EQ(actual, 0u);
  MemoryRecycler::Recycle(nullptr, 4096);
}

TEST_F(HostMemoryRecycler, CacheIsBoundedAndOversizedClaimsAreNotKept) {
  std::vector<void*> blocks;
  for (std::size_t i = 0; i < MemoryRecycler::kMaxBlocksPerSize + 2; ++i) {
    std::size_t actual = 0;
    blocks.push_back(MemoryRecycler::Allocate(4096, actual));
    ASSERT_NE(blocks.back(), nullptr);
  }
  for (void* block : blocks) MemoryRecycler::Recycle(block, 4096);
  EXPECT_EQ(MemoryRecycler::CachedBytes(), MemoryRecycler::kMaxBlocksPerSize * 4096);

  // Recycling a one-page block as if it were a megabyte must not put it in the megabyte class.
  std::size_t actual = 0;
  void* page = MemoryRecycler::Allocate(1, actual);
  MemoryRecycler::Trim();
  MemoryRecycler::Recycle(page, 1 << 20);
  EXPECT_EQ(MemoryRecycler::CachedBytes(), 0u);
}

struct alignas(64) Wide64 {
  unsigned char bytes[64];
};

TEST(HostSmallBlockAllocator, ServesStandardContainers) {
  std::vector<int, SmallBlockAllocator<int>> numbers;
  for (int i = 0; i < 1000; ++i) numbers.push_back(i);
  EXPECT_EQ(numbers[999], 999);

  std::map<int, std::string, std::less<int>, SmallBlockAllocator<std::pair<const int, std::string>>> names;
  names[2] = "two";
  names[1] = "one";
  EXPECT_EQ(names.begin()->second, "one");

  std::vector<Wide64, SmallBlockAllocator<Wide64>> aligned(3);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(aligned.data()) % 64, 0u);

  SmallBlockAllocator<int> allocator;
  EXPECT_THROW(allocator.allocate(std::numeric_limits<std::size_t>::max()), std::bad_alloc);
}

TEST(HostGuid, ParsesPrintsAndRejectsMalformedText) {
  Guid guid;
  ASSERT_TRUE(Guid::Parse("0123ABCD-4567-89ab-CDEF-0011223344FF", guid));
  EXPECT_EQ(guid.ToString(), "0123abcd-4567-89ab-cdef-0011223344ff");
  EXPECT_EQ(guid.GetBytes()[0], 0x01);
  EXPECT_EQ(guid.GetBytes()[15], 0xFF);

  constexpr Guid constant(0x0123ABCDu, 0x4567, 0x89AB, 0xCD, 0xEF, 0x00, 0x11, 0x22, 0x33, 0x44, 0xFF);
  static_assert(!constant.IsZero(), "constexpr construction");
  EXPECT_EQ(constant, guid);
  static_assert(std::is_trivially_copyable<Guid>::value && sizeof(Guid) == 16, "a plain 16-byte value");

  const Guid original = Guid::Create();
  for (const char* text : {"", "0123abcd-4567-89ab-cdef-0011223344f", "0123abcd-4567-89ab-cdef-0011223344ff0",
                           "0123abcd+4567-89ab-cdef-0011223344ff", "0123abcd-4567-89ab-cdef0-011223344ff",
                           "0123abcg-4567-89ab-cdef-0011223344ff", "{123abcd-4567-89ab-cdef-0011223344ff}",
                           " 123abcd-4567-89ab-cdef-0011223344ff"}) {
    Guid out = original;
    EXPECT_FALSE(Guid::Parse(text, out)) << text;
    EXPECT_EQ(out, original);
  }
}

TEST(HostGuid, OrdersByteWiseAsUnsigned) {
  Guid a, b, c;
  ASSERT_TRUE(Guid::Parse("7fffffff-ffff-ffff-ffff-ffffffffffff", a));
  ASSERT_TRUE(Guid::Parse("80000000-0000-0000-0000-000000000000", b));
  ASSERT_TRUE(Guid::Parse("80000000-0000-0000-0000-000000000001", c));
  EXPECT_TRUE(a < b);
  EXPECT_TRUE(b < c);
  EXPECT_FALSE(c < b);
  EXPECT_FALSE(b < b);
  EXPECT_TRUE(Guid() < a);
  EXPECT_TRUE(Guid().IsZero());
}

TEST(HostGuid, CreatesDistinctVersionFourIdentifiers) {
  std::set<Guid> seen;
  for (int i = 0; i < 100; ++i) {
    const Guid guid = Guid::Create();
    EXPECT_EQ(guid.GetBytes()[6] >> 4, 4);
    EXPECT_EQ(guid.GetBytes()[8] >> 6, 2);
    Guid parsed;
    ASSERT_TRUE(Guid::Parse(guid.ToString(), parsed));
    EXPECT_EQ(parsed, guid);
    seen.insert(guid);
  }
  EXPECT_EQ(seen.size(), 100u);
}

}  // namespace
