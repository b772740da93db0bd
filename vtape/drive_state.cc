#include "vtape/drive_state.h"

#include "os/os.h"

namespace {
constexpr uint64_t kMegabyte = 1048576;


// What every load starts with: the byte counters at counters_at_load_mb
// (a drive whose counters run on from earlier cartridges), the TapeAlert
// flags of the description.
void start_counters(VirtualDrive* drive) {
  const uint64_t bytes = drive->description.counters_at_load_mb * kMegabyte;
  drive->counters = DriveCounters{};
  drive->counters.host_bytes_written = bytes;
  drive->counters.tape_bytes_written = bytes;
  drive->counters.host_bytes_read = bytes;
  drive->counters.tape_bytes_read = bytes;
  drive->tapealert_flags = drive->description.tapealert_at_load;
  ++drive->loads;
}
}  // namespace

VirtualDrive& virtual_drive() {
  static VirtualDrive drive;
  return drive;
}

void power_on_drive(VirtualDrive* drive, const VtapeDescription& description) {
  drive->description = description;
  erase_cartridge(&drive->cartridge);
  drive->medium = description.medium_present ? MediumState::loaded : MediumState::absent;
  drive->not_ready_polls_left = 0;
  drive->unit_attention = true;
  drive->unit_attention_asc = 0x29;  // POWER ON, RESET, OR BUS DEVICE RESET OCCURRED
  drive->unit_attention_ascq = 0x00;
  drive->removal_prevented = false;
  drive->density_code = description.densities[0];
  drive->block_length = 0;
  drive->loads = 0;
  start_counters(drive);
  drive->write_commands = 0;
  drive->read_commands = 0;
  drive->commands = 0;
  drive->modified = false;
  drive->throttle_start = std::chrono::steady_clock::now();
  drive->throttle_bytes = 0;
  drive->open = false;
  drive->busy = false;
}

void load_cartridge(VirtualDrive* drive) {
  drive->medium = MediumState::loaded;
  rewind_cartridge(&drive->cartridge);
  start_counters(drive);
  drive->not_ready_polls_left = drive->description.not_ready_polls;
  drive->unit_attention = true;
  drive->unit_attention_asc = 0x28;  // NOT READY TO READY CHANGE, MEDIUM MAY HAVE CHANGED
  drive->unit_attention_ascq = 0x00;
}

uint64_t early_warning_bytes(const VirtualDrive& drive) {
  return (drive.description.capacity_mb - drive.description.early_warning_mb) * kMegabyte;
}

uint64_t capacity_bytes(const VirtualDrive& drive) {
  return drive.description.capacity_mb * kMegabyte;
}

void throttle_transfer(VirtualDrive* drive, uint64_t tape_bytes) {
  if (drive->description.rate_mb_s == 0) return;
  using namespace std::chrono;
  drive->throttle_bytes += tape_bytes;
  double due_ms = static_cast<double>(drive->throttle_bytes) * 1000.0 /
                  (static_cast<double>(drive->description.rate_mb_s) * kMegabyte);
  double elapsed_ms =
      duration<double, std::milli>(steady_clock::now() - drive->throttle_start).count();
  if (elapsed_ms > due_ms + 1000.0) {
    // The host paused: start over rather than let the drive catch up at full speed.
    drive->throttle_start = steady_clock::now();
    drive->throttle_bytes = 0;
  } else if (due_ms > elapsed_ms) {
    os_sleep_ms(static_cast<uint32_t>(due_ms - elapsed_ms));
  }
}
