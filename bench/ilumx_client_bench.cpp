// Control path of lumxd as a client sees it: calls per second and latency
// percentiles of Ping, ListProcessors and TapInfo from 1 and 8 client threads
// sharing one service proxy, against the transport's own floor measured in
// the same run on the same daemon: AIBinder_ping, which the binder runtime of
// the daemon answers without entering the service.
//
// With $LUMX_BINDER_DIR naming a directory where lumxd is registered the
// benchmark attaches to that daemon (scripts/bench.sh does so). Otherwise it
// starts its own lumx-dspsim and lumxd from the build tree, in private
// temporary directories that are removed afterwards.
//
// Extra flags (before the Google Benchmark ones):
//   --calls=N          calls per operation and thread count (default 20000),
//                      shared out over the threads and the rounds
//   --rounds=N         the operations run in N interleaved rounds (default 5),
//                      so that a burst of load from elsewhere on the machine
//                      falls on all of them alike
//   --json-out=FILE    also write the figures as JSON
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <aidl/lumx/ILumx.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

extern char** environ;

namespace {

using aidl::lumx::ILumx;
using Clock = std::chrono::steady_clock;

constexpr int32_t kImic = 0x696d6963;  // "imic", core 2, index 0: always in the simulator

std::shared_ptr<ILumx> gService;
AIBinder* gBinder = nullptr;  // the proxy under gService (not owned)
long gCalls = 20000;
long gRounds = 5;

// ---- Samples of every benchmark, merged by the threads at the end of a run ----

struct Samples {
  std::vector<double> latencyUs;
  double wallS = 0;  // summed over the rounds
  long errors = 0;
};

// Start and end of the current run of each benchmark (all its threads).
struct Span {
  Clock::time_point first = Clock::time_point::max();
  Clock::time_point last = Clock::time_point::min();
  int pending = 0;
};

std::mutex gSamplesMutex;
std::map<std::pair<std::string, int>, Samples> gSamples;
std::map<std::pair<std::string, int>, Span> gSpans;

// Called by every thread of a run once its loop is done; the last one adds
// the run's wall time (first start to last end) to the figures.
void Merge(const std::string& op, int threads, const std::vector<double>& lat, Clock::time_point start,
           Clock::time_point end, long errors) {
  std::lock_guard<std::mutex> lock(gSamplesMutex);
  Samples& s = gSamples[{op, threads}];
  s.latencyUs.insert(s.latencyUs.end(), lat.begin(), lat.end());
  s.errors += errors;
  Span& span = gSpans[{op, threads}];
  if (span.pending == 0) span.pending = threads;
  span.first = std::min(span.first, start);
  span.last = std::max(span.last, end);
  if (--span.pending == 0) {
    s.wallS += std::chrono::duration<double>(span.last - span.first).count();
    span = Span();
  }
}

// One call of `op`; false when the transport failed or the service refused.
using CallFn = bool (*)();

bool CallBinderPing() { return AIBinder_ping(gBinder) == STATUS_OK; }
bool CallPing() { return gService->Ping().isOk(); }
bool CallListProcessors() {
  ILumx::CommandResult r;
  return gService->ListProcessors(&r).isOk() && r.status == ILumx::CommandResult::Status::OK;
}
bool CallTapInfo() {
  ILumx::CommandResult r;
  return gService->TapInfo(2, kImic, 0, &r).isOk() && r.status == ILumx::CommandResult::Status::OK;
}

void RunOp(benchmark::State& state, const std::string& op, CallFn fn) {
  std::vector<double> lat;
  lat.reserve(static_cast<size_t>(state.max_iterations));
  long errors = 0;
  const Clock::time_point start = Clock::now();
  for (auto _ : state) {
    const Clock::time_point t0 = Clock::now();
    if (!fn()) ++errors;
    lat.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
  }
  const Clock::time_point end = Clock::now();
  state.SetItemsProcessed(state.iterations());
  if (errors != 0) state.counters["errors"] = static_cast<double>(errors);
  Merge(op, state.threads(), lat, start, end, errors);
}

double Percentile(std::vector<double>& v, double q) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  size_t i = static_cast<size_t>(q * static_cast<double>(v.size() - 1) + 0.5);
  return v[std::min(i, v.size() - 1)];
}

