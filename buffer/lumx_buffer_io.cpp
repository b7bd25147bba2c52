// LumxBuffer: opening, enabling and disabling the device, the I/O thread of a
// tap-out buffer and the write path into inject buffers.
//
// The packet path (rxAccept, rxComplete, deliver, writePacketToLum) takes no
// lock and allocates nothing; see lumx_buffer.h for how it stays safe while
// binder threads rewire processors and disable buffers.
//
// Where a device misbehaves, the path departs from the plain read/write
// loop, each time so that one bad device cannot stall, spin or drop what the
// others carry: data devices are opened non-blocking (a FIFO without its
// other end never holds up StartIo); writes into an inject device are
// bounded by one block period; end of file on a tap-out device backs off
// instead of polling again at once; and every whole packet of a read is
// delivered, not only the last one.
#include "buffer/lumx_buffer.h"
#include "buffer/tsan_annotations.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "common/clock.h"
#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "common/wire.h"
#include "processors/lumx_processor.h"

// Every read buffer whose I/O thread is running, so that
// WaitForThreadsReaching() can find the delivery sections in progress. Never
// touched by the I/O threads themselves (they only bump their own
// deliverySeq_).
lumx::Mutex LumxBuffer::deliverersMutex_;
LumxBuffer* LumxBuffer::deliverers_ = nullptr;

namespace {

constexpr int kRxWaitMs = 200;
constexpr unsigned kOpenRetryDelayUs = 1000000;
constexpr unsigned kReadRetryDelayUs = 10000;
constexpr unsigned kReopenDelayUs = 500000;
constexpr unsigned kOpenAttempts = 5;
constexpr unsigned kReadRetries = 10;
constexpr unsigned kReopenAttempts = 5;
constexpr unsigned kIdleLogEvery = 20;
constexpr uint64_t kRxLogEvery = 200;
constexpr unsigned kEofBackoffFirstUs = 10000;
constexpr unsigned kEofBackoffMaxUs = 200000;
constexpr int64_t kWriteBudgetMinNs = 20000000;
constexpr int64_t kWriteBudgetMaxNs = 200000000;

int64_t NowNs() { return lumx::MonotonicNowNs(); }

// One block period of the stream a packet header describes, the time a
// write of that packet may take: at least 20 ms, at most 200 ms (also when
// the header gives no usable rate or sample size).
int64_t BlockPeriodNs(const uint8_t* header) {
  const uint64_t rate = lumx::GetLe32(header + kPktSampleRateOffset);
  const uint64_t frameBytes = uint64_t{header[kPktChannelsOffset]} * header[kPktBytesPerSampleOffset];
  if (rate == 0 || frameBytes == 0) return kWriteBudgetMaxNs;
  const int64_t ns =
      static_cast<int64_t>(lumx::GetLe32(header + kPktPayloadSizeOffset) / frameBytes * 1000000000ull / rate);
  return ns < kWriteBudgetMinNs ? kWriteBudgetMinNs : ns > kWriteBudgetMaxNs ? kWriteBudgetMaxNs : ns;
}

bool IsPacketStart(const uint8_t* p) { return lumx::GetLe32(p) == kLumPacketMagic; }

// "%gkHz %uch %uBps, block len %u" of a packet header, cut at 31 characters.
void DescribeFormat(const uint8_t* header, char (&text)[32]) {
  const uint32_t payload = lumx::GetLe32(header + kPktPayloadSizeOffset);
  const uint32_t rate = lumx::GetLe32(header + kPktSampleRateOffset);
  const uint32_t channels = header[kPktChannelsOffset];
  const uint32_t bytesPerSample = header[kPktBytesPerSampleOffset];
  const uint32_t blockLength =
      (channels == 0 || bytesPerSample == 0) ? 0 : payload / channels / bytesPerSample;
  const float kHz = static_cast<float>(rate) / 1000.0f;
  char full[64] = {};
  snprintf(full, sizeof full, "%gkHz %uch %uBps, block len %u", static_cast<double>(kHz), channels,
           bytesPerSample, blockLength);
  memcpy(text, full, sizeof text - 1);  // cut, never refused
  text[sizeof text - 1] = '\0';
}

bool SameFormat(const uint8_t* a, const uint8_t* b) {
  return lumx::GetLe32(a + kPktPayloadSizeOffset) == lumx::GetLe32(b + kPktPayloadSizeOffset) &&
         lumx::GetLe32(a + kPktSampleRateOffset) == lumx::GetLe32(b + kPktSampleRateOffset) &&
         a[kPktChannelsOffset] == b[kPktChannelsOffset] &&
         a[kPktBytesPerSampleOffset] == b[kPktBytesPerSampleOffset];
}

}  // namespace

