// The bandwidth reference of the machine: a plain memcpy of one 3840 x 2160 frame of four 32-bit floats per
// pixel, counted as bytes read plus bytes written (as the copy kernel's benchmark counts them). GPU
// operations measured on the CPU through OpenCL are compared against its bytes per second.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

constexpr std::size_t kFrameBytes = std::size_t(3840) * 2160 * 16;

void BM_Memcpy(benchmark::State& state) {
  std::vector<char> source(kFrameBytes, 1);
  std::vector<char> destination(kFrameBytes, 0);
  for (auto _ : state) {
    std::memcpy(destination.data(), source.data(), kFrameBytes);
    benchmark::DoNotOptimize(destination.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 2 * static_cast<int64_t>(kFrameBytes));
}

}  // namespace

BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond)->UseRealTime();
