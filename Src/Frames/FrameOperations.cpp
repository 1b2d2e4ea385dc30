// The frame-level wrappers of the raw-buffer operations.
#include "Lumora/FrameOperations.h"

#include <FK/VideoFrame.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <climits>
#include <initializer_list>
#include <vector>

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

// The views of GPU frames of one device, one format and one size; false otherwise.
bool SameKind(const std::initializer_list<Frame>& frames, std::vector<GPUView>* views) {
  for (const Frame& frame : frames) {
    GPUView view;
    if (!frame || !ViewOf(frame, &view)) return false;
    const Frame& first = *frames.begin();
    if (view.device != (views->empty() ? view.device : views->front().device) ||
        frame->GetBounds() != first->GetBounds() || frame->GetPixelFormat() != first->GetPixelFormat()) {
      return false;
    }
    views->push_back(view);
  }
  return true;
}

// Runs `operation` under the device's exclusive access and, when it succeeds, records the queue's position as
// the completion event of every frame it used.
template <class Operation>
int OnFrames(const std::vector<GPUView>& views, Operation operation) {
  const ExclusiveAccess access(*views.front().device);
  const int result = operation(views.front().device);
  if (result == kResultSuccess) {
    const boost::shared_ptr<CommandQueue> queue = views.front().device->GetCommandQueue();
    const boost::shared_ptr<Event> done = queue ? queue->RecordEvent() : boost::shared_ptr<Event>();
    for (const GPUView& view : views) view.events->SetCompletionEvent(done);
  }
  return result;
}

}  // namespace

int Composite(const Frame& destination, const Frame& layer, const Frame& background, float opacity,
              SK_BlendMode mode) try {
  std::vector<GPUView> v;
  if (!SameKind({destination, layer, background}, &v)) return kResultFailed;
  const OXR::ParamRect<CRect> bounds = destination->GetBounds();
  return OnFrames(v, [&](const boost::shared_ptr<Device>& device) {
    return Composite(device, v[1].memory, v[1].rowBytes, v[2].memory, v[2].rowBytes, v[0].memory,
                     v[0].rowBytes, destination->GetPixelFormat(), bounds.Width(), bounds.Height(), opacity,
                     mode);
  });
} catch (...) {
  return kResultFailed;
}

int DeinterlaceFrame(const Frame& destination, const Frame& source, DeinterlaceMode mode) try {
  std::vector<GPUView> v;
  if (!SameKind({destination, source}, &v)) return kResultFailed;
  const OXR::ParamRect<CRect> bounds = destination->GetBounds();
  const int kept = source->GetFieldType() == zelmediatypes::kFieldType_LowerFirst ? 1 : 0;
  return OnFrames(v, [&](const boost::shared_ptr<Device>& device) {
    return Deinterlace(device, v[1].memory, v[1].rowBytes, v[0].memory, v[0].rowBytes,
                       source->GetPixelFormat(), bounds.Width(), bounds.Height(), kept, mode);
  });
} catch (...) {
  return kResultFailed;
}

int InterlaceFrames(const Frame& destination, const Frame& first, const Frame& second) try {
  std::vector<GPUView> v;
  if (!SameKind({destination, first, second}, &v)) return kResultFailed;
  const OXR::ParamRect<CRect> bounds = destination->GetBounds();
  const int parity = destination->GetFieldType() == zelmediatypes::kFieldType_LowerFirst ? 1 : 0;
  return OnFrames(v, [&](const boost::shared_ptr<Device>& device) {
    return InterlaceFields(device, v[1].memory, v[1].rowBytes, v[2].memory, v[2].rowBytes, v[0].memory,
                           v[0].rowBytes, destination->GetPixelFormat(), bounds.Width(), bounds.Height(),
                           parity);
  });
} catch (...) {
  return kResultFailed;
}

int UnpremultiplyFrame(const Frame& destination, const Frame& source, const float4& color) try {
  std::vector<GPUView> v;
  if (!SameKind({destination, source}, &v)) return kResultFailed;
  const OXR::ParamRect<CRect> bounds = destination->GetBounds();
  return OnFrames(v, [&](const boost::shared_ptr<Device>& device) {
    return Unpremultiply(device, v[1].memory, v[1].rowBytes, v[0].memory, v[0].rowBytes,
                         source->GetPixelFormat(), bounds.Width(), bounds.Height(), color);
  });
} catch (...) {
  return kResultFailed;
}

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
