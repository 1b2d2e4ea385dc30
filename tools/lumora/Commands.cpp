// The image commands of the lumora program: each reads its PNG inputs, uploads them, runs one operation on
// the chosen device and writes the result. Exit status: 0 done, 2 for a command line, file or image the
// command cannot use (one line on standard error says what), 1 when the device fails.
#include "Commands.h"

#include <unistd.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "Frames.h"
#include "Media.h"

namespace lumora {

namespace {

constexpr const char* kModeNames[] = {
    "Color",          "ColorBurn",   "ColorDodge", "Darken",     "DarkerColor", "Difference",   "Dissolve",
    "Exclusion",      "HardLight",   "HardMix",    "Hue",        "Lighten",     "LighterColor", "LinearBurn",
    "LinearDodgeAdd", "LinearLight", "Luminosity", "Multiply",   "Normal",      "Overlay",      "PinLight",
    "Saturation",     "Screen",      "SoftLight",  "VividLight", "Subtract",    "Divide"};

// Why a command cannot run: one line, exit status 2.
struct Refusal {
  std::string message;
};

Arguments Parse(const Command& command, int argc, char** argv) {
  Arguments arguments;
  for (int i = 0; i < argc; ++i) {
    std::string word = argv[i];
    if (word == "-o") word = "--output";
    if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
      const std::string name = word.substr(2);
      if (std::strstr(command.options, ("--" + name + " ").c_str()) == nullptr &&
          std::strstr(command.options, ("--" + name + "\n").c_str()) == nullptr) {
        throw Refusal{"unknown option " + word};
      }
      if (arguments.Has(name)) throw Refusal{"option " + word + " given twice"};
      if (i + 1 >= argc) throw Refusal{"option " + word + " needs a value"};
      arguments.options[name] = argv[++i];
    } else {
      arguments.positional.push_back(word);
    }
  }
  return arguments;
}

float Number(const Arguments& arguments, const std::string& name, float fallback, float lo, float hi) {
  if (!arguments.Has(name)) return fallback;
  const std::string text = arguments.Get(name);
  char* end = nullptr;
  const float value = std::strtof(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !std::isfinite(value))
    throw Refusal{"--" + name + ": not a number: " + text};
  if (value < lo || value > hi) {
    throw Refusal{"--" + name + ": " + text + " is outside " + std::to_string(lo) + " .. " +
                  std::to_string(hi)};
  }
  return value;
}

float Required(const Arguments& arguments, const std::string& name, float lo, float hi) {
  if (!arguments.Has(name)) throw Refusal{"--" + name + " is required"};
  return Number(arguments, name, 0.0f, lo, hi);
}

// A table format by its name, with or without "kPixelFormat_".
LM::PixelFormat FormatNamed(const std::string& option, const std::string& name) {
  LM::PixelFormat format{};
  if (!zelmediatypes::LookupPixelFormat(name.c_str(), format)) {
    throw Refusal{"--" + option + ": unknown pixel format " + name + " (docs/pixel-formats.md lists them)"};
  }
  return format;
}

// The command's input files, all of one size: exactly `count` of them, or at least one for count 0. With
// --format and --size they are raw frames of that format and size.
std::vector<std::unique_ptr<Reader>> OpenInputs(const Arguments& arguments, std::size_t count) {
  const std::size_t given = arguments.positional.size();
  if ((count != 0 && given != count) || given == 0) {
    throw Refusal{"expected " +
                  (count == 0 ? std::string("input files") : std::to_string(count) + " input file") +
                  (count > 1 ? "s" : "") + ", got " + std::to_string(given)};
  }
  if (!arguments.Has("output")) throw Refusal{"-o OUTPUT is required"};
  std::vector<std::unique_ptr<Reader>> readers;
  int streamsFromStandardInput = 0;
  for (const std::string& path : arguments.positional) {
    streamsFromStandardInput += path == "-";
    if (streamsFromStandardInput > 1) throw Refusal{"only one input can be standard input"};
    std::string error;
    if (arguments.Has("format") != arguments.Has("size"))
      throw Refusal{"raw input needs both --format and --size"};
    if (arguments.Has("format")) {
      int width = 0, height = 0;
      char tail = 0;
      if (std::sscanf(arguments.Get("size").c_str(), "%dx%d%c", &width, &height, &tail) != 2 || width <= 0 ||
          height <= 0) {
        throw Refusal{"--size: " + arguments.Get("size") + " is not WIDTHxHEIGHT"};
      }
      readers.push_back(
          Reader::OpenRaw(path, FormatNamed("format", arguments.Get("format")), width, height, &error));
    } else {
      readers.push_back(Reader::Open(path, &error));
    }
    if (!readers.back()) throw Refusal{error};
    const Reader& first = *readers.front();
    if (readers.back()->Width() != first.Width() || readers.back()->Height() != first.Height()) {
      throw Refusal{path + " is " + std::to_string(readers.back()->Width()) + " x " +
                    std::to_string(readers.back()->Height()) + ", " + arguments.positional.front() + " is " +
                    std::to_string(first.Width()) + " x " + std::to_string(first.Height()) +
                    ": the inputs must have one size"};
    }
  }
  return readers;
}

// Runs `operation` (a result code) on the chosen device for every frame: the inputs uploaded (a still image
// once, a stream frame by frame) and a new output frame, which is converted back and written in the kind and
// layout of the first stream among the inputs, or of the first input. The output keeps alpha and 16 bits when
// an input has them (PNG). `straightResult` says the result holds straight colour (Unpremultiply). Frames
// are processed one at a time, so a stream of any length takes constant memory.
template <class Operation>
int Run(const Arguments& arguments, std::size_t count, Operation operation, bool straightResult = false) {
  std::vector<std::unique_ptr<Reader>> inputs = OpenInputs(arguments, count);
  const int index = static_cast<int>(Number(arguments, "device", 0, 0, 1000));
  const Reader* model = inputs.front().get();
  bool alpha = false, deep = false, stream = false;
  for (const auto& input : inputs) {
    alpha = alpha || input->HasAlpha();
    deep = deep || input->IsDeep();
    if (input->IsStream() && !stream) model = input.get();
    stream = stream || input->IsStream();
  }
  std::string error;
  const std::unique_ptr<Session> session = Session::Start(index, &error);
  if (!session) throw Refusal{error};
  const std::unique_ptr<Writer> writer =
      arguments.Has("to")
          ? MakeRawWriter(arguments.Get("output"), FormatNamed("to", arguments.Get("to")), &error)
          : model->MakeWriter(arguments.Get("output"), alpha, deep, &error);
  if (!writer) throw Refusal{error};
  const int width = model->Width(), height = model->Height();
  const Frame output = NewFrame(*session, width, height, &error);
  if (!output) {
    std::fprintf(stderr, "lumora: %s\n", error.c_str());
    return 1;
  }
  const bool progress = stream && isatty(2);
  const auto started = std::chrono::steady_clock::now();
  std::vector<Frame> frames(inputs.size());
  for (int frame = 0;; ++frame) {
    bool ended = false;
    for (std::size_t i = 0; i < inputs.size() && !ended; ++i) {
      if (frame > 0 && !inputs[i]->IsStream()) continue;  // a still image stays uploaded
      HostImage image;
      if (!inputs[i]->Next(&image, &error)) {
        if (!error.empty()) throw Refusal{error};
        ended = true;
        break;
      }
      frames[i] = Upload(*session, image, &error);
      if (!frames[i]) {
        std::fprintf(stderr, "lumora: %s\n", error.c_str());
        return 1;
      }
    }
    if (ended || (frame > 0 && !stream)) break;
    const int result = operation(session->Device(), frames, output);
    if (result != LM::kResultSuccess) {
      std::fprintf(stderr, "lumora: the operation failed on the device (0x%08X)\n",
                   static_cast<unsigned>(result));
      return 1;
    }
    HostImage image;
    if (!Download(*session, output, writer->Format(straightResult), &image, &error)) {
      std::fprintf(stderr, "lumora: %s\n", error.c_str());
      return 1;
    }
    if (!writer->Write(image, &error)) throw Refusal{error};
    if (progress) {
      const double seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
      std::fprintf(stderr, "\rframe %d, %.1f frames/s, %.1f s", frame + 1, (frame + 1) / seconds, seconds);
    }
  }
  if (progress) std::fputc('\n', stderr);
  return 0;
}

using Frames = std::vector<Frame>;
int Width(const Frame& frame) {
  return frame->GetBounds().Width();
}
int Height(const Frame& frame) {
  return frame->GetBounds().Height();
}
using DevicePtr = boost::shared_ptr<LM::Device>;
const LM::PixelFormat k32f = LM::kPixelFormat_GPU_BGRA_4444_32f;

int Composite(const Arguments& arguments) {
  if (!arguments.Has("mode")) throw Refusal{"--mode is required"};
  const std::string name = arguments.Get("mode");
  int mode = -1;
  for (int i = 0; i < 27; ++i) {
    if (name == kModeNames[i] || name == std::to_string(i)) mode = i;
  }
  if (mode < 0) throw Refusal{"--mode: unknown blend mode " + name + " (lumora composite --help lists them)"};
  const float opacity = Number(arguments, "opacity", 1.0f, 0.0f, 1.0f);
  return Run(arguments, 2, [&](const DevicePtr& device, const Frames& in, const Frame& out) {
    const int width = Width(out), height = Height(out);
    return LM::Composite(device, DeviceMemory(in[0]), RowBytes(in[0]), DeviceMemory(in[1]), RowBytes(in[1]),
                         DeviceMemory(out), RowBytes(out), k32f, width, height, opacity, SK_BlendMode(mode));
  });
}

int Dissolve(const Arguments& arguments) {
  const float progress = Required(arguments, "progress", 0.0f, 1.0f);
  return Run(arguments, 2, [&](const DevicePtr& device, const Frames& in, const Frame& out) {
    return LM::CrossDissolve(device, DeviceMemory(in[1]), RowBytes(in[1]), DeviceMemory(in[0]),
                             RowBytes(in[0]), DeviceMemory(out), RowBytes(out), k32f, Width(out), Height(out),
                             progress, false);
  });
}

int Blur(const Arguments& arguments) {
  const float sigma = Required(arguments, "sigma", 0.0f, 1024.0f);
  const float sigmaY = Number(arguments, "sigma-y", sigma, 0.0f, 1024.0f);
  const std::string direction = arguments.Get("direction", "both"), edge = arguments.Get("edge", "zero");
  if (direction != "h" && direction != "v" && direction != "both") {
    throw Refusal{"--direction: " + direction + " is not h, v or both"};
  }
  if (edge != "zero" && edge != "extend") throw Refusal{"--edge: " + edge + " is not zero or extend"};
  const SK_BlurDirection blurDirection = direction == "h"   ? kBlurDirection_Horizontal
                                         : direction == "v" ? kBlurDirection_Vertical
                                                            : kBlurDirection_Both;
  return Run(arguments, 1, [&](const DevicePtr& device, const Frames& in, const Frame& out) {
    const int width = Width(out), height = Height(out);
    return LM::GaussianBlur(device, DeviceMemory(in[0]), RowBytes(in[0]), width, height, DeviceMemory(out),
                            RowBytes(out), width, height, k32f, sigma, sigmaY, edge == "extend",
                            blurDirection);
  });
}

int Convert(const Arguments& arguments) {
  if (!arguments.Has("to")) throw Refusal{"--to FORMAT is required"};
  FormatNamed("to", arguments.Get("to"));
  return Run(arguments, 1, [&](const DevicePtr& device, const Frames& in, const Frame& out) {
    return LM::FastDeviceMemcpy2D(device, DeviceMemory(in[0]), RowBytes(in[0]), DeviceMemory(out),
                                  RowBytes(out), k32f, Width(out), Height(out));
  });
}

int AlphaGain(const Arguments& arguments) {
  const float gain = Required(arguments, "gain", 0.0f, 1e6f);
  return Run(arguments, 1, [&](const DevicePtr& device, const Frames& in, const Frame& out) {
    return LM::AlphaGain(device, DeviceMemory(in[0]), RowBytes(in[0]), DeviceMemory(out), RowBytes(out), k32f,
                         Width(out), Height(out), gain);
  });
}

int Unpremultiply(const Arguments& arguments) {
  return Run(
      arguments, 1,
      [&](const DevicePtr& device, const Frames& in, const Frame& out) {
        return LM::Unpremultiply(device, DeviceMemory(in[0]), RowBytes(in[0]), DeviceMemory(out),
                                 RowBytes(out), k32f, Width(out), Height(out), LM::float4{0, 0, 0, 0});
      },
      true);
}

int Accumulate(const Arguments& arguments) {
  std::vector<float> weights;
  const std::string text = arguments.Get("weights");
  if (text.empty()) throw Refusal{"--weights is required"};
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t comma = std::min(text.find(',', at), text.size());
    const std::string item = text.substr(at, comma - at);
    char* end = nullptr;
    const float weight = std::strtof(item.c_str(), &end);
    if (item.empty() || *end != '\0' || !std::isfinite(weight))
      throw Refusal{"--weights: not a number: " + item};
    weights.push_back(weight);
    at = comma + 1;
  }
  if (weights.size() != arguments.positional.size()) {
    throw Refusal{"--weights: " + std::to_string(weights.size()) + " weights for " +
                  std::to_string(arguments.positional.size()) + " inputs"};
  }
  return Run(arguments, 0, [&](const DevicePtr& device, const Frames& in, const Frame& out) {
    std::vector<const void*> sources;
    for (const Frame& frame : in) sources.push_back(DeviceMemory(frame));
    return LM::Accumulate(device, sources.data(), weights.data(), static_cast<int>(sources.size()),
                          DeviceMemory(out), RowBytes(out), 0, k32f, Width(out), Height(out));
  });
}

}  // namespace

