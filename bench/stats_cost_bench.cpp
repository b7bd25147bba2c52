// The packet path of a tap-out buffer's I/O thread, driven in process with
// the same input every run, for counting what the dump's counters cost: this
// program is built twice, with the counters (stats_cost_bench) and with them
// compiled out (stats_cost_bench_nostats, -DLUMX_STATS=0), and
// bench/stats_cost.py runs both under callgrind, counting the instructions
// of RunPackets() alone (reassembly, bookkeeping, delivery to a copying
// processor, the write into the inject buffer's device, /dev/null here).
//
// Run alone it also prints the wall time per packet (noisy; the instruction
// counts are what the comparison uses).
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/stats.h"
#include "common/wire.h"
#include "processors/lumx_processor.h"
#include "tests/support/buffer_test_peer.h"

namespace {

constexpr uint32_t kPayload = 480 * 2 * 2;  // 480 samples, 2 channels, 16 bits
constexpr size_t kPacket = kPayload + kLumPacketHeaderSize;

class CopyProcessor : public LumxProcessor {
 public:
  CopyProcessor() : LumxProcessor(0x62656e63 /* "benc" */, kProcessorTypePass) {}
  int Enable(bool enable) override {
    enabled_ = enable;
    return 0;
  }
  int ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize) override {
    if (out != nullptr) memcpy(out, in, std::min(inSize, outSize));
    return countBlock(0);
  }
};

std::vector<uint8_t> g_packet;
uint32_t g_num = 0;

// Everything measured happens in here (callgrind --toggle-collect).
__attribute__((noinline)) void RunPackets(LumxBuffer& tapout, LumxBufferTestPeer::RxState& st, int count) {
  for (int i = 0; i < count; ++i) {
    lumx::PutLe32(&g_packet[kPktNumOffset], ++g_num);
    // One read that holds exactly one packet, as the device gives it.
    if (!LumxBufferTestPeer::Feed(tapout, st, g_packet.data(), g_packet.size())) abort();
  }
}

double NowSeconds() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

}  // namespace

int main(int argc, char** argv) {
  const int packets = argc > 1 ? atoi(argv[1]) : 20000;
  // The every-200th-packet info line is filtered out, as in a quiet log.
  setenv("LUMX_LOG_LEVEL", "W", 1);

  g_packet.assign(kPacket, 0);
  lumx::PutLe32(&g_packet[kPktMagicOffset], kLumPacketMagic);
  lumx::PutLe32(&g_packet[kPktVersionOffset], kLumPacketVersion);
  lumx::PutLe32(&g_packet[kPktPayloadSizeOffset], kPayload);
  lumx::PutLe32(&g_packet[kPktSampleRateOffset], 48000);
  g_packet[kPktChannelsOffset] = 2;
  g_packet[kPktBytesPerSampleOffset] = 2;
  for (size_t i = kLumPacketHeaderSize; i < kPacket; ++i) g_packet[i] = static_cast<uint8_t>(i * 7);

  LumxBuffer tapout("tapout0", "/dev/null", 0, nullptr, true);
  LumxBuffer inject("inject0", "/dev/null", 0, nullptr, false);
  CopyProcessor processor;
  tapout.RegisterOutput(&processor);
  processor.SetInput(&tapout);
  inject.RegisterInput(&processor);
  processor.Enable(true);
  if (inject.Enable(true) != 0) return 1;
  LumxBufferTestPeer::ArmReadBuffer(tapout);
  LumxBufferTestPeer::RxState st;
  LumxBufferTestPeer::StartPacket(st);

  RunPackets(tapout, st, 200);  // first-packet bookkeeping, caches
  const double start = NowSeconds();
  RunPackets(tapout, st, packets);
  const double seconds = NowSeconds() - start;

  printf("counters %s: %d packets of %zu bytes, %.1f ns/packet (wall), %llu written\n",
         lumx::kStatsEnabled ? "on" : "compiled out", packets, kPacket, seconds * 1e9 / packets,
         static_cast<unsigned long long>(lumx::kStatsEnabled ? inject.stats().txPackets.Get() : 0));
  tapout.UnregisterOutput(&processor);
  inject.UnregisterInput();
  inject.Enable(false);
  tapout.Enable(false);
  return 0;
}
