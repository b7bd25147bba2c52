// Conversion between interleaved 32-bit frames (full-range integers, as
// libsndfile's int interface uses) and the DSP's payload layout: 16-, 24- or
// 32-bit little-endian samples in frames of 480 samples per channel, each
// frame holding channel 0's samples, then channel 1's, and so on (a block
// whose length is not a multiple of 480 ends in a shorter frame).
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace lumx::dspsim {

void StoreSample(uint8_t* p, int32_t value, unsigned bytesPerSample);
int32_t LoadSample(const uint8_t* p, unsigned bytesPerSample);

// `frames` frames of `srcChannels` interleaved samples -> payload with
// `channels` channels; payload channel c takes source channel c % srcChannels.
void PackPayload(const int32_t* interleaved, size_t frames, unsigned srcChannels, unsigned channels,
                 unsigned bytesPerSample, uint8_t* payload);

// Payload of `frames` samples per channel -> interleaved frames.
void UnpackPayload(const uint8_t* payload, size_t frames, unsigned channels,
                   unsigned bytesPerSample, int32_t* interleaved);

// A sine per channel from a rotating phasor: no trigonometry per sample.
class ToneGenerator {
 public:
  // amplitude: fraction of full scale.
  void Configure(const std::vector<double>& frequencies, double sampleRate, double amplitude);
  // Writes `frames` interleaved frames of channels() samples.
  void Render(int32_t* interleaved, size_t frames);
  size_t channels() const { return osc_.size(); }

 private:
  struct Osc {
    double re, im;  // current phasor
    double stepRe, stepIm;
  };
  std::vector<Osc> osc_;
  double scale_ = 0;
};

}  // namespace lumx::dspsim
