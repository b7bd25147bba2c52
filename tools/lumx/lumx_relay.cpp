// `lumx relay`: streams audio to and from an audio relay processor.
//
// A callback object receives every block the processor hands out (one-way
// calls on a binder pool thread). The pool thread only stamps and queues the
// packet; the main thread records it, answers it with one block of the play
// file through SendAudio, and watches for the end of the session: the time
// limit, SIGINT/SIGTERM (blocked in every thread and polled here), the death
// of the daemon, or another client registering on the processor.
//
// A processor holds one callback, and registering a null one detaches
// whoever is registered. So the session detaches only while its own
// callback is the one held: the daemon drops its reference to our callback
// object when another client replaces it, and then nothing keeps the
// object's binder alive (we hold it weakly).
#include <android/binder_ibinder.h>
#include <android/binder_process.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>

#include "common/thread_annotations.h"
#include "lumx_client.h"
#include "relay_stats.h"
#include "wav_io.h"

namespace lumx::cli {

using aidl::lumx::ILumx;

namespace {

// Codes of a packet of 48 kHz, signed 16-bit, mono audio.
constexpr int8_t kRateCode48k = 5;
constexpr int8_t kFormatPcm = 0;
constexpr int8_t kBits16Code = 1;
constexpr int8_t kMono = 1;
constexpr int8_t kReserved = 1;

// About a minute of 100 ms blocks; beyond that the main thread is hopelessly
// behind and further packets are counted as dropped instead of queued.
constexpr size_t kMaxQueued = 600;

constexpr std::chrono::milliseconds kPollInterval{50};

int64_t NowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

struct ReceivedPacket {
  int64_t arrivalNs;
  ILumx::AudioPacket packet;
};

// Hand-over from the binder thread that receives packets to the main thread.
class PacketQueue {
 public:
  void Push(ReceivedPacket packet) {
    {
      MutexLock lock(&mu_);
      if (queue_.size() >= kMaxQueued) {
        ++dropped_;
      } else {
        queue_.push_back(std::move(packet));
      }
    }
    cv_.notify_one();
  }

  void MarkDead() {
    {
      MutexLock lock(&mu_);
      dead_ = true;
    }
    cv_.notify_one();
  }

  // Waits up to `timeout` for a packet or the daemon's death, then moves
  // everything queued to `out`. Returns whether the daemon has died.
  bool WaitAndTake(std::chrono::milliseconds timeout,
                   std::deque<ReceivedPacket>* out, uint64_t* dropped) {
    MutexLock lock(&mu_);
    if (queue_.empty() && !dead_ && timeout.count() > 0) {
      cv_.wait_for(mu_, timeout);
    }
    while (!queue_.empty()) {
      out->push_back(std::move(queue_.front()));
      queue_.pop_front();
    }
    *dropped += std::exchange(dropped_, 0);
    return dead_;
  }

 private:
  Mutex mu_;
  std::condition_variable_any cv_;
  std::deque<ReceivedPacket> queue_ GUARDED_BY(mu_);
  uint64_t dropped_ GUARDED_BY(mu_) = 0;
  bool dead_ GUARDED_BY(mu_) = false;
};

class Receiver : public ILumx::BnReceiveAudioCallback {
 public:
  explicit Receiver(std::shared_ptr<PacketQueue> queue)
      : queue_(std::move(queue)) {}

  ndk::ScopedAStatus ReceiveAudio(const ILumx::AudioPacket& packet) override {
    queue_->Push({NowNs(), packet});
    return ndk::ScopedAStatus::ok();
  }

 private:
  // Shared: the daemon may still hold this object after the session ends.
  const std::shared_ptr<PacketQueue> queue_;
};

void OnDaemonDied(void* cookie) { static_cast<PacketQueue*>(cookie)->MarkDead(); }

std::string DisplacedText(const std::string& processor) {
  return "another client registered on " + processor +
         " (or the processor was deleted): this session no longer receives its audio";
}

// Whether the daemon still holds the callback we registered.
class Registration {
 public:
  explicit Registration(AIBinder* binder) : weak_(AIBinder_Weak_new(binder)) {}
  bool Held() const {
    AIBinder* b = AIBinder_Weak_promote(weak_.get());
    if (b == nullptr) return false;
    AIBinder_decStrong(b);
    return true;
  }

