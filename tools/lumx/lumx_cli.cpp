#include "lumx_cli.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace lumx::cli {

namespace {

constexpr ArgSlot kProc{ArgKind::kCode, "processor", false};

// Builds an Operation from an initializer list of argument slots.
Operation Op(OpId id, const char* name, std::initializer_list<ArgSlot> args,
             const char* summary, bool reportsValue = false) {
  Operation op{};
  op.id = id;
  op.name = name;
  op.argCount = 0;
  for (const ArgSlot& a : args) op.args[op.argCount++] = a;
  op.reportsValue = reportsValue;
  op.summary = summary;
  op.tapAt = -1;
  // A <core> <tap> <index> group names one tap.
  for (int k = 0; k + 2 < op.argCount; ++k) {
    if (std::string_view(op.args[k].name) == "core" &&
        op.args[k + 1].kind == ArgKind::kCode &&
        std::string_view(op.args[k + 2].name) == "index") {
      op.tapAt = k;
    }
  }
  return op;
}

std::vector<Operation> BuildOperations() {
  const ArgSlot core{ArgKind::kInt, "core", false};
  const ArgSlot tap{ArgKind::kCode, "tap", false};
  const ArgSlot index{ArgKind::kInt, "index", false};
  const ArgSlot enable{ArgKind::kBool, "enable", false};
  const ArgSlot useCase{ArgKind::kUseCase, "useCase", false};
  const ArgSlot useCaseName{ArgKind::kString, "useCaseName", false};
  const ArgSlot param{ArgKind::kParamId, "param", false};
  const ArgSlot element{ArgKind::kInt, "element", false};
  const ArgSlot tapOut{ArgKind::kInt, "tapOutBuffer", false};
  const ArgSlot inject{ArgKind::kInt, "injectBuffer", false};
  return {
      Op(OpId::kPing, "Ping", {}, "check that the daemon answers"),
      Op(OpId::kShowGraph, "ShowGraph", {}, "connection graph report"),
      Op(OpId::kListProcessors, "ListProcessors", {}, "list processors"),
      Op(OpId::kListSupportedProcessors, "ListSupportedProcessors", {},
         "list processor types"),
      Op(OpId::kNewProcessor, "NewProcessor", {kProc},
         "create a processor whose type is its id"),
      Op(OpId::kNewProcessorWithType, "NewProcessorWithType",
         {kProc, {ArgKind::kCode, "type", false}}, "create a processor"),
      Op(OpId::kDeleteProcessor, "DeleteProcessor", {kProc},
         "delete a processor"),
      Op(OpId::kListSupportedUseCases, "ListSupportedUseCases", {},
         "list use cases"),
      Op(OpId::kEnable, "Enable", {useCaseName, enable},
         "switch a use case by name"),
      Op(OpId::kIsEnabled, "IsEnabled", {useCaseName},
         "state of a use case by name", true),
      Op(OpId::kProcessorInfo, "ProcessorInfo", {kProc},
         "describe a processor"),
      Op(OpId::kProcessorEnable, "ProcessorEnable", {kProc, enable},
         "enable or disable a processor"),
      Op(OpId::kProcessorIsEnabled, "ProcessorIsEnabled", {kProc},
         "whether a processor is enabled", true),
      Op(OpId::kTapList, "TapList", {core}, "list the taps of a DSP core"),
      Op(OpId::kTapInfo, "TapInfo", {core, tap, index}, "describe a tap"),
      Op(OpId::kTapEnable, "TapEnable", {core, tap, index, enable},
         "enable or disable a tap"),
      Op(OpId::kTapSetBlockLength, "TapSetBlockLength",
         {core, tap, index, {ArgKind::kInt, "blockLength", false}},
         "set a tap's block length"),
      Op(OpId::kListTapOutBuffers, "ListTapOutBuffers", {},
         "list tap-out buffers"),
      Op(OpId::kListInjectBuffers, "ListInjectBuffers", {},
         "list inject buffers"),
      Op(OpId::kConnect, "Connect", {kProc, tapOut, inject},
         "wire a processor between two buffers (-1: none)"),
      Op(OpId::kConnectTap, "ConnectTap", {core, tap, index, tapOut, inject},
         "bind a DSP tap to buffers (-1: none)"),
      Op(OpId::kStartIo, "StartIo", {{ArgKind::kInt, "buffer", false}},
         "start buffer I/O"),
      Op(OpId::kStopIo, "StopIo", {{ArgKind::kInt, "buffer", false}},
         "stop buffer I/O"),
      Op(OpId::kDebug, "Debug", {{ArgKind::kWords, "word...", true}},
         "debug command; no words shows its help"),
      Op(OpId::kEnableUseCase, "EnableUseCase", {useCase, enable},
         "switch a use case"),
      Op(OpId::kIsUseCaseEnabled, "IsUseCaseEnabled", {useCase},
         "state of a use case", true),
      Op(OpId::kSetParameter, "SetParameter",
         {kProc, param, element, {ArgKind::kParamValue, "value", false}},
         "set a processor parameter"),
      Op(OpId::kGetParameter, "GetParameter", {kProc, param, element},
         "read a processor parameter"),
      Op(OpId::kSetParameterBulk, "SetParameterBulk",
         {kProc, {ArgKind::kSetPairs, "param:element=value...", true}},
         "set several parameters"),
      Op(OpId::kGetParameterBulk, "GetParameterBulk",
         {kProc, {ArgKind::kGetPairs, "param:element...", true}},
         "read several parameters"),
      Op(OpId::kListParameters, "ListParameters", {}, "list parameter names"),
      Op(OpId::kSendAudio, "SendAudio",
         {kProc,
          {ArgKind::kFile, "FILE.wav", false},
          {ArgKind::kByte, "sampleRate", true},
          {ArgKind::kByte, "format", true},
          {ArgKind::kByte, "bitsPerSample", true},
          {ArgKind::kByte, "numChannels", true}},
         "send a WAV file's samples as one packet (codes default to 5 0 1 1)"),
      Op(OpId::kRegisterReceiveAudioCallback, "RegisterReceiveAudioCallback",
         {kProc},
         "register no callback, detaching the current client (see relay)"),
  };
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t k = 0; k < a.size(); ++k) {
    char x = a[k], y = b[k];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

bool StartsWith(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && s.substr(0, prefix.size()) == prefix;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool HasHexPrefix(std::string_view w) {
  return w.size() >= 2 && w[0] == '0' && (w[1] == 'x' || w[1] == 'X');
}

// "0x" followed by 1 to 8 hex digits.
bool ParseHex32(std::string_view w, uint32_t* out) {
  std::string_view digits = w.substr(2);
  if (digits.empty() || digits.size() > 8) return false;
  uint32_t v = 0;
  for (char c : digits) {
    int d = HexDigit(c);
    if (d < 0) return false;
    v = (v << 4) | static_cast<uint32_t>(d);
  }
  *out = v;
  return true;
}

// Optional sign and decimal digits, no more than fits in 64 bits.
bool ParseDecimal(std::string_view w, int64_t* out) {
  size_t k = 0;
  bool negative = false;
  if (k < w.size() && (w[k] == '-' || w[k] == '+')) {
    negative = w[k] == '-';
    ++k;
  }
  if (k == w.size() || w.size() - k > 12) return false;
  int64_t v = 0;
  for (; k < w.size(); ++k) {
    if (!IsDigit(w[k])) return false;
    v = v * 10 + (w[k] - '0');
  }
  *out = negative ? -v : v;
  return true;
}

std::string Quote(std::string_view w) { return "'" + std::string(w) + "'"; }

bool Fail(std::string* error, std::string message) {
  if (error) *error = std::move(message);
  return false;
}

struct NamedValue {
  const char* name;
  int value;
};

constexpr NamedValue kParameterIds[] = {
    {"UNSPECIFIED", -1}, {"VERSION", 0},      {"PASSTHROUGH_MODE", 1},
    {"TEST_MODE", 2},    {"BLOCK_LENGTH", 3}, {"AUDIO_FORMAT", 4},
};

constexpr NamedValue kUseCases[] = {
    {"UNSPECIFIED", -1}, {"HOTWORDAEC", 0}, {"MIC_IN", 1},
    {"SPEAKER_OUT", 2},  {"AREL_TELE", 3},
};

constexpr const char* kStatusNames[] = {
    "OK",          "ERROR",           "INVALID_PROCESSOR", "INVALID_PARAMETER",
    "INVALID_VALUE", "INVALID_ELEMENT", "READ_ONLY",
};

std::string FormatFloat(const char* fmt, double v) {
  char buf[64];
  snprintf(buf, sizeof(buf), fmt, v);
  return buf;
}

// Parses one positional argument of kind `slot.kind`.
bool ParseOne(const ArgSlot& slot, std::string_view word, int32_t paramId,
              Arg* arg, std::string* error) {
  arg->kind = slot.kind;
  switch (slot.kind) {
    case ArgKind::kInt:
      return ParseInt32(word, &arg->i, error);
    case ArgKind::kCode: {
      uint32_t code = 0;
      if (!ParseFourCC(word, &code, error)) return false;
      arg->i = static_cast<int32_t>(code);
      return true;
    }
    case ArgKind::kByte: {
      int32_t v = 0;
      if (!ParseInt32(word, &v, error)) return false;
      if (v < -128 || v > 255) return Fail(error, "a byte is -128 to 255");
      arg->i = v;
      return true;
    }
    case ArgKind::kBool:
      return ParseBool(word, &arg->b, error);
    case ArgKind::kString:
    case ArgKind::kFile:
      arg->s = std::string(word);
      return true;
    case ArgKind::kUseCase: {
      int8_t u = 0;
      if (!ParseUseCase(word, &u, error)) return false;
      arg->i = u;
      return true;
    }
    case ArgKind::kParamId:
      return ParseParameterId(word, &arg->i, error);
    case ArgKind::kParamValue:
      return ParseParamValueFor(paramId, word, &arg->value, error);
    case ArgKind::kWords:
    case ArgKind::kSetPairs:
    case ArgKind::kGetPairs:
      break;  // handled by the caller: they take all remaining words
  }
  return Fail(error, "internal: unexpected argument kind");
}

bool ParseRelay(const std::vector<std::string>& words, size_t k,
                CommandLine* out, std::string* error) {
  const std::string usage = " (usage: " + UsageLine(RelayOperation()) + ")";
  if (k >= words.size()) return Fail(error, "relay: missing processor" + usage);
  if (!ParseFourCC(words[k], &out->relay.processor, error)) {
    *error = "relay: processor " + Quote(words[k]) + ": " + *error;
    return false;
  }
  ++k;
  while (k < words.size()) {
    std::string_view w = words[k];
    std::string name(w), value;
    bool inlineValue = false;
    size_t eq = w.find('=');
    if (StartsWith(w, "--") && eq != std::string_view::npos) {
      name = std::string(w.substr(0, eq));
      value = std::string(w.substr(eq + 1));
      inlineValue = true;
    }
    if (name == "--json-stats" && !inlineValue) {
      out->relay.jsonStats = true;
      ++k;
      continue;
    }
    if (name != "--record" && name != "--play" && name != "--seconds") {
      return Fail(error, "relay: unknown option " + Quote(w) + usage);
    }
    if (!inlineValue) {
      if (k + 1 >= words.size()) {
        return Fail(error, "relay: " + name + " needs a value" + usage);
      }
      value = words[k + 1];
      k += 2;
    } else {
      ++k;
    }
    if (name == "--seconds") {
      std::string why;
      if (!ParseSeconds(value, &out->relay.seconds, &why)) {
        return Fail(error, "relay: --seconds " + Quote(value) + ": " + why);
      }
    } else {
      if (value.empty()) {
        return Fail(error, "relay: " + name + " needs a file name" + usage);
      }
      (name == "--record" ? out->relay.record : out->relay.play) = value;
    }
  }
  return true;
}

}  // namespace

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> ops = BuildOperations();
  return ops;
}

const std::vector<Operation>& ToolCommands() {
  static const std::vector<Operation> commands = {
      Op(OpId::kRelay, "relay",
         {kProc,
          {ArgKind::kFile, "--record FILE.wav", true},
          {ArgKind::kFile, "--play FILE.wav", true},
          {ArgKind::kString, "--seconds N", true},
          {ArgKind::kString, "--json-stats", true}},
         "stream audio with a relay processor"),
      Op(OpId::kDump, "dump", {{ArgKind::kWords, "word...", true}},
         "the daemon's state and counters (--reset clears)"),
      Op(OpId::kTop, "top", {{ArgKind::kString, "--once", true}},
         "streams, every second; q quits (--once: one table)"),
      Op(OpId::kGraph, "graph",
         {{ArgKind::kString, "--dot", true},
          {ArgKind::kFile, "--png FILE", true},
          {ArgKind::kFile, "--svg FILE", true}},
         "connection graph: DOT, or a picture drawn by dot"),
      Op(OpId::kVersion, "version", {},
         "interface version and hash, daemon's and lumx's"),
      Op(OpId::kHelp, "help", {{ArgKind::kString, "operation", true}},
         "this text, or one operation's"),
  };
  return commands;
}

const Operation& RelayOperation() { return ToolCommands().front(); }

const Operation* FindOperation(std::string_view name) {
  for (const Operation& op : Operations()) {
    if (EqualsIgnoreCase(op.name, name)) return &op;
  }
  for (const Operation& op : ToolCommands()) {
    if (EqualsIgnoreCase(op.name, name)) return &op;
  }
  return nullptr;
}

bool ParseInt32(std::string_view w, int32_t* out, std::string* error) {
  if (HasHexPrefix(w)) {
    uint32_t v = 0;
    if (!ParseHex32(w, &v)) {
      return Fail(error, "expected 0x and 1 to 8 hex digits");
    }
    *out = static_cast<int32_t>(v);
    return true;
  }
  int64_t v = 0;
  if (!ParseDecimal(w, &v)) return Fail(error, "expected an integer");
  if (v < INT32_MIN || v > INT32_MAX) {
    return Fail(error, "integer out of the 32-bit range");
  }
  *out = static_cast<int32_t>(v);
  return true;
}

bool ParseFourCC(std::string_view w, uint32_t* out, std::string* error) {
  if (w.size() == 4) {
    uint32_t v = 0;
    for (char c : w) {
      auto u = static_cast<unsigned char>(c);
      if (u < 0x20 || u > 0x7e) {
        return Fail(error, "a four-character code must be printable ASCII");
      }
      v = (v << 8) | u;
    }
    *out = v;
    return true;
  }
  if (HasHexPrefix(w)) {
    if (!ParseHex32(w, out)) {
      return Fail(error, "expected 0x and 1 to 8 hex digits");
    }
    return true;
  }
  bool allDigits = !w.empty() && w.size() <= 10;
  for (char c : w) allDigits = allDigits && IsDigit(c);
  if (allDigits) {
    int64_t v = 0;
    ParseDecimal(w, &v);
    if (v > UINT32_MAX) return Fail(error, "code out of the 32-bit range");
    *out = static_cast<uint32_t>(v);
    return true;
  }
  return Fail(error,
              "a code is exactly four characters, 0x<hex> or a decimal number");
}

bool ParseBool(std::string_view w, bool* out, std::string* error) {
  for (const char* yes : {"1", "true", "on", "yes"}) {
    if (EqualsIgnoreCase(w, yes)) {
      *out = true;
      return true;
    }
  }
  for (const char* no : {"0", "false", "off", "no"}) {
    if (EqualsIgnoreCase(w, no)) {
      *out = false;
      return true;
    }
  }
  return Fail(error, "expected 1, 0, true, false, on, off, yes or no");
}

bool ParseUseCase(std::string_view w, int8_t* out, std::string* error) {
  for (const NamedValue& u : kUseCases) {
    if (EqualsIgnoreCase(w, u.name)) {
      *out = static_cast<int8_t>(u.value);
      return true;
    }
  }
  int32_t v = 0;
  if (!ParseInt32(w, &v, nullptr) || v < -128 || v > 127) {
    return Fail(error,
                "expected a use case (UNSPECIFIED, HOTWORDAEC, MIC_IN, "
                "SPEAKER_OUT, AREL_TELE) or a number from -128 to 127");
  }
  *out = static_cast<int8_t>(v);
  return true;
}

bool ParseParameterId(std::string_view w, int32_t* out, std::string* error) {
  for (const NamedValue& p : kParameterIds) {
    if (EqualsIgnoreCase(w, p.name)) {
      *out = p.value;
      return true;
    }
  }
  if (!ParseInt32(w, out, nullptr)) {
    return Fail(error,
                "expected a parameter (UNSPECIFIED, VERSION, PASSTHROUGH_MODE, "
                "TEST_MODE, BLOCK_LENGTH, AUDIO_FORMAT) or a number");
  }
  return true;
}

bool ParseParamValue(std::string_view w, ParamValueArg* out,
                     std::string* error) {
  if (StartsWith(w, "i:") || StartsWith(w, "I:")) {
    std::string why;
    if (!ParseInt32(w.substr(2), &out->i, &why)) {
      return Fail(error, "i: value: " + why);
    }
    out->isFloat = false;
    out->f = 0.0f;
    return true;
  }
  if (StartsWith(w, "f:") || StartsWith(w, "F:")) {
    std::string text(w.substr(2));
    // strtof accepts leading blanks and hex floats; only plain decimal
    // notation is meant here.
    bool plain = !text.empty();
    for (char c : text) {
      plain = plain && (IsDigit(c) || c == '.' || c == '-' || c == '+' ||
                        c == 'e' || c == 'E');
    }
    char* end = nullptr;
    errno = 0;
    float f = plain ? strtof(text.c_str(), &end) : 0.0f;
    if (!plain || end != text.c_str() + text.size() || errno == ERANGE ||
        !std::isfinite(f)) {
      return Fail(error, "f: value: expected a finite decimal number");
    }
    out->isFloat = true;
    out->f = f;
    out->i = 0;
    return true;
  }
  return Fail(error, "expected i:<integer> or f:<float>");
}

bool ParseParamValueFor(int32_t paramId, std::string_view w,
                        ParamValueArg* out, std::string* error) {
  if (w.size() >= 2 && w[1] == ':') return ParseParamValue(w, out, error);
  const std::string name = ParameterIdName(paramId);
  // Every parameter a processor knows is an integer; an id without a name
  // has no known type.
  if (paramId < 0 || paramId > 4) {
    return Fail(error, "the type of parameter " + name +
                           " is not known: write i:<integer> or f:<float>");
  }
  bool b = false;
  if ((paramId == 1 || paramId == 2) && !IsDigit(w.empty() ? ' ' : w[0]) &&
      ParseBool(w, &b, nullptr)) {
    *out = ParamValueArg{false, b ? 1 : 0, 0.0f};
    return true;
  }
  int32_t v = 0;
  if (!ParseInt32(w, &v, nullptr)) {
    return Fail(error, name + " is an integer: expected an integer, or f:" +
                           std::string(w) + " to send a float anyway");
  }
  *out = ParamValueArg{false, v, 0.0f};
  return true;
}

bool ParseParamPair(std::string_view w, ParamPair* out, std::string* error) {
  size_t colon = w.find(':');
  if (colon == std::string_view::npos) {
    return Fail(error, "expected <param>:<element>");
  }
  std::string why;
  if (!ParseParameterId(w.substr(0, colon), &out->paramId, &why)) {
    return Fail(error, "param: " + why);
  }
  if (!ParseInt32(w.substr(colon + 1), &out->element, &why)) {
    return Fail(error, "element: " + why);
  }
  return true;
}

bool ParseSetPair(std::string_view w, ParamPair* pair, ParamValueArg* value,
                  std::string* error) {
  size_t eq = w.find('=');
  if (eq == std::string_view::npos) {
    return Fail(error, "expected <param>:<element>=<value>");
  }
  if (!ParseParamPair(w.substr(0, eq), pair, error)) return false;
  std::string why;
  if (!ParseParamValueFor(pair->paramId, w.substr(eq + 1), value, &why)) {
    return Fail(error, "value: " + why);
  }
  return true;
}

bool ParseSeconds(std::string_view w, double* out, std::string* error) {
  std::string text(w);
  bool plain = !text.empty();
  for (char c : text) plain = plain && (IsDigit(c) || c == '.');
  char* end = nullptr;
  double v = plain ? strtod(text.c_str(), &end) : 0.0;
  if (!plain || end != text.c_str() + text.size() || !(v > 0.0) ||
      v > 1e7) {
    return Fail(error, "expected a positive number of seconds");
  }
  *out = v;
  return true;
}

namespace {

bool IsOptionWord(std::string_view w) { return w.size() > 2 && StartsWith(w, "--"); }

// "--name VALUE" or "--name=VALUE" at words[*k]; advances *k past it.
bool TakeOptionValue(const std::vector<std::string>& words, size_t* k,
                     std::string_view name, std::string* value, bool* taken,
                     std::string* error) {
  std::string_view w = words[*k];
  *taken = false;
  if (w == name) {
    if (*k + 1 >= words.size()) {
      return Fail(error, std::string(name) + " needs a value");
    }
    *value = words[*k + 1];
    *k += 2;
    *taken = true;
  } else if (StartsWith(w, name) && w.size() > name.size() &&
             w[name.size()] == '=') {
    *value = std::string(w.substr(name.size() + 1));
    *k += 1;
    *taken = true;
  }
  return true;
}

// Splits <core>:<tap>.<index> and <tap>.<index> into the three words of a
// tap group starting at words[at]. A word of exactly four characters is a
// code even if it holds a point ("ab.1"); the index follows the last point.
void ExpandTapWords(std::vector<std::string>* words, size_t at) {
  if (at < words->size()) {
    const std::string w = (*words)[at];
    size_t colon = w.find(':');
    int32_t core = 0;
    if (colon != std::string::npos && colon > 0 &&
        ParseInt32(std::string_view(w).substr(0, colon), &core, nullptr)) {
      (*words)[at] = w.substr(0, colon);
      words->insert(words->begin() + static_cast<long>(at) + 1, w.substr(colon + 1));
    }
  }
  if (at + 1 < words->size()) {
    const std::string w = (*words)[at + 1];
    size_t dot = w.rfind('.');
    if (w.size() != 4 && dot != std::string::npos && dot > 0 && dot + 1 < w.size()) {
      bool digits = true;
      for (size_t j = dot + 1; j < w.size(); ++j) digits = digits && IsDigit(w[j]);
      if (digits) {
        (*words)[at + 1] = w.substr(0, dot);
        words->insert(words->begin() + static_cast<long>(at) + 2, w.substr(dot + 1));
      }
    }
  }
}

bool ParseGraph(const std::vector<std::string>& words, CommandLine* out,
                std::string* error) {
  const std::string usage = " (usage: lumx graph [--dot] [--png FILE] [--svg FILE])";
  for (size_t k = 1; k < words.size();) {
    if (words[k] == "--dot") {
      out->graph.dot = true;
      ++k;
      continue;
    }
    bool taken = false;
    for (const char* name : {"--png", "--svg"}) {
      std::string value;
      if (!TakeOptionValue(words, &k, name, &value, &taken, error)) {
        *error = "graph: " + *error + usage;
        return false;
      }
      if (!taken) continue;
      if (value.empty()) return Fail(error, std::string("graph: ") + name + " needs a file name");
      (std::string_view(name) == "--png" ? out->graph.png : out->graph.svg) = value;
      break;
    }
    if (!taken) return Fail(error, "graph: unexpected argument " + Quote(words[k]) + usage);
  }
  if (out->graph.png.empty() && out->graph.svg.empty()) out->graph.dot = true;
  return true;
}

}  // namespace

bool ParseCommandLine(const std::vector<std::string>& words, CommandLine* out,
                      std::string* error) {
  *out = CommandLine{};
  // --json is found first, so that a line refused for any other reason is
  // still answered in JSON.
  for (const std::string& w : words) {
    if (w == "--") break;
    if (w == "--json") out->json = true;
  }
  // The tool's options may stand anywhere; "--" ends them, so a word after it
  // is always an argument. What remains are the command and its arguments.
  std::vector<std::string> pos;
  bool help = false, literal = false;
  size_t firstLiteral = SIZE_MAX;
  for (size_t k = 0; k < words.size();) {
    const std::string& w = words[k];
    if (!literal) {
      if (w == "--") {
        literal = true;
        firstLiteral = pos.size();
        ++k;
        continue;
      }
      if (w == "--json") {
        ++k;
        continue;
      }
      if (w == "--help" || w == "-h") {
        help = true;
        ++k;
        continue;
      }
      std::string value;
      bool taken = false;
      if (!TakeOptionValue(words, &k, "--timeout", &value, &taken, error)) return false;
      if (taken) {
        int32_t ms = -1;
        if (!ParseInt32(value, &ms, nullptr) || ms < 0 || ms > kMaxTimeoutMs) {
          return Fail(error, "--timeout " + Quote(value) + ": expected milliseconds from 0 to " +
                                 std::to_string(kMaxTimeoutMs));
        }
        out->timeoutMs = ms;
        continue;
      }
    }
    pos.push_back(w);
    ++k;
  }
  if (pos.empty()) {
    if (help) return true;  // kHelp, the whole text
    out->showUsage = true;
    return Fail(error, "no operation given (see lumx help)");
  }
  if (firstLiteral != 0 && IsOptionWord(pos[0])) {
    return Fail(error, "unknown option " + Quote(pos[0]) + " (see lumx help)");
  }
  const Operation* op = FindOperation(pos[0]);
  if (!op) {
    return Fail(error, "unknown operation " + Quote(pos[0]) + " (see lumx help)");
  }
  out->op = op;
  if (help) return true;  // kHelp about `op`
  if (op->id == OpId::kHelp) {
    out->op = nullptr;
    if (pos.size() > 2) return Fail(error, "help: unexpected argument " + Quote(pos[2]));
    if (pos.size() == 2) {
      out->op = FindOperation(pos[1]);
      if (!out->op) return Fail(error, "help: unknown operation " + Quote(pos[1]));
    }
    return true;
  }
  // Words after "--" are never options, whatever they look like.
  auto optionAt = [&](size_t k) { return k < firstLiteral && IsOptionWord(pos[k]); };
  switch (op->id) {
    case OpId::kRelay:
      out->mode = CommandLine::Mode::kRelay;
      if (out->json) out->relay.jsonStats = true;
      out->relay.timeoutMs = out->timeoutMs;
      return ParseRelay(pos, 1, out, error);
    case OpId::kDump:
      // Every word is the dump's own, options included; --json asks the
      // service for its JSON form as well.
      out->mode = CommandLine::Mode::kDump;
      out->dumpArgs.assign(pos.begin() + 1, pos.end());
      if (out->json) out->dumpArgs.push_back("--json");
      return true;
    case OpId::kTop:
      out->mode = CommandLine::Mode::kTop;
      for (size_t k = 1; k < pos.size(); ++k) {
        if (pos[k] != "--once") {
          return Fail(error, "top: unexpected argument " + Quote(pos[k]) + " (usage: lumx top [--once])");
        }
        out->once = true;
      }
      return true;
    case OpId::kGraph:
      out->mode = CommandLine::Mode::kGraph;
      return ParseGraph(pos, out, error);
    case OpId::kVersion:
      out->mode = CommandLine::Mode::kVersion;
      if (pos.size() > 1) return Fail(error, "version: unexpected argument " + Quote(pos[1]));
      return true;
    default:
      break;
  }

  out->mode = CommandLine::Mode::kCall;
  const std::string usage = " (usage: " + UsageLine(*op) + ")";
  for (size_t k = 1; k < pos.size(); ++k) {
    if (optionAt(k)) {
      return Fail(error, std::string(op->name) + ": unknown option " + Quote(pos[k]) +
                             " (write -- before a word that starts with --)");
    }
  }
  std::vector<std::string> argWords(pos.begin() + 1, pos.end());
  if (op->tapAt >= 0) ExpandTapWords(&argWords, static_cast<size_t>(op->tapAt));
  const std::string tapForms =
      op->tapAt >= 0 ? " (a tap is <core> <tap> <index>, <core> <tap>.<index> or <core>:<tap>.<index>)" : "";
  size_t k = 0;
  int32_t paramId = -1;
  for (int a = 0; a < op->argCount; ++a) {
    const ArgSlot& slot = op->args[a];
    Arg arg;
    arg.kind = slot.kind;
    if (slot.kind == ArgKind::kWords || slot.kind == ArgKind::kSetPairs ||
        slot.kind == ArgKind::kGetPairs) {
      for (; k < argWords.size(); ++k) {
        const std::string& w = argWords[k];
        if (slot.kind == ArgKind::kWords) {
          arg.words.push_back(w);
          continue;
        }
        ParamPair pair;
        ParamValueArg value;
        std::string why;
        bool ok = slot.kind == ArgKind::kSetPairs
                      ? ParseSetPair(w, &pair, &value, &why)
                      : ParseParamPair(w, &pair, &why);
        if (!ok) {
          return Fail(error, std::string(op->name) + ": " + Quote(w) + ": " +
                                 why + usage);
        }
        arg.pairs.push_back(pair);
        if (slot.kind == ArgKind::kSetPairs) arg.values.push_back(value);
      }
      out->args.push_back(std::move(arg));
      continue;
    }
    if (k >= argWords.size()) {
      if (!slot.optional) {
        return Fail(error, std::string(op->name) + ": missing <" + slot.name +
                               ">" + usage + tapForms);
      }
      arg.present = false;
      out->args.push_back(std::move(arg));
      continue;
    }
    std::string why;
    if (!ParseOne(slot, argWords[k], paramId, &arg, &why)) {
      const bool inTap = op->tapAt >= 0 && a >= op->tapAt && a <= op->tapAt + 2;
      return Fail(error, std::string(op->name) + ": <" + slot.name + "> " +
                             Quote(argWords[k]) + ": " + why + (inTap ? tapForms : ""));
    }
    if (slot.kind == ArgKind::kParamId) paramId = arg.i;
    ++k;
    out->args.push_back(std::move(arg));
  }
  if (k < argWords.size()) {
    return Fail(error, std::string(op->name) + ": unexpected argument " +
                           Quote(argWords[k]) + usage);
  }
  return true;
}

std::string FourCCToString(uint32_t code) {
  std::string s(4, '\0');
  for (int k = 0; k < 4; ++k) {
    s[k] = static_cast<char>((code >> (24 - 8 * k)) & 0xff);
  }
  return s;
}

std::string StatusName(int status) {
  if (status >= 0 && status <= 6) return kStatusNames[status];
  return std::to_string(status);
}

int ExitCodeForStatus(int status) {
  return status >= 0 && status <= 6 ? status : 1;
}

std::string ParameterIdName(int32_t id) {
  for (const NamedValue& p : kParameterIds) {
    if (p.value == id) return p.name;
  }
  return std::to_string(id);
}

std::string UseCaseName(int8_t useCase) {
  for (const NamedValue& u : kUseCases) {
    if (u.value == useCase) return u.name;
  }
  return std::to_string(useCase);
}

std::string FormatParamValue(const ParamValueArg& v) {
  if (v.isFloat) return "f:" + FormatFloat("%.9g", v.f);
  return "i:" + std::to_string(v.i);
}

std::string FormatText(const Operation& op, const Outcome& outcome) {
  std::string out;
  for (const std::string& line : outcome.lines) {
    out += line;
    out += '\n';
  }
  if (op.reportsValue || outcome.value != 0.0f) {
    out += "value: " + FormatFloat("%f", outcome.value) + "\n";
  }
  if (outcome.param) out += "param: " + FormatParamValue(*outcome.param) + "\n";
  if (outcome.values) {
    for (const ParamValueArg& v : *outcome.values) {
      out += "param: " + FormatParamValue(v) + "\n";
    }
  }
  return out;
}

namespace {

std::string JsonParamValue(const ParamValueArg& v) {
  if (v.isFloat) return "{\"f\":" + JsonNumber(v.f) + "}";
  return "{\"i\":" + std::to_string(v.i) + "}";
}

// Length of the valid UTF-8 sequence starting at s[k], or 0 if invalid.
size_t Utf8SequenceLength(std::string_view s, size_t k) {
  auto byte = [&](size_t j) { return static_cast<unsigned char>(s[j]); };
  unsigned char c = byte(k);
  size_t len;
  uint32_t cp;
  if (c < 0x80) return 1;
  if (c >= 0xc2 && c <= 0xdf) {
    len = 2;
    cp = c & 0x1f;
  } else if (c >= 0xe0 && c <= 0xef) {
    len = 3;
    cp = c & 0x0f;
  } else if (c >= 0xf0 && c <= 0xf4) {
    len = 4;
    cp = c & 0x07;
  } else {
    return 0;
  }
  if (k + len > s.size()) return 0;
  for (size_t j = 1; j < len; ++j) {
    if ((byte(k + j) & 0xc0) != 0x80) return 0;
    cp = (cp << 6) | (byte(k + j) & 0x3f);
  }
  // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
  if ((len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000) ||
      (cp >= 0xd800 && cp <= 0xdfff) || cp > 0x10ffff) {
    return 0;
  }
  return len;
}

}  // namespace

std::string JsonString(std::string_view s) {
  std::string out = "\"";
  size_t k = 0;
  while (k < s.size()) {
    auto c = static_cast<unsigned char>(s[k]);
    switch (c) {
      case '"': out += "\\\""; ++k; continue;
      case '\\': out += "\\\\"; ++k; continue;
      case '\b': out += "\\b"; ++k; continue;
      case '\f': out += "\\f"; ++k; continue;
      case '\n': out += "\\n"; ++k; continue;
      case '\r': out += "\\r"; ++k; continue;
      case '\t': out += "\\t"; ++k; continue;
      default: break;
    }
    size_t len = c < 0x20 ? 0 : Utf8SequenceLength(s, k);
    if (len == 0) {
      char buf[8];
      snprintf(buf, sizeof(buf), "\\u%04x", c);
      out += buf;
      ++k;
    } else {
      out.append(s.data() + k, len);
      k += len;
    }
  }
  out += '"';
  return out;
}

std::string JsonNumber(double v) {
  if (!std::isfinite(v)) return "null";
  return FormatFloat("%.9g", v);
}

std::string FormatJson(const Operation& op, const Outcome& outcome) {
  std::string out = "{\"op\":" + JsonString(op.name);
  out += ",\"status\":" + std::to_string(outcome.status);
  out += ",\"statusName\":" + JsonString(StatusName(outcome.status));
  out += ",\"value\":" + JsonNumber(outcome.value);
  out += ",\"lines\":[";
  for (size_t k = 0; k < outcome.lines.size(); ++k) {
    if (k) out += ',';
    out += JsonString(outcome.lines[k]);
  }
  out += ']';
  if (outcome.param) out += ",\"param\":" + JsonParamValue(*outcome.param);
  if (outcome.values) {
    out += ",\"values\":[";
    for (size_t k = 0; k < outcome.values->size(); ++k) {
      if (k) out += ',';
      out += JsonParamValue((*outcome.values)[k]);
    }
    out += ']';
  }
  if (!outcome.hint.empty()) out += ",\"hint\":" + JsonString(outcome.hint);
  out += "}\n";
  return out;
}

std::string ErrorJson(const Operation* op, std::string_view error, int exitCode) {
  return "{\"op\":" + (op ? JsonString(op->name) : std::string("null")) +
         ",\"error\":" + JsonString(error) + ",\"exitCode\":" + std::to_string(exitCode) +
         "}\n";
}

std::string TapRefusalHint(const Operation& op, const std::vector<Arg>& args,
                           const Outcome& outcome) {
  if (op.tapAt < 0 || outcome.status == 0 || args.size() < static_cast<size_t>(op.tapAt) + 3) {
    return "";
  }
  const auto code = static_cast<uint32_t>(args[op.tapAt + 1].i);
  std::string text = FourCCToString(code);
  bool printable = true;
  for (char c : text) printable = printable && c >= 0x20 && c <= 0x7e;
  char hex[16];
  snprintf(hex, sizeof(hex), "0x%08x", code);
  return "tap " + std::to_string(args[op.tapAt].i) + ":" + (printable ? text : std::string(hex)) +
         "." + std::to_string(args[op.tapAt + 2].i) + " was sent as code " + hex +
         (printable ? " (the text \"" + text + "\")" : std::string()) + "; " + kCodeRule;
}

std::string UsageLine(const Operation& op) {
  std::string line = std::string("lumx ") + op.name;
  for (int a = 0; a < op.argCount; ++a) {
    const ArgSlot& slot = op.args[a];
    line += ' ';
    line += slot.optional ? "[" : "<";
    line += slot.name;
    line += slot.optional ? "]" : ">";
  }
  return line;
}

namespace {

// What each kind of argument accepts, for the help texts.
struct KindHelp {
  const char* words;
  const char* text;
};
const KindHelp kKindHelp[] = {
    {"<processor> <type> <tap>",
     "four-character code. The rule: a word of exactly\n"
     "four characters is the code's text (1234 is the\n"
     "text \"1234\", pas1 is 0x70617331); 0x<hex> (1 to 8\n"
     "digits) or any other all-digit word is a number\n"
     "(0x4d2, 01234)"},
    {"<core> <tap> <index>",
     "one tap; also <core> <tap>.<index> or\n"
     "<core>:<tap>.<index> as TapList and ShowGraph\n"
     "print taps (2:imic.0, 2 imic.0)"},
    {"integers", "decimal (may be negative: -1 means no buffer)\nor 0x<hex>"},
    {"<enable>", "1, 0, true, false, on, off, yes, no (any case)"},
    {"<useCase>", "UNSPECIFIED, HOTWORDAEC, MIC_IN, SPEAKER_OUT,\nAREL_TELE (any case) or a number"},
    {"<param>", "UNSPECIFIED, VERSION, PASSTHROUGH_MODE, TEST_MODE,\nBLOCK_LENGTH, AUDIO_FORMAT (any case) or a number"},
    {"<value>",
     "i:<integer> or f:<float>; a named parameter (all\n"
     "are integers) also takes a bare integer, and\n"
     "PASSTHROUGH_MODE and TEST_MODE the <enable> words"},
};

void AddKindHelp(std::string* out, const KindHelp& k) {
  std::string words = k.words;
  *out += "  " + words;
  const size_t indent = 28;
  size_t width = 2 + words.size();
  std::string text = k.text;
  bool first = true;
  size_t from = 0;
  while (from <= text.size()) {
    size_t nl = text.find('\n', from);
    std::string line = text.substr(from, nl == std::string::npos ? std::string::npos : nl - from);
    if (first && width < indent) {
      *out += std::string(indent - width, ' ');
    } else {
      *out += "\n" + std::string(indent, ' ');
    }
    *out += line;
    first = false;
    if (nl == std::string::npos) break;
    from = nl + 1;
  }
  *out += '\n';
}

void AddOperationLine(std::string* out, const Operation& op) {
  std::string line = UsageLine(op).substr(5);  // without "lumx "
  *out += "  " + line;
  size_t width = 2 + line.size();
  if (width < 56) {
    *out += std::string(56 - width, ' ');
  } else {
    *out += "\n" + std::string(56, ' ');
  }
  *out += op.summary;
  *out += '\n';
}

const char kOptionsHelp[] =
    "Options (anywhere on the line; a word after -- is never an option):\n"
    "  --json        print one JSON object per answer; a refused command line\n"
    "                or an unreachable daemon gives an object with \"error\"\n"
    "  --timeout MS  how long to look for the daemon (default 1000)\n"
    "  --help, -h    this text, or the operation's when one is named\n";

}  // namespace

std::string UsageText() {
  std::string out =
      "usage: lumx [options] <operation> [arguments...]\n"
      "       lumx [options] relay <processor> [--record FILE.wav] [--play FILE.wav]\n"
      "                          [--seconds N] [--json-stats]\n"
      "       lumx [options] dump [word...]\n"
      "       lumx [options] top [--once]\n"
      "       lumx [options] graph [--dot] [--png FILE] [--svg FILE]\n"
      "       lumx [options] version\n"
      "       lumx help [operation]\n"
      "\n"
      "Calls one operation of the lumxd service ";
  out += kServiceName;
  out +=
      ".\n"
      "Operation names are case-insensitive; arguments follow in order.\n"
      "\n";
  out += kOptionsHelp;
  out += "\nOperations:\n";
  for (const Operation& op : Operations()) AddOperationLine(&out, op);
  out += "\nCommands of the tool:\n";
  for (const Operation& op : ToolCommands()) AddOperationLine(&out, op);
  out += "\nArguments:\n";
  for (const KindHelp& k : kKindHelp) AddKindHelp(&out, k);
  out +=
      "\n"
      "Output: the answer's text lines; then \"value: <float>\" (for the\n"
      "Is*Enabled operations, or any non-zero value) and \"param: i:<n>\" or\n"
      "\"param: f:<x>\" lines for values read. --json prints one JSON object.\n"
      "\n"
      "Exit status: the answer's status (0 OK, 1 ERROR, 2 INVALID_PROCESSOR,\n"
      "3 INVALID_PARAMETER, 4 INVALID_VALUE, 5 INVALID_ELEMENT, 6 READ_ONLY);\n"
      "64 bad command line, 65 bad input file, 66 input file not readable,\n"
      "69 daemon unreachable, call failed, or Graphviz's dot missing,\n"
      "70 internal error, 73 output file cannot be created, 74 writing the\n"
      "output file failed, 75 relay displaced by another client.\n";
  return out;
}

std::string OperationHelp(const Operation& op) {
  std::string out = "usage: " + UsageLine(op) + "\n  " + op.summary + "\n";
  std::vector<const KindHelp*> kinds;
  auto want = [&](const KindHelp& k) {
    for (const KindHelp* seen : kinds) {
      if (seen == &k) return;
    }
    kinds.push_back(&k);
  };
  for (int a = 0; a < op.argCount; ++a) {
    switch (op.args[a].kind) {
      case ArgKind::kCode: want(kKindHelp[0]); break;
      case ArgKind::kInt:
      case ArgKind::kByte: want(kKindHelp[2]); break;
      case ArgKind::kBool: want(kKindHelp[3]); break;
      case ArgKind::kUseCase: want(kKindHelp[4]); break;
      case ArgKind::kParamId:
      case ArgKind::kGetPairs: want(kKindHelp[5]); break;
      case ArgKind::kParamValue:
      case ArgKind::kSetPairs:
        want(kKindHelp[5]);
        want(kKindHelp[6]);
        break;
      default: break;
    }
  }
  if (op.tapAt >= 0) want(kKindHelp[1]);
  if (!kinds.empty()) {
    out += "\nArguments:\n";
    for (const KindHelp* k : kinds) AddKindHelp(&out, *k);
  }
  return out;
}

}  // namespace lumx::cli
