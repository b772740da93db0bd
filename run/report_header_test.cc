#include "run/report_header.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "console/clock.h"
#include "console/log_output.h"
#include "console/text_layout.h"
#include "settings/settings.h"
#include "testing/output_capture.h"
#include "transport/device_table.h"
#include "transport/scsi_transport.h"
#include "transport/transport_testing.h"

namespace {

void fixed_clock(std::tm* now) {
  std::memset(now, 0, sizeof *now);
  now->tm_year = 102;
  now->tm_mon = 5;
  now->tm_mday = 3;
  now->tm_hour = 16;
  now->tm_min = 22;
  now->tm_sec = 23;
}

class ReportHeader : public FakeTransportTest {
 protected:
  void SetUp() override {
    FakeTransportTest::SetUp();
    reset_settings();
    set_local_time_source(fixed_clock);
    output_ = std::tmpfile();
    set_log_file(output_);
  }
  void TearDown() override {
    set_log_file(nullptr);
    std::fclose(output_);
    set_local_time_source(nullptr);
    reset_settings();
    FakeTransportTest::TearDown();
  }
  std::string output_text() {
    std::fflush(output_);
    std::string text(static_cast<size_t>(std::ftell(output_)), '\0');
    std::rewind(output_);
    text.resize(std::fread(text.data(), 1, text.size(), output_));
    std::fseek(output_, 0, SEEK_END);
    return text;
  }
  FILE* output_ = nullptr;
};

std::string title_block() {
  FILE* stream = std::tmpfile();
  print_title({stream}, kProgramTitle);
  std::fflush(stream);
  std::string text(static_cast<size_t>(std::ftell(stream)), '\0');
  std::rewind(stream);
  text.resize(std::fread(text.data(), 1, text.size(), stream));
  std::fclose(stream);
  return text;
}

TEST_F(ReportHeader, InquiryFieldsArePaddedAndCutAtTheirWidth) {
  struct Case {
    const char* name;
    std::string inquiry_text;  // bytes 8-35
    const char* lines;
  } cases[] = {
      {"blank padded", "VEND    PRODUCT NAME    1.0 ",
       "DRIVE PRODUCT ID ............ PRODUCT NAME    \r\n"
       "DRIVE VENDOR ID ............. VEND    \r\n"
       "DRIVE FIRMWARE REVISION ..... 1.0 \r\n"},
      {"zero ends a field", std::string("AB\0CDEFGPRODUCTNAMEWIDE1RV\0Z", 28),
       "DRIVE PRODUCT ID ............ PRODUCTNAMEWIDE1\r\n"
       "DRIVE VENDOR ID ............. AB      \r\n"
       "DRIVE FIRMWARE REVISION ..... RV  \r\n"},
  };
  fake_add_tape_drive(0, 0, 2, 0);
  ASSERT_EQ(0, scan_devices());
  for (const Case& c : cases) {
    FakeReply inquiry;
    inquiry.data_in.assign(36, 0);
    inquiry.data_in[0] = 0x01;
    std::memcpy(inquiry.data_in.data() + 8, c.inquiry_text.data(), c.inquiry_text.size());
    fake_script_reply(inquiry);
    long before = std::ftell(output_);
    OutputCapture capture;
    print_report_header();
    std::string expected = title_block() + "\r\nTEST DATE/TIME .............. 06/03/02 04:22:23 pm\r\n" +
                           c.lines;
    EXPECT_EQ(expected, capture.screen()) << c.name;
    EXPECT_EQ(expected, output_text().substr(static_cast<size_t>(before))) << c.name;
    EXPECT_EQ("12 00 00 00 ff 00", hex_bytes(fake_requests().back().cdb));
  }
}

TEST_F(ReportHeader, SettingsSummaryShowsTheOutputFileOnTheScreenOnly) {
  struct Case {
    const char* mode;
    bool cdb_list;
    const char* screen;
    const char* file;
  } cases[] = {
      {"wb", false, "\r\noutput file = \"bftdtest.out\"\r\n", "\r\n"},
      {"ab", true,
       "\r\noutput file (append) = \"bftdtest.out\"\r\nCDB list file = \"cdbs.txt\"\r\n",
       "\r\nCDB list file = \"cdbs.txt\"\r\n"},
  };
  for (const Case& c : cases) {
    std::snprintf(test_settings.output_file_mode, sizeof test_settings.output_file_mode, "%s",
                  c.mode);
    test_settings.cdb_list_enabled = c.cdb_list ? 1 : 0;
    std::snprintf(test_settings.cdb_list_file_name, kFileNameCapacity, "cdbs.txt");
    long before = std::ftell(output_);
    OutputCapture capture;
    print_settings_summary();
    EXPECT_EQ(c.screen, capture.screen());
    EXPECT_EQ(c.file, output_text().substr(static_cast<size_t>(before)));
  }
}

}  // namespace
