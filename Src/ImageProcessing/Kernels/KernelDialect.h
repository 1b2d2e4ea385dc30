// The kernel dialect: the small vocabulary in which every kernel source is written, so that one text is
// both OpenCL C 1.2 (flattened with this header and built by the OpenCL runtime) and CUDA C++ (included by
// a generated .cu wrapper and compiled to PTX). Every word is defined for both targets, even where one of
// them needs nothing; a source uses nothing else that differs between the two.
//
//   LM_KERNEL                 starts a kernel definition
//   LM_DEVICE                 starts a helper function called from kernels
//   LM_GLOBAL                 the address space of buffer parameters
//   LM_GLOBAL_X, LM_GLOBAL_Y  the thread's global x and y index, as int
//   LM_MAKE_FLOAT2, LM_MAKE_FLOAT4, LM_MAKE_INT2, LM_MAKE_INT4   vector construction (sources never write the
//                             (float4)(...) literal)
//   LM_LoadPixel, LM_StorePixel    one pixel as float4: four IEEE halves (8 bytes) when is32f is 0, four
//                                  floats (16 bytes) otherwise; stores round to nearest even
//   LM_CopyPixel              moves one pixel's 8 or 16 bytes unchanged (NaN payloads and -0 survive)
//   LM_Add4, LM_Sub4, LM_Mul4, LM_Scale4, LM_Clamp4   float4 arithmetic (CUDA has no float4 operators)
//   LM_Round, LM_Pow          float rounding to nearest (ties to even) and power
//   LM_KERNEL_WITH_PARAMETERS(name, LIST)   starts the definition of kernel `name` with the parameters of a
//                             parameter list (KernelLists.h); a TEXTURE parameter is an image2d_t on OpenCL
//                             and nothing on CUDA, where the kernel samples the module's texture reference
//                             of that name (the build declares it in the PTX, since CUDA C++ no longer can)
//   LM_PARAMETER_DECLARATIONS(LIST), LM_ARGUMENTS(LIST)   the same parameters for a helper function, and
//                             the kernel's arguments passed on to it
//   LM_SampleTexture(name, x, y)   the texel at integer (x, y) as float4; OpenCL samples unnormalised,
//                             nearest and clamped to the edge; on CUDA the host sets the reference's modes
//
// LM_OPENCL and LM_CUDA are 1 for the target being compiled and 0 for the other, for the rare kernel that
// exists on one framework only.
#ifndef LUMORA_KERNEL_DIALECT_H
#define LUMORA_KERNEL_DIALECT_H

#include "KernelLists.h"

#if defined(__CUDACC__)
#define LM_CUDA 1
#define LM_OPENCL 0
#elif defined(__OPENCL_VERSION__)
#define LM_CUDA 0
#define LM_OPENCL 1
#else
#error "KernelDialect.h is for OpenCL C and CUDA kernel sources"
#endif

#if LM_OPENCL

#define LM_KERNEL __kernel void
#define LM_DEVICE static inline
#define LM_GLOBAL __global
#define LM_GLOBAL_X ((int)get_global_id(0))
#define LM_GLOBAL_Y ((int)get_global_id(1))
#define LM_MAKE_FLOAT2(x, y) ((float2)((x), (y)))
#define LM_MAKE_FLOAT4(x, y, z, w) ((float4)((x), (y), (z), (w)))
#define LM_MAKE_INT2(x, y) ((int2)((x), (y)))
#define LM_MAKE_INT4(x, y, z, w) ((int4)((x), (y), (z), (w)))

LM_DEVICE float4 LM_LoadPixel(LM_GLOBAL const float* buffer, int index, int is32f) {
  return is32f ? vload4(index, buffer) : vload_half4(index, (LM_GLOBAL const half*)buffer);
}

LM_DEVICE void LM_StorePixel(LM_GLOBAL float* buffer, int index, float4 value, int is32f) {
  if (is32f) {
    vstore4(value, index, buffer);
  } else {
    vstore_half4_rte(value, index, (LM_GLOBAL half*)buffer);
  }
}

LM_DEVICE float4 LM_Add4(float4 a, float4 b) {
  return a + b;
}
LM_DEVICE float4 LM_Sub4(float4 a, float4 b) {
  return a - b;
}
LM_DEVICE float4 LM_Mul4(float4 a, float4 b) {
  return a * b;
}
LM_DEVICE float4 LM_Scale4(float4 a, float s) {
  return a * s;
}
// fmin and fmax, as on CUDA, so both targets treat NaN alike.
LM_DEVICE float4 LM_Clamp4(float4 a, float lo, float hi) {
  return fmin(fmax(a, lo), hi);
}

#define LM_Round(x) rint(x)
#define LM_Pow(x, y) pow((x), (y))

#define LM_DECLARE_TEXTURE(name) , __read_only image2d_t name
#define LM_DECLARE_IMAGE_OUT(name) , __write_only image2d_t name
#define LM_PASS_TEXTURE(name) , name
#define LM_PASS_IMAGE_OUT(name) , name
__constant sampler_t LM_TextureSampler =
    CLK_NORMALIZED_COORDS_FALSE | CLK_ADDRESS_CLAMP_TO_EDGE | CLK_FILTER_NEAREST;
#define LM_SampleTexture(name, x, y) read_imagef((name), LM_TextureSampler, LM_MAKE_INT2((x), (y)))

#else  // LM_CUDA

#include <cuda_fp16.h>

typedef unsigned char uchar;
typedef unsigned short ushort;

