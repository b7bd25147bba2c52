// The telephony use case script and the relay's tap block-length follow-up,
// on a real service against a scripted DSP.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "lumx_host/log_capture.h"
#include "processors/audio_relay_processor.h"
#include "service/lumx_service.h"
#include "support/system_fake_dsp.h"
#include "support/system_service_env.h"

namespace {

using ::lumx::test::Code;
using ::lumx::test::FakeDsp;
using ::lumx::test::FakeTap;
using ::lumx::test::ICode;
using ::testing::ElementsAre;
using Status = CommandResult::Status;

const int32_t kArt0 = ICode("art0");
const int32_t kArt1 = ICode("art1");

// True when `wanted` appears in `lines` in this order (other lines between).
bool InOrder(const std::vector<std::string>& lines, const std::vector<std::string>& wanted) {
  size_t next = 0;
  for (const std::string& line : lines) {
    if (next < wanted.size() && line == wanted[next]) ++next;
  }
  return next == wanted.size();
}

class ProcessorTelephonyTest : public ::testing::Test {
 protected:
  // The environment keeps a writer on each tap-out FIFO, so the buffers'
  // opens never wait; the I/O threads just wait for data.
  static void SetUpTestSuite() {
    env_ = new ::lumx::test::ServiceEnv({{40, 41}, {40, 41}});
    dsp_ = new FakeDsp(env_->devRoot());
    service_ = env_->MakeService();
  }
  static void TearDownTestSuite() {
    service_.reset();
    delete dsp_;
    delete env_;
  }
  void SetUp() override {
    ASSERT_TRUE(dsp_->ok());
    dsp_->ClearFaults();
    dsp_->SetTaps(FakeDsp::UseCaseTaps());
    dsp_->ClearRequests();
  }
  void TearDown() override {
    CommandResult stop;
    service_->StopIo(-1, &stop);
    ::lumx::test::ServiceEnv::DeleteProcessors(service_.get(), {Code("art0"), Code("art1"), Code("arl1")});
  }

  static CommandResult Telephony(bool enable) {
    CommandResult r;
    AudioRelayProcessor::EnableTelephonyUseCase(enable, &r);
    return r;
  }
  static CommandResult SetLength(int32_t id, int32_t length, ParameterId param = ParameterId::BLOCK_LENGTH) {
    CommandResult r;
    service_->SetParameter(id, param, 0, ParamValue::make<ParamValue::Tag::i>(length), &r);
    return r;
  }
  static FakeTap Tap(const char (&code)[5], uint8_t index) {
    for (const FakeTap& t : dsp_->Taps()) {
      if (t.core == 4 && t.code == Code(code) && t.index == index) return t;
    }
    ADD_FAILURE() << "no tap " << code << "." << static_cast<int>(index);
    return FakeTap();
  }
  static LumxProcessor* Proc(int32_t id) { return service_->GetLumxProcessor(static_cast<uint32_t>(id)); }

