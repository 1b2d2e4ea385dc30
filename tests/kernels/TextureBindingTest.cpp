// A texture bound through the library on OpenCL samples exactly the data it was bound to: BindTexture
// makes the image and fills it with CopyBufferToImage from inside a larger buffer, and the probe kernel,
// launched through the library's operation frame, reads it back.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "ImageProcessing/OperationFrame.h"
#include "Lumora/Textures.h"
#include "StartedOpenCLDevice.h"

namespace {

struct SampleTextureKernel : LM::Kernel<SampleTextureKernel, LM::DevicePointer, int, int, int, int, LM::ImageObject> {
  static constexpr const char* kModuleKey = "TextureProbe";
  static constexpr const char* kName = "SampleTextureKernel";
};

class TextureBinding : public StartedOpenCLDevice {};

TEST_F(TextureBinding, ABoundTextureSamplesTheDataItWasBoundTo) {
  for (LM::PixelFormat format : {LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRA_4444_32f}) {
    const int size = LM::BytesPerPixel(format);
    const int width = 21, height = 9, rowBytes = 32 * size, offsetRows = 2, offsetPixels = 3;
    std::vector<unsigned char> source(static_cast<std::size_t>(rowBytes) * (height + offsetRows + 1));
    std::mt19937 random(11);
    // Finite values only: a texture read returns NaNs canonically, not bit for bit.
    for (std::size_t i = 0; i < source.size(); i += 2) {
      const unsigned short half = ToHalf(std::uniform_real_distribution<float>(-4.0f, 4.0f)(random));
      if (size == 8) {
        std::memcpy(&source[i], &half, 2);
      } else if (i % 4 == 0) {
        const float value = std::uniform_real_distribution<float>(-4.0f, 4.0f)(random);
        std::memcpy(&source[i], &value, 4);
      }
    }
    void* base = Upload(source);
    const std::size_t start = static_cast<std::size_t>(offsetRows) * rowBytes + offsetPixels * size;
    const void* data = static_cast<const char*>(base) + start;

    LM::Texture texture = LM::LoadTexture(device_, "TextureProbe", "inProbeTexture", CU_TR_ADDRESS_MODE_CLAMP,
                                          CU_TR_FILTER_MODE_POINT, format);
    EXPECT_EQ(texture.textureReference, nullptr) << "OpenCL has no texture references";
    ASSERT_EQ(LM::BindTexture(device_, texture, base, data, rowBytes, width, height, format), LM::kResultSuccess);
    ASSERT_NE(texture.image, nullptr);

    std::vector<unsigned char> sampled(static_cast<std::size_t>(width) * height * size, 0);
    void* destination = Upload(sampled);
    ASSERT_EQ(SampleTextureKernel::Run(device_, width, height, LM::DevicePointer{destination}, width,
                                       format == LM::kPixelFormat_GPU_BGRA_4444_32f ? 1 : 0, width, height,
                                       LM::ImageObject{texture.image}),
              LM::kResultSuccess);
    sampled = Download(destination, sampled.size());
    for (int y = 0; y < height; ++y) {
      ASSERT_EQ(std::memcmp(&sampled[static_cast<std::size_t>(y) * width * size], &source[start + static_cast<std::size_t>(y) * rowBytes],
                            static_cast<std::size_t>(width) * size),
                0)
          << "row " << y << (size == 8 ? " 16f" : " 32f");
    }
  }
}

}  // namespace
