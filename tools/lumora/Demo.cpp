// lumora demo DIR: the showcase that `make demo` runs. On the first qualified device (or --device N) it
// writes into DIR a labelled contact sheet of the 27 blend modes over a generated pair of images, a blur
// sweep, a cross-dissolve strip, a colour-bar round trip through UYVY, v210 and 4:2:0 (whose errors it
// prints), and a short generated Y4M clip for the pipe. Every image goes the library's own path: upload and
// conversion on the device, the operation, conversion back and read-back.
#include <sys/stat.h>
#include <zelmediatypes/PixelFormats.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Commands.h"
#include "Frames.h"
#include "Png.h"

namespace lumora {

namespace {

namespace zmt = zelmediatypes;

// ---- Pictures and text
// ----------------------------------------------------------------------------------------

struct Rgba {
  std::uint8_t r, g, b, a;
};

Picture Blank(int width, int height, Rgba fill) {
  Picture p;
  p.width = width;
  p.height = height;
  p.channels = 4;
  for (int i = 0; i < width * height; ++i) p.bytes.insert(p.bytes.end(), {fill.r, fill.g, fill.b, fill.a});
  return p;
}
void Put(Picture& p, int x, int y, Rgba c) {
  if (x < 0 || y < 0 || x >= p.width || y >= p.height) return;
  std::uint8_t* at = &p.bytes[(std::size_t(y) * p.width + x) * 4];
  at[0] = c.r;
  at[1] = c.g;
  at[2] = c.b;
  at[3] = c.a;
}
void Paste(Picture& sheet, const Picture& tile, int left, int top) {
  for (int y = 0; y < tile.height; ++y) {
    for (int x = 0; x < tile.width; ++x) {
      const std::uint8_t* c = &tile.bytes[(std::size_t(y) * tile.width + x) * 4];
      Put(sheet, left + x, top + y, {c[0], c[1], c[2], 255});
    }
  }
}

// A 5 x 7 font: for each character, seven rows of five bits (the highest bit leftmost).
struct Glyph {
  char c;
  std::uint8_t rows[7];
};
const Glyph kFont[] = {
    {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}, {'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}}, {'D', {0x1E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x1E}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}}, {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}}, {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}, {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0C}},
    {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}}, {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}}, {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}}, {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0A}}, {'X', {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11}},
    {'Y', {0x11, 0x11, 0x11, 0x0A, 0x04, 0x04, 0x04}}, {'Z', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F}},
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C}}, {'=', {0x00, 0x00, 0x1F, 0x00, 0x1F, 0x00, 0x00}},
    {'-', {0x00, 0x00, 0x00, 0x1F, 0x00, 0x00, 0x00}}, {':', {0x00, 0x0C, 0x0C, 0x00, 0x0C, 0x0C, 0x00}},
};

// `text` in capitals at (left, top), each font pixel `scale` x `scale`.
void Label(Picture& p, const std::string& text, int left, int top, int scale, Rgba colour) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = char(std::toupper(static_cast<unsigned char>(text[i])));
    for (const Glyph& glyph : kFont) {
      if (glyph.c != c) continue;
      for (int row = 0; row < 7; ++row) {
        for (int column = 0; column < 5; ++column) {
          if (!(glyph.rows[row] & (0x10 >> column))) continue;
          for (int dy = 0; dy < scale; ++dy) {
            for (int dx = 0; dx < scale; ++dx) {
              Put(p, left + int(i) * 6 * scale + column * scale + dx, top + row * scale + dy, colour);
            }
          }
        }
      }
    }
  }
}

// ---- The generated images
// ---------------------------------------------------------------------------------------

constexpr int kTileWidth = 208, kTileHeight = 128;

// A background: a diagonal gradient with soft horizontal bands, opaque.
Picture Background(int width, int height) {
  Picture p = Blank(width, height, {0, 0, 0, 255});
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double u = double(x) / width, v = double(y) / height;
      const double band = 0.5 + 0.5 * std::sin(v * 6.283 * 3);
      Put(p, x, y,
          {std::uint8_t(255 * (0.15 + 0.7 * u)), std::uint8_t(255 * (0.2 + 0.5 * band * (1 - u))),
           std::uint8_t(255 * (0.9 - 0.6 * v)), 255});
    }
  }
  return p;
}

