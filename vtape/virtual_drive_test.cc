// The virtual drive through its platform record: device names, the adapter
// listing, addressing, the fault keys, the backing file and a close that
// arrives while a command runs.
#include "vtape/virtual_drive.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "settings/settings.h"
#include "testing/output_capture.h"
#include "vtape/drive_state.h"
#include "vtape/vtape_testing.h"

namespace {

TEST(VtapePlatform, OnlyItsAdapterDeviceOpensAndOnlyOnce) {
  ASSERT_EQ(0, configure_vtape(""));
  test_settings.host_adapter_number = 3;
  const Platform* p = vtape_platform();
  PlatformHandle h = kInvalidPlatformHandle;
  EXPECT_EQ(kErrorNotFound, p->open_device("\\\\.\\Scsi0:", &h));
  EXPECT_EQ(kErrorNotFound, p->open_device("\\\\.\\Tape0", &h));
  ASSERT_EQ(kErrorNone, p->open_device("\\\\.\\Scsi3:", &h));
  PlatformHandle second = kInvalidPlatformHandle;
  EXPECT_EQ(kErrorSharingViolation, p->open_device("\\\\.\\Scsi3:", &second));
  p->close_device(h);
  EXPECT_EQ(kErrorNone, p->open_device("\\\\.\\Scsi3:", &second));
  ScsiAddress address;
  EXPECT_EQ(-1, p->query_tape_address(second, &address));
  p->close_device(second);
}

TEST(VtapePlatform, AdapterListsOneUnclaimedTapeDriveAtTheSettingsAddress) {
  ASSERT_EQ(0, configure_vtape(""));
  test_settings.bus_number = 1;
  test_settings.scsi_id = 5;
  test_settings.lun = 2;
  PlatformHandle h = open_vtape();
  AdapterInquiry inquiry;
  ASSERT_EQ(0, vtape_platform()->query_adapter(h, &inquiry));
  EXPECT_EQ(2, inquiry.bus_count);
  ASSERT_EQ(1, inquiry.unit_count);
  const LogicalUnitInfo& unit = inquiry.units[0];
  EXPECT_EQ(1, unit.path_id);
  EXPECT_EQ(5, unit.target_id);
  EXPECT_EQ(2, unit.lun);
  EXPECT_EQ(0, unit.claimed);
  EXPECT_EQ(0x01, unit.inquiry[0]);
  EXPECT_EQ(std::string("VIRTUAL "), std::string(unit.inquiry + 8, unit.inquiry + 16));
  vtape_platform()->close_device(h);
}

TEST(VtapePlatform, SetupFaults) {
  {
    ASSERT_EQ(0, configure_vtape("held = yes\n"));
    PlatformHandle h = kInvalidPlatformHandle;
    EXPECT_EQ(kErrorSharingViolation, vtape_platform()->open_device("\\\\.\\Scsi0:", &h));
  }
  {
    ASSERT_EQ(0, configure_vtape("claimed_without_tape_device = yes\n"));
    PlatformHandle h = open_vtape();
    AdapterInquiry inquiry;
    ASSERT_EQ(0, vtape_platform()->query_adapter(h, &inquiry));
    EXPECT_EQ(1, inquiry.units[0].claimed);
    PlatformHandle tape = kInvalidPlatformHandle;
    EXPECT_EQ(kErrorNotFound, vtape_platform()->open_device("\\\\.\\Tape0", &tape));
  }
  {
    PlatformHandle h = ready_vtape("device_type = 0\n");
    uint8_t data[36] = {};
    send_cdb(h, {0x12, 0, 0, 0, 36, 0}, data, 36);
    EXPECT_EQ(0x00, data[0]);
  }
  {
    PlatformHandle h = ready_vtape("lun_supported = no\n");
    uint8_t data[36] = {};
    EXPECT_EQ(0, send_cdb(h, {0x12, 0, 0, 0, 36, 0}, data, 36).status);
    EXPECT_EQ(0x7F, data[0]);  // qualifier 3, type 1Fh
    Answer tur = send_cdb(h, {0x00, 0, 0, 0, 0, 0});
    EXPECT_EQ(0x5, tur.key());
    EXPECT_EQ(0x25, tur.asc());  // LOGICAL UNIT NOT SUPPORTED
  }
}

TEST(VtapePlatform, OtherLunAndOtherTarget) {
  PlatformHandle h = ready_vtape();  // the drive is at bus 0, target 2, LUN 0
  uint8_t data[36] = {};
  EXPECT_EQ(0, send_cdb_to(h, 0, 2, 1, {0x12, 0, 0, 0, 36, 0}, data, 36, DataDirection::in).status);
  EXPECT_EQ(0x7F, data[0]);
  Answer tur = send_cdb_to(h, 0, 2, 1, {0x00, 0, 0, 0, 0, 0}, data, 0, DataDirection::in);
  EXPECT_EQ(0x25, tur.asc());
  EXPECT_EQ(kErrorTimeout,
            send_cdb_to(h, 0, 4, 0, {0x00, 0, 0, 0, 0, 0}, data, 0, DataDirection::in).error);
  EXPECT_EQ(kErrorTimeout,
            send_cdb_to(h, 1, 2, 0, {0x00, 0, 0, 0, 0, 0}, data, 0, DataDirection::in).error);
}

TEST(VtapePlatform, SenseComesBackWithTheCommand) {
  PlatformHandle h = ready_vtape();
  Answer a = send_cdb(h, {0xFF, 0, 0, 0, 0, 0});
  EXPECT_EQ(0u, a.error);
  EXPECT_EQ(2, a.status);
  EXPECT_EQ(18, a.sense_length);
  const uint8_t expected[18] = {0x70, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0, 0, 0xC0, 0, 0};
  EXPECT_EQ(std::vector<uint8_t>(expected, expected + 18),
            std::vector<uint8_t>(a.sense, a.sense + 18));
}

TEST(VtapeFaults, NthWriteAndReadFailAndCorrupt) {
  PlatformHandle h = ready_vtape(
      "fail_write_at = 2\nfail_read_at = 1\ncorrupt_read_at = 2:3\n"
      "filemark_at_read = 3\n");
  std::vector<uint8_t> record(8, 0x10);
  EXPECT_EQ(0, write_bytes(h, record).status);
  Answer failed = write_bytes(h, record);
  EXPECT_EQ(0x3, failed.key());  // MEDIUM ERROR, WRITE ERROR
  EXPECT_EQ(0x0C, failed.asc());
  EXPECT_EQ(0, write_bytes(h, record).status);
  EXPECT_EQ(2, tape_position(h));
  rewind_tape(h);
  std::vector<uint8_t> buffer(8);
  Answer read_error = read_bytes(h, &buffer, 8);
  EXPECT_EQ(0x3, read_error.key());  // UNRECOVERED READ ERROR
  EXPECT_EQ(0x11, read_error.asc());
  ASSERT_EQ(0, read_bytes(h, &buffer, 8).status);
  EXPECT_EQ((std::vector<uint8_t>{0x10, 0x10, 0x10, 0xEF, 0x10, 0x10, 0x10, 0x10}), buffer);
  Answer phantom = read_bytes(h, &buffer, 8);
  EXPECT_EQ(2, phantom.status);
  EXPECT_TRUE(phantom.filemark());
  EXPECT_EQ(0x01, phantom.ascq());
  EXPECT_EQ(0, read_bytes(h, &buffer, 8).status);
  // Failed writes and reads: parameter 0006h of pages 02h and 03h.
  for (uint8_t page : {uint8_t{0x42}, uint8_t{0x43}}) {
    uint8_t log[40] = {};
    ASSERT_EQ(0, send_cdb(h, {0x4D, 0, page, 0, 0, 0, 0x06, 0, 40, 0}, log, 40).status);
    EXPECT_EQ((std::vector<uint8_t>{0x00, 0x06, 0x00, 0x04, 0, 0, 0, 1}),
              std::vector<uint8_t>(log + 4, log + 12));
  }
}

TEST(VtapeBackingFile, CartridgeSurvivesAClose) {
  std::string path = write_temp_file("bftdtest_cartridge.vtape", "");
  std::remove(path.c_str());
  std::string description = "backing_file = " + path + "\n";
  PlatformHandle h = ready_vtape(description);
  std::vector<uint8_t> record(1000);
  for (size_t i = 0; i < record.size(); ++i) record[i] = static_cast<uint8_t>(i);
  write_filemarks(h, 2);
  for (int i = 0; i < 500; ++i) write_bytes(h, record);
  vtape_platform()->close_device(h);

  h = ready_vtape(description);
  ASSERT_EQ(0, space(h, 1, 2).status);
  ASSERT_EQ(0, space(h, 0, 499).status);
  std::vector<uint8_t> buffer(1000);
  ASSERT_EQ(0, read_bytes(h, &buffer, 1000).status);
  EXPECT_EQ(record, buffer);
  EXPECT_EQ(0x8, read_bytes(h, &buffer, 1000).key());
  vtape_platform()->close_device(h);
  std::remove(path.c_str());
}

TEST(VtapeBackingFile, DamagedFileIsAnError) {
  std::string path = write_temp_file("bftdtest_damaged.vtape", "not a tape");
  OutputCapture capture;
  EXPECT_EQ(-1, configure_vtape("backing_file = " + path + "\n"));
  EXPECT_EQ("ERROR: virtual tape backing file \"" + path + "\" is damaged or not a virtual tape\n",
            capture.errors());
  std::remove(path.c_str());
}

TEST(VtapePlatform, CloseDuringACommandDoesNotWaitAndSkipsSaving) {
  std::string path = write_temp_file("bftdtest_busy.vtape", "");
  std::remove(path.c_str());
  PlatformHandle h = ready_vtape("backing_file = " + path + "\n");
  write_bytes(h, std::vector<uint8_t>(10, 1));
  VirtualDrive& drive = virtual_drive();
  drive.busy = true;  // as if a command were in flight on the main thread
  vtape_platform()->close_device(h);
  EXPECT_FALSE(drive.open);
  FILE* file = std::fopen(path.c_str(), "rb");
  EXPECT_EQ(nullptr, file);
  if (file != nullptr) std::fclose(file);
  drive.busy = false;
  // The handle is closed now: later commands are refused, not carried out.
  EXPECT_EQ(kErrorInvalidParameter, send_cdb(h, {0x00, 0, 0, 0, 0, 0}).error);
}

}  // namespace
