// Legacy wake lock API of libpower (host build).
//
// On the host a wake lock is the legacy sysfs interface: acquire writes the id
// (no newline) to <sysfs>/power/wake_lock, release writes it to
// <sysfs>/power/wake_unlock, where <sysfs> is $LUMX_SYSFS_ROOT when set (read
// at every call) and /sys otherwise. Both return 0 on success and a non-zero
// value (-errno) on failure; a lock type other than PARTIAL_WAKE_LOCK gives
// -EINVAL.
#pragma once

#include <sys/cdefs.h>

__BEGIN_DECLS

enum {
  PARTIAL_WAKE_LOCK = 1,  // the CPU keeps running
  FULL_WAKE_LOCK = 2,     // screen on as well (not supported; rejected)
};

int acquire_wake_lock(int lock, const char* id);
int release_wake_lock(const char* id);

__END_DECLS
