// Keeps the hand-kept NDK binding in step with ILumx.aidl and its frozen API:
// the proxy's transaction codes, argument order and kinds and reply layout,
// the stub's dispatch, the type shapes, and the version and hash.
#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "aidl/aidl_test_support.h"

namespace lumx_aidl_test {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kGetVersionCode = FIRST_CALL_TRANSACTION + 16777214;
constexpr uint32_t kGetHashCode = FIRST_CALL_TRANSACTION + 16777213;

std::string Descriptor(const std::string& nested) {
  std::string d = ParsedAidl().package + ".ILumx";
  if (!nested.empty()) d += "." + nested;
  return d;
}

// ---------------------------------------------------------------------------
// A local object of its own class that stands where the real service would
// and records, per transaction, the code and whether the request parcel
// holds exactly the arguments the .aidl lists for that code, in order, with
// the values generated for that code. It answers with generated values laid
// out as the .aidl says (return value, then out arguments).

class WireRecorder {
 public:
  struct Call {
    uint32_t code;
    std::string problem;  // empty if the request matched the .aidl
  };

  // `nested` names the interface inside ILumx, or is empty for ILumx itself.
  explicit WireRecorder(const std::string& nested, bool answerUnknown = false)
      : iface_(ParsedInterface(nested.empty() ? "ILumx" : nested)), answerUnknown_(answerUnknown) {
    binder_.set(AIBinder_new(ClassFor(Descriptor(nested)), this));
  }

  const ::ndk::SpAIBinder& binder() const { return binder_; }

  std::vector<Call> Calls() {
    std::lock_guard<std::mutex> lock(mu_);
    return calls_;
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(mu_);
    calls_.clear();
  }
  bool WaitForCalls(size_t n) {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_for(lock, std::chrono::seconds(60), [&] { return calls_.size() >= n; });
  }

 private:
  static const AIBinder_Class* ClassFor(const std::string& descriptor) {
    // Classes live for the whole process; one per descriptor.
    static std::mutex mu;
    static std::map<std::string, AIBinder_Class*>* classes = new std::map<std::string, AIBinder_Class*>;
    std::lock_guard<std::mutex> lock(mu);
    auto it = classes->emplace(descriptor, nullptr).first;
    if (it->second == nullptr) {
      // The key outlives the class, whether or not the runtime copies it.
      it->second = AIBinder_Class_define(
          it->first.c_str(), [](void* args) { return args; }, [](void*) {}, &WireRecorder::OnTransact);
    }
    const AIBinder_Class* clazz = it->second;
    return clazz;
  }

  static binder_status_t OnTransact(AIBinder* b, transaction_code_t code, const AParcel* in, AParcel* out) {
    return static_cast<WireRecorder*>(AIBinder_getUserData(b))->Handle(code, in, out);
  }

  binder_status_t Handle(transaction_code_t code, const AParcel* in, AParcel* out) {
    std::string problem;
    binder_status_t result = Answer(code, in, out, &problem);
    std::lock_guard<std::mutex> lock(mu_);
    calls_.push_back({code, problem});
    cv_.notify_all();
    return result;
  }

  binder_status_t Answer(transaction_code_t code, const AParcel* in, AParcel* out, std::string* problem) {
    if (answerUnknown_) return STATUS_UNKNOWN_TRANSACTION;
    if (code == kGetVersionCode || code == kGetHashCode) {
      if (!ParcelConsumed(in)) *problem = "meta request carries data";
      WriteOkHeader(out);
      if (code == kGetVersionCode) return AParcel_writeInt32(out, 77);
      return ::ndk::AParcel_writeData(out, std::string("recorded-hash"));
    }
    size_t index = code - FIRST_CALL_TRANSACTION;
    if (code < FIRST_CALL_TRANSACTION || index >= iface_.methods.size()) {
      *problem = "code " + std::to_string(code) + " is not in the .aidl";
      return STATUS_UNKNOWN_TRANSACTION;
    }
    const AidlMethod& m = iface_.methods[index];
    const int c = static_cast<int>(code);
    for (size_t s = 0; s < m.args.size() && problem->empty(); ++s) {
      if (m.args[s].dir == "out") continue;
      ::testing::AssertionResult r = ReadExpectGen(in, m.args[s].type, c, static_cast<int>(s));
      if (!r) *problem = m.name + " argument " + m.args[s].name + ": " + r.message();
    }
    if (problem->empty() && !ParcelConsumed(in)) *problem = m.name + ": request longer than its arguments";
    if (m.oneway) return STATUS_OK;
    WriteOkHeader(out);
    if (m.ret != "void" && !WriteGen(out, m.ret, c, kRetSlot)) *problem += " cannot write return";
    for (size_t s = 0; s < m.args.size(); ++s) {
      if (m.args[s].dir == "in") continue;
      if (!WriteGen(out, m.args[s].type, c, static_cast<int>(s))) *problem += " cannot write out argument";
    }
    return STATUS_OK;
  }

