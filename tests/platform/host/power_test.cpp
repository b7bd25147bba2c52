// Host libpower: wake locks are the ids written to <sysfs>/power/wake_lock
// and wake_unlock under $LUMX_SYSFS_ROOT.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <hardware_legacy/power.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "test_util.h"

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream f(path);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

class PowerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    power_ = dir_.path() + "/power";
    ASSERT_EQ(0, mkdir(power_.c_str(), 0755));
    for (const char* f : {"/wake_lock", "/wake_unlock"}) {
      std::ofstream(power_ + f).close();
    }
    setenv("LUMX_SYSFS_ROOT", dir_.path().c_str(), 1);
  }
  void TearDown() override { unsetenv("LUMX_SYSFS_ROOT"); }

  lumx_test::TempDir dir_;
  std::string power_;
};

TEST_F(PowerTest, WakeLocksWriteTheIdWithoutNewlineAndFailWithErrno) {
  EXPECT_EQ(0, acquire_wake_lock(PARTIAL_WAKE_LOCK, "lumx"));
  EXPECT_EQ("lumx", ReadFile(power_ + "/wake_lock"));
  EXPECT_EQ("", ReadFile(power_ + "/wake_unlock"));
  EXPECT_EQ(0, release_wake_lock("lumx"));
  EXPECT_EQ("lumx", ReadFile(power_ + "/wake_unlock"));
  // Only partial wake locks, and only named ones.
  EXPECT_EQ(-EINVAL, acquire_wake_lock(FULL_WAKE_LOCK, "lumx"));
  EXPECT_EQ(-EINVAL, acquire_wake_lock(0, "lumx"));
  EXPECT_EQ(-EINVAL, acquire_wake_lock(PARTIAL_WAKE_LOCK, nullptr));
  EXPECT_EQ("lumx", ReadFile(power_ + "/wake_lock"));
  unlink((power_ + "/wake_unlock").c_str());
  EXPECT_EQ(-ENOENT, release_wake_lock("lumx"));
  // The root is read at every call.
  lumx_test::TempDir empty;
  setenv("LUMX_SYSFS_ROOT", empty.path().c_str(), 1);
  EXPECT_EQ(-ENOENT, acquire_wake_lock(PARTIAL_WAKE_LOCK, "lumx"));
}

TEST_F(PowerTest, ReadOnlyFileIsAFailure) {
  if (geteuid() == 0) GTEST_SKIP() << "root ignores file modes";
  chmod((power_ + "/wake_lock").c_str(), 0444);
  EXPECT_EQ(-EACCES, acquire_wake_lock(PARTIAL_WAKE_LOCK, "lumx"));
}

}  // namespace
