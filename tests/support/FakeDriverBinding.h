// Binds the library's CUDA driver table to a fake driver file and hands out the fake's controls.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "FakeCUDAControl.h"
#include "Runtime/CUDADriverTable.h"

// Points the binder at `path`, binds for API 4.0 and returns the fake's controls (a failed bind fails the
// test that asked).
inline std::unique_ptr<FakeCUDA> BindFakeDriver(const char* path = FAKECUDA_PATH) {
  LM::CUDADriverLibraryName = path;
  auto fake = std::make_unique<FakeCUDA>(path);
  EXPECT_EQ(LM::BindCUDADriver(0, 4000), 0) << "binding " << path;
  fake->fakecuda_ClearCallLog();
  return fake;
}

// A context of the fake's first device, current on this thread for the object's life: what module loading
// needs, as on the real driver.
class CurrentFakeContext {
 public:
  CurrentFakeContext() { EXPECT_EQ(LM::CUDA.cuCtxCreate(&context_, 0, 0), CUDA_SUCCESS); }
  ~CurrentFakeContext() { LM::CUDA.cuCtxDestroy(context_); }
  CurrentFakeContext(const CurrentFakeContext&) = delete;
  CurrentFakeContext& operator=(const CurrentFakeContext&) = delete;

 private:
  CUcontext context_ = nullptr;
};
