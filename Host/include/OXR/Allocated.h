// Heap objects with an intrusive reference count: the concrete form of every host interface object.
#pragma once

#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

namespace OXR {

// T implements its interfaces (QueryInterface included); Allocated<T> adds the reference count. Objects
// are made only by Create, start with one reference (the creator's) and delete themselves when the last
// reference is released.
template <class T>
class Allocated : public T {
 public:
  // A new object, or null when memory could not be had (T's constructor throwing std::bad_alloc included).
  template <class... A>
  static Allocated* Create(A&&... args) {
    try {
      return new (std::nothrow) Allocated(std::forward<A>(args)...);
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }

  Allocated(const Allocated&) = delete;
  Allocated& operator=(const Allocated&) = delete;

  std::uint32_t AddRef() const override { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }
  std::uint32_t Release() const override {
    const std::uint32_t remaining = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (remaining == 0) delete this;
    return remaining;
  }
  // The current count; only meaningful while nobody else changes it (diagnostics and tests).
  std::uint32_t ReferenceCount() const { return count_.load(std::memory_order_acquire); }

 protected:
  ~Allocated() override = default;

 private:
  template <class... A>
  explicit Allocated(A&&... args) : T(std::forward<A>(args)...) {}

  mutable std::atomic<std::uint32_t> count_{1};
};

}  // namespace OXR
