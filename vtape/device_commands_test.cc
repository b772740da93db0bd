// Test Unit Ready, Request Sense, Inquiry, Mode Sense/Select, Load/Unload,
// Prevent/Allow and Log Sense of the virtual drive, against SPC and SSC.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "vtape/vtape_testing.h"

namespace {

Answer test_unit_ready(PlatformHandle h) { return send_cdb(h, {0x00, 0, 0, 0, 0, 0}); }
Answer load(PlatformHandle h, bool in) {
  return send_cdb(h, {0x1B, 0, 0, 0, static_cast<uint8_t>(in ? 1 : 0), 0});
}
Answer prevent(PlatformHandle h, uint8_t value) { return send_cdb(h, {0x1E, 0, 0, 0, value, 0}); }

void expect_sense(const Answer& a, uint8_t key, uint8_t asc, uint8_t ascq, const char* what) {
  EXPECT_EQ(2, a.status) << what;
  EXPECT_EQ(key, a.key()) << what;
  EXPECT_EQ(asc, a.asc()) << what;
  EXPECT_EQ(ascq, a.ascq()) << what;
}

TEST(VtapeDevice, PowerOnUnitAttentionComesOnceAndSpareInquiry) {
  ASSERT_EQ(0, configure_vtape(""));
  PlatformHandle h = open_vtape();
  uint8_t data[255] = {};
  EXPECT_EQ(0, send_cdb(h, {0x12, 0, 0, 0, 255, 0}, data, 255).status);  // Inquiry is exempt
  expect_sense(test_unit_ready(h), 0x6, 0x29, 0x00, "first command");
  Answer second = test_unit_ready(h);
  EXPECT_EQ(0, second.status);
  EXPECT_EQ(0, second.sense_length);
}

TEST(VtapeDevice, InquiryAnswersASequentialAccessDevice) {
  PlatformHandle h = ready_vtape("vendor = ACME\nproduct = TAPE 9\nrevision = 0042\n");
  uint8_t data[255];
  std::memset(data, 0xEE, sizeof data);
  Answer a = send_cdb(h, {0x12, 0, 0, 0, 255, 0}, data, 255);
  EXPECT_EQ(0, a.status);
  EXPECT_EQ(36u, a.transferred);
  EXPECT_EQ(0x01, data[0]);
  EXPECT_EQ(0x80, data[1]);  // removable
  EXPECT_EQ(std::string("ACME    TAPE 9          0042"), std::string(data + 8, data + 36));
  // Vital product data: the supported pages, the serial number; a page the
  // drive does not list is an invalid field.
  EXPECT_EQ(0, send_cdb(h, {0x12, 1, 0x00, 0, 255, 0}, data, 255).status);
  EXPECT_EQ(std::string("\x01\x00\x00\x02\x00\x80", 6), std::string(data, data + 6));
  EXPECT_EQ(0, send_cdb(h, {0x12, 1, 0x80, 0, 255, 0}, data, 255).status);
  EXPECT_EQ(std::string("\x01\x80\x00\x0aVT00000001", 14), std::string(data, data + 14));
  expect_sense(send_cdb(h, {0x12, 1, 0x83, 0, 255, 0}, data, 255), 0x5, 0x24, 0x00, "EVPD 83h");
  h = ready_vtape("serial = none\n");
  EXPECT_EQ(0, send_cdb(h, {0x12, 1, 0x00, 0, 255, 0}, data, 255).status);
  EXPECT_EQ(std::string("\x01\x00\x00\x01\x00", 5), std::string(data, data + 5));
  expect_sense(send_cdb(h, {0x12, 1, 0x80, 0, 255, 0}, data, 255), 0x5, 0x24, 0x00, "EVPD 80h");
}

TEST(VtapeDevice, UnknownOperationCodeIsInvalidCommandOperationCode) {
  PlatformHandle h = ready_vtape();
  for (int opcode : {0x06, 0x0F, 0x2A, 0x5A, 0xA0}) {
    Answer a = send_cdb(h, {static_cast<uint8_t>(opcode), 0, 0, 0, 0, 0});
    expect_sense(a, 0x5, 0x20, 0x00, "opcode");
  }
}

TEST(VtapeDevice, NoMediumIsNotReadyMediumNotPresent) {
  PlatformHandle h = ready_vtape("medium = none\n");
  expect_sense(test_unit_ready(h), 0x2, 0x3A, 0x00, "test unit ready");
  expect_sense(rewind_tape(h), 0x2, 0x3A, 0x00, "rewind");
  expect_sense(load(h, true), 0x2, 0x3A, 0x00, "load");
  uint8_t sense[255] = {};
  Answer request_sense = send_cdb(h, {0x03, 0, 0, 0, 255, 0}, sense, 255);
  EXPECT_EQ(0, request_sense.status);
  EXPECT_EQ(0x2, sense[2]);
  EXPECT_EQ(0x3A, sense[12]);
}

TEST(VtapeDevice, UnloadThenLoadGivesUnitAttentionThenBecomingReady) {
  PlatformHandle h = ready_vtape("not_ready_polls = 2\n");
  write_bytes(h, std::vector<uint8_t>(10, 1));
  EXPECT_EQ(0, load(h, false).status);
  expect_sense(test_unit_ready(h), 0x2, 0x04, 0x02, "unloaded");  // a Load is needed
  EXPECT_EQ(0, load(h, true).status);
  expect_sense(test_unit_ready(h), 0x6, 0x28, 0x00, "after load");
  expect_sense(test_unit_ready(h), 0x2, 0x04, 0x01, "becoming ready 1");
  expect_sense(test_unit_ready(h), 0x2, 0x04, 0x01, "becoming ready 2");
  EXPECT_EQ(0, test_unit_ready(h).status);
  EXPECT_EQ(0, tape_position(h));  // loaded at the beginning, data kept
  std::vector<uint8_t> buffer(10);
  EXPECT_EQ(0, read_bytes(h, &buffer, 10).status);
}

TEST(VtapeDevice, UnloadWhilePreventedHoldsTheCartridgeOrIsRefused) {
  PlatformHandle held = ready_vtape();
  EXPECT_EQ(0, prevent(held, 1).status);
  EXPECT_EQ(0, load(held, false).status);  // unthreaded, cartridge kept in the drive
  expect_sense(test_unit_ready(held), 0x2, 0x04, 0x02, "unloaded while prevented");
  EXPECT_EQ(0, load(held, true).status);
  expect_sense(test_unit_ready(held), 0x6, 0x28, 0x00, "reloaded");
  EXPECT_EQ(0, prevent(held, 0).status);

  PlatformHandle h = ready_vtape("unload_when_prevented = refuse\n");
  ASSERT_NE(kInvalidPlatformHandle, h);
  EXPECT_EQ(0, prevent(h, 1).status);
  expect_sense(load(h, false), 0x5, 0x53, 0x02, "prevented");
  EXPECT_EQ(0, test_unit_ready(h).status);  // still loaded
  EXPECT_EQ(0, prevent(h, 0).status);
  EXPECT_EQ(0, load(h, false).status);
  expect_sense(prevent(h, 2), 0x5, 0x24, 0x00, "changer prevention");
}

TEST(VtapeDevice, UnsupportedLoadUnloadAndPreventAllowAreInvalidOperationCodes) {
  PlatformHandle h = ready_vtape("load_unload = unsupported\nprevent_allow = unsupported\n");
  expect_sense(load(h, false), 0x5, 0x20, 0x00, "load/unload");
  expect_sense(prevent(h, 1), 0x5, 0x20, 0x00, "prevent/allow");
}

TEST(VtapeDevice, ModeSenseReturnsOneBlockDescriptor) {
  PlatformHandle h = ready_vtape("densities = 0x42, 0x44\n");
  uint8_t data[256] = {};
  Answer a = send_cdb(h, {0x1A, 0, 0, 0, 12, 0}, data, 256);
  EXPECT_EQ(0, a.status);
  EXPECT_EQ(12u, a.transferred);
  const uint8_t expected[12] = {11, 0, 0x10, 8, 0x42, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(0, std::memcmp(expected, data, 12));
  ASSERT_EQ(0, select_block_mode(h, 0x44, 0x400, true).status);
  send_cdb(h, {0x1A, 0, 0, 0, 12, 0}, data, 256);
  EXPECT_EQ(0x44, data[4]);
  EXPECT_EQ(0x04, data[10]);
  EXPECT_EQ(0x00, data[11]);
  expect_sense(send_cdb(h, {0x1A, 0, 0x0F, 0, 12, 0}, data, 256), 0x5, 0x24, 0x00, "page 0F");
}

TEST(VtapeDevice, ModeSelectRefusesWhatTheDriveCannotDo) {
  struct Case {
    const char* name;
    uint8_t list[16];
    uint8_t length;
    uint8_t asc;
  };
  const Case cases[] = {
      {"block length above the limit", {0, 0, 0, 8, 0, 0, 0, 0, 0, 0x01, 0x00, 0x00}, 12, 0x26},
      {"unknown density", {0, 0, 0, 8, 0x13, 0, 0, 0, 0, 0, 0x02, 0x00}, 12, 0x26},
      {"two descriptors", {0, 0, 0, 16}, 12, 0x1A},
      {"descriptor length 4", {0, 0, 0, 4, 0, 0, 0, 0}, 8, 0x26},
      {"mode data length set", {11, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0x02, 0x00}, 12, 0x26},
  };
  for (const Case& c : cases) {
    PlatformHandle h = ready_vtape("max_block = 0xFFFF\n");
    uint8_t list[16];
    std::memcpy(list, c.list, sizeof list);
    Answer a = send_cdb(h, {0x15, 0x10, 0, 0, c.length, 0}, list, c.length, DataDirection::out);
    expect_sense(a, 0x5, c.asc, 0x00, c.name);
  }
  PlatformHandle h = ready_vtape();
  EXPECT_EQ(0, select_block_mode(h, 0, 0x8000, false).status);  // PF 0
  EXPECT_EQ(0, select_block_mode(h, 0, 0, true).status);        // PF 1, variable
  h = ready_vtape("mode_select_pf = required\n");
  Answer pf_clear = select_block_mode(h, 0, 0x8000, false);
  expect_sense(pf_clear, 0x5, 0x24, 0x00, "PF clear");
  EXPECT_EQ(0xCC0001u, (pf_clear.sense[15] << 16u) | (pf_clear.sense[16] << 8u) | pf_clear.sense[17]);
  EXPECT_EQ(0, select_block_mode(h, 0, 0x8000, true).status);
}

TEST(VtapeDevice, LogSenseCountsHostAndTapeBytes) {
  PlatformHandle h = ready_vtape("rewrite_percent = 10\ncorrected_percent = 4\n");
  std::vector<uint8_t> zeros(65536, 0);
  std::vector<uint8_t> noise(65536);
  uint32_t x = 12345;
  for (uint8_t& byte : noise) {
    x = x * 1103515245 + 12345;
    byte = static_cast<uint8_t>(x >> 16);
  }
  for (int i = 0; i < 16; ++i) write_bytes(h, zeros);  // 1 MB of zeros
  for (int i = 0; i < 16; ++i) write_bytes(h, noise);  // 1 MB of noise
  EXPECT_EQ(2048, log_value(h, 0x32, 4));              // KB written by the host
  int64_t to_tape = log_value(h, 0x32, 12);
  EXPECT_GE(to_tape, 1024);  // the noise does not compress
  EXPECT_LT(to_tape, 1100);  // the zeros nearly vanish
  EXPECT_EQ(0, log_value(h, 0x32, 20));
  EXPECT_EQ(204, log_value(h, 0x02, 20));  // KB rewritten: 10 % of 2048 KB
  EXPECT_EQ(3, log_value(h, 0x02, 4));     // records rewritten: 10 % of 32
  rewind_tape(h);
  std::vector<uint8_t> buffer(65536);
  for (int i = 0; i < 32; ++i) ASSERT_EQ(0, read_bytes(h, &buffer, 65536).status);
  EXPECT_EQ(2048, log_value(h, 0x32, 20));  // KB read by the host
  EXPECT_EQ(to_tape, log_value(h, 0x32, 28));
  EXPECT_EQ(81, log_value(h, 0x03, 28));         // KB corrected: 4 % of 2048 KB
  EXPECT_EQ(2097152, log_value(h, 0x0C, 4, 8));  // bytes from the host, 8 bytes
}

TEST(VtapeDevice, LogSenseSupportedPagesAndRefusals) {
  PlatformHandle h = ready_vtape();
  uint8_t data[40] = {};
  Answer a = send_cdb(h, {0x4D, 0, 0x40, 0, 0, 0, 0, 0, 40, 0}, data, 40);
  EXPECT_EQ(0, a.status);
  const uint8_t expected[] = {0x00, 0, 0, 7, 0x00, 0x02, 0x03, 0x0C, 0x17, 0x2E, 0x32};
  EXPECT_EQ(sizeof expected, a.transferred);
  EXPECT_EQ(0, std::memcmp(expected, data, sizeof expected));
  expect_sense(send_cdb(h, {0x4D, 0, 0x55, 0, 0, 0, 0, 0, 40, 0}, data, 40), 0x5, 0x24, 0, "page");
  expect_sense(send_cdb(h, {0x4D, 1, 0x42, 0, 0, 0, 0, 0, 40, 0}, data, 40), 0x5, 0x24, 0, "SP");
  // The parameter pointer skips the parameters below it.
  send_cdb(h, {0x4D, 0, 0x72, 0, 0, 0, 0x02, 0, 40, 0}, data, 40);
  EXPECT_EQ(0x02, data[5]);
}

TEST(VtapeDevice, RequestSenseCarriesTheRetryCounter) {
  PlatformHandle h = ready_vtape("rewrite_percent = 50\n");
  for (int i = 0; i < 10; ++i) write_bytes(h, std::vector<uint8_t>(100, 7));
  uint8_t sense[255] = {};
  Answer a = send_cdb(h, {0x03, 0, 0, 0, 255, 0}, sense, 255);
  EXPECT_EQ(0, a.status);
  EXPECT_EQ(22u, a.transferred);
  EXPECT_EQ(0x70, sense[0]);
  EXPECT_EQ(0x0, sense[2]);
  EXPECT_EQ(14, sense[7]);
  EXPECT_EQ(5, (sense[18] << 8) | sense[19]);
}

}  // namespace
