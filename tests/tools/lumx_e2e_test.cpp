// Runs the built `lumx` binary against a fake ILumx service registered by
// this test process, and checks what each operation receives, what the tool
// prints and how it exits.
#include <aidl/lumx/BnLumx.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "common/thread_annotations.h"
#include "common/unique_fd.h"

extern char** environ;

namespace {

using aidl::lumx::ILumx;
using CommandResult = ILumx::CommandResult;
using ParamValue = ILumx::ParamValue;

// Generous: the tool itself gives up on a missing daemon after ~2 s.
constexpr auto kChildTimeout = std::chrono::seconds(90);
constexpr auto kEventTimeout = std::chrono::seconds(60);

std::string Hex(int32_t v) {
  char buf[16];
  snprintf(buf, sizeof(buf), "0x%08x", static_cast<uint32_t>(v));
  return buf;
}

std::string ValueText(const ParamValue& v) {
  if (v.getTag() == ParamValue::f) {
    char buf[32];
    snprintf(buf, sizeof(buf), "f:%g", v.get<ParamValue::f>());
    return buf;
  }
  return "i:" + std::to_string(v.get<ParamValue::i>());
}

// What the fake answers; set by a test before it runs the tool.
struct Canned {
  int8_t status = 0;
  float value = 0.0f;
  std::vector<std::string> lines{"answer line"};
  ParamValue param;
  std::vector<ParamValue> values;
  // Non-OK: the call fails in transport with this status (no reply).
  binder_status_t transportError = STATUS_OK;
};

class FakeLumx : public aidl::lumx::BnLumx {
 public:
  void SetCanned(Canned canned) {
    lumx::MutexLock lock(&mu_);
    canned_ = std::move(canned);
  }
  std::vector<std::string> Calls() {
    lumx::MutexLock lock(&mu_);
    return calls_;
  }
  std::vector<ILumx::AudioPacket> Sent() {
    lumx::MutexLock lock(&mu_);
    return sent_;
  }
  std::shared_ptr<IReceiveAudioCallback> Callback() {
    lumx::MutexLock lock(&mu_);
    return callback_;
  }
  void Reset() {
    lumx::MutexLock lock(&mu_);
    calls_.clear();
    sent_.clear();
    callback_.reset();
    canned_ = Canned{};
  }
  // Waits until `done` holds for the recorded calls and packets.
  template <typename Pred>
  bool WaitFor(Pred done) {
    auto deadline = std::chrono::steady_clock::now() + kEventTimeout;
    lumx::MutexLock lock(&mu_);
    while (!done(calls_, sent_)) {
      if (cv_.wait_until(mu_, deadline) == std::cv_status::timeout) {
        return done(calls_, sent_);
      }
    }
    return true;
  }

