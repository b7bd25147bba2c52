#include "processors/audio_relay_processor.h"

#include <android/binder_ibinder.h>
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>

#include "buffer/lumx_buffer.h"
#include "common/lumx_log.h"
#include "common/rate_limit.h"
#include "common/unique_fd.h"
#include "service/lumx_service.h"

namespace {

constexpr size_t kFrameBytes = kProcessorFrameSamples * 2;  // one 10 ms mono frame of 16-bit samples
constexpr uint32_t kRelayBytesPerSample = 2;

// The test tone: 480 samples (10 ms) of a 1 kHz square wave at 48 kHz,
// amplitude 4096, half-period 24 samples, starting negative; little-endian.
constexpr std::array<uint8_t, kFrameBytes> MakeToneBurst() {
  std::array<uint8_t, kFrameBytes> bytes{};
  for (size_t i = 0; i < kProcessorFrameSamples; ++i) {
    const uint16_t sample = ((i / 24) % 2 == 0) ? static_cast<uint16_t>(-4096) : static_cast<uint16_t>(4096);
    bytes[2 * i] = static_cast<uint8_t>(sample & 0xff);
    bytes[2 * i + 1] = static_cast<uint8_t>(sample >> 8);
  }
  return bytes;
}
constexpr std::array<uint8_t, kFrameBytes> kToneBurst = MakeToneBurst();

// Whether the telephony use case is on; read by the use-case queries.
std::atomic<bool> gTelephonyUseCaseEnabled{false};

void ResetPacketCodes(AudioPacket& packet) {
  packet.processor_id = 0;
  packet.sampleRate = static_cast<int8_t>(0xFF);
  packet.format = static_cast<int8_t>(0xFF);
  packet.bitsPerSample = static_cast<int8_t>(0xFF);
  packet.numChannels = 0;
  packet.reserved = 1;
}

// How long stopping a sender waits for its thread before leaving it to end
// on its own: a client that hangs in a call must not hold up the binder
// thread that replaces or deletes it.
constexpr std::chrono::milliseconds kSenderStopWait{100};

}  // namespace

struct AudioRelayProcessor::ClientCounters {
  lumx::StatCounter sent;
  lumx::StatCounter failed;
  lumx::StatCounter dropped;
  // One line a second at most for each way a client can fail.
  lumx::LogRateLimiter deadLimit;
  lumx::LogRateLimiter failLimit;
  lumx::LogRateLimiter slowLimit;
  lumx::LogRateLimiter stuckLimit;
  lumx::LogRateLimiter startLimit;
};

// One registered client's delivery: a thread at normal priority that hands
// queued blocks to the callback, and the queue between it and the I/O thread.
//
// The queue is kClientQueueBlocks + 1 slots, each with a packet whose data is
// reserved for the longest block, so pushing never allocates. A slot is free
// (the I/O thread may fill it), ready (queued, numbered in push order) or in
// delivery (the sender reads it). Only the I/O thread makes a free slot ready
// and drops a ready one; only the sender claims a ready slot and frees it
// again, so every hand-over is one atomic state change and neither side ever
// waits for the other. A slot in delivery counts toward the bound until the
// client has taken its block.
class AudioRelayProcessor::ClientSender {
 public:
  ClientSender(const char* name, std::shared_ptr<IReceiveAudioCallback> cb, std::shared_ptr<ClientCounters> counters)
      : callback_(std::move(cb)),
        binder_(callback_->asBinder()),
        remote_(AIBinder_isRemote(binder_.get())),
        counters_(std::move(counters)) {
    memcpy(name_, name, sizeof(name_));
    for (Slot& slot : slots_) slot.packet.data.reserve(kMaxBlockBytes);
  }

