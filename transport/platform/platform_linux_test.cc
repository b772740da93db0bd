// Discovery and opening on the Linux platform, over fake sysfs trees and the
// fake kernel.
#include "transport/platform/platform_linux.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "transport/platform/fake_linux_testing.h"
#include "transport/platform/platform.h"

namespace {

const Platform& linux_platform() { return *native_platform(); }

uint32_t open_name(const char* name, PlatformHandle* handle) {
  return linux_platform().open_device(name, handle);
}

std::string last_error() {
  const char* text = linux_platform().describe_last_error();
  return text != nullptr ? text : "<none>";
}

class LinuxDiscovery : public ::testing::Test {
 protected:
  void SetUp() override { set_linux_root(tree.root().c_str()); }

  // Adapter 0: a disk with sd, a tape with st (tape 0), a tape without a
  // driver, a changer with ch, a changer without; a tape without a driver on
  // bus 1. Adapter 1 missing; adapter 2 with one tape without a driver.
  void build_library() {
    tree.add_host(0);
    tree.add_unit("0:0:0:0", 0, "sd", "sg0", inquiry_data(0x00, "DISKCO", "DISK"));
    tree.add_unit("0:0:2:0", 1, "st", "sg1", inquiry_data(0x01, "TAPECO", "ST TAPE"));
    tree.add_unit("0:0:3:0", 1, "", "sg2", inquiry_data(0x01, "TAPECO", "RAW TAPE"));
    tree.add_unit("0:0:4:0", 8, "ch", "sg3", inquiry_data(0x08, "ROBOCO", "CLAIMED CHANGER"));
    tree.add_unit("0:0:5:0", 8, "", "sg4", inquiry_data(0x08, "ROBOCO", "FREE CHANGER"));
    tree.add_unit("0:1:6:0", 1, "", "sg5", inquiry_data(0x01, "TAPECO", "BUS ONE TAPE"));
    tree.add_tape(0, "0:0:2:0");
    tree.add_host(2);
    tree.add_unit("2:0:1:0", 1, "", "sg6", inquiry_data(0x01, "TAPECO", "SECOND HBA"));
  }

  std::string node(const char* name) { return tree.root() + "/dev/" + name; }

