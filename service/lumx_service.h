// LumxService: the one object that implements ILumx.
//
// It owns the processors (processors_, by raw owning pointer) and the buffers
// (tapOutBuffers_, injectBuffers_, by value), all guarded by mutex_, the
// single, non-recursive lock of the service. Lock order: mutex_, then a
// LumxBuffer's mutex_, then commandMutex.
//
// Threads: interface operations arrive on binder pool threads; the event
// thread calls HandleInotifyEvent(); bufferInitThread_ rescans the devices;
// buffer I/O threads read the processors wired to their buffers.
//
// Some operations read the registries without mutex_ by design (listings,
// parameter and relay calls, GetLumxProcessor); those are marked
// NO_THREAD_SAFETY_ANALYSIS with the reason next to them.
#pragma once

#include <sys/inotify.h>

#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <aidl/lumx/BnLumx.h>

#include "buffer/lumx_buffer.h"
#include "common/lumx_types.h"
#include "common/stats.h"
#include "common/thread_annotations.h"
#include "service/lumx_tap_info.h"

class LumxProcessor;

class LumxService : public ::aidl::lumx::BnLumx {
 public:
  // Publishes gService, then scans for the data devices (at least 500 ms).
  LumxService();
  ~LumxService() override;

  // Polls gService up to five times, 100 ms apart. Always returns -1.
  static int32_t WaitForServiceReady();

  // The processor with this id, or null. Takes no lock (see the file note).
  LumxProcessor* GetLumxProcessor(uint32_t id);

  // ---- ILumx (service/*.cpp, one file per area) ----
  ::ndk::ScopedAStatus Ping() override;
  // graph_ops.cpp
  ::ndk::ScopedAStatus ShowGraph(CommandResult* result) override;
  // processor_ops.cpp
  ::ndk::ScopedAStatus ListProcessors(CommandResult* result) override;
  ::ndk::ScopedAStatus ListSupportedProcessors(CommandResult* result) override;
  ::ndk::ScopedAStatus NewProcessor(int32_t id, CommandResult* result) override;
  ::ndk::ScopedAStatus NewProcessorWithType(int32_t id, int32_t type, CommandResult* result) override;
  ::ndk::ScopedAStatus DeleteProcessor(int32_t id, CommandResult* result) override;
  // use_cases.cpp
  ::ndk::ScopedAStatus ListSupportedUseCases(CommandResult* result) override;
  ::ndk::ScopedAStatus Enable(const std::string& name, bool enable, CommandResult* result) override;
  ::ndk::ScopedAStatus IsEnabled(const std::string& name, CommandResult* result) override;
  // processor_ops.cpp
  ::ndk::ScopedAStatus ProcessorInfo(int32_t id, CommandResult* result) override;
  ::ndk::ScopedAStatus ProcessorEnable(int32_t id, bool enable, CommandResult* result) override;
  ::ndk::ScopedAStatus ProcessorIsEnabled(int32_t id, CommandResult* result) override;
  // tap_ops.cpp
  ::ndk::ScopedAStatus TapList(int32_t core, CommandResult* result) override;
  ::ndk::ScopedAStatus TapInfo(int32_t core, int32_t tap, int32_t index, CommandResult* result) override;
  ::ndk::ScopedAStatus TapEnable(int32_t core, int32_t tap, int32_t index, bool enable,
                                 CommandResult* result) override;
  ::ndk::ScopedAStatus TapSetBlockLength(int32_t core, int32_t tap, int32_t index, int32_t blockLength,
                                         CommandResult* result) override;
  // buffer_ops.cpp
  ::ndk::ScopedAStatus ListTapOutBuffers(CommandResult* result) override;
  ::ndk::ScopedAStatus ListInjectBuffers(CommandResult* result) override;
  // graph_ops.cpp
  ::ndk::ScopedAStatus Connect(int32_t processor, int32_t tapOutBuffer, int32_t injectBuffer,
                               CommandResult* result) override;
  // tap_ops.cpp
  ::ndk::ScopedAStatus ConnectTap(int32_t core, int32_t tap, int32_t index, int32_t tapOutBuffer,
                                  int32_t injectBuffer, CommandResult* result) override;
  // buffer_ops.cpp
  ::ndk::ScopedAStatus StartIo(int32_t id, CommandResult* result) override;
  ::ndk::ScopedAStatus StopIo(int32_t id, CommandResult* result) override;
  ::ndk::ScopedAStatus Debug(const std::vector<std::string>& args, CommandResult* result) override;
  // use_cases.cpp
  ::ndk::ScopedAStatus EnableUseCase(UseCase useCase, bool enable, CommandResult* result) override;
  ::ndk::ScopedAStatus IsUseCaseEnabled(UseCase useCase, CommandResult* result) override;
  // param_ops.cpp
  ::ndk::ScopedAStatus SetParameter(int32_t processor, ParameterId id, int32_t element,
                                    const ParamValue& value, CommandResult* result) override;
  ::ndk::ScopedAStatus GetParameter(int32_t processor, ParameterId id, int32_t element, ParamValue* value,
                                    CommandResult* result) override;
  ::ndk::ScopedAStatus SetParameterBulk(int32_t processor, const std::vector<ParamIdElementPair>& params,
                                        const std::vector<ParamValue>& values, CommandResult* result) override;
  ::ndk::ScopedAStatus GetParameterBulk(int32_t processor, const std::vector<ParamIdElementPair>& params,
                                        CommandResult* result, std::vector<ParamValue>* values) override;
  ::ndk::ScopedAStatus ListParameters(CommandResult* result) override;
  // processor_ops.cpp (relay)
  ::ndk::ScopedAStatus SendAudio(int32_t processor, const AudioPacket& packet, CommandResult* result) override;
  ::ndk::ScopedAStatus RegisterReceiveAudioCallback(int32_t processor,
                                                    const std::shared_ptr<IReceiveAudioCallback>& cb,
                                                    CommandResult* result) override;

