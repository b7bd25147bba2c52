// Receive path of a tap-out buffer: reassembly step by step through
// LumxBufferTestPeer, where read boundaries are exact; delivery, bookkeeping
// lines, thread stop and read failures through a FIFO with the I/O thread;
// writePacketToLum's statuses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"
#include "support/buffer_dev_dir.h"
#include "support/buffer_rig.h"
#include "support/buffer_test_peer.h"
#include "support/buffer_test_processor.h"

namespace {

using Bytes = std::vector<uint8_t>;

BufferPacketDesc Desc(uint32_t num, uint32_t payloadSize = 1920) {
  BufferPacketDesc desc;
  desc.num = num;
  desc.seed = static_cast<uint8_t>(num);
  desc.payloadSize = payloadSize;
  return desc;
}
Bytes Pkt(uint32_t num, uint32_t payloadSize = 1920) { return BufferMakePacket(Desc(num, payloadSize)); }
Bytes Head(Bytes b, size_t n) {
  b.resize(n);
  return b;
}
Bytes Tail(const Bytes& b, size_t from) { return Bytes(b.begin() + static_cast<long>(from), b.end()); }
Bytes Cat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
Bytes With(Bytes b, size_t offset, uint32_t value) {
  lumx::PutLe32(b.data() + offset, value);
  return b;
}
// A lone header announcing `payloadSize` (built by hand: no payload behind it).
Bytes Header(uint32_t payloadSize) { return Head(With(Pkt(2, 8), kPktPayloadSizeOffset, payloadSize), 64); }
uint32_t PayloadHash(const BufferPacketDesc& desc) {
  const Bytes payload = BufferPayload(desc);
  return BufferHash(payload.data(), payload.size());
}

const char* const kFirstFormatLine =
    "tapout0: RX format change 0kHz 0ch 0Bps, block len 0 --> 48kHz 2ch 2Bps, block len 480";

// ---------------------------------------------------------------------------
// Step by step, without a thread or a device.

struct StepRx {
  StepRx() {
    tapout.RegisterOutput(&proc);
    proc.SetInput(&tapout);
    LumxBufferTestPeer::ArmReadBuffer(tapout);
    LumxBufferTestPeer::StartPacket(st);
  }
  size_t Limit() const { return LumxBufferTestPeer::ReadLimit(tapout, st); }
  bool Feed(const Bytes& b) { return Feed(b.data(), b.size()); }
  bool Feed(const uint8_t* data, size_t n) {
    EXPECT_LE(n, Limit());
    return LumxBufferTestPeer::Feed(tapout, st, data, n);
  }

