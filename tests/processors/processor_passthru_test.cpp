// PassthruProcessor: the byte-exact copy, its size rules and the disabled and
// null-output cases.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "processors/passthru_processor.h"

namespace {

constexpr uint32_t kPas1 = 0x70617331;  // "pas1"

std::vector<uint8_t> Counting(size_t n, uint8_t start = 1) {
  std::vector<uint8_t> v(n);
  std::iota(v.begin(), v.end(), start);
  return v;
}

class ProcessorPassthruTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, p_.Enable(true)); }
  PassthruProcessor p_{kPas1};
};

TEST_F(ProcessorPassthruTest, ShortInputIsCopiedAndTheRestZeroed) {
  const std::vector<uint8_t> in = Counting(480);
  std::vector<uint8_t> out(960, 0xAA);
  EXPECT_EQ(0, p_.ProcessBlock(in.data(), 480, out.data(), 960));
  EXPECT_TRUE(std::equal(in.begin(), in.end(), out.begin()));
  EXPECT_EQ(std::vector<uint8_t>(480, 0), std::vector<uint8_t>(out.begin() + 480, out.end()));
}

TEST_F(ProcessorPassthruTest, LongInputIsCutAtTheOutputSize) {
  const std::vector<uint8_t> in = Counting(960);
  // Guard bytes after the 480 that the processor may write.
  std::vector<uint8_t> out(480 + 16, 0xAA);
  EXPECT_EQ(0, p_.ProcessBlock(in.data(), 960, out.data(), 480));
  EXPECT_TRUE(std::equal(in.begin(), in.begin() + 480, out.begin()));
  EXPECT_EQ(std::vector<uint8_t>(16, 0xAA), std::vector<uint8_t>(out.begin() + 480, out.end()));
}

TEST_F(ProcessorPassthruTest, EqualSizesAreAnExactCopyWithoutAnyFormatCheck) {
  // Odd length, arbitrary bytes: nothing is interpreted.
  const std::vector<uint8_t> in = Counting(1001, 7);
  std::vector<uint8_t> out(1001, 0);
  EXPECT_EQ(0, p_.ProcessBlock(in.data(), in.size(), out.data(), out.size()));
  EXPECT_EQ(in, out);
}

TEST_F(ProcessorPassthruTest, EmptyInputZeroesTheWholeOutput) {
  std::vector<uint8_t> out(64, 0x55);
  EXPECT_EQ(0, p_.ProcessBlock(nullptr, 0, out.data(), out.size()));
  EXPECT_EQ(std::vector<uint8_t>(64, 0), out);
}

TEST_F(ProcessorPassthruTest, NullOutputIsSkipped) {
  const std::vector<uint8_t> in = Counting(480);
  EXPECT_EQ(0, p_.ProcessBlock(in.data(), in.size(), nullptr, in.size()));
}

TEST_F(ProcessorPassthruTest, DisabledLeavesTheOutputUntouched) {
  EXPECT_EQ(0, p_.Enable(false));
  EXPECT_FALSE(p_.IsEnabled());
  const std::vector<uint8_t> in = Counting(480);
  std::vector<uint8_t> out(480, 0x33);
  EXPECT_EQ(0, p_.ProcessBlock(in.data(), in.size(), out.data(), out.size()));
  EXPECT_EQ(std::vector<uint8_t>(480, 0x33), out);
}

TEST_F(ProcessorPassthruTest, EnableNeverFailsAndIsIdempotent) {
  EXPECT_EQ(0, p_.Enable(true));
  EXPECT_TRUE(p_.IsEnabled());
  EXPECT_EQ(0, p_.Enable(false));
  EXPECT_EQ(0, p_.Enable(false));
  EXPECT_FALSE(p_.IsEnabled());
}

}  // namespace
