// Round trip of one TapInfo: client -> binder -> lumxd -> control device ->
// lumx-dspsim and back, against the bare control-device exchange with a
// second simulator (the floor the daemon adds its cost to), measured in the
// same run. Prints both times and their ratio.
#include <android/binder_manager.h>
#include <aidl/lumx/ILumx.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <ftw.h>
#include <limits.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/lumx_utils.h"
#include "common/unique_fd.h"
#include "common/wire.h"
#include "daemon/lumx_control.h"

extern char** environ;

namespace {

using aidl::lumx::ILumx;

constexpr int32_t kImic = 0x696d6963;

std::string BuildDir() {
  if (const char* dir = getenv("LUMX_BUILD_DIR")) return dir;
  char exe[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
  if (n <= 0) return ".";
  exe[n] = '\0';
  std::string path(exe);
  path.resize(path.rfind('/'));             // .../bench
  return path.substr(0, path.rfind('/'));  // the build directory
}

std::string MakeTempDir(const char* prefix) {
  std::string templ = std::string("/tmp/") + prefix + "-XXXXXX";
  std::vector<char> buf(templ.begin(), templ.end());
  buf.push_back('\0');
  return mkdtemp(buf.data()) != nullptr ? std::string(buf.data()) : std::string();
}

void RemoveTree(const std::string& path) {
  if (path.empty()) return;
  nftw(
      path.c_str(), [](const char* p, const struct stat*, int, struct FTW*) { return remove(p); }, 16,
      FTW_DEPTH | FTW_PHYS);
}

pid_t Spawn(const std::string& path, std::vector<std::string> args, const std::vector<std::string>& extraEnv) {
  args.insert(args.begin(), path);
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<std::string> envStore(extraEnv);
  for (char** e = environ; *e != nullptr; ++e) envStore.push_back(*e);  // later duplicates lose
  std::vector<char*> envp;
  for (auto& e : envStore) envp.push_back(const_cast<char*>(e.c_str()));
  envp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  if (posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

bool WaitFor(const std::function<bool()>& done, int timeoutMs = 20000) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// Two simulators: one behind the daemon, one for the bare exchange (a pty
// must have a single reader).
struct Setup {
  std::vector<std::string> dirs;
  std::vector<pid_t> children;
  std::shared_ptr<ILumx> service;
  lumx::unique_fd bareFd;
  std::string error;

  bool StartSim(const std::string& sim, const std::string& dev) {
    const std::string ready = dev + ".ready";
    pid_t pid = Spawn(sim, {"--dev-root", dev, "--ready-file", ready}, {});
    if (pid < 0) return false;
    children.push_back(pid);
    return WaitFor([&] { return access(ready.c_str(), F_OK) == 0; });
  }

  bool Start() {
    const std::string build = BuildDir();
    const std::string lumxd = build + "/lumxd";
    const std::string sim = build + "/tools/lumx-dspsim/lumx-dspsim";
    if (access(lumxd.c_str(), X_OK) != 0 || access(sim.c_str(), X_OK) != 0) {
      error = "needs " + lumxd + " and " + sim;
      return false;
    }
    const std::string root = MakeTempDir("lumx-bench");
    dirs.push_back(root);
    const std::string devDaemon = root + "/dev-daemon";
    const std::string devBare = root + "/dev-bare";
    const std::string binder = root + "/binder";
    const std::string sys = root + "/sys";
    mkdir(binder.c_str(), 0700);  // the binder runtime accepts only a private one
    for (const std::string& d : {sys, sys + "/power"}) mkdir(d.c_str(), 0755);
    lumx::unique_fd(open((sys + "/power/wake_lock").c_str(), O_CREAT | O_WRONLY, 0644));
    lumx::unique_fd(open((sys + "/power/wake_unlock").c_str(), O_CREAT | O_WRONLY, 0644));
    if (!StartSim(sim, devDaemon) || !StartSim(sim, devBare)) {
      error = "lumx-dspsim did not start";
      return false;
    }
    setenv("LUMX_BINDER_DIR", binder.c_str(), 1);
    pid_t daemon = Spawn(lumxd, {},
                         {"LUMX_DEV_ROOT=" + devDaemon, "LUMX_BINDER_DIR=" + binder, "LUMX_SYSFS_ROOT=" + sys});
    if (daemon < 0) return false;
    children.push_back(daemon);
    if (!WaitFor([&] {
          ::ndk::SpAIBinder b(AServiceManager_checkService(LumxDescriptor()));
          if (b.get() != nullptr) service = ILumx::fromBinder(b);
          return service != nullptr;
        })) {
      error = "lumxd did not register";
      return false;
    }
    bareFd.reset(open((devBare + "/zch-lumx_control").c_str(), O_RDWR | O_NONBLOCK));
    if (!bareFd.ok()) {
      error = "cannot open the bare control node";
      return false;
    }
    return true;
  }

  ~Setup() {
    service.reset();
    for (pid_t pid : children) kill(pid, SIGTERM);
    for (pid_t pid : children) {
      int status;
      waitpid(pid, &status, 0);
    }
    for (const auto& d : dirs) RemoveTree(d);
  }
};

Setup* gSetup = nullptr;

// One TAP_INFO exchange as the daemon does it, without the daemon.
bool BareTapInfo(int fd, uint8_t id) {
  uint8_t msg[kTapInfoCmdSize] = {};
  lumx::PutLe16(msg + kCmdHdrOpcodeOffset, CMD_LUMX_TAP_INFO_ID);
  msg[kCmdHdrIdOffset] = id;
  lumx::PutLe16(msg + kCmdHdrSizeOffset, kTapInfoCmdSize);
  lumx::PutLe32(msg + 8, static_cast<uint32_t>(kImic));
  msg[13] = 2;
  msg[26] = msg[27] = 0xFF;
  if (write(fd, msg, sizeof(msg)) != static_cast<ssize_t>(sizeof(msg))) return false;
  struct timeval timeout = {0, kCommandReplyTimeoutUs};
  for (;;) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    if (select(fd + 1, &set, nullptr, nullptr, &timeout) <= 0) return false;
    if (read(fd, msg, sizeof(msg)) != static_cast<ssize_t>(sizeof(msg))) return false;
    if (lumx::GetLe16(msg + kCmdHdrOpcodeOffset) == CMD_LUMX_TAP_INFO_ID) {
      return lumx::GetLe16(msg + kCmdHdrStatusOffset) == 0;
    }
  }
}

void BM_BareControlExchange(benchmark::State& state) {
  uint8_t id = 0;
  for (auto _ : state) {
    if (!BareTapInfo(gSetup->bareFd.get(), id++)) {
      state.SkipWithError("bare exchange failed");
      break;
    }
  }
}
BENCHMARK(BM_BareControlExchange)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_TapInfoThroughDaemon(benchmark::State& state) {
  for (auto _ : state) {
    CommandResult result;
    gSetup->service->TapInfo(2, kImic, 0, &result);
    if (result.status != CommandResult::Status::OK) {
      state.SkipWithError("TapInfo failed");
      break;
    }
  }
}
BENCHMARK(BM_TapInfoThroughDaemon)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Keeps each benchmark's mean real time per iteration for the summary.
class RecordingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0 && !run.error_occurred) {
        times[run.benchmark_name()] = run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Setup setup;
  if (!setup.Start()) {
    fprintf(stderr, "tapinfo_roundtrip_bench: %s\n", setup.error.c_str());
    return 1;
  }
  gSetup = &setup;
  RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  gSetup = nullptr;

  const auto bare = reporter.times.find("BM_BareControlExchange/real_time");
  const auto daemon = reporter.times.find("BM_TapInfoThroughDaemon/real_time");
  if (bare != reporter.times.end() && daemon != reporter.times.end() && bare->second > 0) {
    printf("baseline (bare control exchange with lumx-dspsim): %.1f us\n", bare->second);
    printf("TapInfo through binder, lumxd and lumx-dspsim:     %.1f us\n", daemon->second);
    printf("ratio: %.2fx\n", daemon->second / bare->second);
  }
  benchmark::Shutdown();
  return 0;
}
