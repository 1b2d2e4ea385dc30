// A pool of driver memory, generic over the allocation policy that talks to the driver.
//
// Policy
//  * Release never frees. The block goes, with the Event after which it may be reused, onto a pending list
//    (the only state Release touches, under the pool's lock), so a frame's deleter may release from any
//    thread. Allocate, Purge and GetUsedSize first fold that list into the free list, ordered by byte size.
//    Releases of pointers the pool does not hold, or of blocks already free, are ignored there.
//  * Reuse: from the smallest free block that is large enough upwards, the first whose event has completed
//    (or that has none). If none has completed, a new block is allocated while that keeps the pool within
//    its low mark; otherwise the smallest large-enough block is handed out at once and the command queue is
//    made to wait for its event, so later GPU work is ordered after the block's last use and the CPU never
//    blocks.
//  * A grown pool does not hand out blocks much larger than asked: above the low mark a block may be at most
//    kLowMarkSizeRatio times the request, above the high mark kHighMarkSizeRatio times; otherwise a new
//    block is allocated (and the queue is not made to wait for the refused block).
//  * Giving back: growing past the low mark gives one free block back to the driver before allocating;
//    growing past the high mark gives back as many as needed to stay under it. The pool keeps the smallest
//    free block larger than the largest request of the previous trim period and gives back the next larger
//    one; only above the high mark (or under pressure) does it give back whatever is smallest. After a
//    reuse and on Trim, free blocks are given back the same way until the pool is within its low mark.
//  * When the driver refuses, the fallback chain is: ask the purge callbacks (in id order, until enough is
//    freed) -> fold the releases they caused -> give back free blocks -> ask the driver again, as long as
//    each round gives driver memory back. What callbacks report is not trusted beyond the first round: a
//    callback that claims progress but frees nothing the pool can see must not keep the loop going. A
//    callback that throws counts as having freed nothing; the others are still asked. Failure is a null
//    pointer and one trace line, never an exception.
//  * Only blocks handed out and not yet released are accepted by Release (the lock guards that set too), so
//    the pending list never holds more entries than the pool has blocks out, however often a caller
//    releases a block twice or releases pointers the pool never gave out.
//  * A pool that dies while callers still hold blocks gives back its free blocks only and names the others
//    in one trace line: freeing memory that live GPU work may still use would crash the device, while
//    leaving it to the driver's context teardown only leaks it until then.
//  * A free that the policy reports as failed is traced, and the block is kept aside (still live, no longer
//    free) to be given back again by the next Purge or by the destructor; loops that give blocks back end
//    all the same, since the block has left the free list.
//  * Locking: the pool's lock guards the pending list, the set of handed-out blocks and the purge callbacks;
//    callbacks run without it. Everything else is touched by Allocate, Purge, Trim, GetUsedSize and the
//    destructor alone, which callers must not run concurrently on one pool (the device's exclusive access
//    serialises them).
//  * The byte counters change only through the Count* helpers.
//
// The policy, constructed from the pool's trailing constructor arguments, provides
//   PoolBlock Allocate(const AllocationKey& key, std::size_t* allocatedBytes);  // null block on failure
//   bool Free(void* pointer, const AllocationKey& key);  // key as recorded for the block; false on failure
// On success the policy reports the block's true size; when it differs from the key's byte size the pool
// records the block under a key of that size.
#pragma once

#include <OXR/CriticalSection.h>
#include <zelcore/Utility.h>

#include <algorithm>
#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "Lumora/Queues.h"
#include "Memory/AllocationFailureTrace.h"
#include "Memory/AllocationKey.h"
#include "Memory/PoolBlock.h"

namespace LM {

// Above the low mark a free block is handed out only if it is at most this many times the request...
constexpr double kLowMarkSizeRatio = 3.0;
// ...and above the high mark only if it is at most this many times the request.
constexpr double kHighMarkSizeRatio = 1.5;

template <class PoolManager, class Less = std::less<AllocationKey>>
class DynamicPool {
 public:
  using PurgeCallback = boost::function<std::size_t(std::size_t)>;

