// GPU frames and host-memory frames: one class template for both, whose pixels are one block of the
// device's "device" or "host" pool, handed back to that pool with the frame's completion event when the last
// reference goes.
#include "Lumora/VideoFrames.h"

#include <OXR/Allocated.h>
#include <OXR/Exceptions.h>
#include <SK/Renderer.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <climits>
#include <type_traits>

#include "Lumora/ImageOperations.h"
#include "Lumora/MemoryManager.h"
#include "Lumora/Results.h"

namespace LM {

namespace {

using zelcore::utility::Guid;

// The state the host's frame template works on, the memory and where it goes back to.
class FrameBase {
 protected:
  FK::VideoFrameState state_;
  boost::shared_ptr<Device> device_;
  // The manager the block came from, kept alive as long as the block.
  boost::shared_ptr<MemoryManager> pool_;
  boost::shared_ptr<Event> completion_;
  void* memory_ = nullptr;
  std::size_t allocatedSize_ = 0;
  Guid guid_;
};

// Stands in for IGPUVideoFrame in host frames, which answer no identity interface but keep the same
// functions, so that both kinds override one declaration.
class NoIdentity {
 public:
  virtual ~NoIdentity() = default;
  virtual Guid GetGuid() const = 0;
  virtual void SetGuid(const Guid& guid) = 0;
};

template <bool kGPU>
class LibraryFrame : public FK::VideoFrameTemplate<FrameBase>,
                     public TQ::IVideoFrameClearable,
                     public std::conditional_t<kGPU, IGPUVideoFrame, NoIdentity>,
                     public std::conditional_t<kGPU, IGPUVideoFrameMemoryAccess, FK::IVideoFrameMemoryAccess>,
                     public FK::IVideoFrame2DPixelMemoryAccess,
                     public ICompletionEventVideoFrame {
 public:
  using MemoryInterface = std::conditional_t<kGPU, IGPUVideoFrameMemoryAccess, FK::IVideoFrameMemoryAccess>;

  // Takes the block; the frame gives it back when it dies.
  void Adopt(const boost::shared_ptr<Device>& device, const boost::shared_ptr<MemoryManager>& pool,
             void* memory, std::size_t allocatedSize) {
    device_ = device;
    pool_ = pool;
    memory_ = memory;
    allocatedSize_ = allocatedSize;
  }
  FK::VideoFrameState& State() { return state_; }

  int QueryInterface(const Guid& iid, void** out) override {
    void* found = nullptr;
    if (iid == OXR::OXRUnknown::kIID || iid == TQ::IVideoFrame::kIID) {
      found = static_cast<TQ::IVideoFrame*>(this);
    } else if (iid == (kGPU ? IGPUVideoFrameMemoryAccess::kIID : FK::IVideoFrameMemoryAccess::kIID)) {
      found = static_cast<MemoryInterface*>(this);
    } else if (iid == ICompletionEventVideoFrame::kIID) {
      found = static_cast<ICompletionEventVideoFrame*>(this);
    } else if (iid == TQ::IVideoFrameClearable::kIID) {
      if (!state_.flag) found = static_cast<TQ::IVideoFrameClearable*>(this);
    } else if (iid == FK::IVideoFrame2DPixelMemoryAccess::kIID) {
      if (!IsMultiPlane(state_.format)) found = static_cast<FK::IVideoFrame2DPixelMemoryAccess*>(this);
    } else if (iid == kLibraryFrameIID) {
      found = static_cast<TQ::IVideoFrame*>(this);
    }
    if constexpr (kGPU) {
      if (iid == IGPUVideoFrame::kIID) found = static_cast<IGPUVideoFrame*>(this);
    }
    *out = found;
    if (found == nullptr) return OXR::kResultNoInterface;
    static_cast<TQ::IVideoFrame*>(this)->AddRef();
    return OXR::kResultOK;
  }

  OXR::InterfaceRef<TQ::IVideoFrame> Clone() override;

  // The whole frame, by the device's fills or the host renderer's.
  int ClearToOpaqueBlack() override { return Clear(FillWithOpaqueBlack, SK_FillWithOpaqueBlack); }
  int ClearToOpaqueWhite() override { return Clear(FillWithOpaqueWhite, SK_FillWithOpaqueWhite); }
  int ClearToTransparentBlack() override {
    return Clear(FillWithTransparentBlack, SK_FillWithTransparentBlack);
  }
  int ClearToTransparentWhite() override {
    return Clear(FillWithTransparentBlack, SK_FillWithTransparentWhite);
  }

  zelcore::utility::Guid GetGuid() const override { return guid_; }
  void SetGuid(const zelcore::utility::Guid& guid) override { guid_ = guid; }

  void* GetBaseAddress() const override { return memory_; }
  std::size_t GetDataSize() const override {
    return zelmediatypes::PixelFormatSize(state_.format, static_cast<int>(state_.width),
                                          static_cast<int>(state_.height));
  }
  std::size_t GetAllocatedSize() const override { return allocatedSize_; }

  int GetBytesPerPixel() const override { return BytesPerPixel(state_.format); }
  int GetRowBytes() const override { return RowBytes(state_); }
  void* GetField0Start() const override { return Row(GetFirstRowOfField(0)); }
  void* GetField1Start() const override { return Row(GetFirstRowOfField(1)); }
  int GetFieldRowBytes() const override { return 2 * GetRowBytes(); }
  int GetFirstRowOfField(int field) const override {
    return FK::FirstRowOfField(field, state_.height, state_.fieldType);
  }

  boost::shared_ptr<Device> GetDevice() const override { return device_; }
  void SetCompletionEvent(const boost::shared_ptr<Event>& event) override { completion_ = event; }
  boost::shared_ptr<Event> GetCompletionEvent() const override { return completion_; }

  // Rows are whole blocks of the format's row size; created frames are sized so that it fits an int.
  static int RowBytes(const FK::VideoFrameState& state) {
    return static_cast<int>(zelmediatypes::PixelFormatSize(state.format, static_cast<int>(state.width), 1));
  }

 protected:
  ~LibraryFrame() override {
    // The block goes back with the event of the last work on it: the pool hands it out again only then.
    try {
      if (memory_ != nullptr && pool_) pool_->Release(memory_, completion_);
    } catch (...) {
    }
  }

 private:
  // A described format whose type field names a layout of several planes.
  static bool IsMultiPlane(zelmediatypes::PixelFormat format) {
    return (format.properties & zelmediatypes::kPixelFormatPropertyMask_Class) ==
               zelmediatypes::kPixelFormatClass_Described &&
           (format.properties & zelmediatypes::kPixelFormatPropertyMask_Type) != 0;
  }

  void* Row(int row) const {
    return static_cast<char*>(memory_) + static_cast<std::ptrdiff_t>(row) * GetRowBytes();
  }

  using DeviceFill = int (*)(const boost::shared_ptr<Device>&, const void*, int, PixelFormat, int, int, int,
                             int);
  using HostFill = bool (*)(void*, int, zelmediatypes::PixelFormat, int, int, int, int);
  int Clear(DeviceFill deviceFill, HostFill hostFill) {
    const int width = static_cast<int>(state_.width), height = static_cast<int>(state_.height);
    if constexpr (kGPU) {
      if (!device_) return kResultFailed;
      const ExclusiveAccess access(*device_);
      return deviceFill(device_, memory_, GetRowBytes(), state_.format, 0, 0, width, height);
    } else {
      static_cast<void>(deviceFill);
      return hostFill(memory_, GetRowBytes(), FK::BEPixelFormatToIRPixelFormat(state_.format), 0, 0, width,
                      height)
                 ? kResultSuccess
                 : kResultFailed;
    }
  }
};

using GPUVideoFrame = LibraryFrame<true>;
using HostMemoryVideoFrame = LibraryFrame<false>;

// The factories' common steps; the pool is the device's "device" memory or its "host" memory.
template <bool kGPU>
int CreateFrame(OXR::InterfaceRef<TQ::IVideoFrame>& outFrame, const boost::shared_ptr<Device>& device,
                PixelFormat format, unsigned int width, unsigned int height,
                zelmediatypes::PixelAspectRatio aspect, zelmediatypes::FieldType fieldType,
                OXR::ParamPoint<CPoint> origin) {
  if (!device || width == 0 || height == 0 || width > INT_MAX || height > INT_MAX) return kResultFailed;
  const std::size_t bytes =
      zelmediatypes::PixelFormatSize(format, static_cast<int>(width), static_cast<int>(height));
  const std::size_t rowBytes = zelmediatypes::PixelFormatSize(format, static_cast<int>(width), 1);
  const boost::shared_ptr<MemoryManager> pool = kGPU ? device->GetDeviceMemory() : device->GetHostMemory();
  // A format the host cannot size, or rows beyond an int, cannot be had any more than memory that is not
  // there.
  if (bytes == 0 || rowBytes > static_cast<std::size_t>(INT_MAX) || !pool) return kResultOutOfMemory;

  auto* frame = OXR::ThrowIfNull(OXR::Allocated<LibraryFrame<kGPU>>::Create());
  OXR::InterfaceRef<TQ::IVideoFrame> held;
  held.Attach(static_cast<TQ::IVideoFrame*>(frame));  // the creator's reference, dropped on failure
  std::size_t allocated = 0;
  void* memory = pool->Allocate(bytes, &allocated);
  if (memory == nullptr) return kResultOutOfMemory;
  frame->Adopt(device, pool, memory, allocated);

  FK::VideoFrameState& state = frame->State();
  state.format = format;
  state.origin = origin;
  state.width = width;
  state.height = height;
  state.primaryRect = state.secondaryRect = frame->GetBounds();
  state.aspect = aspect;
  state.flag = false;
  state.fieldType = fieldType;
  state.frameWord = 0;
  OXR::InterfaceRef<TQ::IVideoFrame> result;
  if (!result.QueryFrom(held, TQ::IVideoFrame::kIID)) return kResultFailed;
  outFrame = result;
  return kResultSuccess;
}

template <bool kGPU>
OXR::InterfaceRef<TQ::IVideoFrame> LibraryFrame<kGPU>::Clone() {
  OXR::InterfaceRef<TQ::IVideoFrame> copy;
  const OXR::ParamRect<CRect> bounds = GetBounds();
  if (CreateFrame<kGPU>(copy, device_, state_.format, static_cast<unsigned int>(bounds.Width()),
                        static_cast<unsigned int>(bounds.Height()), state_.aspect, state_.fieldType,
                        state_.origin) != kResultSuccess) {
    return OXR::InterfaceRef<TQ::IVideoFrame>();
  }
  OXR::ThrowIfNull(copy.Get());
  copy->SetPrimaryRect(state_.primaryRect);
  copy->SetFrameWords(state_.frameWords);
  copy->SetFrameWord(state_.frameWord);
  copy->SetSecondaryRect(state_.secondaryRect);
  return copy;
}

}  // namespace

// Nothing is thrown across the boundary: the host's null-interface exception, or exhausted memory, is a
// failure code with `outFrame` untouched.
int CreateGPUVideoFrame(OXR::InterfaceRef<TQ::IVideoFrame>& outFrame, const boost::shared_ptr<Device>& device,
                        PixelFormat format, unsigned int width, unsigned int height,
                        zelmediatypes::PixelAspectRatio aspect, zelmediatypes::FieldType fieldType,
                        OXR::ParamPoint<CPoint> origin) {
  try {
    return CreateFrame<true>(outFrame, device, format, width, height, aspect, fieldType, origin);
  } catch (...) {
    return kResultOutOfMemory;
  }
}

int CreateHostMemoryVideoFrame(OXR::InterfaceRef<TQ::IVideoFrame>& outFrame,
                               const boost::shared_ptr<Device>& device, PixelFormat format,
                               unsigned int width, unsigned int height,
                               zelmediatypes::PixelAspectRatio aspect, zelmediatypes::FieldType fieldType,
                               OXR::ParamPoint<CPoint> origin) {
  try {
    return CreateFrame<false>(outFrame, device, format, width, height, aspect, fieldType, origin);
  } catch (...) {
    return kResultOutOfMemory;
  }
}

}  // namespace LM
