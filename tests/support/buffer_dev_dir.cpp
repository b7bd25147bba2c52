#include "support/buffer_dev_dir.h"

#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"

namespace {

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*) { return remove(path); }

}  // namespace

BufferDevDir::BufferDevDir() {
  const char* tmp = getenv("TMPDIR");
  std::string templ = std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/lumx-buffer-XXXXXX";
  std::vector<char> name(templ.begin(), templ.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr) abort();
  root_ = name.data();
  const char* old = getenv("LUMX_DEV_ROOT");
  if (old != nullptr) {
    hadOld_ = true;
    old_ = old;
  }
  setenv("LUMX_DEV_ROOT", root_.c_str(), 1);
}

BufferDevDir::~BufferDevDir() {
  if (hadOld_) {
    setenv("LUMX_DEV_ROOT", old_.c_str(), 1);
  } else {
    unsetenv("LUMX_DEV_ROOT");
  }
  nftw(root_.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

void BufferDevDir::MakeFifo(const std::string& name) const {
  if (mkfifo(Path(name).c_str(), 0600) != 0) abort();
}

void BufferDevDir::MakeFile(const std::string& name) const {
  const int fd = open(Path(name).c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) abort();
  close(fd);
}

void BufferDevDir::Remove(const std::string& name) const { unlink(Path(name).c_str()); }

std::vector<uint8_t> BufferPayload(const BufferPacketDesc& desc) {
  std::vector<uint8_t> payload(desc.payloadSize);
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(desc.seed + 7 * i);
  return payload;
}

std::vector<uint8_t> BufferMakePacket(const BufferPacketDesc& desc) {
  std::vector<uint8_t> packet(kLumPacketHeaderSize);
  lumx::PutLe32(&packet[kPktMagicOffset], kLumPacketMagic);
  lumx::PutLe32(&packet[kPktVersionOffset], desc.version);
  lumx::PutLe64(&packet[kPktOpaqueOffset], desc.opaque);
  lumx::PutLe32(&packet[kPktNumOffset], desc.num);
  lumx::PutLe32(&packet[kPktPayloadSizeOffset], desc.payloadSize);
  lumx::PutLe32(&packet[kPktSampleRateOffset], desc.sampleRate);
  packet[kPktChannelsOffset] = desc.channels;
  packet[kPktBytesPerSampleOffset] = desc.bytesPerSample;
  for (size_t i = 30; i < kLumPacketHeaderSize; ++i) packet[i] = desc.restByte;
  const std::vector<uint8_t> payload = BufferPayload(desc);
  packet.insert(packet.end(), payload.begin(), payload.end());
  return packet;
}

int BufferOpenFifoFeeder(const std::string& path) { return open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC); }

int BufferOpenFifoReader(const std::string& path) { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }

bool BufferWriteAll(int fd, const uint8_t* data, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    if (n < 0) {
      if (errno == EAGAIN || errno == EINTR) {
        usleep(100);
        continue;
      }
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

int BufferPipeBytes(int fd) {
  int n = 0;
  if (ioctl(fd, FIONREAD, &n) != 0) return -1;
  return n;
}

bool BufferWriteChunk(int fd, const uint8_t* data, size_t size) {
  if (!BufferWriteAll(fd, data, size)) return false;
  return BufferWaitFor([fd] { return BufferPipeBytes(fd) == 0; });
}

bool BufferWaitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

std::vector<std::string> BufferLogLines(const lumx_host::LogCapture& capture, std::initializer_list<const char*> keys) {
  std::vector<std::string> out;
  for (const std::string& m : capture.messages("lumx")) {
    if (m.find("waiting for LUM RX") != std::string::npos) continue;
    if (std::any_of(keys.begin(), keys.end(), [&](const char* k) { return m.find(k) != std::string::npos; })) {
      out.push_back(m);
    }
  }
  return out;
}