 private:
  ndk::ScopedAIBinder_Weak weak_;
};

// True if SIGINT or SIGTERM is pending (they are blocked in every thread).
bool StopSignalPending(const sigset_t& signals) {
  timespec zero{0, 0};
  return sigtimedwait(&signals, nullptr, &zero) > 0;
}

class RelaySession {
 public:
  RelaySession(const RelayOptions& options, std::shared_ptr<ILumx> lumx,
               WavSource* source, WavSink* sink)
      : options_(options),
        processorId_(static_cast<int32_t>(options.processor)),
        lumx_(std::move(lumx)),
        source_(source),
        sink_(sink),
        sending_(!options.play.empty()) {}

  // Records one packet and, while the play file lasts and `reply` is set,
  // answers it with a block of the same length. False if the daemon could
  // not be reached.
  bool Handle(const ReceivedPacket& received, bool reply) {
    const ILumx::AudioPacket& p = received.packet;
    if (p.data.size() % 2 != 0 || p.sampleRate != kRateCode48k ||
        p.format != kFormatPcm || p.bitsPerSample != kBits16Code ||
        p.numChannels != kMono) {
      stats_.OnBadPacket();
      return true;
    }
    const std::vector<int16_t> samples = BytesToSamples(p.data.data(), p.data.size());
    stats_.OnPacket(received.arrivalNs, samples.size());
    if (!options_.record.empty()) sink_->Write(samples.data(), samples.size());
    if (!reply || !sending_ || samples.empty()) return true;

    playBlock_.assign(samples.size(), 0);
    if (source_->Read(samples.size(), playBlock_.data()) == 0) {
      sending_ = false;  // the play file is over; the processor injects silence
      return true;
    }
    ILumx::AudioPacket out;
    out.processor_id = processorId_;
    out.data = SamplesToBytes(playBlock_.data(), playBlock_.size());
    out.sampleRate = kRateCode48k;
    out.format = kFormatPcm;
    out.bitsPerSample = kBits16Code;
    out.numChannels = kMono;
    out.reserved = kReserved;
    ILumx::CommandResult result;
    ndk::ScopedAStatus status = lumx_->SendAudio(processorId_, out, &result);
    if (!status.isOk()) {
      error_ = "SendAudio to " + ServiceName() + " failed: " + status.getDescription();
      return false;
    }
    const int code = static_cast<int8_t>(result.status);
    stats_.OnSent(code == 0);
    if (code != 0 && !reportedSendError_) {
      reportedSendError_ = true;
      fprintf(stderr, "lumx: relay: SendAudio answered %s\n", StatusName(code).c_str());
    }
    return true;
  }

  RelayStats& stats() { return stats_; }
  const std::string& error() const { return error_; }