  static void WriteOkHeader(AParcel* out) {
    AStatus* ok = AStatus_newOk();
    AParcel_writeStatusHeader(out, ok);
    AStatus_delete(ok);
  }

  const AidlInterface& iface_;
  const bool answerUnknown_;
  ::ndk::SpAIBinder binder_;
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<Call> calls_;
};

// ---------------------------------------------------------------------------

TEST(AidlSource, ParsesIntoTheExpectedShape) {
  const AidlFile& f = ParsedAidl();
  EXPECT_EQ("lumx", f.package);
  EXPECT_EQ(33u, ParsedInterface("ILumx").methods.size());
  ASSERT_EQ(1u, ParsedInterface("IReceiveAudioCallback").methods.size());
  EXPECT_TRUE(ParsedInterface("IReceiveAudioCallback").methods[0].oneway);
  const AidlMethod& bulk = ParsedInterface("ILumx").methods[29];
  EXPECT_EQ("GetParameterBulk", bulk.name);
  EXPECT_EQ("List<ParamValue>", bulk.ret);
  ASSERT_EQ(3u, bulk.args.size());
  EXPECT_EQ("out", bulk.args[2].dir);
  EXPECT_EQ("CommandResult", bulk.args[2].type);
}

TEST(BindingDrift, ProxySendsWhatTheAidlSaysForEveryOperation) {
  const AidlInterface& iface = ParsedInterface("ILumx");
  ASSERT_FALSE(iface.methods.empty());
  EXPECT_EQ(iface.methods.size(), ClientCalls().size()) << "the test's call table and the .aidl disagree";

  WireRecorder recorder("");
  auto proxy = ::ndk::SharedRefBase::make<BpLumx>(recorder.binder());
  CallContext ctx;
  ctx.callback = ::ndk::SharedRefBase::make<RecordingCallback>();

  for (size_t k = 0; k < iface.methods.size(); ++k) {
    const std::string& name = iface.methods[k].name;
    const int c = static_cast<int>(FIRST_CALL_TRANSACTION + k);
    auto call = ClientCalls().find(name);
    if (call == ClientCalls().end()) {
      ADD_FAILURE() << name << " is in the .aidl but has no call in the test";
      continue;
    }
    recorder.Clear();
    EXPECT_TRUE(call->second(*proxy, c, ctx)) << name << " (reply as the .aidl lays it out)";
    std::vector<WireRecorder::Call> calls = recorder.Calls();
    ASSERT_EQ(1u, calls.size()) << name;
    EXPECT_EQ(static_cast<uint32_t>(c), calls[0].code) << name << " went out with the wrong transaction code";
    EXPECT_EQ("", calls[0].problem) << name;
  }
}

TEST(BindingDrift, ProxyMetaMethodsUseTheReservedCodesAndCache) {
  WireRecorder recorder("");
  auto proxy = ::ndk::SharedRefBase::make<BpLumx>(recorder.binder());
  int32_t version = 0;
  std::string hash;
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(proxy->getInterfaceVersion(&version).isOk());
    ASSERT_TRUE(proxy->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(77, version);
    EXPECT_EQ("recorded-hash", hash);
  }
  std::vector<WireRecorder::Call> calls = recorder.Calls();
  ASSERT_EQ(2u, calls.size()) << "the second round must come from the cache";
  EXPECT_EQ(16777215u, calls[0].code);
  EXPECT_EQ(16777214u, calls[1].code);
  EXPECT_EQ("", calls[0].problem);
  EXPECT_EQ("", calls[1].problem);
}

TEST(BindingDrift, CallbackProxySendsOneWayWhatTheAidlSays) {
  const AidlInterface& iface = ParsedInterface("IReceiveAudioCallback");
  ASSERT_EQ(1u, iface.methods.size());
  ASSERT_EQ("ReceiveAudio", iface.methods[0].name);
  WireRecorder recorder("IReceiveAudioCallback");
  auto proxy = ::ndk::SharedRefBase::make<ILumx::BpReceiveAudioCallback>(recorder.binder());
  const int c = CodeOf("IReceiveAudioCallback", "ReceiveAudio");
  EXPECT_TRUE(proxy->ReceiveAudio(Gen<AudioPacket>(c, 0)).isOk());
  ASSERT_TRUE(recorder.WaitForCalls(1));
  std::vector<WireRecorder::Call> calls = recorder.Calls();
  EXPECT_EQ(static_cast<uint32_t>(c), calls[0].code);
  EXPECT_EQ("", calls[0].problem);

  int32_t version = 0;
  ASSERT_TRUE(proxy->getInterfaceVersion(&version).isOk());
  EXPECT_EQ(77, version);
}

TEST(BindingDrift, TransactionConstantsFollowTheAidlOrder) {
#define LUMX_TX(name) {#name, ILumx::TRANSACTION_##name}
  const std::vector<std::pair<std::string, uint32_t>> constants = {
      LUMX_TX(Ping), LUMX_TX(ShowGraph), LUMX_TX(ListProcessors), LUMX_TX(ListSupportedProcessors),
      LUMX_TX(NewProcessor), LUMX_TX(NewProcessorWithType), LUMX_TX(DeleteProcessor),
      LUMX_TX(ListSupportedUseCases), LUMX_TX(Enable), LUMX_TX(IsEnabled), LUMX_TX(ProcessorInfo),
      LUMX_TX(ProcessorEnable), LUMX_TX(ProcessorIsEnabled), LUMX_TX(TapList), LUMX_TX(TapInfo),
      LUMX_TX(TapEnable), LUMX_TX(TapSetBlockLength), LUMX_TX(ListTapOutBuffers), LUMX_TX(ListInjectBuffers),
      LUMX_TX(Connect), LUMX_TX(ConnectTap), LUMX_TX(StartIo), LUMX_TX(StopIo), LUMX_TX(Debug),
      LUMX_TX(EnableUseCase), LUMX_TX(IsUseCaseEnabled), LUMX_TX(SetParameter), LUMX_TX(GetParameter),
      LUMX_TX(SetParameterBulk), LUMX_TX(GetParameterBulk), LUMX_TX(ListParameters), LUMX_TX(SendAudio),
      LUMX_TX(RegisterReceiveAudioCallback),
  };
#undef LUMX_TX
  EXPECT_EQ(ParsedInterface("ILumx").methods.size(), constants.size());
  for (const auto& [name, code] : constants) {
    EXPECT_EQ(static_cast<uint32_t>(CodeOf("ILumx", name)), code) << name;
  }
  EXPECT_EQ(static_cast<uint32_t>(CodeOf("IReceiveAudioCallback", "ReceiveAudio")),
            IReceiveAudioCallback::TRANSACTION_ReceiveAudio);
}

TEST(BindingDrift, ClassFunctionNamesFollowTheAidlOrder) {
  auto impl = ::ndk::SharedRefBase::make<RecordingLumx>();
  ::ndk::SpAIBinder b = impl->asBinder();
  auto* clazz = const_cast<AIBinder_Class*>(AIBinder_getClass(b.get()));
  ASSERT_NE(nullptr, clazz);
  EXPECT_STREQ(Descriptor("").c_str(), AIBinder_Class_getDescriptor(clazz));
  const AidlInterface& iface = ParsedInterface("ILumx");
  for (size_t k = 0; k < iface.methods.size(); ++k) {
    const char* name = AIBinder_Class_getFunctionName(clazz, static_cast<transaction_code_t>(FIRST_CALL_TRANSACTION + k));
    EXPECT_STREQ(iface.methods[k].name.c_str(), name ? name : "(none)") << "code " << k + 1;
  }
  EXPECT_EQ(nullptr, AIBinder_Class_getFunctionName(
                         clazz, static_cast<transaction_code_t>(FIRST_CALL_TRANSACTION + iface.methods.size())));
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  ::ndk::SpAIBinder cbBinder = cb->asBinder();
  auto* cbClazz = const_cast<AIBinder_Class*>(AIBinder_getClass(cbBinder.get()));
  ASSERT_NE(nullptr, cbClazz);
  EXPECT_STREQ(Descriptor("IReceiveAudioCallback").c_str(), AIBinder_Class_getDescriptor(cbClazz));
  const char* name = AIBinder_Class_getFunctionName(cbClazz, FIRST_CALL_TRANSACTION);
  EXPECT_STREQ("ReceiveAudio", name ? name : "(none)");
}

// Sends a request laid out from the .aidl to a local stub and reads the reply
// the same way.
class StubRequest {
 public:
  StubRequest(AIBinder* target, const AidlMethod& m, int c) : target_(target), m_(m), c_(c) {}

