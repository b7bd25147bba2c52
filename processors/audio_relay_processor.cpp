#include "processors/audio_relay_processor.h"

#include <array>
#include <atomic>
#include <cstring>

#include "buffer/lumx_buffer.h"
#include "common/lumx_log.h"
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

}  // namespace

AudioRelayProcessor::AudioRelayProcessor(uint32_t id) : LumxProcessor(id, kProcessorTypeArel) {
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
    LUMX_LOGE("Invalid tap format (sample rate %u, ch %u, bytes/sample %u)", sampleRate, channels, bytesPerSample);
    return -1;
  }

  const size_t n = inSize < outSize ? inSize : outSize;
  const size_t samples = (n / kRelayBytesPerSample) / channels;
  if (samples != blockLength) {
    LUMX_LOGE("%s %s: Unexpected number of samples (%u != %u, num_ch = %u)", idName_, "ProcessBlock",
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
  if (!passthroughMode() && receiveCallback_ != nullptr) {
    const ::ndk::ScopedAStatus status = receiveCallback_->ReceiveAudio(txPacket_);
    if (!status.isOk()) return -1;
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
  std::shared_ptr<IReceiveAudioCallback> previous;
  {
    lumx::MutexLock lock(&dataMutex_);
    previous = std::move(receiveCallback_);
    receiveCallback_ = std::move(cb);
  }
  // The old reference is dropped outside the lock: releasing a remote
  // callback may talk to the binder driver, which the I/O thread must not
  // wait for.
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
