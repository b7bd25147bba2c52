// Host-only extensions of the binder runtime, for tests and tools.
#pragma once

#include <android/binder_ibinder.h>

#include <string>

namespace lumx_host {

// Looks `instance` up through its socket even when this process registered
// it itself (AServiceManager_checkService would return the local object).
// Gives a proxy with one strong reference, or null if nothing answers. Lets a
// single process exercise the socket transport end to end.
AIBinder* ConnectToServiceSocket(const char* instance);

// The socket path a service name maps to under the current runtime directory.
std::string ServiceSocketPath(const char* instance);

// The runtime directory: $LUMX_BINDER_DIR; else $XDG_RUNTIME_DIR/lumx-binder
// when XDG_RUNTIME_DIR is set; else /tmp/lumx-binder-<uid>. See
// platform/host/README.md for what is accepted there.
std::string BinderRuntimeDir();

}  // namespace lumx_host
