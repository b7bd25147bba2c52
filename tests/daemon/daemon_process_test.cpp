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

using aidl::lumx::ILumx;
using lumx_test::BuildBinary;
using lumx_test::FourCc;
using lumx_test::ReadFileText;
using lumx_test::Subprocess;
using lumx_test::TempDir;
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

// One simulator and one daemon in private directories.
class DaemonRun {
 public:
  bool Start() {
    const std::string lumxd = BuildBinary("lumxd");
    std::string sim = BuildBinary("tools/lumx-dspsim/lumx-dspsim");
    if (sim.empty()) sim = BuildBinary("lumx-dspsim");
    if (lumxd.empty() || sim.empty()) return false;
    if (mkdir(sys_.Join("power").c_str(), 0755) != 0) return false;
    sys_.Touch("power/wake_lock");
    sys_.Touch("power/wake_unlock");

    const std::string ready = logs_.Join("ready");
    if (!sim_.Start(sim, {"--dev-root", dev_.path(), "--ready-file", ready}, {}, "", logs_.Join("sim.err"))) {
      return false;
    }
    if (!WaitUntil([&] { return access(ready.c_str(), F_OK) == 0; })) return false;

    // This process finds the service through the same directory.
    setenv("LUMX_BINDER_DIR", binder_.path().c_str(), 1);
    if (!daemon_.Start(lumxd, {},
                       {{"LUMX_DEV_ROOT", dev_.path()},
                        {"LUMX_BINDER_DIR", binder_.path()},
                        {"LUMX_SYSFS_ROOT", sys_.path()}},
                       logs_.Join("lumxd.out"), logs_.Join("lumxd.err"))) {
      return false;
    }
    return WaitUntil([&] {
      ::ndk::SpAIBinder binder(AServiceManager_checkService(LumxDescriptor()));
      if (binder.get() == nullptr) return false;
      service_ = ILumx::fromBinder(binder);
      return service_ != nullptr;
    });
  }

  ILumx& service() { return *service_; }
  Subprocess& daemon() { return daemon_; }
  Subprocess& sim() { return sim_; }
  std::string Stderr() const { return ReadFileText(logs_.Join("lumxd.err")); }
  std::string Stdout() const { return ReadFileText(logs_.Join("lumxd.out")); }
  std::string SimStderr() const { return ReadFileText(logs_.Join("sim.err")); }
  bool Logged(int prio, const std::string& message) const {
    return Stderr().find(LogTail(prio, message)) != std::string::npos;
  }
  bool WaitLogged(int prio, const std::string& message) {
    return WaitUntil([&] { return Logged(prio, message); });
  }
  const TempDir& dev() const { return dev_; }

  // The loop installs its signal events, then the device watch, on its first
  // pass. A driver-named file proves the watch is there (and so the signal
  // events); before that a signal would still end the process.
  bool WaitForEventLoop() {
    if (!WaitLogged(ANDROID_LOG_INFO, "Start EventThread\n")) return false;
    dev_.Touch("zch-lumx_probe");
    return WaitLogged(ANDROID_LOG_INFO, "zch-lumx_probe online\n");
  }
  const TempDir& sys() const { return sys_; }

  ~DaemonRun() {
    service_.reset();
    daemon_.Signal(SIGKILL);
    sim_.Signal(SIGTERM);
    int status;
    daemon_.WaitExit(30000, &status);
    sim_.WaitExit(30000, &status);
    // A sanitizer build of the daemon reports into its log file.
    const std::string log = Stderr();
    EXPECT_EQ(std::string::npos, log.find("Sanitizer")) << log;
  }

