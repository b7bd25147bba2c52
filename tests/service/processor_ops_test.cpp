// Processor registry, parameter and streaming commands on a real service:
// exact lines and statuses, replacement and deletion rules, the wiring left
// behind by a delete, value rendering, the bulk limits and walk, and a delete
// racing unlocked callers.
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "lumx_host/log_capture.h"
#include "processors/audio_relay_processor.h"
#include "processors/lumx_processor.h"
#include "service/lumx_service.h"
#include "support/processor_test_util.h"
#include "support/system_service_env.h"

namespace {

using ::lumx::test::Code;
using ::lumx::test::ICode;
using ::lumx::test::Lines;
using ::lumx::test::processor::RecordingCallback;
using ::lumx::test::processor::RelayPacket;
using ::lumx_host::LogEntry;
using ::testing::Contains;
using ::testing::ElementsAre;
using Status = CommandResult::Status;

const int32_t kPas1 = ICode("pas1");
const int32_t kArt0 = ICode("art0");
const int32_t kPass = ICode("pass");
const int32_t kArel = ICode("arel");
const int32_t kArl1 = ICode("arl1");
const int32_t kNone = ICode("nope");

ParamValue Int(int32_t v) { return ParamValue::make<ParamValue::Tag::i>(v); }
ParamValue Float(float v) { return ParamValue::make<ParamValue::Tag::f>(v); }

std::vector<ParamIdElementPair> Pairs(size_t n, ParameterId id = ParameterId::BLOCK_LENGTH) {
  std::vector<ParamIdElementPair> pairs(n);
  for (size_t i = 0; i < n; ++i) {
    pairs[i].paramId = id;
    pairs[i].element = static_cast<int32_t>(i);
  }
  return pairs;
}

// One service for the whole suite: building one scans the device directory
// for at least half a second.
class ProcessorOpsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    env_ = new ::lumx::test::ServiceEnv({{20, 21}, {20, 21}});
    service_ = env_->MakeService();
  }
  static void TearDownTestSuite() {
    service_.reset();
    delete env_;
    env_ = nullptr;
  }
  void TearDown() override {
    ::lumx::test::ServiceEnv::DeleteProcessors(service_.get(),
                                               {Code("pas1"), Code("pas2"), Code("art0"), Code("pass"), Code("arel"), Code("arl1")});
    ASSERT_EQ(2u, ListProcessors().strList.size()) << "a test left processors behind";
  }

  static CommandResult NewWithType(int32_t id, int32_t type) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->NewProcessorWithType(id, type, r); });
  }
  static CommandResult Delete(int32_t id) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->DeleteProcessor(id, r); });
  }
  static CommandResult ListProcessors() {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->ListProcessors(r); });
  }
  static CommandResult Enable(int32_t id, bool enable) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->ProcessorEnable(id, enable, r); });
  }
  static CommandResult Connect(int32_t id, int32_t tapOut, int32_t inject) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->Connect(id, tapOut, inject, r); });
  }
  static LumxProcessor* Proc(int32_t id) { return service_->GetLumxProcessor(static_cast<uint32_t>(id)); }

  static ::lumx::test::ServiceEnv* env_;
  static std::shared_ptr<LumxService> service_;
};

::lumx::test::ServiceEnv* ProcessorOpsTest::env_ = nullptr;
std::shared_ptr<LumxService> ProcessorOpsTest::service_;

TEST_F(ProcessorOpsTest, ListingsOfAnEmptyRegistry) {
  EXPECT_THAT(Lines(ListProcessors()), ElementsAre("Lumx processors:", "  none"));
  CommandResult r;
  EXPECT_TRUE(service_->ListSupportedProcessors(&r).isOk());
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Supported Lumx processors: pass arel"));
}

TEST_F(ProcessorOpsTest, ListProcessorsRowsInIdOrder) {
  ASSERT_EQ(Status::OK, NewWithType(kPas1, kPass).status);
  ASSERT_EQ(Status::OK, NewWithType(kArt0, kArel).status);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 21).status);
  ASSERT_EQ(Status::OK, Enable(kPas1, true).status);
  CommandResult r = ListProcessors();
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Lumx processors:", "  Id        Type      InBuffer  OutBuffer Enabled  ",
                                    "  art0      arel      -         -         0        ",
                                    "  pas1      pass      tapout20  inject21  1        "));
}

