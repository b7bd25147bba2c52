// lumx-dspsim as a program: command line, readiness marker, statistics
// output, signals and clean-up, run as a child process in a temp directory.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/daemon_process.h"
#include "support/daemon_test_util.h"
#include "tools/lumx-dspsim/sim_runner.h"
#include "tools/lumx-dspsim/tap_table.h"

namespace lumx::dspsim {
namespace {

using lumx_test::ReadFileText;

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// One run of lumx-dspsim with its standard output and error in files.
class Child {
 public:
  bool Start(const std::vector<std::string>& args, const std::vector<std::pair<std::string, std::string>>& env = {}) {
    return p_.Start(lumx_test::BuildBinary("tools/lumx-dspsim/lumx-dspsim"), args, env, logs_.Join("out"),
                    logs_.Join("err"));
  }
  // Exit code, or -1 when the child did not end in time (it is killed).
  int Wait() {
    int status = 0;
    if (!p_.WaitExit(20000, &status)) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  // Waits until standard output or error holds `needle` `times` times.
  bool WaitOut(const std::string& needle, int times = 1) { return WaitText(logs_.Join("out"), needle, times); }
  bool WaitErr(const std::string& needle, int times = 1) { return WaitText(logs_.Join("err"), needle, times); }
  void Signal(int sig) { p_.Signal(sig); }
  pid_t pid() const { return p_.pid(); }
  std::string out() const { return ReadFileText(logs_.Join("out")); }
  std::string err() const { return ReadFileText(logs_.Join("err")); }

 private:
  static bool WaitText(const std::string& path, const std::string& needle, int times) {
    return lumx_test::WaitUntil([&] {
      std::string text = ReadFileText(path);
      int n = 0;
      for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
      return n >= times;
    });
  }

  lumx_test::TempDir logs_{"dspsim-cli"};
  lumx_test::Subprocess p_;
};

TEST(DspsimCli, HelpDocumentsEveryOptionAndRule) {
  Child c;
  ASSERT_TRUE(c.Start({"--help"}));
  ASSERT_EQ(c.Wait(), 0);
  std::istringstream words(
      "--dev-root --buffers --tapouts --injects --taps --print-taps --source --record --stats --duration "
      "--ready-file --seed --node-gap-ms --verbose --fault-restart-every --fault-restart-down-ms "
      "--fault-restart-keep-state --fault-delay-reply-ms --fault-delay-rate --fault-drop-reply "
      "--fault-stray-reply --fault-error-status --fault-split --fault-stale --fault-misalign "
      "--fault-bad-version --fault-oversize --fault-jump --fault-jump-by --fault-pause --fault-piece-gap-us "
      "--fault-tapout --fault-endless-list --fault-unmatched-replies --fault-flap-every "
      "LUMX_DEV_ROOT SIGUSR1 SIGUSR2 SIGTERM 65472 latency_us");
  std::vector<std::string> needles = {"lumx-dspsim: ready", "-90 EMSGSIZE", "-95 EOPNOTSUPP", "-19 ENODEV",
                                      "-2 ENOENT", "-22 EINVAL", "-34 ERANGE", "multiple of 480",
                                      "CORE CODE.INDEX RATE BLOCK CHANNELS BITS"};
  for (std::string w; words >> w;) needles.push_back(w);
  std::string out = c.out();
  for (const std::string& needle : needles) EXPECT_NE(out.find(needle), std::string::npos) << needle;

  // --print-taps writes the built-in table in the form --taps reads.
  Child print;
  ASSERT_TRUE(print.Start({"--print-taps"}));
  ASSERT_EQ(print.Wait(), 0);
  std::vector<TapEntry> taps;
  std::string err;
  ASSERT_TRUE(ParseTapTable(print.out(), &taps, &err)) << err;
  ASSERT_EQ(taps.size(), 11u) << "five taps on core 2, two on core 3, four on core 4";
  EXPECT_EQ(TapLongName(taps[0]), "2:imic.0");
}

TEST(DspsimCli, BadArgumentsExitWith2AndSayWhy) {
  TempDir dir;
  std::string table = dir.File("taps.txt");
  std::ofstream(table) << "2 imic.0 48000 481 1 16\n";
  struct Case {
    std::vector<std::string> args;
    const char* needle;
  } cases[] = {
      {{"--dev-root", dir.path(), "--bogus"}, "unknown option '--bogus'"},
      {{"--dev-root", dir.path(), "--fault-drop-reply", "1.5"}, "--fault-drop-reply"},
      {{"--dev-root", dir.path(), "--buffers", "20,300"}, "--buffers"},
      {{"--dev-root", dir.path(), "--taps", table}, "line 1"},
      {{"--dev-root", dir.path(), "--fault-error-status", "205"}, "OPCODE=STATUS"},
      {{"--duration"}, "needs a value"},
      {{"--duration", "1"}, "--dev-root"},  // and no LUMX_DEV_ROOT either
  };
  for (const Case& k : cases) {
    Child c;
    ASSERT_TRUE(c.Start(k.args, {{"LUMX_DEV_ROOT", ""}}));
    EXPECT_EQ(c.Wait(), 2) << k.needle;
    EXPECT_NE(c.err().find(k.needle), std::string::npos) << c.err();
  }
  EXPECT_FALSE(Exists(dir.File("zch-lumx_control")));
}

TEST(DspsimCli, DurationRunReplacesStaleNodesAnnouncesReadinessWritesStatsAndCleansUp) {
  TempDir dir;
  std::string dev = dir.File("dev"), stats = dir.File("stats.json"), ready = dir.File("ready");
  // What a killed run leaves behind.
  ASSERT_EQ(mkdir(dev.c_str(), 0700), 0);
  ASSERT_EQ(symlink("/nonexistent", (dev + "/zch-lumx_control").c_str()), 0);
  ASSERT_EQ(mkfifo((dev + "/zch-lumx_tapout20").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo((dev + "/lum").c_str(), 0600), 0);
  Child c;
  ASSERT_TRUE(c.Start({"--dev-root", dev, "--duration", "0.5", "--stats", stats, "--ready-file", ready,
                       "--buffers", "20,40"}));
  ASSERT_TRUE(lumx_test::WaitUntil([&] { return Exists(ready); }));
  EXPECT_EQ(ReadFileText(ready), "ready " + std::to_string(c.pid()) + "\n");
  EXPECT_TRUE(Exists(dev + "/zch-lumx_tapout40"));
  EXPECT_FALSE(Exists(dev + "/zch-lumx_tapout21"));
  ASSERT_EQ(c.Wait(), 0) << c.err();
  EXPECT_NE(c.err().find("lumx-dspsim: ready " + dev + "\n"), std::string::npos) << c.err();
  std::string json = ReadFileText(stats);
  EXPECT_EQ(json.rfind("{\"tool\":\"lumx-dspsim\",\"final\":true,", 0), 0u) << json;
  EXPECT_NE(json.find("\"node\":\"zch-lumx_inject40\""), std::string::npos);
  for (const char* n : {"lum", "zch-lumx_control", "zch-lumx_tapout20", "zch-lumx_inject40"}) {
    EXPECT_FALSE(Exists(dev + "/" + n)) << n;
  }
}

TEST(DspsimCli, SignalsDumpStatsRestartAndStop) {
  TempDir dir;
  Child c;
  ASSERT_TRUE(c.Start({"--stats", "-", "--fault-restart-down-ms", "100"}, {{"LUMX_DEV_ROOT", dir.path()}}));
  ASSERT_TRUE(c.WaitErr("lumx-dspsim: ready " + dir.path()));
  EXPECT_TRUE(Exists(dir.File("zch-lumx_control")));
  c.Signal(SIGUSR1);
  ASSERT_TRUE(c.WaitOut("\"final\":false"));
  c.Signal(SIGUSR2);
  ASSERT_TRUE(c.WaitErr("lumx-dspsim: ready", 2));
  c.Signal(SIGTERM);
  ASSERT_EQ(c.Wait(), 0);
  std::string out = c.out();
  ASSERT_NE(out.find("\"final\":true"), std::string::npos) << out;
  EXPECT_NE(out.find("\"restart\":1"), std::string::npos) << out;
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2) << "one line per document";
  EXPECT_FALSE(Exists(dir.File("zch-lumx_control")));
  EXPECT_FALSE(Exists(dir.File("lum")));
}

}  // namespace
}  // namespace lumx::dspsim
