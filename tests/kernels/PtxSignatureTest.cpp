// The generated PTX modules against the host's kernel declarations: the same kernels, and for each the same
// parameter types, alignments and sizes (so the same byte offsets), so a host/kernel mismatch fails here
// rather than on a GPU.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "CheckedKernels.h"

namespace {

using K = LM::KernelParameterKind;
using Parameter = std::tuple<std::string, int, int>;  // type (.s32 read as .u32), alignment, bytes
using Entries = std::map<std::pair<std::string, std::string>, std::vector<Parameter>>;  // (module, kernel)

std::filesystem::path PtxFolder() {
  return std::filesystem::canonical("/proc/self/exe").parent_path() / "PTX";
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// One ".param [.align N] .tBITS [.ptr ...] name[[count]]" declaration.
Parameter ParseParameter(const std::string& declaration) {
  std::istringstream words(declaration);
  std::string word, type, last;
  int alignment = 0;
  words >> word >> type;
  if (type == ".align") words >> alignment >> type;
  while (words >> word) last = word;
  const int bytes = std::stoi(type.substr(2)) / 8;
  const std::size_t bracket = last.find('[');
  const int count = bracket == std::string::npos ? 1 : std::stoi(last.substr(bracket + 1));
  return {type == ".s32" ? ".u32" : type, alignment != 0 ? alignment : bytes, bytes * count};
}

// Every .entry of every <Module>_NVIDIA.ptx with its parameters.
Entries ReadModules() {
  Entries entries;
  for (const auto& file : std::filesystem::directory_iterator(PtxFolder())) {
    const std::string title = file.path().stem().string();
    const std::size_t suffix = title.rfind("_NVIDIA");
    if (file.path().extension() != ".ptx" || suffix == std::string::npos || suffix + 7 != title.size())
      continue;
    const std::string ptx = ReadFile(file.path());
    for (std::size_t at = ptx.find(".entry "); at != std::string::npos; at = ptx.find(".entry ", at + 1)) {
      const std::size_t open = ptx.find('(', at), close = ptx.find(')', open);
      if (close == std::string::npos) break;
      std::istringstream name(ptx.substr(at + 7, open - at - 7)),
          list(ptx.substr(open + 1, close - open - 1));
      std::string kernel;
      name >> kernel;
      std::vector<Parameter>& parameters = entries[{title.substr(0, suffix), kernel}];
      for (std::string declaration; std::getline(list, declaration, ',');) {
        if (declaration.find(".param") != std::string::npos)
          parameters.push_back(ParseParameter(declaration));
      }
    }
  }
  return entries;
}

// The PTX form of the host's parameters, laid out naturally aligned; an image has none (a texture
// reference at module scope instead).
std::vector<Parameter> HostParameters(const LM::KernelSignature& kernel) {
  std::vector<Parameter> parameters;
  for (const K kind : std::vector<K>(kernel.parameters, kernel.parameters + kernel.count)) {
    if (kind == K::kDevicePointer) parameters.emplace_back(".u64", 8, 8);
    if (kind == K::kInt) parameters.emplace_back(".u32", 4, 4);
    if (kind == K::kFloat) parameters.emplace_back(".f32", 4, 4);
    if (kind == K::kFloat4) parameters.emplace_back(".b8", 16, 16);
  }
  return parameters;
}

TEST(KernelModules, PtxEntriesMatchTheHostDeclarations) {
  if (!LUMORA_HAVE_PTX_MODULES) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built";
  Entries entries = ReadModules();
  ASSERT_FALSE(entries.empty()) << "no kernels in " << PtxFolder();
  for (const LM::KernelSignature* kernel : CheckedKernels()) {
    const auto found = entries.find({kernel->module, kernel->name});
    if (found == entries.end()) {
      // Only a kernel with an image parameter may be OpenCL-only.
      EXPECT_NE(std::find(kernel->parameters, kernel->parameters + kernel->count, K::kImage),
                kernel->parameters + kernel->count)
          << kernel->module << "." << kernel->name << " is missing from the PTX of its module";
      continue;
    }
    EXPECT_EQ(found->second, HostParameters(*kernel)) << kernel->module << "." << kernel->name;
    entries.erase(found);
  }
  for (const auto& [kernel, parameters] : entries) {
    ADD_FAILURE() << kernel.first << "." << kernel.second << " has no host declaration";
  }
}

TEST(KernelModules, TextureProbePtxDeclaresItsTextureAndSamplesIt) {
  if (!LUMORA_HAVE_PTX_MODULES) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built";
  const std::string ptx = ReadFile(PtxFolder() / "TextureProbe_NVIDIA.ptx");
  const std::size_t declaration = ptx.find("\n.global .texref inProbeTexture;\n");
  ASSERT_NE(declaration, std::string::npos);
  EXPECT_LT(declaration, ptx.find(".entry")) << "declared at module scope, before the kernels";
  EXPECT_EQ(ptx.find(".texref"), ptx.rfind(".texref")) << "declared once";
  const std::size_t sample = ptx.find("tex.2d.v4.f32.s32");
  ASSERT_NE(sample, std::string::npos);
  EXPECT_EQ(ptx.find("[inProbeTexture,", sample), ptx.find('[', sample)) << "sampled from inProbeTexture";
}

}  // namespace
