// CUDA devices against the fake driver: creation and rejection, the context and its pools, exclusive access
// across threads, executors, debug-flag re-initialisation, modules and shut-down.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>
#include <zelcore/Threads.h>
#include <zelcore/Utility.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "ExecutableFolder.h"
#include "FakeDriverBinding.h"
#include "Lumora/Device.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Results.h"

namespace {

constexpr unsigned long long kGiB = 1ull << 30;

class CUDADevice : public testing::Test {
 protected:
  void SetUp() override {
    fake_ = BindFakeDriver();
    fake_->fakecuda_ClearDevices();
    zelcore::debug::SetAssertionOutputQuiet(true);
  }
  void TearDown() override {
    zelcore::debug::DebugDatabase::Instance().Remove("LM.ProfileKernels");
    zelcore::debug::DebugDatabase::Instance().Remove("EnableDogEars");
  }

  boost::shared_ptr<LM::Device> Make(const char* name = "Card", int major = 7, int minor = 5,
                                     unsigned long long memory = 8 * kGiB) {
    const int ordinal = fake_->fakecuda_AddDevice(name, major, minor, memory);
    return LM::Device::Create(static_cast<unsigned int>(ordinal), static_cast<unsigned int>(ordinal),
                              ordinal);
  }

  std::unique_ptr<FakeCUDA> fake_;
};

TEST_F(CUDADevice, IdentityComesFromTheDriver) {
  fake_->fakecuda_SetDriverVersion(12040);
  boost::shared_ptr<LM::Device> device = Make("Fake RTX", 8, 6, 12 * kGiB);
  ASSERT_TRUE(device);
  EXPECT_EQ(device->GetFramework(), LM::kDeviceFramework_CUDA);
  EXPECT_EQ(device->GetVendor(), LM::kVendor_NVIDIA);
  EXPECT_EQ(device->GetName(), "Fake RTX");
  EXPECT_DOUBLE_EQ(device->GetComputeCapability(), 8.6);
  EXPECT_DOUBLE_EQ(device->GetDriverVersion(), 12.04);
  EXPECT_EQ(device->GetTotalMemory(), 12 * kGiB);
  EXPECT_DOUBLE_EQ(Make("A", 2, 0)->GetComputeCapability(), 2.0);
  EXPECT_DOUBLE_EQ(Make("B", 2, 1)->GetComputeCapability(), 2.1);
}

TEST_F(CUDADevice, EmulationDevicesAndUnreadableIdentitiesAreRejected) {
  EXPECT_FALSE(Make("Emulator", 9999, 9999));
  EXPECT_FALSE(Make("Emulator", 9999, 0));

  fake_->fakecuda_SetFailure("cuDeviceGetName", CUDA_ERROR_INVALID_DEVICE, 0, 1);
  EXPECT_FALSE(Make("Nameless"));
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("Unknown device name"), std::string::npos);
  for (const char* failing : {"cuDeviceTotalMem", "cuDriverGetVersion", "cuDeviceComputeCapability"}) {
    fake_->fakecuda_SetFailure(failing, CUDA_ERROR_INVALID_DEVICE, 0, 1);
    EXPECT_FALSE(Make(failing));
  }
  EXPECT_TRUE(Make("Fine"));
}

