#include "Platform/DynamicLibrary.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace LM {

#if defined(_WIN32)

void* LoadDynamicLibrary(const LibraryNameChar* name, std::string* why) {
  if (name == nullptr) {
    if (why != nullptr) *why = "no library name";
    return nullptr;
  }
  void* const library = LoadLibraryW(name);
  if (library == nullptr && why != nullptr) {
    const DWORD error = GetLastError();
    char text[512] = {};
    const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        error, 0, text, sizeof text, nullptr);
    *why = length != 0 ? std::string(text, length) : "error " + std::to_string(error);
    while (!why->empty() && (why->back() == '\n' || why->back() == '\r')) why->pop_back();
  }
  return library;
}

void* FindLibrarySymbol(void* library, const char* name) {
  return library ? reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name)) : nullptr;
}

#else

// RTLD_LOCAL keeps the driver's symbols out of the global namespace, so a second driver file loaded later
// (a host switching drivers, or the tests) resolves its own entry points.
void* LoadDynamicLibrary(const LibraryNameChar* name, std::string* why) {
  if (name == nullptr) {
    if (why != nullptr) *why = "no library name";
    return nullptr;
  }
  void* const library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr && why != nullptr) {
    // dlerror's text is this thread's, and read at once, before another loader call replaces it.
    const char* const error = dlerror();
    *why = error != nullptr ? error : "unknown reason";
  }
  return library;
}

void* FindLibrarySymbol(void* library, const char* name) {
  return library ? dlsym(library, name) : nullptr;
}

#endif

}  // namespace LM
