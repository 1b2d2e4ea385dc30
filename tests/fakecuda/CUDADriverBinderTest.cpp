// The CUDA driver binder against fake driver files: which name lands in each slot for each API level and
// driver version, what is printed, and what is returned when the driver is incomplete or fails.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "FakeCUDAControl.h"
#include "Runtime/CUDADriverTable.h"

namespace {

// The names the driver also exports with the suffix _v2, by the interface change that brought them.
const std::set<std::string> kNamesOf4000 = {"cuCtxDestroy", "cuCtxPopCurrent", "cuCtxPushCurrent",
                                            "cuStreamDestroy", "cuEventDestroy"};
const std::set<std::string> kPointerWidthNames = {"cuDeviceTotalMem",
                                                  "cuCtxCreate",
                                                  "cuModuleGetGlobal",
                                                  "cuMemGetInfo",
                                                  "cuMemAlloc",
                                                  "cuMemAllocPitch",
                                                  "cuMemFree",
                                                  "cuMemGetAddressRange",
                                                  "cuMemAllocHost",
                                                  "cuMemHostGetDevicePointer",
                                                  "cuMemcpyHtoD",
                                                  "cuMemcpyDtoH",
                                                  "cuMemcpyDtoD",
                                                  "cuMemcpyDtoA",
                                                  "cuMemcpyAtoD",
                                                  "cuMemcpyHtoA",
                                                  "cuMemcpyAtoH",
                                                  "cuMemcpyAtoA",
                                                  "cuMemcpy2D",
                                                  "cuMemcpy2DUnaligned",
                                                  "cuMemcpy3D",
                                                  "cuMemcpyHtoDAsync",
                                                  "cuMemcpyDtoHAsync",
                                                  "cuMemcpyHtoAAsync",
                                                  "cuMemcpyAtoHAsync",
                                                  "cuMemcpy2DAsync",
                                                  "cuMemcpy3DAsync",
                                                  "cuMemsetD8",
                                                  "cuMemsetD16",
                                                  "cuMemsetD32",
                                                  "cuMemsetD2D8",
                                                  "cuMemsetD2D16",
                                                  "cuMemsetD2D32",
                                                  "cuArrayCreate",
                                                  "cuArrayGetDescriptor",
                                                  "cuArray3DCreate",
                                                  "cuArray3DGetDescriptor",
                                                  "cuTexRefSetAddress",
                                                  "cuTexRefSetAddress2D",
                                                  "cuTexRefGetAddress"};
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
  std::string output;  // what was printed on standard output
};

template <class Call>
BindOutcome Printed(Call call) {
  testing::internal::CaptureStdout();
  const int result = call();
  return {result, testing::internal::GetCapturedStdout()};
}

BindOutcome Bind(unsigned int flags, int apiVersion) {
  return Printed([&] { return LM::BindCUDADriver(flags, apiVersion); });
}

