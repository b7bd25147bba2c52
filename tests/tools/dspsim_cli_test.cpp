// lumx-dspsim as a program: command line, readiness marker, statistics
// output, signals and clean-up, run as a child process in a temp directory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "tools/lumx-dspsim/sim_runner.h"
#include "tools/lumx-dspsim/tap_table.h"

extern char** environ;

namespace lumx::dspsim {
namespace {

constexpr int kWaitMs = 20000;

std::string DspsimBinary() {
  if (const char* p = getenv("LUMX_DSPSIM_BIN")) return p;
  if (const char* b = getenv("LUMX_BUILD_DIR"))
    return std::string(b) + "/tools/lumx-dspsim/lumx-dspsim";
#ifdef LUMX_BINARY_DIR
  return std::string(LUMX_BINARY_DIR) + "/tools/lumx-dspsim/lumx-dspsim";
#else
  return "lumx-dspsim";
#endif
}

int64_t NowMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

bool WaitFor(const std::function<bool()>& done) {
  for (int i = 0; i < kWaitMs / 10; ++i) {
    if (done()) return true;
    usleep(10000);
  }
  return done();
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// One child process with its standard output and error on pipes.
class Child {
 public:
  ~Child() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }

  // `env` entries ("NAME=value", or "NAME=" to drop NAME) adjust ours.
  bool Spawn(const std::vector<std::string>& args, const std::vector<std::string>& env = {}) {
    int outPipe[2], errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) return false;
    out_.reset(outPipe[0]);
    err_.reset(errPipe[0]);
    lumx::unique_fd outW(outPipe[1]), errW(errPipe[1]);
    std::vector<std::string> envs;
    for (char** e = environ; *e != nullptr; ++e) {
      std::string kv = *e;
      bool replaced = false;
      for (const std::string& x : env) {
        replaced = replaced || kv.compare(0, x.find('=') + 1, x, 0, x.find('=') + 1) == 0;
      }
      if (!replaced) envs.push_back(kv);
    }
    for (const std::string& x : env) {
      if (x.back() != '=') envs.push_back(x);
    }
    std::vector<std::string> all = {DspsimBinary()};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv, envp;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    for (std::string& e : envs) envp.push_back(e.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, outW.get(), 1);
    posix_spawn_file_actions_adddup2(&fa, errW.get(), 2);
    int rc = posix_spawn(&pid_, argv[0], &fa, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&fa);
    if (rc != 0) pid_ = -1;
    return rc == 0;
  }

