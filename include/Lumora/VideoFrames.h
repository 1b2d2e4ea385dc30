// Video frames whose pixels live in a device's memory (GPU frames) or in its pinned host memory (host
// frames). Both are the host's TQ::IVideoFrame; the library's own interfaces below reach their memory, their
// device and their completion event. Rows are stored top to bottom without padding:
// zelmediatypes::PixelFormatSize(format, width, 1) bytes a row.
//
// Interface lookup (QueryInterface) answers, with a reference added: OXRUnknown and TQ::IVideoFrame (the
// object itself); IGPUVideoFrame and IGPUVideoFrameMemoryAccess (GPU frames); FK::IVideoFrameMemoryAccess
// (host frames: a GPU frame's memory is not the host's to read); ICompletionEventVideoFrame;
// TQ::IVideoFrameClearable while the frame's flag is false; FK::IVideoFrame2DPixelMemoryAccess unless the
// format is described with a multi-plane type; kLibraryFrameIID (the object itself). Anything else is null
// with 0xA00A0001.
//
// Clearing a GPU frame runs the device's fills, which take the four GPU formats only: a GPU frame in a host
// format (transfers make them) answers its clears with the fills' failure, kResultFailed. Its "transparent
// white" clear fills with transparent black, while a host frame's fills with transparent white; hosts rely
// on both.
#pragma once

#include <FK/VideoFrame.h>
#include <OXR/Geometry.h>
#include <OXR/InterfaceRef.h>
#include <TQ/VideoFrame.h>
#include <zelcore/Utility.h>
#include <zelmediatypes/FrameTypes.h>

#include <boost/shared_ptr.hpp>

#include "Lumora/Device.h"
#include "Lumora/Export.h"
#include "Lumora/PixelFormats.h"
#include "Lumora/Queues.h"

namespace LM {

// A frame whose pixels are on a device: its identity, under which the frame cache keeps it.
class IGPUVideoFrame : public OXR::OXRUnknown {
 public:
  // cf026861-a969-4b32-9a5a-349196dba591
  static constexpr zelcore::utility::Guid kIID{0xcf026861, 0xa969, 0x4b32, 0x9a, 0x5a, 0x34,
                                               0x91,       0x96,   0xdb,   0xa5, 0x91};
  virtual zelcore::utility::Guid GetGuid() const = 0;            // 4
  virtual void SetGuid(const zelcore::utility::Guid& guid) = 0;  // 5
};

// The device memory of a GPU frame: its base is a device pointer (a CUDA address or an OpenCL buffer),
// never to be dereferenced on the host.
class IGPUVideoFrameMemoryAccess : public FK::IVideoFrameMemoryAccess {
 public:
  // 689ac22c-6831-4c8d-b1fd-0d654dc965bb
  static constexpr zelcore::utility::Guid kIID{0x689ac22c, 0x6831, 0x4c8d, 0xb1, 0xfd, 0x0d,
                                               0x65,       0x4d,   0xc9,   0x65, 0xbb};
};

// The device that owns a frame's memory, and the event after which GPU work queued on the frame is done.
// Whoever queues work that reads or writes the frame sets it; the frame's memory goes back to its pool with
// it, so the block is not handed out again before that work ends.
class ICompletionEventVideoFrame : public OXR::OXRUnknown {
 public:
  // 13e1ff4a-84ba-4b45-9cb7-4f658044ed8a
  static constexpr zelcore::utility::Guid kIID{0x13e1ff4a, 0x84ba, 0x4b45, 0x9c, 0xb7, 0x4f,
                                               0x65,       0x80,   0x44,   0xed, 0x8a};
  virtual boost::shared_ptr<Device> GetDevice() const = 0;                     // 4
  virtual void SetCompletionEvent(const boost::shared_ptr<Event>& event) = 0;  // 5
  virtual boost::shared_ptr<Event> GetCompletionEvent() const = 0;             // 6
};

// Answered by every frame the library made, with the frame itself: 4f9cb3f7-c5df-4f33-b5a5-784cdf9c3fb9.
constexpr zelcore::utility::Guid kLibraryFrameIID{0x4f9cb3f7, 0xc5df, 0x4f33, 0xb5, 0xa5, 0x78,
                                                  0x4c,       0xdf,   0x9c,   0x3f, 0xb9};

// A new frame of width × height pixels of `format` in the device's memory (GPU frame) or its pinned host
// memory (host frame), handed out in `outFrame` (what it held is released). 0 on success; 0xA00F0006 with
// `outFrame` untouched when the memory could not be had, or the format cannot be sized, or the device has
// no memory manager (no context); 0xA00F0001 for a null device or a size that is not positive. The pixels
// are undefined.
LM_API int CreateGPUVideoFrame(OXR::InterfaceRef<TQ::IVideoFrame>& outFrame,
                               const boost::shared_ptr<Device>& device, PixelFormat format,
                               unsigned int width, unsigned int height,
                               zelmediatypes::PixelAspectRatio aspect, zelmediatypes::FieldType fieldType,
                               OXR::ParamPoint<CPoint> origin);
LM_API int CreateHostMemoryVideoFrame(OXR::InterfaceRef<TQ::IVideoFrame>& outFrame,
                                      const boost::shared_ptr<Device>& device, PixelFormat format,
                                      unsigned int width, unsigned int height,
                                      zelmediatypes::PixelAspectRatio aspect,
                                      zelmediatypes::FieldType fieldType, OXR::ParamPoint<CPoint> origin);

}  // namespace LM
