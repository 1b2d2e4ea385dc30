// The planar 4:2:0 helpers: splitting the one-block layout into its planes, and the half-size scale that
// uploads of interlaced 4:2:0 sources use to stage them at a quarter of their area without a format change.
#include <algorithm>

#include "SK/Renderer.h"

using namespace zelmediatypes;

bool SK_GetPlanarBuffers(void* base, std::uint32_t layout, int width, int height, SK_PlanarBuffers* out) {
  if (!base || !out || layout != kSK_PlanarLayout420_8u || width <= 0 || height <= 0) return false;
  const int cw = width / 2 + width % 2;
  const int ch = height / 2 + height % 2;
  std::uint8_t* y = static_cast<std::uint8_t*>(base);
  std::uint8_t* u = y + std::size_t(width) * std::size_t(height);
  std::uint8_t* v = u + std::size_t(cw) * std::size_t(ch);
  *out = SK_PlanarBuffers{{y, u, v}, {width, cw, cw}, {width, cw, cw}, {height, ch, ch}};
  return true;
}

namespace {

bool Valid(const SK_PlanarBuffers& b) {
  for (int p = 0; p < 3; ++p) {
    if (!b.planes[p] || b.widths[p] <= 0 || b.heights[p] <= 0 || b.rowBytes[p] < b.widths[p]) return false;
  }
  return true;
}

// `row`, or the last row of its field when it lies past the plane.
int LastRowOfField(int row, int height) {
  while (row >= height) row -= 2;
  return std::max(row, 0);
}

// One plane: destination row r of an interlaced image reads its own field (rows 4m + f and 4m + f + 2 of
// the source, m = r / 2, f = r % 2); of a progressive one rows 2r and 2r + 1. Source samples past the
// plane's edge repeat its last column, or the last row of the same field.
void HalvePlane(const std::uint8_t* src, int srcRowBytes, int srcWidth, int srcHeight, std::uint8_t* dst,
                int dstRowBytes, int dstWidth, int dstHeight, bool fields, bool average) {
  for (int r = 0; r < dstHeight; ++r) {
    int top = std::min(2 * r, srcHeight - 1);
    int bottom = std::min(2 * r + 1, srcHeight - 1);
    if (fields) {
      top = LastRowOfField(4 * (r / 2) + r % 2, srcHeight);
      bottom = LastRowOfField(top + 2, srcHeight);
    }
    const std::uint8_t* a = src + std::size_t(top) * std::size_t(srcRowBytes);
    const std::uint8_t* b = src + std::size_t(bottom) * std::size_t(srcRowBytes);
    std::uint8_t* out = dst + std::size_t(r) * std::size_t(dstRowBytes);
    for (int x = 0; x < dstWidth; ++x) {
      const int left = std::min(2 * x, srcWidth - 1);
      const int right = std::min(2 * x + 1, srcWidth - 1);
      out[x] = average ? std::uint8_t((a[left] + a[right] + b[left] + b[right] + 2) / 4) : a[left];
    }
  }
}

}  // namespace

bool SK_QuarterScalePlanar420_8u(const SK_PlanarBuffers& src, const SK_PlanarBuffers& dst, int width,
                                 int height, FieldType fieldType, RenderQuality quality) {
  if (width <= 0 || height <= 0 || !Valid(src) || !Valid(dst)) return false;
  if (src.widths[0] != width || src.heights[0] != height) return false;
  const bool fields = fieldType == kFieldType_UpperFirst || fieldType == kFieldType_LowerFirst;
  const bool average = quality >= kRenderQuality_Medium;
  for (int p = 0; p < 3; ++p) {
    HalvePlane(static_cast<const std::uint8_t*>(src.planes[p]), src.rowBytes[p], src.widths[p],
               src.heights[p], static_cast<std::uint8_t*>(dst.planes[p]), dst.rowBytes[p], dst.widths[p],
               dst.heights[p], fields, average);
  }
  return true;
}
