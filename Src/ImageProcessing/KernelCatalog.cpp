// Every kernel the library launches, by its host declaration. The kernel check compares this list with the
// generated PTX, so a kernel added to a family is added here too.
#include "ImageProcessing/FillsKernels.h"
#include "ImageProcessing/MemoryKernels.h"

namespace LM {

const KernelSignature* const* KernelCatalog(std::size_t& count) {
  static const KernelSignature signatures[] = {
      FillWithColorKernel::Signature(),
      CopyMemory2DKernel::Signature(),
      CopyRectKernel::Signature(),
      CopyBufferToImageKernel::Signature(),
  };
  static const KernelSignature* const catalog[] = {&signatures[0], &signatures[1], &signatures[2], &signatures[3]};
  count = sizeof catalog / sizeof catalog[0];
  return catalog;
}

}  // namespace LM
