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

#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
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
  if (!in) return false;
  std::ostringstream ss;
  ss << in.rdbuf();
  *out = ss.str();
  return true;
}

// ---------------------------------------------------------------------------
// .aidl parser: just enough of the grammar for this package (nested
// parcelables, unions, enums and interfaces; annotations are skipped).

struct AidlArg {
  std::string dir;  // "in", "out" or "inout"
  std::string type;
  std::string name;
};
struct AidlMethod {
  bool oneway = false;
  std::string ret;
  std::string name;
  std::vector<AidlArg> args;
};
struct AidlInterface {
  std::string name;
  std::vector<AidlMethod> methods;
};
struct AidlEnum {
  std::string name;
  std::string backing;  // "byte" unless @Backing says otherwise
  std::vector<std::pair<std::string, int64_t>> values;
};
struct AidlStruct {
  std::string kind;  // "parcelable" or "union"
  std::string name;
  std::vector<std::pair<std::string, std::string>> fields;  // type, name
};
struct AidlFile {
  std::string package;
  std::map<std::string, AidlInterface> interfaces;
  std::map<std::string, AidlEnum> enums;
  std::map<std::string, AidlStruct> structs;
};

class AidlParser {
 public:
  explicit AidlParser(const std::string& text) { Tokenize(text); }

  bool Parse(AidlFile* file, std::string* error) {
    file_ = file;
    while (!AtEnd()) {
      backing_ = "byte";
      if (Accept("package")) {
        file->package = Next();
        if (!Expect(";")) return Fail(error);
      } else if (Accept("import")) {
        while (!AtEnd() && Peek() != ";") Next();
        if (!Expect(";")) return Fail(error);
      } else if (!ParseDecl("")) {
        return Fail(error);
      }
    }
    return ok_ || Fail(error);
  }

 private:
  bool Fail(std::string* error) {
    if (error) *error = error_.empty() ? "parse error" : error_;
    return false;
  }
  bool AtEnd() const { return pos_ >= toks_.size(); }
  const std::string& Peek(size_t ahead = 0) const {
    static const std::string kEnd;
    return pos_ + ahead < toks_.size() ? toks_[pos_ + ahead] : kEnd;
  }
  std::string Next() { return AtEnd() ? std::string() : toks_[pos_++]; }
  bool Accept(const std::string& t) {
    if (Peek() != t) return false;
    ++pos_;
    return true;
  }
  bool Expect(const std::string& t) {
    if (Accept(t)) return true;
    ok_ = false;
    if (error_.empty()) error_ = "expected '" + t + "' at token " + std::to_string(pos_) + " '" + Peek() + "'";
    return false;
  }

  void Tokenize(const std::string& s) {
    size_t i = 0;
    while (i < s.size()) {
      char ch = s[i];
      if (isspace(static_cast<unsigned char>(ch))) {
        ++i;
      } else if (s.compare(i, 2, "//") == 0) {
        while (i < s.size() && s[i] != '\n') ++i;
      } else if (s.compare(i, 2, "/*") == 0) {
        size_t e = s.find("*/", i + 2);
        i = e == std::string::npos ? s.size() : e + 2;
      } else if (ch == '"') {
        size_t e = s.find('"', i + 1);
        e = e == std::string::npos ? s.size() : e + 1;
        toks_.push_back(s.substr(i, e - i));
        i = e;
      } else if (isalnum(static_cast<unsigned char>(ch)) || ch == '_') {
        size_t e = i;
        while (e < s.size() && (isalnum(static_cast<unsigned char>(s[e])) || s[e] == '_' || s[e] == '.')) ++e;
        toks_.push_back(s.substr(i, e - i));
        i = e;
      } else {
        toks_.push_back(std::string(1, ch));
        ++i;
      }
    }
  }

  // Skips annotations; remembers @Backing(type="...") for the next enum.
  void SkipAnnotations() {
    while (Accept("@")) {
      std::string name = Next();
      if (Accept("(")) {
        int depth = 1;
        while (!AtEnd() && depth > 0) {
          std::string t = Next();
          if (t == "(") ++depth;
          if (t == ")") --depth;
          if (name == "Backing" && t.size() > 2 && t.front() == '"') backing_ = t.substr(1, t.size() - 2);
        }
      }
    }
  }

  std::string ParseType() {
    std::string t = Next();
    if (Accept("<")) {
      t += "<" + ParseType();
      while (Accept(",")) t += "," + ParseType();
      if (!Expect(">")) return t;
      t += ">";
    }
    while (Peek() == "[" && Peek(1) == "]") {
      pos_ += 2;
      t += "[]";
    }
    return t;
  }

