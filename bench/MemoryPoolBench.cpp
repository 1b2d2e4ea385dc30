// The pool's steady state: allocating and releasing one 3840 x 2160 frame of four 32-bit floats per pixel,
// over and over, as a render loop does. Once warm, the pool must not call the driver at all
// (driver_allocations counts the policy's allocations after the warm-up; expected 0), and an allocate plus
// release pair should cost well under a microsecond. The policy allocates from the heap, so the figures
// are the pool's own.
#include <benchmark/benchmark.h>

#include <boost/make_shared.hpp>
#include <cstdlib>

#include "Lumora/PixelFormats.h"
#include "Memory/TemplateMemoryManager.h"

namespace {

constexpr int kFrameWidth = 3840;
constexpr int kFrameHeight = 2160;
constexpr std::size_t kFrameBytes = std::size_t(kFrameWidth) * kFrameHeight * 16;
constexpr std::size_t kLowMark = std::size_t(2) << 30;
constexpr std::size_t kHighMark = std::size_t(3) << 30;

class HeapPolicy {
 public:
  explicit HeapPolicy(std::size_t* allocations) : allocations_(allocations) {}
  LM::PoolBlock Allocate(const LM::AllocationKey& key, std::size_t* allocatedBytes) {
    ++*allocations_;
    void* pointer = std::malloc(key.ByteSize());
    if (pointer != nullptr) *allocatedBytes = key.ByteSize();
    return LM::PoolBlock{pointer, {}};
  }
  bool Free(void* pointer, const LM::AllocationKey&) {
    std::free(pointer);
    return true;
  }

 private:
  std::size_t* allocations_;
};

// The completion event of work that has finished by the time the block is wanted again.
class CompletedEvent : public LM::Event {
 public:
  bool IsComplete() override { return true; }
  float ElapsedTime(const boost::shared_ptr<LM::Event>&) override { return 0.0f; }
  void Wait() override {}
  void* GetNativeEvent() override { return nullptr; }
};

template <class AllocateFrame>
void RunSteadyState(benchmark::State& state, const boost::shared_ptr<LM::Event>& readyEvent,
                    AllocateFrame allocateFrame) {
  std::size_t allocations = 0;
  LM::TemplateMemoryManager<HeapPolicy> pool("device", 0, kLowMark, kHighMark, 0, &allocations);
  LM::MemoryManager& manager = pool;
  manager.Release(allocateFrame(manager), readyEvent);
  const std::size_t warmAllocations = allocations;
  for (auto _ : state) {
    void* frame = allocateFrame(manager);
    benchmark::DoNotOptimize(frame);
    manager.Release(frame, readyEvent);
  }
  state.counters["driver_allocations"] = static_cast<double>(allocations - warmAllocations);
}

void BM_PoolAllocateReleaseBySize(benchmark::State& state) {
  RunSteadyState(state, {},
                 [](LM::MemoryManager& manager) { return manager.Allocate(kFrameBytes, nullptr); });
}

void BM_PoolAllocateReleaseByShape(benchmark::State& state) {
  RunSteadyState(state, boost::make_shared<CompletedEvent>(), [](LM::MemoryManager& manager) {
    return manager.Allocate(kFrameWidth, kFrameHeight, LM::kPixelFormat_GPU_BGRA_4444_32f, nullptr);
  });
}

}  // namespace

BENCHMARK(BM_PoolAllocateReleaseBySize);
BENCHMARK(BM_PoolAllocateReleaseByShape);
