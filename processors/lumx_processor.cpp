#include "processors/lumx_processor.h"

#include "buffer/lumx_buffer.h"

#include <cstring>

#include "common/utf8_text.h"

lumx::Mutex gProcessorPinMutex;

namespace {

void MakeName(uint32_t code, char (&name)[5]) {
  name[0] = static_cast<char>((code >> 24) & 0xff);
  name[1] = static_cast<char>((code >> 16) & 0xff);
  name[2] = static_cast<char>((code >> 8) & 0xff);
  name[3] = static_cast<char>(code & 0xff);
  name[4] = '\0';
  // An id may end inside a multi-byte character; that half would make every
  // answer that ends with the name unsendable.
  name[lumx::Utf8CutLength(name, strlen(name))] = '\0';
}

// Bits per sample as the interface codes them: 8 -> 0, 16 -> 1, 24 -> 2,
// 32 -> 3, anything else -1.
int32_t BitsPerSampleCode(uint32_t bits) {
  const uint32_t above8 = bits - 8;  // wraps for bits < 8, which then fails
  if (above8 % 8 != 0) return -1;
  const uint32_t code = above8 / 8;
  return code <= 3 ? static_cast<int32_t>(code) : -1;
}

}  // namespace

LumxProcessor::LumxProcessor(uint32_t id, uint32_t type) : id_(id), type_(type) {
  MakeName(id_, idName_);
  MakeName(type_, typeName_);
}

LumxProcessor::~LumxProcessor() { DetachFromBuffers(); }

void LumxProcessor::DetachFromBuffers() {
  // Each Unregister call also clears our pointer through SetInput/SetOutput;
  // the stores below cover a buffer that did not know us.
  if (LumxBuffer* in = input()) in->UnregisterOutput(this);
  if (LumxBuffer* out = output()) out->UnregisterInput();
  input_.store(nullptr, std::memory_order_relaxed);
  output_.store(nullptr, std::memory_order_relaxed);
}

bool LumxProcessor::isParameterReadOnly(ParameterId id, int /*element*/) const {
  return !(id == ParameterId::PASSTHROUGH_MODE || id == ParameterId::TEST_MODE || id == ParameterId::BLOCK_LENGTH);
}

uint32_t LumxProcessor::getDefaultBlockLength() const { return kDefaultBlockLength; }

void LumxProcessor::Info(std::vector<std::string>& lines) const {
  const LumxBuffer* in = input();
  const LumxBuffer* out = output();
  lines.push_back(std::string("  Id:      ") + idName_);
  lines.push_back(std::string("  Type:    ") + typeName_);
  lines.push_back(std::string("  Enabled: ") + (enabled() ? "1" : "0"));
  lines.push_back(std::string("  Input:   ") + (in != nullptr ? in->name() : std::string("none")));
  lines.push_back(std::string("  Output:  ") + (out != nullptr ? out->name() : std::string("none")));
}

void LumxProcessor::SetInput(LumxBuffer* buffer) { input_.store(buffer, std::memory_order_relaxed); }

void LumxProcessor::SetOutput(LumxBuffer* buffer) { output_.store(buffer, std::memory_order_relaxed); }

bool LumxProcessor::IsEnabled() const { return enabled(); }

void LumxProcessor::HandleInotifyEvent(const inotify_event* /*event*/) {}

int LumxProcessor::ProcessBlock(const void* /*in*/, size_t /*inSize*/, void* /*out*/, size_t /*outSize*/) {
  return 0;
}

LumxProcessor::Status LumxProcessor::SetParameter(ParameterId id, int element, const ParamValue& value) {
  // Only the integer alternative carries a usable value. Anything else reads
  // as 0 and "not an integer"; it is never dereferenced, so no tag a client
  // sends can abort the daemon.
  const bool isInt = value.getTag() == ParamValue::Tag::i;
  const int32_t intValue = isInt ? value.get<ParamValue::Tag::i>() : 0;

  // The read-only rule comes before any look at the value.
  if (isParameterReadOnly(id, element)) return Status::READ_ONLY;

  switch (id) {
    case ParameterId::PASSTHROUGH_MODE:
      if (!isInt) return Status::INVALID_VALUE;
      passthroughMode_.store(intValue != 0, std::memory_order_relaxed);
      return Status::OK;
    case ParameterId::TEST_MODE:
      if (!isInt) return Status::INVALID_VALUE;
      testMode_.store(intValue != 0, std::memory_order_relaxed);
      return Status::OK;
    case ParameterId::BLOCK_LENGTH: {
      if (!isInt) return Status::INVALID_VALUE;
      // One unsigned comparison rejects both ends, negative values included.
      const uint32_t length = static_cast<uint32_t>(intValue);
      if (length - kMinBlockLength > kMaxBlockLength - kMinBlockLength) return Status::INVALID_VALUE;
      if (length % kProcessorFrameSamples != 0) return Status::INVALID_VALUE;
      blockLength_.store(length, std::memory_order_relaxed);
      return Status::OK;
    }
    default:
      return Status::INVALID_PARAMETER;
  }
}

LumxProcessor::Status LumxProcessor::GetParameter(ParameterId id, int element, ParamValue* value) const {
  int32_t result = 0;
  switch (id) {
    case ParameterId::VERSION:
      result = 0;
      break;
    case ParameterId::PASSTHROUGH_MODE:
      result = passthroughMode() ? 1 : 0;
      break;
    case ParameterId::TEST_MODE:
      result = testMode() ? 1 : 0;
      break;
    case ParameterId::BLOCK_LENGTH:
      result = static_cast<int32_t>(blockLength());
      break;
    case ParameterId::AUDIO_FORMAT:
      // Never fails: elements outside 0..5 read as 0.
      switch (element) {
        case 0: result = static_cast<int32_t>(sampleRate_); break;
        case 1: result = BitsPerSampleCode(bitsPerSample_); break;
        case 2: result = sampleFormat_ <= 1 ? static_cast<int32_t>(sampleFormat_) : -1; break;
        case 3: result = static_cast<int32_t>(numChannels_); break;
        case 4: result = formatFlagA_ ? 1 : 0; break;
        case 5: result = formatFlagB_ ? 0 : 1; break;
        default: result = 0; break;
      }
      break;
    default:
      return Status::INVALID_PARAMETER;
  }
  value->set<ParamValue::Tag::i>(result);
  return Status::OK;
}

int LumxProcessor::SendAudio(const AudioPacket& /*packet*/) { return 0; }

void LumxProcessor::RegisterReceiveAudioCallback(std::shared_ptr<IReceiveAudioCallback> cb) {
  // Swapped atomically: the previous callback is released by the swap.
  std::atomic_store(&receiveCallback_, std::move(cb));
}
