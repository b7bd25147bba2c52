// lumx-dspsim: tap-out streams (packet format, numbering, layout, sources),
// inject checking (reassembly, gaps, errors, latency, recording) and the
// building blocks behind them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tests/tools/dspsim_test_util.h"
#include "tools/lumx-dspsim/audio_layout.h"
#include "tools/lumx-dspsim/data_nodes.h"
#include "tools/lumx-dspsim/latency_histogram.h"
#include "tools/lumx-dspsim/packet_parser.h"

namespace lumx::dspsim {
namespace {

std::vector<uint8_t> PacketBytes(const PacketHeader& h, const std::vector<uint8_t>& payload) {
  std::vector<uint8_t> out(kPacketHeaderSize + payload.size());
  EncodePacketHeader(h, out.data());
  std::copy(payload.begin(), payload.end(), out.begin() + kPacketHeaderSize);
  return out;
}

bool WriteAll(int fd, const std::vector<uint8_t>& bytes) {
  return write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

using DspsimStream = SimTest;

TEST_F(DspsimStream, SourcePacketsAreWellFormedAndLoopBackWithLatency) {
  // A 700-sample ramp played in a loop on imic.0.
  std::string wav = dir_.File("ramp.wav");
  SF_INFO info{};
  info.samplerate = 48000;
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* f = sf_open(wav.c_str(), SFM_WRITE, &info);
  ASSERT_NE(f, nullptr);
  std::vector<short> ramp(700);
  for (int i = 0; i < 700; ++i) ramp[i] = static_cast<short>(i * 3 - 1000);
  ASSERT_EQ(sf_writef_short(f, ramp.data(), 700), 700);
  sf_close(f);
  Options o;
  o.sources["imic.0"] = wav;
  StartSim("", o);

  TapOutReader reader;
  ASSERT_TRUE(reader.Open(dir_.File("zch-lumx_tapout20")));
  lumx::unique_fd inject(open(dir_.File("zch-lumx_inject20").c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(inject.ok());
  int64_t before = MonotonicNowNs();
  BindAndEnable(2, "imic", 0, 20, 20);
  size_t sample = 0;
  for (uint32_t n = 1; n <= 20; ++n) {
    ReadPacket p;
    ASSERT_TRUE(reader.Next(kWaitMs, &p)) << "packet " << n;
    const std::vector<uint8_t>& h = p.rawHeader;
    ASSERT_EQ(h.size(), kPacketHeaderSize);
    EXPECT_EQ(std::string(h.begin(), h.begin() + 4), "xmuL");
    EXPECT_EQ(LoadU32(&h[4]), 1u);
    EXPECT_EQ(LoadU32(&h[16]), n) << "consecutive from 1";
    EXPECT_EQ(LoadU32(&h[20]), 960u);
    EXPECT_EQ(LoadU32(&h[24]), 48000u);
    EXPECT_EQ(h[28], 1);
    EXPECT_EQ(h[29], 2);
    for (size_t i = 30; i < 64; ++i) EXPECT_EQ(h[i], 0) << "byte " << i;
    int64_t stamp = static_cast<int64_t>(LoadU64(&h[8]));
    EXPECT_GE(stamp, before) << "opaque word is the send time";
    EXPECT_LE(stamp, MonotonicNowNs());
    ASSERT_EQ(p.payload.size(), 960u);
    for (size_t i = 0; i < 480; ++i, ++sample) {
      ASSERT_EQ(static_cast<int16_t>(LoadU16(&p.payload[2 * i])), ramp[sample % 700]) << "sample " << sample;
    }
    ASSERT_TRUE(WriteAll(inject.get(), PacketBytes(p.header, p.payload)));
  }
  EXPECT_EQ(reader.resyncs, 0u);
  // The counter follows the write that delivered the packet.
  ASSERT_TRUE(WaitFor([&] { return Stats().tapOuts[20].packetsSent >= 20; }));
  ASSERT_TRUE(WaitFor([&] { return Stats().injects[20].packetsReceived == 20; }));
  SimStats s = Stats();
  EXPECT_EQ(s.tapOuts[20].tap, "2:imic.0");
  EXPECT_EQ(s.tapOuts[21].packetsSent, 0u) << "nothing bound to 21";
  const InjectStats& in = s.injects[20];
  EXPECT_EQ(in.gaps, 0u);
  EXPECT_EQ(in.errors(), 0u);
  EXPECT_EQ(in.unstamped, 0u);
  EXPECT_EQ(in.bytesReceived, 20u * (64 + 960));
  EXPECT_EQ(in.latencyUs.count(), 20u);
  EXPECT_GE(in.latencyUs.max(), in.latencyUs.Quantile(0.99));
  EXPECT_GE(in.latencyUs.Quantile(0.99), in.latencyUs.Quantile(0.5));
  EXPECT_EQ(in.windowLatencyUs.count(), 20u) << "before the first document the window is the run";
  sim_->sim().RequestStats();
  ASSERT_TRUE(WaitFor([&] { return Stats().injects[20].windowLatencyUs.count() == 0; }));
  EXPECT_EQ(Stats().injects[20].latencyUs.count(), 20u) << "a document keeps the run's figures";
}

TEST_F(DspsimStream, TwoChannelPayloadHoldsChannelBlocksPerFrame) {
  StartSim();
  TapOutReader reader;
  ASSERT_TRUE(reader.Open(dir_.File("zch-lumx_tapout21")));
  BindAndEnable(2, "sspk", 0, 21, 21);
  // sspk.0 is the table's second tap: 500 Hz on channel 0, 1000 Hz on 1.
  int crossings[2] = {0, 0};
  for (int n = 0; n < 10; ++n) {
    ReadPacket p;
    ASSERT_TRUE(reader.Next(kWaitMs, &p));
    ASSERT_EQ(p.header.channels, 2);
    ASSERT_EQ(p.payload.size(), 480u * 2 * 2);
    for (int c = 0; c < 2; ++c) {
      const uint8_t* block = p.payload.data() + c * 480 * 2;
      for (int i = 1; i < 480; ++i) {
        int16_t a = static_cast<int16_t>(LoadU16(block + 2 * (i - 1)));
        int16_t b = static_cast<int16_t>(LoadU16(block + 2 * i));
        crossings[c] += (a < 0) != (b < 0);
      }
    }
  }
  // 100 ms: 50 cycles (100 crossings) and 100 cycles (200 crossings).
  EXPECT_NEAR(crossings[0], 100, 12);
  EXPECT_NEAR(crossings[1], 200, 12);
}

TEST_F(DspsimStream, BlockLengthChangeResizesPacketsWithoutAGap) {
  StartSim();
  TapOutReader reader;
  ASSERT_TRUE(reader.Open(dir_.File("zch-lumx_tapout40")));
  BindAndEnable(4, "vpdl", 0, 40, 40);
  ReadPacket p;
  ASSERT_TRUE(reader.Next(kWaitMs, &p));
  EXPECT_EQ(p.header.payloadSize, 960u);
  uint32_t last = p.header.packetNum;
  Command(BlockLenReq(4, "vpdl", 0, 4800));
  bool resized = false;
  for (int n = 0; n < 200 && !resized; ++n) {
    ASSERT_TRUE(reader.Next(kWaitMs, &p));
    EXPECT_EQ(p.header.packetNum, last + 1);
    last = p.header.packetNum;
    resized = p.header.payloadSize == 9600u;
  }
  EXPECT_TRUE(resized);
  ASSERT_TRUE(reader.Next(kWaitMs, &p));
  EXPECT_EQ(p.header.payloadSize, 9600u);
  EXPECT_EQ(p.header.packetNum, last + 1);
}

TEST_F(DspsimStream, PhasedTapsKeepTheirOffsetWhenStartedTogether) {
  // 10 ms blocks due 0 and 5 ms after each whole 10 ms: packets of one number
  // leave 5 ms apart (either way round, mod 10 ms). Counting blocks from the
  // streams' common start would send them together.
  StartSim("2 imic.0 48000 480 1 16 enabled=1 tapout=20 phase=0\n"
           "2 imic.1 48000 480 1 16 enabled=1 tapout=21 phase=5000\n");
  TapOutReader readers[2];
  ASSERT_TRUE(readers[0].Open(dir_.File("zch-lumx_tapout20")));
  ASSERT_TRUE(readers[1].Open(dir_.File("zch-lumx_tapout21")));
  std::map<uint32_t, int64_t> sent[2];
  for (int i = 0; i < 2; ++i) {
    for (const ReadPacket& p : ReadSome(&readers[i], 30)) sent[i][p.header.packetNum] = static_cast<int64_t>(p.header.opaque);
  }
  std::vector<int64_t> apart;
  for (const auto& [num, stamp] : sent[0]) {
    auto other = sent[1].find(num);
    if (other != sent[1].end()) apart.push_back(((other->second - stamp) % 10000000 + 10000000) % 10000000);
  }
  ASSERT_GE(apart.size(), 15u);
  std::nth_element(apart.begin(), apart.begin() + apart.size() / 2, apart.end());
  EXPECT_NEAR(apart[apart.size() / 2], 5000000, 2500000);
}

TEST_F(DspsimStream, UnreadNodeDropsPacketsQuietlyUntilOpened) {
  StartSim("2 imic.0 48000 480 1 16 enabled=1 tapout=20 inject=20\n");
  ASSERT_TRUE(WaitFor([&] { return Stats().tapOuts[20].droppedNoReader >= 3; }));
  EXPECT_EQ(Stats().tapOuts[20].packetsSent, 0u);
  TapOutReader reader;
  ASSERT_TRUE(reader.Open(dir_.File("zch-lumx_tapout20")));
  ReadPacket p;
  ASSERT_TRUE(reader.Next(kWaitMs, &p));
  EXPECT_GT(p.header.packetNum, 3u) << "numbers kept counting while nobody read";
  ReadPacket q;
  ASSERT_TRUE(reader.Next(kWaitMs, &q));
  EXPECT_EQ(q.header.packetNum, p.header.packetNum + 1);
  EXPECT_EQ(reader.resyncs, 0u) << "no stale bytes from before the open";
}

TEST_F(DspsimStream, InjectCountsGapsAndEveryKindOfBadInput) {
  StartSim("2 imic.0 48000 480 1 16 inject=20\n");
  lumx::unique_fd inject(open(dir_.File("zch-lumx_inject20").c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(inject.ok());
  PacketHeader h;
  h.sampleRate = 48000;
  h.channels = 1;
  h.bytesPerSample = 2;
  h.payloadSize = 960;
  h.opaque = static_cast<uint64_t>(MonotonicNowNs());
  std::vector<uint8_t> stream;
  auto add = [&](const PacketHeader& x, size_t payload = 960) {
    std::vector<uint8_t> b = PacketBytes(x, std::vector<uint8_t>(payload, 0));
    stream.insert(stream.end(), b.begin(), b.end());
  };
  auto numbered = [&](uint32_t n) {
    PacketHeader x = h;
    x.packetNum = n;
    return x;
  };
  add(numbered(1));
  add(numbered(2));
  add(numbered(5));  // gap: 3 and 4 lost
  stream.insert(stream.end(), 22, 0x11);  // junk ending in a partial magic
  stream.insert(stream.end(), {'x', 'm'});
  PacketHeader x = numbered(5);
  x.version = 2;
  add(x);
  x = numbered(5);
  x.payloadSize = 65473;
  add(x, 0);
  x = numbered(6);
  x.sampleRate = 16000;  // not the bound tap's format
  add(x);
  x = numbered(7);
  x.opaque = 12345;  // not a send time
  add(x);
  // Dribble it in uneven pieces, as a writer may.
  for (size_t off = 0; off < stream.size();) {
    size_t n = std::min<size_t>(stream.size() - off, 1 + (off % 700));
    ASSERT_EQ(write(inject.get(), stream.data() + off, n), static_cast<ssize_t>(n));
    off += n;
  }
  ASSERT_TRUE(WaitFor([&] { return Stats().injects[20].packetsReceived == 5; }));
  ASSERT_TRUE(WaitFor([&] { return Stats().injects[20].bytesReceived == stream.size(); }));
  InjectStats s = Stats().injects[20];
  EXPECT_EQ(s.gaps, 1u);
  EXPECT_EQ(s.lostPackets, 2u);
  EXPECT_EQ(s.badVersion, 1u);
  EXPECT_EQ(s.oversize, 1u);
  EXPECT_EQ(s.formatMismatch, 1u);
  EXPECT_EQ(s.unstamped, 1u);
  EXPECT_GE(s.resyncs, 1u);
  // The junk, the bad version's packet after its magic, the oversize header
  // after its magic: exactly what lies before the next magic.
  EXPECT_EQ(s.skippedBytes, 24u + (64 + 960 - 4) + (64 - 4));
  EXPECT_EQ(s.latencyUs.count(), 4u);
  EXPECT_EQ(s.errors(), s.resyncs + 3);
}

TEST_F(DspsimStream, RecordWritesInjectedAudioInterleaved) {
  Options o;
  std::string wav = dir_.File("rec21.wav");
  o.records[21] = wav;
  StartSim("2 sspk.0 48000 480 2 16 inject=21\n", o);
  lumx::unique_fd inject(open(dir_.File("zch-lumx_inject21").c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(inject.ok());
  PacketHeader h;
  h.sampleRate = 48000;
  h.channels = 2;
  h.bytesPerSample = 2;
  h.payloadSize = 1920;
  for (uint32_t n = 1; n <= 3; ++n) {
    std::vector<uint8_t> payload(1920);
    for (int c = 0; c < 2; ++c) {
      for (int i = 0; i < 480; ++i) {
        int16_t v = static_cast<int16_t>((c == 0 ? 1 : -1) * (static_cast<int>(n) * 1000 + i));
        StoreU16(&payload[(c * 480 + i) * 2], static_cast<uint16_t>(v));
      }
    }
    h.packetNum = n;
    ASSERT_TRUE(WriteAll(inject.get(), PacketBytes(h, payload)));
  }
  ASSERT_TRUE(WaitFor([&] { return Stats().injects[21].recordedFrames == 1440; }));
  sim_->Stop();  // closes the file
  SF_INFO info{};
  SNDFILE* f = sf_open(wav.c_str(), SFM_READ, &info);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(info.samplerate, 48000);
  EXPECT_EQ(info.channels, 2);
  EXPECT_EQ(info.frames, 1440);
  EXPECT_EQ(info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16);
  std::vector<short> pcm(1440 * 2);
  EXPECT_EQ(sf_readf_short(f, pcm.data(), 1440), 1440);
  sf_close(f);
  for (auto [at, value] : {std::pair{0, 1000}, {1, -1000}, {2 * 479, 1479}, {2 * 479 + 1, -1479}, {2 * 480, 2000},
                           {2 * 1439 + 1, -3479}}) {
    EXPECT_EQ(pcm[at], value) << "sample " << at;
  }
}

TEST_F(DspsimStream, StartFailsCleanlyOnBadSources) {
  for (auto [tap, file] : {std::pair{"nope.0", "x.wav"}, {"imic.0", "missing.wav"}}) {
    Options o;
    o.devRoot = dir_.path();
    o.sources[tap] = dir_.File(file);
    Simulator sim(o);
    std::string err;
    EXPECT_FALSE(sim.Start(&err));
    EXPECT_NE(err.find(tap == std::string("nope.0") ? tap : file), std::string::npos) << err;
  }
  EXPECT_NE(access(dir_.File("zch-lumx_control").c_str(), F_OK), 0);
}

// ---- building blocks -------------------------------------------------------------

TEST(DspsimLayout, PayloadFramesHoldChannelAfterChannel) {
  // 600 frames of 2 channels: a 480-sample frame, then a 120-sample one.
  std::vector<int32_t> in(600 * 2);
  for (int i = 0; i < 600; ++i) {
    in[2 * i] = (i + 1) * 65536;
    in[2 * i + 1] = -(i + 1) * 65536;
  }
  std::vector<uint8_t> payload(600 * 2 * 2);
  PackPayload(in.data(), 600, 2, 2, 2, payload.data());
  for (auto [sample, value] : {std::pair{0, 1}, {479, 480}, {480, -1}, {959, -480}, {960, 481}, {1079, 600},
                               {1080, -481}}) {
    EXPECT_EQ(static_cast<int16_t>(LoadU16(&payload[2 * sample])), value) << "sample " << sample;
  }
  std::vector<int32_t> back(600 * 2);
  UnpackPayload(payload.data(), 600, 2, 2, back.data());
  EXPECT_EQ(back, in);

  // 24-bit little-endian and mono-to-stereo mapping.
  int32_t mono[1] = {0x12345600};
  uint8_t p24[6];
  PackPayload(mono, 1, 1, 2, 3, p24);
  EXPECT_EQ(std::vector<uint8_t>(p24, p24 + 4), (std::vector<uint8_t>{0x56, 0x34, 0x12, 0x56}));
  EXPECT_EQ(LoadSample(p24, 3), 0x12345600);
}

class CollectingSink : public PacketSink {
 public:
  void OnPacket(const PacketHeader& h, const uint8_t*) override { nums.push_back(h.packetNum); }
  void OnParseError(ParseError e, size_t bytes) override {
    errors.push_back(e);
    skipped += e == ParseError::kSkippedBytes ? bytes : 0;
  }
  std::vector<uint32_t> nums;
  std::vector<ParseError> errors;
  size_t skipped = 0;
};

TEST(DspsimParser, ReassemblesAcrossAnySplit) {
  std::vector<uint8_t> bytes;
  for (uint32_t n = 1; n <= 3; ++n) {
    PacketHeader h;
    h.packetNum = n;
    h.payloadSize = 100 * n;
    std::vector<uint8_t> b = PacketBytes(h, std::vector<uint8_t>(100 * n, 0x4C));
    bytes.insert(bytes.end(), b.begin(), b.end());
  }
  for (size_t chunk : {size_t{1}, size_t{3}, size_t{63}, size_t{64}, size_t{65}, bytes.size()}) {
    PacketParser parser;
    CollectingSink sink;
    for (size_t off = 0; off < bytes.size(); off += chunk) {
      parser.Feed(bytes.data() + off, std::min(chunk, bytes.size() - off), &sink);
    }
    EXPECT_EQ(sink.nums, (std::vector<uint32_t>{1, 2, 3})) << "chunk " << chunk;
    EXPECT_TRUE(sink.errors.empty()) << "chunk " << chunk;
    EXPECT_EQ(parser.buffered(), 0u);
  }
}

TEST(DspsimParser, SkipsJunkExactlyAndKeepsOnlyAPossibleMagicStart) {
  PacketParser parser;
  CollectingSink sink;
  std::vector<uint8_t> junk(12, 0xA5);
  parser.Feed(junk.data(), junk.size(), &sink);
  EXPECT_EQ(sink.skipped, 12u);
  EXPECT_EQ(parser.buffered(), 0u);
  junk = {1, 2, 3, 4, 'x', 'm', 'u'};
  parser.Feed(junk.data(), junk.size(), &sink);
  EXPECT_EQ(sink.skipped, 16u);
  EXPECT_EQ(parser.buffered(), 3u) << "\"xmu\" may be the start of a packet";
  PacketHeader h;
  h.packetNum = 4;
  std::vector<uint8_t> b = PacketBytes(h, {});
  parser.Feed(b.data() + 3, b.size() - 3, &sink);
  EXPECT_EQ(sink.nums, std::vector<uint32_t>{4});
  EXPECT_EQ(sink.skipped, 16u);
}

TEST(DspsimLatency, ExactBelow128AndWithinTwoPercentAbove) {
  LatencyHistogram h;
  EXPECT_EQ(h.Quantile(0.5), 0u);
  for (uint64_t v = 1; v <= 100; ++v) h.Add(v);
  EXPECT_EQ(h.Quantile(0.5), 50u);
  EXPECT_EQ(h.Quantile(0.99), 99u);
  EXPECT_EQ(h.max(), 100u);
  EXPECT_EQ(h.min(), 1u);

  LatencyHistogram big;
  for (uint64_t v = 1; v <= 100000; ++v) big.Add(v * 10);
  EXPECT_NEAR(static_cast<double>(big.Quantile(0.5)), 500000.0, 500000.0 * 0.02);
  EXPECT_NEAR(static_cast<double>(big.Quantile(0.99)), 990000.0, 990000.0 * 0.02);
  EXPECT_EQ(big.max(), 1000000u);
  EXPECT_LE(big.Quantile(0.999999), big.max());
  big.Add(UINT64_MAX);
  EXPECT_EQ(big.max(), UINT64_MAX);
  EXPECT_EQ(LatencyHistogram::BucketOf(UINT64_MAX), LatencyHistogram::kBuckets - 1);
  for (uint64_t v :
       {uint64_t{127}, uint64_t{128}, uint64_t{129}, uint64_t{1000}, uint64_t{1} << 40}) {
    size_t b = LatencyHistogram::BucketOf(v);
    EXPECT_LE(LatencyHistogram::BucketLower(b), v);
    EXPECT_GE(LatencyHistogram::BucketUpper(b), v);
    EXPECT_LE(static_cast<double>(v - LatencyHistogram::BucketLower(b)), v * 0.016);
    if (b > 0) {
      EXPECT_LT(LatencyHistogram::BucketUpper(b - 1), v);
    }
  }
}

TEST(DspsimNodes, PiecesGoOutOnlyWhenDueAndLeftoversAreDrained) {
  TempDir dir;
  TapOutNode node(5, dir.File("zch-lumx_tapout5"));
  std::string err;
  ASSERT_TRUE(node.Create(&err)) << err;
  uint64_t bytes = 0;
  // Nobody reads: the packet is dropped, nothing blocks.
  uint8_t* b = node.Begin(100);
  std::memset(b, 7, 100);
  node.AddPiece(100, 0);
  EXPECT_EQ(node.Write(1000, &bytes), TapOutNode::Flush::kNoReader);
  EXPECT_FALSE(node.busy());

  lumx::unique_fd r(open(node.path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(r.ok());
  b = node.Begin(96);
  for (int i = 0; i < 96; ++i) b[i] = static_cast<uint8_t>(i);
  node.AddPiece(32, 1000);
  node.AddPiece(96, 2000);
  EXPECT_EQ(node.Write(1000, &bytes), TapOutNode::Flush::kWaitTime);
  EXPECT_EQ(bytes, 32u);
  EXPECT_EQ(node.nextPieceTime(), 2000);
  uint8_t got[200];
  EXPECT_EQ(read(r.get(), got, sizeof got), 32);
  EXPECT_EQ(node.Write(1999, &bytes), TapOutNode::Flush::kWaitTime);
  EXPECT_EQ(node.Write(2000, &bytes), TapOutNode::Flush::kDone);
  EXPECT_EQ(bytes, 96u);
  EXPECT_EQ(read(r.get(), got, sizeof got), 64);
  EXPECT_EQ(got[0], 32);

  // When the next packet is due, waiting pieces are rushed out, one write each.
  b = node.Begin(64);
  node.AddPiece(32, 5000);
  node.AddPiece(64, 6000);
  EXPECT_EQ(node.Write(2500, &bytes, true), TapOutNode::Flush::kDone);
  EXPECT_EQ(read(r.get(), got, sizeof got), 64);

  // Unread bytes when the reader leaves are not handed to the next reader.
  b = node.Begin(40);
  node.AddPiece(40, 0);
  EXPECT_EQ(node.Write(3000, &bytes), TapOutNode::Flush::kDone);
  r.reset();
  b = node.Begin(40);
  node.AddPiece(40, 0);
  EXPECT_EQ(node.Write(4000, &bytes), TapOutNode::Flush::kNoReader);
  lumx::unique_fd again(open(node.path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_EQ(read(again.get(), got, sizeof got), -1);
  EXPECT_EQ(errno, EAGAIN);

  std::vector<lumx::unique_fd> orphans;
  node.Remove(&orphans);
  EXPECT_EQ(orphans.size(), 1u);
  EXPECT_NE(access(node.path().c_str(), F_OK), 0);
}

}  // namespace
}  // namespace lumx::dspsim