  ndk::ScopedAStatus Ping() override {
    CommandResult ignored;
    return Answer("Ping()", &ignored);
  }
  ndk::ScopedAStatus ShowGraph(CommandResult* r) override { return Answer("ShowGraph()", r); }
  ndk::ScopedAStatus ListProcessors(CommandResult* r) override {
    return Answer("ListProcessors()", r);
  }
  ndk::ScopedAStatus ListSupportedProcessors(CommandResult* r) override {
    return Answer("ListSupportedProcessors()", r);
  }
  ndk::ScopedAStatus NewProcessor(int32_t id, CommandResult* r) override {
    return Answer("NewProcessor(" + Hex(id) + ")", r);
  }
  ndk::ScopedAStatus NewProcessorWithType(int32_t id, int32_t type,
                                          CommandResult* r) override {
    return Answer("NewProcessorWithType(" + Hex(id) + ", " + Hex(type) + ")", r);
  }
  ndk::ScopedAStatus DeleteProcessor(int32_t id, CommandResult* r) override {
    return Answer("DeleteProcessor(" + Hex(id) + ")", r);
  }
  ndk::ScopedAStatus ListSupportedUseCases(CommandResult* r) override {
    return Answer("ListSupportedUseCases()", r);
  }
  ndk::ScopedAStatus Enable(const std::string& name, bool enable,
                            CommandResult* r) override {
    return Answer("Enable(" + name + ", " + std::to_string(enable) + ")", r);
  }
  ndk::ScopedAStatus IsEnabled(const std::string& name, CommandResult* r) override {
    return Answer("IsEnabled(" + name + ")", r);
  }
  ndk::ScopedAStatus ProcessorInfo(int32_t id, CommandResult* r) override {
    return Answer("ProcessorInfo(" + Hex(id) + ")", r);
  }
  ndk::ScopedAStatus ProcessorEnable(int32_t id, bool enable, CommandResult* r) override {
    return Answer("ProcessorEnable(" + Hex(id) + ", " + std::to_string(enable) + ")", r);
  }
  ndk::ScopedAStatus ProcessorIsEnabled(int32_t id, CommandResult* r) override {
    return Answer("ProcessorIsEnabled(" + Hex(id) + ")", r);
  }
  ndk::ScopedAStatus TapList(int32_t core, CommandResult* r) override {
    return Answer("TapList(" + std::to_string(core) + ")", r);
  }
  ndk::ScopedAStatus TapInfo(int32_t core, int32_t tap, int32_t index,
                             CommandResult* r) override {
    return Answer("TapInfo(" + std::to_string(core) + ", " + Hex(tap) + ", " +
                      std::to_string(index) + ")",
                  r);
  }
  ndk::ScopedAStatus TapEnable(int32_t core, int32_t tap, int32_t index, bool enable,
                               CommandResult* r) override {
    return Answer("TapEnable(" + std::to_string(core) + ", " + Hex(tap) + ", " +
                      std::to_string(index) + ", " + std::to_string(enable) + ")",
                  r);
  }
  ndk::ScopedAStatus TapSetBlockLength(int32_t core, int32_t tap, int32_t index,
                                       int32_t length, CommandResult* r) override {
    return Answer("TapSetBlockLength(" + std::to_string(core) + ", " + Hex(tap) +
                      ", " + std::to_string(index) + ", " + std::to_string(length) +
                      ")",
                  r);
  }
  ndk::ScopedAStatus ListTapOutBuffers(CommandResult* r) override {
    return Answer("ListTapOutBuffers()", r);
  }
  ndk::ScopedAStatus ListInjectBuffers(CommandResult* r) override {
    return Answer("ListInjectBuffers()", r);
  }
  ndk::ScopedAStatus Connect(int32_t id, int32_t tapOut, int32_t inject,
                             CommandResult* r) override {
    return Answer("Connect(" + Hex(id) + ", " + std::to_string(tapOut) + ", " +
                      std::to_string(inject) + ")",
                  r);
  }
  ndk::ScopedAStatus ConnectTap(int32_t core, int32_t tap, int32_t index,
                                int32_t tapOut, int32_t inject,
                                CommandResult* r) override {
    return Answer("ConnectTap(" + std::to_string(core) + ", " + Hex(tap) + ", " +
                      std::to_string(index) + ", " + std::to_string(tapOut) + ", " +
                      std::to_string(inject) + ")",
                  r);
  }
  ndk::ScopedAStatus StartIo(int32_t id, CommandResult* r) override {
    return Answer("StartIo(" + std::to_string(id) + ")", r);
  }
  ndk::ScopedAStatus StopIo(int32_t id, CommandResult* r) override {
    return Answer("StopIo(" + std::to_string(id) + ")", r);
  }
  ndk::ScopedAStatus Debug(const std::vector<std::string>& args,
                           CommandResult* r) override {
    std::string call = "Debug([";
    for (size_t k = 0; k < args.size(); ++k) call += (k ? "|" : "") + args[k];
    return Answer(call + "])", r);
  }
  ndk::ScopedAStatus EnableUseCase(ILumx::UseCase u, bool enable,
                                   CommandResult* r) override {
    return Answer("EnableUseCase(" + std::to_string(static_cast<int>(u)) + ", " +
                      std::to_string(enable) + ")",
                  r);
  }
  ndk::ScopedAStatus IsUseCaseEnabled(ILumx::UseCase u, CommandResult* r) override {
    return Answer("IsUseCaseEnabled(" + std::to_string(static_cast<int>(u)) + ")", r);
  }
  ndk::ScopedAStatus SetParameter(int32_t id, ILumx::ParameterId p, int32_t element,
                                  const ParamValue& v, CommandResult* r) override {
    return Answer("SetParameter(" + Hex(id) + ", " +
                      std::to_string(static_cast<int>(p)) + ", " +
                      std::to_string(element) + ", " + ValueText(v) + ")",
                  r);
  }
  ndk::ScopedAStatus GetParameter(int32_t id, ILumx::ParameterId p, int32_t element,
                                  ParamValue* out, CommandResult* r) override {
    {
      lumx::MutexLock lock(&mu_);
      *out = canned_.param;
    }
    return Answer("GetParameter(" + Hex(id) + ", " +
                      std::to_string(static_cast<int>(p)) + ", " +
                      std::to_string(element) + ")",
                  r);
  }
  ndk::ScopedAStatus SetParameterBulk(int32_t id,
                                      const std::vector<ILumx::ParamIdElementPair>& ps,
                                      const std::vector<ParamValue>& vs,
                                      CommandResult* r) override {
    return Answer("SetParameterBulk(" + Hex(id) + ", " + Pairs(ps) + ", " + Values(vs) + ")",
                  r);
  }
  ndk::ScopedAStatus GetParameterBulk(int32_t id,
                                      const std::vector<ILumx::ParamIdElementPair>& ps,
                                      CommandResult* r,
                                      std::vector<ParamValue>* values) override {
    {
      lumx::MutexLock lock(&mu_);
      *values = canned_.values;
    }
    return Answer("GetParameterBulk(" + Hex(id) + ", " + Pairs(ps) + ")", r);
  }
  ndk::ScopedAStatus ListParameters(CommandResult* r) override {
    return Answer("ListParameters()", r);
  }
  ndk::ScopedAStatus SendAudio(int32_t id, const ILumx::AudioPacket& packet,
                               CommandResult* r) override {
    {
      lumx::MutexLock lock(&mu_);
      sent_.push_back(packet);
    }
    return Answer("SendAudio(" + Hex(id) + ")", r);
  }
  ndk::ScopedAStatus RegisterReceiveAudioCallback(
      int32_t id, const std::shared_ptr<IReceiveAudioCallback>& cb,
      CommandResult* r) override {
    {
      lumx::MutexLock lock(&mu_);
      callback_ = cb;
    }
    return Answer("RegisterReceiveAudioCallback(" + Hex(id) + ", " +
                      (cb ? "callback" : "null") + ")",
                  r);
  }

