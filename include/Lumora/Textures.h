// Textures: how kernels read a source through the texture hardware. On CUDA a texture is a texture
// reference declared in a module and bound, before each launch, to a pitched region of device memory; on
// OpenCL the same role is played by an image object filled from the buffer. LoadTexture prepares the
// reference once per context; BindTexture points it at the data of one call.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "Lumora/Export.h"
#include "Lumora/PixelFormats.h"
#include "Lumora/TextureTypes.h"

namespace LM {

class Device;

struct Texture {
  // The CUtexref found in the module; null when it could not be prepared (always null on OpenCL devices).
  void* textureReference = nullptr;
  // The device's texture alignment in bytes.
  std::uint32_t alignment = 0;
  // Reserved for the loader; binding does not read it.
  std::uint32_t reserved = 0;
  // Written by BindTexture: the bytes between the aligned address bound and the data; kernels add it when
  // they sample.
  std::int64_t offset = 0;
  // OpenCL: the image the last BindTexture made, kept alive by the holder while copies of the Texture exist.
  void* image = nullptr;
  boost::shared_ptr<void> imageHolder;
};

// Prepares the texture reference `textureName` of the module `moduleKey` (clamp/wrap addressing on both
// axes, the filter mode, the format of `format`). An OpenCL device gets an empty Texture.
LM_API Texture LoadTexture(const boost::shared_ptr<Device>& device, const char* moduleKey, const char* textureName,
                           CUaddress_mode addressMode, CUfilter_mode filterMode, PixelFormat format);
// Binds the texture to width x height pixels at `data` (rows rowBytes apart) inside the buffer `base`. On
// OpenCL it makes an image of that size and format and fills it from the buffer. Returns a result code;
// kResultOutOfMemory when the texture was not prepared.
LM_API int BindTexture(const boost::shared_ptr<Device>& device, Texture& texture, const void* base, const void* data,
                       int rowBytes, int width, int height, PixelFormat format);

}  // namespace LM
