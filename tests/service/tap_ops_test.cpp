// Tap operations against the scripted fake driver: the paged tap-list walk,
// the byte layout of every tap command, the rendering of tap rows and the
// texts and statuses of the interface operations.
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/wire.h"
#include "daemon/lumx_control.h"
#include "daemon/lumxd.h"
#include "service/lumx_service.h"
#include "support/daemon_service_access.h"
#include "support/daemon_test_util.h"
#include "support/fake_control_driver.h"
#include "support/system_service_env.h"

using lumx_host::LogCapture;
using lumx_test::FakeControlDriver;
using lumx_test::FourCc;
using Request = std::vector<uint8_t>;
using Status = CommandResult::Status;

namespace {

constexpr uint32_t kImic = FourCc("imic");
constexpr uint32_t kSpkr = FourCc("spkr");

const char kHeader[] = "  Id        Format              BlockLen  OutBuffer InBuffer  Enabled  ";

LumxTapDetailedInfo Tap(uint32_t code, uint8_t index, uint8_t core = 2) {
  LumxTapDetailedInfo t = {};
  t.tapCode = code;
  t.index = index;
  t.core = core;
  t.enabled = 1;
  t.extra = static_cast<uint8_t>(0x40 + index);
  t.sampleRate = 48000.0f;
  t.blockLength = 480;
  t.channels = 2;
  t.bitsPerSample = 16;
  t.tapOutBuffer = -1;
  t.injectBuffer = -1;
  return t;
}

// Every field travels in the wire form, so equal wire bytes mean equal taps.
bool SameTap(const LumxTapDetailedInfo& a, const LumxTapDetailedInfo& b) {
  uint8_t x[LumxTapDetailedInfo::kWireSize], y[LumxTapDetailedInfo::kWireSize];
  a.ToWire(x);
  b.ToWire(y);
  return memcmp(x, y, sizeof(x)) == 0;
}

uint16_t Opcode(const Request& r) { return lumx::GetLe16(r.data() + 4); }

std::vector<Request> WithOpcode(const std::vector<Request>& all, uint16_t opcode) {
  std::vector<Request> out;
  for (const Request& r : all) {
    if (Opcode(r) == opcode) out.push_back(r);
  }
  return out;
}

// A DSP with a fixed list of taps: list pages of four identifiers, info
// replies from the table. `pages` (when > 0) instead serves that many full
// pages of copies of taps[0] before an empty one.
FakeControlDriver::Handler DspModel(std::vector<LumxTapDetailedInfo> taps, int pages = 0) {
  auto listCalls = std::make_shared<int>(0);
  return [taps, pages, listCalls](const Request& request) {
    FakeControlDriver::Action action;
    const uint16_t opcode = Opcode(request);
    if (opcode == CMD_LUMX_TAP_LIST_ID) {
      const int call = (*listCalls)++;
      action.fill = [taps, pages, call](const Request& req, std::vector<uint8_t>& reply) {
        std::fill(reply.begin() + 12, reply.end(), 0);
        for (int i = 0; i < 4; ++i) {
          size_t n;
          if (pages > 0) {
            if (call >= pages) break;
            n = 0;
          } else {
            n = static_cast<size_t>(req[9]) * 4 + i;
            if (n >= taps.size()) break;
          }
          uint8_t wire[LumxTapDetailedInfo::kWireSize];
          taps[n].ToWire(wire);
          memcpy(reply.data() + 12 + 8 * i, wire, 8);
        }
      };
    } else if (opcode == CMD_LUMX_TAP_INFO_ID) {
      action.fill = [taps](const Request& req, std::vector<uint8_t>& reply) {
        for (const auto& t : taps) {
          if (lumx::GetLe32(req.data() + 8) == t.tapCode && req[12] == t.index && req[13] == t.core) {
            t.ToWire(reply.data() + 8);
            return;
          }
        }
        lumx::PutLe16(reply.data() + 6, static_cast<uint16_t>(-22));
      };
    }
    return action;
  };
}

// One service for the suite (building one scans for half a second), a fresh
// driver per test.
class TapOpsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    env_ = new lumx::test::ServiceEnv({{20}, {21}});
    service_ = env_->MakeService();
  }
  static void TearDownTestSuite() {
    service_.reset();
    delete env_;
  }
  void SetUp() override {
    driver_ = std::make_unique<FakeControlDriver>(env_->devRoot());
    ASSERT_TRUE(driver_->ok());
    Lumxd::Instance().reopenLumxControl();
    ASSERT_GE(Lumxd::Instance().controlFd(), 0);
  }
  void TearDown() override {
    Lumxd::Instance().closeLumxControl();
    driver_.reset();
  }

  LumxService& svc() { return *service_; }

  static lumx::test::ServiceEnv* env_;
  static std::shared_ptr<LumxService> service_;
  std::unique_ptr<FakeControlDriver> driver_;
};

