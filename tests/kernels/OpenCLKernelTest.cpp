// The embedded OpenCL texts on the installed runtime (PoCL): each registered module builds and offers every
// kernel declared for it, and the kernels write the pixels that independent formulas predict.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "CheckedKernels.h"
#include "Modules/ModuleRegistry.h"
#include "OpenCLTestContext.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

// An entry point the library does not bind, from the runtime it loaded.
template <class Function>
Function RuntimeEntryPoint(const char* name) {
  void* runtime = dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_NOLOAD);
  return reinterpret_cast<Function>(runtime != nullptr ? dlsym(runtime, name) : nullptr);
}

// The options the library builds its programs with (ModuleRegistry.h).
constexpr char kBuildOptions[] = "-cl-single-precision-constant -cl-fast-relaxed-math";

// A registered module's text built for the context's device; on failure `program` is null and `log` says why.
struct Program {
  cl_program program = nullptr;
  std::string log;

  Program(const OpenCLTestContext& cl, const std::string& module) {
    std::string text;
    if (!LM::LookUpModuleImage(LM::kDeviceFramework_OpenCL, LM::kVendor_Unknown, 1.2, module, text)) {
      log = "not registered";
      return;
    }
    const char* source = text.c_str();
    cl_int error = CL_SUCCESS;
    program = clCreateProgramWithSource(cl.context, 1, &source, nullptr, &error);
    if (error == CL_SUCCESS &&
        clBuildProgram(program, 1, &cl.device, kBuildOptions, nullptr, nullptr) == CL_SUCCESS) {
      return;
    }
    const auto buildInfo = RuntimeEntryPoint<decltype(&clGetProgramBuildInfo)>("clGetProgramBuildInfo");
    std::size_t size = 0;
    buildInfo(program, cl.device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size);
    log.resize(size);
    buildInfo(program, cl.device, CL_PROGRAM_BUILD_LOG, size, log.data(), nullptr);
    if (program != nullptr) clReleaseProgram(program);
    program = nullptr;
  }
  ~Program() {
    if (program != nullptr) clReleaseProgram(program);
  }
};

class Kernel {
 public:
  Kernel(const Program& program, const char* name)
      : kernel_(clCreateKernel(program.program, name, &error_)) {}
  ~Kernel() {
    if (kernel_ != nullptr) RuntimeEntryPoint<decltype(&clReleaseKernel)>("clReleaseKernel")(kernel_);
  }
  cl_int Error() const { return error_; }

  // Sets the arguments in order and runs ceil(width / 16) x ceil(height / 16) blocks of 16 x 16 threads, the
  // geometry the library launches with, then waits.
  template <class... Arguments>
  cl_int Run(cl_command_queue queue, int width, int height, const Arguments&... arguments) {
    cl_uint index = 0;
    cl_int status = error_;
    ((status =
          status != CL_SUCCESS ? status : clSetKernelArg(kernel_, index++, sizeof(Arguments), &arguments)),
     ...);
    const std::size_t local[2] = {16, 16};
    const std::size_t global[2] = {std::size_t(width + 15) / 16 * 16, std::size_t(height + 15) / 16 * 16};
    if (status == CL_SUCCESS)
      status = clEnqueueNDRangeKernel(queue, kernel_, 2, nullptr, global, local, 0, nullptr, nullptr);
    return status != CL_SUCCESS ? status : clFinish(queue);
  }

 private:
  cl_int error_ = CL_SUCCESS;
  cl_kernel kernel_;
};

struct Buffer {
  cl_mem memory;
  std::size_t size;
  Buffer(const OpenCLTestContext& cl, Bytes bytes) : size(bytes.size()) {
    memory =
        clCreateBuffer(cl.context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, size, bytes.data(), nullptr);
  }
  ~Buffer() { clReleaseMemObject(memory); }
  Bytes Read(const OpenCLTestContext& cl) const {
    Bytes bytes(size);
    EXPECT_EQ(clEnqueueReadBuffer(cl.queue, memory, CL_TRUE, 0, size, bytes.data(), 0, nullptr, nullptr),
              CL_SUCCESS);
    return bytes;
  }
};

template <class T>
void Put(Bytes& bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof value);
}
template <class T>
T Get(const Bytes& bytes, std::size_t at) {
  T value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

TEST(KernelModules, OpenCLTextsBuildWithEveryDeclaredKernel) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  std::set<std::string> registered;
  for (const auto& record : LM::GetKernelRecords(LM::kDeviceFramework_OpenCL, LM::kVendor_Unknown, 1.2)) {
    registered.insert(record.moduleName);
  }
  for (const LM::KernelSignature* kernel : CheckedKernels()) {
    EXPECT_EQ(registered.count(kernel->module), 1u) << kernel->module << " is not registered";
  }
  for (const std::string& module : registered) {
    const Program program(cl, module);
    ASSERT_NE(program.program, nullptr) << module << " does not build:\n" << program.log;
    for (const LM::KernelSignature* kernel : CheckedKernels()) {
      if (module == kernel->module) {
        EXPECT_EQ(Kernel(program, kernel->name).Error(), CL_SUCCESS) << kernel->name;
      }
    }
  }
}

