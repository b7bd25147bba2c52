// Test and fuzz access to LumxBuffer's receive steps and device state.
//
// The peer drives the I/O thread's reassembly one read at a time without a
// thread or a device: ArmReadBuffer() puts a tap-out buffer into the state in
// which its I/O thread starts, and Feed() hands it one read's bytes.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "buffer/lumx_buffer.h"

class LumxBufferTestPeer {
 public:
  using RxState = LumxBuffer::RxState;

  // Allocates the blocks and marks the buffer enabled, with no thread and
  // with `fd` (owned by the buffer from now on, may be -1) as its device.
  // The buffer's destructor or Enable(false) undoes it.
  static void ArmReadBuffer(LumxBuffer& b, int fd = -1) {
    if (b.ioBuffer_ == nullptr) b.ioBuffer_ = new uint8_t[kLumIoBlockSize]();
    if (b.packetBuffer_ == nullptr) b.packetBuffer_ = new uint8_t[kLumIoBlockSize]();
    b.handle_.store(fd);
    b.rxPacketCount_.store(0);
    b.rxReset();
    b.enabled_.store(true);
  }

  static void StartPacket(RxState& st) { LumxBuffer::rxStartPacket(st); }
  static size_t ReadLimit(const LumxBuffer& b, const RxState& st) { return b.rxReadLimit(st); }

  // One read of `n` bytes (at most ReadLimit()). Returns true when it
  // completed at least one packet, which has then been checked and
  // delivered, as the I/O thread does.
  static bool Feed(LumxBuffer& b, RxState& st, const uint8_t* data, size_t n) {
    memcpy(b.ioBuffer_, data, n);
    return b.rxAccept(st, n) > 0;
  }

  static uint32_t ExpectedPacketSize(const LumxBuffer& b) { return b.expectedPacketSize_; }
  static uint8_t* IoBlock(LumxBuffer& b) { return b.ioBuffer_; }
  static int Handle(const LumxBuffer& b) { return b.handle_.load(); }

  // Closes the device behind the buffer's back (the buffer stays enabled).
  static void CloseHandle(LumxBuffer& b) {
    const int fd = b.handle_.exchange(-1);
    if (fd >= 0) close(fd);
  }
  // Gives the buffer `fd` (owned from now on) as its device descriptor.
  static void SetHandle(LumxBuffer& b, int fd) { b.handle_.store(fd); }
  // Frees the I/O block behind the buffer's back.
  static void DropIoBlock(LumxBuffer& b) {
    delete[] b.ioBuffer_;
    b.ioBuffer_ = nullptr;
  }
};
