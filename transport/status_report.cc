#include "transport/status_report.h"

#include <cstdio>

#include "console/log_output.h"
#include "transport/command_buffers.h"
#include "transport/platform/platform.h"
#include "transport/scsi_transport.h"

const char* const sense_key_names[16] = {
    "no sense",     "recovered error", "not ready",       "medium error",
    "hardware error", "illegal request", "unit attention", "write protect",
    "blank check",  "vendor unique",   "copy aborted",    "aborted command",
    "equal",        "volume overflow", "miscompare",      "reserved"};

const char* win32_error_name(uint32_t code) {
  switch (code) {
    case 0: return "no error";
    case 2: return "device not found";
    case 5: return "access denied";
    case 19: return "write protect";
    case 32: return "device is in use by another process";
    case 50: return "function not supported";
    case 87: return "invalid parameter";
    case 1100: return "EOM";
    case 1101: return "filemark detected";
    case 1102: return "BOM";
    case 1103: return "setmark detected";
    case 1104: return "EOD";
    case 1105: return "partition failure";
    case 1106: return "ILI";
    case 1107: return "device not partitioned";
    case 1108: return "unable to lock media";
    case 1109: return "unable to unload media";
    case 1110: return "media changed";
    case 1111: return "bus reset detected";
    case 1112: return "no media in drive";
    case 1460: return "timeout";
    default: return "unknown error";
  }
}

const char* target_status_name(uint8_t status) {
  switch (status) {
    case 0x00: return "no error";
    case 0x02: return "check condition";
    case 0x04: return "condition met for pre-fetch SCSI commands";
    case 0x08: return "LUN busy";
    case 0x22: return "command terminated";
    case 0x28: return "queue full";
    default: return "UNKNOWN STATUS!!!";
  }
}

void print_command_status() {
  const ScsiResult& result = scsi_transport.result;
  static const uint8_t kNoSense[kSenseBufferSize] = {};
  const uint8_t* sense = result.sense_data != nullptr ? result.sense_data : kNoSense;

  // Why a request failed on its way, where the platform can tell (iSCSI).
  const Platform& platform = active_platform();
  const char* reason = result.srb_status == kSrbStatusRequestFailed && platform.describe_request_failure != nullptr
                           ? platform.describe_request_failure()
                           : nullptr;
  if (reason != nullptr && reason[0] != '\0') report_printf("%s\r\n", reason);
  report_printf("\r\n");
  report_printf("Win32 SRB status . %02X (%s)\r\n", static_cast<unsigned>(result.win32_error),
                win32_error_name(result.win32_error));
  report_printf("SRB targ status .. %02X (%s)\r\n", static_cast<unsigned>(result.target_status),
                target_status_name(result.target_status));
  report_printf("SRB sense key .... %02X (%s)", static_cast<unsigned>(result.sense_key_byte),
                sense_key_names[result.sense_key_byte & 0x0F]);
  if ((sense[2] & 0x80) != 0) report_printf("; FMK");
  if ((sense[2] & 0x40) != 0) report_printf("; EOM");
  if ((sense[2] & 0x20) != 0) report_printf("; ILI");
  if ((sense[0] & 0x80) != 0) {
    report_printf("; true CDB xfer = %lx", static_cast<unsigned long>(result.transferred_length));
  }
  report_printf("\r\n\r\n");
  hex_dump(nullptr, sense, kSenseBufferSize, 0, static_cast<uint32_t>(sense[7]) + 8);
}

int hex_dump(FILE* stream, const uint8_t* buffer, uint32_t buffer_size, uint32_t start,
             uint32_t count) {
  if (buffer == nullptr || buffer_size == 0) {
    report_printf("ERROR: NULL buffer or zero buffer length (buffer not dumped)\r\n");
    return -1;
  }
  if (start > buffer_size) start = 0;
  if (count == 0 || count > buffer_size - start) count = buffer_size - start;

  uint32_t lines = (count + 15) / 16;
  for (uint32_t line = 0; line < lines; ++line) {
    // "oooooo: " + 16 columns of 3 + 3 separators of 2 + " " + 16 + CR LF.
    char text[128];
    char characters[17];
    int used = std::snprintf(text, sizeof text, "%06lX: ",
                             static_cast<unsigned long>(start + line * 16));
    for (uint32_t column = 0; column < 16; ++column) {
      uint32_t number = line * 16 + column + 1;  // counted over the whole dump
      bool has_data = number <= count;
      if (column == 4 || column == 8 || column == 12) {
        used += std::snprintf(text + used, sizeof text - static_cast<size_t>(used), "%s",
                              has_data ? "| " : "  ");
      }
      if (!has_data) {
        used += std::snprintf(text + used, sizeof text - static_cast<size_t>(used), "   ");
        characters[column] = ' ';
        continue;
      }
      uint8_t byte = buffer[start + number - 1];
      used += std::snprintf(text + used, sizeof text - static_cast<size_t>(used), "%02x ",
                            static_cast<unsigned>(byte));
      bool printable = (byte >= 0x20 && byte <= 0x7E) || (byte >= 0xA0 && byte <= 0xFE);
      characters[column] = printable ? static_cast<char>(byte) : '.';
    }
    characters[16] = '\0';
    if (stream != nullptr) {
      log_printf({stream}, "%s %s\r\n", text, characters);
    } else {
      report_printf("%s %s\r\n", text, characters);
    }
  }
  return 0;
}
