// Shared pieces of the ILumx binding tests:
//  - a small parser of the .aidl source, so the tests compare the binding
//    with the interface definition instead of with a second hand-kept list;
//  - Gen<T>(code, slot): a distinctive value of every type that travels, so
//    a value that lands in the wrong argument or the wrong operation shows;
//  - wire helpers that write or check a value by its AIDL type name;
//  - RecordingLumx, a BnLumx that checks its arguments and answers with
//    generated values, and ClientCalls(), one call per operation through
//    any ILumx (a proxy, in these tests).
#pragma once

#include <aidl/lumx/BnLumx.h>
#include <aidl/lumx/BpLumx.h>
#include <aidl/lumx/ILumx.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_to_string.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace lumx_aidl_test {

using ::aidl::lumx::BnLumx;
using ::aidl::lumx::BpLumx;
using ::aidl::lumx::ILumx;
using CommandResult = ILumx::CommandResult;
using Status = ILumx::CommandResult::Status;
using ParamValue = ILumx::ParamValue;
using ParameterId = ILumx::ParameterId;
using UseCase = ILumx::UseCase;
using AudioPacket = ILumx::AudioPacket;
using ParamIdElementPair = ILumx::ParamIdElementPair;
using IReceiveAudioCallback = ILumx::IReceiveAudioCallback;

inline std::string AidlPath() { return std::string(LUMX_SOURCE_DIR) + "/aidl/lumx/ILumx.aidl"; }
// The frozen copy of the version this binding reports.
inline std::string FrozenDir() {
  return std::string(LUMX_SOURCE_DIR) + "/aidl/aidl_api/lumx/" + std::to_string(ILumx::version);
}

inline bool ReadWholeFile(const std::string& path, std::string* out) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  *out = ss.str();
  return static_cast<bool>(in);
}

// ---------------------------------------------------------------------------
// The .aidl as parsed: what the binding must agree with.

struct AidlArg {
  std::string dir, type, name;  // dir: "in", "out" or "inout"
};
struct AidlMethod {
  bool oneway = false;
  std::string ret, name;
  std::vector<AidlArg> args;
};
struct AidlInterface {
  std::string name;
  std::vector<AidlMethod> methods;
};
struct AidlEnum {
  std::string name, backing;  // backing: "byte" unless @Backing says otherwise
  std::vector<std::pair<std::string, int64_t>> values;
};
struct AidlStruct {
  std::string kind, name;  // kind: "parcelable" or "union"
  std::vector<std::pair<std::string, std::string>> fields;  // type, name
};
struct AidlFile {
  std::string package;
  std::map<std::string, AidlInterface> interfaces;
  std::map<std::string, AidlEnum> enums;
  std::map<std::string, AidlStruct> structs;
};

inline std::string Trim(const std::string& t) {
  const size_t b = t.find_first_not_of(" \t\n"), e = t.find_last_not_of(" \t\n");
  return b == std::string::npos ? "" : t.substr(b, e + 1 - b);
}
inline std::vector<std::string> Split(const std::string& t, char sep) {
  std::vector<std::string> out;
  std::istringstream in(t);
  for (std::string part; std::getline(in, part, sep);)
    if (!Trim(part).empty()) out.push_back(Trim(part));
  return out;
}
inline std::string NoSpace(std::string t) {
  t.erase(std::remove_if(t.begin(), t.end(), [](char c) { return isspace(static_cast<unsigned char>(c)); }), t.end());
  return t;
}

