#include "run/run_sequence.h"

#include <cstdio>
#include <string>
#include <vector>

#include "console/clock.h"
#include "console/log_output.h"
#include "run/device_list.h"
#include "run/report_header.h"
#include "drive_status/drive_health.h"
#include "drive_status/dsc_config.h"
#include "drive_status/preflight.h"
#include "engine/command_timing.h"
#include "engine/iterations.h"
#include "engine/sizing.h"
#include "engine/transfer_loops.h"
#include "results/results_file.h"
#include "run/chart_file.h"
#include "run/library_sweep.h"
#include "run/options.h"
#include "run/run_files.h"
#include "run/run_result.h"
#include "settings/settings.h"
#include "summary/summary_command.h"
#include "tape/command_blocks.h"
#include "tape/drive_operations.h"
#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "transport/transport_lifecycle.h"
#include "transport/executor.h"
#include "os/os.h"
#include "transport/platform/iscsi_platform.h"
#include "transport/platform/iscsi_url.h"
#include "transport/platform/platform.h"
#include "transport/scsi_transport.h"
#include "vtape/virtual_drive.h"

namespace {

// The CDB list file; the output file is the log file of the log output.
FILE* cdb_list_file = nullptr;

constexpr uint8_t kSequentialAccessDevice = 0x01;
constexpr uint8_t kNoDeviceType = 0x1F;
constexpr uint8_t kLogicalUnitNotSupported = 3;  // peripheral qualifier

int open_report_files() {
  // Checked before anything is opened, so no file is cut short by mistake.
  if (check_run_files() != 0) return -1;
  bool failed = false;
  FILE* output = std::fopen(test_settings.output_file_name, test_settings.output_file_mode);
  if (output == nullptr) {
    error_printf("ERROR: unable to open \"%s\" for output\n", test_settings.output_file_name);
    failed = true;
  } else {
    set_log_file(output);
  }
  // Tried even when the output file failed, so both messages can appear.
  if (test_settings.cdb_list_enabled != 0) {
    cdb_list_file = std::fopen(test_settings.cdb_list_file_name, "wb");
    if (cdb_list_file == nullptr) {
      error_printf("ERROR: unable to open \"%s\" for CDB output\n",
                   test_settings.cdb_list_file_name);
      failed = true;
    } else {
      set_cdb_list_stream(cdb_list_file);
    }
  }
  if (test_settings.results_file_enabled != 0 && results_open(test_settings.results_file_name) != 0) {
    error_printf("ERROR: unable to open \"%s\" for results\n", test_settings.results_file_name);
    failed = true;
  }
  // A library sweep opens one chart per cartridge, named after it.
  if (test_settings.chart_enabled != 0 && test_settings.changer_enabled == 0 &&
      open_chart_file(test_settings.chart_file_name) != 0) {
    error_printf("ERROR: unable to open \"%s\" for the chart\n", test_settings.chart_file_name);
    failed = true;
  }
  return failed ? -1 : 0;
}

// The command timing runs when its figures are asked for.
int start_command_timing() {
  if (test_settings.chart_enabled == 0 && test_settings.results_file_enabled == 0) return 0;
  return begin_command_timing(test_settings.iterations, test_plan, test_settings.max_transfer_length);
}

int set_address() {
  if (set_adapter(test_settings.host_adapter_number) != 0) return -1;
  if (set_bus(test_settings.bus_number) != 0) return -1;
  if (set_target_id(test_settings.scsi_id) != 0) return -1;
  if (set_lun(test_settings.lun) != 0) return -1;
  return 0;
}

int check_device_type() {
  uint8_t type = inquiry_buffer[0] & 0x1F;
  uint8_t qualifier = static_cast<uint8_t>(inquiry_buffer[0] >> 5);
  if (type == kSequentialAccessDevice) return 0;
  if (type == kNoDeviceType && qualifier == kLogicalUnitNotSupported) {
    report_printf("ERROR: LUN %u is not supported by the device at SCSI id %X\n",
                  static_cast<unsigned>(test_settings.lun),
                  static_cast<unsigned>(test_settings.scsi_id));
    return -1;
  }
  report_printf("ERROR: device at SCSI id %X LUN %u is not a sequential access device (type %02X)\n",
                static_cast<unsigned>(test_settings.scsi_id),
                static_cast<unsigned>(test_settings.lun), static_cast<unsigned>(type));
  return -1;
}

// The iSCSI unit of `/iscsi`, logged in and answering at the address of
// the settings, and the changer of `/changer <iscsi-url>` at its own (with
// `/list`, every tape drive and changer behind the portal). The
// changer's URL without a user takes the drive's CHAP user and secret
// (both are usually one target). 0, or -1 after its message.
int attach_iscsi_units() {
  const TestSettings& s = test_settings;
  const IscsiLogin login{s.iscsi_url, s.iscsi_chap_user, s.iscsi_chap_secret, s.iscsi_initiator};
  if (s.list_devices != 0) {  // `/list /iscsi <portal>`: every target the portal offers
    if (iscsi_attach_portal(login, s.host_adapter_number) != 0) return -1;
    set_active_platform(iscsi_platform());
    return 0;
  }
  const ScsiAddress address{s.host_adapter_number, s.bus_number, s.scsi_id, s.lun};
  if (iscsi_attach(login, address) != 0) return -1;
  if (s.changer_iscsi_enabled != 0) {
    IscsiUrl url;
    char error[160];
    const bool own_user = parse_iscsi_url(s.changer_iscsi_url, &url, error, sizeof error) == 0 && url.user[0] != '\0';
    const IscsiLogin changer{s.changer_iscsi_url, own_user ? nullptr : s.iscsi_chap_user,
                             own_user ? nullptr : s.iscsi_chap_secret, s.iscsi_initiator};
    const ScsiAddress at{s.changer.adapter, s.changer.bus, s.changer.target_id, s.changer.lun};
    if (iscsi_attach(changer, at) != 0) return -1;
  }
  set_active_platform(iscsi_platform());
  return 0;
}

// The platform that reaches the drive: the built-in virtual drive with
// `/vtape`, the program's iSCSI initiator with `/iscsi`, else the operating
// system's. 0, or -1 after the drive's or the login's message.
int choose_platform() {
  if (test_settings.virtual_drive_enabled != 0 && test_settings.iscsi_enabled != 0) {
    error_printf("ERROR: options \"/vtape\" and \"/iscsi\" cannot be used together\n");
    return -1;
  }
  if (test_settings.changer_iscsi_enabled != 0 && test_settings.iscsi_enabled == 0) {
    error_printf("ERROR: a changer given by an iSCSI URL needs the drive over iSCSI too (\"/iscsi <url>\")\n");
    return -1;
  }
  if (test_settings.iscsi_enabled != 0) return attach_iscsi_units();
  if (test_settings.virtual_drive_enabled == 0) {
    set_active_platform(nullptr);
    return 0;
  }
  if (vtape_configure(test_settings.virtual_drive_file_name) == -1) return -1;
  set_active_platform(vtape_platform());
  return 0;
}

// The classic test of the one cartridge in the drive, after setup. The exit
// code (0 or 1) and, as for a library sweep, the reasons: why it failed, or
// why it must not count as a pass.
int run_classic_test(bool set_up, double asked_megabytes, std::vector<std::string>* reasons) {
  const char* failure = "setup failed";
  int code = 1;
  if (set_up) {
    print_report_header();
    print_settings_summary();
    if (size_test() != 0) {
      failure = "test sizing failed";
    } else if (start_command_timing() != 0) {
      failure = "no memory for the command timing";
    } else if (run_test_iterations() != 0) {
      failure = test_totals.failure != nullptr ? test_totals.failure : "a drive operation failed";
    } else {
      code = 0;
    }
  }
  int chart = write_chart(false);
  if (close_chart() != 0) chart = -1;
  if (chart != 0) {
    error_printf("ERROR: unable to write the chart \"%s\"\n", test_settings.chart_file_name);
    if (code == 0) failure = "the chart could not be written";
    code = 1;
  }
  if (code == 0) {
    *reasons = pass_blockers(asked_megabytes);
  } else {
    reasons->push_back(failure);
  }
  return code;
}

// The end of a run: the files closed, the result record. With `/strict` the
// RESULT line goes into the report once nothing but its own write and the
// closes can fail any more, and onto the screen last of all, so that the
// screen always agrees with the exit code.
void finish_run(std::vector<std::string>* reasons) {
  // A report that did not reach the disk whole cannot vouch for a passed test.
  bool incomplete = false;
  auto check_report = [&] {
    if (incomplete || !report_write_failed()) return;
    incomplete = true;
    if (exit_code != 1) error_printf("ERROR: the report files could not be written completely\n");
    exit_code = 1;
    reasons->push_back("report files incomplete");
  };
  const bool strict = test_settings.strict_exit != 0;
  if (strict) {
    check_report();
    if (exit_code == 0 && !reasons->empty()) exit_code = 2;
    print_result_line(log_file(), *reasons);
    flush_report_streams();
    check_report();
  }
  cleanup_run();
  iscsi_detach_all();
  check_report();
  write_result_record(exit_code, *reasons);
  if (results_close() != 0) {
    if (exit_code != 1) error_printf("ERROR: the results file could not be written completely\n");
    exit_code = 1;
    reasons->push_back("results file incomplete");
  }
  if (strict) print_result_line(screen_stream(), *reasons);
}

// `/list`: the devices as setup scans them, one line each on the screen
// and, with `/json`, a `device` record each. 0, or 1 when none was found or
// the results file failed.
int run_device_list() {
  if (test_settings.results_file_enabled != 0 && results_open(test_settings.results_file_name) != 0) {
    error_printf("ERROR: unable to open \"%s\" for results\n", test_settings.results_file_name);
    return 1;
  }
  if (start_transport(on_break) != 0) {
    results_close();
    return 1;
  }
  const std::vector<ListedUnit> units = list_units();
  shutdown_transport();
  write_device_records(units);
  if (units.empty()) screen_printf("no tape drive or medium changer found\n");
  for (const std::string& line : units.empty() ? std::vector<std::string>() : listing_lines(units)) {
    screen_printf("%s\n", line.c_str());
  }
  if (results_close() != 0) {
    error_printf("ERROR: the results file could not be written completely\n");
    return 1;
  }
  return units.empty() ? 1 : 0;
}

}  // namespace

