// Owning wrapper of a POSIX file descriptor, closed on destruction.
#pragma once

#include <unistd.h>

#include <utility>

namespace lumx {

class unique_fd {
 public:
  unique_fd() = default;
  explicit unique_fd(int fd) : fd_(fd) {}
  ~unique_fd() { reset(); }

  unique_fd(unique_fd&& other) noexcept : fd_(other.release()) {}
  unique_fd& operator=(unique_fd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  unique_fd(const unique_fd&) = delete;
  unique_fd& operator=(const unique_fd&) = delete;

  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  explicit operator bool() const { return ok(); }

  // Closes the held descriptor (if any) and takes ownership of `fd`.
  void reset(int fd = -1) {
    if (fd_ >= 0 && fd_ != fd) ::close(fd_);
    fd_ = fd;
  }
  // Gives up ownership without closing.
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_ = -1;
};

}  // namespace lumx
