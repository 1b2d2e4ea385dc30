// Starts the installed Lumora, lists the devices it registers and stops it. Exits with 0 whatever devices
// there are, none included: it shows that a program builds, links and runs against the package.
#include <Lumora/Lumora.h>
#include <zelcore/Debug.h>

#include <cstdio>

int main() {
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.EnableOpenCL", "1");
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.OpenCLIncludeCPUDevices", "1");
  LM::Initialize(true);
  const unsigned int count = LM::GetDeviceCount();
  unsigned int qualified = 0;
  for (unsigned int index = 0; index < count; ++index) {
    const boost::shared_ptr<LM::Device> device = LM::GetDevice(index);
    if (!device) continue;
    if (device->IsQualified()) ++qualified;
    std::printf("device %u: %s %s%s\n", index,
                device->GetFramework() == LM::kDeviceFramework_CUDA ? "CUDA" : "OpenCL",
                device->GetName().c_str(), device->IsQualified() ? " (qualified)" : "");
  }
  std::printf("devices: %u registered, %u qualified\n", count, qualified);
  LM::Terminate();
  return 0;
}
