// Commands on the Linux platform: the sg_io_hdr that reaches the kernel and
// how the kernel's answers and errors come back, over the fake kernel.
#include "transport/platform/sg_io_linux.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "transport/platform/fake_linux_testing.h"
#include "transport/platform/platform.h"
#include "transport/platform/platform_linux.h"

namespace {

const Platform& linux_platform() { return *native_platform(); }

class LinuxCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    set_linux_root(tree.root().c_str());
    tree.add_host(0);
    tree.add_unit("0:0:2:0", 1, "st", "sg1", inquiry_data(0x01, "TAPECO", "ST TAPE"));
    tree.add_unit("0:0:3:0", 1, "", "sg2", inquiry_data(0x01, "TAPECO", "RAW TAPE"));
    tree.add_tape(0, "0:0:2:0");
    ASSERT_EQ(kErrorNone, linux_platform().open_device("\\\\.\\Scsi0:", &adapter));
    data = static_cast<uint8_t*>(std::aligned_alloc(4096, 65536));
  }
  void TearDown() override { std::free(data); }

  // A command to the raw tape at id 3 through the adapter.
  PassThroughReply send(std::vector<uint8_t> cdb, DataDirection direction, uint8_t* buffer,
                        uint32_t length, PlatformHandle device = -2) {
    PassThroughRequest request{};
    request.path_id = 0;
    request.target_id = 3;
    request.lun = 0;
    request.cdb_length = static_cast<uint8_t>(cdb.size());
    if (!cdb.empty()) std::memcpy(request.cdb, cdb.data(), cdb.size() < 16 ? cdb.size() : 16);
    request.direction = direction;
    request.data = buffer;
    request.data_length = length;
    request.timeout_seconds = 108000;
    request.sense = sense;
    PassThroughReply reply{};
    linux_platform().pass_through(device == -2 ? adapter : device, request, reply);
    return reply;
  }

  std::string node(const char* name) { return tree.root() + "/dev/" + name; }

  FakeSysfs tree;
  FakeKernel kernel;
  PlatformHandle adapter = kInvalidPlatformHandle;
  uint8_t* data = nullptr;
  uint8_t no_data[1] = {};
  uint8_t sense[kSenseAreaSize] = {};
};

TEST_F(LinuxCommands, WriteReadAndTestUnitReadyReachTheKernelAsSgIoHeaders) {
  struct Case {
    const char* name;
    std::vector<uint8_t> cdb;
    DataDirection direction;
    uint8_t* buffer;
    uint32_t length;
    int expected_direction;
    unsigned expected_flags;
  };
  const Case cases[] = {
      {"Write(6)", {0x0A, 0x00, 0x01, 0x00, 0x00, 0x00}, DataDirection::out, data, 65536, SG_DXFER_TO_DEV,
       SG_FLAG_DIRECT_IO},
      {"Read(6) into an unaligned buffer", {0x08, 0x01, 0x00, 0x00, 0x10, 0x00}, DataDirection::in, data + 1, 8192,
       SG_DXFER_FROM_DEV, 0},
      {"Read(6) of an odd length", {0x08, 0x00, 0x00, 0x00, 0x50, 0x00}, DataDirection::in, data, 80,
       SG_DXFER_FROM_DEV, 0},
      {"Test Unit Ready", {0x00, 0x00, 0x00, 0x00, 0x00, 0x00}, DataDirection::in, no_data, 0, SG_DXFER_NONE, 0},
  };
  for (const Case& c : cases) {
    kernel.sent.clear();
    send(c.cdb, c.direction, c.buffer, c.length);
    ASSERT_EQ(1u, kernel.sent.size()) << c.name;
    const sg_io_hdr_t& header = kernel.sent[0].header;
    EXPECT_EQ(node("sg2"), kernel.sent[0].node) << c.name;
    EXPECT_EQ('S', header.interface_id) << c.name;
    EXPECT_EQ(c.expected_direction, header.dxfer_direction) << c.name;
    EXPECT_EQ(c.cdb, kernel.sent[0].cdb) << c.name;
    EXPECT_EQ(6, header.cmd_len) << c.name;
    EXPECT_EQ(255, header.mx_sb_len) << c.name;
    EXPECT_EQ(sense, header.sbp) << c.name;
    EXPECT_EQ(c.length, header.dxfer_len) << c.name;
    EXPECT_EQ(c.length == 0 ? nullptr : c.buffer, header.dxferp) << c.name;
    EXPECT_EQ(0, header.iovec_count) << c.name;
    EXPECT_EQ(108000000u, header.timeout) << c.name;
    EXPECT_EQ(c.expected_flags, header.flags) << c.name;
  }
  // The unit's sg node was opened once, exclusively, and stays open until the adapter closes.
  ASSERT_EQ(1u, kernel.opens.size());
  EXPECT_EQ(O_RDWR | O_EXCL | O_NONBLOCK | O_CLOEXEC, kernel.opens[0].flags);
  EXPECT_TRUE(kernel.closes.empty());
  linux_platform().close_device(adapter);
  EXPECT_EQ(std::vector<std::string>{node("sg2")}, kernel.closes);
}

