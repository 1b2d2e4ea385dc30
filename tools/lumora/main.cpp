// lumora: the command-line face of the library, for people embedding it. `lumora devices` starts the
// library, lists the compute devices it registers and shuts it down again.
#include <Lumora/Lumora.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

const char kUsage[] =
    "Usage: lumora <command> [options]\n"
    "\n"
    "Commands:\n"
    "  devices              Start the library, list the compute devices it registers, and stop it.\n"
    "\n"
    "Options:\n"
    "  --cuda-driver PATH   Bind the CUDA driver from PATH instead of libcuda.so.1.\n"
    "  -h, --help           Show this help.\n"
    "\n"
    "Run-time switches are entries of the debug database, set through the environment variable\n"
    "LUMORA_DEBUG as \"key=value;key=value\" (see docs/configuration.md), for example\n"
    "  LUMORA_DEBUG=\"LM.EnableOpenCL=1;LM.OpenCLIncludeCPUDevices=1\" lumora devices\n";

const char* BindResultText(int result) {
  switch (result) {
    case 0:
      return "bound";
    case 999:
      return "not available (the driver library or one of its entry points is missing; see above)";
    default:
      return "not usable (the driver failed to initialise)";
  }
}

int ListDevices() {
  LM::Initialize(false);
  const unsigned int count = LM::GetDeviceCount();
  std::printf("CUDA driver: %s\n", BindResultText(LM::GetCUDADriverBindResult()));
  if (count == 0) {
    std::printf("No compute device found.\n");
    if (LM::GetCUDADriverBindResult() == 0) {
      std::printf("  CUDA: the driver is bound, but no CUDA device was registered.\n");
    } else {
      std::printf("  CUDA: no usable CUDA driver was found.\n");
    }
    std::printf(
        "  OpenCL: not enabled. Set the key LM.EnableOpenCL (and LM.OpenCLIncludeCPUDevices for CPU devices\n"
        "          such as PoCL), e.g. LUMORA_DEBUG=\"LM.EnableOpenCL=1;LM.OpenCLIncludeCPUDevices=1\".\n");
  } else {
    std::printf("%u device(s) registered.\n", count);
  }
  LM::Terminate();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string command;
  for (int i = 1; i < argc; ++i) {
    const char* argument = argv[i];
    if (std::strcmp(argument, "-h") == 0 || std::strcmp(argument, "--help") == 0) {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (std::strcmp(argument, "--cuda-driver") == 0) {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "lumora: --cuda-driver needs a path\n\n%s", kUsage);
        return 2;
      }
      LM::CUDADriverLibraryName = argv[++i];
    } else if (argument[0] == '-') {
      std::fprintf(stderr, "lumora: unknown option %s\n\n%s", argument, kUsage);
      return 2;
    } else if (command.empty()) {
      command = argument;
    } else {
      std::fprintf(stderr, "lumora: unexpected argument %s\n\n%s", argument, kUsage);
      return 2;
    }
  }
  if (command == "devices") return ListDevices();
  if (command.empty()) {
    std::fputs(kUsage, stdout);
    return 2;
  }
  std::fprintf(stderr, "lumora: unknown command %s\n\n%s", command.c_str(), kUsage);
  return 2;
}
