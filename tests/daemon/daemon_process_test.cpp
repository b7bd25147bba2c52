// The daemon as a process: lumxd against lumx-dspsim (with its fault flags)
// in private directories, called through the ILumx binding and the lumx
// tool; start-up lines, tap operations end to end, the signals that end only
// the event loop, DSP restarts, and a device directory changed under it.
#include <android/binder_manager.h>
#include <android/log.h>
#include <aidl/lumx/ILumx.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "common/lumx_utils.h"
#include "support/daemon_service_access.h"
#include "support/daemon_test_util.h"
#include "support/system_stack.h"

using aidl::lumx::ILumx;
using lumx_test::FourCc;
using lumx_test::ReadFileText;
using lumx_test::WaitUntil;
using lumx_test::WriteFileText;
using Status = CommandResult::Status;

namespace {

constexpr int32_t kImic = static_cast<int32_t>(FourCc("imic"));

size_t Count(const std::string& text, const std::string& needle) {
  size_t n = 0;
  for (size_t pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + 1)) ++n;
  return n;
}

// The log line as lumxd writes it to standard error.
std::string Line(int prio, const std::string& message) {
  return lumx_host::FormatLogLineTail(prio, "lumx", message.c_str());
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

class DaemonProcessTest : public ::testing::Test {
 protected:
  // The simulator with `simArgs`, the daemon, and its device watch (a
  // driver-named probe seen online: from then on the loop's signal events
  // are installed too).
  void Start(const std::vector<std::string>& simArgs = {}) {
    ASSERT_TRUE(stack_.BinariesFound()) << stack_.error();
    ASSERT_TRUE(stack_.StartSimulator(simArgs)) << stack_.error();
    ASSERT_TRUE(stack_.StartDaemon()) << stack_.Logs();
    Touch("zch-lumx_probe");
    ASSERT_TRUE(WaitLogged("zch-lumx_probe online", 1)) << stack_.Logs();
  }
  // The daemon's interface as this process sees it, through the same
  // binder directory.
  ILumx& Service() {
    if (service_ == nullptr) {
      setenv("LUMX_BINDER_DIR", stack_.Path("binder").c_str(), 1);
      EXPECT_TRUE(WaitUntil([&] {
        ::ndk::SpAIBinder binder(AServiceManager_checkService(LumxDescriptor()));
        service_ = binder.get() == nullptr ? nullptr : ILumx::fromBinder(binder);
        return service_ != nullptr;
      }));
    }
    return *service_;
  }
  void TearDown() override {
    service_.reset();
    stack_.Stop();
    EXPECT_EQ(0u, Logged("Sanitizer")) << stack_.Logs();
  }
  std::string Log() const { return ReadFileText(stack_.Path("lumxd.err")); }
  size_t Logged(const std::string& text) const { return Count(Log(), text); }
  bool WaitLogged(const std::string& text, size_t n) { return WaitUntil([&] { return Logged(text) >= n; }); }
  void Touch(const std::string& node) { WriteFileText(stack_.devRoot() + "/" + node, ""); }

  lumx::test::SystemStack stack_;
  std::shared_ptr<ILumx> service_;
};

TEST_F(DaemonProcessTest, ServesTapOperationsThroughBinder) {
  ASSERT_NO_FATAL_FAILURE(Start());
  EXPECT_TRUE(Service().Ping().isOk());

  // Start-up, in order.
  const std::string log = Log();
  size_t last = 0;
  for (const std::string& line : {"Opened " + stack_.devRoot() + "/zch-lumx_control\n",
                                  std::string("enable_lumx_processing flag is false!"), std::string("Start Main\n"),
                                  std::string("Start BinderThread\n")}) {
    const size_t at = log.find(Line(ANDROID_LOG_INFO, line));
    ASSERT_NE(std::string::npos, at) << line;
    EXPECT_LE(last, at) << line;
    last = at;
  }
  EXPECT_EQ(1u, Count(log, Line(ANDROID_LOG_INFO, "Start EventThread\n")));
  EXPECT_EQ("Lumxd start\n", ReadFileText(stack_.Path("lumxd.out")));

  // Core 2 of the simulator has five taps: two pages.
  CommandResult list;
  ASSERT_TRUE(Service().TapList(2, &list).isOk());
  EXPECT_EQ(Status::OK, list.status);
  ASSERT_EQ(2u, list.strList.size());
  EXPECT_EQ("LUM tap list core:2", list.strList[0]);
  EXPECT_EQ(6u, Count(list.strList[1], "\n") + 1);
  EXPECT_NE(std::string::npos, list.strList[1].find("\n  imic.0    "));

  CommandResult r[3];
  ASSERT_TRUE(Service().TapEnable(2, kImic, 0, true, &r[0]).isOk());
  ASSERT_TRUE(Service().TapSetBlockLength(2, kImic, 0, 960, &r[1]).isOk());
  ASSERT_TRUE(Service().ConnectTap(2, kImic, 0, 20, 20, &r[2]).isOk());
  for (const CommandResult& each : r) EXPECT_EQ(Status::OK, each.status) << each.toString();

  CommandResult info;
  ASSERT_TRUE(Service().TapInfo(2, kImic, 0, &info).isOk());
  EXPECT_EQ(Status::OK, info.status);
  ASSERT_EQ(2u, info.strList.size());
  EXPECT_EQ("TapInfo core:2 tap:imic.0", info.strList[0]);
  EXPECT_EQ(
      "  Id        Format              BlockLen  OutBuffer InBuffer  Enabled  "
      "\n  imic.0    48kHz, 1ch, 16bps   960       tapout20  inject20  1        ",
      info.strList[1]);

  // The DSP refuses a block length it cannot take; the daemon passes it on.
  CommandResult bad;
  ASSERT_TRUE(Service().TapSetBlockLength(2, kImic, 0, 0, &bad).isOk());
  EXPECT_EQ(Status::ERROR, bad.status);
  ASSERT_EQ(2u, bad.strList.size());
  EXPECT_EQ(0u, bad.strList[1].rfind("CMD_LUMX_TAP_SET_BLOCK_LEN_ID failed, status ", 0));
}

// SIGINT and SIGHUP end the event loop only: binder calls go on being
// answered, and SIGTERM keeps its default action.
class DaemonSignalTest : public DaemonProcessTest, public ::testing::WithParamInterface<int> {};

TEST_P(DaemonSignalTest, EndsOnlyTheEventLoop) {
  ASSERT_NO_FATAL_FAILURE(Start());
  ASSERT_TRUE(stack_.daemon().Signal(GetParam()));
  ASSERT_TRUE(WaitLogged(Line(ANDROID_LOG_INFO, "Stop EventThread\n"), 1)) << Log();
  EXPECT_EQ(1u, Logged(Line(ANDROID_LOG_INFO, "Caught signal. Exiting\n")));
  EXPECT_TRUE(stack_.daemon().Running());
  EXPECT_TRUE(Service().Ping().isOk());
  CommandResult info;
  ASSERT_TRUE(Service().TapInfo(2, kImic, 0, &info).isOk());
  EXPECT_EQ(Status::OK, info.status);

  ASSERT_TRUE(stack_.daemon().Signal(SIGTERM));
  int status = 0;
  ASSERT_TRUE(stack_.daemon().WaitExit(30000, &status));
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(SIGTERM, WTERMSIG(status));
  EXPECT_EQ(0u, Logged("Stop Main"));
}
INSTANTIATE_TEST_SUITE_P(LoopSignals, DaemonSignalTest, ::testing::Values(SIGINT, SIGHUP));

TEST_F(DaemonProcessTest, FollowsADspRestart) {
  ASSERT_NO_FATAL_FAILURE(Start());
  ASSERT_TRUE(stack_.simulator().Signal(SIGUSR2));
  ASSERT_TRUE(WaitUntil([&] { return Count(ReadFileText(stack_.Path("dspsim.err")), "lumx-dspsim: ready") >= 2; }))
      << stack_.Logs();
  // The control node went and came back: the daemon follows the node
  // events or heals the descriptor on its next command.
  EXPECT_TRUE(WaitUntil([&] {
    CommandResult info;
    Service().TapInfo(2, kImic, 0, &info);
    return info.status == Status::OK;
  })) << stack_.Logs();
  EXPECT_TRUE(stack_.daemon().Running());
}

// Names of 240 to 255 characters once failed every later read of the watch.
TEST_F(DaemonProcessTest, LongNodeNamesDoNotStopTheDeviceWatch) {
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
TEST_F(DaemonProcessTest, EveryEventOfABurstIsHandled) {
  ASSERT_NO_FATAL_FAILURE(Start({"--buffers", "20", "--fault-flap-every", "0.7"}));
  const bool paired = WaitUntil([&] {
    const std::string log = Log();
    const size_t offline = Count(log, "zch-lumx_inject20 offline");
    return offline >= 4 && Count(log, "zch-lumx_inject20 online") == offline;
  });
  EXPECT_TRUE(paired) << stack_.Logs();
  EXPECT_TRUE(WaitLogged("Found 1 tap-out buffer, 1 inject buffer", 5)) << stack_.Logs();
}

TEST_F(DaemonProcessTest, WakeLockIsReleasedAtStartAndWhenTheStreamsBuffersGo) {
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
TEST_F(DaemonProcessTest, UnmatchedRepliesAreBoundedAndLoggedOnceASecond) {
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
TEST_F(DaemonProcessTest, EndlessTapListEndsAsAFailedList) {
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
TEST_F(DaemonProcessTest, OnlyTheEventThreadTakesSigintAndSighup) {
  ASSERT_NO_FATAL_FAILURE(Start({"--tapouts", "none"}));
  size_t most = 0;
  ASSERT_TRUE(WaitUntil([&] {
    most = std::max(most, ThreadsTakingLoopSignals(stack_.daemon().pid()));
    return Logged("Found 0 tap-out buffers, 0 inject buffers") >= 2;
  }));
  EXPECT_EQ(1u, most);
}

}  // namespace
