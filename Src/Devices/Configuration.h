// The run-time switches the library reads from the host's debug database.
#pragma once

namespace LM {

// A boolean entry of the host's debug database. The entry's text is read with a stream extraction ("1" or
// "0"; "true" and "false" are accepted as well); a missing or unreadable entry reads as false.
bool ReadDebugSwitch(const char* key);
// The same with a default for a missing or unreadable entry.
bool ReadDebugSwitch(const char* key, bool defaultValue);

// The default of "LM.CheckBufferBounds".
constexpr bool kCheckBufferBoundsByDefault = true;

// Whether OpenCL devices are enumerated: the switch "LM.EnableOpenCL" (default false, so by default only
// CUDA devices are registered).
bool IsOpenCLEnabled();

}  // namespace LM
