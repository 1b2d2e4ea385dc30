// A frame that the host made, not the library: its pixels in a plain vector on the host, reached through
// the frame kit's memory-access interfaces only. Uploads treat such memory as foreign.
#pragma once

#include <FK/VideoFrame.h>
#include <OXR/Allocated.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <cstdint>
#include <vector>

class ForeignFrameBase {
 protected:
  FK::VideoFrameState state_;
  std::vector<std::uint8_t> pixels_;
};

class ForeignFrame : public FK::VideoFrameTemplate<ForeignFrameBase>,
                     public FK::IVideoFrameMemoryAccess,
                     public FK::IVideoFrame2DPixelMemoryAccess {
 public:
  // A width × height frame of `format` with an unset origin, its bytes from `fill`.
  static OXR::InterfaceRef<TQ::IVideoFrame> Make(
      zelmediatypes::PixelFormat format, int width, int height,
      zelmediatypes::FieldType fieldType = zelmediatypes::kFieldType_Progressive) {
    auto* frame = OXR::Allocated<ForeignFrame>::Create();
    frame->state_.format = format;
    frame->state_.width = static_cast<std::uint32_t>(width);
    frame->state_.height = static_cast<std::uint32_t>(height);
    frame->state_.fieldType = fieldType;
    frame->state_.origin = OXR::ParamPoint<CPoint>(-1, -1);
    frame->pixels_.resize(zelmediatypes::PixelFormatSize(format, width, height));
    OXR::InterfaceRef<TQ::IVideoFrame> held;
    held.Attach(static_cast<TQ::IVideoFrame*>(frame));
    return held;
  }
  static std::vector<std::uint8_t>& Pixels(const OXR::InterfaceRef<TQ::IVideoFrame>& frame) {
    return static_cast<ForeignFrame*>(frame.Get())->pixels_;
  }

  int QueryInterface(const zelcore::utility::Guid& iid, void** out) override {
    void* found = nullptr;
    if (iid == OXR::OXRUnknown::kIID || iid == TQ::IVideoFrame::kIID)
      found = static_cast<TQ::IVideoFrame*>(this);
    if (iid == FK::IVideoFrameMemoryAccess::kIID) found = static_cast<FK::IVideoFrameMemoryAccess*>(this);
    if (iid == FK::IVideoFrame2DPixelMemoryAccess::kIID && GetBytesPerPixel() != 0) {
      found = static_cast<FK::IVideoFrame2DPixelMemoryAccess*>(this);
    }
    *out = found;
    if (found == nullptr) return OXR::kResultNoInterface;
    static_cast<TQ::IVideoFrame*>(this)->AddRef();
    return OXR::kResultOK;
  }
  OXR::InterfaceRef<TQ::IVideoFrame> Clone() override {
    return Make(state_.format, static_cast<int>(state_.width), static_cast<int>(state_.height));
  }

  void* GetBaseAddress() const override { return const_cast<std::uint8_t*>(pixels_.data()); }
  std::size_t GetDataSize() const override { return pixels_.size(); }
  std::size_t GetAllocatedSize() const override { return pixels_.size(); }
  int GetBytesPerPixel() const override {
    return zelmediatypes::IsPlanar420Format(state_.format)
               ? 0
               : static_cast<int>(zelmediatypes::PixelFormatSize(state_.format, 2, 1) / 2);
  }
  int GetRowBytes() const override {
    return static_cast<int>(zelmediatypes::PixelFormatSize(state_.format, static_cast<int>(state_.width), 1));
  }
  void* GetField0Start() const override { return GetBaseAddress(); }
  void* GetField1Start() const override {
    return static_cast<std::uint8_t*>(GetBaseAddress()) + GetRowBytes();
  }
  int GetFieldRowBytes() const override { return 2 * GetRowBytes(); }
  int GetFirstRowOfField(int field) const override { return field; }
};
