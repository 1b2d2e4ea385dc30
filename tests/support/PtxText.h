// What a PTX module's text declares that loading and launching depend on: its ISA version, each kernel
// (.entry) with its parameter list, and its texture references (.global .texref). Read by the fake CUDA
// driver, which knows only what a module declares, and by the kernel checks.
#pragma once

#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

struct PtxParameter {
  std::string type;  // as written: .u64, .u32, .s32, .f32, .b8 ...
  int alignment;     // .align N, else the type's own size
  int bytes;         // the type's size times the array count
};

struct PtxModule {
  int version = 0;  // 10 × major + minor (64 for .version 6.4); 0 when the text declares none
  std::map<std::string, std::vector<PtxParameter>> entries;
  std::set<std::string> textures;
};

// One ".param [.align N] .tBITS [.ptr ...] name[[count]]" declaration.
inline PtxParameter ParsePtxParameter(const std::string& declaration) {
  std::istringstream words(declaration);
  std::string word, type, last;
  int alignment = 0;
  words >> word >> type;
  if (type == ".align") words >> alignment >> type;
  while (words >> word) last = word;
  // Numbers are read without exceptions: a type without a width (.pred) has 0 bytes.
  const int bytes = type.size() > 2 ? static_cast<int>(std::strtol(type.c_str() + 2, nullptr, 10)) / 8 : 0;
  const std::size_t bracket = last.find('[');
  const int count = bracket == std::string::npos
                        ? 1
                        : static_cast<int>(std::strtol(last.c_str() + bracket + 1, nullptr, 10));
  return {type, alignment != 0 ? alignment : bytes, bytes * count};
}

inline PtxModule ParsePtx(const std::string& ptx) {
  PtxModule module;
  const std::size_t version = ptx.find(".version ");
  if (version != std::string::npos) {
    std::istringstream number(ptx.substr(version + 9, 8));
    int major = 0, minor = 0;
    char dot = 0;
    if (number >> major >> dot >> minor && dot == '.') module.version = 10 * major + minor;
  }
  for (std::size_t at = ptx.find(".entry "); at != std::string::npos; at = ptx.find(".entry ", at + 1)) {
    const std::size_t open = ptx.find('(', at), close = ptx.find(')', open);
    if (open == std::string::npos || close == std::string::npos) break;
    std::istringstream name(ptx.substr(at + 7, open - at - 7)), list(ptx.substr(open + 1, close - open - 1));
    std::string kernel;
    name >> kernel;
    std::vector<PtxParameter>& parameters = module.entries[kernel];
    for (std::string declaration; std::getline(list, declaration, ',');) {
      if (declaration.find(".param") != std::string::npos)
        parameters.push_back(ParsePtxParameter(declaration));
    }
  }
  const std::string texref = ".global .texref ";
  for (std::size_t at = ptx.find(texref); at != std::string::npos; at = ptx.find(texref, at + 1)) {
    const std::size_t end = ptx.find(';', at);
    if (end == std::string::npos) break;
    module.textures.insert(ptx.substr(at + texref.size(), end - at - texref.size()));
  }
  return module;
}
