// The operations on every qualified device that the process can start, named by framework
// (BM_FillWithColor/OpenCL_0, BM_FastDeviceMemcpy2D/CUDA_0), each on one 3840 x 2160 32f frame, and each
// device's bandwidth reference: on a CUDA device cuMemcpyDtoD of the same bytes (BM_MemcpyDtoD/CUDA_0); on
// an OpenCL device on the CPU the machine's memcpy (MemcpyBench.cpp). The program starts the library as a
// host would and links no fake driver, so the GPU bundle runs it as it is. After the runs it prints one
// SUMMARY line per operation: its bytes per second and its ratio to its device's reference.
#include "DeviceBench.h"

#include <benchmark/benchmark.h>
#include <unistd.h>
#include <zelcore/Debug.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ImageProcessing/GaussianBlur.h"
#include "ImageProcessing/Kernels/CompositeParameters.h"
#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/Results.h"
#include "Runtime/CUDADriverTable.h"

namespace {

// Each operation gets three frames: a source of opaque white, a second source of grey at half alpha, and a
// destination.
using Work =
    std::function<int(const boost::shared_ptr<LM::Device>&, void* source, void* second, void* destination)>;
using TwoFrameWork = int (*)(const boost::shared_ptr<LM::Device>&, void* source, void* destination);

struct Operation {
  std::string name;
  std::size_t bytesMoved;  // bytes read plus written per call
  Work work;
  bool cudaOnly;
  std::string ceiling;  // the name of the operation's ceiling kernel, another entry; empty for none
};

Work OnTwoFrames(TwoFrameWork work) {
  return [work](const boost::shared_ptr<LM::Device>& device, void* source, void*, void* destination) {
    return work(device, source, destination);
  };
}

// The blend modes by name, in the host's order.
#define LM_BENCH_MODE_NAME(context, mode) #mode,
const char* const kModeNames[] = {LM_VARIANTS_Composite(LM_BENCH_MODE_NAME, ~)};
#undef LM_BENCH_MODE_NAME

std::vector<Operation> MakeOperations() {
  std::vector<Operation> operations = {
      {"FillWithColor", kFrameBytes,
       [](const boost::shared_ptr<LM::Device>& device, void*, void*, void* destination) {
         return LM::FillWithColor(device, destination, kFrameRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, 0,
                                  0, kFrameWidth, kFrameHeight, LM::float4{0.25f, 0.5f, 0.75f, 1.0f});
       },
       false, ""},
      {"FastDeviceMemcpy2D", 2 * kFrameBytes,
       [](const boost::shared_ptr<LM::Device>& device, void* source, void*, void* destination) {
         return LM::FastDeviceMemcpy2D(device, source, kFrameRowBytes, destination, kFrameRowBytes,
                                       LM::kPixelFormat_GPU_BGRA_4444_32f, kFrameWidth, kFrameHeight);
       },
       false, ""},
      // The CUDA reference: the driver's own copy, on the legacy stream, which orders itself with the
      // device's queue, so the queue's events time it.
      {"MemcpyDtoD", 2 * kFrameBytes,
       [](const boost::shared_ptr<LM::Device>&, void* source, void*, void* destination) {
         const CUresult result = LM::CUDA.cuMemcpyDtoD(reinterpret_cast<std::uintptr_t>(destination),
                                                       reinterpret_cast<std::uintptr_t>(source), kFrameBytes);
         return result == CUDA_SUCCESS ? LM::kResultSuccess : LM::kResultFailed;
       },
       true, ""},
      {"PixelFormatConvert_UYVY_To_32f", kUYVYTo32fBytes, OnTwoFrames(ConvertUYVYTo32f), false,
       "Ceiling_UYVY_To_32f"},
      {"Ceiling_UYVY_To_32f", kUYVYTo32fBytes, OnTwoFrames(CeilingUYVYTo32f), false, ""},
      {"PixelFormatConvert_32f_To_V210", k32fToV210Bytes, OnTwoFrames(Convert32fToV210), false,
       "Ceiling_32f_To_V210"},
      {"Ceiling_32f_To_V210", k32fToV210Bytes, OnTwoFrames(Ceiling32fToV210), false, ""},
      {"PixelFormatConvert_420_To_32f", k420To32fBytes, OnTwoFrames(Convert420To32f), false,
       "Ceiling_420_To_32f"},
      {"Ceiling_420_To_32f", k420To32fBytes, OnTwoFrames(Ceiling420To32f), false, ""},
      // Two frames in, one out: the composite of the white layer over the grey background at 75 % in every
      // mode, the cross dissolve, and their ceiling.
      {"CrossDissolve", 3 * kFrameBytes,
       [](const boost::shared_ptr<LM::Device>& device, void* source, void* second, void* destination) {
         return LM::CrossDissolve(device, source, kFrameRowBytes, second, kFrameRowBytes, destination,
                                  kFrameRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, kFrameWidth,
                                  kFrameHeight, 0.3f, false);
       },
       false, "Ceiling_Composite"},
      {"Ceiling_Composite", 3 * kFrameBytes, CeilingComposite, false, ""},
      {"Scale_1920x1080_To_3840x2160", kScaleBytes, ScaleUp, false, "Ceiling_Scale"},
      {"Ceiling_Scale", kScaleBytes, CeilingScale, false, ""},
      {"Deinterlace_1920x1080", kDeinterlaceBytes, DeinterlaceHD, false, "Ceiling_Deinterlace"},
      {"Ceiling_Deinterlace", kDeinterlaceBytes, CeilingDeinterlace, false, ""},
  };
  // The blur in both directions at three sigmas, on the device's own path and on the recursive one, beside
  // the ceiling of the recursive path's traffic. Bytes: the source read and the destination written.
  for (const int sigma : {1, 8, 64}) {
    for (const bool recursive : {false, true}) {
      operations.push_back(
          {std::string(recursive ? "GaussianBlurRecursive" : "GaussianBlur") +
               "/sigma:" + std::to_string(sigma),
           2 * kFrameBytes,
           [sigma, recursive](const boost::shared_ptr<LM::Device>& device, void* source, void*,
                              void* destination) {
             return LM::GaussianBlurOnPath(
                 device, source, kFrameRowBytes, kFrameWidth, kFrameHeight, destination, kFrameRowBytes,
                 kFrameWidth, kFrameHeight, LM::kPixelFormat_GPU_BGRA_4444_32f, float(sigma), float(sigma),
                 false, kBlurDirection_Both,
                 recursive ? LM::GaussianBlurPath::kRecursive : LM::GaussianBlurPath::kByDevice);
           },
           false, "Ceiling_GaussianBlur"});
    }
  }
  operations.push_back({"Ceiling_GaussianBlur", 2 * kFrameBytes, CeilingGaussianBlur, false, ""});
  for (int mode = 0; mode <= kBlendMode_Divide; ++mode) {
    operations.push_back(
        {std::string("Composite_") + kModeNames[mode], 3 * kFrameBytes,
         [mode](const boost::shared_ptr<LM::Device>& device, void* source, void* second, void* destination) {
           return LM::Composite(device, source, kFrameRowBytes, second, kFrameRowBytes, destination,
                                kFrameRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, kFrameWidth, kFrameHeight,
                                0.75f, SK_BlendMode(mode));
         },
         false, "Ceiling_Composite"});
  }
  return operations;
}

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> operations = MakeOperations();
  return operations;
}