TEST_F(ProcessorOpsTest, NewProcessorUsesTheIdAsTheType) {
  CommandResult r;
  EXPECT_TRUE(service_->NewProcessor(kArel, &r).isOk());
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Creating new processor 'arel' of type 'arel'"));
  ASSERT_NE(nullptr, Proc(kArel));
  EXPECT_STREQ("arel", Proc(kArel)->idName());
  EXPECT_STREQ("arel", Proc(kArel)->typeName());

  CommandResult bad;
  EXPECT_TRUE(service_->NewProcessor(kArt0, &bad).isOk());
  EXPECT_EQ(Status::INVALID_PROCESSOR, bad.status);
  EXPECT_THAT(Lines(bad), ElementsAre("Creating new processor 'art0' of type 'art0'", "Invalid processor type"));
  EXPECT_EQ(nullptr, Proc(kArt0));
}

TEST_F(ProcessorOpsTest, ReplacingAProcessorDeletesTheOldOneFirst) {
  ASSERT_EQ(Status::OK, NewWithType(kArt0, kPass).status);
  ASSERT_EQ(Status::OK, Enable(kArt0, true).status);
  ASSERT_EQ(Status::OK, Connect(kArt0, 20, 20).status);
  LumxBuffer* tapOut = service_->findTapOutBuffer(20);
  LumxBuffer* inject = service_->findInjectBuffer(20);

  CommandResult r = NewWithType(kArt0, kPass);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Creating new processor 'art0' of type 'pass'", "Deleting existing processor 'art0'"));
  ASSERT_NE(nullptr, Proc(kArt0));
  EXPECT_FALSE(Proc(kArt0)->IsEnabled());
  EXPECT_EQ(nullptr, Proc(kArt0)->input());
  // The old one is gone from both buffers.
  EXPECT_EQ("-", tapOut->GetOutputsAsString());
  EXPECT_EQ("-", inject->GetInputAsString());
  EXPECT_EQ(3u, ListProcessors().strList.size());

  // An unknown type under an existing id leaves no processor at all.
  CommandResult bad = NewWithType(kArt0, ICode("xxxx"));
  EXPECT_EQ(Status::INVALID_PROCESSOR, bad.status);
  EXPECT_THAT(Lines(bad), ElementsAre("Creating new processor 'art0' of type 'xxxx'",
                                      "Deleting existing processor 'art0'", "Invalid processor type"));
  EXPECT_EQ(nullptr, Proc(kArt0));
}

TEST_F(ProcessorOpsTest, DeleteUnwiresEveryBufferAndMayBeRepeated) {
  ASSERT_EQ(Status::OK, NewWithType(kPas1, kPass).status);
  ASSERT_EQ(Status::OK, NewWithType(kArt0, kArel).status);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 20).status);
  ASSERT_EQ(Status::OK, Connect(kArt0, 20, 21).status);
  LumxBuffer* tap20 = service_->findTapOutBuffer(20);
  ASSERT_EQ(2u, [&] { std::vector<LumxProcessor*> v; return static_cast<size_t>(tap20->GetOutputs(v)); }());

  ::lumx_host::LogCapture capture;
  CommandResult first = Delete(kPas1);
  EXPECT_EQ(Status::OK, first.status);
  EXPECT_THAT(Lines(first), ElementsAre("DeleteProcessor id:pas1"));
  EXPECT_EQ("art0", tap20->GetOutputsAsString());
  EXPECT_EQ("-", service_->findInjectBuffer(20)->GetInputAsString());
  EXPECT_EQ("art0", service_->findInjectBuffer(21)->GetInputAsString());
  EXPECT_TRUE(capture.contains("tapout20 UnregisterOutput: "));
  EXPECT_TRUE(capture.contains("inject20 UnregisterInput"));
  EXPECT_FALSE(capture.contains("could not find processor"));
  // A second delete is not an error.
  CommandResult second = Delete(kPas1);
  EXPECT_EQ(Status::OK, second.status);
  EXPECT_THAT(Lines(second), ElementsAre("DeleteProcessor id:pas1", "Lumx processor 'pas1' already deleted"));
}

