// Gap and timing bookkeeping of `lumx relay`.
#include <gtest/gtest.h>

#include <string>

#include "tools/lumx/relay_stats.h"

namespace lumx::cli {
namespace {

constexpr int64_t kMs = 1000000;
// 4800 samples at 48 kHz: one block every 100 ms.
constexpr uint64_t kBlock = 4800;

TEST(LumxRelayStats, SteadyStreamHasNoGaps) {
  RelayStats stats;
  for (int k = 0; k < 10; ++k) stats.OnPacket(k * 100 * kMs, kBlock);
  RelaySummary s = stats.Summary();
  EXPECT_EQ(s.packets, 10u);
  EXPECT_EQ(s.samples, 48000u);
  EXPECT_EQ(s.gaps, 0u);
  EXPECT_EQ(s.missingBlocks, 0u);
  EXPECT_DOUBLE_EQ(s.meanIntervalMs, 100.0);
  EXPECT_DOUBLE_EQ(s.maxIntervalMs, 100.0);
  EXPECT_DOUBLE_EQ(s.minIntervalMs, 100.0);
  EXPECT_DOUBLE_EQ(s.durationS, 0.9);
}

TEST(LumxRelayStats, JitterIsNotAGapButAMissedBlockIs) {
  RelayStats stats;
  stats.OnPacket(0, kBlock);
  stats.OnPacket(140 * kMs, kBlock);  // late, but still the next block
  stats.OnPacket(200 * kMs, kBlock);  // early
  stats.OnPacket(360 * kMs, kBlock);  // 1.6 blocks: one missing
  stats.OnPacket(700 * kMs, kBlock);  // 3.4 blocks: two missing
  RelaySummary s = stats.Summary();
  EXPECT_EQ(s.gaps, 2u);
  EXPECT_EQ(s.missingBlocks, 3u);
  EXPECT_DOUBLE_EQ(s.maxIntervalMs, 340.0);
  EXPECT_DOUBLE_EQ(s.minIntervalMs, 60.0);
  EXPECT_DOUBLE_EQ(s.meanIntervalMs, 175.0);
}

TEST(LumxRelayStats, BlockDurationFollowsThePreviousPacket) {
  RelayStats stats;
  stats.OnPacket(0, 960);            // 20 ms block
  stats.OnPacket(40 * kMs, 4800);    // 2 blocks of 20 ms: one missing
  stats.OnPacket(140 * kMs, 4800);   // 1 block of 100 ms: none
  RelaySummary s = stats.Summary();
  EXPECT_EQ(s.gaps, 1u);
  EXPECT_EQ(s.missingBlocks, 1u);
}

TEST(LumxRelayStats, EmptyAndDegenerateInput) {
  RelayStats none;
  RelaySummary s = none.Summary();
  EXPECT_EQ(s.packets, 0u);
  EXPECT_EQ(s.meanIntervalMs, 0.0);
  EXPECT_EQ(s.durationS, 0.0);

  RelayStats stats;
  stats.OnPacket(10 * kMs, 0);  // an empty block gives no duration to judge by
  stats.OnPacket(900 * kMs, kBlock);
  stats.OnPacket(800 * kMs, kBlock);  // clock went backwards: interval 0
  stats.OnBadPacket();
  stats.OnSent(true);
  stats.OnSent(false);
  stats.OnSent(true);
  s = stats.Summary();
  EXPECT_EQ(s.packets, 3u);
  EXPECT_EQ(s.gaps, 0u);
  EXPECT_EQ(s.badPackets, 1u);
  EXPECT_EQ(s.sent, 2u);
  EXPECT_EQ(s.sendErrors, 1u);
  EXPECT_DOUBLE_EQ(s.minIntervalMs, 0.0);
}

TEST(LumxRelayStats, TextAndJsonForms) {
  RelayStats stats;
  stats.OnPacket(0, kBlock);
  stats.OnPacket(300 * kMs, kBlock);
  stats.OnSent(true);
  RelaySummary s = stats.Summary();
  EXPECT_EQ(FormatRelayText(s),
            "packets received: 2\n"
            "samples received: 9600\n"
            "bad packets: 0\n"
            "dropped packets: 0\n"
            "packets sent: 1\n"
            "send errors: 0\n"
            "gaps: 1\n"
            "missing blocks: 2\n"
            "inter-arrival mean ms: 300.000\n"
            "inter-arrival max ms: 300.000\n"
            "inter-arrival min ms: 300.000\n"
            "duration s: 0.300\n");
  EXPECT_EQ(FormatRelayJson("art\"0", s, 0, ""),
            "{\"op\":\"relay\",\"processor\":\"art\\\"0\",\"exitCode\":0,"
            "\"packets\":2,\"samples\":9600,\"badPackets\":0,\"dropped\":0,"
            "\"sent\":1,"
            "\"sendErrors\":0,\"gaps\":1,\"missingBlocks\":2,"
            "\"interArrivalMeanMs\":300,\"interArrivalMaxMs\":300,"
            "\"interArrivalMinMs\":300,\"durationS\":0.3}\n");
  EXPECT_NE(FormatRelayJson("art0", s, 69, "lost lumx.ILumx/default")
                .find("\"exitCode\":69,\"error\":\"lost lumx.ILumx/default\""),
            std::string::npos);
}

}  // namespace
}  // namespace lumx::cli
