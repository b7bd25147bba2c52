// The packet path allocates nothing: 10,000 packets through an enabled
// tap-out buffer, a processor and an enabled inject buffer, counting every
// heap allocation in the process while they stream.
//
// All buffer tests share one binary, so the counter is off except inside the
// measured window. Under a sanitizer the allocator's own hooks count;
// otherwise malloc and friends are replaced here (operator new ends in
// malloc, so it is counted too).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "support/buffer_dev_dir.h"
#include "support/buffer_rig.h"
#include "support/buffer_test_processor.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define BUFFER_ALLOC_SANITIZER_HOOKS 1
#endif
#endif

namespace {
std::atomic<bool> gCounting{false};
std::atomic<uint64_t> gAllocations{0};
void* volatile gProbeSink = nullptr;

inline void CountAllocation() {
  if (gCounting.load(std::memory_order_relaxed)) gAllocations.fetch_add(1, std::memory_order_relaxed);
}
template <typename T>
T Counted(T result) {
  CountAllocation();
  return result;
}
}  // namespace

#if defined(BUFFER_ALLOC_SANITIZER_HOOKS)
#include <sanitizer/allocator_interface.h>

namespace {
void MallocHook(const volatile void*, size_t) { CountAllocation(); }
void FreeHook(const volatile void*) {}
const int gHooksInstalled = __sanitizer_install_malloc_and_free_hooks(MallocHook, FreeHook);
}  // namespace

#else

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

#endif

namespace {

TEST(BufferAllocationTest, NoHeapAllocationPerPacket) {
#if defined(BUFFER_ALLOC_SANITIZER_HOOKS)
  ASSERT_NE(gHooksInstalled, 0) << "allocator hooks unavailable";
#endif
  // The counter sees both malloc and operator new.
  gAllocations = 0;
  gCounting = true;
  gProbeSink = malloc(16);
  free(gProbeSink);
  gProbeSink = new int(1);
  delete static_cast<int*>(gProbeSink);
  gCounting = false;
  ASSERT_EQ(gAllocations.load(), 2u);

  // Keep the host logger quiet: it formats into std::string, which a device
  // build's liblog does not do. Info lines (every 200th packet) are dropped
  // before formatting at this level.
  const char* oldLevel = getenv("LUMX_LOG_LEVEL");
  const std::string savedLevel = oldLevel != nullptr ? oldLevel : "";
  setenv("LUMX_LOG_LEVEL", "W", 1);

  BufferStreamRig rig;
  BufferTestProcessor p(BufferTestFourCc("tst1"));
  ASSERT_EQ(rig.tapout->RegisterOutput(&p), 0);
  p.SetInput(rig.tapout.get());
  ASSERT_EQ(rig.inject->RegisterInput(&p), 0);
  ASSERT_EQ(rig.inject->Enable(true), 0);
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  auto streamer = std::make_unique<BufferStreamer>(rig.feeder, std::vector<int>{rig.drain});

  constexpr uint64_t kWarmUp = 100;
  constexpr uint64_t kMeasured = 10000;
  // A plain loop: the wait itself must not allocate.
  const auto waitPackets = [&](uint64_t n) {
    for (int i = 0; i < 200000 && p.calls.load() < n; ++i) usleep(100);
    return p.calls.load() >= n;
  };
  const bool warmedUp = waitPackets(kWarmUp);
  const uint64_t from = p.calls.load();
  gAllocations = 0;
  gCounting = true;
  const bool streamed = warmedUp && waitPackets(from + kMeasured);
  gCounting = false;
  const uint64_t allocations = gAllocations.load();

  // Stop the I/O thread while the drainer still runs: a thread blocked on a
  // full inject FIFO could not be joined.
  rig.tapout->Enable(false);
  streamer.reset();
  if (oldLevel != nullptr) {
    setenv("LUMX_LOG_LEVEL", savedLevel.c_str(), 1);
  } else {
    unsetenv("LUMX_LOG_LEVEL");
  }

  ASSERT_TRUE(warmedUp);
  ASSERT_TRUE(streamed) << "only " << p.calls.load() << " packets";
  EXPECT_EQ(p.callsWithOutput.load(), p.calls.load());
  EXPECT_EQ(allocations, 0u);
}

}  // namespace
