// The CUDA driver binder against fake driver files: which name lands in each slot for each API level and
// driver version, what is printed, and what is returned when the driver is incomplete or fails.
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "FakeCUDAControl.h"
#include "Runtime/CUDADriverTable.h"

namespace {

// The names the driver also exports with the suffix _v2, by the interface change that brought them.
const std::set<std::string> kNamesOf4000 = {"cuCtxDestroy", "cuCtxPopCurrent", "cuCtxPushCurrent", "cuStreamDestroy",
                                            "cuEventDestroy"};
const std::set<std::string> kPointerWidthNames = {
    "cuDeviceTotalMem",      "cuCtxCreate",        "cuModuleGetGlobal",         "cuMemGetInfo",
    "cuMemAlloc",            "cuMemAllocPitch",    "cuMemFree",                 "cuMemGetAddressRange",
    "cuMemAllocHost",        "cuMemHostGetDevicePointer", "cuMemcpyHtoD",       "cuMemcpyDtoH",
    "cuMemcpyDtoD",          "cuMemcpyDtoA",       "cuMemcpyAtoD",              "cuMemcpyHtoA",
    "cuMemcpyAtoH",          "cuMemcpyAtoA",       "cuMemcpy2D",                "cuMemcpy2DUnaligned",
    "cuMemcpy3D",            "cuMemcpyHtoDAsync",  "cuMemcpyDtoHAsync",         "cuMemcpyHtoAAsync",
    "cuMemcpyAtoHAsync",     "cuMemcpy2DAsync",    "cuMemcpy3DAsync",           "cuMemsetD8",
    "cuMemsetD16",           "cuMemsetD32",        "cuMemsetD2D8",              "cuMemsetD2D16",
    "cuMemsetD2D32",         "cuArrayCreate",      "cuArrayGetDescriptor",      "cuArray3DCreate",
    "cuArray3DGetDescriptor", "cuTexRefSetAddress", "cuTexRefSetAddress2D",     "cuTexRefGetAddress"};
const std::set<std::string> kOtherV2Names = {"cuGLCtxCreate", "cuGraphicsResourceGetMappedPointer"};

struct Slot {
  std::string name;
  void* bound;
};

std::vector<Slot> Slots() {
  std::vector<Slot> slots;
#define LM_TEST_LIST_SLOT(name, versions, params, args) \
  slots.push_back(Slot{#name, reinterpret_cast<void*>(LM::CUDA.name)});
  LM_CUDA_DRIVER_ENTRY_POINTS(LM_TEST_LIST_SLOT)
#undef LM_TEST_LIST_SLOT
  return slots;
}

void* SlotOf(const std::string& name) {
  for (const Slot& slot : Slots()) {
    if (slot.name == name) return slot.bound;
  }
  ADD_FAILURE() << "no slot " << name;
  return nullptr;
}

struct BindOutcome {
  int result;
  std::string output;
};

BindOutcome Bind(unsigned int flags, int apiVersion) {
  testing::internal::CaptureStdout();
  const int result = LM::BindCUDADriver(flags, apiVersion);
  return {result, testing::internal::GetCapturedStdout()};
}

std::unique_ptr<FakeCUDA> UseDriver(const char* path) {
  LM::CUDADriverLibraryName = path;
  return std::make_unique<FakeCUDA>(path);
}

std::string MissingMessage(const char* name, const FakeCUDA& fake) {
  return std::string("Failed to find required function \"") + name + "\" in " + fake.Path() + "\n";
}

// Every slot holds the named export of the fake: `expectedName(slot)` says which, null meaning unbound.
template <class ExpectedName>
void ExpectSlots(const FakeCUDA& fake, ExpectedName expectedName) {
  for (const Slot& slot : Slots()) {
    const std::string expected = expectedName(slot.name);
    if (expected.empty()) {
      EXPECT_EQ(slot.bound, nullptr) << slot.name << " should not be bound";
    } else {
      ASSERT_NE(fake.Symbol(expected.c_str()), nullptr) << "the fake lacks " << expected;
      EXPECT_EQ(slot.bound, fake.Symbol(expected.c_str())) << slot.name << " should hold " << expected;
    }
  }
}

TEST(CUDADriverBinder, MissingLibraryPrintsOneLineAndBindsNothing) {
  LM::CUDADriverLibraryName = "/nonexistent/libcuda-missing.so.1";
  const BindOutcome outcome = Bind(0, 4000);
  EXPECT_EQ(outcome.result, 999);
  EXPECT_EQ(outcome.output, "LoadLibrary \"/nonexistent/libcuda-missing.so.1\" failed!\n");
  for (const Slot& slot : Slots()) EXPECT_EQ(slot.bound, nullptr) << slot.name;
  EXPECT_EQ(LM::GetCUDADriverBindResult(), 999);

  void* module = reinterpret_cast<void*>(1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(LM::LoadCUDADriverLibrary(&module), 999);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "LoadLibrary \"/nonexistent/libcuda-missing.so.1\" failed!\n");
  EXPECT_EQ(module, nullptr);
}

TEST(CUDADriverBinder, LoadingTheLibraryIsOnlyAProbe) {
  auto fake = UseDriver(FAKECUDA_PATH);
  void* module = nullptr;
  EXPECT_EQ(LM::LoadCUDADriverLibrary(&module), 0);
  EXPECT_NE(module, nullptr);
  EXPECT_EQ(LM::CUDA.cuInit, nullptr);
  EXPECT_EQ(fake->fakecuda_CallLogSize(), 0u);
}

TEST(CUDADriverBinder, Api4000OnACurrentDriverBindsTheCurrentNames) {
  auto fake = UseDriver(FAKECUDA_PATH);
  const BindOutcome outcome = Bind(7, 4000);
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(LM::GetCUDADriverBindResult(), 0);
  ExpectSlots(*fake, [](const std::string& name) {
    const bool v2 = kNamesOf4000.count(name) || kPointerWidthNames.count(name) || kOtherV2Names.count(name);
    return v2 ? name + "_v2" : name;
  });

  // cuInit ran first, with the caller's flags; the version was asked next.
  const std::vector<std::string> calls = fake->CallNames();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0], "cuInit");
  EXPECT_EQ(fake->CallArgs(0), std::vector<unsigned long long>{7});
  EXPECT_EQ(calls[1], "cuDriverGetVersion");
}

TEST(CUDADriverBinder, LegacyApiOnACurrentDriverBindsPlainNamesButStillRequiresThe40Group) {
  auto fake = UseDriver(FAKECUDA_PATH);
  EXPECT_EQ(Bind(0, 0).result, 0);
  ExpectSlots(*fake, [](const std::string& name) { return name == "cuStreamWaitEvent" ? std::string() : name; });
}

TEST(CUDADriverBinder, Api3020TakesThePointerWidthV2NamesOnly) {
  auto fake = UseDriver(FAKECUDA_PATH);
  EXPECT_EQ(Bind(0, 3020).result, 0);
  ExpectSlots(*fake, [](const std::string& name) {
    if (name == "cuStreamWaitEvent") return std::string();
    return kPointerWidthNames.count(name) || kOtherV2Names.count(name) ? name + "_v2" : name;
  });
}

TEST(CUDADriverBinder, OptionalGroupsFollowTheInstalledDriverVersion) {
  auto fake = UseDriver(FAKECUDA_PATH);
  struct Group {
    int version;
    std::vector<std::string> names;
  };
  const std::vector<Group> groups = {
      {2010, {"cuModuleLoadDataEx", "cuModuleLoadFatBinary", "cuGLCtxCreate", "cuGraphicsGLRegisterImage"}},
      {2030, {"cuMemHostGetFlags"}},
      {3000, {"cuMemcpyDtoDAsync", "cuGraphicsResourceGetMappedPointer", "cuGetExportTable"}},
      {3010, {"cuModuleGetSurfRef", "cuCtxGetLimit"}},
      {4000, {"cuCtxSetCurrent", "cuMemHostRegister", "cuLaunchKernel"}},
  };
  // Ascending versions, one below and one at each threshold: slots are never cleared, so a group must
  // still be unbound just below its threshold and bound from it on.
  for (const Group& group : groups) {
    for (int version : {group.version - 1, group.version}) {
      fake->fakecuda_SetDriverVersion(version);
      const BindOutcome outcome = Bind(0, 4000);
      ASSERT_EQ(outcome.result, 0) << outcome.output;
      for (const std::string& name : group.names) {
        EXPECT_EQ(SlotOf(name) != nullptr, version >= group.version) << name << " at driver " << version;
      }
    }
  }
}

TEST(CUDADriverBinder, WithoutDriverGetVersionTheDriverCountsAs10) {
  auto fake = UseDriver(FAKECUDA_NO_DRIVER_VERSION_PATH);
  const BindOutcome outcome = Bind(0, 4000);
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(LM::CUDA.cuDriverGetVersion, nullptr);
  EXPECT_NE(LM::CUDA.cuDeviceGet, nullptr);
  EXPECT_EQ(SlotOf("cuMemAlloc"), fake->Symbol("cuMemAlloc_v2"));
  for (const char* gated : {"cuModuleLoadDataEx", "cuMemHostGetFlags", "cuGetExportTable", "cuCtxSetLimit",
                            "cuCtxSetCurrent", "cuLaunchKernel"}) {
    EXPECT_EQ(SlotOf(gated), nullptr) << gated;
  }
}

TEST(CUDADriverBinder, A32DriverFailsApi4000AtCtxDestroyV2AndBindsTheLegacyApi) {
  auto fake = UseDriver(FAKECUDA_DRIVER_3020_PATH);
  fake->fakecuda_SetDriverVersion(3020);

  const BindOutcome current = Bind(0, 4000);
  EXPECT_EQ(current.result, 999);
  EXPECT_EQ(current.output, MissingMessage("cuCtxDestroy_v2", *fake));
  EXPECT_EQ(LM::CUDA.cuCtxDestroy, fake->Symbol("cuCtxDestroy")) << "slots bound before the gap keep their values";
  EXPECT_EQ(LM::CUDA.cuMemAlloc, nullptr);

  const BindOutcome legacy = Bind(0, 0);
  EXPECT_EQ(legacy.result, 0);
  EXPECT_EQ(legacy.output, "");
  EXPECT_EQ(SlotOf("cuMemAlloc"), fake->Symbol("cuMemAlloc"));
  EXPECT_EQ(SlotOf("cuCtxGetLimit"), fake->Symbol("cuCtxGetLimit"));
  EXPECT_EQ(SlotOf("cuCtxSetCurrent"), nullptr) << "a 3.2 driver stops before the 4.0 group";

  testing::internal::CaptureStdout();
  EXPECT_TRUE(LM::IsCUDADriverAvailable());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), MissingMessage("cuCtxDestroy_v2", *fake));
}