  static inline ::lumx::test::ServiceEnv* env_ = nullptr;
  static inline FakeDsp* dsp_ = nullptr;
  static inline std::shared_ptr<LumxService> service_;
};

TEST_F(ProcessorTelephonyTest, EnableRunsEveryStepThenDisableTearsDown) {
  CommandResult on = Telephony(true);
  ASSERT_EQ(Status::OK, on.status) << on.toString();
  EXPECT_TRUE(AudioRelayProcessor::TelephonyUseCaseEnabled());
  EXPECT_TRUE(InOrder(on.strList,
                      {
                          "Creating new processor 'art0' of type 'arel'",
                          "Creating new processor 'art1' of type 'arel'",
                          "Connect Lumx processor: tap-out buffer 40 --> processor art0 --> inject buffer 40",
                          "Connect Lumx processor: tap-out buffer 41 --> processor art1 --> inject buffer 41",
                          "Enable processor art0",
                          "Enable processor art1",
                          "LUM core 4 tap vpdl.0 set block length 4800",
                          "LUM core 4 tap vpul.1 set block length 4800",
                          "LUM core 4 enable tap vpdl.0",
                          "LUM core 4 enable tap vpul.1",
                          "Enable tap-out buffer 40",
                          "Enable tap-out buffer 41",
                      }))
      << on.toString();
  EXPECT_THAT(dsp_->Opcodes(), ElementsAre(FakeDsp::kTapBind, FakeDsp::kTapBind, FakeDsp::kTapSetBlockLen,
                                           FakeDsp::kTapSetBlockLen, FakeDsp::kTapEnable, FakeDsp::kTapEnable));
  for (const FakeTap& t : {Tap("vpdl", 0), Tap("vpul", 1)}) {
    const int buffer = t.index == 0 ? 40 : 41;
    EXPECT_EQ(1, t.enabled);
    EXPECT_EQ(buffer, t.tapOut);
    EXPECT_EQ(buffer, t.inject);
    EXPECT_EQ(4800u, t.blockLength);
    EXPECT_TRUE(Proc(t.index == 0 ? kArt0 : kArt1)->IsEnabled());
    EXPECT_TRUE(service_->findTapOutBuffer(buffer)->isEnabled());
    EXPECT_TRUE(service_->findInjectBuffer(buffer)->isEnabled());
  }

  dsp_->ClearRequests();
  CommandResult off = Telephony(false);
  ASSERT_EQ(Status::OK, off.status) << off.toString();
  EXPECT_FALSE(AudioRelayProcessor::TelephonyUseCaseEnabled());
  // The teardown's processor steps go to a scratch result.
  EXPECT_THAT(off.strList,
              ElementsAre("LUM core 4 disable tap vpdl.0", "LUM core 4 disable tap vpul.1", "Disable tap-out buffer 40",
                          "1 buffers enabled, 1 processor active, wakelock needed: 1", "Disable tap-out buffer 41",
                          "0 buffers enabled, 0 processors active, wakelock needed: 0"));
  EXPECT_THAT(dsp_->Opcodes(), ElementsAre(FakeDsp::kTapEnable, FakeDsp::kTapEnable));
  EXPECT_EQ(nullptr, Proc(kArt0));
  EXPECT_EQ(nullptr, Proc(kArt1));
  EXPECT_EQ(0, Tap("vpdl", 0).enabled);
  EXPECT_FALSE(service_->findTapOutBuffer(40)->isEnabled());
}

TEST_F(ProcessorTelephonyTest, FirstFailingStepStopsTheScriptWithoutRollback) {
  dsp_->Fail(FakeDsp::kTapSetBlockLen, -22);
  CommandResult on = Telephony(true);
  EXPECT_EQ(Status::ERROR, on.status);
  EXPECT_FALSE(AudioRelayProcessor::TelephonyUseCaseEnabled());
  ASSERT_GE(on.strList.size(), 2u);
  EXPECT_EQ("LUM core 4 tap vpdl.0 set block length 4800", on.strList[on.strList.size() - 2]);
  EXPECT_EQ("CMD_LUMX_TAP_SET_BLOCK_LEN_ID failed, status -22", on.strList.back());
  // Nothing after the failing step was sent; nothing before it was undone.
  EXPECT_THAT(dsp_->Opcodes(), ElementsAre(FakeDsp::kTapBind, FakeDsp::kTapBind, FakeDsp::kTapSetBlockLen));
  EXPECT_TRUE(Proc(kArt0)->IsEnabled());
  EXPECT_FALSE(service_->findTapOutBuffer(40)->isEnabled());
}

TEST_F(ProcessorTelephonyTest, FailedDisableKeepsTheProcessorsAndTheFlag) {
  ASSERT_EQ(Status::OK, Telephony(true).status);
  dsp_->Fail(FakeDsp::kTapEnable, -5);
  CommandResult off = Telephony(false);
  EXPECT_EQ(Status::ERROR, off.status);
  EXPECT_THAT(off.strList, ElementsAre("LUM core 4 disable tap vpdl.0", "CMD_LUMX_TAP_ENABLE_ID failed, status -5"));
  EXPECT_TRUE(AudioRelayProcessor::TelephonyUseCaseEnabled());
  EXPECT_NE(nullptr, Proc(kArt0));
  EXPECT_TRUE(service_->findTapOutBuffer(40)->isEnabled());
  dsp_->ClearFaults();
  EXPECT_EQ(Status::OK, Telephony(false).status);
  EXPECT_FALSE(AudioRelayProcessor::TelephonyUseCaseEnabled());
}

TEST_F(ProcessorTelephonyTest, RelayBlockLengthFollowsToItsTap) {
  for (int32_t id : {kArt0, kArt1, ICode("arl1")}) {
    CommandResult r;
    service_->NewProcessorWithType(id, ICode("arel"), &r);
  }
  dsp_->ClearRequests();
  const CommandResult set = SetLength(kArt0, 960);
  EXPECT_EQ(Status::OK, set.status);
  EXPECT_EQ(1u, set.strList.size());  // the follow-up's own lines go to a scratch result
  EXPECT_EQ(960u, Tap("vpdl", 0).blockLength);
  SetLength(kArt1, 1440);
  EXPECT_EQ(1440u, Tap("vpul", 1).blockLength);
  EXPECT_EQ(960u, Tap("vpdl", 0).blockLength);

  // Any other relay, a refused length, or another parameter: no DSP command.
  SetLength(ICode("arl1"), 480);
  EXPECT_EQ(Status::INVALID_VALUE, SetLength(kArt0, 500).status);
  SetLength(kArt0, 1, ParameterId::TEST_MODE);
  EXPECT_EQ(2u, dsp_->Requests().size());

  // A DSP that refuses the length does not change the relay's answer.
  dsp_->Fail(FakeDsp::kTapSetBlockLen, -22);
  EXPECT_EQ(Status::OK, SetLength(kArt0, 2400).status);
  EXPECT_EQ(2400u, Proc(kArt0)->blockLength());
}

// ProcessorEnable holds the service mutex and waits for the relay's enable
// lock; a block-length change holds that lock and then reaches the service
// for the tap. Both at once, many times: must never deadlock.
TEST_F(ProcessorTelephonyTest, EnableAndBlockLengthChangesDoNotDeadlock) {
  CommandResult a;
  service_->NewProcessorWithType(kArt0, ICode("arel"), &a);
  ::lumx_host::LogCapture quiet;
  quiet.setEcho(false);
  std::thread setter([] {
    for (int i = 0; i < 150; ++i) SetLength(kArt0, i % 2 == 0 ? 960 : 480);
  });
  for (int i = 0; i < 150; ++i) {
    CommandResult r;
    service_->ProcessorEnable(kArt0, i % 2 == 0, &r);
  }
  setter.join();
  EXPECT_EQ(480u, Proc(kArt0)->blockLength());
}

}  // namespace
