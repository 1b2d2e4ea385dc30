// The lumora program's images on a device, along the library's own path: a picture becomes a host frame,
// uploaded and converted on the device into a GPU frame of kPixelFormat_GPU_BGRA_4444_32f; results are
// converted on the device back into the picture's host format and read back.
#pragma once

#include <Lumora/Lumora.h>

#include <memory>
#include <string>

#include "Png.h"

namespace lumora {

using Frame = OXR::InterfaceRef<TQ::IVideoFrame>;

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

// The picture as a GPU frame of premultiplied 32f pixels; empty with one line in *error.
Frame Upload(const Session& session, const Picture& picture, std::string* error);
// A new GPU frame of premultiplied 32f pixels; empty with one line in *error.
Frame NewFrame(const Session& session, int width, int height, std::string* error);
// The device memory of a GPU frame, and its row pitch in bytes.
void* DeviceMemory(const Frame& frame);
int RowBytes(const Frame& frame);
// The GPU frame as a picture of `channels` (3 or 4) and `depth` (8 or 16), unpremultiplied on the way out
// unless `colourAsItIs` (for a frame that already holds straight colour); false with one line in *error.
bool Download(const Session& session, const Frame& frame, int channels, int depth, bool colourAsItIs,
              Picture* picture, std::string* error);

}  // namespace lumora