  // Exit code, or -1 when the child did not end in time (it is killed).
  int Wait(int timeoutMs = kWaitMs) {
    int64_t end = NowMs() + timeoutMs;
    for (;;) {
      Drain();
      int status;
      pid_t r = waitpid(pid_, &status, WNOHANG);
      if (r == pid_) {
        pid_ = -1;
        Drain();
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
      if (NowMs() > end) return -1;
      usleep(10000);
    }
  }

  // Waits until the collected standard output/error contains `needle` `times` times.
  bool WaitOut(const std::string& needle, int times = 1) {
    return WaitText(&out_text_, needle, times);
  }
  bool WaitErr(const std::string& needle, int times = 1) {
    return WaitText(&err_text_, needle, times);
  }

  void Signal(int sig) { kill(pid_, sig); }
  pid_t pid() const { return pid_; }
  const std::string& out() const { return out_text_; }
  const std::string& err() const { return err_text_; }

 private:
  static int Count(const std::string& hay, const std::string& needle) {
    int n = 0;
    for (size_t at = hay.find(needle); at != std::string::npos; at = hay.find(needle, at + 1)) ++n;
    return n;
  }
  bool WaitText(std::string* text, const std::string& needle, int times) {
    int64_t end = NowMs() + kWaitMs;
    while (Count(*text, needle) < times) {
      if (NowMs() > end) return false;
      struct pollfd p[2] = {{out_.get(), POLLIN, 0}, {err_.get(), POLLIN, 0}};
      poll(p, 2, 50);
      Drain();
    }
    return true;
  }
  void Drain() {
    for (auto [fd, text] : {std::make_pair(&out_, &out_text_), std::make_pair(&err_, &err_text_)}) {
      if (!fd->ok()) continue;
      struct pollfd p = {fd->get(), POLLIN, 0};
      char buf[4096];
      while (poll(&p, 1, 0) == 1 && (p.revents & (POLLIN | POLLHUP)) != 0) {
        ssize_t n = read(fd->get(), buf, sizeof buf);
        if (n <= 0) {
          fd->reset();
          break;
        }
        text->append(buf, static_cast<size_t>(n));
      }
    }
  }

  pid_t pid_ = -1;
  lumx::unique_fd out_, err_;
  std::string out_text_, err_text_;
};

TEST(DspsimCli, HelpDocumentsEveryOptionAndRule) {
  Child c;
  ASSERT_TRUE(c.Spawn({"--help"}));
  ASSERT_EQ(c.Wait(), 0);
  for (const char* needle : {"--dev-root",
                             "--buffers",
                             "--tapouts",
                             "--injects",
                             "--taps",
                             "--print-taps",
                             "--source",
                             "--record",
                             "--stats",
                             "--duration",
                             "--ready-file",
                             "--seed",
                             "--node-gap-ms",
                             "--verbose",
                             "--fault-restart-every",
                             "--fault-restart-down-ms",
                             "--fault-restart-keep-state",
                             "--fault-delay-reply-ms",
                             "--fault-delay-rate",
                             "--fault-drop-reply",
                             "--fault-stray-reply",
                             "--fault-error-status",
                             "--fault-split",
                             "--fault-stale",
                             "--fault-misalign",
                             "--fault-bad-version",
                             "--fault-oversize",
                             "--fault-jump",
                             "--fault-jump-by",
                             "--fault-pause",
                             "--fault-piece-gap-us",
                             "--fault-tapout",
                             "LUMX_DEV_ROOT",
                             "SIGUSR1",
                             "SIGUSR2",
                             "SIGTERM",
                             "lumx-dspsim: ready",
                             "-90 EMSGSIZE",
                             "-95 EOPNOTSUPP",
                             "-19 ENODEV",
                             "-2 ENOENT",
                             "-22 EINVAL",
                             "-34 ERANGE",
                             "multiple of 480",
                             "65472",
                             "latency_us",
                             "CORE CODE.INDEX RATE BLOCK CHANNELS BITS"}) {
    EXPECT_NE(c.out().find(needle), std::string::npos) << needle;
  }
}

TEST(DspsimCli, PrintTapsEmitsAReloadableTable) {
  Child c;
  ASSERT_TRUE(c.Spawn({"--print-taps"}));
  ASSERT_EQ(c.Wait(), 0);
  std::vector<TapEntry> taps;
  std::string err;
  ASSERT_TRUE(ParseTapTable(c.out(), &taps, &err)) << err;
  EXPECT_EQ(taps.size(), DefaultTapTable().size());
}

TEST(DspsimCli, BadArgumentsExitWith2AndSayWhy) {
  TempDir dir;
  std::string table = dir.File("taps.txt");
  std::ofstream(table) << "2 imic.0 48000 481 1 16\n";
  struct Case {
    std::vector<std::string> args;
    std::vector<std::string> env;
    const char* needle;
  } cases[] = {
      {{"--dev-root", dir.path(), "--bogus"}, {}, "unknown option '--bogus'"},
      {{"--dev-root", dir.path(), "--fault-drop-reply", "1.5"}, {}, "--fault-drop-reply"},
      {{"--dev-root", dir.path(), "--buffers", "20,300"}, {}, "--buffers"},
      {{"--dev-root", dir.path(), "--taps", table}, {}, "line 1"},
      {{"--dev-root", dir.path(), "--fault-error-status", "205"}, {}, "OPCODE=STATUS"},
      {{"--duration"}, {}, "needs a value"},
      {{"--duration", "1"}, {"LUMX_DEV_ROOT="}, "--dev-root"},
  };
  for (const Case& k : cases) {
    Child c;
    ASSERT_TRUE(c.Spawn(k.args, k.env));
    EXPECT_EQ(c.Wait(), 2) << k.needle;
    EXPECT_NE(c.err().find(k.needle), std::string::npos) << c.err();
  }
  EXPECT_FALSE(Exists(dir.File("zch-lumx_control")));
}

TEST(DspsimCli, DurationRunAnnouncesReadinessWritesStatsAndCleansUp) {
  TempDir dir;
  std::string dev = dir.File("dev");
  std::string stats = dir.File("stats.json");
  std::string ready = dir.File("ready");
  Child c;
  ASSERT_TRUE(c.Spawn({"--dev-root", dev, "--duration", "0.5", "--stats", stats, "--ready-file",
                       ready, "--buffers", "20,40"}));
  ASSERT_TRUE(WaitFor([&] { return Exists(ready); }));
  EXPECT_EQ(ReadFile(ready), "ready " + std::to_string(c.pid()) + "\n");
  EXPECT_TRUE(Exists(dev + "/zch-lumx_tapout40"));
  EXPECT_FALSE(Exists(dev + "/zch-lumx_tapout21"));
  ASSERT_EQ(c.Wait(), 0);
  EXPECT_NE(c.err().find("lumx-dspsim: ready " + dev + "\n"), std::string::npos) << c.err();
  std::string json = ReadFile(stats);
  EXPECT_EQ(json.rfind("{\"tool\":\"lumx-dspsim\",\"final\":true,", 0), 0u) << json;
  EXPECT_NE(json.find("\"node\":\"zch-lumx_inject40\""), std::string::npos);
  for (const char* n : {"lum", "zch-lumx_control", "zch-lumx_tapout20", "zch-lumx_inject40"}) {
    EXPECT_FALSE(Exists(dev + "/" + n)) << n;
  }
}

TEST(DspsimCli, SignalsDumpStatsRestartAndStop) {
  TempDir dir;
  Child c;
  ASSERT_TRUE(
      c.Spawn({"--stats", "-", "--fault-restart-down-ms", "100"}, {"LUMX_DEV_ROOT=" + dir.path()}));
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

TEST(DspsimCli, ReplacesStaleNodesOfAnEarlierRun) {
  TempDir dir;
  // What a killed run leaves behind.
  ASSERT_EQ(symlink("/nonexistent", dir.File("zch-lumx_control").c_str()), 0);
  ASSERT_EQ(mkfifo(dir.File("zch-lumx_tapout20").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(dir.File("lum").c_str(), 0600), 0);
  Child c;
  ASSERT_TRUE(
      c.Spawn({"--dev-root", dir.path(), "--duration", "0.3", "--stats", dir.File("stats.json")}));
  ASSERT_EQ(c.Wait(), 0) << c.err();
  EXPECT_NE(c.err().find("lumx-dspsim: ready"), std::string::npos);
}

}  // namespace
}  // namespace lumx::dspsim
