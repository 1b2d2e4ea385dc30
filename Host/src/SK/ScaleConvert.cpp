// SK_ScaleConvert: every pair of table formats through one float pipeline per destination row.
//
//   source row --unpack--> float row --(Y'CbCr to R'G'B', linear to gamma, premultiply)--> horizontal filter
//   --> cached --> vertical filter over cached rows --> (gamma to linear, alpha type, R'G'B' to Y'CbCr)
//   --> pack (4444, 4:2:2) or the full-size float image that the 4:2:0 pack filters down.
//
// Alpha: straight colour is premultiplied before any filter that mixes pixels, so that transparent pixels
// do not bleed their colour. Destinations with alpha get their own alpha type; X, 4:2:2 and 4:2:0
// destinations get the premultiplied colour, the image over black. Linear-light values stay linear only
// when both sides are linear; otherwise filtering happens on gamma-coded values.
//
// Rows of the destination are independent, so large images are cut into bands that run on threads of
// their own; the result does not depend on the banding.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "PixelRows.h"
#include "Resampling.h"
#include "SK/Renderer.h"
#include "zelmediatypes/PixelFormatTable.h"

using namespace zelmediatypes;

namespace sk {
namespace {

struct Side {
  FormatDesc desc;
  ImageRef image;
  PixelFormat format;
};

// Checks an image and fills `side`. Row bytes 0 stand for the format's natural row bytes. A 4:2:0 image is
// the one-block layout of its size whatever its row bytes; non-zero row bytes must then cover the block.
bool Prepare(const void* base, int rowBytes, int width, int height, PixelFormat format, Side& side) {
  if (!base || width <= 0 || height <= 0 || rowBytes < 0) return false;
  if (!DescribeFormat(format, side.desc)) return false;
  const std::size_t natural = PixelFormatSize(format, width, 1);
  if (natural == 0) return false;
  std::size_t stride = rowBytes == 0 ? natural : std::size_t(rowBytes);
  if (side.desc.layout == Layout::kPlanar420) {
    const std::size_t block = PixelFormatSize(format, width, height);
    if (block == 0 || (rowBytes > 0 && std::size_t(rowBytes) * std::size_t(height) < block)) return false;
    stride = 0;
  } else if (stride < natural) {
    return false;
  }
  side.image = ImageRef{static_cast<std::uint8_t*>(const_cast<void*>(base)), stride, width, height};
  side.format = format;
  return true;
}

bool CopySameFormat(const Side& src, const Side& dst) {
  if (src.desc.layout == Layout::kPlanar420) {
    std::memcpy(dst.image.base, src.image.base,
                PixelFormatSize(src.format, src.image.width, src.image.height));
    return true;
  }
  const std::size_t bytes = PixelFormatSize(src.format, src.image.width, 1);
  for (int y = 0; y < src.image.height; ++y) {
    std::memcpy(dst.image.base + std::size_t(y) * dst.image.rowBytes,
                src.image.base + std::size_t(y) * src.image.rowBytes, bytes);
  }
  return true;
}

Filter FilterFor(RenderQuality quality) {
  if (quality < kRenderQuality_Medium) return Filter::kNearest;
  if (quality < kRenderQuality_High) return Filter::kBilinear;
  return Filter::kArea;
}

bool IsInterlaced(FieldType fieldType) {
  return fieldType == kFieldType_UpperFirst || fieldType == kFieldType_LowerFirst;
}

// What the float rows hold between the stages.
struct RowState {
  bool linear;
  Alpha alpha;
};

class Pipeline {
 public:
  Pipeline(const Side& src, const Side& dst, Filter filter, bool fields)
      : src_(src),
        dst_(dst),
        horizontal_(ScaleTaps(dst.image.width, src.image.width, filter, false)),
        vertical_(ScaleTaps(dst.image.height, src.image.height, filter, fields)) {
    const FormatDesc& s = src.desc;
    const FormatDesc& d = dst.desc;
    working_ = {s.linear && d.linear, s.alpha};
    toGamma_ = s.linear && !working_.linear;
    premultiplyFirst_ = s.alpha == Alpha::kStraight && (horizontal_.Mixes() || vertical_.Mixes());
    if (premultiplyFirst_) working_.alpha = Alpha::kPremultiplied;
    toLinear_ = d.linear && !working_.linear;
    const bool wantStraight = d.alpha == Alpha::kStraight;
    unpremultiply_ = wantStraight && working_.alpha == Alpha::kPremultiplied;
    premultiplyLast_ = !wantStraight && working_.alpha == Alpha::kStraight;
    if (d.layout == Layout::kPlanar420) {
      planarImage_.resize(std::size_t(dst.image.width) * std::size_t(dst.image.height) * 4);
    }
  }

