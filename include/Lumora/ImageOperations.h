// Image operations on raw device buffers: a device pointer (a CUDA device address or an OpenCL buffer), a
// row pitch in bytes, a pixel format and a rectangle. Each enqueues a GPU kernel on the device's command
// queue and returns a result code (Lumora/Results.h) without waiting. A null device is kResultFailed; then a
// width or height that is not positive is success with nothing done. Call them while holding the device's
// exclusive access.
#pragma once

#include <boost/shared_ptr.hpp>

#include "Lumora/Export.h"
#include "Lumora/PixelFormats.h"
#include "SK/BlendMode.h"
#include "SK/BlurDirection.h"
#include "zelmediatypes/FrameTypes.h"

namespace LM {

class Device;

// Four 32-bit floats. As a colour: x, y, z in the channel order of the GPU formats (B, G, R) and w alpha.
struct float4 {
  float x, y, z, w;
};

// The size of one pixel in bytes from the format's property word: 8 for the two 16f GPU formats, 16 for the
// two 32f ones; 0 for a format not described by its properties.
LM_API int BytesPerPixel(PixelFormat format);

// Writes `color` into every pixel of the width x height rectangle at (left, top). The buffer is written
// although it is declared const.
LM_API int FillWithColor(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                         PixelFormat format, int left, int top, int width, int height, float4 color);
// (0, 0, 0, 1), (0, 0, 0, 0), (1, 1, 1, 1) and (1, 1, 1, 0).
LM_API int FillWithOpaqueBlack(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                               PixelFormat format, int left, int top, int width, int height);
LM_API int FillWithTransparentBlack(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                                    PixelFormat format, int left, int top, int width, int height);
LM_API int FillWithOpaqueWhite(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                               PixelFormat format, int left, int top, int width, int height);
LM_API int FillWithTransparentWhite(const boost::shared_ptr<Device>& device, const void* buffer, int rowBytes,
                                    PixelFormat format, int left, int top, int width, int height);

// Copies width x height pixels between two pitched buffers. Nothing is done when src and dst are the same.
LM_API int FastDeviceMemcpy2D(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
                              void* dst, int dstRowBytes, PixelFormat format, int width, int height);
// The same from and to start offsets given in bytes, counted in units of 16 bytes (one 32f pixel) whatever
// the format: pass multiples of 16. Nothing is done when src and dst are the same, whatever the offsets.
LM_API int FastDeviceMemcpy2DWithOffsets(const boost::shared_ptr<Device>& device, const void* src,
                                         int srcRowBytes, int srcOffsetBytes, void* dst, int dstRowBytes,
                                         int dstOffsetBytes, PixelFormat format, int width, int height);
// Copies the width x height rectangle at (srcLeft, srcTop) to (dstLeft, dstTop) of another buffer; nothing
// is done when src and dst are the same buffer.
LM_API int DeviceCopyRect(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
                          void* dst, int dstRowBytes, PixelFormat format, int srcLeft, int srcTop,
                          int dstLeft, int dstTop, int width, int height);
// OpenCL only (kResultFailed on CUDA): fills the OpenCL image `dstImage` (width x height, of the image
// format the pools make for `format`) from the linear buffer `src`, starting `srcOffset` bytes in, with
// rows `srcRowBytes` apart.
LM_API int CopyBufferToImage(const boost::shared_ptr<Device>& device, const void* src, int srcOffset,
                             int srcRowBytes, void* dstImage, PixelFormat format, int width, int height);

// Converts width x height pixels from `srcFormat` to `dstFormat`, one side a GPU format and the other a GPU
// format or a host format of the converter's families (docs/pixel-formats.md lists them with the colour
// mathematics and chroma siting), optionally reading the source bottom row first. A format converted to
// itself is a copy (FastDeviceMemcpy2D; the flip is then ignored).
//
// Pitches are in bytes, whole units of their side: a pixel (GPU and four-component host formats), a pixel
// pair of 4 bytes (UYVY, YUYV) or a group of 6 pixels in 16 bytes (v210). 4:2:2 rows are written in whole
// pairs and groups, pixels past the width repeating the last one. A 4:2:0 source (into GPU formats only)
// is one buffer: the Y plane of `height` rows srcRowBytes apart, then the U and the V plane, each of
// ceil(height / 2) rows of ceil(width / 2) bytes, (srcRowBytes + 1) / 2 apart, each plane starting where
// the previous one ends; srcRowBytes = width is the host's unpadded layout.
//
// kResultFailed for a format that is not described or of a refused type, and for the operation frame's bad
// arguments (a pitch shorter than its row among them); kResultUnsupported for a pair with no kernel (two
// host formats, a 4:2:0 destination) or a kernel that cannot be loaded.
LM_API int PixelFormatConvert(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes,
                              PixelFormat srcFormat, void* dst, int dstRowBytes, PixelFormat dstFormat,
                              int width, int height, bool flipVertically);

// Lays the layer over the background with `opacity` (clamped to 0..1) and blend mode `mode`, into out. The
// three buffers share the format and size; out may be the layer or the background (same pitch), as hosts
// composite in place. docs/blend-modes.md gives each mode's formula, its handling of values beyond 0..1 and
// of alpha (the GPU formats are premultiplied; BGRX reads and writes alpha 1). Opacity counts as 0 at or
// below 8e-6 and as 1 within 8e-6 of 1: Normal at 0 copies the background into out; Dissolve at 0 or 1 is
// Normal. Every other mode runs its kernel at any opacity. kResultUnsupported for a mode above 26 (or below
// 0), a format other than the four GPU formats, or a kernel that cannot be loaded.
LM_API int Composite(const boost::shared_ptr<Device>& device, const void* layer, int layerRowBytes,
                     const void* background, int backgroundRowBytes, void* out, int outRowBytes,
                     PixelFormat format, int width, int height, float opacity, SK_BlendMode mode);

// outgoing x (1 - progress) + incoming x progress into dst; with `eased`, progress goes through smoothstep
// (3p^2 - 2p^3) first. Progress counting as 0, or incoming and outgoing the same buffer, copies outgoing;
// progress counting as 1 copies incoming. dst may be either source.
LM_API int CrossDissolve(const boost::shared_ptr<Device>& device, const void* incoming, int incomingRowBytes,
                         const void* outgoing, int outgoingRowBytes, void* dst, int dstRowBytes,
                         PixelFormat format, int width, int height, float progress, bool eased);
// dst = sum of weights[i] x sources[i] over `count` sources, in launches of eight: the first writes dst, the
// later ones add to it. Every buffer has rows rowBytes apart and starts offsetBytes / 16 units of 16 bytes in
// (one 32f pixel, two 16f pixels). dst may be one of the sources.
LM_API int Accumulate(const boost::shared_ptr<Device>& device, const void** sources, const float* weights,
                      int count, void* dst, int rowBytes, int offsetBytes, PixelFormat format, int width,
                      int height);
// Each pixel times gain (alpha and, with it, the premultiplied colour). Gain counting as 0 fills dst with
// transparent black, even when dst is src; counting as 1 copies src.
LM_API int AlphaGain(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                     int dstRowBytes, PixelFormat format, int width, int height, float gain);
// Divides each pixel's colour by its alpha; a pixel of alpha 0 (or less) becomes `color`.
LM_API int Unpremultiply(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                         int dstRowBytes, PixelFormat format, int width, int height, const float4& color);

// Blurs the source (sourceWidth x sourceHeight) into the destination with the recursive Gaussian
// (docs/gaussian-blur.md): horizontally with sigmaX, vertically with sigmaY, or both, on the premultiplied
// values of all four channels. A direction runs when it is asked for and its sigma is positive (NaN and
// negative sigmas run nothing; sigmas above 1024, infinity included, are taken as 1024). The source is
// centred on the destination: a smaller destination is a centred crop of the blurred image, a larger one is
// transparent black around it, as far as the blur does not spread into it. edgeFlag false takes the image as
// transparent black beyond its edges; true extends the edge pixels. With no direction to run the source is
// copied centred. kResultOutOfMemory when a pool block for an intermediate cannot be had, kResultFailed for
// a missing kernel or bad arguments, kResultUnsupported for a format other than the GPU formats.
LM_API int GaussianBlur(const boost::shared_ptr<Device>& device, const void* source, int sourceRowBytes,
                        int sourceWidth, int sourceHeight, void* destination, int destinationRowBytes,
                        int destinationWidth, int destinationHeight, PixelFormat format, float sigmaX,
                        float sigmaY, bool edgeFlag, SK_BlurDirection direction);

// ---- Fields and geometry (docs/geometry.md)
// ------------------------------------------------------------------

// Swaps the two fields of an interlaced image, row 2k with row 2k + 1 (a last unpaired row is copied); dst
// may be src.
LM_API int FieldReverse(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                        int dstRowBytes, PixelFormat format, int width, int height);
// Weaves two progressive images into one interlaced image: the rows of parity `firstParity` (0 even, 1 odd)
// from `first`, the others from `second`.
LM_API int InterlaceFields(const boost::shared_ptr<Device>& device, const void* first, int firstRowBytes,
                           const void* second, int secondRowBytes, void* dst, int dstRowBytes,
                           PixelFormat format, int width, int height, int firstParity);

enum DeinterlaceMode : int {
  kDeinterlace_LineDoubling = 0,  // a missing row repeats the kept row above it
  kDeinterlace_Linear = 1,        // the mean of the kept rows above and below
  kDeinterlace_EdgeDirected = 2,  // the mean along the direction (of five) where above and below agree best
};
// Keeps field `keptField` (0: the even rows, 1: the odd rows) of src and rebuilds the other by `mode`. The
// source is read through a texture (a pitch the texture hardware cannot bind is copied to one it can first);
// dst may be src. kResultFailed for a field or mode out of range.
LM_API int Deinterlace(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, void* dst,
                       int dstRowBytes, PixelFormat format, int width, int height, int keptField,
                       DeinterlaceMode mode);

// An affine placement: the source point `anchor` (in source pixels, from its top-left corner) lands at
// `position` (in destination pixels), the source scaled by scaleX, scaleY about it and rotated by
// rotationDegrees (clockwise on screen, as y grows downwards).
struct MotionTransform {
  float positionX = 0, positionY = 0;
  float scaleX = 1, scaleY = 1;
  float rotationDegrees = 0;
  float anchorX = 0, anchorY = 0;
};
// Places the source into the whole destination by `transform`, transparent black where no source pixel
// lands. Below kRenderQuality_High the filter is bilinear; from High bicubic (Catmull-Rom), and a shrink by 2
// or more along a source axis first averages blocks of that many pixels, so that it does not alias. Exact at
// sample positions: the identity, integer translations and quarter turns copy. kResultFailed for a NaN or
// infinite parameter, a zero scale, or dst equal to src.
LM_API int Motion(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, int srcWidth,
                  int srcHeight, void* dst, int dstRowBytes, int dstWidth, int dstHeight, PixelFormat format,
                  const MotionTransform& transform, zelmediatypes::RenderQuality quality);
// Resizes the source to the destination's size. An unchanged height takes the horizontal-only path (nearest
// below Medium, linear at Medium, area from High); otherwise Motion's filters by the same quality.
LM_API int Scale(const boost::shared_ptr<Device>& device, const void* src, int srcRowBytes, int srcWidth,
                 int srcHeight, void* dst, int dstRowBytes, int dstWidth, int dstHeight, PixelFormat format,
                 zelmediatypes::RenderQuality quality);

}  // namespace LM