TEST_F(LinuxCommands, TapeDeviceCommandsGoThroughItsStNode) {
  PlatformHandle tape = kInvalidPlatformHandle;
  ASSERT_EQ(kErrorNone, linux_platform().open_device("\\\\.\\Tape0", &tape));
  send({0x01, 0, 0, 0, 0, 0}, DataDirection::in, no_data, 0, tape);
  ASSERT_EQ(1u, kernel.sent.size());
  EXPECT_EQ(node("nst0"), kernel.sent[0].node);
}

TEST_F(LinuxCommands, AnswersOfTheKernelAreReportedUnjudged) {
  const uint8_t check_sense[18] = {0xF0, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0x00, 0, 0, 0, 0};
  struct Case {
    const char* name;
    std::function<int(sg_io_hdr_t&)> answer;
    uint32_t error;
    uint8_t status;
    uint8_t sense_length;
    uint32_t transferred;
  };
  const Case cases[] = {
      {"good", [](sg_io_hdr_t&) { return 0; }, 0, 0, 0, 65536},
      {"check condition with sense",
       [&](sg_io_hdr_t& h) {
         h.status = 0x02;
         h.masked_status = 0x01;
         h.driver_status = 0x08;  // DRIVER_SENSE
         h.sb_len_wr = sizeof check_sense;
         std::memcpy(h.sbp, check_sense, sizeof check_sense);
         h.resid = static_cast<int>(h.dxfer_len);
         return 0;
       },
       0, 0x02, 18, 0},
      {"status only in masked_status",
       [](sg_io_hdr_t& h) {
         h.masked_status = 0x01;
         return 0;
       },
       0, 0x02, 0, 65536},
      {"resid", [](sg_io_hdr_t& h) { h.resid = 4096; return 0; }, 0, 0, 0, 61440},
      {"negative resid", [](sg_io_hdr_t& h) { h.resid = -5; return 0; }, 0, 0, 0, 65536},
      {"selection timeout", [](sg_io_hdr_t& h) { h.host_status = 0x01; h.resid = 65536; return 0; }, 2, 0, 0, 0},
      {"command timeout", [](sg_io_hdr_t& h) { h.host_status = 0x03; return 0; }, 1460, 0, 0, 65536},
      {"bus reset", [](sg_io_hdr_t& h) { h.host_status = 0x08; return 0; }, 1111, 0, 0, 65536},
      {"host error", [](sg_io_hdr_t& h) { h.host_status = 0x07; return 0; }, 1117, 0, 0, 65536},
      {"driver timeout", [](sg_io_hdr_t& h) { h.driver_status = 0x06; return 0; }, 1460, 0, 0, 65536},
      {"ioctl EBUSY", [](sg_io_hdr_t&) { return EBUSY; }, 32, 0, 0, 0},
      {"ioctl EACCES", [](sg_io_hdr_t&) { return EACCES; }, 5, 0, 0, 0},
      {"ioctl EPERM", [](sg_io_hdr_t&) { return EPERM; }, 5, 0, 0, 0},
      {"ioctl EINVAL", [](sg_io_hdr_t&) { return EINVAL; }, 87, 0, 0, 0},
      {"ioctl ENOMEM", [](sg_io_hdr_t&) { return ENOMEM; }, 87, 0, 0, 0},
      {"ioctl EOVERFLOW", [](sg_io_hdr_t&) { return EOVERFLOW; }, 87, 0, 0, 0},
      {"ioctl ETIMEDOUT", [](sg_io_hdr_t&) { return ETIMEDOUT; }, 1460, 0, 0, 0},
      {"ioctl ENODEV", [](sg_io_hdr_t&) { return ENODEV; }, 2, 0, 0, 0},
      {"ioctl ENXIO", [](sg_io_hdr_t&) { return ENXIO; }, 2, 0, 0, 0},
      {"ioctl EIO", [](sg_io_hdr_t&) { return EIO; }, 1117, 0, 0, 0},
      {"ioctl other errno", [](sg_io_hdr_t&) { return EXDEV; }, 31, 0, 0, 0},
  };
  for (const Case& c : cases) {
    std::memset(sense, 0, sizeof sense);
    kernel.answer = c.answer;
    PassThroughReply reply = send({0x08, 0, 1, 0, 0, 0}, DataDirection::in, data, 65536);
    EXPECT_EQ(c.error, reply.error) << c.name;
    EXPECT_EQ(c.status, reply.scsi_status) << c.name;
    EXPECT_EQ(c.sense_length, reply.sense_length) << c.name;
    EXPECT_EQ(c.transferred, reply.transferred_length) << c.name;
    EXPECT_EQ(0, std::memcmp(sense, c.sense_length != 0 ? check_sense : sense + 128, 18)) << c.name;
  }
}

