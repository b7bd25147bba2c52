// ShowGraph against a scripted DSP: which cores are asked, how a failure is
// reported, and the text of each processor's line.
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>

#include <atomic>
#include <thread>

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

const int32_t kPas1 = ICode("pas1");
const int32_t kPas2 = ICode("pas2");

class GraphShowTest : public ::testing::Test {
 protected:
  GraphShowTest() : env_({{20, 21}, {20, 21}}), dsp_(env_.devRoot()) {}

  void SetUp() override {
    ASSERT_TRUE(dsp_.ok());
    service_ = env_.MakeService();
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
  void Connect(int32_t id, int tapOut, int inject) {
    CommandResult r;
    service_->Connect(id, tapOut, inject, &r);
    ASSERT_EQ(Status::OK, r.status) << r.toString();
  }
  void EnableProc(int32_t id) {
    CommandResult r;
    service_->ProcessorEnable(id, true, &r);
    ASSERT_EQ(Status::OK, r.status) << r.toString();
  }
  CommandResult Graph() { return ::lumx::test::Call([&](CommandResult* r) { return service_->ShowGraph(r); }); }
  std::vector<int> ListedCores() {
    std::vector<int> cores;
    for (const auto& req : dsp_.Requests()) {
      if (req.opcode == FakeDsp::kTapList) cores.push_back(req.core);
    }
    return cores;
  }

  ::lumx::test::ServiceEnv env_;
  FakeDsp dsp_;
  std::shared_ptr<LumxService> service_;
};

TEST_F(GraphShowTest, ListFailureEndsTheReportAndNamesTheCore) {
  NewPass(kPas1);
  dsp_.Fail(FakeDsp::kTapList, -19, 3);
  lumx_host::LogCapture capture;
  CommandResult r = Graph();
  EXPECT_EQ(Status::ERROR, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "Error retrieving list of tap points from LuM core 3"));
  // Core 2 is asked first, core 4 never.
  EXPECT_THAT(ListedCores(), ElementsAre(2, 3));
  auto entries = capture.entries();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ((lumx_host::LogEntry{ANDROID_LOG_INFO, "lumx", "ShowGraph"}), entries.front());
  EXPECT_EQ((lumx_host::LogEntry{ANDROID_LOG_ERROR, "lumx",
                                 "ShowGraph: CommandResult{status: ERROR, value: 0.000000, strList: [Connection "
                                 "graph:, Error retrieving list of tap points from LuM core 3]}"}),
            entries.back());

  dsp_.ClearRequests();
  dsp_.Fail(FakeDsp::kTapList, -5, 2);
  EXPECT_THAT(Lines(Graph()), ElementsAre("Connection graph:", "Error retrieving list of tap points from LuM core 2"));
  EXPECT_THAT(ListedCores(), ElementsAre(2));
}

TEST_F(GraphShowTest, NoProcessorsEvenWithTaps) {
  CommandResult r = Graph();
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  No Lumx processors"));
  EXPECT_THAT(ListedCores(), ElementsAre(2, 3, 4));
}

TEST_F(GraphShowTest, ProcessorWithoutBuffers) {
  NewPass(kPas1);
  CommandResult r = Graph();
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  NC --> NC --> pas1 (disabled) --> NC --> NC"));
  EnableProc(kPas1);
  r = Graph();
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  NC --> NC --> pas1 --> NC --> NC"));
  // A buffer no tap is bound to: NC, but the buffer's name.
  Connect(kPas1, 21, -1);
  EXPECT_THAT(Lines(Graph()), ElementsAre("Connection graph:", "  NC --> tapout21 --> pas1 --> NC --> NC"));
}

// "(disabled)" marks a tap the DSP has not enabled, on either side.
TEST_F(GraphShowTest, DisabledTapsAndProcessorsAreMarked) {
  auto taps = FakeDsp::UseCaseTaps();
  taps[0].tapOut = 20;  // 2:imic.0, not enabled
  taps[0].inject = 20;
  taps[1].tapOut = 21;  // 2:sspk.0 feeds tap-out 21, enabled
  taps[1].enabled = 1;
  taps[4].inject = 21;  // 4:vpul.1 takes inject 21, disabled
  dsp_.SetTaps(taps);
  NewPass(kPas1);
  NewPass(kPas2);
  Connect(kPas1, 20, 20);
  Connect(kPas2, 21, 21);
  EnableProc(kPas1);
  CommandResult r = Graph();
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:",
                                    "  imic.0 (disabled) --> tapout20 --> pas1 --> inject20 --> imic.0 (disabled)",
                                    "  sspk.0 --> tapout21 --> pas2 (disabled) --> inject21 --> vpul.1 (disabled)"));
}

TEST_F(GraphShowTest, OneLinePerProcessorInIdOrder) {
  auto taps = FakeDsp::UseCaseTaps();
  taps[0].tapOut = 20;
  taps[0].enabled = 1;
  taps[3].inject = 20;  // a core-4 tap: the cores' lists are joined
  taps[3].enabled = 1;
  dsp_.SetTaps(taps);
  NewPass(kPas2);
  NewPass(kPas1);
  Connect(kPas2, 20, 20);
  Connect(kPas1, 20, -1);
  EnableProc(kPas2);
  CommandResult r = Graph();
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  imic.0 --> tapout20 --> pas1 (disabled) --> NC --> NC",
                                    "  imic.0 --> tapout20 --> pas2 --> inject20 --> vpdl.0"));
}

TEST_F(GraphShowTest, TapListSpanningPagesIsJoined) {
  // Six taps on core 2: the list takes two pages; the bound one is on the second.
  auto taps = FakeDsp::UseCaseTaps();
  for (uint8_t i = 1; i <= 3; ++i) {
    FakeTap t = taps[0];
    t.index = i;
    taps.insert(taps.begin() + 1, t);
  }
  FakeTap last = taps[0];
  last.index = 9;
  last.enabled = 1;
  last.tapOut = 21;
  taps.insert(taps.begin() + 4, last);
  dsp_.SetTaps(taps);
  NewPass(kPas1);
  Connect(kPas1, 21, 21);
  CommandResult r = Graph();
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  imic.9 --> tapout21 --> pas1 (disabled) --> inject21 --> NC"));
}

// The report must stay safe while processors come and go on another thread.
TEST_F(GraphShowTest, ConcurrentDeleteDoesNotBreakTheReport) {
  NewPass(kPas1);
  Connect(kPas1, 20, 20);
  std::atomic<bool> done{false};
  std::thread churn([&] {
    for (int i = 0; i < 40; ++i) {
      CommandResult r;
      service_->NewProcessorWithType(kPas2, ICode("pass"), &r);
      service_->Connect(kPas2, 21, 21, &r);
      service_->DeleteProcessor(kPas2, &r);
    }
    done = true;
  });
  int reports = 0;
  while (!done || reports < 5) {
    CommandResult r = Graph();
    ASSERT_EQ(Status::OK, r.status);
    ASSERT_GE(r.strList.size(), 2u);
    EXPECT_EQ("  NC --> tapout20 --> pas1 (disabled) --> inject20 --> NC", r.strList[1]);
    ++reports;
  }
  churn.join();
}

}  // namespace
