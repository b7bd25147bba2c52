// lumx-dspsim: the tap table, the DSP's command handling byte by byte, the
// framing of the control node, and the control node itself driven like the
// daemon drives it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "tools/lumx-dspsim/control_channel.h"
#include "tools/lumx-dspsim/dsp_model.h"
#include "tools/lumx-dspsim/sim_client.h"
#include "tools/lumx-dspsim/sim_runner.h"
#include "tools/lumx-dspsim/tap_table.h"

namespace lumx::dspsim {
namespace {

std::vector<uint8_t> Answer(DspModel& m, const std::vector<uint8_t>& req,
                            CommandOutcome* out = nullptr) {
  std::vector<uint8_t> reply(req.size(), 0xEE);
  CommandOutcome o = m.Handle(req.data(), req.size(), reply.data());
  if (out != nullptr) *out = o;
  return reply;
}

std::vector<uint8_t> ListReq(uint8_t core, uint8_t page, uint8_t id = 0x33) {
  std::vector<uint8_t> r = MakeRequest(kOpTapList, kTapListSize, id);
  r[8] = core;
  r[9] = page;
  return r;
}

void ExpectHeader(const std::vector<uint8_t>& reply, uint8_t id, uint16_t opcode, int16_t status) {
  ASSERT_GE(reply.size(), kCmdHeaderSize);
  EXPECT_EQ(reply[0], 0);
  EXPECT_EQ(reply[1], id);
  EXPECT_EQ(LoadU16(&reply[2]), reply.size());
  EXPECT_EQ(LoadU16(&reply[4]), opcode);
  EXPECT_EQ(LoadI16(&reply[6]), status);
}

// ---- tap table ---------------------------------------------------------------

TEST(DspsimTapTable, DefaultTableCoversTheUseCasesAndPaging) {
  std::vector<TapEntry> t = DefaultTapTable();
  DspModel m(t);
  auto has = [&](uint8_t core, const char* code, uint8_t index) {
    for (const TapEntry& e : t) {
      if (e.core == core && e.code == FourCc(code) && e.index == index) return true;
    }
    return false;
  };
  EXPECT_TRUE(has(2, "imic", 0));
  EXPECT_TRUE(has(2, "sspk", 0));
  EXPECT_TRUE(has(4, "vpdl", 0));
  EXPECT_TRUE(has(4, "vpul", 1));
  size_t per[5] = {};
  bool twoChannel = false;
  for (const TapEntry& e : t) {
    ASSERT_LT(e.core, 5);
    ++per[e.core];
    EXPECT_EQ(e.sampleRate, 48000u);
    EXPECT_EQ(e.bitsPerSample, 16);
    EXPECT_EQ(e.blockLength, 480u);
    EXPECT_FALSE(e.enabled);
    EXPECT_EQ(e.tapOut, kNoBuffer);
    twoChannel = twoChannel || e.channels == 2;
  }
  EXPECT_GT(per[2], 4u) << "one core must need a second list page";
  EXPECT_EQ(per[4], 4u) << "one core must fill exactly one page";
  EXPECT_GT(per[3], 0u);
  EXPECT_TRUE(twoChannel);
}

TEST(DspsimTapTable, ParsesFieldsOptionsAndComments) {
  std::vector<TapEntry> t;
  std::string err;
  ASSERT_TRUE(
      ParseTapTable("# comment\n\n"
                    "3 abcd.7 16000 960 2 24 enabled=1 extra=9 tapout=12 inject=none "
                    "tone=440 # trailing\n"
                    "2 imic.0 48000 480 1 16\n",
                    &t, &err))
      << err;
  ASSERT_EQ(t.size(), 2u);
  EXPECT_EQ(t[0].core, 3);
  EXPECT_EQ(t[0].code, FourCc("abcd"));
  EXPECT_EQ(t[0].index, 7);
  EXPECT_EQ(t[0].sampleRate, 16000u);
  EXPECT_EQ(t[0].blockLength, 960u);
  EXPECT_EQ(t[0].channels, 2);
  EXPECT_EQ(t[0].bitsPerSample, 24);
  EXPECT_TRUE(t[0].enabled);
  EXPECT_EQ(t[0].extra, 9);
  EXPECT_EQ(t[0].tapOut, 12);
  EXPECT_EQ(t[0].inject, kNoBuffer);
  EXPECT_DOUBLE_EQ(t[0].toneHz, 440.0);
  EXPECT_FALSE(t[1].enabled);

  std::vector<TapEntry> again;
  ASSERT_TRUE(ParseTapTable(FormatTapTable(t), &again, &err)) << err;
  ASSERT_EQ(again.size(), 2u);
  EXPECT_EQ(again[0].tapOut, 12);
  EXPECT_EQ(again[0].extra, 9);
  EXPECT_DOUBLE_EQ(again[0].toneHz, 440.0);
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

TEST(DspsimModel, ListPageLayoutAtEveryOffset) {
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
}

TEST(DspsimModel, PagingEndsWithAZeroCode) {
  DspModel m(DefaultTapTable());
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
  EXPECT_EQ(LoadI16(&Answer(m2, ListReq(7, 0))[6]), kStatusNoCore);
}

TEST(DspsimModel, InfoReplyLayoutAtEveryOffset) {
  std::vector<TapEntry> t;
  std::string err;
  ASSERT_TRUE(
      ParseTapTable("4 vpul.1 48000 960 2 16 enabled=1 extra=171 tapout=41 inject=40\n", &t, &err));
  DspModel m(t);
  std::vector<uint8_t> req = MakeTapRequest(kOpTapInfo, 4, "vpul", 1, 0x99);
  req[15] = 0x42;  // the identifier's extra byte as the list gave it
  std::vector<uint8_t> r = Answer(m, req);
  ASSERT_EQ(r.size(), 28u);
  ExpectHeader(r, 0x99, kOpTapInfo, 0);
  EXPECT_EQ(LoadU32(&r[8]), FourCc("vpul"));
  EXPECT_EQ(r[12], 1);
  EXPECT_EQ(r[13], 4);
  EXPECT_EQ(r[14], 1);
  EXPECT_EQ(r[15], 171);
  EXPECT_EQ(LoadF32(&r[16]), 48000.0f);
  EXPECT_EQ(LoadU32(&r[16]), 0x473B8000u) << "IEEE-754 single, little-endian";
  EXPECT_EQ(LoadU32(&r[20]), 960u);
  EXPECT_EQ(r[24], 2);
  EXPECT_EQ(r[25], 16);
  EXPECT_EQ(r[26], 41);
  EXPECT_EQ(r[27], 40);
}

TEST(DspsimModel, UnknownTapAndCore) {
  DspModel m(DefaultTapTable());
  CommandOutcome o;
  std::vector<uint8_t> r = Answer(m, MakeTapRequest(kOpTapInfo, 2, "nope", 0), &o);
  EXPECT_EQ(LoadI16(&r[6]), kStatusNoTap);
  EXPECT_EQ(o.status, kStatusNoTap);
  EXPECT_EQ(r[26], 0xFF) << "refused requests come back unchanged";
  EXPECT_EQ(LoadI16(&Answer(m, MakeTapRequest(kOpTapInfo, 2, "imic", 5))[6]), kStatusNoTap);
  EXPECT_EQ(LoadI16(&Answer(m, MakeTapRequest(kOpTapInfo, 9, "imic", 0))[6]), kStatusNoCore);
  EXPECT_EQ(LoadI16(&Answer(m, MakeTapRequest(kOpTapEnable, 3, "imic", 0))[6]), kStatusNoTap);
  EXPECT_EQ(LoadI16(&Answer(m, MakeTapRequest(kOpTapBind, 1, "imic", 0))[6]), kStatusNoCore);
  EXPECT_EQ(LoadI16(&Answer(m, MakeTapRequest(kOpTapSetBlockLen, 2, "imix", 0))[6]), kStatusNoTap);
}

TEST(DspsimModel, EnableBindAndBlockLengthShowInInfoAndList) {
  DspModel m(DefaultTapTable());
  CommandOutcome o;
  std::vector<uint8_t> en = MakeTapRequest(kOpTapEnable, 2, "imic", 0, 1);
  en[14] = 1;
  std::vector<uint8_t> r = Answer(m, en, &o);
  ExpectHeader(r, 1, kOpTapEnable, 0);
  EXPECT_EQ(r.size(), 16u);
  EXPECT_TRUE(o.changed);

  std::vector<uint8_t> bind = MakeTapRequest(kOpTapBind, 2, "imic", 0, 2);
  bind[16] = 20;
  bind[17] = 21;
  r = Answer(m, bind);
  ExpectHeader(r, 2, kOpTapBind, 0);
  EXPECT_EQ(r.size(), 18u);

  std::vector<uint8_t> bl = MakeTapRequest(kOpTapSetBlockLen, 2, "imic", 0, 3);
  StoreU32(&bl[16], 4800);
  r = Answer(m, bl);
  ExpectHeader(r, 3, kOpTapSetBlockLen, 0);
  EXPECT_EQ(r.size(), 20u);

  // These three replies echo the request byte for byte, status aside.
  for (const std::vector<uint8_t>* req : {&en, &bind, &bl}) {
    std::vector<uint8_t> again = *req;
    again[13] = 9;  // an unknown core, so that the echo carries a status
    std::vector<uint8_t> rep = Answer(m, again);
    for (size_t i = 0; i < again.size(); ++i) {
      if (i != 6 && i != 7) EXPECT_EQ(rep[i], again[i]) << "offset " << i;
    }
    EXPECT_EQ(LoadI16(&rep[6]), kStatusNoCore);
  }
  std::vector<uint8_t> okEcho = Answer(m, bind);
  std::vector<uint8_t> expect = bind;
  expect[6] = expect[7] = 0;
  EXPECT_EQ(okEcho, expect);

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
  std::vector<uint8_t> a = MakeTapRequest(kOpTapBind, 2, "imic", 0);
  a[16] = 20;
  a[17] = 20;
  Answer(m, a);
  std::vector<uint8_t> b = MakeTapRequest(kOpTapBind, 2, "sspk", 0);
  b[16] = 20;
  b[17] = 0xFF;
  Answer(m, b);
  std::vector<uint8_t> ia = Answer(m, MakeTapRequest(kOpTapInfo, 2, "imic", 0));
  EXPECT_EQ(ia[26], 0xFF) << "tap-out 20 moved to sspk.0";
  EXPECT_EQ(ia[27], 20) << "inject 20 stays";
  std::vector<uint8_t> ib = Answer(m, MakeTapRequest(kOpTapInfo, 2, "sspk", 0));
  EXPECT_EQ(ib[26], 20);
  EXPECT_EQ(ib[27], 0xFF);
  EXPECT_EQ(m.FindByInject(20)->code, FourCc("imic"));
}

TEST(DspsimModel, RefusedValues) {
  DspModel m(DefaultTapTable());
  std::vector<uint8_t> en = MakeTapRequest(kOpTapEnable, 2, "imic", 0);
  en[14] = 2;
  EXPECT_EQ(LoadI16(&Answer(m, en)[6]), kStatusBadValue);
  auto setLen = [&](const char* code, uint32_t len) {
    std::vector<uint8_t> r = MakeTapRequest(kOpTapSetBlockLen, 2, code, 0);
    StoreU32(&r[16], len);
    return LoadI16(&Answer(m, r)[6]);
  };
  EXPECT_EQ(setLen("imic", 0), kStatusBadValue);
  EXPECT_EQ(setLen("imic", 500), kStatusBadValue);
  EXPECT_EQ(setLen("imic", 0xFFFFFFFFu), kStatusBadValue);
  EXPECT_EQ(setLen("imic", 32640), kStatusOk) << "mono 16-bit: 65280 bytes fit";
  EXPECT_EQ(setLen("imic", 33120), kStatusTooLarge);
  EXPECT_EQ(setLen("sspk", 16320), kStatusOk);
  EXPECT_EQ(setLen("sspk", 16800), kStatusTooLarge);
  EXPECT_EQ(LoadU32(&Answer(m, MakeTapRequest(kOpTapInfo, 2, "sspk", 0))[20]), 16320u)
      << "a refused length leaves the last accepted one";
}

TEST(DspsimModel, WrongSizesUnknownOpcodesAndShortMessages) {
  DspModel m(DefaultTapTable());
  CommandOutcome o;
  // An enable of 20 bytes: replied with 20 bytes and EMSGSIZE.
  std::vector<uint8_t> big = MakeRequest(kOpTapEnable, 20, 4);
  std::vector<uint8_t> r = Answer(m, big, &o);
  ASSERT_EQ(r.size(), 20u);
  ExpectHeader(r, 4, kOpTapEnable, kStatusBadSize);
  EXPECT_TRUE(o.knownOpcode);
  // Right length, but the size field disagrees.
  std::vector<uint8_t> lie = MakeTapRequest(kOpTapInfo, 2, "imic", 0);
  StoreU16(&lie[2], 44);
  EXPECT_EQ(LoadI16(&Answer(m, lie)[6]), kStatusBadSize);
  // Unknown opcode of any size.
  r = Answer(m, MakeRequest(300, 12, 5), &o);
  ASSERT_EQ(r.size(), 12u);
  ExpectHeader(r, 5, 300, kStatusBadOpcode);
  EXPECT_FALSE(o.knownOpcode);
  // Fewer than 8 bytes: echoed, nothing else.
  std::vector<uint8_t> tiny = {1, 2, 3, 4, 5};
  r = Answer(m, tiny, &o);
  EXPECT_EQ(r, tiny);
  EXPECT_FALSE(o.hasHeader);
}

// ---- framing -------------------------------------------------------------------

TEST(DspsimFraming, SplitsOnlyWhereSizeFieldsChain) {
  std::vector<uint8_t> a = MakeRequest(kOpTapEnable, 16);
  std::vector<uint8_t> b = MakeRequest(kOpTapList, 44);
  std::vector<uint8_t> both = a;
  both.insert(both.end(), b.begin(), b.end());
  std::vector<std::pair<size_t, size_t>> spans;
  EXPECT_EQ(FrameRequests(both.data(), both.size(), false, &spans), 60u);
  ASSERT_EQ(spans.size(), 2u);
  EXPECT_EQ(spans[0], std::make_pair(size_t{0}, size_t{16}));
  EXPECT_EQ(spans[1], std::make_pair(size_t{16}, size_t{44}));

  // A size field that leaves 4 stray bytes: one 20-byte message.
  std::vector<uint8_t> odd = MakeRequest(kOpTapEnable, 20);
  StoreU16(&odd[2], 16);
  spans.clear();
  EXPECT_EQ(FrameRequests(odd.data(), odd.size(), false, &spans), 20u);
  ASSERT_EQ(spans.size(), 1u);
  EXPECT_EQ(spans[0].second, 20u);

  // A request still arriving waits, unless this is the final call.
  spans.clear();
  EXPECT_EQ(FrameRequests(b.data(), 30, false, &spans), 0u);
  EXPECT_TRUE(spans.empty());
  EXPECT_EQ(FrameRequests(b.data(), 5, false, &spans), 0u);
  EXPECT_EQ(FrameRequests(b.data(), 30, true, &spans), 30u);
  ASSERT_EQ(spans.size(), 1u);
  EXPECT_EQ(spans[0].second, 30u);

  // A whole request followed by part of another: not a chain, one message.
  std::vector<uint8_t> partial = a;
  partial.insert(partial.end(), b.begin(), b.begin() + 20);
  spans.clear();
  EXPECT_EQ(FrameRequests(partial.data(), partial.size(), false, &spans), 36u);
  ASSERT_EQ(spans.size(), 1u);
  EXPECT_EQ(spans[0].second, 36u);
}

// ---- the control node, as the daemon uses it --------------------------------

class DspsimControlNode : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.path().empty());
    Options o;
    o.devRoot = dir_.path();
    o.statsPath.clear();
    sim_ = std::make_unique<SimThread>(o);
    std::string err;
    ASSERT_TRUE(sim_->Start(&err)) << err;
    ASSERT_TRUE(client_.Open(dir_.File("zch-lumx_control")));
  }

