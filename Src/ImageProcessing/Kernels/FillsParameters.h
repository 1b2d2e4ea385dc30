// The parameters of the kernels of module Fills (KernelLists.h).
#ifndef LUMORA_FILLS_PARAMETERS_H
#define LUMORA_FILLS_PARAMETERS_H

// The buffer, its pitch in pixels, the is-32-bit-float flag, the rectangle and the colour.
// clang-format off
#define LM_PARAMETERS_FillWithColorKernel(P)                                                             \
  P(BUFFER, buffer) P(INT, pitch) P(INT, is32f) P(INT, left) P(INT, top) P(INT, width) P(INT, height) \
  P(FLOAT4, color)
// clang-format on

#endif  // LUMORA_FILLS_PARAMETERS_H
