#include "tools/lumx-dspsim/dsp_model.h"

#include <cstring>

namespace lumx::dspsim {

DspModel::DspModel(std::vector<TapEntry> table) : initial_(std::move(table)), taps_(initial_) {}

void DspModel::Reset() { taps_ = initial_; }

bool DspModel::HasCore(uint8_t core) const {
  if (core >= 2 && core <= 4) return true;
  for (const TapEntry& t : taps_) {
    if (t.core == core) return true;
  }
  return false;
}

const TapEntry* DspModel::FindByInject(uint8_t id) const {
  if (id == kNoBuffer) return nullptr;
  for (const TapEntry& t : taps_) {
    if (t.inject == id) return &t;
  }
  return nullptr;
}

TapEntry* DspModel::Find(uint8_t core, uint32_t code, uint8_t index, int16_t* status) {
  if (!HasCore(core)) {
    *status = kStatusNoCore;
    return nullptr;
  }
  for (TapEntry& t : taps_) {
    if (t.core == core && t.code == code && t.index == index) return &t;
  }
  *status = kStatusNoTap;
  return nullptr;
}

void DspModel::EchoReply(const uint8_t* request, size_t len, int16_t status, uint8_t* reply) {
  if (len > 0) std::memmove(reply, request, len);
  if (len >= kCmdHeaderSize) StoreI16(reply + kCmdStatusOffset, status);
}

CommandOutcome DspModel::Handle(const uint8_t* request, size_t len, uint8_t* reply) {
  CommandOutcome out;
  // The reply starts as an echo of the request; handlers fill in their fields.
  EchoReply(request, len, kStatusOk, reply);
  if (len < kCmdHeaderSize) {
    // No room for an opcode or a status: the bytes simply come back.
    return out;
  }
  out.hasHeader = true;
  out.opcode = LoadU16(request + kCmdOpcodeOffset);
  size_t expected = RequestSizeForOpcode(out.opcode);
  out.knownOpcode = expected != 0;
  if (!out.knownOpcode) {
    out.status = kStatusBadOpcode;
  } else if (len != expected || LoadU16(request + kCmdSizeOffset) != len) {
    out.status = kStatusBadSize;
  } else {
    switch (out.opcode) {
      case kOpTapEnable:
        out.status = Enable(request, &out.changed);
        break;
      case kOpTapBind:
        out.status = Bind(request, &out.changed);
        break;
      case kOpTapList:
        out.status = List(request, reply);
        break;
      case kOpTapInfo:
        out.status = Info(request, reply);
        break;
      case kOpTapSetBlockLen:
        out.status = SetBlockLength(request, &out.changed);
        break;
      default:
        break;
    }
  }
  StoreI16(reply + kCmdStatusOffset, out.status);
  return out;
}

int16_t DspModel::List(const uint8_t* req, uint8_t* reply) {
  uint8_t core = req[8];
  uint8_t page = req[9];
  if (!HasCore(core)) return kStatusNoCore;
  const std::vector<const TapEntry*> onCore = TapsOnCore(core);
  // Bytes 8..11: core, page, and the core's tap count.
  reply[8] = core;
  reply[9] = page;
  StoreU16(reply + 10, static_cast<uint16_t>(onCore.size()));
  std::memset(reply + kListEntriesOffset, 0, kTapsPerPage * kTapIdSize);
  size_t first = static_cast<size_t>(page) * kTapsPerPage;
  for (size_t i = 0; i < kTapsPerPage && first + i < onCore.size(); ++i) {
    PutTapId(reply + kListEntriesOffset + i * kTapIdSize, *onCore[first + i]);
  }
  return kStatusOk;
}

std::vector<const TapEntry*> DspModel::TapsOnCore(uint8_t core) const {
  std::vector<const TapEntry*> onCore;
  for (const TapEntry& t : taps_) {
    if (t.core == core) onCore.push_back(&t);
  }
  return onCore;
}

void DspModel::PutTapId(uint8_t* id, const TapEntry& t) {
  StoreU32(id, t.code);
  id[4] = t.index;
  id[5] = t.core;
  id[6] = t.enabled ? 1 : 0;
  id[7] = t.extra;
}

int16_t DspModel::Info(const uint8_t* req, uint8_t* reply) {
  int16_t status = kStatusOk;
  TapEntry* t = Find(req[13], LoadU32(req + 8), req[12], &status);
  if (t == nullptr) return status;
  StoreU32(reply + 8, t->code);
  reply[12] = t->index;
  reply[13] = t->core;
  reply[14] = t->enabled ? 1 : 0;
  reply[15] = t->extra;
  StoreF32(reply + 16, static_cast<float>(t->sampleRate));
  StoreU32(reply + 20, t->blockLength);
  reply[24] = t->channels;
  reply[25] = t->bitsPerSample;
  reply[26] = t->tapOut;
  reply[27] = t->inject;
  return kStatusOk;
}

int16_t DspModel::Enable(const uint8_t* req, bool* changed) {
  int16_t status = kStatusOk;
  TapEntry* t = Find(req[13], LoadU32(req + 8), req[12], &status);
  if (t == nullptr) return status;
  if (req[14] > 1) return kStatusBadValue;
  bool on = req[14] == 1;
  *changed = t->enabled != on;
  t->enabled = on;
  return kStatusOk;
}

int16_t DspModel::Bind(const uint8_t* req, bool* changed) {
  int16_t status = kStatusOk;
  TapEntry* t = Find(req[13], LoadU32(req + 8), req[12], &status);
  if (t == nullptr) return status;
  uint8_t out = req[16];
  uint8_t in = req[17];
  for (TapEntry& o : taps_) {
    if (&o == t) continue;
    if (out != kNoBuffer && o.tapOut == out) {
      o.tapOut = kNoBuffer;
      *changed = true;
    }
    if (in != kNoBuffer && o.inject == in) {
      o.inject = kNoBuffer;
      *changed = true;
    }
  }
  if (t->tapOut != out || t->inject != in) *changed = true;
  t->tapOut = out;
  t->inject = in;
  return kStatusOk;
}

int16_t DspModel::SetBlockLength(const uint8_t* req, bool* changed) {
  int16_t status = kStatusOk;
  TapEntry* t = Find(req[13], LoadU32(req + 8), req[12], &status);
  if (t == nullptr) return status;
  uint32_t len = LoadU32(req + 16);
  status = CheckBlockLength(len, t->channels, t->bitsPerSample);
  if (status != kStatusOk) return status;
  *changed = t->blockLength != len;
  t->blockLength = len;
  return kStatusOk;
}

}  // namespace lumx::dspsim
