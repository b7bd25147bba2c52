// AudioRelayProcessor ("arel"): relays audio between the DSP and a client.
//
// Each block from the tap-out buffer is reduced to one 16-bit channel and
// handed to the client's IReceiveAudioCallback; the block injected back is
// the client's latest SendAudio() data, silence, or (passthrough mode) the
// captured audio itself. Locks: enableMutex_ (Enable, SetParameter) before
// dataMutex_ (packets, pending flag, callback; held by ProcessBlock for the
// whole block, the one lock the packet path takes; every other holder keeps
// it only for a bounded copy or a pointer swap, never across a binder call).
//
// The client is never called from the I/O thread: ProcessBlock hands the
// block to the client's sender thread (normal priority) through a lock-free
// queue that holds at most kClientQueueBlocks blocks, the oldest dropped
// and counted when the client falls behind.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "common/rate_limit.h"
#include "common/thread_annotations.h"
#include "processors/lumx_processor.h"

// Ids, DSP core and taps of the telephony use case.
constexpr uint32_t kTelephonyDownlinkProcessor = 0x61727430;  // "art0"
constexpr uint32_t kTelephonyUplinkProcessor = 0x61727431;    // "art1"
constexpr int32_t kTelephonyCore = 4;
constexpr uint32_t kTelephonyDownlinkTap = 0x7670646c;  // "vpdl", index 0
constexpr uint32_t kTelephonyUplinkTap = 0x7670756c;    // "vpul", index 1
constexpr int32_t kTelephonyDownlinkTapIndex = 0;
constexpr int32_t kTelephonyUplinkTapIndex = 1;
constexpr int32_t kTelephonyDownlinkBuffer = 40;
constexpr int32_t kTelephonyUplinkBuffer = 41;

// What a relay's client delivery has done, for the service's dump.
struct RelayClientStats {
  bool registered = false;  // a callback is registered
  int32_t pid = 0;          // process that registered it; 0 when unknown
  uint64_t sent = 0;        // blocks the client took
  uint64_t failed = 0;      // blocks whose delivery failed (client dead or refusing)
  uint64_t dropped = 0;     // oldest blocks dropped because the client fell behind
  uint32_t queued = 0;      // blocks held for the client now, the one in delivery included
};

class AudioRelayProcessor : public LumxProcessor {
 public:
  // Blocks held for a client at most, the one being delivered included: a
  // client that stalls gets no more than this many stale blocks afterwards.
  static constexpr uint32_t kClientQueueBlocks = 3;

  // Codes of the relay's client packets: 48 kHz, signed PCM, 16 bits, mono.
  static constexpr int8_t kPacketSampleRate48k = 5;
  static constexpr int8_t kPacketFormatPcm = 0;
  static constexpr int8_t kPacketBits16 = 1;
  static constexpr int8_t kPacketMono = 1;
  // Largest block the relay ever carries, in bytes (the longest block length
  // of 16-bit mono samples). Client data beyond it can never be injected.
  static constexpr size_t kMaxBlockBytes = kMaxBlockLength * 2;

  explicit AudioRelayProcessor(uint32_t id);
  ~AudioRelayProcessor() override;

  void Info(std::vector<std::string>& lines) const override;
  int Enable(bool enable) override EXCLUDES(enableMutex_, dataMutex_);
  int ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize) override EXCLUDES(dataMutex_);
  Status SetParameter(ParameterId id, int element, const ParamValue& value) override
      EXCLUDES(enableMutex_, dataMutex_);
  Status GetParameter(ParameterId id, int element, ParamValue* value) const override;
  int SendAudio(const AudioPacket& packet) override EXCLUDES(dataMutex_);
  void RegisterReceiveAudioCallback(std::shared_ptr<IReceiveAudioCallback> cb) override EXCLUDES(dataMutex_);

  // Builds ("art0", "art1" on taps 4:vpdl.0 and 4:vpul.1, buffers 40 and 41)
  // or tears down the telephony use case through the service's own
  // operations. `result` is the caller's CommandResult*. Call without the
  // service mutex held.
  static void EnableTelephonyUseCase(bool enable, void* result);
  // Whether the telephony use case is on.
  static bool TelephonyUseCaseEnabled();

  RelayClientStats clientStats() const EXCLUDES(dataMutex_);
  // Clears the base counters and the client's.
  void resetStats();

 private:
  class ClientSender;  // the sender thread and its queue
  struct ClientCounters;

  // Sizes and stamps both packets for the current block length. 0 or -1.
  int startProcessor() REQUIRES(dataMutex_);
  // ProcessBlock's work on an enabled relay: 0 or -1.
  int exchangeBlock(const void* in, size_t inSize, void* out, size_t outSize) REQUIRES(dataMutex_);

  lumx::Mutex enableMutex_;
  mutable lumx::Mutex dataMutex_ ACQUIRED_AFTER(enableMutex_);
  uint32_t blockCount_ GUARDED_BY(dataMutex_) = 0;
  AudioPacket txPacket_ GUARDED_BY(dataMutex_);
  AudioPacket rxPacket_ GUARDED_BY(dataMutex_);
  bool rxPending_ GUARDED_BY(dataMutex_) = false;
  // Shared with the senders, which may outlive this processor while a stuck
  // client call returns.
  const std::shared_ptr<ClientCounters> clientCounters_;
  // Delivers to receiveCallback_; null without a callback.
  std::shared_ptr<ClientSender> sender_ GUARDED_BY(dataMutex_);
  std::atomic<int32_t> clientPid_{0};
  // A tap this relay cannot use fails every block; logged once a second.
  lumx::LogRateLimiter formatLog_;
  lumx::LogRateLimiter samplesLog_;
};
