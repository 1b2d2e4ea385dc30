// The library started on the installed OpenCL runtime (PoCL's CPU device here) with its first device's
// context up and held, plus helpers to move bytes in and out of device buffers. Tests that use it skip
// when there is no OpenCL device.
#pragma once

#include <gtest/gtest.h>
#include <zelcore/Debug.h>

#include <cstring>
#include <string>
#include <vector>

#include "Lumora/Device.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Results.h"
#include "Lumora/Runtime.h"
#include "Runtime/OpenCLEntryPoints.h"

class StartedOpenCLDevice : public testing::Test {
 protected:
  void SetUp() override {
    zelcore::debug::DebugDatabase::Instance().Set("LM.EnableOpenCL", "1");
    zelcore::debug::DebugDatabase::Instance().Set("LM.OpenCLIncludeCPUDevices", "1");
    LM::CUDADriverLibraryName = "/nonexistent/libcuda.so.1";  // OpenCL only, whatever the machine has
    testing::internal::CaptureStdout();
    LM::Initialize(true);
    testing::internal::GetCapturedStdout();
    device_ = LM::GetPrimaryDevice(LM::kDeviceFramework_OpenCL);
    if (!device_ || !device_->WaitForContext()) GTEST_SKIP() << "no OpenCL device with a context";
    device_->AcquireExclusiveAccess();
    held_ = true;
  }
  void TearDown() override {
    for (cl_mem buffer : buffers_) clReleaseMemObject(buffer);
    if (held_) device_->ReleaseExclusiveAccess();
    device_.reset();
    LM::Terminate();
  }

  // A device buffer holding `bytes` (released at the end of the test). Uploads are asynchronous, so this
  // waits for the copy: the caller's bytes may go as soon as it returns.
  void* Upload(const std::vector<unsigned char>& bytes) {
    cl_int error = CL_SUCCESS;
    cl_mem buffer = clCreateBuffer(static_cast<cl_context>(device_->GetContextHandle()), CL_MEM_READ_WRITE,
                                   bytes.size(), nullptr, &error);
    EXPECT_EQ(error, CL_SUCCESS);
    buffers_.push_back(buffer);
    boost::shared_ptr<LM::Event> uploaded;
    EXPECT_EQ(device_->GetCommandQueue()->CopyHostToDevice(bytes.data(), buffer, bytes.size(), &uploaded),
              LM::kResultSuccess);
    if (uploaded) uploaded->Wait();
    return buffer;
  }
  // The buffer's bytes once the work queued before has finished.
  std::vector<unsigned char> Download(const void* buffer, std::size_t size) {
    std::vector<unsigned char> bytes(size);
    EXPECT_EQ(device_->GetCommandQueue()->CopyDeviceToHost(buffer, bytes.data(), size, nullptr, true),
              LM::kResultSuccess);
    return bytes;
  }

  boost::shared_ptr<LM::Device> device_;

 private:
  bool held_ = false;
  std::vector<cl_mem> buffers_;
};

// IEEE 754 binary16 of a float, rounded to nearest even: the reference the 16f results are checked against.
inline unsigned short ToHalf(float value) {
  unsigned int bits;
  std::memcpy(&bits, &value, sizeof bits);
  const unsigned int sign = (bits >> 16) & 0x8000u;
  const int exponent = static_cast<int>((bits >> 23) & 0xFF);
  unsigned int mantissa = bits & 0x7FFFFFu;
  if (exponent == 0xFF) return static_cast<unsigned short>(sign | 0x7C00u | (mantissa ? 0x200u : 0));
  int halfExponent = exponent - 127 + 15;
  if (halfExponent >= 31) return static_cast<unsigned short>(sign | 0x7C00u);
  if (halfExponent <= 0) {
    if (halfExponent < -10) return static_cast<unsigned short>(sign);
    mantissa |= 0x800000u;
    const int shift = 14 - halfExponent;
    unsigned int half = mantissa >> shift;
    const unsigned int rest = mantissa & ((1u << shift) - 1);
    const unsigned int halfway = 1u << (shift - 1);
    if (rest > halfway || (rest == halfway && (half & 1u))) ++half;
    return static_cast<unsigned short>(sign | half);
  }
  unsigned int half = (static_cast<unsigned int>(halfExponent) << 10) | (mantissa >> 13);
  const unsigned int rest = mantissa & 0x1FFFu;
  if (rest > 0x1000u || (rest == 0x1000u && (half & 1u))) ++half;
  return static_cast<unsigned short>(sign | half);
}
