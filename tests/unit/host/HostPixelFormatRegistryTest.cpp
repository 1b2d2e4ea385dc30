// The reverse lookup from a property word and the registration of formats outside the table. Each test
// runs in its own process, so registrations do not leak between tests.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "zelmediatypes/PixelFormatTable.h"

namespace zmt = zelmediatypes;

namespace {

constexpr std::uint32_t kBad = 0x66646162u;
// A 4:2:2 8-bit word with a component order the table does not use, so only registration can name it.
constexpr std::uint32_t kCustom422 = 0x00800000u | 0x00040000u | 0x400u | 0x180u;  // order 8, 4:2:2, no alpha

TEST(HostPixelFormatGuess, NamesEveryTableWordAndNothingElse) {
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  for (std::size_t i = 0; i < count; ++i)
    EXPECT_EQ(zmt::GuessNameForProperties(table[i].format.properties), table[i].format.code) << table[i].name;

  EXPECT_EQ(zmt::GuessNameForProperties(0), kBad);
  EXPECT_EQ(zmt::GuessNameForProperties(0x00080096u), kBad);
  EXPECT_EQ(zmt::GuessNameForProperties(0x000C0000u), 0u);
  EXPECT_EQ(zmt::GuessNameForProperties(kCustom422), 0u);
}

TEST(HostPixelFormatRegistry, RegistrationRules) {
  // Table formats register as no-ops; a table code or word cannot be taken by another.
  const zmt::PixelFormat gpu = zmt::kPixelFormat_GPU_BGRA_4444_16f, bgra = zmt::kPixelFormat_BGRA_4444_8u;
  EXPECT_TRUE(zmt::RegisterCustomPixelFormatProperties(gpu.code, gpu.properties));
  EXPECT_FALSE(
      zmt::RegisterCustomPixelFormatProperties(bgra.code, zmt::kPixelFormat_BGRA_4444_32f.properties));
  EXPECT_FALSE(
      zmt::RegisterCustomPixelFormatProperties(zmt::MakeFormatCode('n', 'e', 'w', '1'), bgra.properties));
  EXPECT_EQ(zmt::GuessNameForProperties(bgra.properties), bgra.code);

  // Words and codes that cannot name a format.
  const std::uint32_t code = zmt::MakeFormatCode('n', 'e', 'w', '3');
  EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(code, zmt::kPixelFormatProperties_Any));
  EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(code, kCustom422 & ~0x40000u));
  for (std::uint32_t bad : {0u, kBad})
    EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(bad, kCustom422));
  EXPECT_EQ(zmt::GuessNameForProperties(kCustom422), 0u);

  // A registered pair is named and sized; the code and the word are then taken.
  ASSERT_TRUE(zmt::RegisterCustomPixelFormatProperties(code, kCustom422));
  EXPECT_TRUE(zmt::RegisterCustomPixelFormatProperties(code, kCustom422));
  EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(code, kCustom422 | 0x20u));
  EXPECT_FALSE(zmt::RegisterCustomPixelFormatProperties(zmt::MakeFormatCode('n', 'e', 'w', '4'), kCustom422));
  EXPECT_EQ(zmt::GuessNameForProperties(kCustom422), code);
  EXPECT_EQ(zmt::PixelFormatSize({code, kCustom422}, 3, 2), 16u) << "4 bytes per pair of pixels";
  EXPECT_EQ(zmt::PixelFormatSize({code, kCustom422 | 0x20u}, 3, 2), 0u) << "not the registered word";
}

TEST(HostPixelFormatRegistry, ConcurrentRegistrationsAllLand) {
  constexpr int kThreads = 8;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failures] {
      const std::uint32_t shared = zmt::MakeFormatCode('s', 'h', 'r', 'd');
      for (int i = 0; i < 50; ++i) {
        const std::uint32_t own =
            zmt::MakeFormatCode('c', char('a' + t), char('a' + i % 26), char('a' + i / 26));
        const std::uint32_t word = 0x00040000u | std::uint32_t(t * 50 + i + 1) << 20;
        if (!zmt::RegisterCustomPixelFormatProperties(own, word)) ++failures;
        if (!zmt::RegisterCustomPixelFormatProperties(shared, 0x00040000u | 0x40u)) ++failures;
        if (zmt::GuessNameForProperties(word) != own) ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
