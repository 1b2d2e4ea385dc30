// Loading a dynamic library by name and finding its entry points: the only OS-specific part of binding.
#pragma once

#include <string>

namespace LM {

#if defined(_WIN32)
using LibraryNameChar = wchar_t;
#else
using LibraryNameChar = char;
#endif

// Loads (or references again) the library; null when it cannot be loaded, with the loader's reason in
// *why when asked (the file missing, not a library, an unresolved dependency). Libraries are never
// unloaded.
void* LoadDynamicLibrary(const LibraryNameChar* name, std::string* why = nullptr);
// The address of an exported symbol, or null.
void* FindLibrarySymbol(void* library, const char* name);

}  // namespace LM
