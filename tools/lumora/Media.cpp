// PNG files and Y4M streams as host images.
//
// PNG samples are straight RGB(A): they travel as BGRA (BGRX without alpha) 8u, or 15u for 16-bit samples
// (0..65535 scaled to 0..32768), which the device premultiplies on the way in and unpremultiplies on the way
// out.
//
// Y4M frames keep their layout where a host format has it and are repacked where one needs it: 4:2:0 (8 bits)
// travels as the planar 4:2:0 formats as it is (C420mpeg2 and C420paldv with MPEG-2 siting, C420jpeg and C420
// with MPEG-4 siting; FIELD pictures when the stream is interlaced); 4:2:2 as UYVY, 10-bit 4:2:2 as v210;
// 4:4:4 and mono as VUYX 8u, 10-bit 4:4:4 as VUYX 32f. 10-bit 4:2:0, which no host format holds, travels as
// v210: its chroma rows are interpolated linearly to every luma row on the way in (chroma row j lying between
// luma rows 2j and 2j + 1) and averaged in pairs on the way out. Y4M names no matrix: pictures taller than
// 576 rows are taken as BT.709, others as BT.601. XCOLORRANGE=FULL is honoured for 4:2:0, whose host formats
// have full-range variants.
#include "Media.h"

#include <zelmediatypes/PixelFormats.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <sstream>

#include "Png.h"

namespace lumora {

namespace zmt = zelmediatypes;

namespace {

std::FILE* OpenInput(const std::string& path) {
  return path == "-" ? stdin : std::fopen(path.c_str(), "rb");
}

struct Closer {
  void operator()(std::FILE* file) const {
    if (file != nullptr && file != stdin && file != stdout) std::fclose(file);
  }
};
using File = std::unique_ptr<std::FILE, Closer>;

// ---- PNG
// ------------------------------------------------------------------------------------------------------

LM::PixelFormat PngFormat(bool alpha, bool deep, bool asItIs) {
  if (!alpha) return deep ? zmt::kPixelFormat_BGRX_4444_15u : zmt::kPixelFormat_BGRX_4444_8u;
  if (deep) return asItIs ? zmt::kPixelFormat_BGRP_4444_15u : zmt::kPixelFormat_BGRA_4444_15u;
  return asItIs ? zmt::kPixelFormat_BGRP_4444_8u : zmt::kPixelFormat_BGRA_4444_8u;
}

// R, G, B(, A) samples into B, G, R, A pixels (X written opaque), 16-bit samples scaled to 0..32768.
HostImage FromPicture(const Picture& picture) {
  HostImage image;
  image.format = PngFormat(picture.channels == 4, picture.depth == 16, false);
  image.width = picture.width;
  image.height = picture.height;
  const std::size_t pixels = std::size_t(picture.width) * picture.height;
  const int c = picture.channels;
  image.bytes.resize(pixels * (picture.depth == 16 ? 8 : 4));
  const int order[4] = {2, 1, 0, 3};
  for (std::size_t i = 0; i < pixels; ++i) {
    if (picture.depth == 16) {
      std::uint16_t in[4] = {0, 0, 0, 65535}, out[4];
      std::memcpy(in, picture.bytes.data() + i * c * 2, std::size_t(c) * 2);
      for (int k = 0; k < 4; ++k)
        out[k] = std::uint16_t((std::uint32_t(in[order[k]]) * 32768u + 32767u) / 65535u);
      std::memcpy(image.bytes.data() + i * 8, out, 8);
    } else {
      const std::uint8_t* in = picture.bytes.data() + i * c;
      for (int k = 0; k < 4; ++k) image.bytes[i * 4 + k] = k == 3 && c == 3 ? 255 : in[order[k]];
    }
  }
  return image;
}

Picture ToPicture(const HostImage& image, bool alpha, bool deep) {
  Picture picture;
  picture.width = image.width;
  picture.height = image.height;
  picture.channels = alpha ? 4 : 3;
  picture.depth = deep ? 16 : 8;
  picture.bytes.resize(picture.RowBytes() * picture.height);
  const std::size_t pixels = std::size_t(image.width) * image.height;
  const int order[4] = {2, 1, 0, 3};
  for (std::size_t i = 0; i < pixels; ++i) {
    for (int k = 0; k < picture.channels; ++k) {
      if (deep) {
        std::uint16_t in;
        std::memcpy(&in, image.bytes.data() + i * 8 + order[k] * 2, 2);
        const std::uint16_t out = std::uint16_t((std::uint32_t(in) * 65535u + 16384u) / 32768u);
        std::memcpy(picture.bytes.data() + (i * picture.channels + k) * 2, &out, 2);
      } else {
        picture.bytes[i * picture.channels + k] = image.bytes[i * 4 + order[k]];
      }
    }
  }
  return picture;
}

class PngWriter : public Writer {
 public:
  PngWriter(const std::string& path, bool alpha, bool deep) : path_(path), alpha_(alpha), deep_(deep) {}
  LM::PixelFormat Format(bool asItIs) const override { return PngFormat(alpha_, deep_, asItIs); }
  bool Write(const HostImage& image, std::string* error) override {
    if (written_) {
      *error = path_ + ": a PNG file holds one image; write a stream to a .y4m file";
      return false;
    }
    written_ = true;
    return WritePng(path_, ToPicture(image, alpha_, deep_), error);
  }

