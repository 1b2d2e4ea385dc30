// What a host can pass wrong to the operations: each bad call is refused with its code before anything is
// enqueued, and no byte of its buffers changes. (The fuzz test watches guard bytes around its buffers for
// writes past either end.)
#include <climits>

#include "EveryDevice.h"
#include "Lumora/Results.h"
#include "Lumora/Textures.h"
#include "Runtime/OpenCLEntryPoints.h"
#include "zelmediatypes/PixelFormats.h"

namespace {

const LM::PixelFormat k16f = LM::kPixelFormat_GPU_BGRA_4444_16f, k32f = LM::kPixelFormat_GPU_BGRA_4444_32f;
constexpr int kFailed = LM::kResultFailed, kUnsupported = LM::kResultUnsupported;

class BadArguments : public EveryDevice {
 protected:
  void TearDown() override {
    for (const auto& [buffer, pattern] : buffers_) {
      if (IsOpenCL()) clReleaseMemObject(static_cast<cl_mem>(buffer));
    }
    if (image_ != nullptr) clReleaseMemObject(image_);
    EveryDevice::TearDown();
  }

  bool IsOpenCL() const { return device_->GetFramework() == LM::kDeviceFramework_OpenCL; }

  // A buffer of 512 bytes (16 x 4 pixels of 16f, rows of 128 bytes) holding a pattern. On OpenCL it is made
  // here at its exact size, since a larger block from the pool would hold the extents past 512 bytes.
  void* Make() {
    Bytes pattern(512);
    for (std::size_t i = 0; i < pattern.size(); ++i)
      pattern[i] = static_cast<std::uint8_t>(i * 13 + buffers_.size());
    void* buffer =
        IsOpenCL() ? clCreateBuffer(static_cast<cl_context>(device_->GetContextHandle()),
                                    CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, 512, pattern.data(), nullptr)
                   : Upload(pattern);
    EXPECT_NE(buffer, nullptr);
    buffers_.emplace_back(buffer, pattern);
    return buffer;
  }

  // On OpenCL a 16 x 4 image of 16f texels, else null. It is made here rather than taken from the device
  // pool, which hands its blocks to requests by size as well: the next test's buffer would be this image.
  void* Image() {
    if (!IsOpenCL()) return nullptr;
    const cl_image_format format = {CL_RGBA, CL_HALF_FLOAT};
    cl_int error = CL_SUCCESS;
    image_ = clCreateImage2D(static_cast<cl_context>(device_->GetContextHandle()), CL_MEM_READ_WRITE, &format,
                             16, 4, 0, nullptr, &error);
    EXPECT_EQ(error, CL_SUCCESS);
    return image_;
  }

  struct Case {
    const char* what;
    int expected, result;
  };
  // Expects each call's code; then every buffer still holds its pattern.
  void Expect(const std::vector<Case>& cases) {
    for (const Case& c : cases) EXPECT_EQ(c.result, c.expected) << c.what;
    for (const auto& [buffer, pattern] : buffers_) EXPECT_EQ(Download(buffer, 512), pattern);
  }