  LumxBuffer tapout{"tapout0", "/nonexistent/zch-lumx_tapout0", 0, nullptr, true};
  BufferTestProcessor proc{BufferTestFourCc("tst1")};
  LumxBufferTestPeer::RxState st;
};

class BufferRxStepTest : public ::testing::Test {
 protected:
  void SetUp() override { capture.setEcho(false); }
  lumx_host::LogCapture capture;
};

TEST_F(BufferRxStepTest, ReassemblyTable) {
  struct Case {
    const char* what;
    std::vector<Bytes> reads;
    std::vector<std::string> lines;  // check and jump lines, in order
    uint64_t calls;
    BufferPacketDesc last;  // what ProcessBlock saw last
  };
  const Case cases[] = {
      {"bad reads and headers are dropped, the stream recovers",
       {Head(Pkt(1), 12), Head(Pkt(1), 1001), With(Pkt(1), kPktVersionOffset, 2), Header(65473), Header(0xFFFFFFC0u),
        Bytes(64, 0), Pkt(1)},
       {"tapout0: RX alignment error, 12 bytes received", "tapout0: RX alignment error, 1001 bytes received",
        "tapout0: Invalid packet version 2 (expected 1)", "tapout0: Invalid packet payload size 65473 (max 65472)",
        // 0xFFFFFFC0 + 64 would wrap to a tiny expected size.
        "tapout0: Invalid packet payload size 4294967232 (max 65472)", "tapout0 skipping 64 bytes"},
       1,
       Desc(1)},
      {"a stale packet start earlier in the read is passed over",
       {Cat(Head(Pkt(3), 1064), Pkt(9))},
       {"tapout0 ioProcess RX packet_num jump 0 -> 9"},
       1,
       Desc(9)},
      {"excess of 8 bytes or more is reported and dropped",
       {Cat(Pkt(1), Bytes(16, 0xEE)), Pkt(2)},
       {"tapout0 received excess 16 bytes (2000 > 1984)"},
       2,
       Desc(2)},
      {"excess under 8 bytes is not reported", {Cat(Pkt(1, 1924), Bytes(4, 0))}, {}, 1, Desc(1, 1924)},
      {"whole packets in one read are all delivered, in order", {Cat(Cat(Pkt(1), Pkt(2)), Pkt(3))}, {}, 3, Desc(3)},
      {"a packet begun after whole ones is finished by the next read",
       {Cat(Pkt(1), Head(Pkt(2), 1000)), Tail(Pkt(2), 1000)}, {}, 2, Desc(2)},
      {"a read that finishes a packet and holds the next ones",
       {Head(Pkt(1), 32), Cat(Cat(Tail(Pkt(1), 32), Pkt(2)), Pkt(3))}, {}, 3, Desc(3)},
      {"junk after whole packets is excess of the last one", {Cat(Cat(Pkt(1), Pkt(2)), Bytes(16, 0xEE))},
       {"tapout0 received excess 16 bytes (2000 > 1984)"}, 2, Desc(2)},
      {"the largest payload fits", {Pkt(1, 65472)}, {}, 1, Desc(1, 65472)},
      {"packet numbers wrap without a jump",
       {Pkt(0xFFFFFFFFu), Pkt(0)},
       {"tapout0 ioProcess RX packet_num jump 0 -> 4294967295"},
       2,
       Desc(0)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    capture.clear();
    StepRx rx;
    for (const Bytes& read : c.reads) rx.Feed(read);
    EXPECT_EQ(BufferLogLines(capture, {"alignment", "Invalid", "skipping", "excess", "jump"}), c.lines);
    EXPECT_EQ(rx.proc.calls.load(), c.calls);
    EXPECT_EQ(rx.proc.lastInSize.load(), c.last.payloadSize);
    EXPECT_EQ(rx.proc.lastInHash.load(), PayloadHash(c.last));
    EXPECT_EQ(rx.Limit(), kLumIoBlockSize);  // ready for a fresh packet
  }
}

TEST_F(BufferRxStepTest, PacketSplitAtEveryOffset) {
  StepRx rx;
  uint32_t num = 1;
  uint64_t delivered = 0;
  size_t alignmentErrors = 0;
  for (size_t k = 0; k <= 1984; ++k) {
    const Bytes packet = Pkt(num);
    const bool firstDone = rx.Feed(packet.data(), k);
    ASSERT_FALSE(firstDone && k < packet.size()) << k;
    const bool done = firstDone || rx.Feed(packet.data() + k, packet.size() - k);
    if (k % 8 == 0) {
      ASSERT_TRUE(done) << k;
      ++delivered;
      ASSERT_EQ(rx.proc.lastInHash.load(), PayloadHash(Desc(num++))) << k;
    } else {
      ASSERT_FALSE(done) << k;
      alignmentErrors += 2;
    }
    ASSERT_EQ(rx.proc.calls.load(), delivered) << k;
    ASSERT_EQ(capture.count("RX alignment error"), alignmentErrors) << k;
  }
  EXPECT_EQ(capture.count("jump"), 0u);
}

TEST_F(BufferRxStepTest, ReadsAskForExactlyTheMissingBytesOnceTheHeaderIsKnown) {
  StepRx rx;
  const Bytes packet = Pkt(1);
  EXPECT_EQ(rx.Limit(), 65536u);
  EXPECT_FALSE(rx.Feed(packet.data(), 8));
  EXPECT_EQ(rx.Limit(), 65528u);
  EXPECT_FALSE(rx.Feed(packet.data() + 8, 56));
  EXPECT_EQ(LumxBufferTestPeer::ExpectedPacketSize(rx.tapout), 1984u);
  EXPECT_EQ(rx.Limit(), 1920u);
  EXPECT_FALSE(rx.Feed(packet.data() + 64, 960));
  EXPECT_EQ(rx.Limit(), 960u);
  EXPECT_TRUE(rx.Feed(packet.data() + 1024, 960));
  EXPECT_EQ(rx.Limit(), 65536u);
}

TEST_F(BufferRxStepTest, EveryTwoHundredthPacketIsLogged) {
  StepRx rx;
  for (uint32_t num = 1; num <= 401; ++num) ASSERT_TRUE(rx.Feed(Pkt(num)));
  EXPECT_EQ(BufferLogLines(capture, {"RX packet_num:"}),
            (std::vector<std::string>{"tapout0: RX packet_num:1 payload_sz:1920",
                                      "tapout0: RX packet_num:201 payload_sz:1920",
                                      "tapout0: RX packet_num:401 payload_sz:1920"}));
  EXPECT_EQ(rx.tapout.rxPacketCount(), 401u);
}

TEST_F(BufferRxStepTest, FormatChangesAreDescribedAndStored) {
  StepRx rx;
  const auto feed = [&](uint32_t num, uint32_t rate, uint8_t ch, uint8_t bps, uint32_t payload) {
    BufferPacketDesc s = Desc(num, payload);
    s.sampleRate = rate;
    s.channels = ch;
    s.bytesPerSample = bps;
    ASSERT_TRUE(rx.Feed(BufferMakePacket(s)));
  };
  feed(1, 48000, 2, 2, 1920);
  feed(2, 44100, 1, 4, 1920);
  feed(3, 16000, 0, 2, 640);
  feed(4, 4294967295u, 255, 255, 640);
  EXPECT_EQ(BufferLogLines(capture, {"format change", "payload sz"}),
            (std::vector<std::string>{
                "tapout0: RX process payload sz change 0 --> 1920",
                kFirstFormatLine,
                "tapout0: RX format change 48kHz 2ch 2Bps, block len 480 --> 44.1kHz 1ch 4Bps, block len 480",
                "tapout0: RX process payload sz change 1920 --> 640",
                "tapout0: RX format change 44.1kHz 1ch 4Bps, block len 480 --> 16kHz 0ch 2Bps, block len 0",
                // Descriptions are cut at 31 characters.
                "tapout0: RX format change 16kHz 0ch 2Bps, block len 0 --> 4.29497e+06kHz 255ch 255Bps, bl",
            }));
  EXPECT_EQ(rx.tapout.formatSampleRate(), 4294967295u);
  EXPECT_EQ(rx.tapout.formatChannels(), 255u);
  EXPECT_EQ(rx.tapout.formatBytesPerSample(), 255u);
  EXPECT_EQ(rx.tapout.formatPayloadSize(), 640u);
}

// ---------------------------------------------------------------------------
// Through a FIFO, with the I/O thread.

class BufferRxThreadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture.setEcho(false);
    rig.tapout->RegisterOutput(&proc);
    proc.SetInput(rig.tapout.get());
  }
  void TearDown() override { rig.tapout->Enable(false); }

