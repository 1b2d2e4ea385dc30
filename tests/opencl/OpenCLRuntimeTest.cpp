// The OpenCL path on the installed runtime (PoCL here), below a started device: the entry points bound on
// first use, the queue's result codes and free waits, and the memory managers' buffers, images and host
// memory. Each test runs in its own process, so each sees a first use.
#include <gtest/gtest.h>
#include <zelcore/Utility.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "Lumora/PixelFormats.h"
#include "Lumora/Results.h"
#include "Lumora/Runtime.h"
#include "Memory/MemoryManagers.h"
#include "OpenCLTestContext.h"
#include "Queues/OpenCLQueues.h"

namespace {

constexpr std::size_t kGiB = std::size_t(1) << 30;

// A bad handle reaches the runtime, which answers with its own error.
TEST(OpenCLEntryPoints, TheInstalledRuntimeIsReachedOnFirstUse) {
  cl_uint platforms = 0;
  ASSERT_EQ(clGetPlatformIDs(0, nullptr, &platforms), CL_SUCCESS) << "is an OpenCL runtime (PoCL) installed?";
  ASSERT_GT(platforms, 0u);
  cl_platform_id platform = nullptr;
  ASSERT_EQ(clGetPlatformIDs(1, &platform, nullptr), CL_SUCCESS);
  char name[256] = {};
  EXPECT_EQ(clGetPlatformInfo(platform, CL_PLATFORM_NAME, sizeof name, name, nullptr), CL_SUCCESS);
  EXPECT_GT(std::strlen(name), 0u);
  EXPECT_NE(clGetPlatformInfo(platform, 0xFFFF, sizeof name, name, nullptr), CL_SUCCESS);
}

// Bad launches and copies become result codes and hand back no event; waits for events of this queue, for
// completed ones or for none enqueue nothing to wait on.
TEST(OpenCLQueues, BadLaunchesAndCopiesBecomeResultCodesAndWaitsThatNeedNothingAreFree) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  LM::OpenCLCommandQueue queue(cl.context, cl.device, false), other(cl.context, cl.device, false);
  const char* source = "__kernel void Index(__global int* out) { out[get_global_id(0)] = 1; }";
  cl_int error = CL_SUCCESS;
  const cl_program program = clCreateProgramWithSource(cl.context, 1, &source, nullptr, &error);
  ASSERT_EQ(clBuildProgram(program, 1, &cl.device, nullptr, nullptr, nullptr), CL_SUCCESS);
  const OwnedKernel kernel(clCreateKernel(program, "Index", &error));
  boost::shared_ptr<LM::Event> done = queue.RecordEvent();
  EXPECT_EQ(queue.LaunchKernel(nullptr, 1, 1, 16, 16, &done), LM::kResultFailed);
  EXPECT_FALSE(done);
  EXPECT_EQ(queue.LaunchKernel(kernel.get(), 0, 1, 16, 16, nullptr), LM::kResultFailed);
  EXPECT_EQ(queue.LaunchKernel(kernel.get(), -3, 1, 16, 16, nullptr), LM::kResultFailed);
  int host[4] = {};
  EXPECT_EQ(queue.CopyHostToDevice(host, nullptr, sizeof host, &done), LM::kResultFailed);
  EXPECT_FALSE(done);
  EXPECT_EQ(queue.CopyDeviceToHost(nullptr, host, sizeof host, nullptr, true), LM::kResultFailed);

  boost::shared_ptr<LM::Event> own = queue.RecordEvent(), foreign = other.RecordEvent();
  queue.WaitForEvent(own);
  foreign->Wait();
  queue.WaitForEvent(foreign);
  queue.WaitForEvent(boost::shared_ptr<LM::Event>());
  queue.RecordEvent()->Wait();
  EXPECT_TRUE(own->IsComplete());
  clReleaseProgram(program);
}

// A property of a memory object through `query` (clGetMemObjectInfo or clGetImageInfo).
template <class T>
T Info(const char* query, cl_mem memory, cl_uint what) {
  const auto get = RuntimeEntryPoint<cl_int(cl_mem, cl_uint, size_t, void*, size_t*)>(query);
  T value{};
  EXPECT_TRUE(get != nullptr && get(memory, what, sizeof value, &value, nullptr) == CL_SUCCESS) << query;
  return value;
}

