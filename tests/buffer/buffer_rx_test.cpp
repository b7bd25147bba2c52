// Receive path of a tap-out buffer: reassembly, checks, bookkeeping lines and
// delivery, first through a FIFO with the real I/O thread, then step by step
// through LumxBufferTestPeer where read boundaries must be exact.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"
#include "support/buffer_dev_dir.h"
#include "support/buffer_rig.h"
#include "support/buffer_test_peer.h"
#include "support/buffer_test_processor.h"

namespace {

constexpr uint32_t kTst1 = BufferTestFourCc("tst1");

// Lines of the "lumx" tag that start with `prefix`, without the idle notices
// (their number depends on timing).
std::vector<std::string> Lines(const lumx_host::LogCapture& capture, const std::string& prefix) {
  std::vector<std::string> out;
  for (const std::string& m : capture.messages("lumx")) {
    if (m.rfind(prefix, 0) != 0) continue;
    if (m.find("waiting for LUM RX") != std::string::npos) continue;
    out.push_back(m);
  }
  return out;
}

BufferPacketSpec Spec(uint32_t num) {
  BufferPacketSpec spec;
  spec.num = num;
  spec.seed = static_cast<uint8_t>(num);
  return spec;
}

uint32_t PayloadHash(const BufferPacketSpec& spec) {
  const std::vector<uint8_t> payload = BufferPayload(spec);
  return BufferHash(payload.data(), payload.size());
}

const char* const kFirstFormatLine =
    "tapout0: RX format change 0kHz 0ch 0Bps, block len 0 --> 48kHz 2ch 2Bps, block len 480";

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
  void Chunk(const std::vector<uint8_t>& bytes) { ASSERT_TRUE(BufferWriteChunk(rig.feeder, bytes)); }
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
  BufferTestProcessor proc{kTst1};
};

TEST_F(BufferRxThreadTest, PacketNumbersFiveSixEightLogTwoJumps) {
  Start();
  Chunk(BufferMakePacket(Spec(5)));
  WaitCalls(1);
  Chunk(BufferMakePacket(Spec(6)));
  WaitCalls(2);
  Chunk(BufferMakePacket(Spec(8)));
  WaitCalls(3);
  EXPECT_EQ(Lines(capture, "tapout0"), (std::vector<std::string>{
                                           "tapout0 ioProcess RX packet_num jump 0 -> 5",
                                           "tapout0: RX process payload sz change 0 --> 1920",
                                           "tapout0: RX packet_num:5 payload_sz:1920",
                                           kFirstFormatLine,
                                           "tapout0 ioProcess RX packet_num jump 6 -> 8",
                                       }));
  EXPECT_EQ(proc.lastInSize.load(), 1920u);
  EXPECT_EQ(proc.lastInHash.load(), PayloadHash(Spec(8)));
  EXPECT_EQ(rig.tapout->rxPacketCount(), 3u);
}

TEST_F(BufferRxThreadTest, StalePacketStartEarlierInTheBlockIsPassedOver) {
  Start();
  // The tail of a lost packet that itself holds an old packet start, then a
  // whole packet: one read of 3048 bytes.
  std::vector<uint8_t> block = BufferMakePacket(Spec(3));
  block.resize(1064);
  const std::vector<uint8_t> real = BufferMakePacket(Spec(9));
  block.insert(block.end(), real.begin(), real.end());
  Chunk(block);
  WaitCalls(1);
  EXPECT_EQ(proc.lastInHash.load(), PayloadHash(Spec(9)));
  const auto lines = Lines(capture, "tapout0");
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], "tapout0 ioProcess RX packet_num jump 0 -> 9");
  EXPECT_EQ(capture.count("skipping"), 0u);
  EXPECT_EQ(capture.count("excess"), 0u);
}