// ---- Open, enable, disable ----

int LumxBuffer::openLumNoLock() {
  if (handle_.load() >= 0) {
    LUMX_LOGE("%s: already open", name_.c_str());
    return -1;
  }
  // Non-blocking open: a FIFO whose other end is not open yet would block a
  // plain open() for ever (a write end fails with ENXIO instead and is
  // retried like any failed open). A read buffer keeps the descriptor
  // non-blocking; a write buffer too, and writePacketToLum() waits for room
  // itself, which is the blocking write bounded by a deadline.
  const int fd = open(devicePath_.c_str(), (isRead_ ? O_RDONLY : O_WRONLY) | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    const int err = errno;
    errno = err;  // for %m
    LUMX_LOGE("Error opening %s, status %d (errno %d: %m)\n", devicePath_.c_str(), fd, err);
    errno = err;  // the caller reports it too
    return fd;
  }
  handle_.store(fd);
  return 0;
}

int LumxBuffer::Enable(bool enable) {
  if (!enable) {
    handleDisable();
    return 0;
  }
  if (enabled_.load()) {
    LUMX_LOGI("Enable buffer %s: already enabled", name_.c_str());
    return 0;
  }
  if (isRead_) {
    size_t outputs;
    {
      lumx::MutexLock lock(&mutex_);
      outputs = outputProcessors_.size();
    }
    LUMX_LOGI("Enable buffer %s (%u processor%s connected), I/O thread start", name_.c_str(),
              static_cast<unsigned>(outputs), outputs == 1 ? "" : "s");
  } else {
    bool hasInput;
    {
      // RegisterInput() may be changing it right now.
      lumx::MutexLock lock(&mutex_);
      hasInput = inputProcessor_ != nullptr;
    }
    LUMX_LOGI("Enable buffer %s with %u input", name_.c_str(), hasInput ? 1u : 0u);
  }

  lumx::MutexLock lock(&mutex_);
  // Another binder thread may have enabled it while this one waited for the
  // lock; opening again would fail and the retries would close its device.
  if (enabled_.load()) {
    LUMX_LOGI("Enable buffer %s: already enabled", name_.c_str());
    return 0;
  }
  int status = 0;
  for (unsigned attempt = 1; attempt <= kOpenAttempts; ++attempt) {
    status = openLumNoLock();
    if (status == 0) break;
    if (attempt == kOpenAttempts) {
      const int err = errno;
      LUMX_LOGE("Open %s failed, status %d, errno %d", devicePath_.c_str(), status, err);
      return -1;
    }
    LUMX_LOGI("%s Attempting to reinitialize LUM interface, attempt %u\n", name_.c_str(), attempt);
    const int fd = handle_.exchange(-1);
    if (fd >= 0) close(fd);
    usleep(kOpenRetryDelayUs);
  }

  if (ioBuffer_ == nullptr) ioBuffer_ = new uint8_t[kLumIoBlockSize]();
  // The wake-up descriptor only shortens a disable: it ends the I/O thread's
  // wait (read buffer) or a writer's wait for room (write buffer) at once.
  wakeFd_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!isRead_) {
    writeStalled_.store(false, std::memory_order_relaxed);
    enabled_.store(true);
    return 0;
  }
  if (packetBuffer_ == nullptr) packetBuffer_ = new uint8_t[kLumIoBlockSize]();
  rxPacketCount_.store(0, std::memory_order_relaxed);
  addDeliverer();
  enabled_.store(true);
  ioThreadAlive_.store(true, std::memory_order_relaxed);
  ioThread_ = std::thread(&LumxBuffer::ioProcess, this);
  ioThreadRunning_ = true;
  return 0;
}