  ::testing::AssertionResult Send(AIBinder* callback) {
    AParcel* in = nullptr;
    if (AIBinder_prepareTransaction(target_, &in) != STATUS_OK) return ::testing::AssertionFailure() << "prepare";
    for (size_t s = 0; s < m_.args.size(); ++s) {
      if (m_.args[s].dir == "out") continue;
      ::testing::AssertionResult w = WriteGen(in, m_.args[s].type, c_, static_cast<int>(s), callback);
      if (!w) {
        AParcel_delete(in);
        return w;
      }
    }
    AParcel* out = nullptr;
    binder_status_t st = AIBinder_transact(target_, static_cast<transaction_code_t>(c_), &in, &out,
                                           m_.oneway ? FLAG_ONEWAY : 0);
    reply_.set(out);
    if (st != STATUS_OK) return ::testing::AssertionFailure() << "transact: " << st;
    return ::testing::AssertionSuccess();
  }

  ::testing::AssertionResult CheckReply() {
    const AParcel* out = reply_.get();
    ::ndk::ScopedAStatus status;
    if (AParcel_readStatusHeader(out, status.getR()) != STATUS_OK) return ::testing::AssertionFailure() << "header";
    if (!status.isOk()) return ::testing::AssertionFailure() << "status " << status.getDescription();
    if (m_.ret != "void") {
      ::testing::AssertionResult r = ReadExpectGen(out, m_.ret, c_, kRetSlot);
      if (!r) return r << " (return value)";
    }
    for (size_t s = 0; s < m_.args.size(); ++s) {
      if (m_.args[s].dir == "in") continue;
      ::testing::AssertionResult r = ReadExpectGen(out, m_.args[s].type, c_, static_cast<int>(s));
      if (!r) return r << " (out " << m_.args[s].name << ")";
    }
    if (!ParcelConsumed(out)) return ::testing::AssertionFailure() << "reply longer than the .aidl says";
    return ::testing::AssertionSuccess();
  }

