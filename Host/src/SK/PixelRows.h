// The row-level pieces of the CPU renderer. Every table format is read from its property word into one
// FormatDesc (memory layout, sample type, component order, colour model, alpha type, quantisation), and
// each layout family has one unpack and one pack, parameterised by that description:
//
//   memory row --UnpackRow--> float row in the format's own colour model and alpha type
//   float row  --colour stages (matrix, transfer, alpha)--> float row of another format --PackRow--> memory
//
// A float row holds four floats per pixel: B', G', R', A for RGB formats and Cr, Cb, Y', A for Y'CbCr
// formats (the memory order of BGRA and VUYA, which then unpack and pack without reordering), Y' in 0..1
// and Cb, Cr in -0.5..0.5 whatever the format's range. Nothing is clamped until a pack
// writes integers, so values outside the gamut survive between unpack and pack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zelmediatypes/PixelFormat.h"

namespace sk {

// The components of a float row.
constexpr int kB = 0, kG = 1, kR = 2, kA = 3;
constexpr int kCr = 0, kCb = 1, kY = 2;

enum class Layout { k4444, kPacked422, kV210, kPlanar420 };
enum class Sample { k8u, k10u, k15u, k16f, k32f };
// kOpaque: the format stores no alpha (X formats, 4:2:2, 4:2:0); it reads as 1.
enum class Alpha { kStraight, kPremultiplied, kOpaque };

struct FormatDesc {
  Layout layout;
  Sample sample;
  // 4444: memory position p holds component order[p] of the float row. 4:2:2: the component (kY, kCb,
  // kCr) of each of the four samples of a pixel pair, in memory order (v210 uses the UYVY order).
  int order[4];
  bool ycbcr;
  bool bt709;
  bool linear;  // linear-light RGB (sRGB transfer curve to and from the gamma-coded intermediate)
  Alpha alpha;
  // Integer code = value × scale + offset, per float-row component; the pack clamps codes to lo..hi.
  float scale[4];
  float offset[4];
  float lo;
  float hi;
  // Chroma siting of the subsampled layouts, in luma samples: chroma sample j lies at 2j + chromaX
  // horizontally. 4:2:0 chroma rows lie halfway between their two luma rows of the frame (FRAME) or, when
  // fieldChroma is set, alternate between the fields with the MPEG-2 interlaced siting (a quarter and three
  // quarters of the way between field rows).
  double chromaX;
  bool fieldChroma;
};

// The description of a format of the pixel-format table; false for any other format.
bool DescribeFormat(zelmediatypes::PixelFormat format, FormatDesc& out);

// The integer code of `value` for float-row component `component`, rounded to
// nearest and clamped to the format's codes.
float Quantise(const FormatDesc& d, int component, float value);

// An image in memory. For 4:2:0 formats `base` is the one-block layout (Y, then U, then V planes).
struct ImageRef {
  std::uint8_t* base;
  std::size_t rowBytes;
  int width;
  int height;
};

// Per-thread working memory of the unpacks and packs.
struct RowScratch {
  std::vector<float> a, b, c;
};

// Unpacks row y of `image` into image.width × 4 floats. Subsampled chroma is interpolated linearly onto the
// luma samples according to the format's siting; 4:2:0 interpolates each field's own chroma rows for FIELD
// formats.
void UnpackRow(const FormatDesc& d, const ImageRef& image, int y, float* out, RowScratch& scratch);

// Packs `width` pixels of `in` into `row` (4444 and 4:2:2 layouts). A 4:2:2 row is written in whole groups
// (2 pixels, 6 for v210), the pixels past `width` repeating the last one; chroma is filtered ([1 2 1] / 4,
// co-sited) rather than decimated.
void PackRow(const FormatDesc& d, const float* in, int width, std::uint8_t* row, RowScratch& scratch);

// Packs a whole width × height float image (4 floats per pixel, rows contiguous) into the one-block 4:2:0
// layout at `base`, filtering chroma down with a triangle filter centred on each chroma sample's site.
void PackPlanar420(const FormatDesc& d, const float* image, int width, int height, std::uint8_t* base);

// Colour stages on n pixels of a float row.
void YCbCrToRGB(float* row, int n, bool bt709);
void RGBToYCbCr(float* row, int n, bool bt709);
void Premultiply(float* row, int n);
void Unpremultiply(float* row, int n);  // colour 0 where alpha is not positive
// Between linear light and gamma-coded with the sRGB curve (odd-symmetric below 0); `premultiplied` rows are
// unpremultiplied around the curve.
void LinearToGamma(float* row, int n, bool premultiplied);
void GammaToLinear(float* row, int n, bool premultiplied);

// Half-float conversions (round to nearest even), for the GPU working formats.
float HalfToFloat(std::uint16_t h);
std::uint16_t FloatToHalf(float f);

}  // namespace sk
