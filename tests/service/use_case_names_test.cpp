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

}  // namespace
