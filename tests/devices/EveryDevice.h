// The fixture of the pixel tests: each test runs once on every qualified device this process can start
// (PoCL's CPU device here; CUDA and NVIDIA's OpenCL on an NVIDIA machine), named Suite.Test/OpenCL_0,
// .../CUDA_0. Buffers come from the device's pool and bytes move through its queue, so tests make no
// framework call.
#pragma once

#include <gtest/gtest.h>

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "GPUPixels.h"
#include "Lumora/Device.h"

using Bytes = std::vector<std::uint8_t>;
using Pixel = LM::float4;

struct DeviceUnderTest {
  unsigned int registryIndex;
  std::string name;  // the framework and the device's index in it: "OpenCL_0", "CUDA_0"
};

// The qualified devices whose context started. The first call starts the library; main stops it.
const std::vector<DeviceUnderTest>& DevicesUnderTest();

class EveryDevice : public testing::TestWithParam<DeviceUnderTest> {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A block of the device pool (a CUDA device address or an OpenCL buffer), handed back after the test.
  void* Allocate(std::size_t bytes);
  // A block holding `bytes`; waits for the upload, so the caller's bytes may go when it returns.
  void* Upload(const Bytes& bytes);
  // The block's first `size` bytes once the work queued before has finished.
  Bytes Download(const void* block, std::size_t size);
  void* UploadPixels(const std::vector<Pixel>& pixels, LM::PixelFormat format) {
    return Upload(GPUBytes(pixels, format));
  }
  std::vector<Pixel> DownloadPixels(const void* block, std::size_t count, LM::PixelFormat format) {
    return GPUPixels(Download(block, count * PixelBytes(format)), format);
  }
  // Where `bytes` into a block lies, as operations take it: an address on CUDA; on OpenCL only the
  // difference from the block means anything (BindTexture's data − base).
  static const void* At(const void* block, std::size_t bytes) {
    return static_cast<const char*>(block) + bytes;
  }

  boost::shared_ptr<LM::Device> device_;

 private:
  std::optional<LM::ExclusiveAccess> access_;
  std::vector<void*> blocks_;
};

// Runs every TEST_P of `Suite` (an EveryDevice) on every device under test.
#define LM_ON_EVERY_DEVICE(Suite)                                                           \
  INSTANTIATE_TEST_SUITE_P(                                                                 \
      Device, Suite, testing::ValuesIn(DevicesUnderTest()),                                 \
      [](const testing::TestParamInfo<DeviceUnderTest>& info) { return info.param.name; }); \
  GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Suite)
