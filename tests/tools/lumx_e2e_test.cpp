// Runs the built `lumx` binary against a fake ILumx service registered by
// this test process, and checks what each operation receives, what the tool
// prints and how it exits.
#include <aidl/lumx/BnLumx.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <signal.h>
#include <sndfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <string>
#include <vector>

#include "common/thread_annotations.h"
#include "common/unique_fd.h"
#include "support/daemon_process.h"
#include "support/daemon_test_util.h"

namespace {

using aidl::lumx::ILumx;
using CommandResult = ILumx::CommandResult;
using ParamValue = ILumx::ParamValue;

// Generous: the tool itself gives up on a missing daemon after ~2 s.
constexpr int kChildTimeoutMs = 90000;
constexpr auto kEventTimeout = std::chrono::seconds(60);
constexpr int32_t kArt0 = 0x61727430;

// How recorded calls show their arguments: codes in hex, numbers in decimal.
struct Code {
  int32_t v;
};
std::string Text(Code c) {
  char buf[16];
  snprintf(buf, sizeof(buf), "0x%08x", static_cast<uint32_t>(c.v));
  return buf;
}
std::string Text(int32_t v) { return std::to_string(v); }
std::string Text(bool b) { return b ? "1" : "0"; }
std::string Text(const std::string& s) { return s; }
std::string Text(ILumx::UseCase u) { return std::to_string(static_cast<int>(u)); }
std::string Text(ILumx::ParameterId p) { return std::to_string(static_cast<int>(p)); }
std::string Text(const ILumx::ParamIdElementPair& p) { return Text(p.paramId) + ":" + Text(p.element); }
std::string Text(const ParamValue& v) {
  if (v.getTag() == ParamValue::i) return "i:" + std::to_string(v.get<ParamValue::i>());
  char buf[32];
  snprintf(buf, sizeof(buf), "f:%g", v.get<ParamValue::f>());
  return buf;
}
template <typename T>
std::string Text(const std::vector<T>& v) {
  std::string s = "[";
  for (size_t k = 0; k < v.size(); ++k) s += (k ? " " : "") + Text(v[k]);
  return s + "]";
}

// What the fake answers; set by a test before it runs the tool.
struct Canned {
  Canned(int8_t s = 0, float v = 0, std::vector<std::string> l = {"answer line"}, ParamValue p = {},
         std::vector<ParamValue> vs = {})
      : status(s), value(v), lines(std::move(l)), param(std::move(p)), values(std::move(vs)) {}
  int8_t status;
  float value;
  std::vector<std::string> lines;
  ParamValue param;
  std::vector<ParamValue> values;
  // Non-OK: the call fails in transport with this status (no reply).
  binder_status_t transportError = STATUS_OK;
  // What the service's dump writes.
  std::string dump;
};

// Records every call as "Name(arg, arg)" and answers from the canned reply.
#define LUMX_FAKE(Name, Params, Args) \
  ndk::ScopedAStatus Name Params override { return Call{this, r, #Name} Args; }

class FakeLumx : public aidl::lumx::BnLumx {
 public:
  void SetCanned(Canned canned) {
    lumx::MutexLock lock(&mu_);
    canned_ = std::move(canned);
  }
  // What the fake has been sent so far.
  struct Seen {
    std::vector<std::string> calls;
    std::vector<ILumx::AudioPacket> sent;
    std::shared_ptr<IReceiveAudioCallback> callback;
  };
  Seen Got() {
    lumx::MutexLock lock(&mu_);
    return seen_;
  }
  void Reset() {
    lumx::MutexLock lock(&mu_);
    seen_ = Seen{};
    canned_ = Canned{};
  }
  // Waits until at least `calls` calls and `packets` SendAudio packets arrived.
  bool WaitFor(size_t calls, size_t packets) {
    auto deadline = std::chrono::steady_clock::now() + kEventTimeout;
    lumx::MutexLock lock(&mu_);
    while (seen_.calls.size() < calls || seen_.sent.size() < packets) {
      if (cv_.wait_until(mu_, deadline) == std::cv_status::timeout) return false;
    }
    return true;
  }

  binder_status_t dump(int fd, const char** args, uint32_t numArgs) override {
    std::string call = "dump(", text;
    for (uint32_t k = 0; k < numArgs; ++k) call += std::string(k ? ", " : "") + args[k];
    {
      lumx::MutexLock lock(&mu_);
      seen_.calls.push_back(call + ")");
      text = canned_.dump;
    }
    cv_.notify_all();
    return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? STATUS_OK : STATUS_UNKNOWN_ERROR;
  }

  ndk::ScopedAStatus Ping() override {
    CommandResult ignored;
    return Call{this, &ignored, "Ping"}();
  }
  LUMX_FAKE(ShowGraph, (CommandResult * r), ())
  LUMX_FAKE(ListProcessors, (CommandResult * r), ())
  LUMX_FAKE(ListSupportedProcessors, (CommandResult * r), ())
  LUMX_FAKE(NewProcessor, (int32_t id, CommandResult* r), (Code{id}))
  LUMX_FAKE(NewProcessorWithType, (int32_t id, int32_t type, CommandResult* r), (Code{id}, Code{type}))
  LUMX_FAKE(DeleteProcessor, (int32_t id, CommandResult* r), (Code{id}))
  LUMX_FAKE(ListSupportedUseCases, (CommandResult * r), ())
  LUMX_FAKE(Enable, (const std::string& name, bool on, CommandResult* r), (name, on))
  LUMX_FAKE(IsEnabled, (const std::string& name, CommandResult* r), (name))
  LUMX_FAKE(ProcessorInfo, (int32_t id, CommandResult* r), (Code{id}))
  LUMX_FAKE(ProcessorEnable, (int32_t id, bool on, CommandResult* r), (Code{id}, on))
  LUMX_FAKE(ProcessorIsEnabled, (int32_t id, CommandResult* r), (Code{id}))
  LUMX_FAKE(TapList, (int32_t core, CommandResult* r), (core))
  LUMX_FAKE(TapInfo, (int32_t c, int32_t t, int32_t i, CommandResult* r), (c, Code{t}, i))
  LUMX_FAKE(TapEnable, (int32_t c, int32_t t, int32_t i, bool on, CommandResult* r), (c, Code{t}, i, on))
  LUMX_FAKE(TapSetBlockLength, (int32_t c, int32_t t, int32_t i, int32_t len, CommandResult* r),
            (c, Code{t}, i, len))
  LUMX_FAKE(ListTapOutBuffers, (CommandResult * r), ())
  LUMX_FAKE(ListInjectBuffers, (CommandResult * r), ())
  LUMX_FAKE(Connect, (int32_t id, int32_t out, int32_t in, CommandResult* r), (Code{id}, out, in))
  LUMX_FAKE(ConnectTap, (int32_t c, int32_t t, int32_t i, int32_t out, int32_t in, CommandResult* r),
            (c, Code{t}, i, out, in))
  LUMX_FAKE(StartIo, (int32_t id, CommandResult* r), (id))
  LUMX_FAKE(StopIo, (int32_t id, CommandResult* r), (id))
  LUMX_FAKE(Debug, (const std::vector<std::string>& args, CommandResult* r), (args))
  LUMX_FAKE(EnableUseCase, (ILumx::UseCase u, bool on, CommandResult* r), (u, on))
  LUMX_FAKE(IsUseCaseEnabled, (ILumx::UseCase u, CommandResult* r), (u))
  LUMX_FAKE(SetParameter, (int32_t id, ILumx::ParameterId p, int32_t e, const ParamValue& v, CommandResult* r),
            (Code{id}, p, e, v))
  LUMX_FAKE(SetParameterBulk,
            (int32_t id, const std::vector<ILumx::ParamIdElementPair>& ps, const std::vector<ParamValue>& vs,
             CommandResult* r),
            (Code{id}, ps, vs))
  LUMX_FAKE(ListParameters, (CommandResult * r), ())
  ndk::ScopedAStatus GetParameter(int32_t id, ILumx::ParameterId p, int32_t e, ParamValue* out,
                                  CommandResult* r) override {
    *out = Canned_().param;
    return Call{this, r, "GetParameter"}(Code{id}, p, e);
  }
  ndk::ScopedAStatus GetParameterBulk(int32_t id, const std::vector<ILumx::ParamIdElementPair>& ps,
                                      CommandResult* r, std::vector<ParamValue>* values) override {
    *values = Canned_().values;
    return Call{this, r, "GetParameterBulk"}(Code{id}, ps);
  }
  ndk::ScopedAStatus SendAudio(int32_t id, const ILumx::AudioPacket& packet, CommandResult* r) override {
    {
      lumx::MutexLock lock(&mu_);
      seen_.sent.push_back(packet);
    }
    return Call{this, r, "SendAudio"}(Code{id});
  }
  ndk::ScopedAStatus RegisterReceiveAudioCallback(int32_t id, const std::shared_ptr<IReceiveAudioCallback>& cb,
                                                  CommandResult* r) override {
    {
      lumx::MutexLock lock(&mu_);
      seen_.callback = cb;
    }
    return Call{this, r, "RegisterReceiveAudioCallback"}(Code{id}, std::string(cb ? "callback" : "null"));
  }

 private:
  struct Call {
    FakeLumx* fake;
    CommandResult* r;
    const char* name;
    template <typename... A>
    ndk::ScopedAStatus operator()(const A&... a) {
      std::string call = std::string(name) + "(", sep;
      ((call += sep + Text(a), sep = ", "), ...);
      return fake->Answer(call + ")", r);
    }
  };

  Canned Canned_() {
    lumx::MutexLock lock(&mu_);
    return canned_;
  }

  ndk::ScopedAStatus Answer(std::string call, CommandResult* r) {
    binder_status_t transportError;
    {
      lumx::MutexLock lock(&mu_);
      seen_.calls.push_back(std::move(call));
      r->status = static_cast<CommandResult::Status>(canned_.status);
      r->value = canned_.value;
      r->strList = canned_.lines;
      transportError = canned_.transportError;
    }
    cv_.notify_all();
    if (transportError != STATUS_OK) return ndk::ScopedAStatus::fromStatus(transportError);
    return ndk::ScopedAStatus::ok();
  }

  lumx::Mutex mu_;
  std::condition_variable_any cv_;
  Canned canned_ GUARDED_BY(mu_);
  Seen seen_ GUARDED_BY(mu_);
};

// The fake service, registered once per process: the runtime keeps the
// first registration's socket for a name, so the directory stays fixed.
class ServiceHarness {
 public:
  static ServiceHarness& Get() {
    static ServiceHarness harness;
    return harness;
  }
  bool ok = false;
  lumx_test::TempDir dir{"lumx-tool-test"};
  // Kept for the life of the process, like the registry's own reference.
  std::shared_ptr<FakeLumx>* fake = new std::shared_ptr<FakeLumx>(ndk::SharedRefBase::make<FakeLumx>());

 private:
  ServiceHarness() {
    if (dir.path().empty()) return;
    setenv("LUMX_BINDER_DIR", dir.Join("binder").c_str(), 1);
    if (AServiceManager_addService((*fake)->asBinder().get(), "lumx.ILumx/default") != EX_NONE) return;
    ABinderProcess_startThreadPool();
    ok = true;
  }
};

struct RunResult {
  int exitCode = -1;
  std::string out, err;
};

class LumxToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(ServiceHarness::Get().ok) << "cannot register the fake service";
    ASSERT_FALSE(files_.path().empty());
    fake().Reset();
  }

  static FakeLumx& fake() { return **ServiceHarness::Get().fake; }
  static std::string BinderDir() { return ServiceHarness::Get().dir.Join("binder"); }
  std::string Path(const std::string& name) const { return files_.Join(name); }

  bool Start(lumx_test::Subprocess* p, const std::vector<std::string>& args,
             const std::string& binderDir = BinderDir()) {
    std::vector<std::pair<std::string, std::string>> env = extraEnv_;
    env.emplace_back("LUMX_BINDER_DIR", binderDir);
    return p->Start(lumx_test::BuildBinary(tool_), args, env, Path("out"), Path("err"));
  }
  // Waits for the child (killing it if it hangs) and collects its output.
  RunResult Finish(lumx_test::Subprocess* p) {
    RunResult r;
    int status = 0;
    if (!p->WaitExit(kChildTimeoutMs, &status)) {
      ADD_FAILURE() << "lumx did not finish; killing it";
      p->Signal(SIGKILL);
      if (!p->WaitExit(kChildTimeoutMs, &status)) return r;
    }
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    r.out = lumx_test::ReadFileText(Path("out"));
    r.err = lumx_test::ReadFileText(Path("err"));
    return r;
  }
  RunResult Run(const std::vector<std::string>& args, const std::string& binderDir = BinderDir()) {
    lumx_test::Subprocess p;
    EXPECT_TRUE(Start(&p, args, binderDir));
    return Finish(&p);
  }

  lumx_test::TempDir files_{"lumx-tool-files"};
  std::string tool_ = "tools/lumx/lumx";
  std::vector<std::pair<std::string, std::string>> extraEnv_;
};

bool DotInstalled() { return system("command -v dot >/dev/null 2>&1") == 0; }

void WriteWav(const std::string& path, const std::vector<int16_t>& samples, int channels, int rate = 48000) {
  SF_INFO info{};
  info.samplerate = rate;
  info.channels = channels;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(f, nullptr) << sf_strerror(nullptr);
  sf_write_short(f, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(f);
}

std::vector<int16_t> Ramp(int16_t start, size_t n) {
  std::vector<int16_t> v(n);
  for (size_t k = 0; k < n; ++k) v[k] = static_cast<int16_t>(start + static_cast<int>(k));
  return v;
}

// A packet as the tool sends it: 16-bit little-endian samples and codes.
ILumx::AudioPacket Packet(int32_t id, const std::vector<int16_t>& samples, int8_t channels = 1, int8_t rate = 5,
                          int8_t format = 0, int8_t bits = 1) {
  ILumx::AudioPacket p;
  p.processor_id = id;
  for (int16_t s : samples) {
    p.data.push_back(static_cast<uint8_t>(static_cast<uint16_t>(s) & 0xff));
    p.data.push_back(static_cast<uint8_t>(static_cast<uint16_t>(s) >> 8));
  }
  p.sampleRate = rate;
  p.format = format;
  p.bitsPerSample = bits;
  p.numChannels = channels;
  p.reserved = 1;
  return p;
}

TEST_F(LumxToolTest, EveryOperationReceivesItsArgumentsInOrder) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"Ping"}, "Ping()"}, {{"showgraph"}, "ShowGraph()"},
      {{"ListProcessors"}, "ListProcessors()"}, {{"LISTSUPPORTEDPROCESSORS"}, "ListSupportedProcessors()"},
      {{"NewProcessor", "pass"}, "NewProcessor(0x70617373)"},
      {{"newprocessorwithtype", "pas1", "pass"}, "NewProcessorWithType(0x70617331, 0x70617373)"},
      {{"DeleteProcessor", "0x61727430"}, "DeleteProcessor(0x61727430)"},
      {{"ListSupportedUseCases"}, "ListSupportedUseCases()"}, {{"Enable", "Mic_In", "on"}, "Enable(Mic_In, 1)"},
      {{"IsEnabled", "arel_tele"}, "IsEnabled(arel_tele)"},
      {{"ProcessorInfo", "pas1"}, "ProcessorInfo(0x70617331)"},
      {{"ProcessorEnable", "pas1", "false"}, "ProcessorEnable(0x70617331, 0)"},
      {{"ProcessorIsEnabled", "1885434673"}, "ProcessorIsEnabled(0x70617331)"}, {{"TapList", "2"}, "TapList(2)"},
      {{"TapInfo", "2", "imic", "0"}, "TapInfo(2, 0x696d6963, 0)"},
      {{"TapEnable", "4", "vpul", "1", "true"}, "TapEnable(4, 0x7670756c, 1, 1)"},
      {{"TapSetBlockLength", "4", "vpdl", "0", "960"}, "TapSetBlockLength(4, 0x7670646c, 0, 960)"},
      {{"ListTapOutBuffers"}, "ListTapOutBuffers()"}, {{"ListInjectBuffers"}, "ListInjectBuffers()"},
      {{"Connect", "pas1", "20", "-1"}, "Connect(0x70617331, 20, -1)"},
      {{"ConnectTap", "2", "imic", "0", "20", "21"}, "ConnectTap(2, 0x696d6963, 0, 20, 21)"},
      {{"StartIo", "20"}, "StartIo(20)"}, {{"StopIo", "0x15"}, "StopIo(21)"}, {{"Debug"}, "Debug([])"},
      // Words after Debug go through as typed, options included.
      {{"Debug", "buffer_dump", "tapout", "-1", "--", "--json", "HELP"}, "Debug([buffer_dump tapout -1 --json HELP])"},
      {{"EnableUseCase", "mic_in", "1"}, "EnableUseCase(1, 1)"},
      {{"IsUseCaseEnabled", "AREL_TELE"}, "IsUseCaseEnabled(3)"},
      {{"SetParameter", "arel", "block_length", "0", "i:960"}, "SetParameter(0x6172656c, 3, 0, i:960)"},
      {{"SetParameter", "arel", "7", "-2", "f:0.5"}, "SetParameter(0x6172656c, 7, -2, f:0.5)"},
      {{"GetParameter", "pas1", "AUDIO_FORMAT", "1"}, "GetParameter(0x70617331, 4, 1)"},
      {{"SetParameterBulk", "pas1", "BLOCK_LENGTH:0=i:960", "test_mode:2=f:1.5", "7:-1=i:0"},
       "SetParameterBulk(0x70617331, [3:0 2:2 7:-1], [i:960 f:1.5 i:0])"},
      {{"SetParameterBulk", "pas1"}, "SetParameterBulk(0x70617331, [], [])"},
      {{"GetParameterBulk", "pas1", "VERSION:1", "audio_format:2", "UNSPECIFIED:-1"},
       "GetParameterBulk(0x70617331, [0:1 4:2 -1:-1])"},
      {{"ListParameters"}, "ListParameters()"},
      {{"RegisterReceiveAudioCallback", "art0"}, "RegisterReceiveAudioCallback(0x61727430, null)"},
  };
  for (const auto& [args, call] : cases) {
    fake().Reset();
    RunResult r = Run(args);
    EXPECT_EQ(r.exitCode, 0) << args[0] << ": " << r.err;
    EXPECT_EQ(fake().Got().calls, std::vector<std::string>{call}) << args[0];
    EXPECT_EQ(r.err, "") << args[0];
  }
}

