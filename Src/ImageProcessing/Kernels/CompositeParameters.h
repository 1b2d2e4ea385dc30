// The parameters of the kernels of module Composite and its list of blend modes (KernelLists.h).
#ifndef LUMORA_COMPOSITE_PARAMETERS_H
#define LUMORA_COMPOSITE_PARAMETERS_H

// The layer, the background and the output with their pitches in pixels, the is-32-bit-float flag, the
// extent, the opacity, and whether the format has no alpha (BGRX: alpha read as 1 and written as 1).
// clang-format off
#define LM_PARAMETERS_Composite(P)                                                                  \
  P(IN_BUFFER, layer) P(INT, layerPitch) P(IN_BUFFER, background) P(INT, backgroundPitch)          \
  P(BUFFER, out) P(INT, outPitch) P(INT, is32f) P(INT, width) P(INT, height) P(FLOAT, opacity)     \
  P(INT, opaque)
// clang-format on

// The blend modes in the host's order (SK_BlendMode): a mode's index in the list is its value.
// clang-format off
#define LM_VARIANTS_Composite(V, context)                                                           \
  V(context, Color) V(context, ColorBurn) V(context, ColorDodge) V(context, Darken)                 \
  V(context, DarkerColor) V(context, Difference) V(context, Dissolve) V(context, Exclusion)         \
  V(context, HardLight) V(context, HardMix) V(context, Hue) V(context, Lighten)                     \
  V(context, LighterColor) V(context, LinearBurn) V(context, LinearDodgeAdd) V(context, LinearLight) \
  V(context, Luminosity) V(context, Multiply) V(context, Normal) V(context, Overlay)                \
  V(context, PinLight) V(context, Saturation) V(context, Screen) V(context, SoftLight)              \
  V(context, VividLight) V(context, Subtract) V(context, Divide)
// clang-format on
#define LM_NAME_Composite(mode) BlendMode_kBlendMode_##mode##_Kernel

#endif  // LUMORA_COMPOSITE_PARAMETERS_H
