// Marks the symbols that liblumora exports; everything else is hidden.
#pragma once

#if defined(_WIN32)
#if defined(LUMORA_BUILDING_LIBRARY)
#define LM_API __declspec(dllexport)
#else
#define LM_API __declspec(dllimport)
#endif
#else
#define LM_API __attribute__((visibility("default")))
#endif
