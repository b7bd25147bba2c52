// LumxBuffer: opening, enabling and disabling the device, the I/O thread of a
// tap-out buffer and the write path into inject buffers.
//
// The packet path (rxAccept, rxComplete, deliver, writePacketToLum) takes no
// lock and allocates nothing; see lumx_buffer.h for how it stays safe while
// binder threads rewire processors and disable buffers.
#include "buffer/lumx_buffer.h"
#include "buffer/tsan_annotations.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "common/wire.h"
#include "processors/lumx_processor.h"

namespace {

// Every read buffer whose I/O thread is running, so that WaitForDeliveries()
// can find the delivery sections in progress. Never touched by the I/O
// threads themselves (they only bump their own deliverySeq_).
lumx::Mutex gDeliverersMutex;
LumxBuffer* gDeliverers GUARDED_BY(gDeliverersMutex) = nullptr;

constexpr int kRxWaitMs = 200;
constexpr unsigned kOpenRetryDelayUs = 1000000;
constexpr unsigned kReadRetryDelayUs = 10000;
constexpr unsigned kReopenDelayUs = 500000;
constexpr unsigned kOpenAttempts = 5;
constexpr unsigned kReadRetries = 10;
constexpr unsigned kReopenAttempts = 5;
constexpr unsigned kIdleLogEvery = 20;
constexpr uint64_t kRxLogEvery = 200;

// "%gkHz %uch %uBps, block len %u" of a packet header, cut at 31 characters.
void DescribeFormat(const uint8_t* header, char (&text)[32]) {
  const uint32_t payload = lumx::GetLe32(header + kPktPayloadSizeOffset);
  const uint32_t rate = lumx::GetLe32(header + kPktSampleRateOffset);
  const uint32_t channels = header[kPktChannelsOffset];
  const uint32_t bytesPerSample = header[kPktBytesPerSampleOffset];
  const uint32_t blockLength =
      (channels == 0 || bytesPerSample == 0) ? 0 : payload / channels / bytesPerSample;
  const float kHz = static_cast<float>(rate) / 1000.0f;
  snprintf(text, sizeof text, "%gkHz %uch %uBps, block len %u", static_cast<double>(kHz), channels,
           bytesPerSample, blockLength);
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
  int fd;
  if (isRead_) {
    fd = open(devicePath_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
      const int flags = fcntl(fd, F_GETFL);
      fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    }
  } else {
    fd = open(devicePath_.c_str(), O_WRONLY | O_CLOEXEC);
  }
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
    LUMX_LOGI("Enable buffer %s with %u input", name_.c_str(), inputProcessor() != nullptr ? 1u : 0u);
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
  if (!isRead_) {
    enabled_.store(true);
    return 0;
  }
  if (packetBuffer_ == nullptr) packetBuffer_ = new uint8_t[kLumIoBlockSize]();
  // The wake-up descriptor only shortens a disable; without it the thread
  // still notices within one 200 ms wait.
  wakeFd_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  rxPacketCount_.store(0, std::memory_order_relaxed);
  addDeliverer();
  enabled_.store(true);
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
  // block and device; enabled_ is clear, so no new writer starts.
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
  lumx::MutexLock lock(&gDeliverersMutex);
  nextDeliverer_ = gDeliverers;
  gDeliverers = this;
}

void LumxBuffer::removeDeliverer() {
  lumx::MutexLock lock(&gDeliverersMutex);
  for (LumxBuffer** link = &gDeliverers; *link != nullptr; link = &(*link)->nextDeliverer_) {
    if (*link == this) {
      *link = nextDeliverer_;
      nextDeliverer_ = nullptr;
      return;
    }
  }
}

void LumxBuffer::WaitForDeliveries() {
  // Pairs with the fence in deliver(): either that thread's section start is
  // visible here, or its loads already see what the caller just unpublished.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  std::vector<std::pair<const LumxBuffer*, uint32_t>> pending;
  {
    lumx::MutexLock lock(&gDeliverersMutex);
    for (const LumxBuffer* b = gDeliverers; b != nullptr; b = b->nextDeliverer_) {
      const uint32_t seq = b->deliverySeq_.load();
      if (seq & 1u) pending.emplace_back(b, seq);
    }
  }
  while (!pending.empty()) {
    usleep(50);
    lumx::MutexLock lock(&gDeliverersMutex);
    for (size_t i = 0; i < pending.size();) {
      bool stillInSection = false;
      for (const LumxBuffer* b = gDeliverers; b != nullptr; b = b->nextDeliverer_) {
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

bool LumxBuffer::rxAccept(RxState& st, size_t n) {
  if (n == 0) return false;
  if (n % 8 != 0) {
    LUMX_LOGE("%s: RX alignment error, %u bytes received", name_.c_str(), static_cast<unsigned>(n));
    rxDiscard(st);
    return false;
  }
  const uint8_t* kept = ioBuffer_;
  size_t keptSize = n;
  if (!st.synced) {
    // The last packet start in the block wins: an earlier one is stale.
    size_t word = n / 4;
    bool found = false;
    while (word-- > 0) {
      if (lumx::GetLe32(ioBuffer_ + 4 * word) == kLumPacketMagic) {
        found = true;
        break;
      }
    }
    if (!found) {
      LUMX_LOGI("%s skipping %u bytes", name_.c_str(), static_cast<unsigned>(n));
      rxDiscard(st);
      return false;
    }
    kept = ioBuffer_ + 4 * word;
    keptSize = n - 4 * word;
  }
  // Reads never ask for more than the block has room for; this only guards
  // against a caller that ignored rxReadLimit().
  if (keptSize > kLumIoBlockSize - st.assembled) {
    rxDiscard(st);
    return false;
  }
  memcpy(packetBuffer_ + st.assembled, kept, keptSize);
  st.assembled += static_cast<uint32_t>(keptSize);

  if (!st.headerKnown) {
    if (st.assembled < kLumPacketHeaderSize) {
      st.synced = true;
      return false;
    }
    const uint32_t version = lumx::GetLe32(packetBuffer_ + kPktVersionOffset);
    if (version != kLumPacketVersion) {
      LUMX_LOGE("%s: Invalid packet version %u (expected %u)", name_.c_str(), version, kLumPacketVersion);
      rxDiscard(st);
      return false;
    }
    const uint32_t payload = lumx::GetLe32(packetBuffer_ + kPktPayloadSizeOffset);
    if (payload > kLumMaxPayloadSize) {
      // The packet could not fit the assembly block.
      LUMX_LOGE("%s: Invalid packet payload size %u (max %u)", name_.c_str(), payload,
                static_cast<unsigned>(kLumMaxPayloadSize));
      rxDiscard(st);
      return false;
    }
    expectedPacketSize_ = payload + static_cast<uint32_t>(kLumPacketHeaderSize);
  }
  if (st.assembled >= expectedPacketSize_) return true;
  st.headerKnown = true;
  st.synced = true;
  return false;
}

bool LumxBuffer::rxComplete(RxState& st) {
  const uint32_t expected = expectedPacketSize_;
  const uint32_t excess = st.assembled - expected;
  if (excess >= 8) {
    LUMX_LOGE("%s received excess %u bytes (%u > %u)", name_.c_str(), excess, st.assembled, expected);
  }
  if (packetBuffer_ == nullptr || !enabled_.load(std::memory_order_relaxed)) return false;

  const uint8_t* packet = packetBuffer_;
  const uint32_t packetNum = lumx::GetLe32(packet + kPktNumOffset);
  const uint32_t payloadSize = lumx::GetLe32(packet + kPktPayloadSizeOffset);
  if (packetNum - st.lastPacketNum != 1) {
    LUMX_LOGI("%s %s RX packet_num jump %u -> %u", name_.c_str(), "ioProcess", st.lastPacketNum, packetNum);
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

  if (!SameFormat(format_, packet)) {
    char before[32];
    char after[32];
    DescribeFormat(format_, before);
    DescribeFormat(packet, after);
    LUMX_LOGI("%s: RX format change %s --> %s", name_.c_str(), before, after);
    memcpy(format_, packet, kLumPacketHeaderSize);
  }

  deliver(packet, packetNum, payloadSize);
  return true;
}

void LumxBuffer::deliver(const uint8_t* packet, uint32_t packetNum, uint32_t payloadSize) {
  // Enter the delivery section: odd sequence, then a full fence so that a
  // binder thread that unpublishes something after this point either sees
  // the odd value or has its change seen by the loads below.
  const uint32_t seq = deliverySeq_.load(std::memory_order_relaxed);
  deliverySeq_.store(seq + 1, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_seq_cst);

  const uint8_t* in = packet + kLumPacketHeaderSize;
  const OutputList* outputs = outputSnapshot_.load(std::memory_order_acquire);
  for (LumxProcessor* p : *outputs) {
    // Read once: a binder thread may rewire the processor meanwhile.
    LumxBuffer* out = p->output();
    std::atomic_thread_fence(std::memory_order_acquire);  // see RegisterInput()
    LUMX_TSAN_ACQUIRE(p);
    uint8_t* outPtr = nullptr;
    if (out != nullptr && !out->isRead_) {
      out->writers_.fetch_add(1);
      uint8_t* block = out->enabled_.load() ? out->ioBuffer_ : nullptr;
      if (block != nullptr) {
        memcpy(block, format_, kLumPacketHeaderSize);
        memcpy(block + kPktOpaqueOffset, packet + kPktOpaqueOffset, 8);
        lumx::PutLe32(block + kPktNumOffset, packetNum);
        lumx::PutLe32(block + kPktPayloadSizeOffset, payloadSize);
        memset(block + kLumPacketHeaderSize, 0, payloadSize);
        outPtr = block + kLumPacketHeaderSize;
      } else {
        out->writers_.fetch_sub(1);
      }
    }
    const int status = p->ProcessBlock(in, payloadSize, outPtr, payloadSize);
    if (status != 0) {
      LUMX_LOGE("%s %s: ProcessBlock returned status %d", name_.c_str(), "ioProcess", status);
    }
    if (outPtr != nullptr) {
      const int written = out->writePacketToLum();
      if (written != 0) {
        LUMX_LOGE("%s: %s writePacketToLum returned status %d", out->name_.c_str(), "ioProcess", written);
      }
      out->writers_.fetch_sub(1);
    }
  }

  deliverySeq_.store(seq + 2, std::memory_order_release);
}

void LumxBuffer::ioProcess() {
  if (!isRead_) return;
  SetThreadRealtimePriority();
  rxReset();
  RxState st;
  if (!enabled_.load()) {
    LUMX_LOGI("%s %s end", name_.c_str(), "ioProcess");
    return;
  }
  while (enabled_.load(std::memory_order_relaxed)) {
    rxStartPacket(st);
    bool complete = false;
    while (!complete) {
      const int fd = handle_.load(std::memory_order_relaxed);
      if (fd < 0) goto end;

      // poll() rather than select(): no FD_SETSIZE limit on descriptor
      // numbers; the wait and its outcomes are the same.
      pollfd fds[2] = {{fd, POLLIN, 0}, {wakeFd_.get(), POLLIN, 0}};
      const nfds_t count = fds[1].fd >= 0 ? 2 : 1;
      const int ready = poll(fds, count, kRxWaitMs);
      // A descriptor that is not open fails the wait, as select() would.
      if (ready < 0 || (fds[0].revents & POLLNVAL) != 0) {
        LUMX_LOGE("%s select failed\n", name_.c_str());
        goto end;
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
          if (handle_.load() < 0 || !enabled_.load()) goto end;
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
              goto end;
            }
            LUMX_LOGI("%s Re-init success", name_.c_str());
            st.readErrors = 0;
          }
        } else {
          complete = rxAccept(st, static_cast<size_t>(got));
        }
      }
      // Otherwise only the wake-up descriptor fired: a disable is under way.
      if (!complete && !enabled_.load(std::memory_order_relaxed)) goto end;
    }
    if (!rxComplete(st)) goto end;
  }
end:
  LUMX_LOGI("%s %s end", name_.c_str(), "ioProcess");
}

// ---- Write path ----

int LumxBuffer::writePacketToLum() {
  if (!enabled_.load()) return -1;
  const int fd = handle_.load();
  if (fd < 0) return -2;
  if (isRead_) return -3;
  const uint8_t* block = ioBuffer_;
  if (block == nullptr) return -4;
  const uint32_t payloadSize = lumx::GetLe32(block + kPktPayloadSizeOffset);
  if (payloadSize > kLumMaxPayloadSize) return -5;
  const ssize_t written = write(fd, block, payloadSize + kLumPacketHeaderSize);
  if (written < 0) return static_cast<int>(written);
  return 0;
}
