// Frames through a device: a BGRA_4444_8u host frame uploaded (staged, copied into a GPU frame that keeps
// the staging format) and read back into its own format, in frames per second, for 1920 x 1080 and
// 3840 x 2160 (BM_UploadReadBack_1920x1080/OpenCL_0). The counter driver_allocations_per_frame is the
// growth of both pools' blocks per frame after a warm-up frame: each new block is one allocation from the
// driver, since nothing here trims the pools. BM_UploadInto32f_1920x1080 uploads the same host frame into
// kPixelFormat_GPU_BGRA_4444_32f: staged as it is, converted on the device.
#include <benchmark/benchmark.h>
#include <zelmediatypes/PixelFormats.h>

#include <string>

#include "DeviceBench.h"
#include "ForeignFrame.h"
#include "Lumora/Device.h"
#include "Lumora/FrameTransfers.h"
#include "Lumora/VideoFrames.h"

namespace {

using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;

std::size_t PoolBlocks(const boost::shared_ptr<LM::Device>& device) {
  std::size_t total = 0;
  for (const auto& pool : {device->GetDeviceMemory(), device->GetHostMemory()}) {
    std::size_t live = 0;
    if (pool) pool->GetStatistics(nullptr, nullptr, &live, nullptr, nullptr);
    total += live;
  }
  return total;
}

// One upload and read-back; false when either failed.
bool RoundTrip(const boost::shared_ptr<LM::Device>& device, const Frame& source) {
  const LM::PixelFormat format = zelmediatypes::kPixelFormat_BGRA_4444_8u;
  const Frame gpu = LM::UploadFrameImmediate(device, source, format, zelmediatypes::kRenderQuality_High, {});
  if (!gpu) return false;
  return static_cast<bool>(LM::ReadBackFrame(gpu, format, {}, {1, 1}, zelmediatypes::kFieldType_Progressive,
                                             zelmediatypes::kRenderQuality_High, true));
}

void UploadReadBack(benchmark::State& state, const boost::shared_ptr<LM::Device>& device, int width,
                    int height) {
  const Frame source = ForeignFrame::Make(zelmediatypes::kPixelFormat_BGRA_4444_8u, width, height);
  if (!RoundTrip(device, source)) return state.SkipWithError("the round trip failed");
  const std::size_t blocks = PoolBlocks(device);
  for (auto _ : state) {
    if (!RoundTrip(device, source)) return state.SkipWithError("the round trip failed");
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["driver_allocations_per_frame"] =
      static_cast<double>(PoolBlocks(device) - blocks) / static_cast<double>(state.iterations());
}

void UploadInto32f(benchmark::State& state, const boost::shared_ptr<LM::Device>& device) {
  const Frame source = ForeignFrame::Make(zelmediatypes::kPixelFormat_BGRA_4444_8u, 1920, 1080);
  const auto upload = [&]() {
    const Frame gpu = LM::UploadFrameImmediate(device, source, LM::kPixelFormat_GPU_BGRA_4444_32f,
                                               zelmediatypes::kRenderQuality_High, {});
    const auto events = OXR::Query<LM::ICompletionEventVideoFrame>(gpu);
    if (!events) return false;
    // The frame is ready when its conversion is: wait for it, as a host that uses it would.
    if (const boost::shared_ptr<LM::Event> done = events->GetCompletionEvent()) done->Wait();
    return true;
  };
  if (!upload()) return state.SkipWithError("the upload failed");
  const std::size_t blocks = PoolBlocks(device);
  for (auto _ : state) {
    if (!upload()) return state.SkipWithError("the upload failed");
  }
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["driver_allocations_per_frame"] =
      static_cast<double>(PoolBlocks(device) - blocks) / static_cast<double>(state.iterations());
}

}  // namespace

void RegisterFrameBenchmarks(const boost::shared_ptr<LM::Device>& device, const std::string& tag) {
  for (const auto& size : {std::pair<int, int>{1920, 1080}, std::pair<int, int>{3840, 2160}}) {
    const std::string name =
        "BM_UploadReadBack_" + std::to_string(size.first) + "x" + std::to_string(size.second) + "/" + tag;
    benchmark::RegisterBenchmark(
        name.c_str(),
        [device, size](benchmark::State& state) { UploadReadBack(state, device, size.first, size.second); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  benchmark::RegisterBenchmark(("BM_UploadInto32f_1920x1080/" + tag).c_str(),
                               [device](benchmark::State& state) { UploadInto32f(state, device); })
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}
