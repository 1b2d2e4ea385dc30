#include "Lumora/FrameCache.h"

namespace LM {

// Until frames can be cached, the cache holds nothing: it frees nothing and only counts generations.
FrameCache::FrameCache(std::size_t capacity) : capacity_(capacity) {}

void FrameCache::SetCapacity(std::size_t capacity) {
  OXR::CriticalSectionLock guard(lock_, "FrameCache::SetCapacity");
  capacity_ = capacity;
}

std::size_t FrameCache::GetSize() {
  OXR::CriticalSectionLock guard(lock_, "FrameCache::GetSize");
  return 0;
}

std::size_t FrameCache::Purge(std::size_t) {
  OXR::CriticalSectionLock guard(lock_, "FrameCache::Purge");
  return 0;
}

void FrameCache::IncrementGeneration() {
  OXR::CriticalSectionLock guard(lock_, "FrameCache::IncrementGeneration");
  ++generation_;
}

}  // namespace LM
