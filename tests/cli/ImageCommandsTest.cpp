// The lumora program's image commands, run as a user runs them on PNG files that the tests write: outputs
// whose pixels follow from the inputs, standard input and output, Y4M streams and raw frames, the showcase
// and the bench, and the one-line refusals (exit status 2) of bad arguments, unreadable and truncated files.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Png.h"

namespace {

namespace fs = std::filesystem;
using lumora::Picture;

struct Outcome {
  int status;
  std::string out, err;
};

std::string Read(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// A picture whose pixel (x, y) is f(x, y), of 8-bit or 16-bit samples.
template <class F>
Picture Make(int width, int height, F f, int channels = 4, int depth = 8) {
  Picture p{width, height, channels, depth, {}};
  for (int i = 0; i < width * height; ++i) {
    const std::array<int, 4> v = f(i % width, i / width);
    for (int c = 0; c < channels; ++c) {
      p.bytes.push_back(std::uint8_t(v[c]));
      if (depth == 16) p.bytes.push_back(std::uint8_t(v[c] >> 8));  // the machine's byte order: little-endian
    }
  }
  return p;
}

// The largest difference of any sample (8 or 16 bits).
int Largest(const Picture& a, const Picture& b) {
  if (a.bytes.size() != b.bytes.size() || a.depth != b.depth || a.channels != b.channels) return 1 << 20;
  int largest = 0;
  for (std::size_t i = 0; i < a.bytes.size(); i += a.SampleBytes()) {
    std::uint16_t u = 0, v = 0;
    std::memcpy(&u, &a.bytes[i], a.SampleBytes());
    std::memcpy(&v, &b.bytes[i], b.SampleBytes());
    largest = std::max(largest, std::abs(int(u) - int(v)));
  }
  return largest;
}

class ImageCommands : public testing::Test {
 protected:
  void SetUp() override { fs::create_directories(folder_); }
  void TearDown() override { fs::remove_all(folder_); }
  std::string Path(const std::string& name) const { return (folder_ / name).string(); }

  // Runs `lumora <arguments>` in the folder, standard input from `input` when given.
  Outcome Lumora(const std::string& arguments, const std::string& input = "/dev/null") const {
    const std::string line = "cd '" + folder_.string() + "' && '" LUMORA_PROGRAM "' " + arguments + " >'" +
                             Path("stdout") + "' 2>'" + Path("stderr") + "' <'" + input + "'";
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read(Path("stdout")), Read(Path("stderr"))};
  }
  void Write(const std::string& name, const Picture& picture) const {
    std::string error;
    ASSERT_TRUE(lumora::WritePng(Path(name), picture, &error)) << error;
  }
  void WriteText(const std::string& name, const std::string& text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
  }
  Picture Load(const std::string& name) const {
    Picture picture;
    std::string error;
    EXPECT_TRUE(lumora::ReadPng(Path(name), &picture, &error)) << error;
    return picture;
  }

  fs::path folder_ =
      fs::path(testing::TempDir()) /
      ("lumora-cli-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
};

// Each command's result where the inputs decide it: opaque Normal is the layer, Multiply over white is the
// layer, a dissolve at 0 is its first image, a blur keeps a constant image, a gain of 0 clears, an opaque
// image unpremultiplies to itself, weights 1 and 0 pick the first input; a 16-bit RGB image stays 16-bit
// RGB. "-" reads the image from standard input and writes it to standard output, which then carries
// nothing else.
TEST_F(ImageCommands, EachCommandGivesTheResultItsInputsDecide) {
  const Picture layer = Make(24, 16, [](int x, int y) {
    return std::array<int, 4>{x * 10, y * 15, 90, 255};
  });
  const Picture white = Make(24, 16, [](int, int) { return std::array<int, 4>{255, 255, 255, 255}; });
  const Picture grey = Make(24, 16, [](int, int) { return std::array<int, 4>{100, 120, 140, 255}; });
  const auto samples = [](int x, int y) {
    const int i = 3 * (y * 24 + x);
    return std::array<int, 4>{i * 37 % 65536, (i + 1) * 37 % 65536, (i + 2) * 37 % 65536, 0};
  };
  const Picture deep = Make(24, 16, samples, 3, 16);
  Write("layer.png", layer);
  Write("white.png", white);
  Write("grey.png", grey);
  Write("deep.png", deep);
  const struct {
    std::string arguments;
    const Picture& expected;
    int tolerance;
  } cases[] = {
      {"composite layer.png white.png --mode Normal -o out.png", layer, 1},
      {"composite layer.png white.png --mode 17 --opacity 1 -o out.png", layer, 1},
      {"dissolve layer.png white.png --progress 0 -o out.png", layer, 0},
      {"blur grey.png --sigma 3 --edge extend -o out.png", grey, 1},
      {"unpremultiply layer.png -o out.png", layer, 1},
      {"accumulate layer.png white.png --weights 1,0 -o out.png", layer, 1},
      {"blur deep.png --sigma 0 -o out.png", deep, 2},
      {"blur - --sigma 0 -o -", layer, 0},
  };
  for (const auto& c : cases) {
    const bool piped = c.arguments.rfind(" -") == c.arguments.size() - 2;
    const Outcome outcome = Lumora(c.arguments, piped ? Path("layer.png") : "/dev/null");
    ASSERT_EQ(outcome.status, 0) << c.arguments << ": " << outcome.err;
    if (piped) WriteText("out.png", outcome.out);
    EXPECT_LE(Largest(Load("out.png"), c.expected), c.tolerance) << c.arguments;
  }
  ASSERT_EQ(Lumora("alpha-gain layer.png --gain 0 -o out.png").status, 0);
  const Picture gained = Load("out.png");
  for (std::size_t i = 3; i < gained.bytes.size(); i += 4) ASSERT_EQ(gained.bytes[i], 0) << "alpha " << i / 4;
}

// A Y4M header and `frames` frames of `layout` ("420jpeg", "444", ...): sample (x, y) of plane p in frame f
// is derived from x, y, p and f, smooth enough that chroma resampling keeps it.
std::string Y4m(const std::string& layout, int width, int height, int frames) {
  const bool sub = layout.rfind("420", 0) == 0, half = sub || layout == "422";
  std::string text =
      "YUV4MPEG2 W" + std::to_string(width) + " H" + std::to_string(height) + " F25:1 Ip C" + layout + "\n";
  for (int f = 0; f < frames; ++f) {
    text += "FRAME\n";
    for (int p = 0; p < 3; ++p) {
      const int w = p && half ? (width + 1) / 2 : width, h = p && sub ? (height + 1) / 2 : height;
      for (int i = 0; i < w * h; ++i)
        text.push_back(char(p ? 120 + i % w + f : 40 + 3 * (i % w) + 2 * (i / w) + f));
    }
  }
  return text;
}

// Y4M streams go through frame by frame, also between two programs through a pipe: 4:4:4 comes back as it
// was, 4:2:0 keeps its luma exactly and its smooth chroma within a code. A damaged stream names the frame.
TEST_F(ImageCommands, Y4mStreamsFlowFrameByFrame) {
  WriteText("in444.y4m", Y4m("444", 20, 12, 3));
  WriteText("in420.y4m", Y4m("420jpeg", 20, 12, 3));
  Outcome outcome = Lumora("blur in444.y4m --sigma 0 -o out444.y4m");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Read(Path("out444.y4m")), Read(Path("in444.y4m")));

  outcome = Lumora("blur - --sigma 0 -o - | '" LUMORA_PROGRAM "' blur - --sigma 0 -o out420.y4m",
                   Path("in420.y4m"));
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const std::string in = Read(Path("in420.y4m")), out = Read(Path("out420.y4m"));
  ASSERT_EQ(out.size(), in.size());
  const std::size_t header = in.find('\n') + 1, frame = 6 + 20 * 12 + 2 * 10 * 6;
  for (std::size_t i = header; i < in.size(); ++i) {
    const bool luma = (i - header) % frame >= 6 && (i - header) % frame < 6 + 20 * 12;
    ASSERT_LE(std::abs(int(std::uint8_t(in[i])) - int(std::uint8_t(out[i]))), luma ? 0 : 1) << "byte " << i;
  }

  // 10-bit 4:2:0, which travels as v210: luma exact, a smooth chroma ramp within a few codes.
  std::string deep = "YUV4MPEG2 W20 H12 F25:1 Ip C420p10\nFRAME\n";
  const auto put = [&deep](int v) { deep.append({char(v & 255), char(v >> 8)}); };
  for (int i = 0; i < 20 * 12; ++i) put(100 + 10 * (i % 20) + 5 * (i / 20));
  for (int i = 0; i < 2 * 10 * 6; ++i) put(400 + 4 * (i % 10) + 2 * (i % 60 / 10));
  WriteText("deep.y4m", deep);
  outcome = Lumora("blur deep.y4m --sigma 0 -o deep-out.y4m");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const std::string back = Read(Path("deep-out.y4m"));
  ASSERT_EQ(back.size(), deep.size());
  const std::size_t start = deep.find("FRAME\n") + 6;
  for (std::size_t at = start; at + 1 < deep.size(); at += 2) {
    const int want = std::uint8_t(deep[at]) | std::uint8_t(deep[at + 1]) << 8;
    const int got = std::uint8_t(back[at]) | std::uint8_t(back[at + 1]) << 8;
    ASSERT_LE(std::abs(got - want), at < start + 2 * 20 * 12 ? 0 : 4) << "byte " << at;
  }

  WriteText("cut.y4m", in.substr(0, header + frame + frame / 2));
  WriteText("odd.y4m", "YUV4MPEG2 W8 H8 C411\nFRAME\n");
  for (const auto& [file, complaint] :
       {std::pair{"cut.y4m", "cut.y4m: frame 2: truncated"}, {"odd.y4m", "C411"}}) {
    outcome = Lumora(std::string("blur ") + file + " --sigma 1 -o damaged-out.y4m");
    EXPECT_EQ(outcome.status, 2) << file;
    EXPECT_NE(outcome.err.find(complaint), std::string::npos) << outcome.err;
  }
}

// convert writes raw frames of a table format, and raw frames read back with --format and --size: a PNG
// through UYVY and back to BGRA keeps its luma-only (grey) image within a code.
TEST_F(ImageCommands, RawFramesConvertBothWays) {
  Write("grey.png", Make(16, 6, [](int x, int) { return std::array<int, 4>{x * 12, x * 12, x * 12, 255}; }));
  Outcome outcome = Lumora("convert grey.png --to UYVY_422_8u -o grey.uyvy");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Read(Path("grey.uyvy")).size(), 16u * 6 * 2);
  outcome =
      Lumora("convert grey.uyvy --format UYVY_422_8u --size 16x6 --to kPixelFormat_BGRA_4444_8u -o grey.raw");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const std::string raw = Read(Path("grey.raw"));
  ASSERT_EQ(raw.size(), 16u * 6 * 4);
  for (std::size_t i = 0; i < raw.size(); ++i)
    ASSERT_LE(std::abs(int(std::uint8_t(raw[i])) - (i % 4 == 3 ? 255 : int((i / 4) % 16) * 12)), 1)
        << "byte " << i;
  EXPECT_EQ(Lumora("convert grey.png --to Sepia -o x.raw").status, 2);
  EXPECT_EQ(Lumora("blur grey.uyvy --format UYVY_422_8u --sigma 1 -o x.raw").status, 2);
}

