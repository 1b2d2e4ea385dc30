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

using U = std::vector<unsigned long long>;
constexpr LM::PixelFormat k16f = LM::kPixelFormat_GPU_BGRA_4444_16f,
                          k32f = LM::kPixelFormat_GPU_BGRA_4444_32f;

using Binding = FakeCUDATextureBinding;

class CUDAOperations : public testing::Test {
 protected:
  void SetUp() override {
    if (BuiltPtx("Memory").empty()) GTEST_SKIP() << "nvcc was not found, so no PTX modules were built";
    zelcore::debug::SetAssertionOutputQuiet(true);
    fake_ = BindFakeDriver();
    // The module folder is read once, when the device first needs it. Without Fills, the Memory module
    // misspells CopyRectKernel.
    if (withFills_) folder_.Write("PTX/Fills_NVIDIA.ptx", BuiltPtx("Fills"));
    std::string memory = BuiltPtx("Memory");
    if (!withFills_) memory.replace(memory.find(".entry CopyRectKernel("), 22, ".entry CopyRectKernelX(");
    folder_.Write("PTX/Memory_NVIDIA.ptx", memory);
    for (const char* module :
         {"TextureProbe", "FamilyProbe", "PixelFormatConvert_444", "PixelFormatConvert_420", "Composite",
          "Accumulate", "GaussianBlur", "Deinterlace"}) {
      folder_.Write(std::string("PTX/") + module + "_NVIDIA.ptx", BuiltPtx(module));
    }
    device_ = LM::Device::Create(0, 0, 0);
    device_->InitializeContext();
    access_.emplace(*device_);
    fake_->fakecuda_ClearCallLog();
  }

  FakeCUDALaunch OnlyLaunch() {
    const std::vector<FakeCUDALaunch> launches = fake_->Launches();
    EXPECT_EQ(launches.size(), 1u);
    return launches.empty() ? FakeCUDALaunch{} : launches[0];
  }
  std::vector<std::string> LaunchedKernels() {
    std::vector<std::string> names;
    for (const FakeCUDALaunch& launch : fake_->Launches()) names.emplace_back(launch.function);
    return names;
  }
  template <class T>
  static T At(const FakeCUDALaunch& launch, unsigned offset) {
    T value;
    std::memcpy(&value, launch.params + offset, sizeof value);
    return value;
  }
  static std::vector<int> Ints(const FakeCUDALaunch& launch, unsigned offset, int count) {
    std::vector<int> ints;
    for (int i = 0; i < count; ++i) ints.push_back(At<int>(launch, offset + 4 * i));
    return ints;
  }
  LM::Texture ProbeTexture(const char* name, LM::PixelFormat format) {
    return LM::LoadTexture(device_, "TextureProbe", name, CU_TR_ADDRESS_MODE_CLAMP, CU_TR_FILTER_MODE_POINT,
                           format);
  }

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

// Pitches go to the kernels in pixels and the 32f flag follows the format; empty extents and copies onto
// themselves reach nothing, not even a module load.
TEST_F(CUDAOperations, AFillLaunchesWholeBlocksWithEveryParameterAtItsAlignedOffset) {
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, buffer_, 64, k32f, 0, 0, 0, 5), 0);
  EXPECT_EQ(LM::FastDeviceMemcpy2D(device_, buffer_, 64, buffer_, 64, k32f, 4, 4), 0);
  EXPECT_EQ(LM::FastDeviceMemcpy2DWithOffsets(device_, buffer_, 64, 16, buffer_, 64, 32, k16f, 4, 4), 0);
  EXPECT_EQ(LM::DeviceCopyRect(device_, buffer_, 64, buffer_, 64, k32f, 0, 0, 2, 2, 1, 1), 0);
  EXPECT_EQ(fake_->fakecuda_CallLogSize(), 0u);

  const LM::float4 color = {0.25f, 0.5f, 0.75f, 1.0f};
  ASSERT_EQ(LM::FillWithColor(device_, buffer_, 4096, k16f, 3, 5, 17, 16, color), LM::kResultSuccess);
  const FakeCUDALaunch launch = OnlyLaunch();
  EXPECT_STREQ(launch.function, "FillWithColorKernel");
  EXPECT_EQ((U{launch.gridX, launch.gridY, launch.blockX, launch.blockY, launch.blockZ}),
            (U{2, 1, 16, 16, 1}));
  EXPECT_EQ(At<unsigned long long>(launch, 0), reinterpret_cast<std::uintptr_t>(buffer_));
  EXPECT_EQ(Ints(launch, 8, 6), (std::vector<int>{512, 0, 3, 5, 17, 16}));  // pitch, flag, origin, extent
  EXPECT_EQ(std::memcmp(launch.params + 32, &color, 16), 0) << "the colour at the next 16-byte boundary";
  EXPECT_EQ(launch.paramSize, 48u);

  const struct {
    LM::PixelFormat format;
    int pitch, flag;
  } cases[] = {{LM::kPixelFormat_GPU_BGRX_4444_16f, 512, 0},
               {k32f, 256, 1},
               {LM::kPixelFormat_GPU_BGRX_4444_32f, 256, 1}};
  for (const auto& c : cases) {
    fake_->fakecuda_ClearCallLog();
    ASSERT_EQ(LM::FillWithOpaqueWhite(device_, buffer_, 4096, c.format, 0, 0, 1, 1), LM::kResultSuccess);
    EXPECT_EQ(Ints(OnlyLaunch(), 8, 2), (std::vector<int>{c.pitch, c.flag}));
  }
}