TEST_F(LinuxCommands, RefusedCommandsAreNotSent) {
  kernel.open_errors[node("sg2")] = EBUSY;
  PassThroughReply reply = send({0, 0, 0, 0, 0, 0}, DataDirection::in, no_data, 0);
  EXPECT_EQ(kErrorSharingViolation, reply.error);
  EXPECT_STREQ("Cannot open /dev/sg2 (SCSI address 0:0:3:0): the device is in use by another process.",
               linux_platform().describe_last_error());
  kernel.open_errors.clear();

  EXPECT_EQ(kErrorInvalidParameter, send(std::vector<uint8_t>(17, 0), DataDirection::in, no_data, 0).error);
  EXPECT_EQ(kErrorInvalidParameter, send({}, DataDirection::in, no_data, 0).error);

  PassThroughRequest nobody{};
  nobody.target_id = 9;
  nobody.cdb_length = 6;
  nobody.data = no_data;
  nobody.sense = sense;
  PassThroughReply missing{};
  linux_platform().pass_through(adapter, nobody, missing);
  EXPECT_EQ(kErrorNotFound, missing.error);
  EXPECT_TRUE(kernel.sent.empty());
}

TEST_F(LinuxCommands, UnitInUseByThisProcessStaysListed) {
  send({0, 0, 0, 0, 0, 0}, DataDirection::in, no_data, 0);
  kernel.open_errors[node("sg2")] = EBUSY;  // a second exclusive open fails, as in the kernel
  AdapterInquiry inquiry{};
  ASSERT_EQ(0, linux_platform().query_adapter(adapter, &inquiry));
  ASSERT_EQ(2, inquiry.unit_count);
  EXPECT_EQ(3, inquiry.units[1].target_id);
}

TEST(SgIoHeader, TimeoutBeyondThirtyTwoBitsOfMillisecondsIsCut) {
  uint8_t byte = 0;
  uint8_t sense[kSenseAreaSize];
  PassThroughRequest request{};
  request.cdb_length = 6;
  request.data = &byte;
  request.sense = sense;
  request.timeout_seconds = 5000000;
  sg_io_hdr_t header;
  uint8_t cdb[16];
  fill_sg_io_header(request, &header, cdb);
  EXPECT_EQ(UINT_MAX, header.timeout);
}

}  // namespace
