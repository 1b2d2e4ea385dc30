// What a pool gives back and when: growth past its marks, trimming, purge callbacks, a refusing driver and
// its trace line, and the manager that wraps the pool for hosts.
#include <gtest/gtest.h>
#include <zelcore/Threads.h>
#include <zelcore/Trace.h>

#include <boost/bind/bind.hpp>
#include <chrono>
#include <future>
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

std::vector<void*> AllocateAndRelease(ScriptedPool& pool, std::initializer_list<std::uint64_t> megabytes) {
  std::vector<void*> blocks;
  for (std::uint64_t m : megabytes) blocks.push_back(AllocateBytes(pool, m * kMB));
  for (void* block : blocks) pool.Release(block, {});
  return blocks;
}

TEST(MemoryPoolPressure, GrowingKeepsOneBlockAboveThePreviousPeriodsLargestRequest) {
  DriverScript driver;
  ScriptedPool pool("device", 32 * kMB, 64 * kMB, &driver);
  AllocateAndRelease(pool, {2, 4, 8, 16});
  pool.Trim();
  pool.Release(AllocateBytes(pool, 4 * kMB), {});
  pool.Trim();  // the previous period's largest request is now 4 MB

  // Past the low mark: 8 MB is kept as the block above 4 MB, 16 MB is given back.
  AllocateBytes(pool, 20 * kMB);
  EXPECT_EQ(driver.freedSizes, MB({16}));
  // Nothing beyond the kept block is left, and below the high mark nothing else goes.
  AllocateBytes(pool, 24 * kMB);
  EXPECT_EQ(driver.freedSizes, MB({16}));
  // Past the high mark the smallest blocks go until the request fits under it.
  AllocateBytes(pool, 10 * kMB);
  EXPECT_EQ(driver.freedSizes, MB({16, 2, 4}));
  std::size_t total = 0, freeBlocks = 0;
  pool.GetStatistics(&total, &freeBlocks, nullptr, nullptr, nullptr);
  EXPECT_EQ(total, 62 * kMB);
  EXPECT_EQ(freeBlocks, 1u);
}

TEST(MemoryPoolPressure, TrimmingGivesBackDownToTheLowMark) {
  DriverScript driver;
  ScriptedPool pool("device", 10 * kMB, 100 * kMB, &driver);
  AllocateAndRelease(pool, {2, 4, 8, 16});
  // A reuse trims too: everything beyond the first block above the previous largest request (0) goes.
  AllocateBytes(pool, kMB);
  EXPECT_EQ(driver.freedSizes, MB({8, 16}));

  DriverScript driver2;
  ScriptedPool pool2("device", 4 * kMB, 13 * kMB, &driver2);
  AllocateAndRelease(pool2, {2, 4, 8});
  pool2.GetUsedSize();  // folds the releases: Trim works on the free list as it is
  // Above the high mark the smallest goes; below it, the 8 MB block above the largest request stays.
  pool2.Trim();
  EXPECT_EQ(driver2.freedSizes, MB({2}));
}

