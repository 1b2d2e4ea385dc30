// The queue-only-once task and the timer that delays its re-arms.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <map>
#include <mutex>
#include <thread>

#include "zelcore/Threads.h"

namespace zelcore {
namespace threads {
namespace detail {
namespace {

using Clock = std::chrono::steady_clock;

// Hands tasks to executors once their delay has passed, from one thread for the whole process, started on
// first use. Made once and never freed; at exit the thread is stopped and the tasks still waiting are
// dropped (and so are later ones), so a poll that re-arms itself cannot keep an exiting process busy.
class DelayedPoster {
 public:
  static DelayedPoster& Instance() {
    static DelayedPoster* const poster = new DelayedPoster();
    static const StopAtExit stop{poster};
    return *poster;
  }

  // Hands `task` to `executor` after `milliseconds`. Once the timer is stopped (the process exits) the
  // task is dropped; should the timer thread fail to start, the task is posted at once instead.
  void PostAfter(int milliseconds, const boost::shared_ptr<AsyncExecutor>& executor,
                 const boost::function<void()>& task) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (stopped_) return;
      if (!thread_.joinable()) {
        try {
          thread_ = std::thread([this] { Run(); });
        } catch (const std::exception&) {
          // Handled below, without the lock.
        }
      }
      if (thread_.joinable()) {
        entries_.emplace(Clock::now() + std::chrono::milliseconds(milliseconds), Entry{executor, task});
        wake_.notify_one();
        return;
      }
    }
    executor->Post(task);
  }

 private:
  struct Entry {
    boost::shared_ptr<AsyncExecutor> executor;
    boost::function<void()> task;
  };

  struct StopAtExit {
    DelayedPoster* poster;
    ~StopAtExit() { poster->Stop(); }
  };

  void Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopped_) {
      if (entries_.empty()) {
        wake_.wait(lock);
        continue;
      }
      const Clock::time_point due = entries_.begin()->first;
      if (Clock::now() < due) {
        wake_.wait_until(lock, due);
        continue;
      }
      Entry entry = std::move(entries_.begin()->second);
      entries_.erase(entries_.begin());
      lock.unlock();
      try {
        entry.executor->Post(entry.task);
      } catch (const std::exception& e) {
        std::fprintf(stderr, "Delayed task for executor \"%s\" was lost: %s\n",
                     entry.executor->Name().c_str(), e.what());
      }
      // The entry (and the references it holds) goes before the lock is taken again.
      entry = Entry();
      lock.lock();
    }
  }

  void Stop() {
    std::multimap<Clock::time_point, Entry> dropped;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopped_ = true;
      dropped.swap(entries_);
    }
    wake_.notify_all();
    if (thread_.joinable()) {
      if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();
      } else {
        thread_.join();
      }
    }
    // `dropped` is released here, with no lock held: it may hold the last reference to an executor.
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::multimap<Clock::time_point, Entry> entries_;
  std::thread thread_;
  bool stopped_ = false;
};

// The queue-only-once object whose task this thread is running, if any.
thread_local const void* tRunning = nullptr;

class RunningScope {
 public:
  explicit RunningScope(const void* state) : previous_(tRunning) { tRunning = state; }
  ~RunningScope() { tRunning = previous_; }
  RunningScope(const RunningScope&) = delete;
  RunningScope& operator=(const RunningScope&) = delete;

 private:
  const void* previous_;
};

}  // namespace

struct QueueOnlyOnce::State {
  boost::shared_ptr<AsyncExecutor> executor;
  boost::function<void()> task;
  int delayMilliseconds = 0;
  // 1 while a run is queued (or waiting on the timer); changed only by compare-exchange.
  std::atomic<std::uint32_t> queued{0};
};

QueueOnlyOnce::QueueOnlyOnce(boost::shared_ptr<AsyncExecutor> executor, boost::function<void()> task,
                             int delayOrPriority)
    : state_(new State()) {
  state_->executor = std::move(executor);
  state_->task = std::move(task);
  state_->delayMilliseconds = delayOrPriority > 0 ? delayOrPriority : 0;
}

QueueOnlyOnce::~QueueOnlyOnce() = default;

void QueueOnlyOnce::Queue() {
  State* const state = state_.get();
  if (!state->executor) return;
  std::uint32_t expected = 0;
  if (!state->queued.compare_exchange_strong(expected, 1, std::memory_order_acq_rel)) return;

  const boost::shared_ptr<State> keep = state_;
  const boost::function<void()> run = [keep] {
    std::uint32_t queued = 1;
    keep->queued.compare_exchange_strong(queued, 0, std::memory_order_acq_rel);
    const RunningScope scope(keep.get());
    keep->task();
  };

  try {
    if (tRunning == state && state->delayMilliseconds > 0) {
      DelayedPoster::Instance().PostAfter(state->delayMilliseconds, state->executor, run);
    } else {
      state->executor->Post(run);
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "Task for executor \"%s\" could not be queued: %s\n",
                 state->executor->Name().c_str(), e.what());
    expected = 1;
    state->queued.compare_exchange_strong(expected, 0, std::memory_order_acq_rel);
  }
}

bool QueueOnlyOnce::IsQueued() const {
  return state_->queued.load(std::memory_order_acquire) != 0;
}

}  // namespace detail
}  // namespace threads
}  // namespace zelcore
