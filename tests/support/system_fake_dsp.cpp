#include "support/system_fake_dsp.h"

#include <cstring>

#include "common/wire.h"
#include "support/system_service_env.h"

namespace lumx::test {

namespace {

constexpr int16_t kNoSuchTap = -2;
constexpr int16_t kBadValue = -22;
constexpr int16_t kBadSize = -90;
constexpr int16_t kBadOpcode = -95;

size_t SizeOf(uint16_t opcode) {
  switch (opcode) {
    case FakeDsp::kTapEnable: return 16;
    case FakeDsp::kTapBind: return 18;
    case FakeDsp::kTapList: return 44;
    case FakeDsp::kTapInfo: return 28;
    case FakeDsp::kTapSetBlockLen: return 20;
    default: return 0;
  }
}

void PutIdentifier(uint8_t* p, const FakeTap& t) {
  PutLe32(p, t.code);
  p[4] = t.index;
  p[5] = t.core;
  p[6] = t.enabled;
  p[7] = 0;
}

}  // namespace

FakeDsp::FakeDsp(const std::string& devRoot) : taps_(UseCaseTaps()), driver_(devRoot) {
  driver_.SetDefault([this](const std::vector<uint8_t>& request) { return Answer(request); });
}

FakeDsp::~FakeDsp() = default;

std::vector<FakeTap> FakeDsp::UseCaseTaps() {
  auto tap = [](uint8_t core, const char(&code)[5], uint8_t index) {
    FakeTap t;
    t.core = core;
    t.code = Code(code);
    t.index = index;
    return t;
  };
  return {tap(2, "imic", 0), tap(2, "sspk", 0), tap(3, "aec0", 0), tap(4, "vpdl", 0), tap(4, "vpul", 1)};
}

void FakeDsp::SetTaps(std::vector<FakeTap> taps) {
  std::lock_guard<std::mutex> lock(mu_);
  taps_ = std::move(taps);
}

std::vector<FakeTap> FakeDsp::Taps() const {
  std::lock_guard<std::mutex> lock(mu_);
  return taps_;
}

void FakeDsp::Fail(uint16_t opcode, int16_t status, int core) {
  std::lock_guard<std::mutex> lock(mu_);
  faults_[{opcode, core}] = status;
}

void FakeDsp::ClearFaults() {
  std::lock_guard<std::mutex> lock(mu_);
  faults_.clear();
}

std::vector<FakeRequest> FakeDsp::Requests() {
  std::vector<std::vector<uint8_t>> all = driver_.Requests();
  size_t first;
  {
    std::lock_guard<std::mutex> lock(mu_);
    first = firstRequest_;
  }
  std::vector<FakeRequest> out;
  for (size_t i = first; i < all.size(); ++i) {
    FakeRequest rec;
    rec.bytes = std::move(all[i]);
    if (rec.bytes.size() >= 6) rec.opcode = GetLe16(rec.bytes.data() + 4);
    if (rec.opcode == kTapList && rec.bytes.size() > 8) rec.core = rec.bytes[8];
    if (rec.opcode != kTapList && rec.bytes.size() > 13) rec.core = rec.bytes[13];
    out.push_back(std::move(rec));
  }
  return out;
}

std::vector<uint16_t> FakeDsp::Opcodes() {
  std::vector<uint16_t> out;
  for (const FakeRequest& r : Requests()) out.push_back(r.opcode);
  return out;
}

void FakeDsp::ClearRequests() {
  size_t n = driver_.Requests().size();
  std::lock_guard<std::mutex> lock(mu_);
  firstRequest_ = n;
}

lumx_test::FakeControlDriver::Action FakeDsp::Answer(const std::vector<uint8_t>& request) {
  std::vector<uint8_t> reply = request;
  lumx_test::FakeControlDriver::Action action;
  if (reply.size() < 8) return action;
  action.status = Handle(reply);
  PutLe16(reply.data() + 6, static_cast<uint16_t>(action.status));
  action.fill = [reply](const std::vector<uint8_t>&, std::vector<uint8_t>& out) { out = reply; };
  return action;
}

FakeTap* FakeDsp::Find(uint8_t core, uint32_t code, uint8_t index) {
  for (FakeTap& t : taps_) {
    if (t.core == core && t.code == code && t.index == index) return &t;
  }
  return nullptr;
}

int16_t FakeDsp::Handle(std::vector<uint8_t>& msg) {
  const uint16_t opcode = GetLe16(msg.data() + 4);
  std::lock_guard<std::mutex> lock(mu_);
  const size_t want = SizeOf(opcode);
  if (want == 0) return kBadOpcode;
  if (msg.size() != want) return kBadSize;
  const uint8_t reqCore = opcode == kTapList ? msg[8] : msg[13];
  for (int core : {static_cast<int>(reqCore), kAnyCore}) {
    auto it = faults_.find({opcode, core});
    if (it != faults_.end()) return it->second;
  }

  uint8_t* p = msg.data();
  FakeTap* t = opcode == kTapList ? nullptr : Find(p[13], GetLe32(p + 8), p[12]);
  if (opcode != kTapList && t == nullptr) return kNoSuchTap;
  switch (opcode) {
    case kTapList: {
      std::memset(p + 12, 0, 32);
      size_t seen = 0, put = 0;
      for (const FakeTap& tap : taps_) {
        if (tap.core != reqCore || seen++ < static_cast<size_t>(p[9]) * 4) continue;
        if (put == 4) break;
        PutIdentifier(p + 12 + 8 * put++, tap);
      }
      return 0;
    }
    case kTapInfo: {
      PutIdentifier(p + 8, *t);
      PutLeFloat(p + 16, t->sampleRate);
      PutLe32(p + 20, t->blockLength);
      p[24] = t->channels;
      p[25] = t->bitsPerSample;
      p[26] = t->tapOut;
      p[27] = t->inject;
      return 0;
    }
    case kTapEnable: {
      if (p[14] > 1) return kBadValue;
      t->enabled = p[14];
      return 0;
    }
    case kTapBind: {
      t->tapOut = p[16];
      t->inject = p[17];
      return 0;
    }
    case kTapSetBlockLen: {
      const uint32_t len = GetLe32(p + 16);
      if (len == 0 || len % 480 != 0) return kBadValue;
      t->blockLength = len;
      return 0;
    }
    default:
      return kBadOpcode;
  }
}

}  // namespace lumx::test
