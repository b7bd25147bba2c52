// A short soak of the whole system: lumxd against lumx-dspsim while the DSP
// restarts under control traffic, as the long run of scripts/soak.sh does for
// minutes. The simulator holds every control reply back for 200 ms, so a
// restart almost always lands while a command is waiting for its reply: the
// control node's pty goes away under the waiting daemon. The daemon must get
// out of that wait, keep answering, pick the new nodes up, stream MIC_IN
// again once it is enabled again, and end by the signal it is sent with a
// clean sanitizer log.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/daemon_process.h"
#include "support/daemon_test_util.h"

namespace {

using lumx_test::BuildBinary;
using lumx_test::ReadFileText;
using lumx_test::RunToCompletion;
using lumx_test::Subprocess;
using lumx_test::TempDir;
using lumx_test::WaitUntil;

using Env = std::vector<std::pair<std::string, std::string>>;

// Every wait is generous: this runs beside other tests on a loaded 2-core
// machine, under sanitizers. Nothing here measures speed.
constexpr int kLongMs = 60000;
// One lumx call: a healthy daemon answers in well under a second even under
// sanitizers; a call still open after this is a stuck daemon.
constexpr int kCallMs = 20000;

// packets_received of one inject node in the simulator's statistics, -1 if absent.
long InjectPackets(const std::string& json, int id) {
  const std::string node = "\"node\":\"zch-lumx_inject" + std::to_string(id) + "\"";
  size_t at = json.find(node);
  if (at == std::string::npos) return -1;
  const std::string key = "\"packets_received\":";
  at = json.find(key, at);
  if (at == std::string::npos) return -1;
  return atol(json.c_str() + at + key.size());
}

// The last `bytes` of a file (a stuck daemon can log a lot).
std::string Tail(const std::string& path, long bytes = 1500) {
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) return "";
  fseek(f, 0, SEEK_END);
  const long size = ftell(f);
  fseek(f, size > bytes ? size - bytes : 0, SEEK_SET);
  std::string text(static_cast<size_t>(size > bytes ? bytes : size), '\0');
  text.resize(fread(&text[0], 1, text.size(), f));
  fclose(f);
  return text;
}

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
    lumxd_ = BuildBinary("lumxd");
    lumx_ = BuildBinary("tools/lumx/lumx");
    sim_ = BuildBinary("tools/lumx-dspsim/lumx-dspsim");
    if (lumxd_.empty() || lumx_.empty() || sim_.empty()) GTEST_SKIP() << "lumxd, lumx or lumx-dspsim not built";
    dev_ = dir_.Join("dev");
    mkdir(dev_.c_str(), 0755);
    mkdir(dir_.Join("binder").c_str(), 0700);
    mkdir(dir_.Join("sysfs").c_str(), 0755);
    mkdir(dir_.Join("sysfs/power").c_str(), 0755);
    dir_.Touch("sysfs/power/wake_lock");
    dir_.Touch("sysfs/power/wake_unlock");
    env_ = {{"LUMX_DEV_ROOT", dev_}, {"LUMX_BINDER_DIR", dir_.Join("binder")},
            {"LUMX_SYSFS_ROOT", dir_.Join("sysfs")}};
  }

  bool StartSim(const std::vector<std::string>& extra) {
    std::vector<std::string> args = {"--dev-root", dev_, "--stats", dir_.Join("stats.json"),
                                     "--ready-file", dir_.Join("ready")};
    args.insert(args.end(), extra.begin(), extra.end());
    if (!sim_proc_.Start(sim_, args, env_, "", dir_.Join("sim.log"))) return false;
    return WaitUntil([&] { return access(dir_.Join("ready").c_str(), F_OK) == 0; }, kLongMs);
  }

  bool StartDaemon() {
    if (!daemon_.Start(lumxd_, {}, env_, dir_.Join("lumxd.out"), dir_.Join("lumxd.log"))) return false;
    return WaitUntil([&] { return Lumx({"Ping"}) == 0; }, kLongMs);
  }

  int Lumx(const std::vector<std::string>& args, std::string* out = nullptr) {
    return RunToCompletion(lumx_, args, env_, out, nullptr, kCallMs);
  }

  // "ready" lines the simulator has printed: one at start, one per restart.
  int ReadyCount() {
    const std::string log = ReadFileText(dir_.Join("sim.log"));
    int n = 0;
    for (size_t at = log.find("lumx-dspsim: ready"); at != std::string::npos;
         at = log.find("lumx-dspsim: ready", at + 1)) {
      ++n;
    }
    return n;
  }

  long Injected(int id) {
    const std::string path = dir_.Join("stats.json");
    const std::string before = ReadFileText(path);
    sim_proc_.Signal(SIGUSR1);
    std::string now;
    WaitUntil([&] {
      now = ReadFileText(path);
      return !now.empty() && now != before;
    }, kLongMs);
    return InjectPackets(now, id);
  }

  // Enables MIC_IN (a step may fail while the buffers are being rescanned,
  // so it is retried) and waits for packets on inject node 20.
  bool MicInStreams() {
    const long base = Injected(20);
    if (!WaitUntil([&] { return Lumx({"EnableUseCase", "MIC_IN", "1"}) == 0; }, kLongMs)) return false;
    return WaitUntil([&] { return Injected(20) >= base + 10; }, kLongMs);
  }

  TempDir dir_{"lumx-soak"};
  std::string lumxd_, lumx_, sim_, dev_;
  Env env_;
  Subprocess sim_proc_;
  Subprocess daemon_;
};

