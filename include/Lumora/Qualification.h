// The tests that decide whether a device is used. Start-up runs the combined test on every device; a host
// can run each test by itself, for example to tell the user why a card is not used.
#pragma once

#include <boost/shared_ptr.hpp>

#include "Lumora/Export.h"

namespace LM {

class Device;

// Driver version at least 4.0 for CUDA, 1.0 for OpenCL.
LM_API bool MeetsMinimumDriverRequirements(const boost::shared_ptr<Device>& device);
// Compute capability at least 1.1 for CUDA, 1.0 for OpenCL.
LM_API bool MeetsMinimumComputeCapabilityForUse(const boost::shared_ptr<Device>& device);
// At least 802,160,640 bytes (765 MiB) for a CUDA device of compute capability up to 1.1, else at least
// 534,773,760 bytes (510 MiB).
LM_API bool MeetsMinimumMemoryRequirementsForUse(const boost::shared_ptr<Device>& device);
// The device's name is a line of its framework's card list ("cuda_supported_cards.txt" or
// "opencl_supported_cards.txt" in the executable directory), or there is no readable list.
LM_API bool MatchesNamedCardList(const boost::shared_ptr<Device>& device);
// Driver, compute capability, memory, position (the first four devices of a framework) and card list, in
// that order, stopping at the first failure.
LM_API bool MeetsMinimumRequirementsForUse(const boost::shared_ptr<Device>& device);

// The first test a device fails, for messages: "driver", "compute capability", "memory", "device count",
// "card list"; null when it qualifies (or there is no device).
LM_API const char* FirstFailedRequirement(const boost::shared_ptr<Device>& device);

}  // namespace LM
