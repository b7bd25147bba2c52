// lumx-dspsim: the faults of a misbehaving peer on the data nodes (a stalled
// inject reader, a vanishing tap-out writer, bursts of held-back packets)
// show on the wire and in the statistics.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "support/buffer_dev_dir.h"
#include "tests/tools/dspsim_test_util.h"

namespace lumx::dspsim {
namespace {

const char kTable[] =
    "2 imic.0 48000 480 1 16 enabled=1 tapout=20 inject=20\n"
    "2 sspk.0 48000 480 2 16 enabled=1 tapout=21 inject=21\n";

using DspsimPeerFault = SimTest;

TEST_F(DspsimPeerFault, StalledInjectIsNotReadOthersAre) {
  Options o;
  o.faults.stallInjects = {20};
  StartSim(kTable, o);
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

TEST_F(DspsimPeerFault, VanishingWriterGivesEndOfFileThenStreamsAgain) {
  Options o;
  o.faults.writerGoneEverySec = 0.3;
  o.faults.writerGoneMs = 200;
  o.faults.tapOutFilter = {20};
  StartSim(kTable, o);
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

TEST_F(DspsimPeerFault, BurstWritesHeldPacketsTogetherWithoutLoss) {
  Options o;
  o.faults.burstEverySec = 0.25;
  o.faults.burstMs = 100;
  o.faults.tapOutFilter = {20};
  StartSim(kTable, o);
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

}  // namespace
}  // namespace lumx::dspsim
