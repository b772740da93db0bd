// The program-wide test settings: every option value with its default, and the
// fixed run parameters that no option changes. One instance, `test_settings`,
// exists for the whole process; the option parser writes it, everything else
// reads it directly. Not thread-safe: written only before the test starts.
#pragma once

#include <cstdint>

#include "settings/slot_list.h"

constexpr unsigned kFileNameCapacity = 128;  // 127 characters and a terminator
constexpr unsigned kIscsiTextCapacity = 1280;  // the iSCSI URL, CHAP user and secret, initiator name

// Where a SCSI unit answers: host adapter, bus, SCSI id and LUN.
struct UnitAddress {
  uint8_t adapter;
  uint8_t bus;
  uint8_t target_id;
  uint8_t lun;
};

constexpr uint32_t kDefaultReadyWaitMinutes = 180;

struct TestSettings {
  char output_file_name[kFileNameCapacity];
  char output_file_mode[4];
  char cdb_list_file_name[kFileNameCapacity];
  uint8_t cdb_list_enabled;
  char pattern_file_name[kFileNameCapacity];
  uint16_t data_pattern_type;  // 0 null, 1 pseudo-random, 2 user-defined file
  uint8_t random_pattern_repeats;
  uint8_t host_adapter_number;
  uint8_t bus_number;
  uint8_t scsi_id;
  uint8_t lun;
  uint8_t density_code;
  uint16_t iterations;
  double total_megabytes;
  double interval_megabytes;
  uint8_t interval_given;
  uint32_t logical_block_size;  // 0 selects variable block mode
  uint8_t block_size_from_mode_sense;
  uint32_t max_transfer_length;
  uint16_t status_delay_ms;
  uint8_t drive_status_enabled;
  uint8_t unload_each_iteration;
  // The built-in virtual tape drive (`/vtape [file]`) instead of the system's
  // SCSI pass-through; the file name is empty when the drive's defaults apply.
  uint8_t virtual_drive_enabled;
  char virtual_drive_file_name[kFileNameCapacity];
  // Additions beside the classic report; each off unless its option is given.
  uint8_t results_file_enabled;  // `/json <file>`: JSON Lines results file
  char results_file_name[kFileNameCapacity];
  uint8_t strict_exit;  // `/strict`: exit code 2 for a run that must not count as a pass
  uint8_t health_enabled;  // `/health`: TapeAlert, log page counters, adapter limits
  uint8_t chart_enabled;  // `/plot <file>`: streaming chart (SVG)
  char chart_file_name[kFileNameCapacity];
  uint8_t eta_enabled;  // `/eta`: the progress line shows the time left
  // The library sweep (`/changer`): every chosen cartridge of a library is
  // moved into the drive by its medium changer and tested in turn.
  uint8_t changer_enabled;
  UnitAddress changer;  // the one place that says where the changer answers
  SlotRange slot_ranges[kMaxSlotRanges];  // `/slots`; none: every full slot
  uint8_t slot_range_count;
  int32_t drive_ordinal;  // `/drive n` (0-based); -1: found by the drive's serial number
  uint32_t ready_wait_minutes;  // `/readywait`: how long a loaded cartridge may take
  // `/iscsi <url> [chap <user> <secret>] [initiator <iqn>]`: the drive over
  // the program's own iSCSI initiator. The URL may hold a CHAP password:
  // neither it nor the secret is ever printed or written to a file.
  uint8_t iscsi_enabled;
  char iscsi_url[kIscsiTextCapacity];
  char iscsi_chap_user[kIscsiTextCapacity];
  char iscsi_chap_secret[kIscsiTextCapacity];
  char iscsi_initiator[kIscsiTextCapacity];
  // `/changer <iscsi-url>`: the library's changer over the same initiator;
  // it answers at the drive's adapter, bus and id with the next LUN
  // (`changer` holds that address once the options are read).
  uint8_t changer_iscsi_enabled;
  char changer_iscsi_url[kIscsiTextCapacity];
  // Instead of a test: `/list` lists the tape drives and medium changers;
  // `/summary <file>...` sums up results files (the names are kept by the
  // option parser). `/label <text>` names a test run in its results file.
  uint8_t list_devices;
  uint8_t summary_enabled;
  char run_label[kFileNameCapacity];  // empty: none
};

extern TestSettings test_settings;

// Process exit code: starts at 1 and becomes 0 only after the help screen or a
// test that ran through.
extern uint16_t exit_code;

// Puts every setting back to its default and `exit_code` back to 1.
void reset_settings();

// Fixed run parameters.
constexpr uint8_t write_test_enabled = 1;
constexpr uint8_t read_test_enabled = 1;
constexpr uint8_t compare_enabled = 1;
constexpr uint8_t rewind_enabled = 1;
constexpr uint8_t amounts_in_megabytes = 1;
constexpr uint8_t progress_display_level = 1;
constexpr uint8_t progress_step_megabytes = 1;
constexpr uint8_t end_of_medium_flags = 1;  // bit 0: EOM / blank check end a test normally
constexpr uint16_t filemark_step = 1;
constexpr uint8_t show_sizing_warnings = 1;
constexpr uint8_t kilobyte_is_1000 = 1;
constexpr double percentage_limit = 1.0;
constexpr int16_t random_seed = 0;

constexpr double kBytesPerMegabyte = 1048576.0;
