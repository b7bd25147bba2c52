// What hostile or broken local clients cost lumxd through the host binder
// runtime. For each attack a fresh lumxd is started (against one lumx-dspsim
// whose DSP never answers, so every DSP command takes its 500 ms time-out),
// the attack runs in a forked process speaking the socket protocol by hand,
// and the daemon is measured against its own figures before the attack:
// resident memory (VmRSS) and its peak, threads and descriptors, and how long
// a fresh `lumx Ping` (a new process, a new connection) takes during the
// attack and after the attacker is gone, against the same command before.
//
// Attacks:
//   never-reads  one connection pipelines ListParameters calls and never
//                reads a reply
//   oneway-flood 600 one-way TapInfo calls of 1 MiB each, then the client
//                leaves
//   pipelined    200 TapInfo calls sent at once, then the client leaves
//   half-frames  300 connections each send all but the last byte of a
//                1 MiB frame and stall
//   idle         1000 connections (4 processes x 250) say hello and idle
//
// The daemon starts with a soft descriptor limit of 1024, as on a default
// system (the hard limit is left as it is).
//   --seconds=N  how long the never-reads, half-frames and idle attacks
//                last (default 8)
//   --only=NAME  run one attack
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/binder/frame.h"

extern char** environ;

namespace {

using lumx_binder::Frame;
using lumx_binder::FrameDecoder;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kPing = 1;
constexpr uint32_t kTapInfo = 15;
constexpr uint32_t kListParameters = 31;
constexpr int32_t kImic = 0x696d6963;
constexpr const char* kDescriptor = "lumx.ILumx";
constexpr const char* kService = "lumx.ILumx/default";

double gSeconds = 8;
std::string gBuild, gRoot, gBinder;

double Since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

// ---- the daemon's figures ----

struct Figures {
  long rssKb = 0, hwmKb = 0, threads = 0, fds = 0;
};

Figures Sample(pid_t pid) {
  Figures f;
  FILE* s = fopen(("/proc/" + std::to_string(pid) + "/status").c_str(), "r");
  if (s == nullptr) return f;
  char line[256];
  while (fgets(line, sizeof(line), s) != nullptr) {
    sscanf(line, "VmRSS: %ld", &f.rssKb);
    sscanf(line, "VmHWM: %ld", &f.hwmKb);
    sscanf(line, "Threads: %ld", &f.threads);
  }
  fclose(s);
  const std::string cmd = "ls /proc/" + std::to_string(pid) + "/fd 2>/dev/null | wc -l";
  FILE* p = popen(cmd.c_str(), "r");
  if (p != nullptr) {
    if (fscanf(p, "%ld", &f.fds) != 1) f.fds = 0;
    pclose(p);
  }
  return f;
}

pid_t Spawn(const std::vector<std::string>& args, const std::string& log, bool append = false) {
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_addopen(&fa, 1, log.c_str(), O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC), 0644);
  posix_spawn_file_actions_adddup2(&fa, 1, 2);
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&fa);
  return pid;
}

void Stop(pid_t* pid, int sig = SIGKILL) {
  if (*pid <= 0) return;
  kill(*pid, sig);
  waitpid(*pid, nullptr, 0);
  *pid = -1;
}

// A fresh `lumx Ping`: seconds it took and its exit code (-1: still hung
// after `cap` seconds, then killed).
struct PingResult {
  double seconds = 0;
  int exitCode = -1;
};

PingResult FreshPing(double cap = 60) {
  PingResult r;
  const auto start = Clock::now();
  pid_t pid = Spawn({gBuild + "/tools/lumx/lumx", "Ping"}, gRoot + "/lumx.log", true);
  for (;;) {
    int st = 0;
    if (waitpid(pid, &st, WNOHANG) == pid) {
      r.exitCode = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
      break;
    }
    if (Since(start) > cap) {
      Stop(&pid);
      break;
    }
    usleep(2000);
  }
  r.seconds = Since(start);
  return r;
}

// ---- the attacker's side of the protocol ----

