// Every kernel family the library launches. The kernel check compares this list with the generated PTX and
// the OpenCL texts, so a family added to the library is added here too.
#include "ImageProcessing/CompositeKernels.h"
#include "ImageProcessing/FillsKernels.h"
#include "ImageProcessing/GaussianBlurKernels.h"
#include "ImageProcessing/GeometryKernels.h"
#include "ImageProcessing/MemoryKernels.h"
#include "ImageProcessing/PixelFormatConvertKernels.h"

namespace LM {

std::vector<KernelSignature> KernelCatalog() {
  std::vector<KernelSignature> signatures;
  AppendSignatures(signatures, fillWithColorKernel, copyMemory2DKernels, copyRectKernels,
                   copyBufferToImageKernel, pixelFormatConvert444Kernels, pixelFormatConvert422Kernels,
                   pixelFormatConvert420FrameKernels, pixelFormatConvert420FieldKernels, compositeKernels,
                   crossDissolveKernel, accumulateKernel, alphaGainKernel, unpremultiplyKernel,
                   horizontalKernels, verticalKernels, firstHalfKernels, secondHalfKernels, transposeKernel,
                   fieldReverseKernel, interlaceFieldsKernel, deinterlaceKernel, motionKernels,
                   motionPrepSourceKernel, horizontalOnlyScaleKernel);
  return signatures;
}

}  // namespace LM
