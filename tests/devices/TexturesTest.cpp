// Texture sampling on every device, through the test-only TextureProbe module launched by the library's own
// operation frame: the data it samples is exactly the data bound, whatever its offset and pitch. (The pixel
// loads, arithmetic and stores of the dialect, and the families' variants, are those of every operation.)
#include <random>

#include "EveryDevice.h"
#include "Lumora/Results.h"
#include "Lumora/Textures.h"
#include "ProbeKernels.h"

namespace {

class Textures : public EveryDevice {};

// The data starts inside its block, so on CUDA the texture is bound at an aligned address below it and the
// kernel adds the offset, in texels. Pitches that are not a multiple of the texture pitch alignment go
// through AlignPlaneForTexture's copy on CUDA; OpenCL images take any pitch.
TEST_P(Textures, ABoundTextureSamplesExactlyTheDataItWasBoundTo) {
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

LM_ON_EVERY_DEVICE(Textures);

}  // namespace
