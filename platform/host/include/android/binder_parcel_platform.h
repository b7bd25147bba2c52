// Platform-only additions to binder_parcel.h (host build).
#pragma once

#include <android/binder_parcel.h>

__BEGIN_DECLS

// Marks a parcel as holding sensitive data (its buffer is wiped when freed).
void AParcel_markSensitive(const AParcel* parcel);

__END_DECLS
