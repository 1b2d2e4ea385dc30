// The four GPU working formats in which GPU frames are kept and on which the image operations work. Their
// values are fixed: hosts compare formats by value. Low word: the code "@CD" followed by 'a'/'x' (16-bit
// float, with alpha / alpha ignored) or 'A'/'X' (32-bit float); high word: the property word.
#pragma once

#include <zelmediatypes/PixelFormat.h>

namespace LM {

using PixelFormat = zelmediatypes::PixelFormat;

constexpr PixelFormat kPixelFormat_GPU_BGRA_4444_16f = {0x61444340u, 0x00040096u};
constexpr PixelFormat kPixelFormat_GPU_BGRX_4444_16f = {0x78444340u, 0x00040196u};
constexpr PixelFormat kPixelFormat_GPU_BGRA_4444_32f = {0x41444340u, 0x0004009Au};
constexpr PixelFormat kPixelFormat_GPU_BGRX_4444_32f = {0x58444340u, 0x0004019Au};

}  // namespace LM
