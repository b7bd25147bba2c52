#include "support/alloc_counter.h"

#include <stdlib.h>

#include <atomic>
#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define LUMX_ALLOC_SANITIZER_HOOKS 1
#endif
#endif

namespace {

std::atomic<bool> gCountingAll{false};
thread_local bool tCounting = false;
std::atomic<uint64_t> gAllocations{0};

inline void CountAllocation() {
  if (tCounting || gCountingAll.load(std::memory_order_relaxed)) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
  }
}

template <typename T>
T Counted(T result) {
  CountAllocation();
  return result;
}

}  // namespace

#if defined(LUMX_ALLOC_SANITIZER_HOOKS)
#include <sanitizer/allocator_interface.h>

namespace {
void MallocHook(const volatile void*, size_t) { CountAllocation(); }
void FreeHook(const volatile void*) {}
const int gHooksInstalled = __sanitizer_install_malloc_and_free_hooks(MallocHook, FreeHook);
}  // namespace

#elif defined(__GLIBC__)

namespace {
const int gHooksInstalled = 1;
}  // namespace

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t n, size_t size);
void* __libc_realloc(void* p, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) { return Counted(__libc_malloc(size)); }
void* calloc(size_t n, size_t size) { return Counted(__libc_calloc(n, size)); }
void* realloc(void* p, size_t size) { return Counted(__libc_realloc(p, size)); }
void* memalign(size_t alignment, size_t size) { return Counted(__libc_memalign(alignment, size)); }
void* aligned_alloc(size_t alignment, size_t size) { return Counted(__libc_memalign(alignment, size)); }
int posix_memalign(void** out, size_t alignment, size_t size) {
  *out = Counted(__libc_memalign(alignment, size));
  return *out == nullptr ? 12 : 0;  // ENOMEM
}
}  // extern "C"

#else

// Another libc has no __libc_malloc to forward to: the counter sees nothing.
namespace {
const int gHooksInstalled = 0;
}  // namespace

#endif

namespace lumx::test {

bool AllocationCounterWorks() { return gHooksInstalled != 0; }

void StartCountingAllocations() {
  gAllocations.store(0, std::memory_order_relaxed);
  gCountingAll.store(true, std::memory_order_relaxed);
}

void StartCountingThisThread() {
  gAllocations.store(0, std::memory_order_relaxed);
  tCounting = true;
}

uint64_t StopCountingAllocations() {
  tCounting = false;
  gCountingAll.store(false, std::memory_order_relaxed);
  return gAllocations.load(std::memory_order_relaxed);
}

}  // namespace lumx::test
