// Round trip of an empty synchronous transaction through the host binder
// runtime, against a raw AF_UNIX ping-pong of the same byte counts between
// the same kind of endpoints (a forked peer process), measured in one run.
// Prints both figures and their ratio; the goal is a ratio of at most 2.
// Then the same from 8 threads at once (8 raw pairs against 8 threads
// sharing the service's proxy), with 1000 idle connections open to the
// service beside them (4 processes of 250, each greeted).
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <benchmark/benchmark.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <lumx_host/binder_host.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/binder/frame.h"

namespace {

constexpr const char* kDescriptor = "lumx.bench.IPing";
constexpr const char* kService = "lumx.bench.IPing/default";
// Bytes on the wire for one empty transaction and its reply: frame header
// (56) plus the interface token (int32 length, descriptor, NUL, padding).
constexpr size_t kHeader = 56;
size_t RequestBytes() { return kHeader + 4 + ((strlen(kDescriptor) + 1 + 3) & ~size_t{3}); }
size_t ReplyBytes() { return kHeader; }

constexpr int kThreads = 8;
constexpr int kIdleProcesses = 4;
constexpr int kIdlePerProcess = 250;

pid_t g_binder_child = -1;
int g_raw_fd = -1;
std::vector<pid_t> g_children;
int g_raw_fds[kThreads];
AIBinder* g_ping = nullptr;
double g_raw_ns = 0;
double g_binder_ns = 0;
double g_raw_1k_ns = 0;
double g_binder_1k_ns = 0;

bool ReadAll(int fd, uint8_t* p, size_t n) {
  while (n > 0) {
    ssize_t r = read(fd, p, n);
    if (r <= 0) return false;
    p += r;
    n -= static_cast<size_t>(r);
  }
  return true;
}

bool WriteAll(int fd, const uint8_t* p, size_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w <= 0) return false;
    p += w;
    n -= static_cast<size_t>(w);
  }
  return true;
}

// The raw peer: reads a request of `req` bytes, answers `rep` bytes. The
// sizes come first as two uint32.
[[noreturn]] void RawEcho(int fd) {
  std::vector<uint8_t> buf(1 << 16);
  for (;;) {
    uint32_t sizes[2];
    if (!ReadAll(fd, reinterpret_cast<uint8_t*>(sizes), sizeof(sizes))) _exit(0);
    if (!ReadAll(fd, buf.data(), sizes[0])) _exit(0);
    if (!WriteAll(fd, buf.data(), sizes[1])) _exit(0);
  }
}

void* PingCreate(void* args) { return args; }
void PingDestroy(void*) {}
binder_status_t PingTransact(AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
  return STATUS_OK;
}

[[noreturn]] void BinderServer() {
  AIBinder_Class* clazz = AIBinder_Class_define(kDescriptor, PingCreate, PingDestroy, PingTransact);
  AIBinder* b = AIBinder_new(clazz, nullptr);
  if (AServiceManager_addService(b, kService) != EX_NONE) _exit(2);
  ABinderProcess_startThreadPool();
  ABinderProcess_joinThreadPool();
  _exit(3);
}

// One raw round trip: the request (sizes travel in the same write, so the
// byte count is request + 8) and the answer.
bool RawOnce(const std::vector<uint8_t>& out, std::vector<uint8_t>* in, int fd = g_raw_fd) {
  return WriteAll(fd, out.data(), out.size()) && ReadAll(fd, in->data(), in->size());
}

// A raw peer process; returns our end of its socket.
int ForkRawEcho() {
  int sv[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv) != 0) return -1;
  pid_t pid = fork();
  if (pid == 0) {
    close(sv[0]);
    RawEcho(sv[1]);
  }
  close(sv[1]);
  g_children.push_back(pid);
  return sv[0];
}

// Processes that hold idle, greeted connections to the service.
bool OpenIdleConnections() {
  const std::string path = lumx_host::ServiceSocketPath(kService);
  int ready[2];
  if (pipe(ready) != 0) return false;
  for (int k = 0; k < kIdleProcesses; ++k) {
    pid_t pid = fork();
    if (pid == 0) {
      lumx_binder::Frame hello;
      hello.type = lumx_binder::kFrameHello;
      hello.target = 0x1d1e0000u + static_cast<uint64_t>(getpid());
      hello.code = static_cast<uint32_t>(getpid());
      std::vector<uint8_t> bytes;
      lumx_binder::EncodeFrame(hello, &bytes);
      char ok = 0;
      for (int i = 0; i < kIdlePerProcess; ++i) {
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un addr = {};
        addr.sun_family = AF_UNIX;
        strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
        uint8_t theirs[lumx_binder::kFrameHeaderSize];
        if (connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) == 0 &&
            ReadAll(fd, theirs, sizeof(theirs)) && WriteAll(fd, bytes.data(), bytes.size()) &&
            theirs[8] == lumx_binder::kFrameHello) {
          ++ok;
        }
      }
      if (write(ready[1], &ok, 1) != 1) _exit(1);
      pause();
      _exit(0);
    }
    g_children.push_back(pid);
  }
  int total = 0;
  for (int k = 0; k < kIdleProcesses; ++k) {
    char ok = 0;
    if (read(ready[0], &ok, 1) == 1) total += static_cast<unsigned char>(ok);
  }
  close(ready[0]);
  close(ready[1]);
  printf("idle connections open and greeted: %d\n", total);
  return total == kIdleProcesses * kIdlePerProcess;
}

