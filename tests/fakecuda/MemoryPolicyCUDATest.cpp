// The CUDA allocation policies against the fake driver: what the driver is asked, what the pool records,
// refusals, and that a pool in steady state stops calling the driver.
#include <gtest/gtest.h>

#include "FakeDriverBinding.h"
#include "Memory/CUDAMemoryPolicies.h"
#include "Memory/MemoryManagers.h"

namespace {

constexpr std::size_t kMiB = std::size_t(1) << 20;
constexpr std::size_t kGiB = std::size_t(1) << 30;

// The arguments of the only call named `name` in the fake's log.
std::vector<unsigned long long> ArgsOfOnlyCall(const FakeCUDA& fake, const std::string& name) {
  const std::vector<std::string> names = fake.CallNames();
  std::vector<unsigned long long> args;
  int found = 0;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) {
      args = fake.CallArgs(i);
      ++found;
    }
  }
  EXPECT_EQ(found, 1) << name;
  return args;
}

TEST(MemoryPolicyCUDA, DeviceRequestsWrapAt32BitsButKeepTheirFullSize) {
  auto fake = BindFakeDriver();
  auto manager = LM::CreateCUDADeviceMemoryManager("device", 0, 8 * kGiB, 16 * kGiB, 0, {});
  ASSERT_TRUE(manager);
  std::size_t allocated = 0;
  void* block = manager->Allocate(4 * kGiB + kMiB, &allocated);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(allocated, 4 * kGiB + kMiB);
  const auto args = ArgsOfOnlyCall(*fake, "cuMemAlloc_v2");
  ASSERT_EQ(args.size(), 2u);
  EXPECT_EQ(args[1], kMiB);
  std::size_t total = 0;
  manager->GetStatistics(&total, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(total, 4 * kGiB + kMiB);

  manager->Release(block, {});
  EXPECT_EQ(manager->Purge(1), 4 * kGiB + kMiB);
  EXPECT_EQ(ArgsOfOnlyCall(*fake, "cuMemFree_v2"),
            (std::vector<unsigned long long>{reinterpret_cast<std::uintptr_t>(block)}));
  EXPECT_EQ(fake->fakecuda_LiveDeviceAllocations(), 0u);
}

TEST(MemoryPolicyCUDA, HostMemoryIsPageLockedWithoutFlags) {
  auto fake = BindFakeDriver();
  auto manager = LM::CreateCUDAHostMemoryManager("host", 0, kGiB, 2 * kGiB, 0, {});
  void* block = manager->Allocate(3 * kMiB, nullptr);
  ASSERT_NE(block, nullptr);
  const auto args = ArgsOfOnlyCall(*fake, "cuMemHostAlloc");
  ASSERT_EQ(args.size(), 3u);
  EXPECT_EQ(args[1], 3 * kMiB);
  EXPECT_EQ(args[2], 0u);
  manager.reset();
  EXPECT_EQ(ArgsOfOnlyCall(*fake, "cuMemFreeHost"),
            (std::vector<unsigned long long>{reinterpret_cast<std::uintptr_t>(block)}));
  EXPECT_EQ(fake->fakecuda_LiveHostAllocations(), 0u);
}

TEST(MemoryPolicyCUDA, DriverRefusalsAndAnUnboundDriverGiveNull) {
  auto fake = BindFakeDriver();
  std::size_t allocated = 0;
  const PFN_cuMemAlloc bound = LM::CUDA.cuMemAlloc;
  LM::CUDA.cuMemAlloc = nullptr;
  EXPECT_EQ(LM::CUDADeviceMemoryPoolManager().Allocate(LM::AllocationKey::OfSize(kMiB), &allocated).pointer,
            nullptr);
  LM::CUDA.cuMemAlloc = bound;

  auto device = LM::CreateCUDADeviceMemoryManager("device", 0, kGiB, 2 * kGiB, 0, {});
  fake->fakecuda_SetMemoryLimit(2 * kMiB);
  EXPECT_EQ(device->Allocate(3 * kMiB, &allocated), nullptr);
  EXPECT_EQ(allocated, 0u);
  fake->fakecuda_SetMemoryLimit(~0ull);
  fake->fakecuda_SetFailure("cuMemAlloc", CUDA_ERROR_OUT_OF_MEMORY, 0, kFakeCUDAFailForever);
  EXPECT_EQ(device->Allocate(kMiB, nullptr), nullptr);

  auto host = LM::CreateCUDAHostMemoryManager("host", 0, kGiB, 2 * kGiB, 0, {});
  fake->fakecuda_SetFailure("cuMemHostAlloc", CUDA_ERROR_OUT_OF_MEMORY, 0, kFakeCUDAFailForever);
  EXPECT_EQ(host->Allocate(kMiB, nullptr), nullptr);
}

TEST(MemoryPolicyCUDA, AWarmPoolNoLongerCallsTheDriver) {
  auto fake = BindFakeDriver();
  auto manager = LM::CreateCUDADeviceMemoryManager("device", 0, kGiB, 2 * kGiB, 0, {});
  constexpr std::size_t kFrameBytes = std::size_t(3840) * 2160 * 16;
  for (int i = 0; i < 100; ++i) {
    void* block = manager->Allocate(kFrameBytes, nullptr);
    ASSERT_NE(block, nullptr);
    manager->Release(block, {});
  }
  EXPECT_EQ(fake->fakecuda_CallCount("cuMemAlloc"), 1u);
  EXPECT_EQ(fake->fakecuda_CallCount("cuMemFree"), 0u);
}

}  // namespace
