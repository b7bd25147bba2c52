// Parameter commands: find the processor, describe the request, forward it.
//
// None of them takes mutex_: the processor is held through a ProcessorRef
// (see processor_ops.cpp), which keeps it alive across a concurrent delete.
// mutex_ could not simply be held around the call, because a relay's
// block-length change calls TapSetBlockLength, which takes mutex_ itself.
#include <array>
#include <string>
#include <vector>

#include "common/lumx_log.h"
#include "common/lumx_utils.h"
#include "processors/lumx_processor.h"
#include "service/lumx_service.h"

namespace {

constexpr size_t kMaxBulkParameters = 64;

// Every parameter id, in the order listings walk them.
constexpr std::array<ParameterId, 6> kAllParameterIds = {
    ParameterId::UNSPECIFIED,  ParameterId::VERSION,      ParameterId::PASSTHROUGH_MODE,
    ParameterId::TEST_MODE,    ParameterId::BLOCK_LENGTH, ParameterId::AUDIO_FORMAT,
};

std::string ProcessorText(int32_t processor) { return FourCcToString(static_cast<uint32_t>(processor)); }

// "<op> processor:<id> param:<name> element:<n>"
std::string ParameterText(const char* prefix, int32_t processor, ParameterId id, int32_t element) {
  return std::string(prefix) + " processor:" + ProcessorText(processor) + " param:" + ParameterIdToString(id) +
         " element:" + std::to_string(element);
}

std::string BulkText(const char* operation, int32_t processor, size_t count) {
  return std::string(operation) + " processor:" + ProcessorText(processor) + " [" + std::to_string(count) +
         " parameters]";
}

}  // namespace

::ndk::ScopedAStatus LumxService::SetParameter(int32_t processor, ParameterId id, int32_t element,
                                               const ParamValue& value, CommandResult* result) {
  std::string text = ParameterText("SetParameter", processor, id, element);
  switch (value.getTag()) {
    case ParamValue::Tag::f:
      text += " value.f:" + std::to_string(value.get<ParamValue::Tag::f>());
      break;
    case ParamValue::Tag::i:
      text += " value.i:" + std::to_string(value.get<ParamValue::Tag::i>());
      break;
    default:
      // Never handed to a processor: its accessors must not see this value.
      text += " value has invalid tag";
      result->status = CommandResult::Status::INVALID_VALUE;
      LUMX_LOGI("%s", text.c_str());
      result->strList.push_back(text);
      print_aidl_return("SetParameter", result);
      return ::ndk::ScopedAStatus::ok();
  }
  LUMX_LOGI("%s", text.c_str());
  result->strList.push_back(text);

  ProcessorRef p(this, static_cast<uint32_t>(processor));
  result->status = p ? p->SetParameter(id, element, value) : CommandResult::Status::INVALID_PROCESSOR;
  print_aidl_return("SetParameter", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::GetParameter(int32_t processor, ParameterId id, int32_t element, ParamValue* value,
                                               CommandResult* result) {
  const std::string text = ParameterText("GetParameter", processor, id, element);
  LUMX_LOGI("%s", text.c_str());
  result->strList.push_back(text);

  ProcessorRef p(this, static_cast<uint32_t>(processor));
  result->status = p ? p->GetParameter(id, element, value) : CommandResult::Status::INVALID_PROCESSOR;
  if (result->status == CommandResult::Status::OK) {
    std::string line = "--> ";
    switch (value->getTag()) {
      case ParamValue::Tag::f:
        line += std::to_string(value->get<ParamValue::Tag::f>());
        break;
      case ParamValue::Tag::i:
        line += std::to_string(value->get<ParamValue::Tag::i>());
        break;
      default:
        line += " value has invalid tag";
        result->status = CommandResult::Status::INVALID_VALUE;
        break;
    }
    LUMX_LOGI("%s", line.c_str());
    result->strList.push_back(line);
  }
  print_aidl_return("GetParameter", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::SetParameterBulk(int32_t processor, const std::vector<ParamIdElementPair>& params,
                                                   const std::vector<ParamValue>& /*values*/, CommandResult* result) {
  const std::string text = BulkText("SetParameterBulk", processor, params.size());
  LUMX_LOGI("%s", text.c_str());
  result->strList.push_back(text);
  if (params.size() > kMaxBulkParameters) {
    LUMX_LOGE("%s too many parameters", "SetParameterBulk");
    result->status = CommandResult::Status::ERROR;
  }
  // Up to 64 pairs the bulk write is accepted and does nothing: neither the
  // processor nor the values are looked at.
  print_aidl_return("SetParameterBulk", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::GetParameterBulk(int32_t processor, const std::vector<ParamIdElementPair>& params,
                                                   CommandResult* result, std::vector<ParamValue>* values) {
  const std::string text = BulkText("GetParameterBulk", processor, params.size());
  LUMX_LOGI("%s", text.c_str());
  result->strList.push_back(text);
  if (params.size() > kMaxBulkParameters) {
    LUMX_LOGE("%s too many parameters", "GetParameterBulk");
    result->status = CommandResult::Status::ERROR;
    print_aidl_return("GetParameterBulk", result);
    return ::ndk::ScopedAStatus::ok();
  }

  for (const ParamIdElementPair& pair : params) {
    // Looked up again for every pair: the processor may go between two.
    ProcessorRef p(this, static_cast<uint32_t>(processor));
    ParamValue value;
    const CommandResult::Status status =
        p ? p->GetParameter(pair.paramId, pair.element, &value) : CommandResult::Status::INVALID_PROCESSOR;
    if (status != CommandResult::Status::OK) {
      // The values gathered so far stay in the reply.
      const std::string error = ParameterText("Error getParameter", processor, pair.paramId, pair.element);
      LUMX_LOGE("%s", error.c_str());
      result->strList.push_back(error);
      result->status = status;
      break;
    }
    values->push_back(value);
  }
  print_aidl_return("GetParameterBulk", result);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus LumxService::ListParameters(CommandResult* result) {
  const char* heading = "Supported Lumx parameters: ";
  LUMX_LOGI("%s", heading);
  std::string line = heading;
  for (ParameterId id : kAllParameterIds) {
    line += ParameterIdToString(id);
    line += " ";
  }
  result->strList.push_back(line);
  print_aidl_return("ListParameters", result);
  return ::ndk::ScopedAStatus::ok();
}
