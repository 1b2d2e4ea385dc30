// Behaviour of entry points that the fake does not model: succeed and do nothing. FakeCUDADriver.cpp
// overrides these weak definitions where the fake behaves like a driver.
#include "FakeCUDA.h"

namespace fakecuda {

#define FAKECUDA_DEFAULT_IMPL(name, versions, params, args) \
  __attribute__((weak)) CUresult Impl_##name params {       \
    return CUDA_SUCCESS;                                    \
  }
LM_CUDA_DRIVER_ENTRY_POINTS(FAKECUDA_DEFAULT_IMPL)

}  // namespace fakecuda
