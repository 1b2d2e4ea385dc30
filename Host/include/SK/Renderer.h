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
// bilinear at kRenderQuality_Medium, area average from kRenderQuality_High on. From every host format of the
// pixel-format table into every four-component (4444) format, and from the 4444 formats into the packed
// 4:2:2 and the planar 4:2:0 formats. Straight and premultiplied alpha, X formats, BT.601 and BT.709 and the
// full-range flag are honoured through a float intermediate. Field types say which rows belong together
// when an interlaced image is scaled vertically.
bool SK_ScaleConvert(const void* src, int srcRowBytes, int srcWidth, int srcHeight,
                     zelmediatypes::PixelFormat srcFormat, zelmediatypes::FieldType srcFieldType, void* dst,
                     int dstRowBytes, int dstWidth, int dstHeight, zelmediatypes::PixelFormat dstFormat,
                     zelmediatypes::FieldType dstFieldType, zelmediatypes::RenderQuality quality);

// Fill the width × height rectangle at (x, y) of an image of a 4444 format (and, for the black fills, the
// packed 4:2:2 and planar 4:2:0 formats) with one colour: opaque black (0, 0, 0, 1), opaque white
// (1, 1, 1, 1), transparent black (0, 0, 0, 0) and transparent white (1, 1, 1, 0), in the format's own
// terms (Y'CbCr black is video-range black unless the format is full range).
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
// kRenderQuality_Medium it keeps every other sample, else it averages.
bool SK_QuarterScalePlanar420_8u(const SK_PlanarBuffers& src, const SK_PlanarBuffers& dst, int width,
                                 int height, zelmediatypes::FieldType fieldType,
                                 zelmediatypes::RenderQuality quality);
