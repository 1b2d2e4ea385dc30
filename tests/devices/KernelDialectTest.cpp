// The kernel dialect and the kernel families on every device, through the test-only modules launched by
// the library's own operation frame: texture sampling with its offset and pitch rules; the pixel loads,
// float4 arithmetic and stores; a family launching the variant it is asked for.
#include <random>

#include "EveryDevice.h"
#include "Lumora/Results.h"
#include "Lumora/Textures.h"
#include "ProbeKernels.h"

namespace {

class KernelDialect : public EveryDevice {};

// Channel values as a format stores them: four floats a pixel, or four halves.
Bytes ChannelBytes(const std::vector<float>& values, bool is32f) {
  std::vector<Pixel> pixels;
  for (std::size_t i = 0; i + 3 < values.size(); i += 4)
    pixels.push_back({values[i], values[i + 1], values[i + 2], values[i + 3]});
  return GPUBytes(pixels, is32f ? LM::kPixelFormat_GPU_BGRA_4444_32f : LM::kPixelFormat_GPU_BGRA_4444_16f);
}

// The data starts inside its block, so on CUDA the texture is bound at an aligned address below it and the
// kernel adds the offset, in texels. Pitches that are not a multiple of the texture pitch alignment go
// through AlignPlaneForTexture's copy on CUDA; OpenCL images take any pitch.
TEST_P(KernelDialect, ABoundTextureSamplesExactlyTheDataItWasBoundTo) {
  const struct {
    LM::PixelFormat format;
    int pitchPixels, offsetRows, offsetPixels;
  } cases[] = {{LM::kPixelFormat_GPU_BGRA_4444_16f, 32, 2, 5},  // 256-byte rows, data 40 bytes into a row
               {LM::kPixelFormat_GPU_BGRA_4444_32f, 32, 1, 3},
               {LM::kPixelFormat_GPU_BGRA_4444_16f, 23, 2, 3},  // 184-byte rows: copied on CUDA
               {LM::kPixelFormat_GPU_BGRA_4444_32f, 27, 0, 1}};
  const int width = 21, height = 9;
  // Prepared once and bound for each case, as operations use a texture: the driver refuses to set a
  // reference's format once it was bound. Half data is set up as float too, so one set-up serves both.
  LM::Texture texture = LM::LoadTexture(device_, "TextureProbe", "inProbeTexture", CU_TR_ADDRESS_MODE_CLAMP,
                                        CU_TR_FILTER_MODE_POINT, LM::kPixelFormat_GPU_BGRA_4444_32f);
  for (const auto& c : cases) {
    const int is32f = c.format == LM::kPixelFormat_GPU_BGRA_4444_32f ? 1 : 0;
    const int size = PixelBytes(c.format), rowBytes = c.pitchPixels * size;
    SCOPED_TRACE(std::to_string(rowBytes) + "-byte rows, " + (is32f ? "32f" : "16f"));
    std::mt19937 random(11);
    std::uniform_real_distribution<float> values(-4.0f, 4.0f);  // finite: textures return NaNs canonically
    std::vector<Pixel> pixels(c.pitchPixels * (height + c.offsetRows + 1));
    for (Pixel& p : pixels) p = {values(random), values(random), values(random), values(random)};
    const Bytes source = GPUBytes(pixels, c.format);
    void* base = Upload(source);
    const std::size_t start = std::size_t(c.offsetRows) * rowBytes + c.offsetPixels * size;
    LM::TexturePlane plane;
    ASSERT_EQ(
        LM::AlignPlaneForTexture(device_, base, At(base, start), rowBytes, width, height, c.format, &plane),
        LM::kResultSuccess);
    ASSERT_EQ(
        LM::BindTexture(device_, texture, plane.base, plane.data, plane.rowBytes, width, height, c.format),
        LM::kResultSuccess);
    void* sampled = Allocate(std::size_t(width) * height * size);
    ASSERT_EQ(
        sampleTextureKernel.Run(device_, width, height, {}, LM::DevicePointer{sampled}, width, is32f, width,
                                height, static_cast<int>(texture.offset), LM::ImageObject{texture.image}),
        LM::kResultSuccess);
    LM::ReleaseTexturePlane(device_, &plane, device_->GetCommandQueue()->RecordEvent());
    const Bytes result = Download(sampled, std::size_t(width) * height * size);
    for (int y = 0; y < height; ++y) {
      ASSERT_TRUE(std::equal(result.begin() + y * width * size, result.begin() + (y + 1) * width * size,
                             source.begin() + start + std::size_t(y) * rowBytes))
          << "row " << y << ", texture offset " << texture.offset;
    }
  }
}

// dst = clamp((src - offset) * gain + src * scale, -1, 2) per channel, for both precisions. The values are
// multiples of 1/8 within the clamp range, so every step is exact; the pixels past the width stay zero.
TEST_P(KernelDialect, PixelLoadsArithmeticAndStoresAreExactInBothPrecisions) {
  const int pitch = 3, width = 2, height = 2, count = 4 * pitch * height;
  const float scale = 0.5f, offset[4] = {0.25f, -0.5f, 0.0f, 1.0f}, gain[4] = {2.0f, 0.5f, -1.0f, 4.0f};
  std::vector<float> values, expected;
  for (int i = 0; i < count; ++i) {
    const float v = ((i * 5) % 33 - 16) / 8.0f;
    values.push_back(v);
    expected.push_back(i / 4 % pitch < width
                           ? std::clamp((v - offset[i % 4]) * gain[i % 4] + v * scale, -1.0f, 2.0f)
                           : 0.0f);
  }
  for (const int is32f : {0, 1}) {
    void* src = Upload(ChannelBytes(values, is32f));
    void* dst = Upload(Bytes(ChannelBytes(values, is32f).size(), 0));
    ASSERT_EQ(pixelArithmeticKernel.Run(device_, width, height, {}, LM::DevicePointer{src},
                                        LM::DevicePointer{dst}, pitch, is32f, width, height, scale,
                                        LM::float4{offset[0], offset[1], offset[2], offset[3]},
                                        LM::float4{gain[0], gain[1], gain[2], gain[3]}),
              LM::kResultSuccess);
    EXPECT_EQ(Download(dst, ChannelBytes(values, is32f).size()), ChannelBytes(expected, is32f))
        << "is32f " << is32f;
  }
}

// Each variant by its index, in list order (add, multiply, negate), on one row of blocks; 37 values are more
// than one block of either width. The completion event comes back.
TEST_P(KernelDialect, AFamilyLaunchesTheVariantItIsAskedFor) {
  const int count = 37;
  const float operand = 2.5f;
  std::vector<float> values(count);
  for (int i = 0; i < count; ++i) values[i] = i * 0.25f - 3.0f;
  for (std::size_t variant = 0; variant < 3; ++variant) {
    void* buffer = Upload(Bytes(reinterpret_cast<const std::uint8_t*>(values.data()),
                                reinterpret_cast<const std::uint8_t*>(values.data() + count)));
    boost::shared_ptr<LM::Event> done;
    ASSERT_EQ(
        familyProbe.Launch(device_, variant, count, 1, &done, {}, LM::DevicePointer{buffer}, count, operand),
        LM::kResultSuccess);
    ASSERT_TRUE(done);
    done->Wait();
    std::vector<float> expected;
    for (const float v : values)
      expected.push_back(variant == 0 ? v + operand : variant == 1 ? v * operand : -v);
    const Bytes result = Download(buffer, count * sizeof(float));
    EXPECT_EQ(Bytes(reinterpret_cast<const std::uint8_t*>(expected.data()),
                    reinterpret_cast<const std::uint8_t*>(expected.data() + count)),
              result)
        << "variant " << variant;
  }
  EXPECT_EQ(familyProbe.Launch(device_, 3, count, 1, nullptr, {}, LM::DevicePointer{nullptr}, count, operand),
            LM::kResultFailed)
      << "a variant out of range is a missing kernel";
}

LM_ON_EVERY_DEVICE(KernelDialect);

}  // namespace
