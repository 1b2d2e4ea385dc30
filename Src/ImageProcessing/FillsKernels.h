// The kernel of the fills, from its parameter list.
#pragma once

#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/Kernels/FillsParameters.h"

namespace LM {

LM_KERNEL_PARAMETERS(FillWithColorParameters, LM_PARAMETERS_FillWithColorKernel);
inline KernelFamily<FillWithColorParameters, 1> fillWithColorKernel("..\\..\\Src\\ImageProcessing\\Fills",
                                                                    {"FillWithColorKernel"});

}  // namespace LM
