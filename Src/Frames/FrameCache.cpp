#include "Lumora/FrameCache.h"

#include "Lumora/VideoFrames.h"

namespace LM {

namespace {

// Whether a cached frame still stands for its key: a GPU frame that kept the identity it was cached under.
bool IsValid(const zelcore::utility::Guid& key, const OXR::InterfaceRef<TQ::IVideoFrame>& frame) {
  const auto gpu = OXR::Query<IGPUVideoFrame>(frame);
  return gpu && gpu->GetGuid() == key;
}

// The bytes a frame holds: its allocated size, through whichever memory access it offers.
std::size_t SizeOf(const OXR::InterfaceRef<TQ::IVideoFrame>& frame) {
  OXR::InterfaceRef<FK::IVideoFrameMemoryAccess> memory;
  if (memory.QueryFrom(frame, IGPUVideoFrameMemoryAccess::kIID) ||
      memory.QueryFrom(frame, FK::IVideoFrameMemoryAccess::kIID)) {
    return memory->GetAllocatedSize();
  }
  return 0;
}

}  // namespace

FrameCache::FrameCache(std::size_t capacity) : capacity_(capacity) {}

void FrameCache::SetCapacity(std::size_t capacity) {
  OXR::CriticalSectionLock guard(lock_, "FrameCache::SetCapacity");
  capacity_ = capacity;
}

void FrameCache::CacheFrame(zelcore::utility::Guid key, const OXR::InterfaceRef<TQ::IVideoFrame>& frame) {
  if (!OXR::Query<ICompletionEventVideoFrame>(frame)) return;
  OXR::CriticalSectionLock guard(lock_, "FrameCache::CacheFrame");
  Entry& entry = entries_[key];
  entry.frame = frame;
  entry.generation = generation_;
}

OXR::InterfaceRef<TQ::IVideoFrame> FrameCache::FindFrame(zelcore::utility::Guid key) {
  OXR::CriticalSectionLock guard(lock_, "FrameCache::FindFrame");
  const auto found = entries_.find(key);
  if (found == entries_.end() || !IsValid(key, found->second.frame)) return {};
  found->second.generation = generation_;
  return found->second.frame;
}

std::size_t FrameCache::SizeDroppingInvalid() {
  std::size_t total = 0;
  for (auto entry = entries_.begin(); entry != entries_.end();) {
    if (IsValid(entry->first, entry->second.frame)) {
      total += SizeOf(entry->second.frame);
      ++entry;
    } else {
      entry = entries_.erase(entry);
    }
  }
  return total;
}

std::size_t FrameCache::GetSize() {
  OXR::CriticalSectionLock guard(lock_, "FrameCache::GetSize");
  return SizeDroppingInvalid();
}

// Key order, not age: which frames go first under pressure is the map's order, deliberately.
std::size_t FrameCache::Purge(std::size_t bytes) {
  OXR::CriticalSectionLock guard(lock_, "FrameCache::Purge");
  std::size_t freed = 0;
  for (auto entry = entries_.begin(); bytes != 0 && freed < bytes && entry != entries_.end();) {
    if (IsValid(entry->first, entry->second.frame)) freed += SizeOf(entry->second.frame);
    entry = entries_.erase(entry);
  }
  return freed;
}

void FrameCache::IncrementGeneration() {
  OXR::CriticalSectionLock guard(lock_, "FrameCache::IncrementGeneration");
  const std::size_t total = SizeDroppingInvalid();
  const std::uint64_t ageLimit = total != 0 ? capacity_ / total : 0;
  for (auto entry = entries_.begin(); entry != entries_.end();) {
    if (IsValid(entry->first, entry->second.frame) && entry->second.generation + ageLimit >= generation_) {
      ++entry;
    } else {
      entry = entries_.erase(entry);
    }
  }
  ++generation_;
}

}  // namespace LM
