// The parameters of the per-pixel operations' kernels: modules CrossDissolve, Accumulate and AlphaGain
// (KernelLists.h). Pitches count pixels; is32f is the format's is-32-bit-float flag.
#ifndef LUMORA_POINT_OPERATIONS_PARAMETERS_H
#define LUMORA_POINT_OPERATIONS_PARAMETERS_H

// outgoing x (1 - progress) + incoming x progress; eased: progress through smoothstep first.
// clang-format off
#define LM_PARAMETERS_CrossDissolveKernel(P)                                                        \
  P(IN_BUFFER, incoming) P(INT, incomingPitch) P(IN_BUFFER, outgoing) P(INT, outgoingPitch)        \
  P(BUFFER, dst) P(INT, dstPitch) P(INT, is32f) P(INT, width) P(INT, height) P(FLOAT, progress)     \
  P(INT, eased)
// clang-format on

// Up to eight weighted sources into dst: `count` of them are read; `overwrite` 1 writes the sum, 0 adds it
// to what dst holds. Every buffer starts `offset` 16-byte units in (2 pixels of 16f, 1 of 32f).
// clang-format off
#define LM_PARAMETERS_AccumulateKernel(P)                                                             \
  P(IN_BUFFER, source0) P(IN_BUFFER, source1) P(IN_BUFFER, source2) P(IN_BUFFER, source3)            \
  P(IN_BUFFER, source4) P(IN_BUFFER, source5) P(IN_BUFFER, source6) P(IN_BUFFER, source7)            \
  P(FLOAT, weight0) P(FLOAT, weight1) P(FLOAT, weight2) P(FLOAT, weight3)                            \
  P(FLOAT, weight4) P(FLOAT, weight5) P(FLOAT, weight6) P(FLOAT, weight7)                            \
  P(INT, pitch) P(INT, offset) P(INT, is32f) P(INT, width) P(INT, height)                            \
  P(BUFFER, dst) P(INT, count) P(INT, overwrite)
// clang-format on

// Each pixel times gain.
// clang-format off
#define LM_PARAMETERS_AlphaGainKernel(P)                                                              \
  P(IN_BUFFER, src) P(INT, srcPitch) P(BUFFER, dst) P(INT, dstPitch) P(INT, is32f) P(INT, width)     \
  P(INT, height) P(FLOAT, gain)
// clang-format on

// Colour divided by alpha; a pixel of alpha 0 (or less) becomes `color`.
// clang-format off
#define LM_PARAMETERS_UnpremultiplyKernel(P)                                                          \
  P(IN_BUFFER, src) P(INT, srcPitch) P(BUFFER, dst) P(INT, dstPitch) P(INT, is32f) P(INT, width)     \
  P(INT, height) P(FLOAT4, color)
// clang-format on

#endif  // LUMORA_POINT_OPERATIONS_PARAMETERS_H
