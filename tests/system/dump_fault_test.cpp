// The daemon's dump against the simulator's faults, through the host binder
// (AIBinder_dump on the service proxy, as dumpsys calls it): each counter
// moves by what the fault produced.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <android/binder_auto_utils.h>
#include <lumx_host/binder_host.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/daemon_test_util.h"
#include "support/json_reader.h"
#include "support/system_stack.h"

namespace {

using lumx::test::JsonValue;
using lumx::test::StreamStat;
using lumx::test::SystemStack;

class DumpFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!stack_.BinariesFound()) GTEST_SKIP() << stack_.error();
  }
  void TearDown() override {
    if (HasFailure()) ADD_FAILURE() << stack_.Logs();
  }
  void Start(const std::vector<std::string>& simArgs) {
    ASSERT_TRUE(stack_.StartSimulator(simArgs)) << stack_.error();
    ASSERT_TRUE(stack_.StartDaemon()) << stack_.error();
    binderDir_ = std::make_unique<lumx_test::ScopedEnv>("LUMX_BINDER_DIR", stack_.Path("binder").c_str());
    proxy_.set(lumx_host::ConnectToServiceSocket("lumx.ILumx/default"));
    ASSERT_NE(nullptr, proxy_.get());
  }
  JsonValue Dump() {
    int p[2];
    EXPECT_EQ(0, pipe2(p, O_CLOEXEC));
    const char* args[] = {"--json"};
    EXPECT_EQ(STATUS_OK, AIBinder_dump(proxy_.get(), p[1], args, 1));
    close(p[1]);
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(p[0], buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    close(p[0]);
    JsonValue v;
    std::string error;
    EXPECT_TRUE(JsonValue::Parse(text, &v, &error)) << error << "\n" << text;
    return v;
  }
  void Lumx(const std::vector<std::string>& args) {
    EXPECT_EQ(0, stack_.Lumx(args).exitCode) << ::testing::PrintToString(args);
  }
  // MIC_IN streams tap-out 20 into inject 20 until `enough` holds for the
  // dump; then the stream stops, so that the counters hold still.
  JsonValue StreamUntil(const std::function<bool(const JsonValue&)>& enough) {
    Lumx({"Enable", "mic_in", "1"});
    EXPECT_TRUE(lumx_test::WaitUntil([&] { return enough(Dump()); }, 60000));
    Lumx({"StopIo", "20"});
    return Dump();
  }

  void ControlCase(const char* fault, double timeouts, double unmatched);

  SystemStack stack_;
  std::unique_ptr<lumx_test::ScopedEnv> binderDir_;
  ndk::SpAIBinder proxy_;
};

TEST_F(DumpFaultTest, PacketNumberJumpsCountAsLostPackets) {
  Start({"--fault-jump", "1", "--fault-jump-by", "5", "--fault-tapout", "20"});
  const JsonValue v = StreamUntil([](const JsonValue& d) { return d["tapout_buffers"][0]["packets"].number() >= 30; });
  const JsonValue& b = v["tapout_buffers"][0];
  ASSERT_EQ(20, b["id"].number());
  const double busy = StreamStat(stack_.SimulatorStats(), "zch-lumx_tapout20", "dropped_busy");
  // Every packet skips five numbers; the first one of the stream counts none.
  EXPECT_EQ(5 * (b["packets"].number() - 1) + busy, b["lost"].number());
  EXPECT_EQ("2:imic.0", b["tap"].str());
  EXPECT_EQ(0, b["cut"]["version"].number() + b["read_errors"].number());
}

TEST_F(DumpFaultTest, StalledInjectReaderTimesOutEachPacketItCannotTake) {
  Start({"--fault-stall-inject", "20"});
  const JsonValue v =
      StreamUntil([](const JsonValue& d) { return d["inject_buffers"][0]["write_timeouts"].number() >= 5; });
  const JsonValue& out = v["tapout_buffers"][0];
  const JsonValue& in = v["inject_buffers"][0];
  ASSERT_EQ(20, in["id"].number());
  const double timeouts = in["write_timeouts"].number();
  EXPECT_EQ(timeouts, in["write_failures"]["-110"].number());
  // Not enabled yet (-1): packets the tap-out delivered before the inject buffer started.
  EXPECT_EQ(out["packets"].number(), in["packets"].number() + timeouts + in["write_failures"]["-1"].number());
  EXPECT_EQ("pas1", in["input"].str());
  EXPECT_EQ(out["packets"].number(), v["processors"][0]["blocks"].number());
}

// Three TapInfo commands against a DSP that answers each with `fault`.
void DumpFaultTest::ControlCase(const char* fault, double timeouts, double unmatched) {
  Start({fault, "1"});
  const JsonValue before = Dump();
  for (int i = 0; i < 3; ++i) stack_.Lumx({"TapInfo", "2", "imic", "0"});
  const JsonValue after = Dump();
  const JsonValue& b = before["control"];
  const JsonValue& a = after["control"];
  EXPECT_EQ(3, a["commands"].number() - b["commands"].number());
  EXPECT_EQ(timeouts, a["timeouts"].number() - b["timeouts"].number());
  EXPECT_EQ(unmatched, a["unmatched_replies"].number() - b["unmatched_replies"].number());
  if (timeouts > 0) {
    EXPECT_EQ(-110, a["last_error"]["code"].number());
  }
}

TEST_F(DumpFaultTest, StrayRepliesCountAsUnmatched) { ControlCase("--fault-stray-reply", 0, 3); }
TEST_F(DumpFaultTest, DroppedRepliesCountAsTimeouts) { ControlCase("--fault-drop-reply", 3, 0); }

}  // namespace
