// lumxd: the audio daemon beside the DSP.
//
// main only starts and joins the two long-lived threads; everything else
// lives in Lumxd (device state) and LumxService (the binder service).
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>

#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "daemon/lumxd.h"
#include "service/lumx_service.h"

namespace {

// Without exceptions a failed thread creation can only end the process; say
// why before aborting.
[[noreturn]] void ThreadCreationFailed() {
  fputs("thread constructor failed\n", stderr);
  abort();
}

template <typename Fn>
std::thread StartThread(Fn fn) {
  std::terminate_handler previous = std::set_terminate(ThreadCreationFailed);
  std::thread thread(fn);
  std::set_terminate(previous);
  return thread;
}

}  // namespace

int main() {
  // A data device whose reader has gone must fail the write with EPIPE (the
  // write path reports it per packet), not end the daemon.
  signal(SIGPIPE, SIG_IGN);
  // SIGINT and SIGHUP belong to the event thread, which unblocks them. Every
  // other thread (binder pool, buffer I/O, rescan) inherits them blocked, so a
  // signal never interrupts a real-time thread's wait for its device.
  const sigset_t loopSignals = LoopSignals();
  pthread_sigmask(SIG_BLOCK, &loopSignals, nullptr);
  Lumxd::Instance();
  LUMX_LOGI("enable_lumx_processing flag is false!");
  LUMX_LOGI("Start %s\n", "Main");
  // Nothing here holds the wake lock yet; an earlier instance that died
  // streaming may have left it held, draining the battery for good.
  Lumxd::Instance().releaseStaleWakeLock();

  std::thread binderThread = StartThread([] { Lumxd::Instance().BinderThread(0); });
  (void)LumxService::WaitForServiceReady();
  std::thread eventThread = StartThread([] { Lumxd::Instance().EventThread(0); });

  if (binderThread.joinable()) binderThread.join();
  if (eventThread.joinable()) eventThread.join();

  LUMX_LOGI("Stop %s\n", "Main");
  return 0;
}