class RawClient {
 public:
  bool Connect() {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    const std::string path = gBinder + "/lumx.ILumx%2Fdefault";
    strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
    return connect(fd_, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) == 0;
  }
  bool Hello() {
    Frame h;
    h.type = lumx_binder::kFrameHello;
    h.target = 0x5eed0000u + static_cast<uint64_t>(getpid());
    h.code = static_cast<uint32_t>(getpid());
    Frame peer;
    return Send(Encode(h)) && Recv(&peer) && peer.type == lumx_binder::kFrameHello;
  }
  // Looks the service up; the object id to call, 0 on failure.
  uint64_t Service() {
    Frame f;
    f.type = lumx_binder::kFrameTransact;
    f.txn_id = ++txn_;
    f.code = lumx_binder::kGetServiceTransaction;
    f.data = Str(kService);
    Frame reply;
    if (!Send(Encode(f)) || !Recv(&reply) || reply.objects.empty()) return 0;
    return reply.objects[0].id;
  }
  std::vector<uint8_t> Call(uint64_t target, uint32_t code, std::vector<uint8_t> args, bool oneway,
                            size_t padTo = 0) {
    Frame f;
    f.type = lumx_binder::kFrameTransact;
    f.txn_id = oneway ? 0 : ++txn_;
    f.flags = oneway ? 1 : 0;
    f.target = target;
    f.code = code;
    f.data = Str(kDescriptor);
    f.data.insert(f.data.end(), args.begin(), args.end());
    if (f.data.size() < padTo) f.data.resize(padTo, 0);
    return Encode(f);
  }
  bool Send(const std::vector<uint8_t>& b) {
    size_t off = 0;
    while (off < b.size()) {
      ssize_t n = send(fd_, b.data() + off, b.size() - off, MSG_NOSIGNAL);
      if (n <= 0) return false;
      off += static_cast<size_t>(n);
    }
    return true;
  }
  bool Recv(Frame* f) {
    uint8_t buf[4096];
    for (;;) {
      lumx_binder::DecodeStatus st = decoder_.Next(f);
      if (st == lumx_binder::DecodeStatus::kOk) return true;
      if (st == lumx_binder::DecodeStatus::kError) return false;
      struct pollfd pfd = {fd_, POLLIN, 0};
      if (poll(&pfd, 1, 10000) <= 0) return false;
      ssize_t n = recv(fd_, buf, sizeof(buf), 0);
      if (n <= 0) return false;
      decoder_.Append(buf, static_cast<size_t>(n));
    }
  }
  static std::vector<uint8_t> Encode(const Frame& f) {
    std::vector<uint8_t> out;
    lumx_binder::EncodeFrame(f, &out);
    return out;
  }
  static std::vector<uint8_t> Str(const std::string& s) {
    std::vector<uint8_t> b(4 + ((s.size() + 1 + 3) & ~size_t{3}), 0);
    const int32_t n = static_cast<int32_t>(s.size());
    memcpy(b.data(), &n, 4);
    memcpy(b.data() + 4, s.data(), s.size());
    return b;
  }
  static std::vector<uint8_t> Ints(std::initializer_list<int32_t> v) {
    std::vector<uint8_t> b(v.size() * 4);
    memcpy(b.data(), v.begin(), b.size());
    return b;
  }
  int fd() const { return fd_; }

 private:
  int fd_ = -1;
  uint64_t txn_ = 0;
  FrameDecoder decoder_;
};

// Each attack runs in a child; it writes one byte to `ready` once the attack
// is in place, and exits when it is over (which the parent counts as the
// attacker leaving).
void NeverReads(int ready) {
  RawClient c;
  if (!c.Connect() || !c.Hello()) _exit(2);
  const uint64_t id = c.Service();
  if (id == 0) _exit(3);
  const auto start = Clock::now();
  bool told = false;
  long sent = 0;
  while (Since(start) < gSeconds) {
    if (!c.Send(c.Call(id, kListParameters, {}, false))) break;  // the daemon hung up
    ++sent;
    if (!told && Since(start) > 1) {
      told = write(ready, "r", 1) == 1;
    }
  }
  if (!told && write(ready, "r", 1) != 1) _exit(4);
  fprintf(stderr, "  never-reads: %ld calls sent in %.1f s\n", sent, Since(start));
  while (Since(start) < gSeconds) usleep(10000);
  _exit(0);
}

void OnewayFlood(int ready) {
  RawClient c;
  if (!c.Connect() || !c.Hello()) _exit(2);
  const uint64_t id = c.Service();
  if (id == 0) _exit(3);
  const std::vector<uint8_t> frame = c.Call(id, kTapInfo, RawClient::Ints({2, kImic, 0}), true, (1u << 20) - 256);
  int sent = 0;
  for (; sent < 600; ++sent) {
    if (!c.Send(frame)) break;
  }
  fprintf(stderr, "  oneway-flood: %d one-way calls of %zu bytes sent\n", sent, frame.size());
  if (write(ready, "r", 1) != 1) _exit(4);
  _exit(0);
}

