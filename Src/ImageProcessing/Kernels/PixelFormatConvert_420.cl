// module: PixelFormatConvert_420
// The planar 4:2:0 formats into the GPU formats, one kernel per source format, generated from the lists of
// FRAME and FIELD pictures. A work item converts one output pixel. The planes are read through textures, as
// integer codes at integer coordinates, and the chroma is interpolated linearly (never nearest) at the
// sites of its format, with indices clamped to the plane:
//   - horizontally, chroma sample i lies at luma column 2i (MPEG2: co-sited with the even column) or 2i + 0.5
//     (MPEG4: halfway between two columns);
//   - vertically, a FRAME picture's chroma row j lies at luma row 2j + 0.5; a FIELD picture's chroma rows
//     alternate between the fields (row 2m + f belongs to field f) and lie, in rows of their own field, at
//     2m + 0.25 (upper) and 2m + 0.75 (lower), so that the chroma of both fields is evenly spaced in the
//     frame. A pixel of a FIELD picture reads only the chroma of its own field.
// Video range: Y' = (code - 16) / 219, Cb and Cr = (code - 128) / 224; full range: Y' = code / 255, Cb and Cr
// = (code - 128) / 255. The formats have no alpha: the result is opaque.
#include "KernelDialect.h"
#include "PixelFormatConvertColour.h"
#include "PixelFormatConvertParameters.h"

#define LM_CHROMA_X_MPEG2 0.0f
#define LM_CHROMA_X_MPEG4 0.5f
#define LM_RANGE_VIDEO 0
#define LM_RANGE_FULL 1

// The two samples of `count` that linear interpolation at `position` reads, clamped to the plane, and the
// weight of the second.
typedef struct {
  int k0, k1;
  float f;
} LinearTaps;

LM_DEVICE LinearTaps TapsAt(float position, int count) {
  const float k = floor(position);
  LinearTaps taps;
  taps.f = position - k;
  taps.k0 = min(max((int)k, 0), count - 1);
  taps.k1 = min(max((int)k + 1, 0), count - 1);
  return taps;
}

// The code at (x, y) of a plane whose texture is bound `offset` texels to the left of it. Textures return
// 8-bit texels as code / 255; rounding gives the code back exactly.
#define LM_PLANE_CODE(texture, offset, column, row) \
  ((float)(int)(LM_SampleTexture(texture, (column) + (offset), (row)).x * 255.0f + 0.5f))

// A chroma plane's code interpolated between columns `across` and rows `down`. A column of weight 0 (MPEG2
// chroma under an even luma column) is not read: image reads are the dearest part of these kernels on CPU
// OpenCL devices.
#define LM_CHROMA_COLUMN(texture, offset, column, down)                    \
  ((1.0f - (down).f) * LM_PLANE_CODE(texture, offset, column, (down).k0) + \
   (down).f * LM_PLANE_CODE(texture, offset, column, (down).k1))
#define LM_CHROMA_CODE(texture, offset, across, down)                                                \
  ((across).f == 0.0f ? LM_CHROMA_COLUMN(texture, offset, (across).k0, down)                         \
                      : (1.0f - (across).f) * LM_CHROMA_COLUMN(texture, offset, (across).k0, down) + \
                            (across).f * LM_CHROMA_COLUMN(texture, offset, (across).k1, down))

// Codes as working values: opaque B', G', R'.
LM_DEVICE float4 FromCodes(float luma, float cb, float cr, int range, int bt709) {
  if (range == LM_RANGE_FULL) {
    return YCbCrToBGR(Dequantise(luma, 255.0f, 0.0f), Dequantise(cb, 255.0f, 128.0f),
                      Dequantise(cr, 255.0f, 128.0f), 1.0f, bt709);
  }
  return YCbCrToBGR(Dequantise(luma, 219.0f, 16.0f), Dequantise(cb, 224.0f, 128.0f),
                    Dequantise(cr, 224.0f, 128.0f), 1.0f, bt709);
}

#define LM_CONVERT_FROM_420_FRAME(name, siting, matrix, range)                                               \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_PixelFormatConvertFromHost(name),                                        \
                            LM_PARAMETERS_PixelFormatConvert420Frame) {                                      \
    const int x = LM_GLOBAL_X;                                                                               \
    const int y = LM_GLOBAL_Y;                                                                               \
    if (x >= width || y >= height) return;                                                                   \
    const int row = flip ? height - 1 - y : y;                                                               \
    const LinearTaps across = TapsAt(((float)x - LM_CHROMA_X_##siting) * 0.5f, (width + 1) / 2);             \
    const LinearTaps down = TapsAt(((float)row - 0.5f) * 0.5f, (height + 1) / 2);                            \
    const float luma = LM_PLANE_CODE(inYPlaneTexture, yOffset, x, row);                                      \
    const float cb = LM_CHROMA_CODE(inFrameCodedUPlaneTexture, uOffset, across, down);                       \
    const float cr = LM_CHROMA_CODE(inFrameCodedVPlaneTexture, vOffset, across, down);                       \
    LM_StorePixel(dst, y* dstPitch + x, FromCodes(luma, cb, cr, LM_RANGE_##range, matrix == 709), dstIs32f); \
  }
LM_FORMATS_PixelFormatConvert420Frame(LM_CONVERT_FROM_420_FRAME)

// A one-row chroma plane has no lower field: both fields then read the upper one.
#define LM_CONVERT_FROM_420_FIELD(name, siting, matrix, range)                                               \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_PixelFormatConvertFromHost(name),                                        \
                            LM_PARAMETERS_PixelFormatConvert420Field) {                                      \
    const int x = LM_GLOBAL_X;                                                                               \
    const int y = LM_GLOBAL_Y;                                                                               \
    if (x >= width || y >= height) return;                                                                   \
    const int row = flip ? height - 1 - y : y;                                                               \
    const int chromaRows = (height + 1) / 2;                                                                 \
    const int field = chromaRows > 1 ? (row & 1) : 0;                                                        \
    const LinearTaps across = TapsAt(((float)x - LM_CHROMA_X_##siting) * 0.5f, (width + 1) / 2);             \
    const LinearTaps down =                                                                                  \
        TapsAt(((float)(row >> 1) - 0.25f - 0.5f * (float)field) * 0.5f, (chromaRows - field + 1) / 2);      \
    const float luma = LM_PLANE_CODE(inYPlaneTexture, yOffset, x, row);                                      \
    float cb, cr;                                                                                            \
    if (field == 0) {                                                                                        \
      cb = LM_CHROMA_CODE(inUpperUPlaneTexture, upperUOffset, across, down);                                 \
      cr = LM_CHROMA_CODE(inUpperVPlaneTexture, upperVOffset, across, down);                                 \
    } else {                                                                                                 \
      cb = LM_CHROMA_CODE(inLowerUPlaneTexture, lowerUOffset, across, down);                                 \
      cr = LM_CHROMA_CODE(inLowerVPlaneTexture, lowerVOffset, across, down);                                 \
    }                                                                                                        \
    LM_StorePixel(dst, y* dstPitch + x, FromCodes(luma, cb, cr, LM_RANGE_##range, matrix == 709), dstIs32f); \
  }
    LM_FORMATS_PixelFormatConvert420Field(LM_CONVERT_FROM_420_FIELD)
