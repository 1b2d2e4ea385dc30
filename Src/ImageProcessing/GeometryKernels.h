// The kernels of the field operations and the geometry, from their parameter lists.
#pragma once

#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/Kernels/GeometryParameters.h"

namespace LM {

LM_KERNEL_PARAMETERS(FieldReverseParameters, LM_PARAMETERS_FieldReverseKernel);
LM_KERNEL_PARAMETERS(InterlaceFieldsParameters, LM_PARAMETERS_InterlaceFieldsKernel);
LM_KERNEL_PARAMETERS(DeinterlaceParameters, LM_PARAMETERS_DeinterlaceKernel);
LM_KERNEL_PARAMETERS(MotionParameters, LM_PARAMETERS_MotionKernel);
LM_KERNEL_PARAMETERS(MotionPrepSourceParameters, LM_PARAMETERS_MotionPrepSourceKernel);
LM_KERNEL_PARAMETERS(HorizontalOnlyScaleParameters, LM_PARAMETERS_HorizontalOnlyScaleKernel);

constexpr const char* kFieldReverseModule = "..\\..\\Src\\ImageProcessing\\FieldReverse";
constexpr const char* kDeinterlaceModule = "..\\..\\Src\\ImageProcessing\\Deinterlace";
constexpr const char* kMotionModule = "..\\..\\Src\\ImageProcessing\\Motion";

inline KernelFamily<FieldReverseParameters, 1> fieldReverseKernel(kFieldReverseModule,
                                                                  {"FieldReverseKernel"});
inline KernelFamily<InterlaceFieldsParameters, 1> interlaceFieldsKernel(kFieldReverseModule,
                                                                        {"InterlaceFieldsKernel"});
inline KernelFamily<DeinterlaceParameters, 1> deinterlaceKernel(kDeinterlaceModule, {"DeinterlaceKernel"});
// Variant 0 bilinear, 1 bicubic.
inline KernelFamily<MotionParameters, 2> motionKernels(kMotionModule,
                                                       {"MotionKernel", "MotionRenderQuadKernel"});
inline KernelFamily<MotionPrepSourceParameters, 1> motionPrepSourceKernel(kMotionModule,
                                                                          {"MotionPrepSourceKernel"});
inline KernelFamily<HorizontalOnlyScaleParameters, 1> horizontalOnlyScaleKernel(
    kMotionModule, {"HorizontalOnlyScaleKernel"});

}  // namespace LM