TEST_F(CUDADevice, InitializingMakesContextQueueAndPoolsSizedFromMemory) {
  boost::shared_ptr<LM::Device> device = Make("Card", 7, 5, 8 * kGiB);
  device->InitializeContext();
  ASSERT_NE(device->GetContextHandle(), nullptr);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxCreate"), 1u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuGLCtxCreate"), 0u) << "a headless host shares nothing with OpenGL";
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 0) << "creation leaves no context current";
  EXPECT_EQ(device->GetContextGeneration(), 1u);
  ASSERT_TRUE(device->GetCommandQueue());
  ASSERT_TRUE(device->GetDeviceMemory());
  ASSERT_TRUE(device->GetHostMemory());

  std::size_t total, freeBlocks, liveBlocks, lowMark, highMark;
  device->GetDeviceMemory()->GetStatistics(&total, &freeBlocks, &liveBlocks, &lowMark, &highMark);
  EXPECT_EQ(lowMark, static_cast<std::size_t>(static_cast<float>(8 * kGiB) * 0.4f));
  EXPECT_EQ(highMark, static_cast<std::size_t>(static_cast<float>(8 * kGiB) * 0.6f));
  const unsigned long long hostBase =
      std::min<unsigned long long>(zelcore::utility::TotalPhysicalMemory(), 10 * kGiB);
  device->GetHostMemory()->GetStatistics(&total, &freeBlocks, &liveBlocks, &lowMark, &highMark);
  EXPECT_EQ(lowMark, static_cast<std::size_t>(static_cast<float>(hostBase) * 0.05f));
  EXPECT_EQ(highMark, static_cast<std::size_t>(static_cast<float>(hostBase) * 0.1f));
}

TEST_F(CUDADevice, AFailedContextLeavesTheDeviceWithoutOneAndReports) {
  boost::shared_ptr<LM::Device> device = Make();
  fake_->fakecuda_SetFailure("cuCtxCreate", CUDA_ERROR_OUT_OF_MEMORY, 0, 1);
  device->InitializeContext();
  EXPECT_EQ(device->GetContextHandle(), nullptr);
  EXPECT_FALSE(device->GetCommandQueue());
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("Context creation failure: CUDA_ERROR_OUT_OF_MEMORY"),
            std::string::npos);
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 0);
}

TEST_F(CUDADevice, ExclusiveAccessIsRecursiveAndBlocksOtherThreadsUntilTheOutermostRelease) {
  boost::shared_ptr<LM::Device> device = Make();
  device->InitializeContext();
  fake_->fakecuda_ClearCallLog();

  device->AcquireExclusiveAccess();
  device->AcquireExclusiveAccess();
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 2) << "every acquisition pushes the context";

  std::atomic<bool> acquired{false};
  std::atomic<int> depthInThread{-1};
  std::thread other([&] {
    device->AcquireExclusiveAccess();
    acquired = true;
    depthInThread = fake_->fakecuda_CurrentContextDepth();
    device->ReleaseExclusiveAccess();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired);
  device->ReleaseExclusiveAccess();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired) << "still held once";
  device->ReleaseExclusiveAccess();
  other.join();
  EXPECT_TRUE(acquired);
  EXPECT_EQ(depthInThread, 1);
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 0);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxPushCurrent"), 3u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxPopCurrent"), 3u);
}

// A release from a thread that does not hold the device would let a third thread in while the owner works.
TEST_F(CUDADevice, OnlyTheOwnerMayReleaseExclusiveAccess) {
  boost::shared_ptr<LM::Device> device = Make();
  device->InitializeContext();
  device->AcquireExclusiveAccess();
  const unsigned reports = zelcore::debug::AssertionReportCount();
  std::thread([&device] { device->ReleaseExclusiveAccess(); }).join();
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), reports + 1);
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("released by a thread that does not hold it"),
            std::string::npos);

  std::atomic<bool> acquired{false};
  std::thread third([&] {
    const LM::ExclusiveAccess access(*device);
    acquired = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired) << "the owner still holds the device";
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 1);
  device->ReleaseExclusiveAccess();
  third.join();
  EXPECT_TRUE(acquired);
}

// A push that failed pushed nothing: its release must not pop the context the host had current.
TEST_F(CUDADevice, AFailedPushIsNotFollowedByAPop) {
  boost::shared_ptr<LM::Device> device = Make();
  device->InitializeContext();
  const CurrentFakeContext hostContext;
  fake_->fakecuda_ClearCallLog();
  fake_->fakecuda_SetFailure("cuCtxPushCurrent", CUDA_ERROR_INVALID_CONTEXT, 0, 1);
  {
    const LM::ExclusiveAccess outer(*device);
    EXPECT_NE(zelcore::debug::LastAssertionReport().find("Context push failure"), std::string::npos);
    const LM::ExclusiveAccess inner(*device);
    EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 2) << "the host's and the inner level's";
  }
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 1) << "the host's context is still current";
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxPopCurrent"), 1u);
}

