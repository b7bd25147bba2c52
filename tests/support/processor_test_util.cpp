#include "support/processor_test_util.h"

#include <sched.h>

#include <chrono>

#include "common/wire.h"
#include "processors/lumx_processor.h"

namespace lumx::test::processor {

std::array<uint8_t, kLumPacketHeaderSize> FormatHeader(uint32_t sampleRate, uint8_t channels, uint8_t bytesPerSample,
                                                       uint32_t payloadSize) {
  std::array<uint8_t, kLumPacketHeaderSize> h{};
  PutLe32(h.data() + kPktMagicOffset, kLumPacketMagic);
  PutLe32(h.data() + kPktVersionOffset, kLumPacketVersion);
  PutLe32(h.data() + kPktPayloadSizeOffset, payloadSize);
  PutLe32(h.data() + kPktSampleRateOffset, sampleRate);
  h[kPktChannelsOffset] = channels;
  h[kPktBytesPerSampleOffset] = bytesPerSample;
  return h;
}

std::vector<uint8_t> Pcm16(const std::vector<int16_t>& samples) {
  std::vector<uint8_t> bytes(samples.size() * 2);
  for (size_t i = 0; i < samples.size(); ++i) {
    const uint16_t v = static_cast<uint16_t>(samples[i]);
    bytes[2 * i] = static_cast<uint8_t>(v & 0xff);
    bytes[2 * i + 1] = static_cast<uint8_t>(v >> 8);
  }
  return bytes;
}

std::vector<int16_t> Samples16(const uint8_t* bytes, size_t count) {
  std::vector<int16_t> samples(count);
  for (size_t i = 0; i < count; ++i) {
    samples[i] = static_cast<int16_t>(static_cast<uint16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8)));
  }
  return samples;
}

std::vector<uint8_t> RampBlock(uint32_t samplesPerChannel, uint32_t channels) {
  // The device layout: frames of 480 samples per channel, channel blocks one
  // after the other inside each frame.
  std::vector<int16_t> samples(static_cast<size_t>(samplesPerChannel) * channels);
  const uint32_t frame = 480;
  for (uint32_t k = 0; k < samplesPerChannel; ++k) {
    const uint32_t f = k / frame;
    const uint32_t i = k % frame;
    for (uint32_t c = 0; c < channels; ++c) {
      samples[(static_cast<size_t>(f) * channels + c) * frame + i] = Ramp(c, k);
    }
  }
  return Pcm16(samples);
}

WiredBuffers::WiredBuffers()
    : tapOut_("tapout7", "/nonexistent/zch-lumx_tapout7", 7, nullptr, true),
      inject_("inject8", "/nonexistent/zch-lumx_inject8", 8, nullptr, false) {}

WiredBuffers::~WiredBuffers() = default;

void WiredBuffers::Wire(LumxProcessor* p) {
  tapOut_.RegisterOutput(p);
  p->SetInput(&tapOut_);
  inject_.RegisterInput(p);
}

void WiredBuffers::SetTapFormat(uint32_t sampleRate, uint8_t channels, uint8_t bytesPerSample) {
  tapOut_.setFormatForTest(FormatHeader(sampleRate, channels, bytesPerSample).data());
}

::ndk::ScopedAStatus RecordingCallback::ReceiveAudio(const AudioPacket& packet) {
  {
    std::unique_lock<std::mutex> lock(mu_);
    packets_.push_back(packet);
    policies_.push_back(sched_getscheduler(0));
    cv_.notify_all();
    cv_.wait(lock, [this] { return !held_; });
  }
  const binder_status_t status = failStatus_.load();
  if (status != STATUS_OK) return ::ndk::ScopedAStatus::fromStatus(status);
  return ::ndk::ScopedAStatus::ok();
}

void RecordingCallback::Hold() {
  std::lock_guard<std::mutex> lock(mu_);
  held_ = true;
}

void RecordingCallback::Release() {
  std::lock_guard<std::mutex> lock(mu_);
  held_ = false;
  cv_.notify_all();
}

bool RecordingCallback::WaitFor(size_t n) {
  std::unique_lock<std::mutex> lock(mu_);
  return cv_.wait_for(lock, std::chrono::seconds(20), [&] { return packets_.size() >= n; });
}

size_t RecordingCallback::count() const {
  std::lock_guard<std::mutex> lock(mu_);
  return packets_.size();
}

AudioPacket RecordingCallback::last() const {
  std::lock_guard<std::mutex> lock(mu_);
  return packets_.empty() ? AudioPacket() : packets_.back();
}

std::vector<int> RecordingCallback::policies() const {
  std::lock_guard<std::mutex> lock(mu_);
  return policies_;
}

std::vector<AudioPacket> RecordingCallback::all() const {
  std::lock_guard<std::mutex> lock(mu_);
  return packets_;
}

AudioPacket RelayPacket(uint32_t processorId, const std::vector<int16_t>& samples) {
  AudioPacket p;
  p.processor_id = static_cast<int32_t>(processorId);
  p.data = Pcm16(samples);
  p.sampleRate = 5;
  p.format = 0;
  p.bitsPerSample = 1;
  p.numChannels = 1;
  p.reserved = 1;
  return p;
}

}  // namespace lumx::test::processor
