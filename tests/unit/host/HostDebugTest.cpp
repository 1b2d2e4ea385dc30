// The debug database and assertion reports.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "zelcore/Debug.h"

namespace {

using zelcore::debug::DebugDatabase;

std::string LookupOr(const std::string& key) {
  std::string value;
  return DebugDatabase::Instance().Lookup(key, value) ? value : "<missing>";
}

TEST(HostDebugDatabase, ParsesEntriesAndSetOverridesTheEnvironmentUntilReload) {
  DebugDatabase& db = DebugDatabase::Instance();
  setenv("LUMORA_DEBUG", " LM.EnableOpenCL = true ;;path=a=b; noEquals ; =orphan;Empty=  ;Dup=1;Dup=2", 1);
  db.Reload();
  EXPECT_EQ(LookupOr("LM.EnableOpenCL"), "true");
  EXPECT_EQ(LookupOr("path"), "a=b");
  EXPECT_EQ(LookupOr("Empty"), "");
  EXPECT_EQ(LookupOr("Dup"), "2");
  EXPECT_EQ(LookupOr("noEquals"), "<missing>");
  EXPECT_EQ(LookupOr(""), "<missing>");

  db.Set("New", "n");
  EXPECT_EQ(LookupOr("New"), "n");
  db.SetDefault("New", "other");
  db.SetDefault("Fresh", "f");
  EXPECT_EQ(LookupOr("New") + LookupOr("Fresh"), "nf") << "a default never replaces an entry";
  db.Reload();
  EXPECT_EQ(LookupOr("New"), "<missing>");

  unsetenv("LUMORA_DEBUG");
  db.Reload();
  EXPECT_EQ(LookupOr("path"), "<missing>");
}

TEST(HostAssertionReport, CountsWritesAndSilencesReports) {
  const unsigned before = zelcore::debug::AssertionReportCount();
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(zelcore::debug::BreakAfterAssertDialog(nullptr, "result == CUDA_SUCCESS", "cuInit failed",
                                                      "Device", 42));
  const std::string expected = "Assertion failed: result == CUDA_SUCCESS: cuInit failed (Device:42)";
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), expected + "\n");
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  EXPECT_EQ(zelcore::debug::LastAssertionReport(), expected);

  // A silenced site is dropped entirely.
  bool silence = true;
  ::testing::internal::CaptureStderr();
  zelcore::debug::BreakAfterAssertDialog(&silence, "second", "dropped", "File", 2);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  EXPECT_EQ(zelcore::debug::LastAssertionReport(), expected);

  // Quiet output is still counted and kept.
  zelcore::debug::SetAssertionOutputQuiet(true);
  ::testing::internal::CaptureStderr();
  zelcore::debug::BreakAfterAssertDialog(nullptr, "c", "m", "File", 7, "Function");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  zelcore::debug::SetAssertionOutputQuiet(false);
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 2);
  EXPECT_EQ(zelcore::debug::LastAssertionReport(), "Assertion failed: c: m (File:7 Function)");
}

}  // namespace
