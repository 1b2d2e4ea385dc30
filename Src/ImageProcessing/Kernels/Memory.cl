// module: Memory
// Copies between pitched pixel buffers, and on OpenCL from a linear buffer into an image.
#include "KernelDialect.h"
#include "MemoryParameters.h"

// Pixel (x, y) of the width x height extent, from y * srcPitch + x to y * dstPitch + x counted from each
// buffer's offset. Pitches count pixels; offsets count units of 16 bytes, one 32f pixel or two 16f pixels,
// so that a byte offset that is a multiple of 16 lands where it was meant whatever the format. The bytes
// move unchanged.
LM_KERNEL_WITH_PARAMETERS(CopyMemory2DKernel, LM_PARAMETERS_CopyMemory2DKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const int pixelsPerUnit = is32f ? 1 : 2;
  LM_CopyPixel(src, srcOffset * pixelsPerUnit + y * srcPitch + x, dst, dstOffset * pixelsPerUnit + y * dstPitch + x,
               is32f);
}

// The byte-exact form for every other format: pitches and the width count bytes, offsets 16-byte units.
LM_KERNEL_WITH_PARAMETERS(CopyBytes2DKernel, LM_PARAMETERS_CopyMemory2DKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  ((LM_GLOBAL uchar*)dst)[dstOffset * 16 + y * dstPitch + x] =
      ((LM_GLOBAL const uchar*)src)[srcOffset * 16 + y * srcPitch + x];
}

// The width x height rectangle at (srcLeft, srcTop) of src to (dstLeft, dstTop) of dst; pitches in pixels.
LM_KERNEL_WITH_PARAMETERS(CopyRectKernel, LM_PARAMETERS_CopyRectKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  LM_CopyPixel(src, (srcTop + y) * srcPitch + srcLeft + x, dst, (dstTop + y) * dstPitch + dstLeft + x, is32f);
}

// The byte-exact form: pitches, horizontal positions and the width count bytes.
LM_KERNEL_WITH_PARAMETERS(CopyBytesRectKernel, LM_PARAMETERS_CopyRectKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  ((LM_GLOBAL uchar*)dst)[(dstTop + y) * dstPitch + dstLeft + x] =
      ((LM_GLOBAL const uchar*)src)[(srcTop + y) * srcPitch + srcLeft + x];
}

#if LM_OPENCL

// The bytes of one channel of the image's data type: float, half, or an 8-bit normalised integer.
LM_DEVICE int ChannelBytes(int dataType) {
  return dataType == CLK_FLOAT ? 4 : dataType == CLK_HALF_FLOAT ? 2 : 1;
}

// The channel stored at p in the image's data type, as write_imagef takes it (8-bit values as n / 255).
LM_DEVICE float LoadChannel(LM_GLOBAL const uchar* p, int dataType) {
  if (dataType == CLK_FLOAT) return *(LM_GLOBAL const float*)p;
  if (dataType == CLK_HALF_FLOAT) return vload_half(0, (LM_GLOBAL const half*)p);
  return (float)p[0] / 255.0f;
}

// Pixel (x, y) of the width x height extent, read from the linear buffer at srcOffset (bytes) and written
// to the image at (x, y). The layout of the buffer follows the image: an RGBA image takes four channels a
// pixel and a pitch in pixels; a single-channel (CLK_R) image, used for the packed and planar formats,
// takes one channel a pixel and a pitch in bytes.
LM_KERNEL_WITH_PARAMETERS(CopyBufferToImageKernel, LM_PARAMETERS_CopyBufferToImageKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const int dataType = get_image_channel_data_type(dstImage);
  const int channelBytes = ChannelBytes(dataType);
  const int singleChannel = get_image_channel_order(dstImage) == CLK_R;
  const int elementBytes = singleChannel ? channelBytes : 4 * channelBytes;
  const int pitchBytes = singleChannel ? srcPitch : srcPitch * elementBytes;
  LM_GLOBAL const uchar* p = src + srcOffset + y * pitchBytes + x * elementBytes;
  float4 value = LM_MAKE_FLOAT4(LoadChannel(p, dataType), 0.0f, 0.0f, 1.0f);
  if (!singleChannel) {
    value = LM_MAKE_FLOAT4(value.x, LoadChannel(p + channelBytes, dataType),
                           LoadChannel(p + 2 * channelBytes, dataType),
                           LoadChannel(p + 3 * channelBytes, dataType));
  }
  write_imagef(dstImage, LM_MAKE_INT2(x, y), value);
}

#endif
