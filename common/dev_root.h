// Where the DSP channel driver's device nodes live.
#pragma once

#include <string>

// The device directory: "/dev" on a device. Host builds (LUMX_HOST_BUILD) let
// $LUMX_DEV_ROOT move it, so the daemon can run against lumx-dspsim; the
// variable is read on every call. Every device path derives from this.
std::string LumxDevRoot();

// LumxDevRoot() + "/" + name, e.g. LumxDevPath("zch-lumx_control").
std::string LumxDevPath(const char* name);
