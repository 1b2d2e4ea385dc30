// The operation frame on the CUDA path, observed through the fake driver loaded with the modules the build
// made: launch geometry, where each parameter lands, the pitch and flag conversions, the kernel cache, and
// the texture binding arithmetic and pitch rule.
#include <gtest/gtest.h>
#include <zelcore/Debug.h>
#include <zelcore/Trace.h>
#include <zelmediatypes/PixelFormats.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "BuiltPtx.h"
#include "ExecutableFolder.h"
#include "FakeDriverBinding.h"
#include "ImageProcessing/KernelFamily.h"
#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "Lumora/Textures.h"
#include "ProbeKernels.h"

namespace {

class CUDAOperations : public testing::Test {
 protected:
  void SetUp() override {
    if (BuiltPtx("Memory").empty()) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built";
    zelcore::debug::SetAssertionOutputQuiet(true);
    fake_ = BindFakeDriver();
    if (withFills_) folder_.Write("PTX/Fills_NVIDIA.ptx", BuiltPtx("Fills"));
    std::string memory = BuiltPtx("Memory");
    if (!withFills_) memory.replace(memory.find(".entry CopyRectKernel("), 22, ".entry CopyRectKernelX(");
    folder_.Write("PTX/Memory_NVIDIA.ptx", memory);
    folder_.Write("PTX/TextureProbe_NVIDIA.ptx", BuiltPtx("TextureProbe"));
    folder_.Write("PTX/FamilyProbe_NVIDIA.ptx", BuiltPtx("FamilyProbe"));
    folder_.Write("PTX/PixelFormatConvert_444_NVIDIA.ptx", BuiltPtx("PixelFormatConvert_444"));
    folder_.Write("PTX/PixelFormatConvert_420_NVIDIA.ptx", BuiltPtx("PixelFormatConvert_420"));
    for (const char* module : {"Composite", "Accumulate", "GaussianBlur", "Deinterlace"}) {
      folder_.Write(std::string("PTX/") + module + "_NVIDIA.ptx", BuiltPtx(module));
    }
    device_ = LM::Device::Create(0, 0, 0);
    device_->InitializeContext();
    access_.emplace(*device_);
    fake_->fakecuda_ClearCallLog();
  }

  FakeCUDALaunch OnlyLaunch() {
    FakeCUDALaunch launch = {};
    EXPECT_EQ(fake_->fakecuda_LaunchCount(), 1u);
    fake_->fakecuda_GetLaunch(0, &launch);
    return launch;
  }

  template <class T>
  static T At(const FakeCUDALaunch& launch, unsigned offset) {
    T value;
    std::memcpy(&value, launch.params + offset, sizeof value);
    return value;
  }

