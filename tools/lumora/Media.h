// The files the lumora program reads and writes, as sequences of host images: a PNG file is one image, a Y4M
// stream one image a frame. Which one a file is, its content says (a PNG signature, or "YUV4MPEG2").
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "Frames.h"

namespace lumora {

class Writer {
 public:
  virtual ~Writer() = default;
  // The host format in which results are read back for this file: for PNG with straight alpha, or with
  // `colourAsItIs` (a result that already holds straight colour) premultiplied, whose colour passes
  // unchanged.
  virtual LM::PixelFormat Format(bool colourAsItIs) const = 0;
  // Writes one image of Format(); false with one line in *error.
  virtual bool Write(const HostImage& image, std::string* error) = 0;
};

class Reader {
 public:
  virtual ~Reader() = default;
  // Opens `path` ("-" for standard input); null with one line in *error.
  static std::unique_ptr<Reader> Open(const std::string& path, std::string* error);
  // Opens `path` as raw frames of `format` and width x height pixels, one after another.
  static std::unique_ptr<Reader> OpenRaw(const std::string& path, LM::PixelFormat format, int width,
                                         int height, std::string* error);

  virtual int Width() const = 0;
  virtual int Height() const = 0;
  // Whether the images have an alpha channel, and whether they come as a stream of frames (Y4M).
  virtual bool HasAlpha() const = 0;
  virtual bool IsStream() const = 0;
  // The next image; false at the end (*error empty) or for a damaged file (*error says where).
  virtual bool Next(HostImage* image, std::string* error) = 0;
  // A writer of results of this file's kind and layout to `path` ("-" for standard output); `alpha` and
  // `deep` (16 bits) apply to PNG. Null with one line in *error.
  virtual std::unique_ptr<Writer> MakeWriter(const std::string& path, bool alpha, bool deep,
                                             std::string* error) const = 0;
  // Whether images have 16-bit samples (PNG).
  virtual bool IsDeep() const = 0;
};

// A writer of raw frames of `format` to `path` ("-" for standard output), one after another; null with one
// line in *error.
std::unique_ptr<Writer> MakeRawWriter(const std::string& path, LM::PixelFormat format, std::string* error);

}  // namespace lumora
