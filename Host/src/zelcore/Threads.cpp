// Executors: one worker-pool implementation serves the process-wide pools and the dedicated executors.
#include "zelcore/Threads.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace zelcore {
namespace threads {
namespace {

constexpr int kMaxThreads = 64;
constexpr int kIOThreads = 2;
constexpr int kMinCPUThreads = 2;
constexpr std::size_t kMaxThreadNameBytes = 15;
// How long an exiting process waits for the pools' tasks before it leaves them running and goes on.
constexpr std::chrono::seconds kExitPatience(10);

// Everything the worker threads touch. The threads share its ownership with the executor, so a thread
// that was detached (its executor died on it) can finish the queue after the executor object is gone.
struct WorkerState {
  explicit WorkerState(const std::string& executorName, const boost::function<void()>& start)
      : name(executorName), threadStart(start) {}

  const std::string name;
  const boost::function<void()> threadStart;

  std::mutex mutex;
  std::condition_variable workReady;
  std::condition_variable taskFinished;
  // Tasks with their sequence numbers (1, 2, ... in posting order).
  std::deque<std::pair<std::uint64_t, boost::function<void()>>> queue;
  std::uint64_t lastPosted = 0;
  // Per thread: the sequence number of the task it runs, 0 while it waits.
  std::vector<std::uint64_t> running;
  int liveThreads = 0;
  bool stopping = false;
};

// Runs one task; what it throws (an empty task's bad_function_call included) is reported on standard
// error and goes no further, so the thread lives on.
void RunTaskReportingFailure(const std::string& executorName, const boost::function<void()>& task) {
  try {
    task();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "Task on executor \"%s\" threw: %s\n", executorName.c_str(), e.what());
  } catch (...) {
    std::fprintf(stderr, "Task on executor \"%s\" threw an exception of unknown type\n",
                 executorName.c_str());
  }
}

// The pool whose thread this is, so that WaitUntilIdle can tell it is called from inside.
thread_local const WorkerState* tCurrentPool = nullptr;

void NameThisThread(const std::string& name) {
  const std::string shortName = name.substr(0, kMaxThreadNameBytes);
  pthread_setname_np(pthread_self(), shortName.c_str());
}

void WorkerLoop(std::shared_ptr<WorkerState> state, std::size_t index) {
  tCurrentPool = state.get();
  NameThisThread(state->name);
  if (!state->threadStart.empty()) RunTaskReportingFailure(state->name, state->threadStart);

  std::unique_lock<std::mutex> lock(state->mutex);
  for (;;) {
    state->workReady.wait(lock, [&] { return state->stopping || !state->queue.empty(); });
    if (state->queue.empty()) break;  // stopping, and every task has run
    {
      boost::function<void()> task;
      task.swap(state->queue.front().second);
      state->running[index] = state->queue.front().first;
      state->queue.pop_front();
      lock.unlock();
      RunTaskReportingFailure(state->name, task);
      // The task's captures are released here, unlocked: they may hold the last reference to this
      // executor, whose destructor takes the lock.
    }
    lock.lock();
    state->running[index] = 0;
    state->taskFinished.notify_all();
  }
  --state->liveThreads;
  state->taskFinished.notify_all();
}

class WorkerPool final : public ThreadedExecutor {
 public:
  WorkerPool(const std::string& name, int threadCount, int priority,
             const boost::function<void()>& threadStart)
      : state_(std::make_shared<WorkerState>(name, threadStart)), priority_(priority) {
    const int count = std::clamp(threadCount, 1, kMaxThreads);
    state_->running.assign(static_cast<std::size_t>(count), 0);
    threads_.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
      {
        std::lock_guard<std::mutex> lock(state_->mutex);
        ++state_->liveThreads;
      }
      try {
        threads_.emplace_back(WorkerLoop, state_, static_cast<std::size_t>(i));
      } catch (const std::exception& e) {
        std::fprintf(stderr, "Executor \"%s\": could not start a thread: %s\n", name.c_str(), e.what());
        std::lock_guard<std::mutex> lock(state_->mutex);
        --state_->liveThreads;
        break;
      }
    }
    runInline_ = threads_.empty();
  }

  ~WorkerPool() override { Shutdown(); }

  void Post(const boost::function<void()>& task) override {
    if (runInline_) {
      RunTaskReportingFailure(state_->name, task);
      return;
    }
    {
      std::lock_guard<std::mutex> lock(state_->mutex);
      // Once shutdown has begun nothing new is taken, so a task that keeps posting itself cannot keep
      // the threads from ending.
      if (state_->stopping) return;
      state_->queue.emplace_back(++state_->lastPosted, task);
    }
    state_->workReady.notify_one();
  }

