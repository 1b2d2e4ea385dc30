// The reporting helper: what reaches the host's assertion service, and when nothing does.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include "Runtime/FailureReport.h"

namespace {

class FailureReport : public testing::Test {
 protected:
  void SetUp() override { zelcore::debug::SetAssertionOutputQuiet(true); }
  void TearDown() override { zelcore::debug::SetAssertionOutputQuiet(false); }
};

TEST_F(FailureReport, SuccessReportsNothing) {
  const unsigned before = zelcore::debug::AssertionReportCount();
  EXPECT_TRUE(LM_CUDA_SUCCEEDED(0, "Context creation failure: "));
  EXPECT_TRUE(LM_OPENCL_SUCCEEDED(0, "Context creation failure: "));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before);
}

TEST_F(FailureReport, AFailureIsReportedWithConditionStepNameSourceAndLine) {
  const unsigned before = zelcore::debug::AssertionReportCount();
  const int line = __LINE__ + 1;
  EXPECT_FALSE(LM_CUDA_SUCCEEDED(2, "Context creation failure: "));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  const std::string report = zelcore::debug::LastAssertionReport();
  EXPECT_NE(report.find("result == CUDA_SUCCESS"), std::string::npos) << report;
  EXPECT_NE(report.find("Context creation failure: CUDA_ERROR_OUT_OF_MEMORY"), std::string::npos) << report;
  EXPECT_NE(report.find("FailureReportTest:" + std::to_string(line)), std::string::npos) << report;

  EXPECT_FALSE(LM_OPENCL_SUCCEEDED(-11, "Build failure: "));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 2);
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("result == CL_SUCCESS"), std::string::npos);
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("Build failure: CL_SUCL_BUILD_PROGRAM_FAILURECCESS"),
            std::string::npos);
}

TEST_F(FailureReport, ASilencedSiteStaysQuietAndStillFails) {
  bool silenced = true;
  const unsigned before = zelcore::debug::AssertionReportCount();
  EXPECT_FALSE(LM::CheckCUDAResult(999, "Step: ", &silenced, __FILE__, __LINE__));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before);

  bool active = false;
  EXPECT_FALSE(LM::CheckCUDAResult(999, "Step: ", &active, __FILE__, __LINE__));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("Step: CUDA_ERROR_UNKNOWN"), std::string::npos);
}

TEST(SourceName, IsTheLastPathComponentWithoutExtension) {
  EXPECT_EQ(LM::SourceName("Src/Devices/Device.cpp"), "Device");
  EXPECT_EQ(LM::SourceName("..\\..\\Src\\ModuleManager"), "ModuleManager");
  EXPECT_EQ(LM::SourceName("Device"), "Device");
  EXPECT_EQ(LM::SourceName("/a.b/c.tar.gz"), "c.tar");
  EXPECT_EQ(LM::SourceName(".hidden"), ".hidden");
  EXPECT_EQ(LM::SourceName(nullptr), "");
}

}  // namespace
