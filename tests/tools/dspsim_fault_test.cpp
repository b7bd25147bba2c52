// lumx-dspsim: every fault flag, of the DSP and of a misbehaving peer on the
// data nodes, has its observable effect on the wire and is counted in the
// statistics.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "support/buffer_dev_dir.h"
#include "tests/tools/dspsim_test_util.h"
#include "tools/lumx-dspsim/stats.h"

namespace lumx::dspsim {
namespace {

const char kStreamingTable[] =
    "2 imic.0 48000 480 1 16 enabled=1 tapout=20 inject=20\n"
    "2 sspk.0 48000 480 2 16 enabled=1 tapout=21 inject=21\n";

using DspsimFault = SimTest;

// ---- control channel faults ----------------------------------------------------

TEST_F(DspsimFault, DelayedReplyArrivesAfterTheDelay) {
  Options o;
  o.faults.replyDelayMs = 700;
  StartSim("", o);
  ASSERT_TRUE(control_.Send(MakeTapRequest(kOpTapInfo, 2, "imic", 0, 1)));
  std::vector<uint8_t> r;
  EXPECT_FALSE(control_.Receive(28, 100, &r)) << "no reply before 700 ms";
  ASSERT_TRUE(control_.Receive(28, kWaitMs, &r));
  EXPECT_EQ(LoadI16(&r[6]), 0);
  EXPECT_EQ(r[1], 1);
  EXPECT_EQ(Stats().faults.replyDelayed, 1u);
}

TEST_F(DspsimFault, DroppedReplyNeverComes) {
  Options o;
  o.faults.dropReplyRate = 1;
  StartSim("", o);
  ASSERT_TRUE(control_.Send(MakeTapRequest(kOpTapInfo, 2, "imic", 0)));
  ASSERT_TRUE(WaitFor([&] { return Stats().faults.replyDropped == 1; }));
  std::vector<uint8_t> r;
  EXPECT_FALSE(control_.Receive(28, 200, &r));
  SimStats s = Stats();
  EXPECT_EQ(s.commands[kOpTapInfo].count, 1u);
  EXPECT_EQ(s.commands[kOpTapInfo].dropped, 1u);
  EXPECT_TRUE(s.commands[kOpTapInfo].statuses.empty());
}

TEST_F(DspsimFault, StrayReplyWithAnotherOpcodeComesFirst) {
  Options o;
  o.faults.strayReplyRate = 1;
  StartSim("", o);
  for (const std::vector<uint8_t>& req : {MakeTapRequest(kOpTapInfo, 2, "imic", 0, 9), ListReq(2, 0, 9)}) {
    ASSERT_TRUE(control_.Send(req));
    std::vector<uint8_t> first, second;
    ASSERT_TRUE(control_.Receive(req.size(), kWaitMs, &first));
    ASSERT_TRUE(control_.Receive(req.size(), kWaitMs, &second));
    EXPECT_NE(LoadU16(&first[4]), LoadU16(&req[4]));
    EXPECT_EQ(LoadU16(&second[4]), LoadU16(&req[4]));
    EXPECT_EQ(second[1], 9);
    EXPECT_EQ(second[8], req[8]);
  }
  EXPECT_EQ(Stats().faults.strayReply, 2u);
}

TEST_F(DspsimFault, ForcedErrorStatusLeavesTheDspUnchanged) {
  Options o;
  o.faults.errorStatus[kOpTapEnable] = -5;
  StartSim("", o);
  std::vector<uint8_t> en = EnableReq(2, "imic", 0, 1);
  ASSERT_TRUE(control_.Exchange(&en, kWaitMs));
  EXPECT_EQ(LoadI16(&en[6]), -5);
  std::vector<uint8_t> info = MakeTapRequest(kOpTapInfo, 2, "imic", 0);
  ASSERT_TRUE(control_.Exchange(&info, kWaitMs));
  EXPECT_EQ(LoadI16(&info[6]), 0) << "other opcodes are answered normally";
  EXPECT_EQ(info[14], 0) << "the refused enable was not carried out";
  SimStats s = Stats();
  EXPECT_EQ(s.faults.errorStatus, 1u);
  EXPECT_EQ(s.commands[kOpTapEnable].statuses[-5], 1u);
}

TEST_F(DspsimFault, RestartRemovesAndRecreatesNodesAndResetsTheTable) {
  Options o;
  o.faults.restartDownMs = 200;
  StartSim("", o);
  Command(EnableReq(2, "imic", 0, 1));
  sim_->sim().RequestRestart();
  ASSERT_TRUE(WaitFor([&] { return Stats().faults.restarts == 1; }));
  // The pty went away under the open client: it sees a hang-up.
  struct pollfd p = {control_.fd(), POLLIN, 0};
  ASSERT_EQ(poll(&p, 1, kWaitMs), 1);
  EXPECT_NE(p.revents & (POLLHUP | POLLERR), 0);
  char byte;
  EXPECT_LE(read(control_.fd(), &byte, 1), 0);
  ASSERT_TRUE(WaitFor([&] { return Exists("zch-lumx_control") && Exists("lum"); }));
  EXPECT_TRUE(Exists("zch-lumx_tapout20"));
  EXPECT_TRUE(Exists("zch-lumx_inject41"));
  ControlClient fresh;
  ASSERT_TRUE(fresh.Open(dir_.File("zch-lumx_control")));
  std::vector<uint8_t> info = MakeTapRequest(kOpTapInfo, 2, "imic", 0);
  ASSERT_TRUE(fresh.Exchange(&info, kWaitMs));
  EXPECT_EQ(info[14], 0) << "a restarted DSP starts from its initial table";
  EXPECT_EQ(Stats().faults.restarts, 1u);
}

TEST_F(DspsimFault, RestartCanKeepStateAndRepeatsPeriodically) {
  Options o;
  o.faults.restartEverySec = 0.3;
  o.faults.restartDownMs = 50;
  o.faults.restartKeepState = true;
  StartSim("", o);
  BindAndEnable(2, "imic", 0, 20, 20);
  ASSERT_TRUE(WaitFor([&] { return Stats().faults.restarts >= 2; }));
  // The tap stays enabled and bound, so between restarts the stream resumes
  // on the recreated node; a restart may cut a try short, so try again.
  EXPECT_TRUE(WaitFor([&] {
    TapOutReader reader;
    ReadPacket p;
    return reader.Open(dir_.File("zch-lumx_tapout20")) && reader.Next(200, &p) && p.header.payloadSize == 960u;
  }));
}

// ---- data faults ------------------------------------------------------------------

TEST_F(DspsimFault, SplitPacketsStillReassemble) {
  Options o;
  o.faults.splitRate = 1;
  StartSim(kStreamingTable, o);
  TapOutReader r;
  ASSERT_TRUE(r.Open(dir_.File("zch-lumx_tapout21")));
  std::vector<ReadPacket> ps = ReadSome(&r, 8);
  ASSERT_EQ(ps.size(), 8u);
  for (size_t i = 1; i < ps.size(); ++i) {
    EXPECT_EQ(ps[i].header.packetNum, ps[i - 1].header.packetNum + 1);
    EXPECT_EQ(ps[i].payload.size(), 1920u);
  }
  EXPECT_EQ(r.resyncs, 0u);
  for (size_t n : r.readSizes) EXPECT_EQ(n % 8, 0u) << "pieces keep 8-byte alignment";
  EXPECT_GE(Stats().faults.split, 8u);
}

TEST_F(DspsimFault, StaleBytesAndMisalignedChunksPrecedePackets) {
  for (bool stale : {true, false}) {
    Options o;
    (stale ? o.faults.staleRate : o.faults.misalignRate) = 1;
    sim_.reset();
    StartSim(kStreamingTable, o);
    TapOutReader r;
    ASSERT_TRUE(r.Open(dir_.File("zch-lumx_tapout20")));
    ASSERT_EQ(ReadSome(&r, 5).size(), 5u);
    // Stale runs are 64 bytes and keep 8-byte alignment; misaligned chunks are 12.
    EXPECT_GE(r.skippedBytes, 5u * (stale ? 64 : 12));
    EXPECT_EQ(r.skippedBytes % (stale ? 8 : 12), 0u);
    bool odd = false;
    for (size_t n : r.readSizes) odd = odd || n % 8 != 0;
    if (!stale) {
      EXPECT_TRUE(odd) << "some read is not a multiple of 8";
    }
    SimStats s = Stats();
    EXPECT_GE(stale ? s.faults.stale : s.faults.misaligned, 5u);
    if (stale) {
      EXPECT_GE(r.resyncs, 5u);
    }
  }
}

TEST_F(DspsimFault, BadVersionAndOversizeHeadersOnlyWhereAsked) {
  for (bool badVersion : {true, false}) {
    Options o;
    (badVersion ? o.faults.badVersionRate : o.faults.oversizeRate) = 1;
    o.faults.tapOutFilter = {21};
    sim_.reset();
    StartSim(kStreamingTable, o);
    TapOutReader clean, bad;
    ASSERT_TRUE(clean.Open(dir_.File("zch-lumx_tapout20")));
    ASSERT_TRUE(bad.Open(dir_.File("zch-lumx_tapout21")));
    EXPECT_EQ(ReadSome(&clean, 5).size(), 5u) << "faults only where asked";
    EXPECT_EQ(clean.badVersion + clean.oversize, 0u);
    EXPECT_TRUE(ReadSome(&bad, 1, 300).empty());
    EXPECT_GE(badVersion ? bad.badVersion : bad.oversize, 1u) << "oversize announces 65473 bytes";
    SimStats s = Stats();
    EXPECT_GE(badVersion ? s.faults.badVersion : s.faults.oversize, 1u);
    EXPECT_EQ(s.tapOuts[20].faultsInjected, 0u);
    EXPECT_GE(s.tapOuts[21].faultsInjected, 1u);
  }
}

TEST_F(DspsimFault, PacketNumJumps) {
  Options o;
  o.faults.jumpRate = 1;
  o.faults.jumpBy = 7;
  StartSim("", o);
  TapOutReader r;
  ASSERT_TRUE(r.Open(dir_.File("zch-lumx_tapout20")));
  BindAndEnable(2, "imic", 0, 20, 20);
  std::vector<ReadPacket> ps = ReadSome(&r, 3);
  ASSERT_EQ(ps.size(), 3u);
  EXPECT_EQ(ps[0].header.packetNum, 8u);
  EXPECT_EQ(ps[1].header.packetNum, 16u);
  EXPECT_EQ(ps[2].header.packetNum, 24u);
}

TEST_F(DspsimFault, PauseStopsProductionWithoutGaps) {
  Options o;
  o.faults.pauseEverySec = 0.2;
  o.faults.pauseMs = 100;
  StartSim(kStreamingTable, o);
  TapOutReader r;
  ASSERT_TRUE(r.Open(dir_.File("zch-lumx_tapout20")));
  // 40 packets are 400 ms of audio: at least one pause falls inside.
  std::vector<ReadPacket> ps = ReadSome(&r, 40);
  ASSERT_EQ(ps.size(), 40u);
  for (size_t i = 1; i < ps.size(); ++i) EXPECT_EQ(ps[i].header.packetNum, ps[i - 1].header.packetNum + 1);
  SimStats s = Stats();
  EXPECT_GE(s.faults.pauses, 1u);
  EXPECT_GE(s.faults.pausedPackets, 1u);
}

// ---- peer faults on the data nodes --------------------------------------------

TEST_F(DspsimFault, StalledInjectIsNotReadOthersAre) {
  Options o;
  o.faults.stallInjects = {20};
  StartSim(kStreamingTable, o);
  const auto writer = [&](const char* name) { return open(dir_.File(name).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC); };
  lumx::unique_fd stalled(writer("zch-lumx_inject20"));
  lumx::unique_fd healthy(writer("zch-lumx_inject21"));
  const std::vector<uint8_t> junk(4096, 0x5A);
  size_t written = 0;
  while (write(stalled.get(), junk.data(), junk.size()) == 4096) written += junk.size();
  EXPECT_EQ(errno, EAGAIN) << "the pipe fills up";
  ASSERT_EQ(write(healthy.get(), junk.data(), junk.size()), 4096);
  ASSERT_TRUE(WaitFor([&] { return BufferPipeBytes(healthy.get()) == 0; }));
  EXPECT_EQ(BufferPipeBytes(stalled.get()), static_cast<int>(written));
  EXPECT_EQ(Stats().faults.stalls, 1u);
}

TEST_F(DspsimFault, VanishingWriterGivesEndOfFileThenStreamsAgain) {
  Options o;
  o.faults.writerGoneEverySec = 0.3;
  o.faults.writerGoneMs = 200;
  o.faults.tapOutFilter = {20};
  StartSim(kStreamingTable, o);
  TapOutReader r;
  ASSERT_TRUE(r.Open(dir_.File("zch-lumx_tapout20")));
  std::vector<uint8_t> buf(65536);
  bool eof = false;
  ASSERT_TRUE(WaitFor([&] {
    pollfd p = {r.fd(), POLLIN, 0};
    poll(&p, 1, 50);
    eof = read(r.fd(), buf.data(), buf.size()) == 0;
    return eof;
  }));
  ReadPacket packet;
  ASSERT_TRUE(WaitFor([&] { return r.Next(50, &packet); })) << "the writer comes back";
  SimStats s = Stats();
  EXPECT_GE(s.faults.writerGone, 1u);
  EXPECT_GE(s.faults.writerGonePackets, 1u);
  EXPECT_EQ(s.tapOuts[21].faultsInjected, 0u);
}

TEST_F(DspsimFault, BurstWritesHeldPacketsTogetherWithoutLoss) {
  Options o;
  o.faults.burstEverySec = 0.25;
  o.faults.burstMs = 100;
  o.faults.tapOutFilter = {20};
  StartSim(kStreamingTable, o);
  TapOutReader r;
  ASSERT_TRUE(r.Open(dir_.File("zch-lumx_tapout20")));
  std::vector<ReadPacket> ps = ReadSome(&r, 80);
  ASSERT_EQ(ps.size(), 80u);
  for (size_t i = 1; i < ps.size(); ++i) ASSERT_EQ(ps[i].header.packetNum, ps[i - 1].header.packetNum + 1);
  size_t biggest = 0;
  for (size_t n : r.readSizes) biggest = std::max(biggest, n);
  EXPECT_GE(biggest, 4u * 1024) << "several 1024-byte packets in one read";
  SimStats s = Stats();
  EXPECT_GE(s.faults.bursts, 1u);
  EXPECT_GE(s.faults.burstPackets, 9u);
}

TEST(DspsimStatsJson, CarriesEveryCounter) {
  SimStats s;
  s.startNs = 0;
  s.nowNs = 2'500'000'000;
  s.tapOuts[20].tap = "2:imic.0";
  s.tapOuts[20].packetsSent = 11;
  s.tapOuts[20].droppedNoReader = 3;
  s.injects[20].packetsReceived = 9;
  s.injects[20].gaps = 2;
  s.injects[20].badVersion = 1;
  for (uint64_t v : {100, 200, 300}) s.injects[20].latencyUs.Add(v);
  s.commands[kOpTapEnable].count = 4;
  s.commands[kOpTapEnable].statuses[0] = 3;
  s.commands[kOpTapEnable].statuses[-22] = 1;
  s.commands[999].count = 1;
  s.faults.split = 6;
  s.faults.restarts = 2;
  std::string j = StatsToJson(s, true);
  for (const char* needle :
       {"\"final\":true", "\"elapsed_s\":2.500", "\"node\":\"zch-lumx_tapout20\"",
        "\"tap\":\"2:imic.0\"", "\"packets_sent\":11", "\"dropped_no_reader\":3",
        "\"node\":\"zch-lumx_inject20\"", "\"packets_received\":9", "\"gaps\":2", "\"errors\":1",
        "\"latency_us\":{\"count\":3,\"p50\":200,\"p99\":300,\"max\":300}",
        "{\"opcode\":202,\"name\":\"TAP_ENABLE\",\"count\":4,\"statuses\":{\"-22\":1,\"0\":3}",
        "\"name\":\"UNKNOWN\"", "\"split\":6", "\"restart\":2", "\"reply_dropped\":0",
        "\"packet_num_jump\":0", "\"paused_packets\":0"}) {
    EXPECT_NE(j.find(needle), std::string::npos) << needle << "\n" << j;
  }
  EXPECT_EQ(j.find('\n'), std::string::npos) << "one line per document";
}

}  // namespace
}  // namespace lumx::dspsim
