// module: CrossDissolve
// outgoing x (1 - t) + incoming x t per channel of premultiplied pixels, with t the progress, or with
// eased set its smoothstep 3t^2 - 2t^3, which starts and ends the dissolve gently.
#include "KernelDialect.h"
#include "PointOperationsParameters.h"

LM_KERNEL_WITH_PARAMETERS(CrossDissolveKernel, LM_PARAMETERS_CrossDissolveKernel) {
  const int x = LM_GLOBAL_X;
  const int y = LM_GLOBAL_Y;
  if (x >= width || y >= height) return;
  const float t = eased ? progress * progress * (3.0f - 2.0f * progress) : progress;
  const float4 in = LM_LoadPixel(incoming, y * incomingPitch + x, is32f);
  const float4 out = LM_LoadPixel(outgoing, y * outgoingPitch + x, is32f);
  LM_StorePixel(dst, y * dstPitch + x, LM_Add4(LM_Scale4(out, 1.0f - t), LM_Scale4(in, t)), is32f);
}
