// The daemon as a process: lumxd against lumx-dspsim, called through the
// ILumx binding; start-up lines, tap operations end to end, the signals that
// end only the event loop, and a simulated DSP restart.
#include <android/binder_manager.h>
#include <android/log.h>
#include <aidl/lumx/ILumx.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "common/lumx_utils.h"
#include "support/daemon_process.h"
#include "support/daemon_service_access.h"
#include "support/daemon_test_util.h"
#include "support/system_stack.h"

using aidl::lumx::ILumx;
using lumx_test::BuildBinary;
using lumx_test::FourCc;
using lumx_test::ReadFileText;
using lumx_test::Subprocess;
using lumx_test::WaitUntil;
using Status = CommandResult::Status;

namespace {

constexpr int32_t kImic = static_cast<int32_t>(FourCc("imic"));

std::string LogTail(int prio, const std::string& message) {
  return lumx_host::FormatLogLineTail(prio, "lumx", message.c_str());
}

size_t Count(const std::string& text, const std::string& needle) {
  size_t n = 0;
  for (size_t pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + 1)) ++n;
  return n;
}

// One simulator and one daemon in private directories, and the daemon's
// interface as this process sees it.
class DaemonRun {
 public:
  bool Start() {
    if (!stack_.BinariesFound() || !stack_.StartSimulator() || !stack_.StartDaemon()) return false;
    // This process finds the service through the same directory.
    setenv("LUMX_BINDER_DIR", stack_.Path("binder").c_str(), 1);
    return WaitUntil([&] {
      ::ndk::SpAIBinder binder(AServiceManager_checkService(LumxDescriptor()));
      service_ = binder.get() == nullptr ? nullptr : ILumx::fromBinder(binder);
      return service_ != nullptr;
    });
  }

  ILumx& service() { return *service_; }
  Subprocess& daemon() { return stack_.daemon(); }
  Subprocess& sim() { return stack_.simulator(); }
  std::string Stderr() const { return ReadFileText(stack_.Path("lumxd.err")); }
  std::string Stdout() const { return ReadFileText(stack_.Path("lumxd.out")); }
  std::string SimStderr() const { return ReadFileText(stack_.Path("dspsim.err")); }
  std::string DevPath(const std::string& name) const { return stack_.devRoot() + "/" + name; }
  bool Logged(int prio, const std::string& message) const {
    return Stderr().find(LogTail(prio, message)) != std::string::npos;
  }
  bool WaitLogged(int prio, const std::string& message) {
    return WaitUntil([&] { return Logged(prio, message); });
  }

  // The loop installs its signal events, then the device watch, on its first
  // pass. A driver-named file proves the watch is there (and so the signal
  // events); before that a signal would still end the process.
  bool WaitForEventLoop() {
    if (!WaitLogged(ANDROID_LOG_INFO, "Start EventThread\n")) return false;
    lumx_test::WriteFileText(DevPath("zch-lumx_probe"), "");
    return WaitLogged(ANDROID_LOG_INFO, "zch-lumx_probe online\n");
  }

  ~DaemonRun() {
    service_.reset();
    stack_.Stop();
    // A sanitizer build of the daemon reports into its log file.
    const std::string log = Stderr();
    EXPECT_EQ(std::string::npos, log.find("Sanitizer")) << log;
  }

 private:
  lumx::test::SystemStack stack_;
  std::shared_ptr<ILumx> service_;
};

#define START_OR_SKIP(run)                                                                \
  do {                                                                                    \
    if (BuildBinary("lumxd").empty()) GTEST_SKIP() << "lumxd not built";                  \
    ASSERT_TRUE((run).Start()) << "daemon did not come up:\n" << (run).Stderr();          \
  } while (0)