 private:
  std::string path_;
  bool alpha_, deep_, written_ = false;
};

class PngReader : public Reader {
 public:
  explicit PngReader(Picture picture) : picture_(std::move(picture)) {}
  int Width() const override { return picture_.width; }
  int Height() const override { return picture_.height; }
  bool HasAlpha() const override { return picture_.channels == 4; }
  bool IsStream() const override { return false; }
  bool IsDeep() const override { return picture_.depth == 16; }
  bool Next(HostImage* image, std::string*) override {
    if (done_) return false;
    done_ = true;
    *image = FromPicture(picture_);
    return true;
  }
  std::unique_ptr<Writer> MakeWriter(const std::string& path, bool alpha, bool deep,
                                     std::string*) const override {
    return std::make_unique<PngWriter>(path, alpha, deep);
  }

 private:
  Picture picture_;
  bool done_ = false;
};

// ---- Y4M
// ------------------------------------------------------------------------------------------------------

enum class Layout { k420, k420Deep, k422, k444, kMono };

struct Y4mLayout {
  int width = 0, height = 0;
  Layout layout = Layout::k420;
  int bits = 8;
  bool mpeg2Siting = false, interlaced = false, lowerFirst = false, fullRange = false;
  std::string headerLine;  // the whole first line, written again by the writer

  int ChromaWidth() const { return layout == Layout::k444 ? width : (width + 1) / 2; }
  int ChromaHeight() const {
    return layout == Layout::k420 || layout == Layout::k420Deep ? (height + 1) / 2 : height;
  }
  std::size_t SampleBytes() const { return bits > 8 ? 2 : 1; }
  std::size_t FrameBytes() const {
    const std::size_t luma = std::size_t(width) * height;
    const std::size_t chroma = layout == Layout::kMono ? 0 : 2 * std::size_t(ChromaWidth()) * ChromaHeight();
    return (luma + chroma) * SampleBytes();
  }
  bool BT709() const { return height > 576; }

