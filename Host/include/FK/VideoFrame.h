// The frame kit: memory access to a frame's pixels, the helpers frames are built with, and the template
// that implements the host's frame accessors over a frame's state.
#pragma once

#include <cstddef>
#include <cstdint>

#include "OXR/Geometry.h"
#include "TQ/VideoFrame.h"
#include "zelmediatypes/FrameTypes.h"
#include "zelmediatypes/PixelFormat.h"
#include "zelmediatypes/PixelFormatTable.h"

namespace FK {

// The block that holds a frame's pixels, on the host.
class IVideoFrameMemoryAccess : public OXR::OXRUnknown {
 public:
  // 0c7e5d1a-3b52-4f0e-9a61-2d8c47b90e13
  static constexpr zelcore::utility::Guid kIID{0x0c7e5d1a, 0x3b52, 0x4f0e, 0x9a, 0x61, 0x2d,
                                               0x8c,       0x47,   0xb9,   0x0e, 0x13};

  virtual void* GetBaseAddress() const = 0;          // 4
  virtual std::size_t GetDataSize() const = 0;       // 5: PixelFormatSize(format, width, height)
  virtual std::size_t GetAllocatedSize() const = 0;  // 6: what the allocator granted
};

// Rows and fields of a single-plane frame.
class IVideoFrame2DPixelMemoryAccess : public OXR::OXRUnknown {
 public:
  // 282d21cf-d8da-4e4f-82be-6e9c176ca796
  static constexpr zelcore::utility::Guid kIID{0x282d21cf, 0xd8da, 0x4e4f, 0x82, 0xbe, 0x6e,
                                               0x9c,       0x17,   0x6c,   0xa7, 0x96};

  virtual int GetBytesPerPixel() const = 0;  // 4: 0 for formats not described four components a pixel
  virtual int GetRowBytes() const = 0;       // 5: PixelFormatSize(format, width, 1)
  virtual void* GetField0Start() const = 0;  // 6: memory + FirstRowOfField(0) × row bytes
  virtual void* GetField1Start() const = 0;  // 7: memory + FirstRowOfField(1) × row bytes
  virtual int GetFieldRowBytes() const = 0;  // 8: 2 × row bytes
  virtual int GetFirstRowOfField(int field) const = 0;  // 9
};

// Whether `rect` is one the frame can deliver as it is: the bounds themselves, or for the formats a decoder
// delivers (planar 4:2:0, and the 8-bit 4:4:4 decode formats) the sizes at which it decodes, anchored at
// the bounds' origin: half height, and half width and height. Any other rectangle (a crop, a centred part)
// is not native.
bool IsRectNativeToFrame(const OXR::ParamRect<CRect>& rect, const OXR::ParamRect<CRect>& bounds,
                         zelmediatypes::PixelFormat format);

// The renderer's format for a frame's format. The renderer works on the host's formats directly, so this
// is the format itself.
zelmediatypes::PixelFormat BEPixelFormatToIRPixelFormat(zelmediatypes::PixelFormat format);

// The first row of field `field` (0 or 1) of a frame `height` rows high with field type `fieldType`.
int FirstRowOfField(int field, std::uint32_t height, zelmediatypes::FieldType fieldType);

// A property word with its alpha type replaced, as SetAlphaType stores it: the word the host recognises,
// kPixelFormatProperties_Invalid for a combination it calls bad, kPixelFormatProperties_Any for one it
// does not know.
std::uint32_t WithAlphaType(std::uint32_t properties, std::uint32_t alphaType);

// The state that every frame keeps besides its memory.
struct VideoFrameState {
  zelmediatypes::PixelFormat format = zelmediatypes::kPixelFormat_Invalid;
  OXR::ParamPoint<CPoint> origin;
  std::uint32_t width = 0, height = 0;
  OXR::ParamRect<CRect> primaryRect, secondaryRect;
  zelmediatypes::PixelAspectRatio aspect;
  bool flag = false;
  zelmediatypes::FieldType fieldType = zelmediatypes::kFieldType_Progressive;
  TQ::FrameWords frameWords{};
  std::uint32_t frameWord = 0;
};

// The host's standard accessors of TQ::IVideoFrame over a Base that holds a VideoFrameState named `state_`.
// The frame class adds reference counting, interface lookup and Clone.
template <class Base>
class VideoFrameTemplate : public TQ::IVideoFrame, public Base {
 public:
  using Base::Base;

