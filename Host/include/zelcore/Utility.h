// Small utilities of the host: physical memory size, the recycler for large page-aligned blocks, the
// allocator for small container storage and 128-bit identifiers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <type_traits>

namespace zelcore {
namespace utility {

// Bytes of physical memory in the machine; 0 when the system cannot tell.
std::uint64_t TotalPhysicalMemory();

// Hands out page-aligned blocks whose sizes are rounded up to a multiple of kGranularity, and keeps
// recycled blocks for reuse: at most kMaxBlocksPerSize blocks of one size and kMaxCachedBytes in all;
// beyond that a recycled block is freed at once. Allocate(0) returns a unique one-page block, so a
// zero-byte request is not mistaken for a failure. Failure returns null; nothing throws. Thread-safe.
class MemoryRecycler {
 public:
  static constexpr std::size_t kGranularity = 4096;
  static constexpr std::size_t kMaxBlocksPerSize = 4;
  static constexpr std::size_t kMaxCachedBytes = std::size_t(256) << 20;

  // A block of at least `size` bytes, or null; `actualSize` receives its usable size (0 on failure).
  static void* Allocate(std::size_t size, std::size_t& actualSize);
  // Gives a block back. `size` is the requested or the actual size of that block; a null pointer is
  // ignored.
  static void Recycle(void* p, std::size_t size);
  // Frees every cached block.
  static void Trim();
  // Bytes held in the cache, for diagnostics and tests.
  static std::size_t CachedBytes();
};

// Allocator for container storage of the host and the library (vectors, map nodes, strings). Storage comes
// from the global operator new; every instance is interchangeable with every other.
template <class T>
class SmallBlockAllocator {
 public:
  using value_type = T;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using propagate_on_container_move_assignment = std::true_type;
  using is_always_equal = std::true_type;
  template <class U>
  struct rebind {
    using other = SmallBlockAllocator<U>;
  };

  SmallBlockAllocator() noexcept = default;
  template <class U>
  SmallBlockAllocator(const SmallBlockAllocator<U>&) noexcept {}

  T* allocate(std::size_t n) {
    if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_array_new_length();
    if constexpr (alignof(T) > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
      return static_cast<T*>(::operator new(n * sizeof(T), std::align_val_t(alignof(T))));
    } else {
      return static_cast<T*>(::operator new(n * sizeof(T)));
    }
  }
  void deallocate(T* p, std::size_t) noexcept {
    if constexpr (alignof(T) > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
      ::operator delete(p, std::align_val_t(alignof(T)));
    } else {
      ::operator delete(p);
    }
  }
};

template <class T, class U>
bool operator==(const SmallBlockAllocator<T>&, const SmallBlockAllocator<U>&) noexcept {
  return true;
}
template <class T, class U>
bool operator!=(const SmallBlockAllocator<T>&, const SmallBlockAllocator<U>&) noexcept {
  return false;
}

// A 128-bit identifier. The bytes are kept in the order of the text form
// ("00112233-4455-6677-8899-aabbccddeeff" is bytes 00 11 22 ... ff), so the byte-wise order is also the
// order of the texts. Trivially copyable; constants can be written as constexpr values.
class Guid {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr Guid() : bytes_{} {}
  constexpr explicit Guid(const Bytes& bytes) : bytes_(bytes) {}
  // The conventional split form: the first three groups as numbers, then the last eight bytes.
  constexpr Guid(std::uint32_t d1, std::uint16_t d2, std::uint16_t d3, std::uint8_t b0, std::uint8_t b1,
                 std::uint8_t b2, std::uint8_t b3, std::uint8_t b4, std::uint8_t b5, std::uint8_t b6,
                 std::uint8_t b7)
      : bytes_{{std::uint8_t(d1 >> 24), std::uint8_t(d1 >> 16), std::uint8_t(d1 >> 8), std::uint8_t(d1),
                std::uint8_t(d2 >> 8), std::uint8_t(d2), std::uint8_t(d3 >> 8), std::uint8_t(d3), b0, b1, b2,
                b3, b4, b5, b6, b7}} {}

  // A random (version 4) identifier.
  static Guid Create();
  // Reads exactly "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" (hex digits in either case). On failure returns
  // false and leaves `out` unchanged.
  static bool Parse(const std::string& text, Guid& out);
  // The text form, lower case.
  std::string ToString() const;

  constexpr const Bytes& GetBytes() const { return bytes_; }
  constexpr bool IsZero() const {
    for (std::uint8_t b : bytes_) {
      if (b != 0) return false;
    }
    return true;
  }

  friend constexpr bool operator==(const Guid& a, const Guid& b) {
    for (std::size_t i = 0; i < 16; ++i) {
      if (a.bytes_[i] != b.bytes_[i]) return false;
    }
    return true;
  }
  friend constexpr bool operator!=(const Guid& a, const Guid& b) { return !(a == b); }
  friend constexpr bool operator<(const Guid& a, const Guid& b) {
    for (std::size_t i = 0; i < 16; ++i) {
      if (a.bytes_[i] != b.bytes_[i]) return a.bytes_[i] < b.bytes_[i];
    }
    return false;
  }

 private:
  Bytes bytes_;
};

}  // namespace utility
}  // namespace zelcore
