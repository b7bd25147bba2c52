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
  EXPECT_EQ(expected, p.GetParameter(id, element, &v)) << static_cast<int>(id) << "[" << element << "]";
  return v.getTag() == ParamValue::Tag::i ? v.get<ParamValue::Tag::i>() : -99999;
}

TEST(ProcessorBaseTest, NamesAndInfo) {
  // The four bytes most significant first; a zero byte ends the name.
  EXPECT_STREQ("", PassthruProcessor(0x00616263).idName());
  EXPECT_STREQ("a", PassthruProcessor(0x61006263).idName());
  PassthruProcessor p(kPas1);
  std::vector<std::string> lines{"before"};
  p.Info(lines);
  EXPECT_THAT(lines, ElementsAre("before", "  Id:      pas1", "  Type:    pass", "  Enabled: 0", "  Input:   none",
                                 "  Output:  none"));

  WiredBuffers buffers;
  AudioRelayProcessor r(0x61727431);
  buffers.Wire(&r);
  ASSERT_EQ(0, r.Enable(true));
  lines.clear();
  r.Info(lines);
  EXPECT_THAT(lines, ElementsAre("  Id:      art1", "  Type:    arel", "  Enabled: 1", "  Input:   tapout7",
                                 "  Output:  inject8"));
}

TEST(ProcessorBaseTest, BlockLengthAcceptsOnlyMultiplesOf480Within480To24000) {
  PassthruProcessor p(kPas1);
  EXPECT_EQ(4800, Get(p, ParameterId::BLOCK_LENGTH, 0));
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
  for (ParameterId id : {ParameterId::PASSTHROUGH_MODE, ParameterId::TEST_MODE}) {
    EXPECT_EQ(0, Get(p, id, 0));
    EXPECT_EQ(Status::OK, p.SetParameter(id, 7, Int(-5)));
    EXPECT_EQ(1, Get(p, id, 0));
    EXPECT_EQ(1, Get(p, id, 42));
    EXPECT_EQ(Status::INVALID_VALUE, p.SetParameter(id, 0, Float(0.0f)));
    EXPECT_EQ(1, Get(p, id, 0));
    EXPECT_EQ(Status::OK, p.SetParameter(id, -3, Int(0)));
    EXPECT_EQ(0, Get(p, id, 0));
  }
}

TEST(ProcessorBaseTest, GetParameterTable) {
  PassthruProcessor p(kPas1);
  for (int id : {-1, 5, -2}) Get(p, static_cast<ParameterId>(id), 0, Status::INVALID_PARAMETER);
  EXPECT_EQ(0, Get(p, ParameterId::VERSION, 0));
  EXPECT_EQ(0, Get(p, ParameterId::VERSION, 1));
  // AUDIO_FORMAT: 48 kHz, 32 bits, format 0, one channel, 1; it never fails,
  // elements out of range read as 0.
  const int32_t format[] = {48000, 3, 0, 1, 1, 0};
  for (int e = 0; e < 6; ++e) EXPECT_EQ(format[e], Get(p, ParameterId::AUDIO_FORMAT, e)) << e;
  for (int e : {9, -1, INT32_MIN}) EXPECT_EQ(0, Get(p, ParameterId::AUDIO_FORMAT, e)) << e;

  // A failure leaves the value alone; a success writes the integer.
  ParamValue v = Float(2.5f);
  EXPECT_EQ(Status::INVALID_PARAMETER, p.GetParameter(ParameterId::UNSPECIFIED, 0, &v));
  ASSERT_EQ(ParamValue::Tag::f, v.getTag());
  EXPECT_EQ(2.5f, v.get<ParamValue::Tag::f>());
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
  delete pass;
  std::vector<LumxProcessor*> outputs;
  buffers.tapOut().GetOutputs(outputs);
  EXPECT_THAT(outputs, ElementsAre(relay));
  EXPECT_EQ(nullptr, buffers.inject().inputProcessor());

  // A relay that was enabled and is deleted through its own destructor.
  ASSERT_EQ(0, relay->Enable(true));
  delete static_cast<LumxProcessor*>(relay);
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
}

}  // namespace
