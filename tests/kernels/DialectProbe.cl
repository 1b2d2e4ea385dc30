// module: DialectProbe
// A test-only module that passes pixels through the dialect's loads, float4 arithmetic and stores, so that
// every word of the vocabulary is compiled for both targets and its parameter list checked against the PTX.
#include "KernelDialect.h"
#include "ProbeParameters.h"

// dst = clamp((src - offset) * gain + src * scale, -1, 2) for each pixel of the width x height extent.
LM_KERNEL_WITH_PARAMETERS(PixelArithmeticKernel, LM_PARAMETERS_PixelArithmeticKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const float4 in = LM_LoadPixel(src, y * pitch + x, is32f);
  const float4 out = LM_Add4(LM_Mul4(LM_Sub4(in, offset), gain), LM_Scale4(in, scale));
  LM_StorePixel(dst, y * pitch + x, LM_Clamp4(out, -1.0f, 2.0f), is32f);
}
