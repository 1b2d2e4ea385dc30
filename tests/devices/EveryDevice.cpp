// The every-device fixture and the program's main, which starts the library (with OpenCL and CPU OpenCL
// devices, as a host would) before the tests are listed and stops it after they ran; at the end one line
// per device sums up its results, for the GPU bundle's report.
#include "EveryDevice.h"

#include <zelcore/Debug.h>

#include <array>
#include <cstdio>
#include <map>

#include "Lumora/Lifecycle.h"
#include "Lumora/Queues.h"
#include "Lumora/Results.h"

namespace {

bool started = false;

// Counts each device's results (passed, failed, skipped) by the suffix of the test names.
class DeviceSummary : public testing::EmptyTestEventListener {
  void OnTestEnd(const testing::TestInfo& test) override {
    const std::string name = test.name();
    const std::size_t slash = name.rfind('/');
    if (slash == std::string::npos) return;
    const testing::TestResult& result = *test.result();
    ++counts_[name.substr(slash + 1)][result.Skipped() ? 2 : result.Passed() ? 0 : 1];
  }
  void OnTestProgramEnd(const testing::UnitTest&) override {
    for (const DeviceUnderTest& tested : DevicesUnderTest()) {
      const boost::shared_ptr<LM::Device> device = LM::GetDevice(tested.registryIndex);
      const std::array<int, 3>& counts = counts_[tested.name];
      std::printf("SUMMARY tests %-9s %-40s driver %-6.2f %3d passed %3d failed %3d skipped\n",
                  tested.name.c_str(), device ? device->GetName().c_str() : "?",
                  device ? device->GetDriverVersion() : 0.0, counts[0], counts[1], counts[2]);
    }
    if (DevicesUnderTest().empty()) std::printf("SUMMARY tests no qualified device: no pixel test ran\n");
    std::fflush(stdout);
  }
  std::map<std::string, std::array<int, 3>> counts_;
};

}  // namespace

const std::vector<DeviceUnderTest>& DevicesUnderTest() {
  static const std::vector<DeviceUnderTest> devices = [] {
    zelcore::debug::DebugDatabase::Instance().SetDefault("LM.EnableOpenCL", "1");
    zelcore::debug::DebugDatabase::Instance().SetDefault("LM.OpenCLIncludeCPUDevices", "1");
    // Start-up reports a missing CUDA driver on standard output, where it would garble the test list that
    // the build reads; `lumora devices` is where a user sees it.
    testing::internal::CaptureStdout();
    LM::Initialize(true);
    testing::internal::GetCapturedStdout();
    started = true;
    std::vector<DeviceUnderTest> found;
    for (unsigned int index = 0; index < LM::GetDeviceCount(); ++index) {
      const boost::shared_ptr<LM::Device> device = LM::GetDevice(index);
      if (!device || !device->IsQualified() || !device->WaitForContext()) continue;
      found.push_back({index, (device->GetFramework() == LM::kDeviceFramework_CUDA ? "CUDA_" : "OpenCL_") +
                                  std::to_string(device->GetFrameworkIndex())});
    }
    return found;
  }();
  return devices;
}

void EveryDevice::SetUp() {
  device_ = LM::GetDevice(GetParam().registryIndex);
  ASSERT_TRUE(device_ && device_->GetDeviceMemory() && device_->GetCommandQueue());
  access_.emplace(*device_);
}

void EveryDevice::TearDown() {
  if (!access_) return;
  // The blocks go back to the pool with an event after the test's work, as any caller hands them back.
  const boost::shared_ptr<LM::Event> done = device_->GetCommandQueue()->RecordEvent();
  for (void* block : blocks_) device_->GetDeviceMemory()->Release(block, done);
  if (done) done->Wait();
  access_.reset();
}

void* EveryDevice::Allocate(std::size_t bytes) {
  void* block = device_->GetDeviceMemory()->Allocate(bytes, nullptr);
  EXPECT_NE(block, nullptr) << "the device pool gave no block of " << bytes << " bytes";
  if (block != nullptr) blocks_.push_back(block);
  return block;
}

void* EveryDevice::Upload(const Bytes& bytes) {
  void* block = Allocate(bytes.size());
  if (block == nullptr) return nullptr;
  boost::shared_ptr<LM::Event> uploaded;
  EXPECT_EQ(device_->GetCommandQueue()->CopyHostToDevice(bytes.data(), block, bytes.size(), &uploaded),
            LM::kResultSuccess);
  if (uploaded) uploaded->Wait();
  return block;
}

Bytes EveryDevice::Download(const void* block, std::size_t size) {
  Bytes bytes(size);
  boost::shared_ptr<LM::Event> downloaded;
  EXPECT_EQ(device_->GetCommandQueue()->CopyDeviceToHost(block, bytes.data(), size, &downloaded, true),
            LM::kResultSuccess);
  if (downloaded) downloaded->Wait();
  return bytes;
}

// A suite that finds no device proves nothing, so that is a failure, not an empty pass.
TEST(EveryDevice, AtLeastOneDeviceIsUnderTest) {
  EXPECT_FALSE(DevicesUnderTest().empty()) << "no qualified device with a context: is PoCL (pocl-opencl-icd) "
                                              "installed, or an NVIDIA driver present?";
  for (const DeviceUnderTest& device : DevicesUnderTest()) {
    std::printf("under test: %s, %s\n", device.name.c_str(),
                LM::GetDevice(device.registryIndex)->GetName().c_str());
  }
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new DeviceSummary);
  const int result = RUN_ALL_TESTS();
  if (started) LM::Terminate();
  return result;
}
