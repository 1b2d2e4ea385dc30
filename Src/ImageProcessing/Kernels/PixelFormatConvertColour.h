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

// A normalised value as an integer code: value * scale + offset clamped to lo..hi (lo >= 0) and rounded to
// nearest, halves up, as the CPU renderer rounds. NaN gives lo. Comparisons and a truncating conversion
// keep this to a few instructions on every target, where fmin, fmax and rint cost branches on some.
LM_DEVICE int QuantiseToInt(float value, float scale, float offset, float lo, float hi) {
  // The half that rounds is folded into the offset and the bounds, constants of the kernel.
  const float code = value * scale + (offset + 0.5f);
  return (int)(code > lo + 0.5f ? (code < hi + 0.5f ? code : hi + 0.5f) : lo + 0.5f);
}
LM_DEVICE float Quantise(float value, float scale, float offset, float lo, float hi) {
  return (float)QuantiseToInt(value, scale, offset, lo, hi);
}

LM_DEVICE float KrOf(int bt709) {
  return bt709 ? 0.2126f : 0.299f;
}
LM_DEVICE float KbOf(int bt709) {
  return bt709 ? 0.0722f : 0.114f;
}

// Y'CbCr and alpha as B', G', R', A: G' = Y' - 2 Kb (1 - Kb) / Kg Cb - 2 Kr (1 - Kr) / Kg Cr, with every
// coefficient a constant of the kernel.
LM_DEVICE float4 YCbCrToBGR(float y, float cb, float cr, float a, int bt709) {
  const float kr = KrOf(bt709), kb = KbOf(bt709), kg = 1.0f - kr - kb;
  const float r = y + 2.0f * (1.0f - kr) * cr;
  const float b = y + 2.0f * (1.0f - kb) * cb;
  const float g = y - (2.0f * kb * (1.0f - kb) / kg) * cb - (2.0f * kr * (1.0f - kr) / kg) * cr;
  return LM_MAKE_FLOAT4(b, g, r, a);
}

// A code as a normalised value: (code - offset) / scale, as one multiply-add of constants.
LM_DEVICE float Dequantise(float code, float scale, float offset) {
  return code * (1.0f / scale) - offset * (1.0f / scale);
}

// B', G', R', A as Cr, Cb, Y', A: the memory order of VUYA.
LM_DEVICE float4 BGRToYCbCr(float4 m, int bt709) {
  const float kr = KrOf(bt709), kb = KbOf(bt709);
  const float y = kr * m.z + (1.0f - kr - kb) * m.y + kb * m.x;
  return LM_MAKE_FLOAT4((m.z - y) * (0.5f / (1.0f - kr)), (m.x - y) * (0.5f / (1.0f - kb)), y, m.w);
}

#endif  // LUMORA_PIXEL_FORMAT_CONVERT_COLOUR_H
