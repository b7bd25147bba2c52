// In-process environment for tests that construct a LumxService: a private
// device directory with the data nodes the test asks for, a private sysfs
// root for the wake lock, and helpers to read results.
//
// Tap-out nodes are FIFOs whose write end the environment holds open (so the
// daemon's blocking open returns at once, a stream waits for data, and a test
// can feed packets through TapOutWriter()); inject nodes are plain files, so
// whatever the daemon injects can be read back from them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/lumx_types.h"
#include "common/unique_fd.h"

class LumxService;

namespace lumx::test {

// A directory under $TMPDIR (or /tmp), removed with its contents.
class TempDir {
 public:
  explicit TempDir(const std::string& prefix = "lumx_test");
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string Sub(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Sets an environment variable for the life of the object, then restores it.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  bool hadOld_ = false;
  std::string old_;
};

struct NodeSet {
  std::vector<int> tapOut;  // zch-lumx_tapoutN, as FIFOs
  std::vector<int> inject;  // zch-lumx_injectN, as plain files
};

class ServiceEnv {
 public:
  // Creates the device directory with the nodes and points LUMX_DEV_ROOT and
  // LUMX_SYSFS_ROOT at it.
  explicit ServiceEnv(const NodeSet& nodes);
  ~ServiceEnv();

  const std::string& devRoot() const { return devDir_; }
  std::string InjectPath(int id) const;
  std::string TapOutPath(int id) const;
  // Non-blocking write end of tap-out FIFO `id`, -1 if there is none.
  int TapOutWriter(int id) const;

  // Constructs the service (its first scan takes at least 500 ms).
  std::shared_ptr<LumxService> MakeService();

  // Deletes every processor the service still holds under one of `ids`, so
  // none leaks when the service goes away (its destructor only drops the
  // map's nodes).
  static void DeleteProcessors(LumxService* service, const std::vector<uint32_t>& ids);

 private:
  TempDir dir_;
  std::string devDir_;
  std::vector<std::pair<int, unique_fd>> writers_;
  std::unique_ptr<ScopedEnv> devEnv_;
  std::unique_ptr<ScopedEnv> sysfsEnv_;
};

// "pas1" -> 0x70617331.
constexpr uint32_t Code(const char (&s)[5]) {
  return (static_cast<uint32_t>(static_cast<uint8_t>(s[0])) << 24) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[1])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[2])) << 8) |
         static_cast<uint32_t>(static_cast<uint8_t>(s[3]));
}
constexpr int32_t ICode(const char (&s)[5]) { return static_cast<int32_t>(Code(s)); }

// The lines of a result, for EXPECT_THAT(Lines(r), ElementsAre(...)).
inline const std::vector<std::string>& Lines(const CommandResult& r) { return r.strList; }

// Reads a whole file; empty when it cannot be read.
std::string ReadFile(const std::string& path);

}  // namespace lumx::test
