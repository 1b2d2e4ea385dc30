// What a pool gives back and when: growth past its marks, trimming, purge callbacks, a refusing driver and
// its trace line, and the manager that wraps the pool for hosts.
#include <gtest/gtest.h>
#include <zelcore/Threads.h>
#include <zelcore/Trace.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "Lumora/PixelFormats.h"
#include "Memory/TemplateMemoryManager.h"
#include "MemoryPoolScript.h"

namespace {

using namespace memorypooltest;
using Sizes = std::vector<std::uint64_t>;

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

TEST(MemoryPoolPressure, ARefusedAllocationPurgesAndRetries) {
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
}

TEST(MemoryPoolPressure, AFailureWithNothingToPurgeChangesNothingAndTracesOneLine) {
  std::vector<std::string> lines;
  zelcore::trace::SetTraceSink([&lines](const std::string& line) { lines.push_back(line); });
  zelcore::trace::SetTraceCategories("Lumora");
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  AllocateBytes(pool, 3 * kMB + 5);
  driver.capacity = 0;
  const auto before = Statistics(pool);

  EXPECT_EQ(AllocateBytes(pool, 5 * kMB + 123), nullptr);
  EXPECT_EQ(Statistics(pool), before);
  const std::string thread = std::to_string(zelcore::threads::GetCurrentThreadID());
  EXPECT_EQ(lines, std::vector<std::string>{"<" + thread +
                                            "> <Lumora> <0> Unable to allocate device memory of size: 5mb, "
                                            "current size: 3mb\n"});
  zelcore::trace::SetTraceCategories("Other");
  EXPECT_EQ(AllocateBytes(pool, kMB), nullptr);
  EXPECT_EQ(lines.size(), 1u) << "not traced once the category is off";
  zelcore::trace::SetTraceSink({});
}

// A callback that keeps claiming progress without freeing anything gets one retry, not an endless loop.
TEST(MemoryPoolPressure, RetriesEndWhenARoundGivesNoDriverMemoryBack) {
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  AllocateAndRelease(pool, {1});
  driver.capacity = 0;
  int calls = 0;
  pool.AddPurgeCallback([&calls](std::size_t wanted) -> std::size_t { return ++calls < 1000 ? wanted : 0; });
  EXPECT_EQ(AllocateBytes(pool, 4 * kMB), nullptr);
  EXPECT_LE(calls, 3) << "asked again only after a round that gave driver memory back";
  EXPECT_EQ(driver.freedSizes, MB({1}));
}

struct TraceLines {
  TraceLines() {
    zelcore::trace::SetTraceSink([this](const std::string& line) { lines.push_back(line); });
    zelcore::trace::SetTraceCategories("Lumora");
  }
  ~TraceLines() { zelcore::trace::SetTraceSink({}); }
  std::vector<std::string> lines;
};

bool Contains(const std::vector<std::string>& lines, const std::string& text) {
  for (const std::string& line : lines) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

// Whatever a host's callback throws stays inside: the other callbacks are still asked.
TEST(MemoryPoolPressure, TheManagerNeverThrowsWhateverACallbackThrows) {
  DriverScript driver;
  auto manager =
      std::make_unique<LM::TemplateMemoryManager<ScriptedPolicy>>("device", 0, kMB, 2 * kMB, 0, &driver);
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
  auto manager =
      std::make_unique<LM::TemplateMemoryManager<ScriptedPolicy>>("device", 0, kMB, 2 * kMB, 0, &driver);
  void* held = manager->Allocate(1920, 1080, LM::kPixelFormat_GPU_BGRA_4444_16f, nullptr);
  manager->Allocate(kMB, nullptr);
  manager->Release(manager->Allocate(kMB, nullptr), MakeEvent(false));
  manager.reset();
  EXPECT_EQ(driver.freedSizes, MB({1})) << "only the free block";
  EXPECT_EQ(driver.live.count(held), 1u);
  ASSERT_EQ(trace.lines.size(), 1u);
  EXPECT_TRUE(Contains(trace.lines, "device pool destroyed with 2 blocks (16mb) still in use"));
}

// The block stays the pool's until the driver takes it: the next purge tries again.
TEST(MemoryPoolPressure, AFreeTheDriverRefusesIsTracedAndTriedAgain) {
  TraceLines trace;
  DriverScript driver;
  ScriptedPool pool("host", 0, 2048 * kMB, &driver);
  driver.refuseFrees = true;
  AllocateAndRelease(pool, {3});
  EXPECT_EQ(pool.Purge(3 * kMB), 0u);
  EXPECT_TRUE(Contains(trace.lines, "Unable to free host memory of size: 3mb"));
  EXPECT_EQ(Statistics(pool), (std::array<std::size_t, 4>{3 * kMB, 0, 1, 0}));
  driver.refuseFrees = false;
  EXPECT_EQ(pool.Purge(3 * kMB), 3 * kMB);
  EXPECT_TRUE(driver.live.empty());
}

}  // namespace
