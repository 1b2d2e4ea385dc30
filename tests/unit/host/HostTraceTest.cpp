// Trace categories, the change counter and the sink.
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "zelcore/Trace.h"

namespace {

using namespace zelcore::trace;

TEST(HostTrace, CategoriesComeFromTheEnvironmentAtFirstUse) {
  // Checked in a freshly started copy of this program, where this is surely the first use.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("LUMORA_TRACE", "Lumora; Other", 1);
  const auto check = [] {
    const bool ok = TraceEnabled("Lumora", 0, 1) && TraceEnabled("Other", 3, 0) &&
                    !TraceEnabled("lumora", 0, 1) && !TraceEnabled(nullptr, 0, 1);
    std::exit(ok ? 0 : 1);
  };
  EXPECT_EXIT(check(), ::testing::ExitedWithCode(0), "");
}

TEST(HostTrace, SetTraceCategoriesParsesListsAndTheWildcard) {
  SetTraceCategories(" A ,B;;C ");
  EXPECT_TRUE(TraceEnabled("A", 0, 0));
  EXPECT_TRUE(TraceEnabled("B", 0, 0));
  EXPECT_TRUE(TraceEnabled("C", 0, 0));
  EXPECT_FALSE(TraceEnabled("D", 0, 0));
  EXPECT_FALSE(TraceEnabled("", 0, 0));

  SetTraceCategories("*");
  EXPECT_TRUE(TraceEnabled("Anything", 0, 0));

  SetTraceCategories("");
  EXPECT_FALSE(TraceEnabled("A", 0, 0));
  EXPECT_FALSE(TraceEnabled("Anything", 0, 0));
}

TEST(HostTrace, ChangeCounterStartsNonZeroAndMovesOnEveryChange) {
  // A caller caching answers starts with a counter of 0; it must see a difference at once.
  const unsigned first = TraceChangeCounter();
  EXPECT_NE(first, 0u);
  SetTraceCategories("Lumora");
  const unsigned second = TraceChangeCounter();
  EXPECT_NE(second, first);
  SetTraceCategories("Lumora");
  EXPECT_NE(TraceChangeCounter(), second);
}

TEST(HostTrace, LinesGoToTheSinkOrToStandardError) {
  std::vector<std::string> lines;
  SetTraceSink([&lines](const std::string& line) { lines.push_back(line); });
  WriteTrace("<1> <Lumora> <0> one\n");
  WriteTrace("two\n");
  EXPECT_EQ(lines, (std::vector<std::string>{"<1> <Lumora> <0> one\n", "two\n"}));

  SetTraceSink(boost::function<void(const std::string&)>());
  ::testing::internal::CaptureStderr();
  WriteTrace("three\n");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "three\n");
  EXPECT_EQ(lines.size(), 2u);
}

TEST(HostTrace, ASinkMayThrowOrReplaceItself) {
  SetTraceSink([](const std::string&) { throw std::runtime_error("sink broken"); });
  EXPECT_NO_THROW(WriteTrace("lost\n"));

  int calls = 0;
  SetTraceSink([&calls](const std::string&) {
    ++calls;
    SetTraceSink(boost::function<void(const std::string&)>());
  });
  WriteTrace("once\n");
  ::testing::internal::CaptureStderr();
  WriteTrace("after\n");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "after\n");
  EXPECT_EQ(calls, 1);
}

}  // namespace
