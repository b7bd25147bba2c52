// Host libpower: the legacy sysfs wake lock interface. The id is written
// (without a newline) to <sysfs>/power/wake_lock or wake_unlock; <sysfs> is
// $LUMX_SYSFS_ROOT when set, /sys otherwise, read at every call so a test can
// point it at a temporary directory.
#include <hardware_legacy/power.h>

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "common/unique_fd.h"

namespace {

std::string PowerFile(const char* name) {
  const char* root = getenv("LUMX_SYSFS_ROOT");
  std::string path = (root != nullptr && root[0] != '\0') ? root : "/sys";
  path += "/power/";
  path += name;
  return path;
}

// Writes `id` in one write(); 0 on success, -errno on failure.
int WriteId(const char* file, const char* id) {
  if (id == nullptr) return -EINVAL;
  const std::string path = PowerFile(file);
  lumx::unique_fd fd(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
  if (!fd.ok()) return -errno;
  const size_t len = strlen(id);
  ssize_t n;
  do {
    n = write(fd.get(), id, len);
  } while (n < 0 && errno == EINTR);
  if (n < 0) return -errno;
  if (static_cast<size_t>(n) != len) return -EIO;
  return 0;
}

}  // namespace

extern "C" {

int acquire_wake_lock(int lock, const char* id) {
  if (lock != PARTIAL_WAKE_LOCK) return -EINVAL;
  return WriteId("wake_lock", id);
}

int release_wake_lock(const char* id) { return WriteId("wake_unlock", id); }

}  // extern "C"