lumx::test::ServiceEnv* TapOpsTest::env_ = nullptr;
std::shared_ptr<LumxService> TapOpsTest::service_;

void ExpectListRequest(const Request& r, uint8_t core, uint8_t page) {
  ASSERT_EQ(kTapListCmdSize, r.size());
  EXPECT_EQ(CMD_LUMX_TAP_LIST_ID, Opcode(r));
  EXPECT_EQ(core, r[8]);
  EXPECT_EQ(page, r[9]);
  for (size_t i = 10; i < r.size(); ++i) EXPECT_EQ(0, r[i]) << "offset " << i;
}

void ExpectInfoRequestFor(const Request& r, const LumxTapDetailedInfo& t) {
  ASSERT_EQ(kTapInfoCmdSize, r.size());
  EXPECT_EQ(CMD_LUMX_TAP_INFO_ID, Opcode(r));
  EXPECT_EQ(t.tapCode, lumx::GetLe32(r.data() + 8));
  EXPECT_EQ(t.index, r[12]);
  EXPECT_EQ(t.core, r[13]);
  EXPECT_EQ(0, r[14]);        // enabled flag cleared
  EXPECT_EQ(t.extra, r[15]);  // carried through
  for (size_t i = 16; i < 26; ++i) EXPECT_EQ(0, r[i]) << "offset " << i;
  EXPECT_EQ(0xFF, r[26]);
  EXPECT_EQ(0xFF, r[27]);
}

TEST_F(TapOpsTest, FullPageAsksForTheNextPage) {
  std::vector<LumxTapDetailedInfo> taps = {Tap(kImic, 0), Tap(kImic, 1), Tap(kSpkr, 0), Tap(kSpkr, 1)};
  taps[2].enabled = 0;
  driver_->SetDefault(DspModel(taps));
  std::vector<LumxTapDetailedInfo> out;
  EXPECT_EQ(0, svc().getLumxTapPoints(2, out));
  ASSERT_EQ(4u, out.size());
  for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(SameTap(taps[i], out[i])) << i;

  auto requests = driver_->Requests();
  ASSERT_EQ(6u, requests.size());
  ExpectListRequest(requests[0], 2, 0);
  for (size_t i = 0; i < 4; ++i) ExpectInfoRequestFor(requests[1 + i], taps[i]);
  ExpectListRequest(requests[5], 2, 1);
}

TEST_F(TapOpsTest, ShortPageEndsTheWalk) {
  std::vector<LumxTapDetailedInfo> taps;
  for (uint8_t i = 0; i < 5; ++i) taps.push_back(Tap(kImic, i, 3));
  driver_->SetDefault(DspModel(taps));
  // What the caller holds stays in front.
  std::vector<LumxTapDetailedInfo> out = {Tap(kSpkr, 9)};
  EXPECT_EQ(0, svc().getLumxTapPoints(3, out));
  ASSERT_EQ(6u, out.size());
  EXPECT_EQ(kSpkr, out[0].tapCode);
  EXPECT_EQ(4, out[5].index);
  auto requests = driver_->Requests();
  ASSERT_EQ(7u, requests.size());
  ExpectListRequest(requests[5], 3, 1);
  ExpectInfoRequestFor(requests[6], taps[4]);
}

