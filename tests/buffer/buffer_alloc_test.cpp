// The packet path allocates nothing: 10,000 packets through an enabled
// tap-out buffer, a processor and an enabled inject buffer, counting every
// heap allocation in the process while they stream.
//
// All buffer tests share one binary, so the counter is off except inside the
// measured window.
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

#include "support/alloc_counter.h"

namespace {

void* volatile gProbeSink = nullptr;

TEST(BufferAllocationTest, NoHeapAllocationPerPacket) {
  if (!lumx::test::AllocationCounterWorks()) GTEST_SKIP() << "no allocation counter on this libc";
  // The counter sees both malloc and operator new.
  lumx::test::StartCountingAllocations();
  gProbeSink = malloc(16);
  free(gProbeSink);
  gProbeSink = new int(1);
  delete static_cast<int*>(gProbeSink);
  ASSERT_EQ(lumx::test::StopCountingAllocations(), 2u);

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
  lumx::test::StartCountingAllocations();
  const bool streamed = warmedUp && waitPackets(from + kMeasured);
  const uint64_t allocations = lumx::test::StopCountingAllocations();

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
