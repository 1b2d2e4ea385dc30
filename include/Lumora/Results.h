// Result codes of the image operations, queues and frames. Every failure code has its top bit set, so a
// failure reads as a negative int.
#pragma once

namespace LM {

constexpr int kResultSuccess = 0;
// The kernel could not be found or created, an argument could not be set, or the framework failed for any
// reason other than exhausted memory.
constexpr int kResultFailed = static_cast<int>(0xA00F0001u);
// The framework reported exhausted memory or resources.
constexpr int kResultOutOfMemory = static_cast<int>(0xA00F0006u);
// The operation does not support the pixel format, the combination of formats, or the mode.
constexpr int kResultUnsupported = static_cast<int>(0xA00F000Cu);
// A frame does not offer the interface asked for.
constexpr int kResultNoInterface = static_cast<int>(0xA00A0001u);

}  // namespace LM
