// DSP tap points: the paged tap-list walk, tap details, enabling, block
// length and binding to buffers. Every command goes through
// Lumxd::SendLumxCommand with the service mutex held (lock order: mutex_,
// then commandMutex).
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "common/rate_limit.h"
#include "common/wire.h"
#include "common/utf8_text.h"
#include "daemon/lumx_control.h"
#include "daemon/lumxd.h"
#include "service/lumx_service.h"

namespace {

// Tap identifier (8 bytes): code u32, index u8, core u8, enabled u8, spare u8.
constexpr size_t kTapIdSize = 8;
constexpr size_t kTapIdEnabledOffset = 6;

// CMD_LUMX_TAP_LIST_ID payload.
constexpr size_t kListCoreOffset = 8;
constexpr size_t kListPageOffset = 9;
constexpr size_t kListFirstIdOffset = 12;
constexpr int kListIdsPerPage = 4;
// The page byte addresses 256 pages. A DSP that still answers the last of
// them as full would keep the walk, and with it the service mutex, for ever:
// the walk ends there as a failed list.
constexpr uint32_t kMaxTapListPages = 256;

// CMD_LUMX_TAP_INFO_ID payload: identifier at 8, details up to 27.
constexpr size_t kInfoIdOffset = 8;
constexpr size_t kInfoTapOutOffset = 26;
constexpr size_t kInfoInjectOffset = 27;

// Shared by the enable, bind and block-length commands.
constexpr size_t kTapCodeOffset = 8;
constexpr size_t kTapIndexOffset = 12;
constexpr size_t kTapCoreOffset = 13;
constexpr size_t kEnableFlagOffset = 14;
constexpr size_t kBindTapOutOffset = 16;
constexpr size_t kBindInjectOffset = 17;
constexpr size_t kBlockLengthOffset = 16;

constexpr uint8_t kNoBuffer = 0xFF;

// A command buffer that may be handed to SendLumxCommand as a CMD_HDR.
template <size_t N>
struct CommandBuffer {
  alignas(CMD_HDR) uint8_t bytes[N] = {};
};

int32_t Send(uint16_t opcode, uint8_t* bytes, size_t size) {
  return Lumxd::Instance().SendLumxCommand(opcode, reinterpret_cast<CMD_HDR*>(bytes), size);
}

// Addresses one tap: code, index and core, each cut to its wire width.
void PutTapAddress(uint8_t* cmd, int32_t core, int32_t tap, int32_t index) {
  lumx::PutLe32(cmd + kTapCodeOffset, static_cast<uint32_t>(tap));
  cmd[kTapIndexOffset] = static_cast<uint8_t>(index & 0xff);
  cmd[kTapCoreOffset] = static_cast<uint8_t>(core & 0xff);
}

// Logs the request line and appends it as the result's first line.
void AddRequestLine(const char* line, CommandResult* result) {
  LUMX_LOGI("%s", line);
  result->strList.push_back(line);
}

// Sends one tap control command; a failure is reported as "<name> failed,
// status <n>" with ERROR. Caller holds the service mutex.
int32_t SendTapControl(uint16_t opcode, const char* name, uint8_t* bytes, size_t size, CommandResult* result) {
  const int32_t status = Send(opcode, bytes, size);
  if (status != 0) {
    char failure[64];
    snprintf(failure, sizeof(failure), "%s failed, status %d", name, status);
    result->strList.push_back(failure);
    result->status = CommandResult::Status::ERROR;
  }
  return status;
}

}  // namespace

LumxTapDetailedInfo LumxTapDetailedInfo::FromWire(const uint8_t* p) {
  LumxTapDetailedInfo info;
  info.tapCode = lumx::GetLe32(p);
  info.index = p[4];
  info.core = p[5];
  info.enabled = p[6];
  info.extra = p[7];
  info.sampleRate = lumx::GetLeFloat(p + 8);
  info.blockLength = lumx::GetLe32(p + 12);
  info.channels = p[16];
  info.bitsPerSample = p[17];
  info.tapOutBuffer = static_cast<int8_t>(p[18]);
  info.injectBuffer = static_cast<int8_t>(p[19]);
  return info;
}

