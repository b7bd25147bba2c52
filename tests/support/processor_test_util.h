// Helpers for the processor tests: stream format headers, 16-bit sample
// blocks, a pair of real buffers to wire a processor between, and a client
// callback that records what it receives.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <aidl/lumx/ILumx.h>

#include "buffer/lumx_buffer.h"
#include "common/lumx_types.h"

class LumxProcessor;

namespace lumx::test::processor {

// A 64-byte device packet header carrying the given stream format.
std::array<uint8_t, kLumPacketHeaderSize> FormatHeader(uint32_t sampleRate, uint8_t channels, uint8_t bytesPerSample,
                                                       uint32_t payloadSize = 0);

// Little-endian 16-bit samples <-> bytes.
std::vector<uint8_t> Pcm16(const std::vector<int16_t>& samples);
std::vector<int16_t> Samples16(const uint8_t* bytes, size_t count);
inline std::vector<int16_t> Samples16(const std::vector<uint8_t>& bytes) {
  return Samples16(bytes.data(), bytes.size() / 2);
}

// An interleaved block of `samplesPerChannel` frames of `channels` channels
// in which sample k of channel c is Ramp(c, k): distinct everywhere.
std::vector<uint8_t> RampBlock(uint32_t samplesPerChannel, uint32_t channels);
inline int16_t Ramp(uint32_t channel, uint32_t k) { return static_cast<int16_t>(channel * 10000 + (k % 9000) + 1); }

// A tap-out buffer and an inject buffer (no devices behind them) with a
// processor wired in between the way Connect wires it.
class WiredBuffers {
 public:
  WiredBuffers();
  ~WiredBuffers();
  void Wire(LumxProcessor* p);
  void SetTapFormat(uint32_t sampleRate, uint8_t channels, uint8_t bytesPerSample);
  LumxBuffer& tapOut() { return tapOut_; }
  LumxBuffer& inject() { return inject_; }

 private:
  LumxBuffer tapOut_;
  LumxBuffer inject_;
};

// IReceiveAudioCallback of a pretend client: records every packet and the
// scheduling policy it arrived at, and answers with a
// configurable status (OK, or a transaction failure the way a dead client's
// proxy reports it). Hold() makes the calls wait, after recording, until
// Release(): a client that has stopped.
class RecordingCallback : public ::aidl::lumx::ILumx::BnReceiveAudioCallback {
 public:
  ::ndk::ScopedAStatus ReceiveAudio(const AudioPacket& packet) override;

  void FailWith(binder_status_t status) { failStatus_.store(status); }
  void Succeed() { failStatus_.store(STATUS_OK); }
  void Hold();
  void Release();
  // Waits (bounded) until `n` calls have arrived.
  bool WaitFor(size_t n);
  size_t count() const;
  AudioPacket last() const;
  std::vector<AudioPacket> all() const;
  // Scheduling policy of the thread of each call.
  std::vector<int> policies() const;

 private:
  mutable std::mutex mu_;
  std::condition_variable cv_;
  std::vector<AudioPacket> packets_;
  std::vector<int> policies_;
  bool held_ = false;
  std::atomic<binder_status_t> failStatus_{STATUS_OK};
};

// An AudioPacket that a relay with this id accepts once enabled.
AudioPacket RelayPacket(uint32_t processorId, const std::vector<int16_t>& samples);

}  // namespace lumx::test::processor