void Pipelined(int ready) {
  RawClient c;
  if (!c.Connect() || !c.Hello()) _exit(2);
  const uint64_t id = c.Service();
  if (id == 0) _exit(3);
  for (int i = 0; i < 200; ++i) c.Send(c.Call(id, kTapInfo, RawClient::Ints({2, kImic, 0}), false));
  if (write(ready, "r", 1) != 1) _exit(4);
  _exit(0);
}

void HalfFrames(int ready) {
  std::vector<RawClient> cs(300);
  int open = 0;
  for (RawClient& c : cs) {
    if (!c.Connect() || !c.Hello()) continue;
    std::vector<uint8_t> f = c.Call(1, kPing, {}, false, (1u << 20) - 64);
    f.pop_back();
    // Without waiting: a stalled reader must not stall the attacker.
    fcntl(c.fd(), F_SETFL, O_NONBLOCK);
    size_t off = 0;
    const auto start = Clock::now();
    while (off < f.size() && Since(start) < 2) {
      ssize_t n = send(c.fd(), f.data() + off, f.size() - off, MSG_NOSIGNAL);
      if (n > 0) {
        off += static_cast<size_t>(n);
      } else if (n < 0 && errno == EAGAIN) {
        usleep(1000);
      } else {
        break;
      }
    }
    ++open;
  }
  fprintf(stderr, "  half-frames: %d connections with a frame short of its last byte\n", open);
  if (write(ready, "r", 1) != 1) _exit(4);
  sleep(static_cast<unsigned>(gSeconds));
  _exit(0);
}

void Idle(int ready) {
  // Four processes of 250 connections each.
  std::vector<pid_t> kids;
  int pipes[2];
  if (pipe(pipes) != 0) _exit(2);
  for (int k = 0; k < 4; ++k) {
    pid_t pid = fork();
    if (pid == 0) {
      std::vector<RawClient> cs(250);
      int ok = 0;
      for (RawClient& c : cs) ok += c.Connect() && c.Hello();
      char n = static_cast<char>(ok / 10);
      if (write(pipes[1], &n, 1) != 1) _exit(2);
      sleep(static_cast<unsigned>(gSeconds) + 5);
      _exit(0);
    }
    kids.push_back(pid);
  }
  int total = 0;
  for (int k = 0; k < 4; ++k) {
    char n = 0;
    if (read(pipes[0], &n, 1) == 1) total += n * 10;
  }
  fprintf(stderr, "  idle: about %d of 1000 connections greeted\n", total);
  if (write(ready, "r", 1) != 1) _exit(4);
  sleep(static_cast<unsigned>(gSeconds));
  for (pid_t k : kids) kill(k, SIGKILL);
  for (pid_t k : kids) waitpid(k, nullptr, 0);
  _exit(0);
}

struct Attack {
  const char* name;
  void (*body)(int ready);
};

const Attack kAttacks[] = {
    {"never-reads", NeverReads}, {"oneway-flood", OnewayFlood}, {"pipelined", Pipelined},
    {"half-frames", HalfFrames}, {"idle", Idle},
};

bool WaitForFile(const std::string& path) {
  for (int i = 0; i < 400; ++i) {
    if (access(path.c_str(), F_OK) == 0) return true;
    usleep(25000);
  }
  return false;
}

pid_t StartDaemon() {
  struct rlimit old;
  getrlimit(RLIMIT_NOFILE, &old);
  struct rlimit lim = {1024, old.rlim_max};
  setrlimit(RLIMIT_NOFILE, &lim);
  pid_t pid = Spawn({gBuild + "/lumxd"}, gRoot + "/lumxd.log", true);
  setrlimit(RLIMIT_NOFILE, &old);
  const std::string socket = gBinder + "/lumx.ILumx%2Fdefault";
  if (pid <= 0 || !WaitForFile(socket)) return -1;
  // Registered: now it answers.
  for (int i = 0; i < 50; ++i) {
    if (FreshPing(5).exitCode == 0) return pid;
    usleep(100000);
  }
  return pid;
}

}  // namespace

