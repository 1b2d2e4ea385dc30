// Trace categories, the change counter and the trace sink.
#include "zelcore/Trace.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>

namespace zelcore {
namespace trace {
namespace {

struct TraceState {
  std::mutex mutex;
  std::set<std::string> categories;
  bool all = false;
  boost::function<void(const std::string&)> sink;
  // Starts at 1 so that a caller whose cached counter starts at 0 asks TraceEnabled at least once.
  std::atomic<unsigned> changeCounter{1};
};

// Categories are separated by commas or semicolons, blanks around them are ignored, names match exactly
// (case included) and "*" enables every category.
void ParseCategories(const std::string& text, TraceState& state) {
  state.categories.clear();
  state.all = false;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find_first_of(",;", start);
    if (end == std::string::npos) end = text.size();
    const std::string item = text.substr(start, end - start);
    const std::size_t first = item.find_first_not_of(" \t\r\n");
    if (first != std::string::npos) {
      const std::string name = item.substr(first, item.find_last_not_of(" \t\r\n") - first + 1);
      if (name == "*") {
        state.all = true;
      } else {
        state.categories.insert(name);
      }
    }
    start = end + 1;
  }
}

// Made at first use from LUMORA_TRACE; never destroyed, so tracing during process exit is safe.
TraceState& State() {
  static TraceState* const state = [] {
    TraceState* created = new TraceState();
    const char* text = std::getenv("LUMORA_TRACE");
    if (text != nullptr) ParseCategories(text, *created);
    return created;
  }();
  return *state;
}

}  // namespace

bool TraceEnabled(const char* category, int /*level*/, int /*flags*/) {
  if (category == nullptr) return false;
  TraceState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  return state.all || state.categories.count(category) != 0;
}

unsigned TraceChangeCounter() {
  return State().changeCounter.load(std::memory_order_acquire);
}

void SetTraceCategories(const std::string& categories) {
  TraceState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  ParseCategories(categories, state);
  state.changeCounter.fetch_add(1, std::memory_order_acq_rel);
}

void WriteTrace(const std::string& text) {
  TraceState& state = State();
  boost::function<void(const std::string&)> sink;
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    sink = state.sink;
  }
  // The sink runs without the lock, so it may itself trace or replace the sink.
  if (sink.empty()) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    return;
  }
  try {
    sink(text);
  } catch (...) {
    // A failing sink loses the line; tracing must never disturb the caller.
  }
}

void SetTraceSink(const boost::function<void(const std::string&)>& sink) {
  TraceState& state = State();
  boost::function<void(const std::string&)> old;
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    old = state.sink;
    state.sink = sink;
  }
  // `old` is destroyed here, outside the lock, in case its captures trace when they go.
}

}  // namespace trace
}  // namespace zelcore
