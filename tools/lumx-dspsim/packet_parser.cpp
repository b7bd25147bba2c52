#include "tools/lumx-dspsim/packet_parser.h"

#include <algorithm>
#include <cstring>

namespace lumx::dspsim {

namespace {
const uint8_t kMagicBytes[4] = {'x', 'm', 'u', 'L'};
}

PacketParser::PacketParser() : buf_(2 * kMaxPacketSize) {}

void PacketParser::Feed(const uint8_t* data, size_t len, PacketSink* sink) {
  while (len > 0) {
    if (end_ == buf_.size()) {
      // Compact: move the unparsed bytes to the front.
      std::memmove(buf_.data(), buf_.data() + begin_, end_ - begin_);
      end_ -= begin_;
      begin_ = 0;
    }
    size_t n = std::min(len, buf_.size() - end_);
    std::memcpy(buf_.data() + end_, data, n);
    end_ += n;
    data += n;
    len -= n;
    Parse(sink);
  }
}

void PacketParser::Parse(PacketSink* sink) {
  for (;;) {
    size_t avail = end_ - begin_;
    if (avail < 4) return;
    const uint8_t* p = buf_.data() + begin_;
    if (std::memcmp(p, kMagicBytes, 4) != 0) {
      const uint8_t* hit = static_cast<const uint8_t*>(memmem(p + 1, avail - 1, kMagicBytes, 4));
      size_t skip;
      if (hit != nullptr) {
        skip = static_cast<size_t>(hit - p);
      } else {
        // Keep only a tail that may begin a magic split across reads.
        size_t keep = 3;
        while (keep > 0 && std::memcmp(p + avail - keep, kMagicBytes, keep) != 0) --keep;
        skip = avail - keep;
      }
      begin_ += skip;
      sink->OnParseError(ParseError::kSkippedBytes, skip);
      continue;
    }
    if (avail < kPacketHeaderSize) return;
    PacketHeader h = DecodePacketHeader(p);
    if (h.version != kPacketVersion) {
      begin_ += 4;
      sink->OnParseError(ParseError::kBadVersion, 4);
      continue;
    }
    if (h.payloadSize > kMaxPayloadSize) {
      begin_ += 4;
      sink->OnParseError(ParseError::kOversize, 4);
      continue;
    }
    size_t total = kPacketHeaderSize + h.payloadSize;
    if (avail < total) {
      if (begin_ > 0 && begin_ + total > buf_.size()) {
        std::memmove(buf_.data(), buf_.data() + begin_, avail);
        begin_ = 0;
        end_ = avail;
      }
      return;
    }
    sink->OnPacket(h, p + kPacketHeaderSize);
    begin_ += total;
    if (begin_ == end_) begin_ = end_ = 0;
  }
}

}  // namespace lumx::dspsim