  TempDir dir_;
  std::unique_ptr<SimThread> sim_;
  ControlClient client_;
};

TEST_F(DspsimControlNode, CreatesTheDriverNodes) {
  for (const char* n : {"lum", "zch-lumx_control", "zch-lumx_tapout20", "zch-lumx_tapout21",
                        "zch-lumx_tapout40", "zch-lumx_tapout41", "zch-lumx_inject20",
                        "zch-lumx_inject21", "zch-lumx_inject40", "zch-lumx_inject41"}) {
    EXPECT_EQ(access(dir_.File(n).c_str(), F_OK), 0) << n;
  }
  sim_->Stop();
  for (const char* n : {"lum", "zch-lumx_control", "zch-lumx_tapout20", "zch-lumx_inject41"}) {
    EXPECT_NE(access(dir_.File(n).c_str(), F_OK), 0) << n << " left behind";
  }
}

TEST_F(DspsimControlNode, EveryOpcodeRoundTripsWithOneReadOfTheRequestSize) {
  std::vector<uint8_t> en = MakeTapRequest(kOpTapEnable, 2, "imic", 0, 10);
  en[14] = 1;
  std::vector<uint8_t> bind = MakeTapRequest(kOpTapBind, 2, "imic", 0, 11);
  bind[16] = 20;
  bind[17] = 20;
  std::vector<uint8_t> bl = MakeTapRequest(kOpTapSetBlockLen, 2, "imic", 0, 12);
  StoreU32(&bl[16], 960);
  std::vector<uint8_t> list = ListReq(2, 0, 13);
  std::vector<uint8_t> info = MakeTapRequest(kOpTapInfo, 2, "imic", 0, 14);
  uint8_t id = 10;
  for (std::vector<uint8_t>* m : {&en, &bind, &bl, &list, &info}) {
    uint16_t opcode = LoadU16(&(*m)[4]);
    size_t size = m->size();
    ASSERT_TRUE(client_.Exchange(m, 5000)) << "no reply to opcode " << opcode;
    ASSERT_EQ(m->size(), size);
    ExpectHeader(*m, id++, opcode, 0);
  }
  EXPECT_EQ(info[14], 1);
  EXPECT_EQ(LoadU32(&info[20]), 960u);
  EXPECT_EQ(info[26], 20);
  EXPECT_EQ(info[27], 20);
  EXPECT_EQ(list[12 + 6], 1);

  SimStats s = sim_->sim().Snapshot();
  for (uint16_t op : {kOpTapEnable, kOpTapBind, kOpTapList, kOpTapInfo, kOpTapSetBlockLen}) {
    EXPECT_EQ(s.commands[op].count, 1u) << op;
    EXPECT_EQ(s.commands[op].statuses[0], 1u) << op;
  }
}

