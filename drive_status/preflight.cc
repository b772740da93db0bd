#include "drive_status/preflight.h"

#include <cstdarg>
#include <cstdio>

#include "console/log_output.h"
#include "drive_status/drive_health.h"
#include "results/results_file.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "transport/device_table.h"
#include "transport/scsi_transport.h"
#include "transport/status_report.h"

PreflightResult preflight_result;

namespace {

// Each scatter-gather entry carries at least one page of the page-aligned
// data buffers.
constexpr uint32_t kPageBytes = 4096;

struct Limit {
  uint32_t bytes;
  char name[112];
};

void read_block_limits(PreflightResult* r) {
  uint8_t data[kBlockLimitsLength];
  scsi_read_block_limits(data);
  if (command_failed()) {
    report_printf("WARNING: unable to \"read block limits\" at SCSI id %X LUN %u\r\n",
                  static_cast<unsigned>(test_settings.scsi_id), static_cast<unsigned>(test_settings.lun));
    print_command_status();
    return;
  }
  r->block_limits_read = true;
  r->max_block = (static_cast<uint32_t>(data[1]) << 16) | (static_cast<uint32_t>(data[2]) << 8) | data[3];
  r->min_block = (static_cast<uint32_t>(data[4]) << 8) | data[5];
  if (r->max_block == 0) {
    health_line("drive block length limits", "%lu bytes minimum, no maximum",
                static_cast<unsigned long>(r->min_block));
  } else {
    health_line("drive block length limits", "%lu to %lu bytes", static_cast<unsigned long>(r->min_block),
                static_cast<unsigned long>(r->max_block));
  }
}

void read_adapter_limits(PreflightResult* r) {
  if (query_addressed_transfer_limits(&r->adapter) != 0) {
    health_line("adapter transfer limits", "not known on this system");
    return;
  }
  r->adapter_known = true;
  const TransferLimits& a = r->adapter;
  if (a.max_transfer_bytes != 0) {
    health_line("adapter maximum transfer", "0x%lX bytes (%s)", static_cast<unsigned long>(a.max_transfer_bytes),
                a.source);
  }
  if (a.max_segments != 0) {
    health_line("adapter scatter-gather segments", "%lu", static_cast<unsigned long>(a.max_segments));
  }
  if (a.reserved_bytes != 0) {
    health_line("SCSI generic reserved buffer", "0x%lX bytes", static_cast<unsigned long>(a.reserved_bytes));
  }
}

// The tightest limit on the data of one Write/Read command; bytes 0 when none.
Limit tightest_limit(const PreflightResult& r, bool variable_blocks) {
  Limit best{0, ""};
  auto consider = [&best](uint32_t bytes, const char* name) {
    if (bytes != 0 && (best.bytes == 0 || bytes < best.bytes)) {
      best.bytes = bytes;
      std::snprintf(best.name, sizeof best.name, "%s", name);
    }
  };
  if (r.adapter_known) {
    char name[112];
    std::snprintf(name, sizeof name, "the adapter's maximum transfer of 0x%lX bytes",
                  static_cast<unsigned long>(r.adapter.max_transfer_bytes));
    consider(r.adapter.max_transfer_bytes, name);
    const uint64_t by_pages = static_cast<uint64_t>(r.adapter.max_segments) * kPageBytes;
    std::snprintf(name, sizeof name, "the adapter's %lu scatter-gather segments (0x%llX bytes)",
                  static_cast<unsigned long>(r.adapter.max_segments),
                  static_cast<unsigned long long>(by_pages));
    consider(by_pages > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(by_pages), name);
  }
  // In variable block mode every Write carries one block of /maxtl bytes.
  if (variable_blocks && r.block_limits_read) {
    char name[112];
    std::snprintf(name, sizeof name, "the drive's maximum block length of 0x%lX bytes",
                  static_cast<unsigned long>(r.max_block));
    consider(r.max_block, name);
  }
  return best;
}

// The one WARNING line, kept for the results file too.
void BFT_PRINTF_FORMAT(2, 3) warn(PreflightResult* r, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(r->warning, sizeof r->warning, format, args);
  va_end(args);
  r->warned = true;
  report_printf("WARNING: %s\r\n", r->warning);
}

void warn_if_over(PreflightResult* r) {
  const uint32_t block = test_settings.logical_block_size;
  const uint32_t transfer = test_settings.max_transfer_length;
  if (block != 0 && r->block_limits_read &&
      (block < r->min_block || (r->max_block != 0 && block > r->max_block))) {
    warn(r, "block size 0x%lX is outside the drive's block length limits (%lu to %lu bytes)",
         static_cast<unsigned long>(block), static_cast<unsigned long>(r->min_block),
         static_cast<unsigned long>(r->max_block));
    return;
  }
  const Limit limit = tightest_limit(*r, block == 0);
  if (limit.bytes == 0) return;
  r->largest_fitting_transfer = largest_transfer_within(limit.bytes, block);
  if (transfer <= limit.bytes) return;
  if (r->largest_fitting_transfer == 0) {
    warn(r, "block size 0x%lX exceeds %s; no /maxtl fits", static_cast<unsigned long>(block), limit.name);
  } else {
    warn(r, "/maxtl 0x%lX exceeds %s; the largest /maxtl that fits is 0x%lX",
         static_cast<unsigned long>(transfer), limit.name, static_cast<unsigned long>(r->largest_fitting_transfer));
  }
}

}  // namespace

void reset_preflight() { preflight_result = PreflightResult{}; }

uint32_t largest_transfer_within(uint32_t limit, uint32_t block_size) {
  return block_size == 0 ? limit : limit / block_size * block_size;
}

void run_preflight() {
  PreflightResult& r = preflight_result;
  r = PreflightResult{};
  report_printf("\r\ndrive health preflight:\r\n");
  read_block_limits(&r);
  read_adapter_limits(&r);
  warn_if_over(&r);
  flush_report_streams();
}

void write_preflight_object() {
  const PreflightResult& p = preflight_result;
  // Figures the drive or the platform did not give, and limits of 0, are null.
  auto known = [](const char* name, bool given, uint32_t value) {
    if (given && value != 0) {
      results_unsigned(name, value);
    } else {
      results_null(name);
    }
  };
  results_begin_object("preflight");
  if (p.block_limits_read) {
    results_unsigned("min_block", p.min_block);
  } else {
    results_null("min_block");
  }
  known("max_block", p.block_limits_read, p.max_block);
  known("adapter_max_transfer", p.adapter_known, p.adapter.max_transfer_bytes);
  results_text("adapter_max_transfer_source", p.adapter_known ? p.adapter.source : nullptr);
  known("adapter_max_segments", p.adapter_known, p.adapter.max_segments);
  known("sg_reserved_bytes", p.adapter_known, p.adapter.reserved_bytes);
  known("largest_fitting_transfer", true, p.largest_fitting_transfer);
  results_text("warning", p.warned ? p.warning : nullptr);
  results_end_object();
}