  // `name` ("device" or "host") is kept, not copied, for the failure trace line.
  template <class... PolicyArgs>
  DynamicPool(const char* name, std::uint64_t lowMark, std::uint64_t highMark, PolicyArgs&&... policyArgs)
      : policy_(std::forward<PolicyArgs>(policyArgs)...),
        highMark_(highMark),
        lowMark_(lowMark),
        name_(name) {}
  // Gives every free block back to the driver. Blocks that callers still hold are left alone and reported
  // in one trace line (see the policy above): hosts keep a pool alive as long as its blocks.
  ~DynamicPool();
  DynamicPool(const DynamicPool&) = delete;
  DynamicPool& operator=(const DynamicPool&) = delete;

  // The queue that is made to wait when a block still in use on the GPU is handed out. Set while no
  // Allocate runs (the device recreates its queue under its exclusive access).
  void SetCommandQueue(const boost::weak_ptr<CommandQueue>& queue) { queue_ = queue; }

  // A block of at least key.ByteSize() bytes, or null; *allocatedBytes (when given) receives its size.
  void* Allocate(const AllocationKey& key, std::size_t* allocatedBytes);
  void Release(void* pointer, const boost::shared_ptr<Event>& readyEvent);
  // Starts a new trim period and gives back free blocks above the low mark.
  void Trim();
  // Asks the purge callbacks, then gives back free blocks, until `bytes` are freed; returns the bytes freed.
  std::size_t Purge(std::size_t bytes);
  std::size_t GetUsedSize();
  // Any pointer may be null.
  void GetStatistics(std::size_t* totalBytes, std::size_t* freeBlockCount, std::size_t* liveBlockCount,
                     std::size_t* lowMark, std::size_t* highMark) const;
  int AddPurgeCallback(const PurgeCallback& callback);
  void RemovePurgeCallback(int id);
  // Releases waiting to be folded into the free list.
  std::size_t PendingReleaseCount();

 private:
  template <class T>
  using Storage = zelcore::utility::SmallBlockAllocator<T>;
  using FreeBlocks =
      std::multimap<AllocationKey, PoolBlock, Less, Storage<std::pair<const AllocationKey, PoolBlock>>>;
  using FreeBlock = typename FreeBlocks::iterator;
  struct LiveBlock {
    AllocationKey key;
    bool free;  // in freeBlocks_; a second release of a free block is ignored
  };
  using LiveBlocks = std::map<void*, LiveBlock, std::less<void*>, Storage<std::pair<void* const, LiveBlock>>>;
  using PurgeCallbacks =
      std::map<int, PurgeCallback, std::less<int>, Storage<std::pair<const int, PurgeCallback>>>;
  using PendingReleases = std::vector<PoolBlock, Storage<PoolBlock>>;
  using HandedOut = std::set<void*, std::less<void*>, Storage<void*>>;

  void FoldPendingReleases();
  void* TakeFreeBlock(std::uint64_t request, std::uint64_t* size);
  FreeBlock ChooseFreeBlock(std::uint64_t request, bool* mustWait);
  bool ExceedsSizeRatio(std::uint64_t blockSize, std::uint64_t request) const;
  void OrderQueueAfter(const boost::shared_ptr<Event>& event);
  void* AllocateNewBlock(const AllocationKey& key, std::uint64_t* size);
  void* AllocateAfterPurging(const AllocationKey& key, std::uint64_t* size);
  void* ObtainFromPolicy(const AllocationKey& key, std::uint64_t* size);
  void HandOut(void* pointer);
  bool FreeThroughPolicy(void* pointer, const AllocationKey& key);
  std::uint64_t RetryRefusedFrees();
  FreeBlock ChooseBlockToGiveBack(bool onlyLarge);
  std::uint64_t GiveBack(FreeBlock block);
  void TrimToLowMark();
  std::uint64_t AskPurgeCallbacks(std::uint64_t bytes);
  // totalBytes_ + bytes, without wrapping.
  std::uint64_t TotalWith(std::uint64_t bytes) const;

