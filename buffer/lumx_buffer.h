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
//    a processor's input() or output(). A binder thread that retires
//    something first unpublishes it, then waits only for the threads that can
//    still reach it: a changed output set waits for this buffer's own thread
//    (waitOwnDelivery); a destroyed buffer waits for the threads whose output
//    set holds one of the processors that pointed at it
//    (WaitForThreadsReaching). A thread stuck on a slow device therefore
//    holds up only the changes that concern it, and never for longer than
//    its bounded writes. When UnregisterOutput() returns, the processor may
//    be deleted.
//
//  * Inject blocks. A tap-out thread that writes into another buffer's
//    ioBuffer_ raises that buffer's writers_ count before it checks enabled_
//    and lowers it after writePacketToLum(). handleDisable() clears enabled_
//    first and then waits for writers_ to drain before closing the device and
//    freeing the block (both sides use sequentially consistent operations, so
//    either the writer sees the disable or the disabler sees the writer).
//    Between preparing the block and writing it the writer holds the
//    buffer's write slot (writeSlot_), so two tap-out threads whose
//    processors feed one inject buffer never fill or write it at once.
//
//  * Bounded writes. An inject device is opened non-blocking and
//    writePacketToLum() waits for room with poll() until one block period of
//    the stream has passed (20 ms to 200 ms), finishing a packet the device
//    took in part within the same deadline; what cannot be written by then is
//    given up (status kLumWriteTimedOut) and the next packet starts whole.
//
//  * Own device. handleDisable() wakes the thread through wakeFd_ (an eventfd
//    in the set the thread waits on), joins it and only then closes handle_, so
//    the thread never reads a descriptor number that was closed and reused.
//
//  * Lifetime. handleEnableBuffers() enables buffers without the service
//    mutex; it pins them (AcquireUse) while it holds that mutex and the
//    destructor waits for the pins to go before tearing anything down. The
//    service's dump pins them the same way under its registry lock.
//
// Wiring reads that the binder side does without mutex_ (GetOutputs, the two
// text forms, the duplicate check of RegisterOutput) rely on the service
// mutex, which every caller that changes or reads the wiring holds. The dump
// holds neither: it reads the names copied under namesMutex_ at each change.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/rate_limit.h"
#include "common/stats.h"
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

// writePacketToLum(): the packet could not be written within one block period
// of its stream (-ETIMEDOUT).
constexpr int kLumWriteTimedOut = -110;

// Counters of one buffer for the service dump (relaxed atomics, written by
// the I/O threads without a lock). A tap-out buffer fills the rx and read
// fields, an inject buffer the tx fields.
struct LumxBufferStats {
  lumx::StatCounter rxPackets;
  lumx::StatCounter rxBytes;  // payload bytes of the packets delivered
  lumx::StatCounter rxLost;  // packet numbers skipped by forward jumps
  // Packets skipped or cut, by reason.
  lumx::StatCounter cutAlignment;
  lumx::StatCounter cutVersion;
  lumx::StatCounter cutOversize;
  lumx::StatCounter cutNoMagic;
  lumx::StatCounter cutExcess;
  lumx::StatCounter skippedBytes;  // stale bytes passed over before a packet
  lumx::StatCounter readErrors;
  lumx::StatCounter reopens;  // successful re-initialisations
  lumx::StatCounter eofEpisodes;
  lumx::StatCounter eofReads;
  lumx::StatHistogram processUs;  // delivery of one packet to every output
  lumx::StatCounter jitterMaxUs;  // largest inter-arrival deviation from the block period
  lumx::StatLastError lastError;  // read: -errno; write: the status
  lumx::StatCounter txPackets;
  // Write failures by status: -1 .. -5, a failed write(), a time-out.
  static constexpr size_t kTxFailureKinds = 7;
  lumx::StatCounter txFailures[kTxFailureKinds];
  lumx::StatCounter txTimeouts;
  lumx::StatCounter txCut;  // packets the device took only in part

  void Reset();