TEST_F(SoakRestartTest, DaemonSurvivesDspRestartsDuringControlCommands) {
  // Every reply 200 ms late: the daemon spends most of each command waiting.
  ASSERT_TRUE(StartSim({"--fault-delay-reply-ms", "200"}));
  ASSERT_TRUE(StartDaemon());
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
    const int ready = ReadyCount();
    const int before = calls.load();
    // Let a command be in flight, then take the DSP away under it.
    WaitUntil([&] { return calls.load() > before; }, kLongMs);
    usleep(100 * 1000);
    ASSERT_TRUE(sim_proc_.Signal(SIGUSR2));
    ASSERT_TRUE(WaitUntil([&] { return ReadyCount() > ready; }, kLongMs)) << "restart " << restart;
  }
  stop = true;
  traffic.join();

  // Still answering, and streaming again once the use case is enabled anew.
  ASSERT_TRUE(daemon_.Running());
  ASSERT_EQ(Lumx({"Ping"}), 0) << "lumxd stopped answering; its log ends with:\n"
                               << Tail(dir_.Join("lumxd.log"));
  std::string graph;
  EXPECT_EQ(Lumx({"ShowGraph"}, &graph), 0) << graph;
  EXPECT_TRUE(MicInStreams());

  int status = 0;
  ASSERT_TRUE(daemon_.Signal(SIGTERM));
  ASSERT_TRUE(daemon_.WaitExit(kLongMs, &status));
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << "wait status " << status;
  EXPECT_FALSE(HasSanitizerReport(ReadFileText(dir_.Join("lumxd.log"))));
}

TEST_F(SoakRestartTest, StreamsResumeAfterEveryRestartWithPacketFaults) {
  // Split, stale, misaligned, renumbered and corrupt packets on the stream,
  // and two restarts: MIC_IN comes back each time it is enabled again.
  ASSERT_TRUE(StartSim({"--fault-split", "0.2", "--fault-stale", "0.1", "--fault-misalign", "0.05",
                        "--fault-bad-version", "0.05", "--fault-oversize", "0.05", "--fault-jump", "0.05"}));
  ASSERT_TRUE(StartDaemon());
  ASSERT_TRUE(MicInStreams());
  for (int restart = 1; restart <= 2; ++restart) {
    const int ready = ReadyCount();
    ASSERT_TRUE(sim_proc_.Signal(SIGUSR2));
    ASSERT_TRUE(WaitUntil([&] { return ReadyCount() > ready; }, kLongMs));
    EXPECT_TRUE(MicInStreams()) << "after restart " << restart;
  }
  EXPECT_EQ(Lumx({"Ping"}), 0);
  ASSERT_TRUE(daemon_.Running());
  EXPECT_FALSE(HasSanitizerReport(ReadFileText(dir_.Join("lumxd.log"))));
}

}  // namespace
