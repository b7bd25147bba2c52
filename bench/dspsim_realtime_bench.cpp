// lumx-dspsim keeping real time: 8 streams of 480-sample blocks (48 kHz, a
// mix of mono and stereo) looped back through the inject nodes by a reader
// thread that plays the daemon's part. Reports the CPU share of one core
// used by the simulator's loop thread over a fixed wall-clock run, next to a
// baseline measured in the same run: a thread that only wakes at the same
// 800 absolute deadlines per second (clock_nanosleep) and does nothing else.
//
// LUMX_DSPSIM_BENCH_SECONDS sets the length of each run (default 10).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tools/lumx-dspsim/packet_parser.h"
#include "tools/lumx-dspsim/sim_runner.h"

namespace {

using lumx::dspsim::kPacketHeaderSize;

constexpr int kStreams = 8;
constexpr int kFirstId = 20;

double RunSeconds() {
  const char* s = std::getenv("LUMX_DSPSIM_BENCH_SECONDS");
  double v = s != nullptr ? std::atof(s) : 10.0;
  return v > 0 ? v : 10.0;
}

int64_t ThreadCpuNs() {
  struct timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// Writes every packet it is fed back to one inject node, as the daemon does.
class Loopback : public lumx::dspsim::PacketSink {
 public:
  explicit Loopback(int fd) : fd_(fd) {}
  void OnPacket(const lumx::dspsim::PacketHeader& h, const uint8_t* payload) override {
    const uint8_t* start = payload - kPacketHeaderSize;
    if (write(fd_, start, kPacketHeaderSize + h.payloadSize) < 0) ++writeErrors;
  }
  void OnParseError(lumx::dspsim::ParseError, size_t) override { ++parseErrors; }
  uint64_t writeErrors = 0;
  uint64_t parseErrors = 0;

 private:
  int fd_;
};

void BM_Simulator8Streams(benchmark::State& state) {
  const double seconds = RunSeconds();
  for (auto _ : state) {
    lumx::dspsim::TempDir dir;
    lumx::dspsim::Options o;
    o.devRoot = dir.path();
    o.statsPath.clear();
    o.tapOutIds.clear();
    std::string table;
    for (int i = 0; i < kStreams; ++i) {
      int id = kFirstId + i;
      o.tapOutIds.push_back(id);
      char line[128];
      std::snprintf(line, sizeof line, "2 s%03d.0 48000 480 %d 16 enabled=1 tapout=%d inject=%d\n",
                    i, 1 + i % 2, id, id);
      table += line;
    }
    o.injectIds = o.tapOutIds;
    std::string err;
    if (!lumx::dspsim::ParseTapTable(table, &o.taps, &err)) {
      state.SkipWithError(err.c_str());
      return;
    }
    lumx::dspsim::SimThread sim(o);
    if (!sim.Start(&err)) {
      state.SkipWithError(err.c_str());
      return;
    }
    std::vector<lumx::unique_fd> in, out;
    std::vector<Loopback> loops;
    std::vector<lumx::dspsim::PacketParser> parsers(kStreams);
    for (int i = 0; i < kStreams; ++i) {
      int id = kFirstId + i;
      in.emplace_back(open((dir.path() + "/zch-lumx_tapout" + std::to_string(id)).c_str(),
                           O_RDONLY | O_NONBLOCK | O_CLOEXEC));
      out.emplace_back(open((dir.path() + "/zch-lumx_inject" + std::to_string(id)).c_str(),
                            O_WRONLY | O_CLOEXEC));
      loops.emplace_back(out.back().get());
    }
    std::atomic<bool> stop{false};
    std::thread reader([&] {
      std::vector<uint8_t> buf(65536);
      std::vector<pollfd> fds;
      for (auto& fd : in) fds.push_back(pollfd{fd.get(), POLLIN, 0});
      while (!stop) {
        if (poll(fds.data(), fds.size(), 100) <= 0) continue;
        for (size_t i = 0; i < fds.size(); ++i) {
          if ((fds[i].revents & POLLIN) == 0) continue;
          ssize_t n = read(fds[i].fd, buf.data(), buf.size());
          if (n > 0) parsers[i].Feed(buf.data(), static_cast<size_t>(n), &loops[i]);
        }
      }
    });
    // Let the streams settle, then measure over a fixed wall-clock window.
    usleep(200000);
    lumx::dspsim::SimStats a = sim.sim().Snapshot();
    usleep(static_cast<useconds_t>(seconds * 1e6));
    lumx::dspsim::SimStats b = sim.sim().Snapshot();
    stop = true;
    reader.join();
    sim.Stop();

    double wall = static_cast<double>(b.nowNs - a.nowNs);
    double simPct = 100.0 * static_cast<double>(b.cpuNs - a.cpuNs) / wall;
    uint64_t sent = 0, received = 0, overruns = 0, dropped = 0, p99 = 0, gaps = 0;
    for (auto& [id, s] : b.tapOuts) {
      sent += s.packetsSent - a.tapOuts[id].packetsSent;
      overruns += s.overruns;
      dropped += s.droppedBusy + s.droppedNoReader - a.tapOuts[id].droppedBusy -
                 a.tapOuts[id].droppedNoReader;
    }
    for (auto& [id, s] : b.injects) {
      received += s.packetsReceived - a.injects[id].packetsReceived;
      gaps += s.gaps;
      p99 = std::max(p99, s.latencyUs.Quantile(0.99));
    }

    // Baseline: the bare cost of waking at the same 800 deadlines a second.
    std::atomic<int64_t> baseCpu{0};
    std::thread base([&] {
      int64_t cpu0 = ThreadCpuNs();
      struct timespec next;
      clock_gettime(CLOCK_MONOTONIC, &next);
      const long periodNs = 10000000 / kStreams;  // 8 deadlines per 10 ms
      long ticks = static_cast<long>(seconds * 1e9 / periodNs);
      for (long t = 0; t < ticks; ++t) {
        next.tv_nsec += periodNs;
        if (next.tv_nsec >= 1000000000) {
          next.tv_nsec -= 1000000000;
          ++next.tv_sec;
        }
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
      }
      baseCpu = ThreadCpuNs() - cpu0;
    });
    base.join();
    double basePct = 100.0 * static_cast<double>(baseCpu.load()) / (seconds * 1e9);

    state.counters["sim_cpu_pct"] = simPct;
    state.counters["baseline_cpu_pct"] = basePct;
    state.counters["ratio"] = basePct > 0 ? simPct / basePct : 0;
    state.counters["packets_per_s"] = static_cast<double>(sent) / (wall / 1e9);
    state.counters["expected_per_s"] = kStreams * 100.0;
    state.counters["looped_back"] = static_cast<double>(received);
    state.counters["dropped"] = static_cast<double>(dropped);
    state.counters["overruns"] = static_cast<double>(overruns);
    state.counters["inject_gaps"] = static_cast<double>(gaps);
    state.counters["latency_p99_us"] = static_cast<double>(p99);
    std::printf(
        "lumx-dspsim, %d streams x 480 samples, %.1f s: simulator %.2f %% of one core, "
        "baseline (bare wake-ups) %.2f %%, ratio %.2f; %.1f packets/s (expected %d), "
        "%llu dropped, %llu overruns, round-trip p99 %llu us\n",
        kStreams, seconds, simPct, basePct, basePct > 0 ? simPct / basePct : 0.0,
        static_cast<double>(sent) / (wall / 1e9), kStreams * 100,
        static_cast<unsigned long long>(dropped), static_cast<unsigned long long>(overruns),
        static_cast<unsigned long long>(p99));
  }
}
BENCHMARK(BM_Simulator8Streams)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
