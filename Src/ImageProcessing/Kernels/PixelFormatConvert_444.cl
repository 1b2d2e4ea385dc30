// module: PixelFormatConvert_444
// Conversions between the GPU formats and the host formats stored four components a pixel, both ways,
// generated from one list of formats: each format is unpacked and packed by the same few functions, with
// its order, sample, alpha and colour as constants the compiler folds.
//
// The working values on the GPU side: premultiplied, gamma-coded B', G', R', A. Y'CbCr is held as Y' 0..1
// and Cb, Cr centred on 0 (-0.5..0.5); 8-bit Y'CbCr is video range (Y' 16 + 219 Y, C 128 + 224 C); 15-bit
// samples are codes / 32768; linear-light formats use the sRGB curve. Straight formats are premultiplied on
// the way in and unpremultiplied on the way out (colour 0 where alpha is 0), premultiplied formats pass
// colour as it is, and formats without alpha read it as 1 and write it opaque with the colour over black.
// Integer outputs round to nearest and clamp to their code range.
#include "KernelDialect.h"
#include "PixelFormatConvertColour.h"
#include "PixelFormatConvertParameters.h"

// The list's words as constants.
#define LM_ORDER_BGRA 0
#define LM_ORDER_ARGB 1
#define LM_ORDER_VUYA 2
#define LM_SAMPLE_8U 0
#define LM_SAMPLE_15U 1
#define LM_SAMPLE_32F 2
#define LM_ALPHA_STRAIGHT 0
#define LM_ALPHA_PREMULTIPLIED 1
#define LM_ALPHA_NONE 2
#define LM_COLOUR_RGB 0
#define LM_COLOUR_LINEAR 1
#define LM_COLOUR_YUV601 2
#define LM_COLOUR_YUV709 3

// A host pixel's four stored components in memory order, normalised: 8-bit codes / 255, 15-bit codes /
// 32768, floats as they are.
LM_DEVICE float4 UnpackHost(LM_GLOBAL const uchar* src, int index, int sample) {
  if (sample == LM_SAMPLE_8U) {
    const uchar4 v = ((LM_GLOBAL const uchar4*)src)[index];
    return LM_Scale4(LM_MAKE_FLOAT4((float)v.x, (float)v.y, (float)v.z, (float)v.w), 1.0f / 255.0f);
  }
  if (sample == LM_SAMPLE_15U) {
    const ushort4 v = ((LM_GLOBAL const ushort4*)src)[index];
    return LM_Scale4(LM_MAKE_FLOAT4((float)v.x, (float)v.y, (float)v.z, (float)v.w), 1.0f / 32768.0f);
  }
  return ((LM_GLOBAL const float4*)src)[index];
}

LM_DEVICE float Code(float value, float scale, float top) {
  return Quantise(value, scale, 0.0f, 0.0f, top);
}

// Stores four normalised components in memory order: codes rounded to nearest and clamped.
LM_DEVICE void PackHost(LM_GLOBAL uchar* dst, int index, float4 v, int sample) {
  if (sample == LM_SAMPLE_8U) {
    uchar4 codes;
    codes.x = (uchar)Code(v.x, 255.0f, 255.0f);
    codes.y = (uchar)Code(v.y, 255.0f, 255.0f);
    codes.z = (uchar)Code(v.z, 255.0f, 255.0f);
    codes.w = (uchar)Code(v.w, 255.0f, 255.0f);
    ((LM_GLOBAL uchar4*)dst)[index] = codes;
  } else if (sample == LM_SAMPLE_15U) {
    ushort4 codes;
    codes.x = (ushort)Code(v.x, 32768.0f, 32768.0f);
    codes.y = (ushort)Code(v.y, 32768.0f, 32768.0f);
    codes.z = (ushort)Code(v.z, 32768.0f, 32768.0f);
    codes.w = (ushort)Code(v.w, 32768.0f, 32768.0f);
    ((LM_GLOBAL ushort4*)dst)[index] = codes;
  } else {
    ((LM_GLOBAL float4*)dst)[index] = v;
  }
}

// The sRGB curve, mirrored below 0: linear light to gamma-coded and back.
LM_DEVICE float Encode(float v) {
  const float a = fabs(v);
  const float e = a <= 0.0031308f ? 12.92f * a : 1.055f * LM_Pow(a, 1.0f / 2.4f) - 0.055f;
  return v < 0.0f ? -e : e;
}
LM_DEVICE float Decode(float v) {
  const float a = fabs(v);
  const float d = a <= 0.04045f ? a / 12.92f : LM_Pow((a + 0.055f) / 1.055f, 2.4f);
  return v < 0.0f ? -d : d;
}