TEST_F(ProcessorOpsTest, DeleteAlsoDropsRegistrationsThatConnectLeftBehind) {
  // Connect with -1 clears the processor's own side but leaves the buffers'
  // registrations; a delete must still leave no buffer pointing at it.
  ASSERT_EQ(Status::OK, NewWithType(kPas1, kPass).status);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, 21).status);
  ASSERT_EQ(Status::OK, Connect(kPas1, -1, -1).status);
  EXPECT_EQ("pas1", service_->findTapOutBuffer(20)->GetOutputsAsString());
  EXPECT_EQ("pas1", service_->findInjectBuffer(21)->GetInputAsString());
  Delete(kPas1);
  EXPECT_EQ("-", service_->findTapOutBuffer(20)->GetOutputsAsString());
  EXPECT_EQ("-", service_->findInjectBuffer(21)->GetInputAsString());

  // Moved to another tap-out buffer: the first one still lists it.
  ASSERT_EQ(Status::OK, NewWithType(kPas1, kPass).status);
  ASSERT_EQ(Status::OK, Connect(kPas1, 20, -1).status);
  ASSERT_EQ(Status::OK, Connect(kPas1, 21, -1).status);
  Delete(kPas1);
  EXPECT_EQ("-", service_->findTapOutBuffer(20)->GetOutputsAsString());
  EXPECT_EQ("-", service_->findTapOutBuffer(21)->GetOutputsAsString());
}

TEST_F(ProcessorOpsTest, InfoEnableAndIsEnabled) {
  CommandResult info;
  service_->ProcessorInfo(kPas1, &info);
  EXPECT_EQ(Status::INVALID_PROCESSOR, info.status);
  EXPECT_THAT(Lines(info), ElementsAre("ProcessorInfo id:pas1"));

  CommandResult missing = Enable(kPas1, true);
  EXPECT_EQ(Status::INVALID_PROCESSOR, missing.status);
  EXPECT_THAT(Lines(missing), ElementsAre("Enable processor pas1", "Lumx processor not found"));
  CommandResult isMissing;
  isMissing.value = 5.0f;
  service_->ProcessorIsEnabled(kPas1, &isMissing);
  EXPECT_EQ(Status::INVALID_PROCESSOR, isMissing.status);
  EXPECT_EQ(0.0f, isMissing.value);
  EXPECT_THAT(Lines(isMissing), ElementsAre("ProcessorIsEnabled id:pas1", "Lumx processor not found"));

  ASSERT_EQ(Status::OK, NewWithType(kPas1, kPass).status);
  CommandResult on = Enable(kPas1, true);
  EXPECT_EQ(Status::OK, on.status);
  // The request line, then the wake-lock report.
  ASSERT_EQ(2u, on.strList.size());
  EXPECT_EQ("Enable processor pas1", on.strList[0]);
  EXPECT_EQ("0 buffers enabled, 0 processors active, wakelock needed: 0", on.strList[1]);

  CommandResult is;
  service_->ProcessorIsEnabled(kPas1, &is);
  EXPECT_EQ(Status::OK, is.status);
  EXPECT_EQ(1.0f, is.value);
  EXPECT_THAT(Lines(is), ElementsAre("ProcessorIsEnabled id:pas1"));

  CommandResult full;
  service_->ProcessorInfo(kPas1, &full);
  EXPECT_EQ(Status::OK, full.status);
  EXPECT_THAT(Lines(full), ElementsAre("ProcessorInfo id:pas1", "  Id:      pas1", "  Type:    pass", "  Enabled: 1",
                                       "  Input:   none", "  Output:  none"));

  CommandResult off = Enable(kPas1, false);
  EXPECT_EQ("Disable processor pas1", off.strList[0]);
  CommandResult isOff;
  service_->ProcessorIsEnabled(kPas1, &isOff);
  EXPECT_EQ(0.0f, isOff.value);
}

