// The CUDA queue and its event pool against the fake driver: which driver calls each operation makes, on
// which stream, how events are recycled, and how failures become result codes. And event polling:
// callbacks run on the device's executor in a later pass, in order, and the poll re-arms itself while events
// remain; a hand-driven executor makes every pass observable.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>
#include <zelcore/Threads.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>
#include <chrono>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "ExecutableFolder.h"
#include "FakeDriverBinding.h"
#include "Lumora/Device.h"
#include "Lumora/EventPoll.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Results.h"
#include "Queues/CUDAQueues.h"

namespace {

using Words = std::vector<unsigned long long>;

unsigned long long Handle(const void* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

bool Eventually(const std::atomic<bool>& flag) {
  for (int i = 0; i < 400 && !flag; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return flag;
}

class CUDAQueues : public testing::Test {
 protected:
  void SetUp() override {
    zelcore::debug::SetAssertionOutputQuiet(true);
    fake_ = BindFakeDriver();
    queue_.reset(new LM::CUDACommandQueue);
    ASSERT_TRUE(queue_->Valid());
    // Two events made and returned up front, so the calls under test reuse them instead of creating.
    { auto a = queue_->RecordEvent(), b = queue_->RecordEvent(); }
    fake_->fakecuda_ClearCallLog();
  }
  // A kernel of a module loaded in a context of its own.
  void* Kernel() {
    CUfunction function = nullptr;
    {
      const CurrentFakeContext context;
      CUmodule module = nullptr;
      const char image[] =
          ".version 6.4\n.target sm_75\n.address_size 64\n.visible .entry TestKernel()\n{\n\tret;\n}\n";
      EXPECT_EQ(LM::CUDA.cuModuleLoadData(&module, image), CUDA_SUCCESS);
      EXPECT_EQ(LM::CUDA.cuModuleGetFunction(&function, module, "TestKernel"), CUDA_SUCCESS);
    }
    fake_->fakecuda_ClearCallLog();
    return function;
  }

  std::unique_ptr<FakeCUDA> fake_;
  std::unique_ptr<LM::CUDACommandQueue> queue_;
};

// A launch sets the block shape, launches on the main stream and records; a failed block shape launches
// nothing and hands back no event; failures map to result codes.
TEST_F(CUDAQueues, ALaunchSetsTheBlockShapeThenLaunchesOnTheMainStreamThenRecords) {
  void* kernel = Kernel();
  boost::shared_ptr<LM::Event> done;
  EXPECT_EQ(queue_->LaunchKernel(kernel, 2, 1, 16, 16, &done), LM::kResultSuccess);
  ASSERT_TRUE(done);
  ASSERT_EQ(fake_->CallNames(),
            (std::vector<std::string>{"cuFuncSetBlockShape", "cuLaunchGridAsync", "cuEventRecord"}));
  EXPECT_EQ(fake_->CallArgs(0), (Words{Handle(kernel), 16, 16, 1}));
  EXPECT_EQ(fake_->CallArgs(1), (Words{Handle(kernel), 2, 1, Handle(queue_->GetNativeQueue())}));
  EXPECT_EQ(fake_->CallArgs(2)[1], Handle(queue_->GetNativeQueue()));

  fake_->fakecuda_ClearCallLog();
  fake_->fakecuda_SetFailure("cuFuncSetBlockShape", CUDA_ERROR_INVALID_VALUE, 0, 1);
  EXPECT_EQ(queue_->LaunchKernel(kernel, 1, 1, 16, 16, &done), LM::kResultFailed);
  EXPECT_FALSE(done) << "no completion event for work that was not queued";
  EXPECT_EQ(fake_->fakecuda_CallCount("cuLaunchGridAsync"), 0u);
  fake_->fakecuda_SetFailure("cuLaunchGridAsync", CUDA_ERROR_OUT_OF_MEMORY, 0, 1);
  EXPECT_EQ(queue_->LaunchKernel(kernel, 1, 1, 16, 16, nullptr), LM::kResultOutOfMemory);
}

// A completed event never asks the driver again. A failed query will not succeed later, and nobody may wait
// for such an event for ever: it counts as complete and reports once.
TEST_F(CUDAQueues, EventQueriesStopOnceAnEventIsCompleteOrItsQueryFailed) {
  fake_->fakecuda_SetEventsComplete(0);
  boost::shared_ptr<LM::Event> event = queue_->RecordEvent(), failing = queue_->RecordEvent();
  EXPECT_FALSE(event->IsComplete());
  fake_->fakecuda_SetEventComplete(event->GetNativeEvent(), 1);
  EXPECT_TRUE(event->IsComplete());
  EXPECT_TRUE(event->IsComplete());
  event->Wait();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventQuery"), 2u);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventSynchronize"), 0u);

  fake_->fakecuda_SetFailure("cuEventQuery", CUDA_ERROR_LAUNCH_FAILED, 0, kFakeCUDAFailForever);
  const unsigned reports = zelcore::debug::AssertionReportCount();
  EXPECT_TRUE(failing->IsComplete());
  EXPECT_TRUE(failing->IsComplete());
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), reports + 1);
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("Event query failure: CUDA_ERROR_LAUNCH_FAILED"),
            std::string::npos);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuEventQuery"), 3u);
}

