// The memory pool's rules, watched through a scripted allocation policy, events and command queue without a
// driver: which free block a request takes (readiness of its event, queue ordering, the size ratios of a
// grown pool), growth past the marks, trimming, purge callbacks, a refusing driver and its trace lines, and
// the manager that wraps the pool for hosts.
#include <gtest/gtest.h>
#include <zelcore/Threads.h>
#include <zelcore/Trace.h>

#include <array>
#include <boost/make_shared.hpp>
#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Lumora/PixelFormats.h"
#include "Lumora/Queues.h"
#include "Memory/DynamicPool.h"
#include "Memory/TemplateMemoryManager.h"

namespace {

constexpr std::uint64_t kMB = std::uint64_t(1) << 20;
using Sizes = std::vector<std::uint64_t>;

// The driver as the policy sees it: made-up addresses (never dereferenced), and what it was asked.
struct DriverScript {
  Sizes allocations;                    // byte sizes asked for, in order
  Sizes freedSizes;                     // byte sizes given back, in order
  std::map<void*, std::uint64_t> live;  // blocks out, by address
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

boost::shared_ptr<ScriptedEvent> MakeEvent(bool complete) {
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
using ScriptedManager = LM::TemplateMemoryManager<ScriptedPolicy>;

// Total bytes, free blocks, live blocks and bytes in use.
std::array<std::size_t, 4> Statistics(ScriptedPool& pool) {
  std::array<std::size_t, 4> statistics{};
  pool.GetStatistics(&statistics[0], &statistics[1], &statistics[2], nullptr, nullptr);
  statistics[3] = pool.GetUsedSize();
  return statistics;
}

void* AllocateBytes(ScriptedPool& pool, std::uint64_t bytes, std::size_t* allocated = nullptr) {
  return pool.Allocate(LM::AllocationKey::OfSize(bytes), allocated);
}

Sizes MB(std::initializer_list<std::uint64_t> megabytes) {
  Sizes sizes;
  for (std::uint64_t m : megabytes) sizes.push_back(m * kMB);
  return sizes;
}

void AllocateAndRelease(ScriptedPool& pool, std::initializer_list<std::uint64_t> megabytes) {
  std::vector<void*> blocks;
  for (std::uint64_t m : megabytes) blocks.push_back(AllocateBytes(pool, m * kMB));
  for (void* block : blocks) pool.Release(block, {});
}

// The trace lines written while it lives, in the category "Lumora".
struct TraceLines {
  TraceLines() {
    zelcore::trace::SetTraceSink([this](const std::string& line) { lines.push_back(line); });
    zelcore::trace::SetTraceCategories("Lumora");
  }
  ~TraceLines() { zelcore::trace::SetTraceSink({}); }
  bool Has(const std::string& text) const {
    for (const std::string& line : lines) {
      if (line.find(text) != std::string::npos) return true;
    }
    return false;
  }
  std::vector<std::string> lines;
};

TEST(MemoryPoolReuse, TakesTheFirstReadyBlockUpwardsAndBelowTheLowMarkNeverWaits) {
  DriverScript driver;
  auto queue = boost::make_shared<ScriptedQueue>();
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  pool.SetCommandQueue(queue);
  void* b4 = AllocateBytes(pool, 4 * kMB);
  void* b6 = AllocateBytes(pool, 6 * kMB);
  void* b8 = AllocateBytes(pool, 8 * kMB);
  void* b10 = AllocateBytes(pool, 10 * kMB);
  const auto pending = MakeEvent(false);
  pool.Release(b6, pending);
  pool.Release(b8, MakeEvent(true));
  pool.Release(b10, {});
  pool.Release(b4, {});

  std::size_t allocated = 0;
  EXPECT_EQ(AllocateBytes(pool, 5 * kMB, &allocated), b8) << "b6 is still in use on the GPU";
  EXPECT_EQ(allocated, 8 * kMB);
  EXPECT_EQ(AllocateBytes(pool, 5 * kMB), b10);
  EXPECT_NE(AllocateBytes(pool, 5 * kMB), b6) << "below the low mark a new block rather than a wait";
  EXPECT_EQ(driver.allocations.size(), 5u);
  EXPECT_TRUE(queue->waitedFor.empty());
  pending->complete = true;
  EXPECT_EQ(AllocateBytes(pool, 5 * kMB), b6);
  EXPECT_EQ(AllocateBytes(pool, 0), b4) << "a 0-byte request takes any free block";
  EXPECT_EQ(pool.GetUsedSize(), 33 * kMB);
}

TEST(MemoryPoolReuse, AboveTheLowMarkAPendingBlockIsTakenAndTheQueueOrderedAfterIt) {
  DriverScript driver;
  auto queue = boost::make_shared<ScriptedQueue>();
  ScriptedPool pool("device", 8 * kMB, 1024 * kMB, &driver);
  pool.SetCommandQueue(queue);
  void* b6 = AllocateBytes(pool, 6 * kMB);
  void* b7 = AllocateBytes(pool, 7 * kMB);
  const auto event6 = MakeEvent(false);
  pool.Release(b6, event6);
  pool.Release(b7, MakeEvent(false));

  EXPECT_EQ(AllocateBytes(pool, 5 * kMB), b6) << "the lower bound";
  EXPECT_EQ(queue->waitedFor, (std::vector<boost::shared_ptr<LM::Event>>{event6}));
  EXPECT_NE(AllocateBytes(pool, 2 * kMB), b7) << "7 MB > 3 x 2 MB";
  EXPECT_EQ(queue->waitedFor.size(), 1u) << "a block refused by the size ratio is not waited for";
  queue.reset();
  EXPECT_EQ(AllocateBytes(pool, 7 * kMB), b7) << "without a queue the block is still handed out";
  EXPECT_EQ(driver.allocations.size(), 3u);
}

// The ratios are bounds that a block may meet exactly: a block of exactly 3 (or 1.5) times the request is
// still taken, one byte less of request and it is not. A free 12 MB block beside 20 MB in use, against the
// given marks.
TEST(MemoryPoolReuse, AGrownPoolServesOnlyRequestsCloseToTheBlockSize) {
  const struct {
    std::uint64_t lowMark, highMark, request;
    bool takes;
  } cases[] = {{32 * kMB, 100 * kMB, 3 * kMB, true},  // within the low mark any request
               {31 * kMB, 100 * kMB, 4 * kMB, true},  // above it, a block of exactly 3 x the request
               {31 * kMB, 100 * kMB, 4 * kMB - 1, false},
               {10 * kMB, 31 * kMB, 8 * kMB, true},  // above the high mark, exactly 1.5 x the request
               {10 * kMB, 31 * kMB, 8 * kMB - 1, false}};
  for (const auto& c : cases) {
    DriverScript driver;
    ScriptedPool pool("device", c.lowMark, c.highMark, &driver);
    AllocateBytes(pool, 20 * kMB);
    void* block = AllocateBytes(pool, 12 * kMB);
    pool.Release(block, {});
    std::size_t allocated = 0;
    EXPECT_EQ(AllocateBytes(pool, c.request, &allocated) == block, c.takes) << c.request;
    EXPECT_EQ(allocated, c.takes ? 12 * kMB : c.request) << c.request;
  }
}

// Such releases are dropped when they are made, so however many a host makes between two allocations, the
// pending list holds no more than the blocks that are out; releases may come from any thread.
TEST(MemoryPoolReuse, ReleasesOfUnknownNullOrAlreadyFreeBlocksAreIgnoredAndAnyThreadMayRelease) {
  DriverScript driver;
  ScriptedPool pool("host", 1024 * kMB, 2048 * kMB, &driver);
  void* a = AllocateBytes(pool, 4 * kMB);
  AllocateBytes(pool, 4 * kMB);
  const auto before = Statistics(pool);
  for (int i = 0; i < 10000; ++i) {
    pool.Release(reinterpret_cast<void*>(0xdead000), {});
    pool.Release(nullptr, MakeEvent(true));
  }
  EXPECT_EQ(pool.PendingReleaseCount(), 0u);
  EXPECT_EQ(Statistics(pool), before);
  for (int i = 0; i < 10000; ++i) pool.Release(a, {});
  EXPECT_EQ(pool.PendingReleaseCount(), 1u);
  EXPECT_EQ(pool.GetUsedSize(), 4 * kMB);
  EXPECT_EQ(AllocateBytes(pool, 4 * kMB), a);
  EXPECT_NE(AllocateBytes(pool, 4 * kMB), a) << "a block is never handed out twice";

  std::vector<void*> blocks;
  for (int i = 0; i < 128; ++i) blocks.push_back(AllocateBytes(pool, kMB));
  const std::size_t used = pool.GetUsedSize();
  std::vector<std::thread> releasers;
  for (int t = 0; t < 4; ++t) {
    releasers.emplace_back([&pool, &blocks, t] {
      for (int i = t; i < 128; i += 4) pool.Release(blocks[i], MakeEvent(true));
    });
  }
  std::set<void*> held;
  for (int i = 0; i < 200; ++i)
    EXPECT_TRUE(held.insert(AllocateBytes(pool, kMB)).second) << "handed out twice";
  for (std::thread& releaser : releasers) releaser.join();
  EXPECT_EQ(pool.GetUsedSize(), used - 128 * kMB + held.size() * kMB);
}

TEST(MemoryPoolPressure, GrowingKeepsOneBlockAboveThePreviousPeriodsLargestRequest) {
  DriverScript driver;
  ScriptedPool pool("device", 32 * kMB, 64 * kMB, &driver);
  AllocateAndRelease(pool, {2, 4, 8, 16});
  pool.Trim();
  pool.Release(AllocateBytes(pool, 4 * kMB), {});
  pool.Trim();  // the previous period's largest request is now 4 MB

  AllocateBytes(pool, 20 * kMB);
  EXPECT_EQ(driver.freedSizes, MB({16})) << "past the low mark: 8 MB is kept, the next one goes";
  AllocateBytes(pool, 24 * kMB);
  EXPECT_EQ(driver.freedSizes, MB({16})) << "below the high mark nothing but the next one goes";
  AllocateBytes(pool, 10 * kMB);
  EXPECT_EQ(driver.freedSizes, MB({16, 2, 4})) << "past the high mark the smallest go until it fits";
  EXPECT_EQ(Statistics(pool)[0], 62 * kMB);
  EXPECT_EQ(Statistics(pool)[1], 1u);
}

TEST(MemoryPoolPressure, PurgeAsksCallbacksUnlockedInIdOrderUntilSatisfiedThenGivesBackBlocks) {
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  AllocateAndRelease(pool, {2, 3});
  std::vector<std::pair<int, std::size_t>> asked;
  const auto callback = [&asked, &pool](int who, std::uint64_t gives) {
    return [&asked, &pool, who, gives](std::size_t wanted) {
      asked.emplace_back(who, wanted);
      // Called without the pool's lock: a release from another thread goes through meanwhile.
      auto other =
          std::async(std::launch::async, [&pool] { pool.Release(reinterpret_cast<void*>(0x10), {}); });
      EXPECT_EQ(other.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "the lock was held";
      return static_cast<std::size_t>(gives);
    };
  };
  pool.AddPurgeCallback(callback(1, kMB));
  const int removed = pool.AddPurgeCallback(callback(99, 0));
  const int second = pool.AddPurgeCallback(callback(2, 2 * kMB));
  const int third = pool.AddPurgeCallback(callback(3, 8 * kMB));
  const int unasked = pool.AddPurgeCallback(callback(4, 0));
  pool.RemovePurgeCallback(removed);

  EXPECT_EQ(pool.Purge(4 * kMB), 11 * kMB);
  EXPECT_EQ(asked, (std::vector<std::pair<int, std::size_t>>{{1, 4 * kMB}, {2, 3 * kMB}, {3, kMB}}));
  EXPECT_TRUE(driver.freedSizes.empty());
  for (int id : {second, third, unasked}) pool.RemovePurgeCallback(id);
  EXPECT_EQ(pool.Purge(4 * kMB), 4 * kMB);
  EXPECT_EQ(driver.freedSizes, MB({3})) << "1 MB from the callback, then the block after the kept one";
}

// A refused allocation purges and retries; a callback that keeps claiming progress without freeing
// anything gets one retry, not an endless loop.
TEST(MemoryPoolPressure, ARefusedAllocationPurgesAndRetriesWhileRoundsGiveDriverMemoryBack) {
  DriverScript driver;
  driver.capacity = 16 * kMB;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  void* cached = AllocateBytes(pool, 8 * kMB);  // held by a "frame cache" until purged
  AllocateAndRelease(pool, {4});
  pool.AddPurgeCallback([&pool, cached, purged = false](std::size_t) mutable -> std::size_t {
    if (purged) return 0;
    purged = true;
    pool.Release(cached, {});
    return 8 * kMB;
  });
  EXPECT_NE(AllocateBytes(pool, 12 * kMB), nullptr);
  EXPECT_EQ(driver.allocations, MB({8, 4, 12, 12}));
  EXPECT_EQ(driver.freedSizes, MB({8})) << "the released block, not the free 4 MB one";

  DriverScript other;
  ScriptedPool liar("device", 1024 * kMB, 2048 * kMB, &other);
  AllocateAndRelease(liar, {1});
  other.capacity = 0;
  int calls = 0;
  liar.AddPurgeCallback([&calls](std::size_t wanted) -> std::size_t { return ++calls < 1000 ? wanted : 0; });
  EXPECT_EQ(AllocateBytes(liar, 4 * kMB), nullptr);
  EXPECT_LE(calls, 3) << "asked again only after a round that gave driver memory back";
  EXPECT_EQ(other.freedSizes, MB({1}));
}

TEST(MemoryPoolPressure, AFailureWithNothingToPurgeChangesNothingAndTracesOneLine) {
  TraceLines trace;
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  AllocateBytes(pool, 3 * kMB + 5);
  driver.capacity = 0;
  const auto before = Statistics(pool);
  EXPECT_EQ(AllocateBytes(pool, 5 * kMB + 123), nullptr);
  EXPECT_EQ(Statistics(pool), before);
  const std::string thread = std::to_string(zelcore::threads::GetCurrentThreadID());
  EXPECT_EQ(trace.lines,
            std::vector<std::string>{"<" + thread +
                                     "> <Lumora> <0> Unable to allocate device memory of size: 5mb, "
                                     "current size: 3mb\n"});
  zelcore::trace::SetTraceCategories("Other");
  EXPECT_EQ(AllocateBytes(pool, kMB), nullptr);
  EXPECT_EQ(trace.lines.size(), 1u) << "not traced once the category is off";
}

// Whatever a host's callback throws stays inside: the other callbacks are still asked.
TEST(MemoryPoolPressure, TheManagerNeverThrowsWhateverACallbackThrows) {
  DriverScript driver;
  auto manager = std::make_unique<ScriptedManager>("device", 0, kMB, 2 * kMB, 0, &driver);
  manager->Release(manager->Allocate(kMB, nullptr), MakeEvent(false));
  driver.capacity = 0;
  int asked = 0;
  manager->AddPurgeCallback({});  // throws boost::bad_function_call
  manager->AddPurgeCallback([](std::size_t) -> std::size_t { throw 42; });
  manager->AddPurgeCallback([&asked](std::size_t) -> std::size_t { return ++asked, 0; });
  EXPECT_NO_THROW(EXPECT_EQ(manager->Allocate(4 * kMB, nullptr), nullptr));
  EXPECT_NO_THROW(EXPECT_EQ(manager->Purge(kMB), 0u));
  EXPECT_EQ(asked, 2);
}

// Freed memory under live GPU work is a crash; a leak until the context goes is not.
TEST(MemoryPoolPressure, APoolThatDiesKeepsTheBlocksCallersHoldAndSaysSo) {
  TraceLines trace;
  DriverScript driver;
  auto manager = std::make_unique<ScriptedManager>("device", 0, kMB, 2 * kMB, 0, &driver);
  void* held = manager->Allocate(1920, 1080, LM::kPixelFormat_GPU_BGRA_4444_16f, nullptr);
  manager->Allocate(kMB, nullptr);
  manager->Release(manager->Allocate(kMB, nullptr), MakeEvent(false));
  manager.reset();
  EXPECT_EQ(driver.freedSizes, MB({1})) << "only the free block";
  EXPECT_EQ(driver.live.count(held), 1u);
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_TRUE(trace.Has("device pool destroyed with 2 blocks (16mb) still in use"));
}

// The block stays the pool's until the driver takes it: the next purge tries again.
TEST(MemoryPoolPressure, AFreeTheDriverRefusesIsTracedAndTriedAgain) {
  TraceLines trace;
  DriverScript driver;
  ScriptedPool pool("host", 0, 2048 * kMB, &driver);
  driver.refuseFrees = true;
  AllocateAndRelease(pool, {3});
  EXPECT_EQ(pool.Purge(3 * kMB), 0u);
  EXPECT_TRUE(trace.Has("Unable to free host memory of size: 3mb"));
  EXPECT_EQ(Statistics(pool), (std::array<std::size_t, 4>{3 * kMB, 0, 1, 0}));
  driver.refuseFrees = false;
  EXPECT_EQ(pool.Purge(3 * kMB), 3 * kMB);
  EXPECT_TRUE(driver.live.empty());
}

}  // namespace
