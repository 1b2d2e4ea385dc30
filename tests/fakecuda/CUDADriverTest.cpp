// The CUDA driver against fake driver files: which name the binder puts in each slot for each API level and
// driver version, what is printed, and what is returned when the driver is incomplete or fails; loading
// and unloading modules, the report of a failure, the PTX version a driver loads, and what the driver
// refuses of a loaded module.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "BuiltPtx.h"
#include "Devices/CUDABackend.h"
#include "FakeDriverBinding.h"
#include "Runtime/CUDADriverTable.h"

namespace {

std::set<std::string> Names(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

// The names the driver also exports with the suffix _v2, by the interface change that brought them.
const std::set<std::string> kNamesOf4000 =
    Names("cuCtxDestroy cuCtxPopCurrent cuCtxPushCurrent cuStreamDestroy cuEventDestroy");
const std::set<std::string> kPointerWidthNames = Names(
    "cuDeviceTotalMem cuCtxCreate cuModuleGetGlobal cuMemGetInfo cuMemAlloc cuMemAllocPitch cuMemFree "
    "cuMemGetAddressRange cuMemAllocHost cuMemHostGetDevicePointer cuMemcpyHtoD cuMemcpyDtoH cuMemcpyDtoD "
    "cuMemcpyDtoA cuMemcpyAtoD cuMemcpyHtoA cuMemcpyAtoH cuMemcpyAtoA cuMemcpy2D cuMemcpy2DUnaligned "
    "cuMemcpy3D "
    "cuMemcpyHtoDAsync cuMemcpyDtoHAsync cuMemcpyHtoAAsync cuMemcpyAtoHAsync cuMemcpy2DAsync cuMemcpy3DAsync "
    "cuMemsetD8 cuMemsetD16 cuMemsetD32 cuMemsetD2D8 cuMemsetD2D16 cuMemsetD2D32 cuArrayCreate "
    "cuArrayGetDescriptor cuArray3DCreate cuArray3DGetDescriptor cuTexRefSetAddress cuTexRefSetAddress2D "
    "cuTexRefGetAddress");
const std::set<std::string> kOtherV2Names = Names("cuGLCtxCreate cuGraphicsResourceGetMappedPointer");

// Every slot of the driver table by name, with the address bound to it (null: unbound).
std::map<std::string, void*> Slots() {
  std::map<std::string, void*> slots;
#define LM_TEST_LIST_SLOT(name, versions, params, args) slots[#name] = reinterpret_cast<void*>(LM::CUDA.name);
  LM_CUDA_DRIVER_ENTRY_POINTS(LM_TEST_LIST_SLOT)
#undef LM_TEST_LIST_SLOT
  return slots;
}

void* SlotOf(const std::string& name) {
  return Slots().at(name);
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
  for (const auto& [slot, bound] : Slots()) {
    const std::string expected = expectedName(slot);
    ASSERT_TRUE(expected.empty() || fake.Symbol(expected.c_str()) != nullptr)
        << "the fake lacks " << expected;
    EXPECT_EQ(bound, expected.empty() ? nullptr : fake.Symbol(expected.c_str()))
        << slot << " should hold " << expected;
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
  for (const auto& [slot, bound] : Slots()) EXPECT_EQ(bound, nullptr) << slot;
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
  const std::map<std::string, void*> first = Slots();
  ASSERT_EQ(Bind(0, 4000).result, 0);
  EXPECT_EQ(Slots(), first);
}

TEST(CUDAModuleLoad, AFailureIsReportedUnlessSilenced) {
  const std::unique_ptr<FakeCUDA> fake = BindFakeDriver();
  zelcore::debug::SetAssertionOutputQuiet(true);
  fake->fakecuda_SetFailure("cuModuleLoadDataEx", CUDA_ERROR_INVALID_IMAGE, 0, kFakeCUDAFailForever);
  const unsigned before = zelcore::debug::AssertionReportCount();

  EXPECT_EQ(LM::CUDABackend(0).LoadModule("Composite", "garbage"), nullptr);
  ASSERT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  const std::string report = zelcore::debug::LastAssertionReport();
  EXPECT_EQ(report.rfind("Assertion failed: result == CUDA_SUCCESS: Failed to load module: Composite, error: "
                         "CUDA_ERROR_INVALID_IMAGE (..\\..\\Src\\ModuleManager:",
                         0),
            0u)
      << report;
  EXPECT_NE(report.find(" LM::LoadCUDAModule)"), std::string::npos) << report;

  LM::SetModuleLoadFailuresSilenced(true);
  EXPECT_EQ(LM::LoadCUDAModule("Composite", "garbage"), nullptr);
  LM::SetModuleLoadFailuresSilenced(false);
  EXPECT_EQ(zelcore::debug::AssertionReportCount(), before + 1);
  EXPECT_EQ(fake->fakecuda_CallCount("cuModuleLoadDataEx"), 2u);
}

// A driver loads PTX of its own ISA version or older: every module the build made declares a version that a
// CUDA 10.1 driver loads, and nvcc's own (9.0 for CUDA 13) would be refused by a CUDA 12.0 driver.
TEST(CUDAModuleLoad, ADriverRefusesPtxNewerThanItselfAndLoadsEveryBuiltModule) {
  const std::unique_ptr<FakeCUDA> fake = BindFakeDriver();
  zelcore::debug::SetAssertionOutputQuiet(true);
  const CurrentFakeContext context;
  fake->fakecuda_SetDriverVersion(12000);
  EXPECT_EQ(LM::LoadCUDAModule("New", ".version 9.0\n.target sm_75\n"), nullptr);
  fake->fakecuda_SetDriverVersion(10010);
  int built = 0;
  for (const auto& file : std::filesystem::directory_iterator(BuiltPtxFolder())) {
    const CUmodule module = LM::LoadCUDAModule(file.path().stem().string(), ReadText(file.path()));
    EXPECT_NE(module, nullptr) << file.path();
    LM::CUDABackend(0).UnloadModule(module);
    ++built;
  }
  if (built == 0) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built";
}

// What the fake refuses, as the real driver does, so that a misspelt name or a host/kernel layout drift fails
// on this machine.
TEST(CUDAModuleLoad, TheFakeDriverRefusesWhatTheRealOneRefuses) {
  const std::unique_ptr<FakeCUDA> fake = BindFakeDriver();
  const char ptx[] =
      ".version 6.4\n.target sm_75\n.address_size 64\n.global .texref inTexture;\n"
      ".visible .entry K(\n\t.param .u64 K_param_0,\n\t.param .u32 K_param_1,\n"
      "\t.param .align 16 .b8 K_param_2[16]\n)\n{\n\tret;\n}\n";
  CUmodule module = nullptr;
  EXPECT_EQ(LM::CUDA.cuModuleLoadData(&module, ptx), CUDA_ERROR_INVALID_CONTEXT) << "no context is current";
  const CurrentFakeContext context;
  ASSERT_EQ(LM::CUDA.cuModuleLoadData(&module, ptx), CUDA_SUCCESS);
  CUfunction function = nullptr;
  CUtexref texture = nullptr;
  EXPECT_EQ(LM::CUDA.cuModuleGetFunction(&function, module, "k"), CUDA_ERROR_NOT_FOUND);
  EXPECT_EQ(LM::CUDA.cuModuleGetTexRef(&texture, module, "inOther"), CUDA_ERROR_NOT_FOUND);
  ASSERT_EQ(LM::CUDA.cuModuleGetFunction(&function, module, "K"), CUDA_SUCCESS);
  ASSERT_EQ(LM::CUDA.cuModuleGetTexRef(&texture, module, "inTexture"), CUDA_SUCCESS);

  // Parameters at 0 (8 bytes), 8 (4) and 16 (16, aligned to 16): 32 bytes.
  char value[16] = {};
  const struct {
    int offset;
    unsigned bytes;
    CUresult expected;
  } writes[] = {{0, 8, CUDA_SUCCESS},
                {8, 4, CUDA_SUCCESS},
                {16, 16, CUDA_SUCCESS},
                {12, 4, CUDA_ERROR_INVALID_VALUE},
                {20, 4, CUDA_ERROR_INVALID_VALUE},
                {24, 16, CUDA_ERROR_INVALID_VALUE},
                {-4, 4, CUDA_ERROR_INVALID_VALUE}};
  for (const auto& write : writes) {
    EXPECT_EQ(LM::CUDA.cuParamSetv(function, write.offset, value, write.bytes), write.expected)
        << write.offset;
  }
  EXPECT_EQ(LM::CUDA.cuParamSetSize(function, 28), CUDA_ERROR_INVALID_VALUE);
  EXPECT_EQ(LM::CUDA.cuParamSetSize(function, 32), CUDA_SUCCESS);
  EXPECT_EQ(LM::CUDA.cuLaunchGridAsync(function, 1, 1, nullptr), CUDA_ERROR_INVALID_VALUE)
      << "no block shape yet";
  ASSERT_EQ(LM::CUDA.cuFuncSetBlockShape(function, 16, 16, 1), CUDA_SUCCESS);
  EXPECT_EQ(LM::CUDA.cuLaunchGridAsync(function, 1, 1, nullptr), CUDA_SUCCESS);

  // The fake's device has a texture alignment of 512 bytes and a texture pitch alignment of 32.
  const CUDA_ARRAY_DESCRIPTOR descriptor = {16, 4, CU_AD_FORMAT_FLOAT, 4};
  EXPECT_EQ(LM::CUDA.cuTexRefSetAddress2D(texture, &descriptor, 4096, 256), CUDA_SUCCESS);
  EXPECT_EQ(LM::CUDA.cuTexRefSetAddress2D(texture, &descriptor, 4096 + 256, 256), CUDA_ERROR_INVALID_VALUE);
  EXPECT_EQ(LM::CUDA.cuTexRefSetAddress2D(texture, &descriptor, 4096, 272), CUDA_ERROR_INVALID_VALUE);
  EXPECT_EQ(LM::CUDA.cuTexRefSetFormat(texture, CU_AD_FORMAT_FLOAT, 4), CUDA_ERROR_INVALID_VALUE)
      << "no format once bound";
  EXPECT_EQ(LM::CUDA.cuModuleUnload(module), CUDA_SUCCESS);
}

}  // namespace
