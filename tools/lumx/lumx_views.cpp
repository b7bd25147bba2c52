// The tool's own views of the daemon: `dump` (the service's dump, as
// dumpsys shows it), `top` (a live table computed from JSON dumps), `graph`
// (the connection graph as DOT, or a picture drawn by Graphviz) and
// `version` (interface version and hash).
#include <android/binder_ibinder.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "common/unique_fd.h"
#include "graph_model.h"
#include "lumx_client.h"
#include "top_view.h"

extern char** environ;

namespace lumx::cli {

using aidl::lumx::ILumx;

namespace {

// More than any dump of lumxd; beyond it the rest is read and dropped.
constexpr size_t kMaxDumpBytes = 16 << 20;
// Once the call has returned, what the service wrote is in the pipe; a
// service that kept a copy of the descriptor open is not waited for longer.
constexpr int kDrainAfterReturnMs = 1000;

// Runs the service's dump with `args` and collects what it writes. The pipe
// is drained while the call runs, so a dump larger than the pipe's buffer
// cannot block the service.
binder_status_t CaptureDump(const std::shared_ptr<ILumx>& lumx, const std::vector<std::string>& args,
                            std::string* out) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return STATUS_UNKNOWN_ERROR;
  lumx::unique_fd readEnd(fds[0]);
  lumx::unique_fd writeEnd(fds[1]);
  std::atomic<bool> returned{false};
  std::thread reader([&] {
    char buf[4096];
    int64_t drainUntilMs = -1;
    for (;;) {
      pollfd p{readEnd.get(), POLLIN, 0};
      const int n = poll(&p, 1, 100);
      if (n > 0) {
        const ssize_t got = read(readEnd.get(), buf, sizeof(buf));
        if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) return;
        if (got > 0 && out->size() < kMaxDumpBytes) out->append(buf, static_cast<size_t>(got));
        continue;
      }
      if (returned) {
        const int64_t nowMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                                  std::chrono::steady_clock::now().time_since_epoch())
                                  .count();
        if (drainUntilMs < 0) drainUntilMs = nowMs + kDrainAfterReturnMs;
        if (nowMs >= drainUntilMs) return;
      }
    }
  });
  std::vector<const char*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  const binder_status_t status = AIBinder_dump(lumx->asBinder().get(), writeEnd.get(),
                                               argv.empty() ? nullptr : argv.data(),
                                               static_cast<uint32_t>(argv.size()));
  writeEnd.reset();
  returned = true;
  reader.join();
  return status;
}

std::string DumpFailure(binder_status_t status) {
  return "dump: the service answered no dump (status " + std::to_string(status) + ")";
}

// ---- top ----

std::atomic<bool> gStop{false};
void OnStopSignal(int) { gStop = true; }

// Puts the terminal into single-key mode for the life of the object.
class RawInput {
 public:
  RawInput() {
    if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &saved_) != 0) return;
    termios raw = saved_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    active_ = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
  }
  ~RawInput() {
    if (active_) tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
  }
  bool active() const { return active_; }

 private:
  termios saved_{};
  bool active_ = false;
};

bool Sample(const std::shared_ptr<ILumx>& lumx, DumpSample* sample, std::string* error) {
  std::string text;
  const binder_status_t status = CaptureDump(lumx, {"--json"}, &text);
  if (status != STATUS_OK) {
    *error = DumpFailure(status);
    return false;
  }
  if (text.empty()) {
    *error = "dump: the service wrote nothing";
    return false;
  }
  if (!ParseDump(text, sample, error)) {
    *error = "dump: " + *error;
    return false;
  }
  return true;
}

void Print(const std::string& text) {
  fwrite(text.data(), 1, text.size(), stdout);
  fflush(stdout);
}

// ---- graph ----

