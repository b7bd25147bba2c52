// A short soak of the whole system: lumxd against lumx-dspsim while the DSP
// restarts under control traffic, as the long run of scripts/soak.sh does for
// minutes. The simulator holds every control reply back for 200 ms, so a
// restart almost always lands while a command is waiting for its reply: the
// control node's pty goes away under the waiting daemon. The daemon must get
// out of that wait, keep answering, pick the new nodes up, stream MIC_IN
// again once it is enabled again, and end by the signal it is sent with a
// clean sanitizer log.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/daemon_test_util.h"
#include "support/system_stack.h"

namespace {

using lumx_test::ReadFileText;
using lumx_test::WaitUntil;

// Every wait is generous: this runs beside other tests on a loaded 2-core
// machine, under sanitizers. Nothing here measures speed.
constexpr int kLongMs = 60000;
// One lumx call: a healthy daemon answers in well under a second even under
// sanitizers; a call still open after this is a stuck daemon.
constexpr int kCallMs = 20000;

bool HasSanitizerReport(const std::string& log) {
  for (const char* marker : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:",
                             "WARNING: ThreadSanitizer"}) {
    if (log.find(marker) != std::string::npos) return true;
  }
  return false;
}

class SoakRestartTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!stack_.BinariesFound()) GTEST_SKIP() << stack_.error();
  }
  bool Start(const std::vector<std::string>& simArgs) {
    return stack_.StartSimulator(simArgs) && stack_.StartDaemon();
  }
  int Lumx(const std::vector<std::string>& args) { return stack_.Lumx(args, kCallMs).exitCode; }
  // "ready" lines the simulator has printed: one at start, one per restart.
  int ReadyCount() {
    const std::string log = ReadFileText(stack_.Path("dspsim.err"));
    int n = 0;
    for (size_t at = log.find("lumx-dspsim: ready"); at != std::string::npos;
         at = log.find("lumx-dspsim: ready", at + 1)) {
      ++n;
    }
    return n;
  }
  bool Restart() {
    const int ready = ReadyCount();
    return stack_.simulator().Signal(SIGUSR2) && WaitUntil([&] { return ReadyCount() > ready; }, kLongMs);
  }
  double Injected() { return lumx::test::StreamStat(stack_.SimulatorStats(), "zch-lumx_inject20", "packets_received"); }
  // Enables MIC_IN (a step may fail while the buffers are being rescanned,
  // so it is retried) and waits for packets on inject node 20.
  bool MicInStreams() {
    const double base = Injected();
    if (!WaitUntil([&] { return Lumx({"EnableUseCase", "MIC_IN", "1"}) == 0; }, kLongMs)) return false;
    return WaitUntil([&] { return Injected() >= base + 10; }, kLongMs);
  }
  std::string DaemonLog() { return ReadFileText(stack_.Path("lumxd.err")); }

  lumx::test::SystemStack stack_;
};

TEST_F(SoakRestartTest, DaemonSurvivesDspRestartsDuringControlCommands) {
  // Every reply 200 ms late: the daemon spends most of each command waiting.
  ASSERT_TRUE(Start({"--fault-delay-reply-ms", "200"})) << stack_.error() << stack_.Logs();
  ASSERT_TRUE(MicInStreams());
  std::atomic<bool> stop{false};
  std::atomic<int> calls{0};
  std::thread traffic([&] {
    while (!stop.load()) {
      Lumx({"TapInfo", "2", "imic", "0"});
      calls.fetch_add(1);
    }
  });
  for (int restart = 1; restart <= 3; ++restart) {
    const int before = calls.load();
    // Let a command be in flight, then take the DSP away under it.
    WaitUntil([&] { return calls.load() > before; }, kLongMs);
    usleep(100 * 1000);
    ASSERT_TRUE(Restart()) << "restart " << restart;
  }
  stop = true;
  traffic.join();
  // Still answering, and streaming again once the use case is enabled anew.
  ASSERT_TRUE(stack_.daemon().Running());
  ASSERT_EQ(Lumx({"Ping"}), 0) << "lumxd stopped answering\n" << stack_.Logs();
  EXPECT_EQ(Lumx({"ShowGraph"}), 0);
  EXPECT_TRUE(MicInStreams());
  int status = 0;
  ASSERT_TRUE(stack_.daemon().Signal(SIGTERM));
  ASSERT_TRUE(stack_.daemon().WaitExit(kLongMs, &status));
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << "wait status " << status;
  EXPECT_FALSE(HasSanitizerReport(DaemonLog()));
}

TEST_F(SoakRestartTest, StreamsResumeAfterEveryRestartWithPacketFaults) {
  // Split, stale, misaligned, renumbered and corrupt packets on the stream,
  // and two restarts: MIC_IN comes back each time it is enabled again.
  ASSERT_TRUE(Start({"--fault-split", "0.2", "--fault-stale", "0.1", "--fault-misalign", "0.05", "--fault-bad-version",
                     "0.05", "--fault-oversize", "0.05", "--fault-jump", "0.05"}))
      << stack_.error() << stack_.Logs();
  ASSERT_TRUE(MicInStreams());
  for (int restart = 1; restart <= 2; ++restart) {
    ASSERT_TRUE(Restart());
    EXPECT_TRUE(MicInStreams()) << "after restart " << restart;
  }
  EXPECT_EQ(Lumx({"Ping"}), 0);
  ASSERT_TRUE(stack_.daemon().Running());
  EXPECT_FALSE(HasSanitizerReport(DaemonLog()));
}

}  // namespace