int RunBench(const Arguments& arguments);  // Bench.cpp
int RunDemo(const Arguments& arguments);   // Demo.cpp

const Command kCommands[] = {
    {"composite", Composite, "LAYER BACKGROUND --mode NAME|NUMBER [--opacity F] -o OUT",
     "Lays LAYER over BACKGROUND (PNG files of one size) with a blend mode and an opacity (0..1, default "
     "1).\n"
     "Modes, by name or number: 0 Color, 1 ColorBurn, 2 ColorDodge, 3 Darken, 4 DarkerColor, 5 Difference,\n"
     "6 Dissolve, 7 Exclusion, 8 HardLight, 9 HardMix, 10 Hue, 11 Lighten, 12 LighterColor, 13 LinearBurn,\n"
     "14 LinearDodgeAdd, 15 LinearLight, 16 Luminosity, 17 Multiply, 18 Normal, 19 Overlay, 20 PinLight,\n"
     "21 Saturation, 22 Screen, 23 SoftLight, 24 VividLight, 25 Subtract, 26 Divide.\n",
     "--mode --opacity --output --device --format --size\n"},
    {"dissolve", Dissolve, "A B --progress F -o OUT",
     "Cross-dissolves from A to B (PNG files of one size): progress 0 gives A, 1 gives B.\n",
     "--progress --output --device --format --size\n"},
    {"blur", Blur, "IN --sigma F [--sigma-y F] [--direction h|v|both] [--edge zero|extend] -o OUT",
     "Blurs IN with the recursive Gaussian: --sigma horizontally, --sigma-y vertically (default: --sigma),\n"
     "in the chosen directions (default both); --edge zero takes the image as transparent black beyond its\n"
     "edges (the default), extend repeats the edge pixels.\n",
     "--sigma --sigma-y --direction --edge --output --device --format --size\n"},
    {"convert", Convert, "IN --to FORMAT -o OUT",
     "Converts IN into raw frames of FORMAT, a pixel format of the table (UYVY_422_8u, V210_422_10u,\n"
     "BGRA_4444_8u, ...; docs/pixel-formats.md), one frame after another: uploaded, converted on the device\n"
     "to the GPU's 32f and from it to FORMAT.\n",
     "--to --output --device --format --size\n"},
    {"alpha-gain", AlphaGain, "IN --gain F -o OUT",
     "Multiplies the alpha of IN, and with it its premultiplied colour, by the gain (0 clears).\n",
     "--gain --output --device --format --size\n"},
    {"unpremultiply", Unpremultiply, "IN -o OUT",
     "Divides the premultiplied colour of IN by its alpha and writes the colour as it results (alpha-0 "
     "pixels\n"
     "black): what a premultiplied pipeline holds, shown as straight colour.\n",
     "--output --device --format --size\n"},
    {"bench", RunBench, "[--size WxH] [--format GPU_FORMAT]",
     "Times every image operation on one device at one size (default 1920x1080) and GPU format (default\n"
     "GPU_BGRA_4444_32f) and prints one table: milliseconds a call, bytes read plus written a second, "
     "frames\n"
     "a second, and the rate as a share of this machine's memcpy over all cores. Each operation runs for "
     "half\n"
     "a second after a warm-up call; its time is the best call's, until the device has finished it.\n",
     "--size --format --device\n"},
    {"demo", RunDemo, "DIR",
     "The showcase of make demo: writes into DIR a labelled contact sheet of the 27 blend modes over a\n"
     "generated pair of images, a blur sweep, a cross-dissolve strip, colour bars through UYVY, v210 and\n"
     "4:2:0 and back (printing their errors), and a short Y4M clip for the pipe.\n",
     "--device\n"},
    {"accumulate", Accumulate, "IN... --weights W,... -o OUT",
     "Writes the weighted sum of the inputs (PNG files of one size), one weight for each, in order.\n",
     "--weights --output --device --format --size\n"},
};
const std::size_t kCommandCount = sizeof kCommands / sizeof kCommands[0];

