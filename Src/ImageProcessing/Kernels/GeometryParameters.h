// The parameters of the kernels of modules FieldReverse, Deinterlace and Motion (KernelLists.h). Pitches
// count pixels; is32f is the format's is-32-bit-float flag.
#ifndef LUMORA_GEOMETRY_PARAMETERS_H
#define LUMORA_GEOMETRY_PARAMETERS_H

// One work item per pixel of each row pair: rows 2k and 2k + 1 trade places (in place when src is dst).
// clang-format off
#define LM_PARAMETERS_FieldReverseKernel(P)                                                         \
  P(IN_BUFFER, src) P(INT, srcPitch) P(BUFFER, dst) P(INT, dstPitch) P(INT, is32f) P(INT, width)   \
  P(INT, height)
// clang-format on

// Two progressive images woven into one: the rows of parity `firstParity` from `first`, the others from
// `second`.
// clang-format off
#define LM_PARAMETERS_InterlaceFieldsKernel(P)                                                      \
  P(IN_BUFFER, first) P(INT, firstPitch) P(IN_BUFFER, second) P(INT, secondPitch) P(BUFFER, dst)    \
  P(INT, dstPitch) P(INT, is32f) P(INT, width) P(INT, height) P(INT, firstParity)
// clang-format on

// The source through a texture, bound `srcOffset` texels left of its data (0 on OpenCL); the rows of field
// `keptField` (0: even rows, 1: odd rows) are copied, the others rebuilt by `mode` (0 line doubling,
// 1 linear interpolation, 2 edge-directed interpolation).
// clang-format off
#define LM_PARAMETERS_DeinterlaceKernel(P)                                                          \
  P(TEXTURE, inDeinterlaceTexture) P(INT, srcOffset) P(BUFFER, dst) P(INT, dstPitch) P(INT, is32f)   \
  P(INT, width) P(INT, height) P(INT, keptField) P(INT, mode)
// clang-format on

// Destination pixel (x, y) samples the source at the affine map of its centre: source x = m0 X + m1 Y + m2,
// source y = m3 X + m4 Y + m5, with (X, Y) = (x + 0.5, y + 0.5) and sample k's centre at k + 0.5; outside the
// source, transparent black.
// clang-format off
#define LM_PARAMETERS_MotionKernel(P)                                                               \
  P(IN_BUFFER, src) P(INT, srcPitch) P(INT, srcWidth) P(INT, srcHeight)                            \
  P(BUFFER, dst) P(INT, dstPitch) P(INT, dstWidth) P(INT, dstHeight) P(INT, is32f)                  \
  P(FLOAT, m0) P(FLOAT, m1) P(FLOAT, m2) P(FLOAT, m3) P(FLOAT, m4) P(FLOAT, m5)
// clang-format on

// The prefilter of a shrink: each destination pixel the mean of a factorX x factorY block of the source
// (edge blocks clamped to it).
// clang-format off
#define LM_PARAMETERS_MotionPrepSourceKernel(P)                                                     \
  P(IN_BUFFER, src) P(INT, srcPitch) P(INT, srcWidth) P(INT, srcHeight) P(BUFFER, dst) P(INT, dstPitch) \
  P(INT, dstWidth) P(INT, dstHeight) P(INT, is32f) P(INT, factorX) P(INT, factorY)
// clang-format on

// A horizontal-only resize of each row: destination x samples the source at (x + 0.5) srcWidth / dstWidth,
// with the filter `quality` chooses (0 nearest, 1 linear, 2 area).
// clang-format off
#define LM_PARAMETERS_HorizontalOnlyScaleKernel(P)                                                  \
  P(IN_BUFFER, src) P(INT, srcPitch) P(INT, srcWidth) P(BUFFER, dst) P(INT, dstPitch) P(INT, dstWidth) \
  P(INT, height) P(INT, is32f) P(INT, filter)
// clang-format on

#endif  // LUMORA_GEOMETRY_PARAMETERS_H
