// Use cases that build real paths, against a scripted DSP: the steps they
// send, what a success returns, where a failure stops and what it reports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "daemon/lumxd.h"
#include "processors/lumx_processor.h"
#include "service/lumx_service.h"
#include "support/system_fake_dsp.h"
#include "support/system_service_env.h"

namespace {

using ::lumx::test::Code;
using ::lumx::test::FakeDsp;
using ::lumx::test::FakeTap;
using ::lumx::test::ICode;
using ::lumx::test::Lines;
using ::testing::ElementsAre;
using Status = CommandResult::Status;

class UseCasePathTest : public ::testing::Test {
 protected:
  UseCasePathTest() : env_({{20, 21, 40, 41}, {20, 21, 40, 41}}), dsp_(env_.devRoot()) {}

  void SetUp() override {
    ASSERT_TRUE(dsp_.ok());
    service_ = env_.MakeService();
  }
  void TearDown() override {
    if (service_ != nullptr) {
      ::lumx::test::ServiceEnv::DeleteProcessors(service_.get(),
                                                 {Code("pas1"), Code("art0"), Code("art1"), Code("hwae")});
    }
    service_.reset();
  }

  CommandResult Run(UseCase uc, bool enable) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->EnableUseCase(uc, enable, r); });
  }
  const FakeTap* DspTap(uint8_t core, const char (&code)[5], uint8_t index) {
    taps_ = dsp_.Taps();
    for (const FakeTap& t : taps_) {
      if (t.core == core && t.code == Code(code) && t.index == index) return &t;
    }
    return nullptr;
  }
  std::string GraphLine() {
    CommandResult r;
    service_->ShowGraph(&r);
    return r.strList.size() >= 2 ? r.strList[1] : r.toString();
  }

  ::lumx::test::ServiceEnv env_;
  FakeDsp dsp_;
  std::shared_ptr<LumxService> service_;
  std::vector<FakeTap> taps_;
};

TEST_F(UseCasePathTest, MicInSuccessReturnsOnlyItsHeading) {
  CommandResult on = Run(UseCase::MIC_IN, true);
  EXPECT_EQ(Status::OK, on.status);
  EXPECT_THAT(Lines(on), ElementsAre("EnableUseCase MIC_IN 1"));
  // The steps went to the DSP in order: bind, then enable.
  EXPECT_THAT(dsp_.Opcodes(), ElementsAre(FakeDsp::kTapBind, FakeDsp::kTapEnable));

  const FakeTap* imic = DspTap(2, "imic", 0);
  ASSERT_NE(nullptr, imic);
  EXPECT_EQ(1, imic->enabled);
  EXPECT_EQ(20, imic->tapOut);
  EXPECT_EQ(20, imic->inject);
  EXPECT_TRUE(service_->findTapOutBuffer(20)->isEnabled());
  EXPECT_TRUE(service_->findInjectBuffer(20)->isEnabled());
  EXPECT_TRUE(Lumxd::Instance().wakeLockHeld());
  EXPECT_EQ("  imic.0 --> tapout20 --> pas1 --> inject20 --> imic.0", GraphLine());

  CommandResult off = Run(UseCase::MIC_IN, false);
  EXPECT_EQ(Status::OK, off.status);
  EXPECT_THAT(Lines(off), ElementsAre("EnableUseCase MIC_IN 0"));
  EXPECT_EQ(nullptr, service_->GetLumxProcessor(Code("pas1")));
  EXPECT_EQ(0, DspTap(2, "imic", 0)->enabled);
  EXPECT_FALSE(service_->findTapOutBuffer(20)->isEnabled());
  EXPECT_FALSE(Lumxd::Instance().wakeLockHeld());
}

