#include "engine/transfer_loops.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "engine/data_patterns.h"
#include "engine/sizing.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "testing/output_capture.h"
#include "transport/device_table.h"
#include "transport/transport_testing.h"

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

// The loops on the scriptable platform: one tape drive at SCSI id 2 LUN 0.
class TransferLoopTest : public FakeTransportTest {
 protected:
  void SetUp() override {
    FakeTransportTest::SetUp();
    reset_settings();
    reset_test_plan();
    fake_add_tape_drive(0, 0, 2, 0);
    ASSERT_EQ(0, scan_devices());
    ASSERT_EQ(0, allocate_data_buffers());
    ASSERT_EQ(0, randomize_buffer(0, data_buffer_1, test_settings.max_transfer_length, 0, 0));
  }
  void TearDown() override {
    reset_rw_buffer();
    reset_test_plan();
    reset_settings();
    FakeTransportTest::TearDown();
  }
  std::vector<uint8_t> reference() const {
    return std::vector<uint8_t>(data_buffer_1, data_buffer_1 + test_settings.max_transfer_length);
  }
  void script_good_reads(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      FakeReply reply;
      reply.data_in = reference();
      fake_script_reply(reply);
    }
  }
};

TEST_F(TransferLoopTest, WriteLoopSendsEveryCommandFromBufferOneAndCountsWholeMegabytes) {
  ASSERT_EQ(0, set_rw_buffer(data_buffer_1, test_settings.max_transfer_length));
  uint32_t commands = 33;
  double elapsed = -1.0;
  uint8_t end_of_medium = 0;
  OutputCapture capture;
  EXPECT_EQ(0, run_write_loop(64, &commands, &elapsed, &end_of_medium));
  EXPECT_EQ(33u, commands);
  EXPECT_EQ(0, end_of_medium);
  EXPECT_GE(elapsed, 0.0);
  EXPECT_EQ("1 MB\r2 MB\r", capture.screen());  // after the 16th and the 32nd Write
  ASSERT_EQ(33u, fake_requests().size());
  for (const FakeRequest& request : fake_requests()) {
    ASSERT_EQ("0a 01 00 00 40 00", hex_bytes(request.cdb));
    ASSERT_EQ(DataDirection::out, request.direction);
    ASSERT_EQ(0x10000u, request.data_length);
    ASSERT_EQ(data_buffer_1, request.data);
  }
}

TEST_F(TransferLoopTest, WriteLoopEndsAtEarlyWarningAndFailsOnAnyOtherError) {
  const struct {
    uint8_t sense_key, flags;
    int result;
    uint8_t end_of_medium;
    const char* first_line;
  } cases[] = {
      {0x00, 0x40, 0, 1,
       "hit \"EOM\" writing data at SCSI id 2 LUN 0 (aborting all write testing)\r\n"},
      {0x0D, 0x40, -1, 0,
       "ERROR: failure writing data at SCSI id 2 LUN 0 (aborting all write testing)\r\n"},
      {0x03, 0x00, -1, 0,
       "ERROR: failure writing data at SCSI id 2 LUN 0 (aborting all write testing)\r\n"},
  };
  for (const auto& c : cases) {
    fake_reset();
    fake_add_tape_drive(0, 0, 2, 0);
    ASSERT_EQ(0, scan_devices());
    ASSERT_EQ(0, set_rw_buffer(data_buffer_1, test_settings.max_transfer_length));
    for (int i = 0; i < 4; ++i) fake_script_reply(FakeReply{});
    fake_script_check_condition(c.sense_key, 0, 0, c.flags);
    uint32_t commands = 2048;
    double elapsed = 0.0;
    uint8_t end_of_medium = 0;
    OutputCapture capture;
    EXPECT_EQ(c.result, run_write_loop(64, &commands, &elapsed, &end_of_medium));
    EXPECT_EQ(c.result == 0 ? 5u : 2048u, commands);
    EXPECT_EQ(c.end_of_medium, end_of_medium);
    EXPECT_EQ(5u, fake_requests().size());
    std::string screen = capture.screen();
    EXPECT_EQ(c.first_line, screen.substr(0, std::strlen(c.first_line)));
    // The end of the medium is a notice; a failure adds the status report.
    EXPECT_EQ(c.result == 0, screen == c.first_line);
  }
}