 private:
  AIBinder* target_;
  const AidlMethod& m_;
  int c_;
  ::ndk::ScopedAParcel reply_;
};

TEST(BindingDrift, StubDispatchesEveryCodeToTheOperationTheAidlNames) {
  auto impl = ::ndk::SharedRefBase::make<RecordingLumx>();
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  ::ndk::SpAIBinder b = impl->asBinder();
  ::ndk::SpAIBinder cbBinder = cb->asBinder();
  const AidlInterface& iface = ParsedInterface("ILumx");
  for (size_t k = 0; k < iface.methods.size(); ++k) {
    const AidlMethod& m = iface.methods[k];
    StubRequest req(b.get(), m, static_cast<int>(FIRST_CALL_TRANSACTION + k));
    ASSERT_TRUE(req.Send(cbBinder.get())) << m.name;
    EXPECT_TRUE(req.CheckReply()) << m.name;
    std::vector<std::string> calls = impl->Calls();
    ASSERT_EQ(k + 1, calls.size()) << m.name;
    EXPECT_EQ(m.name, calls.back()) << "code " << k + 1;
  }
  // RegisterReceiveAudioCallback called the callback it was handed.
  ASSERT_TRUE(cb->WaitFor(1));
  EXPECT_EQ(Gen<AudioPacket>(CodeOf("ILumx", "RegisterReceiveAudioCallback"), kCallbackSlot), cb->Packets()[0]);
}

TEST(BindingDrift, CallbackStubDispatchesTheOneWayOperation) {
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  ::ndk::SpAIBinder b = cb->asBinder();
  const AidlMethod& m = ParsedInterface("IReceiveAudioCallback").methods.at(0);
  const int c = CodeOf("IReceiveAudioCallback", m.name);
  StubRequest req(b.get(), m, c);
  ASSERT_TRUE(req.Send(nullptr));
  ASSERT_TRUE(cb->WaitFor(1));
  EXPECT_EQ(Gen<AudioPacket>(c, 0), cb->Packets()[0]);
}

TEST(BindingDrift, StubAnswersMetaMethodsAndRefusesUnknownCodes) {
  auto impl = ::ndk::SharedRefBase::make<RecordingLumx>();
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  ::ndk::SpAIBinder lumxBinder = impl->asBinder();
  ::ndk::SpAIBinder cbBinder = cb->asBinder();
  for (AIBinder* target : {lumxBinder.get(), cbBinder.get()}) {
    for (uint32_t code : {kGetVersionCode, kGetHashCode}) {
      AParcel* in = nullptr;
      ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(target, &in));
      AParcel* out = nullptr;
      ASSERT_EQ(STATUS_OK, AIBinder_transact(target, code, &in, &out, 0));
      ::ndk::ScopedAParcel reply(out);
      ::ndk::ScopedAStatus status;
      ASSERT_EQ(STATUS_OK, AParcel_readStatusHeader(out, status.getR()));
      ASSERT_TRUE(status.isOk());
      if (code == kGetVersionCode) {
        int32_t v = 0;
        ASSERT_EQ(STATUS_OK, AParcel_readInt32(out, &v));
        EXPECT_EQ(2, v);
      } else {
        std::string h;
        ASSERT_EQ(STATUS_OK, ::ndk::AParcel_readData(out, &h));
        EXPECT_EQ(ILumx::hash, h);
      }
    }
    const uint32_t unknown = target == lumxBinder.get() ? 34u : 2u;
    AParcel* in = nullptr;
    ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(target, &in));
    AParcel* out = nullptr;
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, AIBinder_transact(target, unknown, &in, &out, 0));
    AParcel_delete(out);
  }
  EXPECT_TRUE(impl->Calls().empty());
}