void LumxBuffer::handleDisable() {
  if (!enabled_.load()) {
    LUMX_LOGI("Disable buffer %s: already disabled", name_.c_str());
    return;
  }
  LUMX_LOGI("Disable buffer %s", name_.c_str());
  lumx::MutexLock lock(&mutex_);
  if (!enabled_.exchange(false)) {
    // A concurrent disable got here first and did the work.
    return;
  }
  if (wakeFd_.ok()) {
    const uint64_t one = 1;
    ssize_t ignored = write(wakeFd_.get(), &one, sizeof one);
    (void)ignored;
  }
  if (ioThreadRunning_) {
    ioThread_.join();
    ioThreadRunning_ = false;
    removeDeliverer();
  }
  // Tap-out threads that saw this buffer enabled may still be writing its
  // block and device; enabled_ is clear, so no new writer starts, and a
  // writer waiting for room was woken above.
  while (writers_.load() != 0) usleep(50);
  const int fd = handle_.exchange(-1);
  if (fd >= 0) close(fd);
  wakeFd_.reset();
  delete[] ioBuffer_;
  ioBuffer_ = nullptr;
  delete[] packetBuffer_;
  packetBuffer_ = nullptr;
  if (isRead_) {
    LUMX_LOGI("Buffer %s disabled, I/O thread end", name_.c_str());
  } else {
    LUMX_LOGI("Buffer %s disabled", name_.c_str());
  }
}

// ---- Delivery sections ----

void LumxBuffer::addDeliverer() {
  lumx::MutexLock lock(&deliverersMutex_);
  nextDeliverer_ = deliverers_;
  deliverers_ = this;
}

void LumxBuffer::removeDeliverer() {
  lumx::MutexLock lock(&deliverersMutex_);
  for (LumxBuffer** link = &deliverers_; *link != nullptr; link = &(*link)->nextDeliverer_) {
    if (*link == this) {
      *link = nextDeliverer_;
      nextDeliverer_ = nullptr;
      return;
    }
  }
}

void LumxBuffer::waitOwnDelivery() const {
  // Pairs with the fence in deliver(): either the section start is visible
  // here, or the section's loads see what the caller just unpublished.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  const uint32_t seq = deliverySeq_.load();
  if ((seq & 1u) == 0) return;
  while (deliverySeq_.load() == seq) usleep(50);
}

void LumxBuffer::WaitForThreadsReaching(const std::vector<LumxProcessor*>& ps) {
  if (ps.empty()) return;
  std::atomic_thread_fence(std::memory_order_seq_cst);  // as in waitOwnDelivery()
  const auto holds = [&ps](const OutputList* list) {
    if (list == nullptr) return false;
    for (LumxProcessor* p : *list) {
      for (LumxProcessor* q : ps) {
        if (p == q) return true;
      }
    }
    return false;
  };
  std::vector<std::pair<const LumxBuffer*, uint32_t>> pending;
  {
    lumx::MutexLock lock(&deliverersMutex_);
    for (const LumxBuffer* b = deliverers_; b != nullptr; b = b->nextDeliverer_) {
      const uint32_t seq = b->deliverySeq_.load();
      // A thread in a section uses the published set or, while it is being
      // replaced, the retiring one.
      if ((seq & 1u) != 0 && (holds(b->outputSnapshot_.load()) || holds(b->retiringSnapshot_))) {
        pending.emplace_back(b, seq);
      }
    }
  }
  while (!pending.empty()) {
    usleep(50);
    lumx::MutexLock lock(&deliverersMutex_);
    for (size_t i = 0; i < pending.size();) {
      bool stillInSection = false;
      for (const LumxBuffer* b = deliverers_; b != nullptr; b = b->nextDeliverer_) {
        // A buffer that left the registry has joined its thread.
        if (b == pending[i].first) {
          stillInSection = b->deliverySeq_.load() == pending[i].second;
          break;
        }
      }
      if (stillInSection) {
        ++i;
      } else {
        pending[i] = pending.back();
        pending.pop_back();
      }
    }
  }
}

