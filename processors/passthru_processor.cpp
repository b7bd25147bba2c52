#include "processors/passthru_processor.h"

#include <cstring>

namespace {
// Serialises Enable() across every passthrough processor of the process.
lumx::Mutex gPassthruEnableMutex;
}  // namespace

PassthruProcessor::PassthruProcessor(uint32_t id) : LumxProcessor(id, kProcessorTypePass) {}

PassthruProcessor::~PassthruProcessor() { DetachFromBuffers(); }

void PassthruProcessor::Info(std::vector<std::string>& lines) const { LumxProcessor::Info(lines); }

int PassthruProcessor::Enable(bool enable) {
  lumx::MutexLock lock(&gPassthruEnableMutex);
  setEnabled(enable);
  return 0;
}

int PassthruProcessor::ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize) {
  // Disabled: `out` keeps the caller's zero fill, so silence is injected.
  if (!enabled()) return 0;
  // No enabled output buffer: nothing to copy into.
  if (out == nullptr) return countBlock(0);
  const size_t n = inSize < outSize ? inSize : outSize;
  if (n > 0) memcpy(out, in, n);
  if (inSize < outSize) memset(static_cast<uint8_t*>(out) + n, 0, outSize - n);
  return countBlock(0);
}
