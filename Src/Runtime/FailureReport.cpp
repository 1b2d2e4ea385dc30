#include "Runtime/FailureReport.h"

#include <zelcore/Debug.h>
#include <zelcore/Threads.h>
#include <zelcore/Trace.h>

#include <sstream>

#include "Runtime/ResultNames.h"

namespace LM {

std::string SourceName(const char* path) {
  std::string name(path != nullptr ? path : "");
  const std::size_t slash = name.find_last_of("/\\");
  if (slash != std::string::npos) name.erase(0, slash + 1);
  const std::size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot != 0) name.erase(dot);
  return name;
}

void ReportFailure(bool* silence, const char* condition, const std::string& message,
                   const std::string& source, int line, const char* function) {
  if (silence != nullptr && *silence) return;
  if (zelcore::debug::BreakAfterAssertDialog(silence, condition, message.c_str(), source.c_str(), line,
                                             function) &&
      zelcore::debug::IsDebuggerAttached()) {
    zelcore::debug::BreakIntoDebugger();
  }
}

void TraceLumora(const std::string& message) {
  if (!zelcore::trace::TraceEnabled("Lumora", 0, 1)) return;
  std::ostringstream line;
  line << '<' << zelcore::threads::GetCurrentThreadID() << "> <Lumora> <0> " << message << '\n';
  zelcore::trace::WriteTrace(line.str());
}

namespace {

bool CheckResult(int result, const char* condition, const char* step, const char* resultName, bool* silence,
                 const char* file, int line) {
  if (result == 0) return true;
  if (silence == nullptr || !*silence) {
    std::ostringstream message;
    message << (step != nullptr ? step : "") << resultName;
    ReportFailure(silence, condition, message.str(), SourceName(file), line);
  }
  return false;
}

}  // namespace

bool CheckCUDAResult(int result, const char* step, bool* silence, const char* file, int line) {
  return CheckResult(result, "result == CUDA_SUCCESS", step, CUDAResultName(result), silence, file, line);
}

bool CheckOpenCLResult(int result, const char* step, bool* silence, const char* file, int line) {
  return CheckResult(result, "result == CL_SUCCESS", step, OpenCLResultName(result), silence, file, line);
}

}  // namespace LM