int run_program(int argc, char** argv) {
  os_init_console();
  // The parser counts in 16 bits, like the classic program: a longer command
  // line would lose every option, `/vtape` included, and test a real drive.
  if (argc > UINT16_MAX) {
    error_printf("ERROR: too many arguments on command line (%d; at most %u)\n", argc - 1, UINT16_MAX - 1);
    return exit_code;
  }
  if (parse_options(static_cast<uint16_t>(argc), argv) != 0) return exit_code;
  if (test_settings.summary_enabled != 0) {
    return run_summary(summary_file_names(), test_settings.strict_exit != 0,
                       test_settings.chart_enabled != 0 ? test_settings.chart_file_name : nullptr);
  }
  if (choose_platform() != 0) return 1;
  if (test_settings.list_devices != 0) return run_device_list();
  reset_test_totals();
  // A pipe or a file gets a progress line a minute instead of one per MB.
  set_progress_style(os_stream_is_terminal(screen_stream()) ? ProgressStyle::overwrite
                                                            : ProgressStyle::minutely);
  const double asked_megabytes = test_settings.total_megabytes;
  const bool set_up = setup_run() == 0;
  write_run_record(argc, argv, set_up);
  std::vector<std::string> reasons;
  if (set_up && test_settings.changer_enabled != 0) {
    print_report_header();
    print_settings_summary();
    exit_code = static_cast<uint16_t>(run_library_sweep(asked_megabytes, &reasons));
  } else {
    exit_code = static_cast<uint16_t>(run_classic_test(set_up, asked_megabytes, &reasons));
  }
  // A cartridge that was not saved is a test that cannot be read back later.
  if (test_settings.virtual_drive_enabled != 0 && vtape_save() != 0) {
    reasons.push_back("virtual tape not saved");
    exit_code = 1;
  }
  finish_run(&reasons);
  return exit_code;
}