TEST_F(ProcessorOpsTest, StreamingCallsAreSilent) {
  ::lumx_host::LogCapture capture;
  CommandResult r;
  EXPECT_TRUE(service_->SendAudio(kArt0, RelayPacket(Code("art0"), {1, 2}), &r).isOk());
  EXPECT_EQ(Status::INVALID_PROCESSOR, r.status);
  EXPECT_TRUE(r.strList.empty());
  CommandResult cbMissing;
  EXPECT_TRUE(service_->RegisterReceiveAudioCallback(kArt0, nullptr, &cbMissing).isOk());
  EXPECT_EQ(Status::INVALID_PROCESSOR, cbMissing.status);
  EXPECT_TRUE(cbMissing.strList.empty());
  EXPECT_TRUE(capture.entries().empty());

  ASSERT_EQ(Status::OK, NewWithType(kPas1, kPass).status);
  ASSERT_EQ(Status::OK, NewWithType(kArt0, kArel).status);
  ASSERT_EQ(Status::OK, Enable(kArt0, true).status);
  capture.clear();

  // A passthrough processor accepts and ignores client audio.
  CommandResult pass;
  service_->SendAudio(kPas1, AudioPacket(), &pass);
  EXPECT_EQ(Status::OK, pass.status);
  CommandResult good;
  service_->SendAudio(kArt0, RelayPacket(Code("art0"), std::vector<int16_t>(4800, 9)), &good);
  EXPECT_EQ(Status::OK, good.status);
  CommandResult cb;
  service_->RegisterReceiveAudioCallback(kArt0, ::ndk::SharedRefBase::make<RecordingCallback>(), &cb);
  EXPECT_EQ(Status::OK, cb.status);
  EXPECT_TRUE(cb.strList.empty());
  EXPECT_TRUE(capture.entries().empty());

  AudioPacket stereo = RelayPacket(Code("art0"), std::vector<int16_t>(9600, 9));
  stereo.numChannels = 2;
  CommandResult bad;
  service_->SendAudio(kArt0, stereo, &bad);
  EXPECT_EQ(Status::ERROR, bad.status);
  EXPECT_TRUE(bad.strList.empty());
  EXPECT_THAT(capture.messages(), ElementsAre("SendAudio art0: numChannels mismatch"));
}

TEST_F(ProcessorOpsTest, ProcessorHeldByAnUnlockedCallerOutlivesItsDelete) {
  ASSERT_EQ(Status::OK, NewWithType(kArt0, kArel).status);
  ASSERT_EQ(Status::OK, Connect(kArt0, 20, 20).status);
  auto client = ::ndk::SharedRefBase::make<RecordingCallback>();
  std::weak_ptr<RecordingCallback> weak = client;
  CommandResult reg;
  service_->RegisterReceiveAudioCallback(kArt0, client, &reg);
  client.reset();
  ASSERT_FALSE(weak.expired());
  {
    LumxService::ProcessorRef ref(service_.get(), Code("art0"));
    ASSERT_TRUE(ref);
    EXPECT_EQ(Status::OK, Delete(kArt0).status);
    // Gone from the registry and from the buffers at once...
    EXPECT_EQ(nullptr, Proc(kArt0));
    EXPECT_EQ("-", service_->findTapOutBuffer(20)->GetOutputsAsString());
    EXPECT_EQ("-", service_->findInjectBuffer(20)->GetInputAsString());
    // ...but still usable by the holder, which is what the unlocked
    // parameter and streaming calls rely on.
    EXPECT_FALSE(weak.expired());
    EXPECT_EQ(0, ref->Enable(true));
    EXPECT_EQ(4800u, ref->blockLength());
  }
  // The last holder deleted it (and with it the client's callback).
  EXPECT_TRUE(weak.expired());
}

// Streaming and parameter calls (no service lock) race deletes and
// replacements of the same id. Under the sanitizers this fails on any use of
// a freed processor.
TEST_F(ProcessorOpsTest, UnlockedCallsRaceDeleteAndReplace) {
  std::atomic<bool> stop{false};
  std::thread caller([&] {
    const AudioPacket packet = RelayPacket(Code("art0"), std::vector<int16_t>(480, 1));
    while (!stop.load()) {
      CommandResult a, b, c;
      service_->SendAudio(kArt0, packet, &a);
      ParamValue v;
      service_->GetParameter(kArt0, ParameterId::BLOCK_LENGTH, 0, &v, &b);
      service_->SetParameter(kArt0, ParameterId::TEST_MODE, 0, ParamValue::make<ParamValue::Tag::i>(1), &c);
      CommandResult d;
      service_->RegisterReceiveAudioCallback(kArt0, nullptr, &d);
    }
  });
  ::lumx_host::LogCapture quiet;
  quiet.setEcho(false);
  for (int i = 0; i < 200; ++i) {
    NewWithType(kArt0, i % 2 == 0 ? kArel : kPass);
    Enable(kArt0, true);
    if (i % 3 == 0) Delete(kArt0);
  }
  stop.store(true);
  caller.join();
}

