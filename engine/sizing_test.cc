#include "engine/sizing.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "settings/settings.h"
#include "testing/output_capture.h"

namespace {


std::string length_warning(const char* hex) {
  return std::string("WARNING: the maximum write/read data transfer length is not an even multiple of\r\n"
                     "the logical block size (length truncated to 0x") + hex + " bytes)\r\n";
}
std::string total_warning(const char* mb) {
  return std::string("WARNING: the total amount of data to write/read is not an even multiple of the\r\n"
                     "maximum write/read data transfer length (amount truncated to ") + mb + " MB)\r\n";
}
std::string interval_warning(const char* mb) {
  return std::string("WARNING: the amount of data to write/read per status interval is not an even\r\n"
                     "multiple of the maximum write/read data transfer length (amount truncated to\r\n") +
         mb + " MB)\r\n";
}
std::string interval_total_warning(const char* mb) {
  return std::string("WARNING: the total amount of data to write/read is not an even multiple of the\r\n"
                     "amount of data to write/read per status interval (total amount truncated to\r\n") +
         mb + " MB)\r\n";
}

class SizingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    reset_settings();
    reset_test_plan();
  }
  void TearDown() override {
    reset_test_plan();
    reset_settings();
  }
  void configure(uint32_t block_size, uint32_t transfer_length, double megabytes, double interval) {
    test_settings.logical_block_size = block_size;
    test_settings.max_transfer_length = transfer_length;
    test_settings.total_megabytes = megabytes;
    if (interval != 0.0) {
      test_settings.interval_megabytes = interval;
      test_settings.interval_given = 1;
    }
  }
};

