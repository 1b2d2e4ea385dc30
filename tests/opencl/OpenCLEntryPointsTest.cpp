// The OpenCL entry points are bound on first use; a missing runtime or entry point is an error code, never a
// crash. Each test runs in its own process, so each sees a first use.
#include <gtest/gtest.h>

#include "Lumora/Runtime.h"
#include "Runtime/OpenCLEntryPoints.h"

namespace {

TEST(OpenCLEntryPoints, WithoutARuntimeEveryCallFailsCleanly) {
  LM::OpenCLLibraryName = "/nonexistent/libOpenCL-missing.so.1";
  cl_uint platforms = 7;
  EXPECT_EQ(clGetPlatformIDs(0, nullptr, &platforms), LM::kOpenCLRuntimeUnavailable);
  EXPECT_EQ(platforms, 7u) << "nothing is written on failure";
  cl_int error = CL_SUCCESS;
  EXPECT_EQ(clCreateContext(nullptr, 0, nullptr, nullptr, nullptr, &error), nullptr);
  EXPECT_EQ(error, LM::kOpenCLRuntimeUnavailable);
  EXPECT_EQ(clCreateBuffer(nullptr, CL_MEM_READ_WRITE, 16, nullptr, nullptr), nullptr) << "a null errcode_ret is fine";
  EXPECT_EQ(clUnloadCompiler(), LM::kOpenCLRuntimeUnavailable);
  EXPECT_FALSE(LM::IsOpenCLRuntimeLoaded());
}

TEST(OpenCLEntryPoints, ALibraryWithoutTheNamesFailsCleanly) {
  // A shared library that loads but exports no OpenCL name: the fake CUDA driver.
  LM::OpenCLLibraryName = FAKECUDA_PATH;
  EXPECT_TRUE(LM::IsOpenCLRuntimeLoaded());
  cl_uint platforms = 0;
  EXPECT_EQ(clGetPlatformIDs(0, nullptr, &platforms), LM::kOpenCLRuntimeUnavailable);
  cl_int error = CL_SUCCESS;
  EXPECT_EQ(clCreateKernel(nullptr, "Kernel", &error), nullptr);
  EXPECT_EQ(error, LM::kOpenCLRuntimeUnavailable);
}

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
