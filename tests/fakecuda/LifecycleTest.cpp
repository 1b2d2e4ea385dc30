// Start-up and shut-down on the fake driver: the registry, qualification at start-up, the one-way start,
// the driver hint, the names the host registers; and a sweep that fails every driver call of a session in
// turn.
#include <TQ/Suites.h>
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <set>
#include <string>

#include "BuiltPtx.h"
#include "ExecutableFolder.h"
#include "FakeDriverBinding.h"
#include "Lumora/Device.h"
#include "Lumora/DeviceSuite.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Textures.h"

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
  void Add(const char* name, unsigned long long memory = 8 * kGiB) {
    fake_->fakecuda_AddDevice(name, 7, 5, memory);
  }
  std::unique_ptr<FakeCUDA> fake_;
  ExecutableFolder folder_;
};

bool SuiteRegistered() {
  LM_DeviceSuite suite;
  return TQ::AcquireSuite(LM_DEVICE_SUITE_NAME, LM_DEVICE_SUITE_VERSION, &suite, sizeof suite);
}

// An emulation device is dropped and an ordinal that cannot be had leaves no gap: the framework index
// advances only on success.
TEST_F(Lifecycle, UnusableDevicesAreDroppedWithoutAGap) {
  Add("Zero");
  fake_->fakecuda_AddDevice("Emulator", 9999, 9999, 8 * kGiB);
  Add("One");
  Add("Two");
  fake_->fakecuda_SetFailure("cuDeviceGet", CUDA_ERROR_INVALID_DEVICE, 2, 1);
  LM::Initialize(false);
  ASSERT_EQ(LM::GetDeviceCount(), 2u);
  EXPECT_EQ(LM::GetDevice(0)->GetName(), "Zero");
  EXPECT_EQ(LM::GetDevice(1)->GetName(), "Two");
  EXPECT_EQ(LM::GetDevice(1)->GetFrameworkIndex(), 1u);
  EXPECT_FALSE(LM::GetDevice(1)->IsQualified()) << "qualification belongs to starting devices";
  LM::Terminate();
}

// Nested calls only count; devices start on the first call that asks, if they qualify. Shut-down calls host
// code (a purge callback here), which must be free to call into the library from any thread: the library
// lock is not held meanwhile. The last Terminate clears the registered match names, which are exact.
TEST_F(Lifecycle, NestedStartEnumeratesFirstAndStartsDevicesOnTheFirstCallThatAsks) {
  Add("Fit");
  Add("Small", 256ull << 20);
  LM::Initialize(false);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuDeviceGetCount"), 1u);
  EXPECT_FALSE(SuiteRegistered());
  LM::Initialize(true);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuDeviceGetCount"), 1u);
  EXPECT_TRUE(SuiteRegistered());
  boost::shared_ptr<LM::Device> fit = LM::GetDevice(0), small = LM::GetDevice(1);
  EXPECT_TRUE(fit->WaitForContext());
  EXPECT_FALSE(small->WaitForContext()) << "a device that does not qualify gets no context";
  EXPECT_EQ(LM::GetPrimaryDevice(LM::kDeviceFramework_CUDA), fit);
  EXPECT_FALSE(LM::GetPrimaryDevice(LM::kDeviceFramework_OpenCL));
  LM::RegisterMatchName(zelcore::Wide("Premiere"));
  EXPECT_TRUE(LM::HasRegisteredMatchName(zelcore::Wide("Premiere")));
  EXPECT_FALSE(LM::HasRegisteredMatchName(zelcore::Wide("premiere")));
  bool otherThreadGotIn = false;
  fit->GetDeviceMemory()->AddPurgeCallback([&otherThreadGotIn](std::size_t) -> std::size_t {
    auto other =
        std::async(std::launch::async, [] { return LM::HasRegisteredMatchName(zelcore::Wide("x")); });
    otherThreadGotIn = other.wait_for(std::chrono::seconds(2)) == std::future_status::ready;
    return 0;
  });

  LM::Terminate();
  EXPECT_EQ(LM::GetDeviceCount(), 2u) << "one Initialize is still open";
  EXPECT_TRUE(LM::HasRegisteredMatchName(zelcore::Wide("Premiere")));
  LM::Terminate();
  EXPECT_EQ(LM::GetDeviceCount(), 0u);
  EXPECT_FALSE(LM::HasRegisteredMatchName(zelcore::Wide("Premiere")));
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxSynchronize"), 1u) << "the started device finished its work";
  EXPECT_TRUE(otherThreadGotIn);
}

