// The compressed sizes behind the drive's compression counters; the same
// expectations hold for LZ4 and for the built-in estimate.
#include "vtape/compressor.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(VtapeCompressor, NullDataShrinksAndNoiseDoesNot) {
  std::vector<uint8_t> zeros(65536, 0);
  EXPECT_LT(compressed_size(zeros.data(), 65536), 65536u / 50);
  std::vector<uint8_t> noise(65536);
  uint32_t x = 99;
  for (uint8_t& byte : noise) {
    x = x * 1103515245 + 12345;
    byte = static_cast<uint8_t>(x >> 16);
  }
  uint32_t noise_size = compressed_size(noise.data(), 65536);
  EXPECT_GE(noise_size, 65536u * 99 / 100);
  EXPECT_LE(noise_size, 65536u);  // never more than the record
  std::vector<uint8_t> text;
  for (int i = 0; text.size() < 65536; ++i) text.push_back(static_cast<uint8_t>("abcd"[i % 4]));
  EXPECT_LT(compressed_size(text.data(), 65536), 65536u / 3);
  EXPECT_EQ(0u, compressed_size(zeros.data(), 0));
}

}  // namespace