// Just enough of the grammar for this package: each declaration's own
// members are its body with nested declarations cut out; annotations other
// than @Backing are dropped.
inline AidlFile ParseAidl(std::string s) {
  AidlFile f;
  for (size_t i = 0; (i = s.find('/', i)) != std::string::npos;) {  // comments
    const size_t e = s.compare(i, 2, "//") == 0 ? s.find('\n', i) : s.compare(i, 2, "/*") == 0 ? s.find("*/", i) + 2 : i + 1;
    if (e != i + 1) s.replace(i, std::min(e, s.size()) - i, " ");
    else ++i;
  }
  std::smatch m;
  if (std::regex_search(s, m, std::regex(R"(package\s+([\w.]+)\s*;)"))) f.package = m[1];
  static const std::regex kDecl(R"re((?:@Backing\(type="(\w+)"\)\s*)?\b(parcelable|union|enum|interface)\s+(\w+)\s*\{)re");
  for (std::sregex_iterator it(s.begin(), s.end(), kDecl), end; it != end; ++it) {
    const std::string kind = (*it)[2], name = (*it)[3];
    std::string own;  // the body at depth 0; a nested declaration leaves its header and a ';'
    int depth = 1;
    for (size_t i = static_cast<size_t>(it->position() + it->length()); i < s.size() && depth > 0; ++i) {
      depth += (s[i] == '{') - (s[i] == '}');
      if (depth == 1 && s[i] != '}') own += s[i];
      if (depth == 1 && s[i] == '}') own += ';';
    }
    own = std::regex_replace(own, std::regex(R"(@\w+(\([^)]*\))?)"), " ");
    if (kind == "enum") {
      AidlEnum& e = f.enums[name];
      e = {name, (*it)[1].matched ? (*it)[1].str() : "byte", {}};
      int64_t next = 0;
      for (const std::string& v : Split(own, ',')) {
        const size_t eq = v.find('=');
        if (eq != std::string::npos) next = std::strtoll(Trim(v.substr(eq + 1)).c_str(), nullptr, 0);
        e.values.emplace_back(Trim(v.substr(0, eq)), next++);
      }
      continue;
    }
    AidlInterface iface{name, {}};
    AidlStruct st{kind, name, {}};
    static const std::regex kMethod(R"(^(oneway\s+)?(.+?)\s+(\w+)\s*\((.*)\)$)");
    static const std::regex kArg(R"(^(?:(in|out|inout)\s+)?(.+?)\s+(\w+)$)");
    static const std::regex kField(R"(^(.+?)\s+(\w+)\s*(=.*)?$)");
    static const std::regex kNested(R"(^(parcelable|union|enum|interface)\s)");
    for (const std::string& stmt : Split(own, ';')) {
      if (std::regex_search(stmt, kNested)) continue;
      if (kind == "interface" && std::regex_match(stmt, m, kMethod)) {
        AidlMethod meth{m[1].matched, NoSpace(m[2]), m[3], {}};
        for (const std::string& a : Split(m[4], ',')) {
          std::smatch am;
          if (std::regex_match(a, am, kArg)) meth.args.push_back({am[1].matched ? am[1].str() : "in", NoSpace(am[2]), am[3]});
        }
        iface.methods.push_back(meth);
      } else if (kind != "interface" && std::regex_match(stmt, m, kField)) {
        st.fields.emplace_back(NoSpace(m[1]), m[2]);
      } else {
        ADD_FAILURE() << "cannot read '" << stmt << "' in " << name;
      }
    }
    if (kind == "interface") {
      f.interfaces[name] = iface;
    } else {
      f.structs[name] = st;
    }
  }
  return f;
}

// Parses the interface source once per process.
inline const AidlFile& ParsedAidl() {
  static const AidlFile* parsed = [] {
    std::string text;
    if (!ReadWholeFile(AidlPath(), &text)) ADD_FAILURE() << "cannot read " << AidlPath();
    return new AidlFile(ParseAidl(text));
  }();
  return *parsed;
}

inline const AidlInterface& ParsedInterface(const std::string& name) {
  static const AidlInterface kEmpty;
  auto it = ParsedAidl().interfaces.find(name);
  return it == ParsedAidl().interfaces.end() ? kEmpty : it->second;
}