// Parameter commands on a passthrough "pas1" and a relay "arl1".
class ParamOpsTest : public ProcessorOpsTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(Status::OK, NewWithType(kPas1, kPass).status);
    ASSERT_EQ(Status::OK, NewWithType(kArl1, kArel).status);
  }
  static CommandResult Set(int32_t proc, ParameterId id, int32_t element, const ParamValue& v) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->SetParameter(proc, id, element, v, r); });
  }
  static CommandResult Get(int32_t proc, ParameterId id, int32_t element, ParamValue* v) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->GetParameter(proc, id, element, v, r); });
  }
};

TEST_F(ParamOpsTest, SetParameterDescribesTheRequestAndForwardsIt) {
  ::lumx_host::LogCapture capture;
  CommandResult r = Set(kPas1, ParameterId::BLOCK_LENGTH, 0, Int(960));
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("SetParameter processor:pas1 param:BLOCK_LENGTH element:0 value.i:960"));
  EXPECT_THAT(capture.entries(),
              Contains(LogEntry{ANDROID_LOG_INFO, "lumx",
                                "SetParameter processor:pas1 param:BLOCK_LENGTH element:0 value.i:960"}));
  EXPECT_EQ(960u, service_->GetLumxProcessor(Code("pas1"))->blockLength());

  CommandResult f = Set(kPas1, ParameterId::BLOCK_LENGTH, 2, Float(960.0f));
  EXPECT_EQ(Status::INVALID_VALUE, f.status);
  EXPECT_THAT(Lines(f), ElementsAre("SetParameter processor:pas1 param:BLOCK_LENGTH element:2 value.f:960.000000"));

  CommandResult ro = Set(kPas1, ParameterId::AUDIO_FORMAT, -1, Float(-0.5f));
  EXPECT_EQ(Status::READ_ONLY, ro.status);
  EXPECT_THAT(Lines(ro), ElementsAre("SetParameter processor:pas1 param:AUDIO_FORMAT element:-1 value.f:-0.500000"));

  CommandResult seven = Set(kPas1, static_cast<ParameterId>(7), 0, Int(1));
  EXPECT_EQ(Status::READ_ONLY, seven.status);
  EXPECT_THAT(Lines(seven), ElementsAre("SetParameter processor:pas1 param:7 element:0 value.i:1"));

  CommandResult missing = Set(kNone, ParameterId::TEST_MODE, 0, Int(1));
  EXPECT_EQ(Status::INVALID_PROCESSOR, missing.status);
  EXPECT_THAT(Lines(missing), ElementsAre("SetParameter processor:nope param:TEST_MODE element:0 value.i:1"));
}

TEST_F(ParamOpsTest, GetParameterAddsTheValueOnlyOnSuccess) {
  ParamValue v;
  CommandResult r = Get(kArl1, ParameterId::VERSION, 1, &v);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("GetParameter processor:arl1 param:VERSION element:1", "--> 1"));
  EXPECT_EQ(1, v.get<ParamValue::Tag::i>());

  CommandResult fmt = Get(kPas1, ParameterId::AUDIO_FORMAT, 0, &v);
  EXPECT_THAT(Lines(fmt), ElementsAre("GetParameter processor:pas1 param:AUDIO_FORMAT element:0", "--> 48000"));

  CommandResult bad = Get(kPas1, ParameterId::UNSPECIFIED, 0, &v);
  EXPECT_EQ(Status::INVALID_PARAMETER, bad.status);
  EXPECT_THAT(Lines(bad), ElementsAre("GetParameter processor:pas1 param:UNSPECIFIED element:0"));

  CommandResult missing = Get(kNone, ParameterId::BLOCK_LENGTH, 3, &v);
  EXPECT_EQ(Status::INVALID_PROCESSOR, missing.status);
  EXPECT_THAT(Lines(missing), ElementsAre("GetParameter processor:nope param:BLOCK_LENGTH element:3"));
}

TEST_F(ParamOpsTest, SetParameterBulkIsAnAcceptedNoOpUpTo64Pairs) {
  std::vector<ParamIdElementPair> pairs = Pairs(64);
  std::vector<ParamValue> values(64, Int(480));
  CommandResult r;
  service_->SetParameterBulk(kPas1, pairs, values, &r);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("SetParameterBulk processor:pas1 [64 parameters]"));
  EXPECT_EQ(4800u, service_->GetLumxProcessor(Code("pas1"))->blockLength());

  // The processor is not even looked up.
  CommandResult none;
  service_->SetParameterBulk(kNone, Pairs(1), {}, &none);
  EXPECT_EQ(Status::OK, none.status);

  ::lumx_host::LogCapture capture;
  CommandResult over;
  service_->SetParameterBulk(kPas1, Pairs(65), std::vector<ParamValue>(65, Int(480)), &over);
  EXPECT_EQ(Status::ERROR, over.status);
  EXPECT_THAT(Lines(over), ElementsAre("SetParameterBulk processor:pas1 [65 parameters]"));
  EXPECT_THAT(capture.entries(), Contains(LogEntry{ANDROID_LOG_ERROR, "lumx", "SetParameterBulk too many parameters"}));
}