  bool ParseDecl(const std::string& outer) {
    SkipAnnotations();
    std::string kind = Next();
    std::string name = Next();
    std::string qualified = outer.empty() ? name : outer + "." + name;
    if (!Expect("{")) return false;
    if (kind == "interface") return ParseInterface(name, qualified);
    if (kind == "enum") return ParseEnum(name);
    if (kind == "parcelable" || kind == "union") return ParseStruct(kind, name, qualified);
    ok_ = false;
    error_ = "unknown declaration kind '" + kind + "'";
    return false;
  }

  bool ParseInterface(const std::string& name, const std::string& qualified) {
    AidlInterface iface;
    iface.name = name;
    while (ok_ && !AtEnd() && Peek() != "}") {
      backing_ = "byte";
      SkipAnnotations();
      if (Peek() == "parcelable" || Peek() == "union" || Peek() == "enum" || Peek() == "interface") {
        if (!ParseDecl(qualified)) return false;
        continue;
      }
      AidlMethod m;
      m.oneway = Accept("oneway");
      m.ret = ParseType();
      m.name = Next();
      if (!Expect("(")) return false;
      while (ok_ && !Accept(")")) {
        SkipAnnotations();
        AidlArg a;
        a.dir = "in";
        if (Peek() == "in" || Peek() == "out" || Peek() == "inout") a.dir = Next();
        a.type = ParseType();
        a.name = Next();
        m.args.push_back(a);
        if (Peek() != ")" && !Expect(",")) return false;
      }
      if (!Expect(";")) return false;
      iface.methods.push_back(m);
    }
    if (!Expect("}")) return false;
    file_->interfaces[name] = iface;
    return true;
  }

  bool ParseEnum(const std::string& name) {
    AidlEnum e;
    e.name = name;
    e.backing = backing_;
    int64_t next = 0;
    while (ok_ && !Accept("}")) {
      SkipAnnotations();
      std::string id = Next();
      int64_t v = next;
      if (Accept("=")) {
        bool negative = Accept("-");
        std::string num = Next();
        v = std::strtoll(num.c_str(), nullptr, 0);
        if (negative) v = -v;
      }
      e.values.emplace_back(id, v);
      next = v + 1;
      if (Peek() != "}" && !Expect(",")) return false;
    }
    file_->enums[name] = e;
    return ok_;
  }

  bool ParseStruct(const std::string& kind, const std::string& name, const std::string& qualified) {
    AidlStruct st;
    st.kind = kind;
    st.name = name;
    while (ok_ && !Accept("}")) {
      backing_ = "byte";
      SkipAnnotations();
      if (Peek() == "parcelable" || Peek() == "union" || Peek() == "enum" || Peek() == "interface") {
        if (!ParseDecl(qualified)) return false;
        continue;
      }
      std::string type = ParseType();
      std::string field = Next();
      if (Accept("=")) {
        while (!AtEnd() && Peek() != ";") Next();
      }
      if (!Expect(";")) return false;
      st.fields.emplace_back(type, field);
    }
    file_->structs[name] = st;
    return ok_;
  }

  std::vector<std::string> toks_;
  size_t pos_ = 0;
  bool ok_ = true;
  std::string error_;
  std::string backing_ = "byte";
  AidlFile* file_ = nullptr;
};

