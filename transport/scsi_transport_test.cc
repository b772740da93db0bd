#include "transport/scsi_transport.h"

#include <gtest/gtest.h>

#include "testing/output_capture.h"

namespace {

class TransportSetters : public ::testing::Test {
 protected:
  void SetUp() override { reset_scsi_transport(); }
  void TearDown() override { reset_scsi_transport(); }
};

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
  for (uint8_t value : {uint8_t{2}, uint8_t{1}, uint8_t{0}}) {
    set_fixed_bit(value);
    EXPECT_EQ(value == 1 ? 1 : 0, scsi_transport.fixed_bit) << int{value};
  }
}

}  // namespace
