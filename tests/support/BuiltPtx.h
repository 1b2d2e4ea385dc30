// The PTX modules that the build wrote beside the test programs (bin/PTX/<Module>_NVIDIA.ptx); none when
// nvcc was not found.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::filesystem::path BuiltPtxFolder() {
  return std::filesystem::canonical("/proc/self/exe").parent_path() / "PTX";
}

inline std::string ReadText(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// The text of module `module`; empty when it was not built.
inline std::string BuiltPtx(const std::string& module) {
  return ReadText(BuiltPtxFolder() / (module + "_NVIDIA.ptx"));
}