int setup_run() {
  hide_cursor();
  if (open_report_files() != 0) return -1;
  if (start_transport(on_break) != 0) return -1;
  if (set_address() != 0) return -1;

  scsi_test_unit_ready();
  scsi_test_unit_ready();
  if (scsi_transport.result.srb_status == kSrbStatusNoHandle) {
    report_printf("ERROR: unable to access tape drive at SCSI id %X LUN %u\n",
                  static_cast<unsigned>(test_settings.scsi_id),
                  static_cast<unsigned>(test_settings.lun));
    const Platform& platform = active_platform();
    const char* detail =
        platform.describe_last_error != nullptr ? platform.describe_last_error() : nullptr;
    if (detail != nullptr && detail[0] != '\0') report_printf("%s\n", detail);
    return -1;
  }

  scsi_inquiry(255);
  if (check_device_type() != 0) return -1;
  if (test_settings.block_size_from_mode_sense != 0) return read_block_mode();
  return 0;
}

void cleanup_run() {
  release_buffer(&data_buffer_1);
  release_buffer(&data_buffer_2);
  shutdown_transport();  // closes the output file
  if (cdb_list_file != nullptr) {
    set_cdb_list_stream(nullptr);
    if (std::fclose(cdb_list_file) != 0) note_report_write_failure();
    cdb_list_file = nullptr;
  }
  if (close_chart() != 0) {
    error_printf("ERROR: unable to write the chart \"%s\"\n", test_settings.chart_file_name);
    exit_code = 1;
  }
  reset_command_timing();
  show_cursor();
}