TEST_F(CUDAQueues, WaitingForACompleteEventEnqueuesNothing) {
  boost::shared_ptr<LM::Event> complete = queue_->RecordEvent();
  ASSERT_TRUE(complete->IsComplete());
  fake_->fakecuda_ClearCallLog();
  queue_->WaitForEvent(complete);
  EXPECT_EQ(fake_->fakecuda_CallLogSize(), 0u);
  fake_->fakecuda_SetEventsComplete(0);
  boost::shared_ptr<LM::Event> pending = queue_->RecordEvent();
  queue_->WaitForEvent(pending);
  EXPECT_EQ(
      fake_->ArgsOf("cuStreamWaitEvent"),
      std::vector<Words>{(Words{Handle(queue_->GetNativeQueue()), Handle(pending->GetNativeEvent()), 0})});
}

// On the main stream, or without an event to hand back, the copy stays on the main stream.
TEST_F(CUDAQueues, AReadBackOffTheMainStreamRunsOnTheCopyStreamAfterTheQueuedWork) {
  std::vector<unsigned char> device(64), host(64, 0);
  for (std::size_t i = 0; i < device.size(); ++i) device[i] = static_cast<unsigned char>(i * 3);
  boost::shared_ptr<LM::Event> done;
  ASSERT_EQ(queue_->CopyDeviceToHost(device.data(), host.data(), 64, &done, false), LM::kResultSuccess);
  EXPECT_EQ(host, device);
  ASSERT_TRUE(done);
  const unsigned long long mainStream = Handle(queue_->GetNativeQueue()),
                           copyStream = Handle(queue_->CopyStream());
  ASSERT_EQ(fake_->CallNames(), (std::vector<std::string>{"cuEventRecord", "cuStreamWaitEvent",
                                                          "cuMemcpyDtoHAsync_v2", "cuEventRecord"}));
  EXPECT_EQ(fake_->CallArgs(0)[1], mainStream);
  EXPECT_EQ(fake_->CallArgs(1), (Words{copyStream, fake_->CallArgs(0)[0], 0}));
  EXPECT_EQ(fake_->CallArgs(2)[3], copyStream);
  EXPECT_EQ(fake_->CallArgs(3), (Words{Handle(done->GetNativeEvent()), copyStream}));

  fake_->fakecuda_ClearCallLog();
  ASSERT_EQ(queue_->CopyDeviceToHost(device.data(), host.data(), 64, nullptr, false), LM::kResultSuccess);
  ASSERT_EQ(queue_->CopyDeviceToHost(device.data(), host.data(), 64, &done, true), LM::kResultSuccess);
  const std::vector<Words> copies = fake_->ArgsOf("cuMemcpyDtoHAsync_v2");
  ASSERT_EQ(copies.size(), 2u);
  EXPECT_EQ((Words{copies[0][3], copies[1][3]}), (Words{mainStream, mainStream}));
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

// Returns race acquisitions; and the last event, dropped on another thread after its queue went, takes the
// pool and its events with it.
TEST_F(CUDAQueues, EventsMayBeReturnedOnAnyThreadAndOutliveTheirQueue) {
  std::vector<boost::shared_ptr<LM::Event>> batches[4];
  for (auto& batch : batches) {
    for (int i = 0; i < 50; ++i) batch.push_back(queue_->RecordEvent());
  }
  std::vector<std::thread> droppers;
  for (auto& batch : batches) droppers.emplace_back([&batch] { batch.clear(); });
  for (int i = 0; i < 200; ++i) queue_->RecordEvent();
  for (std::thread& dropper : droppers) dropper.join();
  std::vector<boost::shared_ptr<LM::Event>> held{queue_->RecordEvent()};
  EXPECT_LE(fake_->fakecuda_LiveEvents(), LM::CUDAEventPool::kMaxKeptEvents + 1);
  for (int i = 0; i < 8; ++i) held.push_back(queue_->RecordEvent());
  queue_.reset();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuStreamDestroy"), 3u);
  std::thread([&held] { held.clear(); }).join();
  EXPECT_EQ(fake_->fakecuda_LiveEvents(), 0u);
}

// An event whose completion the test decides.
class ScriptedEvent : public LM::Event {
 public:
  explicit ScriptedEvent(bool complete = false) : complete(complete) {}
  bool IsComplete() override { return complete; }
  float ElapsedTime(const boost::shared_ptr<LM::Event>&) override { return 0.0f; }
  void Wait() override {}
  void* GetNativeEvent() override { return this; }
  std::atomic<bool> complete;
};

// Runs nothing until the test says so.
class ManualExecutor : public zelcore::threads::AsyncExecutor {
 public:
  void Post(const boost::function<void()>& task) override {
    std::lock_guard<std::mutex> lock(mutex_);
    tasks_.push_back(task);
  }
  const std::string& Name() const override { return name_; }
  void WaitUntilIdle() override {}
  std::size_t Pending() {
    std::lock_guard<std::mutex> lock(mutex_);
    return tasks_.size();
  }
  // Runs the tasks queued now (not those they queue).
  void RunPass() {
    std::deque<boost::function<void()>> tasks;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      tasks.swap(tasks_);
    }
    for (auto& task : tasks) task();
  }
  // Waits until a task is queued (re-arms are delayed a few milliseconds by the host), then runs a pass.
  bool AwaitPass() {
    for (int i = 0; i < 400 && Pending() == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (Pending() == 0) return false;
    RunPass();
    return true;
  }

 private:
  std::mutex mutex_;
  std::deque<boost::function<void()>> tasks_;
  std::string name_ = "Manual";
};

// Nothing runs when added, only in a later pass; adding more queues the poll once. A pass runs the
// callbacks of the events complete by then, those of one event in order, and a later complete event does
// not wait for an earlier pending one; a pass that leaves events queues itself again, one that empties the
// list stops the polling.
TEST(EventPoll, CallbacksRunInLaterPassesInOrderWhileThePollReArmsItself) {
  auto fake = BindFakeDriver();
  boost::shared_ptr<LM::Device> device = LM::Device::Create(0, 0, 0);
  auto executor = boost::make_shared<ManualExecutor>();
  device->SetExecutor(executor);
  auto pending = boost::make_shared<ScriptedEvent>(), done = boost::make_shared<ScriptedEvent>(true);
  std::vector<int> order;
  LM::AddEventPoll(device, pending, [&order] { order.push_back(1); });
  LM::AddEventPoll(device, pending, [&order] { order.push_back(2); });
  LM::AddEventPoll(device, done, [&order] { order.push_back(3); });
  EXPECT_TRUE(order.empty());
  EXPECT_EQ(executor->Pending(), 1u);
  executor->RunPass();
  EXPECT_EQ(order, (std::vector<int>{3}));
  ASSERT_TRUE(executor->AwaitPass());
  EXPECT_EQ(order, (std::vector<int>{3}));
  pending->complete = true;
  ASSERT_TRUE(executor->AwaitPass());
  EXPECT_EQ(order, (std::vector<int>{3, 1, 2}));
  EXPECT_EQ(executor->Pending(), 0u) << "an empty list stops the polling";
}

// Whatever a callback throws stays in the library: the rest of the pass still runs. Devices poll
// independently: one device waits forever, the other's callback must still run (real executors here).
TEST(EventPoll, AnEmptyEventCountsAsCompleteAThrowingCallbackStopsNothingAndDevicesPollIndependently) {
  auto fake = BindFakeDriver();
  fake->fakecuda_AddDevice("Second", 7, 5, 1ull << 33);
  zelcore::debug::SetAssertionOutputQuiet(true);
  boost::shared_ptr<LM::Device> manual = LM::Device::Create(0, 0, 0);
  manual->SetExecutor(boost::make_shared<ManualExecutor>());
  int runs = 0;
  LM::AddEventPoll(manual, boost::shared_ptr<LM::Event>(), [] { throw 42; });
  LM::AddEventPoll(manual, boost::shared_ptr<LM::Event>(), [&runs] { ++runs; });
  EXPECT_NO_THROW(LM::ServiceEventPoll(manual));
  EXPECT_EQ(runs, 1);
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("An event poll callback threw"), std::string::npos);

  boost::shared_ptr<LM::Device> slow = LM::Device::Create(0, 0, 0), fast = LM::Device::Create(1, 1, 1);
  auto never = boost::make_shared<ScriptedEvent>(), ready = boost::make_shared<ScriptedEvent>(true);
  std::atomic<bool> slowRan{false}, fastRan{false};
  LM::AddEventPoll(slow, never, [&slowRan] { slowRan = true; });
  LM::AddEventPoll(fast, ready, [&fastRan] { fastRan = true; });
  EXPECT_TRUE(Eventually(fastRan));
  EXPECT_FALSE(slowRan);
  never->complete = true;
  EXPECT_TRUE(Eventually(slowRan));
}