  LM::PixelFormat Format() const {
    const bool hd = BT709();
    switch (layout) {
      case Layout::k420: {
        // MPEG2/MPEG4, FRAME/FIELD, 601/709, video/full range.
        static const LM::PixelFormat formats[2][2][2][2] = {
            {{{zmt::kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601,
               zmt::kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_601_FullRange},
              {zmt::kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_709,
               zmt::kPixelFormat_YUV_420_MPEG4_FRAME_PICTURE_PLANAR_8u_709_FullRange}},
             {{zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601,
               zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_601_FullRange},
              {zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709,
               zmt::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709_FullRange}}},
            {{{zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601,
               zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601_FullRange},
              {zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709,
               zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_709_FullRange}},
             {{zmt::kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601,
               zmt::kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_601_FullRange},
              {zmt::kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_709,
               zmt::kPixelFormat_YUV_420_MPEG2_FIELD_PICTURE_PLANAR_8u_709_FullRange}}}};
        return formats[mpeg2Siting][interlaced][hd][fullRange];
      }
      case Layout::k420Deep:
      case Layout::k422:
        if (bits > 8) return hd ? zmt::kPixelFormat_V210_422_10u_709 : zmt::kPixelFormat_V210_422_10u;
        return hd ? zmt::kPixelFormat_UYVY_422_8u_709 : zmt::kPixelFormat_UYVY_422_8u;
      default:
        if (bits > 8) return hd ? zmt::kPixelFormat_VUYX_4444_32f_709 : zmt::kPixelFormat_VUYX_4444_32f;
        return hd ? zmt::kPixelFormat_VUYX_4444_8u_709 : zmt::kPixelFormat_VUYX_4444_8u;
    }
  }
};

// The header's fields; a message for what is wrong, empty when it is understood.
std::string ParseHeader(const std::string& line, Y4mLayout* layout) {
  std::istringstream fields(line.substr(9));
  std::string colourspace = "420jpeg";
  std::string field;
  while (fields >> field) {
    const char tag = field[0];
    const std::string value = field.substr(1);
    if (tag == 'W') layout->width = std::atoi(value.c_str());
    if (tag == 'H') layout->height = std::atoi(value.c_str());
    if (tag == 'C') colourspace = value;
    if (tag == 'I') {
      layout->interlaced = value == "t" || value == "b";
      layout->lowerFirst = value == "b";
      if (value == "m") return "mixed interlacing (Im) is not supported";
    }
    if (field == "XCOLORRANGE=FULL") layout->fullRange = true;
  }
  if (layout->width <= 0 || layout->height <= 0 || layout->width > 32768 || layout->height > 32768) {
    return "the header has no usable size (W and H)";
  }
  const struct {
    const char* name;
    Layout layout;
    int bits;
    bool mpeg2;
  } known[] = {{"420jpeg", Layout::k420, 8, false},     {"420", Layout::k420, 8, false},
               {"420mpeg2", Layout::k420, 8, true},     {"420paldv", Layout::k420, 8, true},
               {"422", Layout::k422, 8, false},         {"444", Layout::k444, 8, false},
               {"mono", Layout::kMono, 8, false},       {"422p10", Layout::k422, 10, false},
               {"420p10", Layout::k420Deep, 10, false}, {"444p10", Layout::k444, 10, false}};
  for (const auto& k : known) {
    if (colourspace == k.name) {
      layout->layout = k.layout;
      layout->bits = k.bits;
      layout->mpeg2Siting = k.mpeg2;
      if (layout->fullRange && k.layout != Layout::k420) {
        return "full-range (XCOLORRANGE=FULL) 4:2:2, 4:4:4 and mono are not supported";
      }
      return "";
    }
  }
  return "colour space C" + colourspace +
         " is not supported (420jpeg, 420, 420mpeg2, 420paldv, 422, 444, mono, "
         "420p10, 422p10, 444p10 are)";
}

std::uint16_t Sample(const std::uint8_t* plane, std::size_t index, std::size_t bytes) {
  if (bytes == 1) return plane[index];
  std::uint16_t v;
  std::memcpy(&v, plane + index * 2, 2);
  return v;
}
void SetSample(std::uint8_t* plane, std::size_t index, std::size_t bytes, std::uint16_t value) {
  if (bytes == 1) {
    plane[index] = std::uint8_t(value);
  } else {
    std::memcpy(plane + index * 2, &value, 2);
  }
}

// Y4M planes (Y, Cb, Cr) into a host image of the layout's format, and back.
// 10-bit 4:2:0 planes as 4:2:2 ones: each luma row's chroma interpolated between the two nearest chroma rows.
std::vector<std::uint8_t> Upsample420(const Y4mLayout& y4m, const std::vector<std::uint8_t>& planes) {
  const int w = y4m.width, h = y4m.height, cw = y4m.ChromaWidth(), ch = y4m.ChromaHeight();
  std::vector<std::uint8_t> out((std::size_t(w) * h + 2 * std::size_t(cw) * h) * 2);
  std::memcpy(out.data(), planes.data(), std::size_t(w) * h * 2);
  for (int p = 0; p < 2; ++p) {
    const std::uint8_t* from = planes.data() + (std::size_t(w) * h + std::size_t(p) * cw * ch) * 2;
    std::uint8_t* to = out.data() + (std::size_t(w) * h + std::size_t(p) * cw * h) * 2;
    for (int y = 0; y < h; ++y) {
      const double position = (y - 0.5) / 2;
      const int j0 = std::clamp(int(std::floor(position)), 0, ch - 1), j1 = std::clamp(j0 + 1, 0, ch - 1);
      const double f = position - std::floor(position);
      for (int x = 0; x < cw; ++x) {
        const double v = (1 - f) * Sample(from, std::size_t(j0) * cw + x, 2) +
                         f * Sample(from, std::size_t(j1) * cw + x, 2);
        SetSample(to, std::size_t(y) * cw + x, 2, std::uint16_t(std::lround(v)));
      }
    }
  }
  return out;
}

// 4:2:2 planes back to 10-bit 4:2:0: chroma rows averaged in pairs.
std::vector<std::uint8_t> Downsample422(const Y4mLayout& y4m, const std::vector<std::uint8_t>& planes) {
  const int w = y4m.width, h = y4m.height, cw = y4m.ChromaWidth(), ch = y4m.ChromaHeight();
  std::vector<std::uint8_t> out(y4m.FrameBytes());
  std::memcpy(out.data(), planes.data(), std::size_t(w) * h * 2);
  for (int p = 0; p < 2; ++p) {
    const std::uint8_t* from = planes.data() + (std::size_t(w) * h + std::size_t(p) * cw * h) * 2;
    std::uint8_t* to = out.data() + (std::size_t(w) * h + std::size_t(p) * cw * ch) * 2;
    for (int j = 0; j < ch; ++j) {
      const int r0 = 2 * j, r1 = std::min(2 * j + 1, h - 1);
      for (int x = 0; x < cw; ++x) {
        const int sum = Sample(from, std::size_t(r0) * cw + x, 2) + Sample(from, std::size_t(r1) * cw + x, 2);
        SetSample(to, std::size_t(j) * cw + x, 2, std::uint16_t((sum + 1) / 2));
      }
    }
  }
  return out;
}

HostImage ToHost(const Y4mLayout& y4m, const std::vector<std::uint8_t>& planes) {
  if (y4m.layout == Layout::k420Deep) {
    Y4mLayout as422 = y4m;
    as422.layout = Layout::k422;
    return ToHost(as422, Upsample420(y4m, planes));
  }
  HostImage image;
  image.format = y4m.Format();
  image.width = y4m.width;
  image.height = y4m.height;
  image.fieldType = !y4m.interlaced
                        ? zmt::kFieldType_Progressive
                        : (y4m.lowerFirst ? zmt::kFieldType_LowerFirst : zmt::kFieldType_UpperFirst);
  if (y4m.layout == Layout::k420) {
    image.bytes = planes;
    return image;
  }
  const int w = y4m.width, h = y4m.height, cw = y4m.ChromaWidth();
  const std::size_t sb = y4m.SampleBytes();
  const std::uint8_t* luma = planes.data();
  const std::uint8_t* cb = luma + std::size_t(w) * h * sb;
  const std::uint8_t* cr = cb + std::size_t(cw) * y4m.ChromaHeight() * sb;
  const bool mono = y4m.layout == Layout::kMono;
  image.bytes.assign(zmt::PixelFormatSize(image.format, w, h), 0);
  const std::size_t rowBytes = zmt::PixelFormatSize(image.format, w, 1);
  for (int y = 0; y < h; ++y) {
    std::uint8_t* row = image.bytes.data() + rowBytes * y;
    if (y4m.layout == Layout::k422 && y4m.bits == 8) {
      for (int q = 0; q < cw; ++q) {
        const std::size_t c = std::size_t(y) * cw + q;
        row[4 * q] = cb[c];
        row[4 * q + 1] = luma[std::size_t(y) * w + 2 * q];
        row[4 * q + 2] = cr[c];
        row[4 * q + 3] = luma[std::size_t(y) * w + std::min(2 * q + 1, w - 1)];
      }
    } else if (y4m.layout == Layout::k422) {
      // v210: six pixels in four words of three 10-bit codes, Cb Y Cr Y ...
      const int groups = (w + 5) / 6;
      for (int g = 0; g < groups; ++g) {
        std::uint32_t codes[12];
        for (int k = 0; k < 12; ++k) {
          const int pair = 3 * g + k / 4, slot = k % 4;
          const int x = std::min(2 * pair + (slot == 3 ? 1 : 0), w - 1);
          const std::size_t c = std::size_t(y) * cw + std::min(pair, cw - 1);
          const std::uint16_t v = slot == 0   ? Sample(cb, c, 2)
                                  : slot == 2 ? Sample(cr, c, 2)
                                              : Sample(luma, std::size_t(y) * w + x, 2);
          codes[k] = v & 0x3FFu;
        }
        for (int word = 0; word < 4; ++word) {
          const std::uint32_t value =
              codes[3 * word] | (codes[3 * word + 1] << 10) | (codes[3 * word + 2] << 20);
          std::memcpy(row + 16 * g + 4 * word, &value, 4);
        }
      }
    } else {
      for (int x = 0; x < w; ++x) {
        const std::size_t i = std::size_t(y) * w + x;
        const std::uint16_t yv = Sample(luma, i, sb);
        const std::uint16_t u = mono ? (sb == 1 ? 128 : 512) : Sample(cb, i, sb);
        const std::uint16_t v = mono ? (sb == 1 ? 128 : 512) : Sample(cr, i, sb);
        if (sb == 1) {
          row[4 * x] = std::uint8_t(v);
          row[4 * x + 1] = std::uint8_t(u);
          row[4 * x + 2] = std::uint8_t(yv);
          row[4 * x + 3] = 255;
        } else {
          const float out[4] = {(v - 512.0f) / 896.0f, (u - 512.0f) / 896.0f, (yv - 64.0f) / 876.0f, 1.0f};
          std::memcpy(row + 16 * x, out, 16);
        }
      }
    }
  }
  return image;
}

std::uint16_t Code10(float value, float scale, float offset) {
  const float code = value * scale + offset + 0.5f;
  return std::uint16_t(code > 0.0f ? (code < 1023.0f ? code : 1023.0f) : 0.0f);
}

std::vector<std::uint8_t> FromHost(const Y4mLayout& y4m, const HostImage& image) {
  if (y4m.layout == Layout::k420) return image.bytes;
  if (y4m.layout == Layout::k420Deep) {
    Y4mLayout as422 = y4m;
    as422.layout = Layout::k422;
    return Downsample422(y4m, FromHost(as422, image));
  }
  const int w = y4m.width, h = y4m.height, cw = y4m.ChromaWidth();
  const std::size_t sb = y4m.SampleBytes();
  std::vector<std::uint8_t> planes(y4m.FrameBytes());
  std::uint8_t* luma = planes.data();
  std::uint8_t* cb = luma + std::size_t(w) * h * sb;
  std::uint8_t* cr = cb + std::size_t(cw) * y4m.ChromaHeight() * sb;
  const bool mono = y4m.layout == Layout::kMono;
  const std::size_t rowBytes = zmt::PixelFormatSize(image.format, w, 1);
  for (int y = 0; y < h; ++y) {
    const std::uint8_t* row = image.bytes.data() + rowBytes * y;
    if (y4m.layout == Layout::k422 && y4m.bits == 8) {
      for (int q = 0; q < cw; ++q) {
        const std::size_t c = std::size_t(y) * cw + q;
        cb[c] = row[4 * q];
        cr[c] = row[4 * q + 2];
        luma[std::size_t(y) * w + 2 * q] = row[4 * q + 1];
        if (2 * q + 1 < w) luma[std::size_t(y) * w + 2 * q + 1] = row[4 * q + 3];
      }
    } else if (y4m.layout == Layout::k422) {
      for (int k = 0; k < 4 * cw; ++k) {
        std::uint32_t word;
        std::memcpy(&word, row + 4 * (k / 3), 4);
        const std::uint16_t v = std::uint16_t((word >> (10 * (k % 3))) & 0x3FFu);
        const int pair = k / 4, slot = k % 4;
        if (slot == 0) SetSample(cb, std::size_t(y) * cw + pair, 2, v);
        if (slot == 2) SetSample(cr, std::size_t(y) * cw + pair, 2, v);
        const int x = 2 * pair + (slot == 3 ? 1 : 0);
        if ((slot == 1 || slot == 3) && x < w) SetSample(luma, std::size_t(y) * w + x, 2, v);
      }
    } else {
      for (int x = 0; x < w; ++x) {
        const std::size_t i = std::size_t(y) * w + x;
        if (sb == 1) {
          luma[i] = row[4 * x + 2];
          if (!mono) {
            cb[i] = row[4 * x + 1];
            cr[i] = row[4 * x];
          }
        } else {
          float in[4];
          std::memcpy(in, row + 16 * x, 16);
          SetSample(luma, i, 2, Code10(in[2], 876.0f, 64.0f));
          if (!mono) {
            SetSample(cb, i, 2, Code10(in[1], 896.0f, 512.0f));
            SetSample(cr, i, 2, Code10(in[0], 896.0f, 512.0f));
          }
        }
      }
    }
  }
  return planes;
}

class Y4mWriter : public Writer {
 public:
  Y4mWriter(File file, std::string path, Y4mLayout layout)
      : file_(std::move(file)), path_(std::move(path)), layout_(std::move(layout)) {}
  LM::PixelFormat Format(bool) const override { return layout_.Format(); }
  bool Write(const HostImage& image, std::string* error) override {
    if (!started_) {
      started_ = true;
      if (std::fputs((layout_.headerLine + "\n").c_str(), file_.get()) < 0) return Failed(error);
    }
    const std::vector<std::uint8_t> planes = FromHost(layout_, image);
    if (std::fputs("FRAME\n", file_.get()) < 0 ||
        std::fwrite(planes.data(), 1, planes.size(), file_.get()) != planes.size() ||
        std::fflush(file_.get()) != 0) {
      return Failed(error);
    }
    return true;
  }

