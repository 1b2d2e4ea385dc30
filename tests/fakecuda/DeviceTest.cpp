// CUDA devices against the fake driver: creation and rejection, qualification at each boundary, the context
// and its pools, exclusive access across threads, executors, re-initialisation, modules, shut-down, the
// allocation policies and uploads of foreign host memory.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>
#include <zelcore/Threads.h>
#include <zelcore/Utility.h>
#include <zelmediatypes/PixelFormats.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "ExecutableFolder.h"
#include "FakeDriverBinding.h"
#include "ForeignFrame.h"
#include "Lumora/Device.h"
#include "Lumora/FrameTransfers.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Qualification.h"
#include "Lumora/Results.h"
#include "Lumora/VideoFrames.h"
#include "Memory/CUDAMemoryPolicies.h"
#include "Memory/MemoryManagers.h"

namespace {

constexpr unsigned long long kMiB = 1ull << 20, kGiB = 1ull << 30;
using Args = std::vector<unsigned long long>;

bool Reported(const char* text) {
  return zelcore::debug::LastAssertionReport().find(text) != std::string::npos;
}

void Pause() {
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

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
  // A device of one more fake card, at the next framework index.
  boost::shared_ptr<LM::Device> Make(const char* name = "Card", int major = 7, int minor = 5,
                                     unsigned long long memory = 8 * kGiB) {
    const int ordinal = fake_->fakecuda_AddDevice(name, major, minor, memory);
    return LM::Device::Create(static_cast<unsigned>(ordinal), static_cast<unsigned>(ordinal), ordinal);
  }
  // The only card, with the driver at `driverVersion`, as the device at `frameworkIndex` among CUDA devices.
  boost::shared_ptr<LM::Device> Card(const char* name, int major, int minor, unsigned long long memory,
                                     int driverVersion = 4000, unsigned frameworkIndex = 0) {
    fake_->fakecuda_ClearDevices();
    fake_->fakecuda_AddDevice(name, major, minor, memory);
    fake_->fakecuda_SetDriverVersion(driverVersion);
    boost::shared_ptr<LM::Device> device = LM::Device::Create(frameworkIndex, frameworkIndex, 0);
    EXPECT_TRUE(device);
    return device;
  }
  // The arguments of the call named `name`, which must be the only one in the fake's log.
  Args OnlyCall(const std::string& name) {
    const std::vector<Args> calls = fake_->ArgsOf(name);
    EXPECT_EQ(calls.size(), 1u) << name;
    return calls.empty() ? Args{} : calls[0];
  }

  std::unique_ptr<FakeCUDA> fake_;
  ExecutableFolder folder_;
};

TEST_F(CUDADevice, IdentityComesFromTheDriverAndEmulatorsOrUnreadableIdentitiesAreRejected) {
  fake_->fakecuda_SetDriverVersion(12040);
  boost::shared_ptr<LM::Device> device = Make("Fake RTX", 8, 6, 12 * kGiB);
  ASSERT_TRUE(device);
  EXPECT_EQ(device->GetFramework(), LM::kDeviceFramework_CUDA);
  EXPECT_EQ(device->GetVendor(), LM::kVendor_NVIDIA);
  EXPECT_EQ(device->GetName(), "Fake RTX");
  EXPECT_DOUBLE_EQ(device->GetComputeCapability(), 8.6);
  EXPECT_DOUBLE_EQ(device->GetDriverVersion(), 12.04);
  EXPECT_EQ(device->GetTotalMemory(), 12 * kGiB);

  EXPECT_FALSE(Make("Emulator", 9999, 9999));
  EXPECT_FALSE(Make("Emulator", 9999, 0));
  fake_->fakecuda_SetFailure("cuDeviceGetName", CUDA_ERROR_INVALID_DEVICE, 0, 1);
  EXPECT_FALSE(Make("Nameless"));
  EXPECT_TRUE(Reported("Unknown device name"));
  for (const char* failing : {"cuDeviceTotalMem", "cuDriverGetVersion", "cuDeviceComputeCapability"}) {
    fake_->fakecuda_SetFailure(failing, CUDA_ERROR_INVALID_DEVICE, 0, 1);
    EXPECT_FALSE(Make(failing));
  }
  EXPECT_TRUE(Make("Fine"));
}

TEST_F(CUDADevice, EveryQualificationTestAtItsBoundary) {
  constexpr unsigned long long kMemoryUpTo11 = 802160640ull, kMemory = 534773760ull;
  EXPECT_TRUE(LM::MeetsMinimumRequirementsForUse(Card("Any Card", 7, 5, kMemory))) << "without a card list";
  folder_.Write("cuda_supported_cards.txt", "Boundary Card\n");
  folder_.Write("opencl_supported_cards.txt", "");  // which does not apply to CUDA devices
  EXPECT_TRUE(LM::MeetsMinimumRequirementsForUse(Card("Boundary Card", 1, 1, kMemoryUpTo11, 4000, 3)));
  const struct {
    const char* name;
    int major, minor;
    unsigned long long memory;
    int driver;
    unsigned index;
    const char* failed;
  } cases[] = {{"Boundary Card", 1, 1, kMemoryUpTo11, 3999, 0, "driver"},
               {"Boundary Card", 1, 0, kMemoryUpTo11, 4000, 0, "compute capability"},
               {"Boundary Card", 1, 1, kMemoryUpTo11 - 1, 4000, 0, "memory"},
               {"Boundary Card", 9, 0, kMemory * 8, 12000, 4, "device count"},
               {"Other Card", 9, 0, kMemory * 8, 12000, 0, "card list"}};
  for (const auto& c : cases) {
    EXPECT_STREQ(LM::FirstFailedRequirement(Card(c.name, c.major, c.minor, c.memory, c.driver, c.index)),
                 c.failed);
  }
  // Later capabilities need less memory.
  EXPECT_TRUE(LM::MeetsMinimumMemoryRequirementsForUse(Card("Card", 1, 2, kMemory)));
  EXPECT_FALSE(LM::MeetsMinimumMemoryRequirementsForUse(Card("Card", 1, 2, kMemory - 1)));
  EXPECT_FALSE(LM::MeetsMinimumMemoryRequirementsForUse(Card("Card", 1, 1, kMemory)));
  folder_.Write("cuda_supported_cards.txt", "");
  EXPECT_FALSE(LM::MeetsMinimumRequirementsForUse(Card("Any Card", 7, 5, kMemory)))
      << "an empty list admits none";
  const boost::shared_ptr<LM::Device> none;
  EXPECT_FALSE(LM::MeetsMinimumRequirementsForUse(none));
  EXPECT_FALSE(LM::MatchesNamedCardList(none));
  EXPECT_EQ(LM::FirstFailedRequirement(none), nullptr);
}

// Carriage returns are stripped, a trailing blank is kept, case counts, no prefixes, the last line needs no
// newline, and a blank line matches an empty name.
TEST_F(CUDADevice, ACardListMatchesWholeLinesExactly) {
  folder_.Write("cuda_supported_cards.txt", "GeForce A\r\nGeForce B \ngeforce c\n\nGeForce D");
  const std::pair<const char*, bool> cases[] = {{"GeForce A", true},  {"GeForce B", false},
                                                {"GeForce C", false}, {"GeForce", false},
                                                {"GeForce D", true},  {"", true}};
  for (const auto& [name, listed] : cases)
    EXPECT_EQ(LM::MatchesNamedCardList(Card(name, 7, 5, 8 * kGiB)), listed) << '"' << name << '"';
}

TEST_F(CUDADevice, InitializingMakesContextQueueAndPoolsSizedFromMemoryOrNothingWhenItFails) {
  boost::shared_ptr<LM::Device> device = Make("Card", 7, 5, 8 * kGiB);
  device->InitializeContext();
  ASSERT_NE(device->GetContextHandle(), nullptr);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxCreate"), 1u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuGLCtxCreate"), 0u) << "a headless host shares nothing with OpenGL";
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 0) << "creation leaves no context current";
  EXPECT_EQ(device->GetContextGeneration(), 1u);
  ASSERT_TRUE(device->GetCommandQueue() && device->GetDeviceMemory() && device->GetHostMemory());
  std::size_t total, freeBlocks, liveBlocks, lowMark, highMark;
  device->GetDeviceMemory()->GetStatistics(&total, &freeBlocks, &liveBlocks, &lowMark, &highMark);
  EXPECT_EQ(lowMark, static_cast<std::size_t>(static_cast<float>(8 * kGiB) * 0.4f));
  EXPECT_EQ(highMark, static_cast<std::size_t>(static_cast<float>(8 * kGiB) * 0.6f));
  const float hostBase = std::min<unsigned long long>(zelcore::utility::TotalPhysicalMemory(), 10 * kGiB);
  device->GetHostMemory()->GetStatistics(&total, &freeBlocks, &liveBlocks, &lowMark, &highMark);
  EXPECT_EQ(lowMark, static_cast<std::size_t>(hostBase * 0.05f));
  EXPECT_EQ(highMark, static_cast<std::size_t>(hostBase * 0.1f));

  boost::shared_ptr<LM::Device> failed = Make();
  fake_->fakecuda_SetFailure("cuCtxCreate", CUDA_ERROR_OUT_OF_MEMORY, 0, 1);
  failed->InitializeContext();
  EXPECT_EQ(failed->GetContextHandle(), nullptr);
  EXPECT_FALSE(failed->GetCommandQueue());
  EXPECT_TRUE(Reported("Context creation failure: CUDA_ERROR_OUT_OF_MEMORY"));
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 0);
}

