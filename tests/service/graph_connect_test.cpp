// Connect: the order of its checks, what -1 on either side does, and how a
// second processor takes over an inject buffer. No DSP is involved.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "processors/lumx_processor.h"
#include "service/lumx_service.h"
#include "support/system_service_env.h"

namespace {

using ::lumx::test::Code;
using ::lumx::test::ICode;
using ::lumx::test::Lines;
using ::testing::ElementsAre;
using Status = CommandResult::Status;

const int32_t kPas1 = ICode("pas1");
const int32_t kPas2 = ICode("pas2");

class GraphConnectTest : public ::testing::Test {
 protected:
  GraphConnectTest() : env_({{20, 21}, {20, 21}}) {}

  void SetUp() override {
    service_ = env_.MakeService();
    ASSERT_EQ(2u, service_->tapOutBufferCount());
    ASSERT_EQ(2u, service_->injectBufferCount());
  }

  void TearDown() override {
    if (service_ != nullptr) {
      ::lumx::test::ServiceEnv::DeleteProcessors(service_.get(), {Code("pas1"), Code("pas2")});
    }
    service_.reset();
  }

  void NewPass(int32_t id) {
    CommandResult r;
    service_->NewProcessorWithType(id, ICode("pass"), &r);
    ASSERT_EQ(Status::OK, r.status) << r.toString();
  }

  CommandResult Connect(int32_t id, int32_t tapOut, int32_t inject) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->Connect(id, tapOut, inject, r); });
  }

  LumxProcessor* Proc(int32_t id) { return service_->GetLumxProcessor(static_cast<uint32_t>(id)); }
  LumxBuffer* TapOut(int id) { return service_->findTapOutBuffer(id); }
  LumxBuffer* Inject(int id) { return service_->findInjectBuffer(id); }

  ::lumx::test::ServiceEnv env_;
  std::shared_ptr<LumxService> service_;
};

TEST_F(GraphConnectTest, WiresProcessorBetweenTheTwoBuffers) {
  NewPass(kPas1);
  CommandResult r = Connect(kPas1, 20, 21);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connect Lumx processor: tap-out buffer 20 --> processor pas1 --> inject buffer 21",
                                    "  Set pas1 input to tapout20", "  Set pas1 output to inject21"));
  EXPECT_EQ(TapOut(20), Proc(kPas1)->input());
  EXPECT_EQ(Inject(21), Proc(kPas1)->output());
  EXPECT_EQ("pas1", TapOut(20)->GetOutputsAsString());
  EXPECT_EQ("pas1", Inject(21)->GetInputAsString());
  EXPECT_EQ("-", Inject(20)->GetInputAsString());
}

TEST_F(GraphConnectTest, UnknownProcessorIsCheckedBeforeTheBuffers) {
  CommandResult r = Connect(ICode("zzzz"), 99, 99);
  EXPECT_EQ(Status::INVALID_PROCESSOR, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connect Lumx processor: tap-out buffer 99 --> processor zzzz --> inject buffer 99",
                                    "Invalid processor"));
}

TEST_F(GraphConnectTest, UnknownTapOutBufferIsCheckedBeforeTheInjectBuffer) {
  NewPass(kPas1);
  CommandResult r = Connect(kPas1, 99, 98);
  EXPECT_EQ(Status::INVALID_PARAMETER, r.status);
  EXPECT_THAT(Lines(r), ElementsAre(::testing::_, "Invalid tap out buffer"));
  EXPECT_EQ(nullptr, Proc(kPas1)->input());
  EXPECT_EQ(nullptr, Proc(kPas1)->output());
}

TEST_F(GraphConnectTest, UnknownInjectBufferKeepsTheTapOutRegistration) {
  NewPass(kPas1);
  CommandResult r = Connect(kPas1, 20, 99);
  EXPECT_EQ(Status::INVALID_PARAMETER, r.status);
  EXPECT_THAT(Lines(r), ElementsAre(::testing::_, "Invalid inject buffer"));
  // The buffer already lists the processor, but the processor was not told.
  EXPECT_EQ("pas1", TapOut(20)->GetOutputsAsString());
  EXPECT_EQ(nullptr, Proc(kPas1)->input());
  EXPECT_EQ(nullptr, Proc(kPas1)->output());
  // Finish the wiring so that deleting the processor unregisters it.
  EXPECT_EQ(Status::OK, Connect(kPas1, 20, -1).status);
}

