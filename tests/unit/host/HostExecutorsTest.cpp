// Executors and the queue-only-once task. Waits are generous, so that slow sanitizer builds pass; a hang
// still fails the test instead of the run.
#include <gtest/gtest.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "zelcore/Threads.h"

namespace {

using namespace zelcore::threads;
using std::chrono::milliseconds;

constexpr std::chrono::seconds kPatience(20);

// Blocks an executor's threads until Open() is called.
class Gate {
 public:
  boost::function<void()> Task() {
    return [this] { opened_.wait(); };
  }
  void Open() { promise_.set_value(); }

 private:
  std::promise<void> promise_;
  std::shared_future<void> opened_ = promise_.get_future().share();
};

bool Ran(std::promise<void>& promise) {
  return promise.get_future().wait_for(kPatience) == std::future_status::ready;
}

TEST(HostExecutor, PoolTasksRunAfterTheHandleIsDropped) {
  std::promise<void> cpuRan, ioRan;
  CreateCPUBoundExecutor()->Post([&cpuRan] { cpuRan.set_value(); });
  CreateIOBoundExecutor()->Post([&ioRan] { ioRan.set_value(); });
  EXPECT_TRUE(Ran(cpuRan) && Ran(ioRan));
}

// The start function runs first, the tasks follow in order on one thread, and dropping the last
// reference still runs what was queued before joining.
TEST(HostExecutor, ThreadedExecutorRunsInOrderOnOneThreadAfterItsStartFunction) {
  std::mutex mutex;
  std::vector<std::string> events, expected{"start"};
  std::set<std::thread::id> threads;
  auto record = [&](const std::string& event) {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back(event);
    threads.insert(std::this_thread::get_id());
  };
  boost::shared_ptr<AsyncExecutor> executor =
      CreateAsyncThreadedExecutor("GPU Executor 01", 1, 5, [&] { record("start"); });
  Gate gate;
  executor->Post(gate.Task());
  for (int i = 0; i < 100; ++i) {
    executor->Post([&record, i] { record(std::to_string(i)); });
    expected.push_back(std::to_string(i));
  }
  gate.Open();
  executor.reset();

  EXPECT_EQ(events, expected);
  ASSERT_EQ(threads.size(), 1u);
  EXPECT_NE(*threads.begin(), std::this_thread::get_id());
}

TEST(HostExecutor, LastReferenceDroppedInsideItsOwnTaskNeitherDeadlocksNorCrashes) {
  boost::shared_ptr<AsyncExecutor> executor =
      CreateAsyncThreadedExecutor("SelfDrop", 1, 0, boost::function<void()>());
  auto holder = boost::make_shared<boost::shared_ptr<AsyncExecutor>>(executor);
  std::promise<void> dropped, laterRan;
  Gate gate;
  executor->Post(gate.Task());
  executor->Post([holder, &dropped] {
    holder->reset();  // the last reference: the executor is destroyed on its own thread
    dropped.set_value();
  });
  executor->Post([&laterRan] { laterRan.set_value(); });
  executor.reset();
  gate.Open();

  // Tasks queued behind the one that dropped the executor still run on the detached thread.
  EXPECT_TRUE(Ran(dropped) && Ran(laterRan));
}

TEST(HostQueueOnlyOnce, QueuesOnceWhilePendingAndItsPendingRunOutlivesTheObject) {
  boost::shared_ptr<AsyncExecutor> executor =
      CreateAsyncThreadedExecutor("Once", 1, 0, boost::function<void()>());
  std::atomic<int> runs{0};
  auto once = std::make_unique<detail::QueueOnlyOnce>(
      executor, [&runs] { ++runs; }, 5);
  Gate gate;
  executor->Post(gate.Task());

  std::vector<std::thread> callers;
  for (int t = 0; t < 4; ++t)
    callers.emplace_back([&once] {
      for (int i = 0; i < 200; ++i) once->Queue();
    });
  for (std::thread& caller : callers) caller.join();
  EXPECT_TRUE(once->IsQueued());
  gate.Open();
  executor->WaitUntilIdle();
  EXPECT_EQ(runs.load(), 1);
  EXPECT_FALSE(once->IsQueued());

  // Queued again after it ran, then destroyed while the run is still pending.
  Gate second;
  executor->Post(second.Task());
  once->Queue();
  once.reset();
  second.Open();
  executor->WaitUntilIdle();
  EXPECT_EQ(runs.load(), 2);
}

TEST(HostQueueOnlyOnce, TaskReArmsItselfAfterTheDelayWithoutBlockingTheExecutor) {
  constexpr int kDelayMs = 150;
  boost::shared_ptr<AsyncExecutor> executor =
      CreateAsyncThreadedExecutor("Poll", 1, 0, boost::function<void()>());
  std::vector<std::string> order;  // touched only on the executor's one thread until it is idle
  std::promise<void> finished;
  int runs = 0;
  std::unique_ptr<detail::QueueOnlyOnce> poll;
  poll = std::make_unique<detail::QueueOnlyOnce>(
      executor,
      [&] {
        order.push_back("poll");
        if (++runs == 3) return finished.set_value();
        poll->Queue();
        executor->Post([&order] { order.push_back("other"); });
      },
      kDelayMs);
  const auto start = std::chrono::steady_clock::now();
  poll->Queue();

  ASSERT_TRUE(Ran(finished));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(2 * kDelayMs));
  executor->WaitUntilIdle();
  // The delay is kept off the executor: work posted after the re-arm runs before the next poll.
  EXPECT_EQ(order, (std::vector<std::string>{"poll", "other", "poll", "other", "poll"}));
}

}  // namespace
