// The kernels of the Gaussian blur, from their parameter lists.
#pragma once

#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/Kernels/GaussianBlurParameters.h"

namespace LM {

LM_KERNEL_PARAMETERS(RecursiveGaussianParameters, LM_PARAMETERS_RecursiveGaussian);
LM_KERNEL_PARAMETERS(GaussianHalfPassParameters, LM_PARAMETERS_GaussianHalfPass);
LM_KERNEL_PARAMETERS(GaussianTransposeParameters, LM_PARAMETERS_GaussianTranspose);

constexpr const char* kGaussianBlurModule = "GaussianBlur";
// One work item per row or column, in blocks of 32 (16 below compute capability 2.0); the vertical kernels
// prefer shared memory to L1 cache there.
constexpr KernelFamilyOptions kGaussianLineOptions = KernelFamilyOptions{}.Geometry(RowOfBlocks32Or16);
inline KernelFamily<RecursiveGaussianParameters, 2> horizontalKernels(
    kGaussianBlurModule,
    {"HorizontalRecursiveGaussianRGBAF16_kernel", "HorizontalRecursiveGaussianRGBAF32_kernel"},
    kGaussianLineOptions);
inline KernelFamily<RecursiveGaussianParameters, 2> verticalKernels(
    kGaussianBlurModule,
    {"VerticalRecursiveGaussianRGBAF16_kernel", "VerticalRecursiveGaussianRGBAF32_kernel"},
    kGaussianLineOptions.PreferSharedMemory());
// The AMD path: variant 0 is zero beyond the edges ("_0bc"), 1 extends them ("_rbc").
inline KernelFamily<GaussianHalfPassParameters, 2> firstHalfKernels(
    kGaussianBlurModule, {"amdabe_gb_verthalf1_0bc", "amdabe_gb_verthalf1_rbc"}, kGaussianLineOptions);
inline KernelFamily<GaussianHalfPassParameters, 2> secondHalfKernels(
    kGaussianBlurModule, {"amdabe_gb_verthalf2_0bc", "amdabe_gb_verthalf2_rbc"}, kGaussianLineOptions);
inline KernelFamily<GaussianTransposeParameters, 1> transposeKernel(kGaussianBlurModule,
                                                                    {"amdabe_gb_transpose"},
                                                                    KernelFamilyOptions{});

}  // namespace LM
