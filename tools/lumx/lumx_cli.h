// Command-line side of the lumx shell tool: the table of ILumx operations,
// the parsers for every argument kind, and the text and JSON renderings of an
// answer. Nothing here talks to binder, so all of it is testable in-process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumx::cli {

// Exit codes beyond the status byte of a CommandResult (0 to 6). They follow
// the sysexits.h numbering so scripts can tell tool trouble from daemon answers.
enum ExitCode : int {
  kExitOk = 0,
  kExitUsage = 64,        // bad command line
  kExitDataErr = 65,      // an input file has the wrong format or size
  kExitNoInput = 66,      // an input file cannot be opened
  kExitUnavailable = 69,  // daemon not reachable, or a call failed in transport
  kExitSoftware = 70,     // internal error of the tool
  kExitCantCreate = 73,   // an output file cannot be created
  kExitIoErr = 74,        // writing an output file failed
  kExitDisplaced = 75,    // relay: another client registered on the processor
};

// How long the tool looks for the daemon unless --timeout says otherwise.
inline constexpr int kDefaultTimeoutMs = 1000;
inline constexpr int kMaxTimeoutMs = 600000;

// The one rule for four-character codes written as numbers or as text; shown
// by the help and when the DSP refuses a tap.
inline constexpr const char* kCodeRule =
    "a word of exactly four characters is the code's text (1234 is the text "
    "\"1234\"); 0x<hex> or any other all-digit word is a number (0x4d2, 01234)";

// The name under which lumxd registers ILumx.
inline constexpr const char* kServiceName = "lumx.ILumx/default";

enum class ArgKind {
  kInt,         // int32: decimal (may be negative) or 0x<hex>
  kCode,        // four-character code
  kBool,        // 1/0/true/false/on/off
  kByte,        // one-byte field: -128 to 255 (decimal or 0x<hex>)
  kString,      // passed as it is
  kUseCase,     // UseCase name or number
  kParamId,     // ParameterId name or number
  kParamValue,  // i:<int> or f:<float>
  kFile,        // a file name
  kWords,       // all remaining words, as they are
  kSetPairs,    // all remaining words as <param>:<element>=<value>
  kGetPairs,    // all remaining words as <param>:<element>
};

struct ArgSlot {
  ArgKind kind;
  const char* name;   // shown in usage text, e.g. "processor"
  bool optional;      // may be left off (only trailing arguments)
};

// Transaction order of ILumx; kRelay is the tool's own streaming command.
enum class OpId : int {
  kPing = 1,
  kShowGraph,
  kListProcessors,
  kListSupportedProcessors,
  kNewProcessor,
  kNewProcessorWithType,
  kDeleteProcessor,
  kListSupportedUseCases,
  kEnable,
  kIsEnabled,
  kProcessorInfo,
  kProcessorEnable,
  kProcessorIsEnabled,
  kTapList,
  kTapInfo,
  kTapEnable,
  kTapSetBlockLength,
  kListTapOutBuffers,
  kListInjectBuffers,
  kConnect,
  kConnectTap,
  kStartIo,
  kStopIo,
  kDebug,
  kEnableUseCase,
  kIsUseCaseEnabled,
  kSetParameter,
  kGetParameter,
  kSetParameterBulk,
  kGetParameterBulk,
  kListParameters,
  kSendAudio,
  kRegisterReceiveAudioCallback,
  // The tool's own commands.
  kRelay = 100,
  kDump,
  kTop,
  kGraph,
  kVersion,
  kHelp,
};

inline constexpr int kMaxArgs = 8;

struct Operation {
  OpId id;
  const char* name;
  ArgSlot args[kMaxArgs];
  int argCount;
  // The CommandResult's value is this operation's answer, so it is always
  // printed; for other operations it is printed only when non-zero.
  bool reportsValue;
  const char* summary;
  // Index of the <core> slot of a <core> <tap> <index> group, or -1. Such a
  // group may also be written <core> <tap>.<index> or <core>:<tap>.<index>.
  int tapAt;
};

// The 33 ILumx operations in transaction order.
const std::vector<Operation>& Operations();
// The relay command (not an ILumx operation).
const Operation& RelayOperation();
// The tool's own commands: relay, dump, top, graph, version, help.
const std::vector<Operation>& ToolCommands();
// Case-insensitive lookup over the 33 operations and the tool's commands;
// null if none.
const Operation* FindOperation(std::string_view name);

// A ParamValue as the tool carries it: the union's tag and its member.
struct ParamValueArg {
  bool isFloat = false;
  int32_t i = 0;
  float f = 0.0f;
  bool operator==(const ParamValueArg& o) const {
    return isFloat == o.isFloat && (isFloat ? f == o.f : i == o.i);
  }
};

struct ParamPair {
  int32_t paramId = -1;
  int32_t element = 0;
  bool operator==(const ParamPair& o) const {
    return paramId == o.paramId && element == o.element;
  }
};

// One parsed argument. Only the member matching `kind` is meaningful.
struct Arg {
  ArgKind kind = ArgKind::kInt;
  bool present = true;                 // false for a left-off optional one
  int32_t i = 0;                       // kInt, kCode, kByte, kUseCase, kParamId
  bool b = false;                      // kBool
  std::string s;                       // kString, kFile
  ParamValueArg value;                 // kParamValue
  std::vector<std::string> words;      // kWords
  std::vector<ParamPair> pairs;        // kSetPairs, kGetPairs
  std::vector<ParamValueArg> values;   // kSetPairs
};