// Transaction code of a method as the .aidl orders it; 0 if it is not there.
inline int CodeOf(const std::string& iface, const std::string& method) {
  const AidlInterface& i = ParsedInterface(iface);
  for (size_t k = 0; k < i.methods.size(); ++k) {
    if (i.methods[k].name == method) return static_cast<int>(FIRST_CALL_TRANSACTION + k);
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Distinctive values. Slot = the argument's position; return values and the
// packet the server sends back to a registered callback have their own slots.

constexpr int kRetSlot = 100;
constexpr int kCallbackSlot = 101;

template <typename T>
struct Tag {};

inline int32_t Gen(Tag<int32_t>, int c, int s) {
  int32_t v = c * 1000 + s * 10 + 7;
  return (s % 2) ? -v : v;
}
inline bool Gen(Tag<bool>, int c, int s) { return ((c + s) % 2) == 1; }
inline int8_t Gen(Tag<int8_t>, int c, int s) { return static_cast<int8_t>(0x80 | ((c * 7 + s) & 0x7f)); }
inline std::string Gen(Tag<std::string>, int c, int s) {
  return "arg " + std::to_string(c) + "." + std::to_string(s) + " \xc3\xa9";
}
inline std::vector<std::string> Gen(Tag<std::vector<std::string>>, int c, int s) {
  if ((c + s) % 5 == 0) return {};
  return {"w" + std::to_string(c), "", "x, y " + std::to_string(s)};
}
template <typename E, typename = std::enable_if_t<std::is_enum_v<E>>>
E Gen(Tag<E>, int c, int s) {
  const auto& all = ::ndk::internal::enum_values<E>;
  return all[static_cast<size_t>(c + s) % all.size()];
}
inline ParamValue Gen(Tag<ParamValue>, int c, int s) {
  if ((c + s) % 2) return ParamValue::make<ParamValue::f>(static_cast<float>(c + s) + 0.5f);
  return ParamValue::make<ParamValue::i>(-(c * 100 + s));
}
inline ParamIdElementPair Gen(Tag<ParamIdElementPair>, int c, int s) {
  return {Gen(Tag<ParameterId>{}, c, s), Gen(Tag<int32_t>{}, c, s)};
}
inline std::vector<ParamIdElementPair> Gen(Tag<std::vector<ParamIdElementPair>>, int c, int s) {
  return {Gen(Tag<ParamIdElementPair>{}, c, s), Gen(Tag<ParamIdElementPair>{}, c, s + 1),
          Gen(Tag<ParamIdElementPair>{}, c, s + 2)};
}
inline std::vector<ParamValue> Gen(Tag<std::vector<ParamValue>>, int c, int s) {
  return {Gen(Tag<ParamValue>{}, c, s), Gen(Tag<ParamValue>{}, c, s + 1), Gen(Tag<ParamValue>{}, c, s + 2),
          Gen(Tag<ParamValue>{}, c, s + 3)};
}
inline CommandResult Gen(Tag<CommandResult>, int c, int s) {
  CommandResult r;
  r.status = static_cast<Status>((c + s) % 8);  // 7 is outside the table on purpose
  r.value = static_cast<float>(c) + static_cast<float>(s) / 4.0f;
  if ((c + s) % 3 != 0) r.strList = {"line " + std::to_string(c), "", "slot " + std::to_string(s)};
  return r;
}
inline AudioPacket Gen(Tag<AudioPacket>, int c, int s) {
  AudioPacket p;
  p.processor_id = Gen(Tag<int32_t>{}, c, s);
  size_t n = static_cast<size_t>((c * 37 + s * 11) % 61) + 3;
  for (size_t k = 0; k < n; ++k) p.data.push_back(static_cast<uint8_t>((k * 53 + static_cast<size_t>(c)) & 0xff));
  p.sampleRate = static_cast<int8_t>(c);
  p.format = static_cast<int8_t>(-s - 1);
  p.bitsPerSample = Gen(Tag<int8_t>{}, c, s);
  p.numChannels = static_cast<int8_t>(s + 2);
  p.reserved = 1;
  return p;
}

template <typename T>
T Gen(int c, int s) {
  return Gen(Tag<T>{}, c, s);
}

template <typename T>
std::string Show(const T& v) {
  return ::android::internal::ToString(v);
}

template <typename T>
::testing::AssertionResult SameAs(const char* what, const T& got, const T& want) {
  if (got == want) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << what << ": got " << Show(got) << ", want " << Show(want);
}

// Calls f(Tag<T>{}) with the NDK type of an AIDL type name; false if the
// type is not one of this interface's.
template <typename F>
bool WithNdkType(const std::string& aidl, F&& f) {
  if (aidl == "int") return f(Tag<int32_t>{}), true;
  if (aidl == "boolean") return f(Tag<bool>{}), true;
  if (aidl == "byte") return f(Tag<int8_t>{}), true;
  if (aidl == "String") return f(Tag<std::string>{}), true;
  if (aidl == "List<String>" || aidl == "String[]") return f(Tag<std::vector<std::string>>{}), true;
  if (aidl == "UseCase") return f(Tag<UseCase>{}), true;
  if (aidl == "ParameterId") return f(Tag<ParameterId>{}), true;
  if (aidl == "ParamValue") return f(Tag<ParamValue>{}), true;
  if (aidl == "List<ParamValue>" || aidl == "ParamValue[]") return f(Tag<std::vector<ParamValue>>{}), true;
  if (aidl == "List<ParamIdElementPair>" || aidl == "ParamIdElementPair[]")
    return f(Tag<std::vector<ParamIdElementPair>>{}), true;
  if (aidl == "CommandResult") return f(Tag<CommandResult>{}), true;
  if (aidl == "AudioPacket") return f(Tag<AudioPacket>{}), true;
  return false;
}

// Writes the generated value of an AIDL type; an interface argument is
// written as `callback`.
inline ::testing::AssertionResult WriteGen(AParcel* p, const std::string& type, int c, int s,
                                           AIBinder* callback = nullptr) {
  if (type == "IReceiveAudioCallback") {
    if (AParcel_writeStrongBinder(p, callback) != STATUS_OK) return ::testing::AssertionFailure() << "write binder";
    return ::testing::AssertionSuccess();
  }
  binder_status_t st = STATUS_OK;
  bool known = WithNdkType(type, [&](auto tag) { st = ::ndk::AParcel_writeData(p, Gen(tag, c, s)); });
  if (!known) return ::testing::AssertionFailure() << "type " << type << " is not known to the test";
  if (st != STATUS_OK) return ::testing::AssertionFailure() << "writing " << type << " failed: " << st;
  return ::testing::AssertionSuccess();
}

// Reads a value of an AIDL type and checks it is the generated one (for an
// interface argument: that a non-null binder arrives).
inline ::testing::AssertionResult ReadExpectGen(const AParcel* p, const std::string& type, int c, int s) {
  if (type == "IReceiveAudioCallback") {
    ::ndk::SpAIBinder b;
    if (AParcel_readStrongBinder(p, b.getR()) != STATUS_OK || b.get() == nullptr) {
      return ::testing::AssertionFailure() << "no callback binder";
    }
    return ::testing::AssertionSuccess();
  }
  ::testing::AssertionResult result = ::testing::AssertionSuccess();
  bool known = WithNdkType(type, [&](auto tag) {
    using T = decltype(Gen(tag, 0, 0));
    T v{};
    binder_status_t st = ::ndk::AParcel_readData(p, &v);
    if (st != STATUS_OK) {
      result = ::testing::AssertionFailure() << "reading " << type << " failed: " << st;
    } else {
      result = SameAs(type.c_str(), v, Gen(tag, c, s));
    }
  });
  if (!known) return ::testing::AssertionFailure() << "type " << type << " is not known to the test";
  return result;
}

inline bool ParcelConsumed(const AParcel* p) { return AParcel_getDataPosition(p) == AParcel_getDataSize(p); }

// ---------------------------------------------------------------------------
// A callback that keeps what it receives.

class RecordingCallback : public ILumx::BnReceiveAudioCallback {
 public:
  ::ndk::ScopedAStatus ReceiveAudio(const AudioPacket& packet) override {
    std::lock_guard<std::mutex> lock(mu_);
    packets_.push_back(packet);
    cv_.notify_all();
    return ::ndk::ScopedAStatus::ok();
  }
  // Waits (generously: the machine may be loaded) for `n` packets.
  bool WaitFor(size_t n) {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_for(lock, std::chrono::seconds(60), [&] { return packets_.size() >= n; });
  }
  std::vector<AudioPacket> Packets() {
    std::lock_guard<std::mutex> lock(mu_);
    return packets_;
  }

 private:
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<AudioPacket> packets_;
};

// ---------------------------------------------------------------------------
// The server side: every operation checks that its arguments are the values
// the client generated for its code (per the .aidl) and answers with values
// generated the same way. A mismatch comes back as a service-specific error
// naming the operation, so a client in another process sees it.

class RecordingLumx : public BnLumx {
 public:
  using S = ::ndk::ScopedAStatus;
  std::vector<std::string> Calls() {
    std::lock_guard<std::mutex> lock(mu_);
    return calls_;
  }

  S Ping() override { return Serve("Ping", nullptr); }
  S ShowGraph(CommandResult* r) override { return Serve("ShowGraph", r); }
  S ListProcessors(CommandResult* r) override { return Serve("ListProcessors", r); }
  S ListSupportedProcessors(CommandResult* r) override { return Serve("ListSupportedProcessors", r); }
  S NewProcessor(int32_t id, CommandResult* r) override { return Serve("NewProcessor", r, id); }
  S NewProcessorWithType(int32_t id, int32_t type, CommandResult* r) override {
    return Serve("NewProcessorWithType", r, id, type);
  }
  S DeleteProcessor(int32_t id, CommandResult* r) override { return Serve("DeleteProcessor", r, id); }
  S ListSupportedUseCases(CommandResult* r) override { return Serve("ListSupportedUseCases", r); }
  S Enable(const std::string& name, bool on, CommandResult* r) override { return Serve("Enable", r, name, on); }
  S IsEnabled(const std::string& name, CommandResult* r) override { return Serve("IsEnabled", r, name); }
  S ProcessorInfo(int32_t id, CommandResult* r) override { return Serve("ProcessorInfo", r, id); }
  S ProcessorEnable(int32_t id, bool on, CommandResult* r) override { return Serve("ProcessorEnable", r, id, on); }
  S ProcessorIsEnabled(int32_t id, CommandResult* r) override { return Serve("ProcessorIsEnabled", r, id); }
  S TapList(int32_t core, CommandResult* r) override { return Serve("TapList", r, core); }
  S TapInfo(int32_t core, int32_t tap, int32_t index, CommandResult* r) override {
    return Serve("TapInfo", r, core, tap, index);
  }
  S TapEnable(int32_t core, int32_t tap, int32_t index, bool on, CommandResult* r) override {
    return Serve("TapEnable", r, core, tap, index, on);
  }
  S TapSetBlockLength(int32_t core, int32_t tap, int32_t index, int32_t len, CommandResult* r) override {
    return Serve("TapSetBlockLength", r, core, tap, index, len);
  }
  S ListTapOutBuffers(CommandResult* r) override { return Serve("ListTapOutBuffers", r); }
  S ListInjectBuffers(CommandResult* r) override { return Serve("ListInjectBuffers", r); }
  S Connect(int32_t id, int32_t tapOut, int32_t inject, CommandResult* r) override {
    return Serve("Connect", r, id, tapOut, inject);
  }
  S ConnectTap(int32_t core, int32_t tap, int32_t index, int32_t tapOut, int32_t inject, CommandResult* r) override {
    return Serve("ConnectTap", r, core, tap, index, tapOut, inject);
  }
  S StartIo(int32_t id, CommandResult* r) override { return Serve("StartIo", r, id); }
  S StopIo(int32_t id, CommandResult* r) override { return Serve("StopIo", r, id); }
  S Debug(const std::vector<std::string>& args, CommandResult* r) override { return Serve("Debug", r, args); }
  S EnableUseCase(UseCase uc, bool on, CommandResult* r) override { return Serve("EnableUseCase", r, uc, on); }
  S IsUseCaseEnabled(UseCase uc, CommandResult* r) override { return Serve("IsUseCaseEnabled", r, uc); }
  S SetParameter(int32_t id, ParameterId pid, int32_t element, const ParamValue& value, CommandResult* r) override {
    return Serve("SetParameter", r, id, pid, element, value);
  }
  S GetParameter(int32_t id, ParameterId pid, int32_t element, ParamValue* value, CommandResult* r) override {
    *value = Gen<ParamValue>(CodeOf("ILumx", "GetParameter"), 3);
    return Serve("GetParameter", r, id, pid, element);
  }
  S SetParameterBulk(int32_t id, const std::vector<ParamIdElementPair>& params, const std::vector<ParamValue>& values,
                     CommandResult* r) override {
    return Serve("SetParameterBulk", r, id, params, values);
  }
  S GetParameterBulk(int32_t id, const std::vector<ParamIdElementPair>& params, CommandResult* result,
                     std::vector<ParamValue>* values) override {
    const int c = CodeOf("ILumx", "GetParameterBulk");
    *values = Gen<std::vector<ParamValue>>(c, kRetSlot);
    S st = Serve("GetParameterBulk", result, id, params);
    *result = Gen<CommandResult>(c, 2);  // an out argument, not the return value
    return st;
  }
  S ListParameters(CommandResult* r) override { return Serve("ListParameters", r); }
  S SendAudio(int32_t id, const AudioPacket& packet, CommandResult* r) override {
    return Serve("SendAudio", r, id, packet);
  }
  S RegisterReceiveAudioCallback(int32_t id, const std::shared_ptr<IReceiveAudioCallback>& cb,
                                 CommandResult* r) override {
    const int c = CodeOf("ILumx", "RegisterReceiveAudioCallback");
    // One-way: returns once the packet is on its way.
    if (cb == nullptr || !cb->ReceiveAudio(Gen<AudioPacket>(c, kCallbackSlot)).isOk()) {
      Serve("RegisterReceiveAudioCallback", r);
      return Mismatch(c, "RegisterReceiveAudioCallback", " callback");
    }
    return Serve("RegisterReceiveAudioCallback", r, id);
  }

 private:
  template <typename... A>
  S Serve(const char* name, CommandResult* r, const A&... args) {
    int c = 0;
    {
      std::lock_guard<std::mutex> lock(mu_);
      calls_.push_back(name);
      c = CodeOf("ILumx", name);
    }
    int slot = 0;
    std::string bad;
    ((bad += args == Gen<A>(c, slot) ? "" : " argument " + std::to_string(slot), ++slot), ...);
    if (!bad.empty()) return Mismatch(c, name, bad);
    if (r != nullptr) *r = Gen<CommandResult>(c, kRetSlot);
    return S::ok();
  }
  static S Mismatch(int c, const char* name, const std::string& what) {
    return S::fromServiceSpecificErrorWithMessage(c, (std::string(name) + ": arguments differ:" + what).c_str());
  }

  std::mutex mu_;
  std::vector<std::string> calls_;
};

// ---------------------------------------------------------------------------
// One call per operation, with the values generated for code `c` (the code
// the .aidl gives the operation). Checks the binder status and every result.

struct CallContext {
  std::shared_ptr<RecordingCallback> callback;
  bool serverCallsBack = false;  // RecordingLumx does; a wire recorder does not
};

using ClientCall = std::function<::testing::AssertionResult(ILumx& p, int c, CallContext& ctx)>;

inline ::testing::AssertionResult ResultIs(const ::ndk::ScopedAStatus& st, const CommandResult& r, int c) {
  if (!st.isOk()) return ::testing::AssertionFailure() << "binder status " << st.getDescription();
  return SameAs("CommandResult", r, Gen<CommandResult>(c, kRetSlot));
}

// Argument `s` of an operation whose last parameter is its CommandResult.
template <typename P>
std::decay_t<P> ArgOf(int c, int s, CommandResult*) {
  return Gen<std::decay_t<P>>(c, s);
}
template <>
inline CommandResult* ArgOf<CommandResult*>(int, int, CommandResult* r) {
  return r;
}
template <typename... P, size_t... I>
::testing::AssertionResult CallGenerated(ILumx& p, ::ndk::ScopedAStatus (ILumx::*m)(P...), int c,
                                         std::index_sequence<I...>) {
  CommandResult r;
  ::ndk::ScopedAStatus st = (p.*m)(ArgOf<P>(c, static_cast<int>(I), &r)...);
  return ResultIs(st, r, c);
}
template <typename... P>
ClientCall Generated(::ndk::ScopedAStatus (ILumx::*m)(P...)) {
  return [m](ILumx& p, int c, CallContext&) { return CallGenerated(p, m, c, std::index_sequence_for<P...>{}); };
}

inline const std::map<std::string, ClientCall>& ClientCalls() {
  using ::testing::AssertionResult;
#define LUMX_CALL(name) {#name, Generated(&ILumx::name)}
  static const std::map<std::string, ClientCall> calls = {
      LUMX_CALL(ShowGraph), LUMX_CALL(ListProcessors), LUMX_CALL(ListSupportedProcessors),
      LUMX_CALL(NewProcessor), LUMX_CALL(NewProcessorWithType), LUMX_CALL(DeleteProcessor),
      LUMX_CALL(ListSupportedUseCases), LUMX_CALL(Enable), LUMX_CALL(IsEnabled), LUMX_CALL(ProcessorInfo),
      LUMX_CALL(ProcessorEnable), LUMX_CALL(ProcessorIsEnabled), LUMX_CALL(TapList), LUMX_CALL(TapInfo),
      LUMX_CALL(TapEnable), LUMX_CALL(TapSetBlockLength), LUMX_CALL(ListTapOutBuffers),
      LUMX_CALL(ListInjectBuffers), LUMX_CALL(Connect), LUMX_CALL(ConnectTap), LUMX_CALL(StartIo),
      LUMX_CALL(StopIo), LUMX_CALL(Debug), LUMX_CALL(EnableUseCase), LUMX_CALL(IsUseCaseEnabled),
      LUMX_CALL(SetParameter), LUMX_CALL(SetParameterBulk), LUMX_CALL(ListParameters), LUMX_CALL(SendAudio),
      {"Ping",
       [](ILumx& p, int, CallContext&) -> AssertionResult {
         ::ndk::ScopedAStatus st = p.Ping();
         if (st.isOk()) return ::testing::AssertionSuccess();
         return ::testing::AssertionFailure() << "binder status " << st.getDescription();
       }},
      {"GetParameter",
       [](ILumx& p, int c, CallContext&) -> AssertionResult {
         CommandResult r;
         ParamValue v = ParamValue::make<ParamValue::f>(-1.0f);  // overwritten by the reply
         AssertionResult res =
             ResultIs(p.GetParameter(Gen<int32_t>(c, 0), Gen<ParameterId>(c, 1), Gen<int32_t>(c, 2), &v, &r), r, c);
         return res ? SameAs("out value", v, Gen<ParamValue>(c, 3)) : res;
       }},
      {"GetParameterBulk",
       [](ILumx& p, int c, CallContext&) -> AssertionResult {
         CommandResult result;
         std::vector<ParamValue> values;
         ::ndk::ScopedAStatus st =
             p.GetParameterBulk(Gen<int32_t>(c, 0), Gen<std::vector<ParamIdElementPair>>(c, 1), &result, &values);
         if (!st.isOk()) return ::testing::AssertionFailure() << "binder status " << st.getDescription();
         AssertionResult res = SameAs("out result", result, Gen<CommandResult>(c, 2));
         return res ? SameAs("returned values", values, Gen<std::vector<ParamValue>>(c, kRetSlot)) : res;
       }},
      {"RegisterReceiveAudioCallback",
       [](ILumx& p, int c, CallContext& ctx) -> AssertionResult {
         CommandResult r;
         AssertionResult res = ResultIs(p.RegisterReceiveAudioCallback(Gen<int32_t>(c, 0), ctx.callback, &r), r, c);
         if (!res || !ctx.serverCallsBack) return res;
         if (!ctx.callback->WaitFor(1)) return ::testing::AssertionFailure() << "callback never called";
         return SameAs("called-back packet", ctx.callback->Packets().back(), Gen<AudioPacket>(c, kCallbackSlot));
       }},
  };
#undef LUMX_CALL
  return calls;
}

}  // namespace lumx_aidl_test