// The components (in memory order) as working values: premultiplied B', G', R', A.
LM_DEVICE float4 ToWorking(float4 c, int order, int sample, int alpha, int colour) {
  // B G R A, or Cr Cb Y A.
  float4 m = order == LM_ORDER_ARGB ? LM_MAKE_FLOAT4(c.w, c.z, c.y, c.x) : c;
  if (alpha == LM_ALPHA_NONE) m.w = 1.0f;
  if (colour == LM_COLOUR_YUV601 || colour == LM_COLOUR_YUV709) {
    float y = m.z, cb = m.y, cr = m.x;
    if (sample == LM_SAMPLE_8U) {
      y = (y * 255.0f - 16.0f) / 219.0f;
      cb = (cb * 255.0f - 128.0f) / 224.0f;
      cr = (cr * 255.0f - 128.0f) / 224.0f;
    }
    m = YCbCrToBGR(y, cb, cr, m.w, colour == LM_COLOUR_YUV709);
  }
  if (colour == LM_COLOUR_LINEAR) {
    // The curve applies to straight colour.
    const float a = m.w;
    const float undo = alpha == LM_ALPHA_PREMULTIPLIED && a != 0.0f ? 1.0f / a : 1.0f;
    const float redo = alpha == LM_ALPHA_PREMULTIPLIED ? a : 1.0f;
    m = LM_MAKE_FLOAT4(Encode(m.x * undo) * redo, Encode(m.y * undo) * redo, Encode(m.z * undo) * redo, a);
  }
  if (alpha == LM_ALPHA_STRAIGHT) m = LM_MAKE_FLOAT4(m.x * m.w, m.y * m.w, m.z * m.w, m.w);
  return m;
}

// Working values as the components of a host pixel, in memory order.
LM_DEVICE float4 FromWorking(float4 m, int order, int sample, int alpha, int colour) {
  const float a = m.w;
  if (alpha == LM_ALPHA_STRAIGHT) {
    const float undo = a != 0.0f ? 1.0f / a : 0.0f;
    m = LM_MAKE_FLOAT4(m.x * undo, m.y * undo, m.z * undo, a);
  }
  if (alpha == LM_ALPHA_NONE) m.w = 1.0f;
  if (colour == LM_COLOUR_LINEAR) {
    const float undo = alpha == LM_ALPHA_PREMULTIPLIED && a != 0.0f ? 1.0f / a : 1.0f;
    const float redo = alpha == LM_ALPHA_PREMULTIPLIED ? a : 1.0f;
    m = LM_MAKE_FLOAT4(Decode(m.x * undo) * redo, Decode(m.y * undo) * redo, Decode(m.z * undo) * redo, m.w);
  }
  if (colour == LM_COLOUR_YUV601 || colour == LM_COLOUR_YUV709) {
    m = BGRToYCbCr(m, colour == LM_COLOUR_YUV709);
    if (sample == LM_SAMPLE_8U) {
      m = LM_MAKE_FLOAT4((128.0f + 224.0f * m.x) / 255.0f, (128.0f + 224.0f * m.y) / 255.0f,
                         (16.0f + 219.0f * m.z) / 255.0f, m.w);
    }
  }
  return order == LM_ORDER_ARGB ? LM_MAKE_FLOAT4(m.w, m.z, m.y, m.x) : m;
}

// Between two GPU formats (and host BGRA_4444_32f, whose floats move as they are): each pixel read at the
// source's precision and written at the destination's.
LM_KERNEL_WITH_PARAMETERS(LM_NAME_PixelFormatConvertGPU, LM_PARAMETERS_PixelFormatConvert) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const float4 value =
      LM_LoadPixel((LM_GLOBAL const float*)src, SourceRow(y, height, flip) * srcPitch + x, srcIs32f);
  LM_StorePixel((LM_GLOBAL float*)dst, y * dstPitch + x, value, dstIs32f);
}

#define LM_CONVERT_FROM_HOST(name, order, sample, alpha, colour)                                          \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_PixelFormatConvertFromHost(name), LM_PARAMETERS_PixelFormatConvert) { \
    const int x = LM_GLOBAL_X;                                                                            \
    const int y = LM_GLOBAL_Y;                                                                            \
    if (x >= width || y >= height) return;                                                                \
    const float4 stored = UnpackHost(src, SourceRow(y, height, flip) * srcPitch + x, LM_SAMPLE_##sample); \
    LM_StorePixel(                                                                                        \
        (LM_GLOBAL float*)dst, y* dstPitch + x,                                                           \
        ToWorking(stored, LM_ORDER_##order, LM_SAMPLE_##sample, LM_ALPHA_##alpha, LM_COLOUR_##colour),    \
        dstIs32f);                                                                                        \
  }
LM_FORMATS_PixelFormatConvert444(LM_CONVERT_FROM_HOST)

#define LM_CONVERT_TO_HOST(name, order, sample, alpha, colour)                                            \
  LM_KERNEL_WITH_PARAMETERS(LM_NAME_PixelFormatConvertToHost(name), LM_PARAMETERS_PixelFormatConvert) {   \
    const int x = LM_GLOBAL_X;                                                                            \
    const int y = LM_GLOBAL_Y;                                                                            \
    if (x >= width || y >= height) return;                                                                \
    const float4 working =                                                                                \
        LM_LoadPixel((LM_GLOBAL const float*)src, SourceRow(y, height, flip) * srcPitch + x, srcIs32f);   \
    PackHost(                                                                                             \
        dst, y* dstPitch + x,                                                                             \
        FromWorking(working, LM_ORDER_##order, LM_SAMPLE_##sample, LM_ALPHA_##alpha, LM_COLOUR_##colour), \
        LM_SAMPLE_##sample);                                                                              \
  }
    LM_FORMATS_PixelFormatConvert444(LM_CONVERT_TO_HOST)
