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

TEST(LumxdTest, OpensControlWhenLumAndControlExist) {
  TempDir dir("lumx-ctor");
  ScopedEnv env("LUMX_DEV_ROOT", dir.path().c_str());
  FakeControlDriver driver(dir.path());
  ASSERT_TRUE(driver.ok());
  ::testing::internal::CaptureStdout();
  std::unique_ptr<Lumxd> d = LumxdTestAccess::Make();
  EXPECT_GE(LumxdTestAccess::ControlFd(*d), 0);
  d.reset();
  EXPECT_EQ("Lumxd start\nLumxd stop\n", ::testing::internal::GetCapturedStdout());
}

TEST(LumxdTest, DoesNotOpenControlWithoutLum) {
  TempDir dir("lumx-ctor");
  ScopedEnv env("LUMX_DEV_ROOT", dir.path().c_str());
  FakeControlDriver driver(dir.path(), /*createLum=*/false);
  ASSERT_TRUE(driver.ok());
  lumx_host::LogCapture log;
  ::testing::internal::CaptureStdout();
  std::unique_ptr<Lumxd> d = LumxdTestAccess::Make();
  EXPECT_EQ(-1, LumxdTestAccess::ControlFd(*d));
  d.reset();
  ::testing::internal::GetCapturedStdout();
  // Not even an attempt: nothing about the node is logged.
  EXPECT_EQ(0u, log.count("zch-lumx_control"));
}

TEST(LumxdTest, DoesNotWaitForControlWhenOnlyLumExists) {
  TempDir dir("lumx-ctor");
  ScopedEnv env("LUMX_DEV_ROOT", dir.path().c_str());
  dir.Touch("lum");
  lumx_host::LogCapture log;
  ::testing::internal::CaptureStdout();
  std::unique_ptr<Lumxd> d = LumxdTestAccess::Make();
  EXPECT_EQ(-1, LumxdTestAccess::ControlFd(*d));
  d.reset();
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(0u, log.count("Cannot find"));
}

}  // namespace
