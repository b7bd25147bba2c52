// Byte layouts that the simulated DSP channel driver speaks: control
// requests/replies on zch-lumx_control and audio packets on the data nodes.
//
// Every field is assembled and read byte by byte (little-endian) so that the
// host's byte order and struct padding never reach the wire. This file is the
// simulator's own reading of the formats; it deliberately shares no code with
// the daemon, so that the two cross-check each other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace lumx::dspsim {

// ---- little-endian access ------------------------------------------------

inline void StoreU16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v & 0xFF);
  p[1] = static_cast<uint8_t>(v >> 8);
}
inline void StoreU32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>((v >> (8 * i)) & 0xFF);
}
inline void StoreU64(uint8_t* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>((v >> (8 * i)) & 0xFF);
}
inline void StoreI16(uint8_t* p, int16_t v) { StoreU16(p, static_cast<uint16_t>(v)); }
inline void StoreF32(uint8_t* p, float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  StoreU32(p, bits);
}
inline uint16_t LoadU16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] | (static_cast<uint16_t>(p[1]) << 8));
}
inline uint32_t LoadU32(const uint8_t* p) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}
inline uint64_t LoadU64(const uint8_t* p) {
  uint64_t v = 0;
  for (int i = 7; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}
inline int16_t LoadI16(const uint8_t* p) { return static_cast<int16_t>(LoadU16(p)); }
inline float LoadF32(const uint8_t* p) {
  uint32_t bits = LoadU32(p);
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

// ---- control channel -----------------------------------------------------

// Command header, first 8 bytes of every request and reply.
constexpr size_t kCmdHeaderSize = 8;
constexpr size_t kCmdIdOffset = 1;      // u8 command id (echoed in replies)
constexpr size_t kCmdSizeOffset = 2;    // u16 whole message size
constexpr size_t kCmdOpcodeOffset = 4;  // u16 opcode
constexpr size_t kCmdStatusOffset = 6;  // i16 status (replies)
// Longest request the framing accepts; anything bigger is cut into pieces of
// this size and each piece answered as a malformed request.
constexpr size_t kMaxRequestSize = 4096;

constexpr uint16_t kOpTapEnable = 202;
constexpr uint16_t kOpTapBind = 203;
constexpr uint16_t kOpTapList = 204;
constexpr uint16_t kOpTapInfo = 205;
constexpr uint16_t kOpTapSetBlockLen = 206;

constexpr size_t kTapEnableSize = 16;
constexpr size_t kTapBindSize = 18;
constexpr size_t kTapListSize = 44;
constexpr size_t kTapInfoSize = 28;
constexpr size_t kTapSetBlockLenSize = 20;

// Message size of a known opcode, 0 for an opcode this DSP does not know.
inline size_t RequestSizeForOpcode(uint16_t opcode) {
  switch (opcode) {
    case kOpTapEnable:
      return kTapEnableSize;
    case kOpTapBind:
      return kTapBindSize;
    case kOpTapList:
      return kTapListSize;
    case kOpTapInfo:
      return kTapInfoSize;
    case kOpTapSetBlockLen:
      return kTapSetBlockLenSize;
    default:
      return 0;
  }
}

// Short name for logs and statistics; nullptr for an unknown opcode.
inline const char* OpcodeName(uint16_t opcode) {
  switch (opcode) {
    case kOpTapEnable:
      return "TAP_ENABLE";
    case kOpTapBind:
      return "TAP_BIND";
    case kOpTapList:
      return "TAP_LIST";
    case kOpTapInfo:
      return "TAP_INFO";
    case kOpTapSetBlockLen:
      return "TAP_SET_BLOCK_LEN";
    default:
      return nullptr;
  }
}

// Tap identifier: code u32, index u8, core u8, enabled u8, extra u8.
constexpr size_t kTapIdSize = 8;
constexpr size_t kTapsPerPage = 4;
constexpr size_t kListEntriesOffset = 12;
constexpr uint8_t kNoBuffer = 0xFF;

// Reply statuses of the simulated DSP (negated Linux errno values, fixed here
// so the wire does not depend on the host's errno numbering).
constexpr int16_t kStatusOk = 0;
constexpr int16_t kStatusNoTap = -2;       // ENOENT: no such tap on that core
constexpr int16_t kStatusNoCore = -19;     // ENODEV: no such core
constexpr int16_t kStatusBadValue = -22;   // EINVAL: value refused
constexpr int16_t kStatusTooLarge = -34;   // ERANGE: block does not fit a packet
constexpr int16_t kStatusBadSize = -90;    // EMSGSIZE: wrong size for the opcode
constexpr int16_t kStatusBadOpcode = -95;  // EOPNOTSUPP: unknown opcode

// ---- data packets --------------------------------------------------------

constexpr size_t kPacketHeaderSize = 64;
constexpr size_t kMaxPacketSize = 65536;
constexpr size_t kMaxPayloadSize = kMaxPacketSize - kPacketHeaderSize;  // 65472
constexpr uint32_t kPacketMagic = 0x4C756D78;                           // the bytes "xmuL"
constexpr uint32_t kPacketVersion = 1;
// Audio in a payload is laid out in frames of 480 samples per channel: frame
// f holds channel 0's 480 samples, then channel 1's, and so on.
constexpr uint32_t kFrameSamples = 480;

struct PacketHeader {
  uint32_t magic = kPacketMagic;
  uint32_t version = kPacketVersion;
  uint64_t opaque = 0;
  uint32_t packetNum = 0;
  uint32_t payloadSize = 0;
  uint32_t sampleRate = 0;
  uint8_t channels = 0;
  uint8_t bytesPerSample = 0;
};

// Writes all 64 header bytes (bytes 30..63 zero).
inline void EncodePacketHeader(const PacketHeader& h, uint8_t* out) {
  std::memset(out, 0, kPacketHeaderSize);
  StoreU32(out + 0, h.magic);
  StoreU32(out + 4, h.version);
  StoreU64(out + 8, h.opaque);
  StoreU32(out + 16, h.packetNum);
  StoreU32(out + 20, h.payloadSize);
  StoreU32(out + 24, h.sampleRate);
  out[28] = h.channels;
  out[29] = h.bytesPerSample;
}

inline PacketHeader DecodePacketHeader(const uint8_t* in) {
  PacketHeader h;
  h.magic = LoadU32(in + 0);
  h.version = LoadU32(in + 4);
  h.opaque = LoadU64(in + 8);
  h.packetNum = LoadU32(in + 16);
  h.payloadSize = LoadU32(in + 20);
  h.sampleRate = LoadU32(in + 24);
  h.channels = in[28];
  h.bytesPerSample = in[29];
  return h;
}

// Offset (in samples) of sample i of channel c in the frame that starts at
// sample `frameStart` and holds n samples per channel.
inline size_t FrameSampleOffset(size_t frameStart, size_t n, size_t channels, size_t c, size_t i) {
  return frameStart * channels + c * n + i;
}

// ---- four-character codes -------------------------------------------------

// "imic" -> 0x696d6963 (first character in the most significant byte).
inline uint32_t FourCc(const char* s) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v = (v << 8) | static_cast<uint8_t>(s[i]);
  return v;
}

// Most significant byte first; a zero byte ends the text early.
inline std::string FourCcText(uint32_t code) {
  std::string out;
  for (int shift = 24; shift >= 0; shift -= 8) {
    char c = static_cast<char>((code >> shift) & 0xFF);
    if (c == 0) break;
    out.push_back(c);
  }
  return out;
}

}  // namespace lumx::dspsim
