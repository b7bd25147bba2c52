// Use cases: predefined audio paths switched on and off with one call.
//
// A use case is built exactly as a client would build it, by calling the
// service's own ILumx operations one after the other; each of them takes and
// releases mutex_ itself, so nothing here holds a lock. The sequence stops at
// the first failing step and leaves what was done in place: a half-built path
// can be inspected (ShowGraph, ListProcessors) and torn down by hand.
#include <cstdio>
#include <string>

#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "common/utf8_text.h"
#include "processors/audio_relay_processor.h"
#include "service/lumx_service.h"

namespace {

constexpr int32_t FourCc(const char (&s)[5]) {
  return static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint8_t>(s[0])) << 24) |
                              (static_cast<uint32_t>(static_cast<uint8_t>(s[1])) << 16) |
                              (static_cast<uint32_t>(static_cast<uint8_t>(s[2])) << 8) |
                              static_cast<uint32_t>(static_cast<uint8_t>(s[3])));
}

constexpr int32_t kHotwordProcessor = FourCc("hwae");
constexpr int32_t kPassProcessor = FourCc("pas1");
constexpr int32_t kPassType = FourCc("pass");
constexpr int kPathCore = 2;
constexpr int kTapIndex = 0;

// What MIC_IN and SPEAKER_OUT differ in: the DSP tap and the buffer pair.
struct PassPath {
  int32_t tap;
  int32_t buffer;  // both the tap-out and the inject buffer id
};
constexpr PassPath kMicInPath = {FourCc("imic"), 20};
constexpr PassPath kSpeakerOutPath = {FourCc("sspk"), 21};

bool Failed(const CommandResult& r) { return r.status != CommandResult::Status::OK; }

// Use cases in enumeration order, as parsed and listed.
constexpr UseCase kAllUseCases[] = {UseCase::UNSPECIFIED, UseCase::HOTWORDAEC, UseCase::MIC_IN,
                                    UseCase::SPEAKER_OUT, UseCase::AREL_TELE};

}  // namespace

// Builds or tears down a passthrough path through "pas1". Every step writes
// into `tmp`; the first failing checked step ends the sequence.
static void RunPassPath(LumxService* service, const PassPath& path, bool enable, CommandResult* tmp) {
  if (enable) {
    service->NewProcessorWithType(kPassProcessor, kPassType, tmp);
    if (Failed(*tmp)) return;
    service->Connect(kPassProcessor, path.buffer, path.buffer, tmp);
    if (Failed(*tmp)) return;
    service->ProcessorEnable(kPassProcessor, true, tmp);
    if (Failed(*tmp)) return;
    service->ConnectTap(kPathCore, path.tap, kTapIndex, path.buffer, path.buffer, tmp);
    if (Failed(*tmp)) return;
    service->TapEnable(kPathCore, path.tap, kTapIndex, true, tmp);
    if (Failed(*tmp)) return;
    service->StartIo(path.buffer, tmp);
    return;
  }
  service->TapEnable(kPathCore, path.tap, kTapIndex, false, tmp);
  if (Failed(*tmp)) return;
  service->StopIo(path.buffer, tmp);
  if (Failed(*tmp)) return;
  // Whatever disabling the processor answers, it is deleted next: no check
  // between the two. Both write into the same result, so a failure to
  // disable still shows once the delete is checked.
  service->ProcessorEnable(kPassProcessor, false, tmp);
  service->DeleteProcessor(kPassProcessor, tmp);
}

::ndk::ScopedAStatus LumxService::EnableUseCase(UseCase useCase, bool enable, CommandResult* result) {
  const std::string name = UseCaseToString(useCase);
  char line[64];
  snprintf(line, sizeof(line), "%s %s %u", "EnableUseCase", name.c_str(), enable ? 1u : 0u);
  LUMX_LOGI("%s", line);
  result->strList.push_back(line);

  CommandResult tmp;
  switch (useCase) {
    case UseCase::HOTWORDAEC:
      // "hwae" is created by whoever provides hotword processing, not here.
      this->ProcessorEnable(kHotwordProcessor, enable, &tmp);
      break;
    case UseCase::MIC_IN:
      RunPassPath(this, kMicInPath, enable, &tmp);
      break;
    case UseCase::SPEAKER_OUT:
      RunPassPath(this, kSpeakerOutPath, enable, &tmp);
      break;
    case UseCase::AREL_TELE:
      AudioRelayProcessor::EnableTelephonyUseCase(enable, &tmp);
      break;
    default:
      snprintf(line, sizeof(line), "Unknown Lumx use case '%s'", name.c_str());
      result->strList.push_back(line);
      result->status = CommandResult::Status::ERROR;
      print_aidl_return("EnableUseCase", result);
      return ::ndk::ScopedAStatus::ok();
  }

  // On success the steps' own lines are dropped: the heading says it all.
  if (Failed(tmp)) {
    for (std::string& s : tmp.strList) result->strList.push_back(std::move(s));
    snprintf(line, sizeof(line), "Error %s Lumx use case '%s'", enable ? "enabling" : "disabling", name.c_str());
    result->strList.push_back(line);
    result->status = CommandResult::Status::ERROR;
  }
  print_aidl_return("EnableUseCase", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::IsUseCaseEnabled(UseCase useCase, CommandResult* result) {
  char line[64];
  snprintf(line, sizeof(line), "%s %s", "IsUseCaseEnabled", UseCaseToString(useCase).c_str());
  LUMX_LOGI("%s", line);
  result->strList.push_back(line);

  switch (useCase) {
    case UseCase::AREL_TELE:
      result->value = AudioRelayProcessor::TelephonyUseCaseEnabled() ? 1.0f : 0.0f;
      result->status = CommandResult::Status::OK;
      break;
    case UseCase::HOTWORDAEC:
      // Hotword processing keeps its own state; nothing is tracked here.
      break;
    default:
      result->strList.push_back("lumx use case state unknown");
      result->status = CommandResult::Status::INVALID_PARAMETER;
      break;
  }
  print_aidl_return("IsUseCaseEnabled", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::ListSupportedUseCases(CommandResult* result) {
  LUMX_LOGI("%s", "ListSupportedUseCases");
  std::string line = "Supported Lumx use cases:";
  for (UseCase useCase : kAllUseCases) {
    if (useCase == UseCase::UNSPECIFIED) continue;
    line += " ";
    line += UseCaseToString(useCase);
  }
  result->strList.push_back(line);
  print_aidl_return("ListSupportedUseCases", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::Enable(const std::string& name, bool enable, CommandResult* result) {
  char line[64];
  lumx::FormatCut(line, sizeof(line), "%s Lumx use case '%s'", enable ? "Enable" : "Disable", name.c_str());
  LUMX_LOGI("%s", line);
  result->strList.push_back(line);
  return EnableUseCase(stringToUseCase(name), enable, result);
}

::ndk::ScopedAStatus LumxService::IsEnabled(const std::string& name, CommandResult* result) {
  return IsUseCaseEnabled(stringToUseCase(name), result);
}

UseCase LumxService::stringToUseCase(const std::string& name) {
  std::string upper = name;
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  for (UseCase useCase : kAllUseCases) {
    if (upper == UseCaseToString(useCase)) return useCase;
  }
  return UseCase::UNSPECIFIED;
}
