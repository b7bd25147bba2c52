// Per-block cost of the two processors' ProcessBlock against a bare memcpy of
// the same bytes measured in the same run, at 480, 4800 and 24000 samples
// (16-bit mono, as a relay tap delivers them); and the relay's exchange with
// a client reached through the host binder runtime's socket transport.
//
// Prints Google Benchmark's table, then the ratio of each figure to the
// memcpy baseline of the same size.
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"
#include "lumx_host/binder_host.h"
#include "lumx_host/log_capture.h"
#include "processors/audio_relay_processor.h"
#include "processors/passthru_processor.h"

namespace {

constexpr uint32_t kRelayId = 0x62656e31;  // "ben1"

size_t BytesFor(int64_t samples) { return static_cast<size_t>(samples) * 2; }

// A tap-out and an inject buffer (no devices) with a 48 kHz mono 16-bit
// stream format, wired around one processor.
struct Wiring {
  LumxBuffer tapOut{"tapout0", "/nonexistent", 0, nullptr, true};
  LumxBuffer inject{"inject0", "/nonexistent", 0, nullptr, false};

  explicit Wiring(LumxProcessor* p) {
    uint8_t header[kLumPacketHeaderSize] = {};
    lumx::PutLe32(header + kPktSampleRateOffset, 48000);
    header[kPktChannelsOffset] = 1;
    header[kPktBytesPerSampleOffset] = 2;
    tapOut.setFormatForTest(header);
    tapOut.RegisterOutput(p);
    p->SetInput(&tapOut);
    inject.RegisterInput(p);
  }
};

std::vector<uint8_t> Input(size_t bytes) {
  std::vector<uint8_t> in(bytes);
  for (size_t i = 0; i < bytes; ++i) in[i] = static_cast<uint8_t>(i * 7 + 3);
  return in;
}

void BM_Memcpy(benchmark::State& state) {
  const size_t bytes = BytesFor(state.range(0));
  const std::vector<uint8_t> in = Input(bytes);
  std::vector<uint8_t> out(bytes);
  for (auto _ : state) {
    memcpy(out.data(), in.data(), bytes);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

void BM_Passthru(benchmark::State& state) {
  const size_t bytes = BytesFor(state.range(0));
  const std::vector<uint8_t> in = Input(bytes);
  std::vector<uint8_t> out(bytes);
  PassthruProcessor p(0x70617331);
  p.Enable(true);
  for (auto _ : state) {
    p.ProcessBlock(in.data(), bytes, out.data(), bytes);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

void RelayBench(benchmark::State& state, bool testMode) {
  const size_t bytes = BytesFor(state.range(0));
  const std::vector<uint8_t> in = Input(bytes);
  std::vector<uint8_t> out(bytes);
  AudioRelayProcessor relay(kRelayId);
  Wiring wiring(&relay);
  relay.SetParameter(ParameterId::BLOCK_LENGTH, 0,
                     ParamValue::make<ParamValue::Tag::i>(static_cast<int32_t>(state.range(0))));
  relay.SetParameter(ParameterId::TEST_MODE, 0, ParamValue::make<ParamValue::Tag::i>(testMode ? 1 : 0));
  relay.Enable(true);
  for (auto _ : state) {
    if (relay.ProcessBlock(in.data(), bytes, out.data(), bytes) != 0) {
      state.SkipWithError("ProcessBlock failed");
      break;
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

void BM_Relay(benchmark::State& state) { RelayBench(state, false); }
void BM_RelayTestTone(benchmark::State& state) { RelayBench(state, true); }

// The client side of the relay: counts the packets that arrive.
class CountingClient : public ::aidl::lumx::ILumx::BnReceiveAudioCallback {
 public:
  ::ndk::ScopedAStatus ReceiveAudio(const AudioPacket& packet) override {
    std::lock_guard<std::mutex> lock(mu_);
    ++received_;
    bytes_ = packet.data.size();
    cv_.notify_all();
    return ::ndk::ScopedAStatus::ok();
  }
  uint64_t received() {
    std::lock_guard<std::mutex> lock(mu_);
    return received_;
  }
  void WaitFor(uint64_t n) {
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait(lock, [&] { return received_ >= n; });
  }

 private:
  std::mutex mu_;
  std::condition_variable cv_;
  uint64_t received_ = 0;
  size_t bytes_ = 0;
};

// The client callback as the daemon sees it: a proxy over the runtime's
// socket transport to an object served by this process's binder threads.
struct RemoteClient {
  std::shared_ptr<CountingClient> local;
  std::shared_ptr<IReceiveAudioCallback> proxy;
};

RemoteClient* GetRemoteClient() {
  static RemoteClient* client = [] {
    auto* c = new RemoteClient;
    c->local = ::ndk::SharedRefBase::make<CountingClient>();
    const char* name = "lumx.bench.ReceiveAudio/default";
    if (AServiceManager_addService(c->local->asBinder().get(), name) != EX_NONE) return c;
    ABinderProcess_setThreadPoolMaxThreadCount(1);
    ABinderProcess_startThreadPool();
    AIBinder* remote = lumx_host::ConnectToServiceSocket(name);
    if (remote == nullptr) return c;
    c->proxy = IReceiveAudioCallback::fromBinder(::ndk::SpAIBinder(remote));
    return c;
  }();
  return client;
}

// What the I/O thread pays per block with a client: capture plus the hand-
// over to the client's sender thread, timed alone. The client is drained
// after every block, as a client that keeps up with the stream would be.
void BM_RelayRemoteClientSend(benchmark::State& state) {
  RemoteClient* client = GetRemoteClient();
  if (client->proxy == nullptr || !client->proxy->isRemote()) {
    state.SkipWithError("binder runtime: no remote proxy");
    return;
  }
  const size_t bytes = BytesFor(state.range(0));
  const std::vector<uint8_t> in = Input(bytes);
  std::vector<uint8_t> out(bytes);
  AudioRelayProcessor relay(kRelayId);
  Wiring wiring(&relay);
  relay.SetParameter(ParameterId::BLOCK_LENGTH, 0,
                     ParamValue::make<ParamValue::Tag::i>(static_cast<int32_t>(state.range(0))));
  relay.Enable(true);
  relay.RegisterReceiveAudioCallback(client->proxy);
  uint64_t sent = client->local->received();
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    const int status = relay.ProcessBlock(in.data(), bytes, out.data(), bytes);
    const auto end = std::chrono::steady_clock::now();
    if (status != 0) {
      state.SkipWithError("ProcessBlock failed");
      break;
    }
    state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    client->local->WaitFor(++sent);
  }
  relay.RegisterReceiveAudioCallback(nullptr);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

// Full round trip: one block until the client has the packet, through the
// sender thread and the socket transport.
void BM_RelayRemoteClientRoundTrip(benchmark::State& state) {
  RemoteClient* client = GetRemoteClient();
  if (client->proxy == nullptr || !client->proxy->isRemote()) {
    state.SkipWithError("binder runtime: no remote proxy");
    return;
  }
  const size_t bytes = BytesFor(state.range(0));
  const std::vector<uint8_t> in = Input(bytes);
  std::vector<uint8_t> out(bytes);
  AudioRelayProcessor relay(kRelayId);
  Wiring wiring(&relay);
  relay.SetParameter(ParameterId::BLOCK_LENGTH, 0,
                     ParamValue::make<ParamValue::Tag::i>(static_cast<int32_t>(state.range(0))));
  relay.Enable(true);
  relay.RegisterReceiveAudioCallback(client->proxy);
  uint64_t sent = client->local->received();
  for (auto _ : state) {
    if (relay.ProcessBlock(in.data(), bytes, out.data(), bytes) != 0) {
      state.SkipWithError("ProcessBlock failed");
      break;
    }
    client->local->WaitFor(++sent);
  }
  relay.RegisterReceiveAudioCallback(nullptr);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

BENCHMARK(BM_Memcpy)->Arg(480)->Arg(4800)->Arg(24000);
BENCHMARK(BM_Passthru)->Arg(480)->Arg(4800)->Arg(24000);
BENCHMARK(BM_Relay)->Arg(480)->Arg(4800)->Arg(24000);
BENCHMARK(BM_RelayTestTone)->Arg(480)->Arg(4800)->Arg(24000);
BENCHMARK(BM_RelayRemoteClientSend)->Arg(480)->Arg(4800)->Arg(24000)->UseManualTime();
BENCHMARK(BM_RelayRemoteClientRoundTrip)->Arg(480)->Arg(4800)->Arg(24000);

// Console output plus a record of each run's time per iteration.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
        times_[run.benchmark_name()] = run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintRatios() const {
    printf("\nRatio to BM_Memcpy of the same size (same run):\n");
    for (const auto& entry : times_) {
      const std::string& name = entry.first;
      const size_t slash = name.find('/');
      if (slash == std::string::npos || name.compare(0, slash, "BM_Memcpy") == 0) continue;
      std::string size = name.substr(slash);
      const size_t suffix = size.find("/manual_time");
      if (suffix != std::string::npos) size.erase(suffix);
      auto base = times_.find("BM_Memcpy" + size);
      if (base == times_.end() || base->second <= 0) continue;
      printf("  %-40s %10.2fx\n", name.c_str(), entry.second / base->second);
    }
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
  // A private binder runtime directory unless the caller chose one.
  std::string runtimeDir;
  if (getenv("LUMX_BINDER_DIR") == nullptr) {
    char templ[] = "/tmp/lumx_bench_binder_XXXXXX";
    if (mkdtemp(templ) != nullptr) {
      runtimeDir = templ;
      setenv("LUMX_BINDER_DIR", templ, 1);
    }
  }
  // The relay logs nothing per good block; keep setup chatter off stderr.
  lumx_host::LogCapture quiet;
  quiet.setEcho(false);

  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  benchmark::Shutdown();
  if (!runtimeDir.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(runtimeDir, ec);
  }
  return 0;
}