  // Starts the sender thread at normal priority, whatever the caller's.
  // Null (and logged) when no thread can be had.
  static std::shared_ptr<ClientSender> Start(const char* name, std::shared_ptr<IReceiveAudioCallback> cb,
                                             std::shared_ptr<ClientCounters> counters) {
    auto sender = std::make_shared<ClientSender>(name, std::move(cb), std::move(counters));
    sender->wake_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!sender->wake_.ok()) {
      const int err = errno;
      LUMX_LOGE_LIMITED(sender->counters_->startLimit, "relay client sender",
                        "%s %s: no client sender (eventfd errno %d)", name, "RegisterReceiveAudioCallback", err);
      return nullptr;
    }
    // Threads inherit their creator's policy; this one must never run
    // real-time, so its policy is set explicitly.
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setinheritsched(&attr, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attr, SCHED_OTHER);
    sched_param param{};
    param.sched_priority = 0;
    pthread_attr_setschedparam(&attr, &param);
    auto* self = new std::shared_ptr<ClientSender>(sender);
    const int rc = pthread_create(&sender->thread_, &attr, &ClientSender::ThreadMain, self);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
      delete self;
      LUMX_LOGE_LIMITED(sender->counters_->startLimit, "relay client sender",
                        "%s %s: no client sender (pthread_create %d)", name, "RegisterReceiveAudioCallback", rc);
      return nullptr;
    }
    char threadName[16];
    snprintf(threadName, sizeof(threadName), "relay-%s", name);
    pthread_setname_np(sender->thread_, threadName);
    return sender;
  }

  // Ends the thread; blocks still queued are not delivered. Waits a bounded
  // time: a thread stuck in a call to a hung client is left to end when the
  // call returns (it keeps this object alive until then).
  void Stop() {
    stopping_.store(true, std::memory_order_relaxed);
    Wake();
    bool exited;
    {
      lumx::MutexLock lock(&exitMutex_);
      const auto deadline = std::chrono::steady_clock::now() + kSenderStopWait;
      while (!exited_ && exitCv_.wait_until(exitMutex_, deadline) == std::cv_status::no_timeout) {
      }
      exited = exited_;
    }
    if (exited) {
      pthread_join(thread_, nullptr);
    } else {
      LUMX_LOGW_LIMITED(counters_->stuckLimit, "relay client stuck",
                        "%s %s: client call still running, sender left to end on its own", name_, "ReceiveAudio");
      pthread_detach(thread_);
    }
  }

  // I/O thread: queues a copy of `block` for the client. Lock-free, no
  // allocation, never waits; when the queue is full the oldest queued block
  // is dropped and counted.
  void Push(const AudioPacket& block) {
    for (int attempt = 0;; ++attempt) {
      uint32_t held = 0;
      int oldest = -1;
      uint64_t oldestSeq = UINT64_MAX;
      for (int i = 0; i < kSlots; ++i) {
        const uint32_t state = slots_[i].state.load(std::memory_order_acquire);
        if (state == kFree) continue;
        ++held;
        const uint64_t seq = slots_[i].seq.load(std::memory_order_relaxed);
        if (state == kReady && seq < oldestSeq) {
          oldest = i;
          oldestSeq = seq;
        }
      }
      if (held < kClientQueueBlocks) break;
      uint32_t expected = kReady;
      if (oldest >= 0 &&
          slots_[oldest].state.compare_exchange_strong(expected, kFree, std::memory_order_acq_rel)) {
        counters_->dropped.Add();
        break;
      }
      // The sender claimed that one meanwhile; look again, a bounded number
      // of times (it claims at most one block per delivery).
      if (attempt == 3) {
        counters_->dropped.Add();
        return;
      }
    }
    // With at most kClientQueueBlocks held, a free slot is left.
    for (Slot& slot : slots_) {
      if (slot.state.load(std::memory_order_acquire) != kFree) continue;
      AudioPacket& p = slot.packet;
      p.processor_id = block.processor_id;
      p.data.assign(block.data.begin(), block.data.end());  // within the reserved capacity
      p.sampleRate = block.sampleRate;
      p.format = block.format;
      p.bitsPerSample = block.bitsPerSample;
      p.numChannels = block.numChannels;
      p.reserved = block.reserved;
      slot.seq.store(++pushed_, std::memory_order_relaxed);
      slot.state.store(kReady, std::memory_order_release);
      Wake();
      return;
    }
  }

  uint32_t queued() const {
    uint32_t n = 0;
    for (const Slot& slot : slots_) n += slot.state.load(std::memory_order_relaxed) != kFree ? 1 : 0;
    return n;
  }

 private:
  enum : uint32_t { kFree, kReady, kDelivering };
  static constexpr int kSlots = kClientQueueBlocks + 1;

  struct Slot {
    std::atomic<uint32_t> state{kFree};
    std::atomic<uint64_t> seq{0};  // push order
    AudioPacket packet;
  };

  static void* ThreadMain(void* arg) {
    std::shared_ptr<ClientSender> self = std::move(*static_cast<std::shared_ptr<ClientSender>*>(arg));
    delete static_cast<std::shared_ptr<ClientSender>*>(arg);
    self->Run();
    {
      lumx::MutexLock lock(&self->exitMutex_);
      self->exited_ = true;
    }
    self->exitCv_.notify_all();
    return nullptr;
  }

  void Wake() {
    const uint64_t one = 1;
    // Fails only when the count would overflow: the sender is awake anyway.
    if (write(wake_.get(), &one, sizeof(one)) < 0) return;
  }

  // Sleeps until Wake() was called since the last return.
  void WaitForWake() {
    pollfd pfd{wake_.get(), POLLIN, 0};
    if (poll(&pfd, 1, -1) <= 0) return;  // EINTR: the caller looks again anyway
    uint64_t count;
    if (read(wake_.get(), &count, sizeof(count)) < 0) return;
  }

  // Claims the oldest ready slot; -1 when none is ready.
  int ClaimOldest() {
    for (;;) {
      int oldest = -1;
      uint64_t oldestSeq = UINT64_MAX;
      for (int i = 0; i < kSlots; ++i) {
        if (slots_[i].state.load(std::memory_order_acquire) != kReady) continue;
        const uint64_t seq = slots_[i].seq.load(std::memory_order_relaxed);
        if (seq < oldestSeq) {
          oldest = i;
          oldestSeq = seq;
        }
      }
      if (oldest < 0) return -1;
      uint32_t expected = kReady;
      if (!slots_[oldest].state.compare_exchange_strong(expected, kDelivering, std::memory_order_acquire)) continue;
      if (slots_[oldest].seq.load(std::memory_order_relaxed) == oldestSeq) return oldest;
      // Dropped and refilled with a newer block between the look and the
      // claim: give it back and look again, so blocks go out in order.
      slots_[oldest].state.store(kReady, std::memory_order_release);
    }
  }

  void Run() {
    while (!stopping_.load(std::memory_order_relaxed)) {
      const int i = ClaimOldest();
      if (i < 0) {
        WaitForWake();
        continue;
      }
      Deliver(slots_[i].packet);
      slots_[i].state.store(kFree, std::memory_order_release);
    }
  }

  void Deliver(const AudioPacket& packet) {
    const ::ndk::ScopedAStatus status = callback_->ReceiveAudio(packet);
    binder_status_t code = status.isOk() ? STATUS_OK : status.getStatus();
    // A one-way call returns once the transport has the block. Waiting for
    // the client to answer a ping sent behind it keeps the block counted
    // here until the client has it, so a client that stops does not find a
    // transport full of stale blocks when it resumes.
    if (status.isOk() && remote_) {
      code = AIBinder_ping(binder_.get());
    }
    ClientCounters& c = *counters_;
    if (status.isOk() && code == STATUS_OK) {
      c.sent.Add();
    } else {
      c.failed.Add();
      const unsigned long long failed = c.failed.Get();
      if (code == STATUS_DEAD_OBJECT) {
        LUMX_LOGE_LIMITED(c.deadLimit, "relay client dead", "%s %s: client is dead, %llu blocks not delivered",
                          name_, "ReceiveAudio", failed);
      } else {
        // A failure other than the transport's reads as its exception code.
        const int32_t shown = code != STATUS_OK ? code : status.getExceptionCode();
        LUMX_LOGE_LIMITED(c.failLimit, "relay client call failed",
                          "%s %s: client call failed, status %d, %llu blocks not delivered", name_, "ReceiveAudio",
                          shown, failed);
      }
    }
    const uint64_t dropped = c.dropped.Get();
    // A dump's reset brings the count back down: nothing new was dropped.
    if (dropped < droppedSeen_) droppedSeen_ = dropped;
    if (dropped != droppedSeen_) {
      droppedSeen_ = dropped;
      LUMX_LOGW_LIMITED(c.slowLimit, "relay client slow", "%s %s: client too slow, %llu oldest blocks dropped",
                        name_, "ReceiveAudio", static_cast<unsigned long long>(dropped));
    }
  }

  char name_[5];
  const std::shared_ptr<IReceiveAudioCallback> callback_;
  const ::ndk::SpAIBinder binder_;
  const bool remote_;
  const std::shared_ptr<ClientCounters> counters_;
  lumx::unique_fd wake_;
  pthread_t thread_{};
  std::atomic<bool> stopping_{false};
  Slot slots_[kSlots];
  uint64_t pushed_ = 0;       // Push() only, which runs under the relay's dataMutex_
  uint64_t droppedSeen_ = 0;  // sender thread only
  lumx::Mutex exitMutex_;
  std::condition_variable_any exitCv_;
  bool exited_ GUARDED_BY(exitMutex_) = false;
};