TEST_F(SizingTest, CutsAmountsToWholeCommandsAndIntervalsWithTheirWarnings) {
  const struct {
    const char* name;
    uint32_t block_size, transfer_length;
    double megabytes, interval;
    uint32_t cut_length, blocks_per_command, total_commands, commands_per_interval, interval_count;
    double megabytes_per_interval, total_megabytes;
    std::string warnings;
  } cases[] = {
      {"defaults", 0x400, 0x10000, 128.0, 0.0, 0x10000, 64, 2048, 2048, 1, 128.0, 128.0, ""},
      {"block size 1000", 1000, 0x10000, 128.0, 0.0, 65000, 65, 2064, 2064, 1, 65000.0 * 2064 / 1048576,
       65000.0 * 2064 / 1048576, length_warning("FDE8") + total_warning("127.945")},
      {"variable blocks", 0, 0x10000, 128.0, 0.0, 0x10000, 0x10000, 2048, 2048, 1, 128.0, 128.0, ""},
      {"sdint 10", 0x400, 0x10000, 128.0, 10.0, 0x10000, 64, 1920, 160, 12, 10.0, 120.0,
       interval_total_warning("120.000")},
      {"sdint 3", 0x400, 0x10000, 128.0, 3.0, 0x10000, 64, 2016, 48, 42, 3.0, 126.0,
       interval_total_warning("126.000")},
      {"maxtl 100000 sdint 10", 0, 100000, 128.0, 10.0, 100000, 100000, 1248, 104, 12,
       104 * 100000.0 / 1048576, 12 * (104 * 100000.0 / 1048576),
       total_warning("127.983") + interval_warning("9.918") + interval_total_warning("119.019")},
      {"sdint equal to total", 0x400, 0x10000, 128.0, 128.0, 0x10000, 64, 2048, 2048, 1, 128.0, 128.0, ""},
      {"sdint above total", 0x400, 0x10000, 128.0, 200.0, 0x10000, 64, 2048, 2048, 1, 128.0, 128.0, ""},
      {"sdint below 1", 0x400, 0x10000, 128.0, 0.5, 0x10000, 64, 2048, 2048, 1, 128.0, 128.0, ""},
      {"megs 0", 0x400, 0x10000, 0.0001, 0.0, 0x10000, 64, 0, 0, 1, 0.0, 0.0, total_warning("0.000")},
      {"interval below one transfer", 0, 0x200000, 128.0, 1.0, 0x200000, 0x200000, 0, 0, 0, 0.0, 0.0,
       interval_warning("0.000") + interval_total_warning("0.000")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    reset_settings();
    reset_test_plan();
    configure(c.block_size, c.transfer_length, c.megabytes, c.interval);
    OutputCapture capture;
    ASSERT_EQ(0, size_test());
    EXPECT_EQ(c.warnings + "setting null data pattern\r\n", capture.screen());
    EXPECT_EQ(c.cut_length, test_settings.max_transfer_length);
    EXPECT_EQ(c.block_size == 0 ? 1u : c.block_size, test_plan.block_unit);
    EXPECT_EQ(c.blocks_per_command, test_plan.blocks_per_command);
    EXPECT_EQ(c.total_commands, test_plan.total_commands);
    EXPECT_EQ(c.commands_per_interval, test_plan.commands_per_interval);
    EXPECT_EQ(c.interval_count, test_plan.interval_count);
    EXPECT_DOUBLE_EQ(c.megabytes_per_interval, test_plan.megabytes_per_interval);
    EXPECT_DOUBLE_EQ(c.total_megabytes, test_settings.total_megabytes);
    EXPECT_NE(nullptr, data_buffer_1);
    EXPECT_NE(nullptr, data_buffer_2);
  }
}

TEST_F(SizingTest, RefusesPlansThatDoNotFitTheWriteReadCommand) {
  const struct {
    uint32_t block_size, transfer_length;
    double megabytes;
    const char* message;
  } cases[] = {
      {0, 0x1000000, 128.0,
       "ERROR: the test plan does not fit the Write/Read command (more than 16777215 blocks or bytes "
       "per command)\r\n"},
      {0, 1, 4096.0,
       "ERROR: the test plan does not fit the Write/Read command (more than 4294967295 commands)\r\n"},
  };
  for (const auto& c : cases) {
    reset_settings();
    reset_test_plan();
    configure(c.block_size, c.transfer_length, c.megabytes, 0.0);
    OutputCapture capture;
    EXPECT_EQ(-1, size_test());
    EXPECT_EQ(c.message, capture.screen());
    EXPECT_EQ(nullptr, data_buffer_1);
    EXPECT_EQ(nullptr, data_buffer_2);
  }
  // The largest plans that fit: 16,777,215 bytes per command, and exactly
  // 4,294,967,295 one-byte commands.
  const struct {
    uint32_t transfer_length;
    double megabytes;
    uint32_t blocks_per_command, total_commands;
  } fitting[] = {{0xFFFFFF, 0xFFFFFF / 1048576.0, 0xFFFFFF, 1}, {1, 4294967295.0 / 1048576.0, 1, 4294967295u}};
  for (const auto& c : fitting) {
    reset_settings();
    reset_test_plan();
    configure(0, c.transfer_length, c.megabytes, 0.0);
    OutputCapture capture;
    EXPECT_EQ(0, size_test());
    EXPECT_EQ("setting null data pattern\r\n", capture.screen());
    EXPECT_EQ(c.blocks_per_command, test_plan.blocks_per_command);
    EXPECT_EQ(c.total_commands, test_plan.total_commands);
  }
}

TEST_F(SizingTest, BuffersArePageAlignedZeroFilledAndReleasedOnce) {
  test_settings.max_transfer_length = 100000;
  ASSERT_EQ(0, allocate_data_buffers());
  for (uint8_t* buffer : {data_buffer_1, data_buffer_2}) {
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(buffer) % 4096);
    for (uint32_t i = 0; i < 100000; ++i) ASSERT_EQ(0, buffer[i]) << i;
  }
  release_buffer(&data_buffer_1);
  EXPECT_EQ(nullptr, data_buffer_1);
  release_buffer(&data_buffer_1);  // a second release does nothing
  EXPECT_EQ(nullptr, data_buffer_1);
}

}  // namespace
