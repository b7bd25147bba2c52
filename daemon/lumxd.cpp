// Lumxd: singleton, binder thread and event thread.
#include "daemon/lumxd.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <event2/event.h>
#include <signal.h>
#include <sys/inotify.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "common/dev_root.h"
#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "service/lumx_service.h"

lumx::Mutex commandMutex;
uint32_t nextCommandId = 0;

Lumxd& Lumxd::Instance() {
  // Constructed on first use under the language's thread-safe static
  // initialisation; its destructor runs at exit.
  static Lumxd instance;
  return instance;
}

namespace {

int64_t MonotonicNowNs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace

Lumxd::Lumxd() : startNs_(MonotonicNowNs()) {
  printf("Lumxd start\n");
  fflush(stdout);
  // The control device is opened only when the driver is up ("lum" first);
  // otherwise the device watch opens it when its node appears.
  if (access(LumxDevPath("lum").c_str(), F_OK) == 0 &&
      access(LumxDevPath("zch-lumx_control").c_str(), F_OK) == 0) {
    // No other thread exists yet; the lock only keeps the analysis honest.
    lumx::MutexLock lock(&commandMutex);
    openLumxControl();
  }
}

Lumxd::~Lumxd() {
  printf("Lumxd stop\n");
  fflush(stdout);
  closeLumxControl();
}

void Lumxd::reopenLumxControl() {
  lumx::MutexLock lock(&commandMutex);
  controlStats_.reopens.Add();
  openLumxControl();
}

void Lumxd::closeLumxControl() {
  lumx::MutexLock lock(&commandMutex);
  setControlFd(-1);
}

void Lumxd::BinderThread(int) {
  LUMX_LOGI("Start %s\n", "BinderThread");
  std::shared_ptr<LumxService> service = ::ndk::SharedRefBase::make<LumxService>();
  binder_exception_t status = AServiceManager_addService(service->asBinder().get(), LumxDescriptor());
  if (status != EX_NONE) {
    LUMX_LOGE("Failed to find lumx service %s, status %d", LumxDescriptor(), status);
    return;
  }
  ABinderProcess_setThreadPoolMaxThreadCount(1);
  ABinderProcess_startThreadPool();
  ABinderProcess_joinThreadPool();
  LUMX_LOGI("Stop %s\n", "BinderThread");
  service.reset();
}

void Lumxd::EventThread(int) {
  LUMX_LOGI("Start %s\n", "EventThread");
  // main blocks these for every other thread; here they are caught.
  const sigset_t loopSignals = LoopSignals();
  pthread_sigmask(SIG_UNBLOCK, &loopSignals, nullptr);
  eventBase_ = event_base_new();
  // A one-shot with a zero timeout: the real events are installed on the
  // loop's first pass, from inside the loop.
  setupEvent_ = event_new(eventBase_, -1, 0, _setup_events, this);
  struct timeval zero = {0, 0};
  event_add(setupEvent_, &zero);
  event_base_dispatch(eventBase_);
  event_del(setupEvent_);
  LUMX_LOGI("Stop %s\n", "EventThread");
}

void Lumxd::_setup_events(int, short, void* arg) {
  Lumxd* self = static_cast<Lumxd*>(arg);
  // SIGTERM keeps its default action: only these two end the loop.
  self->sigintEvent_ = event_new(self->eventBase_, SIGINT, EV_SIGNAL | EV_PERSIST, _signal_handler, self);
  event_add(self->sigintEvent_, nullptr);
  self->sighupEvent_ = event_new(self->eventBase_, SIGHUP, EV_SIGNAL | EV_PERSIST, _signal_handler, self);
  event_add(self->sighupEvent_, nullptr);

  self->inotifyFd_.reset(inotify_init1(IN_NONBLOCK));
  inotify_add_watch(self->inotifyFd_.get(), LumxDevRoot().c_str(), IN_CREATE | IN_DELETE);
  self->inotifyEvent_ =
      event_new(self->eventBase_, self->inotifyFd_.get(), EV_READ | EV_PERSIST, _inotify_read_event_cb, self);
  event_add(self->inotifyEvent_, nullptr);
  self->eventsInstalled_.store(true);
}

void Lumxd::_signal_handler(int, short, void* arg) {
  Lumxd* self = static_cast<Lumxd*>(arg);
  LUMX_LOGI("Caught signal. Exiting\n");
  // Only the event loop ends: the process keeps serving binder calls.
  event_base_loopexit(self->eventBase_, nullptr);
}