  // The module folder is read once, when the device first needs it. Without Fills, the Memory module
  // misspells CopyRectKernel.
  bool withFills_ = true;
  std::unique_ptr<FakeCUDA> fake_;
  ExecutableFolder folder_;
  boost::shared_ptr<LM::Device> device_;
  std::optional<LM::ExclusiveAccess> access_;
  char buffer_[64] = {};
};

class CUDAOperationsWithoutFills : public CUDAOperations {
 protected:
  CUDAOperationsWithoutFills() { withFills_ = false; }
};

TEST_F(CUDAOperations, AFillLaunchesWholeBlocksWithEveryParameterAtItsAlignedOffset) {
  const LM::float4 color = {0.25f, 0.5f, 0.75f, 1.0f};
  ASSERT_EQ(
      LM::FillWithColor(device_, buffer_, 4096, LM::kPixelFormat_GPU_BGRA_4444_16f, 3, 5, 17, 16, color),
      LM::kResultSuccess);
  const FakeCUDALaunch launch = OnlyLaunch();
  EXPECT_STREQ(launch.function, "FillWithColorKernel");
  EXPECT_EQ((std::vector<unsigned>{launch.gridX, launch.gridY, launch.blockX, launch.blockY, launch.blockZ}),
            (std::vector<unsigned>{2, 1, 16, 16, 1}));
  EXPECT_EQ(At<unsigned long long>(launch, 0), reinterpret_cast<std::uintptr_t>(buffer_));
  const int ints[] = {512, 0, 3, 5, 17, 16};  // pitch in 8-byte pixels, 16f flag, origin, extent
  for (int i = 0; i < 6; ++i) EXPECT_EQ(At<int>(launch, 8 + 4 * i), ints[i]) << i;
  EXPECT_EQ(std::memcmp(launch.params + 32, &color, 16), 0) << "the colour at the next 16-byte boundary";
  EXPECT_EQ(launch.paramSize, 48u);
}

TEST_F(CUDAOperations, PitchAndFlagFollowTheFormat) {
  const struct {
    LM::PixelFormat format;
    int pitch;
    int flag;
  } cases[] = {{LM::kPixelFormat_GPU_BGRX_4444_16f, 512, 0},
               {LM::kPixelFormat_GPU_BGRA_4444_32f, 256, 1},
               {LM::kPixelFormat_GPU_BGRX_4444_32f, 256, 1}};
  for (const auto& c : cases) {
    fake_->fakecuda_ClearCallLog();
    ASSERT_EQ(LM::FillWithOpaqueWhite(device_, buffer_, 4096, c.format, 0, 0, 1, 1), LM::kResultSuccess);
    const FakeCUDALaunch launch = OnlyLaunch();
    EXPECT_EQ(At<int>(launch, 8), c.pitch);
    EXPECT_EQ(At<int>(launch, 12), c.flag);
  }
}

TEST_F(CUDAOperations, EmptyExtentsAndSameBufferCopiesDoNothing) {
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, buffer_, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 0, 5), 0);
  EXPECT_EQ(
      LM::FastDeviceMemcpy2D(device_, buffer_, 64, buffer_, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 4, 4), 0);
  EXPECT_EQ(LM::FastDeviceMemcpy2DWithOffsets(device_, buffer_, 64, 16, buffer_, 64, 32,
                                              LM::kPixelFormat_GPU_BGRA_4444_16f, 4, 4),
            0);
  EXPECT_EQ(LM::DeviceCopyRect(device_, buffer_, 64, buffer_, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 2,
                               2, 1, 1),
            0);
  EXPECT_EQ(fake_->fakecuda_CallLogSize(), 0u) << "nothing reached the driver, not even a module load";
}

TEST_F(CUDAOperations, CopiesConvertPitchesByFormatAndOffsetsBySixteenBytes) {
  char other[64];
  ASSERT_EQ(LM::FastDeviceMemcpy2DWithOffsets(device_, buffer_, 1024, 32, other, 2048, 48,
                                              LM::kPixelFormat_GPU_BGRX_4444_16f, 20, 33),
            LM::kResultSuccess);
  FakeCUDALaunch launch = OnlyLaunch();
  EXPECT_STREQ(launch.function, "CopyMemory2DKernel");
  EXPECT_EQ(launch.gridX * 100 + launch.gridY, 203u);
  EXPECT_EQ(At<int>(launch, 8), 128);
  EXPECT_EQ(At<int>(launch, 12), 2) << "32 bytes are 2 units for a 16f format too";
  EXPECT_EQ(At<unsigned long long>(launch, 16), reinterpret_cast<std::uintptr_t>(other));
  const int rest[] = {256, 3, 0, 20, 33};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(At<int>(launch, 24 + 4 * i), rest[i]) << i;

  fake_->fakecuda_ClearCallLog();
  ASSERT_EQ(LM::DeviceCopyRect(device_, buffer_, 1024, other, 1024, LM::kPixelFormat_GPU_BGRA_4444_32f, 1, 2,
                               3, 4, 5, 6),
            LM::kResultSuccess);
  launch = OnlyLaunch();
  EXPECT_EQ(At<int>(launch, 8), 64);
  const int expected[] = {64, 1, 1, 2, 3, 4, 5, 6};  // pitch, flag, rectangles, extent
  for (int i = 0; i < 8; ++i) EXPECT_EQ(At<int>(launch, 24 + 4 * i), expected[i]) << i;
  EXPECT_EQ(launch.paramSize, 56u);

  EXPECT_EQ(LM::CopyBufferToImage(device_, buffer_, 0, 64, other, LM::kPixelFormat_GPU_BGRA_4444_32f, 4, 4),
            LM::kResultFailed)
      << "there is no CUDA form";
}