bool LumxBuffer::acquireWriteSlot(int64_t deadlineNs) {
  // Held only while one packet is prepared and written, which its own
  // deadline bounds; a short spin, then short sleeps.
  for (unsigned round = 0;; ++round) {
    bool expected = false;
    if (writeSlot_.compare_exchange_weak(expected, true, std::memory_order_acquire, std::memory_order_relaxed)) {
      return true;
    }
    if (NowNs() >= deadlineNs) return false;
    if (round < 16) {
      sched_yield();
    } else {
      const struct timespec pause = {0, 50000};
      nanosleep(&pause, nullptr);
    }
  }
}

// ---- The I/O thread ----

void LumxBuffer::ioSleep(unsigned int us) {
  const int wfd = wakeFd_.get();
  if (wfd < 0) {
    usleep(us);
    return;
  }
  pollfd wake = {wfd, POLLIN, 0};
  poll(&wake, 1, static_cast<int>(us / 1000));
}

void LumxBuffer::rxReset() {
  memset(format_, 0, sizeof format_);
  storeFormatFields(format_);
  blockPeriodNs_ = BlockPeriodNs(format_);
  expectedPacketSize_ = kLumIoBlockSize;
}

void LumxBuffer::rxStartPacket(RxState& st) {
  st.assembled = 0;
  st.synced = false;
  st.headerKnown = false;
  st.idle = 0;
  st.readErrors = 0;
}

void LumxBuffer::rxDiscard(RxState& st) {
  st.assembled = 0;
  st.synced = false;
  st.headerKnown = false;
}

size_t LumxBuffer::rxReadLimit(const RxState& st) const {
  const size_t limit = st.headerKnown ? expectedPacketSize_ : kLumIoBlockSize;
  return limit - st.assembled;
}

void LumxBuffer::rxEndOfFile(RxState& st) {
  // A read of 0 bytes is end of file: the writer of the device went away. The
  // descriptor stays readable, so waiting on it again would spin; back off
  // instead, 10 ms doubling to 200 ms, until the next byte arrives.
  if (st.eofBackoffUs == 0) {
    st.eofBackoffUs = kEofBackoffFirstUs;
    stats_.eofEpisodes.Add();
    LUMX_LOGI_LIMITED(eofLog_, "end of file", "%s: end of file, the writer is gone; reading again with back-off",
                      name_.c_str());
  }
  stats_.eofReads.Add();
  ioSleep(st.eofBackoffUs);
  st.eofBackoffUs = st.eofBackoffUs * 2 > kEofBackoffMaxUs ? kEofBackoffMaxUs : st.eofBackoffUs * 2;
}

LumxBuffer::Assembly LumxBuffer::rxAssemble(RxState& st, const uint8_t* data, size_t len, size_t* used) {
  size_t take = 0;
  if (!st.headerKnown) {
    take = kLumPacketHeaderSize - st.assembled;
    if (take > len) take = len;
    memcpy(packetBuffer_ + st.assembled, data, take);
    st.assembled += static_cast<uint32_t>(take);
    *used = take;
    if (st.assembled < kLumPacketHeaderSize) {
      st.synced = true;
      return Assembly::kNeedMore;
    }
    const uint32_t version = lumx::GetLe32(packetBuffer_ + kPktVersionOffset);
    if (version != kLumPacketVersion) {
      LUMX_LOGE("%s: Invalid packet version %u (expected %u)", name_.c_str(), version, kLumPacketVersion);
      stats_.cutVersion.Add();
      rxDiscard(st);
      return Assembly::kBad;
    }
    const uint32_t payload = lumx::GetLe32(packetBuffer_ + kPktPayloadSizeOffset);
    if (payload > kLumMaxPayloadSize) {
      // The packet could not fit the assembly block.
      LUMX_LOGE("%s: Invalid packet payload size %u (max %u)", name_.c_str(), payload,
                static_cast<unsigned>(kLumMaxPayloadSize));
      stats_.cutOversize.Add();
      rxDiscard(st);
      return Assembly::kBad;
    }
    expectedPacketSize_ = payload + static_cast<uint32_t>(kLumPacketHeaderSize);
    st.headerKnown = true;
    st.synced = true;
  }
  size_t more = expectedPacketSize_ - st.assembled;
  if (more > len - take) more = len - take;
  memcpy(packetBuffer_ + st.assembled, data + take, more);
  st.assembled += static_cast<uint32_t>(more);
  *used = take + more;
  return st.assembled == expectedPacketSize_ ? Assembly::kComplete : Assembly::kNeedMore;
}

