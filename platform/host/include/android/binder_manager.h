// Service registry (host build of the libbinder_ndk service manager API).
//
// Host transport: AServiceManager_addService(binder, name) listens on an
// AF_UNIX stream socket named after the service in the runtime directory,
// $LUMX_BINDER_DIR or by default /tmp/lumx-binder-<uid> (created mode 0700;
// sockets mode 0600). In a service name "/" is written "%2F" in the socket
// file name (a name too long for a socket path is shortened with a hash).
// Lookups connect to that socket; a service registered by the calling process
// itself is returned directly as the local object. The directory is read from
// the environment at every registration and lookup.
//
// A stale socket file whose listener is gone does not block a new
// registration: it is removed and bound again. A socket that still answers
// belongs to another live process: the registration fails (EX_ILLEGAL_STATE).
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

__BEGIN_DECLS

// Registers `binder` under `instance` (which must match [A-Za-z0-9._/-]{1,127}).
// Returns EX_NONE, EX_ILLEGAL_ARGUMENT for a null or invalid argument or a
// binder that is not a local object, EX_ILLEGAL_STATE when the socket cannot
// be set up (the cause is logged). The registry keeps a strong reference.
binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance)
    __attribute__((warn_unused_result));

// Returns the service with one strong reference, or null; does not wait.
__attribute__((warn_unused_result)) AIBinder* AServiceManager_checkService(const char* instance);

// Like checkService, but polls for about 5 seconds before giving up.
[[deprecated("this polls 5s, use AServiceManager_waitForService or AServiceManager_checkService")]]
__attribute__((warn_unused_result)) AIBinder* AServiceManager_getService(const char* instance);

// Waits until the service answers, however long that takes.
__attribute__((warn_unused_result)) AIBinder* AServiceManager_waitForService(const char* instance)
    __INTRODUCED_IN(31);

// There is no VINTF manifest on the host: true when the service is currently
// registered (answers a lookup), false otherwise.
bool AServiceManager_isDeclared(const char* instance) __INTRODUCED_IN(31);

__END_DECLS
