// The OpenCL memory managers on the installed runtime: real buffers and images (their formats read back
// from the runtime), released when purged, and host memory from the recycler.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <zelcore/Utility.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <cstring>
#include <vector>

#include "Lumora/PixelFormats.h"
#include "Memory/MemoryManagers.h"
#include "OpenCLTestContext.h"

namespace {

constexpr std::size_t kGiB = std::size_t(1) << 30;

// Queries the library does not bind, taken from the installed runtime directly.
struct RuntimeQueries {
  using GetImageInfo = cl_int (*)(cl_mem, cl_image_info, size_t, void*, size_t*);
  using GetMemObjectInfo = cl_int (*)(cl_mem, cl_mem_info, size_t, void*, size_t*);
  using RetainMemObject = cl_int (*)(cl_mem);
  void* library = dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_LOCAL);
  GetImageInfo getImageInfo =
      library ? reinterpret_cast<GetImageInfo>(dlsym(library, "clGetImageInfo")) : nullptr;
  GetMemObjectInfo getMemObjectInfo =
      library ? reinterpret_cast<GetMemObjectInfo>(dlsym(library, "clGetMemObjectInfo")) : nullptr;
  RetainMemObject retainMemObject =
      library ? reinterpret_cast<RetainMemObject>(dlsym(library, "clRetainMemObject")) : nullptr;

  template <class T>
  T Image(cl_mem image, cl_image_info what) const {
    T value{};
    EXPECT_EQ(getImageInfo(image, what, sizeof value, &value, nullptr), CL_SUCCESS);
    return value;
  }
  template <class T>
  T Memory(cl_mem memory, cl_mem_info what) const {
    T value{};
    EXPECT_EQ(getMemObjectInfo(memory, what, sizeof value, &value, nullptr), CL_SUCCESS);
    return value;
  }
};

TEST(MemoryPolicyOpenCL, DeviceMemoryIsABufferBySizeAndAnImageByShape) {
  LM_OPEN_OPENCL_OR_SKIP(cl);
  const RuntimeQueries runtime;
  ASSERT_TRUE(runtime.getImageInfo && runtime.getMemObjectInfo && runtime.retainMemObject);
  auto manager = LM::CreateOpenCLDeviceMemoryManager(cl.context, "device", 0, kGiB, 2 * kGiB, 0, {});
  ASSERT_TRUE(manager);

  std::size_t allocated = 0;
  auto buffer = static_cast<cl_mem>(manager->Allocate(1000, &allocated));
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(allocated, 1000u);
  EXPECT_EQ(runtime.Memory<cl_mem_object_type>(buffer, CL_MEM_TYPE),
            cl_mem_object_type(CL_MEM_OBJECT_BUFFER));
  EXPECT_EQ(runtime.Memory<size_t>(buffer, CL_MEM_SIZE), 1000u);

  struct Case {
    zelmediatypes::PixelFormat format;
    cl_channel_order order;
    cl_channel_type type;
  };
  const Case cases[] = {
      {LM::kPixelFormat_GPU_BGRA_4444_16f, CL_RGBA, CL_HALF_FLOAT},
      {LM::kPixelFormat_GPU_BGRX_4444_32f, CL_RGBA, CL_FLOAT},
      {zelmediatypes::kPixelFormat_BGRA_4444_8u, CL_RGBA, CL_UNORM_INT8},
      {zelmediatypes::kPixelFormat_UYVY_422_8u, CL_R, CL_UNORM_INT8},
  };
  std::vector<cl_mem> images;
  for (const Case& c : cases) {
    auto image = static_cast<cl_mem>(manager->Allocate(64, 32, c.format, &allocated));
    ASSERT_NE(image, nullptr) << c.format.code;
    images.push_back(image);
    EXPECT_EQ(allocated, zelmediatypes::PixelFormatSize(c.format, 64, 32));
    const auto format = runtime.Image<cl_image_format>(image, CL_IMAGE_FORMAT);
    EXPECT_EQ(format.image_channel_order, c.order) << c.format.code;
    EXPECT_EQ(format.image_channel_data_type, c.type) << c.format.code;
    EXPECT_EQ(runtime.Image<size_t>(image, CL_IMAGE_WIDTH), 64u);
    EXPECT_EQ(runtime.Image<size_t>(image, CL_IMAGE_HEIGHT), 32u);
  }
  EXPECT_EQ(manager->Allocate(0, 32, LM::kPixelFormat_GPU_BGRA_4444_16f, nullptr), nullptr);

  // Purging releases each object once: an extra reference taken here is all that is left.
  ASSERT_EQ(runtime.retainMemObject(images[0]), CL_SUCCESS);
  manager->Release(buffer, {});
  for (cl_mem image : images) manager->Release(image, {});
  manager->Purge(~std::size_t(0));
  std::size_t live = 1;
  manager->GetStatistics(nullptr, nullptr, &live, nullptr, nullptr);
  EXPECT_EQ(live, 0u);
  EXPECT_EQ(runtime.Memory<cl_uint>(images[0], CL_MEM_REFERENCE_COUNT), 1u);
  EXPECT_EQ(clReleaseMemObject(images[0]), CL_SUCCESS);
}

TEST(MemoryPolicyOpenCL, AnInvalidContextGivesNull) {
  auto manager = LM::CreateOpenCLDeviceMemoryManager(nullptr, "device", 0, kGiB, 2 * kGiB, 0, {});
  EXPECT_EQ(manager->Allocate(1000, nullptr), nullptr);
  EXPECT_EQ(manager->Allocate(64, 32, LM::kPixelFormat_GPU_BGRA_4444_16f, nullptr), nullptr);
}

TEST(MemoryPolicyOpenCL, HostMemoryComesFromTheRecyclerAtItsActualSize) {
  using zelcore::utility::MemoryRecycler;
  auto manager = LM::CreateOpenCLHostMemoryManager("host", 0, kGiB, 2 * kGiB, 0, {});
  std::size_t allocated = 0;
  void* block = manager->Allocate(10000, &allocated);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(allocated, 3 * MemoryRecycler::kGranularity);
  std::memset(block, 0x5a, allocated);
  std::size_t total = 0;
  manager->GetStatistics(&total, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(total, allocated);

  manager->Release(block, {});
  EXPECT_EQ(manager->Allocate(allocated, nullptr), block) << "recorded under the recycler's size";
  manager->Release(block, {});
  const std::size_t cachedBefore = MemoryRecycler::CachedBytes();
  EXPECT_EQ(manager->Purge(1), allocated);
  EXPECT_EQ(MemoryRecycler::CachedBytes(), cachedBefore + allocated) << "recycled, not freed";
}

}  // namespace