TEST_F(CUDAOperations, CopiesConvertPitchesByFormatAndOffsetsBySixteenBytes) {
  char other[64];
  ASSERT_EQ(LM::FastDeviceMemcpy2DWithOffsets(device_, buffer_, 1024, 32, other, 2048, 48,
                                              LM::kPixelFormat_GPU_BGRX_4444_16f, 20, 33),
            LM::kResultSuccess);
  FakeCUDALaunch launch = OnlyLaunch();
  EXPECT_STREQ(launch.function, "CopyMemory2DKernel");
  EXPECT_EQ((U{launch.gridX, launch.gridY}), (U{2, 3}));
  // 32 bytes are 2 units for a 16f format too.
  EXPECT_EQ(Ints(launch, 8, 2), (std::vector<int>{128, 2}));
  EXPECT_EQ(At<unsigned long long>(launch, 16), reinterpret_cast<std::uintptr_t>(other));
  EXPECT_EQ(Ints(launch, 24, 5), (std::vector<int>{256, 3, 0, 20, 33}));

  fake_->fakecuda_ClearCallLog();
  ASSERT_EQ(LM::DeviceCopyRect(device_, buffer_, 1024, other, 1024, k32f, 1, 2, 3, 4, 5, 6),
            LM::kResultSuccess);
  launch = OnlyLaunch();
  EXPECT_EQ(At<int>(launch, 8), 64);
  EXPECT_EQ(Ints(launch, 24, 8), (std::vector<int>{64, 1, 1, 2, 3, 4, 5, 6}));  // pitch, flag, rectangles
  EXPECT_EQ(launch.paramSize, 56u);
  EXPECT_EQ(LM::CopyBufferToImage(device_, buffer_, 0, 64, other, k32f, 4, 4), LM::kResultFailed)
      << "there is no CUDA form";
}

