#include "transport/device_table.h"

#include <cstdio>
#include <cstring>

#include "console/log_output.h"
#include "os/os.h"
#include "transport/scsi_transport.h"

DeviceEntry device_table[kDeviceTableSize];
uint8_t device_count = 0;
uint8_t open_handle_count = 0;

namespace {

constexpr unsigned kLastDeviceNumber = 254;
// Another process's device scan holds each node it tries for a moment (an
// exclusive open, an address query, a close), so runs started together on
// one host, one per drive, meet those holds. A node refused as in use is
// asked again for this long before it counts as held.
constexpr uint32_t kBriefHoldMs = 500;
constexpr uint32_t kBriefHoldStepMs = 10;

uint32_t open_past_brief_holds(const char* name, PlatformHandle* handle) {
  const Platform& platform = active_platform();
  uint32_t error = platform.open_device(name, handle);
  for (uint32_t waited = 0; error == kErrorSharingViolation && waited < kBriefHoldMs; waited += kBriefHoldStepMs) {
    os_sleep_ms(kBriefHoldStepMs);
    error = platform.open_device(name, handle);
  }
  return error;
}
// Adapters below this number are always tried; above it the first missing
// adapter ends the scan.
constexpr unsigned kAlwaysScannedAdapters = 10;
constexpr uint8_t kSequentialAccessDevice = 0x01;
constexpr uint8_t kMediumChangerDevice = 0x08;
constexpr int32_t kAgeLimit = 100;
constexpr int32_t kCloseBelowAge = -10;

// Every record is referred to by at least one table slot, so the table's size
// bounds the records a scan can make; they live in this pool and stay valid
// until the next scan.
DeviceHandle record_pool[kDeviceTableSize];
unsigned record_count = 0;

// Large enough for a full adapter; kept off the stack.
AdapterInquiry adapter_inquiry;

DeviceHandle* new_record(const char* name) {
  if (record_count >= kDeviceTableSize) return nullptr;
  DeviceHandle* record = &record_pool[record_count++];
  std::snprintf(record->name, sizeof record->name, "%s", name);
  record->handle = kInvalidPlatformHandle;
  record->age = 0;
  return record;
}

bool qualifies(const LogicalUnitInfo& unit) {
  uint8_t type = unit.inquiry[0] & 0x1F;
  return type == kSequentialAccessDevice || (type == kMediumChangerDevice && unit.claimed == 0);
}

void register_adapter_units(uint8_t adapter, const char* adapter_name) {
  DeviceHandle* shared = nullptr;
  for (unsigned i = 0; i < adapter_inquiry.unit_count && i < kMaxUnitsPerAdapter; ++i) {
    const LogicalUnitInfo& unit = adapter_inquiry.units[i];
    if (!qualifies(unit)) continue;
    // A full table takes no more devices; the rest are ignored.
    if (device_count >= kDeviceTableSize) return;
    DeviceEntry& entry = device_table[device_count];
    entry = DeviceEntry{adapter, unit.path_id, unit.target_id, unit.lun, nullptr,
                        static_cast<uint8_t>(unit.inquiry[0] & 0x1F), {}};
    std::memcpy(entry.inquiry, unit.inquiry, unit.inquiry_length < 36 ? unit.inquiry_length : 36);
    if (unit.claimed == 0) {
      if (shared == nullptr) shared = new_record(adapter_name);
      entry.record = shared;
    }
    ++device_count;
  }
}

void scan_adapters() {
  const Platform& platform = active_platform();
  for (unsigned number = 0; number <= kLastDeviceNumber; ++number) {
    char name[32];
    std::snprintf(name, sizeof name, "\\\\.\\Scsi%u:", number);
    PlatformHandle handle = kInvalidPlatformHandle;
    uint32_t error = open_past_brief_holds(name, &handle);
    if (error == kErrorSharingViolation) continue;
    if (error != kErrorNone) {
      if (number < kAlwaysScannedAdapters) continue;
      return;
    }
    int queried = platform.query_adapter(handle, &adapter_inquiry);
    platform.close_device(handle);
    if (queried != 0) continue;
    register_adapter_units(static_cast<uint8_t>(number), name);
  }
}

void match_tape_device(const ScsiAddress& address, const char* tape_name) {
  for (unsigned slot = 0; slot < device_count; ++slot) {
    DeviceEntry& entry = device_table[slot];
    if (entry.record != nullptr) continue;
    if (entry.adapter != address.port_number || entry.bus != address.path_id ||
        entry.target_id != address.target_id || entry.lun != address.lun) {
      continue;
    }
    entry.record = new_record(tape_name);
    return;
  }
}

void scan_tape_devices() {
  const Platform& platform = active_platform();
  for (unsigned number = 0; number <= kLastDeviceNumber; ++number) {
    char name[32];
    std::snprintf(name, sizeof name, "\\\\.\\Tape%u", number);
    PlatformHandle handle = kInvalidPlatformHandle;
    uint32_t error = open_past_brief_holds(name, &handle);
    if (error == kErrorSharingViolation) continue;
    if (error != kErrorNone) return;
    ScsiAddress address{};
    int queried = platform.query_tape_address(handle, &address);
    platform.close_device(handle);
    if (queried != 0) continue;
    match_tape_device(address, name);
  }
}

bool addressed(const DeviceEntry& entry) {
  return entry.adapter == scsi_transport.adapter && entry.bus == scsi_transport.bus &&
         entry.target_id == scsi_transport.target_id && entry.lun == scsi_transport.target_lun;
}

void close_record(DeviceHandle* record) {
  active_platform().close_device(record->handle);
  record->handle = kInvalidPlatformHandle;
  if (open_handle_count > 0) --open_handle_count;
}

}  // namespace