  static size_t TxFailureIndex(int status) {
    if (status == kLumWriteTimedOut) return 6;
    if (status <= -1 && status >= -5) return static_cast<size_t>(-status - 1);
    return 5;
  }
};

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
  // open, -3 read buffer, -4 no block, -5 payload too large, the write's
  // negative result, or kLumWriteTimedOut when the device took no room for
  // the whole packet within one block period. Called by another buffer's I/O
  // thread, without a lock.
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
  // The wiring by processor name (outputs in set order; "" for no input),
  // for a reader that holds neither the service mutex nor mutex_: the dump.
  std::vector<std::string> outputNames() const EXCLUDES(namesMutex_);
  std::string inputName() const EXCLUDES(namesMutex_);

  // --- Capture and dump ---
  int CaptureStart(const std::string& fileName, std::string& line);
  int CaptureStop(std::string& line);
  void DumpBuffer() const EXCLUDES(mutex_);

  // --- Lifetime pins (see the file comment) ---
  // Keeps the buffer from being torn down while a caller that found it under
  // the service mutex works on it after releasing that mutex.
  void AcquireUse() { users_.fetch_add(1, std::memory_order_acq_rel); }
  void ReleaseUse() { users_.fetch_sub(1, std::memory_order_acq_rel); }

  // --- Accessors ---
  const std::string& name() const { return name_; }
  const std::string& devicePath() const { return devicePath_; }
  unsigned int id() const { return id_; }
  bool isRead() const { return isRead_; }
  bool isEnabled() const { return enabled_.load(); }
  bool captureEnabled() const { return captureEnabled_; }
  LumxProcessor* inputProcessor() const NO_THREAD_SAFETY_ANALYSIS { return inputProcessor_; }
  // The stored stream format header (64 bytes). Written and read by the I/O
  // thread only.
  const uint8_t* format() const { return format_; }
  // The compared fields of the stored format, safe to read from any thread
  // (a processor on two tap-outs reads its input buffer's format from the
  // other buffer's thread). Each value is whole; read them together through
  // one snapshot for a consistent set.
  struct FormatFields {
    uint32_t payloadSize;
    uint32_t sampleRate;
    uint32_t channels;
    uint32_t bytesPerSample;
  };
  FormatFields formatFields() const;
  uint32_t formatPayloadSize() const { return formatFields().payloadSize; }
  uint32_t formatSampleRate() const { return formatFields().sampleRate; }
  uint32_t formatChannels() const { return formatFields().channels; }
  uint32_t formatBytesPerSample() const { return formatFields().bytesPerSample; }
  const LumxBufferStats& stats() const { return stats_; }
  // Clears every counter (the dump's reset); the stream goes on untouched.
  void resetStats();
  // Its I/O thread is alive (a thread may end by itself and stay unjoined).
  bool ioThreadAlive() const { return ioThreadAlive_.load(std::memory_order_relaxed); }
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
    uint32_t eofBackoffUs = 0;  // 0: no end-of-file episode under way
    int64_t lastArrivalNs = 0;
  };
  enum class Assembly { kNeedMore, kComplete, kBad };

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
  // Takes `n` bytes just read into ioBuffer_ (n <= rxReadLimit()) and
  // delivers every packet they complete, in order. Returns how many, or -1
  // when the thread must end.
  int rxAccept(RxState& st, size_t n);
  // Appends to packetBuffer_ what the packet under assembly still needs from
  // `len` bytes at `data`; `*used` says how many it took.
  Assembly rxAssemble(RxState& st, const uint8_t* data, size_t len, size_t* used);
  // Bytes [off, n) of a read with no packet under assembly: whole packets
  // are delivered, the last packet start is assembled. Returns the packets
  // delivered (added to `delivered`), or -1 when the thread must end.
  int rxWalk(RxState& st, size_t off, size_t n, int delivered, uint32_t lastSize);
  // A complete packet (at `packet`, followed by `excess` bytes that belong
  // to no packet): bookkeeping and delivery. False when the thread must end.
  bool rxComplete(RxState& st, const uint8_t* packet, uint32_t excess);
  // Hands the payload of `packet`, which arrived at `arrivalNs`, to every
  // output.
  void deliver(const uint8_t* packet, uint32_t packetNum, uint32_t payloadSize, int64_t arrivalNs);
  // Sleeps `us` microseconds or until handleDisable() wakes the thread.
  void ioSleep(unsigned int us);
  // End of file on the device: backs off (10 ms doubling to 200 ms).
  void rxEndOfFile(RxState& st);
  // Replaces the published output set with a copy of outputProcessors_ and
  // retires the old one once this buffer's thread no longer uses it.
  void publishOutputs() REQUIRES(mutex_);
  bool hasOutputUnlocked(LumxProcessor* p) const;
  // Copies the wiring's names for outputNames()/inputName().
  void updateNames() REQUIRES(mutex_) EXCLUDES(namesMutex_);
  // Waits until this buffer's thread has left the delivery in progress.
  void waitOwnDelivery() const;
  // Waits until no I/O thread whose output set holds one of `ps` is in the
  // delivery that was in progress when it was called.
  static void WaitForThreadsReaching(const std::vector<LumxProcessor*>& ps);
  // Delivery-section registry of running I/O threads.
  void addDeliverer();
  void removeDeliverer();
  // The write slot of an inject buffer (see the file comment).
  bool acquireWriteSlot(int64_t deadlineNs);
  void releaseWriteSlot() { writeSlot_.store(false, std::memory_order_release); }
  void storeFormatFields(const uint8_t* header);
  // One packet of this inject buffer not written, by writePacketToLum()'s
  // status (relaxed counters and the last error; any thread).
  void countTxFailure(int status);

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
  // A leaf lock, held only to copy the names below.
  mutable lumx::Mutex namesMutex_ ACQUIRED_AFTER(mutex_);
  std::vector<std::string> outputNames_ GUARDED_BY(namesMutex_);
  std::string inputName_ GUARDED_BY(namesMutex_);
  std::thread ioThread_ GUARDED_BY(mutex_);
  bool ioThreadRunning_ GUARDED_BY(mutex_) = false;
  // Allocated and freed under mutex_ while no thread uses them; the I/O
  // thread (and, for an inject buffer, the writers counted in writers_) use
  // them without the lock.
  uint8_t* ioBuffer_ = nullptr;
  uint8_t* packetBuffer_ = nullptr;
  uint8_t format_[kLumPacketHeaderSize] = {};
  // payload size (16 bits, saturated) << 48 | bytes per sample << 40 |
  // channels << 32 | sample rate: the compared fields of format_.
  std::atomic<uint64_t> formatWord_{0};
  uint32_t expectedPacketSize_ = 0;
  // One block period of the stored format (I/O thread only).
  int64_t blockPeriodNs_ = 0;
  std::atomic<uint64_t> rxPacketCount_{0};
  // The I/O thread runs: set before it starts, cleared as it ends.
  std::atomic<bool> ioThreadAlive_{false};
  LumxBufferStats stats_;
  // One line per second per cause for what a faulty device can repeat.
  lumx::LogRateLimiter writeErrorLog_;
  lumx::LogRateLimiter eofLog_;
  lumx::LogRateLimiter processErrorLog_;  // a processor failing every packet

  // Lock-free packet-path support (see the file comment).
  static lumx::Mutex deliverersMutex_;  // leaf lock of binder threads only
  static LumxBuffer* deliverers_ GUARDED_BY(deliverersMutex_);
  std::atomic<const OutputList*> outputSnapshot_;
  // The snapshot being replaced, until this buffer's thread has let go of it.
  const OutputList* retiringSnapshot_ GUARDED_BY(deliverersMutex_) = nullptr;
  std::atomic<uint32_t> deliverySeq_{0};
  LumxBuffer* nextDeliverer_ GUARDED_BY(deliverersMutex_) = nullptr;
  std::atomic<int> writers_{0};
  std::atomic<bool> writeSlot_{false};
  // The last write timed out and the device has had no room since.
  std::atomic<bool> writeStalled_{false};
  std::atomic<int> users_{0};
  lumx::unique_fd wakeFd_;
};