// A layer: three soft discs of red, green and blue, each transparent towards its rim.
Picture Layer(int width, int height) {
  Picture p = Blank(width, height, {0, 0, 0, 0});
  const struct {
    double x, y, r;
    Rgba c;
  } discs[] = {{0.35, 0.4, 0.3, {230, 60, 40, 255}},
               {0.62, 0.4, 0.3, {60, 200, 80, 255}},
               {0.5, 0.66, 0.3, {50, 90, 230, 255}}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      double r = 0, g = 0, b = 0, a = 0;
      for (const auto& d : discs) {
        const double dx = (double(x) / width - d.x) * width / height, dy = double(y) / height - d.y;
        const double coverage = std::clamp(1.5 - std::sqrt(dx * dx + dy * dy) / d.r * 1.5, 0.0, 1.0);
        // Straight colours composited over each other: "over" in premultiplied terms, then unpremultiplied.
        r = d.c.r * coverage + r * (1 - coverage);
        g = d.c.g * coverage + g * (1 - coverage);
        b = d.c.b * coverage + b * (1 - coverage);
        a = coverage + a * (1 - coverage);
      }
      const double unpremultiply = a > 0 ? 1 / a : 0;
      Put(p, x, y,
          {std::uint8_t(std::lround(r * unpremultiply)), std::uint8_t(std::lround(g * unpremultiply)),
           std::uint8_t(std::lround(b * unpremultiply)), std::uint8_t(std::lround(255 * a))});
    }
  }
  return p;
}

// A pattern that shows a blur: a checkerboard of 8-pixel squares and a bright frame.
Picture Pattern(int width, int height) {
  Picture p = Blank(width, height, {0, 0, 0, 255});
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool light = ((x / 8) + (y / 8)) % 2 == 0;
      const bool frame = x < 4 || y < 4 || x >= width - 4 || y >= height - 4;
      Put(p, x, y,
          frame   ? Rgba{250, 200, 40, 255}
          : light ? Rgba{220, 220, 230, 255}
                  : Rgba{30, 40, 90, 255});
    }
  }
  Label(p, "LUMORA", width / 2 - 54, height / 2 - 10, 3, {200, 30, 30, 255});
  return p;
}

// ---- Steps
// --------------------------------------------------------------------------------------------------

struct Demo {
  const Session& session;
  std::string folder;
  bool ok = true;

  HostImage Host(const Picture& p) const {
    HostImage image;
    image.format = zmt::kPixelFormat_BGRA_4444_8u;
    image.width = p.width;
    image.height = p.height;
    for (std::size_t i = 0; i < p.bytes.size(); i += 4) {
      image.bytes.insert(image.bytes.end(), {p.bytes[i + 2], p.bytes[i + 1], p.bytes[i], p.bytes[i + 3]});
    }
    return image;
  }
  Frame Up(const Picture& p) {
    std::string error;
    const Frame frame = Upload(session, Host(p), &error);
    if (!frame) Fail(error);
    return frame;
  }
  Frame New(int width, int height) {
    std::string error;
    const Frame frame = NewFrame(session, width, height, &error);
    if (!frame) Fail(error);
    return frame;
  }
  Picture Down(const Frame& frame) {
    HostImage image;
    std::string error;
    Picture p = Blank(frame->GetBounds().Width(), frame->GetBounds().Height(), {0, 0, 0, 255});
    if (!Download(session, frame, zmt::kPixelFormat_BGRA_4444_8u, &image, &error)) {
      Fail(error);
      return p;
    }
    for (std::size_t i = 0; i < image.bytes.size(); i += 4) {
      p.bytes[i] = image.bytes[i + 2];
      p.bytes[i + 1] = image.bytes[i + 1];
      p.bytes[i + 2] = image.bytes[i];
      p.bytes[i + 3] = image.bytes[i + 3];
    }
    return p;
  }
  void Save(const std::string& name, const Picture& p) {
    std::string error;
    if (!WritePng(folder + "/" + name, p, &error)) Fail(error);
    std::printf("  %s/%s\n", folder.c_str(), name.c_str());
  }
  void Check(int result, const char* what) {
    if (result != LM::kResultSuccess) Fail(std::string(what) + " failed on the device");
  }
  void Fail(const std::string& message) {
    if (ok) std::fprintf(stderr, "lumora demo: %s\n", message.c_str());
    ok = false;
  }
  static void* Memory(const Frame& f) { return DeviceMemory(f); }
};

const char* const kModeNames[] = {
    "Color",          "ColorBurn",   "ColorDodge", "Darken",     "DarkerColor", "Difference",   "Dissolve",
    "Exclusion",      "HardLight",   "HardMix",    "Hue",        "Lighten",     "LighterColor", "LinearBurn",
    "LinearDodgeAdd", "LinearLight", "Luminosity", "Multiply",   "Normal",      "Overlay",      "PinLight",
    "Saturation",     "Screen",      "SoftLight",  "VividLight", "Subtract",    "Divide"};

