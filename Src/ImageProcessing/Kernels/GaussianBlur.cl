// module: GaussianBlur
// The recursive Gaussian (Deriche's second-order filter, normalised to unit gain): along each line the causal
// recursion y[n] = a0 x[n] + a1 x[n-1] + b1 y[n-1] + b2 y[n-2] and the anti-causal recursion
// z[n] = a2 x[n+1] + a3 x[n+2] + b1 z[n+1] + b2 z[n+2], and the result y + z, on the premultiplied values of
// all four channels alike. Its cost does not depend on sigma.
//
// Edges: with extendEdges 0 the line is zero beyond its ends; with 1 it repeats its end values, and each
// recursion starts in the steady state of that constant (x (a0 + a1) / (1 - b1 - b2) for the causal one,
// x (a2 + a3) / (1 - b1 - b2) for the anti-causal one), so that a constant line stays constant to its ends.
//
// Two families: the recursive kernels (F16 and F32, one work item per destination row or column, reading
// the source centred on the destination), and the kernels of the path for AMD OpenCL devices (column half
// passes on images of one size, and a transpose that turns rows into columns).
#include "GaussianBlurParameters.h"
#include "KernelDialect.h"

LM_DEVICE float4 Zero4(void) {
  return LM_MAKE_FLOAT4(0.0f, 0.0f, 0.0f, 0.0f);
}
// a x + b y + c z + d w.
LM_DEVICE float4 Mix4(float a, float4 x, float b, float4 y, float c, float4 z, float d, float4 w) {
  return LM_Add4(LM_Add4(LM_Scale4(x, a), LM_Scale4(y, b)), LM_Add4(LM_Scale4(z, c), LM_Scale4(w, d)));
}

// Sample s of a source line of `count` samples, `stride` pixels apart from `base`: transparent black outside
// it, or when the whole line lies outside the source.
LM_DEVICE float4 LineSample(LM_GLOBAL const float* src, int base, int stride, int s, int count, int inside,
                            int is32f) {
  return inside && s >= 0 && s < count ? LM_LoadPixel(src, base + s * stride, is32f) : Zero4();
}

// One line of the canvas: source samples [first, last) with first = min(0, -offset) and last = max(count,
// dstCount - offset), destination sample d = s + offset written where it lies in 0 .. dstCount - 1. The
// causal values are stored first and the anti-causal ones added to them.
//
// The recursions run on the line less its first source sample c, and c is added back: the filter has unit
// gain, so the result is the same, but a constant line gives exactly itself instead of the drift of a
// single-precision recursion whose poles lie close to 1 (b1 + b2 near 1 for large sigmas). Beyond the canvas
// the line is then -c (zero edges) or its end value less c (extended edges).
LM_DEVICE void RecursiveLine(LM_GLOBAL const float* src, int srcBase, int srcStride, int count, int inside,
                             LM_GLOBAL float* dst, int dstBase, int dstStride, int dstCount, int offset,
                             float a0, float a1, float a2, float a3, float b1, float b2, int extend,
                             int is32f) {
  const int first = min(0, -offset), last = max(count, dstCount - offset);
  const float settle = 1.0f / (1.0f - b1 - b2);
  const float4 c = LineSample(src, srcBase, srcStride, 0, count, inside, is32f);
  const float4 head =
      LM_Sub4(extend ? LineSample(src, srcBase, srcStride, first, count, inside, is32f) : Zero4(), c);
  float4 xPrevious = head, y1 = LM_Scale4(head, (a0 + a1) * settle), y2 = y1;
  for (int s = first; s < last; ++s) {
    const float4 x = LM_Sub4(LineSample(src, srcBase, srcStride, s, count, inside, is32f), c);
    const float4 y = Mix4(a0, x, a1, xPrevious, b1, y1, b2, y2);
    const int d = s + offset;
    if (d >= 0 && d < dstCount) LM_StorePixel(dst, dstBase + d * dstStride, LM_Add4(y, c), is32f);
    xPrevious = x;
    y2 = y1;
    y1 = y;
  }
  const float4 tail =
      LM_Sub4(extend ? LineSample(src, srcBase, srcStride, last - 1, count, inside, is32f) : Zero4(), c);
  float4 x1 = tail, x2 = tail, z1 = LM_Scale4(tail, (a2 + a3) * settle), z2 = z1;
  for (int s = last - 1; s >= first; --s) {
    const float4 z = Mix4(a2, x1, a3, x2, b1, z1, b2, z2);
    const int d = s + offset;
    if (d >= 0 && d < dstCount) {
      const int index = dstBase + d * dstStride;
      LM_StorePixel(dst, index, LM_Add4(LM_LoadPixel(dst, index, is32f), z), is32f);
    }
    x2 = x1;
    x1 = LM_Sub4(LineSample(src, srcBase, srcStride, s, count, inside, is32f), c);
    z2 = z1;
    z1 = z;
  }
}

