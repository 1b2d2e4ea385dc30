// The exported driver entry points, one per name the real driver exports (plain and _v2), all generated
// from the library's own list of entry points so that the fake and the binder cannot disagree.
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

LM_CUDA_DRIVER_ENTRY_POINTS(FAKECUDA_EXPORT)
