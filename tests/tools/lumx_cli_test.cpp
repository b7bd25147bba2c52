// Command-line parsing and output forms of the lumx shell tool. What each
// operation sends and prints end to end is checked in lumx_e2e_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <regex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tools/lumx/lumx_cli.h"

namespace lumx::cli {
namespace {

CommandLine MustParse(std::vector<std::string> words) {
  CommandLine cl;
  std::string err;
  EXPECT_TRUE(ParseCommandLine(words, &cl, &err)) << err;
  return cl;
}

// Checks a parser on words it must accept (with their values) and refuse.
template <typename T>
void CheckParser(bool (*parse)(std::string_view, T*, std::string*),
                 std::vector<std::pair<std::string, T>> good, std::vector<std::string> bad) {
  for (const auto& [word, want] : good) {
    T v{};
    if constexpr (std::is_same_v<T, bool>) v = !want;
    std::string err;
    EXPECT_TRUE(parse(word, &v, &err)) << word << ": " << err;
    EXPECT_EQ(v, want) << word;
  }
  for (const std::string& word : bad) {
    T v{};
    std::string err;
    EXPECT_FALSE(parse(word, &v, &err)) << word;
    EXPECT_FALSE(err.empty()) << word;
  }
}

// The table follows the interface file itself: a method added, removed or
// moved there and not here sends the wrong transaction code.
TEST(LumxCliOperations, TableHasAll33InTransactionOrder) {
  std::ifstream aidl(std::string(LUMX_SOURCE_DIR) + "/aidl/lumx/ILumx.aidl");
  ASSERT_TRUE(aidl.good());
  std::vector<std::string> methods;
  const std::regex method(R"(^\s*(?:oneway\s+)?[\w<>.]+\s+(\w+)\s*\()");
  int depth = 0;
  for (std::string line; std::getline(aidl, line);) {
    line = line.substr(0, line.find("//"));
    std::smatch m;
    if (depth == 1 && std::regex_search(line, m, method)) methods.push_back(m[1]);
    depth += static_cast<int>(std::count(line.begin(), line.end(), '{') - std::count(line.begin(), line.end(), '}'));
  }
  ASSERT_EQ(methods.size(), 33u);
  ASSERT_EQ(Operations().size(), methods.size());
  for (size_t k = 0; k < methods.size(); ++k) {
    EXPECT_EQ(Operations()[k].name, methods[k]);
    EXPECT_EQ(static_cast<int>(Operations()[k].id), static_cast<int>(k + 1)) << methods[k];
  }
}

// Every operation's line in the help, written out as `lumx help` documents it.
TEST(LumxCliOperations, HelpListsEveryOperationWithItsArguments) {
  const std::string help = UsageText();
  for (const char* line : {
           "  Ping ", "  ShowGraph ", "  ListProcessors ", "  ListSupportedProcessors ", "  NewProcessor <processor> ",
           "  NewProcessorWithType <processor> <type> ", "  DeleteProcessor <processor> ", "  ListSupportedUseCases ",
           "  Enable <useCaseName> <enable> ", "  IsEnabled <useCaseName> ", "  ProcessorInfo <processor> ",
           "  ProcessorEnable <processor> <enable> ", "  ProcessorIsEnabled <processor> ", "  TapList <core> ",
           "  TapInfo <core> <tap> <index> ", "  TapEnable <core> <tap> <index> <enable> ",
           "  TapSetBlockLength <core> <tap> <index> <blockLength>", "  ListTapOutBuffers ", "  ListInjectBuffers ",
           "  Connect <processor> <tapOutBuffer> <injectBuffer> ",
           "  ConnectTap <core> <tap> <index> <tapOutBuffer> <injectBuffer>", "  StartIo <buffer> ",
           "  StopIo <buffer> ", "  Debug [word...] ", "  EnableUseCase <useCase> <enable> ",
           "  IsUseCaseEnabled <useCase> ", "  SetParameter <processor> <param> <element> <value> ",
           "  GetParameter <processor> <param> <element> ",
           "  SetParameterBulk <processor> [param:element=value...]",
           "  GetParameterBulk <processor> [param:element...]", "  ListParameters ",
           "  SendAudio <processor> <FILE.wav> [sampleRate] [format] [bitsPerSample] [numChannels]",
           "  RegisterReceiveAudioCallback <processor>",
           "relay <processor> [--record FILE.wav] [--play FILE.wav]", kServiceName}) {
    EXPECT_NE(help.find(line), std::string::npos) << line;
  }
}

TEST(LumxCliArgs, ParsersAcceptTheirFormsAndNothingElse) {
  // Exactly four characters are the code's text, even when they are digits.
  CheckParser<uint32_t>(ParseFourCC,
                        {{"pas1", 0x70617331u}, {"1234", 0x31323334u}, {"a b.", 0x6120622eu},
                         {"0x6172656c", 0x6172656cu}, {"0XFFFFFFFF", 0xffffffffu}, {"0x00001", 1u},
                         {"1885434739", 0x70617373u}, {"7", 7u}, {"4294967295", 0xffffffffu}},
                        {"abc", "abcde", "", "-1", "0x", "0x123456789", "0xg1234", "4294967296", "12a45",
                         "p\x01s1", "pa\xc3\xa9"});
  CheckParser<int32_t>(ParseInt32,
                       {{"-1", -1}, {"2147483647", INT32_MAX}, {"-2147483648", INT32_MIN}, {"0x14", 20},
                        {"0xffffffff", -1}},
                       {"", "-", "2147483648", "-2147483649", "1.5", "20x", " 20", "0x", "abc",
                        "99999999999999999999"});
  CheckParser<bool>(ParseBool,
                    {{"1", true}, {"true", true}, {"TRUE", true}, {"on", true}, {"On", true}, {"0", false},
                     {"false", false}, {"False", false}, {"off", false}, {"OFF", false}},
                    {"2", "", "-1", "truee", "y"});
  CheckParser<int8_t>(ParseUseCase,
                      {{"mic_in", 1}, {"AREL_TELE", 3}, {"unspecified", -1}, {"-1", -1}, {"7", 7}},
                      {"MIC-IN", "128", "-129"});
  CheckParser<int32_t>(ParseParameterId,
                       {{"block_length", 3}, {"VERSION", 0}, {"UNSPECIFIED", -1}, {"7", 7}}, {"BLOCKLENGTH"});
  CheckParser<ParamValueArg>(ParseParamValue,
                             {{"i:4800", {false, 4800, 0}}, {"i:-480", {false, -480, 0}},
                              {"f:960.5", {true, 0, 960.5f}}, {"f:-1e-3", {true, 0, -1e-3f}}},
                             {"4800", "i:", "f:", "i:1.5", "f:abc", "f:nan", "f:inf", "f:1e99", "x:1", "f: 1",
                              "f:0x10", "i4800"});
  EXPECT_EQ(FourCCToString(0x6172656cu), "arel");
  EXPECT_EQ(UseCaseName(-1), "UNSPECIFIED");
  EXPECT_EQ(UseCaseName(9), "9");
  EXPECT_EQ(ParameterIdName(4), "AUDIO_FORMAT");
  EXPECT_EQ(ParameterIdName(7), "7");
  EXPECT_EQ(FormatParamValue({false, 12, 0}), "i:12");
  EXPECT_EQ(FormatParamValue({true, 0, 0.5f}), "f:0.5");
  // The printed form parses back to the same float.
  ParamValueArg third{true, 0, 1.0f / 3.0f}, back;
  std::string err;
  ASSERT_TRUE(ParseParamValue(FormatParamValue(third), &back, &err));
  EXPECT_EQ(back.f, third.f);
}

TEST(LumxCliCommandLine, UsageErrorsAreOneLineNamingTheProblem) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "no operation"},
      {{"--json"}, "no operation"},
      {{"Frobnicate"}, "unknown operation 'Frobnicate'"},
      {{"ListProcessor"}, "unknown operation"},  // no prefix matching
      {{"ListProcessorsX"}, "unknown operation"},
      {{"--jsn", "Ping"}, "unknown option '--jsn'"},
      {{"Ping", "x"}, "unexpected argument 'x'"},
      {{"TapInfo", "2", "imic"}, "missing <index>"},
      {{"TapInfo", "2", "imic"}, "lumx TapInfo <core> <tap> <index>"},
      {{"TapInfo", "2", "abc", "0"}, "<tap> 'abc'"},
      {{"NewProcessor", "abcde"}, "<processor> 'abcde'"},
      {{"ProcessorEnable", "pas1", "yess"}, ""}, {{"TapList", "two"}, ""}, {{"StartIo", "20", "21"}, ""},
      {{"EnableUseCase", "MIC-IN", "1"}, ""}, {{"SetParameter", "arel", "7", "0", "960"}, ""},
      {{"GetParameter", "arel", "BLOCK_LENGTH"}, ""}, {{"SetParameterBulk", "arel", "BLOCK_LENGTH:0"}, ""},
      {{"SetParameterBulk", "arel", "BLOCK_LENGTH=i:4"}, ""}, {{"SetParameterBulk", "arel", "BLOCK_LENGTH:x=i:4"}, ""},
      {{"SetParameterBulk", "arel", "NOPE:0=i:4"}, ""}, {{"SetParameterBulk", "arel", "UNSPECIFIED:0=4"}, ""},
      {{"GetParameterBulk", "arel", "BLOCK_LENGTH"}, ""}, {{"GetParameterBulk", "arel", "BLOCK_LENGTH:0=i:1"}, ""},
      {{"SendAudio", "art0", "in.wav", "256"}, ""}, {{"SendAudio", "art0"}, ""}, {{"relay"}, ""},
      {{"relay", "ar"}, ""}, {{"relay", "art0", "--record"}, ""}, {{"relay", "art0", "--seconds", "0"}, ""},
      {{"relay", "art0", "--seconds", "-2"}, ""}, {{"relay", "art0", "--seconds", "abc"}, ""},
      {{"relay", "art0", "--loop"}, ""}, {{"relay", "art0", "extra"}, ""}, {{"relay", "art0", "--record="}, ""},
      {{"TapInfo", "2", "abc.0"}, "<tap> 'abc': a code is exactly four characters"},
      {{"TapInfo", "imic.0"}, "<core> 'imic.0': expected an integer (a tap is <core> <tap> <index>, "
                              "<core> <tap>.<index> or <core>:<tap>.<index>)"},
      {{"TapInfo", "2", "ab.1"}, "missing <index>"},
      {{"SetParameter", "pas1", "7", "0", "1"},
       "the type of parameter 7 is not known: write i:<integer> or f:<float>"},
      {{"SetParameter", "pas1", "BLOCK_LENGTH", "0", "960.5"},
       "BLOCK_LENGTH is an integer: expected an integer, or f:960.5 to send a float anyway"},
      {{"Ping", "--timeout", "-1"}, "--timeout '-1': expected milliseconds from 0 to 600000"},
      {{"Ping", "--timeout"}, "--timeout needs a value"},
      {{"ListProcessors", "--jsno"}, "ListProcessors: unknown option '--jsno'"},
      {{"help", "nope"}, "help: unknown operation 'nope'"},
      {{"top", "--fast"}, "top: unexpected argument '--fast'"},
      {{"graph", "--png"}, "graph: --png needs a value"},
      {{"version", "2"}, "version: unexpected argument '2'"},
  };
  for (const auto& [words, needle] : cases) {
    CommandLine cl;
    std::string err;
    std::string line = words.empty() ? "" : words.back();
    EXPECT_FALSE(ParseCommandLine(words, &cl, &err)) << line;
    EXPECT_FALSE(err.empty()) << line;
    EXPECT_EQ(err.find('\n'), std::string::npos) << err;
    EXPECT_NE(err.find(needle), std::string::npos) << err;
    // Only a line without an operation asks for the whole usage.
    EXPECT_EQ(cl.showUsage, needle == "no operation") << line;
  }
}

