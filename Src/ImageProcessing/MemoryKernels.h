// The kernels of the device memory copies.
#pragma once

#include "ImageProcessing/OperationFrame.h"

namespace LM {

// src, source pitch, source offset, dst, destination pitch, destination offset (pitches in pixels, offsets in
// 16-byte units that the kernel counts as pixels), is-32-bit-float flag, width, height.
struct CopyMemory2DKernel
    : Kernel<CopyMemory2DKernel, DevicePointer, int, int, DevicePointer, int, int, int, int, int> {
  static constexpr const char* kModuleKey = "..\\..\\Src\\ImageProcessing\\Memory";
  static constexpr const char* kName = "CopyMemory2DKernel";
};

// src, source pitch, dst, destination pitch, flag, source left and top, destination left and top, width,
// height.
struct CopyRectKernel
    : Kernel<CopyRectKernel, DevicePointer, int, DevicePointer, int, int, int, int, int, int, int, int> {
  static constexpr const char* kModuleKey = "..\\..\\Src\\ImageProcessing\\Memory";
  static constexpr const char* kName = "CopyRectKernel";
};

// src, byte offset, pitch (pixels for four-component formats, else bytes), destination image, width, height.
struct CopyBufferToImageKernel
    : Kernel<CopyBufferToImageKernel, DevicePointer, int, int, ImageObject, int, int> {
  static constexpr const char* kModuleKey = "..\\..\\Src\\ImageProcessing\\Memory";
  static constexpr const char* kName = "CopyBufferToImageKernel";
};

}  // namespace LM
