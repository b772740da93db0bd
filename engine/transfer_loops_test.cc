#include "engine/transfer_loops.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(FindMiscompare, ReportsTheFirstDifferingByteOrNone) {
  std::vector<uint8_t> expected(0x10000);
  for (size_t i = 0; i < expected.size(); ++i) expected[i] = static_cast<uint8_t>(i * 31);
  const struct {
    std::vector<size_t> changed;
    uint32_t first;
  } cases[] = {
      {{}, kNoMiscompare},
      {{0x234}, 0x234},
      {{0x9000, 0x234, 0xFFFF}, 0x234},
      {{0}, 0},
      {{0xFFFF}, 0xFFFF},  // only the last byte: the length minus 1
  };
  for (const auto& c : cases) {
    std::vector<uint8_t> received = expected;
    for (size_t at : c.changed) received[at] ^= 0x5A;
    EXPECT_EQ(c.first, find_miscompare(received.data(), expected.data(), 0x10000));
  }
  EXPECT_EQ(kNoMiscompare, find_miscompare(expected.data(), expected.data(), 0));
}

TEST(TestTimer, StartModeReturnsZeroAndOtherModesNothing) {
  EXPECT_EQ(0.0, test_timer(0));
  EXPECT_GE(test_timer(1), 0.0);
  EXPECT_EQ(0.0, test_timer(2));
  EXPECT_EQ(0.0, test_timer(0xFFFF));
}

}  // namespace
