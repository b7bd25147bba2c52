// The service object: publication through gService, WaitForServiceReady,
// and Ping.
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>

#include <atomic>
#include <memory>
#include <thread>

#include "service/lumx_service.h"
#include "support/daemon_service_access.h"
#include "support/daemon_test_util.h"

using lumx_host::LogCapture;
using lumx_test::ScopedEnv;
using lumx_test::TempDir;
using lumx_test::WaitUntil;

namespace {

class ServiceCoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dev_.Touch("zch-lumx_tapout0");
    dev_.Touch("zch-lumx_inject0");
  }
  TempDir dev_{"lumx-core"};
  ScopedEnv env_{"LUMX_DEV_ROOT", dev_.path().c_str()};
};

TEST_F(ServiceCoreTest, PublishedWhileAliveAndWaitAlwaysAnswersMinusOne) {
  {
    LogCapture log;
    std::shared_ptr<LumxService> service = LumxServiceTestAccess::Make();
    EXPECT_EQ(service.get(), gService);
    EXPECT_EQ(1u, log.count("Found 1 tap-out buffer, 1 inject buffer"));
    EXPECT_EQ(-1, LumxService::WaitForServiceReady());
    EXPECT_EQ(0u, log.count("LumxService init failed"));
  }
  EXPECT_EQ(nullptr, gService);
  LogCapture log;
  EXPECT_EQ(-1, LumxService::WaitForServiceReady());
  EXPECT_EQ(1u, log.count("LumxService init failed"));
}

TEST_F(ServiceCoreTest, PingAnswersWhileTheServiceMutexIsHeld) {
  std::shared_ptr<LumxService> service = LumxServiceTestAccess::Make();
  std::atomic<bool> answered{false};
  std::thread caller;
  {
    lumx::MutexLock lock(&LumxServiceTestAccess::Mutex(*service));
    caller = std::thread([&] {
      ::ndk::ScopedAStatus status = service->Ping();
      answered = status.isOk();
    });
    // Ping must come back while the lock is still held here.
    EXPECT_TRUE(WaitUntil([&] { return answered.load(); }));
  }
  caller.join();
  EXPECT_TRUE(answered);
}

}  // namespace
