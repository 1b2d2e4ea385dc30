// Symbolic result names as they appear in failure messages.
#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <set>
#include <string>

#include "Runtime/ResultNames.h"

namespace {

TEST(ResultNames, CUDANamesStopAtTheCodesOurLogsKnow) {
  EXPECT_STREQ(LM::CUDAResultName(0), "CUDA_SUCCESS");
  EXPECT_STREQ(LM::CUDAResultName(2), "CUDA_ERROR_OUT_OF_MEMORY");
  EXPECT_STREQ(LM::CUDAResultName(211), "CUDA_ERROR_NOT_MAPPED");
  EXPECT_STREQ(LM::CUDAResultName(703), "CUDA_ERROR_LAUNCH_INCOMPATIBLE_TEXTURING");
  EXPECT_STREQ(LM::CUDAResultName(999), "CUDA_ERROR_UNKNOWN");
  // Gaps in the table and the driver's later additions (212 and up) stay unrecognized.
  for (int code : {5, 99, 203, 204, 212, 302, 704, 998, 1000, -1, INT_MAX, INT_MIN}) {
    EXPECT_STREQ(LM::CUDAResultName(code), "Unrecognized CUDA result") << code;
  }
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

// 0 to -12 and -30 to -63 are named, each its own "CL_" name; nothing else is.
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
  EXPECT_STREQ(LM::OpenCLResultName(0), "CL_SUCCESS");
  EXPECT_STREQ(LM::OpenCLResultName(-1), "CL_DEVICE_NOT_FOUND");
  EXPECT_STREQ(LM::OpenCLResultName(-4), "CL_MEM_OBJECT_ALLOCATION_FAILURE");
  EXPECT_STREQ(LM::OpenCLResultName(-10), "CL_IMAGE_FORMAT_NOT_SUPPORTED");
  EXPECT_STREQ(LM::OpenCLResultName(-12), "CL_MAP_FAILURE");
  EXPECT_STREQ(LM::OpenCLResultName(-30), "CL_INVALID_VALUE");
  EXPECT_STREQ(LM::OpenCLResultName(-46), "CL_INVALID_KERNEL_NAME");
  EXPECT_STREQ(LM::OpenCLResultName(-54), "CL_INVALID_WORK_GROUP_SIZE");
  EXPECT_STREQ(LM::OpenCLResultName(-63), "CL_INVALID_GLOBAL_WORK_SIZE");
  for (int code : {1, 5, -64, -1001, INT_MIN, INT_MAX}) {
    EXPECT_STREQ(LM::OpenCLResultName(code), "Unrecognized OpenCL result") << code;
  }
}

TEST(ResultNames, TheBuildFailureKeepsItsLoggedSpelling) {
  EXPECT_STREQ(LM::OpenCLResultName(-11), "CL_SUCL_BUILD_PROGRAM_FAILURECCESS");
}

}  // namespace
