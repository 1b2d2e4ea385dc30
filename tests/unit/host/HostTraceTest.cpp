// Trace categories and the change counter.
#include <gtest/gtest.h>

#include <cstdlib>

#include "zelcore/Trace.h"

namespace {

using namespace zelcore::trace;

TEST(HostTrace, CategoriesComeFromTheEnvironmentAtFirstUse) {
  // Checked in a freshly started copy of this program, where this is surely the first use.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("LUMORA_TRACE", "Lumora; Other", 1);
  const auto enabled = [] {
    return TraceEnabled("Lumora", 0, 1) && TraceEnabled("Other", 3, 0) && !TraceEnabled("lumora", 0, 1) &&
           !TraceEnabled(nullptr, 0, 1);
  };
  EXPECT_EXIT(std::exit(enabled() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

TEST(HostTrace, SetTraceCategoriesParsesListsAndMovesTheChangeCounter) {
  // A caller caching answers starts with a counter of 0; it must see a difference at once.
  const unsigned first = TraceChangeCounter();
  EXPECT_NE(first, 0u);
  SetTraceCategories(" A ,B;;C ");
  const unsigned second = TraceChangeCounter();
  EXPECT_NE(second, first);
  EXPECT_TRUE(TraceEnabled("A", 0, 0));
  EXPECT_TRUE(TraceEnabled("C", 0, 0));
  EXPECT_FALSE(TraceEnabled("D", 0, 0));
  EXPECT_FALSE(TraceEnabled("", 0, 0));

  SetTraceCategories("*");
  EXPECT_NE(TraceChangeCounter(), second);
  EXPECT_TRUE(TraceEnabled("Anything", 0, 0));
  SetTraceCategories("");
  EXPECT_FALSE(TraceEnabled("Anything", 0, 0));
}

}  // namespace
