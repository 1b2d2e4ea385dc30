// Counts every heap allocation of the benchmark program (AllocationCounter.cpp replaces operator new), so a
// benchmark can report how many its loop made.
#pragma once

long long HeapAllocations();
