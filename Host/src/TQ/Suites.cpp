// The suite registry: copies of suite tables by (name, version).
#include "TQ/Suites.h"

#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace TQ {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::pair<std::string, int>, std::vector<unsigned char>> suites;
};

// Never destroyed: libraries may look suites up while the process exits.
Registry& TheRegistry() {
  static Registry* const registry = new Registry();
  return *registry;
}

}  // namespace

int RegisterSuite(const char* name, int version, const void* suite, std::size_t suiteSize) {
  if (name == nullptr || (suite == nullptr && suiteSize != 0)) return -1;
  try {
    const unsigned char* bytes = static_cast<const unsigned char*>(suite);
    std::vector<unsigned char> table(bytes, bytes + suiteSize);
    std::pair<std::string, int> key(name, version);
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.suites[std::move(key)].swap(table);
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return 0;
}

bool AcquireSuite(const char* name, int version, void* out, std::size_t size) {
  if (name == nullptr || (out == nullptr && size != 0)) return false;
  try {
    const std::pair<std::string, int> key(name, version);
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const auto found = registry.suites.find(key);
    if (found == registry.suites.end() || found->second.size() != size) return false;
    if (size != 0) std::memcpy(out, found->second.data(), size);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace TQ
