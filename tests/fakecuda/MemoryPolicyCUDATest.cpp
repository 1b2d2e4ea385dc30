// The CUDA allocation policies against the fake driver: what the driver is asked, what the pool records,
// refusals, and that a pool in steady state stops calling the driver.
#include <gtest/gtest.h>

#include <algorithm>

#include "FakeDriverBinding.h"
#include "Memory/CUDAMemoryPolicies.h"
#include "Memory/MemoryManagers.h"

namespace {

constexpr std::size_t kMiB = std::size_t(1) << 20;
constexpr std::size_t kGiB = std::size_t(1) << 30;
using Args = std::vector<unsigned long long>;

// The arguments of the call named `name`, which must be the only one in the fake's log.
Args ArgsOfOnlyCall(const FakeCUDA& fake, const std::string& name) {
  const std::vector<std::string> names = fake.CallNames();
  EXPECT_EQ(std::count(names.begin(), names.end(), name), 1) << name;
  const auto found = std::find(names.begin(), names.end(), name);
  return found == names.end() ? Args{} : fake.CallArgs(found - names.begin());
}

TEST(MemoryPolicyCUDA, DeviceRequestsWrapAt32BitsButKeepTheirFullSize) {
  auto fake = BindFakeDriver();
  auto manager = LM::CreateCUDADeviceMemoryManager("device", 0, 8 * kGiB, 16 * kGiB, 0, {});
  std::size_t allocated = 0;
  void* block = manager->Allocate(4 * kGiB + kMiB, &allocated);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(allocated, 4 * kGiB + kMiB);
  EXPECT_EQ(ArgsOfOnlyCall(*fake, "cuMemAlloc_v2").at(1), kMiB);
  manager->Release(block, {});
  EXPECT_EQ(manager->Purge(1), 4 * kGiB + kMiB) << "given back at the size recorded";
  EXPECT_EQ(ArgsOfOnlyCall(*fake, "cuMemFree_v2"), Args{reinterpret_cast<std::uintptr_t>(block)});
}

TEST(MemoryPolicyCUDA, HostMemoryIsPageLockedWithoutFlags) {
  auto fake = BindFakeDriver();
  auto manager = LM::CreateCUDAHostMemoryManager("host", 0, kGiB, 2 * kGiB, 0, {});
  void* block = manager->Allocate(3 * kMiB, nullptr);
  ASSERT_NE(block, nullptr);
  const Args args = ArgsOfOnlyCall(*fake, "cuMemHostAlloc");
  ASSERT_EQ(args.size(), 3u);
  EXPECT_EQ(Args(args.begin() + 1, args.end()), (Args{3 * kMiB, 0})) << "the size and no flags";
  manager->Release(block, {});
  manager.reset();
  EXPECT_EQ(ArgsOfOnlyCall(*fake, "cuMemFreeHost"), Args{reinterpret_cast<std::uintptr_t>(block)});
  EXPECT_EQ(fake->fakecuda_LiveHostAllocations(), 0u);
}

TEST(MemoryPolicyCUDA, RefusalsAndAnUnboundDriverGiveNull) {
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
  auto host = LM::CreateCUDAHostMemoryManager("host", 0, kGiB, 2 * kGiB, 0, {});
  fake->fakecuda_SetFailure("cuMemHostAlloc", CUDA_ERROR_OUT_OF_MEMORY, 0, kFakeCUDAFailForever);
  EXPECT_EQ(host->Allocate(kMiB, nullptr), nullptr);
}

}  // namespace
