#include "Devices/Configuration.h"

#include <zelcore/Debug.h>

#include <sstream>
#include <string>

namespace LM {

bool ReadDebugSwitch(const char* key) {
  return ReadDebugSwitch(key, false);
}

bool ReadDebugSwitch(const char* key, bool defaultValue) {
  std::string text;
  if (!zelcore::debug::DebugDatabase::Instance().Lookup(key, text)) return defaultValue;
  std::istringstream numeric(text);
  bool value = false;
  if (numeric >> value) return value;
  std::istringstream word(text);
  if (word >> std::boolalpha >> value) return value;
  return defaultValue;
}

bool IsOpenCLEnabled() {
  return ReadDebugSwitch("LM.EnableOpenCL");
}

}  // namespace LM
