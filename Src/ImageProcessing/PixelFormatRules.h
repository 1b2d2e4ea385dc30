// What the operations read of a pixel format: the is-32-bit-float flag that every kernel gets instead of the
// format (BytesPerPixel is exported, in Lumora/ImageOperations.h).
#pragma once

#include "Lumora/PixelFormats.h"

namespace LM {

// 0 for the two 16f GPU formats, 1 for every other format.
int Is32BitFloat(PixelFormat format);

}  // namespace LM
