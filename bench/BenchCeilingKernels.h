// The ceiling kernels of the conversion benchmarks (kernels/BenchCeiling.cl), with the parameter lists of the
// conversions they stand beside. The kernel checks cover them too when the benchmarks are built.
#pragma once

#include "ImageProcessing/CompositeKernels.h"
#include "ImageProcessing/GaussianBlurKernels.h"
#include "ImageProcessing/GeometryKernels.h"
#include "ImageProcessing/KernelFamily.h"
#include "ImageProcessing/PixelFormatConvertKernels.h"

inline LM::KernelFamily<LM::PixelFormatConvertParameters, 2> packedCeilingKernels(
    "BenchCeiling",
    {"Ceiling_UYVY_422_8u_To_BGRA_4444_32f_Kernel", "Ceiling_BGRA_4444_32f_To_V210_422_10u_Kernel"});
inline LM::KernelFamily<LM::PixelFormatConvert420FrameParameters, 1> planarCeilingKernel(
    "BenchCeiling", {"Ceiling_YUV_420_To_BGRA_4444_32f_Kernel"});
inline LM::KernelFamily<LM::CompositeParameters, 1> compositeCeilingKernel("BenchCeiling",
                                                                           {"Ceiling_Composite_Kernel"});
inline LM::KernelFamily<LM::RecursiveGaussianParameters, 2> gaussianCeilingKernels(
    "BenchCeiling", {"Ceiling_GaussianRows_Kernel", "Ceiling_GaussianColumns_Kernel"},
    LM::KernelFamilyOptions{}.Geometry(LM::RowOfBlocks32Or16));
inline LM::KernelFamily<LM::MotionParameters, 1> scaleCeilingKernel("BenchCeiling", {"Ceiling_Scale_Kernel"});
inline LM::KernelFamily<LM::DeinterlaceParameters, 1> deinterlaceCeilingKernel(
    "BenchCeiling", {"Ceiling_Deinterlace_Kernel"});
