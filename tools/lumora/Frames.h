// The lumora program's images on a device, along the library's own path: an image in a host format becomes a
// host frame, uploaded and converted on the device into a GPU frame of kPixelFormat_GPU_BGRA_4444_32f;
// results are converted back into a host format (on the device where the converter writes that format, else
// by the read-back on the CPU) and read back.
#pragma once

#include <Lumora/Lumora.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace lumora {

using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;

// An image in a host pixel format, its bytes laid out as the library lays out a host frame of that format.
struct HostImage {
  LM::PixelFormat format = {};
  int width = 0;
  int height = 0;
  zelmediatypes::FieldType fieldType = zelmediatypes::kFieldType_Progressive;
  std::vector<std::uint8_t> bytes;
};

// The library started, one qualified device chosen and held exclusively; the library stops with it.
class Session {
 public:
  // Device `index` among the qualified devices (CPU OpenCL devices included); null with one line in *error.
  static std::unique_ptr<Session> Start(int index, std::string* error);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const boost::shared_ptr<LM::Device>& Device() const { return device_; }

 private:
  explicit Session(const boost::shared_ptr<LM::Device>& device);
  boost::shared_ptr<LM::Device> device_;
  std::unique_ptr<LM::ExclusiveAccess> access_;
};

// The image as a GPU frame of premultiplied 32f pixels; empty with one line in *error.
Frame Upload(const Session& session, const HostImage& image, std::string* error);
// A new GPU frame of premultiplied 32f pixels; empty with one line in *error.
Frame NewFrame(const Session& session, int width, int height, std::string* error);
// The device memory of a GPU frame, and its row pitch in bytes.
void* DeviceMemory(const Frame& frame);
int RowBytes(const Frame& frame);
// The GPU frame in host format `format`; false with one line in *error.
bool Download(const Session& session, const Frame& frame, LM::PixelFormat format, HostImage* image,
              std::string* error);

}  // namespace lumora
