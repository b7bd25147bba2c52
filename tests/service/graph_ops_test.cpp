// Connect and ShowGraph against a scripted DSP: the order of Connect's
// checks, what -1 on either side does, how a second processor takes over an
// inject buffer; which cores ShowGraph asks, how a failure is reported, and
// the text of each processor's line.
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

class GraphTest : public ::testing::Test {
 protected:
  GraphTest() : env_({{20, 21}, {20, 21}}), dsp_(env_.devRoot()) {}

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
  CommandResult Connect(int32_t id, int32_t tapOut, int32_t inject) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->Connect(id, tapOut, inject, r); });
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
  LumxProcessor* Proc(int32_t id) { return service_->GetLumxProcessor(static_cast<uint32_t>(id)); }
  LumxBuffer* TapOut(int id) { return service_->findTapOutBuffer(id); }
  LumxBuffer* Inject(int id) { return service_->findInjectBuffer(id); }

  ::lumx::test::ServiceEnv env_;
  FakeDsp dsp_;
  std::shared_ptr<LumxService> service_;
};

TEST_F(GraphTest, WiresProcessorBetweenTheTwoBuffers) {
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

// Processor, then tap-out buffer, then inject buffer; a bad inject buffer
// leaves the tap-out buffer listing a processor that was not told.
TEST_F(GraphTest, ChecksProcessorThenTapOutThenInject) {
  NewPass(kPas1);
  const struct {
    int32_t id, tapOut, inject;
    Status status;
    const char* line;
    const char* tapOutLists;
  } cases[] = {
      {ICode("zzzz"), 99, 99, Status::INVALID_PROCESSOR, "Invalid processor", "-"},
      {kPas1, 99, 98, Status::INVALID_PARAMETER, "Invalid tap out buffer", "-"},
      {kPas1, 20, 99, Status::INVALID_PARAMETER, "Invalid inject buffer", "pas1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    CommandResult r = Connect(c.id, c.tapOut, c.inject);
    EXPECT_EQ(c.status, r.status);
    EXPECT_THAT(Lines(r), ElementsAre("Connect Lumx processor: tap-out buffer " + std::to_string(c.tapOut) +
                                          " --> processor " + (c.id == kPas1 ? "pas1" : "zzzz") +
                                          " --> inject buffer " + std::to_string(c.inject),
                                      c.line));
    EXPECT_EQ(c.tapOutLists, TapOut(20)->GetOutputsAsString());
    EXPECT_EQ(nullptr, Proc(kPas1)->input());
    EXPECT_EQ(nullptr, Proc(kPas1)->output());
  }
  // Finish the wiring so that deleting the processor unregisters it.
  EXPECT_EQ(Status::OK, Connect(kPas1, 20, -1).status);
}

TEST_F(GraphTest, MinusOneDisconnectsTheProcessorButNotTheBuffers) {
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

TEST_F(GraphTest, SecondProcessorOnAnInjectBufferDisplacesTheFirst) {
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

TEST_F(GraphTest, ReconnectingTheSameProcessorDisplacesNobody) {
  NewPass(kPas1);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 20).status);
  CommandResult r = Connect(kPas1, 20, 20);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre(::testing::_, "  Set pas1 input to tapout20", "  Set pas1 output to inject20"));
  EXPECT_EQ("pas1", TapOut(20)->GetOutputsAsString());
  EXPECT_EQ(Inject(20), Proc(kPas1)->output());
}

// The tap name of a buffer comes from the DSP's bindings: the first tap bound
// on the buffer's side; anything but enabled 1 is marked.
TEST_F(GraphTest, TapNameMatchesTheSideOfTheBuffer) {
  auto tap = [](const char(&code)[5], uint8_t index, uint8_t enabled, int8_t tapOut, int8_t inject) {
    LumxTapDetailedInfo t{};
    t.tapCode = Code(code);
    t.index = index;
    t.enabled = enabled;
    t.tapOutBuffer = tapOut;
    t.injectBuffer = inject;
    return t;
  };
  std::vector<LumxTapDetailedInfo> taps = {tap("aaaa", 0, 1, -1, 20), tap("imic", 3, 1, 20, -1)};
  EXPECT_EQ("imic.3", service_->getTapNameConnectedToBuffer(TapOut(20), taps));
  EXPECT_EQ("aaaa.0", service_->getTapNameConnectedToBuffer(Inject(20), taps));
  EXPECT_EQ("NC", service_->getTapNameConnectedToBuffer(TapOut(21), taps));
  EXPECT_EQ("NC", service_->getTapNameConnectedToBuffer(Inject(21), taps));
  EXPECT_EQ("NC", service_->getTapNameConnectedToBuffer(TapOut(20), {}));
  taps = {tap("sspk", 12, 0, 21, 21), tap("imic", 0, 1, 21, 21)};
  EXPECT_EQ("sspk.12 (disabled)", service_->getTapNameConnectedToBuffer(TapOut(21), taps));
  taps[0].enabled = 2;
  EXPECT_EQ("sspk.12 (disabled)", service_->getTapNameConnectedToBuffer(Inject(21), taps));
}

TEST_F(GraphTest, ListFailureEndsTheReportAndNamesTheCore) {
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

TEST_F(GraphTest, NoProcessorsEvenWithTaps) {
  CommandResult r = Graph();
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  No Lumx processors"));
  EXPECT_THAT(ListedCores(), ElementsAre(2, 3, 4));
}

TEST_F(GraphTest, ProcessorWithoutBuffers) {
  NewPass(kPas1);
  CommandResult r = Graph();
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  NC --> NC --> pas1 (disabled) --> NC --> NC"));
  EnableProc(kPas1);
  r = Graph();
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  NC --> NC --> pas1 --> NC --> NC"));
  // A buffer no tap is bound to: NC, but the buffer's name.
  ASSERT_EQ(Status::OK, Connect(kPas1, 21, -1).status);
  EXPECT_THAT(Lines(Graph()), ElementsAre("Connection graph:", "  NC --> tapout21 --> pas1 --> NC --> NC"));
}

// "(disabled)" marks a tap the DSP has not enabled, on either side.
TEST_F(GraphTest, DisabledTapsAndProcessorsAreMarked) {
  auto taps = FakeDsp::UseCaseTaps();
  taps[0].tapOut = 20;  // 2:imic.0, not enabled
  taps[0].inject = 20;
  taps[1].tapOut = 21;  // 2:sspk.0 feeds tap-out 21, enabled
  taps[1].enabled = 1;
  taps[4].inject = 21;  // 4:vpul.1 takes inject 21, disabled
  dsp_.SetTaps(taps);
  NewPass(kPas1);
  NewPass(kPas2);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 20).status);
  ASSERT_EQ(Status::OK, Connect(kPas2, 21, 21).status);
  EnableProc(kPas1);
  CommandResult r = Graph();
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:",
                                    "  imic.0 (disabled) --> tapout20 --> pas1 --> inject20 --> imic.0 (disabled)",
                                    "  sspk.0 --> tapout21 --> pas2 (disabled) --> inject21 --> vpul.1 (disabled)"));
}

