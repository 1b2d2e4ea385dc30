// The bandwidth references of this machine's memory: a memcpy of one 3840 x 2160 frame of four 32-bit floats
// per pixel on one thread (BM_Memcpy), and the same bytes split over every core (BM_MemcpyAllCores), the
// most that the memory can move. Both count bytes read plus bytes written, as the copy benchmarks do. The
// operations on an OpenCL device on the CPU (PoCL) are reported against them.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include "DeviceBench.h"

namespace {

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

// One slice per core, each copied by a thread of its own; the threads start and join within the timed loop,
// which costs tens of microseconds against milliseconds of copying.
void BM_MemcpyAllCores(benchmark::State& state) {
  const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
  std::vector<char> source(kFrameBytes, 1);
  std::vector<char> destination(kFrameBytes, 0);
  const std::size_t slice = (kFrameBytes / cores + 63) / 64 * 64;
  for (auto _ : state) {
    std::vector<std::thread> threads;
    for (std::size_t start = 0; start < kFrameBytes; start += slice) {
      threads.emplace_back([&, start] {
        std::memcpy(destination.data() + start, source.data() + start, std::min(slice, kFrameBytes - start));
      });
    }
    for (std::thread& thread : threads) thread.join();
    benchmark::DoNotOptimize(destination.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 2 * static_cast<int64_t>(kFrameBytes));
  state.counters["threads"] = static_cast<double>(cores);
}

}  // namespace

BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MemcpyAllCores)->Unit(benchmark::kMillisecond)->UseRealTime();
