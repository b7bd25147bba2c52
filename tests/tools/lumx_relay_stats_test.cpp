// Gap and timing bookkeeping of `lumx relay`.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tools/lumx/relay_stats.h"

namespace lumx::cli {
namespace {

constexpr int64_t kMs = 1000000;
// 4800 samples at 48 kHz: one block every 100 ms.
constexpr uint64_t kBlock = 4800;

TEST(LumxRelayStats, GapsAreMissedBlocksNotJitter) {
  struct Case {
    std::vector<std::pair<int64_t, uint64_t>> packets;  // arrival ms, samples
    uint64_t gaps, missingBlocks;
    double minMs, maxMs, meanMs;
  } cases[] = {
      {{{0, kBlock}, {100, kBlock}, {200, kBlock}, {300, kBlock}}, 0, 0, 100, 100, 100},
      // Late, then early, but each still the next block; then 1.6 blocks
      // (one missing) and 3.4 blocks (two missing).
      {{{0, kBlock}, {140, kBlock}, {200, kBlock}, {360, kBlock}, {700, kBlock}}, 2, 3, 60, 340, 175},
      // The block duration is the previous packet's: 2 blocks of 20 ms, then 1 of 100 ms.
      {{{0, 960}, {40, 4800}, {140, 4800}}, 1, 1, 40, 100, 70},
  };
  for (const Case& c : cases) {
    RelayStats stats;
    uint64_t samples = 0;
    for (auto [ms, n] : c.packets) {
      stats.OnPacket(ms * kMs, n);
      samples += n;
    }
    RelaySummary s = stats.Summary();
    EXPECT_EQ(s.packets, c.packets.size());
    EXPECT_EQ(s.samples, samples);
    EXPECT_EQ(s.gaps, c.gaps) << c.meanMs;
    EXPECT_EQ(s.missingBlocks, c.missingBlocks) << c.meanMs;
    EXPECT_DOUBLE_EQ(s.minIntervalMs, c.minMs);
    EXPECT_DOUBLE_EQ(s.maxIntervalMs, c.maxMs);
    EXPECT_DOUBLE_EQ(s.meanIntervalMs, c.meanMs);
    EXPECT_DOUBLE_EQ(s.durationS, c.packets.back().first / 1000.0);
  }
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
