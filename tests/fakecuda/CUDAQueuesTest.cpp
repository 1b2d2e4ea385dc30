// The CUDA queue and its event pool against the fake driver: which driver calls each operation makes, on
// which stream, how events are recycled, and how failures become result codes.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <thread>
#include <vector>

#include "FakeDriverBinding.h"
#include "Lumora/Results.h"
#include "Queues/CUDAQueues.h"

namespace {

using Words = std::vector<unsigned long long>;

unsigned long long Handle(const void* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

// The calls named `name`, as (index in the log, arguments).
std::vector<std::pair<std::size_t, Words>> CallsOf(const FakeCUDA& fake, const std::string& name) {
  std::vector<std::pair<std::size_t, Words>> calls;
  const std::vector<std::string> names = fake.CallNames();
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) calls.emplace_back(i, fake.CallArgs(i));
  }
  return calls;
}

void* FakeKernel(const FakeCUDA& fake) {
  CUfunction function = nullptr;
  {
    const CurrentFakeContext context;
    CUmodule module = nullptr;
    const char image[] =
        ".version 6.4\n.target sm_75\n.address_size 64\n.visible .entry TestKernel()\n{\n\tret;\n}\n";
    EXPECT_EQ(LM::CUDA.cuModuleLoadData(&module, image), CUDA_SUCCESS);
    EXPECT_EQ(LM::CUDA.cuModuleGetFunction(&function, module, "TestKernel"), CUDA_SUCCESS);
  }
  fake.fakecuda_ClearCallLog();
  return function;
}

class CUDAQueues : public testing::Test {
 protected:
  void SetUp() override {
    fake_ = BindFakeDriver();
    queue_.reset(new LM::CUDACommandQueue);
    ASSERT_TRUE(queue_->Valid());
    // Two events made and returned up front, so the calls under test reuse them instead of creating.
    { auto a = queue_->RecordEvent(), b = queue_->RecordEvent(); }
    fake_->fakecuda_ClearCallLog();
  }

  std::unique_ptr<FakeCUDA> fake_;
  std::unique_ptr<LM::CUDACommandQueue> queue_;
};

TEST_F(CUDAQueues, ALaunchSetsTheBlockShapeThenLaunchesOnTheMainStreamThenRecords) {
  void* kernel = FakeKernel(*fake_);
  boost::shared_ptr<LM::Event> done;
  EXPECT_EQ(queue_->LaunchKernel(kernel, 2, 1, 16, 16, &done), LM::kResultSuccess);
  ASSERT_TRUE(done);
  ASSERT_EQ(fake_->CallNames(),
            (std::vector<std::string>{"cuFuncSetBlockShape", "cuLaunchGridAsync", "cuEventRecord"}));
  EXPECT_EQ(fake_->CallArgs(0), (Words{Handle(kernel), 16, 16, 1}));
  EXPECT_EQ(fake_->CallArgs(1), (Words{Handle(kernel), 2, 1, Handle(queue_->GetNativeQueue())}));
  EXPECT_EQ(fake_->CallArgs(2)[1], Handle(queue_->GetNativeQueue()));
}

TEST_F(CUDAQueues, AFailedBlockShapeLaunchesNothingAndMapsTheError) {
  void* kernel = FakeKernel(*fake_);
  fake_->fakecuda_SetFailure("cuFuncSetBlockShape", CUDA_ERROR_INVALID_VALUE, 0, 1);
  boost::shared_ptr<LM::Event> done = queue_->RecordEvent();
  EXPECT_EQ(queue_->LaunchKernel(kernel, 1, 1, 16, 16, &done), LM::kResultFailed);
  EXPECT_FALSE(done) << "no completion event for work that was not queued";
  EXPECT_EQ(fake_->fakecuda_CallCount("cuLaunchGridAsync"), 0u);

  fake_->fakecuda_SetFailure("cuLaunchGridAsync", CUDA_ERROR_OUT_OF_MEMORY, 0, 1);
  EXPECT_EQ(queue_->LaunchKernel(kernel, 1, 1, 16, 16, nullptr), LM::kResultOutOfMemory);
}

TEST_F(CUDAQueues, ACompletedEventNeverAsksTheDriverAgain) {
  fake_->fakecuda_SetEventsComplete(0);
  boost::shared_ptr<LM::Event> event = queue_->RecordEvent();
  EXPECT_FALSE(event->IsComplete());
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventQuery"), 1u);

  fake_->fakecuda_SetEventComplete(event->GetNativeEvent(), 1);
  EXPECT_TRUE(event->IsComplete());
  EXPECT_TRUE(event->IsComplete());
  event->Wait();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventQuery"), 2u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventSynchronize"), 0u);
}

// A failed query will not succeed later: nobody may wait for such an event for ever.
TEST_F(CUDAQueues, AnEventWhoseQueryFailsCountsAsCompleteAndReportsOnce) {
  zelcore::debug::SetAssertionOutputQuiet(true);
  fake_->fakecuda_SetEventsComplete(0);
  boost::shared_ptr<LM::Event> event = queue_->RecordEvent();
  fake_->fakecuda_SetFailure("cuEventQuery", CUDA_ERROR_LAUNCH_FAILED, 0, kFakeCUDAFailForever);
  const unsigned reports = zelcore::debug::AssertionReportCount();
  EXPECT_TRUE(event->IsComplete());
  EXPECT_TRUE(event->IsComplete());
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), reports + 1);
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("Event query failure: CUDA_ERROR_LAUNCH_FAILED"),
            std::string::npos);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventQuery"), 1u);
}

