// The log limiter: the first line of a cause at once, repeats at most once an
// interval with the number held back, and a line with other values at once.
#include "common/rate_limit.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(LogRateLimiter, HoldsBackRepeatsAndCountsThem) {
  lumx::LogRateLimiter limit(50 * 1000 * 1000);  // 50 ms
  uint64_t held = 99;
  ASSERT_TRUE(limit.Allow(&held));
  EXPECT_EQ(0u, held);
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(limit.Allow(&held));
  usleep(60 * 1000);
  ASSERT_TRUE(limit.Allow(&held));
  EXPECT_EQ(5u, held);

  // Another value is a line of its own; the same value again is a repeat.
  EXPECT_TRUE(limit.AllowKeyed(1, &held));
  EXPECT_FALSE(limit.AllowKeyed(1, &held));
  EXPECT_TRUE(limit.AllowKeyed(2, &held));
  EXPECT_EQ(1u, held);
}

}  // namespace
