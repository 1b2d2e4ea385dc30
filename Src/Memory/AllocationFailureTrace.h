// The trace lines a pool writes, in the trace category "Lumora": when an allocation cannot be satisfied,
//   <thread id> <Lumora> <0> Unable to allocate device memory of size: 132mb, current size: 2048mb
// when the driver refuses to take a block back, and when the pool dies while callers still hold blocks.
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
//   <thread id> <Lumora> <0> Unable to free device memory of size: 4mb
void WriteFreeFailureTrace(const char* poolName, std::uint64_t bytes);
//   <thread id> <Lumora> <0> device pool destroyed with 3 blocks (12mb) still in use; they are not freed
void WritePoolDestroyedTrace(const char* poolName, std::uint64_t blocks, std::uint64_t bytes);

}  // namespace LM