 private:
  static std::string Pairs(const std::vector<ILumx::ParamIdElementPair>& ps) {
    std::string s = "[";
    for (size_t k = 0; k < ps.size(); ++k) {
      s += (k ? " " : "") + std::to_string(static_cast<int>(ps[k].paramId)) + ":" +
           std::to_string(ps[k].element);
    }
    return s + "]";
  }
  static std::string Values(const std::vector<ParamValue>& vs) {
    std::string s = "[";
    for (size_t k = 0; k < vs.size(); ++k) s += (k ? " " : "") + ValueText(vs[k]);
    return s + "]";
  }

  ndk::ScopedAStatus Answer(std::string call, CommandResult* r) {
    binder_status_t transportError;
    {
      lumx::MutexLock lock(&mu_);
      calls_.push_back(std::move(call));
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
  std::vector<std::string> calls_ GUARDED_BY(mu_);
  std::vector<ILumx::AudioPacket> sent_ GUARDED_BY(mu_);
  std::shared_ptr<IReceiveAudioCallback> callback_ GUARDED_BY(mu_);
};

struct RunResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

std::string LumxBinary() {
  const char* dir = getenv("LUMX_BUILD_DIR");
  std::string base = dir && *dir ? dir : LUMX_BINARY_DIR;
  return base + "/tools/lumx/lumx";
}

// One run of the lumx binary with its output captured.
class LumxProcess {
 public:
  // `binderDir` replaces LUMX_BINDER_DIR in the child's environment.
  bool Start(const std::vector<std::string>& args, const std::string& binderDir) {
    std::vector<std::string> argStore{LumxBinary()};
    argStore.insert(argStore.end(), args.begin(), args.end());
    std::vector<std::string> envStore;
    for (char** e = environ; *e; ++e) {
      if (strncmp(*e, "LUMX_BINDER_DIR=", 16) != 0) envStore.emplace_back(*e);
    }
    envStore.push_back("LUMX_BINDER_DIR=" + binderDir);
    std::vector<char*> argv, envp;
    for (auto& s : argStore) argv.push_back(s.data());
    argv.push_back(nullptr);
    for (auto& s : envStore) envp.push_back(s.data());
    envp.push_back(nullptr);

    int outPipe[2], errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0) return false;
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
      close(outPipe[0]);
      close(outPipe[1]);
      return false;
    }
    lumx::unique_fd outWrite(outPipe[1]), errWrite(errPipe[1]);
    out_.reset(outPipe[0]);
    err_.reset(errPipe[0]);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(outWrite.get(), 1);
      dup2(errWrite.get(), 2);
      execve(argv[0], argv.data(), envp.data());
      _exit(127);
    }
    return pid_ > 0;
  }

  void Signal(int sig) {
    if (pid_ > 0) kill(pid_, sig);
  }

  // Collects the output until the child exits; kills it after kChildTimeout.
  RunResult Wait() {
    RunResult r;
    auto deadline = std::chrono::steady_clock::now() + kChildTimeout;
    while (out_.ok() || err_.ok()) {
      pollfd fds[2] = {{out_.get(), POLLIN, 0}, {err_.get(), POLLIN, 0}};
      int n = poll(fds, 2, 200);
      if (std::chrono::steady_clock::now() > deadline) {
        ADD_FAILURE() << "lumx did not finish; killing it";
        kill(pid_, SIGKILL);
        break;
      }
      if (n <= 0) continue;
      Drain(fds[0], &out_, &r.out);
      Drain(fds[1], &err_, &r.err);
    }
    int status = 0;
    if (pid_ > 0 && waitpid(pid_, &status, 0) == pid_) {
      r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    pid_ = -1;
    return r;
  }

  ~LumxProcess() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }

 private:
  static void Drain(const pollfd& p, lumx::unique_fd* fd, std::string* to) {
    if (!fd->ok() || !(p.revents & (POLLIN | POLLHUP | POLLERR))) return;
    char buf[4096];
    ssize_t got = read(fd->get(), buf, sizeof(buf));
    if (got > 0) {
      to->append(buf, static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      fd->reset();
    }
  }

  pid_t pid_ = -1;
  lumx::unique_fd out_, err_;
};

// The fake service, registered once per process: the runtime keeps the
// first registration's socket for a name, so the directory stays fixed.
class ServiceHarness {
 public:
  static ServiceHarness& Get() {
    static ServiceHarness harness;
    return harness;
  }
  bool ok() const { return ok_; }
  const std::string& dir() const { return dir_; }
  FakeLumx& fake() { return **fake_; }

  ~ServiceHarness() {
    if (!dir_.empty()) {
      std::error_code ec;
      std::filesystem::remove_all(dir_, ec);
    }
  }

 private:
  ServiceHarness() {
    char tmpl[] = "/tmp/lumx-tool-test-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return;
    dir_ = tmpl;
    setenv("LUMX_BINDER_DIR", (dir_ + "/binder").c_str(), 1);
    // Kept for the life of the process, like the registry's own reference.
    fake_ = new std::shared_ptr<FakeLumx>(ndk::SharedRefBase::make<FakeLumx>());
    if (AServiceManager_addService((*fake_)->asBinder().get(), "lumx.ILumx/default") !=
        EX_NONE) {
      return;
    }
    ABinderProcess_startThreadPool();
    ok_ = true;
  }

  bool ok_ = false;
  std::string dir_;
  std::shared_ptr<FakeLumx>* fake_ = nullptr;
};

class LumxToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(ServiceHarness::Get().ok()) << "cannot register the fake service";
    fake().Reset();
    char tmpl[] = "/tmp/lumx-tool-files-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    files_ = tmpl;
  }
  void TearDown() override {
    std::error_code ec;
    if (!files_.empty()) std::filesystem::remove_all(files_, ec);
  }

  static FakeLumx& fake() { return ServiceHarness::Get().fake(); }
  static std::string BinderDir() { return ServiceHarness::Get().dir() + "/binder"; }
  // A file in this test's own scratch directory.
  std::string Path(const std::string& name) const { return files_ + "/" + name; }

  static RunResult Run(const std::vector<std::string>& args) {
    LumxProcess p;
    EXPECT_TRUE(p.Start(args, BinderDir()));
    return p.Wait();
  }

  std::string files_;
};

void WriteWav(const std::string& path, const std::vector<int16_t>& samples, int channels,
              int rate = 48000) {
  SF_INFO info{};
  info.samplerate = rate;
  info.channels = channels;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(f, nullptr) << sf_strerror(nullptr);
  sf_write_short(f, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(f);
}

std::vector<int16_t> ReadWav(const std::string& path, SF_INFO* info) {
  *info = SF_INFO{};
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, info);
  if (!f) return {};
  std::vector<int16_t> s(static_cast<size_t>(info->frames * info->channels));
  sf_readf_short(f, s.data(), info->frames);
  sf_close(f);
  return s;
}

std::vector<uint8_t> LittleEndian(const std::vector<int16_t>& samples) {
  std::vector<uint8_t> bytes;
  for (int16_t s : samples) {
    bytes.push_back(static_cast<uint8_t>(static_cast<uint16_t>(s) & 0xff));
    bytes.push_back(static_cast<uint8_t>(static_cast<uint16_t>(s) >> 8));
  }
  return bytes;
}

