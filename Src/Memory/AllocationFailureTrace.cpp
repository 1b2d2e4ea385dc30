#include "Memory/AllocationFailureTrace.h"

#include <zelcore/Threads.h>
#include <zelcore/Trace.h>

#include <sstream>

namespace LM {

namespace {

constexpr const char* kTraceCategory = "Lumora";
constexpr int kTraceLevel = 0;
constexpr int kTraceFlags = 1;
constexpr int kMebibyteShift = 20;

// The line's prefix: thread, category and level.
std::ostringstream StartLine() {
  std::ostringstream line;
  line << '<' << zelcore::threads::GetCurrentThreadID() << "> " << '<' << kTraceCategory << "> " << '<'
       << kTraceLevel << "> ";
  return line;
}

const char* NameOf(const char* poolName) {
  return poolName != nullptr ? poolName : "";
}

}  // namespace

bool AllocationTraceSwitch::Enabled() {
  const unsigned changeCounter = zelcore::trace::TraceChangeCounter();
  if (changeCounter != seenChangeCounter_) {
    enabled_ = zelcore::trace::TraceEnabled(kTraceCategory, kTraceLevel, kTraceFlags);
    seenChangeCounter_ = changeCounter;
  }
  return enabled_;
}

void WriteAllocationFailureTrace(const char* poolName, std::uint64_t requestBytes, std::uint64_t totalBytes) {
  std::ostringstream line = StartLine();
  line << "Unable to allocate " << NameOf(poolName) << " memory of size: " << (requestBytes >> kMebibyteShift)
       << "mb"
       << ", current size: " << (totalBytes >> kMebibyteShift) << "mb" << '\n';
  zelcore::trace::WriteTrace(line.str());
}

void WriteFreeFailureTrace(const char* poolName, std::uint64_t bytes) {
  std::ostringstream line = StartLine();
  line << "Unable to free " << NameOf(poolName) << " memory of size: " << (bytes >> kMebibyteShift) << "mb\n";
  zelcore::trace::WriteTrace(line.str());
}

void WritePoolDestroyedTrace(const char* poolName, std::uint64_t blocks, std::uint64_t bytes) {
  std::ostringstream line = StartLine();
  line << NameOf(poolName) << " pool destroyed with " << blocks << " blocks (" << (bytes >> kMebibyteShift)
       << "mb) still in use; they are not freed\n";
  zelcore::trace::WriteTrace(line.str());
}

}  // namespace LM
