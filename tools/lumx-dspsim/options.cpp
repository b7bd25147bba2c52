#include "tools/lumx-dspsim/options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace lumx::dspsim {

namespace {

bool ParseDouble(const std::string& s, double lo, double hi, double* out) {
  if (s.empty()) return false;
  errno = 0;
  char* end = nullptr;
  double v = std::strtod(s.c_str(), &end);
  if (errno != 0 || end == s.c_str() || *end != '\0' || !std::isfinite(v) || v < lo || v > hi) {
    return false;
  }
  *out = v;
  return true;
}

bool ParseLong(const std::string& s, long lo, long hi, long* out) {
  if (s.empty()) return false;
  errno = 0;
  char* end = nullptr;
  long v = std::strtol(s.c_str(), &end, 0);
  if (errno != 0 || end == s.c_str() || *end != '\0' || v < lo || v > hi) return false;
  *out = v;
  return true;
}

bool ParseIdList(const std::string& s, std::vector<int>* out) {
  out->clear();
  if (s.empty() || s == "none") return true;
  size_t start = 0;
  while (start <= s.size()) {
    size_t comma = s.find(',', start);
    std::string item =
        s.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    long v;
    if (!ParseLong(item, 0, 254, &v)) return false;
    for (int o : *out) {
      if (o == v) return false;
    }
    out->push_back(static_cast<int>(v));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return true;
}

bool SplitAssign(const std::string& s, std::string* key, std::string* value) {
  size_t eq = s.find('=');
  if (eq == std::string::npos || eq == 0 || eq + 1 == s.size()) return false;
  *key = s.substr(0, eq);
  *value = s.substr(eq + 1);
  return true;
}

// Options that take a value.
const char* const kValued[] = {
    "--dev-root",
    "--buffers",
    "--tapouts",
    "--injects",
    "--taps",
    "--source",
    "--record",
    "--stats",
    "--duration",
    "--ready-file",
    "--seed",
    "--node-gap-ms",
    "--fault-restart-every",
    "--fault-restart-down-ms",
    "--fault-delay-reply-ms",
    "--fault-delay-rate",
    "--fault-drop-reply",
    "--fault-stray-reply",
    "--fault-error-status",
    "--fault-unmatched-replies",
    "--fault-flap-every",
    "--fault-split",
    "--fault-stale",
    "--fault-misalign",
    "--fault-bad-version",
    "--fault-oversize",
    "--fault-jump",
    "--fault-jump-by",
    "--fault-pause",
    "--fault-piece-gap-us",
    "--fault-tapout",
    "--fault-stall-inject",
    "--fault-stall",
    "--fault-writer-gone",
    "--fault-burst",
};

bool IsValued(const std::string& name) {
  for (const char* v : kValued) {
    if (name == v) return true;
  }
  return false;
}

}  // namespace

std::string HelpText() {
  return R"(Usage: lumx-dspsim [--dev-root DIR] [options]

Simulates the LUM DSP and its channel driver so that lumxd can run on any
Linux host: it creates the driver's device nodes in DIR, answers tap commands
on the control node, streams audio packets on tap-out nodes in real time and
reads, checks and times the packets written to inject nodes. Run lumxd with
LUMX_DEV_ROOT=DIR.

Device nodes (created in DIR, removed at exit):
  lum                    marker file (the daemon needs it to open control)
  zch-lumx_control       link to a raw pseudo-terminal: open it O_RDWR |
                         O_NONBLOCK, write() one request, select(), read() the
                         reply of the same size
  zch-lumx_tapoutN       FIFO, audio packets from the DSP (read it)
  zch-lumx_injectN       FIFO, audio packets to the DSP (write it)

Options:
  --dev-root DIR         device directory; default $LUMX_DEV_ROOT. Created if
                         missing; stale nodes of an earlier run are replaced.
  --buffers LIST         ids for both tap-out and inject nodes, comma-separated,
                         0..254 (default 20,21,40,41)
  --tapouts LIST         tap-out node ids only ("none" for no nodes)
  --injects LIST         inject node ids only ("none" for no nodes)
  --taps FILE            tap table to load instead of the built-in one
  --print-taps           print the tap table (built-in or --taps) and exit
  --source TAP=FILE.wav  play FILE on TAP ([CORE:]CODE.INDEX, e.g. imic.0 or
                         2:imic.0), looped; channel c plays file channel
                         c mod (file channels); no resampling. Default: a test
                         tone per tap (250 Hz x tap position in the table,
                         channel c at (c + 1) times that, half full scale).
  --record ID=FILE.wav   write the audio injected on inject node ID (format of
                         its first packet; packets in another format are not
                         recorded)
  --stats FILE           where statistics go ("-" = standard output, default)
  --duration SECONDS     stop by itself after SECONDS
  --ready-file FILE      create FILE ("ready <pid>") once the nodes exist
  --node-gap-ms MS       pause MS between creating two nodes (and between
                         removing two on a restart), default 0: all node
                         events of a restart come in one burst
  --seed N               seed of the fault dice (default 1)
  -v, --verbose          log every command and reply to standard error
  -h, --help             this text

Once the nodes exist, "lumx-dspsim: ready <DIR>" is printed on standard error
(again after every simulated DSP restart).

Signals: SIGINT, SIGTERM or SIGHUP end the run (statistics are written, nodes
are removed, exit code 0); SIGUSR1 writes statistics now; SIGUSR2 restarts the
DSP. Bad arguments exit with 2, start-up failures with 1.

Control protocol (little-endian; 8-byte header: u8 0, u8 id, u16 size, u16
opcode, i16 status):
  202 TAP_ENABLE 16 bytes   203 TAP_BIND 18 bytes   204 TAP_LIST 44 bytes
  205 TAP_INFO 28 bytes     206 TAP_SET_BLOCK_LEN 20 bytes
  Every reply has the request's size and echoes its bytes (id byte and
  opcode included) with the status at offset 6. TAP_LIST answers four tap
  identifiers per page (a zero code ends the list; a core with 4k taps answers
  page k with a zero first code) and puts core, page and the core's tap count
  (u16) at bytes 8, 9 and 10..11. TAP_INFO fills the identifier with the
  enabled flag, the rate (float Hz), block length, channels, bits and bound
  buffer ids (0xFF = none). Enable, bind and block length change what later
  list and info replies and the streams show.

The DSP's acceptance rules (status at offset 6):
  -90 EMSGSIZE    message size is not the opcode's, or the header's size field
                  differs from the message size (the reply still has the size
                  of what was received)
  -95 EOPNOTSUPP  unknown opcode
  -19 ENODEV      no such core (cores 2, 3 and 4 exist, plus any in the table)
   -2 ENOENT      no such tap on that core
  -22 EINVAL      TAP_ENABLE value other than 0 or 1; block length 0 or not a
                  multiple of 480
  -34 ERANGE      block length x channels x bytes per sample > 65472
  TAP_BIND accepts any ids; a buffer id belongs to one tap at a time per
  direction (binding it elsewhere takes it away from the previous tap).
  Requests shorter than 8 bytes are echoed unchanged. Bytes of one read are
  split into requests only where the header size fields chain exactly through
  them; an incomplete request waits 20 ms for the rest.

Streaming: a tap that is enabled and bound to a tap-out id whose node exists
sends one packet per block at real-time pace: 64-byte header ("xmuL", version
1, opaque u64 = CLOCK_MONOTONIC send time in ns, packet_num from 1 (restarts
when the tap is enabled or bound to another tap-out), payload size, rate,
channels, bytes per sample, rest zero) and the payload in frames of 480
samples per channel, channel after channel. While nobody reads a tap-out node its packets are
dropped (counted, not an error). Packets written to inject nodes are
reassembled, checked (magic, version, size, packet_num, the bound tap's
format) and their opaque word turned into a round-trip latency.

Faults (RATE is a probability 0..1 per reply or per packet; counted in the
statistics under "faults"):
  --fault-restart-every SEC    restart the DSP every SEC s (also on SIGUSR2):
                               all nodes removed, recreated after the down time,
                               tap table back to its initial state
  --fault-restart-down-ms MS   time the nodes stay away (default 1000)
  --fault-restart-keep-state   keep enable/bind/block state over a restart
  --fault-delay-reply-ms MS    delay replies by MS (the daemon gives up at 500)
  --fault-delay-rate RATE      share of replies delayed (default 1)
  --fault-drop-reply RATE      send no reply
  --fault-stray-reply RATE     first send a reply carrying another opcode
  --fault-error-status OP=ST   answer opcode OP with status ST (the command is
                               not carried out), e.g. 205=-5; repeatable
  --fault-endless-list         answer every TAP_LIST page as full (the core's
                               taps over and over): the list never ends
  --fault-unmatched-replies N  send N replies per second that answer no
                               request (the last request's size, opcode
                               0xFFFF), whether or not a command waits
  --fault-flap-every SEC       every SEC s remove one data node (the lowest
                               inject id, else tap-out id) and create it again
                               at once: deletion and creation in one burst
  --fault-split RATE           write a packet in three pieces (32 bytes, up to
                               the middle of the payload, rest), each piece
                               --fault-piece-gap-us after the last (default 1000)
  --fault-stale RATE           write up to 256 stale bytes (the end of the
                               previous payload) in front of a packet
  --fault-misalign RATE        write a 12-byte junk chunk on its own, one piece
                               gap before the packet
  --fault-bad-version RATE     version 2 in the header
  --fault-oversize RATE        header announces 65473 payload bytes (the real
                               payload follows)
  --fault-jump RATE            packet_num jumps ahead by --fault-jump-by N (7)
  --fault-pause SEC:MS         every SEC s, produce nothing for MS ms
  --fault-tapout ID            apply packet faults only to tap-out ID
                               (repeatable; default all)
  --fault-stall-inject ID      stop reading inject node ID (repeatable): once
                               its pipe is full the writer cannot go on
  --fault-stall SEC:MS         stall those readers every SEC s for MS ms
                               instead of for ever
  --fault-writer-gone SEC:MS   every SEC s close the tap-out write end for MS ms:
                               the reader sees end of file; packets made
                               meanwhile are dropped (--fault-tapout applies)
  --fault-burst SEC:MS         every SEC s hold the packets of MS ms back and
                               write them in one write() with the next one, as
                               for a reader that fell behind (--fault-tapout
                               applies)

Tap table file (--taps): one tap per line, '#' starts a comment:
  CORE CODE.INDEX RATE BLOCK CHANNELS BITS [key=value ...]
  e.g.  2 imic.0 48000 480 1 16 enabled=1 tapout=20 inject=20
  RATE in Hz (integer), BLOCK a multiple of 480 whose payload fits 65472
  bytes, CHANNELS 1..8, BITS 16, 24 or 32; keys: enabled=0|1, extra=N
  (identifier byte 7), tapout=ID|none, inject=ID|none, tone=HZ, phase=US
  (blocks due US microseconds after each whole block period on
  CLOCK_MONOTONIC, below one period: phased taps keep a fixed offset from
  each other; without it blocks count from the stream's start). Taps are
  listed per core in file order.

Statistics: one JSON document per dump, written on SIGUSR1 and at exit (to a
file: replaced whole each time; to standard output: one line per dump) with
"final", "elapsed_s", "streams" (per node: tap-out packets_sent, bytes_sent,
dropped_no_reader, dropped_busy, overruns, faults_injected; inject
packets_received, bytes_received, gaps, lost_packets, errors and their kinds,
unstamped, latency_us {count, p50, p99, max} over the run and
window_latency_us, the same over the "window_s" since the previous dump),
"commands" (per opcode: count, statuses {status: replies}, dropped) and
"faults".
)";
}

