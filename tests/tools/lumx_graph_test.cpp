// lumx graph against lumxd and lumx-dspsim: the DOT of each use case, and of
// MIC_IN switched off again, compared with golden files written by hand from
// the use case's path (tests/tools/golden/). Each stack starts fresh, since
// a use case switched off leaves its taps bound on the DSP.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/daemon_test_util.h"
#include "support/system_stack.h"

namespace {

using ::lumx::test::LumxRun;
using ::lumx::test::SystemStack;

class LumxGraphTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!stack_.BinariesFound()) GTEST_SKIP() << stack_.error();
    ASSERT_TRUE(stack_.StartSimulator()) << stack_.error() << stack_.Logs();
    ASSERT_TRUE(stack_.StartDaemon()) << stack_.error() << stack_.Logs();
  }
  void TearDown() override {
    if (HasFailure()) ADD_FAILURE() << stack_.Logs();
  }

  void Ok(const std::vector<std::string>& args) {
    LumxRun run = stack_.Lumx(args);
    EXPECT_EQ(run.exitCode, 0) << args[0] << ": " << run.out << run.err;
  }
  void ExpectGraph(const std::string& golden) {
    LumxRun run = stack_.Lumx({"graph", "--dot"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, lumx_test::ReadFileText(std::string(LUMX_SOURCE_DIR) + "/tests/tools/golden/graph_" +
                                               golden + ".dot"))
        << golden;
  }

  SystemStack stack_;
};

TEST_F(LumxGraphTest, NoneHotwordaecMicInAndMicInOff) {
  ExpectGraph("none");
  Ok({"NewProcessorWithType", "hwae", "pass"});
  Ok({"Enable", "hotwordaec", "1"});
  ExpectGraph("hotwordaec");
  Ok({"DeleteProcessor", "hwae"});
  Ok({"Enable", "mic_in", "1"});
  ExpectGraph("mic_in");
  Ok({"Enable", "mic_in", "0"});
  ExpectGraph("mic_in_off");
}

TEST_F(LumxGraphTest, SpeakerOut) {
  Ok({"Enable", "speaker_out", "1"});
  ExpectGraph("speaker_out");
}

TEST_F(LumxGraphTest, ArelTele) {
  Ok({"Enable", "arel_tele", "1"});
  ExpectGraph("arel_tele");
}

}  // namespace