TEST_F(DspsimControlNode, ErrorRepliesComeBackAtTheRequestSize) {
  std::vector<uint8_t> bad = MakeRequest(kOpTapInfo, 20, 7);
  ASSERT_TRUE(client_.Exchange(&bad, 5000));
  ExpectHeader(bad, 7, kOpTapInfo, kStatusBadSize);
  std::vector<uint8_t> unknown = MakeRequest(0x1234, 24, 8);
  ASSERT_TRUE(client_.Exchange(&unknown, 5000));
  ExpectHeader(unknown, 8, 0x1234, kStatusBadOpcode);
  std::vector<uint8_t> missing = MakeTapRequest(kOpTapEnable, 2, "zzzz", 0, 9);
  ASSERT_TRUE(client_.Exchange(&missing, 5000));
  ExpectHeader(missing, 9, kOpTapEnable, kStatusNoTap);
  SimStats s = sim_->sim().Snapshot();
  EXPECT_EQ(s.commands[kOpTapInfo].statuses[kStatusBadSize], 1u);
  EXPECT_EQ(s.commands[0x1234].statuses[kStatusBadOpcode], 1u);
  EXPECT_EQ(s.commands[kOpTapEnable].statuses[kStatusNoTap], 1u);
}

TEST_F(DspsimControlNode, BackToBackRequestsInOneWriteGetTwoReplies) {
  std::vector<uint8_t> a = MakeTapRequest(kOpTapInfo, 2, "imic", 0, 1);
  std::vector<uint8_t> b = MakeTapRequest(kOpTapInfo, 4, "vpdl", 0, 2);
  std::vector<uint8_t> both = a;
  both.insert(both.end(), b.begin(), b.end());
  ASSERT_TRUE(client_.Send(both));
  std::vector<uint8_t> r1, r2;
  ASSERT_TRUE(client_.Receive(28, 5000, &r1));
  ASSERT_TRUE(client_.Receive(28, 5000, &r2));
  EXPECT_EQ(r1[1], 1);
  EXPECT_EQ(LoadU32(&r1[8]), FourCc("imic"));
  EXPECT_EQ(r2[1], 2);
  EXPECT_EQ(LoadU32(&r2[8]), FourCc("vpdl"));
}

TEST_F(DspsimControlNode, AClientThatReopensKeepsWorking) {
  for (int round = 0; round < 3; ++round) {
    client_.Close();
    ASSERT_TRUE(client_.Open(dir_.File("zch-lumx_control")));
    std::vector<uint8_t> m = ListReq(3, 0, static_cast<uint8_t>(round));
    ASSERT_TRUE(client_.Exchange(&m, 5000)) << round;
    EXPECT_EQ(LoadU16(&m[10]), 2) << round;
  }
}

}  // namespace
}  // namespace lumx::dspsim