  void Start() {
    ASSERT_EQ(0, rig.tapout->Enable(true));
    capture.clear();
  }
  // Writes one read's worth and waits until the thread has taken it.
  void Chunk(const Bytes& bytes) { ASSERT_TRUE(BufferWriteChunk(rig.feeder, bytes)); }
  void WaitCalls(uint64_t n) {
    ASSERT_TRUE(BufferWaitFor([&] { return proc.calls.load() >= n; })) << "calls " << proc.calls.load();
  }
  void WaitLine(const std::string& line) {
    ASSERT_TRUE(BufferWaitFor([&] {
      const auto all = capture.messages("lumx");
      return std::find(all.begin(), all.end(), line) != all.end();
    })) << line;
  }

  lumx_host::LogCapture capture;
  BufferStreamRig rig;
  BufferTestProcessor proc{BufferTestFourCc("tst1")};
};

TEST_F(BufferRxThreadTest, PacketNumberJumpsAndEachThreadStartsAfresh) {
  Start();
  uint64_t calls = 0;
  for (uint32_t num : {5, 6, 8}) {
    Chunk(Pkt(num));
    WaitCalls(++calls);
  }
  EXPECT_EQ(BufferLogLines(capture, {"tapout0"}), (std::vector<std::string>{
                                                      "tapout0 ioProcess RX packet_num jump 0 -> 5",
                                                      "tapout0: RX process payload sz change 0 --> 1920",
                                                      "tapout0: RX packet_num:5 payload_sz:1920",
                                                      kFirstFormatLine,
                                                      "tapout0 ioProcess RX packet_num jump 6 -> 8",
                                                  }));
  EXPECT_EQ(proc.lastInHash.load(), PayloadHash(Desc(8)));
  EXPECT_EQ(rig.tapout->rxPacketCount(), 3u);

  // Disabling wakes the thread from its wait and joins it.
  WaitLine("tapout0 waiting for LUM RX\n");
  capture.clear();
  EXPECT_EQ(0, rig.tapout->Enable(false));
  EXPECT_FALSE(rig.tapout->isEnabled());
  EXPECT_EQ(BufferLogLines(capture, {""}), (std::vector<std::string>{"Disable buffer tapout0", "tapout0 ioProcess end",
                                                                     "Buffer tapout0 disabled, I/O thread end"}));
  // The next thread starts with fresh numbers, count and format.
  Start();
  Chunk(Pkt(1));
  WaitCalls(++calls);
  EXPECT_EQ(BufferLogLines(capture, {"tapout0"}),
            (std::vector<std::string>{"tapout0: RX process payload sz change 0 --> 1920",
                                      "tapout0: RX packet_num:1 payload_sz:1920", kFirstFormatLine}));
  EXPECT_EQ(0, rig.tapout->Enable(false));
  EXPECT_EQ(capture.count("Disable buffer tapout0: already disabled"), 0u);
  rig.tapout->Enable(false);
  EXPECT_EQ(capture.count("Disable buffer tapout0: already disabled"), 1u);
}

