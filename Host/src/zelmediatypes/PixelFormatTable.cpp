// The host's pixel-format table and the lookups by format and by name. Everything a caller asks about a
// table format is read from its entry here; no function keeps a per-format list of its own.
#include "zelmediatypes/PixelFormatTable.h"

#include <cstring>

namespace zelmediatypes {
namespace {

#define ZEL_PIXEL_FORMAT(name, rule) \
  { "kPixelFormat_" #name, kPixelFormat_##name, PixelFormatSizeRule::rule }

const PixelFormatInfo kTable[] = {
    ZEL_PIXEL_FORMAT(BGRA_4444_8u, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRA_4444_15u, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRA_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRA_4444_32f_Linear, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRP_4444_8u, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRP_4444_15u, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRP_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRP_4444_32f_Linear, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRX_4444_8u, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRX_4444_15u, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRX_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(BGRX_4444_32f_Linear, kPerPixel),
    ZEL_PIXEL_FORMAT(ARGB_4444_8u, kPerPixel),
    ZEL_PIXEL_FORMAT(ARGB_4444_15u, kPerPixel),
    ZEL_PIXEL_FORMAT(ARGB_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(ARGB_4444_32f_Linear, kPerPixel),
    ZEL_PIXEL_FORMAT(PRGB_4444_8u, kPerPixel),
    ZEL_PIXEL_FORMAT(PRGB_4444_15u, kPerPixel),
    ZEL_PIXEL_FORMAT(PRGB_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(PRGB_4444_32f_Linear, kPerPixel),
    ZEL_PIXEL_FORMAT(XRGB_4444_8u, kPerPixel),
    ZEL_PIXEL_FORMAT(XRGB_4444_15u, kPerPixel),
    ZEL_PIXEL_FORMAT(XRGB_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(XRGB_4444_32f_Linear, kPerPixel),

    ZEL_PIXEL_FORMAT(VUYA_4444_8u, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYA_4444_8u_709, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYA_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYA_4444_32f_709, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYP_4444_8u, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYP_4444_8u_709, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYP_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYP_4444_32f_709, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYX_4444_8u, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYX_4444_8u_709, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYX_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(VUYX_4444_32f_709, kPerPixel),

    ZEL_PIXEL_FORMAT(UYVY_422_8u, kPacked422),
    ZEL_PIXEL_FORMAT(UYVY_422_8u_709, kPacked422),
    ZEL_PIXEL_FORMAT(YUYV_422_8u, kPacked422),
    ZEL_PIXEL_FORMAT(YUYV_422_8u_709, kPacked422),
    ZEL_PIXEL_FORMAT(V210_422_10u, kV210),
    ZEL_PIXEL_FORMAT(V210_422_10u_709, kV210),

    ZEL_PIXEL_FORMAT(YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601_FullRange, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709_FullRange, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_709, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601_FullRange, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_709_FullRange, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_709, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601_FullRange, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_709_FullRange, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601_FullRange, kPlanar420_8u),
    ZEL_PIXEL_FORMAT(YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709_FullRange, kPlanar420_8u),

    ZEL_PIXEL_FORMAT(GPU_BGRA_4444_16f, kPerPixel),
    ZEL_PIXEL_FORMAT(GPU_BGRX_4444_16f, kPerPixel),
    ZEL_PIXEL_FORMAT(GPU_BGRA_4444_32f, kPerPixel),
    ZEL_PIXEL_FORMAT(GPU_BGRX_4444_32f, kPerPixel),
};

#undef ZEL_PIXEL_FORMAT

constexpr std::size_t kTableSize = sizeof(kTable) / sizeof(kTable[0]);
constexpr std::size_t kNamePrefixLength = sizeof("kPixelFormat_") - 1;

}  // namespace

const PixelFormatInfo* PixelFormatTable(std::size_t& count) {
  count = kTableSize;
  return kTable;
}

const PixelFormatInfo* FindPixelFormatInfo(PixelFormat format) {
  for (const PixelFormatInfo& info : kTable) {
    if (info.format == format) return &info;
  }
  return nullptr;
}

const char* PixelFormatName(PixelFormat format) {
  const PixelFormatInfo* info = FindPixelFormatInfo(format);
  return info ? info->name : nullptr;
}

const char* PixelFormatShortName(PixelFormat format) {
  const PixelFormatInfo* info = FindPixelFormatInfo(format);
  return info ? info->name + kNamePrefixLength : nullptr;
}

bool LookupPixelFormat(const char* name, PixelFormat& out) {
  if (!name) return false;
  for (const PixelFormatInfo& info : kTable) {
    if (std::strcmp(name, info.name) == 0 || std::strcmp(name, info.name + kNamePrefixLength) == 0) {
      out = info.format;
      return true;
    }
  }
  return false;
}

bool IsPlanar420Format(PixelFormat format) {
  const PixelFormatInfo* info = FindPixelFormatInfo(format);
  return info && info->sizeRule == PixelFormatSizeRule::kPlanar420_8u;
}

bool Is444DecodeFormat(PixelFormat format) {
  const PixelFormatInfo* info = FindPixelFormatInfo(format);
  if (!info) return false;
  const std::uint32_t d = info->format.properties;
  return (d & kPixelFormatPropertyMask_Order) == kPixelFormatOrder_VUYA &&
         (d & kPixelFormatPropertyMask_Sample) == kPixelFormatSample_8u;
}

bool IsBT709(PixelFormat format) {
  const std::uint32_t d = format.properties;
  return (d & kPixelFormatPropertyMask_Class) == kPixelFormatClass_Described &&
         (d & kPixelFormatProperty_BT709);
}

}  // namespace zelmediatypes
