#include "transport/scsi_transport.h"

#include <gtest/gtest.h>

#include "testing/output_capture.h"

namespace {

class TransportSetters : public ::testing::Test {
 protected:
  void SetUp() override { reset_scsi_transport(); }
  void TearDown() override { reset_scsi_transport(); }
};

TEST_F(TransportSetters, StartFromTheInitialAddress) {
  EXPECT_EQ(0, scsi_transport.adapter);
  EXPECT_EQ(0, scsi_transport.bus);
  EXPECT_EQ(2, scsi_transport.target_id);
  EXPECT_EQ(0, scsi_transport.target_lun);
  EXPECT_EQ(1, scsi_transport.fixed_bit);
  EXPECT_EQ(nullptr, scsi_transport.cdb_list_stream);
}

TEST_F(TransportSetters, RangeChecksPrintTheirErrorAndKeepTheOldValue) {
  OutputCapture capture;
  EXPECT_EQ(0, set_target_id(15));
  EXPECT_EQ(15, scsi_transport.target_id);
  EXPECT_EQ(-1, set_target_id(16));
  EXPECT_EQ(15, scsi_transport.target_id);
  EXPECT_EQ(0, set_lun(7));
  EXPECT_EQ(7, scsi_transport.target_lun);
  EXPECT_EQ(0xE0, scsi_transport.lun_bits);
  EXPECT_EQ(-1, set_lun(8));
  EXPECT_EQ(7, scsi_transport.target_lun);
  EXPECT_EQ(0xE0, scsi_transport.lun_bits);
  EXPECT_EQ(
      "ERROR: invalid SCSI id specified (use 0 - 15 only)\r\n"
      "ERROR: invalid logical unit number specified (use 0 - 7 only)\r\n",
      capture.screen());
}

TEST_F(TransportSetters, FixedBitIsOnOnlyForOne) {
  set_fixed_bit(2);
  EXPECT_EQ(0, scsi_transport.fixed_bit);
  set_fixed_bit(1);
  EXPECT_EQ(1, scsi_transport.fixed_bit);
  set_fixed_bit(0);
  EXPECT_EQ(0, scsi_transport.fixed_bit);
}

}  // namespace
