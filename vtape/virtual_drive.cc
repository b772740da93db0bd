// The platform record of the built-in virtual tape drive and library. The
// drive is an unclaimed logical unit on adapter `host_adapter_number`, at
// `bus_number`, `scsi_id`, `lun` of the test settings (read at every call,
// so the order of the options does not matter), reached through that
// adapter's device. With a library the adapter holds the changer at
// changer_tid/changer_lun and the drives at SCSI ids 2, 3, ... LUN 0 on the
// same bus, and commands go to the unit their address names; an address
// with nothing there is a selection timeout.
//
// Handles: the adapter can be opened several times, as on Linux; like an sg
// node opened for exclusive use, a unit belongs to the first handle that
// sends it a command until that handle is closed, and another handle's
// command to it fails as in use (error 32). With library_dir the changer's
// first command also takes the directory's lock, which keeps the changer
// for this process until the handle is closed; another process's command
// fails as in use meanwhile.
//
// Threads: commands and vtape_save come from the program's one thread;
// close_device and vtape_save_on_break may also come from the break thread
// while a command runs. The `busy` flag serialises whatever touches the
// cartridges: a command holds it while it runs (not while it hangs in the
// break fault), and the break handler takes it for good, after it has asked
// a command in flight to cut its waits short (`stopping`). A close that
// finds it taken only marks the handle closed and skips saving the backing
// file, the tapes and the inventory (the inventory is written after every
// move anyway).
#include "vtape/virtual_drive.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "console/log_output.h"
#include "os/os.h"
#include "settings/settings.h"
#include "vtape/backing_file.h"
#include "vtape/changer_commands.h"
#include "vtape/commands.h"
#include "vtape/description.h"
#include "vtape/drive_state.h"
#include "vtape/library_state.h"
#include "vtape/library_store.h"

