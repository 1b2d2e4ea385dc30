// What start-up and the device suite decide without any device: device identity from runtime texts and
// numbers, the debug switches, the suite's refusal of bad indices and null outputs, and the OpenCL entry
// points when no runtime, or no OpenCL library, is there. Each test runs in its own process, so each sees
// the entry points' first use.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include "Devices/Configuration.h"
#include "Devices/DeviceIdentity.h"
#include "Devices/DeviceSuite.h"
#include "Lumora/DeviceSuite.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Runtime.h"
#include "Runtime/OpenCLEntryPoints.h"

namespace {

zelcore::debug::DebugDatabase& Database() {
  return zelcore::debug::DebugDatabase::Instance();
}

// Apple first, then by the vendor's own words, case-sensitive.
TEST(DeviceIdentity, VendorsAreClassifiedAppleFirst) {
  const std::pair<const char*, LM::Vendor> cases[] = {{"Apple", LM::kVendor_Apple},
                                                      {"Apple (AMD Radeon)", LM::kVendor_Apple},
                                                      {"NVIDIA Corporation, for Apple", LM::kVendor_Apple},
                                                      {"Advanced Micro Devices, Inc.", LM::kVendor_AMD},
                                                      {"AMD", LM::kVendor_AMD},
                                                      {"Intel(R) Corporation", LM::kVendor_Intel},
                                                      {"GenuineIntel", LM::kVendor_Intel},
                                                      {"NVIDIA Corporation", LM::kVendor_NVIDIA},
                                                      {"nvidia", LM::kVendor_Unknown},
                                                      {"", LM::kVendor_Unknown}};
  for (const auto& [text, vendor] : cases) EXPECT_EQ(LM::ClassifyVendor(text), vendor) << text;
}

// Capabilities put the minor behind the decimal point; version texts give their first major.minor pair,
// and an overlong number is no version.
TEST(DeviceIdentity, CapabilitiesAndVersionTexts) {
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(2, 0), 2.0);
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(2, 1), 2.1);
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(1, 3), 1.3);
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(3, 10), 3.1);
  EXPECT_DOUBLE_EQ(LM::CapabilityFromVersion(12, 0), 12.0);
  const std::pair<const char*, double> texts[] = {
      {"OpenCL 3.0 PoCL HSTR: pthread-x86_64-pc-linux-gnu-skylake-avx512", 3.0},
      {"OpenCL 1.2 CUDA", 1.2},
      {"3.1+debian", 3.1},
      {"535.104.05", 535.104},
      {"OpenCL C 1.2 PoCL", 1.2},
      {"v10", -1.0},
      {"1.", -1.0},
      {"", -1.0},
      {"99999999999999999999.5", -1.0}};
  for (const auto& [text, version] : texts) EXPECT_NEAR(LM::ParseVersionText(text), version, 1e-9) << text;
}

TEST(DebugSwitch, ReadsNumbersAndWordsAndDefaultsToFalse) {
  const struct {
    const char* text;
    bool expected;
  } cases[] = {{"1", true},    {"0", false}, {"true", true}, {"false", false}, {" 1", true},
               {"yes", false}, {"", false},  {"2", false},   {"1junk", true}};
  for (const auto& c : cases) {
    Database().Set("LM.TestSwitch", c.text);
    EXPECT_EQ(LM::ReadDebugSwitch("LM.TestSwitch"), c.expected) << '"' << c.text << '"';
  }
  Database().Remove("LM.TestSwitch");
  EXPECT_FALSE(LM::ReadDebugSwitch("LM.TestSwitch"));
  EXPECT_FALSE(LM::IsOpenCLEnabled());
  Database().Set("LM.EnableOpenCL", "1");
  EXPECT_TRUE(LM::IsOpenCLEnabled());
}

TEST(DeviceSuite, RefusesBadIndicesAndNullOutputs) {
  const LM_DeviceSuite& suite = LM::DeviceSuiteTable();
  const uint32_t bad = LM::GetDeviceCount();
  uint32_t value = 0;
  int32_t flag = 0;
  void* handle = nullptr;
  std::size_t size = 0;
  LM_MemoryStatistics statistics;
  EXPECT_EQ(suite.GetDeviceFramework(bad, &value), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.MeetsMinimumRequirementsForUse(bad, &flag), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.AcquireExclusiveAccess(bad), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.ReleaseExclusiveAccess(bad), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.GetNativeDevice(bad, &handle), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.AllocateDeviceMemory(bad, 16, &handle), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.FreeHostMemory(bad, nullptr), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.PurgeHostMemory(bad, 16, &size), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.GetHostMemoryStatistics(bad, &statistics), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.WaitForDevice(bad), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.GetDeviceCount(0, nullptr), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.GetDeviceFramework(0, nullptr), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.GetContext(0, nullptr), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.AllocateHostMemory(0, 16, nullptr), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.PurgeDeviceMemory(0, 16, nullptr), LM_SUITE_BAD_ARGUMENT);
  EXPECT_EQ(suite.GetDeviceMemoryStatistics(0, nullptr), LM_SUITE_BAD_ARGUMENT);
}

TEST(OpenCLEntryPoints, WithoutARuntimeEveryCallFailsCleanly) {
  LM::OpenCLLibraryName = "/nonexistent/libOpenCL-missing.so.1";
  cl_uint platforms = 7;
  EXPECT_EQ(clGetPlatformIDs(0, nullptr, &platforms), LM::kOpenCLRuntimeUnavailable);
  EXPECT_EQ(platforms, 7u) << "nothing is written on failure";
  cl_int error = CL_SUCCESS;
  EXPECT_EQ(clCreateContext(nullptr, 0, nullptr, nullptr, nullptr, &error), nullptr);
  EXPECT_EQ(error, LM::kOpenCLRuntimeUnavailable);
  EXPECT_EQ(clCreateBuffer(nullptr, CL_MEM_READ_WRITE, 16, nullptr, nullptr), nullptr)
      << "a null errcode_ret is fine";
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

}  // namespace