 private:
  TempDir dev_{"lumx-pdev"};
  TempDir binder_{"lumx-pbnd"};
  TempDir sys_{"lumx-psys"};
  TempDir logs_{"lumx-plog"};
  Subprocess sim_;
  Subprocess daemon_;
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
  const std::string node = run.dev().Join("zch-lumx_control");
  const size_t opened = log.find(LogTail(ANDROID_LOG_INFO, "Opened " + node + "\n"));
  const size_t flag = log.find(LogTail(ANDROID_LOG_INFO, "enable_lumx_processing flag is false!"));
  const size_t main = log.find(LogTail(ANDROID_LOG_INFO, "Start Main\n"));
  const size_t binder = log.find(LogTail(ANDROID_LOG_INFO, "Start BinderThread\n"));
  ASSERT_NE(std::string::npos, opened);
  ASSERT_NE(std::string::npos, flag);
  ASSERT_NE(std::string::npos, main);
  ASSERT_NE(std::string::npos, binder);
  EXPECT_LT(opened, flag);
  EXPECT_LT(flag, main);
  EXPECT_LT(main, binder);
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

  CommandResult r;
  ASSERT_TRUE(run.service().TapEnable(2, kImic, 0, true, &r).isOk());
  EXPECT_EQ(Status::OK, r.status) << r.toString();
  r = CommandResult();
  ASSERT_TRUE(run.service().TapSetBlockLength(2, kImic, 0, 960, &r).isOk());
  EXPECT_EQ(Status::OK, r.status) << r.toString();
  r = CommandResult();
  ASSERT_TRUE(run.service().ConnectTap(2, kImic, 0, 20, 20, &r).isOk());
  EXPECT_EQ(Status::OK, r.status) << r.toString();

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
  r = CommandResult();
  ASSERT_TRUE(run.service().TapSetBlockLength(2, kImic, 0, 0, &r).isOk());
  EXPECT_EQ(Status::ERROR, r.status);
  ASSERT_EQ(2u, r.strList.size());
  EXPECT_EQ(0u, r.strList[1].rfind("CMD_LUMX_TAP_SET_BLOCK_LEN_ID failed, status ", 0));
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

bool Contains(const CommandResult& r, const std::string& line) {
  for (const std::string& l : r.strList) {
    if (l == line) return true;
  }
  return false;
}

// The wake lock is held exactly while a tap-out buffer is enabled.
TEST(DaemonProcessTest, WakeLockFollowsTapOutBuffers) {
  DaemonRun run;
  START_OR_SKIP(run);
  const std::string lockFile = run.sys().Join("power/wake_lock");
  const std::string unlockFile = run.sys().Join("power/wake_unlock");

  CommandResult r;
  ASSERT_TRUE(run.service().StartIo(20, &r).isOk());
  EXPECT_EQ(Status::OK, r.status) << r.toString();
  EXPECT_TRUE(Contains(r, "1 buffers enabled, 0 processors active, wakelock needed: 1")) << r.toString();
  EXPECT_EQ("lumx", ReadFileText(lockFile));

  // Enabling everything keeps the lock: no second acquisition.
  ASSERT_TRUE(lumx_test::WriteFileText(lockFile, ""));
  r = CommandResult();
  ASSERT_TRUE(run.service().StartIo(-1, &r).isOk());
  EXPECT_TRUE(Contains(r, "4 buffers enabled, 0 processors active, wakelock needed: 1")) << r.toString();
  EXPECT_EQ("", ReadFileText(lockFile));

  // The tap-out buffers go one by one; the inject buffers stay enabled but
  // do not keep the device awake.
  for (int32_t id : {21, 40, 41}) {
    r = CommandResult();
    ASSERT_TRUE(run.service().StopIo(id, &r).isOk());
    EXPECT_EQ("", ReadFileText(unlockFile));
  }
  EXPECT_TRUE(Contains(r, "1 buffers enabled, 0 processors active, wakelock needed: 1")) << r.toString();
  r = CommandResult();
  ASSERT_TRUE(run.service().StopIo(20, &r).isOk());
  EXPECT_TRUE(Contains(r, "0 buffers enabled, 0 processors active, wakelock needed: 0")) << r.toString();
  EXPECT_EQ("lumx", ReadFileText(unlockFile));
}

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
