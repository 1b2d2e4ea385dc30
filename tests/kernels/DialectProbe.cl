// module: DialectProbe
// A test-only module that passes pixels through the dialect's loads, float4 arithmetic and stores, so that
// every word of the vocabulary is compiled for both targets and checked on OpenCL.
#include "KernelDialect.h"

// dst = clamp((src - offset) * gain + src * scale, -1, 2) for each pixel of the width x height extent. The
// float before the two float4 parameters makes the CUDA layout pad, which the parameter check covers.
LM_KERNEL PixelArithmeticKernel(LM_GLOBAL const float* src, LM_GLOBAL float* dst, int pitch, int is32f,
                                int width, int height, float scale, float4 offset, float4 gain) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const float4 in = LM_LoadPixel(src, y * pitch + x, is32f);
  const float4 out = LM_Add4(LM_Mul4(LM_Sub4(in, offset), gain), LM_Scale4(in, scale));
  LM_StorePixel(dst, y * pitch + x, LM_Clamp4(out, -1.0f, 2.0f), is32f);
}
