// Platform-only additions to binder_ibinder.h (host build).
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel_platform.h>

__BEGIN_DECLS

// Asks the runtime to clear the transaction buffers after use (sensitive data).
// The host runtime accepts the flag; parcels are freed right after a call.
enum { FLAG_CLEAR_BUF = 0x20 };

__END_DECLS
