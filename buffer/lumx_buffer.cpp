// LumxBuffer: construction, destruction, wiring, capture and dump. The I/O
// thread and the device side live in lumx_buffer_io.cpp.
#include "buffer/lumx_buffer.h"
#include "buffer/tsan_annotations.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "common/lumx_log.h"
#include "common/wire.h"
#include "common/utf8_text.h"
#include "processors/lumx_processor.h"

LumxBuffer::LumxBuffer(const std::string& name, const std::string& path, unsigned int id,
                       LumxService* service, bool isRead)
    : name_(name),
      devicePath_(path),
      id_(id),
      service_(service),
      isRead_(isRead),
      outputSnapshot_(new OutputList()) {
  lumx::PutLe32(format_ + kPktMagicOffset, kLumPacketMagic);
  lumx::PutLe32(format_ + kPktVersionOffset, kLumPacketVersion);
  (void)service_;
}

LumxBuffer::~LumxBuffer() {
  // A caller that pinned this buffer (handleEnableBuffers, the dump) may
  // still be working on it without the service mutex; let it finish.
  while (users_.load(std::memory_order_acquire) != 0) usleep(1000);

  if (enabled_.load()) handleDisable();

  // Other I/O threads reach this buffer through the processors wired to it:
  // an output's input() (read by a processor registered on two tap-outs) or
  // the input processor's output(). Once unwired, wait for those threads.
  std::vector<LumxProcessor*> reaching;
  LUMX_LOGI("%s %s", name_.c_str(), "UnregisterAllOutputs");
  {
    lumx::MutexLock lock(&mutex_);
    for (LumxProcessor* p : outputProcessors_) {
      if (p != nullptr) p->SetInput(nullptr);
      reaching.push_back(p);
    }
    outputProcessors_.clear();
    publishOutputs();
    if (inputProcessor_ != nullptr) reaching.push_back(inputProcessor_);
  }
  // Logs "<name> UnregisterInput" and unwires the producer.
  UnregisterInput();
  WaitForThreadsReaching(reaching);
  delete outputSnapshot_.exchange(nullptr);
  // Normally freed by the disable above; null-safe either way.
  delete[] ioBuffer_;
  delete[] packetBuffer_;
}

// ---- Wiring ----

// Unlocked on purpose: the first lookup of RegisterOutput is a fast path, and
// every caller holds the service mutex, which serialises all wiring changes.
bool LumxBuffer::hasOutputUnlocked(LumxProcessor* p) const NO_THREAD_SAFETY_ANALYSIS {
  return outputProcessors_.find(p) != outputProcessors_.end();
}

int LumxBuffer::RegisterOutput(LumxProcessor* p) {
  LUMX_LOGI("%s %s %p", name_.c_str(), "RegisterOutput", static_cast<void*>(p));
  const bool present = hasOutputUnlocked(p);
  if (present) return 0;
  if (!isRead_) {
    LUMX_LOGE("%s %s failed because buffer direction is write", name_.c_str(), "RegisterOutput");
    return -1;
  }
  // The I/O thread calls every output; a null one would crash it.
  if (p == nullptr) return -1;
  lumx::MutexLock lock(&mutex_);
  if (outputProcessors_.insert(p).second) publishOutputs();
  return 0;
}

int LumxBuffer::UnregisterOutput(LumxProcessor* p) {
  LUMX_LOGI("%s %s: %p", name_.c_str(), "UnregisterOutput", static_cast<void*>(p));
  if (p == nullptr) return -1;
  lumx::MutexLock lock(&mutex_);
  auto it = outputProcessors_.find(p);
  if (it == outputProcessors_.end()) {
    LUMX_LOGE("%s %s: could not find processor %s", name_.c_str(), "UnregisterOutput", p->idName());
    return -1;
  }
  p->SetInput(nullptr);
  outputProcessors_.erase(it);
  // Returns once the I/O thread no longer delivers to p.
  publishOutputs();
  return 0;
}

int LumxBuffer::RegisterInput(LumxProcessor* p) {
  LUMX_LOGI("%s %s %p", name_.c_str(), "RegisterInput", static_cast<void*>(p));
  if (p == nullptr) return -1;
  if (isRead_) {
    LUMX_LOGE("%s %s failed because buffer direction is read", name_.c_str(), "RegisterInput");
    return -1;
  }
  lumx::MutexLock lock(&mutex_);
  if (inputProcessor_ != nullptr) inputProcessor_->SetOutput(nullptr);
  inputProcessor_ = p;
  updateNames();
  // Publishes this buffer to the I/O threads that read p->output() without
  // a lock (pairs with the acquire fence in deliver()).
  std::atomic_thread_fence(std::memory_order_release);
  LUMX_TSAN_RELEASE(p);
  p->SetOutput(this);
  return 0;
}

void LumxBuffer::UnregisterInput() {
  LUMX_LOGI("%s %s", name_.c_str(), "UnregisterInput");
  lumx::MutexLock lock(&mutex_);
  if (inputProcessor_ != nullptr) {
    inputProcessor_->SetOutput(nullptr);
    inputProcessor_ = nullptr;
    updateNames();
  }
}

// Unlocked by design (callers hold the service mutex, see the file comment).
int LumxBuffer::GetOutputs(std::vector<LumxProcessor*>& list) const NO_THREAD_SAFETY_ANALYSIS {
  list.insert(list.end(), outputProcessors_.begin(), outputProcessors_.end());
  return static_cast<int>(outputProcessors_.size());
}

