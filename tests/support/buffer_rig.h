// A tap-out buffer and an inject buffer on FIFOs in a temporary device
// directory, with the test's ends of both FIFOs: `feeder` writes device
// packets into the tap-out FIFO, `drain` reads what the inject buffer wrote.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"
#include "support/buffer_dev_dir.h"

class BufferStreamRig {
 public:
  BufferStreamRig() {
    dir.MakeFifo("zch-lumx_tapout0");
    dir.MakeFifo("zch-lumx_inject0");
    feeder = BufferOpenFifoFeeder(dir.Path("zch-lumx_tapout0"));
    drain = BufferOpenFifoReader(dir.Path("zch-lumx_inject0"));
    tapout = std::make_unique<LumxBuffer>("tapout0", dir.Path("zch-lumx_tapout0"), 0, nullptr, true);
    inject = std::make_unique<LumxBuffer>("inject0", dir.Path("zch-lumx_inject0"), 0, nullptr, false);
  }
  ~BufferStreamRig() {
    // The tap-out buffer goes first: its thread must not outlive the feeder.
    tapout.reset();
    inject.reset();
    if (feeder >= 0) close(feeder);
    if (drain >= 0) close(drain);
  }
  BufferStreamRig(const BufferStreamRig&) = delete;
  BufferStreamRig& operator=(const BufferStreamRig&) = delete;

  // Reads exactly `size` bytes from the inject FIFO; false on time-out.
  bool ReadOutput(uint8_t* data, size_t size, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (size > 0) {
      const ssize_t n = read(drain, data, size);
      if (n > 0) {
        data += n;
        size -= static_cast<size_t>(n);
        continue;
      }
      if (std::chrono::steady_clock::now() > deadline) return false;
      pollfd p = {drain, POLLIN, 0};
      poll(&p, 1, 20);
    }
    return true;
  }

  // Everything the inject FIFO holds right now.
  size_t PendingOutput() const { return static_cast<size_t>(BufferPipeBytes(drain)); }

  BufferDevDir dir;
  int feeder = -1;
  int drain = -1;
  std::unique_ptr<LumxBuffer> tapout;
  std::unique_ptr<LumxBuffer> inject;
};

// Until destroyed, feeds numbered packets into a tap-out FIFO whenever it is
// empty (so the I/O thread takes one packet per read) and the inject FIFOs
// have been drained (so no write waits for room), and drains the inject
// FIFOs. Neither thread allocates once running.
class BufferStreamer {
 public:
  BufferStreamer(int feeder, std::vector<int> drains) : feeder_(feeder), drains_(std::move(drains)) {
    feed_ = std::thread([this] { Feed(); });
    drain_ = std::thread([this] { Drain(); });
  }
  ~BufferStreamer() {
    stop_ = true;
    feed_.join();
    drain_.join();
  }
  BufferStreamer(const BufferStreamer&) = delete;
  BufferStreamer& operator=(const BufferStreamer&) = delete;

 private:
  void Feed() {
    std::vector<uint8_t> packet = BufferMakePacket(BufferPacketDesc{});
    for (uint32_t num = 1; !stop_;) {
      bool drained = true;
      for (int fd : drains_) drained = drained && BufferPipeBytes(fd) < 16384;
      if (BufferPipeBytes(feeder_) != 0 || !drained) {
        sched_yield();
        continue;
      }
      lumx::PutLe32(packet.data() + kPktNumOffset, num++);
      BufferWriteAll(feeder_, packet);
    }
  }
  void Drain() {
    std::vector<pollfd> fds;
    for (int fd : drains_) fds.push_back({fd, POLLIN, 0});
    std::vector<uint8_t> scratch(65536);
    while (!stop_) {
      if (poll(fds.data(), fds.size(), 10) <= 0) continue;
      for (const pollfd& p : fds) {
        if ((p.revents & POLLIN) == 0) continue;
        const ssize_t ignored = read(p.fd, scratch.data(), scratch.size());
        (void)ignored;
      }
    }
  }

  int feeder_;
  std::vector<int> drains_;
  std::atomic<bool> stop_{false};
  std::thread feed_;
  std::thread drain_;
};