// ---- A private simulator and daemon when none is given ----

class OwnDaemon {
 public:
  ~OwnDaemon() { Stop(); }

  bool Start() {
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n <= 0) return false;
    self[n] = '\0';
    std::string dir(self);
    dir = dir.substr(0, dir.rfind('/'));  // <build>/bench
    const std::string build = dir.substr(0, dir.rfind('/'));
    const std::string lumxd = build + "/lumxd";
    const std::string sim = build + "/tools/lumx-dspsim/lumx-dspsim";
    if (access(lumxd.c_str(), X_OK) != 0 || access(sim.c_str(), X_OK) != 0) {
      fprintf(stderr, "ilumx_client_bench: %s or %s missing\n", lumxd.c_str(), sim.c_str());
      return false;
    }
    char tmpl[] = "/tmp/lumx_client_bench.XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return false;
    root_ = tmpl;
    const std::string dev = root_ + "/dev";
    const std::string binder = root_ + "/binder";
    const std::string sysfs = root_ + "/sysfs";
    mkdir(dev.c_str(), 0755);
    mkdir(binder.c_str(), 0700);
    mkdir(sysfs.c_str(), 0755);
    mkdir((sysfs + "/power").c_str(), 0755);
    setenv("LUMX_DEV_ROOT", dev.c_str(), 1);
    setenv("LUMX_BINDER_DIR", binder.c_str(), 1);
    setenv("LUMX_SYSFS_ROOT", sysfs.c_str(), 1);
    const std::string ready = root_ + "/sim.ready";
    simPid_ = Spawn({sim, "--dev-root", dev, "--ready-file", ready, "--stats",
                     root_ + "/sim.json"},
                    root_ + "/sim.log");
    if (simPid_ < 0 || !WaitFor([&] { return access(ready.c_str(), F_OK) == 0; })) return false;
    daemonPid_ = Spawn({lumxd}, root_ + "/lumxd.log");
    return daemonPid_ > 0;
  }

  void Stop() {
    for (pid_t* pid : {&daemonPid_, &simPid_}) {
      if (*pid > 0) {
        kill(*pid, SIGTERM);
        int st = 0;
        waitpid(*pid, &st, 0);
        *pid = -1;
      }
    }
    if (!root_.empty()) {
      std::string cmd = "rm -rf '" + root_ + "'";
      if (system(cmd.c_str()) != 0) fprintf(stderr, "ilumx_client_bench: could not remove %s\n", root_.c_str());
      root_.clear();
    }
  }

 private:
  template <typename F>
  static bool WaitFor(F f) {
    for (int i = 0; i < 200; ++i) {
      if (f()) return true;
      usleep(50 * 1000);
    }
    return false;
  }

  static pid_t Spawn(const std::vector<std::string>& args, const std::string& log) {
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&fa, 1, 2);
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&fa);
    return pid;
  }

  std::string root_;
  pid_t simPid_ = -1;
  pid_t daemonPid_ = -1;
};

std::shared_ptr<ILumx> Connect(int attempts) {
  const std::string name = std::string(ILumx::descriptor) + "/default";
  for (int i = 0; i < attempts; ++i) {
    ndk::SpAIBinder b(AServiceManager_checkService(name.c_str()));
    if (b.get() != nullptr) return ILumx::fromBinder(b);
    usleep(100 * 1000);
  }
  return nullptr;
}

struct Op {
  const char* name;
  CallFn fn;
};
const Op kOps[] = {
    {"binder_ping", CallBinderPing},  // baseline: answered by the runtime
    {"Ping", CallPing},
    {"ListProcessors", CallListProcessors},
    {"TapInfo", CallTapInfo},
};
const int kThreadCounts[] = {1, 8};

}  // namespace

