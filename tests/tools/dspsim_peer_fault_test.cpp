// lumx-dspsim: the faults of a misbehaving peer on the data nodes (a stalled
// inject reader, a vanishing tap-out writer, bursts of held-back packets)
// show on the wire and in the statistics.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "tests/tools/dspsim_test_util.h"

namespace lumx::dspsim {
namespace {

const char kTable[] =
    "2 imic.0 48000 480 1 16 enabled=1 tapout=20 inject=20\n"
    "2 sspk.0 48000 480 2 16 enabled=1 tapout=21 inject=21\n";

int Queued(int fd) {
  int n = 0;
  return ioctl(fd, FIONREAD, &n) == 0 ? n : -1;
}

using DspsimPeerFault = SimTest;

TEST_F(DspsimPeerFault, OptionsParse) {
  const char* argv[] = {"lumx-dspsim", "--dev-root=/x", "--fault-stall-inject", "20", "--fault-stall-inject=41",
                        "--fault-stall", "2:300", "--fault-writer-gone", "1.5:200", "--fault-burst=3:100"};
  Options o;
  std::string msg;
  ASSERT_EQ(ParseOptions(10, const_cast<char**>(argv), &o, &msg), ParseOutcome::kRun) << msg;
  EXPECT_EQ(o.faults.stallInjects, (std::set<int>{20, 41}));
  EXPECT_EQ(o.faults.stallEverySec, 2.0);
  EXPECT_EQ(o.faults.stallMs, 300);
  EXPECT_EQ(o.faults.writerGoneEverySec, 1.5);
  EXPECT_EQ(o.faults.writerGoneMs, 200);
  EXPECT_EQ(o.faults.burstEverySec, 3.0);
  EXPECT_EQ(o.faults.burstMs, 100);
  for (const char* bad : {"--fault-burst=3", "--fault-writer-gone=0:10", "--fault-stall-inject=255"}) {
    const char* args[] = {"lumx-dspsim", "--dev-root=/x", bad};
    EXPECT_EQ(ParseOptions(3, const_cast<char**>(args), &o, &msg), ParseOutcome::kError) << bad;
  }
}

TEST_F(DspsimPeerFault, StalledInjectIsNotReadOthersAre) {
  Options o;
  o.faults.stallInjects = {20};
  StartSim(kTable, o);
  lumx::unique_fd stalled(open(dir_.File("zch-lumx_inject20").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  lumx::unique_fd healthy(open(dir_.File("zch-lumx_inject21").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(stalled.ok() && healthy.ok());
  const std::vector<uint8_t> junk(4096, 0x5A);
  size_t written = 0;
  while (write(stalled.get(), junk.data(), junk.size()) == static_cast<ssize_t>(junk.size())) written += junk.size();
  EXPECT_EQ(errno, EAGAIN) << "the pipe fills up";
  ASSERT_EQ(write(healthy.get(), junk.data(), junk.size()), static_cast<ssize_t>(junk.size()));
  ASSERT_TRUE(WaitFor([&] { return Queued(healthy.get()) == 0; }));
  EXPECT_EQ(Queued(stalled.get()), static_cast<int>(written));
  EXPECT_EQ(Stats().faults.stalls, 1u);
}

TEST_F(DspsimPeerFault, PeriodicStallEnds) {
  Options o;
  o.faults.stallInjects = {20};
  o.faults.stallEverySec = 0.2;
  o.faults.stallMs = 100;
  StartSim(kTable, o);
  lumx::unique_fd w(open(dir_.File("zch-lumx_inject20").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(w.ok());
  ASSERT_TRUE(WaitFor([&] { return Stats().faults.stalls >= 2; }));
  const std::vector<uint8_t> junk(4096, 0x5A);
  ASSERT_EQ(write(w.get(), junk.data(), junk.size()), 4096);
  ASSERT_TRUE(WaitFor([&] { return Queued(w.get()) == 0; }));
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
