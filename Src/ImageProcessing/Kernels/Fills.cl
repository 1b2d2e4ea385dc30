// module: Fills
// Fills a rectangle of a pitched pixel buffer with one colour.
#include "KernelDialect.h"
#include "FillsParameters.h"

// Writes `color` (x, y, z, w in memory order) into the width x height rectangle at (left, top); pitch is in
// pixels. The grid is rounded up to whole 16 x 16 blocks, so threads outside the rectangle do nothing.
LM_KERNEL_WITH_PARAMETERS(FillWithColorKernel, LM_PARAMETERS_FillWithColorKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  LM_StorePixel(buffer, (top + y) * pitch + (left + x), color, is32f);
}
