// Tap-out and inject FIFOs 0..n-1 in a temporary device directory and one
// thread that feeds every empty tap-out FIFO a packet (numbered from 1,
// payload byte i = number + 7 * i) and reads every inject FIFO that is not
// stalled, checking each packet there: magic, version, size 1920, and the
// fed pattern of its own number or silence. Bytes before a magic are skipped.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "support/buffer_dev_dir.h"

class StreamFifoRig {
 public:
  explicit StreamFifoRig(int count);
  ~StreamFifoRig();
  StreamFifoRig(const StreamFifoRig&) = delete;
  StreamFifoRig& operator=(const StreamFifoRig&) = delete;

  // A stalled inject FIFO is not read: once full, its writer cannot go on.
  void Stall(int inject, bool stalled) { stalled_[inject] = stalled; }
  uint64_t packets(int inject) const { return inject_[inject].packets.load(); }
  uint64_t corrupt(int inject) const { return inject_[inject].corrupt.load(); }
  uint64_t skipped(int inject) const { return inject_[inject].skipped.load(); }
  // Bytes waiting in an inject FIFO.
  int Queued(int inject) const { return BufferPipeBytes(inject_[inject].fd); }
  // Packets fed into a tap-out FIFO so far.
  uint32_t fed(int tapout) const { return nums_[tapout].load(); }
  // Waits until inject FIFO `id` received `more` packets beyond now.
  bool WaitMore(int inject, uint64_t more) const {
    const uint64_t from = packets(inject);
    return BufferWaitFor([&] { return packets(inject) >= from + more; });
  }

  BufferDevDir dir;

 private:
  struct Inject {
    int fd = -1;
    std::vector<uint8_t> pending;
    std::atomic<uint64_t> packets{0};
    std::atomic<uint64_t> corrupt{0};
    std::atomic<uint64_t> skipped{0};
  };
  void Run();
  void Parse(Inject& in);

  std::vector<int> feeders_;
  std::vector<std::atomic<uint32_t>> nums_;
  std::vector<Inject> inject_;
  std::vector<std::atomic<bool>> stalled_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};