int LumxBuffer::rxAccept(RxState& st, size_t n) {
  if (n == 0) return 0;
  if (n % 8 != 0) {
    LUMX_LOGE("%s: RX alignment error, %u bytes received", name_.c_str(), static_cast<unsigned>(n));
    stats_.cutAlignment.Add();
    rxDiscard(st);
    return 0;
  }
  if (!st.synced) return rxWalk(st, 0, n, 0, 0);
  // The read continues the packet under assembly. Whatever follows its end
  // is read like a fresh block: a reader that fell behind finds the next
  // packets there.
  size_t used = 0;
  if (rxAssemble(st, ioBuffer_, n, &used) != Assembly::kComplete) return 0;
  const uint32_t size = st.assembled;
  rxDiscard(st);
  if (!rxComplete(st, packetBuffer_, 0)) return -1;
  return rxWalk(st, used, n, 1, size);
}

int LumxBuffer::rxWalk(RxState& st, size_t off, size_t n, int delivered, uint32_t lastSize) {
  const uint8_t* b = ioBuffer_;
  while (off < n) {
    // A whole packet that ends where the read ends or where the next packet
    // starts is delivered as it lies; bytes before it are stale. Taking only
    // the last packet start of a read, as for a lone packet, would drop every
    // earlier whole packet of a read that caught up with a backlog.
    size_t at = n;
    for (size_t c = off; c + kLumPacketHeaderSize <= n; c += 4) {
      if (!IsPacketStart(b + c) || lumx::GetLe32(b + c + kPktVersionOffset) != kLumPacketVersion) continue;
      const uint32_t payload = lumx::GetLe32(b + c + kPktPayloadSizeOffset);
      if (payload > kLumMaxPayloadSize) continue;
      const size_t end = c + kLumPacketHeaderSize + payload;
      if (end == n || (end + 4 <= n && IsPacketStart(b + end))) {
        at = c;
        break;
      }
    }
    if (at != n) {
      stats_.skippedBytes.Add(at - off);
      lastSize = static_cast<uint32_t>(kLumPacketHeaderSize) + lumx::GetLe32(b + at + kPktPayloadSizeOffset);
      expectedPacketSize_ = lastSize;
      if (!rxComplete(st, b + at, 0)) return -1;
      ++delivered;
      off = at + lastSize;
      continue;
    }
    // Otherwise the last packet start of the rest wins, so that a stale one
    // earlier in it is passed over; it is assembled from there.
    size_t last = n;
    for (size_t c = off; c + 4 <= n; c += 4) {
      if (IsPacketStart(b + c)) last = c;
    }
    if (last == n) {
      const size_t rest = n - off;
      if (delivered == 0) {
        LUMX_LOGI("%s skipping %u bytes", name_.c_str(), static_cast<unsigned>(rest));
        stats_.cutNoMagic.Add();
      } else if (rest >= 8) {
        LUMX_LOGE("%s received excess %u bytes (%u > %u)", name_.c_str(), static_cast<unsigned>(rest),
                  static_cast<unsigned>(lastSize + rest), lastSize);
        stats_.cutExcess.Add();
      } else {
        stats_.skippedBytes.Add(rest);
      }
      return delivered;
    }
    stats_.skippedBytes.Add(last - off);
    rxDiscard(st);
    size_t used = 0;
    if (rxAssemble(st, b + last, n - last, &used) != Assembly::kComplete) return delivered;
    // Complete, and what follows holds no packet start: excess.
    rxDiscard(st);
    if (!rxComplete(st, packetBuffer_, static_cast<uint32_t>(n - last - used))) return -1;
    return delivered + 1;
  }
  return delivered;
}

