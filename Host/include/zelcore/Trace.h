// Tracing: one line per event, enabled per category. LUMORA_TRACE holds the enabled categories separated
// by commas or semicolons ("Lumora", or "*" for all). Lines go to standard error unless a sink is set.
#pragma once

#include <boost/function.hpp>
#include <string>

namespace zelcore {
namespace trace {

// Whether tracing is enabled for the category at the level; flags are reserved and ignored.
bool TraceEnabled(const char* category, int level, int flags);
// Changes every time the enabled categories change, so callers can cache TraceEnabled answers.
unsigned TraceChangeCounter();
// Replaces the enabled categories (same syntax as LUMORA_TRACE) and advances the change counter.
void SetTraceCategories(const std::string& categories);
// Writes one finished line (its end of line included) to the sink.
void WriteTrace(const std::string& text);
// Sends lines to `sink` instead of standard error; an empty function restores standard error.
void SetTraceSink(const boost::function<void(const std::string&)>& sink);

}  // namespace trace
}  // namespace zelcore
