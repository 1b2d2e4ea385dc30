// The parameters of the kernels of module Memory (KernelLists.h).
#ifndef LUMORA_MEMORY_PARAMETERS_H
#define LUMORA_MEMORY_PARAMETERS_H

// Pitches in pixels (bytes for the byte-exact form); offsets in 16-byte units for every format.
// clang-format off
#define LM_PARAMETERS_CopyMemory2DKernel(P)                                                           \
  P(IN_BUFFER, src) P(INT, srcPitch) P(INT, srcOffset) P(BUFFER, dst) P(INT, dstPitch) P(INT, dstOffset) \
  P(INT, is32f) P(INT, width) P(INT, height)
// clang-format on

// Pitches in pixels (bytes for the byte-exact form); the rectangle at (srcLeft, srcTop) of src goes to
// (dstLeft, dstTop) of dst.
// clang-format off
#define LM_PARAMETERS_CopyRectKernel(P)                                                              \
  P(IN_BUFFER, src) P(INT, srcPitch) P(BUFFER, dst) P(INT, dstPitch) P(INT, is32f) P(INT, srcLeft) \
  P(INT, srcTop) P(INT, dstLeft) P(INT, dstTop) P(INT, width) P(INT, height)
// clang-format on

// OpenCL only: a byte offset, a pitch in pixels for four-component images and in bytes otherwise.
// clang-format off
#define LM_PARAMETERS_CopyBufferToImageKernel(P) \
  P(IN_BYTES, src) P(INT, srcOffset) P(INT, srcPitch) P(IMAGE_OUT, dstImage) P(INT, width) P(INT, height)
// clang-format on

#endif  // LUMORA_MEMORY_PARAMETERS_H
