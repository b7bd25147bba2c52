// Device watch (inotify callback on the event thread) and the wake lock.
#include <hardware_legacy/power.h>
#include <limits.h>
#include <sys/inotify.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "common/clock.h"
#include "common/dev_root.h"
#include "common/lumx_log.h"
#include "daemon/lumxd.h"
#include "service/lumx_service.h"

namespace {

// The largest event is a name of NAME_MAX (255) characters plus its end; a
// read sized for exactly one such event fails with EINVAL on it for ever.
// Room for sixteen of them, so even the longest names come several to a read.
constexpr size_t kLargestInotifyEvent = sizeof(inotify_event) + NAME_MAX + 1;
constexpr size_t kInotifyReadSize = 16 * kLargestInotifyEvent;
constexpr const char kControlNodeName[] = "zch-lumx_control";

bool IsControlNode(const inotify_event* event) {
  // The name field's length bounds the comparison (it includes the padding).
  return event->len > 0 && strncmp(event->name, kControlNodeName, event->len) == 0;
}

}  // namespace

void Lumxd::_inotify_read_event_cb(int, short, void* arg) {
  Lumxd* self = static_cast<Lumxd*>(arg);
  self->readInotifyEvents(self->inotifyFd_.get());
}

void Lumxd::readInotifyEvents(int fd) {
  alignas(inotify_event) char buffer[kInotifyReadSize];
  memset(buffer, 0, sizeof(buffer));
  const ssize_t got = read(fd, buffer, sizeof(buffer));
  if (got < 1) {
    LUMX_LOGE_LIMITED(inotifyReadLog_, "Failed to read from inotify", "Failed to read from inotify %d",
                      static_cast<int>(got));
    // The zeroed buffer matches nothing but is still handed on.
    handleInotifyEvent(reinterpret_cast<inotify_event*>(buffer));
    return;
  }
  // A read holds every event queued since the last one, up to the buffer's
  // size: a DSP restart's deletions and creations often come together, and
  // dropping all but the first would leave the daemon without buffers. So
  // each is handled, in order, exactly as a lone one would be. The kernel
  // returns whole events only.
  const size_t total = static_cast<size_t>(got);
  size_t offset = 0;
  while (total - offset >= sizeof(inotify_event)) {
    inotify_event* event = reinterpret_cast<inotify_event*>(buffer + offset);
    const size_t size = sizeof(inotify_event) + event->len;
    if (size > total - offset) break;
    handleInotifyEvent(event);
    offset += size;
  }
}

void Lumxd::handleInotifyEvent(inotify_event* event) {
  watchStats_.events.Add();
  if ((event->mask & IN_CREATE) && IsControlNode(event)) {
    LUMX_LOGI("%s online\n", LumxDevPath(kControlNodeName).c_str());
    reopenLumxControl();
  } else if ((event->mask & IN_DELETE) && IsControlNode(event)) {
    LUMX_LOGI("%s offline\n", LumxDevPath(kControlNodeName).c_str());
    closeLumxControl();
  }

  // The event thread only starts once the service exists; should it ever be
  // gone (registration failed and dropped it), the event is simply dropped.
  LumxService* service = __atomic_load_n(&gService, __ATOMIC_ACQUIRE);
  if (service != nullptr) service->HandleInotifyEvent(event);
}

void Lumxd::resetLogLimits() {
  inotifyReadLog_.Reset();
  mismatchLog_.Reset();
  wrongSizeLog_.Reset();
}

void Lumxd::UpdateWakeLock(bool needed) {
  lumx::MutexLock lock(&wakeLockMutex_);
  if (needed == wakeLockHeld_) return;
  if (needed) {
    const int status = acquire_wake_lock(PARTIAL_WAKE_LOCK, "lumx");
    if (status != 0) {
      LUMX_LOGE("Acquire wakelocked failed, st = %d", status);
      return;
    }
    wakeLockHeld_ = true;
    wakeLockStats_.acquisitions.Add();
    wakeLockSinceNs_.store(lumx::MonotonicNowNs(), std::memory_order_relaxed);
  } else {
    const int status = release_wake_lock("lumx");
    if (status != 0) {
      LUMX_LOGE("Release wakelocked failed, st = %d", status);
      return;
    }
    wakeLockHeld_ = false;
    const int64_t since = wakeLockSinceNs_.exchange(0, std::memory_order_relaxed);
    if (since != 0) wakeLockStats_.heldNs.Add(static_cast<uint64_t>(lumx::MonotonicNowNs() - since));
  }
}

void Lumxd::releaseStaleWakeLock() {
  lumx::MutexLock lock(&wakeLockMutex_);
  if (wakeLockHeld_) return;
  // Releasing a lock nobody holds fails on a device; that is the usual case
  // and says nothing worth logging.
  if (release_wake_lock("lumx") == 0) LUMX_LOGI("Released wakelock %s at start", "lumx");
}

uint64_t Lumxd::wakeLockHeldNs() const {
  const int64_t since = wakeLockSinceNs_.load(std::memory_order_relaxed);
  const uint64_t current = since != 0 ? static_cast<uint64_t>(lumx::MonotonicNowNs() - since) : 0;
  return wakeLockStats_.heldNs.Get() + current;
}

void Lumxd::resetStats() {
  controlStats_.commands.Reset();
  controlStats_.timeouts.Reset();
  controlStats_.unmatchedReplies.Reset();
  controlStats_.reopens.Reset();
  controlStats_.lastError.Reset();
  watchStats_.events.Reset();
  wakeLockStats_.acquisitions.Reset();
  wakeLockStats_.heldNs.Reset();
  // A holding under way restarts its clock; a release racing with this finds
  // either time and adds at most the part since the reset.
  int64_t since = wakeLockSinceNs_.load(std::memory_order_relaxed);
  if (since != 0) wakeLockSinceNs_.compare_exchange_strong(since, lumx::MonotonicNowNs(), std::memory_order_relaxed);
}