TEST_F(LumxToolTest, OutputAndExitCodeFollowTheReply) {
  auto I = [](int32_t v) { return ParamValue::make<ParamValue::i>(v); };
  auto F = [](float v) { return ParamValue::make<ParamValue::f>(v); };
  struct Case {
    std::vector<std::string> args;
    Canned reply;
    int exitCode;
    std::string out;
  };
  const std::string ok = "{\"op\":\"GetParameter\",\"status\":0,\"statusName\":\"OK\",\"value\":0,\"lines\":[],";
  const std::string bulk = "{\"op\":\"GetParameterBulk\",\"status\":0,\"statusName\":\"OK\",\"value\":0,\"lines\":[],";
  const Case cases[] = {
      {{"ProcessorEnable", "pas1", "1"}, {2, 0, {"Enable processor pas1", "  two  blanks ", "", "tab\there"}}, 2,
       "Enable processor pas1\n  two  blanks \n\ntab\there\n"},
      // A status the tool does not know still fails, with exit code 1.
      {{"--json", "ListProcessors"}, {7, 0, {}}, 1,
       "{\"op\":\"ListProcessors\",\"status\":7,\"statusName\":\"7\",\"value\":0,\"lines\":[]}\n"},
      {{"ProcessorIsEnabled", "pas1"}, {0, 1, {"ProcessorIsEnabled id:pas1"}}, 0,
       "ProcessorIsEnabled id:pas1\nvalue: 1.000000\n"},
      {{"IsUseCaseEnabled", "arel_tele"}, {0, 0, {"IsUseCaseEnabled AREL_TELE"}}, 0,
       "IsUseCaseEnabled AREL_TELE\nvalue: 0.000000\n"},
      {{"GetParameter", "pas1", "BLOCK_LENGTH", "0"}, {0, 0, {"GetParameter pas1", "--> 4800"}, I(4800)}, 0,
       "GetParameter pas1\n--> 4800\nparam: i:4800\n"},
      {{"--json", "GetParameter", "pas1", "7", "0"}, {0, 0, {}, F(0.25f)}, 0, ok + "\"param\":{\"f\":0.25}}\n"},
      // A refused read shows no value.
      {{"GetParameter", "pas1", "7", "0"}, {3, 0, {}, F(0.25f)}, 3, ""},
      {{"GetParameterBulk", "pas1", "BLOCK_LENGTH:0", "TEST_MODE:0", "AUDIO_FORMAT:9"},
       {5, 0, {"GetParameterBulk pas1", "Error AUDIO_FORMAT"}, {}, {I(4800), F(-1.5f)}}, 5,
       "GetParameterBulk pas1\nError AUDIO_FORMAT\nparam: i:4800\nparam: f:-1.5\n"},
      {{"--json", "GetParameterBulk", "pas1"}, {0, 0, {}, {}, {I(-1), F(2)}}, 0,
       bulk + "\"values\":[{\"i\":-1},{\"f\":2}]}\n"},
      {{"--json", "GetParameterBulk", "pas1"}, {0, 0, {}}, 0, bulk + "\"values\":[]}\n"},
      {{"--json", "Debug", "x"},
       {6, 0.5f, {"quote \" backslash \\ tab \t", std::string("nul\0byte", 8), "bad \xff utf8"}}, 6,
       "{\"op\":\"Debug\",\"status\":6,\"statusName\":\"READ_ONLY\",\"value\":0.5,"
       "\"lines\":[\"quote \\\" backslash \\\\ tab \\t\",\"nul\\u0000byte\",\"bad \\u00ff utf8\"]}\n"},
  };
  for (const Case& c : cases) {
    fake().SetCanned(c.reply);
    RunResult r = Run(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args[1];
    EXPECT_EQ(r.out, c.out) << c.args[1];
    EXPECT_EQ(r.err, "") << c.args[1];
  }
}

TEST_F(LumxToolTest, SendAudioCarriesTheFileAndCodes) {
  const std::vector<int16_t> mono{0, 1, -1, 32767, -32768, 256, -256, 1000};
  WriteWav(Path("mono.wav"), mono, 1);
  RunResult r = Run({"SendAudio", "art0", Path("mono.wav")});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(fake().Got().sent, std::vector<ILumx::AudioPacket>{Packet(kArt0, mono)});

  fake().Reset();
  const std::vector<int16_t> stereo{1, 2, 3, 4};
  WriteWav(Path("stereo.wav"), stereo, 2);
  r = Run({"SendAudio", "art1", Path("stereo.wav"), "4", "1", "0xff", "2"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(fake().Got().sent, std::vector<ILumx::AudioPacket>{Packet(kArt0 + 1, stereo, 2, 4, 1, -1)});

  // A missing file is refused before the daemon is called.
  fake().Reset();
  r = Run({"SendAudio", "art0", Path("absent.wav")});
  EXPECT_EQ(r.exitCode, 66);
  EXPECT_TRUE(fake().Got().calls.empty());
  EXPECT_NE(r.err.find("absent.wav"), std::string::npos);
}

TEST_F(LumxToolTest, UsageErrorsExit64WithoutCallingTheDaemon) {
  // Each parser's refusals are in lumx_cli_test.cpp; here, how the tool ends.
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"NoSuchOperation"}, {"SetParameter", "pas1", "7", "0", "1"}, {"relay"}}) {
    RunResult r = Run(args);
    EXPECT_EQ(r.exitCode, 64) << args[0];
    EXPECT_EQ(r.out, "");
    ASSERT_FALSE(r.err.empty());
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << "one line: " << r.err;
    EXPECT_EQ(r.err.rfind("lumx: ", 0), 0u) << r.err;
  }
  EXPECT_TRUE(fake().Got().calls.empty());

  // Help, asked for in any of its forms, exits 0; a bare lumx shows the
  // usage as its error.
  const struct {
    std::vector<std::string> args;
    int exitCode;
    std::string out, err;
  } help[] = {
      {{"--help"}, 0, "usage: lumx [options] <operation> [arguments...]\n", ""},
      {{"help"}, 0, "usage: lumx [options] <operation> [arguments...]\n", ""},
      {{"help", "tapinfo"}, 0, "usage: lumx TapInfo <core> <tap> <index>\n  describe a tap\n", ""},
      {{"TapInfo", "--help"}, 0, "usage: lumx TapInfo <core> <tap> <index>\n  describe a tap\n", ""},
      {{}, 64, "", "lumx: no operation given (see lumx help)\nusage: lumx [options] <operation>"},
      // With --json every refusal is one object on stdout.
      {{"--json"}, 64, "{\"op\":null,\"error\":\"no operation given (see lumx help)\",\"exitCode\":64}\n", ""},
      {{"nosuch", "--json"}, 64,
       "{\"op\":null,\"error\":\"unknown operation 'nosuch' (see lumx help)\",\"exitCode\":64}\n", ""},
      {{"TapInfo", "2", "imic", "--json"}, 64,
       "{\"op\":\"TapInfo\",\"error\":\"TapInfo: missing <index> (usage: lumx TapInfo <core> <tap> <index>) (a tap "
       "is <core> <tap> <index>, <core> <tap>.<index> or <core>:<tap>.<index>)\",\"exitCode\":64}\n",
       ""},
  };
  for (const auto& h : help) {
    RunResult r = Run(h.args);
    EXPECT_EQ(r.exitCode, h.exitCode) << r.err;
    if (h.exitCode == 0) {
      EXPECT_EQ(r.out.rfind(h.out, 0), 0u) << r.out;
    } else {
      EXPECT_EQ(r.out, h.out);
    }
    EXPECT_EQ(r.err.rfind(h.err, 0), 0u) << r.err;
  }
  EXPECT_TRUE(fake().Got().calls.empty());
}

