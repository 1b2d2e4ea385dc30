// The kernels that the checks cover: the library's catalog and the test-only modules (TextureProbe,
// DialectProbe), declared the way the library declares its own.
#pragma once

#include <cstddef>
#include <vector>

#include "ImageProcessing/KernelSignature.h"

inline std::vector<const LM::KernelSignature*> CheckedKernels() {
  using K = LM::KernelParameterKind;
  static constexpr K kProbe[] = {K::kDevicePointer, K::kInt, K::kInt, K::kInt, K::kInt, K::kInt, K::kImage};
  static constexpr LM::KernelSignature kSampleTexture = {"TextureProbe", "SampleTextureKernel", kProbe, 7};
  static constexpr K kArithmetic[] = {K::kDevicePointer, K::kDevicePointer, K::kInt,    K::kInt,   K::kInt,
                                      K::kInt,           K::kFloat,         K::kFloat4, K::kFloat4};
  static constexpr LM::KernelSignature kPixelArithmetic = {"DialectProbe", "PixelArithmeticKernel",
                                                           kArithmetic, 9};
  std::size_t count = 0;
  const LM::KernelSignature* const* catalog = LM::KernelCatalog(count);
  std::vector<const LM::KernelSignature*> kernels(catalog, catalog + count);
  kernels.push_back(&kSampleTexture);
  kernels.push_back(&kPixelArithmetic);
  return kernels;
}