void BlendSheet(Demo& demo) {
  const int columns = 6, rows = 5, band = 18, w = kTileWidth, h = kTileHeight;
  const Frame layer = demo.Up(Layer(w, h)), background = demo.Up(Background(w, h)), out = demo.New(w, h);
  if (!demo.ok) return;
  Picture sheet = Blank(columns * (w + 8) + 8, rows * (h + band + 8) + 8, {24, 24, 28, 255});
  for (int mode = 0; mode < 27 && demo.ok; ++mode) {
    demo.Check(LM::Composite(demo.session.Device(), Demo::Memory(layer), RowBytes(layer),
                             Demo::Memory(background), RowBytes(background), Demo::Memory(out), RowBytes(out),
                             LM::kPixelFormat_GPU_BGRA_4444_32f, w, h, 0.85f, SK_BlendMode(mode)),
               kModeNames[mode]);
    const int left = 8 + (mode % columns) * (w + 8), top = 8 + (mode / columns) * (h + band + 8);
    Paste(sheet, demo.Down(out), left, top);
    Label(sheet, std::to_string(mode) + " " + kModeNames[mode], left, top + h + 4, 2, {235, 235, 235, 255});
  }
  demo.Save("blend-modes.png", sheet);
}

void BlurSweep(Demo& demo) {
  const int w = kTileWidth, h = kTileHeight, band = 18;
  const Frame source = demo.Up(Pattern(w, h)), out = demo.New(w, h);
  if (!demo.ok) return;
  Picture strip = Blank(5 * (w + 8) + 8, h + band + 16, {24, 24, 28, 255});
  Paste(strip, Pattern(w, h), 8, 8);
  Label(strip, "SOURCE", 8, h + 12, 2, {235, 235, 235, 255});
  const float sigmas[] = {1, 4, 16, 64};
  for (int i = 0; i < 4 && demo.ok; ++i) {
    demo.Check(LM::GaussianBlur(demo.session.Device(), Demo::Memory(source), RowBytes(source), w, h,
                                Demo::Memory(out), RowBytes(out), w, h, LM::kPixelFormat_GPU_BGRA_4444_32f,
                                sigmas[i], sigmas[i], true, kBlurDirection_Both),
               "the blur");
    Paste(strip, demo.Down(out), 8 + (i + 1) * (w + 8), 8);
    Label(strip, "SIGMA " + std::to_string(int(sigmas[i])), 8 + (i + 1) * (w + 8), h + 12, 2,
          {235, 235, 235, 255});
  }
  demo.Save("blur-sweep.png", strip);
}

void DissolveStrip(Demo& demo) {
  const int w = kTileWidth, h = kTileHeight, band = 18;
  const Frame a = demo.Up(Background(w, h)), b = demo.Up(Pattern(w, h)), out = demo.New(w, h);
  if (!demo.ok) return;
  Picture strip = Blank(5 * (w + 8) + 8, h + band + 16, {24, 24, 28, 255});
  const float progress[] = {0, 0.25f, 0.5f, 0.75f, 1};
  for (int i = 0; i < 5 && demo.ok; ++i) {
    demo.Check(LM::CrossDissolve(demo.session.Device(), Demo::Memory(b), RowBytes(b), Demo::Memory(a),
                                 RowBytes(a), Demo::Memory(out), RowBytes(out),
                                 LM::kPixelFormat_GPU_BGRA_4444_32f, w, h, progress[i], false),
               "the cross dissolve");
    Paste(strip, demo.Down(out), 8 + i * (w + 8), 8);
    char text[16];
    std::snprintf(text, sizeof text, "%.2f", progress[i]);
    Label(strip, text, 8 + i * (w + 8), h + 12, 2, {235, 235, 235, 255});
  }
  demo.Save("cross-dissolve.png", strip);
}

