// The data nodes: FIFOs standing in for the driver's tap-out and inject
// character devices.
//
// Tap-out: the simulator holds only a write end. A client's blocking
// O_RDONLY open therefore returns at once and never sees end-of-file while
// the simulator is between packets; while no client reads, writes fail with
// EPIPE and packets are dropped instead of piling up in the pipe. (Creating
// a tap-out node sets SIGPIPE to be ignored if it has its default action.)
//
// Inject: the simulator holds a read end (so a client's blocking O_WRONLY
// open returns at once) and an idle write end (so the read end never reports
// end-of-file or hang-up when the client closes).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "tools/lumx-dspsim/packet_parser.h"

namespace lumx::dspsim {

std::string TapOutNodeName(int id);  // "zch-lumx_tapout<id>"
std::string InjectNodeName(int id);  // "zch-lumx_inject<id>"

class TapOutNode {
 public:
  enum class Flush {
    kIdle,          // nothing queued
    kDone,          // the queued packet is now written whole
    kWaitTime,      // the next piece is due later (a split fault)
    kWaitWritable,  // the pipe is full
    kNoReader,      // nobody has the node open: the packet was dropped
    kError,         // write error: the packet was dropped
    kWriterGone,    // the write end is away (fault): the packet was dropped
  };

  TapOutNode(int id, std::string path) : id_(id), path_(std::move(path)) {}
  int id() const { return id_; }
  const std::string& path() const { return path_; }

  bool Create(std::string* error);
  // Unlinks the node. The write end goes to `orphans` so a client that still
  // has it open sees silence (not end-of-file) until it closes.
  void Remove(std::vector<lumx::unique_fd>* orphans);
  bool exists() const { return fd_.ok() || writerGone_; }
  int fd() const { return fd_.get(); }

  // A vanishing writer: closes the write end, so a reader that has the node
  // open sees end of file, while the node stays in place. RestoreWriter()
  // opens a write end again (no-op unless the writer is away).
  void DropWriter();
  bool RestoreWriter();
  bool writerGone() const { return writerGone_; }

  // Queues one packet: `n` bytes built in the returned buffer (valid until
  // the next call), written in pieces that end at `ends` (ascending, last ==
  // n), piece k not before `notBefore[k]`.
  uint8_t* Begin(size_t n);
  void AddPiece(size_t end, int64_t notBefore);
  bool busy() const { return piece_ < pieces_.size(); }
  bool wantsWritable() const { return busy() && waitWritable_; }
  // Earliest time a queued piece becomes due (0 when none waits for time).
  int64_t nextPieceTime() const;
  // Writes what is due; `bytesWritten` adds the bytes that went out. With
  // `rush`, pieces still waiting for their time go out now as well (the next
  // packet is due), each in its own write.
  Flush Write(int64_t nowNs, uint64_t* bytesWritten, bool rush = false);
  void Discard();

 private:
  struct Piece {
    size_t end;
    int64_t notBefore;
  };
  void DrainLeftovers();

  int id_;
  std::string path_;
  lumx::unique_fd fd_;
  std::vector<uint8_t> buf_;
  std::vector<Piece> pieces_;
  size_t piece_ = 0;
  size_t pos_ = 0;
  bool waitWritable_ = false;
  bool readerSeen_ = false;
  bool writerGone_ = false;
};

class InjectNode {
 public:
  InjectNode(int id, std::string path) : id_(id), path_(std::move(path)) {}
  int id() const { return id_; }
  const std::string& path() const { return path_; }

  bool Create(std::string* error);
  // Unlinks the node; the read end goes to `orphans` and is drained until the
  // client closes its write end.
  void Remove(std::vector<lumx::unique_fd>* orphans);
  bool exists() const { return reader_.ok(); }
  int fd() const { return reader_.get(); }

  PacketParser& parser() { return parser_; }

 private:
  int id_;
  std::string path_;
  lumx::unique_fd reader_;
  lumx::unique_fd idleWriter_;
  PacketParser parser_;
};

}  // namespace lumx::dspsim
