// AudioRelayProcessor: capture, client exchange, test tone and output fan-out
// of ProcessBlock; SendAudio's checks and single slot; the relay's
// parameters; concurrent use from several threads. The client's sender
// thread and its faults: processor_relay_client_test.cpp.
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "lumx_host/log_capture.h"
#include "processors/audio_relay_processor.h"
#include "support/processor_test_util.h"

namespace {

using ::lumx::test::processor::Ramp;
using ::lumx::test::processor::RampBlock;
using ::lumx::test::processor::RecordingCallback;
using ::lumx::test::processor::RelayPacket;
using ::lumx::test::processor::Samples16;
using ::lumx::test::processor::WiredBuffers;
using ::testing::Contains;
using ::testing::Each;
using ::testing::Eq;
using Status = CommandResult::Status;

constexpr uint32_t kArl1 = 0x61726c31;  // "arl1": not a telephony id
constexpr uint32_t kFrame = 480;

ParamValue Int(int32_t v) { return ParamValue::make<ParamValue::Tag::i>(v); }

std::vector<int16_t> Constant(size_t n, int16_t v) { return std::vector<int16_t>(n, v); }

class ProcessorRelayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    buffers_.Wire(&relay_);
    buffers_.SetTapFormat(48000, 1, 2);
    capture_.setEcho(false);
  }

  void Enable() { ASSERT_EQ(0, relay_.Enable(true)); }

  std::shared_ptr<RecordingCallback> Client() {
    auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
    relay_.RegisterReceiveAudioCallback(cb);
    return cb;
  }

  // One block through the relay; returns its status and leaves the output
  // in out_ (zero-filled first, as the I/O thread does).
  int Block(const std::vector<uint8_t>& in) {
    out_.assign(in.size(), 0);
    return relay_.ProcessBlock(in.data(), in.size(), out_.data(), out_.size());
  }

  std::vector<int16_t> OutSamples() const { return Samples16(out_); }

  ::lumx_host::LogCapture capture_;
  WiredBuffers buffers_;
  AudioRelayProcessor relay_{kArl1};
  std::vector<uint8_t> out_;
};

TEST_F(ProcessorRelayTest, WithoutAClientTheFirstChannelGoesBackOnEveryChannel) {
  Enable();
  const std::vector<uint8_t> mono = RampBlock(4800, 1);
  ASSERT_EQ(9600u, mono.size());
  EXPECT_EQ(0, Block(mono));
  EXPECT_EQ(mono, out_);

  buffers_.SetTapFormat(48000, 2, 2);
  ASSERT_EQ(0, Block(RampBlock(4800, 2)));
  const std::vector<int16_t> out = OutSamples();
  ASSERT_EQ(9600u, out.size());
  for (uint32_t f = 0; f < 10; ++f) {
    for (uint32_t c = 0; c < 2; ++c) {
      for (uint32_t i = 0; i < kFrame; ++i) {
        ASSERT_EQ(Ramp(0, f * kFrame + i), out[(f * 2 + c) * kFrame + i]) << "frame " << f << " ch " << c;
      }
    }
  }
}

TEST_F(ProcessorRelayTest, ClientHearsTheFirstChannelAsMono16BitPacketsEvenWithoutAnOutput) {
  buffers_.SetTapFormat(48000, 2, 2);
  Enable();
  auto client = Client();
  const std::vector<uint8_t> in = RampBlock(4800, 2);
  ASSERT_EQ(0, relay_.ProcessBlock(in.data(), in.size(), nullptr, in.size()));
  ASSERT_TRUE(client->WaitFor(1));
  std::vector<int16_t> heard(4800);
  for (uint32_t k = 0; k < 4800; ++k) heard[k] = Ramp(0, k);
  // processor_id, then 5 (48 kHz), 0, 1 (16 bits), 1 channel, 1.
  EXPECT_EQ(RelayPacket(kArl1, heard), client->last());
}

