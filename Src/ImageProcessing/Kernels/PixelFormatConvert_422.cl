// module: PixelFormatConvert_422
// Conversions between the GPU formats and the packed 4:2:2 host formats (UYVY, YUYV, v210), both ways,
// generated from one list of formats. A work item converts one packing group of a row: a pixel pair, or
// v210's six pixels in four words; the host launches one per group.
//
// A pair's samples lie in memory as Cb Y0 Cr Y1 (UYVY, and v210 in 10-bit codes three to a little-endian
// word) or Y0 Cb Y1 Cr (YUYV). Chroma sample j is co-sited with luma column 2j. Reading, an odd column
// interpolates linearly between its two neighbouring chroma samples (the last column repeats the last
// sample). Writing, chroma is filtered [1 2 1] / 4 around its even column, edges clamped, so no sample is
// simply dropped; a group reaching past the width repeats the last pixel, and bytes of a v210 row past its
// last group are left alone. 8-bit codes are video range (Y' 16 + 219 Y, Cb and Cr 128 + 224 C, clamped to
// 0..255); v210's are Y' 64 + 876 Y, Cb and Cr 512 + 896 C, clamped to 4..1019 (0-3 and 1020-1023 are
// reserved for timing references). The formats have no alpha: it reads as 1, and the GPU's premultiplied
// colour is written as it is, the image over black.
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

// ---- Reading
// ----------------------------------------------------------------------------------------------- The group
// is read once: its samples, and the chroma of the pair after it, towards which its last odd pixel
// interpolates (the row's last pair repeats its own). The code is written out without private arrays or inner
// loops, which CPU OpenCL compilers otherwise keep in memory for every work item.

// The code of v210 sample k (0..2) of a word.
LM_DEVICE float V210Code(uint word, int k) {
  return (float)((word >> (10 * k)) & 0x3FFu);
}

// Pixel x of the row from its luma, its pair's chroma and the chroma after it: opaque working values.
LM_DEVICE void StorePixel(LM_GLOBAL float* dst, int index, int odd, float luma, float cb, float cr,
                          float cbAfter, float crAfter, int packing, int bt709, int is32f) {
  if (odd) {
    cb = 0.5f * (cb + cbAfter);
    cr = 0.5f * (cr + crAfter);
  }
  const float4 value = YCbCrToBGR(Dequantise(luma, LumaScale(packing), LumaOffset(packing)),
                                  Dequantise(cb, ChromaScale(packing), ChromaOffset(packing)),
                                  Dequantise(cr, ChromaScale(packing), ChromaOffset(packing)), 1.0f, bt709);
  LM_StorePixel(dst, index, value, is32f);
}

