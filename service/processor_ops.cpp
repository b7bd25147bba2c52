// Processor registry commands, and the relay's streaming calls.
//
// The registry commands hold mutex_ from after their request line until their
// result is printed. Parameter and streaming calls reach processors without
// mutex_ (a slow client must not stall the registry, and the relay's
// block-length change calls back into the service); they hold a ProcessorRef
// instead, which keeps a processor alive across a concurrent delete. Every
// write of processors_ therefore also takes gProcessorPinMutex.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "common/utf8_text.h"
#include "processors/audio_relay_processor.h"
#include "processors/lumx_processor.h"
#include "processors/passthru_processor.h"
#include "service/lumx_service.h"

namespace {

std::string IdText(int32_t id) { return FourCcToString(static_cast<uint32_t>(id)); }

// One request line: "<operation> id:<four characters>", cut at 63 characters.
std::string RequestLine(const char* operation, int32_t id) {
  char line[64];
  lumx::FormatCut(line, sizeof(line), "%s id:%s", operation, IdText(id).c_str());
  return line;
}

}  // namespace

// Reads processors_ under gProcessorPinMutex only: every writer of the map
// holds that lock as well as mutex_, so the lookup is consistent without the
// service lock that the caller must not take here.
LumxService::ProcessorRef::ProcessorRef(LumxService* service, uint32_t id) NO_THREAD_SAFETY_ANALYSIS {
  lumx::MutexLock lock(&gProcessorPinMutex);
  auto it = service->processors_.find(id);
  if (it == service->processors_.end() || it->second == nullptr) return;
  processor_ = it->second;
  processor_->Pin();
}

LumxService::ProcessorRef::~ProcessorRef() {
  if (processor_ == nullptr) return;
  bool lastOfRetired;
  {
    lumx::MutexLock lock(&gProcessorPinMutex);
    lastOfRetired = processor_->Unpin();
  }
  // Already unwired when it was retired; only the object is left to free.
  if (lastOfRetired) delete processor_;
}

void LumxService::retireProcessorLocked(std::map<uint32_t, LumxProcessor*>::iterator it) {
  LumxProcessor* p = it->second;
  {
    // From here on no ProcessorRef can find it.
    lumx::MutexLock lock(&gProcessorPinMutex);
    processors_.erase(it);
  }
  if (p == nullptr) return;

  // The processor leaves its own input and output buffers first (what its
  // destructor would do). A buffer can still hold it after that when a
  // Connect with -1 cleared the processor's side but left the buffer's
  // registration: drop those too, so no I/O thread ever reaches a deleted
  // processor.
  p->DetachFromBuffers();
  for (auto& entry : tapOutBuffers_) {
    std::vector<LumxProcessor*> outputs;
    entry.second.GetOutputs(outputs);
    if (std::find(outputs.begin(), outputs.end(), p) != outputs.end()) entry.second.UnregisterOutput(p);
  }
  for (auto& entry : injectBuffers_) {
    if (entry.second.inputProcessor() == p) entry.second.UnregisterInput();
  }

  // Only now, with the unwiring done, may a ProcessorRef delete it.
  bool deleteNow;
  {
    lumx::MutexLock lock(&gProcessorPinMutex);
    deleteNow = p->Retire();
  }
  if (deleteNow) delete p;
}

