// Event polling: callbacks run on the device's executor in a later pass, in order, and the poll re-arms
// itself while events remain. A hand-driven executor makes every pass observable.
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

namespace {

// An event whose completion the test decides.
class ScriptedEvent : public LM::Event {
 public:
  bool IsComplete() override { return complete; }
  float ElapsedTime(const boost::shared_ptr<LM::Event>&) override { return 0.0f; }
  void Wait() override {}
  void* GetNativeEvent() override { return this; }
  std::atomic<bool> complete{false};
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

class EventPoll : public testing::Test {
 protected:
  void SetUp() override {
    fake_ = BindFakeDriver();
    fake_->fakecuda_ClearDevices();
    fake_->fakecuda_AddDevice("First", 7, 5, 1ull << 33);
    fake_->fakecuda_AddDevice("Second", 7, 5, 1ull << 33);
    device_ = LM::Device::Create(0, 0, 0);
    executor_ = boost::make_shared<ManualExecutor>();
    device_->SetExecutor(executor_);
  }
  std::unique_ptr<FakeCUDA> fake_;
  boost::shared_ptr<LM::Device> device_;
  boost::shared_ptr<ManualExecutor> executor_;
};

TEST_F(EventPoll, ACompleteEventRunsItsCallbackInTheNextPassNotWhenAdded) {
  auto event = boost::make_shared<ScriptedEvent>();
  event->complete = true;
  int runs = 0;
  LM::AddEventPoll(device_, event, [&runs] { ++runs; });
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(executor_->Pending(), 1u);
  executor_->RunPass();
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(executor_->Pending(), 0u) << "an empty list stops the polling";
}

TEST_F(EventPoll, PollsOfOneEventRunInOrderInOnePassAndAddingTwiceQueuesOnce) {
  auto event = boost::make_shared<ScriptedEvent>();
  std::vector<int> order;
  LM::AddEventPoll(device_, event, [&order] { order.push_back(1); });
  LM::AddEventPoll(device_, event, [&order] { order.push_back(2); });
  EXPECT_EQ(executor_->Pending(), 1u);
  event->complete = true;
  executor_->RunPass();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST_F(EventPoll, APassThatFindsNothingCompleteKeepsTheListAndQueuesItselfAgain) {
  auto pending = boost::make_shared<ScriptedEvent>();
  auto done = boost::make_shared<ScriptedEvent>();
  std::vector<int> order;
  LM::AddEventPoll(device_, pending, [&order] { order.push_back(1); });
  LM::AddEventPoll(device_, done, [&order] { order.push_back(2); });
  done->complete = true;
  executor_->RunPass();
  EXPECT_EQ(order, (std::vector<int>{2}))
      << "a later complete event does not wait for an earlier pending one";
  ASSERT_TRUE(executor_->AwaitPass());
  EXPECT_EQ(order, (std::vector<int>{2}));
  pending->complete = true;
  ASSERT_TRUE(executor_->AwaitPass());
  EXPECT_EQ(order, (std::vector<int>{2, 1}));
}

// Whatever a callback throws stays in the library: the rest of the pass still runs.
TEST_F(EventPoll, AnEmptyEventCountsAsCompleteAndAThrowingCallbackStopsNothing) {
  zelcore::debug::SetAssertionOutputQuiet(true);
  int runs = 0;
  LM::AddEventPoll(device_, boost::shared_ptr<LM::Event>(), [] { throw 42; });
  LM::AddEventPoll(device_, boost::shared_ptr<LM::Event>(), [&runs] { ++runs; });
  EXPECT_NO_THROW(LM::ServiceEventPoll(device_));
  EXPECT_EQ(runs, 1);
  EXPECT_NE(zelcore::debug::LastAssertionReport().find("An event poll callback threw"), std::string::npos);
}

TEST_F(EventPoll, DevicesPollIndependently) {
  // Real executors here: one device waits forever, the other's callback must still run.
  boost::shared_ptr<LM::Device> slow = LM::Device::Create(0, 0, 0);
  boost::shared_ptr<LM::Device> fast = LM::Device::Create(1, 1, 1);
  auto never = boost::make_shared<ScriptedEvent>();
  auto ready = boost::make_shared<ScriptedEvent>();
  ready->complete = true;
  std::atomic<bool> slowRan{false}, fastRan{false};
  auto await = [](const std::atomic<bool>& flag) {
    for (int i = 0; i < 400 && !flag; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return flag.load();
  };
  LM::AddEventPoll(slow, never, [&slowRan] { slowRan = true; });
  LM::AddEventPoll(fast, ready, [&fastRan] { fastRan = true; });
  EXPECT_TRUE(await(fastRan));
  EXPECT_FALSE(slowRan);
  never->complete = true;
  EXPECT_TRUE(await(slowRan));
}

// Shut-down finishes the device's work, runs the callbacks of completed events and releases the others
// unrun, before the context goes: no later pass polls an event of a destroyed context.
TEST(EventPollAtShutDown, PendingPollsAreCompletedOrDroppedBeforeTheContextGoes) {
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
