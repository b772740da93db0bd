// The Linux platform over a fake sysfs tree (below the build directory) and a
// fake kernel behind its system-call seam: discovery, opening, the SG_IO
// header that reaches the kernel, the kernel's answers, and the program's
// setup messages.
#include "transport/platform/platform_linux.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <scsi/sg.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "run/run_sequence.h"
#include "scsi/operation_codes.h"
#include "testing/screen_capture.h"
#include "transport/platform/platform.h"
#include "transport/platform/sg_io_linux.h"

namespace {

namespace fs = std::filesystem;

struct Sent {
  std::string node;
  sg_io_hdr_t header;
  std::vector<uint8_t> cdb;
};

// The fake kernel: records opens, closes and SG_IO, answers as a test says.
struct Kernel {
  std::map<std::string, int> open_errors;  // path -> errno
  std::string node_group = "tape";
  std::function<int(sg_io_hdr_t&)> answer = [](sg_io_hdr_t&) { return 0; };
  std::vector<std::pair<std::string, int>> opens;  // path, flags
  std::vector<std::string> closes;
  std::vector<Sent> sent;
  std::map<int, std::string> fds;
  int next_fd = 100;
  int reserved_size = 0;  // what SG_GET_RESERVED_SIZE answers; 0 makes it fail
} kernel;

const LinuxSystem kFakeSystem = {
    [](const char* path, int flags) {
      kernel.opens.push_back({path, flags});
      auto failure = kernel.open_errors.find(path);
      if (failure != kernel.open_errors.end()) return errno = failure->second, -1;
      kernel.fds[kernel.next_fd] = path;
      return kernel.next_fd++;
    },
    [](int fd) {
      if (kernel.fds.count(fd) == 0) return errno = EBADF, -1;
      kernel.closes.push_back(kernel.fds[fd]);
      kernel.fds.erase(fd);
      return 0;
    },
    [](int fd, unsigned long request, void* argument) {
      if (kernel.fds.count(fd) != 0 && request == SG_GET_RESERVED_SIZE && kernel.reserved_size > 0) {
        return *static_cast<int*>(argument) = kernel.reserved_size, 0;
      }
      if (kernel.fds.count(fd) == 0 || request != SG_IO) return errno = EBADF, -1;
      auto* header = static_cast<sg_io_hdr_t*>(argument);
      kernel.sent.push_back({kernel.fds[fd], *header, {header->cmdp, header->cmdp + header->cmd_len}});
      int error = kernel.answer(*header);
      return error != 0 ? (errno = error, -1) : 0;
    },
    [](const char*, char* name, size_t size) {
      std::snprintf(name, size, "%s", kernel.node_group.c_str());
      return !kernel.node_group.empty();
    },
};

std::vector<uint8_t> inquiry_data(uint8_t type, const char* product) {
  std::vector<uint8_t> data(36, ' ');
  std::fill(data.begin(), data.begin() + 8, 0);
  data[0] = type;
  data[4] = 31;
  std::memcpy(&data[8], "TAPECO", 6);
  std::memcpy(&data[16], product, std::strlen(product));
  return data;
}

class Linux : public ::testing::Test {
 protected:
  void SetUp() override {
    kernel = Kernel{};
    fs::remove_all(root);
    set_linux_system(&kFakeSystem);
    set_linux_root(root.c_str());
  }
  void TearDown() override {
    reset_linux_platform();
    fs::remove_all(root);
  }
  void write(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  void link(const fs::path& target, const fs::path& at) {
    fs::create_directories(at.parent_path());
    fs::create_directory_symlink(target, at);
  }
  void add_host(unsigned host) {
    fs::path dir = root / "sys/devices" / ("host" + std::to_string(host)) / "scsi_host";
    fs::create_directories(dir);
    link(dir, root / "sys/class/scsi_host" / ("host" + std::to_string(host)));
  }
  // A unit "H:C:T:L" with its type; driver and sg node empty for none; no
  // inquiry attribute when `inquiry` is empty. `tape` >= 0 adds nst<tape>.
  void add_unit(const std::string& hctl, int type, const std::string& driver, const std::string& sg,
                const std::vector<uint8_t>& data, int tape = -1) {
    fs::path device = root / "sys/devices" / ("host" + hctl.substr(0, hctl.find(':'))) / hctl;
    write(device / "type", std::to_string(type) + "\n");
    if (!data.empty()) write(device / "inquiry", std::string(data.begin(), data.end()));
    if (!driver.empty()) {
      fs::create_directories(root / "sys/bus/scsi/drivers" / driver);
      link(root / "sys/bus/scsi/drivers" / driver, device / "driver");
    }
    if (!sg.empty()) fs::create_directories(device / "scsi_generic" / sg);
    link(device, device / "scsi_device" / hctl / "device");
    link(device / "scsi_device" / hctl, root / "sys/class/scsi_device" / hctl);
    if (tape < 0) return;
    fs::path entry = device / "scsi_tape" / ("nst" + std::to_string(tape));
    link(device, entry / "device");
    link(entry, root / "sys/class/scsi_tape" / ("nst" + std::to_string(tape)));
  }
  // Adapter 0: a disk with sd, a tape with st (nst0), a tape without driver,
  // a changer with ch, one without; a tape on bus 1. Adapter 2: one tape.
  void build_library() {
    add_host(0);
    add_unit("0:0:0:0", 0, "sd", "sg0", inquiry_data(0x00, "DISK"));
    add_unit("0:0:2:0", 1, "st", "sg1", inquiry_data(0x01, "ST TAPE"), 0);
    add_unit("0:0:3:0", 1, "", "sg2", inquiry_data(0x01, "RAW TAPE"));
    add_unit("0:0:4:0", 8, "ch", "sg3", inquiry_data(0x08, "CLAIMED CHANGER"));
    add_unit("0:0:5:0", 8, "", "sg4", inquiry_data(0x08, "FREE CHANGER"));
    add_unit("0:1:6:0", 1, "", "sg5", inquiry_data(0x01, "BUS ONE TAPE"));
    add_host(2);
    add_unit("2:0:1:0", 1, "", "sg6", inquiry_data(0x01, "SECOND HBA"));
  }
  uint32_t open(const char* name, PlatformHandle* handle) { return native_platform()->open_device(name, handle); }
  std::string last_error() {
    const char* text = native_platform()->describe_last_error();
    return text != nullptr ? text : "<none>";
  }
  std::string node(const char* name) { return (root / "dev" / name).string(); }

  // One tree per test: ctest runs the tests side by side.
  const fs::path root =
      fs::current_path() / (std::string("linux_tree_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
  AdapterInquiry inquiry{};
};

constexpr int kExclusive = O_RDWR | O_EXCL | O_NONBLOCK | O_CLOEXEC;

TEST_F(Linux, DiscoveryListsUnitsBusByBusAndOpensOnlyUnclaimedOnesToCheckThem) {
  PlatformHandle handle = 0;
  EXPECT_EQ(kErrorNotFound, open("\\\\.\\Scsi0:", &handle));  // no SCSI layer: nothing, quietly
  EXPECT_EQ("<none>", last_error());
  build_library();
  ASSERT_EQ(kErrorNone, open("\\\\.\\Scsi0:", &handle));
  ASSERT_EQ(0, native_platform()->query_adapter(handle, &inquiry));
  native_platform()->close_device(handle);
  const struct {
    uint8_t path, target, claimed, type;
    const char* product;
  } expected[] = {{0, 0, 1, 0, "DISK"},           {0, 2, 1, 1, "ST TAPE"},      {0, 3, 0, 1, "RAW TAPE"},
                  {0, 4, 0, 8, "CLAIMED CHANGER"}, {0, 5, 0, 8, "FREE CHANGER"}, {1, 6, 0, 1, "BUS ONE TAPE"}};
  EXPECT_EQ(2, inquiry.bus_count);
  ASSERT_EQ(std::size(expected), inquiry.unit_count);
  for (size_t i = 0; i < std::size(expected); ++i) {
    const LogicalUnitInfo& unit = inquiry.units[i];
    EXPECT_EQ(expected[i].path, unit.path_id) << i;
    EXPECT_EQ(expected[i].target, unit.target_id) << i;
    EXPECT_EQ(expected[i].claimed, unit.claimed) << i;
    EXPECT_EQ(36, unit.inquiry_length) << i;
    EXPECT_EQ(expected[i].type, unit.inquiry[0]) << i;
    EXPECT_EQ(0, std::memcmp(expected[i].product, unit.inquiry + 16, std::strlen(expected[i].product))) << i;
  }
  // Unclaimed tapes are checked; changers (ch bound or not) are left for
  // their first command, since another process may hold them a moment.
  const std::vector<std::pair<std::string, int>> checked = {{node("sg2"), kExclusive}, {node("sg5"), kExclusive}};
  EXPECT_EQ(checked, kernel.opens);
  EXPECT_EQ(2u, kernel.closes.size());

  EXPECT_EQ(kErrorNotFound, open("\\\\.\\Scsi1:", &handle));
  ASSERT_EQ(kErrorNone, open("\\\\.\\Tape0", &handle));
  EXPECT_EQ(std::make_pair(node("nst0"), O_RDWR | O_NONBLOCK | O_CLOEXEC), kernel.opens.back());
  ScsiAddress address{};
  ASSERT_EQ(0, native_platform()->query_tape_address(handle, &address));
  EXPECT_EQ(2, address.target_id);
  char text[64];  // the nodes the results file names for a unit
  ASSERT_EQ(0, native_platform()->device_node("\\\\.\\Tape0", address, text, sizeof text));
  EXPECT_STREQ("/dev/nst0", text);
  ASSERT_EQ(0, native_platform()->device_node("\\\\.\\Scsi2:", ScsiAddress{2, 0, 1, 0}, text, sizeof text));
  EXPECT_STREQ("/dev/sg6", text);
  EXPECT_EQ(-1, native_platform()->device_node("\\\\.\\Scsi2:", ScsiAddress{2, 0, 7, 0}, text, sizeof text));
  native_platform()->close_device(handle);
  EXPECT_EQ(kErrorNotFound, open("\\\\.\\Tape1", &handle));
  EXPECT_EQ("<none>", last_error());
}

// The host's limits: its own max_sectors where shown, else a disk's queue on
// the same host; the reserved buffer through the unit's sg node.
TEST_F(Linux, TransferLimitsFromSysfsAndTheReservedBuffer) {
  build_library();
  write(root / "sys/class/scsi_host/host0/sg_tablesize", "128\n");
  write(root / "sys/class/scsi_device/0:0:0:0/device/block/sda/queue/max_hw_sectors_kb", "512\n");
  kernel.reserved_size = 32768;
  PlatformHandle handle = kInvalidPlatformHandle;
  ASSERT_EQ(kErrorNone, open("\\\\.\\Scsi0:", &handle));
  TransferLimits limits{};
  ASSERT_EQ(0, native_platform()->query_transfer_limits(handle, ScsiAddress{0, 0, 3, 0}, &limits));
  EXPECT_EQ(512u * 1024, limits.max_transfer_bytes);
  EXPECT_EQ(128u, limits.max_segments);
  EXPECT_EQ(32768u, limits.reserved_bytes);
  EXPECT_STREQ("max_hw_sectors_kb of sda", limits.source);
  write(root / "sys/class/scsi_host/host0/max_sectors", "1024\n");
  ASSERT_EQ(0, native_platform()->query_transfer_limits(handle, ScsiAddress{0, 0, 3, 0}, &limits));
  EXPECT_EQ(1024u * 512, limits.max_transfer_bytes);
  EXPECT_STREQ("host max_sectors", limits.source);
  kernel.reserved_size = 0;  // host 2 shows no limit at all
  ASSERT_EQ(kErrorNone, open("\\\\.\\Scsi2:", &handle));
  EXPECT_EQ(-1, native_platform()->query_transfer_limits(handle, ScsiAddress{2, 0, 1, 0}, &limits));
}

TEST_F(Linux, FailedOpensAreNamedForTheOperator) {
  build_library();
  const std::string denied = "Cannot open /dev/nst0 (SCSI address 0:0:2:0): permission denied. Run bftdtest as root";
  const struct {
    const char* name;
    int error;
    const char* group;
    uint32_t code;
    std::string message;
  } cases[] = {
      {"\\\\.\\Tape0", EBUSY, "tape", kErrorSharingViolation,
       "Cannot open /dev/nst0 (SCSI address 0:0:2:0): the device is in use by another process."},
      {"\\\\.\\Tape0", EACCES, "tape", kErrorAccessDenied, denied +
       ", or as a member of group \"tape\" (the group that owns /dev/nst0) with the CAP_SYS_RAWIO capability."},
      {"\\\\.\\Tape0", EPERM, "disk", kErrorAccessDenied, denied +
       ", or as a member of group \"disk\" (the group that owns /dev/nst0) with the CAP_SYS_RAWIO capability."},
      {"\\\\.\\Tape0", EACCES, "root", kErrorAccessDenied, denied + "."},
      {"\\\\.\\Tape0", EACCES, "", kErrorAccessDenied, denied + "."},
  };
  for (const auto& c : cases) {
    kernel.open_errors[node("nst0")] = c.error;
    kernel.node_group = c.group;
    PlatformHandle handle = kInvalidPlatformHandle;
    EXPECT_EQ(c.code, open(c.name, &handle)) << c.message;
    EXPECT_EQ(c.message, last_error());
  }
  // A held unclaimed tape is left out of the adapter's list.
  kernel.open_errors[node("sg2")] = EBUSY;
  PlatformHandle adapter = kInvalidPlatformHandle;
  ASSERT_EQ(kErrorNone, open("\\\\.\\Scsi0:", &adapter));
  ASSERT_EQ(0, native_platform()->query_adapter(adapter, &inquiry));
  ASSERT_EQ(5, inquiry.unit_count);
  EXPECT_EQ(4, inquiry.units[2].target_id);
  EXPECT_EQ("Cannot open /dev/sg2 (SCSI address 0:0:3:0): the device is in use by another process.", last_error());
}

TEST_F(Linux, InquiryWithoutSysfsAttributeGoesThroughSgOrTheTextAttributes) {
  add_host(0);
  add_unit("0:0:1:0", 1, "st", "sg0", {});
  add_unit("0:0:2:0", 0, "sd", "", {});
  write(root / "sys/devices/host0/0:0:2:0/vendor", "ROBOCO  \n");
  write(root / "sys/devices/host0/0:0:2:0/model", "LOADER          \n");
  const std::vector<uint8_t> answer = inquiry_data(0x01, "FROM SG");
  kernel.answer = [&](sg_io_hdr_t& header) {
    std::memcpy(header.dxferp, answer.data(), answer.size());
    header.resid = static_cast<int>(header.dxfer_len - answer.size());
    return 0;
  };
  PlatformHandle handle = kInvalidPlatformHandle;
  ASSERT_EQ(kErrorNone, open("\\\\.\\Scsi0:", &handle));
  ASSERT_EQ(0, native_platform()->query_adapter(handle, &inquiry));
  ASSERT_EQ(2, inquiry.unit_count);
  ASSERT_EQ(1u, kernel.sent.size());
  EXPECT_EQ(node("sg0"), kernel.sent[0].node);
  EXPECT_EQ((std::vector<uint8_t>{0x12, 0, 0, 0, 0xFF, 0}), kernel.sent[0].cdb);
  EXPECT_EQ(O_RDWR | O_NONBLOCK | O_CLOEXEC, kernel.opens[0].second);  // shared, not exclusive
  EXPECT_EQ(0, std::memcmp(answer.data(), inquiry.units[0].inquiry, 36));
  EXPECT_EQ("ROBOCO  LOADER          ", std::string(reinterpret_cast<const char*>(inquiry.units[1].inquiry + 8), 24));
}

// What `/list` learns of a unit without a command: identity and serial
// number from sysfs, the nodes with udev's lasting names, and whether the
// node the program would open is free, held or closed to it.
TEST_F(Linux, UnitFactsComeFromSysfsAndAnOpenThatIsClosedAtOnce) {
  build_library();
  const std::string page = std::string("\x01\x80\x00\x0C", 4) + "  HU1234567 " ;
  write(root / "sys/devices/host0/0:0:2:0/vpd_pg80", page);
  fs::create_directories(root / "dev/tape/by-id");
  fs::create_symlink("../../nst0", root / "dev/tape/by-id/scsi-HU1234567-nst");
  fs::create_symlink("../../st0", root / "dev/tape/by-id/scsi-HU1234567");
  fs::create_symlink("../../sg4", root / "dev/tape/by-id/scsi-FREE-changer");
  kernel.open_errors[node("sg3")] = EACCES;
  kernel.open_errors[node("sg5")] = EBUSY;
  const struct {
    ScsiAddress address;
    const char* product;
    const char* serial;  // nullptr: not known
    UnitAccess access;
    std::vector<std::string> nodes;
  } cases[] = {
      {{0, 0, 2, 0}, "ST TAPE", "HU1234567", UnitAccess::free,
       {"/dev/nst0", "/dev/sg1", "/dev/tape/by-id/scsi-HU1234567-nst"}},
      {{0, 0, 4, 0}, "CLAIMED CHANGER", nullptr, UnitAccess::no_access, {"/dev/sg3"}},
      {{0, 0, 5, 0}, "FREE CHANGER", nullptr, UnitAccess::free, {"/dev/sg4", "/dev/tape/by-id/scsi-FREE-changer"}},
      {{0, 1, 6, 0}, "BUS ONE TAPE", nullptr, UnitAccess::in_use, {"/dev/sg5"}},
  };
  for (const auto& c : cases) {
    UnitFacts facts{};
    ASSERT_EQ(0, native_platform()->unit_facts(c.address, &facts)) << c.product;
    EXPECT_EQ(0, std::memcmp(c.product, facts.inquiry + 16, std::strlen(c.product))) << c.product;
    EXPECT_EQ(c.serial != nullptr, facts.serial_known) << c.product;
    EXPECT_STREQ(c.serial != nullptr ? c.serial : "", facts.serial) << c.product;
    EXPECT_EQ(c.access, facts.access) << c.product;
    std::vector<std::string> nodes(facts.nodes, facts.nodes + facts.node_count);
    EXPECT_EQ(c.nodes, nodes) << c.product;
  }
  // The st node opened for reading only, the sg nodes as a run opens them;
  // each closed again and nothing sent.
  const std::vector<std::pair<std::string, int>> opened = {{node("nst0"), O_RDONLY | O_NONBLOCK | O_CLOEXEC},
                                                           {node("sg3"), kExclusive},
                                                           {node("sg4"), kExclusive},
                                                           {node("sg5"), kExclusive}};
  EXPECT_EQ(opened, kernel.opens);
  EXPECT_EQ(2u, kernel.closes.size());
  EXPECT_TRUE(kernel.sent.empty());
  UnitFacts facts{};
  EXPECT_EQ(-1, native_platform()->unit_facts(ScsiAddress{0, 0, 9, 0}, &facts));
}

class LinuxCommands : public Linux {
 protected:
  void SetUp() override {
    Linux::SetUp();
    build_library();
    ASSERT_EQ(kErrorNone, open("\\\\.\\Scsi0:", &adapter));
  }
  // A command to the raw tape at id 3 through the adapter.
  PassThroughReply send(std::vector<uint8_t> cdb, DataDirection direction, uint8_t* buffer, uint32_t length) {
    PassThroughRequest request{};
    request.target_id = 3;
    request.cdb_length = static_cast<uint8_t>(cdb.size());
    if (!cdb.empty()) std::memcpy(request.cdb, cdb.data(), std::min<size_t>(cdb.size(), 16));
    request.direction = direction;
    request.data = buffer;
    request.data_length = length;
    request.timeout_seconds = 108000;
    request.sense = sense;
    PassThroughReply reply{};
    native_platform()->pass_through(adapter, request, reply);
    return reply;
  }
  PlatformHandle adapter = kInvalidPlatformHandle;
  alignas(4096) uint8_t data[65536 + 1] = {};
  uint8_t sense[kSenseAreaSize] = {};
};

TEST_F(LinuxCommands, RequestsReachTheKernelAsSgIoHeaders) {
  const struct {
    std::vector<uint8_t> cdb;
    DataDirection direction;
    uint8_t* buffer;
    uint32_t length;
    int expected_direction;
    unsigned flags;
  } cases[] = {
      {{0x0A, 0, 1, 0, 0, 0}, DataDirection::out, data, 65536, SG_DXFER_TO_DEV, SG_FLAG_DIRECT_IO},
      {{0x08, 1, 0, 0, 0x10, 0}, DataDirection::in, data + 1, 8192, SG_DXFER_FROM_DEV, 0},  // unaligned
      {{0x08, 0, 0, 0, 0x50, 0}, DataDirection::in, data, 80, SG_DXFER_FROM_DEV, 0},        // odd length
      {{0, 0, 0, 0, 0, 0}, DataDirection::in, data, 0, SG_DXFER_NONE, 0},
  };
  for (const auto& c : cases) {
    kernel.sent.clear();
    send(c.cdb, c.direction, c.buffer, c.length);
    ASSERT_EQ(1u, kernel.sent.size());
    const sg_io_hdr_t& h = kernel.sent[0].header;
    EXPECT_EQ(node("sg2"), kernel.sent[0].node);
    EXPECT_EQ('S', h.interface_id);
    EXPECT_EQ(c.expected_direction, h.dxfer_direction);
    EXPECT_EQ(c.cdb, kernel.sent[0].cdb);
    EXPECT_EQ(255, h.mx_sb_len);
    EXPECT_EQ(sense, h.sbp);
    EXPECT_EQ(c.length, h.dxfer_len);
    EXPECT_EQ(c.length == 0 ? nullptr : c.buffer, h.dxferp);
    EXPECT_EQ(108000000u, h.timeout);
    EXPECT_EQ(c.flags, h.flags);
  }
  EXPECT_EQ(kErrorInvalidParameter, send(std::vector<uint8_t>(17, 0), DataDirection::in, data, 0).error);
  EXPECT_EQ(kErrorInvalidParameter, send({}, DataDirection::in, data, 0).error);
  EXPECT_EQ(1u, kernel.sent.size());  // the last good one: refused requests are not sent
  EXPECT_EQ(1u, kernel.opens.size());  // the unit's node, once, kept until the adapter closes
  EXPECT_EQ(kExclusive, kernel.opens.back().second);
  native_platform()->close_device(adapter);
  EXPECT_EQ(node("sg2"), kernel.closes.back());
  PassThroughRequest request{};
  request.cdb_length = 6;
  request.data = data;
  request.sense = sense;
  request.timeout_seconds = 5000000;
  sg_io_hdr_t header;
  uint8_t cdb[16];
  fill_sg_io_header(request, &header, cdb);
  EXPECT_EQ(UINT_MAX, header.timeout);  // cut to 32 bits of milliseconds
}

TEST_F(LinuxCommands, AnswersOfTheKernelAreReportedUnjudged) {
  const uint8_t check[18] = {0xF0, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20};
  auto host = [](unsigned char status) {
    return std::function<int(sg_io_hdr_t&)>([status](sg_io_hdr_t& h) { return h.host_status = status, 0; });
  };
  auto fails = [](int error) { return std::function<int(sg_io_hdr_t&)>([error](sg_io_hdr_t&) { return error; }); };
  const struct {
    std::function<int(sg_io_hdr_t&)> answer;
    uint32_t error;
    uint8_t status, sense_length;
    uint32_t transferred;
  } cases[] = {
      {[](sg_io_hdr_t&) { return 0; }, 0, 0, 0, 65536},
      {[&](sg_io_hdr_t& h) {
         h.status = 0x02, h.masked_status = 0x01, h.driver_status = 0x08, h.sb_len_wr = sizeof check;
         std::memcpy(h.sbp, check, sizeof check);
         return h.resid = static_cast<int>(h.dxfer_len), 0;
       }, 0, 0x02, 18, 0},
      {[](sg_io_hdr_t& h) { return h.masked_status = 0x01, 0; }, 0, 0x02, 0, 65536},
      {[](sg_io_hdr_t& h) { return h.resid = 4096, 0; }, 0, 0, 0, 61440},
      {[](sg_io_hdr_t& h) { return h.resid = -5, 0; }, 0, 0, 0, 65536},
      {[](sg_io_hdr_t& h) { return h.host_status = 0x01, h.resid = 65536, 0; }, 2, 0, 0, 0},
      {host(0x03), 1460, 0, 0, 65536}, {host(0x08), 1111, 0, 0, 65536}, {host(0x07), 1117, 0, 0, 65536},
      {[](sg_io_hdr_t& h) { return h.driver_status = 0x06, 0; }, 1460, 0, 0, 65536},
      {fails(EBUSY), 32, 0, 0, 0},    {fails(EACCES), 5, 0, 0, 0},  {fails(EPERM), 5, 0, 0, 0},
      {fails(EINVAL), 87, 0, 0, 0},   {fails(ENOMEM), 87, 0, 0, 0}, {fails(EOVERFLOW), 87, 0, 0, 0},
      {fails(ETIMEDOUT), 1460, 0, 0, 0}, {fails(ENODEV), 2, 0, 0, 0}, {fails(ENXIO), 2, 0, 0, 0},
      {fails(EIO), 1117, 0, 0, 0},    {fails(EXDEV), 31, 0, 0, 0},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    std::memset(sense, 0, sizeof sense);
    kernel.answer = cases[i].answer;
    PassThroughReply reply = send({0x08, 0, 1, 0, 0, 0}, DataDirection::in, data, 65536);
    EXPECT_EQ(cases[i].error, reply.error) << i;
    EXPECT_EQ(cases[i].status, reply.scsi_status) << i;
    EXPECT_EQ(cases[i].sense_length, reply.sense_length) << i;
    EXPECT_EQ(cases[i].transferred, reply.transferred_length) << i;
    EXPECT_EQ(0, std::memcmp(sense, cases[i].sense_length != 0 ? check : sense + 128, 18)) << i;
  }
}

// The program's setup on this platform: the operator's messages, and the
// commands that reach an unclaimed unit through its sg node.
TEST_F(Linux, SetupSaysWhyTheDriveCannotBeTested) {
  const struct {
    const char* unit_driver;
    int type, tape;
    const char* held_node;
    int error;
    std::string screen;
  } cases[] = {
      {"st", 1, 0, "nst0", EACCES,
       "ERROR: unable to access tape drive at SCSI id 2 LUN 0\nCannot open /dev/nst0 (SCSI address 0:0:2:0): "
       "permission denied. Run bftdtest as root, or as a member of group \"tape\" (the group that owns "
       "/dev/nst0) with the CAP_SYS_RAWIO capability.\n"},
      {"", 1, -1, "sg1", EBUSY,
       "ERROR: unable to access tape drive at SCSI id 2 LUN 0\nCannot open /dev/sg1 (SCSI address 0:0:2:0): "
       "the device is in use by another process.\n"},
      {"", 8, -1, "", 0, "ERROR: device at SCSI id 2 LUN 0 is not a sequential access device (type 08)\n"},
  };
  const fs::path previous = fs::current_path();
  for (const auto& c : cases) {
    TearDown();
    SetUp();
    add_host(0);
    add_unit("0:0:2:0", c.type, c.unit_driver, "sg1", inquiry_data(static_cast<uint8_t>(c.type), "UNIT"), c.tape);
    if (c.error != 0) kernel.open_errors[node(c.held_node)] = c.error;
    kernel.answer = [&](sg_io_hdr_t& h) {
      if (h.cmdp[0] == kOpInquiry) std::memcpy(h.dxferp, inquiry_data(0x08, "CHANGER").data(), 36);
      return 0;
    };
    fs::current_path(root);  // the output file goes into the tree
    reset_program_state();
    char name[] = "bftdtest", json[] = "/json", results[] = "results.jsonl";
    char* argv[] = {name, json, results, nullptr};
    int exit_code = -1;
    EXPECT_EQ(c.screen, screen_of([&] { exit_code = run_program(3, argv); }));
    std::ifstream results_file("results.jsonl");
    std::string run_record;
    std::getline(results_file, run_record);
    fs::current_path(previous);
    reset_program_state();
    set_active_platform(nullptr);
    EXPECT_EQ(1, exit_code);
    if (c.error != 0) continue;
    const std::vector<std::vector<uint8_t>> setup = {{0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}, {0x12, 0, 0, 0, 0xFF, 0}};
    ASSERT_EQ(3u, kernel.sent.size());
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(setup[i], kernel.sent[i].cdb);
    EXPECT_EQ(node("sg1"), kernel.sent[2].node);
    EXPECT_NE(std::string::npos, run_record.find("\"device\":\"/dev/sg1\"")) << run_record;  // how it was reached
    EXPECT_EQ(kernel.opens.size(), kernel.closes.size());
  }
}

}  // namespace
