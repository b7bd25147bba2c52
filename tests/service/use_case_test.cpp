// Use cases: name parsing, unknown and untracked use cases, the listing,
// hotword switching, and the paths built against a scripted DSP: the steps
// they send, what a success returns, where a failure stops and what it
// reports.
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>

#include "common/lumx_utils.h"
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

TEST(UseCaseNameTest, ParsesWholeNamesFoldingOnlyAsciiCase) {
  const struct {
    std::string name;
    UseCase uc;
  } cases[] = {{"mic_in", UseCase::MIC_IN},           {"Mic_In", UseCase::MIC_IN},
               {"hotwordaec", UseCase::HOTWORDAEC},   {"SPEAKER_OUT", UseCase::SPEAKER_OUT},
               {"arel_TELE", UseCase::AREL_TELE},     {"unspecified", UseCase::UNSPECIFIED},
               {"MIC-IN", UseCase::UNSPECIFIED},      {" MIC_IN", UseCase::UNSPECIFIED},
               {"MIC_IN ", UseCase::UNSPECIFIED},     {"MIC_INX", UseCase::UNSPECIFIED},
               {"", UseCase::UNSPECIFIED},            {"mic in", UseCase::UNSPECIFIED},
               {std::string("MIC_IN\0", 7), UseCase::UNSPECIFIED},
               {"m\xc3\xaf" "c_in", UseCase::UNSPECIFIED}};
  for (const auto& c : cases) EXPECT_EQ(c.uc, LumxService::stringToUseCase(c.name)) << "'" << c.name << "'";
}

class UseCaseServiceTest : public ::testing::Test {
 protected:
  // No buffer 20: MIC_IN cannot be wired.
  UseCaseServiceTest() : env_({{21}, {21}}) {}

  void SetUp() override { service_ = env_.MakeService(); }
  void TearDown() override {
    if (service_ != nullptr) {
      ::lumx::test::ServiceEnv::DeleteProcessors(service_.get(), {Code("pas1"), Code("hwae")});
    }
    service_.reset();
  }

  ::lumx::test::ServiceEnv env_;
  std::shared_ptr<LumxService> service_;
};

TEST_F(UseCaseServiceTest, ListsTheFourUseCasesOnOneLine) {
  lumx_host::LogCapture capture;
  CommandResult r;
  EXPECT_TRUE(service_->ListSupportedUseCases(&r).isOk());
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Supported Lumx use cases: HOTWORDAEC MIC_IN SPEAKER_OUT AREL_TELE"));
  EXPECT_THAT(capture.messages("lumx"),
              ElementsAre("ListSupportedUseCases",
                          "ListSupportedUseCases: CommandResult{status: OK, value: 0.000000, strList: [Supported "
                          "Lumx use cases: HOTWORDAEC MIC_IN SPEAKER_OUT AREL_TELE]}"));
}

TEST_F(UseCaseServiceTest, UnknownUseCasesAreErrors) {
  CommandResult r;
  EXPECT_TRUE(service_->Enable("MIC-IN", true, &r).isOk());
  EXPECT_EQ(Status::ERROR, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Enable Lumx use case 'MIC-IN'", "EnableUseCase UNSPECIFIED 1",
                                    "Unknown Lumx use case 'UNSPECIFIED'"));
  EXPECT_EQ(nullptr, service_->GetLumxProcessor(Code("pas1")));
  // The heading, logged and returned, is cut at 63 characters.
  for (const char* want : {"Enable Lumx use case 'abcdefghijabcdefghijabcdefghijabcdefghija",
                           "Disable Lumx use case 'abcdefghijabcdefghijabcdefghijabcdefghij"}) {
    lumx_host::LogCapture log;
    CommandResult cut;
    service_->Enable("abcdefghijabcdefghijabcdefghijabcdefghijabcdefghij", want[0] == 'E', &cut);
    EXPECT_THAT(Lines(cut), ElementsAre(want, "EnableUseCase UNSPECIFIED " + std::string(want[0] == 'E' ? "1" : "0"),
                                        "Unknown Lumx use case 'UNSPECIFIED'"));
    EXPECT_EQ(want, log.messages("lumx").front());
  }
  // Out of range: printed as its number.
  CommandResult seven;
  service_->EnableUseCase(static_cast<UseCase>(7), false, &seven);
  EXPECT_EQ(Status::ERROR, seven.status);
  EXPECT_THAT(Lines(seven), ElementsAre("EnableUseCase 7 0", "Unknown Lumx use case '7'"));
}