TEST_F(BufferRxThreadTest, BadReadsAndHeadersAreDiscardedAndStreamRecovers) {
  Start();
  const std::vector<uint8_t> good = BufferMakePacket(Spec(1));
  Chunk(std::vector<uint8_t>(good.begin(), good.begin() + 12));
  WaitLine("tapout0: RX alignment error, 12 bytes received");
  Chunk(std::vector<uint8_t>(good.begin(), good.begin() + 1001));
  WaitLine("tapout0: RX alignment error, 1001 bytes received");
  BufferPacketSpec v2 = Spec(1);
  v2.version = 2;
  Chunk(BufferMakePacket(v2));
  WaitLine("tapout0: Invalid packet version 2 (expected 1)");
  BufferPacketSpec huge = Spec(1);
  huge.payloadSize = 65473;
  std::vector<uint8_t> hugeHeader = BufferMakePacket(huge);
  hugeHeader.resize(kLumPacketHeaderSize);
  Chunk(hugeHeader);
  WaitLine("tapout0: Invalid packet payload size 65473 (max 65472)");
  Chunk(std::vector<uint8_t>(64, 0));
  WaitLine("tapout0 skipping 64 bytes");
  Chunk(good);
  WaitCalls(1);

  EXPECT_EQ(Lines(capture, "tapout0"), (std::vector<std::string>{
                                           "tapout0: RX alignment error, 12 bytes received",
                                           "tapout0: RX alignment error, 1001 bytes received",
                                           "tapout0: Invalid packet version 2 (expected 1)",
                                           "tapout0: Invalid packet payload size 65473 (max 65472)",
                                           "tapout0 skipping 64 bytes",
                                           "tapout0: RX process payload sz change 0 --> 1920",
                                           "tapout0: RX packet_num:1 payload_sz:1920",
                                           kFirstFormatLine,
                                       }));
  EXPECT_EQ(proc.calls.load(), 1u);
  EXPECT_EQ(proc.lastInHash.load(), PayloadHash(Spec(1)));
}

TEST_F(BufferRxThreadTest, ExcessBytesAreReportedAndDropped) {
  Start();
  std::vector<uint8_t> withTail = BufferMakePacket(Spec(1));
  withTail.resize(withTail.size() + 16, 0xEE);
  Chunk(withTail);
  WaitCalls(1);
  Chunk(BufferMakePacket(Spec(2)));
  WaitCalls(2);
  const auto lines = Lines(capture, "tapout0");
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], "tapout0 received excess 16 bytes (2000 > 1984)");
  EXPECT_EQ(capture.count("jump"), 0u);
  EXPECT_EQ(proc.lastInHash.load(), PayloadHash(Spec(2)));
}

TEST_F(BufferRxThreadTest, OutputPacketCarriesStoredFormatAndThisPacketsFields) {
  ASSERT_EQ(0, rig.inject->RegisterInput(&proc));
  ASSERT_EQ(0, rig.inject->Enable(true));
  proc.xorMask = 0xFF;
  Start();
  BufferPacketSpec a = Spec(1);
  a.restByte = 0xAB;
  a.opaque = 0x0102030405060708ull;
  BufferPacketSpec b = Spec(2);
  b.restByte = 0xCD;  // same format: the stored header stays a's
  b.opaque = 0xA1A2A3A4A5A6A7A8ull;
  Chunk(BufferMakePacket(a));
  Chunk(BufferMakePacket(b));
  std::vector<uint8_t> out(2 * 1984);
  ASSERT_TRUE(rig.ReadOutput(out.data(), out.size()));
  const uint8_t* second = out.data() + 1984;
  EXPECT_EQ(lumx::GetLe32(second + kPktMagicOffset), kLumPacketMagic);
  EXPECT_EQ(lumx::GetLe32(second + kPktVersionOffset), 1u);
  EXPECT_EQ(lumx::GetLe64(second + kPktOpaqueOffset), b.opaque);
  EXPECT_EQ(lumx::GetLe32(second + kPktNumOffset), 2u);
  EXPECT_EQ(lumx::GetLe32(second + kPktPayloadSizeOffset), 1920u);
  EXPECT_EQ(lumx::GetLe32(second + kPktSampleRateOffset), 48000u);
  EXPECT_EQ(second[kPktChannelsOffset], 2);
  EXPECT_EQ(second[kPktBytesPerSampleOffset], 2);
  for (size_t i = 30; i < 64; ++i) ASSERT_EQ(second[i], 0xAB) << i;
  const std::vector<uint8_t> payload = BufferPayload(b);
  for (size_t i = 0; i < payload.size(); ++i) ASSERT_EQ(second[64 + i], payload[i] ^ 0xFF) << i;
  EXPECT_EQ(proc.lastOutSize.load(), 1920u);
}