std::vector<uint8_t> RawRequest(size_t req, size_t rep) {
  std::vector<uint8_t> out(req + 8, 0x11);
  uint32_t sizes[2] = {static_cast<uint32_t>(req), static_cast<uint32_t>(rep)};
  memcpy(out.data(), sizes, sizeof(sizes));
  return out;
}

// One empty (or `body`-carrying) transaction through the runtime.
bool BinderOnce(const std::vector<uint8_t>& body) {
  AParcel* in = nullptr;
  AParcel* out = nullptr;
  AIBinder_prepareTransaction(g_ping, &in);
  if (!body.empty()) {
    AParcel_writeByteArray(in, reinterpret_cast<const int8_t*>(body.data()),
                           static_cast<int32_t>(body.size()));
  }
  if (AIBinder_transact(g_ping, FIRST_CALL_TRANSACTION, &in, &out, 0) != STATUS_OK) return false;
  AParcel_delete(out);
  return true;
}

double RawRoundTrip(benchmark::State& state, size_t req, size_t rep) {
  std::vector<uint8_t> out = RawRequest(req, rep), in(rep);
  auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    if (!RawOnce(out, &in)) {
      state.SkipWithError("raw peer gone");
      break;
    }
  }
  auto ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start);
  return state.iterations() > 0 ? ns.count() / static_cast<double>(state.iterations()) : 0;
}

double BinderRoundTrip(benchmark::State& state, size_t payload) {
  std::vector<uint8_t> body(payload, 0x22);
  auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    if (!BinderOnce(body)) {
      state.SkipWithError("transaction failed");
      break;
    }
  }
  auto ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start);
  return state.iterations() > 0 ? ns.count() / static_cast<double>(state.iterations()) : 0;
}

// Mean ns per round trip of `once` over about `ms` milliseconds.
template <typename F>
double TimeFor(int ms, F once) {
  auto start = std::chrono::steady_clock::now();
  auto end = start + std::chrono::milliseconds(ms);
  int64_t n = 0;
  auto now = start;
  while (now < end) {
    for (int i = 0; i < 64; ++i) once();
    n += 64;
    now = std::chrono::steady_clock::now();
  }
  return std::chrono::duration<double, std::nano>(now - start).count() / static_cast<double>(n);
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// Alternates short raw and runtime runs so that both see the same machine
// load, and reports medians: the load of a shared machine moves a lot.
void InterleavedSummary() {
  std::vector<uint8_t> out = RawRequest(RequestBytes() - 8, ReplyBytes()), in(ReplyBytes());
  std::vector<uint8_t> empty;
  std::vector<double> raw, binder, ratio;
  for (int round = 0; round < 11; ++round) {
    double r = TimeFor(150, [&] { RawOnce(out, &in); });
    double b = TimeFor(150, [&] { BinderOnce(empty); });
    raw.push_back(r);
    binder.push_back(b);
    ratio.push_back(b / r);
  }
  printf("interleaved, 11 rounds of 150 ms each: median binder %.0f ns, median raw %.0f ns, "
         "median ratio %.2f (min %.2f, max %.2f)\n",
         Median(binder), Median(raw), Median(ratio), *std::min_element(ratio.begin(), ratio.end()),
         *std::max_element(ratio.begin(), ratio.end()));
}

// Mean ns per round trip over all `kThreads` threads running `once(t)`
// together for about `ms` milliseconds.
template <typename F>
double TimeThreads(int ms, F once) {
  std::atomic<int64_t> calls{0};
  auto start = std::chrono::steady_clock::now();
  auto end = start + std::chrono::milliseconds(ms);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      int64_t n = 0;
      while (std::chrono::steady_clock::now() < end) {
        for (int i = 0; i < 16; ++i) once(t);
        n += 16;
      }
      calls.fetch_add(n);
    });
  }
  for (std::thread& th : threads) th.join();
  const double ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
  // Each thread waits for its own round trips: the time one takes.
  return ns * kThreads / static_cast<double>(calls.load());
}