TEST_F(CUDADevice, EachDeviceHasItsOwnNamedExecutor) {
  boost::shared_ptr<LM::Device> first = Make("First");
  boost::shared_ptr<LM::Device> second = Make("Second");
  boost::shared_ptr<zelcore::threads::AsyncExecutor> executor = first->GetExecutor();
  ASSERT_TRUE(executor);
  EXPECT_EQ(first->GetExecutor(), executor);
  EXPECT_EQ(executor->Name(), "GPU Executor 01");
  EXPECT_EQ(second->GetExecutor()->Name(), "GPU Executor 02");
}

TEST_F(CUDADevice, AProfilingSwitchChangeReinitialisesAStartedDevice) {
  boost::shared_ptr<LM::Device> device = Make();
  device->ResetDebugFlags();
  EXPECT_EQ(device->GetContextGeneration(), 0u) << "a device without a context is not initialised by a reset";
  device->InitializeContext();
  const std::uint64_t identity = device->GetContextIdentity();
  device->ResetDebugFlags();
  EXPECT_EQ(device->GetContextGeneration(), 1u) << "nothing changed";

  zelcore::debug::DebugDatabase::Instance().Set("LM.ProfileKernels", "1");
  device->ResetDebugFlags();
  EXPECT_EQ(device->GetContextGeneration(), 1u) << "both switches are needed";
  zelcore::debug::DebugDatabase::Instance().Set("EnableDogEars", "1");
  device->ResetDebugFlags();
  EXPECT_TRUE(device->ProfilesKernels());
  EXPECT_EQ(device->GetContextGeneration(), 2u);
  EXPECT_NE(device->GetContextIdentity(), identity);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxSynchronize"), 1u) << "the old context finished its work first";
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 0);
}

// A context replaced by a re-initialisation goes as soon as nothing handed out from it is in use.
TEST_F(CUDADevice, ReplacedContextsDoNotAccumulate) {
  boost::shared_ptr<LM::Device> device = Make();
  device->InitializeContext();
  zelcore::debug::DebugDatabase& database = zelcore::debug::DebugDatabase::Instance();
  database.Set("EnableDogEars", "1");
  const auto reinitialise = [&](int i) {
    database.Set("LM.ProfileKernels", i % 2 == 0 ? "1" : "0");
    device->ResetDebugFlags();
  };
  void* held = nullptr;
  {
    const LM::ExclusiveAccess access(*device);
    held = device->GetDeviceMemory()->Allocate(1 << 20, nullptr);
  }
  reinitialise(0);
  EXPECT_EQ(fake_->fakecuda_LiveContexts(), 2u) << "a block of the first context is still out";
  {
    const LM::ExclusiveAccess access(*device);
    device->GetDeviceMemory()->Release(held, boost::shared_ptr<LM::Event>());
  }
  for (int i = 1; i < 5; ++i) reinitialise(i);
  EXPECT_EQ(device->GetContextGeneration(), 6u);
  EXPECT_EQ(fake_->fakecuda_LiveContexts(), 1u);
}

TEST_F(CUDADevice, ModulesAreFoundByTheirSourcesBaseNameAndLoadedOnce) {
  ExecutableFolder folder;
  folder.Write("PTX/Fills_NVIDIA.ptx", ".version 7.0\n.target sm_75\n");
  folder.Write("PTX/Empty_NVIDIA.ptx", "");
  boost::shared_ptr<LM::Device> device = Make();
  device->InitializeContext();
  {
    const LM::ExclusiveAccess access(*device);
    void* module = device->FindModule("..\\..\\Src\\ImageProcessing\\Fills");
    EXPECT_NE(module, nullptr);
    EXPECT_EQ(device->FindModule("Fills.cpp"), module);
    EXPECT_EQ(device->FindModule("/src/ImageProcessing/Fills"), module);
    EXPECT_EQ(device->FindModule("Missing"), nullptr);
    EXPECT_EQ(device->FindModule("Empty"), nullptr);
  }
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleLoadDataEx"), 1u) << "an empty image never reaches the driver";

  device->ShutDown(true);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleUnload"), 1u);
  EXPECT_FALSE(device->GetDeviceMemory()) << "a full release drops the pools";
  EXPECT_FALSE(device->GetHostMemory());
}

