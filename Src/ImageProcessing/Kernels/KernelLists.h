// The lists that declare kernels, written once and read twice: by the kernel sources (through
// KernelDialect.h), which declare each kernel's parameters from them, and by the host
// (ImageProcessing/KernelFamily.h), which marshals arguments, names kernels and checks them from the same
// lists.
//
// A parameter list is one macro of entries (kind, name), in order:
//   #define LM_PARAMETERS_FillWithColorKernel(P) P(BUFFER, buffer) P(INT, pitch) ... P(FLOAT4, color)
// Kinds: BUFFER (a float buffer the kernel writes), IN_BUFFER (a float buffer it reads), IN_BYTES (a byte
// buffer it reads), BYTES (a byte buffer it writes), INT, FLOAT, FLOAT4, TEXTURE (a sampled image on OpenCL;
// on CUDA no parameter at all, the kernel samples the module's texture reference of that name) and IMAGE_OUT
// (a written image, for kernels that exist on OpenCL only).
//
// A family of variants adds a list of variant names, expanded with a context argument passed through to
// each entry, and the rule that names each variant's kernel:
//   #define LM_VARIANTS_FamilyProbe(V, context) V(context, Add) V(context, Multiply) V(context, Negate)
//   #define LM_NAME_FamilyProbe(variant) FamilyProbe_##variant##_Kernel
// The kernel source defines every variant with one macro over the list; the host builds the names, in the
// same order, with LM_VARIANT_NAMES. A variant's index is its place in the list.
#ifndef LUMORA_KERNEL_LISTS_H
#define LUMORA_KERNEL_LISTS_H

#define LM_STRINGIFY(x) LM_STRINGIFY_(x)
#define LM_STRINGIFY_(x) #x

// Drops the first of its arguments: each entry of a list expands to ", <something>", and LM_REST turns the
// expansion ", a, b, c" into "a, b, c". The extra level lets the list expand before the arguments split.
#define LM_REST(...) LM_REST_(__VA_ARGS__)
#define LM_REST_(first, ...) __VA_ARGS__

#endif  // LUMORA_KERNEL_LISTS_H