  const std::string& Name() const override { return state_->name; }

  void WaitUntilIdle() override {
    if (tCurrentPool == state_.get()) return;
    std::unique_lock<std::mutex> lock(state_->mutex);
    const std::uint64_t target = state_->lastPosted;
    state_->taskFinished.wait(lock, [&] {
      if (state_->liveThreads == 0) return true;
      if (!state_->queue.empty() && state_->queue.front().first <= target) return false;
      return std::none_of(state_->running.begin(), state_->running.end(),
                          [&](std::uint64_t sequence) { return sequence != 0 && sequence <= target; });
    });
  }

  int Priority() const override { return priority_; }

  // Lets the threads finish the queue, then joins them. A thread of this pool cannot join itself: it is
  // detached and ends on its own once the queue is empty. With a limited patience, threads still busy
  // when it runs out are detached instead of joined. Idempotent.
  void Shutdown(std::chrono::milliseconds patience = std::chrono::milliseconds::max()) {
    {
      std::unique_lock<std::mutex> lock(state_->mutex);
      state_->stopping = true;
      state_->workReady.notify_all();
      if (patience != std::chrono::milliseconds::max()) {
        const int self = tCurrentPool == state_.get() ? 1 : 0;
        if (!state_->taskFinished.wait_for(lock, patience, [&] { return state_->liveThreads <= self; })) {
          std::fprintf(stderr, "Executor \"%s\" is still busy; its threads are left running\n",
                       state_->name.c_str());
          for (std::thread& thread : threads_) thread.detach();
          threads_.clear();
          return;
        }
      }
    }
    const std::thread::id self = std::this_thread::get_id();
    for (std::thread& thread : threads_) {
      if (thread.get_id() == self) {
        thread.detach();
      } else if (thread.joinable()) {
        thread.join();
      }
    }
    threads_.clear();
  }

 private:
  std::shared_ptr<WorkerState> state_;
  std::vector<std::thread> threads_;
  const int priority_;
  bool runInline_ = false;
};

// The process-wide pools are made on first use and never freed, so handles may be taken and dropped at
// will and a late Post during exit still finds a live object. At exit each pool finishes its queue and
// joins its threads, so that no task runs while the program's static objects are being destroyed; a task
// that is still running after kExitPatience is left behind rather than let the process hang.
struct ShutdownAtExit {
  WorkerPool* pool;
  ~ShutdownAtExit() { pool->Shutdown(kExitPatience); }
};

boost::shared_ptr<AsyncExecutor> HandleOnto(WorkerPool* pool) {
  return boost::shared_ptr<AsyncExecutor>(pool, [](AsyncExecutor*) {});
}

int CPUThreadCount() {
  const int hardware = static_cast<int>(std::thread::hardware_concurrency());
  return std::max(hardware, kMinCPUThreads);
}

}  // namespace

AsyncExecutor::~AsyncExecutor() = default;

boost::shared_ptr<AsyncExecutor> CreateCPUBoundExecutor() {
  static WorkerPool* const pool = new WorkerPool("CPU Pool", CPUThreadCount(), 0, boost::function<void()>());
  static const ShutdownAtExit shutdown{pool};
  return HandleOnto(pool);
}

boost::shared_ptr<AsyncExecutor> CreateIOBoundExecutor() {
  static WorkerPool* const pool = new WorkerPool("IO Pool", kIOThreads, 0, boost::function<void()>());
  static const ShutdownAtExit shutdown{pool};
  return HandleOnto(pool);
}

boost::shared_ptr<AsyncExecutor> CreateAsyncThreadedExecutor(const std::string& name, int threadCount,
                                                             int priority,
                                                             const boost::function<void()>& threadStart) {
  try {
    return boost::shared_ptr<AsyncExecutor>(new WorkerPool(name, threadCount, priority, threadStart));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "Executor \"%s\" could not be created: %s\n", name.c_str(), e.what());
    return boost::shared_ptr<AsyncExecutor>();
  }
}

std::uint64_t GetCurrentThreadID() {
  static std::atomic<std::uint64_t> next{1};
  thread_local const std::uint64_t id = next.fetch_add(1, std::memory_order_relaxed);
  return id;
}

}  // namespace threads
}  // namespace zelcore
