// A pseudo-terminal pair in raw mode: what the DSP's control node looks like
// to the daemon in tests and fuzzers (whole messages, no echo, no line
// discipline). Header-only so the fuzz targets can use it without gtest.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "common/wire.h"

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

// The DSP end of the control node: reads the master side for ever, cuts the
// byte stream into requests by their header's size field and hands each to
// `answer`. Never returns; run it on a detached thread.
template <typename Answer>
[[noreturn]] void ServeRequests(int masterFd, Answer answer) {
  std::vector<uint8_t> buf;
  uint8_t chunk[4096];
  for (;;) {
    ssize_t n = read(masterFd, chunk, sizeof(chunk));
    if (n <= 0) {
      usleep(1000);
      continue;
    }
    buf.insert(buf.end(), chunk, chunk + n);
    while (buf.size() >= 8) {
      size_t size = lumx::GetLe16(buf.data() + 2);
      if (size < 8 || size > buf.size()) {
        if (size < 8) buf.clear();
        break;
      }
      std::vector<uint8_t> request(buf.begin(), buf.begin() + static_cast<long>(size));
      buf.erase(buf.begin(), buf.begin() + static_cast<long>(size));
      answer(request);
    }
  }
}

}  // namespace lumx_test