int main(int argc, char** argv) {
  std::string jsonOut;
  std::vector<char*> rest;
  for (int i = 0; i < argc; ++i) {
    if (strncmp(argv[i], "--calls=", 8) == 0) {
      gCalls = std::max(8L, atol(argv[i] + 8));
    } else if (strncmp(argv[i], "--rounds=", 9) == 0) {
      gRounds = std::max(1L, atol(argv[i] + 9));
    } else if (strncmp(argv[i], "--json-out=", 11) == 0) {
      jsonOut = argv[i] + 11;
    } else {
      rest.push_back(argv[i]);
    }
  }
  int restc = static_cast<int>(rest.size());

  OwnDaemon own;
  if (getenv("LUMX_BINDER_DIR") != nullptr) gService = Connect(20);
  if (!gService) {
    if (!own.Start()) {
      fprintf(stderr, "ilumx_client_bench: could not start lumx-dspsim and lumxd\n");
      return 1;
    }
    gService = Connect(100);
  }
  if (!gService) {
    fprintf(stderr, "ilumx_client_bench: lumxd not reachable\n");
    return 1;
  }
  gBinder = gService->asBinder().get();

  for (long round = 0; round < gRounds; ++round) {
    for (int t : kThreadCounts) {
      for (const Op& op : kOps) {
        const std::string name = op.name;
        CallFn fn = op.fn;
        benchmark::RegisterBenchmark(("BM_" + name).c_str(),
                                     [name, fn](benchmark::State& s) { RunOp(s, name, fn); })
            ->Threads(t)
            ->Iterations(std::max(1L, gCalls / gRounds / t))
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
      }
    }
  }
  benchmark::Initialize(&restc, rest.data());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  // Table of the figures, each op against the transport floor at the same
  // thread count.
  struct Row {
    std::string op;
    int threads;
    double perS, p50, p99, max;
    size_t calls;
    long errors;
  };
  std::vector<Row> rows;
  std::map<int, double> baseP99;
  for (const Op& op : kOps) {
    for (int t : kThreadCounts) {
      auto it = gSamples.find({op.name, t});
      if (it == gSamples.end()) continue;
      Samples& s = it->second;
      const double wall = s.wallS;
      Row r{op.name,
            t,
            wall > 0 ? static_cast<double>(s.latencyUs.size()) / wall : 0,
            Percentile(s.latencyUs, 0.50),
            Percentile(s.latencyUs, 0.99),
            s.latencyUs.empty() ? 0 : s.latencyUs.back(),
            s.latencyUs.size(),
            s.errors};
      if (r.op == "binder_ping") baseP99[t] = r.p99;
      rows.push_back(r);
    }
  }
  printf("\n%-16s %7s %10s %9s %9s %9s %8s %7s\n", "operation", "threads", "calls/s", "p50 us",
         "p99 us", "max us", "errors", "p99/base");
  for (const Row& r : rows) {
    const double base = baseP99.count(r.threads) ? baseP99[r.threads] : 0;
    printf("%-16s %7d %10.0f %9.1f %9.1f %9.1f %8ld %7.2f\n", r.op.c_str(), r.threads, r.perS, r.p50,
           r.p99, r.max, r.errors, base > 0 ? r.p99 / base : 0.0);
  }
  printf("(baseline: binder_ping, the runtime's own ping of the same daemon; p99/base is the ratio)\n");

  if (!jsonOut.empty()) {
    FILE* f = fopen(jsonOut.c_str(), "w");
    if (f == nullptr) {
      fprintf(stderr, "ilumx_client_bench: cannot write %s\n", jsonOut.c_str());
      return 1;
    }
    fprintf(f, "[");
    for (size_t i = 0; i < rows.size(); ++i) {
      const Row& r = rows[i];
      const double base = baseP99.count(r.threads) ? baseP99[r.threads] : 0;
      fprintf(f,
              "%s{\"op\":\"%s\",\"threads\":%d,\"calls\":%zu,\"calls_per_s\":%.1f,\"p50_us\":%.1f,"
              "\"p99_us\":%.1f,\"max_us\":%.1f,\"errors\":%ld,\"p99_over_baseline\":%.3f}",
              i == 0 ? "" : ",", r.op.c_str(), r.threads, r.calls, r.perS, r.p50, r.p99, r.max, r.errors,
              base > 0 ? r.p99 / base : 0.0);
    }
    fprintf(f, "]\n");
    fclose(f);
  }
  gService.reset();
  own.Stop();
  return 0;
}