#define LM_KERNEL extern "C" __global__ void
#define LM_DEVICE static __device__ __forceinline__
#define LM_GLOBAL
#define LM_GLOBAL_X ((int)(blockIdx.x * blockDim.x + threadIdx.x))
#define LM_GLOBAL_Y ((int)(blockIdx.y * blockDim.y + threadIdx.y))
#define LM_MAKE_FLOAT2(x, y) make_float2((x), (y))
#define LM_MAKE_FLOAT4(x, y, z, w) make_float4((x), (y), (z), (w))
#define LM_MAKE_INT2(x, y) make_int2((x), (y))
#define LM_MAKE_INT4(x, y, z, w) make_int4((x), (y), (z), (w))

LM_DEVICE float4 LM_LoadPixel(const float* buffer, int index, int is32f) {
  if (is32f) return reinterpret_cast<const float4*>(buffer)[index];
  const ushort4 h = reinterpret_cast<const ushort4*>(buffer)[index];
  return make_float4(__half2float(__ushort_as_half(h.x)), __half2float(__ushort_as_half(h.y)),
                     __half2float(__ushort_as_half(h.z)), __half2float(__ushort_as_half(h.w)));
}

LM_DEVICE void LM_StorePixel(float* buffer, int index, float4 value, int is32f) {
  if (is32f) {
    reinterpret_cast<float4*>(buffer)[index] = value;
  } else {
    reinterpret_cast<ushort4*>(buffer)[index] =
        make_ushort4(__half_as_ushort(__float2half_rn(value.x)), __half_as_ushort(__float2half_rn(value.y)),
                     __half_as_ushort(__float2half_rn(value.z)), __half_as_ushort(__float2half_rn(value.w)));
  }
}

LM_DEVICE float4 LM_Add4(float4 a, float4 b) {
  return make_float4(a.x + b.x, a.y + b.y, a.z + b.z, a.w + b.w);
}
LM_DEVICE float4 LM_Sub4(float4 a, float4 b) {
  return make_float4(a.x - b.x, a.y - b.y, a.z - b.z, a.w - b.w);
}
LM_DEVICE float4 LM_Mul4(float4 a, float4 b) {
  return make_float4(a.x * b.x, a.y * b.y, a.z * b.z, a.w * b.w);
}
LM_DEVICE float4 LM_Scale4(float4 a, float s) {
  return make_float4(a.x * s, a.y * s, a.z * s, a.w * s);
}
LM_DEVICE float4 LM_Clamp4(float4 a, float lo, float hi) {
  return make_float4(fminf(fmaxf(a.x, lo), hi), fminf(fmaxf(a.y, lo), hi), fminf(fmaxf(a.z, lo), hi),
                     fminf(fmaxf(a.w, lo), hi));
}

#define LM_Round(x) rintf(x)
#define LM_Pow(x, y) powf((x), (y))

#define LM_DECLARE_TEXTURE(name)
#define LM_DECLARE_IMAGE_OUT(name)
#define LM_PASS_TEXTURE(name)
#define LM_PASS_IMAGE_OUT(name)
// The texture reference is named in the instruction text only; the build adds its `.global .texref`
// declaration to the PTX, since CUDA C++ cannot declare one.
// The coordinates are named px and py so that arguments never replace the members texel.x and texel.y.
#define LM_SampleTexture(name, px, py)                                        \
  ([&]() {                                                                    \
    float4 texel;                                                             \
    asm volatile("tex.2d.v4.f32.s32 {%0, %1, %2, %3}, [" #name ", {%4, %5}];" \
                 : "=f"(texel.x), "=f"(texel.y), "=f"(texel.z), "=f"(texel.w) \
                 : "r"((int)(px)), "r"((int)(py)));                           \
    return texel;                                                             \
  }())

#endif

// Kernel parameters from a parameter list: each entry expands to ", <declaration>" (a texture to nothing on
// CUDA) and LM_REST drops the first comma.
#define LM_DECLARE_PARAMETER(kind, name) LM_DECLARE_##kind(name)
#define LM_DECLARE_BUFFER(name) , LM_GLOBAL float* name
#define LM_DECLARE_IN_BUFFER(name) , LM_GLOBAL const float* name
#define LM_DECLARE_IN_BYTES(name) , LM_GLOBAL const uchar* name
#define LM_DECLARE_BYTES(name) , LM_GLOBAL uchar* name
#define LM_DECLARE_INT(name) , int name
#define LM_DECLARE_FLOAT(name) , float name
#define LM_DECLARE_FLOAT4(name) , float4 name
#define LM_PARAMETER_DECLARATIONS(LIST) LM_REST(LIST(LM_DECLARE_PARAMETER))
#define LM_KERNEL_WITH_PARAMETERS(name, LIST) LM_KERNEL name(LM_PARAMETER_DECLARATIONS(LIST))

#define LM_PASS_ARGUMENT(kind, name) LM_PASS_##kind(name)
#define LM_PASS_BUFFER(name) , name
#define LM_PASS_IN_BUFFER(name) , name
#define LM_PASS_IN_BYTES(name) , name
#define LM_PASS_BYTES(name) , name
#define LM_PASS_INT(name) , name
#define LM_PASS_FLOAT(name) , name
#define LM_PASS_FLOAT4(name) , name
#define LM_ARGUMENTS(LIST) LM_REST(LIST(LM_PASS_ARGUMENT))

// Moves one pixel's bytes without converting them: 8 bytes for halves, 16 for floats.
LM_DEVICE void LM_CopyPixel(LM_GLOBAL const float* src, int srcIndex, LM_GLOBAL float* dst, int dstIndex,
                            int is32f) {
  if (is32f) {
    ((LM_GLOBAL uint4*)dst)[dstIndex] = ((LM_GLOBAL const uint4*)src)[srcIndex];
  } else {
    ((LM_GLOBAL uint2*)dst)[dstIndex] = ((LM_GLOBAL const uint2*)src)[srcIndex];
  }
}

#endif  // LUMORA_KERNEL_DIALECT_H
