// The CUDA forms of Event and CommandQueue. A queue owns three streams (main, second, copy) and a pool that
// recycles its events: an event's last owner hands it back to the pool from any thread, and the next
// acquisition puts it back into service.
#pragma once

#include <OXR/CriticalSection.h>

#include <boost/enable_shared_from_this.hpp>
#include <boost/weak_ptr.hpp>
#include <vector>

#include "Lumora/Queues.h"
#include "Runtime/CUDADriverAPI.h"

namespace LM {

class CUDAEvent : public Event {
 public:
  // Creates the driver event (timing enabled); Valid() tells whether that worked.
  CUDAEvent();
  ~CUDAEvent() override;
  CUDAEvent(const CUDAEvent&) = delete;
  CUDAEvent& operator=(const CUDAEvent&) = delete;

  bool Valid() const { return event_ != nullptr; }
  // Forgets a cached completion before the event is recorded again.
  void ClearCompletion() { complete_ = false; }

  bool IsComplete() override;
  float ElapsedTime(const boost::shared_ptr<Event>& later) override;
  void Wait() override;
  void* GetNativeEvent() override { return event_; }

 private:
  bool complete_ = false;
  CUevent event_ = nullptr;
};

// Keeps finished events for reuse. Events are handed out in shared pointers whose deleter holds the pool,
// so a pool lives until its last event is gone, even when its queue went first.
class CUDAEventPool : public boost::enable_shared_from_this<CUDAEventPool> {
 public:
  // At most this many returned events are kept for reuse; the rest are destroyed at the next acquisition.
  static constexpr std::size_t kMaxKeptEvents = 32;

  CUDAEventPool() = default;
  ~CUDAEventPool();
  CUDAEventPool(const CUDAEventPool&) = delete;
  CUDAEventPool& operator=(const CUDAEventPool&) = delete;

  // An event recorded on `stream`, or empty when no event could be made or recorded.
  boost::shared_ptr<Event> Acquire(CUstream stream);

 private:
  void Return(CUDAEvent* event);
  void FoldReturned();

  std::vector<CUDAEvent*> free_;  // touched only by the acquiring thread
  OXR::CriticalSection lock_;
  std::vector<CUDAEvent*> returned_;  // guarded by lock_
};

class CUDACommandQueue : public CommandQueue {
 public:
  CUDACommandQueue();
  ~CUDACommandQueue() override;
  CUDACommandQueue(const CUDACommandQueue&) = delete;
  CUDACommandQueue& operator=(const CUDACommandQueue&) = delete;

  // Whether all three streams were created.
  bool Valid() const { return mainStream_ != nullptr && secondStream_ != nullptr && copyStream_ != nullptr; }
  CUstream SecondStream() const { return secondStream_; }
  // Alive while the queue or any event it handed out is: what outlives the queue in its context.
  boost::weak_ptr<void> EventsInUse() const { return events_; }
  CUstream CopyStream() const { return copyStream_; }

  void* GetNativeQueue() override { return mainStream_; }
  boost::shared_ptr<Event> RecordEvent() override;
  void WaitForEvent(const boost::shared_ptr<Event>& event) override;
  int LaunchKernel(void* kernel, int gridWidth, int gridHeight, int blockWidth, int blockHeight,
                   boost::shared_ptr<Event>* done) override;
  int CopyHostToDevice(const void* host, void* device, std::size_t bytes,
                       boost::shared_ptr<Event>* done) override;
  int CopyDeviceToHost(const void* device, void* host, std::size_t bytes, boost::shared_ptr<Event>* done,
                       bool onMainStream) override;

 private:
  // Records *done on `stream` when asked for; an empty event tells that recording failed.
  void RecordDone(CUstream stream, boost::shared_ptr<Event>* done);

  boost::shared_ptr<CUDAEventPool> events_;
  CUstream mainStream_ = nullptr;
  CUstream secondStream_ = nullptr;
  CUstream copyStream_ = nullptr;
};

}  // namespace LM