// The page byte names 256 pages: page 255 is the last one asked for, and a
// list that is still full there has no end and fails.
TEST_F(TapOpsTest, WalkEndsAtTheLastPageTheByteCanName) {
  driver_->SetDefault(DspModel({Tap(kImic, 0)}, /*pages=*/255));
  std::vector<LumxTapDetailedInfo> out;
  EXPECT_EQ(0, svc().getLumxTapPoints(2, out));
  EXPECT_EQ(255u * 4, out.size());
  auto lists = WithOpcode(driver_->Requests(), CMD_LUMX_TAP_LIST_ID);
  ASSERT_EQ(256u, lists.size());
  EXPECT_EQ(255, lists[255][9]);

  driver_->SetDefault(DspModel({Tap(kImic, 0)}, /*pages=*/100000));
  LogCapture log;
  out.clear();
  EXPECT_EQ(-1, svc().getLumxTapPoints(2, out));
  EXPECT_EQ(256u * 4, out.size());
  lists = WithOpcode(driver_->Requests(), CMD_LUMX_TAP_LIST_ID);
  ASSERT_EQ(512u, lists.size());
  EXPECT_EQ(255, lists[511][9]);
  EXPECT_EQ(1u, log.count("CMD_LUMX_TAP_LIST_ID on LUM core 2, no end after 256 pages"));
}

TEST_F(TapOpsTest, FailingSecondInfoKeepsTheFirstRecord) {
  std::vector<LumxTapDetailedInfo> taps = {Tap(kImic, 0), Tap(kImic, 1), Tap(kImic, 2)};
  // The model answers; the third request (the second info) fails instead.
  auto model = DspModel(taps);
  auto calls = std::make_shared<int>(0);
  driver_->SetDefault([calls, model](const Request& r) {
    FakeControlDriver::Action a = model(r);
    if (++*calls == 3) a = lumx_test::Status(-4);
    return a;
  });
  LogCapture log;
  std::vector<LumxTapDetailedInfo> out;
  EXPECT_EQ(-1, svc().getLumxTapPoints(2, out));
  ASSERT_EQ(1u, out.size());
  EXPECT_TRUE(SameTap(taps[0], out[0]));
  EXPECT_EQ(3u, driver_->Requests().size());
  EXPECT_EQ(1u, log.count("CMD_LUMX_TAP_INFO_ID failed, status -4"));
}

// A failed list is logged as an error and reads "No tap points"; an empty
// one, "No tap points registered"; TapList itself succeeds either way.
TEST_F(TapOpsTest, FailingAndEmptyTapLists) {
  driver_->Queue(lumx_test::Status(-2));
  LogCapture log;
  std::vector<LumxTapDetailedInfo> out;
  EXPECT_EQ(-1, svc().getLumxTapPoints(2, out));
  EXPECT_THAT(log.entries(), ::testing::Contains(lumx_host::LogEntry{
                                 ANDROID_LOG_ERROR, "lumx", "CMD_LUMX_TAP_LIST_ID on LUM core 2, status -2"}));
  driver_->Queue(lumx_test::Status(-2));
  CommandResult result;
  EXPECT_TRUE(svc().TapList(2, &result).isOk());
  EXPECT_EQ(Status::OK, result.status);
  EXPECT_EQ((std::vector<std::string>{"LUM tap list core:2", "  No tap points"}), result.strList);

  driver_->SetDefault(DspModel({}));
  CommandResult empty;
  EXPECT_TRUE(svc().TapList(3, &empty).isOk());
  EXPECT_EQ(Status::OK, empty.status);
  EXPECT_EQ((std::vector<std::string>{"LUM tap list core:3", "  No tap points registered"}), empty.strList);
  EXPECT_EQ(3u, driver_->Requests().size());
}