AudioRelayProcessor::AudioRelayProcessor(uint32_t id)
    : LumxProcessor(id, kProcessorTypeArel), clientCounters_(std::make_shared<ClientCounters>()) {
  lumx::MutexLock lock(&dataMutex_);
  ResetPacketCodes(txPacket_);
  ResetPacketCodes(rxPacket_);
  // Reserved once here so that neither enabling nor SendAudio() has to grow
  // the blocks later, whatever block length is set.
  txPacket_.data.reserve(kMaxBlockBytes);
  rxPacket_.data.reserve(kMaxBlockBytes);
}

AudioRelayProcessor::~AudioRelayProcessor() {
  // Leave the buffers before the packets and locks go away.
  DetachFromBuffers();
  std::shared_ptr<ClientSender> sender;
  {
    lumx::MutexLock lock(&dataMutex_);
    sender = std::move(sender_);
  }
  if (sender != nullptr) sender->Stop();
}

void AudioRelayProcessor::Info(std::vector<std::string>& lines) const { LumxProcessor::Info(lines); }

int AudioRelayProcessor::startProcessor() {
  blockCount_ = 0;
  if (sampleRate_ != 48000) {
    LUMX_LOGE("Invalid sample rate %u", sampleRate_);
    return -1;
  }
  const uint32_t blockLength = this->blockLength();
  if (blockLength == 0) {
    LUMX_LOGE("Invalid block length");
    return -1;
  }
  txPacket_.processor_id = static_cast<int32_t>(id_);
  // Within the reserved capacity: no reallocation, kept bytes keep their content.
  txPacket_.data.resize(static_cast<size_t>(blockLength) * kRelayBytesPerSample, 0);
  txPacket_.sampleRate = kPacketSampleRate48k;
  txPacket_.format = kPacketFormatPcm;
  txPacket_.bitsPerSample = kPacketBits16;
  txPacket_.numChannels = kPacketMono;
  txPacket_.reserved = 1;

  rxPacket_.processor_id = static_cast<int32_t>(id_);
  rxPacket_.data = txPacket_.data;
  rxPacket_.sampleRate = txPacket_.sampleRate;
  rxPacket_.format = txPacket_.format;
  rxPacket_.bitsPerSample = txPacket_.bitsPerSample;
  rxPacket_.numChannels = txPacket_.numChannels;
  rxPacket_.reserved = txPacket_.reserved;
  return 0;
}