namespace {

constexpr PlatformHandle kHandleBase = 0x7A9E0000;
constexpr unsigned kMaxHandles = 8;
constexpr uint32_t kChangerUnit = 1u << 0;  // claim bits: the changer, then drive i at bit 1 + i
// How long the break handler waits for a command in flight to end (its
// waits are cut short, so this is only reached by a drive that hangs).
constexpr int kBreakWaitMs = 3000;

// The break handler's line when the tapes could not be saved, prepared with
// the file's (or library directory's) name when the drive is configured.
char break_save_failure[kBackingFileCapacity + 64] = "";

struct VirtualHandle {
  std::atomic<bool> open;
  uint32_t claims;            // units this handle holds
  bool holds_lock;            // the library directory's changer lock
  intptr_t lock;
  uint32_t held_polls_left;   // changer_held_polls
};

struct VirtualAdapter {
  VirtualHandle handles[kMaxHandles];
  std::atomic<bool> busy;
  uint64_t commands;  // every command of the run (for the break fault)
};

VirtualAdapter adapter;
// The run's own save (vtape_save) is done, well or not: a later close saves
// nothing, so a save that failed is not tried again behind the run's back.
bool run_saved = false;

bool try_acquire() { return !adapter.busy.exchange(true); }
void release() { adapter.busy.store(false); }

const VtapeDescription& drive_description() { return virtual_drive().description; }

VirtualHandle* handle_record(PlatformHandle handle) {
  if (handle < kHandleBase || handle >= kHandleBase + static_cast<PlatformHandle>(kMaxHandles)) return nullptr;
  VirtualHandle& record = adapter.handles[handle - kHandleBase];
  return record.open ? &record : nullptr;
}

uint32_t open_device(const char* device_name, PlatformHandle* handle) {
  char adapter_name[32];
  std::snprintf(adapter_name, sizeof adapter_name,
                "\\\\.\\Scsi%u:", static_cast<unsigned>(test_settings.host_adapter_number));
  if (std::strcmp(device_name, adapter_name) != 0) return kErrorNotFound;
  if (drive_description().held) return kErrorSharingViolation;
  while (!try_acquire()) os_sleep_ms(1);
  uint32_t error = kErrorSharingViolation;  // every handle taken
  for (unsigned i = 0; i < kMaxHandles; ++i) {
    VirtualHandle& record = adapter.handles[i];
    if (record.open || record.holds_lock) continue;  // a handle closed by CTRL-C keeps its lock
    record.claims = 0;
    record.held_polls_left = virtual_library().description.changer_held_polls;
    record.open = true;
    *handle = kHandleBase + static_cast<PlatformHandle>(i);
    error = kErrorNone;
    break;
  }
  release();
  return error;
}

// One logical unit of the adapter's inquiry data.
void list_unit(AdapterInquiry* inquiry, uint8_t target, uint8_t lun, uint8_t type, bool claimed, const char* vendor,
               const char* product, const char* revision) {
  LogicalUnitInfo& unit = inquiry->units[inquiry->unit_count++];
  unit.path_id = test_settings.bus_number;
  unit.target_id = target;
  unit.lun = lun;
  unit.claimed = claimed ? 1 : 0;
  uint8_t* data = unit.inquiry;
  data[0] = type;
  data[1] = 0x80;
  data[2] = 0x05;
  data[3] = 0x02;
  data[4] = 31;
  std::memset(data + 8, ' ', 28);
  std::memcpy(data + 8, vendor, std::strlen(vendor));
  std::memcpy(data + 16, product, std::strlen(product));
  std::memcpy(data + 32, revision, std::strlen(revision));
  unit.inquiry_length = 36;
}

// The adapter lists each unit as it found it on the bus: a tape drive, a
// changer. What the unit answers to Inquiry (device_type, lun_supported) is
// the unit's own.
int query_adapter(PlatformHandle handle, AdapterInquiry* inquiry) {
  if (handle_record(handle) == nullptr) return -1;
  std::memset(inquiry, 0, sizeof *inquiry);
  inquiry->bus_count = static_cast<uint8_t>(test_settings.bus_number + 1);
  const VtapeDescription& d = drive_description();
  const LibraryDescription& library = virtual_library().description;
  const bool claimed = d.claimed_without_tape_device;
  if (!library_present()) {
    list_unit(inquiry, test_settings.scsi_id, test_settings.lun, 0x01, claimed, d.vendor, d.product, d.revision);
    return 0;
  }
  for (uint8_t target = 0; target < 16; ++target) {
    for (uint8_t lun = 0; lun < 8; ++lun) {
      if (target == library.changer_tid && lun == library.changer_lun) {
        list_unit(inquiry, target, lun, 0x08, false, kChangerVendor, kChangerProduct, kChangerRevision);
      } else if (lun == 0 && target >= kFirstDriveId && target < kFirstDriveId + library.drives) {
        list_unit(inquiry, target, lun, 0x01, claimed, d.vendor, d.product, d.revision);
      }
    }
  }
  return 0;
}

int query_tape_address(PlatformHandle, ScsiAddress*) { return -1; }  // no tape device exists

// What an address reaches.
enum class UnitKind { nothing, missing_lun, changer, drive };

struct Unit {
  UnitKind kind;
  unsigned drive;  // for a drive: its index
};

Unit route(const PassThroughRequest& request) {
  if (request.path_id != test_settings.bus_number) return {UnitKind::nothing, 0};
  const bool lun_supported = drive_description().lun_supported;
  if (!library_present()) {
    if (request.target_id != test_settings.scsi_id) return {UnitKind::nothing, 0};
    const bool answers = request.lun == test_settings.lun && lun_supported;
    return {answers ? UnitKind::drive : UnitKind::missing_lun, 0};
  }
  const LibraryDescription& library = virtual_library().description;
  if (request.target_id == library.changer_tid && request.lun == library.changer_lun) return {UnitKind::changer, 0};
  if (request.target_id >= kFirstDriveId && request.target_id < kFirstDriveId + library.drives) {
    const bool answers = request.lun == 0 && lun_supported;
    return {answers ? UnitKind::drive : UnitKind::missing_lun, request.target_id - kFirstDriveId};
  }
  if (request.target_id == library.changer_tid) return {UnitKind::missing_lun, 0};
  return {UnitKind::nothing, 0};
}

// Claims the unit for `handle`, as the open of its sg node for exclusive
// use would; with library_dir the changer's first command also takes the
// directory's lock. 0, or the error that the request fails with.
uint32_t claim(VirtualHandle* handle, const Unit& unit) {
  if (unit.kind != UnitKind::changer && unit.kind != UnitKind::drive) return kErrorNone;
  const uint32_t bit = unit.kind == UnitKind::changer ? kChangerUnit : 2u << unit.drive;
  if ((handle->claims & bit) != 0) return kErrorNone;
  for (VirtualHandle& other : adapter.handles) {
    if (&other != handle && (other.claims & bit) != 0) return kErrorSharingViolation;
  }
  if (unit.kind == UnitKind::changer) {
    if (handle->held_polls_left > 0) {
      --handle->held_polls_left;
      return kErrorSharingViolation;  // as if another process held it
    }
    VirtualLibrary& library = virtual_library();
    if (library.description.library_dir[0] != '\0') {
      const int taken = take_changer_lock(&library, &handle->lock);
      if (taken == 1) return kErrorSharingViolation;
      if (taken != 0) return kErrorAccessDenied;
      handle->holds_lock = true;
    }
  }
  handle->claims |= bit;
  return kErrorNone;
}

void execute(const Unit& unit, const PassThroughRequest& request, CommandAnswer* answer) {
  switch (unit.kind) {
    case UnitKind::changer:
      return execute_changer_command(&virtual_library(), request, answer);
    case UnitKind::drive:
      if (library_present()) bring_in_tape(&virtual_library(), unit.drive);
      return execute_command(&virtual_drive_at(unit.drive), request, answer);
    default:
      return answer_missing_unit(request, answer);
  }
}

void pass_through(PlatformHandle device, const PassThroughRequest& request, PassThroughReply& reply) {
  reply = PassThroughReply{};
  while (!try_acquire()) os_sleep_ms(1);  // only the break handler holds it long, and for good
  VirtualHandle* handle = handle_record(device);
  const Unit unit = route(request);
  const VtapeDescription& d = drive_description();
  if (handle == nullptr) {
    reply.error = kErrorInvalidParameter;
  } else if (unit.kind == UnitKind::nothing) {
    reply.error = kErrorTimeout;  // selection timeout: nothing at that address
  } else if (d.max_transfer != 0 && request.data_length > d.max_transfer) {
    reply.error = kErrorInvalidParameter;  // refused by the adapter, never sent to the unit
  } else {
    reply.error = claim(handle, unit);
  }
  if (reply.error != kErrorNone) {
    release();
    return;
  }
  if (++adapter.commands == d.break_at_command) {
    // The operator presses CTRL-C (twice), or a scheduler stops the run,
    // while this command hangs; the program's handler saves the tapes and
    // ends the process before the command would go on.
    release();
    os_send_break(d.break_kind);
    os_send_break(d.break_kind);
    for (int waited = 0; waited < 600; ++waited) os_sleep_ms(100);
    while (!try_acquire()) os_sleep_ms(1);
  }
  CommandAnswer answer;
  execute(unit, request, &answer);
  release();
  reply.error = answer.error;
  reply.scsi_status = answer.status;
  reply.transferred_length = answer.transferred;
  reply.sense_length = answer.sense_length;
  if (request.sense != nullptr && answer.sense_length > 0) {
    std::memcpy(request.sense, answer.sense, answer.sense_length);
  }
}

// Saves what the program changed: the backing file, or the library's tapes;
// the caller holds `busy`. 0, or -1 (after the error lines unless `quiet`).
int save_tapes(bool quiet) {
  if (library_present()) {
    VirtualLibrary& library = virtual_library();
    return library.description.library_dir[0] != '\0' ? save_drive_tapes(&library, quiet) : 0;
  }
  VirtualDrive& drive = virtual_drive();
  if (!drive.modified || drive.description.backing_file[0] == '\0') return 0;
  if (save_backing_file(drive.description.backing_file, drive.cartridge, quiet) != 0) return -1;
  drive.modified = false;
  return 0;
}

void close_device(PlatformHandle device) {
  VirtualHandle* handle = handle_record(device);
  if (handle == nullptr) return;
  if (!try_acquire()) {  // a command in flight, or the break handler: do not wait
    handle->open = false;
    return;
  }
  if (!run_saved) save_tapes(false);
  if (handle->holds_lock) release_changer_lock(&virtual_library(), handle->lock);
  handle->holds_lock = false;
  handle->claims = 0;
  handle->open = false;
  release();
}

// The adapter's limit as the description gives it (max_transfer).
int query_transfer_limits(PlatformHandle device, const ScsiAddress&, TransferLimits* limits) {
  if (handle_record(device) == nullptr || drive_description().max_transfer == 0) return -1;
  *limits = TransferLimits{};
  limits->max_transfer_bytes = drive_description().max_transfer;
  std::snprintf(limits->source, sizeof limits->source, "%s", "virtual adapter");
  return 0;
}

const Platform kVirtualPlatform = {
    "virtual tape drive", open_device,  query_adapter, query_tape_address,
    pass_through,         close_device, nullptr,       nullptr,
    query_transfer_limits, nullptr,       nullptr,
};

// Forgets every handle (a test may configure again in the same process).
void reset_adapter() {
  for (VirtualHandle& handle : adapter.handles) {
    if (handle.holds_lock) os_unlock_file(handle.lock);
    handle.open = false;
    handle.holds_lock = false;
    handle.claims = 0;
  }
  adapter.busy = false;
  adapter.commands = 0;
  run_saved = false;
}

}  // namespace