// What a parsed line asks for, written out: the command, its arguments as
// they would go to the service (codes in hex), and the tool's options.
std::string Describe(const CommandLine& cl) {
  const char* modes[] = {"help", "call", "relay", "dump", "top", "graph", "version"};
  std::string s = modes[static_cast<int>(cl.mode)];
  if (cl.op) s += std::string(" ") + cl.op->name;
  for (const Arg& a : cl.args) {
    char buf[32];
    if (a.kind == ArgKind::kCode) {
      snprintf(buf, sizeof(buf), " 0x%08x", static_cast<uint32_t>(a.i));
    } else if (a.kind == ArgKind::kBool) {
      snprintf(buf, sizeof(buf), " %s", a.b ? "true" : "false");
    } else if (a.kind == ArgKind::kParamValue) {
      snprintf(buf, sizeof(buf), " %s", FormatParamValue(a.value).c_str());
    } else if (a.kind == ArgKind::kString) {
      snprintf(buf, sizeof(buf), " %s", a.s.c_str());
    } else if (a.kind == ArgKind::kWords || a.kind == ArgKind::kSetPairs) {
      buf[0] = '\0';
      for (const std::string& w : a.words) s += " [" + w + "]";
      for (const ParamValueArg& v : a.values) s += " =" + FormatParamValue(v);
    } else {
      snprintf(buf, sizeof(buf), " %d", a.i);
    }
    s += buf;
  }
  for (const std::string& w : cl.dumpArgs) s += " [" + w + "]";
  if (cl.mode == CommandLine::Mode::kRelay) {
    char buf[96];
    snprintf(buf, sizeof(buf), " 0x%08x rec=%s play=%s s=%g%s", cl.relay.processor, cl.relay.record.c_str(),
             cl.relay.play.c_str(), cl.relay.seconds, cl.relay.jsonStats ? " stats" : "");
    s += buf;
  }
  if (cl.once) s += " once";
  if (cl.mode == CommandLine::Mode::kGraph) {
    s += std::string(cl.graph.dot ? " dot" : "") + " png=" + cl.graph.png + " svg=" + cl.graph.svg;
  }
  if (cl.json) s += " json";
  if (cl.timeoutMs != 1000) s += " timeout=" + std::to_string(cl.timeoutMs);
  return s;
}

