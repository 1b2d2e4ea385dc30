// Which free block a request takes: byte-size keys, readiness of the block's event, the queue ordering when
// nothing is ready, the size ratios of a grown pool, and releases that must be ignored or may come from
// any thread.
#include <gtest/gtest.h>
#include <zelmediatypes/PixelFormatTable.h>

#include <boost/weak_ptr.hpp>
#include <set>
#include <thread>

#include "Lumora/PixelFormats.h"
#include "MemoryPoolScript.h"

namespace {

using namespace memorypooltest;
using LM::AllocationKey;

TEST(MemoryPoolReuse, KeysAreComparedByByteSizeOnly) {
  const AllocationKey frame = AllocationKey::OfShape(3840, 2160, LM::kPixelFormat_GPU_BGRA_4444_32f);
  const std::uint64_t frameBytes = std::uint64_t(3840) * 2160 * 16;
  EXPECT_EQ(frame.ByteSize(), frameBytes);
  EXPECT_EQ(AllocationKey::OfShape(0, 2160, LM::kPixelFormat_GPU_BGRA_4444_32f).ByteSize(), 0u);
  EXPECT_EQ(AllocationKey::OfShape(-5, 2160, LM::kPixelFormat_GPU_BGRA_4444_32f).ByteSize(), 0u);
  EXPECT_EQ((AllocationKey{7, 3840, 2160, LM::kPixelFormat_GPU_BGRA_4444_32f}.ByteSize()), 7u) << "size wins";

  const std::less<AllocationKey> less;
  EXPECT_FALSE(less(frame, AllocationKey::OfSize(frameBytes)));
  EXPECT_FALSE(less(AllocationKey::OfSize(frameBytes), frame));
  EXPECT_TRUE(less(AllocationKey::OfSize(frameBytes - 1), frame));

  // So a block made for an image serves a request by size of the same bytes.
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  void* image = pool.Allocate(frame, nullptr);
  pool.Release(image, {});
  EXPECT_EQ(AllocateBytes(pool, frameBytes), image);
  EXPECT_EQ(driver.allocations.size(), 1u);
}

TEST(MemoryPoolReuse, TakesTheFirstReadyBlockUpwardsFromTheRequest) {
  DriverScript driver;
  auto queue = boost::make_shared<ScriptedQueue>();
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  pool.SetCommandQueue(queue);
  void* b4 = AllocateBytes(pool, 4 * kMB);
  void* b6 = AllocateBytes(pool, 6 * kMB);
  void* b8 = AllocateBytes(pool, 8 * kMB);
  void* b10 = AllocateBytes(pool, 10 * kMB);
  auto pending = PendingEvent();
  auto done = CompleteEvent();
  const boost::weak_ptr<ScriptedEvent> doneWatch = done;
  pool.Release(b6, pending);
  pool.Release(b8, done);
  pool.Release(b10, {});
  pool.Release(b4, {});
  done.reset();

  std::size_t allocated = 0;
  EXPECT_EQ(AllocateBytes(pool, 5 * kMB, &allocated), b8) << "b6 is still in use on the GPU";
  EXPECT_EQ(allocated, 8 * kMB);
  EXPECT_TRUE(doneWatch.expired()) << "a reused block's event is dropped";
  EXPECT_EQ(AllocateBytes(pool, 5 * kMB), b10);
  // Only the pending block is left; far below the low mark the pool allocates rather than wait.
  void* fresh = AllocateBytes(pool, 5 * kMB);
  EXPECT_NE(fresh, b6);
  EXPECT_EQ(driver.allocations.size(), 5u);
  EXPECT_TRUE(queue->waitedFor.empty());
  pending->SetComplete(true);
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
  auto event6 = PendingEvent();
  pool.Release(b6, event6);
  pool.Release(b7, PendingEvent());

  EXPECT_EQ(AllocateBytes(pool, 5 * kMB), b6) << "the smallest candidate";
  ASSERT_EQ(queue->waitedFor.size(), 1u);
  EXPECT_EQ(queue->waitedFor[0], event6);
  // A candidate refused by the size ratio (7 MB > 3 x 2 MB) is not waited for.
  EXPECT_NE(AllocateBytes(pool, 2 * kMB), b7);
  EXPECT_EQ(queue->waitedFor.size(), 1u);
  // Without a queue (the device dropped it) the block is still handed out.
  queue.reset();
  EXPECT_EQ(AllocateBytes(pool, 7 * kMB), b7);
  EXPECT_EQ(driver.allocations.size(), 3u);
}

TEST(MemoryPoolReuse, AGrownPoolServesOnlyRequestsCloseToTheBlockSize) {
  // A 10 MB free block beside 20 MB in use: total 30 MB, placed against the marks.
  const std::uint64_t kBlock = 10 * kMB;
  struct Case {
    const char* where;
    std::uint64_t lowMark, highMark, request;
    bool takesBlock;
  };
  const Case cases[] = {
      {"at the low mark", 30 * kMB, 100 * kMB, 3 * kMB, true},
      {"above the low mark", 29 * kMB, 100 * kMB, 4 * kMB, true},
      {"above the low mark", 29 * kMB, 100 * kMB, 3495254, true},  // 3 x R >= B
      {"above the low mark", 29 * kMB, 100 * kMB, 3495253, false},
      {"above the high mark", 10 * kMB, 29 * kMB, 4 * kMB, false},
      {"above the high mark", 10 * kMB, 29 * kMB, 6990507, true},  // 1.5 x R >= B
      {"above the high mark", 10 * kMB, 29 * kMB, 6990506, false},
  };
  for (const Case& c : cases) {
    DriverScript driver;
    ScriptedPool pool("device", c.lowMark, c.highMark, &driver);
    AllocateBytes(pool, 20 * kMB);
    void* block = AllocateBytes(pool, kBlock);
    pool.Release(block, {});
    std::size_t allocated = 0;
    void* got = AllocateBytes(pool, c.request, &allocated);
    EXPECT_EQ(got == block, c.takesBlock) << c.where << ", request " << c.request;
    EXPECT_EQ(allocated, c.takesBlock ? kBlock : c.request) << c.where << ", request " << c.request;
  }
}

TEST(MemoryPoolReuse, ReleasesOfUnknownNullOrAlreadyFreeBlocksAreIgnored) {
  DriverScript driver;
  ScriptedPool pool("host", 1024 * kMB, 2048 * kMB, &driver);
  void* a = AllocateBytes(pool, 4 * kMB);
  AllocateBytes(pool, 4 * kMB);
  const PoolStatistics before = Statistics(pool);

  auto orphan = CompleteEvent();
  const boost::weak_ptr<ScriptedEvent> orphanWatch = orphan;
  pool.Release(reinterpret_cast<void*>(0xdead000), {});
  pool.Release(nullptr, orphan);
  pool.Release(nullptr, {});
  orphan.reset();
  EXPECT_EQ(Statistics(pool), before);
  EXPECT_TRUE(orphanWatch.expired()) << "dropped when folded";

  pool.Release(a, {});
  pool.Release(a, {});
  EXPECT_EQ(pool.GetUsedSize(), 4 * kMB);
  EXPECT_EQ(AllocateBytes(pool, 4 * kMB), a);
  EXPECT_NE(AllocateBytes(pool, 4 * kMB), a) << "a block is never handed out twice";
}

TEST(MemoryPoolReuse, ReleaseMayComeFromAnyThread) {
  DriverScript driver;
  ScriptedPool pool("device", 1024 * kMB, 2048 * kMB, &driver);
  constexpr int kThreads = 4, kPerThread = 32;
  std::vector<void*> blocks;
  for (int i = 0; i < kThreads * kPerThread; ++i) blocks.push_back(AllocateBytes(pool, kMB));

  std::vector<std::thread> releasers;
  for (int t = 0; t < kThreads; ++t) {
    releasers.emplace_back([&pool, &blocks, t] {
      for (int i = 0; i < kPerThread; ++i) pool.Release(blocks[t * kPerThread + i], CompleteEvent());
    });
  }
  std::set<void*> held;
  for (int i = 0; i < 200; ++i) {
    EXPECT_TRUE(held.insert(AllocateBytes(pool, kMB)).second) << "handed out twice";
    pool.GetUsedSize();
  }
  for (std::thread& releaser : releasers) releaser.join();
  EXPECT_EQ(pool.GetUsedSize(), held.size() * kMB);
}

}  // namespace