struct RelayOptions {
  uint32_t processor = 0;
  std::string record;     // empty: do not record
  std::string play;       // empty: send nothing
  double seconds = 0.0;   // 0: run until SIGINT/SIGTERM
  bool jsonStats = false;
  int timeoutMs = kDefaultTimeoutMs;  // for reaching the daemon
};

struct GraphOptions {
  bool dot = false;  // print DOT on stdout (also when no file is asked for)
  std::string png;   // write a PNG picture here
  std::string svg;   // write an SVG picture here
};

struct CommandLine {
  enum class Mode { kHelp, kCall, kRelay, kDump, kTop, kGraph, kVersion };
  Mode mode = Mode::kHelp;
  bool json = false;
  int timeoutMs = kDefaultTimeoutMs;
  // kCall: the operation; kHelp: the operation asked about, or null.
  const Operation* op = nullptr;
  std::vector<Arg> args;              // kCall: one per ArgSlot of `op`
  RelayOptions relay;                 // kRelay
  std::vector<std::string> dumpArgs;  // kDump: passed to the service's dump
  bool once = false;                  // kTop
  GraphOptions graph;                 // kGraph
  // Set with a failed parse of a line without any operation: the caller
  // shows the whole usage.
  bool showUsage = false;
};

// Parses the words after the program name. On failure returns false and
// sets `error` to a one-line message (without the "lumx: " prefix); `json`
// and `op` are set as far as the line was understood, so the error can be
// reported in the form asked for.
bool ParseCommandLine(const std::vector<std::string>& words, CommandLine* out,
                      std::string* error);

// Argument parsers. Each returns false with a one-line reason in `error`.
bool ParseInt32(std::string_view word, int32_t* out, std::string* error);
bool ParseFourCC(std::string_view word, uint32_t* out, std::string* error);
bool ParseBool(std::string_view word, bool* out, std::string* error);
bool ParseUseCase(std::string_view word, int8_t* out, std::string* error);
bool ParseParameterId(std::string_view word, int32_t* out, std::string* error);
bool ParseParamValue(std::string_view word, ParamValueArg* out,
                     std::string* error);
// The same, and a bare value for a parameter whose type is known: every
// named parameter is an integer, and PASSTHROUGH_MODE and TEST_MODE also
// take the words of ParseBool.
bool ParseParamValueFor(int32_t paramId, std::string_view word,
                        ParamValueArg* out, std::string* error);
bool ParseParamPair(std::string_view word, ParamPair* out, std::string* error);
bool ParseSetPair(std::string_view word, ParamPair* pair, ParamValueArg* value,
                  std::string* error);
bool ParseSeconds(std::string_view word, double* out, std::string* error);

// Four bytes, most significant first; unprintable bytes are kept as they are.
std::string FourCCToString(uint32_t code);
// "OK" ... "READ_ONLY", or the decimal number for any other status byte.
std::string StatusName(int status);
// Exit code for a status byte: the byte itself for 0 to 6, 1 otherwise.
int ExitCodeForStatus(int status);
// Name of a ParameterId value, or its decimal number.
std::string ParameterIdName(int32_t id);
// Name of a UseCase value, or its decimal number.
std::string UseCaseName(int8_t useCase);

// What one call answered, independent of the binding's types.
struct Outcome {
  int status = 0;
  float value = 0.0f;
  std::vector<std::string> lines;
  std::optional<ParamValueArg> param;                // GetParameter
  std::optional<std::vector<ParamValueArg>> values;  // GetParameterBulk
  std::string hint;  // the tool's own advice about a refusal, or empty
};

// Advice for a tap command the DSP refused: how the code was sent, and the
// rule for codes. Empty when the operation names no tap or succeeded.
std::string TapRefusalHint(const Operation& op, const std::vector<Arg>& args,
                           const Outcome& outcome);

// "i:<n>" or "f:<x>", the same form the command line accepts.
std::string FormatParamValue(const ParamValueArg& v);
// The text form: each line, then "value: ..." and "param: ..." lines.
std::string FormatText(const Operation& op, const Outcome& outcome);
// One JSON object on one line, newline-terminated.
std::string FormatJson(const Operation& op, const Outcome& outcome);
// {"op":...,"error":...,"exitCode":...} on one line; op null when unknown.
std::string ErrorJson(const Operation* op, std::string_view error,
                      int exitCode);

// JSON string literal (with the quotes) of arbitrary bytes. Bytes that are
// not valid UTF-8 are written as \u00XX (their Latin-1 reading).
std::string JsonString(std::string_view s);
// A JSON number for a float; non-finite values become null.
std::string JsonNumber(double v);

// Full help text for --help.
std::string UsageText();
// Help of one operation or command: its usage line, what it does, and the
// forms of its arguments.
std::string OperationHelp(const Operation& op);
// "lumx <Op> <arg> ..." for one operation.
std::string UsageLine(const Operation& op);

}  // namespace lumx::cli
