#include "Platform/DynamicLibrary.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace LM {

#if defined(_WIN32)

void* LoadDynamicLibrary(const LibraryNameChar* name) {
  return name ? LoadLibraryW(name) : nullptr;
}

void* FindLibrarySymbol(void* library, const char* name) {
  return library ? reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name)) : nullptr;
}

#else

// RTLD_LOCAL keeps the driver's symbols out of the global namespace, so a second driver file loaded later
// (a host switching drivers, or the tests) resolves its own entry points.
void* LoadDynamicLibrary(const LibraryNameChar* name) {
  return name ? dlopen(name, RTLD_NOW | RTLD_LOCAL) : nullptr;
}

void* FindLibrarySymbol(void* library, const char* name) {
  return library ? dlsym(library, name) : nullptr;
}

#endif

}  // namespace LM