::ndk::ScopedAStatus LumxService::ListProcessors(CommandResult* result) {
  LUMX_LOGI("%s", "ListProcessors");
  result->strList.push_back("Lumx processors:");

  lumx::MutexLock lock(&mutex_);
  if (processors_.empty()) {
    result->strList.push_back("  none");
  } else {
    char line[128];
    snprintf(line, sizeof(line), "  %-9s %-9s %-9s %-9s %-9s", "Id", "Type", "InBuffer", "OutBuffer", "Enabled");
    result->strList.push_back(line);
    for (const auto& entry : processors_) {
      const LumxProcessor* p = entry.second;
      if (p == nullptr) continue;
      const LumxBuffer* in = p->input();
      const LumxBuffer* out = p->output();
      snprintf(line, sizeof(line), "  %-9s %-9s %-9s %-9s %-9u", p->idName(), p->typeName(),
               in != nullptr ? in->name().c_str() : "-", out != nullptr ? out->name().c_str() : "-",
               p->IsEnabled() ? 1u : 0u);
      result->strList.push_back(line);
    }
  }
  print_aidl_return("ListProcessors", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::ListSupportedProcessors(CommandResult* result) {
  LUMX_LOGI("%s", "ListSupportedProcessors");
  std::string line = "Supported Lumx processors:";
  for (uint32_t type : {kProcessorTypePass, kProcessorTypeArel}) {
    line += " ";
    line += FourCcToString(type);
  }
  result->strList.push_back(line);
  print_aidl_return("ListSupportedProcessors", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::NewProcessor(int32_t id, CommandResult* result) {
  LUMX_LOGI("%s id:%s", "NewProcessor", IdText(id).c_str());
  // The id doubles as the type: only "pass" and "arel" succeed.
  return NewProcessorWithType(id, id, result);
}

::ndk::ScopedAStatus LumxService::NewProcessorWithType(int32_t id, int32_t type, CommandResult* result) {
  char line[64];
  lumx::FormatCut(line, sizeof(line), "Creating new processor '%s' of type '%s'", IdText(id).c_str(),
           IdText(type).c_str());
  LUMX_LOGI("%s", line);
  result->strList.push_back(line);

  lumx::MutexLock lock(&mutex_);
  const uint32_t key = static_cast<uint32_t>(id);
  // The old processor goes before the type is checked: an unknown type under
  // an existing id leaves no processor under that id.
  auto it = processors_.find(key);
  if (it != processors_.end()) {
    lumx::FormatCut(line, sizeof(line), "Deleting existing processor '%s'", IdText(id).c_str());
    result->strList.push_back(line);
    retireProcessorLocked(it);
  }

  LumxProcessor* p = nullptr;
  const uint32_t typeCode = static_cast<uint32_t>(type);
  if (typeCode == kProcessorTypeArel) {
    p = new AudioRelayProcessor(key);
  } else if (typeCode == kProcessorTypePass) {
    p = new PassthruProcessor(key);
  } else {
    result->strList.push_back("Invalid processor type");
    result->status = CommandResult::Status::INVALID_PROCESSOR;
    print_aidl_return("NewProcessorWithType", result);
    return ::ndk::ScopedAStatus::ok();
  }
  {
    lumx::MutexLock pinLock(&gProcessorPinMutex);
    processors_.emplace(key, p);
  }
  print_aidl_return("NewProcessorWithType", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::DeleteProcessor(int32_t id, CommandResult* result) {
  const std::string request = RequestLine("DeleteProcessor", id);
  LUMX_LOGI("%s", request.c_str());
  result->strList.push_back(request);

  lumx::MutexLock lock(&mutex_);
  auto it = processors_.find(static_cast<uint32_t>(id));
  if (it == processors_.end()) {
    // Deleting a missing processor is not an error.
    char line[64];
    lumx::FormatCut(line, sizeof(line), "Lumx processor '%s' already deleted", IdText(id).c_str());
    result->strList.push_back(line);
  } else {
    retireProcessorLocked(it);
  }
  print_aidl_return("DeleteProcessor", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::ProcessorInfo(int32_t id, CommandResult* result) {
  const std::string request = RequestLine("ProcessorInfo", id);
  LUMX_LOGI("%s", request.c_str());
  result->strList.push_back(request);

  lumx::MutexLock lock(&mutex_);
  auto it = processors_.find(static_cast<uint32_t>(id));
  if (it == processors_.end() || it->second == nullptr) {
    result->status = CommandResult::Status::INVALID_PROCESSOR;
  } else {
    it->second->Info(result->strList);
  }
  print_aidl_return("ProcessorInfo", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::ProcessorEnable(int32_t id, bool enable, CommandResult* result) {
  char line[64];
  lumx::FormatCut(line, sizeof(line), enable ? "Enable processor %s" : "Disable processor %s", IdText(id).c_str());
  LUMX_LOGI("%s", line);
  result->strList.push_back(line);

  lumx::MutexLock lock(&mutex_);
  auto it = processors_.find(static_cast<uint32_t>(id));
  if (it == processors_.end() || it->second == nullptr) {
    result->strList.push_back("Lumx processor not found");
    result->status = CommandResult::Status::INVALID_PROCESSOR;
  } else {
    result->status = it->second->Enable(enable) != 0 ? CommandResult::Status::ERROR : CommandResult::Status::OK;
    updateWakeLock(result);
  }
  print_aidl_return("ProcessorEnable", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::ProcessorIsEnabled(int32_t id, CommandResult* result) {
  const std::string request = RequestLine("ProcessorIsEnabled", id);
  LUMX_LOGI("%s", request.c_str());
  result->strList.push_back(request);

  lumx::MutexLock lock(&mutex_);
  auto it = processors_.find(static_cast<uint32_t>(id));
  if (it == processors_.end() || it->second == nullptr) {
    result->strList.push_back("Lumx processor not found");
    result->status = CommandResult::Status::INVALID_PROCESSOR;
    result->value = 0.0f;
  } else {
    result->value = it->second->IsEnabled() ? 1.0f : 0.0f;
    result->status = CommandResult::Status::OK;
  }
  print_aidl_return("ProcessorIsEnabled", result);
  return ::ndk::ScopedAStatus::ok();
}

// Streaming path: no service lock, no log, no lines, no print.
::ndk::ScopedAStatus LumxService::SendAudio(int32_t processor, const AudioPacket& packet, CommandResult* result) {
  ProcessorRef p(this, static_cast<uint32_t>(processor));
  if (!p) {
    result->status = CommandResult::Status::INVALID_PROCESSOR;
  } else {
    result->status = p->SendAudio(packet) != 0 ? CommandResult::Status::ERROR : CommandResult::Status::OK;
  }
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::RegisterReceiveAudioCallback(int32_t processor,
                                                               const std::shared_ptr<IReceiveAudioCallback>& cb,
                                                               CommandResult* result) {
  ProcessorRef p(this, static_cast<uint32_t>(processor));
  if (!p) {
    result->status = CommandResult::Status::INVALID_PROCESSOR;
  } else {
    p->RegisterReceiveAudioCallback(cb);
  }
  return ::ndk::ScopedAStatus::ok();
}
