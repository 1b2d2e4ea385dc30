// The image operations on whole frames: each takes GPU frames of one device, runs the raw-buffer operation
// on their memory under the device's exclusive access, and records the queue's position as the completion
// event of the frames it used.
#pragma once

#include <OXR/InterfaceRef.h>
#include <TQ/VideoFrame.h>

#include "Lumora/Export.h"

namespace LM {

// Converts GPU frame `source` into GPU frame `destination` of the same size on the same device, from the
// source's format into the destination's (PixelFormatConvert), reading the source bottom row first when
// `flipVertically`. Its result code; kResultFailed for frames that are not GPU frames of one device or that
// differ in size.
LM_API int ConvertFrame(const OXR::InterfaceRef<TQ::IVideoFrame>& destination,
                        const OXR::InterfaceRef<TQ::IVideoFrame>& source, bool flipVertically = false);

}  // namespace LM
