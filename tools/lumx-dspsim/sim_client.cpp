#include "tools/lumx-dspsim/sim_client.h"

#include <fcntl.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace lumx::dspsim {

namespace {

int64_t NowMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// select() for readability of `fd`; false on time-out or error.
bool WaitReadable(int fd, int64_t timeoutMs) {
  if (timeoutMs < 0) timeoutMs = 0;
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  struct timeval tv;
  tv.tv_sec = static_cast<time_t>(timeoutMs / 1000);
  tv.tv_usec = static_cast<suseconds_t>((timeoutMs % 1000) * 1000);
  int n;
  do {
    n = select(fd + 1, &set, nullptr, nullptr, &tv);
  } while (n < 0 && errno == EINTR);
  return n > 0;
}

}  // namespace

std::vector<uint8_t> MakeRequest(uint16_t opcode, size_t size, uint8_t id) {
  std::vector<uint8_t> m(size, 0);
  if (size >= kCmdHeaderSize) {
    m[kCmdIdOffset] = id;
    StoreU16(m.data() + kCmdSizeOffset, static_cast<uint16_t>(size));
    StoreU16(m.data() + kCmdOpcodeOffset, opcode);
  }
  return m;
}

std::vector<uint8_t> MakeTapRequest(uint16_t opcode, uint8_t core, const char* code, uint8_t index,
                                    uint8_t id) {
  size_t size = RequestSizeForOpcode(opcode);
  std::vector<uint8_t> m = MakeRequest(opcode, size, id);
  StoreU32(m.data() + 8, FourCc(code));
  m[12] = index;
  m[13] = core;
  if (opcode == kOpTapInfo) m[26] = m[27] = kNoBuffer;
  return m;
}

bool ControlClient::Open(const std::string& path) {
  fd_.reset(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  return fd_.ok();
}

bool ControlClient::Send(const std::vector<uint8_t>& request) {
  ssize_t n = write(fd_.get(), request.data(), request.size());
  return n == static_cast<ssize_t>(request.size());
}

bool ControlClient::Receive(size_t size, int timeoutMs, std::vector<uint8_t>* out) {
  out->clear();
  int64_t end = NowMs() + timeoutMs;
  for (;;) {
    if (!WaitReadable(fd_.get(), end - NowMs())) return false;
    out->resize(size);
    ssize_t n = read(fd_.get(), out->data(), size);
    if (n == static_cast<ssize_t>(size)) return true;
    out->clear();
    if (n < 0 && errno != EAGAIN && errno != EINTR) return false;
  }
}

bool ControlClient::Exchange(std::vector<uint8_t>* msg, int timeoutMs) {
  if (!Send(*msg)) return false;
  std::vector<uint8_t> reply;
  if (!Receive(msg->size(), timeoutMs, &reply)) return false;
  *msg = std::move(reply);
  return true;
}

bool TapOutReader::Open(const std::string& path) {
  fd_.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd_.ok()) return false;
  int flags = fcntl(fd_.get(), F_GETFL);
  fcntl(fd_.get(), F_SETFL, flags | O_NONBLOCK);
  parser_.Reset();
  ready_.clear();
  buf_.resize(kMaxPacketSize);
  return true;
}

bool TapOutReader::Next(int timeoutMs, ReadPacket* out) {
  int64_t end = NowMs() + timeoutMs;
  while (ready_.empty()) {
    if (!WaitReadable(fd_.get(), end - NowMs())) return false;
    ssize_t n = read(fd_.get(), buf_.data(), buf_.size());
    if (n <= 0) {
      if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
      return false;
    }
    if (readSizes.size() < 4096) readSizes.push_back(static_cast<size_t>(n));
    parser_.Feed(buf_.data(), static_cast<size_t>(n), this);
  }
  *out = std::move(ready_.front());
  ready_.erase(ready_.begin());
  return true;
}

void TapOutReader::OnPacket(const PacketHeader& header, const uint8_t* payload) {
  ReadPacket p;
  p.header = header;
  p.rawHeader.assign(payload - kPacketHeaderSize, payload);
  p.payload.assign(payload, payload + header.payloadSize);
  ready_.push_back(std::move(p));
}

void TapOutReader::OnParseError(ParseError error, size_t bytes) {
  switch (error) {
    case ParseError::kSkippedBytes:
      ++resyncs;
      skippedBytes += bytes;
      break;
    case ParseError::kBadVersion:
      ++badVersion;
      break;
    case ParseError::kOversize:
      ++oversize;
      break;
  }
}

}  // namespace lumx::dspsim
