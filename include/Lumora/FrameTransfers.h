// Moving frames between the host and a device. Uploads are staged: the host frame is converted on the CPU
// (by the host's renderer) into a pinned host frame of a format the GPU operations accept, which the
// device's command queue then copies into a new GPU frame. Frames that already belong to the library are
// never staged twice. Every function returns its failure value (an empty reference, or 0xA00F0001) for an
// empty frame or device, a size that is not positive, a frame without the interface it needs, a rectangle
// outside the frame, a format that cannot be sized, or a device without a context; nothing is thrown.
#pragma once

#include <OXR/Geometry.h>
#include <OXR/InterfaceRef.h>
#include <TQ/VideoFrame.h>
#include <zelmediatypes/FrameTypes.h>

#include <boost/shared_ptr.hpp>

#include "Lumora/Device.h"
#include "Lumora/Export.h"
#include "Lumora/PixelFormats.h"

namespace LM {

// The pinned host frame into which `source` is staged for `device`: `source` itself when it is one of the
// library's frames, or, on OpenCL, when the staging format and size are its own; otherwise a new host frame
// of the staging format, at the size of `rect` when the source can deliver that rectangle natively (and then
// progressive), else at the source's size.
LM_API OXR::InterfaceRef<TQ::IVideoFrame> AllocateHostFrameForUpload(
    const boost::shared_ptr<Device>& device, const OXR::InterfaceRef<TQ::IVideoFrame>& source,
    zelmediatypes::RenderQuality quality, const OXR::ParamRect<CRect>& rect);

// Converts `source` into `destination` on the CPU, scaling it to the destination's size. Both must be host
// frames (a GPU frame's memory is not the host's). Waits for work still queued on a library frame first.
// 0, or 0xA00F0001.
LM_API int CopyToHostFrame(const OXR::InterfaceRef<TQ::IVideoFrame>& destination,
                           const OXR::InterfaceRef<TQ::IVideoFrame>& source,
                           zelmediatypes::RenderQuality quality);

// A new GPU frame on `device` holding the pixels of host frame `source` in its own format (`source` itself
// when it is a GPU frame). Memory the library did not allocate is page-locked for the copy on CUDA and kept
// alive until the copy has finished. Without `blocking` the copy's event becomes the new frame's completion
// event; with it the call waits for the copy.
LM_API OXR::InterfaceRef<TQ::IVideoFrame> CopyToDevice(const boost::shared_ptr<Device>& device,
                                                       const OXR::InterfaceRef<TQ::IVideoFrame>& source,
                                                       const OXR::ParamRect<CRect>& rect, bool blocking);

// Stages and uploads `source` and returns a GPU frame in `format`: the staged frame itself when `format` is
// the staging format, else a new frame converted from it on the device (ConvertFrame); empty when either
// step fails, a format the converter cannot reach among them.
LM_API OXR::InterfaceRef<TQ::IVideoFrame> UploadFrameImmediate(
    const boost::shared_ptr<Device>& device, const OXR::InterfaceRef<TQ::IVideoFrame>& source,
    PixelFormat format, zelmediatypes::RenderQuality quality, const OXR::ParamRect<CRect>& rect);

// A new host frame in `format` holding the part `rect` of GPU frame `source` (all of it for an all-zero
// rectangle), with `aspect` and `fieldType`; its origin is the rectangle's top-left corner. The copy goes
// through a pinned frame of the source's format; a format change runs on the CPU. With `wait` false and no
// format change, the pinned frame itself is returned at once and its completion event tells when the pixels
// are there; otherwise the call returns with the pixels in place.
LM_API OXR::InterfaceRef<TQ::IVideoFrame> ReadBackFrame(const OXR::InterfaceRef<TQ::IVideoFrame>& source,
                                                        PixelFormat format, OXR::ParamRect<CRect> rect,
                                                        zelmediatypes::PixelAspectRatio aspect,
                                                        zelmediatypes::FieldType fieldType,
                                                        zelmediatypes::RenderQuality quality, bool wait);

// Copies `source` into `destination`, converting and scaling to the destination's format and size. Between
// GPU frames of one device of the same format and size the device copies (DeviceCopyRect); anything else is
// staged through pinned host frames. GPU frames of two different devices are refused. 0, or 0xA00F0001.
LM_API int CopyFrame(const OXR::InterfaceRef<TQ::IVideoFrame>& destination,
                     const OXR::InterfaceRef<TQ::IVideoFrame>& source, zelmediatypes::RenderQuality quality);

// Copies `source` into the rectangle `destinationRect` of `destination` (scaled to the rectangle's size),
// leaving the rest of the destination as it is. `staging`, when given, is a library host frame of the
// destination's format and the rectangle's size that the copy stages through instead of allocating one; one
// that does not fit is not used. The rectangle must lie inside the destination. 0, or 0xA00F0001.
LM_API int CopyFrameRect(const OXR::InterfaceRef<TQ::IVideoFrame>& destination,
                         OXR::ParamRect<CRect> destinationRect,
                         const OXR::InterfaceRef<TQ::IVideoFrame>& source,
                         const OXR::InterfaceRef<TQ::IVideoFrame>& staging,
                         zelmediatypes::RenderQuality quality);

}  // namespace LM
