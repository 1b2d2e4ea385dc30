// module: TextureProbe
// A test-only module that samples a texture, to prove the texture mechanism of the kernel dialect: an image
// parameter on OpenCL, a texture reference declared in the PTX on CUDA.
#include "KernelDialect.h"

// Writes the texel at (x, y) of inProbeTexture to pixel y * pitch + x of dst, for the width x height extent.
LM_KERNEL SampleTextureKernel(LM_GLOBAL float* dst, int pitch, int is32f, int width,
                              int height LM_TEXTURE_PARAM(inProbeTexture)) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  LM_StorePixel(dst, y * pitch + x, LM_SampleTexture(inProbeTexture, x, y), is32f);
}