// Device memory is a buffer by size and an image by shape, whose channel order and type follow the pixel
// format's bits; purging releases each object once.
TEST(MemoryPolicyOpenCL, DeviceMemoryIsABufferBySizeAndAnImageByShapeFreedWhenPurged) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  auto manager = LM::CreateOpenCLDeviceMemoryManager(cl.context, "device", 0, kGiB, 2 * kGiB, 0, {});
  std::size_t allocated = 0;
  auto buffer = static_cast<cl_mem>(manager->Allocate(1000, &allocated));
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(allocated, 1000u);
  EXPECT_EQ(Info<cl_mem_object_type>("clGetMemObjectInfo", buffer, CL_MEM_TYPE),
            cl_mem_object_type(CL_MEM_OBJECT_BUFFER));
  EXPECT_EQ(Info<size_t>("clGetMemObjectInfo", buffer, CL_MEM_SIZE), 1000u);
  const std::tuple<zelmediatypes::PixelFormat, cl_channel_order, cl_channel_type> cases[] = {
      {LM::kPixelFormat_GPU_BGRA_4444_16f, CL_RGBA, CL_HALF_FLOAT},
      {LM::kPixelFormat_GPU_BGRX_4444_32f, CL_RGBA, CL_FLOAT},
      {zelmediatypes::kPixelFormat_BGRA_4444_8u, CL_RGBA, CL_UNORM_INT8},
      {zelmediatypes::kPixelFormat_UYVY_422_8u, CL_R, CL_UNORM_INT8}};
  std::vector<cl_mem> images;
  for (const auto& [pixelFormat, order, type] : cases) {
    auto image = static_cast<cl_mem>(manager->Allocate(64, 32, pixelFormat, &allocated));
    ASSERT_NE(image, nullptr) << pixelFormat.code;
    images.push_back(image);
    EXPECT_EQ(allocated, zelmediatypes::PixelFormatSize(pixelFormat, 64, 32));
    const auto format = Info<cl_image_format>("clGetImageInfo", image, CL_IMAGE_FORMAT);
    EXPECT_EQ((std::vector<unsigned>{format.image_channel_order, format.image_channel_data_type}),
              (std::vector<unsigned>{order, type}))
        << pixelFormat.code;
    EXPECT_EQ(Info<size_t>("clGetImageInfo", image, CL_IMAGE_WIDTH), 64u);
    EXPECT_EQ(Info<size_t>("clGetImageInfo", image, CL_IMAGE_HEIGHT), 32u);
  }
  EXPECT_EQ(manager->Allocate(0, 32, LM::kPixelFormat_GPU_BGRA_4444_16f, nullptr), nullptr);

  // An extra reference taken here is all that is left after the purge.
  ASSERT_EQ(RuntimeEntryPoint<cl_int(cl_mem)>("clRetainMemObject")(images[0]), CL_SUCCESS);
  manager->Release(buffer, {});
  for (cl_mem image : images) manager->Release(image, {});
  manager->Purge(~std::size_t(0));
  std::size_t live = 1;
  manager->GetStatistics(nullptr, nullptr, &live, nullptr, nullptr);
  EXPECT_EQ(live, 0u);
  EXPECT_EQ(Info<cl_uint>("clGetMemObjectInfo", images[0], CL_MEM_REFERENCE_COUNT), 1u);
  EXPECT_EQ(clReleaseMemObject(images[0]), CL_SUCCESS);
}

// Host memory comes from the recycler, recorded under the recycler's size, and goes back to it when purged.
TEST(MemoryPolicyOpenCL, HostMemoryComesFromTheRecyclerAtItsActualSize) {
  using zelcore::utility::MemoryRecycler;
  auto manager = LM::CreateOpenCLHostMemoryManager("host", 0, kGiB, 2 * kGiB, 0, {});
  std::size_t allocated = 0;
  void* block = manager->Allocate(10000, &allocated);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(allocated, 3 * MemoryRecycler::kGranularity);
  std::memset(block, 0x5a, allocated);
  manager->Release(block, {});
  EXPECT_EQ(manager->Allocate(allocated, nullptr), block);
  manager->Release(block, {});
  const std::size_t cachedBefore = MemoryRecycler::CachedBytes();
  EXPECT_EQ(manager->Purge(1), allocated);
  EXPECT_EQ(MemoryRecycler::CachedBytes(), cachedBefore + allocated) << "recycled, not freed";
}

}  // namespace
