// Helpers of the buffer tests: a temporary device directory (the daemon finds
// it through $LUMX_DEV_ROOT), device packets, FIFO feeding and waiting.
#pragma once

#include <lumx_host/log_capture.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

// A fresh directory that LUMX_DEV_ROOT points at while the object lives; the
// previous value comes back and the directory is removed on destruction.
// Create it while no I/O thread runs (the environment is process-wide).
class BufferDevDir {
 public:
  BufferDevDir();
  ~BufferDevDir();
  BufferDevDir(const BufferDevDir&) = delete;
  BufferDevDir& operator=(const BufferDevDir&) = delete;

  const std::string& root() const { return root_; }
  std::string Path(const std::string& name) const { return root_ + "/" + name; }
  void MakeFifo(const std::string& name) const;
  void MakeFile(const std::string& name) const;
  void Remove(const std::string& name) const;

 private:
  std::string root_;
  bool hadOld_ = false;
  std::string old_;
};

struct BufferPacketDesc {
  uint32_t num = 1;
  uint32_t payloadSize = 1920;
  uint32_t sampleRate = 48000;
  uint8_t channels = 2;
  uint8_t bytesPerSample = 2;
  uint32_t version = 1;
  uint64_t opaque = 0x1122334455667788ull;
  uint8_t seed = 0;      // payload byte i is seed + 7 * i (never the magic)
  uint8_t restByte = 0;  // header bytes 30..63
};

std::vector<uint8_t> BufferMakePacket(const BufferPacketDesc& desc);
// The payload BufferMakePacket() writes for this desc.
std::vector<uint8_t> BufferPayload(const BufferPacketDesc& desc);

// Opens a tap-out FIFO for feeding it: read-write and non-blocking, so the
// open never waits, the buffer's blocking read-only open finds a writer, and
// the buffer never sees end-of-file. Nothing is ever read through it.
int BufferOpenFifoFeeder(const std::string& path);
// Opens the read end of a FIFO without waiting for a writer.
int BufferOpenFifoReader(const std::string& path);
// Writes all bytes (the fd may be non-blocking). False on error.
bool BufferWriteAll(int fd, const uint8_t* data, size_t size);
inline bool BufferWriteAll(int fd, const std::vector<uint8_t>& data) {
  return BufferWriteAll(fd, data.data(), data.size());
}
// Writes one chunk and waits until the reader has taken all of it, so that
// the reader sees exactly this chunk in one read (chunks up to PIPE_BUF).
bool BufferWriteChunk(int fd, const uint8_t* data, size_t size);
inline bool BufferWriteChunk(int fd, const std::vector<uint8_t>& data) {
  return BufferWriteChunk(fd, data.data(), data.size());
}
// Bytes waiting in the pipe behind `fd` (either end).
int BufferPipeBytes(int fd);

// Polls `done` until it holds or `timeout` passes (generous: never used to
// assert speed, only to keep a broken test from hanging).
bool BufferWaitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(20));

// "lumx" log lines that contain any of `keys`, without the idle notices
// ("waiting for LUM RX": their number depends on timing).
std::vector<std::string> BufferLogLines(const lumx_host::LogCapture& capture,
                                        std::initializer_list<const char*> keys = {""});
