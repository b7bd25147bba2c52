// A misbehaving DSP and driver, as the running daemon meets them: lumxd
// against lumx-dspsim's fault flags and a device directory changed under it,
// checked through its log, its answers, its threads and the wake-lock files.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/daemon_test_util.h"
#include "support/system_stack.h"

using lumx_test::ReadFileText;
using lumx_test::WaitUntil;
using lumx_test::WriteFileText;

namespace {

size_t Count(const std::string& text, const std::string& needle) {
  size_t n = 0;
  for (size_t pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + 1)) ++n;
  return n;
}

// How many threads of `pid` have SIGHUP (bit 0) or SIGINT (bit 1) unblocked.
size_t ThreadsTakingLoopSignals(pid_t pid) {
  size_t n = 0;
  const std::string dir = "/proc/" + std::to_string(pid) + "/task";
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      const std::string status = e->d_name[0] == '.' ? "" : ReadFileText(dir + "/" + e->d_name + "/status");
      const size_t at = status.find("SigBlk:");  // absent once the thread has ended
      if (at != std::string::npos) n += (strtoull(status.c_str() + at + 7, nullptr, 16) & 3) != 3;
    }
    closedir(d);
  }
  return n;
}

class DaemonFaultTest : public ::testing::Test {
 protected:
  // The simulator with `simArgs`, the daemon, and its device watch (a
  // driver-named probe seen online).
  void Start(const std::vector<std::string>& simArgs) {
    ASSERT_TRUE(stack_.BinariesFound()) << stack_.error();
    ASSERT_TRUE(stack_.StartSimulator(simArgs)) << stack_.error();
    ASSERT_TRUE(stack_.StartDaemon()) << stack_.Logs();
    Touch("zch-lumx_probe");
    ASSERT_TRUE(WaitLogged("zch-lumx_probe online", 1)) << stack_.Logs();
  }
  void TearDown() override {
    stack_.Stop();
    EXPECT_EQ(0u, Logged("Sanitizer")) << stack_.Logs();
  }
  std::string Log() const { return ReadFileText(stack_.Path("lumxd.err")); }
  size_t Logged(const std::string& text) const { return Count(Log(), text); }
  bool WaitLogged(const std::string& text, size_t n) { return WaitUntil([&] { return Logged(text) >= n; }); }
  void Touch(const std::string& node) { WriteFileText(stack_.devRoot() + "/" + node, ""); }

  lumx::test::SystemStack stack_;
};

// Names of 240 to 255 characters once failed every later read of the watch.
TEST_F(DaemonFaultTest, LongNodeNamesDoNotStopTheDeviceWatch) {
  ASSERT_NO_FATAL_FAILURE(Start({}));
  for (size_t length : {240, 255}) {
    const std::string name = "zch-lumx_" + std::string(length - 9, length == 240 ? 'a' : 'b');
    const std::string after = "zch-lumx_after" + std::to_string(length);
    Touch(name);
    Touch(after);
    EXPECT_TRUE(WaitLogged(": " + after + " online", 1)) << length;
    EXPECT_EQ(1u, Logged(": " + name + " online")) << length;
  }
  EXPECT_EQ(0u, Logged("Failed to read from inotify"));
}

// The simulator removes inject node 20 and at once creates it again: both
// events come in one read, and each must be handled (and so rescanned).
TEST_F(DaemonFaultTest, EveryEventOfABurstIsHandled) {
  ASSERT_NO_FATAL_FAILURE(Start({"--buffers", "20", "--fault-flap-every", "0.7"}));
  const bool paired = WaitUntil([&] {
    const std::string log = Log();
    const size_t offline = Count(log, "zch-lumx_inject20 offline");
    return offline >= 4 && Count(log, "zch-lumx_inject20 online") == offline;
  });
  EXPECT_TRUE(paired) << stack_.Logs();
  EXPECT_TRUE(WaitLogged("Found 1 tap-out buffer, 1 inject buffer", 5)) << stack_.Logs();
}

TEST_F(DaemonFaultTest, WakeLockIsReleasedAtStartAndWhenTheStreamsBuffersGo) {
  const std::string lock = stack_.Path("sys/power/wake_lock");
  const std::string unlock = stack_.Path("sys/power/wake_unlock");
  // What an instance that died while streaming leaves behind.
  ASSERT_TRUE(WriteFileText(lock, "lumx"));
  ASSERT_NO_FATAL_FAILURE(Start({}));
  EXPECT_EQ("lumx", ReadFileText(unlock));

  ASSERT_TRUE(WriteFileText(lock, "") && WriteFileText(unlock, ""));
  ASSERT_EQ(0, stack_.Lumx({"Enable", "mic_in", "1"}).exitCode) << stack_.Logs();
  ASSERT_EQ("lumx", ReadFileText(lock));
  // A DSP restart deletes every node: the streaming buffer goes, and with it
  // the need for the lock.
  ASSERT_TRUE(stack_.simulator().Signal(SIGUSR2));
  EXPECT_TRUE(WaitUntil([&] { return ReadFileText(unlock) == "lumx"; })) << stack_.Logs();
}

// A node that keeps sending replies to nothing: each command still ends
// within its budget, and the daemon logs about it once a second.
TEST_F(DaemonFaultTest, UnmatchedRepliesAreBoundedAndLoggedOnceASecond) {
  ASSERT_NO_FATAL_FAILURE(Start({"--fault-unmatched-replies", "20000"}));
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 4; ++i) {
    const int rc = stack_.Lumx({"TapInfo", "2", "imic", "0"}, 30000).exitCode;
    EXPECT_TRUE(rc == 0 || rc == 1) << rc;
  }
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
  // One line per second, and one more saying how many were held back.
  EXPECT_LE(Logged("mismatch reply id"), 2 * static_cast<size_t>(seconds.count() + 2)) << seconds.count();
  EXPECT_GE(Logged("mismatch reply id: "), 1u);
}

// A DSP that answers every list page as full: the walk ends after the 256
// pages the page byte can name, as a failed list does.
TEST_F(DaemonFaultTest, EndlessTapListEndsAsAFailedList) {
  ASSERT_NO_FATAL_FAILURE(Start({"--fault-endless-list"}));
  const lumx::test::LumxRun list = stack_.Lumx({"TapList", "2"}, 30000);
  EXPECT_EQ(0, list.exitCode);
  EXPECT_EQ("LUM tap list core:2\n  No tap points\n", list.out);
  const lumx::test::LumxRun graph = stack_.Lumx({"ShowGraph"}, 30000);
  EXPECT_EQ(1, graph.exitCode);
  EXPECT_EQ("Connection graph:\nError retrieving list of tap points from LuM core 2\n", graph.out);
  EXPECT_GE(Logged("E lumx    : CMD_LUMX_TAP_LIST_ID on LUM core 2, no end after 256 pages"), 1u);
}

// SIGINT and SIGHUP belong to the event thread alone, also while a rescan
// that it started runs (the probe's: it retries, there is no tap-out node).
TEST_F(DaemonFaultTest, OnlyTheEventThreadTakesSigintAndSighup) {
  ASSERT_NO_FATAL_FAILURE(Start({"--tapouts", "none"}));
  size_t most = 0;
  ASSERT_TRUE(WaitUntil([&] {
    most = std::max(most, ThreadsTakingLoopSignals(stack_.daemon().pid()));
    return Logged("Found 0 tap-out buffers, 0 inject buffers") >= 2;
  }));
  EXPECT_EQ(1u, most);
}

}  // namespace
