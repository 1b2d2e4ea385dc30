// module: Accumulate
// The weighted sum of up to eight sources, written over dst or added to it: the host runs groups of eight,
// the first writing and the later ones adding, so any number of sources sums in order.
#include "KernelDialect.h"
#include "PointOperationsParameters.h"

LM_KERNEL_WITH_PARAMETERS(AccumulateKernel, LM_PARAMETERS_AccumulateKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  // The offset counts 16-byte units: one 32f pixel, two 16f pixels.
  const int index = offset * (is32f ? 1 : 2) + y * pitch + x;
  float4 sum = overwrite ? LM_MAKE_FLOAT4(0.0f, 0.0f, 0.0f, 0.0f) : LM_LoadPixel(dst, index, is32f);
  LM_GLOBAL const float* sources[8] = {source0, source1, source2, source3, source4, source5, source6, source7};
  const float weights[8] = {weight0, weight1, weight2, weight3, weight4, weight5, weight6, weight7};
  for (int i = 0; i < 8; ++i) {
    if (i < count) sum = LM_Add4(sum, LM_Scale4(LM_LoadPixel(sources[i], index, is32f), weights[i]));
  }
  LM_StorePixel(dst, index, sum, is32f);
}