TEST(BindingDrift, StubRefusesTruncatedRequestsWithoutCallingTheService) {
  auto impl = ::ndk::SharedRefBase::make<RecordingLumx>();
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  ::ndk::SpAIBinder b = impl->asBinder();
  ::ndk::SpAIBinder cbBinder = cb->asBinder();
  const AidlInterface& iface = ParsedInterface("ILumx");
  for (size_t k = 0; k < iface.methods.size(); ++k) {
    const AidlMethod& m = iface.methods[k];
    const int c = static_cast<int>(FIRST_CALL_TRANSACTION + k);
    // Drop the last `in` argument (an interface argument may be null, so
    // stop before it instead).
    size_t lastIn = m.args.size();
    for (size_t s = 0; s < m.args.size(); ++s) {
      if (m.args[s].dir != "out") lastIn = s;
    }
    if (lastIn == m.args.size()) continue;  // nothing to truncate
    AParcel* in = nullptr;
    ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(b.get(), &in));
    for (size_t s = 0; s < lastIn; ++s) {
      if (m.args[s].dir != "out") ASSERT_TRUE(WriteGen(in, m.args[s].type, c, static_cast<int>(s), cbBinder.get()));
    }
    if (m.args[lastIn].type == "IReceiveAudioCallback") {
      // A null callback is legal on the wire; an unreadable slot is not.
      ASSERT_EQ(STATUS_OK, AParcel_writeInt32(in, 0x7fff));
    }
    AParcel* out = nullptr;
    EXPECT_NE(STATUS_OK, AIBinder_transact(b.get(), static_cast<transaction_code_t>(c), &in, &out, 0)) << m.name;
    AParcel_delete(out);
  }
  EXPECT_TRUE(impl->Calls().empty()) << "called: " << Show(impl->Calls());
}

// An operation the remote side does not know falls back to the default
// implementation, if the process set one. setDefaultImpl may be called once
// per process, so this runs in a child.
class Fallback : public ::aidl::lumx::ILumxDefault {
 public:
  ::ndk::ScopedAStatus ShowGraph(CommandResult* r) override {
    r->strList = {"from the default implementation"};
    return ::ndk::ScopedAStatus::ok();
  }
};

