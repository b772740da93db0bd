#include "engine/sizing.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "settings/settings.h"
#include "testing/screen_capture.h"

namespace {

const std::string kLength = "WARNING: the maximum write/read data transfer length is not an even multiple of\r\n"
                            "the logical block size (length truncated to 0x";
const std::string kTotal = "WARNING: the total amount of data to write/read is not an even multiple of the\r\n"
                           "maximum write/read data transfer length (amount truncated to ";
const std::string kInterval = "WARNING: the amount of data to write/read per status interval is not an even\r\n"
                              "multiple of the maximum write/read data transfer length (amount truncated to\r\n";
const std::string kIntervalTotal = "WARNING: the total amount of data to write/read is not an even multiple of the\r\n"
                                   "amount of data to write/read per status interval (total amount truncated to\r\n";
const std::string kTooManyBlocks = "ERROR: the test plan does not fit the Write/Read command (more than 16777215 "
                                   "blocks or bytes per command)\r\n";
const std::string kTooManyCommands =
    "ERROR: the test plan does not fit the Write/Read command (more than 4294967295 commands)\r\n";

TEST(Sizing, CutsAmountsToWholeCommandsAndIntervalsOrRefusesThePlan) {
  const struct {
    uint32_t block_size, transfer_length;
    double megabytes, interval;
    uint32_t cut_length, blocks_per_command, total_commands, commands_per_interval, interval_count;
    double megabytes_per_interval, total_megabytes;
    std::string screen;  // warnings, or the refusal when it ends in "\r\n" of an ERROR
  } cases[] = {
      {0x400, 0x10000, 128.0, 0.0, 0x10000, 64, 2048, 2048, 1, 128.0, 128.0, ""},
      {1000, 0x10000, 128.0, 0.0, 65000, 65, 2064, 2064, 1, 65000.0 * 2064 / 1048576, 65000.0 * 2064 / 1048576,
       kLength + "FDE8 bytes)\r\n" + kTotal + "127.945 MB)\r\n"},
      {0, 0x10000, 128.0, 0.0, 0x10000, 0x10000, 2048, 2048, 1, 128.0, 128.0, ""},
      {0x400, 0x10000, 128.0, 10.0, 0x10000, 64, 1920, 160, 12, 10.0, 120.0, kIntervalTotal + "120.000 MB)\r\n"},
      {0x400, 0x10000, 128.0, 3.0, 0x10000, 64, 2016, 48, 42, 3.0, 126.0, kIntervalTotal + "126.000 MB)\r\n"},
      {0, 100000, 128.0, 10.0, 100000, 100000, 1248, 104, 12, 104 * 100000.0 / 1048576, 12 * (104 * 100000.0 / 1048576),
       kTotal + "127.983 MB)\r\n" + kInterval + "9.918 MB)\r\n" + kIntervalTotal + "119.019 MB)\r\n"},
      {0x400, 0x10000, 128.0, 128.0, 0x10000, 64, 2048, 2048, 1, 128.0, 128.0, ""},
      {0x400, 0x10000, 128.0, 200.0, 0x10000, 64, 2048, 2048, 1, 128.0, 128.0, ""},
      {0x400, 0x10000, 128.0, 0.5, 0x10000, 64, 2048, 2048, 1, 128.0, 128.0, ""},
      {0x400, 0x10000, 0.0001, 0.0, 0x10000, 64, 0, 0, 1, 0.0, 0.0, kTotal + "0.000 MB)\r\n"},
      {0, 0x200000, 128.0, 1.0, 0x200000, 0x200000, 0, 0, 0, 0.0, 0.0,
       kInterval + "0.000 MB)\r\n" + kIntervalTotal + "0.000 MB)\r\n"},
      // The largest plans that fit, and one more.
      {0, 0xFFFFFF, 0xFFFFFF / 1048576.0, 0.0, 0xFFFFFF, 0xFFFFFF, 1, 1, 1, 0xFFFFFF / 1048576.0,
       0xFFFFFF / 1048576.0, ""},
      {0, 1, 4294967295.0 / 1048576.0, 0.0, 1, 1, 4294967295u, 4294967295u, 1, 4294967295.0 / 1048576.0,
       4294967295.0 / 1048576.0, ""},
      {0, 0x1000000, 128.0, 0.0, 0, 0, 0, 0, 0, 0, 0, kTooManyBlocks},
      {0, 1, 4096.0, 0.0, 0, 0, 0, 0, 0, 0, 0, kTooManyCommands},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.block_size << " " << c.transfer_length << " " << c.megabytes << " "
                                    << c.interval);
    reset_settings();
    reset_test_plan();
    test_settings.logical_block_size = c.block_size;
    test_settings.max_transfer_length = c.transfer_length;
    test_settings.total_megabytes = c.megabytes;
    test_settings.interval_megabytes = c.interval;
    test_settings.interval_given = c.interval != 0.0;
    int result = 0;
    std::string screen = screen_of([&] { result = size_test(); });
    if (c.screen.rfind("ERROR", 0) == 0) {
      EXPECT_EQ(-1, result);
      EXPECT_EQ(c.screen, screen);
      EXPECT_EQ(nullptr, data_buffer_1);
      continue;
    }
    ASSERT_EQ(0, result);
    EXPECT_EQ(c.screen + "setting null data pattern\r\n", screen);
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
  reset_test_plan();
  reset_settings();
}

}  // namespace
