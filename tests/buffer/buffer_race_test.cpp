// Rewiring, deleting and disabling while a tap-out buffer streams at full
// rate. These tests assert little beyond "still streaming"; their point is
// that the address sanitizer sees no use after free and nothing hangs.
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"
#include "support/buffer_dev_dir.h"
#include "support/buffer_rig.h"
#include "support/buffer_test_processor.h"

namespace {

// Feeds numbered packets into the tap-out FIFO whenever it is empty (one
// packet per read for the I/O thread) and drains the inject FIFOs.
class Streamer {
 public:
  Streamer(int feeder, std::vector<int> drains) : feeder_(feeder), drains_(std::move(drains)) {
    BufferPacketSpec spec;
    packet_ = BufferMakePacket(spec);
    feed_ = std::thread([this] { Feed(); });
    drain_ = std::thread([this] { Drain(); });
  }
  ~Streamer() {
    stop_ = true;
    feed_.join();
    drain_.join();
  }

 private:
  void Feed() {
    uint32_t num = 1;
    while (!stop_) {
      if (BufferPipeBytes(feeder_) != 0) {
        sched_yield();
        continue;
      }
      lumx::PutLe32(packet_.data() + kPktNumOffset, num++);
      BufferWriteAll(feeder_, packet_);
    }
  }
  void Drain() {
    std::vector<pollfd> fds;
    for (int fd : drains_) fds.push_back({fd, POLLIN, 0});
    std::vector<uint8_t> scratch(65536);
    while (!stop_) {
      if (poll(fds.data(), fds.size(), 10) <= 0) continue;
      for (const pollfd& p : fds) {
        if (p.revents & POLLIN) {
          ssize_t ignored = read(p.fd, scratch.data(), scratch.size());
          (void)ignored;
        }
      }
    }
  }

  int feeder_;
  std::vector<int> drains_;
  std::vector<uint8_t> packet_;
  std::atomic<bool> stop_{false};
  std::thread feed_;
  std::thread drain_;
};

class BufferRaceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture.setEcho(false);
    rig.dir.MakeFifo("zch-lumx_inject1");
    drain1 = BufferOpenFifoReader(rig.dir.Path("zch-lumx_inject1"));
    ASSERT_GE(drain1, 0);
  }
  // The streamer keeps draining until the tap-out thread is gone: a thread
  // blocked writing a full inject FIFO could never leave its delivery.
  void TearDown() override {
    rig.tapout->Enable(false);
    streamer.reset();
    close(drain1);
  }
  void Stream() { streamer = std::make_unique<Streamer>(rig.feeder, std::vector<int>{rig.drain, drain1}); }
  static bool WaitMore(const std::atomic<uint64_t>& counter, uint64_t from, uint64_t more) {
    return BufferWaitFor([&] { return counter.load() >= from + more; });
  }

  lumx_host::LogCapture capture;
  BufferStreamRig rig;
  int drain1 = -1;
  std::unique_ptr<Streamer> streamer;
};

TEST_F(BufferRaceTest, ProcessorDeletedWhileStreaming) {
  ASSERT_EQ(rig.inject->Enable(true), 0);
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  Stream();
  // One processor stays wired the whole time, so the output set keeps
  // changing around a live entry too.
  BufferTestProcessor steady(BufferTestFourCc("stdy"));
  ASSERT_EQ(rig.tapout->RegisterOutput(&steady), 0);
  steady.SetInput(rig.tapout.get());
  for (int round = 0; round < 300; ++round) {
    auto* p = new BufferTestProcessor(BufferTestFourCc("tmp0"));
    ASSERT_EQ(rig.inject->RegisterInput(p), 0);
    ASSERT_EQ(rig.tapout->RegisterOutput(p), 0);
    p->SetInput(rig.tapout.get());
    ASSERT_TRUE(WaitMore(p->calls, 0, 1)) << round;
    // Its destructor unregisters it from both buffers; then it is gone.
    delete p;
  }
  EXPECT_EQ(rig.tapout->GetOutputsAsString(), "stdy");
  const uint64_t before = steady.calls.load();
  EXPECT_TRUE(WaitMore(steady.calls, before, 2));
  EXPECT_EQ(rig.tapout->UnregisterOutput(&steady), 0);
}