TEST_F(ProcessorRelayTest, InvalidTapFormatsAndBlockSizesFailTheBlock) {
  Enable();
  const std::vector<uint8_t> in = RampBlock(4800, 1);
  const auto fails = [&](const std::vector<uint8_t>& block, const char* line) {
    capture_.clear();
    EXPECT_EQ(-1, Block(block)) << line;
    EXPECT_THAT(out_, Each(Eq(0))) << line;
    EXPECT_THAT(capture_.entries(), Contains(::lumx_host::LogEntry{ANDROID_LOG_ERROR, "lumx", line}));
  };
  struct Case {
    uint32_t rate;
    uint8_t ch, bps;
    const char* line;
  };
  for (const Case& c : {Case{44100, 1, 2, "Invalid tap format (sample rate 44100, ch 1, bytes/sample 2)"},
                        Case{48000, 3, 2, "Invalid tap format (sample rate 48000, ch 3, bytes/sample 2)"},
                        Case{48000, 0, 2, "Invalid tap format (sample rate 48000, ch 0, bytes/sample 2)"},
                        Case{48000, 1, 4, "Invalid tap format (sample rate 48000, ch 1, bytes/sample 4)"}}) {
    buffers_.SetTapFormat(c.rate, c.ch, c.bps);
    fails(in, c.line);
  }
  buffers_.SetTapFormat(48000, 1, 2);
  fails(std::vector<uint8_t>(9598, 1), "arl1 ProcessBlock: Unexpected number of samples (4799 != 4800, num_ch = 1)");
  // Two channels' worth of bytes on a one-channel tap is twice too long.
  fails(std::vector<uint8_t>(19200, 1), "arl1 ProcessBlock: Unexpected number of samples (9600 != 4800, num_ch = 1)");
  // The smaller of the two sizes counts.
  std::vector<uint8_t> out(9598, 0);
  EXPECT_EQ(-1, relay_.ProcessBlock(in.data(), in.size(), out.data(), out.size()));
}

TEST_F(ProcessorRelayTest, DisabledDoesNothingAndUnwiredFails) {
  const std::vector<uint8_t> in = RampBlock(4800, 1);
  EXPECT_EQ(0, Block(in));  // never enabled
  EXPECT_THAT(out_, Each(Eq(0)));
  Enable();
  ASSERT_EQ(0, relay_.Enable(false));
  EXPECT_EQ(0, Block(in));
  EXPECT_THAT(out_, Each(Eq(0)));

  AudioRelayProcessor unwired(kArl1);
  ASSERT_EQ(0, unwired.Enable(true));  // enabling needs no wiring
  std::vector<uint8_t> out(in.size(), 0);
  EXPECT_EQ(-1, unwired.ProcessBlock(in.data(), in.size(), out.data(), out.size()));
  // Counted: blocks handled while enabled, and the failed ones among them.
  EXPECT_EQ((std::vector<uint64_t>{0, 0, 1, 1}), (std::vector<uint64_t>{relay_.blocksProcessed(), relay_.blocksFailed(),
                                                                       unwired.blocksProcessed(), unwired.blocksFailed()}));
}

