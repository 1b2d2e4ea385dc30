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

// The 4:2:0 kernels read their three planes through textures (on CUDA the module's texture references of
// these names, on OpenCL image parameters) and add each texture's offset, in texels (bytes), to the x they
// sample, since CUDA binds a texture at an aligned address below the data (always 0 on OpenCL). A FRAME
// picture's chroma planes are one texture each; a FIELD picture's are two each, the upper field's rows
// (0, 2, 4, ...) and the lower field's (1, 3, 5, ...). The destination is a GPU format; the kernels flip
// from their flag on either framework.
// clang-format off
#define LM_PARAMETERS_PixelFormatConvert420Frame(P)                                                      \
  P(TEXTURE, inYPlaneTexture) P(TEXTURE, inFrameCodedUPlaneTexture) P(TEXTURE, inFrameCodedVPlaneTexture) \
  P(INT, yOffset) P(INT, uOffset) P(INT, vOffset)                                                         \
  P(BUFFER, dst) P(INT, dstPitch) P(INT, dstIs32f) P(INT, width) P(INT, height) P(INT, flip)
#define LM_PARAMETERS_PixelFormatConvert420Field(P)                                                      \
  P(TEXTURE, inYPlaneTexture) P(TEXTURE, inUpperUPlaneTexture) P(TEXTURE, inUpperVPlaneTexture)           \
  P(TEXTURE, inLowerUPlaneTexture) P(TEXTURE, inLowerVPlaneTexture)                                       \
  P(INT, yOffset) P(INT, upperUOffset) P(INT, upperVOffset) P(INT, lowerUOffset) P(INT, lowerVOffset)     \
  P(BUFFER, dst) P(INT, dstPitch) P(INT, dstIs32f) P(INT, width) P(INT, height) P(INT, flip)
// clang-format on

// The planar 4:2:0 source formats of module PixelFormatConvert_420, FRAME and FIELD pictures, each as
// F(name, siting, matrix, range): siting MPEG2 (chroma co-sited with the even luma column) or MPEG4 (halfway
// between two columns); matrix 601 or 709; range VIDEO (Y' 16..235, Cb and Cr 16..240) or FULL (0..255).
// clang-format off
#define LM_FORMATS_PixelFormatConvert420Frame(F)                                                         \
  F(YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, MPEG2, 601, VIDEO)                                         \
  F(YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709, MPEG2, 709, VIDEO)                                         \
  F(YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601_FullRange, MPEG2, 601, FULL)                                \
  F(YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709_FullRange, MPEG2, 709, FULL)                                \
  F(YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601, MPEG4, 601, VIDEO)                                         \
  F(YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_709, MPEG4, 709, VIDEO)                                         \
  F(YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601_FullRange, MPEG4, 601, FULL)                                \
  F(YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_709_FullRange, MPEG4, 709, FULL)
#define LM_FORMATS_PixelFormatConvert420Field(F)                                                         \
  F(YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601, MPEG2, 601, VIDEO)                                         \
  F(YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_709, MPEG2, 709, VIDEO)                                         \
  F(YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601_FullRange, MPEG2, 601, FULL)                                \
  F(YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_709_FullRange, MPEG2, 709, FULL)                                \
  F(YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601, MPEG4, 601, VIDEO)                                         \
  F(YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709, MPEG4, 709, VIDEO)                                         \
  F(YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601_FullRange, MPEG4, 601, FULL)                                \
  F(YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709_FullRange, MPEG4, 709, FULL)
// clang-format on

// The kernels' names: the GPU side is always written BGRA_4444_32f.
#define LM_NAME_PixelFormatConvertGPU PixelFormatConvert_BGRA_4444_32f_To_BGRA_4444_32f_Kernel
#define LM_NAME_PixelFormatConvertFromHost(name) PixelFormatConvert_##name##_To_BGRA_4444_32f_Kernel
#define LM_NAME_PixelFormatConvertToHost(name) PixelFormatConvert_BGRA_4444_32f_To_##name##_Kernel

#endif  // LUMORA_PIXEL_FORMAT_CONVERT_PARAMETERS_H