TEST_F(UseCasePathTest, EnableByNameIsEnableUseCase) {
  CommandResult direct = Run(UseCase::MIC_IN, true);
  const std::vector<uint16_t> directOpcodes = dsp_.Opcodes();
  Run(UseCase::MIC_IN, false);
  dsp_.ClearRequests();

  CommandResult byName;
  EXPECT_TRUE(service_->Enable("mic_in", true, &byName).isOk());
  EXPECT_EQ(direct.status, byName.status);
  ASSERT_FALSE(byName.strList.empty());
  EXPECT_EQ("Enable Lumx use case 'mic_in'", byName.strList[0]);
  EXPECT_EQ(direct.strList, std::vector<std::string>(byName.strList.begin() + 1, byName.strList.end()));
  EXPECT_EQ(directOpcodes, dsp_.Opcodes());
  EXPECT_EQ("  imic.0 --> tapout20 --> pas1 --> inject20 --> imic.0", GraphLine());
}

TEST_F(UseCasePathTest, FailedTapEnableStopsAndReportsEveryStep) {
  dsp_.Fail(FakeDsp::kTapEnable, -22);
  CommandResult r = Run(UseCase::MIC_IN, true);
  EXPECT_EQ(Status::ERROR, r.status);
  EXPECT_THAT(Lines(r),
              ElementsAre("EnableUseCase MIC_IN 1", "Creating new processor 'pas1' of type 'pass'",
                          "Connect Lumx processor: tap-out buffer 20 --> processor pas1 --> inject buffer 20",
                          "  Set pas1 input to tapout20", "  Set pas1 output to inject20", "Enable processor pas1",
                          "0 buffers enabled, 0 processors active, wakelock needed: 0",
                          "LUM core 2 connect tap point: imic.0 --> tap-out buffer 20, inject buffer 20 --> imic.0",
                          "LUM core 2 enable tap imic.0", "CMD_LUMX_TAP_ENABLE_ID failed, status -22",
                          "Error enabling Lumx use case 'MIC_IN'"));
  // StartIo never ran, and what was built stays.
  EXPECT_FALSE(service_->findTapOutBuffer(20)->isEnabled());
  LumxProcessor* p = service_->GetLumxProcessor(Code("pas1"));
  ASSERT_NE(nullptr, p);
  EXPECT_TRUE(p->IsEnabled());
  EXPECT_EQ(20, DspTap(2, "imic", 0)->tapOut);
}

TEST_F(UseCasePathTest, FailedDisableStopsBeforeTheProcessorIsTouched) {
  ASSERT_EQ(Status::OK, Run(UseCase::MIC_IN, true).status);
  dsp_.Fail(FakeDsp::kTapEnable, -5, 2);
  CommandResult r = Run(UseCase::MIC_IN, false);
  EXPECT_EQ(Status::ERROR, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("EnableUseCase MIC_IN 0", "LUM core 2 disable tap imic.0",
                                    "CMD_LUMX_TAP_ENABLE_ID failed, status -5", "Error disabling Lumx use case 'MIC_IN'"));
  EXPECT_NE(nullptr, service_->GetLumxProcessor(Code("pas1")));
  EXPECT_TRUE(service_->findTapOutBuffer(20)->isEnabled());
  dsp_.ClearFaults();
  EXPECT_EQ(Status::OK, Run(UseCase::MIC_IN, false).status);
}

TEST_F(UseCasePathTest, DisableGoesOnToDeleteWhenDisablingTheProcessorFails) {
  // SPEAKER_OUT replaces MIC_IN's "pas1" and deleting it on the way out
  // leaves MIC_IN without its processor.
  ASSERT_EQ(Status::OK, Run(UseCase::MIC_IN, true).status);
  ASSERT_EQ(Status::OK, Run(UseCase::SPEAKER_OUT, true).status);
  EXPECT_EQ("  sspk.0 --> tapout21 --> pas1 --> inject21 --> sspk.0", GraphLine());
  ASSERT_EQ(Status::OK, Run(UseCase::SPEAKER_OUT, false).status);
  ASSERT_EQ(nullptr, service_->GetLumxProcessor(Code("pas1")));

  CommandResult r = Run(UseCase::MIC_IN, false);
  EXPECT_EQ(Status::ERROR, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("EnableUseCase MIC_IN 0", "LUM core 2 disable tap imic.0",
                                    "Disable tap-out buffer 20",
                                    "0 buffers enabled, 0 processors active, wakelock needed: 0",
                                    "Disable processor pas1", "Lumx processor not found", "DeleteProcessor id:pas1",
                                    "Lumx processor 'pas1' already deleted", "Error disabling Lumx use case 'MIC_IN'"));
  EXPECT_FALSE(service_->findTapOutBuffer(20)->isEnabled());
}

