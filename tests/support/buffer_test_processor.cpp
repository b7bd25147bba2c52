#include "support/buffer_test_processor.h"

#include <cstring>

#include "buffer/lumx_buffer.h"

uint32_t BufferHash(const void* data, size_t size) {
  uint32_t h = 2166136261u;
  const auto* p = static_cast<const uint8_t*>(data);
  for (size_t i = 0; i < size; ++i) h = (h ^ p[i]) * 16777619u;
  return h;
}

BufferTestProcessor::BufferTestProcessor(uint32_t id) : LumxProcessor(id, kType) {}

BufferTestProcessor::~BufferTestProcessor() {
  if (LumxBuffer* in = input()) in->UnregisterOutput(this);
  LumxBuffer* out = output();
  if (out != nullptr && out->inputProcessor() == this) out->UnregisterInput();
  // Whatever is left is not this processor's to undo; keep the base
  // destructor from unwiring another producer.
  SetInput(nullptr);
  SetOutput(nullptr);
}

int BufferTestProcessor::Enable(bool enable) {
  enabled_ = enable;
  return 0;
}

int BufferTestProcessor::ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize) {
  lastInSize.store(inSize);
  lastInHash.store(BufferHash(in, inSize));
  lastOutSize.store(outSize);
  if (LumxBuffer* b = input()) inputRate.store(b->formatSampleRate());
  if (out != nullptr) {
    const size_t n = inSize < outSize ? inSize : outSize;
    const uint8_t mask = xorMask.load();
    const auto* src = static_cast<const uint8_t*>(in);
    auto* dst = static_cast<uint8_t*>(out);
    for (size_t i = 0; i < n; ++i) dst[i] = src[i] ^ mask;
    callsWithOutput.fetch_add(1);
  }
  calls.fetch_add(1);
  return status.load();
}