TEST_F(BufferRxThreadTest, PacketsThatQueuedUpAreAllDelivered) {
  Start();
  Bytes backlog;
  for (uint32_t num = 1; num <= 10; ++num) backlog = Cat(backlog, Pkt(num));
  Chunk(backlog);
  WaitCalls(10);
  EXPECT_EQ(proc.lastInHash.load(), PayloadHash(Desc(10)));
  EXPECT_EQ(capture.count("jump"), 0u);
  EXPECT_EQ(rig.tapout->stats().rxPackets.Get(), 10u);
}

TEST_F(BufferRxThreadTest, OutputPacketCarriesStoredFormatAndThisPacketsFieldsEvenWhenProcessBlockFails) {
  ASSERT_EQ(0, rig.inject->RegisterInput(&proc));
  ASSERT_EQ(0, rig.inject->Enable(true));
  proc.xorMask = 0xFF;
  proc.status = -7;
  Start();
  BufferPacketDesc a = Desc(1);
  a.restByte = 0xAB;
  a.opaque = 0x0102030405060708ull;
  BufferPacketDesc b = Desc(2);
  b.restByte = 0xCD;  // same format: the stored header stays a's
  b.opaque = 0xA1A2A3A4A5A6A7A8ull;
  Chunk(BufferMakePacket(a));
  Chunk(BufferMakePacket(b));
  Bytes out(2 * 1984);
  ASSERT_TRUE(rig.ReadOutput(out.data(), out.size()));
  // b's number, size and opaque word in a's stored header, then the
  // processed payload.
  BufferPacketDesc expectedSpec = b;
  expectedSpec.restByte = a.restByte;
  Bytes expected = BufferMakePacket(expectedSpec);
  for (size_t i = kLumPacketHeaderSize; i < expected.size(); ++i) expected[i] ^= 0xFF;
  EXPECT_EQ(Bytes(out.begin() + 1984, out.end()), expected);
  EXPECT_EQ(proc.lastOutSize.load(), 1920u);
  // The same failure again within a second is held back, not logged twice.
  EXPECT_EQ(capture.count("tapout0 ioProcess: ProcessBlock returned status -7"), 1u);
}

TEST_F(BufferRxThreadTest, DisabledInjectBufferGetsNoWriteClosedOneLogsTheStatus) {
  ASSERT_EQ(0, rig.inject->RegisterInput(&proc));
  Start();
  Chunk(Pkt(1));
  WaitCalls(1);
  EXPECT_EQ(proc.callsWithOutput.load(), 0u);  // a null output block
  EXPECT_EQ(proc.lastOutSize.load(), 1920u);
  EXPECT_EQ(rig.PendingOutput(), 0u);
  EXPECT_EQ(capture.count("writePacketToLum"), 0u);

  ASSERT_EQ(0, rig.inject->Enable(true));
  LumxBufferTestPeer::CloseHandle(*rig.inject);
  Chunk(Pkt(2));
  WaitLine("inject0: ioProcess writePacketToLum returned status -2");
}

TEST_F(BufferRxThreadTest, WaitOnAClosedDescriptorEndsTheThread) {
  Start();
  // Close the device under the thread but leave the number in handle_.
  ASSERT_EQ(close(LumxBufferTestPeer::Handle(*rig.tapout)), 0);
  WaitLine("tapout0 ioProcess end");
  EXPECT_EQ(capture.count("tapout0 select failed\n"), 1u);
  EXPECT_TRUE(rig.tapout->isEnabled());
  LumxBufferTestPeer::SetHandle(*rig.tapout, -1);  // already closed above
  EXPECT_EQ(rig.tapout->Enable(false), 0);
}