TEST_F(BufferRxThreadTest, FailedProcessBlockIsLoggedAndPacketStillWritten) {
  ASSERT_EQ(0, rig.inject->RegisterInput(&proc));
  ASSERT_EQ(0, rig.inject->Enable(true));
  proc.status = -7;
  Start();
  Chunk(BufferMakePacket(Spec(1)));
  std::vector<uint8_t> out(1984);
  ASSERT_TRUE(rig.ReadOutput(out.data(), out.size()));
  EXPECT_EQ(capture.count("tapout0 ioProcess: ProcessBlock returned status -7"), 1u);
}

TEST_F(BufferRxThreadTest, DisabledOutputBufferGetsNullOutputAndNoWrite) {
  ASSERT_EQ(0, rig.inject->RegisterInput(&proc));
  Start();
  Chunk(BufferMakePacket(Spec(1)));
  WaitCalls(1);
  EXPECT_EQ(proc.callsWithOutput.load(), 0u);
  EXPECT_EQ(proc.lastOutSize.load(), 1920u);
  EXPECT_EQ(rig.PendingOutput(), 0u);
  EXPECT_EQ(capture.count("writePacketToLum"), 0u);
}

TEST_F(BufferRxThreadTest, WriteFailureIsLoggedWithTheInjectName) {
  ASSERT_EQ(0, rig.inject->RegisterInput(&proc));
  ASSERT_EQ(0, rig.inject->Enable(true));
  LumxBufferTestPeer::CloseHandle(*rig.inject);
  Start();
  Chunk(BufferMakePacket(Spec(1)));
  WaitCalls(1);
  WaitLine("inject0: ioProcess writePacketToLum returned status -2");
}

TEST_F(BufferRxThreadTest, DisableWhileWaitingInSelectJoinsTheThread) {
  Start();
  WaitLine("tapout0 waiting for LUM RX\n");
  EXPECT_EQ(0, rig.tapout->Enable(false));
  EXPECT_FALSE(rig.tapout->isEnabled());
  const auto all = capture.messages("lumx");
  const auto at = [&](const std::string& line) { return std::find(all.begin(), all.end(), line) - all.begin(); };
  const auto disable = at("Disable buffer tapout0");
  const auto end = at("tapout0 ioProcess end");
  const auto done = at("Buffer tapout0 disabled, I/O thread end");
  ASSERT_LT(done, static_cast<long>(all.size()));
  EXPECT_LT(disable, end);
  EXPECT_LT(end, done);

  // Enabling again starts a fresh thread with fresh per-thread state.
  capture.clear();
  ASSERT_EQ(0, rig.tapout->Enable(true));
  Chunk(BufferMakePacket(Spec(1)));
  WaitCalls(1);
  EXPECT_EQ(capture.count("tapout0: RX packet_num:1 payload_sz:1920"), 1u);
  EXPECT_EQ(capture.count(kFirstFormatLine), 1u);
  EXPECT_EQ(0, rig.tapout->Enable(false));
  EXPECT_EQ(capture.count("Disable buffer tapout0: already disabled"), 0u);
  rig.tapout->Enable(false);
  EXPECT_EQ(capture.count("Disable buffer tapout0: already disabled"), 1u);
}

TEST_F(BufferRxThreadTest, WaitOnAClosedDescriptorEndsTheThread) {
  Start();
  // Close the device under the thread but leave the number in handle_.
  const int fd = LumxBufferTestPeer::Handle(*rig.tapout);
  ASSERT_EQ(close(fd), 0);
  WaitLine("tapout0 ioProcess end");
  EXPECT_EQ(capture.count("tapout0 select failed\n"), 1u);
  EXPECT_TRUE(rig.tapout->isEnabled());
  LumxBufferTestPeer::SetHandle(*rig.tapout, -1);  // already closed above
  EXPECT_EQ(rig.tapout->Enable(false), 0);
}

// ---------------------------------------------------------------------------
// Read failures: a directory opens and selects readable but every read fails.

class BufferReadErrorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture.setEcho(false);
    path = dir.Path("zch-lumx_tapout9");
    ASSERT_EQ(0, mkdir(path.c_str(), 0700));
    buffer = std::make_unique<LumxBuffer>("tapout9", path, 9, nullptr, true);
  }
  void TearDown() override { buffer.reset(); }

  lumx_host::LogCapture capture;
  BufferDevDir dir;
  std::string path;
  std::unique_ptr<LumxBuffer> buffer;
};

