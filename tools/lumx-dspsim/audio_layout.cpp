#include "tools/lumx-dspsim/audio_layout.h"

#include <algorithm>

#include "tools/lumx-dspsim/wire.h"

namespace lumx::dspsim {

void StoreSample(uint8_t* p, int32_t value, unsigned bytesPerSample) {
  uint32_t u = static_cast<uint32_t>(value);
  switch (bytesPerSample) {
    case 2:
      p[0] = static_cast<uint8_t>(u >> 16);
      p[1] = static_cast<uint8_t>(u >> 24);
      break;
    case 3:
      p[0] = static_cast<uint8_t>(u >> 8);
      p[1] = static_cast<uint8_t>(u >> 16);
      p[2] = static_cast<uint8_t>(u >> 24);
      break;
    case 4:
      StoreU32(p, u);
      break;
    default:
      break;
  }
}

int32_t LoadSample(const uint8_t* p, unsigned bytesPerSample) {
  uint32_t u = 0;
  switch (bytesPerSample) {
    case 2:
      u = (static_cast<uint32_t>(p[0]) << 16) | (static_cast<uint32_t>(p[1]) << 24);
      break;
    case 3:
      u = (static_cast<uint32_t>(p[0]) << 8) | (static_cast<uint32_t>(p[1]) << 16) |
          (static_cast<uint32_t>(p[2]) << 24);
      break;
    case 4:
      u = LoadU32(p);
      break;
    default:
      break;
  }
  return static_cast<int32_t>(u);
}

void PackPayload(const int32_t* interleaved, size_t frames, unsigned srcChannels, unsigned channels,
                 unsigned bytesPerSample, uint8_t* payload) {
  for (size_t start = 0; start < frames; start += kFrameSamples) {
    size_t n = std::min<size_t>(kFrameSamples, frames - start);
    for (unsigned c = 0; c < channels; ++c) {
      unsigned src = c % srcChannels;
      uint8_t* out = payload + FrameSampleOffset(start, n, channels, c, 0) * bytesPerSample;
      const int32_t* in = interleaved + start * srcChannels + src;
      for (size_t i = 0; i < n; ++i) {
        StoreSample(out, *in, bytesPerSample);
        out += bytesPerSample;
        in += srcChannels;
      }
    }
  }
}

void UnpackPayload(const uint8_t* payload, size_t frames, unsigned channels,
                   unsigned bytesPerSample, int32_t* interleaved) {
  for (size_t start = 0; start < frames; start += kFrameSamples) {
    size_t n = std::min<size_t>(kFrameSamples, frames - start);
    for (unsigned c = 0; c < channels; ++c) {
      const uint8_t* in = payload + FrameSampleOffset(start, n, channels, c, 0) * bytesPerSample;
      int32_t* out = interleaved + start * channels + c;
      for (size_t i = 0; i < n; ++i) {
        *out = LoadSample(in, bytesPerSample);
        in += bytesPerSample;
        out += channels;
      }
    }
  }
}

void ToneGenerator::Configure(const std::vector<double>& frequencies, double sampleRate,
                              double amplitude) {
  osc_.clear();
  for (double f : frequencies) {
    double w = 2.0 * M_PI * f / sampleRate;
    osc_.push_back(Osc{1.0, 0.0, std::cos(w), std::sin(w)});
  }
  scale_ = amplitude * 2147483647.0;
}

void ToneGenerator::Render(int32_t* interleaved, size_t frames) {
  size_t ch = osc_.size();
  for (size_t c = 0; c < ch; ++c) {
    Osc& o = osc_[c];
    int32_t* out = interleaved + c;
    double re = o.re, im = o.im;
    for (size_t i = 0; i < frames; ++i) {
      *out = static_cast<int32_t>(std::lrint(im * scale_));
      out += ch;
      double nre = re * o.stepRe - im * o.stepIm;
      im = re * o.stepIm + im * o.stepRe;
      re = nre;
    }
    // Keep the phasor on the unit circle despite rounding.
    double mag = std::sqrt(re * re + im * im);
    o.re = re / mag;
    o.im = im / mag;
  }
}

}  // namespace lumx::dspsim