const Command* FindCommand(const std::string& name) {
  for (const Command& command : kCommands) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

void PrintCommandHelp(const Command& command, std::FILE* out) {
  std::fprintf(out, "Usage: lumora %s %s\n\n%s\n", command.name, command.synopsis, command.description);
  // Commands that read images and write one take the options and inputs below; the others (bench, demo)
  // only choose the device.
  if (std::strstr(command.options, "--output") == nullptr) {
    std::fputs(
        "Options:\n"
        "  --device N           The Nth qualified device of lumora devices (default 0).\n"
        "  -h, --help           Show this help.\n",
        out);
    return;
  }
  std::fputs(
      "Common options:\n"
      "  -o, --output FILE    The output PNG or Y4M stream (- for standard output).\n"
      "  --device N           The Nth qualified device of lumora devices (default 0).\n"
      "  --format NAME --size WxH\n"
      "                       Read the inputs as raw frames of that table format and size.\n"
      "  -h, --help           Show this help.\n\n"
      "Inputs are PNG files (8 or 16 bits, RGB or RGBA) or Y4M streams (C420jpeg, C420, C420mpeg2,\n"
      "C420paldv, C422, C444, Cmono, C420p10, C422p10, C444p10), - for standard input. A stream is "
      "processed\n"
      "frame by frame, a PNG input beside it is used for every frame, and the output is a stream of the\n"
      "first stream's layout (or a PNG that keeps alpha and 16 bits when an input has them). Exit\n"
      "status: 0 done, 2 for an argument, file, image or frame that cannot be used (one line names it),\n"
      "1 when the device fails.\n",
      out);
}

int RunCommand(const Command& command, int argc, char** argv) {
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
      PrintCommandHelp(command, stdout);
      return 0;
    }
  }
  try {
    return command.run(Parse(command, argc, argv));
  } catch (const Refusal& refusal) {
    std::fprintf(stderr, "lumora %s: %s\n", command.name, refusal.message.c_str());
    return 2;
  }
}

}  // namespace lumora