  void CountObtained(std::uint64_t bytes) { totalBytes_ += bytes; }
  void CountGivenBack(std::uint64_t bytes) { totalBytes_ -= bytes; }
  void CountHandedOut(std::uint64_t bytes) {
    inUseBytes_ += bytes;
    currentMaxRequest_ = std::max(currentMaxRequest_, bytes);
  }
  void CountReturned(std::uint64_t bytes) { inUseBytes_ -= bytes; }
  void StartTrimPeriod() {
    previousMaxRequest_ = currentMaxRequest_;
    currentMaxRequest_ = 0;
  }

  boost::weak_ptr<CommandQueue> queue_;
  PoolManager policy_;
  std::uint64_t totalBytes_ = 0;  // obtained from the driver: in use plus free
  std::uint64_t inUseBytes_ = 0;  // handed out to callers
  std::uint64_t highMark_;
  std::uint64_t lowMark_;
  FreeBlocks freeBlocks_;
  LiveBlocks liveBlocks_;  // every block obtained and not given back, in use or free
  // Free blocks that the driver refused to take back, still in liveBlocks_ (marked free) but no longer in
  // freeBlocks_.
  std::vector<void*, Storage<void*>> refusedFrees_;
  std::uint64_t previousMaxRequest_ = 0;
  std::uint64_t currentMaxRequest_ = 0;
  PurgeCallbacks purgeCallbacks_;  // guarded by lock_
  int nextCallbackId_ = 1;         // guarded by lock_
  OXR::CriticalSection lock_;
  PendingReleases pendingReleases_;  // guarded by lock_
  HandedOut handedOut_;              // guarded by lock_: blocks out with callers, not yet released
  // The list being folded; swapped with pendingReleases_ so both keep their storage.
  PendingReleases folding_;
  const char* name_;
  AllocationTraceSwitch trace_;
};

template <class P, class L>
DynamicPool<P, L>::~DynamicPool() {
  // A destructor must not throw; exhausted memory while reporting leaves the rest of the blocks unfreed.
  try {
    FoldPendingReleases();
    std::uint64_t heldBlocks = 0;
    std::uint64_t heldBytes = 0;
    for (const auto& [pointer, live] : liveBlocks_) {
      if (live.free) {
        FreeThroughPolicy(pointer, live.key);
      } else {
        ++heldBlocks;
        heldBytes += live.key.ByteSize();
      }
    }
    if (heldBlocks != 0 && trace_.Enabled()) WritePoolDestroyedTrace(name_, heldBlocks, heldBytes);
  } catch (...) {
  }
}

template <class P, class L>
void* DynamicPool<P, L>::Allocate(const AllocationKey& key, std::size_t* allocatedBytes) {
  FoldPendingReleases();
  const std::uint64_t request = key.ByteSize();
  std::uint64_t size = 0;
  void* pointer = TakeFreeBlock(request, &size);
  if (pointer == nullptr) pointer = AllocateNewBlock(key, &size);
  if (pointer == nullptr) pointer = AllocateAfterPurging(key, &size);
  if (pointer == nullptr) {
    if (trace_.Enabled()) WriteAllocationFailureTrace(name_, request, totalBytes_);
    return nullptr;
  }
  HandOut(pointer);
  CountHandedOut(size);
  if (allocatedBytes != nullptr) *allocatedBytes = static_cast<std::size_t>(size);
  return pointer;
}

template <class P, class L>
void DynamicPool<P, L>::HandOut(void* pointer) {
  OXR::CriticalSectionLock guard(lock_, "DynamicPool::HandOut");
  handedOut_.insert(pointer);
}

// A pointer that is not out with a caller (never handed out, or released already) is dropped here, so
// that nothing but real releases waits for the next fold.
template <class P, class L>
void DynamicPool<P, L>::Release(void* pointer, const boost::shared_ptr<Event>& readyEvent) {
  if (pointer == nullptr) return;
  OXR::CriticalSectionLock guard(lock_, "DynamicPool::Release");
  const auto out = handedOut_.find(pointer);
  if (out == handedOut_.end()) return;
  pendingReleases_.push_back(PoolBlock{pointer, readyEvent});
  handedOut_.erase(out);
}

template <class P, class L>
void DynamicPool<P, L>::Trim() {
  StartTrimPeriod();
  TrimToLowMark();
}

template <class P, class L>
std::size_t DynamicPool<P, L>::Purge(std::size_t bytes) {
  std::uint64_t freed = RetryRefusedFrees();
  freed += AskPurgeCallbacks(bytes);
  FoldPendingReleases();
  while (freed < bytes && !freeBlocks_.empty()) freed += GiveBack(ChooseBlockToGiveBack(false));
  return static_cast<std::size_t>(freed);
}

template <class P, class L>
std::size_t DynamicPool<P, L>::GetUsedSize() {
  FoldPendingReleases();
  return static_cast<std::size_t>(inUseBytes_);
}

template <class P, class L>
void DynamicPool<P, L>::GetStatistics(std::size_t* totalBytes, std::size_t* freeBlockCount,
                                      std::size_t* liveBlockCount, std::size_t* lowMark,
                                      std::size_t* highMark) const {
  if (totalBytes != nullptr) *totalBytes = static_cast<std::size_t>(totalBytes_);
  if (freeBlockCount != nullptr) *freeBlockCount = freeBlocks_.size();
  if (liveBlockCount != nullptr) *liveBlockCount = liveBlocks_.size();
  if (lowMark != nullptr) *lowMark = static_cast<std::size_t>(lowMark_);
  if (highMark != nullptr) *highMark = static_cast<std::size_t>(highMark_);
}

template <class P, class L>
int DynamicPool<P, L>::AddPurgeCallback(const PurgeCallback& callback) {
  OXR::CriticalSectionLock guard(lock_, "DynamicPool::AddPurgeCallback");
  const int id = nextCallbackId_++;
  purgeCallbacks_[id] = callback;
  return id;
}

template <class P, class L>
void DynamicPool<P, L>::RemovePurgeCallback(int id) {
  OXR::CriticalSectionLock guard(lock_, "DynamicPool::RemovePurgeCallback");
  purgeCallbacks_.erase(id);
}

template <class P, class L>
std::size_t DynamicPool<P, L>::PendingReleaseCount() {
  OXR::CriticalSectionLock guard(lock_, "DynamicPool::PendingReleaseCount");
  return pendingReleases_.size();
}

template <class P, class L>
void DynamicPool<P, L>::FoldPendingReleases() {
  folding_.clear();
  {
    OXR::CriticalSectionLock guard(lock_, "DynamicPool::FoldPendingReleases");
    folding_.swap(pendingReleases_);
  }
  for (PoolBlock& release : folding_) {
    // Unknown pointers (and null ones released with an event) were never handed out by this pool.
    auto live = liveBlocks_.find(release.pointer);
    if (live == liveBlocks_.end() || live->second.free) continue;
    freeBlocks_.emplace(live->second.key, std::move(release));
    live->second.free = true;
    CountReturned(live->second.key.ByteSize());
  }
  // Drops the events' references now rather than at the next fold.
  folding_.clear();
}

template <class P, class L>
void* DynamicPool<P, L>::TakeFreeBlock(std::uint64_t request, std::uint64_t* size) {
  bool mustWait = false;
  const FreeBlock block = ChooseFreeBlock(request, &mustWait);
  if (block == freeBlocks_.end()) return nullptr;
  const std::uint64_t blockSize = block->first.ByteSize();
  if (ExceedsSizeRatio(blockSize, request)) return nullptr;
  if (mustWait) OrderQueueAfter(block->second.readyEvent);
  void* pointer = block->second.pointer;
  freeBlocks_.erase(block);
  liveBlocks_.find(pointer)->second.free = false;
  *size = blockSize;
  TrimToLowMark();
  return pointer;
}

template <class P, class L>
typename DynamicPool<P, L>::FreeBlock DynamicPool<P, L>::ChooseFreeBlock(std::uint64_t request,
                                                                         bool* mustWait) {
  const FreeBlock lowerBound = freeBlocks_.lower_bound(AllocationKey::OfSize(request));
  for (FreeBlock block = lowerBound; block != freeBlocks_.end(); ++block) {
    const boost::shared_ptr<Event>& event = block->second.readyEvent;
    if (!event || event->IsComplete()) return block;
  }
  if (lowerBound == freeBlocks_.end() || TotalWith(request) <= lowMark_) return freeBlocks_.end();
  *mustWait = static_cast<bool>(lowerBound->second.readyEvent);
  return lowerBound;
}

template <class P, class L>
bool DynamicPool<P, L>::ExceedsSizeRatio(std::uint64_t blockSize, std::uint64_t request) const {
  const double block = static_cast<double>(blockSize);
  const double requested = static_cast<double>(request);
  if (totalBytes_ > lowMark_ && block > kLowMarkSizeRatio * requested) return true;
  return totalBytes_ > highMark_ && block > kHighMarkSizeRatio * requested;
}

template <class P, class L>
void DynamicPool<P, L>::OrderQueueAfter(const boost::shared_ptr<Event>& event) {
  if (const boost::shared_ptr<CommandQueue> queue = queue_.lock()) queue->WaitForEvent(event);
}

template <class P, class L>
void* DynamicPool<P, L>::AllocateNewBlock(const AllocationKey& key, std::uint64_t* size) {
  const std::uint64_t request = key.ByteSize();
  if (TotalWith(request) > lowMark_ && !freeBlocks_.empty()) {
    GiveBack(ChooseBlockToGiveBack(TotalWith(request) < highMark_));
  }
  while (TotalWith(request) > highMark_ && !freeBlocks_.empty()) GiveBack(ChooseBlockToGiveBack(false));
  return ObtainFromPolicy(key, size);
}

// Each round must give driver memory back to earn another try. The callbacks' own report counts in the first
// round only: they may free driver memory that the pool does not see (a host's own), but a callback that
// keeps claiming progress without freeing anything would otherwise spin here for ever.
template <class P, class L>
void* DynamicPool<P, L>::AllocateAfterPurging(const AllocationKey& key, std::uint64_t* size) {
  const std::uint64_t request = key.ByteSize();
  for (bool firstRound = true;; firstRound = false) {
    const std::uint64_t reported = AskPurgeCallbacks(request);
    FoldPendingReleases();
    std::uint64_t freed = firstRound ? reported : 0;
    std::uint64_t givenBack = 0;
    while (freed < request && !freeBlocks_.empty()) {
      const std::uint64_t bytes = GiveBack(ChooseBlockToGiveBack(false));
      freed += bytes;
      givenBack += bytes;
    }
    if (givenBack == 0 && !(firstRound && reported != 0)) return nullptr;
    if (void* pointer = ObtainFromPolicy(key, size)) return pointer;
  }
}

template <class P, class L>
void* DynamicPool<P, L>::ObtainFromPolicy(const AllocationKey& key, std::uint64_t* size) {
  std::size_t reported = 0;
  const PoolBlock block = policy_.Allocate(key, &reported);
  if (block.pointer == nullptr) return nullptr;
  const AllocationKey recorded = reported == key.ByteSize() ? key : AllocationKey::OfSize(reported);
  liveBlocks_.emplace(block.pointer, LiveBlock{recorded, false});
  CountObtained(reported);
  *size = reported;
  return block.pointer;
}

template <class P, class L>
typename DynamicPool<P, L>::FreeBlock DynamicPool<P, L>::ChooseBlockToGiveBack(bool onlyLarge) {
  // Keep the first block above the previous period's largest request; offer the one after it.
  FreeBlock block = freeBlocks_.upper_bound(AllocationKey::OfSize(previousMaxRequest_));
  if (block != freeBlocks_.end()) ++block;
  if (block != freeBlocks_.end()) return block;
  return onlyLarge ? freeBlocks_.end() : freeBlocks_.begin();
}

template <class P, class L>
std::uint64_t DynamicPool<P, L>::GiveBack(FreeBlock block) {
  if (block == freeBlocks_.end()) return 0;
  const AllocationKey key = block->first;
  void* pointer = block->second.pointer;
  freeBlocks_.erase(block);
  // Looked up before it is freed: the pool never compares a freed pointer.
  const auto live = liveBlocks_.find(pointer);
  if (!FreeThroughPolicy(pointer, key)) {
    refusedFrees_.push_back(pointer);
    return 0;
  }
  if (live != liveBlocks_.end()) liveBlocks_.erase(live);
  CountGivenBack(key.ByteSize());
  return key.ByteSize();
}

template <class P, class L>
bool DynamicPool<P, L>::FreeThroughPolicy(void* pointer, const AllocationKey& key) {
  if (policy_.Free(pointer, key)) return true;
  if (trace_.Enabled()) WriteFreeFailureTrace(name_, key.ByteSize());
  return false;
}

template <class P, class L>
std::uint64_t DynamicPool<P, L>::RetryRefusedFrees() {
  std::uint64_t freed = 0;
  for (auto refused = refusedFrees_.begin(); refused != refusedFrees_.end();) {
    const auto live = liveBlocks_.find(*refused);
    if (live != liveBlocks_.end() && !FreeThroughPolicy(live->first, live->second.key)) {
      ++refused;
      continue;
    }
    if (live != liveBlocks_.end()) {
      freed += live->second.key.ByteSize();
      CountGivenBack(live->second.key.ByteSize());
      liveBlocks_.erase(live);
    }
    refused = refusedFrees_.erase(refused);
  }
  return freed;
}

template <class P, class L>
void DynamicPool<P, L>::TrimToLowMark() {
  while (totalBytes_ > lowMark_ && !freeBlocks_.empty()) {
    const FreeBlock block = ChooseBlockToGiveBack(totalBytes_ < highMark_);
    if (block == freeBlocks_.end()) break;
    GiveBack(block);
  }
}

template <class P, class L>
std::uint64_t DynamicPool<P, L>::AskPurgeCallbacks(std::uint64_t bytes) {
  std::uint64_t freed = 0;
  std::uint64_t wanted = bytes;
  bool started = false;
  int lastId = 0;
  for (;;) {
    PurgeCallback callback;
    {
      OXR::CriticalSectionLock guard(lock_, "DynamicPool::AskPurgeCallbacks");
      const auto next = started ? purgeCallbacks_.upper_bound(lastId) : purgeCallbacks_.begin();
      if (next == purgeCallbacks_.end()) break;
      started = true;
      lastId = next->first;
      callback = next->second;
    }
    // The callbacks are the host's code: whatever one throws stays here, and the next is still asked.
    std::uint64_t released = 0;
    try {
      released = callback(static_cast<std::size_t>(wanted));
    } catch (...) {
      released = 0;
    }
    freed += released;
    wanted -= std::min(released, wanted);
    if (wanted == 0) break;
  }
  return freed;
}

template <class P, class L>
std::uint64_t DynamicPool<P, L>::TotalWith(std::uint64_t bytes) const {
  const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - totalBytes_;
  return bytes > room ? std::numeric_limits<std::uint64_t>::max() : totalBytes_ + bytes;
}

}  // namespace LM
