// A tap-out buffer and an inject buffer on FIFOs in a temporary device
// directory, with the test's ends of both FIFOs: `feeder` writes device
// packets into the tap-out FIFO, `drain` reads what the inject buffer wrote.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "buffer/lumx_buffer.h"
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
