// Device discovery and handles: the scan of adapters and tape devices, the
// table of devices the program may address, handles opened on first use and
// closed by ageing.
#pragma once

#include <cstdint>

#include "transport/platform/platform.h"

struct DeviceHandle {
  char name[32];           // "\\\\.\\ScsiN:" or "\\\\.\\TapeN"
  PlatformHandle handle;   // kInvalidPlatformHandle while closed
  int32_t age;
};

struct DeviceEntry {
  uint8_t adapter;
  uint8_t bus;
  uint8_t target_id;
  uint8_t lun;
  DeviceHandle* record;    // none for a claimed device without tape device
  uint8_t device_type;     // of the adapter's inquiry data: 01h tape, 08h medium changer
  uint8_t inquiry[36];     // the adapter's inquiry data of the unit (`/list` names a unit it cannot ask)
};

constexpr unsigned kDeviceTableSize = 64;

extern DeviceEntry device_table[kDeviceTableSize];
extern uint8_t device_count;
extern uint8_t open_handle_count;

// Rebuilds `device_table` from the active platform. 0 or -1.
int scan_devices();
// An open handle for the addressed device, or kInvalidPlatformHandle; sets
// `win32_error` of the result.
PlatformHandle get_device_handle();
// The active platform's transfer limits for the addressed device (its
// handle opened as for a command). 0, or -1 when the platform cannot tell.
int query_addressed_transfer_limits(TransferLimits* limits);
// For the CTRL-C handler: closes every open device handle and nothing else
// (no memory is freed under a test thread that may still run).
void close_device_handles();
// Closes the handle through which the addressed unit is reached, if it is
// open (a medium changer is held only for one command sequence, so that
// other processes can use it between them). Other units reached through the
// same handle (an adapter's) open it again at their next command.
void close_addressed_handle();
// The device name ("\\\\.\\TapeN" or "\\\\.\\ScsiN:") through which the
// addressed unit is reached, or nullptr when none is registered.
const char* addressed_device_name();
// Forgets every record (tests run several scans in one process).
void reset_device_table();