// The showcase writes its images and clip, and the bench prints its table, on the device of the machine.
TEST_F(ImageCommands, DemoAndBenchRun) {
  Outcome outcome = Lumora("demo shown");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  for (const char* name : {"blend-modes.png", "blur-sweep.png", "cross-dissolve.png", "colour-bars.png"})
    EXPECT_GT(Load(std::string("shown/") + name).width, 0) << name;
  EXPECT_EQ(Read(Path("shown/clip.y4m")).rfind("YUV4MPEG2 W320 H180", 0), 0u);
  outcome = Lumora("bench --size 64x32");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("Composite Normal"), std::string::npos);
  EXPECT_NE(outcome.out.find("memcpy, all cores"), std::string::npos);
}

// What a user gets wrong is refused with exit status 2 and one line that names it.
TEST_F(ImageCommands, BadArgumentsAndFilesAreRefusedInOneLine) {
  Write("a.png", Make(8, 8, [](int, int) { return std::array<int, 4>{1, 2, 3, 255}; }));
  Write("small.png", Make(4, 4, [](int, int) { return std::array<int, 4>{1, 2, 3, 255}; }));
  const std::string png = Read(Path("a.png"));
  WriteText("truncated.png", png.substr(0, png.size() / 2));
  WriteText("text.png", "not an image\n");
  const struct {
    std::string arguments, names;
  } cases[] = {
      {"blur a.png --sigma 2", "-o OUTPUT"},
      {"blur a.png -o out.png", "--sigma"},
      {"blur a.png --sigma two -o out.png", "--sigma"},
      {"blur a.png --sigma 2 --direction up -o out.png", "--direction"},
      {"blur a.png --sigma 2 --frobnicate 1 -o out.png", "--frobnicate"},
      {"composite a.png a.png --mode Glow -o out.png", "Glow"},
      {"composite a.png small.png --mode Normal -o out.png", "small.png"},
      {"dissolve a.png a.png --progress 1.5 -o out.png", "--progress"},
      {"accumulate a.png a.png --weights 1 -o out.png", "--weights"},
      {"blur missing.png --sigma 2 -o out.png", "missing.png"},
      {"blur truncated.png --sigma 2 -o out.png", "truncated.png"},
      {"blur text.png --sigma 2 -o out.png", "text.png"},
      {"blur a.png --sigma 2 --device 9 -o out.png", "--device 9"},
      {"bench --size 0x0", "--size"},
  };
  for (const auto& c : cases) {
    const Outcome outcome = Lumora(c.arguments);
    EXPECT_EQ(outcome.status, 2) << c.arguments;
    EXPECT_NE(outcome.err.find(c.names), std::string::npos) << c.arguments << ": " << outcome.err;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1)
        << c.arguments << ": " << outcome.err;
    EXPECT_FALSE(fs::exists(Path("out.png"))) << c.arguments;
  }
}

}  // namespace