bool LumxBuffer::rxComplete(RxState& st, const uint8_t* packet, uint32_t excess) {
  const uint32_t payloadSize = lumx::GetLe32(packet + kPktPayloadSizeOffset);
  const uint32_t expected = payloadSize + static_cast<uint32_t>(kLumPacketHeaderSize);
  if (excess >= 8) {
    LUMX_LOGE("%s received excess %u bytes (%u > %u)", name_.c_str(), excess, expected + excess, expected);
    stats_.cutExcess.Add();
  }
  if (packetBuffer_ == nullptr || !enabled_.load(std::memory_order_relaxed)) return false;

  // The packet's arrival: the start of its write deadline, and for the
  // counters its inter-arrival time and processing time.
  const int64_t now = NowNs();
  const uint32_t packetNum = lumx::GetLe32(packet + kPktNumOffset);
  if (packetNum - st.lastPacketNum != 1) {
    LUMX_LOGI("%s %s RX packet_num jump %u -> %u", name_.c_str(), "ioProcess", st.lastPacketNum, packetNum);
    // Numbers skipped forward were packets the DSP made and this buffer
    // never saw; the first packet of a stream and a step back lose nothing.
    const uint32_t ahead = packetNum - st.lastPacketNum;
    if (st.lastArrivalNs != 0 && ahead != 0 && ahead < 0x80000000u) stats_.rxLost.Add(ahead - 1);
  }
  if (payloadSize != st.lastPayloadSize) {
    LUMX_LOGI("%s: RX process payload sz change %u --> %u", name_.c_str(), st.lastPayloadSize, payloadSize);
  }
  st.lastPacketNum = packetNum;
  st.lastPayloadSize = payloadSize;

  const uint64_t count = rxPacketCount_.load(std::memory_order_relaxed);
  if (count % kRxLogEvery == 0) {
    LUMX_LOGI("%s: RX packet_num:%u payload_sz:%u", name_.c_str(), packetNum, payloadSize);
  }
  rxPacketCount_.store(count + 1, std::memory_order_relaxed);
  stats_.rxPackets.Add();
  stats_.rxBytes.Add(payloadSize);

  if (!SameFormat(format_, packet)) {
    char before[32];
    char after[32];
    DescribeFormat(format_, before);
    DescribeFormat(packet, after);
    LUMX_LOGI("%s: RX format change %s --> %s", name_.c_str(), before, after);
    memcpy(format_, packet, kLumPacketHeaderSize);
    storeFormatFields(format_);
    blockPeriodNs_ = BlockPeriodNs(format_);
  } else if (lumx::kStatsEnabled && st.lastArrivalNs != 0) {
    const int64_t delta = now - st.lastArrivalNs - blockPeriodNs_;
    stats_.jitterMaxUs.Max(static_cast<uint64_t>(delta < 0 ? -delta : delta) / 1000);
  }
  st.lastArrivalNs = now;

  deliver(packet, packetNum, payloadSize, now);
  if (lumx::kStatsEnabled) stats_.processUs.Record(static_cast<uint64_t>(NowNs() - now) / 1000);
  return true;
}

