#include "Queues/CUDAQueues.h"

#include <boost/bind/bind.hpp>
#include <cstdint>

#include "Runtime/CUDADriverTable.h"
#include "Runtime/FailureReport.h"
#include "Runtime/ResultMapping.h"

namespace LM {

namespace {

CUdeviceptr DevicePointer(const void* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

}  // namespace

CUDAEvent::CUDAEvent() {
  CUevent event = nullptr;
  const CUresult result = CUDA.cuEventCreate(&event, 0);
  if (LM_CUDA_SUCCEEDED(result, "Event creation failure: ")) event_ = event;
}

CUDAEvent::~CUDAEvent() {
  if (event_ == nullptr) return;
  const CUresult result = CUDA.cuEventDestroy(event_);
  static_cast<void>(LM_CUDA_SUCCEEDED(result, "Event destruction failure: "));
}

// A query that fails (the work behind the event failed, or the event is gone) will not succeed later: the
// event counts as complete, so that nobody waits for it for ever, and the failure is reported once, since a
// completed event is never queried again.
bool CUDAEvent::IsComplete() {
  if (complete_ || event_ == nullptr) return complete_;
  const CUresult result = CUDA.cuEventQuery(event_);
  if (result == CUDA_ERROR_NOT_READY) return false;
  complete_ = true;
  static_cast<void>(LM_CUDA_SUCCEEDED(result, "Event query failure: "));
  return true;
}

void CUDAEvent::Wait() {
  if (IsComplete() || event_ == nullptr) return;
  const CUresult result = CUDA.cuEventSynchronize(event_);
  if (LM_CUDA_SUCCEEDED(result, "Event synchronization failure: ")) complete_ = true;
}

float CUDAEvent::ElapsedTime(const boost::shared_ptr<Event>& later) {
  if (!later) return 0.0f;
  later->Wait();
  float milliseconds = 0.0f;
  if (CUDA.cuEventElapsedTime(&milliseconds, event_, static_cast<CUevent>(later->GetNativeEvent())) !=
      CUDA_SUCCESS) {
    return 0.0f;
  }
  return milliseconds;
}

CUDAEventPool::~CUDAEventPool() {
  // Every handed-out event holds the pool, so by now they all came back.
  FoldReturned();
  for (CUDAEvent* event : free_) delete event;
}

void CUDAEventPool::FoldReturned() {
  std::vector<CUDAEvent*> returned;
  {
    OXR::CriticalSectionLock guard(lock_, "CUDAEventPool::Fold");
    returned.swap(returned_);
  }
  for (CUDAEvent* event : returned) {
    if (free_.size() < kMaxKeptEvents) {
      free_.push_back(event);
    } else {
      delete event;
    }
  }
}

void CUDAEventPool::Return(CUDAEvent* event) {
  OXR::CriticalSectionLock guard(lock_, "CUDAEventPool::Return");
  returned_.push_back(event);
}

boost::shared_ptr<Event> CUDAEventPool::Acquire(CUstream stream) {
  FoldReturned();
  CUDAEvent* event = nullptr;
  if (!free_.empty()) {
    event = free_.back();
    free_.pop_back();
  } else {
    event = new CUDAEvent();
    if (!event->Valid()) {
      delete event;
      return boost::shared_ptr<Event>();
    }
  }
  event->ClearCompletion();
  const CUresult result = CUDA.cuEventRecord(static_cast<CUevent>(event->GetNativeEvent()), stream);
  if (!LM_CUDA_SUCCEEDED(result, "Event record failure: ")) {
    free_.push_back(event);
    return boost::shared_ptr<Event>();
  }
  return boost::shared_ptr<Event>(
      event, boost::bind(&CUDAEventPool::Return, shared_from_this(), boost::placeholders::_1));
}

CUDACommandQueue::CUDACommandQueue() : events_(new CUDAEventPool) {
  for (CUstream* stream : {&mainStream_, &secondStream_, &copyStream_}) {
    const CUresult result = CUDA.cuStreamCreate(stream, 0);
    if (!LM_CUDA_SUCCEEDED(result, "Stream creation failure: ")) *stream = nullptr;
  }
}

CUDACommandQueue::~CUDACommandQueue() {
  for (CUstream stream : {mainStream_, secondStream_, copyStream_}) {
    if (stream == nullptr) continue;
    const CUresult result = CUDA.cuStreamDestroy(stream);
    static_cast<void>(LM_CUDA_SUCCEEDED(result, "Stream destruction failure: "));
  }
}

void CUDACommandQueue::RecordDone(CUstream stream, boost::shared_ptr<Event>* done) {
  if (done != nullptr) *done = events_->Acquire(stream);
}

boost::shared_ptr<Event> CUDACommandQueue::RecordEvent() {
  return events_->Acquire(mainStream_);
}

// A driver bound through the legacy interface has no cuStreamWaitEvent: the calling thread then waits for
// the event itself, which orders later work just as well, at the cost of blocking.
void CUDACommandQueue::WaitForEvent(const boost::shared_ptr<Event>& event) {
  if (!event || event->IsComplete()) return;
  if (CUDA.cuStreamWaitEvent == nullptr) {
    event->Wait();
    return;
  }
  const CUresult result =
      CUDA.cuStreamWaitEvent(mainStream_, static_cast<CUevent>(event->GetNativeEvent()), 0);
  static_cast<void>(LM_CUDA_SUCCEEDED(result, "Stream wait failure: "));
}

int CUDACommandQueue::LaunchKernel(void* kernel, int gridWidth, int gridHeight, int blockWidth,
                                   int blockHeight, boost::shared_ptr<Event>* done) {
  if (done != nullptr) done->reset();
  CUfunction function = static_cast<CUfunction>(kernel);
  CUresult result = CUDA.cuFuncSetBlockShape(function, blockWidth, blockHeight, 1);
  if (result == CUDA_SUCCESS) result = CUDA.cuLaunchGridAsync(function, gridWidth, gridHeight, mainStream_);
  if (result != CUDA_SUCCESS) return MapCUDAResult(result);
  RecordDone(mainStream_, done);
  return kResultSuccess;
}

int CUDACommandQueue::CopyHostToDevice(const void* host, void* device, std::size_t bytes,
                                       boost::shared_ptr<Event>* done) {
  if (done != nullptr) done->reset();
  const CUresult result = CUDA.cuMemcpyHtoDAsync(DevicePointer(device), host, bytes, mainStream_);
  if (result != CUDA_SUCCESS) return MapCUDAResult(result);
  RecordDone(mainStream_, done);
  return kResultSuccess;
}

int CUDACommandQueue::CopyDeviceToHost(const void* device, void* host, std::size_t bytes,
                                       boost::shared_ptr<Event>* done, bool onMainStream) {
  if (done != nullptr) done->reset();
  // Off the main stream the copy waits on the copy stream for everything queued so far, so the read-back
  // overlaps later work on the main stream. Without cuStreamWaitEvent (the legacy interface) it stays on
  // the main stream, which orders it after the queued work by itself.
  CUstream stream = mainStream_;
  if (!onMainStream && done != nullptr && CUDA.cuStreamWaitEvent != nullptr) {
    const boost::shared_ptr<Event> queued = events_->Acquire(mainStream_);
    if (!queued) return kResultFailed;
    const CUresult result =
        CUDA.cuStreamWaitEvent(copyStream_, static_cast<CUevent>(queued->GetNativeEvent()), 0);
    if (result != CUDA_SUCCESS) return MapCUDAResult(result);
    stream = copyStream_;
  }
  const CUresult result = CUDA.cuMemcpyDtoHAsync(host, DevicePointer(device), bytes, stream);
  if (result != CUDA_SUCCESS) return MapCUDAResult(result);
  RecordDone(stream, done);
  return kResultSuccess;
}

}  // namespace LM
