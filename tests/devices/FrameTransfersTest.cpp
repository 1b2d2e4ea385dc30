// Frames between the host and every device: staged uploads and read-backs, the staging choices, events,
// origins, copies between frames, and what the transfers refuse.
#include <zelmediatypes/PixelFormatTable.h>
#include <zelmediatypes/PixelFormats.h>

#include <random>

#include "EveryDevice.h"
#include "ForeignFrame.h"
#include "Lumora/FrameOperations.h"
#include "Lumora/FrameTransfers.h"
#include "Lumora/Results.h"
#include "Lumora/VideoFrames.h"

namespace {

using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;
using Rect = OXR::ParamRect<CRect>;
namespace zmt = zelmediatypes;
const auto kHigh = zmt::kRenderQuality_High;
const auto kProgressive = zmt::kFieldType_Progressive;

Bytes HostBytes(const Frame& frame) {
  const auto memory = OXR::Query<FK::IVideoFrameMemoryAccess>(frame);
  const auto* base = static_cast<const std::uint8_t*>(memory->GetBaseAddress());
  return Bytes(base, base + memory->GetDataSize());
}

// A host-made frame of bytes every format holds as they are: 8-bit values, 15-bit values up to 32768,
// floats in [0, 1].
Frame Foreign(LM::PixelFormat format, int width, int height, unsigned seed) {
  const Frame frame = ForeignFrame::Make(format, width, height);
  Bytes& pixels = ForeignFrame::Pixels(frame);
  std::mt19937 random(seed);
  const std::uint32_t sample = format.properties & zmt::kPixelFormatPropertyMask_Sample;
  for (std::size_t i = 0; i < pixels.size();) {
    if (sample == zmt::kPixelFormatSample_32f) {
      const float value = static_cast<float>(random() % 1001) / 1000.0f;
      std::memcpy(&pixels[i], &value, 4);
      i += 4;
    } else if (sample == zmt::kPixelFormatSample_15u) {
      const std::uint16_t value = static_cast<std::uint16_t>(random() % 32769);
      std::memcpy(&pixels[i], &value, 2);
      i += 2;
    } else {
      pixels[i++] = static_cast<std::uint8_t>(random());
    }
  }
  return frame;
}

Frame ReadBack(const Frame& frame, LM::PixelFormat format, const Rect& rect = Rect()) {
  return LM::ReadBackFrame(frame, format, rect, {1, 1}, kProgressive, kHigh, true);
}

class FrameTransfers : public EveryDevice {
 protected:
  Frame Make(bool gpu, LM::PixelFormat format, int width, int height) {
    Frame frame;
    EXPECT_EQ((gpu ? LM::CreateGPUVideoFrame : LM::CreateHostMemoryVideoFrame)(
                  frame, device_, format, width, height, {1, 1}, kProgressive, {}),
              0);
    return frame;
  }
};

// Every four-component 8u, 15u and 32f host format goes up in its staging format, which is its own (no change
// on the device), and comes back exactly.
TEST_P(FrameTransfers, EveryFourComponentFormatGoesUpAndComesBack) {
  std::size_t count = 0;
  const zmt::PixelFormatInfo* table = zmt::PixelFormatTable(count);
  int formats = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const LM::PixelFormat format = table[i].format;
    const std::uint32_t sample = format.properties & zmt::kPixelFormatPropertyMask_Sample;
    if ((format.properties & zmt::kPixelFormatPropertyMask_Layout) != zmt::kPixelFormatLayout_4444 ||
        (sample != zmt::kPixelFormatSample_8u && sample != zmt::kPixelFormatSample_15u &&
         sample != zmt::kPixelFormatSample_32f))
      continue;
    ++formats;
    const Frame source = Foreign(format, 7, 3, static_cast<unsigned>(i));
    const Frame gpu =
        LM::UploadFrameImmediate(device_, source, zmt::Select4444PixelFormat(format, kHigh), kHigh, Rect());
    ASSERT_TRUE(gpu) << table[i].name;
    EXPECT_TRUE(OXR::Query<LM::IGPUVideoFrame>(gpu));
    EXPECT_EQ(gpu->GetPixelFormat(), format) << table[i].name;
    const Frame back = ReadBack(gpu, format);
    ASSERT_TRUE(back) << table[i].name;
    EXPECT_EQ(HostBytes(back), ForeignFrame::Pixels(source)) << table[i].name;
  }
  EXPECT_GE(formats, 20);
}

