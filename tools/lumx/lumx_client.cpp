#include "lumx_client.h"

#include <android/binder_manager.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <thread>

#include "common/thread_annotations.h"
#include "wav_io.h"

namespace lumx::cli {

using aidl::lumx::ILumx;

namespace {

constexpr std::chrono::milliseconds kConnectPoll{50};
// A lookup that ends right at the deadline is still taken.
constexpr std::chrono::milliseconds kConnectGrace{50};

std::atomic<bool> gLookupAbandoned{false};

// One lookup of the service, shared with the thread that makes it.
struct Lookup {
  lumx::Mutex mu;
  std::condition_variable_any cv;
  bool done GUARDED_BY(mu) = false;
  ndk::SpAIBinder binder GUARDED_BY(mu);
};

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

// The lookup runs on a thread of its own: one attempt can block on a
// service socket whose process does not answer (the host runtime waits
// seconds for its greeting), and the caller is promised an answer within
// its time-out whatever the lookup does.
std::shared_ptr<ILumx> ConnectToService(int timeoutMs, std::string* error) {
  const std::string name = ServiceName();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  auto lookup = std::make_shared<Lookup>();
  std::thread worker([lookup, name, deadline] {
    for (;;) {
      ndk::SpAIBinder binder(AServiceManager_checkService(name.c_str()));
      const auto now = std::chrono::steady_clock::now();
      if (binder.get() != nullptr || now >= deadline) {
        lumx::MutexLock lock(&lookup->mu);
        lookup->binder = std::move(binder);
        lookup->done = true;
        lookup->cv.notify_all();
        return;
      }
      std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(kConnectPoll, deadline - now));
    }
  });
  ndk::SpAIBinder binder;
  bool done = false;
  {
    lumx::MutexLock lock(&lookup->mu);
    while (!lookup->done) {
      if (lookup->cv.wait_until(lookup->mu, deadline + kConnectGrace) == std::cv_status::timeout) break;
    }
    done = lookup->done;
    if (done) binder = lookup->binder;
  }
  if (!done) {
    // Stuck in one attempt: leave it behind; the process ends without
    // waiting for it (see LookupAbandoned).
    gLookupAbandoned = true;
    worker.detach();
  } else {
    worker.join();
  }
  if (binder.get() == nullptr) {
    *error = "cannot reach service " + name + " within " + std::to_string(timeoutMs) +
             " ms (is lumxd running?)";
    return nullptr;
  }
  std::shared_ptr<ILumx> service = ILumx::fromBinder(binder);
  if (!service) *error = "service " + name + " is not an ILumx";
  return service;
}

bool LookupAbandoned() { return gLookupAbandoned; }

int ReportFailure(const CommandLine& cl, const Operation* op, const std::string& error, int exitCode) {
  fprintf(stderr, "lumx: %s\n", error.c_str());
  if (cl.json) {
    const std::string json = ErrorJson(op, error, exitCode);
    fwrite(json.data(), 1, json.size(), stdout);
    fflush(stdout);
  }
  return exitCode;
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
    if (rc != 0) return ReportFailure(cl, &op, "SendAudio: " + error, rc);
    packet.processor_id = a[0].i;
    packet.data = SamplesToBytes(samples.data(), samples.size());
    packet.sampleRate = ByteArg(a[2], kRateCode48k);
    packet.format = ByteArg(a[3], kFormatPcm);
    packet.bitsPerSample = ByteArg(a[4], kBits16Code);
    packet.numChannels = ByteArg(a[5], kMono);
    packet.reserved = kReserved;
  }

  std::string error;
  std::shared_ptr<ILumx> lumx = ConnectToService(cl.timeoutMs, &error);
  if (!lumx) return ReportFailure(cl, &op, error, kExitUnavailable);

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
    default:
      fprintf(stderr, "lumx: internal error: %s is not a single call\n", op.name);
      return kExitSoftware;
  }

  // The service reports every outcome in the CommandResult and always
  // answers with a successful binder status, so anything else means the
  // call did not complete (daemon died, or speaks another interface).
  if (!status.isOk()) {
    return ReportFailure(cl, &op,
                         std::string(op.name) + ": call to " + ServiceName() +
                             " failed: " + status.getDescription(),
                         kExitUnavailable);
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
  outcome.hint = TapRefusalHint(op, a, outcome);
  const std::string text = cl.json ? FormatJson(op, outcome) : FormatText(op, outcome);
  fwrite(text.data(), 1, text.size(), stdout);
  fflush(stdout);
  if (!cl.json && !outcome.hint.empty()) fprintf(stderr, "lumx: %s\n", outcome.hint.c_str());
  return ExitCodeForStatus(outcome.status);
}

}  // namespace lumx::cli