// Draws `dot` into `path` with Graphviz's dot; returns an exit code.
int DrawWithDot(const std::string& dot, const char* format, const std::string& path, std::string* error) {
  lumx::unique_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (file.get() < 0) {
    *error = "graph: cannot create '" + path + "': " + strerror(errno);
    return kExitCantCreate;
  }
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    *error = std::string("graph: pipe: ") + strerror(errno);
    return kExitSoftware;
  }
  lumx::unique_fd readEnd(fds[0]);
  lumx::unique_fd writeEnd(fds[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, readEnd.get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, file.get(), STDOUT_FILENO);
  const std::string type = std::string("-T") + format;
  char* argv[] = {const_cast<char*>("dot"), const_cast<char*>(type.c_str()), nullptr};
  pid_t pid = -1;
  const int rc = posix_spawnp(&pid, "dot", &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  readEnd.reset();
  file.reset();
  if (rc != 0) {
    unlink(path.c_str());
    *error = rc == ENOENT ? "graph: Graphviz's dot is not installed (Debian package graphviz)"
                          : std::string("graph: cannot run dot: ") + strerror(rc);
    return kExitUnavailable;
  }
  for (size_t done = 0; done < dot.size();) {
    const ssize_t n = write(writeEnd.get(), dot.data() + done, dot.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;  // dot ended early; its status says why
    done += static_cast<size_t>(n);
  }
  writeEnd.reset();
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    unlink(path.c_str());
    *error = "graph: dot failed drawing '" + path + "'";
    return kExitSoftware;
  }
  return kExitOk;
}

}  // namespace

int RunDump(const CommandLine& cl) {
  std::string error;
  std::shared_ptr<ILumx> lumx = ConnectToService(cl.timeoutMs, &error);
  if (!lumx) return ReportFailure(cl, cl.op, error, kExitUnavailable);
  std::string text;
  const binder_status_t status = CaptureDump(lumx, cl.dumpArgs, &text);
  if (status != STATUS_OK) return ReportFailure(cl, cl.op, DumpFailure(status), kExitUnavailable);
  if (text.empty()) return ReportFailure(cl, cl.op, "dump: the service wrote nothing", kExitUnavailable);
  Print(text);
  return kExitOk;
}

int RunTop(const CommandLine& cl) {
  // The stop signals reach only the main thread's wait: blocked before any
  // thread exists, and let through in ppoll alone.
  sigset_t stopSignals, waitMask;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, &waitMask);
  sigdelset(&waitMask, SIGINT);
  sigdelset(&waitMask, SIGTERM);
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  std::string error;
  std::shared_ptr<ILumx> lumx = ConnectToService(cl.timeoutMs, &error);
  if (!lumx) return ReportFailure(cl, cl.op, error, kExitUnavailable);

  const bool screen = !cl.once && !cl.json && isatty(STDOUT_FILENO);
  RawInput keys;
  const bool readKeys = screen && keys.active();
  DumpSample previous, current;
  bool havePrevious = false;
  if (cl.once) {
    // Rates need two dumps.
    if (!Sample(lumx, &previous, &error)) return ReportFailure(cl, cl.op, error, kExitUnavailable);
    havePrevious = true;
    timespec second{1, 0};
    while (nanosleep(&second, &second) != 0 && errno == EINTR && !gStop) {
    }
  }
  for (;;) {
    if (!Sample(lumx, &current, &error)) return ReportFailure(cl, cl.op, error, kExitUnavailable);
    const std::vector<TopRow> rows = ComputeTopRows(havePrevious ? &previous : nullptr, current);
    if (cl.json) {
      Print(RenderTopJson(current, rows));
    } else if (screen) {
      // Home and clear, then the table; the last line says how to leave.
      Print("\033[H\033[2J" + RenderTopText(current, rows) + "\n" + (readKeys ? "q quits" : "Ctrl-C quits"));
    } else {
      Print(RenderTopText(current, rows) + (cl.once ? "" : "\n"));
    }
    if (cl.once) return kExitOk;
    previous = std::move(current);
    havePrevious = true;
    // Wait a second for the next round, a key or a stop signal.
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    for (;;) {
      if (gStop) {
        if (screen) Print("\n");
        return kExitOk;
      }
      const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(until - std::chrono::steady_clock::now());
      if (left.count() <= 0) break;
      timespec timeout{static_cast<time_t>(left.count() / 1000000000), static_cast<long>(left.count() % 1000000000)};
      pollfd in{STDIN_FILENO, POLLIN, 0};
      const int n = ppoll(&in, readKeys ? 1 : 0, &timeout, &waitMask);
      if (n > 0) {
        char key = 0;
        if (read(STDIN_FILENO, &key, 1) != 1 || key == 'q' || key == 'Q') {
          Print("\n");
          return kExitOk;
        }
      }
    }
  }
}