int AudioRelayProcessor::Enable(bool enable) {
  lumx::MutexLock enableLock(&enableMutex_);
  if (enable == enabled()) return 0;
  // The packets are shared with the I/O thread: change them under dataMutex_
  // so a block in progress finishes on consistent data first.
  lumx::MutexLock dataLock(&dataMutex_);
  if (!enable) {
    txPacket_.data.clear();  // capacity kept
    setEnabled(false);
    return 0;
  }
  if (startProcessor() != 0) return -1;
  setEnabled(true);
  return 0;
}

int AudioRelayProcessor::ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize) {
  lumx::MutexLock lock(&dataMutex_);
  if (!enabled()) return 0;
  return countBlock(exchangeBlock(in, inSize, out, outSize));
}

int AudioRelayProcessor::exchangeBlock(const void* in, size_t inSize, void* out, size_t outSize) {
  LumxBuffer* input = this->input();
  if (input == nullptr || output() == nullptr) return -1;

  // Stable for the whole block: a block-length change disables the relay
  // under dataMutex_ before it stores the new value.
  const uint32_t blockLength = this->blockLength();
  const size_t blockBytes = static_cast<size_t>(blockLength) * kRelayBytesPerSample;
  if (txPacket_.data.size() < blockBytes) return -1;

  const uint32_t sampleRate = input->formatSampleRate();
  const uint32_t channels = input->formatChannels();
  const uint32_t bytesPerSample = input->formatBytesPerSample();
  if (sampleRate != sampleRate_ || (channels != 1 && channels != 2) || bytesPerSample != kRelayBytesPerSample) {
    // A tap in the wrong format fails every block: one line a second.
    LUMX_LOGE_LIMITED_KEYED(formatLog_, (uint64_t{sampleRate} << 32) | (channels << 8) | bytesPerSample,
                            "Invalid tap format", "Invalid tap format (sample rate %u, ch %u, bytes/sample %u)",
                            sampleRate, channels, bytesPerSample);
    return -1;
  }

  const size_t n = inSize < outSize ? inSize : outSize;
  const size_t samples = (n / kRelayBytesPerSample) / channels;
  if (samples != blockLength) {
    LUMX_LOGE_LIMITED_KEYED(samplesLog_, (uint64_t{samples} << 32) | (uint64_t{blockLength} << 8) | channels,
                            "Unexpected number of samples",
                            "%s %s: Unexpected number of samples (%u != %u, num_ch = %u)", idName_, "ProcessBlock",
                            static_cast<unsigned>(samples), blockLength, channels);
    return -1;
  }

  ++blockCount_;

  // Capture: the first channel block of every 480-sample frame.
  const uint8_t* src = static_cast<const uint8_t*>(in);
  uint8_t* block = txPacket_.data.data();
  const uint32_t frames = blockLength / kProcessorFrameSamples;
  for (uint32_t f = 0; f < frames; ++f) {
    memcpy(block + f * kFrameBytes, src + static_cast<size_t>(f) * channels * kFrameBytes, kFrameBytes);
  }

  // Client exchange: the client hears the captured channel; the DSP gets the
  // client's latest audio once, then silence until the next SendAudio().
  // The block is queued for the client's sender thread instead of being
  // handed over here: a binder call on this thread could block it behind a
  // slow client or allocate. So the client's answer can no longer fail the
  // block; a dead or refusing client shows as the sender's rate-limited
  // lines and counters, and the DSP gets silence once its last audio is
  // played out, as it did when such blocks failed.
  if (!passthroughMode() && receiveCallback_ != nullptr) {
    if (sender_ != nullptr) sender_->Push(txPacket_);
    if (rxPending_) {
      const size_t have = rxPacket_.data.size() < blockBytes ? rxPacket_.data.size() : blockBytes;
      if (have > 0) memcpy(block, rxPacket_.data.data(), have);
      // A client that sent less than a block gets the rest as silence.
      if (have < blockBytes) memset(block + have, 0, blockBytes - have);
      rxPending_ = false;
    } else {
      memset(block, 0, blockBytes);
    }
  }

  if (testMode()) {
    const uint32_t period = blockLength != 0 ? 2 * (sampleRate_ / blockLength) : 0;
    if (period != 0 && blockCount_ % period == 0) memcpy(block, kToneBurst.data(), kFrameBytes);
  }

  // Output: every channel block of each frame carries the mono signal. A null
  // `out` means the inject buffer is not enabled: nothing to write.
  if (out != nullptr) {
    uint8_t* dst = static_cast<uint8_t*>(out);
    for (uint32_t f = 0; f < frames; ++f) {
      for (uint32_t c = 0; c < channels; ++c) {
        memcpy(dst + (static_cast<size_t>(f) * channels + c) * kFrameBytes, block + f * kFrameBytes, kFrameBytes);
      }
    }
  }
  return 0;
}

