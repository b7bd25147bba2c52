// lumx top and lumx graph in-process: the rows `top` computes from two dumps
// written as the dump contract lays them out, the JSON reader under it, and
// the DOT that `graph` draws from listings as the daemon prints them. The
// graph of each use case against the real daemon is in lumx_graph_test.cpp.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tools/lumx/graph_model.h"
#include "tools/lumx/json_value.h"
#include "tools/lumx/top_view.h"

namespace lumx::cli {
namespace {

// A dump as the contract lays it out; the packet counters of tapout20, 40
// and 41 and the uptime vary between the two dumps of a test.
std::string Dump(const char* uptime, int p20, int p40, int p41) {
  const std::string cut0 = R"("cut":{"alignment":0,"version":0,"oversize":0,"no_magic":0,"excess":0})";
  return std::string(R"({"interface":{"version":2,"hash":"abc"},"uptime_s":)") + uptime +
         R"(,"wake_lock":{"held":true,"held_s":9.000,"acquisitions":1},)"
         R"("control":{"open":true,"commands":12,"timeouts":0,"unmatched_replies":0,"reopens":1,"last_error":null},)"
         R"("device_watch":{"events":7,"rescans":2},"tapout_buffers":[)"
         R"({"id":20,"name":"tapout20","enabled":true,"running":true,"tap":"2:imic.0","outputs":["pas1"],)"
         R"("format":{"rate":48000,"channels":1,"bytes_per_sample":2,"payload":960,"block_length":480},)"
         R"("packets":)" + std::to_string(p20) + R"(,"bytes":0,"lost":0,)" + cut0 +
         R"(,"skipped_bytes":0,"read_errors":0,"reopens":0,"eof_episodes":0,)"
         R"("process_us":{"p50":15,"p99":63,"max":80},"jitter_max_us":120,"last_error":null},)"
         R"({"id":21,"name":"tapout21","enabled":false,"running":false,"tap":null,"outputs":[],"format":null,)"
         R"("packets":0,"bytes":0,"lost":0,)" + cut0 +
         R"(,"skipped_bytes":0,"read_errors":0,"reopens":0,"eof_episodes":0,)"
         R"("process_us":{"p50":null,"p99":null,"max":null},"jitter_max_us":0,"last_error":null},)"
         R"({"id":40,"name":"tapout40","enabled":true,"running":true,"tap":"4:vpdl.0","outputs":["art0"],)"
         R"("format":{"rate":48000,"channels":2,"bytes_per_sample":3,"payload":28800,"block_length":4800},)"
         R"("packets":)" + std::to_string(p40) + R"(,"bytes":0,"lost":1,)"
         R"("cut":{"alignment":1,"version":0,"oversize":2,"no_magic":0,"excess":0},)"
         R"("skipped_bytes":12,"read_errors":3,"reopens":1,"eof_episodes":0,)"
         R"("process_us":{"p50":100,"p99":250,"max":300},"jitter_max_us":900,"last_error":{"code":-5,"age_s":1.0}},)"
         R"({"id":41,"name":"tapout41","enabled":true,"running":false,"tap":null,"outputs":[],"format":null,)"
         R"("packets":)" + std::to_string(p41) + R"(,"bytes":0,"lost":0,)" + cut0 +
         R"(,"skipped_bytes":0,"read_errors":0,"reopens":0,"eof_episodes":0,)"
         R"("process_us":{"p50":null,"p99":null,"max":null},"jitter_max_us":0,"last_error":null}],)"
         R"("inject_buffers":[)"
         R"({"id":20,"name":"inject20","enabled":true,"tap":"2:imic.0","input":"pas1","packets":9,)"
         R"("write_failures":{},"write_timeouts":0,"cut":0},)"
         R"({"id":40,"name":"inject40","enabled":true,"tap":"4:vpdl.0","input":"art0","packets":48,)"
         R"("write_failures":{"-110":2,"-11":1},"write_timeouts":2,"cut":0}],)"
         R"("processors":[)"
         R"({"id":"art0","type":"arel","enabled":true,"input":"tapout40","output":"inject40","blocks":50,"failed":4,)"
         R"("client":{"registered":true,"pid":1234,"sent":48,"failed":0,"dropped":2,"queued":0}},)"
         R"({"id":"pas1","type":"pass","enabled":true,"input":"tapout20","output":"inject20","blocks":9,"failed":0}]})"
         "\n";
}

std::vector<std::vector<std::string>> Cells(const std::string& table) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(table);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    rows.emplace_back();
    for (std::string w; words >> w;) rows.back().push_back(w);
  }
  return rows;
}

