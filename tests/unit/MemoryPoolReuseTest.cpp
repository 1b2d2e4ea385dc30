// Which free block a request takes: readiness of the block's event, the queue ordering when nothing is
// ready, the size ratios of a grown pool, and releases that are ignored or come from any thread.
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "MemoryPoolScript.h"

namespace {

using namespace memorypooltest;

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
// still taken, one byte less of request and it is not.
TEST(MemoryPoolReuse, AGrownPoolServesOnlyRequestsCloseToTheBlockSize) {
  // A free 12 MB block beside 20 MB in use: 32 MB in all, against the given marks.
  const auto takesBlock = [](std::uint64_t lowMark, std::uint64_t highMark, std::uint64_t request) {
    DriverScript driver;
    ScriptedPool pool("device", lowMark, highMark, &driver);
    AllocateBytes(pool, 20 * kMB);
    void* block = AllocateBytes(pool, 12 * kMB);
    pool.Release(block, {});
    std::size_t allocated = 0;
    const bool took = AllocateBytes(pool, request, &allocated) == block;
    EXPECT_EQ(allocated, took ? 12 * kMB : request) << request;
    return took;
  };
  EXPECT_TRUE(takesBlock(32 * kMB, 100 * kMB, 3 * kMB)) << "within the low mark any request";
  EXPECT_TRUE(takesBlock(31 * kMB, 100 * kMB, 4 * kMB)) << "above it, a block of exactly 3 x the request";
  EXPECT_FALSE(takesBlock(31 * kMB, 100 * kMB, 4 * kMB - 1));
  EXPECT_TRUE(takesBlock(10 * kMB, 31 * kMB, 8 * kMB)) << "above the high mark, exactly 1.5 x the request";
  EXPECT_FALSE(takesBlock(10 * kMB, 31 * kMB, 8 * kMB - 1));
}

// Such releases are dropped when they are made, so however many a host makes between two allocations,
// the pending list holds no more than the blocks that are out.
TEST(MemoryPoolReuse, ReleasesOfUnknownNullOrAlreadyFreeBlocksAreIgnored) {
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
}

TEST(MemoryPoolReuse, ReleaseMayComeFromAnyThread) {
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  std::vector<void*> blocks;
  for (int i = 0; i < 128; ++i) blocks.push_back(AllocateBytes(pool, kMB));
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
  EXPECT_EQ(pool.GetUsedSize(), held.size() * kMB);
}

}  // namespace
