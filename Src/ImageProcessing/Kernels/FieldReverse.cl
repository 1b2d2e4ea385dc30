// module: FieldReverse
// The field operations on rows: FieldReverseKernel swaps the two fields of an interlaced image, row 2k with
// row 2k + 1 (a last unpaired row is copied), in place or into another buffer; InterlaceFieldsKernel weaves
// two progressive images into one, the rows of parity `firstParity` from the first.
#include "GeometryParameters.h"
#include "KernelDialect.h"

LM_KERNEL_WITH_PARAMETERS(FieldReverseKernel, LM_PARAMETERS_FieldReverseKernel) {
  const int x = LM_GLOBAL_X;
  const int pair = LM_GLOBAL_Y;
  const int upper = 2 * pair, lower = upper + 1;
  if (x >= width || upper >= height) return;
  // Both rows of the pair are read before either is written, so the swap works in place.
  const float4 top = LM_LoadPixel(src, upper * srcPitch + x, is32f);
  if (lower >= height) {
    LM_StorePixel(dst, upper * dstPitch + x, top, is32f);
    return;
  }
  const float4 bottom = LM_LoadPixel(src, lower * srcPitch + x, is32f);
  LM_StorePixel(dst, upper * dstPitch + x, bottom, is32f);
  LM_StorePixel(dst, lower * dstPitch + x, top, is32f);
}

LM_KERNEL_WITH_PARAMETERS(InterlaceFieldsKernel, LM_PARAMETERS_InterlaceFieldsKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  if ((y & 1) == firstParity) {
    LM_CopyPixel(first, y * firstPitch + x, dst, y * dstPitch + x, is32f);
  } else {
    LM_CopyPixel(second, y * secondPitch + x, dst, y * dstPitch + x, is32f);
  }
}