  std::vector<std::pair<void*, Bytes>> buffers_;
  cl_mem image_ = nullptr;
};

TEST_P(BadArguments, FillsRefuseWhatLiesOutsideTheirBuffer) {
  void* a = Make();
  const void* image = Image();
  const auto fill = [&](const void* buffer, int rowBytes, LM::PixelFormat format, int left, int top,
                        int width, int height) {
    return LM::FillWithColor(device_, buffer, rowBytes, format, left, top, width, height, {1, 2, 3, 4});
  };
  std::vector<Case> cases = {
      {"negative left", kFailed, fill(a, 128, k16f, -1, 0, 4, 4)},
      {"negative top", kFailed, fill(a, 128, k16f, 0, -1, 4, 4)},
      {"pitch shorter than a row", kFailed, fill(a, 120, k16f, 0, 0, 16, 4)},
      {"negative pitch", kFailed, fill(a, -128, k16f, 0, 0, 16, 1)},
      {"past the end", kFailed, fill(a, 128, k16f, 0, 1, 16, 4)},
      {"32f pixels in a 16f buffer", kFailed, fill(a, 256, k32f, 0, 0, 16, 4)},
      {"null", kFailed, fill(nullptr, 128, k16f, 0, 0, 1, 1)},
      {"not a GPU format", kFailed, fill(a, 128, zelmediatypes::kPixelFormat_BGRA_4444_8u, 0, 0, 16, 4)},
      {"width INT_MAX", kFailed, fill(a, 128, k16f, 0, 0, INT_MAX, 1)},
      {"height INT_MAX", kFailed, fill(a, 128, k16f, 0, 0, 1, INT_MAX)},
      {"left near INT_MAX", kFailed, fill(a, 128, k16f, INT_MAX - 1, 0, 2, 1)},
  };
  if (image != nullptr)
    cases.push_back({"an image for the buffer", kFailed, fill(image, 128, k16f, 0, 0, 1, 1)});
  Expect(cases);
}

TEST_P(BadArguments, CopiesRefuseWhatLiesOutsideEitherBuffer) {
  void* a = Make();
  void* b = Make();
  void* image = Image();
  const auto copy = [&](const void* src, int srcOffset, void* dst, int dstOffset, LM::PixelFormat format,
                        int width, int height) {
    return LM::FastDeviceMemcpy2DWithOffsets(device_, src, 128, srcOffset, dst, 128, dstOffset, format, width,
                                             height);
  };
  const auto rect = [&](int rowBytes, LM::PixelFormat format, int srcLeft, int srcTop, int dstLeft,
                        int dstTop, int width, int height) {
    return LM::DeviceCopyRect(device_, a, rowBytes, b, rowBytes, format, srcLeft, srcTop, dstLeft, dstTop,
                              width, height);
  };
  const auto toImage = [&](const void* src, int offset, int rowBytes, void* dst, LM::PixelFormat format,
                           int width, int height) {
    return LM::CopyBufferToImage(device_, src, offset, rowBytes, dst, format, width, height);
  };
  std::vector<Case> cases = {
      {"negative source offset", kFailed, copy(a, -16, b, 0, k16f, 4, 4)},
      {"destination offset past the end", kFailed, copy(a, 0, b, 32, k16f, 16, 4)},
      {"source rows past the end", kFailed, copy(a, 0, b, 0, k16f, 16, 5)},
      {"null source", kFailed, copy(nullptr, 0, b, 0, k16f, 1, 1)},
      {"null destination", kFailed, copy(a, 0, nullptr, 0, k16f, 1, 1)},
      {"a planar format has no rows to copy", kUnsupported,
       copy(a, 0, b, 0, zelmediatypes::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, 4, 4)},
      {"host-format rows past the end", kFailed,
       copy(a, 0, b, 0, zelmediatypes::kPixelFormat_BGRA_4444_32f, 16, 1)},
      {"width INT_MAX", kFailed, copy(a, 0, b, 0, k16f, INT_MAX, 1)},
      {"offset INT_MAX", kFailed, copy(a, INT_MAX, b, 0, k16f, 1, 1)},
      {"negative source left", kFailed, rect(128, k16f, -1, 0, 0, 0, 2, 2)},
      {"negative destination top", kFailed, rect(128, k16f, 0, 0, 0, -1, 2, 2)},
      {"partial pitch", kFailed, rect(100, k16f, 0, 0, 0, 0, 16, 2)},
      {"rectangle past the end", kFailed, rect(128, k16f, 0, 0, 15, 0, 2, 1)},
      {"packed 4:2:2 pixels share their bytes", kUnsupported,
       rect(128, zelmediatypes::kPixelFormat_UYVY_422_8u, 0, 0, 0, 0, 2, 2)},
      {"height INT_MAX", kFailed, rect(128, k16f, 0, 0, 0, 0, 1, INT_MAX)},
  };
  if (image != nullptr) {
    cases.insert(cases.end(),
                 {{"an image for the source", kFailed, copy(image, 0, b, 0, k16f, 1, 1)},
                  {"a buffer for the image", kFailed, toImage(a, 0, 128, b, k16f, 1, 1)},
                  {"an image for the buffer", kFailed, toImage(image, 0, 128, image, k16f, 1, 1)},
                  {"null image", kFailed, toImage(a, 0, 128, nullptr, k16f, 1, 1)},
                  {"more rows than the image has", kFailed, toImage(a, 0, 128, image, k16f, 16, 5)},
                  {"an image of another texel size", kFailed, toImage(a, 0, 256, image, k32f, 2, 2)},
                  {"source past the end", kFailed, toImage(a, 8, 128, image, k16f, 16, 4)}});
  }
  Expect(cases);
}

// Only data - base means anything on OpenCL: a difference beyond an int is refused, not truncated to a
// small offset that reads the wrong place.
TEST_P(BadArguments, ATextureIsNeverBoundFromNothingOrFromAnOffsetBeyondAnInt) {
  const char* base = static_cast<const char*>(Make());
  LM::Texture texture;
  const auto bind = [&](const void* from, const void* data) {
    return LM::BindTexture(device_, texture, from, data, 128, 4, 4, k16f);
  };
  std::vector<Case> cases = {{"null base", kFailed, bind(nullptr, base)},
                             {"null data", kFailed, bind(base, nullptr)}};
  if (IsOpenCL()) {
    cases.push_back({"4 GiB and 64 bytes in", kFailed, bind(base, base + (std::size_t{4} << 30) + 64)});
    cases.push_back({"before the base", kFailed, bind(base, base - 16)});
  }
  Expect(cases);
}

// The per-pixel operations on 16 x 4 pixels of 16f: a missing buffer, an extent past a buffer, a format that
// is not a GPU format, a mode out of range, a missing source or a negative offset.
TEST_P(BadArguments, PixelOperationsRefuseMissingAndShortBuffers) {
  void* a = Make();
  void* b = Make();
  const void* sources[2] = {a, nullptr};
  const float weights[2] = {1, 1};
  const auto composite = [&](const void* layer, LM::PixelFormat format, int height, int mode) {
    return LM::Composite(device_, layer, 128, b, 128, b, 128, format, 16, height, 0.5f, SK_BlendMode(mode));
  };
  Expect({
      {"no layer", kFailed, composite(nullptr, k16f, 4, kBlendMode_Screen)},
      {"composite past the end", kFailed, composite(a, k16f, 5, kBlendMode_Screen)},
      {"host format", kUnsupported,
       composite(a, zelmediatypes::kPixelFormat_BGRA_4444_8u, 4, kBlendMode_Screen)},
      {"mode -1", kUnsupported, composite(a, k16f, 4, -1)},
      {"mode 27", kUnsupported, composite(a, k16f, 4, kBlendMode_Divide + 1)},
      {"dissolve past the end", kFailed,
       LM::CrossDissolve(device_, a, 128, a, 128, b, 128, k16f, 16, 5, 0.5f, false)},
      {"missing source", kFailed, LM::Accumulate(device_, sources, weights, 2, b, 128, 0, k16f, 16, 4)},
      {"negative offset", kFailed, LM::Accumulate(device_, sources, weights, 1, b, 128, -16, k16f, 16, 4)},
      {"gain past the end", kFailed, LM::AlphaGain(device_, a, 128, b, 128, k16f, 16, 5, 0.5f)},
      {"no unpremultiply source", kFailed,
       LM::Unpremultiply(device_, nullptr, 128, b, 128, k16f, 16, 4, {0, 0, 0, 0})},
  });
}

// Placements that are refused: NaN, infinite or zero parameters, a destination that is the source, an
// extent past the buffers.
TEST_P(BadArguments, BadPlacementsAreRefused) {
  void* a = Make();
  void* b = Make();
  const auto place = [&](float scaleX, float rotation, float positionX, void* dst) {
    LM::MotionTransform t;
    t.scaleX = scaleX;
    t.rotationDegrees = rotation;
    t.positionX = positionX;
    return LM::Motion(device_, a, 128, 16, 4, dst, 128, 16, 4, k16f, t, zelmediatypes::kRenderQuality_High);
  };
  Expect({
      {"scale 0", kFailed, place(0, 0, 0, b)},
      {"rotation NaN", kFailed, place(1, std::nanf(""), 0, b)},
      {"position infinite", kFailed, place(1, 0, INFINITY, b)},
      {"onto its source", kFailed, place(1, 0, 0, a)},
      {"scale past the end", kFailed,
       LM::Scale(device_, a, 128, 16, 4, b, 1 << 20, 1 << 16, 4, k16f, zelmediatypes::kRenderQuality_High)},
  });
}

LM_ON_EVERY_DEVICE(BadArguments);

}  // namespace
