// Whether the host runs without a display.
#pragma once

namespace HQX {

// True unless the environment variable LUMORA_HEADLESS is "0"; read on every call.
bool GetIsHeadless();

}  // namespace HQX