int AudioRelayProcessor::SendAudio(const AudioPacket& packet) {
  // The reference codes change only when the relay starts, under dataMutex_,
  // so they are compared under it too; the error is logged after unlocking.
  enum class Mismatch { kNone, kProcessorId, kSampleRate, kFormat, kBitsPerSample, kNumChannels };
  Mismatch mismatch = Mismatch::kNone;
  {
    lumx::MutexLock lock(&dataMutex_);
    if (packet.processor_id != rxPacket_.processor_id) {
      mismatch = Mismatch::kProcessorId;
    } else if (packet.sampleRate != rxPacket_.sampleRate) {
      mismatch = Mismatch::kSampleRate;
    } else if (packet.format != rxPacket_.format) {
      mismatch = Mismatch::kFormat;
    } else if (packet.bitsPerSample != rxPacket_.bitsPerSample) {
      mismatch = Mismatch::kBitsPerSample;
    } else if (packet.numChannels != rxPacket_.numChannels) {
      mismatch = Mismatch::kNumChannels;
    } else {
      // Single slot, last writer wins. Bytes past the longest block are never
      // injected, so they are not kept; the capacity reserved at construction
      // covers the rest, so nothing is allocated here.
      const size_t n = packet.data.size() < kMaxBlockBytes ? packet.data.size() : kMaxBlockBytes;
      rxPacket_.data.assign(packet.data.begin(), packet.data.begin() + static_cast<std::ptrdiff_t>(n));
      rxPending_ = true;
      return 0;
    }
  }
  switch (mismatch) {
    case Mismatch::kProcessorId: LUMX_LOGE("%s %s: processor_id mismatch", "SendAudio", idName_); break;
    case Mismatch::kSampleRate: LUMX_LOGE("%s %s: sampleRate mismatch", "SendAudio", idName_); break;
    case Mismatch::kFormat: LUMX_LOGE("%s %s: format mismatch", "SendAudio", idName_); break;
    case Mismatch::kBitsPerSample: LUMX_LOGE("%s %s: bitsPerSample mismatch", "SendAudio", idName_); break;
    case Mismatch::kNumChannels: LUMX_LOGE("%s %s: numChannels mismatch", "SendAudio", idName_); break;
    case Mismatch::kNone: break;
  }
  return -1;
}

