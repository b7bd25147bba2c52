// Happens-before hints for ThreadSanitizer, which does not model standalone
// fences. The buffers publish themselves to the I/O threads through a
// processor's relaxed output pointer plus a release/acquire fence pair; these
// hints tell the sanitizer about that pairing. They compile to nothing
// otherwise.
#pragma once

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define LUMX_BUFFER_TSAN 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define LUMX_BUFFER_TSAN 1
#endif

#if defined(LUMX_BUFFER_TSAN)
extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);
#define LUMX_TSAN_ACQUIRE(addr) __tsan_acquire(static_cast<void*>(addr))
#define LUMX_TSAN_RELEASE(addr) __tsan_release(static_cast<void*>(addr))
#else
#define LUMX_TSAN_ACQUIRE(addr) ((void)0)
#define LUMX_TSAN_RELEASE(addr) ((void)0)
#endif