  // Converts destination rows begin .. end - 1.
  void RunRows(int begin, int end) const {
    const int dw = dst_.image.width;
    const int cacheSlots = 2 * vertical_.count + 2;
    std::vector<float> cache(std::size_t(cacheSlots) * std::size_t(dw) * 4);
    std::vector<int> tags(std::size_t(cacheSlots), -1);
    std::vector<float> unpacked(std::size_t(src_.image.width) * 4);
    std::vector<float> out(std::size_t(dw) * 4);
    RowScratch scratch;

    auto sourceRow = [&](int r) -> const float* {
      const std::size_t slot = std::size_t(r % cacheSlots);
      float* row = cache.data() + slot * std::size_t(dw) * 4;
      if (tags[slot] != r) {
        PrepareSourceRow(r, horizontal_.identity ? row : unpacked.data(), scratch);
        if (!horizontal_.identity) Filter1D(horizontal_, unpacked.data(), dw, row);
        tags[slot] = r;
      }
      return row;
    };

    if (UnpacksIntoDestination()) {
      for (int y = begin; y < end; ++y) {
        PrepareSourceRow(y, reinterpret_cast<float*>(dst_.image.base + std::size_t(y) * dst_.image.rowBytes),
                         scratch);
      }
      return;
    }
    for (int y = begin; y < end; ++y) {
      const int* index = vertical_.IndexOf(y);
      const float* weight = vertical_.WeightOf(y);
      const float* result;
      if (vertical_.count == 1 && !NeedsDestinationStages()) {
        result = sourceRow(index[0]);
      } else {
        std::fill(out.begin(), out.end(), 0.0f);
        for (int t = 0; t < vertical_.count; ++t) {
          if (weight[t] == 0.0f) continue;
          const float* row = sourceRow(index[t]);
          for (std::size_t i = 0; i < out.size(); ++i) out[i] += weight[t] * row[i];
        }
        DestinationStages(out.data(), dw);
        result = out.data();
      }
      if (dst_.desc.layout == Layout::kPlanar420) {
        std::memcpy(planarImage_.data() + std::size_t(y) * std::size_t(dw) * 4, result,
                    std::size_t(dw) * 4 * sizeof(float));
      } else {
        PackRow(dst_.desc, result, dw, dst_.image.base + std::size_t(y) * dst_.image.rowBytes, scratch);
      }
    }
  }

  void Finish() const {
    if (dst_.desc.layout == Layout::kPlanar420) {
      PackPlanar420(dst_.desc, planarImage_.data(), dst_.image.width, dst_.image.height, dst_.image.base);
    }
  }

 private:
  // A destination whose memory is the float row itself (32f in the row's order, with alpha), reached with no
  // filter and no destination stage, takes the unpacked source rows directly: the widening conversions that
  // stage uploads in float then cost one pass over memory.
  bool UnpacksIntoDestination() const {
    const FormatDesc& d = dst_.desc;
    const bool floatRowLayout = d.layout == Layout::k4444 && d.sample == Sample::k32f &&
                                d.alpha != Alpha::kOpaque && d.order[0] == 0 && d.order[1] == 1 &&
                                d.order[2] == 2 && d.order[3] == 3;
    const bool aligned = reinterpret_cast<std::uintptr_t>(dst_.image.base) % alignof(float) == 0 &&
                         dst_.image.rowBytes % alignof(float) == 0;
    return floatRowLayout && aligned && horizontal_.identity && vertical_.identity &&
           !NeedsDestinationStages();
  }

