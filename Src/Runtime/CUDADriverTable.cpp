#include "Runtime/CUDADriverTable.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include "Platform/DynamicLibrary.h"

namespace LM {

CUDADriverTable CUDA = {};

#if defined(_WIN32)
const wchar_t* CUDADriverLibraryName = L"nvcuda.dll";
#define LM_LIBRARY_NAME_FORMAT "%ls"
#else
const char* CUDADriverLibraryName = "libcuda.so.1";
#define LM_LIBRARY_NAME_FORMAT "%s"
#endif

namespace {

// The binder's messages are printed on standard output, as hosts of this library have always read them,
// and flushed at once so that they keep their place among the host's own lines.
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void ReportBindFailure(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::fflush(stdout);
}

// The loader's reason for the last failed load of the driver library.
std::mutex loadFailureMutex;
std::string loadFailure;

// Looks names up in one loaded driver library and stores them in their slots. A missing required name is
// reported; the caller stops binding at the first one.
class Binder {
 public:
  explicit Binder(void* library) : library_(library) {}

  template <class Slot>
  bool Bind(Slot& slot, const char* name) {
    void* symbol = FindLibrarySymbol(library_, name);
    if (symbol == nullptr) {
      ReportBindFailure("Failed to find required function \"%s\" in " LM_LIBRARY_NAME_FORMAT "\n", name,
                        CUDADriverLibraryName);
      return false;
    }
    Store(slot, symbol);
    return true;
  }

  template <class Slot>
  bool BindOptional(Slot& slot, const char* name) {
    void* symbol = FindLibrarySymbol(library_, name);
    if (symbol != nullptr) Store(slot, symbol);
    return symbol != nullptr;
  }

 private:
  template <class Slot>
  static void Store(Slot& slot, void* symbol) {
    slot = reinterpret_cast<Slot>(symbol);
  }

  void* library_;
};

}  // namespace

int LoadCUDADriverLibrary(void** module) {
  std::string why;
  void* library = LoadDynamicLibrary(CUDADriverLibraryName, &why);
  if (module != nullptr) *module = library;
  {
    const std::lock_guard<std::mutex> lock(loadFailureMutex);
    loadFailure = library == nullptr ? why : std::string();
  }
  if (library == nullptr) {
    ReportBindFailure("LoadLibrary \"" LM_LIBRARY_NAME_FORMAT "\" failed!\n", CUDADriverLibraryName);
    return CUDA_ERROR_UNKNOWN;
  }
  return CUDA_SUCCESS;
}

std::string GetCUDADriverLoadFailure() {
  const std::lock_guard<std::mutex> lock(loadFailureMutex);
  return loadFailure;
}

namespace {

std::atomic<int> lastBindResult{CUDA_ERROR_UNKNOWN};

// The slots are bound into a copy of the table and copied back at the end, slot by slot and only where the
// value changed. A later start-up binds the same driver again while other threads may be calling through
// the table (a device shutting down on a worker thread, say); a slot that a plain name fills first and its
// _v2 name then overwrites would otherwise change twice under them.
class TableUpdate {
 public:
  TableUpdate() : table_(CUDA) {}
  ~TableUpdate() {
#define LM_CUDA_COPY_CHANGED_SLOT(name, versions, params, args) \
  if (CUDA.name != table_.name) CUDA.name = table_.name;
    LM_CUDA_DRIVER_ENTRY_POINTS(LM_CUDA_COPY_CHANGED_SLOT)
#undef LM_CUDA_COPY_CHANGED_SLOT
  }
  TableUpdate(const TableUpdate&) = delete;
  TableUpdate& operator=(const TableUpdate&) = delete;
  CUDADriverTable& Table() {
    return table_;
  }

