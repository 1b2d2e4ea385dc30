// Failure reports: the symbolic result names they carry, what reaches the host's assertion service, and
// when nothing does.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <climits>
#include <map>
#include <set>
#include <string>

#include "Runtime/FailureReport.h"
#include "Runtime/ResultNames.h"

namespace {

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(ResultNames, CUDANamesStopAtTheCodesOurLogsKnow) {
  const std::map<int, std::string> known = {{0, "CUDA_SUCCESS"},
                                            {2, "CUDA_ERROR_OUT_OF_MEMORY"},
                                            {211, "CUDA_ERROR_NOT_MAPPED"},
                                            {703, "CUDA_ERROR_LAUNCH_INCOMPATIBLE_TEXTURING"},
                                            {999, "CUDA_ERROR_UNKNOWN"}};
  for (const auto& [code, name] : known) EXPECT_EQ(LM::CUDAResultName(code), name);
  // Gaps in the table and the driver's later additions (212 and up) stay unrecognized.
  for (int code : {5, 99, 203, 204, 212, 302, 704, 998, 1000, -1, INT_MAX, INT_MIN})
    EXPECT_STREQ(LM::CUDAResultName(code), "Unrecognized CUDA result") << code;
  std::set<std::string> names;
  int named = 0;
  for (int code = -5; code <= 1100; ++code) {
    const std::string name = LM::CUDAResultName(code);
    if (name == "Unrecognized CUDA result") continue;
    ++named;
    EXPECT_EQ(name.rfind("CUDA_", 0), 0u) << code;
    names.insert(name);
  }
  EXPECT_EQ(named, 27);
  EXPECT_EQ(names.size(), 27u) << "no name stands for two codes";
}

// 0 to -12 and -30 to -63 are named, each its own "CL_" name; nothing else is. The build failure keeps its
// logged spelling.
TEST(ResultNames, OpenCLNamesCoverTheTwoStandardRangesOnly) {
  std::map<std::string, int> seen;
  for (int code = 0; code >= -63; --code) {
    const std::string name = LM::OpenCLResultName(code);
    if (code < -12 && code > -30) {
      EXPECT_EQ(name, "Unrecognized OpenCL result") << code;
      continue;
    }
    EXPECT_EQ(name.rfind("CL_", 0), 0u) << code;
    EXPECT_TRUE(seen.emplace(name, code).second) << name << " names both " << seen[name] << " and " << code;
  }
  const std::map<int, std::string> known = {{0, "CL_SUCCESS"},
                                            {-1, "CL_DEVICE_NOT_FOUND"},
                                            {-4, "CL_MEM_OBJECT_ALLOCATION_FAILURE"},
                                            {-10, "CL_IMAGE_FORMAT_NOT_SUPPORTED"},
                                            {-11, "CL_SUCL_BUILD_PROGRAM_FAILURECCESS"},
                                            {-12, "CL_MAP_FAILURE"},
                                            {-30, "CL_INVALID_VALUE"},
                                            {-46, "CL_INVALID_KERNEL_NAME"},
                                            {-54, "CL_INVALID_WORK_GROUP_SIZE"},
                                            {-63, "CL_INVALID_GLOBAL_WORK_SIZE"}};
  for (const auto& [code, name] : known) EXPECT_EQ(LM::OpenCLResultName(code), name);
  for (int code : {1, 5, -64, -1001, INT_MIN, INT_MAX})
    EXPECT_STREQ(LM::OpenCLResultName(code), "Unrecognized OpenCL result") << code;
}

// A success reports nothing; a failure reports condition, step, name, source and line, unless its site is
// silenced, and fails either way.
TEST(FailureReport, AFailureIsReportedWithConditionStepNameSourceAndLineUnlessSilenced) {
  zelcore::debug::SetAssertionOutputQuiet(true);
  const unsigned before = zelcore::debug::AssertionReportCount();
  EXPECT_TRUE(LM_CUDA_SUCCEEDED(0, "Context creation failure: "));
  EXPECT_TRUE(LM_OPENCL_SUCCEEDED(0, "Context creation failure: "));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before);

  const int line = __LINE__ + 1;
  EXPECT_FALSE(LM_CUDA_SUCCEEDED(2, "Context creation failure: "));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  const std::string report = zelcore::debug::LastAssertionReport();
  for (const std::string& part : {std::string("result == CUDA_SUCCESS"),
                                  std::string("Context creation failure: CUDA_ERROR_OUT_OF_MEMORY"),
                                  "FailureReportTest:" + std::to_string(line)})
    EXPECT_TRUE(Has(report, part)) << report;
  EXPECT_FALSE(LM_OPENCL_SUCCEEDED(-11, "Build failure: "));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 2);
  EXPECT_TRUE(Has(zelcore::debug::LastAssertionReport(), "result == CL_SUCCESS"));
  EXPECT_TRUE(
      Has(zelcore::debug::LastAssertionReport(), "Build failure: CL_SUCL_BUILD_PROGRAM_FAILURECCESS"));

  bool silenced = true, active = false;
  EXPECT_FALSE(LM::CheckCUDAResult(999, "Step: ", &silenced, __FILE__, __LINE__));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 2);
  EXPECT_FALSE(LM::CheckCUDAResult(999, "Step: ", &active, __FILE__, __LINE__));
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 3);
  EXPECT_TRUE(Has(zelcore::debug::LastAssertionReport(), "Step: CUDA_ERROR_UNKNOWN"));
}

TEST(SourceName, IsTheLastPathComponentWithoutExtension) {
  const std::map<std::string, std::string> cases = {{"Src/Devices/Device.cpp", "Device"},
                                                    {"..\\..\\Src\\ModuleManager", "ModuleManager"},
                                                    {"Device", "Device"},
                                                    {"/a.b/c.tar.gz", "c.tar"},
                                                    {".hidden", ".hidden"}};
  for (const auto& [path, name] : cases) EXPECT_EQ(LM::SourceName(path.c_str()), name) << path;
  EXPECT_EQ(LM::SourceName(nullptr), "");
}

}  // namespace
