// Textures: how kernels read a source through the texture hardware. On CUDA a texture is a texture
// reference declared in a module and bound, before each launch, to a pitched region of device memory; on
// OpenCL the same role is played by an image object filled from the buffer. LoadTexture prepares the
// reference once per context; BindTexture points it at the data of one call.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "Lumora/CUDATextureEnumerations.h"
#include "Lumora/Export.h"
#include "Lumora/PixelFormats.h"
#include "Lumora/Queues.h"

namespace LM {

class Device;

struct Texture {
  // The CUtexref found in the module; null when it could not be prepared (always null on OpenCL devices).
  void* textureReference = nullptr;
  // The device's texture alignment in bytes.
  std::uint32_t alignment = 0;
  // Reserved for the loader; binding does not read it.
  std::uint32_t reserved = 0;
  // Written by BindTexture: the bytes between the aligned address bound and the data. A kernel adds it to
  // the x it samples, in texels: offset / texel bytes (a texel of a four-channel 32f texture is 16 bytes).
  std::int64_t offset = 0;
  // OpenCL: the image the last BindTexture made, kept alive by the holder while copies of the Texture exist.
  void* image = nullptr;
  boost::shared_ptr<void> imageHolder;
};

// Prepares the texture reference `textureName` of the module `moduleKey` (clamp/wrap addressing on both
// axes, the filter mode, the format of `format`). An OpenCL device gets an empty Texture.
LM_API Texture LoadTexture(const boost::shared_ptr<Device>& device, const char* moduleKey,
                           const char* textureName, CUaddress_mode addressMode, CUfilter_mode filterMode,
                           PixelFormat format);
// Binds the texture to width x height pixels at `data` (rows rowBytes apart) inside the buffer `base`. On
// OpenCL it makes an image of that size and format and fills it from the buffer. Returns a result code:
// kResultOutOfMemory when the texture was not prepared; on CUDA kResultUnsupported when rowBytes is not a
// multiple of the device's texture pitch alignment (CU_DEVICE_ATTRIBUTE_TEXTURE_PITCH_ALIGNMENT, 32 bytes on
// current GPUs), which the texture hardware cannot bind: AlignPlaneForTexture makes such a plane bindable.
LM_API int BindTexture(const boost::shared_ptr<Device>& device, Texture& texture, const void* base,
                       const void* data, int rowBytes, int width, int height, PixelFormat format);

// A plane as BindTexture takes it: the caller's own, or a copy in a scratch block of the device pool.
struct TexturePlane {
  const void* base = nullptr;
  const void* data = nullptr;
  int rowBytes = 0;
  // The pool block that holds the copy; null when the plane is the caller's own.
  void* scratch = nullptr;
};

// Makes the width x height texels of `format` at `data` (rows rowBytes apart, inside `base`) bindable. Where
// BindTexture can bind them as they are (on OpenCL always, on CUDA when rowBytes is a multiple of the
// texture pitch alignment), *plane is the caller's own plane. Otherwise the texels are copied, on the
// device's queue, into a block of the device pool with the smallest aligned pitch, and *plane is that
// copy. Returns kResultSuccess, kResultOutOfMemory when the pool has no block, kResultFailed for a row
// pitch smaller than a row or a failed copy. Hand the plane back with ReleaseTexturePlane.
LM_API int AlignPlaneForTexture(const boost::shared_ptr<Device>& device, const void* base, const void* data,
                                int rowBytes, int width, int height, PixelFormat format, TexturePlane* plane);
// Returns a plane's scratch block to the pool, to be reused once `done` (the completion event of the last
// launch that samples it) has completed. Does nothing for the caller's own plane.
LM_API void ReleaseTexturePlane(const boost::shared_ptr<Device>& device, TexturePlane* plane,
                                const boost::shared_ptr<Event>& done);

}  // namespace LM
