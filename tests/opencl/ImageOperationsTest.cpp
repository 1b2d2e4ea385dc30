// Fills and copies on the real OpenCL runtime, byte for byte: the rectangle gets exactly the colour (16f
// rounded to nearest even), copies move exactly their extent bit for bit, and every other byte of the
// buffers stays as it was.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "Lumora/ImageOperations.h"
#include "StartedOpenCLDevice.h"

namespace {

using Bytes = std::vector<unsigned char>;

const LM::PixelFormat kFormats[] = {LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRX_4444_16f,
                                    LM::kPixelFormat_GPU_BGRA_4444_32f, LM::kPixelFormat_GPU_BGRX_4444_32f};

bool IsHalf(LM::PixelFormat format) {
  return format == LM::kPixelFormat_GPU_BGRA_4444_16f || format == LM::kPixelFormat_GPU_BGRX_4444_16f;
}
int PixelSize(LM::PixelFormat format) { return IsHalf(format) ? 8 : 16; }

// The bytes of one pixel of `color` in `format`.
Bytes PixelOf(LM::PixelFormat format, const LM::float4& color) {
  const float channels[4] = {color.x, color.y, color.z, color.w};
  Bytes bytes(PixelSize(format));
  for (int c = 0; c < 4; ++c) {
    if (IsHalf(format)) {
      const unsigned short half = ToHalf(channels[c]);
      std::memcpy(&bytes[c * 2], &half, 2);
    } else {
      std::memcpy(&bytes[c * 4], &channels[c], 4);
    }
  }
  return bytes;
}

Bytes Pattern(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

class ImageOperations : public StartedOpenCLDevice {};

TEST_F(ImageOperations, AFillWritesExactlyTheColourIntoExactlyTheRectangle) {
  const LM::float4 color = {0.1f, -2.5f, 1.0f / 3.0f, 65504.0f};
  const struct {
    int width, height, left, top, padding;
  } shapes[] = {{1, 1, 0, 0, 0}, {17, 16, 3, 2, 5}, {333, 47, 1, 4, 7}};
  for (LM::PixelFormat format : kFormats) {
    const int size = PixelSize(format);
    for (const auto& shape : shapes) {
      const int rowBytes = (shape.left + shape.width + shape.padding) * size;
      const std::size_t bytes = static_cast<std::size_t>(rowBytes) * (shape.top + shape.height + 2);
      Bytes expected = Pattern(bytes, 1);
      void* buffer = Upload(expected);
      ASSERT_EQ(LM::FillWithColor(device_, buffer, rowBytes, format, shape.left, shape.top, shape.width, shape.height,
                                  color),
                LM::kResultSuccess);
      const Bytes pixel = PixelOf(format, color);
      for (int y = shape.top; y < shape.top + shape.height; ++y) {
        for (int x = shape.left; x < shape.left + shape.width; ++x) {
          std::memcpy(&expected[static_cast<std::size_t>(y) * rowBytes + x * size], pixel.data(), size);
        }
      }
      ASSERT_EQ(Download(buffer, bytes), expected) << shape.width << "x" << shape.height << " pitch " << rowBytes
                                                   << (IsHalf(format) ? " 16f" : " 32f");
    }
  }
}

TEST_F(ImageOperations, TheFixedColoursOfTheWrappers) {
  const struct {
    int (*fill)(const boost::shared_ptr<LM::Device>&, const void*, int, LM::PixelFormat, int, int, int, int);
    LM::float4 color;
  } wrappers[] = {{LM::FillWithOpaqueBlack, {0, 0, 0, 1}},
                  {LM::FillWithTransparentBlack, {0, 0, 0, 0}},
                  {LM::FillWithOpaqueWhite, {1, 1, 1, 1}},
                  {LM::FillWithTransparentWhite, {1, 1, 1, 0}}};
  for (LM::PixelFormat format : {LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRX_4444_32f}) {
    for (const auto& wrapper : wrappers) {
      void* buffer = Upload(Pattern(PixelSize(format) * 4, 2));
      ASSERT_EQ(wrapper.fill(device_, buffer, PixelSize(format) * 2, format, 0, 0, 2, 2), LM::kResultSuccess);
      const Bytes pixel = PixelOf(format, wrapper.color);
      Bytes expected;
      for (int i = 0; i < 4; ++i) expected.insert(expected.end(), pixel.begin(), pixel.end());
      EXPECT_EQ(Download(buffer, expected.size()), expected);
    }
  }
}

TEST_F(ImageOperations, ACopyMovesExactlyItsExtentBitForBit) {
  for (LM::PixelFormat format : kFormats) {
    const int size = PixelSize(format);
    const int width = 37, height = 19;
    const int srcRowBytes = (width + 3) * size, dstRowBytes = (width + 9) * size;
    const Bytes source = Pattern(static_cast<std::size_t>(srcRowBytes) * height, 3);  // NaNs and all
    Bytes expected = Pattern(static_cast<std::size_t>(dstRowBytes) * (height + 1), 4);
    void* src = Upload(source);
    void* dst = Upload(expected);
    ASSERT_EQ(LM::FastDeviceMemcpy2D(device_, src, srcRowBytes, dst, dstRowBytes, format, width, height),
              LM::kResultSuccess);
    for (int y = 0; y < height; ++y) {
      std::memcpy(&expected[static_cast<std::size_t>(y) * dstRowBytes], &source[static_cast<std::size_t>(y) * srcRowBytes],
                  static_cast<std::size_t>(width) * size);
    }
    ASSERT_EQ(Download(dst, expected.size()), expected);
  }
}

TEST_F(ImageOperations, OffsetsCountSixteenByteUnitsAsPixelsWhateverTheFormat) {
  for (LM::PixelFormat format : {LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRA_4444_32f}) {
    const int size = PixelSize(format);
    const int width = 5, height = 3, rowBytes = 8 * size;
    const Bytes source = Pattern(static_cast<std::size_t>(rowBytes) * (height + 1), 5);
    Bytes expected = Pattern(static_cast<std::size_t>(rowBytes) * (height + 1), 6);
    void* src = Upload(source);
    void* dst = Upload(expected);
    // 32 bytes in the source and 48 in the destination: 2 and 3 pixels, for 16f as for 32f.
    ASSERT_EQ(LM::FastDeviceMemcpy2DWithOffsets(device_, src, rowBytes, 32, dst, rowBytes, 48, format, width, height),
              LM::kResultSuccess);
    for (int y = 0; y < height; ++y) {
      std::memcpy(&expected[(3 + static_cast<std::size_t>(y) * 8) * size], &source[(2 + static_cast<std::size_t>(y) * 8) * size],
                  static_cast<std::size_t>(width) * size);
    }
    ASSERT_EQ(Download(dst, expected.size()), expected) << (IsHalf(format) ? "16f" : "32f");
  }
}

TEST_F(ImageOperations, ARectangleGoesFromItsPlaceToAnother) {
  for (LM::PixelFormat format : {LM::kPixelFormat_GPU_BGRX_4444_16f, LM::kPixelFormat_GPU_BGRX_4444_32f}) {
    const int size = PixelSize(format);
    const int srcRowBytes = 20 * size, dstRowBytes = 24 * size;
    const Bytes source = Pattern(static_cast<std::size_t>(srcRowBytes) * 20, 7);
    Bytes expected = Pattern(static_cast<std::size_t>(dstRowBytes) * 22, 8);
    void* src = Upload(source);
    void* dst = Upload(expected);
    ASSERT_EQ(LM::DeviceCopyRect(device_, src, srcRowBytes, dst, dstRowBytes, format, 3, 4, 6, 1, 11, 13),
              LM::kResultSuccess);
    for (int y = 0; y < 13; ++y) {
      std::memcpy(&expected[static_cast<std::size_t>(1 + y) * dstRowBytes + 6 * size],
                  &source[static_cast<std::size_t>(4 + y) * srcRowBytes + 3 * size], static_cast<std::size_t>(11) * size);
    }
    ASSERT_EQ(Download(dst, expected.size()), expected);
  }
}

}  // namespace
