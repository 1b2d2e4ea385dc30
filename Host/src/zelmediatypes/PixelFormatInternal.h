// Shared between the pixel-format sources; not part of the host interface.
#pragma once

#include <cstdint>

#include "zelmediatypes/PixelFormatTable.h"

namespace zelmediatypes {
namespace internal {

// Bytes per pixel as Lumora computes it from a property word: 0 unless the word is described; component
// kind 0 gives 4 (2 when the layout bits are set), kinds 2 and 3 give 8, kind 5 gives 16 (8 with layout
// bits), every other kind 0.
std::uint32_t BytesPerPixel(std::uint32_t properties);

// The size rule that a property word implies, for formats that have no table entry to state it.
PixelFormatSizeRule SizeRuleForProperties(std::uint32_t properties);

// True when `format` was registered with RegisterCustomPixelFormatProperties (both words equal).
bool IsRegisteredPixelFormat(PixelFormat format);

}  // namespace internal
}  // namespace zelmediatypes
