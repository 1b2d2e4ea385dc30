// Debug services of the host: the debug database (text entries that switch behaviour at run time),
// assertion reports and the debugger probe.
#pragma once

#include <string>

namespace zelcore {
namespace debug {

// Text entries keyed by name. Filled once, at first use, from the environment variable LUMORA_DEBUG
// ("key=value;key=value"; blanks around keys and values are trimmed); hosts and tests change entries
// with Set and Remove. Thread-safe.
class DebugDatabase {
 public:
  static DebugDatabase& Instance();

  // True and the entry's text in `value` when the key exists.
  bool Lookup(const std::string& key, std::string& value) const;
  void Set(const std::string& key, const std::string& value);
  // Sets the entry only when the key does not exist yet (LUMORA_DEBUG or an earlier Set wins).
  void SetDefault(const std::string& key, const std::string& value);
  void Remove(const std::string& key);
  // Drops every entry and reads LUMORA_DEBUG again.
  void Reload();

 private:
  DebugDatabase();
  struct State;
  State* state_;
};

// Reports a failed assertion on standard error ("Assertion failed: <condition>: <message> (<source>:<line>
// <function>)"), unless *silence is true, and counts it. Returns true when the caller should break into
// the debugger (never, in this host: there is no dialog). A null silence pointer is allowed.
bool BreakAfterAssertDialog(bool* silence, const char* condition, const char* message, const char* source,
                            int line, const char* function = nullptr);

// Number of assertion reports made so far, silenced ones excluded; lets tests see that a report happened.
unsigned AssertionReportCount();
// The text of the last report (without the trailing newline).
std::string LastAssertionReport();
// While quiet, reports are counted and kept but not written to standard error.
void SetAssertionOutputQuiet(bool quiet);

// True when a debugger (a tracer process) is attached.
bool IsDebuggerAttached();
// Raises SIGTRAP.
void BreakIntoDebugger();

}  // namespace debug
}  // namespace zelcore