void LumxBuffer::deliver(const uint8_t* packet, uint32_t packetNum, uint32_t payloadSize, int64_t arrivalNs) {
  // Enter the delivery section: odd sequence, then a full fence so that a
  // binder thread that unpublishes something after this point either sees
  // the odd value or has its change seen by the loads below.
  const uint32_t seq = deliverySeq_.load(std::memory_order_relaxed);
  deliverySeq_.store(seq + 1, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_seq_cst);

  const uint8_t* in = packet + kLumPacketHeaderSize;
  // Every output of this packet must have been prepared within one block
  // period of its arrival.
  const int64_t slotDeadlineNs = arrivalNs + blockPeriodNs_;
  const OutputList* outputs = outputSnapshot_.load(std::memory_order_acquire);
  for (LumxProcessor* p : *outputs) {
    // Read once: a binder thread may rewire the processor meanwhile.
    LumxBuffer* out = p->output();
    std::atomic_thread_fence(std::memory_order_acquire);  // see RegisterInput()
    LUMX_TSAN_ACQUIRE(p);
    uint8_t* outPtr = nullptr;
    int status = 0;
    if (out != nullptr && !out->isRead_) {
      out->writers_.fetch_add(1);
      if (out->enabled_.load()) {
        // Another tap-out thread may be filling this block for a processor
        // registered on both; wait for it, within this packet's deadline.
        if (out->acquireWriteSlot(slotDeadlineNs)) {
          uint8_t* block = out->ioBuffer_;
          memcpy(block, format_, kLumPacketHeaderSize);
          memcpy(block + kPktOpaqueOffset, packet + kPktOpaqueOffset, 8);
          lumx::PutLe32(block + kPktNumOffset, packetNum);
          lumx::PutLe32(block + kPktPayloadSizeOffset, payloadSize);
          memset(block + kLumPacketHeaderSize, 0, payloadSize);
          outPtr = block + kLumPacketHeaderSize;
        } else {
          status = kLumWriteTimedOut;
          out->countTxFailure(status);
        }
      } else {
        // Not written, as writePacketToLum() would say (-1): counted, so
        // that every packet delivered shows on the inject buffer it was
        // meant for (one that is started after its tap-out misses the first
        // packets). No log line: that is how a stream starts.
        out->countTxFailure(-1);
      }
      if (outPtr == nullptr) out->writers_.fetch_sub(1);
    }
    const int processed = p->ProcessBlock(in, payloadSize, outPtr, payloadSize);
    if (processed != 0) {
      // A processor that cannot use this stream fails every packet; once a
      // second is enough to tell.
      LUMX_LOGE_LIMITED_KEYED(processErrorLog_, static_cast<uint32_t>(processed), "ProcessBlock returned status",
                              "%s %s: ProcessBlock returned status %d", name_.c_str(), "ioProcess", processed);
    }
    if (outPtr != nullptr) {
      status = out->writePacketToLum();
      out->releaseWriteSlot();
    }
    if (status != 0) {
      // The write-error line, once per second per inject buffer at most: a device
      // that stopped reading fails every packet.
      LUMX_LOGE_LIMITED(out->writeErrorLog_, "writePacketToLum", "%s: %s writePacketToLum returned status %d",
                        out->name_.c_str(), "ioProcess", status);
    }
    if (outPtr != nullptr) out->writers_.fetch_sub(1);
  }

  deliverySeq_.store(seq + 2, std::memory_order_release);
}

void LumxBuffer::ioProcess() {
  if (!isRead_) return;
  // Cleared however the thread ends, also when it ends by itself.
  struct AliveFlag {
    std::atomic<bool>& flag;
    ~AliveFlag() { flag.store(false, std::memory_order_relaxed); }
  } alive{ioThreadAlive_};
  SetThreadRealtimePriority();
  rxReset();
  RxState st;
  if (!enabled_.load()) {
    LUMX_LOGI("%s %s end", name_.c_str(), "ioProcess");
    return;
  }
  rxStartPacket(st);
  while (enabled_.load(std::memory_order_relaxed)) {
    const int fd = handle_.load(std::memory_order_relaxed);
    if (fd < 0) break;

    // poll() rather than select(): no FD_SETSIZE limit on descriptor
    // numbers; the wait and its outcomes are the same.
    pollfd fds[2] = {{fd, POLLIN, 0}, {wakeFd_.get(), POLLIN, 0}};
    const nfds_t count = fds[1].fd >= 0 ? 2 : 1;
    const int ready = poll(fds, count, kRxWaitMs);
    // A descriptor that is not open fails the wait, as select() would.
    if (ready < 0 || (fds[0].revents & POLLNVAL) != 0) {
      LUMX_LOGE("%s select failed\n", name_.c_str());
      stats_.lastError.Record(ready < 0 ? -errno : -EBADF, NowNs());
      break;
    }
    if (ready == 0) {
      if (st.idle % kIdleLogEvery == 0) LUMX_LOGI("%s waiting for LUM RX\n", name_.c_str());
      ++st.idle;
    } else if (fds[0].revents != 0) {
      const size_t want = rxReadLimit(st);
      const ssize_t got = read(fd, ioBuffer_, want);
      st.idle = 0;
      if (got < 0) {
        const int err = errno;
        if (handle_.load() < 0 || !enabled_.load()) break;
        stats_.readErrors.Add();
        stats_.lastError.Record(-err, NowNs());
        if (st.readErrors < kReadRetries) {
          errno = err;
          LUMX_LOGE("%s LUM read status %d (errno %d: %m), trying again, handle_ %d, read_sz %u",
                    name_.c_str(), static_cast<int>(got), err, fd, static_cast<unsigned>(want));
          ioSleep(kReadRetryDelayUs);
          ++st.readErrors;
        } else {
          int status = -1;
          bool reopened = false;
          for (unsigned attempt = 0; attempt < kReopenAttempts; ++attempt) {
            LUMX_LOGI("%s Attempting to reinitialize LUM interface", name_.c_str());
            ioSleep(kReopenDelayUs);
            if (!enabled_.load()) goto end;
            const int old = handle_.exchange(-1);
            if (old >= 0) close(old);
            // Only this thread opens the device while the buffer is enabled.
            status = openLumNoLock();
            if (status == 0) {
              reopened = true;
              break;
            }
          }
          if (!reopened) {
            LUMX_LOGE("%s LUM interface error, status %d\n", name_.c_str(), status);
            break;
          }
          LUMX_LOGI("%s Re-init success", name_.c_str());
          stats_.reopens.Add();
          st.readErrors = 0;
        }
      } else if (got == 0) {
        rxEndOfFile(st);
      } else {
        st.eofBackoffUs = 0;
        const int delivered = rxAccept(st, static_cast<size_t>(got));
        if (delivered < 0) break;
        if (delivered > 0) {
          // A new packet begins (possibly already under way in this read).
          st.idle = 0;
          st.readErrors = 0;
        }
      }
    }
    // Otherwise only the wake-up descriptor fired: a disable is under way.
  }
end:
  LUMX_LOGI("%s %s end", name_.c_str(), "ioProcess");
}

