// The colour mathematics the conversion modules share, on working values: premultiplied, gamma-coded B', G',
// R', A on the GPU side; Y' 0..1 and Cb, Cr centred on 0 (-0.5..0.5) for Y'CbCr. The matrices are ITU-R
// BT.601 (Kr 0.299, Kb 0.114) and BT.709 (Kr 0.2126, Kb 0.0722); they have no offsets in these terms, so
// premultiplied Y'CbCr converts with the same matrix, and a format without alpha gets the premultiplied
// colour: the image over black.
#ifndef LUMORA_PIXEL_FORMAT_CONVERT_COLOUR_H
#define LUMORA_PIXEL_FORMAT_CONVERT_COLOUR_H

// The source row that output row y of a kernel reading a buffer reads: OpenCL flips here; on CUDA the host
// points at the last row and steps upwards, so the kernel reads row y as it is.
LM_DEVICE int SourceRow(int y, int height, int flip) {
  return LM_OPENCL && flip ? height - 1 - y : y;
}

// A normalised value as an integer code: value * scale + offset rounded to nearest (ties to even) and
// clamped to lo..hi.
LM_DEVICE float Quantise(float value, float scale, float offset, float lo, float hi) {
  return fmin(fmax(LM_Round(value * scale + offset), lo), hi);
}

LM_DEVICE float KrOf(int bt709) {
  return bt709 ? 0.2126f : 0.299f;
}
LM_DEVICE float KbOf(int bt709) {
  return bt709 ? 0.0722f : 0.114f;
}

// Y'CbCr and alpha as B', G', R', A.
LM_DEVICE float4 YCbCrToBGR(float y, float cb, float cr, float a, int bt709) {
  const float kr = KrOf(bt709), kb = KbOf(bt709);
  const float r = y + 2.0f * (1.0f - kr) * cr;
  const float b = y + 2.0f * (1.0f - kb) * cb;
  const float g = (y - kr * r - kb * b) / (1.0f - kr - kb);
  return LM_MAKE_FLOAT4(b, g, r, a);
}

// B', G', R', A as Cr, Cb, Y', A: the memory order of VUYA.
LM_DEVICE float4 BGRToYCbCr(float4 m, int bt709) {
  const float kr = KrOf(bt709), kb = KbOf(bt709);
  const float y = kr * m.z + (1.0f - kr - kb) * m.y + kb * m.x;
  return LM_MAKE_FLOAT4((m.z - y) / (2.0f * (1.0f - kr)), (m.x - y) / (2.0f * (1.0f - kb)), y, m.w);
}

#endif  // LUMORA_PIXEL_FORMAT_CONVERT_COLOUR_H
