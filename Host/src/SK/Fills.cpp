// The four fills: one colour, turned into the format's own terms by the same colour stages and packs that
// SK_ScaleConvert uses, written into a rectangle. Premultiplied formats get the premultiplied colour; X
// formats, which ignore alpha, get the colour itself with an opaque alpha. Rules by layout:
// - 4444: any rectangle; row bytes 0 stand for rows that end with the rectangle.
// - Packed 4:2:2: the rectangle starts on a group (2 pixels, 6 for v210) and its width is rounded up to
//   whole groups, since pixels of a group share their chroma.
// - Planar 4:2:0: the whole image only (x = y = 0, width × height in the one-block layout), since the
//   planes' places follow from the image size; non-zero row bytes must cover the block.
#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

#include "PixelRows.h"
#include "SK/Renderer.h"
#include "zelmediatypes/PixelFormatTable.h"

using namespace zelmediatypes;

namespace sk {
namespace {

bool FillPlanar(std::uint8_t* base, int rowBytes, PixelFormat format, const FormatDesc& d, int x, int y,
                int width, int height, const float* colour) {
  const std::size_t block = PixelFormatSize(format, width, height);
  if (x != 0 || y != 0 || block == 0) return false;
  if (rowBytes > 0 && std::size_t(rowBytes) * std::size_t(height) < block) return false;
  const std::size_t luma = std::size_t(width) * std::size_t(height);
  const std::size_t chroma = (block - luma) / 2;
  std::memset(base, int(Quantise(d, kY, colour[kY])), luma);
  std::memset(base + luma, int(Quantise(d, kCb, colour[kCb])), chroma);
  std::memset(base + luma + chroma, int(Quantise(d, kCr, colour[kCr])), chroma);
  return true;
}

bool Fill(void* base, int rowBytes, PixelFormat format, int x, int y, int width, int height, float r, float g,
          float b, float a) {
  FormatDesc d;
  if (!base || rowBytes < 0 || x < 0 || y < 0 || !DescribeFormat(format, d)) return false;
  if (width <= 0 || height <= 0) return true;
  float colour[4];
  colour[kR] = r;
  colour[kG] = g;
  colour[kB] = b;
  colour[kA] = a;
  if (d.alpha == Alpha::kPremultiplied) Premultiply(colour, 1);
  if (d.ycbcr) RGBToYCbCr(colour, 1, d.bt709);
  std::uint8_t* bytes = static_cast<std::uint8_t*>(base);
  if (d.layout == Layout::kPlanar420)
    return FillPlanar(bytes, rowBytes, format, d, x, y, width, height, colour);

  int group = 1;
  std::size_t groupBytes = PixelFormatSize(format, 1, 1);
  if (d.layout != Layout::k4444) {
    group = d.layout == Layout::kV210 ? 6 : 2;
    groupBytes = d.layout == Layout::kV210 ? 16 : 4;
  }
  if (x % group != 0 || width > std::numeric_limits<int>::max() - group) return false;
  const int pixels = (width + group - 1) / group * group;
  const std::size_t offset = std::size_t(x / group) * groupBytes;
  const std::size_t bytesPerRow = std::size_t(pixels / group) * groupBytes;
  const std::size_t stride = rowBytes == 0 ? offset + bytesPerRow : std::size_t(rowBytes);
  if (offset + bytesPerRow > stride) return false;

  std::vector<float> row(std::size_t(pixels) * 4);
  for (int i = 0; i < pixels; ++i) std::copy(colour, colour + 4, row.begin() + 4 * i);
  std::vector<std::uint8_t> packed(bytesPerRow);
  RowScratch scratch;
  PackRow(d, row.data(), pixels, packed.data(), scratch);
  for (int j = 0; j < height; ++j) {
    std::memcpy(bytes + std::size_t(y + j) * stride + offset, packed.data(), bytesPerRow);
  }
  return true;
}

}  // namespace
}  // namespace sk

bool SK_FillWithOpaqueBlack(void* base, int rowBytes, PixelFormat format, int x, int y, int width,
                            int height) {
  return sk::Fill(base, rowBytes, format, x, y, width, height, 0, 0, 0, 1);
}

bool SK_FillWithOpaqueWhite(void* base, int rowBytes, PixelFormat format, int x, int y, int width,
                            int height) {
  return sk::Fill(base, rowBytes, format, x, y, width, height, 1, 1, 1, 1);
}

bool SK_FillWithTransparentBlack(void* base, int rowBytes, PixelFormat format, int x, int y, int width,
                                 int height) {
  return sk::Fill(base, rowBytes, format, x, y, width, height, 0, 0, 0, 0);
}

bool SK_FillWithTransparentWhite(void* base, int rowBytes, PixelFormat format, int x, int y, int width,
                                 int height) {
  return sk::Fill(base, rowBytes, format, x, y, width, height, 1, 1, 1, 0);
}
