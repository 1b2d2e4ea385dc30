#include "Lumora/Qualification.h"

#include <zelcore/Files.h>

#include <fstream>
#include <string>

#include "Lumora/Device.h"

namespace LM {

namespace {

// Deliberately 510 and 765 times 1,048,576 bytes, not 512 and 768 MiB.
constexpr std::uint64_t kMinimumMemory = 534773760ull;
constexpr std::uint64_t kMinimumMemoryUpToCapability11 = 802160640ull;

bool IsCUDA(const Device& device) {
  return device.GetFramework() == kDeviceFramework_CUDA;
}

bool MeetsDeviceCount(const Device& device) {
  return device.GetFrameworkIndex() < kMaximumDevicesPerFramework;
}

}  // namespace

bool MeetsMinimumDriverRequirements(const boost::shared_ptr<Device>& device) {
  if (!device) return false;
  return device->GetDriverVersion() >= (IsCUDA(*device) ? 4.0 : 1.0);
}

bool MeetsMinimumComputeCapabilityForUse(const boost::shared_ptr<Device>& device) {
  if (!device) return false;
  return device->GetComputeCapability() >= (IsCUDA(*device) ? 1.1 : 1.0);
}

bool MeetsMinimumMemoryRequirementsForUse(const boost::shared_ptr<Device>& device) {
  if (!device) return false;
  const bool early = IsCUDA(*device) && device->GetComputeCapability() <= 1.1;
  return device->GetTotalMemory() >= (early ? kMinimumMemoryUpToCapability11 : kMinimumMemory);
}

// One exact device name per line, as the driver reports it; no comments, no trimming, no wildcards. A missing
// or unreadable list admits every card.
bool MatchesNamedCardList(const boost::shared_ptr<Device>& device) {
  if (!device) return false;
  using zelcore::filesupport::File;
  const char* fileName = IsCUDA(*device) ? "cuda_supported_cards.txt" : "opencl_supported_cards.txt";
  const zelcore::UTF16String path =
      File::FullPath(File::Join(zelcore::filesupport::commondirs::ExecutableDir(), zelcore::Wide(fileName)));
  std::ifstream list(zelcore::UTF16ToUTF8(path));
  if (!list.is_open() || !list.good()) return true;
  std::string line;
  while (std::getline(list, line)) {
    // The lists are edited on Windows too: a carriage return before the newline is not part of the name.
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line == device->GetName()) return true;
  }
  return false;
}

const char* FirstFailedRequirement(const boost::shared_ptr<Device>& device) {
  if (!device) return nullptr;
  if (!MeetsMinimumDriverRequirements(device)) return "driver";
  if (!MeetsMinimumComputeCapabilityForUse(device)) return "compute capability";
  if (!MeetsMinimumMemoryRequirementsForUse(device)) return "memory";
  if (!MeetsDeviceCount(*device)) return "device count";
  if (!MatchesNamedCardList(device)) return "card list";
  return nullptr;
}

bool MeetsMinimumRequirementsForUse(const boost::shared_ptr<Device>& device) {
  return device && FirstFailedRequirement(device) == nullptr;
}

}  // namespace LM
