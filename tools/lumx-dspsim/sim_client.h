// Minimal peers of the simulated driver, for tests and demos: a control
// client that talks to zch-lumx_control the way the daemon does (O_RDWR |
// O_NONBLOCK, one write per request, select, one read of the same size), and
// a reader of tap-out nodes that reassembles packets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "tools/lumx-dspsim/packet_parser.h"
#include "tools/lumx-dspsim/wire.h"

namespace lumx::dspsim {

// A zeroed request of `size` bytes with the header filled in.
std::vector<uint8_t> MakeRequest(uint16_t opcode, size_t size, uint8_t id = 0);
// A request addressing one tap (code at 8, index at 12, core at 13); info
// requests get 0xFF at 26 and 27 like the daemon sends them.
std::vector<uint8_t> MakeTapRequest(uint16_t opcode, uint8_t core, const char* code, uint8_t index,
                                    uint8_t id = 0);

class ControlClient {
 public:
  bool Open(const std::string& path);
  void Close() { fd_.reset(); }
  int fd() const { return fd_.get(); }

  bool Send(const std::vector<uint8_t>& request);
  // Waits up to `timeoutMs` for a reply and reads it with one read() of
  // `size` bytes. False on time-out; `out` then is empty.
  bool Receive(size_t size, int timeoutMs, std::vector<uint8_t>* out);
  // Send, then Receive of the request's size; the reply replaces *msg.
  bool Exchange(std::vector<uint8_t>* msg, int timeoutMs);

 private:
  lumx::unique_fd fd_;
};

struct ReadPacket {
  PacketHeader header;
  std::vector<uint8_t> rawHeader;  // the 64 header bytes as received
  std::vector<uint8_t> payload;
};

class TapOutReader : private PacketSink {
 public:
  // Opens like the daemon: O_RDONLY (blocking open), then non-blocking.
  bool Open(const std::string& path);
  void Close() { fd_.reset(); }
  int fd() const { return fd_.get(); }

  // Next whole packet, waiting up to `timeoutMs` in total.
  bool Next(int timeoutMs, ReadPacket* out);

  // What reassembly saw so far.
  std::vector<size_t> readSizes;  // size of every read() (bounded to 4096 entries)
  uint64_t skippedBytes = 0;
  uint64_t resyncs = 0;
  uint64_t badVersion = 0;
  uint64_t oversize = 0;

 private:
  void OnPacket(const PacketHeader& header, const uint8_t* payload) override;
  void OnParseError(ParseError error, size_t bytes) override;

  lumx::unique_fd fd_;
  PacketParser parser_;
  std::vector<ReadPacket> ready_;
  std::vector<uint8_t> buf_;
};

}  // namespace lumx::dspsim