  FakeSysfs tree;
  FakeKernel kernel;
  AdapterInquiry inquiry{};
};

TEST_F(LinuxDiscovery, MachineWithoutScsiLayerFindsNothingQuietly) {
  PlatformHandle handle = 0;
  for (const char* name : {"\\\\.\\Scsi0:", "\\\\.\\Scsi9:", "\\\\.\\Tape0"}) {
    EXPECT_EQ(kErrorNotFound, open_name(name, &handle)) << name;
    EXPECT_EQ(kInvalidPlatformHandle, handle);
  }
  EXPECT_EQ("<none>", last_error());
  EXPECT_TRUE(kernel.opens.empty());
}

TEST_F(LinuxDiscovery, AdapterListsUnitsBusByBusWithClaimedFlags) {
  build_library();
  PlatformHandle adapter = kInvalidPlatformHandle;
  ASSERT_EQ(kErrorNone, open_name("\\\\.\\Scsi0:", &adapter));
  ASSERT_EQ(0, linux_platform().query_adapter(adapter, &inquiry));
  linux_platform().close_device(adapter);

  struct Expected {
    uint8_t path, target, claimed, type;
    const char* product;
  };
  const Expected expected[] = {
      {0, 0, 1, 0, "DISK"},        {0, 2, 1, 1, "ST TAPE"},      {0, 3, 0, 1, "RAW TAPE"},
      {0, 4, 1, 8, "CLAIMED CHANGER"}, {0, 5, 0, 8, "FREE CHANGER"}, {1, 6, 0, 1, "BUS ONE TAPE"},
  };
  EXPECT_EQ(2, inquiry.bus_count);
  ASSERT_EQ(std::size(expected), inquiry.unit_count);
  for (size_t i = 0; i < std::size(expected); ++i) {
    const LogicalUnitInfo& unit = inquiry.units[i];
    EXPECT_EQ(expected[i].path, unit.path_id) << i;
    EXPECT_EQ(expected[i].target, unit.target_id) << i;
    EXPECT_EQ(0, unit.lun) << i;
    EXPECT_EQ(expected[i].claimed, unit.claimed) << i;
    EXPECT_EQ(36, unit.inquiry_length) << i;
    EXPECT_EQ(expected[i].type, unit.inquiry[0]) << i;
    EXPECT_EQ(0, std::memcmp(expected[i].product, unit.inquiry + 16, std::strlen(expected[i].product))) << i;
  }
  // Only the unclaimed tapes and changer were tried, each exclusively and let go again.
  ASSERT_EQ(3u, kernel.opens.size());
  EXPECT_EQ(node("sg2"), kernel.opens[0].path);
  EXPECT_EQ(node("sg4"), kernel.opens[1].path);
  EXPECT_EQ(node("sg5"), kernel.opens[2].path);
  for (const auto& open : kernel.opens) EXPECT_EQ(O_RDWR | O_EXCL | O_NONBLOCK | O_CLOEXEC, open.flags);
  EXPECT_EQ(3u, kernel.closes.size());
  EXPECT_TRUE(kernel.sent.empty());
}

TEST_F(LinuxDiscovery, AdaptersWithAGapAndTapeDevices) {
  build_library();
  PlatformHandle handle = kInvalidPlatformHandle;
  EXPECT_EQ(kErrorNotFound, open_name("\\\\.\\Scsi1:", &handle));
  ASSERT_EQ(kErrorNone, open_name("\\\\.\\Scsi2:", &handle));
  ASSERT_EQ(0, linux_platform().query_adapter(handle, &inquiry));
  ASSERT_EQ(1, inquiry.unit_count);
  EXPECT_EQ(1, inquiry.units[0].target_id);
  EXPECT_EQ(-1, linux_platform().query_tape_address(handle, nullptr));  // not a tape device
  linux_platform().close_device(handle);

  ASSERT_EQ(kErrorNone, open_name("\\\\.\\Tape0", &handle));
  EXPECT_EQ(node("nst0"), kernel.opens.back().path);
  EXPECT_EQ(O_RDWR | O_NONBLOCK | O_CLOEXEC, kernel.opens.back().flags);
  ScsiAddress address{};
  ASSERT_EQ(0, linux_platform().query_tape_address(handle, &address));
  EXPECT_EQ(0, address.port_number);
  EXPECT_EQ(0, address.path_id);
  EXPECT_EQ(2, address.target_id);
  EXPECT_EQ(0, address.lun);
  linux_platform().close_device(handle);
  EXPECT_EQ(node("nst0"), kernel.closes.back());

  EXPECT_EQ(kErrorNotFound, open_name("\\\\.\\Tape1", &handle));
  EXPECT_EQ("<none>", last_error());  // probing past the last device says nothing
  // The nodes the results file names for a unit.
  char text[64];
  ASSERT_EQ(0, linux_platform().device_node("\\\\.\\Tape0", address, text, sizeof text));
  EXPECT_STREQ("/dev/nst0", text);
  ASSERT_EQ(0, linux_platform().device_node("\\\\.\\Scsi2:", ScsiAddress{2, 0, 1, 0}, text, sizeof text));
  EXPECT_STREQ("/dev/sg6", text);
  EXPECT_EQ(-1, linux_platform().device_node("\\\\.\\Scsi2:", ScsiAddress{2, 0, 7, 0}, text, sizeof text));
}

TEST_F(LinuxDiscovery, HeldDevicesAnswer32AndAreLeftOut) {
  build_library();
  kernel.open_errors[node("nst0")] = EBUSY;
  kernel.open_errors[node("sg2")] = EBUSY;
  PlatformHandle handle = kInvalidPlatformHandle;
  EXPECT_EQ(kErrorSharingViolation, open_name("\\\\.\\Tape0", &handle));
  EXPECT_EQ("Cannot open /dev/nst0 (SCSI address 0:0:2:0): the device is in use by another process.",
            last_error());

  ASSERT_EQ(kErrorNone, open_name("\\\\.\\Scsi0:", &handle));
  ASSERT_EQ(0, linux_platform().query_adapter(handle, &inquiry));
  ASSERT_EQ(5, inquiry.unit_count);
  EXPECT_EQ(2, inquiry.units[1].target_id);
  EXPECT_EQ(4, inquiry.units[2].target_id);  // the held raw tape at id 3 is not offered
  EXPECT_EQ("Cannot open /dev/sg2 (SCSI address 0:0:3:0): the device is in use by another process.",
            last_error());
}

TEST_F(LinuxDiscovery, PermissionDeniedNamesTheNodeAndTheGroup) {
  build_library();
  struct Case {
    int error;
    const char* group;
    const char* message;
  };
  const Case cases[] = {
      {EACCES, "tape",
       "Cannot open /dev/nst0 (SCSI address 0:0:2:0): permission denied. Run bftdtest as root, or as a "
       "member of group \"tape\" (the group that owns /dev/nst0) with the CAP_SYS_RAWIO capability."},
      {EPERM, "disk",
       "Cannot open /dev/nst0 (SCSI address 0:0:2:0): permission denied. Run bftdtest as root, or as a "
       "member of group \"disk\" (the group that owns /dev/nst0) with the CAP_SYS_RAWIO capability."},
      {EACCES, "root", "Cannot open /dev/nst0 (SCSI address 0:0:2:0): permission denied. Run bftdtest as root."},
      {EACCES, "", "Cannot open /dev/nst0 (SCSI address 0:0:2:0): permission denied. Run bftdtest as root."},
  };
  for (const Case& c : cases) {
    kernel.open_errors[node("nst0")] = c.error;
    kernel.node_group = c.group;
    PlatformHandle handle = kInvalidPlatformHandle;
    EXPECT_EQ(kErrorAccessDenied, open_name("\\\\.\\Tape0", &handle));
    EXPECT_EQ(c.message, last_error());
  }
}

TEST_F(LinuxDiscovery, UnclaimedTapeWithoutReachableNodeIsNotOffered) {
  tree.add_host(0);
  tree.add_unit("0:0:3:0", 1, "", "", inquiry_data(0x01, "TAPECO", "NO SG"));
  tree.add_unit("0:0:4:0", 1, "", "sg1", inquiry_data(0x01, "TAPECO", "LOCKED"));
  kernel.open_errors[node("sg1")] = EACCES;
  kernel.node_group = "disk";
  PlatformHandle handle = kInvalidPlatformHandle;
  ASSERT_EQ(kErrorNone, open_name("\\\\.\\Scsi0:", &handle));
  ASSERT_EQ(0, linux_platform().query_adapter(handle, &inquiry));
  EXPECT_EQ(0, inquiry.unit_count);
  EXPECT_EQ("Cannot open /dev/sg1 (SCSI address 0:0:4:0): permission denied. Run bftdtest as root, or as a "
            "member of group \"disk\" (the group that owns /dev/sg1) with the CAP_SYS_RAWIO capability.",
            last_error());
}

TEST_F(LinuxDiscovery, InquiryWithoutSysfsAttributeGoesThroughSgOrTheTextAttributes) {
  tree.add_host(0);
  tree.add_unit("0:0:1:0", 1, "st", "sg0", {});  // inquiry asked through SG_IO
  tree.add_unit("0:0:2:0", 8, "ch", "", {});     // no sg node: built from the attributes
  tree.write_file("sys/devices/host0/0:0:2:0/vendor", "ROBOCO  \n");
  tree.write_file("sys/devices/host0/0:0:2:0/model", "LOADER          \n");
  const std::vector<uint8_t> answer = inquiry_data(0x01, "TAPECO", "FROM SG");
  kernel.answer = [&](sg_io_hdr_t& header) {
    std::memcpy(header.dxferp, answer.data(), answer.size());
    header.resid = static_cast<int>(header.dxfer_len - answer.size());
    return 0;
  };
  PlatformHandle handle = kInvalidPlatformHandle;
  ASSERT_EQ(kErrorNone, open_name("\\\\.\\Scsi0:", &handle));
  ASSERT_EQ(0, linux_platform().query_adapter(handle, &inquiry));
  ASSERT_EQ(2, inquiry.unit_count);

  ASSERT_EQ(1u, kernel.sent.size());
  EXPECT_EQ(node("sg0"), kernel.sent[0].node);
  EXPECT_EQ((std::vector<uint8_t>{0x12, 0, 0, 0, 0xFF, 0}), kernel.sent[0].cdb);
  EXPECT_EQ(SG_DXFER_FROM_DEV, kernel.sent[0].header.dxfer_direction);
  EXPECT_EQ(255u, kernel.sent[0].header.dxfer_len);
  EXPECT_EQ(O_RDWR | O_NONBLOCK | O_CLOEXEC, kernel.opens[0].flags);  // shared, not exclusive
  EXPECT_EQ(36, inquiry.units[0].inquiry_length);
  EXPECT_EQ(0, std::memcmp(answer.data(), inquiry.units[0].inquiry, 36));

  const LogicalUnitInfo& changer = inquiry.units[1];
  EXPECT_EQ(8, changer.inquiry[0]);
  EXPECT_EQ("ROBOCO  LOADER          ", std::string(reinterpret_cast<const char*>(changer.inquiry + 8), 24));
}

}  // namespace

