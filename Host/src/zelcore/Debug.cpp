// Debug database, assertion reports and the debugger probe.
#include "zelcore/Debug.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>

namespace zelcore {
namespace debug {
namespace {

const char kBlanks[] = " \t\r\n";

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return std::string();
  const std::size_t last = text.find_last_not_of(kBlanks);
  return text.substr(first, last - first + 1);
}

// "key=value;key=value". Entries without '=' or with an empty key are malformed and skipped; a value may
// itself contain '='. A later entry replaces an earlier one with the same key.
void ParseEntries(const char* text, std::map<std::string, std::string>& entries) {
  if (text == nullptr) return;
  const std::string all(text);
  std::size_t start = 0;
  while (start <= all.size()) {
    std::size_t end = all.find(';', start);
    if (end == std::string::npos) end = all.size();
    const std::string entry = all.substr(start, end - start);
    const std::size_t equals = entry.find('=');
    if (equals != std::string::npos) {
      const std::string key = Trim(entry.substr(0, equals));
      if (!key.empty()) entries[key] = Trim(entry.substr(equals + 1));
    }
    start = end + 1;
  }
}

struct AssertionState {
  std::mutex mutex;
  unsigned count = 0;
  std::string last;
  bool quiet = false;
};

// Never destroyed, so reports made while the process exits still find it.
AssertionState& Assertions() {
  static AssertionState* const state = new AssertionState();
  return *state;
}

const char* OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

}  // namespace

struct DebugDatabase::State {
  std::mutex mutex;
  std::map<std::string, std::string> entries;
};

DebugDatabase::DebugDatabase() : state_(new State()) {
  ParseEntries(std::getenv("LUMORA_DEBUG"), state_->entries);
}

DebugDatabase& DebugDatabase::Instance() {
  // Never destroyed: code running while the process exits may still look entries up.
  static DebugDatabase* const instance = new DebugDatabase();
  return *instance;
}

bool DebugDatabase::Lookup(const std::string& key, std::string& value) const {
  std::lock_guard<std::mutex> lock(state_->mutex);
  const auto found = state_->entries.find(key);
  if (found == state_->entries.end()) return false;
  value = found->second;
  return true;
}

void DebugDatabase::Set(const std::string& key, const std::string& value) {
  std::lock_guard<std::mutex> lock(state_->mutex);
  state_->entries[key] = value;
}

void DebugDatabase::SetDefault(const std::string& key, const std::string& value) {
  std::lock_guard<std::mutex> lock(state_->mutex);
  state_->entries.emplace(key, value);
}

void DebugDatabase::Remove(const std::string& key) {
  std::lock_guard<std::mutex> lock(state_->mutex);
  state_->entries.erase(key);
}

void DebugDatabase::Reload() {
  std::map<std::string, std::string> fresh;
  ParseEntries(std::getenv("LUMORA_DEBUG"), fresh);
  std::lock_guard<std::mutex> lock(state_->mutex);
  state_->entries.swap(fresh);
}

bool BreakAfterAssertDialog(bool* silence, const char* condition, const char* message, const char* source,
                            int line, const char* function) {
  if (silence != nullptr && *silence) return false;

  std::string text = "Assertion failed: ";
  text += OrEmpty(condition);
  text += ": ";
  text += OrEmpty(message);
  text += " (";
  text += OrEmpty(source);
  text += ':';
  text += std::to_string(line);
  if (function != nullptr && *function != '\0') {
    text += ' ';
    text += function;
  }
  text += ')';

  AssertionState& state = Assertions();
  bool quiet;
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    ++state.count;
    state.last = text;
    quiet = state.quiet;
  }
  if (!quiet) {
    text += '\n';
    // One call per line, so that reports from several threads do not interleave.
    std::fwrite(text.data(), 1, text.size(), stderr);
  }
  return false;
}

unsigned AssertionReportCount() {
  AssertionState& state = Assertions();
  std::lock_guard<std::mutex> lock(state.mutex);
  return state.count;
}

std::string LastAssertionReport() {
  AssertionState& state = Assertions();
  std::lock_guard<std::mutex> lock(state.mutex);
  return state.last;
}

void SetAssertionOutputQuiet(bool quiet) {
  AssertionState& state = Assertions();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.quiet = quiet;
}

bool IsDebuggerAttached() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, 10, "TracerPid:") == 0) return std::strtol(line.c_str() + 10, nullptr, 10) != 0;
  }
  return false;
}

void BreakIntoDebugger() {
  std::raise(SIGTRAP);
}

}  // namespace debug
}  // namespace zelcore
