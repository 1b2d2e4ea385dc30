// The generated PTX modules against the host's kernel declarations: the same kernels, and for each the same
// parameter count, types and byte offsets, so a host/kernel mismatch fails here rather than on a GPU.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "CheckedKernels.h"

namespace {

using LM::KernelParameterKind;

struct PtxParameter {
  std::string type;  // ".u64", ".u32", ".s32", ".f32", ".b8", ...
  int alignment;     // the explicit .align, else the size of the type
  int size;          // the type's size times the array length
};
// (module, kernel) -> parameters
using PtxEntries = std::map<std::pair<std::string, std::string>, std::vector<PtxParameter>>;

std::filesystem::path PtxFolder() {
  return std::filesystem::canonical("/proc/self/exe").parent_path() / "PTX";
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// One ".param [.align N] .type [.ptr ...] name[[count]]" declaration.
PtxParameter ParseParameter(const std::string& declaration) {
  std::istringstream words(declaration);
  std::string word;
  PtxParameter parameter{"", 0, 0};
  words >> word;  // .param
  words >> word;
  if (word == ".align") {
    words >> parameter.alignment >> word;
  }
  parameter.type = word;
  std::string last = word;
  while (words >> word) last = word;
  const int bytes = std::stoi(parameter.type.substr(2)) / 8;
  const std::size_t bracket = last.find('[');
  parameter.size = bytes * (bracket == std::string::npos ? 1 : std::stoi(last.substr(bracket + 1)));
  if (parameter.alignment == 0) parameter.alignment = bytes;
  return parameter;
}

PtxEntries ReadModules() {
  PtxEntries entries;
  const std::regex entry(R"(\.entry\s+(\w+)\s*\(([^)]*)\))");
  for (const auto& file : std::filesystem::directory_iterator(PtxFolder())) {
    const std::string title = file.path().stem().string();
    if (file.path().extension() != ".ptx" || title.size() < 8 || title.substr(title.size() - 7) != "_NVIDIA")
      continue;
    const std::string module = title.substr(0, title.size() - 7);
    const std::string ptx = ReadFile(file.path());
    for (std::sregex_iterator match(ptx.begin(), ptx.end(), entry), end; match != end; ++match) {
      std::vector<PtxParameter>& parameters = entries[{module, (*match)[1]}];
      std::istringstream list((*match)[2]);
      for (std::string declaration; std::getline(list, declaration, ',');) {
        if (declaration.find(".param") != std::string::npos)
          parameters.push_back(ParseParameter(declaration));
      }
    }
  }
  return entries;
}

// Each offset is the previous end rounded up to the value's alignment.
std::vector<int> Offsets(const std::vector<int>& alignments, const std::vector<int>& sizes) {
  std::vector<int> offsets;
  int end = 0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    const int offset = (end + alignments[i] - 1) / alignments[i] * alignments[i];
    offsets.push_back(offset);
    end = offset + sizes[i];
  }
  offsets.push_back(end);  // the total size, as the host passes it to cuParamSetSize
  return offsets;
}

bool TypeMatches(KernelParameterKind kind, const PtxParameter& parameter) {
  switch (kind) {
    case KernelParameterKind::kDevicePointer:
      return parameter.type == ".u64";
    case KernelParameterKind::kInt:
      return parameter.type == ".u32" || parameter.type == ".s32";
    case KernelParameterKind::kFloat:
      return parameter.type == ".f32";
    case KernelParameterKind::kFloat4:
      return parameter.type == ".b8" && parameter.alignment == 16 && parameter.size == 16;
    case KernelParameterKind::kImage:
      return false;
  }
  return false;
}

int HostSize(KernelParameterKind kind) {
  switch (kind) {
    case KernelParameterKind::kDevicePointer:
      return 8;
    case KernelParameterKind::kFloat4:
      return 16;
    default:
      return 4;
  }
}

TEST(KernelModules, PtxEntriesMatchTheHostDeclarations) {
  if (!LUMORA_HAVE_PTX_MODULES) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built";
  ASSERT_TRUE(std::filesystem::is_directory(PtxFolder())) << PtxFolder();
  PtxEntries entries = ReadModules();
  ASSERT_FALSE(entries.empty()) << "no kernels in " << PtxFolder();

  for (const LM::KernelSignature* kernel : CheckedKernels()) {
    SCOPED_TRACE(std::string(kernel->module) + "." + kernel->name);
    std::vector<int> hostSizes;
    bool sampledImage = false;
    for (std::size_t i = 0; i < kernel->count; ++i) {
      if (kernel->parameters[i] == KernelParameterKind::kImage) {
        sampledImage = true;
      } else {
        hostSizes.push_back(HostSize(kernel->parameters[i]));
      }
    }
    const auto found = entries.find({kernel->module, kernel->name});
    if (found == entries.end()) {
      EXPECT_TRUE(sampledImage) << "missing from the PTX of its module";
      continue;
    }
    const std::vector<PtxParameter> ptx = found->second;
    entries.erase(found);
    ASSERT_EQ(ptx.size(), hostSizes.size()) << "parameter count (image parameters have no CUDA form)";
    std::vector<int> ptxAlignments, ptxSizes;
    for (std::size_t i = 0, p = 0; i < kernel->count; ++i) {
      if (kernel->parameters[i] == KernelParameterKind::kImage) continue;
      EXPECT_TRUE(TypeMatches(kernel->parameters[i], ptx[p])) << "parameter " << i << " is " << ptx[p].type;
      ptxAlignments.push_back(ptx[p].alignment);
      ptxSizes.push_back(ptx[p].size);
      ++p;
    }
    EXPECT_EQ(Offsets(hostSizes, hostSizes), Offsets(ptxAlignments, ptxSizes))
        << "byte offsets, then total size";
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
  EXPECT_TRUE(
      std::regex_search(ptx, std::regex(R"(tex\.2d\.v4\.f32\.s32\s+\{[^}]*\},\s*\[inProbeTexture,)")));
  EXPECT_EQ(ptx.find(".texref"), ptx.rfind(".texref")) << "declared once";
}

}  // namespace