// Runs on the break delivery thread (CTRL-C, SIGTERM, SIGHUP; on Windows
// CTRL-C, CTRL-BREAK, console close) while the test thread may be anywhere,
// even inside a command that hangs in the drive. Sealing the output first
// means no write is half done and the test thread writes nothing more; the
// handles and files are then closed and the process ends at once. Memory is
// left to the process exit rather than freed under the test thread. The
// chart comes from a snapshot of the command timing (see command_timing.h),
// into the file opened at setup: no allocation, no lock shared with the test
// thread. When the test thread is writing the chart itself, it is let finish.
void on_break(BreakKind kind) {
  seal_output();
  write_sweep_break_line();  // where a library sweep leaves its cartridge
  write_interrupted_result_line();
  results_write_interrupted(kind);  // the line prepared for this, then the close
  write_chart_on_break();
  if (test_settings.virtual_drive_enabled != 0) vtape_save_on_break();
  close_device_handles();
  FILE* output = log_file();
  if (output != nullptr) {
    std::fflush(output);
    std::fclose(output);
  }
  if (cdb_list_file != nullptr) {
    std::fflush(cdb_list_file);
    std::fclose(cdb_list_file);
  }
  std::fflush(screen_stream());
  show_cursor();
  os_exit_now(1);
}

void reset_program_state() {
  if (cdb_list_file != nullptr) std::fclose(cdb_list_file);
  cdb_list_file = nullptr;
  reset_chart_file();
  reset_library_sweep();
  reset_command_timing();
  FILE* output = log_file();
  set_log_file(nullptr);
  if (output != nullptr) std::fclose(output);
  reset_settings();
  reset_report_write_failure();
  reset_option_parser();
  reset_dsc_entries();
  reset_drive_health();
  reset_preflight();
  reset_device_table();
  iscsi_detach_all();
  free_command_buffers();
  reset_scsi_transport();
  reset_executor();
  reset_rw_buffer();
  reset_drive_operations();
  reset_results_file();
  reset_test_totals();
  set_progress_style(ProgressStyle::overwrite);
}