void LumxTapDetailedInfo::ToWire(uint8_t* p) const {
  lumx::PutLe32(p, tapCode);
  p[4] = index;
  p[5] = core;
  p[6] = enabled;
  p[7] = extra;
  lumx::PutLeFloat(p + 8, sampleRate);
  lumx::PutLe32(p + 12, blockLength);
  p[16] = channels;
  p[17] = bitsPerSample;
  p[18] = static_cast<uint8_t>(tapOutBuffer);
  p[19] = static_cast<uint8_t>(injectBuffer);
}

int LumxService::getLumxTapPoints(int core, std::vector<LumxTapDetailedInfo>& out) {
  lumx::MutexLock lock(&mutex_);
  // Pages are walked until one is not full, at most kMaxTapListPages.
  for (uint32_t page = 0; page < kMaxTapListPages; ++page) {
    CommandBuffer<kTapListCmdSize> list;
    list.bytes[kListCoreOffset] = static_cast<uint8_t>(core & 0xff);
    list.bytes[kListPageOffset] = static_cast<uint8_t>(page & 0xff);
    int32_t status = Send(CMD_LUMX_TAP_LIST_ID, list.bytes, kTapListCmdSize);
    if (status != 0) {
      LUMX_LOGE("CMD_LUMX_TAP_LIST_ID on LUM core %d, status %d", core, status);
      return -1;
    }
    if (lumx::GetLe32(list.bytes + kListFirstIdOffset) == 0) return 0;

    int entry = 0;
    for (;; ++entry) {
      const uint8_t* id = list.bytes + kListFirstIdOffset + kTapIdSize * entry;
      CommandBuffer<kTapInfoCmdSize> info;
      memcpy(info.bytes + kInfoIdOffset, id, kTapIdSize);
      info.bytes[kInfoIdOffset + kTapIdEnabledOffset] = 0;
      info.bytes[kInfoTapOutOffset] = kNoBuffer;
      info.bytes[kInfoInjectOffset] = kNoBuffer;
      status = Send(CMD_LUMX_TAP_INFO_ID, info.bytes, kTapInfoCmdSize);
      if (status != 0) {
        // Records already appended stay with the caller.
        LUMX_LOGE("CMD_LUMX_TAP_INFO_ID failed, status %d", status);
        return -1;
      }
      out.push_back(LumxTapDetailedInfo::FromWire(info.bytes + kInfoIdOffset));
      if (entry == kListIdsPerPage - 1) break;
      if (lumx::GetLe32(id + kTapIdSize) == 0) break;
    }
    if (entry < kListIdsPerPage - 1) return 0;
  }
  static lumx::LogRateLimiter endlessListLog;
  LUMX_LOGE_LIMITED(endlessListLog, "tap list without end",
                    "CMD_LUMX_TAP_LIST_ID on LUM core %d, no end after %u pages", core, kMaxTapListPages);
  return -1;
}

