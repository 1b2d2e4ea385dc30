// A scripted allocation policy, events and command queue, so the memory pool's rules can be watched without
// a driver. The policy hands out made-up addresses (never dereferenced) and records what it was asked.
#pragma once

#include <array>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <vector>

#include "Lumora/Queues.h"
#include "Memory/DynamicPool.h"

namespace memorypooltest {

constexpr std::uint64_t kMB = std::uint64_t(1) << 20;

struct DriverScript {
  std::vector<std::uint64_t> allocations;  // byte sizes asked for, in order
  std::vector<std::uint64_t> freedSizes;   // byte sizes given back, in order
  std::map<void*, std::uint64_t> live;     // blocks out, by address
  std::uint64_t capacity = ~std::uint64_t(0);
  bool refuseFrees = false;
  std::uintptr_t nextAddress = 0x100000;
};

class ScriptedPolicy {
 public:
  explicit ScriptedPolicy(DriverScript* script) : script_(script) {}
  LM::PoolBlock Allocate(const LM::AllocationKey& key, std::size_t* allocatedBytes) {
    const std::uint64_t bytes = key.ByteSize();
    script_->allocations.push_back(bytes);
    std::uint64_t liveBytes = 0;
    for (const auto& block : script_->live) liveBytes += block.second;
    if (liveBytes + bytes > script_->capacity) return {};
    void* pointer = reinterpret_cast<void*>(script_->nextAddress += 0x1000);
    script_->live[pointer] = bytes;
    *allocatedBytes = static_cast<std::size_t>(bytes);
    return LM::PoolBlock{pointer, {}};
  }
  bool Free(void* pointer, const LM::AllocationKey& key) {
    if (script_->refuseFrees) return false;
    script_->freedSizes.push_back(key.ByteSize());
    script_->live.erase(pointer);
    return true;
  }

 private:
  DriverScript* script_;
};

struct ScriptedEvent : LM::Event {
  explicit ScriptedEvent(bool complete) : complete(complete) {}
  bool IsComplete() override { return complete; }
  float ElapsedTime(const boost::shared_ptr<LM::Event>&) override { return 0.0f; }
  void Wait() override {}
  void* GetNativeEvent() override { return nullptr; }
  bool complete;
};

inline boost::shared_ptr<ScriptedEvent> MakeEvent(bool complete) {
  return boost::make_shared<ScriptedEvent>(complete);
}

// Records the events that later work was made to wait for; does nothing else.
struct ScriptedQueue : LM::CommandQueue {
  using Done = boost::shared_ptr<LM::Event>*;
  void* GetNativeQueue() override { return nullptr; }
  boost::shared_ptr<LM::Event> RecordEvent() override { return {}; }
  void WaitForEvent(const boost::shared_ptr<LM::Event>& event) override { waitedFor.push_back(event); }
  int LaunchKernel(void*, int, int, int, int, Done) override { return -1; }
  int CopyHostToDevice(const void*, void*, std::size_t, Done) override { return -1; }
  int CopyDeviceToHost(const void*, void*, std::size_t, Done, bool) override { return -1; }
  std::vector<boost::shared_ptr<LM::Event>> waitedFor;
};

using ScriptedPool = LM::DynamicPool<ScriptedPolicy>;

// Total bytes, free blocks, live blocks and bytes in use.
inline std::array<std::size_t, 4> Statistics(ScriptedPool& pool) {
  std::array<std::size_t, 4> statistics{};
  pool.GetStatistics(&statistics[0], &statistics[1], &statistics[2], nullptr, nullptr);
  statistics[3] = pool.GetUsedSize();
  return statistics;
}

inline void* AllocateBytes(ScriptedPool& pool, std::uint64_t bytes, std::size_t* allocated = nullptr) {
  return pool.Allocate(LM::AllocationKey::OfSize(bytes), allocated);
}

}  // namespace memorypooltest