TEST_F(LumxToolTest, FailedOrUnreachableDaemonExits69) {
  std::string empty = Path("no-daemon");
  ASSERT_EQ(mkdir(empty.c_str(), 0700), 0);
  RunResult unreachable = Run({"ListProcessors"}, empty);
  EXPECT_TRUE(fake().Got().calls.empty());
  Canned dead;
  dead.transportError = STATUS_DEAD_OBJECT;
  fake().SetCanned(dead);
  for (const RunResult& r : {unreachable, Run({"ListProcessors"})}) {
    EXPECT_EQ(r.exitCode, 69);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("lumx.ILumx/default"), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
  }
  const std::string json =
      "{\"op\":\"ListProcessors\",\"error\":\"cannot reach service lumx.ILumx/default within 300 ms (is lumxd "
      "running?)\",\"exitCode\":69}\n";
  RunResult r = Run({"ListProcessors", "--timeout", "300", "--json"}, empty);
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_EQ(r.out, json);
  r = Run({"--json", "ListProcessors"});
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_EQ(r.out.rfind("{\"op\":\"ListProcessors\",\"error\":\"ListProcessors: call to lumx.ILumx/default failed: ", 0),
            0u)
      << r.out;

  // A service socket that accepts but never greets: the lookup is left
  // behind at the time-out and the tool still ends with its answer.
  std::string stuck = Path("stuck");
  ASSERT_EQ(mkdir(stuck.c_str(), 0700), 0);
  const std::string socketPath = stuck + "/lumx.ILumx%2Fdefault";  // "/" is written %2F
  lumx::unique_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", socketPath.c_str());
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0) << socketPath;
  ASSERT_EQ(listen(listener.get(), 4), 0);
  r = Run({"ListProcessors", "--timeout", "300", "--json"}, stuck);
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_EQ(r.out, json);
}

