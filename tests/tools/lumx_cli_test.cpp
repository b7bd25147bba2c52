// Command-line parsing and output forms of the lumx shell tool.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "tools/lumx/lumx_cli.h"

namespace lumx::cli {
namespace {

bool Parse(std::vector<std::string> words, CommandLine* cl, std::string* err) {
  return ParseCommandLine(words, cl, err);
}

// Parses a line that must be valid.
CommandLine MustParse(std::vector<std::string> words) {
  CommandLine cl;
  std::string err;
  EXPECT_TRUE(Parse(words, &cl, &err)) << err;
  return cl;
}

// Parses a line that must be refused; returns the message.
std::string MustFail(std::vector<std::string> words) {
  CommandLine cl;
  std::string err;
  EXPECT_FALSE(Parse(words, &cl, &err));
  EXPECT_FALSE(err.empty());
  EXPECT_EQ(err.find('\n'), std::string::npos) << "message must be one line";
  return err;
}

TEST(LumxCliOperations, TableHasAll33InTransactionOrder) {
  const auto& ops = Operations();
  ASSERT_EQ(ops.size(), 33u);
  const char* names[] = {
      "Ping", "ShowGraph", "ListProcessors", "ListSupportedProcessors",
      "NewProcessor", "NewProcessorWithType", "DeleteProcessor",
      "ListSupportedUseCases", "Enable", "IsEnabled", "ProcessorInfo",
      "ProcessorEnable", "ProcessorIsEnabled", "TapList", "TapInfo",
      "TapEnable", "TapSetBlockLength", "ListTapOutBuffers",
      "ListInjectBuffers", "Connect", "ConnectTap", "StartIo", "StopIo",
      "Debug", "EnableUseCase", "IsUseCaseEnabled", "SetParameter",
      "GetParameter", "SetParameterBulk", "GetParameterBulk", "ListParameters",
      "SendAudio", "RegisterReceiveAudioCallback"};
  for (size_t k = 0; k < ops.size(); ++k) {
    EXPECT_STREQ(ops[k].name, names[k]);
    EXPECT_EQ(static_cast<int>(ops[k].id), static_cast<int>(k + 1));
  }
}

TEST(LumxCliOperations, LookupIsCaseInsensitive) {
  ASSERT_NE(FindOperation("listprocessors"), nullptr);
  EXPECT_EQ(FindOperation("listprocessors")->id, OpId::kListProcessors);
  EXPECT_EQ(FindOperation("LISTPROCESSORS")->id, OpId::kListProcessors);
  EXPECT_EQ(FindOperation("newprocessorwithtype")->id,
            OpId::kNewProcessorWithType);
  EXPECT_EQ(FindOperation("RELAY")->id, OpId::kRelay);
  EXPECT_EQ(FindOperation("ListProcessor"), nullptr);
  EXPECT_EQ(FindOperation("ListProcessorsX"), nullptr);
  EXPECT_EQ(FindOperation(""), nullptr);
}

TEST(LumxCliOperations, HelpListsEveryOperationWithItsArguments) {
  std::string help = UsageText();
  for (const Operation& op : Operations()) {
    EXPECT_NE(help.find(UsageLine(op).substr(5)), std::string::npos) << op.name;
  }
  EXPECT_NE(help.find("relay <processor> [--record FILE.wav] [--play FILE.wav]"),
            std::string::npos);
  EXPECT_NE(help.find("TapSetBlockLength <core> <tap> <index> <blockLength>"),
            std::string::npos);
  EXPECT_NE(help.find("ConnectTap <core> <tap> <index> <tapOutBuffer> "
                      "<injectBuffer>"),
            std::string::npos);
  EXPECT_NE(help.find(kServiceName), std::string::npos);
}

TEST(LumxCliFourCC, ExactlyFourCharactersAreText) {
  uint32_t v = 0;
  std::string err;
  ASSERT_TRUE(ParseFourCC("pas1", &v, &err));
  EXPECT_EQ(v, 0x70617331u);
  ASSERT_TRUE(ParseFourCC("imic", &v, &err));
  EXPECT_EQ(v, 0x696d6963u);
  // Four digits are still the code's text, not the number 1234.
  ASSERT_TRUE(ParseFourCC("1234", &v, &err));
  EXPECT_EQ(v, 0x31323334u);
  ASSERT_TRUE(ParseFourCC("a b.", &v, &err));
  EXPECT_EQ(v, 0x6120622eu);
  EXPECT_EQ(FourCCToString(0x6172656cu), "arel");
}

TEST(LumxCliFourCC, HexAndDecimalNumbers) {
  uint32_t v = 0;
  std::string err;
  ASSERT_TRUE(ParseFourCC("0x6172656c", &v, &err));
  EXPECT_EQ(v, 0x6172656cu);
  ASSERT_TRUE(ParseFourCC("0XFFFFFFFF", &v, &err));
  EXPECT_EQ(v, 0xffffffffu);
  ASSERT_TRUE(ParseFourCC("0x00001", &v, &err));
  EXPECT_EQ(v, 1u);
  ASSERT_TRUE(ParseFourCC("1885434739", &v, &err));  // "pass"
  EXPECT_EQ(v, 0x70617373u);
  ASSERT_TRUE(ParseFourCC("7", &v, &err));
  EXPECT_EQ(v, 7u);
  ASSERT_TRUE(ParseFourCC("4294967295", &v, &err));
  EXPECT_EQ(v, 0xffffffffu);
}

TEST(LumxCliFourCC, RejectsOtherWords) {
  uint32_t v = 0;
  std::string err;
  for (const char* w : {"abc", "abcde", "", "-1", "0x", "0x123456789",
                        "0xg1234", "4294967296", "12a45", "p\x01s1",
                        "pa\xc3\xa9"}) {
    EXPECT_FALSE(ParseFourCC(w, &v, &err)) << w;
    EXPECT_FALSE(err.empty());
  }
}

TEST(LumxCliArgs, Integers) {
  int32_t v = 0;
  std::string err;
  ASSERT_TRUE(ParseInt32("-1", &v, &err));
  EXPECT_EQ(v, -1);
  ASSERT_TRUE(ParseInt32("2147483647", &v, &err));
  EXPECT_EQ(v, INT32_MAX);
  ASSERT_TRUE(ParseInt32("-2147483648", &v, &err));
  EXPECT_EQ(v, INT32_MIN);
  ASSERT_TRUE(ParseInt32("0x14", &v, &err));
  EXPECT_EQ(v, 20);
  ASSERT_TRUE(ParseInt32("0xffffffff", &v, &err));
  EXPECT_EQ(v, -1);
  for (const char* w : {"", "-", "2147483648", "-2147483649", "1.5", "20x",
                        " 20", "0x", "abc", "99999999999999999999"}) {
    EXPECT_FALSE(ParseInt32(w, &v, &err)) << w;
  }
}

TEST(LumxCliArgs, Booleans) {
  bool b = false;
  std::string err;
  for (const char* w : {"1", "true", "TRUE", "on", "On"}) {
    b = false;
    ASSERT_TRUE(ParseBool(w, &b, &err)) << w;
    EXPECT_TRUE(b) << w;
  }
  for (const char* w : {"0", "false", "False", "off", "OFF"}) {
    b = true;
    ASSERT_TRUE(ParseBool(w, &b, &err)) << w;
    EXPECT_FALSE(b) << w;
  }
  for (const char* w : {"2", "yes", "", "-1", "truee"}) {
    EXPECT_FALSE(ParseBool(w, &b, &err)) << w;
  }
}

TEST(LumxCliArgs, UseCaseByNameOrNumber) {
  int8_t u = 0;
  std::string err;
  ASSERT_TRUE(ParseUseCase("mic_in", &u, &err));
  EXPECT_EQ(u, 1);
  ASSERT_TRUE(ParseUseCase("AREL_TELE", &u, &err));
  EXPECT_EQ(u, 3);
  ASSERT_TRUE(ParseUseCase("unspecified", &u, &err));
  EXPECT_EQ(u, -1);
  ASSERT_TRUE(ParseUseCase("-1", &u, &err));
  EXPECT_EQ(u, -1);
  ASSERT_TRUE(ParseUseCase("7", &u, &err));
  EXPECT_EQ(u, 7);
  EXPECT_FALSE(ParseUseCase("MIC-IN", &u, &err));
  EXPECT_FALSE(ParseUseCase("128", &u, &err));
  EXPECT_FALSE(ParseUseCase("-129", &u, &err));
  EXPECT_EQ(UseCaseName(-1), "UNSPECIFIED");
  EXPECT_EQ(UseCaseName(9), "9");
}

TEST(LumxCliArgs, ParameterIdByNameOrNumber) {
  int32_t p = 0;
  std::string err;
  ASSERT_TRUE(ParseParameterId("block_length", &p, &err));
  EXPECT_EQ(p, 3);
  ASSERT_TRUE(ParseParameterId("VERSION", &p, &err));
  EXPECT_EQ(p, 0);
  ASSERT_TRUE(ParseParameterId("UNSPECIFIED", &p, &err));
  EXPECT_EQ(p, -1);
  ASSERT_TRUE(ParseParameterId("7", &p, &err));
  EXPECT_EQ(p, 7);
  EXPECT_FALSE(ParseParameterId("BLOCKLENGTH", &p, &err));
  EXPECT_EQ(ParameterIdName(4), "AUDIO_FORMAT");
  EXPECT_EQ(ParameterIdName(7), "7");
}

TEST(LumxCliArgs, ParamValues) {
  ParamValueArg v;
  std::string err;
  ASSERT_TRUE(ParseParamValue("i:4800", &v, &err));
  EXPECT_FALSE(v.isFloat);
  EXPECT_EQ(v.i, 4800);
  ASSERT_TRUE(ParseParamValue("i:-480", &v, &err));
  EXPECT_EQ(v.i, -480);
  ASSERT_TRUE(ParseParamValue("f:960.5", &v, &err));
  EXPECT_TRUE(v.isFloat);
  EXPECT_EQ(v.f, 960.5f);
  ASSERT_TRUE(ParseParamValue("f:-1e-3", &v, &err));
  EXPECT_EQ(v.f, -1e-3f);
  for (const char* w : {"4800", "i:", "f:", "i:1.5", "f:abc", "f:nan",
                        "f:inf", "f:1e99", "x:1", "f: 1", "f:0x10", "i4800"}) {
    EXPECT_FALSE(ParseParamValue(w, &v, &err)) << w;
  }
  EXPECT_EQ(FormatParamValue({false, 12, 0}), "i:12");
  EXPECT_EQ(FormatParamValue({true, 0, 0.5f}), "f:0.5");
  // The printed form parses back to the same float.
  ParamValueArg third{true, 0, 1.0f / 3.0f};
  ASSERT_TRUE(ParseParamValue(FormatParamValue(third), &v, &err));
  EXPECT_EQ(v.f, third.f);
}

TEST(LumxCliCommandLine, PositionalArgumentsInInterfaceOrder) {
  CommandLine cl = MustParse({"newprocessorwithtype", "pas1", "pass"});
  ASSERT_EQ(cl.mode, CommandLine::Mode::kCall);
  EXPECT_EQ(cl.op->id, OpId::kNewProcessorWithType);
  ASSERT_EQ(cl.args.size(), 2u);
  EXPECT_EQ(static_cast<uint32_t>(cl.args[0].i), 0x70617331u);
  EXPECT_EQ(static_cast<uint32_t>(cl.args[1].i), 0x70617373u);

  cl = MustParse({"ConnectTap", "2", "imic", "0", "20", "-1"});
  ASSERT_EQ(cl.args.size(), 5u);
  EXPECT_EQ(cl.args[0].i, 2);
  EXPECT_EQ(static_cast<uint32_t>(cl.args[1].i), 0x696d6963u);
  EXPECT_EQ(cl.args[2].i, 0);
  EXPECT_EQ(cl.args[3].i, 20);
  EXPECT_EQ(cl.args[4].i, -1);

  cl = MustParse({"--json", "TapEnable", "2", "0x696d6963", "0", "on"});
  EXPECT_TRUE(cl.json);
  EXPECT_TRUE(cl.args[3].b);

  cl = MustParse({"Enable", "mic_in", "false"});
  EXPECT_EQ(cl.args[0].s, "mic_in");  // passed exactly as typed
  EXPECT_FALSE(cl.args[1].b);

  cl = MustParse({"EnableUseCase", "speaker_out", "1"});
  EXPECT_EQ(cl.args[0].i, 2);

  cl = MustParse({"SetParameter", "arel", "BLOCK_LENGTH", "0", "i:960"});
  EXPECT_EQ(cl.args[1].i, 3);
  EXPECT_EQ(cl.args[2].i, 0);
  EXPECT_EQ(cl.args[3].value, (ParamValueArg{false, 960, 0}));

  cl = MustParse({"ping"});
  EXPECT_TRUE(cl.args.empty());
}

TEST(LumxCliCommandLine, DebugTakesRemainingWordsAsTheyAre) {
  CommandLine cl = MustParse({"debug"});
  ASSERT_EQ(cl.args.size(), 1u);
  EXPECT_TRUE(cl.args[0].words.empty());
  cl = MustParse({"Debug", "buffer_dump", "tapout", "--json", "HELP"});
  EXPECT_EQ(cl.args[0].words,
            (std::vector<std::string>{"buffer_dump", "tapout", "--json",
                                      "HELP"}));
  EXPECT_FALSE(cl.json);
}

TEST(LumxCliCommandLine, BulkPairs) {
  CommandLine cl = MustParse({"SetParameterBulk", "arel", "BLOCK_LENGTH:0=i:960",
                              "test_mode:2=f:1.5", "7:-1=i:0"});
  ASSERT_EQ(cl.args.size(), 2u);
  EXPECT_EQ(cl.args[1].pairs,
            (std::vector<ParamPair>{{3, 0}, {2, 2}, {7, -1}}));
  EXPECT_EQ(cl.args[1].values,
            (std::vector<ParamValueArg>{
                {false, 960, 0}, {true, 0, 1.5f}, {false, 0, 0}}));

  cl = MustParse({"GetParameterBulk", "pas1", "VERSION:1", "audio_format:2"});
  EXPECT_EQ(cl.args[1].pairs, (std::vector<ParamPair>{{0, 1}, {4, 2}}));
  EXPECT_TRUE(cl.args[1].values.empty());

  cl = MustParse({"GetParameterBulk", "pas1"});
  EXPECT_TRUE(cl.args[1].pairs.empty());

  MustFail({"SetParameterBulk", "arel", "BLOCK_LENGTH:0"});
  MustFail({"SetParameterBulk", "arel", "BLOCK_LENGTH=i:4"});
  MustFail({"SetParameterBulk", "arel", "BLOCK_LENGTH:x=i:4"});
  MustFail({"SetParameterBulk", "arel", "NOPE:0=i:4"});
  MustFail({"SetParameterBulk", "arel", "BLOCK_LENGTH:0=4"});
  MustFail({"GetParameterBulk", "arel", "BLOCK_LENGTH"});
  MustFail({"GetParameterBulk", "arel", "BLOCK_LENGTH:0=i:1"});
}

TEST(LumxCliCommandLine, SendAudioOptionalCodes) {
  CommandLine cl = MustParse({"SendAudio", "art0", "in.wav"});
  ASSERT_EQ(cl.args.size(), 6u);
  EXPECT_EQ(cl.args[1].s, "in.wav");
  for (int k = 2; k < 6; ++k) EXPECT_FALSE(cl.args[k].present);
  cl = MustParse({"SendAudio", "art0", "in.wav", "5", "0", "1", "2"});
  EXPECT_TRUE(cl.args[5].present);
  EXPECT_EQ(cl.args[5].i, 2);
  cl = MustParse({"SendAudio", "art0", "in.wav", "0xff"});
  EXPECT_EQ(cl.args[2].i, 255);
  EXPECT_FALSE(cl.args[3].present);
  MustFail({"SendAudio", "art0", "in.wav", "256"});
  MustFail({"SendAudio", "art0"});
}

TEST(LumxCliCommandLine, UsageErrorsNameTheProblem) {
  EXPECT_NE(MustFail({}).find("no operation"), std::string::npos);
  EXPECT_NE(MustFail({"--json"}).find("no operation"), std::string::npos);
  EXPECT_NE(MustFail({"Frobnicate"}).find("unknown operation 'Frobnicate'"),
            std::string::npos);
  EXPECT_NE(MustFail({"--jsn", "Ping"}).find("unknown option '--jsn'"),
            std::string::npos);
  std::string e = MustFail({"Ping", "x"});
  EXPECT_NE(e.find("unexpected argument 'x'"), std::string::npos) << e;
  e = MustFail({"TapInfo", "2", "imic"});
  EXPECT_NE(e.find("missing <index>"), std::string::npos) << e;
  EXPECT_NE(e.find("lumx TapInfo <core> <tap> <index>"), std::string::npos);
  e = MustFail({"TapInfo", "2", "abc", "0"});
  EXPECT_NE(e.find("<tap> 'abc'"), std::string::npos) << e;
  e = MustFail({"NewProcessor", "abcde"});
  EXPECT_NE(e.find("<processor> 'abcde'"), std::string::npos) << e;
  MustFail({"ProcessorEnable", "pas1", "yes"});
  MustFail({"TapList", "two"});
  MustFail({"StartIo", "20", "21"});
  MustFail({"EnableUseCase", "MIC-IN", "1"});
  MustFail({"SetParameter", "arel", "BLOCK_LENGTH", "0", "960"});
  MustFail({"GetParameter", "arel", "BLOCK_LENGTH"});
}

TEST(LumxCliCommandLine, HelpAndRelay) {
  EXPECT_EQ(MustParse({"--help"}).mode, CommandLine::Mode::kHelp);
  EXPECT_EQ(MustParse({"--json", "-h"}).mode, CommandLine::Mode::kHelp);

  CommandLine cl = MustParse({"relay", "art0"});
  ASSERT_EQ(cl.mode, CommandLine::Mode::kRelay);
  EXPECT_EQ(cl.relay.processor, 0x61727430u);
  EXPECT_TRUE(cl.relay.record.empty());
  EXPECT_EQ(cl.relay.seconds, 0.0);
  EXPECT_FALSE(cl.relay.jsonStats);

  cl = MustParse({"Relay", "art1", "--record", "out.wav", "--play=in.wav",
                  "--seconds", "2.5", "--json-stats"});
  EXPECT_EQ(cl.relay.record, "out.wav");
  EXPECT_EQ(cl.relay.play, "in.wav");
  EXPECT_EQ(cl.relay.seconds, 2.5);
  EXPECT_TRUE(cl.relay.jsonStats);

  EXPECT_TRUE(MustParse({"--json", "relay", "art0"}).relay.jsonStats);

  MustFail({"relay"});
  MustFail({"relay", "ar"});
  MustFail({"relay", "art0", "--record"});
  MustFail({"relay", "art0", "--seconds", "0"});
  MustFail({"relay", "art0", "--seconds", "-2"});
  MustFail({"relay", "art0", "--seconds", "abc"});
  MustFail({"relay", "art0", "--loop"});
  MustFail({"relay", "art0", "extra"});
  MustFail({"relay", "art0", "--record="});
}

TEST(LumxCliOutput, StatusNamesAndExitCodes) {
  const char* names[] = {"OK", "ERROR", "INVALID_PROCESSOR",
                         "INVALID_PARAMETER", "INVALID_VALUE",
                         "INVALID_ELEMENT", "READ_ONLY"};
  for (int s = 0; s <= 6; ++s) {
    EXPECT_EQ(StatusName(s), names[s]);
    EXPECT_EQ(ExitCodeForStatus(s), s);
  }
  EXPECT_EQ(StatusName(7), "7");
  EXPECT_EQ(StatusName(-1), "-1");
  // A status this tool does not know still reads as a failure, and never
  // as one of the tool's own exit codes.
  EXPECT_EQ(ExitCodeForStatus(7), 1);
  EXPECT_EQ(ExitCodeForStatus(64), 1);
  EXPECT_EQ(ExitCodeForStatus(-1), 1);
}

TEST(LumxCliOutput, TextForm) {
  const Operation& list = *FindOperation("ListProcessors");
  Outcome o;
  o.lines = {"Lumx processors:", "  none", ""};
  EXPECT_EQ(FormatText(list, o), "Lumx processors:\n  none\n\n");
  o.value = 2.5f;
  EXPECT_EQ(FormatText(list, o), "Lumx processors:\n  none\n\nvalue: 2.500000\n");

  const Operation& isEnabled = *FindOperation("ProcessorIsEnabled");
  Outcome zero;
  zero.lines = {"ProcessorIsEnabled id:pas1"};
  EXPECT_EQ(FormatText(isEnabled, zero),
            "ProcessorIsEnabled id:pas1\nvalue: 0.000000\n");

  Outcome get;
  get.lines = {"GetParameter processor:pas1 param:BLOCK_LENGTH element:0",
               "--> 4800"};
  get.param = ParamValueArg{false, 4800, 0};
  EXPECT_EQ(FormatText(*FindOperation("GetParameter"), get),
            "GetParameter processor:pas1 param:BLOCK_LENGTH element:0\n"
            "--> 4800\nparam: i:4800\n");

  Outcome bulk;
  bulk.values = std::vector<ParamValueArg>{{false, 1, 0}, {true, 0, 0.25f}};
  EXPECT_EQ(FormatText(*FindOperation("GetParameterBulk"), bulk),
            "param: i:1\nparam: f:0.25\n");

  EXPECT_EQ(FormatText(*FindOperation("Ping"), Outcome{}), "");
}

TEST(LumxCliOutput, JsonEscaping) {
  EXPECT_EQ(JsonString(""), "\"\"");
  EXPECT_EQ(JsonString("a\"b\\c"), "\"a\\\"b\\\\c\"");
  EXPECT_EQ(JsonString("\n\r\t\b\f"), "\"\\n\\r\\t\\b\\f\"");
  EXPECT_EQ(JsonString(std::string("\x01\x1f", 2)), "\"\\u0001\\u001f\"");
  EXPECT_EQ(JsonString(std::string("a\0b", 3)), "\"a\\u0000b\"");
  // Valid UTF-8 passes through; stray bytes become their Latin-1 escape.
  EXPECT_EQ(JsonString("\xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xb5"),
            "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xb5\"");
  EXPECT_EQ(JsonString("\xff"), "\"\\u00ff\"");
  EXPECT_EQ(JsonString("a\xc3"), "\"a\\u00c3\"");         // cut sequence
  EXPECT_EQ(JsonString("\xc0\xaf"), "\"\\u00c0\\u00af\"");  // overlong
  EXPECT_EQ(JsonString("\xed\xa0\x80"),
            "\"\\u00ed\\u00a0\\u0080\"");  // surrogate
  EXPECT_EQ(JsonString("/\x7f"), "\"/\x7f\"");
}

TEST(LumxCliOutput, JsonNumbers) {
  EXPECT_EQ(JsonNumber(0.0), "0");
  EXPECT_EQ(JsonNumber(1.0), "1");
  EXPECT_EQ(JsonNumber(0.5), "0.5");
  EXPECT_EQ(JsonNumber(-2.25), "-2.25");
  EXPECT_EQ(JsonNumber(NAN), "null");
  EXPECT_EQ(JsonNumber(INFINITY), "null");
  EXPECT_EQ(JsonNumber(-INFINITY), "null");
}

TEST(LumxCliOutput, JsonShape) {
  Outcome o;
  o.status = 2;
  o.value = 1.0f;
  o.lines = {"Enable processor pas1", "Lumx processor \"x\" not found"};
  EXPECT_EQ(FormatJson(*FindOperation("ProcessorEnable"), o),
            "{\"op\":\"ProcessorEnable\",\"status\":2,"
            "\"statusName\":\"INVALID_PROCESSOR\",\"value\":1,"
            "\"lines\":[\"Enable processor pas1\","
            "\"Lumx processor \\\"x\\\" not found\"]}\n");

  Outcome get;
  get.param = ParamValueArg{true, 0, 0.5f};
  EXPECT_EQ(FormatJson(*FindOperation("GetParameter"), get),
            "{\"op\":\"GetParameter\",\"status\":0,\"statusName\":\"OK\","
            "\"value\":0,\"lines\":[],\"param\":{\"f\":0.5}}\n");

  Outcome bulk;
  bulk.status = 7;
  bulk.values = std::vector<ParamValueArg>{{false, -1, 0}, {true, 0, 2.0f}};
  EXPECT_EQ(FormatJson(*FindOperation("GetParameterBulk"), bulk),
            "{\"op\":\"GetParameterBulk\",\"status\":7,\"statusName\":\"7\","
            "\"value\":0,\"lines\":[],\"values\":[{\"i\":-1},{\"f\":2}]}\n");

  Outcome empty;
  empty.values = std::vector<ParamValueArg>{};
  EXPECT_NE(FormatJson(*FindOperation("GetParameterBulk"), empty)
                .find("\"values\":[]"),
            std::string::npos);
}

}  // namespace
}  // namespace lumx::cli
