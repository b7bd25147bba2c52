#include "support/system_stack.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>


namespace lumx::test {

namespace {

constexpr int kStartLimitMs = 60000;
constexpr int kStopLimitMs = 30000;

std::string Tail(const std::string& text, size_t maxBytes) {
  return text.size() <= maxBytes ? text : "..." + text.substr(text.size() - maxBytes);
}

// The object that starts at `open` (a '{'), braces balanced; strings in
// these documents never hold braces.
std::string ObjectAt(const std::string& json, size_t open) {
  int depth = 0;
  for (size_t i = open; i < json.size(); ++i) {
    if (json[i] == '{') ++depth;
    if (json[i] == '}' && --depth == 0) return json.substr(open, i - open + 1);
  }
  return {};
}

}  // namespace

double JsonNumber(const std::string& json, const std::string& key) {
  const std::string needle = "\"" + key + "\":";
  size_t pos = json.find(needle);
  if (pos == std::string::npos) return -1;
  const char* start = json.c_str() + pos + needle.size();
  char* end = nullptr;
  double v = strtod(start, &end);
  return end == start ? -1 : v;
}

double StreamStat(const std::string& statsJson, const std::string& node, const std::string& key) {
  const std::string needle = "\"node\":\"" + node + "\"";
  size_t pos = statsJson.find(needle);
  if (pos == std::string::npos) return -1;
  size_t open = statsJson.rfind('{', pos);
  if (open == std::string::npos) return -1;
  return JsonNumber(ObjectAt(statsJson, open), key);
}

SystemStack::SystemStack() {
  ::mkdir(devRoot().c_str(), 0755);
  ::mkdir(Path("binder").c_str(), 0700);  // the binder runtime accepts only a private one
  ::mkdir(Path("sys").c_str(), 0755);
  ::mkdir(Path("sys/power").c_str(), 0755);
  dir_.Touch("sys/power/wake_lock");
  dir_.Touch("sys/power/wake_unlock");
  env_ = {{"LUMX_DEV_ROOT", devRoot()},
          {"LUMX_BINDER_DIR", Path("binder")},
          {"LUMX_SYSFS_ROOT", Path("sys")},
          {"LUMX_LOG_LEVEL", "I"}};
  lumxd_ = lumx_test::BuildBinary("lumxd");
  lumx_ = lumx_test::BuildBinary("tools/lumx/lumx");
  dspsim_ = lumx_test::BuildBinary("tools/lumx-dspsim/lumx-dspsim");
}

SystemStack::~SystemStack() { Stop(); }

bool SystemStack::BinariesFound() {
  if (lumxd_.empty() || lumx_.empty() || dspsim_.empty()) {
    error_ = "lumxd, lumx or lumx-dspsim not found under $LUMX_BUILD_DIR or the build directory";
    return false;
  }
  return true;
}

bool SystemStack::StartSimulator(const std::vector<std::string>& args) {
  std::vector<std::string> all = {"--dev-root", devRoot(), "--ready-file", Path("sim.ready"), "--stats",
                                  Path("stats.json")};
  all.insert(all.end(), args.begin(), args.end());
  if (!sim_.Start(dspsim_, all, env_, Path("dspsim.out"), Path("dspsim.err"))) {
    error_ = "cannot start " + dspsim_;
    return false;
  }
  simRunning_ = true;
  const bool ready = lumx_test::WaitUntil(
      [&] { return lumx_test::ReadFileText(Path("sim.ready")).rfind("ready", 0) == 0 || !sim_.Running(); },
      kStartLimitMs);
  if (!ready || !sim_.Running()) {
    error_ = "lumx-dspsim did not come up";
    return false;
  }
  return true;
}

bool SystemStack::StartDaemon() {
  if (!daemon_.Start(lumxd_, {}, env_, Path("lumxd.out"), Path("lumxd.err"))) {
    error_ = "cannot start " + lumxd_;
    return false;
  }
  daemonRunning_ = true;
  const bool up = lumx_test::WaitUntil(
      [&] { return !daemon_.Running() || Lumx({"Ping"}, kStartLimitMs).exitCode == 0; }, kStartLimitMs);
  if (!up || !daemon_.Running()) {
    error_ = "lumxd does not answer Ping";
    return false;
  }
  return true;
}

LumxRun SystemStack::Lumx(const std::vector<std::string>& args, int timeoutMs) {
  LumxRun run;
  run.exitCode = lumx_test::RunToCompletion(lumx_, args, env_, &run.out, &run.err, timeoutMs);
  return run;
}

bool SystemStack::StartLumx(lumx_test::Subprocess* child, const std::string& name,
                            const std::vector<std::string>& args) {
  return child->Start(lumx_, args, env_, Path(name + ".out"), Path(name + ".err"));
}

std::string SystemStack::SimulatorStats() {
  if (!simRunning_) return {};
  const std::string path = Path("stats.json");
  ::unlink(path.c_str());
  sim_.Signal(SIGUSR1);
  std::string text;
  // The file is replaced whole, so once it is there it is complete.
  lumx_test::WaitUntil(
      [&] {
        text = lumx_test::ReadFileText(path);
        return !text.empty();
      },
      kStopLimitMs);
  return text;
}

std::string SystemStack::Stop() {
  auto end = [](lumx_test::Subprocess& child, bool& running, int sig) {
    if (!running) return;
    int status = 0;
    child.Signal(sig);
    if (!child.WaitExit(kStopLimitMs, &status)) {
      child.Signal(SIGKILL);
      child.WaitExit(kStopLimitMs, &status);
    }
    running = false;
  };
  // SIGINT only ends the daemon's event loop; SIGTERM ends the process.
  end(daemon_, daemonRunning_, SIGTERM);
  if (!simRunning_) return {};
  ::unlink(Path("stats.json").c_str());
  end(sim_, simRunning_, SIGINT);
  return lumx_test::ReadFileText(Path("stats.json"));
}

std::string SystemStack::Logs() const {
  return "--- lumxd ---\n" + Tail(lumx_test::ReadFileText(Path("lumxd.err")), 4000) + "\n--- lumx-dspsim ---\n" +
         Tail(lumx_test::ReadFileText(Path("dspsim.err")), 2000);
}

}  // namespace lumx::test