BindOutcome IsAvailable() {
  return Printed([] { return LM::IsCUDADriverAvailable() ? 1 : 0; });
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

// A file that is missing, or that is not a library: one line, the loader's own reason kept for the host,
// nothing bound.
TEST(CUDADriverBinder, AnUnloadableLibraryIsOneLineAndBindsNothing) {
  for (const char* path : {"/nonexistent/libcuda-missing.so.1", LUMORA_TEST_SOURCE_DIR "/CMakeLists.txt"}) {
    ASSERT_EQ(dlopen(path, RTLD_NOW | RTLD_LOCAL), nullptr) << path;
    const std::string reason = dlerror();
    LM::CUDADriverLibraryName = path;
    const BindOutcome outcome = Bind(0, 4000);
    EXPECT_EQ(outcome.result, 999);
    EXPECT_EQ(outcome.output, std::string("LoadLibrary \"") + path + "\" failed!\n");
    EXPECT_EQ(LM::GetCUDADriverLoadFailure(), reason);
  }
  for (const Slot& slot : Slots()) EXPECT_EQ(slot.bound, nullptr) << slot.name;
}

TEST(CUDADriverBinder, EachApiLevelBindsItsOwnNames) {
  auto fake = UseDriver(FAKECUDA_PATH);
  // Slots are never cleared, so the levels go from fewest bound slots to most.
  const BindOutcome legacy = Bind(7, 0);
  EXPECT_EQ(legacy.result, 0);
  EXPECT_EQ(legacy.output, "");
  EXPECT_EQ(fake->CallNames(), (std::vector<std::string>{"cuInit", "cuDriverGetVersion"}));
  EXPECT_EQ(fake->CallArgs(0), std::vector<unsigned long long>{7});
  // The legacy level takes plain names but still requires the 4.0 group; 3020 adds the pointer-width names.
  ExpectSlots(*fake,
              [](const std::string& name) { return name == "cuStreamWaitEvent" ? std::string() : name; });
  EXPECT_EQ(Bind(0, 3020).result, 0);
  ExpectSlots(*fake, [](const std::string& name) {
    if (name == "cuStreamWaitEvent") return std::string();
    return kPointerWidthNames.count(name) || kOtherV2Names.count(name) ? name + "_v2" : name;
  });
  EXPECT_EQ(Bind(0, 4000).result, 0);
  ExpectSlots(*fake, [](const std::string& name) {
    return kNamesOf4000.count(name) || kPointerWidthNames.count(name) || kOtherV2Names.count(name)
               ? name + "_v2"
               : name;
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
  EXPECT_EQ(SlotOf("cuMemAlloc"), fake->Symbol("cuMemAlloc_v2"));
  for (const char* gated : {"cuModuleLoadDataEx", "cuMemHostGetFlags", "cuGetExportTable", "cuCtxSetLimit",
                            "cuCtxSetCurrent", "cuLaunchKernel"}) {
    EXPECT_EQ(SlotOf(gated), nullptr) << gated;
  }
}

TEST(CUDADriverBinder, A32DriverFailsApi4000AtCtxDestroyV2AndBindsTheLegacyApi) {
  auto fake = UseDriver(FAKECUDA_DRIVER_3020_PATH);
  fake->fakecuda_SetDriverVersion(3020);
  const BindOutcome outcome = IsAvailable();
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.output, MissingMessage("cuCtxDestroy_v2", *fake));
  EXPECT_EQ(SlotOf("cuMemAlloc"), fake->Symbol("cuMemAlloc"));
  EXPECT_EQ(SlotOf("cuCtxGetLimit"), fake->Symbol("cuCtxGetLimit"));
  EXPECT_EQ(SlotOf("cuCtxSetCurrent"), nullptr) << "a 3.2 driver stops before the 4.0 group";
}

TEST(CUDADriverBinder, A40DriverWithoutLaunchKernelFailsBothBinds) {
  auto fake = UseDriver(FAKECUDA_NO_LAUNCH_KERNEL_PATH);
  const BindOutcome outcome = IsAvailable();
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.output,
            MissingMessage("cuLaunchKernel", *fake) + MissingMessage("cuLaunchKernel", *fake));
}

TEST(CUDADriverBinder, InitAndVersionFailuresAreReturnedWithoutAMessage) {
  auto fake = UseDriver(FAKECUDA_PATH);
  for (const char* failing : {"cuInit", "cuDriverGetVersion"}) {
    fake->fakecuda_ClearFailures();
    fake->fakecuda_SetFailure(failing, 3, 0, kFakeCUDAFailForever);
    const BindOutcome outcome = Bind(0, 4000);
    EXPECT_EQ(outcome.result, 3) << failing;
    EXPECT_EQ(outcome.output, "") << failing;
    EXPECT_EQ(LM::CUDA.cuDeviceGet, nullptr) << failing;
  }
  EXPECT_EQ(fake->fakecuda_CallCount("cuDriverGetVersion"), 1u) << "not asked after cuInit failed";
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