int main(int argc, char** argv) {
  std::string only;
  for (int i = 1; i < argc; ++i) {
    if (strncmp(argv[i], "--seconds=", 10) == 0) gSeconds = std::max(2.0, atof(argv[i] + 10));
    if (strncmp(argv[i], "--only=", 7) == 0) only = argv[i] + 7;
  }
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
  if (n <= 0) return 1;
  self[n] = '\0';
  gBuild = std::string(self).substr(0, std::string(self).rfind('/'));
  gBuild = gBuild.substr(0, gBuild.rfind('/'));
  char tmpl[] = "/tmp/lumx_attack_bench.XXXXXX";
  if (mkdtemp(tmpl) == nullptr) return 1;
  gRoot = tmpl;
  gBinder = gRoot + "/binder";
  const std::string dev = gRoot + "/dev", sysfs = gRoot + "/sysfs";
  mkdir(dev.c_str(), 0755);
  mkdir(gBinder.c_str(), 0700);
  mkdir(sysfs.c_str(), 0755);
  mkdir((sysfs + "/power").c_str(), 0755);
  setenv("LUMX_DEV_ROOT", dev.c_str(), 1);
  setenv("LUMX_BINDER_DIR", gBinder.c_str(), 1);
  setenv("LUMX_SYSFS_ROOT", sysfs.c_str(), 1);
  setenv("LUMX_LOG_LEVEL", "W", 1);
  const std::string ready = gRoot + "/sim.ready";
  pid_t sim = Spawn({gBuild + "/tools/lumx-dspsim/lumx-dspsim", "--dev-root", dev, "--node-gap-ms", "20",
                     "--ready-file", ready, "--fault-drop-reply", "1"},
                    gRoot + "/sim.log");
  if (sim <= 0 || !WaitForFile(ready)) {
    fprintf(stderr, "binder_attack_bench: lumx-dspsim did not start\n");
    return 1;
  }

  printf("%-13s %9s %9s %9s %7s %7s %7s %6s %6s %6s %12s %12s %12s\n", "attack", "rss0 KiB", "peak KiB",
         "rss1 KiB", "thr0", "thrPk", "thr1", "fd0", "fdPk", "fd1", "ping0 s", "ping-dur s", "ping-aft s");
  for (const Attack& a : kAttacks) {
    if (!only.empty() && only != a.name) continue;
    pid_t daemon = StartDaemon();
    if (daemon <= 0) {
      fprintf(stderr, "binder_attack_bench: lumxd did not start\n");
      break;
    }
    const PingResult ping0 = FreshPing();
    const Figures before = Sample(daemon);
    std::atomic<bool> sampling{true};
    Figures peak = before;
    std::thread sampler([&] {
      while (sampling.load()) {
        Figures f = Sample(daemon);
        peak.rssKb = std::max(peak.rssKb, f.rssKb);
        peak.threads = std::max(peak.threads, f.threads);
        peak.fds = std::max(peak.fds, f.fds);
        usleep(20000);
      }
    });
    int pipes[2];
    if (pipe(pipes) != 0) return 1;
    pid_t attacker = fork();
    if (attacker == 0) {
      close(pipes[0]);
      a.body(pipes[1]);
      _exit(0);
    }
    close(pipes[1]);
    char c;
    const bool armed = read(pipes[0], &c, 1) == 1;
    close(pipes[0]);
    const PingResult during = armed ? FreshPing() : PingResult{};
    int st = 0;
    waitpid(attacker, &st, 0);
    const PingResult after = FreshPing(120);
    sleep(2);
    sampling.store(false);
    sampler.join();
    const Figures end = Sample(daemon);
    peak.rssKb = std::max(peak.rssKb, end.hwmKb);  // the kernel's high-water mark misses no spike
    printf("%-13s %9ld %9ld %9ld %7ld %7ld %7ld %6ld %6ld %6ld %8.3f (%d) %8.3f (%d) %8.3f (%d)\n", a.name,
           before.rssKb, peak.rssKb, end.rssKb, before.threads, peak.threads, end.threads, before.fds, peak.fds, end.fds, ping0.seconds,
           ping0.exitCode, during.seconds, during.exitCode, after.seconds, after.exitCode);
    printf("%-13s peak/baseline RSS %.2f, threads %.2f, fds %.2f; fresh ping during/baseline %.1f, after/baseline %.1f\n",
           "", static_cast<double>(peak.rssKb) / static_cast<double>(std::max(1L, before.rssKb)),
           static_cast<double>(peak.threads) / static_cast<double>(std::max(1L, before.threads)),
           static_cast<double>(peak.fds) / static_cast<double>(std::max(1L, before.fds)),
           during.seconds / std::max(1e-3, ping0.seconds), after.seconds / std::max(1e-3, ping0.seconds));
    fflush(stdout);
    Stop(&daemon, SIGTERM);
  }
  printf("(ping: seconds for a fresh `lumx Ping`, exit code in brackets; -1: killed after the cap)\n");
  Stop(&sim, SIGTERM);
  const std::string rm = "rm -rf '" + gRoot + "'";
  if (system(rm.c_str()) != 0) return 1;
  return 0;
}
