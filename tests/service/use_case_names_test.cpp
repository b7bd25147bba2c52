// Use cases that never reach the DSP: name parsing, unknown and untracked
// use cases, the listing, hotword switching and a path that stops early.
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>

#include "common/lumx_utils.h"
#include "processors/lumx_processor.h"
#include "service/lumx_service.h"
#include "support/system_service_env.h"

namespace {

using ::lumx::test::Code;
using ::lumx::test::ICode;
using ::lumx::test::Lines;
using ::testing::ElementsAre;
using Status = CommandResult::Status;

TEST(UseCaseNameTest, ParsesNamesCaseInsensitively) {
  EXPECT_EQ(UseCase::MIC_IN, LumxService::stringToUseCase("mic_in"));
  EXPECT_EQ(UseCase::MIC_IN, LumxService::stringToUseCase("Mic_In"));
  EXPECT_EQ(UseCase::HOTWORDAEC, LumxService::stringToUseCase("hotwordaec"));
  EXPECT_EQ(UseCase::SPEAKER_OUT, LumxService::stringToUseCase("SPEAKER_OUT"));
  EXPECT_EQ(UseCase::AREL_TELE, LumxService::stringToUseCase("arel_TELE"));
  EXPECT_EQ(UseCase::UNSPECIFIED, LumxService::stringToUseCase("unspecified"));
}

TEST(UseCaseNameTest, AnythingElseIsUnspecified) {
  for (const char* name : {"MIC-IN", " MIC_IN", "MIC_IN ", "MIC_INX", "", "1", "mic in"}) {
    EXPECT_EQ(UseCase::UNSPECIFIED, LumxService::stringToUseCase(name)) << "'" << name << "'";
  }
  // Only ASCII letters are folded; a whole-string compare sees the NUL.
  EXPECT_EQ(UseCase::UNSPECIFIED, LumxService::stringToUseCase(std::string("MIC_IN\0", 7)));
  EXPECT_EQ(UseCase::UNSPECIFIED, LumxService::stringToUseCase("m\xc3\xaf" "c_in"));
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

TEST_F(UseCaseServiceTest, UnknownNameIsReportedAsUnspecified) {
  CommandResult r;
  EXPECT_TRUE(service_->Enable("MIC-IN", true, &r).isOk());
  EXPECT_EQ(Status::ERROR, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Enable Lumx use case 'MIC-IN'", "EnableUseCase UNSPECIFIED 1",
                                    "Unknown Lumx use case 'UNSPECIFIED'"));
  EXPECT_EQ(nullptr, service_->GetLumxProcessor(Code("pas1")));
}

TEST_F(UseCaseServiceTest, OutOfRangeUseCasePrintsItsNumber) {
  CommandResult r;
  service_->EnableUseCase(static_cast<UseCase>(7), false, &r);
  EXPECT_EQ(Status::ERROR, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("EnableUseCase 7 0", "Unknown Lumx use case '7'"));
}

TEST_F(UseCaseServiceTest, UntrackedUseCasesAnswerInvalidParameter) {
  for (UseCase uc : {UseCase::MIC_IN, UseCase::SPEAKER_OUT, UseCase::UNSPECIFIED}) {
    CommandResult r;
    EXPECT_TRUE(service_->IsUseCaseEnabled(uc, &r).isOk());
    EXPECT_EQ(Status::INVALID_PARAMETER, r.status);
    EXPECT_THAT(Lines(r), ElementsAre("IsUseCaseEnabled " + UseCaseToString(uc), "lumx use case state unknown"));
  }
  CommandResult byName;
  service_->IsEnabled("bogus", &byName);
  EXPECT_EQ(Status::INVALID_PARAMETER, byName.status);
  EXPECT_THAT(Lines(byName), ElementsAre("IsUseCaseEnabled UNSPECIFIED", "lumx use case state unknown"));
}

TEST_F(UseCaseServiceTest, HotwordAndTelephonyStatesAreAnswered) {
  CommandResult hw;
  service_->IsUseCaseEnabled(UseCase::HOTWORDAEC, &hw);
  EXPECT_EQ(Status::OK, hw.status);
  EXPECT_EQ(0.0f, hw.value);
  EXPECT_THAT(Lines(hw), ElementsAre("IsUseCaseEnabled HOTWORDAEC"));

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

}  // namespace
