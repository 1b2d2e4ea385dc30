// Services over the host's pixel-format table: sizes, names, the reverse lookup from a property word,
// registration of formats the table does not know, and the 4:2:0 and 4:4:4 tests used by frame uploads.
// All functions are thread-safe and accept any value, including formats they do not know.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zelmediatypes/FrameTypes.h"
#include "zelmediatypes/PixelFormat.h"
#include "zelmediatypes/PixelFormats.h"

namespace zelmediatypes {

// How many bytes an image of a format takes (rows without padding).
enum class PixelFormatSizeRule {
  kNone,         // not sizeable
  kPerPixel,     // bytes per pixel (from the property word) x width x height
  kPacked422,    // 4 bytes per pair of pixels, width rounded up to even
  kV210,         // 128 bytes per 48 pixels, width rounded up to a multiple of 48
  kPlanar420_8u  // Y plane width x height, then U and V of ((width+1)/2) x ((height+1)/2) each
};

struct PixelFormatInfo {
  const char* name;  // the constant's name, "kPixelFormat_..."
  PixelFormat format;
  PixelFormatSizeRule sizeRule;
};

// The table, in a fixed order; `count` receives the number of entries.
const PixelFormatInfo* PixelFormatTable(std::size_t& count);

// The table entry equal to `format` (both words), or nullptr.
const PixelFormatInfo* FindPixelFormatInfo(PixelFormat format);

// Bytes of a width x height image. Table and registered formats follow their size rule; any other format
// whose property word is described with the four-component layout is sized by its bytes per pixel; all
// else, a non-positive width or height, and a size beyond std::size_t give 0.
std::size_t PixelFormatSize(PixelFormat format, int width, int height);

// Makes a format outside the table known to PixelFormatSize and GuessNameForProperties. Returns true when
// the format is known afterwards with exactly these words (registering a known format again succeeds and
// changes nothing); false when the code or the property word already belongs to another format, when the
// property word is not described, or when the code is 0, kPixelFormatName_Bad or kPixelFormat_Invalid's.
bool RegisterCustomPixelFormatProperties(std::uint32_t code, std::uint32_t properties);

// The code of the table or registered format whose property word is `properties`, or 0 when a described
// word matches none. A word of the "any" class (kPixelFormatProperties_Any, whatever its other bits)
// matches no particular format and also gives 0; words of the other classes, kPixelFormatProperties_Invalid
// among them, give kPixelFormatName_Bad.
std::uint32_t GuessNameForProperties(std::uint32_t properties);

// "kPixelFormat_BGRA_4444_8u" for a table format, nullptr for any other.
const char* PixelFormatName(PixelFormat format);
// The same without the "kPixelFormat_" prefix ("BGRA_4444_8u"), the form used in kernel names.
const char* PixelFormatShortName(PixelFormat format);
// Finds a table format by its full or short name (exact, case-sensitive). `out` is unchanged on failure.
bool LookupPixelFormat(const char* name, PixelFormat& out);

// The sixteen planar 4:2:0 8-bit formats.
bool IsPlanar420Format(PixelFormat format);
// The 8-bit four-component Y'CbCr formats that a decoder can deliver at full chroma resolution and that
// uploads stage in: VUYA, VUYP and VUYX in 8u and 8u_709.
bool Is444DecodeFormat(PixelFormat format);
// True when the format is described and uses the BT.709 matrix (bit 5 of the property word).
bool IsBT709(PixelFormat format);

// How a compressed or packed source of `format` is best decoded: the format a decoder delivers and the
// size at which it does so, for a width × height frame. The table's formats are uncompressed, so each is
// delivered as itself at the frame's own size; a format outside the table, or a size that is not positive,
// gives kPixelFormat_Invalid at 0 × 0.
struct DVDecompressionFormat {
  PixelFormat format;
  int width;
  int height;
};
DVDecompressionFormat SelectDVDecompressionFormat(PixelFormat format, int width, int height);

// The four-component host format into which a CPU render of `format` stages a frame for the GPU at
// `quality`: one that the GPU converter accepts as a source (the table's 4444 RGB and Y'CbCr families).
// - A 4444 format of the table (the converter reads them all, GPU formats included) stays as it is.
// - 8-bit video-range Y'CbCr 4:2:2 and 4:2:0: VUYA_4444_8u, or _8u_709 for BT.709, below
//   kRenderQuality_High; from High on VUYA_4444_32f(_709), which keeps the fractions of interpolated chroma.
// - v210 and full-range 4:2:0: VUYA_4444_32f(_709) at every quality, since 8-bit video range would lose
//   levels.
// - Any other format: kPixelFormat_Invalid.
PixelFormat Select4444PixelFormat(PixelFormat format, RenderQuality quality);

}  // namespace zelmediatypes