 private:
  bool Failed(std::string* error) {
    *error = path_ + ": write failed: " + std::strerror(errno);
    return false;
  }
  File file_;
  std::string path_;
  Y4mLayout layout_;
  bool started_ = false;
};

class Y4mReader : public Reader {
 public:
  Y4mReader(File file, std::string path, Y4mLayout layout)
      : file_(std::move(file)), path_(std::move(path)), layout_(std::move(layout)) {}
  int Width() const override { return layout_.width; }
  int Height() const override { return layout_.height; }
  bool HasAlpha() const override { return false; }
  bool IsStream() const override { return true; }
  bool IsDeep() const override { return false; }
  bool Next(HostImage* image, std::string* error) override {
    const std::string where = path_ + ": frame " + std::to_string(frame_ + 1) + ": ";
    std::string line;
    int c;
    while ((c = std::fgetc(file_.get())) != EOF && c != '\n' && line.size() < 1024) line.push_back(char(c));
    if (c == EOF && line.empty()) return false;  // the end of the stream
    if (line.compare(0, 5, "FRAME") != 0 || c != '\n') {
      *error = where + "expected a FRAME header";
      return false;
    }
    std::vector<std::uint8_t> planes(layout_.FrameBytes());
    if (std::fread(planes.data(), 1, planes.size(), file_.get()) != planes.size()) {
      *error = where + "truncated (" + std::to_string(planes.size()) + " bytes expected)";
      return false;
    }
    ++frame_;
    *image = ToHost(layout_, planes);
    return true;
  }
  std::unique_ptr<Writer> MakeWriter(const std::string& path, bool, bool, std::string* error) const override {
    File file(path == "-" ? stdout : std::fopen(path.c_str(), "wb"));
    if (!file) {
      *error = path + ": cannot create: " + std::strerror(errno);
      return nullptr;
    }
    return std::make_unique<Y4mWriter>(std::move(file), path, layout_);
  }

