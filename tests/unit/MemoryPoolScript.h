// A scripted allocation policy, scripted events and a scripted command queue, so that every rule of the
// memory pool can be watched without a driver. The policy hands out made-up addresses (nothing is ever
// dereferenced), records what it was asked, and refuses on command or when its "device" is full.
#pragma once

#include <array>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <vector>

#include "Lumora/Queues.h"
#include "Lumora/Results.h"
#include "Memory/DynamicPool.h"

namespace memorypooltest {

constexpr std::uint64_t kMB = std::uint64_t(1) << 20;

// What the scripted driver did and will do; shared by every copy of the policy.
struct DriverScript {
  std::vector<std::uint64_t> allocations;  // byte sizes asked for, in order
  std::vector<void*> frees;                // blocks given back, in order
  std::vector<std::uint64_t> freedSizes;   // their sizes, in the same order
  std::map<void*, std::uint64_t> live;     // blocks out, by address
  std::uint64_t capacity = ~std::uint64_t(0);
  bool refuseAll = false;
  std::uintptr_t nextAddress = 0x100000;

  std::uint64_t LiveBytes() const {
    std::uint64_t bytes = 0;
    for (const auto& block : live) bytes += block.second;
    return bytes;
  }
};

class ScriptedPolicy {
 public:
  explicit ScriptedPolicy(DriverScript* script) : script_(script) {}

  LM::PoolBlock Allocate(const LM::AllocationKey& key, std::size_t* allocatedBytes) {
    const std::uint64_t bytes = key.ByteSize();
    script_->allocations.push_back(bytes);
    if (script_->refuseAll || script_->LiveBytes() + bytes > script_->capacity) return {};
    void* pointer = reinterpret_cast<void*>(script_->nextAddress);
    script_->nextAddress += 0x1000;
    script_->live[pointer] = bytes;
    *allocatedBytes = static_cast<std::size_t>(bytes);
    return LM::PoolBlock{pointer, {}};
  }
  void Free(void* pointer, const LM::AllocationKey& key) {
    script_->frees.push_back(pointer);
    script_->freedSizes.push_back(key.ByteSize());
    script_->live.erase(pointer);
  }

 private:
  DriverScript* script_;
};

class ScriptedEvent : public LM::Event {
 public:
  explicit ScriptedEvent(bool complete) : complete_(complete) {}
  void SetComplete(bool complete) { complete_ = complete; }

  bool IsComplete() override { return complete_; }
  float ElapsedTime(const boost::shared_ptr<LM::Event>&) override { return 0.0f; }
  void Wait() override {}
  void* GetNativeEvent() override { return nullptr; }

 private:
  bool complete_;
};

inline boost::shared_ptr<ScriptedEvent> PendingEvent() {
  return boost::make_shared<ScriptedEvent>(false);
}
inline boost::shared_ptr<ScriptedEvent> CompleteEvent() {
  return boost::make_shared<ScriptedEvent>(true);
}

// Records the events that later work was made to wait for; does nothing else.
class ScriptedQueue : public LM::CommandQueue {
 public:
  std::vector<boost::shared_ptr<LM::Event>> waitedFor;

  void* GetNativeQueue() override { return nullptr; }
  boost::shared_ptr<LM::Event> RecordEvent() override { return {}; }
  void WaitForEvent(const boost::shared_ptr<LM::Event>& event) override { waitedFor.push_back(event); }
  int LaunchKernel(void*, int, int, int, int, boost::shared_ptr<LM::Event>*) override {
    return LM::kResultFailed;
  }
  int CopyHostToDevice(const void*, void*, std::size_t, boost::shared_ptr<LM::Event>*) override {
    return LM::kResultFailed;
  }
  int CopyDeviceToHost(const void*, void*, std::size_t, boost::shared_ptr<LM::Event>*, bool) override {
    return LM::kResultFailed;
  }
};

using ScriptedPool = LM::DynamicPool<ScriptedPolicy>;

// Total bytes, free blocks, live blocks and bytes in use.
using PoolStatistics = std::array<std::size_t, 4>;

inline PoolStatistics Statistics(ScriptedPool& pool) {
  PoolStatistics statistics{};
  pool.GetStatistics(&statistics[0], &statistics[1], &statistics[2], nullptr, nullptr);
  statistics[3] = pool.GetUsedSize();
  return statistics;
}

inline void* AllocateBytes(ScriptedPool& pool, std::uint64_t bytes, std::size_t* allocated = nullptr) {
  return pool.Allocate(LM::AllocationKey::OfSize(bytes), allocated);
}

}  // namespace memorypooltest
