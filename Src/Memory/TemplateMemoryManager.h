// The memory manager of one device memory kind: a DynamicPool over an allocation policy, and the frame
// cache of that memory, which the pool asks to give memory back before an allocation is declared failed.
// The manager is what hosts reach through MemoryManager, so nothing it calls may throw past it: any
// exception inside (exhausted memory for the pool's own bookkeeping, whatever a host's code throws) turns
// into the call's failure value.
#pragma once

#include <boost/bind/bind.hpp>
#include <cstddef>
#include <utility>

#include "Memory/DynamicPool.h"
#include "Memory/PooledMemoryManager.h"

namespace LM {

template <class PoolManager>
class TemplateMemoryManager final : public PooledMemoryManager {
 public:
  // `name` ("device" or "host") is kept, not copied; `ordinal` (the device's, for the device pool) is only
  // stored. `policyArgs` construct the policy (the OpenCL device policy takes its cl_context).
  template <class... PolicyArgs>
  TemplateMemoryManager(const char* name, std::size_t frameCacheLimit, std::size_t lowMark,
                        std::size_t highMark, unsigned int ordinal, PolicyArgs&&... policyArgs)
      : pool_(name, lowMark, highMark, std::forward<PolicyArgs>(policyArgs)...),
        frameCache_(frameCacheLimit),
        name_(name),
        ordinal_(ordinal) {
    frameCacheCallbackId_ =
        pool_.AddPurgeCallback(boost::bind(&FrameCache::Purge, &frameCache_, boost::placeholders::_1));
  }

  void Trim() override {
    pool_.Trim();
    frameCache_.IncrementGeneration();
  }
  void* Allocate(std::size_t bytes, std::size_t* allocatedBytes) override {
    return AllocateGuarded(AllocationKey::OfSize(bytes), allocatedBytes);
  }
  void* Allocate(int width, int height, zelmediatypes::PixelFormat format,
                 std::size_t* allocatedBytes) override {
    return AllocateGuarded(AllocationKey::OfShape(width, height, format), allocatedBytes);
  }
  void Release(void* block, const boost::shared_ptr<Event>& readyEvent) override {
    try {
      pool_.Release(block, readyEvent);
    } catch (...) {
      // Only exhausted memory can end up here; the block then stays counted as in use.
    }
  }
  std::size_t Purge(std::size_t bytes) override {
    try {
      return pool_.Purge(bytes);
    } catch (...) {
      return 0;
    }
  }
  std::size_t GetUsedSize() override {
    try {
      return pool_.GetUsedSize();
    } catch (...) {
      return 0;
    }
  }
  void GetStatistics(std::size_t* totalBytes, std::size_t* freeBlockCount, std::size_t* liveBlockCount,
                     std::size_t* lowMark, std::size_t* highMark) override {
    pool_.GetStatistics(totalBytes, freeBlockCount, liveBlockCount, lowMark, highMark);
  }
  // -1 when the callback could not be stored.
  int AddPurgeCallback(const boost::function<std::size_t(std::size_t)>& callback) override {
    try {
      return pool_.AddPurgeCallback(callback);
    } catch (...) {
      return -1;
    }
  }
  // The flag is accepted for the interface's sake and has no effect: a callback is removed at once.
  void RemovePurgeCallback(int id, bool) override {
    try {
      pool_.RemovePurgeCallback(id);
    } catch (...) {
      // Only the lock can fail here; the callback then stays registered.
    }
  }
  FrameCache& GetFrameCache() override { return frameCache_; }

  void SetCommandQueue(const boost::weak_ptr<CommandQueue>& queue) override { pool_.SetCommandQueue(queue); }
  const char* GetName() const { return name_; }
  unsigned int GetOrdinal() const { return ordinal_; }

 private:
  void* AllocateGuarded(const AllocationKey& key, std::size_t* allocatedBytes) {
    try {
      return pool_.Allocate(key, allocatedBytes);
    } catch (...) {
      return nullptr;
    }
  }

  DynamicPool<PoolManager> pool_;
  int frameCacheCallbackId_ = 0;
  FrameCache frameCache_;
  const char* name_;
  unsigned int ordinal_;
};

}  // namespace LM
