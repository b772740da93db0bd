#include "engine/data_patterns.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "console/log_output.h"
#include "engine/sizing.h"
#include "settings/settings.h"
#include "testing/output_capture.h"

namespace {

class DataPatternTest : public ::testing::Test {
 protected:
  void SetUp() override {
    reset_settings();
    reset_test_plan();
    ASSERT_EQ(0, allocate_buffer(&data_buffer_1, test_settings.max_transfer_length));
  }
  void TearDown() override {
    reset_test_plan();
    reset_settings();
    for (const std::string& path : files_) std::remove(path.c_str());
  }
  std::string write_file(const std::vector<uint8_t>& bytes) {
    std::string path = ::testing::TempDir() + "pattern_" + std::to_string(files_.size()) + ".bin";
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    files_.push_back(path);
    return path;
  }
  std::vector<std::string> files_;
};

// The generator's first bytes for seed 0, as the SCSI test data has always begun.
const uint8_t kSeedZeroBytes[] = {0x26, 0x27, 0xF6, 0x85, 0x97, 0x15, 0xAD, 0x1D};

TEST_F(DataPatternTest, GeneratorFollowsItsExactArithmetic) {
  uint8_t bytes[8] = {};
  ASSERT_EQ(0, randomize_buffer(0, bytes, 8, 0, 0));
  EXPECT_EQ(0, std::memcmp(kSeedZeroBytes, bytes, 8));
  // A negative seed is widened with its sign: state 0xFFFFFFFF.
  seed_pattern_generator(0xFFFFFFFFu);
  uint32_t expected = ((0xFFFFFFFFu * 214013u + 2531011u) >> 16) & 0x7FFF;
  uint8_t one = 0;
  ASSERT_EQ(0, randomize_buffer(-1, &one, 1, 0, 1));
  EXPECT_EQ(static_cast<uint8_t>(expected), one);
}

TEST_F(DataPatternTest, RandomizeHonoursOffsetCountAndLength) {
  uint8_t bytes[12] = {};
  ASSERT_EQ(0, randomize_buffer(0, bytes, 12, 4, 3));
  const uint8_t window[12] = {0, 0, 0, 0, 0x26, 0x27, 0xF6, 0, 0, 0, 0, 0};
  EXPECT_EQ(0, std::memcmp(window, bytes, 12));
  // An offset beyond the length starts at 0; a count past the end stops at the length.
  uint8_t clipped[4] = {};
  ASSERT_EQ(0, randomize_buffer(0, clipped, 4, 9, 100));
  EXPECT_EQ(0, std::memcmp(kSeedZeroBytes, clipped, 4));
  OutputCapture capture;
  EXPECT_EQ(-1, randomize_buffer(0, nullptr, 4, 0, 0));
  EXPECT_EQ(-1, randomize_buffer(0, clipped, 0, 0, 0));
  EXPECT_EQ(
      "ERROR: NULL buffer or zero buffer length (buffer not randomized)\r\n"
      "ERROR: NULL buffer or zero buffer length (buffer not randomized)\r\n",
      capture.screen());
}

TEST_F(DataPatternTest, FillsBufferOneAsThePatternTypeSays) {
  const uint32_t length = test_settings.max_transfer_length;  // 0x10000
  {
    OutputCapture capture;
    ASSERT_EQ(0, set_data_pattern());
    EXPECT_EQ("setting null data pattern\r\n", capture.screen());
    EXPECT_EQ(std::vector<uint8_t>(length, 0), std::vector<uint8_t>(data_buffer_1, data_buffer_1 + length));
  }
  std::vector<uint8_t> continuous(length);
  ASSERT_EQ(0, randomize_buffer(0, continuous.data(), length, 0, length));
  {
    test_settings.data_pattern_type = 1;
    OutputCapture capture;
    ASSERT_EQ(0, set_data_pattern());
    EXPECT_EQ("setting pseudo-random data pattern (seed = 0)\r\n", capture.screen());
    EXPECT_EQ(continuous, std::vector<uint8_t>(data_buffer_1, data_buffer_1 + length));
  }
  {
    test_settings.random_pattern_repeats = 1;
    OutputCapture capture;
    ASSERT_EQ(0, set_data_pattern());
    EXPECT_EQ("setting pseudo-random data pattern (seed = 0; repeat every 0x400 bytes)\r\n", capture.screen());
    for (uint32_t block = 0; block < 64; ++block) {
      ASSERT_EQ(0, std::memcmp(continuous.data(), data_buffer_1 + block * 0x400, 0x400)) << block;
    }
    EXPECT_NE(0, std::memcmp(continuous.data(), data_buffer_1, length));
  }
  {
    // Variable block mode ignores the repeat.
    test_settings.logical_block_size = 0;
    OutputCapture capture;
    ASSERT_EQ(0, set_data_pattern());
    EXPECT_EQ("setting pseudo-random data pattern (seed = 0)\r\n", capture.screen());
    EXPECT_EQ(continuous, std::vector<uint8_t>(data_buffer_1, data_buffer_1 + length));
  }
}

TEST_F(DataPatternTest, PatternFileIsRepeatedOrCutToTheBuffer) {
  const uint32_t length = test_settings.max_transfer_length;
  std::vector<uint8_t> long_file(0x20000);
  for (size_t i = 0; i < long_file.size(); ++i) long_file[i] = static_cast<uint8_t>(i * 7 + i / 256);
  // A 3-byte file repeats (41 42 43 41 ...), a file of twice the buffer gives
  // its first half, an empty file gives 0xFF bytes.
  const struct {
    std::vector<uint8_t> file;
  } cases[] = {{{0x41, 0x42, 0x43}}, {long_file}, {{}}};
  for (const auto& c : cases) {
    std::string path = write_file(c.file);
    std::snprintf(test_settings.pattern_file_name, sizeof test_settings.pattern_file_name, "%s", path.c_str());
    test_settings.data_pattern_type = 2;
    OutputCapture capture;
    ASSERT_EQ(0, set_data_pattern());
    EXPECT_EQ("setting user-defined data pattern (input file = \"" + path + "\")\r\n", capture.screen());
    for (uint32_t i = 0; i < length; ++i) {
      uint8_t expected = c.file.empty() ? 0xFF : c.file[i % c.file.size()];
      ASSERT_EQ(expected, data_buffer_1[i]) << i;
    }
  }
}

TEST_F(DataPatternTest, PatternFileErrorsGoToTheScreenOnly) {
  FILE* log = std::tmpfile();
  set_log_file(log);
  test_settings.data_pattern_type = 2;
  std::snprintf(test_settings.pattern_file_name, sizeof test_settings.pattern_file_name, "%s",
                "no_such_pattern.bin");
  OutputCapture capture;
  EXPECT_EQ(-1, set_data_pattern());
  EXPECT_EQ(-1, load_buffer_from_file("", data_buffer_1, 16));
  EXPECT_EQ(
      "setting user-defined data pattern (input file = \"no_such_pattern.bin\")\r\n"
      "ERROR: cannot open \"no_such_pattern.bin\" for input\r\n"
      "ERROR: no file name, NULL buffer, or zero buffer length (buffer not loaded)\r\n",
      capture.screen());
  set_log_file(nullptr);
  std::fflush(log);
  std::rewind(log);
  char text[256] = {};
  size_t got = std::fread(text, 1, sizeof text - 1, log);
  std::fclose(log);
  EXPECT_EQ("setting user-defined data pattern (input file = \"no_such_pattern.bin\")\r\n",
            std::string(text, got));
}

}  // namespace