// Not annotated as requiring mutex_ so that callers outside the service
// (tools, fuzzing) may render without it; TapList and TapInfo hold it.
void LumxService::sprintTapInfo(const LumxTapDetailedInfo& info, std::string& out) NO_THREAD_SAFETY_ANALYSIS {
  auto outIt = tapOutBuffers_.find(info.tapOutBuffer);
  const char* outText = outIt != tapOutBuffers_.end() ? outIt->second.name().c_str() : "-";
  auto inIt = injectBuffers_.find(info.injectBuffer);
  const char* inText = inIt != injectBuffers_.end() ? inIt->second.name().c_str() : "-";

  if (out.empty()) {
    char header[128];
    snprintf(header, sizeof(header), "  %-9s %-19s %-9s %-9s %-9s %-9s", "Id", "Format", "BlockLen", "OutBuffer",
             "InBuffer", "Enabled");
    out += header;
  }
  // Deliberately narrow: longer format texts are cut at 19 characters.
  char format[20];
  if (snprintf(format, sizeof(format), "%gkHz, %uch, %ubps", static_cast<double>(info.sampleRate / 1000.0f),
               static_cast<unsigned>(info.channels), static_cast<unsigned>(info.bitsPerSample)) < 0)
    format[0] = '\0';
  char row[128];
  snprintf(row, sizeof(row), "\n  %4s.%-2u   %-19s %-9u %-9s %-9s %-9u", FourCcToString(info.tapCode).c_str(),
           static_cast<unsigned>(info.index), format, info.blockLength, outText, inText,
           static_cast<unsigned>(info.enabled));
  out += row;
}