TEST(MemoryPoolPressure, PurgeAsksCallbacksInIdOrderThenGivesBackFreeBlocks) {
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  AllocateAndRelease(pool, {2, 3});
  std::vector<std::pair<int, std::size_t>> asked;
  const auto callback = [&asked](int who, std::uint64_t gives) {
    return [&asked, who, gives](std::size_t wanted) {
      asked.emplace_back(who, wanted);
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
  EXPECT_TRUE(driver.frees.empty());

  for (int id : {second, third, unasked}) pool.RemovePurgeCallback(id);
  EXPECT_EQ(pool.Purge(4 * kMB), 4 * kMB);
  EXPECT_EQ(driver.freedSizes, MB({3})) << "1 MB from the callback, then the block after the kept one";
}

TEST(MemoryPoolPressure, CallbacksRunWithoutThePoolsLock) {
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  pool.AddPurgeCallback([&pool](std::size_t) -> std::size_t {
    auto other = std::async(std::launch::async, [&pool] { pool.Release(reinterpret_cast<void*>(0x10), {}); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "the lock was held";
    return 0;
  });
  EXPECT_EQ(pool.Purge(kMB), 0u);
}

TEST(MemoryPoolPressure, ARefusedAllocationPurgesAndRetries) {
  DriverScript driver;
  driver.capacity = 16 * kMB;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  void* cached = AllocateBytes(pool, 8 * kMB);  // held by a "frame cache" until purged
  AllocateAndRelease(pool, {4});
  bool purged = false;
  pool.AddPurgeCallback([&pool, &purged, cached](std::size_t) -> std::size_t {
    if (purged) return 0;
    purged = true;
    pool.Release(cached, {});
    return 8 * kMB;
  });

  EXPECT_NE(AllocateBytes(pool, 12 * kMB), nullptr);
  EXPECT_EQ(driver.allocations, MB({8, 4, 12, 12}));
  EXPECT_EQ(driver.frees, std::vector<void*>{cached});
}

TEST(MemoryPoolPressure, AFailureWithNothingToPurgeChangesNothingAndTracesOneLine) {
  std::vector<std::string> lines;
  zelcore::trace::SetTraceSink([&lines](const std::string& line) { lines.push_back(line); });
  zelcore::trace::SetTraceCategories("Lumora");
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  AllocateBytes(pool, 3 * kMB + 5);
  driver.refuseAll = true;
  const PoolStatistics before = Statistics(pool);

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

TEST(MemoryPoolPressure, AnEmptyCallbackThrowsInThePoolButNeverOutOfTheManager) {
  DriverScript driver;
  driver.refuseAll = true;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  pool.AddPurgeCallback({});
  EXPECT_THROW(pool.Purge(kMB), boost::bad_function_call);

  LM::TemplateMemoryManager<ScriptedPolicy> manager("device", 0, 1024 * kMB, 2048 * kMB, 0, &driver);
  manager.AddPurgeCallback({});
  EXPECT_EQ(manager.Allocate(kMB, nullptr), nullptr);
  EXPECT_EQ(manager.Purge(kMB), 0u);
}

TEST(MemoryPoolPressure, TheManagerServesFramesThroughDeferredRelease) {
  static const char kName[] = "device";
  DriverScript driver;
  auto manager = boost::make_shared<LM::TemplateMemoryManager<ScriptedPolicy>>(kName, 64 * kMB, 16 * kMB,
                                                                               32 * kMB, 3u, &driver);
  EXPECT_EQ(manager->GetName(), kName) << "kept, not copied";
  EXPECT_EQ(manager->GetOrdinal(), 3u);
  std::size_t lowMark = 0, highMark = 0;
  manager->GetStatistics(nullptr, nullptr, nullptr, &lowMark, &highMark);
  EXPECT_EQ(lowMark, 16 * kMB);
  EXPECT_EQ(highMark, 32 * kMB);

  // A frame owns its pixels through a deleter that hands them back with the frame's completion event.
  const auto event = PendingEvent();
  void* pixels = manager->Allocate(1920, 1080, LM::kPixelFormat_GPU_BGRA_4444_16f, nullptr);
  {
    const boost::shared_ptr<void> frame(
        pixels, boost::bind(&LM::MemoryManager::Release, manager, boost::placeholders::_1,
                            boost::shared_ptr<LM::Event>(event)));
  }
  EXPECT_EQ(manager->GetUsedSize(), 0u);
  // Past the low mark the pending block is reused, ordered on the queue the device set later.
  const auto queue = boost::make_shared<ScriptedQueue>();
  manager->SetCommandQueue(queue);
  EXPECT_EQ(manager->Allocate(1920 * 1080 * 8, nullptr), pixels);
  EXPECT_EQ(queue->waitedFor.size(), 1u);

  manager.reset();
  EXPECT_TRUE(driver.live.empty()) << "the manager gives every block back when it goes";
}

}  // namespace
