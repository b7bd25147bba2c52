// Keeps the hand-kept NDK binding in step with ILumx.aidl and its frozen API:
// the proxy's transaction codes, argument order and kinds and reply layout,
// the stub's answers to meta, unknown and cut-short requests, the type shapes,
// and the version and hash (end_to_end_test runs the proxy against the stub).
#include <android/binder_ibinder.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
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
    if (it->second == nullptr) {  // the key outlives the class
      it->second = AIBinder_Class_define(
          it->first.c_str(), [](void* args) { return args; }, [](void*) {}, &WireRecorder::OnTransact);
    }
    return it->second;
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

TEST(BindingDrift, ProxySendsWhatTheAidlSaysForEveryOperationAndCachesMeta) {
  const AidlInterface& iface = ParsedInterface("ILumx");
  ASSERT_EQ(33u, iface.methods.size());
  EXPECT_EQ(iface.methods.size(), ClientCalls().size()) << "the test's call table and the .aidl disagree";

  WireRecorder recorder("");
  auto proxy = ::ndk::SharedRefBase::make<BpLumx>(recorder.binder());
  CallContext ctx;
  ctx.callback = ::ndk::SharedRefBase::make<RecordingCallback>();

  for (size_t k = 0; k < iface.methods.size(); ++k) {
    const std::string& name = iface.methods[k].name;
    const int c = static_cast<int>(FIRST_CALL_TRANSACTION + k);
    auto call = ClientCalls().find(name);
    ASSERT_NE(call, ClientCalls().end()) << name << " is in the .aidl but has no call in the test";
    recorder.Clear();
    EXPECT_TRUE(call->second(*proxy, c, ctx)) << name << " (reply as the .aidl lays it out)";
    std::vector<WireRecorder::Call> calls = recorder.Calls();
    ASSERT_EQ(1u, calls.size()) << name;
    EXPECT_EQ(static_cast<uint32_t>(c), calls[0].code) << name << " went out with the wrong transaction code";
    EXPECT_EQ("", calls[0].problem) << name;
  }
  // The meta methods use the reserved codes, and ask only once.
  recorder.Clear();
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
  EXPECT_EQ("", calls[0].problem + calls[1].problem);
}

// The class's code-to-name table (dumps and traces name calls by it).
TEST(BindingDrift, DescriptorsAndFunctionNamesFollowTheAidl) {
  auto impl = ::ndk::SharedRefBase::make<RecordingLumx>();
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  ::ndk::SpAIBinder b = impl->asBinder(), cbBinder = cb->asBinder();
  for (const auto& [nested, binder] : {std::make_pair(std::string(), b.get()),
                                       std::make_pair(std::string("IReceiveAudioCallback"), cbBinder.get())}) {
    auto* clazz = const_cast<AIBinder_Class*>(AIBinder_getClass(binder));
    ASSERT_NE(nullptr, clazz);
    EXPECT_STREQ(Descriptor(nested).c_str(), AIBinder_Class_getDescriptor(clazz));
    const AidlInterface& iface = ParsedInterface(nested.empty() ? "ILumx" : nested);
    for (size_t k = 0; k <= iface.methods.size(); ++k) {
      const char* fn = AIBinder_Class_getFunctionName(clazz, static_cast<transaction_code_t>(FIRST_CALL_TRANSACTION + k));
      EXPECT_STREQ(k < iface.methods.size() ? iface.methods[k].name.c_str() : "(none)", fn ? fn : "(none)") << k;
    }
  }
}

// Sends operation `m` (code `c`) to a local stub with the first `nArgs` of its
// arguments laid out from the .aidl (then, if the next is a callback, a slot
// that names no object).
binder_status_t SendToStub(AIBinder* target, const AidlMethod& m, int c, AIBinder* callback,
                           ::ndk::ScopedAParcel* reply, size_t nArgs = SIZE_MAX) {
  AParcel* in = nullptr;
  if (AIBinder_prepareTransaction(target, &in) != STATUS_OK) return STATUS_UNKNOWN_ERROR;
  for (size_t s = 0; s < m.args.size() && s < nArgs; ++s) {
    if (m.args[s].dir != "out") {
      EXPECT_TRUE(WriteGen(in, m.args[s].type, c, static_cast<int>(s), callback));
    }
  }
  if (nArgs < m.args.size() && m.args[nArgs].type == "IReceiveAudioCallback") AParcel_writeInt32(in, 0x7fff);
  AParcel* out = nullptr;
  binder_status_t st =
      AIBinder_transact(target, static_cast<transaction_code_t>(c), &in, &out, m.oneway ? FLAG_ONEWAY : 0);
  reply->set(out);
  return st;
}