// Only the hotword and telephony states are tracked.
TEST_F(UseCaseServiceTest, IsEnabledAnswers) {
  for (UseCase uc : {UseCase::MIC_IN, UseCase::SPEAKER_OUT, UseCase::UNSPECIFIED, UseCase::HOTWORDAEC}) {
    CommandResult r;
    EXPECT_TRUE(service_->IsUseCaseEnabled(uc, &r).isOk());
    const bool tracked = uc == UseCase::HOTWORDAEC;
    EXPECT_EQ(tracked ? Status::OK : Status::INVALID_PARAMETER, r.status);
    if (tracked) {
      EXPECT_EQ(0.0f, r.value);
    }
    std::vector<std::string> lines = {"IsUseCaseEnabled " + UseCaseToString(uc)};
    if (!tracked) lines.push_back("lumx use case state unknown");
    EXPECT_EQ(lines, Lines(r));
  }
  CommandResult byName;
  service_->IsEnabled("bogus", &byName);
  EXPECT_EQ(Status::INVALID_PARAMETER, byName.status);
  EXPECT_THAT(Lines(byName), ElementsAre("IsUseCaseEnabled UNSPECIFIED", "lumx use case state unknown"));
  CommandResult tele;
  service_->IsEnabled("arel_tele", &tele);
  EXPECT_EQ(Status::OK, tele.status);
  EXPECT_EQ(0.0f, tele.value);
  EXPECT_THAT(Lines(tele), ElementsAre("IsUseCaseEnabled AREL_TELE"));
}

TEST_F(UseCaseServiceTest, HotwordNeedsAnExistingProcessor) {
  CommandResult r;
  service_->EnableUseCase(UseCase::HOTWORDAEC, true, &r);
  // The step's own status (INVALID_PROCESSOR) is not passed on.
  EXPECT_EQ(Status::ERROR, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("EnableUseCase HOTWORDAEC 1", "Enable processor hwae", "Lumx processor not found",
                                    "Error enabling Lumx use case 'HOTWORDAEC'"));
}

TEST_F(UseCaseServiceTest, HotwordSwitchesAnExistingProcessor) {
  CommandResult created;
  service_->NewProcessorWithType(ICode("hwae"), ICode("pass"), &created);
  ASSERT_EQ(Status::OK, created.status);

  CommandResult on;
  service_->Enable("HotWordAec", true, &on);
  EXPECT_EQ(Status::OK, on.status);
  EXPECT_THAT(Lines(on), ElementsAre("Enable Lumx use case 'HotWordAec'", "EnableUseCase HOTWORDAEC 1"));
  EXPECT_TRUE(service_->GetLumxProcessor(Code("hwae"))->IsEnabled());

  CommandResult off;
  service_->EnableUseCase(UseCase::HOTWORDAEC, false, &off);
  EXPECT_THAT(Lines(off), ElementsAre("EnableUseCase HOTWORDAEC 0"));
  EXPECT_FALSE(service_->GetLumxProcessor(Code("hwae"))->IsEnabled());
}

TEST_F(UseCaseServiceTest, MicInWithoutBuffer20StopsAtConnect) {
  lumx_host::LogCapture capture;
  CommandResult r;
  service_->EnableUseCase(UseCase::MIC_IN, true, &r);
  EXPECT_EQ(Status::ERROR, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("EnableUseCase MIC_IN 1", "Creating new processor 'pas1' of type 'pass'",
                                    "Connect Lumx processor: tap-out buffer 20 --> processor pas1 --> inject buffer 20",
                                    "Invalid tap out buffer", "Error enabling Lumx use case 'MIC_IN'"));
  // Nothing is undone: the processor stays, unwired and disabled.
  LumxProcessor* p = service_->GetLumxProcessor(Code("pas1"));
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(nullptr, p->input());
  EXPECT_EQ(nullptr, p->output());
  EXPECT_FALSE(p->IsEnabled());
  EXPECT_FALSE(capture.contains("Enable processor pas1"));
  EXPECT_TRUE(capture.contains(
      "EnableUseCase: CommandResult{status: ERROR, value: 0.000000, strList: [EnableUseCase MIC_IN 1, Creating new "
      "processor 'pas1' of type 'pass', Connect Lumx processor: tap-out buffer 20 --> processor pas1 --> inject "
      "buffer 20, Invalid tap out buffer, Error enabling Lumx use case 'MIC_IN']}"));
}

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
