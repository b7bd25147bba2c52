#include "support/system_service_env.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <android/binder_interface_utils.h>
#include <gtest/gtest.h>

#include "service/lumx_service.h"

namespace lumx::test {

ServiceEnv::ServiceEnv(const NodeSet& nodes) : devDir_(dir_.Join("dev")) {
  const std::string sysfs = dir_.Join("sys");
  for (const std::string& d : {devDir_, sysfs, sysfs + "/power"}) ::mkdir(d.c_str(), 0755);
  dir_.Touch("sys/power/wake_lock");
  dir_.Touch("sys/power/wake_unlock");
  for (int id : nodes.tapOut) {
    const std::string path = TapOutPath(id);
    EXPECT_EQ(0, ::mkfifo(path.c_str(), 0644)) << path;
    // Read-write, so the open itself never waits for a reader.
    writers_.emplace_back(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    EXPECT_TRUE(writers_.back().ok()) << path;
  }
  for (int id : nodes.inject) dir_.Touch("dev/zch-lumx_inject" + std::to_string(id));
  devEnv_ = std::make_unique<lumx_test::ScopedEnv>("LUMX_DEV_ROOT", devDir_.c_str());
  sysfsEnv_ = std::make_unique<lumx_test::ScopedEnv>("LUMX_SYSFS_ROOT", sysfs.c_str());
}

std::shared_ptr<LumxService> ServiceEnv::MakeService() { return ::ndk::SharedRefBase::make<LumxService>(); }

void ServiceEnv::DeleteProcessors(LumxService* service, const std::vector<uint32_t>& ids) {
  for (uint32_t id : ids) {
    CommandResult r;
    if (service->GetLumxProcessor(id) != nullptr) service->DeleteProcessor(static_cast<int32_t>(id), &r);
  }
}

}  // namespace lumx::test