// The host's limits: its own max_sectors where shown, else a disk's queue on
// the same host; the reserved buffer through the unit's sg node.
TEST_F(LinuxDiscovery, TransferLimitsFromSysfsAndTheReservedBuffer) {
  build_library();
  tree.write_file("sys/class/scsi_host/host0/sg_tablesize", "128\n");
  tree.write_file("sys/class/scsi_device/0:0:0:0/device/block/sda/queue/max_hw_sectors_kb", "512\n");
  kernel.reserved_size = 32768;
  PlatformHandle handle = kInvalidPlatformHandle;
  ASSERT_EQ(kErrorNone, open_name("\\\\.\\Scsi0:", &handle));
  TransferLimits limits{};
  ASSERT_EQ(0, linux_platform().query_transfer_limits(handle, ScsiAddress{0, 0, 3, 0}, &limits));
  EXPECT_EQ(512u * 1024, limits.max_transfer_bytes);
  EXPECT_EQ(128u, limits.max_segments);
  EXPECT_EQ(32768u, limits.reserved_bytes);
  EXPECT_STREQ("max_hw_sectors_kb of sda", limits.source);
  tree.write_file("sys/class/scsi_host/host0/max_sectors", "1024\n");
  ASSERT_EQ(0, linux_platform().query_transfer_limits(handle, ScsiAddress{0, 0, 3, 0}, &limits));
  EXPECT_EQ(1024u * 512, limits.max_transfer_bytes);
  EXPECT_STREQ("host max_sectors", limits.source);
  kernel.reserved_size = 0;  // host 2 shows no limit at all
  ASSERT_EQ(kErrorNone, open_name("\\\\.\\Scsi2:", &handle));
  EXPECT_EQ(-1, linux_platform().query_transfer_limits(handle, ScsiAddress{2, 0, 1, 0}, &limits));
}