 private:
  File file_;
  std::string path_;
  Y4mLayout layout_;
  int frame_ = 0;
};

// ---- Raw frames
// -----------------------------------------------------------------------------------------------

class RawWriter : public Writer {
 public:
  RawWriter(File file, std::string path, LM::PixelFormat format)
      : file_(std::move(file)), path_(std::move(path)), format_(format) {}
  LM::PixelFormat Format(bool) const override { return format_; }
  bool Write(const HostImage& image, std::string* error) override {
    if (std::fwrite(image.bytes.data(), 1, image.bytes.size(), file_.get()) != image.bytes.size() ||
        std::fflush(file_.get()) != 0) {
      *error = path_ + ": write failed: " + std::strerror(errno);
      return false;
    }
    return true;
  }

 private:
  File file_;
  std::string path_;
  LM::PixelFormat format_;
};

class RawReader : public Reader {
 public:
  RawReader(File file, std::string path, LM::PixelFormat format, int width, int height)
      : file_(std::move(file)), path_(std::move(path)), format_(format), width_(width), height_(height) {}
  int Width() const override { return width_; }
  int Height() const override { return height_; }
  bool HasAlpha() const override { return false; }
  bool IsStream() const override { return true; }
  bool IsDeep() const override { return false; }
  bool Next(HostImage* image, std::string* error) override {
    HostImage next;
    next.format = format_;
    next.width = width_;
    next.height = height_;
    next.bytes.resize(zmt::PixelFormatSize(format_, width_, height_));
    const std::size_t got = std::fread(next.bytes.data(), 1, next.bytes.size(), file_.get());
    if (got == 0 && std::feof(file_.get())) return false;
    if (got != next.bytes.size()) {
      *error = path_ + ": frame " + std::to_string(frame_ + 1) + ": truncated (" +
               std::to_string(next.bytes.size()) + " bytes expected)";
      return false;
    }
    ++frame_;
    *image = std::move(next);
    return true;
  }
  std::unique_ptr<Writer> MakeWriter(const std::string& path, bool, bool, std::string* error) const override {
    return MakeRawWriter(path, format_, error);
  }

