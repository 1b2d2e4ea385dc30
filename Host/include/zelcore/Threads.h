// Executors: the two process-wide pools (CPU-bound and I/O-bound work), executors with dedicated threads,
// and the queue-only-once task used for self-rearming polls.
#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

namespace zelcore {
namespace threads {

// Runs posted tasks on its threads, in posting order for a single-threaded executor. A task that throws
// is reported on standard error; the thread goes on with the next task.
class AsyncExecutor {
 public:
  AsyncExecutor() = default;
  AsyncExecutor(const AsyncExecutor&) = delete;
  AsyncExecutor& operator=(const AsyncExecutor&) = delete;
  virtual ~AsyncExecutor();

  virtual void Post(const boost::function<void()>& task) = 0;
  virtual const std::string& Name() const = 0;
  // Blocks until every task posted before the call has finished. Called from one of the executor's own
  // threads it returns at once, since waiting there could never end.
  virtual void WaitUntilIdle() = 0;
};

// What the executor factories below return. The priority is the value given at creation; it is kept for
// the host's bookkeeping and not applied to the threads' scheduling (that would need privileges a plain
// process rarely has). The pools report 0.
class ThreadedExecutor : public AsyncExecutor {
 public:
  virtual int Priority() const = 0;
};

// Handles onto the process-wide pools, created on first use: the CPU pool has one thread per hardware
// thread (at least 2), the I/O pool 2 threads. A handle may be dropped right after posting: the pools live
// until the process exits. At exit they stop taking tasks, finish the ones already posted and join their
// threads; if that takes more than 10 seconds the threads are left running, so that exit cannot hang.
boost::shared_ptr<AsyncExecutor> CreateCPUBoundExecutor();
boost::shared_ptr<AsyncExecutor> CreateIOBoundExecutor();

// An executor with `threadCount` dedicated threads (clamped to 1..64), named `name` (the first 15 bytes,
// the system's limit). `threadStart`, when not empty, runs first on each thread. When the last reference
// goes, new tasks are no longer taken, the tasks already posted still run and then the threads are joined;
// if that last reference is dropped on one of the executor's own threads, that thread is detached instead
// and ends by itself once the queue is empty. If no thread can be started at all, tasks run on the posting
// thread. Null only when memory runs out.
boost::shared_ptr<AsyncExecutor> CreateAsyncThreadedExecutor(const std::string& name, int threadCount,
                                                             int priority,
                                                             const boost::function<void()>& threadStart);

// A number that identifies the calling thread: never 0 and never given to another thread of the process,
// even after this one has ended.
std::uint64_t GetCurrentThreadID();

namespace detail {

// A task that is in an executor's queue at most once: Queue() posts it unless it is already queued. The
// queued flag is cleared just before the task runs, so the task may call Queue() on its own object to run
// again later; that is how a poll re-arms itself.
//
// The third constructor argument is a delay in milliseconds applied to such a re-arm (Queue() called from
// inside the running task): the task is handed to the executor only after the delay, so a poll that finds
// nothing to do does not spin. The delay is kept by a timer thread, not by sleeping on the executor, whose
// other tasks go on meanwhile. Queue() from anywhere else posts at once. Zero or negative: no delay.
//
// The object keeps the executor alive; a posted or delayed run keeps the task alive, so the object may be
// destroyed while a run is pending. With an empty executor Queue() does nothing.
class QueueOnlyOnce {
 public:
  QueueOnlyOnce(boost::shared_ptr<AsyncExecutor> executor, boost::function<void()> task, int delayOrPriority);
  ~QueueOnlyOnce();
  QueueOnlyOnce(const QueueOnlyOnce&) = delete;
  QueueOnlyOnce& operator=(const QueueOnlyOnce&) = delete;

  void Queue();
  // True between a Queue() that posted the task and the start of that run.
  bool IsQueued() const;

 private:
  struct State;
  boost::shared_ptr<State> state_;
};

}  // namespace detail
}  // namespace threads
}  // namespace zelcore
