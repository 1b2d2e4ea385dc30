#include "HQX/Headless.h"

#include <cstdlib>
#include <cstring>

namespace HQX {

bool GetIsHeadless() {
  const char* value = std::getenv("LUMORA_HEADLESS");
  return value == nullptr || std::strcmp(value, "0") != 0;
}

}  // namespace HQX
