// The libFuzzer target over the same calls as the bounded fuzz test (FuzzCalls.h): each input is a run of
// calls on the first qualified OpenCL device, in a session of its own, so that an input replays alone.
// `make fuzz` builds it with clang, AddressSanitizer and UndefinedBehaviorSanitizer and runs it.
#include <zelcore/Debug.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "FuzzCalls.h"
#include "Lumora/Lifecycle.h"

namespace {

constexpr std::size_t kBytesPerCall = 128;

boost::shared_ptr<LM::Device> StartDevice() {
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.EnableOpenCL", "1");
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.OpenCLIncludeCPUDevices", "1");
  LM::Initialize(true);
  for (unsigned int index = 0; index < LM::GetDeviceCount(); ++index) {
    const boost::shared_ptr<LM::Device> device = LM::GetDevice(index);
    if (device && device->GetFramework() == LM::kDeviceFramework_OpenCL && device->IsQualified() &&
        device->WaitForContext())
      return device;
  }
  std::fprintf(stderr, "lumora_fuzzer: no qualified OpenCL device\n");
  std::abort();
}

void Fail(const char* name, const std::string& fault) {
  std::fprintf(stderr, "lumora_fuzzer: after %s: %s\n", name, fault.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const boost::shared_ptr<LM::Device> device = StartDevice();
  const LM::ExclusiveAccess access(*device);
  FuzzSession session(device);
  for (std::size_t at = 0; at < size; at += kBytesPerCall) {
    FuzzBytes input(data + at, std::min(kBytesPerCall, size - at));
    const char* name = session.CallOne(input);
    const std::string fault = session.Check();
    if (!fault.empty()) Fail(name, fault);
  }
  const std::string fault = session.Finish();
  if (!fault.empty()) Fail("the last call", fault);
  return 0;
}
