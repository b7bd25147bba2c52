#include "support/fake_control_driver.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "common/wire.h"
#include "support/raw_pty.h"

namespace lumx_test {

namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kMaxMessage = 4096;

}  // namespace

FakeControlDriver::Action Status(int16_t status) {
  FakeControlDriver::Action action;
  action.status = status;
  return action;
}

FakeControlDriver::FakeControlDriver(const std::string& devRoot, bool createLum)
    : devRoot_(devRoot), nodePath_(devRoot + "/zch-lumx_control") {
  default_ = [](const std::vector<uint8_t>&) { return Action(); };
  // Holding the slave open keeps the pair alive while the daemon re-opens it.
  if (!OpenRawPty(&master_, &slaveKeepAlive_, &slavePath_)) return;
  int flags = fcntl(master_.get(), F_GETFL);
  fcntl(master_.get(), F_SETFL, flags | O_NONBLOCK);

  int pipeFds[2];
  if (pipe2(pipeFds, O_CLOEXEC) != 0) return;
  stopPipeRead_.reset(pipeFds[0]);
  stopPipeWrite_.reset(pipeFds[1]);

  if (createLum) {
    lumx::unique_fd lum(open((devRoot_ + "/lum").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    if (!lum.ok()) return;
  }
  (void)!symlink(slavePath_.c_str(), nodePath_.c_str());
  ok_ = access(nodePath_.c_str(), F_OK) == 0;
  thread_ = std::thread([this] { Run(); });
}

FakeControlDriver::~FakeControlDriver() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    stopping_ = true;
  }
  cv_.notify_all();
  if (stopPipeWrite_.ok()) {
    char c = 'x';
    (void)!write(stopPipeWrite_.get(), &c, 1);
  }
  if (thread_.joinable()) thread_.join();
  RemoveNode();
}

void FakeControlDriver::Queue(const Action& action) {
  std::lock_guard<std::mutex> lock(mu_);
  script_.push_back(action);
}

void FakeControlDriver::SetDefault(Handler handler) {
  std::lock_guard<std::mutex> lock(mu_);
  default_ = std::move(handler);
}

void FakeControlDriver::Release() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    released_ = true;
  }
  cv_.notify_all();
}

void FakeControlDriver::RemoveNode() {
  if (!slavePath_.empty()) unlink(nodePath_.c_str());
}

std::vector<std::vector<uint8_t>> FakeControlDriver::Requests() {
  std::lock_guard<std::mutex> lock(mu_);
  return requests_;
}

bool FakeControlDriver::WaitHandled(size_t n, int timeoutMs) {
  std::unique_lock<std::mutex> lock(mu_);
  return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return handled_ >= n; });
}

void FakeControlDriver::Run() {
  std::vector<uint8_t> pending;
  for (;;) {
    struct pollfd fds[2] = {{master_.get(), POLLIN, 0}, {stopPipeRead_.get(), POLLIN, 0}};
    int ready = poll(fds, 2, -1);
    if (ready < 0) continue;
    if (fds[1].revents != 0) return;
    if ((fds[0].revents & POLLIN) == 0) {
      // No slave side yet or a hang-up: nothing to read, try again shortly.
      usleep(1000);
      continue;
    }
    uint8_t chunk[kMaxMessage];
    ssize_t got = read(master_.get(), chunk, sizeof(chunk));
    if (got <= 0) continue;
    pending.insert(pending.end(), chunk, chunk + got);

    // Frame by the header's size field; anything unframeable is one message.
    while (pending.size() >= 4) {
      size_t size = lumx::GetLe16(pending.data() + 2);
      if (size < kHeaderSize || size > kMaxMessage) size = pending.size();
      if (pending.size() < size) break;
      std::vector<uint8_t> request(pending.begin(), pending.begin() + size);
      pending.erase(pending.begin(), pending.begin() + size);
      Action action;
      {
        std::lock_guard<std::mutex> lock(mu_);
        requests_.push_back(request);
        if (!script_.empty()) {
          action = script_.front();
          script_.pop_front();
        } else {
          action = default_(request);
        }
      }
      cv_.notify_all();
      Answer(request, action);
      {
        std::lock_guard<std::mutex> lock(mu_);
        ++handled_;
      }
      cv_.notify_all();
      {
        std::lock_guard<std::mutex> lock(mu_);
        if (stopping_) return;
      }
    }
  }
}

void FakeControlDriver::Answer(const std::vector<uint8_t>& request, const Action& action) {
  if (action.holdUntilReleased) {
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait(lock, [&] { return released_ || stopping_; });
  }
  if (action.delayMs > 0) {
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait_for(lock, std::chrono::milliseconds(action.delayMs), [&] { return stopping_; });
  }
  if (action.silent) return;

  std::vector<uint8_t> reply = request;
  if (reply.size() >= kHeaderSize) {
    lumx::PutLe16(reply.data() + 6, static_cast<uint16_t>(action.status));
  }
  if (action.fill) action.fill(request, reply);

  if (action.otherOpcodeFirst >= 0 && reply.size() >= kHeaderSize) {
    std::vector<uint8_t> other = reply;
    lumx::PutLe16(other.data() + 4, static_cast<uint16_t>(action.otherOpcodeFirst));
    WriteAll(other);
    if (action.delayBetweenMs > 0) {
      std::unique_lock<std::mutex> lock(mu_);
      cv_.wait_for(lock, std::chrono::milliseconds(action.delayBetweenMs), [&] { return stopping_; });
    }
  }
  if (action.wrongSize >= 0) {
    std::vector<uint8_t> shortReply(reply.begin(), reply.begin() + std::min(reply.size(), size_t(action.wrongSize)));
    shortReply.resize(static_cast<size_t>(action.wrongSize));
    WriteAll(shortReply);
    return;
  }
  WriteAll(reply);
}

void FakeControlDriver::WriteAll(const std::vector<uint8_t>& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = write(master_.get(), bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EAGAIN || errno == EINTR) {
        usleep(1000);
        continue;
      }
      return;
    }
    done += static_cast<size_t>(n);
  }
}

}  // namespace lumx_test
