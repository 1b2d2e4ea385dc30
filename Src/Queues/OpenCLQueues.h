// The OpenCL forms of Event and CommandQueue: one cl_command_queue, markers as events.
#pragma once

#include "Lumora/Queues.h"
#include "Runtime/OpenCLEntryPoints.h"

namespace LM {

class OpenCLEvent : public Event {
 public:
  // Takes over the caller's reference to `event`.
  explicit OpenCLEvent(cl_event event) : event_(event) {}
  ~OpenCLEvent() override;
  OpenCLEvent(const OpenCLEvent&) = delete;
  OpenCLEvent& operator=(const OpenCLEvent&) = delete;

  // Complete once the command's execution status is CL_COMPLETE, or an error status (a command that
  // terminated abnormally does no more work either, and waiting for it must not hang).
  bool IsComplete() override;
  // Uses the commands' end times, so the queue must profile.
  float ElapsedTime(const boost::shared_ptr<Event>& later) override;
  void Wait() override;
  void* GetNativeEvent() override { return event_; }

 private:
  bool complete_ = false;
  cl_event event_;
};

class OpenCLCommandQueue : public CommandQueue {
 public:
  // Profiling is enabled when `profile` is set (kernel profiling switched on for the device).
  OpenCLCommandQueue(cl_context context, cl_device_id device, bool profile);
  ~OpenCLCommandQueue() override;
  OpenCLCommandQueue(const OpenCLCommandQueue&) = delete;
  OpenCLCommandQueue& operator=(const OpenCLCommandQueue&) = delete;

  bool Valid() const { return queue_ != nullptr; }

  void* GetNativeQueue() override { return queue_; }
  boost::shared_ptr<Event> RecordEvent() override;
  // Enqueues a wait only for an incomplete event of another queue (this queue is in order).
  void WaitForEvent(const boost::shared_ptr<Event>& event) override;
  int LaunchKernel(void* kernel, int gridWidth, int gridHeight, int blockWidth, int blockHeight,
                   boost::shared_ptr<Event>* done) override;
  int CopyHostToDevice(const void* host, void* device, std::size_t bytes,
                       boost::shared_ptr<Event>* done) override;
  // Blocking, unlike the upload; `onMainStream` has no meaning with one queue.
  int CopyDeviceToHost(const void* device, void* host, std::size_t bytes, boost::shared_ptr<Event>* done,
                       bool onMainStream) override;

 private:
  cl_command_queue queue_ = nullptr;
};

}  // namespace LM
