#include "run/sweep_summary.h"

#include <bit>
#include <cstdio>

#include "console/log_output.h"
#include "settings/settings.h"
#include "transport/scsi_transport.h"

namespace {

const char* result_word(CartridgeResult result) {
  switch (result) {
    case CartridgeResult::passed: return "passed";
    case CartridgeResult::failed:
    case CartridgeResult::not_passed: return "failed";
    case CartridgeResult::skipped: return "skipped";
    default: return "not tested";
  }
}

bool tested(const CartridgeOutcome& o) {
  return o.result == CartridgeResult::passed || o.result == CartridgeResult::failed ||
         o.result == CartridgeResult::not_passed;
}

// The figures of a cartridge's line; "-" for what was not measured.
struct LineCells {
  char written[16] = "-", verified[16] = "-", write_rate[16] = "-", read_rate[16] = "-";
  char rwr[16] = "-", ecc[16] = "-", alerts[16] = "-";
};

LineCells line_cells(const CartridgeOutcome& o) {
  LineCells c;
  if (!tested(o)) return c;
  std::snprintf(c.written, sizeof c.written, "%.3f", static_cast<double>(o.bytes_written) / kBytesPerMegabyte);
  std::snprintf(c.verified, sizeof c.verified, "%.3f", static_cast<double>(o.bytes_verified) / kBytesPerMegabyte);
  // As the report's KB/SEC: 0 when no time could be measured.
  std::snprintf(c.write_rate, sizeof c.write_rate, "%.0f MB/s", megabytes_per_second(o.bytes_written, o.write_seconds));
  std::snprintf(c.read_rate, sizeof c.read_rate, "%.0f MB/s", megabytes_per_second(o.bytes_verified, o.read_seconds));
  if (o.rwr_known) std::snprintf(c.rwr, sizeof c.rwr, "%.1f", o.max_rwr_percentage);
  if (o.ecc_known) std::snprintf(c.ecc, sizeof c.ecc, "%.1f", o.max_ecc_percentage);
  if (o.alerts_known) std::snprintf(c.alerts, sizeof c.alerts, "%d", std::popcount(o.alerts_raised));
  return c;
}

void print_line(const CartridgeOutcome& o) {
  const LineCells c = line_cells(o);
  report_printf("%-8s  %4u  %8s  %8s  %9s  %9s  %4s  %4s  %2s  %s\r\n", o.barcode[0] != '\0' ? o.barcode : "-",
                static_cast<unsigned>(o.slot), c.written, c.verified, c.write_rate, c.read_rate, c.rwr, c.ecc,
                c.alerts, cartridge_result_text(o).c_str());
}

}  // namespace

double megabytes_per_second(uint64_t bytes, double seconds) {
  return seconds > 0.0 ? static_cast<double>(bytes) / kBytesPerMegabyte / seconds : 0.0;
}

std::string cartridge_result_text(const CartridgeOutcome& o) {
  std::string text = result_word(o.result);
  if (o.reason[0] != '\0' && o.result != CartridgeResult::passed) text += std::string(": ") + o.reason;
  return text;
}

void print_sweep_summary(const std::vector<CartridgeOutcome>& outcomes, uint16_t drive_element) {
  unsigned counts[5] = {};
  for (const CartridgeOutcome& o : outcomes) {
    ++counts[o.result == CartridgeResult::not_passed ? static_cast<unsigned>(CartridgeResult::failed)
                                                     : static_cast<unsigned>(o.result)];
  }
  report_printf("\r\nLIBRARY SWEEP SUMMARY (drive element %u): %u passed, %u failed, %u skipped, %u not tested\r\n",
                static_cast<unsigned>(drive_element), counts[0], counts[1], counts[3], counts[4]);
  report_printf("(MB written and verified; MB/s writing and reading; largest RWR and ECC %%;\r\n"
                "TapeAlert flags raised)\r\n\r\n");
  report_printf("%-8s  %4s  %8s  %8s  %9s  %9s  %4s  %4s  %2s  %s\r\n", "barcode", "slot", "written", "verified",
                "write", "read", "RWR", "ECC", "TA", "result");
  for (const CartridgeOutcome& o : outcomes) print_line(o);
  flush_report_streams();
}
