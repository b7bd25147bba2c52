#include "common/dev_root.h"

#include <cstdlib>

std::string LumxDevRoot() {
#if defined(LUMX_HOST_BUILD)
  const char* root = getenv("LUMX_DEV_ROOT");
  if (root != nullptr && root[0] != '\0') return root;
#endif
  return "/dev";
}

std::string LumxDevPath(const char* name) { return LumxDevRoot() + "/" + name; }
