// Read(6), Write(6), Write Filemarks and Rewind of the virtual drive, with
// the answers SSC prescribes.
#include <gtest/gtest.h>

#include <vector>

#include "vtape/drive_state.h"
#include "vtape/vtape_testing.h"

namespace {

std::vector<uint8_t> record_of(uint32_t length, uint8_t seed) {
  std::vector<uint8_t> record(length);
  for (uint32_t i = 0; i < length; ++i) record[i] = static_cast<uint8_t>(seed + i * 7);
  return record;
}

TEST(VtapeReadWrite, RecordsReadBackInOrderThenEndOfDataIsBlankCheck) {
  PlatformHandle h = ready_vtape();
  ASSERT_EQ(0, write_bytes(h, record_of(100, 1)).status);
  ASSERT_EQ(0, write_bytes(h, record_of(200, 2)).status);
  ASSERT_EQ(0, rewind_tape(h).status);
  std::vector<uint8_t> buffer(200);
  Answer first = read_bytes(h, &buffer, 100);
  EXPECT_EQ(0, first.status);
  EXPECT_EQ(100u, first.transferred);
  EXPECT_EQ(record_of(100, 1), std::vector<uint8_t>(buffer.begin(), buffer.begin() + 100));
  Answer second = read_bytes(h, &buffer, 200);
  EXPECT_EQ(0, second.status);
  EXPECT_EQ(record_of(200, 2), buffer);
  Answer end = read_bytes(h, &buffer, 200);
  EXPECT_EQ(2, end.status);
  EXPECT_EQ(0x8, end.key());  // BLANK CHECK
  EXPECT_EQ(0x00, end.asc());
  EXPECT_EQ(0x05, end.ascq());  // END-OF-DATA DETECTED
  EXPECT_TRUE(end.valid());
  EXPECT_EQ(200, end.information());
  EXPECT_EQ(0u, end.transferred);
}

TEST(VtapeReadWrite, WritingInTheMiddleMakesTheNewEndOfData) {
  PlatformHandle h = ready_vtape();
  for (uint8_t i = 0; i < 3; ++i) write_bytes(h, record_of(64, i));
  rewind_tape(h);
  ASSERT_EQ(0, space(h, 0, 1).status);
  ASSERT_EQ(0, write_bytes(h, record_of(64, 9)).status);
  EXPECT_EQ(2, tape_position(h));
  std::vector<uint8_t> buffer(64);
  Answer a = read_bytes(h, &buffer, 64);
  EXPECT_EQ(0x8, a.key());
  EXPECT_EQ(0x05, a.ascq());
}

TEST(VtapeReadWrite, FilemarkReadIsNoSenseWithFilemarkAndPositionsAfterIt) {
  PlatformHandle h = ready_vtape();
  write_filemarks(h, 1);
  write_bytes(h, record_of(10, 3));
  rewind_tape(h);
  std::vector<uint8_t> buffer(10);
  Answer a = read_bytes(h, &buffer, 10);
  EXPECT_EQ(2, a.status);
  EXPECT_EQ(0x0, a.key());
  EXPECT_TRUE(a.filemark());
  EXPECT_EQ(0x00, a.asc());
  EXPECT_EQ(0x01, a.ascq());  // FILEMARK DETECTED
  EXPECT_EQ(10, a.information());
  EXPECT_EQ(1, tape_position(h));
  EXPECT_EQ(0, read_bytes(h, &buffer, 10).status);
}

// Variable block reads of a record shorter or longer than asked for (SSC):
// ILI with the residue, unless SILI hides it.
TEST(VtapeReadWrite, IncorrectLengthInVariableMode) {
  struct Case {
    uint32_t record;
    uint32_t asked;
    bool sili;
    bool check_condition;
    int32_t information;
    uint32_t transferred;
  };
  const Case cases[] = {
      {100, 150, false, true, 50, 100},   // short record: residue positive
      {150, 100, false, true, -50, 100},  // long record: residue negative
      {100, 150, true, false, 0, 100},    // SILI hides the short record
      {150, 100, true, false, 0, 100},    // and the long one in variable block mode
  };
  for (const Case& c : cases) {
    PlatformHandle h = ready_vtape();
    write_bytes(h, record_of(c.record, 5));
    rewind_tape(h);
    std::vector<uint8_t> buffer(c.asked);
    Answer a = read_bytes(h, &buffer, c.asked, false, c.sili);
    EXPECT_EQ(c.check_condition ? 2 : 0, a.status) << c.record << " " << c.asked;
    EXPECT_EQ(c.transferred, a.transferred);
    if (c.check_condition) {
      EXPECT_EQ(0x0, a.key());
      EXPECT_TRUE(a.incorrect_length());
      EXPECT_TRUE(a.valid());
      EXPECT_EQ(c.information, a.information());
    }
    EXPECT_EQ(1, tape_position(h));  // the record is passed either way
  }
}

TEST(VtapeReadWrite, FixedBlocksWrittenAndReadBack) {
  PlatformHandle h = ready_vtape();
  ASSERT_EQ(0, select_block_mode(h, 0, 512).status);
  std::vector<uint8_t> data = record_of(512 * 4, 11);
  Answer w = write_bytes(h, data, true, 4);
  ASSERT_EQ(0, w.status);
  EXPECT_EQ(2048u, w.transferred);
  EXPECT_EQ(4, tape_position(h));
  rewind_tape(h);
  ASSERT_EQ(0, space(h, 0, 1).status);
  std::vector<uint8_t> buffer(512 * 2);
  ASSERT_EQ(0, read_bytes(h, &buffer, 2, true).status);
  EXPECT_EQ(std::vector<uint8_t>(data.begin() + 512, data.begin() + 1536), buffer);
  std::vector<uint8_t> rest(512 * 3);
  Answer a = read_bytes(h, &rest, 3, true);
  EXPECT_EQ(0x8, a.key());  // one block left, then end of data
  EXPECT_EQ(2, a.information());
  EXPECT_EQ(512u, a.transferred);
}

TEST(VtapeReadWrite, FixedReadOfARecordOfAnotherLengthReportsBlocksNotRead) {
  PlatformHandle h = ready_vtape();
  write_bytes(h, record_of(512, 1));
  write_bytes(h, record_of(300, 2));
  rewind_tape(h);
  select_block_mode(h, 0, 512);
  std::vector<uint8_t> buffer(512 * 3);
  Answer a = read_bytes(h, &buffer, 3, true);
  EXPECT_EQ(2, a.status);
  EXPECT_TRUE(a.incorrect_length());
  EXPECT_EQ(2, a.information());  // 3 asked, 1 read, the short one not counted
  EXPECT_EQ(2, tape_position(h));
}

TEST(VtapeReadWrite, InvalidFieldsAreIllegalRequest) {
  PlatformHandle h = ready_vtape();
  std::vector<uint8_t> buffer(512);
  Answer fixed_in_variable_mode = read_bytes(h, &buffer, 1, true);
  EXPECT_EQ(0x5, fixed_in_variable_mode.key());
  EXPECT_EQ(0x24, fixed_in_variable_mode.asc());
  select_block_mode(h, 0, 512);
  Answer fixed_with_sili = read_bytes(h, &buffer, 1, true, true);
  EXPECT_EQ(0x24, fixed_with_sili.asc());
  Answer wsmk = send_cdb(h, {0x10, 0x02, 0, 0, 1, 0});
  EXPECT_EQ(0x5, wsmk.key());
  EXPECT_EQ(0x24, wsmk.asc());
}

TEST(VtapeReadWrite, VariableRecordOutsideTheBlockLimitsIsRefused) {
  PlatformHandle h = ready_vtape("min_block = 4\nmax_block = 1024\n");
  Answer too_long = write_bytes(h, std::vector<uint8_t>(1025));
  EXPECT_EQ(0x5, too_long.key());
  EXPECT_EQ(0x24, too_long.asc());
  EXPECT_EQ(0x5, write_bytes(h, std::vector<uint8_t>(3)).key());
  EXPECT_EQ(0, write_bytes(h, std::vector<uint8_t>(1024)).status);
  EXPECT_EQ(1, tape_position(h));
}

TEST(VtapeReadWrite, EarlyWarningIsNoSenseWithEomAndOverflowIsVolumeOverflow) {
  // 3 MB tape, warning zone the last 1 MB, incompressible 512 KB records.
  PlatformHandle h = ready_vtape("capacity_mb = 3\nearly_warning_mb = 1\ncompression = off\n");
  std::vector<uint8_t> record = record_of(512 * 1024, 1);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(0, write_bytes(h, record).status) << i;
  Answer warning = write_bytes(h, record);  // data reaches 2 MB: in the zone
  EXPECT_EQ(2, warning.status);
  EXPECT_EQ(0x0, warning.key());
  EXPECT_TRUE(warning.end_of_medium());
  EXPECT_EQ(0x00, warning.asc());
  EXPECT_EQ(0x02, warning.ascq());
  EXPECT_EQ(512u * 1024, warning.transferred);
  EXPECT_EQ(2, write_bytes(h, record).status);   // 2.5 MB, still written
  EXPECT_EQ(0x0, write_bytes(h, record).key());  // 3 MB exactly
  Answer overflow = write_bytes(h, record);
  EXPECT_EQ(2, overflow.status);
  EXPECT_EQ(0xD, overflow.key());
  EXPECT_TRUE(overflow.end_of_medium());
  EXPECT_EQ(0x02, overflow.ascq());
  EXPECT_EQ(512 * 1024, overflow.information());
  EXPECT_EQ(6, tape_position(h));
  Answer filemark = write_filemarks(h, 1);
  EXPECT_EQ(0xD, filemark.key());
}

TEST(VtapeReadWrite, IdenticalRecordsAreStoredOnce) {
  PlatformHandle h = ready_vtape();
  std::vector<uint8_t> record = record_of(65536, 3);
  write_filemarks(h, 2);
  for (int i = 0; i < 100000; ++i) ASSERT_EQ(0, write_bytes(h, record).status);
  const Cartridge& tape = virtual_drive().cartridge;
  EXPECT_EQ(2u, tape.runs.size());  // the filemarks and one repeated record
  EXPECT_EQ(65536u, stored_data_bytes(tape));
  EXPECT_EQ(100002, tape_position(h));
  // Every copy reads back.
  ASSERT_EQ(0, space(h, 0, -50000).status);
  std::vector<uint8_t> buffer(65536);
  ASSERT_EQ(0, read_bytes(h, &buffer, 65536).status);
  EXPECT_EQ(record, buffer);
}

TEST(VtapeReadWrite, FixedCommandsOfIdenticalBuffersAreStoredOnce) {
  PlatformHandle h = ready_vtape();
  select_block_mode(h, 0, 1024);
  std::vector<uint8_t> buffer = record_of(65536, 4);  // 64 different blocks per command
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(0, write_bytes(h, buffer, true, 64).status);
  EXPECT_EQ(1u, virtual_drive().cartridge.runs.size());
  EXPECT_EQ(65536u, stored_data_bytes(virtual_drive().cartridge));
  // Rewriting from inside a command's blocks keeps the blocks before it.
  rewind_tape(h);
  space(h, 0, 64 * 10 + 3);
  write_bytes(h, record_of(1024, 99), true, 1);
  EXPECT_EQ(64 * 10 + 4, tape_position(h));
  space(h, 0, -2);
  std::vector<uint8_t> block(1024);
  ASSERT_EQ(0, read_bytes(h, &block, 1, true).status);
  EXPECT_EQ(std::vector<uint8_t>(buffer.begin() + 2048, buffer.begin() + 3072), block);
}

TEST(VtapeReadWrite, WriteFilemarksWithCountZeroOnlyFlushes) {
  PlatformHandle h = ready_vtape();
  write_bytes(h, record_of(10, 1));
  rewind_tape(h);
  EXPECT_EQ(0, write_filemarks(h, 0).status);
  std::vector<uint8_t> buffer(10);
  EXPECT_EQ(0, read_bytes(h, &buffer, 10).status);  // nothing was cut off
}

}  // namespace