 private:
  File file_;
  std::string path_;
  LM::PixelFormat format_;
  int width_, height_;
  int frame_ = 0;
};

}  // namespace

std::unique_ptr<Writer> MakeRawWriter(const std::string& path, LM::PixelFormat format, std::string* error) {
  File file(path == "-" ? stdout : std::fopen(path.c_str(), "wb"));
  if (!file) {
    *error = path + ": cannot create: " + std::strerror(errno);
    return nullptr;
  }
  return std::make_unique<RawWriter>(std::move(file), path, format);
}

std::unique_ptr<Reader> Reader::OpenRaw(const std::string& path, LM::PixelFormat format, int width,
                                        int height, std::string* error) {
  File file(OpenInput(path));
  if (!file) {
    *error = path + ": cannot open: " + std::strerror(errno);
    return nullptr;
  }
  if (zmt::PixelFormatSize(format, width, height) == 0) {
    *error = path + ": frames of this format and size cannot be sized";
    return nullptr;
  }
  return std::make_unique<RawReader>(std::move(file), path, format, width, height);
}

std::unique_ptr<Reader> Reader::Open(const std::string& path, std::string* error) {
  File file(OpenInput(path));
  if (!file) {
    *error = path + ": cannot open: " + std::strerror(errno);
    return nullptr;
  }
  unsigned char start[9] = {};
  const std::size_t got = std::fread(start, 1, 8, file.get());
  static const unsigned char kPng[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  if (got == 8 && std::memcmp(start, kPng, 8) == 0) {
    Picture picture;
    if (!ReadPngAfterSignature(file.get(), path, &picture, error)) return nullptr;
    return std::make_unique<PngReader>(std::move(picture));
  }
  if (got == 8 && std::memcmp(start, "YUV4MPEG", 8) == 0 && std::fgetc(file.get()) == '2') {
    std::string line = "YUV4MPEG2";
    int c;
    while ((c = std::fgetc(file.get())) != EOF && c != '\n' && line.size() < 1024) line.push_back(char(c));
    if (c != '\n') {
      *error = path + ": the Y4M header does not end";
      return nullptr;
    }
    Y4mLayout layout;
    layout.headerLine = line;
    const std::string problem = ParseHeader(line, &layout);
    if (!problem.empty()) {
      *error = path + ": " + problem;
      return nullptr;
    }
    return std::make_unique<Y4mReader>(std::move(file), path, layout);
  }
  *error = path + ": neither a PNG file nor a Y4M stream";
  return nullptr;
}

}  // namespace lumora
