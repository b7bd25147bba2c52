// The simulated DSP's command processor: a tap table per core and the
// answers to the five tap commands.
//
// Acceptance rules (also in --help and the README):
//  - a request must have exactly the size of its opcode (TAP_ENABLE 16,
//    TAP_BIND 18, TAP_LIST 44, TAP_INFO 28, TAP_SET_BLOCK_LEN 20 bytes) and
//    its header's size field must say the same, else -90 (EMSGSIZE);
//  - an unknown opcode gets -95 (EOPNOTSUPP);
//  - a core the DSP does not have gets -19 (ENODEV), a tap that core does not
//    have -2 (ENOENT);
//  - TAP_ENABLE takes 0 or 1 only, else -22 (EINVAL);
//  - TAP_SET_BLOCK_LEN takes a positive multiple of 480, else -22; a block
//    whose payload (length x channels x bytes per sample) exceeds 65472 bytes
//    gets -34 (ERANGE);
//  - TAP_BIND takes any ids (0xFF = none). A buffer id is bound to one tap at
//    a time per direction: binding it to a tap takes it from any other tap.
// Every reply has the request's size and echoes its bytes (header included,
// so the id byte and the opcode come back), with the status at offset 6.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/lumx-dspsim/tap_table.h"

namespace lumx::dspsim {

struct CommandOutcome {
  bool hasHeader = false;  // at least 8 bytes, so opcode and status exist
  uint16_t opcode = 0;
  bool knownOpcode = false;
  int16_t status = kStatusOk;
  bool changed = false;  // the tap table's state changed
};

class DspModel {
 public:
  // `table` is the state that Reset() returns to (a DSP restart).
  explicit DspModel(std::vector<TapEntry> table);

  void Reset();

  // Answers one request of `len` bytes; writes exactly `len` bytes of reply.
  CommandOutcome Handle(const uint8_t* request, size_t len, uint8_t* reply);

  // The reply to a refused request: the request echoed with `status` at
  // offset 6 (when the message is long enough to hold it).
  static void EchoReply(const uint8_t* request, size_t len, int16_t status, uint8_t* reply);

  const std::vector<TapEntry>& taps() const { return taps_; }
  // The taps of one core, in table order.
  std::vector<const TapEntry*> TapsOnCore(uint8_t core) const;
  // Writes the 8-byte tap identifier of `t` (code, index, core, enabled,
  // the byte carried through) at `id`.
  static void PutTapId(uint8_t* id, const TapEntry& t);
  // Cores 2, 3 and 4 always exist, plus every core named in the table.
  bool HasCore(uint8_t core) const;
  // The tap bound to inject buffer `id`, or nullptr.
  const TapEntry* FindByInject(uint8_t id) const;

 private:
  TapEntry* Find(uint8_t core, uint32_t code, uint8_t index, int16_t* status);
  int16_t List(const uint8_t* req, uint8_t* reply);
  int16_t Info(const uint8_t* req, uint8_t* reply);
  int16_t Enable(const uint8_t* req, bool* changed);
  int16_t Bind(const uint8_t* req, bool* changed);
  int16_t SetBlockLength(const uint8_t* req, bool* changed);

  std::vector<TapEntry> initial_;
  std::vector<TapEntry> taps_;
};

}  // namespace lumx::dspsim