void AudioRelayProcessor::RegisterReceiveAudioCallback(std::shared_ptr<IReceiveAudioCallback> cb) {
  // The new client's sender starts before the swap, the old one stops after
  // it, both outside the lock: neither a thread start nor a wait for a
  // client call may hold up the I/O thread.
  std::shared_ptr<ClientSender> sender = cb != nullptr ? ClientSender::Start(idName_, cb, clientCounters_) : nullptr;
  // Taken here, on the binder thread serving the registration.
  const int32_t pid = cb != nullptr ? static_cast<int32_t>(AIBinder_getCallingPid()) : 0;
  std::shared_ptr<IReceiveAudioCallback> previous;
  {
    lumx::MutexLock lock(&dataMutex_);
    previous = std::move(receiveCallback_);
    receiveCallback_ = std::move(cb);
    sender_.swap(sender);
    clientPid_.store(pid, std::memory_order_relaxed);
  }
  if (sender != nullptr) sender->Stop();
  // The old reference is dropped outside the lock: releasing a remote
  // callback may talk to the binder driver, which the I/O thread must not
  // wait for.
}

void AudioRelayProcessor::resetStats() {
  LumxProcessor::resetStats();
  clientCounters_->sent.Reset();
  clientCounters_->failed.Reset();
  clientCounters_->dropped.Reset();
}

