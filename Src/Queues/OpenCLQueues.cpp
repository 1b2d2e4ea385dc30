#include "Queues/OpenCLQueues.h"

#include <cstdint>

#include "Runtime/FailureReport.h"
#include "Runtime/ResultMapping.h"

namespace LM {

namespace {

// Wraps the event an enqueue produced, when the caller asked for one.
void Deliver(cl_int status, cl_event event, boost::shared_ptr<Event>* done) {
  if (done == nullptr) return;
  if (status == CL_SUCCESS && event != nullptr) {
    done->reset(new OpenCLEvent(event));
  } else {
    done->reset();
  }
}

}  // namespace

OpenCLEvent::~OpenCLEvent() {
  if (event_ == nullptr) return;
  const cl_int result = clReleaseEvent(event_);
  static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Event release failure: "));
}

// A command that ended with an error (a negative status) has ended too. A query that fails will not
// succeed later: the event counts as complete, and the failure is reported once, since a completed event
// is never queried again.
bool OpenCLEvent::IsComplete() {
  if (complete_ || event_ == nullptr) return true;
  cl_int status = CL_QUEUED;
  const cl_int result =
      clGetEventInfo(event_, CL_EVENT_COMMAND_EXECUTION_STATUS, sizeof status, &status, nullptr);
  if (result == CL_SUCCESS && status > CL_COMPLETE) return false;
  complete_ = true;
  static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Event query failure: "));
  return true;
}

void OpenCLEvent::Wait() {
  if (IsComplete()) return;
  // Either way the command has ended; a failure is reported, since it means the work behind it failed.
  const cl_int result = clWaitForEvents(1, &event_);
  complete_ = true;
  static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Event wait failure: "));
}

float OpenCLEvent::ElapsedTime(const boost::shared_ptr<Event>& later) {
  if (!later || event_ == nullptr) return 0.0f;
  later->Wait();
  cl_ulong thisEnd = 0;
  cl_ulong laterEnd = 0;
  cl_event other = static_cast<cl_event>(later->GetNativeEvent());
  if (clGetEventProfilingInfo(event_, CL_PROFILING_COMMAND_END, sizeof thisEnd, &thisEnd, nullptr) !=
          CL_SUCCESS ||
      clGetEventProfilingInfo(other, CL_PROFILING_COMMAND_END, sizeof laterEnd, &laterEnd, nullptr) !=
          CL_SUCCESS) {
    return 0.0f;
  }
  return static_cast<float>(static_cast<std::uint64_t>(laterEnd - thisEnd) * 1e-6);
}

OpenCLCommandQueue::OpenCLCommandQueue(cl_context context, cl_device_id device, bool profile) {
  cl_int result = CL_SUCCESS;
  cl_command_queue queue =
      clCreateCommandQueue(context, device, profile ? CL_QUEUE_PROFILING_ENABLE : 0, &result);
  if (LM_OPENCL_SUCCEEDED(result, "Command queue creation failure: ")) queue_ = queue;
}

OpenCLCommandQueue::~OpenCLCommandQueue() {
  if (queue_ == nullptr) return;
  const cl_int result = clReleaseCommandQueue(queue_);
  static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Command queue release failure: "));
}

boost::shared_ptr<Event> OpenCLCommandQueue::RecordEvent() {
  cl_event event = nullptr;
  const cl_int result = clEnqueueMarker(queue_, &event);
  if (!LM_OPENCL_SUCCEEDED(result, "Marker failure: ")) return boost::shared_ptr<Event>();
  return boost::shared_ptr<Event>(new OpenCLEvent(event));
}

void OpenCLCommandQueue::WaitForEvent(const boost::shared_ptr<Event>& event) {
  if (!event) return;
  cl_event native = static_cast<cl_event>(event->GetNativeEvent());
  // The queue is in order, so later work already follows an event of this queue; and a completed event
  // needs no wait. Only an incomplete event of another queue is waited for on the device. (Some runtimes,
  // PoCL among them, abort in clEnqueueWaitForEvents, so it is kept to the one case that needs it.)
  cl_command_queue owner = nullptr;
  if (clGetEventInfo(native, CL_EVENT_COMMAND_QUEUE, sizeof owner, &owner, nullptr) == CL_SUCCESS &&
      owner == queue_) {
    return;
  }
  if (event->IsComplete()) return;
  const cl_int result = clEnqueueWaitForEvents(queue_, 1, &native);
  static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Queue wait failure: "));
}

int OpenCLCommandQueue::LaunchKernel(void* kernel, int gridWidth, int gridHeight, int blockWidth,
                                     int blockHeight, boost::shared_ptr<Event>* done) {
  if (done != nullptr) done->reset();
  // Runtimes do not all check their handles, and an empty or negative geometry must not reach the runtime
  // as a huge size_t: both are refused here as the runtime would refuse them.
  if (kernel == nullptr) return MapOpenCLResult(CL_INVALID_KERNEL);
  if (gridWidth <= 0 || gridHeight <= 0 || blockWidth <= 0 || blockHeight <= 0) {
    return MapOpenCLResult(CL_INVALID_GLOBAL_WORK_SIZE);
  }
  const std::size_t global[2] = {
      static_cast<std::size_t>(gridWidth) * static_cast<std::size_t>(blockWidth),
      static_cast<std::size_t>(gridHeight) * static_cast<std::size_t>(blockHeight)};
  const std::size_t local[2] = {static_cast<std::size_t>(blockWidth), static_cast<std::size_t>(blockHeight)};
  cl_event event = nullptr;
  const cl_int result = clEnqueueNDRangeKernel(queue_, static_cast<cl_kernel>(kernel), 2, nullptr, global,
                                               local, 0, nullptr, done != nullptr ? &event : nullptr);
  Deliver(result, event, done);
  return MapOpenCLResult(result);
}

int OpenCLCommandQueue::CopyHostToDevice(const void* host, void* device, std::size_t bytes,
                                         boost::shared_ptr<Event>* done) {
  if (done != nullptr) done->reset();
  if (host == nullptr || device == nullptr) return MapOpenCLResult(CL_INVALID_VALUE);
  cl_event event = nullptr;
  const cl_int result = clEnqueueWriteBuffer(queue_, static_cast<cl_mem>(device), CL_FALSE, 0, bytes, host, 0,
                                             nullptr, done != nullptr ? &event : nullptr);
  Deliver(result, event, done);
  return MapOpenCLResult(result);
}

int OpenCLCommandQueue::CopyDeviceToHost(const void* device, void* host, std::size_t bytes,
                                         boost::shared_ptr<Event>* done, bool) {
  if (done != nullptr) done->reset();
  if (host == nullptr || device == nullptr) return MapOpenCLResult(CL_INVALID_VALUE);
  cl_event event = nullptr;
  const cl_int result = clEnqueueReadBuffer(queue_, static_cast<cl_mem>(const_cast<void*>(device)), CL_TRUE,
                                            0, bytes, host, 0, nullptr, done != nullptr ? &event : nullptr);
  Deliver(result, event, done);
  return MapOpenCLResult(result);
}

}  // namespace LM
