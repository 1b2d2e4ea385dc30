// The kernels that the checks cover: the library's catalog and the test-only modules.
#pragma once

#include <vector>

#include "ProbeKernels.h"

inline std::vector<LM::KernelSignature> CheckedKernels() {
  std::vector<LM::KernelSignature> kernels = LM::KernelCatalog();
  LM::AppendSignatures(kernels, sampleTextureKernel, pixelArithmeticKernel, familyProbe);
  return kernels;
}