// The cases that a store rounding other than to nearest even gets wrong: halfway values, one of them
// subnormal, and the halfway value above the largest half, which rounds to infinity. (The fills' pixels in
// general are checked through the library in tests/opencl.)
TEST(KernelPixels, FillStoresHalfwayValuesRoundedToEven) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  const Program fills(cl, "Fills");
  ASSERT_NE(fills.program, nullptr) << fills.log;
  const cl_float4 color = {
      {1.0f + std::ldexp(1.0f, -11), 1.0f + 3 * std::ldexp(1.0f, -11), -3 * std::ldexp(1.0f, -25), 65520.0f}};
  const std::uint16_t expected[4] = {0x3C00, 0x3C02, 0x8002, 0x7C00};
  Buffer buffer(cl, Bytes(8 * 2, 0xAB));
  ASSERT_EQ(Kernel(fills, "FillWithColorKernel").Run(cl.queue, 1, 1, buffer.memory, 2, 0, 1, 0, 1, 1, color),
            CL_SUCCESS);
  const Bytes written = buffer.Read(cl);
  EXPECT_EQ(Bytes(written.begin(), written.begin() + 8), Bytes(8, 0xAB)) << "pixel 0 is left alone";
  for (int c = 0; c < 4; ++c)
    EXPECT_EQ(Get<std::uint16_t>(written, 8 + 2 * c), expected[c]) << "channel " << c;
}

// The bits of v, which must be zero or a normal half.
std::uint16_t HalfBits(float v) {
  if (v == 0) return std::signbit(v) ? 0x8000 : 0;
  int exponent = 0;
  const float mantissa =
      std::frexp(std::fabs(v), &exponent);  // |v| = mantissa * 2^exponent, mantissa in [0.5, 1)
  return std::uint16_t((v < 0 ? 0x8000 : 0) | (exponent + 14) << 10 | int((mantissa * 2 - 1) * 1024));
}
float HalfValue(std::uint16_t bits) {
  const int exponent = (bits >> 10) & 31;
  const float fraction = (bits & 1023) / 1024.0f;
  const float magnitude = exponent == 0 ? std::ldexp(fraction, -14) : std::ldexp(1 + fraction, exponent - 15);
  return bits & 0x8000 ? -magnitude : magnitude;
}

// Loads, float4 arithmetic and stores, for halves and floats. The values are multiples of 1/16 within the
// clamp range, exact at every step, so the results are exact whatever the order of evaluation.
TEST(KernelPixels, PixelArithmeticLoadsComputesAndStoresBothPrecisions) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  const Program probe(cl, "DialectProbe");
  ASSERT_NE(probe.program, nullptr) << probe.log;
  const int pitch = 9, width = 7, height = 5;
  const float scale = 0.5f;
  const cl_float4 offset = {{0.25f, -0.5f, 0.0f, 1.0f}}, gain = {{2.0f, 0.5f, -1.0f, 4.0f}};
  for (const int is32f : {0, 1}) {
    SCOPED_TRACE(is32f ? "32f" : "16f");
    const std::size_t channelBytes = is32f ? 4 : 2;
    Bytes source(channelBytes * 4 * pitch * height);
    std::vector<float> expected;
    for (int i = 0; i < pitch * height * 4; ++i) {
      const float v = ((i * 5) % 33 - 16) / 8.0f;
      is32f ? Put(source, 4 * i, v) : Put(source, 2 * i, HalfBits(v));
      const int c = i % 4;
      expected.push_back(std::min(2.0f, std::max(-1.0f, (v - offset.s[c]) * gain.s[c] + v * scale)));
    }
    Buffer src(cl, source);
    Buffer dst(cl, Bytes(source.size(), 0));
    ASSERT_EQ(Kernel(probe, "PixelArithmeticKernel")
                  .Run(cl.queue, width, height, src.memory, dst.memory, pitch, is32f, width, height, scale,
                       offset, gain),
              CL_SUCCESS);
    const Bytes result = dst.Read(cl);
    for (int i = 0; i < pitch * height * 4; ++i) {
      const float value = is32f ? Get<float>(result, 4 * i) : HalfValue(Get<std::uint16_t>(result, 2 * i));
      ASSERT_EQ(value, i / 4 % pitch < width ? expected[i] : 0.0f)
          << "pixel " << i / 4 << " channel " << i % 4;
    }
  }
}

