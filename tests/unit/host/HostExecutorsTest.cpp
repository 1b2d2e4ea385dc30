// Executors, the queue-only-once task and thread ids.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>
#include <chrono>
#include <future>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "zelcore/Threads.h"

namespace {

using namespace zelcore::threads;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Generous, so that slow sanitizer builds do not fail; a hang still fails the test instead of the run.
constexpr seconds kPatience(20);

std::string CurrentThreadName() {
  char name[32] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

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

TEST(HostProcessPool, FireAndForgetTaskRunsAfterTheHandleIsDropped) {
  std::promise<std::string> ran;
  CreateCPUBoundExecutor()->Post([&ran] { ran.set_value(CurrentThreadName()); });
  std::future<std::string> result = ran.get_future();
  ASSERT_EQ(result.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(result.get(), "CPU Pool");

  std::promise<void> ioRan;
  CreateIOBoundExecutor()->Post([&ioRan] { ioRan.set_value(); });
  EXPECT_EQ(ioRan.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST(HostProcessPool, PoolsRunTasksOnAtLeastTwoThreadsAtOnce) {
  for (const boost::shared_ptr<AsyncExecutor>& pool : {CreateCPUBoundExecutor(), CreateIOBoundExecutor()}) {
    // Each task waits for the other: both finish only if they run at the same time.
    std::promise<void> a, b;
    std::shared_future<void> aReady = a.get_future().share(), bReady = b.get_future().share();
    std::atomic<int> met{0};
    pool->Post([&] {
      a.set_value();
      if (bReady.wait_for(kPatience) == std::future_status::ready) ++met;
    });
    pool->Post([&] {
      b.set_value();
      if (aReady.wait_for(kPatience) == std::future_status::ready) ++met;
    });
    pool->WaitUntilIdle();
    EXPECT_EQ(met.load(), 2) << pool->Name();
  }
}

TEST(HostProcessPool, WaitUntilIdleWaitsForEveryTaskPostedBefore) {
  boost::shared_ptr<AsyncExecutor> pool = CreateCPUBoundExecutor();
  std::atomic<int> done{0};
  for (int i = 0; i < 200; ++i) {
    pool->Post([&done, i] {
      if (i % 10 == 0) std::this_thread::sleep_for(milliseconds(2));
      ++done;
    });
  }
  pool->WaitUntilIdle();
  EXPECT_EQ(done.load(), 200);
}

TEST(HostThreadedExecutor, RunsTasksInOrderOnOneNamedThreadAfterItsStartFunction) {
  std::mutex mutex;
  std::vector<std::string> events;
  std::set<std::thread::id> threads;
  auto record = [&](const std::string& event) {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back(event);
    threads.insert(std::this_thread::get_id());
  };
  std::string threadName;
  boost::shared_ptr<AsyncExecutor> executor = CreateAsyncThreadedExecutor("GPU Executor 01", 1, 5, [&] {
    threadName = CurrentThreadName();
    record("start");
  });
  ASSERT_TRUE(executor);
  std::vector<std::string> expected{"start"};
  for (int i = 0; i < 100; ++i) {
    executor->Post([&record, i] { record(std::to_string(i)); });
    expected.push_back(std::to_string(i));
  }
  executor->WaitUntilIdle();

  EXPECT_EQ(events, expected);
  ASSERT_EQ(threads.size(), 1u);
  EXPECT_NE(*threads.begin(), std::this_thread::get_id());
  EXPECT_EQ(threadName, "GPU Executor 01");
  EXPECT_EQ(executor->Name(), "GPU Executor 01");
  boost::shared_ptr<ThreadedExecutor> threaded = boost::dynamic_pointer_cast<ThreadedExecutor>(executor);
  ASSERT_TRUE(threaded);
  EXPECT_EQ(threaded->Priority(), 5);
}

TEST(HostThreadedExecutor, LongNamesAreCutToTheSystemLimitAndCountsAreClamped) {
  std::promise<std::string> name;
  boost::shared_ptr<AsyncExecutor> executor =
      CreateAsyncThreadedExecutor("A name far longer than fifteen bytes", 0, 0, boost::function<void()>());
  ASSERT_TRUE(executor);
  executor->Post([&name] { name.set_value(CurrentThreadName()); });
  std::future<std::string> result = name.get_future();
  ASSERT_EQ(result.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(result.get(), "A name far long");
  EXPECT_EQ(executor->Name(), "A name far longer than fifteen bytes");
}

TEST(HostThreadedExecutor, DroppingTheLastReferenceRunsTheQueueThenJoins) {
  std::atomic<int> done{0};
  {
    Gate gate;
    boost::shared_ptr<AsyncExecutor> executor =
        CreateAsyncThreadedExecutor("Drain", 2, 0, boost::function<void()>());
    executor->Post(gate.Task());
    executor->Post(gate.Task());
    for (int i = 0; i < 50; ++i) executor->Post([&done] { ++done; });
    gate.Open();
    executor.reset();
    EXPECT_EQ(done.load(), 50);
  }
}

TEST(HostThreadedExecutor, LastReferenceDroppedInsideItsOwnTaskNeitherDeadlocksNorCrashes) {
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

  EXPECT_EQ(dropped.get_future().wait_for(kPatience), std::future_status::ready);
  // Tasks queued behind the one that dropped the executor still run on the detached thread.
  EXPECT_EQ(laterRan.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST(HostThreadedExecutor, ThrowingTasksAreReportedAndTheThreadGoesOn) {
  boost::shared_ptr<AsyncExecutor> executor =
      CreateAsyncThreadedExecutor("Throws", 1, 0, boost::function<void()>());
  std::atomic<int> after{0};
  ::testing::internal::CaptureStderr();
  executor->Post([] { throw std::runtime_error("bad task"); });
  executor->Post([] { throw 7; });
  executor->Post(boost::function<void()>());
  executor->Post([&after] { ++after; });
  executor->WaitUntilIdle();
  const std::string written = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(after.load(), 1);
  EXPECT_NE(written.find("Throws"), std::string::npos);
  EXPECT_NE(written.find("bad task"), std::string::npos);
  EXPECT_NE(written.find("unknown type"), std::string::npos);
}

TEST(HostThreadedExecutor, WaitUntilIdleFromItsOwnThreadReturns) {
  for (const boost::shared_ptr<AsyncExecutor>& executor :
       {CreateAsyncThreadedExecutor("Own", 1, 0, boost::function<void()>()), CreateCPUBoundExecutor()}) {
    std::promise<void> returned;
    AsyncExecutor* raw = executor.get();
    executor->Post([raw, &returned] {
      raw->WaitUntilIdle();
      returned.set_value();
    });
    EXPECT_EQ(returned.get_future().wait_for(kPatience), std::future_status::ready) << executor->Name();
    executor->WaitUntilIdle();
  }
}

TEST(HostQueueOnlyOnce, QueuesOnceWhilePendingAndAgainAfterItRan) {
  boost::shared_ptr<AsyncExecutor> executor =
      CreateAsyncThreadedExecutor("Once", 1, 0, boost::function<void()>());
  std::atomic<int> runs{0};
  detail::QueueOnlyOnce once(
      executor, [&runs] { ++runs; }, 5);
  Gate gate;
  executor->Post(gate.Task());

  EXPECT_FALSE(once.IsQueued());
  std::vector<std::thread> callers;
  for (int t = 0; t < 4; ++t) {
    callers.emplace_back([&once] {
      for (int i = 0; i < 200; ++i) once.Queue();
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_TRUE(once.IsQueued());
  gate.Open();
  executor->WaitUntilIdle();
  EXPECT_EQ(runs.load(), 1);
  EXPECT_FALSE(once.IsQueued());

  // Queued from outside its task: posted at once, without the re-arm delay.
  once.Queue();
  executor->WaitUntilIdle();
  EXPECT_EQ(runs.load(), 2);
}

TEST(HostQueueOnlyOnce, TaskReArmsItselfAfterTheDelayWithoutBlockingTheExecutor) {
  constexpr int kDelayMs = 150;
  boost::shared_ptr<AsyncExecutor> executor =
      CreateAsyncThreadedExecutor("Poll", 1, 0, boost::function<void()>());
  std::mutex mutex;
  std::vector<std::string> order;
  std::vector<std::chrono::steady_clock::time_point> runTimes;
  std::promise<void> finished;
  detail::QueueOnlyOnce* self = nullptr;

  detail::QueueOnlyOnce poll(
      executor,
      [&] {
        std::lock_guard<std::mutex> lock(mutex);
        runTimes.push_back(std::chrono::steady_clock::now());
        order.push_back("poll");
        if (runTimes.size() < 3) {
          self->Queue();
          EXPECT_TRUE(self->IsQueued());
          executor->Post([&] {
            std::lock_guard<std::mutex> inner(mutex);
            order.push_back("other");
          });
        } else {
          finished.set_value();
        }
      },
      kDelayMs);
  self = &poll;
  poll.Queue();

  ASSERT_EQ(finished.get_future().wait_for(kPatience), std::future_status::ready);
  executor->WaitUntilIdle();
  std::lock_guard<std::mutex> lock(mutex);
  // The delay is kept off the executor: work posted after the re-arm runs before the next poll.
  EXPECT_EQ(order, (std::vector<std::string>{"poll", "other", "poll", "other", "poll"}));
  ASSERT_EQ(runTimes.size(), 3u);
  EXPECT_GE(runTimes[1] - runTimes[0], milliseconds(kDelayMs));
  EXPECT_GE(runTimes[2] - runTimes[1], milliseconds(kDelayMs));
}

TEST(HostQueueOnlyOnce, PendingRunOutlivesTheObjectAndAnEmptyExecutorIsHarmless) {
  boost::shared_ptr<AsyncExecutor> executor =
      CreateAsyncThreadedExecutor("Outlive", 1, 0, boost::function<void()>());
  std::atomic<int> runs{0};
  Gate gate;
  executor->Post(gate.Task());
  {
    detail::QueueOnlyOnce once(
        executor, [&runs] { ++runs; }, 0);
    once.Queue();
  }
  gate.Open();
  executor->WaitUntilIdle();
  EXPECT_EQ(runs.load(), 1);

  detail::QueueOnlyOnce detached(
      boost::shared_ptr<AsyncExecutor>(), [&runs] { ++runs; }, 0);
  detached.Queue();
  EXPECT_FALSE(detached.IsQueued());
  EXPECT_EQ(runs.load(), 1);
}

TEST(HostThreadId, IdsAreNonZeroStablePerThreadAndDistinct) {
  const std::uint64_t mine = GetCurrentThreadID();
  EXPECT_EQ(GetCurrentThreadID(), mine);
  std::uint64_t ids[8] = {};
  std::vector<std::thread> threads;
  for (std::uint64_t& id : ids) threads.emplace_back([&id] { id = GetCurrentThreadID(); });
  for (std::thread& thread : threads) thread.join();
  std::set<std::uint64_t> distinct(std::begin(ids), std::end(ids));
  distinct.insert(mine);
  EXPECT_EQ(distinct.size(), 9u);
  EXPECT_EQ(distinct.count(0), 0u);
}

}  // namespace
