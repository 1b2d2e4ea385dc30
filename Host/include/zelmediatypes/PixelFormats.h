// Every pixel format of the host table. A code is four characters in memory order: two name the family
// ("BA" BGRA, "PR" PRGB, "VX" VUYX, "UY" UYVY, "2R" MPEG-2 frame-picture 4:2:0, ...), the third the
// sample type (b 8-bit, s 15-bit in 16, f 32-bit float, w 10-bit packed; B is 8-bit full range) and the
// fourth the colour (g gamma-coded RGB, l linear RGB, 6 BT.601, 7 BT.709). docs/pixel-formats.md lists
// them all; the property words are built from the fields of PixelFormatProperties.h.
#pragma once

#include "zelmediatypes/PixelFormat.h"
#include "zelmediatypes/PixelFormatProperties.h"

namespace zelmediatypes {

namespace detail {
constexpr std::uint32_t Props4444(std::uint32_t order, std::uint32_t sample, std::uint32_t alpha,
                                  std::uint32_t extra = 0) {
  return MakeFormatProperties(order, sample, alpha, kPixelFormatLayout_4444, extra);
}
// Packed 4:2:2 formats carry no alpha.
constexpr std::uint32_t Props422(std::uint32_t order, std::uint32_t sample, std::uint32_t extra = 0) {
  return MakeFormatProperties(order, sample, kPixelFormatAlpha_Ignored, kPixelFormatLayout_422Packed, extra);
}
constexpr std::uint32_t Props420(std::uint32_t type, std::uint32_t extra = 0) {
  return MakeFormatProperties(kPixelFormatOrder_YUVPlanes, kPixelFormatSample_8u, kPixelFormatAlpha_Ignored,
                              kPixelFormatLayout_420Planar, kPixelFormatProperty_Planar | type | extra);
}
}  // namespace detail

// Four-component RGB, in the order of the letters.
constexpr PixelFormat kPixelFormat_BGRA_4444_8u = {
    MakeFormatCode('B', 'A', 'b', 'g'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_8u, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_BGRA_4444_15u = {
    MakeFormatCode('B', 'A', 's', 'g'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_15u, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_BGRA_4444_32f = {
    MakeFormatCode('B', 'A', 'f', 'g'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_32f, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_BGRA_4444_32f_Linear = {
    MakeFormatCode('B', 'A', 'f', 'l'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_32f, kPixelFormatAlpha_Straight,
                      kPixelFormatProperty_Linear)};
constexpr PixelFormat kPixelFormat_BGRP_4444_8u = {
    MakeFormatCode('B', 'P', 'b', 'g'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_8u, kPixelFormatAlpha_Premultiplied)};
constexpr PixelFormat kPixelFormat_BGRP_4444_15u = {
    MakeFormatCode('B', 'P', 's', 'g'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_15u, kPixelFormatAlpha_Premultiplied)};
constexpr PixelFormat kPixelFormat_BGRP_4444_32f = {
    MakeFormatCode('B', 'P', 'f', 'g'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_32f, kPixelFormatAlpha_Premultiplied)};
constexpr PixelFormat kPixelFormat_BGRP_4444_32f_Linear = {
    MakeFormatCode('B', 'P', 'f', 'l'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_32f, kPixelFormatAlpha_Premultiplied,
                      kPixelFormatProperty_Linear)};
constexpr PixelFormat kPixelFormat_BGRX_4444_8u = {
    MakeFormatCode('B', 'X', 'b', 'g'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_8u, kPixelFormatAlpha_Ignored)};
constexpr PixelFormat kPixelFormat_BGRX_4444_15u = {
    MakeFormatCode('B', 'X', 's', 'g'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_15u, kPixelFormatAlpha_Ignored)};
constexpr PixelFormat kPixelFormat_BGRX_4444_32f = {
    MakeFormatCode('B', 'X', 'f', 'g'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_32f, kPixelFormatAlpha_Ignored)};
constexpr PixelFormat kPixelFormat_BGRX_4444_32f_Linear = {
    MakeFormatCode('B', 'X', 'f', 'l'),
    detail::Props4444(kPixelFormatOrder_BGRA, kPixelFormatSample_32f, kPixelFormatAlpha_Ignored,
                      kPixelFormatProperty_Linear)};
constexpr PixelFormat kPixelFormat_ARGB_4444_8u = {
    MakeFormatCode('A', 'R', 'b', 'g'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_8u, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_ARGB_4444_15u = {
    MakeFormatCode('A', 'R', 's', 'g'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_15u, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_ARGB_4444_32f = {
    MakeFormatCode('A', 'R', 'f', 'g'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_32f, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_ARGB_4444_32f_Linear = {
    MakeFormatCode('A', 'R', 'f', 'l'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_32f, kPixelFormatAlpha_Straight,
                      kPixelFormatProperty_Linear)};
constexpr PixelFormat kPixelFormat_PRGB_4444_8u = {
    MakeFormatCode('P', 'R', 'b', 'g'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_8u, kPixelFormatAlpha_Premultiplied)};
constexpr PixelFormat kPixelFormat_PRGB_4444_15u = {
    MakeFormatCode('P', 'R', 's', 'g'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_15u, kPixelFormatAlpha_Premultiplied)};
constexpr PixelFormat kPixelFormat_PRGB_4444_32f = {
    MakeFormatCode('P', 'R', 'f', 'g'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_32f, kPixelFormatAlpha_Premultiplied)};
constexpr PixelFormat kPixelFormat_PRGB_4444_32f_Linear = {
    MakeFormatCode('P', 'R', 'f', 'l'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_32f, kPixelFormatAlpha_Premultiplied,
                      kPixelFormatProperty_Linear)};
constexpr PixelFormat kPixelFormat_XRGB_4444_8u = {
    MakeFormatCode('X', 'R', 'b', 'g'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_8u, kPixelFormatAlpha_Ignored)};
constexpr PixelFormat kPixelFormat_XRGB_4444_15u = {
    MakeFormatCode('X', 'R', 's', 'g'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_15u, kPixelFormatAlpha_Ignored)};
constexpr PixelFormat kPixelFormat_XRGB_4444_32f = {
    MakeFormatCode('X', 'R', 'f', 'g'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_32f, kPixelFormatAlpha_Ignored)};
constexpr PixelFormat kPixelFormat_XRGB_4444_32f_Linear = {
    MakeFormatCode('X', 'R', 'f', 'l'),
    detail::Props4444(kPixelFormatOrder_ARGB, kPixelFormatSample_32f, kPixelFormatAlpha_Ignored,
                      kPixelFormatProperty_Linear)};

// Four-component Y'CbCr: V (Cr), U (Cb), Y, A.
constexpr PixelFormat kPixelFormat_VUYA_4444_8u = {
    MakeFormatCode('V', 'A', 'b', '6'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_8u, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_VUYA_4444_8u_709 = {
    MakeFormatCode('V', 'A', 'b', '7'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_8u, kPixelFormatAlpha_Straight,
                      kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_VUYA_4444_32f = {
    MakeFormatCode('V', 'A', 'f', '6'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_32f, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_VUYA_4444_32f_709 = {
    MakeFormatCode('V', 'A', 'f', '7'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_32f, kPixelFormatAlpha_Straight,
                      kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_VUYP_4444_8u = {
    MakeFormatCode('V', 'P', 'b', '6'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_8u, kPixelFormatAlpha_Premultiplied)};
constexpr PixelFormat kPixelFormat_VUYP_4444_8u_709 = {
    MakeFormatCode('V', 'P', 'b', '7'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_8u, kPixelFormatAlpha_Premultiplied,
                      kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_VUYP_4444_32f = {
    MakeFormatCode('V', 'P', 'f', '6'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_32f, kPixelFormatAlpha_Premultiplied)};
constexpr PixelFormat kPixelFormat_VUYP_4444_32f_709 = {
    MakeFormatCode('V', 'P', 'f', '7'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_32f, kPixelFormatAlpha_Premultiplied,
                      kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_VUYX_4444_8u = {
    MakeFormatCode('V', 'X', 'b', '6'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_8u, kPixelFormatAlpha_Ignored)};
constexpr PixelFormat kPixelFormat_VUYX_4444_8u_709 = {
    MakeFormatCode('V', 'X', 'b', '7'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_8u, kPixelFormatAlpha_Ignored,
                      kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_VUYX_4444_32f = {
    MakeFormatCode('V', 'X', 'f', '6'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_32f, kPixelFormatAlpha_Ignored)};
constexpr PixelFormat kPixelFormat_VUYX_4444_32f_709 = {
    MakeFormatCode('V', 'X', 'f', '7'),
    detail::Props4444(kPixelFormatOrder_VUYA, kPixelFormatSample_32f, kPixelFormatAlpha_Ignored,
                      kPixelFormatProperty_BT709)};

// Packed 4:2:2: two pixels share one U and one V.
constexpr PixelFormat kPixelFormat_UYVY_422_8u = {
    MakeFormatCode('U', 'Y', 'b', '6'), detail::Props422(kPixelFormatOrder_UYVY, kPixelFormatSample_8u)};
constexpr PixelFormat kPixelFormat_UYVY_422_8u_709 = {
    MakeFormatCode('U', 'Y', 'b', '7'),
    detail::Props422(kPixelFormatOrder_UYVY, kPixelFormatSample_8u, kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_YUYV_422_8u = {
    MakeFormatCode('Y', 'U', 'b', '6'), detail::Props422(kPixelFormatOrder_YUYV, kPixelFormatSample_8u)};
constexpr PixelFormat kPixelFormat_YUYV_422_8u_709 = {
    MakeFormatCode('Y', 'U', 'b', '7'),
    detail::Props422(kPixelFormatOrder_YUYV, kPixelFormatSample_8u, kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_V210_422_10u = {
    MakeFormatCode('V', '2', 'w', '6'), detail::Props422(kPixelFormatOrder_V210, kPixelFormatSample_10u)};
constexpr PixelFormat kPixelFormat_V210_422_10u_709 = {
    MakeFormatCode('V', '2', 'w', '7'),
    detail::Props422(kPixelFormatOrder_V210, kPixelFormatSample_10u, kPixelFormatProperty_BT709)};

// Planar 4:2:0, 8 bits: a Y plane, then a U plane and a V plane of half the width and height.
constexpr PixelFormat kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601 = {
    MakeFormatCode('2', 'R', 'b', '6'), detail::Props420(kPixelFormatType_MPEG2Frame)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709 = {
    MakeFormatCode('2', 'R', 'b', '7'),
    detail::Props420(kPixelFormatType_MPEG2Frame, kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601_FullRange = {
    MakeFormatCode('2', 'R', 'B', '6'),
    detail::Props420(kPixelFormatType_MPEG2Frame, kPixelFormatProperty_FullRange)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709_FullRange = {
    MakeFormatCode('2', 'R', 'B', '7'),
    detail::Props420(kPixelFormatType_MPEG2Frame,
                     kPixelFormatProperty_BT709 | kPixelFormatProperty_FullRange)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601 = {
    MakeFormatCode('2', 'I', 'b', '6'), detail::Props420(kPixelFormatType_MPEG2Field)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_709 = {
    MakeFormatCode('2', 'I', 'b', '7'),
    detail::Props420(kPixelFormatType_MPEG2Field, kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601_FullRange = {
    MakeFormatCode('2', 'I', 'B', '6'),
    detail::Props420(kPixelFormatType_MPEG2Field, kPixelFormatProperty_FullRange)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_709_FullRange = {
    MakeFormatCode('2', 'I', 'B', '7'),
    detail::Props420(kPixelFormatType_MPEG2Field,
                     kPixelFormatProperty_BT709 | kPixelFormatProperty_FullRange)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601 = {
    MakeFormatCode('4', 'R', 'b', '6'), detail::Props420(kPixelFormatType_MPEG4Frame)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_709 = {
    MakeFormatCode('4', 'R', 'b', '7'),
    detail::Props420(kPixelFormatType_MPEG4Frame, kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601_FullRange = {
    MakeFormatCode('4', 'R', 'B', '6'),
    detail::Props420(kPixelFormatType_MPEG4Frame, kPixelFormatProperty_FullRange)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_709_FullRange = {
    MakeFormatCode('4', 'R', 'B', '7'),
    detail::Props420(kPixelFormatType_MPEG4Frame,
                     kPixelFormatProperty_BT709 | kPixelFormatProperty_FullRange)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601 = {
    MakeFormatCode('4', 'I', 'b', '6'), detail::Props420(kPixelFormatType_MPEG4Field)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709 = {
    MakeFormatCode('4', 'I', 'b', '7'),
    detail::Props420(kPixelFormatType_MPEG4Field, kPixelFormatProperty_BT709)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601_FullRange = {
    MakeFormatCode('4', 'I', 'B', '6'),
    detail::Props420(kPixelFormatType_MPEG4Field, kPixelFormatProperty_FullRange)};
constexpr PixelFormat kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709_FullRange = {
    MakeFormatCode('4', 'I', 'B', '7'),
    detail::Props420(kPixelFormatType_MPEG4Field,
                     kPixelFormatProperty_BT709 | kPixelFormatProperty_FullRange)};

// The library's GPU working formats. Their words are fixed: Lumora defines the same values itself and
// compares formats by value. The code reads "@CD" and then a, x (half float) or A, X (32-bit float).
constexpr PixelFormat kPixelFormat_GPU_BGRA_4444_16f = {
    MakeFormatCode('@', 'C', 'D', 'a'),
    MakeFormatProperties(kPixelFormatOrder_Device, kPixelFormatSample_16f, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_GPU_BGRX_4444_16f = {
    MakeFormatCode('@', 'C', 'D', 'x'),
    MakeFormatProperties(kPixelFormatOrder_Device, kPixelFormatSample_16f, kPixelFormatAlpha_Ignored)};
constexpr PixelFormat kPixelFormat_GPU_BGRA_4444_32f = {
    MakeFormatCode('@', 'C', 'D', 'A'),
    MakeFormatProperties(kPixelFormatOrder_Device, kPixelFormatSample_32f, kPixelFormatAlpha_Straight)};
constexpr PixelFormat kPixelFormat_GPU_BGRX_4444_32f = {
    MakeFormatCode('@', 'C', 'D', 'X'),
    MakeFormatProperties(kPixelFormatOrder_Device, kPixelFormatSample_32f, kPixelFormatAlpha_Ignored)};

static_assert(kPixelFormat_GPU_BGRA_4444_16f == PixelFormat{0x61444340u, 0x00040096u}, "GPU format changed");
static_assert(kPixelFormat_GPU_BGRX_4444_16f == PixelFormat{0x78444340u, 0x00040196u}, "GPU format changed");
static_assert(kPixelFormat_GPU_BGRA_4444_32f == PixelFormat{0x41444340u, 0x0004009Au}, "GPU format changed");
static_assert(kPixelFormat_GPU_BGRX_4444_32f == PixelFormat{0x58444340u, 0x0004019Au}, "GPU format changed");

}  // namespace zelmediatypes
