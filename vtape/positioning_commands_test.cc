// Space(6) and Read Position of the virtual drive against SSC.
#include <gtest/gtest.h>

#include <vector>

#include "vtape/vtape_testing.h"

namespace {

// Tape used by the spacing cases: objects 0-1 records, 2 filemark,
// 3-5 records, 6-7 filemarks, 8 record, then end of data (9).
PlatformHandle tape_with_files() {
  PlatformHandle h = ready_vtape();
  std::vector<uint8_t> record(32, 0x5A);
  write_bytes(h, record);
  write_bytes(h, record);
  write_filemarks(h, 1);
  for (int i = 0; i < 3; ++i) write_bytes(h, record);
  write_filemarks(h, 2);
  write_bytes(h, record);
  return h;
}

TEST(VtapeSpace, StopsWhereTheStandardSays) {
  struct Case {
    const char* name;
    int64_t start;
    uint8_t code;
    int32_t count;
    int64_t end;
    uint8_t key;   // 0 with status GOOD when ascq is 0
    uint8_t ascq;  // 0 good, 1 filemark, 4 beginning of tape, 5 end of data
    int32_t residue;
  };
  const Case cases[] = {
      {"blocks forward", 0, 0, 2, 2, 0, 0, 0},
      {"blocks forward meet a filemark", 0, 0, 3, 3, 0x0, 0x01, 1},
      {"blocks forward meet end of data", 8, 0, 3, 9, 0x8, 0x05, 2},
      {"blocks back", 5, 0, -2, 3, 0, 0, 0},
      {"blocks back meet a filemark", 4, 0, -3, 2, 0x0, 0x01, -2},
      {"blocks back meet beginning of tape", 1, 0, -4, 0, 0x0, 0x04, -3},
      {"filemarks forward", 0, 1, 1, 3, 0, 0, 0},
      {"filemarks forward over two", 0, 1, 3, 8, 0, 0, 0},
      {"filemarks forward meet end of data", 0, 1, 5, 9, 0x8, 0x05, 2},
      {"filemarks back", 9, 1, -1, 7, 0, 0, 0},
      {"filemarks back over three", 9, 1, -3, 2, 0, 0, 0},
      {"filemarks back meet beginning of tape", 9, 1, -4, 0, 0x0, 0x04, -1},
      {"end of data", 0, 3, 0, 9, 0, 0, 0},
      {"count zero", 4, 0, 0, 4, 0, 0, 0},
  };
  for (const Case& c : cases) {
    PlatformHandle h = tape_with_files();
    rewind_tape(h);
    // Reach the start object by object so that the cases do not rely on spacing.
    std::vector<uint8_t> buffer(32);
    while (tape_position(h) < c.start) read_bytes(h, &buffer, 32);
    ASSERT_EQ(c.start, tape_position(h)) << c.name;
    Answer a = space(h, c.code, c.count);
    EXPECT_EQ(c.end, tape_position(h)) << c.name;
    if (c.ascq == 0) {
      EXPECT_EQ(0, a.status) << c.name;
      continue;
    }
    EXPECT_EQ(2, a.status) << c.name;
    EXPECT_EQ(c.key, a.key()) << c.name;
    EXPECT_EQ(0x00, a.asc()) << c.name;
    EXPECT_EQ(c.ascq, a.ascq()) << c.name;
    EXPECT_EQ(c.ascq == 0x01, a.filemark()) << c.name;
    EXPECT_EQ(c.ascq == 0x04, a.end_of_medium()) << c.name;
    EXPECT_TRUE(a.valid()) << c.name;
    EXPECT_EQ(c.residue, a.information()) << c.name;
  }
}

TEST(VtapeSpace, UnsupportedCodesAreInvalidFieldInCdb) {
  PlatformHandle h = tape_with_files();
  for (int code : {2, 4, 5}) {
    Answer a = space(h, static_cast<uint8_t>(code), 1);
    EXPECT_EQ(0x5, a.key()) << code;
    EXPECT_EQ(0x24, a.asc()) << code;
  }
}

TEST(VtapeReadPosition, ShortFormReportsBlockLocationAndBeginningOfTape) {
  PlatformHandle h = tape_with_files();
  rewind_tape(h);
  uint8_t data[20];
  std::fill(std::begin(data), std::end(data), 0xEE);
  Answer at_start = send_cdb(h, {0x34, 0, 0, 0, 0, 0, 0, 0, 0, 0}, data, 20);
  EXPECT_EQ(0, at_start.status);
  EXPECT_EQ(20u, at_start.transferred);
  EXPECT_EQ(0x80, data[0]);  // BOP
  for (int i = 4; i < 20; ++i) EXPECT_EQ(0, data[i]) << i;
  space(h, 1, 1);
  send_cdb(h, {0x34, 0, 0, 0, 0, 0, 0, 0, 0, 0}, data, 20);
  EXPECT_EQ(0x00, data[0]);
  EXPECT_EQ(3, data[7]);   // first block location
  EXPECT_EQ(3, data[11]);  // last block location
  Answer long_form = send_cdb(h, {0x34, 0x06, 0, 0, 0, 0, 0, 0, 0, 0}, data, 20);
  EXPECT_EQ(0x24, long_form.asc());
}

TEST(VtapeReadPosition, EndOfPartitionFlagInTheWarningZone) {
  PlatformHandle h = ready_vtape("capacity_mb = 2\nearly_warning_mb = 1\ncompression = off\n");
  std::vector<uint8_t> record(1048576, 0x11);
  write_bytes(h, record);
  uint8_t data[20] = {};
  send_cdb(h, {0x34, 0, 0, 0, 0, 0, 0, 0, 0, 0}, data, 20);
  EXPECT_EQ(0x40, data[0]);  // EOP
  rewind_tape(h);
  send_cdb(h, {0x34, 0, 0, 0, 0, 0, 0, 0, 0, 0}, data, 20);
  EXPECT_EQ(0x80, data[0]);
}

}  // namespace