// Destination row r: source row r - offsetY, along x.
#define LM_HORIZONTAL_GAUSSIAN(name, is32f)                                                          \
  LM_KERNEL_WITH_PARAMETERS(name, LM_PARAMETERS_RecursiveGaussian) {                                 \
    const int row = LM_GLOBAL_X;                                                                     \
    if (row >= dstHeight) return;                                                                    \
    const int sourceRow = row - offsetY;                                                             \
    const int inside = sourceRow >= 0 && sourceRow < srcHeight;                                      \
    RecursiveLine(src, inside ? sourceRow* srcPitch : 0, 1, srcWidth, inside, dst, row* dstPitch, 1, \
                  dstWidth, offsetX, a0, a1, a2, a3, b1, b2, extendEdges, is32f);                    \
  }
// Destination column c: source column c - offsetX, along y.
#define LM_VERTICAL_GAUSSIAN(name, is32f)                                                             \
  LM_KERNEL_WITH_PARAMETERS(name, LM_PARAMETERS_RecursiveGaussian) {                                  \
    const int column = LM_GLOBAL_X;                                                                   \
    if (column >= dstWidth) return;                                                                   \
    const int sourceColumn = column - offsetX;                                                        \
    const int inside = sourceColumn >= 0 && sourceColumn < srcWidth;                                  \
    RecursiveLine(src, inside ? sourceColumn : 0, srcPitch, srcHeight, inside, dst, column, dstPitch, \
                  dstHeight, offsetY, a0, a1, a2, a3, b1, b2, extendEdges, is32f);                    \
  }
LM_HORIZONTAL_GAUSSIAN(HorizontalRecursiveGaussianRGBAF16_kernel, 0)
LM_HORIZONTAL_GAUSSIAN(HorizontalRecursiveGaussianRGBAF32_kernel, 1)
LM_VERTICAL_GAUSSIAN(VerticalRecursiveGaussianRGBAF16_kernel, 0)
LM_VERTICAL_GAUSSIAN(VerticalRecursiveGaussianRGBAF32_kernel, 1)

// ---- The path for AMD OpenCL devices
// ------------------------------------------------------------------------- Vertical blurring in two passes
// over each column of an image: the causal recursion written by the first, the anti-causal one added by the
// second (which may write in place); "_0bc" is zero beyond the ends,
// "_rbc" repeats the end values. Horizontal blurring transposes, blurs the columns and transposes back.

// As the recursive kernels, both passes run on the column less its first sample c, which the first adds back.
#define LM_HALF_PASSES(edge, extend)                                                               \
  LM_KERNEL_WITH_PARAMETERS(amdabe_gb_verthalf1_##edge, LM_PARAMETERS_GaussianHalfPass) {          \
    const int column = LM_GLOBAL_X;                                                                \
    if (column >= width || height <= 0) return;                                                    \
    const float4 c = LM_LoadPixel(src, column, is32f);                                             \
    const float4 head = LM_Sub4(extend ? c : Zero4(), c);                                          \
    float4 xPrevious = head, y1 = LM_Scale4(head, (a0 + a1) / (1.0f - b1 - b2)), y2 = y1;          \
    for (int r = 0; r < height; ++r) {                                                             \
      const float4 x = LM_Sub4(LM_LoadPixel(src, r * srcPitch + column, is32f), c);                \
      const float4 y = Mix4(a0, x, a1, xPrevious, b1, y1, b2, y2);                                 \
      LM_StorePixel(dst, r* dstPitch + column, LM_Add4(y, c), is32f);                              \
      xPrevious = x;                                                                               \
      y2 = y1;                                                                                     \
      y1 = y;                                                                                      \
    }                                                                                              \
  }                                                                                                \
  LM_KERNEL_WITH_PARAMETERS(amdabe_gb_verthalf2_##edge, LM_PARAMETERS_GaussianHalfPass) {          \
    const int column = LM_GLOBAL_X;                                                                \
    if (column >= width || height <= 0) return;                                                    \
    const float4 c = LM_LoadPixel(src, column, is32f);                                             \
    const float4 tail =                                                                            \
        LM_Sub4(extend ? LM_LoadPixel(src, (height - 1) * srcPitch + column, is32f) : Zero4(), c); \
    float4 x1 = tail, x2 = tail, z1 = LM_Scale4(tail, (a2 + a3) / (1.0f - b1 - b2)), z2 = z1;      \
    for (int r = height - 1; r >= 0; --r) {                                                        \
      const float4 z = Mix4(a2, x1, a3, x2, b1, z1, b2, z2);                                       \
      const int index = r * dstPitch + column;                                                     \
      LM_StorePixel(dst, index, LM_Add4(LM_LoadPixel(dst, index, is32f), z), is32f);               \
      x2 = x1;                                                                                     \
      x1 = LM_Sub4(LM_LoadPixel(src, r * srcPitch + column, is32f), c);                            \
      z2 = z1;                                                                                     \
      z1 = z;                                                                                      \
    }                                                                                              \
  }
LM_HALF_PASSES(0bc, 0)
LM_HALF_PASSES(rbc, 1)

LM_KERNEL_WITH_PARAMETERS(amdabe_gb_transpose, LM_PARAMETERS_GaussianTranspose) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  LM_CopyPixel(src, y * srcPitch + x, dst, x * dstPitch + y, is32f);
}
