// The exported driver entry points, one per name the real driver exports (plain and _v2), generated from
// the library's own list so that the fake and the binder cannot disagree; and the behaviour of those the
// fake does not model: succeed and do nothing (weak, overridden in FakeCUDADriver.cpp).
#include "FakeCUDA.h"

#define FAKECUDA_EXPORT_AS(exported, slot, params, args)                       \
  extern "C" __attribute__((visibility("default"))) CUresult exported params { \
    CUresult forced = CUDA_SUCCESS;                                            \
    if (!fakecuda::idle.load(std::memory_order_relaxed) &&                     \
        fakecuda::Enter(#exported, #slot, fakecuda::Words args, &forced)) {    \
      return forced;                                                           \
    }                                                                          \
    return fakecuda::Impl_##slot args;                                         \
  }
#define FAKECUDA_EXPORT_NO_V2(name, params, args) FAKECUDA_EXPORT_AS(name, name, params, args)
#define FAKECUDA_EXPORT_HAS_V2(name, params, args) \
  FAKECUDA_EXPORT_AS(name, name, params, args)     \
  FAKECUDA_EXPORT_AS(name##_v2, name, params, args)
#define FAKECUDA_EXPORT(name, versions, params, args) FAKECUDA_EXPORT_##versions(name, params, args)
#define FAKECUDA_DEFAULT_IMPL(name, versions, params, args)     \
  __attribute__((weak)) CUresult fakecuda::Impl_##name params { \
    return CUDA_SUCCESS;                                        \
  }

LM_CUDA_DRIVER_ENTRY_POINTS(FAKECUDA_EXPORT)
LM_CUDA_DRIVER_ENTRY_POINTS(FAKECUDA_DEFAULT_IMPL)
