// Little-endian field access for the DSP's wire formats (control commands and
// device packets). Messages are built byte by byte so that neither the host's
// byte order nor struct padding can leak onto the wire.
#pragma once

#include <cstdint>
#include <cstring>

namespace lumx {

inline void PutLe16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}
inline void PutLe32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void PutLe64(uint8_t* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline uint16_t GetLe16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t GetLe32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
inline uint64_t GetLe64(const uint8_t* p) {
  return static_cast<uint64_t>(GetLe32(p)) | (static_cast<uint64_t>(GetLe32(p + 4)) << 32);
}
inline void PutLeFloat(uint8_t* p, float f) {
  uint32_t v;
  memcpy(&v, &f, sizeof v);
  PutLe32(p, v);
}
inline float GetLeFloat(const uint8_t* p) {
  uint32_t v = GetLe32(p);
  float f;
  memcpy(&f, &v, sizeof f);
  return f;
}

}  // namespace lumx
