// module: PixelFormatConvert_422
// Conversions between the GPU formats and the packed 4:2:2 host formats (UYVY, YUYV, v210), both ways,
// generated from one list of formats. A work item converts one packing group of a row: a pixel pair, or
// v210's six pixels in four words; the host launches one per group.
//
// A row is read as a stream of samples, four a pixel pair in memory order (8-bit bytes, or v210's 10-bit
// codes three to a word), so one reader and one writer serve every packing. Chroma sample j is co-sited with
// luma column 2j. Reading, an odd column interpolates linearly between its two neighbouring chroma samples
// (the last column repeats the last sample). Writing, chroma is filtered [1 2 1] / 4 around its even column,
// edges clamped, so no sample is simply dropped; a group reaching past the width repeats the last pixel, and
// bytes of a v210 row past its last group are left alone. 8-bit codes are video range (Y' 16 + 219 Y, Cb and
// Cr 128 + 224 C, clamped to 0..255); v210's are Y' 64 + 876 Y, Cb and Cr 512 + 896 C, clamped to 4..1019
// (0-3 and 1020-1023 are reserved for timing references). The formats have no alpha: it reads as 1, and the
// GPU's premultiplied colour is written as it is, the image over black.
#include "KernelDialect.h"
#include "PixelFormatConvertColour.h"
#include "PixelFormatConvertParameters.h"

#define LM_PACKING_UYVY 0
#define LM_PACKING_YUYV 1
#define LM_PACKING_V210 2

// The pixels of a group, and its bytes: the unit in which the host counts pitches.
#define LM_GROUP_PIXELS(packing) ((packing) == LM_PACKING_V210 ? 6 : 2)
LM_DEVICE int GroupBytes(int packing) {
  return packing == LM_PACKING_V210 ? 16 : 4;
}

// Where a pair's samples lie in its four slots: the luma of its first and second pixel, Cb and Cr.
LM_DEVICE int LumaSlot(int packing, int second) {
  return packing == LM_PACKING_YUYV ? 2 * second : 1 + 2 * second;
}
LM_DEVICE int CbSlot(int packing) {
  return packing == LM_PACKING_YUYV ? 1 : 0;
}
LM_DEVICE int CrSlot(int packing) {
  return packing == LM_PACKING_YUYV ? 3 : 2;
}

// Sample s of a row's stream, as its code.
LM_DEVICE float RowSample(LM_GLOBAL const uchar* row, int s, int packing) {
  if (packing != LM_PACKING_V210) return (float)row[s];
  const uint word = ((LM_GLOBAL const uint*)row)[s / 3];
  return (float)((word >> (10 * (s % 3))) & 0x3FFu);
}

// Codes as normalised values and back: Y' and chroma scale and offset of the packing's sample size.
LM_DEVICE float LumaScale(int packing) {
  return packing == LM_PACKING_V210 ? 876.0f : 219.0f;
}
LM_DEVICE float LumaOffset(int packing) {
  return packing == LM_PACKING_V210 ? 64.0f : 16.0f;
}
LM_DEVICE float ChromaScale(int packing) {
  return packing == LM_PACKING_V210 ? 896.0f : 224.0f;
}
LM_DEVICE float ChromaOffset(int packing) {
  return packing == LM_PACKING_V210 ? 512.0f : 128.0f;
}
LM_DEVICE float LowestCode(int packing) {
  return packing == LM_PACKING_V210 ? 4.0f : 0.0f;
}
LM_DEVICE float HighestCode(int packing) {
  return packing == LM_PACKING_V210 ? 1019.0f : 255.0f;
}
LM_DEVICE float QuantiseLuma(float value, int packing) {
  return Quantise(value, LumaScale(packing), LumaOffset(packing), LowestCode(packing), HighestCode(packing));
}
LM_DEVICE float QuantiseChroma(float value, int packing) {
  return Quantise(value, ChromaScale(packing), ChromaOffset(packing), LowestCode(packing),
                  HighestCode(packing));
}

// Pixel x of a row of `width` as working values.
LM_DEVICE float4 UnpackPixel(LM_GLOBAL const uchar* row, int x, int width, int packing, int bt709) {
  const int pair = x >> 1;
  const float luma = RowSample(row, 4 * pair + LumaSlot(packing, x & 1), packing);
  float cb = RowSample(row, 4 * pair + CbSlot(packing), packing);
  float cr = RowSample(row, 4 * pair + CrSlot(packing), packing);
  if (x & 1) {
    const int next = min(pair + 1, (width - 1) >> 1);
    cb = 0.5f * (cb + RowSample(row, 4 * next + CbSlot(packing), packing));
    cr = 0.5f * (cr + RowSample(row, 4 * next + CrSlot(packing), packing));
  }
  return YCbCrToBGR((luma - LumaOffset(packing)) / LumaScale(packing),
                    (cb - ChromaOffset(packing)) / ChromaScale(packing),
                    (cr - ChromaOffset(packing)) / ChromaScale(packing), 1.0f, bt709);
}

