#include "run/report_header.h"

#include <cstdint>
#include <cstring>

#include "console/clock.h"
#include "console/log_output.h"
#include "console/text_layout.h"
#include "run/options.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "transport/command_buffers.h"
#include "transport/scsi_transport.h"

namespace {

// An Inquiry text field as a C string: up to the first zero byte or the
// field's end. The fields carry no terminator of their own.
struct InquiryField {
  char text[17];
};

InquiryField inquiry_field(unsigned offset, unsigned length) {
  InquiryField field{};
  if (inquiry_buffer == nullptr) return field;
  for (unsigned i = 0; i < length && inquiry_buffer[offset + i] != 0; ++i) {
    field.text[i] = static_cast<char>(inquiry_buffer[offset + i]);
  }
  return field;
}

}  // namespace

void print_report_header() {
  print_title({screen_stream(), log_file()}, kProgramTitle);
  report_printf("\r\nTEST DATE/TIME .............. %s %s\r\n", date_string(), time_string());
  scsi_inquiry(255);
  report_printf("DRIVE PRODUCT ID ............ %-16.16s\r\n", inquiry_field(16, 16).text);
  report_printf("DRIVE VENDOR ID ............. %-8.8s\r\n", inquiry_field(8, 8).text);
  report_printf("DRIVE FIRMWARE REVISION ..... %-4.4s\r\n", inquiry_field(32, 4).text);
  flush_report_streams();
}

void print_settings_summary() {
  report_printf("\r\n");
  screen_printf("output file %s \"%s\"\r\n",
                test_settings.output_file_mode[0] == 'a' ? "(append) =" : "=",
                test_settings.output_file_name);
  if (test_settings.cdb_list_enabled != 0) {
    report_printf("CDB list file = \"%s\"\r\n", test_settings.cdb_list_file_name);
  }
  if (test_settings.iscsi_enabled != 0) {
    char url[kIscsiTextCapacity];
    shown_iscsi_setting(test_settings.iscsi_url, url, sizeof url);
    report_printf("iSCSI unit = \"%s\"\r\n", url);
  }
  if (test_settings.changer_iscsi_enabled != 0) {
    char url[kIscsiTextCapacity];
    shown_iscsi_setting(test_settings.changer_iscsi_url, url, sizeof url);
    report_printf("iSCSI changer = \"%s\"\r\n", url);
  }
  flush_report_streams();
}