TEST_F(UseCasePathTest, SpeakerOutUsesItsOwnTapAndBuffers) {
  CommandResult r;
  service_->Enable("speaker_out", true, &r);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Enable Lumx use case 'speaker_out'", "EnableUseCase SPEAKER_OUT 1"));
  EXPECT_EQ(1, DspTap(2, "sspk", 0)->enabled);
  EXPECT_EQ(0, DspTap(2, "imic", 0)->enabled);
  EXPECT_TRUE(service_->findTapOutBuffer(21)->isEnabled());
  EXPECT_FALSE(service_->findTapOutBuffer(20)->isEnabled());
  CommandResult off;
  service_->Enable("SPEAKER_OUT", false, &off);
  EXPECT_THAT(Lines(off), ElementsAre("Disable Lumx use case 'SPEAKER_OUT'", "EnableUseCase SPEAKER_OUT 0"));
}

TEST_F(UseCasePathTest, TelephonyIsSwitchedAndTracked) {
  CommandResult on = Run(UseCase::AREL_TELE, true);
  EXPECT_EQ(Status::OK, on.status) << on.toString();
  EXPECT_THAT(Lines(on), ElementsAre("EnableUseCase AREL_TELE 1"));
  CommandResult state;
  service_->IsEnabled("AREL_TELE", &state);
  EXPECT_EQ(Status::OK, state.status);
  EXPECT_EQ(1.0f, state.value);
  EXPECT_EQ(1, DspTap(4, "vpdl", 0)->enabled);
  EXPECT_EQ(40, DspTap(4, "vpdl", 0)->tapOut);
  EXPECT_EQ(41, DspTap(4, "vpul", 1)->inject);

  CommandResult off = Run(UseCase::AREL_TELE, false);
  EXPECT_EQ(Status::OK, off.status) << off.toString();
  EXPECT_THAT(Lines(off), ElementsAre("EnableUseCase AREL_TELE 0"));
  CommandResult after;
  service_->IsUseCaseEnabled(UseCase::AREL_TELE, &after);
  EXPECT_EQ(0.0f, after.value);
  EXPECT_EQ(nullptr, service_->GetLumxProcessor(Code("art0")));
  EXPECT_EQ(nullptr, service_->GetLumxProcessor(Code("art1")));
}

TEST_F(UseCasePathTest, FailedTelephonyStepIsReportedAsError) {
  dsp_.Fail(FakeDsp::kTapSetBlockLen, -34, 4);
  CommandResult r = Run(UseCase::AREL_TELE, true);
  EXPECT_EQ(Status::ERROR, r.status);
  ASSERT_GE(r.strList.size(), 3u);
  EXPECT_EQ("EnableUseCase AREL_TELE 1", r.strList.front());
  EXPECT_EQ("CMD_LUMX_TAP_SET_BLOCK_LEN_ID failed, status -34", r.strList[r.strList.size() - 2]);
  EXPECT_EQ("Error enabling Lumx use case 'AREL_TELE'", r.strList.back());
  CommandResult state;
  service_->IsUseCaseEnabled(UseCase::AREL_TELE, &state);
  EXPECT_EQ(0.0f, state.value);
  // Half-built: the relays exist, the taps were never enabled.
  EXPECT_NE(nullptr, service_->GetLumxProcessor(Code("art0")));
  EXPECT_EQ(0, DspTap(4, "vpdl", 0)->enabled);
}

}  // namespace