// Each iteration's time is the device's: between two events of its queue on CUDA; on OpenCL, whose events
// time nothing unless the queue profiles, the wall time until the work has finished.
void RunOnDevice(benchmark::State& state, const boost::shared_ptr<LM::Device>& device,
                 const Operation& operation) {
  const LM::ExclusiveAccess access(*device);
  const boost::shared_ptr<LM::MemoryManager> pool = device->GetDeviceMemory();
  const boost::shared_ptr<LM::CommandQueue> queue = device->GetCommandQueue();
  void* source = pool->Allocate(kFrameBytes, nullptr);
  void* second = pool->Allocate(kFrameBytes, nullptr);
  void* destination = pool->Allocate(kFrameBytes, nullptr);
  int result = source != nullptr && second != nullptr && destination != nullptr ? LM::kResultSuccess
                                                                                : LM::kResultOutOfMemory;
  if (result == LM::kResultSuccess) {
    result = LM::FillWithOpaqueWhite(device, source, kFrameRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0,
                                     kFrameWidth, kFrameHeight);
  }
  if (result == LM::kResultSuccess) {
    result = LM::FillWithColor(device, second, kFrameRowBytes, LM::kPixelFormat_GPU_BGRA_4444_32f, 0, 0,
                               kFrameWidth, kFrameHeight, LM::float4{0.25f, 0.25f, 0.25f, 0.5f});
  }
  if (result == LM::kResultSuccess) result = operation.work(device, source, second, destination);  // warms up
  queue->RecordEvent()->Wait();
  const bool cuda = device->GetFramework() == LM::kDeviceFramework_CUDA;
  for (auto _ : state) {
    if (result != LM::kResultSuccess) break;
    const auto wallStart = std::chrono::steady_clock::now();
    const boost::shared_ptr<LM::Event> start = cuda ? queue->RecordEvent() : boost::shared_ptr<LM::Event>();
    result = operation.work(device, source, second, destination);
    const boost::shared_ptr<LM::Event> end = queue->RecordEvent();
    if (cuda) {
      state.SetIterationTime(start->ElapsedTime(end) / 1000.0);
    } else {
      end->Wait();
      state.SetIterationTime(
          std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count());
    }
  }
  if (result != LM::kResultSuccess) state.SkipWithError(("result " + std::to_string(result)).c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(operation.bytesMoved));
  const boost::shared_ptr<LM::Event> done = queue->RecordEvent();
  for (void* block : {source, second, destination}) {
    if (block != nullptr) pool->Release(block, done);
  }
}

