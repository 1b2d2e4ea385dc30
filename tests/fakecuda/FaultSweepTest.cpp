// Every CUDA call of a whole session fails in turn, one call index per round: binding and start-up, a fill,
// a copy, a texture bound, shut-down. Whatever fails, nothing crashes, nothing the driver handed out is
// left behind (contexts, modules, memory, streams, events) and no context stays current on any thread.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <cstdio>
#include <set>
#include <string>

#include "BuiltPtx.h"
#include "ExecutableFolder.h"
#include "FakeDriverBinding.h"
#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Textures.h"

namespace {

constexpr LM::PixelFormat kFormat = LM::kPixelFormat_GPU_BGRA_4444_32f;
constexpr int kSide = 64;
constexpr int kRowBytes = kSide * 16;

// One session as a host runs it. Start-up binds and enumerates; the context is made here rather than by
// Initialize(true), which starts contexts once per process only.
void RunSession() {
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

TEST(FaultSweep, AnyFailingCallLeavesNothingBehind) {
  if (BuiltPtx("Fills").empty()) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built";
  ExecutableFolder folder;
  for (const char* module : {"Fills", "Memory", "TextureProbe"})
    folder.Write(std::string("PTX/") + module + "_NVIDIA.ptx", BuiltPtx(module));
  LM::CUDADriverLibraryName = FAKECUDA_PATH;
  FakeCUDA fake(FAKECUDA_PATH);
  zelcore::debug::SetAssertionOutputQuiet(true);

  fake.fakecuda_ClearCallLog();
  const unsigned long long before = fake.fakecuda_CallsMade();
  RunSession();
  const unsigned long long calls = fake.fakecuda_CallsMade() - before;
  ASSERT_GT(fake.fakecuda_LaunchCount(), 0u) << "the session without failures launches its fill and copy";
  std::set<std::string> sites;
  for (const std::string& name : fake.CallNames()) sites.insert(name);

  for (unsigned long long failing = 0; failing < calls; ++failing) {
    fake.fakecuda_SetFailureAt(failing, CUDA_ERROR_UNKNOWN);
    RunSession();
    fake.fakecuda_ClearFailures();
    SCOPED_TRACE("call " + std::to_string(failing) + " failed");
    EXPECT_EQ(fake.fakecuda_LiveContexts(), 0u);
    EXPECT_EQ(fake.fakecuda_LiveModules(), 0u);
    EXPECT_EQ(fake.fakecuda_LiveDeviceAllocations(), 0u);
    EXPECT_EQ(fake.fakecuda_LiveHostAllocations(), 0u);
    EXPECT_EQ(fake.fakecuda_LiveStreams(), 0u);
    EXPECT_EQ(fake.fakecuda_LiveEvents(), 0u);
    EXPECT_EQ(fake.fakecuda_TotalContextDepth(), 0);
    if (HasFailure()) break;
  }
  std::printf("fault sweep: %llu calls failed in turn, at %zu call sites\n", calls, sites.size());
}

}  // namespace
