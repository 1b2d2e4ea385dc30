// The suite registry: tables of entry points that a library offers, found by name and version.
#pragma once

#include <cstddef>

namespace TQ {

// Stores a copy of the `suiteSize` bytes at `suite` under (name, version), replacing an earlier
// registration. Returns 0; -1 when name is null, when suite is null with a non-zero size, or when memory
// runs out. Thread-safe.
int RegisterSuite(const char* name, int version, const void* suite, std::size_t suiteSize);

// Copies the table registered under (name, version) into `out`. False when there is none, when its size
// is not `size`, or when name or out is null. Thread-safe.
bool AcquireSuite(const char* name, int version, void* out, std::size_t size);

}  // namespace TQ
