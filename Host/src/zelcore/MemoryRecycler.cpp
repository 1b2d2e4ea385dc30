// The recycler of page-aligned blocks.
//
// Policy: a request is rounded up to a multiple of kGranularity (its size class). Allocate takes the most
// recently recycled block of that class, else allocates a new page-aligned block. Recycle keeps the block
// for its class unless the class already holds kMaxBlocksPerSize blocks or the cache would exceed
// kMaxCachedBytes; then the block is freed. All state is under one mutex.
#include <malloc.h>

#include <cstdlib>
#include <map>
#include <mutex>
#include <vector>

#include "zelcore/Utility.h"

namespace zelcore {
namespace utility {
namespace {

struct RecyclerCache {
  std::mutex mutex;
  std::map<std::size_t, std::vector<void*>> blocks;  // by size class
  std::size_t cachedBytes = 0;
};

// Never destroyed: blocks may be recycled while the process exits.
RecyclerCache& Cache() {
  static RecyclerCache* const cache = new RecyclerCache();
  return *cache;
}

// The size class of `size`, or 0 when rounding up would overflow. Zero bytes take one page.
std::size_t SizeClass(std::size_t size) {
  constexpr std::size_t g = MemoryRecycler::kGranularity;
  if (size == 0) return g;
  if (size > static_cast<std::size_t>(-1) - (g - 1)) return 0;
  return (size + g - 1) / g * g;
}

}  // namespace

void* MemoryRecycler::Allocate(std::size_t size, std::size_t& actualSize) {
  actualSize = 0;
  const std::size_t rounded = SizeClass(size);
  if (rounded == 0) return nullptr;

  RecyclerCache& cache = Cache();
  {
    std::lock_guard<std::mutex> lock(cache.mutex);
    const auto found = cache.blocks.find(rounded);
    if (found != cache.blocks.end() && !found->second.empty()) {
      void* block = found->second.back();
      found->second.pop_back();
      cache.cachedBytes -= rounded;
      actualSize = rounded;
      return block;
    }
  }
  void* block = nullptr;
  if (posix_memalign(&block, kGranularity, rounded) != 0) return nullptr;
  actualSize = rounded;
  return block;
}

void MemoryRecycler::Recycle(void* p, std::size_t size) {
  if (p == nullptr) return;
  const std::size_t rounded = SizeClass(size);
  // A size larger than the block really is would let a later Allocate hand out too small a block: such a
  // block is freed instead of kept.
  if (rounded == 0 || malloc_usable_size(p) < rounded) {
    std::free(p);
    return;
  }
  RecyclerCache& cache = Cache();
  {
    std::lock_guard<std::mutex> lock(cache.mutex);
    if (rounded <= kMaxCachedBytes - cache.cachedBytes) {
      try {
        std::vector<void*>& list = cache.blocks[rounded];
        if (list.size() < kMaxBlocksPerSize) {
          list.push_back(p);
          cache.cachedBytes += rounded;
          return;
        }
      } catch (const std::bad_alloc&) {
        // No room to remember the block: it is freed below.
      }
    }
  }
  std::free(p);
}

void MemoryRecycler::Trim() {
  std::map<std::size_t, std::vector<void*>> blocks;
  RecyclerCache& cache = Cache();
  {
    std::lock_guard<std::mutex> lock(cache.mutex);
    blocks.swap(cache.blocks);
    cache.cachedBytes = 0;
  }
  for (auto& sizeClass : blocks) {
    for (void* block : sizeClass.second) std::free(block);
  }
}

std::size_t MemoryRecycler::CachedBytes() {
  RecyclerCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  return cache.cachedBytes;
}

}  // namespace utility
}  // namespace zelcore