ParseOutcome ParseOptions(int argc, char** argv, Options* o, std::string* message) {
  const char* envRoot = std::getenv("LUMX_DEV_ROOT");
  if (envRoot != nullptr) o->devRoot = envRoot;
  bool printTaps = false;
  auto bad = [&](const std::string& what) {
    *message = what;
    return ParseOutcome::kError;
  };
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    std::string name = arg;
    std::string value;
    bool hasValue = false;
    size_t eq = arg.find('=');
    if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
      name = arg.substr(0, eq);
      value = arg.substr(eq + 1);
      hasValue = true;
    }
    if (IsValued(name) && !hasValue) {
      if (i + 1 >= argc) return bad(name + " needs a value");
      value = argv[++i];
    } else if (!IsValued(name) && hasValue) {
      return bad(name + " takes no value");
    }
    double d;
    long l;
    std::string k, v;
    FaultOptions& f = o->faults;
    if (name == "-h" || name == "--help") {
      *message = HelpText();
      return ParseOutcome::kExit;
    } else if (name == "-v" || name == "--verbose") {
      o->verbose = true;
    } else if (name == "--print-taps") {
      printTaps = true;
    } else if (name == "--fault-restart-keep-state") {
      f.restartKeepState = true;
    } else if (name == "--fault-endless-list") {
      f.endlessList = true;
    } else if (name == "--fault-unmatched-replies") {
      if (!ParseDouble(value, 0, 1e6, &f.unmatchedPerSec)) return bad("bad " + name);
    } else if (name == "--fault-flap-every") {
      if (!ParseDouble(value, 0, 1e6, &f.flapEverySec)) return bad("bad " + name);
    } else if (name == "--dev-root") {
      if (value.empty()) return bad("--dev-root needs a directory");
      o->devRoot = value;
    } else if (name == "--buffers") {
      if (!ParseIdList(value, &o->tapOutIds)) return bad("bad --buffers list '" + value + "'");
      o->injectIds = o->tapOutIds;
    } else if (name == "--tapouts") {
      if (!ParseIdList(value, &o->tapOutIds)) return bad("bad --tapouts list '" + value + "'");
    } else if (name == "--injects") {
      if (!ParseIdList(value, &o->injectIds)) return bad("bad --injects list '" + value + "'");
    } else if (name == "--taps") {
      std::string err;
      if (!LoadTapTableFile(value, &o->taps, &err)) return bad(err);
    } else if (name == "--source") {
      if (!SplitAssign(value, &k, &v)) return bad("--source wants TAP=FILE.wav");
      o->sources[k] = v;
    } else if (name == "--record") {
      if (!SplitAssign(value, &k, &v) || !ParseLong(k, 0, 254, &l)) {
        return bad("--record wants ID=FILE.wav");
      }
      o->records[static_cast<int>(l)] = v;
    } else if (name == "--stats") {
      if (value.empty()) return bad("--stats needs a file or -");
      o->statsPath = value;
    } else if (name == "--duration") {
      if (!ParseDouble(value, 0, 1e7, &o->durationSec)) return bad("bad --duration");
    } else if (name == "--ready-file") {
      o->readyFile = value;
    } else if (name == "--node-gap-ms") {
      if (!ParseLong(value, 0, 1000, &l)) return bad("bad --node-gap-ms (0..1000)");
      o->nodeGapMs = static_cast<int>(l);
    } else if (name == "--seed") {
      errno = 0;
      char* end = nullptr;
      unsigned long long s = std::strtoull(value.c_str(), &end, 0);
      if (errno != 0 || value.empty() || *end != '\0') return bad("bad --seed");
      o->seed = s;
    } else if (name == "--fault-restart-every") {
      if (!ParseDouble(value, 0, 1e6, &f.restartEverySec)) return bad("bad " + name);
    } else if (name == "--fault-restart-down-ms") {
      if (!ParseLong(value, 0, 600000, &l)) return bad("bad " + name);
      f.restartDownMs = static_cast<int>(l);
    } else if (name == "--fault-delay-reply-ms") {
      if (!ParseLong(value, 0, 600000, &l)) return bad("bad " + name);
      f.replyDelayMs = static_cast<int>(l);
    } else if (name == "--fault-delay-rate") {
      if (!ParseDouble(value, 0, 1, &f.replyDelayRate)) return bad("bad " + name);
    } else if (name == "--fault-drop-reply") {
      if (!ParseDouble(value, 0, 1, &f.dropReplyRate)) return bad("bad " + name);
    } else if (name == "--fault-stray-reply") {
      if (!ParseDouble(value, 0, 1, &f.strayReplyRate)) return bad("bad " + name);
    } else if (name == "--fault-error-status") {
      long st;
      if (!SplitAssign(value, &k, &v) || !ParseLong(k, 0, 65535, &l) ||
          !ParseLong(v, -32768, 32767, &st)) {
        return bad("--fault-error-status wants OPCODE=STATUS, e.g. 205=-5");
      }
      f.errorStatus[static_cast<uint16_t>(l)] = static_cast<int16_t>(st);
    } else if (name == "--fault-split") {
      if (!ParseDouble(value, 0, 1, &f.splitRate)) return bad("bad " + name);
    } else if (name == "--fault-stale") {
      if (!ParseDouble(value, 0, 1, &f.staleRate)) return bad("bad " + name);
    } else if (name == "--fault-misalign") {
      if (!ParseDouble(value, 0, 1, &f.misalignRate)) return bad("bad " + name);
    } else if (name == "--fault-bad-version") {
      if (!ParseDouble(value, 0, 1, &f.badVersionRate)) return bad("bad " + name);
    } else if (name == "--fault-oversize") {
      if (!ParseDouble(value, 0, 1, &f.oversizeRate)) return bad("bad " + name);
    } else if (name == "--fault-jump") {
      if (!ParseDouble(value, 0, 1, &f.jumpRate)) return bad("bad " + name);
    } else if (name == "--fault-jump-by") {
      if (!ParseLong(value, 1, 0x7FFFFFFF, &l)) return bad("bad " + name);
      f.jumpBy = static_cast<uint32_t>(l);
    } else if (name == "--fault-pause") {
      long ms;
      size_t colon = value.find(':');
      if (colon == std::string::npos || !ParseDouble(value.substr(0, colon), 0.001, 1e6, &d) ||
          !ParseLong(value.substr(colon + 1), 1, 600000, &ms)) {
        return bad("--fault-pause wants SECONDS:MS, e.g. 5:300");
      }
      f.pauseEverySec = d;
      f.pauseMs = static_cast<int>(ms);
    } else if (name == "--fault-piece-gap-us") {
      if (!ParseLong(value, 0, 1000000, &l)) return bad("bad " + name);
      f.pieceGapUs = static_cast<int>(l);
    } else if (name == "--fault-stall-inject") {
      if (!ParseLong(value, 0, 254, &l)) return bad("bad " + name);
      f.stallInjects.insert(static_cast<int>(l));
    } else if (name == "--fault-stall" || name == "--fault-writer-gone" || name == "--fault-burst") {
      long ms;
      size_t colon = value.find(':');
      if (colon == std::string::npos || !ParseDouble(value.substr(0, colon), 0.001, 1e6, &d) ||
          !ParseLong(value.substr(colon + 1), 1, 600000, &ms)) {
        return bad(name + " wants SECONDS:MS, e.g. 5:300");
      }
      double& every = name == "--fault-stall" ? f.stallEverySec
                      : name == "--fault-burst" ? f.burstEverySec
                                                : f.writerGoneEverySec;
      int& len = name == "--fault-stall" ? f.stallMs : name == "--fault-burst" ? f.burstMs : f.writerGoneMs;
      every = d;
      len = static_cast<int>(ms);
    } else if (name == "--fault-tapout") {
      if (!ParseLong(value, 0, 254, &l)) return bad("bad " + name);
      f.tapOutFilter.insert(static_cast<int>(l));
    } else {
      return bad("unknown option '" + arg + "' (see --help)");
    }
  }
  if (printTaps) {
    *message = FormatTapTable(o->taps);
    return ParseOutcome::kExit;
  }
  if (o->devRoot.empty())
    return bad("no device directory: give --dev-root DIR or set LUMX_DEV_ROOT");
  return ParseOutcome::kRun;
}

}  // namespace lumx::dspsim