  // processor_ops.cpp: a processor looked up without mutex_ (parameter and
  // streaming calls, the telephony script). It stays alive while the
  // reference exists even if DeleteProcessor or a replacement removes it
  // meanwhile; the last reference then deletes it. Take none while holding
  // mutex_.
  class ProcessorRef {
   public:
    ProcessorRef(LumxService* service, uint32_t id);
    ~ProcessorRef();
    ProcessorRef(const ProcessorRef&) = delete;
    ProcessorRef& operator=(const ProcessorRef&) = delete;
    LumxProcessor* get() const { return processor_; }
    LumxProcessor* operator->() const { return processor_; }
    explicit operator bool() const { return processor_ != nullptr; }

   private:
    LumxProcessor* processor_ = nullptr;
  };

  // ---- Device watch and wake lock (lumx_service.cpp) ----
  // Event thread: reacts to a creation or deletion in the device directory.
  void HandleInotifyEvent(inotify_event* event);
  // Computes the wake-lock need, appends the report line, applies it.
  // Callers hold mutex_ (the registries are walked).
  void updateWakeLock(CommandResult* result) REQUIRES(mutex_);
  // Rescan threads started by the device watch, for the service dump.
  uint64_t rescanCount() const { return rescans_.Get(); }

  // ---- Buffers (buffer_ops.cpp) ----
  // Rebuilds both buffer maps from the device directory. 0, or -1 when no
  // tap-out device is found. Caller holds mutex_ (or is "buffer_init").
  int initLumBuffers() REQUIRES(mutex_);
  // Up to five scans 500 ms apart, each under mutex_; logs the counts.
  void initLumBuffersWithRetry() EXCLUDES(mutex_);
  // Finds and pins the buffers under mutex_, enables them without it (an
  // enable may retry its open for seconds), then updates the wake lock
  // under mutex_.
  void handleEnableBuffers(bool enable, int id, CommandResult* result) EXCLUDES(mutex_);
  // Both take mutex_ around the registry walk.
  void captureStart(const std::string& prefix, CommandResult* result) EXCLUDES(mutex_);
  void captureStop(CommandResult* result) EXCLUDES(mutex_);

  // ---- Taps (tap_ops.cpp) ----
  // Walks the DSP's paged tap list of `core`, appending to `out`. 0 or -1.
  // Takes mutex_; the caller must not hold it.
  int getLumxTapPoints(int core, std::vector<LumxTapDetailedInfo>& out);
  // Appends one tap's row to `out`, after the column header if `out` is empty.
  // Names the bound buffers from the registries: hold mutex_ around it.
  void sprintTapInfo(const LumxTapDetailedInfo& info, std::string& out);

  // ---- Connections (graph_ops.cpp) ----
  std::string getTapNameConnectedToBuffer(const LumxBuffer* buffer,
                                          const std::vector<LumxTapDetailedInfo>& taps);

  // ---- Use cases (use_cases.cpp) ----
  static UseCase stringToUseCase(const std::string& name);

