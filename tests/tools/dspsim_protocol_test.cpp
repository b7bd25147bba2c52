// lumx-dspsim: the tap table, the DSP's command handling byte by byte, the
// framing of the control node, and the control node itself driven like the
// daemon drives it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "tests/tools/dspsim_test_util.h"
#include "tools/lumx-dspsim/control_channel.h"
#include "tools/lumx-dspsim/dsp_model.h"

namespace lumx::dspsim {
namespace {

std::vector<uint8_t> Answer(DspModel& m, const std::vector<uint8_t>& req, CommandOutcome* out = nullptr) {
  std::vector<uint8_t> reply(req.size(), 0xEE);
  CommandOutcome o = m.Handle(req.data(), req.size(), reply.data());
  if (out != nullptr) *out = o;
  return reply;
}
int16_t StatusOf(DspModel& m, const std::vector<uint8_t>& req) { return LoadI16(&Answer(m, req)[6]); }

void ExpectHeader(const std::vector<uint8_t>& reply, uint8_t id, uint16_t opcode, int16_t status) {
  ASSERT_GE(reply.size(), kCmdHeaderSize);
  EXPECT_EQ(reply[0], 0);
  EXPECT_EQ(reply[1], id);
  EXPECT_EQ(LoadU16(&reply[2]), reply.size());
  EXPECT_EQ(LoadU16(&reply[4]), opcode);
  EXPECT_EQ(LoadI16(&reply[6]), status);
}

// ---- tap table ---------------------------------------------------------------

// Paging and channel counts of the built-in table are checked where they are
// used (list pages, two-channel payloads).
TEST(DspsimTapTable, DefaultTableCoversTheUseCasesDisabledAndUnbound) {
  std::vector<TapEntry> t = DefaultTapTable();
  for (auto [core, code, index] : {std::tuple{2, "imic", 0}, {2, "sspk", 0}, {4, "vpdl", 0}, {4, "vpul", 1}}) {
    EXPECT_TRUE(std::any_of(t.begin(), t.end(), [&, c = core, x = code, i = index](const TapEntry& e) {
      return e.core == c && e.code == FourCc(x) && e.index == i;
    })) << code;
  }
  for (const TapEntry& e : t) {
    EXPECT_EQ(e.sampleRate, 48000u);
    EXPECT_EQ(e.bitsPerSample, 16);
    EXPECT_EQ(e.blockLength, 480u);
    EXPECT_FALSE(e.enabled);
    EXPECT_EQ(e.tapOut, kNoBuffer);
  }
}

// Every field of an entry, written out by the test.
std::string Fields(const TapEntry& e) {
  char buf[160];
  snprintf(buf, sizeof buf, "%d %08x.%d %u %u %dch %db en=%d extra=%d tapout=%d inject=%d tone=%g phase=%d", e.core,
           e.code, e.index, e.sampleRate, e.blockLength, e.channels, e.bitsPerSample, e.enabled, e.extra, e.tapOut,
           e.inject, e.toneHz, static_cast<int>(e.phaseUs));
  return buf;
}

TEST(DspsimTapTable, ParsesFieldsOptionsAndCommentsAndFormatsBack) {
  std::vector<TapEntry> t, again;
  std::string err;
  ASSERT_TRUE(ParseTapTable("# comment\n\n3 abcd.7 16000 960 2 24 enabled=1 extra=9 tapout=12 inject=none "
                            "tone=440 phase=59999 # trailing\n2 imic.0 48000 480 1 16\n",
                            &t, &err))
      << err;
  ASSERT_TRUE(ParseTapTable(FormatTapTable(t), &again, &err)) << err;
  for (const std::vector<TapEntry>* v : {&t, &again}) {
    ASSERT_EQ(v->size(), 2u);
    EXPECT_EQ(Fields((*v)[0]),
              "3 61626364.7 16000 960 2ch 24b en=1 extra=9 tapout=12 inject=255 tone=440 phase=59999");
    EXPECT_EQ(Fields((*v)[1]),
              "2 696d6963.0 48000 480 1ch 16b en=0 extra=0 tapout=255 inject=255 tone=0 phase=-1");
  }
}

TEST(DspsimTapTable, RejectsBadLinesNamingTheLine) {
  struct Case {
    const char* text;
    const char* needle;
  } cases[] = {
      {"2 imic.0 48000 480 1\n", "line 1"},
      {"\n2 imi.0 48000 480 1 16\n", "line 2"},
      {"2 imic.0 48000 500 1 16\n", "multiple of 480"},
      {"2 imic.0 48000 0 1 16\n", "multiple of 480"},
      {"2 imic.0 48000 16800 2 16\n", "65472"},
      {"2 imic.0 48000 480 1 8\n", "bits"},
      {"2 imic.0 0 480 1 16\n", "sample rate"},
      {"2 imic.0 48000 480 9 16\n", "channel"},
      {"256 imic.0 48000 480 1 16\n", "core"},
      {"2 imic.0 48000 480 1 16 colour=red\n", "bad option"},
      {"2 imic.0 48000 480 1 16 tapout=255\n", "bad option"},
      {"2 imic.0 48000 480 1 16 phase=-1\n", "bad option"},
      {"2 imic.0 48000 480 1 16 phase=10000\n", "block period"},
      {"3 abcd.7 16000 960 2 24 phase=60000\n", "block period"},
      {"2 imic.0 48000 480 1 16\n2 imic.0 48000 480 1 16\n", "duplicate"},
      {"2 imic.0 48000 480 1 16 tapout=3\n2 imic.1 48000 480 1 16 tapout=3\n", "bound twice"},
      {"# nothing\n", "no taps"},
  };
  for (const Case& c : cases) {
    std::vector<TapEntry> t;
    std::string err;
    EXPECT_FALSE(ParseTapTable(c.text, &t, &err)) << c.text;
    EXPECT_NE(err.find(c.needle), std::string::npos) << c.text << " -> " << err;
  }
}

// ---- command handling -----------------------------------------------------------

TEST(DspsimModel, ListPageLayoutAtEveryOffsetAndPagingEndsWithAZeroCode) {
  DspModel m(DefaultTapTable());
  std::vector<uint8_t> r = Answer(m, ListReq(2, 0, 0x5A));
  ASSERT_EQ(r.size(), 44u);
  ExpectHeader(r, 0x5A, kOpTapList, 0);
  EXPECT_EQ(r[8], 2);
  EXPECT_EQ(r[9], 0);
  EXPECT_EQ(LoadU16(&r[10]), 5) << "tap count of core 2";
  const char* codes[4] = {"imic", "sspk", "imic", "eref"};
  const uint8_t idx[4] = {0, 0, 1, 0};
  for (int i = 0; i < 4; ++i) {
    const uint8_t* e = &r[12 + 8 * i];
    EXPECT_EQ(e[0], static_cast<uint8_t>(codes[i][3])) << "code little-endian, entry " << i;
    EXPECT_EQ(LoadU32(e), FourCc(codes[i])) << i;
    EXPECT_EQ(e[4], idx[i]) << i;
    EXPECT_EQ(e[5], 2) << i;
    EXPECT_EQ(e[6], 0) << i;
    EXPECT_EQ(e[7], 0) << i;
  }
  // Five taps: page 1 holds one, then a zero code.
  std::vector<uint8_t> p1 = Answer(m, ListReq(2, 1));
  EXPECT_EQ(LoadU32(&p1[12]), FourCc("aecr"));
  EXPECT_EQ(p1[9], 1);
  for (size_t i = 20; i < 44; ++i) EXPECT_EQ(p1[i], 0) << i;
  // Exactly four taps: page 0 is full, page 1 starts with a zero code.
  std::vector<uint8_t> c4 = Answer(m, ListReq(4, 0));
  for (int i = 0; i < 4; ++i) EXPECT_NE(LoadU32(&c4[12 + 8 * i]), 0u) << i;
  std::vector<uint8_t> c4p1 = Answer(m, ListReq(4, 1));
  EXPECT_EQ(LoadI16(&c4p1[6]), 0);
  EXPECT_EQ(LoadU32(&c4p1[12]), 0u);
  // A core without taps answers page 0 with a zero code; an unknown core fails.
  std::vector<TapEntry> only2;
  for (const TapEntry& t : DefaultTapTable()) {
    if (t.core == 2) only2.push_back(t);
  }
  DspModel m2(only2);
  std::vector<uint8_t> empty = Answer(m2, ListReq(3, 0));
  EXPECT_EQ(LoadI16(&empty[6]), 0);
  EXPECT_EQ(LoadU32(&empty[12]), 0u);
  EXPECT_EQ(LoadU16(&empty[10]), 0);
  EXPECT_EQ(StatusOf(m2, ListReq(7, 0)), kStatusNoCore);
}

TEST(DspsimModel, InfoReplyLayoutAtEveryOffset) {
  std::vector<TapEntry> t;
  std::string err;
  ASSERT_TRUE(ParseTapTable("4 vpul.1 48000 960 2 16 enabled=1 extra=171 tapout=41 inject=40\n", &t, &err));
  DspModel m(t);
  std::vector<uint8_t> req = MakeTapRequest(kOpTapInfo, 4, "vpul", 1, 0x99);
  req[15] = 0x42;  // the identifier's extra byte as the list gave it
  std::vector<uint8_t> r = Answer(m, req);
  ASSERT_EQ(r.size(), 28u);
  ExpectHeader(r, 0x99, kOpTapInfo, 0);
  EXPECT_EQ(LoadU32(&r[8]), FourCc("vpul"));
  EXPECT_EQ(LoadU32(&r[16]), 0x473B8000u) << "48000 as IEEE-754 single, little-endian";
  EXPECT_EQ(LoadU32(&r[20]), 960u);
  for (auto [offset, value] : {std::pair{12, 1}, {13, 4}, {14, 1}, {15, 171}, {24, 2}, {25, 16}, {26, 41}, {27, 40}}) {
    EXPECT_EQ(r[offset], value) << "offset " << offset;
  }
}

TEST(DspsimModel, UnknownTapCoreAndRefusedValues) {
  DspModel m(DefaultTapTable());
  CommandOutcome o;
  std::vector<uint8_t> r = Answer(m, MakeTapRequest(kOpTapInfo, 2, "nope", 0), &o);
  EXPECT_EQ(o.status, kStatusNoTap);
  EXPECT_EQ(r[26], 0xFF) << "refused requests come back unchanged";
  const std::pair<std::vector<uint8_t>, int16_t> cases[] = {
      {MakeTapRequest(kOpTapInfo, 2, "imic", 5), kStatusNoTap},
      {MakeTapRequest(kOpTapInfo, 9, "imic", 0), kStatusNoCore},
      {EnableReq(3, "imic", 0, 1), kStatusNoTap},
      {BindReq(1, "imic", 0, 20, 20), kStatusNoCore},
      {BlockLenReq(2, "imix", 0, 480), kStatusNoTap},
      {EnableReq(2, "imic", 0, 2), kStatusBadValue},
      {BlockLenReq(2, "imic", 0, 0), kStatusBadValue},
      {BlockLenReq(2, "imic", 0, 500), kStatusBadValue},
      {BlockLenReq(2, "imic", 0, 0xFFFFFFFFu), kStatusBadValue},
      {BlockLenReq(2, "imic", 0, 32640), kStatusOk},  // mono 16-bit: 65280 bytes fit
      {BlockLenReq(2, "imic", 0, 33120), kStatusTooLarge},
      {BlockLenReq(2, "sspk", 0, 16320), kStatusOk},
      {BlockLenReq(2, "sspk", 0, 16800), kStatusTooLarge},
  };
  for (const auto& [req, status] : cases) {
    EXPECT_EQ(StatusOf(m, req), status) << "opcode " << LoadU16(&req[4]) << " core " << int{req[13]};
  }
  EXPECT_EQ(LoadU32(&Answer(m, MakeTapRequest(kOpTapInfo, 2, "sspk", 0))[20]), 16320u)
      << "a refused length leaves the last accepted one";
}

TEST(DspsimModel, EnableBindAndBlockLengthShowInInfoAndList) {
  DspModel m(DefaultTapTable());
  CommandOutcome o;
  std::vector<uint8_t> en = EnableReq(2, "imic", 0, 1, 1), bind = BindReq(2, "imic", 0, 20, 21, 2),
                       bl = BlockLenReq(2, "imic", 0, 4800, 3);
  uint8_t id = 1;
  for (auto [req, opcode, size] : {std::tuple{&en, kOpTapEnable, 16u}, {&bind, kOpTapBind, 18u},
                                   {&bl, kOpTapSetBlockLen, 20u}}) {
    std::vector<uint8_t> r = Answer(m, *req, &o);
    EXPECT_EQ(r.size(), size);
    ExpectHeader(r, id++, opcode, 0);
    EXPECT_TRUE(o.changed) << opcode;
  }

  // These three replies echo the request byte for byte, status aside.
  for (const std::vector<uint8_t>* req : {&en, &bind, &bl}) {
    std::vector<uint8_t> again = *req;
    again[13] = 9;  // an unknown core, so that the echo carries a status
    std::vector<uint8_t> rep = Answer(m, again);
    for (size_t i = 0; i < again.size(); ++i) {
      if (i != 6 && i != 7) {
        EXPECT_EQ(rep[i], again[i]) << "offset " << i;
      }
    }
    EXPECT_EQ(LoadI16(&rep[6]), kStatusNoCore);
  }
  std::vector<uint8_t> expect = bind;
  expect[6] = expect[7] = 0;
  EXPECT_EQ(Answer(m, bind), expect);

  std::vector<uint8_t> info = Answer(m, MakeTapRequest(kOpTapInfo, 2, "imic", 0));
  EXPECT_EQ(info[14], 1);
  EXPECT_EQ(LoadU32(&info[20]), 4800u);
  EXPECT_EQ(info[26], 20);
  EXPECT_EQ(info[27], 21);
  EXPECT_EQ(Answer(m, ListReq(2, 0))[12 + 6], 1) << "list shows the enabled flag";

  en[14] = 0;
  Answer(m, en, &o);
  EXPECT_TRUE(o.changed);
  EXPECT_EQ(Answer(m, MakeTapRequest(kOpTapInfo, 2, "imic", 0))[14], 0);
  Answer(m, en, &o);
  EXPECT_FALSE(o.changed) << "disabling a disabled tap changes nothing";

  m.Reset();
  info = Answer(m, MakeTapRequest(kOpTapInfo, 2, "imic", 0));
  EXPECT_EQ(LoadU32(&info[20]), 480u);
  EXPECT_EQ(info[26], 0xFF);
}

TEST(DspsimModel, BindingABufferTakesItFromTheOtherTap) {
  DspModel m(DefaultTapTable());
  Answer(m, BindReq(2, "imic", 0, 20, 20));
  Answer(m, BindReq(2, "sspk", 0, 20, 0xFF));
  std::vector<uint8_t> ia = Answer(m, MakeTapRequest(kOpTapInfo, 2, "imic", 0));
  EXPECT_EQ(ia[26], 0xFF) << "tap-out 20 moved to sspk.0";
  EXPECT_EQ(ia[27], 20) << "inject 20 stays";
  std::vector<uint8_t> ib = Answer(m, MakeTapRequest(kOpTapInfo, 2, "sspk", 0));
  EXPECT_EQ(ib[26], 20);
  EXPECT_EQ(ib[27], 0xFF);
  EXPECT_EQ(m.FindByInject(20)->code, FourCc("imic"));
}

TEST(DspsimModel, WrongSizesUnknownOpcodesAndShortMessages) {
  DspModel m(DefaultTapTable());
  CommandOutcome o;
  // An enable of 20 bytes: replied with 20 bytes and EMSGSIZE.
  std::vector<uint8_t> r = Answer(m, MakeRequest(kOpTapEnable, 20, 4), &o);
  ASSERT_EQ(r.size(), 20u);
  ExpectHeader(r, 4, kOpTapEnable, kStatusBadSize);
  EXPECT_TRUE(o.knownOpcode);
  // Right length, but the size field disagrees.
  std::vector<uint8_t> lie = MakeTapRequest(kOpTapInfo, 2, "imic", 0);
  StoreU16(&lie[2], 44);
  EXPECT_EQ(StatusOf(m, lie), kStatusBadSize);
  // Unknown opcode of any size.
  r = Answer(m, MakeRequest(300, 12, 5), &o);
  ASSERT_EQ(r.size(), 12u);
  ExpectHeader(r, 5, 300, kStatusBadOpcode);
  EXPECT_FALSE(o.knownOpcode);
  // Fewer than 8 bytes: echoed, nothing else.
  std::vector<uint8_t> tiny = {1, 2, 3, 4, 5};
  EXPECT_EQ(Answer(m, tiny, &o), tiny);
  EXPECT_FALSE(o.hasHeader);
}

// ---- framing -------------------------------------------------------------------

TEST(DspsimFraming, SplitsOnlyWhereSizeFieldsChain) {
  auto join = [](std::vector<uint8_t> x, const std::vector<uint8_t>& y, size_t ylen) {
    x.insert(x.end(), y.begin(), y.begin() + static_cast<std::ptrdiff_t>(ylen));
    return x;
  };
  std::vector<uint8_t> a = MakeRequest(kOpTapEnable, 16), b = MakeRequest(kOpTapList, 44);
  std::vector<uint8_t> odd = MakeRequest(kOpTapEnable, 20);
  StoreU16(&odd[2], 16);
  using Spans = std::vector<std::pair<size_t, size_t>>;
  struct Case {
    const char* what;
    std::vector<uint8_t> bytes;
    bool final;
    size_t consumed;
    Spans spans;
  } cases[] = {
      {"two chained requests", join(a, b, 44), false, 60, {{0, 16}, {16, 44}}},
      {"a size field leaving 4 stray bytes", odd, false, 20, {{0, 20}}},
      {"a request still arriving waits", join({}, b, 30), false, 0, {}},
      {"even its header", join({}, b, 5), false, 0, {}},
      {"unless this is the final call", join({}, b, 30), true, 30, {{0, 30}}},
      {"a whole request and part of another", join(a, b, 20), false, 36, {{0, 36}}},
  };
  for (const Case& c : cases) {
    Spans spans;
    EXPECT_EQ(FrameRequests(c.bytes.data(), c.bytes.size(), c.final, &spans), c.consumed) << c.what;
    EXPECT_EQ(spans, c.spans) << c.what;
  }
}

// ---- the control node, as the daemon uses it --------------------------------

class DspsimControlNode : public SimTest {
 protected:
  void SetUp() override { StartSim(); }
};

TEST_F(DspsimControlNode, EveryOpcodeAndErrorRoundTripsAtTheRequestSize) {
  std::vector<uint8_t> info = MakeTapRequest(kOpTapInfo, 2, "imic", 0, 14), list = ListReq(2, 0, 13);
  std::vector<uint8_t> msgs[] = {EnableReq(2, "imic", 0, 1, 10), BindReq(2, "imic", 0, 20, 20, 11),
                                 BlockLenReq(2, "imic", 0, 960, 12), MakeRequest(kOpTapInfo, 20, 7),
                                 MakeRequest(0x1234, 24, 8), EnableReq(2, "zzzz", 0, 1, 9)};
  const int16_t statuses[] = {0, 0, 0, kStatusBadSize, kStatusBadOpcode, kStatusNoTap};
  for (size_t k = 0; k < 6; ++k) {
    uint16_t opcode = LoadU16(&msgs[k][4]);
    size_t size = msgs[k].size();
    uint8_t id = msgs[k][1];
    ASSERT_TRUE(control_.Exchange(&msgs[k], kWaitMs)) << "no reply to opcode " << opcode;
    ASSERT_EQ(msgs[k].size(), size);
    ExpectHeader(msgs[k], id, opcode, statuses[k]);
  }
  for (std::vector<uint8_t>* m : {&list, &info}) {
    ASSERT_TRUE(control_.Exchange(m, kWaitMs));
    EXPECT_EQ(LoadI16(&(*m)[6]), 0);
  }
  EXPECT_EQ(info[14], 1);
  EXPECT_EQ(LoadU32(&info[20]), 960u);
  EXPECT_EQ(info[26], 20);
  EXPECT_EQ(info[27], 20);
  EXPECT_EQ(list[12 + 6], 1);

  SimStats s = Stats();
  for (uint16_t op : {kOpTapEnable, kOpTapBind, kOpTapList, kOpTapInfo, kOpTapSetBlockLen}) {
    EXPECT_EQ(s.commands[op].statuses[0], 1u) << op;
  }
  EXPECT_EQ(s.commands[kOpTapEnable].count, 2u);
  EXPECT_EQ(s.commands[kOpTapInfo].statuses[kStatusBadSize], 1u);
  EXPECT_EQ(s.commands[0x1234].statuses[kStatusBadOpcode], 1u);
  EXPECT_EQ(s.commands[kOpTapEnable].statuses[kStatusNoTap], 1u);
}

TEST_F(DspsimControlNode, BackToBackRequestsInOneWriteGetTwoReplies) {
  std::vector<uint8_t> both = MakeTapRequest(kOpTapInfo, 2, "imic", 0, 1);
  std::vector<uint8_t> b = MakeTapRequest(kOpTapInfo, 4, "vpdl", 0, 2);
  both.insert(both.end(), b.begin(), b.end());
  ASSERT_TRUE(control_.Send(both));
  std::vector<uint8_t> r1, r2;
  ASSERT_TRUE(control_.Receive(28, kWaitMs, &r1));
  ASSERT_TRUE(control_.Receive(28, kWaitMs, &r2));
  EXPECT_EQ(r1[1], 1);
  EXPECT_EQ(LoadU32(&r1[8]), FourCc("imic"));
  EXPECT_EQ(r2[1], 2);
  EXPECT_EQ(LoadU32(&r2[8]), FourCc("vpdl"));
}

TEST_F(DspsimControlNode, ReopenedClientsKeepWorkingAndStopRemovesTheNodes) {
  for (int round = 0; round < 3; ++round) {
    control_.Close();
    ASSERT_TRUE(control_.Open(dir_.File("zch-lumx_control")));
    std::vector<uint8_t> m = ListReq(3, 0, static_cast<uint8_t>(round));
    ASSERT_TRUE(control_.Exchange(&m, kWaitMs)) << round;
    EXPECT_EQ(LoadU16(&m[10]), 2) << round;
  }
  const char* nodes[] = {"lum", "zch-lumx_control", "zch-lumx_tapout20", "zch-lumx_tapout21",
                         "zch-lumx_tapout40", "zch-lumx_tapout41", "zch-lumx_inject20",
                         "zch-lumx_inject21", "zch-lumx_inject40", "zch-lumx_inject41"};
  for (const char* n : nodes) EXPECT_TRUE(Exists(n)) << n;
  sim_->Stop();
  for (const char* n : nodes) EXPECT_FALSE(Exists(n)) << n << " left behind";
}

}  // namespace
}  // namespace lumx::dspsim
