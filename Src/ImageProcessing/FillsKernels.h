// The kernel of the fills.
#pragma once

#include "ImageProcessing/OperationFrame.h"

namespace LM {

// buffer, pitch in pixels, is-32-bit-float flag, left, top, width, height, colour.
struct FillWithColorKernel : Kernel<FillWithColorKernel, DevicePointer, int, int, int, int, int, int, float4> {
  static constexpr const char* kModuleKey = "..\\..\\Src\\ImageProcessing\\Fills";
  static constexpr const char* kName = "FillWithColorKernel";
};

}  // namespace LM