TEST(ProxyDeathTest, UnknownTransactionFallsBackToTheDefaultImplementation) {
  EXPECT_EXIT(
      {
        WireRecorder oldServer("", /*answerUnknown=*/true);
        auto proxy = ::ndk::SharedRefBase::make<BpLumx>(oldServer.binder());
        CommandResult r;
        bool before = proxy->ShowGraph(&r).getStatus() == STATUS_UNKNOWN_TRANSACTION;
        bool set = ILumx::setDefaultImpl(::ndk::SharedRefBase::make<Fallback>());
        bool fallback = proxy->ShowGraph(&r).isOk() && r.strList.size() == 1;
        CommandResult r2;
        bool unknownStays = proxy->ListProcessors(&r2).getStatus() == STATUS_UNKNOWN_TRANSACTION;
        fprintf(stderr, "before=%d set=%d fallback=%d unknownStays=%d\n", before, set, fallback, unknownStays);
        _exit(before && set && fallback && unknownStays ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "before=1 set=1 fallback=1 unknownStays=1");
}

// ---------------------------------------------------------------------------
// Type shapes against the .aidl

// Field names, in order, from the generated toString() of a default value.
std::vector<std::string> FieldNamesFromText(const std::string& text) {
  std::vector<std::string> names;
  size_t open = text.find('{');
  if (open == std::string::npos) return names;
  int depth = 0;
  size_t start = open + 1;
  for (size_t i = open + 1; i < text.size(); ++i) {
    char ch = text[i];
    if (ch == '[' || ch == '{') ++depth;
    if (ch == ']' || ch == '}') {
      if (depth == 0) {
        names.push_back(text.substr(start, text.find(':', start) - start));
        break;
      }
      --depth;
    }
    if (ch == ',' && depth == 0) {
      names.push_back(text.substr(start, text.find(':', start) - start));
      start = i + 2;
    }
  }
  return names;
}

TEST(TypeDrift, ParcelableFieldsAndDescriptorsMatchTheAidl) {
  struct Shape {
    std::string text;
    const char* descriptor;
  };
  const std::map<std::string, Shape> shapes = {
      {"CommandResult", {CommandResult{}.toString(), CommandResult::descriptor}},
      {"AudioPacket", {AudioPacket{}.toString(), AudioPacket::descriptor}},
      {"ParamIdElementPair", {ParamIdElementPair{}.toString(), ParamIdElementPair::descriptor}},
  };
  size_t parcelables = 0;
  for (const auto& [name, st] : ParsedAidl().structs) {
    if (st.kind != "parcelable") continue;
    ++parcelables;
    auto shape = shapes.find(name);
    if (shape == shapes.end()) {
      ADD_FAILURE() << "parcelable " << name << " of the .aidl is not checked here";
      continue;
    }
    std::vector<std::string> want;
    for (const auto& field : st.fields) want.push_back(field.second);
    EXPECT_EQ(want, FieldNamesFromText(shape->second.text)) << name;
    EXPECT_EQ(0, shape->second.text.rfind(name + "{", 0)) << shape->second.text;
    EXPECT_STREQ(Descriptor(name).c_str(), shape->second.descriptor);
  }
  EXPECT_EQ(shapes.size(), parcelables);
}

TEST(TypeDrift, UnionTagsMatchTheAidl) {
  auto it = ParsedAidl().structs.find("ParamValue");
  ASSERT_NE(it, ParsedAidl().structs.end());
  EXPECT_EQ("union", it->second.kind);
  std::vector<std::string> want, got;
  for (const auto& field : it->second.fields) want.push_back(field.second);
  for (ParamValue::Tag t : ::ndk::enum_range<ParamValue::Tag>()) {
    EXPECT_EQ(got.size(), static_cast<size_t>(t)) << "tags number the alternatives in order";
    got.push_back(toString(t));
  }
  EXPECT_EQ(want, got);
  EXPECT_EQ((std::vector<std::string>{"int", "float"}),
            (std::vector<std::string>{it->second.fields[0].first, it->second.fields[1].first}));
  EXPECT_STREQ(Descriptor("ParamValue").c_str(), ParamValue::descriptor);
  EXPECT_STREQ(Descriptor("IReceiveAudioCallback").c_str(), IReceiveAudioCallback::descriptor);
  EXPECT_STREQ(Descriptor("").c_str(), ILumx::descriptor);
}

template <typename E>
std::vector<std::pair<std::string, int64_t>> EnumShape() {
  std::vector<std::pair<std::string, int64_t>> v;
  for (E e : ::ndk::enum_range<E>()) v.emplace_back(toString(e), static_cast<int64_t>(e));
  return v;
}

TEST(TypeDrift, EnumsMatchTheAidl) {
  struct Shape {
    std::vector<std::pair<std::string, int64_t>> values;
    size_t width;
  };
  const std::map<std::string, Shape> shapes = {
      {"Status", {EnumShape<Status>(), sizeof(Status)}},
      {"ParameterId", {EnumShape<ParameterId>(), sizeof(ParameterId)}},
      {"UseCase", {EnumShape<UseCase>(), sizeof(UseCase)}},
  };
  EXPECT_EQ(shapes.size(), ParsedAidl().enums.size());
  for (const auto& [name, e] : ParsedAidl().enums) {
    auto shape = shapes.find(name);
    if (shape == shapes.end()) {
      ADD_FAILURE() << "enum " << name << " of the .aidl is not checked here";
      continue;
    }
    EXPECT_EQ(e.values, shape->second.values) << name;
    EXPECT_EQ(e.backing == "int" ? 4u : 1u, shape->second.width) << name << " backing " << e.backing;
  }
}

// ---------------------------------------------------------------------------
// Frozen API, version and hash

// SHA-1 (FIPS 180-4), to recompute the frozen hash without the script.
std::string Sha1Hex(const std::string& msg) {
  uint32_t h[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
  std::string m = msg;
  uint64_t bits = static_cast<uint64_t>(msg.size()) * 8;
  m.push_back(static_cast<char>(0x80));
  while (m.size() % 64 != 56) m.push_back('\0');
  for (int i = 7; i >= 0; --i) m.push_back(static_cast<char>((bits >> (i * 8)) & 0xff));
  auto rol = [](uint32_t x, int n) { return (x << n) | (x >> (32 - n)); };
  for (size_t off = 0; off < m.size(); off += 64) {
    uint32_t w[80];
    for (int i = 0; i < 16; ++i) {
      w[i] = 0;
      for (int j = 0; j < 4; ++j) w[i] = (w[i] << 8) | static_cast<uint8_t>(m[off + static_cast<size_t>(i * 4 + j)]);
    }
    for (int i = 16; i < 80; ++i) w[i] = rol(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
    for (int i = 0; i < 80; ++i) {
      uint32_t f, k;
      if (i < 20) {
        f = (b & c) | (~b & d);
        k = 0x5A827999;
      } else if (i < 40) {
        f = b ^ c ^ d;
        k = 0x6ED9EBA1;
      } else if (i < 60) {
        f = (b & c) | (b & d) | (c & d);
        k = 0x8F1BBCDC;
      } else {
        f = b ^ c ^ d;
        k = 0xCA62C1D6;
      }
      uint32_t t = rol(a, 5) + f + e + k + w[i];
      e = d;
      d = c;
      c = rol(b, 30);
      b = a;
      a = t;
    }
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
  }
  char out[41];
  for (int i = 0; i < 5; ++i) snprintf(out + i * 8, 9, "%08x", h[i]);
  return std::string(out, 40);
}

std::string LastLine(const std::string& text) {
  std::string t = text;
  while (!t.empty() && t.back() == '\n') t.pop_back();
  size_t nl = t.rfind('\n');
  return nl == std::string::npos ? t : t.substr(nl + 1);
}

// .aidl files under `dir`, as "./relative/path", sorted byte-wise.
std::vector<std::string> AidlFilesUnder(const std::string& dir) {
  std::vector<std::string> files;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    if (it->path().extension() == ".aidl") files.push_back("./" + fs::relative(it->path(), dir, ec).string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

struct CommandOutput {
  int exitCode = -1;
  std::string out;
};

CommandOutput RunCommand(const std::string& cmd) {
  CommandOutput r;
  FILE* p = popen(cmd.c_str(), "r");
  if (p == nullptr) return r;
  char buf[256];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
  int status = pclose(p);
  r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

TEST(FrozenApi, CurrentSourceEqualsTheFrozenVersion) {
  std::string current, frozen;
  ASSERT_TRUE(ReadWholeFile(AidlPath(), &current));
  ASSERT_TRUE(ReadWholeFile(FrozenDir() + "/lumx/ILumx.aidl", &frozen));
  EXPECT_EQ(current, frozen) << "ILumx.aidl changed after version " << ILumx::version << " was frozen";
  // The frozen version holds exactly the current source files.
  std::vector<std::string> sources = AidlFilesUnder(std::string(LUMX_SOURCE_DIR) + "/aidl/lumx");
  for (std::string& f : sources) f = "./lumx/" + f.substr(2);
  EXPECT_EQ(sources, AidlFilesUnder(FrozenDir()));
}

TEST(FrozenApi, VersionIsTheNewestFrozenOne) {
  EXPECT_EQ(2, ILumx::version);
  EXPECT_EQ(ILumx::version, IReceiveAudioCallback::version);
  int newest = 0;
  std::error_code ec;
  for (fs::directory_iterator it(std::string(LUMX_SOURCE_DIR) + "/aidl/aidl_api/lumx", ec), end; !ec && it != end;
       it.increment(ec)) {
    newest = std::max(newest, atoi(it->path().filename().c_str()));
  }
  EXPECT_EQ(ILumx::version, newest);
}

TEST(FrozenApi, HashIsTheRecordedOneAndRecomputes) {
  std::string recorded;
  ASSERT_TRUE(ReadWholeFile(FrozenDir() + "/.hash", &recorded));
  EXPECT_EQ(LastLine(recorded), ILumx::hash);
  EXPECT_EQ(ILumx::hash, IReceiveAudioCallback::hash);
  ASSERT_EQ(40u, ILumx::hash.size());
  EXPECT_EQ(std::string::npos, ILumx::hash.find_first_not_of("0123456789abcdef"));

  // The build's recipe: sha1sum lines of the version's .aidl files, sorted,
  // then the previous version number, hashed once more.
  std::string listing;
  for (const std::string& rel : AidlFilesUnder(FrozenDir())) {
    std::string content;
    ASSERT_TRUE(ReadWholeFile(FrozenDir() + "/" + rel.substr(2), &content));
    listing += Sha1Hex(content) + "  " + rel + "\n";
  }
  listing += std::to_string(ILumx::version - 1) + "\n";
  EXPECT_EQ(ILumx::hash, Sha1Hex(listing));

  CommandOutput script =
      RunCommand(std::string(LUMX_SOURCE_DIR) + "/aidl/update-api-hash.sh " + std::to_string(ILumx::version));
  EXPECT_EQ(0, script.exitCode);
  EXPECT_EQ(ILumx::hash + "\n", script.out);
  EXPECT_EQ(0, RunCommand(std::string(LUMX_SOURCE_DIR) + "/aidl/update-api-hash.sh --check").exitCode);
}

TEST(FrozenApi, ScriptNoticesAnEditedFrozenVersionAndAppendsOnWrite) {
  char tmpl[] = "/tmp/lumx-aidl-hash-XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(tmpl));
  const std::string dir = tmpl;
  std::error_code ec;
  fs::copy(std::string(LUMX_SOURCE_DIR) + "/aidl/update-api-hash.sh", dir + "/update-api-hash.sh", ec);
  ASSERT_FALSE(ec) << ec.message();
  fs::copy(std::string(LUMX_SOURCE_DIR) + "/aidl/aidl_api", dir + "/aidl_api", fs::copy_options::recursive, ec);
  ASSERT_FALSE(ec) << ec.message();
  const std::string script = dir + "/update-api-hash.sh";

  EXPECT_EQ(0, RunCommand(script + " --check 2 2>/dev/null").exitCode);
  {
    std::ofstream edit(dir + "/aidl_api/lumx/2/lumx/ILumx.aidl", std::ios::app);
    edit << "// edited\n";
  }
  EXPECT_EQ(1, RunCommand(script + " --check 2 2>/dev/null").exitCode);
  CommandOutput written = RunCommand(script + " --write 2");
  EXPECT_EQ(0, written.exitCode);
  std::string hashFile;
  ASSERT_TRUE(ReadWholeFile(dir + "/aidl_api/lumx/2/.hash", &hashFile));
  EXPECT_EQ(ILumx::hash + "\n" + written.out, hashFile) << "the old hash stays, the new one is appended";
  EXPECT_EQ(0, RunCommand(script + " --check 2 2>/dev/null").exitCode);
  EXPECT_EQ(2, RunCommand(script + " 1 2>/dev/null").exitCode) << "there is no frozen version 1";

  fs::remove_all(dir, ec);
}

}  // namespace
}  // namespace lumx_aidl_test
