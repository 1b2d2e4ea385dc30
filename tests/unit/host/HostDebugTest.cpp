// The debug database and assertion reports.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "zelcore/Debug.h"

namespace {

using zelcore::debug::DebugDatabase;

std::string LookupOr(const std::string& key, const std::string& fallback) {
  std::string value;
  return DebugDatabase::Instance().Lookup(key, value) ? value : fallback;
}

class HostDebugDatabase : public ::testing::Test {
 protected:
  void TearDown() override {
    unsetenv("LUMORA_DEBUG");
    DebugDatabase::Instance().Reload();
  }
};

TEST_F(HostDebugDatabase, ParsesEntriesTrimmingBlanksAndSkippingMalformedOnes) {
  setenv("LUMORA_DEBUG", " LM.EnableOpenCL = true ;;path=a=b; noEquals ; =orphan;Empty=  ;Dup=1;Dup=2", 1);
  DebugDatabase::Instance().Reload();

  EXPECT_EQ(LookupOr("LM.EnableOpenCL", "<missing>"), "true");
  EXPECT_EQ(LookupOr("path", "<missing>"), "a=b");
  EXPECT_EQ(LookupOr("Empty", "<missing>"), "");
  EXPECT_EQ(LookupOr("Dup", "<missing>"), "2");
  EXPECT_EQ(LookupOr("noEquals", "<missing>"), "<missing>");
  EXPECT_EQ(LookupOr("", "<missing>"), "<missing>");
  EXPECT_EQ(LookupOr(" LM.EnableOpenCL ", "<missing>"), "<missing>");
}

TEST_F(HostDebugDatabase, ReadsTheEnvironmentAtFirstUse) {
  // Checked in a freshly started copy of this program, where this is surely the first use.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("LUMORA_DEBUG", "First=1", 1);
  EXPECT_EXIT(std::exit(LookupOr("First", "<missing>") == "1" ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

TEST_F(HostDebugDatabase, SetOverridesTheEnvironmentUntilReload) {
  setenv("LUMORA_DEBUG", "Key=fromEnv;Other=x", 1);
  DebugDatabase& db = DebugDatabase::Instance();
  db.Reload();

  db.Set("Key", "fromSet");
  db.Set("New", "n");
  db.Remove("Other");
  EXPECT_EQ(LookupOr("Key", "<missing>"), "fromSet");
  EXPECT_EQ(LookupOr("New", "<missing>"), "n");
  EXPECT_EQ(LookupOr("Other", "<missing>"), "<missing>");

  db.Reload();
  EXPECT_EQ(LookupOr("Key", "<missing>"), "fromEnv");
  EXPECT_EQ(LookupOr("Other", "<missing>"), "x");
  EXPECT_EQ(LookupOr("New", "<missing>"), "<missing>");

  unsetenv("LUMORA_DEBUG");
  db.Reload();
  EXPECT_EQ(LookupOr("Key", "<missing>"), "<missing>");
}

TEST(HostAssertionReport, CountsKeepsAndWritesReports) {
  const unsigned before = zelcore::debug::AssertionReportCount();
  ::testing::internal::CaptureStderr();
  const bool breakRequested = zelcore::debug::BreakAfterAssertDialog(nullptr, "result == CUDA_SUCCESS",
                                                                     "cuInit failed", "Device", 42);
  const std::string written = ::testing::internal::GetCapturedStderr();

  EXPECT_FALSE(breakRequested);
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  const std::string expected = "Assertion failed: result == CUDA_SUCCESS: cuInit failed (Device:42)";
  EXPECT_EQ(zelcore::debug::LastAssertionReport(), expected);
  EXPECT_EQ(written, expected + "\n");

  bool silence = false;
  zelcore::debug::BreakAfterAssertDialog(&silence, "c", "m", "File", 7, "Function");
  EXPECT_EQ(zelcore::debug::LastAssertionReport(), "Assertion failed: c: m (File:7 Function)");
}

TEST(HostAssertionReport, SilencedSitesAreDroppedAndQuietOutputIsOnlyKept) {
  zelcore::debug::BreakAfterAssertDialog(nullptr, "first", "kept", "File", 1);
  const unsigned before = zelcore::debug::AssertionReportCount();
  bool silence = true;
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(zelcore::debug::BreakAfterAssertDialog(&silence, "second", "dropped", "File", 2));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before);
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("first"), std::string::npos);

  zelcore::debug::SetAssertionOutputQuiet(true);
  ::testing::internal::CaptureStderr();
  zelcore::debug::BreakAfterAssertDialog(nullptr, nullptr, nullptr, nullptr, 0, nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  EXPECT_EQ(zelcore::debug::LastAssertionReport(), "Assertion failed: :  (:0)");
  zelcore::debug::SetAssertionOutputQuiet(false);
}

}  // namespace