// Each fix of the command line as one row: what is typed, and what it asks
// for or which error it gets.
TEST(LumxCliCommandLine, FixesOneRowEach) {
  const std::pair<std::vector<std::string>, std::string> ok[] = {
      // Taps as TapList and ShowGraph print them.
      {{"TapInfo", "2", "imic.0"}, "call TapInfo 2 0x696d6963 0"},
      {{"TapInfo", "2:imic.1"}, "call TapInfo 2 0x696d6963 1"},
      {{"TapEnable", "4:vpul.1", "on"}, "call TapEnable 4 0x7670756c 1 true"},
      {{"TapSetBlockLength", "4", "vpdl.0", "960"}, "call TapSetBlockLength 4 0x7670646c 0 960"},
      {{"ConnectTap", "2:sspk.0", "21", "-1"}, "call ConnectTap 2 0x7373706b 0 21 -1"},
      {{"TapInfo", "2", "1234.0"}, "call TapInfo 2 0x31323334 0"},
      {{"TapInfo", "2", "0x4d2.7"}, "call TapInfo 2 0x000004d2 7"},
      {{"TapInfo", "2", "ab.1.0"}, "call TapInfo 2 0x61622e31 0"},  // the index follows the last point
      {{"TapInfo", "2", "ab.1", "3"}, "call TapInfo 2 0x61622e31 3"},  // four characters: a code
      // Booleans.
      {{"ProcessorEnable", "pas1", "YES"}, "call ProcessorEnable 0x70617331 true"},
      {{"Enable", "mic_in", "no"}, "call Enable mic_in false"},
      // Values of parameters whose type is known.
      {{"SetParameter", "pas1", "BLOCK_LENGTH", "0", "960"}, "call SetParameter 0x70617331 3 0 i:960"},
      {{"SetParameter", "pas1", "test_mode", "0", "yes"}, "call SetParameter 0x70617331 2 0 i:1"},
      {{"SetParameter", "pas1", "PASSTHROUGH_MODE", "1", "Off"}, "call SetParameter 0x70617331 1 1 i:0"},
      {{"SetParameter", "pas1", "VERSION", "0", "-3"}, "call SetParameter 0x70617331 0 0 i:-3"},
      {{"SetParameter", "pas1", "BLOCK_LENGTH", "0", "f:960.5"}, "call SetParameter 0x70617331 3 0 f:960.5"},
      {{"SetParameterBulk", "pas1", "BLOCK_LENGTH:0=480", "TEST_MODE:0=on", "7:0=i:2"},
       "call SetParameterBulk 0x70617331 =i:480 =i:1 =i:2"},
      // Options anywhere; -- ends them.
      {{"ListProcessors", "--json"}, "call ListProcessors json"},
      {{"Ping", "--timeout", "250"}, "call Ping timeout=250"},
      {{"--timeout=0", "Ping"}, "call Ping timeout=0"},
      {{"Debug", "buffer_dump", "--json"}, "call Debug [buffer_dump] json"},
      {{"Debug", "--", "--json", "-h"}, "call Debug [--json] [-h]"},
      // Help.
      {{"help"}, "help"},
      {{"--json", "--help"}, "help json"},
      {{"help", "tapinfo"}, "help TapInfo"},
      {{"TapInfo", "-h"}, "help TapInfo"},
      // The tool's own commands.
      {{"dump"}, "dump dump"},
      {{"dump", "--reset", "--json", "extra"}, "dump dump [--reset] [extra] [--json] json"},
      {{"top", "--once"}, "top top once"},
      {{"graph"}, "graph graph dot png= svg="},
      {{"graph", "--png", "g.png", "--svg=g.svg"}, "graph graph png=g.png svg=g.svg"},
      {{"Graph", "--dot", "--png=g.png"}, "graph graph dot png=g.png svg="},
      {{"version", "--json"}, "version version json"},
      {{"--help"}, "help"},
      {{"--json", "-h"}, "help json"},
      {{"relay", "art0"}, "relay relay 0x61727430 rec= play= s=0"},
      {{"Relay", "art1", "--record", "out.wav", "--play=in.wav", "--seconds", "2.5", "--json-stats"},
       "relay relay 0x61727431 rec=out.wav play=in.wav s=2.5 stats"},
      {{"--json", "relay", "art0"}, "relay relay 0x61727430 rec= play= s=0 stats json"},
  };
  for (const auto& [words, want] : ok) EXPECT_EQ(Describe(MustParse(words)), want) << words[0];

  // A line without a command asks for the whole usage; --json is known
  // even when the line is refused.
  CommandLine cl;
  std::string err;
  EXPECT_FALSE(ParseCommandLine({"--json"}, &cl, &err));
  EXPECT_TRUE(cl.showUsage && cl.json);
  EXPECT_EQ(ErrorJson(nullptr, "a \"b\"", 64), "{\"op\":null,\"error\":\"a \\\"b\\\"\",\"exitCode\":64}\n");
}

