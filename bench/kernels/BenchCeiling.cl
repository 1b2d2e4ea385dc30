// module: BenchCeiling
// The ceiling kernels of the conversion benchmarks. Each has the parameters, the geometry and the reads and
// writes of the conversion it stands beside, and no arithmetic beyond turning what it read into what it
// writes: what it reaches is what the framework can do with that traffic, and the conversion's ratio to it
// is the conversion's own efficiency.
#include "CompositeParameters.h"
#include "GaussianBlurParameters.h"
#include "GeometryParameters.h"
#include "KernelDialect.h"
#include "PixelFormatConvertParameters.h"

// A UYVY pair in (4 bytes), its two pixels out.
LM_KERNEL_WITH_PARAMETERS(Ceiling_UYVY_422_8u_To_BGRA_4444_32f_Kernel, LM_PARAMETERS_PixelFormatConvert) {
  const int pair = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (2 * pair >= width || y >= height) return;
  const uchar4 v = ((LM_GLOBAL const uchar4*)(src + (long)y * srcPitch * 4))[pair];
  LM_StorePixel((LM_GLOBAL float*)dst, y * dstPitch + 2 * pair,
                LM_MAKE_FLOAT4((float)v.x, (float)v.y, (float)v.z, 1.0f), dstIs32f);
  if (2 * pair + 1 < width) {
    LM_StorePixel((LM_GLOBAL float*)dst, y * dstPitch + 2 * pair + 1,
                  LM_MAKE_FLOAT4((float)v.x, (float)v.w, (float)v.z, 1.0f), dstIs32f);
  }
}

// Six pixels in, one v210 group (four words) out.
LM_KERNEL_WITH_PARAMETERS(Ceiling_BGRA_4444_32f_To_V210_422_10u_Kernel, LM_PARAMETERS_PixelFormatConvert) {
  const int group = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (6 * group >= width || y >= height) return;
  float4 p[6];
  for (int i = 0; i < 6; ++i) {
    p[i] = LM_LoadPixel((LM_GLOBAL const float*)src, y * srcPitch + min(6 * group + i, width - 1), srcIs32f);
  }
  LM_GLOBAL uint* words = (LM_GLOBAL uint*)(dst + (long)y * dstPitch * 16) + 4 * group;
  words[0] = (uint)p[0].x ^ ((uint)p[1].y << 10);
  words[1] = (uint)p[2].x ^ ((uint)p[3].y << 10);
  words[2] = (uint)p[4].x ^ ((uint)p[5].y << 10);
  words[3] = (uint)p[1].z ^ ((uint)p[4].z << 10);
}

// One texel of each plane in, one pixel out.
LM_KERNEL_WITH_PARAMETERS(Ceiling_YUV_420_To_BGRA_4444_32f_Kernel, LM_PARAMETERS_PixelFormatConvert420Frame) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const float luma = LM_SampleTexture(inYPlaneTexture, x + yOffset, y).x;
  const float cb = LM_SampleTexture(inFrameCodedUPlaneTexture, x / 2 + uOffset, y / 2).x;
  const float cr = LM_SampleTexture(inFrameCodedVPlaneTexture, x / 2 + vOffset, y / 2).x;
  LM_StorePixel(dst, y * dstPitch + x, LM_MAKE_FLOAT4(cr, cb, luma, 1.0f), dstIs32f);
}

// Two pixels in, their sum out: the traffic of the composite and the cross dissolve.
LM_KERNEL_WITH_PARAMETERS(Ceiling_Composite_Kernel, LM_PARAMETERS_Composite) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const float4 l = LM_LoadPixel(layer, y * layerPitch + x, is32f);
  const float4 b = LM_LoadPixel(background, y * backgroundPitch + x, is32f);
  LM_StorePixel(out, y * outPitch + x, LM_Add4(l, b), is32f);
}

// The traffic of a recursive blur line: read forwards and written, then read and rewritten backwards.
LM_DEVICE void CeilingLine(LM_GLOBAL const float* src, LM_GLOBAL float* dst, int base, int stride, int count) {
  for (int s = 0; s < count; ++s) LM_CopyPixel(src, base + s * stride, dst, base + s * stride, 1);
  for (int s = count - 1; s >= 0; --s) {
    const float4 v = LM_Add4(LM_LoadPixel(src, base + s * stride, 1), LM_LoadPixel(dst, base + s * stride, 1));
    LM_StorePixel(dst, base + s * stride, v, 1);
  }
}
LM_KERNEL_WITH_PARAMETERS(Ceiling_GaussianRows_Kernel, LM_PARAMETERS_RecursiveGaussian) {
  const int row = LM_GLOBAL_X;
  if (row < dstHeight) CeilingLine(src, dst, row * srcPitch, 1, srcWidth);
}
LM_KERNEL_WITH_PARAMETERS(Ceiling_GaussianColumns_Kernel, LM_PARAMETERS_RecursiveGaussian) {
  const int column = LM_GLOBAL_X;
  if (column < dstWidth) CeilingLine(src, dst, column, srcPitch, srcHeight);
}

// One source pixel read (the nearest to the mapped centre) and one written: the traffic of a resize.
LM_KERNEL_WITH_PARAMETERS(Ceiling_Scale_Kernel, LM_PARAMETERS_MotionKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= dstWidth || y >= dstHeight) return;
  const int sx = min((int)(((float)x + 0.5f) * m0), srcWidth - 1), sy = min((int)(((float)y + 0.5f) * m4), srcHeight - 1);
  LM_StorePixel(dst, y * dstPitch + x, LM_LoadPixel(src, sy * srcPitch + sx, is32f), is32f);
}

// One texel read through the deinterlacer's texture and one pixel written.
LM_KERNEL_WITH_PARAMETERS(Ceiling_Deinterlace_Kernel, LM_PARAMETERS_DeinterlaceKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  LM_StorePixel(dst, y * dstPitch + x, LM_SampleTexture(inDeinterlaceTexture, x + srcOffset / 16, y), is32f);
}
