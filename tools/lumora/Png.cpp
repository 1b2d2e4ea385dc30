// PNG reading and writing through libpng's classic interface, which keeps 16-bit samples as they are stored
// (the simplified interface would turn them into linear light). libpng reports errors by longjmp: every
// object with a destructor is made before setjmp, so the jump skips none.
#include "Png.h"

#include <png.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace lumora {

namespace {

struct ErrorState {
  char message[256] = "";
};

void OnError(png_structp png, png_const_charp message) {
  auto* state = static_cast<ErrorState*>(png_get_error_ptr(png));
  std::snprintf(state->message, sizeof state->message, "%s", message);
  png_longjmp(png, 1);
}
void OnWarning(png_structp, png_const_charp) {}

struct File {
  std::FILE* file = nullptr;
  bool owned = false;
  ~File() {
    if (owned && file != nullptr) std::fclose(file);
  }
};

}  // namespace

bool ReadPng(const std::string& path, Picture* picture, std::string* error) {
  File in;
  in.file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  in.owned = path != "-";
  if (in.file == nullptr) {
    *error = path + ": cannot open: " + std::strerror(errno);
    return false;
  }
  unsigned char signature[8];
  if (std::fread(signature, 1, 8, in.file) != 8 || png_sig_cmp(signature, 0, 8) != 0) {
    *error = path + ": not a PNG file";
    return false;
  }
  return ReadPngAfterSignature(in.file, path, picture, error);
}

bool ReadPngAfterSignature(std::FILE* file, const std::string& path, Picture* picture, std::string* error) {
  ErrorState state;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &state, OnError, OnWarning);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  std::vector<png_bytep> rows;
  Picture result;
  if (png == nullptr || info == nullptr) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = path + ": out of memory";
    return false;
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = path + ": damaged or truncated PNG (" + state.message + ")";
    return false;
  }
  png_init_io(png, file);
  png_set_sig_bytes(png, 8);
  png_read_info(png, info);
  const int type = png_get_color_type(png, info);
  if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (type == PNG_COLOR_TYPE_GRAY && png_get_bit_depth(png, info) < 8) png_set_expand_gray_1_2_4_to_8(png);
  if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
  if (type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
  if (png_get_bit_depth(png, info) == 16) png_set_swap(png);  // little-endian machines: samples as uint16_t
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  result.width = static_cast<int>(png_get_image_width(png, info));
  result.height = static_cast<int>(png_get_image_height(png, info));
  result.channels = png_get_channels(png, info);
  result.depth = png_get_bit_depth(png, info);
  result.bytes.resize(result.RowBytes() * result.height);
  rows.resize(result.height);
  for (int y = 0; y < result.height; ++y) rows[y] = result.bytes.data() + result.RowBytes() * y;
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  *picture = std::move(result);
  return true;
}

bool WritePng(const std::string& path, const Picture& picture, std::string* error) {
  File out;
  out.file = path == "-" ? stdout : std::fopen(path.c_str(), "wb");
  out.owned = path != "-";
  if (out.file == nullptr) {
    *error = path + ": cannot create: " + std::strerror(errno);
    return false;
  }
  ErrorState state;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &state, OnError, OnWarning);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  std::vector<png_bytep> rows(picture.height);
  if (png == nullptr || info == nullptr) {
    png_destroy_write_struct(&png, &info);
    *error = path + ": out of memory";
    return false;
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    *error = path + ": " + state.message;
    return false;
  }
  png_init_io(png, out.file);
  png_set_IHDR(png, info, picture.width, picture.height, picture.depth,
               picture.channels == 4 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  if (picture.depth == 16) png_set_swap(png);
  for (int y = 0; y < picture.height; ++y) {
    rows[y] = const_cast<png_bytep>(picture.bytes.data() + picture.RowBytes() * y);
  }
  png_write_image(png, rows.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  if (std::fflush(out.file) != 0 || std::ferror(out.file)) {
    *error = path + ": write failed: " + std::strerror(errno);
    return false;
  }
  return true;
}

}  // namespace lumora