int RunGraph(const CommandLine& cl) {
  // dot may end before it has read all of its input; that is its own error.
  signal(SIGPIPE, SIG_IGN);
  std::string error;
  std::shared_ptr<ILumx> lumx = ConnectToService(cl.timeoutMs, &error);
  if (!lumx) return ReportFailure(cl, cl.op, error, kExitUnavailable);
  GraphListings in;
  ILumx::CommandResult result;
  auto call = [&](const char* name, ndk::ScopedAStatus status, std::vector<std::string>* lines) {
    if (!status.isOk()) {
      error = std::string("graph: ") + name + ": call to " + ServiceName() + " failed: " + status.getDescription();
      return false;
    }
    *lines = result.strList;
    return true;
  };
  bool ok = call("ListProcessors", lumx->ListProcessors(&result), &in.processors) &&
            call("ListTapOutBuffers", lumx->ListTapOutBuffers(&result), &in.tapOut) &&
            call("ListInjectBuffers", lumx->ListInjectBuffers(&result), &in.inject);
  // The cores the daemon's own graph report reads, in its order.
  for (int core = 2; ok && core <= 4; ++core) {
    in.taps.emplace_back(core, std::vector<std::string>{});
    ok = call("TapList", lumx->TapList(core, &result), &in.taps.back().second);
  }
  if (!ok) return ReportFailure(cl, cl.op, error, kExitUnavailable);

  std::vector<std::string> problems;
  const std::string dot = GraphDot(in, &problems);
  std::vector<std::string> written;
  for (const auto& [format, path] : {std::pair<const char*, std::string>{"png", cl.graph.png}, {"svg", cl.graph.svg}}) {
    if (path.empty()) continue;
    const int rc = DrawWithDot(dot, format, path, &error);
    if (rc != kExitOk) return ReportFailure(cl, cl.op, error, rc);
    written.push_back(path);
  }
  if (cl.json) {
    std::string json = "{\"op\":\"graph\",\"dot\":" + JsonString(dot) + ",\"files\":[";
    for (size_t k = 0; k < written.size(); ++k) json += (k ? "," : "") + JsonString(written[k]);
    json += "],\"problems\":[";
    for (size_t k = 0; k < problems.size(); ++k) json += (k ? "," : "") + JsonString(problems[k]);
    Print(json + "]}\n");
  } else {
    if (cl.graph.dot) Print(dot);
    for (const std::string& path : written) fprintf(stderr, "lumx: graph drawn into %s\n", path.c_str());
  }
  for (const std::string& p : problems) fprintf(stderr, "lumx: graph: %s\n", p.c_str());
  // As the daemon's own report, a core without a tap list is an error.
  return problems.empty() ? kExitOk : ExitCodeForStatus(1);
}

int RunVersion(const CommandLine& cl) {
  std::string error;
  std::shared_ptr<ILumx> lumx = ConnectToService(cl.timeoutMs, &error);
  if (!lumx) return ReportFailure(cl, cl.op, error, kExitUnavailable);
  int32_t version = 0;
  std::string hash;
  ndk::ScopedAStatus status = lumx->getInterfaceVersion(&version);
  if (status.isOk()) status = lumx->getInterfaceHash(&hash);
  if (!status.isOk()) {
    return ReportFailure(cl, cl.op, "version: call to " + ServiceName() + " failed: " + status.getDescription(),
                         kExitUnavailable);
  }
  if (cl.json) {
    Print("{\"op\":\"version\",\"service\":{\"version\":" + std::to_string(version) + ",\"hash\":" +
          JsonString(hash) + "},\"tool\":{\"version\":" + std::to_string(ILumx::version) +
          ",\"hash\":" + JsonString(ILumx::hash) + "}}\n");
  } else {
    Print("lumxd: interface version " + std::to_string(version) + ", hash " + hash + "\n" +
          "lumx:  interface version " + std::to_string(ILumx::version) + ", hash " + ILumx::hash + "\n");
  }
  return kExitOk;
}

}  // namespace lumx::cli
