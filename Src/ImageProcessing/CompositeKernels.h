// The kernels of the composite and of the per-pixel operations, from their parameter lists.
#pragma once

#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/Kernels/CompositeParameters.h"
#include "ImageProcessing/Kernels/PointOperationsParameters.h"
#include "SK/BlendMode.h"

namespace LM {

LM_KERNEL_PARAMETERS(CompositeParameters, LM_PARAMETERS_Composite);
// One kernel per blend mode, variant i for SK_BlendMode value i. A mode without its kernel is unsupported.
inline KernelFamily<CompositeParameters, LM_VARIANT_COUNT(Composite)> compositeKernels(
    "Composite", LM_VARIANT_NAMES(Composite), KernelFamilyOptions{}.MissingKernelResult(kResultUnsupported));
static_assert(LM_VARIANT_COUNT(Composite) == kBlendMode_Divide + 1, "one kernel per host blend mode");

LM_KERNEL_PARAMETERS(CrossDissolveParameters, LM_PARAMETERS_CrossDissolveKernel);
LM_KERNEL_PARAMETERS(AccumulateParameters, LM_PARAMETERS_AccumulateKernel);
LM_KERNEL_PARAMETERS(AlphaGainParameters, LM_PARAMETERS_AlphaGainKernel);
LM_KERNEL_PARAMETERS(UnpremultiplyParameters, LM_PARAMETERS_UnpremultiplyKernel);
inline KernelFamily<CrossDissolveParameters, 1> crossDissolveKernel(
    "..\\..\\Src\\ImageProcessing\\CrossDissolve", {"CrossDissolveKernel"});
inline KernelFamily<AccumulateParameters, 1> accumulateKernel("..\\..\\Src\\ImageProcessing\\Accumulate",
                                                              {"AccumulateKernel"});
inline KernelFamily<AlphaGainParameters, 1> alphaGainKernel("..\\..\\Src\\ImageProcessing\\AlphaGain",
                                                            {"AlphaGainKernel"});
inline KernelFamily<UnpremultiplyParameters, 1> unpremultiplyKernel("..\\..\\Src\\ImageProcessing\\AlphaGain",
                                                                    {"UnpremultiplyKernel"});

}  // namespace LM
