// Fills and copies, byte for byte on every device: the rectangle gets exactly the colour (16f rounded to
// nearest even), copies move exactly their extent bit for bit, and every other byte of the buffers stays as
// it was.
#include <random>

#include "EveryDevice.h"
#include "Lumora/Results.h"
#include "zelmediatypes/PixelFormats.h"

namespace {

const LM::PixelFormat kFormats[] = {LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRX_4444_16f,
                                    LM::kPixelFormat_GPU_BGRA_4444_32f, LM::kPixelFormat_GPU_BGRX_4444_32f};
using Fill = int (*)(const boost::shared_ptr<LM::Device>&, const void*, int, LM::PixelFormat, int, int, int,
                     int);

Bytes Pattern(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

// Copies `rowBytes` bytes of each of `rows` rows from src to dst, each from its byte offset and pitch.
void CopyRows(Bytes& dst, std::size_t dstAt, int dstPitch, const Bytes& src, std::size_t srcAt, int srcPitch,
              int rows, int rowBytes) {
  for (int y = 0; y < rows; ++y)
    std::memcpy(&dst[dstAt + std::size_t(y) * dstPitch], &src[srcAt + std::size_t(y) * srcPitch], rowBytes);
}

class ImageOperations : public EveryDevice {};

// The second colour holds the cases a store rounding other than to nearest even gets wrong: halfway values,
// one of them subnormal, and the halfway value above the largest half, which rounds to infinity. The
// wrappers fill their fixed colours.
TEST_P(ImageOperations, AFillWritesExactlyTheColourIntoExactlyTheRectangle) {
  const std::vector<std::pair<Fill, LM::float4>> fills = {
      {nullptr, {0.1f, -2.5f, 1.0f / 3.0f, 65504.0f}},
      {nullptr,
       {1.0f + std::ldexp(1.0f, -11), 1.0f + 3 * std::ldexp(1.0f, -11), -3 * std::ldexp(1.0f, -25),
        65520.0f}},
      {LM::FillWithOpaqueBlack, {0, 0, 0, 1}},
      {LM::FillWithTransparentBlack, {0, 0, 0, 0}},
      {LM::FillWithOpaqueWhite, {1, 1, 1, 1}},
      {LM::FillWithTransparentWhite, {1, 1, 1, 0}}};
  const struct {
    int width, height, left, top, padding;
  } shapes[] = {{1, 1, 0, 0, 0}, {17, 16, 3, 2, 5}, {333, 47, 1, 4, 7}};
  for (LM::PixelFormat format : kFormats) {
    const int size = PixelBytes(format);
    for (const auto& [fill, color] : fills) {
      for (const auto& shape : shapes) {
        if (fill != nullptr && shape.width > 17) continue;
        const int rowBytes = (shape.left + shape.width + shape.padding) * size;
        const std::size_t bytes = static_cast<std::size_t>(rowBytes) * (shape.top + shape.height + 2);
        Bytes expected = Pattern(bytes, 1);
        void* buffer = Upload(expected);
        ASSERT_EQ(fill != nullptr ? fill(device_, buffer, rowBytes, format, shape.left, shape.top,
                                         shape.width, shape.height)
                                  : LM::FillWithColor(device_, buffer, rowBytes, format, shape.left,
                                                      shape.top, shape.width, shape.height, color),
                  LM::kResultSuccess);
        const Bytes pixel = GPUBytes({color}, format);
        for (int y = shape.top; y < shape.top + shape.height; ++y) {
          for (int x = shape.left; x < shape.left + shape.width; ++x)
            std::copy(pixel.begin(), pixel.end(), expected.begin() + std::size_t(y) * rowBytes + x * size);
        }
        ASSERT_EQ(Download(buffer, bytes), expected) << shape.width << "x" << shape.height << " pitch "
                                                     << rowBytes << ", colour " << color.x << " " << color.w;
      }
    }
  }
}

// Bit for bit, NaN payloads, infinities and -0 included: the copies move bits, not values. Whole rows between
// pitches; offsets count units of 16 bytes for every format, so byte offsets that are multiples of 16 land
// where they were meant, and formats other than the GPU formats move exactly their own bytes a row; a
// rectangle goes from its place to another.
TEST_P(ImageOperations, CopiesMoveExactlyTheirBytes) {
  for (LM::PixelFormat format : kFormats) {
    const int size = PixelBytes(format), width = 37, height = 19, srcPitch = (width + 3) * size,
              dstPitch = (width + 9) * size;
    const Bytes source = Pattern(std::size_t(srcPitch) * height, 3);
    Bytes expected = Pattern(std::size_t(dstPitch) * (height + 1), 4);
    void* dst = Upload(expected);
    ASSERT_EQ(LM::FastDeviceMemcpy2D(device_, Upload(source), srcPitch, dst, dstPitch, format, width, height),
              LM::kResultSuccess);
    CopyRows(expected, 0, dstPitch, source, 0, srcPitch, height, width * size);
    ASSERT_EQ(Download(dst, expected.size()), expected) << "whole rows, " << size << "-byte pixels";
  }
  const struct {
    LM::PixelFormat format;
    int rowBytes;  // of 5 pixels
  } offsets[] = {{LM::kPixelFormat_GPU_BGRA_4444_16f, 40},
                 {LM::kPixelFormat_GPU_BGRA_4444_32f, 80},
                 {zelmediatypes::kPixelFormat_BGRA_4444_8u, 20},
                 {zelmediatypes::kPixelFormat_UYVY_422_8u, 12},
                 {zelmediatypes::kPixelFormat_V210_422_10u, 128}};
  for (const auto& c : offsets) {
    const int height = 3, pitch = c.rowBytes + 80;
    const Bytes source = Pattern(std::size_t(pitch) * (height + 1), 5);
    Bytes expected = Pattern(std::size_t(pitch) * (height + 1), 6);
    void* dst = Upload(expected);
    ASSERT_EQ(LM::FastDeviceMemcpy2DWithOffsets(device_, Upload(source), pitch, 32, dst, pitch, 48, c.format,
                                                5, height),
              LM::kResultSuccess);
    CopyRows(expected, 48, pitch, source, 32, pitch, height, c.rowBytes);
    ASSERT_EQ(Download(dst, expected.size()), expected) << "offsets, rows of " << c.rowBytes;
  }
  for (const int size : {8, 16, 4}) {
    const LM::PixelFormat format = size == 8    ? LM::kPixelFormat_GPU_BGRX_4444_16f
                                   : size == 16 ? LM::kPixelFormat_GPU_BGRX_4444_32f
                                                : zelmediatypes::kPixelFormat_BGRA_4444_8u;
    const int srcPitch = 20 * size, dstPitch = 24 * size;
    const Bytes source = Pattern(std::size_t(srcPitch) * 20, 7);
    Bytes expected = Pattern(std::size_t(dstPitch) * 22, 8);
    void* dst = Upload(expected);
    ASSERT_EQ(
        LM::DeviceCopyRect(device_, Upload(source), srcPitch, dst, dstPitch, format, 3, 4, 6, 1, 11, 13),
        LM::kResultSuccess);
    CopyRows(expected, std::size_t(dstPitch) + 6 * size, dstPitch, source,
             std::size_t(4) * srcPitch + 3 * size, srcPitch, 13, 11 * size);
    ASSERT_EQ(Download(dst, expected.size()), expected) << "a rectangle of " << size << "-byte pixels";
  }
}

LM_ON_EVERY_DEVICE(ImageOperations);

}  // namespace
