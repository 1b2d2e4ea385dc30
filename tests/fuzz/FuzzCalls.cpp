#include "FuzzCalls.h"

#include <zelmediatypes/PixelFormatTable.h>
#include <zelmediatypes/PixelFormats.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <tuple>
#include <vector>

#include "ForeignFrame.h"
#include "Lumora/EventPoll.h"
#include "Lumora/FrameCache.h"
#include "Lumora/FrameOperations.h"
#include "Lumora/FrameTransfers.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Qualification.h"
#include "Lumora/Results.h"
#include "Lumora/Textures.h"
#include "Lumora/VideoFrames.h"
#include "Runtime/OpenCLEntryPoints.h"

std::uint64_t FuzzBytes::Take(int n) {
  std::uint64_t value = 0;
  for (int i = 0; i < n; ++i, ++position_) {
    if (position_ < size_) value |= std::uint64_t(data_[position_]) << (8 * i);
  }
  return value;
}

namespace {

using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;
using DevicePtr = boost::shared_ptr<LM::Device>;

constexpr std::size_t kGuardBytes = 4096;
constexpr std::uint8_t kGuardByte = 0xA5;
// Buffer sizes: one 16f pixel, a small image, 64 KiB and 1 MiB. The largest bounds the work of any call,
// since extents past a buffer are refused.
constexpr std::size_t kBufferBytes[] = {8, 4096, 65536, 1 << 20};
constexpr std::size_t kFrameSlots = 6;
constexpr std::size_t kBlockSlots = 8;
constexpr std::size_t kHostBytes = 2 << 20;

const int kInts[] = {0,    1,     2,     3,       4,       7,           8,           15,     16,
                     17,   31,    33,    64,      65,      100,         128,         255,    256,
                     1024, 4096,  8192,  65536,   1 << 20, 1 << 30,     -1,          -2,     -16,
                     -64,  46341, 65535, INT_MAX, INT_MIN, INT_MAX - 1, INT_MIN + 1, 1 << 16};
const float kFloats[] = {0.0f,    -0.0f,     1.0f,      0.5f,    -1.0f,   2.0f,     0.25f,     0.75f,
                         NAN,     INFINITY,  -INFINITY, 1e-30f,  1e30f,   65504.0f, -65504.0f, 1e-8f,
                         3.0f,    90.0f,     45.0f,     180.0f,  FLT_MAX, -FLT_MAX, FLT_MIN,   1e-45f,
                         4096.0f, 0.999995f, 8e-6f,     1024.0f, 1e9f,    -90.0f,   2.5f,      0.1f};
// Frame sides: mostly small; sometimes one whose area or bytes overflow an int, or memory.
const unsigned int kSides[] = {0, 1, 2, 3, 5, 8, 16, 17, 33, 64, 1, 2, 8, 16, 33, 64};
const unsigned int kHugeSides[] = {46341u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};

template <class T, std::size_t N>
constexpr std::size_t Count(const T (&)[N]) {
  return N;
}

struct GuardedBuffer {
  std::uint8_t* host = nullptr;  // guard, body, guard
  std::size_t bytes = 0;
  cl_mem buffer = nullptr;
};

}  // namespace

struct FuzzSession::State {
  DevicePtr device;
  std::vector<GuardedBuffer> buffers;
  std::vector<cl_mem> images;
  std::vector<std::uint8_t> host = std::vector<std::uint8_t>(kHostBytes, 0x3C);
  Frame frames[kFrameSlots];
  void* blocks[kBlockSlots] = {};
  LM::TexturePlane planes[2] = {};
  std::atomic<int> pollsAdded{0};
  std::atomic<int> pollsRun{0};
  std::size_t usedAtStart = 0;
  std::string fault;

