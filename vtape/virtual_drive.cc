// The platform record of the built-in virtual tape drive. The drive is an
// unclaimed logical unit on adapter `host_adapter_number`, at `bus_number`,
// `scsi_id`, `lun` of the test settings (read at every call, so the order of
// the options does not matter), reached through that adapter's device.
//
// Threads: commands come from the program's one thread; close_device may also
// come from the CTRL-C thread while a command runs. The `busy` flag
// serialises them without ever making the close wait: a close that finds a
// command in flight only marks the handle closed and skips saving the
// backing file.
#include "vtape/virtual_drive.h"

#include <cstdio>
#include <cstring>

#include "settings/settings.h"
#include "os/os.h"
#include "vtape/backing_file.h"
#include "vtape/commands.h"
#include "vtape/description.h"
#include "vtape/drive_state.h"

namespace {

constexpr PlatformHandle kAdapterHandleBase = 0x7A9E0000;

PlatformHandle adapter_handle() { return kAdapterHandleBase + test_settings.host_adapter_number; }

bool try_acquire(VirtualDrive& drive) { return !drive.busy.exchange(true); }
void release(VirtualDrive& drive) { drive.busy.store(false); }

uint32_t open_device(const char* device_name, PlatformHandle* handle) {
  VirtualDrive& drive = virtual_drive();
  char adapter_name[32];
  std::snprintf(adapter_name, sizeof adapter_name,
                "\\\\.\\Scsi%u:", static_cast<unsigned>(test_settings.host_adapter_number));
  if (std::strcmp(device_name, adapter_name) != 0) return kErrorNotFound;
  if (drive.description.held) return kErrorSharingViolation;
  if (drive.open.exchange(true)) return kErrorSharingViolation;  // opened for exclusive use
  *handle = adapter_handle();
  return kErrorNone;
}

int query_adapter(PlatformHandle adapter, AdapterInquiry* inquiry) {
  VirtualDrive& drive = virtual_drive();
  if (adapter != adapter_handle() || !drive.open) return -1;
  std::memset(inquiry, 0, sizeof *inquiry);
  inquiry->bus_count = static_cast<uint8_t>(test_settings.bus_number + 1);
  inquiry->unit_count = 1;
  LogicalUnitInfo& unit = inquiry->units[0];
  unit.path_id = test_settings.bus_number;
  unit.target_id = test_settings.scsi_id;
  unit.lun = test_settings.lun;
  unit.claimed = drive.description.claimed_without_tape_device ? 1 : 0;
  // The adapter lists the unit as it found it on the bus: a tape drive. What
  // the unit answers to Inquiry (device_type, lun_supported) is the drive's.
  const VtapeDescription& d = drive.description;
  uint8_t* data = unit.inquiry;
  data[0] = 0x01;
  data[1] = 0x80;
  data[2] = 0x05;
  data[3] = 0x02;
  data[4] = 31;
  std::memset(data + 8, ' ', 28);
  std::memcpy(data + 8, d.vendor, std::strlen(d.vendor));
  std::memcpy(data + 16, d.product, std::strlen(d.product));
  std::memcpy(data + 32, d.revision, std::strlen(d.revision));
  unit.inquiry_length = 36;
  return 0;
}

int query_tape_address(PlatformHandle, ScsiAddress*) { return -1; }  // no tape device exists

void pass_through(PlatformHandle device, const PassThroughRequest& request,
                  PassThroughReply& reply) {
  VirtualDrive& drive = virtual_drive();
  reply = PassThroughReply{};
  while (!try_acquire(drive)) os_sleep_ms(1);  // only a close from CTRL-C can hold it, briefly
  if (device != adapter_handle() || !drive.open) {
    release(drive);
    reply.error = kErrorInvalidParameter;
    return;
  }
  if (request.path_id != test_settings.bus_number || request.target_id != test_settings.scsi_id) {
    release(drive);
    reply.error = kErrorTimeout;  // selection timeout: nothing at that address
    return;
  }
  if (drive.description.max_transfer != 0 && request.data_length > drive.description.max_transfer) {
    release(drive);
    reply.error = kErrorInvalidParameter;  // refused by the adapter, never sent to the drive
    return;
  }
  if (++drive.commands == drive.description.break_at_command) {
    // The operator presses CTRL-C (twice) while this command hangs; the
    // program's handler ends the process before the command would go on.
    os_send_break();
    os_send_break();
    for (int waited = 0; waited < 600; ++waited) os_sleep_ms(100);
  }
  CommandAnswer answer;
  if (request.lun != test_settings.lun || !drive.description.lun_supported) {
    answer_missing_unit(request, &answer);
  } else {
    execute_command(&drive, request, &answer);
  }
  release(drive);
  reply.error = answer.error;
  reply.scsi_status = answer.status;
  reply.transferred_length = answer.transferred;
  reply.sense_length = answer.sense_length;
  if (request.sense != nullptr && answer.sense_length > 0) {
    std::memcpy(request.sense, answer.sense, answer.sense_length);
  }
}

void close_device(PlatformHandle device) {
  VirtualDrive& drive = virtual_drive();
  if (device != adapter_handle()) return;
  if (!try_acquire(drive)) {  // a command is in flight (CTRL-C): do not wait for it
    drive.open = false;
    return;
  }
  if (drive.open && drive.modified && drive.description.backing_file[0] != '\0' &&
      save_backing_file(drive.description.backing_file, drive.cartridge) == 0) {
    drive.modified = false;
  }
  drive.open = false;
  release(drive);
}

// The adapter's limit as the description gives it (max_transfer).
int query_transfer_limits(PlatformHandle device, const ScsiAddress&, TransferLimits* limits) {
  const VirtualDrive& drive = virtual_drive();
  if (device != adapter_handle() || drive.description.max_transfer == 0) return -1;
  *limits = TransferLimits{};
  limits->max_transfer_bytes = drive.description.max_transfer;
  std::snprintf(limits->source, sizeof limits->source, "%s", "virtual adapter");
  return 0;
}

const Platform kVirtualPlatform = {
    "virtual tape drive", open_device,  query_adapter, query_tape_address,
    pass_through,         close_device, nullptr,       nullptr,
    query_transfer_limits,
};

}  // namespace

int vtape_configure(const char* description_file) {
  VtapeDescription description;
  if (description_file == nullptr || description_file[0] == '\0') {
    default_vtape_description(&description);
  } else if (read_vtape_description(description_file, &description) != 0) {
    return -1;
  }
  VirtualDrive& drive = virtual_drive();
  power_on_drive(&drive, description);
  if (description.backing_file[0] != '\0' &&
      load_backing_file(description.backing_file, &drive.cartridge) != 0) {
    return -1;
  }
  return 0;
}

const Platform* vtape_platform() { return &kVirtualPlatform; }
