// The demo's path, as processes: lumx-dspsim, lumxd and the lumx tool.
//
// MIC_IN and SPEAKER_OUT stream the simulator's taps through lumxd and back;
// the simulator checks every packet that comes back (magic, version, size,
// packet_num, format) and times it by the opaque word it stamped, so its
// statistics show whether the audio really went round. A second test takes
// the simulator's place on buffer 20 and compares what comes back with what
// went out, byte for byte. The telephony use case runs with relay clients
// attached, and is switched off under one.
//
// Streaming lasts a few seconds at most; every wait has a generous bound and
// nothing is asserted about speed.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "common/unique_fd.h"
#include "common/wire.h"
#include "support/daemon_test_util.h"
#include "support/system_stack.h"

namespace {

using ::lumx::test::LumxRun;
using ::lumx::test::StreamStat;
using ::lumx::test::SystemStack;
using ::testing::HasSubstr;

constexpr int kWaitMs = 60000;

std::string Describe(const LumxRun& run) {
  return "exit " + std::to_string(run.exitCode) + "\nstdout:\n" + run.out + "stderr:\n" + run.err;
}

class SystemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!stack_.BinariesFound()) GTEST_SKIP() << stack_.error();
  }

  void TearDown() override {
    if (HasFailure()) ADD_FAILURE() << stack_.Logs();
  }

  // Runs lumx and expects exit status 0.
  LumxRun Ok(const std::vector<std::string>& args) {
    LumxRun run = stack_.Lumx(args);
    EXPECT_EQ(0, run.exitCode) << "lumx " << ::testing::PrintToString(args) << "\n" << Describe(run);
    return run;
  }

  // Waits until at least `n` packets came back on inject node `id`; returns
  // the statistics document of that moment.
  std::string WaitForPacketsBack(int id, double n) {
    std::string stats;
    const std::string node = "zch-lumx_inject" + std::to_string(id);
    lumx_test::WaitUntil(
        [&] {
          stats = stack_.SimulatorStats();
          if (StreamStat(stats, node, "packets_received") >= n) return true;
          usleep(200000);
          return false;
        },
        kWaitMs);
    return stats;
  }

  // What the simulator checks on a stream that came back: nothing wrong,
  // every packet carrying the opaque stamp it was sent with.
  void ExpectCleanReturn(const std::string& stats, int id, double atLeast) {
    const std::string in = "zch-lumx_inject" + std::to_string(id);
    const std::string out = "zch-lumx_tapout" + std::to_string(id);
    const double received = StreamStat(stats, in, "packets_received");
    EXPECT_GE(received, atLeast) << stats;
    EXPECT_LE(received, StreamStat(stats, out, "packets_sent")) << stats;
    for (const char* fault : {"errors", "format_mismatch", "bad_version", "unstamped"}) {
      EXPECT_EQ(0, StreamStat(stats, in, fault)) << fault << "\n" << stats;
    }
    EXPECT_EQ(received, StreamStat(stats, in, "count")) << "every packet timed by its opaque stamp\n" << stats;
  }

  SystemStack stack_;
};

TEST_F(SystemTest, MicInThenSpeakerOutStreamRoundTheDsp) {
  ASSERT_TRUE(stack_.StartSimulator()) << stack_.error() << stack_.Logs();
  ASSERT_TRUE(stack_.StartDaemon()) << stack_.error() << stack_.Logs();

  LumxRun on = Ok({"Enable", "mic_in", "1"});
  EXPECT_EQ("Enable Lumx use case 'mic_in'\nEnableUseCase MIC_IN 1\n", on.out);
  EXPECT_THAT(Ok({"ShowGraph"}).out,
              HasSubstr("Connection graph:\n  imic.0 --> tapout20 --> pas1 --> inject20 --> imic.0\n"));
  EXPECT_THAT(Ok({"ListProcessors"}).out, HasSubstr("  pas1      pass      tapout20  inject20  1"));
  EXPECT_THAT(Ok({"ListTapOutBuffers"}).out, HasSubstr("  20        tapout20  -         pas1      1"));
  ExpectCleanReturn(WaitForPacketsBack(20, 100), 20, 100);

  // Switch: MIC_IN off, SPEAKER_OUT (a two-channel tap) on.
  EXPECT_EQ("Disable Lumx use case 'mic_in'\nEnableUseCase MIC_IN 0\n", Ok({"Enable", "mic_in", "0"}).out);
  Ok({"Enable", "speaker_out", "1"});
  EXPECT_THAT(Ok({"ShowGraph"}).out,
              HasSubstr("Connection graph:\n  sspk.0 --> tapout21 --> pas1 --> inject21 --> sspk.0\n"));
  ExpectCleanReturn(WaitForPacketsBack(21, 100), 21, 100);
  Ok({"Enable", "speaker_out", "0"});

  EXPECT_EQ("Lumx processors:\n  none\n", Ok({"ListProcessors"}).out);
  const std::string finalStats = stack_.Stop();
  // Once the path was taken down nothing more came back in error.
  EXPECT_EQ(0, StreamStat(finalStats, "zch-lumx_inject20", "errors")) << finalStats;
  EXPECT_EQ(0, StreamStat(finalStats, "zch-lumx_inject21", "errors")) << finalStats;
}