TEST_F(BufferReadErrorTest, TenRetriesThenReopen) {
  ASSERT_EQ(0, buffer->Enable(true));
  ASSERT_TRUE(BufferWaitFor([&] { return capture.contains("tapout9 Re-init success"); }));
  std::vector<std::string> lines = Lines(capture, "tapout9");
  const auto firstReopen = std::find(lines.begin(), lines.end(), "tapout9 Attempting to reinitialize LUM interface");
  ASSERT_NE(firstReopen, lines.end());
  ASSERT_EQ(firstReopen - lines.begin(), 10);
  for (auto it = lines.begin(); it != firstReopen; ++it) {
    EXPECT_EQ(it->rfind("tapout9 LUM read status -1 (errno 21: Is a directory), trying again, handle_ ", 0), 0u)
        << *it;
    EXPECT_NE(it->find(", read_sz 65536"), std::string::npos) << *it;
  }
  EXPECT_EQ(*(firstReopen + 1), "tapout9 Re-init success");
  EXPECT_EQ(0, buffer->Enable(false));
}

TEST_F(BufferReadErrorTest, FiveFailedReopensEndTheThreadButKeepItEnabled) {
  ASSERT_EQ(0, buffer->Enable(true));
  ASSERT_TRUE(BufferWaitFor([&] { return capture.contains("tapout9 Attempting to reinitialize LUM interface"); }));
  ASSERT_EQ(0, rmdir(path.c_str()));
  ASSERT_TRUE(BufferWaitFor([&] { return capture.contains("tapout9 ioProcess end"); }));
  EXPECT_EQ(capture.count("tapout9 LUM interface error, status -1\n"), 1u);
  const std::string openError = "Error opening " + path + ", status -1 (errno 2: No such file or directory)\n";
  EXPECT_GE(capture.count(openError), 5u);
  EXPECT_TRUE(buffer->isEnabled());
  EXPECT_EQ(0, buffer->Enable(false));
  EXPECT_TRUE(capture.contains("Buffer tapout9 disabled, I/O thread end"));
}

// ---------------------------------------------------------------------------
// Step by step, without a thread.

class BufferRxStepTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture.setEcho(false);
    tapout.RegisterOutput(&proc);
    proc.SetInput(&tapout);
    LumxBufferTestPeer::ArmReadBuffer(tapout);
    LumxBufferTestPeer::StartPacket(st);
  }
  bool Feed(const std::vector<uint8_t>& bytes) { return Feed(bytes.data(), bytes.size()); }
  bool Feed(const uint8_t* data, size_t n) {
    EXPECT_LE(n, LumxBufferTestPeer::ReadLimit(tapout, st));
    return LumxBufferTestPeer::Feed(tapout, st, data, n);
  }

  lumx_host::LogCapture capture;
  LumxBuffer tapout{"tapout0", "/nonexistent/zch-lumx_tapout0", 0, nullptr, true};
  BufferTestProcessor proc{kTst1};
  LumxBufferTestPeer::RxState st;
};

TEST_F(BufferRxStepTest, PacketSplitAtEveryOffset) {
  uint32_t num = 1;
  uint64_t delivered = 0;
  size_t alignmentErrors = 0;
  for (size_t k = 0; k <= 1984; ++k) {
    const BufferPacketSpec spec = Spec(num);
    const std::vector<uint8_t> packet = BufferMakePacket(spec);
    const bool firstDone = Feed(packet.data(), k);
    ASSERT_FALSE(firstDone && k < packet.size()) << k;
    const bool done = firstDone || Feed(packet.data() + k, packet.size() - k);
    if (k % 8 == 0) {
      ASSERT_TRUE(done) << k;
      ++delivered;
      ++num;
      ASSERT_EQ(proc.lastInHash.load(), PayloadHash(spec)) << k;
    } else {
      ASSERT_FALSE(done) << k;
      alignmentErrors += 2;
    }
    ASSERT_EQ(proc.calls.load(), delivered) << k;
    ASSERT_EQ(capture.count("RX alignment error"), alignmentErrors) << k;
  }
  EXPECT_EQ(capture.count("jump"), 0u);
}

