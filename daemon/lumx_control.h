// Wire format of the DSP control channel ("zch-lumx_control").
//
// Every request and reply starts with the 8-byte CMD_HDR; the payload follows
// at offset 8. Request and reply have the same size, and the reply is read
// over the request in the caller's buffer. All fields are little-endian on the
// wire: code reads and writes them with the helpers of common/wire.h, never
// through this struct's members, so the host's byte order does not matter.
#pragma once

#include <cstddef>
#include <cstdint>

struct CMD_HDR {
  uint8_t reserved;  // offset 0: always 0 in a request
  uint8_t id;        // offset 1: low 8 bits of nextCommandId
  uint16_t size;     // offset 2: whole message size, header included
  uint16_t opcode;   // offset 4
  int16_t status;    // offset 6: reply status, 0 on success
};
static_assert(sizeof(CMD_HDR) == 8, "CMD_HDR is the 8-byte wire header");

// Byte offsets inside CMD_HDR.
constexpr size_t kCmdHdrIdOffset = 1;
constexpr size_t kCmdHdrSizeOffset = 2;
constexpr size_t kCmdHdrOpcodeOffset = 4;
constexpr size_t kCmdHdrStatusOffset = 6;
constexpr size_t kCmdHdrSize = 8;

// The only commands the daemon sends, with their message sizes.
enum : uint16_t {
  CMD_LUMX_TAP_ENABLE_ID = 202,         // 0xCA
  CMD_LUMX_TAP_BIND_ID = 203,           // 0xCB
  CMD_LUMX_TAP_LIST_ID = 204,           // 0xCC
  CMD_LUMX_TAP_INFO_ID = 205,           // 0xCD
  CMD_LUMX_TAP_SET_BLOCK_LEN_ID = 206,  // 0xCE
};

constexpr size_t kTapEnableCmdSize = 16;
constexpr size_t kTapBindCmdSize = 18;
constexpr size_t kTapListCmdSize = 44;
constexpr size_t kTapInfoCmdSize = 28;
constexpr size_t kTapSetBlockLenCmdSize = 20;

// The reply wait budget for one whole exchange.
constexpr long kCommandReplyTimeoutUs = 500000;
