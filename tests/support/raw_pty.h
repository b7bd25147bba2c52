// A pseudo-terminal pair in raw mode: what the DSP's control node looks like
// to the daemon in tests and fuzzers (whole messages, no echo, no line
// discipline). Header-only so the fuzz targets can use it without gtest.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>

#include <string>

#include "common/unique_fd.h"

namespace lumx_test {

// Opens the pair; `slave` stays open so the pair outlives the daemon's own
// opens and closes of the slave path. False on any failure.
inline bool OpenRawPty(lumx::unique_fd* master, lumx::unique_fd* slave, std::string* slavePath) {
  master->reset(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!master->ok() || grantpt(master->get()) != 0 || unlockpt(master->get()) != 0) return false;
  char name[128];
  if (ptsname_r(master->get(), name, sizeof(name)) != 0) return false;
  slave->reset(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!slave->ok()) return false;
  struct termios tio;
  if (tcgetattr(slave->get(), &tio) != 0) return false;
  cfmakeraw(&tio);
  tio.c_cc[VMIN] = 1;
  tio.c_cc[VTIME] = 0;
  if (tcsetattr(slave->get(), TCSANOW, &tio) != 0) return false;
  *slavePath = name;
  return true;
}

}  // namespace lumx_test