TEST_F(TransferLoopTest, ReadLoopComparesEveryBlockAndEndsAtBlankCheckFilemarkOrMiscompare) {
  std::vector<uint8_t> corrupt = reference();
  corrupt[0x234] ^= 0x01;
  const struct {
    const char* name;
    unsigned good_reads;
    int last;  // 0 blank check, 1 filemark, 2 corrupt data
    int result;
    uint32_t commands;
    uint8_t end_of_medium;
    const char* first_line;
  } cases[] = {
      {"blank check", 4, 0, 0, 5, 1,
       "hit \"blank check\" reading/comparing data at SCSI id 2 LUN 0 (aborting all\r\nread testing)\r\n"},
      {"filemark", 1, 1, -1, 2048, 0,
       "ERROR: failure reading/comparing data at SCSI id 2 LUN 0 (aborting all read\r\ntesting)\r\n"},
      {"miscompare", 2, 2, -1, 3, 0,
       "ERROR: data miscompare after read command 3 at offset 0x234\r\nfor SCSI id 2 LUN 0\r\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fake_reset();
    fake_add_tape_drive(0, 0, 2, 0);
    ASSERT_EQ(0, scan_devices());
    ASSERT_EQ(0, set_rw_buffer(data_buffer_2, test_settings.max_transfer_length));
    script_good_reads(c.good_reads);
    if (c.last == 0) fake_script_check_condition(0x08, 0x00, 0x05);
    if (c.last == 1) fake_script_check_condition(0x00, 0x00, 0x01, 0x80);
    if (c.last == 2) {
      FakeReply reply;
      reply.data_in = corrupt;
      fake_script_reply(reply);
    }
    uint32_t commands = 2048;
    double elapsed = 0.0;
    uint8_t end_of_medium = 0;
    OutputCapture capture;
    EXPECT_EQ(c.result, run_read_compare_loop(64, &commands, data_buffer_1, &elapsed, &end_of_medium));
    EXPECT_EQ(c.commands, commands);
    EXPECT_EQ(c.end_of_medium, end_of_medium);
    EXPECT_EQ(c.good_reads + 1, fake_requests().size());  // nothing read after the end
    std::string screen = capture.screen();
    EXPECT_EQ(c.first_line, screen.substr(0, std::strlen(c.first_line)));
    EXPECT_EQ(c.last != 1, screen == c.first_line);  // only the failed Read has a status report
    for (const FakeRequest& request : fake_requests()) {
      ASSERT_EQ("08 01 00 00 40 00", hex_bytes(request.cdb));
      ASSERT_EQ(DataDirection::in, request.direction);
      ASSERT_EQ(data_buffer_2, request.data);
    }
  }
}

// A clock that moves 20 seconds at every reading.
uint32_t fake_clock_ms = 0;
uint32_t twenty_seconds_a_reading() { return fake_clock_ms += 20000; }

TEST_F(TransferLoopTest, ProgressCarriesTheRemainderOfEachMegabyte) {
  test_settings.logical_block_size = 0;
  const struct {
    uint32_t length, commands;
    const char* progress;
    ProgressStyle style = ProgressStyle::overwrite;
  } cases[] = {
      {100000, 21, "1 MB\r2 MB\r"},  // 1 MB after the 11th, 2 MB after the 21st
      {100000, 10, ""},
      {0x200000, 3, "2 MB\r4 MB\r6 MB\r"},
      {0x10000, 0, ""},
      // Off a terminal: a line a minute. The style is set at 20 s, the loop
      // starts at 40 s, MB n is counted at 40 + 20n s.
      {0x100000, 6, "2 MB\r\n5 MB\r\n", ProgressStyle::minutely},
  };
  set_loop_clock(twenty_seconds_a_reading);
  for (const auto& c : cases) {
    fake_clock_ms = 0;
    set_progress_style(c.style);
    reset_test_plan();
    test_settings.max_transfer_length = c.length;
    ASSERT_EQ(0, allocate_data_buffers());
    ASSERT_EQ(0, set_rw_buffer(data_buffer_1, c.length));
    fake_reset();
    fake_add_tape_drive(0, 0, 2, 0);
    ASSERT_EQ(0, scan_devices());
    uint32_t commands = c.commands;
    double elapsed = 0.0;
    uint8_t end_of_medium = 0;
    OutputCapture capture;
    EXPECT_EQ(0, run_write_loop(c.length, &commands, &elapsed, &end_of_medium));
    EXPECT_EQ(c.progress, capture.screen()) << c.length << " x " << c.commands;
    EXPECT_EQ(c.commands, fake_requests().size());
  }
  set_progress_style(ProgressStyle::overwrite);
  set_loop_clock(nullptr);
}

}  // namespace
