// SG_IO request and answer records, and the Linux error -> Win32 code table.
#include "transport/platform/sg_io_linux.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace {

// Win32 codes used below besides those of platform.h.
constexpr uint32_t kErrorTooManyOpenFiles = 4;
constexpr uint32_t kErrorNotEnoughMemory = 8;
constexpr uint32_t kErrorWriteProtect = 19;
constexpr uint32_t kErrorCrc = 23;
constexpr uint32_t kErrorGeneralFailure = 31;
constexpr uint32_t kErrorBusy = 170;
constexpr uint32_t kErrorOperationAborted = 995;
constexpr uint32_t kErrorNoAccess = 998;  // bad buffer address
constexpr uint32_t kErrorBusReset = 1111;
constexpr uint32_t kErrorNoMedia = 1112;

// Host adapter codes (DID_*) and driver codes (DRIVER_*, low four bits of
// driver_status) of the Linux SCSI midlayer; the kernel does not export them
// to user space.
enum : int {
  kDidOk = 0x00, kDidNoConnect = 0x01, kDidBusBusy = 0x02, kDidTimeOut = 0x03,
  kDidBadTarget = 0x04, kDidAbort = 0x05, kDidParity = 0x06, kDidReset = 0x08,
  kDidImmRetry = 0x0C, kDidRequeue = 0x0D, kDidTransportDisrupted = 0x0E,
  kDidTransportFailfast = 0x0F, kDidAllocFailure = 0x12,
};
enum : int { kDriverOk = 0x0, kDriverBusy = 0x1, kDriverInvalid = 0x5, kDriverTimeout = 0x6, kDriverSense = 0x8 };

struct ErrorRow {
  LinuxErrorSource source;
  int value;
  uint32_t code;
};

using S = LinuxErrorSource;

// The one translation of Linux errors. Rows are searched in order; a value
// without a row gets the default of its source below the table.
constexpr ErrorRow kErrorTable[] = {
    // errno of open(2) and ioctl(2)
    {S::errno_value, 0, kErrorNone},
    {S::errno_value, ENOENT, kErrorNotFound},          // no node, no such device
    {S::errno_value, ENODEV, kErrorNotFound},
    {S::errno_value, ENXIO, kErrorNotFound},           // unit gone or detached
    {S::errno_value, EACCES, kErrorAccessDenied},      // node permissions
    {S::errno_value, EPERM, kErrorAccessDenied},       // command refused without CAP_SYS_RAWIO
    {S::errno_value, EBUSY, kErrorSharingViolation},   // open by another process
    {S::errno_value, EAGAIN, kErrorBusy},
    {S::errno_value, EINVAL, kErrorInvalidParameter},  // transfer larger than the adapter takes
    {S::errno_value, ENOMEM, kErrorInvalidParameter},  // no kernel buffer for the transfer
    {S::errno_value, EOVERFLOW, kErrorInvalidParameter},
    {S::errno_value, EMSGSIZE, kErrorInvalidParameter},  // CDB length the driver refuses
    {S::errno_value, ETIMEDOUT, kErrorTimeout},
    {S::errno_value, EROFS, kErrorWriteProtect},       // st: write-protected cartridge
    {S::errno_value, ENOMEDIUM, kErrorNoMedia},
    {S::errno_value, EIO, kErrorIoDevice},             // also the block layer's "transfer too large"
    {S::errno_value, EINTR, kErrorOperationAborted},
    {S::errno_value, ENOTTY, kErrorNotSupported},      // node without SG_IO
    {S::errno_value, ENOSYS, kErrorNotSupported},
    {S::errno_value, EOPNOTSUPP, kErrorNotSupported},
    {S::errno_value, EMFILE, kErrorTooManyOpenFiles},
    {S::errno_value, ENFILE, kErrorTooManyOpenFiles},
    {S::errno_value, EFAULT, kErrorNoAccess},
    // host_status of an SG_IO answer (other values: kErrorIoDevice)
    {S::host_status, kDidOk, kErrorNone},
    {S::host_status, kDidNoConnect, kErrorNotFound},   // selection timeout: nothing at that id
    {S::host_status, kDidBadTarget, kErrorNotFound},
    {S::host_status, kDidBusBusy, kErrorBusy},
    {S::host_status, kDidImmRetry, kErrorBusy},
    {S::host_status, kDidRequeue, kErrorBusy},
    {S::host_status, kDidTimeOut, kErrorTimeout},      // command timed out
    {S::host_status, kDidAbort, kErrorOperationAborted},
    {S::host_status, kDidParity, kErrorCrc},
    {S::host_status, kDidReset, kErrorBusReset},
    {S::host_status, kDidTransportDisrupted, kErrorDeviceNotConnected},
    {S::host_status, kDidTransportFailfast, kErrorDeviceNotConnected},
    {S::host_status, kDidAllocFailure, kErrorNotEnoughMemory},
    // driver_status & 0x0F of an SG_IO answer (other values: kErrorIoDevice)
    {S::driver_status, kDriverOk, kErrorNone},
    {S::driver_status, kDriverSense, kErrorNone},       // sense data came back: not a failure
    {S::driver_status, kDriverBusy, kErrorBusy},
    {S::driver_status, kDriverInvalid, kErrorInvalidParameter},
    {S::driver_status, kDriverTimeout, kErrorTimeout},
};

}  // namespace

