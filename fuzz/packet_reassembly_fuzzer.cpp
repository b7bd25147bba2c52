// Feeds arbitrary device reads to a tap-out buffer's reassembly and delivery
// steps, the way its I/O thread hands them over, with a processor that
// checks what it is given and an enabled inject buffer writing to /dev/null.
//
// Input: a sequence of reads, each a 2-byte little-endian length followed by
// that many bytes (cut to what the thread would have asked for, and to the
// input left).
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "buffer/lumx_buffer.h"
#include "processors/lumx_processor.h"
#include "tests/support/buffer_test_peer.h"

namespace {

class CheckingProcessor : public LumxProcessor {
 public:
  CheckingProcessor() : LumxProcessor(0x66757a7a /* "fuzz" */, 0x66757a7a) {}
  int Enable(bool enable) override {
    enabled_ = enable;
    return 0;
  }
  int ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize) override {
    if (in == nullptr || inSize > kLumMaxPayloadSize || outSize != inSize) abort();
    // Touch every byte so the sanitizers see any read or write past a block.
    uint8_t sum = 0;
    const auto* src = static_cast<const uint8_t*>(in);
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

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The receive path logs every discard; keep the fuzzer's output readable.
  setenv("LUMX_LOG_LEVEL", "F", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Rig* rig = new Rig();
  // Every input starts from a fresh thread state.
  LumxBufferTestPeer::ArmReadBuffer(rig->tapout);
  LumxBufferTestPeer::RxState st;
  LumxBufferTestPeer::StartPacket(st);
  while (size >= 2) {
    size_t n = static_cast<size_t>(data[0]) | (static_cast<size_t>(data[1]) << 8);
    data += 2;
    size -= 2;
    const size_t limit = LumxBufferTestPeer::ReadLimit(rig->tapout, st);
    if (limit == 0 || limit > kLumIoBlockSize) abort();
    if (n > limit) n = limit;
    if (n > size) n = size;
    LumxBufferTestPeer::Feed(rig->tapout, st, data, n);
    data += n;
    size -= n;
  }
  return 0;
}
