// Start-up and shut-down on the fake driver: the registry, qualification at start-up, the one-way start,
// the driver hint, and the set of names the host registers.
#include <TQ/Suites.h>
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <chrono>
#include <cstring>
#include <future>

#include "ExecutableFolder.h"
#include "FakeDriverBinding.h"
#include "Lumora/Device.h"
#include "Lumora/DeviceSuite.h"
#include "Lumora/Lifecycle.h"

namespace {

constexpr unsigned long long kGiB = 1ull << 30;

class Lifecycle : public testing::Test {
 protected:
  void SetUp() override {
    LM::CUDADriverLibraryName = FAKECUDA_PATH;
    fake_ = std::make_unique<FakeCUDA>(FAKECUDA_PATH);
    fake_->fakecuda_ClearDevices();
    zelcore::debug::SetAssertionOutputQuiet(true);
  }
  std::unique_ptr<FakeCUDA> fake_;
  ExecutableFolder folder_;
};

bool SuiteRegistered() {
  LM_DeviceSuite suite;
  return TQ::AcquireSuite(LM_DEVICE_SUITE_NAME, LM_DEVICE_SUITE_VERSION, &suite, sizeof suite);
}

TEST_F(Lifecycle, AnOrdinalThatCannotBeHadLeavesNoGap) {
  fake_->fakecuda_AddDevice("Zero", 7, 5, 8 * kGiB);
  fake_->fakecuda_AddDevice("One", 7, 5, 8 * kGiB);
  fake_->fakecuda_AddDevice("Two", 7, 5, 8 * kGiB);
  fake_->fakecuda_SetFailure("cuDeviceGet", CUDA_ERROR_INVALID_DEVICE, 1, 1);
  LM::Initialize(false);
  ASSERT_EQ(LM::GetDeviceCount(), 2u);
  EXPECT_EQ(LM::GetDevice(0)->GetName(), "Zero");
  EXPECT_EQ(LM::GetDevice(1)->GetName(), "Two");
  EXPECT_EQ(LM::GetDevice(1)->GetFrameworkIndex(), 1u);
  EXPECT_FALSE(LM::GetDevice(1)->IsQualified()) << "qualification belongs to starting devices";
  LM::Terminate();
}

TEST_F(Lifecycle, AnUnusableDeviceIsDroppedAndTheFrameworkIndexAdvancesOnlyOnSuccess) {
  fake_->fakecuda_AddDevice("Emulator", 9999, 9999, 8 * kGiB);
  fake_->fakecuda_AddDevice("Real", 7, 5, 8 * kGiB);
  LM::Initialize(false);
  ASSERT_EQ(LM::GetDeviceCount(), 1u);
  EXPECT_EQ(LM::GetDevice(0)->GetName(), "Real");
  EXPECT_EQ(LM::GetDevice(0)->GetFrameworkIndex(), 0u);
  LM::Terminate();
}

TEST_F(Lifecycle, NestedStartEnumeratesFirstAndStartsDevicesOnTheFirstCallThatAsks) {
  fake_->fakecuda_AddDevice("Fit", 7, 5, 8 * kGiB);
  fake_->fakecuda_AddDevice("Small", 7, 5, 256ull << 20);
  LM::Initialize(false);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuDeviceGetCount"), 1u);
  EXPECT_FALSE(SuiteRegistered());
  LM::Initialize(true);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuDeviceGetCount"), 1u) << "nested calls only count";
  EXPECT_TRUE(SuiteRegistered());

  boost::shared_ptr<LM::Device> fit = LM::GetDevice(0);
  boost::shared_ptr<LM::Device> small = LM::GetDevice(1);
  EXPECT_TRUE(fit->WaitForContext());
  EXPECT_FALSE(small->WaitForContext()) << "a device that does not qualify gets no context";
  EXPECT_EQ(LM::GetPrimaryDevice(LM::kDeviceFramework_CUDA), fit);
  EXPECT_FALSE(LM::GetPrimaryDevice(LM::kDeviceFramework_OpenCL));

  LM::Terminate();
  EXPECT_EQ(LM::GetDeviceCount(), 2u) << "one Initialize is still open";
  LM::Terminate();
  EXPECT_EQ(LM::GetDeviceCount(), 0u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxSynchronize"), 1u) << "the started device finished its work";
}

TEST_F(Lifecycle, AfterAFullShutDownANewStartEnumeratesAgainButStartsNothing) {
  fake_->fakecuda_AddDevice("Fit", 7, 5, 8 * kGiB);
  LM::Initialize(true);
  ASSERT_TRUE(LM::GetDevice(0)->WaitForContext());
  LM::Terminate();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxCreate"), 1u);

  // The host replaces the registered table; a second registration would overwrite it again.
  const char sentinel[sizeof(LM_DeviceSuite)] = {1, 2, 3};
  TQ::RegisterSuite(LM_DEVICE_SUITE_NAME, LM_DEVICE_SUITE_VERSION, sentinel, sizeof sentinel);
  LM::Initialize(true);
  char registered[sizeof(LM_DeviceSuite)] = {};
  ASSERT_TRUE(TQ::AcquireSuite(LM_DEVICE_SUITE_NAME, LM_DEVICE_SUITE_VERSION, registered, sizeof registered));
  EXPECT_EQ(std::memcmp(registered, sentinel, sizeof sentinel), 0)
      << "the suite is registered once per process";
  ASSERT_EQ(LM::GetDeviceCount(), 1u);
  EXPECT_FALSE(LM::GetDevice(0)->IsQualified());
  EXPECT_FALSE(LM::GetDevice(0)->WaitForContext());
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxCreate"), 1u);
  LM::Terminate();
}

// One disable switch alone is ignored: this start-up calls cuInit and registers the device. Both together
// leave the registry empty without a driver call.
TEST_F(Lifecycle, OnlyBothDisableSwitchesTogetherLeaveAnEmptyRegistry) {
  fake_->fakecuda_AddDevice("Fit", 7, 5, 8 * kGiB);
  zelcore::debug::DebugDatabase& database = zelcore::debug::DebugDatabase::Instance();
  database.Remove("LM.DisableAcceleratedDisplay");
  database.Set("LM.DisableAcceleratedRenderer", "1");
  LM::Initialize(false);
  EXPECT_EQ(LM::GetDeviceCount(), 1u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuInit"), 1u);
  LM::Terminate();

  fake_->fakecuda_ClearCallLog();
  database.Set("LM.DisableAcceleratedDisplay", "1");
  LM::Initialize(true);
  EXPECT_EQ(LM::GetDeviceCount(), 0u);
  EXPECT_EQ(fake_->fakecuda_CallLogSize(), 0u);
  LM::Terminate();
}

TEST_F(Lifecycle, AnUpdatedDriverIsRequiredOnlyForAListedCardHeldBackByItsDriver) {
  folder_.Write("cuda_supported_cards.txt", "Listed\n");
  fake_->fakecuda_SetDriverVersion(3020);
  fake_->fakecuda_AddDevice("Unlisted", 7, 5, 8 * kGiB);
  LM::Initialize(true);
  EXPECT_FALSE(LM::RequiresUpdatedDriver());
  LM::Terminate();

  fake_->fakecuda_AddDevice("Listed", 7, 5, 8 * kGiB);
  LM::Initialize(false);
  EXPECT_TRUE(LM::RequiresUpdatedDriver());
  LM::Terminate();

  fake_->fakecuda_SetDriverVersion(12000);
  LM::Initialize(false);
  EXPECT_FALSE(LM::RequiresUpdatedDriver()) << "the listed card is held back by nothing";
  LM::Terminate();
}

// Shut-down calls host code (here a purge callback), which must be free to call into the library from any
// thread: the library lock is not held meanwhile.
TEST_F(Lifecycle, ShutDownRunsHostCallbacksWithoutTheLibraryLock) {
  fake_->fakecuda_AddDevice("Fit", 7, 5, 8 * kGiB);
  LM::Initialize(true);
  ASSERT_TRUE(LM::GetDevice(0)->WaitForContext());
  bool otherThreadGotIn = false;
  LM::GetDevice(0)->GetDeviceMemory()->AddPurgeCallback([&otherThreadGotIn](std::size_t) -> std::size_t {
    auto other =
        std::async(std::launch::async, [] { return LM::HasRegisteredMatchName(zelcore::Wide("x")); });
    otherThreadGotIn = other.wait_for(std::chrono::seconds(2)) == std::future_status::ready;
    return 0;
  });
  LM::Terminate();
  EXPECT_TRUE(otherThreadGotIn);
}

TEST_F(Lifecycle, MatchNamesAreExactAndClearedByTheLastTerminate) {
  LM::Initialize(false);
  LM::RegisterMatchName(zelcore::Wide("Premiere"));
  EXPECT_TRUE(LM::HasRegisteredMatchName(zelcore::Wide("Premiere")));
  EXPECT_FALSE(LM::HasRegisteredMatchName(zelcore::Wide("premiere")));
  LM::Terminate();
  EXPECT_FALSE(LM::HasRegisteredMatchName(zelcore::Wide("Premiere")));
}

}  // namespace