TEST_F(CUDAQueues, WaitingForACompleteEventIssuesNothing) {
  boost::shared_ptr<LM::Event> complete = queue_->RecordEvent();
  ASSERT_TRUE(complete->IsComplete());
  fake_->fakecuda_ClearCallLog();
  queue_->WaitForEvent(complete);
  EXPECT_EQ(fake_->fakecuda_CallLogSize(), 0u);

  fake_->fakecuda_SetEventsComplete(0);
  boost::shared_ptr<LM::Event> pending = queue_->RecordEvent();
  queue_->WaitForEvent(pending);
  const auto waits = CallsOf(*fake_, "cuStreamWaitEvent");
  ASSERT_EQ(waits.size(), 1u);
  EXPECT_EQ(waits[0].second, (Words{Handle(queue_->GetNativeQueue()), Handle(pending->GetNativeEvent()), 0}));
}

TEST_F(CUDAQueues, AReadBackOffTheMainStreamRunsOnTheCopyStreamAfterTheQueuedWork) {
  std::vector<unsigned char> device(64), host(64, 0);
  for (std::size_t i = 0; i < device.size(); ++i) device[i] = static_cast<unsigned char>(i * 3);
  boost::shared_ptr<LM::Event> done;
  ASSERT_EQ(queue_->CopyDeviceToHost(device.data(), host.data(), 64, &done, false), LM::kResultSuccess);
  EXPECT_EQ(host, device);
  ASSERT_TRUE(done);

  const unsigned long long mainStream = Handle(queue_->GetNativeQueue());
  const unsigned long long copyStream = Handle(queue_->CopyStream());
  const std::vector<std::string> calls = fake_->CallNames();
  ASSERT_EQ(calls, (std::vector<std::string>{"cuEventRecord", "cuStreamWaitEvent", "cuMemcpyDtoHAsync_v2",
                                             "cuEventRecord"}));
  const unsigned long long queued = fake_->CallArgs(0)[0];
  EXPECT_EQ(fake_->CallArgs(0)[1], mainStream);
  EXPECT_EQ(fake_->CallArgs(1), (Words{copyStream, queued, 0}));
  EXPECT_EQ(fake_->CallArgs(2)[3], copyStream);
  EXPECT_EQ(fake_->CallArgs(3), (Words{Handle(done->GetNativeEvent()), copyStream}));

  // On the main stream, or without an event to hand back, the copy stays on the main stream.
  fake_->fakecuda_ClearCallLog();
  ASSERT_EQ(queue_->CopyDeviceToHost(device.data(), host.data(), 64, nullptr, false), LM::kResultSuccess);
  ASSERT_EQ(queue_->CopyDeviceToHost(device.data(), host.data(), 64, &done, true), LM::kResultSuccess);
  const auto copies = CallsOf(*fake_, "cuMemcpyDtoHAsync_v2");
  ASSERT_EQ(copies.size(), 2u);
  EXPECT_EQ(copies[0].second[3], mainStream);
  EXPECT_EQ(copies[1].second[3], mainStream);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuStreamWaitEvent"), 0u);
}

TEST_F(CUDAQueues, ThePoolKeepsAtMost32ReturnedEventsAndDestroysTheRestAtTheNextAcquire) {
  std::vector<boost::shared_ptr<LM::Event>> held;
  for (int i = 0; i < 40; ++i) held.push_back(queue_->RecordEvent());
  EXPECT_EQ(fake_->fakecuda_LiveEvents(), 40u) << "two reused, 38 new";
  held.clear();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventDestroy"), 0u) << "returning an event only queues it";

  boost::shared_ptr<LM::Event> reused = queue_->RecordEvent();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventDestroy"), 8u);
  EXPECT_EQ(fake_->fakecuda_LiveEvents(), 32u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventCreate"), 38u) << "the acquired event came from the pool";
}

TEST_F(CUDAQueues, EventsMayOutliveTheirQueueAndBeDroppedOnAnyThread) {
  std::vector<boost::shared_ptr<LM::Event>> held;
  for (int i = 0; i < 8; ++i) held.push_back(queue_->RecordEvent());
  queue_.reset();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuStreamDestroy"), 3u);
  std::thread dropper([&held] { held.clear(); });
  dropper.join();
  EXPECT_EQ(fake_->fakecuda_LiveEvents(), 0u) << "the last event took the pool and its events with it";
}

TEST_F(CUDAQueues, ConcurrentReturnsWhileAcquiring) {
  std::vector<boost::shared_ptr<LM::Event>> batches[4];
  for (auto& batch : batches) {
    for (int i = 0; i < 50; ++i) batch.push_back(queue_->RecordEvent());
  }
  std::vector<std::thread> droppers;
  for (auto& batch : batches) droppers.emplace_back([&batch] { batch.clear(); });
  for (int i = 0; i < 200; ++i) queue_->RecordEvent();
  for (std::thread& dropper : droppers) dropper.join();
  queue_->RecordEvent();
  EXPECT_LE(fake_->fakecuda_LiveEvents(), LM::CUDAEventPool::kMaxKeptEvents + 1);
}

}  // namespace