// Every acquisition pushes the context. A release from a thread that does not hold the device would let a
// third thread in while the owner works: it is refused and reported.
TEST_F(CUDADevice, ExclusiveAccessIsRecursiveAndBlocksOtherThreadsUntilTheOwnersOutermostRelease) {
  boost::shared_ptr<LM::Device> device = Make();
  device->InitializeContext();
  fake_->fakecuda_ClearCallLog();
  device->AcquireExclusiveAccess();
  device->AcquireExclusiveAccess();
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 2);
  const unsigned reports = zelcore::debug::AssertionReportCount();
  std::thread([&device] { device->ReleaseExclusiveAccess(); }).join();
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), reports + 1);
  EXPECT_TRUE(Reported("released by a thread that does not hold it"));

  std::atomic<bool> acquired{false};
  std::atomic<int> depthInThread{-1};
  std::thread other([&] {
    const LM::ExclusiveAccess access(*device);
    acquired = true;
    depthInThread = fake_->fakecuda_CurrentContextDepth();
  });
  Pause();
  EXPECT_FALSE(acquired);
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 2);
  device->ReleaseExclusiveAccess();
  Pause();
  EXPECT_FALSE(acquired) << "still held once";
  device->ReleaseExclusiveAccess();
  other.join();
  EXPECT_TRUE(acquired);
  EXPECT_EQ(depthInThread, 1);
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 0);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxPushCurrent"), 3u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxPopCurrent"), 3u);
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
    EXPECT_TRUE(Reported("Context push failure"));
    const LM::ExclusiveAccess inner(*device);
    EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 2) << "the host's and the inner level's";
  }
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 1) << "the host's context is still current";
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxPopCurrent"), 1u);
}

