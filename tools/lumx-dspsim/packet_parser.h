// Reassembles device packets from a byte stream that arrives in arbitrary
// pieces (what the simulated DSP reads from an inject node).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/lumx-dspsim/wire.h"

namespace lumx::dspsim {

enum class ParseError {
  kSkippedBytes,  // bytes before a packet magic were thrown away
  kBadVersion,    // a header with a version other than 1
  kOversize,      // a header announcing more than 65472 payload bytes
};

class PacketSink {
 public:
  virtual ~PacketSink() = default;
  // `payload` follows the packet's 64 header bytes in memory.
  virtual void OnPacket(const PacketHeader& header, const uint8_t* payload) = 0;
  // `bytes`: how many bytes the error threw away.
  virtual void OnParseError(ParseError error, size_t bytes) = 0;
};

class PacketParser {
 public:
  PacketParser();

  // Consumes `len` bytes; reports every whole packet and every error.
  void Feed(const uint8_t* data, size_t len, PacketSink* sink);
  // Forgets any partial packet.
  void Reset() { begin_ = end_ = 0; }
  size_t buffered() const { return end_ - begin_; }

 private:
  void Parse(PacketSink* sink);

  std::vector<uint8_t> buf_;  // 2 x the largest packet, allocated once
  size_t begin_ = 0;
  size_t end_ = 0;
};

}  // namespace lumx::dspsim
