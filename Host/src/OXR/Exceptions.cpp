#include "OXR/Exceptions.h"

namespace OXR {

const char* NullInterfaceException::what() const noexcept {
  return "null interface";
}

}  // namespace OXR