TEST_F(ProcessorRelayTest, OneSendAudioSlotTheLastWinsAndOneBlockCarriesIt) {
  Enable();
  auto client = Client();
  const std::vector<uint8_t> in = RampBlock(4800, 1);
  const auto blockOut = [&] {
    EXPECT_EQ(0, Block(in));
    return OutSamples();
  };
  EXPECT_EQ(Constant(4800, 0), blockOut());  // a client that sent nothing: silence

  std::vector<int16_t> speech(4800);
  for (size_t i = 0; i < speech.size(); ++i) speech[i] = static_cast<int16_t>(i * 3 - 7000);
  ASSERT_EQ(0, relay_.SendAudio(RelayPacket(kArl1, speech)));
  EXPECT_EQ(speech, blockOut());
  EXPECT_EQ(Constant(4800, 0), blockOut());
  // What the client heard was always the capture, never its own audio.
  ASSERT_TRUE(client->WaitFor(3));
  for (const AudioPacket& p : client->all()) EXPECT_EQ(in, p.data);

  // Short data is padded with silence, long data cut, empty data is silence.
  ASSERT_EQ(0, relay_.SendAudio(RelayPacket(kArl1, Constant(4800, 11))));
  ASSERT_EQ(0, relay_.SendAudio(RelayPacket(kArl1, Constant(100, 22))));
  std::vector<int16_t> padded = Constant(4800, 0);
  std::fill(padded.begin(), padded.begin() + 100, 22);
  EXPECT_EQ(padded, blockOut());
  ASSERT_EQ(0, relay_.SendAudio(RelayPacket(kArl1, Constant(30000, 33))));
  EXPECT_EQ(Constant(4800, 33), blockOut());
  ASSERT_EQ(0, relay_.SendAudio(RelayPacket(kArl1, Constant(4800, 44))));
  ASSERT_EQ(0, relay_.SendAudio(RelayPacket(kArl1, {})));
  EXPECT_EQ(Constant(4800, 0), blockOut());
}

TEST_F(ProcessorRelayTest, SendAudioChecksEachCodeInOrder) {
  // Before the first enable nothing matches, not even the id.
  EXPECT_EQ(-1, relay_.SendAudio(RelayPacket(kArl1, Constant(4800, 1))));
  EXPECT_TRUE(capture_.contains("SendAudio arl1: processor_id mismatch"));
  Enable();

  struct Case {
    void (*edit)(AudioPacket&);
    const char* line;
  };
  const Case cases[] = {
      {[](AudioPacket& p) { p.processor_id = 0x61726c32; }, "SendAudio arl1: processor_id mismatch"},
      {[](AudioPacket& p) {
         p.sampleRate = 4;
         p.format = 9;
       },
       "SendAudio arl1: sampleRate mismatch"},
      {[](AudioPacket& p) {
         p.format = 1;
         p.numChannels = 2;
       },
       "SendAudio arl1: format mismatch"},
      {[](AudioPacket& p) { p.bitsPerSample = 3; }, "SendAudio arl1: bitsPerSample mismatch"},
      {[](AudioPacket& p) { p.numChannels = 2; }, "SendAudio arl1: numChannels mismatch"},
  };
  for (const Case& c : cases) {
    AudioPacket p = RelayPacket(kArl1, Constant(4800, 5));
    c.edit(p);
    capture_.clear();
    EXPECT_EQ(-1, relay_.SendAudio(p)) << c.line;
    EXPECT_THAT(capture_.entries(), Contains(::lumx_host::LogEntry{ANDROID_LOG_ERROR, "lumx", c.line}));
  }
  // The field after numChannels is not compared.
  AudioPacket p = RelayPacket(kArl1, Constant(4800, 5));
  p.reserved = 77;
  EXPECT_EQ(0, relay_.SendAudio(p));

  // A refused packet never reached the slot: the next block is silent.
  auto client = Client();
  ASSERT_EQ(0, Block(RampBlock(4800, 1)));
  EXPECT_EQ(Constant(4800, 5), OutSamples());
  ASSERT_EQ(-1, relay_.SendAudio(RelayPacket(kArl1 + 1, Constant(4800, 9))));
  ASSERT_EQ(0, Block(RampBlock(4800, 1)));
  EXPECT_EQ(Constant(4800, 0), OutSamples());
}

