// Fills and copies, byte for byte on every device: the rectangle gets exactly the colour (16f rounded to
// nearest even), copies move exactly their extent bit for bit, and every other byte of the buffers stays as
// it was.
#include <cmath>
#include <cstring>
#include <random>

#include "EveryDevice.h"
#include "Half.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "zelmediatypes/PixelFormats.h"

namespace {

const LM::PixelFormat kFormats[] = {LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRX_4444_16f,
                                    LM::kPixelFormat_GPU_BGRA_4444_32f, LM::kPixelFormat_GPU_BGRX_4444_32f};

bool IsHalf(LM::PixelFormat format) {
  return format == LM::kPixelFormat_GPU_BGRA_4444_16f || format == LM::kPixelFormat_GPU_BGRX_4444_16f;
}
int PixelSize(LM::PixelFormat format) {
  return IsHalf(format) ? 8 : 16;
}
const char* Precision(LM::PixelFormat format) {
  return IsHalf(format) ? "16f" : "32f";
}

// The bytes of one pixel of `color` in `format`.
Bytes PixelOf(LM::PixelFormat format, const LM::float4& color) {
  const float channels[4] = {color.x, color.y, color.z, color.w};
  Bytes bytes(PixelSize(format));
  for (int c = 0; c < 4; ++c) {
    if (IsHalf(format)) {
      const std::uint16_t half = ToHalf(channels[c]);
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
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

// Copies width × size bytes of each of `rows` rows from src to dst.
void CopyRows(Bytes& dst, std::size_t dstAt, int dstRowBytes, const Bytes& src, std::size_t srcAt,
              int srcRowBytes, int rows, int width, int size) {
  for (int y = 0; y < rows; ++y) {
    std::memcpy(&dst[dstAt + static_cast<std::size_t>(y) * dstRowBytes],
                &src[srcAt + static_cast<std::size_t>(y) * srcRowBytes],
                static_cast<std::size_t>(width) * size);
  }
}

class ImageOperations : public EveryDevice {};

// The second colour holds the cases a store rounding other than to nearest even gets wrong: halfway values,
// one of them subnormal, and the halfway value above the largest half, which rounds to infinity.
TEST_P(ImageOperations, AFillWritesExactlyTheColourIntoExactlyTheRectangle) {
  const LM::float4 colors[] = {
      {0.1f, -2.5f, 1.0f / 3.0f, 65504.0f},
      {1.0f + std::ldexp(1.0f, -11), 1.0f + 3 * std::ldexp(1.0f, -11), -3 * std::ldexp(1.0f, -25), 65520.0f}};
  const struct {
    int width, height, left, top, padding;
  } shapes[] = {{1, 1, 0, 0, 0}, {17, 16, 3, 2, 5}, {333, 47, 1, 4, 7}};
  for (LM::PixelFormat format : kFormats) {
    const int size = PixelSize(format);
    for (const LM::float4& color : colors) {
      for (const auto& shape : shapes) {
        const int rowBytes = (shape.left + shape.width + shape.padding) * size;
        const std::size_t bytes = static_cast<std::size_t>(rowBytes) * (shape.top + shape.height + 2);
        Bytes expected = Pattern(bytes, 1);
        void* buffer = Upload(expected);
        ASSERT_EQ(LM::FillWithColor(device_, buffer, rowBytes, format, shape.left, shape.top, shape.width,
                                    shape.height, color),
                  LM::kResultSuccess);
        const Bytes pixel = PixelOf(format, color);
        for (int y = shape.top; y < shape.top + shape.height; ++y) {
          for (int x = shape.left; x < shape.left + shape.width; ++x) {
            std::memcpy(&expected[static_cast<std::size_t>(y) * rowBytes + x * size], pixel.data(), size);
          }
        }
        ASSERT_EQ(Download(buffer, bytes), expected)
            << shape.width << "x" << shape.height << " pitch " << rowBytes << " " << Precision(format);
      }
    }
  }
}

TEST_P(ImageOperations, TheFixedColoursOfTheWrappers) {
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
      EXPECT_EQ(Download(buffer, expected.size()), expected) << Precision(format);
    }
  }
}

// NaN payloads, infinities and -0 included: the copies move bits, not values.
TEST_P(ImageOperations, ACopyMovesExactlyItsExtentBitForBit) {
  for (LM::PixelFormat format : kFormats) {
    const int size = PixelSize(format);
    const int width = 37, height = 19;
    const int srcRowBytes = (width + 3) * size, dstRowBytes = (width + 9) * size;
    const Bytes source = Pattern(static_cast<std::size_t>(srcRowBytes) * height, 3);
    Bytes expected = Pattern(static_cast<std::size_t>(dstRowBytes) * (height + 1), 4);
    void* src = Upload(source);
    void* dst = Upload(expected);
    ASSERT_EQ(LM::FastDeviceMemcpy2D(device_, src, srcRowBytes, dst, dstRowBytes, format, width, height),
              LM::kResultSuccess);
    CopyRows(expected, 0, dstRowBytes, source, 0, srcRowBytes, height, width, size);
    ASSERT_EQ(Download(dst, expected.size()), expected) << Precision(format);
  }
}

// Offsets count units of 16 bytes for every format, so byte offsets that are multiples of 16 land where
// they were meant; formats other than the GPU formats move exactly their own bytes a row.
TEST_P(ImageOperations, CopiesMoveTheBytesOfTheirRowsFromAndToTheByteOffsetsGiven) {
  const struct {
    LM::PixelFormat format;
    int rowBytes;  // of 5 pixels
  } cases[] = {{LM::kPixelFormat_GPU_BGRA_4444_16f, 40},
               {LM::kPixelFormat_GPU_BGRA_4444_32f, 80},
               {zelmediatypes::kPixelFormat_BGRA_4444_8u, 20},
               {zelmediatypes::kPixelFormat_UYVY_422_8u, 12},
               {zelmediatypes::kPixelFormat_V210_422_10u, 128}};
  for (const auto& c : cases) {
    const int height = 3, pitch = c.rowBytes + 80;
    const Bytes source = Pattern(static_cast<std::size_t>(pitch) * (height + 1), 5);
    Bytes expected = Pattern(static_cast<std::size_t>(pitch) * (height + 1), 6);
    void* src = Upload(source);
    void* dst = Upload(expected);
    ASSERT_EQ(LM::FastDeviceMemcpy2DWithOffsets(device_, src, pitch, 32, dst, pitch, 48, c.format, 5, height),
              LM::kResultSuccess);
    CopyRows(expected, 48, pitch, source, 32, pitch, height, c.rowBytes, 1);
    ASSERT_EQ(Download(dst, expected.size()), expected) << c.rowBytes;
  }
}

TEST_P(ImageOperations, ARectangleGoesFromItsPlaceToAnother) {
  for (LM::PixelFormat format : {LM::kPixelFormat_GPU_BGRX_4444_16f, LM::kPixelFormat_GPU_BGRX_4444_32f,
                                 zelmediatypes::kPixelFormat_BGRA_4444_8u}) {
    const int size = format == zelmediatypes::kPixelFormat_BGRA_4444_8u ? 4 : PixelSize(format);
    const int srcRowBytes = 20 * size, dstRowBytes = 24 * size;
    const Bytes source = Pattern(static_cast<std::size_t>(srcRowBytes) * 20, 7);
    Bytes expected = Pattern(static_cast<std::size_t>(dstRowBytes) * 22, 8);
    void* src = Upload(source);
    void* dst = Upload(expected);
    ASSERT_EQ(LM::DeviceCopyRect(device_, src, srcRowBytes, dst, dstRowBytes, format, 3, 4, 6, 1, 11, 13),
              LM::kResultSuccess);
    CopyRows(expected, static_cast<std::size_t>(dstRowBytes) + 6 * size, dstRowBytes, source,
             static_cast<std::size_t>(4) * srcRowBytes + 3 * size, srcRowBytes, 13, 11, size);
    ASSERT_EQ(Download(dst, expected.size()), expected) << size;
  }
}

LM_ON_EVERY_DEVICE(ImageOperations);

}  // namespace
