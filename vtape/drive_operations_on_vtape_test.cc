// The program's own transport and drive operations on the virtual drive:
// the road a test takes (block mode, rewind, the two filemarks, Write(6),
// spacing back over the filemarks, Read(6), unload and reload).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "run/run_sequence.h"
#include "run/settings.h"
#include "tape/command_blocks.h"
#include "tape/drive_operations.h"
#include "testing/output_capture.h"
#include "transport/device_table.h"
#include "transport/scsi_transport.h"
#include "vtape/virtual_drive.h"
#include "vtape/vtape_testing.h"

namespace {

void ignore_break(int) {}

class DriveOperationsOnVtape : public ::testing::Test {
 protected:
  void start(const std::string& description) {
    reset_program_state();
    ASSERT_EQ(0, configure_vtape(description));
    set_active_platform(vtape_platform());
    ASSERT_EQ(0, start_transport(ignore_break));
    ASSERT_EQ(0, set_target_id(2));
    ASSERT_EQ(0, set_lun(0));
    scsi_test_unit_ready();  // takes the power-on unit attention
    scsi_test_unit_ready();
    ASSERT_FALSE(command_failed());
  }
  void TearDown() override {
    shutdown_transport();
    set_active_platform(nullptr);
    reset_program_state();
  }
};

TEST_F(DriveOperationsOnVtape, WriteThenReadBackAfterTheTwoFilemarks) {
  start("");
  OutputCapture capture;
  test_settings.logical_block_size = 0x400;
  ASSERT_EQ(0, set_block_mode()) << capture.screen();
  ASSERT_EQ(0, rewind_tape()) << capture.screen();
  uint8_t end_of_medium = 0;
  ASSERT_EQ(0, write_two_filemarks(&end_of_medium)) << capture.screen();
  std::vector<uint8_t> written(0x10000);
  for (size_t i = 0; i < written.size(); ++i) written[i] = static_cast<uint8_t>(i * 13);
  ASSERT_EQ(0, set_rw_buffer(written.data(), 0x10000));
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(0, scsi_write(0x40));
    ASSERT_FALSE(command_failed());
  }
  ASSERT_EQ(0, rewind_tape());
  ASSERT_EQ(0, space_two_filemarks(&end_of_medium));
  EXPECT_EQ(0, end_of_medium);
  std::vector<uint8_t> read(0x10000);
  ASSERT_EQ(0, set_rw_buffer(read.data(), 0x10000));
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(0, scsi_read(0x40));
    ASSERT_FALSE(command_failed());
    ASSERT_EQ(written, read);
  }
  scsi_read(0x40);  // end of data: BLANK CHECK
  EXPECT_TRUE(command_failed());
  EXPECT_EQ(0x08, scsi_transport.result.sense_data[2] & 0x0F);
  EXPECT_EQ(0x05, scsi_transport.result.sense_data[13]);
}

TEST_F(DriveOperationsOnVtape, UnloadReloadWaitsUntilTheDriveIsReadyAgain) {
  start("prevent_allow = unsupported\n");
  OutputCapture capture;
  EXPECT_EQ(0, unload_reload()) << capture.screen();
  EXPECT_EQ("\r\nunloading/reloading drive ...\r\n", capture.screen());
  EXPECT_EQ(0, removal_lock_step);  // Prevent was refused as unsupported, silently
  scsi_test_unit_ready();
  EXPECT_FALSE(command_failed());
}

}  // namespace