TEST_F(ParamOpsTest, GetParameterBulkReadsEveryPairInOrder) {
  std::vector<ParamIdElementPair> pairs = Pairs(64, ParameterId::AUDIO_FORMAT);
  std::vector<ParamValue> values;
  CommandResult r;
  service_->GetParameterBulk(kPas1, pairs, &r, &values);
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("GetParameterBulk processor:pas1 [64 parameters]"));
  ASSERT_EQ(64u, values.size());
  EXPECT_EQ(48000, values[0].get<ParamValue::Tag::i>());
  EXPECT_EQ(3, values[1].get<ParamValue::Tag::i>());
  EXPECT_EQ(1, values[3].get<ParamValue::Tag::i>());
  EXPECT_EQ(0, values[63].get<ParamValue::Tag::i>());

  std::vector<ParamValue> empty;
  CommandResult e;
  service_->GetParameterBulk(kPas1, {}, &e, &empty);
  EXPECT_EQ(Status::OK, e.status);
  EXPECT_TRUE(empty.empty());

  ::lumx_host::LogCapture capture;
  std::vector<ParamValue> none;
  CommandResult over;
  service_->GetParameterBulk(kPas1, Pairs(65), &over, &none);
  EXPECT_EQ(Status::ERROR, over.status);
  EXPECT_TRUE(none.empty());
  EXPECT_THAT(Lines(over), ElementsAre("GetParameterBulk processor:pas1 [65 parameters]"));
  EXPECT_THAT(capture.entries(), Contains(LogEntry{ANDROID_LOG_ERROR, "lumx", "GetParameterBulk too many parameters"}));
}

TEST_F(ParamOpsTest, GetParameterBulkKeepsTheValuesBeforeAFailure) {
  std::vector<ParamIdElementPair> pairs(3);
  pairs[0].paramId = ParameterId::BLOCK_LENGTH;
  pairs[1].paramId = ParameterId::VERSION;
  pairs[1].element = 1;
  pairs[2].paramId = ParameterId::UNSPECIFIED;
  pairs[2].element = 9;
  ::lumx_host::LogCapture capture;
  std::vector<ParamValue> values;
  CommandResult r;
  service_->GetParameterBulk(kArl1, pairs, &r, &values);
  EXPECT_EQ(Status::INVALID_PARAMETER, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("GetParameterBulk processor:arl1 [3 parameters]",
                                    "Error getParameter processor:arl1 param:UNSPECIFIED element:9"));
  ASSERT_EQ(2u, values.size());
  EXPECT_EQ(4800, values[0].get<ParamValue::Tag::i>());
  EXPECT_EQ(1, values[1].get<ParamValue::Tag::i>());
  EXPECT_THAT(capture.entries(), Contains(LogEntry{ANDROID_LOG_ERROR, "lumx",
                                                   "Error getParameter processor:arl1 param:UNSPECIFIED element:9"}));

  std::vector<ParamValue> none;
  CommandResult missing;
  service_->GetParameterBulk(kNone, pairs, &missing, &none);
  EXPECT_EQ(Status::INVALID_PROCESSOR, missing.status);
  EXPECT_THAT(Lines(missing), ElementsAre("GetParameterBulk processor:nope [3 parameters]",
                                          "Error getParameter processor:nope param:BLOCK_LENGTH element:0"));
  EXPECT_TRUE(none.empty());
}

TEST_F(ParamOpsTest, ListParametersEndsInASpace) {
  CommandResult r;
  EXPECT_TRUE(service_->ListParameters(&r).isOk());
  EXPECT_EQ(Status::OK, r.status);
  EXPECT_THAT(Lines(r), ElementsAre("Supported Lumx parameters: UNSPECIFIED VERSION PASSTHROUGH_MODE TEST_MODE "
                                    "BLOCK_LENGTH AUDIO_FORMAT "));
}

}  // namespace
