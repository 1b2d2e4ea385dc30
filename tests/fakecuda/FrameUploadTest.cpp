// Uploads on the CUDA path: host memory the library did not allocate is page-locked for its copy and held,
// locked, until the copy's event has completed; the library's own pinned frames are copied as they are.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>
#include <zelmediatypes/PixelFormats.h>

#include <chrono>
#include <thread>

#include "FakeDriverBinding.h"
#include "ForeignFrame.h"
#include "Lumora/Device.h"
#include "Lumora/FrameTransfers.h"
#include "Lumora/VideoFrames.h"

namespace {

using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;

std::uint32_t References(const Frame& frame) {
  frame->AddRef();
  return frame->Release();
}

TEST(CUDAFrameUpload, ForeignMemoryIsLockedAndHeldUntilItsCopyEnds) {
  zelcore::debug::SetAssertionOutputQuiet(true);
  const auto fake = BindFakeDriver();
  const boost::shared_ptr<LM::Device> device = LM::Device::Create(0, 0, 0);
  device->InitializeContext();
  fake->fakecuda_SetEventsComplete(0);

  const Frame foreign = ForeignFrame::Make(zelmediatypes::kPixelFormat_BGRA_4444_8u, 8, 4);
  const Frame uploaded = LM::CopyToDevice(device, foreign, {}, false);
  ASSERT_TRUE(uploaded);
  EXPECT_EQ(fake->fakecuda_CallCount("cuMemHostRegister"), 1u);
  EXPECT_EQ(fake->fakecuda_CallCount("cuMemHostUnregister"), 0u) << "the copy may still read it";
  EXPECT_EQ(References(foreign), 2u) << "held by the poll";

  const auto copy = OXR::Query<LM::ICompletionEventVideoFrame>(uploaded);
  ASSERT_TRUE(copy);
  ASSERT_TRUE(copy->GetCompletionEvent());
  fake->fakecuda_SetEventsComplete(1);
  fake->fakecuda_SetEventComplete(copy->GetCompletionEvent()->GetNativeEvent(), 1);
  for (int i = 0; i < 400 && References(foreign) != 1; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(References(foreign), 1u);
  EXPECT_EQ(fake->fakecuda_CallCount("cuMemHostUnregister"), 1u);

  // The library's own pinned frame needs no lock and carries the copy's event instead.
  Frame pinned;
  ASSERT_EQ(LM::CreateHostMemoryVideoFrame(pinned, device, zelmediatypes::kPixelFormat_BGRA_4444_8u, 8, 4,
                                           {1, 1}, zelmediatypes::kFieldType_Progressive, {}),
            0);
  ASSERT_TRUE(LM::CopyToDevice(device, pinned, {}, true));
  EXPECT_EQ(fake->fakecuda_CallCount("cuMemHostRegister"), 1u);
  const auto events = OXR::Query<LM::ICompletionEventVideoFrame>(pinned);
  ASSERT_TRUE(events);
  EXPECT_TRUE(events->GetCompletionEvent());
}

}  // namespace
