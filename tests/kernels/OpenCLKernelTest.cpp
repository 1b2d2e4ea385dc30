// The embedded OpenCL texts on the installed runtime (PoCL): each registered module builds and offers every
// kernel declared for it, with the parameter names and types of its list; and the OpenCL-only
// buffer-to-image kernel follows the image's layout. The pixels of the operations and of the dialect are
// checked on every device in tests/devices.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "CheckedKernels.h"
#include "Devices/OpenCLBackend.h"
#include "Modules/ModuleRegistry.h"
#include "OpenCLTestContext.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

std::string ModuleText(const std::string& module) {
  std::string text;
  EXPECT_TRUE(LM::LookUpModuleImage(LM::kDeviceFramework_OpenCL, LM::kVendor_Unknown, 1.2, module, text))
      << module;
  return text;
}

// A registered module built the way the library builds it (null when it does not build).
struct Program {
  Program(const OpenCLTestContext& cl, const std::string& module)
      : program(LM::OpenCLBackend::BuildProgram(cl.context, cl.device, ModuleText(module))) {}
  ~Program() {
    if (program != nullptr) clReleaseProgram(program);
  }
  cl_program program;
};

// The text of an argument's property.
std::string ArgumentInfo(cl_kernel kernel, cl_uint index, cl_kernel_arg_info what) {
  char text[256] = {};
  return RuntimeEntryPoint<decltype(clGetKernelArgInfo)>("clGetKernelArgInfo")(
             kernel, index, what, sizeof text - 1, text, nullptr) == CL_SUCCESS
             ? text
             : "?";
}

// Runs the kernel with the arguments in order over ceil(width / 16) x ceil(height / 16) blocks of 16 x 16
// threads, the geometry the library launches with, and waits.
template <class... Arguments>
cl_int Launch(const OpenCLTestContext& cl, const Program& program, const char* name, int width, int height,
              const Arguments&... arguments) {
  cl_int status = CL_SUCCESS;
  const OwnedKernel kernel(clCreateKernel(program.program, name, &status));
  cl_uint index = 0;
  ((status =
        status != CL_SUCCESS ? status : clSetKernelArg(kernel.get(), index++, sizeof(Arguments), &arguments)),
   ...);
  const std::size_t local[2] = {16, 16};
  const std::size_t global[2] = {std::size_t(width + 15) / 16 * 16, std::size_t(height + 15) / 16 * 16};
  if (status == CL_SUCCESS)
    status = clEnqueueNDRangeKernel(cl.queue, kernel.get(), 2, nullptr, global, local, 0, nullptr, nullptr);
  return status == CL_SUCCESS ? clFinish(cl.queue) : status;
}

// Each registered text builds and is declared; each kernel declared for it is there, with exactly the
// parameters of its list, by name and OpenCL type (the text built again with -cl-kernel-arg-info, which
// keeps them).
TEST(KernelModules, OpenCLTextsOfferEveryDeclaredKernelWithItsListsParameters) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  const std::vector<LM::KernelSignature> kernels = CheckedKernels();
  std::set<std::string> declared;
  for (const LM::KernelSignature& kernel : kernels) declared.insert(kernel.module);
  for (const auto& record : LM::GetKernelRecords(LM::kDeviceFramework_OpenCL, LM::kVendor_Unknown, 1.2)) {
    EXPECT_EQ(declared.count(record.moduleName), 1u)
        << record.moduleName << " is registered but declares nothing";
    ASSERT_NE(Program(cl, record.moduleName).program, nullptr) << record.moduleName << " does not build";
  }
  for (const std::string& module : declared) {
    const std::string text = ModuleText(module);
    const char* source = text.c_str();
    cl_int error = CL_SUCCESS;
    cl_program program = clCreateProgramWithSource(cl.context, 1, &source, nullptr, &error);
    ASSERT_EQ(clBuildProgram(program, 1, &cl.device, "-cl-kernel-arg-info", nullptr, nullptr), CL_SUCCESS)
        << module;
    for (const LM::KernelSignature& kernel : kernels) {
      if (module != kernel.module) continue;
      const OwnedKernel made(clCreateKernel(program, kernel.name, &error));
      ASSERT_EQ(error, CL_SUCCESS) << kernel.name;
      cl_uint count = 0;
      RuntimeEntryPoint<decltype(clGetKernelInfo)>("clGetKernelInfo")(made.get(), CL_KERNEL_NUM_ARGS,
                                                                      sizeof count, &count, nullptr);
      EXPECT_EQ(count, kernel.count) << kernel.name;
      for (cl_uint i = 0; i < count && i < kernel.count; ++i) {
        EXPECT_EQ(ArgumentInfo(made.get(), i, CL_KERNEL_ARG_NAME), kernel.parameters[i].name)
            << kernel.name << " " << i;
        EXPECT_EQ(ArgumentInfo(made.get(), i, CL_KERNEL_ARG_TYPE_NAME), kernel.parameters[i].openCLType)
            << kernel.name << " " << kernel.parameters[i].name;
      }
    }
    clReleaseProgram(program);
  }
}