TEST_F(LumxToolTest, EveryOperationReceivesItsArgumentsInOrder) {
  struct Case {
    std::vector<std::string> args;
    std::string call;
  };
  const Case cases[] = {
      {{"Ping"}, "Ping()"},
      {{"showgraph"}, "ShowGraph()"},
      {{"ListProcessors"}, "ListProcessors()"},
      {{"LISTSUPPORTEDPROCESSORS"}, "ListSupportedProcessors()"},
      {{"NewProcessor", "pass"}, "NewProcessor(0x70617373)"},
      {{"newprocessorwithtype", "pas1", "pass"},
       "NewProcessorWithType(0x70617331, 0x70617373)"},
      {{"DeleteProcessor", "0x61727430"}, "DeleteProcessor(0x61727430)"},
      {{"ListSupportedUseCases"}, "ListSupportedUseCases()"},
      {{"Enable", "Mic_In", "on"}, "Enable(Mic_In, 1)"},
      {{"IsEnabled", "arel_tele"}, "IsEnabled(arel_tele)"},
      {{"ProcessorInfo", "pas1"}, "ProcessorInfo(0x70617331)"},
      {{"ProcessorEnable", "pas1", "false"}, "ProcessorEnable(0x70617331, 0)"},
      {{"ProcessorIsEnabled", "1885434673"}, "ProcessorIsEnabled(0x70617331)"},
      {{"TapList", "2"}, "TapList(2)"},
      {{"TapInfo", "2", "imic", "0"}, "TapInfo(2, 0x696d6963, 0)"},
      {{"TapEnable", "4", "vpul", "1", "true"}, "TapEnable(4, 0x7670756c, 1, 1)"},
      {{"TapSetBlockLength", "4", "vpdl", "0", "960"},
       "TapSetBlockLength(4, 0x7670646c, 0, 960)"},
      {{"ListTapOutBuffers"}, "ListTapOutBuffers()"},
      {{"ListInjectBuffers"}, "ListInjectBuffers()"},
      {{"Connect", "pas1", "20", "-1"}, "Connect(0x70617331, 20, -1)"},
      {{"ConnectTap", "2", "imic", "0", "20", "21"},
       "ConnectTap(2, 0x696d6963, 0, 20, 21)"},
      {{"StartIo", "20"}, "StartIo(20)"},
      {{"StopIo", "0x15"}, "StopIo(21)"},
      {{"Debug"}, "Debug([])"},
      {{"Debug", "buffer_dump", "tapout", "-1", "HELP"},
       "Debug([buffer_dump|tapout|-1|HELP])"},
      {{"EnableUseCase", "mic_in", "1"}, "EnableUseCase(1, 1)"},
      {{"EnableUseCase", "unspecified", "0"}, "EnableUseCase(-1, 0)"},
      {{"IsUseCaseEnabled", "AREL_TELE"}, "IsUseCaseEnabled(3)"},
      {{"SetParameter", "arel", "block_length", "0", "i:960"},
       "SetParameter(0x6172656c, 3, 0, i:960)"},
      {{"SetParameter", "arel", "7", "-2", "f:0.5"},
       "SetParameter(0x6172656c, 7, -2, f:0.5)"},
      {{"GetParameter", "pas1", "AUDIO_FORMAT", "1"},
       "GetParameter(0x70617331, 4, 1)"},
      {{"SetParameterBulk", "pas1", "BLOCK_LENGTH:0=i:960", "TEST_MODE:0=f:1"},
       "SetParameterBulk(0x70617331, [3:0 2:0], [i:960 f:1])"},
      {{"SetParameterBulk", "pas1"}, "SetParameterBulk(0x70617331, [], [])"},
      {{"GetParameterBulk", "pas1", "VERSION:1", "UNSPECIFIED:-1"},
       "GetParameterBulk(0x70617331, [0:1 -1:-1])"},
      {{"ListParameters"}, "ListParameters()"},
      {{"RegisterReceiveAudioCallback", "art0"},
       "RegisterReceiveAudioCallback(0x61727430, null)"},
  };
  for (const Case& c : cases) {
    fake().Reset();
    RunResult r = Run(c.args);
    EXPECT_EQ(r.exitCode, 0) << c.args[0] << ": " << r.err;
    EXPECT_EQ(fake().Calls(), std::vector<std::string>{c.call}) << c.args[0];
    EXPECT_EQ(r.err, "") << c.args[0];
  }
}