// Read failures: a directory opens and polls readable but every read fails.
TEST(BufferReadErrorTest, TenRetriesThenReopenAndFiveFailedReopensEndTheThread) {
  lumx_host::LogCapture capture;
  capture.setEcho(false);
  BufferDevDir dir;
  const std::string path = dir.Path("zch-lumx_tapout9");
  ASSERT_EQ(0, mkdir(path.c_str(), 0700));
  LumxBuffer buffer("tapout9", path, 9, nullptr, true);
  ASSERT_EQ(0, buffer.Enable(true));
  ASSERT_TRUE(BufferWaitFor([&] { return capture.contains("tapout9 Re-init success"); }));
  const std::vector<std::string> lines =
      BufferLogLines(capture, {"tapout9 LUM read", "tapout9 Attempting", "tapout9 Re-init"});
  const auto firstReopen = std::find(lines.begin(), lines.end(), "tapout9 Attempting to reinitialize LUM interface");
  ASSERT_EQ(firstReopen - lines.begin(), 10);
  for (auto it = lines.begin(); it != firstReopen; ++it) {
    EXPECT_EQ(it->rfind("tapout9 LUM read status -1 (errno 21: Is a directory), trying again, handle_ ", 0), 0u) << *it;
    EXPECT_NE(it->find(", read_sz 65536"), std::string::npos) << *it;
  }
  EXPECT_EQ(*(firstReopen + 1), "tapout9 Re-init success");

  // The device goes away: five reopens fail, the thread ends, the buffer
  // stays enabled until told otherwise.
  ASSERT_EQ(0, rmdir(path.c_str()));
  ASSERT_TRUE(BufferWaitFor([&] { return capture.contains("tapout9 ioProcess end"); }));
  EXPECT_EQ(capture.count("tapout9 LUM interface error, status -1\n"), 1u);
  EXPECT_GE(capture.count("Error opening " + path + ", status -1 (errno 2: No such file or directory)\n"), 5u);
  EXPECT_TRUE(buffer.isEnabled());
  EXPECT_EQ(0, buffer.Enable(false));
  EXPECT_TRUE(capture.contains("Buffer tapout9 disabled, I/O thread end"));
}

TEST(BufferWriteTest, StatusCodesInCheckOrder) {
  lumx_host::LogCapture capture;
  capture.setEcho(false);
  BufferDevDir dir;
  dir.MakeFile("zch-lumx_inject0");
  LumxBuffer inject("inject0", dir.Path("zch-lumx_inject0"), 0, nullptr, false);
  const auto write = [&](uint32_t payloadSize) {
    uint8_t* block = LumxBufferTestPeer::IoBlock(inject);
    lumx::PutLe32(block + kPktMagicOffset, kLumPacketMagic);
    lumx::PutLe32(block + kPktPayloadSizeOffset, payloadSize);
    return inject.writePacketToLum();
  };
  const auto fileSize = [&] {
    struct stat s = {};
    stat(dir.Path("zch-lumx_inject0").c_str(), &s);
    return s.st_size;
  };
  EXPECT_EQ(inject.writePacketToLum(), -1);
  ASSERT_EQ(inject.Enable(true), 0);
  EXPECT_EQ(write(1920), 0);
  EXPECT_EQ(fileSize(), 1984);
  EXPECT_EQ(write(65472), 0);
  EXPECT_EQ(fileSize(), 1984 + 65536);
  EXPECT_EQ(write(65473), -5);
  EXPECT_EQ(fileSize(), 1984 + 65536);
  LumxBufferTestPeer::DropIoBlock(inject);
  EXPECT_EQ(inject.writePacketToLum(), -4);
  LumxBufferTestPeer::CloseHandle(inject);
  EXPECT_EQ(inject.writePacketToLum(), -2);
  EXPECT_EQ(inject.Enable(false), 0);
  EXPECT_EQ(inject.writePacketToLum(), -1);

  LumxBuffer tapout("tapout0", "/nonexistent", 0, nullptr, true);
  LumxBufferTestPeer::ArmReadBuffer(tapout, open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(tapout.writePacketToLum(), -3);
}

}  // namespace