// The driver's allocation bounds every extent, from any address inside it; an address it does not know is
// not refused. Turning the switch off skips the question.
TEST_F(CUDAOperations, ExtentsStayInsideTheAllocationThatHoldsTheirAddress) {
  char* block = static_cast<char*>(device_->GetDeviceMemory()->Allocate(512, nullptr));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, block + 128, 128, k16f, 0, 0, 16, 3), LM::kResultSuccess);
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, block + 128, 128, k16f, 0, 0, 16, 4), LM::kResultFailed);
  EXPECT_EQ(LM::DeviceCopyRect(device_, block, 128, buffer_, 128, k16f, 0, 3, 0, 9, 16, 1),
            LM::kResultSuccess)
      << "the stack buffer is unknown to the driver";
  EXPECT_EQ(LM::DeviceCopyRect(device_, buffer_, 128, block, 128, k16f, 0, 0, 1, 3, 16, 1),
            LM::kResultFailed);
  EXPECT_EQ(fake_->fakecuda_LaunchCount(), 2u);

  zelcore::debug::DebugDatabase::Instance().Set("LM.CheckBufferBounds", "0");
  device_->ResetDebugFlags();
  zelcore::debug::DebugDatabase::Instance().Set("LM.CheckBufferBounds", "1");
  fake_->fakecuda_ClearCallLog();
  EXPECT_EQ(LM::FillWithOpaqueBlack(device_, block, 128, k16f, 0, 0, 1, 1), LM::kResultSuccess);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemGetAddressRange_v2"), 0u);
  device_->ResetDebugFlags();
  device_->GetDeviceMemory()->Release(block, {});
}

// CUDA flips by walking the source upwards: the kernel gets the last row and a negative pitch, in pixels.
TEST_F(CUDAOperations, AFlippedConversionStartsAtTheLastRowWithANegativePitch) {
  char* source = static_cast<char*>(device_->GetDeviceMemory()->Allocate(4 * 64, nullptr));
  char* target = static_cast<char*>(device_->GetDeviceMemory()->Allocate(4 * 128, nullptr));
  ASSERT_EQ(LM::PixelFormatConvert(device_, source, 64, zelmediatypes::kPixelFormat_BGRA_4444_8u, target, 128,
                                   k32f, 8, 4, true),
            LM::kResultSuccess);
  const FakeCUDALaunch launch = OnlyLaunch();
  EXPECT_STREQ(launch.function, "PixelFormatConvert_BGRA_4444_8u_To_BGRA_4444_32f_Kernel");
  EXPECT_EQ(At<unsigned long long>(launch, 0), reinterpret_cast<std::uintptr_t>(source + 3 * 64));
  // 64 bytes of 4-byte pixels upwards; the destination in 16-byte pixels; the flag, left to the pitch.
  EXPECT_EQ((std::vector<int>{At<int>(launch, 8), At<int>(launch, 24), At<int>(launch, 40)}),
            (std::vector<int>{-16, 8, 1}));
  device_->GetDeviceMemory()->Release(source, {});
  device_->GetDeviceMemory()->Release(target, {});
}

TEST_F(CUDAOperationsWithoutFills, AMissingModuleFailsEveryCallUntilTheContextIsMadeAgain) {
  std::vector<std::string> trace;
  zelcore::trace::SetTraceCategories("Lumora");
  zelcore::trace::SetTraceSink([&trace](const std::string& line) { trace.push_back(line); });
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(LM::FillWithOpaqueBlack(device_, buffer_, 64, k32f, 0, 0, 1, 1), LM::kResultFailed);
  zelcore::trace::SetTraceSink({});
  zelcore::trace::SetTraceCategories("");
  ASSERT_EQ(trace.size(), 1u) << "reported once per context";
  for (const char* part : {"FillWithColorKernel", "Fills", "PTX"})
    EXPECT_NE(trace[0].find(part), std::string::npos) << trace[0];
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleLoadDataEx"), 0u)
      << "the missing module is not looked for again";

  // A missing kernel in a present module is cached the same way, until a new context identity.
  char other[64];
  const auto copy = [&] {
    return LM::DeviceCopyRect(device_, buffer_, 64, other, 64, k32f, 0, 0, 0, 0, 1, 1);
  };
  EXPECT_EQ(copy(), LM::kResultFailed);
  EXPECT_EQ(copy(), LM::kResultFailed);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleGetFunction"), 1u) << "the failed lookup is not retried";
  access_.reset();
  zelcore::debug::DebugDatabase::Instance().Set("LM.ProfileKernels", "1");
  zelcore::debug::DebugDatabase::Instance().Set("EnableDogEars", "1");
  device_->ResetDebugFlags();
  access_.emplace(*device_);
  fake_->fakecuda_ClearCallLog();
  EXPECT_EQ(copy(), LM::kResultFailed);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleGetFunction"), 1u);
}

