// The OpenCL queue on the real runtime: markers complete, kernels launch over the 2-D geometry, copies move
// bytes both ways, and bad launches become result codes.
#include <gtest/gtest.h>

#include <numeric>
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
    if (program != nullptr) clReleaseProgram(program);
  }
};

TEST(OpenCLQueues, UploadLaunchAndReadBack) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  LM::OpenCLCommandQueue queue(cl.context, cl.device, false);
  ASSERT_TRUE(queue.Valid());
  IndexKernel index(cl);

  const int width = 32, height = 48;  // a 2 x 3 grid of 16 x 16 blocks
  std::vector<int> host(width * height);
  std::iota(host.begin(), host.end(), 0);
  cl_int error = CL_SUCCESS;
  cl_mem buffer = clCreateBuffer(cl.context, CL_MEM_READ_WRITE, host.size() * sizeof(int), nullptr, &error);
  ASSERT_EQ(error, CL_SUCCESS);

  boost::shared_ptr<LM::Event> uploaded;
  ASSERT_EQ(queue.CopyHostToDevice(host.data(), buffer, host.size() * sizeof(int), &uploaded), LM::kResultSuccess);
  ASSERT_TRUE(uploaded);
  const int base = 7;
  ASSERT_EQ(clSetKernelArg(index.kernel, 0, sizeof buffer, &buffer), CL_SUCCESS);
  ASSERT_EQ(clSetKernelArg(index.kernel, 1, sizeof base, &base), CL_SUCCESS);
  boost::shared_ptr<LM::Event> launched;
  ASSERT_EQ(queue.LaunchKernel(index.kernel, 2, 3, 16, 16, &launched), LM::kResultSuccess);
  ASSERT_TRUE(launched);

  boost::shared_ptr<LM::Event> marker = queue.RecordEvent();
  ASSERT_TRUE(marker);
  marker->Wait();
  EXPECT_TRUE(marker->IsComplete());
  EXPECT_TRUE(launched->IsComplete()) << "a marker completes after the work queued before it";

  std::vector<int> result(host.size(), -1);
  boost::shared_ptr<LM::Event> read;
  ASSERT_EQ(queue.CopyDeviceToHost(buffer, result.data(), result.size() * sizeof(int), &read, false),
            LM::kResultSuccess);
  EXPECT_TRUE(read && read->IsComplete()) << "read-backs block";
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      ASSERT_EQ(result[y * width + x], host[y * width + x] + base + y * 1000 + x) << x << ", " << y;
    }
  }
  clReleaseMemObject(buffer);
}

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