TEST(CUDADriverBinder, A40DriverWithoutLaunchKernelFailsBothBinds) {
  auto fake = UseDriver(FAKECUDA_NO_LAUNCH_KERNEL_PATH);
  testing::internal::CaptureStdout();
  EXPECT_FALSE(LM::IsCUDADriverAvailable());
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            MissingMessage("cuLaunchKernel", *fake) + MissingMessage("cuLaunchKernel", *fake));
  EXPECT_EQ(LM::GetCUDADriverBindResult(), 999);
}

TEST(CUDADriverBinder, InitAndVersionFailuresAreReturnedWithoutAMessage) {
  auto fake = UseDriver(FAKECUDA_PATH);
  fake->fakecuda_SetFailure("cuInit", 100, 0, kFakeCUDAFailForever);
  BindOutcome outcome = Bind(0, 4000);
  EXPECT_EQ(outcome.result, 100);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(LM::CUDA.cuDriverGetVersion, nullptr);
  EXPECT_EQ(fake->fakecuda_CallCount("cuDriverGetVersion"), 0u);

  fake->fakecuda_ClearFailures();
  fake->fakecuda_SetFailure("cuDriverGetVersion", 3, 0, kFakeCUDAFailForever);
  outcome = Bind(0, 4000);
  EXPECT_EQ(outcome.result, 3);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(LM::CUDA.cuDeviceGet, nullptr);
  EXPECT_EQ(LM::GetCUDADriverBindResult(), 3);
}

TEST(CUDADriverBinder, BindingAgainRewritesTheSameAddresses) {
  auto fake = UseDriver(FAKECUDA_PATH);
  ASSERT_EQ(Bind(0, 4000).result, 0);
  const std::vector<Slot> first = Slots();
  ASSERT_EQ(Bind(0, 4000).result, 0);
  const std::vector<Slot> second = Slots();
  for (std::size_t i = 0; i < first.size(); ++i) EXPECT_EQ(first[i].bound, second[i].bound) << first[i].name;
}

}  // namespace