  // --- arguments ---
  int Int(FuzzBytes& in) {
    const std::uint32_t pick = in.Below(64);
    return pick < Count(kInts) ? kInts[pick] : static_cast<int>(in.Take(4));
  }
  // Mostly a size that fits the buffers; sometimes anything.
  int Size(FuzzBytes& in) { return in.Below(4) != 0 ? static_cast<int>(in.Below(72)) : Int(in); }
  float Float(FuzzBytes& in) {
    const std::uint32_t pick = in.Below(48);
    if (pick < Count(kFloats)) return kFloats[pick];
    const std::uint32_t bits = static_cast<std::uint32_t>(in.Take(4));
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
  LM::float4 Colour(FuzzBytes& in) { return LM::float4{Float(in), Float(in), Float(in), Float(in)}; }
  LM::PixelFormat Format(FuzzBytes& in) {
    static const LM::PixelFormat gpu[] = {
        LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRA_4444_32f,
        LM::kPixelFormat_GPU_BGRX_4444_16f, LM::kPixelFormat_GPU_BGRX_4444_32f};
    const std::uint32_t pick = in.Below(20);
    if (pick < 10) return gpu[pick % 4];
    if (pick < 18) {
      std::size_t count = 0;
      const zelmediatypes::PixelFormatInfo* table = zelmediatypes::PixelFormatTable(count);
      return table[in.Below(static_cast<std::uint32_t>(count))].format;
    }
    if (pick == 18) return zelmediatypes::kPixelFormat_Invalid;
    return LM::PixelFormat{static_cast<std::uint32_t>(in.Take(4)), static_cast<std::uint32_t>(in.Take(4))};
  }
  // The device, or now and then none.
  DevicePtr Device(FuzzBytes& in) { return in.Below(12) == 0 ? DevicePtr() : device; }
  // A buffer (mostly a large one, so that drawn extents fit now and then), an image where a buffer belongs,
  // or null.
  void* Buffer(FuzzBytes& in) {
    static const std::size_t picks[] = {3, 3, 3, 2, 2, 1, 0};
    const std::uint32_t pick = in.Below(static_cast<std::uint32_t>(Count(picks) + images.size() + 1));
    if (pick < Count(picks)) return picks[pick] < buffers.size() ? buffers[picks[pick]].buffer : nullptr;
    if (pick < Count(picks) + images.size()) return images[pick - Count(picks)];
    return nullptr;
  }
  // A row pitch: mostly one that rows of up to 64 pixels fit, else anything.
  int Pitch(FuzzBytes& in) {
    static const int pitches[] = {1024, 1024, 512, 1152, 256, 128};
    const std::uint32_t pick = in.Below(8);
    return pick < Count(pitches) ? pitches[pick] : Int(in);
  }
  template <class E>
  E Enum(FuzzBytes& in, int count) {
    return static_cast<E>(in.Below(8) == 0 ? Int(in) : static_cast<int>(in.Below(count)));
  }
  // Frame sides: mostly 16, so that frames meet frames of their own size.
  unsigned int Side(FuzzBytes& in) {
    const std::uint32_t pick = in.Below(20);
    if (pick < 10) return 16;
    return pick == 10 ? kHugeSides[in.Below(Count(kHugeSides))] : kSides[in.Below(Count(kSides))];
  }
  LM::PixelFormat FrameFormat(FuzzBytes& in) {
    return in.Below(2) == 0 ? LM::kPixelFormat_GPU_BGRA_4444_32f : Format(in);
  }
  OXR::ParamRect<CRect> Rect(FuzzBytes& in) {
    if (in.Below(3) == 0) return {};
    return {Size(in) - 8, Size(in) - 8, Size(in), Size(in)};
  }
  Frame& Slot(FuzzBytes& in) { return frames[in.Below(kFrameSlots)]; }
  // A frame of the slots (some empty), a frame the host made, or none.
  Frame AnyFrame(FuzzBytes& in) {
    const std::uint32_t pick = in.Below(kFrameSlots + 2);
    if (pick < kFrameSlots) return frames[pick];
    if (pick == kFrameSlots) return Frame();
    const LM::PixelFormat format = Format(in);
    const int width = static_cast<int>(kSides[in.Below(Count(kSides))]);
    const int height = static_cast<int>(kSides[in.Below(Count(kSides))]);
    return ForeignFrame::Make(format, width, height, Enum<zelmediatypes::FieldType>(in, 3));
  }
  zelmediatypes::RenderQuality Quality(FuzzBytes& in) { return Enum<zelmediatypes::RenderQuality>(in, 5); }
  zelmediatypes::PixelAspectRatio Aspect(FuzzBytes& in) {
    return in.Below(4) == 0 ? zelmediatypes::PixelAspectRatio{Int(in), Int(in)}
                            : zelmediatypes::PixelAspectRatio{};
  }

  // --- results ---
  void Expect(const char* name, int result, const DevicePtr& used) {
    if (!fault.empty()) return;
    const bool known = result == LM::kResultSuccess || result == LM::kResultFailed ||
                       result == LM::kResultOutOfMemory || result == LM::kResultUnsupported ||
                       result == LM::kResultNoInterface;
    if (!known) fault = std::string(name) + " returned the unknown code " + std::to_string(result);
    if (!used && result != LM::kResultFailed)
      fault =
          std::string(name) + " without a device returned " + std::to_string(result) + ", not kResultFailed";
  }
  void ExpectEmpty(const char* name, const Frame& frame, const DevicePtr& used) {
    if (fault.empty() && !used && frame) fault = std::string(name) + " without a device returned a frame";
  }
};

namespace {

using State = FuzzSession::State;

struct EntryPoint {
  const char* name;
  void (*call)(State&, FuzzBytes&);
};

// The arguments are drawn inside a braced list, which C++ evaluates left to right, so that one stream gives
// the same call from every compiler.
// A raw-buffer operation: the device (or none), then the drawn arguments.
#define LM_FUZZ_OPERATION(Function, ...)                                             \
  {                                                                                  \
#Function, [](State& s, FuzzBytes& in) {                                           \
     const DevicePtr d = s.Device(in);                                                \
     const auto args = std::tuple{d, __VA_ARGS__};                                    \
     s.Expect(#Function, std::apply([](const auto&... a) { return LM::Function(a...); }, args), d); \
   } \
  }
// An operation on frames, which finds its device in them.
#define LM_FUZZ_FRAMES(Label, Function, ...)                                                            \
  {                                                                                                     \
    Label, [](State& s, FuzzBytes& in) {                                                                \
      const auto args = std::tuple{__VA_ARGS__};                                                        \
      s.Expect(Label, std::apply([](const auto&... a) { return LM::Function(a...); }, args), s.device); \
    }                                                                                                   \
  }
// A transfer that makes a frame: kept in a slot.
#define LM_FUZZ_MAKER(Function, ...)                                                        \
  {                                                                                         \
#Function, [](State& s, FuzzBytes& in) {                                                  \
     const DevicePtr d = s.Device(in);                                                       \
     const auto args = std::tuple{d, __VA_ARGS__};                                           \
     const Frame made = std::apply([](const auto&... a) { return LM::Function(a...); }, args); \
     s.ExpectEmpty(#Function, made, d);                                                      \
     s.Slot(in) = made;                                                                      \
   } \
  }
// A frame factory, into a slot.
#define LM_FUZZ_CREATE(Function)                                                                       \
  {                                                                                                    \
#Function, [](State& s, FuzzBytes& in) {                                                             \
     const DevicePtr d = s.Device(in);                                                                  \
     Frame& slot = s.Slot(in);                                                                          \
     const auto args = std::tuple{d,           s.FrameFormat(in), s.Side(in), s.Side(in), s.Aspect(in), \
                                  s.Enum<zelmediatypes::FieldType>(in, 3), OXR::ParamPoint<CPoint>{s.Int(in), s.Int(in)}}; \
     s.Expect(#Function, std::apply([&slot](const auto&... a) { return LM::Function(slot, a...); }, args), d); \
   } \
  }
#define LM_FUZZ_RECT s.Size(in) - 4, s.Size(in) - 4, s.Size(in), s.Size(in)
#define LM_FUZZ_FILL(Function) \
  LM_FUZZ_OPERATION(Function, s.Buffer(in), s.Pitch(in), s.Format(in), LM_FUZZ_RECT)

const EntryPoint kEntryPoints[] = {
    LM_FUZZ_OPERATION(FillWithColor, s.Buffer(in), s.Pitch(in), s.Format(in), LM_FUZZ_RECT, s.Colour(in)),
    LM_FUZZ_FILL(FillWithOpaqueBlack),
    LM_FUZZ_FILL(FillWithTransparentBlack),
    LM_FUZZ_FILL(FillWithOpaqueWhite),
    LM_FUZZ_FILL(FillWithTransparentWhite),
    LM_FUZZ_OPERATION(FastDeviceMemcpy2D, s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in), s.Format(in),
                      s.Size(in), s.Size(in)),
    LM_FUZZ_OPERATION(FastDeviceMemcpy2DWithOffsets, s.Buffer(in), s.Pitch(in), s.Int(in), s.Buffer(in),
                      s.Pitch(in), s.Int(in), s.Format(in), s.Size(in), s.Size(in)),
    LM_FUZZ_OPERATION(DeviceCopyRect, s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in), s.Format(in),
                      s.Size(in), s.Size(in), s.Size(in), s.Size(in), s.Size(in), s.Size(in)),
    LM_FUZZ_OPERATION(CopyBufferToImage, s.Buffer(in), s.Int(in) & ~15, s.Pitch(in), s.Buffer(in), s.Format(in),
                      s.Size(in), s.Size(in)),
    LM_FUZZ_OPERATION(PixelFormatConvert, s.Buffer(in), s.Pitch(in), s.Format(in), s.Buffer(in), s.Pitch(in),
                      s.Format(in), s.Size(in), s.Size(in), in.Below(2) == 1),
    LM_FUZZ_OPERATION(Composite, s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in),
                      s.Format(in), s.Size(in), s.Size(in), s.Float(in), s.Enum<SK_BlendMode>(in, 27)),
    LM_FUZZ_OPERATION(CrossDissolve, s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in), s.Buffer(in),
                      s.Pitch(in), s.Format(in), s.Size(in), s.Size(in), s.Float(in), in.Below(2) == 1),
    {"Accumulate",
     [](State& s, FuzzBytes& in) {
       const DevicePtr d = s.Device(in);
       const void* sources[20];
       float weights[20];
       for (int i = 0; i < 20; ++i) {
         sources[i] = s.Buffer(in);
         weights[i] = s.Float(in);
       }
       const int count = in.Below(4) == 0 ? -static_cast<int>(in.Below(3)) : static_cast<int>(in.Below(21));
       const auto args = std::tuple{in.Below(10) == 0 ? nullptr : sources, in.Below(10) == 0 ? nullptr : weights,
                                    s.Buffer(in), s.Pitch(in), s.Int(in), s.Format(in), s.Size(in), s.Size(in)};
       s.Expect("Accumulate",
                LM::Accumulate(d, std::get<0>(args), std::get<1>(args), count, std::get<2>(args), std::get<3>(args),
                               std::get<4>(args), std::get<5>(args), std::get<6>(args), std::get<7>(args)),
                d);
     }},
    LM_FUZZ_OPERATION(AlphaGain, s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in), s.Format(in), s.Size(in),
                      s.Size(in), s.Float(in)),
    LM_FUZZ_OPERATION(Unpremultiply, s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in), s.Format(in),
                      s.Size(in), s.Size(in), s.Colour(in)),
    LM_FUZZ_OPERATION(GaussianBlur, s.Buffer(in), s.Pitch(in), s.Size(in), s.Size(in), s.Buffer(in), s.Pitch(in),
                      s.Size(in), s.Size(in), s.Format(in), s.Float(in), s.Float(in), in.Below(2) == 1,
                      s.Enum<SK_BlurDirection>(in, 4)),
    LM_FUZZ_OPERATION(FieldReverse, s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in), s.Format(in),
                      s.Size(in), s.Size(in)),
    LM_FUZZ_OPERATION(InterlaceFields, s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in), s.Buffer(in),
                      s.Pitch(in), s.Format(in), s.Size(in), s.Size(in), s.Enum<int>(in, 2)),
    LM_FUZZ_OPERATION(Deinterlace, s.Buffer(in), s.Pitch(in), s.Buffer(in), s.Pitch(in), s.Format(in), s.Size(in),
                      s.Size(in), s.Enum<int>(in, 2), s.Enum<LM::DeinterlaceMode>(in, 3)),
    LM_FUZZ_OPERATION(Motion, s.Buffer(in), s.Pitch(in), s.Size(in), s.Size(in), s.Buffer(in), s.Pitch(in),
                      s.Size(in), s.Size(in), s.Format(in),
                      LM::MotionTransform{s.Float(in), s.Float(in), s.Float(in), s.Float(in), s.Float(in),
                                          s.Float(in), s.Float(in)},
                      s.Quality(in)),
    LM_FUZZ_OPERATION(Scale, s.Buffer(in), s.Pitch(in), s.Size(in), s.Size(in), s.Buffer(in), s.Pitch(in),
                      s.Size(in), s.Size(in), s.Format(in), s.Quality(in)),
    {"BindTexture",
     [](State& s, FuzzBytes& in) {
       const DevicePtr d = s.Device(in);
       const auto [textureFormat, base, offset, pitch, width, height, format] =
           std::tuple{s.Format(in), s.Buffer(in), s.Size(in) * 16, s.Pitch(in), s.Size(in), s.Size(in), s.Format(in)};
       LM::Texture texture = LM::LoadTexture(d, "Deinterlace", "inDeinterlaceTexture", CU_TR_ADDRESS_MODE_CLAMP,
                                             CU_TR_FILTER_MODE_POINT, textureFormat);
       const void* data = base == nullptr ? nullptr : static_cast<const char*>(base) + offset;
       s.Expect("BindTexture", LM::BindTexture(d, texture, base, data, pitch, width, height, format), d);
     }},
    {"AlignPlaneForTexture",
     [](State& s, FuzzBytes& in) {
       const DevicePtr d = s.Device(in);
       LM::TexturePlane& plane = s.planes[in.Below(2)];
       LM::ReleaseTexturePlane(s.device, &plane, boost::shared_ptr<LM::Event>());
       const auto [base, offset, pitch, width, height, format] =
           std::tuple{s.Buffer(in), s.Size(in), s.Pitch(in), s.Size(in), s.Size(in), s.Format(in)};
       const void* data = base == nullptr ? nullptr : static_cast<const char*>(base) + offset;
       s.Expect("AlignPlaneForTexture", LM::AlignPlaneForTexture(d, base, data, pitch, width, height, format, &plane),
                d);
     }},
    LM_FUZZ_CREATE(CreateGPUVideoFrame),
    LM_FUZZ_CREATE(CreateHostMemoryVideoFrame),
    {"DropFrame", [](State& s, FuzzBytes& in) { s.Slot(in) = Frame(); }},
    {"ClearFrame",
     [](State& s, FuzzBytes& in) {
       const auto clearable = OXR::Query<TQ::IVideoFrameClearable>(s.AnyFrame(in));
       if (!clearable) return;
       int (TQ::IVideoFrameClearable::*const clears[])() = {
           &TQ::IVideoFrameClearable::ClearToOpaqueBlack, &TQ::IVideoFrameClearable::ClearToOpaqueWhite,
           &TQ::IVideoFrameClearable::ClearToTransparentBlack,
           &TQ::IVideoFrameClearable::ClearToTransparentWhite};
       s.Expect("ClearFrame", (clearable.Get()->*clears[in.Below(4)])(), s.device);
     }},
    LM_FUZZ_FRAMES("ConvertFrame", ConvertFrame, s.AnyFrame(in), s.AnyFrame(in), in.Below(2) == 1),
    LM_FUZZ_FRAMES("Composite (frames)", Composite, s.AnyFrame(in), s.AnyFrame(in), s.AnyFrame(in), s.Float(in),
                   s.Enum<SK_BlendMode>(in, 27)),
    LM_FUZZ_FRAMES("DeinterlaceFrame", DeinterlaceFrame, s.AnyFrame(in), s.AnyFrame(in),
                   s.Enum<LM::DeinterlaceMode>(in, 3)),
    LM_FUZZ_FRAMES("InterlaceFrames", InterlaceFrames, s.AnyFrame(in), s.AnyFrame(in), s.AnyFrame(in)),
    LM_FUZZ_FRAMES("UnpremultiplyFrame", UnpremultiplyFrame, s.AnyFrame(in), s.AnyFrame(in), s.Colour(in)),
    LM_FUZZ_FRAMES("CopyToHostFrame", CopyToHostFrame, s.AnyFrame(in), s.AnyFrame(in), s.Quality(in)),
    LM_FUZZ_FRAMES("CopyFrame", CopyFrame, s.AnyFrame(in), s.AnyFrame(in), s.Quality(in)),
    LM_FUZZ_FRAMES("CopyFrameRect", CopyFrameRect, s.AnyFrame(in), s.Rect(in), s.AnyFrame(in), s.AnyFrame(in),
                   s.Quality(in)),
    LM_FUZZ_MAKER(AllocateHostFrameForUpload, s.AnyFrame(in), s.Quality(in), s.Rect(in)),
    LM_FUZZ_MAKER(CopyToDevice, s.AnyFrame(in), s.Rect(in), in.Below(2) == 1),
    LM_FUZZ_MAKER(UploadFrameImmediate, s.AnyFrame(in), s.Format(in), s.Quality(in), s.Rect(in)),
    {"ReadBackFrame",
     [](State& s, FuzzBytes& in) {
       const auto args = std::tuple{s.AnyFrame(in), s.Format(in), s.Rect(in), s.Aspect(in),
                                    s.Enum<zelmediatypes::FieldType>(in, 3), s.Quality(in), in.Below(2) == 1};
       s.Slot(in) = std::apply([](const auto&... a) { return LM::ReadBackFrame(a...); }, args);
     }},
    {"FrameCache",
     [](State& s, FuzzBytes& in) {
       LM::FrameCache& cache = s.device->GetDeviceMemory()->GetFrameCache();
       const zelcore::utility::Guid key{
           static_cast<std::uint32_t>(in.Below(4)), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
       switch (in.Below(5)) {
         case 0:
           cache.CacheFrame(key, s.AnyFrame(in));
           break;
         case 1:
           s.Slot(in) = cache.FindFrame(key);
           break;
         case 2:
           cache.Purge(in.Take(4));
           break;
         case 3:
           cache.SetCapacity(in.Take(3));
           break;
         default:
           cache.IncrementGeneration();
           break;
       }
     }},
    {"MemoryManager",
     [](State& s, FuzzBytes& in) {
       const boost::shared_ptr<LM::MemoryManager> memory =
           in.Below(2) == 0 ? s.device->GetDeviceMemory() : s.device->GetHostMemory();
       void*& block = s.blocks[in.Below(kBlockSlots)];
       const boost::shared_ptr<LM::MemoryManager> owner = s.device->GetDeviceMemory();
       switch (in.Below(6)) {
         case 0:
           if (block == nullptr) {
             const std::size_t bytes =
                 in.Below(4) == 0 ? std::size_t(in.Take(8)) : std::size_t(in.Below(1 << 16));
             block = owner->Allocate(bytes, nullptr);
           }
           break;
         case 1:
           if (block == nullptr) {
             const auto [width, height, format] = std::tuple{s.Int(in), s.Int(in), s.Format(in)};
             block = owner->Allocate(width, height, format, nullptr);
           }
           break;
         case 2:
           owner->Release(block, in.Below(2) == 0 ? boost::shared_ptr<LM::Event>()
                                                  : s.device->GetCommandQueue()->RecordEvent());
           block = nullptr;
           break;
         case 3:
           memory->Purge(in.Take(4));
           break;
         case 4:
           memory->Trim();
           break;
         default: {
           std::size_t total, free, live, low, high;
           memory->GetStatistics(&total, &free, &live, &low, &high);
         }
       }
     }},
    {"CommandQueue",
     [](State& s, FuzzBytes& in) {
       const boost::shared_ptr<LM::CommandQueue> queue = s.device->GetCommandQueue();
       void* buffer = s.Buffer(in);
       const std::size_t bytes = in.Below(kHostBytes + 1);
       boost::shared_ptr<LM::Event> done;
       switch (in.Below(4)) {
         case 0:
           s.Expect("CopyHostToDevice", queue->CopyHostToDevice(s.host.data(), buffer, bytes, &done),
                    s.device);
           break;
         case 1:
           s.Expect("CopyDeviceToHost",
                    queue->CopyDeviceToHost(buffer, s.host.data(), bytes, &done, in.Below(2) == 0), s.device);
           break;
         case 2:
           queue->WaitForEvent(in.Below(2) == 0 ? queue->RecordEvent() : done);
           break;
         default:
           s.Expect("LaunchKernel", queue->LaunchKernel(nullptr, 1, 1, 1, 1, &done), s.device);
       }
     }},
    {"EventPoll",
     [](State& s, FuzzBytes& in) {
       const DevicePtr d = s.Device(in);
       if (in.Below(3) == 0) return LM::ServiceEventPoll(d);
       const boost::shared_ptr<LM::Event> event =
           in.Below(4) == 0 ? boost::shared_ptr<LM::Event>() : s.device->GetCommandQueue()->RecordEvent();
       // A poll for no event or no device is dropped; a poll that is taken must run its callback once.
       if (d && event) ++s.pollsAdded;
       State* state = &s;
       LM::AddEventPoll(d, event, [state, d, event] {
         if (d && event) ++state->pollsRun;
       });
     }},
    {"Lifecycle",
     [](State& s, FuzzBytes& in) {
       const DevicePtr any = LM::GetDevice(static_cast<unsigned int>(s.Int(in)));
       const DevicePtr primary = LM::GetPrimaryDevice(s.Enum<LM::DeviceFramework>(in, 3));
       const DevicePtr d = in.Below(2) == 0 ? any : s.Device(in);
       (void)LM::GetDeviceCount();
       (void)LM::RequiresUpdatedDriver();
       (void)LM::MeetsMinimumRequirementsForUse(d);
       (void)LM::FirstFailedRequirement(d);
       (void)LM::MatchesNamedCardList(d);
       (void)LM::BytesPerPixel(s.Format(in));
       if (d) (void)d->FindModule(in.Below(2) == 0 ? "Composite" : "..\\..\\Src\\Nothing\\Here");
       const zelcore::UTF16String name(static_cast<std::size_t>(in.Below(4)), zelcore::UTF16Char('x'));
       LM::RegisterMatchName(name);
       (void)LM::HasRegisteredMatchName(name);
       (void)primary;
     }},
};