// The driver's allocation bounds every extent, from any address inside it; an address it does not know is
// not refused. Turning the switch off skips the question.
TEST_F(CUDAOperations, ExtentsStayInsideTheAllocationThatHoldsTheirAddress) {
  char* block = static_cast<char*>(device_->GetDeviceMemory()->Allocate(512, nullptr));
  ASSERT_NE(block, nullptr);
  const LM::PixelFormat format = LM::kPixelFormat_GPU_BGRA_4444_16f;
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, block + 128, 128, format, 0, 0, 16, 3), LM::kResultSuccess);
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, block + 128, 128, format, 0, 0, 16, 4), LM::kResultFailed);
  EXPECT_EQ(LM::DeviceCopyRect(device_, block, 128, buffer_, 128, format, 0, 3, 0, 9, 16, 1),
            LM::kResultSuccess)
      << "the stack buffer is unknown to the driver";
  EXPECT_EQ(LM::DeviceCopyRect(device_, buffer_, 128, block, 128, format, 0, 0, 1, 3, 16, 1),
            LM::kResultFailed);
  EXPECT_EQ(fake_->fakecuda_LaunchCount(), 2u);

  zelcore::debug::DebugDatabase::Instance().Set("LM.CheckBufferBounds", "0");
  device_->ResetDebugFlags();
  zelcore::debug::DebugDatabase::Instance().Set("LM.CheckBufferBounds", "1");
  fake_->fakecuda_ClearCallLog();
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, block, 128, format, 0, 0, 1, 1), LM::kResultSuccess);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemGetAddressRange_v2"), 0u);
  device_->ResetDebugFlags();
  device_->GetDeviceMemory()->Release(block, {});
}

// CUDA flips by walking the source upwards: the kernel gets the last row and a negative pitch, in pixels.
TEST_F(CUDAOperations, AFlippedConversionStartsAtTheLastRowWithANegativePitch) {
  char* source = static_cast<char*>(device_->GetDeviceMemory()->Allocate(4 * 64, nullptr));
  char* target = static_cast<char*>(device_->GetDeviceMemory()->Allocate(4 * 128, nullptr));
  ASSERT_EQ(LM::PixelFormatConvert(device_, source, 64, zelmediatypes::kPixelFormat_BGRA_4444_8u, target, 128,
                                   LM::kPixelFormat_GPU_BGRA_4444_32f, 8, 4, true),
            LM::kResultSuccess);
  const FakeCUDALaunch launch = OnlyLaunch();
  EXPECT_STREQ(launch.function, "PixelFormatConvert_BGRA_4444_8u_To_BGRA_4444_32f_Kernel");
  EXPECT_EQ(At<unsigned long long>(launch, 0), reinterpret_cast<std::uintptr_t>(source + 3 * 64));
  EXPECT_EQ(At<int>(launch, 8), -16) << "64 bytes of 4-byte pixels, upwards";
  EXPECT_EQ(At<int>(launch, 24), 8) << "the destination pitch in 16-byte pixels";
  EXPECT_EQ(At<int>(launch, 40), 1) << "the flag, which the CUDA kernel leaves to the pitch";
  device_->GetDeviceMemory()->Release(source, {});
  device_->GetDeviceMemory()->Release(target, {});
}

TEST_F(CUDAOperationsWithoutFills, AMissingModuleFailsEveryCallUntilTheContextIsMadeAgain) {
  std::vector<std::string> trace;
  zelcore::trace::SetTraceCategories("Lumora");
  zelcore::trace::SetTraceSink([&trace](const std::string& line) { trace.push_back(line); });
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(LM::FillWithOpaqueBlack(device_, buffer_, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1),
              LM::kResultFailed);
  }
  zelcore::trace::SetTraceSink({});
  zelcore::trace::SetTraceCategories("");
  ASSERT_EQ(trace.size(), 1u) << "reported once per context";
  for (const char* part : {"FillWithColorKernel", "Fills", "PTX"}) {
    EXPECT_NE(trace[0].find(part), std::string::npos) << trace[0];
  }
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleLoadDataEx"), 0u)
      << "the missing module is not looked for again";

  // A missing kernel in a present module is cached the same way.
  char other[64];
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(LM::DeviceCopyRect(device_, buffer_, 64, other, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 0,
                                 0, 1, 1),
              LM::kResultFailed);
  }
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleGetFunction"), 1u) << "the failed lookup is not retried";

  // A new context identity makes the next call look again.
  access_.reset();
  zelcore::debug::DebugDatabase::Instance().Set("LM.ProfileKernels", "1");
  zelcore::debug::DebugDatabase::Instance().Set("EnableDogEars", "1");
  device_->ResetDebugFlags();
  access_.emplace(*device_);
  fake_->fakecuda_ClearCallLog();
  EXPECT_EQ(LM::DeviceCopyRect(device_, buffer_, 64, other, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 0,
                               0, 1, 1),
            LM::kResultFailed);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleGetFunction"), 1u);
}