 private:
  CUDADriverTable table_;
};

// Binding order and groups are fixed: the _v2 choice of the pointer-width group and of the two _v2
// alternatives in the driver groups follows the caller's apiVersion, while the optional groups follow the
// installed driver's version. So BindCUDADriver(0, 0) on a 4.0 driver still requires the 4.0 names but
// binds the legacy pointer-width names.
int Bind(unsigned int flags, int apiVersion) {
  int driverVersion = 1000;
  void* library = nullptr;
  if (LoadCUDADriverLibrary(&library) != CUDA_SUCCESS) return CUDA_ERROR_UNKNOWN;
  Binder binder(library);
  TableUpdate update;
  CUDADriverTable& table = update.Table();

#define LM_BIND(slot) \
  if (!binder.Bind(table.slot, #slot)) return CUDA_ERROR_UNKNOWN;
#define LM_BIND_V2(slot) \
  if (!binder.Bind(table.slot, #slot "_v2")) return CUDA_ERROR_UNKNOWN;

  LM_BIND(cuInit)
  CUresult result = table.cuInit(flags);
  if (result != CUDA_SUCCESS) return result;

  // The only optional name: without it the driver counts as version 1.0.
  if (binder.BindOptional(table.cuDriverGetVersion, "cuDriverGetVersion")) {
    result = table.cuDriverGetVersion(&driverVersion);
    if (result != CUDA_SUCCESS) return result;
  }

  LM_CUDA_CORE_ENTRY_POINTS(LM_BIND)

  if (apiVersion >= 4000) {
    LM_CUDA_API4000_V2_ENTRY_POINTS(LM_BIND_V2)
    LM_BIND(cuStreamWaitEvent)
  }

  if (apiVersion < 3020) {
    LM_CUDA_POINTER_WIDTH_ENTRY_POINTS(LM_BIND)
  } else {
    LM_CUDA_POINTER_WIDTH_ENTRY_POINTS(LM_BIND_V2)
  }

  if (driverVersion >= 2010) {
    LM_BIND(cuModuleLoadDataEx)
    LM_BIND(cuModuleLoadFatBinary)
    LM_BIND(cuGLCtxCreate)
    if (apiVersion >= 3020) LM_BIND_V2(cuGLCtxCreate)
    LM_BIND(cuGraphicsGLRegisterBuffer)
    LM_BIND(cuGraphicsGLRegisterImage)
  }
  if (driverVersion >= 2030) {
    LM_BIND(cuMemHostGetFlags)
    // Bound a second time into the same slots; harmless, and kept so the lookup sequence stays the same.
    LM_BIND(cuGraphicsGLRegisterBuffer)
    LM_BIND(cuGraphicsGLRegisterImage)
  }
  if (driverVersion >= 3000) {
    LM_BIND(cuMemcpyDtoDAsync)
    LM_BIND(cuFuncSetCacheConfig)
    LM_BIND(cuGraphicsUnregisterResource)
    LM_BIND(cuGraphicsSubResourceGetMappedArray)
    if (apiVersion < 3020) {
      LM_BIND(cuGraphicsResourceGetMappedPointer)
    } else {
      LM_BIND_V2(cuGraphicsResourceGetMappedPointer)
    }
    LM_BIND(cuGraphicsResourceSetMapFlags)
    LM_BIND(cuGraphicsMapResources)
    LM_BIND(cuGraphicsUnmapResources)
    LM_BIND(cuGetExportTable)
  }
  if (driverVersion >= 3010) {
    LM_BIND(cuModuleGetSurfRef)
    LM_BIND(cuSurfRefSetArray)
    LM_BIND(cuSurfRefGetArray)
    LM_BIND(cuCtxSetLimit)
    LM_BIND(cuCtxGetLimit)
  }
  if (driverVersion < 4000) return CUDA_SUCCESS;

  LM_CUDA_DRIVER4000_ENTRY_POINTS(LM_BIND)
  return CUDA_SUCCESS;

#undef LM_BIND
#undef LM_BIND_V2
}

}  // namespace

int BindCUDADriver(unsigned int flags, int apiVersion) {
  const int result = Bind(flags, apiVersion);
  lastBindResult = result;
  return result;
}

int GetCUDADriverBindResult() {
  return lastBindResult;
}

bool IsCUDADriverAvailable() {
  return BindCUDADriver(0, 4000) == CUDA_SUCCESS || BindCUDADriver(0, 0) == CUDA_SUCCESS;
}

}  // namespace LM
