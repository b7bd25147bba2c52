// LumxBuffer wiring, text forms, enable/disable, destruction and dump.
#include <android/log.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "common/wire.h"
#include "support/buffer_dev_dir.h"
#include "support/buffer_test_peer.h"
#include "support/buffer_test_processor.h"

namespace {

std::string Ptr(const void* p) {
  char text[32];
  snprintf(text, sizeof text, "%p", p);
  return text;
}

class BufferWiringTest : public ::testing::Test {
 protected:
  void SetUp() override { capture.setEcho(false); }

  lumx_host::LogCapture capture;
  BufferDevDir dir;
  LumxBuffer tapout{"tapout0", dir.Path("zch-lumx_tapout0"), 0, nullptr, true};
  LumxBuffer inject{"inject0", dir.Path("zch-lumx_inject0"), 0, nullptr, false};
  BufferTestProcessor pass{BufferTestFourCc("pass")};
  BufferTestProcessor arel{BufferTestFourCc("arel")};
};

TEST_F(BufferWiringTest, RegisterOutputKeepsOneEntryPerProcessorInAddressOrder) {
  EXPECT_EQ(tapout.RegisterOutput(&arel), 0);
  EXPECT_EQ(tapout.RegisterOutput(&pass), 0);
  EXPECT_EQ(tapout.RegisterOutput(&pass), 0);
  EXPECT_EQ(capture.messages("lumx"),
            (std::vector<std::string>{"tapout0 RegisterOutput " + Ptr(&arel), "tapout0 RegisterOutput " + Ptr(&pass),
                                      "tapout0 RegisterOutput " + Ptr(&pass)}));
  BufferTestProcessor* lower = std::less<LumxProcessor*>()(&pass, &arel) ? &pass : &arel;
  BufferTestProcessor* higher = lower == &pass ? &arel : &pass;
  std::vector<LumxProcessor*> outputs{nullptr};  // GetOutputs appends
  EXPECT_EQ(tapout.GetOutputs(outputs), 2);
  EXPECT_EQ(outputs, (std::vector<LumxProcessor*>{nullptr, lower, higher}));
  EXPECT_EQ(tapout.GetOutputsAsString(), std::string(lower->idName()) + "," + higher->idName());
  // RegisterOutput leaves the processor's own input alone.
  EXPECT_EQ(pass.input(), nullptr);
}

TEST_F(BufferWiringTest, WrongDirectionNullAndUnknownProcessorsAreRefused) {
  EXPECT_EQ(inject.RegisterOutput(&pass), -1);
  EXPECT_EQ(tapout.RegisterInput(&pass), -1);
  EXPECT_EQ(inject.RegisterInput(nullptr), -1);
  EXPECT_EQ(tapout.UnregisterOutput(nullptr), -1);
  EXPECT_EQ(pass.output(), nullptr);
  ASSERT_EQ(tapout.RegisterOutput(&pass), 0);
  pass.SetInput(&tapout);
  EXPECT_EQ(tapout.UnregisterOutput(&pass), 0);
  EXPECT_EQ(pass.input(), nullptr);
  EXPECT_EQ(tapout.GetOutputsAsString(), "-");
  EXPECT_EQ(tapout.UnregisterOutput(&pass), -1);
  EXPECT_EQ(capture.messages("lumx"), (std::vector<std::string>{
                                          "inject0 RegisterOutput " + Ptr(&pass),
                                          "inject0 RegisterOutput failed because buffer direction is write",
                                          "tapout0 RegisterInput " + Ptr(&pass),
                                          "tapout0 RegisterInput failed because buffer direction is read",
                                          "inject0 RegisterInput " + Ptr(nullptr),
                                          "tapout0 UnregisterOutput: " + Ptr(nullptr),
                                          "tapout0 RegisterOutput " + Ptr(&pass),
                                          "tapout0 UnregisterOutput: " + Ptr(&pass),
                                          "tapout0 UnregisterOutput: " + Ptr(&pass),
                                          "tapout0 UnregisterOutput: could not find processor pass",
                                      }));
}

TEST_F(BufferWiringTest, RegisterInputReplacesAndReRegisters) {
  EXPECT_EQ(inject.RegisterInput(&pass), 0);
  EXPECT_EQ(pass.output(), &inject);
  EXPECT_EQ(inject.GetInputAsString(), "pass");
  EXPECT_EQ(inject.RegisterInput(&arel), 0);
  EXPECT_EQ(pass.output(), nullptr);
  EXPECT_EQ(arel.output(), &inject);
  EXPECT_EQ(inject.GetInputAsString(), "arel");
  // The same processor again: cleared and set again, still the input.
  EXPECT_EQ(inject.RegisterInput(&arel), 0);
  EXPECT_EQ(arel.output(), &inject);
  inject.UnregisterInput();
  EXPECT_EQ(arel.output(), nullptr);
  EXPECT_EQ(inject.GetInputAsString(), "-");
  EXPECT_EQ(capture.count("inject0 UnregisterInput"), 1u);
}

TEST_F(BufferWiringTest, DestroyedBuffersStopThenUnwireTheirProcessors) {
  dir.MakeFifo("zch-lumx_tapout5");
  const int feeder = BufferOpenFifoFeeder(dir.Path("zch-lumx_tapout5"));
  ASSERT_GE(feeder, 0);
  auto t = std::make_unique<LumxBuffer>("tapout5", dir.Path("zch-lumx_tapout5"), 5, nullptr, true);
  auto i = std::make_unique<LumxBuffer>("inject5", "/nonexistent", 5, nullptr, false);
  for (BufferTestProcessor* p : {&pass, &arel}) {
    ASSERT_EQ(t->RegisterOutput(p), 0);
    p->SetInput(t.get());
  }
  ASSERT_EQ(i->RegisterInput(&pass), 0);
  ASSERT_EQ(t->Enable(true), 0);
  capture.clear();
  t.reset();
  i.reset();
  close(feeder);
  EXPECT_EQ(pass.input(), nullptr);
  EXPECT_EQ(arel.input(), nullptr);
  EXPECT_EQ(pass.output(), nullptr);
  EXPECT_EQ(BufferLogLines(capture), (std::vector<std::string>{
                                         "Disable buffer tapout5",
                                         "tapout5 ioProcess end",
                                         "Buffer tapout5 disabled, I/O thread end",
                                         "tapout5 UnregisterAllOutputs",
                                         "tapout5 UnregisterInput",
                                         "inject5 UnregisterAllOutputs",
                                         "inject5 UnregisterInput",
                                     }));
}

// ---- Enable and disable ----

TEST_F(BufferWiringTest, EnableLinesCountProcessorsAndInputs) {
  dir.MakeFifo("zch-lumx_tapout0");
  dir.MakeFile("zch-lumx_inject0");
  const int feeder = BufferOpenFifoFeeder(dir.Path("zch-lumx_tapout0"));
  ASSERT_GE(feeder, 0);

  for (bool on : {true, true, false}) ASSERT_EQ(tapout.Enable(on), 0);
  for (BufferTestProcessor* p : {&pass, &arel}) {
    ASSERT_EQ(tapout.RegisterOutput(p), 0);
    ASSERT_EQ(tapout.Enable(true), 0);
    ASSERT_EQ(tapout.Enable(false), 0);
  }
  ASSERT_EQ(tapout.Enable(false), 0);
  for (bool wired : {false, true}) {
    if (wired) {
      ASSERT_EQ(inject.RegisterInput(&pass), 0);
    }
    ASSERT_EQ(inject.Enable(true), 0);
    ASSERT_EQ(inject.Enable(false), 0);
  }
  close(feeder);

  EXPECT_EQ(BufferLogLines(capture, {"Enable buffer", "Disable buffer", "Buffer "}),
            (std::vector<std::string>{
                "Enable buffer tapout0 (0 processors connected), I/O thread start",
                "Enable buffer tapout0: already enabled",
                "Disable buffer tapout0",
                "Buffer tapout0 disabled, I/O thread end",
                "Enable buffer tapout0 (1 processor connected), I/O thread start",
                "Disable buffer tapout0",
                "Buffer tapout0 disabled, I/O thread end",
                "Enable buffer tapout0 (2 processors connected), I/O thread start",
                "Disable buffer tapout0",
                "Buffer tapout0 disabled, I/O thread end",
                "Disable buffer tapout0: already disabled",
                "Enable buffer inject0 with 0 input",
                "Disable buffer inject0",
                "Buffer inject0 disabled",
                "Enable buffer inject0 with 1 input",
                "Disable buffer inject0",
                "Buffer inject0 disabled",
            }));
  EXPECT_EQ(capture.count("tapout0 ioProcess end"), 3u);
}

TEST_F(BufferWiringTest, EnableGivesUpAfterFiveOpens) {
  // About four seconds: the open is retried after 1 s pauses.
  ASSERT_EQ(inject.Enable(true), -1);
  EXPECT_FALSE(inject.isEnabled());
  const std::string path = dir.Path("zch-lumx_inject0");
  const std::string openError = "Error opening " + path + ", status -1 (errno 2: No such file or directory)\n";
  std::vector<std::string> expected{"Enable buffer inject0 with 0 input"};
  for (unsigned n = 1; n <= 4; ++n) {
    expected.push_back(openError);
    expected.push_back("inject0 Attempting to reinitialize LUM interface, attempt " + std::to_string(n) + "\n");
  }
  expected.push_back(openError);
  expected.push_back("Open " + path + " failed, status -1, errno 2");
  EXPECT_EQ(capture.messages("lumx"), expected);

  // The device shows up: the next enable succeeds; a second open is refused.
  dir.MakeFile("zch-lumx_inject0");
  EXPECT_EQ(inject.Enable(true), 0);
  EXPECT_TRUE(inject.isEnabled());
  EXPECT_EQ(inject.openLumNoLock(), -1);
  EXPECT_TRUE(capture.contains("inject0: already open"));
}

TEST_F(BufferWiringTest, DumpWritesTheWholeBlockAsWords) {
  dir.MakeFile("zch-lumx_inject0");
  ASSERT_EQ(inject.Enable(true), 0);
  uint8_t* block = LumxBufferTestPeer::IoBlock(inject);
  for (size_t w = 0; w < kLumIoBlockSize / 4; ++w) {
    const uint32_t v = static_cast<uint32_t>(w & 0xff) * 0x01010101u;
    memcpy(block + 4 * w, &v, 4);
  }
  lumx::PutLe32(block, kLumPacketMagic);
  capture.clear();
  inject.DumpBuffer();
  const auto entries = capture.entries();
  ASSERT_EQ(entries.size(), 2048u);
  EXPECT_EQ(entries[0].priority, ANDROID_LOG_INFO);
  EXPECT_EQ(entries[0].message, "00000000 : 4c756d78 01010101 02020202 03030303 04040404 05050505 06060606 07070707");
  EXPECT_EQ(entries[1].message, "00000008 : 08080808 09090909 0a0a0a0a 0b0b0b0b 0c0c0c0c 0d0d0d0d 0e0e0e0e 0f0f0f0f");
  EXPECT_EQ(entries.back().message,
            "00003ff8 : f8f8f8f8 f9f9f9f9 fafafafa fbfbfbfb fcfcfcfc fdfdfdfd fefefefe ffffffff");
}

}  // namespace
