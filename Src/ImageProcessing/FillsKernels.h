// The kernel of the fills, from its parameter list.
#pragma once

#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/Kernels/FillsParameters.h"

namespace LM {

LM_KERNEL_PARAMETERS(FillWithColorParameters, LM_PARAMETERS_FillWithColorKernel);
// The fills refuse a format that is not a GPU format as a failure: kResultUnsupported is for the
// operations that choose a kernel by format.
inline KernelFamily<FillWithColorParameters, 1> fillWithColorKernel(
    "..\\..\\Src\\ImageProcessing\\Fills", {"FillWithColorKernel"},
    KernelFamilyOptions{}.RefusedFormatResult(kResultFailed));

}  // namespace LM
