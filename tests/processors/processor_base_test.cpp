// The processor base class: names, Info, the common parameters and their
// checks, the AUDIO_FORMAT elements, and unwiring on destruction.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "buffer/lumx_buffer.h"
#include "processors/audio_relay_processor.h"
#include "processors/passthru_processor.h"
#include "support/processor_test_util.h"

namespace {

using ::lumx::test::processor::WiredBuffers;
using ::testing::ElementsAre;
using Status = CommandResult::Status;

constexpr uint32_t kPas1 = 0x70617331;  // "pas1"

ParamValue Int(int32_t v) { return ParamValue::make<ParamValue::Tag::i>(v); }
ParamValue Float(float v) { return ParamValue::make<ParamValue::Tag::f>(v); }

int32_t Get(const LumxProcessor& p, ParameterId id, int element, Status expected = Status::OK) {
  ParamValue v = Int(-12345);
  EXPECT_EQ(expected, p.GetParameter(id, element, &v));
  return v.getTag() == ParamValue::Tag::i ? v.get<ParamValue::Tag::i>() : -99999;
}

TEST(ProcessorBaseTest, NamesAreTheFourBytesMostSignificantFirst) {
  PassthruProcessor p(kPas1);
  EXPECT_STREQ("pas1", p.idName());
  EXPECT_STREQ("pass", p.typeName());
  AudioRelayProcessor r(0x61727430);
  EXPECT_STREQ("art0", r.idName());
  EXPECT_STREQ("arel", r.typeName());
  // A zero high byte ends the name at once.
  PassthruProcessor shortName(0x00616263);
  EXPECT_STREQ("", shortName.idName());
  PassthruProcessor midZero(0x61006263);
  EXPECT_STREQ("a", midZero.idName());
}

TEST(ProcessorBaseTest, InfoOfAnUnwiredProcessor) {
  PassthruProcessor p(kPas1);
  std::vector<std::string> lines{"before"};
  p.Info(lines);
  EXPECT_THAT(lines, ElementsAre("before", "  Id:      pas1", "  Type:    pass", "  Enabled: 0", "  Input:   none",
                                 "  Output:  none"));
}

TEST(ProcessorBaseTest, InfoOfAWiredEnabledRelayNamesBothBuffers) {
  WiredBuffers buffers;
  AudioRelayProcessor r(0x61727431);
  buffers.Wire(&r);
  ASSERT_EQ(0, r.Enable(true));
  std::vector<std::string> lines;
  r.Info(lines);
  EXPECT_THAT(lines, ElementsAre("  Id:      art1", "  Type:    arel", "  Enabled: 1", "  Input:   tapout7",
                                 "  Output:  inject8"));
}

TEST(ProcessorBaseTest, BlockLengthAcceptsOnlyMultiplesOf480Within480To24000) {
  PassthruProcessor p(kPas1);
  EXPECT_EQ(4800, Get(p, ParameterId::BLOCK_LENGTH, 0));
  EXPECT_EQ(4800u, p.getDefaultBlockLength());

  EXPECT_EQ(Status::OK, p.SetParameter(ParameterId::BLOCK_LENGTH, 0, Int(480)));
  EXPECT_EQ(480, Get(p, ParameterId::BLOCK_LENGTH, 0));
  EXPECT_EQ(Status::OK, p.SetParameter(ParameterId::BLOCK_LENGTH, 3, Int(24000)));
  EXPECT_EQ(24000, Get(p, ParameterId::BLOCK_LENGTH, 0));

  for (int32_t bad : {479, 24001, 961, -480, 0, 24480, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(Status::INVALID_VALUE, p.SetParameter(ParameterId::BLOCK_LENGTH, 0, Int(bad))) << bad;
  }
  EXPECT_EQ(Status::INVALID_VALUE, p.SetParameter(ParameterId::BLOCK_LENGTH, 0, Float(960.0f)));
  // Refusals leave the last good value.
  EXPECT_EQ(24000, Get(p, ParameterId::BLOCK_LENGTH, 0));
}

TEST(ProcessorBaseTest, ReadOnlyIdsAreRefusedBeforeTheValueIsLookedAt) {
  PassthruProcessor p(kPas1);
  for (ParameterId id : {ParameterId::AUDIO_FORMAT, ParameterId::VERSION, ParameterId::UNSPECIFIED,
                         static_cast<ParameterId>(7), static_cast<ParameterId>(-5)}) {
    EXPECT_EQ(Status::READ_ONLY, p.SetParameter(id, 0, Float(1.5f))) << static_cast<int>(id);
    EXPECT_EQ(Status::READ_ONLY, p.SetParameter(id, 2, Int(1))) << static_cast<int>(id);
  }
  EXPECT_FALSE(p.isParameterReadOnly(ParameterId::PASSTHROUGH_MODE, 99));
  EXPECT_FALSE(p.isParameterReadOnly(ParameterId::TEST_MODE, -1));
  EXPECT_FALSE(p.isParameterReadOnly(ParameterId::BLOCK_LENGTH, 0));
}

TEST(ProcessorBaseTest, ModesAreBooleansWhateverTheElement) {
  PassthruProcessor p(kPas1);
  EXPECT_EQ(Status::OK, p.SetParameter(ParameterId::PASSTHROUGH_MODE, 7, Int(5)));
  EXPECT_EQ(1, Get(p, ParameterId::PASSTHROUGH_MODE, 0));
  EXPECT_EQ(1, Get(p, ParameterId::PASSTHROUGH_MODE, 42));
  EXPECT_EQ(Status::INVALID_VALUE, p.SetParameter(ParameterId::PASSTHROUGH_MODE, 0, Float(0.0f)));
  EXPECT_EQ(1, Get(p, ParameterId::PASSTHROUGH_MODE, 0));
  EXPECT_EQ(Status::OK, p.SetParameter(ParameterId::PASSTHROUGH_MODE, 0, Int(0)));
  EXPECT_EQ(0, Get(p, ParameterId::PASSTHROUGH_MODE, 0));

  EXPECT_EQ(0, Get(p, ParameterId::TEST_MODE, 0));
  EXPECT_EQ(Status::OK, p.SetParameter(ParameterId::TEST_MODE, -3, Int(-1)));
  EXPECT_EQ(1, Get(p, ParameterId::TEST_MODE, 0));
  EXPECT_EQ(Status::INVALID_VALUE, p.SetParameter(ParameterId::TEST_MODE, 0, Float(1.0f)));
}

TEST(ProcessorBaseTest, GetParameterTable) {
  PassthruProcessor p(kPas1);
  Get(p, ParameterId::UNSPECIFIED, 0, Status::INVALID_PARAMETER);
  Get(p, static_cast<ParameterId>(5), 0, Status::INVALID_PARAMETER);
  Get(p, static_cast<ParameterId>(-2), 0, Status::INVALID_PARAMETER);
  EXPECT_EQ(0, Get(p, ParameterId::VERSION, 0));
  EXPECT_EQ(0, Get(p, ParameterId::VERSION, 1));

  EXPECT_EQ(48000, Get(p, ParameterId::AUDIO_FORMAT, 0));
  EXPECT_EQ(3, Get(p, ParameterId::AUDIO_FORMAT, 1));  // 32 bits
  EXPECT_EQ(0, Get(p, ParameterId::AUDIO_FORMAT, 2));
  EXPECT_EQ(1, Get(p, ParameterId::AUDIO_FORMAT, 3));
  EXPECT_EQ(1, Get(p, ParameterId::AUDIO_FORMAT, 4));
  EXPECT_EQ(0, Get(p, ParameterId::AUDIO_FORMAT, 5));
  // AUDIO_FORMAT never fails: out-of-range elements read as 0.
  EXPECT_EQ(0, Get(p, ParameterId::AUDIO_FORMAT, 9));
  EXPECT_EQ(0, Get(p, ParameterId::AUDIO_FORMAT, -1));
  EXPECT_EQ(0, Get(p, ParameterId::AUDIO_FORMAT, INT32_MIN));
}

TEST(ProcessorBaseTest, AnUnknownParameterLeavesTheValueAlone) {
  PassthruProcessor p(kPas1);
  ParamValue v = Float(2.5f);
  EXPECT_EQ(Status::INVALID_PARAMETER, p.GetParameter(ParameterId::UNSPECIFIED, 0, &v));
  ASSERT_EQ(ParamValue::Tag::f, v.getTag());
  EXPECT_EQ(2.5f, v.get<ParamValue::Tag::f>());
  // A success always writes the integer alternative.
  EXPECT_EQ(Status::OK, p.GetParameter(ParameterId::BLOCK_LENGTH, 0, &v));
  EXPECT_EQ(ParamValue::Tag::i, v.getTag());
}

TEST(ProcessorBaseTest, BaseStreamingOperationsAcceptAndIgnore) {
  PassthruProcessor p(kPas1);
  EXPECT_EQ(0, p.SendAudio(AudioPacket()));
  auto cb = ::ndk::SharedRefBase::make<::lumx::test::processor::RecordingCallback>();
  std::weak_ptr<::lumx::test::processor::RecordingCallback> weak = cb;
  p.RegisterReceiveAudioCallback(cb);
  cb.reset();
  EXPECT_FALSE(weak.expired());  // the processor holds a strong reference
  p.RegisterReceiveAudioCallback(nullptr);
  EXPECT_TRUE(weak.expired());  // and releases it when replaced
  p.HandleInotifyEvent(nullptr);
  uint8_t out[4] = {1, 2, 3, 4};
  EXPECT_EQ(0, p.LumxProcessor::ProcessBlock(out, 4, out, 4));
}

TEST(ProcessorBaseTest, DeletingAWiredProcessorLeavesNoBufferReferringToIt) {
  WiredBuffers buffers;
  auto* pass = new PassthruProcessor(kPas1);
  auto* relay = new AudioRelayProcessor(0x61727430);
  buffers.Wire(pass);
  buffers.tapOut().RegisterOutput(relay);
  relay->SetInput(&buffers.tapOut());
  ASSERT_EQ(&buffers.tapOut(), pass->input());
  ASSERT_EQ(&buffers.inject(), pass->output());
  ASSERT_EQ(pass, buffers.inject().inputProcessor());

  delete pass;
  std::vector<LumxProcessor*> outputs;
  buffers.tapOut().GetOutputs(outputs);
  EXPECT_THAT(outputs, ElementsAre(relay));
  EXPECT_EQ(nullptr, buffers.inject().inputProcessor());
  EXPECT_EQ("-", buffers.inject().GetInputAsString());

  // A relay that was enabled and is deleted through its own destructor.
  ASSERT_EQ(0, relay->Enable(true));
  delete static_cast<LumxProcessor*>(relay);
  outputs.clear();
  EXPECT_EQ(0, buffers.tapOut().GetOutputs(outputs));
  EXPECT_EQ("-", buffers.tapOut().GetOutputsAsString());
}

TEST(ProcessorBaseTest, ABufferDestroyedFirstUnwiresTheProcessor) {
  PassthruProcessor p(kPas1);
  {
    WiredBuffers buffers;
    buffers.Wire(&p);
  }
  EXPECT_EQ(nullptr, p.input());
  EXPECT_EQ(nullptr, p.output());
  std::vector<std::string> lines;
  p.Info(lines);
  EXPECT_EQ("  Input:   none", lines[3]);
}

}  // namespace