TEST(LumxTop, RowsFromTwoDumps) {
  DumpSample before, now;
  std::string err;
  ASSERT_TRUE(ParseDump(Dump("10.000", 1000, 50, 7), &before, &err)) << err;
  ASSERT_TRUE(ParseDump(Dump("12.000", 1200, 50, 3), &now, &err)) << err;
  const std::string table = RenderTopText(now, ComputeTopRows(&before, now));
  const std::vector<std::vector<std::string>> want = {
      {"lumxd", "up", "12.0", "s;", "wake", "lock", "held;", "control", "channel", "open,", "12", "commands,", "0",
       "timeouts,", "1", "reopens"},
      {"S", "ID", "BUFFER", "TAP", "QUANT", "RATE", "FORMAT", "PKT/S", "LOST", "ERR", "P99us", "DROPS", "PROCESSORS"},
      // 200 packets in 2 s.
      {"R", "20", "tapout20", "2:imic.0", "480", "48000", "16bit", "1ch", "100.0", "0", "0", "63", "0", "pas1"},
      {"S", "21", "tapout21", "-", "-", "-", "-", "0.0", "0", "0", "-", "0", "-"},
      // Running without a packet: idle. Errors: 3 read errors, 3 packets
      // cut, 4 failed blocks of art0 and 3 failed writes into inject40.
      {"I", "40", "tapout40", "4:vpdl.0", "4800", "48000", "24bit", "2ch", "0.0", "1", "13", "250", "2", "art0"},
      // Enabled without its I/O thread; its counter went back: no rate.
      {"E", "41", "tapout41", "-", "-", "-", "-", "-", "0", "0", "-", "0", "-"},
  };
  EXPECT_EQ(Cells(table), want) << table;
  const std::string json = RenderTopJson(now, ComputeTopRows(&before, now));
  EXPECT_EQ(json.rfind("{\"op\":\"top\",\"uptime_s\":12,\"streams\":[{\"state\":\"R\",\"id\":20,\"buffer\":\"tapout20\","
            "\"tap\":\"2:imic.0\",\"quantum\":480,\"rate\":48000,\"format\":\"16bit 1ch\",\"packets_per_s\":100,"
            "\"lost\":0,\"errors\":0,\"p99_us\":63,\"relay_drops\":0,\"processors\":\"pas1\"},{\"state\":\"S\","
            "\"id\":21,\"buffer\":\"tapout21\",\"tap\":null,\"quantum\":null,\"rate\":null,", 0),
            0u)
      << json;

  // The first frame has no rates; a running stream then counts as running.
  std::vector<TopRow> first = ComputeTopRows(nullptr, now);
  ASSERT_EQ(first.size(), 4u);
  EXPECT_FALSE(first[0].packetsPerS.has_value());
  EXPECT_EQ(first[2].state, 'R');
  // A restarted daemon (uptime went back) gives no rates either.
  EXPECT_FALSE(ComputeTopRows(&now, before)[0].packetsPerS.has_value());
}

TEST(LumxTop, RefusesWhatIsNotALumxdDump) {
  const std::pair<std::string, std::string> bad[] = {
      {"", "the dump is not JSON: unexpected end at byte 0"},
      {"lumxd\n  uptime 3 s\n", "the dump is not JSON"},
      {"{\"uptime_s\":1}", "not a lumxd dump"},
      {"{\"tapout_buffers\":[]}", "not a lumxd dump"},
      {"[1,2]", "not a lumxd dump"},
  };
  for (const auto& [text, why] : bad) {
    DumpSample s;
    std::string err;
    EXPECT_FALSE(ParseDump(text, &s, &err)) << text;
    EXPECT_NE(err.find(why), std::string::npos) << err;
  }
}

