// PassthruProcessor ("pass"): while enabled, copies each block unchanged.
#pragma once

#include "processors/lumx_processor.h"

class PassthruProcessor : public LumxProcessor {
 public:
  explicit PassthruProcessor(uint32_t id);
  ~PassthruProcessor() override;

  void Info(std::vector<std::string>& lines) const override;
  // Never fails; takes the module-wide passthrough lock.
  int Enable(bool enable) override;
  // I/O thread. Copies min(inSize, outSize) bytes and zeroes the rest of
  // `out`; a null `out` (no enabled output buffer) skips the copy. No format
  // check, no conversion, no allocation.
  int ProcessBlock(const void* in, size_t inSize, void* out, size_t outSize) override;

 private:
  [[maybe_unused]] uint64_t reserved0_ = 0;
  [[maybe_unused]] uint64_t reserved1_ = 0;
};
