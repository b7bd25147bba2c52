#include "wav_io.h"

namespace lumx::cli {

std::vector<uint8_t> SamplesToBytes(const int16_t* samples, size_t count) {
  std::vector<uint8_t> bytes(count * 2);
  for (size_t k = 0; k < count; ++k) {
    auto u = static_cast<uint16_t>(samples[k]);
    bytes[2 * k] = static_cast<uint8_t>(u & 0xff);
    bytes[2 * k + 1] = static_cast<uint8_t>(u >> 8);
  }
  return bytes;
}

std::vector<int16_t> BytesToSamples(const uint8_t* bytes, size_t size) {
  std::vector<int16_t> samples(size / 2);
  for (size_t k = 0; k < samples.size(); ++k) {
    auto u = static_cast<uint16_t>(bytes[2 * k] | (bytes[2 * k + 1] << 8));
    samples[k] = static_cast<int16_t>(u);
  }
  return samples;
}

}  // namespace lumx::cli