// The host may replace the registered table; a second registration would overwrite it again.
TEST_F(Lifecycle, AfterAFullShutDownANewStartEnumeratesAgainButStartsNothing) {
  Add("Fit");
  LM::Initialize(true);
  ASSERT_TRUE(LM::GetDevice(0)->WaitForContext());
  LM::Terminate();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxCreate"), 1u);

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
  Add("Fit");
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
  Add("Unlisted");
  LM::Initialize(true);
  EXPECT_FALSE(LM::RequiresUpdatedDriver());
  LM::Terminate();
  Add("Listed");
  LM::Initialize(false);
  EXPECT_TRUE(LM::RequiresUpdatedDriver());
  LM::Terminate();
  fake_->fakecuda_SetDriverVersion(12000);
  LM::Initialize(false);
  EXPECT_FALSE(LM::RequiresUpdatedDriver()) << "the listed card is held back by nothing";
  LM::Terminate();
}

// One session as a host runs it: binding and start-up, a fill, a copy, a texture bound, shut-down. The
// context is made here rather than by Initialize(true), which starts contexts once per process only.
void RunSession() {
  constexpr LM::PixelFormat kFormat = LM::kPixelFormat_GPU_BGRA_4444_32f;
  constexpr int kSide = 64, kRowBytes = kSide * 16;
  LM::Initialize(false);
  boost::shared_ptr<LM::Device> device = LM::GetDevice(0);
  if (device) {
    device->InitializeContext();
    {
      const LM::ExclusiveAccess access(*device);
      const boost::shared_ptr<LM::MemoryManager> memory = device->GetDeviceMemory();
      void* source = memory ? memory->Allocate(kSide * kRowBytes, nullptr) : nullptr;
      void* target = memory ? memory->Allocate(kSide * kRowBytes, nullptr) : nullptr;
      if (source != nullptr && target != nullptr) {
        LM::FillWithColor(device, source, kRowBytes, kFormat, 0, 0, kSide, kSide, LM::float4{1, 0, 0, 1});
        LM::FastDeviceMemcpy2D(device, source, kRowBytes, target, kRowBytes, kFormat, kSide, kSide);
        LM::Texture texture = LM::LoadTexture(device, "TextureProbe", "inProbeTexture",
                                              CU_TR_ADDRESS_MODE_CLAMP, CU_TR_FILTER_MODE_POINT, kFormat);
        if (texture.textureReference != nullptr)
          LM::BindTexture(device, texture, source, source, kRowBytes, kSide, kSide, kFormat);
      }
      const boost::shared_ptr<LM::CommandQueue> queue = device->GetCommandQueue();
      const boost::shared_ptr<LM::Event> done = queue ? queue->RecordEvent() : boost::shared_ptr<LM::Event>();
      if (memory) {
        memory->Release(source, done);
        memory->Release(target, done);
      }
    }
    device->ShutDown(true);
  }
  device.reset();
  LM::Terminate();
}

// Whatever call fails, nothing crashes, nothing the driver handed out is left behind (contexts, modules,
// memory, streams, events) and no context stays current on any thread.
TEST_F(Lifecycle, AnyFailingCallOfASessionLeavesNothingBehind) {
  if (BuiltPtx("Fills").empty()) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built";
  for (const char* module : {"Fills", "Memory", "TextureProbe"})
    folder_.Write(std::string("PTX/") + module + "_NVIDIA.ptx", BuiltPtx(module));
  Add("Card");
  fake_->fakecuda_ClearCallLog();
  const unsigned long long before = fake_->fakecuda_CallsMade();
  RunSession();
  const unsigned long long calls = fake_->fakecuda_CallsMade() - before;
  ASSERT_GT(fake_->fakecuda_LaunchCount(), 0u) << "the session without failures launches its fill and copy";
  const std::vector<std::string> names = fake_->CallNames();
  const std::set<std::string> sites(names.begin(), names.end());
  for (unsigned long long failing = 0; failing < calls; ++failing) {
    fake_->fakecuda_SetFailureAt(failing, CUDA_ERROR_UNKNOWN);
    RunSession();
    fake_->fakecuda_ClearFailures();
    SCOPED_TRACE("call " + std::to_string(failing) + " failed");
    EXPECT_EQ(fake_->fakecuda_LiveContexts() + fake_->fakecuda_LiveModules() + fake_->fakecuda_LiveStreams() +
                  fake_->fakecuda_LiveEvents(),
              0u);
    EXPECT_EQ(fake_->fakecuda_LiveDeviceAllocations() + fake_->fakecuda_LiveHostAllocations(), 0u);
    EXPECT_EQ(fake_->fakecuda_TotalContextDepth(), 0);
    if (HasFailure()) break;
  }
  std::printf("fault sweep: %llu calls failed in turn, at %zu call sites\n", calls, sites.size());
}

}  // namespace
