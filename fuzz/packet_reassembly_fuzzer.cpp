// Feeds device reads to a tap-out buffer's reassembly and delivery steps, the
// way its I/O thread hands them over, and checks what comes out.
//
// Odd first byte: the rest is arbitrary reads, each a 2-byte little-endian
// length and that many bytes (cut to what the thread would ask for): only
// memory safety and the processor's view of its blocks are checked.
//
// Even first byte: the input builds a stream of packets, some broken (bad
// magic, bad version, oversized payload field, junk without a packet start),
// cut into reads of fuzz-chosen sizes (whole 8-byte words). Every payload
// delivered must be one of the whole packets fed, byte for byte, in feeding
// order, none twice; a broken packet is never delivered. With no broken
// packet in the stream, every packet is delivered.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"
#include "processors/lumx_processor.h"
#include "tests/support/buffer_test_peer.h"

namespace {

constexpr uint32_t kMagic = 0x4C756D78;  // "xmuL"
using Bytes = std::vector<uint8_t>;

class CheckingProcessor : public LumxProcessor {
 public:
  CheckingProcessor() : LumxProcessor(0x66757a7a /* "fuzz" */, 0x66757a7a) {}
  int Enable(bool enable) override {
    enabled_ = enable;
    return 0;
  }
  int ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize) override {
    if (in == nullptr || inSize > 65472 || outSize != inSize) abort();
    const auto* src = static_cast<const uint8_t*>(in);
    if (record) delivered.emplace_back(src, src + inSize);
    uint8_t sum = 0;
    for (size_t i = 0; i < inSize; ++i) sum ^= src[i];
    if (out != nullptr) {
      auto* dst = static_cast<uint8_t*>(out);
      for (size_t i = 0; i < outSize; ++i) {
        if (dst[i] != 0) abort();  // the payload is zero-filled before the call
        dst[i] = src[i] ^ sum;
      }
    }
    return (sum & 1) ? -1 : 0;
  }
  bool record = false;
  std::vector<Bytes> delivered;
};

struct Rig {
  Rig() {
    LumxBufferTestPeer::ArmReadBuffer(tapout);
    tapout.RegisterOutput(&withOutput);
    tapout.RegisterOutput(&withoutOutput);
    withOutput.SetInput(&tapout);
    withoutOutput.SetInput(&tapout);
    inject.RegisterInput(&withOutput);
    inject.Enable(true);
  }
  LumxBuffer tapout{"tapout0", "/nonexistent", 0, nullptr, true};
  LumxBuffer inject{"inject0", "/dev/null", 0, nullptr, false};
  CheckingProcessor withOutput;
  CheckingProcessor withoutOutput;
};

void Put32(Bytes& b, size_t at, uint32_t v) { lumx::PutLe32(b.data() + at, v); }

// No word of a packet but its first may read as a packet start.
void ClearStarts(Bytes& b, size_t from) {
  for (size_t i = from; i + 4 <= b.size(); i += 4) {
    if (lumx::GetLe32(b.data() + i) == kMagic) b[i] ^= 0x01;
  }
}

void FeedRaw(Rig& rig, LumxBufferTestPeer::RxState& st, const uint8_t* data, size_t size) {
  while (size >= 2) {
    size_t n = static_cast<size_t>(data[0]) | (static_cast<size_t>(data[1]) << 8);
    data += 2;
    size -= 2;
    const size_t limit = LumxBufferTestPeer::ReadLimit(rig.tapout, st);
    if (limit == 0 || limit > 65536) abort();
    if (n > limit) n = limit;
    if (n > size) n = size;
    LumxBufferTestPeer::Feed(rig.tapout, st, data, n);
    data += n;
    size -= n;
  }
}

void FeedPackets(Rig& rig, LumxBufferTestPeer::RxState& st, FuzzedDataProvider& in) {
  Bytes stream;
  std::vector<Bytes> whole;  // payloads of the packets fed intact, in order
  bool broken = false;
  const int count = in.ConsumeIntegralInRange<int>(1, 12);
  for (int i = 0; i < count; ++i) {
    const int kind = in.ConsumeIntegralInRange<int>(0, 7);  // 0-3 whole, then the broken kinds
    const size_t payload = 8 * in.ConsumeIntegralInRange<size_t>(1, 512);
    Bytes p = in.ConsumeBytes<uint8_t>(64 + payload);
    p.resize(64 + payload);
    Put32(p, 0, kMagic);
    Put32(p, 4, 1);
    Put32(p, 20, static_cast<uint32_t>(payload));
    Put32(p, 64, static_cast<uint32_t>(i));  // every payload is distinct
    ClearStarts(p, 4);
    if (kind == 4) p[in.ConsumeIntegralInRange<size_t>(0, 3)] ^= 1 + in.ConsumeIntegral<uint8_t>() % 255;
    if (kind == 5) Put32(p, 4, 2 + in.ConsumeIntegral<uint8_t>());
    if (kind == 6) Put32(p, 20, 65473 + in.ConsumeIntegral<uint16_t>());
    if (kind == 7) Put32(p, 0, 0);  // junk: no packet start at all
    if (kind < 4) whole.emplace_back(p.begin() + 64, p.end());
    broken = broken || kind >= 4;
    stream.insert(stream.end(), p.begin(), p.end());
  }
  rig.withoutOutput.record = true;
  rig.withoutOutput.delivered.clear();
  for (size_t pos = 0; pos < stream.size();) {
    const size_t limit = LumxBufferTestPeer::ReadLimit(rig.tapout, st);
    if (limit == 0 || limit % 8 != 0) abort();
    size_t n = in.remaining_bytes() == 0 ? limit : 8 * in.ConsumeIntegralInRange<size_t>(1, limit / 8);
    if (n > stream.size() - pos) n = stream.size() - pos;
    LumxBufferTestPeer::Feed(rig.tapout, st, stream.data() + pos, n);
    pos += n;
  }
  rig.withoutOutput.record = false;
  // In order and each at most once: walk the fed list alongside.
  size_t next = 0;
  for (const Bytes& got : rig.withoutOutput.delivered) {
    while (next < whole.size() && whole[next] != got) ++next;
    if (next == whole.size()) abort();  // not fed intact, repeated or out of order
    ++next;
  }
  if (!broken && rig.withoutOutput.delivered.size() != whole.size()) abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The receive path logs every discard; keep the fuzzer's output readable.
  setenv("LUMX_LOG_LEVEL", "F", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Rig* rig = new Rig();
  if (size == 0) return 0;
  // Every input starts from a fresh thread state.
  LumxBufferTestPeer::ArmReadBuffer(rig->tapout);
  LumxBufferTestPeer::RxState st;
  LumxBufferTestPeer::StartPacket(st);
  if (data[0] & 1) {
    FeedRaw(*rig, st, data + 1, size - 1);
  } else {
    FuzzedDataProvider in(data + 1, size - 1);
    FeedPackets(*rig, st, in);
  }
  return 0;
}
