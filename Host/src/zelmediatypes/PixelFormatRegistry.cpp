// Formats that a host or the library adds to the table at run time, and the reverse lookup from a property
// word to a format code over both. The table's property words are all distinct, and registration keeps
// them so, which is what makes the reverse lookup a function.
#include <mutex>
#include <vector>

#include "PixelFormatInternal.h"

namespace zelmediatypes {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<PixelFormat> formats;
};

// Built on first use, so that static initialisers of other libraries may register formats, and never
// destroyed, so that static destructors may still ask for sizes and names.
Registry& TheRegistry() {
  static Registry* registry = new Registry;
  return *registry;
}

bool IsDescribed(std::uint32_t properties) {
  return (properties & kPixelFormatPropertyMask_Class) == kPixelFormatClass_Described;
}

// How a new format (code, properties) relates to a known one.
enum class Clash { kNone, kSame, kConflict };

Clash Compare(PixelFormat known, std::uint32_t code, std::uint32_t properties) {
  if (known.code == code) return known.properties == properties ? Clash::kSame : Clash::kConflict;
  return known.properties == properties ? Clash::kConflict : Clash::kNone;
}

}  // namespace

namespace internal {

bool IsRegisteredPixelFormat(PixelFormat format) {
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  for (const PixelFormat& f : registry.formats) {
    if (f == format) return true;
  }
  return false;
}

}  // namespace internal

bool RegisterCustomPixelFormatProperties(std::uint32_t code, std::uint32_t properties) {
  if (!IsDescribed(properties)) return false;
  if (code == 0 || code == kPixelFormatName_Bad || code == kPixelFormat_Invalid.code) return false;

  std::size_t count = 0;
  const PixelFormatInfo* table = PixelFormatTable(count);
  for (std::size_t i = 0; i < count; ++i) {
    const Clash clash = Compare(table[i].format, code, properties);
    if (clash != Clash::kNone) return clash == Clash::kSame;
  }

  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  for (const PixelFormat& f : registry.formats) {
    const Clash clash = Compare(f, code, properties);
    if (clash != Clash::kNone) return clash == Clash::kSame;
  }
  registry.formats.push_back(PixelFormat{code, properties});
  return true;
}

std::uint32_t GuessNameForProperties(std::uint32_t properties) {
  const std::uint32_t cls = properties & kPixelFormatPropertyMask_Class;
  // "Any" stands for every format at once, so it names none of them; it is not a bad description.
  if (cls == (kPixelFormatProperties_Any & kPixelFormatPropertyMask_Class)) return 0;
  if (cls != kPixelFormatClass_Described) return kPixelFormatName_Bad;

  std::size_t count = 0;
  const PixelFormatInfo* table = PixelFormatTable(count);
  for (std::size_t i = 0; i < count; ++i) {
    if (table[i].format.properties == properties) return table[i].format.code;
  }
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  for (const PixelFormat& f : registry.formats) {
    if (f.properties == properties) return f.code;
  }
  return 0;
}

}  // namespace zelmediatypes
