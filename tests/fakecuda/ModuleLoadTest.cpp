// Loading and unloading CUDA modules against the fake driver: the call made, and the report of a failure.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <cstdint>

#include "FakeDriverBinding.h"
#include "Modules/ModuleRegistry.h"

namespace {

TEST(CUDAModuleLoad, LoadsWithOneOptimisationLevelOptionAndUnloads) {
  const std::unique_ptr<FakeCUDA> fake = BindFakeDriver();
  const CUmodule module = LM::LoadCUDAModule("Fills", ".version 7.5\n.target sm_75\n");
  ASSERT_NE(module, nullptr);
  ASSERT_EQ(fake->CallNames(), std::vector<std::string>{"cuModuleLoadDataEx"});
  const std::vector<unsigned long long> args = fake->CallArgs(0);
  ASSERT_EQ(args.size(), 5u);
  EXPECT_EQ(args[2], 1u) << "one option";
  EXPECT_EQ(*reinterpret_cast<const CUjit_option*>(args[3]), CU_JIT_OPTIMIZATION_LEVEL);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(reinterpret_cast<void* const*>(args[4])[0]), 4u);

  LM::UnloadModule(LM::kDeviceFramework_CUDA, module);
  ASSERT_EQ(fake->CallNames().back(), "cuModuleUnload");
  EXPECT_EQ(fake->CallArgs(1).at(0), reinterpret_cast<std::uintptr_t>(module));
}

TEST(CUDAModuleLoad, AFailureIsReportedUnlessSilenced) {
  const std::unique_ptr<FakeCUDA> fake = BindFakeDriver();
  zelcore::debug::SetAssertionOutputQuiet(true);
  fake->fakecuda_SetFailure("cuModuleLoadDataEx", CUDA_ERROR_INVALID_IMAGE, 0, kFakeCUDAFailForever);
  const unsigned before = zelcore::debug::AssertionReportCount();

  EXPECT_EQ(LM::LoadModuleGuarded(LM::kDeviceFramework_CUDA, nullptr, nullptr, "Composite", "garbage"),
            nullptr);
  ASSERT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  const std::string report = zelcore::debug::LastAssertionReport();
  EXPECT_EQ(report.rfind("Assertion failed: result == CUDA_SUCCESS: Failed to load module: Composite, error: "
                         "CUDA_ERROR_INVALID_IMAGE (..\\..\\Src\\ModuleManager:",
                         0),
            0u)
      << report;
  EXPECT_NE(report.find(" LM::LoadCUDAModule)"), std::string::npos) << report;

  LM::SetModuleLoadFailuresSilenced(true);
  EXPECT_EQ(LM::LoadCUDAModule("Composite", "garbage"), nullptr);
  LM::SetModuleLoadFailuresSilenced(false);
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  EXPECT_EQ(fake->fakecuda_CallCount("cuModuleLoadDataEx"), 2u);
}

}  // namespace