#undef LM_FUZZ_FILL
#undef LM_FUZZ_RECT
#undef LM_FUZZ_CREATE
#undef LM_FUZZ_MAKER
#undef LM_FUZZ_FRAMES
#undef LM_FUZZ_OPERATION

}  // namespace

FuzzSession::FuzzSession(const DevicePtr& device) : state_(new State) {
  State& s = *state_;
  s.device = device;
  const cl_context context = static_cast<cl_context>(device->GetContextHandle());
  for (const std::size_t bytes : kBufferBytes) {
    GuardedBuffer guarded;
    guarded.bytes = bytes;
    // aligned_alloc takes whole multiples of the alignment; the body starts one guard in.
    const std::size_t allocated = (bytes + 3 * kGuardBytes) / kGuardBytes * kGuardBytes;
    guarded.host = static_cast<std::uint8_t*>(std::aligned_alloc(kGuardBytes, allocated));
    std::memset(guarded.host, kGuardByte, allocated);
    for (std::size_t i = 0; i < bytes; ++i) guarded.host[kGuardBytes + i] = static_cast<std::uint8_t>(i * 7);
    cl_int error = CL_SUCCESS;
    guarded.buffer = clCreateBuffer(context, CL_MEM_READ_WRITE | CL_MEM_USE_HOST_PTR, bytes,
                                    guarded.host + kGuardBytes, &error);
    if (error == CL_SUCCESS)
      s.buffers.push_back(guarded);
    else
      std::free(guarded.host);
  }
  // Images made here, not by the pool, so that no pool block is ever both an image and a buffer argument.
  for (const cl_image_format format :
       {cl_image_format{CL_RGBA, CL_HALF_FLOAT}, cl_image_format{CL_RGBA, CL_FLOAT}}) {
    cl_int error = CL_SUCCESS;
    const cl_mem image = clCreateImage2D(context, CL_MEM_READ_WRITE, &format, 16, 8, 0, nullptr, &error);
    if (error == CL_SUCCESS) s.images.push_back(image);
  }
  s.usedAtStart = device->GetDeviceMemory()->GetUsedSize();
}