// The staging frame: a library frame as it is; a 4:2:0 field source decoded at a quarter keeps its format;
// a 4:4:4 decode at a quarter stages in 8-bit Y'CbCr; the rest in the renderer's choice, which on OpenCL is
// the source itself when nothing changes.
TEST_P(FrameTransfers, TheStagingFrameForEachKindOfSource) {
  const Frame library = Make(false, zmt::kPixelFormat_BGRA_4444_8u, 4, 4);
  EXPECT_EQ(LM::AllocateHostFrameForUpload(device_, library, kHigh, Rect()), library);

  const Frame fields = ForeignFrame::Make(zmt::kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601, 16, 8,
                                          zmt::kFieldType_UpperFirst);
  const Frame quarter =
      LM::AllocateHostFrameForUpload(device_, fields, zmt::kRenderQuality_Low, Rect(0, 0, 8, 4));
  ASSERT_TRUE(quarter);
  EXPECT_EQ(quarter->GetPixelFormat(), fields->GetPixelFormat());
  EXPECT_EQ(quarter->GetBounds(), Rect(0, 0, 8, 4));
  EXPECT_EQ(quarter->GetFieldType(), kProgressive);

  const Frame decoded = ForeignFrame::Make(zmt::kPixelFormat_VUYA_4444_8u_709, 16, 8);
  const Frame staged = LM::AllocateHostFrameForUpload(device_, decoded, kHigh, Rect(0, 0, 8, 4));
  ASSERT_TRUE(staged);
  EXPECT_EQ(staged->GetPixelFormat(), zmt::kPixelFormat_VUYA_4444_8u_709);

  const Frame plain = ForeignFrame::Make(zmt::kPixelFormat_BGRA_4444_8u, 4, 4);
  const Frame same = LM::AllocateHostFrameForUpload(device_, plain, kHigh, Rect());
  ASSERT_TRUE(same);
  EXPECT_EQ(same == plain, device_->GetFramework() == LM::kDeviceFramework_OpenCL);
  EXPECT_EQ(same->GetPixelFormat(), zmt::Select4444PixelFormat(zmt::kPixelFormat_BGRA_4444_8u, kHigh));
}

// A GPU frame is returned as it is; a non-blocking copy hands its event to the new frame, a blocking one
// does not; a centred rectangle of a frame without an origin places it in the middle.
TEST_P(FrameTransfers, CopyToDeviceEventsAndOrigins) {
  const Frame source = Foreign(zmt::kPixelFormat_BGRA_4444_8u, 10, 8, 1);
  const Frame blocking = LM::CopyToDevice(device_, source, Rect(), true);
  ASSERT_TRUE(blocking);
  EXPECT_FALSE(OXR::Query<LM::ICompletionEventVideoFrame>(blocking)->GetCompletionEvent());
  EXPECT_EQ(LM::CopyToDevice(device_, blocking, Rect(), true), blocking);
  EXPECT_EQ(LM::UploadFrameImmediate(device_, blocking, LM::kPixelFormat_GPU_BGRA_4444_32f, kHigh, Rect()),
            blocking);

  const Frame centred = LM::CopyToDevice(device_, source, Rect(2, 2, 6, 8), false);
  ASSERT_TRUE(centred);
  EXPECT_TRUE(OXR::Query<LM::ICompletionEventVideoFrame>(centred)->GetCompletionEvent());
  EXPECT_EQ(centred->GetOrigin(), OXR::ParamPoint<CPoint>((10 - 4) / 2, (8 - 6) / 2));
  EXPECT_EQ(LM::CopyToDevice(device_, source, Rect(), true)->GetOrigin(), OXR::ParamPoint<CPoint>(0, 0));
  const auto memory = OXR::Query<LM::IGPUVideoFrameMemoryAccess>(centred);
  EXPECT_EQ(Download(memory->GetBaseAddress(), memory->GetDataSize()), ForeignFrame::Pixels(source));
}

// Copies between frames: whole frames between GPU frames, a part read back, a frame placed into a
// rectangle of another, each exact for one format.
TEST_P(FrameTransfers, CopiesAndPartsAreExact) {
  const LM::PixelFormat format = zmt::kPixelFormat_BGRA_4444_8u;
  const Frame source = Foreign(format, 6, 4, 2);
  const Frame gpu = LM::CopyToDevice(device_, source, Rect(), true);
  const Frame other = Make(true, format, 6, 4);
  ASSERT_EQ(LM::CopyFrame(other, gpu, kHigh), 0);
  const Frame part = ReadBack(other, format, Rect(2, 1, 5, 3));
  ASSERT_TRUE(part);
  EXPECT_EQ(part->GetBounds(), Rect(0, 0, 3, 2));
  EXPECT_EQ(part->GetOrigin(), OXR::ParamPoint<CPoint>(2, 1));
  const Bytes& all = ForeignFrame::Pixels(source);
  Bytes expected;
  for (int y = 1; y < 3; ++y) expected.insert(expected.end(), &all[(y * 6 + 2) * 4], &all[(y * 6 + 5) * 4]);
  EXPECT_EQ(HostBytes(part), expected);

  // The 6 x 4 frame into the rectangle (1, 2)-(7, 6) of a 8 x 7 GPU frame, and into a host frame.
  for (bool gpuDestination : {true, false}) {
    const Frame destination = Make(gpuDestination, format, 8, 7);
    ASSERT_EQ(LM::CopyFrameRect(destination, Rect(1, 2, 7, 6), gpuDestination ? source : gpu, Frame(), kHigh),
              0);
    const Frame seen =
        ReadBack(gpuDestination ? destination : LM::CopyToDevice(device_, destination, Rect(), true), format,
                 Rect(1, 2, 7, 6));
    ASSERT_TRUE(seen);
    EXPECT_EQ(HostBytes(seen), all) << (gpuDestination ? "GPU" : "host");
  }
}

