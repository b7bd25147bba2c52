// The service while streams run into misbehaving devices: a stalled inject
// reader holds up nothing but its own packets, and eight clients rewiring,
// starting and stopping streams corrupt no packet and stop no other stream.
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <vector>

#include "service/lumx_service.h"
#include "support/daemon_service_access.h"
#include "support/daemon_test_util.h"
#include "support/stream_fifo_rig.h"
#include "support/system_service_env.h"

namespace {

using lumx::test::ICode;

class StreamFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture.setEcho(false);
    ASSERT_EQ(0, mkdir(sysfs.Join("power").c_str(), 0700));
    sysfs.Touch("power/wake_lock");
    sysfs.Touch("power/wake_unlock");
    service = LumxServiceTestAccess::Make();
  }
  void TearDown() override {
    // A call still stuck behind a stalled reader gets going again here.
    for (int i = 0; i < kBuffers; ++i) rig.Stall(i, false);
    calls.clear();
    service.reset();
  }
  // Processor `id` passes tap-out `buf` through to inject `buf`, streaming.
  void Stream(int32_t id, int buf) {
    CommandResult r;
    service->NewProcessorWithType(id, ICode("pass"), &r);
    service->Connect(id, buf, buf, &r);
    service->ProcessorEnable(id, true, &r);
    service->StartIo(buf, &r);
    ASSERT_EQ(r.status, CommandResult::Status::OK);
  }
  // Runs `call` on its own thread; true when it returned within 10 s (a
  // limit for a hang, not a speed goal).
  bool Returns(std::function<void(CommandResult*)> call) {
    calls.push_back(std::async(std::launch::async, [call] { CommandResult r; call(&r); }));
    return calls.back().wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  }

  static constexpr int kBuffers = 5;
  lumx_host::LogCapture capture;
  lumx_test::TempDir sysfs{"lumx-fault-sysfs"};
  lumx_test::ScopedEnv sysfsEnv{"LUMX_SYSFS_ROOT", sysfs.path().c_str()};
  StreamFifoRig rig{kBuffers};
  std::shared_ptr<LumxService> service;
  std::vector<std::future<void>> calls;
};

TEST_F(StreamFaultTest, StalledInjectReaderHoldsUpNothingElse) {
  rig.Stall(0, true);
  Stream(ICode("pas0"), 0);
  Stream(ICode("pas1"), 1);
  // inject0's pipe has no room for another packet, and tapout0's thread has
  // taken the next one: it cannot write it.
  ASSERT_TRUE(BufferWaitFor([&] { return rig.Queued(0) > 65536 - 2 * 1984; }));
  const uint32_t fed = rig.fed(0);
  ASSERT_TRUE(BufferWaitFor([&] { return rig.fed(0) >= fed + 2; }));
  auto* s = service.get();
  EXPECT_TRUE(Returns([s](CommandResult* r) { s->NewProcessorWithType(ICode("pas2"), ICode("pass"), r); }));
  EXPECT_TRUE(Returns([s](CommandResult* r) { s->Connect(ICode("pas2"), 1, -1, r); })) << "unrelated wiring";
  EXPECT_TRUE(Returns([s](CommandResult* r) { s->ListTapOutBuffers(r); }));
  EXPECT_TRUE(Returns([s](CommandResult* r) { s->ListInjectBuffers(r); }));
  EXPECT_TRUE(rig.WaitMore(1, 20)) << "the other stream flows";
  EXPECT_TRUE(Returns([s](CommandResult* r) { s->DeleteProcessor(ICode("pas0"), r); }));
  EXPECT_TRUE(Returns([s](CommandResult* r) { s->StopIo(0, r); }));
  EXPECT_GE(capture.count("inject0: ioProcess writePacketToLum returned status -110"), 1u);
  EXPECT_TRUE(rig.WaitMore(1, 20));
  EXPECT_EQ(rig.corrupt(1) + rig.skipped(1), 0u);
}

TEST_F(StreamFaultTest, EightClientsRewireWhileStreamsRun) {
  // Buffer 4 carries a stream no client touches; the clients share the four
  // processors streaming over buffers 0..3, so they collide on purpose.
  Stream(ICode("stdy"), 4);
  for (int b = 0; b < 4; ++b) Stream(ICode("cl00") + b, b);
  ASSERT_TRUE(rig.WaitMore(4, 5));
  const uint64_t steadyBefore = rig.packets(4);
  std::vector<std::future<void>> clients;
  for (unsigned c = 0; c < 8; ++c) {
    clients.push_back(std::async(std::launch::async, [&, c] {
      std::mt19937 rng(c);
      for (int i = 0; i < 150; ++i) {
        const int32_t id = ICode("cl00") + static_cast<int32_t>(rng() % 4);
        const int t = static_cast<int>(rng() % 5) - 1;
        const int j = static_cast<int>(rng() % 5) - 1;
        CommandResult r;
        switch (rng() % 8) {
          case 0: service->NewProcessorWithType(id, ICode("pass"), &r); break;
          case 1:
          case 2: service->Connect(id, t, j, &r); break;
          case 3: service->ProcessorEnable(id, true, &r); break;
          case 4:
          case 5: service->StartIo(t < 0 ? 0 : t, &r); break;
          case 6: service->StopIo(t < 0 ? 0 : t, &r); break;
          default: service->DeleteProcessor(id, &r); break;
        }
        usleep(2000);  // let the streams run between the changes
      }
    }));
  }
  for (auto& f : clients) EXPECT_EQ(f.wait_for(std::chrono::seconds(120)), std::future_status::ready);
  EXPECT_GT(rig.packets(4), steadyBefore) << "flowed during the storm";
  EXPECT_TRUE(rig.WaitMore(4, 10)) << "and after it";
  for (int i = 0; i < kBuffers; ++i) EXPECT_EQ(rig.corrupt(i) + rig.skipped(i), 0u) << "inject" << i;
}

}  // namespace