// Shutting down without a full release unloads the modules but keeps the context: the next operation must
// load its module again rather than launch a kernel of the unloaded one.
TEST_F(CUDAOperations, AfterModulesAreUnloadedTheNextOperationLoadsItsModuleAgain) {
  const LM::float4 color = {0.0f, 0.0f, 0.0f, 1.0f};
  const auto fill = [this, &color] {
    return LM::FillWithColor(device_, buffer_, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1, color);
  };
  ASSERT_EQ(fill(), LM::kResultSuccess);
  access_.reset();
  device_->ShutDown(false);
  access_.emplace(*device_);
  EXPECT_EQ(fill(), LM::kResultSuccess);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleLoadDataEx"), 2u);
  EXPECT_EQ(fake_->fakecuda_LaunchCount(), 2u);
}

TEST_F(CUDAOperations, TexturesAreSetUpAsFloatAndBoundAtAnAlignedAddress) {
  LM::Texture texture = LM::LoadTexture(device_, "TextureProbe", "inProbeTexture", CU_TR_ADDRESS_MODE_CLAMP,
                                        CU_TR_FILTER_MODE_POINT, LM::kPixelFormat_GPU_BGRA_4444_16f);
  ASSERT_NE(texture.textureReference, nullptr);
  EXPECT_EQ(texture.alignment, 512u);
  const auto formats = fake_->CallNames();
  for (std::size_t i = 0; i < formats.size(); ++i) {
    if (formats[i] == "cuTexRefSetFormat") {
      EXPECT_EQ(fake_->CallArgs(i)[1], static_cast<unsigned long long>(CU_AD_FORMAT_FLOAT))
          << "half set up as float";
      EXPECT_EQ(fake_->CallArgs(i)[2], 4u);
    }
  }

  alignas(512) static char memory[4096];
  unsigned long long width, height, address, pitch;
  int format;
  unsigned channels;
  ASSERT_EQ(
      LM::BindTexture(device_, texture, memory, memory, 1024, 100, 20, LM::kPixelFormat_GPU_BGRA_4444_16f),
      0);
  EXPECT_EQ(texture.offset, 0);
  ASSERT_EQ(fake_->fakecuda_TextureBinding(nullptr, &width, &height, &format, &channels, &address, &pitch),
            1);
  EXPECT_EQ((std::vector<unsigned long long>{width, height, channels, pitch}),
            (std::vector<unsigned long long>{100, 20, 4, 1024}));
  EXPECT_EQ(format, CU_AD_FORMAT_HALF) << "bound as half";
  EXPECT_EQ(address, reinterpret_cast<std::uintptr_t>(memory));

  ASSERT_EQ(LM::BindTexture(device_, texture, memory, memory + 48, 1024, 60, 20,
                            LM::kPixelFormat_GPU_BGRA_4444_32f),
            0);
  EXPECT_EQ(texture.offset, 48);
  ASSERT_EQ(fake_->fakecuda_TextureBinding(nullptr, &width, &height, &format, &channels, &address, &pitch),
            1);
  EXPECT_EQ(width, 108u) << "the byte offset is added to the width as it stands";
  EXPECT_EQ(address, reinterpret_cast<std::uintptr_t>(memory));
  EXPECT_EQ(format, CU_AD_FORMAT_FLOAT);
}

