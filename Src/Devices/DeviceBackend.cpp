#include "Devices/DeviceBackend.h"

namespace LM {

DeviceBackend::~DeviceBackend() = default;

}  // namespace LM