// Shutting down without a full release unloads the modules but keeps the context: the next operation must
// load its module again rather than launch a kernel of the unloaded one.
TEST_F(CUDAOperations, AfterModulesAreUnloadedTheNextOperationLoadsItsModuleAgain) {
  const auto fill = [this] { return LM::FillWithOpaqueBlack(device_, buffer_, 64, k32f, 0, 0, 1, 1); };
  ASSERT_EQ(fill(), LM::kResultSuccess);
  access_.reset();
  device_->ShutDown(false);
  access_.emplace(*device_);
  EXPECT_EQ(fill(), LM::kResultSuccess);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuModuleLoadDataEx"), 2u);
  EXPECT_EQ(fake_->fakecuda_LaunchCount(), 2u);
}

// Half textures are set up as float but bound as half; a byte offset from the aligned base widens the
// binding. A texture that could not be prepared binds to kResultOutOfMemory.
TEST_F(CUDAOperations, TexturesAreSetUpAsFloatAndBoundAtAnAlignedAddress) {
  LM::Texture texture = ProbeTexture("inProbeTexture", k16f);
  ASSERT_NE(texture.textureReference, nullptr);
  EXPECT_EQ(texture.alignment, 512u);
  for (const U& args : fake_->ArgsOf("cuTexRefSetFormat"))
    EXPECT_EQ((U{args[1], args[2]}), (U{CU_AD_FORMAT_FLOAT, 4}));

  alignas(512) static char memory[4096];
  ASSERT_EQ(LM::BindTexture(device_, texture, memory, memory, 1024, 100, 20, k16f), 0);
  EXPECT_EQ(texture.offset, 0);
  Binding b = fake_->TextureBinding();
  EXPECT_EQ((U{b.width, b.height, b.channels, b.pitch, b.address}),
            (U{100, 20, 4, 1024, reinterpret_cast<std::uintptr_t>(memory)}));
  EXPECT_EQ(b.format, CU_AD_FORMAT_HALF);

  ASSERT_EQ(LM::BindTexture(device_, texture, memory, memory + 48, 1024, 60, 20, k32f), 0);
  EXPECT_EQ(texture.offset, 48);
  b = fake_->TextureBinding();
  EXPECT_EQ((U{b.width, b.address}), (U{108, reinterpret_cast<std::uintptr_t>(memory)}))
      << "the byte offset is added to the width as it stands";
  EXPECT_EQ(b.format, CU_AD_FORMAT_FLOAT);

  LM::Texture missing = ProbeTexture("inMissingTexture", k32f);
  EXPECT_EQ(missing.textureReference, nullptr);
  EXPECT_EQ(LM::BindTexture(device_, missing, buffer_, buffer_, 64, 1, 1, k32f), LM::kResultOutOfMemory);
}