// Parses the interface source once per process.
inline const AidlFile& ParsedAidl() {
  static const AidlFile* parsed = [] {
    auto* f = new AidlFile;
    std::string text, error;
    if (!ReadWholeFile(AidlPath(), &text)) {
      ADD_FAILURE() << "cannot read " << AidlPath();
    } else if (!AidlParser(text).Parse(f, &error)) {
      ADD_FAILURE() << AidlPath() << ": " << error;
    }
    return f;
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
inline UseCase Gen(Tag<UseCase>, int c, int s) {
  const auto& all = ::ndk::internal::enum_values<UseCase>;
  return all[static_cast<size_t>(c + s) % all.size()];
}
inline ParameterId Gen(Tag<ParameterId>, int c, int s) {
  const auto& all = ::ndk::internal::enum_values<ParameterId>;
  return all[static_cast<size_t>(c + s) % all.size()];
}
inline ParamValue Gen(Tag<ParamValue>, int c, int s) {
  if ((c + s) % 2) return ParamValue::make<ParamValue::f>(static_cast<float>(c + s) + 0.5f);
  return ParamValue::make<ParamValue::i>(-(c * 100 + s));
}
inline ParamIdElementPair Gen(Tag<ParamIdElementPair>, int c, int s) {
  ParamIdElementPair p;
  p.paramId = Gen(Tag<ParameterId>{}, c, s);
  p.element = Gen(Tag<int32_t>{}, c, s);
  return p;
}
inline std::vector<ParamIdElementPair> Gen(Tag<std::vector<ParamIdElementPair>>, int c, int s) {
  std::vector<ParamIdElementPair> v;
  for (int k = 0; k < 3; ++k) v.push_back(Gen(Tag<ParamIdElementPair>{}, c, s + k));
  return v;
}
inline std::vector<ParamValue> Gen(Tag<std::vector<ParamValue>>, int c, int s) {
  std::vector<ParamValue> v;
  for (int k = 0; k < 4; ++k) v.push_back(Gen(Tag<ParamValue>{}, c, s + k));
  return v;
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

// Reads a value of an AIDL type and checks it is the generated one. For an
// interface argument, checks a non-null binder arrives and hands it out.
inline ::testing::AssertionResult ReadExpectGen(const AParcel* p, const std::string& type, int c, int s,
                                                ::ndk::SpAIBinder* binderOut = nullptr) {
  if (type == "IReceiveAudioCallback") {
    ::ndk::SpAIBinder b;
    if (AParcel_readStrongBinder(p, b.getR()) != STATUS_OK) return ::testing::AssertionFailure() << "read binder";
    if (b.get() == nullptr) return ::testing::AssertionFailure() << "null callback binder";
    if (binderOut) *binderOut = b;
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
  std::vector<std::string> Calls() {
    std::lock_guard<std::mutex> lock(mu_);
    return calls_;
  }

#define LUMX_ENTER(name) const int c = Enter(name)
#define LUMX_CHECK(cond) \
  if (!(cond)) return Mismatch(c, __func__, #cond)

  ::ndk::ScopedAStatus Ping() override {
    LUMX_ENTER("Ping");
    (void)c;
    return ::ndk::ScopedAStatus::ok();
  }
  ::ndk::ScopedAStatus ShowGraph(CommandResult* r) override { return NoArgs("ShowGraph", r); }
  ::ndk::ScopedAStatus ListProcessors(CommandResult* r) override { return NoArgs("ListProcessors", r); }
  ::ndk::ScopedAStatus ListSupportedProcessors(CommandResult* r) override {
    return NoArgs("ListSupportedProcessors", r);
  }
  ::ndk::ScopedAStatus NewProcessor(int32_t id, CommandResult* r) override {
    LUMX_ENTER("NewProcessor");
    LUMX_CHECK(id == Gen<int32_t>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus NewProcessorWithType(int32_t id, int32_t type, CommandResult* r) override {
    LUMX_ENTER("NewProcessorWithType");
    LUMX_CHECK(id == Gen<int32_t>(c, 0) && type == Gen<int32_t>(c, 1));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus DeleteProcessor(int32_t id, CommandResult* r) override {
    LUMX_ENTER("DeleteProcessor");
    LUMX_CHECK(id == Gen<int32_t>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus ListSupportedUseCases(CommandResult* r) override { return NoArgs("ListSupportedUseCases", r); }
  ::ndk::ScopedAStatus Enable(const std::string& name, bool enable, CommandResult* r) override {
    LUMX_ENTER("Enable");
    LUMX_CHECK(name == Gen<std::string>(c, 0) && enable == Gen<bool>(c, 1));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus IsEnabled(const std::string& name, CommandResult* r) override {
    LUMX_ENTER("IsEnabled");
    LUMX_CHECK(name == Gen<std::string>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus ProcessorInfo(int32_t id, CommandResult* r) override {
    LUMX_ENTER("ProcessorInfo");
    LUMX_CHECK(id == Gen<int32_t>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus ProcessorEnable(int32_t id, bool enable, CommandResult* r) override {
    LUMX_ENTER("ProcessorEnable");
    LUMX_CHECK(id == Gen<int32_t>(c, 0) && enable == Gen<bool>(c, 1));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus ProcessorIsEnabled(int32_t id, CommandResult* r) override {
    LUMX_ENTER("ProcessorIsEnabled");
    LUMX_CHECK(id == Gen<int32_t>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus TapList(int32_t core, CommandResult* r) override {
    LUMX_ENTER("TapList");
    LUMX_CHECK(core == Gen<int32_t>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus TapInfo(int32_t core, int32_t tap, int32_t index, CommandResult* r) override {
    LUMX_ENTER("TapInfo");
    LUMX_CHECK(core == Gen<int32_t>(c, 0) && tap == Gen<int32_t>(c, 1) && index == Gen<int32_t>(c, 2));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus TapEnable(int32_t core, int32_t tap, int32_t index, bool enable, CommandResult* r) override {
    LUMX_ENTER("TapEnable");
    LUMX_CHECK(core == Gen<int32_t>(c, 0) && tap == Gen<int32_t>(c, 1) && index == Gen<int32_t>(c, 2) &&
               enable == Gen<bool>(c, 3));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus TapSetBlockLength(int32_t core, int32_t tap, int32_t index, int32_t len,
                                         CommandResult* r) override {
    LUMX_ENTER("TapSetBlockLength");
    LUMX_CHECK(core == Gen<int32_t>(c, 0) && tap == Gen<int32_t>(c, 1) && index == Gen<int32_t>(c, 2) &&
               len == Gen<int32_t>(c, 3));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus ListTapOutBuffers(CommandResult* r) override { return NoArgs("ListTapOutBuffers", r); }
  ::ndk::ScopedAStatus ListInjectBuffers(CommandResult* r) override { return NoArgs("ListInjectBuffers", r); }
  ::ndk::ScopedAStatus Connect(int32_t id, int32_t tapOut, int32_t inject, CommandResult* r) override {
    LUMX_ENTER("Connect");
    LUMX_CHECK(id == Gen<int32_t>(c, 0) && tapOut == Gen<int32_t>(c, 1) && inject == Gen<int32_t>(c, 2));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus ConnectTap(int32_t core, int32_t tap, int32_t index, int32_t tapOut, int32_t inject,
                                  CommandResult* r) override {
    LUMX_ENTER("ConnectTap");
    LUMX_CHECK(core == Gen<int32_t>(c, 0) && tap == Gen<int32_t>(c, 1) && index == Gen<int32_t>(c, 2) &&
               tapOut == Gen<int32_t>(c, 3) && inject == Gen<int32_t>(c, 4));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus StartIo(int32_t id, CommandResult* r) override {
    LUMX_ENTER("StartIo");
    LUMX_CHECK(id == Gen<int32_t>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus StopIo(int32_t id, CommandResult* r) override {
    LUMX_ENTER("StopIo");
    LUMX_CHECK(id == Gen<int32_t>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus Debug(const std::vector<std::string>& args, CommandResult* r) override {
    LUMX_ENTER("Debug");
    LUMX_CHECK(args == Gen<std::vector<std::string>>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus EnableUseCase(UseCase uc, bool enable, CommandResult* r) override {
    LUMX_ENTER("EnableUseCase");
    LUMX_CHECK(uc == Gen<UseCase>(c, 0) && enable == Gen<bool>(c, 1));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus IsUseCaseEnabled(UseCase uc, CommandResult* r) override {
    LUMX_ENTER("IsUseCaseEnabled");
    LUMX_CHECK(uc == Gen<UseCase>(c, 0));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus SetParameter(int32_t id, ParameterId pid, int32_t element, const ParamValue& value,
                                    CommandResult* r) override {
    LUMX_ENTER("SetParameter");
    LUMX_CHECK(id == Gen<int32_t>(c, 0) && pid == Gen<ParameterId>(c, 1) && element == Gen<int32_t>(c, 2) &&
               value == Gen<ParamValue>(c, 3));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus GetParameter(int32_t id, ParameterId pid, int32_t element, ParamValue* value,
                                    CommandResult* r) override {
    LUMX_ENTER("GetParameter");
    LUMX_CHECK(id == Gen<int32_t>(c, 0) && pid == Gen<ParameterId>(c, 1) && element == Gen<int32_t>(c, 2));
    *value = Gen<ParamValue>(c, 3);
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus SetParameterBulk(int32_t id, const std::vector<ParamIdElementPair>& params,
                                        const std::vector<ParamValue>& values, CommandResult* r) override {
    LUMX_ENTER("SetParameterBulk");
    LUMX_CHECK(id == Gen<int32_t>(c, 0) && params == Gen<std::vector<ParamIdElementPair>>(c, 1) &&
               values == Gen<std::vector<ParamValue>>(c, 2));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus GetParameterBulk(int32_t id, const std::vector<ParamIdElementPair>& params,
                                        CommandResult* result, std::vector<ParamValue>* values) override {
    LUMX_ENTER("GetParameterBulk");
    LUMX_CHECK(id == Gen<int32_t>(c, 0) && params == Gen<std::vector<ParamIdElementPair>>(c, 1));
    *result = Gen<CommandResult>(c, 2);
    *values = Gen<std::vector<ParamValue>>(c, kRetSlot);
    return ::ndk::ScopedAStatus::ok();
  }
  ::ndk::ScopedAStatus ListParameters(CommandResult* r) override { return NoArgs("ListParameters", r); }
  ::ndk::ScopedAStatus SendAudio(int32_t id, const AudioPacket& packet, CommandResult* r) override {
    LUMX_ENTER("SendAudio");
    LUMX_CHECK(id == Gen<int32_t>(c, 0) && packet == Gen<AudioPacket>(c, 1));
    return Answer(c, r);
  }
  ::ndk::ScopedAStatus RegisterReceiveAudioCallback(int32_t id, const std::shared_ptr<IReceiveAudioCallback>& cb,
                                                    CommandResult* r) override {
    LUMX_ENTER("RegisterReceiveAudioCallback");
    LUMX_CHECK(id == Gen<int32_t>(c, 0) && cb != nullptr);
    // One-way: returns once the packet is on its way.
    LUMX_CHECK(cb->ReceiveAudio(Gen<AudioPacket>(c, kCallbackSlot)).isOk());
    return Answer(c, r);
  }

#undef LUMX_ENTER
#undef LUMX_CHECK

 private:
  int Enter(const char* name) {
    std::lock_guard<std::mutex> lock(mu_);
    calls_.push_back(name);
    return CodeOf("ILumx", name);
  }
  ::ndk::ScopedAStatus NoArgs(const char* name, CommandResult* r) { return Answer(Enter(name), r); }
  static ::ndk::ScopedAStatus Answer(int c, CommandResult* r) {
    *r = Gen<CommandResult>(c, kRetSlot);
    return ::ndk::ScopedAStatus::ok();
  }
  static ::ndk::ScopedAStatus Mismatch(int c, const char* func, const char* what) {
    std::string msg = std::string(func) + ": arguments differ: " + what;
    return ::ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(c, msg.c_str());
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

inline ::testing::AssertionResult StatusOk(const ::ndk::ScopedAStatus& st) {
  if (st.isOk()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "binder status " << st.getDescription();
}

inline ::testing::AssertionResult ResultIs(const ::ndk::ScopedAStatus& st, const CommandResult& r, int c) {
  if (!st.isOk()) return StatusOk(st);
  return SameAs("CommandResult", r, Gen<CommandResult>(c, kRetSlot));
}

inline const std::map<std::string, ClientCall>& ClientCalls() {
  using ::testing::AssertionResult;
#define LUMX_CALL(name, ...)                                                 \
  {                                                                          \
    #name, [](ILumx& p, int c, CallContext& ctx) -> AssertionResult {        \
      (void)ctx;                                                             \
      CommandResult r;                                                       \
      ::ndk::ScopedAStatus st = p.name(__VA_ARGS__);                         \
      return ResultIs(st, r, c);                                             \
    }                                                                        \
  }
  static const std::map<std::string, ClientCall> calls = {
      {"Ping",
       [](ILumx& p, int, CallContext&) -> AssertionResult { return StatusOk(p.Ping()); }},
      LUMX_CALL(ShowGraph, &r),
      LUMX_CALL(ListProcessors, &r),
      LUMX_CALL(ListSupportedProcessors, &r),
      LUMX_CALL(NewProcessor, Gen<int32_t>(c, 0), &r),
      LUMX_CALL(NewProcessorWithType, Gen<int32_t>(c, 0), Gen<int32_t>(c, 1), &r),
      LUMX_CALL(DeleteProcessor, Gen<int32_t>(c, 0), &r),
      LUMX_CALL(ListSupportedUseCases, &r),
      LUMX_CALL(Enable, Gen<std::string>(c, 0), Gen<bool>(c, 1), &r),
      LUMX_CALL(IsEnabled, Gen<std::string>(c, 0), &r),
      LUMX_CALL(ProcessorInfo, Gen<int32_t>(c, 0), &r),
      LUMX_CALL(ProcessorEnable, Gen<int32_t>(c, 0), Gen<bool>(c, 1), &r),
      LUMX_CALL(ProcessorIsEnabled, Gen<int32_t>(c, 0), &r),
      LUMX_CALL(TapList, Gen<int32_t>(c, 0), &r),
      LUMX_CALL(TapInfo, Gen<int32_t>(c, 0), Gen<int32_t>(c, 1), Gen<int32_t>(c, 2), &r),
      LUMX_CALL(TapEnable, Gen<int32_t>(c, 0), Gen<int32_t>(c, 1), Gen<int32_t>(c, 2), Gen<bool>(c, 3), &r),
      LUMX_CALL(TapSetBlockLength, Gen<int32_t>(c, 0), Gen<int32_t>(c, 1), Gen<int32_t>(c, 2),
                Gen<int32_t>(c, 3), &r),
      LUMX_CALL(ListTapOutBuffers, &r),
      LUMX_CALL(ListInjectBuffers, &r),
      LUMX_CALL(Connect, Gen<int32_t>(c, 0), Gen<int32_t>(c, 1), Gen<int32_t>(c, 2), &r),
      LUMX_CALL(ConnectTap, Gen<int32_t>(c, 0), Gen<int32_t>(c, 1), Gen<int32_t>(c, 2), Gen<int32_t>(c, 3),
                Gen<int32_t>(c, 4), &r),
      LUMX_CALL(StartIo, Gen<int32_t>(c, 0), &r),
      LUMX_CALL(StopIo, Gen<int32_t>(c, 0), &r),
      LUMX_CALL(Debug, Gen<std::vector<std::string>>(c, 0), &r),
      LUMX_CALL(EnableUseCase, Gen<UseCase>(c, 0), Gen<bool>(c, 1), &r),
      LUMX_CALL(IsUseCaseEnabled, Gen<UseCase>(c, 0), &r),
      LUMX_CALL(SetParameter, Gen<int32_t>(c, 0), Gen<ParameterId>(c, 1), Gen<int32_t>(c, 2),
                Gen<ParamValue>(c, 3), &r),
      {"GetParameter",
       [](ILumx& p, int c, CallContext&) -> AssertionResult {
         CommandResult r;
         ParamValue v = ParamValue::make<ParamValue::f>(-1.0f);  // overwritten by the reply
         ::ndk::ScopedAStatus st = p.GetParameter(Gen<int32_t>(c, 0), Gen<ParameterId>(c, 1), Gen<int32_t>(c, 2), &v, &r);
         AssertionResult res = ResultIs(st, r, c);
         if (!res) return res;
         return SameAs("out value", v, Gen<ParamValue>(c, 3));
       }},
      LUMX_CALL(SetParameterBulk, Gen<int32_t>(c, 0), Gen<std::vector<ParamIdElementPair>>(c, 1),
                Gen<std::vector<ParamValue>>(c, 2), &r),
      {"GetParameterBulk",
       [](ILumx& p, int c, CallContext&) -> AssertionResult {
         CommandResult result;
         std::vector<ParamValue> values;
         ::ndk::ScopedAStatus st =
             p.GetParameterBulk(Gen<int32_t>(c, 0), Gen<std::vector<ParamIdElementPair>>(c, 1), &result, &values);
         if (!st.isOk()) return StatusOk(st);
         AssertionResult res = SameAs("out result", result, Gen<CommandResult>(c, 2));
         if (!res) return res;
         return SameAs("returned values", values, Gen<std::vector<ParamValue>>(c, kRetSlot));
       }},
      LUMX_CALL(ListParameters, &r),
      LUMX_CALL(SendAudio, Gen<int32_t>(c, 0), Gen<AudioPacket>(c, 1), &r),
      {"RegisterReceiveAudioCallback",
       [](ILumx& p, int c, CallContext& ctx) -> AssertionResult {
         CommandResult r;
         std::shared_ptr<IReceiveAudioCallback> cb = ctx.callback;
         ::ndk::ScopedAStatus st = p.RegisterReceiveAudioCallback(Gen<int32_t>(c, 0), cb, &r);
         AssertionResult res = ResultIs(st, r, c);
         if (!res || !ctx.serverCallsBack) return res;
         if (!ctx.callback->WaitFor(1)) return ::testing::AssertionFailure() << "callback never called";
         std::vector<AudioPacket> got = ctx.callback->Packets();
         return SameAs("called-back packet", got.back(), Gen<AudioPacket>(c, kCallbackSlot));
       }},
  };
#undef LUMX_CALL
  return calls;
}

}  // namespace lumx_aidl_test