 private:
  const RelayOptions& options_;
  const int32_t processorId_;
  const std::shared_ptr<ILumx> lumx_;
  WavSource* const source_;
  WavSink* const sink_;
  bool sending_;
  bool reportedSendError_ = false;
  std::vector<int16_t> playBlock_;
  RelayStats stats_;
  std::string error_;
};

}  // namespace

int RunRelay(const RelayOptions& options) {
  // Block the stop signals before any thread exists, so that every thread
  // inherits the mask and the signals stay pending for the main loop.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  const std::string processorName = FourCCToString(options.processor);
  // A session that cannot start says why, also as JSON when asked.
  auto fail = [&options](const std::string& why, int rc) {
    fprintf(stderr, "lumx: %s\n", why.c_str());
    if (options.jsonStats) {
      const std::string json = ErrorJson(&RelayOperation(), why, rc);
      fwrite(json.data(), 1, json.size(), stdout);
    }
    return rc;
  };
  std::string error;
  WavSource source;
  if (!options.play.empty()) {
    int rc = source.Open(options.play, &error);
    if (rc != 0) return fail("relay: " + error, rc);
  }
  WavSink sink;
  if (!options.record.empty()) {
    int rc = sink.Create(options.record, &error);
    if (rc != 0) return fail("relay: " + error, rc);
  }

  std::shared_ptr<ILumx> lumx = ConnectToService(options.timeoutMs, &error);
  if (!lumx) return fail(error, kExitUnavailable);
  // Packets arrive as incoming calls, served by the pool.
  ABinderProcess_startThreadPool();

  auto queue = std::make_shared<PacketQueue>();
  // Declared after `queue`, so it is unlinked before the queue goes away.
  ndk::ScopedAIBinder_DeathRecipient death(AIBinder_DeathRecipient_new(OnDaemonDied));
  // Without a death notice the session still ends at its limit or signal,
  // and the detaching call then reports the lost daemon.
  (void)AIBinder_linkToDeath(lumx->asBinder().get(), death.get(), queue.get());

  const int32_t processorId = static_cast<int32_t>(options.processor);
  std::shared_ptr<ILumx::IReceiveAudioCallback> receiver =
      ndk::SharedRefBase::make<Receiver>(queue);
  ILumx::CommandResult result;
  ndk::ScopedAStatus status =
      lumx->RegisterReceiveAudioCallback(processorId, receiver, &result);
  if (!status.isOk()) {
    fprintf(stderr, "lumx: relay: RegisterReceiveAudioCallback on %s failed: %s\n",
            ServiceName().c_str(), status.getDescription().c_str());
    return kExitUnavailable;
  }
  if (result.status != ILumx::CommandResult::Status::OK) {
    const Operation& op = Operations()[static_cast<int>(OpId::kRegisterReceiveAudioCallback) - 1];
    const Outcome outcome = ToOutcome(result);
    const std::string text =
        options.jsonStats ? FormatJson(op, outcome) : FormatText(op, outcome);
    fwrite(text.data(), 1, text.size(), stdout);
    fflush(stdout);
    fprintf(stderr, "lumx: relay: processor %s refused the callback: %s\n",
            processorName.c_str(), StatusName(outcome.status).c_str());
    return ExitCodeForStatus(outcome.status);
  }

  // Watched weakly from now on; the daemon's reference keeps it alive.
  const Registration registration(receiver->asBinder().get());
  RelaySession session(options, lumx, &source, &sink);
  const auto start = std::chrono::steady_clock::now();
  const auto limit = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(options.seconds));
  int exitCode = kExitOk;
  std::string endError;
  bool daemonDied = false;
  uint64_t dropped = 0;
  std::deque<ReceivedPacket> batch;
  for (;;) {
    auto wait = kPollInterval;
    if (options.seconds > 0) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          start + limit - std::chrono::steady_clock::now());
      wait = std::clamp(left, std::chrono::milliseconds(0), kPollInterval);
    }
    daemonDied = queue->WaitAndTake(wait, &batch, &dropped);
    bool reachable = true;
    for (const ReceivedPacket& packet : batch) {
      if (reachable) reachable = session.Handle(packet, true);
    }
    batch.clear();
    if (!reachable) {
      exitCode = kExitUnavailable;
      endError = session.error();
      break;
    }
    if (!daemonDied && !registration.Held()) {
      // Dropped by the daemon: replaced, unless the daemon itself is gone.
      daemonDied = AIBinder_ping(lumx->asBinder().get()) != STATUS_OK;
      if (!daemonDied) {
        exitCode = kExitDisplaced;
        endError = DisplacedText(processorName);
        break;
      }
    }
    if (daemonDied) {
      exitCode = kExitUnavailable;
      endError = "lost the connection to " + ServiceName();
      break;
    }
    if (StopSignalPending(stopSignals)) break;
    if (options.seconds > 0 && std::chrono::steady_clock::now() - start >= limit) break;
  }

  if (exitCode == kExitOk) {
    if (registration.Held()) {
      // Detach, so the processor stops calling a client that is going away
      // (only while it is ours: a null callback detaches whoever holds it).
      ILumx::CommandResult detach;
      status = lumx->RegisterReceiveAudioCallback(processorId, nullptr, &detach);
      if (!status.isOk()) {
        exitCode = kExitUnavailable;
        endError = "detaching from " + ServiceName() + " failed: " + status.getDescription();
      }
    } else if (AIBinder_ping(lumx->asBinder().get()) == STATUS_OK) {
      exitCode = kExitDisplaced;
      endError = DisplacedText(processorName);
    } else {
      exitCode = kExitUnavailable;
      endError = "lost the connection to " + ServiceName();
    }
  }
  // Keep what arrived before the detach took effect; answer none of it.
  queue->WaitAndTake(std::chrono::milliseconds(0), &batch, &dropped);
  for (const ReceivedPacket& packet : batch) session.Handle(packet, false);
  session.stats().OnDropped(dropped);

  if (!options.record.empty() && !sink.Close()) {
    if (exitCode == kExitOk) {
      exitCode = kExitIoErr;
      endError = "writing '" + options.record + "' failed";
    }
  }
  if (!endError.empty()) fprintf(stderr, "lumx: relay: %s\n", endError.c_str());

  const RelaySummary summary = session.stats().Summary();
  const std::string text =
      options.jsonStats ? FormatRelayJson(processorName, summary, exitCode, endError)
                        : FormatRelayText(summary);
  fwrite(text.data(), 1, text.size(), stdout);
  fflush(stdout);
  return exitCode;
}

}  // namespace lumx::cli
