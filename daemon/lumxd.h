// Lumxd: the process-wide device state of the daemon.
//
// Threads (see daemon/main.cpp):
//  - main: starts and joins the binder thread and the event thread.
//  - binder thread: BinderThread() creates and registers the service and
//    becomes a binder pool thread.
//  - event thread: EventThread() runs the libevent loop (SIGINT/SIGHUP and the
//    inotify watch of the device directory); all libevent fields and
//    inotifyFd_ are touched only there.
//  - any binder thread: SendLumxCommand() (one exchange at a time under
//    commandMutex), UpdateWakeLock() (callers hold the service mutex).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/rate_limit.h"
#include "common/stats.h"
#include "common/thread_annotations.h"
#include "common/unique_fd.h"
#include "daemon/lumx_control.h"

struct event_base;
struct event;
struct inotify_event;

// Guards Lumxd::controlFd_ and makes each request/reply exchange atomic.
// Lock order: the service's mutex_, then commandMutex.
extern lumx::Mutex commandMutex;
// Counts every command sent; its low byte stamps the header's id.
extern uint32_t nextCommandId GUARDED_BY(commandMutex);

class Lumxd {
 public:
  // The singleton, constructed on first call (thread-safe); destroyed at exit.
  static Lumxd& Instance();
  ~Lumxd();

  Lumxd(const Lumxd&) = delete;
  Lumxd& operator=(const Lumxd&) = delete;

  // Thread bodies started by main with the argument 0 (unused).
  void BinderThread(int);
  void EventThread(int);

  // libevent callbacks; `arg` is the singleton.
  static void _setup_events(int, short, void* arg);
  static void _signal_handler(int, short, void* arg);
  static void _inotify_read_event_cb(int, short, void* arg);

  // (Re)opens the control device, waiting up to 400 ms for its node.
  // Caller holds commandMutex (the constructor runs before other threads).
  void openLumxControl() REQUIRES(commandMutex);

  // Stamps, sends one command and waits for its reply (500 ms budget).
  // Returns 0, the DSP's non-zero status, -1 on send failure or time-out, or
  // minus the errno of a failed wait or read.
  int32_t SendLumxCommand(uint16_t opcode, CMD_HDR* cmd, size_t size) EXCLUDES(commandMutex);

  // Acquires or releases the "lumx" wake lock when `needed` differs from the
  // state held.
  void UpdateWakeLock(bool needed) EXCLUDES(wakeLockMutex_);
  // Start-up: releases a "lumx" lock that an earlier instance of the daemon
  // may have left held (the kernel keeps it by name after the holder dies).
  void releaseStaleWakeLock() EXCLUDES(wakeLockMutex_);

  // ---- Counters for the service dump (relaxed atomics, common/stats.h) ----
  struct ControlStats {
    lumx::StatCounter commands;          // SendLumxCommand calls
    lumx::StatCounter timeouts;          // exchanges that used up the budget
    lumx::StatCounter unmatchedReplies;  // reads that answered no request
    lumx::StatCounter reopens;           // re-opens of the control device
    lumx::StatLastError lastError;       // -errno (-ETIMEDOUT for a time-out)
  };
  struct WatchStats {
    lumx::StatCounter events;  // inotify events handled
  };
  struct WakeLockStats {
    lumx::StatCounter acquisitions;
    lumx::StatCounter heldNs;  // time held, up to the last release
  };
  const ControlStats& controlStats() const { return controlStats_; }
  const WatchStats& watchStats() const { return watchStats_; }
  const WakeLockStats& wakeLockStats() const { return wakeLockStats_; }
  // Total time the lock has been held, the current holding included.
  uint64_t wakeLockHeldNs() const;
  // The dump's view, read without commandMutex or the wake-lock lock (an
  // exchange holds the former for its whole reply budget): whether the
  // control device is open and whether the lock is held, each as last set.
  bool controlOpenNow() const { return controlOpen_.load(std::memory_order_relaxed); }
  bool wakeLockHeldNow() const { return wakeLockSinceNs_.load(std::memory_order_relaxed) != 0; }
  // Monotonic time at which the singleton was constructed.
  int64_t startNs() const { return startNs_; }
  // Clears the control, watch and wake-lock counters; a lock held now counts
  // its time from here on.
  void resetStats();

  // ---- Seams for the device watch and for tests ----
  int controlFd() EXCLUDES(commandMutex) {
    lumx::MutexLock lock(&commandMutex);
    return controlFd_.get();
  }
  // openLumxControl() with commandMutex taken.
  void reopenLumxControl() EXCLUDES(commandMutex);
  void closeLumxControl() EXCLUDES(commandMutex);
  bool wakeLockHeld() EXCLUDES(wakeLockMutex_) {
    lumx::MutexLock lock(&wakeLockMutex_);
    return wakeLockHeld_;
  }
  // True once the event loop has installed its signal and inotify events.
  bool eventsInstalled() const { return eventsInstalled_.load(); }
  // The inotify callback's work: one read of `fd` and every event in it,
  // in order. The event thread passes inotifyFd_.
  void readInotifyEvents(int fd);
  // Forgets which log lines were held back, so that a test sees the next
  // occurrence of each at once.
  void resetLogLimits();

 private:
  // Tests construct private instances to exercise the constructor.
  friend struct LumxdTestAccess;
  Lumxd();

  // One event of a read: the control node's own reaction, then the service's.
  void handleInotifyEvent(inotify_event* event);
  // Every change of controlFd_ goes through here, so controlOpen_ follows it.
  void setControlFd(int fd) REQUIRES(commandMutex) {
    controlFd_.reset(fd);
    controlOpen_.store(fd >= 0, std::memory_order_relaxed);
  }

  event_base* eventBase_ = nullptr;
  event* setupEvent_ = nullptr;
  lumx::unique_fd inotifyFd_;
  lumx::unique_fd controlFd_ GUARDED_BY(commandMutex);
  std::atomic<bool> controlOpen_{false};
  const int64_t startNs_;
  event* inotifyEvent_ = nullptr;
  // The service mutex serialises most callers, but StartIo/StopIo re-evaluate
  // the lock without it; this small lock keeps the flag and the power calls
  // consistent between two binder threads.
  lumx::Mutex wakeLockMutex_;
  bool wakeLockHeld_ GUARDED_BY(wakeLockMutex_) = false;
  // Signal events, kept alive with the loop's base (neither is ever freed).
  event* sigintEvent_ = nullptr;
  event* sighupEvent_ = nullptr;
  std::atomic<bool> eventsInstalled_{false};

  ControlStats controlStats_;
  WatchStats watchStats_;
  WakeLockStats wakeLockStats_;
  // Monotonic time of the last acquisition, 0 while the lock is not held.
  std::atomic<int64_t> wakeLockSinceNs_{0};

  // Lines that a misbehaving device or driver could repeat without end.
  lumx::LogRateLimiter inotifyReadLog_;
  lumx::LogRateLimiter mismatchLog_;
  lumx::LogRateLimiter wrongSizeLog_;
};
