// The host-side cost of one FillWithColor with a warm kernel cache, on the fake CUDA driver: the fake does no
// work, so what is measured is the library's own cost per call (the operand checks, the cache check, the
// argument marshalling and the launch call), with the heap allocations it makes. The argument is the
// switch "LM.CheckBufferBounds": 1 asks the driver for the buffer's allocation on every call, 0 does not.
#include <benchmark/benchmark.h>

#include "AllocationCounter.h"
#include "FakeCUDAControl.h"
#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Runtime.h"
#include "Runtime/CUDADriverTable.h"
#include "zelcore/Debug.h"

namespace {

// The module folder is the program's own: the build writes the PTX modules beside it.
void BM_FillWithColorHostCost(benchmark::State& state) {
  LM::CUDADriverLibraryName = FAKECUDA_PATH;
  FakeCUDA fake(FAKECUDA_PATH);
  if (LM::BindCUDADriver(0, 4000) != 0) return state.SkipWithError("cannot bind the fake driver");
  zelcore::debug::DebugDatabase::Instance().Set("LM.CheckBufferBounds", state.range(0) ? "1" : "0");
  boost::shared_ptr<LM::Device> device = LM::Device::Create(0, 0, 0);
  device->InitializeContext();
  const LM::ExclusiveAccess access(*device);
  fake.fakecuda_SetRecording(0);
  // A block the driver knows, so that the bounds check finds its allocation.
  void* buffer = device->GetDeviceMemory()->Allocate(64, nullptr);
  if (buffer == nullptr) return state.SkipWithError("no device memory");
  const LM::float4 color = {0.25f, 0.5f, 0.75f, 1.0f};
  if (LM::FillWithColor(device, buffer, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1, color) != 0) {
    return state.SkipWithError("no Fills module (was nvcc found?)");
  }
  const long long before = HeapAllocations();
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        LM::FillWithColor(device, buffer, 64, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0, 1, 1, color));
  }
  state.counters["heap_allocations_per_call"] =
      static_cast<double>(HeapAllocations() - before) / static_cast<double>(state.iterations());
  device->GetDeviceMemory()->Release(buffer, {});
}

}  // namespace

BENCHMARK(BM_FillWithColorHostCost)->ArgName("CheckBufferBounds")->Arg(0)->Arg(1);
