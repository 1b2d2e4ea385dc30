// module: AlphaGain
// Two per-pixel alpha operations on premultiplied pixels: the gain scales the whole pixel (its alpha and,
// with it, its premultiplied colour); Unpremultiply divides the colour by the alpha and gives a pixel of alpha
// 0 or less the caller's colour.
#include "KernelDialect.h"
#include "PointOperationsParameters.h"

LM_KERNEL_WITH_PARAMETERS(AlphaGainKernel, LM_PARAMETERS_AlphaGainKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  LM_StorePixel(dst, y * dstPitch + x, LM_Scale4(LM_LoadPixel(src, y * srcPitch + x, is32f), gain), is32f);
}

LM_KERNEL_WITH_PARAMETERS(UnpremultiplyKernel, LM_PARAMETERS_UnpremultiplyKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const float4 p = LM_LoadPixel(src, y * srcPitch + x, is32f);
  const float4 value = p.w > 0.0f ? LM_MAKE_FLOAT4(p.x / p.w, p.y / p.w, p.z / p.w, p.w) : color;
  LM_StorePixel(dst, y * dstPitch + x, value, is32f);
}
