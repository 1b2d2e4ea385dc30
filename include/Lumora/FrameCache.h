// The cache of a device's GPU frames, keyed by the host's Guid, so that a frame already on the device need
// not be uploaded or rendered again. Each memory manager owns one and hands its Purge to the pool as a
// purge callback: a pool that cannot satisfy an allocation asks the cache to let frames go. The manager's
// Trim ages the cache by one generation (IncrementGeneration); the more bytes it holds, the fewer
// generations an unused frame survives (capacity ÷ bytes held).
#pragma once

#include <OXR/CriticalSection.h>
#include <OXR/InterfaceRef.h>
#include <TQ/VideoFrame.h>
#include <zelcore/Utility.h>

#include <cstddef>
#include <cstdint>
#include <map>

#include "Lumora/Export.h"

namespace LM {

class LM_API FrameCache {
 public:
  explicit FrameCache(std::size_t capacity = 0);
  FrameCache(const FrameCache&) = delete;
  FrameCache& operator=(const FrameCache&) = delete;

  // The capacity that controls how many generations an unused entry survives.
  void SetCapacity(std::size_t capacity);
  // Stores or replaces the entry for `key`; a frame that is not one of the library's is ignored.
  void CacheFrame(zelcore::utility::Guid key, const OXR::InterfaceRef<TQ::IVideoFrame>& frame);
  // The cached frame, or an empty reference. An entry counts while its frame is a GPU frame whose identity
  // is still `key`; finding it renews its generation.
  OXR::InterfaceRef<TQ::IVideoFrame> FindFrame(zelcore::utility::Guid key);
  // Bytes held by valid entries; invalid ones are dropped on the way.
  std::size_t GetSize();
  // Releases entries in key order (not by age) until at least `bytes` were freed; returns the bytes freed.
  std::size_t Purge(std::size_t bytes);
  // Ages the cache by one generation, dropping entries older than capacity ÷ bytes held.
  void IncrementGeneration();

 private:
  struct Entry {
    OXR::InterfaceRef<TQ::IVideoFrame> frame;
    std::uint64_t generation;
  };
  using Entries = std::map<zelcore::utility::Guid, Entry>;

  std::size_t SizeDroppingInvalid();

  OXR::CriticalSection lock_;
  Entries entries_;
  std::size_t capacity_;
  std::uint64_t generation_ = 0;
};

}  // namespace LM
