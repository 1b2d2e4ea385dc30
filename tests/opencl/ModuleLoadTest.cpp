// Registered OpenCL programs on the real runtime: a good text gives a program with its kernel, a bad one
// gives null and leaves nothing behind, and a loader constructed later reaches lookups once rebuilt.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "Devices/OpenCLBackend.h"
#include "Lumora/OpenCLModuleLoader.h"
#include "Modules/ModuleRegistry.h"
#include "OpenCLTestContext.h"

namespace {

// Loads module `name` and tells whether it offers `kernelName`; the program is released again.
bool LoadsWithKernel(const OpenCLTestContext& cl, const char* name, const char* kernelName) {
  std::string text;
  if (!LM::LookUpModuleImage(LM::kDeviceFramework_OpenCL, LM::kVendor_Unknown, 1.2, name, text)) return false;
  const cl_program program = LM::OpenCLBackend::BuildProgram(cl.context, cl.device, text);
  if (program == nullptr) return false;
  cl_int error = CL_SUCCESS;
  ReleaseKernel(clCreateKernel(program, kernelName, &error));
  clReleaseProgram(program);
  return error == CL_SUCCESS;
}

// Every program holds a reference on its context, so a leaked program shows here.
cl_uint ContextReferences(cl_context context) {
  cl_uint count = 0;
  RuntimeEntryPoint<decltype(clGetContextInfo)>("clGetContextInfo")(context, CL_CONTEXT_REFERENCE_COUNT,
                                                                    sizeof count, &count, nullptr);
  return count;
}

TEST(OpenCLModuleLoad, GoodTextsBuildBadOnesLeaveNothingAndLateOnesArrive) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  const char* sources[] = {
      "// module: Scale\n__kernel void Half(__global float* x) { x[get_global_id(0)] *= 0.5f; }",
      "// module: Broken\n__kernel void Broken(__global float* x) { x[0] = ; }"};
  LM::OpenCLModuleLoader first(sources, 2);
  EXPECT_TRUE(LoadsWithKernel(cl, "Scale", "Half"));
  const cl_uint references = ContextReferences(cl.context);
  EXPECT_FALSE(LoadsWithKernel(cl, "Broken", "Broken"));
  EXPECT_EQ(ContextReferences(cl.context), references) << "the program that failed to build was released";

  const char* late[] = {
      "// module: Late\n__kernel void Fill(__global float* x) { x[get_global_id(0)] = 1.0f; }"};
  LM::OpenCLModuleLoader second(late, 1);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!LM::IsModuleTableBuilt(LM::kDeviceFramework_OpenCL, 0) &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ASSERT_TRUE(LM::IsModuleTableBuilt(LM::kDeviceFramework_OpenCL, 0)) << "the posted rebuild did not run";
  EXPECT_TRUE(LoadsWithKernel(cl, "Late", "Fill"));
}

}  // namespace
