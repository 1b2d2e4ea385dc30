// The library started on the real OpenCL runtime (PoCL here), as a host would, beyond what every pixel test
// (tests/devices) stands on: programs registered after start-up, the device suite through the host's suite
// registry, texture uploads, event polls, re-initialisation and shut-down.
#include <TQ/Suites.h>
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "Lumora/Device.h"
#include "Lumora/DeviceSuite.h"
#include "Lumora/EventPoll.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/OpenCLModuleLoader.h"
#include "Lumora/Results.h"
#include "Lumora/Runtime.h"
#include "Lumora/Textures.h"
#include "Modules/ModuleRegistry.h"
#include "OpenCLTestContext.h"

namespace {

const char* kProgram =
    "// module: StartUpProbe\n"
    "__kernel void Probe(__global int* out) { out[get_global_id(0)] = (int)get_global_id(0); }\n";

class OpenCLStartUp : public testing::Test {
 protected:
  void SetUp() override {
    zelcore::debug::DebugDatabase::Instance().Set("LM.EnableOpenCL", "1");
    zelcore::debug::DebugDatabase::Instance().Set("LM.OpenCLIncludeCPUDevices", "1");
    LM::CUDADriverLibraryName = "/nonexistent/libcuda.so.1";  // no CUDA here, whatever the machine has
    testing::internal::CaptureStdout();
    LM::Initialize(true);
    testing::internal::GetCapturedStdout();
    if (LM::GetDeviceCount() == 0) GTEST_SKIP() << "no OpenCL device";
    device_ = LM::GetPrimaryDevice(LM::kDeviceFramework_OpenCL);
  }
  void TearDown() override {
    device_.reset();
    LM::Terminate();
  }
  // Every program and kernel holds a reference on its context, so one left behind shows here.
  cl_uint ContextReferences() {
    cl_uint count = 0;
    RuntimeEntryPoint<decltype(clGetContextInfo)>("clGetContextInfo")(
        static_cast<cl_context>(device_->GetContextHandle()), CL_CONTEXT_REFERENCE_COUNT, sizeof count,
        &count, nullptr);
    return count;
  }
  boost::shared_ptr<LM::Device> device_;
};

// The table is rebuilt by a posted task (waited for before any lookup, which would build it itself); a text
// that does not build gives no module and leaves no program behind.
TEST_F(OpenCLStartUp, ARegisteredProgramIsFoundAsAModuleAndItsKernelsRun) {
  ASSERT_TRUE(device_ && device_->WaitForContext());
  zelcore::debug::SetAssertionOutputQuiet(true);
  const char* texts[] = {kProgram, "// module: Broken\n__kernel void Broken(__global float* x) { x[0] = ; }"};
  LM::OpenCLModuleLoader loader(texts, 2);
  for (int i = 0; i < 10000 && !LM::IsModuleTableBuilt(LM::kDeviceFramework_OpenCL, 0); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  ASSERT_TRUE(LM::IsModuleTableBuilt(LM::kDeviceFramework_OpenCL, 0)) << "the posted rebuild did not run";
  const LM::ExclusiveAccess access(*device_);
  const cl_uint references = ContextReferences();
  EXPECT_EQ(device_->FindModule("Broken"), nullptr);
  EXPECT_EQ(ContextReferences(), references) << "the program that failed to build was released";
  cl_program program =
      static_cast<cl_program>(device_->FindModule("..\\..\\Src\\ImageProcessing\\StartUpProbe"));
  ASSERT_NE(program, nullptr);
  cl_int error = CL_SUCCESS;
  const OwnedKernel kernel(clCreateKernel(program, "Probe", &error));
  ASSERT_EQ(error, CL_SUCCESS);
  void* buffer = device_->GetDeviceMemory()->Allocate(256 * sizeof(int), nullptr);
  cl_mem memory = static_cast<cl_mem>(buffer);
  ASSERT_EQ(clSetKernelArg(kernel.get(), 0, sizeof memory, &memory), CL_SUCCESS);
  ASSERT_EQ(device_->GetCommandQueue()->LaunchKernel(kernel.get(), 16, 1, 16, 1, nullptr),
            LM::kResultSuccess);
  int result[256] = {};
  ASSERT_EQ(device_->GetCommandQueue()->CopyDeviceToHost(buffer, result, sizeof result, nullptr, true),
            LM::kResultSuccess);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(result[i], i);
  device_->GetDeviceMemory()->Release(buffer, boost::shared_ptr<LM::Event>());
}

TEST_F(OpenCLStartUp, TheDeviceSuiteWorksThroughTheHostsRegistry) {
  ASSERT_TRUE(device_ && device_->WaitForContext());
  LM_DeviceSuite suite;
  ASSERT_TRUE(TQ::AcquireSuite(LM_DEVICE_SUITE_NAME, LM_DEVICE_SUITE_VERSION, &suite, sizeof suite));

  uint32_t count = 0, framework = 7;
  EXPECT_EQ(suite.GetDeviceCount(0, &count), LM_SUITE_OK);
  EXPECT_EQ(count, LM::GetDeviceCount());
  EXPECT_EQ(suite.GetDeviceFramework(0, &framework), LM_SUITE_OK);
  EXPECT_EQ(framework, 1u);
  int32_t meets = -1;
  EXPECT_EQ(suite.MeetsMinimumRequirementsForUse(0, &meets), LM_SUITE_OK);
  EXPECT_EQ(meets, 1);
  EXPECT_EQ(suite.AcquireExclusiveAccess(0), LM_SUITE_OK);
  EXPECT_EQ(suite.ReleaseExclusiveAccess(0), LM_SUITE_OK);

  for (auto handle : {std::make_pair(suite.GetNativeDevice, device_->GetDeviceHandle()),
                      std::make_pair(suite.GetContext, device_->GetContextHandle()),
                      std::make_pair(suite.GetPlatform, device_->GetPlatformHandle()),
                      std::make_pair(suite.GetCommandQueue, device_->GetCommandQueue()->GetNativeQueue())}) {
    void* got = nullptr;
    EXPECT_EQ(handle.first(0, &got), LM_SUITE_OK);
    EXPECT_EQ(got, handle.second);
  }

  for (auto pool : {std::make_tuple(suite.AllocateDeviceMemory, suite.FreeDeviceMemory,
                                    suite.PurgeDeviceMemory, suite.GetDeviceMemoryStatistics),
                    std::make_tuple(suite.AllocateHostMemory, suite.FreeHostMemory, suite.PurgeHostMemory,
                                    suite.GetHostMemoryStatistics)}) {
    void* memory = nullptr;
    ASSERT_EQ(std::get<0>(pool)(0, 1 << 20, &memory), LM_SUITE_OK);
    ASSERT_NE(memory, nullptr);
    LM_MemoryStatistics statistics;
    EXPECT_EQ(std::get<3>(pool)(0, &statistics), LM_SUITE_OK);
    EXPECT_GE(statistics.usedBytes, std::size_t(1) << 20);
    EXPECT_EQ(statistics.liveBlocks, 1u);
    EXPECT_LE(statistics.lowMark, statistics.highMark);
    EXPECT_EQ(std::get<1>(pool)(0, memory), LM_SUITE_OK);
    EXPECT_EQ(suite.WaitForDevice(0), LM_SUITE_OK);
    std::size_t freed = 0;
    EXPECT_EQ(std::get<2>(pool)(0, static_cast<std::size_t>(-1), &freed), LM_SUITE_OK);
    EXPECT_GE(freed, std::size_t(1) << 20);
    EXPECT_EQ(std::get<3>(pool)(0, &statistics), LM_SUITE_OK);
    EXPECT_EQ(statistics.totalBytes, 0u);
  }
}

// An empty or negative extent is refused (kResultFailed) by the texture upload, unlike the operations, for
// which nothing to do is success: no image of such a size exists to fill.
TEST_F(OpenCLStartUp, TextureUploadsRefuseSizesThatAreNotPositive) {
  ASSERT_TRUE(device_ && device_->WaitForContext());
  const LM::ExclusiveAccess access(*device_);
  const LM::PixelFormat format = LM::kPixelFormat_GPU_BGRA_4444_32f;
  void* buffer = device_->GetDeviceMemory()->Allocate(16 * 4 * 4, nullptr);
  ASSERT_NE(buffer, nullptr);
  LM::Texture texture;
  ASSERT_EQ(LM::BindTexture(device_, texture, buffer, buffer, 64, 4, 4, format), LM::kResultSuccess);
  for (const auto& [width, height] : {std::make_pair(0, 4), std::make_pair(4, 0), std::make_pair(-4, 4)}) {
    LM::Texture other;
    EXPECT_EQ(LM::BindTexture(device_, other, buffer, buffer, 64, width, height, format), LM::kResultFailed)
        << width << " x " << height;
    EXPECT_EQ(LM::CopyBufferToImage(device_, buffer, 0, 64, texture.image, format, width, height),
              LM::kResultFailed)
        << width << " x " << height;
  }
  device_->GetDeviceMemory()->Release(buffer, device_->GetCommandQueue()->RecordEvent());
}

TEST_F(OpenCLStartUp, AnEventPollFiresAfterARealMarkerCompletes) {
  ASSERT_TRUE(device_ && device_->WaitForContext());
  boost::shared_ptr<LM::Event> marker;
  {
    const LM::ExclusiveAccess access(*device_);
    marker = device_->GetCommandQueue()->RecordEvent();
  }
  std::atomic<bool> fired{false};
  LM::AddEventPoll(device_, marker, [&fired] { fired = true; });
  for (int i = 0; i < 1000 && !fired; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_TRUE(fired);
  EXPECT_TRUE(marker->IsComplete());
}

// A kernel holds its program and a program its context: kernels left behind by re-initialisations would
// show as references on the context, which re-initialisation keeps on OpenCL.
TEST_F(OpenCLStartUp, ReinitialisingLeavesNoKernelBehind) {
  ASSERT_TRUE(device_ && device_->WaitForContext());
  zelcore::debug::DebugDatabase& database = zelcore::debug::DebugDatabase::Instance();
  database.Set("EnableDogEars", "1");
  void* buffer = nullptr;
  cl_uint before = 0;
  for (int i = 0; i < 4; ++i) {
    {
      const LM::ExclusiveAccess access(*device_);
      if (buffer == nullptr) buffer = device_->GetDeviceMemory()->Allocate(4096, nullptr);
      ASSERT_EQ(LM::FillWithColor(device_, buffer, 256, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 4, 4,
                                  LM::float4{0.0f, 0.0f, 0.0f, 1.0f}),
                LM::kResultSuccess);
      ASSERT_EQ(clFinish(static_cast<cl_command_queue>(device_->GetCommandQueue()->GetNativeQueue())),
                CL_SUCCESS);
    }
    if (i == 0) before = ContextReferences();
    database.Set("LM.ProfileKernels", i % 2 == 0 ? "1" : "0");
    device_->ResetDebugFlags();
  }
  EXPECT_EQ(ContextReferences(), before);
  database.Remove("LM.ProfileKernels");
  database.Remove("EnableDogEars");
  const LM::ExclusiveAccess access(*device_);
  device_->GetDeviceMemory()->Release(buffer, boost::shared_ptr<LM::Event>());
}

}  // namespace
