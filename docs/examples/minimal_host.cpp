// A minimal host: starts Lumora, picks a device, fills an image in the device's memory pool with one colour,
// reads it back and checks every pixel, and shuts Lumora down. Exit status 0 when the pixels are right, or
// when there is no device to use (a host then renders on the CPU); 1 when anything fails.
#include <Lumora/Lumora.h>
#include <zelcore/Debug.h>

#include <cstddef>
#include <cstdio>
#include <vector>

int main() {
  // Run-time switches live in the host's debug database; in the embedded host LUMORA_DEBUG sets them too,
  // and wins over these defaults. Use OpenCL devices (CPU ones such as PoCL included) besides CUDA ones.
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.EnableOpenCL", "1");
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.OpenCLIncludeCPUDevices", "1");

  LM::Initialize(true);

  // The first qualified CUDA device, else the first qualified OpenCL one. Contexts start in the
  // background: WaitForContext blocks until the device's context is made.
  boost::shared_ptr<LM::Device> device = LM::GetPrimaryDevice(LM::kDeviceFramework_CUDA);
  if (!device) device = LM::GetPrimaryDevice(LM::kDeviceFramework_OpenCL);
  if (!device || !device->WaitForContext()) {
    std::printf("no device to use (%u registered): a host would render on the CPU\n", LM::GetDeviceCount());
    device.reset();
    LM::Terminate();
    return 0;
  }
  std::printf("device: %s\n", device->GetName().c_str());

  // A 64 x 32 image of four 32-bit floats per pixel (B, G, R, A), rows packed.
  const int width = 64;
  const int height = 32;
  const LM::PixelFormat format = LM::kPixelFormat_GPU_BGRA_4444_32f;
  const int rowBytes = width * LM::BytesPerPixel(format);
  const std::size_t bytes = static_cast<std::size_t>(rowBytes) * height;
  const LM::float4 color = {0.25f, 0.5f, 0.75f, 1.0f};
  std::vector<LM::float4> pixels(static_cast<std::size_t>(width) * height);

  int result = LM::kResultFailed;
  {
    // Every operation runs under the device's exclusive access (on CUDA it makes the context current).
    LM::ExclusiveAccess access(*device);
    const boost::shared_ptr<LM::MemoryManager> pool = device->GetDeviceMemory();
    const boost::shared_ptr<LM::CommandQueue> queue = device->GetCommandQueue();
    void* buffer = pool->Allocate(bytes, nullptr);
    if (buffer == nullptr) {
      std::printf("the device pool gave no block of %zu bytes\n", bytes);
    } else {
      result = LM::FillWithColor(device, buffer, rowBytes, format, 0, 0, width, height, color);
      if (result != LM::kResultSuccess) std::printf("FillWithColor failed: 0x%08X\n", unsigned(result));
      if (result == LM::kResultSuccess) {
        // Queued after the fill on the same queue; the event completes when the pixels have arrived.
        boost::shared_ptr<LM::Event> downloaded;
        result = queue->CopyDeviceToHost(buffer, pixels.data(), bytes, &downloaded, true);
        if (result != LM::kResultSuccess) std::printf("CopyDeviceToHost failed: 0x%08X\n", unsigned(result));
        if (downloaded) downloaded->Wait();
      }
      // The block goes back to the pool, to be reused once the work queued so far has completed.
      pool->Release(buffer, queue->RecordEvent());
    }
  }

  int wrong = 0;
  for (const LM::float4& p : pixels) {
    if (p.x != color.x || p.y != color.y || p.z != color.z || p.w != color.w) ++wrong;
  }
  if (result == LM::kResultSuccess && wrong == 0) {
    std::printf("filled %dx%d pixels with (%g, %g, %g, %g) and read them back\n", width, height, color.x,
                color.y, color.z, color.w);
  } else if (result == LM::kResultSuccess) {
    std::printf("%d of %d pixels read back wrong\n", wrong, width * height);
  }

  device.reset();
  LM::Terminate();
  return result == LM::kResultSuccess && wrong == 0 ? 0 : 1;
}
