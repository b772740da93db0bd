#include "drive_status/collection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "drive_status/dsc_config.h"
#include "settings/settings.h"
#include "testing/output_capture.h"
#include "transport/device_table.h"
#include "transport/transport_testing.h"

namespace {

// The drive's counters as the responder below reports them: two log pages
// (0x32 with 4-byte counters at parameter offsets 0, 4, 8, 12, and 0x31
// before it), Read Position data and sense data.
struct DriveCounters {
  uint32_t page_32[4];
  uint32_t block_position;
  uint8_t retries;
  bool page_32_missing;
  bool second_page_first;  // page 0x31 (8 bytes) comes before page 0x32
};
DriveCounters counters;

void put_32(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value >> 24);
  at[1] = static_cast<uint8_t>(value >> 16);
  at[2] = static_cast<uint8_t>(value >> 8);
  at[3] = static_cast<uint8_t>(value);
}

void answer(const PassThroughRequest& request, PassThroughReply& reply) {
  reply = PassThroughReply{};
  reply.transferred_length = request.data_length;
  std::memset(request.data, 0, request.data_length);
  uint8_t answer_bytes[256] = {};
  switch (request.cdb[0]) {
    case 0x4D: {  // Log Sense
      uint8_t* at = answer_bytes;
      if (counters.second_page_first || counters.page_32_missing) {
        at[0] = 0x31;
        at[3] = counters.page_32_missing ? 36 : 8;
        at += 4 + at[3];
      }
      if (!counters.page_32_missing) {
        at[0] = 0x32;
        at[3] = 16;
        for (int i = 0; i < 4; ++i) put_32(at + 4 + 4 * i, counters.page_32[i]);
      }
      break;
    }
    case 0x34:  // Read Position, short form: first block location at bytes 4-7
      put_32(answer_bytes + 4, counters.block_position);
      break;
    case 0x03:  // Request Sense: a vendor retry count at byte 18
      answer_bytes[0] = 0x70;
      answer_bytes[7] = 12;
      answer_bytes[18] = counters.retries;
      break;
    default:
      return;
  }
  std::memcpy(request.data, answer_bytes, std::min<uint32_t>(request.data_length, sizeof answer_bytes));
}

void select(int keyword, const char* command, uint8_t page, uint8_t offset, uint8_t length,
            uint32_t multiplier = 1) {
  DscEntry& entry = dsc_entries[keyword];
  std::snprintf(entry.command, sizeof entry.command, "%s", command);
  entry.page = page;
  entry.offset = offset;
  entry.length = length;
  entry.multiplier = multiplier;
  entry.selected = 1;
}

class DriveStatusTest : public FakeTransportTest {
 protected:
  void SetUp() override {
    FakeTransportTest::SetUp();
    reset_settings();
    reset_dsc_entries();
    reset_drive_status();
    counters = DriveCounters{};
    fake_add_tape_drive(0, 0, 2, 0);
    ASSERT_EQ(0, scan_devices());
    fake_set_responder(answer);
  }
  void TearDown() override {
    reset_dsc_entries();
    reset_drive_status();
    reset_settings();
    FakeTransportTest::TearDown();
  }
  std::string opcodes() const {
    std::string text;
    for (const FakeRequest& request : fake_requests()) {
      char code[4];
      std::snprintf(code, sizeof code, "%02x ", request.cdb[0]);
      text += code;
    }
    return text;
  }
};