// Passthrough mode skips the client, and so does registering no callback;
// the client's audio waits for the first block that exchanges.
TEST_F(ProcessorRelayTest, PassthroughOrNoCallbackSkipsTheClient) {
  Enable();
  auto client = Client();
  const std::vector<uint8_t> in = RampBlock(4800, 1);
  ASSERT_EQ(0, relay_.SendAudio(RelayPacket(kArl1, Constant(4800, 44))));
  ASSERT_EQ(Status::OK, relay_.SetParameter(ParameterId::PASSTHROUGH_MODE, 0, Int(1)));
  ASSERT_EQ(0, Block(in));
  EXPECT_EQ(in, out_);
  ASSERT_EQ(Status::OK, relay_.SetParameter(ParameterId::PASSTHROUGH_MODE, 0, Int(0)));
  ASSERT_EQ(0, Block(in));
  EXPECT_EQ(Constant(4800, 44), OutSamples());
  ASSERT_TRUE(client->WaitFor(1));
  relay_.RegisterReceiveAudioCallback(nullptr);  // the sender has ended on return
  ASSERT_EQ(0, Block(in));
  EXPECT_EQ(in, out_);
  EXPECT_EQ(1u, client->count());
}

TEST_F(ProcessorRelayTest, BlockLengthChangeRestartsARunningRelayOrStopsItWhenRefused) {
  Enable();
  auto client = Client();
  ASSERT_EQ(Status::OK, relay_.SetParameter(ParameterId::BLOCK_LENGTH, 0, Int(960)));
  EXPECT_TRUE(relay_.IsEnabled());
  EXPECT_EQ(-1, Block(RampBlock(4800, 1)));
  EXPECT_TRUE(capture_.contains("(4800 != 960, num_ch = 1)"));
  ASSERT_EQ(0, Block(RampBlock(960, 1)));
  ASSERT_TRUE(client->WaitFor(1));
  EXPECT_EQ(1920u, client->last().data.size());

  EXPECT_EQ(Status::INVALID_VALUE, relay_.SetParameter(ParameterId::BLOCK_LENGTH, 0, Int(500)));
  EXPECT_FALSE(relay_.IsEnabled());
  EXPECT_EQ(960u, relay_.blockLength());
  EXPECT_EQ(0, Block(RampBlock(960, 1)));

  // On a disabled relay the new length waits for the next enable.
  ASSERT_EQ(Status::OK, relay_.SetParameter(ParameterId::BLOCK_LENGTH, 0, Int(24000)));
  EXPECT_FALSE(relay_.IsEnabled());
  Enable();
  ASSERT_EQ(0, Block(RampBlock(24000, 1)));
  ASSERT_TRUE(client->WaitFor(2));
  EXPECT_EQ(2u, client->count());  // nothing from the stopped relay
  EXPECT_EQ(48000u, client->last().data.size());
}

TEST_F(ProcessorRelayTest, TelephonyIdsWithoutAServiceStillSetTheLength) {
  AudioRelayProcessor art0(kTelephonyDownlinkProcessor);
  ASSERT_EQ(0, art0.Enable(true));
  EXPECT_EQ(Status::OK, art0.SetParameter(ParameterId::BLOCK_LENGTH, 0, Int(1440)));
  EXPECT_EQ(1440u, art0.blockLength());
  EXPECT_TRUE(art0.IsEnabled());
}

