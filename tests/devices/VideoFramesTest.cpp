// GPU and host-memory frames on every device: what each answers to interface lookup, how their rows and
// fields lie in their block, their clears, cloning, and the return of their block to the pool only after
// their completion event; and the frame cache over real GPU frames.
#include <FK/VideoFrame.h>
#include <zelmediatypes/PixelFormats.h>

#include <atomic>
#include <boost/make_shared.hpp>

#include "EveryDevice.h"
#include "Lumora/FrameCache.h"
#include "Lumora/Results.h"
#include "Lumora/VideoFrames.h"

namespace {

using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;
using zelcore::utility::Guid;
namespace zmt = zelmediatypes;

// An event whose completion the test decides.
class ControlledEvent : public LM::Event {
 public:
  bool IsComplete() override { return complete; }
  float ElapsedTime(const boost::shared_ptr<LM::Event>&) override { return 0.0f; }
  void Wait() override {}
  void* GetNativeEvent() override { return nullptr; }
  std::atomic<bool> complete{false};
};

class VideoFrames : public EveryDevice {
 protected:
  Frame Make(bool gpu, LM::PixelFormat format, unsigned width, unsigned height,
             zmt::FieldType fieldType = zmt::kFieldType_Progressive) {
    Frame frame;
    EXPECT_EQ((gpu ? LM::CreateGPUVideoFrame : LM::CreateHostMemoryVideoFrame)(
                  frame, device_, format, width, height, {1, 1}, fieldType, OXR::ParamPoint<CPoint>(3, 4)),
              LM::kResultSuccess);
    return frame;
  }
  template <class Interface>
  static auto Base(const Frame& frame) {
    return static_cast<std::uint8_t*>(OXR::Query<Interface>(frame)->GetBaseAddress());
  }
};

// Each kind answers exactly its interfaces. A set flag withdraws the clears; a multi-plane format the row
// access.
TEST_P(VideoFrames, EachKindAnswersExactlyItsInterfaces) {
  const struct {
    Guid iid;
    bool gpu, host;
  } table[] = {{OXR::OXRUnknown::kIID, true, true},
               {TQ::IVideoFrame::kIID, true, true},
               {LM::IGPUVideoFrame::kIID, true, false},
               {LM::IGPUVideoFrameMemoryAccess::kIID, true, false},
               {FK::IVideoFrameMemoryAccess::kIID, false, true},
               {LM::ICompletionEventVideoFrame::kIID, true, true},
               {TQ::IVideoFrameClearable::kIID, true, true},
               {FK::IVideoFrame2DPixelMemoryAccess::kIID, true, true},
               {LM::kLibraryFrameIID, true, true},
               {Guid(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11), false, false}};
  for (bool gpu : {true, false}) {
    const Frame frame = Make(gpu, LM::kPixelFormat_GPU_BGRA_4444_16f, 8, 4);
    ASSERT_TRUE(frame);
    for (const auto& row : table) {
      void* out = reinterpret_cast<void*>(1);
      const int result = frame->QueryInterface(row.iid, &out);
      EXPECT_EQ(result == 0, gpu ? row.gpu : row.host) << row.iid.ToString() << (gpu ? " gpu" : " host");
      if (result == 0) {
        static_cast<OXR::OXRUnknown*>(static_cast<TQ::IVideoFrame*>(frame.Get()))->Release();
      } else {
        EXPECT_EQ(result, static_cast<int>(0xA00A0001u));
        EXPECT_EQ(out, nullptr);
      }
    }
    frame->SetFlag(true);
    EXPECT_FALSE(OXR::Query<TQ::IVideoFrameClearable>(frame));
    const Frame planar = Make(gpu, zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, 8, 4);
    EXPECT_FALSE(OXR::Query<FK::IVideoFrame2DPixelMemoryAccess>(planar));
    EXPECT_TRUE(OXR::Query<TQ::IVideoFrameClearable>(planar));
  }
}

// Rows lie without padding; fields interleave, and which row starts a field follows the field type and
// whether the height is odd.
TEST_P(VideoFrames, RowsAndFieldsLieInTheBlockWithoutPadding) {
  const Frame wide = Make(true, LM::kPixelFormat_GPU_BGRA_4444_32f, 1920, 2);
  const auto rows = OXR::Query<FK::IVideoFrame2DPixelMemoryAccess>(wide);
  ASSERT_TRUE(rows);
  EXPECT_EQ(rows->GetRowBytes(), 1920 * 16);
  EXPECT_EQ(rows->GetFieldRowBytes(), 2 * 1920 * 16);
  EXPECT_EQ(rows->GetBytesPerPixel(), 16);
  const auto memory = OXR::Query<LM::IGPUVideoFrameMemoryAccess>(wide);
  EXPECT_EQ(memory->GetDataSize(), 1920u * 16 * 2);
  EXPECT_GE(memory->GetAllocatedSize(), memory->GetDataSize());

  const struct {
    zmt::FieldType type;
    unsigned height;
    int field0, field1;
  } fields[] = {{zmt::kFieldType_Progressive, 4, 0, 1},
                {zmt::kFieldType_Progressive, 5, 1, 0},
                {zmt::kFieldType_LowerFirst, 5, 1, 0},
                {zmt::kFieldType_UpperFirst, 4, 1, 0},
                {zmt::kFieldType_UpperFirst, 5, 0, 1}};
  for (const auto& f : fields) {
    const Frame frame = Make(false, zmt::kPixelFormat_BGRA_4444_8u, 3, f.height, f.type);
    const auto access = OXR::Query<FK::IVideoFrame2DPixelMemoryAccess>(frame);
    EXPECT_EQ(access->GetFirstRowOfField(0), f.field0) << f.type << " " << f.height;
    EXPECT_EQ(access->GetFirstRowOfField(1), f.field1) << f.type << " " << f.height;
    EXPECT_EQ(access->GetField1Start(), Base<FK::IVideoFrameMemoryAccess>(frame) + f.field1 * 12);
  }
}

// Slot 7 differs on purpose: transparent black on the GPU, transparent white on the host. A GPU frame in a
// host format cannot be filled by the device's fills.
TEST_P(VideoFrames, TheClearsOfEachKind) {
  const Frame gpu = Make(true, LM::kPixelFormat_GPU_BGRA_4444_16f, 2, 2);
  ASSERT_EQ(OXR::Query<TQ::IVideoFrameClearable>(gpu)->ClearToOpaqueWhite(), LM::kResultSuccess);
  ASSERT_EQ(OXR::Query<TQ::IVideoFrameClearable>(gpu)->ClearToTransparentWhite(), LM::kResultSuccess);
  EXPECT_EQ(Download(Base<LM::IGPUVideoFrameMemoryAccess>(gpu), 32), Bytes(32, 0)) << "transparent black";

  const Frame host = Make(false, zmt::kPixelFormat_BGRA_4444_8u, 2, 2);
  ASSERT_EQ(OXR::Query<TQ::IVideoFrameClearable>(host)->ClearToTransparentWhite(), LM::kResultSuccess);
  const std::uint8_t* pixels = Base<FK::IVideoFrameMemoryAccess>(host);
  EXPECT_EQ(Bytes(pixels, pixels + 16),
            (Bytes{255, 255, 255, 0, 255, 255, 255, 0, 255, 255, 255, 0, 255, 255, 255, 0}));

  const Frame hostFormatOnGPU = Make(true, zmt::kPixelFormat_BGRA_4444_8u, 2, 2);
  EXPECT_EQ(OXR::Query<TQ::IVideoFrameClearable>(hostFormatOnGPU)->ClearToOpaqueBlack(), LM::kResultFailed);
}

// A clone has the description and not the pixels or the flag; the alpha type is changed only to one the
// host knows.
TEST_P(VideoFrames, CloneAndAlphaType) {
  const Frame frame = Make(true, LM::kPixelFormat_GPU_BGRA_4444_32f, 6, 5, zmt::kFieldType_LowerFirst);
  frame->SetPrimaryRect(OXR::ParamRect<CRect>(1, 1, 4, 4));
  frame->SetFrameWords({{7, 8, 9}});
  frame->SetFrameWord(11);
  frame->SetFlag(true);
  const Frame copy = frame->Clone();
  ASSERT_TRUE(copy);
  EXPECT_NE(copy.Get(), frame.Get());
  EXPECT_EQ(copy->GetPrimaryRect(), OXR::ParamRect<CRect>(1, 1, 4, 4));
  EXPECT_EQ(copy->GetFrameWords().words[2], 9u);
  EXPECT_EQ(copy->GetFrameWord(), 11u);
  EXPECT_FALSE(copy->GetFlag());
  EXPECT_EQ(copy->GetOrigin(), OXR::ParamPoint<CPoint>(3, 4));
  EXPECT_EQ(copy->GetFieldType(), zmt::kFieldType_LowerFirst);
  EXPECT_TRUE(OXR::Query<LM::IGPUVideoFrame>(copy));

  const Frame rgb = Make(false, zmt::kPixelFormat_BGRA_4444_8u, 1, 1);
  rgb->SetAlphaType(3);  // BGRX_4444_8u
  EXPECT_EQ(rgb->GetPixelFormat().properties, zmt::kPixelFormat_BGRX_4444_8u.properties);
  EXPECT_FALSE(rgb->HasFourComponentAlpha());
  rgb->SetAlphaType(6);  // no such format
  EXPECT_EQ(rgb->GetPixelFormat().properties, zmt::kPixelFormatProperties_Any);
}

// The block goes back to the pool with the frame's completion event: no request gets it while the event is
// pending, and one of the next requests of its size does once it has completed (the pool may hold other
// free blocks of that size from earlier work).
TEST_P(VideoFrames, ABlockReturnsToThePoolOnlyAfterTheFramesEvent) {
  const auto event = boost::make_shared<ControlledEvent>();
  Frame frame = Make(true, LM::kPixelFormat_GPU_BGRA_4444_32f, 64, 64);
  const void* block = Base<LM::IGPUVideoFrameMemoryAccess>(frame);
  OXR::Query<LM::ICompletionEventVideoFrame>(frame)->SetCompletionEvent(event);
  frame.Reset();
  const auto takes = [&](int requests) {
    std::vector<Frame> held;
    for (int i = 0; i < requests; ++i) {
      held.push_back(Make(true, LM::kPixelFormat_GPU_BGRA_4444_32f, 64, 64));
      if (Base<LM::IGPUVideoFrameMemoryAccess>(held.back()) == block) return true;
    }
    return false;
  };
  EXPECT_FALSE(takes(16));
  event->complete = true;
  EXPECT_TRUE(takes(64));
}

TEST_P(VideoFrames, BadRequestsMakeNoFrame) {
  Frame frame;
  const auto create = [&](LM::PixelFormat format, unsigned width, unsigned height) {
    return LM::CreateGPUVideoFrame(frame, device_, format, width, height, {1, 1}, zmt::kFieldType_Progressive,
                                   {});
  };
  EXPECT_EQ(create(LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 4), LM::kResultFailed);
  EXPECT_EQ(create(LM::kPixelFormat_GPU_BGRA_4444_32f, 4, 0xFFFFFFFFu), LM::kResultFailed);
  EXPECT_EQ(create(zmt::kPixelFormat_Invalid, 4, 4), LM::kResultOutOfMemory);
  EXPECT_EQ(create(LM::kPixelFormat_GPU_BGRA_4444_32f, 1u << 27, 1), LM::kResultOutOfMemory)
      << "rows past an int";
  EXPECT_EQ(LM::CreateHostMemoryVideoFrame(frame, {}, LM::kPixelFormat_GPU_BGRA_4444_32f, 4, 4, {1, 1},
                                           zmt::kFieldType_Progressive, {}),
            LM::kResultFailed);
  EXPECT_FALSE(frame);
}

// Entries go in key order under pressure, age out by generations (capacity ÷ bytes held), and stop
// counting once their frame takes another identity.
TEST_P(VideoFrames, TheFrameCache) {
  const Guid keys[] = {Guid(1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), Guid(2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0),
                       Guid(3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)};
  LM::FrameCache cache;
  std::size_t bytes[3] = {};
  const auto fill = [&]() {
    for (int i = 0; i < 3; ++i) {
      const Frame frame = Make(true, LM::kPixelFormat_GPU_BGRA_4444_16f, 16, 16);
      OXR::Query<LM::IGPUVideoFrame>(frame)->SetGuid(keys[i]);
      bytes[i] = OXR::Query<LM::IGPUVideoFrameMemoryAccess>(frame)->GetAllocatedSize();
      cache.CacheFrame(keys[i], frame);
    }
  };
  fill();
  cache.CacheFrame(Guid(9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), Frame());  // not a library frame: ignored
  EXPECT_EQ(cache.GetSize(), bytes[0] + bytes[1] + bytes[2]);
  EXPECT_EQ(cache.Purge(0), 0u);
  EXPECT_EQ(cache.Purge(1), bytes[0]);
  EXPECT_FALSE(cache.FindFrame(keys[0])) << "the first key goes first";
  EXPECT_TRUE(cache.FindFrame(keys[1]));

  OXR::Query<LM::IGPUVideoFrame>(cache.FindFrame(keys[2]))->SetGuid(keys[0]);
  EXPECT_FALSE(cache.FindFrame(keys[2])) << "another identity now";
  EXPECT_EQ(cache.GetSize(), bytes[1]);

  // With room for two generations of what it holds, an entry unused for three is gone.
  fill();
  cache.SetCapacity(2 * (bytes[0] + bytes[1] + bytes[2]));
  for (int generation = 0; generation < 4; ++generation) {
    EXPECT_TRUE(cache.FindFrame(keys[1]));
    cache.IncrementGeneration();
  }
  EXPECT_TRUE(cache.FindFrame(keys[1]));
  EXPECT_FALSE(cache.FindFrame(keys[0]));
  EXPECT_FALSE(cache.FindFrame(keys[2]));
  EXPECT_EQ(cache.Purge(~std::size_t{0}), bytes[1]);
  EXPECT_EQ(cache.GetSize(), 0u);
}

LM_ON_EVERY_DEVICE(VideoFrames);

}  // namespace
