#include "engine/data_patterns.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/sizing.h"
#include "settings/settings.h"
#include "testing/screen_capture.h"

namespace {

// Buffer one after set_data_pattern() for a pattern type, with its message.
std::vector<uint8_t> buffer_one(int type, int repeats, uint32_t block_size, std::string* screen) {
  reset_settings();
  reset_test_plan();
  test_settings.data_pattern_type = static_cast<uint16_t>(type);
  test_settings.random_pattern_repeats = static_cast<uint8_t>(repeats);
  test_settings.logical_block_size = block_size;
  std::snprintf(test_settings.pattern_file_name, sizeof test_settings.pattern_file_name, "%s", "pattern.bin");
  EXPECT_EQ(0, allocate_buffer(&data_buffer_1, test_settings.max_transfer_length));
  int result = -1;
  *screen = screen_of([&] { result = set_data_pattern(); });
  std::vector<uint8_t> bytes(data_buffer_1, data_buffer_1 + (result == 0 ? test_settings.max_transfer_length : 0));
  reset_test_plan();
  return bytes;
}

TEST(DataPatterns, NullRandomRepeatingAndFilePatterns) {
  // The generator's first bytes for seed 0, as the test data has always begun.
  const std::vector<uint8_t> seed_zero = {0x26, 0x27, 0xF6, 0x85, 0x97, 0x15, 0xAD, 0x1D};
  std::string screen;
  EXPECT_EQ(std::vector<uint8_t>(0x10000, 0), buffer_one(0, 0, 0x400, &screen));
  EXPECT_EQ("setting null data pattern\r\n", screen);

  std::vector<uint8_t> random = buffer_one(1, 0, 0x400, &screen);
  EXPECT_EQ(seed_zero, std::vector<uint8_t>(random.begin(), random.begin() + 8));
  EXPECT_EQ("setting pseudo-random data pattern (seed = 0)\r\n", screen);
  EXPECT_EQ(random, buffer_one(1, 1, 0, &screen)) << "variable blocks ignore the repeat";

  std::vector<uint8_t> repeating = buffer_one(1, 1, 0x400, &screen);
  EXPECT_EQ("setting pseudo-random data pattern (seed = 0; repeat every 0x400 bytes)\r\n", screen);
  for (uint32_t at = 0; at < repeating.size(); at += 0x400) {
    ASSERT_EQ(0, std::memcmp(random.data(), repeating.data() + at, 0x400)) << at;
  }

  // A 3-byte file repeats; an empty file gives 0xFF bytes. The file lies in
  // the test's current directory, as the program's files do.
  for (const std::string file : {"ABC", ""}) {
    std::ofstream("pattern.bin", std::ios::binary) << file;
    std::vector<uint8_t> pattern = buffer_one(2, 0, 0x400, &screen);
    std::filesystem::remove("pattern.bin");
    ASSERT_EQ(0x10000u, pattern.size());
    for (size_t i = 0; i < pattern.size(); ++i) {
      ASSERT_EQ(file.empty() ? 0xFF : file[i % 3], pattern[i]) << i;
    }
  }
}

}  // namespace