TEST_F(CUDADevice, EachDeviceHasItsOwnNamedExecutor) {
  boost::shared_ptr<LM::Device> first = Make("First"), second = Make("Second");
  boost::shared_ptr<zelcore::threads::AsyncExecutor> executor = first->GetExecutor();
  ASSERT_TRUE(executor);
  EXPECT_EQ(first->GetExecutor(), executor);
  EXPECT_EQ(executor->Name(), "GPU Executor 01");
  EXPECT_EQ(second->GetExecutor()->Name(), "GPU Executor 02");
}

// Both profiling switches together re-initialise a started device; the replaced context goes as soon as
// nothing handed out from it is in use, so contexts do not accumulate.
TEST_F(CUDADevice, AProfilingSwitchChangeReinitialisesAStartedDeviceWithoutAccumulatingContexts) {
  zelcore::debug::DebugDatabase& database = zelcore::debug::DebugDatabase::Instance();
  boost::shared_ptr<LM::Device> device = Make();
  device->ResetDebugFlags();
  EXPECT_EQ(device->GetContextGeneration(), 0u) << "a device without a context is not initialised by a reset";
  device->InitializeContext();
  const std::uint64_t identity = device->GetContextIdentity();
  device->ResetDebugFlags();
  EXPECT_EQ(device->GetContextGeneration(), 1u) << "nothing changed";
  database.Set("LM.ProfileKernels", "1");
  device->ResetDebugFlags();
  EXPECT_EQ(device->GetContextGeneration(), 1u) << "both switches are needed";
  void* held = nullptr;
  {
    const LM::ExclusiveAccess access(*device);
    held = device->GetDeviceMemory()->Allocate(1 << 20, nullptr);
  }
  database.Set("EnableDogEars", "1");
  device->ResetDebugFlags();
  EXPECT_TRUE(device->ProfilesKernels());
  EXPECT_EQ(device->GetContextGeneration(), 2u);
  EXPECT_NE(device->GetContextIdentity(), identity);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuCtxSynchronize"), 1u) << "the old context finished its work first";
  EXPECT_EQ(fake_->fakecuda_CurrentContextDepth(), 0);
  EXPECT_EQ(fake_->fakecuda_LiveContexts(), 2u) << "a block of the first context is still out";
  {
    const LM::ExclusiveAccess access(*device);
    device->GetDeviceMemory()->Release(held, boost::shared_ptr<LM::Event>());
  }
  for (int i = 1; i < 5; ++i) {
    database.Set("LM.ProfileKernels", i % 2 == 0 ? "1" : "0");
    device->ResetDebugFlags();
  }
  EXPECT_EQ(device->GetContextGeneration(), 6u);
  EXPECT_EQ(fake_->fakecuda_LiveContexts(), 1u);
}

