// The OpenCL memory managers on the installed runtime: real buffers and images (their formats read back
// from the runtime), released when purged, and host memory from the recycler.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <zelcore/Utility.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "Lumora/PixelFormats.h"
#include "Memory/MemoryManagers.h"
#include "OpenCLTestContext.h"

namespace {

constexpr std::size_t kGiB = std::size_t(1) << 30;

// An entry point the library does not bind, from the installed runtime.
template <class Function>
Function Runtime(const char* name) {
  static void* const runtime = dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_LOCAL);
  return reinterpret_cast<Function>(runtime != nullptr ? dlsym(runtime, name) : nullptr);
}

// A property of a memory object through `query` (clGetMemObjectInfo or clGetImageInfo).
template <class T>
T Info(const char* query, cl_mem memory, cl_uint what) {
  const auto get = Runtime<cl_int (*)(cl_mem, cl_uint, size_t, void*, size_t*)>(query);
  T value{};
  EXPECT_TRUE(get != nullptr && get(memory, what, sizeof value, &value, nullptr) == CL_SUCCESS) << query;
  return value;
}

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

  // The channel order and type follow the pixel format's bits.
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
    EXPECT_EQ(format.image_channel_order, order) << pixelFormat.code;
    EXPECT_EQ(format.image_channel_data_type, type) << pixelFormat.code;
    EXPECT_EQ(Info<size_t>("clGetImageInfo", image, CL_IMAGE_WIDTH), 64u);
    EXPECT_EQ(Info<size_t>("clGetImageInfo", image, CL_IMAGE_HEIGHT), 32u);
  }
  EXPECT_EQ(manager->Allocate(0, 32, LM::kPixelFormat_GPU_BGRA_4444_16f, nullptr), nullptr);

  // Purging releases each object once: an extra reference taken here is all that is left.
  const auto retain = Runtime<cl_int (*)(cl_mem)>("clRetainMemObject");
  ASSERT_TRUE(retain != nullptr && retain(images[0]) == CL_SUCCESS);
  manager->Release(buffer, {});
  for (cl_mem image : images) manager->Release(image, {});
  manager->Purge(~std::size_t(0));
  std::size_t live = 1;
  manager->GetStatistics(nullptr, nullptr, &live, nullptr, nullptr);
  EXPECT_EQ(live, 0u);
  EXPECT_EQ(Info<cl_uint>("clGetMemObjectInfo", images[0], CL_MEM_REFERENCE_COUNT), 1u);
  EXPECT_EQ(clReleaseMemObject(images[0]), CL_SUCCESS);
}

TEST(MemoryPolicyOpenCL, HostMemoryComesFromTheRecyclerAtItsActualSize) {
  using zelcore::utility::MemoryRecycler;
  auto manager = LM::CreateOpenCLHostMemoryManager("host", 0, kGiB, 2 * kGiB, 0, {});
  std::size_t allocated = 0;
  void* block = manager->Allocate(10000, &allocated);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(allocated, 3 * MemoryRecycler::kGranularity);
  std::memset(block, 0x5a, allocated);
  manager->Release(block, {});
  EXPECT_EQ(manager->Allocate(allocated, nullptr), block) << "recorded under the recycler's size";
  manager->Release(block, {});
  const std::size_t cachedBefore = MemoryRecycler::CachedBytes();
  EXPECT_EQ(manager->Purge(1), allocated);
  EXPECT_EQ(MemoryRecycler::CachedBytes(), cachedBefore + allocated) << "recycled, not freed";
}

}  // namespace