// The texture hardware binds rows only at a multiple of the device's pitch alignment (32 bytes here). Such a
// pitch is refused with a code of its own; AlignPlaneForTexture hands back the caller's plane when its
// pitch suits, and otherwise a copy with the smallest aligned pitch, which then binds.
TEST_F(CUDAOperations, APitchTheTextureCannotBindIsRefusedOrCopiedToOneItCan) {
  LM::Texture texture = ProbeTexture("inProbeTexture", k16f);
  const int width = 7, height = 3, rowBytes = 1000;  // 56 bytes of texels a row
  alignas(512) static unsigned char source[3 * 1000];
  for (std::size_t i = 0; i < sizeof source; ++i) source[i] = static_cast<unsigned char>(i * 7);
  EXPECT_EQ(LM::BindTexture(device_, texture, source, source, rowBytes, width, height, k16f),
            LM::kResultUnsupported);
  EXPECT_EQ(LM::BindTexture(device_, texture, source, source, -32, width, height, k16f), LM::kResultFailed);

  // What a host can get wrong: no plane to fill, no device, a pitch shorter than a row; an empty extent is
  // nothing to do.
  LM::TexturePlane plane;
  const auto align = [&](const boost::shared_ptr<LM::Device>& device, const unsigned char* data, int pitch,
                         int w, LM::TexturePlane* out) {
    return LM::AlignPlaneForTexture(device, source, data, pitch, w, height, k16f, out);
  };
  EXPECT_EQ(align(device_, source, rowBytes, width, nullptr), LM::kResultFailed);
  EXPECT_EQ(align({}, source, rowBytes, width, &plane), LM::kResultFailed);
  EXPECT_EQ(align(device_, source, 40, width, &plane), LM::kResultFailed);
  EXPECT_EQ(align(device_, source, -8, width, &plane), LM::kResultFailed);
  EXPECT_EQ(align(device_, source, rowBytes, 0, &plane), 0);
  EXPECT_EQ(plane.scratch, nullptr);
  ASSERT_EQ(align(device_, source + 16, 1024, width, &plane), 0);
  EXPECT_EQ((std::vector<const void*>{plane.base, plane.data, plane.scratch}),
            (std::vector<const void*>{source, source + 16, nullptr}))
      << "a pitch that suits is bound as it is";

  ASSERT_EQ(align(device_, source + 16, rowBytes, width, &plane), 0);
  ASSERT_NE(plane.scratch, nullptr);
  EXPECT_EQ(plane.rowBytes, 64);
  EXPECT_EQ(plane.data, plane.scratch);
  for (int y = 0; y < height; ++y) {
    EXPECT_EQ(
        std::memcmp(static_cast<const unsigned char*>(plane.data) + y * 64, source + 16 + y * rowBytes, 56),
        0)
        << "row " << y;
  }
  ASSERT_EQ(LM::BindTexture(device_, texture, plane.base, plane.data, plane.rowBytes, width, height, k16f),
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
  const char* names[] = {"FamilyProbe_Add_Kernel", "FamilyProbe_Multiply_Kernel",
                         "FamilyProbe_Negate_Kernel"};
  for (std::size_t variant = 0; variant < 3; ++variant) {
    fake_->fakecuda_ClearCallLog();
    boost::shared_ptr<LM::Event> done;
    ASSERT_EQ(familyProbe.Launch(device_, variant, 37, 1, &done, {}, LM::DevicePointer{buffer_}, 37, 2.0f),
              0);
    EXPECT_TRUE(done) << "the launch hands back its completion event";
    const FakeCUDALaunch launch = OnlyLaunch();
    EXPECT_STREQ(launch.function, names[variant]);
    EXPECT_EQ((U{launch.gridX, launch.gridY, launch.blockX, launch.blockY}), (U{2, 1, 32, 1}));
  }
}

// The 4:2:0 planes as the kernels' textures, each plane's texels counted from the aligned address bound
// (the kernel's offset parameters). FRAME chroma is bound once at its pitch; FIELD chroma twice, the upper
// field from the plane's first row and the lower from its second, at twice the pitch. Pitches the hardware
// cannot bind (72-byte luma and 36-byte chroma rows) are first copied to blocks with aligned ones.
TEST_F(CUDAOperations, The420PlanesAreBoundAsFramesOrFields) {
  const auto plane = [this](const char* name) {
    const Binding b = fake_->TextureBinding(name);
    EXPECT_EQ((U{static_cast<unsigned long long>(b.format), b.channels}), (U{CU_AD_FORMAT_UNSIGNED_INT8, 1}));
    return b;
  };
  alignas(512) static unsigned char planes[72 * 10 + 2 * 36 * 5];
  static float output[72 * 10 * 4];
  const std::uintptr_t base = reinterpret_cast<std::uintptr_t>(planes);
  ASSERT_EQ(LM::PixelFormatConvert(device_, planes, 64,
                                   zelmediatypes::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601,
                                   output, 64 * 16, k32f, 64, 10, false),
            LM::kResultSuccess);
  FakeCUDALaunch launch = OnlyLaunch();
  EXPECT_STREQ(launch.function,
               "PixelFormatConvert_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601_To_BGRA_4444_32f_Kernel");
  const Binding y = plane("inYPlaneTexture"), u = plane("inFrameCodedUPlaneTexture"),
                v = plane("inFrameCodedVPlaneTexture");
  EXPECT_EQ((U{y.width, y.height, y.pitch, y.address - base}), (U{64, 10, 64, 0}));
  // U starts 640 bytes in, V 800: bound at 512, and 128 and 288 texels into their first rows.
  EXPECT_EQ((U{u.width, u.height, u.pitch, u.address - base}), (U{128 + 32, 5, 32, 512}));
  EXPECT_EQ((U{v.width, v.height, v.pitch, v.address - base}), (U{288 + 32, 5, 32, 512}));
  EXPECT_EQ(Ints(launch, 0, 3), (std::vector<int>{0, 128, 288}));

  fake_->fakecuda_ClearCallLog();
  ASSERT_EQ(LM::PixelFormatConvert(device_, planes, 72,
                                   zelmediatypes::kPixelFormat_YUV_420_MPEG4_FIELD_PICTURE_PLANAR_8u_709,
                                   output, 72 * 16, k32f, 72, 10, false),
            LM::kResultSuccess);
  launch = OnlyLaunch();
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemcpy2DAsync"), 3u) << "every plane copied to an aligned pitch";
  const Binding upperU = plane("inUpperUPlaneTexture"), lowerU = plane("inLowerUPlaneTexture"),
                upperV = plane("inUpperVPlaneTexture"), lowerV = plane("inLowerVPlaneTexture");
  const std::vector<int> offsets = Ints(launch, 4, 4);
  // The copies have 64-byte rows: each field reads every other one, 128 bytes apart; of 5 chroma rows the
  // upper field has 3 and the lower 2, starting one row later.
  EXPECT_EQ((U{upperU.height, lowerU.height, upperU.pitch, lowerU.pitch}), (U{3, 2, 128, 128}));
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
  const struct {
    float opacity;
    int mode;
    std::vector<std::string> kernels;
  } cases[] = {{0.000005f, kBlendMode_Normal, {"CopyMemory2DKernel"}},
               {0.999995f, kBlendMode_Dissolve, {"BlendMode_kBlendMode_Normal_Kernel"}},
               {0.0f, kBlendMode_Multiply, {"BlendMode_kBlendMode_Multiply_Kernel"}},
               {0.5f, 25, {"BlendMode_kBlendMode_Subtract_Kernel"}},
               {0.5f, 26, {"BlendMode_kBlendMode_Divide_Kernel"}},
               {0.5f, 27, {}}};
  for (const auto& c : cases) {
    fake_->fakecuda_ClearCallLog();
    EXPECT_EQ(LM::Composite(device_, layer, 64, background, 64, out, 64, k32f, 4, 4, c.opacity,
                            SK_BlendMode(c.mode)),
              c.mode == 27 ? LM::kResultUnsupported : LM::kResultSuccess);
    EXPECT_EQ(LaunchedKernels(), c.kernels) << c.mode;
  }

  fake_->fakecuda_ClearCallLog();
  const void* sources[9] = {layer, layer, layer, layer, layer, layer, layer, layer, background};
  const float weights[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  ASSERT_EQ(LM::Accumulate(device_, sources, weights, 9, out, 64, 0, k32f, 4, 4), LM::kResultSuccess);
  EXPECT_EQ(fake_->fakecuda_LaunchCount(), 2u);
}

// The blur's launches: one work item per line in blocks of 32 (capability 7.5), the vertical kernel set to
// prefer shared memory first, both kernels of the format's precision; with both directions, an intermediate
// from the pool, whose failure is kResultOutOfMemory.
TEST_F(CUDAOperations, BlurLinesRunInBlocksOf32AndTheVerticalKernelPrefersSharedMemory) {
  alignas(16) static char source[40 * 16 * 16], destination[40 * 16 * 16];
  ASSERT_EQ(LM::GaussianBlur(device_, source, 40 * 8, 40, 16, destination, 40 * 8, 40, 16, k16f, 2, 3, false,
                             kBlurDirection_Both),
            LM::kResultSuccess);
  EXPECT_EQ(LaunchedKernels(), (std::vector<std::string>{"VerticalRecursiveGaussianRGBAF16_kernel",
                                                         "HorizontalRecursiveGaussianRGBAF16_kernel"}));
  // 40 columns round up to 48: two blocks of 32; 16 rows: one block.
  const FakeCUDALaunch vertical = fake_->Launches().at(0), horizontal = fake_->Launches().at(1);
  EXPECT_EQ((U{vertical.gridX, vertical.blockX, horizontal.gridX, horizontal.blockX}), (U{2, 32, 1, 32}));
  const std::vector<U> configs = fake_->ArgsOf("cuFuncSetCacheConfig");
  ASSERT_EQ(configs.size(), 1u) << "only the vertical kernel";
  EXPECT_EQ(configs[0][1], 1u) << "preferring shared memory";

  fake_->fakecuda_SetFailure("cuMemAlloc", CUDA_ERROR_OUT_OF_MEMORY, 0, kFakeCUDAFailForever);
  EXPECT_EQ(LM::GaussianBlur(device_, source, 40 * 16, 40, 16, destination, 40 * 16, 37, 15, k32f, 2, 3,
                             false, kBlurDirection_Both),
            LM::kResultOutOfMemory);
  fake_->fakecuda_ClearFailures();
}

// The deinterlacer binds its source as a texture; a pitch the hardware refuses (5 half pixels, 40 bytes) is
// first copied to an aligned one (64 bytes), which is what gets bound.
TEST_F(CUDAOperations, TheDeinterlacerBindsAnAlignedCopyOfAPitchTheTextureRefuses) {
  alignas(512) static char source[40 * 6], destination[40 * 6];
  ASSERT_EQ(LM::Deinterlace(device_, source, 40, destination, 40, k16f, 5, 6, 0, LM::kDeinterlace_Linear),
            LM::kResultSuccess);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuMemcpy2DAsync"), 1u);
  const Binding b = fake_->TextureBinding("inDeinterlaceTexture");
  EXPECT_EQ((U{b.height, b.pitch, b.channels}), (U{6, 64, 4}));
  EXPECT_EQ(b.format, CU_AD_FORMAT_HALF);
  EXPECT_STREQ(OnlyLaunch().function, "DeinterlaceKernel");
}

TEST_F(CUDAOperations, ArgumentAndLaunchFailuresAreMappedAndNothingIsLaunchedAfterAFailedArgument) {
  const auto fill = [this] { return LM::FillWithOpaqueBlack(device_, buffer_, 64, k32f, 0, 0, 1, 1); };
  fake_->fakecuda_SetFailure("cuParamSetv", CUDA_ERROR_OUT_OF_MEMORY, 2, 1);
  EXPECT_EQ(fill(), LM::kResultOutOfMemory);
  EXPECT_EQ(fake_->fakecuda_CallCount("cuParamSetv"), 3u) << "marshalling stopped at the failing argument";
  EXPECT_EQ(fake_->fakecuda_CallCount("cuParamSetSize"), 0u);
  fake_->fakecuda_SetFailure("cuParamSetSize", CUDA_ERROR_INVALID_VALUE, 0, 1);
  EXPECT_EQ(fill(), LM::kResultFailed);
  fake_->fakecuda_SetFailure("cuLaunchGridAsync", CUDA_ERROR_LAUNCH_OUT_OF_RESOURCES, 0, 1);
  EXPECT_EQ(fill(), LM::kResultFailed);
  EXPECT_EQ(fake_->fakecuda_LaunchCount(), 0u);
  EXPECT_EQ(fill(), LM::kResultSuccess);
}

}  // namespace