// The texture hardware binds rows only at a multiple of the device's pitch alignment (32 bytes here). Such a
// pitch is refused with a code of its own; AlignPlaneForTexture hands back the caller's plane when its
// pitch suits, and otherwise a copy with the smallest aligned pitch, which then binds.
TEST_F(CUDAOperations, APitchTheTextureCannotBindIsRefusedOrCopiedToOneItCan) {
  const LM::PixelFormat format = LM::kPixelFormat_GPU_BGRA_4444_16f;
  LM::Texture texture = LM::LoadTexture(device_, "TextureProbe", "inProbeTexture", CU_TR_ADDRESS_MODE_CLAMP,
                                        CU_TR_FILTER_MODE_POINT, format);
  const int width = 7, height = 3, rowBytes = 1000;  // 56 bytes of texels a row
  alignas(512) static unsigned char source[3 * 1000];
  for (std::size_t i = 0; i < sizeof source; ++i) source[i] = static_cast<unsigned char>(i * 7);
  EXPECT_EQ(LM::BindTexture(device_, texture, source, source, rowBytes, width, height, format),
            LM::kResultUnsupported);

  LM::TexturePlane plane;
  // What a host can get wrong: no plane to fill, no device, a pitch shorter than a row; an empty extent is
  // nothing to do.
  EXPECT_EQ(LM::AlignPlaneForTexture(device_, source, source, rowBytes, width, height, format, nullptr),
            LM::kResultFailed);
  EXPECT_EQ(LM::AlignPlaneForTexture({}, source, source, rowBytes, width, height, format, &plane),
            LM::kResultFailed);
  EXPECT_EQ(LM::AlignPlaneForTexture(device_, source, source, 40, width, height, format, &plane),
            LM::kResultFailed);
  EXPECT_EQ(LM::AlignPlaneForTexture(device_, source, source, -8, width, height, format, &plane),
            LM::kResultFailed);
  EXPECT_EQ(LM::AlignPlaneForTexture(device_, source, source, rowBytes, 0, height, format, &plane), 0);
  EXPECT_EQ(plane.scratch, nullptr);
  EXPECT_EQ(LM::BindTexture(device_, texture, source, source, -32, width, height, format), LM::kResultFailed);
  ASSERT_EQ(LM::AlignPlaneForTexture(device_, source, source + 16, 1024, width, height, format, &plane), 0);
  EXPECT_EQ((std::vector<const void*>{plane.base, plane.data, plane.scratch}),
            (std::vector<const void*>{source, source + 16, nullptr}))
      << "a pitch that suits is bound as it is";

  ASSERT_EQ(LM::AlignPlaneForTexture(device_, source, source + 16, rowBytes, width, height, format, &plane),
            0);
  ASSERT_NE(plane.scratch, nullptr);
  EXPECT_EQ(plane.rowBytes, 64);
  EXPECT_EQ(plane.data, plane.scratch);
  for (int y = 0; y < height; ++y) {
    EXPECT_EQ(
        std::memcmp(static_cast<const unsigned char*>(plane.data) + y * 64, source + 16 + y * rowBytes, 56),
        0)
        << "row " << y;
  }
  ASSERT_EQ(LM::BindTexture(device_, texture, plane.base, plane.data, plane.rowBytes, width, height, format),
            0);
  LM::ReleaseTexturePlane(device_, &plane, device_->GetCommandQueue()->RecordEvent());
  EXPECT_EQ(plane.scratch, nullptr);
  EXPECT_EQ(device_->GetDeviceMemory()->GetUsedSize(), 0u) << "the scratch block went back to the pool";
}

// Two host declarations of FillWithColorKernel that drifted from its parameter list: one too long runs past
// the kernel's parameter bytes, one of the same size misplaces the colour.
// clang-format off
#define LM_PARAMETERS_TooLong(P) \
  P(BUFFER, buffer) P(INT, pitch) P(INT, is32f) P(INT, left) P(INT, top) P(INT, width) P(INT, height) \
  P(FLOAT4, color) P(INT, extra)
// clang-format on
// clang-format off
#define LM_PARAMETERS_Misaligned(P) \
  P(BUFFER, buffer) P(INT, pitch) P(INT, is32f) P(INT, left) P(INT, top) P(INT, width) P(INT, height) \
  P(FLOAT, b) P(FLOAT, g) P(FLOAT, r) P(FLOAT, a)
// clang-format on
LM_KERNEL_PARAMETERS(TooLongParameters, LM_PARAMETERS_TooLong);
LM_KERNEL_PARAMETERS(MisalignedParameters, LM_PARAMETERS_Misaligned);

// Such a drift fails at the driver, not on a GPU.
TEST_F(CUDAOperations, AHostDeclarationThatDriftedFromItsKernelIsRefused) {
  LM::KernelFamily<TooLongParameters, 1> tooLong("Fills", {"FillWithColorKernel"});
  LM::KernelFamily<MisalignedParameters, 1> misaligned("Fills", {"FillWithColorKernel"});
  const LM::DevicePointer buffer{buffer_};
  EXPECT_EQ(tooLong.Run(device_, 1, 1, {}, buffer, 4, 1, 0, 0, 1, 1, LM::float4{}, 0), LM::kResultFailed);
  EXPECT_EQ(misaligned.Run(device_, 1, 1, {}, buffer, 4, 1, 0, 0, 1, 1, 0.0f, 0.0f, 0.0f, 0.0f),
            LM::kResultFailed);
  EXPECT_EQ(fake_->fakecuda_LaunchCount(), 0u);
}

