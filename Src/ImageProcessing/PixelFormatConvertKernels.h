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

}  // namespace LM
