// What a host can pass wrong to the operations: each bad call is refused with its code before anything is
// enqueued, and no byte of any buffer changes. On OpenCL the buffers live on host memory between guard
// bytes (CL_MEM_USE_HOST_PTR), so that a write past either end would show; on CUDA a write past the
// allocation would fault.
#include <climits>
#include <cstring>
#include <deque>
#include <functional>
#include <string>

#include "EveryDevice.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "Lumora/Textures.h"
#include "Runtime/OpenCLEntryPoints.h"
#include "zelmediatypes/PixelFormats.h"

namespace {

constexpr std::size_t kGuardBytes = 256;

// A 16 x 4 buffer of 16f pixels (or one of `bytes`), its expected bytes, and on OpenCL its guards.
struct Guarded {
  Bytes host;  // guard, body, guard on OpenCL; the body alone on CUDA
  void* buffer = nullptr;
  std::size_t bytes = 0;
};

class BadArguments : public EveryDevice {
 protected:
  void TearDown() override {
    for (Guarded& guarded : guarded_) {
      if (IsOpenCL() && guarded.buffer != nullptr) clReleaseMemObject(static_cast<cl_mem>(guarded.buffer));
    }
    if (image_ != nullptr) clReleaseMemObject(image_);
    EveryDevice::TearDown();
  }

  bool IsOpenCL() const { return device_->GetFramework() == LM::kDeviceFramework_OpenCL; }

