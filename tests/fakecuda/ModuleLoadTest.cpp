// Loading and unloading CUDA modules against the fake driver: the call made, the report of a failure, the
// PTX version a driver loads, and what the driver refuses of a loaded module.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <cstdint>
#include <filesystem>

#include "BuiltPtx.h"
#include "Devices/CUDABackend.h"
#include "FakeDriverBinding.h"

namespace {

TEST(CUDAModuleLoad, AFailureIsReportedUnlessSilenced) {
  const std::unique_ptr<FakeCUDA> fake = BindFakeDriver();
  zelcore::debug::SetAssertionOutputQuiet(true);
  fake->fakecuda_SetFailure("cuModuleLoadDataEx", CUDA_ERROR_INVALID_IMAGE, 0, kFakeCUDAFailForever);
  const unsigned before = zelcore::debug::AssertionReportCount();

  EXPECT_EQ(LM::CUDABackend(0).LoadModule("Composite", "garbage"), nullptr);
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

namespace {

// A driver loads PTX of its own ISA version or older: every module the build made declares a version that a
// CUDA 10.1 driver loads, and nvcc's own (9.0 for CUDA 13) would be refused by a CUDA 12.0 driver.
TEST(CUDAModuleLoad, ADriverRefusesPtxNewerThanItselfAndLoadsEveryBuiltModule) {
  const std::unique_ptr<FakeCUDA> fake = BindFakeDriver();
  zelcore::debug::SetAssertionOutputQuiet(true);
  const CurrentFakeContext context;
  fake->fakecuda_SetDriverVersion(12000);
  EXPECT_EQ(LM::LoadCUDAModule("New", ".version 9.0\n.target sm_75\n"), nullptr);
  fake->fakecuda_SetDriverVersion(10010);
  int built = 0;
  for (const auto& file : std::filesystem::directory_iterator(BuiltPtxFolder())) {
    const CUmodule module = LM::LoadCUDAModule(file.path().stem().string(), ReadText(file.path()));
    EXPECT_NE(module, nullptr) << file.path();
    LM::CUDABackend(0).UnloadModule(module);
    ++built;
  }
  if (built == 0) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built";
}

// What the fake refuses, as the real driver does, so that a misspelt name or a host/kernel layout drift fails
// on this machine.
TEST(CUDAModuleLoad, TheFakeDriverRefusesWhatTheRealOneRefuses) {
  const std::unique_ptr<FakeCUDA> fake = BindFakeDriver();
  const char ptx[] =
      ".version 6.4\n.target sm_75\n.address_size 64\n.global .texref inTexture;\n"
      ".visible .entry K(\n\t.param .u64 K_param_0,\n\t.param .u32 K_param_1,\n"
      "\t.param .align 16 .b8 K_param_2[16]\n)\n{\n\tret;\n}\n";
  CUmodule module = nullptr;
  EXPECT_EQ(LM::CUDA.cuModuleLoadData(&module, ptx), CUDA_ERROR_INVALID_CONTEXT) << "no context is current";
  const CurrentFakeContext context;
  ASSERT_EQ(LM::CUDA.cuModuleLoadData(&module, ptx), CUDA_SUCCESS);
  CUfunction function = nullptr;
  CUtexref texture = nullptr;
  EXPECT_EQ(LM::CUDA.cuModuleGetFunction(&function, module, "k"), CUDA_ERROR_NOT_FOUND);
  EXPECT_EQ(LM::CUDA.cuModuleGetTexRef(&texture, module, "inOther"), CUDA_ERROR_NOT_FOUND);
  ASSERT_EQ(LM::CUDA.cuModuleGetFunction(&function, module, "K"), CUDA_SUCCESS);
  ASSERT_EQ(LM::CUDA.cuModuleGetTexRef(&texture, module, "inTexture"), CUDA_SUCCESS);

  // Parameters at 0 (8 bytes), 8 (4) and 16 (16, aligned to 16): 32 bytes.
  char value[16] = {};
  const struct {
    int offset;
    unsigned bytes;
    CUresult expected;
  } writes[] = {{0, 8, CUDA_SUCCESS},
                {8, 4, CUDA_SUCCESS},
                {16, 16, CUDA_SUCCESS},
                {12, 4, CUDA_ERROR_INVALID_VALUE},
                {20, 4, CUDA_ERROR_INVALID_VALUE},
                {24, 16, CUDA_ERROR_INVALID_VALUE},
                {-4, 4, CUDA_ERROR_INVALID_VALUE}};
  for (const auto& write : writes) {
    EXPECT_EQ(LM::CUDA.cuParamSetv(function, write.offset, value, write.bytes), write.expected)
        << write.offset;
  }
  EXPECT_EQ(LM::CUDA.cuParamSetSize(function, 28), CUDA_ERROR_INVALID_VALUE);
  EXPECT_EQ(LM::CUDA.cuParamSetSize(function, 32), CUDA_SUCCESS);
  EXPECT_EQ(LM::CUDA.cuLaunchGridAsync(function, 1, 1, nullptr), CUDA_ERROR_INVALID_VALUE)
      << "no block shape yet";
  ASSERT_EQ(LM::CUDA.cuFuncSetBlockShape(function, 16, 16, 1), CUDA_SUCCESS);
  EXPECT_EQ(LM::CUDA.cuLaunchGridAsync(function, 1, 1, nullptr), CUDA_SUCCESS);

  // The fake's device has a texture alignment of 512 bytes and a texture pitch alignment of 32.
  const CUDA_ARRAY_DESCRIPTOR descriptor = {16, 4, CU_AD_FORMAT_FLOAT, 4};
  EXPECT_EQ(LM::CUDA.cuTexRefSetAddress2D(texture, &descriptor, 4096, 256), CUDA_SUCCESS);
  EXPECT_EQ(LM::CUDA.cuTexRefSetAddress2D(texture, &descriptor, 4096 + 256, 256), CUDA_ERROR_INVALID_VALUE);
  EXPECT_EQ(LM::CUDA.cuTexRefSetAddress2D(texture, &descriptor, 4096, 272), CUDA_ERROR_INVALID_VALUE);
  EXPECT_EQ(LM::CUDA.cuTexRefSetFormat(texture, CU_AD_FORMAT_FLOAT, 4), CUDA_ERROR_INVALID_VALUE)
      << "no format once bound";
  EXPECT_EQ(LM::CUDA.cuModuleUnload(module), CUDA_SUCCESS);
}

}  // namespace