// The test tone replaces the first frame of every (48000 / block length * 2)th
// block with a 480-sample square burst of +-4096 on every channel.
TEST_F(ProcessorRelayTest, TestToneBlocks) {
  const auto toneBlocks = [&](int blocks, uint32_t samples, uint32_t channels) {
    const std::vector<uint8_t> in(samples * channels * 2, 0);
    std::vector<int> tones;
    for (int block = 1; block <= blocks; ++block) {
      EXPECT_EQ(0, Block(in));
      const std::vector<int16_t> out = OutSamples();
      if (out[0] == 0) {
        EXPECT_EQ(Constant(out.size(), 0), out) << block;
        continue;
      }
      tones.push_back(block);
      std::vector<int16_t> expected(out.size(), 0);
      for (uint32_t i = 0; i < kFrame * channels; ++i) expected[i] = (i % kFrame / 24) % 2 == 0 ? -4096 : 4096;
      EXPECT_EQ(expected, out) << block;
    }
    return tones;
  };
  ASSERT_EQ(Status::OK, relay_.SetParameter(ParameterId::TEST_MODE, 0, Int(1)));
  Enable();
  EXPECT_EQ((std::vector<int>{20, 40, 60}), toneBlocks(60, 4800, 1));
  // Restarting starts the count again.
  ASSERT_EQ(0, relay_.Enable(false));
  Enable();
  EXPECT_EQ((std::vector<int>{20}), toneBlocks(20, 4800, 1));

  ASSERT_EQ(Status::OK, relay_.SetParameter(ParameterId::BLOCK_LENGTH, 0, Int(24000)));
  buffers_.SetTapFormat(48000, 2, 2);
  EXPECT_EQ((std::vector<int>{4, 8}), toneBlocks(8, 24000, 2));
}

TEST_F(ProcessorRelayTest, VersionIsOneOnlyAtElementOne) {
  for (int element : {1, 0, 2, -1}) {
    ParamValue v;
    EXPECT_EQ(Status::OK, relay_.GetParameter(ParameterId::VERSION, element, &v));
    EXPECT_EQ(element == 1 ? 1 : 0, v.get<ParamValue::Tag::i>()) << element;
  }
  EXPECT_EQ(Status::READ_ONLY, relay_.SetParameter(ParameterId::VERSION, 1, Int(1)));
}

// An I/O thread streams while binder threads send audio, swap callbacks,
// change parameters and toggle the relay: no interleaving may corrupt memory
// or leave the relay in a state that no longer exchanges audio.
TEST_F(ProcessorRelayTest, ConcurrentStreamingAndControl) {
  buffers_.SetTapFormat(48000, 2, 2);
  Enable();
  std::atomic<bool> stop{false};
  std::atomic<int> blocks{0};
  std::thread io([&] {
    const std::vector<uint8_t> in = RampBlock(4800, 2);
    std::vector<uint8_t> out(in.size());
    while (!stop.load()) {
      relay_.ProcessBlock(in.data(), in.size(), out.data(), out.size());
      blocks.fetch_add(1);
    }
  });
  std::thread sender([&] {
    while (!stop.load()) relay_.SendAudio(RelayPacket(kArl1, Constant(4800, 3)));
  });
  std::thread control([&] {
    for (int i = 0; i < 300; ++i) {
      relay_.RegisterReceiveAudioCallback(i % 3 == 0 ? nullptr : ::ndk::SharedRefBase::make<RecordingCallback>());
      relay_.SetParameter(ParameterId::TEST_MODE, 0, Int(i % 2));
      relay_.SetParameter(ParameterId::BLOCK_LENGTH, 0, Int(i % 4 == 0 ? 960 : 4800));
      if (i % 5 == 0) relay_.Enable(false);
      relay_.Enable(true);
    }
  });
  control.join();
  // Let the stream run on the final settings for a while.
  const int seen = blocks.load();
  while (blocks.load() < seen + 50) std::this_thread::yield();
  stop.store(true);
  io.join();
  sender.join();
  EXPECT_TRUE(relay_.IsEnabled());
  EXPECT_EQ(4800u, relay_.blockLength());
  // What the race leaves must still work: the slot takes the last audio, a
  // new client hears the capture.
  ASSERT_EQ(Status::OK, relay_.SetParameter(ParameterId::TEST_MODE, 0, Int(0)));
  auto client = Client();
  ASSERT_EQ(0, relay_.SendAudio(RelayPacket(kArl1, Constant(4800, 7))));
  ASSERT_EQ(0, Block(RampBlock(4800, 2)));
  EXPECT_EQ(Constant(9600, 7), OutSamples());
  ASSERT_TRUE(client->WaitFor(1));
  EXPECT_EQ(9600u, client->last().data.size());
}

}  // namespace