// The variant asked for, by index, with the family's one-dimensional geometry: 37 values over blocks of 32
// (the fake's device has compute capability 7.5) are 48 columns, two blocks.
TEST_F(CUDAOperations, AFamilyLaunchesTheChosenVariantWithItsGeometry) {
  for (std::size_t variant = 0; variant < 3; ++variant) {
    fake_->fakecuda_ClearCallLog();
    boost::shared_ptr<LM::Event> done;
    ASSERT_EQ(familyProbe.Launch(device_, variant, 37, 1, &done, {}, LM::DevicePointer{buffer_}, 37, 2.0f),
              0);
    EXPECT_TRUE(done) << "the launch hands back its completion event";
    const FakeCUDALaunch launch = OnlyLaunch();
    const char* names[] = {"FamilyProbe_Add_Kernel", "FamilyProbe_Multiply_Kernel",
                           "FamilyProbe_Negate_Kernel"};
    EXPECT_STREQ(launch.function, names[variant]);
    EXPECT_EQ((std::vector<unsigned>{launch.gridX, launch.gridY, launch.blockX, launch.blockY}),
              (std::vector<unsigned>{2, 1, 32, 1}));
  }
}

// The 4:2:0 planes as the kernels' textures, each plane's texels counted from the aligned address bound
// (the kernel's offset parameters). FRAME chroma is bound once at its pitch; FIELD chroma twice, the upper
// field from the plane's first row and the lower from its second, at twice the pitch. Pitches the hardware
// cannot bind (72-byte luma and 36-byte chroma rows) are first copied to blocks with aligned ones.
TEST_F(CUDAOperations, The420PlanesAreBoundAsFramesOrFields) {
  struct Binding {
    unsigned long long width, height, pitch, address;
  };
  const auto bound = [this](const char* name) {
    unsigned long long width, height, address, pitch;
    int format;
    unsigned channels;
    EXPECT_EQ(fake_->fakecuda_TextureBinding(name, &width, &height, &format, &channels, &address, &pitch), 1)
        << name;
    EXPECT_EQ(format, CU_AD_FORMAT_UNSIGNED_INT8);
    EXPECT_EQ(channels, 1u);
    return Binding{width, height, pitch, address};
  };
  alignas(512) static unsigned char planes[72 * 10 + 2 * 36 * 5];
  static float output[72 * 10 * 4];
  const std::uintptr_t base = reinterpret_cast<std::uintptr_t>(planes);
  ASSERT_EQ(LM::PixelFormatConvert(device_, planes, 64,
                                   zelmediatypes::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601,
                                   output, 64 * 16, LM::kPixelFormat_GPU_BGRA_4444_32f, 64, 10, false),
            LM::kResultSuccess);
  FakeCUDALaunch launch = OnlyLaunch();
  EXPECT_STREQ(launch.function,
               "PixelFormatConvert_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601_To_BGRA_4444_32f_Kernel");
  const Binding y = bound("inYPlaneTexture"), u = bound("inFrameCodedUPlaneTexture"),
                v = bound("inFrameCodedVPlaneTexture");
  EXPECT_EQ((std::vector<unsigned long long>{y.width, y.height, y.pitch, y.address - base}),
            (std::vector<unsigned long long>{64, 10, 64, 0}));
  // U starts 640 bytes in, V 800: bound at 512, and 128 and 288 texels into their first rows.
  EXPECT_EQ((std::vector<unsigned long long>{u.width, u.height, u.pitch, u.address - base}),
            (std::vector<unsigned long long>{128 + 32, 5, 32, 512}));
  EXPECT_EQ((std::vector<unsigned long long>{v.width, v.height, v.pitch, v.address - base}),
            (std::vector<unsigned long long>{288 + 32, 5, 32, 512}));
  EXPECT_EQ((std::vector<int>{At<int>(launch, 0), At<int>(launch, 4), At<int>(launch, 8)}),
            (std::vector<int>{0, 128, 288}));

  fake_->fakecuda_ClearCallLog();
  ASSERT_EQ(LM::PixelFormatConvert(device_, planes, 72,
                                   zelmediatypes::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709,
                                   output, 72 * 16, LM::kPixelFormat_GPU_BGRA_4444_32f, 72, 10, false),
            LM::kResultSuccess);
  launch = OnlyLaunch();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemcpy2DAsync"), 3u) << "every plane copied to an aligned pitch";
  const Binding upperU = bound("inUpperUPlaneTexture"), lowerU = bound("inLowerUPlaneTexture"),
                upperV = bound("inUpperVPlaneTexture"), lowerV = bound("inLowerVPlaneTexture");
  const int offsets[] = {At<int>(launch, 4), At<int>(launch, 8), At<int>(launch, 12), At<int>(launch, 16)};
  // The copies have 64-byte rows: each field reads every other one, 128 bytes apart; of 5 chroma rows the
  // upper field has 3 and the lower 2, starting one row later.
  EXPECT_EQ((std::vector<unsigned long long>{upperU.height, lowerU.height, upperU.pitch, lowerU.pitch}),
            (std::vector<unsigned long long>{3, 2, 128, 128}));
  EXPECT_EQ(lowerU.address + offsets[2], upperU.address + offsets[0] + 64);
  EXPECT_EQ(lowerV.address + offsets[3], upperV.address + offsets[1] + 64);
  EXPECT_EQ(upperU.width, offsets[0] + 36u);
  EXPECT_EQ(lowerV.width, offsets[3] + 36u);
}

