// The cache of a device's GPU frames, owned by each memory manager, which asks it to give memory back
// under pressure. This is the part the memory pools use; caching and finding frames by Guid arrive with
// the frames.
#pragma once

#include <OXR/CriticalSection.h>

#include <cstddef>
#include <cstdint>

#include "Lumora/Export.h"

namespace LM {

class LM_API FrameCache {
 public:
  explicit FrameCache(std::size_t capacity = 0);
  FrameCache(const FrameCache&) = delete;
  FrameCache& operator=(const FrameCache&) = delete;

  // The capacity that controls how many generations an unused entry survives.
  void SetCapacity(std::size_t capacity);
  // Bytes held by valid entries.
  std::size_t GetSize();
  // Releases entries until at least `bytes` were freed; returns the bytes freed.
  std::size_t Purge(std::size_t bytes);
  // Ages the cache by one generation.
  void IncrementGeneration();

 private:
  OXR::CriticalSection lock_;
  std::size_t capacity_;
  std::uint64_t generation_ = 0;
};

}  // namespace LM
