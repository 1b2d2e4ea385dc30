// The module tables: where their images come from, when they are built, and the OpenCL registrations
// that feed them. Every access holds the registry's one critical section; the posted rebuild after a late
// registration takes it too.
#include "Modules/ModuleRegistry.h"

#include <OXR/CriticalSection.h>
#include <zelcore/Files.h>
#include <zelcore/Strings.h>
#include <zelcore/Threads.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <new>
#include <utility>

#include "Lumora/OpenCLModuleLoader.h"

namespace LM {
namespace {

using zelcore::UTF16String;
using zelcore::filesupport::DirectoryEntry;
using zelcore::filesupport::DirectoryIterator;
using zelcore::filesupport::File;

constexpr int kCapabilitySlots = 4;
constexpr int kTableCount = 2 * kCapabilitySlots;

// Folders of cubin images, by the compute capability they were built for (code 20: 2.0). A device older
// than the next class up (capability below code / 10 + 1) takes the folder instead of "PTX". All three are
// tried in this order and the last qualifying one that exists wins, so a 1.x device prefers cubin30 over
// cubin11 when both are present.
constexpr int kCubinCodes[] = {11, 20, 30};

// The line that names an OpenCL program inside its text.
constexpr char kOpenCLModuleMarker[] = "// module:";

struct ModuleTable {
  std::map<std::string, std::string> images;
  std::vector<KernelRecord> records;
  bool built = false;
};

struct ModuleRegistry {
  OXR::CriticalSection section;
  ModuleTable tables[kTableCount];
  // The texts of each OpenCLModuleLoader, in registration order.
  std::vector<std::vector<std::string>> openCLSourceSets;
  // Set by any table build; a registration that finds it set resets the OpenCL table and posts a rebuild.
  bool tablesBuilt = false;
};

// Created on first use, which may be a static OpenCLModuleLoader of another library, and never destroyed:
// a rebuild posted to the I/O executor may still run while the process exits.
ModuleRegistry& Registry() {
  static ModuleRegistry* const registry = new ModuleRegistry();
  return *registry;
}

// framework × 4 + slot, or -1 when there is no table: an unknown framework, or a CUDA capability below 1.0
// or not a number.
int TableIndex(DeviceFramework framework, double computeCapability) {
  switch (framework) {
    case kDeviceFramework_CUDA:
      if (!(computeCapability >= 1.0)) return -1;
      return static_cast<int>(std::min(std::floor(computeCapability), double{kCapabilitySlots})) - 1;
    case kDeviceFramework_OpenCL:
      return kCapabilitySlots * kDeviceFramework_OpenCL;
  }
  return -1;
}

const char* VendorName(Vendor vendor) {
  switch (vendor) {
    case kVendor_Apple:
      return "Apple";
    case kVendor_AMD:
      return "AMD";
    case kVendor_Intel:
      return "Intel";
    case kVendor_NVIDIA:
      return "NVIDIA";
    case kVendor_Unknown:
      break;
  }
  return "";
}

// "_NVIDIA" for kVendor_NVIDIA. A vendor without a name has no suffix, so titles are kept whole rather
// than losing their last underscore.
std::string VendorSuffix(Vendor vendor) {
  const std::string name = VendorName(vendor);
  return name.empty() ? std::string() : "_" + name;
}

// The folder whose files make the CUDA table for `computeCapability`; empty when the executable directory
// is unknown.
UTF16String CUDAModuleFolder(double computeCapability) {
  const UTF16String executableDir = zelcore::filesupport::commondirs::ExecutableDir();
  if (executableDir.empty()) return UTF16String();
  UTF16String folder = File::Join(executableDir, zelcore::Wide("PTX"));
  for (const int code : kCubinCodes) {
    const UTF16String candidate =
        File::Join(executableDir, zelcore::Wide(("cubin" + std::to_string(code)).c_str()));
    if (code / 10 + 1 > computeCapability && File::DirectoryExists(candidate)) folder = candidate;
  }
  return folder;
}

// The whole file; empty when it cannot be opened, is empty or cannot be held in memory.
std::string ReadModuleImage(const UTF16String& path) {
  try {
    File file;
    if (!file.Open(path)) return std::string();
    const std::uint64_t size = file.Size();
    if (size == 0 || size > std::string().max_size()) return std::string();
    std::string image(static_cast<std::size_t>(size), '\0');
    image.resize(file.Read(&image[0], image.size()));
    return image;
  } catch (const std::bad_alloc&) {
    return std::string();
  }
}

// The file title with the last occurrence of the vendor suffix taken out: Fills_NVIDIA gives Fills.
std::string CUDAModuleName(const UTF16String& title, const std::string& vendorSuffix) {
  std::string name = zelcore::UTF16ToUTF8(title);
  if (!vendorSuffix.empty()) {
    const std::size_t at = name.rfind(vendorSuffix);
    if (at != std::string::npos) name.erase(at, vendorSuffix.size());
  }
  return name;
}

// The rest of the first line that starts with the marker, blanks trimmed; empty when there is no such
// line. Any line may carry it, so a text that gained a leading line (a licence, a #line directive) on
// its way into the build keeps its name.
std::string OpenCLModuleName(const std::string& text) {
  const std::size_t markerSize = sizeof kOpenCLModuleMarker - 1;
  std::size_t lineStart = 0;
  while (lineStart < text.size()) {
    std::size_t lineEnd = text.find('\n', lineStart);
    if (lineEnd == std::string::npos) lineEnd = text.size();
    if (text.compare(lineStart, markerSize, kOpenCLModuleMarker) == 0) {
      const char* const blanks = " \t\r";
      const std::size_t first = text.find_first_not_of(blanks, lineStart + markerSize);
      if (first == std::string::npos || first >= lineEnd) return std::string();
      const std::size_t last = text.find_last_not_of(blanks, lineEnd - 1);
      return text.substr(first, last + 1 - first);
    }
    lineStart = lineEnd + 1;
  }
  return std::string();
}

void BuildCUDATable(ModuleTable& table, Vendor vendor, double computeCapability) {
  const UTF16String folder = CUDAModuleFolder(computeCapability);
  if (folder.empty() || !File::DirectoryExists(folder)) return;
  const std::string vendorSuffix = VendorSuffix(vendor);
  DirectoryIterator files(folder);
  DirectoryEntry entry;
  while (files.Next(entry)) {
    if (entry.isDirectory) continue;
    // A later file of the same name replaces the earlier one.
    table.images[CUDAModuleName(entry.title, vendorSuffix)] = ReadModuleImage(entry.fullPath);
  }
}

void BuildOpenCLTable(ModuleTable& table, const std::vector<std::vector<std::string>>& sourceSets) {
  for (const std::vector<std::string>& sources : sourceSets) {
    for (const std::string& text : sources) {
      const std::string name = OpenCLModuleName(text);
      if (!name.empty()) table.images[name] = text;
    }
  }
}

// The table for (framework, capability), built first when needed; null when there is no such table.
// Called with the registry's lock held.
const ModuleTable* BuiltTable(ModuleRegistry& registry, DeviceFramework framework, Vendor vendor,
                              double computeCapability) {
  const int index = TableIndex(framework, computeCapability);
  if (index < 0) return nullptr;
  ModuleTable& table = registry.tables[index];
  if (table.built) return &table;

  table = ModuleTable();
  if (framework == kDeviceFramework_CUDA) {
    BuildCUDATable(table, vendor, computeCapability);
  } else {
    BuildOpenCLTable(table, registry.openCLSourceSets);
  }
  for (const auto& module : table.images) {
    table.records.push_back(KernelRecord{module.first, module.second.size()});
  }
  table.built = true;
  registry.tablesBuilt = true;
  return &table;
}

void RebuildOpenCLTable() {
  try {
    ModuleRegistry& registry = Registry();
    OXR::CriticalSectionLock lock(registry.section, "RebuildOpenCLTable");
    BuiltTable(registry, kDeviceFramework_OpenCL, kVendor_Unknown, 0.0);
  } catch (...) {
    // The next lookup builds the table instead.
  }
}

}  // namespace

std::vector<KernelRecord> GetKernelRecords(DeviceFramework framework, Vendor vendor,
                                           double computeCapability) {
  try {
    ModuleRegistry& registry = Registry();
    OXR::CriticalSectionLock lock(registry.section, "GetKernelRecords");
    const ModuleTable* table = BuiltTable(registry, framework, vendor, computeCapability);
    return table != nullptr ? table->records : std::vector<KernelRecord>();
  } catch (...) {
    return std::vector<KernelRecord>();
  }
}

bool LookUpModuleImage(DeviceFramework framework, Vendor vendor, double computeCapability,
                       const std::string& name, std::string& image) {
  try {
    ModuleRegistry& registry = Registry();
    OXR::CriticalSectionLock lock(registry.section, "LookUpModuleImage");
    const ModuleTable* table = BuiltTable(registry, framework, vendor, computeCapability);
    if (table == nullptr) return false;
    const auto found = table->images.find(name);
    if (found == table->images.end()) return false;
    image = found->second;
    return true;
  } catch (...) {
    return false;
  }
}

std::string ModuleSearchPlace(DeviceFramework framework, double computeCapability) {
  if (TableIndex(framework, computeCapability) < 0) return "no module table";
  if (framework == kDeviceFramework_OpenCL) return "the OpenCL texts registered with OpenCLModuleLoader";
  const UTF16String folder = CUDAModuleFolder(computeCapability);
  return folder.empty() ? "no folder (the executable directory is unknown)"
                        : "the folder " + zelcore::UTF16ToUTF8(folder);
}

bool IsModuleTableBuilt(DeviceFramework framework, double computeCapability) {
  const int index = TableIndex(framework, computeCapability);
  if (index < 0) return false;
  ModuleRegistry& registry = Registry();
  OXR::CriticalSectionLock lock(registry.section, "IsModuleTableBuilt");
  return registry.tables[index].built;
}

OpenCLModuleLoader::OpenCLModuleLoader(const char** sources, int count) {
  if (sources == nullptr || count < 1) return;
  try {
    std::vector<std::string> texts;
    texts.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
      if (sources[i] != nullptr) texts.emplace_back(sources[i]);
    }

    bool rebuild = false;
    {
      ModuleRegistry& registry = Registry();
      OXR::CriticalSectionLock lock(registry.section, "OpenCLModuleLoader");
      registry.openCLSourceSets.push_back(std::move(texts));
      if (registry.tablesBuilt) {
        registry.tablesBuilt = false;
        registry.tables[TableIndex(kDeviceFramework_OpenCL, 0.0)] = ModuleTable();
        rebuild = true;
      }
    }
    // Fire and forget: the registering library is not kept waiting, and a lookup that comes before the
    // task runs builds the table itself.
    if (rebuild) {
      const boost::shared_ptr<zelcore::threads::AsyncExecutor> executor =
          zelcore::threads::CreateIOBoundExecutor();
      if (executor) executor->Post(&RebuildOpenCLTable);
    }
  } catch (...) {
    // Out of memory: the texts are not registered; nothing may leave the constructor.
  }
}

}  // namespace LM