TEST_F(DriveStatusTest, WriteIntervalGivesCompressionRatioAndRwrPercentage) {
  // The worked example: 1 MB moved, WCMP grows by half of it, DRWR by 1024.
  select(kDscWcmp, "LSD", 0x32, 0, 4);
  select(kDscDrwr, "LSD", 0x32, 4, 4);
  counters.page_32[0] = 1000;
  counters.page_32[1] = 50;
  ASSERT_EQ(0, collect_drive_status(0, 0, 0.0));
  EXPECT_EQ("00 4d 4d ", opcodes());
  EXPECT_EQ(1000.0, drive_status.wcmp);
  EXPECT_EQ(50.0, drive_status.drwr);

  counters.page_32[0] = 1000 + 524288;
  counters.page_32[1] = 50 + 1024;
  OutputCapture capture;
  ASSERT_EQ(0, collect_drive_status(1, 0, 1048576.0));
  EXPECT_EQ(
      "  write data compression ratio ............... 2.0 to 1\r\n"
      "  drive RWR percentage ....................... 0.1%\r\n",
      capture.screen());
  // Write Filemarks (count 0) flushes the drive's buffer before the after-phase.
  EXPECT_EQ("00 4d 4d 10 00 4d 4d ", opcodes());
  EXPECT_EQ("10 00 00 00 00 00", hex_bytes(fake_requests()[3].cdb));
  EXPECT_DOUBLE_EQ(1048576.0 + 1024.0, drive_status.tdwr);
  EXPECT_DOUBLE_EQ(1024.0 / (1048576.0 + 1024.0) * 100.0, drive_status.drwr);
  EXPECT_DOUBLE_EQ(drive_status.drwr, drive_status.max_rwr_percentage);
}

TEST_F(DriveStatusTest, ReadIntervalUsesAbsoluteDifferencesAndTheMeasuredAmount) {
  select(kDscTdrd, "LSD", 0x32, 0, 4);
  select(kDscRcmp, "LSD", 0x32, 4, 4, 2);
  select(kDscDecc, "LSD", 0x32, 8, 4);
  counters.page_32[0] = 300000;
  counters.page_32[1] = 100000;
  counters.page_32[2] = 900;
  ASSERT_EQ(0, collect_drive_status(0, 1, 0.0));
  // Counters that went down: the difference counts, not its sign.
  counters.page_32[0] = 100000;   // |ΔTDRD| = 200000
  counters.page_32[1] = 0;        // |ΔRCMP| = 2 × 100000
  counters.page_32[2] = 100;      // |ΔDECC| = 800: 0.4 % of 200000
  drive_status.max_ecc_percentage = 0.5;
  OutputCapture capture;
  ASSERT_EQ(0, collect_drive_status(1, 1, 400000.0));
  EXPECT_EQ(
      "  read data compression ratio ................ 2.0 to 1\r\n"
      "  drive ECC percentage ....................... 0.4%\r\n",
      capture.screen());
  EXPECT_EQ("00 4d 4d 4d 00 4d 4d 4d ", opcodes());  // no Write Filemarks after a read
  EXPECT_DOUBLE_EQ(200000.0, drive_status.tdrd);
  EXPECT_DOUBLE_EQ(0.5, drive_status.max_ecc_percentage);  // a larger maximum stays
}

TEST_F(DriveStatusTest, ZeroDifferencesGiveZeroInsteadOfDividing) {
  select(kDscTdwr, "LSD", 0x32, 0, 4);
  select(kDscWcmp, "LSD", 0x32, 4, 4);
  select(kDscDrwr, "LSD", 0x32, 8, 4);
  ASSERT_EQ(0, collect_drive_status(0, 0, 0.0));
  OutputCapture capture;
  ASSERT_EQ(0, collect_drive_status(1, 0, 65536.0));
  EXPECT_EQ(
      "  write data compression ratio ............... 0.0 to 1\r\n"
      "  drive RWR percentage ....................... 0.0%\r\n",
      capture.screen());
}

