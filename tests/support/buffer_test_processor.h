// A minimal processor for buffer wiring and delivery tests: it copies each
// block to its output (when it has one), counts calls and can be told to
// fail. Everything it records is atomic, so tests can poll it while the I/O
// thread delivers.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "processors/lumx_processor.h"

class BufferTestProcessor : public LumxProcessor {
 public:
  static constexpr uint32_t kType = 0x74657374;  // "test"

  explicit BufferTestProcessor(uint32_t id);
  // Unwires itself before its own members go, so an I/O thread can no longer
  // reach it by the time they are destroyed.
  ~BufferTestProcessor() override;

  int Enable(bool enable) override;
  int ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize) override;

  std::atomic<uint64_t> calls{0};
  std::atomic<uint64_t> callsWithOutput{0};
  std::atomic<size_t> lastInSize{0};
  std::atomic<size_t> lastOutSize{0};
  // The input buffer's stream sample rate, read from this thread as the
  // relay processor does.
  std::atomic<uint32_t> inputRate{0};
  // FNV-1a of the last input block.
  std::atomic<uint32_t> lastInHash{0};
  // Returned from every ProcessBlock.
  std::atomic<int> status{0};
  // XORed into every copied byte, so tests can tell processed audio apart.
  std::atomic<uint8_t> xorMask{0};
};

// FNV-1a, as BufferTestProcessor records it.
uint32_t BufferHash(const void* data, size_t size);

// Four-character code from a string literal ("tst1" -> 0x74737431).
constexpr uint32_t BufferTestFourCc(const char (&s)[5]) {
  return (static_cast<uint32_t>(static_cast<uint8_t>(s[0])) << 24) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[1])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[2])) << 8) | static_cast<uint32_t>(static_cast<uint8_t>(s[3]));
}