TEST_F(TapOpsTest, TapListRendersOneLineWithHeaderAndRows) {
  LumxTapDetailedInfo a = Tap(kImic, 0);
  a.tapOutBuffer = 20;
  a.injectBuffer = 21;
  LumxTapDetailedInfo b = Tap(kSpkr, 12);
  b.sampleRate = 44100.0f;
  b.channels = 16;
  b.bitsPerSample = 24;
  b.blockLength = 4800;
  b.enabled = 0;
  b.tapOutBuffer = 7;   // no such buffer
  b.injectBuffer = -1;  // none
  driver_->SetDefault(DspModel({a, b}));
  LogCapture log;
  CommandResult result;
  EXPECT_TRUE(svc().TapList(2, &result).isOk());
  ASSERT_EQ(2u, result.strList.size());
  EXPECT_EQ("LUM tap list core:2", result.strList[0]);
  EXPECT_EQ(std::string(kHeader) + "\n  imic.0    48kHz, 2ch, 16bps   480       tapout20  inject21  1        " +
                "\n  spkr.12   44.1kHz, 16ch, 24bp 4800      -         -         0        ",
            result.strList[1]);
  EXPECT_EQ(1u, log.count("TapList: CommandResult{status: OK"));
}

TEST_F(TapOpsTest, SprintTapInfoHeaderOnlyForAnEmptyString) {
  std::string text = "x";
  LumxServiceTestAccess::SprintTapInfo(svc(), Tap(kImic, 3), text);
  EXPECT_EQ("x\n  imic.3    48kHz, 2ch, 16bps   480       -         -         1        ", text);
  // The format text is cut at 19 characters, the row at 127.
  LumxTapDetailedInfo t = Tap(kImic, 255);
  t.sampleRate = 1234567.0f;
  t.channels = 255;
  t.bitsPerSample = 255;
  t.blockLength = 4294967295u;
  text.clear();
  LumxServiceTestAccess::SprintTapInfo(svc(), t, text);
  EXPECT_EQ(std::string(kHeader) + "\n  imic.255   1234.57kHz, 255ch,  4294967295 -         -         1        ", text);
}

TEST_F(TapOpsTest, TapInfoSendsTheAddressAndRendersTheReply) {
  LumxTapDetailedInfo t = Tap(kImic, 0);
  t.tapOutBuffer = 20;
  driver_->SetDefault(DspModel({t}));
  CommandResult result;
  EXPECT_TRUE(svc().TapInfo(2, static_cast<int32_t>(kImic), 0, &result).isOk());
  EXPECT_EQ(Status::OK, result.status);
  ASSERT_EQ(2u, result.strList.size());
  EXPECT_EQ("TapInfo core:2 tap:imic.0", result.strList[0]);
  EXPECT_EQ(std::string(kHeader) + "\n  imic.0    48kHz, 2ch, 16bps   480       tapout20  -         1        ",
            result.strList[1]);
  auto requests = driver_->Requests();
  ASSERT_EQ(1u, requests.size());
  t.extra = 0;  // the request carries only the address
  ExpectInfoRequestFor(requests[0], t);

  // The reply's block length is little-endian at 20.
  FakeControlDriver::Action reply;
  reply.fill = [](const Request&, std::vector<uint8_t>& r) { memcpy(r.data() + 20, "\x78\x56\x34\x12", 4); };
  driver_->Queue(reply);
  svc().TapInfo(2, static_cast<int32_t>(kImic), 0, &result);
  EXPECT_EQ(std::string(kHeader) + "\n  imic.0    0kHz, 0ch, 0bps     305419896 -         -         0        ",
            result.strList.back());
}

