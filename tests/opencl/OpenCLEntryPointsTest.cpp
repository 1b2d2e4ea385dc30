// The OpenCL entry points are bound on first use; a missing runtime or entry point is an error code, never a
// crash. Each test runs in its own process, so each sees a first use.
#include <gtest/gtest.h>

#include "Lumora/Runtime.h"
#include "Runtime/OpenCLEntryPoints.h"

namespace {

TEST(OpenCLEntryPoints, TheInstalledRuntimeIsReachedOnFirstUse) {
  cl_uint platforms = 0;
  ASSERT_EQ(clGetPlatformIDs(0, nullptr, &platforms), CL_SUCCESS) << "is an OpenCL runtime (PoCL) installed?";
  ASSERT_GT(platforms, 0u);
  cl_platform_id platform = nullptr;
  ASSERT_EQ(clGetPlatformIDs(1, &platform, nullptr), CL_SUCCESS);
  char name[256] = {};
  EXPECT_EQ(clGetPlatformInfo(platform, CL_PLATFORM_NAME, sizeof name, name, nullptr), CL_SUCCESS);
  EXPECT_GT(std::string(name).size(), 0u);
  // A bad handle reaches the runtime, which answers with its own error.
  EXPECT_NE(clGetPlatformInfo(platform, 0xFFFF, sizeof name, name, nullptr), CL_SUCCESS);
}

}  // namespace
