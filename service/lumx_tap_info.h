// LumxTapDetailedInfo: one DSP tap point as the DSP reports it.
#pragma once

#include <cstddef>
#include <cstdint>

// The fields are exactly bytes 8 to 27 of a CMD_LUMX_TAP_INFO_ID reply, in
// order. Decode with FromWire(); never copy the wire bytes over the struct.
struct LumxTapDetailedInfo {
  uint32_t tapCode;      // four-character code, first character most significant
  uint8_t index;
  uint8_t core;
  uint8_t enabled;       // 1 when the tap is enabled
  uint8_t extra;         // copied through, never read
  float sampleRate;      // Hz
  uint32_t blockLength;  // samples per block
  uint8_t channels;
  uint8_t bitsPerSample;
  int8_t tapOutBuffer;   // -1 (0xFF) when none
  int8_t injectBuffer;   // -1 (0xFF) when none

  static constexpr size_t kWireSize = 20;
  // Decodes the 20 little-endian bytes at `p` (reply offset 8).
  static LumxTapDetailedInfo FromWire(const uint8_t* p);
  // Encodes the record as the 20 bytes a reply carries at offset 8.
  void ToWire(uint8_t* p) const;
};
static_assert(sizeof(LumxTapDetailedInfo) == LumxTapDetailedInfo::kWireSize,
              "LumxTapDetailedInfo mirrors the info reply's bytes 8..27");
