// The OpenCL queue on the real runtime, beyond what every pixel test does through it (upload, launch, read
// back): bad launches and copies become result codes, and waits that need nothing enqueue nothing.
#include <gtest/gtest.h>

#include <vector>

#include "Lumora/Results.h"
#include "OpenCLTestContext.h"
#include "Queues/OpenCLQueues.h"

namespace {

const char* kSource =
    "__kernel void Index(__global int* out, int base) {\n"
    "  const int x = get_global_id(0), y = get_global_id(1);\n"
    "  out[y * get_global_size(0) + x] += base + y * 1000 + x;\n"
    "}\n";

struct IndexKernel {
  cl_program program = nullptr;
  cl_kernel kernel = nullptr;
  explicit IndexKernel(const OpenCLTestContext& cl) {
    cl_int error = CL_SUCCESS;
    program = clCreateProgramWithSource(cl.context, 1, &kSource, nullptr, &error);
    EXPECT_EQ(error, CL_SUCCESS);
    EXPECT_EQ(clBuildProgram(program, 1, &cl.device, nullptr, nullptr, nullptr), CL_SUCCESS);
    kernel = clCreateKernel(program, "Index", &error);
    EXPECT_EQ(error, CL_SUCCESS);
  }
  ~IndexKernel() {
    ReleaseKernel(kernel);
    if (program != nullptr) clReleaseProgram(program);
  }
};

TEST(OpenCLQueues, BadLaunchesAndCopiesBecomeResultCodes) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  LM::OpenCLCommandQueue queue(cl.context, cl.device, false);
  IndexKernel index(cl);
  boost::shared_ptr<LM::Event> done = queue.RecordEvent();
  EXPECT_EQ(queue.LaunchKernel(nullptr, 1, 1, 16, 16, &done), LM::kResultFailed);
  EXPECT_FALSE(done);
  EXPECT_EQ(queue.LaunchKernel(index.kernel, 0, 1, 16, 16, nullptr), LM::kResultFailed);
  EXPECT_EQ(queue.LaunchKernel(index.kernel, -3, 1, 16, 16, nullptr), LM::kResultFailed);
  int host[4] = {};
  EXPECT_EQ(queue.CopyHostToDevice(host, nullptr, sizeof host, &done), LM::kResultFailed);
  EXPECT_FALSE(done);
  EXPECT_EQ(queue.CopyDeviceToHost(nullptr, host, sizeof host, nullptr, true), LM::kResultFailed);
}

TEST(OpenCLQueues, WaitingForEventsOfThisQueueOrCompletedOnesIsFree) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  LM::OpenCLCommandQueue queue(cl.context, cl.device, false);
  LM::OpenCLCommandQueue other(cl.context, cl.device, false);
  boost::shared_ptr<LM::Event> own = queue.RecordEvent();
  queue.WaitForEvent(own);
  boost::shared_ptr<LM::Event> foreign = other.RecordEvent();
  foreign->Wait();
  queue.WaitForEvent(foreign);
  queue.WaitForEvent(boost::shared_ptr<LM::Event>());
  boost::shared_ptr<LM::Event> last = queue.RecordEvent();
  last->Wait();
  EXPECT_TRUE(own->IsComplete());
}

}  // namespace
