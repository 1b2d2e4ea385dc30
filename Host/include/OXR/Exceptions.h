// The exception raised where an interface object was required and none could be had.
#pragma once

#include <exception>

namespace OXR {

// Its members are defined in the host library, so that one type identity is shared by every module that
// throws or catches it.
class NullInterfaceException : public std::exception {
 public:
  const char* what() const noexcept override;
};

template <class T>
T* ThrowIfNull(T* p) {
  if (p == nullptr) throw NullInterfaceException();
  return p;
}

}  // namespace OXR
