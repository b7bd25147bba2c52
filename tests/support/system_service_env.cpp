#include "support/system_service_env.h"

#include <fcntl.h>
#include <ftw.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android/binder_interface_utils.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "service/lumx_service.h"

namespace lumx::test {

namespace {

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*) {
  ::remove(path);
  return 0;
}

void TouchFile(const std::string& path) {
  unique_fd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  EXPECT_TRUE(fd.ok()) << "cannot create " << path;
}

}  // namespace

TempDir::TempDir(const std::string& prefix) {
  const char* base = getenv("TMPDIR");
  std::string templ = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/" + prefix + "_XXXXXX";
  std::vector<char> buf(templ.begin(), templ.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) == nullptr) {
    ADD_FAILURE() << "mkdtemp failed for " << templ;
    return;
  }
  path_ = buf.data();
}

TempDir::~TempDir() {
  if (!path_.empty()) nftw(path_.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : name_(name) {
  const char* old = getenv(name);
  if (old != nullptr) {
    hadOld_ = true;
    old_ = old;
  }
  setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
  if (hadOld_) {
    setenv(name_.c_str(), old_.c_str(), 1);
  } else {
    unsetenv(name_.c_str());
  }
}

ServiceEnv::ServiceEnv(const NodeSet& nodes) : dir_("lumx_service") {
  devDir_ = dir_.Sub("dev");
  const std::string sysfs = dir_.Sub("sys");
  ::mkdir(devDir_.c_str(), 0755);
  ::mkdir(sysfs.c_str(), 0755);
  ::mkdir((sysfs + "/power").c_str(), 0755);
  TouchFile(sysfs + "/power/wake_lock");
  TouchFile(sysfs + "/power/wake_unlock");
  for (int id : nodes.tapOut) {
    const std::string path = TapOutPath(id);
    EXPECT_EQ(0, ::mkfifo(path.c_str(), 0644)) << path;
    // Read-write, so the open itself never waits for a reader.
    unique_fd writer(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    EXPECT_TRUE(writer.ok()) << path;
    writers_.emplace_back(id, std::move(writer));
  }
  for (int id : nodes.inject) TouchFile(InjectPath(id));
  devEnv_ = std::make_unique<ScopedEnv>("LUMX_DEV_ROOT", devDir_);
  sysfsEnv_ = std::make_unique<ScopedEnv>("LUMX_SYSFS_ROOT", sysfs);
}

ServiceEnv::~ServiceEnv() = default;

std::string ServiceEnv::InjectPath(int id) const { return devDir_ + "/zch-lumx_inject" + std::to_string(id); }

int ServiceEnv::TapOutWriter(int id) const {
  for (const auto& w : writers_) {
    if (w.first == id) return w.second.get();
  }
  return -1;
}

std::string ServiceEnv::TapOutPath(int id) const { return devDir_ + "/zch-lumx_tapout" + std::to_string(id); }

std::shared_ptr<LumxService> ServiceEnv::MakeService() { return ::ndk::SharedRefBase::make<LumxService>(); }

void ServiceEnv::DeleteProcessors(LumxService* service, const std::vector<uint32_t>& ids) {
  for (uint32_t id : ids) {
    if (service->GetLumxProcessor(id) == nullptr) continue;
    CommandResult r;
    service->DeleteProcessor(static_cast<int32_t>(id), &r);
  }
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

}  // namespace lumx::test
