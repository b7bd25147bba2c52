// Connections between buffers and processors, and the connection graph.
//
// Connect() wires a processor between a tap-out buffer and an inject buffer
// under the service mutex. ShowGraph() joins the DSP's view (which tap point
// is bound to which buffer) with the daemon's view (which buffers each
// processor reads and writes) into one line per processor.
#include <cstdio>
#include <string>
#include <vector>

#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "common/utf8_text.h"
#include "processors/lumx_processor.h"
#include "service/lumx_service.h"

namespace {

// The DSP cores that carry tap points, in the order the graph reports them.
constexpr int kGraphCores[] = {2, 3, 4};

// Name of a buffer for the wiring lines, "NC" when there is none.
const char* BufferNameOrNc(const LumxBuffer* buffer) {
  return buffer != nullptr ? buffer->name().c_str() : "NC";
}

}  // namespace

std::string LumxService::getTapNameConnectedToBuffer(const LumxBuffer* buffer,
                                                     const std::vector<LumxTapDetailedInfo>& taps) {
  if (buffer == nullptr) return "NC";
  // The DSP reports buffer ids as signed bytes; an id the byte cannot hold
  // never matches, exactly like comparing the promoted values.
  const long long id = static_cast<long long>(buffer->id());
  for (const LumxTapDetailedInfo& tap : taps) {
    const long long bound = buffer->isRead() ? tap.tapOutBuffer : tap.injectBuffer;
    if (bound != id) continue;
    std::string name = FourCcToString(tap.tapCode) + "." + std::to_string(tap.index);
    if (tap.enabled != 1) name += " (disabled)";
    return name;
  }
  return "NC";
}

::ndk::ScopedAStatus LumxService::Connect(int32_t processor, int32_t tapOutBuffer, int32_t injectBuffer,
                                          CommandResult* result) {
  const std::string processorText = FourCcToString(static_cast<uint32_t>(processor));
  char line[128];
  lumx::FormatCut(line, sizeof(line), "Connect Lumx processor: tap-out buffer %d --> processor %s --> inject buffer %d",
           tapOutBuffer, processorText.c_str(), injectBuffer);
  LUMX_LOGI("%s", line);
  result->strList.push_back(line);

  lumx::MutexLock lock(&mutex_);

  auto procIt = processors_.find(static_cast<uint32_t>(processor));
  if (procIt == processors_.end() || procIt->second == nullptr) {
    result->strList.push_back("Invalid processor");
    result->status = CommandResult::Status::INVALID_PROCESSOR;
    print_aidl_return("Connect", result);
    return ::ndk::ScopedAStatus::ok();
  }
  LumxProcessor* p = procIt->second;

  // Tap-out side: the processor becomes one of the buffer's outputs. -1 only
  // clears the processor's input; a registration the buffer already holds is
  // left alone.
  LumxBuffer* input = nullptr;
  if (tapOutBuffer != -1) {
    auto it = tapOutBuffers_.find(tapOutBuffer);
    if (it == tapOutBuffers_.end()) {
      result->strList.push_back("Invalid tap out buffer");
      result->status = CommandResult::Status::INVALID_PARAMETER;
      print_aidl_return("Connect", result);
      return ::ndk::ScopedAStatus::ok();
    }
    if (it->second.RegisterOutput(p) != 0) {
      result->strList.push_back("Failed to register with processor");
      result->status = CommandResult::Status::ERROR;
      print_aidl_return("Connect", result);
      return ::ndk::ScopedAStatus::ok();
    }
    input = &it->second;
  }

  // Inject side: an inject buffer has a single producer, so a processor
  // already feeding it loses its output before this one takes over.
  LumxBuffer* output = nullptr;
  if (injectBuffer != -1) {
    auto it = injectBuffers_.find(injectBuffer);
    if (it == injectBuffers_.end()) {
      result->strList.push_back("Invalid inject buffer");
      result->status = CommandResult::Status::INVALID_PARAMETER;
      print_aidl_return("Connect", result);
      return ::ndk::ScopedAStatus::ok();
    }
    output = &it->second;
    LumxProcessor* current = output->inputProcessor();
    if (current != nullptr && current != p) {
      char msg[128];
      lumx::FormatCut(msg, sizeof(msg), "  %s is already connected to %s. Disconnecting", output->name().c_str(),
               current->idName());
      result->strList.push_back(msg);
      current->SetOutput(nullptr);
    }
    output->RegisterInput(p);
  }

  char msg[128];
  lumx::FormatCut(msg, sizeof(msg), "  Set %s input to %s", p->idName(), BufferNameOrNc(input));
  result->strList.push_back(msg);
  p->SetInput(input);

  lumx::FormatCut(msg, sizeof(msg), "  Set %s output to %s", p->idName(), BufferNameOrNc(output));
  result->strList.push_back(msg);
  p->SetOutput(output);

  print_aidl_return("Connect", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::ShowGraph(CommandResult* result) {
  LUMX_LOGI("%s", "ShowGraph");
  result->strList.push_back("Connection graph:");

  // Each query takes mutex_ itself (it is not recursive), so none is held
  // here; the queries append every core's taps to one vector.
  std::vector<LumxTapDetailedInfo> taps;
  for (int core : kGraphCores) {
    if (getLumxTapPoints(core, taps) != 0) {
      result->strList.push_back("Error retrieving list of tap points from LuM core " + std::to_string(core));
      result->status = CommandResult::Status::ERROR;
      print_aidl_return("ShowGraph", result);
      return ::ndk::ScopedAStatus::ok();
    }
  }

  {
    // The walk holds mutex_ so that a processor cannot be deleted, nor a
    // buffer destroyed by a rescan, while its names are being read.
    lumx::MutexLock lock(&mutex_);
    if (processors_.empty()) {
      result->strList.push_back("  No Lumx processors");
    } else {
      for (const auto& entry : processors_) {
        const LumxProcessor* p = entry.second;
        if (p == nullptr) continue;
        const LumxBuffer* in = p->input();
        const LumxBuffer* out = p->output();
        std::string line = "  ";
        line += in != nullptr ? getTapNameConnectedToBuffer(in, taps) : "NC";
        line += " --> ";
        line += BufferNameOrNc(in);
        line += " --> ";
        line += p->idName();
        line += p->IsEnabled() ? " --> " : " (disabled) --> ";
        line += BufferNameOrNc(out);
        line += " --> ";
        line += out != nullptr ? getTapNameConnectedToBuffer(out, taps) : "NC";
        result->strList.push_back(line);
      }
    }
  }

  print_aidl_return("ShowGraph", result);
  return ::ndk::ScopedAStatus::ok();
}
