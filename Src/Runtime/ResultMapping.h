// How a framework status becomes one of Lumora's result codes, the same everywhere: success is
// kResultSuccess, exhausted memory or resources kResultOutOfMemory, anything else kResultFailed.
#pragma once

#include "Lumora/Results.h"

namespace LM {

// CUDA: 0 success, 2 (CUDA_ERROR_OUT_OF_MEMORY) out of memory, any other failed.
constexpr int MapCUDAResult(int status) {
  return status == 0 ? kResultSuccess : status == 2 ? kResultOutOfMemory : kResultFailed;
}

// OpenCL: 0 success; -4 (CL_MEM_OBJECT_ALLOCATION_FAILURE), -5 (CL_OUT_OF_RESOURCES) and -6
// (CL_OUT_OF_HOST_MEMORY) out of memory; any other failed.
constexpr int MapOpenCLResult(int status) {
  return status == 0                                    ? kResultSuccess
         : status == -4 || status == -5 || status == -6 ? kResultOutOfMemory
                                                        : kResultFailed;
}

}  // namespace LM