TEST(BindingDrift, CallbackProxySendsTheOneWayOperation) {
  const AidlInterface& iface = ParsedInterface("IReceiveAudioCallback");
  ASSERT_EQ(1u, iface.methods.size());
  ASSERT_TRUE(iface.methods[0].oneway);
  const int c = CodeOf("IReceiveAudioCallback", "ReceiveAudio");
  WireRecorder recorder("IReceiveAudioCallback");
  auto proxy = ::ndk::SharedRefBase::make<ILumx::BpReceiveAudioCallback>(recorder.binder());
  EXPECT_TRUE(proxy->ReceiveAudio(Gen<AudioPacket>(c, 0)).isOk());
  ASSERT_TRUE(recorder.WaitForCalls(1));
  EXPECT_EQ(static_cast<uint32_t>(c), recorder.Calls()[0].code);
  EXPECT_EQ("", recorder.Calls()[0].problem);
  int32_t version = 0;
  ASSERT_TRUE(proxy->getInterfaceVersion(&version).isOk());
  EXPECT_EQ(77, version);
}

TEST(BindingDrift, StubAnswersMetaMethodsAndRefusesUnknownAndTruncatedRequests) {
  auto impl = ::ndk::SharedRefBase::make<RecordingLumx>();
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  ::ndk::SpAIBinder lumxBinder = impl->asBinder(), cbBinder = cb->asBinder();
  const AidlMethod meta{false, "void", "meta", {}};
  auto readMeta = [&](AIBinder* target, uint32_t code, auto* value) {
    ::ndk::ScopedAParcel reply;
    ASSERT_EQ(STATUS_OK, SendToStub(target, meta, static_cast<int>(code), nullptr, &reply));
    ::ndk::ScopedAStatus status;
    ASSERT_EQ(STATUS_OK, AParcel_readStatusHeader(reply.get(), status.getR()));
    ASSERT_TRUE(status.isOk());
    ASSERT_EQ(STATUS_OK, ::ndk::AParcel_readData(reply.get(), value));
  };
  for (AIBinder* target : {lumxBinder.get(), cbBinder.get()}) {
    int32_t version = 0;
    std::string hash;
    readMeta(target, kGetVersionCode, &version);
    readMeta(target, kGetHashCode, &hash);
    EXPECT_EQ(2, version);
    EXPECT_EQ(ILumx::hash, hash);
    ::ndk::ScopedAParcel reply;
    const int unknown = target == lumxBinder.get() ? 34 : 2;
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, SendToStub(target, meta, unknown, nullptr, &reply));
  }

  // Each operation with its last argument cut off (a callback argument
  // replaced by a slot naming no object: a null callback is legal).
  const AidlInterface& iface = ParsedInterface("ILumx");
  for (size_t k = 0; k < iface.methods.size(); ++k) {
    const AidlMethod& m = iface.methods[k];
    size_t lastIn = m.args.size();
    for (size_t s = 0; s < m.args.size(); ++s) lastIn = m.args[s].dir != "out" ? s : lastIn;
    if (lastIn == m.args.size()) continue;  // nothing to truncate
    ::ndk::ScopedAParcel reply;
    EXPECT_NE(STATUS_OK, SendToStub(lumxBinder.get(), m, static_cast<int>(FIRST_CALL_TRANSACTION + k),
                                    cbBinder.get(), &reply, lastIn))
        << m.name;
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
  int depth = 0;
  size_t start = text.find('{') + 1;
  for (size_t i = start; start != 0 && i < text.size(); ++i) {
    depth += (text[i] == '[' || text[i] == '{') - (text[i] == ']' || text[i] == '}');
    if ((text[i] == ',' && depth == 0) || depth < 0) {
      names.push_back(text.substr(start, text.find(':', start) - start));
      start = i + 2;
      if (depth < 0) break;
    }
  }
  return names;
}

TEST(TypeDrift, ParcelablesUnionAndDescriptorsMatchTheAidl) {
  const std::map<std::string, std::pair<std::string, const char*>> shapes = {
      {"CommandResult", {CommandResult{}.toString(), CommandResult::descriptor}},
      {"AudioPacket", {AudioPacket{}.toString(), AudioPacket::descriptor}},
      {"ParamIdElementPair", {ParamIdElementPair{}.toString(), ParamIdElementPair::descriptor}},
  };
  size_t parcelables = 0;
  for (const auto& [name, st] : ParsedAidl().structs) {
    if (st.kind != "parcelable") continue;
    ++parcelables;
    auto shape = shapes.find(name);
    ASSERT_NE(shape, shapes.end()) << "parcelable " << name << " of the .aidl is not checked here";
    std::vector<std::string> want;
    for (const auto& field : st.fields) want.push_back(field.second);
    EXPECT_EQ(want, FieldNamesFromText(shape->second.first)) << name;
    EXPECT_EQ(0u, shape->second.first.rfind(name + "{", 0)) << shape->second.first;
    EXPECT_STREQ(Descriptor(name).c_str(), shape->second.second);
  }
  EXPECT_EQ(shapes.size(), parcelables);

  const AidlStruct& u = ParsedAidl().structs.at("ParamValue");
  EXPECT_EQ("union", u.kind);
  std::vector<std::pair<std::string, std::string>> tags;
  for (ParamValue::Tag t : ::ndk::enum_range<ParamValue::Tag>()) {
    EXPECT_EQ(tags.size(), static_cast<size_t>(t)) << "tags number the alternatives in order";
    tags.emplace_back(t == ParamValue::i ? "int" : "float", toString(t));
  }
  EXPECT_EQ(u.fields, tags);
  EXPECT_STREQ(Descriptor("ParamValue").c_str(), ParamValue::descriptor);
  EXPECT_STREQ(Descriptor("IReceiveAudioCallback").c_str(), IReceiveAudioCallback::descriptor);
  EXPECT_STREQ(Descriptor("").c_str(), ILumx::descriptor);
}

