// The kernels of the device memory copies, from their parameter lists.
#pragma once

#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/Kernels/MemoryParameters.h"

namespace LM {

constexpr const char kMemoryModuleKey[] = "..\\..\\Src\\ImageProcessing\\Memory";

LM_KERNEL_PARAMETERS(CopyMemory2DParameters, LM_PARAMETERS_CopyMemory2DKernel);
LM_KERNEL_PARAMETERS(CopyRectParameters, LM_PARAMETERS_CopyRectKernel);
LM_KERNEL_PARAMETERS(CopyBufferToImageParameters, LM_PARAMETERS_CopyBufferToImageKernel);

inline KernelFamily<CopyMemory2DParameters, 1> copyMemory2DKernel(kMemoryModuleKey, {"CopyMemory2DKernel"});
inline KernelFamily<CopyRectParameters, 1> copyRectKernel(kMemoryModuleKey, {"CopyRectKernel"});
// Images are OpenCL's; a CUDA kernel samples a texture bound to the buffer instead.
inline KernelFamily<CopyBufferToImageParameters, 1> copyBufferToImageKernel(
    kMemoryModuleKey, {"CopyBufferToImageKernel"}, KernelFamilyOptions{}.OpenCLOnly());

}  // namespace LM