TEST_F(BufferRaceTest, InjectBufferDestroyedWhileStreaming) {
  BufferTestProcessor p(BufferTestFourCc("tst1"));
  ASSERT_EQ(rig.tapout->RegisterOutput(&p), 0);
  p.SetInput(rig.tapout.get());
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  Stream();
  for (int round = 0; round < 60; ++round) {
    auto inject = std::make_unique<LumxBuffer>("inject1", rig.dir.Path("zch-lumx_inject1"), 1, nullptr, false);
    ASSERT_EQ(inject->Enable(true), 0);
    ASSERT_EQ(inject->RegisterInput(&p), 0);
    ASSERT_TRUE(WaitMore(p.callsWithOutput, p.callsWithOutput.load(), 2)) << round;
    inject.reset();  // disables, unwires p, waits for the thread to let go
    EXPECT_EQ(p.output(), nullptr);
  }
  const uint64_t before = p.calls.load();
  EXPECT_TRUE(WaitMore(p.calls, before, 2));
}

TEST_F(BufferRaceTest, InjectBufferDisabledAndEnabledWhileStreaming) {
  BufferTestProcessor p(BufferTestFourCc("tst1"));
  ASSERT_EQ(rig.tapout->RegisterOutput(&p), 0);
  p.SetInput(rig.tapout.get());
  ASSERT_EQ(rig.inject->RegisterInput(&p), 0);
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  Stream();
  for (int round = 0; round < 100; ++round) {
    ASSERT_EQ(rig.inject->Enable(true), 0);
    ASSERT_TRUE(WaitMore(p.callsWithOutput, p.callsWithOutput.load(), 1)) << round;
    ASSERT_EQ(rig.inject->Enable(false), 0);
  }
  // A write that raced with a disable either finished or saw the buffer
  // disabled (-1); it never found the device closed or the block gone.
  EXPECT_EQ(capture.count("writePacketToLum returned"),
            capture.count("inject0: ioProcess writePacketToLum returned status -1"));
}

TEST_F(BufferRaceTest, OutputRewiredBetweenTwoInjectBuffersWhileStreaming) {
  LumxBuffer inject1("inject1", rig.dir.Path("zch-lumx_inject1"), 1, nullptr, false);
  ASSERT_EQ(rig.inject->Enable(true), 0);
  ASSERT_EQ(inject1.Enable(true), 0);
  BufferTestProcessor p(BufferTestFourCc("tst1"));
  ASSERT_EQ(rig.tapout->RegisterOutput(&p), 0);
  p.SetInput(rig.tapout.get());
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  Stream();
  for (int round = 0; round < 400; ++round) {
    LumxBuffer& target = (round % 2 == 0) ? *rig.inject : inject1;
    ASSERT_EQ(target.RegisterInput(&p), 0);
    if (round % 50 == 0) ASSERT_TRUE(WaitMore(p.callsWithOutput, p.callsWithOutput.load(), 1)) << round;
  }
  rig.inject->UnregisterInput();
  inject1.UnregisterInput();
  EXPECT_EQ(capture.count("writePacketToLum returned"), 0u);
}

TEST_F(BufferRaceTest, TapOutBufferStoppedAndStartedWhileStreaming) {
  BufferTestProcessor p(BufferTestFourCc("tst1"));
  ASSERT_EQ(rig.tapout->RegisterOutput(&p), 0);
  p.SetInput(rig.tapout.get());
  ASSERT_EQ(rig.inject->RegisterInput(&p), 0);
  ASSERT_EQ(rig.inject->Enable(true), 0);
  Stream();
  for (int round = 0; round < 30; ++round) {
    ASSERT_EQ(rig.tapout->Enable(true), 0);
    ASSERT_TRUE(WaitMore(p.calls, p.calls.load(), 2)) << round;
    ASSERT_EQ(rig.tapout->Enable(false), 0);
  }
  EXPECT_EQ(capture.count("tapout0 ioProcess end"), 30u);
}

}  // namespace
