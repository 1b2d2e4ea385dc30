// module: Deinterlace
// One field of an interlaced image kept, the other rebuilt, per output pixel. The source is read through a
// texture (a CUDA texture reference or an OpenCL image), at integer coordinates clamped to the image.
//   mode 0, line doubling: a missing row repeats the kept row above it (below it for a missing first row).
//   mode 1, linear interpolation: the mean of the kept rows above and below.
//   mode 2, edge-directed interpolation: among the directions d = -2 .. 2, the one along which the kept rows
//     above and below differ least (summed over a 3-pixel window, on luma 0.3 R + 0.59 G + 0.11 B; the
//     vertical direction wins ties) gives the mean of above(x + d) and below(x - d), so that diagonal edges
//     stay sharp instead of stair-stepping. This is the spatial prediction of yadif's and bwdif's; their
//     temporal part needs the neighbouring frames, which a single-image operation does not have.
// Rows of the kept field are copied as they are.
#include "GeometryParameters.h"
#include "KernelDialect.h"

#define LM_SOURCE(column, row) \
  LM_SampleTexture(inDeinterlaceTexture, min(max((column), 0), width - 1) + texelOffset, (row))

LM_DEVICE float Luma(float4 c) {
  return 0.3f * c.z + 0.59f * c.y + 0.11f * c.x;
}
LM_DEVICE float4 Mean(float4 a, float4 b) {
  return LM_Scale4(LM_Add4(a, b), 0.5f);
}

LM_KERNEL_WITH_PARAMETERS(DeinterlaceKernel, LM_PARAMETERS_DeinterlaceKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const int texelOffset = srcOffset / (is32f ? 16 : 8);
  float4 value;
  if ((y & 1) == keptField) {
    value = LM_SOURCE(x, y);
  } else {
    // The kept rows above and below, one of them missing at the image's edge.
    const int above = y - 1 >= 0 ? y - 1 : y + 1, below = y + 1 < height ? y + 1 : y - 1;
    if (mode == 0 || above == below) {
      value = LM_SOURCE(x, y - 1 >= 0 ? y - 1 : y + 1);
    } else if (mode == 1) {
      value = Mean(LM_SOURCE(x, above), LM_SOURCE(x, below));
    } else {
      int best = 0;
      float bestScore = 0.0f;
      for (int k = -1; k <= 1; ++k)
        bestScore += fabs(Luma(LM_SOURCE(x + k, above)) - Luma(LM_SOURCE(x + k, below)));
      for (int d = -2; d <= 2; ++d) {
        if (d == 0) continue;
        float score = 0.0f;
        for (int k = -1; k <= 1; ++k) {
          score += fabs(Luma(LM_SOURCE(x + d + k, above)) - Luma(LM_SOURCE(x - d + k, below)));
        }
        if (score < bestScore) {
          bestScore = score;
          best = d;
        }
      }
      value = Mean(LM_SOURCE(x + best, above), LM_SOURCE(x - best, below));
    }
  }
  LM_StorePixel(dst, y * dstPitch + x, value, is32f);
}