// Unlocked by design (callers hold the service mutex, see the file comment).
std::string LumxBuffer::GetOutputsAsString() const NO_THREAD_SAFETY_ANALYSIS {
  if (outputProcessors_.empty()) return "-";
  std::string text;
  for (LumxProcessor* p : outputProcessors_) {
    if (!text.empty()) text += ",";
    text += p->idName();
  }
  return text;
}

// Unlocked by design (callers hold the service mutex, see the file comment).
std::string LumxBuffer::GetInputAsString() const NO_THREAD_SAFETY_ANALYSIS {
  return inputProcessor_ != nullptr ? std::string(inputProcessor_->idName()) : std::string("-");
}

void LumxBuffer::updateNames() {
  std::vector<std::string> outputs;
  for (LumxProcessor* p : outputProcessors_) outputs.push_back(p != nullptr ? p->idName() : "");
  std::string input = inputProcessor_ != nullptr ? inputProcessor_->idName() : "";
  lumx::MutexLock lock(&namesMutex_);
  outputNames_.swap(outputs);
  inputName_.swap(input);
}

std::vector<std::string> LumxBuffer::outputNames() const {
  lumx::MutexLock lock(&namesMutex_);
  return outputNames_;
}

std::string LumxBuffer::inputName() const {
  lumx::MutexLock lock(&namesMutex_);
  return inputName_;
}

void LumxBuffer::publishOutputs() {
  updateNames();
  const OutputList* next = new OutputList(outputProcessors_.begin(), outputProcessors_.end());
  const OutputList* old;
  {
    lumx::MutexLock lock(&deliverersMutex_);
    old = outputSnapshot_.exchange(next);
    retiringSnapshot_ = old;
  }
  // Only this buffer's thread reads its output set.
  waitOwnDelivery();
  {
    lumx::MutexLock lock(&deliverersMutex_);
    retiringSnapshot_ = nullptr;
  }
  delete old;
}

// ---- Capture and dump ----

int LumxBuffer::CaptureStart(const std::string& fileName, std::string& line) {
  char text[256];
  lumx::FormatCut(text, sizeof text, "%s buffer %s %s", name_.c_str(), "CaptureStart", fileName.c_str());
  line = text;
  captureEnabled_ = true;
  return 0;
}

int LumxBuffer::CaptureStop(std::string& line) {
  char text[256];
  snprintf(text, sizeof text, "%s buffer %s", name_.c_str(), "CaptureStop");
  line = text;
  captureEnabled_ = false;
  return 0;
}

void LumxBuffer::DumpBuffer() const {
  // mutex_ keeps a concurrent disable from freeing the block mid-dump; the
  // I/O thread may still be filling it, which only blurs the picture.
  lumx::MutexLock lock(&mutex_);
  if (ioBuffer_ == nullptr) {
    LUMX_LOGE("%s buffer is null", name_.c_str());
    return;
  }
  constexpr size_t kWordsPerLine = 8;
  constexpr size_t kLines = kLumIoBlockSize / (kWordsPerLine * sizeof(uint32_t));
  for (size_t k = 0; k < kLines; ++k) {
    uint32_t w[kWordsPerLine];
    memcpy(w, ioBuffer_ + k * sizeof w, sizeof w);
    char text[128];
    snprintf(text, sizeof text, "%08x : %08x %08x %08x %08x %08x %08x %08x %08x",
             static_cast<unsigned>(kWordsPerLine * k), w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
    LUMX_LOGI("%s", text);
  }
}

// ---- Stored format ----

void LumxBuffer::setFormatForTest(const uint8_t* header) {
  memcpy(format_, header, kLumPacketHeaderSize);
  storeFormatFields(header);
}

void LumxBuffer::storeFormatFields(const uint8_t* header) {
  uint64_t payload = lumx::GetLe32(header + kPktPayloadSizeOffset);
  if (payload > 0xFFFF) payload = 0xFFFF;  // larger payloads are refused on receipt
  formatWord_.store(payload << 48 | uint64_t{header[kPktBytesPerSampleOffset]} << 40 |
                        uint64_t{header[kPktChannelsOffset]} << 32 | lumx::GetLe32(header + kPktSampleRateOffset),
                    std::memory_order_relaxed);
}

LumxBuffer::FormatFields LumxBuffer::formatFields() const {
  const uint64_t w = formatWord_.load(std::memory_order_relaxed);
  return {static_cast<uint32_t>(w >> 48), static_cast<uint32_t>(w), static_cast<uint32_t>((w >> 32) & 0xFF),
          static_cast<uint32_t>((w >> 40) & 0xFF)};
}

// ---- Counters ----

void LumxBufferStats::Reset() {
  for (lumx::StatCounter* c : {&rxPackets, &rxBytes, &rxLost, &cutAlignment, &cutVersion, &cutOversize, &cutNoMagic,
                               &cutExcess, &skippedBytes, &readErrors, &reopens, &eofEpisodes, &eofReads,
                               &jitterMaxUs, &txPackets, &txTimeouts, &txCut}) {
    c->Reset();
  }
  for (lumx::StatCounter& c : txFailures) c.Reset();
  processUs.Reset();
  lastError.Reset();
}

void LumxBuffer::resetStats() { stats_.Reset(); }
