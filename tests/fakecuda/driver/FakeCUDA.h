// Internals of the fake CUDA driver: every exported entry point records its call, applies any failure
// asked for, and then runs the implementation of its slot, Impl_<name> (by default: succeed, do nothing).
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "Runtime/CUDADriverAPI.h"

namespace fakecuda {

#define FAKECUDA_DECLARE_IMPL(name, versions, params, args) CUresult Impl_##name params;
LM_CUDA_DRIVER_ENTRY_POINTS(FAKECUDA_DECLARE_IMPL)
#undef FAKECUDA_DECLARE_IMPL

// The arguments of one call as 64-bit words, kept without touching the heap (the widest entry point,
// cuLaunchKernel, has 11).
struct Arguments {
  std::uint64_t words[12];
  int count;
};

// Records the call of `exported` (which fills slot `slot`) with its arguments. Returns true, with the
// result to return in *forced, when a failure was asked for.
bool Enter(const char* exported, const char* slot, const Arguments& args, CUresult* forced);

// Set while nothing is recorded and no failure is asked for: calls then skip Enter and every other piece of
// bookkeeping, so a benchmark measures the caller, not the fake.
extern std::atomic<bool> idle;

template <class T>
std::uint64_t Word(T value) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<std::uintptr_t>(value);
  } else if constexpr (std::is_floating_point_v<T>) {
    float f = static_cast<float>(value);
    std::uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    return bits;
  } else {
    return static_cast<std::uint64_t>(value);
  }
}

template <class... T>
Arguments Words(T... values) {
  static_assert(sizeof...(T) <= 12, "too many arguments");
  return Arguments{{Word(values)...}, static_cast<int>(sizeof...(T))};
}

}  // namespace fakecuda
