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
