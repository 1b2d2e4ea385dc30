#include "Devices/Configuration.h"

#include <zelcore/Debug.h>

#include <sstream>
#include <string>

namespace LM {

bool ReadDebugSwitch(const char* key) {
  std::string text;
  if (!zelcore::debug::DebugDatabase::Instance().Lookup(key, text)) return false;
  std::istringstream numeric(text);
  bool value = false;
  if (numeric >> value) return value;
  std::istringstream word(text);
  if (word >> std::boolalpha >> value) return value;
  return false;
}

bool IsOpenCLEnabled() {
  return ReadDebugSwitch("LM.EnableOpenCL");
}

}  // namespace LM