  OXR::ParamRect<CRect> GetBounds() const override {
    return OXR::ParamRect<CRect>(0, 0, static_cast<std::int32_t>(this->state_.width),
                                 static_cast<std::int32_t>(this->state_.height));
  }
  bool IsRectNative(const OXR::ParamRect<CRect>& rect) const override {
    return IsRectNativeToFrame(rect, GetBounds(), this->state_.format);
  }
  zelmediatypes::PixelAspectRatio GetPixelAspectRatio() const override { return this->state_.aspect; }
  void SetPixelAspectRatio(const zelmediatypes::PixelAspectRatio& aspect) override {
    this->state_.aspect = aspect;
  }
  zelmediatypes::PixelFormat GetPixelFormat() const override { return this->state_.format; }
  bool GetFlag() const override { return this->state_.flag; }
  void SetFlag(bool flag) override { this->state_.flag = flag; }
  zelmediatypes::FieldType GetFieldType() const override { return this->state_.fieldType; }
  void SetFieldType(zelmediatypes::FieldType fieldType) override { this->state_.fieldType = fieldType; }
  std::uint32_t GetAlphaType() const override {
    return (this->state_.format.properties & zelmediatypes::kPixelFormatPropertyMask_Alpha) >> 7;
  }
  void SetAlphaType(std::uint32_t alphaType) override {
    this->state_.format.properties = WithAlphaType(this->state_.format.properties, alphaType);
  }
  bool HasFourComponentAlpha() const override {
    const std::uint32_t properties = this->state_.format.properties;
    return (properties & zelmediatypes::kPixelFormatPropertyMask_Class) ==
               zelmediatypes::kPixelFormatClass_Described &&
           (properties & zelmediatypes::kPixelFormatPropertyMask_Layout) == 0 && GetAlphaType() != 3;
  }
  OXR::ParamPoint<CPoint> GetOrigin() const override { return this->state_.origin; }
  void SetOrigin(const OXR::ParamPoint<CPoint>& origin) override { this->state_.origin = origin; }
  OXR::ParamRect<CRect> GetPrimaryRect() const override { return this->state_.primaryRect; }
  void SetPrimaryRect(const OXR::ParamRect<CRect>& rect) override { this->state_.primaryRect = rect; }
  TQ::FrameWords GetFrameWords() const override { return this->state_.frameWords; }
  void SetFrameWords(const TQ::FrameWords& words) override { this->state_.frameWords = words; }
  std::uint32_t GetFrameWord() const override { return this->state_.frameWord; }
  void SetFrameWord(std::uint32_t word) override { this->state_.frameWord = word; }
  bool GetSecondaryRect(OXR::ParamRect<CRect>* rect) const override {
    if (rect != nullptr) *rect = this->state_.secondaryRect;
    return true;
  }
  void SetSecondaryRect(const OXR::ParamRect<CRect>& rect) override { this->state_.secondaryRect = rect; }
  void ResetSecondaryRect() override { SetSecondaryRect(GetBounds()); }
  OXR::InterfaceRef<TQ::IVideoFrame> GetSelf() override {
    OXR::InterfaceRef<TQ::IVideoFrame> self;
    self.QueryFrom(OXR::InterfaceRef<TQ::IVideoFrame>(this), TQ::IVideoFrame::kIID);
    return self;
  }
};

}  // namespace FK