RelayClientStats AudioRelayProcessor::clientStats() const {
  RelayClientStats stats;
  {
    lumx::MutexLock lock(&dataMutex_);
    stats.registered = receiveCallback_ != nullptr;
    stats.queued = sender_ != nullptr ? sender_->queued() : 0;
  }
  stats.pid = clientPid_.load(std::memory_order_relaxed);
  stats.sent = clientCounters_->sent.Get();
  stats.failed = clientCounters_->failed.Get();
  stats.dropped = clientCounters_->dropped.Get();
  return stats;
}

LumxProcessor::Status AudioRelayProcessor::GetParameter(ParameterId id, int element, ParamValue* value) const {
  if (id == ParameterId::VERSION) {
    value->set<ParamValue::Tag::i>(element == 1 ? 1 : 0);
    return Status::OK;
  }
  return LumxProcessor::GetParameter(id, element, value);
}

LumxProcessor::Status AudioRelayProcessor::SetParameter(ParameterId id, int element, const ParamValue& value) {
  {
    lumx::MutexLock enableLock(&enableMutex_);
    if (id != ParameterId::BLOCK_LENGTH) return LumxProcessor::SetParameter(id, element, value);

    // The I/O thread stops using the packets before the length changes, and
    // sees the new length only once the packets are sized for it.
    lumx::MutexLock dataLock(&dataMutex_);
    const bool wasEnabled = enabled();
    setEnabled(false);
    const Status status = LumxProcessor::SetParameter(id, element, value);
    // A refused length leaves a running relay stopped; it must be enabled again.
    if (status != Status::OK) return status;
    if (wasEnabled) {
      if (startProcessor() != 0) return Status::ERROR;
      setEnabled(true);
    }
  }

  // Keep the DSP tap's block length equal to the relay's. Done with no lock
  // held: TapSetBlockLength takes the service mutex, and ProcessorEnable
  // holds that mutex while it waits for enableMutex_.
  int32_t tap = 0;
  int32_t index = 0;
  if (id_ == kTelephonyUplinkProcessor) {
    tap = static_cast<int32_t>(kTelephonyUplinkTap);
    index = kTelephonyUplinkTapIndex;
  } else if (id_ == kTelephonyDownlinkProcessor) {
    tap = static_cast<int32_t>(kTelephonyDownlinkTap);
    index = kTelephonyDownlinkTapIndex;
  }
  LumxService* service = __atomic_load_n(&gService, __ATOMIC_ACQUIRE);
  if (tap != 0 && service != nullptr) {
    CommandResult scratch;
    service->TapSetBlockLength(kTelephonyCore, tap, index, static_cast<int32_t>(blockLength()), &scratch);
  }
  return Status::OK;
}

bool AudioRelayProcessor::TelephonyUseCaseEnabled() { return gTelephonyUseCaseEnabled.load(); }