TEST(LumxJson, ReadsStrictJsonOnly) {
  JsonValue v;
  std::string err;
  ASSERT_TRUE(JsonValue::Parse(
      " {\"a\":[18446744073709551615,-2,0.5,1e3,true,false,null],\"s\":\"\\u00e9\\ud83c\\udfb5\\n\\\"\\/\"} ", &v, &err))
      << err;
  const std::vector<JsonValue>& a = v["a"].items();
  ASSERT_EQ(a.size(), 7u);
  EXPECT_EQ(a[0].u64(), 18446744073709551615ull);
  EXPECT_EQ(a[1].number(), -2.0);
  EXPECT_EQ(a[1].u64(), 0u);  // not a counter
  EXPECT_EQ(a[2].number(), 0.5);
  EXPECT_EQ(a[3].number(), 1000.0);
  EXPECT_EQ(a[3].u64(), 0u);
  EXPECT_TRUE(a[4].boolean());
  EXPECT_TRUE(a[5].isBool() && !a[5].boolean());
  EXPECT_TRUE(a[6].isNull());
  EXPECT_EQ(v["s"].str(), "\xc3\xa9\xf0\x9f\x8e\xb5\n\"/");
  EXPECT_TRUE(v["missing"]["deeper"].isNull());

  std::string deep(65, '[');
  deep += std::string(65, ']');
  for (const std::string& text : std::vector<std::string>{
           "{} x", "01", "1.", ".5", "-", "1e", "\"a", "\"\x01\"", "\"\\x\"", "\"\\u12\"", "\"\\ud800\\u0041\"",
           "{\"a\" 1}", "{\"a\":1,}", "[1,]", "[1 2]", "tru", "nul", "{1:2}", "1e999", deep}) {
    EXPECT_FALSE(JsonValue::Parse(text, &v, &err)) << text;
  }
  deep = std::string(64, '[') + std::string(64, ']');
  EXPECT_TRUE(JsonValue::Parse(deep, &v, &err)) << err;
}

TEST(LumxGraph, DisabledPartsStaleRegistrationsAndAFailedCore) {
  GraphListings in;
  in.processors = {"Lumx processors:", "  Id        Type      InBuffer  OutBuffer Enabled  ",
                   "  q\"\\z      pass      tapout30  -         0        "};
  in.tapOut = {"Tap-out buffers:", "  Id        Name      InProc    OutProc   Enabled",
               "  30        tapout30  -         q\"\\z,gone 0        ",
               "  31        tapout31  -         -         0        "};
  in.inject = {"Inject buffers:", "  none"};
  in.taps = {{2,
              {"LUM tap list core:2",
               "  Id        Format              BlockLen  OutBuffer InBuffer  Enabled  \n"
               "  imic.12   48kHz, 2ch, 16bps   960       tapout30  -         0        \n"
               "  sspk.0    48kHz, 2ch, 16bps   480       -         -         1        "}},
             {3, {"LUM tap list core:3", "  No tap points"}},
             {4, {"LUM tap list core:4", "  No tap points registered"}}};
  std::vector<std::string> problems;
  EXPECT_EQ(GraphDot(in, &problems),
            "digraph lumx {\n"
            "  rankdir=LR;\n"
            "  labelloc=t;\n"
            "  label=\"no tap list from DSP core 3\";\n"
            "  node [fontname=\"Helvetica\", fontsize=10];\n"
            "  subgraph \"cluster_core2\" {\n"
            "    label=\"DSP core 2\";\n"
            "    \"tap 2:imic.12\" [shape=ellipse, style=dashed, label=\"imic.12\\n48kHz, 2ch, 16bps\\nblock "
            "960\\n(disabled)\"];\n"
            "  }\n"
            "  subgraph \"cluster_lumxd\" {\n"
            "    label=\"lumxd\";\n"
            "    \"buffer tapout30\" [shape=box, style=dashed, label=\"tapout30\\n(disabled)\"];\n"
            "    \"processor q\\\"\\\\z\" [shape=box, style=\"rounded,dashed\", label=\"q\\\"\\\\z\\npass\\n(disabled)\"];\n"
            "  }\n"
            "  \"buffer tapout30\" -> \"processor gone\" [style=dotted, label=\"registered\"];\n"
            "  \"buffer tapout30\" -> \"processor q\\\"\\\\z\";\n"
            "  \"tap 2:imic.12\" -> \"buffer tapout30\";\n"
            "}\n");
  EXPECT_EQ(problems, std::vector<std::string>{"no tap list from DSP core 3"});

  // Rows of a form the daemon does not print are named, not guessed at.
  in = GraphListings{};
  in.processors = {"Lumx processors:", "  pas1 pass"};
  in.taps = {{2, {"LUM tap list core:2", "header\n  imic-0 garbage"}}};
  problems.clear();
  GraphDot(in, &problems);
  EXPECT_EQ(problems, (std::vector<std::string>{"unreadable processor row '  pas1 pass'",
                                                "unreadable tap row '  imic-0 garbage'"}));
}

}  // namespace
}  // namespace lumx::cli