TEST_F(LumxToolTest, LinesArePrintedAsReceivedAndStatusIsTheExitCode) {
  Canned c;
  c.status = 2;
  c.lines = {"Enable processor pas1", "  two  blanks ", "", "tab\there"};
  fake().SetCanned(c);
  RunResult r = Run({"ProcessorEnable", "pas1", "1"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.out, "Enable processor pas1\n  two  blanks \n\ntab\there\n");
  EXPECT_EQ(r.err, "");

  for (int8_t status : {0, 1, 3, 4, 5, 6}) {
    c.status = status;
    c.lines = {};
    fake().SetCanned(c);
    r = Run({"ListProcessors"});
    EXPECT_EQ(r.exitCode, status);
    EXPECT_EQ(r.out, "");
  }
  // A status the tool does not know still fails, with exit code 1.
  c.status = 7;
  fake().SetCanned(c);
  r = Run({"--json", "ListProcessors"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.out,
            "{\"op\":\"ListProcessors\",\"status\":7,\"statusName\":\"7\","
            "\"value\":0,\"lines\":[]}\n");
}

TEST_F(LumxToolTest, ValuesAndOutArguments) {
  Canned c;
  c.value = 1.0f;
  c.lines = {"ProcessorIsEnabled id:pas1"};
  fake().SetCanned(c);
  RunResult r = Run({"ProcessorIsEnabled", "pas1"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out, "ProcessorIsEnabled id:pas1\nvalue: 1.000000\n");

  c.value = 0.0f;
  c.lines = {"IsUseCaseEnabled AREL_TELE"};
  fake().SetCanned(c);
  r = Run({"IsUseCaseEnabled", "arel_tele"});
  EXPECT_EQ(r.out, "IsUseCaseEnabled AREL_TELE\nvalue: 0.000000\n");

  c.lines = {"GetParameter processor:pas1 param:BLOCK_LENGTH element:0", "--> 4800"};
  c.param = ParamValue::make<ParamValue::i>(4800);
  fake().SetCanned(c);
  r = Run({"GetParameter", "pas1", "BLOCK_LENGTH", "0"});
  EXPECT_EQ(r.out,
            "GetParameter processor:pas1 param:BLOCK_LENGTH element:0\n--> 4800\n"
            "param: i:4800\n");
  c.param = ParamValue::make<ParamValue::f>(0.25f);
  c.lines = {};
  fake().SetCanned(c);
  r = Run({"--json", "GetParameter", "pas1", "7", "0"});
  EXPECT_EQ(r.out,
            "{\"op\":\"GetParameter\",\"status\":0,\"statusName\":\"OK\",\"value\":0,"
            "\"lines\":[],\"param\":{\"f\":0.25}}\n");
  // A refused read shows no value.
  c.status = 3;
  fake().SetCanned(c);
  r = Run({"GetParameter", "pas1", "7", "0"});
  EXPECT_EQ(r.exitCode, 3);
  EXPECT_EQ(r.out, "");

  c.status = 5;
  c.lines = {"GetParameterBulk processor:pas1 [3 parameters]",
             "Error getParameter processor:pas1 param:AUDIO_FORMAT element:9"};
  c.values = {ParamValue::make<ParamValue::i>(4800), ParamValue::make<ParamValue::f>(-1.5f)};
  fake().SetCanned(c);
  r = Run({"GetParameterBulk", "pas1", "BLOCK_LENGTH:0", "TEST_MODE:0", "AUDIO_FORMAT:9"});
  EXPECT_EQ(r.exitCode, 5);
  EXPECT_EQ(r.out,
            "GetParameterBulk processor:pas1 [3 parameters]\n"
            "Error getParameter processor:pas1 param:AUDIO_FORMAT element:9\n"
            "param: i:4800\nparam: f:-1.5\n");
}

TEST_F(LumxToolTest, JsonEscapesLines) {
  Canned c;
  c.status = 6;
  c.value = 0.5f;
  c.lines = {"quote \" backslash \\ tab \t", std::string("nul\0byte", 8), "bad \xff utf8"};
  fake().SetCanned(c);
  RunResult r = Run({"--json", "Debug", "x"});
  EXPECT_EQ(r.exitCode, 6);
  EXPECT_EQ(r.out,
            "{\"op\":\"Debug\",\"status\":6,\"statusName\":\"READ_ONLY\",\"value\":0.5,"
            "\"lines\":[\"quote \\\" backslash \\\\ tab \\t\",\"nul\\u0000byte\","
            "\"bad \\u00ff utf8\"]}\n");
}

TEST_F(LumxToolTest, SendAudioCarriesTheFileAndCodes) {
  const std::vector<int16_t> mono{0, 1, -1, 32767, -32768, 256, -256, 1000};
  WriteWav(Path("mono.wav"), mono, 1);
  RunResult r = Run({"SendAudio", "art0", Path("mono.wav")});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  std::vector<ILumx::AudioPacket> sent = fake().Sent();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].processor_id, 0x61727430);
  EXPECT_EQ(sent[0].data, LittleEndian(mono));
  EXPECT_EQ(sent[0].sampleRate, 5);
  EXPECT_EQ(sent[0].format, 0);
  EXPECT_EQ(sent[0].bitsPerSample, 1);
  EXPECT_EQ(sent[0].numChannels, 1);
  EXPECT_EQ(sent[0].reserved, 1);

  fake().Reset();
  const std::vector<int16_t> stereo{1, 2, 3, 4};
  WriteWav(Path("stereo.wav"), stereo, 2);
  r = Run({"SendAudio", "art1", Path("stereo.wav"), "4", "1", "0xff", "2"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  sent = fake().Sent();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].data, LittleEndian(stereo));
  EXPECT_EQ(sent[0].sampleRate, 4);
  EXPECT_EQ(sent[0].format, 1);
  EXPECT_EQ(sent[0].bitsPerSample, -1);
  EXPECT_EQ(sent[0].numChannels, 2);

  // A missing file is refused before the daemon is called.
  fake().Reset();
  r = Run({"SendAudio", "art0", Path("absent.wav")});
  EXPECT_EQ(r.exitCode, 66);
  EXPECT_TRUE(fake().Calls().empty());
  EXPECT_NE(r.err.find("absent.wav"), std::string::npos);
}

TEST_F(LumxToolTest, UsageErrorsExit64WithoutCallingTheDaemon) {
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{},
                                             {"NoSuchOperation"},
                                             {"TapInfo", "2", "abc", "0"},
                                             {"NewProcessor", "abcde"},
                                             {"ProcessorEnable", "pas1", "maybe"},
                                             {"Ping", "extra"},
                                             {"SetParameter", "pas1", "VERSION", "0", "1"},
                                             {"relay"}}) {
    RunResult r = Run(args);
    EXPECT_EQ(r.exitCode, 64) << (args.empty() ? "" : args[0]);
    EXPECT_EQ(r.out, "");
    ASSERT_FALSE(r.err.empty());
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << "one line: " << r.err;
    EXPECT_EQ(r.err.rfind("lumx: ", 0), 0u) << r.err;
  }
  EXPECT_TRUE(fake().Calls().empty());

  RunResult help = Run({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("RegisterReceiveAudioCallback <processor>"), std::string::npos);
  EXPECT_NE(help.out.find("relay <processor>"), std::string::npos);
}

