// What the operations read of a pixel format: the is-32-bit-float flag that every kernel gets instead of the
// format (BytesPerPixel is exported, in Lumora/ImageOperations.h).
#pragma once

#include "Lumora/PixelFormats.h"

namespace LM {

// 0 for the two 16f GPU formats, 1 for every other format.
int Is32BitFloat(PixelFormat format);

// The bytes of a pixel of the four GPU formats (8 for 16f, 16 for 32f); 0 for every other format, which
// the operations that write pixels by the is-32-bit-float flag refuse.
int GPUPixelBytes(PixelFormat format);

// The bytes of one pixel of a format stored four components a pixel, as the host sizes it (4 for 8u, 8 for
// 15u and 16f, 16 for 32f); 0 for packed and planar layouts and for formats the host cannot size.
int HostPixelBytes(PixelFormat format);

// The bytes of a row of `width` pixels of a single-plane format, as the host sizes it (v210 and the packed
// 4:2:2 formats included); 0 for planar formats, for formats the host cannot size, and for rows of more
// than INT_MAX bytes.
int HostRowBytes(PixelFormat format, int width);

}  // namespace LM