// ---- Buffer 20 served by the test itself ----

struct Packet {
  std::vector<uint8_t> bytes;  // header and payload
  uint32_t payloadSize() const { return lumx::GetLe32(bytes.data() + 20); }
};

Packet MakePacket(uint64_t opaque, uint32_t packetNum, uint32_t payloadSize, uint32_t rate, uint8_t channels,
                  uint8_t tailSeed, uint32_t* rng) {
  Packet p;
  p.bytes.assign(64 + payloadSize, 0);
  uint8_t* h = p.bytes.data();
  lumx::PutLe32(h + 0, 0x4C756D78);
  lumx::PutLe32(h + 4, 1);
  lumx::PutLe64(h + 8, opaque);
  lumx::PutLe32(h + 16, packetNum);
  lumx::PutLe32(h + 20, payloadSize);
  lumx::PutLe32(h + 24, rate);
  h[28] = channels;
  h[29] = 2;
  for (int i = 30; i < 64; ++i) h[i] = static_cast<uint8_t>(tailSeed + i);
  for (uint32_t i = 0; i < payloadSize; ++i) {
    *rng = *rng * 1664525u + 1013904223u;
    h[64 + i] = static_cast<uint8_t>(*rng >> 24);
  }
  return p;
}

// Reads one whole packet (header, then the payload it announces) from a
// non-blocking descriptor, waiting at most `timeoutMs` in all.
bool ReadPacket(int fd, std::vector<uint8_t>* pending, std::vector<uint8_t>* out, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    if (pending->size() >= 64) {
      const size_t total = 64 + lumx::GetLe32(pending->data() + 20);
      if (total <= 65536 && pending->size() >= total) {
        out->assign(pending->begin(), pending->begin() + static_cast<long>(total));
        pending->erase(pending->begin(), pending->begin() + static_cast<long>(total));
        return true;
      }
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0) return false;
    struct pollfd pfd = {fd, POLLIN, 0};
    if (poll(&pfd, 1, static_cast<int>(std::min<long>(left, 200))) <= 0) continue;
    uint8_t buf[8192];
    const ssize_t n = read(fd, buf, sizeof(buf));
    if (n > 0) pending->insert(pending->end(), buf, buf + n);
    // 0 means no writer yet (or the daemon closed it); keep waiting.
    if (n == 0) usleep(10000);
  }
}

