// The one trace line a pool writes when an allocation cannot be satisfied, in the trace category
// "Lumora":
//   <thread id> <Lumora> <0> Unable to allocate device memory of size: 132mb, current size: 2048mb
#pragma once

#include <cstdint>

namespace LM {

// Whether allocation failures are traced. The host is asked only when its trace settings have changed
// since the last answer, so a pool that fails often does not query the host each time.
class AllocationTraceSwitch {
 public:
  bool Enabled();

 private:
  // The host's change counter never reads 0, so the first call always asks.
  unsigned seenChangeCounter_ = 0;
  bool enabled_ = false;
};

// Writes the line for a request of `requestBytes` to the pool `poolName` that holds `totalBytes`; sizes
// are shown in whole mebibytes, rounded down.
void WriteAllocationFailureTrace(const char* poolName, std::uint64_t requestBytes, std::uint64_t totalBytes);

}  // namespace LM
