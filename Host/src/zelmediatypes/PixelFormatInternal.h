// Shared between the pixel-format sources; not part of the host interface.
#pragma once

#include <cstdint>

#include "zelmediatypes/PixelFormatTable.h"

namespace zelmediatypes {
namespace internal {

// The bytes of one pixel of a described four-component format: four components of its sample type (8u one
// byte, 15u and 16f two, 32f four); 0 for any other word.
std::uint32_t FourComponentPixelBytes(std::uint32_t properties);

// The size rule that a property word implies, for formats that have no table entry to state it.
PixelFormatSizeRule SizeRuleForProperties(std::uint32_t properties);

// True when `format` was registered with RegisterCustomPixelFormatProperties (both words equal).
bool IsRegisteredPixelFormat(PixelFormat format);

}  // namespace internal
}  // namespace zelmediatypes