void AudioRelayProcessor::EnableTelephonyUseCase(bool enable, void* resultArg) {
  CommandResult* result = static_cast<CommandResult*>(resultArg);
  LumxService* service = __atomic_load_n(&gService, __ATOMIC_ACQUIRE);
  if (service == nullptr) {
    result->status = CommandResult::Status::ERROR;
    return;
  }
  const auto failed = [result] { return result->status != CommandResult::Status::OK; };
  const int32_t art0 = static_cast<int32_t>(kTelephonyDownlinkProcessor);
  const int32_t art1 = static_cast<int32_t>(kTelephonyUplinkProcessor);
  const int32_t arel = static_cast<int32_t>(kProcessorTypeArel);
  const int32_t vpdl = static_cast<int32_t>(kTelephonyDownlinkTap);
  const int32_t vpul = static_cast<int32_t>(kTelephonyUplinkTap);

  if (!enable) {
    service->TapEnable(kTelephonyCore, vpdl, kTelephonyDownlinkTapIndex, false, result);
    if (failed()) return;
    service->TapEnable(kTelephonyCore, vpul, kTelephonyUplinkTapIndex, false, result);
    if (failed()) return;
    service->StopIo(kTelephonyDownlinkBuffer, result);
    if (failed()) return;
    service->StopIo(kTelephonyUplinkBuffer, result);
    if (failed()) return;
    CommandResult scratch;
    service->ProcessorEnable(art0, false, &scratch);
    service->ProcessorEnable(art1, false, &scratch);
    service->DeleteProcessor(art0, &scratch);
    service->DeleteProcessor(art1, &scratch);
    gTelephonyUseCaseEnabled.store(false);
    return;
  }

  service->NewProcessorWithType(art0, arel, result);
  if (failed()) return;
  service->NewProcessorWithType(art1, arel, result);
  if (failed()) return;
  service->Connect(art0, kTelephonyDownlinkBuffer, kTelephonyDownlinkBuffer, result);
  if (failed()) return;
  service->Connect(art1, kTelephonyUplinkBuffer, kTelephonyUplinkBuffer, result);
  if (failed()) return;
  service->ProcessorEnable(art0, true, result);
  if (failed()) return;
  service->ProcessorEnable(art1, true, result);
  if (failed()) return;
  service->ConnectTap(kTelephonyCore, vpdl, kTelephonyDownlinkTapIndex, kTelephonyDownlinkBuffer,
                      kTelephonyDownlinkBuffer, result);
  if (failed()) return;
  service->ConnectTap(kTelephonyCore, vpul, kTelephonyUplinkTapIndex, kTelephonyUplinkBuffer,
                      kTelephonyUplinkBuffer, result);
  if (failed()) return;

  // Both lengths are read before either tap is set. The references keep the
  // processors alive should a client delete them meanwhile.
  uint32_t downlinkLength = 0;
  uint32_t uplinkLength = 0;
  {
    LumxService::ProcessorRef downlink(service, kTelephonyDownlinkProcessor);
    LumxService::ProcessorRef uplink(service, kTelephonyUplinkProcessor);
    if (!downlink || !uplink) {
      // Only a concurrent DeleteProcessor gets here.
      result->strList.push_back("Lumx processor not found");
      result->status = CommandResult::Status::INVALID_PROCESSOR;
      return;
    }
    downlinkLength = downlink->blockLength();
    uplinkLength = uplink->blockLength();
  }
  service->TapSetBlockLength(kTelephonyCore, vpdl, kTelephonyDownlinkTapIndex, static_cast<int32_t>(downlinkLength),
                             result);
  if (failed()) return;
  service->TapSetBlockLength(kTelephonyCore, vpul, kTelephonyUplinkTapIndex, static_cast<int32_t>(uplinkLength),
                             result);
  if (failed()) return;
  service->TapEnable(kTelephonyCore, vpdl, kTelephonyDownlinkTapIndex, true, result);
  if (failed()) return;
  service->TapEnable(kTelephonyCore, vpul, kTelephonyUplinkTapIndex, true, result);
  if (failed()) return;
  service->StartIo(kTelephonyDownlinkBuffer, result);
  if (failed()) return;
  service->StartIo(kTelephonyUplinkBuffer, result);
  if (failed()) return;
  gTelephonyUseCaseEnabled.store(true);
}