int vtape_configure(const char* description_file) {
  VtapeDescription description;
  LibraryDescription library;
  if (description_file == nullptr || description_file[0] == '\0') {
    default_vtape_description(&description);
    default_library_description(&library);
  } else if (read_vtape_description(description_file, &description, &library) != 0) {
    return -1;
  }
  reset_adapter();
  std::snprintf(break_save_failure, sizeof break_save_failure, "ERROR: unable to write %s \"%s\"\n",
                library.slots > 0 ? "the tapes of the virtual library" : "virtual tape backing file",
                library.slots > 0 ? library.library_dir : description.backing_file);
  power_on_library(library, description);
  if (library.slots > 0) {
    return library.library_dir[0] != '\0' ? open_library_directory(&virtual_library()) : 0;
  }
  VirtualDrive& drive = virtual_drive();
  power_on_drive(&drive, description);
  if (description.backing_file[0] != '\0' && load_backing_file(description.backing_file, &drive.cartridge) != 0) {
    return -1;
  }
  return 0;
}

const Platform* vtape_platform() { return &kVirtualPlatform; }

const char* vtape_backing_file() { return virtual_drive().description.backing_file; }

int vtape_save() {
  while (!try_acquire()) os_sleep_ms(1);
  const int result = save_tapes(false);
  run_saved = true;
  release();
  return result;
}

void vtape_save_on_break() {
  for (unsigned i = 0; i < kMaxVirtualDrives; ++i) virtual_drive_at(i).stopping = true;
  bool taken = try_acquire();
  for (int waited = 0; !taken && waited < kBreakWaitMs; ++waited) {
    os_sleep_ms(1);
    taken = try_acquire();
  }
  // Taken for good: a command the test thread starts now waits until the
  // process ends.
  if (!taken || save_tapes(true) != 0) {
    std::fputs(break_save_failure, error_stream());
    std::fflush(error_stream());
  }
}
