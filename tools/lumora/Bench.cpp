// lumora bench: every image operation's rate on one device and size, beside this machine's memcpy over all
// cores (and, on a CUDA device, the driver's own device-to-device copy, cuMemcpyDtoD), in one table. Each
// operation runs until half a second has passed (at least three times) after one warm-up run; a run's time is
// the wall time until the device has finished it.
#include <dlfcn.h>
#include <zelmediatypes/PixelFormatTable.h>
#include <zelmediatypes/PixelFormats.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "Commands.h"
#include "Frames.h"

namespace lumora {

namespace {

namespace zmt = zelmediatypes;
using Clock = std::chrono::steady_clock;

// Seconds a call of `work` takes: the best of the runs in half a second.
double Time(const std::function<int()>& work, const boost::shared_ptr<LM::Device>& device, int* result) {
  *result = work();
  if (device) device->GetCommandQueue()->RecordEvent()->Wait();
  double best = 1e30;
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(500);
  for (int run = 0; *result == LM::kResultSuccess && (run < 3 || Clock::now() < end); ++run) {
    const Clock::time_point start = Clock::now();
    *result = work();
    if (device) device->GetCommandQueue()->RecordEvent()->Wait();
    best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return best;
}

// memcpy of `bytes` split over every hardware thread.
void MemcpyAllCores(std::vector<std::uint8_t>& to, const std::vector<std::uint8_t>& from) {
  const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
  std::vector<std::thread> workers;
  const std::size_t share = (from.size() + threads - 1) / threads;
  for (unsigned t = 0; t < threads; ++t) {
    const std::size_t begin = std::min(from.size(), t * share), end = std::min(from.size(), begin + share);
    workers.emplace_back(
        [&, begin, end] { std::memcpy(to.data() + begin, from.data() + begin, end - begin); });
  }
  for (std::thread& worker : workers) worker.join();
}

// The CUDA driver's device-to-device copy of `bytes`, finished: the reference of a CUDA device. The driver is
// the one the library bound (its copy of the handle); null where it or its entry points cannot be found.
std::function<int()> DriverCopy(void* to, const void* from, std::size_t bytes) {
  using Copy = int (*)(unsigned long long, unsigned long long, std::size_t);
  using Synchronize = int (*)();
  void* driver = dlopen(LM::CUDADriverLibraryName, RTLD_NOW | RTLD_NOLOAD);
  if (driver == nullptr) driver = dlopen("libcuda.so.1", RTLD_NOW | RTLD_NOLOAD);
  const auto copy = driver ? reinterpret_cast<Copy>(dlsym(driver, "cuMemcpyDtoD_v2")) : nullptr;
  const auto synchronize =
      driver ? reinterpret_cast<Synchronize>(dlsym(driver, "cuCtxSynchronize")) : nullptr;
  if (copy == nullptr || synchronize == nullptr) return nullptr;
  return [=] {
    const int copied =
        copy(reinterpret_cast<std::uintptr_t>(to), reinterpret_cast<std::uintptr_t>(from), bytes);
    return copied == 0 && synchronize() == 0 ? LM::kResultSuccess : LM::kResultFailed;
  };
}

}  // namespace

int RunBench(const Arguments& arguments) {
  int width = 1920, height = 1080;
  char tail = 0;
  if (arguments.Has("size") &&
      (std::sscanf(arguments.Get("size").c_str(), "%dx%d%c", &width, &height, &tail) != 2 || width <= 0 ||
       height <= 0 || width > 16384 || height > 16384)) {
    std::fprintf(stderr, "lumora bench: --size: %s is not WIDTHxHEIGHT\n", arguments.Get("size").c_str());
    return 2;
  }
  // The GPU formats have no table names: they are given as GPU_BGRA_4444_32f and so on.
  LM::PixelFormat format = LM::kPixelFormat_GPU_BGRA_4444_32f;
  if (arguments.Has("format")) {
    const std::string name = arguments.Get("format");
    const LM::PixelFormat gpu[] = {LM::kPixelFormat_GPU_BGRA_4444_16f, LM::kPixelFormat_GPU_BGRX_4444_16f,
                                   LM::kPixelFormat_GPU_BGRA_4444_32f, LM::kPixelFormat_GPU_BGRX_4444_32f};
    const char* names[] = {"GPU_BGRA_4444_16f", "GPU_BGRX_4444_16f", "GPU_BGRA_4444_32f",
                           "GPU_BGRX_4444_32f"};
    bool found = false;
    for (int i = 0; i < 4; ++i) {
      if (name == names[i] || name == std::string("kPixelFormat_") + names[i]) {
        format = gpu[i];
        found = true;
      }
    }
    if (!found) {
      std::fprintf(
          stderr,
          "lumora bench: --format: %s is not one of the GPU formats GPU_BGRA_4444_16f, GPU_BGRX_4444_16f, "
          "GPU_BGRA_4444_32f, GPU_BGRX_4444_32f\n",
          name.c_str());
      return 2;
    }
  }
  std::string error;
  const int index = arguments.Has("device") ? std::atoi(arguments.Get("device").c_str()) : 0;
  const std::unique_ptr<Session> session = Session::Start(index, &error);
  if (!session) {
    std::fprintf(stderr, "lumora bench: %s\n", error.c_str());
    return 2;
  }
  const boost::shared_ptr<LM::Device>& device = session->Device();
  const int pixelBytes = LM::BytesPerPixel(format), rowBytes = width * pixelBytes;
  const std::size_t frameBytes = std::size_t(rowBytes) * height;
  const boost::shared_ptr<LM::MemoryManager> pool = device->GetDeviceMemory();
  void* a = pool->Allocate(frameBytes, nullptr);
  void* b = pool->Allocate(frameBytes, nullptr);
  void* c = pool->Allocate(frameBytes, nullptr);
  if (a == nullptr || b == nullptr || c == nullptr) {
    std::fprintf(stderr, "lumora bench: the device has no room for three %d x %d frames\n", width, height);
    return 1;
  }
  LM::FillWithOpaqueWhite(device, a, rowBytes, format, 0, 0, width, height);
  LM::FillWithColor(device, b, rowBytes, format, 0, 0, width, height, {0.25f, 0.25f, 0.25f, 0.5f});
  const std::size_t uyvyBytes = std::size_t(width + 1) / 2 * 4,
                    v210Bytes = std::size_t(width + 47) / 48 * 128;

  struct Row {
    const char* name;
    double frames;  // frames of the format's size read plus written a call
    std::function<int()> work;
  };
  const float opacity = 0.75f;
  const double uyvyShare = double(uyvyBytes) / rowBytes, v210Share = double(v210Bytes) / rowBytes;
  const std::vector<Row> rows = {
      {"FillWithColor", 1,
       [&] { return LM::FillWithColor(device, c, rowBytes, format, 0, 0, width, height, {}); }},
      {"FastDeviceMemcpy2D", 2,
       [&] { return LM::FastDeviceMemcpy2D(device, a, rowBytes, c, rowBytes, format, width, height); }},
      {"Composite Normal", 3,
       [&] {
         return LM::Composite(device, a, rowBytes, b, rowBytes, c, rowBytes, format, width, height, opacity,
                              kBlendMode_Normal);
       }},
      {"Composite Multiply", 3,
       [&] {
         return LM::Composite(device, a, rowBytes, b, rowBytes, c, rowBytes, format, width, height, opacity,
                              kBlendMode_Multiply);
       }},
      {"Composite Hue", 3,
       [&] {
         return LM::Composite(device, a, rowBytes, b, rowBytes, c, rowBytes, format, width, height, opacity,
                              kBlendMode_Hue);
       }},
      {"CrossDissolve", 3,
       [&] {
         return LM::CrossDissolve(device, a, rowBytes, b, rowBytes, c, rowBytes, format, width, height, 0.3f,
                                  false);
       }},
      {"Accumulate (2 sources)", 3,
       [&] {
         const void* sources[2] = {a, b};
         const float weights[2] = {0.5f, 0.5f};
         return LM::Accumulate(device, sources, weights, 2, c, rowBytes, 0, format, width, height);
       }},
      {"AlphaGain", 2,
       [&] { return LM::AlphaGain(device, b, rowBytes, c, rowBytes, format, width, height, 0.5f); }},
      {"Unpremultiply", 2,
       [&] { return LM::Unpremultiply(device, b, rowBytes, c, rowBytes, format, width, height, {}); }},
      {"GaussianBlur sigma 4", 2,
       [&] {
         return LM::GaussianBlur(device, a, rowBytes, width, height, c, rowBytes, width, height, format, 4, 4,
                                 false, kBlurDirection_Both);
       }},
      {"Convert to UYVY_422_8u", 1 + uyvyShare,
       [&] {
         return LM::PixelFormatConvert(device, b, rowBytes, format, c, int(uyvyBytes),
                                       zmt::kPixelFormat_UYVY_422_8u, width, height, false);
       }},
      {"Convert from UYVY_422_8u", 1 + uyvyShare,
       [&] {
         return LM::PixelFormatConvert(device, c, int(uyvyBytes), zmt::kPixelFormat_UYVY_422_8u, a, rowBytes,
                                       format, width, height, false);
       }},
      {"Convert to V210_422_10u", 1 + v210Share,
       [&] {
         return LM::PixelFormatConvert(device, b, rowBytes, format, c, int(v210Bytes),
                                       zmt::kPixelFormat_V210_422_10u, width, height, false);
       }},
      {"Convert from 4:2:0 8u", 1 + 1.5 / pixelBytes,
       [&] {
         return LM::PixelFormatConvert(device, c, width,
                                       zmt::kPixelFormat_YUV_420_MPEG2_FRAME_PICTURE_PLANAR_8u_601, a,
                                       rowBytes, format, width, height, false);
       }},
  };

  std::vector<std::uint8_t> from(frameBytes, 1), to(frameBytes);
  int result = 0;
  const double memcpySeconds = Time(
      [&] {
        MemcpyAllCores(to, from);
        return 0;
      },
      nullptr, &result);
  const double memcpyRate = 2.0 * frameBytes / memcpySeconds;
  std::printf("%s, %d x %d %s\n", device->GetName().c_str(), width, height, pixelBytes == 16 ? "32f" : "16f");
  std::printf("%-26s %10s %10s %9s %s\n", "operation", "ms", "GB/s", "frames/s", "of memcpy over all cores");
  std::printf("%-26s %10.2f %10.2f %9.1f %s\n", "memcpy, all cores", memcpySeconds * 1e3, memcpyRate / 1e9,
              1.0 / memcpySeconds, "(reference)");
  if (device->GetFramework() == LM::kDeviceFramework_CUDA) {
    const std::function<int()> driverCopy = DriverCopy(c, a, frameBytes);
    if (driverCopy) {
      const double seconds = Time(driverCopy, device, &result);
      if (result == LM::kResultSuccess) {
        std::printf("%-26s %10.2f %10.2f %9.1f %5.0f %%  (the device's reference)\n", "cuMemcpyDtoD",
                    seconds * 1e3, 2.0 * frameBytes / seconds / 1e9, 1.0 / seconds,
                    100.0 * 2.0 * frameBytes / seconds / memcpyRate);
      }
    }
  }
  int status = 0;
  for (const Row& row : rows) {
    const double seconds = Time(row.work, device, &result);
    if (result != LM::kResultSuccess) {
      std::printf("%-26s failed (0x%08X)\n", row.name, static_cast<unsigned>(result));
      status = 1;
      continue;
    }
    const double rate = row.frames * frameBytes / seconds;
    std::printf("%-26s %10.2f %10.2f %9.1f %5.0f %%\n", row.name, seconds * 1e3, rate / 1e9, 1.0 / seconds,
                100.0 * rate / memcpyRate);
  }
  const boost::shared_ptr<LM::Event> done = device->GetCommandQueue()->RecordEvent();
  for (void* block : {a, b, c}) pool->Release(block, done);
  return status;
}

}  // namespace lumora