TEST_F(CUDADevice, ShutDownWithoutFullReleaseKeepsThePoolsButEmptiesThem) {
  boost::shared_ptr<LM::Device> device = Make();
  device->InitializeContext();
  {
    const LM::ExclusiveAccess access(*device);
    void* block = device->GetDeviceMemory()->Allocate(1 << 20, nullptr);
    device->GetDeviceMemory()->Release(block, boost::shared_ptr<LM::Event>());
  }
  device->ShutDown(false);
  ASSERT_TRUE(device->GetDeviceMemory());
  std::size_t total, freeBlocks, liveBlocks, lowMark, highMark;
  device->GetDeviceMemory()->GetStatistics(&total, &freeBlocks, &liveBlocks, &lowMark, &highMark);
  EXPECT_EQ(total, 0u);
  EXPECT_EQ(fake_->fakecuda_LiveDeviceAllocations(), 0u);
}

TEST_F(CUDADevice, TheLastReferenceReleasesTheContextAndWhatLivesInIt) {
  {
    boost::shared_ptr<LM::Device> device = Make();
    device->InitializeContext();
  }
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxDestroy"), 1u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuStreamDestroy"), 3u);
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 0);
}

// After a transient cuInit failure, start-up binds the legacy interface, which has no cuStreamWaitEvent;
// a driver older than 2.1 lacks cuModuleLoadDataEx as well. Nothing may call an unbound slot: the queue
// waits on the host instead, a read-back stays on the main stream, a module loads with default options.
TEST(LegacyDriver, AStartUpAfterATransientInitFailureCallsNoUnboundEntryPoint) {
  ExecutableFolder folder;
  folder.Write("PTX/Probe_NVIDIA.ptx",
               ".version 6.4\n.target sm_75\n.address_size 64\n.visible .entry Probe()\n{\n\tret;\n}\n");
  LM::CUDADriverLibraryName = FAKECUDA_PATH;
  FakeCUDA fake(FAKECUDA_PATH);
  zelcore::debug::SetAssertionOutputQuiet(true);
  fake.fakecuda_SetFailure("cuInit", CUDA_ERROR_NOT_INITIALIZED, 0, 1);
  LM::Initialize(true);
  ASSERT_EQ(LM::CUDA.cuStreamWaitEvent, nullptr);
  boost::shared_ptr<LM::Device> device = LM::GetPrimaryDevice(LM::kDeviceFramework_CUDA);
  ASSERT_TRUE(device && device->WaitForContext());
  {
    const LM::ExclusiveAccess access(*device);
    LM::CUDA.cuModuleLoadDataEx = nullptr;
    EXPECT_NE(device->FindModule("Probe"), nullptr);
    EXPECT_EQ(fake.fakecuda_CallCount("cuModuleLoadData"), 1u);

    const boost::shared_ptr<LM::CommandQueue> queue = device->GetCommandQueue();
    fake.fakecuda_SetEventsComplete(0);
    const boost::shared_ptr<LM::Event> pending = queue->RecordEvent();
    queue->WaitForEvent(pending);
    EXPECT_TRUE(pending->IsComplete()) << "waited for on the host";
    std::vector<unsigned char> source(64, 7), target(64, 0);
    boost::shared_ptr<LM::Event> done;
    EXPECT_EQ(queue->CopyDeviceToHost(source.data(), target.data(), 64, &done, false), LM::kResultSuccess);
    EXPECT_EQ(target, source);
  }
  LM::Terminate();
}

}  // namespace