// CopyBufferToImageKernel takes its layout from the image: four channels a pixel and a pitch in pixels for
// RGBA, one channel and a pitch in bytes for CLK_R (each channel type once). The texture probe reads the
// image back over a larger extent: nearest texels, clamped to the edge.
TEST(KernelPixels, BufferToImageFollowsTheImageLayoutAndTheProbeClampsToTheEdge) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  const Program memory(cl, "Memory"), probe(cl, "TextureProbe");
  struct Case {
    cl_channel_order order;
    cl_channel_type type;
    int channelBytes, offset, pitch;
  };
  const int width = 5, height = 3, probeWidth = 7, probeHeight = 4;
  for (const Case& layout : {Case{CL_RGBA, CL_HALF_FLOAT, 2, 24, 7}, Case{CL_R, CL_UNORM_INT8, 1, 3, 9},
                             Case{CL_R, CL_FLOAT, 4, 8, 28}}) {
    SCOPED_TRACE(std::to_string(layout.order) + "/" + std::to_string(layout.type));
    const int channels = layout.order == CL_R ? 1 : 4;
    const int pitchBytes = channels == 1 ? layout.pitch : layout.pitch * 4 * layout.channelBytes;
    Bytes source(layout.offset + std::size_t(pitchBytes) * height, 0xEE);  // 0xEE where nothing may be read
    std::vector<float> expected;
    for (int i = 0; i < width * height * 4; ++i) {
      const int x = i / 4 % width, y = i / 4 / width, c = i % 4, n = x * 100 + y * 20 + c * 3 + 1;
      std::uint8_t* at = &source[layout.offset + y * pitchBytes + (x * channels + c) * layout.channelBytes];
      const std::uint16_t half = std::uint16_t(0x3C00 + n);  // 1 + n / 1024
      const float value = n * -0.125f;
      if (c >= channels) {
        expected.push_back(c == 3 ? 1.0f : 0.0f);
      } else if (layout.type == CL_HALF_FLOAT) {
        std::memcpy(at, &half, 2);
        expected.push_back(1.0f + n / 1024.0f);
      } else if (layout.type == CL_FLOAT) {
        std::memcpy(at, &value, 4);
        expected.push_back(value);
      } else {
        *at = std::uint8_t(n % 256);
        expected.push_back((n % 256) / 255.0f);
      }
    }
    cl_int error = CL_SUCCESS;
    const cl_image_format format = {layout.order, layout.type};
    cl_mem image = clCreateImage2D(cl.context, CL_MEM_READ_WRITE, &format, width, height, 0, nullptr, &error);
    cl_mem src = clCreateBuffer(cl.context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, source.size(),
                                source.data(), &error);
    std::vector<float> sampled(std::size_t(4) * probeWidth * probeHeight);
    cl_mem dst = clCreateBuffer(cl.context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, sampled.size() * 4,
                                sampled.data(), &error);
    EXPECT_EQ(Launch(cl, memory, "CopyBufferToImageKernel", width, height, src, layout.offset, layout.pitch,
                     image, width, height),
              CL_SUCCESS);
    EXPECT_EQ(Launch(cl, probe, "SampleTextureKernel", probeWidth, probeHeight, dst, probeWidth, 1,
                     probeWidth, probeHeight, 0, image),
              CL_SUCCESS);
    EXPECT_EQ(clEnqueueReadBuffer(cl.queue, dst, CL_TRUE, 0, sampled.size() * 4, sampled.data(), 0, nullptr,
                                  nullptr),
              CL_SUCCESS);
    for (cl_mem object : {image, src, dst}) clReleaseMemObject(object);
    for (std::size_t i = 0; i < sampled.size(); ++i) {
      const int x = i / 4 % probeWidth, y = i / 4 / probeWidth;
      ASSERT_NEAR(sampled[i],
                  expected[(std::min(y, height - 1) * width + std::min(x, width - 1)) * 4 + i % 4], 1e-6f)
          << "x " << x << ", y " << y << ", channel " << i % 4;
    }
  }
}

}  // namespace
