// The host's video frame interfaces. The order of the virtual functions is part of the binary interface
// between the host and the libraries that implement frames: the four OXRUnknown slots, then the slots in
// the order declared here.
#pragma once

#include <cstdint>

#include "OXR/Geometry.h"
#include "OXR/InterfaceRef.h"
#include "OXR/Unknown.h"
#include "zelcore/Utility.h"
#include "zelmediatypes/FrameTypes.h"
#include "zelmediatypes/PixelFormat.h"

namespace TQ {

// Three host-defined words that a frame stores and returns as given.
struct FrameWords {
  std::uint32_t words[3];
};

class IVideoFrame : public OXR::OXRUnknown {
 public:
  // 5a2a4fe9-ee01-4438-8f14-aa8946104d5f
  static constexpr zelcore::utility::Guid kIID{0x5a2a4fe9, 0xee01, 0x4438, 0x8f, 0x14, 0xaa,
                                               0x89,       0x46,   0x10,   0x4d, 0x5f};

  virtual OXR::ParamRect<CRect> GetBounds() const = 0;                           // 4: (0, 0, width, height)
  virtual bool IsRectNative(const OXR::ParamRect<CRect>& rect) const = 0;        // 5
  virtual zelmediatypes::PixelAspectRatio GetPixelAspectRatio() const = 0;       // 6
  virtual void SetPixelAspectRatio(const zelmediatypes::PixelAspectRatio&) = 0;  // 7
  virtual zelmediatypes::PixelFormat GetPixelFormat() const = 0;                 // 8
  virtual bool GetFlag() const = 0;                                              // 9
  virtual void SetFlag(bool flag) = 0;                                           // 10
  virtual zelmediatypes::FieldType GetFieldType() const = 0;                     // 11
  virtual void SetFieldType(zelmediatypes::FieldType fieldType) = 0;             // 12
  virtual std::uint32_t GetAlphaType() const = 0;                                // 13: bits 7-9 of the format
  virtual void SetAlphaType(std::uint32_t alphaType) = 0;                        // 14
  // 15: a described four-component format that carries alpha.
  virtual bool HasFourComponentAlpha() const = 0;
  virtual OXR::ParamPoint<CPoint> GetOrigin() const = 0;               // 16
  virtual void SetOrigin(const OXR::ParamPoint<CPoint>& origin) = 0;   // 17
  virtual OXR::ParamRect<CRect> GetPrimaryRect() const = 0;            // 18
  virtual void SetPrimaryRect(const OXR::ParamRect<CRect>& rect) = 0;  // 19
  virtual FrameWords GetFrameWords() const = 0;                        // 20
  virtual void SetFrameWords(const FrameWords& words) = 0;             // 21
  virtual std::uint32_t GetFrameWord() const = 0;                      // 22
  virtual void SetFrameWord(std::uint32_t word) = 0;                   // 23
  // 24: a new frame of the same kind and description (not the pixels); empty when none could be made.
  virtual OXR::InterfaceRef<IVideoFrame> Clone() = 0;
  virtual bool GetSecondaryRect(OXR::ParamRect<CRect>* rect) const = 0;  // 25: always true
  virtual void SetSecondaryRect(const OXR::ParamRect<CRect>& rect) = 0;  // 26
  virtual void ResetSecondaryRect() = 0;                                 // 27: to the bounds
  virtual OXR::InterfaceRef<IVideoFrame> GetSelf() = 0;                  // 28
};

// Clears of the whole frame; each returns 0 or the failure of the fill it uses.
class IVideoFrameClearable : public OXR::OXRUnknown {
 public:
  // a1489635-6b6b-47a6-8fb6-576f3e25be56
  static constexpr zelcore::utility::Guid kIID{0xa1489635, 0x6b6b, 0x47a6, 0x8f, 0xb6, 0x57,
                                               0x6f,       0x3e,   0x25,   0xbe, 0x56};

  virtual int ClearToOpaqueBlack() = 0;       // 4
  virtual int ClearToOpaqueWhite() = 0;       // 5
  virtual int ClearToTransparentBlack() = 0;  // 6
  virtual int ClearToTransparentWhite() = 0;  // 7
};

}  // namespace TQ
