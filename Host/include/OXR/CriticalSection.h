// Re-entrant critical section and its scope guard.
#pragma once

#include <mutex>

namespace OXR {

class CriticalSection {
 public:
  CriticalSection() = default;
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void Lock() { mutex_.lock(); }
  bool TryLock() { return mutex_.try_lock(); }
  void Unlock() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

// Holds a critical section for its scope. The name says who takes it (for diagnostics); it is not copied.
class CriticalSectionLock {
 public:
  explicit CriticalSectionLock(CriticalSection& section, const char* name = nullptr)
      : section_(section), name_(name) {
    section_.Lock();
  }
  ~CriticalSectionLock() { section_.Unlock(); }
  CriticalSectionLock(const CriticalSectionLock&) = delete;
  CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

  const char* Name() const { return name_; }

 private:
  CriticalSection& section_;
  const char* name_;
};

}  // namespace OXR
