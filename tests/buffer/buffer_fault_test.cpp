// Devices that misbehave under a running buffer: FIFOs whose other end is
// missing, a tap-out writer that goes away, an inject reader that stops, and
// a processor left on two tap-outs that both feed one inject buffer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"
#include "support/buffer_dev_dir.h"
#include "support/buffer_rig.h"
#include "support/buffer_test_processor.h"
#include "support/stream_fifo_rig.h"

namespace {

using std::chrono::milliseconds;

class BufferFaultTest : public ::testing::Test {
 protected:
  void SetUp() override { capture.setEcho(false); }
  void Wire(LumxBuffer& tapout, LumxBuffer* inject = nullptr) {
    ASSERT_EQ(tapout.RegisterOutput(&p), 0);
    p.SetInput(&tapout);
    if (inject != nullptr) {
      ASSERT_EQ(inject->RegisterInput(&p), 0);
    }
  }
  lumx_host::LogCapture capture;
  BufferTestProcessor p{BufferTestFourCc("tst1")};
};

TEST_F(BufferFaultTest, OpeningAFifoWithoutItsOtherEndDoesNotWait) {
  BufferDevDir dir;
  for (bool read : {true, false}) {
    const std::string name = read ? "zch-lumx_tapout0" : "zch-lumx_inject0";
    dir.MakeFifo(name);
    LumxBuffer b(read ? "tapout0" : "inject0", dir.Path(name), 0, nullptr, read);
    std::atomic<int> status{1};
    std::thread enable([&] { status = b.Enable(true); });
    // A read end opens at once; a write end fails and is retried, and the
    // retry succeeds once a reader is there.
    const bool early = BufferWaitFor(
        [&] { return read ? status != 1 : capture.contains("inject0 Attempting to reinitialize LUM interface, attempt 1\n"); },
        milliseconds(10000));
    const int other = read ? BufferOpenFifoFeeder(dir.Path(name)) : BufferOpenFifoReader(dir.Path(name));
    enable.join();
    EXPECT_TRUE(early) << name;
    EXPECT_EQ(status, 0) << name;
    b.Enable(false);
    close(other);
  }
}

TEST_F(BufferFaultTest, WriterGoneBacksOffAndTheStreamResumes) {
  BufferDevDir dir;
  dir.MakeFifo("zch-lumx_tapout0");
  LumxBuffer tapout("tapout0", dir.Path("zch-lumx_tapout0"), 0, nullptr, true);
  Wire(tapout);
  ASSERT_EQ(tapout.Enable(true), 0);
  for (uint32_t num = 1; num <= 2; ++num) {
    BufferPacketDesc desc;
    desc.num = num;
    const int writer = open(dir.Path("zch-lumx_tapout0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_TRUE(BufferWriteChunk(writer, BufferMakePacket(desc)));
    ASSERT_TRUE(BufferWaitFor([&] { return p.calls == num; })) << "the stream resumes by itself";
    const uint64_t emptyReads = tapout.stats().eofReads.Get();
    const auto gone = std::chrono::steady_clock::now();
    close(writer);
    // Six empty reads take at least 10 + 20 + 40 + 80 + 160 ms of back-off.
    ASSERT_TRUE(BufferWaitFor([&] { return tapout.stats().eofReads.Get() >= emptyReads + 6; }));
    EXPECT_GE(std::chrono::steady_clock::now() - gone, milliseconds(310));
  }
  EXPECT_EQ(tapout.stats().eofEpisodes.Get(), 2u);
  // One line per episode at most (the second may be held back).
  const size_t lines = capture.count("tapout0: end of file, the writer is gone");
  EXPECT_TRUE(lines == 1 || lines == 2) << lines;
  tapout.Enable(false);
}

TEST_F(BufferFaultTest, AWriteCutShortByAStalledReaderLeavesTheNextPacketWhole) {
  BufferStreamRig rig;
  ASSERT_EQ(fcntl(rig.drain, F_SETPIPE_SZ, 4096), 4096);
  Wire(*rig.tapout, rig.inject.get());
  ASSERT_EQ(rig.inject->Enable(true), 0);
  ASSERT_EQ(rig.tapout->Enable(true), 0);
  // 19200 bytes at 8 kHz: a long block, so the write deadline is the 200 ms
  // ceiling; nobody reads, so only the pipe's 4096 bytes go out.
  BufferPacketDesc desc;
  desc.payloadSize = 19200;
  desc.sampleRate = 8000;
  ASSERT_TRUE(BufferWriteAll(rig.feeder, BufferMakePacket(desc)));
  ASSERT_TRUE(BufferWaitFor([&] { return rig.inject->stats().txTimeouts.Get() == 1; }));
  // The counter moves inside the write, the line follows its return.
  EXPECT_TRUE(
      BufferWaitFor([&] { return capture.contains("inject0: ioProcess writePacketToLum returned status -110"); }));
  std::vector<uint8_t> cut(4096);
  ASSERT_TRUE(rig.ReadOutput(cut.data(), cut.size()));
  EXPECT_EQ(lumx::GetLe32(&cut[kPktNumOffset]), 1u);
  // A reader that keeps up gets the next packet whole, from its magic on.
  desc.num = 2;
  const std::vector<uint8_t> next = BufferMakePacket(desc);
  ASSERT_TRUE(BufferWriteAll(rig.feeder, next));
  std::vector<uint8_t> out(next.size());
  ASSERT_TRUE(rig.ReadOutput(out.data(), out.size()));
  EXPECT_EQ(out, next);
  EXPECT_EQ(rig.inject->stats().txPackets.Get(), 1u);
  rig.tapout->Enable(false);
}

// A processor that Connect left registered on its old tap-out as well: two
// I/O threads deliver through it into one inject buffer. No packet may mix
// the two, and the one reading the other buffer's format must not race.
TEST_F(BufferFaultTest, OneProcessorOnTwoTapOutsFeedingOneInject) {
  StreamFifoRig fifos(2);
  LumxBuffer tapout0("tapout0", fifos.dir.Path("zch-lumx_tapout0"), 0, nullptr, true);
  LumxBuffer tapout1("tapout1", fifos.dir.Path("zch-lumx_tapout1"), 1, nullptr, true);
  LumxBuffer inject0("inject0", fifos.dir.Path("zch-lumx_inject0"), 0, nullptr, false);
  ASSERT_EQ(tapout0.RegisterOutput(&p), 0);
  Wire(tapout1, &inject0);
  ASSERT_EQ(tapout0.Enable(true), 0);
  ASSERT_EQ(tapout1.Enable(true), 0);
  // Meanwhile one thread re-enables inject0 and another re-registers its
  // input.
  std::atomic<bool> stop{false};
  std::vector<std::thread> churn;
  for (int role = 0; role < 2; ++role) {
    churn.emplace_back([&, role] {
      for (int i = 0; !stop; ++i, std::this_thread::sleep_for(milliseconds(1))) {
        role == 0 ? (void)inject0.Enable(i % 2 == 0) : (void)inject0.RegisterInput(&p);
      }
    });
  }
  EXPECT_TRUE(fifos.WaitMore(0, 400));
  stop = true;
  for (std::thread& t : churn) t.join();
  tapout0.Enable(false);
  tapout1.Enable(false);
  EXPECT_EQ(fifos.corrupt(0), 0u);
  EXPECT_EQ(p.inputRate.load(), 48000u);
}

}  // namespace
