#include "transport/device_table.h"
#include "transport/transport_lifecycle.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "console/log_output.h"
#include "transport/command_buffers.h"
#include "transport/executor.h"
#include "transport/scsi_transport.h"
#include "transport/transport_testing.h"

namespace {

using DeviceTable = FakeTransportTest;

std::vector<std::string> adapter_opens() {
  std::vector<std::string> names;
  for (const std::string& name : fake_open_attempts()) {
    if (name.rfind("\\\\.\\Scsi", 0) == 0) names.push_back(name);
  }
  return names;
}

std::string scsi_name(unsigned number) { return "\\\\.\\Scsi" + std::to_string(number) + ":"; }

void address(uint8_t adapter, uint8_t bus, uint8_t id, uint8_t lun) {
  set_adapter(adapter);
  set_bus(bus);
  set_target_id(id);
  set_lun(lun);
}

TEST_F(DeviceTable, AdaptersZeroToNineAreAlwaysTriedAndAMissingOneAboveEndsTheScan) {
  fake_add_tape_drive(0, 0, 1, 0);
  fake_add_tape_drive(2, 0, 1, 0);
  ASSERT_EQ(0, scan_devices());
  EXPECT_EQ(2, device_count);
  EXPECT_EQ(0, device_table[0].adapter);
  EXPECT_EQ(2, device_table[1].adapter);
  std::vector<std::string> tried = adapter_opens();
  ASSERT_EQ(11u, tried.size());  // 0 to 10; 10 is missing and ends the scan
  EXPECT_EQ(scsi_name(10), tried.back());

  fake_reset();
  for (uint8_t number = 0; number < 12; ++number) fake_add_tape_drive(number, 0, 3, 0);
  ASSERT_EQ(0, scan_devices());
  EXPECT_EQ(12, device_count);
  tried = adapter_opens();
  ASSERT_EQ(13u, tried.size());
  EXPECT_EQ(scsi_name(12), tried.back());  // never 13
}

TEST_F(DeviceTable, HeldAdapterIsSkippedEvenAboveNine) {
  for (uint8_t number = 0; number < 13; ++number) fake_add_tape_drive(number, 0, 3, 0);
  fake_set_adapter_open_error(11, kErrorSharingViolation);
  ASSERT_EQ(0, scan_devices());
  EXPECT_EQ(12, device_count);  // 0-10 and 12
  EXPECT_EQ(12, device_table[11].adapter);
  EXPECT_EQ(scsi_name(13), adapter_opens().back());
}

TEST_F(DeviceTable, OnlyTapeDrivesAndUnclaimedChangersAreRegistered) {
  fake_add_unit(0, 0, 0, 0, 0x00, false);  // disk
  fake_add_unit(0, 0, 1, 0, 0x05, false);  // CD-ROM
  fake_add_unit(0, 0, 2, 0, 0x08, true);   // changer with its driver
  fake_add_unit(0, 0, 3, 0, 0x08, false);  // changer without
  fake_add_unit(0, 1, 4, 2, 0x01, false);  // tape drive on bus 1
  ASSERT_EQ(0, scan_devices());
  ASSERT_EQ(2, device_count);
  EXPECT_EQ(3, device_table[0].target_id);
  EXPECT_EQ(1, device_table[1].bus);
  EXPECT_EQ(4, device_table[1].target_id);
  EXPECT_EQ(2, device_table[1].lun);
}

TEST_F(DeviceTable, ClaimedDriveIsReachedThroughItsTapeDevice) {
  fake_add_tape_drive(1, 0, 5, 0, /*claimed=*/false);
  fake_add_tape_drive(1, 0, 6, 0, /*claimed=*/true);
  ASSERT_EQ(0, scan_devices());
  ASSERT_EQ(2, device_count);
  ASSERT_NE(nullptr, device_table[1].record);
  EXPECT_STREQ("\\\\.\\Tape0", device_table[1].record->name);
  EXPECT_STREQ("\\\\.\\Scsi1:", device_table[0].record->name);

  address(1, 0, 6, 0);
  execute_cdb(no_data_buffer, 6, std::vector<uint8_t>(6, 0).data());
  ASSERT_EQ(1u, fake_requests().size());
  EXPECT_EQ("\\\\.\\Tape0", fake_requests()[0].device);
}

TEST_F(DeviceTable, ClaimedDriveWithoutTapeDeviceCannotBeReached) {
  fake_add_unit(0, 0, 2, 0, 0x01, true);
  ASSERT_EQ(0, scan_devices());
  ASSERT_EQ(1, device_count);
  EXPECT_EQ(nullptr, device_table[0].record);
  address(0, 0, 2, 0);
  EXPECT_EQ(kInvalidPlatformHandle, get_device_handle());
  EXPECT_EQ(kErrorNotFound, scsi_transport.result.win32_error);
}

TEST_F(DeviceTable, UnclaimedDrivesOfOneAdapterShareOneHandleOpenedOnce) {
  fake_add_tape_drive(0, 0, 1, 0);
  fake_add_tape_drive(0, 0, 2, 0);
  ASSERT_EQ(0, scan_devices());
  ASSERT_EQ(device_table[0].record, device_table[1].record);
  size_t opens_after_scan = fake_open_attempts().size();

  address(0, 0, 1, 0);
  PlatformHandle first = get_device_handle();
  address(0, 0, 2, 0);
  PlatformHandle second = get_device_handle();
  EXPECT_NE(kInvalidPlatformHandle, first);
  EXPECT_EQ(first, second);
  EXPECT_EQ(opens_after_scan + 1, fake_open_attempts().size());
  EXPECT_EQ(1, open_handle_count);

  // Shutdown closes the shared record once.
  size_t closes_before = fake_closes().size();
  close_device_handles();
  EXPECT_EQ(closes_before + 1, fake_closes().size());
  EXPECT_EQ(0u, fake_open_handle_count());
  EXPECT_EQ(0, open_handle_count);
}

TEST_F(DeviceTable, MoreThanSixtyFourDevicesRegisterTheFirstSixtyFour) {
  for (uint8_t adapter = 0; adapter < 5; ++adapter) {
    for (uint8_t id = 0; id < 16; ++id) fake_add_tape_drive(adapter, 0, id, 0);
  }
  ASSERT_EQ(0, scan_devices());
  EXPECT_EQ(64, device_count);
  EXPECT_EQ(3, device_table[63].adapter);
  EXPECT_EQ(15, device_table[63].target_id);
  address(3, 0, 15, 0);
  EXPECT_NE(kInvalidPlatformHandle, get_device_handle());
  address(4, 0, 0, 0);
  EXPECT_EQ(kInvalidPlatformHandle, get_device_handle());
}

TEST_F(DeviceTable, TapeScanEndsAtFirstMissingTapeDeviceAndSkipsHeldOnes) {
  fake_add_unit(0, 0, 1, 0, 0x01, true);
  fake_add_unit(0, 0, 2, 0, 0x01, true);
  fake_add_tape_device(0, 0, 1, 0);  // Tape0, held
  fake_add_tape_device(0, 0, 2, 0);  // Tape1
  fake_hold_device("\\\\.\\Tape0");
  ASSERT_EQ(0, scan_devices());
  EXPECT_EQ(nullptr, device_table[0].record);
  ASSERT_NE(nullptr, device_table[1].record);
  EXPECT_STREQ("\\\\.\\Tape1", device_table[1].record->name);
  EXPECT_EQ("\\\\.\\Tape2", fake_open_attempts().back());
}

TEST_F(DeviceTable, HandleAgesUpToOneHundredAndIdleHandleClosesBelowMinusTen) {
  fake_add_tape_drive(0, 0, 1, 0);
  fake_add_tape_drive(1, 0, 1, 0);
  ASSERT_EQ(0, scan_devices());
  DeviceHandle* first = device_table[0].record;
  DeviceHandle* second = device_table[1].record;

  address(0, 0, 1, 0);
  ASSERT_NE(kInvalidPlatformHandle, get_device_handle());
  EXPECT_EQ(1, first->age);
  for (int i = 0; i < 120; ++i) get_device_handle();
  EXPECT_EQ(100, first->age);

  address(1, 0, 1, 0);
  get_device_handle();
  EXPECT_EQ(2, open_handle_count);
  EXPECT_EQ(99, first->age);
  EXPECT_EQ(2, second->age);
  for (int i = 0; i < 109; ++i) get_device_handle();
  EXPECT_EQ(-10, first->age);
  EXPECT_NE(kInvalidPlatformHandle, first->handle);
  get_device_handle();
  EXPECT_EQ(kInvalidPlatformHandle, first->handle);
  EXPECT_EQ(1, open_handle_count);

  // Back to the first device: reopened, and its negative age restarts.
  address(0, 0, 1, 0);
  get_device_handle();
  EXPECT_EQ(2, first->age);
}

TEST_F(DeviceTable, ShutdownClosesEveryRecordOnceAndReleasesBuffers) {
  fake_add_tape_drive(0, 0, 1, 0);
  fake_add_tape_drive(0, 0, 2, 0);
  fake_add_tape_drive(0, 0, 3, 0, true);
  ASSERT_EQ(0, scan_devices());
  address(0, 0, 1, 0);
  get_device_handle();
  address(0, 0, 3, 0);
  get_device_handle();
  address(0, 0, 2, 0);
  get_device_handle();
  ASSERT_EQ(2u, fake_open_handle_count());
  size_t closes_before = fake_closes().size();
  shutdown_transport();
  EXPECT_EQ(closes_before + 2, fake_closes().size());
  EXPECT_EQ(0u, fake_open_handle_count());
  EXPECT_EQ(nullptr, sense_buffer);
  EXPECT_EQ(nullptr, scsi_transport.result.sense_data);
}

TEST_F(DeviceTable, AddressedRecordStaysOpenWhileOtherSlotsOfItsAdapterAgeIt) {
  for (uint8_t id = 0; id < 15; ++id) fake_add_tape_drive(0, 0, id, 0);
  ASSERT_EQ(0, scan_devices());
  address(0, 0, 0, 0);
  const uint8_t test_unit_ready[6] = {};
  for (int command = 0; command < 3; ++command) {
    execute_cdb(no_data_buffer, 6, test_unit_ready);
    EXPECT_EQ(0, scsi_transport.result.srb_status);
    EXPECT_EQ(1u, fake_open_handle_count());
  }
  // Fourteen other slots took 1 each from the shared record after it was used.
  EXPECT_EQ(1 - 14, device_table[0].record->age);
  EXPECT_EQ(3u, fake_requests().size());
  EXPECT_EQ("\\\\.\\Scsi0:", fake_requests().back().device);
}

void ignore_break(int) {}

TEST_F(DeviceTable, StartAndShutdownOwnTheBuffersTheHandlerAndTheOutputFile) {
  fake_add_tape_drive(0, 0, 2, 0);
  ASSERT_EQ(0, start_transport(ignore_break));
  EXPECT_EQ(1, device_count);
  ASSERT_NE(nullptr, sense_buffer);
  EXPECT_EQ(sense_buffer, scsi_transport.result.sense_data);
  FILE* output = std::tmpfile();
  set_log_file(output);
  shutdown_transport();  // also ends the CTRL-C delivery; must not hang
  EXPECT_EQ(nullptr, log_file());
  EXPECT_EQ(nullptr, inquiry_buffer);
  EXPECT_EQ(nullptr, no_data_buffer);
}

}  // namespace
