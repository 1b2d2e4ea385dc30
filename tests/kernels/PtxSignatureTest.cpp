// The generated PTX modules against the host's kernel declarations: the same kernels, on the frameworks
// they are declared for, and for each the same parameter types, alignments and sizes (so the same byte
// offsets), so a host/kernel mismatch fails here rather than on a GPU. (PTX keeps no parameter names; the
// OpenCL check compares those.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <tuple>

#include "BuiltPtx.h"
#include "CheckedKernels.h"
#include "PtxText.h"

namespace {

using Parameter = std::tuple<std::string, int, int>;  // type (.s32 read as .u32), alignment, bytes

// The text of every <Module>_NVIDIA.ptx, by module.
std::map<std::string, std::string> ModuleTexts() {
  std::map<std::string, std::string> texts;
  for (const auto& file : std::filesystem::directory_iterator(BuiltPtxFolder())) {
    const std::string title = file.path().stem().string();
    const std::size_t suffix = title.rfind("_NVIDIA");
    if (file.path().extension() == ".ptx" && suffix != std::string::npos && suffix + 7 == title.size())
      texts[title.substr(0, suffix)] = ReadText(file.path());
  }
  return texts;
}

#define LM_SKIP_WITHOUT_PTX() \
  if (!LUMORA_HAVE_PTX_MODULES) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built"

// Every .entry of every module, by (module, kernel), against the PTX form of each host declaration, laid out
// naturally aligned; an image has none (a texture reference at module scope instead).
TEST(KernelModules, PtxEntriesMatchTheHostDeclarations) {
  LM_SKIP_WITHOUT_PTX();
  std::map<std::pair<std::string, std::string>, std::vector<Parameter>> entries;
  for (const auto& [module, ptx] : ModuleTexts()) {
    for (const auto& [kernel, declared] : ParsePtx(ptx).entries) {
      std::vector<Parameter>& parameters = entries[{module, kernel}];
      for (const PtxParameter& p : declared)
        parameters.emplace_back(p.type == ".s32" ? ".u32" : p.type, p.alignment, p.bytes);
    }
  }
  ASSERT_FALSE(entries.empty()) << "no kernels in " << BuiltPtxFolder();
  for (const LM::KernelSignature& kernel : CheckedKernels()) {
    const std::string name = std::string(kernel.module) + "." + kernel.name;
    const auto found = entries.find({kernel.module, kernel.name});
    const bool openCLOnly = kernel.frameworks == LM::KernelFrameworks::kOpenCLOnly;
    EXPECT_EQ(found == entries.end(), openCLOnly)
        << name
        << (openCLOnly ? " is declared OpenCL-only but is in the PTX"
                       : " is missing from the PTX of its module");
    if (found == entries.end()) continue;
    std::vector<Parameter> host;
    for (std::size_t i = 0; i < kernel.count; ++i) {
      const LM::KernelParameterKind kind = kernel.parameters[i].kind;
      if (kind == LM::KernelParameterKind::kDevicePointer) host.emplace_back(".u64", 8, 8);
      if (kind == LM::KernelParameterKind::kInt) host.emplace_back(".u32", 4, 4);
      if (kind == LM::KernelParameterKind::kFloat) host.emplace_back(".f32", 4, 4);
      if (kind == LM::KernelParameterKind::kFloat4) host.emplace_back(".b8", 16, 16);
    }
    EXPECT_EQ(found->second, host) << name;
    entries.erase(found);
  }
  for (const auto& [kernel, parameters] : entries)
    ADD_FAILURE() << kernel.first << "." << kernel.second << " has no host declaration";
}

// Drivers refuse a module of a newer PTX ISA version than their own, so each module declares the lowest that
// its text needs: 6.4 (CUDA 10.1), or a version at which ptxas refuses it one step lower.
TEST(KernelModules, EachModuleDeclaresTheLowestPtxVersionItNeeds) {
  LM_SKIP_WITHOUT_PTX();
  const std::vector<std::string> versions = {"6.4", "6.5", "7.0", "7.1", "7.2", "7.3", "7.4", "7.5",
                                             "7.6", "7.7", "7.8", "8.0", "8.1", "8.2", "8.3", "8.4",
                                             "8.5", "8.6", "8.7", "8.8", "9.0", "9.1", "9.2"};
  const std::string scratch =
      (std::filesystem::temp_directory_path() / "lumora-ptx-version-check.ptx").string();
  for (const auto& [module, ptx] : ModuleTexts()) {
    const int version = ParsePtx(ptx).version;
    const std::string declared = std::to_string(version / 10) + "." + std::to_string(version % 10);
    const auto at = std::find(versions.begin(), versions.end(), declared);
    ASSERT_NE(at, versions.end()) << module << " declares .version " << declared;
    if (at == versions.begin()) continue;
    std::string lower = ptx;
    lower.replace(lower.find(".version " + declared), 9 + declared.size(), ".version " + *(at - 1));
    std::ofstream(scratch, std::ios::binary) << lower;
    const std::string command =
        std::string(LUMORA_PTXAS) + " -arch=sm_75 " + scratch + " -o " + scratch + ".cubin >/dev/null 2>&1";
    EXPECT_NE(std::system(command.c_str()), 0)
        << module << " declares .version " << declared << " but assembles at " << *(at - 1);
  }
  std::filesystem::remove(scratch);
  std::filesystem::remove(scratch + ".cubin");
}

}  // namespace