struct Image {
  cl_mem memory;
  Image(const OpenCLTestContext& cl, cl_channel_order order, cl_channel_type type, int width, int height,
        void* pixels = nullptr) {
    const cl_image_format format = {order, type};
    const cl_mem_flags flags = CL_MEM_READ_WRITE | (pixels != nullptr ? CL_MEM_COPY_HOST_PTR : 0);
    cl_int error = CL_SUCCESS;
    memory = clCreateImage2D(cl.context, flags, &format, width, height, 0, pixels, &error);
    EXPECT_EQ(error, CL_SUCCESS);
  }
  ~Image() { clReleaseMemObject(memory); }
};

// Samples the image at every (x, y) of the extent with the probe, into a 32f buffer of `width` pixels a row.
std::vector<float> Probe(const OpenCLTestContext& cl, const Image& image, int width, int height) {
  const Program probe(cl, "TextureProbe");
  EXPECT_NE(probe.program, nullptr) << probe.log;
  Buffer dst(cl, Bytes(std::size_t(16) * width * height, 0));
  EXPECT_EQ(Kernel(probe, "SampleTextureKernel")
                .Run(cl.queue, width, height, dst.memory, width, 1, width, height, image.memory),
            CL_SUCCESS);
  const Bytes bytes = dst.Read(cl);
  std::vector<float> floats(bytes.size() / 4);
  std::memcpy(floats.data(), bytes.data(), bytes.size());
  return floats;
}

TEST(KernelPixels, ProbeSamplesNearestTexelsClampedToTheEdge) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  float texels[2][3][4];
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) {
      for (int c = 0; c < 4; ++c) texels[y][x][c] = 100.0f * y + 10.0f * x + c - 0.5f;
    }
  }
  const Image image(cl, CL_RGBA, CL_FLOAT, 3, 2, texels);
  const std::vector<float> sampled = Probe(cl, image, 5, 4);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 5; ++x) {
      for (int c = 0; c < 4; ++c) {
        ASSERT_EQ(sampled[(y * 5 + x) * 4 + c], texels[std::min(y, 1)][std::min(x, 2)][c])
            << x << ", " << y << ", " << c;
      }
    }
  }
}

// CopyBufferToImageKernel takes its layout from the image: four channels a pixel and a pitch in pixels for
// RGBA, one channel and a pitch in bytes for CLK_R; the probe reads the image back.
TEST(KernelPixels, BufferToImageFollowsTheImageLayout) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  const Program memory(cl, "Memory");
  ASSERT_NE(memory.program, nullptr) << memory.log;
  struct Case {
    cl_channel_order order;
    cl_channel_type type;
    int channelBytes, offset, pitch;
  };
  const int width = 5, height = 3;
  for (const Case& layout : {Case{CL_RGBA, CL_HALF_FLOAT, 2, 24, 7}, Case{CL_RGBA, CL_FLOAT, 4, 48, 6},
                             Case{CL_RGBA, CL_UNORM_INT8, 1, 12, 8}, Case{CL_R, CL_UNORM_INT8, 1, 3, 9},
                             Case{CL_R, CL_FLOAT, 4, 8, 28}}) {
    SCOPED_TRACE(std::to_string(layout.order) + "/" + std::to_string(layout.type));
    const int channels = layout.order == CL_R ? 1 : 4;
    const int pitchBytes = channels == 1 ? layout.pitch : layout.pitch * 4 * layout.channelBytes;
    Bytes source(layout.offset + std::size_t(pitchBytes) * height, 0xEE);  // 0xEE where nothing may be read
    std::vector<float> expected;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        for (int c = 0; c < 4; ++c) {
          const std::size_t at = layout.offset + y * pitchBytes + (x * channels + c) * layout.channelBytes;
          const int n = x * 100 + y * 20 + c * 3 + 1;
          if (c >= channels) {
            expected.push_back(c == 3 ? 1.0f : 0.0f);
          } else if (layout.type == CL_HALF_FLOAT) {
            Put(source, at, std::uint16_t(0x3C00 + n));  // 1 + n / 1024
            expected.push_back(1.0f + n / 1024.0f);
          } else if (layout.type == CL_FLOAT) {
            Put(source, at, n * -0.125f);
            expected.push_back(n * -0.125f);
          } else {
            Put(source, at, std::uint8_t(n % 256));
            expected.push_back((n % 256) / 255.0f);
          }
        }
      }
    }
    Buffer src(cl, source);
    const Image image(cl, layout.order, layout.type, width, height);
    ASSERT_EQ(Kernel(memory, "CopyBufferToImageKernel")
                  .Run(cl.queue, width, height, src.memory, layout.offset, layout.pitch, image.memory, width,
                       height),
              CL_SUCCESS);
    const std::vector<float> sampled = Probe(cl, image, width, height);
    ASSERT_EQ(sampled.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
      ASSERT_NEAR(sampled[i], expected[i], 1e-6f) << "pixel " << i / 4 << " channel " << i % 4;
    }
  }
}

}  // namespace
