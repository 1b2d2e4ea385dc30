// The kernels that the checks cover: the library's catalog, the test-only modules and, when the benchmarks
// are built, their ceiling kernels.
#pragma once

#include <vector>

#include "ProbeKernels.h"
#if LUMORA_CHECK_BENCH_KERNELS
#include "BenchCeilingKernels.h"
#endif

inline std::vector<LM::KernelSignature> CheckedKernels() {
  std::vector<LM::KernelSignature> kernels = LM::KernelCatalog();
  LM::AppendSignatures(kernels, sampleTextureKernel, pixelArithmeticKernel, familyProbe);
#if LUMORA_CHECK_BENCH_KERNELS
  LM::AppendSignatures(kernels, packedCeilingKernels, planarCeilingKernel, compositeCeilingKernel,
                       gaussianCeilingKernels, scaleCeilingKernel, deinterlaceCeilingKernel);
#endif
  return kernels;
}
