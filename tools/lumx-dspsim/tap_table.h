// The simulated DSP's tap points: one entry per tap, its format, state and
// bindings, plus the text format of --taps files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/lumx-dspsim/wire.h"

namespace lumx::dspsim {

struct TapEntry {
  uint8_t core = 0;
  uint32_t code = 0;  // four-character code
  uint8_t index = 0;
  bool enabled = false;
  uint8_t extra = 0;            // identifier byte 7, carried through unchanged
  uint32_t sampleRate = 48000;  // Hz (integral; sent as a float in info replies)
  uint32_t blockLength = 480;   // samples per channel per packet
  uint8_t channels = 1;
  uint8_t bitsPerSample = 16;
  uint8_t tapOut = kNoBuffer;  // bound tap-out buffer id, 0xFF = none
  uint8_t inject = kNoBuffer;  // bound inject buffer id, 0xFF = none
  double toneHz = 0;           // test tone of channel 0; 0 = from the tap's position
  // Where the blocks fall: -1 counts them from the moment the stream starts;
  // otherwise every block is due this many microseconds after a whole
  // multiple of the block period on CLOCK_MONOTONIC, so two taps keep a fixed
  // offset from each other however their streams were started.
  int64_t phaseUs = -1;

  uint32_t BytesPerSample() const { return bitsPerSample / 8u; }
  uint32_t PayloadBytes() const { return blockLength * channels * BytesPerSample(); }
};

// "imic.0"
std::string TapName(const TapEntry& tap);
// "2:imic.0"
std::string TapLongName(const TapEntry& tap);

// The DSP's rule for a block length on a tap of the given format: 0 when
// accepted, kStatusBadValue when zero or not a multiple of 480 samples,
// kStatusTooLarge when one block would not fit a 65472-byte payload.
int16_t CheckBlockLength(uint32_t blockLength, uint32_t channels, uint32_t bitsPerSample);

// The built-in table: core 2 with five taps (so its list spans two pages),
// core 3 with two, core 4 with exactly four (so page 1 is empty). Everything
// starts disabled and unbound, 48 kHz, 16 bits, 480-sample blocks.
std::vector<TapEntry> DefaultTapTable();

// Parses the --taps text format (see FormatTapTable and the README):
//   CORE CODE.INDEX RATE BLOCK CHANNELS BITS [key=value ...]
// keys: enabled=0|1, extra=N, tapout=ID|none, inject=ID|none, tone=HZ,
// phase=US (below one block period).
// '#' starts a comment. On error returns false with "line N: reason".
bool ParseTapTable(const std::string& text, std::vector<TapEntry>* out, std::string* error);
bool LoadTapTableFile(const std::string& path, std::vector<TapEntry>* out, std::string* error);

// Renders a table in the format ParseTapTable reads.
std::string FormatTapTable(const std::vector<TapEntry>& taps);

// Tone of channel `channel` of the tap at position `position` in the table:
// the tap's tone (or 250 Hz x (position + 1)) times (channel + 1), folded
// below half the sample rate.
double ToneFrequency(const TapEntry& tap, size_t position, uint32_t channel);

}  // namespace lumx::dspsim