::ndk::ScopedAStatus LumxService::TapList(int32_t core, CommandResult* result) {
  char line[64];
  snprintf(line, sizeof(line), "LUM tap list core:%d", core);
  AddRequestLine(line, result);

  std::vector<LumxTapDetailedInfo> taps;
  if (getLumxTapPoints(core, taps) != 0) {
    // A failed query is reported as text only; TapList itself succeeded.
    result->strList.push_back("  No tap points");
  } else if (!taps.empty()) {
    std::string text;
    {
      // The walk released mutex_; the rows name buffers from the registries.
      lumx::MutexLock lock(&mutex_);
      for (const LumxTapDetailedInfo& tap : taps) sprintTapInfo(tap, text);
    }
    result->strList.push_back(text);
  } else {
    result->strList.push_back("  No tap points registered");
  }
  print_aidl_return("TapList", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::TapInfo(int32_t core, int32_t tap, int32_t index, CommandResult* result) {
  char line[64];
  lumx::FormatCut(line, sizeof(line), "%s core:%d tap:%s.%d", "TapInfo", core,
           FourCcToString(static_cast<uint32_t>(tap)).c_str(), index);
  AddRequestLine(line, result);

  {
    lumx::MutexLock lock(&mutex_);
    CommandBuffer<kTapInfoCmdSize> info;
    PutTapAddress(info.bytes, core, tap, index);
    info.bytes[kInfoTapOutOffset] = kNoBuffer;
    info.bytes[kInfoInjectOffset] = kNoBuffer;
    const int32_t status = Send(CMD_LUMX_TAP_INFO_ID, info.bytes, kTapInfoCmdSize);
    if (status != 0) {
      char failure[64];
      snprintf(failure, sizeof(failure), "CMD_LUMX_TAP_INFO_ID failed, status %d", status);
      result->strList.push_back(failure);
      result->status = CommandResult::Status::ERROR;
    } else {
      std::string text;
      sprintTapInfo(LumxTapDetailedInfo::FromWire(info.bytes + kInfoIdOffset), text);
      result->strList.push_back(text);
    }
  }
  print_aidl_return("TapInfo", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::TapEnable(int32_t core, int32_t tap, int32_t index, bool enable,
                                           CommandResult* result) {
  const std::string tapText = FourCcToString(static_cast<uint32_t>(tap));
  char line[64];
  lumx::FormatCut(line, sizeof(line), enable ? "LUM core %d enable tap %s.%d" : "LUM core %d disable tap %s.%d", core,
           tapText.c_str(), index);
  AddRequestLine(line, result);

  {
    lumx::MutexLock lock(&mutex_);
    CommandBuffer<kTapEnableCmdSize> cmd;
    PutTapAddress(cmd.bytes, core, tap, index);
    cmd.bytes[kEnableFlagOffset] = enable ? 1 : 0;
    SendTapControl(CMD_LUMX_TAP_ENABLE_ID, "CMD_LUMX_TAP_ENABLE_ID", cmd.bytes, kTapEnableCmdSize, result);
  }
  print_aidl_return("TapEnable", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::TapSetBlockLength(int32_t core, int32_t tap, int32_t index, int32_t blockLength,
                                                   CommandResult* result) {
  const std::string tapText = FourCcToString(static_cast<uint32_t>(tap));
  char line[64];
  lumx::FormatCut(line, sizeof(line), "LUM core %d tap %s.%d set block length %u", core, tapText.c_str(), index,
           static_cast<unsigned>(blockLength));
  AddRequestLine(line, result);

  {
    lumx::MutexLock lock(&mutex_);
    CommandBuffer<kTapSetBlockLenCmdSize> cmd;
    PutTapAddress(cmd.bytes, core, tap, index);
    // Not validated: the DSP alone decides which lengths it accepts.
    lumx::PutLe32(cmd.bytes + kBlockLengthOffset, static_cast<uint32_t>(blockLength));
    SendTapControl(CMD_LUMX_TAP_SET_BLOCK_LEN_ID, "CMD_LUMX_TAP_SET_BLOCK_LEN_ID", cmd.bytes, kTapSetBlockLenCmdSize, result);
  }
  print_aidl_return("TapSetBlockLength", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::ConnectTap(int32_t core, int32_t tap, int32_t index, int32_t tapOutBuffer,
                                            int32_t injectBuffer, CommandResult* result) {
  const std::string tapText = FourCcToString(static_cast<uint32_t>(tap));
  // Wider than a plain request line: the text names the tap at both ends.
  char line[128];
  lumx::FormatCut(line, sizeof(line),
           "LUM core %d connect tap point: %s.%d --> tap-out buffer %d, inject buffer %d --> %s.%d", core,
           tapText.c_str(), index, tapOutBuffer, injectBuffer, tapText.c_str(), index);
  AddRequestLine(line, result);

  {
    lumx::MutexLock lock(&mutex_);
    CommandBuffer<kTapBindCmdSize> cmd;
    PutTapAddress(cmd.bytes, core, tap, index);
    // Not checked against the registries: the DSP gets the ids as they are
    // (low 8 bits; -1 becomes 0xFF, "none").
    cmd.bytes[kBindTapOutOffset] = static_cast<uint8_t>(tapOutBuffer & 0xff);
    cmd.bytes[kBindInjectOffset] = static_cast<uint8_t>(injectBuffer & 0xff);
    if (SendTapControl(CMD_LUMX_TAP_BIND_ID, "CMD_LUMX_TAP_BIND_ID", cmd.bytes, kTapBindCmdSize, result) == 0) {
      rememberTapBinding(TapBinding{static_cast<uint8_t>(core & 0xff), static_cast<uint32_t>(tap),
                                    static_cast<uint8_t>(index & 0xff)},
                         cmd.bytes[kBindTapOutOffset], cmd.bytes[kBindInjectOffset]);
    }
  }
  print_aidl_return("ConnectTap", result);
  return ::ndk::ScopedAStatus::ok();
}

// A tap has one buffer per direction and a buffer one tap per direction, as
// the DSP binds them: the tap leaves the buffers it was bound to, and the
// buffers named take it over from whatever tap they had. The ids are what
// the DSP got (the low 8 bits; 0xFF for none).
void LumxService::rememberTapBinding(const TapBinding& tap, uint8_t tapOutBuffer, uint8_t injectBuffer) {
  lumx::MutexLock lock(&registryMutex_);
  for (auto* bindings : {&tapOutTaps_, &injectTaps_}) {
    for (auto it = bindings->begin(); it != bindings->end();) {
      it = it->second == tap ? bindings->erase(it) : std::next(it);
    }
  }
  if (tapOutBuffer != kNoBuffer) tapOutTaps_[tapOutBuffer] = tap;
  if (injectBuffer != kNoBuffer) injectTaps_[injectBuffer] = tap;
}