// Into the GPU working format: staged in the source's own format, then converted on the device, where
// straight 8-bit colour becomes premultiplied floats.
TEST_P(FrameTransfers, AnUploadIntoTheWorkingFormatConvertsOnTheDevice) {
  const Frame source = Foreign(zmt::kPixelFormat_BGRA_4444_8u, 3, 2, 3);
  const Frame gpu =
      LM::UploadFrameImmediate(device_, source, LM::kPixelFormat_GPU_BGRA_4444_32f, kHigh, Rect());
  ASSERT_TRUE(gpu);
  EXPECT_EQ(gpu->GetPixelFormat(), LM::kPixelFormat_GPU_BGRA_4444_32f);
  const Bytes& codes = ForeignFrame::Pixels(source);
  std::vector<Pixel> expected;
  for (std::size_t at = 0; at < codes.size(); at += 4) {
    const float alpha = codes[at + 3] / 255.0f;
    expected.push_back(
        {codes[at] / 255.0f * alpha, codes[at + 1] / 255.0f * alpha, codes[at + 2] / 255.0f * alpha, alpha});
  }
  EXPECT_TRUE(PixelsNear(DownloadPixels(OXR::Query<LM::IGPUVideoFrameMemoryAccess>(gpu)->GetBaseAddress(), 6,
                                        LM::kPixelFormat_GPU_BGRA_4444_32f),
                         expected, 1e-6));
  EXPECT_FALSE(LM::UploadFrameImmediate(device_, source, zmt::kPixelFormat_UYVY_422_8u, kHigh, Rect()))
      << "no conversion reaches it";
}

TEST_P(FrameTransfers, BadFramesAndRectanglesAreRefused) {
  const Frame host = ForeignFrame::Make(zmt::kPixelFormat_BGRA_4444_8u, 4, 4);
  const Frame gpu = Make(true, zmt::kPixelFormat_BGRA_4444_8u, 4, 4);
  const Frame larger = Make(true, LM::kPixelFormat_GPU_BGRA_4444_32f, 5, 4);
  const Frame empty;
  EXPECT_FALSE(LM::AllocateHostFrameForUpload({}, host, kHigh, Rect()));
  EXPECT_FALSE(LM::AllocateHostFrameForUpload(device_, empty, kHigh, Rect()));
  EXPECT_FALSE(LM::CopyToDevice(device_, empty, Rect(), true));
  EXPECT_FALSE(LM::UploadFrameImmediate(device_, empty, LM::kPixelFormat_GPU_BGRA_4444_32f, kHigh, Rect()));
  EXPECT_EQ(LM::CopyToHostFrame(host, empty, kHigh), LM::kResultFailed);
  EXPECT_EQ(LM::CopyToHostFrame(host, gpu, kHigh), LM::kResultFailed)
      << "a GPU frame's memory is not the host's";
  EXPECT_FALSE(ReadBack(host, zmt::kPixelFormat_BGRA_4444_8u)) << "not a GPU frame";
  EXPECT_FALSE(ReadBack(gpu, zmt::kPixelFormat_BGRA_4444_8u, Rect(2, 2, 6, 3))) << "outside the frame";
  EXPECT_EQ(LM::CopyFrame(empty, gpu, kHigh), LM::kResultFailed);
  EXPECT_EQ(LM::ConvertFrame(empty, gpu), LM::kResultFailed);
  EXPECT_EQ(LM::ConvertFrame(gpu, host), LM::kResultFailed) << "a host frame is not on the device";
  EXPECT_EQ(LM::ConvertFrame(larger, gpu), LM::kResultFailed) << "another size";
  EXPECT_EQ(LM::CopyFrameRect(gpu, Rect(3, 3, 5, 5), host, Frame(), kHigh), LM::kResultFailed) << "outside";
  EXPECT_EQ(LM::CopyFrameRect(gpu, Rect(1, 1, 1, 3), host, Frame(), kHigh), LM::kResultFailed) << "empty";
}

LM_ON_EVERY_DEVICE(FrameTransfers);

}  // namespace