// Shut-down finishes the device's work, runs the callbacks of completed events and releases the others
// unrun, before the context goes: no later pass polls an event of a destroyed context.
TEST(EventPoll, AtShutDownPendingPollsAreCompletedOrDroppedBeforeTheContextGoes) {
  ExecutableFolder folder;
  auto fake = BindFakeDriver();
  zelcore::debug::SetAssertionOutputQuiet(true);
  LM::Initialize(true);
  auto executor = boost::make_shared<ManualExecutor>();
  bool ran = false;
  boost::weak_ptr<int> released;
  {
    boost::shared_ptr<LM::Device> device = LM::GetDevice(0);
    ASSERT_TRUE(device && device->WaitForContext());
    device->SetExecutor(executor);
    const LM::ExclusiveAccess access(*device);
    LM::AddEventPoll(device, device->GetCommandQueue()->RecordEvent(), [&ran] { ran = true; });
    fake->fakecuda_SetEventsComplete(0);
    auto held = boost::make_shared<int>(0);
    released = held;
    LM::AddEventPoll(device, device->GetCommandQueue()->RecordEvent(), [held] {});
  }
  LM::Terminate();
  EXPECT_TRUE(ran);
  EXPECT_TRUE(released.expired()) << "the callback of the event that never completed was released";
  fake->fakecuda_ClearCallLog();
  executor->RunPass();
  EXPECT_EQ(fake->fakecuda_CallCount("cuEventQuery"), 0u);
}

}  // namespace
