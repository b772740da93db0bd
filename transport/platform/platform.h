// The narrow seam between the SCSI transport and the system that reaches the
// drives. A platform is a plain record of function pointers: the Linux SG_IO
// platform, the Win32 pass-through platform, the iSCSI initiator, the
// built-in virtual tape drive and the scriptable test platform all fill the
// same record, and the code above this header is the same on every one of
// them.
//
// Platforms only *report* what happened (request outcome as a Win32-style
// error code, SCSI status, sense bytes, transferred length); judging the
// answer is the executor's job, never the platform's.
#pragma once

#include <cstdint>

// Win32-style error codes that platforms answer with. Every platform maps its
// native errors onto these (in one table of its own file).
constexpr uint32_t kErrorNone = 0;
constexpr uint32_t kErrorNotFound = 2;             // no such device
constexpr uint32_t kErrorAccessDenied = 5;         // no permission for the node
constexpr uint32_t kErrorSharingViolation = 32;    // held by another process
constexpr uint32_t kErrorNotSupported = 50;
constexpr uint32_t kErrorInvalidParameter = 87;    // e.g. transfer too large for the adapter
constexpr uint32_t kErrorIoDevice = 1117;           // the request failed on its way
constexpr uint32_t kErrorDeviceNotConnected = 1167;  // the connection to the unit is gone
constexpr uint32_t kErrorTimeout = 1460;

using PlatformHandle = intptr_t;
constexpr PlatformHandle kInvalidPlatformHandle = -1;

// One logical unit of an adapter's inquiry data, in the adapter's walk order
// (bus by bus, each bus's chain in order).
struct LogicalUnitInfo {
  uint8_t path_id;    // bus
  uint8_t target_id;
  uint8_t lun;
  uint8_t claimed;    // a class driver (tape, changer) owns the unit
  uint8_t inquiry_length;
  uint8_t inquiry[36];  // standard inquiry data as the adapter reported it
};

constexpr unsigned kMaxUnitsPerAdapter = 256;

struct AdapterInquiry {
  uint8_t bus_count;
  uint16_t unit_count;
  LogicalUnitInfo units[kMaxUnitsPerAdapter];
};

// The address of a tape device (IOCTL_SCSI_GET_ADDRESS on Windows).
struct ScsiAddress {
  uint8_t port_number;  // adapter
  uint8_t path_id;      // bus
  uint8_t target_id;
  uint8_t lun;
};

// Data phase direction, with the values of SCSI_IOCTL_DATA_OUT / _IN.
enum class DataDirection : uint8_t { out = 0, in = 1 };

constexpr unsigned kSenseAreaSize = 256;

struct PassThroughRequest {
  uint8_t path_id;
  uint8_t target_id;
  uint8_t lun;
  uint8_t cdb_length;  // 1 to 16
  uint8_t cdb[16];
  DataDirection direction;
  uint8_t* data;       // never null; commands without data pass a 1-byte buffer
  uint32_t data_length;
  uint32_t timeout_seconds;
  uint8_t* sense;      // kSenseAreaSize bytes; the platform writes sense_length of them
};

struct PassThroughReply {
  uint32_t error;               // 0: the request was carried out; else Win32-style code
  uint8_t scsi_status;          // status byte from the target
  uint8_t sense_length;         // sense bytes written to request.sense (at most 255)
  uint32_t transferred_length;  // bytes actually moved
};

// What the adapter lets one command carry, as far as the platform can tell;
// 0 in a field means unknown. The preflight of `/health` compares the
// transfer length of the test against these.
struct TransferLimits {
  uint32_t max_transfer_bytes;  // largest data phase of one command
  uint32_t max_segments;        // scatter-gather entries (Windows: physical pages)
  uint32_t reserved_bytes;      // Linux sg: reserved buffer (grown on demand; not a limit)
  char source[64];              // where max_transfer_bytes came from, for the report
};

// What the system itself knows of a unit, for `/list`: told without a
// command to the unit and without holding it.
enum class UnitAccess : uint8_t {
  free,       // the program could open it now
  in_use,     // another process holds it
  no_access,  // the program may not open it (permissions, no device node)
};
constexpr unsigned kMaxUnitNodes = 4;
struct UnitFacts {
  uint8_t inquiry[36];      // standard inquiry data the system read at its own scan
  uint8_t inquiry_length;   // 0: none
  char serial[64];          // the unit serial number (VPD page 80h) as the system read it
  bool serial_known;
  UnitAccess access;
  char nodes[kMaxUnitNodes][128];  // the system's names for it ("/dev/nst0", "/dev/sg1", ...)
  uint8_t node_count;
};

struct Platform {
  const char* name;
  // Opens `device_name` ("\\\\.\\ScsiN:" or "\\\\.\\TapeN") for exclusive use.
  // Returns 0 and a handle, or a Win32-style error code (2 not found, 32 held
  // by another process, others as the system gives).
  uint32_t (*open_device)(const char* device_name, PlatformHandle* handle);
  // The buses and logical units of an opened adapter. 0 or -1.
  int (*query_adapter)(PlatformHandle adapter, AdapterInquiry* inquiry);
  // The adapter, bus, id and LUN of an opened tape device. 0 or -1.
  int (*query_tape_address)(PlatformHandle tape, ScsiAddress* address);
  // Sends one CDB and fills `reply`. Blocks until the command ends.
  void (*pass_through)(PlatformHandle device, const PassThroughRequest& request,
                       PassThroughReply& reply);
  void (*close_device)(PlatformHandle device);
  // Optional (may be null): a sentence for the operator about the last
  // failed open, such as which device node needs which permission; null when
  // there is nothing to add.
  const char* (*describe_last_error)();
  // Optional (may be null): the system's name for the unit at `unit` reached
  // through `device_name` (Linux: /dev/nstN or /dev/sgN), for the results
  // file. 0 with the name in `text`, or -1 when there is none to give.
  int (*device_node)(const char* device_name, const ScsiAddress& unit, char* text, unsigned size);
  // Optional (may be null): the transfer limits of the adapter behind the
  // open `device` for the logical unit at `unit`. 0 with the limits the
  // system tells (unknown fields 0), or -1 when it tells nothing.
  int (*query_transfer_limits)(PlatformHandle device, const ScsiAddress& unit,
                               TransferLimits* limits);
  // Optional (may be null): a sentence for the operator about why the last
  // request that failed on its way (reply.error not 0) failed, such as the
  // iSCSI portal whose connection ended and why; null when there is
  // nothing to add. The status report prints it.
  const char* (*describe_request_failure)();
  // Optional (may be null): what the system knows of the unit at `unit`
  // (adapter included) without sending it a command, for `/list`. 0 with
  // `facts` filled, or -1 when the system knows no such unit. Without it,
  // `/list` asks the unit itself (Inquiry) through an open handle.
  int (*unit_facts)(const ScsiAddress& unit, UnitFacts* facts);
};

// The operating system's own platform (Linux SG_IO or Win32 pass-through),
// chosen when the program is built.
const Platform* native_platform();

// The platform that the transport uses; the native one unless a run or a test
// chose another.
const Platform& active_platform();
void set_active_platform(const Platform* platform);  // nullptr: the native one
