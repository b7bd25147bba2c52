#include "lumx_client.h"

#include <android/binder_manager.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "wav_io.h"

namespace lumx::cli {

using aidl::lumx::ILumx;

namespace {

// How long to look for the service before declaring the daemon absent.
constexpr std::chrono::milliseconds kConnectTimeout{2000};
constexpr useconds_t kConnectPollUs = 50 * 1000;

// Upper bound of a SendAudio packet read from a file: one binder transaction
// must carry it whole.
constexpr size_t kMaxSendAudioBytes = 512 * 1024;

// Default codes of a SendAudio packet: what a relay processor expects
// (48 kHz, signed PCM, 16 bits, mono), and the trailing byte set to 1.
constexpr int8_t kRateCode48k = 5;
constexpr int8_t kFormatPcm = 0;
constexpr int8_t kBits16Code = 1;
constexpr int8_t kMono = 1;
constexpr int8_t kReserved = 1;

std::vector<ILumx::ParamIdElementPair> ToPairs(const std::vector<ParamPair>& in) {
  std::vector<ILumx::ParamIdElementPair> out;
  out.reserve(in.size());
  for (const ParamPair& p : in) {
    ILumx::ParamIdElementPair pair;
    pair.paramId = static_cast<ILumx::ParameterId>(p.paramId);
    pair.element = p.element;
    out.push_back(pair);
  }
  return out;
}

int8_t ByteArg(const Arg& arg, int8_t fallback) {
  return arg.present ? static_cast<int8_t>(arg.i) : fallback;
}

}  // namespace

std::string ServiceName() { return std::string(ILumx::descriptor) + "/default"; }

std::shared_ptr<ILumx> ConnectToService(std::string* error) {
  const std::string name = ServiceName();
  const auto deadline = std::chrono::steady_clock::now() + kConnectTimeout;
  for (;;) {
    ndk::SpAIBinder binder(AServiceManager_checkService(name.c_str()));
    if (binder.get() != nullptr) {
      std::shared_ptr<ILumx> service = ILumx::fromBinder(binder);
      if (!service) *error = "service " + name + " is not an ILumx";
      return service;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      *error = "cannot reach service " + name + " (is lumxd running?)";
      return nullptr;
    }
    usleep(kConnectPollUs);
  }
}

Outcome ToOutcome(const ILumx::CommandResult& result) {
  Outcome o;
  o.status = static_cast<int8_t>(result.status);
  o.value = result.value;
  o.lines = result.strList;
  return o;
}

ParamValueArg ToParamValueArg(const ILumx::ParamValue& value) {
  ParamValueArg v;
  if (value.getTag() == ILumx::ParamValue::f) {
    v.isFloat = true;
    v.f = value.get<ILumx::ParamValue::f>();
  } else {
    v.i = value.get<ILumx::ParamValue::i>();
  }
  return v;
}

ILumx::ParamValue ToParamValue(const ParamValueArg& value) {
  if (value.isFloat) return ILumx::ParamValue::make<ILumx::ParamValue::f>(value.f);
  return ILumx::ParamValue::make<ILumx::ParamValue::i>(value.i);
}

int RunCall(const CommandLine& cl) {
  const Operation& op = *cl.op;
  const std::vector<Arg>& a = cl.args;

  // Input files are read before the daemon is contacted, so a bad file costs
  // no call.
  ILumx::AudioPacket packet;
  if (op.id == OpId::kSendAudio) {
    std::vector<int16_t> samples;
    int channels = 0;
    std::string error;
    int rc = LoadSamples(a[1].s, kMaxSendAudioBytes, &samples, &channels, &error);
    if (rc != 0) {
      fprintf(stderr, "lumx: SendAudio: %s\n", error.c_str());
      return rc;
    }
    packet.processor_id = a[0].i;
    packet.data = SamplesToBytes(samples.data(), samples.size());
    packet.sampleRate = ByteArg(a[2], kRateCode48k);
    packet.format = ByteArg(a[3], kFormatPcm);
    packet.bitsPerSample = ByteArg(a[4], kBits16Code);
    packet.numChannels = ByteArg(a[5], kMono);
    packet.reserved = kReserved;
  }

  std::string error;
  std::shared_ptr<ILumx> lumx = ConnectToService(&error);
  if (!lumx) {
    fprintf(stderr, "lumx: %s\n", error.c_str());
    return kExitUnavailable;
  }

  ILumx::CommandResult result;
  ILumx::ParamValue paramOut;
  std::vector<ILumx::ParamValue> valuesOut;
  ndk::ScopedAStatus status;
  switch (op.id) {
    case OpId::kPing:
      status = lumx->Ping();
      break;
    case OpId::kShowGraph:
      status = lumx->ShowGraph(&result);
      break;
    case OpId::kListProcessors:
      status = lumx->ListProcessors(&result);
      break;
    case OpId::kListSupportedProcessors:
      status = lumx->ListSupportedProcessors(&result);
      break;
    case OpId::kNewProcessor:
      status = lumx->NewProcessor(a[0].i, &result);
      break;
    case OpId::kNewProcessorWithType:
      status = lumx->NewProcessorWithType(a[0].i, a[1].i, &result);
      break;
    case OpId::kDeleteProcessor:
      status = lumx->DeleteProcessor(a[0].i, &result);
      break;
    case OpId::kListSupportedUseCases:
      status = lumx->ListSupportedUseCases(&result);
      break;
    case OpId::kEnable:
      status = lumx->Enable(a[0].s, a[1].b, &result);
      break;
    case OpId::kIsEnabled:
      status = lumx->IsEnabled(a[0].s, &result);
      break;
    case OpId::kProcessorInfo:
      status = lumx->ProcessorInfo(a[0].i, &result);
      break;
    case OpId::kProcessorEnable:
      status = lumx->ProcessorEnable(a[0].i, a[1].b, &result);
      break;
    case OpId::kProcessorIsEnabled:
      status = lumx->ProcessorIsEnabled(a[0].i, &result);
      break;
    case OpId::kTapList:
      status = lumx->TapList(a[0].i, &result);
      break;
    case OpId::kTapInfo:
      status = lumx->TapInfo(a[0].i, a[1].i, a[2].i, &result);
      break;
    case OpId::kTapEnable:
      status = lumx->TapEnable(a[0].i, a[1].i, a[2].i, a[3].b, &result);
      break;
    case OpId::kTapSetBlockLength:
      status = lumx->TapSetBlockLength(a[0].i, a[1].i, a[2].i, a[3].i, &result);
      break;
    case OpId::kListTapOutBuffers:
      status = lumx->ListTapOutBuffers(&result);
      break;
    case OpId::kListInjectBuffers:
      status = lumx->ListInjectBuffers(&result);
      break;
    case OpId::kConnect:
      status = lumx->Connect(a[0].i, a[1].i, a[2].i, &result);
      break;
    case OpId::kConnectTap:
      status = lumx->ConnectTap(a[0].i, a[1].i, a[2].i, a[3].i, a[4].i, &result);
      break;
    case OpId::kStartIo:
      status = lumx->StartIo(a[0].i, &result);
      break;
    case OpId::kStopIo:
      status = lumx->StopIo(a[0].i, &result);
      break;
    case OpId::kDebug:
      status = lumx->Debug(a[0].words, &result);
      break;
    case OpId::kEnableUseCase:
      status = lumx->EnableUseCase(static_cast<ILumx::UseCase>(a[0].i), a[1].b,
                                   &result);
      break;
    case OpId::kIsUseCaseEnabled:
      status = lumx->IsUseCaseEnabled(static_cast<ILumx::UseCase>(a[0].i), &result);
      break;
    case OpId::kSetParameter:
      status = lumx->SetParameter(a[0].i, static_cast<ILumx::ParameterId>(a[1].i),
                                  a[2].i, ToParamValue(a[3].value), &result);
      break;
    case OpId::kGetParameter:
      status = lumx->GetParameter(a[0].i, static_cast<ILumx::ParameterId>(a[1].i),
                                  a[2].i, &paramOut, &result);
      break;
    case OpId::kSetParameterBulk: {
      std::vector<ILumx::ParamValue> values;
      for (const ParamValueArg& v : a[1].values) values.push_back(ToParamValue(v));
      status = lumx->SetParameterBulk(a[0].i, ToPairs(a[1].pairs), values, &result);
      break;
    }
    case OpId::kGetParameterBulk:
      status = lumx->GetParameterBulk(a[0].i, ToPairs(a[1].pairs), &result,
                                      &valuesOut);
      break;
    case OpId::kListParameters:
      status = lumx->ListParameters(&result);
      break;
    case OpId::kSendAudio:
      status = lumx->SendAudio(a[0].i, packet, &result);
      break;
    case OpId::kRegisterReceiveAudioCallback:
      status = lumx->RegisterReceiveAudioCallback(a[0].i, nullptr, &result);
      break;
    case OpId::kRelay:
      fprintf(stderr, "lumx: internal error: relay is not a single call\n");
      return kExitSoftware;
  }

  // The service reports every outcome in the CommandResult and always
  // answers with a successful binder status, so anything else means the
  // call did not complete (daemon died, or speaks another interface).
  if (!status.isOk()) {
    fprintf(stderr, "lumx: %s: call to %s failed: %s\n", op.name,
            ServiceName().c_str(), status.getDescription().c_str());
    return kExitUnavailable;
  }

  Outcome outcome;
  if (op.id != OpId::kPing) outcome = ToOutcome(result);
  // A failed read has no value: the out argument then holds only the
  // default, so it is shown for a successful read alone.
  if (op.id == OpId::kGetParameter && outcome.status == 0) {
    outcome.param = ToParamValueArg(paramOut);
  }
  if (op.id == OpId::kGetParameterBulk) {
    outcome.values.emplace();
    for (const ILumx::ParamValue& v : valuesOut) {
      outcome.values->push_back(ToParamValueArg(v));
    }
  }
  const std::string text = cl.json ? FormatJson(op, outcome) : FormatText(op, outcome);
  fwrite(text.data(), 1, text.size(), stdout);
  fflush(stdout);
  return ExitCodeForStatus(outcome.status);
}

}  // namespace lumx::cli
