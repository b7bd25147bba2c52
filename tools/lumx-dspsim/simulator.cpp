#include "tools/lumx-dspsim/simulator.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace lumx::dspsim {

namespace {

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kNsPerSec = 1'000'000'000;
constexpr int64_t kOrphanCheckNs = 250 * kNsPerMs;
constexpr size_t kStaleBytes = 256;
constexpr size_t kMisalignedBytes = 12;
constexpr uint32_t kOversizePayload = kMaxPayloadSize + 1;
constexpr double kToneAmplitude = 0.5;
constexpr size_t kMaxOrphans = 64;
constexpr size_t kMaxPendingReplies = 4096;
// An opcode no request carries: the unmatched replies' own.
constexpr uint16_t kUnmatchedOpcode = 0xFFFF;
// Unmatched replies go out in batches at most this often.
constexpr int64_t kUnmatchedTickNs = kNsPerMs;

uint64_t SplitMix(uint64_t* state) {
  uint64_t z = (*state += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

int64_t SecToNs(double s) { return static_cast<int64_t>(s * 1e9); }

void Log(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void Log(const char* fmt, ...) {
  char line[512];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(line, sizeof line, fmt, ap);
  va_end(ap);
  std::fprintf(stderr, "lumx-dspsim: %s\n", line);
}

// Which tap a --source key names: "2:imic.0" exactly, or "imic.0" on the
// first core that has it. Returns the tap's position or -1.
long FindTapByName(const std::vector<TapEntry>& taps, const std::string& key) {
  for (size_t i = 0; i < taps.size(); ++i) {
    if (TapLongName(taps[i]) == key) return static_cast<long>(i);
  }
  long best = -1;
  for (size_t i = 0; i < taps.size(); ++i) {
    if (TapName(taps[i]) != key) continue;
    if (best < 0 || taps[i].core < taps[static_cast<size_t>(best)].core)
      best = static_cast<long>(i);
  }
  return best;
}

}  // namespace

int64_t MonotonicNowNs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * kNsPerSec + ts.tv_nsec;
}

// Routes parser events of one inject node into the simulator.
class Simulator::InjectSink : public PacketSink {
 public:
  InjectSink(Simulator* sim, int id, int64_t now) : sim_(sim), id_(id), now_(now) {}
  void OnPacket(const PacketHeader& h, const uint8_t* payload) override {
    sim_->OnInjectPacket(id_, h, payload, now_);
  }
  void OnParseError(ParseError e, size_t bytes) override {
    lumx::MutexLock lock(&sim_->statsMu_);
    InjectStats& s = sim_->stats_.injects[id_];
    switch (e) {
      case ParseError::kSkippedBytes:
        ++s.resyncs;
        s.skippedBytes += bytes;
        break;
      case ParseError::kBadVersion:
        ++s.badVersion;
        break;
      case ParseError::kOversize:
        ++s.oversize;
        break;
    }
  }

 private:
  Simulator* sim_;
  int id_;
  int64_t now_;
};

Simulator::Simulator(Options options)
    : options_(std::move(options)), model_(options_.taps), rng_(options_.seed) {
  readBuf_.resize(kMaxPacketSize);
}

Simulator::~Simulator() {
  RemoveNodes(false);
  orphanWriters_.clear();
  orphanReaders_.clear();
}

bool Simulator::Chance(double p) {
  if (p <= 0) return false;
  if (p >= 1) return true;
  return static_cast<double>(SplitMix(&rng_) >> 11) * 0x1.0p-53 < p;
}

// ---- start, nodes, restart -------------------------------------------------

bool Simulator::Start(std::string* error) {
  if (started_) {
    *error = "already started";
    return false;
  }
  for (const auto& [key, path] : options_.sources) {
    long pos = FindTapByName(options_.taps, key);
    if (pos < 0) {
      *error = "--source: no tap '" + key + "' in the tap table";
      return false;
    }
    std::unique_ptr<WavSource> src = WavSource::Open(path, error);
    if (!src) return false;
    const TapEntry& tap = options_.taps[static_cast<size_t>(pos)];
    if (static_cast<uint32_t>(src->sampleRate()) != tap.sampleRate) {
      Log("warning: %s is %d Hz, tap %s runs at %u Hz; played without resampling", path.c_str(),
          src->sampleRate(), TapLongName(tap).c_str(), tap.sampleRate);
    }
    sources_[static_cast<size_t>(pos)] = std::move(src);
  }
  for (const auto& [id, path] : options_.records) {
    if (std::find(options_.injectIds.begin(), options_.injectIds.end(), id) ==
        options_.injectIds.end()) {
      Log("warning: --record %d: there is no inject node %d, nothing will be recorded", id, id);
    }
  }
  for (int id : options_.faults.tapOutFilter) {
    if (std::find(options_.tapOutIds.begin(), options_.tapOutIds.end(), id) ==
        options_.tapOutIds.end()) {
      Log("warning: --fault-tapout %d: there is no tap-out node %d", id, id);
    }
  }
  struct stat st;
  if (stat(options_.devRoot.c_str(), &st) != 0) {
    if (mkdir(options_.devRoot.c_str(), 0755) != 0) {
      *error = "cannot create " + options_.devRoot + ": " + std::strerror(errno);
      return false;
    }
  } else if (!S_ISDIR(st.st_mode)) {
    *error = options_.devRoot + " is not a directory";
    return false;
  }
  timer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  wake_.reset(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  if (!timer_.ok() || !wake_.ok()) {
    *error = std::string("timerfd/eventfd: ") + std::strerror(errno);
    return false;
  }
  if (options_.handleSignals) {
    sigset_t mask;
    sigemptyset(&mask);
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) sigaddset(&mask, sig);
    signals_.reset(signalfd(-1, &mask, SFD_NONBLOCK | SFD_CLOEXEC));
    if (!signals_.ok()) {
      *error = std::string("signalfd: ") + std::strerror(errno);
      return false;
    }
  }
  for (int id : options_.tapOutIds) {
    tapOuts_[id] = std::make_unique<TapOutNode>(id, NodePath(TapOutNodeName(id)));
    lumx::MutexLock lock(&statsMu_);
    stats_.tapOuts[id];
  }
  for (int id : options_.injectIds) {
    injects_[id] = std::make_unique<InjectNode>(id, NodePath(InjectNodeName(id)));
    lumx::MutexLock lock(&statsMu_);
    stats_.injects[id];
  }
  if (!CreateNodes(error)) return false;
  startNs_ = MonotonicNowNs();
  {
    lumx::MutexLock lock(&statsMu_);
    stats_.startNs = stats_.nowNs = stats_.windowStartNs = startNs_;
  }
  const FaultOptions& f = options_.faults;
  if (f.restartEverySec > 0) nextRestartAt_ = startNs_ + SecToNs(f.restartEverySec);
  if (f.pauseEverySec > 0) nextPauseAt_ = startNs_ + SecToNs(f.pauseEverySec);
  if (f.stallEverySec > 0) nextStallAt_ = startNs_ + SecToNs(f.stallEverySec);
  if (f.writerGoneEverySec > 0) nextWriterGoneAt_ = startNs_ + SecToNs(f.writerGoneEverySec);
  if (f.burstEverySec > 0) nextBurstAt_ = startNs_ + SecToNs(f.burstEverySec);
  if (f.stallEverySec == 0 && !f.stallInjects.empty()) {
    lumx::MutexLock lock(&statsMu_);
    stats_.faults.stalls += f.stallInjects.size();
  }
  if (options_.durationSec > 0) stopAt_ = startNs_ + SecToNs(options_.durationSec);
  if (f.unmatchedPerSec > 0) nextUnmatchedAt_ = startNs_;
  if (f.flapEverySec > 0) nextFlapAt_ = startNs_ + SecToNs(f.flapEverySec);
  nextOrphanCheck_ = startNs_ + kOrphanCheckNs;
  started_ = true;
  ReconcileStreams(startNs_);
  Announce();
  return true;
}

void Simulator::NodeGap(bool paced) const {
  if (!paced || options_.nodeGapMs <= 0) return;
  struct timespec ts = {options_.nodeGapMs / 1000, (options_.nodeGapMs % 1000) * 1000000L};
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

bool Simulator::CreateNodes(std::string* error) {
  // The marker first and the control node last: a client that sees the
  // control node appear finds everything else in place.
  std::string lum = NodePath("lum");
  struct stat st;
  if (lstat(lum.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
    unlink(lum.c_str());
  }
  lumx::unique_fd marker(open(lum.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0644));
  if (!marker.ok()) {
    *error = "cannot create " + lum + ": " + std::strerror(errno);
    return false;
  }
  marker.reset();
  bool ok = true;
  for (auto& [id, node] : tapOuts_) {
    NodeGap(ok);
    if (ok && !node->Create(error)) ok = false;
  }
  for (auto& [id, node] : injects_) {
    NodeGap(ok);
    if (ok && !node->Create(error)) ok = false;
  }
  if (ok) {
    NodeGap(true);
    std::string control = NodePath("zch-lumx_control");
    unlink(control.c_str());  // a stale link of an earlier run
    ok = control_.Open(control, error);
  }
  nodesUp_ = true;
  if (!ok) {
    RemoveNodes(false);
    return false;
  }
  for (auto& [id, st] : injectState_) st.hasLast = false;
  return true;
}

void Simulator::RemoveNodes(bool paced) {
  // Control first: a client sees the control node go before anything else.
  control_.Close();
  for (auto& [id, node] : tapOuts_) {
    if (!node->exists()) continue;
    NodeGap(paced);
    node->Remove(&orphanWriters_);
  }
  for (auto& [id, node] : injects_) {
    if (!node->exists()) continue;
    NodeGap(paced);
    node->Remove(&orphanReaders_);
  }
  while (orphanWriters_.size() > kMaxOrphans) orphanWriters_.erase(orphanWriters_.begin());
  while (orphanReaders_.size() > kMaxOrphans) orphanReaders_.erase(orphanReaders_.begin());
  if (nodesUp_) {
    NodeGap(paced);
    unlink(NodePath("lum").c_str());
  }
  nodesUp_ = false;
  streams_.clear();
  replies_.clear();
}

void Simulator::Announce() {
  std::fprintf(stderr, "lumx-dspsim: ready %s\n", options_.devRoot.c_str());
  std::fflush(stderr);
  if (!options_.readyFile.empty()) {
    std::string tmp = options_.readyFile + ".tmp";
    FILE* f = std::fopen(tmp.c_str(), "we");
    if (f != nullptr) {
      std::fprintf(f, "ready %d\n", static_cast<int>(getpid()));
      std::fclose(f);
      rename(tmp.c_str(), options_.readyFile.c_str());
    } else {
      Log("cannot write %s: %s", options_.readyFile.c_str(), std::strerror(errno));
    }
  }
}

void Simulator::Restart(int64_t now) {
  if (!nodesUp_) return;
  {
    lumx::MutexLock lock(&statsMu_);
    ++stats_.faults.restarts;
  }
  Log("DSP restart: nodes removed for %d ms", options_.faults.restartDownMs);
  RemoveNodes(true);
  if (!options_.faults.restartKeepState) model_.Reset();
  upAt_ = now + options_.faults.restartDownMs * kNsPerMs;
}

// ---- streams ---------------------------------------------------------------

int64_t Simulator::Deadline(const Stream& s, const TapEntry& tap, uint64_t k) const {
  __int128 ns = static_cast<__int128>(k) * s.anchorBlock * kNsPerSec / tap.sampleRate;
  return s.anchorNs + static_cast<int64_t>(ns);
}

void Simulator::ReconcileStreams(int64_t now) {
  if (!nodesUp_) {
    streams_.clear();
    return;
  }
  const std::vector<TapEntry>& taps = model_.taps();
  for (size_t i = 0; i < taps.size(); ++i) {
    const TapEntry& tap = taps[i];
    auto node = tapOuts_.find(tap.tapOut);
    bool want =
        tap.enabled && tap.tapOut != kNoBuffer && node != tapOuts_.end() && node->second->exists();
    auto it = streams_.find(i);
    if (!want) {
      if (it != streams_.end()) streams_.erase(it);
      continue;
    }
    if (it != streams_.end() && it->second.tapOutId == tap.tapOut) continue;
    Stream s;
    s.tapIndex = i;
    s.tapOutId = tap.tapOut;
    s.anchorNs = now;
    s.anchorBlock = tap.blockLength;
    if (tap.phaseUs >= 0) {
      // The last grid point at or before now: the first block is due one
      // period after it, on the grid every other phased tap shares.
      const int64_t period = Deadline(s, tap, 1) - now;
      const int64_t phase = tap.phaseUs * 1000 % period;
      s.anchorNs = now - ((now - phase) % period + period) % period;
    }
    s.k = 1;
    s.deadline = Deadline(s, tap, 1);
    std::vector<double> freqs;
    for (uint32_t c = 0; c < tap.channels; ++c) freqs.push_back(ToneFrequency(tap, i, c));
    s.tone.Configure(freqs, tap.sampleRate, kToneAmplitude);
    auto src = sources_.find(i);
    if (src != sources_.end()) s.source = src->second.get();
    streams_[i] = std::move(s);
    lumx::MutexLock lock(&statsMu_);
    stats_.tapOuts[tap.tapOut].tap = TapLongName(tap);
  }
}

bool Simulator::DataFaultsApply(int tapOutId) const {
  const std::set<int>& only = options_.faults.tapOutFilter;
  return only.empty() || only.count(tapOutId) != 0;
}

void Simulator::ProduceDue(int64_t now) {
  const std::vector<TapEntry>& taps = model_.taps();
  for (auto& [pos, s] : streams_) {
    const TapEntry& tap = taps[pos];
    auto found = tapOuts_.find(s.tapOutId);
    if (found == tapOuts_.end()) continue;
    TapOutNode& node = *found->second;
    while (s.deadline <= now) {
      int64_t period = Deadline(s, tap, s.k + 1) - s.deadline;
      if (now - s.deadline > 2 * period) {
        // We were held up: do not burst, pick the pacing up from now.
        __int128 blocks = static_cast<__int128>(now - s.anchorNs) * tap.sampleRate /
                          (static_cast<__int128>(s.anchorBlock) * kNsPerSec);
        s.k = static_cast<uint64_t>(blocks);
        s.deadline = Deadline(s, tap, s.k);
        lumx::MutexLock lock(&statsMu_);
        ++stats_.tapOuts[s.tapOutId].overruns;
      }
      ProducePacket(s, tap, node, now);
      if (tap.blockLength != s.anchorBlock) {
        // New block length: the next packet is one new block after this one.
        s.anchorNs = s.deadline;
        s.anchorBlock = tap.blockLength;
        s.k = 0;
      }
      ++s.k;
      s.deadline = Deadline(s, tap, s.k);
    }
  }
}

void Simulator::RenderPayload(Stream& s, const TapEntry& tap, uint8_t* payload) {
  size_t frames = tap.blockLength;
  unsigned srcChannels =
      s.source != nullptr ? static_cast<unsigned>(s.source->channels()) : tap.channels;
  size_t need = frames * srcChannels;
  if (s.scratch.size() < need) s.scratch.resize(need);
  if (s.source != nullptr) {
    s.source->Read(s.scratch.data(), frames);
  } else {
    s.tone.Render(s.scratch.data(), frames);
  }
  PackPayload(s.scratch.data(), frames, srcChannels, tap.channels, tap.BytesPerSample(), payload);
}

void Simulator::ProducePacket(Stream& s, const TapEntry& tap, TapOutNode& node, int64_t now) {
  bool faulty = DataFaultsApply(s.tapOutId);
  if (faulty && InPause(now)) {
    lumx::MutexLock lock(&statsMu_);
    ++stats_.faults.pausedPackets;
    return;
  }
  size_t payloadBytes = tap.PayloadBytes();
  if (node.writerGone()) {
    // Nobody writes the node: the packet is lost, the signal moves on.
    ++s.packetNum;
    if (dropBuf_.size() < payloadBytes) dropBuf_.resize(payloadBytes);
    RenderPayload(s, tap, dropBuf_.data());
    lumx::MutexLock lock(&statsMu_);
    ++stats_.faults.writerGonePackets;
    return;
  }
  // The last packet's pieces may still wait (after a hold-up, catching up):
  // they go out before this packet.
  if (node.busy()) FlushNode(node, now, true);
  if (node.busy()) {
    // The previous packet is still on its way out: this one is lost, but its
    // number is used and the signal moves on, as they would on the DSP.
    ++s.packetNum;
    if (dropBuf_.size() < payloadBytes) dropBuf_.resize(payloadBytes);
    RenderPayload(s, tap, dropBuf_.data());
    lumx::MutexLock lock(&statsMu_);
    ++stats_.tapOuts[s.tapOutId].droppedBusy;
    return;
  }

  const FaultOptions& f = options_.faults;
  bool jump = faulty && Chance(f.jumpRate);
  bool badVersion = faulty && Chance(f.badVersionRate);
  bool oversize = faulty && Chance(f.oversizeRate);
  bool stale = faulty && Chance(f.staleRate);
  bool misalign = faulty && Chance(f.misalignRate);
  bool split = faulty && Chance(f.splitRate);
  if (jump) s.packetNum += f.jumpBy;
  uint32_t num = ++s.packetNum;

  size_t prefix = misalign ? kMisalignedBytes : 0;
  size_t staleLen = 0;
  if (stale) staleLen = s.tail.empty() ? 64 : s.tail.size();
  size_t h = prefix + staleLen;
  size_t total = h + kPacketHeaderSize + payloadBytes;
  // Burst fault: packets are held back, then go out in front of the first
  // packet after the window, in the same write.
  const bool hold = faulty && InBurst(now);
  const size_t lead = hold ? 0 : s.held.size();
  uint8_t* buf = node.Begin(lead + total);
  if (lead != 0) std::memcpy(buf, s.held.data(), lead);
  buf += lead;
  if (misalign) std::memset(buf, 0xA5, prefix);
  if (stale) {
    if (s.tail.empty()) {
      std::memset(buf + prefix, 0, staleLen);
    } else {
      std::memcpy(buf + prefix, s.tail.data(), staleLen);
    }
  }
  PacketHeader hdr;
  hdr.version = badVersion ? kPacketVersion + 1 : kPacketVersion;
  hdr.opaque = static_cast<uint64_t>(MonotonicNowNs());
  hdr.packetNum = num;
  hdr.payloadSize = oversize ? kOversizePayload : static_cast<uint32_t>(payloadBytes);
  hdr.sampleRate = tap.sampleRate;
  hdr.channels = tap.channels;
  hdr.bytesPerSample = static_cast<uint8_t>(tap.BytesPerSample());
  EncodePacketHeader(hdr, buf + h);
  uint8_t* payload = buf + h + kPacketHeaderSize;
  RenderPayload(s, tap, payload);
  size_t keep = std::min(kStaleBytes, payloadBytes) & ~static_cast<size_t>(7);
  s.tail.assign(payload + payloadBytes - keep, payload + payloadBytes);

  if (hold) {
    s.held.insert(s.held.end(), buf, buf + total);
    ++s.heldPackets;
    node.Discard();
    return;
  }
  if (lead != 0) {
    lumx::MutexLock lock(&statsMu_);
    ++stats_.faults.bursts;
    stats_.faults.burstPackets += s.heldPackets;
    stats_.tapOuts[s.tapOutId].packetsSent += s.heldPackets;
    s.held.clear();
    s.heldPackets = 0;
  }

  int64_t period =
      static_cast<int64_t>(static_cast<__int128>(tap.blockLength) * kNsPerSec / tap.sampleRate);
  int64_t gap = std::min<int64_t>(static_cast<int64_t>(f.pieceGapUs) * 1000, period / 4);
  int64_t t = now;
  if (misalign) {
    node.AddPiece(lead + prefix, t);
    t += gap;
  }
  if (split) {
    size_t mid = h + kPacketHeaderSize + ((payloadBytes / 2) & ~static_cast<size_t>(7));
    node.AddPiece(lead + h + 32, t);
    t += gap;
    if (mid > h + 32 && mid < total) {
      node.AddPiece(lead + mid, t);
      t += gap;
    }
  }
  node.AddPiece(lead + total, t);

  int applied = jump + badVersion + oversize + stale + misalign + split;
  if (applied > 0) {
    lumx::MutexLock lock(&statsMu_);
    FaultCounts& fc = stats_.faults;
    fc.packetNumJump += jump;
    fc.badVersion += badVersion;
    fc.oversize += oversize;
    fc.stale += stale;
    fc.misaligned += misalign;
    fc.split += split;
    stats_.tapOuts[s.tapOutId].faultsInjected += static_cast<uint64_t>(applied);
  }
  FlushNode(node, now);
}

void Simulator::FlushNode(TapOutNode& node, int64_t now, bool rush) {
  uint64_t bytes = 0;
  TapOutNode::Flush r = node.Write(now, &bytes, rush);
  lumx::MutexLock lock(&statsMu_);
  TapOutStats& s = stats_.tapOuts[node.id()];
  s.bytesSent += bytes;
  switch (r) {
    case TapOutNode::Flush::kDone:
      ++s.packetsSent;
      break;
    case TapOutNode::Flush::kNoReader:
    case TapOutNode::Flush::kError:
      ++s.droppedNoReader;
      break;
    case TapOutNode::Flush::kWriterGone:
      ++stats_.faults.writerGonePackets;
      break;
    default:
      break;
  }
}

// ---- control channel -------------------------------------------------------

void Simulator::HandleControl(int64_t now) {
  std::vector<std::vector<uint8_t>> requests;
  control_.ReadRequests(now, &requests);
  for (const auto& req : requests) HandleRequest(req, now);
  SendDueReplies(now);
}

void Simulator::HandleRequest(const std::vector<uint8_t>& req, int64_t now) {
  const FaultOptions& f = options_.faults;
  std::vector<uint8_t> reply(req.size());
  CommandOutcome out;
  bool forced = false;
  if (req.size() >= kCmdHeaderSize) {
    uint16_t opcode = LoadU16(req.data() + kCmdOpcodeOffset);
    auto forcedStatus = f.errorStatus.find(opcode);
    if (forcedStatus != f.errorStatus.end()) {
      // Answered with the configured error; the command is not carried out.
      forced = true;
      out.hasHeader = true;
      out.opcode = opcode;
      out.knownOpcode = RequestSizeForOpcode(opcode) != 0;
      out.status = forcedStatus->second;
      DspModel::EchoReply(req.data(), req.size(), out.status, reply.data());
    }
  }
  if (!forced) out = model_.Handle(req.data(), req.size(), reply.data());
  if (out.changed) ReconcileStreams(now);
  if (out.hasHeader) lastRequestSize_ = req.size();
  if (f.endlessList && !forced && out.opcode == kOpTapList && out.status == kStatusOk) {
    FillListPage(reply.data());
  }

  bool drop = Chance(f.dropReplyRate);
  bool delay = f.replyDelayMs > 0 && Chance(f.replyDelayRate);
  bool stray = out.hasHeader && Chance(f.strayReplyRate);
  {
    lumx::MutexLock lock(&statsMu_);
    if (!out.hasHeader) {
      ++stats_.shortRequests;
    } else {
      CommandStats& c = stats_.commands[out.opcode];
      ++c.count;
      if (drop) {
        ++c.dropped;
      } else {
        ++c.statuses[out.status];
      }
    }
    if (forced) ++stats_.faults.errorStatus;
    if (drop) {
      ++stats_.faults.replyDropped;
    } else {
      stats_.faults.replyDelayed += delay;
      stats_.faults.strayReply += stray;
    }
  }
  if (options_.verbose) {
    unsigned id = req.size() > kCmdIdOffset ? req[kCmdIdOffset] : 0;
    const char* name = OpcodeName(out.opcode);
    Log("request id %u opcode %u (%s) %zu bytes -> status %d%s%s%s%s", id, out.opcode,
        name != nullptr ? name : "unknown", req.size(), out.status, forced ? " [forced]" : "",
        drop ? " [dropped]" : "", !drop && delay ? " [delayed]" : "",
        !drop && stray ? " [stray first]" : "");
  }
  if (drop) return;
  if (replies_.size() >= kMaxPendingReplies) {
    // A client flooding requests while replies are held back: bound memory.
    lumx::MutexLock lock(&statsMu_);
    ++stats_.replyWriteFailures;
    return;
  }
  int64_t due = now + (delay ? f.replyDelayMs * kNsPerMs : 0);
  if (stray) {
    std::vector<uint8_t> other = reply;
    StoreU16(other.data() + kCmdOpcodeOffset, out.opcode == kOpTapList ? kOpTapInfo : kOpTapList);
    StoreI16(other.data() + kCmdStatusOffset, kStatusOk);
    replies_.push_back(PendingReply{due, std::move(other)});
  }
  replies_.push_back(PendingReply{due, std::move(reply)});
}

void Simulator::FillListPage(uint8_t* reply) {
  // The core's taps over and over, so that every info request still names a
  // tap the DSP has; a core without taps keeps its empty page.
  const std::vector<const TapEntry*> onCore = model_.TapsOnCore(reply[8]);
  if (onCore.empty()) return;
  const size_t first = static_cast<size_t>(reply[9]) * kTapsPerPage;
  for (size_t i = 0; i < kTapsPerPage; ++i) {
    DspModel::PutTapId(reply + kListEntriesOffset + i * kTapIdSize, *onCore[(first + i) % onCore.size()]);
  }
  lumx::MutexLock lock(&statsMu_);
  ++stats_.faults.endlessListPages;
}

void Simulator::SendUnmatched(int64_t now) {
  const double perSec = options_.faults.unmatchedPerSec;
  const int64_t interval = std::max<int64_t>(static_cast<int64_t>(1e9 / perSec), kUnmatchedTickNs);
  const uint64_t batch =
      std::max<uint64_t>(1, static_cast<uint64_t>(perSec * static_cast<double>(interval) / 1e9 + 0.5));
  nextUnmatchedAt_ += interval;
  if (nextUnmatchedAt_ <= now) nextUnmatchedAt_ = now + interval;
  if (!nodesUp_ || !control_.isOpen()) return;
  // The size of the last request, so that a client waiting for one reads a
  // whole message that answers nothing.
  std::vector<uint8_t> junk(lastRequestSize_, 0);
  StoreU16(junk.data() + kCmdSizeOffset, static_cast<uint16_t>(junk.size()));
  StoreU16(junk.data() + kCmdOpcodeOffset, kUnmatchedOpcode);
  uint64_t sent = 0;
  // Once the client's side is full (nobody reads), the rest are not sent.
  while (sent < batch && control_.WriteReply(junk.data(), junk.size())) ++sent;
  lumx::MutexLock lock(&statsMu_);
  stats_.faults.unmatchedReplies += sent;
}

void Simulator::FlapNode(int64_t now) {
  nextFlapAt_ += std::max<int64_t>(SecToNs(options_.faults.flapEverySec), 1);
  if (nextFlapAt_ <= now) nextFlapAt_ = now + SecToNs(options_.faults.flapEverySec);
  if (!nodesUp_) return;
  std::string err;
  std::string name;
  bool ok = false;
  // Removal and creation back to back: a watcher gets both events together.
  if (!injects_.empty()) {
    InjectNode& node = *injects_.begin()->second;
    name = InjectNodeName(node.id());
    node.Remove(&orphanReaders_);
    ok = node.Create(&err);
    injectState_[node.id()].hasLast = false;
  } else if (!tapOuts_.empty()) {
    TapOutNode& node = *tapOuts_.begin()->second;
    name = TapOutNodeName(node.id());
    node.Remove(&orphanWriters_);
    ok = node.Create(&err);
  } else {
    return;
  }
  ReconcileStreams(now);
  if (!ok) Log("node flap: recreating %s failed: %s", name.c_str(), err.c_str());
  if (options_.verbose) Log("node flap: %s removed and created again", name.c_str());
  lumx::MutexLock lock(&statsMu_);
  ++stats_.faults.nodeFlaps;
}

void Simulator::SendDueReplies(int64_t now) {
  size_t kept = 0;
  for (size_t i = 0; i < replies_.size(); ++i) {
    PendingReply& r = replies_[i];
    if (r.due > now) {
      if (kept != i) replies_[kept] = std::move(r);
      ++kept;
      continue;
    }
    if (!control_.WriteReply(r.bytes.data(), r.bytes.size())) {
      lumx::MutexLock lock(&statsMu_);
      ++stats_.replyWriteFailures;
    }
  }
  replies_.resize(kept);
}

// ---- inject nodes ----------------------------------------------------------

void Simulator::HandleInject(InjectNode& node) {
  ssize_t n = read(node.fd(), readBuf_.data(), readBuf_.size());
  if (n <= 0) return;
  int64_t now = MonotonicNowNs();
  {
    lumx::MutexLock lock(&statsMu_);
    stats_.injects[node.id()].bytesReceived += static_cast<uint64_t>(n);
  }
  InjectSink sink(this, node.id(), now);
  node.parser().Feed(readBuf_.data(), static_cast<size_t>(n), &sink);
}

void Simulator::OnInjectPacket(int id, const PacketHeader& h, const uint8_t* payload, int64_t now) {
  InjectState& st = injectState_[id];
  const TapEntry* tap = model_.FindByInject(static_cast<uint8_t>(id));
  bool mismatch = h.channels == 0 || h.bytesPerSample == 0 ||
                  h.payloadSize % (static_cast<uint32_t>(h.channels) * h.bytesPerSample) != 0;
  if (tap != nullptr) {
    mismatch = mismatch || h.sampleRate != tap->sampleRate || h.channels != tap->channels ||
               h.bytesPerSample != tap->BytesPerSample();
  }
  int64_t stamp = static_cast<int64_t>(h.opaque);
  bool stamped = stamp >= startNs_ && stamp <= now;
  {
    lumx::MutexLock lock(&statsMu_);
    InjectStats& s = stats_.injects[id];
    ++s.packetsReceived;
    if (st.hasLast && h.packetNum != st.lastPacketNum + 1) {
      ++s.gaps;
      uint32_t ahead = h.packetNum - st.lastPacketNum;
      if (ahead != 0 && ahead < 0x80000000u) s.lostPackets += ahead - 1;
    }
    if (mismatch) ++s.formatMismatch;
    if (stamped) {
      const uint64_t us = static_cast<uint64_t>(now - stamp) / 1000;
      s.latencyUs.Add(us);
      s.windowLatencyUs.Add(us);
    } else {
      ++s.unstamped;
    }
  }
  st.hasLast = true;
  st.lastPacketNum = h.packetNum;

  auto rec = options_.records.find(id);
  if (rec == options_.records.end() || st.recordFailed) return;
  if (h.channels == 0 || h.bytesPerSample < 2 || h.bytesPerSample > 4) return;
  if (!st.recorder) {
    std::string err;
    st.recorder = WavRecorder::Create(rec->second, static_cast<int>(h.sampleRate), h.channels,
                                      h.bytesPerSample, &err);
    if (!st.recorder) {
      Log("--record %d: %s", id, err.c_str());
      st.recordFailed = true;
      lumx::MutexLock lock(&statsMu_);
      ++stats_.injects[id].recordErrors;
      return;
    }
  }
  WavRecorder& r = *st.recorder;
  bool ok = static_cast<uint32_t>(r.sampleRate()) == h.sampleRate && r.channels() == h.channels &&
            r.bytesPerSample() == h.bytesPerSample;
  size_t frames = h.payloadSize / (static_cast<size_t>(h.channels) * h.bytesPerSample);
  if (ok) {
    st.scratch.resize(frames * h.channels);
    UnpackPayload(payload, frames, h.channels, h.bytesPerSample, st.scratch.data());
    ok = r.Write(st.scratch.data(), frames);
  }
  lumx::MutexLock lock(&statsMu_);
  if (ok) {
    stats_.injects[id].recordedFrames += frames;
  } else {
    ++stats_.injects[id].recordErrors;
  }
}

void Simulator::DrainOrphanReader(size_t i) {
  uint8_t scratch[4096];
  ssize_t n = read(orphanReaders_[i].get(), scratch, sizeof scratch);
  if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) {
    orphanReaders_.erase(orphanReaders_.begin() + static_cast<long>(i));
  }
}

void Simulator::CheckOrphanWriters() {
  // A write end reports POLLERR once no reader is left: the client let go.
  for (size_t i = 0; i < orphanWriters_.size();) {
    struct pollfd p = {orphanWriters_[i].get(), 0, 0};
    if (poll(&p, 1, 0) == 1 && (p.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
      orphanWriters_.erase(orphanWriters_.begin() + static_cast<long>(i));
    } else {
      ++i;
    }
  }
}

// ---- loop ------------------------------------------------------------------

void Simulator::RunTimers(int64_t now) {
  const FaultOptions& f = options_.faults;
  if (stopAt_ != 0 && now >= stopAt_) {
    stopping_ = true;
    return;
  }
  if (!nodesUp_ && upAt_ != 0 && now >= upAt_) {
    std::string err;
    if (CreateNodes(&err)) {
      upAt_ = 0;
      // Creating the nodes may have taken a while (--node-gap-ms).
      ReconcileStreams(MonotonicNowNs());
      Announce();
    } else {
      Log("recreating the nodes failed: %s; trying again in 1 s", err.c_str());
      upAt_ = now + kNsPerSec;
    }
  }
  if (nextRestartAt_ != 0 && now >= nextRestartAt_) {
    nextRestartAt_ += std::max<int64_t>(SecToNs(f.restartEverySec), 1);
    if (nextRestartAt_ <= now) nextRestartAt_ = now + SecToNs(f.restartEverySec);
    Restart(now);
  }
  if (nextPauseAt_ != 0 && now >= nextPauseAt_) {
    pauseStart_ = nextPauseAt_;
    pauseEnd_ = pauseStart_ + f.pauseMs * kNsPerMs;
    nextPauseAt_ += SecToNs(f.pauseEverySec);
    if (nextPauseAt_ <= now) nextPauseAt_ = now + SecToNs(f.pauseEverySec);
    lumx::MutexLock lock(&statsMu_);
    ++stats_.faults.pauses;
  }
  if (nextUnmatchedAt_ != 0 && now >= nextUnmatchedAt_) SendUnmatched(now);
  if (nextFlapAt_ != 0 && now >= nextFlapAt_) FlapNode(now);
  RunPeerFaultTimers(now);
  if (control_.fragmentDeadline() != 0 && now >= control_.fragmentDeadline()) {
    std::vector<std::vector<uint8_t>> requests;
    control_.FlushFragment(&requests);
    for (const auto& req : requests) HandleRequest(req, now);
  }
  SendDueReplies(now);
  if (nodesUp_) {
    // Pieces already due go out before the next packets are made.
    for (auto& [id, node] : tapOuts_) {
      int64_t t = node->nextPieceTime();
      if (t != 0 && t <= now) FlushNode(*node, now);
    }
    ProduceDue(now);
  }
  if (now >= nextOrphanCheck_) {
    CheckOrphanWriters();
    nextOrphanCheck_ = now + kOrphanCheckNs;
  }
}

bool Simulator::InjectStalled(int id, int64_t now) const {
  const FaultOptions& f = options_.faults;
  if (f.stallInjects.count(id) == 0) return false;
  return f.stallEverySec == 0 || (now >= stallStart_ && now < stallEnd_);
}

void Simulator::RunPeerFaultTimers(int64_t now) {
  const FaultOptions& f = options_.faults;
  // Each window opens at its own deadline; the next one is a period later.
  const auto windowOpens = [now](int64_t* next, double everySec, int ms, int64_t* start, int64_t* end) {
    if (*next == 0 || now < *next) return false;
    *start = *next;
    *end = *start + ms * kNsPerMs;
    *next += SecToNs(everySec);
    if (*next <= now) *next = now + SecToNs(everySec);
    return true;
  };
  if (windowOpens(&nextStallAt_, f.stallEverySec, f.stallMs, &stallStart_, &stallEnd_)) {
    lumx::MutexLock lock(&statsMu_);
    stats_.faults.stalls += f.stallInjects.size();
  }
  // A burst is counted when its held packets go out.
  windowOpens(&nextBurstAt_, f.burstEverySec, f.burstMs, &burstStart_, &burstEnd_);
  int64_t goneStart = 0;
  int64_t goneEnd = 0;
  if (windowOpens(&nextWriterGoneAt_, f.writerGoneEverySec, f.writerGoneMs, &goneStart, &goneEnd) && nodesUp_) {
    uint64_t dropped = 0;
    for (auto& [id, node] : tapOuts_) {
      if (!DataFaultsApply(id) || !node->exists() || node->writerGone()) continue;
      node->DropWriter();
      ++dropped;
    }
    writerBackAt_ = std::max(writerBackAt_, goneEnd);
    lumx::MutexLock lock(&statsMu_);
    stats_.faults.writerGone += dropped;
  }
  if (writerBackAt_ != 0 && now >= writerBackAt_) {
    writerBackAt_ = 0;
    for (auto& [id, node] : tapOuts_) {
      if (node->writerGone() && !node->RestoreWriter()) {
        Log("tap-out %d: the write end could not be opened again: %s", id, std::strerror(errno));
        writerBackAt_ = now + 100 * kNsPerMs;  // try again
      }
    }
  }
}

int64_t Simulator::NextDeadline() const {
  int64_t next = INT64_MAX;
  auto consider = [&next](int64_t t) {
    if (t != 0 && t < next) next = t;
  };
  consider(stopAt_);
  if (!nodesUp_) consider(upAt_);
  consider(nextRestartAt_);
  consider(nextPauseAt_);
  consider(nextUnmatchedAt_);
  consider(nextFlapAt_);
  consider(nextStallAt_);
  if (stallEnd_ > MonotonicNowNs()) consider(stallEnd_);
  consider(nextWriterGoneAt_);
  consider(writerBackAt_);
  consider(nextBurstAt_);
  consider(control_.fragmentDeadline());
  for (const PendingReply& r : replies_) consider(r.due);
  if (nodesUp_) {
    for (const auto& [pos, s] : streams_) consider(s.deadline);
    for (const auto& [id, node] : tapOuts_) consider(node->nextPieceTime());
  }
  if (!orphanWriters_.empty()) consider(nextOrphanCheck_);
  return next;
}

void Simulator::HandleSignals() {
  struct signalfd_siginfo si;
  while (read(signals_.get(), &si, sizeof si) == static_cast<ssize_t>(sizeof si)) {
    switch (si.ssi_signo) {
      case SIGUSR1:
        statsRequested_ = true;
        break;
      case SIGUSR2:
        restartRequested_ = true;
        break;
      default:
        stopRequested_ = true;
        break;
    }
  }
}

void Simulator::WriteStats(bool final) {
  int64_t cpu = CpuNs();
  std::string json;
  {
    lumx::MutexLock lock(&statsMu_);
    stats_.nowNs = MonotonicNowNs();
    if (cpu > 0) stats_.cpuNs = cpu;
    if (!options_.statsPath.empty()) json = StatsToJson(stats_, final);
    // Every document request starts a new window, written out or not.
    StartStatsWindow(&stats_, stats_.nowNs);
  }
  if (options_.statsPath.empty()) return;
  json += "\n";
  if (options_.statsPath == "-") {
    std::fwrite(json.data(), 1, json.size(), stdout);
    std::fflush(stdout);
    return;
  }
  // Replace the file whole, so a reader never sees half a document.
  std::string tmp = options_.statsPath + ".tmp";
  FILE* f = std::fopen(tmp.c_str(), "we");
  bool ok = f != nullptr && std::fwrite(json.data(), 1, json.size(), f) == json.size();
  if (f != nullptr && std::fclose(f) != 0) ok = false;
  if (!ok || rename(tmp.c_str(), options_.statsPath.c_str()) != 0) {
    Log("cannot write statistics to %s: %s", options_.statsPath.c_str(), std::strerror(errno));
    unlink(tmp.c_str());
  }
}

void Simulator::RequestStop() {
  stopRequested_ = true;
  uint64_t one = 1;
  if (wake_.ok()) (void)!write(wake_.get(), &one, sizeof one);
}

void Simulator::RequestStats() {
  statsRequested_ = true;
  uint64_t one = 1;
  if (wake_.ok()) (void)!write(wake_.get(), &one, sizeof one);
}

void Simulator::RequestRestart() {
  restartRequested_ = true;
  uint64_t one = 1;
  if (wake_.ok()) (void)!write(wake_.get(), &one, sizeof one);
}

int64_t Simulator::CpuNs() const {
  if (!cpuClockValid_) return 0;
  struct timespec ts;
  if (clock_gettime(cpuClock_, &ts) != 0) return 0;
  return static_cast<int64_t>(ts.tv_sec) * kNsPerSec + ts.tv_nsec;
}

SimStats Simulator::Snapshot() const {
  int64_t cpu = CpuNs();
  lumx::MutexLock lock(&statsMu_);
  SimStats copy = stats_;
  copy.nowNs = MonotonicNowNs();
  if (cpu > 0) copy.cpuNs = cpu;
  return copy;
}

int Simulator::Run() {
  if (!started_) return 1;
  // Only this thread's CPU counts: the loop is the whole simulator.
  if (pthread_getcpuclockid(pthread_self(), &cpuClock_) == 0) cpuClockValid_ = true;
  std::vector<struct pollfd> fds;
  enum Kind { kWake, kSignal, kTimer, kControl, kInject, kOrphan, kTapOut };
  std::vector<std::pair<Kind, int>> kinds;  // what each pollfd is, and its key
  while (!stopping_) {
    int64_t now = MonotonicNowNs();
    if (stopRequested_.exchange(false)) break;
    if (restartRequested_.exchange(false)) Restart(now);
    if (statsRequested_.exchange(false)) WriteStats(false);
    RunTimers(now);
    if (stopping_) break;

    int timeout = -1;
    int64_t next = NextDeadline();
    if (next != INT64_MAX) {
      if (next <= MonotonicNowNs()) {
        timeout = 0;
      } else if (next != armedFor_) {
        struct itimerspec its = {};
        its.it_value.tv_sec = next / kNsPerSec;
        its.it_value.tv_nsec = next % kNsPerSec;
        timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &its, nullptr);
        armedFor_ = next;
      }
    }

    fds.clear();
    kinds.clear();
    auto add = [&](int fd, short events, Kind kind, int key) {
      fds.push_back(pollfd{fd, events, 0});
      kinds.emplace_back(kind, key);
    };
    add(wake_.get(), POLLIN, kWake, 0);
    if (signals_.ok()) add(signals_.get(), POLLIN, kSignal, 0);
    add(timer_.get(), POLLIN, kTimer, 0);
    if (control_.isOpen()) add(control_.fd(), POLLIN, kControl, 0);
    for (auto& [id, node] : injects_) {
      if (node->exists() && !InjectStalled(id, now)) add(node->fd(), POLLIN, kInject, id);
    }
    for (size_t i = 0; i < orphanReaders_.size(); ++i) {
      add(orphanReaders_[i].get(), POLLIN, kOrphan, static_cast<int>(i));
    }
    for (auto& [id, node] : tapOuts_) {
      if (node->exists() && node->wantsWritable()) add(node->fd(), POLLOUT, kTapOut, id);
    }

    int n = poll(fds.data(), fds.size(), timeout);
    if (n < 0) {
      if (errno == EINTR) continue;
      Log("poll: %s", std::strerror(errno));
      break;
    }
    if (n == 0) continue;
    now = MonotonicNowNs();
    // Orphans are erased by index: walk them from the back.
    for (size_t i = fds.size(); i-- > 0;) {
      if (fds[i].revents == 0) continue;
      int key = kinds[i].second;
      switch (kinds[i].first) {
        case kWake: {
          uint64_t v;
          (void)!read(wake_.get(), &v, sizeof v);
          break;
        }
        case kSignal:
          HandleSignals();
          break;
        case kTimer: {
          uint64_t v;
          (void)!read(timer_.get(), &v, sizeof v);
          armedFor_ = -1;
          break;
        }
        case kControl:
          HandleControl(now);
          break;
        case kInject: {
          auto it = injects_.find(key);
          if (it != injects_.end() && it->second->exists()) HandleInject(*it->second);
          break;
        }
        case kOrphan:
          DrainOrphanReader(static_cast<size_t>(key));
          break;
        case kTapOut: {
          auto it = tapOuts_.find(key);
          if (it != tapOuts_.end()) FlushNode(*it->second, now);
          break;
        }
      }
    }
  }
  RemoveNodes(false);
  orphanWriters_.clear();
  orphanReaders_.clear();
  WriteStats(true);
  // The thread's clock goes away with the thread; the last figure stays.
  cpuClockValid_ = false;
  return 0;
}

}  // namespace lumx::dspsim
