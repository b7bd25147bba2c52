// The service's dump in process: its arguments and forms, the field names of
// its JSON object, the counters of a stream whose inject reader stalls (and
// their reset), the control channel's counters while a DSP command times
// out, during which the dump still answers, and dumps racing with rescans and
// processor deletes (the dump pins what it reads instead of taking the
// service mutex).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "daemon/lumxd.h"
#include "service/lumx_service.h"
#include "support/daemon_service_access.h"
#include "support/daemon_test_util.h"
#include "support/fake_control_driver.h"
#include "support/json_reader.h"
#include "support/stream_fifo_rig.h"

namespace {

using lumx::test::ICode;
using lumx::test::JsonValue;
using Keys = std::vector<std::string>;

class DumpOpsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture.setEcho(false);
    ASSERT_EQ(0, mkdir(sysfs.Join("power").c_str(), 0700));
    sysfs.Touch("power/wake_lock");
    sysfs.Touch("power/wake_unlock");
    ASSERT_TRUE(driver.ok());
    Lumxd::Instance().reopenLumxControl();
    service = LumxServiceTestAccess::Make();
  }
  void TearDown() override {
    rig.Stall(0, false);
    CommandResult r;
    service->DeleteProcessor(ICode("pas0"), &r);
    service.reset();
    Lumxd::Instance().closeLumxControl();
  }

  std::string Dump(std::vector<const char*> args) {
    int p[2];
    EXPECT_EQ(0, pipe2(p, O_CLOEXEC));
    EXPECT_EQ(STATUS_OK, service->dump(p[1], args.data(), static_cast<uint32_t>(args.size())));
    close(p[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(p[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    close(p[0]);
    return out;
  }
  JsonValue Json(std::vector<const char*> args = {"--json"}) {
    const std::string text = Dump(std::move(args));
    JsonValue v;
    std::string error;
    EXPECT_TRUE(JsonValue::Parse(text, &v, &error)) << error << "\n" << text;
    return v;
  }

  lumx_host::LogCapture capture;
  lumx_test::TempDir sysfs{"lumx-dump-sysfs"};
  lumx_test::ScopedEnv sysfsEnv{"LUMX_SYSFS_ROOT", sysfs.path().c_str()};
  StreamFifoRig rig{2};
  lumx_test::FakeControlDriver driver{rig.dir.root()};
  std::shared_ptr<LumxService> service;
};

TEST_F(DumpOpsTest, ArgumentsPickTheFormAndUnknownOnesComeFirst) {
  const Keys sections = {"lumxd", "wake lock", "control channel", "device watch", "tap-out buffers",
                         "inject buffers", "processors"};
  struct Case {
    std::vector<const char*> args;
    std::string firstLines;  // the unknown-argument lines
    bool json;
  };
  const Case cases[] = {
      {{}, "", false},
      {{"--reset"}, "", false},
      {{"--json"}, "", true},
      {{"-x", "--json", "a\x01'b"}, "unknown argument '-x'\nunknown argument 'a\\x01'b'\n", true},
  };
  for (const Case& c : cases) {
    const std::string out = Dump(c.args);
    ASSERT_EQ(c.firstLines, out.substr(0, c.firstLines.size())) << out;
    const std::string rest = out.substr(c.firstLines.size());
    if (c.json) {
      JsonValue v;
      std::string error;
      ASSERT_TRUE(JsonValue::Parse(rest, &v, &error)) << error << "\n" << rest;
      EXPECT_EQ('\n', rest.back());
      EXPECT_NE('\n', rest[rest.size() - 2]) << "one object, one newline";
      EXPECT_EQ(v.keys(), (Keys{"interface", "uptime_s", "wake_lock", "control", "device_watch", "tapout_buffers",
                                "inject_buffers", "processors"}));
      EXPECT_EQ(2, v["interface"]["version"].number());
      EXPECT_EQ(40u, v["interface"]["hash"].str().size());
      EXPECT_EQ(v["wake_lock"].keys(), (Keys{"held", "held_s", "acquisitions"}));
      EXPECT_EQ(v["control"].keys(), (Keys{"open", "commands", "timeouts", "unmatched_replies", "reopens",
                                           "last_error"}));
      EXPECT_TRUE(v["control"]["open"].boolean());
      EXPECT_EQ(v["device_watch"].keys(), (Keys{"events", "rescans"}));
      EXPECT_EQ(3u, v["uptime_s"].text().size() - v["uptime_s"].text().find('.') - 1) << "3 decimals";
    } else {
      const std::string text = "\n" + rest;
      size_t at = 0;
      for (const std::string& s : sections) {
        at = text.find("\n" + s + "\n", at);
        ASSERT_NE(at, std::string::npos) << "section " << s << " in order\n" << rest;
      }
      EXPECT_EQ(0u, rest.find("lumxd\n"));
    }
  }
}

TEST_F(DumpOpsTest, StalledInjectStreamCountsEveryPacketOnceAndResets) {
  rig.Stall(0, true);
  CommandResult r;
  service->NewProcessorWithType(ICode("pas0"), ICode("pass"), &r);
  service->Connect(ICode("pas0"), 0, 0, &r);
  service->ProcessorEnable(ICode("pas0"), true, &r);
  service->ConnectTap(2, ICode("imic"), 0, 0, 0, &r);
  service->StartIo(0, &r);
  ASSERT_EQ(r.status, CommandResult::Status::OK);
  // The dump answers while the thread meets a full pipe, again and again.
  ASSERT_TRUE(BufferWaitFor([&] { return Json()["inject_buffers"][0]["write_timeouts"].number() >= 3; }));
  service->StopIo(0, &r);

  const JsonValue v = Json();
  const JsonValue& out = v["tapout_buffers"][0];
  const JsonValue& in = v["inject_buffers"][0];
  const JsonValue& pas = v["processors"][0];
  EXPECT_EQ(out.keys(), (Keys{"id", "name", "enabled", "running", "tap", "outputs", "format", "packets", "bytes",
                              "lost", "cut", "skipped_bytes", "read_errors", "reopens", "eof_episodes", "process_us",
                              "jitter_max_us", "last_error"}));
  EXPECT_EQ(in.keys(), (Keys{"id", "name", "enabled", "tap", "input", "packets", "write_failures", "write_timeouts",
                             "cut"}));
  EXPECT_EQ(pas.keys(), (Keys{"id", "type", "enabled", "input", "output", "blocks", "failed"}));
  EXPECT_EQ("tapout0", out["name"].str());
  EXPECT_FALSE(out["running"].boolean());
  EXPECT_EQ("2:imic.0", out["tap"].str());
  EXPECT_EQ("2:imic.0", in["tap"].str());
  EXPECT_EQ(1u, out["outputs"].size());
  EXPECT_EQ("pas0", out["outputs"][0].str());
  EXPECT_EQ(out["format"].keys(), (Keys{"rate", "channels", "bytes_per_sample", "payload", "block_length"}));
  EXPECT_EQ(48000, out["format"]["rate"].number());
  EXPECT_EQ(480, out["format"]["block_length"].number());
  const double packets = out["packets"].number();
  const double timeouts = in["write_timeouts"].number();
  EXPECT_TRUE(out["packets"].isUnsigned());
  EXPECT_EQ(1920 * packets, out["bytes"].number());
  // The inject buffer starts after its tap-out: the first packets may find
  // it not enabled yet (-1); every later one meets the full pipe.
  const JsonValue& failures = in["write_failures"];
  EXPECT_EQ(failures.keys().back(), "-110");
  EXPECT_LE(failures.size(), 2u);
  EXPECT_EQ(timeouts, failures["-110"].number());
  EXPECT_EQ(packets, in["packets"].number() + timeouts + failures["-1"].number()) << "each written or failed";
  EXPECT_EQ(packets, pas["blocks"].number());
  EXPECT_EQ(0, out["lost"].number() + out["cut"]["alignment"].number() + out["skipped_bytes"].number());
  EXPECT_TRUE(out["last_error"].isNull());
  EXPECT_EQ("inject0", pas["output"].str());
  EXPECT_EQ("pas0", in["input"].str());
  EXPECT_TRUE(v["tapout_buffers"][1]["format"].isNull());
  EXPECT_TRUE(v["tapout_buffers"][1]["tap"].isNull());

  // A reset dump shows what it clears; the next one starts from zero.
  EXPECT_EQ(packets, Json({"--json", "--reset"})["tapout_buffers"][0]["packets"].number());
  const JsonValue after = Json();
  EXPECT_EQ(0, after["tapout_buffers"][0]["packets"].number());
  EXPECT_EQ(0u, after["inject_buffers"][0]["write_failures"].size());
  EXPECT_EQ(0, after["inject_buffers"][0]["write_timeouts"].number());
  EXPECT_EQ(0, after["processors"][0]["blocks"].number());
  EXPECT_EQ("2:imic.0", after["tapout_buffers"][0]["tap"].str()) << "state is not a counter";
}

TEST_F(DumpOpsTest, ControlFaultsMoveTheirCountersAndTheDumpDoesNotWait) {
  using Action = lumx_test::FakeControlDriver::Action;
  struct Case {
    Action action;
    double commands, timeouts, unmatched;
    int64_t lastError;  // 0: unchanged
  };
  Action silent;
  silent.silent = true;
  Action stray;
  stray.otherOpcodeFirst = 0xFFFF;
  const Case cases[] = {{silent, 1, 1, 0, -110}, {stray, 1, 0, 1, 0}, {Action(), 1, 0, 0, 0}};
  for (const Case& c : cases) {
    const JsonValue before = Json();
    const size_t sent = driver.Requests().size();
    driver.Queue(c.action);
    auto call = std::async(std::launch::async, [this] {
      CommandResult r;
      service->TapInfo(2, ICode("imic"), 0, &r);
    });
    if (c.action.silent) {
      // The command holds the service mutex and the control channel until
      // its time-out; the dump reads neither.
      ASSERT_TRUE(driver.WaitHandled(sent + 1));
      EXPECT_TRUE(Json()["control"]["open"].boolean());
      EXPECT_EQ(call.wait_for(std::chrono::seconds(0)), std::future_status::timeout) << "answered meanwhile";
    }
    call.wait();
    const JsonValue after = Json();
    const JsonValue& b = before["control"];
    const JsonValue& a = after["control"];
    EXPECT_EQ(c.commands, a["commands"].number() - b["commands"].number());
    EXPECT_EQ(c.timeouts, a["timeouts"].number() - b["timeouts"].number());
    EXPECT_EQ(c.unmatched, a["unmatched_replies"].number() - b["unmatched_replies"].number());
    if (c.lastError != 0) {
      EXPECT_EQ(c.lastError, a["last_error"]["code"].number());
      EXPECT_LT(a["last_error"]["age_s"].number(), 60);
    }
  }
}

TEST_F(DumpOpsTest, DumpsRaceWithRescansAndProcessorDeletes) {
  std::atomic<bool> stop{false};
  std::atomic<int> dumps{0};
  std::thread dumper([&] {
    while (!stop) {
      const JsonValue v = Json(dumps % 2 == 0 ? std::vector<const char*>{"--json"}
                                              : std::vector<const char*>{"--json", "--reset"});
      EXPECT_EQ(v.keys().size(), 8u);
      ++dumps;
    }
  });
  for (int i = 0; i < 30 || dumps < 30; ++i) {
    CommandResult r;
    const int32_t processors[][2] = {{ICode("pas0"), ICode("pass")}, {ICode("art0"), ICode("arel")}};
    for (const auto& p : processors) {
      service->NewProcessorWithType(p[0], p[1], &r);
      service->Connect(p[0], i % 2, i % 2, &r);
    }
    service->Debug({i % 2 == 0 ? "buffer_deinit" : "buffer_init"}, &r);
    service->DeleteProcessor(ICode(i % 3 == 0 ? "pas0" : "art0"), &r);
    service->ConnectTap(2, ICode("imic"), 0, i % 2, i % 2, &r);
  }
  stop = true;
  dumper.join();
  CommandResult r;
  service->DeleteProcessor(ICode("art0"), &r);
  service->DeleteProcessor(ICode("pas0"), &r);
  service->Debug({"buffer_init"}, &r);
  service->NewProcessorWithType(ICode("pas0"), ICode("pass"), &r);
  service->Connect(ICode("pas0"), 1, 1, &r);
  const JsonValue v = Json();
  ASSERT_EQ(2u, v["tapout_buffers"].size());
  EXPECT_EQ("pas0", v["tapout_buffers"][1]["outputs"][0].str());
  EXPECT_EQ("pas0", v["inject_buffers"][1]["input"].str());
  ASSERT_EQ(1u, v["processors"].size());
  EXPECT_EQ("tapout1", v["processors"][0]["input"].str());
}

}  // namespace
