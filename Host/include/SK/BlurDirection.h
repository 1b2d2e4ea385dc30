// The directions of the host's blur: horizontal, vertical, or both.
#pragma once

#include <cstdint>

enum SK_BlurDirection : std::int32_t {
  kBlurDirection_Horizontal = 1,
  kBlurDirection_Vertical = 2,
  kBlurDirection_Both = 3,
};
