// The root of every host interface: reference counting and lookup of other interfaces by identifier.
#pragma once

#include <cstdint>

#include "zelcore/Utility.h"

namespace OXR {

// Results of QueryInterface.
constexpr int kResultOK = 0;
constexpr int kResultNoInterface = static_cast<int>(0xA00A0001u);

// The order of the virtual functions is part of the binary interface between host and libraries:
// AddRef, Release, the destructor, QueryInterface.
class OXRUnknown {
 public:
  // eb294113-d84b-4df3-a717-d79a8da4e6a9
  static constexpr zelcore::utility::Guid kIID{0xeb294113, 0xd84b, 0x4df3, 0xa7, 0x17, 0xd7,
                                               0x9a,       0x8d,   0xa4,   0xe6, 0xa9};

  // Both return the new reference count; Release destroys the object when it reaches 0.
  virtual std::uint32_t AddRef() const = 0;
  virtual std::uint32_t Release() const = 0;
  virtual ~OXRUnknown();
  // On success stores the interface in *out with a reference added and returns kResultOK; otherwise
  // stores null and returns kResultNoInterface.
  virtual int QueryInterface(const zelcore::utility::Guid& iid, void** out) = 0;

 protected:
  OXRUnknown() = default;
  OXRUnknown(const OXRUnknown&) = default;
  OXRUnknown& operator=(const OXRUnknown&) = default;
};

}  // namespace OXR
