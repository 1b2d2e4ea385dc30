// Pictures through the library's frames. PNG samples are straight RGB(A); the host formats that carry them
// are BGRA (or BGRX without alpha) 8u, and 15u for 16-bit samples (0..65535 scaled to 0..32768), which the
// device premultiplies on the way in and unpremultiplies on the way out.
#include "Frames.h"

#include <fcntl.h>
#include <unistd.h>
#include <zelcore/Debug.h>
#include <zelmediatypes/PixelFormats.h>

#include <cstring>

namespace lumora {

namespace zmt = zelmediatypes;

namespace {

// Straight alpha (premultiplied on the way in, unpremultiplied on the way out), or with `asItIs` a
// premultiplied format, whose colour passes unchanged.
LM::PixelFormat HostFormat(int channels, int depth, bool asItIs = false) {
  if (channels != 4) return depth == 16 ? zmt::kPixelFormat_BGRX_4444_15u : zmt::kPixelFormat_BGRX_4444_8u;
  if (depth == 16) return asItIs ? zmt::kPixelFormat_BGRP_4444_15u : zmt::kPixelFormat_BGRA_4444_15u;
  return asItIs ? zmt::kPixelFormat_BGRP_4444_8u : zmt::kPixelFormat_BGRA_4444_8u;
}

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

Frame Upload(const Session& session, const Picture& picture, std::string* error) {
  const LM::PixelFormat format = HostFormat(picture.channels, picture.depth);
  Frame host;
  const int created =
      LM::CreateHostMemoryVideoFrame(host, session.Device(), format, unsigned(picture.width),
                                     unsigned(picture.height), {1, 1}, zmt::kFieldType_Progressive, {});
  std::uint8_t* memory = created == LM::kResultSuccess ? HostMemory(host) : nullptr;
  if (memory == nullptr) {
    *error = "cannot make a host frame of " + std::to_string(picture.width) + " x " +
             std::to_string(picture.height) + " pixels";
    return Frame();
  }
  // R, G, B(, A) into B, G, R, A (or X, written opaque).
  const std::size_t pixels = std::size_t(picture.width) * picture.height;
  for (std::size_t i = 0; i < pixels; ++i) {
    const int c = picture.channels;
    if (picture.depth == 16) {
      std::uint16_t in[4] = {0, 0, 0, 65535}, out[4];
      std::memcpy(in, picture.bytes.data() + i * c * 2, std::size_t(c) * 2);
      const int order[4] = {2, 1, 0, 3};
      for (int k = 0; k < 4; ++k)
        out[k] = std::uint16_t((std::uint32_t(in[order[k]]) * 32768u + 32767u) / 65535u);
      std::memcpy(memory + i * 8, out, 8);
    } else {
      const std::uint8_t* in = picture.bytes.data() + i * c;
      std::uint8_t* out = memory + i * 4;
      out[0] = in[2];
      out[1] = in[1];
      out[2] = in[0];
      out[3] = c == 4 ? in[3] : 255;
    }
  }
  const Frame gpu = LM::UploadFrameImmediate(session.Device(), host, LM::kPixelFormat_GPU_BGRA_4444_32f,
                                             zmt::kRenderQuality_High, OXR::ParamRect<CRect>());
  if (!gpu) *error = "cannot upload the image to the device";
  return gpu;
}

bool Download(const Session& session, const Frame& frame, int channels, int depth, bool colourAsItIs,
              Picture* picture, std::string* error) {
  const LM::PixelFormat format = HostFormat(channels, depth, colourAsItIs);
  const int width = frame->GetBounds().Width(), height = frame->GetBounds().Height();
  Frame converted;
  int result = LM::CreateGPUVideoFrame(converted, session.Device(), format, unsigned(width), unsigned(height),
                                       {1, 1}, zmt::kFieldType_Progressive, {});
  if (result == LM::kResultSuccess) result = LM::ConvertFrame(converted, frame);
  const Frame back = result == LM::kResultSuccess
                         ? LM::ReadBackFrame(converted, format, OXR::ParamRect<CRect>(), {1, 1},
                                             zmt::kFieldType_Progressive, zmt::kRenderQuality_High, true)
                         : Frame();
  const std::uint8_t* memory = back ? HostMemory(back) : nullptr;
  if (memory == nullptr) {
    *error =
        "cannot read the result back from the device" + (result != 0 ? " (" + ResultText(result) + ")" : "");
    return false;
  }
  Picture out;
  out.width = width;
  out.height = height;
  out.channels = channels;
  out.depth = depth;
  out.bytes.resize(out.RowBytes() * height);
  const std::size_t pixels = std::size_t(width) * height;
  for (std::size_t i = 0; i < pixels; ++i) {
    if (depth == 16) {
      std::uint16_t in[4], rgba[4];
      std::memcpy(in, memory + i * 8, 8);
      const int order[4] = {2, 1, 0, 3};
      for (int k = 0; k < 4; ++k)
        rgba[k] = std::uint16_t((std::uint32_t(in[order[k]]) * 65535u + 16384u) / 32768u);
      std::memcpy(out.bytes.data() + i * channels * 2, rgba, std::size_t(channels) * 2);
    } else {
      const std::uint8_t* in = memory + i * 4;
      std::uint8_t* o = out.bytes.data() + i * channels;
      o[0] = in[2];
      o[1] = in[1];
      o[2] = in[0];
      if (channels == 4) o[3] = in[3];
    }
  }
  *picture = std::move(out);
  return true;
}

}  // namespace lumora
