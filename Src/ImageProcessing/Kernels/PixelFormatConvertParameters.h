// The parameters of the conversion kernels and the host formats of module PixelFormatConvert_444
// (KernelLists.h).
#ifndef LUMORA_PIXEL_FORMAT_CONVERT_PARAMETERS_H
#define LUMORA_PIXEL_FORMAT_CONVERT_PARAMETERS_H

// Source and destination with their pitches in their own pixels and their is-32-bit-float flags (which the
// GPU side reads; a host side's is 1), the extent, and whether to flip (read by the OpenCL kernels; on CUDA
// the host walks the source upwards with a negative pitch instead).
// clang-format off
#define LM_PARAMETERS_PixelFormatConvert(P)                                                            \
  P(IN_BYTES, src) P(INT, srcPitch) P(INT, srcIs32f) P(BYTES, dst) P(INT, dstPitch) P(INT, dstIs32f) \
  P(INT, width) P(INT, height) P(INT, flip)
// clang-format on

// The host formats stored four components a pixel that convert both ways with the GPU formats, each as
// F(name, component order, sample, alpha, colour): order BGRA (B G R A), ARGB (A R G B) or VUYA (Cr Cb Y A);
// sample 8U (codes / 255, or video-range Y'CbCr), 15U (codes / 32768) or 32F; alpha STRAIGHT,
// PREMULTIPLIED or NONE (X formats); colour RGB (gamma-coded), LINEAR (linear light), YUV601 or YUV709.
// BGRA_4444_32f is not among them: its conversions are the kernel between GPU formats, which moves floats
// as they are.
// clang-format off
#define LM_FORMATS_PixelFormatConvert444(F)                                                                \
  F(BGRA_4444_8u, BGRA, 8U, STRAIGHT, RGB) F(BGRA_4444_15u, BGRA, 15U, STRAIGHT, RGB)                      \
  F(BGRA_4444_32f_Linear, BGRA, 32F, STRAIGHT, LINEAR)                                                     \
  F(BGRP_4444_8u, BGRA, 8U, PREMULTIPLIED, RGB) F(BGRP_4444_15u, BGRA, 15U, PREMULTIPLIED, RGB)            \
  F(BGRP_4444_32f, BGRA, 32F, PREMULTIPLIED, RGB) F(BGRP_4444_32f_Linear, BGRA, 32F, PREMULTIPLIED, LINEAR) \
  F(BGRX_4444_8u, BGRA, 8U, NONE, RGB) F(BGRX_4444_15u, BGRA, 15U, NONE, RGB)                              \
  F(BGRX_4444_32f, BGRA, 32F, NONE, RGB) F(BGRX_4444_32f_Linear, BGRA, 32F, NONE, LINEAR)                  \
  F(ARGB_4444_8u, ARGB, 8U, STRAIGHT, RGB) F(ARGB_4444_15u, ARGB, 15U, STRAIGHT, RGB)                      \
  F(ARGB_4444_32f, ARGB, 32F, STRAIGHT, RGB) F(ARGB_4444_32f_Linear, ARGB, 32F, STRAIGHT, LINEAR)          \
  F(PRGB_4444_8u, ARGB, 8U, PREMULTIPLIED, RGB) F(PRGB_4444_15u, ARGB, 15U, PREMULTIPLIED, RGB)            \
  F(PRGB_4444_32f, ARGB, 32F, PREMULTIPLIED, RGB) F(PRGB_4444_32f_Linear, ARGB, 32F, PREMULTIPLIED, LINEAR) \
  F(XRGB_4444_8u, ARGB, 8U, NONE, RGB) F(XRGB_4444_15u, ARGB, 15U, NONE, RGB)                              \
  F(XRGB_4444_32f, ARGB, 32F, NONE, RGB) F(XRGB_4444_32f_Linear, ARGB, 32F, NONE, LINEAR)                  \
  F(VUYA_4444_8u, VUYA, 8U, STRAIGHT, YUV601) F(VUYA_4444_8u_709, VUYA, 8U, STRAIGHT, YUV709)              \
  F(VUYA_4444_32f, VUYA, 32F, STRAIGHT, YUV601) F(VUYA_4444_32f_709, VUYA, 32F, STRAIGHT, YUV709)          \
  F(VUYP_4444_8u, VUYA, 8U, PREMULTIPLIED, YUV601) F(VUYP_4444_8u_709, VUYA, 8U, PREMULTIPLIED, YUV709)    \
  F(VUYP_4444_32f, VUYA, 32F, PREMULTIPLIED, YUV601) F(VUYP_4444_32f_709, VUYA, 32F, PREMULTIPLIED, YUV709) \
  F(VUYX_4444_8u, VUYA, 8U, NONE, YUV601) F(VUYX_4444_8u_709, VUYA, 8U, NONE, YUV709)                      \
  F(VUYX_4444_32f, VUYA, 32F, NONE, YUV601) F(VUYX_4444_32f_709, VUYA, 32F, NONE, YUV709)
// clang-format on

// The packed 4:2:2 host formats of module PixelFormatConvert_422, both ways, each as F(name, packing,
// matrix): packing UYVY (bytes Cb Y0 Cr Y1 a pixel pair), YUYV (Y0 Cb Y1 Cr) or V210 (the UYVY order in
// 10-bit codes, three to a little-endian 32-bit word, six pixels in four words); matrix 601 or 709. Their
// pitches count pixel pairs (4 bytes) and v210 groups (16 bytes).
// clang-format off
#define LM_FORMATS_PixelFormatConvert422(F)                                                      \
  F(UYVY_422_8u, UYVY, 601) F(UYVY_422_8u_709, UYVY, 709) F(YUYV_422_8u, YUYV, 601)              \
  F(YUYV_422_8u_709, YUYV, 709) F(V210_422_10u, V210, 601) F(V210_422_10u_709, V210, 709)
// clang-format on

// The kernels' names: the GPU side is always written BGRA_4444_32f.
#define LM_NAME_PixelFormatConvertGPU PixelFormatConvert_BGRA_4444_32f_To_BGRA_4444_32f_Kernel
#define LM_NAME_PixelFormatConvertFromHost(name) PixelFormatConvert_##name##_To_BGRA_4444_32f_Kernel
#define LM_NAME_PixelFormatConvertToHost(name) PixelFormatConvert_BGRA_4444_32f_To_##name##_Kernel

#endif  // LUMORA_PIXEL_FORMAT_CONVERT_PARAMETERS_H
