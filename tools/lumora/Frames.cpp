// Host images through the library's frames.
#include "Frames.h"

#include <fcntl.h>
#include <unistd.h>
#include <zelcore/Debug.h>
#include <zelmediatypes/PixelFormats.h>

#include <cstring>

namespace lumora {

namespace zmt = zelmediatypes;

namespace {

std::uint8_t* HostMemory(const Frame& frame) {
  const auto access = OXR::Query<FK::IVideoFrameMemoryAccess>(frame);
  return access ? static_cast<std::uint8_t*>(access->GetBaseAddress()) : nullptr;
}

std::string ResultText(int result) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(result));
  return text;
}

// Standard output carries the picture when the output is "-", and standard error one line when something
// is wrong: what the library prints while it starts and stops (the driver binder's lines about CUDA, which
// `lumora devices` shows) is dropped.
class QuietStdout {
 public:
  QuietStdout() {
    std::fflush(stdout);
    saved_ = dup(1);
    const int null = open("/dev/null", O_WRONLY);
    if (saved_ >= 0 && null >= 0) dup2(null, 1);
    if (null >= 0) close(null);
  }
  ~QuietStdout() {
    std::fflush(stdout);
    if (saved_ >= 0) {
      dup2(saved_, 1);
      close(saved_);
    }
  }
  QuietStdout(const QuietStdout&) = delete;
  QuietStdout& operator=(const QuietStdout&) = delete;

 private:
  int saved_;
};

}  // namespace

Session::Session(const boost::shared_ptr<LM::Device>& device)
    : device_(device), access_(std::make_unique<LM::ExclusiveAccess>(*device)) {}

Session::~Session() {
  access_.reset();
  device_.reset();
  const QuietStdout quiet;
  LM::Terminate();
}

std::unique_ptr<Session> Session::Start(int index, std::string* error) {
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.EnableOpenCL", "1");
  zelcore::debug::DebugDatabase::Instance().SetDefault("LM.OpenCLIncludeCPUDevices", "1");
  const QuietStdout quiet;
  LM::Initialize(true);
  int qualified = 0;
  for (unsigned int i = 0; i < LM::GetDeviceCount(); ++i) {
    const boost::shared_ptr<LM::Device> device = LM::GetDevice(i);
    if (!device || !device->IsQualified() || !device->WaitForContext()) continue;
    if (qualified++ == index) return std::unique_ptr<Session>(new Session(device));
  }
  LM::Terminate();
  *error = qualified == 0 ? "no qualified compute device (see lumora devices)"
                          : "--device " + std::to_string(index) + ": there are only " +
                                std::to_string(qualified) + " qualified devices";
  return nullptr;
}

Frame NewFrame(const Session& session, int width, int height, std::string* error) {
  Frame frame;
  const int result =
      LM::CreateGPUVideoFrame(frame, session.Device(), LM::kPixelFormat_GPU_BGRA_4444_32f, unsigned(width),
                              unsigned(height), {1, 1}, zmt::kFieldType_Progressive, {});
  if (result != LM::kResultSuccess) {
    *error = "cannot make a " + std::to_string(width) + " x " + std::to_string(height) +
             " frame on the device (" + ResultText(result) + ")";
    return Frame();
  }
  return frame;
}

void* DeviceMemory(const Frame& frame) {
  const auto access = OXR::Query<LM::IGPUVideoFrameMemoryAccess>(frame);
  return access ? access->GetBaseAddress() : nullptr;
}

int RowBytes(const Frame& frame) {
  return static_cast<int>(zmt::PixelFormatSize(frame->GetPixelFormat(), frame->GetBounds().Width(), 1));
}

Frame Upload(const Session& session, const HostImage& image, std::string* error) {
  Frame host;
  const int created =
      LM::CreateHostMemoryVideoFrame(host, session.Device(), image.format, unsigned(image.width),
                                     unsigned(image.height), {1, 1}, image.fieldType, {});
  std::uint8_t* memory = created == LM::kResultSuccess ? HostMemory(host) : nullptr;
  const auto access = OXR::Query<FK::IVideoFrameMemoryAccess>(host);
  if (memory == nullptr || access->GetDataSize() != image.bytes.size()) {
    *error = "cannot make a host frame of " + std::to_string(image.width) + " x " +
             std::to_string(image.height) + " pixels";
    return Frame();
  }
  std::memcpy(memory, image.bytes.data(), image.bytes.size());
  const Frame gpu = LM::UploadFrameImmediate(session.Device(), host, LM::kPixelFormat_GPU_BGRA_4444_32f,
                                             zmt::kRenderQuality_High, OXR::ParamRect<CRect>());
  if (!gpu) *error = "cannot upload the image to the device";
  return gpu;
}

bool Download(const Session& session, const Frame& frame, LM::PixelFormat format, HostImage* image,
              std::string* error) {
  const int width = frame->GetBounds().Width(), height = frame->GetBounds().Height();
  // The converter writes every host format but the planar 4:2:0 ones, which the read-back makes on the CPU.
  Frame source = frame;
  int result = LM::kResultSuccess;
  if (!zmt::IsPlanar420Format(format)) {
    result = LM::CreateGPUVideoFrame(source, session.Device(), format, unsigned(width), unsigned(height),
                                     {1, 1}, zmt::kFieldType_Progressive, {});
    if (result == LM::kResultSuccess) result = LM::ConvertFrame(source, frame);
  }
  const Frame back = result == LM::kResultSuccess
                         ? LM::ReadBackFrame(source, format, OXR::ParamRect<CRect>(), {1, 1},
                                             image->fieldType, zmt::kRenderQuality_High, true)
                         : Frame();
  const std::uint8_t* memory = back ? HostMemory(back) : nullptr;
  if (memory == nullptr) {
    *error =
        "cannot read the result back from the device" + (result != 0 ? " (" + ResultText(result) + ")" : "");
    return false;
  }
  image->format = format;
  image->width = width;
  image->height = height;
  image->bytes.assign(memory, memory + OXR::Query<FK::IVideoFrameMemoryAccess>(back)->GetDataSize());
  return true;
}

}  // namespace lumora
