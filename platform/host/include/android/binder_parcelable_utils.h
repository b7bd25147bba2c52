// Parcelable stability markers (host build).
#pragma once

#include <stdint.h>

namespace ndk {

// Where a parcelable may travel: within one build (LOCAL) or across the
// system/vendor boundary (VINTF).
typedef int32_t parcelable_stability_t;
enum {
  STABILITY_LOCAL,
  STABILITY_VINTF,
};

}  // namespace ndk
