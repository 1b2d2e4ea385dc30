// The host-side cost of one FillWithColor with a warm kernel cache, on the fake CUDA driver: the fake does no
// work, so what is measured is the library's own cost per call (the cache check, the argument marshalling
// and the launch call), with the heap allocations it makes.
#include <benchmark/benchmark.h>

#include "AllocationCounter.h"
#include "FakeCUDAControl.h"
#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Runtime.h"
#include "Runtime/CUDADriverTable.h"

namespace {

// The module folder is the program's own: the build writes the PTX modules beside it.
void BM_FillWithColorHostCost(benchmark::State& state) {
  LM::CUDADriverLibraryName = FAKECUDA_PATH;
  FakeCUDA fake(FAKECUDA_PATH);
  if (LM::BindCUDADriver(0, 4000) != 0) return state.SkipWithError("cannot bind the fake driver");
  boost::shared_ptr<LM::Device> device = LM::Device::Create(0, 0, 0);
  device->InitializeContext();
  const LM::ExclusiveAccess access(*device);
  fake.fakecuda_SetRecording(0);
  char buffer[64];
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
}

}  // namespace

BENCHMARK(BM_FillWithColorHostCost);
