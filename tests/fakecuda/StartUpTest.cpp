// What start-up reads and binds: the debug switches, one disable switch alone, and the driver bound for
// API 4.0 with the legacy fallback.
#include <gtest/gtest.h>

#include <zelcore/Debug.h>

#include "Devices/Configuration.h"
#include "FakeCUDAControl.h"
#include "Lumora/Lumora.h"
#include "Runtime/CUDADriverTable.h"

namespace {

zelcore::debug::DebugDatabase& Database() { return zelcore::debug::DebugDatabase::Instance(); }

TEST(DebugSwitch, ReadsNumbersAndWordsAndDefaultsToFalse) {
  const struct {
    const char* text;
    bool expected;
  } cases[] = {{"1", true}, {"0", false}, {"true", true}, {"false", false}, {" 1", true},
               {"yes", false}, {"", false}, {"2", false}, {"1junk", true}};
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

TEST(StartUp, OneDisableSwitchAloneIsIgnored) {
  FakeCUDA fake(FAKECUDA_PATH);
  LM::CUDADriverLibraryName = FAKECUDA_PATH;
  Database().Set("LM.DisableAcceleratedRenderer", "1");
  LM::Initialize(false);
  EXPECT_EQ(LM::GetCUDADriverBindResult(), 0);
  EXPECT_NE(LM::CUDA.cuInit, nullptr);
  LM::Terminate();
}

TEST(StartUp, FallsBackToTheLegacyApiOnA32Driver) {
  FakeCUDA fake(FAKECUDA_DRIVER_3020_PATH);
  fake.fakecuda_SetDriverVersion(3020);
  LM::CUDADriverLibraryName = FAKECUDA_DRIVER_3020_PATH;
  testing::internal::CaptureStdout();
  LM::Initialize(false);
  const std::string output = testing::internal::GetCapturedStdout();
  EXPECT_EQ(output, std::string("Failed to find required function \"cuCtxDestroy_v2\" in ") + FAKECUDA_DRIVER_3020_PATH +
                        "\n");
  EXPECT_EQ(LM::GetCUDADriverBindResult(), 0);
  EXPECT_EQ(reinterpret_cast<void*>(LM::CUDA.cuMemAlloc), fake.Symbol("cuMemAlloc"));
  LM::Terminate();
}

}  // namespace