TEST_F(LumxToolTest, VersionAndRefusedTaps) {
  // The hash of the frozen interface, aidl_api/lumx/2/.hash.
  const std::string hash = "21cfb57dc7bc99ea662ae356916bbebc3297cafa";
  RunResult r = Run({"version"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "lumxd: interface version 2, hash " + hash + "\nlumx:  interface version 2, hash " + hash + "\n");
  r = Run({"--json", "version"});
  EXPECT_EQ(r.out, "{\"op\":\"version\",\"service\":{\"version\":2,\"hash\":\"" + hash +
                       "\"},\"tool\":{\"version\":2,\"hash\":\"" + hash + "\"}}\n");

  // A tap the DSP refuses: the answer as it is, and on stderr how the code
  // was read and the rule for codes.
  const std::string rule =
      "a word of exactly four characters is the code's text (1234 is the text \"1234\"); 0x<hex> or any other "
      "all-digit word is a number (0x4d2, 01234)";
  fake().SetCanned({1, 0, {"TapInfo core:2 tap:1234.0", "CMD_LUMX_TAP_INFO_ID failed, status -2"}});
  r = Run({"TapInfo", "2", "1234.0"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.out, "TapInfo core:2 tap:1234.0\nCMD_LUMX_TAP_INFO_ID failed, status -2\n");
  EXPECT_EQ(r.err, "lumx: tap 2:1234.0 was sent as code 0x31323334 (the text \"1234\"); " + rule + "\n");
  r = Run({"--json", "TapEnable", "2:0x4d2.1", "yes"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find(",\"hint\":\"tap 2:0x000004d2.1 was sent as code 0x000004d2; a word of"), std::string::npos)
      << r.out;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(fake().Got().calls,
            (std::vector<std::string>{"TapInfo(2, 0x31323334, 0)", "TapEnable(2, 0x000004d2, 1, 1)"}));
}

TEST_F(LumxToolTest, GraphIsReadFromTheListingsAndDrawnByDot) {
  fake().SetCanned({0, 0, {"title", "  none"}});
  RunResult r = Run({"graph"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, lumx_test::ReadFileText(std::string(LUMX_SOURCE_DIR) + "/tests/tools/golden/graph_none.dot"));
  EXPECT_EQ(fake().Got().calls, (std::vector<std::string>{"ListProcessors()", "ListTapOutBuffers()",
                                                      "ListInjectBuffers()", "TapList(2)", "TapList(3)",
                                                      "TapList(4)"}));
  // Pictures go where they are asked for; a directory that does not exist
  // or a missing dot is refused, and no file is left behind.
  EXPECT_EQ(Run({"graph", "--png", Path("no/such/dir/g.png")}).exitCode, 73);
  extraEnv_ = {{"PATH", Path("empty-path")}};
  r = Run({"graph", "--svg", Path("g.svg")});
  extraEnv_.clear();
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_EQ(r.err, "lumx: graph: Graphviz's dot is not installed (Debian package graphviz)\n");
  EXPECT_NE(access(Path("g.svg").c_str(), F_OK), 0);
  if (!DotInstalled()) GTEST_SKIP() << "Graphviz's dot is not installed: no picture drawn";
  r = Run({"graph", "--png", Path("g.png"), "--svg", Path("g.svg")});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "lumx: graph drawn into " + Path("g.png") + "\nlumx: graph drawn into " + Path("g.svg") + "\n");
  EXPECT_EQ(lumx_test::ReadFileText(Path("g.png")).substr(0, 8), "\x89PNG\r\n\x1a\n");
  EXPECT_NE(lumx_test::ReadFileText(Path("g.svg")).find("<svg"), std::string::npos);
}

TEST_F(LumxToolTest, DumpAndTopAskTheServiceForItsDump) {
  const std::string dump =
      "{\"interface\":{\"version\":2,\"hash\":\"h\"},\"uptime_s\":5.000,\"wake_lock\":{\"held\":false},"
      "\"control\":{\"open\":true,\"commands\":3},\"tapout_buffers\":[{\"id\":20,\"name\":\"tapout20\","
      "\"enabled\":true,\"running\":true,\"tap\":\"2:imic.0\",\"outputs\":[\"pas1\"],\"format\":null,"
      "\"packets\":7}],\"inject_buffers\":[],\"processors\":[]}\n";
  Canned canned;
  canned.dump = dump;
  fake().SetCanned(canned);
  RunResult r = Run({"dump", "--reset", "--bogus"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, dump);
  r = Run({"--json", "dump"});
  EXPECT_EQ(r.out, dump);
  r = Run({"top", "--once"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("\nR   20 tapout20   2:imic.0"), std::string::npos) << r.out;
  r = Run({"top", "--once", "--json"});
  // Both dumps say the same uptime: no rate, so the running buffer is "R".
  EXPECT_EQ(r.out.rfind("{\"op\":\"top\",\"uptime_s\":5,\"streams\":[{\"state\":\"R\",\"id\":20,", 0), 0u) << r.out;
  EXPECT_EQ(fake().Got().calls, (std::vector<std::string>{"dump(--reset, --bogus)", "dump(--json)", "dump(--json)",
                                                      "dump(--json)", "dump(--json)", "dump(--json)"}));
  // A service that writes nothing, or no lumxd dump, is an error.
  canned.dump = "";
  fake().SetCanned(canned);
  r = Run({"dump"});
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_EQ(r.err, "lumx: dump: the service wrote nothing\n");
  canned.dump = "lumxd\n";
  fake().SetCanned(canned);
  r = Run({"top", "--once"});
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_EQ(r.err.rfind("lumx: dump: the dump is not JSON", 0), 0u) << r.err;
}

TEST_F(LumxToolTest, RelayRecordsPlaysAndDetaches) {
  // Play file: three blocks and a half of 480 samples.
  const std::vector<int16_t> play = Ramp(-1000, 480 * 3 + 240);
  WriteWav(Path("play.wav"), play, 1);
  lumx_test::Subprocess p;
  ASSERT_TRUE(Start(&p, {"relay", "art0", "--record", Path("rec.wav"), "--play", Path("play.wav")}));
  ASSERT_TRUE(fake().WaitFor(1, 0));
  std::shared_ptr<ILumx::IReceiveAudioCallback> cb = fake().Got().callback;
  ASSERT_NE(cb, nullptr);

  std::vector<int16_t> recorded;
  for (int k = 0; k < 4; ++k) {
    std::vector<int16_t> block = Ramp(static_cast<int16_t>(100 * k), 480);
    recorded.insert(recorded.end(), block.begin(), block.end());
    EXPECT_TRUE(cb->ReceiveAudio(Packet(kArt0, block)).isOk());
    if (k == 0) {
      EXPECT_TRUE(cb->ReceiveAudio(Packet(kArt0, Ramp(0, 960), 2)).isOk());  // stereo: bad
    }
  }
  // One SendAudio per good block while the play file lasts.
  ASSERT_TRUE(fake().WaitFor(0, 4));
  p.Signal(SIGINT);
  RunResult r = Finish(&p);
  EXPECT_EQ(r.exitCode, 0) << r.err;

  std::vector<std::string> calls = fake().Got().calls;
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls.front(), "RegisterReceiveAudioCallback(0x61727430, callback)");
  EXPECT_EQ(calls.back(), "RegisterReceiveAudioCallback(0x61727430, null)");
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "SendAudio(0x61727430)"), 4);
  std::vector<ILumx::AudioPacket> expect;
  for (size_t k = 0; k < 4; ++k) {
    std::vector<int16_t> block(480, 0);
    std::copy(play.begin() + 480 * k, play.begin() + std::min(play.size(), 480 * k + 480), block.begin());
    expect.push_back(Packet(kArt0, block));
  }
  EXPECT_EQ(fake().Got().sent, expect);

  SF_INFO info{};
  SNDFILE* f = sf_open(Path("rec.wav").c_str(), SFM_READ, &info);
  ASSERT_NE(f, nullptr);
  std::vector<int16_t> got(static_cast<size_t>(info.frames * info.channels));
  sf_readf_short(f, got.data(), info.frames);
  sf_close(f);
  EXPECT_EQ(got, recorded);
  EXPECT_EQ(info.samplerate, 48000);
  EXPECT_EQ(info.channels, 1);
  EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
  for (const char* line : {"packets received: 4\n", "samples received: 1920\n", "bad packets: 1\n",
                           "packets sent: 4\n", "send errors: 0\n", "inter-arrival mean ms: "}) {
    EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;
  }
}

TEST_F(LumxToolTest, RelayEndsWith69WhenTheDaemonStopsAnswering) {
  WriteWav(Path("play.wav"), Ramp(0, 4800), 1);
  lumx_test::Subprocess p;
  ASSERT_TRUE(Start(&p, {"relay", "art0", "--play", Path("play.wav"), "--json-stats"}));
  ASSERT_TRUE(fake().WaitFor(1, 0));
  Canned dead;
  dead.transportError = STATUS_DEAD_OBJECT;
  fake().SetCanned(dead);
  std::shared_ptr<ILumx::IReceiveAudioCallback> cb = fake().Got().callback;
  ASSERT_NE(cb, nullptr);
  EXPECT_TRUE(cb->ReceiveAudio(Packet(kArt0, Ramp(0, 480))).isOk());
  RunResult r = Finish(&p);  // ends by itself: no signal, no time limit
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_NE(r.err.find("lumx.ILumx/default"), std::string::npos) << r.err;
  EXPECT_NE(r.out.find("\"exitCode\":69,\"error\":"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"packets\":1,"), std::string::npos) << r.out;
  // The lost daemon is not asked to detach.
  EXPECT_EQ(fake().Got().calls, (std::vector<std::string>{"RegisterReceiveAudioCallback(0x61727430, callback)",
                                                      "SendAudio(0x61727430)"}));
}

TEST_F(LumxToolTest, RelayStopsAfterItsTimeLimitWithJsonStats) {
  RunResult r = Run({"relay", "art1", "--seconds", "0.3", "--json-stats"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(fake().Got().calls, (std::vector<std::string>{"RegisterReceiveAudioCallback(0x61727431, callback)",
                                                      "RegisterReceiveAudioCallback(0x61727431, null)"}));
  EXPECT_EQ(r.out.rfind("{\"op\":\"relay\",\"processor\":\"art1\",\"exitCode\":0,\"packets\":0,", 0), 0u)
      << r.out;
  EXPECT_EQ(r.out.find('\n'), r.out.size() - 1);
}

TEST_F(LumxToolTest, ASecondRelayClientDisplacesTheFirstWhichNeverDetachesIt) {
  lumx_test::Subprocess first, second;
  ASSERT_TRUE(Start(&first, {"relay", "art0"}));
  ASSERT_TRUE(fake().WaitFor(1, 0));
  // The second registration replaces the first callback, as a relay
  // processor does: the first session learns it and ends on its own.
  ASSERT_TRUE(second.Start(lumx_test::BuildBinary("tools/lumx/lumx"), {"relay", "art0"},
                           {{"LUMX_BINDER_DIR", BinderDir()}}, Path("out2"), Path("err2")));
  ASSERT_TRUE(fake().WaitFor(2, 0));
  RunResult r = Finish(&first);
  EXPECT_EQ(r.exitCode, 75);
  EXPECT_EQ(r.err,
            "lumx: relay: another client registered on art0 (or the processor was deleted): "
            "this session no longer receives its audio\n");
  second.Signal(SIGINT);
  int status = 0;
  ASSERT_TRUE(second.WaitExit(kChildTimeoutMs, &status));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << lumx_test::ReadFileText(Path("err2"));
  // Only the second client detached, once.
  EXPECT_EQ(fake().Got().calls, (std::vector<std::string>{"RegisterReceiveAudioCallback(0x61727430, callback)",
                                                      "RegisterReceiveAudioCallback(0x61727430, callback)",
                                                      "RegisterReceiveAudioCallback(0x61727430, null)"}));
}

TEST_F(LumxToolTest, RelayRefusals) {
  fake().SetCanned({2, 0, {}});
  RunResult r = Run({"relay", "nope", "--seconds", "30"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(fake().Got().calls, std::vector<std::string>{"RegisterReceiveAudioCallback(0x6e6f7065, callback)"});
  EXPECT_NE(r.err.find("INVALID_PROCESSOR"), std::string::npos) << r.err;

  // Bad files are refused before the daemon is called.
  fake().Reset();
  WriteWav(Path("441.wav"), Ramp(0, 100), 1, 44100);
  EXPECT_EQ(Run({"relay", "art0", "--play", Path("441.wav")}).exitCode, 65);
  EXPECT_EQ(Run({"relay", "art0", "--play", Path("missing.wav")}).exitCode, 66);
  EXPECT_EQ(Run({"relay", "art0", "--record", Path("no/such/dir/rec.wav")}).exitCode, 73);
  EXPECT_TRUE(fake().Got().calls.empty());
}

// Built without libsndfile, as on Android, the tool refuses every WAV file
// before it calls the daemon, says why, and still makes every other call.
TEST_F(LumxToolTest, WithoutWavSupportFilesAreRefusedBeforeAnyCall) {
  tool_ = "tools/lumx/lumx-nowav";
  WriteWav(Path("in.wav"), Ramp(0, 100), 1);
  const std::string why = "this lumx is built without WAV support (no libsndfile)";
  const struct {
    std::vector<std::string> args;
    int exitCode;
    std::string err;
  } cases[] = {
      {{"SendAudio", "art0", Path("in.wav")}, 66, "lumx: SendAudio: cannot read '" + Path("in.wav") + "': " + why},
      {{"relay", "art0", "--play", Path("in.wav")}, 66, "lumx: relay: cannot read '" + Path("in.wav") + "': " + why},
      {{"relay", "art0", "--record", Path("o.wav")}, 73, "lumx: relay: cannot create '" + Path("o.wav") + "': " + why},
  };
  for (const auto& c : cases) {
    RunResult r = Run(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args[0];
    EXPECT_EQ(r.err, c.err + "\n");
  }
  EXPECT_TRUE(fake().Got().calls.empty());
  fake().SetCanned({0, 0, {"p1"}});
  RunResult r = Run({"ListProcessors"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(fake().Got().calls, std::vector<std::string>{"ListProcessors()"});
}

}  // namespace
