#include "engine/iterations.h"

#include <gtest/gtest.h>

namespace {

TEST(TransferRate, IsWholeKilobytesOfAThousandBytesPerSecondWithoutWrapping) {
  const struct {
    double megabytes, seconds;
    uint32_t rate;
  } cases[] = {
      {128.0, 10.0, 13421},     // 134,217,728 bytes / 1000 / 10, truncated
      {128.0, 0.0, 0},          // a zero time
      {93.75, 1.0, 98304},      // faster than 65,535 KB/SEC: the true figure
      {4096.0, 2.0, 2147483},   // 4 GB in 2 seconds
      {1.0, 0.001, 1048576},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.rate, transfer_rate_kb_per_second(c.megabytes, c.seconds))
        << c.megabytes << " MB in " << c.seconds << " s";
  }
}

}  // namespace