TEST_F(SystemTest, PayloadOpaqueWordAndPacketNumberCarriedThrough) {
  // The simulator keeps the control channel and buffers 21, 40 and 41;
  // buffer 20's two nodes are this test's, so it plays the DSP's data side.
  ASSERT_TRUE(stack_.StartSimulator({"--buffers", "21,40,41"})) << stack_.error() << stack_.Logs();
  const std::string tapOut = stack_.devRoot() + "/zch-lumx_tapout20";
  const std::string inject = stack_.devRoot() + "/zch-lumx_inject20";
  ASSERT_EQ(0, mkfifo(tapOut.c_str(), 0644));
  ASSERT_EQ(0, mkfifo(inject.c_str(), 0644));
  // Held from the start, so the daemon's blocking opens return at once.
  lumx::unique_fd feed(open(tapOut.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  lumx::unique_fd drain(open(inject.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(feed.ok() && drain.ok());
  ASSERT_TRUE(stack_.StartDaemon()) << stack_.error() << stack_.Logs();

  Ok({"Enable", "mic_in", "1"});
  EXPECT_THAT(Ok({"ListInjectBuffers"}).out, HasSubstr("  20        inject20  pas1      -         1"));

  // 40 packets in lock step: each is written, then read back before the
  // next one, so none can be dropped. The format changes once, after 20.
  uint32_t rng = 12345;
  std::vector<uint8_t> pending;
  std::vector<uint8_t> formatTail;  // header bytes 30..63 of the last format change
  for (uint32_t k = 0; k < 40; ++k) {
    const bool stereo = k >= 20;
    const uint64_t opaque = 0x0123456789ABCDEFull ^ (uint64_t{k} * 0x9E3779B97F4A7C15ull);
    const Packet sent = MakePacket(opaque, 7000 + k, stereo ? 1920 : 960, 48000, stereo ? 2 : 1,
                                   static_cast<uint8_t>(k * 3), &rng);
    if (k == 0 || k == 20) formatTail.assign(sent.bytes.begin() + 30, sent.bytes.begin() + 64);
    ASSERT_EQ(static_cast<ssize_t>(sent.bytes.size()), write(feed.get(), sent.bytes.data(), sent.bytes.size()));

    std::vector<uint8_t> got;
    ASSERT_TRUE(ReadPacket(drain.get(), &pending, &got, kWaitMs)) << "packet " << k << " did not come back";
    ASSERT_EQ(sent.bytes.size(), got.size()) << "packet " << k;
    // Magic, version, opaque word, packet_num, payload size and format as sent.
    EXPECT_TRUE(std::equal(sent.bytes.begin(), sent.bytes.begin() + 30, got.begin())) << "header of packet " << k;
    EXPECT_EQ(opaque, lumx::GetLe64(got.data() + 8));
    EXPECT_EQ(7000 + k, lumx::GetLe32(got.data() + 16));
    // The rest of the header comes from the packet that set the format.
    EXPECT_TRUE(std::equal(formatTail.begin(), formatTail.end(), got.begin() + 30)) << "header tail of packet " << k;
    EXPECT_TRUE(std::equal(sent.bytes.begin() + 64, sent.bytes.end(), got.begin() + 64))
        << "payload of packet " << k;
  }
  EXPECT_TRUE(pending.empty()) << pending.size() << " stray bytes";

  Ok({"Enable", "mic_in", "0"});
}

// ---- Telephony with relay clients ----

// A mono 48 kHz 16-bit WAV file of `samples` samples of a ramp.
void WriteWav(const std::string& path, uint32_t samples) {
  std::vector<uint8_t> f(44 + samples * 2, 0);
  auto tag = [&](size_t at, const char* s) { memcpy(f.data() + at, s, 4); };
  tag(0, "RIFF");
  lumx::PutLe32(f.data() + 4, static_cast<uint32_t>(f.size() - 8));
  tag(8, "WAVE");
  tag(12, "fmt ");
  lumx::PutLe32(f.data() + 16, 16);
  lumx::PutLe16(f.data() + 20, 1);
  lumx::PutLe16(f.data() + 22, 1);
  lumx::PutLe32(f.data() + 24, 48000);
  lumx::PutLe32(f.data() + 28, 96000);
  lumx::PutLe16(f.data() + 32, 2);
  lumx::PutLe16(f.data() + 34, 16);
  tag(36, "data");
  lumx::PutLe32(f.data() + 40, samples * 2);
  for (uint32_t i = 0; i < samples; ++i) lumx::PutLe16(f.data() + 44 + 2 * i, static_cast<uint16_t>(i * 7));
  ASSERT_TRUE(lumx_test::WriteFileText(path, std::string(f.begin(), f.end())));
}

off_t FileSize(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

TEST_F(SystemTest, TelephonyOnAndOffWithRelayClientsAttached) {
  ASSERT_TRUE(stack_.StartSimulator()) << stack_.error() << stack_.Logs();
  ASSERT_TRUE(stack_.StartDaemon()) << stack_.error() << stack_.Logs();

  EXPECT_EQ("Enable Lumx use case 'arel_tele'\nEnableUseCase AREL_TELE 1\n", Ok({"Enable", "arel_tele", "1"}).out);
  EXPECT_EQ("IsUseCaseEnabled AREL_TELE\nvalue: 1.000000\n", Ok({"IsEnabled", "arel_tele"}).out);
  EXPECT_THAT(Ok({"ShowGraph"}).out, HasSubstr("  vpdl.0 --> tapout40 --> art0 --> inject40 --> vpdl.0\n"
                                               "  vpul.1 --> tapout41 --> art1 --> inject41 --> vpul.1\n"));

  // A client that records art0's audio and answers with its own for 3 s.
  const std::string played = stack_.Path("play.wav");
  WriteWav(played, 48000);
  const std::string recorded = stack_.Path("art0.wav");
  LumxRun relay = stack_.Lumx({"relay", "art0", "--record", recorded, "--play", played, "--seconds", "3",
                               "--json-stats"});
  ASSERT_EQ(0, relay.exitCode) << Describe(relay);
  EXPECT_GT(::lumx::test::JsonNumber(relay.out, "packets"), 0) << relay.out;
  EXPECT_GT(::lumx::test::JsonNumber(relay.out, "sent"), 0) << relay.out;
  EXPECT_EQ(0, ::lumx::test::JsonNumber(relay.out, "sendErrors")) << relay.out;
  EXPECT_EQ(0, ::lumx::test::JsonNumber(relay.out, "badPackets")) << relay.out;
  EXPECT_GT(FileSize(recorded), 44) << "no audio recorded";
  ExpectCleanReturn(WaitForPacketsBack(40, 1), 40, 1);

  // A second client on art1 stays attached while the use case goes off.
  const std::string art1Wav = stack_.Path("art1.wav");
  lumx_test::Subprocess attached;
  ASSERT_TRUE(stack_.StartLumx(&attached, "relay-art1", {"relay", "art1", "--record", art1Wav, "--seconds", "120"}));
  ASSERT_TRUE(lumx_test::WaitUntil([&] { return FileSize(art1Wav) > 44 + 9600 || !attached.Running(); }, kWaitMs))
      << "art1's client never received audio";
  ASSERT_TRUE(attached.Running()) << lumx_test::ReadFileText(stack_.Path("relay-art1.err"));

  EXPECT_EQ("Disable Lumx use case 'arel_tele'\nEnableUseCase AREL_TELE 0\n", Ok({"Enable", "arel_tele", "0"}).out);
  EXPECT_EQ("IsUseCaseEnabled AREL_TELE\nvalue: 0.000000\n", Ok({"IsEnabled", "arel_tele"}).out);
  EXPECT_EQ("Lumx processors:\n  none\n", Ok({"ListProcessors"}).out);

  // The client ends on request; the daemon goes on serving.
  attached.Signal(SIGTERM);
  int status = 0;
  ASSERT_TRUE(attached.WaitExit(kWaitMs, &status));
  EXPECT_TRUE(WIFEXITED(status)) << "relay client ended by signal " << WTERMSIG(status);
  EXPECT_THAT(lumx_test::ReadFileText(stack_.Path("relay-art1.out")), HasSubstr("packets received: "));
  Ok({"Ping"});

  // And the use case can be built again from scratch.
  Ok({"Enable", "arel_tele", "1"});
  Ok({"Enable", "arel_tele", "0"});
  EXPECT_EQ("IsUseCaseEnabled AREL_TELE\nvalue: 0.000000\n", Ok({"IsEnabled", "arel_tele"}).out);
}

}  // namespace

// Texts the daemon cuts in fixed buffers, or names made from a client's four
// bytes, must still be sendable: a character split at the end would make the
// whole answer fail in transport on a device, as it does on the host.
TEST_F(SystemTest, TextsCutInsideACharacterStillTravel) {
  ASSERT_TRUE(stack_.StartSimulator()) << stack_.error() << stack_.Logs();
  ASSERT_TRUE(stack_.StartDaemon()) << stack_.error() << stack_.Logs();
  // 22 bytes of heading leave 41 of the 63 for the name: 40 'a', then the
  // first byte of an e-acute (C3 A9) that the cut would split.
  const std::string name = std::string(40, 'a') + "\xc3\xa9";
  LumxRun run = stack_.Lumx({"Enable", name, "1"});
  EXPECT_EQ(1, run.exitCode) << Describe(run);
  EXPECT_EQ(0u, run.out.find("Enable Lumx use case '" + std::string(40, 'a') + "\n")) << Describe(run);

  // An id whose last byte starts a two-byte character.
  Ok({"NewProcessorWithType", "0x414243c3", "pass"});
  run = Ok({"ProcessorInfo", "0x414243c3"});
  EXPECT_THAT(run.out, HasSubstr("  Id:      ABC\n")) << Describe(run);
  Ok({"DeleteProcessor", "0x414243c3"});
}