TEST_F(GraphConnectTest, MinusOneDisconnectsTheProcessorButNotTheBuffers) {
  NewPass(kPas1);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 20).status);
  CommandResult r = Connect(kPas1, -1, -1);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connect Lumx processor: tap-out buffer -1 --> processor pas1 --> inject buffer -1",
                                    "  Set pas1 input to NC", "  Set pas1 output to NC"));
  EXPECT_EQ(nullptr, Proc(kPas1)->input());
  EXPECT_EQ(nullptr, Proc(kPas1)->output());
  // The buffers keep their registrations.
  EXPECT_EQ("pas1", TapOut(20)->GetOutputsAsString());
  EXPECT_EQ(Proc(kPas1), Inject(20)->inputProcessor());

  // Only one side: the other keeps its new buffer.
  r = Connect(kPas1, 20, -1);
  EXPECT_THAT(Lines(r), ElementsAre(::testing::_, "  Set pas1 input to tapout20", "  Set pas1 output to NC"));
  EXPECT_EQ(TapOut(20), Proc(kPas1)->input());
  EXPECT_EQ(nullptr, Proc(kPas1)->output());
  // Reconnect fully so deletion unwires both buffers.
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 20).status);
}

TEST_F(GraphConnectTest, SecondProcessorOnAnInjectBufferDisplacesTheFirst) {
  NewPass(kPas1);
  NewPass(kPas2);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 20).status);

  CommandResult r = Connect(kPas2, 21, 20);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connect Lumx processor: tap-out buffer 21 --> processor pas2 --> inject buffer 20",
                                    "  inject20 is already connected to pas1. Disconnecting",
                                    "  Set pas2 input to tapout21", "  Set pas2 output to inject20"));
  EXPECT_EQ(nullptr, Proc(kPas1)->output());
  EXPECT_EQ(TapOut(20), Proc(kPas1)->input());
  EXPECT_EQ(Inject(20), Proc(kPas2)->output());
  EXPECT_EQ(Proc(kPas2), Inject(20)->inputProcessor());
  EXPECT_EQ("pas2", Inject(20)->GetInputAsString());
}

TEST_F(GraphConnectTest, ReconnectingTheSameProcessorDisplacesNobody) {
  NewPass(kPas1);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 20).status);
  CommandResult r = Connect(kPas1, 20, 20);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre(::testing::_, "  Set pas1 input to tapout20", "  Set pas1 output to inject20"));
  EXPECT_EQ("pas1", TapOut(20)->GetOutputsAsString());
  EXPECT_EQ(Inject(20), Proc(kPas1)->output());
}

// The tap name of a buffer comes from the DSP's bindings.
class TapNameTest : public GraphConnectTest {
 protected:
  static LumxTapDetailedInfo Tap(const char (&code)[5], uint8_t index, uint8_t enabled, int8_t tapOut,
                                 int8_t inject) {
    LumxTapDetailedInfo t{};
    t.tapCode = Code(code);
    t.index = index;
    t.core = 2;
    t.enabled = enabled;
    t.sampleRate = 48000.0f;
    t.blockLength = 480;
    t.channels = 1;
    t.bitsPerSample = 16;
    t.tapOutBuffer = tapOut;
    t.injectBuffer = inject;
    return t;
  }
};

TEST_F(TapNameTest, MatchesTheSideOfTheBuffer) {
  std::vector<LumxTapDetailedInfo> taps = {Tap("aaaa", 0, 1, -1, 20), Tap("imic", 3, 1, 20, -1)};
  EXPECT_EQ("imic.3", service_->getTapNameConnectedToBuffer(TapOut(20), taps));
  EXPECT_EQ("aaaa.0", service_->getTapNameConnectedToBuffer(Inject(20), taps));
  EXPECT_EQ("NC", service_->getTapNameConnectedToBuffer(TapOut(21), taps));
  EXPECT_EQ("NC", service_->getTapNameConnectedToBuffer(Inject(21), taps));
  EXPECT_EQ("NC", service_->getTapNameConnectedToBuffer(TapOut(20), {}));
}

TEST_F(TapNameTest, FirstMatchWinsAndDisabledIsMarked) {
  std::vector<LumxTapDetailedInfo> taps = {Tap("sspk", 12, 0, 21, 21), Tap("imic", 0, 1, 21, 21)};
  EXPECT_EQ("sspk.12 (disabled)", service_->getTapNameConnectedToBuffer(TapOut(21), taps));
  // Anything but 1 counts as not enabled.
  taps[0].enabled = 2;
  EXPECT_EQ("sspk.12 (disabled)", service_->getTapNameConnectedToBuffer(Inject(21), taps));
}

}  // namespace
