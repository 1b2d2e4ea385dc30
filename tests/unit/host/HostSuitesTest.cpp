// The suite registry and the headless switch.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "HQX/Headless.h"
#include "TQ/Suites.h"

namespace {

struct CounterSuite {
  std::uint32_t (*getCount)(std::uint32_t* out);
  std::uint32_t (*twice)(std::uint32_t value);
};

std::uint32_t GetCount(std::uint32_t* out) {
  if (out == nullptr) return 0x80000001u;
  *out = 3;
  return 0;
}
std::uint32_t Twice(std::uint32_t value) {
  return value * 2;
}
std::uint32_t Thrice(std::uint32_t value) {
  return value * 3;
}

TEST(HostSuiteRegistry, AHostCallsTheLibraryThroughTheAcquiredTable) {
  CounterSuite suite{GetCount, Twice};
  ASSERT_EQ(TQ::RegisterSuite("Counter Suite", 1, &suite, sizeof suite), 0);
  suite.twice = Thrice;  // the registry holds its own copy

  CounterSuite acquired{};
  ASSERT_TRUE(TQ::AcquireSuite("Counter Suite", 1, &acquired, sizeof acquired));
  std::uint32_t count = 0;
  EXPECT_EQ(acquired.getCount(&count), 0u);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(acquired.twice(21), 42u);

  // Re-registration replaces; other versions are separate.
  ASSERT_EQ(TQ::RegisterSuite("Counter Suite", 1, &suite, sizeof suite), 0);
  ASSERT_TRUE(TQ::AcquireSuite("Counter Suite", 1, &acquired, sizeof acquired));
  EXPECT_EQ(acquired.twice(2), 6u);
  EXPECT_FALSE(TQ::AcquireSuite("Counter Suite", 2, &acquired, sizeof acquired));
}

TEST(HostSuiteRegistry, RefusesUnknownNamesWrongSizesAndNullArguments) {
  CounterSuite suite{GetCount, Twice};
  ASSERT_EQ(TQ::RegisterSuite("Sized", 1, &suite, sizeof suite), 0);

  CounterSuite untouched{nullptr, nullptr};
  EXPECT_FALSE(TQ::AcquireSuite("Unknown", 1, &untouched, sizeof untouched));
  EXPECT_FALSE(TQ::AcquireSuite("Sized", 1, &untouched, sizeof untouched - 1));
  EXPECT_EQ(untouched.getCount, nullptr);
  EXPECT_FALSE(TQ::AcquireSuite(nullptr, 1, &untouched, sizeof untouched));
  EXPECT_FALSE(TQ::AcquireSuite("Sized", 1, nullptr, sizeof untouched));

  EXPECT_NE(TQ::RegisterSuite(nullptr, 1, &suite, sizeof suite), 0);
  EXPECT_NE(TQ::RegisterSuite("Null", 1, nullptr, 8), 0);
  EXPECT_FALSE(TQ::AcquireSuite("Null", 1, &untouched, 8));
}

TEST(HostHeadless, HeadlessUnlessTheSwitchIsZero) {
  unsetenv("LUMORA_HEADLESS");
  EXPECT_TRUE(HQX::GetIsHeadless());
  setenv("LUMORA_HEADLESS", "0", 1);
  EXPECT_FALSE(HQX::GetIsHeadless());
  setenv("LUMORA_HEADLESS", "1", 1);
  EXPECT_TRUE(HQX::GetIsHeadless());
  unsetenv("LUMORA_HEADLESS");
}

}  // namespace
