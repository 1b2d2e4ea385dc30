// Symbolic names of the compute runtimes' results, for failure messages. The strings are static.
#pragma once

namespace LM {

// "CUDA_ERROR_OUT_OF_MEMORY" for 2; "Unrecognized CUDA result" for a code not in the table.
const char* CUDAResultName(int result);
// "CL_INVALID_VALUE" for -30; "Unrecognized OpenCL result" for a code not in the table.
const char* OpenCLResultName(int result);

}  // namespace LM
