// PNG files as the lumora program reads and writes them: 8 or 16 bits a sample, RGB or RGBA. Palette and
// grey images are expanded to RGB on reading, a transparency chunk to an alpha channel.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace lumora {

// Rows top to bottom without padding, samples R, G, B (and A) interleaved; 16-bit samples in the machine's
// byte order.
struct Picture {
  int width = 0;
  int height = 0;
  int channels = 4;  // 3 or 4
  int depth = 8;     // 8 or 16
  std::vector<std::uint8_t> bytes;

  std::size_t SampleBytes() const { return depth == 16 ? 2 : 1; }
  std::size_t RowBytes() const { return std::size_t(width) * channels * SampleBytes(); }
};

// Reads `path` ("-" for standard input). On failure returns false with one line in *error.
bool ReadPng(const std::string& path, Picture* picture, std::string* error);
// Reads a PNG whose 8-byte signature has been read from `file` already; `name` names it in *error.
bool ReadPngAfterSignature(std::FILE* file, const std::string& name, Picture* picture, std::string* error);
// Writes `picture` to `path` ("-" for standard output). On failure returns false with one line in *error.
bool WritePng(const std::string& path, const Picture& picture, std::string* error);

}  // namespace lumora
