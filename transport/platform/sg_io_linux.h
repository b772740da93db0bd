// One pass-through request as the Linux SG_IO ioctl (sg_io_hdr, interface
// 'S', version 3) carries it, and the one translation of Linux errors into the
// Win32-style codes that the program's status report names.
//
// These functions only fill and read records: what the drive's answer means is
// the executor's business.
#pragma once

#include <scsi/sg.h>

#include <cstdint>

#include "transport/platform/platform.h"

// Where a Linux error comes from: errno of a failed open or ioctl, or the
// host_status / driver_status of an SG_IO answer.
enum class LinuxErrorSource : uint8_t { errno_value, host_status, driver_status };

// The Win32-style code for a Linux error; 0 for "no error". The full mapping
// is the table in sg_io_linux.cc.
uint32_t win32_error_code(LinuxErrorSource source, int value);

// The sense area that SG_IO may fill: mx_sb_len is one byte.
constexpr unsigned kMaxSenseLength = 255;

// Fills `header` for `request`. The CDB is copied into `cdb` (16 bytes), which
// must outlive the ioctl. Data direction: none for a length of 0, else from or
// to the device as the request says. SG_FLAG_DIRECT_IO is asked for when the
// buffer starts on a page boundary and the length is a whole number of
// 512-byte sectors (the sg driver falls back to its own buffer when it cannot
// map the pages, or when /proc/scsi/sg/allow_dio is 0).
void fill_sg_io_header(const PassThroughRequest& request, sg_io_hdr_t* header, uint8_t* cdb);

// Reads the answer of a completed SG_IO into `reply`: SCSI status, sense
// bytes written, transferred = length - resid, and a Win32-style error code
// when the host adapter or the driver reported a failure (DID_* / DRIVER_*).
void read_sg_io_answer(const sg_io_hdr_t& header, PassThroughReply& reply);
