// Device watch (inotify callback on the event thread) and the wake lock.
#include <hardware_legacy/power.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "common/dev_root.h"
#include "common/lumx_log.h"
#include "daemon/lumxd.h"
#include "service/lumx_service.h"

namespace {

// Room for one event with a name of up to 255 characters.
constexpr size_t kInotifyReadSize = sizeof(inotify_event) + 255;
constexpr const char kControlNodeName[] = "zch-lumx_control";

bool IsControlNode(const inotify_event* event) {
  // The name field's length bounds the comparison (it includes the padding).
  return event->len > 0 && strncmp(event->name, kControlNodeName, event->len) == 0;
}

}  // namespace

void Lumxd::_inotify_read_event_cb(int, short, void* arg) {
  Lumxd* self = static_cast<Lumxd*>(arg);

  // One spare byte beyond the read size keeps the name terminated whatever
  // the kernel wrote.
  alignas(inotify_event) char buffer[kInotifyReadSize + 1];
  memset(buffer, 0, sizeof(buffer));
  const ssize_t got = read(self->inotifyFd_.get(), buffer, kInotifyReadSize);
  if (got < 1) {
    // The zeroed buffer matches nothing below but is still handed on.
    LUMX_LOGE("Failed to read from inotify %d", static_cast<int>(got));
  }

  // Only the first event of the read is handled.
  inotify_event* event = reinterpret_cast<inotify_event*>(buffer);
  if ((event->mask & IN_CREATE) && IsControlNode(event)) {
    LUMX_LOGI("%s online\n", LumxDevPath(kControlNodeName).c_str());
    self->reopenLumxControl();
  } else if ((event->mask & IN_DELETE) && IsControlNode(event)) {
    LUMX_LOGI("%s offline\n", LumxDevPath(kControlNodeName).c_str());
    self->closeLumxControl();
  }

  // The event thread only starts once the service exists; should it ever be
  // gone (registration failed and dropped it), the event is simply dropped.
  LumxService* service = __atomic_load_n(&gService, __ATOMIC_ACQUIRE);
  if (service != nullptr) service->HandleInotifyEvent(event);
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
  } else {
    const int status = release_wake_lock("lumx");
    if (status != 0) {
      LUMX_LOGE("Release wakelocked failed, st = %d", status);
      return;
    }
    wakeLockHeld_ = false;
  }
}
