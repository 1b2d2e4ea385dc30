// The suite registry.
#include <gtest/gtest.h>

#include <cstdint>

#include "TQ/Suites.h"

namespace {

struct CounterSuite {
  std::uint32_t (*twice)(std::uint32_t value);
};

std::uint32_t Twice(std::uint32_t value) {
  return value * 2;
}
std::uint32_t Thrice(std::uint32_t value) {
  return value * 3;
}

TEST(HostSuiteRegistry, AcquiresACopyOfTheRegisteredTableByNameVersionAndSize) {
  CounterSuite suite{Twice};
  ASSERT_EQ(TQ::RegisterSuite("Counter Suite", 1, &suite, sizeof suite), 0);
  suite.twice = Thrice;  // the registry holds its own copy

  CounterSuite acquired{nullptr};
  ASSERT_TRUE(TQ::AcquireSuite("Counter Suite", 1, &acquired, sizeof acquired));
  EXPECT_EQ(acquired.twice(21), 42u);

  // Re-registration replaces; other versions, names and sizes are refused and leave the output alone.
  ASSERT_EQ(TQ::RegisterSuite("Counter Suite", 1, &suite, sizeof suite), 0);
  ASSERT_TRUE(TQ::AcquireSuite("Counter Suite", 1, &acquired, sizeof acquired));
  EXPECT_EQ(acquired.twice(2), 6u);
  CounterSuite untouched{nullptr};
  EXPECT_FALSE(TQ::AcquireSuite("Counter Suite", 2, &untouched, sizeof untouched));
  EXPECT_FALSE(TQ::AcquireSuite("Unknown", 1, &untouched, sizeof untouched));
  EXPECT_FALSE(TQ::AcquireSuite("Counter Suite", 1, &untouched, sizeof untouched - 1));
  EXPECT_EQ(untouched.twice, nullptr);
  EXPECT_NE(TQ::RegisterSuite("Null", 1, nullptr, 8), 0);
}

}  // namespace