uint32_t win32_error_code(LinuxErrorSource source, int value) {
  for (const ErrorRow& row : kErrorTable) {
    if (row.source == source && row.value == value) return row.code;
  }
  return source == S::errno_value ? kErrorGeneralFailure : kErrorIoDevice;
}

void fill_sg_io_header(const PassThroughRequest& request, sg_io_hdr_t* header, uint8_t* cdb) {
  std::memset(header, 0, sizeof *header);
  std::memset(cdb, 0, 16);
  std::memcpy(cdb, request.cdb, request.cdb_length <= 16 ? request.cdb_length : 16);
  header->interface_id = 'S';
  header->cmdp = cdb;
  header->cmd_len = request.cdb_length;
  header->sbp = request.sense;
  header->mx_sb_len = kMaxSenseLength;
  if (request.data_length == 0) {
    header->dxfer_direction = SG_DXFER_NONE;
  } else {
    header->dxfer_direction =
        request.direction == DataDirection::out ? SG_DXFER_TO_DEV : SG_DXFER_FROM_DEV;
    header->dxferp = request.data;
    header->dxfer_len = request.data_length;
    const auto page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
    if (reinterpret_cast<uintptr_t>(request.data) % page == 0 && request.data_length % 512 == 0) {
      header->flags |= SG_FLAG_DIRECT_IO;
    }
  }
  // 30 hours (108,000,000 ms) fits; anything longer is cut to the largest value.
  const uint64_t milliseconds = uint64_t{request.timeout_seconds} * 1000;
  header->timeout = milliseconds > UINT_MAX ? UINT_MAX : static_cast<unsigned>(milliseconds);
}

void read_sg_io_answer(const sg_io_hdr_t& header, PassThroughReply& reply) {
  // Older low-level drivers fill only masked_status (the status shifted right once).
  reply.scsi_status = header.status != 0 ? header.status : static_cast<uint8_t>(header.masked_status << 1);
  reply.sense_length = header.sb_len_wr <= header.mx_sb_len ? header.sb_len_wr : header.mx_sb_len;
  const int resid = header.resid < 0 ? 0 : header.resid;
  reply.transferred_length =
      static_cast<unsigned>(resid) >= header.dxfer_len ? 0 : header.dxfer_len - static_cast<unsigned>(resid);
  reply.error = win32_error_code(S::host_status, header.host_status);
  if (reply.error == kErrorNone) reply.error = win32_error_code(S::driver_status, header.driver_status & 0x0F);
}