// ---- Write path ----

int LumxBuffer::writePacketToLum() {
  int status;
  if (!enabled_.load()) {
    status = -1;
  } else if (handle_.load() < 0) {
    status = -2;
  } else if (isRead_) {
    status = -3;
  } else if (ioBuffer_ == nullptr) {
    status = -4;
  } else if (lumx::GetLe32(ioBuffer_ + kPktPayloadSizeOffset) > kLumMaxPayloadSize) {
    status = -5;
  } else {
    const int fd = handle_.load();
    const uint8_t* block = ioBuffer_;
    const size_t total = lumx::GetLe32(block + kPktPayloadSizeOffset) + kLumPacketHeaderSize;
    const int64_t deadline = NowNs() + BlockPeriodNs(block);
    // The last packet waited its whole deadline in vain: while the device
    // still takes nothing, give the next ones up at once instead of holding
    // the I/O thread (and the other outputs of its buffer) a period each.
    const bool stalled = writeStalled_.load(std::memory_order_relaxed);
    size_t done = 0;
    status = 0;
    while (done < total) {
      const ssize_t n = write(fd, block + done, total - done);
      if (n > 0) {
        done += static_cast<size_t>(n);
        continue;
      }
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && errno != EAGAIN) {
        status = static_cast<int>(n);
        break;
      }
      // No room: wait for it until the deadline, or until a disable.
      const int64_t left = deadline - NowNs();
      if ((stalled && done == 0) || left <= 0) {
        status = kLumWriteTimedOut;
        break;
      }
      pollfd fds[2] = {{fd, POLLOUT, 0}, {wakeFd_.get(), POLLIN, 0}};
      const int ready = poll(fds, fds[1].fd >= 0 ? 2 : 1, static_cast<int>((left + 999999) / 1000000));
      if (ready > 0 && fds[1].revents != 0) {
        status = -1;  // being disabled
        break;
      }
    }
    // A packet given up part-way leaves the device to find the next magic.
    writeStalled_.store(status == kLumWriteTimedOut, std::memory_order_relaxed);
    if (status != 0 && done != 0) stats_.txCut.Add();
  }
  if (status == 0) {
    stats_.txPackets.Add();
  } else {
    countTxFailure(status);
  }
  return status;
}

void LumxBuffer::countTxFailure(int status) {
  stats_.txFailures[LumxBufferStats::TxFailureIndex(status)].Add();
  if (status == kLumWriteTimedOut) stats_.txTimeouts.Add();
  stats_.lastError.Record(status, NowNs());
}
