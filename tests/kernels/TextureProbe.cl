// module: TextureProbe
// A test-only module that samples a texture, to prove the texture mechanism of the kernel dialect: an image
// parameter on OpenCL, a texture reference declared in the PTX on CUDA.
#include "KernelDialect.h"
#include "ProbeParameters.h"

// Writes the texel at (x, y) of the bound data to pixel y * pitch + x of dst, for the width x height extent.
// textureOffset is the Texture's offset in bytes (always 0 on OpenCL, whose image starts at the data); it is
// counted in texels of four halves or four floats, as is32f says.
LM_KERNEL_WITH_PARAMETERS(SampleTextureKernel, LM_PARAMETERS_SampleTextureKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const int texelBytes = is32f ? 16 : 8;
  LM_StorePixel(dst, y * pitch + x, LM_SampleTexture(inProbeTexture, x + textureOffset / texelBytes, y), is32f);
}