  // ---- Dump (dump_ops.cpp) ----
  // The state and counters, as text or (--json) one JSON object; --reset
  // clears the counters after reading them. Never takes mutex_ (a DSP
  // command holds it for its reply budget) and never waits on a device; its
  // writes to `fd` are bounded.
  binder_status_t dump(int fd, const char** args, uint32_t numArgs) override EXCLUDES(mutex_);

  // A DSP tap as a bind command names it: core, code, index.
  struct TapBinding {
    uint8_t core;
    uint32_t code;
    uint8_t index;
    bool operator==(const TapBinding& o) const { return core == o.core && code == o.code && index == o.index; }
  };

  // ---- For tests ----
  size_t tapOutBufferCount() EXCLUDES(mutex_);
  size_t injectBufferCount() EXCLUDES(mutex_);
  LumxBuffer* findTapOutBuffer(int id) EXCLUDES(mutex_);
  LumxBuffer* findInjectBuffer(int id) EXCLUDES(mutex_);

 private:
  // ---- Private helpers: each area adds its own below its heading. ----
  // [lumx_service.cpp]
  // Tests reach the registries directly to set up and inspect state.
  friend struct LumxServiceTestAccess;
  // Empties both buffer maps, stopping every stream; when a tap-out buffer
  // was streaming, re-evaluates the wake lock, which would otherwise stay
  // held until a later StartIo or StopIo.
  void dropBuffersLocked() REQUIRES(mutex_);
  // Takes every buffer out of the maps (under registryMutex_ for the swap
  // only); the caller destroys them, still under mutex_.
  void takeBuffersLocked(std::map<int32_t, LumxBuffer>* tapOuts, std::map<int32_t, LumxBuffer>* injects)
      REQUIRES(mutex_) EXCLUDES(registryMutex_);
  // [buffer_ops.cpp]
  // [processor_ops.cpp]
  // Removes the entry (under gProcessorPinMutex too), unwires the processor
  // from every buffer that refers to it and deletes it, or leaves the delete
  // to the last ProcessorRef holding it.
  void retireProcessorLocked(std::map<uint32_t, LumxProcessor*>::iterator it) REQUIRES(mutex_);
  // [param_ops.cpp]
  // [tap_ops.cpp]
  // After a successful ConnectTap: which tap now feeds which buffers.
  void rememberTapBinding(const TapBinding& tap, uint8_t tapOutBuffer, uint8_t injectBuffer)
      REQUIRES(mutex_) EXCLUDES(registryMutex_);
  // [dump_ops.cpp]
  struct DumpPins;
  // Pins every buffer (AcquireUse) and processor (Pin) for the dump, under
  // registryMutex_ and gProcessorPinMutex only.
  void pinForDump(DumpPins* pins) EXCLUDES(mutex_, registryMutex_);
  void unpinAfterDump(const DumpPins& pins);
  // [graph_ops.cpp]
  // [use_cases.cpp]

  lumx::Mutex mutex_;
  // Held, after mutex_, by every change of the buffer maps' membership and of
  // the tap bindings, and by the dump, which reads them without mutex_: a
  // DSP command holds mutex_ for its whole reply budget, and the dump must
  // answer meanwhile. A leaf: nothing is destroyed or waited for under it.
  lumx::Mutex registryMutex_ ACQUIRED_AFTER(mutex_);
  std::map<uint32_t, LumxProcessor*> processors_ GUARDED_BY(mutex_);
  std::map<int32_t, LumxBuffer> tapOutBuffers_ GUARDED_BY(mutex_);
  std::map<int32_t, LumxBuffer> injectBuffers_ GUARDED_BY(mutex_);
  std::thread bufferInitThread_ GUARDED_BY(mutex_);
  // Set by the destructor: a node created while it joins the rescan starts
  // no new one (it would outlive the service).
  bool stopping_ GUARDED_BY(mutex_) = false;
  lumx::StatCounter rescans_;
  // The tap the last successful ConnectTap bound to each buffer id, per
  // direction. The binding lives on the DSP, so it outlives the buffers
  // (a rescan finds them bound as before); only a later bind changes it.
  std::map<int32_t, TapBinding> tapOutTaps_ GUARDED_BY(registryMutex_);
  std::map<int32_t, TapBinding> injectTaps_ GUARDED_BY(registryMutex_);
};

// The one LumxService, null while none exists. Written only by the service's
// constructor and destructor.
extern LumxService* gService;
