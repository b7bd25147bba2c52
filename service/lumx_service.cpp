// LumxService: construction and destruction, Ping, the processor lookup,
// the device-watch reaction and the wake-lock policy.
#include "service/lumx_service.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "daemon/lumxd.h"
#include "processors/lumx_processor.h"

// Read by the event thread and WaitForServiceReady while the binder thread
// constructs the service; accessed with atomic builtins for that reason.
LumxService* gService = nullptr;

namespace {

// Prefix of every node of the DSP channel driver, the control device included.
constexpr const char kDriverNodePrefix[] = "zch-lumx_";
constexpr size_t kDriverNodePrefixLen = sizeof(kDriverNodePrefix) - 1;
// While this processor is enabled it counts as active, whatever streams.
constexpr uint32_t kHotwordAecProcessorId = 0x68776165;  // "hwae"

bool IsDriverNode(const inotify_event* event) {
  return event->len > 0 && strncmp(event->name, kDriverNodePrefix, kDriverNodePrefixLen) == 0;
}

}  // namespace

LumxService::LumxService() {
  __atomic_store_n(&gService, this, __ATOMIC_RELEASE);
  initLumBuffersWithRetry();
}

LumxService::~LumxService() {
  std::map<uint32_t, LumxProcessor*> processors;
  std::thread rescan;
  {
    lumx::MutexLock lock(&mutex_);
    {
      // A parameter or relay call may still hold one of them (ProcessorRef).
      lumx::MutexLock pinLock(&gProcessorPinMutex);
      processors.swap(processors_);
    }
    // The rescan takes mutex_ for each try, so it is joined outside it;
    // meanwhile the device watch must not start another.
    stopping_ = true;
    rescan = std::move(bufferInitThread_);
  }
  if (rescan.joinable()) rescan.join();
  {
    lumx::MutexLock lock(&mutex_);
    // Destroying a buffer stops its I/O thread and unwires its processors.
    {
      std::map<int32_t, LumxBuffer> tapOuts;
      std::map<int32_t, LumxBuffer> injects;
      takeBuffersLocked(&tapOuts, &injects);
    }
    LumxService* self = this;
    __atomic_compare_exchange_n(&gService, &self, nullptr, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
  }
  // Processors left registered are deleted last, once no I/O thread can
  // deliver to them any more; one still pinned by a call in flight is freed
  // by that call's ProcessorRef instead.
  for (auto& entry : processors) {
    if (entry.second == nullptr) continue;
    bool deleteNow;
    {
      lumx::MutexLock pinLock(&gProcessorPinMutex);
      deleteNow = entry.second->Retire();
    }
    if (deleteNow) delete entry.second;
  }
}

int32_t LumxService::WaitForServiceReady() {
  constexpr int kPolls = 5;
  for (int poll = 1; poll <= kPolls; ++poll) {
    if (__atomic_load_n(&gService, __ATOMIC_ACQUIRE) != nullptr) return -1;
    if (poll < kPolls) usleep(100000);
  }
  LUMX_LOGE("LumxService init failed");
  // The caller ignores the result: -1 whatever happened.
  return -1;
}

::ndk::ScopedAStatus LumxService::Ping() { return ::ndk::ScopedAStatus::ok(); }

// Without mutex_ by design: the use-case scripts call it holding no service
// lock. Every writer of processors_ also holds gProcessorPinMutex, which makes
// the lookup itself consistent.
LumxProcessor* LumxService::GetLumxProcessor(uint32_t id) NO_THREAD_SAFETY_ANALYSIS {
  lumx::MutexLock pinLock(&gProcessorPinMutex);
  auto it = processors_.find(id);
  return it == processors_.end() ? nullptr : it->second;
}

void LumxService::HandleInotifyEvent(inotify_event* event) {
  if ((event->mask & IN_CREATE) && IsDriverNode(event)) {
    LUMX_LOGI("%s online\n", event->name);
    lumx::MutexLock lock(&mutex_);
    // Only the first creation since start-up (or since the last deletion)
    // rescans: a rescan thread that is held, finished or not, blocks others.
    if (!bufferInitThread_.joinable() && !stopping_) {
      // This runs on the event thread, the one thread that takes SIGINT and
      // SIGHUP; the rescan must not inherit them.
      ScopedLoopSignalsBlocked blocked;
      bufferInitThread_ = std::thread([this] { initLumBuffersWithRetry(); });
      rescans_.Add();
    }
  } else if ((event->mask & IN_DELETE) && IsDriverNode(event)) {
    LUMX_LOGI("%s offline\n", event->name);
    // The rescan may be retrying, and each try takes mutex_: take the handle
    // out under the lock and join it outside.
    std::thread rescan;
    {
      lumx::MutexLock lock(&mutex_);
      rescan = std::move(bufferInitThread_);
    }
    if (rescan.joinable()) rescan.join();
    // Any node of the driver going away drops every buffer.
    lumx::MutexLock lock(&mutex_);
    dropBuffersLocked();
  }

  lumx::MutexLock lock(&mutex_);
  for (auto& entry : processors_) {
    if (entry.second != nullptr) entry.second->HandleInotifyEvent(event);
  }
}

void LumxService::dropBuffersLocked() {
  bool streamed = false;
  for (const auto& entry : tapOutBuffers_) streamed |= entry.second.isEnabled();
  {
    std::map<int32_t, LumxBuffer> tapOuts;
    std::map<int32_t, LumxBuffer> injects;
    takeBuffersLocked(&tapOuts, &injects);
  }
  if (streamed) {
    CommandResult unused;
    updateWakeLock(&unused);
  }
}

void LumxService::takeBuffersLocked(std::map<int32_t, LumxBuffer>* tapOuts,
                                    std::map<int32_t, LumxBuffer>* injects) {
  lumx::MutexLock lock(&registryMutex_);
  tapOuts->swap(tapOutBuffers_);
  injects->swap(injectBuffers_);
}

// Callers (ProcessorEnable, and StartIo/StopIo once their buffers are
// switched) hold mutex_, so the event thread cannot clear the registries
// under this walk.
void LumxService::updateWakeLock(CommandResult* result) {
  unsigned int enabled = 0;
  unsigned int active = 0;
  std::vector<LumxProcessor*> outputs;
  for (auto& entry : tapOutBuffers_) {
    LumxBuffer& buffer = entry.second;
    if (!buffer.isEnabled()) continue;
    ++enabled;
    outputs.clear();
    buffer.GetOutputs(outputs);
    for (LumxProcessor* p : outputs) {
      if (p != nullptr && p->IsEnabled()) ++active;
    }
  }

  auto hwae = processors_.find(kHotwordAecProcessorId);
  if (hwae != processors_.end() && hwae->second != nullptr && hwae->second->IsEnabled() && active < 2) {
    active = 1;
  }

  char line[64];
  snprintf(line, sizeof(line), "%u buffers enabled, %u processor%s active, wakelock needed: %u", enabled, active,
           active == 1 ? "" : "s", enabled != 0 ? 1u : 0u);
  result->strList.push_back(line);

  // Only reading from the DSP keeps the device awake.
  Lumxd::Instance().UpdateWakeLock(enabled != 0);
}

size_t LumxService::tapOutBufferCount() {
  lumx::MutexLock lock(&mutex_);
  return tapOutBuffers_.size();
}

size_t LumxService::injectBufferCount() {
  lumx::MutexLock lock(&mutex_);
  return injectBuffers_.size();
}

LumxBuffer* LumxService::findTapOutBuffer(int id) {
  lumx::MutexLock lock(&mutex_);
  auto it = tapOutBuffers_.find(id);
  return it == tapOutBuffers_.end() ? nullptr : &it->second;
}

LumxBuffer* LumxService::findInjectBuffer(int id) {
  lumx::MutexLock lock(&mutex_);
  auto it = injectBuffers_.find(id);
  return it == injectBuffers_.end() ? nullptr : &it->second;
}