TEST_F(LumxToolTest, FailedBinderCallExits69) {
  Canned c;
  c.transportError = STATUS_DEAD_OBJECT;
  fake().SetCanned(c);
  RunResult r = Run({"ListProcessors"});
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("lumx.ILumx/default"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
}

TEST_F(LumxToolTest, UnreachableDaemonExits69) {
  std::string empty = Path("no-daemon");
  ASSERT_EQ(mkdir(empty.c_str(), 0700), 0);
  LumxProcess p;
  ASSERT_TRUE(p.Start({"ListProcessors"}, empty));
  RunResult r = p.Wait();
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("lumx.ILumx/default"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
  EXPECT_TRUE(fake().Calls().empty());
}

ILumx::AudioPacket Block(const std::vector<int16_t>& samples, int8_t channels = 1) {
  ILumx::AudioPacket p;
  p.processor_id = 0x61727430;
  p.data = LittleEndian(samples);
  p.sampleRate = 5;
  p.format = 0;
  p.bitsPerSample = 1;
  p.numChannels = channels;
  p.reserved = 1;
  return p;
}

std::vector<int16_t> Ramp(int16_t start, size_t n) {
  std::vector<int16_t> v(n);
  for (size_t k = 0; k < n; ++k) v[k] = static_cast<int16_t>(start + static_cast<int>(k));
  return v;
}

TEST_F(LumxToolTest, RelayRecordsPlaysAndDetaches) {
  // Play file: three blocks and a half of 480 samples.
  const std::vector<int16_t> play = Ramp(-1000, 480 * 3 + 240);
  WriteWav(Path("play.wav"), play, 1);

  LumxProcess p;
  ASSERT_TRUE(p.Start({"relay", "art0", "--record", Path("rec.wav"), "--play",
                       Path("play.wav")},
                      BinderDir()));
  ASSERT_TRUE(fake().WaitFor([](const auto& calls, const auto&) { return !calls.empty(); }));
  std::shared_ptr<ILumx::IReceiveAudioCallback> cb = fake().Callback();
  ASSERT_NE(cb, nullptr);

  std::vector<int16_t> recorded;
  for (int k = 0; k < 4; ++k) {
    std::vector<int16_t> block = Ramp(static_cast<int16_t>(100 * k), 480);
    recorded.insert(recorded.end(), block.begin(), block.end());
    EXPECT_TRUE(cb->ReceiveAudio(Block(block)).isOk());
    if (k == 0) EXPECT_TRUE(cb->ReceiveAudio(Block(Ramp(0, 960), 2)).isOk());  // stereo: bad
  }
  // One SendAudio per good block while the play file lasts.
  ASSERT_TRUE(fake().WaitFor([](const auto&, const auto& sent) { return sent.size() >= 4; }));
  p.Signal(SIGINT);
  RunResult r = p.Wait();
  EXPECT_EQ(r.exitCode, 0) << r.err;

  std::vector<std::string> calls = fake().Calls();
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls.front(), "RegisterReceiveAudioCallback(0x61727430, callback)");
  EXPECT_EQ(calls.back(), "RegisterReceiveAudioCallback(0x61727430, null)");
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "SendAudio(0x61727430)"), 4);

  std::vector<ILumx::AudioPacket> sent = fake().Sent();
  ASSERT_EQ(sent.size(), 4u);
  for (size_t k = 0; k < sent.size(); ++k) {
    std::vector<int16_t> expect(480, 0);
    size_t n = std::min<size_t>(480, play.size() - 480 * k);
    std::copy(play.begin() + 480 * k, play.begin() + 480 * k + n, expect.begin());
    EXPECT_EQ(sent[k].data, LittleEndian(expect)) << "block " << k;
    EXPECT_EQ(sent[k].processor_id, 0x61727430);
    EXPECT_EQ(sent[k].sampleRate, 5);
    EXPECT_EQ(sent[k].format, 0);
    EXPECT_EQ(sent[k].bitsPerSample, 1);
    EXPECT_EQ(sent[k].numChannels, 1);
    EXPECT_EQ(sent[k].reserved, 1);
  }

  SF_INFO info;
  EXPECT_EQ(ReadWav(Path("rec.wav"), &info), recorded);
  EXPECT_EQ(info.samplerate, 48000);
  EXPECT_EQ(info.channels, 1);
  EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);

  EXPECT_NE(r.out.find("packets received: 4\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("samples received: 1920\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("bad packets: 1\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("packets sent: 4\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("send errors: 0\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("inter-arrival mean ms: "), std::string::npos) << r.out;
}

TEST_F(LumxToolTest, RelayEndsWith69WhenTheDaemonStopsAnswering) {
  WriteWav(Path("play.wav"), Ramp(0, 4800), 1);
  LumxProcess p;
  ASSERT_TRUE(p.Start({"relay", "art0", "--play", Path("play.wav"), "--json-stats"},
                      BinderDir()));
  ASSERT_TRUE(fake().WaitFor([](const auto& calls, const auto&) { return !calls.empty(); }));
  Canned dead;
  dead.transportError = STATUS_DEAD_OBJECT;
  fake().SetCanned(dead);
  std::shared_ptr<ILumx::IReceiveAudioCallback> cb = fake().Callback();
  ASSERT_NE(cb, nullptr);
  EXPECT_TRUE(cb->ReceiveAudio(Block(Ramp(0, 480))).isOk());
  RunResult r = p.Wait();  // ends by itself: no signal, no time limit
  EXPECT_EQ(r.exitCode, 69);
  EXPECT_NE(r.err.find("lumx.ILumx/default"), std::string::npos) << r.err;
  EXPECT_NE(r.out.find("\"exitCode\":69,\"error\":"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"packets\":1,"), std::string::npos) << r.out;
  // The lost daemon is not asked to detach.
  EXPECT_EQ(fake().Calls(),
            (std::vector<std::string>{"RegisterReceiveAudioCallback(0x61727430, callback)",
                                      "SendAudio(0x61727430)"}));
}

TEST_F(LumxToolTest, RelayStopsAfterItsTimeLimitWithJsonStats) {
  LumxProcess p;
  ASSERT_TRUE(p.Start({"relay", "art1", "--seconds", "0.3", "--json-stats"}, BinderDir()));
  RunResult r = p.Wait();
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(fake().Calls(),
            (std::vector<std::string>{"RegisterReceiveAudioCallback(0x61727431, callback)",
                                      "RegisterReceiveAudioCallback(0x61727431, null)"}));
  EXPECT_EQ(r.out.rfind("{\"op\":\"relay\",\"processor\":\"art1\",\"exitCode\":0,"
                        "\"packets\":0,",
                        0),
            0u)
      << r.out;
  EXPECT_EQ(r.out.find('\n'), r.out.size() - 1);
}

TEST_F(LumxToolTest, RelayRefusedByTheProcessor) {
  Canned c;
  c.status = 2;
  c.lines = {};
  fake().SetCanned(c);
  RunResult r = Run({"relay", "nope", "--seconds", "30"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(fake().Calls(),
            std::vector<std::string>{"RegisterReceiveAudioCallback(0x6e6f7065, callback)"});
  EXPECT_NE(r.err.find("INVALID_PROCESSOR"), std::string::npos) << r.err;
}

TEST_F(LumxToolTest, RelayRefusesBadFilesBeforeCallingTheDaemon) {
  WriteWav(Path("441.wav"), Ramp(0, 100), 1, 44100);
  RunResult r = Run({"relay", "art0", "--play", Path("441.wav")});
  EXPECT_EQ(r.exitCode, 65);
  r = Run({"relay", "art0", "--play", Path("missing.wav")});
  EXPECT_EQ(r.exitCode, 66);
  r = Run({"relay", "art0", "--record", Path("no/such/dir/rec.wav")});
  EXPECT_EQ(r.exitCode, 73);
  EXPECT_TRUE(fake().Calls().empty());
}

}  // namespace