void InterleavedThreadsSummary() {
  std::vector<uint8_t> out = RawRequest(RequestBytes() - 8, ReplyBytes());
  std::vector<std::vector<uint8_t>> in(kThreads, std::vector<uint8_t>(ReplyBytes()));
  std::vector<uint8_t> empty;
  std::vector<double> raw, binder, ratio;
  for (int round = 0; round < 11; ++round) {
    double r = TimeThreads(150, [&](int t) { RawOnce(out, &in[static_cast<size_t>(t)], g_raw_fds[t]); });
    double b = TimeThreads(150, [&](int) { BinderOnce(empty); });
    raw.push_back(r);
    binder.push_back(b);
    ratio.push_back(b / r);
  }
  printf("%d threads, 1000 idle connections open, 11 rounds of 150 ms: median binder %.0f ns, median raw %.0f ns "
         "per round trip and thread, median ratio %.2f (min %.2f, max %.2f)\n",
         kThreads, Median(binder), Median(raw), Median(ratio), *std::min_element(ratio.begin(), ratio.end()),
         *std::max_element(ratio.begin(), ratio.end()));
}

void BM_RawPingPong(benchmark::State& state) {
  g_raw_ns = RawRoundTrip(state, RequestBytes() - 8, ReplyBytes());
  state.counters["bytes_out"] = static_cast<double>(RequestBytes());
  state.counters["bytes_back"] = static_cast<double>(ReplyBytes());
}

void BM_BinderEmptyTransaction(benchmark::State& state) {
  g_binder_ns = BinderRoundTrip(state, 0);
}

void BM_RawPingPong1KiB(benchmark::State& state) {
  g_raw_1k_ns = RawRoundTrip(state, RequestBytes() + 4 + 1024 - 8, ReplyBytes());
}

void BM_BinderTransaction1KiB(benchmark::State& state) {
  g_binder_1k_ns = BinderRoundTrip(state, 1024);
}

BENCHMARK(BM_RawPingPong)->UseRealTime();
BENCHMARK(BM_BinderEmptyTransaction)->UseRealTime();
BENCHMARK(BM_RawPingPong1KiB)->UseRealTime();
BENCHMARK(BM_BinderTransaction1KiB)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  char dir_tmpl[] = "/tmp/lumx-bench-XXXXXX";
  const char* dir = mkdtemp(dir_tmpl);
  if (dir == nullptr) return 1;
  setenv("LUMX_BINDER_DIR", dir, 1);
  setenv("LUMX_LOG_LEVEL", "E", 1);

  g_raw_fd = ForkRawEcho();
  for (int& fd : g_raw_fds) fd = ForkRawEcho();
  if (g_raw_fd < 0) return 1;

  g_binder_child = fork();
  if (g_binder_child == 0) BinderServer();
  g_ping = AServiceManager_waitForService(kService);
  AIBinder_Class* clazz = AIBinder_Class_define(kDescriptor, PingCreate, PingDestroy, PingTransact);
  if (g_ping == nullptr || !AIBinder_associateClass(g_ping, clazz)) {
    fprintf(stderr, "no ping service\n");
    return 1;
  }

  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  printf("\n");

  InterleavedSummary();
  if (g_raw_ns > 0 && g_binder_ns > 0) {
    printf("single runs above: empty transaction round trip: binder %.0f ns, raw AF_UNIX ping-pong %.0f ns "
           "(%zu/%zu bytes), ratio %.2f (goal <= 2.00)\n",
           g_binder_ns, g_raw_ns, RequestBytes(), ReplyBytes(), g_binder_ns / g_raw_ns);
  }
  if (g_raw_1k_ns > 0 && g_binder_1k_ns > 0) {
    printf("1 KiB transaction round trip:  binder %.0f ns, raw %.0f ns, ratio %.2f\n",
           g_binder_1k_ns, g_raw_1k_ns, g_binder_1k_ns / g_raw_1k_ns);
  }
  if (OpenIdleConnections()) {
    printf("with them open, one thread: ");
    InterleavedSummary();
    InterleavedThreadsSummary();
  }

  AIBinder_decStrong(g_ping);
  g_children.push_back(g_binder_child);
  for (pid_t pid : g_children) kill(pid, SIGKILL);
  for (pid_t pid : g_children) waitpid(pid, nullptr, 0);
  std::string rm = std::string("rm -rf '") + dir + "'";
  if (system(rm.c_str()) != 0) return 1;
  return 0;
}
