#include "tools/lumx-dspsim/control_channel.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/lumx-dspsim/wire.h"

namespace lumx::dspsim {

size_t FrameRequests(const uint8_t* data, size_t len, bool final,
                     std::vector<std::pair<size_t, size_t>>* spans) {
  if (len == 0) return 0;
  std::vector<std::pair<size_t, size_t>> chain;
  size_t pos = 0;
  bool incomplete = false;
  bool broken = false;
  while (pos < len) {
    size_t rem = len - pos;
    if (rem < kCmdHeaderSize) {
      incomplete = true;
      break;
    }
    size_t size = LoadU16(data + pos + kCmdSizeOffset);
    if (size < kCmdHeaderSize || size > kMaxRequestSize) {
      broken = true;
      break;
    }
    if (size > rem) {
      incomplete = true;
      break;
    }
    chain.emplace_back(pos, size);
    pos += size;
  }
  if (!broken && !incomplete) {
    spans->insert(spans->end(), chain.begin(), chain.end());
    return len;
  }
  if (incomplete && pos == 0 && !final) {
    // The start of one request whose rest is still on its way.
    return 0;
  }
  // The size fields do not describe these bytes: they are one request.
  spans->emplace_back(0, len);
  return len;
}

namespace {

bool MakeRaw(int fd) {
  struct termios tio;
  if (tcgetattr(fd, &tio) != 0) return false;
  cfmakeraw(&tio);
  tio.c_cc[VMIN] = 1;
  tio.c_cc[VTIME] = 0;
  return tcsetattr(fd, TCSANOW, &tio) == 0;
}

}  // namespace

bool ControlChannel::Open(const std::string& linkPath, std::string* error) {
  Close();
  lumx::unique_fd master(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!master.ok()) {
    *error = std::string("posix_openpt: ") + std::strerror(errno);
    return false;
  }
  char name[128];
  if (grantpt(master.get()) != 0 || unlockpt(master.get()) != 0 ||
      ptsname_r(master.get(), name, sizeof name) != 0) {
    *error = std::string("pty setup: ") + std::strerror(errno);
    return false;
  }
  lumx::unique_fd slave(open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!slave.ok()) {
    *error = std::string("open ") + name + ": " + std::strerror(errno);
    return false;
  }
  // Both sides raw: no echo, no line editing, no CR/NL mapping, no flow
  // control characters, and reads return whatever bytes are there.
  if (!MakeRaw(slave.get()) || !MakeRaw(master.get())) {
    *error = std::string("tcsetattr: ") + std::strerror(errno);
    return false;
  }
  if (symlink(name, linkPath.c_str()) != 0) {
    *error = "symlink " + linkPath + ": " + std::strerror(errno);
    return false;
  }
  master_ = std::move(master);
  slave_ = std::move(slave);
  linkPath_ = linkPath;
  slavePath_ = name;
  rx_.clear();
  fragmentDeadline_ = 0;
  return true;
}

void ControlChannel::Close() {
  if (!linkPath_.empty()) {
    unlink(linkPath_.c_str());
    linkPath_.clear();
  }
  slave_.reset();
  master_.reset();
  slavePath_.clear();
  rx_.clear();
  fragmentDeadline_ = 0;
}

void ControlChannel::ReadRequests(int64_t nowNs, std::vector<std::vector<uint8_t>>* out) {
  if (!master_.ok()) return;
  for (;;) {
    size_t room = kMaxRequestSize - rx_.size();
    if (room == 0) {
      // A request this long cannot be valid: hand over what is there.
      Frame(true, out);
      continue;
    }
    size_t old = rx_.size();
    rx_.resize(old + room);
    ssize_t n = read(master_.get(), rx_.data() + old, room);
    if (n <= 0) {
      rx_.resize(old);
      if (n < 0 && errno == EINTR) continue;
      break;
    }
    rx_.resize(old + static_cast<size_t>(n));
  }
  if (rx_.empty()) return;
  Frame(false, out);
  if (rx_.empty()) {
    fragmentDeadline_ = 0;
  } else if (fragmentDeadline_ == 0) {
    fragmentDeadline_ = nowNs + kFragmentWaitNs;
  }
}

void ControlChannel::FlushFragment(std::vector<std::vector<uint8_t>>* out) {
  Frame(true, out);
  fragmentDeadline_ = 0;
}

void ControlChannel::Frame(bool final, std::vector<std::vector<uint8_t>>* out) {
  std::vector<std::pair<size_t, size_t>> spans;
  size_t used = FrameRequests(rx_.data(), rx_.size(), final, &spans);
  for (const auto& s : spans) {
    out->emplace_back(rx_.begin() + static_cast<long>(s.first),
                      rx_.begin() + static_cast<long>(s.first + s.second));
  }
  rx_.erase(rx_.begin(), rx_.begin() + static_cast<long>(used));
}

bool ControlChannel::WriteReply(const uint8_t* data, size_t len) {
  if (!master_.ok()) return false;
  for (;;) {
    ssize_t n = write(master_.get(), data, len);
    if (n < 0 && errno == EINTR) continue;
    return n == static_cast<ssize_t>(len);
  }
}

}  // namespace lumx::dspsim
