// The image commands of the lumora program (Commands.cpp): each with its synopsis, description and options,
// from which `lumora <command> --help` is written.
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace lumora {

// A command line after the command: positional arguments and options (each at most once, -o as --output).
struct Arguments {
  std::vector<std::string> positional;
  std::map<std::string, std::string> options;
  bool Has(const std::string& name) const { return options.count(name) != 0; }
  std::string Get(const std::string& name, const std::string& fallback = "") const {
    const auto found = options.find(name);
    return found == options.end() ? fallback : found->second;
  }
};

struct Command {
  const char* name;
  int (*run)(const Arguments& arguments);
  const char* synopsis;
  const char* description;
  const char* options;  // the options it takes, "--name" each followed by a space or a newline
};

extern const Command kCommands[];
extern const std::size_t kCommandCount;

const Command* FindCommand(const std::string& name);
void PrintCommandHelp(const Command& command, std::FILE* out);
// Runs the command on the arguments after its name; its exit status.
int RunCommand(const Command& command, int argc, char** argv);

}  // namespace lumora