TEST_F(CUDADevice, ModulesAreFoundByTheirSourcesBaseNameAndLoadedOnce) {
  folder_.Write("PTX/Fills_NVIDIA.ptx", ".version 7.0\n.target sm_75\n");
  folder_.Write("PTX/Empty_NVIDIA.ptx", "");
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
  EXPECT_FALSE(device->GetDeviceMemory() || device->GetHostMemory()) << "a full release drops the pools";
}

// Shut-down without a full release keeps the pools but empties them; the last reference releases the
// context and what lives in it.
TEST_F(CUDADevice, ShutDownEmptiesThePoolsAndTheLastReferenceReleasesTheContext) {
  {
    boost::shared_ptr<LM::Device> device = Make();
    device->InitializeContext();
    {
      const LM::ExclusiveAccess access(*device);
      device->GetDeviceMemory()->Release(device->GetDeviceMemory()->Allocate(1 << 20, nullptr), {});
    }
    device->ShutDown(false);
    ASSERT_TRUE(device->GetDeviceMemory());
    std::size_t total = 1;
    device->GetDeviceMemory()->GetStatistics(&total, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(total + fake_->fakecuda_LiveDeviceAllocations(), 0u);
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

// Device requests wrap at 32 bits in the driver's call but keep their full size in the pool; host memory is
// page-locked without flags.
TEST_F(CUDADevice, AllocationPoliciesAskTheDriverAndRecordTheFullSize) {
  auto device = LM::CreateCUDADeviceMemoryManager("device", 0, 8 * kGiB, 16 * kGiB, 0, {});
  std::size_t allocated = 0;
  void* block = device->Allocate(4 * kGiB + kMiB, &allocated);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(allocated, 4 * kGiB + kMiB);
  EXPECT_EQ(OnlyCall("cuMemAlloc_v2").at(1), kMiB);
  device->Release(block, {});
  EXPECT_EQ(device->Purge(1), 4 * kGiB + kMiB) << "given back at the size recorded";
  EXPECT_EQ(OnlyCall("cuMemFree_v2"), Args{reinterpret_cast<std::uintptr_t>(block)});

  auto host = LM::CreateCUDAHostMemoryManager("host", 0, kGiB, 2 * kGiB, 0, {});
  block = host->Allocate(3 * kMiB, nullptr);
  ASSERT_NE(block, nullptr);
  const Args args = OnlyCall("cuMemHostAlloc");
  ASSERT_EQ(args.size(), 3u);
  EXPECT_EQ(Args(args.begin() + 1, args.end()), (Args{3 * kMiB, 0})) << "the size and no flags";
  host->Release(block, {});
  host.reset();
  EXPECT_EQ(OnlyCall("cuMemFreeHost"), Args{reinterpret_cast<std::uintptr_t>(block)});
  EXPECT_EQ(fake_->fakecuda_LiveHostAllocations(), 0u);
}

TEST_F(CUDADevice, AllocationRefusalsAndAnUnboundDriverGiveNull) {
  std::size_t allocated = 0;
  const PFN_cuMemAlloc bound = LM::CUDA.cuMemAlloc;
  LM::CUDA.cuMemAlloc = nullptr;
  EXPECT_EQ(LM::CUDADeviceMemoryPoolManager().Allocate(LM::AllocationKey::OfSize(kMiB), &allocated).pointer,
            nullptr);
  LM::CUDA.cuMemAlloc = bound;
  auto device = LM::CreateCUDADeviceMemoryManager("device", 0, kGiB, 2 * kGiB, 0, {});
  fake_->fakecuda_SetMemoryLimit(2 * kMiB);
  EXPECT_EQ(device->Allocate(3 * kMiB, &allocated), nullptr);
  EXPECT_EQ(allocated, 0u);
  auto host = LM::CreateCUDAHostMemoryManager("host", 0, kGiB, 2 * kGiB, 0, {});
  fake_->fakecuda_SetFailure("cuMemHostAlloc", CUDA_ERROR_OUT_OF_MEMORY, 0, kFakeCUDAFailForever);
  EXPECT_EQ(host->Allocate(kMiB, nullptr), nullptr);
}

// Host memory the library did not allocate is page-locked for its copy and held, locked, until the copy's
// event has completed; the library's own pinned frames are copied as they are, carrying the copy's event.
TEST_F(CUDADevice, ForeignMemoryIsLockedAndHeldUntilItsUploadEnds) {
  using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;
  const auto references = [](const Frame& frame) { return frame->AddRef(), frame->Release(); };
  fake_->fakecuda_AddDevice("Card", 7, 5, 8 * kGiB);
  const boost::shared_ptr<LM::Device> device = LM::Device::Create(0, 0, 0);
  device->InitializeContext();
  fake_->fakecuda_SetEventsComplete(0);
  const Frame foreign = ForeignFrame::Make(zelmediatypes::kPixelFormat_BGRA_4444_8u, 8, 4);
  const Frame uploaded = LM::CopyToDevice(device, foreign, {}, false);
  ASSERT_TRUE(uploaded);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemHostRegister"), 1u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemHostUnregister"), 0u) << "the copy may still read it";
  EXPECT_EQ(references(foreign), 2u) << "held by the poll";
  const auto copy = OXR::Query<LM::ICompletionEventVideoFrame>(uploaded);
  ASSERT_TRUE(copy && copy->GetCompletionEvent());
  fake_->fakecuda_SetEventsComplete(1);
  fake_->fakecuda_SetEventComplete(copy->GetCompletionEvent()->GetNativeEvent(), 1);
  for (int i = 0; i < 400 && references(foreign) != 1; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(references(foreign), 1u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemHostUnregister"), 1u);

  Frame pinned;
  ASSERT_EQ(LM::CreateHostMemoryVideoFrame(pinned, device, zelmediatypes::kPixelFormat_BGRA_4444_8u, 8, 4,
                                           {1, 1}, zelmediatypes::kFieldType_Progressive, {}),
            0);
  ASSERT_TRUE(LM::CopyToDevice(device, pinned, {}, true));
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemHostRegister"), 1u);
  const auto events = OXR::Query<LM::ICompletionEventVideoFrame>(pinned);
  ASSERT_TRUE(events);
  EXPECT_TRUE(events->GetCompletionEvent());
}

}  // namespace
