// Parameter commands on a real service: request texts, value rendering,
// forwarding to the processor, the bulk limits and the bulk-get walk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "lumx_host/log_capture.h"
#include "processors/lumx_processor.h"
#include "service/lumx_service.h"
#include "support/system_service_env.h"

namespace {

using ::lumx::test::Code;
using ::lumx::test::ICode;
using ::lumx::test::Lines;
using ::lumx_host::LogEntry;
using ::testing::Contains;
using ::testing::ElementsAre;
using Status = CommandResult::Status;

const int32_t kPas1 = ICode("pas1");
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

class ParamOpsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    env_ = new ::lumx::test::ServiceEnv({{20}, {20}});
    service_ = env_->MakeService();
  }
  static void TearDownTestSuite() {
    service_.reset();
    delete env_;
    env_ = nullptr;
  }
  void SetUp() override {
    CommandResult a, b;
    service_->NewProcessorWithType(kPas1, ICode("pass"), &a);
    service_->NewProcessorWithType(kArl1, ICode("arel"), &b);
    ASSERT_EQ(Status::OK, a.status);
    ASSERT_EQ(Status::OK, b.status);
  }
  void TearDown() override { ::lumx::test::ServiceEnv::DeleteProcessors(service_.get(), {Code("pas1"), Code("arl1")}); }

  static CommandResult Set(int32_t proc, ParameterId id, int32_t element, const ParamValue& v) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->SetParameter(proc, id, element, v, r); });
  }
  static CommandResult Get(int32_t proc, ParameterId id, int32_t element, ParamValue* v) {
    return ::lumx::test::Call([&](CommandResult* r) { return service_->GetParameter(proc, id, element, v, r); });
  }

  static ::lumx::test::ServiceEnv* env_;
  static std::shared_ptr<LumxService> service_;
};

::lumx::test::ServiceEnv* ParamOpsTest::env_ = nullptr;
std::shared_ptr<LumxService> ParamOpsTest::service_;

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
