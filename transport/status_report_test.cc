#include "transport/status_report.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "testing/screen_capture.h"
#include "transport/command_buffers.h"
#include "transport/scsi_transport.h"

namespace {

std::string blanks(size_t count) { return std::string(count, ' '); }

// The dump line of 8 zero bytes at offset 0, as the report shows it.
const std::string kEightZeroBytes =
    "000000: 00 00 00 00 | 00 00 00 00   " + blanks(26) + " ........" + blanks(8) + "\r\n";

TEST(StatusReport, CodesFlagsAndTheSenseDumpAreNamed) {
  const struct {
    uint32_t win32_error;
    uint8_t target_status;
    uint8_t sense_byte_2;
    uint32_t transferred;
    const char* report;  // its start
  } cases[] = {
      {0, 0x02, 0x80, 0x8000,
       "\r\nWin32 SRB status . 00 (no error)\r\nSRB targ status .. 02 (check condition)\r\n"
       "SRB sense key .... 80 (no sense); FMK; true CDB xfer = 8000\r\n\r\n"
       "000000: f0 00 80 00 | 00 00 00 0a | 00 00 00 00 | 00 00 00 00  \xf0..............."
       "\r\n000010: 00 00 "},
      {1100, 0x00, 0x00, 0,
       "\r\nWin32 SRB status . 44C (EOM)\r\nSRB targ status .. 00 (no error)\r\n"
       "SRB sense key .... 00 (no sense)\r\n\r\n000000: 00 00 00 00 | 00 00 00 00   "},
      {0, 0x18, 0x03, 0,
       "\r\nWin32 SRB status . 00 (no error)\r\nSRB targ status .. 18 (UNKNOWN STATUS!!!)\r\n"
       "SRB sense key .... 03 (medium error)\r\n"},
      {87, 0x28, 0xE0, 0,
       "\r\nWin32 SRB status . 57 (invalid parameter)\r\nSRB targ status .. 28 (queue full)\r\n"
       "SRB sense key .... E0 (no sense); FMK; EOM; ILI\r\n"},
      {1460, 0x08, 0x0D, 0,
       "\r\nWin32 SRB status . 5B4 (timeout)\r\nSRB targ status .. 08 (LUN busy)\r\n"
       "SRB sense key .... 0D (volume overflow)\r\n"},
  };
  ASSERT_EQ(0, init_command_buffers());
  for (const auto& c : cases) {
    reset_scsi_transport();
    std::memset(sense_buffer, 0, kSenseBufferSize);
    if (c.transferred != 0) std::memcpy(sense_buffer, "\xf0\x00\x80\x00\x00\x00\x00\x0a", 8);
    sense_buffer[2] = c.sense_byte_2;
    scsi_transport.result.win32_error = c.win32_error;
    scsi_transport.result.target_status = c.target_status;
    scsi_transport.result.sense_key_byte = c.sense_byte_2;
    scsi_transport.result.transferred_length = c.transferred;
    std::string report = screen_of([] { print_command_status(); });
    EXPECT_EQ(c.report, report.substr(0, std::strlen(c.report))) << c.win32_error;
  }
  free_command_buffers();
  EXPECT_STREQ("unknown error", win32_error_name(3));
  EXPECT_STREQ("access denied", win32_error_name(5));
  EXPECT_STREQ("device is in use by another process", win32_error_name(32));
  EXPECT_STREQ("no media in drive", win32_error_name(1112));
  EXPECT_STREQ("command terminated", target_status_name(0x22));
  EXPECT_STREQ("reserved", sense_key_names[15]);
  EXPECT_STREQ("blank check", sense_key_names[8]);
}

TEST(HexDump, LinesColumnsRangesAndRefusals) {
  uint8_t zeros[32] = {};
  uint8_t text[20];
  for (uint8_t i = 0; i < 20; ++i) text[i] = static_cast<uint8_t>('A' + i);
  text[0] = 0x7F;
  text[1] = 0xFF;
  text[2] = 0xA0;
  const std::string refused = "ERROR: NULL buffer or zero buffer length (buffer not dumped)\r\n";
  const struct {
    const uint8_t* buffer;
    uint32_t size, start, count;
    int result;
    std::string expected;
  } cases[] = {
      {zeros, 32, 0, 8, 0, kEightZeroBytes},
      {zeros, 8, 9, 0, 0, kEightZeroBytes},                             // start beyond the buffer: from 0
      {zeros, 32, 24, 0, 0, "000018" + kEightZeroBytes.substr(6)},      // count 0: to the end
      {text, 20, 0, 17, 0,
       "000000: 7f ff a0 44 | 45 46 47 48 | 49 4a 4b 4c | 4d 4e 4f 50  ..\xa0" "DEFGHIJKLMNOP\r\n"
       "000010: 51 " + blanks(9) + "  " + blanks(12) + "  " + blanks(12) + "  " + blanks(12) + " Q" + blanks(15) + "\r\n"},
      {nullptr, 16, 0, 0, -1, refused},
      {zeros, 0, 0, 0, -1, refused},
  };
  for (const auto& c : cases) {
    int result = 1;
    EXPECT_EQ(c.expected, screen_of([&] { result = hex_dump(nullptr, c.buffer, c.size, c.start, c.count); }));
    EXPECT_EQ(c.result, result);
  }
}

}  // namespace
