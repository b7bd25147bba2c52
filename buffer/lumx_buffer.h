// LumxBuffer: one data device of the DSP channel driver.
//
// A tap-out (read) buffer owns a real-time I/O thread while enabled: it reads
// packets from the device and hands each payload to the processors registered
// as its outputs, writing what they produce into their inject buffers. An
// inject (write) buffer has no thread; tap-out threads write it.
//
// Threads:
//  - binder threads and the event thread: construction, destruction,
//    Enable()/handleDisable(), the Register*/Unregister* wiring, capture.
//  - the buffer's own I/O thread: ioProcess() and, on other buffers,
//    writePacketToLum(). It never takes a lock and never allocates once the
//    buffer is enabled.
//
// How the lock-free packet path stays safe against the binder threads:
//
//  * Output set. The I/O thread never reads outputProcessors_ (a std::set the
//    binder threads edit under mutex_). It reads outputSnapshot_, an immutable
//    array published by every wiring change. Each delivery of one packet runs
//    inside a "delivery section": deliverySeq_ is odd while the thread may
//    hold processor or inject-buffer pointers taken from the snapshot or from
//    a processor's output(). A binder thread that retires something (an old
//    snapshot, a processor removed by UnregisterOutput, a buffer being
//    destroyed) first unpublishes it, then calls WaitForDeliveries(), which
//    waits until every I/O thread that was inside a section has left it.
//    When UnregisterOutput() returns, the processor may be deleted.
//
//  * Inject blocks. A tap-out thread that writes into another buffer's
//    ioBuffer_ raises that buffer's writers_ count before it checks enabled_
//    and lowers it after writePacketToLum(). handleDisable() clears enabled_
//    first and then waits for writers_ to drain before closing the device and
//    freeing the block (both sides use sequentially consistent operations, so
//    either the writer sees the disable or the disabler sees the writer).
//
//  * Own device. handleDisable() wakes the thread through wakeFd_ (an eventfd
//    in the set the thread waits on), joins it and only then closes handle_, so
//    the thread never reads a descriptor number that was closed and reused.
//
//  * Lifetime. handleEnableBuffers() enables buffers without the service
//    mutex; it pins them (AcquireUse) while it holds that mutex and the
//    destructor waits for the pins to go before tearing anything down.
//
// Wiring reads that the binder side does without mutex_ (GetOutputs, the two
// text forms, the duplicate check of RegisterOutput) rely on the service
// mutex, which every caller that changes or reads the wiring holds.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/thread_annotations.h"
#include "common/unique_fd.h"

class LumxService;
class LumxProcessor;
class LumxBufferTestPeer;

// Device packet: a 64-byte little-endian header, then the payload.
constexpr uint32_t kLumPacketMagic = 0x4C756D78;  // the bytes "xmuL"
constexpr uint32_t kLumPacketVersion = 1;
constexpr size_t kLumPacketHeaderSize = 64;
constexpr size_t kLumIoBlockSize = 65536;
constexpr size_t kLumMaxPayloadSize = kLumIoBlockSize - kLumPacketHeaderSize;  // 65472
// Header field offsets.
constexpr size_t kPktMagicOffset = 0;
constexpr size_t kPktVersionOffset = 4;
constexpr size_t kPktOpaqueOffset = 8;
constexpr size_t kPktNumOffset = 16;
constexpr size_t kPktPayloadSizeOffset = 20;
constexpr size_t kPktSampleRateOffset = 24;
constexpr size_t kPktChannelsOffset = 28;
constexpr size_t kPktBytesPerSampleOffset = 29;

class LumxBuffer {
 public:
  LumxBuffer(const std::string& name, const std::string& path, unsigned int id,
             LumxService* service, bool isRead);
  // Disables the buffer if enabled and unwires every processor.
  ~LumxBuffer();

  LumxBuffer(const LumxBuffer&) = delete;
  LumxBuffer& operator=(const LumxBuffer&) = delete;

  // --- I/O (binder threads) ---
  // Opens the device; 0, -1 if already open, or the failing open's result.
  // Caller holds mutex_ or is this buffer's I/O thread.
  int openLumNoLock();
  // Enable(true) opens (5 tries, 1 s apart), allocates and starts the I/O
  // thread of a read buffer; Enable(false) is handleDisable() and returns 0.
  int Enable(bool enable) EXCLUDES(mutex_);
  void handleDisable() EXCLUDES(mutex_);
  // Writes the packet prepared in ioBuffer_. 0, or -1 not enabled, -2 not
  // open, -3 read buffer, -4 no block, -5 payload too large, or the write's
  // negative result. Called by another buffer's I/O thread, without a lock.
  int writePacketToLum();

  // --- Wiring (binder threads) ---
  // RegisterOutput/UnregisterOutput wait until no I/O thread still delivers
  // through the previous output set before they return.
  int RegisterOutput(LumxProcessor* p) EXCLUDES(mutex_);
  int UnregisterOutput(LumxProcessor* p) EXCLUDES(mutex_);
  int RegisterInput(LumxProcessor* p) EXCLUDES(mutex_);
  void UnregisterInput() EXCLUDES(mutex_);
  int GetOutputs(std::vector<LumxProcessor*>& list) const;
  std::string GetOutputsAsString() const;
  std::string GetInputAsString() const;

