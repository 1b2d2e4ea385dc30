// The image operations on whole frames: each takes GPU frames of one device, runs the raw-buffer operation
// on their memory under the device's exclusive access, and records the queue's position as the completion
// event of the frames it used.
#pragma once

#include <OXR/InterfaceRef.h>
#include <TQ/VideoFrame.h>

#include "Lumora/Export.h"
#include "Lumora/ImageOperations.h"

namespace LM {

// Converts GPU frame `source` into GPU frame `destination` of the same size on the same device, from the
// source's format into the destination's (PixelFormatConvert), reading the source bottom row first when
// `flipVertically`. Its result code; kResultFailed for frames that are not GPU frames of one device or that
// differ in size.
LM_API int ConvertFrame(const OXR::InterfaceRef<TQ::IVideoFrame>& destination,
                        const OXR::InterfaceRef<TQ::IVideoFrame>& source, bool flipVertically = false);

// The frame forms of the raw-buffer operations (docs/geometry.md). Their frames must be GPU frames of one
// device, one format and one size: otherwise kResultFailed, and nothing is queued.

// The layer over the background into destination (Composite, docs/blend-modes.md).
LM_API int Composite(const OXR::InterfaceRef<TQ::IVideoFrame>& destination,
                     const OXR::InterfaceRef<TQ::IVideoFrame>& layer,
                     const OXR::InterfaceRef<TQ::IVideoFrame>& background, float opacity, SK_BlendMode mode);
// Keeps the source's first field (the odd rows for kFieldType_LowerFirst, the even rows otherwise) and
// rebuilds the other by `mode` (Deinterlace).
LM_API int DeinterlaceFrame(const OXR::InterfaceRef<TQ::IVideoFrame>& destination,
                            const OXR::InterfaceRef<TQ::IVideoFrame>& source, DeinterlaceMode mode);
// Weaves two progressive frames into destination by its field type: the first field's rows (odd for
// kFieldType_LowerFirst, even otherwise) from `first`, the others from `second`.
LM_API int InterlaceFrames(const OXR::InterfaceRef<TQ::IVideoFrame>& destination,
                           const OXR::InterfaceRef<TQ::IVideoFrame>& first,
                           const OXR::InterfaceRef<TQ::IVideoFrame>& second);
// The source's colour divided by its alpha into destination; `color` for pixels of alpha 0 (Unpremultiply).
LM_API int UnpremultiplyFrame(const OXR::InterfaceRef<TQ::IVideoFrame>& destination,
                              const OXR::InterfaceRef<TQ::IVideoFrame>& source, const float4& color);

}  // namespace LM
