// Counts heap allocations while a test window is open: every allocation in
// the process, or only those of the threads that opened a window.
//
// Under a sanitizer the allocator's own hooks count; with glibc malloc and
// friends are replaced in alloc_counter.cpp (operator new ends in malloc, so
// it is counted too). Linking this file into a test binary is what installs
// the counter.
#pragma once

#include <cstdint>

namespace lumx::test {

// Whether the counter can see allocations at all (0 allocations then means
// something); false only when the hooks could not be installed.
bool AllocationCounterWorks();

// Counts every thread's allocations until StopCountingAllocations().
void StartCountingAllocations();
// Counts only the calling thread's allocations until it calls
// StopCountingAllocations().
void StartCountingThisThread();
// Ends the window (the process-wide one, or this thread's) and returns the
// number counted since the last start.
uint64_t StopCountingAllocations();

}  // namespace lumx::test
