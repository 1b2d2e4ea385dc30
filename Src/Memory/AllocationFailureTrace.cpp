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
  std::ostringstream line;
  line << '<' << zelcore::threads::GetCurrentThreadID() << "> " << '<' << kTraceCategory << "> " << '<'
       << kTraceLevel << "> "
       << "Unable to allocate " << (poolName != nullptr ? poolName : "")
       << " memory of size: " << (requestBytes >> kMebibyteShift) << "mb"
       << ", current size: " << (totalBytes >> kMebibyteShift) << "mb" << '\n';
  zelcore::trace::WriteTrace(line.str());
}

}  // namespace LM