  // A buffer of `bytes` that lives as long as the test.
  Guarded& Make(std::size_t bytes) {
    Guarded& guarded = guarded_.emplace_back();
    guarded.bytes = bytes;
    guarded.host.resize(IsOpenCL() ? bytes + 2 * kGuardBytes : bytes);
    for (std::size_t i = 0; i < guarded.host.size(); ++i) guarded.host[i] = static_cast<std::uint8_t>(i * 13);
    if (IsOpenCL()) {
      cl_int error = CL_SUCCESS;
      guarded.buffer = clCreateBuffer(static_cast<cl_context>(device_->GetContextHandle()),
                                      CL_MEM_READ_WRITE | CL_MEM_USE_HOST_PTR, bytes,
                                      guarded.host.data() + kGuardBytes, &error);
      EXPECT_EQ(error, CL_SUCCESS);
    } else {
      guarded.buffer = Upload(guarded.host);
    }
    expected_.push_back(guarded.host);
    return guarded;
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

  // Every buffer as it was made, guards included, once the work queued before has finished.
  void ExpectUntouched() {
    for (std::size_t i = 0; i < guarded_.size(); ++i) {
      Guarded& guarded = guarded_[i];
      const Bytes body = Download(guarded.buffer, guarded.bytes);
      Bytes seen = guarded.host;
      std::memcpy(seen.data() + (IsOpenCL() ? kGuardBytes : 0), body.data(), body.size());
      EXPECT_EQ(seen, expected_[i]) << "buffer " << i;
    }
  }

  // Runs each call and expects its code.
  struct Case {
    const char* what;
    int expected;
    std::function<int()> call;
  };
  void Expect(const std::vector<Case>& cases) {
    for (const Case& c : cases) EXPECT_EQ(c.call(), c.expected) << c.what;
    ExpectUntouched();
  }

  std::deque<Guarded> guarded_;
  std::vector<Bytes> expected_;
  cl_mem image_ = nullptr;
};

const LM::PixelFormat k16f = LM::kPixelFormat_GPU_BGRA_4444_16f;
const LM::PixelFormat k32f = LM::kPixelFormat_GPU_BGRA_4444_32f;
constexpr int kFailed = LM::kResultFailed;
constexpr int kUnsupported = LM::kResultUnsupported;

// 16 x 4 pixels of 16f, rows of 128 bytes.
TEST_P(BadArguments, FillsRefuseWhatLiesOutsideTheirBuffer) {
  const Guarded& a = Make(512);
  const void* image = Image();
  const auto fill = [&](const void* buffer, int rowBytes, LM::PixelFormat format, int left, int top,
                        int width, int height) {
    return LM::FillWithColor(device_, buffer, rowBytes, format, left, top, width, height, {1, 2, 3, 4});
  };
  std::vector<Case> cases = {
      {"negative left", kFailed, [&] { return fill(a.buffer, 128, k16f, -1, 0, 4, 4); }},
      {"negative top", kFailed, [&] { return fill(a.buffer, 128, k16f, 0, -1, 4, 4); }},
      {"pitch shorter than a row", kFailed, [&] { return fill(a.buffer, 120, k16f, 0, 0, 16, 4); }},
      {"negative pitch", kFailed, [&] { return fill(a.buffer, -128, k16f, 0, 0, 16, 1); }},
      {"past the end", kFailed, [&] { return fill(a.buffer, 128, k16f, 0, 1, 16, 4); }},
      {"32f pixels in a 16f buffer", kFailed, [&] { return fill(a.buffer, 256, k32f, 0, 0, 16, 4); }},
      {"null", kFailed, [&] { return fill(nullptr, 128, k16f, 0, 0, 1, 1); }},
      {"not a GPU format", kFailed,
       [&] { return fill(a.buffer, 128, zelmediatypes::kPixelFormat_BGRA_4444_8u, 0, 0, 16, 4); }},
      {"width INT_MAX", kFailed, [&] { return fill(a.buffer, 128, k16f, 0, 0, INT_MAX, 1); }},
      {"height INT_MAX", kFailed, [&] { return fill(a.buffer, 128, k16f, 0, 0, 1, INT_MAX); }},
      {"left near INT_MAX", kFailed, [&] { return fill(a.buffer, 128, k16f, INT_MAX - 1, 0, 2, 1); }},
  };
  if (image != nullptr) {
    cases.push_back({"an image for the buffer", kFailed, [&] { return fill(image, 128, k16f, 0, 0, 1, 1); }});
  }
  Expect(cases);
}

TEST_P(BadArguments, CopiesRefuseWhatLiesOutsideEitherBuffer) {
  const Guarded& a = Make(512);
  const Guarded& b = Make(512);
  void* image = Image();
  const auto memcpy2D = [&](const void* src, int srcOffset, void* dst, int dstOffset, LM::PixelFormat format,
                            int width, int height) {
    return LM::FastDeviceMemcpy2DWithOffsets(device_, src, 128, srcOffset, dst, 128, dstOffset, format, width,
                                             height);
  };
  const auto rect = [&](int rowBytes, LM::PixelFormat format, int srcLeft, int srcTop, int dstLeft,
                        int dstTop, int width, int height) {
    return LM::DeviceCopyRect(device_, a.buffer, rowBytes, b.buffer, rowBytes, format, srcLeft, srcTop,
                              dstLeft, dstTop, width, height);
  };
  std::vector<Case> cases = {
      {"negative source offset", kFailed, [&] { return memcpy2D(a.buffer, -16, b.buffer, 0, k16f, 4, 4); }},
      {"destination offset past the end", kFailed,
       [&] { return memcpy2D(a.buffer, 0, b.buffer, 32, k16f, 16, 4); }},
      {"source rows past the end", kFailed, [&] { return memcpy2D(a.buffer, 0, b.buffer, 0, k16f, 16, 5); }},
      {"null source", kFailed, [&] { return memcpy2D(nullptr, 0, b.buffer, 0, k16f, 1, 1); }},
      {"null destination", kFailed, [&] { return memcpy2D(a.buffer, 0, nullptr, 0, k16f, 1, 1); }},
      {"a planar format has no rows to copy", kUnsupported,
       [&] {
         return memcpy2D(a.buffer, 0, b.buffer, 0,
                         zelmediatypes::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, 4, 4);
       }},
      {"host-format rows past the end", kFailed,
       [&] { return memcpy2D(a.buffer, 0, b.buffer, 0, zelmediatypes::kPixelFormat_BGRA_4444_32f, 16, 1); }},
      {"width INT_MAX", kFailed, [&] { return memcpy2D(a.buffer, 0, b.buffer, 0, k16f, INT_MAX, 1); }},
      {"offset INT_MAX", kFailed, [&] { return memcpy2D(a.buffer, INT_MAX, b.buffer, 0, k16f, 1, 1); }},
      {"negative source left", kFailed, [&] { return rect(128, k16f, -1, 0, 0, 0, 2, 2); }},
      {"negative destination top", kFailed, [&] { return rect(128, k16f, 0, 0, 0, -1, 2, 2); }},
      {"partial pitch", kFailed, [&] { return rect(100, k16f, 0, 0, 0, 0, 16, 2); }},
      {"rectangle past the end", kFailed, [&] { return rect(128, k16f, 0, 0, 15, 0, 2, 1); }},
      {"packed 4:2:2 pixels share their bytes", kUnsupported,
       [&] { return rect(128, zelmediatypes::kPixelFormat_UYVY_422_8u, 0, 0, 0, 0, 2, 2); }},
      {"height INT_MAX", kFailed, [&] { return rect(128, k16f, 0, 0, 0, 0, 1, INT_MAX); }},
  };
  if (image != nullptr) {
    cases.push_back(
        {"an image for the source", kFailed, [&] { return memcpy2D(image, 0, b.buffer, 0, k16f, 1, 1); }});
    cases.push_back({"a buffer for the image", kFailed,
                     [&] { return LM::CopyBufferToImage(device_, a.buffer, 0, 128, b.buffer, k16f, 1, 1); }});
    cases.push_back({"an image for the buffer", kFailed,
                     [&] { return LM::CopyBufferToImage(device_, image, 0, 128, image, k16f, 1, 1); }});
    cases.push_back({"null image", kFailed,
                     [&] { return LM::CopyBufferToImage(device_, a.buffer, 0, 128, nullptr, k16f, 1, 1); }});
    cases.push_back({"more rows than the image has", kFailed,
                     [&] { return LM::CopyBufferToImage(device_, a.buffer, 0, 128, image, k16f, 16, 5); }});
    cases.push_back({"an image of another texel size", kFailed,
                     [&] { return LM::CopyBufferToImage(device_, a.buffer, 0, 256, image, k32f, 2, 2); }});
    cases.push_back({"source past the end", kFailed,
                     [&] { return LM::CopyBufferToImage(device_, a.buffer, 8, 128, image, k16f, 16, 4); }});
  }
  Expect(cases);
}

// Only data - base means anything on OpenCL: a difference beyond an int is refused, not truncated to a
// small offset that reads the wrong place.
TEST_P(BadArguments, ATextureIsNeverBoundFromNothingOrFromAnOffsetBeyondAnInt) {
  const Guarded& a = Make(512);
  LM::Texture texture;
  const char* base = static_cast<const char*>(a.buffer);
  std::vector<Case> cases = {
      {"null base", kFailed,
       [&] { return LM::BindTexture(device_, texture, nullptr, base, 128, 4, 4, k16f); }},
      {"null data", kFailed,
       [&] { return LM::BindTexture(device_, texture, base, nullptr, 128, 4, 4, k16f); }},
  };
  if (IsOpenCL()) {
    cases.push_back({"4 GiB and 64 bytes in", kFailed, [&] {
                       return LM::BindTexture(device_, texture, base, base + (std::size_t{4} << 30) + 64, 128,
                                              4, 4, k16f);
                     }});
    cases.push_back({"before the base", kFailed,
                     [&] { return LM::BindTexture(device_, texture, base, base - 16, 128, 4, 4, k16f); }});
  }
  Expect(cases);
}

LM_ON_EVERY_DEVICE(BadArguments);

}  // namespace
