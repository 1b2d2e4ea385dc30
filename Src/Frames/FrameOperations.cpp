// The frame-level wrappers of the raw-buffer operations.
#include "Lumora/FrameOperations.h"

#include <FK/VideoFrame.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <climits>

#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "Lumora/VideoFrames.h"

namespace LM {

namespace {

using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;

// A GPU frame's memory, device and rows; false for any other frame.
struct GPUView {
  void* memory;
  int rowBytes;
  boost::shared_ptr<Device> device;
  OXR::InterfaceRef<ICompletionEventVideoFrame> events;
};

bool ViewOf(const Frame& frame, GPUView* view) {
  OXR::InterfaceRef<IGPUVideoFrameMemoryAccess> memory;
  if (!memory.QueryFrom(frame, IGPUVideoFrameMemoryAccess::kIID) ||
      !view->events.QueryFrom(frame, ICompletionEventVideoFrame::kIID)) {
    return false;
  }
  const OXR::ParamRect<CRect> bounds = frame->GetBounds();
  // A planar 4:2:0 frame is one block of its Y, U and V planes without padding; the converter takes the luma
  // pitch and finds the chroma planes after the luma rows.
  const std::size_t rowBytes =
      zelmediatypes::IsPlanar420Format(frame->GetPixelFormat())
          ? static_cast<std::size_t>(bounds.Width())
          : zelmediatypes::PixelFormatSize(frame->GetPixelFormat(), bounds.Width(), 1);
  view->memory = memory->GetBaseAddress();
  view->rowBytes = rowBytes <= static_cast<std::size_t>(INT_MAX) ? static_cast<int>(rowBytes) : 0;
  view->device = view->events->GetDevice();
  return view->device != nullptr;
}

}  // namespace

int ConvertFrame(const Frame& destination, const Frame& source, bool flipVertically) try {
  GPUView to, from;
  if (!destination || !source || !ViewOf(destination, &to) || !ViewOf(source, &from) ||
      to.device != from.device || destination->GetBounds() != source->GetBounds()) {
    return kResultFailed;
  }
  const OXR::ParamRect<CRect> bounds = source->GetBounds();
  const ExclusiveAccess access(*to.device);
  const int result = PixelFormatConvert(to.device, from.memory, from.rowBytes, source->GetPixelFormat(),
                                        to.memory, to.rowBytes, destination->GetPixelFormat(), bounds.Width(),
                                        bounds.Height(), flipVertically);
  if (result == kResultSuccess) {
    const boost::shared_ptr<CommandQueue> queue = to.device->GetCommandQueue();
    const boost::shared_ptr<Event> done = queue ? queue->RecordEvent() : boost::shared_ptr<Event>();
    to.events->SetCompletionEvent(done);
    from.events->SetCompletionEvent(done);
  }
  return result;
} catch (...) {
  return kResultFailed;
}

}  // namespace LM
