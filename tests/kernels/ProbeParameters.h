// The parameters and variants of the test-only modules (KernelLists.h).
#ifndef LUMORA_PROBE_PARAMETERS_H
#define LUMORA_PROBE_PARAMETERS_H

// TextureProbe: the texture's offset in bytes, then the texture, which CUDA samples as a reference.
// clang-format off
#define LM_PARAMETERS_SampleTextureKernel(P)                                                    \
  P(BUFFER, dst) P(INT, pitch) P(INT, is32f) P(INT, width) P(INT, height) P(INT, textureOffset) \
  P(TEXTURE, inProbeTexture)
// clang-format on

// DialectProbe: the float before the two float4 parameters makes the CUDA layout pad.
// clang-format off
#define LM_PARAMETERS_PixelArithmeticKernel(P)                                                     \
  P(IN_BUFFER, src) P(BUFFER, dst) P(INT, pitch) P(INT, is32f) P(INT, width) P(INT, height) \
  P(FLOAT, scale) P(FLOAT4, offset) P(FLOAT4, gain)
// clang-format on

// FamilyProbe: three variants of one parameter list, one row of values each.
#define LM_PARAMETERS_FamilyProbe(P) P(BUFFER, values) P(INT, count) P(FLOAT, operand)
#define LM_VARIANTS_FamilyProbe(V, context) V(context, Add) V(context, Multiply) V(context, Negate)
#define LM_NAME_FamilyProbe(variant) FamilyProbe_##variant##_Kernel

#endif  // LUMORA_PROBE_PARAMETERS_H
