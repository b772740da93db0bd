#include "tape/command_blocks.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "testing/output_capture.h"
#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "transport/scsi_transport.h"
#include "transport/transport_testing.h"

namespace {

class CommandBlocks : public FakeTransportTest {
 protected:
  void SetUp() override {
    FakeTransportTest::SetUp();
    fake_add_tape_drive(0, 0, 2, 0);
    fake_add_tape_drive(0, 0, 2, 3);
    ASSERT_EQ(0, scan_devices());
  }
};

TEST_F(CommandBlocks, EveryBuilderSendsItsExactBytes) {
  static uint8_t data[0x10000];
  struct Case {
    const char* name;
    uint8_t lun;
    uint8_t fixed;
    std::function<void()> send;
    std::string cdb;
    uint8_t* buffer;
    uint32_t length;
  } cases[] = {
      {"test unit ready", 0, 1, [] { scsi_test_unit_ready(); }, "00 00 00 00 00 00",
       no_data_buffer, 0},
      {"test unit ready, LUN 3", 3, 1, [] { scsi_test_unit_ready(); }, "00 60 00 00 00 00",
       no_data_buffer, 0},
      {"request sense", 0, 1, [] { scsi_request_sense(255); }, "03 00 00 00 ff 00", sense_buffer,
       255},
      {"inquiry", 0, 1, [] { scsi_inquiry(255); }, "12 00 00 00 ff 00", inquiry_buffer, 255},
      {"mode sense", 0, 1, [] { scsi_mode_sense(12); }, "1a 00 00 00 0c 00", mode_buffer, 12},
      {"mode select", 0, 1, [] { scsi_mode_select(12, 0); }, "15 00 00 00 0c 00", mode_buffer, 12},
      {"mode select, PF", 3, 1, [] { scsi_mode_select(12, 1); }, "15 70 00 00 0c 00", mode_buffer,
       12},
      {"rewind", 0, 1, [] { scsi_rewind(0); }, "01 00 00 00 00 00", no_data_buffer, 0},
      {"rewind immediate", 0, 1, [] { scsi_rewind(5); }, "01 01 00 00 00 00", no_data_buffer, 0},
      {"write fixed, LUN 3", 3, 1, [] { scsi_write(0x40); }, "0a 61 00 00 40 00", data,
       sizeof data},
      {"write variable", 0, 0, [] { scsi_write(0x10000); }, "0a 00 01 00 00 00", data,
       sizeof data},
      {"write 24 bits", 0, 1, [] { scsi_write(0x1234567); }, "0a 01 23 45 67 00", data,
       sizeof data},
      {"read fixed", 0, 1, [] { scsi_read(0x40); }, "08 01 00 00 40 00", data, sizeof data},
      {"read variable", 0, 0, [] { scsi_read(0x10000); }, "08 00 01 00 00 00", data,
       sizeof data},
      {"write filemarks", 0, 1, [] { scsi_write_filemarks(2); }, "10 00 00 00 02 00",
       no_data_buffer, 0},
      {"space filemarks", 0, 1, [] { scsi_space(1, 2); }, "11 01 00 00 02 00", no_data_buffer, 0},
      {"space backward", 0, 1, [] { scsi_space(1, -1); }, "11 01 ff ff ff 00", no_data_buffer, 0},
      {"space code cut", 3, 1, [] { scsi_space(7, 1); }, "11 63 00 00 01 00", no_data_buffer, 0},
      {"load", 0, 1, [] { scsi_load_unload(0, 0, 1); }, "1b 00 00 00 01 00", no_data_buffer, 0},
      {"unload", 0, 1, [] { scsi_load_unload(0, 0, 0); }, "1b 00 00 00 00 00", no_data_buffer, 0},
      {"load retension immediate", 0, 1, [] { scsi_load_unload(1, 1, 1); }, "1b 01 00 00 03 00",
       no_data_buffer, 0},
      {"prevent", 0, 1, [] { scsi_prevent_allow(1); }, "1e 00 00 00 01 00", no_data_buffer, 0},
      {"allow", 0, 1, [] { scsi_prevent_allow(0); }, "1e 00 00 00 00 00", no_data_buffer, 0},
      {"prevent 2 allows", 0, 1, [] { scsi_prevent_allow(2); }, "1e 00 00 00 00 00",
       no_data_buffer, 0},
      {"read position", 0, 1, [] { scsi_read_position(); }, "34 00 00 00 00 00 00 00 00 00",
       read_position_buffer, 20},
      {"log sense", 0, 1, [] { scsi_log_sense(0x32, 1, 40); }, "4d 00 72 00 00 00 00 00 28 00",
       log_buffer, 40},
      {"log sense, LUN 3", 3, 1, [] { scsi_log_sense(0x7F, 0, 8); },
       "4d 60 3f 00 00 00 00 00 08 00", log_buffer, 8},
  };
  ASSERT_EQ(0, set_rw_buffer(data, sizeof data));
  for (const Case& c : cases) {
    set_lun(c.lun);
    set_fixed_bit(c.fixed);
    size_t before = fake_requests().size();
    c.send();
    ASSERT_EQ(before + 1, fake_requests().size()) << c.name;
    const FakeRequest& sent = fake_requests().back();
    EXPECT_EQ(c.cdb, hex_bytes(sent.cdb)) << c.name;
    EXPECT_EQ(c.buffer, sent.data) << c.name;
    EXPECT_EQ(c.length, sent.data_length) << c.name;
    EXPECT_EQ(c.length, scsi_transport.request_length) << c.name;
    EXPECT_EQ(c.lun, sent.lun) << c.name;
  }
}

TEST_F(CommandBlocks, DataInBuffersAreClearedBeforeTheCommand) {
  struct Case {
    uint8_t* buffer;
    uint32_t size;
    std::function<void()> send;
  } cases[] = {
      {sense_buffer, kSenseBufferSize, [] { scsi_request_sense(255); }},
      {inquiry_buffer, kInquiryBufferSize, [] { scsi_inquiry(255); }},
      {mode_buffer, kModeBufferSize, [] { scsi_mode_sense(12); }},
      {read_position_buffer, kReadPositionBufferSize, [] { scsi_read_position(); }},
      {log_buffer, kLogBufferSize, [] { scsi_log_sense(0, 1, 40); }},
  };
  for (const Case& c : cases) {
    std::memset(c.buffer, 0xAA, c.size);
    c.send();
    uint32_t first_nonzero = c.size;
    // An Inquiry gets the unit's 36 bytes; everything after them reads zero.
    uint32_t from = c.buffer == inquiry_buffer ? 36 : 0;
    for (uint32_t i = from; i < c.size; ++i) {
      if (c.buffer[i] != 0) first_nonzero = i;
    }
    EXPECT_EQ(c.size, first_nonzero);
  }
  std::memset(mode_buffer, 0x5A, kModeBufferSize);
  scsi_mode_select(12, 0);
  EXPECT_EQ(0x5A, mode_buffer[0]);  // Mode Select sends what the caller filled
}

TEST_F(CommandBlocks, ReadAndWriteNeedARegisteredBuffer) {
  OutputCapture capture;
  scsi_test_unit_ready();
  fake_script_check_condition(0x2, 0x04, 0x01);
  scsi_test_unit_ready();
  EXPECT_EQ(-1, scsi_read(1));
  EXPECT_EQ(-1, scsi_write(1));
  EXPECT_EQ(2u, fake_requests().size());
  EXPECT_TRUE(command_failed());  // the previous result stays
  EXPECT_EQ(0x02, scsi_transport.result.target_status);

  uint8_t byte = 0;
  EXPECT_EQ(-1, set_rw_buffer(nullptr, 16));
  EXPECT_EQ(-1, set_rw_buffer(&byte, 0));
  EXPECT_EQ(nullptr, rw_buffer);
  ASSERT_EQ(0, set_rw_buffer(&byte, 1));
  EXPECT_EQ(-1, set_rw_buffer(nullptr, 0));
  EXPECT_EQ(&byte, rw_buffer);
  EXPECT_EQ(1u, rw_buffer_length);
  EXPECT_EQ(0, scsi_write(5));
  EXPECT_EQ(1u, fake_requests().back().data_length);
  EXPECT_EQ(
      "ERROR: NULL read/write buffer\r\n"
      "ERROR: NULL read/write buffer\r\n"
      "ERROR: NULL buffer or zero buffer length (r/w buffer pointer not used)\r\n"
      "ERROR: NULL buffer or zero buffer length (r/w buffer pointer not used)\r\n"
      "ERROR: NULL buffer or zero buffer length (r/w buffer pointer not used)\r\n",
      capture.screen());
}

TEST(CommandFailed, NeedsBothStatusesZero) {
  struct Case {
    uint8_t srb_status, target_status;
    bool failed;
  } cases[] = {{0, 0, false}, {0, 2, true}, {0xFF, 0, true}, {0x11, 0, true}};
  for (const Case& c : cases) {
    scsi_transport.result.srb_status = c.srb_status;
    scsi_transport.result.target_status = c.target_status;
    EXPECT_EQ(c.failed, command_failed());
  }
  reset_scsi_transport();
}

}  // namespace