TEST(LumxCliOutput, StatusNamesAndExitCodes) {
  const char* names[] = {"OK", "ERROR", "INVALID_PROCESSOR", "INVALID_PARAMETER", "INVALID_VALUE",
                         "INVALID_ELEMENT", "READ_ONLY"};
  for (int s = 0; s <= 6; ++s) {
    EXPECT_EQ(StatusName(s), names[s]);
    EXPECT_EQ(ExitCodeForStatus(s), s);
  }
  EXPECT_EQ(StatusName(-1), "-1");
  // A status this tool does not know still reads as a failure, and never
  // as one of the tool's own exit codes.
  for (int s : {7, 64, -1}) EXPECT_EQ(ExitCodeForStatus(s), 1) << s;
  // Operations without a value of their own show it only when non-zero.
  Outcome o;
  o.lines = {"Lumx processors:"};
  o.value = 2.5f;
  EXPECT_EQ(FormatText(*FindOperation("ListProcessors"), o), "Lumx processors:\nvalue: 2.500000\n");
}

TEST(LumxCliOutput, JsonStringsAndNumbers) {
  const std::pair<std::string, std::string> strings[] = {
      {"", "\"\""},
      {"a\"b\\c", "\"a\\\"b\\\\c\""},
      {"\n\r\t\b\f", "\"\\n\\r\\t\\b\\f\""},
      {std::string("\x01\x1f", 2), "\"\\u0001\\u001f\""},
      {std::string("a\0b", 3), "\"a\\u0000b\""},
      // Valid UTF-8 passes through; stray bytes become their Latin-1 escape.
      {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xb5", "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xb5\""},
      {"\xff", "\"\\u00ff\""},
      {"a\xc3", "\"a\\u00c3\""},                            // cut sequence
      {"\xc0\xaf", "\"\\u00c0\\u00af\""},                   // overlong
      {"\xed\xa0\x80", "\"\\u00ed\\u00a0\\u0080\""},        // surrogate
      {"/\x7f", "\"/\x7f\""},
  };
  for (const auto& [in, out] : strings) EXPECT_EQ(JsonString(in), out);
  const std::pair<double, std::string> numbers[] = {{0.0, "0"},      {1.0, "1"},       {0.5, "0.5"},
                                                    {-2.25, "-2.25"}, {NAN, "null"},   {INFINITY, "null"},
                                                    {-INFINITY, "null"}};
  for (const auto& [in, out] : numbers) EXPECT_EQ(JsonNumber(in), out) << in;
}

}  // namespace
}  // namespace lumx::cli
