// The parameter list of a GPU kernel, declared once on the host. The CUDA parameter layout (each value at
// the next multiple of its own alignment, then the total size) and the OpenCL argument sequence (one
// clSetKernelArg per value, by its size) are both derived from it, and a kernel check compares it with the
// `.entry` parameter lists of the generated PTX, so host and kernel cannot drift apart.
#pragma once

#include <cstddef>
#include <cstdint>

namespace LM {

enum class KernelParameterKind : std::uint8_t {
  kDevicePointer,  // a device buffer: CUdeviceptr (.u64) or cl_mem
  kInt,            // a 32-bit signed integer (.u32 in PTX)
  kFloat,          // a 32-bit float (.f32)
  kFloat4,         // four 32-bit floats (.align 16 .b8 [16])
  kImage,          // an OpenCL image object; absent from the CUDA form, which samples a texture reference
};

struct KernelSignature {
  const char* module;  // the module's name ("Fills")
  const char* name;    // the kernel's name ("FillWithColorKernel")
  const KernelParameterKind* parameters;
  std::size_t count;
};

// Every kernel the library launches, for the kernel check.
const KernelSignature* const* KernelCatalog(std::size_t& count);

}  // namespace LM