int scan_devices() {
  close_device_handles();
  device_count = 0;
  open_handle_count = 0;
  record_count = 0;
  std::memset(device_table, 0, sizeof device_table);
  scan_adapters();
  scan_tape_devices();
  return 0;
}

const char* addressed_device_name() {
  for (unsigned slot = 0; slot < device_count; ++slot) {
    const DeviceEntry& entry = device_table[slot];
    if (entry.record != nullptr && addressed(entry)) return entry.record->name;
  }
  return nullptr;
}

PlatformHandle get_device_handle() {
  ScsiResult& result = scsi_transport.result;
  result.win32_error = kErrorNotFound;
  DeviceHandle* in_use = nullptr;
  for (unsigned slot = 0; slot < device_count; ++slot) {
    DeviceHandle* record = device_table[slot].record;
    if (record == nullptr) continue;
    if (addressed(device_table[slot])) {
      if (record->handle == kInvalidPlatformHandle) {
        PlatformHandle handle = kInvalidPlatformHandle;
        uint32_t error = open_past_brief_holds(record->name, &handle);
        if (error != kErrorNone) {
          result.win32_error = error;
        } else {
          record->handle = handle;
          ++open_handle_count;
        }
      }
      if (record->handle != kInvalidPlatformHandle) {
        result.win32_error = kErrorNone;
        in_use = record;
        if (record->age < kAgeLimit) {
          record->age = record->age < 0 ? open_handle_count : record->age + open_handle_count;
        }
      }
    } else if (record->handle != kInvalidPlatformHandle) {
      --record->age;
      // The record just handed out stays open even when other slots of its
      // adapter have aged it; it is closed once it is no longer addressed.
      if (record->age < kCloseBelowAge && record != in_use) close_record(record);
    }
  }
  return in_use != nullptr ? in_use->handle : kInvalidPlatformHandle;
}

void close_device_handles() {
  for (unsigned slot = 0; slot < device_count; ++slot) {
    DeviceHandle* record = device_table[slot].record;
    if (record != nullptr && record->handle != kInvalidPlatformHandle) close_record(record);
  }
}

void close_addressed_handle() {
  for (unsigned slot = 0; slot < device_count; ++slot) {
    DeviceHandle* record = device_table[slot].record;
    if (record != nullptr && addressed(device_table[slot]) && record->handle != kInvalidPlatformHandle) {
      close_record(record);
      record->age = 0;
      return;
    }
  }
}

void reset_device_table() {
  close_device_handles();
  std::memset(device_table, 0, sizeof device_table);
  device_count = 0;
  open_handle_count = 0;
  record_count = 0;
}

int query_addressed_transfer_limits(TransferLimits* limits) {
  const Platform& platform = active_platform();
  if (platform.query_transfer_limits == nullptr) return -1;
  const uint32_t saved_error = scsi_transport.result.win32_error;
  const PlatformHandle handle = get_device_handle();
  scsi_transport.result.win32_error = saved_error;  // the last command's outcome stays
  if (handle == kInvalidPlatformHandle) return -1;
  const ScsiAddress unit{scsi_transport.adapter, scsi_transport.bus, scsi_transport.target_id,
                         scsi_transport.target_lun};
  return platform.query_transfer_limits(handle, unit, limits);
}
