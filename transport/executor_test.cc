#include "transport/executor.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "transport/scsi_transport.h"
#include "transport/transport_testing.h"

namespace {

class Executor : public FakeTransportTest {
 protected:
  void SetUp() override {
    FakeTransportTest::SetUp();
    fake_add_tape_drive(0, 0, 2, 0);
    ASSERT_EQ(0, scan_devices());
  }
  void TearDown() override {
    set_cdb_list_stream(nullptr);
    if (cdb_list_ != nullptr) std::fclose(cdb_list_);
    FakeTransportTest::TearDown();
  }
  std::string cdb_list() {
    std::fflush(cdb_list_);
    std::string text(static_cast<size_t>(std::ftell(cdb_list_)), '\0');
    std::rewind(cdb_list_);
    text.resize(std::fread(text.data(), 1, text.size(), cdb_list_));
    return text;
  }
  void list_cdbs() {
    cdb_list_ = std::tmpfile();
    set_cdb_list_stream(cdb_list_);
  }
  FILE* cdb_list_ = nullptr;
};

bool sense_all_zero_from(uint32_t from) {
  for (uint32_t i = from; i < kSenseBufferSize; ++i) {
    if (sense_buffer[i] != 0) return false;
  }
  return true;
}

TEST_F(Executor, RequestsReachThePlatformWithDirectionLengthAndTimeout) {
  list_cdbs();
  uint8_t data[0x10000] = {};
  const uint8_t write6[] = {0x0A, 0x00, 0x01, 0x00, 0x00, 0x00};
  const uint8_t read6[] = {0x08, 0x01, 0x00, 0x00, 0x40, 0x00};
  const uint8_t test_unit_ready[] = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  scsi_transport.request_length = sizeof data;
  execute_cdb(data, 6, write6);
  EXPECT_EQ(0x10000u, scsi_transport.result.transferred_length);
  execute_cdb(data, 6, read6);
  scsi_transport.request_length = 0;
  execute_cdb(no_data_buffer, 6, test_unit_ready);

  const std::vector<FakeRequest>& seen = fake_requests();
  ASSERT_EQ(3u, seen.size());
  EXPECT_EQ(DataDirection::out, seen[0].direction);
  EXPECT_EQ(DataDirection::in, seen[1].direction);
  EXPECT_EQ(DataDirection::in, seen[2].direction);
  EXPECT_EQ(0x10000u, seen[0].data_length);
  EXPECT_EQ(0x10000u, seen[1].data_length);
  EXPECT_EQ(0u, seen[2].data_length);
  EXPECT_EQ(data, seen[0].data);
  EXPECT_EQ(no_data_buffer, seen[2].data);
  for (const FakeRequest& request : seen) {
    EXPECT_EQ(108000u, request.timeout_seconds);
    EXPECT_EQ(2, request.target_id);
    EXPECT_EQ(6u, request.cdb.size());
    for (int i = 6; i < 16; ++i) EXPECT_EQ(0, request.cdb_field[i]);
  }
  EXPECT_EQ("0a 00 01 00 00 00", hex_bytes(seen[0].cdb));
  EXPECT_EQ(" 0a 00 01 00 00 00\r\n 08 01 00 00 40 00\r\n 00 00 00 00 00 00\r\n", cdb_list());
  EXPECT_EQ(0, scsi_transport.result.srb_status);
}

TEST_F(Executor, NoDeviceAtTheAddressGivesNoHandleStatusAndListsNothing) {
  list_cdbs();
  fake_script_check_condition(0x3, 0x11, 0x00);
  const uint8_t read6[] = {0x08, 0x01, 0x00, 0x00, 0x01, 0x00};
  execute_cdb(no_data_buffer, 6, read6);  // leaves sense behind
  std::string listed = cdb_list();
  set_target_id(3);
  execute_cdb(no_data_buffer, 6, read6);
  const ScsiResult& result = scsi_transport.result;
  EXPECT_EQ(0x11, result.srb_status);
  EXPECT_EQ(2u, result.win32_error);
  EXPECT_EQ(0, result.target_status);
  EXPECT_EQ(0, result.sense_key_byte);
  EXPECT_EQ(0u, result.transferred_length);
  EXPECT_TRUE(sense_all_zero_from(0));
  EXPECT_EQ(1u, fake_requests().size());
  EXPECT_EQ(listed, cdb_list());
}

TEST_F(Executor, CdbOfLengthZeroOrAboveSixteenIsNotSent) {
  list_cdbs();
  uint8_t long_cdb[17] = {0x00};
  for (uint8_t length : {uint8_t{0}, uint8_t{17}}) {
    execute_cdb(no_data_buffer, length, long_cdb);
    EXPECT_EQ(0xFF, scsi_transport.result.srb_status);
    EXPECT_EQ(87u, scsi_transport.result.win32_error);
  }
  EXPECT_TRUE(fake_requests().empty());
  EXPECT_EQ("", cdb_list());
  long_cdb[0] = 0x12;
  execute_cdb(no_data_buffer, 16, long_cdb);
  ASSERT_EQ(1u, fake_requests().size());
  EXPECT_EQ(16u, fake_requests()[0].cdb.size());
}

TEST_F(Executor, SenseBytesAreCopiedAndTheRestOfTheBufferIsZero) {
  const uint8_t read6[] = {0x08, 0x01, 0x00, 0x00, 0x01, 0x00};
  FakeReply long_sense;
  long_sense.scsi_status = 0x02;
  long_sense.sense.assign(40, 0xEE);
  fake_script_reply(long_sense);
  execute_cdb(no_data_buffer, 6, read6);
  EXPECT_EQ(0xEE, scsi_transport.result.sense_key_byte);
  EXPECT_EQ(0xEE, sense_buffer[39]);
  EXPECT_TRUE(sense_all_zero_from(40));

  fake_script_check_condition(0x0, 0x00, 0x01, 0x80);
  execute_cdb(no_data_buffer, 6, read6);
  EXPECT_EQ(0x80, scsi_transport.result.sense_key_byte);
  EXPECT_EQ(0x02, scsi_transport.result.target_status);
  EXPECT_EQ(0x70, sense_buffer[0]);
  EXPECT_EQ(0x01, sense_buffer[13]);
  EXPECT_TRUE(sense_all_zero_from(18));

  execute_cdb(no_data_buffer, 6, read6);  // no sense at all
  EXPECT_EQ(0, scsi_transport.result.sense_key_byte);
  EXPECT_TRUE(sense_all_zero_from(0));
}

TEST_F(Executor, RefusedRequestKeepsWhatThePlatformReported) {
  FakeReply refused;
  refused.error = 1100;
  refused.scsi_status = 0x02;
  refused.sense = fake_fixed_sense(0x0, 0, 0, 0x40);
  refused.transferred_length = 512;
  fake_script_reply(refused);
  const uint8_t write6[] = {0x0A, 0x01, 0x00, 0x00, 0x01, 0x00};
  execute_cdb(no_data_buffer, 6, write6);
  const ScsiResult& result = scsi_transport.result;
  EXPECT_EQ(0xFF, result.srb_status);
  EXPECT_EQ(1100u, result.win32_error);
  EXPECT_EQ(0x02, result.target_status);
  EXPECT_EQ(0x40, result.sense_key_byte);
  EXPECT_EQ(512u, result.transferred_length);
}

TEST_F(Executor, RequestSenseDataStaysWhenNoAutomaticSenseCameBack) {
  FakeReply data;
  data.data_in = fake_fixed_sense(0x6, 0x28, 0x00);
  fake_script_reply(data);
  const uint8_t request_sense[] = {0x03, 0x00, 0x00, 0x00, 0xFF, 0x00};
  std::memset(sense_buffer, 0, kSenseBufferSize);
  scsi_transport.request_length = 255;
  execute_cdb(sense_buffer, 6, request_sense);
  EXPECT_EQ(0x06, sense_buffer[2]);
  EXPECT_EQ(0x28, sense_buffer[12]);
  EXPECT_EQ(0, scsi_transport.result.sense_key_byte);

  // The next command without sense clears it again.
  const uint8_t test_unit_ready[6] = {};
  scsi_transport.request_length = 0;
  execute_cdb(no_data_buffer, 6, test_unit_ready);
  EXPECT_TRUE(sense_all_zero_from(0));
}

TEST(ExecutorDirection, WriteTypeCommandsGoOutEverythingElseIn) {
  const std::set<uint8_t> out = {0x0A, 0x13, 0x15, 0x1D, 0x2A, 0x2E, 0x2F, 0x3B,
                                 0x3F, 0x4C, 0x55, 0xAA, 0xAE, 0xAF, 0xB6};
  for (unsigned code = 0; code < 256; ++code) {
    DataDirection expected = out.count(static_cast<uint8_t>(code)) != 0 ? DataDirection::out
                                                                        : DataDirection::in;
    EXPECT_EQ(expected, data_direction_for(static_cast<uint8_t>(code))) << code;
  }
}

}  // namespace