template <typename E>
std::pair<std::vector<std::pair<std::string, int64_t>>, size_t> EnumShape() {
  std::vector<std::pair<std::string, int64_t>> v;
  for (E e : ::ndk::enum_range<E>()) v.emplace_back(toString(e), static_cast<int64_t>(e));
  return {v, sizeof(E)};
}

TEST(TypeDrift, EnumsMatchTheAidl) {
  const std::map<std::string, std::pair<std::vector<std::pair<std::string, int64_t>>, size_t>> shapes = {
      {"Status", EnumShape<Status>()},
      {"ParameterId", EnumShape<ParameterId>()},
      {"UseCase", EnumShape<UseCase>()},
  };
  EXPECT_EQ(shapes.size(), ParsedAidl().enums.size());
  for (const auto& [name, e] : ParsedAidl().enums) {
    auto shape = shapes.find(name);
    ASSERT_NE(shape, shapes.end()) << "enum " << name << " of the .aidl is not checked here";
    EXPECT_EQ(e.values, shape->second.first) << name;
    EXPECT_EQ(e.backing == "int" ? 4u : 1u, shape->second.second) << name << " backing " << e.backing;
  }
}

// ---------------------------------------------------------------------------
// Frozen API, version and hash

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

// Exit code and standard output of a shell command.
std::pair<int, std::string> RunCommand(const std::string& cmd) {
  std::string out;
  FILE* p = popen(cmd.c_str(), "r");
  if (p == nullptr) return {-1, out};
  char buf[256];
  for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  int status = pclose(p);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

TEST(FrozenApi, CurrentSourceIsTheNewestFrozenVersion) {
  std::string current, frozen;
  ASSERT_TRUE(ReadWholeFile(AidlPath(), &current));
  ASSERT_TRUE(ReadWholeFile(FrozenDir() + "/lumx/ILumx.aidl", &frozen));
  EXPECT_EQ(current, frozen) << "ILumx.aidl changed after version " << ILumx::version << " was frozen";
  std::vector<std::string> sources = AidlFilesUnder(std::string(LUMX_SOURCE_DIR) + "/aidl/lumx");
  for (std::string& f : sources) f = "./lumx/" + f.substr(2);
  EXPECT_EQ(sources, AidlFilesUnder(FrozenDir())) << "the frozen version holds exactly the current sources";

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
  while (!recorded.empty() && recorded.back() == '\n') recorded.pop_back();
  EXPECT_EQ(recorded.substr(recorded.rfind('\n') + 1), ILumx::hash) << "the last line of .hash";
  EXPECT_EQ(ILumx::hash, IReceiveAudioCallback::hash);

  // The build's recipe spelled out: sha1sum lines of the version's .aidl
  // files, sorted, then the previous version number, hashed once more.
  std::string listing = "cd '" + FrozenDir() + "' && { sha1sum";
  for (const std::string& rel : AidlFilesUnder(FrozenDir())) listing += " '" + rel + "'";
  listing += "; echo " + std::to_string(ILumx::version - 1) + "; } | sha1sum | cut -c1-40";
  EXPECT_EQ(std::make_pair(0, ILumx::hash + "\n"), RunCommand(listing));

  const std::string script = std::string(LUMX_SOURCE_DIR) + "/aidl/update-api-hash.sh";
  EXPECT_EQ(std::make_pair(0, ILumx::hash + "\n"), RunCommand(script + " " + std::to_string(ILumx::version)));
  EXPECT_EQ(0, RunCommand(script + " --check").first);
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

  EXPECT_EQ(0, RunCommand(script + " --check 2 2>/dev/null").first);
  std::ofstream(dir + "/aidl_api/lumx/2/lumx/ILumx.aidl", std::ios::app) << "// edited\n";
  EXPECT_EQ(1, RunCommand(script + " --check 2 2>/dev/null").first);
  auto written = RunCommand(script + " --write 2");
  EXPECT_EQ(0, written.first);
  std::string hashFile;
  ASSERT_TRUE(ReadWholeFile(dir + "/aidl_api/lumx/2/.hash", &hashFile));
  EXPECT_EQ(ILumx::hash + "\n" + written.second, hashFile) << "the old hash stays, the new one is appended";
  EXPECT_EQ(0, RunCommand(script + " --check 2 2>/dev/null").first);
  EXPECT_EQ(2, RunCommand(script + " 1 2>/dev/null").first) << "there is no frozen version 1";
  fs::remove_all(dir, ec);
}

}  // namespace
}  // namespace lumx_aidl_test
