#include "transport/status_report.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "console/log_output.h"
#include "testing/output_capture.h"
#include "transport/command_buffers.h"
#include "transport/scsi_transport.h"
#include "transport/transport_testing.h"

namespace {

using StatusReport = FakeTransportTest;

std::string blanks(size_t count) { return std::string(count, ' '); }

// The dump line of 8 zero bytes at offset 0, as the report shows it.
const std::string kEightZeroBytes = "000000: 00 00 00 00 | 00 00 00 00   " + blanks(12) + "  " +
                                    blanks(12) + " ........" + blanks(8) + "\r\n";

std::string report_for(uint32_t win32_error, uint8_t target_status, uint8_t sense_key_byte) {
  scsi_transport.result.win32_error = win32_error;
  scsi_transport.result.target_status = target_status;
  scsi_transport.result.sense_key_byte = sense_key_byte;
  OutputCapture capture;
  print_command_status();
  return capture.screen();
}

TEST_F(StatusReport, ReadThatHitAFilemarkReportsFmkTrueLengthAndEighteenSenseBytes) {
  const uint8_t sense[18] = {0xF0, 0, 0x80, 0, 0, 0, 0, 10};
  std::memcpy(sense_buffer, sense, sizeof sense);
  scsi_transport.result.transferred_length = 0x8000;
  FILE* output = std::tmpfile();
  set_log_file(output);
  std::string screen = report_for(0, 0x02, 0x80);
  set_log_file(nullptr);
  std::string expected =
      "\r\n"
      "Win32 SRB status . 00 (no error)\r\n"
      "SRB targ status .. 02 (check condition)\r\n"
      "SRB sense key .... 80 (no sense); FMK; true CDB xfer = 8000\r\n\r\n"
      "000000: f0 00 80 00 | 00 00 00 0a | 00 00 00 00 | 00 00 00 00  \xf0......." +
      std::string(8, '.') +
      "\r\n"
      "000010: 00 00 " + blanks(6) + "  " + blanks(12) + "  " + blanks(12) + "  " + blanks(12) + " .." + blanks(14) +
      "\r\n";
  EXPECT_EQ(expected, screen);
  std::rewind(output);
  char file_text[1024] = {};
  size_t got = std::fread(file_text, 1, sizeof file_text, output);
  std::fclose(output);
  EXPECT_EQ(expected, std::string(file_text, got));
}

TEST_F(StatusReport, CodesAndFlagsAreNamed) {
  struct Case {
    uint32_t win32_error;
    uint8_t target_status;
    uint8_t sense_byte_2;
    const char* first_lines;
  } cases[] = {
      {1100, 0x00, 0x00,
       "\r\nWin32 SRB status . 44C (EOM)\r\nSRB targ status .. 00 (no error)\r\n"
       "SRB sense key .... 00 (no sense)\r\n\r\n"},
      {0, 0x18, 0x00,
       "\r\nWin32 SRB status . 00 (no error)\r\nSRB targ status .. 18 (UNKNOWN STATUS!!!)\r\n"
       "SRB sense key .... 00 (no sense)\r\n\r\n"},
      {87, 0x28, 0xE0,
       "\r\nWin32 SRB status . 57 (invalid parameter)\r\nSRB targ status .. 28 (queue full)\r\n"
       "SRB sense key .... E0 (no sense); FMK; EOM; ILI\r\n\r\n"},
      {1460, 0x08, 0x0D,
       "\r\nWin32 SRB status . 5B4 (timeout)\r\nSRB targ status .. 08 (LUN busy)\r\n"
       "SRB sense key .... 0D (volume overflow)\r\n\r\n"},
  };
  for (const Case& c : cases) {
    std::memset(sense_buffer, 0, kSenseBufferSize);
    sense_buffer[2] = c.sense_byte_2;
    std::string report = report_for(c.win32_error, c.target_status, c.sense_byte_2);
    std::string expected = std::string(c.first_lines);
    if (c.sense_byte_2 == 0) expected += kEightZeroBytes;
    EXPECT_EQ(expected, report.substr(0, expected.size())) << c.win32_error;
  }
  EXPECT_STREQ("unknown error", win32_error_name(3));
  EXPECT_STREQ("access denied", win32_error_name(5));
  EXPECT_STREQ("device is in use by another process", win32_error_name(32));
  EXPECT_STREQ("no media in drive", win32_error_name(1112));
  EXPECT_STREQ("command terminated", target_status_name(0x22));
  EXPECT_STREQ("reserved", sense_key_names[15]);
  EXPECT_STREQ("blank check", sense_key_names[8]);
}

TEST(HexDump, LinesColumnsAndRanges) {
  uint8_t zeros[32] = {};
  uint8_t text[20];
  for (uint8_t i = 0; i < 20; ++i) text[i] = static_cast<uint8_t>('A' + i);
  text[0] = 0x7F;
  text[1] = 0xFF;
  text[2] = 0xA0;
  struct Case {
    const uint8_t* buffer;
    uint32_t size, start, count;
    std::string expected;
  } cases[] = {
      {zeros, 32, 0, 8, kEightZeroBytes},
      // start beyond the buffer dumps from 0.
      {zeros, 8, 9, 0, kEightZeroBytes},
      // count 0 runs from start to the end; offsets count from the buffer.
      {zeros, 32, 24, 0, "000018" + kEightZeroBytes.substr(6)},
      {text, 20, 0, 17,
       "000000: 7f ff a0 44 | 45 46 47 48 | 49 4a 4b 4c | 4d 4e 4f 50  ..\xa0" "DEFGHIJKLMNOP\r\n"
       "000010: 51 " + blanks(9) + "  " + blanks(12) + "  " + blanks(12) + "  " + blanks(12) + " Q" + blanks(15) +
           "\r\n"},
  };
  for (const Case& c : cases) {
    OutputCapture capture;
    EXPECT_EQ(0, hex_dump(nullptr, c.buffer, c.size, c.start, c.count));
    EXPECT_EQ(c.expected, capture.screen());
  }
}

TEST(HexDump, RefusesNullOrEmptyBufferWithItsMessage) {
  uint8_t byte = 0;
  OutputCapture capture;
  EXPECT_EQ(-1, hex_dump(nullptr, nullptr, 16, 0, 0));
  EXPECT_EQ(-1, hex_dump(nullptr, &byte, 0, 0, 0));
  std::string message = "ERROR: NULL buffer or zero buffer length (buffer not dumped)\r\n";
  EXPECT_EQ(message + message, capture.screen());
}

TEST(HexDump, GoesOnlyToTheGivenStream) {
  uint8_t zeros[8] = {};
  FILE* stream = std::tmpfile();
  OutputCapture capture;
  EXPECT_EQ(0, hex_dump(stream, zeros, 8, 0, 8));
  EXPECT_EQ("", capture.screen());
  std::rewind(stream);
  char text[256] = {};
  size_t got = std::fread(text, 1, sizeof text, stream);
  std::fclose(stream);
  EXPECT_EQ(kEightZeroBytes, std::string(text, got));
}

}  // namespace
