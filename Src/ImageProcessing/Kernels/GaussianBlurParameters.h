// The parameters of the kernels of module GaussianBlur (KernelLists.h).
#ifndef LUMORA_GAUSSIAN_BLUR_PARAMETERS_H
#define LUMORA_GAUSSIAN_BLUR_PARAMETERS_H

// The recursive kernels, one work item per destination row (horizontal) or column (vertical). The
// destination is the source centred on it, offset by (offsetX, offsetY) pixels (negative: cropped); each
// line runs over the canvas that covers both, transparent black outside the source. The six recursion
// coefficients, and whether the edges extend (1) or are zero outside the canvas (0).
// clang-format off
#define LM_PARAMETERS_RecursiveGaussian(P)                                                          \
  P(IN_BUFFER, src) P(INT, srcPitch) P(INT, srcWidth) P(INT, srcHeight)                            \
  P(BUFFER, dst) P(INT, dstPitch) P(INT, dstWidth) P(INT, dstHeight) P(INT, offsetX) P(INT, offsetY) \
  P(FLOAT, a0) P(FLOAT, a1) P(FLOAT, a2) P(FLOAT, a3) P(FLOAT, b1) P(FLOAT, b2) P(INT, extendEdges)
// clang-format on

// The column passes of the OpenCL path for AMD devices, one work item per column of a width x height
// image: the first writes the causal recursion, the second adds the anti-causal one to it.
// clang-format off
#define LM_PARAMETERS_GaussianHalfPass(P)                                                           \
  P(IN_BUFFER, src) P(INT, srcPitch) P(BUFFER, dst) P(INT, dstPitch) P(INT, width) P(INT, height)  \
  P(INT, is32f) P(FLOAT, a0) P(FLOAT, a1) P(FLOAT, a2) P(FLOAT, a3) P(FLOAT, b1) P(FLOAT, b2)
// clang-format on

// dst (height x width) = src (width x height) transposed.
// clang-format off
#define LM_PARAMETERS_GaussianTranspose(P)                                                          \
  P(IN_BUFFER, src) P(INT, srcPitch) P(BUFFER, dst) P(INT, dstPitch) P(INT, width) P(INT, height)  \
  P(INT, is32f)
// clang-format on

#endif  // LUMORA_GAUSSIAN_BLUR_PARAMETERS_H