  bool NeedsDestinationStages() const {
    return toLinear_ || unpremultiply_ || premultiplyLast_ || dst_.desc.ycbcr;
  }

  void PrepareSourceRow(int r, float* row, RowScratch& scratch) const {
    const int n = src_.image.width;
    UnpackRow(src_.desc, src_.image, r, row, scratch);
    if (src_.desc.ycbcr) YCbCrToRGB(row, n, src_.desc.bt709);
    if (toGamma_) LinearToGamma(row, n, src_.desc.alpha == Alpha::kPremultiplied);
    if (premultiplyFirst_) Premultiply(row, n);
  }

  void DestinationStages(float* row, int n) const {
    if (toLinear_) GammaToLinear(row, n, working_.alpha == Alpha::kPremultiplied);
    if (unpremultiply_) Unpremultiply(row, n);
    if (premultiplyLast_) Premultiply(row, n);
    if (dst_.desc.ycbcr) RGBToYCbCr(row, n, dst_.desc.bt709);
  }

  static void Filter1D(const Taps& taps, const float* in, int n, float* out) {
    for (int i = 0; i < n; ++i) {
      const int* index = taps.IndexOf(i);
      const float* weight = taps.WeightOf(i);
      float sum[4] = {0, 0, 0, 0};
      for (int t = 0; t < taps.count; ++t) {
        const float* p = in + 4 * index[t];
        for (int c = 0; c < 4; ++c) sum[c] += weight[t] * p[c];
      }
      std::copy(sum, sum + 4, out + 4 * i);
    }
  }

  const Side& src_;
  const Side& dst_;
  Taps horizontal_;
  Taps vertical_;
  RowState working_;
  bool toGamma_, premultiplyFirst_, toLinear_, unpremultiply_, premultiplyLast_;
  mutable std::vector<float> planarImage_;  // rows written by disjoint bands
};

// Bands of at least this many destination pixels each; smaller images stay on the calling thread.
constexpr std::size_t kPixelsPerBand = 1u << 17;
constexpr unsigned kMaxBands = 16;

void RunInBands(const Pipeline& pipeline, int width, int height) {
  const std::size_t pixels = std::size_t(width) * std::size_t(height);
  unsigned bands = unsigned(std::min<std::size_t>(pixels / kPixelsPerBand, kMaxBands));
  bands = std::min({bands, std::max(1u, std::thread::hardware_concurrency()), unsigned(height)});
  if (bands <= 1) {
    pipeline.RunRows(0, height);
    return;
  }
  std::vector<std::thread> threads;
  for (unsigned b = 1; b < bands; ++b) {
    const int begin = int(std::size_t(height) * b / bands);
    const int end = int(std::size_t(height) * (b + 1) / bands);
    threads.emplace_back([&pipeline, begin, end] { pipeline.RunRows(begin, end); });
  }
  pipeline.RunRows(0, int(std::size_t(height) / bands));
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace sk

bool SK_ScaleConvert(const void* src, int srcRowBytes, int srcWidth, int srcHeight, PixelFormat srcFormat,
                     FieldType srcFieldType, void* dst, int dstRowBytes, int dstWidth, int dstHeight,
                     PixelFormat dstFormat, FieldType dstFieldType, RenderQuality quality) {
  sk::Side source{}, destination{};
  if (!sk::Prepare(src, srcRowBytes, srcWidth, srcHeight, srcFormat, source) ||
      !sk::Prepare(dst, dstRowBytes, dstWidth, dstHeight, dstFormat, destination)) {
    return false;
  }
  if (srcFormat == dstFormat && srcWidth == dstWidth && srcHeight == dstHeight) {
    return sk::CopySameFormat(source, destination);
  }
  // An interlaced side keeps its fields apart: each output field is scaled from its own input field.
  const bool fields = sk::IsInterlaced(srcFieldType) || sk::IsInterlaced(dstFieldType);
  const sk::Pipeline pipeline(source, destination, sk::FilterFor(quality), fields);
  sk::RunInBands(pipeline, dstWidth, dstHeight);
  pipeline.Finish();
  return true;
}
