// How long `lumx` takes to report a daemon it cannot reach: with no service
// socket at all, and with a socket that accepts but never answers, for
// --timeout 200 and the default 1000 ms. The baseline, measured in the same
// run, is `lumx --timeout 0` against no socket: starting the tool, one
// failed lookup and exiting. Prints each time, and the time beyond the
// baseline as a share of the time-out (1.00 = exactly the time-out).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <limits.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "common/unique_fd.h"

extern char** environ;

namespace {

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

// A private directory (mode 0700, as the binder runtime wants it).
std::string MakeDir() {
  char templ[] = "/tmp/lumx-unreachable-XXXXXX";
  return mkdtemp(templ) == nullptr ? "" : templ;
}

std::string gTool, gEmptyDir, gSilentDir;

// Runs lumx to its end; false unless it exits 69 (unreachable).
bool RunTool(const std::string& binderDir, int timeoutMs) {
  const std::string env = "LUMX_BINDER_DIR=" + binderDir;
  std::vector<char*> envp;
  for (char** e = environ; *e; ++e) {
    if (strncmp(*e, "LUMX_BINDER_DIR=", 16) != 0) envp.push_back(*e);
  }
  envp.push_back(const_cast<char*>(env.c_str()));
  envp.push_back(nullptr);
  const std::string timeout = std::to_string(timeoutMs);
  char* argv[] = {const_cast<char*>(gTool.c_str()), const_cast<char*>("--timeout"),
                  const_cast<char*>(timeout.c_str()), const_cast<char*>("ListProcessors"), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  const int rc = posix_spawn(&pid, gTool.c_str(), &actions, nullptr, argv, envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return false;
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return false;
  return WIFEXITED(status) && WEXITSTATUS(status) == 69;
}

void Measure(benchmark::State& state, const std::string& dir) {
  for (auto _ : state) {
    if (!RunTool(dir, static_cast<int>(state.range(0)))) {
      state.SkipWithError("lumx did not report an unreachable daemon");
      break;
    }
  }
}

void BM_ToolStartNoTimeout(benchmark::State& state) { Measure(state, gEmptyDir); }
BENCHMARK(BM_ToolStartNoTimeout)->Arg(0)->Iterations(10)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_NoSocket(benchmark::State& state) { Measure(state, gEmptyDir); }
BENCHMARK(BM_NoSocket)->Arg(200)->Arg(1000)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_SilentSocket(benchmark::State& state) { Measure(state, gSilentDir); }
BENCHMARK(BM_SilentSocket)->Arg(200)->Arg(1000)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);

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
  gTool = BuildDir() + "/tools/lumx/lumx";
  gEmptyDir = MakeDir();
  gSilentDir = MakeDir();
  if (access(gTool.c_str(), X_OK) != 0 || gEmptyDir.empty() || gSilentDir.empty()) {
    fprintf(stderr, "lumx_unreachable_bench: no %s or no temporary directory\n", gTool.c_str());
    return 1;
  }
  // A service socket that accepts connections and never says a word.
  lumx::unique_fd silent(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  snprintf(addr.sun_path, sizeof(addr.sun_path), "%s/lumx.ILumx%%2Fdefault", gSilentDir.c_str());
  if (bind(silent.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(silent.get(), 64) != 0) {
    fprintf(stderr, "lumx_unreachable_bench: cannot listen on %s\n", addr.sun_path);
    return 1;
  }
  RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const double base = reporter.times["BM_ToolStartNoTimeout/0/iterations:10/real_time"];
  printf("baseline (lumx --timeout 0, no socket): %.1f ms\n", base);
  for (const char* kind : {"BM_NoSocket", "BM_SilentSocket"}) {
    for (int timeout : {200, 1000}) {
      const std::string name = std::string(kind) + "/" + std::to_string(timeout) + "/iterations:5/real_time";
      if (!reporter.times.count(name)) continue;
      const double t = reporter.times[name];
      printf("%-16s --timeout %4d: %7.1f ms, beyond the baseline %.2f of the time-out\n", kind + 3, timeout, t,
             (t - base) / timeout);
    }
  }
  unlink(addr.sun_path);
  rmdir(gSilentDir.c_str());
  rmdir(gEmptyDir.c_str());
  benchmark::Shutdown();
  return 0;
}