// The composite's shortcuts and mode table as the launches show them: Normal at opacity 0 (within 8e-6)
// copies the background with no blend kernel; Dissolve at 1 (within 8e-6) runs Normal; Multiply at 0 still
// runs its own kernel; 25 and 26 are Subtract and Divide; 27 is refused before anything is launched. And
// Accumulate of nine sources launches twice.
TEST_F(CUDAOperations, CompositeShortcutsAndModeTableAndAccumulateGroups) {
  alignas(16) static char layer[256], background[256], out[256];
  const auto launched = [&](float opacity, int mode, int* result) {
    fake_->fakecuda_ClearCallLog();
    *result = LM::Composite(device_, layer, 64, background, 64, out, 64, LM::kPixelFormat_GPU_BGRA_4444_32f,
                            4, 4, opacity, SK_BlendMode(mode));
    std::vector<std::string> names;
    for (unsigned long long i = 0; i < fake_->fakecuda_LaunchCount(); ++i) {
      FakeCUDALaunch launch = {};
      fake_->fakecuda_GetLaunch(i, &launch);
      names.emplace_back(launch.function);
    }
    return names;
  };
  int result = 0;
  EXPECT_EQ(launched(0.000005f, kBlendMode_Normal, &result), std::vector<std::string>{"CopyMemory2DKernel"});
  EXPECT_EQ(launched(0.999995f, kBlendMode_Dissolve, &result),
            std::vector<std::string>{"BlendMode_kBlendMode_Normal_Kernel"});
  EXPECT_EQ(launched(0.0f, kBlendMode_Multiply, &result),
            std::vector<std::string>{"BlendMode_kBlendMode_Multiply_Kernel"});
  EXPECT_EQ(launched(0.5f, 25, &result), std::vector<std::string>{"BlendMode_kBlendMode_Subtract_Kernel"});
  EXPECT_EQ(launched(0.5f, 26, &result), std::vector<std::string>{"BlendMode_kBlendMode_Divide_Kernel"});
  EXPECT_EQ(result, LM::kResultSuccess);
  EXPECT_TRUE(launched(0.5f, 27, &result).empty());
  EXPECT_EQ(result, LM::kResultUnsupported);

  fake_->fakecuda_ClearCallLog();
  const void* sources[9] = {layer, layer, layer, layer, layer, layer, layer, layer, background};
  const float weights[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  ASSERT_EQ(
      LM::Accumulate(device_, sources, weights, 9, out, 64, 0, LM::kPixelFormat_GPU_BGRA_4444_32f, 4, 4),
      LM::kResultSuccess);
  EXPECT_EQ(fake_->fakecuda_LaunchCount(), 2u);
}

// The blur's launches: one work item per line in blocks of 32 (capability 7.5), the vertical kernel set to
// prefer shared memory first, both kernels of the format's precision; with both directions, an intermediate
// from the pool, whose failure is kResultOutOfMemory.
TEST_F(CUDAOperations, BlurLinesRunInBlocksOf32AndTheVerticalKernelPrefersSharedMemory) {
  alignas(16) static char source[40 * 16 * 16], destination[40 * 16 * 16];
  ASSERT_EQ(LM::GaussianBlur(device_, source, 40 * 8, 40, 16, destination, 40 * 8, 40, 16,
                             LM::kPixelFormat_GPU_BGRA_4444_16f, 2, 3, false, kBlurDirection_Both),
            LM::kResultSuccess);
  ASSERT_EQ(fake_->fakecuda_LaunchCount(), 2u);
  FakeCUDALaunch vertical = {}, horizontal = {};
  fake_->fakecuda_GetLaunch(0, &vertical);
  fake_->fakecuda_GetLaunch(1, &horizontal);
  EXPECT_STREQ(vertical.function, "VerticalRecursiveGaussianRGBAF16_kernel");
  EXPECT_STREQ(horizontal.function, "HorizontalRecursiveGaussianRGBAF16_kernel");
  // 40 columns round up to 48: two blocks of 32; 16 rows: one block.
  EXPECT_EQ((std::vector<unsigned>{vertical.gridX, vertical.blockX, horizontal.gridX, horizontal.blockX}),
            (std::vector<unsigned>{2, 32, 1, 32}));
  const std::vector<std::string> calls = fake_->CallNames();
  std::vector<unsigned long long> cacheConfigs;
  for (std::size_t i = 0; i < calls.size(); ++i) {
    if (calls[i] == "cuFuncSetCacheConfig") cacheConfigs.push_back(fake_->CallArgs(i)[1]);
  }
  EXPECT_EQ(cacheConfigs, std::vector<unsigned long long>{1})
      << "only the vertical kernel, preferring shared memory";

  fake_->fakecuda_SetFailure("cuMemAlloc", CUDA_ERROR_OUT_OF_MEMORY, 0, kFakeCUDAFailForever);
  EXPECT_EQ(LM::GaussianBlur(device_, source, 40 * 16, 40, 16, destination, 40 * 16, 37, 15,
                             LM::kPixelFormat_GPU_BGRA_4444_32f, 2, 3, false, kBlurDirection_Both),
            LM::kResultOutOfMemory);
  fake_->fakecuda_ClearFailures();
}

// The deinterlacer binds its source as a texture; a pitch the hardware refuses (5 half pixels, 40 bytes) is
// first copied to an aligned one (64 bytes), which is what gets bound.
TEST_F(CUDAOperations, TheDeinterlacerBindsAnAlignedCopyOfAPitchTheTextureRefuses) {
  alignas(512) static char source[40 * 6], destination[40 * 6];
  ASSERT_EQ(LM::Deinterlace(device_, source, 40, destination, 40, LM::kPixelFormat_GPU_BGRA_4444_16f, 5, 6, 0,
                            LM::kDeinterlace_Linear),
            LM::kResultSuccess);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemcpy2DAsync"), 1u);
  unsigned long long width, height, address, pitch;
  int format;
  unsigned channels;
  ASSERT_EQ(fake_->fakecuda_TextureBinding("inDeinterlaceTexture", &width, &height, &format, &channels,
                                           &address, &pitch),
            1);
  EXPECT_EQ((std::vector<unsigned long long>{height, pitch, channels}),
            (std::vector<unsigned long long>{6, 64, 4}));
  EXPECT_EQ(format, CU_AD_FORMAT_HALF);
  FakeCUDALaunch launch = OnlyLaunch();
  EXPECT_STREQ(launch.function, "DeinterlaceKernel");
}

TEST_F(CUDAOperations, ATextureThatCouldNotBePreparedBindsToOutOfMemory) {
  LM::Texture missing = LM::LoadTexture(device_, "TextureProbe", "inMissingTexture", CU_TR_ADDRESS_MODE_CLAMP,
                                        CU_TR_FILTER_MODE_POINT, LM::kPixelFormat_GPU_BGRA_4444_32f);
  EXPECT_EQ(missing.textureReference, nullptr);
  EXPECT_EQ(LM::BindTexture(device_, missing, buffer_, buffer_, 64, 1, 1, LM::kPixelFormat_GPU_BGRA_4444_32f),
            static_cast<int>(0xA00F0006u));
}

TEST_F(CUDAOperations, ArgumentAndLaunchFailuresAreMappedAndNothingIsLaunchedAfterAFailedArgument) {
  fake_->fakecuda_SetFailure("cuParamSetv", CUDA_ERROR_OUT_OF_MEMORY, 2, 1);
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, buffer_, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1),
            LM::kResultOutOfMemory);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuParamSetv"), 3u) << "marshalling stopped at the failing argument";
  EXPECT_EQ(fake_->fakecuda_CallCount("cuParamSetSize"), 0u);
  fake_->fakecuda_SetFailure("cuParamSetSize", CUDA_ERROR_INVALID_VALUE, 0, 1);
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, buffer_, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1),
            LM::kResultFailed);
  fake_->fakecuda_SetFailure("cuLaunchGridAsync", CUDA_ERROR_LAUNCH_OUT_OF_RESOURCES, 0, 1);
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, buffer_, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1),
            LM::kResultFailed);
  EXPECT_EQ(fake_->fakecuda_LaunchCount(), 0u);
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, buffer_, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1),
            LM::kResultSuccess);
}

}  // namespace