// 75 % colour bars through each packed or planar format and back; the largest error in 8-bit RGB codes.
void ColourBars(Demo& demo) {
  const int w = 8 * 40, h = 48;
  Picture bars = Blank(w, h, {0, 0, 0, 255});
  const Rgba colours[8] = {{191, 191, 191, 255}, {191, 191, 0, 255}, {0, 191, 191, 255}, {0, 191, 0, 255},
                           {191, 0, 191, 255},   {191, 0, 0, 255},   {0, 0, 191, 255},   {0, 0, 0, 255}};
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) Put(bars, x, y, colours[x / 40]);
  }
  const Frame source = demo.Up(bars);
  if (!demo.ok) return;
  Picture sheet = Blank(w + 16, 4 * (h + 26) + 8, {24, 24, 28, 255});
  Paste(sheet, bars, 8, 8);
  Label(sheet, "SOURCE 75 PERCENT BARS", 8, h + 12, 2, {235, 235, 235, 255});
  const struct {
    const char* name;
    LM::PixelFormat format;
  } routes[] = {{"UYVY 8U", zmt::kPixelFormat_UYVY_422_8u},
                {"V210 10U", zmt::kPixelFormat_V210_422_10u},
                {"4:2:0 8U", zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601}};
  std::printf("Colour bars through each format and back (largest error, in 8-bit RGB codes):\n");
  for (int r = 0; r < 3 && demo.ok; ++r) {
    HostImage packed;
    std::string error;
    if (!Download(demo.session, source, routes[r].format, &packed, &error)) {
      demo.Fail(error);
      return;
    }
    const Frame back = Upload(demo.session, packed, &error);
    if (!back) {
      demo.Fail(error);
      return;
    }
    const Picture seen = demo.Down(back);
    int largest = 0, interior = 0;
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        for (int c = 0; c < 3; ++c) {
          const int d = std::abs(int(seen.bytes[(std::size_t(y) * w + x) * 4 + c]) -
                                 int(bars.bytes[(std::size_t(y) * w + x) * 4 + c]));
          largest = std::max(largest, d);
          if (x % 40 >= 2 && x % 40 < 38) interior = std::max(interior, d);
        }
      }
    }
    std::printf("  %-9s %3d inside the bars, %3d at their edges (the chroma filters)\n", routes[r].name,
                interior, largest);
    Paste(sheet, seen, 8, 8 + (r + 1) * (h + 26));
    Label(sheet, std::string("THROUGH ") + routes[r].name, 8, 8 + (r + 1) * (h + 26) + h + 4, 2,
          {235, 235, 235, 255});
  }
  demo.Save("colour-bars.png", sheet);
}

// A short 4:2:0 clip of a disc crossing a gradient, for the pipe.
void Clip(Demo& demo) {
  const int w = 320, h = 180, frames = 24;
  const std::string path = demo.folder + "/clip.y4m";
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    demo.Fail(path + ": cannot create");
    return;
  }
  std::fprintf(file, "YUV4MPEG2 W%d H%d F24:1 Ip A1:1 C420jpeg\n", w, h);
  std::vector<std::uint8_t> planes(std::size_t(w) * h * 3 / 2);
  for (int f = 0; f < frames; ++f) {
    const double cx = 40 + f * 10.0, cy = 90;
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const bool disc = (x - cx) * (x - cx) + (y - cy) * (y - cy) < 40 * 40;
        planes[std::size_t(y) * w + x] = std::uint8_t(disc ? 200 : 30 + x * 150 / w);
      }
    }
    for (int y = 0; y < h / 2; ++y) {
      for (int x = 0; x < w / 2; ++x) {
        const bool disc = (2 * x - cx) * (2 * x - cx) + (2 * y - cy) * (2 * y - cy) < 40 * 40;
        planes[std::size_t(w) * h + std::size_t(y) * (w / 2) + x] = std::uint8_t(disc ? 60 : 128);
        planes[std::size_t(w) * h * 5 / 4 + std::size_t(y) * (w / 2) + x] = std::uint8_t(disc ? 200 : 128);
      }
    }
    std::fputs("FRAME\n", file);
    std::fwrite(planes.data(), 1, planes.size(), file);
  }
  std::fclose(file);
  std::printf("  %s (%d frames of %d x %d 4:2:0)\n", path.c_str(), frames, w, h);
}

}  // namespace

int RunDemo(const Arguments& arguments) {
  if (arguments.positional.size() != 1) {
    std::fprintf(stderr, "lumora demo: expected the output folder\n");
    return 2;
  }
  const std::string folder = arguments.positional.front();
  mkdir(folder.c_str(), 0755);
  struct stat info;
  if (stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    std::fprintf(stderr, "lumora demo: %s: cannot make the folder\n", folder.c_str());
    return 2;
  }
  std::string error;
  const int index = arguments.Has("device") ? std::atoi(arguments.Get("device").c_str()) : 0;
  const std::unique_ptr<Session> session = Session::Start(index, &error);
  if (!session) {
    std::fprintf(stderr, "lumora demo: %s\n", error.c_str());
    return 2;
  }
  std::printf("On %s, into %s:\n", session->Device()->GetName().c_str(), folder.c_str());
  Demo demo{*session, folder};
  BlendSheet(demo);
  BlurSweep(demo);
  DissolveStrip(demo);
  ColourBars(demo);
  Clip(demo);
  return demo.ok ? 0 : 1;
}

}  // namespace lumora
