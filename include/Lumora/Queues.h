// Command queues and completion events. A CommandQueue is the one ordered stream of GPU work of a device;
// an Event marks a point in it. Both are abstract, with a CUDA and an OpenCL implementation, and always
// held by boost::shared_ptr.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>

#include "Lumora/Export.h"

namespace LM {

class LM_API Event {
 public:
  virtual ~Event();

  // Non-blocking. Once it has answered true, the answer is kept and the driver is not asked again.
  virtual bool IsComplete() = 0;
  // Milliseconds from this event to `later`, after waiting for `later`.
  virtual float ElapsedTime(const boost::shared_ptr<Event>& later) = 0;
  // Returns at once when complete; otherwise blocks until the event has completed.
  virtual void Wait() = 0;
  // The driver's handle: a CUevent or a cl_event.
  virtual void* GetNativeEvent() = 0;
};

class LM_API CommandQueue {
 public:
  virtual ~CommandQueue();

  // The main CUstream or the cl_command_queue.
  virtual void* GetNativeQueue() = 0;
  // An event that completes when all work queued so far has completed.
  virtual boost::shared_ptr<Event> RecordEvent() = 0;
  // Later work on this queue waits for `event`.
  virtual void WaitForEvent(const boost::shared_ptr<Event>& event) = 0;
  // A 2-D launch of gridWidth x gridHeight blocks of blockWidth x blockHeight threads. The int results of
  // this class are result codes (Lumora/Results.h); `done`, when given, receives an event recorded after
  // the work.
  virtual int LaunchKernel(void* kernel, int gridWidth, int gridHeight, int blockWidth, int blockHeight,
                           boost::shared_ptr<Event>* done) = 0;
  // Asynchronous upload of `bytes` from host memory into a device buffer.
  virtual int CopyHostToDevice(const void* host, void* device, std::size_t bytes,
                               boost::shared_ptr<Event>* done) = 0;
  // Download of `bytes` from a device buffer. On CUDA, a download off the main stream (with `done`) runs on a
  // copy stream after the work queued so far, so it can overlap later work; OpenCL downloads block.
  virtual int CopyDeviceToHost(const void* device, void* host, std::size_t bytes,
                               boost::shared_ptr<Event>* done, bool onMainStream) = 0;
};

}  // namespace LM
