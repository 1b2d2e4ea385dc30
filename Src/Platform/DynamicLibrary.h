// Loading a dynamic library by name and finding its entry points: the only OS-specific part of binding.
#pragma once

namespace LM {

#if defined(_WIN32)
using LibraryNameChar = wchar_t;
#else
using LibraryNameChar = char;
#endif

// Loads (or references again) the library; null when it cannot be loaded. Libraries are never unloaded.
void* LoadDynamicLibrary(const LibraryNameChar* name);
// The address of an exported symbol, or null.
void* FindLibrarySymbol(void* library, const char* name);

}  // namespace LM