TEST_F(BufferRxStepTest, ReadsAskForExactlyTheMissingBytesOnceTheHeaderIsKnown) {
  const std::vector<uint8_t> packet = BufferMakePacket(Spec(1));
  EXPECT_EQ(LumxBufferTestPeer::ReadLimit(tapout, st), 65536u);
  EXPECT_FALSE(Feed(packet.data(), 8));
  EXPECT_EQ(LumxBufferTestPeer::ReadLimit(tapout, st), 65528u);
  EXPECT_FALSE(Feed(packet.data() + 8, 56));
  EXPECT_EQ(LumxBufferTestPeer::ExpectedPacketSize(tapout), 1984u);
  EXPECT_EQ(LumxBufferTestPeer::ReadLimit(tapout, st), 1920u);
  EXPECT_FALSE(Feed(packet.data() + 64, 960));
  EXPECT_EQ(LumxBufferTestPeer::ReadLimit(tapout, st), 960u);
  EXPECT_TRUE(Feed(packet.data() + 1024, 960));
  EXPECT_EQ(LumxBufferTestPeer::ReadLimit(tapout, st), 65536u);
}

TEST_F(BufferRxStepTest, OnlyTheLastPacketStartOfAReadCounts) {
  std::vector<uint8_t> two = BufferMakePacket(Spec(1));
  const std::vector<uint8_t> second = BufferMakePacket(Spec(2));
  two.insert(two.end(), second.begin(), second.end());
  EXPECT_TRUE(Feed(two));
  EXPECT_EQ(proc.calls.load(), 1u);
  EXPECT_EQ(proc.lastInHash.load(), PayloadHash(Spec(2)));
  EXPECT_EQ(capture.count("tapout0 ioProcess RX packet_num jump 0 -> 2"), 1u);
}

TEST_F(BufferRxStepTest, ExcessBelowEightBytesIsNotReported) {
  BufferPacketSpec odd = Spec(1);
  odd.payloadSize = 1924;  // 1988-byte packet, read as 1992 bytes
  std::vector<uint8_t> packet = BufferMakePacket(odd);
  packet.resize(1992, 0);
  EXPECT_TRUE(Feed(packet));
  EXPECT_EQ(capture.count("excess"), 0u);
  EXPECT_EQ(proc.lastInSize.load(), 1924u);
}

TEST_F(BufferRxStepTest, LargestPayloadIsAcceptedOneMoreIsRefused) {
  BufferPacketSpec max = Spec(1);
  max.payloadSize = 65472;
  const std::vector<uint8_t> packet = BufferMakePacket(max);
  EXPECT_TRUE(Feed(packet));
  EXPECT_EQ(proc.lastInSize.load(), 65472u);
  EXPECT_EQ(proc.lastInHash.load(), PayloadHash(max));

  BufferPacketSpec over = Spec(2);
  over.payloadSize = 65473;
  std::vector<uint8_t> header = BufferMakePacket(over);
  header.resize(64);
  EXPECT_FALSE(Feed(header));
  EXPECT_EQ(capture.count("tapout0: Invalid packet payload size 65473 (max 65472)"), 1u);
  EXPECT_EQ(LumxBufferTestPeer::ReadLimit(tapout, st), 65536u);
  // 0xFFFFFFC0 + 64 would wrap to a tiny expected size.
  lumx::PutLe32(header.data() + kPktPayloadSizeOffset, 0xFFFFFFC0u);
  EXPECT_FALSE(Feed(header));
  EXPECT_EQ(capture.count("tapout0: Invalid packet payload size 4294967232 (max 65472)"), 1u);
  EXPECT_EQ(proc.calls.load(), 1u);
}

TEST_F(BufferRxStepTest, EveryTwoHundredthPacketIsLogged) {
  for (uint32_t num = 1; num <= 401; ++num) ASSERT_TRUE(Feed(BufferMakePacket(Spec(num))));
  std::vector<std::string> counted;
  for (const std::string& m : capture.messages("lumx")) {
    if (m.find("RX packet_num:") != std::string::npos) counted.push_back(m);
  }
  EXPECT_EQ(counted, (std::vector<std::string>{"tapout0: RX packet_num:1 payload_sz:1920",
                                               "tapout0: RX packet_num:201 payload_sz:1920",
                                               "tapout0: RX packet_num:401 payload_sz:1920"}));
  EXPECT_EQ(tapout.rxPacketCount(), 401u);
}

