// The host side of the test-only modules, declared as the library declares its own kernels: the texture
// probe, the dialect probe, and a family of three variants on a row of blocks.
#pragma once

#include "ImageProcessing/KernelFamily.h"
#include "ProbeParameters.h"

LM_KERNEL_PARAMETERS(SampleTextureParameters, LM_PARAMETERS_SampleTextureKernel);
LM_KERNEL_PARAMETERS(PixelArithmeticParameters, LM_PARAMETERS_PixelArithmeticKernel);
LM_KERNEL_PARAMETERS(FamilyProbeParameters, LM_PARAMETERS_FamilyProbe);

inline LM::KernelFamily<SampleTextureParameters, 1> sampleTextureKernel("TextureProbe",
                                                                        {"SampleTextureKernel"});
inline LM::KernelFamily<PixelArithmeticParameters, 1> pixelArithmeticKernel("DialectProbe",
                                                                            {"PixelArithmeticKernel"});
inline LM::KernelFamily<FamilyProbeParameters, LM_VARIANT_COUNT(FamilyProbe)> familyProbe(
    "FamilyProbe", LM_VARIANT_NAMES(FamilyProbe), LM::KernelFamilyOptions{}.Geometry(LM::RowOfBlocks32Or16));
