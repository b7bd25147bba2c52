// LumxProcessor: the abstract base of every user-space audio processor.
//
// A processor sits between one tap-out buffer (input_) and one inject buffer
// (output_). The input buffer's I/O thread calls ProcessBlock() once per
// packet; every other operation runs on a binder thread (registry commands
// with the service mutex held, parameter and relay commands without it).
// The base takes no lock of its own.
//
// The fields that a binder thread writes while the I/O thread reads them
// (enable flag, wiring, passthrough and test mode, block length) are relaxed
// atomics: no ordering is needed between them, and the packet path stays
// lock-free.
#pragma once

#include <sys/inotify.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/lumx_types.h"
#include "common/stats.h"
#include "common/thread_annotations.h"

class LumxBuffer;

// Four-character type codes of the supported processors.
constexpr uint32_t kProcessorTypePass = 0x70617373;  // "pass"
constexpr uint32_t kProcessorTypeArel = 0x6172656c;  // "arel"

// Samples per channel of one relay frame and the limits of BLOCK_LENGTH.
constexpr uint32_t kProcessorFrameSamples = 480;
constexpr uint32_t kMinBlockLength = 480;
constexpr uint32_t kMaxBlockLength = 24000;
constexpr uint32_t kDefaultBlockLength = 4800;

// Guards the lifetime pins of every processor (Pin/Unpin/Retire) and, on the
// service side, every write of the processor map, so that callers that look
// a processor up without the service mutex (parameter and streaming calls)
// never see a freed one. A leaf lock: nothing is called while it is held.
extern lumx::Mutex gProcessorPinMutex;

class LumxProcessor {
 public:
  using Status = CommandResult::Status;

  // Virtual operations, in slot order.
  virtual bool isParameterReadOnly(ParameterId id, int element) const;
  virtual uint32_t getDefaultBlockLength() const;
  // Unregisters from the input buffer's outputs and the output buffer's input.
  virtual ~LumxProcessor();
  virtual void Info(std::vector<std::string>& lines) const;
  virtual void SetInput(LumxBuffer* buffer);
  virtual void SetOutput(LumxBuffer* buffer);
  virtual int Enable(bool enable) = 0;
  virtual bool IsEnabled() const;
  virtual void HandleInotifyEvent(const inotify_event* event);
  virtual int ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize);
  virtual Status SetParameter(ParameterId id, int element, const ParamValue& value);
  virtual Status GetParameter(ParameterId id, int element, ParamValue* value) const;
  virtual int SendAudio(const AudioPacket& packet);
  virtual void RegisterReceiveAudioCallback(std::shared_ptr<IReceiveAudioCallback> cb);

  uint32_t id() const { return id_; }
  uint32_t type() const { return type_; }
  const char* idName() const { return idName_; }
  const char* typeName() const { return typeName_; }
  LumxBuffer* input() const { return input_.load(std::memory_order_relaxed); }
  LumxBuffer* output() const { return output_.load(std::memory_order_relaxed); }
  uint32_t blockLength() const { return blockLength_.load(std::memory_order_relaxed); }
  // Blocks handled while enabled, and how many of them failed (for the dump).
  uint64_t blocksProcessed() const { return blocksProcessed_.Get(); }
  uint64_t blocksFailed() const { return blocksFailed_.Get(); }
  // Clears the two counters above (the dump's reset).
  void resetStats() {
    blocksProcessed_.Reset();
    blocksFailed_.Reset();
  }

  // Lifetime pins. A pinned processor that is removed from the service's map
  // is retired instead of deleted; the holder of the last pin deletes it.
  void Pin() REQUIRES(gProcessorPinMutex) { ++pinCount_; }
  // True when this was the last pin of a retired processor: delete it now.
  bool Unpin() REQUIRES(gProcessorPinMutex) { return --pinCount_ == 0 && retired_; }
  // True when nobody holds a pin: delete it now; otherwise the last Unpin does.
  bool Retire() REQUIRES(gProcessorPinMutex) {
    retired_ = true;
    return pinCount_ == 0;
  }

  // Leaves both buffers: the input buffer forgets this consumer, the output
  // buffer its producer. The destructor does it; subclass destructors call it
  // first, so the input buffer's thread stops delivering before their own
  // members go away. Caller holds the service mutex (wiring is changed only
  // under it).
  void DetachFromBuffers();

  LumxProcessor(const LumxProcessor&) = delete;
  LumxProcessor& operator=(const LumxProcessor&) = delete;

 protected:
  LumxProcessor(uint32_t id, uint32_t type);

  bool enabled() const { return enabled_.load(std::memory_order_relaxed); }
  void setEnabled(bool enabled) { enabled_.store(enabled, std::memory_order_relaxed); }
  bool passthroughMode() const { return passthroughMode_.load(std::memory_order_relaxed); }
  bool testMode() const { return testMode_.load(std::memory_order_relaxed); }
  // Counts one block handled while enabled; returns its status unchanged.
  int countBlock(int status) {
    blocksProcessed_.Add();
    if (status != 0) blocksFailed_.Add();
    return status;
  }

  std::atomic<bool> enabled_{false};
  uint32_t id_;
  uint32_t type_;
  char idName_[5];
  char typeName_[5];
  std::atomic<LumxBuffer*> input_{nullptr};
  std::atomic<LumxBuffer*> output_{nullptr};
  std::atomic<bool> passthroughMode_{false};
  std::atomic<bool> testMode_{false};
  std::atomic<uint32_t> blockLength_{kDefaultBlockLength};
  uint32_t sampleRate_ = 48000;
  uint32_t bitsPerSample_ = 32;
  uint32_t sampleFormat_ = 0;
  uint32_t numChannels_ = 1;
  bool formatFlagA_ = true;
  bool formatFlagB_ = true;
  // Replaced by RegisterReceiveAudioCallback on binder threads. The base
  // swaps it atomically (two registrations on two binder threads must not
  // corrupt the count); the relay guards it with its dataMutex_ instead.
  std::shared_ptr<IReceiveAudioCallback> receiveCallback_;

 private:
  lumx::StatCounter blocksProcessed_;
  lumx::StatCounter blocksFailed_;
  uint32_t pinCount_ GUARDED_BY(gProcessorPinMutex) = 0;
  bool retired_ GUARDED_BY(gProcessorPinMutex) = false;
};