TEST_F(TapOpsTest, TapInfoFailureAndCutAddresses) {
  driver_->Queue(lumx_test::Status(-5));
  LogCapture log;
  CommandResult failed;
  EXPECT_TRUE(svc().TapInfo(2, static_cast<int32_t>(kImic), 1, &failed).isOk());
  EXPECT_EQ(Status::ERROR, failed.status);
  EXPECT_EQ((std::vector<std::string>{"TapInfo core:2 tap:imic.1", "CMD_LUMX_TAP_INFO_ID failed, status -5"}),
            failed.strList);
  for (const auto& e : log.entries()) {
    EXPECT_NE(0u, e.message.rfind("CMD_LUMX_TAP_INFO_ID", 0)) << "logged on its own: " << e.message;
  }
  // Index and core travel as 8 bits; the request line keeps the full values.
  driver_->Queue(lumx_test::Status(0));
  CommandResult cut;
  svc().TapInfo(0x102, static_cast<int32_t>(kSpkr), 256, &cut);
  auto requests = driver_->Requests();
  ASSERT_EQ(2u, requests.size());
  EXPECT_EQ(0, requests[1][12]);
  EXPECT_EQ(2, requests[1][13]);
  EXPECT_EQ("TapInfo core:258 tap:spkr.256", cut.strList[0]);
  // The request line is cut at 63 characters.
  driver_->Queue(lumx_test::Status(0));
  CommandResult longLine;
  svc().TapInfo(-2147483647 - 1, -1, -2147483647 - 1, &longLine);
  EXPECT_EQ(std::string("TapInfo core:-2147483648 tap:\xff\xff\xff\xff.-2147483648").substr(0, 63),
            longLine.strList[0]);
}

// The three setting commands: result lines, the failure line, and the bytes
// after the header (tap code little-endian, index, core, then the value).
TEST_F(TapOpsTest, SettingCommandLinesAndByteLayouts) {
  const int32_t imic = static_cast<int32_t>(kImic), spkr = static_cast<int32_t>(kSpkr);
  const struct {
    std::function<void(LumxService&, CommandResult*)> call;
    int16_t dspStatus;
    bool silent;
    uint16_t opcode;
    size_t size;
    std::vector<std::string> lines;
    Request tail;
  } cases[] = {
      {[&](LumxService& s, CommandResult* r) { s.TapEnable(2, imic, 0, true, r); }, 0, false, CMD_LUMX_TAP_ENABLE_ID,
       kTapEnableCmdSize, {"LUM core 2 enable tap imic.0"}, {0x63, 0x69, 0x6d, 0x69, 0, 2, 1, 0}},
      {[&](LumxService& s, CommandResult* r) { s.TapEnable(258, spkr, 256, false, r); }, 0, false,
       CMD_LUMX_TAP_ENABLE_ID, kTapEnableCmdSize, {"LUM core 258 disable tap spkr.256"},
       {0x72, 0x6b, 0x70, 0x73, 0, 2, 0, 0}},
      {[&](LumxService& s, CommandResult* r) { s.TapEnable(2, imic, 0, true, r); }, 0, true, CMD_LUMX_TAP_ENABLE_ID,
       kTapEnableCmdSize, {"LUM core 2 enable tap imic.0", "CMD_LUMX_TAP_ENABLE_ID failed, status -1"},
       {0x63, 0x69, 0x6d, 0x69, 0, 2, 1, 0}},
      // Any block length goes out unchanged.
      {[&](LumxService& s, CommandResult* r) { s.TapSetBlockLength(2, imic, 1, 0, r); }, 0, false,
       CMD_LUMX_TAP_SET_BLOCK_LEN_ID, kTapSetBlockLenCmdSize, {"LUM core 2 tap imic.1 set block length 0"},
       {0x63, 0x69, 0x6d, 0x69, 1, 2, 0, 0, 0, 0, 0, 0}},
      // Little-endian at 16; the request line is cut at 63 characters.
      {[&](LumxService& s, CommandResult* r) { s.TapSetBlockLength(2, imic, 1, 0x180, r); }, 0, false,
       CMD_LUMX_TAP_SET_BLOCK_LEN_ID, kTapSetBlockLenCmdSize, {"LUM core 2 tap imic.1 set block length 384"},
       {0x63, 0x69, 0x6d, 0x69, 1, 2, 0, 0, 0x80, 0x01, 0, 0}},
      {[&](LumxService& s, CommandResult* r) { s.TapSetBlockLength(-2147483647 - 1, imic, -2147483647 - 1, 0x12345678, r); },
       0, false, CMD_LUMX_TAP_SET_BLOCK_LEN_ID, kTapSetBlockLenCmdSize,
       {"LUM core -2147483648 tap imic.-2147483648 set block length 3054"},
       {0x63, 0x69, 0x6d, 0x69, 0, 0, 0, 0, 0x78, 0x56, 0x34, 0x12}},
      {[&](LumxService& s, CommandResult* r) { s.TapSetBlockLength(3, imic, 1, -1, r); }, -22, false,
       CMD_LUMX_TAP_SET_BLOCK_LEN_ID, kTapSetBlockLenCmdSize,
       {"LUM core 3 tap imic.1 set block length 4294967295", "CMD_LUMX_TAP_SET_BLOCK_LEN_ID failed, status -22"},
       {0x63, 0x69, 0x6d, 0x69, 1, 3, 0, 0, 0xff, 0xff, 0xff, 0xff}},
      // Buffer ids travel as their low byte.
      {[&](LumxService& s, CommandResult* r) { s.ConnectTap(2, imic, 0, 20, -1, r); }, 0, false, CMD_LUMX_TAP_BIND_ID,
       kTapBindCmdSize, {"LUM core 2 connect tap point: imic.0 --> tap-out buffer 20, inject buffer -1 --> imic.0"},
       {0x63, 0x69, 0x6d, 0x69, 0, 2, 0, 0, 20, 0xff}},
      {[&](LumxService& s, CommandResult* r) { s.ConnectTap(4, spkr, 3, 300, 99, r); }, -1, false,
       CMD_LUMX_TAP_BIND_ID, kTapBindCmdSize,
       {"LUM core 4 connect tap point: spkr.3 --> tap-out buffer 300, inject buffer 99 --> spkr.3",
        "CMD_LUMX_TAP_BIND_ID failed, status -1"},
       {0x72, 0x6b, 0x70, 0x73, 3, 4, 0, 0, 0x2c, 99}},
  };
  size_t n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.lines[0]);
    FakeControlDriver::Action action = lumx_test::Status(c.dspStatus);
    action.silent = c.silent;
    driver_->Queue(action);
    LogCapture log;
    CommandResult result;
    c.call(svc(), &result);
    EXPECT_EQ(c.lines.size() == 1 ? Status::OK : Status::ERROR, result.status);
    EXPECT_EQ(c.lines, result.strList);
    EXPECT_EQ(c.lines[0], log.messages("lumx").front());
    auto requests = driver_->Requests();
    ASSERT_EQ(++n, requests.size());
    ASSERT_EQ(c.size, requests.back().size());
    EXPECT_EQ(c.opcode, Opcode(requests.back()));
    EXPECT_EQ(c.tail, Request(requests.back().begin() + 8, requests.back().end()));
  }
}