// The console output (coloured on a terminal), plus every run's bytes per second by benchmark name (without
// the /manual_time or /real_time of its timing).
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  SummaryReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_ColorTabular : OO_Tabular) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      std::string name = run.benchmark_name();
      for (const char* timing : {"/manual_time", "/real_time"}) {
        const std::size_t at = name.find(timing);
        if (at != std::string::npos) name.erase(at);
      }
      const auto rate = run.counters.find("bytes_per_second");
      if (run.error_occurred) failed_ = true;
      if (!run.error_occurred && rate != run.counters.end()) rates_[name] = rate->second.value;
    }
  }

  // One line per operation and device: bytes per second and the ratio to the device's reference(s). An
  // operation or reference left out by --benchmark_filter is "not measured".
  void PrintSummary(const std::vector<boost::shared_ptr<LM::Device>>& devices) const {
    for (const boost::shared_ptr<LM::Device>& device : devices) {
      const bool cuda = device->GetFramework() == LM::kDeviceFramework_CUDA;
      const std::string tag =
          std::string(cuda ? "CUDA_" : "OpenCL_") + std::to_string(device->GetFrameworkIndex());
      for (const Operation& operation : Operations()) {
        if (operation.cudaOnly) continue;
        std::vector<std::string> references =
            cuda ? std::vector<std::string>{"BM_MemcpyDtoD/" + tag}
                 : std::vector<std::string>{"BM_MemcpyAllCores", "BM_Memcpy"};
        if (!operation.ceiling.empty())
          references.push_back(std::string("BM_") + operation.ceiling + "/" + tag);
        const auto rate = rates_.find(std::string("BM_") + operation.name + "/" + tag);
        if (rate == rates_.end()) {
          std::printf("SUMMARY bandwidth %-9s %-30s not measured\n", tag.c_str(), operation.name.c_str());
          continue;
        }
        std::string ratios;
        for (const std::string& reference : references) {
          const auto found = rates_.find(reference);
          char text[128];
          if (found == rates_.end() || found->second <= 0) {
            std::snprintf(text, sizeof text, "  %s not measured", reference.c_str());
          } else {
            std::snprintf(text, sizeof text, "  %5.0f%% of %s (%.1f GB/s)",
                          100.0 * rate->second / found->second, reference.c_str(), found->second / 1e9);
          }
          ratios += text;
        }
        std::printf("SUMMARY bandwidth %-9s %-30s %8.1f GB/s%s\n", tag.c_str(), operation.name.c_str(),
                    rate->second / 1e9, ratios.c_str());
      }
    }
    std::fflush(stdout);
  }

  // Whether a benchmark stopped with an error (an operation's failure code, say).
  bool Failed() const { return failed_; }

 private:
  std::map<std::string, double> rates_;
  bool failed_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.EnableOpenCL", "1");
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.OpenCLIncludeCPUDevices", "1");
  LM::Initialize(true);
  std::vector<boost::shared_ptr<LM::Device>> devices;
  for (unsigned int index = 0; index < LM::GetDeviceCount(); ++index) {
    const boost::shared_ptr<LM::Device> device = LM::GetDevice(index);
    if (!device || !device->IsQualified() || !device->WaitForContext()) continue;
    devices.push_back(device);
    const bool cuda = device->GetFramework() == LM::kDeviceFramework_CUDA;
    const std::string tag =
        std::string(cuda ? "CUDA_" : "OpenCL_") + std::to_string(device->GetFrameworkIndex());
    RegisterFrameBenchmarks(device, tag);
    for (const Operation& operation : Operations()) {
      if (operation.cudaOnly && !cuda) continue;
      benchmark::RegisterBenchmark(
          (std::string("BM_") + operation.name + "/" + tag).c_str(),
          [device, &operation](benchmark::State& state) { RunOnDevice(state, device, operation); })
          ->Unit(benchmark::kMillisecond)
          ->UseManualTime();
    }
  }
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintSummary(devices);
  benchmark::Shutdown();
  devices.clear();
  LM::Terminate();
  return reporter.Failed() ? 1 : 0;
}
