// Lumxd construction: which nodes make the constructor open the control
// device, and what it writes to standard output.
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>

#include <memory>
#include <string>

#include "daemon/lumxd.h"
#include "support/daemon_test_util.h"
#include "support/fake_control_driver.h"

using lumx_test::FakeControlDriver;
using lumx_test::ScopedEnv;
using lumx_test::TempDir;

struct LumxdTestAccess {
  static std::unique_ptr<Lumxd> Make() { return std::unique_ptr<Lumxd>(new Lumxd()); }
  static int ControlFd(Lumxd& d) {
    lumx::MutexLock lock(&commandMutex);
    return d.controlFd_.get();
  }
};

namespace {

// The constructor opens the control node only when "lum" and the node both
// exist; otherwise it does not even try (nothing about the node is logged).
TEST(LumxdTest, OpensControlOnlyWhenLumAndControlExist) {
  const struct {
    bool driver, lum, opens;
  } cases[] = {{true, true, true}, {true, false, false}, {false, true, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "driver " << c.driver << " lum " << c.lum);
    TempDir dir("lumx-ctor");
    ScopedEnv env("LUMX_DEV_ROOT", dir.path().c_str());
    std::unique_ptr<FakeControlDriver> driver;
    if (c.driver) driver = std::make_unique<FakeControlDriver>(dir.path(), c.lum);
    if (!c.driver && c.lum) dir.Touch("lum");
    lumx_host::LogCapture log;
    ::testing::internal::CaptureStdout();
    std::unique_ptr<Lumxd> d = LumxdTestAccess::Make();
    EXPECT_EQ(c.opens, LumxdTestAccess::ControlFd(*d) >= 0);
    d.reset();
    EXPECT_EQ("Lumxd start\nLumxd stop\n", ::testing::internal::GetCapturedStdout());
    if (!c.opens) {
      EXPECT_EQ(0u, log.count("zch-lumx_control"));
    }
  }
}

}  // namespace
