#include "engine/sizing.h"

#include <cstddef>
#include <cstring>
#include <new>

#include "console/log_output.h"
#include "engine/data_patterns.h"
#include "settings/settings.h"
#include "transport/scsi_transport.h"

uint8_t* data_buffer_1 = nullptr;
uint8_t* data_buffer_2 = nullptr;

namespace {

// Page alignment lets a pass-through path move the data without a bounce
// buffer (direct I/O); the length is rounded up to whole pages for the same
// reason.
constexpr std::size_t kPageSize = 4096;
constexpr std::align_val_t kBufferAlignment{kPageSize};

int refuse_plan(const char* reason) {
  report_printf("ERROR: the test plan does not fit the Write/Read command (%s)\r\n", reason);
  flush_report_streams();
  return -1;
}

}  // namespace

int allocate_buffer(uint8_t** buffer, uint32_t size) {
  std::size_t bytes = (static_cast<std::size_t>(size) + kPageSize - 1) / kPageSize * kPageSize;
  if (bytes == 0) bytes = kPageSize;
  void* memory = ::operator new(bytes, kBufferAlignment, std::nothrow);
  if (memory == nullptr) {
    *buffer = nullptr;
    return -1;
  }
  std::memset(memory, 0, bytes);
  *buffer = static_cast<uint8_t*>(memory);
  return 0;
}

void release_buffer(uint8_t** buffer) {
  if (*buffer == nullptr) return;
  ::operator delete(*buffer, kBufferAlignment);
  *buffer = nullptr;
}

void reset_test_plan() {
  release_buffer(&data_buffer_1);
  release_buffer(&data_buffer_2);
  test_plan = TestPlan{};
}

int allocate_data_buffers() {
  int result = 0;
  const uint32_t length = test_settings.max_transfer_length;
  if (allocate_buffer(&data_buffer_1, length) != 0) {
    report_printf("ERROR: unable to allocate data buffer 1 (0x%lX bytes)\r\n",
                  static_cast<unsigned long>(length));
    result = -1;
  } else if (compare_enabled && allocate_buffer(&data_buffer_2, length) != 0) {
    release_buffer(&data_buffer_1);
    report_printf("ERROR: unable to allocate data buffer 2 (0x%lX bytes)\r\n",
                  static_cast<unsigned long>(length));
    result = -1;
  }
  flush_report_streams();
  return result;
}

void plan_status_intervals() {
  const uint32_t length = test_settings.max_transfer_length;
  // Fits: the interval amount is at most the total, whose command count fits.
  test_plan.commands_per_interval =
      static_cast<uint32_t>(test_settings.interval_megabytes * kBytesPerMegabyte / length);
  test_plan.megabytes_per_interval =
      static_cast<double>(test_plan.commands_per_interval) * length / kBytesPerMegabyte;
  test_plan.interval_count =
      test_plan.megabytes_per_interval == 0.0
          ? 0
          : static_cast<uint32_t>(test_settings.total_megabytes / test_plan.megabytes_per_interval);
  const double amount = test_plan.interval_count * test_plan.megabytes_per_interval;
  const uint32_t commands = test_plan.commands_per_interval * test_plan.interval_count;

  if (show_sizing_warnings && test_plan.megabytes_per_interval != test_settings.interval_megabytes) {
    report_printf("WARNING: the amount of data to write/read per status interval is not an even\r\n");
    report_printf("multiple of the maximum write/read data transfer length (amount truncated to\r\n");
    report_printf("%.3f MB)\r\n", test_plan.megabytes_per_interval);
  }
  if (show_sizing_warnings && amount != test_settings.total_megabytes) {
    report_printf("WARNING: the total amount of data to write/read is not an even multiple of the\r\n");
    report_printf("amount of data to write/read per status interval (total amount truncated to\r\n");
    report_printf("%.3f MB)\r\n", amount);
  }
  test_settings.total_megabytes = amount;
  test_plan.total_commands = commands;
  flush_report_streams();
}

int size_test() {
  TestSettings& settings = test_settings;
  test_plan.block_unit = settings.logical_block_size > 0 ? settings.logical_block_size : 1;

  const uint32_t cut = settings.max_transfer_length / test_plan.block_unit * test_plan.block_unit;
  if (cut != settings.max_transfer_length) {
    if (show_sizing_warnings) {
      report_printf("WARNING: the maximum write/read data transfer length is not an even multiple of\r\n");
      report_printf("the logical block size (length truncated to 0x%lX bytes)\r\n",
                    static_cast<unsigned long>(cut));
    }
    settings.max_transfer_length = cut;
  }
  test_plan.blocks_per_command = settings.max_transfer_length / test_plan.block_unit;
  if (test_plan.blocks_per_command > kMaxBlocksPerCommand) {
    return refuse_plan("more than 16777215 blocks or bytes per command");
  }

  const double commands = settings.total_megabytes * kBytesPerMegabyte / settings.max_transfer_length;
  if (!(commands < 4294967296.0)) return refuse_plan("more than 4294967295 commands");
  test_plan.total_commands = static_cast<uint32_t>(commands);

  const double amount =
      static_cast<double>(settings.max_transfer_length) * test_plan.total_commands / kBytesPerMegabyte;
  if (amount != settings.total_megabytes) {
    if (show_sizing_warnings) {
      report_printf("WARNING: the total amount of data to write/read is not an even multiple of the\r\n");
      report_printf("maximum write/read data transfer length (amount truncated to %.3f MB)\r\n", amount);
    }
    settings.total_megabytes = amount;
  }

  if (settings.interval_megabytes >= 1.0 && settings.interval_megabytes <= settings.total_megabytes &&
      settings.interval_given) {
    plan_status_intervals();
  } else {
    test_plan.commands_per_interval = test_plan.total_commands;
    test_plan.megabytes_per_interval = settings.total_megabytes;
    test_plan.interval_count = 1;
  }

  int result = allocate_data_buffers();
  if (result == 0) result = set_data_pattern();
  flush_report_streams();
  return result;
}
