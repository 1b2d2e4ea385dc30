// Image operations: the throughput of FillWithColor and FastDeviceMemcpy2D on one 3840 x 2160 frame of four
// 32-bit floats on the OpenCL device (PoCL on this project's machines, so CPU bandwidth, compared with
// BM_Memcpy), and the host-side cost of one FillWithColor with a warm kernel cache on the fake CUDA driver,
// with the heap allocations it makes.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>
#include <zelcore/Debug.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#if !defined(LUMORA_BENCH_WITHOUT_FAKE_DRIVER)
#include "FakeCUDAControl.h"
#endif
#include "AllocationCounter.h"
#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Runtime.h"
#include "Runtime/CUDADriverTable.h"
#include "Runtime/OpenCLEntryPoints.h"

namespace {

constexpr int kWidth = 3840;
constexpr int kHeight = 2160;
constexpr int kRowBytes = kWidth * 16;
constexpr std::size_t kFrameBytes = static_cast<std::size_t>(kRowBytes) * kHeight;

boost::shared_ptr<LM::Device> OpenCLDevice() {
  static boost::shared_ptr<LM::Device> device = [] {
    zelcore::debug::DebugDatabase::Instance().Set("LM.EnableOpenCL", "1");
    zelcore::debug::DebugDatabase::Instance().Set("LM.OpenCLIncludeCPUDevices", "1");
    LM::CUDADriverLibraryName = "/nonexistent/libcuda.so.1";
    LM::Initialize(true);
    boost::shared_ptr<LM::Device> found = LM::GetPrimaryDevice(LM::kDeviceFramework_OpenCL);
    return found && found->WaitForContext() ? found : boost::shared_ptr<LM::Device>();
  }();
  return device;
}

cl_mem Buffer(const LM::Device& device) {
  cl_int error = CL_SUCCESS;
  return clCreateBuffer(static_cast<cl_context>(device.GetContextHandle()), CL_MEM_READ_WRITE, kFrameBytes, nullptr,
                        &error);
}

void Finish(const LM::Device& device) {
  clFinish(static_cast<cl_command_queue>(device.GetCommandQueue()->GetNativeQueue()));
}

void BM_FillWithColor(benchmark::State& state) {
  boost::shared_ptr<LM::Device> device = OpenCLDevice();
  if (!device) return state.SkipWithError("no OpenCL device");
  device->AcquireExclusiveAccess();
  cl_mem buffer = Buffer(*device);
  const LM::float4 color = {0.25f, 0.5f, 0.75f, 1.0f};
  LM::FillWithColor(device, buffer, kRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, kWidth, kHeight, color);
  Finish(*device);
  for (auto _ : state) {
    LM::FillWithColor(device, buffer, kRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, kWidth, kHeight, color);
    Finish(*device);
  }
  // Bytes written.
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFrameBytes));
  clReleaseMemObject(buffer);
  device->ReleaseExclusiveAccess();
}

void BM_FastDeviceMemcpy2D(benchmark::State& state) {
  boost::shared_ptr<LM::Device> device = OpenCLDevice();
  if (!device) return state.SkipWithError("no OpenCL device");
  device->AcquireExclusiveAccess();
  cl_mem source = Buffer(*device);
  cl_mem destination = Buffer(*device);
  LM::FillWithOpaqueWhite(device, source, kRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, kWidth, kHeight);
  LM::FastDeviceMemcpy2D(device, source, kRowBytes, destination, kRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, kWidth,
                         kHeight);
  Finish(*device);
  for (auto _ : state) {
    LM::FastDeviceMemcpy2D(device, source, kRowBytes, destination, kRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f,
                           kWidth, kHeight);
    Finish(*device);
  }
  // Bytes read and written.
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 2 * static_cast<int64_t>(kFrameBytes));
  clReleaseMemObject(source);
  clReleaseMemObject(destination);
  device->ReleaseExclusiveAccess();
}

// The fake driver does no work, so what is measured is the library's own cost per call: the cache check,
// the argument marshalling and the launch call.
#if !defined(LUMORA_BENCH_WITHOUT_FAKE_DRIVER)
void BM_FillWithColorHostCost(benchmark::State& state) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("lumora-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder / "PTX");
  std::ofstream(folder / "PTX" / "Fills_NVIDIA.ptx") << ".version 8.0\n";
  setenv("LUMORA_EXECUTABLE_DIR", folder.c_str(), 1);
  LM::CUDADriverLibraryName = FAKECUDA_PATH;
  FakeCUDA fake(FAKECUDA_PATH);
  if (LM::BindCUDADriver(0, 4000) != 0) return state.SkipWithError("cannot bind the fake driver");
  boost::shared_ptr<LM::Device> device = LM::Device::Create(0, 0, 0);
  device->InitializeContext();
  device->AcquireExclusiveAccess();
  fake.fakecuda_SetRecording(0);
  char buffer[64];
  const LM::float4 color = {0.25f, 0.5f, 0.75f, 1.0f};
  LM::FillWithColor(device, buffer, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1, color);  // warms the cache
  const long long before = HeapAllocations();
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        LM::FillWithColor(device, buffer, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1, color));
  }
  state.counters["heap_allocations_per_call"] =
      static_cast<double>(HeapAllocations() - before) / static_cast<double>(state.iterations());
  device->ReleaseExclusiveAccess();
  std::filesystem::remove_all(folder);
}
BENCHMARK(BM_FillWithColorHostCost);
#endif

}  // namespace

BENCHMARK(BM_FillWithColor)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FastDeviceMemcpy2D)->Unit(benchmark::kMillisecond)->UseRealTime();
