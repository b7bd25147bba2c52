// In-process environment for tests that construct a LumxService: a private
// device directory with the data nodes the test asks for and a private sysfs
// root for the wake lock.
//
// Tap-out nodes are FIFOs whose write end the environment holds open (so the
// daemon's blocking open returns at once and a stream waits for data); inject
// nodes are plain files, so whatever the daemon injects can be read back.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/lumx_types.h"
#include "common/unique_fd.h"
#include "support/daemon_test_util.h"

class LumxService;

namespace lumx::test {

struct NodeSet {
  std::vector<int> tapOut;  // zch-lumx_tapoutN, as FIFOs
  std::vector<int> inject;  // zch-lumx_injectN, as plain files
};

class ServiceEnv {
 public:
  // Creates the nodes and points LUMX_DEV_ROOT and LUMX_SYSFS_ROOT at them.
  explicit ServiceEnv(const NodeSet& nodes);

  const std::string& devRoot() const { return devDir_; }
  std::string TapOutPath(int id) const { return devDir_ + "/zch-lumx_tapout" + std::to_string(id); }

  // Constructs the service (its first scan takes at least 500 ms).
  std::shared_ptr<LumxService> MakeService();

  // Deletes every processor the service still holds under one of `ids`, so
  // none leaks when the service goes away.
  static void DeleteProcessors(LumxService* service, const std::vector<uint32_t>& ids);

 private:
  lumx_test::TempDir dir_{"lumx_service"};
  std::string devDir_;
  std::vector<unique_fd> writers_;
  std::unique_ptr<lumx_test::ScopedEnv> devEnv_;
  std::unique_ptr<lumx_test::ScopedEnv> sysfsEnv_;
};

// "pas1" -> 0x70617331.
constexpr uint32_t Code(const char (&s)[5]) {
  return (static_cast<uint32_t>(static_cast<uint8_t>(s[0])) << 24) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[1])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[2])) << 8) | static_cast<uint32_t>(static_cast<uint8_t>(s[3]));
}
constexpr int32_t ICode(const char (&s)[5]) { return static_cast<int32_t>(Code(s)); }

// The lines of a result, for EXPECT_THAT(Lines(r), ElementsAre(...)).
inline const std::vector<std::string>& Lines(const CommandResult& r) { return r.strList; }

// Runs one service call whose binder status must be OK; returns its result.
template <typename F>
CommandResult Call(F&& call) {
  CommandResult r;
  EXPECT_TRUE(call(&r).isOk());
  return r;
}

}  // namespace lumx::test
