// bare_relay_tool: the floor the daemon's stream path is measured against.
//
// Reads packets from one tap-out node and writes each one straight back to an
// inject node, with the same system calls the daemon's I/O thread makes
// (select with a 200 ms time-out, non-blocking reads, one blocking write per
// packet) and the same real-time priority, but without the daemon: no
// buffer registry, no processors, no binder. The simulator times both paths
// from its send stamp to its receipt of the injected packet, so the
// difference between this loop and lumxd is what the daemon adds.
//
//   bare_relay_tool --tapout DIR/zch-lumx_tapout60 --inject DIR/zch-lumx_inject60
//                   [--seconds N] [--no-rt]
//
// Ends on SIGINT/SIGTERM or after N seconds; prints "packets: <n>" and
// "bytes: <n>" on standard output.
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "common/wire.h"

namespace {

constexpr uint32_t kMagic = 0x4C756D78;  // "xmuL" read as a little-endian word
constexpr size_t kHeaderSize = 64;
constexpr size_t kMaxPacket = 65536;

volatile sig_atomic_t gStop = 0;

void OnSignal(int) { gStop = 1; }

double NowS() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

int Usage() {
  fprintf(stderr,
          "usage: bare_relay_tool --tapout PATH --inject PATH [--seconds N] [--no-rt]\n");
  return 64;
}

bool WriteAll(int fd, const uint8_t* p, size_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += w;
    n -= static_cast<size_t>(w);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::string tapout;
  std::string inject;
  double seconds = 0;
  bool rt = true;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--tapout" && i + 1 < argc) {
      tapout = argv[++i];
    } else if (a == "--inject" && i + 1 < argc) {
      inject = argv[++i];
    } else if (a == "--seconds" && i + 1 < argc) {
      seconds = atof(argv[++i]);
    } else if (a == "--no-rt") {
      rt = false;
    } else {
      return Usage();
    }
  }
  if (tapout.empty() || inject.empty()) return Usage();

  struct sigaction sa;
  memset(&sa, 0, sizeof(sa));
  sa.sa_handler = OnSignal;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  signal(SIGPIPE, SIG_IGN);

  if (rt) {
    // The daemon's I/O threads run at SCHED_FIFO 2; so does the floor.
    struct sched_param param = {};
    param.sched_priority = 2;
    if (sched_setscheduler(0, SCHED_FIFO, &param) != 0) {
      fprintf(stderr, "bare_relay_tool: SCHED_FIFO not available (%s), running as normal\n",
              strerror(errno));
    }
  }

  lumx::unique_fd in(open(tapout.c_str(), O_RDONLY | O_CLOEXEC));
  if (!in.ok()) {
    fprintf(stderr, "bare_relay_tool: cannot open %s: %s\n", tapout.c_str(), strerror(errno));
    return 66;
  }
  fcntl(in.get(), F_SETFL, fcntl(in.get(), F_GETFL) | O_NONBLOCK);
  lumx::unique_fd out(open(inject.c_str(), O_WRONLY | O_CLOEXEC));
  if (!out.ok()) {
    fprintf(stderr, "bare_relay_tool: cannot open %s: %s\n", inject.c_str(), strerror(errno));
    return 66;
  }

  // One receive block and one assembly block, allocated once, as the daemon does.
  std::vector<uint8_t> rx(kMaxPacket);
  std::vector<uint8_t> pkt(kMaxPacket);
  size_t have = 0;
  size_t expected = 0;
  uint64_t packets = 0;
  uint64_t bytes = 0;
  const double end = seconds > 0 ? NowS() + seconds : 0;

  while (!gStop && (end == 0 || NowS() < end)) {
    fd_set rs;
    FD_ZERO(&rs);
    FD_SET(in.get(), &rs);
    struct timeval tv = {0, 200000};
    int s = select(in.get() + 1, &rs, nullptr, nullptr, &tv);
    if (s < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (s == 0) continue;
    const size_t want = expected != 0 ? expected - have : kMaxPacket - have;
    ssize_t n = read(in.get(), rx.data(), want);
    if (n <= 0) continue;
    const uint8_t* p = rx.data();
    size_t len = static_cast<size_t>(n);
    if (have == 0) {
      // Resynchronise on the last magic of the block, like the daemon.
      size_t at = len;
      for (size_t i = (len & ~static_cast<size_t>(3)); i >= 4; i -= 4) {
        if (lumx::GetLe32(p + i - 4) == kMagic) {
          at = i - 4;
          break;
        }
      }
      if (at == len) continue;
      p += at;
      len -= at;
    }
    if (have + len > kMaxPacket) {
      have = 0;
      expected = 0;
      continue;
    }
    memcpy(pkt.data() + have, p, len);
    have += len;
    if (expected == 0 && have >= kHeaderSize) {
      const uint32_t payload = lumx::GetLe32(pkt.data() + 20);
      if (lumx::GetLe32(pkt.data() + 4) != 1 || payload > kMaxPacket - kHeaderSize) {
        have = 0;
        continue;
      }
      expected = kHeaderSize + payload;
    }
    if (expected != 0 && have >= expected) {
      if (!WriteAll(out.get(), pkt.data(), expected)) break;
      ++packets;
      bytes += expected;
      have = 0;
      expected = 0;
    }
  }
  printf("packets: %llu\nbytes: %llu\n", static_cast<unsigned long long>(packets),
         static_cast<unsigned long long>(bytes));
  return 0;
}
