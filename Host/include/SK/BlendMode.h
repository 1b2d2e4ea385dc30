// The host's blend modes, as Composite takes them. The order is the host's: alphabetical, except for the last
// two, which were added later and keep their values.
#pragma once

#include <cstdint>

enum SK_BlendMode : std::int32_t {
  kBlendMode_Color = 0,
  kBlendMode_ColorBurn = 1,
  kBlendMode_ColorDodge = 2,
  kBlendMode_Darken = 3,
  kBlendMode_DarkerColor = 4,
  kBlendMode_Difference = 5,
  kBlendMode_Dissolve = 6,
  kBlendMode_Exclusion = 7,
  kBlendMode_HardLight = 8,
  kBlendMode_HardMix = 9,
  kBlendMode_Hue = 10,
  kBlendMode_Lighten = 11,
  kBlendMode_LighterColor = 12,
  kBlendMode_LinearBurn = 13,
  kBlendMode_LinearDodgeAdd = 14,
  kBlendMode_LinearLight = 15,
  kBlendMode_Luminosity = 16,
  kBlendMode_Multiply = 17,
  kBlendMode_Normal = 18,
  kBlendMode_Overlay = 19,
  kBlendMode_PinLight = 20,
  kBlendMode_Saturation = 21,
  kBlendMode_Screen = 22,
  kBlendMode_SoftLight = 23,
  kBlendMode_VividLight = 24,
  kBlendMode_Subtract = 25,
  kBlendMode_Divide = 26,
};