  // --- Capture and dump ---
  int CaptureStart(const std::string& fileName, std::string& line);
  int CaptureStop(std::string& line);
  void DumpBuffer() const EXCLUDES(mutex_);

  // --- Lifetime pins (see the file comment) ---
  // Keeps the buffer from being torn down while a caller that found it under
  // the service mutex works on it after releasing that mutex.
  void AcquireUse() { users_.fetch_add(1, std::memory_order_acq_rel); }
  void ReleaseUse() { users_.fetch_sub(1, std::memory_order_acq_rel); }

  // Waits until every I/O thread that is delivering a packet right now has
  // finished that delivery. After a processor's output or a buffer's output
  // set changed, no I/O thread holds the old pointers any more.
  static void WaitForDeliveries();

  // --- Accessors ---
  const std::string& name() const { return name_; }
  const std::string& devicePath() const { return devicePath_; }
  unsigned int id() const { return id_; }
  bool isRead() const { return isRead_; }
  bool isEnabled() const { return enabled_.load(); }
  bool captureEnabled() const { return captureEnabled_; }
  LumxProcessor* inputProcessor() const NO_THREAD_SAFETY_ANALYSIS { return inputProcessor_; }
  // The stored stream format header (64 bytes). Written by the I/O thread
  // only; processors read it from that same thread.
  const uint8_t* format() const { return format_; }
  uint32_t formatPayloadSize() const;
  uint32_t formatSampleRate() const;
  uint32_t formatChannels() const;
  uint32_t formatBytesPerSample() const;
  uint64_t rxPacketCount() const { return rxPacketCount_.load(std::memory_order_relaxed); }
  // Stores a 64-byte header as the stream format, as the I/O thread does on a
  // format change. For processor tests; never while the thread runs.
  void setFormatForTest(const uint8_t* header);

 private:
  friend class LumxBufferTestPeer;  // drives the receive steps without a thread

  using OutputList = std::vector<LumxProcessor*>;

  // Per-packet state of the receive loop (thread locals in ioProcess).
  struct RxState {
    uint32_t assembled = 0;
    bool synced = false;
    bool headerKnown = false;
    uint32_t idle = 0;
    uint32_t readErrors = 0;
    uint32_t lastPacketNum = 0;
    uint32_t lastPayloadSize = 0;
  };

  // Body of the I/O thread of a read buffer.
  void ioProcess();
  // Thread start: clears the stored format and the expected size.
  void rxReset();
  // Starts assembling a new packet.
  static void rxStartPacket(RxState& st);
  // Forgets a partly assembled packet.
  static void rxDiscard(RxState& st);
  // How many bytes the next read may ask for.
  size_t rxReadLimit(const RxState& st) const;
  // Takes `n` bytes just read into ioBuffer_ (n <= rxReadLimit()). Returns
  // true once packetBuffer_ holds a complete packet.
  bool rxAccept(RxState& st, size_t n);
  // A complete packet: excess check, sequence and format bookkeeping and
  // delivery. Returns false when the thread must end.
  bool rxComplete(RxState& st);
  // Hands the payload of the packet in packetBuffer_ to every output.
  void deliver(const uint8_t* packet, uint32_t packetNum, uint32_t payloadSize);
  // Sleeps `us` microseconds or until handleDisable() wakes the thread.
  void ioSleep(unsigned int us);
  // Replaces the published output set with a copy of outputProcessors_ and
  // retires the old one once no delivery uses it.
  void publishOutputs() REQUIRES(mutex_);
  bool hasOutputUnlocked(LumxProcessor* p) const;
  // Delivery-section registry of running I/O threads.
  void addDeliverer();
  void removeDeliverer();

  std::string name_;
  std::string devicePath_;
  unsigned int id_;
  LumxService* service_;
  std::atomic<int> handle_{-1};
  bool isRead_;
  std::atomic<bool> enabled_{false};
  bool captureEnabled_ = false;
  mutable lumx::Mutex mutex_;
  std::set<LumxProcessor*> outputProcessors_ GUARDED_BY(mutex_);
  LumxProcessor* inputProcessor_ GUARDED_BY(mutex_) = nullptr;
  std::thread ioThread_ GUARDED_BY(mutex_);
  bool ioThreadRunning_ GUARDED_BY(mutex_) = false;
  // Allocated and freed under mutex_ while no thread uses them; the I/O
  // thread (and, for an inject buffer, the writers counted in writers_) use
  // them without the lock.
  uint8_t* ioBuffer_ = nullptr;
  uint8_t* packetBuffer_ = nullptr;
  uint8_t format_[kLumPacketHeaderSize] = {};
  uint32_t expectedPacketSize_ = 0;
  std::atomic<uint64_t> rxPacketCount_{0};

  // Lock-free packet-path support (see the file comment).
  std::atomic<const OutputList*> outputSnapshot_;
  std::atomic<uint32_t> deliverySeq_{0};
  LumxBuffer* nextDeliverer_ = nullptr;  // guarded by the registry's own mutex
  std::atomic<int> writers_{0};
  std::atomic<int> users_{0};
  lumx::unique_fd wakeFd_;
};
