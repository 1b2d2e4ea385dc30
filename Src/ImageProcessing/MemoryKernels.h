// The kernels of the device memory copies, from their parameter lists.
#pragma once

#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/Kernels/MemoryParameters.h"

namespace LM {

constexpr const char kMemoryModuleKey[] = "..\\..\\Src\\ImageProcessing\\Memory";

LM_KERNEL_PARAMETERS(CopyMemory2DParameters, LM_PARAMETERS_CopyMemory2DKernel);
LM_KERNEL_PARAMETERS(CopyRectParameters, LM_PARAMETERS_CopyRectKernel);
LM_KERNEL_PARAMETERS(CopyBufferToImageParameters, LM_PARAMETERS_CopyBufferToImageKernel);

// The variants of both copies: pixels of the GPU formats, or single bytes of any other format.
enum CopyVariant : std::size_t { kCopyPixels, kCopyBytes };
inline KernelFamily<CopyMemory2DParameters, 2> copyMemory2DKernels(kMemoryModuleKey, {"CopyMemory2DKernel",
                                                                                      "CopyBytes2DKernel"});
inline KernelFamily<CopyRectParameters, 2> copyRectKernels(kMemoryModuleKey,
                                                           {"CopyRectKernel", "CopyBytesRectKernel"});
// Images are OpenCL's; a CUDA kernel samples a texture bound to the buffer instead.
inline KernelFamily<CopyBufferToImageParameters, 1> copyBufferToImageKernel(
    kMemoryModuleKey, {"CopyBufferToImageKernel"}, KernelFamilyOptions{}.OpenCLOnly());

}  // namespace LM
