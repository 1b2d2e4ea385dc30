// module: Motion
// Geometry: each destination pixel samples the source at an affine map of its centre (pixel k covers k .. k +
// 1 and its value sits at k + 0.5), transparent black outside the source.
//   MotionKernel: bilinear.
//   MotionRenderQuadKernel: bicubic (Catmull-Rom), which is exact at sample positions (identity, integer
//     translations and quarter turns copy) and reproduces linear ramps (a half-pixel shift of a ramp gives
//     the midpoints).
//   MotionPrepSourceKernel: the prefilter of a shrink, the mean of factor x factor blocks, so that sampling
//   the
//     smaller image does not alias.
//   HorizontalOnlyScaleKernel: the fast path of a resize that keeps the height: nearest, linear or area.
// Samples beyond the source count as transparent black, so edges fade over the filter's half width.
#include "GeometryParameters.h"
#include "KernelDialect.h"

LM_DEVICE float4 SourcePixel(LM_GLOBAL const float* src, int pitch, int width, int height, int x, int y,
                             int is32f) {
  if (x < 0 || y < 0 || x >= width || y >= height) return LM_MAKE_FLOAT4(0.0f, 0.0f, 0.0f, 0.0f);
  return LM_LoadPixel(src, y * pitch + x, is32f);
}

// Catmull-Rom weights of the four samples around a position t (0 .. 1) past the second.
LM_DEVICE float4 CubicWeights(float t) {
  const float t2 = t * t, t3 = t2 * t;
  return LM_MAKE_FLOAT4(0.5f * (-t3 + 2.0f * t2 - t), 0.5f * (3.0f * t3 - 5.0f * t2 + 2.0f),
                        0.5f * (-3.0f * t3 + 4.0f * t2 + t), 0.5f * (t3 - t2));
}

// The source position of destination pixel (x, y)'s centre, in sample coordinates (sample k at k).
#define LM_SOURCE_POSITION                              \
  const float X = (float)x + 0.5f, Y = (float)y + 0.5f; \
  const float u = m0 * X + m1 * Y + m2 - 0.5f, v = m3 * X + m4 * Y + m5 - 0.5f

LM_KERNEL_WITH_PARAMETERS(MotionKernel, LM_PARAMETERS_MotionKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= dstWidth || y >= dstHeight) return;
  LM_SOURCE_POSITION;
  float4 value = LM_MAKE_FLOAT4(0.0f, 0.0f, 0.0f, 0.0f);
  // A NaN or far-away position reads nothing.
  if (u > -2.0f && v > -2.0f && u < (float)srcWidth + 1.0f && v < (float)srcHeight + 1.0f) {
    const float fu = floor(u), fv = floor(v), tu = u - fu, tv = v - fv;
    const int i = (int)fu, j = (int)fv;
    const float4 top =
        LM_Add4(LM_Scale4(SourcePixel(src, srcPitch, srcWidth, srcHeight, i, j, is32f), 1.0f - tu),
                LM_Scale4(SourcePixel(src, srcPitch, srcWidth, srcHeight, i + 1, j, is32f), tu));
    const float4 bottom =
        LM_Add4(LM_Scale4(SourcePixel(src, srcPitch, srcWidth, srcHeight, i, j + 1, is32f), 1.0f - tu),
                LM_Scale4(SourcePixel(src, srcPitch, srcWidth, srcHeight, i + 1, j + 1, is32f), tu));
    value = LM_Add4(LM_Scale4(top, 1.0f - tv), LM_Scale4(bottom, tv));
  }
  LM_StorePixel(dst, y * dstPitch + x, value, is32f);
}

LM_KERNEL_WITH_PARAMETERS(MotionRenderQuadKernel, LM_PARAMETERS_MotionKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= dstWidth || y >= dstHeight) return;
  LM_SOURCE_POSITION;
  float4 value = LM_MAKE_FLOAT4(0.0f, 0.0f, 0.0f, 0.0f);
  if (u > -3.0f && v > -3.0f && u < (float)srcWidth + 2.0f && v < (float)srcHeight + 2.0f) {
    const float fu = floor(u), fv = floor(v);
    const int i = (int)fu, j = (int)fv;
    const float4 wu = CubicWeights(u - fu), wv = CubicWeights(v - fv);
    const float horizontal[4] = {wu.x, wu.y, wu.z, wu.w}, vertical[4] = {wv.x, wv.y, wv.z, wv.w};
    for (int b = 0; b < 4; ++b) {
      float4 row = LM_MAKE_FLOAT4(0.0f, 0.0f, 0.0f, 0.0f);
      for (int a = 0; a < 4; ++a) {
        row = LM_Add4(row,
                      LM_Scale4(SourcePixel(src, srcPitch, srcWidth, srcHeight, i - 1 + a, j - 1 + b, is32f),
                                horizontal[a]));
      }
      value = LM_Add4(value, LM_Scale4(row, vertical[b]));
    }
  }
  LM_StorePixel(dst, y * dstPitch + x, value, is32f);
}

LM_KERNEL_WITH_PARAMETERS(MotionPrepSourceKernel, LM_PARAMETERS_MotionPrepSourceKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= dstWidth || y >= dstHeight) return;
  float4 sum = LM_MAKE_FLOAT4(0.0f, 0.0f, 0.0f, 0.0f);
  int count = 0;
  for (int b = 0; b < factorY; ++b) {
    for (int a = 0; a < factorX; ++a) {
      const int sx = x * factorX + a, sy = y * factorY + b;
      if (sx < srcWidth && sy < srcHeight) {
        sum = LM_Add4(sum, LM_LoadPixel(src, sy * srcPitch + sx, is32f));
        ++count;
      }
    }
  }
  LM_StorePixel(dst, y * dstPitch + x, LM_Scale4(sum, count > 0 ? 1.0f / (float)count : 0.0f), is32f);
}

LM_KERNEL_WITH_PARAMETERS(HorizontalOnlyScaleKernel, LM_PARAMETERS_HorizontalOnlyScaleKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= dstWidth || y >= height) return;
  const float ratio = (float)srcWidth / (float)dstWidth;
  const int row = y * srcPitch;
  float4 value;
  if (filter == 0) {
    value = LM_LoadPixel(src, row + min((int)(((float)x + 0.5f) * ratio), srcWidth - 1), is32f);
  } else if (filter == 1 || ratio <= 1.0f) {
    // Linear, edges clamped; an enlargement takes it at area quality too.
    const float u = ((float)x + 0.5f) * ratio - 0.5f, fu = floor(u), t = u - fu;
    const int i0 = min(max((int)fu, 0), srcWidth - 1), i1 = min(max((int)fu + 1, 0), srcWidth - 1);
    value = LM_Add4(LM_Scale4(LM_LoadPixel(src, row + i0, is32f), 1.0f - t),
                    LM_Scale4(LM_LoadPixel(src, row + i1, is32f), t));
  } else {
    // Area: each source pixel weighted by its overlap with the footprint [x, x + 1) * ratio.
    const float a = (float)x * ratio, b = (float)(x + 1) * ratio;
    value = LM_MAKE_FLOAT4(0.0f, 0.0f, 0.0f, 0.0f);
    for (int k = (int)floor(a); (float)k < b && k < srcWidth; ++k) {
      const float overlap = fmin(b, (float)(k + 1)) - fmax(a, (float)k);
      if (overlap > 0.0f)
        value = LM_Add4(value, LM_Scale4(LM_LoadPixel(src, row + k, is32f), overlap / ratio));
    }
  }
  LM_StorePixel(dst, y * dstPitch + x, value, is32f);
}
