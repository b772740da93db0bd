#include "vtape/drive_state.h"

#include <cmath>

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

// 1 +- up to `percent` %, the same for the same command in every run: a
// triangular spread (most transfers near the rate, few at the edges) from
// two splitmix64 draws seeded with the command number.
double jitter_factor(uint64_t command, uint32_t percent) {
  if (percent == 0) return 1.0;
  auto draw = [](uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return static_cast<double>((x ^ (x >> 31)) >> 11) / 9007199254740992.0;  // [0, 1)
  };
  const double spread = draw(command * 2) + draw(command * 2 + 1) - 1.0;  // (-1, 1)
  return 1.0 + spread * percent / 100.0;
}

// Sleeps `milliseconds` in short steps, stopping early when the run is
// being ended, so that the break handler never waits long for the drive.
void pause_drive(const VirtualDrive& drive, uint32_t milliseconds) {
  constexpr uint32_t kStep = 10;
  uint32_t left = milliseconds;
  while (left > 0 && !drive.stopping.load()) {
    const uint32_t step = left < kStep ? left : kStep;
    os_sleep_ms(step);
    left -= step;
  }
}
}  // namespace

VirtualDrive& virtual_drive_at(unsigned index) {
  static VirtualDrive drives[kMaxVirtualDrives];
  return drives[index];
}

VirtualDrive& virtual_drive() { return virtual_drive_at(0); }

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
  drive->reads_since_load = 0;
  drive->modified = false;
  drive->medium_faults = 0;
  drive->tape_in_file = false;
  drive->throttle_start = std::chrono::steady_clock::now();
  drive->throttle_due_ms = 0.0;
  drive->throttle_object = UINT64_MAX;
  drive->stopping = false;
}

void load_cartridge(VirtualDrive* drive) {
  drive->medium = MediumState::loaded;
  rewind_cartridge(&drive->cartridge);
  start_counters(drive);
  drive->reads_since_load = 0;
  drive->throttle_object = UINT64_MAX;  // the first transfer starts streaming anew
  drive->not_ready_polls_left = drive->description.not_ready_polls;
  drive->unit_attention = true;
  drive->unit_attention_asc = 0x28;  // NOT READY TO READY CHANGE, MEDIUM MAY HAVE CHANGED
  drive->unit_attention_ascq = 0x00;
}

bool incompatible_medium(const VirtualDrive& drive) {
  return drive.medium == MediumState::loaded && (drive.medium_faults & kCartridgeUnloadable) != 0;
}

uint64_t early_warning_bytes(const VirtualDrive& drive) {
  return (drive.description.capacity_mb - drive.description.early_warning_mb) * kMegabyte;
}

uint64_t capacity_bytes(const VirtualDrive& drive) {
  return drive.description.capacity_mb * kMegabyte;
}

double transfer_ms(const VtapeDescription& d, uint64_t tape_bytes, uint64_t host_bytes, uint64_t command) {
  auto ms_at = [](uint64_t bytes, uint32_t mb_s) {
    return mb_s == 0 ? 0.0 : static_cast<double>(bytes) * 1000.0 / (static_cast<double>(mb_s) * kMegabyte);
  };
  const double tape_ms = ms_at(tape_bytes, d.rate_mb_s);
  const double host_ms = ms_at(host_bytes, d.host_rate_mb_s);
  return (tape_ms > host_ms ? tape_ms : host_ms) * jitter_factor(command, d.rate_jitter_percent);
}

void throttle_transfer(VirtualDrive* drive, uint64_t start_object, uint64_t tape_bytes, uint64_t host_bytes,
                       uint64_t command) {
  using namespace std::chrono;
  const VtapeDescription& d = drive->description;
  const bool streaming = start_object == drive->throttle_object;
  drive->throttle_object = drive->cartridge.object_number;
  if (!streaming) {
    drive->throttle_start = steady_clock::now();
    drive->throttle_due_ms = 0.0;
  }
  if (d.backhitch_every != 0 && command % d.backhitch_every == 0 && d.backhitch_ms != 0) {
    pause_drive(*drive, d.backhitch_ms);
    // The repositioning is lost time: the drive does not catch it up later.
    drive->throttle_start += milliseconds(d.backhitch_ms);
  }
  if (d.rate_mb_s == 0 && d.host_rate_mb_s == 0) return;
  drive->throttle_due_ms += transfer_ms(d, tape_bytes, host_bytes, command);
  double elapsed_ms =
      duration<double, std::milli>(steady_clock::now() - drive->throttle_start).count();
  if (elapsed_ms > drive->throttle_due_ms + 1000.0) {
    // The host paused: start over rather than let the drive catch up at full speed.
    drive->throttle_start = steady_clock::now();
    drive->throttle_due_ms = 0.0;
  } else if (drive->throttle_due_ms > elapsed_ms) {
    // Rounded up: the whole stream never moves faster than its rates.
    pause_drive(*drive, static_cast<uint32_t>(std::ceil(drive->throttle_due_ms - elapsed_ms)));
  }
}