TEST_F(BufferRxStepTest, FormatChangesAreDescribedAndStored) {
  ASSERT_TRUE(Feed(BufferMakePacket(Spec(1))));
  BufferPacketSpec b = Spec(2);
  b.sampleRate = 44100;
  b.channels = 1;
  b.bytesPerSample = 4;
  ASSERT_TRUE(Feed(BufferMakePacket(b)));
  BufferPacketSpec c = Spec(3);
  c.sampleRate = 16000;
  c.channels = 0;
  c.payloadSize = 640;
  ASSERT_TRUE(Feed(BufferMakePacket(c)));
  BufferPacketSpec d = Spec(4);
  d.sampleRate = 4294967295u;
  d.channels = 255;
  d.bytesPerSample = 255;
  d.payloadSize = 640;
  ASSERT_TRUE(Feed(BufferMakePacket(d)));

  std::vector<std::string> changes;
  for (const std::string& m : capture.messages("lumx")) {
    if (m.find("format change") != std::string::npos || m.find("payload sz") != std::string::npos) {
      changes.push_back(m);
    }
  }
  EXPECT_EQ(changes, (std::vector<std::string>{
                         "tapout0: RX process payload sz change 0 --> 1920",
                         kFirstFormatLine,
                         "tapout0: RX format change 48kHz 2ch 2Bps, block len 480 --> 44.1kHz 1ch 4Bps, block len 480",
                         "tapout0: RX process payload sz change 1920 --> 640",
                         "tapout0: RX format change 44.1kHz 1ch 4Bps, block len 480 --> 16kHz 0ch 2Bps, block len 0",
                         // Descriptions are cut at 31 characters.
                         "tapout0: RX format change 16kHz 0ch 2Bps, block len 0 --> 4.29497e+06kHz 255ch 255Bps, bl",
                     }));
  EXPECT_EQ(tapout.formatSampleRate(), 4294967295u);
  EXPECT_EQ(tapout.formatChannels(), 255u);
  EXPECT_EQ(tapout.formatBytesPerSample(), 255u);
  EXPECT_EQ(tapout.formatPayloadSize(), 640u);
}

TEST_F(BufferRxStepTest, PacketNumberWrapsWithoutAJump) {
  ASSERT_TRUE(Feed(BufferMakePacket(Spec(0xFFFFFFFFu))));
  ASSERT_TRUE(Feed(BufferMakePacket(Spec(0))));
  EXPECT_EQ(capture.count("jump"), 1u);  // only 0 -> 4294967295
  EXPECT_EQ(capture.count("tapout0 ioProcess RX packet_num jump 0 -> 4294967295"), 1u);
}

// ---------------------------------------------------------------------------
// writePacketToLum status codes.

class BufferWriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture.setEcho(false);
    dir.MakeFile("zch-lumx_inject0");
  }
  void Prepare(uint32_t payloadSize) {
    uint8_t* block = LumxBufferTestPeer::IoBlock(inject);
    lumx::PutLe32(block + kPktMagicOffset, kLumPacketMagic);
    lumx::PutLe32(block + kPktPayloadSizeOffset, payloadSize);
  }
  off_t FileSize() {
    struct stat s = {};
    stat(dir.Path("zch-lumx_inject0").c_str(), &s);
    return s.st_size;
  }

  lumx_host::LogCapture capture;
  BufferDevDir dir;
  LumxBuffer inject{"inject0", dir.Path("zch-lumx_inject0"), 0, nullptr, false};
};

TEST_F(BufferWriteTest, StatusCodesInCheckOrder) {
  EXPECT_EQ(inject.writePacketToLum(), -1);
  ASSERT_EQ(inject.Enable(true), 0);
  Prepare(1920);
  EXPECT_EQ(inject.writePacketToLum(), 0);
  EXPECT_EQ(FileSize(), 1984);
  Prepare(65472);
  EXPECT_EQ(inject.writePacketToLum(), 0);
  EXPECT_EQ(FileSize(), 1984 + 65536);
  Prepare(65473);
  EXPECT_EQ(inject.writePacketToLum(), -5);
  EXPECT_EQ(FileSize(), 1984 + 65536);
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