FuzzSession::~FuzzSession() {
  Finish();
  for (const GuardedBuffer& guarded : state_->buffers) {
    clReleaseMemObject(guarded.buffer);
    std::free(guarded.host);
  }
  for (const cl_mem image : state_->images) clReleaseMemObject(image);
}

const char* FuzzSession::CallOne(FuzzBytes& input) {
  const EntryPoint& entry = kEntryPoints[input.Below(Count(kEntryPoints))];
  entry.call(*state_, input);
  return entry.name;
}

std::string FuzzSession::Check() {
  State& s = *state_;
  s.device->GetCommandQueue()->RecordEvent()->Wait();
  for (std::size_t b = 0; b < s.buffers.size() && s.fault.empty(); ++b) {
    const GuardedBuffer& guarded = s.buffers[b];
    const std::uint8_t* after = guarded.host + kGuardBytes + guarded.bytes;
    for (std::size_t i = 0; i < kGuardBytes; ++i) {
      if (guarded.host[i] != kGuardByte || after[i] != kGuardByte) {
        s.fault =
            "a write past buffer " + std::to_string(b) + " (" + std::to_string(guarded.bytes) + " bytes)";
        break;
      }
    }
  }
  return s.fault;
}

std::string FuzzSession::Finish() {
  State& s = *state_;
  for (Frame& frame : s.frames) frame = Frame();
  for (LM::TexturePlane& plane : s.planes)
    LM::ReleaseTexturePlane(s.device, &plane, boost::shared_ptr<LM::Event>());
  for (void*& block : s.blocks) {
    s.device->GetDeviceMemory()->Release(block, boost::shared_ptr<LM::Event>());
    block = nullptr;
  }
  s.device->GetDeviceMemory()->GetFrameCache().Purge(~std::size_t(0));
  s.device->GetCommandQueue()->RecordEvent()->Wait();
  // Event polls run on the device's executor; each must run once, however long the queue was.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (s.pollsRun < s.pollsAdded && std::chrono::steady_clock::now() < deadline) {
    LM::ServiceEventPoll(s.device);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (s.fault.empty() && s.pollsRun != s.pollsAdded)
    s.fault = std::to_string(s.pollsAdded - s.pollsRun) + " event-poll callbacks never ran";
  const std::size_t used = s.device->GetDeviceMemory()->GetUsedSize();
  if (s.fault.empty() && used != s.usedAtStart)
    s.fault = "the device pool still hands out " + std::to_string(used - s.usedAtStart) + " bytes";
  return s.fault;
}

std::size_t FuzzSession::EntryPointCount() {
  return Count(kEntryPoints);
}
const char* FuzzSession::EntryPointName(std::size_t index) {
  return kEntryPoints[index].name;
}
