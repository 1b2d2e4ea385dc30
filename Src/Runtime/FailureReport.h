// The one way Lumora reports an unexpected runtime result: checked where the call is made, reported through
// the host's assertion service with the result's symbolic name, and turned into the caller's failure value
// (the check yields false; the caller returns null, false or its error code). Nothing is thrown.
//
//   const CUresult result = CUDA.cuCtxCreate(&context, flags, device);
//   if (!LM_CUDA_SUCCEEDED(result, "Context creation failure: ")) return false;
//
// Each use of the macros has its own silencing flag, which the host's assertion service may set so the
// site stops reporting. A result that is merely expected to fail sometimes is tested without the macros.
#pragma once

#include <string>

namespace LM {

// The path's last component without its extension: "Src/Devices/Device.cpp" gives "Device".
std::string SourceName(const char* path);

// Hands one report to the host: condition text, message, source name and line (and the function, when
// given). Breaks into an attached debugger when the host asks for it. Does nothing when *silence is true.
void ReportFailure(bool* silence, const char* condition, const std::string& message,
                   const std::string& source, int line, const char* function = nullptr);

// Writes one line to the host's trace in the category "Lumora" when tracing is enabled for it:
// "<thread id> <Lumora> <0> " + message. For what a host developer needs to know but is no failure of a
// runtime call (a missing kernel, blocks still held by a dying pool).
void TraceLumora(const std::string& message);

// True when result is CUDA_SUCCESS; otherwise reports "result == CUDA_SUCCESS" with the message
// step + CUDAResultName(result) and returns false.
[[nodiscard]] bool CheckCUDAResult(int result, const char* step, bool* silence, const char* file, int line);
// True when result is CL_SUCCESS; otherwise reports "result == CL_SUCCESS" with the message
// step + OpenCLResultName(result) and returns false.
[[nodiscard]] bool CheckOpenCLResult(int result, const char* step, bool* silence, const char* file, int line);

}  // namespace LM

#define LM_SITE_SILENCE_FLAG()          \
  ([]() -> bool* {                      \
    static bool lmSiteSilenced = false; \
    return &lmSiteSilenced;             \
  }())

#define LM_CUDA_SUCCEEDED(result, step) \
  ::LM::CheckCUDAResult((result), (step), LM_SITE_SILENCE_FLAG(), __FILE__, __LINE__)
#define LM_OPENCL_SUCCEEDED(result, step) \
  ::LM::CheckOpenCLResult((result), (step), LM_SITE_SILENCE_FLAG(), __FILE__, __LINE__)
