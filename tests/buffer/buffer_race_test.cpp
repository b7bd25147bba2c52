// Rewiring, deleting and disabling while a tap-out buffer streams at full
// rate: besides no use after free or hang under the sanitizers, a processor
// wired throughout must have been handed every packet exactly once.
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "support/buffer_dev_dir.h"
#include "support/buffer_rig.h"
#include "support/buffer_test_processor.h"

namespace {

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
  // Wires `p` behind the tap-out buffer, optionally in front of `inject`.
  void Wire(BufferTestProcessor& p, LumxBuffer* inject = nullptr) {
    ASSERT_EQ(rig.tapout->RegisterOutput(&p), 0);
    p.SetInput(rig.tapout.get());
    if (inject != nullptr) {
      ASSERT_EQ(inject->RegisterInput(&p), 0);
    }
  }
  void Stream() { streamer = std::make_unique<BufferStreamer>(rig.feeder, std::vector<int>{rig.drain, drain1}); }
  // Stops the feed; `q`, wired since before the stream began, must have seen
  // every packet the buffer took, none lost or handed over twice.
  void ExpectEveryPacketOnce(const BufferTestProcessor& q) {
    streamer.reset();
    EXPECT_TRUE(BufferWaitFor([&] {
      return BufferPipeBytes(rig.feeder) == 0 && q.calls.load() == rig.tapout->rxPacketCount();
    })) << q.calls.load() << " calls for " << rig.tapout->rxPacketCount() << " packets";
    EXPECT_GT(q.calls.load(), 0u);
  }
  static bool WaitMore(const std::atomic<uint64_t>& counter, uint64_t more) {
    const uint64_t from = counter.load();
    return BufferWaitFor([&] { return counter.load() >= from + more; });
  }

  lumx_host::LogCapture capture;
  BufferStreamRig rig;
  int drain1 = -1;
  std::unique_ptr<BufferStreamer> streamer;
  BufferTestProcessor p{BufferTestFourCc("tst1")};
};

TEST_F(BufferRaceTest, ProcessorDeletedWhileStreaming) {
  ASSERT_EQ(rig.inject->Enable(true), 0);
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  // One processor stays wired the whole time, so the output set keeps
  // changing around a live entry too.
  BufferTestProcessor steady(BufferTestFourCc("stdy"));
  Wire(steady);
  Stream();
  for (int round = 0; round < 300; ++round) {
    auto* tmp = new BufferTestProcessor(BufferTestFourCc("tmp0"));
    Wire(*tmp, rig.inject.get());
    ASSERT_TRUE(WaitMore(tmp->calls, 1)) << round;
    delete tmp;  // its destructor unregisters it from both buffers
  }
  EXPECT_EQ(rig.tapout->GetOutputsAsString(), "stdy");
  ExpectEveryPacketOnce(steady);
  EXPECT_EQ(rig.tapout->UnregisterOutput(&steady), 0);
}

TEST_F(BufferRaceTest, InjectBufferDestroyedWhileStreaming) {
  Wire(p);
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  Stream();
  for (int round = 0; round < 60; ++round) {
    auto inject = std::make_unique<LumxBuffer>("inject1", rig.dir.Path("zch-lumx_inject1"), 1, nullptr, false);
    ASSERT_EQ(inject->Enable(true), 0);
    ASSERT_EQ(inject->RegisterInput(&p), 0);
    ASSERT_TRUE(WaitMore(p.callsWithOutput, 2)) << round;
    inject.reset();  // disables, unwires p, waits for the thread to let go
    EXPECT_EQ(p.output(), nullptr);
  }
  ExpectEveryPacketOnce(p);
}

TEST_F(BufferRaceTest, InjectBufferDisabledAndEnabledWhileStreaming) {
  Wire(p, rig.inject.get());
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  Stream();
  for (int round = 0; round < 100; ++round) {
    ASSERT_EQ(rig.inject->Enable(true), 0);
    ASSERT_TRUE(WaitMore(p.callsWithOutput, 1)) << round;
    ASSERT_EQ(rig.inject->Enable(false), 0);
  }
  ExpectEveryPacketOnce(p);
  // A write that raced with a disable either finished or saw the buffer
  // disabled (-1); it never found the device closed or the block gone.
  EXPECT_EQ(capture.count("writePacketToLum returned"),
            capture.count("inject0: ioProcess writePacketToLum returned status -1"));
}

TEST_F(BufferRaceTest, OutputRewiredBetweenTwoInjectBuffersWhileStreaming) {
  LumxBuffer inject1("inject1", rig.dir.Path("zch-lumx_inject1"), 1, nullptr, false);
  ASSERT_EQ(rig.inject->Enable(true), 0);
  ASSERT_EQ(inject1.Enable(true), 0);
  Wire(p);
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  Stream();
  for (int round = 0; round < 400; ++round) {
    ASSERT_EQ((round % 2 == 0 ? *rig.inject : inject1).RegisterInput(&p), 0);
    if (round % 50 == 0) {
      ASSERT_TRUE(WaitMore(p.callsWithOutput, 1)) << round;
    }
  }
  EXPECT_EQ(p.output(), &inject1);  // the last wiring holds
  ExpectEveryPacketOnce(p);
  rig.inject->UnregisterInput();
  inject1.UnregisterInput();
  EXPECT_EQ(capture.count("writePacketToLum returned"), 0u);
}

TEST_F(BufferRaceTest, TapOutBufferStoppedAndStartedWhileStreaming) {
  Wire(p, rig.inject.get());
  ASSERT_EQ(rig.inject->Enable(true), 0);
  Stream();
  for (int round = 0; round < 30; ++round) {
    ASSERT_EQ(rig.tapout->Enable(true), 0);
    ASSERT_TRUE(WaitMore(p.calls, 2)) << round;
    ASSERT_EQ(rig.tapout->Enable(false), 0);
  }
  EXPECT_EQ(capture.count("tapout0 ioProcess end"), 30u);
}

}  // namespace