// Every operation logs its exit under its own name (a copied call naming
// another operation is caught only here); Ping and the two streaming calls
// log nothing. The DSP echoes every command with status 0.
TEST_F(TapOpsTest, EveryOperationLogsItsExitUnderItsOwnName) {
  const int32_t imic = static_cast<int32_t>(kImic), nope = static_cast<int32_t>(FourCc("nope"));
  const ParamValue one = ParamValue::make<ParamValue::Tag::i>(1);
  const std::vector<ParamIdElementPair> pairs(1);
  std::vector<ParamValue> values;
#define OP(body) [&](LumxService& s, CommandResult* r) { body; }
  const std::pair<const char*, std::function<void(LumxService&, CommandResult*)>> cases[] = {
      {"", OP((void)s.Ping(); (void)r)},
      {"ShowGraph", OP(s.ShowGraph(r))},
      {"ListProcessors", OP(s.ListProcessors(r))},
      {"ListSupportedProcessors", OP(s.ListSupportedProcessors(r))},
      {"NewProcessorWithType", OP(s.NewProcessor(nope, r))},
      {"NewProcessorWithType", OP(s.NewProcessorWithType(nope, nope, r))},
      {"DeleteProcessor", OP(s.DeleteProcessor(nope, r))},
      {"ListSupportedUseCases", OP(s.ListSupportedUseCases(r))},
      {"EnableUseCase", OP(s.Enable("x", true, r))},
      {"IsUseCaseEnabled", OP(s.IsEnabled("x", r))},
      {"ProcessorInfo", OP(s.ProcessorInfo(nope, r))},
      {"ProcessorEnable", OP(s.ProcessorEnable(nope, true, r))},
      {"ProcessorIsEnabled", OP(s.ProcessorIsEnabled(nope, r))},
      {"TapList", OP(s.TapList(2, r))},
      {"TapInfo", OP(s.TapInfo(2, imic, 0, r))},
      {"TapEnable", OP(s.TapEnable(2, imic, 0, true, r))},
      {"TapSetBlockLength", OP(s.TapSetBlockLength(2, imic, 0, 480, r))},
      {"ListTapOutBuffers", OP(s.ListTapOutBuffers(r))},
      {"ListInjectBuffers", OP(s.ListInjectBuffers(r))},
      {"Connect", OP(s.Connect(nope, 20, 21, r))},
      {"ConnectTap", OP(s.ConnectTap(2, imic, 0, 20, 21, r))},
      {"handleEnableBuffers", OP(s.StartIo(99, r))},
      {"handleEnableBuffers", OP(s.StopIo(99, r))},
      {"Debug", OP(s.Debug({}, r))},
      {"EnableUseCase", OP(s.EnableUseCase(UseCase::UNSPECIFIED, false, r))},
      {"IsUseCaseEnabled", OP(s.IsUseCaseEnabled(UseCase::HOTWORDAEC, r))},
      {"SetParameter", OP(s.SetParameter(nope, ParameterId::TEST_MODE, 0, one, r))},
      {"GetParameter", OP(s.GetParameter(nope, ParameterId::TEST_MODE, 0, &values.emplace_back(), r))},
      {"SetParameterBulk", OP(s.SetParameterBulk(nope, pairs, {one}, r))},
      {"GetParameterBulk", OP(s.GetParameterBulk(nope, pairs, r, &values))},
      {"ListParameters", OP(s.ListParameters(r))},
      {"", OP(s.SendAudio(nope, AudioPacket(), r))},
      {"", OP(s.RegisterReceiveAudioCallback(nope, nullptr, r))},
  };
#undef OP
  for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
    SCOPED_TRACE("operation " + std::to_string(i + 1));
    LogCapture log;
    CommandResult result;
    cases[i].second(svc(), &result);
    const std::vector<std::string> lines = log.messages("lumx");
    if (*cases[i].first == '\0') {
      EXPECT_TRUE(lines.empty());
    } else {
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(0u, lines.back().rfind(std::string(cases[i].first) + ": ", 0)) << lines.back();
    }
  }
}

TEST(TapInfoWireTest, DecodesTheReplyLayout) {
  const uint8_t wire[20] = {0x63, 0x69, 0x6d, 0x69, 7, 3, 1, 0x5a, 0x00, 0x80, 0x3b, 0x47,
                            0xe0, 0x01, 0x00, 0x00, 2, 16, 0x14, 0xff};
  LumxTapDetailedInfo t = LumxTapDetailedInfo::FromWire(wire);
  EXPECT_EQ(kImic, t.tapCode);
  EXPECT_EQ(7, t.index);
  EXPECT_EQ(3, t.core);
  EXPECT_EQ(1, t.enabled);
  EXPECT_EQ(0x5a, t.extra);
  EXPECT_EQ(48000.0f, t.sampleRate);
  EXPECT_EQ(480u, t.blockLength);
  EXPECT_EQ(2, t.channels);
  EXPECT_EQ(16, t.bitsPerSample);
  EXPECT_EQ(20, t.tapOutBuffer);
  EXPECT_EQ(-1, t.injectBuffer);
  uint8_t back[20];
  t.ToWire(back);
  EXPECT_EQ(0, memcmp(wire, back, sizeof(back)));
}

}  // namespace
