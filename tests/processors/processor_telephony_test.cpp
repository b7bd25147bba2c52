// The telephony use case script and the relay's tap block-length follow-up,
// on a real service against a scripted DSP.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>

#include <atomic>
#include <thread>

#include "common/unique_fd.h"
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
  static void SetUpTestSuite() {
    env_ = new ::lumx::test::ServiceEnv({{40, 41}, {40, 41}});
    // A writer on each tap-out FIFO, so that opening it for reading does not
    // wait; nothing is ever written, the I/O threads just wait for data.
    for (int i = 0; i < 2; ++i) {
      feeders_[i].reset(::open(env_->TapOutPath(40 + i).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
      ASSERT_TRUE(feeders_[i].ok());
    }
    dsp_ = new FakeDsp(env_->devRoot());
    service_ = env_->MakeService();
  }
  static void TearDownTestSuite() {
    service_.reset();
    delete dsp_;
    for (auto& fd : feeders_) fd.reset();
    delete env_;
    dsp_ = nullptr;
    env_ = nullptr;
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
  static FakeTap Tap(const char (&code)[5], uint8_t index) {
    for (const FakeTap& t : dsp_->Taps()) {
      if (t.core == 4 && t.code == Code(code) && t.index == index) return t;
    }
    ADD_FAILURE() << "no tap " << code << "." << static_cast<int>(index);
    return FakeTap();
  }
  static LumxProcessor* Proc(int32_t id) { return service_->GetLumxProcessor(static_cast<uint32_t>(id)); }

  static ::lumx::test::ServiceEnv* env_;
  static FakeDsp* dsp_;
  static lumx::unique_fd feeders_[2];
  static std::shared_ptr<LumxService> service_;
};

::lumx::test::ServiceEnv* ProcessorTelephonyTest::env_ = nullptr;
FakeDsp* ProcessorTelephonyTest::dsp_ = nullptr;
lumx::unique_fd ProcessorTelephonyTest::feeders_[2];
std::shared_ptr<LumxService> ProcessorTelephonyTest::service_;

TEST_F(ProcessorTelephonyTest, EnableRunsEveryStepThenDisableTearsDown) {
  CommandResult on = Telephony(true);
  ASSERT_EQ(Status::OK, on.status) << on.toString();
  EXPECT_TRUE(AudioRelayProcessor::TelephonyUseCaseEnabled());
  EXPECT_TRUE(InOrder(on.strList, {
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
  const FakeTap vpdl = Tap("vpdl", 0);
  EXPECT_EQ(1, vpdl.enabled);
  EXPECT_EQ(40, vpdl.tapOut);
  EXPECT_EQ(40, vpdl.inject);
  EXPECT_EQ(4800u, vpdl.blockLength);
  const FakeTap vpul = Tap("vpul", 1);
  EXPECT_EQ(1, vpul.enabled);
  EXPECT_EQ(41, vpul.tapOut);
  EXPECT_EQ(41, vpul.inject);
  ASSERT_NE(nullptr, Proc(kArt0));
  EXPECT_TRUE(Proc(kArt0)->IsEnabled());
  EXPECT_TRUE(Proc(kArt1)->IsEnabled());
  EXPECT_TRUE(service_->findTapOutBuffer(40)->isEnabled());
  EXPECT_TRUE(service_->findInjectBuffer(41)->isEnabled());

  dsp_->ClearRequests();
  CommandResult off = Telephony(false);
  ASSERT_EQ(Status::OK, off.status) << off.toString();
  EXPECT_FALSE(AudioRelayProcessor::TelephonyUseCaseEnabled());
  // The teardown's processor steps go to a scratch result.
  EXPECT_TRUE(InOrder(off.strList, {"LUM core 4 disable tap vpdl.0", "LUM core 4 disable tap vpul.1",
                                    "Disable tap-out buffer 40", "Disable tap-out buffer 41"}))
      << off.toString();
  for (const std::string& line : off.strList) {
    EXPECT_EQ(std::string::npos, line.find("DeleteProcessor")) << line;
    EXPECT_EQ(std::string::npos, line.find("Disable processor")) << line;
  }
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
  ASSERT_NE(nullptr, Proc(kArt0));
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
  CommandResult a, b, c;
  service_->NewProcessorWithType(kArt0, ICode("arel"), &a);
  service_->NewProcessorWithType(kArt1, ICode("arel"), &b);
  service_->NewProcessorWithType(ICode("arl1"), ICode("arel"), &c);
  dsp_->ClearRequests();

  CommandResult set;
  service_->SetParameter(kArt0, ParameterId::BLOCK_LENGTH, 0, ParamValue::make<ParamValue::Tag::i>(960), &set);
  EXPECT_EQ(Status::OK, set.status);
  // The follow-up's own lines go to a scratch result.
  EXPECT_EQ(1u, set.strList.size());
  EXPECT_EQ(960u, Tap("vpdl", 0).blockLength);
  service_->SetParameter(kArt1, ParameterId::BLOCK_LENGTH, 0, ParamValue::make<ParamValue::Tag::i>(1440), &set);
  EXPECT_EQ(1440u, Tap("vpul", 1).blockLength);
  EXPECT_EQ(960u, Tap("vpdl", 0).blockLength);
  ASSERT_EQ(2u, dsp_->Requests().size());

  // Any other relay, a refused length, or another parameter: no DSP command.
  service_->SetParameter(ICode("arl1"), ParameterId::BLOCK_LENGTH, 0, ParamValue::make<ParamValue::Tag::i>(480), &set);
  CommandResult refused;
  service_->SetParameter(kArt0, ParameterId::BLOCK_LENGTH, 0, ParamValue::make<ParamValue::Tag::i>(500), &refused);
  EXPECT_EQ(Status::INVALID_VALUE, refused.status);
  service_->SetParameter(kArt0, ParameterId::TEST_MODE, 0, ParamValue::make<ParamValue::Tag::i>(1), &set);
  EXPECT_EQ(2u, dsp_->Requests().size());

  // A DSP that refuses the length does not change the relay's answer.
  dsp_->Fail(FakeDsp::kTapSetBlockLen, -22);
  CommandResult dspRefused;
  service_->SetParameter(kArt0, ParameterId::BLOCK_LENGTH, 0, ParamValue::make<ParamValue::Tag::i>(2400), &dspRefused);
  EXPECT_EQ(Status::OK, dspRefused.status);
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
    for (int i = 0; i < 150; ++i) {
      CommandResult r;
      service_->SetParameter(kArt0, ParameterId::BLOCK_LENGTH, 0,
                             ParamValue::make<ParamValue::Tag::i>(i % 2 == 0 ? 960 : 480), &r);
    }
  });
  for (int i = 0; i < 150; ++i) {
    CommandResult r;
    service_->ProcessorEnable(kArt0, i % 2 == 0, &r);
  }
  setter.join();
  EXPECT_EQ(480u, Proc(kArt0)->blockLength());
}

}  // namespace
