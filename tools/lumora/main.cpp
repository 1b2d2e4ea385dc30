// lumora: the command-line face of the library, for people embedding it. `lumora devices` starts the
// library, lists the compute devices it registers and shuts it down again; the image commands
// (Commands.cpp) run one operation on PNG files.
#include <Lumora/Lumora.h>
#include <unistd.h>
#include <zelcore/Debug.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include "Commands.h"

namespace {

const char kUsage[] =
    "Usage: lumora <command> [options]\n"
    "\n"
    "Commands:\n"
    "  composite, dissolve, blur, convert, alpha-gain, unpremultiply, accumulate, bench, demo\n"
    "                       Run one image operation on PNG files, Y4M streams or raw frames on a device:\n"
    "                       lumora <command> --help says how.\n"
    "  devices              Start the library, list the compute devices it registers (framework, vendor,\n"
    "                       name, compute capability, driver version, memory, and whether each qualifies\n"
    "                       for use, or the first test it fails), and stop it. OpenCL devices, CPU devices\n"
    "                       included, are listed unless LUMORA_DEBUG sets LM.EnableOpenCL or\n"
    "                       LM.OpenCLIncludeCPUDevices itself. With LM.DisableAcceleratedRenderer and\n"
    "                       LM.DisableAcceleratedDisplay both set it says that the GPU is disabled.\n"
    "\n"
    "Options:\n"
    "  --json               devices: print the list as one JSON document instead (the binder's lines go to\n"
    "                       standard error).\n"
    "  --cuda-driver PATH   Bind the CUDA driver from PATH instead of libcuda.so.1; when it cannot be\n"
    "                       bound, say why and exit with status 1.\n"
    "  -h, --help           Show this help.\n"
    "\n"
    "Exit status: 0 on success, 1 when the CUDA driver given with --cuda-driver cannot be bound or a device\n"
    "fails, 2 for a command line, file or image that cannot be used (the usage, or one line saying what\n"
    "is wrong, then goes to standard error).\n"
    "\n"
    "Run-time switches are entries of the debug database, set through the environment variable\n"
    "LUMORA_DEBUG as \"key=value;key=value\" (see docs/configuration.md). For example, to list CUDA\n"
    "devices only:\n"
    "  LUMORA_DEBUG=\"LM.EnableOpenCL=0\" lumora devices\n";

const char* BindResultText(int result) {
  switch (result) {
    case 0:
      return "bound";
    case 999:
      return "not available (the driver library or one of its entry points is missing)";
    default:
      return "not usable (the driver failed to initialise)";
  }
}

const char* FrameworkName(LM::DeviceFramework framework) {
  return framework == LM::kDeviceFramework_CUDA ? "CUDA" : "OpenCL";
}

const char* VendorName(LM::Vendor vendor) {
  switch (vendor) {
    case LM::kVendor_Apple:
      return "Apple";
    case LM::kVendor_AMD:
      return "AMD";
    case LM::kVendor_Intel:
      return "Intel";
    case LM::kVendor_NVIDIA:
      return "NVIDIA";
    default:
      return "unknown";
  }
}

// A switch read as the library reads it: a number (1 true, 0 false), or true/false; anything else is false.
bool SwitchIsOn(const char* key) {
  std::string text;
  if (!zelcore::debug::DebugDatabase::Instance().Lookup(key, text)) return false;
  bool value = false;
  std::istringstream numeric(text);
  if (numeric >> value) return value;
  std::istringstream word(text);
  return static_cast<bool>(word >> std::boolalpha >> value) && value;
}

// `cudaDriver` is the file given with --cuda-driver, or null. Returns the program's exit status.
// `text` as a JSON string.
std::string Json(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      out += escaped;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

// Standard output carries the JSON document: while the library starts, what it prints (the driver binder's
// lines) goes to standard error.
class StdoutToStderr {
 public:
  StdoutToStderr() {
    std::fflush(stdout);
    saved_ = dup(1);
    if (saved_ >= 0) dup2(2, 1);
  }
  ~StdoutToStderr() {
    std::fflush(stdout);
    if (saved_ >= 0) {
      dup2(saved_, 1);
      close(saved_);
    }
  }
  StdoutToStderr(const StdoutToStderr&) = delete;
  StdoutToStderr& operator=(const StdoutToStderr&) = delete;

 private:
  int saved_;
};

int ListDevices(const char* cudaDriver, bool json) {
  // With both switches the library binds no runtime and registers no device; an empty list would not say
  // why.
  if (SwitchIsOn("LM.DisableAcceleratedRenderer") && SwitchIsOn("LM.DisableAcceleratedDisplay")) {
    std::printf(
        "The GPU is disabled: LUMORA_DEBUG sets LM.DisableAcceleratedRenderer and "
        "LM.DisableAcceleratedDisplay, so no runtime is bound and no device is registered.\n");
    return 0;
  }
  // The command line lists OpenCL devices, CPU ones included, unless told otherwise: that is how Lumora
  // runs on a machine without a GPU.
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.EnableOpenCL", "1");
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.OpenCLIncludeCPUDevices", "1");
  {
    std::unique_ptr<StdoutToStderr> quiet(json ? new StdoutToStderr : nullptr);
    LM::Initialize(true);
  }
  const int bindResult = LM::GetCUDADriverBindResult();
  // The loader's own words tell a missing file from a broken one or a missing dependency; a missing entry
  // point is named in the binder's line above.
  const std::string loadFailure = LM::GetCUDADriverLoadFailure();
  const std::string state = bindResult == 999 && !loadFailure.empty() ? "not available: " + loadFailure
                                                                      : BindResultText(bindResult);
  // A driver named on the command line that cannot be used is an error, not a machine without CUDA.
  if (cudaDriver != nullptr && bindResult != 0) {
    std::fprintf(stderr, "lumora: the CUDA driver %s is %s\n", cudaDriver, state.c_str());
    LM::Terminate();
    return 1;
  }
  const unsigned int count = LM::GetDeviceCount();
  if (json) {
    std::printf("{\"cudaDriver\": %s, \"devices\": [", Json(state).c_str());
    for (unsigned int index = 0; index < count; ++index) {
      const boost::shared_ptr<LM::Device> device = LM::GetDevice(index);
      const bool qualified = device->IsQualified();
      const bool started = qualified && device->WaitForContext();
      const char* failed = qualified ? nullptr : LM::FirstFailedRequirement(device);
      std::printf(
          "%s\n  {\"index\": %u, \"api\": %s, \"vendor\": %s, \"name\": %s, \"computeCapability\": %.1f, "
          "\"driverVersion\": %.2f, \"memoryBytes\": %llu, \"qualified\": %s, \"contextStarted\": %s, "
          "\"failedRequirement\": %s}",
          index == 0 ? "" : ",", index, Json(FrameworkName(device->GetFramework())).c_str(),
          Json(VendorName(device->GetVendor())).c_str(), Json(device->GetName()).c_str(),
          device->GetComputeCapability(), device->GetDriverVersion(),
          static_cast<unsigned long long>(device->GetTotalMemory()), qualified ? "true" : "false",
          started ? "true" : "false", failed != nullptr ? Json(failed).c_str() : "null");
    }
    std::printf("%s]}\n", count == 0 ? "" : "\n");
    LM::Terminate();
    return 0;
  }
  std::printf("CUDA driver: %s\n", state.c_str());
  if (count == 0) {
    std::printf("No compute device found.\n");
    if (bindResult == 0) {
      std::printf("  CUDA: the driver is bound, but it reports no usable CUDA device.\n");
    } else {
      std::printf("  CUDA: no usable CUDA driver was found.\n");
    }
    if (!SwitchIsOn("LM.EnableOpenCL")) {
      std::printf(
          "  OpenCL: not enabled; the key LM.EnableOpenCL (LUMORA_DEBUG=\"LM.EnableOpenCL=1\") enables "
          "it.\n");
    } else {
      std::printf(
          "  OpenCL: no OpenCL device was found (is an OpenCL runtime such as pocl-opencl-icd "
          "installed?).\n");
    }
  } else {
    std::printf("%-3s %-7s %-8s %-52s %-10s %-8s %-11s %s\n", "#", "API", "Vendor", "Name", "Capability",
                "Driver", "Memory", "Qualified");
    for (unsigned int index = 0; index < count; ++index) {
      const boost::shared_ptr<LM::Device> device = LM::GetDevice(index);
      std::string qualified = "yes";
      if (!device->IsQualified()) {
        const char* failed = LM::FirstFailedRequirement(device);
        qualified = std::string("no (") + (failed != nullptr ? failed : "not started") + ")";
      } else if (!device->WaitForContext()) {
        qualified = "yes, but its context could not be created";
      }
      std::printf("%-3u %-7s %-8s %-52.52s %-10.1f %-8.2f %7.2f GiB %s\n", index,
                  FrameworkName(device->GetFramework()), VendorName(device->GetVendor()),
                  device->GetName().c_str(), device->GetComputeCapability(), device->GetDriverVersion(),
                  static_cast<double>(device->GetTotalMemory()) / (1ull << 30), qualified.c_str());
    }
  }
  LM::Terminate();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string command;
  const char* cudaDriver = nullptr;
  bool json = false;
  for (int i = 1; i < argc; ++i) {
    const char* argument = argv[i];
    if (std::strcmp(argument, "-h") == 0 || std::strcmp(argument, "--help") == 0) {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (std::strcmp(argument, "--cuda-driver") == 0) {
      // An option in the place of the path is a forgotten path ("--cuda-driver --help"); a file whose
      // name starts with '-' can still be given as ./-name.
      if (i + 1 >= argc || argv[i + 1][0] == '-' || argv[i + 1][0] == '\0') {
        std::fprintf(stderr, "lumora: --cuda-driver needs a path\n\n%s", kUsage);
        return 2;
      }
      cudaDriver = argv[++i];
      LM::CUDADriverLibraryName = cudaDriver;
    } else if (std::strcmp(argument, "--json") == 0 && command == "devices") {
      json = true;
    } else if (argument[0] == '-') {
      std::fprintf(stderr, "lumora: unknown option %s\n\n%s", argument, kUsage);
      return 2;
    } else if (command.empty()) {
      command = argument;
      // An image command takes the rest of the line.
      if (const lumora::Command* image = lumora::FindCommand(command)) {
        return lumora::RunCommand(*image, argc - i - 1, argv + i + 1);
      }
    } else {
      std::fprintf(stderr, "lumora: unexpected argument %s\n\n%s", argument, kUsage);
      return 2;
    }
  }
  if (command == "devices") return ListDevices(cudaDriver, json);
  if (command.empty()) {
    // Not what was asked for, so not the program's output: the usage goes with the other complaints.
    std::fputs(kUsage, stderr);
    return 2;
  }
  std::fprintf(stderr, "lumora: unknown command %s\n\n%s", command.c_str(), kUsage);
  return 2;
}
