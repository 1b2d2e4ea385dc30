// The CPU renderer's widening conversion on an HD frame: BGRA_4444_8u into BGRA_4444_32f at the same size,
// the conversion that stages 8-bit uploads in float. Bytes count what is read plus what is written (4 + 16
// per pixel), as BM_MemcpyAllCores counts its bytes, so the two rates compare directly.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "SK/Renderer.h"
#include "zelmediatypes/PixelFormats.h"

namespace {

void BM_ScaleConvert_8uTo32f(benchmark::State& state) {
  constexpr int kWidth = 1920;
  constexpr int kHeight = 1080;
  std::vector<std::uint8_t> source(std::size_t(kWidth) * kHeight * 4);
  for (std::size_t i = 0; i < source.size(); ++i) source[i] = std::uint8_t(i * 7);
  std::vector<float> destination(std::size_t(kWidth) * kHeight * 4);
  for (auto _ : state) {
    if (!SK_ScaleConvert(source.data(), kWidth * 4, kWidth, kHeight, zelmediatypes::kPixelFormat_BGRA_4444_8u,
                         zelmediatypes::kFieldType_Progressive, destination.data(), kWidth * 16, kWidth,
                         kHeight, zelmediatypes::kPixelFormat_BGRA_4444_32f,
                         zelmediatypes::kFieldType_Progressive, zelmediatypes::kRenderQuality_High)) {
      state.SkipWithError("SK_ScaleConvert failed");
      break;
    }
    benchmark::DoNotOptimize(destination.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kWidth * kHeight * (4 + 16));
}

}  // namespace

BENCHMARK(BM_ScaleConvert_8uTo32f)->Unit(benchmark::kMillisecond)->UseRealTime();
