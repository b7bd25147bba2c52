// lumx-dspsim's engine: one thread that owns the device nodes, answers the
// control channel, paces every tap stream from absolute CLOCK_MONOTONIC
// deadlines (a timerfd armed with TFD_TIMER_ABSTIME, the pollable form of
// clock_nanosleep(TIMER_ABSTIME), so pacing never drifts), reads the inject
// nodes and injects the configured faults. It sleeps in poll() whenever
// nothing is due.
#pragma once

#include <time.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/thread_annotations.h"
#include "common/unique_fd.h"
#include "tools/lumx-dspsim/audio_layout.h"
#include "tools/lumx-dspsim/control_channel.h"
#include "tools/lumx-dspsim/data_nodes.h"
#include "tools/lumx-dspsim/dsp_model.h"
#include "tools/lumx-dspsim/options.h"
#include "tools/lumx-dspsim/stats.h"
#include "tools/lumx-dspsim/wav_io.h"

namespace lumx::dspsim {

int64_t MonotonicNowNs();

class Simulator {
 public:
  explicit Simulator(Options options);
  ~Simulator();
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  // Opens the sources, creates the device nodes and announces readiness.
  // On failure nothing is left behind and `error` says why.
  bool Start(std::string* error);
  // Serves until stopped (request, signal or --duration), then removes the
  // nodes and writes the final statistics. Returns the process exit code.
  int Run();

  // Callable from any thread.
  void RequestStop();
  void RequestStats();
  void RequestRestart();
  SimStats Snapshot() const;

  std::string NodePath(const std::string& name) const { return options_.devRoot + "/" + name; }
  const Options& options() const { return options_; }

 private:
  struct Stream {
    size_t tapIndex = 0;
    int tapOutId = -1;
    uint32_t packetNum = 0;  // number of the last packet made
    int64_t anchorNs = 0;    // deadlines are anchor + k blocks
    uint64_t k = 0;
    uint32_t anchorBlock = 0;
    int64_t deadline = 0;
    ToneGenerator tone;
    WavSource* source = nullptr;
    std::vector<int32_t> scratch;
    std::vector<uint8_t> tail;  // end of the last payload (stale-bytes fault)
    std::vector<uint8_t> held;  // packets held back by the burst fault
    uint32_t heldPackets = 0;
  };
  struct InjectState {
    bool hasLast = false;
    uint32_t lastPacketNum = 0;
    std::unique_ptr<WavRecorder> recorder;
    bool recordFailed = false;
    std::vector<int32_t> scratch;
  };
  struct PendingReply {
    int64_t due;
    std::vector<uint8_t> bytes;
  };
  class InjectSink;

  bool CreateNodes(std::string* error);
  // `paced`: leave --node-gap-ms between nodes (a restart; not at exit).
  void RemoveNodes(bool paced);
  void NodeGap(bool paced) const;
  void Announce();
  void Restart(int64_t now);
  void ReconcileStreams(int64_t now);
  int64_t Deadline(const Stream& s, const TapEntry& tap, uint64_t k) const;
  void ProduceDue(int64_t now);
  void ProducePacket(Stream& s, const TapEntry& tap, TapOutNode& node, int64_t now);
  void RenderPayload(Stream& s, const TapEntry& tap, uint8_t* payload);
  void FlushNode(TapOutNode& node, int64_t now, bool rush = false);
  bool DataFaultsApply(int tapOutId) const;
  bool InPause(int64_t now) const { return now >= pauseStart_ && now < pauseEnd_; }
  // Fault helpers: a full TAP_LIST page (--fault-endless-list), replies to
  // no request (--fault-unmatched-replies), one node removed and created
  // again at once (--fault-flap-every).
  void FillListPage(uint8_t* reply);
  void SendUnmatched(int64_t now);
  void FlapNode(int64_t now);
  bool InBurst(int64_t now) const { return now >= burstStart_ && now < burstEnd_; }
  bool InjectStalled(int id, int64_t now) const;
  // The stall, vanishing-writer and burst windows.
  void RunPeerFaultTimers(int64_t now);
  void HandleControl(int64_t now);
  void HandleRequest(const std::vector<uint8_t>& req, int64_t now);
  void SendDueReplies(int64_t now);
  void HandleInject(InjectNode& node);
  void OnInjectPacket(int id, const PacketHeader& h, const uint8_t* payload, int64_t now);
  void DrainOrphanReader(size_t i);
  void CheckOrphanWriters();
  void RunTimers(int64_t now);
  int64_t NextDeadline() const;
  void HandleSignals();
  void WriteStats(bool final);
  bool Chance(double p);

  Options options_;
  DspModel model_;
  ControlChannel control_;
  std::map<int, std::unique_ptr<TapOutNode>> tapOuts_;
  std::map<int, std::unique_ptr<InjectNode>> injects_;
  std::map<int, InjectState> injectState_;
  std::map<size_t, std::unique_ptr<WavSource>> sources_;  // by tap position
  std::map<size_t, Stream> streams_;                      // by tap position
  std::vector<PendingReply> replies_;
  std::vector<lumx::unique_fd> orphanWriters_;
  std::vector<lumx::unique_fd> orphanReaders_;
  std::vector<uint8_t> readBuf_;
  std::vector<uint8_t> dropBuf_;

  lumx::unique_fd timer_;
  lumx::unique_fd wake_;
  lumx::unique_fd signals_;
  int64_t armedFor_ = -1;

  bool started_ = false;
  bool nodesUp_ = false;
  int64_t startNs_ = 0;
  int64_t upAt_ = 0;           // nodes come back (restart in progress)
  int64_t nextRestartAt_ = 0;  // periodic restart, 0 = none
  int64_t stopAt_ = 0;         // --duration, 0 = none
  int64_t nextPauseAt_ = 0;
  int64_t pauseStart_ = 0;
  int64_t pauseEnd_ = 0;
  int64_t nextOrphanCheck_ = 0;
  int64_t nextUnmatchedAt_ = 0;
  int64_t nextFlapAt_ = 0;
  size_t lastRequestSize_ = kTapInfoSize;  // size of an unmatched reply
  int64_t nextStallAt_ = 0;
  int64_t stallStart_ = 0;
  int64_t stallEnd_ = 0;
  int64_t nextWriterGoneAt_ = 0;
  int64_t writerBackAt_ = 0;  // 0: no writer is away
  int64_t nextBurstAt_ = 0;
  int64_t burstStart_ = 0;
  int64_t burstEnd_ = 0;
  uint64_t rng_;
  bool stopping_ = false;

  // CPU clock of the thread inside Run(), for the statistics.
  std::atomic<bool> cpuClockValid_{false};
  clockid_t cpuClock_ = 0;
  int64_t CpuNs() const;

  std::atomic<bool> stopRequested_{false};
  std::atomic<bool> statsRequested_{false};
  std::atomic<bool> restartRequested_{false};

  mutable lumx::Mutex statsMu_;
  SimStats stats_ GUARDED_BY(statsMu_);
};

}  // namespace lumx::dspsim