// The 4:2:2 side's group x of row y into the GPU side.
#define LM_CONVERT_FROM_422(name, packing, matrix)                                                        \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_PixelFormatConvertFromHost(name), LM_PARAMETERS_PixelFormatConvert) { \
    const int group = LM_GLOBAL_X;                                                                        \
    const int y = LM_GLOBAL_Y;                                                                            \
    const int first = group * LM_GROUP_PIXELS(LM_PACKING_##packing);                                      \
    if (first >= width || y >= height) return;                                                            \
    LM_GLOBAL const uchar* row =                                                                          \
        src + (long)SourceRow(y, height, flip) * srcPitch * GroupBytes(LM_PACKING_##packing);             \
    for (int i = 0; i < LM_GROUP_PIXELS(LM_PACKING_##packing); ++i) {                                     \
      if (first + i < width) {                                                                            \
        LM_StorePixel((LM_GLOBAL float*)dst, y * dstPitch + first + i,                                     \
                      UnpackPixel(row, first + i, width, LM_PACKING_##packing, matrix == 709), dstIs32f); \
      }                                                                                                   \
    }                                                                                                     \
  }
LM_FORMATS_PixelFormatConvert422(LM_CONVERT_FROM_422)

// The GPU side's pixels into group x of row y: each pair's luma, and its chroma filtered [1 2 1] / 4 from
// the pixel before it to its second pixel. The group's pixels and the one before it are converted once.
#define LM_CONVERT_TO_422(name, packing, matrix)                                                         \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_PixelFormatConvertToHost(name), LM_PARAMETERS_PixelFormatConvert) {  \
    const int group = LM_GLOBAL_X;                                                                       \
    const int y = LM_GLOBAL_Y;                                                                           \
    const int pixels = LM_GROUP_PIXELS(LM_PACKING_##packing);                                            \
    const int first = group * pixels;                                                                    \
    if (first >= width || y >= height) return;                                                           \
    const int sourceRow = SourceRow(y, height, flip) * srcPitch;                                         \
    /* Cr, Cb, Y' of pixels first - 1 .. first + pixels - 1, clamped to the row. */                      \
    float4 ycbcr[LM_GROUP_PIXELS(LM_PACKING_##packing) + 1];                                             \
    for (int i = 0; i <= pixels; ++i) {                                                                  \
      const int x = min(max(first - 1 + i, 0), width - 1);                                               \
      ycbcr[i] =                                                                                         \
          BGRToYCbCr(LM_LoadPixel((LM_GLOBAL const float*)src, sourceRow + x, srcIs32f), matrix == 709); \
    }                                                                                                    \
    /* The group's samples in stream order. */                                                           \
    float codes[2 * LM_GROUP_PIXELS(LM_PACKING_##packing)];                                              \
    for (int q = 0; q < pixels / 2; ++q) {                                                               \
      const float4 before = ycbcr[2 * q], at = ycbcr[2 * q + 1], after = ycbcr[2 * q + 2];               \
      codes[4 * q + CbSlot(LM_PACKING_##packing)] =                                                      \
          QuantiseChroma(0.25f * (before.y + after.y) + 0.5f * at.y, LM_PACKING_##packing);              \
      codes[4 * q + CrSlot(LM_PACKING_##packing)] =                                                      \
          QuantiseChroma(0.25f * (before.x + after.x) + 0.5f * at.x, LM_PACKING_##packing);              \
      codes[4 * q + LumaSlot(LM_PACKING_##packing, 0)] = QuantiseLuma(at.z, LM_PACKING_##packing);       \
      codes[4 * q + LumaSlot(LM_PACKING_##packing, 1)] = QuantiseLuma(after.z, LM_PACKING_##packing);    \
    }                                                                                                    \
    LM_GLOBAL uchar* row = dst + (long)y * dstPitch * GroupBytes(LM_PACKING_##packing);                  \
    if (LM_PACKING_##packing == LM_PACKING_V210) {                                                       \
      for (int k = 0; k < 4; ++k) {                                                                      \
        ((LM_GLOBAL uint*)row)[4 * group + k] =                                                          \
            (uint)codes[3 * k] | ((uint)codes[3 * k + 1] << 10) | ((uint)codes[3 * k + 2] << 20);        \
      }                                                                                                  \
    } else {                                                                                             \
      uchar4 pair;                                                                                       \
      pair.x = (uchar)codes[0];                                                                          \
      pair.y = (uchar)codes[1];                                                                          \
      pair.z = (uchar)codes[2];                                                                          \
      pair.w = (uchar)codes[3];                                                                          \
      ((LM_GLOBAL uchar4*)row)[group] = pair;                                                            \
    }                                                                                                    \
  }
    LM_FORMATS_PixelFormatConvert422(LM_CONVERT_TO_422)
