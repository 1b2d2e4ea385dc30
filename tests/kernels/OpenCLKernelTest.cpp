// The embedded OpenCL texts on the installed runtime (PoCL): each registered module builds and offers every
// kernel declared for it, with the parameter names and types of its list. Their pixels (the OpenCL-only
// buffer-to-image kernel's among them, behind every texture) are checked on every device in tests/devices.
#include <gtest/gtest.h>

#include <set>

#include "CheckedKernels.h"
#include "Devices/OpenCLBackend.h"
#include "Modules/ModuleRegistry.h"
#include "OpenCLTestContext.h"

namespace {

std::string ModuleText(const std::string& module) {
  std::string text;
  EXPECT_TRUE(LM::LookUpModuleImage(LM::kDeviceFramework_OpenCL, LM::kVendor_Unknown, 1.2, module, text))
      << module;
  return text;
}

// The text of an argument's property.
std::string ArgumentInfo(cl_kernel kernel, cl_uint index, cl_kernel_arg_info what) {
  char text[256] = {};
  return RuntimeEntryPoint<decltype(clGetKernelArgInfo)>("clGetKernelArgInfo")(
             kernel, index, what, sizeof text - 1, text, nullptr) == CL_SUCCESS
             ? text
             : "?";
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
    // Built the way the library builds it.
    const cl_program built =
        LM::OpenCLBackend::BuildProgram(cl.context, cl.device, ModuleText(record.moduleName));
    ASSERT_NE(built, nullptr) << record.moduleName << " does not build";
    clReleaseProgram(built);
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

}  // namespace
