// The host's CPU image renderer: scale-convert between pixel formats, fills, and the planar 4:2:0 helpers.
// Every function takes any value and reports what it cannot do by returning false; it never writes
// outside the rows it is given (rowBytes × height from each base) and never crashes on a pair it does not
// support.
//
// The renderer's pixel formats are the host's (zelmediatypes::PixelFormat): FK::BEPixelFormatToIRPixelFormat
// turns a frame's format into the one the renderer is asked for.
#pragma once

#include <cstdint>

#include "zelmediatypes/FrameTypes.h"
#include "zelmediatypes/PixelFormat.h"

// Converts the srcWidth × srcHeight image at src into the dstWidth × dstHeight image at dst, scaling when
// the sizes differ. The level of `quality` picks the filter: nearest neighbour below kRenderQuality_Medium,
// bilinear at kRenderQuality_Medium, area average from kRenderQuality_High on. Every pair of formats of the
// pixel-format table converts: every host format into every four-component (4444) format, the 4444 formats
// into the packed 4:2:2 and the planar 4:2:0 formats, and the rest through the same float intermediate; a
// format outside the table gives false. Straight and premultiplied alpha, X formats, linear light, BT.601
// and BT.709 and the full-range flag are honoured; destinations without alpha (X, 4:2:2, 4:2:0) receive the
// image over black. 4:2:2 and 4:2:0 chroma is interpolated and filtered at each format's siting, never
// decimated. When either field type is interlaced, each field is scaled vertically from its own rows.
// Row bytes 0 stand for the format's own row bytes (zelmediatypes::PixelFormatSize(format, width, 1)); other
// row bytes must be at least that. A 4:2:0 image is always the one-block layout of its size
// (kSK_PlanarLayout420_8u); non-zero row bytes must then cover the block (rowBytes × height). The same
// format at the same size is copied. docs/cpu-renderer.md has the arithmetic.
bool SK_ScaleConvert(const void* src, int srcRowBytes, int srcWidth, int srcHeight,
                     zelmediatypes::PixelFormat srcFormat, zelmediatypes::FieldType srcFieldType, void* dst,
                     int dstRowBytes, int dstWidth, int dstHeight, zelmediatypes::PixelFormat dstFormat,
                     zelmediatypes::FieldType dstFieldType, zelmediatypes::RenderQuality quality);

// Fill the width × height rectangle at (x, y) of an image of any table format with one colour: opaque black
// (0, 0, 0, 1), opaque white (1, 1, 1, 1), transparent black (0, 0, 0, 0) and transparent white
// (1, 1, 1, 0), in the format's own terms: premultiplied formats get the premultiplied colour, X formats the
// colour itself with an opaque alpha, Y'CbCr formats video-range values unless the format is full range.
// Rows are rowBytes apart (0: rows that end with the rectangle). A packed 4:2:2 rectangle starts on a chroma
// group (2 pixels, 6 for v210) and is widened to whole groups; a planar 4:2:0 fill covers the whole
// width × height image (x = y = 0). An empty rectangle succeeds and writes nothing.
bool SK_FillWithOpaqueBlack(void* base, int rowBytes, zelmediatypes::PixelFormat format, int x, int y,
                            int width, int height);
bool SK_FillWithOpaqueWhite(void* base, int rowBytes, zelmediatypes::PixelFormat format, int x, int y,
                            int width, int height);
bool SK_FillWithTransparentBlack(void* base, int rowBytes, zelmediatypes::PixelFormat format, int x, int y,
                                 int width, int height);
bool SK_FillWithTransparentWhite(void* base, int rowBytes, zelmediatypes::PixelFormat format, int x, int y,
                                 int width, int height);

// The planes of a planar image held in one block.
struct SK_PlanarBuffers {
  void* planes[3];  // Y, U (Cb), V (Cr)
  int rowBytes[3];
  int widths[3];  // in samples
  int heights[3];
};

// The layout code of 8-bit planar 4:2:0 in one block: the Y plane (width × height, rows of width bytes),
// then U and V, each ((width + 1) / 2) × ((height + 1) / 2) with rows of (width + 1) / 2 bytes; the layout
// that zelmediatypes::PixelFormatSize sizes for the 4:2:0 formats.
constexpr std::uint32_t kSK_PlanarLayout420_8u = 0x9000831u;

// Splits the block at `base` into its planes for `layout`; false for an unknown layout or a size that is
// not positive.
bool SK_GetPlanarBuffers(void* base, std::uint32_t layout, int width, int height, SK_PlanarBuffers* out);

// Scales a planar 4:2:0 8-bit image of width × height (the source's size) to half its width and height,
// each field on its own when `fieldType` is interlaced, so that the fields stay apart. Below
// kRenderQuality_Medium it keeps every other sample, else it averages 2 × 2. The chroma planes are halved by
// the same rule (their rows alternate between the fields too). `dst` holds planes of half the size, as
// SK_GetPlanarBuffers gives them for (width + 1) / 2 × (height + 1) / 2; samples past the source's edge
// repeat its last column and the last row of the same field.
bool SK_QuarterScalePlanar420_8u(const SK_PlanarBuffers& src, const SK_PlanarBuffers& dst, int width,
                                 int height, zelmediatypes::FieldType fieldType,
                                 zelmediatypes::RenderQuality quality);