TEST(DaemonProcessTest, ServesTapOperationsThroughBinder) {
  DaemonRun run;
  START_OR_SKIP(run);
  EXPECT_TRUE(run.service().Ping().isOk());

  // Start-up, in order.
  const std::string log = run.Stderr();
  const std::string node = run.DevPath("zch-lumx_control");
  size_t last = 0;
  for (const std::string& line :
       {"Opened " + node + "\n", std::string("enable_lumx_processing flag is false!"), std::string("Start Main\n"),
        std::string("Start BinderThread\n")}) {
    const size_t at = log.find(LogTail(ANDROID_LOG_INFO, line));
    ASSERT_NE(std::string::npos, at) << line;
    EXPECT_LE(last, at) << line;
    last = at;
  }
  EXPECT_TRUE(run.WaitLogged(ANDROID_LOG_INFO, "Start EventThread\n"));
  EXPECT_EQ("Lumxd start\n", run.Stdout());

  // Core 2 of the simulator has five taps: two pages.
  CommandResult list;
  ASSERT_TRUE(run.service().TapList(2, &list).isOk());
  EXPECT_EQ(Status::OK, list.status);
  ASSERT_EQ(2u, list.strList.size());
  EXPECT_EQ("LUM tap list core:2", list.strList[0]);
  EXPECT_EQ(6u, Count(list.strList[1], "\n") + 1);
  EXPECT_NE(std::string::npos, list.strList[1].find("\n  imic.0    "));

  CommandResult r[3];
  ASSERT_TRUE(run.service().TapEnable(2, kImic, 0, true, &r[0]).isOk());
  ASSERT_TRUE(run.service().TapSetBlockLength(2, kImic, 0, 960, &r[1]).isOk());
  ASSERT_TRUE(run.service().ConnectTap(2, kImic, 0, 20, 20, &r[2]).isOk());
  for (const CommandResult& each : r) EXPECT_EQ(Status::OK, each.status) << each.toString();

  CommandResult info;
  ASSERT_TRUE(run.service().TapInfo(2, kImic, 0, &info).isOk());
  EXPECT_EQ(Status::OK, info.status);
  ASSERT_EQ(2u, info.strList.size());
  EXPECT_EQ("TapInfo core:2 tap:imic.0", info.strList[0]);
  EXPECT_EQ(
      "  Id        Format              BlockLen  OutBuffer InBuffer  Enabled  "
      "\n  imic.0    48kHz, 1ch, 16bps   960       tapout20  inject20  1        ",
      info.strList[1]);

  // The DSP refuses a block length it cannot take; the daemon passes it on.
  CommandResult bad;
  ASSERT_TRUE(run.service().TapSetBlockLength(2, kImic, 0, 0, &bad).isOk());
  EXPECT_EQ(Status::ERROR, bad.status);
  ASSERT_EQ(2u, bad.strList.size());
  EXPECT_EQ(0u, bad.strList[1].rfind("CMD_LUMX_TAP_SET_BLOCK_LEN_ID failed, status ", 0));
}

void ExpectSignalEndsOnlyTheEventLoop(int sig) {
  DaemonRun run;
  START_OR_SKIP(run);
  ASSERT_TRUE(run.WaitForEventLoop());

  ASSERT_TRUE(run.daemon().Signal(sig));
  ASSERT_TRUE(run.WaitLogged(ANDROID_LOG_INFO, "Stop EventThread\n")) << run.Stderr();
  EXPECT_TRUE(run.Logged(ANDROID_LOG_INFO, "Caught signal. Exiting\n"));

  // Binder calls go on being answered.
  EXPECT_TRUE(run.daemon().Running());
  EXPECT_TRUE(run.service().Ping().isOk());
  CommandResult info;
  ASSERT_TRUE(run.service().TapInfo(2, kImic, 0, &info).isOk());
  EXPECT_EQ(Status::OK, info.status);
  EXPECT_FALSE(run.Logged(ANDROID_LOG_INFO, "Stop Main\n"));

  // SIGTERM keeps its default action.
  ASSERT_TRUE(run.daemon().Signal(SIGTERM));
  int status = 0;
  ASSERT_TRUE(run.daemon().WaitExit(30000, &status));
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(SIGTERM, WTERMSIG(status));
  EXPECT_FALSE(run.Logged(ANDROID_LOG_INFO, "Stop Main\n"));
}

TEST(DaemonProcessTest, SigintEndsOnlyTheEventLoop) { ExpectSignalEndsOnlyTheEventLoop(SIGINT); }

TEST(DaemonProcessTest, SighupEndsOnlyTheEventLoop) { ExpectSignalEndsOnlyTheEventLoop(SIGHUP); }

TEST(DaemonProcessTest, FollowsADspRestart) {
  DaemonRun run;
  START_OR_SKIP(run);
  ASSERT_TRUE(run.WaitForEventLoop());

  ASSERT_TRUE(run.sim().Signal(SIGUSR2));
  ASSERT_TRUE(WaitUntil([&] { return Count(run.SimStderr(), "lumx-dspsim: ready") >= 2; })) << run.SimStderr();
  // The control node went and came back: the daemon follows the node
  // events or heals the descriptor on its next command.
  EXPECT_TRUE(WaitUntil([&] {
    CommandResult info;
    run.service().TapInfo(2, kImic, 0, &info);
    return info.status == Status::OK;
  })) << run.Stderr();
  EXPECT_TRUE(run.daemon().Running());
}

}  // namespace
