// PassthruProcessor: the byte-exact copy, its size rules and the disabled and
// null-output cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "processors/passthru_processor.h"

namespace {

TEST(ProcessorPassthruTest, CopiesTheSmallerSizeZeroesTheRestAndNeverWritesPastTheOutput) {
  struct Case {
    size_t in, out;
    bool enabled;
  };
  // Odd sizes and arbitrary bytes: nothing is interpreted.
  const Case cases[] = {{480, 960, true}, {960, 480, true}, {1001, 1001, true}, {0, 64, true}, {480, 480, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.in << " -> " << c.out << (c.enabled ? "" : " disabled"));
    PassthruProcessor p(0x70617331);
    EXPECT_EQ(0, p.Enable(c.enabled));
    EXPECT_EQ(c.enabled, p.IsEnabled());
    std::vector<uint8_t> in(c.in);
    std::iota(in.begin(), in.end(), 7);
    std::vector<uint8_t> out(c.out + 16, 0xAA);  // 16 guard bytes
    EXPECT_EQ(0, p.ProcessBlock(in.empty() ? nullptr : in.data(), c.in, out.data(), c.out));
    std::vector<uint8_t> expected(c.out + 16, 0xAA);
    if (c.enabled) {
      std::fill_n(expected.begin(), c.out, 0);
      std::copy(in.begin(), in.begin() + std::min(c.in, c.out), expected.begin());
    }
    EXPECT_EQ(expected, out);
    EXPECT_EQ(0, p.ProcessBlock(in.data(), c.in, nullptr, c.out));  // no output: skipped
  }
}

}  // namespace