TEST_F(GraphTest, OneLinePerProcessorInIdOrder) {
  auto taps = FakeDsp::UseCaseTaps();
  taps[0].tapOut = 20;
  taps[0].enabled = 1;
  taps[3].inject = 20;  // a core-4 tap: the cores' lists are joined
  taps[3].enabled = 1;
  dsp_.SetTaps(taps);
  NewPass(kPas2);
  NewPass(kPas1);
  ASSERT_EQ(Status::OK, Connect(kPas2, 20, 20).status);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, -1).status);
  EnableProc(kPas2);
  CommandResult r = Graph();
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  imic.0 --> tapout20 --> pas1 (disabled) --> NC --> NC",
                                    "  imic.0 --> tapout20 --> pas2 --> inject20 --> vpdl.0"));
}

TEST_F(GraphTest, TapListSpanningPagesIsJoined) {
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
  ASSERT_EQ(Status::OK, Connect(kPas1, 21, 21).status);
  CommandResult r = Graph();
  EXPECT_THAT(Lines(r), ElementsAre("Connection graph:", "  imic.9 --> tapout21 --> pas1 (disabled) --> inject21 --> NC"));
}

// The report must stay safe while processors come and go on another thread.
TEST_F(GraphTest, ConcurrentDeleteDoesNotBreakTheReport) {
  NewPass(kPas1);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 20).status);
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