#define LM_CONVERT_FROM_422(name, packing, matrix)                                                         \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_PixelFormatConvertFromHost(name), LM_PARAMETERS_PixelFormatConvert) {  \
    const int group = LM_GLOBAL_X;                                                                         \
    const int y = LM_GLOBAL_Y;                                                                             \
    const int first = group * LM_GROUP_PIXELS(LM_PACKING_##packing);                                       \
    if (first >= width || y >= height) return;                                                             \
    LM_GLOBAL const uchar* row =                                                                           \
        src + (long)SourceRow(y, height, flip) * srcPitch * GroupBytes(LM_PACKING_##packing);              \
    LM_GLOBAL float* out = (LM_GLOBAL float*)dst;                                                          \
    const int index = y * dstPitch + first, lastPair = (width - 1) / 2, firstPair = first / 2;             \
    const int bt709 = matrix == 709, is32f = dstIs32f;                                                     \
    if (LM_PACKING_##packing == LM_PACKING_V210) {                                                         \
      const uint4 w = ((LM_GLOBAL const uint4*)row)[group];                                                \
      /* Cb0 Y0 Cr0 | Y1 Cb1 Y2 | Cr1 Y3 Cb2 | Y4 Cr2 Y5, chroma numbered by pair. */                      \
      const float cb0 = V210Code(w.x, 0), cr0 = V210Code(w.x, 2), cb1 = V210Code(w.y, 1),                  \
                  cr1 = V210Code(w.z, 0), cb2 = V210Code(w.z, 2), cr2 = V210Code(w.w, 1);                  \
      float cb3 = cb2, cr3 = cr2;                                                                          \
      if (firstPair + 3 <= lastPair) {                                                                     \
        const uint next = ((LM_GLOBAL const uint*)row)[4 * group + 4];                                     \
        cb3 = V210Code(next, 0);                                                                           \
        cr3 = V210Code(next, 2);                                                                           \
      }                                                                                                    \
      const int pairs = lastPair - firstPair; /* the pairs after the first within the row */               \
      StorePixel(out, index, 0, V210Code(w.x, 1), cb0, cr0, cb0, cr0, LM_PACKING_##packing, bt709, is32f); \
      if (first + 1 < width) {                                                                             \
        StorePixel(out, index + 1, 1, V210Code(w.y, 0), cb0, cr0, pairs >= 1 ? cb1 : cb0,                  \
                   pairs >= 1 ? cr1 : cr0, LM_PACKING_##packing, bt709, is32f);                            \
      }                                                                                                    \
      if (first + 2 < width) {                                                                             \
        StorePixel(out, index + 2, 0, V210Code(w.y, 2), cb1, cr1, cb1, cr1, LM_PACKING_##packing, bt709,   \
                   is32f);                                                                                 \
      }                                                                                                    \
      if (first + 3 < width) {                                                                             \
        StorePixel(out, index + 3, 1, V210Code(w.z, 1), cb1, cr1, pairs >= 2 ? cb2 : cb1,                  \
                   pairs >= 2 ? cr2 : cr1, LM_PACKING_##packing, bt709, is32f);                            \
      }                                                                                                    \
      if (first + 4 < width) {                                                                             \
        StorePixel(out, index + 4, 0, V210Code(w.w, 0), cb2, cr2, cb2, cr2, LM_PACKING_##packing, bt709,   \
                   is32f);                                                                                 \
      }                                                                                                    \
      if (first + 5 < width) {                                                                             \
        StorePixel(out, index + 5, 1, V210Code(w.w, 2), cb2, cr2, cb3, cr3, LM_PACKING_##packing, bt709,   \
                   is32f);                                                                                 \
      }                                                                                                    \
    } else {                                                                                               \
      const int yuyv = LM_PACKING_##packing == LM_PACKING_YUYV;                                            \
      const uchar4 v = ((LM_GLOBAL const uchar4*)row)[group];                                              \
      const uchar4 n = ((LM_GLOBAL const uchar4*)row)[min(group + 1, lastPair)];                           \
      const float cb = yuyv ? v.y : v.x, cr = yuyv ? v.w : v.z;                                            \
      StorePixel(out, index, 0, yuyv ? v.x : v.y, cb, cr, cb, cr, LM_PACKING_##packing, bt709, is32f);     \
      if (first + 1 < width) {                                                                             \
        StorePixel(out, index + 1, 1, yuyv ? v.z : v.w, cb, cr, yuyv ? n.y : n.x, yuyv ? n.w : n.z,        \
                   LM_PACKING_##packing, bt709, is32f);                                                    \
      }                                                                                                    \
    }                                                                                                      \
  }
LM_FORMATS_PixelFormatConvert422(LM_CONVERT_FROM_422)

    // ---- Writing
    // ----------------------------------------------------------------------------------------------- Each
    // pair's luma, and its chroma filtered [1 2 1] / 4 from the pixel before it to its second pixel; the
    // group's pixels and the one before it are converted once each, their columns clamped to the row.

    // Pixel x (clamped to the row) of the source row that starts at pixel `rowStart`, as Cr, Cb, Y'.
    LM_DEVICE float4
    PixelYCbCr(LM_GLOBAL const float* src, int rowStart, int x, int width, int is32f, int bt709) {
  return BGRToYCbCr(LM_LoadPixel(src, rowStart + min(max(x, 0), width - 1), is32f), bt709);
}

// A pair's four codes in stream order, from the Cr, Cb, Y' of the pixel before it and of its two pixels.
LM_DEVICE int4 PairCodes(float4 before, float4 at, float4 after, int packing) {
  const float lo = LowestCode(packing), hi = HighestCode(packing);
  const float cs = ChromaScale(packing), co = ChromaOffset(packing), ls = LumaScale(packing),
              lof = LumaOffset(packing);
  const int cb = QuantiseToInt(0.25f * (before.y + after.y) + 0.5f * at.y, cs, co, lo, hi);
  const int cr = QuantiseToInt(0.25f * (before.x + after.x) + 0.5f * at.x, cs, co, lo, hi);
  const int y0 = QuantiseToInt(at.z, ls, lof, lo, hi);
  const int y1 = QuantiseToInt(after.z, ls, lof, lo, hi);
  return packing == LM_PACKING_YUYV ? LM_MAKE_INT4(y0, cb, y1, cr) : LM_MAKE_INT4(cb, y0, cr, y1);
}

// Three codes into one v210 word.
LM_DEVICE uint V210Word(int a, int b, int c) {
  return (uint)a | ((uint)b << 10) | ((uint)c << 20);
}

#define LM_CONVERT_TO_422(name, packing, matrix)                                                         \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_PixelFormatConvertToHost(name), LM_PARAMETERS_PixelFormatConvert) {  \
    const int group = LM_GLOBAL_X;                                                                       \
    const int y = LM_GLOBAL_Y;                                                                           \
    const int first = group * LM_GROUP_PIXELS(LM_PACKING_##packing);                                     \
    if (first >= width || y >= height) return;                                                           \
    LM_GLOBAL const float* in = (LM_GLOBAL const float*)src;                                             \
    const int rowStart = SourceRow(y, height, flip) * srcPitch, bt709 = matrix == 709, is32f = srcIs32f; \
    LM_GLOBAL uchar* row = dst + (long)y * dstPitch * GroupBytes(LM_PACKING_##packing);                  \
    const float4 p0 = PixelYCbCr(in, rowStart, first - 1, width, is32f, bt709);                          \
    const float4 p1 = PixelYCbCr(in, rowStart, first, width, is32f, bt709);                              \
    const float4 p2 = PixelYCbCr(in, rowStart, first + 1, width, is32f, bt709);                          \
    const int4 c0 = PairCodes(p0, p1, p2, LM_PACKING_##packing);                                         \
    if (LM_PACKING_##packing == LM_PACKING_V210) {                                                       \
      const float4 p3 = PixelYCbCr(in, rowStart, first + 2, width, is32f, bt709);                        \
      const float4 p4 = PixelYCbCr(in, rowStart, first + 3, width, is32f, bt709);                        \
      const float4 p5 = PixelYCbCr(in, rowStart, first + 4, width, is32f, bt709);                        \
      const float4 p6 = PixelYCbCr(in, rowStart, first + 5, width, is32f, bt709);                        \
      const int4 c1 = PairCodes(p2, p3, p4, LM_PACKING_##packing);                                       \
      const int4 c2 = PairCodes(p4, p5, p6, LM_PACKING_##packing);                                       \
      uint4 words;                                                                                       \
      words.x = V210Word(c0.x, c0.y, c0.z);                                                              \
      words.y = V210Word(c0.w, c1.x, c1.y);                                                              \
      words.z = V210Word(c1.z, c1.w, c2.x);                                                              \
      words.w = V210Word(c2.y, c2.z, c2.w);                                                              \
      ((LM_GLOBAL uint4*)row)[group] = words;                                                            \
    } else {                                                                                             \
      uchar4 pair;                                                                                       \
      pair.x = (uchar)c0.x;                                                                              \
      pair.y = (uchar)c0.y;                                                                              \
      pair.z = (uchar)c0.z;                                                                              \
      pair.w = (uchar)c0.w;                                                                              \
      ((LM_GLOBAL uchar4*)row)[group] = pair;                                                            \
    }                                                                                                    \
  }
LM_FORMATS_PixelFormatConvert422(LM_CONVERT_TO_422)
