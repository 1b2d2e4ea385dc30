// Frames between the host and a device: staged uploads, read-backs and copies. The CPU work is the host
// renderer's; the device work is its command queue's, ordered by events.
#include "Lumora/FrameTransfers.h"

#include <FK/VideoFrame.h>
#include <SK/Renderer.h>
#include <zelmediatypes/PixelFormatTable.h>
#include <zelmediatypes/PixelFormats.h>

#include <boost/bind/bind.hpp>

#include "Devices/DeviceBackend.h"
#include "Lumora/EventPoll.h"
#include "Lumora/FrameOperations.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "Lumora/VideoFrames.h"

namespace LM {

namespace {

using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;
using Rect = OXR::ParamRect<CRect>;

bool IsInterlaced(zelmediatypes::FieldType fieldType) {
  return fieldType == zelmediatypes::kFieldType_UpperFirst ||
         fieldType == zelmediatypes::kFieldType_LowerFirst;
}

// A frame's pixels on the host, as the renderer takes them.
struct HostView {
  char* base;
  int rowBytes;  // 0: the format's own rows
  int width, height;
  PixelFormat format;
  zelmediatypes::FieldType fieldType;
};

// False for a frame whose memory is not on the host (a GPU frame, a foreign frame without memory access)
// or whose size is not positive.
bool ViewOf(const Frame& frame, HostView* view) {
  const auto memory = OXR::Query<FK::IVideoFrameMemoryAccess>(frame);
  if (!memory || memory->GetBaseAddress() == nullptr) return false;
  const Rect bounds = frame->GetBounds();
  view->base = static_cast<char*>(memory->GetBaseAddress());
  view->width = bounds.Width();
  view->height = bounds.Height();
  view->format = FK::BEPixelFormatToIRPixelFormat(frame->GetPixelFormat());
  view->fieldType = frame->GetFieldType();
  const auto rows = OXR::Query<FK::IVideoFrame2DPixelMemoryAccess>(frame);
  // Without row access (4:2:0 planes in one block), 0 asks the renderer for the format's own layout.
  view->rowBytes = rows ? rows->GetRowBytes() : 0;
  return view->width > 0 && view->height > 0;
}

// Waits for the work still queued on one of the library's frames (a read-back into it, say).
void WaitForWork(const Frame& frame) {
  if (const auto events = OXR::Query<ICompletionEventVideoFrame>(frame)) {
    if (const boost::shared_ptr<Event> pending = events->GetCompletionEvent()) pending->Wait();
  }
}

boost::shared_ptr<Device> DeviceOf(const Frame& frame) {
  const auto events = OXR::Query<ICompletionEventVideoFrame>(frame);
  return events ? events->GetDevice() : boost::shared_ptr<Device>();
}

bool Inside(const Rect& rect, const Rect& bounds) {
  return !rect.IsEmpty() && rect.left >= bounds.left && rect.top >= bounds.top &&
         rect.right <= bounds.right && rect.bottom <= bounds.bottom;
}

// Holds a foreign source until its copy has finished, then gives back the page lock of its memory. The
// source is held by the poll's callback, whose copy of it goes with the callback.
void KeepUntilCopied(const boost::shared_ptr<Device>& device, const Frame& /*source*/, void* pinned) {
  if (pinned == nullptr) return;
  const ExclusiveAccess access(*device);
  BackendOf(*device).UnpinHostMemory(pinned);
}

// A new frame on `device` like `like` (format, size, aspect, field type, origin), GPU or host.
Frame NewFrame(bool gpu, const boost::shared_ptr<Device>& device, PixelFormat format, int width, int height,
               zelmediatypes::PixelAspectRatio aspect, zelmediatypes::FieldType fieldType,
               OXR::ParamPoint<CPoint> origin) {
  Frame frame;
  if (width <= 0 || height <= 0) return frame;
  static_cast<void>((gpu ? CreateGPUVideoFrame : CreateHostMemoryVideoFrame)(
      frame, device, format, static_cast<unsigned>(width), static_cast<unsigned>(height), aspect, fieldType,
      origin));
  return frame;
}

// Copies a host block into a GPU frame's block on the device's queue; the copy's event becomes the
// completion event of both frames, so neither block is reused before it.
int Upload(const Frame& host, const Frame& gpu) {
  const auto hostMemory = OXR::Query<FK::IVideoFrameMemoryAccess>(host);
  const auto gpuMemory = OXR::Query<IGPUVideoFrameMemoryAccess>(gpu);
  const boost::shared_ptr<Device> device = DeviceOf(gpu);
  if (!hostMemory || !gpuMemory || !device || hostMemory->GetDataSize() < gpuMemory->GetDataSize()) {
    return kResultFailed;
  }
  const ExclusiveAccess access(*device);
  const boost::shared_ptr<CommandQueue> queue = device->GetCommandQueue();
  if (!queue) return kResultFailed;
  boost::shared_ptr<Event> done;
  const int copied = queue->CopyHostToDevice(hostMemory->GetBaseAddress(), gpuMemory->GetBaseAddress(),
                                             gpuMemory->GetDataSize(), &done);
  if (copied != kResultSuccess) return kResultFailed;
  OXR::Query<ICompletionEventVideoFrame>(host)->SetCompletionEvent(done);
  OXR::Query<ICompletionEventVideoFrame>(gpu)->SetCompletionEvent(done);
  return kResultSuccess;
}

// Records the queue's position as the completion event of the frames a device operation used.
void MarkUsed(const boost::shared_ptr<Device>& device, const Frame& a, const Frame& b) {
  const boost::shared_ptr<CommandQueue> queue = device->GetCommandQueue();
  const boost::shared_ptr<Event> done = queue ? queue->RecordEvent() : boost::shared_ptr<Event>();
  OXR::Query<ICompletionEventVideoFrame>(a)->SetCompletionEvent(done);
  OXR::Query<ICompletionEventVideoFrame>(b)->SetCompletionEvent(done);
}

// The part `rect` of a GPU frame on a device copied into another GPU frame at (left, top), by the device.
int CopyOnDevice(const Frame& source, const Rect& part, const Frame& destination, int left, int top) {
  const boost::shared_ptr<Device> device = DeviceOf(source);
  const auto from = OXR::Query<FK::IVideoFrame2DPixelMemoryAccess>(source);
  const auto to = OXR::Query<FK::IVideoFrame2DPixelMemoryAccess>(destination);
  if (!device || !from || !to) return kResultFailed;
  const ExclusiveAccess access(*device);
  const int result = DeviceCopyRect(
      device, OXR::Query<IGPUVideoFrameMemoryAccess>(source)->GetBaseAddress(), from->GetRowBytes(),
      OXR::Query<IGPUVideoFrameMemoryAccess>(destination)->GetBaseAddress(), to->GetRowBytes(),
      source->GetPixelFormat(), part.left, part.top, left, top, part.Width(), part.Height());
  if (result == kResultSuccess) MarkUsed(device, source, destination);
  return result == kResultSuccess ? kResultSuccess : kResultFailed;
}

// A GPU frame's pixels in a pinned host frame of its own format, once they are there.
Frame PinnedCopyOf(const Frame& source) {
  return ReadBackFrame(source, source->GetPixelFormat(), Rect(), source->GetPixelAspectRatio(),
                       source->GetFieldType(), zelmediatypes::kRenderQuality_Max, true);
}

}  // namespace

Frame AllocateHostFrameForUpload(const boost::shared_ptr<Device>& device, const Frame& source,
                                 zelmediatypes::RenderQuality quality, const Rect& rect) try {
  if (!device || !source) return Frame();
  if (OXR::Query<ICompletionEventVideoFrame>(source)) return source;
  zelmediatypes::FieldType fieldType = source->GetFieldType();
  const PixelFormat format = source->GetPixelFormat();
  const Rect bounds = source->GetBounds();
  int width = bounds.Width(), height = bounds.Height();
  if (!rect.IsAllZero() && rect != bounds && source->IsRectNative(rect)) {
    width = rect.Width();
    height = rect.Height();
    fieldType = zelmediatypes::kFieldType_Progressive;
  }
  if (width <= 0 || height <= 0) return Frame();

  // A 4:2:0 source that decodes at twice the size keeps its format for the quarter-scale path; a 4:4:4
  // decode stages in 8-bit Y'CbCr; everything else in the renderer's four-component choice.
  const zelmediatypes::DVDecompressionFormat decode =
      zelmediatypes::SelectDVDecompressionFormat(format, bounds.Width(), bounds.Height());
  const bool halfHeight = decode.width == width && decode.height == 2 * height;
  const bool quarter = decode.width == 2 * width && decode.height == 2 * height;
  PixelFormat staging;
  if (decode.format == format && IsInterlaced(source->GetFieldType()) &&
      zelmediatypes::IsPlanar420Format(format) && quality < zelmediatypes::kRenderQuality_High &&
      (halfHeight || quarter)) {
    staging = format;
  } else if (zelmediatypes::Is444DecodeFormat(format) && quarter) {
    staging = zelmediatypes::IsBT709(format) ? zelmediatypes::kPixelFormat_VUYA_4444_8u_709
                                             : zelmediatypes::kPixelFormat_VUYA_4444_8u;
  } else {
    staging = zelmediatypes::Select4444PixelFormat(format, quality);
  }
  // OpenCL reads the source's own memory as it is.
  if (device->GetFramework() == kDeviceFramework_OpenCL && staging == format && width == bounds.Width() &&
      height == bounds.Height()) {
    return source;
  }
  return NewFrame(false, device, staging, width, height, source->GetPixelAspectRatio(), fieldType,
                  source->GetOrigin());
} catch (...) {
  return Frame();
}

int CopyToHostFrame(const Frame& destination, const Frame& source, zelmediatypes::RenderQuality quality) try {
  if (!destination || !source) return kResultFailed;
  HostView to, from;
  if (!ViewOf(destination, &to) || !ViewOf(source, &from)) return kResultFailed;
  WaitForWork(source);
  WaitForWork(destination);
  if (from.width == 2 * to.width && from.height == 2 * to.height &&
      zelmediatypes::IsPlanar420Format(from.format) && zelmediatypes::IsPlanar420Format(to.format) &&
      IsInterlaced(from.fieldType) && quality < zelmediatypes::kRenderQuality_High) {
    SK_PlanarBuffers fromPlanes, toPlanes;
    if (!SK_GetPlanarBuffers(from.base, kSK_PlanarLayout420_8u, from.width, from.height, &fromPlanes) ||
        !SK_GetPlanarBuffers(to.base, kSK_PlanarLayout420_8u, to.width, to.height, &toPlanes)) {
      return kResultFailed;
    }
    return SK_QuarterScalePlanar420_8u(fromPlanes, toPlanes, from.width, from.height, from.fieldType, quality)
               ? kResultSuccess
               : kResultFailed;
  }
  return SK_ScaleConvert(from.base, from.rowBytes, from.width, from.height, from.format, from.fieldType,
                         to.base, to.rowBytes, to.width, to.height, to.format, from.fieldType, quality)
             ? kResultSuccess
             : kResultFailed;
} catch (...) {
  return kResultFailed;
}

Frame CopyToDevice(const boost::shared_ptr<Device>& device, const Frame& source, const Rect& rect,
                   bool blocking) try {
  if (!device || !source) return Frame();
  if (OXR::Query<IGPUVideoFrame>(source)) return source;
  const Rect bounds = source->GetBounds();
  OXR::ParamPoint<CPoint> origin = source->GetOrigin();
  if (origin.x == -1 && origin.y == -1) {
    origin = rect.IsAllZero() || source->IsRectNative(rect)
                 ? OXR::ParamPoint<CPoint>(0, 0)
                 : OXR::ParamPoint<CPoint>((bounds.Width() - rect.Width()) / 2,
                                           (bounds.Height() - rect.Height()) / 2);
  }
  const Frame frame = NewFrame(true, device, source->GetPixelFormat(), bounds.Width(), bounds.Height(),
                               source->GetPixelAspectRatio(), source->GetFieldType(), origin);
  if (!frame) return Frame();
  const auto target = OXR::Query<IGPUVideoFrameMemoryAccess>(frame);
  const auto sourceEvents = OXR::Query<ICompletionEventVideoFrame>(source);
  const auto sourceMemory = OXR::Query<FK::IVideoFrameMemoryAccess>(source);
  const std::size_t length = target->GetDataSize();
  if (!sourceMemory || sourceMemory->GetBaseAddress() == nullptr || sourceMemory->GetDataSize() < length) {
    return Frame();
  }
  void* address = sourceMemory->GetBaseAddress();

  const ExclusiveAccess access(*device);
  const boost::shared_ptr<CommandQueue> queue = device->GetCommandQueue();
  if (!queue) return Frame();
  // A library host frame of another device may still be written by that device's queue.
  if (sourceEvents && sourceEvents->GetDevice() != device) WaitForWork(source);
  void* pinned = nullptr;
  if (!sourceEvents && device->GetFramework() == kDeviceFramework_CUDA &&
      BackendOf(*device).PinHostMemory(address, length)) {
    pinned = address;
  }
  boost::shared_ptr<Event> done;
  const int copied = queue->CopyHostToDevice(address, target->GetBaseAddress(), length, &done);
  if (copied == kResultSuccess && blocking && done) done->Wait();
  if (sourceEvents) {
    sourceEvents->SetCompletionEvent(done);
  } else if (copied == kResultSuccess && done && !done->IsComplete()) {
    // Memory the library does not own stays alive, and locked, until the copy has read it; the page lock
    // goes only then, since a copy may still read through it.
    AddEventPoll(device, done, boost::bind(&KeepUntilCopied, device, source, pinned));
  } else {
    KeepUntilCopied(device, source, pinned);
  }
  if (!blocking) OXR::Query<ICompletionEventVideoFrame>(frame)->SetCompletionEvent(done);
  return copied == kResultSuccess ? frame : Frame();
} catch (...) {
  return Frame();
}

Frame UploadFrameImmediate(const boost::shared_ptr<Device>& device, const Frame& source, PixelFormat format,
                           zelmediatypes::RenderQuality quality, const Rect& rect) try {
  if (!device || !source) return Frame();
  if (OXR::Query<IGPUVideoFrame>(source)) return source;
  const Frame staging = AllocateHostFrameForUpload(device, source, quality, rect);
  if (!staging) return Frame();
  if (staging != source && CopyToHostFrame(staging, source, quality) != kResultSuccess) return Frame();
  const Frame uploaded = CopyToDevice(device, staging, rect, true);
  if (!uploaded || uploaded->GetPixelFormat() == format) return uploaded;
  // The change of format runs on the device.
  const OXR::ParamRect<CRect> bounds = uploaded->GetBounds();
  const Frame converted =
      NewFrame(true, device, format, bounds.Width(), bounds.Height(), uploaded->GetPixelAspectRatio(),
               uploaded->GetFieldType(), uploaded->GetOrigin());
  if (!converted || ConvertFrame(converted, uploaded) < 0) return Frame();
  return converted;
} catch (...) {
  return Frame();
}

Frame ReadBackFrame(const Frame& source, PixelFormat format, Rect rect,
                    zelmediatypes::PixelAspectRatio aspect, zelmediatypes::FieldType fieldType,
                    zelmediatypes::RenderQuality quality, bool wait) try {
  if (!source) return Frame();
  const auto memory = OXR::Query<IGPUVideoFrameMemoryAccess>(source);
  const boost::shared_ptr<Device> device = DeviceOf(source);
  if (!memory || !device) return Frame();
  const Rect bounds = source->GetBounds();
  const Rect part = rect.IsAllZero() ? bounds : rect;
  if (!Inside(part, bounds)) return Frame();

  const PixelFormat sourceFormat = source->GetPixelFormat();
  const bool asItIs = format == sourceFormat && part == bounds;
  Frame pinned = NewFrame(false, device, sourceFormat, bounds.Width(), bounds.Height(),
                          asItIs ? aspect : source->GetPixelAspectRatio(),
                          asItIs ? fieldType : source->GetFieldType(), OXR::ParamPoint<CPoint>(0, 0));
  if (!pinned) return Frame();
  boost::shared_ptr<Event> done;
  {
    const ExclusiveAccess access(*device);
    const boost::shared_ptr<CommandQueue> queue = device->GetCommandQueue();
    if (!queue || queue->CopyDeviceToHost(memory->GetBaseAddress(),
                                          OXR::Query<FK::IVideoFrameMemoryAccess>(pinned)->GetBaseAddress(),
                                          memory->GetDataSize(), &done, true) != kResultSuccess) {
      return Frame();
    }
  }
  OXR::Query<ICompletionEventVideoFrame>(pinned)->SetCompletionEvent(done);
  if (asItIs) {
    if (wait) WaitForWork(pinned);
    return pinned;
  }

  // A part of the frame is read from where it starts in the rows, which needs pixels of whole bytes.
  HostView from;
  if (!ViewOf(pinned, &from)) return Frame();
  const int pixelBytes = BytesPerPixel(sourceFormat);
  if (part != bounds &&
      (pixelBytes == 0 || from.rowBytes == 0 ||
       zelmediatypes::PixelFormatSize(sourceFormat, 1, 1) != static_cast<std::size_t>(pixelBytes))) {
    return Frame();
  }
  const Frame out = NewFrame(false, device, format, part.Width(), part.Height(), aspect, fieldType,
                             OXR::ParamPoint<CPoint>(part.left, part.top));
  HostView to;
  if (!out || !ViewOf(out, &to)) return Frame();
  WaitForWork(pinned);
  const char* start = from.base + static_cast<std::ptrdiff_t>(part.top) * from.rowBytes +
                      static_cast<std::ptrdiff_t>(part.left) * pixelBytes;
  if (!SK_ScaleConvert(start, from.rowBytes, part.Width(), part.Height(), from.format, from.fieldType,
                       to.base, to.rowBytes, to.width, to.height, to.format, from.fieldType, quality)) {
    return Frame();
  }
  return out;
} catch (...) {
  return Frame();
}

int CopyFrame(const Frame& destination, const Frame& source, zelmediatypes::RenderQuality quality) try {
  if (!destination || !source) return kResultFailed;
  const bool toGPU = static_cast<bool>(OXR::Query<IGPUVideoFrame>(destination));
  const bool fromGPU = static_cast<bool>(OXR::Query<IGPUVideoFrame>(source));
  const Rect bounds = destination->GetBounds();
  if (toGPU && fromGPU) {
    if (DeviceOf(destination) != DeviceOf(source)) return kResultFailed;
    if (destination->GetPixelFormat() == source->GetPixelFormat() && bounds == source->GetBounds() &&
        CopyOnDevice(source, bounds, destination, 0, 0) == kResultSuccess) {
      return kResultSuccess;
    }
  }
  const Frame hostSource = fromGPU ? PinnedCopyOf(source) : source;
  if (!hostSource) return kResultFailed;
  if (!toGPU) return CopyToHostFrame(destination, hostSource, quality);
  // Into a GPU frame: converted on the host into a pinned frame of its format and size, then copied up.
  const Frame staged =
      NewFrame(false, DeviceOf(destination), destination->GetPixelFormat(), bounds.Width(), bounds.Height(),
               destination->GetPixelAspectRatio(), destination->GetFieldType(), destination->GetOrigin());
  if (!staged || CopyToHostFrame(staged, hostSource, quality) != kResultSuccess) return kResultFailed;
  return Upload(staged, destination);
} catch (...) {
  return kResultFailed;
}

int CopyFrameRect(const Frame& destination, Rect destinationRect, const Frame& source, const Frame& staging,
                  zelmediatypes::RenderQuality quality) try {
  if (!destination || !source || !Inside(destinationRect, destination->GetBounds())) return kResultFailed;
  const bool toGPU = static_cast<bool>(OXR::Query<IGPUVideoFrame>(destination));
  const bool fromGPU = static_cast<bool>(OXR::Query<IGPUVideoFrame>(source));
  const int width = destinationRect.Width(), height = destinationRect.Height();
  const PixelFormat format = destination->GetPixelFormat();
  if (toGPU && fromGPU && DeviceOf(destination) != DeviceOf(source)) return kResultFailed;
  const Rect sourceBounds = source->GetBounds();
  if (toGPU && fromGPU && source->GetPixelFormat() == format && sourceBounds.Width() == width &&
      sourceBounds.Height() == height &&
      CopyOnDevice(source, sourceBounds, destination, destinationRect.left, destinationRect.top) ==
          kResultSuccess) {
    return kResultSuccess;
  }

  const Frame hostSource = fromGPU ? PinnedCopyOf(source) : source;
  HostView from;
  if (!hostSource || !ViewOf(hostSource, &from)) return kResultFailed;
  WaitForWork(hostSource);
  // The rectangle is addressed in the destination's rows, which needs pixels of whole bytes.
  const int pixelBytes = BytesPerPixel(format);
  if (pixelBytes == 0 ||
      zelmediatypes::PixelFormatSize(format, 1, 1) != static_cast<std::size_t>(pixelBytes)) {
    return kResultFailed;
  }
  if (!toGPU) {
    HostView to;
    if (!ViewOf(destination, &to)) return kResultFailed;
    WaitForWork(destination);
    char* start = to.base + static_cast<std::ptrdiff_t>(destinationRect.top) * to.rowBytes +
                  static_cast<std::ptrdiff_t>(destinationRect.left) * pixelBytes;
    return SK_ScaleConvert(from.base, from.rowBytes, from.width, from.height, from.format, from.fieldType,
                           start, to.rowBytes, width, height, to.format, from.fieldType, quality)
               ? kResultSuccess
               : kResultFailed;
  }

  // Into a GPU frame: staged on the host at the rectangle's size, uploaded whole, then placed by the device.
  const boost::shared_ptr<Device> device = DeviceOf(destination);
  Frame staged = staging;
  const bool fits = staged && OXR::Query<ICompletionEventVideoFrame>(staged) &&
                    !OXR::Query<IGPUVideoFrame>(staged) && staged->GetPixelFormat() == format &&
                    staged->GetBounds() == Rect(0, 0, width, height);
  if (!fits) {
    staged = NewFrame(false, device, format, width, height, destination->GetPixelAspectRatio(),
                      destination->GetFieldType(), OXR::ParamPoint<CPoint>(0, 0));
  }
  if (!staged || CopyToHostFrame(staged, hostSource, quality) != kResultSuccess) return kResultFailed;
  const Frame uploaded = CopyToDevice(device, staged, Rect(), false);
  if (!uploaded) return kResultFailed;
  return CopyOnDevice(uploaded, uploaded->GetBounds(), destination, destinationRect.left,
                      destinationRect.top);
} catch (...) {
  return kResultFailed;
}

}  // namespace LM