TEST_F(DriveStatusTest, PositionAndRetryCountersFollowEitherTestKind) {
  select(kDscRpos, "RPD", 0, 4, 4);
  select(kDscRwrc, "LSD", 0x32, 12, 4);
  select(kDscTkrc, "RSD", 0, 18, 1);
  counters.block_position = 0x802;
  counters.page_32[3] = 0x134;
  counters.retries = 7;
  // The before-phase reads none of them.
  ASSERT_EQ(0, collect_drive_status(0, 0, 0.0));
  EXPECT_EQ("00 ", opcodes());
  OutputCapture capture;
  ASSERT_EQ(0, collect_drive_status(1, 0, 1048576.0));
  EXPECT_EQ(
      "  tape logical block position ................ 0x802\r\n"
      "  drive read/write retry counter ............. 0x34\r\n"
      "  drive tracking retry counter ............... 0x07\r\n",
      capture.screen());
  // No write keyword selected: Test Unit Ready only, no Write Filemarks.
  EXPECT_EQ("00 00 34 4d 03 ", opcodes());
  EXPECT_EQ(0x134, drive_status.rwrc);
}

TEST_F(DriveStatusTest, LogSensePagesAreWalkedToTheRequestedOne) {
  select(kDscTdwr, "LSD", 0x32, 0, 4, 1000);
  counters.second_page_first = true;
  counters.page_32[0] = 12;
  double value = -1.0;
  ASSERT_EQ(0, read_drive_value(kDscTdwr, &value));
  EXPECT_EQ(12000.0, value);
  // Page code 0x32, page control 1 (cumulative values), allocation length 40.
  EXPECT_EQ("4d 00 72 00 00 00 00 00 28 00", hex_bytes(fake_requests().back().cdb));
}

TEST_F(DriveStatusTest, ValuesThatCannotBeReadEndTheCollection) {
  select(kDscTdwr, "LSD", 0x32, 0, 4);
  double value = -1.0;
  {
    counters.page_32_missing = true;
    OutputCapture capture;
    EXPECT_EQ(-1, read_drive_value(kDscTdwr, &value));
    const std::string line =
        "ERROR: invalid \"Log Sense\" data (cannot find requested page data)\r\nat SCSI id 2 LUN 0\r\n";
    EXPECT_EQ(line, capture.screen().substr(0, line.size()));
    EXPECT_GT(capture.screen().size(), line.size());  // the dump of the 40 bytes
    counters.page_32_missing = false;
  }
  {
    // A field past the 36 bytes of page data is never read.
    select(kDscTdwr, "LSD", 0x32, 34, 4);
    OutputCapture capture;
    EXPECT_EQ(-1, read_drive_value(kDscTdwr, &value));
    EXPECT_EQ(
        "ERROR: drive status field (offset 34, length 4) lies outside the \"LSD\" data\r\n"
        "at SCSI id 2 LUN 0\r\n",
        capture.screen());
  }
  const struct {
    const char* command;
    uint8_t opcode;
    const char* line;
  } failures[] = {
      {"LSD", 0x4D, "ERROR: unable to get drive status information with \"Log Sense\" command\r\nat SCSI id 2 LUN 0\r\n"},
      {"RPD", 0x34,
       "ERROR: unable to get drive status information with \"Read Position\" command\r\nat SCSI id 2 LUN 0\r\n"},
      {"RSD", 0x03,
       "ERROR: unable to get drive status information with \"Request Sense\" command\r\nat SCSI id 2 LUN 0\r\n"},
  };
  for (const auto& f : failures) {
    select(kDscTdwr, f.command, 0x32, 0, 1);
    fake_script_reply(FakeReply{});  // the collection's Test Unit Ready
    fake_script_check_condition(0x05, 0x24, 0x00);
    OutputCapture capture;
    EXPECT_EQ(-1, collect_drive_status(0, 0, 0.0));
    EXPECT_EQ(f.opcode, fake_requests().back().cdb[0]);
    std::string screen = capture.screen();
    EXPECT_EQ(f.line, screen.substr(0, std::strlen(f.line)));
  }
  EXPECT_EQ(-1.0, value);  // left unchanged by every failure
  EXPECT_EQ(0.0, drive_status.tdwr);
}

}  // namespace
