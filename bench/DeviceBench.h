// The frame every bandwidth benchmark moves: 3840 x 2160 pixels of four 32-bit floats.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <string>

#include "Lumora/Device.h"

constexpr int kFrameWidth = 3840;
constexpr int kFrameHeight = 2160;
constexpr int kFrameRowBytes = kFrameWidth * 16;
constexpr std::size_t kFrameBytes = static_cast<std::size_t>(kFrameRowBytes) * kFrameHeight;

// The frame transfer benchmarks of one device (FrameBench.cpp).
void RegisterFrameBenchmarks(const boost::shared_ptr<LM::Device>& device, const std::string& tag);

// The conversions of ConversionBench.cpp, from the first block into the second, and the bytes each reads
// and writes a call: a UYVY_422_8u frame into GPU 32f, GPU 32f into V210_422_10u, and a 4:2:0 MPEG2 FRAME
// picture into GPU 32f, each beside its ceiling kernel.
extern const std::size_t kUYVYTo32fBytes;
extern const std::size_t k32fToV210Bytes;
extern const std::size_t k420To32fBytes;
int ConvertUYVYTo32f(const boost::shared_ptr<LM::Device>& device, void* source, void* destination);
int CeilingUYVYTo32f(const boost::shared_ptr<LM::Device>& device, void* source, void* destination);
int Convert32fToV210(const boost::shared_ptr<LM::Device>& device, void* source, void* destination);
int Ceiling32fToV210(const boost::shared_ptr<LM::Device>& device, void* source, void* destination);
int Convert420To32f(const boost::shared_ptr<LM::Device>& device, void* source, void* destination);
int Ceiling420To32f(const boost::shared_ptr<LM::Device>& device, void* source, void* destination);
// The ceiling of the composite and the cross dissolve: two 3840 x 2160 32f frames in, one out.
int CeilingComposite(const boost::shared_ptr<LM::Device>& device, void* source, void* second,
                     void* destination);
// The ceiling of the blur: its recursive path's two line passes through a pool intermediate, each line read
// forwards and written, then read and rewritten backwards, with no arithmetic.
int CeilingGaussianBlur(const boost::shared_ptr<LM::Device>& device, void* source, void* second,
                        void* destination);
// Scale of a 1920 x 1080 32f frame to 3840 x 2160 (high quality) and the edge-directed deinterlace of a
// 1920 x 1080 one, each beside its ceiling; bytes read plus written a call.
extern const std::size_t kScaleBytes;
extern const std::size_t kDeinterlaceBytes;
int ScaleUp(const boost::shared_ptr<LM::Device>& device, void* source, void* second, void* destination);
int CeilingScale(const boost::shared_ptr<LM::Device>& device, void* source, void* second, void* destination);
int DeinterlaceHD(const boost::shared_ptr<LM::Device>& device, void* source, void* second, void* destination);
int CeilingDeinterlace(const boost::shared_ptr<LM::Device>& device, void* source, void* second,
                       void* destination);
