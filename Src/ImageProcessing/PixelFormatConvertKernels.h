// The conversion kernels, from their parameter list and their list of host formats.
#pragma once

#include <zelmediatypes/PixelFormats.h>

#include <cstddef>

#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/Kernels/PixelFormatConvertParameters.h"

namespace LM {

LM_KERNEL_PARAMETERS(PixelFormatConvertParameters, LM_PARAMETERS_PixelFormatConvert);

// The host formats of the four-component family, in list order.
#define LM_CONVERT_HOST_FORMAT(name, order, sample, alpha, colour) zelmediatypes::kPixelFormat_##name,
constexpr PixelFormat kConvert444Formats[] = {LM_FORMATS_PixelFormatConvert444(LM_CONVERT_HOST_FORMAT)};
#undef LM_CONVERT_HOST_FORMAT
constexpr std::size_t kConvert444FormatCount = sizeof kConvert444Formats / sizeof kConvert444Formats[0];

// Variant 0 converts between GPU formats; host format i of the list has variants 1 + 2i (into a GPU format)
// and 2 + 2i (from one).
constexpr std::size_t kConvertBetweenGPUFormats = 0;
constexpr std::size_t FromHostVariant(std::size_t format) {
  return 1 + 2 * format;
}
constexpr std::size_t ToHostVariant(std::size_t format) {
  return 2 + 2 * format;
}

#define LM_CONVERT_KERNEL_NAMES(name, order, sample, alpha, colour) \
  LM_STRINGIFY(LM_NAME_PixelFormatConvertFromHost(name)),           \
      LM_STRINGIFY(LM_NAME_PixelFormatConvertToHost(name)),
// A pair without a kernel is a format the converter does not support, not a failure.
inline KernelFamily<PixelFormatConvertParameters, 1 + 2 * kConvert444FormatCount>
    pixelFormatConvert444Kernels("PixelFormatConvert_444",
                                 {LM_STRINGIFY(LM_NAME_PixelFormatConvertGPU),
                                  LM_FORMATS_PixelFormatConvert444(LM_CONVERT_KERNEL_NAMES)},
                                 KernelFamilyOptions{}.MissingKernelResult(kResultUnsupported));

// The packed 4:2:2 host formats, in list order, with variants 2i (into a GPU format) and 2i + 1 (from one).
#define LM_CONVERT_422_FORMAT(name, packing, matrix) zelmediatypes::kPixelFormat_##name,
constexpr PixelFormat kConvert422Formats[] = {LM_FORMATS_PixelFormatConvert422(LM_CONVERT_422_FORMAT)};
#undef LM_CONVERT_422_FORMAT
constexpr std::size_t kConvert422FormatCount = sizeof kConvert422Formats / sizeof kConvert422Formats[0];
// The pixels of each format's packing group (a pair, or v210's six in 16 bytes); its pitch counts groups.
#define LM_CONVERT_422_GROUP(name, packing, matrix) LM_CONVERT_GROUP_PIXELS_##packing,
#define LM_CONVERT_GROUP_PIXELS_UYVY 2
#define LM_CONVERT_GROUP_PIXELS_YUYV 2
#define LM_CONVERT_GROUP_PIXELS_V210 6
constexpr int kConvert422GroupPixels[] = {LM_FORMATS_PixelFormatConvert422(LM_CONVERT_422_GROUP)};
#undef LM_CONVERT_422_GROUP
constexpr int GroupBytes(int groupPixels) {
  return groupPixels == 6 ? 16 : 4;
}

#define LM_CONVERT_422_KERNEL_NAMES(name, packing, matrix) \
  LM_STRINGIFY(LM_NAME_PixelFormatConvertFromHost(name)),  \
      LM_STRINGIFY(LM_NAME_PixelFormatConvertToHost(name)),
inline KernelFamily<PixelFormatConvertParameters, 2 * kConvert422FormatCount> pixelFormatConvert422Kernels(
    "PixelFormatConvert_422", {LM_FORMATS_PixelFormatConvert422(LM_CONVERT_422_KERNEL_NAMES)},
    KernelFamilyOptions{}.MissingKernelResult(kResultUnsupported));

// The planar 4:2:0 source formats: FRAME pictures, then FIELD pictures, each into a GPU format.
LM_KERNEL_PARAMETERS(PixelFormatConvert420FrameParameters, LM_PARAMETERS_PixelFormatConvert420Frame);
LM_KERNEL_PARAMETERS(PixelFormatConvert420FieldParameters, LM_PARAMETERS_PixelFormatConvert420Field);
#define LM_CONVERT_420_FORMAT(name, siting, matrix, range) zelmediatypes::kPixelFormat_##name,
constexpr PixelFormat kConvert420FrameFormats[] = {
    LM_FORMATS_PixelFormatConvert420Frame(LM_CONVERT_420_FORMAT)};
constexpr PixelFormat kConvert420FieldFormats[] = {
    LM_FORMATS_PixelFormatConvert420Field(LM_CONVERT_420_FORMAT)};
#undef LM_CONVERT_420_FORMAT
constexpr std::size_t kConvert420FormatCount =
    sizeof kConvert420FrameFormats / sizeof kConvert420FrameFormats[0];
static_assert(sizeof kConvert420FieldFormats == sizeof kConvert420FrameFormats);

#define LM_CONVERT_420_KERNEL_NAME(name, siting, matrix, range) \
  LM_STRINGIFY(LM_NAME_PixelFormatConvertFromHost(name)),
inline KernelFamily<PixelFormatConvert420FrameParameters, kConvert420FormatCount>
    pixelFormatConvert420FrameKernels("PixelFormatConvert_420",
                                      {LM_FORMATS_PixelFormatConvert420Frame(LM_CONVERT_420_KERNEL_NAME)},
                                      KernelFamilyOptions{}.MissingKernelResult(kResultUnsupported));
inline KernelFamily<PixelFormatConvert420FieldParameters, kConvert420FormatCount>
    pixelFormatConvert420FieldKernels("PixelFormatConvert_420",
                                      {LM_FORMATS_PixelFormatConvert420Field(LM_CONVERT_420_KERNEL_NAME)},
                                      KernelFamilyOptions{}.MissingKernelResult(kResultUnsupported));

}  // namespace LM
